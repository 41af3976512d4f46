// SPDX-License-Identifier: MIT
#include "zan.h"

#include <cctype>
#include <cstdint>

namespace zan {
namespace {

constexpr std::uint32_t fnv_offset_basis = 0x811C9DC5;
constexpr std::uint32_t fnv_prime = 16777619;

// Bytes from 128 up count as negative numbers, which tolower() does not take.
int lowered(char c) {
    const auto value = static_cast<signed char>(c);
    return value < 0 ? value : std::tolower(value);
}

} // namespace
} // namespace zan

using namespace zan;

uint32_t fnv1_hash(const char *text, int modulus) {
    std::uint32_t hash = fnv_offset_basis;
    for (const char *at = text; at != nullptr && *at != '\0'; ++at)
        hash = (hash * fnv_prime) ^ static_cast<std::uint32_t>(lowered(*at));
    hash &= 0x7FFFFFFF;
    return modulus > 0 ? hash % static_cast<std::uint32_t>(modulus) : hash;
}
