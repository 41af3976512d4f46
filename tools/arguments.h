// SPDX-License-Identifier: MIT
// What a command line can say, and the arguments that several commands take.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zan::ctl {

struct Command;

// A firewall request by the letters of its options; a letter may be missing.
struct FirewallLine {
    std::map<char, std::string> options;
    bool bridge = false;
};

// Everything a command line can say.
struct Arguments {
    const Command *command = nullptr;
    std::string name; // to register under
    double timeout = 5;
    bool json = false;
    std::string path;
    std::vector<std::string> paths;
    std::string value;
    std::string module;
    std::string text; // of a message or a command line
    bool acknowledged = false;
    bool agent = false; // goes over the link
    std::vector<int> events;
    unsigned count = 0; // of notifications to wait for; 0: no end
    bool time = false;
    int mode = 0; // the daemon's; an action's parameter, a kind of conversion
    int code = 0; // of a request to remote management
    bool confirmed = false;
    bool waits = true;              // for an action
    bool firewall_only = false;     // is applied
    std::string file;               // a name, or a command line for the daemon's shell
    std::string what;               // of several things of a kind
    std::vector<std::string> items; // of a login
    FirewallLine firewall;
    // Of the path commands.
    std::string other;
    bool nocase = false;
    bool reverse = false;
    int start = 0;
    std::optional<int> end;
    // Of the network commands.
    std::string address;
    std::string bridge;
    std::vector<std::string> interfaces;
    // Of log tail.
    std::size_t lines = 10; // that are there, to begin with
    // Of the event message commands.
    std::string kind;
    std::vector<std::string> members; // KEY=VALUE
    std::optional<std::string> event_text;
};

// Each check says what is wrong with the text, or nothing.
std::string check_path(const std::string &path);
std::string check_module_name(const std::string &name);
std::string check_text(const std::string &text);         // of a message
std::string check_command_line(const std::string &text); // for the daemon
std::string check_file_name(const std::string &name);

// Text below the options in the help of a command.
void add_note(CLI::App &app, const std::string &note);

CLI::Option *add_paths(CLI::App &app, Arguments &arguments);
CLI::Option *add_module(CLI::App &app, Arguments &arguments);

// A single path.
CLI::Option *add_path(CLI::App &app, Arguments &arguments);

// --yes, for what changes or restarts the device: without it a person at a terminal
// is refused.  A script, whose standard input is something else, is not asked.
// The check, which throws, is the command's own, and comes first.
void add_confirmation(
    CLI::App &app, Arguments &arguments, std::function<void()> check = [] {});

// For the commands that can go over an agent's link.
CLI::Option *add_agent_option(CLI::App &app, Arguments &arguments);

// Options of the commands that print what arrives.
void add_arrival_options(CLI::App &app, Arguments &arguments);

} // namespace zan::ctl
