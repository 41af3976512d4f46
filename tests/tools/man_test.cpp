// SPDX-License-Identifier: MIT
#include "man_page.h"

#include "support/program.h"
#include "support/raw.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
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

struct Reference {
    std::string name;
    char section;
};

// The pages that a page refers to, as in ".BR name (3)".
std::vector<Reference> references(const std::string &page) {
    std::vector<Reference> found;
    for (const std::string &line : lines_that_begin(page, ".BR ")) {
        const std::size_t end = line.find(" (");
        if (end != std::string::npos && end + 2 < line.size() && std::isdigit(line[end + 2]) != 0)
            found.push_back({line.substr(4, end - 4), line[end + 2]});
    }
    return found;
}

// Pages of the system.
constexpr const char *system_pages[] = {
    "msgctl(2)",  "msgget(2)",  "msgop(2)",    "close(2)",  "fclose(3)",    "fnmatch(3)",
    "fopen(3)",   "free(3)",    "malloc(3)",   "popen(3)",  "printf(3)",    "syslog(3)",
    "system(3)",  "tolower(3)", "tzset(3)",    "bridge(8)", "inet_addr(3)", "inet_pton(3)",
    "sysvipc(7)", "ip(8)",      "netdevice(7)"};

bool is_system_page(const Reference &reference) {
    const std::string page = reference.name + "(" + reference.section + ")";
    return std::find(std::begin(system_pages), std::end(system_pages), page) !=
           std::end(system_pages);
}

// The sections of that name of all pages; of those in one section of the manual, when
// it is given.
std::string all_sections(const std::string &name, const std::string &of = "") {
    std::string text;
    for (const fs::path &page : pages())
        if (of.empty() || page.extension() == "." + of)
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
    const std::map<char, std::string> ours = {{'1', all_sections("NAME", "1")},
                                              {'3', all_sections("NAME", "3")}};
    for (const fs::path &page : pages())
        for (const Reference &reference : references(read_file(page))) {
            const auto section = ours.find(reference.section);
            const std::string names = section != ours.end() ? section->second : "";
            EXPECT_TRUE(is_system_page(reference) || has_word(names, reference.name))
                << page << " refers to " << reference.name << " (" << reference.section << ")";
        }
}

TEST(ManPages, AreNamedByThatOfTheLibrary) {
    const fs::path overview = fs::path(ZAN_TEST_MAN) / "libzan.3";
    std::vector<std::string> named;
    for (const Reference &reference : references(read_file(overview)))
        named.push_back(reference.name);
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
