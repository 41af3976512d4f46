// SPDX-License-Identifier: MIT
#include "instance.h"

#include "percent.h"

#include <algorithm>
#include <charconv>

namespace zan::ctl {
namespace {

std::optional<unsigned> to_instance_number(std::string_view text) {
    unsigned number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number == 0)
        return std::nullopt;
    return number;
}

// Removes and returns the text up to the separator, which is removed too.
std::string_view take_until(std::string_view &text, char separator) {
    const std::string_view head = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(head.size() + 1, text.size()));
    return head;
}

std::optional<Instance> parse_instance(std::string_view line) {
    const std::optional<unsigned> number = to_instance_number(take_until(line, ' '));
    if (!number)
        return std::nullopt;
    Instance instance = {*number, {}};
    while (!line.empty()) {
        const std::string_view field = take_until(line, ' ');
        const std::size_t equals = field.find('=');
        if (equals == std::string_view::npos)
            return std::nullopt;
        const std::optional<std::string> value = percent_decode(field.substr(equals + 1));
        if (!value)
            return std::nullopt;
        instance.values.emplace_back(field.substr(0, equals), *value);
    }
    return instance;
}

} // namespace

std::optional<std::vector<Instance>> parse_instances(std::string_view text) {
    std::vector<Instance> instances;
    while (!text.empty()) {
        const std::optional<Instance> instance = parse_instance(take_until(text, '\n'));
        if (!instance)
            return std::nullopt;
        instances.push_back(*instance);
    }
    return instances;
}

std::optional<unsigned> instance_number(std::string_view path) {
    const std::size_t colon = path.rfind(':');
    if (colon == std::string_view::npos || path.find('/', colon) != std::string_view::npos)
        return std::nullopt;
    return to_instance_number(path.substr(colon + 1));
}

} // namespace zan::ctl
