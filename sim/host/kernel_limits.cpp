// SPDX-License-Identifier: MIT
#include "host/kernel_limits.h"

#include <zan.h>

#include <algorithm>
#include <array>
#include <fstream>

namespace zan::sim {

namespace {

struct Limit {
    const char *name;
    const char *file;
    long needed;
    long raised;
};

// Twice the longest record: notifications fill only half of a queue.
constexpr std::array limits{
    Limit{"kernel.msgmax", "/proc/sys/kernel/msgmax", ZAN_BODY_SIZE, 65536},
    Limit{"kernel.msgmnb", "/proc/sys/kernel/msgmnb", 2L * ZAN_BODY_SIZE, 1048576},
};

long read_number(const char *file) {
    long number = -1;
    std::ifstream(file) >> number;
    return number;
}

bool write_number(const char *file, long number) {
    std::ofstream stream(file);
    stream << number << std::flush;
    return stream.good();
}

} // namespace

std::vector<std::string> raise_limits() {
    std::vector<std::string> lines;
    std::string advice;
    long longest = ZAN_BODY_SIZE;
    for (const Limit &limit : limits) {
        const long current = read_number(limit.file);
        if (current < 0 || current >= limit.needed)
            continue;
        if (write_number(limit.file, limit.raised)) {
            lines.push_back("raised " + std::string(limit.name) + " from " +
                            std::to_string(current) + " to " + std::to_string(limit.raised));
            continue;
        }
        longest = std::min(longest, current);
        advice += ' ' + std::string(limit.name) + '=' + std::to_string(limit.raised);
    }
    if (!advice.empty())
        lines.push_back("values above " + std::to_string(longest - ZAN_HEADER_SIZE) +
                        " bytes cannot pass: sysctl" + advice);
    return lines;
}

} // namespace zan::sim
