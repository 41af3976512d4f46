// SPDX-License-Identifier: MIT
#include "support/threads.h"

#include "support/patience.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <system_error>

namespace zan::test {

namespace {

std::string task_file(pid_t thread, const char *name) {
    return "/proc/self/task/" + std::to_string(thread) + "/" + name;
}

// What the kernel says about one thread; `switches` changes whenever it has run.
struct Sighting {
    bool asleep = false;
    std::string switches = {};

    bool operator==(const Sighting &) const = default;
};

Sighting sight(pid_t thread) {
    Sighting sighting;
    std::ifstream file(task_file(thread, "status"));
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("State:"))
            sighting.asleep = line.find('S', 6) != std::string::npos;
        else if (line.find("_ctxt_switches:") != std::string::npos)
            sighting.switches += line;
    }
    return sighting;
}

using Sightings = std::map<pid_t, Sighting>;

Sightings sight_other_threads() {
    Sightings sightings;
    std::error_code gone;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task", gone))
        if (const pid_t thread = std::stoi(entry.path().filename()); thread != gettid())
            sightings[thread] = sight(thread);
    return sightings;
}

// Under user-mode emulation the numbers are those of the machine that emulates, so
// each list holds the numbers of several architectures. None of them is the number
// of a call that blocks on another one.
bool is_timed_sleep(long call) {
    static constexpr std::array calls = {
        35L,   230L,         // x86-64: nanosleep, clock_nanosleep
        162L,  267L,  407L,  // i386, ARM: the same, and clock_nanosleep_time64
        101L,  115L,         // AArch64
        4166L, 4265L, 4407L, // 32-bit MIPS
    };
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

bool sleeps_for_a_time(pid_t thread) {
    std::ifstream file(task_file(thread, "syscall"));
    long call = -1; // also of a thread that runs
    file >> call;
    return is_timed_sleep(call);
}

} // namespace

bool is_blocked(pid_t thread) {
    const Sightings first = sight_other_threads();
    if (!first.contains(thread))
        return false;
    const bool all_asleep = std::all_of(first.begin(), first.end(),
                                        [](const auto &other) { return other.second.asleep; });
    // A thread that has not run between two sightings slept all the time, so there was
    // a moment at which all of them slept.
    return all_asleep && !sleeps_for_a_time(thread) && sight_other_threads() == first;
}

bool wait_until_blocked(pid_t thread) {
    return eventually([&] { return is_blocked(thread); });
}

} // namespace zan::test
