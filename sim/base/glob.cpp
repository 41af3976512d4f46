// SPDX-License-Identifier: MIT
#include "base/glob.h"

#include <zan.h>

#include <fnmatch.h>

#include <algorithm>
#include <vector>

namespace zan::sim {

namespace {

// Removes and returns the text before the first slash.
std::string_view take_element(std::string_view &path) {
    const std::string_view element = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(element.size() + 1, path.size()));
    return element;
}

std::vector<std::string> elements_of(std::string_view path) {
    std::vector<std::string> elements;
    while (!path.empty())
        elements.emplace_back(take_element(path));
    return elements;
}

} // namespace

// The time may grow with the length of the text to the power of the number of stars.
bool text_matches(const std::string &pattern, std::string_view text) {
    return text.size() < ZAN_PATH_SIZE &&
           fnmatch(pattern.c_str(), std::string(text).c_str(), 0) == 0;
}

bool path_matches(std::string_view pattern, std::string_view path) {
    const std::vector<std::string> wanted = elements_of(pattern);
    const std::vector<std::string> given = elements_of(path);
    // fits[i]: the rest of the pattern matches the path from element i on.
    std::vector<bool> fits(given.size() + 1, false);
    fits.back() = true;
    for (std::size_t last = wanted.size(); last-- > 0;) {
        const bool any = wanted[last] == "**";
        std::vector<bool> now(given.size() + 1, false);
        now.back() = any && fits.back();
        for (std::size_t i = given.size(); i-- > 0;)
            now[i] =
                any ? fits[i] || now[i + 1] : fits[i + 1] && text_matches(wanted[last], given[i]);
        fits = std::move(now);
    }
    return fits.front();
}

} // namespace zan::sim
