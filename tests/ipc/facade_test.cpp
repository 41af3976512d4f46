// SPDX-License-Identifier: MIT
#include <zan.h>

#include "ipc/calls.h"
#include "ipc/send_test.h"
#include "ipc/sockets.h"
#include "support/capture.h"
#include "support/pauses.h"
#include "support/raw.h"
#include "support/sandbox.h"
#include "support/worker.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace zan::test {
namespace {

using namespace std::chrono_literals;

constexpr char retry_failure[] = "zan_ipc_send: retry fail!\n";
const auto six_pauses = testing::ElementsAre(200ms, 200ms, 200ms, 200ms, 200ms, 200ms);

// ---- The busy flag ---------------------------------------------------------

// A receive in another thread that holds the flag until something is sent to it.
class Busy : public testing::Test {
protected:
    ~Busy() override { zan_ipc_enable_lock(1); }

    void hold() {
        holder = std::make_unique<Worker>([this] {
            char byte;
            received = zan_ipc_recv(ends.near.get(), &byte, 1);
        });
        ASSERT_TRUE(holder->wait_until_blocked());
    }
    void let_go() {
        ASSERT_EQ(write(ends.far.get(), "x", 1), 1);
        ASSERT_TRUE(holder->wait_until_done());
        holder.reset();
        EXPECT_EQ(received, 1);
    }

    Pair ends = stream_pair();
    Pair others = stream_pair();
    PauseWatch pauses;
    int received = 0;
    std::unique_ptr<Worker> holder;
};

TEST_F(Busy, SendWaitsSixTimesAndGivesUp) {
    hold();
    StdoutCapture out;
    const Stopwatch watch;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "lost", 4), -1);
    EXPECT_THAT(pauses.pauses(), six_pauses);
    EXPECT_GE(watch.elapsed(), 1200ms);
    EXPECT_EQ(out.stop(), retry_failure);
    EXPECT_EQ(read_available(others.far.get()), "");
    let_go();
}

TEST_F(Busy, SendGoesThroughOnceTheFlagIsFree) {
    hold();
    StdoutCapture out;
    pauses.before_each([this] { let_go(); });
    EXPECT_EQ(zan_ipc_send(others.near.get(), "kept", 4), 4);
    EXPECT_THAT(pauses.pauses(), testing::ElementsAre(200ms));
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_available(others.far.get()), "kept");
}

TEST_F(Busy, FlagIsFreeAgainAfterwards) {
    hold();
    let_go();
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "sent", 4), 4);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(Busy, FlagIsFreeAgainAfterACallThatFailed) {
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_send(-1, "lost", 4), -1);
    EXPECT_EQ(out.stop(), "ipc socket send failed, " + std::string(std::strerror(EBADF)) + "\n");
    StdoutCapture later;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "sent", 4), 4);
    EXPECT_EQ(later.stop(), "");
}

TEST_F(Busy, IsIgnoredOnRequest) {
    hold();
    zan_ipc_enable_lock(0);
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "sent", 4), 4);
    EXPECT_THAT(pauses.pauses(), testing::IsEmpty());
    EXPECT_EQ(out.stop(), "");
    EXPECT_EQ(read_available(others.far.get()), "sent");
    let_go();
}

TEST_F(Busy, CallThatIgnoredTheFlagClearsItNevertheless) {
    hold();
    zan_ipc_enable_lock(0);
    EXPECT_EQ(zan_ipc_send(others.near.get(), "sent", 4), 4);
    zan_ipc_enable_lock(1);
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "too", 3), 3);
    EXPECT_EQ(out.stop(), "");
    EXPECT_FALSE(holder->done());
    let_go();
}

TEST_F(Busy, CountsAgainOnRequest) {
    zan_ipc_enable_lock(0);
    zan_ipc_enable_lock(2);
    hold();
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_send(others.near.get(), "lost", 4), -1);
    EXPECT_EQ(out.stop(), retry_failure);
    let_go();
}

// Every other operation behind the flag gives up in silence.
struct Operation {
    const char *name;
    std::function<int(int fd)> call;
};
void PrintTo(const Operation &operation, std::ostream *out) {
    *out << operation.name;
}

class BusyOperation : public Busy, public testing::WithParamInterface<Operation> {};

TEST_P(BusyOperation, WaitsSixTimesAndGivesUpInSilence) {
    ASSERT_EQ(write(others.far.get(), "waiting", 7), 7);
    hold();
    StdoutCapture out;
    const Stopwatch watch;
    EXPECT_EQ(GetParam().call(others.near.get()), -1);
    EXPECT_THAT(pauses.pauses(), six_pauses);
    EXPECT_GE(watch.elapsed(), 1200ms);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(is_open(others.near.get()));
    EXPECT_EQ(read_available(others.near.get()), "waiting");
    EXPECT_EQ(read_available(others.far.get()), "");
    let_go();
}

sockaddr_in somewhere;
char somebyte;

