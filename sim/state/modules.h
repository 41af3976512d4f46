// SPDX-License-Identifier: MIT
#pragma once

#include "transport/transport.h"

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zan::sim {

struct Module {
    std::string name;
    int instance = 0;
    int pid = 0;       // as its requests report it; 0 while unknown
    int collector = 0; // the process that received the registration answer; 0 if unknown
    bool agent = false;
};

// The registered modules.  A module may have several queues and also be an agent:
// each is an entry.  A name finds its latest connection or, without one, the queue of
// its lowest instance.
class Modules {
public:
    using Entry = std::pair<const Peer, Module>;

    // Replaces an entry of this peer.
    void add(const Peer &peer, Module module) { modules_[peer] = std::move(module); }
    bool remove(const Peer &peer) { return modules_.erase(peer) != 0; }

    Module *find(const Peer &peer) {
        const auto found = modules_.find(peer);
        return found == modules_.end() ? nullptr : &found->second;
    }

    // Null when the name is not registered.
    const Entry *find(std::string_view name) const {
        const Entry *best = nullptr;
        for (const Entry &entry : modules_) {
            if (entry.second.name == name && (best == nullptr || comes_before(entry, *best)))
                best = &entry;
        }
        return best;
    }

    // Each name once.
    std::set<std::string> names() const {
        std::set<std::string> all;
        for (const auto &[peer, module] : modules_)
            all.insert(module.name);
        return all;
    }

    std::size_t size() const { return modules_.size(); }

    // Modules whose queue or connection no longer exists.
    std::vector<Peer> dead_modules() const {
        std::vector<Peer> peers;
        for (const auto &[peer, module] : modules_) {
            if (!peer.transport->exists(peer.endpoint))
                peers.push_back(peer);
        }
        return peers;
    }

private:
    static bool comes_before(const Entry &one, const Entry &other) {
        if (one.second.agent != other.second.agent)
            return one.second.agent;
        return one.second.agent ? one.first.endpoint > other.first.endpoint
                                : one.second.instance < other.second.instance;
    }

    std::map<Peer, Module> modules_;
};

} // namespace zan::sim
