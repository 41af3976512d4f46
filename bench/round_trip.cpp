// SPDX-License-Identifier: MIT
// cfg_getstr against the bare kernel: the same request and answer, byte for byte
// as long, sent and received with msgsnd and msgrcv alone.  Both talk to the same
// stub daemon.
#include "ratio_report.h"
#include "stub_daemon.h"

#include "zan.h"
#include "zan.hpp"

#include <csignal>
#include <cstring>
#include <optional>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;
constexpr std::size_t answer_sizes[] = {32, 1024, 32768};

int request_queue;
int raw_queue;

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
    const std::string path = zan::bench::path_for(size);
    for (auto _ : state)
        exchange(state, record, path);
}

// What every request owes its module: SIGTERM held off around the exchange, and
// the value in the module's own buffer.
void raw_round_trip_with_duties(benchmark::State &state, std::size_t size) {
    static zan_msg record;
    static char value[ZAN_DATA_SIZE + 1];
    record.body.type = ZAN_CLASS_CFG;
    const std::string path = zan::bench::path_for(size);
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
    const std::string path = zan::bench::path_for(size);
    for (auto _ : state) {
        if (cfg_getstr(value, sizeof value, "%s", path.c_str()) != 1)
            state.SkipWithError("cfg_getstr failed");
        benchmark::ClobberMemory();
    }
}

zan::Module *module;

void cpp_round_trip(benchmark::State &state, std::size_t size) {
    const std::string path = zan::bench::path_for(size);
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

int run(int argc, char **argv) {
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
    return status;
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    const zan::bench::StubDaemon daemon(zan::bench::StubDaemon::Serves::queues);
    request_queue = daemon.request_queue();
    raw_queue = msgget(IPC_PRIVATE, 0600);
    const int status = run(argc, argv);
    msgctl(raw_queue, IPC_RMID, nullptr);
    return status;
}
