// SPDX-License-Identifier: MIT
#include "support/sandbox.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace zan::test {

namespace {

long kernel_setting(const char *name) {
    std::ifstream file(std::string("/proc/sys/kernel/") + name);
    long value = 0;
    file >> value;
    return value;
}

std::string too_small(const char *name, long needed) {
    const long value = kernel_setting(name);
    if (value >= needed)
        return {};
    return "kernel." + std::string(name) + " is " + std::to_string(value) + ", the test needs " +
           std::to_string(needed);
}

} // namespace

std::string why_no_long_records() {
    const std::string reason = too_small("msgmax", 35100);
    return reason.empty() ? too_small("msgmnb", 4 * 35100) : reason;
}

std::string why_no_private_sandbox() {
    const char *const kind = std::getenv("ZAN_SANDBOX");
    if (kind != nullptr && std::string(kind) == "private")
        return {};
    return "no namespaces of its own (ZAN_SANDBOX is " +
           std::string(kind == nullptr ? "not set" : kind) + ")";
}

std::string why_no_root() {
    return geteuid() == 0 ? "" : "needs root inside its namespaces";
}

std::string why_no_host_programs() {
    return std::getenv("ZAN_ON_BOARD") == nullptr ? "" : "runs a program of the building machine";
}

} // namespace zan::test
