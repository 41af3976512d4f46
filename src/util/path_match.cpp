// SPDX-License-Identifier: MIT
// Comparison of configuration paths in which an instance number may be open.
#include "util/text.h"
#include "zan.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

namespace zan {
namespace {

constexpr char wildcard = '#';
constexpr std::size_t significant = 31; // characters of an instance field

enum class Separators { slash, slash_and_dot };

class Comparison {
public:
    Comparison(const char *a, const char *b, Separators separators, bool nocase)
        : a_(a), b_(b), separators_(separators), nocase_(nocase) {}

    // Walks both paths until one of them ends or they differ: whether they match so far.
    bool run() {
        while (*a_ != '\0' && *b_ != '\0') {
            if (!same_character())
                return false;
            const bool instance_follows = *a_ == ':';
            ++a_;
            ++b_;
            if (instance_follows && !same_instance())
                return false;
        }
        return true;
    }

    bool consumed_a() const { return *a_ == '\0'; }
    bool consumed_b() const { return *b_ == '\0'; }

private:
    bool is_separator(char c) const {
        return c == '/' || (c == '.' && separators_ == Separators::slash_and_dot);
    }

    bool same_character() const {
        if (*a_ == *b_ || (is_separator(*a_) && is_separator(*b_)))
            return true;
        return nocase_ && std::tolower(static_cast<unsigned char>(*a_)) ==
                              std::tolower(static_cast<unsigned char>(*b_));
    }

    // Both paths advance in step, and as everywhere the walk ends where the shorter one
    // does: "#" at the end of a path has then met one character of a longer field.
    bool same_instance() {
        const char *const begin_a = a_;
        const char *const begin_b = b_;
        while (*a_ != '\0' && *b_ != '\0' && !(is_separator(*a_) && is_separator(*b_))) {
            const bool advance_b = !is_separator(*b_);
            if (!is_separator(*a_))
                ++a_;
            if (advance_b)
                ++b_;
        }
        const std::string_view field_a = field(begin_a, a_);
        const std::string_view field_b = field(begin_b, b_);
        return field_a.starts_with(wildcard) || field_b.starts_with(wildcard) || field_a == field_b;
    }

    static std::string_view field(const char *begin, const char *end) {
        return {begin, std::min(static_cast<std::size_t>(end - begin), significant)};
    }

    const char *a_;
    const char *b_;
    Separators separators_;
    bool nocase_;
};

constexpr bool is_dot_or_slash(char c) {
    return c == '.' || c == '/';
}

void drop_first(const char *&path) {
    if (*path != '\0')
        ++path;
}

// What of leading separators does not count when the whole of `part` is to be found.
void drop_leading_of_first(const char *&part, const char *&path) {
    if (is_dot_or_slash(*part))
        drop_first(part);
    if (*path == '/' || *part == '.')
        drop_first(path);
}

void drop_leading_of_second(const char *&path, const char *&part) {
    if (*part == '/' || *path == '.')
        drop_first(part);
    if (is_dot_or_slash(*path))
        drop_first(path);
}

// The results are those of strcmp: 0 is a match.
constexpr int result(bool matches) {
    return matches ? 0 : 1;
}

} // namespace
} // namespace zan

using namespace zan;

int pathcmp(const char *a, const char *b, int nocase) {
    if (a == nullptr || b == nullptr)
        return result(false);
    Comparison comparison(a, b, Separators::slash, nocase != 0);
    return result(comparison.run() && comparison.consumed_a() && comparison.consumed_b());
}

int pathpartcmp(const char *a, const char *b, int direction, int nocase) {
    if (a == nullptr || b == nullptr)
        return result(false);
    if (direction == 0)
        drop_leading_of_first(a, b);
    else
        drop_leading_of_second(a, b);
    Comparison comparison(a, b, Separators::slash_and_dot, nocase != 0);
    return result(comparison.run() &&
                  (direction == 0 ? comparison.consumed_a() : comparison.consumed_b()));
}

int pathobjectcmp(const char *pattern, const char *path) {
    if (pattern == nullptr || path == nullptr)
        return result(false);
    for (; *pattern != '\0'; ++pattern) {
        if (*pattern == wildcard) {
            if (!is_digit(*path))
                return result(false);
            while (is_digit(*path))
                ++path;
        } else if (*path == *pattern) {
            ++path;
        } else {
            return result(false);
        }
    }
    if (*path == '/')
        ++path;
    return result(std::strchr(path, '/') == nullptr);
}
