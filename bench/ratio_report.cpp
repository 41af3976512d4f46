// SPDX-License-Identifier: MIT
#include "ratio_report.h"

#include <algorithm>
#include <cstdio>
#include <sched.h>

namespace zan::bench {
namespace {

double quantile(std::vector<double> values, double q) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double position = q * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(position);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    const double weight = position - static_cast<double>(below);
    return values[below] * (1 - weight) + values[above] * weight;
}

std::vector<double> ratios(const std::vector<double> &times, const std::vector<double> &floor) {
    std::vector<double> result;
    for (std::size_t i = 0; i < std::min(times.size(), floor.size()); ++i)
        result.push_back(times[i] / floor[i]);
    return result;
}

// "32", or "WORDS 32".
std::pair<std::string, long> by_size(const std::string &size) {
    const std::size_t digits = size.find_last_not_of("0123456789") + 1;
    return {size.substr(0, digits), std::stol(size.substr(digits))};
}

} // namespace

bool RatioReporter::ReportContext(const Context &) {
    std::printf("%-26s %-26s %10s %8s %17s %7s\n", "size", "what", "median ns", "ratio",
                "quartiles of runs", "runs");
    return true;
}

// Benchmarks are named WHAT/SIZE, where one run has several kinds WHAT/KIND SIZE.
void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred)
            continue;
        const std::string &name = run.run_name.function_name;
        const std::size_t slash = name.rfind('/');
        const std::string what = name.substr(0, slash);
        const std::string size = name.substr(slash + 1);
        if (names_.find(size) == names_.end())
            sizes_.push_back(size);
        std::vector<std::string> &names = names_[size];
        if (std::find(names.begin(), names.end(), what) == names.end())
            names.push_back(what);
        const bool waits = run.run_name.time_type == "real_time";
        times_[{size, what}].push_back(waits ? run.GetAdjustedRealTime()
                                             : run.GetAdjustedCPUTime());
    }
}

void RatioReporter::Finalize() {
    std::sort(sizes_.begin(), sizes_.end(),
              [](const auto &a, const auto &b) { return by_size(a) < by_size(b); });
    for (const std::string &size : sizes_) {
        const Times &floor = times_[{size, floor_}];
        for (const std::string &what : names_[size]) {
            const Times &times = times_[{size, what}];
            const double median = quantile(times, 0.5);
            const std::vector<double> spread = ratios(times, floor);
            std::printf("%-26s %-26s %10.1f %8.3f %8.3f-%-8.3f %7zu\n", size.c_str(), what.c_str(),
                        median, median / quantile(floor, 0.5), quantile(spread, 0.25),
                        quantile(spread, 0.75), times.size());
        }
    }
}

int run_interleaved(int argc, char **argv, const std::string &floor) {
    std::vector<char *> arguments(argv, argv + argc);
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleave);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter(floor);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

void stay_on_one_cpu() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(0, &cpus);
    sched_setaffinity(0, sizeof cpus, &cpus);
}

} // namespace zan::bench
