// SPDX-License-Identifier: MIT
//
// The mesh gate and agents.  Functions of this program stand before the system's
// pthread_sigmask(), which tells what becomes of the API lock, and
// clock_nanosleep(), which tells how the attempts to connect are paced: they note
// the call and pass it on.
#include "clogged_link.h"

#include "support/capture.h"
#include "support/commands.h"
#include "support/daemon.h"
#include "support/new_process.h"
#include "support/stream_peer.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace {

// Of the thread that has a Watch.
thread_local bool watching = false;
std::vector<int> pauses_ms;
std::string lock_calls; // L and U for each lock and unlock
std::function<void()> at_pause;

} // namespace

extern "C" {
int __real_pthread_sigmask(int how, const sigset_t *set, sigset_t *before);
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left);

int __wrap_pthread_sigmask(int how, const sigset_t *set, sigset_t *before) {
    if (watching && how == SIG_BLOCK)
        lock_calls += 'L';
    if (watching && how == SIG_UNBLOCK)
        lock_calls += 'U';
    return __real_pthread_sigmask(how, set, before);
}

int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec *wanted, timespec *left) {
    if (watching) {
        pauses_ms.push_back(static_cast<int>(wanted->tv_sec * 1000 + wanted->tv_nsec / 1000000));
        if (at_pause)
            at_pause();
    }
    return __real_clock_nanosleep(clock, flags, wanted, left);
}
}

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int registration = class_registration;
constexpr int agent_pid = 0x01020304;
const std::string mesh = "/InternetGatewayDevice/X_ORVANE_EasyMesh";
// Four values are read, each under the lock.
const std::string gate_locks = "LULULULU";

struct Mesh {
    std::string optimizing = "0";
    std::string initializing = "0";
    std::string enabled = "1";
    std::string role = "Agent";
    // What the gate makes of it.
    int status = 1;
    std::string line = {};
};

void PrintTo(const Mesh &state, std::ostream *out) {
    *out << state.optimizing << " " << state.initializing << " " << state.enabled << " "
         << state.role;
}

const Mesh settled = {};
const Mesh disabled = {
    .enabled = "0", .status = 0, .line = "zan_mesh_status:mesh_enable=0 role=Agent\n"};

// A module "probe" without a queue registration of its own, beside a daemon that
// serves the mesh state.
class AgentTest : public testing::Test {
protected:
    AgentTest() {
        pauses_ms.clear();
        lock_calls.clear();
        at_pause = nullptr;
        g_agent_name[0] = '\0';
        g_ipc_handle = -1;
        zan_strcpy(g_module_name, "probe", sizeof g_module_name);
        g_zan_qid = daemon.request_queue();
        g_reg_msq_qid = daemon.registration_queue();
        g_msq_qid = queue.id();
        zan_api_lock_init();
    }

    ~AgentTest() override {
        watching = false;
        zan_api_lock_destroy();
    }

    // Answers the gate's four questions, once.
    void mesh_is(const Mesh &state) {
        for (const std::string &value :
             {state.optimizing, state.initializing, state.enabled, state.role})
            daemon.once(1, 1, answer(value));
    }

    static bool api_lock_is_free() { return LockProbe(zan_api_lock, zan_api_unlock).is_free(); }

    ScriptedDaemon daemon;
    RawQueue queue;
};

// ---- the mesh gate -------------------------------------------------------------------

class MeshGate : public AgentTest, public testing::WithParamInterface<Mesh> {};

TEST_P(MeshGate, TellsWhetherTheAgentIsReady) {
    const Mesh &state = GetParam();
    mesh_is(state);
    StdoutCapture out;
    EXPECT_EQ(zan_mesh_status(), state.status);
    EXPECT_EQ(out.stop(), state.line);
}

const std::string optimizing_line = "zan_mesh_status:Topology is optimizing..\n";
const std::string initializing_line = "zan_mesh_status:Mapd is initializing...\n";

