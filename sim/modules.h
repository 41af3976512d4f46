// SPDX-License-Identifier: MIT
#pragma once

#include "peer.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zan::sim {

struct Module {
    std::string name;
    int instance = 0;
    int pid = 0; // 0 while unknown
};

// Who is registered.  A module may have several queues: each is an entry.
class Modules {
public:
    // Takes the place of an earlier entry of this peer.
    void add(const Peer &peer, Module module) { modules_[peer] = std::move(module); }
    bool remove(const Peer &peer) { return modules_.erase(peer) != 0; }

    Module *find(const Peer &peer) {
        const auto found = modules_.find(peer);
        return found == modules_.end() ? nullptr : &found->second;
    }

    // The entry of the lowest instance; null when the name is not registered.
    const Module *find(std::string_view name) const {
        const Module *best = nullptr;
        for (const auto &[peer, module] : modules_) {
            if (module.name == name && (best == nullptr || module.instance < best->instance))
                best = &module;
        }
        return best;
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
    std::map<Peer, Module> modules_;
};

} // namespace zan::sim
