// SPDX-License-Identifier: MIT
// The log table of the modules, in shared memory.  zanctl does not register for logging,
// because that would use up an entry.
#pragma once

#include <zan.h>

#include <optional>
#include <string>
#include <vector>

namespace zan::ctl {

// Attached while it exists.
class LogTable {
public:
    // Throws std::system_error if the table exists but cannot be attached.
    LogTable();
    ~LogTable();
    LogTable(const LogTable &) = delete;
    LogTable &operator=(const LogTable &) = delete;

    // The table is created by the first module that registers for logging.
    bool exists() const { return entries_ != nullptr; }

    // Copies of the entries in use.
    std::vector<zan_log_entry> entries() const;

    // Write one field of the module's entry.  Return whether the module has one.
    bool set_level(const std::string &module, std::int32_t level);
    bool set_dest(const std::string &module, std::uint8_t dest);

private:
    zan_log_entry *find(const std::string &module);

    zan_log_entry *entries_ = nullptr;
};

// The module of an entry.  Any process may write to the table, so the name may lack its
// terminator.
std::string module_of(const zan_log_entry &entry);

// The names of levels and destinations on the command line; empty for a level without a
// name.
std::string level_text(int level);
std::string dest_text(int dest);
const std::string &level_names();
const std::string &dest_names();

// From a number or a name in any case; nothing for anything else.
std::optional<std::int32_t> to_level(const std::string &text);
std::optional<std::uint8_t> to_dest(const std::string &text);

} // namespace zan::ctl
