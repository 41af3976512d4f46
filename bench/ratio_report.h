// SPDX-License-Identifier: MIT
// Prints what each benchmark takes as a ratio to its floor: the benchmark of the
// same size named "raw", measured in the same interleaved run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace zan::bench {

class RatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(std::string floor) : floor_(std::move(floor)) {}

    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    using Times = std::vector<double>; // ns a call, one for each repetition

    std::string floor_;
    std::vector<std::string> sizes_;                        // in order of appearance
    std::map<std::string, std::vector<std::string>> names_; // per size, in order
    std::map<std::pair<std::string, std::string>, Times> times_;
};

// Runs all registered benchmarks with their repetitions interleaved at random,
// so that a slow moment of the machine hits all of them alike.
int run_interleaved(int argc, char **argv, const std::string &floor);

// Both sides of a round trip on one CPU: free to move, they are measured now
// with and now without a migration, which tells nothing.
void stay_on_one_cpu();

} // namespace zan::bench
