// SPDX-License-Identifier: MIT
#ifndef ZAN_UTIL_NUMBER_H
#define ZAN_UTIL_NUMBER_H

namespace zan {

// The decimal integer a text begins with, 0 when it begins with none.  Limited
// to 32 bits: a 64-bit workstation reads every text as the target does.
int to_int(const char *text);

} // namespace zan

#endif
