// SPDX-License-Identifier: MIT
//
// The pages of the programs, against what the programs say of themselves.
#include "help.h"
#include "man_page.h"
#include "zanctl.h"

#include "support/raw.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

namespace zan::test {
namespace {

using testing::UnorderedElementsAreArray;

std::string page(const std::string &name) {
    return read_file(ZAN_TEST_MAN "/" + name);
}

bool is_of_option(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-';
}

// Everything in a text that begins with a dash.
std::set<std::string> options_in(const std::string &text) {
    std::set<std::string> found;
    for (std::size_t at = text.find('-'); at != std::string::npos; at = text.find('-', at)) {
        const std::size_t begin = at;
        while (at < text.size() && is_of_option(text[at]))
            ++at;
        const std::string word = text.substr(begin, at - begin);
        const bool begins = begin == 0 || !is_of_option(text[begin - 1]);
        if (begins && std::isalpha(static_cast<unsigned char>(word.back())) != 0)
            found.insert(word);
    }
    return found;
}

std::set<std::string> options_in_tags(const std::string &section) {
    std::set<std::string> found;
    for (const ManEntry &entry : man_entries(section))
        found.merge(options_in(entry.tag));
    return found;
}

bool is_entry_of(const ManEntry &entry, const std::string &command) {
    return entry.tag == command || entry.tag.starts_with(command + " ");
}

// What the page says about a command.
std::string entry_text(const std::vector<ManEntry> &entries, const std::string &command) {
    for (const ManEntry &entry : entries)
        if (is_entry_of(entry, command))
            return entry.text;
    return "";
}

TEST(ManPageOfZanctl, HasAnEntryForEveryCommandAndNoOther) {
    const std::string text = page("zanctl.1");
    const std::string synopsis = plain_man_text(man_section(text, "SYNOPSIS"));
    const std::vector<ManEntry> entries = man_entries(man_section(text, "COMMANDS"));
    for (const CommandName &command : zanctl_commands) {
        const std::string name = Help{command.words, ""}.name();
        EXPECT_NE(entry_text(entries, name), "") << name;
        for (const std::string &word : command.words)
            EXPECT_THAT(synopsis, testing::ContainsRegex("(^|[ |\n])" + word + "[ |\n]")) << word;
    }
    EXPECT_EQ(entries.size(), zanctl_commands.size());
}

TEST(ManPageOfZanctl, HasEveryOptionAndNoOther) {
    const std::string text = page("zanctl.1");
    const std::vector<ManEntry> entries = man_entries(man_section(text, "COMMANDS"));
    const std::set<std::string> described = options_in_tags(man_section(text, "OPTIONS"));
    std::set<std::string> known;
    for (const Help &help : help_of_zanctl()) {
        const std::set<std::string> told = options_in(entry_text(entries, help.name()));
        for (const std::string &option : help.options()) {
            known.insert(option);
            EXPECT_TRUE(described.contains(option) || told.contains(option))
                << help.name() << " " << option;
        }
    }
    for (const std::string &option : described)
        EXPECT_TRUE(known.contains(option)) << option;
    for (const std::string &option : options_in_tags(man_section(text, "COMMANDS")))
        EXPECT_TRUE(known.contains(option)) << option;
}

TEST(ManPageOfZanctl, HasEveryKindOfEventMessagesWithItsMembers) {
    const std::string text = plain_man_text(man_section(page("zanctl.1"), "COMMANDS"));
    const Help help = help_of(zanctl_command({}), {"event", "encode"});
    const std::vector<std::string> kinds = help.listed();
    EXPECT_GT(kinds.size(), 5U);
    for (const std::string &kind : kinds) {
        std::string line = help.text.substr(help.text.find("\n  " + kind + " ") + 3);
        line.resize(line.find('\n'));
        const std::string members = line.substr(line.find_first_not_of(' ', kind.size()));
        EXPECT_NE(text.find("\n" + kind + "\t" + members + "\n"), std::string::npos) << kind;
    }
}

TEST(ManPageOfZansim, HasEveryOptionAndNoOther) {
    const std::string text = page("zansim.1");
    const std::vector<std::string> options = help_of({ZAN_TEST_ZANSIM}).options();
    EXPECT_GT(options.size(), 5U);
    EXPECT_THAT(options_in_tags(man_section(text, "OPTIONS")), UnorderedElementsAreArray(options));
    EXPECT_THAT(options_in(plain_man_text(man_section(text, "SYNOPSIS"))),
                UnorderedElementsAreArray(options));
}

} // namespace
} // namespace zan::test
