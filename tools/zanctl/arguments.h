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

// What the daemon's file-and-action module is asked for.
struct ActionLine {
    std::string what; // of the kinds of one action, as in "save log"
    std::string name; // what the action's record calls so: a file, a name or a shell command
    int parameter = 0;
    bool waits = true;
};

// A firewall request by the letters of its options; a letter may be missing.
struct FirewallLine {
    std::map<char, std::string> options;
    bool bridge = false;
};

// Two paths to compare, or one and a range of its elements.
struct PathLine {
    std::string path;
    std::string other;
    bool nocase = false;
    bool reverse = false;
    int start = 0;
    std::optional<int> end;
};

struct NetworkLine {
    std::string address; // of the network or, for mac-port, a MAC
    std::string bridge;
    std::vector<std::string> interfaces;
};

struct LogLine {
    std::string setting;    // a level or a destination, by number or name
    std::size_t lines = 10; // that are there, to begin with
};

struct EventLine {
    std::string kind;
    std::vector<std::string> members; // KEY=VALUE
    std::optional<std::string> text;
};

// Everything a command line can say.
struct Arguments {
    const Command *command = nullptr;
    // For every command, or every one that asks the daemon.
    bool json = false;
    std::string name; // to register under
    double timeout = 5;
    // For several commands.
    std::string path;
    std::vector<std::string> paths;
    std::string module;
    std::string text;       // of a message, or that a request carries
    bool agent = false;     // goes over the link
    bool confirmed = false; // though it changes the device
    // For the commands that print what arrives.
    std::vector<int> events;
    unsigned count = 0; // of lines to end after; 0: no end
    bool time = false;
    // For one command each, or two.
    std::string value;              // set
    std::string attributes;         // attr set
    std::string dump_file;          // dump
    int mode = 0;                   // dump, print
    bool firewall_only = false;     // apply
    bool acknowledged = false;      // send
    std::string command_line;       // control
    std::vector<std::string> items; // login
    int conversion = 0;             // convert
    int code = 0;                   // cwmp
    // For the commands of one family.
    ActionLine action;
    FirewallLine firewall;
    PathLine compared;
    NetworkLine network;
    LogLine log;
    EventLine event;
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
