// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zan::test {

struct ProgramOptions {
    // Set in the environment, in the place of what is inherited.
    std::vector<std::pair<std::string, std::string>> env = {};
    // Given as standard input, which then ends; keep_stdin leaves it open for write().
    std::string input = {};
    bool keep_stdin = false;
    // The program belongs to this machine, not to the target: no emulator.
    bool host = false;
    // It starts with all signals blocked, else with none.
    bool block_signals = false;
};

// A program started with its standard streams caught; through the emulator when
// the tests are built for another machine.
class Program {
public:
    explicit Program(const std::vector<std::string> &command, const ProgramOptions &options = {});
    // Kills what still runs.
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    void write(const std::string &text);
    void close_stdin();

    // Reads until standard output (or standard error) holds the text: whether it did
    // before the program closed it or the patience of a test was over.
    bool read_until(const std::string &text);
    bool read_error_until(const std::string &text);

    // Waits for the end, reading everything: the exit status, 128 plus the number of
    // the signal that ended it, or -1 when it did not end in time.
    int wait();
    // Whether it has not ended yet.
    bool running();

    // What has been read so far; everything after wait().
    const std::string &output() const { return output_; }
    const std::string &error() const { return error_; }

private:
    template<typename Condition> bool read_while(Condition condition);
    bool read_some(int timeout_ms);
    bool reap(int flags);

    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
    std::string output_;
    std::string error_;
    std::optional<int> status_;
};

} // namespace zan::test
