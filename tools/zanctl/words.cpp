// SPDX-License-Identifier: MIT
#include "words.h"

namespace zan::ctl {

std::optional<std::vector<std::string>> split_words(std::string_view line) {
    std::vector<std::string> words;
    bool in_word = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool is_space = c == ' ' || c == '\t' || c == '\r';
        if (quote == '\0' && is_space) {
            in_word = false;
            continue;
        }
        if (!in_word && c == '#')
            break;
        if (!in_word)
            words.emplace_back();
        in_word = true;
        const bool escapes = c == '\\' && quote != '\'' && i + 1 < line.size();
        if (escapes && (quote == '\0' || line[i + 1] == '"' || line[i + 1] == '\\'))
            words.back() += line[++i];
        else if (c == quote)
            quote = '\0';
        else if (quote == '\0' && (c == '"' || c == '\''))
            quote = c;
        else
            words.back() += c;
    }
    if (quote != '\0')
        return std::nullopt;
    return words;
}

} // namespace zan::ctl
