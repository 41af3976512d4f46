// SPDX-License-Identifier: MIT
#pragma once

#include <iterator>
#include <random>

namespace zan::test {

// The same numbers in every run and on every machine.
class Random {
public:
    // 0 to count - 1.
    unsigned below(unsigned count) { return static_cast<unsigned>(engine_()) % count; }

    template<typename Container> const auto &one_of(const Container &container) {
        return std::data(container)[below(static_cast<unsigned>(std::size(container)))];
    }

private:
    std::mt19937 engine_{20};
};

} // namespace zan::test
