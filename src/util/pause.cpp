// SPDX-License-Identifier: MIT
#include "util/pause.h"

#include <cerrno>
#include <ctime>

namespace zan {

void pause_for_us(int microseconds) {
    timespec left{};
    left.tv_sec = microseconds / 1'000'000;
    left.tv_nsec = static_cast<long>(microseconds % 1'000'000) * 1000;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

} // namespace zan
