// SPDX-License-Identifier: MIT
#include "decode/capture.h"

#include "decode/event_message.h"
#include "decode/names.h"
#include "decode/text.h"
#include "wire/action.h"
#include "wire/command.h"
#include "wire/event.h"
#include "wire/subscription.h"
#include "wire/text_request.h"
#include "wire/value_change.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <optional>

namespace zan::decode {

namespace {

using wire::Form;

// A value of usual size is shown whole, a file is not.
constexpr std::size_t max_text = 256;
constexpr std::size_t max_bytes = 64;

std::string format_time(Capture::Clock::time_point time, const char *format) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const std::time_t seconds = Capture::Clock::to_time_t(whole);
    const auto fraction =
        std::chrono::duration_cast<std::chrono::milliseconds>(time - whole).count();
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, format, &parts);
    char milliseconds[8];
    std::snprintf(milliseconds, sizeof milliseconds, ".%03d", static_cast<int>(fraction));
    return std::string(text, length) + milliseconds;
}

std::string quote(std::string_view text) {
    const bool is_cut = text.size() > max_text;
    return '"' + escape(text.substr(0, max_text)) + (is_cut ? "\"..." : "\"");
}

std::string format_bytes(std::string_view bytes) {
    const bool is_cut = bytes.size() > max_bytes;
    return "hex " + hex(bytes.substr(0, max_bytes)) + (is_cut ? "..." : "");
}

Form form_of(const Record &record, Direction direction) {
    const bool is_answer = direction == Direction::from_daemon;
    if (is_answer && record.result < 0)
        return Form::text;
    const wire::Command *const command = wire::find_command(record.type, record.cmd);
    if (command == nullptr)
        return Form::bytes;
    return is_answer ? command->answer : command->request;
}

bool is_text(Form form) {
    switch (form) {
    case Form::text:
    case Form::path:
    case Form::path_text:
    case Form::assignment:
    case Form::conversion:
    case Form::value_change:
        return true;
    case Form::none:
    case Form::subscription:
    case Form::event:
    case Form::action:
    case Form::bytes:
        break;
    }
    return false;
}

std::optional<EventMessage> event_message_in(const Record &record) {
    if (record.type != ZAN_CLASS_MESSAGE && record.type != ZAN_CLASS_BROADCAST)
        return std::nullopt;
    return parse_event_message(wire::until_nul(record.payload));
}

std::string format_event_message(const EventMessage &message) {
    std::string text = "event " + message.kind + (message.has_all ? "" : "?");
    for (const auto &[key, value] : message.members)
        text += ' ' + key + '=' + quote(value);
    return text;
}

nlohmann::ordered_json event_message_object(const EventMessage &message) {
    nlohmann::ordered_json members = nlohmann::ordered_json::object();
    for (const auto &[key, value] : message.members)
        members[key] = value;
    return {{"kind", message.kind}, {"has_all", message.has_all}, {"members", members}};
}

// Nothing if the payload does not have its form.
std::optional<std::string> format_structure(Form form, std::string_view payload) {
    if (form == Form::subscription) {
        if (const auto subscription = wire::parse_subscription(payload))
            return "flag=" + std::to_string(subscription->flag) +
                   " option=" + std::to_string(subscription->option) + ' ' +
                   quote(subscription->path);
    } else if (form == Form::event) {
        if (const auto code = wire::parse_event(payload))
            return "event=" + std::to_string(*code);
    } else if (form == Form::action) {
        if (const auto action = wire::parse_action(payload))
            return "code=" + std::to_string(action->code) +
                   " wait=" + std::to_string(action->wait) +
                   " param=" + std::to_string(action->param) + ' ' + quote(action->name);
    }
    return std::nullopt;
}

bool is_structure(Form form) {
    return form == Form::subscription || form == Form::event || form == Form::action;
}

std::string name_or_dash(std::string_view name) {
    return name.empty() ? "-" : escape(name);
}

// A registration over a queue has its instance in the place of the process id.
bool has_instance(const Capture &capture) {
    return capture.record.type == ZAN_CLASS_REGISTRATION &&
           capture.direction == Direction::to_daemon && capture.transport == Transport::queue;
}