INSTANTIATE_TEST_SUITE_P(
    States, MeshGate,
    testing::Values(
        settled, Mesh{.enabled = "2"}, Mesh{.enabled = "-1"},
        Mesh{.optimizing = "1", .status = 0, .line = optimizing_line},
        Mesh{.optimizing = "-7", .status = 0, .line = optimizing_line},
        Mesh{.initializing = "1", .status = 0, .line = initializing_line},
        Mesh{.optimizing = "1", .initializing = "1", .status = 0, .line = optimizing_line},
        disabled,
        Mesh{.enabled = "", .status = 0, .line = "zan_mesh_status:mesh_enable=0 role=Agent\n"},
        Mesh{.role = "Controller",
             .status = 0,
             .line = "zan_mesh_status:mesh_enable=1 role=Controller\n"},
        Mesh{.role = "agent", .status = 0, .line = "zan_mesh_status:mesh_enable=1 role=agent\n"},
        Mesh{.role = "Agents", .status = 0, .line = "zan_mesh_status:mesh_enable=1 role=Agents\n"},
        Mesh{.role = "", .status = 0, .line = "zan_mesh_status:mesh_enable=1 role=\n"},
        // Flags do not matter to a device that is no agent.
        Mesh{.optimizing = "1",
             .initializing = "1",
             .enabled = "0",
             .role = "Controller",
             .status = 0,
             .line = "zan_mesh_status:mesh_enable=0 role=Controller\n"}));

TEST_F(AgentTest, TheGateReadsFourValuesInThisOrder) {
    mesh_is(settled);
    EXPECT_EQ(zan_mesh_status(), 1);
    EXPECT_THAT(daemon.take_payloads(),
                ElementsAre(mesh + "/Status/TopologyOptimize", mesh + "/ReInitWifiFlag",
                            mesh + "/Enable", mesh + "/DeviceRole"));
}

TEST_F(AgentTest, ALongRoleIsCut) {
    mesh_is({.role = "AgentAgentAgentAgent"});
    StdoutCapture out;
    EXPECT_EQ(zan_mesh_status(), 0);
    EXPECT_EQ(out.stop(), overflow_warning("AgentAgentAgent") +
                              "zan_mesh_status:mesh_enable=1 role=AgentAgentAgent\n");
}

TEST_F(AgentTest, ValuesThatCannotBeReadAreZeroAndEmpty) {
    daemon.on(1, 1, negative(-5, "no such node"));
    StdoutCapture out;
    EXPECT_EQ(zan_mesh_status(), 0);
    EXPECT_EQ(out.stop(), "cfg_getint failed for " + mesh + "/Status/TopologyOptimize\n" +
                              "cfg_getint failed for " + mesh + "/ReInitWifiFlag\n" +
                              "cfg_getint failed for " + mesh + "/Enable\n" +
                              "zan_mesh_status:mesh_enable=0 role=\n");
}

// ---- registration ----------------------------------------------------------------------

class RegisterAgent : public AgentTest {
protected:
    ~RegisterAgent() override {
        if (g_ipc_handle >= 0)
            zan_ipc_delete(g_ipc_handle);
    }

    void daemon_answers(std::int32_t result) {
        peer.reply(
            stream_bytes({.type = registration, .cmd = 0, .result = result}, ByteOrder::network));
    }

    // The call, watched.
    static int register_agent(const char *name = "agent") {
        watching = true;
        const int result = zan_register_agent(name, agent_pid);
        watching = false;
        return result;
    }

    static std::string agent_record(int cmd, ByteOrder order) {
        return stream_bytes({.type = registration,
                             .cmd = cmd,
                             .src = "agent",
                             .pid = agent_pid,
                             .payload = std::string(4, '\0')},
                            order);
    }

    StreamPeer peer;
};

TEST_F(RegisterAgent, SendsItsRecordInNetworkOrder) {
    mesh_is(settled);
    daemon_answers(1);
    StdoutCapture out;
    const int handle = register_agent();
    EXPECT_EQ(out.stop(), "");
    EXPECT_GT(handle, 0);
    EXPECT_EQ(handle, g_ipc_handle);
    EXPECT_STREQ(g_agent_name, "agent");
    EXPECT_STREQ(g_module_name, "probe");
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], agent_record(0, ByteOrder::network)));
    EXPECT_EQ(peer.unfinished(), "");
    EXPECT_EQ(peer.connections(), 1);
}

