// SPDX-License-Identifier: MIT
#pragma once

#include "base/turn_lock.h"
#include "fault/faults.h"
#include "host/file_store.h"
#include "host/file_work.h"
#include "host/shell.h"
#include "service/services.h"
#include "state/action_log.h"
#include "state/management.h"
#include "state/modules.h"
#include "state/subscriptions.h"
#include "trace.h"
#include "transport/peer.h"
#include "transport/record.h"
#include "tree/tree.h"
#include "tree/tree_changes.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// Requests of one kind that are remembered but need not have an effect.
struct Noted {
    std::uint64_t count = 0;
    std::string last;

    void note(std::string_view text) {
        ++count;
        last = text;
    }
};

struct Statistics {
    std::uint64_t requests = 0;
    std::uint64_t notifications = 0;
    std::uint64_t dropped = 0;
    std::uint64_t applied = 0;
    std::uint64_t firewall_applied = 0;
    std::uint64_t faults = 0;
    Noted command_lines;
    Noted conversions;
    Noted actions;
    Noted shell_commands;
    Noted reboots;
    Noted firmware;
};

// The state that the services work on, and the way answers and notifications
// take out of it.  Every member is used under lock().
class Daemon {
public:
    using Clock = std::chrono::steady_clock;

    Daemon(Tree tree_to_serve, Trace &trace)
        : tree(std::move(tree_to_serve)), defaults(tree), saved(tree), trace_(trace) {}

    // Commands and work that still run know of it.
    ~Daemon() {
        shell.end();
        file_work.finish();
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // One link that is flooded keeps no other waiting.
    using Guard = std::unique_lock<TurnLock>;
    Guard lock() { return Guard(lock_); }

    // Between two requests of one link, under the lock.
    void give_way() { lock_.give_way(); }

    // Serves one record from a module and sends its answer, unless a fault strikes.
    void serve(const Peer &peer, const Received &received);

    // Serves the records whose delay by a fault is over.
    void serve_postponed(Clock::time_point now);
    std::optional<Clock::time_point> next_postponed() const;

    // The answer to a request, positive with a payload or negative with a text.
    void answer(const Asker &asker, const Result<std::string> &outcome);

    // What became of a request: its answer, or a note when nobody waits for it.
    void conclude(const Asker &asker, const Result<std::string> &outcome);

    // An answer that is a record already.
    Delivery pass_answer(const Asker &asker, Record record);

    // Tells who watches the node at the path, and notes that the tree is another.
    void announce(std::string_view source, std::string_view path, Change change,
                  std::string_view value = {});

    // Tells who subscribed to the event.
    void raise_event(std::int32_t code);

    // Hands a module a record of another module.
    Delivery forward(const Peer &peer, const Record &record);

    // Puts another tree in the place of the one that is served, and tells of each
    // difference who watches it.
    void replace_tree(std::string_view source, Tree next);

    // Notes that the tree is another, though no value changed.
    void touch();

    // Nobody waits for a management answer that will not come: the module that was
    // asked has died, or takes too long, or who asked has gone.
    void look_after_askers(Clock::time_point now);

    // Drops a module that cannot be reached any more.
    void forget(const Peer &peer);

    // A module leaves, with its subscriptions and what it waits for or is waited for.
    // False when it was not registered.
    bool remove(const Peer &peer);

    // Makes a module known.  Now and then looks for others that ended without a
    // word, so that they do not add up.
    void enrol(const Peer &peer, Module module);

    // The process of a module: as its requests report it, or else as the kernel
    // knows it; 0 while unknown.
    int process_of(const Modules::Entry &entry);

    // Grows with each change of the tree.
    std::uint64_t tree_version() const { return tree_version_; }

    // Signalled when there is something to send later, and once when the tree changes
    // if somebody awaits that.
    std::condition_variable_any work;
    bool change_awaited = false;

    Tree tree;
    const Tree defaults; // as zansim started
    Tree saved;          // as a module saved it last, or as zansim started; of file_work
    std::string configuration_file = "config.json";
    FileStore files; // the same from the start, and used without the lock
    FileWork file_work;
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
    void note_collector(Link &link);
    Effect strike(const Received &received);
    void postpone(const Peer &peer, const Received &received, const Effect &effect);
    void carry_out(const Peer &peer, const Received &received, const Effect &effect);
    [[noreturn]] void die();
    Delivery send_answer(const Peer &peer, const Record &record);
    void notify(const Peer &peer, std::int32_t cmd, std::string payload);
    Delivery account(const Peer &peer, Delivery delivery);

    TurnLock lock_;
    Trace &trace_;
    std::uint64_t tree_version_ = 0;
    std::size_t next_look_ = 256; // modules at which the vanished are looked for
    std::multimap<Clock::time_point, Postponed> postponed_;
    std::size_t postponed_bytes_ = 0;
};

} // namespace zan::sim
