// SPDX-License-Identifier: MIT
// How a module gets its entry in the log table.
#include "log/registration.h"

#include "log/table.h"
#include "msg/identity.h"

#include <cstring>

namespace zan {

constinit std::atomic<zan_log_entry *> g_log_name = nullptr;

namespace {

constexpr int tested_cpu = 1;

// The tree's setting, else the module's own: 0 in the tree is no setting.
int setting(const char *name, const char *key, int otherwise) {
    const int configured = cfg_getint("%s/%s/%s", ZAN_LOG_TREE, name, key);
    return configured != 0 ? configured : otherwise;
}

void set_name(zan_log_entry &entry, const char *name) {
    char field[sizeof entry.name] = {};
    std::memcpy(field, name, strnlen(name, sizeof field - 1));
    std::memcpy(entry.name, field, sizeof field);
}

void announce_cpu_test(const zan_log_entry &entry) {
    char text[128] = {};
    zan_sprintf(text, sizeof text, "cpu_test %s %d", LogName(entry).text, own_pid());
    zan_send("SEHD", text, sizeof text);
}

} // namespace
} // namespace zan

using namespace zan;

int __zan_log_init(const char *name, int level, int dest, int cpu) {
    if (name == nullptr || !attach_log_table())
        return 0;
    zan_log_entry *const entry = take_log_entry(g_log_table, name);
    if (entry == nullptr)
        return 1;
    // Taken before the daemon is asked, which takes a while.
    store(entry->in_use, 1);
    store(entry->level, setting(name, "loglevel", level));
    store(entry->dest, static_cast<std::uint8_t>(setting(name, "logdest", dest)));
    set_name(*entry, name);
    store(entry->cpu, cpu);
    g_log_name = entry;
    if (cpu == tested_cpu)
        announce_cpu_test(*entry);
    return 1;
}

int zan_log_init(const char *name, int level, int dest) {
    return __zan_log_init(name, level, dest, 0);
}

int zan_log_init_cpu(const char *name, int level, int dest, int cpu) {
    return __zan_log_init(name, level, dest, cpu);
}
