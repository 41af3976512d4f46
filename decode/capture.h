// SPDX-License-Identifier: MIT
// A record as it was seen on its way, and the forms in which tools print it.
#pragma once

#include "decode/record.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <string>
#include <string_view>

namespace zan::decode {

enum class Direction { to_daemon, from_daemon };

enum class Transport { queue, tcp };

// "queue", or "link" for TCP: what the printed forms call it.
std::string_view transport_name(Transport transport);

// Where and when a record was seen.
struct Capture {
    using Clock = std::chrono::system_clock;

    Clock::time_point time;
    Direction direction = Direction::to_daemon;
    Transport transport = Transport::queue;
    int endpoint = -1;      // the module's queue id, or the number of its connection
    Record record;          // valid or not
    std::string error = {}; // what is wrong with it, as in ParsedRecord
};

// The path, the name of a file or the command line that a record is about; empty if it
// has none.  Points into the record.  Answers carry no path: match them with their
// request by class, command and endpoint.
std::string_view subject_of(const Record &record, Direction direction);

// The payload on one line, at most 256 characters of a text and 64 bytes of others.
std::string format_payload(const Record &record, Direction direction);

// One line without a line end, whatever the record contains:
//   00:47:05.625 in  CFG set wlan -> ZAN_CFG queue=6 pid=812 len=24 "0/sys/name my router"
// The time is local, "in" means to the daemon.
std::string format_line(const Capture &capture);

// The same as a JSON object, with the whole payload in "text" or "hex".
nlohmann::ordered_json to_json(const Capture &capture);

// A JSON value on one line; bytes that are not UTF-8 become U+FFFD.
std::string format_json(const nlohmann::ordered_json &json);

// Local time to the millisecond: "00:47:05.625", and "2026-01-05T00:47:05.625".
std::string format_clock(Capture::Clock::time_point time);
std::string format_timestamp(Capture::Clock::time_point time);

} // namespace zan::decode
