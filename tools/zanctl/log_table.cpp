// SPDX-License-Identifier: MIT
#include "log_table.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <span>
#include <strings.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <system_error>

namespace zan::ctl {
namespace {

struct Named {
    int number;
    const char *name;
    const char *also = nullptr; // accepted, but not printed
};

constexpr Named levels[] = {
    {ZAN_LOG_EMERGENCY, "emergency"},     {ZAN_LOG_ALERT, "alert"},
    {ZAN_LOG_CRITICAL, "critical"},       {ZAN_LOG_ERROR, "error"},
    {ZAN_LOG_WARNING, "warning"},         {ZAN_LOG_NOTICE, "notice"},
    {ZAN_LOG_INFO, "info", "infomation"}, // as log files spell it
    {ZAN_LOG_VERBOSE, "verbose"},
};

// Any other number means off too, except 0: in the tree that means "not set".
constexpr int off = 255;

constexpr Named dests[] = {
    {ZAN_LOG_CONSOLE, "console"}, {ZAN_LOG_TERMINALS, "terminals"}, {ZAN_LOG_SYSLOG, "syslog"},
    {ZAN_LOG_ALL, "all"},         {ZAN_LOG_FILE, "file"},           {off, "off"},
};

std::string all_names(std::span<const Named> table) {
    std::string names;
    for (const Named &row : table)
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    return names;
}

std::string text_of(std::span<const Named> table, int number, const char *otherwise) {
    for (const Named &row : table)
        if (row.number == number)
            return row.name;
    return otherwise;
}

std::optional<int> to_number(std::span<const Named> table, const std::string &text) {
    int number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool is_number = error == std::errc() && stop == end;
    for (const Named &row : table)
        if ((is_number && row.number == number) || strcasecmp(text.c_str(), row.name) == 0 ||
            (row.also != nullptr && strcasecmp(text.c_str(), row.also) == 0))
            return row.number;
    return std::nullopt;
}

constexpr std::size_t table_size = ZAN_LOG_ENTRIES * sizeof(zan_log_entry);

} // namespace

LogTable::LogTable() {
    const int id = shmget(ftok(ZAN_LOG_KEY_PATH, ZAN_LOG_KEY_ID), table_size, 0);
    if (id == 0 || (id < 0 && errno == ENOENT))
        return; // the modules treat 0 like a missing table
    void *const memory = id < 0 ? nullptr : shmat(id, nullptr, 0);
    if (memory == nullptr || memory == reinterpret_cast<void *>(-1))
        throw std::system_error(errno, std::generic_category(), "cannot attach the log table");
    entries_ = static_cast<zan_log_entry *>(memory);
}

LogTable::~LogTable() {
    if (entries_ != nullptr)
        shmdt(entries_);
}

std::vector<zan_log_entry> LogTable::entries() const {
    std::vector<zan_log_entry> used;
    if (entries_ != nullptr)
        std::copy_if(entries_, entries_ + ZAN_LOG_ENTRIES, std::back_inserter(used),
                     [](const zan_log_entry &entry) { return entry.in_use != 0; });
    return used;
}

zan_log_entry *LogTable::find(const std::string &module) {
    for (int i = 0; entries_ != nullptr && i < ZAN_LOG_ENTRIES; ++i)
        if (entries_[i].in_use != 0 && module_of(entries_[i]) == module)
            return entries_ + i;
    return nullptr;
}

bool LogTable::set_level(const std::string &module, std::int32_t level) {
    zan_log_entry *const entry = find(module);
    if (entry != nullptr)
        entry->level = level;
    return entry != nullptr;
}

bool LogTable::set_dest(const std::string &module, std::uint8_t dest) {
    zan_log_entry *const entry = find(module);
    if (entry != nullptr)
        entry->dest = dest;
    return entry != nullptr;
}

std::string module_of(const zan_log_entry &entry) {
    return {entry.name, strnlen(entry.name, sizeof entry.name)};
}

std::string level_text(int level) {
    return text_of(levels, level, "");
}

std::string dest_text(int dest) {
    return text_of(dests, dest, "off");
}

const std::string &level_names() {
    static const std::string names = all_names(levels);
    return names;
}

const std::string &dest_names() {
    static const std::string names = all_names(dests);
    return names;
}

std::optional<std::int32_t> to_level(const std::string &text) {
    return to_number(levels, text);
}

std::optional<std::uint8_t> to_dest(const std::string &text) {
    const std::optional<int> number = to_number(dests, text);
    return number ? std::optional(static_cast<std::uint8_t>(*number)) : std::nullopt;
}

} // namespace zan::ctl
