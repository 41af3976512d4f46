// SPDX-License-Identifier: MIT
//
// Every pair of codec functions behind one face, whatever its number of members.
#pragma once

#include <zan.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace zan::test {

struct MemberBuffer {
    char *start;
    unsigned int size;
};

struct Codec {
    const char *name; // what the names of the functions end in
    std::vector<std::string> keys;
    std::function<int(const std::vector<const char *> &, char *, unsigned int)> encode;
    std::function<int(const std::vector<MemberBuffer> &, const char *)> decode;
};

template<std::size_t... I, typename Encode, typename Decode>
Codec make_codec(const char *name, std::vector<std::string> keys, std::index_sequence<I...>,
                 Encode encode, Decode decode) {
    return {name, std::move(keys),
            [encode](const std::vector<const char *> &values, char *out, unsigned int size) {
                return encode(values.at(I)..., out, size);
            },
            [decode](const std::vector<MemberBuffer> &buffers, const char *text) {
                return std::apply(
                    decode, std::tuple_cat(std::tuple(buffers.at(I).start, buffers.at(I).size)...,
                                           std::tuple(text)));
            }};
}

// The keys once more, so that a wrong one in the header does not stay unseen.
inline std::vector<Codec> all_codecs() {
    return {
        make_codec("easymesh_event_msg", {"Type", "Action", "ALMACAddress", "Value"},
                   std::make_index_sequence<4>(), encode_easymesh_event_msg,
                   decode_easymesh_event_msg),
        make_codec("palumesh_event_msg", {"Type", "Action", "Value"}, std::make_index_sequence<3>(),
                   encode_palumesh_event_msg, decode_palumesh_event_msg),
        make_codec("wan_event_msg", {"IP", "Mask", "Gateway", "DNS", "Interface"},
                   std::make_index_sequence<5>(), encode_wan_event_msg, decode_wan_event_msg),
        make_codec("wifi_sniffer_event_msg", {"Action"}, std::make_index_sequence<1>(),
                   encode_wifi_sniffer_event_msg, decode_wifi_sniffer_event_msg),
        make_codec("ser2net_event_msg", {"Action", "CFGPath"}, std::make_index_sequence<2>(),
                   encode_ser2net_event_msg, decode_ser2net_event_msg),
        make_codec("firewall_event_msg", {"Function", "Action", "CFGPath", "Value"},
                   std::make_index_sequence<4>(), encode_firewall_event_msg,
                   decode_firewall_event_msg),
        make_codec("kelso_neighbor_info",
                   {"SerialNumber", "Ssid", "Bssid24G", "Bssid5G", "Channel24G", "Channel5G"},
                   std::make_index_sequence<6>(), encode_kelso_neighbor_info,
                   decode_kelso_neighbor_info),
    };
}

// What a decoder says of a text that is no JSON.
inline std::string format_error(const Codec &codec) {
    return std::string("decode_") + codec.name + ":cJSON format error...\n";
}

// A buffer for each member, each with a text of its own that a decoder must leave
// alone, or replace.
class Buffers {
public:
    static constexpr const char *untouched = "untouched";

    explicit Buffers(const Codec &codec, std::size_t size = 64)
        : blocks_(codec.keys.size(), std::vector<char>(size, '\0')) {
        for (std::vector<char> &block : blocks_) {
            std::string(untouched).copy(block.data(), size - 1);
            members_.push_back({block.data(), static_cast<unsigned int>(size)});
        }
    }

    const std::vector<MemberBuffer> &members() const { return members_; }
    std::vector<std::string> texts() const {
        std::vector<std::string> found;
        for (const std::vector<char> &block : blocks_)
            found.emplace_back(block.data());
        return found;
    }

private:
    std::vector<std::vector<char>> blocks_; // one block each: the sanitizer sees its end
    std::vector<MemberBuffer> members_;
};

} // namespace zan::test
