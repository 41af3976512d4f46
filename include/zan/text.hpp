// SPDX-License-Identifier: MIT
// Paths without format strings, and values to and from the text that the daemon stores.
#ifndef ZAN_TEXT_HPP
#define ZAN_TEXT_HPP

#include <zan.h>

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace zan {

// A configuration path: Path("/sys/user")[1] / "name" is "/sys/user:1/name".  Every call
// that takes a path takes one of these or any text.
class Path {
public:
    explicit Path(std::string_view text) : text_(text) {}

    // The element below.
    Path operator/(std::string_view element) const {
        Path below(*this);
        if (element.empty() || element.front() != '/')
            below.text_ += '/';
        below.text_ += element;
        return below;
    }
    // Instance `number` of a multi-instance object.
    Path operator[](unsigned number) const {
        Path instance(*this);
        instance.text_ += ':' + std::to_string(number);
        return instance;
    }

    const std::string &text() const { return text_; }
    operator std::string_view() const { return text_; }

private:
    std::string text_;
};

namespace detail {

// Nothing unless the whole text is one value of the type.  A bool is 0 or 1, or "false" or
// "true".
template<typename T> std::optional<T> from_text(std::string_view text) {
    if constexpr (std::is_same_v<T, std::string>) {
        return std::string(text);
    } else if constexpr (std::is_same_v<T, bool>) {
        if (text == "1" || text == "true")
            return true;
        if (text == "0" || text == "false")
            return false;
        return std::nullopt;
    } else {
        static_assert(std::is_integral_v<T> && !std::is_same_v<T, char>,
                      "get<T>: T is std::string, bool or an integer type");
        T value{};
        const char *end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, value);
        if (parsed.ec != std::errc{} || parsed.ptr != end)
            return std::nullopt;
        return value;
    }
}

template<typename T> std::string to_text(const T &value) {
    if constexpr (std::is_same_v<T, bool>)
        return value ? "1" : "0";
    else if constexpr (std::is_integral_v<T>)
        return std::to_string(value);
    else
        return std::string(std::string_view(value));
}

// An answer's text ends at its first NUL, as it does for the C interface.
inline std::string text_of(std::string data) {
    if (const std::size_t end = data.find('\0'); end != std::string::npos)
        data.resize(end);
    return data;
}

} // namespace detail
} // namespace zan

#endif
