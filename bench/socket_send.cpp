// SPDX-License-Identifier: MIT
// What goes over the daemon link, and direct messages, against the bare kernel:
// the same bytes sent and received with the system calls alone.
//
//   zan_send         a message into a queue, against msgsnd
//   zan_ipc_send     a message into a connection, against send
//   zan_send_agent   a message over the link and its acknowledgement, against a
//                    TCP ping-pong
//   ctl_getstr       a value over the link, against a TCP ping-pong that asks four
//                    values over the queues first: the library may not go over the
//                    link before the daemon has said, in four answers, that the
//                    device is a mesh agent at rest
//
// A module owes more than the bare calls: its link does not block, so that it polls
// before it reads, and the header of a record tells how much follows, so that it
// reads twice; SIGTERM is held off while a value is asked for; a message has a header to
// fill, under the lock that keeps a receiving thread out of the queue.  "raw with duties"
// is the floor with these.
#include "ratio_report.h"
#include "stub_daemon.h"
#include "wire/word.h"

#include "zan.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using zan::bench::check;
using zan::bench::open_connection;
using zan::bench::open_listener;
using zan::bench::path_for;
using zan::bench::read_whole;
using zan::bench::StubDaemon;

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;
constexpr std::size_t message_sizes[] = {32, 1024};
constexpr std::size_t value_sizes[] = {32, 1024, 32768};
constexpr char gate_path[] = "/InternetGatewayDevice/X_ORVANE_EasyMesh/Status/TopologyOptimize";
constexpr int gate_requests = 4;

int request_queue;
int raw_queue;

int32_t network(int value) {
    return zan::wire::convert_word(value);
}

enum class Duties { none, all };

// ---- Sends that do not wait ------------------------------------------------
// Nobody reads while they are timed: what they fill is emptied between batches.

constexpr std::size_t largest_batch = 64;
int idle_queue;
std::size_t idle_queue_size;
int near_end;
int far_end;

std::size_t batch_for(std::size_t size) {
    return std::clamp<std::size_t>(idle_queue_size / (ZAN_HEADER_SIZE + size) / 2, 1,
                                   largest_batch);
}

void empty_queue() {
    static zan_msg record;
    while (msgrcv(idle_queue, &record, ZAN_BODY_SIZE, 0, IPC_NOWAIT) >= 0) {
    }
}

