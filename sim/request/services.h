// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "request/requester.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace zan::sim {

class Daemon;

// Returns the payload of a positive answer, or the reason of a refusal.
using Handler = Result<std::string> (*)(Daemon &, const Request &);

// What a payload consists of: how the trace shows it, and where rules of fault
// injection find its path.
enum class PayloadForm {
    none,
    text,
    path,       // of a node or a file; "#" may follow
    first_word, // a path, optionally a space and more text
    assignment, // "0", a path, a space, a value
    conversion, // a digit and a path
    watch,      // two setting bytes and a path
    event,      // a 32-bit number
    action,     // three 32-bit numbers, and a name in the rest of 1036 bytes
    bytes,
};

// What the sender of a command waits for.
enum class Reply {
    same_command,
    acknowledgement, // command 2 of the class
    if_waited,       // the same command, if the action's wait flag is set
    by_handler,      // the handler answers, now or later, unless it refuses
    none,
};

// The command of a row that serves every command of its class.
inline constexpr std::int32_t any_command = std::numeric_limits<std::int32_t>::min();

// A command of a class.  A command without handler is refused.
struct Service {
    std::int32_t type;
    std::int32_t cmd;
    std::string_view name;
    PayloadForm request;
    PayloadForm answer;
    Handler handler;
    Reply reply = Reply::same_command;
};

// Makes the services of one family known.  Each file in service/ has one such object
// over its own rows, so that a new service is a row and a function in one file.
class ServiceRows {
public:
    explicit ServiceRows(std::span<const Service> rows);

    static const ServiceRows *first();
    const ServiceRows *next() const { return next_; }
    std::span<const Service> rows() const { return rows_; }

private:
    std::span<const Service> rows_;
    const ServiceRows *next_;
};

// Null for a command that does not exist.
const Service *find_service(std::int32_t type, std::int32_t cmd);

// The path, or the name of a file, in a request; empty if it has none.
std::string_view subject_of(const Record &request);

// Whether the sender waits for an answer.
bool is_awaited(const Record &request);

// The header of a positive answer.
Record answer_to(const Requester &requester);

Error no_such_module(std::string_view name);

// "CFG" for 1; empty for a class that does not exist.
std::string_view class_name(std::int32_t type);
std::optional<std::int32_t> class_by_name(std::string_view name);

// Whether a command of the class, or of any class, has the name.
bool is_command_name(std::string_view name, std::optional<std::int32_t> type);

} // namespace zan::sim
