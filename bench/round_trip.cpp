// SPDX-License-Identifier: MIT
// cfg_getstr against the bare kernel: the same request and answer, byte for byte
// as long, sent and received with msgsnd and msgrcv alone.  Both talk to one
// server process, which does nothing but answer.
#include "ratio_report.h"

#include "zan.h"
#include "zan.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;
constexpr std::size_t answer_sizes[] = {32, 1024, 32768};

// The path tells the server how long an answer is wanted: a request of 20 bytes.
std::string path_for(std::size_t size) {
    std::string digits = std::to_string(size);
    return "/bench/size/" + std::string(8 - digits.size(), '0') + digits;
}

int request_queue;
int answer_queue; // of registrations
int raw_queue;

void write_id(const char *path, int qid) {
    FILE *file = std::fopen(path, "w");
    if (file == nullptr) {
        std::perror(path);
        std::exit(1);
    }
    std::fprintf(file, "%d", qid);
    std::fclose(file);
}

[[noreturn]] void serve() {
    static zan_msg record;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        if (msgrcv(request_queue, &record, ZAN_BODY_SIZE, 0, 0) < 0)
            _exit(0);
        const int module_queue = static_cast<int>(record.mtype);
        if (record.body.type == ZAN_CLASS_REGISTRATION) {
            record.body.result = 1;
            msgsnd(answer_queue, &record, ZAN_HEADER_SIZE, 0);
            continue;
        }
        const auto size = static_cast<std::size_t>(std::atoi(record.body.data + 12));
        std::memset(record.body.data, 'v', size);
        record.mtype = record.body.type;
        record.body.len = static_cast<int32_t>(size);
        msgsnd(module_queue, &record, ZAN_HEADER_SIZE + size, 0);
    }
}

void exchange(benchmark::State &state, zan_msg &record, const std::string &path) {
    record.mtype = raw_queue;
    std::memcpy(record.body.data, path.data(), path.size());
    msgsnd(request_queue, &record, ZAN_HEADER_SIZE + path.size(), 0);
    if (msgrcv(raw_queue, &record, ZAN_BODY_SIZE, ZAN_CLASS_CFG, 0) < 0)
        state.SkipWithError("msgrcv failed");
}

void raw_round_trip(benchmark::State &state, std::size_t size) {
    static zan_msg record;
    record.body.type = ZAN_CLASS_CFG;
    const std::string path = path_for(size);
    for (auto _ : state)
        exchange(state, record, path);
}

// What every request owes its module: SIGTERM held off around the exchange, and
// the value in the module's own buffer.
void raw_round_trip_with_duties(benchmark::State &state, std::size_t size) {
    static zan_msg record;
    static char value[ZAN_DATA_SIZE + 1];
    record.body.type = ZAN_CLASS_CFG;
    const std::string path = path_for(size);
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    for (auto _ : state) {
        pthread_sigmask(SIG_BLOCK, &term, nullptr);
        exchange(state, record, path);
        std::memcpy(value, record.body.data, size);
        pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
        benchmark::ClobberMemory();
    }
}

void library_round_trip(benchmark::State &state, std::size_t size) {
    static char value[ZAN_DATA_SIZE + 1];
    const std::string path = path_for(size);
    for (auto _ : state) {
        if (cfg_getstr(value, sizeof value, "%s", path.c_str()) != 1)
            state.SkipWithError("cfg_getstr failed");
        benchmark::ClobberMemory();
    }
}

zan::Module *module;

void cpp_round_trip(benchmark::State &state, std::size_t size) {
    const std::string path = path_for(size);
    for (auto _ : state) {
        zan::Result<std::string> value = module->get(path);
        if (!value || value->size() != size)
            state.SkipWithError("get failed");
        benchmark::DoNotOptimize(value->data());
    }
}

template<typename Benchmark> void add(const std::string &name, Benchmark run, std::size_t size) {
    benchmark::RegisterBenchmark((name + "/" + std::to_string(size)).c_str(), run, size)
        ->MinTime(seconds_each)
        ->Repetitions(repetitions)
        ->UseRealTime();
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    request_queue = msgget(IPC_PRIVATE, 0600);
    answer_queue = msgget(IPC_PRIVATE, 0600);
    raw_queue = msgget(IPC_PRIVATE, 0600);
    write_id("/tmp/zan_qid", request_queue);
    write_id("/tmp/zan_req_qid", answer_queue);
    const pid_t server = fork();
    if (server == 0)
        serve();

    if (zan_register("bench", 0) < 0)
        return 1;
    std::optional<zan::Module> registered(std::in_place, "bench_hpp");
    if (!*registered)
        return 1;
    module = &*registered;
    for (const std::size_t size : answer_sizes) {
        add("raw queues", raw_round_trip, size);
        add("raw, SIGTERM held, copied", raw_round_trip_with_duties, size);
        add("cfg_getstr", library_round_trip, size);
        add("zan::Module::get", cpp_round_trip, size);
    }
    const int status = zan::bench::run_interleaved(argc, argv, "raw queues");
    registered.reset();
    zan_unregister("bench", 0);
    for (const int queue : {request_queue, answer_queue, raw_queue})
        msgctl(queue, IPC_RMID, nullptr);
    unlink("/tmp/zan_qid");
    unlink("/tmp/zan_req_qid");
    waitpid(server, nullptr, 0);
    return status;
}
