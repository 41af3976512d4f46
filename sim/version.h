// SPDX-License-Identifier: MIT
#pragma once

#include <zan.h>

#define ZAN_SIM_TEXT(number) ZAN_SIM_TEXT_OF(number)
#define ZAN_SIM_TEXT_OF(number) #number

namespace zan::sim {

inline constexpr char zansim_version[] = ZAN_SIM_TEXT(ZAN_VERSION_MAJOR) "." ZAN_SIM_TEXT(
    ZAN_VERSION_MINOR) "." ZAN_SIM_TEXT(ZAN_VERSION_PATCH);

} // namespace zan::sim

#undef ZAN_SIM_TEXT
#undef ZAN_SIM_TEXT_OF
