// SPDX-License-Identifier: MIT
//
// The lookup by itself, on tables of every content, against the plain search that it
// must always agree with.  The tables end where their storage ends, so that the
// address sanitizer sees a read behind an entry.
#include "log/table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using Table = std::vector<zan_log_entry>;

Table empty_table() {
    return Table(64);
}

void set_name(zan_log_entry &entry, const std::string &bytes) {
    std::memcpy(entry.name, bytes.data(), bytes.size());
}

int plain_search(const Table &table, const std::string &name) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        const char *const field = table[i].name;
        const std::size_t length = strnlen(field, sizeof table[i].name);
        if (length < sizeof table[i].name && std::string(field, length) == name)
            return static_cast<int>(i);
    }
    return -1;
}

int find(Table &table, const std::string &name) {
    // A copy of its own size, again for the sanitizer.
    const std::unique_ptr<char[]> copy(new char[name.size() + 1]);
    std::memcpy(copy.get(), name.c_str(), name.size() + 1);
    const zan_log_entry *const found = find_log_entry(table.data(), copy.get());
    return found != nullptr ? static_cast<int>(found - table.data()) : -1;
}

TEST(Lookup, FindsNamesOfEveryLength) {
    for (std::size_t length = 0; length < 32; ++length) {
        Table table = empty_table();
        for (zan_log_entry &entry : table)
            set_name(entry, "something else");
        const std::string name(length, 'n');
        EXPECT_EQ(find(table, name), -1) << length;
        set_name(table[63], name + std::string(32 - length, '\0'));
        EXPECT_EQ(find(table, name), 63) << length;
        // What is behind the end of the name does not matter.
        set_name(table[62], name + '\0' + std::string(31 - length, 'x'));
        EXPECT_EQ(find(table, name), 62) << length;
    }
    Table table = empty_table();
    const std::string whole_field(32, 'n');
    set_name(table[0], whole_field);
    EXPECT_EQ(find(table, whole_field), -1);
    EXPECT_EQ(find(table, whole_field.substr(1)), -1);
    EXPECT_EQ(find(table, whole_field + "n"), -1);
    EXPECT_EQ(find(table, std::string(10000, 'n')), -1);
}

TEST(Lookup, ReadsNothingBehindAnEntry) {
    Table table = empty_table();
    for (zan_log_entry &entry : table)
        std::memset(&entry, 'n', sizeof entry);
    for (std::size_t length = 0; length < 60; ++length)
        EXPECT_EQ(find(table, std::string(length, 'n')), -1) << length;
}

TEST(Lookup, FindsTheFirstAtEveryMoment) {
    Table table = empty_table();
    for (int i = 63; i >= 0; --i) {
        set_name(table[static_cast<std::size_t>(i)], "module");
        EXPECT_EQ(find(table, "module"), i);
    }
    for (int i = 0; i < 63; ++i) {
        table[static_cast<std::size_t>(i)].name[0] = 'M';
        EXPECT_EQ(find(table, "module"), i + 1);
    }
}

TEST(Lookup, FindsFreeEntriesToo) {
    Table table = empty_table();
    EXPECT_EQ(find(table, ""), 0);
    set_name(table[0], "a");
    table[0].in_use = 1;
    EXPECT_EQ(find(table, ""), 1);
    set_name(table[5], "b");
    EXPECT_EQ(find(table, "b"), 5);
}

// Names of few characters, so that many begin, end or are alike.
TEST(Lookup, AgreesWithThePlainSearch) {
    std::mt19937 random(20251121);
    const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    const auto text = [&](std::size_t length, unsigned letters) {
        std::string name;
        while (name.size() < length)
            name += static_cast<char>(below(20) == 0 ? 0xff : 'a' + below(letters));
        return name;
    };
    int found = 0;
    for (int round = 0; round < 300; ++round) {
        Table table = empty_table();
        const unsigned letters = 1 + below(3);
        const unsigned longest = 1 + below(33);
        const std::string common = text(below(20), letters);
        for (zan_log_entry &entry : table) {
            std::string name = text(below(longest), letters);
            if (below(4) == 0)
                name = below(2) == 0 ? common + name : name + common;
            name.resize(32, below(4) == 0 ? 'z' : '\0');
            set_name(entry, name);
        }
        for (int again = 0; again < 50; ++again) {
            std::string name =
                below(2) == 0 ? text(below(34), letters) : std::string(table[below(64)].name, 32);
            name.resize(std::min(name.size(), name.find('\0'))); // as C has it
            const int expected = plain_search(table, name);
            found += expected >= 0 ? 1 : 0;
            ASSERT_EQ(find(table, name), expected) << name;
        }
    }
    EXPECT_GT(found, 1000);
}

} // namespace
} // namespace zan::test
