// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace zan::ctl {

// Hands out the lines of a file that grows, and of those that take its place: it need
// not exist yet, may be renamed and begun anew, or cut to nothing.
class FileFollower {
public:
    explicit FileFollower(std::string path);
    ~FileFollower();
    FileFollower(const FileFollower &) = delete;
    FileFollower &operator=(const FileFollower &) = delete;

    bool exists() const { return file_ >= 0; }

    // Of what is there now, only the last `count` lines are still to come.
    void keep_last(std::size_t count);

    // The next line that is complete, or that a file ended with which has been
    // replaced; nothing when none is there yet.
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