TEST_F(RegisterAgent, ReleasesTheApiLockAndDoesNotTakeIt) {
    mesh_is(settled);
    daemon_answers(1);
    EXPECT_GT(register_agent(), 0);
    EXPECT_EQ(lock_calls, gate_locks + "U");
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(RegisterAgent, IsRefusedWhileTheMeshIsNotReady) {
    mesh_is(disabled);
    g_ipc_handle = 9999;
    StdoutCapture out;
    EXPECT_EQ(register_agent(), -2010);
    EXPECT_EQ(out.stop(), disabled.line + "zan_register_agent: module=agent pid=16909060 "
                                          "fail by mesh not ready\n");
    EXPECT_EQ(g_ipc_handle, 9999);
    EXPECT_STREQ(g_agent_name, "");
    EXPECT_EQ(peer.connections(), 0);
    EXPECT_EQ(lock_calls, gate_locks);
    g_ipc_handle = -1;
}

TEST_F(RegisterAgent, ReplacesTheLinkItHas) {
    mesh_is(settled);
    daemon_answers(1);
    EXPECT_GT(register_agent(), 0);
    mesh_is(settled);
    daemon_answers(1);
    EXPECT_GT(register_agent("another"), 0);
    EXPECT_STREQ(g_agent_name, "another");
    EXPECT_TRUE(peer.wait_for_closed(1));
    EXPECT_EQ(peer.connections(), 2);
}

// What the earlier link left of a record is no part of the first one on the new link.
TEST_F(RegisterAgent, ANewLinkBeginsWithANewRecord) {
    const Fields whole = {.type = 4, .cmd = 4, .payload = std::string(200, 'x')};
    const Fields refused = {.type = 4, .cmd = 4, .len = 2 * 1024 * 1024};
    for (const std::string &left : {stream_bytes(refused, ByteOrder::network),
                                    stream_bytes(whole, ByteOrder::network).substr(0, 270)}) {
        mesh_is(settled);
        daemon_answers(1);
        ASSERT_GT(register_agent(), 0);
        peer.deliver(g_ipc_handle, left);
        while (zan_client_recv(g_ipc_handle, nullptr, 0) == 0 && bytes_waiting(g_ipc_handle) > 0)
            ;
        peer.reset();
    }
    mesh_is(settled);
    daemon_answers(1);
    EXPECT_GT(register_agent(), 0);
}

TEST_F(RegisterAgent, AHandleOfZeroIsNoLinkToReplace) {
    mesh_is(settled);
    daemon_answers(1);
    g_ipc_handle = 0;
    EXPECT_GT(register_agent(), 0);
    EXPECT_NE(fcntl(0, F_GETFD), -1);
}

TEST_F(RegisterAgent, CutsItsNameToTheAgentsName) {
    mesh_is(settled);
    daemon_answers(1);
    const std::string name = "an-agent-whose-name-has-31-chars";
    StdoutCapture out;
    EXPECT_GT(register_agent(name.c_str()), 0);
    EXPECT_EQ(out.stop(), overflow_warning(name.substr(0, 31)));
    EXPECT_EQ(g_agent_name, name.substr(0, 31));
    // The record has it whole: its end is where the process id was set afterwards.
    EXPECT_EQ(peer.wait_for_records(1)[0].substr(at::src, 36), name + "\1\2\3\4");
}

TEST_F(RegisterAgent, ALongNameRunsOverTheFieldsBehindIt) {
    mesh_is(settled);
    daemon_answers(1);
    const std::string name = "an agent whose name has exactly forty-six chars";
    StdoutCapture out;
    EXPECT_GT(register_agent(name.c_str()), 0);
    // Bytes 32 to 35 are the process id's, the next eight time and spare, which stay
    // in order; what reached `result` is turned round with it.
    std::string expected = agent_record(0, ByteOrder::network);
    expected.replace(at::src, 32, name, 0, 32);
    expected.replace(at::time, 8, name, 36, 8);
    std::string result = name.substr(44);
    result.resize(4);
    expected.replace(at::result, 4, std::string(result.rbegin(), result.rend()));
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], expected));
}

