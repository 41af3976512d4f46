// SPDX-License-Identifier: MIT
#include "percent.h"

#include <charconv>

namespace zan::ctl {
namespace {

std::optional<char> decode_escape(std::string_view text) {
    unsigned char byte = 0;
    const auto [stop, error] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
    if (error != std::errc() || stop != text.data() + 3)
        return std::nullopt;
    return static_cast<char>(byte);
}

} // namespace

std::optional<std::string> percent_decode(std::string_view text) {
    std::string decoded;
    if (text == "%00")
        return decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        if (text.size() - i < 3)
            return std::nullopt;
        const std::optional<char> byte = decode_escape(text.substr(i, 3));
        if (!byte)
            return std::nullopt;
        decoded += *byte;
        i += 2;
    }
    return decoded;
}

} // namespace zan::ctl
