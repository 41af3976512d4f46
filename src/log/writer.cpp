// SPDX-License-Identifier: MIT
// The outputs of a message, and its form on each.
#include "log/registration.h"
#include "log/table.h"
#include "util/errno_guard.h"
#include "util/text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>
#include <syslog.h>
#include <unistd.h>

namespace zan {
namespace {

constexpr int syslog_priority = 192;
constexpr int syslog_length = 2047;
constexpr int terminals = 3;

constinit std::atomic<FILE *> outfile = nullptr;
char timestamp_str[32];

// ---- time

struct TimeText {
    char text[32];
};

TimeText current_time() {
    const std::time_t now = std::time(nullptr);
    tm local = {};
    // What localtime() does, for threads: it follows a time zone that is changed
    // while the module runs.
    tzset();
    localtime_r(&now, &local);
    TimeText time;
    zan_sprintf(time.text, sizeof time.text, "%02d:%02d:%02d", local.tm_hour, local.tm_min,
                local.tm_sec);
    // Threads that log at the same time may mix the characters here, and only here.
    for (std::size_t i = 0; i < sizeof "hh:mm:ss"; ++i)
        store(timestamp_str[i], time.text[i]);
    return time;
}

// ---- message

// Formatted with the caller's errno, which a "%m" shows.
class Text {
public:
    Text(const char *format, va_list arguments) : format_(format), errno_of_caller_(errno) {
        va_copy(arguments_, arguments);
        reset();
    }
    ~Text() { va_end(arguments_); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;

    char characters[4096];

    // Formats the text again, after a change.
    void reset() {
        va_list arguments;
        va_copy(arguments, arguments_);
        errno = errno_of_caller_;
        if (std::vsnprintf(characters, sizeof characters, format_, arguments) < 0)
            characters[0] = '\0';
        va_end(arguments);
    }

private:
    const char *format_;
    int errno_of_caller_;
    va_list arguments_;
};

struct LogLine {
    int level;
    TimeText time;
    LogName name;
    const char *text;
};

// ---- console and terminals

// Text before and after a line.
struct Decoration {
    const char *begin;
    const char *end;
};
constexpr Decoration plain = {"", " \n"};
constexpr Decoration red = {"\033[1;31m", "\033[m\n"};
constexpr Decoration green = {"\033[1;32m", "\033[m\n"};
constexpr Decoration blue = {"\033[1;34m", "\033[m\n"};

constexpr Decoration terminal_decoration(int level) {
    if (level < ZAN_LOG_WARNING)
        return red;
    return level == ZAN_LOG_NOTICE ? green : plain;
}

constexpr Decoration console_decoration(int level) {
    return level == ZAN_LOG_INFO ? blue : terminal_decoration(level);
}

void write_line(FILE *stream, const LogLine &line, const Decoration &decoration) {
    std::fprintf(stream, "%s%s:%s\t%s%s", decoration.begin, line.time.text, line.name.text,
                 line.text, decoration.end);
}

FILE *console() {
    FILE *stream = outfile.load(std::memory_order_acquire);
    if (stream != nullptr)
        return stream;
    const ErrnoGuard errno_of_caller; // which a message may print
    FILE *const opened = std::fopen("/dev/console", "w");
    if (opened == nullptr || outfile.compare_exchange_strong(stream, opened))
        return opened;
    std::fclose(opened); // another thread was faster
    return stream;
}

void write_to_terminals(const LogLine &line) {
    for (int n = 0; n < terminals; ++n) {
        char path[12];
        zan_sprintf(path, sizeof path, "/dev/pts/%d", n);
        if (access(path, F_OK) != 0)
            continue;
        FILE *const terminal = std::fopen(path, "w+b");
        if (terminal == nullptr)
            continue;
        write_line(terminal, line, terminal_decoration(line.level));
        zan_fclose(terminal);
    }
}

// ---- syslog

// Every message is announced, by an empty line...
void write_to_syslog(const Text &text) {
    syslog(syslog_priority, "%s", "");
    syslog(syslog_priority, "%.*s", syslog_length, text.characters);
}

// ...or, where it goes everywhere, by what syslog shows when it is given the text as
// its format.  Handed over as one, a "%n" in a message would write to memory.  "%m"
// stays as it is: it would show the current error, not the message's.
void write_to_syslog_twice(Text &text) {
    format_without_arguments(text.characters, sizeof text.characters, text.characters);
    syslog(syslog_priority, "%s", text.characters);
    text.reset();
    syslog(syslog_priority, "%.*s", syslog_length, text.characters);
}

// ---- file

constexpr const char *level_names[] = {"Emergency", "Alert",  "Critical",   "Error",
                                       "Warning",   "Notice", "Infomation", "Verbose"};

const char *name_of(int level) {
    const bool known = level >= 0 && level < static_cast<int>(std::size(level_names));
    return known ? level_names[level] : "Unknown";
}

void append_to_file(const LogLine &line, const char *module) {
    char path[64];
    zan_sprintf(path, sizeof path, "/var/log/%s", module != nullptr ? module : "(null)");
    FILE *const file = std::fopen(path, "ab");
    if (file == nullptr)
        return;
    std::fprintf(file, "(%d)[%s]%s:%s\t%s \n", line.level, name_of(line.level), line.time.text,
                 line.name.text, line.text);
    zan_fclose(file);
}

// ---- one call

zan_log_entry *find_entry(zan_log_entry *table, const char *module) {
    if (module != nullptr)
        return find_log_entry(table, module);
    const zan_log_entry *const own = g_log_name.load();
    return own != nullptr ? find_log_entry(table, LogName(*own).text) : nullptr;
}

// Apart from the filter, which then needs hardly any stack.
[[gnu::noinline]] void write(const zan_log_entry &entry, int dest, const char *module, int level,
                             const char *format, va_list arguments) {
    Text text(format, arguments);
    if (dest == ZAN_LOG_SYSLOG) {
        write_to_syslog(text);
        return;
    }
    const bool all = dest == ZAN_LOG_ALL;
    const LogLine line = {level, current_time(), LogName(entry), text.characters};
    if (all || dest == ZAN_LOG_CONSOLE)
        write_line(console(), line, console_decoration(level));
    if (all || dest == ZAN_LOG_TERMINALS)
        write_to_terminals(line);
    if (all)
        write_to_syslog_twice(text);
    if (all || dest == ZAN_LOG_FILE)
        append_to_file(line, module);
}

} // namespace
} // namespace zan

using namespace zan;

char *zan_log_get_current_time_str(void) {
    current_time();
    return timestamp_str;
}

zan_log_entry *zan_get_log_level(const char *name) {
    zan_log_entry *const table = g_log_table.load(std::memory_order_acquire);
    return table != nullptr && name != nullptr ? find_log_entry(table, name) : nullptr;
}

int zan_log(const char *name, int level, const char *fmt, ...) {
    zan_log_entry *const table = g_log_table.load(std::memory_order_acquire);
    if (table == nullptr || fmt == nullptr || console() == nullptr)
        return 0;
    const zan_log_entry *const entry = find_entry(table, name);
    if (entry == nullptr)
        return 0;
    const int dest = load(entry->dest);
    if (load(entry->level) < level || dest < ZAN_LOG_CONSOLE || dest > ZAN_LOG_FILE)
        return 1;
    va_list arguments;
    va_start(arguments, fmt);
    write(*entry, dest, name, level, fmt, arguments);
    va_end(arguments);
    return 1;
}