TEST_F(RegisterAgent, ARefusalClosesTheLink) {
    mesh_is(settled);
    daemon_answers(-77);
    EXPECT_EQ(register_agent(), -77);
    EXPECT_EQ(g_ipc_handle, -1);
    EXPECT_TRUE(peer.wait_for_closed(1));
}

TEST_F(RegisterAgent, ADaemonThatHangsUpClosesTheLink) {
    mesh_is(settled);
    peer.hang_up_at_next_record();
    EXPECT_EQ(register_agent(), -1);
    EXPECT_EQ(g_ipc_handle, -1);
}

TEST_F(RegisterAgent, OtherRecordsAreSetAsideMeanwhile) {
    ZAN_NEEDS_NEW_PROCESS(); // the library keeps the record
    mesh_is(settled);
    peer.reply(stream_bytes({.type = 4, .cmd = 4}, ByteOrder::network) +
               stream_bytes({.type = registration, .cmd = 0}, ByteOrder::network));
    EXPECT_GT(register_agent(), 0);
    EXPECT_TRUE(same_bytes(peer.wait_for_records(2)[1],
                           stream_bytes({.type = 1,
                                         .cmd = 20,
                                         .dst = "ZAN_CFG",
                                         .src = "probe",
                                         .pid = static_cast<std::int32_t>(getpid())},
                                        ByteOrder::host)));
}

// Holds the facade's busy flag with a read that waits.
class BusyFacade {
public:
    BusyFacade() : fd_(ipc_create_client()), reader_([this] { read(); }) {
        EXPECT_TRUE(reader_.wait_until_blocked());
    }
    ~BusyFacade() {
        shutdown(fd_, SHUT_RDWR);
        EXPECT_TRUE(reader_.wait_until_done());
        close(fd_);
    }

private:
    void read() const {
        char byte;
        ipc_recv(fd_, &byte, 1);
    }

    int fd_;
    Worker reader_;
};

TEST_F(RegisterAgent, ARecordThatIsNotSentLeavesTheLinkOpen) {
    mesh_is(settled);
    StdoutCapture out;
    const BusyFacade busy;
    EXPECT_EQ(register_agent(), -2003);
    EXPECT_EQ(out.stop(), "zan_ipc_send: retry fail!\n");
    EXPECT_GT(g_ipc_handle, 0);
    EXPECT_NE(fcntl(g_ipc_handle, F_GETFD), -1);
}

// ---- attempts to connect ------------------------------------------------------------------

class Connect : public AgentTest {
protected:
    ~Connect() override {
        at_pause = nullptr;
        if (g_ipc_handle >= 0)
            zan_ipc_delete(g_ipc_handle);
    }

    int register_agent() {
        mesh_is(settled);
        peer.reply(stream_bytes({.type = registration, .cmd = 0}, ByteOrder::network));
        watching = true;
        const int result = zan_register_agent("agent", agent_pid);
        watching = false;
        return result;
    }

    // The peer appears in the pause after so many failed attempts.
    void listen_after_attempt(int attempts) {
        at_pause = [this] {
            if (pauses_ms.back() == 200 && --pauses_left_ == 0)
                peer.listen();
        };
        pauses_left_ = attempts;
    }

    std::string could_not_connect(int times) const {
        std::string lines;
        for (; times > 0; --times)
            lines += "zan: can not connect to zan, port=" + std::to_string(peer.port()) + "\n";
        return lines;
    }

    StreamPeer peer{StreamPeer::Start::deaf};

private:
    int pauses_left_ = 0;
};

// Leaves descriptor 0 to the next that is opened.
class FreeStdin {
public:
    FreeStdin() : saved_(fcntl(0, F_DUPFD_CLOEXEC, 3)) { close(0); }
    ~FreeStdin() {
        dup2(saved_, 0);
        close(saved_);
    }
    FreeStdin(const FreeStdin &) = delete;
    FreeStdin &operator=(const FreeStdin &) = delete;

private:
    int saved_;
};

