// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "transport/peer.h"
#include "transport/record.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

class Daemon;

// How an answer differs from the usual one, by a fault.
struct Disturbance {
    bool lost = false;
    bool header_only = false;
    bool wrong_first = false; // an answer to another command comes before it
};

// Who waits for an answer, and to what.
struct Asker {
    Peer peer;
    std::string name;
    std::int32_t type = 0;
    std::int32_t cmd = 0;
    bool awaited = true;
    Disturbance disturbance = {};
};

struct Request {
    const Record &record;
    const Asker &asker;

    const Peer &peer() const { return asker.peer; }

    // The payload up to its first NUL.
    std::string_view text() const;
};

// The payload of a positive answer, or why the request is refused.
using Handler = Result<std::string> (*)(Daemon &, const Request &);

// What a payload consists of.  The trace shows it so, faults that are about a path find
// it by this, and an empty answer in the form of a text still has a NUL.
enum class Form {
    none,
    text,
    path,       // of a node or a file; "#" may follow
    first_word, // a path, and perhaps a blank and more
    assignment, // "0", a path, a blank, a value
    conversion, // a digit and a path
    watch,      // two setting bytes and a path
    event,      // a 32-bit number
    action,     // three 32-bit numbers and a name in the rest of 1036 bytes
    bytes,
};

// What the sender of a command waits for.
enum class Reply {
    same_command,
    acknowledgement, // command 2 of the class
    if_waited,       // the same command, when the action says that somebody waits
    by_handler,      // sent by the handler, now or later, unless it refuses
    none,
};

// The command of a row that serves every command of its class.
inline constexpr std::int32_t any_command = std::numeric_limits<std::int32_t>::min();

// What zansim knows of one command.  A command without handler is refused.
struct Service {
    std::int32_t type;
    std::int32_t cmd;
    std::string_view name;
    Form request;
    Form answer;
    Handler handler;
    Reply reply = Reply::same_command;
};

// Null for a command that does not exist.
const Service *find_service(std::int32_t type, std::int32_t cmd);

// The path, or the name of a file, that a request is about; empty when it has none.
std::string_view subject_of(const Record &request);

// Whether the sender waits for an answer.
bool is_awaited(const Record &request);

// The header of a positive answer.
Record answer_to(const Asker &asker);

Error no_such_module(std::string_view name);

// "CFG" for 1; empty for a class that does not exist.
std::string_view class_name(std::int32_t type);
std::optional<std::int32_t> class_by_name(std::string_view name);

// Whether a command of the class, or of any class, has the name.
bool is_command_name(std::string_view name, std::optional<std::int32_t> type);

// service_configuration.cpp
Result<std::string> get_value(Daemon &daemon, const Request &request);
Result<std::string> set_value(Daemon &daemon, const Request &request);
Result<std::string> get_array(Daemon &daemon, const Request &request);
Result<std::string> add_instance(Daemon &daemon, const Request &request);
Result<std::string> delete_node(Daemon &daemon, const Request &request);
Result<std::string> module_pid(Daemon &daemon, const Request &request);
Result<std::string> get_attributes(Daemon &daemon, const Request &request);
Result<std::string> set_attributes(Daemon &daemon, const Request &request);
Result<std::string> reset(Daemon &daemon, const Request &request);
Result<std::string> apply_all(Daemon &daemon, const Request &request);
Result<std::string> apply_firewall(Daemon &daemon, const Request &request);
Result<std::string> print(Daemon &daemon, const Request &request);

// service_action.cpp
Result<std::string> upgrade_firmware(Daemon &daemon, const Request &request);
Result<std::string> upgrade_configuration(Daemon &daemon, const Request &request);
Result<std::string> save_configuration(Daemon &daemon, const Request &request);
Result<std::string> factory_reset(Daemon &daemon, const Request &request);
Result<std::string> factory_reset_without_wifi(Daemon &daemon, const Request &request);
Result<std::string> back_up(Daemon &daemon, const Request &request);
Result<std::string> back_up_saved(Daemon &daemon, const Request &request);
Result<std::string> run_shell(Daemon &daemon, const Request &request);
Result<std::string> reboot(Daemon &daemon, const Request &request);
Result<std::string> save_log(Daemon &daemon, const Request &request);
Result<std::string> note_event_result(Daemon &daemon, const Request &request);

// service_facts.cpp
Result<std::string> check_login(Daemon &daemon, const Request &request);
Result<std::string> convert_path(Daemon &daemon, const Request &request);
Result<std::string> interface_name(Daemon &daemon, const Request &request);
Result<std::string> note_conversion(Daemon &daemon, const Request &request);

// service_file.cpp
Result<std::string> reload(Daemon &daemon, const Request &request);
Result<std::string> dump(Daemon &daemon, const Request &request);
Result<std::string> use_file(Daemon &daemon, const Request &request);
// What the disk has to do for a request, in its turn and beside everything else, and
// what is left to do under the daemon's lock once that went well.
using DiskPart = std::function<Result<std::function<void()>>()>;
Result<std::string> work_with_files(Daemon &daemon, const Request &request, DiskPart part);
Result<std::string> load_configuration(Daemon &daemon, const Request &request, std::string name);
// The text is made where nobody waits for it, too.
Result<std::string> store_file(
    Daemon &daemon, const Request &request, std::string name, std::function<std::string()> text,
    std::function<void()> stored = [] {});

// service_management.cpp
Result<std::string> pass_management_request(Daemon &daemon, const Request &request);

// service_control.cpp
Result<std::string> note_command_line(Daemon &daemon, const Request &request);

// service_message.cpp; "gone" when nobody of that name can be reached
Delivery deliver(Daemon &daemon, std::string_view name, const Record &record);
Result<std::string> wake_up(Daemon &daemon, const Request &request);
Result<std::string> send_to_module(Daemon &daemon, const Request &request);
Result<std::string> send_to_all(Daemon &daemon, const Request &request);
// A message of zansim's own.
Result<std::string> send_text(Daemon &daemon, std::string_view module, std::string_view text);

// service_registration.cpp
Result<std::string> register_module(Daemon &daemon, const Request &request);
Result<std::string> unregister_module(Daemon &daemon, const Request &request);

// service_subscription.cpp
Result<std::string> watch_value(Daemon &daemon, const Request &request);
Result<std::string> unwatch_value(Daemon &daemon, const Request &request);
Result<std::string> await_event(Daemon &daemon, const Request &request);
Result<std::string> ignore_event(Daemon &daemon, const Request &request);

} // namespace zan::sim
