// SPDX-License-Identifier: MIT
#ifndef ZAN_UTIL_PAUSE_H
#define ZAN_UTIL_PAUSE_H

namespace zan {

// Sleeps the whole time, signals or not.
void pause_for_us(int microseconds);

} // namespace zan

#endif
