// SPDX-License-Identifier: MIT
#include "util/number.h"
#include "util/text.h"
#include "zan.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>

namespace zan {
namespace {

constexpr const char *unknown_time = "0001-01-01T00:00:00Z";
constexpr int unknown_year = 1;
constexpr int epoch_year = 1970;
constexpr std::int32_t no_time = -1;

constexpr int saturated(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

// Reads as scanf does.
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool number(std::size_t width, int *value) { return take_int(rest_, value, width); }

    bool literal(char c) {
        const bool there = !rest_.empty() && rest_[0] == c;
        if (there)
            rest_.remove_prefix(1);
        return there;
    }

    // "%Ns".
    std::string_view word(std::size_t most) {
        skip_space(rest_);
        std::size_t length = 0;
        while (length < std::min(most, rest_.size()) && !is_space(rest_[length]))
            ++length;
        return {rest_.data(), length};
    }

private:
    std::string_view rest_;
};

constexpr std::size_t any_width = std::string_view::npos;
constexpr std::size_t suffix_length = 31;

// Year, month, day, hour, minute and second: what stands before each, and how many
// characters it has at most.
struct Layout {
    struct {
        char before;
        std::size_t width;
    } field[6];
};
constexpr Layout dashed{{{'\0', any_width},
                         {'-', any_width},
                         {'-', any_width},
                         {'T', any_width},
                         {':', any_width},
                         {':', any_width}}};
constexpr Layout with_colons{
    {{'\0', 4}, {'\0', 2}, {'\0', 2}, {'T', any_width}, {':', any_width}, {':', any_width}}};
constexpr Layout compact{{{'\0', 4}, {'\0', 2}, {'\0', 2}, {'T', 2}, {'\0', 2}, {'\0', 2}}};

struct DateTime {
    int field[6]{}; // 0 from where the text could not be read on
    std::string_view suffix;
};

DateTime read(std::string_view text) {
    const Layout &layout = text.find('-') != std::string_view::npos   ? dashed
                           : text.find(':') != std::string_view::npos ? with_colons
                                                                      : compact;
    DateTime result;
    Scanner scanner(text);
    int *value = result.field;
    for (const auto &field : layout.field) {
        if (field.before != '\0' && !scanner.literal(field.before))
            return result;
        if (!scanner.number(field.width, value++))
            return result;
    }
    result.suffix = scanner.word(suffix_length);
    return result;
}

std::tm broken_down(const DateTime &time) {
    const auto [year, month, day, hour, minute, second] = time.field;
    std::tm parts{};
    parts.tm_year = saturated((year == unknown_year ? epoch_year : year) - std::int64_t{1900});
    parts.tm_mon = saturated(std::int64_t{month} - 1);
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    return parts;
}

struct Offset {
    std::int64_t hours;
    std::int64_t minutes;
};

// Of a suffix such as ".250+01:00" or "Z".
Offset offset_of(std::string_view suffix) {
    if (suffix.starts_with('.')) {
        suffix.remove_prefix(1);
        while (!suffix.empty() && is_digit(suffix[0]))
            suffix.remove_prefix(1);
    }
    if (!suffix.starts_with('+') && !suffix.starts_with('-'))
        return {0, 0};
    int hours = 0;
    int minutes = 0;
    Scanner scanner(suffix);
    scanner.number(any_width, &hours);
    if (suffix.size() <= 3 || suffix[3] != ':')
        return {hours / 100, hours % 100};
    if (scanner.literal(':'))
        scanner.number(any_width, &minutes);
    // "-00:30" has no negative hours, and so counts as half an hour ahead.
    return {hours, hours < 0 ? -std::int64_t{minutes} : minutes};
}

// Nothing if the C library cannot convert it.
std::optional<std::int64_t> from_local(std::tm parts) {
    // Only a conversion that succeeds sets it; -1 may be the last second of 1969.
    parts.tm_wday = -1;
    const std::time_t seconds = std::mktime(&parts);
    if (parts.tm_wday < 0)
        return std::nullopt;
    return seconds;
}

// Converts as if for local standard time, and corrects that by how far it is from UTC.
std::optional<std::int64_t> from_utc(std::tm parts) {
    parts.tm_isdst = 0;
    const auto local = from_local(parts);
    if (!local)
        return std::nullopt;
    const auto seconds = static_cast<std::time_t>(*local);
    if (gmtime_r(&seconds, &parts) == nullptr)
        return std::nullopt;
    parts.tm_isdst = 0;
    const auto shifted = from_local(parts);
    if (!shifted)
        return std::nullopt;
    return *local + (*local - *shifted);
}

std::optional<std::int64_t> seconds_of(const DateTime &time) {
    std::tm parts = broken_down(time);
    if (time.suffix.empty()) {
        parts.tm_isdst = -1;
        return from_local(parts);
    }
    const Offset offset = offset_of(time.suffix);
    parts.tm_hour = saturated(parts.tm_hour - offset.hours);
    parts.tm_min = saturated(parts.tm_min - offset.minutes);
    return from_utc(parts);
}

} // namespace
} // namespace zan

using namespace zan;

char *time_string(char *buf, unsigned int size, int32_t t) {
    if (t == 0) {
        zan_strcpy(buf, unknown_time, 0);
        return buf;
    }
    const std::time_t seconds = t;
    std::tm parts{};
    if (buf == nullptr || size == 0 || gmtime_r(&seconds, &parts) == nullptr)
        return buf;
    // A text that does not fit leaves one without a terminator.
    if (std::strftime(buf, size, "%Y-%m-%dT%H:%M:%S", &parts) == 0)
        buf[0] = '\0';
    return buf;
}

int string_time(const char *text, int32_t *t) {
    if (text == nullptr || t == nullptr)
        return 0;
    const auto seconds = seconds_of(read(text));
    const bool fits = seconds && *seconds >= std::numeric_limits<std::int32_t>::min() &&
                      *seconds <= std::numeric_limits<std::int32_t>::max();
    *t = fits ? static_cast<std::int32_t>(*seconds) : no_time;
    return 1;
}
