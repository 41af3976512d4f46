// SPDX-License-Identifier: MIT
#include "support/raw.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace zan::test {

namespace {

[[noreturn]] void fail(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct FieldName {
    std::size_t offset;
    const char *name;
};

constexpr FieldName field_names[] = {
    {at::type, "type"}, {at::cmd, "cmd"},   {at::dst, "dst"},     {at::src, "src"},
    {at::pid, "pid"},   {at::time, "time"}, {at::spare, "spare"}, {at::result, "result"},
    {at::aux, "aux"},   {at::arg, "arg"},   {at::len, "len"},     {at::data, "data"},
};

std::string place(std::size_t offset) {
    const FieldName *field = &field_names[0];
    for (const FieldName &candidate : field_names)
        if (candidate.offset <= offset)
            field = &candidate;
    return std::string(field->name) + "+" + std::to_string(offset - field->offset) + " (offset " +
           std::to_string(offset) + ")";
}

std::string printable(const RawRecord &record, std::size_t offset, std::size_t size) {
    std::string shown;
    for (std::size_t i = offset; i < std::min(size, offset + 48); ++i) {
        const unsigned char byte = record.bytes[i];
        if (byte >= 32 && byte < 127 && byte != '\\') {
            shown += static_cast<char>(byte);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", byte);
            shown += hex;
        }
    }
    return "\"" + shown + "\"";
}

int create_private_queue() {
    const int id = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    if (id < 0)
        fail("msgget");
    return id;
}

} // namespace

std::int32_t RawRecord::word(std::size_t offset) const {
    std::int32_t value = 0;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

void RawRecord::set_word(std::size_t offset, std::int32_t value) {
    std::memcpy(bytes + offset, &value, sizeof value);
}

std::string RawRecord::text(std::size_t offset, std::size_t room) const {
    const char *const start = reinterpret_cast<const char *>(bytes) + offset;
    return {start, strnlen(start, room)};
}

void RawRecord::set_bytes(std::size_t offset, std::string_view value) {
    if (offset + value.size() > sizeof bytes)
        throw std::length_error("runs past the record");
    std::memcpy(bytes + offset, value.data(), value.size());
}

std::string SizedRecord::payload() const {
    if (msgsz <= raw_header_size)
        return {};
    return {reinterpret_cast<const char *>(record.bytes) + at::data, msgsz - raw_header_size};
}

SizedRecord make_record(const Fields &fields) {
    SizedRecord made;
    RawRecord &record = made.record;
    record.mtype = fields.mtype;
    record.set_bytes(at::dst, fields.dst);
    record.set_bytes(at::src, fields.src);
    record.set_word(at::type, fields.type);
    record.set_word(at::cmd, fields.cmd);
    record.set_word(at::pid, fields.pid);
    record.set_word(at::time, fields.time);
    record.set_word(at::spare, fields.spare);
    record.set_word(at::result, fields.result);
    record.set_word(at::aux, fields.aux);
    record.set_word(at::arg, fields.arg);
    record.set_word(at::len, fields.len.value_or(static_cast<std::int32_t>(fields.payload.size())));
    record.set_bytes(at::data, fields.payload);
    made.msgsz = fields.msgsz.value_or(raw_header_size + fields.payload.size());
    return made;
}

testing::AssertionResult same_record(const SizedRecord &actual, const SizedRecord &expected) {
    if (actual.record.mtype != expected.record.mtype)
        return testing::AssertionFailure()
               << "mtype is " << actual.record.mtype << ", expected " << expected.record.mtype;
    const std::size_t common = std::min(actual.msgsz, expected.msgsz);
    for (std::size_t i = 0; i < common; ++i)
        if (actual.record.bytes[i] != expected.record.bytes[i])
            return testing::AssertionFailure()
                   << "records differ from " << place(i)
                   << " on: " << printable(actual.record, i, actual.msgsz) << ", expected "
                   << printable(expected.record, i, expected.msgsz);
    if (actual.msgsz != expected.msgsz)
        return testing::AssertionFailure()
               << "msgsz is " << actual.msgsz << ", expected " << expected.msgsz;
    return testing::AssertionSuccess();
}

testing::AssertionResult same_record(const SizedRecord &actual, const Fields &expected) {
    return same_record(actual, make_record(expected));
}

testing::AssertionResult is_recent(std::int32_t time) {
    constexpr std::int64_t day = 24 * 60 * 60;
    const std::int64_t now = std::time(nullptr);
    if (time >= now - day && time <= now + day)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << time << " is not recent at " << now;
}

RawQueue::RawQueue() : id_(create_private_queue()) {}

RawQueue::~RawQueue() {
    remove();
}

void RawQueue::remove() {
    if (id_ >= 0)
        remove_queue(id_);
    id_ = -1;
}

bool queue_exists(int qid) {
    return queue_length(qid) >= 0;
}

int queue_length(int qid) {
    msqid_ds state{};
    if (msgctl(qid, IPC_STAT, &state) < 0)
        return -1;
    return static_cast<int>(state.msg_qnum);
}

void remove_queue(int qid) {
    msgctl(qid, IPC_RMID, nullptr);
}

int next_queue_id() {
    // The kernel hands out ids by a fixed step, whether it takes the next slot or the
    // same one once more.
    int ids[2];
    for (int &id : ids) {
        id = create_private_queue();
        remove_queue(id);
    }
    return ids[1] + (ids[1] - ids[0]);
}

bool raw_send(int qid, const SizedRecord &record) {
    while (msgsnd(qid, &record.record, record.msgsz, IPC_NOWAIT) < 0) {
        if (errno == EAGAIN)
            return false;
        if (errno != EINTR)
            fail("msgsnd");
    }
    return true;
}

bool raw_send(int qid, const Fields &fields) {
    return raw_send(qid, make_record(fields));
}

std::optional<SizedRecord> raw_receive(int qid, long msgtyp) {
    auto received = std::make_unique<SizedRecord>();
    while (true) {
        const ssize_t size = msgrcv(qid, &received->record, raw_body_size, msgtyp, IPC_NOWAIT);
        if (size >= 0) {
            received->msgsz = static_cast<std::size_t>(size);
            return *received;
        }
        if (errno == ENOMSG)
            return std::nullopt;
        if (errno != EINTR)
            fail("msgrcv");
    }
}

int fill_queue(int qid, long mtype) {
    int sent = 0;
    while (raw_send(qid, Fields{.mtype = mtype}))
        ++sent;
    return sent;
}

void write_file(const std::string &path, std::string_view contents) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << contents;
    if (!file.flush())
        fail(path.c_str());
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail(path.c_str());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool file_exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

} // namespace zan::test
