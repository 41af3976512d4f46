// SPDX-License-Identifier: MIT
// zan_log against the C library's own calls with the same text, and against spdlog:
// a message that is filtered out, one to a file, one to syslog.  The outputs are a
// /dev and /var/log of this process's own, which it needs a sandbox for.
#include "ratio_report.h"

#include "zan.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;
constexpr int priority = 192; // zan_log's
constexpr const char *address = "192.168.1.20";
constexpr const char *file_format = "(%d)[%s]%s:%s\t%s \n";
constexpr const char *spdlog_pattern = "(6)[Infomation]%H:%M:%S:%n\t%v ";

void check(bool done, const char *what) {
    if (!done) {
        std::perror(what);
        std::exit(1);
    }
}

// ---- outputs

int syslog_socket;

void write_to_nowhere() {
    check(mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0, "a /dev of its own");
    const int console = creat("/dev/console", 0600);
    check(console >= 0, "/dev/console");
    close(console);
    syslog_socket = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un name = {AF_UNIX, "/dev/log"};
    check(bind(syslog_socket, reinterpret_cast<sockaddr *>(&name), sizeof name) == 0, "/dev/log");
}

void empty_syslog() {
    char message[4096];
    while (recv(syslog_socket, message, sizeof message, MSG_DONTWAIT) >= 0) {
    }
}

// ---- the table

std::string module_name(const char *form, int number) {
    char name[ZAN_NAME_SIZE];
    std::snprintf(name, sizeof name, form, number);
    return name;
}

zan_log_entry *table;

// All 64 modules: what one differs in from the others decides how long a search takes.
void fill_table(const char *form) {
    for (int i = 0; i < ZAN_LOG_ENTRIES; ++i) {
        zan_log_entry entry = {};
        std::strcpy(entry.name, module_name(form, i).c_str());
        entry.level = ZAN_LOG_INFO;
        entry.dest = ZAN_LOG_FILE;
        entry.in_use = 1;
        table[i] = entry;
    }
}

void attach_table() {
    // There is no daemon to ask for settings, which the library says.
    const int output = dup(STDOUT_FILENO);
    check(freopen("/tmp/said", "w", stdout) != nullptr, "/tmp/said");
    check(zan_log_init("bench", ZAN_LOG_INFO, ZAN_LOG_FILE) == 1, "zan_log_init");
    table = zan_get_log_level("bench");
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
}

// ---- filtered out

void masked_syslog(benchmark::State &state) {
    const int before = setlogmask(LOG_UPTO(LOG_INFO));
    for (auto _ : state)
        syslog(LOG_DEBUG, "lease of %s for %d s", address, 3600);
    setlogmask(before);
}

void filtered_spdlog(benchmark::State &state) {
    spdlog::logger &logger = *spdlog::get("file");
    for (auto _ : state)
        logger.debug("lease of {} for {} s", address, 3600);
}

void filtered_zan_log(benchmark::State &state, const char *form, int number) {
    fill_table(form);
    const std::string name = module_name(form, number);
    for (auto _ : state)
        zan_log(name.c_str(), ZAN_LOG_VERBOSE, "lease of %s for %d s", address, 3600);
}

// ---- to a file

void print_line(FILE *file) {
    char text[4096];
    const time_t now = std::time(nullptr);
    const tm *const local = std::localtime(&now);
    char clock[32];
    std::snprintf(clock, sizeof clock, "%02d:%02d:%02d", local->tm_hour, local->tm_min,
                  local->tm_sec);
    std::snprintf(text, sizeof text, "lease of %s for %d s", address, 3600);
    std::fprintf(file, file_format, 6, "Infomation", clock, "module63", text);
}

void opened_file(benchmark::State &state) {
    for (auto _ : state) {
        FILE *const file = std::fopen("/var/log/libc", "ab");
        print_line(file);
        std::fclose(file);
    }
    unlink("/var/log/libc");
}

void flushed_file(benchmark::State &state) {
    FILE *const file = std::fopen("/var/log/libc", "ab");
    for (auto _ : state) {
        print_line(file);
        std::fflush(file);
    }
    std::fclose(file);
    unlink("/var/log/libc");
}

void spdlog_file(benchmark::State &state, spdlog::level::level_enum flush) {
    spdlog::logger &logger = *spdlog::get("file");
    logger.flush_on(flush);
    for (auto _ : state)
        logger.info("lease of {} for {} s", address, 3600);
    logger.flush();
    check(truncate("/var/log/spdlog", 0) == 0, "/var/log/spdlog");
}

void zan_log_file(benchmark::State &state) {
    fill_table("module%02d");
    for (auto _ : state)
        zan_log("module63", ZAN_LOG_INFO, "lease of %s for %d s", address, 3600);
    unlink("/var/log/module63");
}

// ---- to syslog

// As many messages, twice each, as the socket takes before its sender waits.
constexpr int batch = 4;

template<typename Log> void log_in_batches(benchmark::State &state, Log log) {
    while (state.KeepRunningBatch(batch)) {
        for (int i = 0; i < batch; ++i)
            log();
        state.PauseTiming();
        empty_syslog();
        state.ResumeTiming();
    }
}

void own_syslog(benchmark::State &state) {
    log_in_batches(state, [] {
        syslog(priority, "%s", "");
        syslog(priority, "lease of %s for %d s", address, 3600);
    });
}

void spdlog_syslog(benchmark::State &state) {
    spdlog::logger &logger = *spdlog::get("syslog");
    log_in_batches(state, [&] {
        logger.info("");
        logger.info("lease of {} for {} s", address, 3600);
    });
}

void zan_log_syslog(benchmark::State &state) {
    fill_table("module%02d");
    table[63].dest = ZAN_LOG_SYSLOG;
    log_in_batches(
        state, [] { zan_log("module63", ZAN_LOG_INFO, "lease of %s for %d s", address, 3600); });
}

// ---- the run

template<typename Benchmark, class... Arguments>
void add(const char *name, Benchmark run, Arguments... arguments) {
    benchmark::RegisterBenchmark(name, run, arguments...)
        ->MinTime(seconds_each)
        ->Repetitions(repetitions);
}

void add_all() {
    add("libc/filtered out, modules 64", masked_syslog);
    add("spdlog/filtered out, modules 64", filtered_spdlog);
    add("zan_log, first module/filtered out, modules 64", filtered_zan_log, "module%02d", 0);
    add("zan_log, last module/filtered out, modules 64", filtered_zan_log, "module%02d", 63);
    add("zan_log, common end/filtered out, modules 64", filtered_zan_log, "%02d-service", 63);
    add("libc/to a file, lines 1", opened_file);
    add("libc, kept open/to a file, lines 1", flushed_file);
    add("spdlog, kept open/to a file, lines 1", spdlog_file, spdlog::level::info);
    add("spdlog, not flushed/to a file, lines 1", spdlog_file, spdlog::level::off);
    add("zan_log/to a file, lines 1", zan_log_file);
    add("libc/to syslog, lines 2", own_syslog);
    add("spdlog/to syslog, lines 2", spdlog_syslog);
    add("zan_log/to syslog, lines 2", zan_log_syslog);
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    write_to_nowhere();
    attach_table();
    spdlog::basic_logger_st("file", "/var/log/spdlog")->set_pattern(spdlog_pattern);
    spdlog::syslog_logger_st("syslog", "bench_log");
    add_all();
    return zan::bench::run_interleaved(argc, argv, "libc");
}
