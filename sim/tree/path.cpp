// SPDX-License-Identifier: MIT
#include "tree/path.h"

#include "base/text.h"

#include <zan.h>

#include <algorithm>
#include <optional>

namespace zan::sim {

namespace {

Error path_error(std::string_view text, const char *why) {
    return {bad_path, "bad path (" + std::string(why) + "): " + escape(text)};
}

std::optional<std::uint32_t> parse_instance(std::string_view digits) {
    const auto number = to_number(digits);
    if (!number || *number < 1 || *number > last_instance || digits[0] == '0')
        return std::nullopt;
    return static_cast<std::uint32_t>(*number);
}

Result<Path> parse(std::string_view text, bool pattern) {
    if (text.empty() || text[0] != '/')
        return path_error(text, "it does not start with a slash");
    if (text.size() >= ZAN_PATH_SIZE)
        return path_error(text.substr(0, 64), "longer than 1023 characters");
    Path path;
    if (text.size() == 1)
        return path;
    for (std::size_t start = 1; start <= text.size();) {
        const std::size_t end = std::min(text.find('/', start), text.size());
        const std::string_view part = text.substr(start, end - start);
        const std::size_t colon = part.find(':');
        Element element{.name = std::string(part.substr(0, colon))};
        if (!is_name(element.name))
            return path_error(text, element.name.empty() ? "empty element" : "character in a name");
        if (colon != std::string_view::npos) {
            const std::string_view field = part.substr(colon + 1);
            element.any_instance = pattern && field == "#";
            const auto instance = parse_instance(field);
            if (!element.any_instance && !instance)
                return Error{no_instance, "no such instance: " + escape(text)};
            element.instance = instance.value_or(0);
        }
        path.push_back(std::move(element));
        start = end + 1;
    }
    return path;
}

bool matches(const Element &pattern, const Element &element) {
    if (pattern.name != element.name)
        return false;
    if (pattern.any_instance)
        return element.instance != 0;
    return pattern.instance == 0 || pattern.instance == element.instance;
}

} // namespace

bool is_reserved(std::string_view path) {
    if (!path.starts_with('/') || !path.substr(1).starts_with(reserved_branch))
        return false;
    path.remove_prefix(1 + reserved_branch.size());
    return path.empty() || path[0] == '/';
}

bool is_name(std::string_view name) {
    // Names are sent unencoded in lines separated by spaces.
    const auto refused = [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte <= ' ' || byte == 0x7f || character == '/' || character == ':' ||
               character == '#' || character == '%' || character == '=';
    };
    return !name.empty() && std::none_of(name.begin(), name.end(), refused);
}

Result<Path> parse_path(std::string_view text) {
    return parse(text, false);
}

Result<Path> parse_pattern(std::string_view text) {
    return parse(text, true);
}

bool covers(const Path &pattern, const Path &path) {
    return pattern.size() <= path.size() &&
           std::equal(pattern.begin(), pattern.end(), path.begin(), matches);
}

bool reaches_into(const Path &pattern, const Path &path) {
    const auto compatible = [](const Element &place, const Element &element) {
        // The table itself holds every instance.
        return place.instance == 0 ? place.name == element.name : matches(element, place);
    };
    return path.size() <= pattern.size() &&
           std::equal(path.begin(), path.end(), pattern.begin(), compatible);
}

} // namespace zan::sim
