// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zan::sim {

// One field of a line whose fields are separated by spaces: spaces, control characters
// and "%" become %XX, the empty text becomes "%00".  A result longer than max bytes is
// cut between characters, never inside a %XX or a UTF-8 sequence.
std::string encode_field(std::string_view text, std::size_t max = SIZE_MAX);

// Readable on one line: control characters, quotes and backslashes are escaped.
std::string escape(std::string_view text);

// Two hexadecimal digits for each byte.
std::string hex(std::string_view bytes);

// The reverse; nothing unless the text consists of pairs of digits.
std::optional<std::string> unhex(std::string_view text);

// The text as well-formed UTF-8 of the same length: invalid bytes become "?".
std::string as_utf8(std::string_view text);

// Well-formed UTF-8 without control characters other than tab and line feed.
bool is_readable(std::string_view bytes);

// The bytes before the first NUL.
std::string_view until_nul(std::string_view bytes);

// The whole text as a decimal number, without leading spaces or "+".
std::optional<std::int64_t> to_number(std::string_view text);

} // namespace zan::sim
