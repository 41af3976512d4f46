// SPDX-License-Identifier: MIT
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace zan::test {

// A text that can be neither written to nor read beyond: it ends with its page, and
// the next page is out of reach.
class ReadOnlyText {
public:
    explicit ReadOnlyText(const std::string &text)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          size_((text.size() / page_ + 2) * page_) {
        void *pages =
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED)
            std::abort();
        pages_ = static_cast<char *>(pages);
        text_ = pages_ + size_ - page_ - text.size() - 1;
        std::memcpy(text_, text.c_str(), text.size() + 1);
        mprotect(pages_, size_, PROT_READ);
        mprotect(pages_ + size_ - page_, page_, PROT_NONE);
    }
    ~ReadOnlyText() { munmap(pages_, size_); }
    ReadOnlyText(const ReadOnlyText &) = delete;
    ReadOnlyText &operator=(const ReadOnlyText &) = delete;

    const char *get() const { return text_; }

private:
    std::size_t page_;
    std::size_t size_;
    char *pages_ = nullptr;
    char *text_ = nullptr;
};

} // namespace zan::test
