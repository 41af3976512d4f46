// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace zan::sim {

// Patterns as in a shell: "*" is any text, "?" one character, "[a-z]" one of them.
bool text_fits(const std::string &pattern, std::string_view text);

// The same element by element, where "*" and "?" stay within an element, and "**"
// as an element stands for any number of elements.
bool path_fits(std::string_view pattern, std::string_view path);

} // namespace zan::sim
