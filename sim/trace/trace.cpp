// SPDX-License-Identifier: MIT
#include "trace/trace.h"

#include "base/text.h"
#include "request/action.h"
#include "request/services.h"
#include "trace/event_message.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstring>
#include <ctime>

namespace zan::sim {

namespace {

// Shows values of usual size whole, but not files.
constexpr std::size_t max_text = 256;
constexpr std::size_t max_bytes = 64;

std::string clock_time(const char *format) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto fraction =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, format, &parts);
    char milliseconds[8];
    std::snprintf(milliseconds, sizeof milliseconds, ".%03d", static_cast<int>(fraction));
    return std::string(text, length) + milliseconds;
}

std::string quoted(std::string_view text) {
    const bool cut = text.size() > max_text;
    return '"' + escape(text.substr(0, max_text)) + (cut ? "\"..." : "\"");
}

std::string shown_bytes(std::string_view bytes) {
    const bool cut = bytes.size() > max_bytes;
    return "hex " + hex(bytes.substr(0, max_bytes)) + (cut ? "..." : "");
}

PayloadForm form_of(const Record &record, bool outgoing) {
    if (outgoing && record.result < 0)
        return PayloadForm::text;
    const Service *const service = find_service(record.type, record.cmd);
    if (service == nullptr)
        return PayloadForm::bytes;
    return outgoing ? service->answer : service->request;
}

bool is_text(PayloadForm form) {
    switch (form) {
    case PayloadForm::text:
    case PayloadForm::path:
    case PayloadForm::first_word:
    case PayloadForm::assignment:
    case PayloadForm::conversion:
        return true;
    default:
        return false;
    }
}

std::optional<EventMessage> event_message_in(const Record &record) {
    if (record.type != ZAN_CLASS_MESSAGE && record.type != ZAN_CLASS_BROADCAST)
        return std::nullopt;
    return read_event_message(until_nul(record.payload));
}

std::string shown_event_message(const EventMessage &message) {
    std::string text = "event " + message.kind + (message.has_all ? "" : "?");
    for (const auto &[key, value] : message.members)
        text += ' ' + key + '=' + quoted(std::string_view(value));
    return text;
}

nlohmann::ordered_json event_message_object(const EventMessage &message) {
    nlohmann::ordered_json members = nlohmann::ordered_json::object();
    for (const auto &[key, value] : message.members)
        members[key] = value;
    return {{"kind", message.kind}, {"has_all", message.has_all}, {"members", members}};
}

std::string name_or_dash(std::string_view name) {
    return name.empty() ? "-" : escape(name);
}

std::string command_name(const Record &record) {
    const Service *const service = find_service(record.type, record.cmd);
    const bool named = service != nullptr && service->cmd == record.cmd;
    return named ? std::string(service->name) : std::to_string(record.cmd);
}

std::string class_text(const Record &record) {
    const std::string_view name = class_name(record.type);
    return name.empty() ? "class-" + std::to_string(record.type) : std::string(name);
}

std::string readable_line(bool outgoing, const Peer &peer, const Record &record,
                          std::string_view error) {
    std::string line = clock_time("%H:%M:%S");
    line += outgoing ? " out " : " in  ";
    line += class_text(record) + ' ' + command_name(record) + ' ' + name_or_dash(record.src) +
            " -> " + name_or_dash(record.dst) + ' ' + std::string(peer.transport->kind()) + '=' +
            std::to_string(peer.endpoint);
    // A module of a queue registers with its instance.
    if (record.type == ZAN_CLASS_REGISTRATION && !outgoing && peer.transport->kind() == "queue")
        line += " instance=" + std::to_string(record.pid);
    else
        line += " pid=" + std::to_string(record.pid);
    if (record.arg != 0)
        line += " arg=" + std::to_string(record.arg);
    if (outgoing)
        line += " result=" + std::to_string(record.result);
    line += " len=" + std::to_string(record.payload.size());
    if (!record.payload.empty())
        line += ' ' + readable_payload(record, outgoing);
    if (!error.empty())
        line += " malformed: " + std::string(error);
    return line;
}