void empty_connection() {
    static char bytes[1 << 16];
    while (recv(far_end, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
}

template<typename Send>
void send_in_batches(benchmark::State &state, std::size_t batch, void (*empty)(), Send send_one) {
    const auto count = static_cast<benchmark::IterationCount>(batch);
    while (state.KeepRunningBatch(count)) {
        for (std::size_t i = 0; i < batch; ++i) {
            if (!send_one())
                state.SkipWithError("send failed");
        }
        state.PauseTiming();
        empty();
        state.ResumeTiming();
    }
}

void fill_header(zan_body &body, std::size_t size) {
    std::memset(&body, 0, ZAN_HEADER_SIZE);
    body.type = ZAN_CLASS_MESSAGE;
    body.cmd = ZAN_MESSAGE_SEND;
    std::memcpy(body.dst, "peer", sizeof "peer");
    std::memcpy(body.src, g_module_name, sizeof body.src);
    body.time = static_cast<int32_t>(std::time(nullptr));
    body.len = static_cast<int32_t>(size);
}

void raw_queue_send(benchmark::State &state, std::size_t size, Duties duties) {
    static zan_msg record;
    static std::mutex lock;
    const std::string text(size, 'm');
    record.mtype = g_msq_qid;
    send_in_batches(state, batch_for(size), empty_queue, [&] {
        std::unique_lock held(lock, std::defer_lock);
        if (duties == Duties::all) {
            held.lock();
            fill_header(record.body, size);
        }
        std::memcpy(record.body.data, text.data(), size);
        return msgsnd(idle_queue, &record, ZAN_HEADER_SIZE + size, 0) == 0;
    });
}

void library_queue_send(benchmark::State &state, std::size_t size) {
    const std::string text(size, 'm');
    const int daemon_queue = g_zan_qid;
    g_zan_qid = idle_queue;
    send_in_batches(state, batch_for(size), empty_queue,
                    [&] { return zan_send("peer", text.data(), static_cast<int>(size)) == 0; });
    g_zan_qid = daemon_queue;
}

void raw_connection_send(benchmark::State &state, std::size_t size) {
    const std::string record(ZAN_HEADER_SIZE + size, 'm');
    send_in_batches(state, batch_for(size), empty_connection, [&] {
        return send(near_end, record.data(), record.size(), 0) ==
               static_cast<ssize_t>(record.size());
    });
}

void library_connection_send(benchmark::State &state, std::size_t size) {
    const std::string record(ZAN_HEADER_SIZE + size, 'm');
    const auto length = static_cast<int>(record.size());
    send_in_batches(state, batch_for(size), empty_connection,
                    [&] { return zan_ipc_send(near_end, record.data(), length) == length; });
}

// ---- Round trips -----------------------------------------------------------

int blocking_link;
int polled_link;

bool wait_readable(int fd) {
    pollfd ready = {fd, POLLIN, 0};
    return poll(&ready, 1, -1) == 1;
}

bool read_polled(int fd, char *into, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
        if (!wait_readable(fd))
            return false;
        const ssize_t received = recv(fd, into + done, size - done, 0);
        if (received <= 0)
            return false;
        done += static_cast<std::size_t>(received);
    }
    return true;
}

bool exchange(const zan_body &request, std::size_t size, char *answer, std::size_t answer_size,
              Duties duties) {
    const std::size_t whole = ZAN_HEADER_SIZE + answer_size;
    if (duties == Duties::none)
        return send(blocking_link, &request, size, 0) > 0 &&
               read_whole(blocking_link, answer, whole);
    return send(polled_link, &request, size, 0) > 0 &&
           read_polled(polled_link, answer, ZAN_HEADER_SIZE) &&
           read_polled(polled_link, answer + ZAN_HEADER_SIZE, answer_size);
}

void raw_message(benchmark::State &state, std::size_t size, Duties duties) {
    static zan_body body;
    static char answer[ZAN_BODY_SIZE];
    body.type = ZAN_CLASS_MESSAGE;
    body.cmd = ZAN_MESSAGE_SEND_WITH_ACK;
    body.len = static_cast<int32_t>(size);
    for (auto _ : state) {
        if (!exchange(body, ZAN_HEADER_SIZE + size, answer, 0, duties))
            state.SkipWithError("exchange failed");
    }
}

void library_message(benchmark::State &state, std::size_t size, Duties) {
    const std::string text(size, 'm');
    for (auto _ : state) {
        if (zan_send_agent("peer", text.data(), static_cast<int>(size)) != 1)
            state.SkipWithError("zan_send_agent failed");
    }
}

void hold_term(Duties duties, int how) {
    if (duties == Duties::none)
        return;
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    pthread_sigmask(how, &term, nullptr);
}

bool ask_gate(zan_msg &record, Duties duties) {
    hold_term(duties, SIG_BLOCK);
    record.mtype = raw_queue;
    record.body.type = ZAN_CLASS_CFG;
    record.body.cmd = ZAN_CFG_GET;
    record.body.len = sizeof gate_path - 1;
    std::memcpy(record.body.data, gate_path, sizeof gate_path - 1);
    const bool answered =
        msgsnd(request_queue, &record, ZAN_HEADER_SIZE + sizeof gate_path - 1, 0) == 0 &&
        msgrcv(raw_queue, &record, ZAN_BODY_SIZE, ZAN_CLASS_CFG, 0) >= 0;
    hold_term(duties, SIG_UNBLOCK);
    return answered;
}

void raw_value(benchmark::State &state, std::size_t size, Duties duties) {
    static zan_msg record;
    static zan_body body;
    static char answer[ZAN_BODY_SIZE];
    const std::string path = path_for(size);
    body.type = network(ZAN_CLASS_CFG);
    body.cmd = network(ZAN_CFG_GET);
    body.len = network(static_cast<int>(path.size()));
    std::memcpy(body.data, path.data(), path.size());
    for (auto _ : state) {
        bool done = true;
        for (int i = 0; i < gate_requests; ++i)
            done = ask_gate(record, duties) && done;
        hold_term(duties, SIG_BLOCK);
        done = exchange(body, ZAN_HEADER_SIZE + path.size(), answer, size, duties) && done;
        hold_term(duties, SIG_UNBLOCK);
        if (!done)
            state.SkipWithError("exchange failed");
    }
}

void library_value(benchmark::State &state, std::size_t size, Duties) {
    static char value[ZAN_DATA_SIZE + 1];
    const std::string path = path_for(size);
    for (auto _ : state) {
        if (ctl_getstr(value, sizeof value, "%s", path.c_str()) != 1)
            state.SkipWithError("ctl_getstr failed");
        benchmark::ClobberMemory();
    }
}

// ---- The run ---------------------------------------------------------------

template<typename Benchmark, class... Arguments>
void add(const std::string &what, const std::string &group, Benchmark run, std::size_t size,
         Arguments... arguments) {
    const std::string name = what + "/" + group + " " + std::to_string(size);
    benchmark::RegisterBenchmark(name.c_str(), run, size, arguments...)
        ->MinTime(seconds_each)
        ->Repetitions(repetitions)
        ->UseRealTime();
}

void add_all() {
    for (const std::size_t size : message_sizes) {
        add("raw", "zan_send", raw_queue_send, size, Duties::none);
        add("raw with duties", "zan_send", raw_queue_send, size, Duties::all);
        add("library", "zan_send", library_queue_send, size);
        add("raw", "zan_ipc_send", raw_connection_send, size);
        add("library", "zan_ipc_send", library_connection_send, size);
        add("raw", "zan_send_agent", raw_message, size, Duties::none);
        add("raw with duties", "zan_send_agent", raw_message, size, Duties::all);
        add("library", "zan_send_agent", library_message, size, Duties::all);
    }
    for (const std::size_t size : value_sizes) {
        add("raw", "ctl_getstr", raw_value, size, Duties::none);
        add("raw with duties", "ctl_getstr", raw_value, size, Duties::all);
        add("library", "ctl_getstr", library_value, size, Duties::all);
    }
}

void open_queues() {
    for (int *queue : {&raw_queue, &idle_queue}) {
        *queue = msgget(IPC_PRIVATE, 0600);
        check(*queue >= 0, "msgget");
    }
    msqid_ds state{};
    check(msgctl(idle_queue, IPC_STAT, &state) == 0, "msgctl");
    idle_queue_size = state.msg_qbytes;
}

void open_own_connection() {
    int port = 0;
    const int listener = open_listener(&port);
    near_end = open_connection(port);
    far_end = accept(listener, nullptr, nullptr);
    fcntl(near_end, F_SETFL, O_NONBLOCK);
    close(listener);
}

int run(int argc, char **argv) {
    if (zan_register("bench", 0) < 0 || zan_register_agent("bench", getpid()) < 0)
        return 1;
    add_all();
    const int status = zan::bench::run_interleaved(argc, argv, "raw");
    zan_unregister("bench", 0);
    return status;
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    const StubDaemon daemon(StubDaemon::Serves::queues_and_connections);
    request_queue = daemon.request_queue();
    open_queues();
    open_own_connection();
    blocking_link = open_connection(daemon.port());
    polled_link = open_connection(daemon.port());
    fcntl(polled_link, F_SETFL, O_NONBLOCK);
    const int status = run(argc, argv);
    for (const int queue : {raw_queue, idle_queue})
        msgctl(queue, IPC_RMID, nullptr);
    return status;
}
