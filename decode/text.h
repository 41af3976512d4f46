// SPDX-License-Identifier: MIT
// Bytes and texts in forms that fit on one line.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zan::decode {

// Control characters, backslashes, quotation marks and bytes that are not UTF-8 as
// escapes.
std::string escape(std::string_view text);

// Two hexadecimal digits for each byte.
std::string hex(std::string_view bytes);

// The reverse; nothing if the text is not pairs of digits.
std::optional<std::string> unhex(std::string_view text);

// The text as well-formed UTF-8 of the same length: "?" for each byte of no sequence.
std::string as_utf8(std::string_view text);

// Well-formed UTF-8 without control characters other than tab and line feed.
bool is_readable(std::string_view bytes);

} // namespace zan::decode
