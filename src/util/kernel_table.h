// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdio>

namespace zan {

// A text table of the kernel, open for as long as the object lives.
class KernelTable {
public:
    explicit KernelTable(const char *path) : file_(std::fopen(path, "re")) {}
    ~KernelTable() {
        if (file_ != nullptr)
            std::fclose(file_);
    }
    KernelTable(const KernelTable &) = delete;
    KernelTable &operator=(const KernelTable &) = delete;

    bool valid() const { return file_ != nullptr; }

    // Reads the next line with its newline.  A longer line comes in pieces, each as a line.
    template<std::size_t size> bool read_line(char (&line)[size]) {
        return std::fgets(line, static_cast<int>(size), file_) != nullptr;
    }

private:
    std::FILE *file_;
};

} // namespace zan
