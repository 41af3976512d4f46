// SPDX-License-Identifier: MIT
// The payloads of configuration requests that are texts of several parts.
#pragma once

#include "wire/sink.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace zan::wire {

// ---- set: "0PATH VALUE" ----------------------------------------------------

// A flag that is always 0.
inline constexpr char assignment_flag = '0';

struct Assignment {
    std::string_view path;
    std::string_view value; // may be empty and contain spaces
};

// The path ends at the first space.  Nothing without flag or space.
constexpr std::optional<Assignment> parse_assignment(std::string_view text) {
    const std::size_t space = text.find(' ');
    if (!text.starts_with(assignment_flag) || space == std::string_view::npos)
        return std::nullopt;
    return Assignment{.path = {text.data() + 1, space - 1},
                      .value = {text.data() + space + 1, text.size() - space - 1}};
}

template<Sink Out> constexpr void format_assignment(Out &out, const Assignment &assignment) {
    append(out, assignment_flag);
    append(out, assignment.path);
    append(out, ' ');
    append(out, assignment.value);
}

// ---- print, set attributes: "PATH TEXT" ------------------------------------

struct PathText {
    std::string_view path;
    std::optional<std::string_view> text = {}; // nothing without a space
};

constexpr PathText parse_path_text(std::string_view payload) {
    const std::size_t space = payload.find(' ');
    if (space == std::string_view::npos)
        return {.path = payload};
    return {.path = {payload.data(), space},
            .text = std::string_view(payload.data() + space + 1, payload.size() - space - 1)};
}

template<Sink Out> constexpr void format_path_text(Out &out, const PathText &request) {
    append(out, request.path);
    if (!request.text)
        return;
    append(out, ' ');
    append(out, *request.text);
}

// ---- get: "PATH", or "PATH#" to count instances ----------------------------

inline constexpr char count_mark = '#';

struct Query {
    std::string_view path;
    bool counts = false; // the number of instances, not a value
};

constexpr Query parse_query(std::string_view text) {
    const bool counts = text.ends_with(count_mark);
    return {.path = {text.data(), text.size() - (counts ? 1 : 0)}, .counts = counts};
}

template<Sink Out> constexpr void format_query(Out &out, const Query &query) {
    append(out, query.path);
    if (query.counts)
        append(out, count_mark);
}

// ---- convert path: "KPATH" -------------------------------------------------

// Kinds are one digit.
inline constexpr int conversion_kinds = 10;

struct Conversion {
    char kind = '0'; // a digit, unless the sender wrote something else
    std::string_view path;
};

// Nothing without a kind.
constexpr std::optional<Conversion> parse_conversion(std::string_view text) {
    if (text.empty())
        return std::nullopt;
    return Conversion{.kind = text[0], .path = {text.data() + 1, text.size() - 1}};
}

template<Sink Out> constexpr void format_conversion(Out &out, const Conversion &conversion) {
    append(out, conversion.kind);
    append(out, conversion.path);
}

// ---- login: one item on each line ------------------------------------------

inline constexpr char login_separator = '\n';

// Takes the next item off the text; nothing after the last.
constexpr std::optional<std::string_view> take_login_item(std::optional<std::string_view> &text) {
    if (!text)
        return std::nullopt;
    const std::size_t end = text->find(login_separator);
    const std::string_view item(text->data(), end == text->npos ? text->size() : end);
    if (end == text->npos)
        text.reset();
    else
        text->remove_prefix(end + 1);
    return item;
}

// Appends an item; `first` of all is not preceded by a separator.
template<Sink Out> constexpr void format_login_item(Out &out, std::string_view item, bool first) {
    if (!first)
        append(out, login_separator);
    append(out, item);
}

} // namespace zan::wire
