// SPDX-License-Identifier: MIT
#ifndef ZAN_UTIL_NUMBER_H
#define ZAN_UTIL_NUMBER_H

#include <cstdint>

namespace zan {

// The decimal integer a text begins with, 0 when it begins with none.  Limited
// to 32 bits: a 64-bit workstation reads every text as the target does.
int to_int(const char *text);

// The same without a sign, in the base (0: by prefix).
std::uint32_t to_uint32(const char *text, int base);

} // namespace zan

#endif
