// SPDX-License-Identifier: MIT
#include "util/number.h"

#include "util/text.h"
#include "zan.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace zan {
namespace {

// `convert` is strtol or strtoul, which on a 64-bit machine accept more than
// the 32 bits of the result.
template<typename Value, typename Convert>
int convert_whole(const char *text, char **end, int base, Value *value, Convert convert) {
    char *stop = const_cast<char *>(text);
    errno = 0;
    // Where the conversion stops is undefined for a base that it does not know.
    const bool base_known = base == 0 || (base >= 2 && base <= 36);
    const auto wide = base_known ? convert(text, &stop, base) : 0;
    const bool fits =
        wide >= std::numeric_limits<Value>::min() && wide <= std::numeric_limits<Value>::max();
    if (!base_known)
        errno = EINVAL;
    // A 32-bit conversion would have reported it.
    if (!fits)
        errno = ERANGE;
    // Some C libraries report EINVAL for a text without digits; the empty text
    // is a number here.
    const bool failed = errno != 0 && !(errno == EINVAL && *text == '\0');
    if (end != nullptr)
        *end = stop;
    const bool success = base_known && !failed && fits && *stop == '\0';
    *value = success ? static_cast<Value>(wide) : 0;
    return success ? 0 : -1;
}

// What the standard conversion gives where it has 32 bits, errno included.
template<typename Value, typename Wide> Value clamp_to_32_bits(Wide value) {
    const auto nearest = std::clamp<Wide>(value, std::numeric_limits<Value>::min(),
                                          std::numeric_limits<Value>::max());
    if (nearest != value)
        errno = ERANGE;
    return static_cast<Value>(nearest);
}

} // namespace

int to_int(const char *text) {
    return clamp_to_32_bits<std::int32_t>(std::strtol(text, nullptr, 10));
}

std::uint32_t to_uint32(const char *text, int base) {
    return clamp_to_32_bits<std::uint32_t>(std::strtoul(text, nullptr, base));
}

} // namespace zan

using namespace zan;

int zan_strtol(const char *text, char **end, int base, int32_t *value) {
    return convert_whole(text, end, base, value, std::strtol);
}

int zan_strtoul(const char *text, char **end, int base, uint32_t *value) {
    while (is_space(*text))
        ++text;
    // The standard conversion would wrap a negative number.
    if (*text == '-') {
        if (end != nullptr)
            *end = const_cast<char *>(text);
        *value = 0;
        return -1;
    }
    return convert_whole(text, end, base, value, std::strtoul);
}