std::string_view path_in_query(std::string_view text) {
    return wire::parse_query(text).path;
}

} // namespace

std::string_view transport_name(Transport transport) {
    return transport == Transport::queue ? "queue" : "link";
}

std::string_view subject_of(const Record &record, Direction direction) {
    const std::string_view payload = record.payload;
    const std::string_view text = wire::until_nul(payload);
    switch (form_of(record, direction)) {
    case Form::path:
        return path_in_query(text);
    case Form::path_text:
        return wire::parse_path_text(text).path;
    case Form::assignment:
        return wire::parse_path_text(text.substr(text.empty() ? 0 : 1)).path;
    case Form::conversion:
        return text.substr(text.empty() ? 0 : 1);
    case Form::subscription:
        return wire::until_nul(
            payload.substr(std::min(wire::subscription_settings_size, payload.size())));
    case Form::action:
        return wire::until_nul(
            payload.substr(std::min(offsetof(zan_action_data, name), payload.size())));
    case Form::value_change:
        return direction == Direction::from_daemon ? wire::parse_value_change(text).path
                                                   : std::string_view();
    case Form::none:
    case Form::text:
    case Form::event:
    case Form::bytes:
        break;
    }
    return {};
}

std::string format_payload(const Record &record, Direction direction) {
    const std::string_view payload = record.payload;
    const Form form = form_of(record, direction);
    // Padding after the text carries nothing.
    if (is_text(form))
        return quote(wire::until_nul(payload));
    if (is_structure(form))
        return format_structure(form, payload).value_or(format_bytes(payload));
    if (const auto message = event_message_in(record))
        return format_event_message(*message);
    return is_readable(payload) ? quote(payload) : format_bytes(payload);
}

std::string format_line(const Capture &capture) {
    const Record &record = capture.record;
    const bool is_outgoing = capture.direction == Direction::from_daemon;
    std::string line = format_clock(capture.time);
    line += is_outgoing ? " out " : " in  ";
    line += class_text(record.type) + ' ' + command_text(record.type, record.cmd) + ' ' +
            name_or_dash(record.src) + " -> " + name_or_dash(record.dst) + ' ' +
            std::string(transport_name(capture.transport)) + '=' + std::to_string(capture.endpoint);
    line += (has_instance(capture) ? " instance=" : " pid=") + std::to_string(record.pid);
    if (record.arg != 0)
        line += " arg=" + std::to_string(record.arg);
    if (is_outgoing)
        line += " result=" + std::to_string(record.result);
    line += " len=" + std::to_string(record.payload.size());
    if (!record.payload.empty())
        line += ' ' + format_payload(record, capture.direction);
    if (!capture.error.empty())
        line += " malformed: " + capture.error;
    return line;
}

nlohmann::ordered_json to_json(const Capture &capture) {
    const Record &record = capture.record;
    const bool is_outgoing = capture.direction == Direction::from_daemon;
    nlohmann::ordered_json json{
        {"time", format_timestamp(capture.time)},
        {"direction", is_outgoing ? "out" : "in"},
        {std::string(transport_name(capture.transport)), capture.endpoint},
        {"class", record.type},
        {"class_name", class_name(record.type)},
        {"command", record.cmd},
        {"command_name", command_text(record.type, record.cmd)},
        {"source", record.src},
        {"destination", record.dst},
        {"pid", record.pid},
        {"result", record.result},
        {"arg", record.arg},
        {"len", record.payload.size()},
    };
    const std::string_view text = wire::until_nul(record.payload);
    if (is_text(form_of(record, capture.direction)) && is_readable(text))
        json["text"] = text;
    else if (!record.payload.empty())
        json["hex"] = hex(record.payload);
    if (const auto message = event_message_in(record))
        json["event"] = event_message_object(*message);
    if (!capture.error.empty())
        json["malformed"] = capture.error;
    return json;
}

std::string format_json(const nlohmann::ordered_json &json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string format_clock(Capture::Clock::time_point time) {
    return format_time(time, "%H:%M:%S");
}

std::string format_timestamp(Capture::Clock::time_point time) {
    return format_time(time, "%Y-%m-%dT%H:%M:%S");
}

} // namespace zan::decode
