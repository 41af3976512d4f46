// SPDX-License-Identifier: MIT
#pragma once

#include "transport/peer.h"

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

// Who is registered.  A module may have several queues and be an agent besides:
// each is an entry, and the module is found by its latest link or, without one, by
// the queue of its lowest instance.
class Modules {
public:
    using Entry = std::pair<const Peer, Module>;

    // Takes the place of an earlier entry of this peer.
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

    // Those that cannot be reached any more.
    std::vector<Peer> vanished() const {
        std::vector<Peer> peers;
        for (const auto &[peer, module] : modules_) {
            if (!peer.link->exists(peer.address))
                peers.push_back(peer);
        }
        return peers;
    }

private:
    static bool comes_before(const Entry &one, const Entry &other) {
        if (one.second.agent != other.second.agent)
            return one.second.agent;
        return one.second.agent ? one.first.address > other.first.address
                                : one.second.instance < other.second.instance;
    }

    std::map<Peer, Module> modules_;
};

} // namespace zan::sim
