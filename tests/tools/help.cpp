// SPDX-License-Identifier: MIT
#include "help.h"

#include "zanctl.h"

#include <cstddef>
#include <sstream>

namespace zan::test {

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);)
        lines.push_back(line);
    return lines;
}

// The first word of an entry; empty for a line that is none.
std::string entry_of(const std::string &line) {
    if (!line.starts_with("  ") || line.size() < 3 || line[2] == ' ')
        return {};
    return line.substr(2, line.find(' ', 2) - 2);
}

void add_help_of_zanctl(const std::vector<std::string> &words, std::vector<Help> &all) {
    all.push_back(help_of(zanctl_command({}), words));
    const Help help = all.back();
    if (!help.is_group())
        return;
    for (const std::string &word : help.listed()) {
        std::vector<std::string> longer = words;
        longer.push_back(word);
        add_help_of_zanctl(longer, all);
    }
}

} // namespace

bool Help::is_group() const {
    return text.find(" SUBCOMMAND\n") != std::string::npos;
}

std::vector<std::string> Help::options() const {
    std::vector<std::string> found;
    for (const std::string &line : lines_of(text))
        if (const std::string entry = entry_of(line); entry.starts_with('-')) {
            const std::size_t longer = entry.find(",--");
            found.push_back(longer == std::string::npos ? entry : entry.substr(longer + 1));
        }
    return found;
}

std::vector<std::string> Help::listed() const {
    std::vector<std::string> found;
    for (const std::string &line : lines_of(text))
        if (const std::string entry = entry_of(line);
            !entry.empty() && entry.front() >= 'a' && entry.front() <= 'z')
            found.push_back(entry);
    return found;
}

std::string Help::name() const {
    std::string joined;
    for (const std::string &word : words)
        joined += (joined.empty() ? "" : " ") + word;
    return joined;
}

Help help_of(const std::vector<std::string> &program, const std::vector<std::string> &words) {
    std::vector<std::string> command = program;
    command.insert(command.end(), words.begin(), words.end());
    command.emplace_back("--help");
    Program run(command);
    EXPECT_EQ(run.wait(), 0) << run.error();
    EXPECT_EQ(run.error(), "");
    return {words, run.output()};
}

std::vector<Help> help_of_zanctl() {
    std::vector<Help> all;
    add_help_of_zanctl({}, all);
    return all;
}

} // namespace zan::test
