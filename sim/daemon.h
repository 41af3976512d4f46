// SPDX-License-Identifier: MIT
#pragma once

#include "modules.h"
#include "peer.h"
#include "record.h"
#include "services.h"
#include "subscriptions.h"
#include "trace.h"
#include "tree.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace zan::sim {

// What a notification tells of a node; the number is part of its text.
enum class Change { value = 1, added = 2, deleted = 3 };

struct Statistics {
    std::uint64_t requests = 0;
    std::uint64_t notifications = 0;
    std::uint64_t dropped = 0;
    std::uint64_t command_lines = 0;
};

// The state that the services work on, and the way answers and notifications
// take out of it.  Every member is used under lock().
class Daemon {
public:
    Daemon(Tree tree_to_serve, Trace &trace) : tree(std::move(tree_to_serve)), trace_(trace) {}

    std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }

    // Serves one record from a module and sends its answer.
    void serve(const Peer &peer, const Received &received);

    // Tells who watches the node at the path, and notes that the tree is another.
    void announce(std::string_view source, std::string_view path, Change change,
                  std::string_view value = {});

    // Tells who subscribed to the event.
    void raise_event(std::int32_t code);

    // Hands a module a record of another module.
    Delivery forward(const Peer &peer, const Record &record);

    // Drops a module that cannot be reached any more, with its subscriptions.
    void forget(const Peer &peer);

    // Makes a module known.  Now and then looks for others that ended without a
    // word, so that they do not add up.
    void enrol(const Peer &peer, Module module);

    // Grows with each change of the tree.
    std::uint64_t tree_version() const { return tree_version_; }

    // Signalled when there is something to save, or something to send later.
    std::condition_variable work;

    Tree tree;
    Modules modules;
    Subscriptions subscriptions;
    Statistics statistics;
    std::string last_command_line;

private:
    void answer(const Peer &peer, const Record &request, const Result<std::string> &outcome);
    void notify(const Peer &peer, std::int32_t cmd, std::string payload);
    Delivery account(const Peer &peer, Delivery delivery);

    std::mutex mutex_;
    Trace &trace_;
    std::uint64_t tree_version_ = 0;
    std::size_t next_look_ = 256; // modules at which the vanished are looked for
};

} // namespace zan::sim
