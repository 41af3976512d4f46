// SPDX-License-Identifier: MIT
// The log table: one segment of shared memory that every module of the device
// attaches.  No lock guards it, and any process may write anything to it at any time:
// readers must not trust what they find.
#pragma once

#include "zan.h"

#include <atomic>
#include <cstddef>
#include <type_traits>

namespace zan {

inline constexpr std::size_t log_table_bytes = ZAN_LOG_ENTRIES * sizeof(zan_log_entry);

static_assert(offsetof(zan_log_entry, name) == 0 && sizeof(zan_log_entry::name) == 32);
static_assert(offsetof(zan_log_entry, level) == 32 && sizeof(zan_log_entry::level) == 4);
static_assert(offsetof(zan_log_entry, dest) == 36 && sizeof(zan_log_entry::dest) == 1);
static_assert(offsetof(zan_log_entry, in_use) == 37 && sizeof(zan_log_entry::in_use) == 1);
static_assert(offsetof(zan_log_entry, padding) == 38 && sizeof(zan_log_entry::padding) == 2);
static_assert(offsetof(zan_log_entry, cpu) == 40 && sizeof(zan_log_entry::cpu) == 4);
static_assert(sizeof(zan_log_entry) == 44 && alignof(zan_log_entry) == 4);
static_assert(log_table_bytes == 2816);
static_assert(std::is_trivially_copyable_v<zan_log_entry> &&
              std::is_standard_layout_v<zan_log_entry>);

// The attached table, null until the first registration of this process.
extern std::atomic<zan_log_entry *> g_log_table;

// Attaches the table unless that is done, creating and zeroing it when the device
// has none: false after a line on standard error.
bool attach_log_table();

// The first entry of this name, free entries included; null when there is none.
// An entry's name counts only when it ends within its field.
zan_log_entry *find_log_entry(zan_log_entry *table, const char *name);

// The first entry that is free or has this name; null when the table is full.
zan_log_entry *take_log_entry(zan_log_entry *table, const char *name);

// An entry's name, copied out with a terminator.
struct LogName {
    explicit LogName(const zan_log_entry &entry);

    char text[ZAN_NAME_SIZE + 1] = {};
};

// Fields that other threads and processes read and write meanwhile.
template<typename Field> Field load(const Field &field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template<typename Field> void store(Field &field, std::type_identity_t<Field> value) {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

} // namespace zan
