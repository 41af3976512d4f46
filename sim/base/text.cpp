// SPDX-License-Identifier: MIT
#include "base/text.h"

#include <charconv>

namespace zan::sim {

namespace {

constexpr char hex_digits[] = "0123456789ABCDEF";

bool is_control(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

void append_hex(std::string &out, unsigned char byte) {
    out += hex_digits[byte >> 4];
    out += hex_digits[byte & 15];
}

// The length of the UTF-8 sequence at the start of the text; 0 if there is none.
std::size_t sequence_length(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xf0 && lead < 0xf5   ? 4
                               : lead >= 0xe0 && lead < 0xf0 ? 3
                               : lead >= 0xc2 && lead < 0xe0 ? 2
                                                             : 0;
    if (length == 0 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80)
            return 0;
    }
    // Overlong forms, surrogates and code points above U+10FFFF.
    const auto second = static_cast<unsigned char>(text[1]);
    const bool wrong = (lead == 0xe0 && second < 0xa0) || (lead == 0xed && second >= 0xa0) ||
                       (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second >= 0x90);
    return wrong ? 0 : length;
}

} // namespace

std::string encode_field(std::string_view text, std::size_t max) {
    if (text.empty())
        return "%00";
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool coded = is_control(byte) || byte == ' ' || byte == '%';
        std::size_t length = sequence_length(text.substr(i));
        if (length == 0)
            length = 1;
        if (out.size() + (coded ? 3 : length) > max)
            break;
        if (coded) {
            out += '%';
            append_hex(out, byte);
        } else {
            out += text.substr(i, length);
        }
        i += length;
    }
    return out;
}

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char character = text[i];
        const std::size_t length = sequence_length(text.substr(i));
        if (character == '\n') {
            out += "\\n";
        } else if (character == '\t') {
            out += "\\t";
        } else if (character == '\\' || character == '"') {
            out += '\\';
            out += character;
        } else if (length == 0 || is_control(static_cast<unsigned char>(character))) {
            out += "\\x";
            append_hex(out, static_cast<unsigned char>(character));
        } else {
            out += text.substr(i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return out;
}

std::string hex(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const char byte : bytes)
        append_hex(out, static_cast<unsigned char>(byte));
    return out;
}

std::optional<std::string> unhex(std::string_view text) {
    std::string bytes;
    for (; !text.empty(); text.remove_prefix(2)) {
        unsigned value = 0;
        if (text.size() < 2)
            return std::nullopt;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + 2, value, 16);
        if (error != std::errc{} || stop != text.data() + 2)
            return std::nullopt;
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string as_utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        if (length == 0)
            out += '?';
        else
            out += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out;
}

bool is_readable(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t length = sequence_length(bytes);
        const bool blank = bytes[0] == '\n' || bytes[0] == '\t';
        if (length == 0 || (is_control(static_cast<unsigned char>(bytes[0])) && !blank))
            return false;
        bytes.remove_prefix(length);
    }
    return true;
}

std::string_view until_nul(std::string_view bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

std::optional<std::int64_t> to_number(std::string_view text) {
    std::int64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

} // namespace zan::sim
