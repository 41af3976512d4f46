// SPDX-License-Identifier: MIT
#include "state/management.h"

#include "base/file.h"
#include "base/glob.h"
#include "base/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace zan::sim {

namespace {

using Json = nlohmann::json;

constexpr std::size_t max_pending = 1024;

std::optional<std::int32_t> number_in(const Json &value) {
    if (!value.is_number_integer())
        return std::nullopt;
    // The upper half of 64 bits would become negative.
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    const auto number = value.get<std::int64_t>();
    if (number < std::numeric_limits<std::int32_t>::min())
        return std::nullopt;
    return static_cast<std::int32_t>(number);
}

// Stores one member of an answer.
Result<Done> take_member(Management::Scripted &answer, const std::string &name, const Json &value) {
    const auto number = number_in(value);
    if (name == "command" && number)
        answer.cmd = *number;
    else if (name == "result" && number)
        answer.result = *number;
    else if (name == "arg" && number)
        answer.arg = *number;
    else if (name == "command" || name == "result" || name == "arg")
        return Error{0, name + " is not a number of 32 bits"};
    else if (name != "request" && name != "text" && name != "hex")
        return Error{0, "unknown member \"" + escape(name) + "\""};
    else if (!value.is_string())
        return Error{0, name + " is not a text"};
    else if (name == "request")
        answer.request = value.get<std::string>();
    else if (name == "text")
        answer.payload = value.get<std::string>();
    else if (const auto bytes = unhex(value.get<std::string>()))
        answer.payload = *bytes;
    else
        return Error{0, "hex is not pairs of hexadecimal digits"};
    return Done{};
}

Result<Management::Scripted> scripted_from(const Json &json) {
    Management::Scripted answer;
    if (!json.is_object())
        return Error{0, "not an object"};
    if (json.contains("text") && json.contains("hex"))
        return Error{0, "text and hex"};
    for (const auto &[name, value] : json.items()) {
        if (const auto done = take_member(answer, name, value); !done)
            return done.error();
    }
    if (answer.payload.size() > ZAN_DATA_SIZE)
        return Error{0, "longer than " + std::to_string(ZAN_DATA_SIZE) + " bytes"};
    return answer;
}

} // namespace

Result<Done> Management::load(const std::string &file) {
    const auto text = load_file(file);
    if (!text)
        return text.error();
    return parse(*text, file);
}

Result<Done> Management::parse(std::string_view text, const std::string &file) {
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception &error) {
        return Error{0, file + ": " + error.what()};
    }
    if (!json.is_array())
        return Error{0, file + ": not a list of answers"};
    for (const Json &element : json) {
        auto answer = scripted_from(element);
        if (!answer)
            return Error{0, file + ": answer " + std::to_string(scripted_.size() + 1) + ": " +
                                answer.error().text};
        scripted_.push_back(std::move(*answer));
    }
    return Done{};
}

const Management::Scripted *Management::scripted(std::int32_t cmd, std::string_view request) const {
    const auto found =
        std::find_if(scripted_.begin(), scripted_.end(), [&](const Scripted &answer) {
            return (!answer.cmd || *answer.cmd == cmd) && text_matches(answer.request, request);
        });
    return found == scripted_.end() ? nullptr : &*found;
}

Result<Done> Management::room() const {
    if (pending_.size() >= max_pending)
        return Error{unreachable, "already " + std::to_string(max_pending) + " requests to " +
                                      std::string(module) + " without an answer"};
    return Done{};
}

void Management::expect(const Requester &requester, const Peer &server) {
    pending_.push_back({requester, server, Clock::now() + answer_timeout_});
}

std::optional<Requester> Management::take(std::int32_t cmd, std::string_view name) {
    const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const Pending &entry) {
        return entry.requester.cmd == cmd && (name.empty() || entry.requester.name == name);
    });
    if (found == pending_.end())
        return std::nullopt;
    Requester requester = std::move(found->requester);
    pending_.erase(found);
    return requester;
}

std::vector<Requester> Management::forget(const Peer &peer) {
    std::vector<Requester> expired;
    pending_.remove_if([&](const Pending &entry) {
        if (entry.server == peer && entry.requester.peer != peer)
            expired.push_back(entry.requester);
        return entry.server == peer || entry.requester.peer == peer;
    });
    return expired;
}

std::set<Peer> Management::servers() const {
    std::set<Peer> peers;
    for (const Pending &entry : pending_)
        peers.insert(entry.server);
    return peers;
}

std::set<Peer> Management::requesters() const {
    std::set<Peer> peers;
    for (const Pending &entry : pending_)
        peers.insert(entry.requester.peer);
    return peers;
}

std::vector<Requester> Management::expire(Clock::time_point now) {
    std::vector<Requester> expired;
    for (; !pending_.empty() && pending_.front().until <= now; pending_.pop_front())
        expired.push_back(std::move(pending_.front().requester));
    return expired;
}

} // namespace zan::sim
