// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace zan::test {

// The text under a tag of a list.
struct ManEntry {
    std::string tag;
    std::string text; // the tag included
};

// The text of a section of a page, without its heading; empty when there is none.
std::string man_section(const std::string &page, const std::string &name);

// The text without what makes it bold or italic, and without the macros that do.
std::string plain_man_text(const std::string &text);

// The entries of the tagged lists of a section.
std::vector<ManEntry> man_entries(const std::string &section);

} // namespace zan::test
