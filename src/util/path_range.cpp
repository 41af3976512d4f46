// SPDX-License-Identifier: MIT
// Parts of configuration paths: a range of their elements, their instance numbers.
#include "util/number.h"
#include "util/text.h"
#include "zan.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

namespace zan {
namespace {

constexpr bool ends_element(char c) {
    return c == '.' || c == '/' || c == ':';
}

// Where an element begins: after as many separators as its number, counted from 0 at the
// left.
std::optional<std::size_t> element_from_left(std::string_view path, int number) {
    std::size_t at = 0;
    for (; number > 0; --number) {
        while (at < path.size() && !ends_element(path[at]))
            ++at;
        if (at == path.size())
            return {};
        ++at;
    }
    return at;
}

// As above, counted from -1 at the right.
std::optional<std::size_t> element_from_right(std::string_view path, int number) {
    std::size_t at = path.size();
    for (;; ++number) {
        while (at > 0 && !ends_element(path[at - 1]))
            --at;
        if (number == -1)
            return at;
        if (at == 0)
            return {};
        --at;
    }
}

// No value stands for a range that the path does not have.
using Span = std::optional<std::string_view>;

std::string_view between(std::string_view path, std::size_t begin, std::size_t end) {
    return {path.data() + begin, end - begin};
}

Span span_from_left(std::string_view path, int start, int end) {
    if (!path.empty() && ends_element(path.front()))
        path.remove_prefix(1);
    const auto first = element_from_left(path, start);
    if (!first)
        return {};
    return between(path, *first, element_from_left(path, end).value_or(path.size()));
}

Span span_from_right(std::string_view path, int start, int end) {
    if (ends_element(path.back()))
        path.remove_suffix(1);
    const auto last = end == 0 ? path.size() : element_from_right(path, end);
    if (!last)
        return {};
    return between(path, element_from_right(path, start).value_or(0), *last);
}

bool is_range(int start, int end) {
    return end >= start && (start < 0 ? end <= 0 : end >= 1);
}

// What callers get for a range that is not there.
constexpr char no_text[] = "";

char *no_range() {
    return const_cast<char *>(no_text);
}

constexpr int32_t most_instances = 30;

} // namespace
} // namespace zan

using namespace zan;

char *extract_tr098_path(const char *path, char *out, int size, int start, int end) {
    if (path == nullptr || out == nullptr)
        return nullptr;
    if (size > 0)
        *out = '\0';
    std::string_view elements = path;
    if (elements.starts_with('/'))
        elements.remove_prefix(1);
    if (!is_range(start, end))
        return no_range();
    if (start < 0 && elements.empty())
        return nullptr;
    const Span span =
        start < 0 ? span_from_right(elements, start, end) : span_from_left(elements, start, end);
    if (!span)
        return no_range();
    if (size > 0) {
        const std::size_t copied = std::min(span->size(), static_cast<std::size_t>(size) - 1);
        std::memcpy(out, span->data(), copied);
        out[copied] = '\0';
    }
    return out;
}

int get_instances_by_path(const char *path, int32_t *list) {
    if (path == nullptr || list == nullptr)
        return 0;
    int32_t &count = list[0];
    count = 0;
    if (*path == '\0')
        return 1;
    for (const char *at = path + 1; *at != '\0' && count < most_instances; ++at) {
        if ((*at != '.' && *at != ':') || !is_digit(at[1]))
            continue;
        if (const int32_t instance = to_int(at + 1); instance != 0)
            list[++count] = instance;
    }
    return 1;
}
