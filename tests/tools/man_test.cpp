// SPDX-License-Identifier: MIT
#include "man_page.h"

#include "support/program.h"
#include "support/raw.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>

namespace zan::test {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> pages() {
    std::vector<fs::path> found;
    for (const auto &entry : fs::directory_iterator(ZAN_TEST_MAN))
        if (const fs::path extension = entry.path().extension();
            extension == ".1" || extension == ".3")
            found.push_back(entry.path());
    std::sort(found.begin(), found.end());
    return found;
}

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The identifier that ends at a position.
std::string word_before(const std::string &text, std::size_t end) {
    std::size_t begin = end;
    while (begin > 0 && is_word(text[begin - 1]))
        --begin;
    return text.substr(begin, end - begin);
}

bool has_word(const std::string &text, const std::string &word) {
    std::size_t at = text.find(word);
    while (at != std::string::npos) {
        const std::size_t end = at + word.size();
        if ((at == 0 || !is_word(text[at - 1])) && (end == text.size() || !is_word(text[end])))
            return true;
        at = text.find(word, end);
    }
    return false;
}

std::vector<std::string> lines_that_begin(const std::string &text, const std::string &beginning) {
    std::vector<std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(beginning))
            found.push_back(line);
    return found;
}

// A function's declaration begins on a line of its own.
std::vector<std::string> declared_functions() {
    std::vector<std::string> names;
    for (const std::string &line : lines_that_begin(read_file(ZAN_TEST_HEADER), "ZAN_API "))
        names.push_back(word_before(line, line.find('(')));
    return names;
}

// The pages that a page refers to, as in ".BR name (3)".
std::vector<std::string> references(const std::string &page) {
    std::vector<std::string> names;
    for (const std::string &line : lines_that_begin(page, ".BR ")) {
        const std::size_t end = line.find(" (");
        if (end != std::string::npos && end + 2 < line.size() && std::isdigit(line[end + 2]) != 0)
            names.push_back(line.substr(4, end - 4));
    }
    return names;
}

// The sections of that name of all pages.
std::string all_sections(const std::string &name) {
    std::string text;
    for (const fs::path &page : pages())
        text += man_section(read_file(page), name);
    return text;
}

TEST(ManPages, NameAndDeclareEveryFunctionOfTheHeader) {
    const std::string names = all_sections("NAME");
    const std::string synopses = all_sections("SYNOPSIS");
    const std::vector<std::string> functions = declared_functions();
    EXPECT_GT(functions.size(), 50U);
    for (const std::string &function : functions) {
        EXPECT_TRUE(has_word(names, function)) << function;
        EXPECT_TRUE(has_word(synopses, function)) << function;
    }
}

TEST(ManPages, ReferToNamesThatAPageHas) {
    const std::string names = all_sections("NAME");
    for (const fs::path &page : pages()) {
        for (const std::string &name : references(read_file(page))) {
            const bool ours = name.starts_with("zan") || name.starts_with("cfg_");
            EXPECT_TRUE(!ours || has_word(names, name)) << page << " refers to " << name;
        }
    }
}

TEST(ManPages, AreNamedByThatOfTheLibrary) {
    const fs::path overview = fs::path(ZAN_TEST_MAN) / "libzan.3";
    const std::vector<std::string> named = references(read_file(overview));
    for (const fs::path &page : pages())
        if (page.extension() == ".3" && page != overview) {
            EXPECT_THAT(named, testing::Contains(page.stem().string()));
        }
}

TEST(ManPages, AreWellFormed) {
    if (!fs::exists("/usr/bin/mandoc"))
        GTEST_SKIP() << "mandoc is not installed";
    for (const fs::path &page : pages()) {
        Program lint({"/usr/bin/mandoc", "-T", "lint", "-W", "warning", page}, {.host = true});
        EXPECT_EQ(lint.wait(), 0) << lint.output();
    }
}

} // namespace
} // namespace zan::test
