// SPDX-License-Identifier: MIT
#pragma once

#include "wire/scan.h"

#include <cstdint>

namespace zan {

// The decimal integer a text begins with, 0 when it begins with none.  Limited
// to 32 bits: a 64-bit workstation reads every text as the target does.
int to_int(const char *text);

// The same without a sign, in the base (0: by prefix).
std::uint32_t to_uint32(const char *text, int base);

using wire::take_int;

} // namespace zan