INSTANTIATE_TEST_SUITE_P(
    All, BusyOperation,
    testing::Values(
        Operation{"SendTo", [](int fd) { return zan_ipc_send_to(fd, "x", 1, &somewhere); }},
        Operation{"Recv", [](int fd) { return zan_ipc_recv(fd, &somebyte, 1); }},
        Operation{"TryRecv", [](int fd) { return zan_ipc_try_recv(fd, &somebyte, 1); }},
        Operation{"RecvFrom", [](int fd) { return zan_ipc_recv_from(fd, &somebyte, 1, nullptr); }},
        Operation{"Delete", [](int fd) { return zan_ipc_delete(fd); }},
        Operation{"ModuleSendTo", [](int fd) { return ipc_send_to(fd, "x", 1, &somewhere); }},
        Operation{"ModuleRecv", [](int fd) { return ipc_recv(fd, &somebyte, 1); }},
        Operation{"ModuleRecvFrom",
                  [](int fd) { return ipc_recv_from(fd, &somebyte, 1, nullptr); }}),
    [](const auto &operation) { return std::string(operation.param.name); });

TEST_F(Busy, CreatesAndLookUpsTakeNoPartInIt) {
    ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
    hold();
    const Descriptor daemon(zan_ipc_create("ZAN", 0));
    EXPECT_GE(daemon.get(), 0);
    const Descriptor server(ipc_create_server("probe"));
    EXPECT_GE(server.get(), 0);
    const Descriptor client(ipc_create_client());
    EXPECT_GE(client.get(), 0);
    sockaddr_in address{};
    EXPECT_EQ(ipc_get_module_addr("probe", &address), htons(12000));
    EXPECT_FALSE(holder->done());
    let_go();
}

// ---- Where the calls go ----------------------------------------------------

class Facade : public testing::Test {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        write_file("/tmp/zan.socketip", "127.0.0.1\n");
    }
};

TEST_F(Facade, MakesTheDaemonsEndForItsNameInAnyCase) {
    for (const char *name : {"zan", "ZAN", "Zan"}) {
        const Descriptor fd(zan_ipc_create(name, 0));
        ASSERT_GE(fd.get(), 0) << name;
        EXPECT_EQ(option(fd.get(), SO_ACCEPTCONN), 1) << name;
    }
    EXPECT_FALSE(file_exists("/tmp/zan_0.ls"));
}

TEST_F(Facade, ConnectsAModuleWhateverTheSecondArgument) {
    const Descriptor daemon(zan_ipc_create("ZAN", 5));
    EXPECT_EQ(port_of(daemon.get()), 2679);
    for (const int unused : {0, -1, 2690}) {
        const Descriptor module(zan_ipc_create("probe", unused));
        ASSERT_GE(module.get(), 0);
        EXPECT_EQ(peer_address(module.get()), "127.0.0.1:2679");
    }
}

TEST_F(Facade, CarriesBytesOverTheDaemonLink) {
    const Descriptor daemon(zan_ipc_create("ZAN", 0));
    const int module = zan_ipc_create("probe", 0);
    const Descriptor accepted = accept_one(daemon);
    const sockaddr_in ignored = ipv4("127.0.0.1", 9);
    EXPECT_EQ(zan_ipc_send(module, "to the ", 7), 7);
    EXPECT_EQ(zan_ipc_send_to(module, "daemon", 6, &ignored), 6);
    EXPECT_EQ(read_bytes(accepted.get(), 13), "to the daemon");
    EXPECT_EQ(zan_ipc_send(accepted.get(), "to the module", 13), 13);
    ASSERT_TRUE(wait_readable(module));
    char bytes[16] = {};
    EXPECT_EQ(zan_ipc_try_recv(module, bytes, 6), 6);
    EXPECT_STREQ(bytes, "to the");
    EXPECT_EQ(zan_ipc_recv(module, bytes, sizeof bytes), 13);
    EXPECT_STREQ(bytes, "to the module");
    EXPECT_EQ(zan_ipc_delete(module), 1);
    EXPECT_FALSE(is_open(module));
    EXPECT_EQ(read_bytes(accepted.get(), 1), "");
}

TEST_F(Facade, KeepsWhatTheDaemonLinkDidNotTakeOfASendToAnAddress) {
    const Descriptor daemon(zan_ipc_create("ZAN", 0));
    const Descriptor module(zan_ipc_create("probe", 0));
    const Descriptor accepted = accept_one(daemon);
    const sockaddr_in ignored = ipv4("127.0.0.1", 9);
    const std::string hundred = some_bytes(100);
    StdoutCapture out;
    take_only({60});
    EXPECT_EQ(zan_ipc_send_to(module.get(), hundred.data(), 100, &ignored), 60);
    EXPECT_EQ(out.so_far(), maybe_full);
    EXPECT_EQ(zan_ipc_send_to(module.get(), "next", 4, &ignored), 4);
    EXPECT_EQ(out.stop(), std::string(maybe_full) + resending + "send failed buffer ret = 40\n");
    EXPECT_EQ(read_bytes(accepted.get(), 104), hundred + "next");
}

