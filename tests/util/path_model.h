// SPDX-License-Identifier: MIT
// What the path functions shall answer, written down a second time and without regard to
// speed: character by character with two modes and two scratch buffers, and elements cut
// into a list.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zan::test::model {

class Walk {
public:
    Walk(std::string a, std::string b, std::string separators, bool nocase)
        : a_{std::move(a)}, b_{std::move(b)}, separators_(std::move(separators)), nocase_(nocase) {}

    // False when the paths differ before either has ended.
    bool run() {
        while (a_.left() > 0 && b_.left() > 0)
            if (!(in_instance_ ? step_instance() : step_plain()))
                return false;
        return true;
    }

    bool instances_differ() const { return in_instance_ && differ(); }
    std::size_t left_of_a() const { return a_.left(); }
    std::size_t left_of_b() const { return b_.left(); }

private:
    struct Side {
        std::string text;
        std::size_t at = 0;
        bool open = false;
        std::string scratch = {};

        std::size_t left() const { return text.size() - at; }
        char current() const { return text[at]; }
    };

    bool separates(char c) const { return separators_.find(c) != std::string::npos; }

    bool step_plain() {
        const char a = a_.current();
        const char b = b_.current();
        const bool same = a == b || (separates(a) && separates(b)) ||
                          (nocase_ && std::tolower(static_cast<unsigned char>(a)) ==
                                          std::tolower(static_cast<unsigned char>(b)));
        if (!same)
            return false;
        if (a == ':' && b == ':')
            enter_instance();
        ++a_.at;
        ++b_.at;
        return true;
    }

    void enter_instance() {
        in_instance_ = a_.open = b_.open = true;
        a_.scratch.clear();
        b_.scratch.clear();
    }

    bool step_instance() {
        collect(a_);
        collect(b_);
        if (a_.open || b_.open)
            return true;
        in_instance_ = false;
        return !differ();
    }

    void collect(Side &side) {
        if (!side.open)
            return;
        if (separates(side.current())) {
            side.open = false;
            return;
        }
        if (side.scratch.size() < 31)
            side.scratch += side.current();
        ++side.at;
    }

    bool differ() const {
        return a_.scratch != b_.scratch && a_.scratch.substr(0, 1) != "#" &&
               b_.scratch.substr(0, 1) != "#";
    }

    Side a_;
    Side b_;
    std::string separators_;
    bool nocase_;
    bool in_instance_ = false;
};

inline int pathcmp(const std::string &a, const std::string &b, bool nocase) {
    Walk walk(a, b, "/", nocase);
    if (!walk.run() || walk.left_of_a() > 0 || walk.left_of_b() > 0)
        return 1;
    return walk.instances_differ() ? 1 : 0;
}

inline int pathpartcmp(std::string a, std::string b, int direction, bool nocase) {
    const auto leads = [](const std::string &text, const char *characters) {
        return !text.empty() && std::string(characters).find(text[0]) != std::string::npos;
    };
    const auto drop = [](std::string &text) { text.erase(0, 1); };
    if (direction == 0) {
        if (leads(a, "./"))
            drop(a);
        if (leads(b, "/") || leads(a, "."))
            drop(b);
    } else {
        if (leads(b, "/") || leads(a, "."))
            drop(b);
        if (leads(a, "./"))
            drop(a);
    }
    Walk walk(a, b, "./", nocase);
    if (!walk.run() || (direction == 0 ? walk.left_of_a() : walk.left_of_b()) > 0)
        return 1;
    return walk.instances_differ() ? 1 : 0;
}

inline bool is_digit(char c) {
    return std::string("0123456789").find(c) != std::string::npos;
}

inline int pathobjectcmp(const std::string &pattern, const std::string &path) {
    std::size_t at = 0;
    for (const char wanted : pattern) {
        if (at == path.size() || !(wanted == '#' ? is_digit(path[at]) : path[at] == wanted))
            return 1;
        ++at;
        while (wanted == '#' && at < path.size() && is_digit(path[at]))
            ++at;
    }
    std::string rest = path.substr(at);
    if (!rest.empty() && rest.front() == '/')
        rest.erase(0, 1);
    return rest.find('/') == std::string::npos ? 0 : 1;
}

// Every element with the separator that ends it.
inline std::vector<std::string> elements(const std::string &path) {
    std::vector<std::string> found(1);
    for (const char c : path) {
        found.back() += c;
        if (std::string("./:").find(c) != std::string::npos)
            found.emplace_back();
    }
    return found;
}

struct Extracted {
    enum Kind { null, no_range, text } kind;
    std::string value = {};
};

inline Extracted extract(std::string path, std::int64_t start, std::int64_t end) {
    const auto ends_element = [](char c) {
        return std::string("./:").find(c) != std::string::npos;
    };
    if (!path.empty() && path.front() == '/')
        path.erase(0, 1);
    if (end < start || (start < 0 ? end > 0 : end < 1))
        return {Extracted::no_range};
    if (start < 0) {
        if (path.empty())
            return {Extracted::null};
        if (ends_element(path.back()))
            path.pop_back();
    } else if (!path.empty() && ends_element(path.front())) {
        path.erase(0, 1);
    }
    const std::vector<std::string> found = elements(path);
    const auto count = static_cast<std::int64_t>(found.size());
    std::int64_t first = start;
    std::int64_t last = std::min(end, count);
    if (start < 0) {
        first = std::max<std::int64_t>(count + start, 0);
        last = count + end;
    }
    if (first >= count || last < 0)
        return {Extracted::no_range};
    Extracted result{Extracted::text};
    for (std::int64_t i = first; i < last; ++i)
        result.value += found[static_cast<std::size_t>(i)];
    return result;
}

inline std::vector<std::int32_t> instances(const std::string &path) {
    std::vector<std::int32_t> found;
    for (std::size_t at = 1; at < path.size() && found.size() < 30; ++at) {
        if (path[at] != '.' && path[at] != ':')
            continue;
        std::int64_t number = 0;
        for (std::size_t i = at + 1; i < path.size() && is_digit(path[i]); ++i)
            number = std::min<std::int64_t>(number * 10 + (path[i] - '0'), INT32_MAX);
        if (number != 0)
            found.push_back(static_cast<std::int32_t>(number));
    }
    return found;
}

} // namespace zan::test::model
