// SPDX-License-Identifier: MIT
#include "notification.h"

#include <zan.h>

#include <charconv>
#include <optional>

namespace zan::ctl {
namespace {

std::optional<char> decode_escape(std::string_view text) {
    unsigned char byte = 0;
    const auto [stop, error] = std::from_chars(text.data() + 1, text.data() + 3, byte, 16);
    if (error != std::errc() || stop != text.data() + 3)
        return std::nullopt;
    return static_cast<char>(byte);
}

// Blanks, control characters and "%" travel as %XX; an empty text, which would
// be no field at all, as %00.  Nothing when the text is not written that way.
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

// An escape that was cut in two says nothing.
std::string_view without_cut_escape(std::string_view text) {
    const std::size_t percent = text.rfind('%');
    const bool incomplete = percent != std::string_view::npos && text.size() - percent < 3;
    return incomplete ? text.substr(0, percent) : text;
}

} // namespace

Change decode_change(std::string_view f1, std::string_view f2, std::string_view f3,
                     std::string_view f6, int f4, int f5) {
    // One that fills its field is taken to go on.
    const bool cut = f3.size() >= ZAN_LONGEST_CHANGED_VALUE;
    const std::optional<std::string> value = percent_decode(cut ? without_cut_escape(f3) : f3);
    return {std::string(f1), std::string(f2), value.value_or(std::string(f3)), cut, f4, f5,
            std::string(f6)};
}

std::string kind_text(int kind) {
    static constexpr const char *texts[] = {"changed", "added", "deleted"};
    if (kind < 1 || kind > 3)
        return std::to_string(kind);
    return texts[kind - 1];
}

} // namespace zan::ctl
