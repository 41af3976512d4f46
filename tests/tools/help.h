// SPDX-License-Identifier: MIT
//
// What the programs say of themselves, for what must say the same.
#pragma once

#include <string>
#include <vector>

namespace zan::test {

// A program, or a command of it, by its --help.
struct Help {
    std::vector<std::string> words; // of the command; none for the program
    std::string text;

    bool is_group() const;
    // As they are typed: "--name", and "-f" where there is no longer form.
    std::vector<std::string> options() const;
    // The words that it lists: commands of a group, kinds of event messages.
    std::vector<std::string> listed() const;

    std::string name() const;
};

Help help_of(const std::vector<std::string> &program, const std::vector<std::string> &words = {});

// Of zanctl itself, of its groups and of its commands.
std::vector<Help> help_of_zanctl();

} // namespace zan::test
