// SPDX-License-Identifier: MIT
#include "log/raw_table.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace zan::test {

std::string entry_bytes(const RawEntry &entry) {
    std::string bytes(raw_entry_size, '\0');
    std::memcpy(bytes.data(), entry.name.data(), entry.name.size());
    std::memcpy(bytes.data() + 32, &entry.level, 4);
    bytes[36] = static_cast<char>(entry.dest);
    bytes[37] = static_cast<char>(entry.in_use);
    std::memcpy(bytes.data() + 40, &entry.cpu, 4);
    return bytes;
}

key_t raw_table_key() {
    return ftok("/tmp", 109);
}

int raw_table_id() {
    return shmget(raw_table_key(), 0, 0);
}

std::size_t segment_size(int id) {
    shmid_ds state = {};
    return shmctl(id, IPC_STAT, &state) == 0 ? state.shm_segsz : 0;
}

int create_raw_table() {
    // Takes the id 0 in a new namespace.
    if (shmget(IPC_PRIVATE, 1, 0600) < 0)
        return -1;
    return shmget(raw_table_key(), raw_table_size, IPC_CREAT | 0777);
}

RawTable::RawTable(int id) : memory_(static_cast<char *>(shmat(id, nullptr, 0))) {
    if (memory_ == reinterpret_cast<char *>(-1))
        throw std::system_error(errno, std::generic_category(), "shmat");
}

RawTable::~RawTable() {
    shmdt(memory_);
}

std::string RawTable::bytes(int entry) const {
    return {at(entry), raw_entry_size};
}

void RawTable::set(int entry, const RawEntry &value) {
    std::memcpy(at(entry), entry_bytes(value).data(), raw_entry_size);
}

void RawTable::set_name(int entry, const std::string &bytes) {
    std::memcpy(at(entry), bytes.data(), bytes.size());
}

void RawTable::set_level(int entry, std::int32_t level) {
    std::memcpy(at(entry) + 32, &level, sizeof level);
}

void RawTable::set_dest(int entry, std::uint8_t dest) {
    std::memcpy(at(entry) + 36, &dest, sizeof dest);
}

} // namespace zan::test
