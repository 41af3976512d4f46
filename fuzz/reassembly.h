// SPDX-License-Identifier: MIT
#ifndef ZAN_FUZZ_REASSEMBLY_H
#define ZAN_FUZZ_REASSEMBLY_H

#include <cstddef>
#include <cstdint>

// One input for the reassembly of records; ends the process when it goes wrong.
// Under this name it is what libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

#endif
