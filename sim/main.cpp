// SPDX-License-Identifier: MIT
#include "host/daemon_lock.h"
#include "host/kernel_limits.h"
#include "housekeeping.h"
#include "options.h"
#include "state/daemon.h"
#include "trace/trace.h"
#include "transport/queue_transport.h"
#include "transport/tcp_transport.h"
#include "tree/tree_file.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

namespace {

using namespace zan::sim;

void print_line(const std::string &line) {
    std::fprintf(stderr, "zansim: %s\n", line.c_str());
}

int failed(const Error &error) {
    print_line(error.text);
    return exit_failed;
}

// Blocked in every thread: the main thread waits for them.
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

// Applies the options of the command line.
Result<Done> configure(Daemon &daemon, const Options &options) {
    if (!options.directory.empty()) {
        auto files = FileStore::open(options.directory);
        if (!files)
            return files.error();
        daemon.files = std::make_shared<const FileStore>(std::move(*files));
    }
    if (options.allow_shell)
        daemon.shell.allow();
    daemon.faults = options.faults;
    daemon.management.set_answer_timeout(std::chrono::seconds(options.answer_seconds));
    if (!options.answers_file.empty())
        return daemon.management.load(options.answers_file);
    return Done{};
}

// Serves until a signal arrives.  False if the request queue was removed.
bool serve(LockedRef<RequestHandler> handler, QueueTransport &queues, TcpTransport &agents,
           DaemonLock &daemon_lock) {
    std::thread queue_server([&] {
        queues.serve(handler);
        kill(getpid(), SIGTERM); // ends the others if the queue was removed
    });
    std::thread agent_server([&] {
        if (agents.port() != 0)
            agents.serve(handler);
    });
    const sigset_t signals = ending_signals();
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
    const bool had_queue = queues.exists(queues.request_queue());
    daemon_lock.withdraw();
    queues.remove();
    agents.stop();
    queue_server.join();
    agent_server.join();
    return had_queue;
}

int run(const Options &options) {
    auto tree = load_tree(options.tree_file);
    if (!tree)
        return failed(tree.error());
    auto trace = open_trace(options);
    if (!trace)
        return failed(trace.error());
    DaemonLock daemon_lock;
    const auto cleared = daemon_lock.take();
    if (!cleared)
        return failed(cleared.error());
    if (!cleared->empty())
        print_line(*cleared);
    for (const std::string &line : raise_limits())
        print_line(line);
    const std::size_t parameters = tree->parameter_count();
    QueueTransport queues(*trace);
    if (const auto created = QueueTransport::create(queues); !created)
        return failed(created.error());
    TcpTransport agents(*trace);
    // Most modules do not need it.
    if (const auto opened = agents.open(); !opened)
        print_line(opened.error().text);
    FileWork file_work;
    Locked<Daemon> daemon(std::move(*tree), *trace, file_work);
    if (const auto configured = configure(*daemon.lock(), options); !configured)
        return failed(configured.error());
    const Housekeeping housekeeping(daemon, queues, options.save_file, *trace);
    if (const auto published =
            daemon_lock.publish(queues.request_queue(), queues.answer_queue(), agents.port());
        !published)
        return failed(published.error());
    std::printf("zansim: ready (process %d, queues %d and %d, port %d, %zu parameters)\n", getpid(),
                queues.request_queue(), queues.answer_queue(), agents.port(), parameters);
    std::fflush(stdout);
    const bool had_queue = serve(daemon.ref(), queues, agents, daemon_lock);
    // A file that is being loaded belongs to the tree that is saved at the end.
    file_work.finish();
    if (had_queue)
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
    // A trace whose reader has gone must not end zansim.
    std::signal(SIGPIPE, SIG_IGN);
    return run(options);
}
