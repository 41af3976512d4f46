// SPDX-License-Identifier: MIT
#include "decode/text.h"

#include "wire/field_text.h"
#include "wire/utf8.h"

namespace zan::decode {

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const char character = text[0];
        const std::size_t length = wire::utf8_length(text);
        if (character == '\n') {
            out += "\\n";
        } else if (character == '\t') {
            out += "\\t";
        } else if (character == '\\' || character == '"') {
            out += '\\';
            out += character;
        } else if (length == 0 || wire::is_control(character)) {
            out += "\\x";
            wire::append_hex(out, character);
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out;
}

std::string hex(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const char byte : bytes)
        wire::append_hex(out, byte);
    return out;
}

std::optional<std::string> unhex(std::string_view text) {
    if (text.size() % 2 != 0)
        return std::nullopt;
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (; !text.empty(); text.remove_prefix(2)) {
        const int high = wire::hex_value(text[0]);
        const int low = wire::hex_value(text[1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

std::string as_utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = wire::utf8_length(text);
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
        const std::size_t length = wire::utf8_length(bytes);
        const bool is_blank = bytes[0] == '\n' || bytes[0] == '\t';
        if (length == 0 || (wire::is_control(bytes[0]) && !is_blank))
            return false;
        bytes.remove_prefix(length);
    }
    return true;
}

} // namespace zan::decode
