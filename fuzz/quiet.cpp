// SPDX-License-Identifier: MIT
#include <cstdio>

// Diagnostics by the million would cost more than what is fuzzed.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    return std::freopen("/dev/null", "w", stdout) != nullptr ? 0 : 1;
}

// Millions of blocks come and go: short stacks and a small quarantine for them.
extern "C" const char *__asan_default_options() {
    return "malloc_context_size=3:quarantine_size_mb=8";
}
