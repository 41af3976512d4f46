// SPDX-License-Identifier: MIT
//
// A process of the other width on the log table, built from the library's own code
// for it:  table_peer [NAME LEVEL DEST CPU]  enters a module, if one is given, and
// prints how wide it is and what is in the table.
#include "log/table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char **argv) {
    if (!zan::attach_log_table())
        return 1;
    zan_log_entry *const table = zan::g_log_table;
    if (argc == 5) {
        zan_log_entry *const entry = zan::take_log_entry(table, argv[1]);
        if (entry == nullptr)
            return 1;
        std::strncpy(entry->name, argv[1], sizeof entry->name - 1);
        entry->level = std::atoi(argv[2]);
        entry->dest = static_cast<std::uint8_t>(std::atoi(argv[3]));
        entry->cpu = std::atoi(argv[4]);
        entry->in_use = 1;
    }
    std::printf("%d bits\n", static_cast<int>(sizeof(void *)) * 8);
    for (const zan_log_entry *entry = table; entry < table + ZAN_LOG_ENTRIES; ++entry)
        if (entry->in_use != 0)
            std::printf("%d %s %d %d %d %d\n", static_cast<int>(entry - table), entry->name,
                        static_cast<int>(entry->level), entry->dest, entry->in_use,
                        static_cast<int>(entry->cpu));
    return 0;
}
