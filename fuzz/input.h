// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zan::fuzz {

// Takes an input apart from the front; when it is used up there are zeros.
class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }

    int byte() { return empty() ? 0 : *at_++; }

    // As many bytes, or those that are left.
    std::string bytes(std::size_t most) {
        const std::size_t size = std::min(most, static_cast<std::size_t>(end_ - at_));
        std::string result(reinterpret_cast<const char *>(at_), size);
        at_ += size;
        return result;
    }

    // Up to the next NUL or the end.
    std::string text() {
        std::string result;
        for (int c = byte(); c != 0; c = byte())
            result += static_cast<char>(c);
        return result;
    }

private:
    const std::uint8_t *at_;
    const std::uint8_t *end_;
};

// A copy of which the sanitizer knows both ends.
class Block {
public:
    explicit Block(const std::string &text) : bytes_(new char[text.size() + 1]) {
        text.copy(bytes_, text.size());
        bytes_[text.size()] = '\0';
    }
    ~Block() { delete[] bytes_; }
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;

    const char *get() const { return bytes_; }

private:
    char *bytes_;
};

} // namespace zan::fuzz
