// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace zan::sim {

// Shell patterns: "*" is any text, "?" any character, "[a-z]" one of a range.
bool text_matches(const std::string &pattern, std::string_view text);

// The same element by element: "*" and "?" match within an element, and the element
// "**" matches any number of elements.
bool path_matches(std::string_view pattern, std::string_view path);

} // namespace zan::sim
