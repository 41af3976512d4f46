// SPDX-License-Identifier: MIT
#include "man_page.h"

#include "support/program.h"
#include "support/raw.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
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

// The declaration of a function begins on a new line.
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
    "msgctl(2)",  "msgget(2)",  "msgop(2)",     "close(2)",  "fclose(3)",    "fnmatch(3)",
    "fopen(3)",   "free(3)",    "malloc(3)",    "popen(3)",  "printf(3)",    "syslog(3)",
    "system(3)",  "tolower(3)", "tzset(3)",     "bridge(8)", "inet_addr(3)", "inet_pton(3)",
    "sysvipc(7)", "ip(8)",      "netdevice(7)", "ipcrm(1)"};

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

// ---- the lines that the library prints

std::string replaced(const std::string &text, const char *pattern, const char *by) {
    return std::regex_replace(text, std::regex(pattern), by);
}

// What a source prints: its literals that end a line, and those of calls that print.
// Neighbours are one literal.
std::set<std::string> printed_texts(const std::string &source) {
    static const std::regex literals(R"re("(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*)re");
    static const std::regex call(R"re(\b(?:printf|puts|refuse)\([^;"]*$)re");
    std::set<std::string> texts;
    std::size_t statement = 0;
    for (std::sregex_iterator match(source.begin(), source.end(), literals), end; match != end;
         ++match) {
        const auto at = static_cast<std::size_t>(match->position());
        statement = std::max(statement, source.rfind(';', at) + 1);
        const std::string before =
            replaced(source.substr(statement, at - statement), R"re("(?:[^"\\\n]|\\.)*")re", "");
        const std::string text = replaced(match->str(), R"re("\s*")re", "");
        if (text.ends_with("\\n\"") || std::regex_search(before, call))
            texts.insert(text.substr(1, text.size() - 2));
    }
    return texts;
}

// The fixed parts of a format, without blanks.  None when they have no word.
std::vector<std::string> fixed_parts(const std::string &format) {
    const std::string text = replaced(replaced(format, R"(\\.|\s)", ""), "%[-.*0-9]*[a-z]", "%");
    if (!std::regex_search(text, std::regex("[A-Za-z]{3}")))
        return {};
    std::vector<std::string> parts;
    std::istringstream rest(text);
    for (std::string part; std::getline(rest, part, '%');)
        if (!part.empty())
            parts.push_back(part);
    return parts;
}

// Whether the parts follow each other, with the name of a value between two.
bool has_parts(const std::string &text, const std::vector<std::string> &parts) {
    constexpr std::size_t longest_name = 40;
    for (std::size_t at = text.find(parts[0]); at != std::string::npos;
         at = text.find(parts[0], at + 1)) {
        std::size_t end = at + parts[0].size();
        const bool all = std::all_of(parts.begin() + 1, parts.end(), [&](const auto &part) {
            const std::size_t next = text.find(part, end);
            const bool near = next != std::string::npos && next - end <= longest_name;
            end = next + part.size();
            return near;
        });
        if (all)
            return true;
    }
    return false;
}

TEST(ManPages, HaveEveryLineThatTheLibraryPrints) {
    std::string manual;
    for (const fs::path &page : pages())
        if (page.extension() == ".3")
            manual += plain_man_text(read_file(page));
    manual = replaced(manual, R"(\s)", "");
    std::size_t lines = 0;
    for (const auto &entry : fs::recursive_directory_iterator(ZAN_TEST_SOURCES)) {
        if (entry.path().extension() != ".cpp")
            continue;
        for (const std::string &text : printed_texts(read_file(entry.path()))) {
            const std::vector<std::string> parts = fixed_parts(text);
            if (parts.empty())
                continue;
            ++lines;
            EXPECT_TRUE(has_parts(manual, parts)) << entry.path() << " prints " << text;
        }
    }
    EXPECT_GT(lines, 60U);
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
