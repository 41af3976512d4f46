// SPDX-License-Identifier: MIT
#include "file_follower.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zan::ctl {

FileFollower::FileFollower(std::string path) : path_(std::move(path)) {
    open_file();
}

FileFollower::~FileFollower() {
    close_file();
}

void FileFollower::open_file() {
    // Never waits for the writer of a named pipe.
    file_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    offset_ = 0;
    if (file_ >= 0)
        fstat(file_, &opened_);
    else if (errno != ENOENT)
        throw std::system_error(errno, std::generic_category(), "cannot open " + path_);
}

void FileFollower::close_file() {
    if (file_ >= 0)
        close(file_);
    file_ = -1;
}

void FileFollower::take_lines() {
    std::size_t begin = 0;
    for (std::size_t end = unfinished_.find('\n'); end != std::string::npos;
         end = unfinished_.find('\n', begin)) {
        lines_.push_back(unfinished_.substr(begin, end - begin));
        begin = end + 1;
    }
    unfinished_.erase(0, begin);
}

bool FileFollower::read_more() {
    char block[65536];
    const ssize_t size = pread(file_, block, sizeof block, offset_);
    if (size < 0 && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "cannot read " + path_);
    if (size <= 0)
        return false;
    offset_ += size;
    unfinished_.append(block, static_cast<std::size_t>(size));
    take_lines();
    return true;
}

void FileFollower::start_over_when_cut() {
    struct stat now = {};
    if (fstat(file_, &now) == 0 && now.st_size < offset_) {
        offset_ = 0;
        unfinished_.clear();
    }
}

bool FileFollower::replaced() const {
    struct stat now = {};
    if (stat(path_.c_str(), &now) != 0)
        return false; // the new file does not exist yet
    return now.st_dev != opened_.st_dev || now.st_ino != opened_.st_ino;
}

void FileFollower::keep_last(std::size_t count) {
    while (file_ >= 0 && read_more()) {
        while (lines_.size() > count)
            lines_.pop_front();
    }
}

std::optional<std::string> FileFollower::next_line() {
    if (file_ < 0)
        open_file();
    // Checked before the last read: a file is complete by the time it is replaced.
    if (file_ >= 0 && lines_.empty()) {
        const bool leave = replaced();
        start_over_when_cut();
        while (lines_.empty() && read_more()) {
        }
        if (lines_.empty() && leave) {
            close_file();
            if (!unfinished_.empty())
                lines_.push_back(std::exchange(unfinished_, {}));
            else
                return next_line();
        }
    }
    if (lines_.empty())
        return std::nullopt;
    std::string line = std::move(lines_.front());
    lines_.pop_front();
    return line;
}

} // namespace zan::ctl
