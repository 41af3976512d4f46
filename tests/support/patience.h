// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <thread>

namespace zan::test {

// How long any test waits for something that must happen before it fails: long
// enough for an emulated target on a loaded machine, below the limit of CTest.
inline constexpr std::chrono::seconds patience{30};

// Waits until condition() holds: whether it did.
template<typename Condition> bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace zan::test
