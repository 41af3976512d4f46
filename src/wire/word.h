// SPDX-License-Identifier: MIT
// 32-bit words of records, at any address and in either byte order.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zan::wire {

inline constexpr std::size_t word_size = sizeof(std::int32_t);

// The word that the bytes begin with, in host order; missing bytes read as zeros.
constexpr std::int32_t load_word(std::string_view bytes) {
    std::array<char, word_size> word{};
    std::copy_n(bytes.data(), std::min(bytes.size(), word_size), word.begin());
    return std::bit_cast<std::int32_t>(word);
}

constexpr std::array<char, word_size> store_word(std::int32_t value) {
    return std::bit_cast<std::array<char, word_size>>(value);
}

// Between host order and network order, in either direction.
constexpr std::int32_t convert_word(std::int32_t value) {
    if constexpr (std::endian::native == std::endian::little)
        return static_cast<std::int32_t>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
    return value;
}

} // namespace zan::wire
