// SPDX-License-Identifier: MIT
//
// Whatever a tool sees of a record: arbitrary bytes, printed on one line and as JSON,
// and formatted again.
//
// An input is a byte of switches (1: from the daemon, 2: over TCP, 4: begins with a class
// and a command, which follow as a byte each), then the record.
#include "decode/capture.h"
#include "decode/names.h"
#include "decode/stream.h"
#include "decode/text.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "wire/field_text.h"
#include "wire/header.h"
#include "wire/value_change.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

using namespace zan;
using fuzz::require;

bool is_one_line(const std::string &line) {
    return decode::is_readable(line) && line.find_first_of("\n\t") == std::string::npos;
}

// The record in the form that an input has after its switches.
std::string record_bytes(fuzz::Input &input, int switches) {
    std::string bytes;
    if ((switches & 4) != 0) {
        wire::Header header{.type = input.byte(), .cmd = input.byte()};
        bytes = input.bytes(SIZE_MAX);
        header.len = static_cast<std::int32_t>(bytes.size());
        const auto head = wire::format_header(header);
        return std::string(head.data(), head.size()) + bytes;
    }
    return input.bytes(SIZE_MAX);
}

// What is valid is formatted as it came.
void require_round_trip(const decode::ParsedRecord &parsed, const std::string &bytes) {
    const auto again = decode::parse_record(decode::format_record(parsed.record));
    if (!parsed.is_valid())
        return;
    require(again.is_valid() && again.record == parsed.record, "a record that was formatted");
    require(decode::format_record(parsed.record).substr(wire::header_size) ==
                bytes.substr(wire::header_size),
            "the payload of a record that was formatted");
}

void require_value_change(std::string_view text) {
    const wire::ValueChange change = wire::parse_value_change(text);
    std::string value;
    if (!wire::parse_field(value, change.value))
        return;
    std::string field;
    wire::format_field(field, value);
    std::string again;
    require(wire::parse_field(again, field) && (again == value || value == std::string(1, '\0')),
            "a value that was formatted");
}

void require_forms(const decode::Capture &capture) {
    const std::string line = decode::format_line(capture);
    require(is_one_line(line), "a record on one line");
    // Twice 31 characters of names and 256 of a text, each up to four when escaped; events
    // repeat that for each of at most six members.
    require(line.size() < 16384, "the length of a line");
    require(nlohmann::json::accept(decode::format_json(decode::to_json(capture))),
            "a record as JSON");
    const std::string_view subject = decode::subject_of(capture.record, capture.direction);
    require(subject.empty() || capture.record.payload.find(subject) != std::string::npos,
            "a subject of its record");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const int switches = input.byte();
    const std::string bytes = record_bytes(input, switches);
    const fuzz::Block block(bytes);
    const decode::ParsedRecord parsed = decode::parse_record({block.get(), bytes.size()});
    require_round_trip(parsed, bytes);
    require_value_change(wire::until_nul(parsed.record.payload));
    require_forms(
        {.time = {},
         .direction =
             (switches & 1) != 0 ? decode::Direction::from_daemon : decode::Direction::to_daemon,
         .transport = (switches & 2) != 0 ? decode::Transport::tcp : decode::Transport::queue,
         .endpoint = switches,
         .record = parsed.record,
         .error = parsed.error});
    return 0;
}
