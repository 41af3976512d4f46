// SPDX-License-Identifier: MIT
#include "host/claim.h"
#include "host/kernel_limits.h"
#include "housekeeping.h"
#include "options.h"
#include "state/daemon.h"
#include "trace.h"
#include "transport/queue_link.h"
#include "transport/socket_link.h"
#include "tree/tree_file.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

namespace {

using namespace zan::sim;

void tell(const std::string &line) {
    std::fprintf(stderr, "zansim: %s\n", line.c_str());
}

int failed(const Error &error) {
    tell(error.text);
    return exit_failed;
}

// Blocked in every thread: one thread waits for them.
sigset_t ending_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, number);
    return signals;
}

Result<Trace> open_trace(const Options &options) {
    File json;
    if (!options.trace_file.empty()) {
        json.reset(std::fopen(options.trace_file.c_str(), "we"));
        if (!json)
            return Error{0, options.trace_file + ": cannot be written: " + std::strerror(errno)};
    }
    return Trace(options.trace, std::move(json));
}

// What the command line adds to a plain daemon.
Result<Done> equip(Daemon &daemon, const Options &options) {
    if (!options.directory.empty()) {
        auto files = FileStore::open(options.directory);
        if (!files)
            return files.error();
        daemon.files = std::move(*files);
    }
    if (options.allow_shell)
        daemon.shell.allow();
    daemon.faults = options.faults;
    daemon.management.set_patience(std::chrono::seconds(options.answer_seconds));
    if (!options.answers_file.empty())
        return daemon.management.load(options.answers_file);
    return Done{};
}

// Serves until a signal ends it; false when the queues were taken away.
bool serve(Daemon &daemon, QueueLink &link, SocketLink &agents, Claim &claim) {
    std::thread receiver([&] {
        link.serve(daemon);
        kill(getpid(), SIGTERM); // when the queue went by itself, nobody else would
    });
    std::thread agent_server([&] {
        if (agents.port() != 0)
            agents.serve(daemon);
    });
    const sigset_t signals = ending_signals();
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
    const bool had_queue = link.exists(link.request_queue());
    claim.withdraw();
    link.remove();
    agents.stop();
    receiver.join();
    agent_server.join();
    // What it reads belongs to the tree that is saved at the end.
    daemon.file_work.finish();
    return had_queue;
}

int run(const Options &options) {
    auto tree = load_tree(options.tree_file);
    if (!tree)
        return failed(tree.error());
    auto trace = open_trace(options);
    if (!trace)
        return failed(trace.error());
    Claim claim;
    const auto cleared = claim.take();
    if (!cleared)
        return failed(cleared.error());
    if (!cleared->empty())
        tell(*cleared);
    for (const std::string &line : raise_limits())
        tell(line);
    const std::size_t parameters = tree->parameter_count();
    QueueLink link(*trace);
    if (const auto created = QueueLink::create(link); !created)
        return failed(created.error());
    SocketLink agents(*trace);
    // Modules can do without it, and most do.
    if (const auto opened = agents.open(); !opened)
        tell(opened.error().text);
    Daemon daemon(std::move(*tree), *trace);
    if (const auto equipped = equip(daemon, options); !equipped)
        return failed(equipped.error());
    const Housekeeping housekeeping(daemon, link, options.save_file, *trace);
    if (const auto published =
            claim.publish(link.request_queue(), link.answer_queue(), agents.port());
        !published)
        return failed(published.error());
    std::printf("zansim: ready (process %d, queues %d and %d, port %d, %zu parameters)\n", getpid(),
                link.request_queue(), link.answer_queue(), agents.port(), parameters);
    std::fflush(stdout);
    if (serve(daemon, link, agents, claim))
        return exit_ended;
    return failed({0, "the request queue was removed"});
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    int exit_code = exit_ended;
    if (!read_options(argc, argv, options, exit_code))
        return exit_code;
    const sigset_t signals = ending_signals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A trace that nobody reads any more is no reason to end.
    std::signal(SIGPIPE, SIG_IGN);
    return run(options);
}
