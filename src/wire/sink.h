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

// Text with a terminator in storage of a fixed size.  What does not fit is dropped, but
// counted.
class BoundedText {
public:
    BoundedText(const BoundedText &) = delete;
    BoundedText &operator=(const BoundedText &) = delete;

    // Never inlined, because most payloads take several calls.
    [[gnu::noinline]] constexpr void append(const char *text, std::size_t size) {
        const std::size_t copied = std::min(size, max_ - length_);
        std::copy_n(text, copied, text_ + length_);
        length_ += copied;
        text_[length_] = '\0';
        counted_ += size;
    }

    constexpr const char *c_str() const { return text_; }
    constexpr std::string_view view() const { return {text_, length_}; }

    // The characters appended, stored or dropped.
    constexpr std::size_t counted() const { return counted_; }

protected:
    constexpr BoundedText(char *storage, std::size_t size) : text_(storage), max_(size - 1) {
        text_[0] = '\0';
    }
    constexpr ~BoundedText() = default;

private:
    char *text_;
    std::size_t max_;
    std::size_t length_ = 0;
    std::size_t counted_ = 0;
};

// Text of up to Size-1 characters.
template<std::size_t Size> class FixedText : public BoundedText {
public:
    // The storage is not cleared: that would cost more than formatting into it.
    constexpr FixedText() : BoundedText(storage_, Size) {} // NOLINT

private:
    char storage_[Size];
};

} // namespace zan::wire