nlohmann::ordered_json json_line(bool outgoing, const Peer &peer, const Record &record,
                                 std::string_view error) {
    nlohmann::ordered_json json{
        {"time", clock_time("%Y-%m-%dT%H:%M:%S")},
        {"direction", outgoing ? "out" : "in"},
        {std::string(peer.transport->kind()), peer.endpoint},
        {"class", record.type},
        {"class_name", class_name(record.type)},
        {"command", record.cmd},
        {"command_name", command_name(record)},
        {"source", record.src},
        {"destination", record.dst},
        {"pid", record.pid},
        {"result", record.result},
        {"arg", record.arg},
        {"len", record.payload.size()},
    };
    if (is_text(form_of(record, outgoing)) && is_readable(until_nul(record.payload)))
        json["text"] = until_nul(record.payload);
    else if (!record.payload.empty())
        json["hex"] = hex(record.payload);
    if (const auto message = event_message_in(record))
        json["event"] = event_message_object(*message);
    if (!error.empty())
        json["malformed"] = error;
    return json;
}

std::string dumped(const nlohmann::ordered_json &json) {
    // Names may contain any bytes, also invalid UTF-8.
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace

std::string readable_payload(const Record &record, bool outgoing) {
    const std::string_view payload = record.payload;
    const PayloadForm form = form_of(record, outgoing);
    // Hides padding after the text.
    if (is_text(form))
        return quoted(until_nul(payload));
    switch (form) {
    case PayloadForm::watch:
        if (payload.size() < 2)
            break;
        return "flag=" + std::to_string(static_cast<unsigned char>(payload[0])) +
               " option=" + std::to_string(static_cast<unsigned char>(payload[1])) + ' ' +
               quoted(until_nul(payload.substr(2)));
    case PayloadForm::event: {
        std::int32_t code = 0;
        if (payload.size() != sizeof code)
            break;
        std::memcpy(&code, payload.data(), sizeof code);
        return "event=" + std::to_string(code);
    }
    case PayloadForm::action: {
        const auto action = read_action(record);
        if (!action)
            break;
        return "code=" + std::to_string(action->code) + " wait=" + std::to_string(action->wait) +
               " param=" + std::to_string(action->param) + ' ' + quoted(action->name);
    }
    default:
        if (const auto message = event_message_in(record))
            return shown_event_message(*message);
        if (is_readable(payload))
            return quoted(payload);
        break;
    }
    return shown_bytes(payload);
}

void Trace::received(const Peer &peer, const Received &received) {
    record(Direction::in, peer, received.record, received.error);
}

void Trace::sent(const Peer &peer, const Record &record) {
    this->record(Direction::out, peer, record, {});
}

void Trace::record(Direction direction, const Peer &peer, const Record &record,
                   std::string_view error) {
    const bool outgoing = direction == Direction::out;
    if (readable_)
        print(readable_line(outgoing, peer, record, error));
    if (json_)
        print_json(dumped(json_line(outgoing, peer, record, error)));
}

void Trace::note(std::string_view text) {
    if (readable_)
        print(clock_time("%H:%M:%S") + " --  " + escape(text));
    if (json_)
        print_json(dumped({{"time", clock_time("%Y-%m-%dT%H:%M:%S")}, {"note", text}}));
}

void Trace::warn(std::string_view text) {
    std::fprintf(stderr, "zansim: %s\n", escape(text).c_str());
    note(text);
}

// Flushes each line, for readers that follow the trace.
void Trace::print(const std::string &line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void Trace::print_json(const std::string &line) {
    std::fprintf(json_.get(), "%s\n", line.c_str());
    std::fflush(json_.get());
}

} // namespace zan::sim
