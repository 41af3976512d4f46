// SPDX-License-Identifier: MIT
#include "transport/outbox.h"

#include <utility>

namespace zan::sim {

namespace {

// 64 MB for 1,000 modules.
constexpr std::size_t max_bytes = 65536;
constexpr std::size_t packet_overhead = sizeof(Packet) + 16;

std::size_t cost(const Packet &packet) {
    return packet.body.size() + packet_overhead;
}

} // namespace

bool Outbox::keep(Lane lane, Packet packet) {
    if (bytes_ + cost(packet) > max_bytes)
        return false;
    bytes_ += cost(packet);
    this->lane(lane).push_back(std::move(packet));
    return true;
}

void Outbox::pop(Lane lane) {
    bytes_ -= cost(this->lane(lane).front());
    this->lane(lane).pop_front();
}

} // namespace zan::sim