TEST_F(Connect, FourAttemptsFail) {
    StdoutCapture out;
    EXPECT_EQ(register_agent(), -2005);
    EXPECT_EQ(out.stop(), could_not_connect(4));
    EXPECT_EQ(g_ipc_handle, -1);
    // Each attempt is five tries of a connection, 100 ms apart.
    EXPECT_THAT(pauses_ms, ElementsAre(100, 100, 100, 100, 200, 100, 100, 100, 100, 200, 100, 100,
                                       100, 100, 200, 100, 100, 100, 100));
}

TEST_F(Connect, ThePeerMayAppearBeforeTheLastAttempt) {
    listen_after_attempt(3);
    StdoutCapture out;
    EXPECT_GT(register_agent(), 0);
    EXPECT_EQ(out.stop(), could_not_connect(3));
    EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Connect, AHandleOfZeroIsKeptAfterTheLastAttempt) {
    listen_after_attempt(3);
    StdoutCapture out;
    const FreeStdin free;
    EXPECT_EQ(register_agent(), 0);
    EXPECT_EQ(out.stop(), could_not_connect(3));
    EXPECT_EQ(g_ipc_handle, 0);
    EXPECT_EQ(peer.wait_for_records(1).size(), 1U);
    zan_ipc_delete(g_ipc_handle);
    g_ipc_handle = -1;
}

TEST_F(Connect, AHandleOfZeroIsTriedAgainBefore) {
    peer.listen();
    const FreeStdin free;
    EXPECT_GT(register_agent(), 0);
    EXPECT_GT(g_ipc_handle, 0);
    EXPECT_TRUE(peer.wait_for_connections(2));
}

// ---- leaving ----------------------------------------------------------------------------

class UnregisterAgent : public RegisterAgent {
protected:
    void SetUp() override {
        mesh_is(settled);
        daemon_answers(1);
        link = register_agent();
        ASSERT_GT(link, 0);
        peer.wait_for_records(1);
        peer.forget_records();
        lock_calls.clear();
    }

    ~UnregisterAgent() override { g_ipc_handle = -1; }

    void daemon_lets_go(std::int32_t result = 1) {
        peer.reply(
            stream_bytes({.type = registration, .cmd = 1, .result = result}, ByteOrder::network));
    }

    static int unregister_agent() {
        watching = true;
        const int result = zan_unregister_agent("agent", agent_pid);
        watching = false;
        return result;
    }

    bool link_is_open() const { return fcntl(link, F_GETFD) != -1; }

    int link = -1;
};

