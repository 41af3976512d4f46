// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string_view>

namespace zan::wire {

// Bytes of the well-formed UTF-8 sequence that the text begins with; 0 if it begins
// with none.  The text is not empty.
constexpr std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xf0 && lead < 0xf5   ? 4
                               : lead >= 0xe0 && lead < 0xf0 ? 3
                               : lead >= 0xc2 && lead < 0xe0 ? 2
                                                             : 0;
    if (length == 0 || text.size() < length)
        return 0;
    for (std::size_t at = 1; at < length; ++at)
        if ((byte(at) & 0xc0) != 0x80)
            return 0;
    // Overlong forms, surrogates and what is above U+10FFFF.
    const bool wrong = (lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) >= 0xa0) ||
                       (lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) >= 0x90);
    return wrong ? 0 : length;
}

} // namespace zan::wire
