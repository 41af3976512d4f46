// SPDX-License-Identifier: MIT
//
// The tables of docs/zansim.md against the code.
#include "request/services.h"
#include "service/virtual_nodes.h"
#include "support/raw.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace zan::sim {
namespace {

using Cells = std::vector<std::string>;

std::string trimmed(const std::string &text) {
    const std::size_t start = text.find_first_not_of(' ');
    return start == std::string::npos ? ""
                                      : text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

// The rows of the first table after a heading, without the table's own heading.
std::vector<Cells> table_after(const std::string &heading) {
    std::istringstream page(test::read_file(ZAN_TEST_PAGE));
    std::vector<Cells> rows;
    std::string line;
    while (std::getline(page, line) && line != heading) {
    }
    while (std::getline(page, line) && !line.starts_with('|')) {
    }
    do {
        std::istringstream row(line.substr(1));
        Cells cells;
        for (std::string cell; std::getline(row, cell, '|');)
            cells.push_back(trimmed(cell));
        rows.push_back(std::move(cells));
    } while (std::getline(page, line) && line.starts_with('|'));
    if (rows.size() < 3) {
        ADD_FAILURE() << "no table after \"" << heading << '"';
        return {};
    }
    rows.erase(rows.begin(), rows.begin() + 2);
    return rows;
}

// Every match of the expression's first group.
std::vector<std::string> matches_in(const std::string &text, const std::string &expression) {
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

TEST(ZansimPage, ListsEveryResultCodeInOrder) {
    std::vector<std::string> listed;
    for (const Cells &row : table_after("## Negative results"))
        listed.push_back(row[0]);
    EXPECT_EQ(listed, matches_in(test::read_file(ZAN_TEST_RESULT_HEADER), " = (-1[0-9]+),"));
}

using Command = std::pair<int, int>;

// The commands that the table lists by number, and the classes that it lists as a whole.
struct Listed {
    std::set<Command> commands;
    std::set<int> classes;
};

Listed listed_commands() {
    Listed listed;
    std::string type;
    for (const Cells &row : table_after("## What each request does")) {
        type = row[0].empty() ? type : row[0];
        if (type.find_first_not_of("0123456789") != std::string::npos)
            continue;
        std::string numbers = row[1].substr(0, row[1].find_first_not_of("0123456789, "));
        for (const std::string &number : matches_in(numbers, "([0-9]+)"))
            listed.commands.emplace(std::stoi(type), std::stoi(number));
        if (numbers.empty() && row[1] == "any")
            listed.classes.insert(std::stoi(type));
    }
    return listed;
}

TEST(ZansimPage, ListsExactlyTheCommandsThatAreServed) {
    std::set<Command> commands;
    std::set<int> classes;
    for (const ServiceRows *rows = ServiceRows::first(); rows != nullptr; rows = rows->next()) {
        for (const Service &service : rows->rows()) {
            if (service.handler == nullptr)
                continue;
            if (service.cmd == any_command)
                classes.insert(service.type);
            else
                commands.emplace(service.type, service.cmd);
        }
    }
    const Listed listed = listed_commands();
    EXPECT_EQ(listed.commands, commands);
    EXPECT_EQ(listed.classes, classes);
}

TEST(ZansimPage, ListsEveryNodeOfTheBranchWithItsAccess) {
    std::map<std::string, std::string> listed;
    for (const Cells &row : table_after("### The branch /zansim")) {
        for (const std::string &name : matches_in(row[0], "`(?:/zansim/)?([a-z_]+)`"))
            listed[name] = row[1];
    }
    std::map<std::string, std::string> present;
    for (const VirtualNodeAccess &node : virtual_nodes())
        present[std::string(node.name)] = !node.writable   ? "read"
                                          : !node.readable ? "write"
                                                           : "both";
    EXPECT_EQ(listed, present);
}

} // namespace
} // namespace zan::sim
