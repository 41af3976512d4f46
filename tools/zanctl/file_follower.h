// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace zan::ctl {

// Reads the lines of a growing file as they are written, and of the files that replace it.
// The file may not exist yet, and it may be rotated or truncated.
class FileFollower {
public:
    explicit FileFollower(std::string path);
    ~FileFollower();
    FileFollower(const FileFollower &) = delete;
    FileFollower &operator=(const FileFollower &) = delete;

    bool exists() const { return file_ >= 0; }

    // Skips the present lines except the last `count`.
    void keep_last(std::size_t count);

    // The next complete line, or the incomplete last line of a file that was replaced.
    // Nothing if there is none yet.
    std::optional<std::string> next_line();

private:
    void open_file();
    void close_file();
    bool read_more();
    void start_over_when_cut();
    bool replaced() const;
    void take_lines();

    std::string path_;
    int file_ = -1;
    struct stat opened_ = {};
    off_t offset_ = 0;
    std::string unfinished_;
    std::deque<std::string> lines_;
};

} // namespace zan::ctl
