// SPDX-License-Identifier: MIT
//
// Fields follow each other at any address: numbers are copied, because they may be
// unaligned.
#include "zan.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

namespace zan {
namespace {

using Length = std::uint16_t;

constexpr int length_size = sizeof(Length);
constexpr int int_field_size = length_size + int{sizeof(std::int32_t)};
constexpr std::size_t text_bound = 1024;

// What the readers return stays until the next call of the same reader.
struct KeptText {
    char text[text_bound + 1];
};
constinit KeptText kept_text{};
constinit KeptText kept_text2{};

// The place and the room that the caller counts along with every field.
class Cursor {
public:
    Cursor(char **pos, int *room) : pos_(pos), room_(room) {}

    bool has(std::size_t size) const {
        return pos_ != nullptr && *pos_ != nullptr && room_ != nullptr && *room_ >= 0 &&
               static_cast<std::size_t>(*room_) >= size;
    }
    int room() const { return *room_; }
    char *at(int offset) const { return *pos_ + offset; }

    template<typename Number> Number number(int offset) const {
        Number value;
        std::memcpy(&value, at(offset), sizeof value);
        return value;
    }
    template<typename Number> void put_number(int offset, Number value) const {
        std::memcpy(at(offset), &value, sizeof value);
    }

    // Readers may go past the room: it becomes negative then.
    int advance(int size) const {
        *pos_ += size;
        *room_ -= size;
        return size;
    }
    // Every later read fails as well.
    void give_up() const {
        if (room_ != nullptr)
            *room_ = 0;
    }

private:
    char **pos_;
    int *room_;
};

void copy_ended(char *dst, std::string_view text) {
    std::memmove(dst, text.data(), text.size());
    dst[text.size()] = '\0';
}

// Names this bound whatever the size that the text was cut to.
void warn_of_cut() {
    std::printf("### warning: get_string data len > %d\n", static_cast<int>(text_bound));
}

std::optional<std::string_view> take_text(const Cursor &cursor) {
    if (!cursor.has(length_size)) {
        cursor.give_up();
        return std::nullopt;
    }
    const auto length = cursor.number<Length>(0);
    // A field may reach past the room by the size of its length.
    if (!cursor.has(length)) {
        cursor.give_up();
        std::printf("get string failed data len = %d, buf len = %d\n", length, cursor.room());
        return std::nullopt;
    }
    const std::string_view text(cursor.at(length_size), length);
    cursor.advance(length_size + length);
    return text;
}

char *keep(KeptText &kept, std::string_view text) {
    if (text.size() > text_bound) {
        warn_of_cut();
        text.remove_suffix(text.size() - text_bound);
    }
    copy_ended(kept.text, text);
    return kept.text;
}

} // namespace
} // namespace zan

using namespace zan;

int fill_string(char **pos, int *room, const char *text) {
    const Cursor cursor(pos, room);
    const std::size_t length = text != nullptr ? std::strlen(text) : 0;
    if (length > std::numeric_limits<Length>::max() || !cursor.has(length_size + length)) {
        std::printf("fill string = %s failed\n", text != nullptr ? text : "(null)");
        return 0;
    }
    cursor.put_number(0, static_cast<Length>(length));
    if (text != nullptr)
        copy_ended(cursor.at(length_size), {text, length});
    return cursor.advance(length_size + static_cast<int>(length));
}

int fill_int(char **pos, int *room, int value) {
    const Cursor cursor(pos, room);
    if (!cursor.has(int_field_size)) {
        std::printf("fill int = %d failed\n", value);
        return 0;
    }
    cursor.put_number(0, Length{sizeof(std::int32_t)});
    cursor.put_number(length_size, std::int32_t{value});
    return cursor.advance(int_field_size);
}

char *get_string(char **pos, int *room) {
    kept_text.text[0] = '\0';
    const auto text = take_text(Cursor(pos, room));
    return text ? keep(kept_text, *text) : kept_text.text;
}

char *get_string2(char **pos, int *room, char *dst, int size) {
    kept_text2.text[0] = '\0';
    auto text = take_text(Cursor(pos, room));
    if (!text)
        return kept_text2.text;
    if (dst == nullptr || size <= 0)
        return keep(kept_text2, *text);
    const auto bound = static_cast<std::size_t>(size);
    if (bound < text->size())
        warn_of_cut();
    // A text of exactly this size gives way to its NUL, without a warning.
    copy_ended(dst, {text->data(), std::min(text->size(), bound - 1)});
    return dst;
}

int get_int(char **pos, int *room) {
    const Cursor cursor(pos, room);
    if (!cursor.has(length_size)) {
        cursor.give_up();
        return 0;
    }
    const auto length = cursor.number<Length>(0);
    if (length != sizeof(std::int32_t)) {
        std::printf("get int failed data len = %d, buf len = %d\n", length, cursor.room());
        cursor.give_up();
        return 0;
    }
    // The room is not asked whether it has the value.
    const auto value = cursor.number<std::int32_t>(length_size);
    cursor.advance(int_field_size);
    return value;
}
