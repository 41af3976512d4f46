// SPDX-License-Identifier: MIT
//
// Fields written down a second time, byte by byte, and what readers make of them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace zan::test {

template<typename Number> std::string bytes_of(Number value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline std::string text_field(const std::string &text) {
    return bytes_of(static_cast<std::uint16_t>(text.size())) + text;
}

inline std::string int_field(std::int32_t value) {
    return bytes_of(std::uint16_t{4}) + bytes_of(value);
}

// The readers, on a block with as many bytes behind its room as they may read.
class FieldModel {
public:
    static constexpr std::size_t spare = 4;

    FieldModel(std::string block, int room) : block_(std::move(block)), room_(room) {}

    std::string get_string() {
        const std::string text = take();
        return cut(text, 1024, text.size() > 1024);
    }
    std::string get_string2(std::size_t size) {
        const std::string text = take();
        return cut(text, size - 1, text.size() > size);
    }
    std::int32_t get_int() {
        if (room_ < 2) {
            room_ = 0;
            return 0;
        }
        const int length = length_here();
        if (length != 4) {
            printed_ += "get int failed data len = " + std::to_string(length) +
                        ", buf len = " + std::to_string(room_) + "\n";
            room_ = 0;
            return 0;
        }
        std::int32_t value = 0;
        std::memcpy(&value, block_.data() + at_ + 2, sizeof value);
        at_ += 6;
        room_ -= 6;
        return value;
    }

    std::size_t at() const { return at_; }
    int room() const { return room_; }
    // A read that gave no field, as opposed to an empty one.
    bool failed() const { return failed_; }
    const std::string &printed() const { return printed_; }

private:
    int length_here() const {
        std::uint16_t length = 0;
        std::memcpy(&length, block_.data() + at_, sizeof length);
        return length;
    }
    std::string take() {
        failed_ = true;
        if (room_ < 2) {
            room_ = 0;
            return "";
        }
        const int length = length_here();
        if (room_ < length) {
            room_ = 0;
            printed_ +=
                "get string failed data len = " + std::to_string(length) + ", buf len = 0\n";
            return "";
        }
        failed_ = false;
        std::string text = block_.substr(at_ + 2, static_cast<std::size_t>(length));
        at_ += static_cast<std::size_t>(length) + 2;
        room_ -= length + 2;
        return text;
    }
    std::string cut(const std::string &text, std::size_t most, bool warned) {
        if (warned)
            printed_ += "### warning: get_string data len > 1024\n";
        return text.substr(0, most);
    }

    std::string block_;
    std::size_t at_ = 0;
    int room_;
    bool failed_ = false;
    std::string printed_;
};

} // namespace zan::test
