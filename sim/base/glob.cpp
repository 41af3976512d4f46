// SPDX-License-Identifier: MIT
#include "base/glob.h"

#include <zan.h>

#include <fnmatch.h>

#include <algorithm>
#include <vector>

namespace zan::sim {

namespace {

// The text before the first slash, which is taken off with it.
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

// A search may take the length of the text to the power of the stars.
bool text_fits(const std::string &pattern, std::string_view text) {
    return text.size() < ZAN_PATH_SIZE &&
           fnmatch(pattern.c_str(), std::string(text).c_str(), 0) == 0;
}

bool path_fits(std::string_view pattern, std::string_view path) {
    const std::vector<std::string> wanted = elements_of(pattern);
    const std::vector<std::string> given = elements_of(path);
    // fits[i]: what is left of the pattern matches the path from element i on.
    std::vector<bool> fits(given.size() + 1, false);
    fits.back() = true;
    for (std::size_t last = wanted.size(); last-- > 0;) {
        const bool any = wanted[last] == "**";
        std::vector<bool> now(given.size() + 1, false);
        now.back() = any && fits.back();
        for (std::size_t i = given.size(); i-- > 0;)
            now[i] = any ? fits[i] || now[i + 1] : fits[i + 1] && text_fits(wanted[last], given[i]);
        fits = std::move(now);
    }
    return fits.front();
}

} // namespace zan::sim
