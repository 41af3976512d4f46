// SPDX-License-Identifier: MIT
// Log levels and destinations of the modules, and their log files.
#include "file_follower.h"
#include "interrupt.h"
#include "log_table.h"
#include "printable.h"
#include "run.h"

#include <array>
#include <chrono>
#include <thread>

namespace zan::ctl::log_commands {
namespace {

constexpr auto poll_interval = std::chrono::milliseconds(50);

struct ModuleOptions : Options {
    std::string module;
};

void define_nothing(CLI::App & /*app*/, Options & /*options*/) {}

void add_log_module(CLI::App &app, ModuleOptions &options) {
    add_module(app, options.module)->description("The name it logs under");
}

// ---- options

struct SettingOptions : ModuleOptions {
    std::string setting; // a level or a destination, by number or name
};

struct TailOptions : ModuleOptions {
    std::size_t lines = 10;
    unsigned count = 0; // of lines to print before the end; 0 for no limit
};

void define_level(CLI::App &app, SettingOptions &options) {
    add_log_module(app, options);
    app.add_option("LEVEL", options.setting, "0 to 7, or one of: " + level_names())
        ->option_text(" ")
        ->required()
        ->check([](const std::string &text) {
            return to_level(text) ? "" : "a level is 0 to 7, or one of: " + level_names();
        });
}

void define_dest(CLI::App &app, SettingOptions &options) {
    add_log_module(app, options);
    app.add_option("DEST", options.setting, "1 to 5, or one of: " + dest_names())
        ->option_text(" ")
        ->required()
        ->check([](const std::string &text) {
            return to_dest(text) ? "" : "a destination is 1 to 5, or one of: " + dest_names();
        });
}

void define_tail(CLI::App &app, TailOptions &options) {
    add_log_module(app, options);
    app.add_option("--lines", options.lines, "Start with the last N lines (default: 10)")
        ->option_text("N")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--count", options.count, "Exit after N lines")
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

ExitCode run_list(const Options &options, Output &output) {
    const LogTable table;
    if (!table.exists())
        report("no module has registered for logging");
    std::vector<Row> rows = {{"MODULE", "LEVEL", "DEST"}};
    for (const zan_log_entry &entry : table.entries()) {
        if (options.json())
            output.line(to_line(to_json(entry)));
        else
            rows.push_back(to_row(entry));
    }
    if (!options.json())
        print_table(output, rows);
    return ExitCode::done;
}

// Writes the setting to the tree and, unless the daemon refuses it, to the log table.
template<typename SetEntry>
ExitCode change(const char *key, int number, const std::string &name, SetEntry set_entry,
                Session &session, const SettingOptions &options, Output &output) {
    const std::string path = std::string(ZAN_LOG_TREE) + "/" + options.module + "/" + key;
    return attempt(output, options, path, [&] {
        ask(session, ZAN_CFG_SET, "0" + path + " " + std::to_string(number));
        LogTable table;
        const bool live = set_entry(table);
        if (!live)
            report(options.module +
                   " has not registered for logging: only the configuration was changed");
        if (number == 0)
            report("0 in the configuration means \"not set\": " + options.module +
                   " keeps the setting only until it restarts");
        print_json(output, options,
                   {{"path", path}, {"value", number}, {"name", name}, {"live", live}});
    });
}

ExitCode run_level(Session &session, const SettingOptions &options, Output &output) {
    const std::int32_t level = to_level(options.setting).value_or(0);
    return change(
        "loglevel", level, level_text(level),
        [&](LogTable &table) { return table.set_level(options.module, level); }, session, options,
        output);
}

ExitCode run_dest(Session &session, const SettingOptions &options, Output &output) {
    const std::uint8_t dest = to_dest(options.setting).value_or(0);
    return change(
        "logdest", dest, dest_text(dest),
        [&](LogTable &table) { return table.set_dest(options.module, dest); }, session, options,
        output);
}

// ---- the file

// Keeps the tab before the message.
std::string printable_line(const std::string &line) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string::npos)
        return printable(line);
    return printable(line.substr(0, tab)) + "\t" + printable(line.substr(tab + 1));
}

ExitCode run_tail(const TailOptions &options, Output &output) {
    const std::string path = "/var/log/" + options.module;
    FileFollower file(path);
    file.keep_last(options.lines);
    report((file.exists() ? "following " : "waiting for ") + path);
    for (unsigned printed = 0; interrupted() == 0;) {
        const std::optional<std::string> line = file.next_line();
        if (!line) {
            std::this_thread::sleep_for(poll_interval);
            continue;
        }
        print(output, options, printable_line(*line),
              {{"module", options.module}, {"line", *line}});
        if (++printed == options.count)
            break;
    }
    return ExitCode::done;
}

constexpr Command commands[] = {
    command_group("log", "Log levels, destinations and files of the modules"),
    command<define_nothing, run_list>("log list",
                                      "Print the level and destination of every module"),
    command<define_level, run_level>("log level", "Set the level of a module"),
    command<define_dest, run_dest>("log dest", "Set the destination of a module"),
    command<define_tail, run_tail>("log tail", "Follow the log file of a module").alone(),
};

const FamilyRegistration registration({"Logging", 70, commands});

} // namespace
} // namespace zan::ctl::log_commands
