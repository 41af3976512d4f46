// SPDX-License-Identifier: MIT
// What payloads are formatted into: a std::string, or a FixedText where there is
// no heap.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zan::wire {

template<typename T>
concept Sink = requires(T out, const char *text, std::size_t size) {
    out.append(text, size);
};

template<Sink Out> constexpr void append(Out &out, std::string_view text) {
    out.append(text.data(), text.size());
}

template<Sink Out> constexpr void append(Out &out, char character) {
    out.append(&character, 1);
}

// Text of up to Size-1 characters with a terminator.  The rest of a longer text is
// dropped, but counted.
template<std::size_t Size> class FixedText {
public:
    constexpr void append(const char *text, std::size_t size) {
        const std::size_t length = this->length();
        const std::size_t copied = std::min(size, Size - 1 - length);
        std::copy_n(text, copied, text_ + length);
        text_[length + copied] = '\0';
        counted_ += size;
    }

    constexpr const char *c_str() const { return text_; }
    constexpr std::string_view view() const { return {text_, length()}; }
    constexpr std::size_t length() const { return std::min(counted_, Size - 1); }

    // The characters appended, stored or dropped.
    constexpr std::size_t counted() const { return counted_; }

private:
    // The first append terminates it: clearing a buffer for each request costs more
    // than formatting into it.
    char text_[Size];
    std::size_t counted_ = 0;

public:
    constexpr FixedText() { // NOLINT(cppcoreguidelines-pro-type-member-init)
        text_[0] = '\0';
    }
};

} // namespace zan::wire
