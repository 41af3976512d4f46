// SPDX-License-Identifier: MIT
// The levels and destinations of the modules' messages, and the messages.
#include "file_follower.h"
#include "interrupt.h"
#include "log_table.h"
#include "printable.h"
#include "run.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace zan::ctl {
namespace {

constexpr auto log_poll_interval = std::chrono::milliseconds(50);

void define_nothing(CLI::App & /*app*/, Arguments & /*arguments*/) {}

CLI::Option *add_log_module(CLI::App &app, Arguments &arguments) {
    return add_module(app, arguments)->description("The name that it logs under");
}

void define_level(CLI::App &app, Arguments &arguments) {
    add_log_module(app, arguments);
    app.add_option("LEVEL", arguments.log.setting, "0 to 7, or one of: " + level_names())
        ->option_text(" ")
        ->required()
        ->check([](const std::string &text) {
            return to_level(text) ? "" : "a level is 0 to 7, or one of: " + level_names();
        });
}

void define_dest(CLI::App &app, Arguments &arguments) {
    add_log_module(app, arguments);
    app.add_option("DEST", arguments.log.setting, "1 to 5, or one of: " + dest_names())
        ->option_text(" ")
        ->required()
        ->check([](const std::string &text) {
            return to_dest(text) ? "" : "a destination is 1 to 5, or one of: " + dest_names();
        });
}

void define_tail(CLI::App &app, Arguments &arguments) {
    add_log_module(app, arguments);
    app.add_option("--lines", arguments.log.lines,
                   "Begin with so many of the last lines (default: 10)")
        ->option_text("N")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--count", arguments.count, "End after so many lines")
        ->option_text("N")
        ->check(CLI::PositiveNumber);
}

// ---- the table

std::string with_number(int number, const std::string &name) {
    return name.empty() ? std::to_string(number) : std::to_string(number) + " " + name;
}

Json to_json(const zan_log_entry &entry) {
    return {{"module", module_of(entry)},
            {"level", entry.level},
            {"level_name", level_text(entry.level)},
            {"dest", entry.dest},
            {"dest_name", dest_text(entry.dest)},
            {"cpu", entry.cpu}};
}

using Row = std::array<std::string, 3>;

Row to_row(const zan_log_entry &entry) {
    return {printable(module_of(entry)), with_number(entry.level, level_text(entry.level)),
            with_number(entry.dest, dest_text(entry.dest))};
}

void print_table(Output &output, const std::vector<Row> &rows) {
    std::array<std::size_t, 3> widths = {};
    for (const Row &row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const Row &row : rows) {
        std::string line = row[0];
        for (std::size_t i = 1; i < row.size(); ++i)
            line += std::string(widths[i - 1] + 2 - row[i - 1].size(), ' ') + row[i];
        output.line(line);
    }
}

int run_list(const Arguments &arguments, Output &output) {
    const LogTable table;
    if (!table.exists())
        std::fprintf(stderr, "zanctl: no module has a log yet\n");
    std::vector<Row> rows = {{"MODULE", "LEVEL", "DEST"}};
    for (const zan_log_entry &entry : table.entries()) {
        if (arguments.json)
            output.line(to_line(to_json(entry)));
        else
            rows.push_back(to_row(entry));
    }
    if (!arguments.json)
        print_table(output, rows);
    return exit_done;
}

// The tree first, which may refuse; what it does not take the table does not get.
template<typename Set>
int change(const char *key, int number, const std::string &name, Set set, Session &session,
           const Arguments &arguments, Output &output) {
    const std::string path = std::string(ZAN_LOG_TREE) + "/" + arguments.module + "/" + key;
    return attempt(path, [&] {
        ask(session, ZAN_CFG_SET, "0" + path + " " + std::to_string(number));
        LogTable table;
        const bool live = set(table);
        if (!live)
            std::fprintf(stderr,
                         "zanctl: %s has not registered for logging: only the tree was changed\n",
                         arguments.module.c_str());
        if (number == 0)
            std::fprintf(stderr,
                         "zanctl: 0 in the tree is no setting: %s has it until it "
                         "starts again\n",
                         arguments.module.c_str());
        print_json(output, arguments,
                   {{"path", path}, {"value", number}, {"name", name}, {"live", live}});
    });
}

int run_level(Session &session, const Arguments &arguments, Output &output) {
    const std::int32_t level = to_level(arguments.log.setting).value_or(0);
    return change(
        "loglevel", level, level_text(level),
        [&](LogTable &table) { return table.set_level(arguments.module, level); }, session,
        arguments, output);
}

int run_dest(Session &session, const Arguments &arguments, Output &output) {
    const std::uint8_t dest = to_dest(arguments.log.setting).value_or(0);
    return change(
        "logdest", dest, dest_text(dest),
        [&](LogTable &table) { return table.set_dest(arguments.module, dest); }, session, arguments,
        output);
}

// ---- the file

// With its tab, which stands in front of every message.
std::string printable_line(const std::string &line) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos)
        return printable(line);
    return printable(line.substr(0, tab)) + "\t" + printable(line.substr(tab + 1));
}

int run_tail(const Arguments &arguments, Output &output) {
    const std::string path = "/var/log/" + arguments.module;
    FileFollower file(path);
    file.keep_last(arguments.log.lines);
    std::fprintf(stderr, "zanctl: %s %s\n", file.exists() ? "following" : "waiting for",
                 path.c_str());
    for (unsigned printed = 0; interrupted() == 0;) {
        const std::optional<std::string> line = file.next_line();
        if (!line) {
            std::this_thread::sleep_for(log_poll_interval);
            continue;
        }
        print(output, arguments, printable_line(*line),
              {{"module", arguments.module}, {"line", *line}});
        if (++printed == arguments.count)
            break;
    }
    return exit_done;
}

constexpr Command log_commands[] = {
    {"log", "Levels, destinations and messages of the modules' logs"},
    {"log list", "Print every module's level and destination, without a daemon", define_nothing,
     run_list},
    {"log level", "Set a module's level, in the tree and at once", define_level, run_level},
    {"log dest", "Set a module's destination, in the tree and at once", define_dest, run_dest},
    {"log tail", "Print the lines of a module's log file as they come, without a daemon",
     define_tail, run_tail},
};

} // namespace

const Family log_family = {"Logging", log_commands};

} // namespace zan::ctl