TEST_F(UnregisterAgent, SendsItsRecordInHostOrder) {
    mesh_is(settled);
    daemon_lets_go();
    StdoutCapture out;
    EXPECT_EQ(unregister_agent(), 0);
    EXPECT_EQ(out.stop(), "");
    EXPECT_TRUE(same_bytes(peer.wait_for_records(1)[0], agent_record(1, ByteOrder::host)));
    EXPECT_TRUE(peer.wait_for_closed(1));
    EXPECT_FALSE(link_is_open());
    EXPECT_EQ(g_ipc_handle, link); // keeps its value
    EXPECT_EQ(lock_calls, gate_locks + "LU");
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(UnregisterAgent, HoldsTheApiLockUntilTheAnswer) {
    mesh_is(settled);
    int result = -7;
    Worker leaver([&] { result = zan_unregister_agent("agent", agent_pid); });
    peer.wait_for_records(1);
    EXPECT_TRUE(leaver.wait_until_blocked());
    LockProbe probe(zan_api_lock, zan_api_unlock);
    EXPECT_FALSE(probe.is_free());
    peer.send(stream_bytes({.type = registration, .cmd = 1}, ByteOrder::network));
    ASSERT_TRUE(leaver.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(probe.wait_until_free());
}

TEST_F(UnregisterAgent, IsRefusedWhileTheMeshIsNotReady) {
    mesh_is(disabled);
    StdoutCapture out;
    EXPECT_EQ(unregister_agent(), -2010);
    EXPECT_EQ(out.stop(), disabled.line + "zan_unregister_agent: module=agent pid=16909060 "
                                          "fail by mesh not ready\n");
    EXPECT_TRUE(link_is_open());
    EXPECT_EQ(lock_calls, gate_locks);
    EXPECT_THAT(peer.records(), IsEmpty());
}

TEST_F(UnregisterAgent, DoesNotMindARefusal) {
    mesh_is(settled);
    daemon_lets_go(-77);
    EXPECT_EQ(unregister_agent(), 0);
    EXPECT_FALSE(link_is_open());
}

TEST_F(UnregisterAgent, DoesNotMindADaemonThatHangsUp) {
    mesh_is(settled);
    peer.hang_up_at_next_record();
    EXPECT_EQ(unregister_agent(), 0);
    EXPECT_FALSE(link_is_open());
}

TEST_F(UnregisterAgent, AsksForNoWakeUp) {
    mesh_is(settled);
    peer.reply(stream_bytes({.type = 4, .cmd = 4}, ByteOrder::network) +
               stream_bytes({.type = registration, .cmd = 1}, ByteOrder::network));
    EXPECT_EQ(unregister_agent(), 0);
    EXPECT_TRUE(peer.wait_for_closed(1));
    EXPECT_EQ(peer.records().size(), 1U);
}

TEST_F(UnregisterAgent, ARecordThatIsNotSentLeavesTheLinkOpen) {
    mesh_is(settled);
    StdoutCapture out;
    {
        const BusyFacade busy;
        EXPECT_EQ(unregister_agent(), -2003);
    }
    EXPECT_EQ(out.stop(), "zan_ipc_send: retry fail!\n");
    EXPECT_TRUE(link_is_open());
    EXPECT_EQ(g_ipc_handle, link);
    EXPECT_EQ(lock_calls, gate_locks + "LU");
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(UnregisterAgent, WithoutALinkCannotSend) {
    mesh_is(settled);
    g_ipc_handle = -1;
    StdoutCapture out;
    EXPECT_EQ(unregister_agent(), -2003);
    EXPECT_EQ(out.stop(), "ipc socket send failed, Bad file descriptor\n");
    EXPECT_TRUE(api_lock_is_free());
}

// What is still under way goes first and the record is dropped: the agent leaves all
// the same.
TEST_F(UnregisterAgent, ARecordThatTheLinkHasNoRoomForIsNoFailure) {
    mesh_is(settled);
    const CloggedLinkEnds clogged;
    clogged.make_room();
    clogged.deliver(stream_bytes({.type = registration, .cmd = 1}, ByteOrder::network));
    g_ipc_handle = clogged.module_end();
    StdoutCapture out;
    EXPECT_EQ(unregister_agent(), 0);
    EXPECT_EQ(out.stop(), "get failed packet buffer, start sending...\n"
                          "delete failed msg queue\n");
    EXPECT_EQ(fcntl(clogged.module_end(), F_GETFD), -1);
    zan_ipc_delete(link);
}

// The facade becomes busy between the send and the answer, and stays so: neither the
// answer can be read nor the link deleted.
TEST_F(UnregisterAgent, ALinkThatIsNotDeletedReleasesTheLockTwice) {
    mesh_is(settled);
    int result = -7;
    Worker leaver([&] { result = unregister_agent(); });
    peer.wait_for_records(1);
    EXPECT_TRUE(leaver.wait_until_blocked());
    const BusyFacade busy;
    peer.hang_up();
    ASSERT_TRUE(leaver.wait_until_done());
    EXPECT_EQ(result, -2006);
    EXPECT_TRUE(link_is_open());
    EXPECT_EQ(lock_calls, gate_locks + "LUU");
    EXPECT_TRUE(api_lock_is_free());
}

TEST_F(AgentTest, ANamelessAgentIsRefused) {
    EXPECT_EQ(zan_register_agent(nullptr, 1), -1);
    EXPECT_EQ(zan_unregister_agent(nullptr, 1), -1);
    EXPECT_THAT(daemon.records(), IsEmpty());
}

} // namespace
} // namespace zan::test
