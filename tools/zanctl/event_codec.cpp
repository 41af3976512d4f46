// SPDX-License-Identifier: MIT
#include "event_codec.h"

#include <zan.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

namespace zan::ctl {
namespace {

// A decoder terminates the value of each member it finds and does not write the buffers of
// the others: a buffer without a NUL belongs to a missing member.
constexpr char untouched = '\x7f';

const char *c_string(const std::optional<std::string> &value) {
    return value ? value->c_str() : nullptr;
}

std::optional<std::string> written(const std::string &buffer) {
    const std::size_t end = buffer.find('\0');
    if (end == std::string::npos)
        return std::nullopt;
    return buffer.substr(0, end);
}

// A byte takes at most six characters, as in "\u001f"; quotation marks, colon and comma
// of a member are six more.
std::size_t max_object_length(std::span<const char *const> keys, const MemberValues &values) {
    std::size_t length = 3;
    for (const char *const key : keys)
        length += std::string_view(key).size() + 6;
    for (const std::optional<std::string> &value : values)
        length += value ? 6 * value->size() : 0;
    return length;
}

template<const auto &keys, auto encoder> std::string encode(const MemberValues &values) {
    std::string text(max_object_length(keys, values), '\0');
    const auto call = [&]<std::size_t... i>(std::index_sequence<i...>) {
        encoder(c_string(values.at(i))..., text.data(), static_cast<unsigned>(text.size()));
    };
    call(std::make_index_sequence<std::size(keys)>());
    return text.substr(0, text.find('\0'));
}

template<const auto &keys, auto decoder>
std::optional<MemberValues> decode(const std::string &text) {
    // No value is longer than the text.
    std::vector<std::string> buffers(std::size(keys), std::string(text.size() + 1, untouched));
    const auto call = [&]<std::size_t... i>(std::index_sequence<i...>) {
        return std::apply(decoder,
                          std::tuple_cat(std::tuple(buffers[i].data(),
                                                    static_cast<unsigned>(buffers[i].size()))...,
                                         std::tuple(text.c_str())));
    };
    if (call(std::make_index_sequence<std::size(keys)>()) != 0)
        return std::nullopt;
    MemberValues values;
    for (const std::string &buffer : buffers)
        values.push_back(written(buffer));
    return values;
}

#define ZANCTL_KEYS(kind, name, ...) constexpr const char *kind##_keys[] = {__VA_ARGS__};
ZAN_EVENTS(ZANCTL_KEYS)
#undef ZANCTL_KEYS

#define ZANCTL_CODEC(kind, name, ...)                                                              \
    EventCodec{#kind, kind##_keys, encode<kind##_keys, encode_##name>,                             \
               decode<kind##_keys, decode_##name>},
constexpr EventCodec codecs[] = {ZAN_EVENTS(ZANCTL_CODEC)};
#undef ZANCTL_CODEC

} // namespace

std::span<const EventCodec> event_codecs() {
    return codecs;
}

const EventCodec *find_event_codec(const std::string &kind) {
    const auto *const found = std::find_if(std::begin(codecs), std::end(codecs),
                                           [&](const EventCodec &c) { return c.kind == kind; });
    return found == std::end(codecs) ? nullptr : found;
}

} // namespace zan::ctl
