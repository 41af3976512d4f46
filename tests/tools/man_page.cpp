// SPDX-License-Identifier: MIT
#include "man_page.h"

#include <cstddef>
#include <sstream>

namespace zan::test {

namespace {

// The words after a macro; quotation marks keep a word together.
std::vector<std::string> arguments_of(const std::string &line) {
    std::vector<std::string> arguments;
    bool quoted = false;
    bool inside = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            if (quoted)
                arguments.emplace_back();
            inside = quoted;
        } else if (c == ' ' && !quoted) {
            inside = false;
        } else {
            if (!inside)
                arguments.emplace_back();
            inside = true;
            arguments.back() += c;
        }
    }
    return arguments;
}

std::string without_escapes(const std::string &text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        const char escape = text[++i];
        if (escape == 'f')
            ++i; // the font
        else if (escape == '(')
            i += 2; // a special character
        else if (escape == '-')
            plain += '-';
    }
    return plain;
}

std::string plain_line(const std::string &line) {
    if (!line.starts_with('.'))
        return without_escapes(line);
    const std::size_t end = line.find(' ');
    if (end == std::string::npos)
        return "";
    // Those of one letter part their words, those of two alternate between two fonts.
    const bool alternating = end == 3;
    std::string plain;
    for (const std::string &argument : arguments_of(line.substr(end + 1)))
        plain += (alternating || plain.empty() ? "" : " ") + argument;
    return without_escapes(plain);
}

} // namespace

std::string man_section(const std::string &page, const std::string &name) {
    const std::string heading = "\n.SH " + name + "\n";
    const std::size_t begin = page.find(heading);
    if (begin == std::string::npos)
        return "";
    const std::size_t text = begin + heading.size();
    return page.substr(text, page.find("\n.SH ", text - 1) + 1 - text);
}

std::string plain_man_text(const std::string &text) {
    std::string plain;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        plain += plain_line(line) + "\n";
    return plain;
}

std::vector<ManEntry> man_entries(const std::string &section) {
    std::vector<ManEntry> entries;
    std::istringstream lines(section);
    bool tag_follows = false;
    for (std::string line; std::getline(lines, line);) {
        if (line == ".TP") {
            tag_follows = true;
            continue;
        }
        if (tag_follows)
            entries.push_back({plain_line(line), ""});
        tag_follows = false;
        if (!entries.empty())
            entries.back().text += plain_line(line) + "\n";
    }
    return entries;
}

} // namespace zan::test
