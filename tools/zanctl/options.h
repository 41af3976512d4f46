// SPDX-License-Identifier: MIT
// The options that several commands share, and the checks of their values.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zan::ctl {

// Accepted before and after the command.
struct GlobalOptions {
    bool json = false;
    bool verbose = false;
    std::string name;              // to register under
    std::optional<double> timeout; // seconds for each answer
};

inline constexpr double default_timeout = 5;

// The base of every command's options.
struct Options {
    GlobalOptions *global = nullptr;

    bool json() const { return global->json; }
};

struct PathOptions : Options {
    std::string path;
};

struct PathsOptions : Options {
    std::vector<std::string> paths;
};

// For the commands that print notifications and messages.
struct ArrivalOptions : PathsOptions {
    std::vector<int> events;
    unsigned count = 0; // of lines to print before the end; 0 for no limit
    bool time = false;
    bool agent = false;
};

// Each check returns what is wrong with the text, empty if nothing is.
std::string check_path(const std::string &path);
std::string check_module_name(const std::string &name);
std::string check_text(const std::string &text);         // of a message
std::string check_command_line(const std::string &text); // for the daemon
std::string check_file_name(const std::string &name);

// Adds a paragraph after the options in the help of a command.
void add_note(CLI::App &app, const std::string &note);

// Required.
CLI::Option *add_path(CLI::App &app, std::string &path);
CLI::Option *add_module(CLI::App &app, std::string &module);
// May be missing, unless the caller says otherwise.
CLI::Option *add_paths(CLI::App &app, std::vector<std::string> &paths);
CLI::Option *add_agent_option(CLI::App &app, bool &agent);
void add_arrival_options(CLI::App &app, ArrivalOptions &options);

enum class Confirmation {
    at_terminal, // --yes is required if standard input is a terminal
    always,      // --yes is required in scripts too
};

// Adds --yes to a command that changes or restarts the device.  `check` is the command's
// own check of its options, which may throw; it runs first.
void add_confirmation(
    CLI::App &app, Confirmation confirmation, std::function<void()> check = [] {});

} // namespace zan::ctl
