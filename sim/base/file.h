// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace zan::sim {

// Reads and writes whole files.  Error texts contain the file name.

Result<std::string> load_file(const std::string &file);

// Replaces the content of a file.  A reader, or the file system after a power failure,
// has either the old text or the new one.
Result<Done> write_atomically(const std::string &file, std::string_view text);

// The same for a name in an open directory.  False, with errno, on failure.
bool replace_in(int directory, const std::string &name, std::string_view text);

// Reads to the end.  False, with errno, on failure or if there are more than max_size
// bytes.
bool read_all(int fd, std::string &text, std::size_t max_size);

// A descriptor, closed with the object.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            reset();
            fd_ = other.release();
        }
        return *this;
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    void reset();

    int fd_;
};

} // namespace zan::sim
