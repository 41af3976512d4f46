// SPDX-License-Identifier: MIT
#include "util/text.h"
#include "zan.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zan {
namespace {

// ---- IPv4

using Fields = std::array<int, 4>;

constexpr int too_large = 256; // and every larger number

constexpr bool is_byte(int field) {
    return field < too_large;
}

// Digits and exactly three dots.  An empty field ends the reading: it and the
// fields after it are 0, so that "1.2.3." is 1.2.3.0 and "1..2.3" is 1.0.0.0.
std::optional<Fields> dotted_fields(std::string_view text) {
    Fields fields{};
    std::size_t dots = 0;
    bool empty = true;
    bool reading = true;
    for (const char c : text) {
        if (is_digit(c)) {
            empty = false;
            if (reading)
                fields[dots] = std::min(fields[dots] * 10 + (c - '0'), too_large);
        } else if (c == '.' && dots + 1 < fields.size()) {
            ++dots;
            reading = reading && !empty;
            empty = true;
        } else {
            return {};
        }
    }
    if (dots + 1 < fields.size())
        return {};
    return fields;
}

std::optional<Fields> ipv4_fields(std::string_view text) {
    const std::optional<Fields> fields = dotted_fields(text);
    if (!fields || !std::all_of(fields->begin(), fields->end(), is_byte))
        return {};
    return fields;
}

bool is_ipv4(std::string_view text) {
    return ipv4_fields(text).has_value();
}

// A unicast address that a host can have: neither network 0, loopback, multicast
// nor reserved, and with a host part other than 0 and 255.
bool is_host_ipv4(std::string_view text) {
    const std::optional<Fields> fields = ipv4_fields(text);
    if (!fields)
        return false;
    const int network = fields->front();
    const int host = fields->back();
    return network >= 1 && network <= 223 && network != 127 && host >= 1 && host <= 254;
}

bool is_mask(std::string_view text) {
    const std::optional<Fields> fields = ipv4_fields(text);
    if (!fields)
        return false;
    uint32_t mask = 0;
    for (const int field : *fields)
        mask = mask << 8 | static_cast<uint32_t>(field);
    // Ones, then zeros: adding one to the inverse carries through all of it.
    return (~mask & (~mask + 1)) == 0;
}

// ---- MAC addresses

constexpr std::size_t mac_size = 6;
constexpr std::size_t mac_text_size = 17;

using Mac = std::array<unsigned char, mac_size>;

constexpr int no_digit = -1;
constexpr char hex_digits[] = "0123456789abcdef";

constexpr int hex_digit(char c) {
    if (is_digit(c))
        return c - '0';
    const int letter = (c | 0x20) - 'a'; // of either case
    return letter >= 0 && letter < 6 ? letter + 10 : no_digit;
}

// What zan_strtoul makes of two characters in base 16: white space or a plus sign may
// stand in front, and white space alone is the empty number, 0.
constexpr int octet(char first, char second) {
    const int high = hex_digit(first);
    const int low = hex_digit(second);
    if (high != no_digit && low != no_digit)
        return high * 16 + low;
    if (is_space(first) && is_space(second))
        return 0;
    return is_space(first) || first == '+' ? low : no_digit;
}

std::optional<Mac> parse_mac(std::string_view text) {
    if (text.size() != mac_text_size)
        return {};
    Mac mac{};
    for (std::size_t i = 0; i < mac_size; ++i) {
        const int value = octet(text[3 * i], text[3 * i + 1]);
        if (value == no_digit || (i + 1 < mac_size && text[3 * i + 2] != ':'))
            return {};
        mac[i] = static_cast<unsigned char>(value);
    }
    return mac;
}

bool is_mac(std::string_view text) {
    return parse_mac(text).has_value();
}

// ---- Lists

constexpr std::size_t longest_entry = 128;

void trim_left(std::string_view &text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
}

void trim_right(std::string_view &text) {
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
}

// Every entry but the last is cut at its 128th character and trimmed.
template<typename IsValid> bool all_entries(const char *text, IsValid is_valid) {
    if (text == nullptr || *text == '\0')
        return true;
    std::string_view rest = text;
    for (;;) {
        trim_left(rest);
        const std::size_t comma = rest.find(',');
        if (comma == std::string_view::npos)
            return is_valid(rest);
        std::string_view entry(rest.data(), std::min(comma, longest_entry));
        trim_right(entry);
        if (!is_valid(entry))
            return false;
        rest.remove_prefix(comma + 1);
    }
}

} // namespace
} // namespace zan

using namespace zan;

int zan_is_valid_ipv4(const char *text) {
    return text != nullptr && is_host_ipv4(text);
}

int zan_valid_ipv4_check(const char *text) {
    return text != nullptr && is_ipv4(text);
}

int zan_is_valid_ipv4_mask(const char *text) {
    return text != nullptr && is_mask(text);
}

int zan_is_valid_ipv4_list(const char *text) {
    return all_entries(text, is_host_ipv4);
}

int zan_is_valid_ipv4_mask_list(const char *text) {
    return all_entries(text, is_mask);
}

int zan_is_valid_macaddr(const char *text) {
    return text != nullptr && is_mac(text);
}

int zan_is_valid_mac_list(const char *text) {
    return all_entries(text, is_mac);
}

int zan_macstr_to_num(const char *text, unsigned char *mac) {
    if (text == nullptr || mac == nullptr)
        return -1;
    const std::optional<Mac> parsed = parse_mac(text);
    if (!parsed)
        return -1;
    std::copy(parsed->begin(), parsed->end(), mac);
    return 0;
}

int zan_macnum_to_str(const unsigned char *mac, char *text) {
    if (mac == nullptr || text == nullptr)
        return -1;
    for (std::size_t i = 0; i < mac_size; ++i) {
        *text++ = hex_digits[mac[i] >> 4];
        *text++ = hex_digits[mac[i] & 15];
        *text++ = i + 1 < mac_size ? ':' : '\0';
    }
    return 0;
}
