// SPDX-License-Identifier: MIT
#pragma once

#include "base/locked.h"
#include "fault/faults.h"
#include "host/file_store.h"
#include "host/file_work.h"
#include "host/shell.h"
#include "request/requester.h"
#include "state/action_log.h"
#include "state/management.h"
#include "state/modules.h"
#include "state/statistics.h"
#include "state/subscriptions.h"
#include "trace/trace.h"
#include "transport/transport.h"
#include "tree/tree.h"
#include "tree/tree_changes.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// The state that services work on, and the way that answers and notifications take
// out of it.  It is reached only through its lock (Locked<Daemon>): a function that
// has a Daemon & runs under the lock, and work on other threads keeps a shared().
class Daemon final : public RequestHandler {
public:
    using Clock = std::chrono::steady_clock;
    using Shared = LockedRef<Daemon>;

    Daemon(Shared self, Tree tree_to_serve, Trace &trace, FileWork &work_with_disk);

    // Waits for commands and file work, which refer to it.
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // For work that runs on another thread, without the lock.
    Shared shared() const { return self_; }

    // Serves one record from a module and sends its answer, unless a fault is injected.
    void serve(const Peer &peer, const Received &received) override;
    void disconnected(const Peer &peer) override;

    // Serves the requests whose injected delay is over.
    void serve_postponed(Clock::time_point now);
    std::optional<Clock::time_point> next_postponed() const;

    // Sends the answer to a request: positive with a payload, or negative with a text.
    void answer(const Requester &requester, const Result<std::string> &outcome);

    // Answers a request, or notes its failure if the requester does not wait.
    void finish(const Requester &requester, const Result<std::string> &outcome);

    // Sends an answer that is a record already.
    Delivery pass_answer(const Requester &requester, Record record);

    // Notifies the subscribers of a changed node, and counts the change of the tree.
    void announce(std::string_view source, std::string_view path, ChangeKind change,
                  std::string_view value = {});

    // Notifies the subscribers of an event.
    void raise_event(std::int32_t code);

    // Hands a module a record of another module.
    Delivery forward(const Peer &peer, const Record &record);

    // Replaces the tree, and notifies the subscribers of each difference.
    void replace_tree(std::string_view source, Tree next);

    // Counts a change of the tree in which no value changed.
    void touch();

    // Refuses management requests whose server is gone or too slow, and drops those
    // whose requester is gone.
    void expire_pending(Clock::time_point now);

    // Drops a module that cannot be reached any more.
    void forget(const Peer &peer);

    // Removes a module, with its subscriptions and its pending requests.  False if it
    // is not registered.
    bool remove(const Peer &peer);

    // From time to time also drops dead modules, so that they do not add up.
    void add_module(const Peer &peer, Module module);

    // The process of a module: as its requests report it, or else as the kernel
    // knows it; 0 if unknown.
    int process_of(const Modules::Entry &entry);

    // Grows with each change of the tree.
    std::uint64_t tree_version() const { return tree_version_; }

    // Signalled when there is something to send later and, if change_awaited, once
    // when the tree changes.
    std::condition_variable_any work;
    bool change_awaited = false;

    Tree tree;
    const Tree defaults;               // as zansim started
    std::shared_ptr<const Tree> saved; // as a module saved it last, or as zansim started
    std::string configuration_file = "config.json";
    std::shared_ptr<const FileStore> files = std::make_shared<FileStore>();
    FileWork &file_work;
    Modules modules;
    Subscriptions subscriptions;
    Management management;
    Faults faults;
    Shell shell;
    ActionLog action_log;
    Statistics statistics;

    Trace &trace() { return trace_; }

private:
    struct Postponed {
        Peer peer;
        Received received;
        Effect effect;
    };

    bool has_died(const Peer &peer);
    void note_collector(Transport &transport);
    Effect matching_effect(const Received &received);
    void postpone(const Peer &peer, const Received &received, const Effect &effect);
    void execute(const Peer &peer, const Received &received, const Effect &effect);
    [[noreturn]] void die();
    Delivery send_answer(const Peer &peer, const Record &record);
    void notify(const Peer &peer, std::int32_t cmd, std::string payload);
    Delivery count_delivery(const Peer &peer, Delivery delivery);

    Shared self_;
    Trace &trace_;
    std::uint64_t tree_version_ = 0;
    std::size_t next_sweep_ = 256; // number of modules at which dead ones are dropped
    std::multimap<Clock::time_point, Postponed> postponed_;
    std::size_t postponed_bytes_ = 0;
};

} // namespace zan::sim
