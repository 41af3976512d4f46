// SPDX-License-Identifier: MIT
// The log table of the modules, in shared memory, as one who is none of them sees it:
// registering would take an entry for good.
#pragma once

#include <zan.h>

#include <optional>
#include <string>
#include <vector>

namespace zan::ctl {

// Attached while it exists.
class LogTable {
public:
    // Throws std::system_error when there is one that cannot be attached.
    LogTable();
    ~LogTable();
    LogTable(const LogTable &) = delete;
    LogTable &operator=(const LogTable &) = delete;

    // Of a device on which no module has registered for logging there is none.
    bool exists() const { return entries_ != nullptr; }

    // Copies of the entries in use.
    std::vector<zan_log_entry> entries() const;

    // Writes one field of the module's entry: whether there is one.
    bool set_level(const std::string &module, std::int32_t level);
    bool set_dest(const std::string &module, std::uint8_t dest);

private:
    zan_log_entry *find(const std::string &module);

    zan_log_entry *entries_ = nullptr;
};

// The module of an entry; any process may have written anything there.
std::string module_of(const zan_log_entry &entry);

// What the commands call levels and destinations.  Numbers without a name have none
// but their digits.
std::string level_text(int level);
std::string dest_text(int dest);
const std::string &level_names();
const std::string &dest_names();

// From a name in any case, or a number; nothing when it is neither.
std::optional<std::int32_t> to_level(const std::string &text);
std::optional<std::uint8_t> to_dest(const std::string &text);

} // namespace zan::ctl
