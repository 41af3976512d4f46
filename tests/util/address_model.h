// SPDX-License-Identifier: MIT
// What the address validators shall answer, written down a second time and without
// regard to speed: with the C library's scanner and tokenizer, on copies.
#pragma once

#include <zan.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace zan::test::model {

struct Dotted {
    bool well_formed;
    std::array<long long, 4> field;
};

// As "%d.%d.%d.%d" is scanned, but for numbers of any length.
inline Dotted dotted(const std::string &text) {
    Dotted result{};
    result.well_formed = text.find_first_not_of("0123456789.") == std::string::npos &&
                         std::count(text.begin(), text.end(), '.') == 3;
    const char *at = text.c_str();
    for (long long &field : result.field) {
        char *end = nullptr;
        field = std::strtoll(at, &end, 10);
        if (end == at || *end == '\0')
            break;
        at = end + 1;
    }
    return result;
}

inline bool is_ipv4(const std::string &text) {
    const auto [well_formed, field] = dotted(text);
    return well_formed && field[0] < 256 && field[1] < 256 && field[2] < 256 && field[3] < 256;
}

inline bool is_host(const std::string &text) {
    const auto [well_formed, field] = dotted(text);
    return well_formed && field[0] > 0 && field[0] < 224 && field[0] != 127 && field[1] < 256 &&
           field[2] < 256 && field[3] > 0 && field[3] < 255;
}

inline bool is_mask(const std::string &text) {
    if (!is_ipv4(text))
        return false;
    const std::array<long long, 4> field = dotted(text).field;
    const auto *const first =
        std::find_if(field.begin(), field.end(), [](long long f) { return f != 255; });
    if (first == field.end())
        return true;
    constexpr long long partial[] = {0, 128, 192, 224, 240, 248, 252, 254};
    return std::find(std::begin(partial), std::end(partial), *first) != std::end(partial) &&
           std::all_of(first + 1, field.end(), [](long long f) { return f == 0; });
}

inline bool is_mac(const std::string &text) {
    if (text.size() != 17)
        return false;
    std::string copy = text;
    char *rest = nullptr;
    int parts = 0;
    for (char *part = strtok_r(copy.data(), ":", &rest); part != nullptr;
         part = strtok_r(nullptr, ":", &rest), ++parts) {
        std::uint32_t value = 0;
        if (std::strlen(part) != 2 || zan_strtoul(part, nullptr, 16, &value) != 0)
            return false;
    }
    return parts == 6;
}

inline bool all_entries(const std::string &text, bool (*is_valid)(const std::string &)) {
    if (text.empty())
        return true;
    std::string copy = text;
    for (char *entry = copy.data();;) {
        entry = zan_triml(entry);
        char *const comma = std::strchr(entry, ',');
        if (comma == nullptr)
            return is_valid(entry);
        std::string scratch(entry,
                            std::min<std::size_t>(static_cast<std::size_t>(comma - entry), 128));
        if (!is_valid(zan_trimr(scratch.data())))
            return false;
        entry = comma + 1;
    }
}

} // namespace zan::test::model
