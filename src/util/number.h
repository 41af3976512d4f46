// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zan {

// The decimal integer a text begins with, 0 when it begins with none.  Limited
// to 32 bits: a 64-bit workstation reads every text as the target does.
int to_int(const char *text);

// The same without a sign, in the base (0: by prefix).
std::uint32_t to_uint32(const char *text, int base);

// Removes the number at the start of the text, as scanf does for "%d": after white space,
// and of at most `width` characters.  One that does not fit is the nearest that does, on every
// machine.  False, with *value as it was and only the white space taken, when there is
// none.
bool take_int(std::string_view &text, int *value, std::size_t width = std::string_view::npos);

} // namespace zan
