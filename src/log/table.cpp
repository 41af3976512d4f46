// SPDX-License-Identifier: MIT
#include "log/table.h"

#include "util/errno_guard.h"
#include "wire/place.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace zan {

constinit std::atomic<zan_log_entry *> g_log_table = nullptr;

namespace {

constexpr int creation_flags = IPC_CREAT | 0777;
static_assert(creation_flags == 1023);

// Lets people find the segment with ipcs.
void write_key_file(key_t key) {
    FILE *file = std::fopen(wire::log_key_file, "w+");
    if (file == nullptr)
        return;
    std::fprintf(file, "0x%x", static_cast<unsigned int>(key));
    std::fclose(file);
}

// The segment's id, or -1 with errno set.
int create_segment(key_t key) {
    int id = shmget(key, log_table_bytes, creation_flags);
    if (id == 0) {
        // Every caller takes 0 for a failure: a new segment gets another id.
        shmctl(0, IPC_RMID, nullptr);
        id = shmget(key, log_table_bytes, creation_flags);
    }
    const ErrnoGuard reason;
    write_key_file(key);
    return id;
}

// ---- lookup

template<typename Word> Word word_at(const char *bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// A name with its terminator, which an entry of that name has in its field.
struct WantedName {
    const char *text;
    std::size_t size;

    explicit WantedName(const char *name) : text(name), size(strnlen(name, ZAN_NAME_SIZE) + 1) {}

    bool fits() const { return size <= ZAN_NAME_SIZE; }
    bool is_name_of(const zan_log_entry &entry) const {
        return std::memcmp(entry.name, text, size) == 0;
    }
    // The same for a name of at least a word, in less time than a call takes.
    template<typename Word> bool is_name_of(const zan_log_entry &entry) const {
        const std::size_t last = size - sizeof(Word);
        for (std::size_t i = 0; i < last; i += sizeof(Word))
            if (word_at<Word>(entry.name + i) != word_at<Word>(text + i))
                return false;
        return word_at<Word>(entry.name + last) == word_at<Word>(text + last);
    }
};

// The first entry from `entry` on that has this word there, or `end`.
template<typename Word>
zan_log_entry *find_word(zan_log_entry *entry, const zan_log_entry *end, std::size_t offset,
                         Word wanted) {
#pragma GCC unroll 8
    for (; entry != end; ++entry)
        if (word_at<Word>(entry->name + offset) == wanted)
            break;
    return entry;
}

// A message that is filtered out costs little more than the search: one word of an
// entry is compared first.  That is the last of the name, with its terminator, in which
// modules named alike differ; once it has turned out common, the first.
constexpr int strangers_before_the_first = 3;

template<typename Word> zan_log_entry *find_by_word(zan_log_entry *table, WantedName name) {
    std::size_t offset = name.size - sizeof(Word);
    Word wanted = word_at<Word>(name.text + offset);
    const zan_log_entry *const end = table + ZAN_LOG_ENTRIES;
    int strangers = 0;
    for (zan_log_entry *entry = table; (entry = find_word(entry, end, offset, wanted)) != end;
         ++entry) {
        if (name.is_name_of<Word>(*entry))
            return entry;
        if (++strangers == strangers_before_the_first) {
            offset = 0;
            wanted = word_at<Word>(name.text);
        }
    }
    return nullptr;
}

} // namespace

bool attach_log_table() {
    if (g_log_table.load() != nullptr)
        return true;
    const key_t key = ftok(ZAN_LOG_KEY_PATH, ZAN_LOG_KEY_ID);
    int id = shmget(key, log_table_bytes, 0777);
    const bool creates = id < 1;
    if (creates)
        id = create_segment(key);
    if (id < 0) {
        std::perror("shmget");
        return false;
    }
    void *const memory = shmat(id, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(memory) == -1) {
        std::perror("shmat");
        return false;
    }
    if (creates)
        std::memset(memory, 0, log_table_bytes);
    g_log_table = static_cast<zan_log_entry *>(memory);
    return true;
}

zan_log_entry *find_log_entry(zan_log_entry *table, const char *name) {
    const WantedName wanted(name);
    if (!wanted.fits())
        return nullptr;
    if (wanted.size >= sizeof(std::size_t))
        return find_by_word<std::size_t>(table, wanted);
    if (wanted.size >= sizeof(std::uint32_t))
        return find_by_word<std::uint32_t>(table, wanted);
    return find_by_word<char>(table, wanted);
}

zan_log_entry *take_log_entry(zan_log_entry *table, const char *name) {
    const WantedName wanted(name);
    for (int i = 0; i < ZAN_LOG_ENTRIES; ++i)
        if (load(table[i].in_use) == 0 || (wanted.fits() && wanted.is_name_of(table[i])))
            return table + i;
    return nullptr;
}

LogName::LogName(const zan_log_entry &entry) {
    std::memcpy(text, entry.name, sizeof entry.name);
}

} // namespace zan
