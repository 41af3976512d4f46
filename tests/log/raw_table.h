// SPDX-License-Identifier: MIT
//
// The log table by plain system calls.  Its layout is written down here a second
// time, on purpose and without any header of the library.
#pragma once

#include <sys/ipc.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zan::test {

inline constexpr std::size_t raw_table_size = 2816;
inline constexpr std::size_t raw_entry_size = 44;
inline constexpr int raw_entries = 64;

struct RawEntry {
    std::string name = {};
    std::int32_t level = 0;
    std::uint8_t dest = 0;
    std::uint8_t in_use = 1;
    std::int32_t cpu = 0;
};

// The entry's 44 bytes.
std::string entry_bytes(const RawEntry &entry);

key_t raw_table_key();
// The id of the table's segment, -1 when there is none.
int raw_table_id();
std::size_t segment_size(int id);
// A new, empty table, whose id is not 0: its id.
int create_raw_table();

// The table as another process sees it, attached; the segment stays.
class RawTable {
public:
    // Of the existing table, or of a new segment.
    explicit RawTable(int id = raw_table_id());
    ~RawTable();
    RawTable(const RawTable &) = delete;
    RawTable &operator=(const RawTable &) = delete;

    std::string bytes() const { return {memory_, raw_table_size}; }
    std::string bytes(int entry) const;
    void set(int entry, const RawEntry &value);
    void set_name(int entry, const std::string &bytes); // nothing else
    void set_level(int entry, std::int32_t level);
    void set_dest(int entry, std::uint8_t dest);

private:
    char *at(int entry) const { return memory_ + static_cast<std::size_t>(entry) * raw_entry_size; }

    char *memory_;
};

} // namespace zan::test