TEST_F(Facade, CarriesDatagramsBetweenModules) {
    const Descriptor server(ipc_create_server("probe"));
    const Descriptor client(ipc_create_client());
    sockaddr_in address{};
    EXPECT_EQ(ipc_get_module_addr("probe", &address), htons(12000));
    EXPECT_EQ(text_of(address), "127.0.0.1:12000");
    EXPECT_EQ(ipc_send_to(client.get(), "hello", 5, &address), 5);
    char bytes[16] = {};
    sockaddr_in sender{};
    EXPECT_EQ(ipc_recv_from(server.get(), bytes, sizeof bytes, &sender), 5);
    EXPECT_STREQ(bytes, "hello");
    EXPECT_EQ(ipc_send_to(server.get(), "yes?", 4, &sender), 4);
    std::memset(bytes, 0, sizeof bytes);
    EXPECT_EQ(ipc_recv(client.get(), bytes, sizeof bytes), 4);
    EXPECT_STREQ(bytes, "yes?");
    EXPECT_EQ(timeout_option(server.get(), SO_RCVTIMEO), 0s);
    EXPECT_EQ(timeout_option(client.get(), SO_RCVTIMEO), 0s);
}

TEST_F(Facade, ReceivesFromTheDaemonLinkWithATimeOut) {
    const Descriptor from = udp_socket();
    const Descriptor to = udp_socket();
    const sockaddr_in address = ipv4("127.0.0.1", port_of(to.get()));
    EXPECT_EQ(ipc_send_to(from.get(), "x", 1, &address), 1);
    char byte = 0;
    sockaddr_in sender{};
    EXPECT_EQ(zan_ipc_recv_from(to.get(), &byte, 1, &sender), 1);
    EXPECT_EQ(text_of(sender), own_address(from.get()));
    EXPECT_EQ(timeout_option(to.get(), SO_RCVTIMEO), 3s);
}

TEST_F(Facade, ModuleWithoutAFileHasPortZero) {
    sockaddr_in address{};
    EXPECT_EQ(ipc_get_module_addr("nobody", &address), 0);
    EXPECT_EQ(text_of(address), "127.0.0.1:0");
}

TEST_F(Facade, ModulesDatagramsKeepNothing) {
    const Descriptor client(ipc_create_client());
    const std::string huge(70000, 'x');
    const sockaddr_in address = ipv4("127.0.0.1", 12000);
    StdoutCapture out;
    EXPECT_EQ(ipc_send_to(client.get(), huge.data(), 70000, &address), -1);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(out.stop(), "");
}

TEST(FacadeArguments, NegativeLengthsAreRefused) {
    const Pair ends = stream_pair();
    const int fd = ends.near.get();
    ASSERT_EQ(write(ends.far.get(), "waiting", 7), 7);
    const sockaddr_in address = ipv4("127.0.0.1", 9);
    char byte = '#';
    sockaddr_in sender{};
    StdoutCapture out;
    for (const int length : {-1, INT_MIN}) {
        const std::function<int()> calls[] = {
            [&] { return zan_ipc_send(fd, &byte, length); },
            [&] { return zan_ipc_send_to(fd, &byte, length, &address); },
            [&] { return zan_ipc_recv(fd, &byte, length); },
            [&] { return zan_ipc_try_recv(fd, &byte, length); },
            [&] { return zan_ipc_recv_from(fd, &byte, length, &sender); },
            [&] { return ipc_send_to(fd, &byte, length, &address); },
            [&] { return ipc_recv(fd, &byte, length); },
            [&] { return ipc_recv_from(fd, &byte, length, &sender); },
        };
        for (const auto &call : calls) {
            errno = 0;
            EXPECT_EQ(call(), -1) << &call - calls;
            EXPECT_EQ(errno, EINVAL) << &call - calls;
        }
    }
    out.stop();
    EXPECT_EQ(byte, '#');
    EXPECT_EQ(read_available(ends.far.get()), "");
    EXPECT_EQ(read_available(fd), "waiting");
}

TEST(FacadeArguments, NothingIsRefused) {
    const Descriptor client(ipc_create_client());
    StdoutCapture out;
    EXPECT_EQ(zan_ipc_create(nullptr, 0), -1);
    EXPECT_EQ(ipc_create_server(nullptr), -1);
    EXPECT_EQ(ipc_get_module_addr(nullptr, nullptr), 0);
    EXPECT_EQ(ipc_get_module_addr("probe", nullptr), 0);
    EXPECT_EQ(ipc_send_to(client.get(), "x", 1, nullptr), -1);
    EXPECT_EQ(errno, EDESTADDRREQ);
    EXPECT_EQ(out.stop(), "");
}

} // namespace
} // namespace zan::test
