// SPDX-License-Identifier: MIT
#pragma once

namespace zan {

// Sleeps the whole time, signals or not.
void pause_for_us(int microseconds);

} // namespace zan
