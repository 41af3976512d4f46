// SPDX-License-Identifier: MIT
// Ownership of malloc blocks: operator new would need a C++ runtime.
#pragma once

#include <cstdlib>
#include <memory>

namespace zan {

struct Free {
    void operator()(void *block) const { std::free(block); }
};

using HeapText = std::unique_ptr<char, Free>;

} // namespace zan
