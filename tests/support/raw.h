// SPDX-License-Identifier: MIT
//
// Queues and records by plain system calls.  The layout of the record is written
// down here a second time, on purpose and without any header of the library: a
// mistake in the shared layout would otherwise hide on both sides.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zan::test {

inline constexpr std::size_t raw_header_size = 100;
inline constexpr std::size_t raw_data_size = 35000;
inline constexpr std::size_t raw_body_size = 35100;

// Offsets of the fields from the byte behind the queue type.
namespace at {
inline constexpr std::size_t type = 0;
inline constexpr std::size_t cmd = 4;
inline constexpr std::size_t dst = 8;
inline constexpr std::size_t src = 40;
inline constexpr std::size_t pid = 72;
inline constexpr std::size_t time = 76;
inline constexpr std::size_t spare = 80;
inline constexpr std::size_t result = 84;
inline constexpr std::size_t aux = 88;
inline constexpr std::size_t arg = 92;
inline constexpr std::size_t len = 96;
inline constexpr std::size_t data = 100;
} // namespace at

// What msgsnd and msgrcv work on.
struct RawRecord {
    long mtype = 0;
    unsigned char bytes[raw_body_size] = {};

    std::int32_t word(std::size_t offset) const;
    void set_word(std::size_t offset, std::int32_t value);
    // The text at offset up to its NUL, or all of the room.
    std::string text(std::size_t offset, std::size_t room) const;
    void set_bytes(std::size_t offset, std::string_view value);

    std::int32_t type() const { return word(at::type); }
    std::int32_t cmd() const { return word(at::cmd); }
    std::string dst() const { return text(at::dst, 32); }
    std::string src() const { return text(at::src, 32); }
    std::int32_t pid() const { return word(at::pid); }
    std::int32_t result() const { return word(at::result); }
    std::int32_t arg() const { return word(at::arg); }
    std::int32_t len() const { return word(at::len); }
};

// A record with the number of bytes that travelled, the queue type not counted.
struct SizedRecord {
    RawRecord record;
    std::size_t msgsz = raw_header_size;

    // The bytes behind the header that travelled.
    std::string payload() const;
};

// A record by its fields, to send or to expect: len and msgsz follow the payload
// unless they are given.
struct Fields {
    long mtype = 0;
    std::int32_t type = 0;
    std::int32_t cmd = 0;
    std::string dst = {};
    std::string src = {};
    std::int32_t pid = 0;
    std::int32_t time = 0;
    std::int32_t spare = 0;
    std::int32_t result = 0;
    std::int32_t aux = 0;
    std::int32_t arg = 0;
    std::string payload = {};
    std::optional<std::int32_t> len = {};
    std::optional<std::size_t> msgsz = {};
};

SizedRecord make_record(const Fields &fields);

// Compares every byte that travelled, the queue type and the size; the failure
// names the first field that differs.
testing::AssertionResult same_record(const SizedRecord &actual, const SizedRecord &expected);
testing::AssertionResult same_record(const SizedRecord &actual, const Fields &expected);

// Whether the time lies within a day of now. The clock may be set during a test; a
// field that holds anything but the time is still far off.
testing::AssertionResult is_recent(std::int32_t time);

// ---- queues ----------------------------------------------------------------

// A queue of the test, removed with the object.
class RawQueue {
public:
    RawQueue();
    ~RawQueue();
    RawQueue(const RawQueue &) = delete;
    RawQueue &operator=(const RawQueue &) = delete;

    int id() const { return id_; }
    void remove();

private:
    int id_;
};

bool queue_exists(int qid);
// Records waiting on the queue, -1 when it does not exist.
int queue_length(int qid);
void remove_queue(int qid);
// The id that the next queue created will get; a guess unless the queues are the
// test's own.
int next_queue_id();

// Sends without waiting: whether there was room.  Throws on anything else.
bool raw_send(int qid, const SizedRecord &record);
bool raw_send(int qid, const Fields &fields);
// The next record of this type (as msgrcv takes it), nothing when none waits.
std::optional<SizedRecord> raw_receive(int qid, long msgtyp = 0);
// Sends small records until no further one fits; returns how many.
int fill_queue(int qid, long mtype);

// ---- files -----------------------------------------------------------------

void write_file(const std::string &path, std::string_view contents);
std::string read_file(const std::string &path);
bool file_exists(const std::string &path);

} // namespace zan::test
