// SPDX-License-Identifier: MIT
// The library's functions for paths.  The exit code tells a script whether paths match, as
// with grep.
#include "run.h"

#include <array>
#include <limits>

namespace zan::ctl::path_commands {
namespace {

constexpr ExitCode no_match = ExitCode::refused;

// Any text may be compared, including the empty one.
std::string check_length(const std::string &path) {
    if (path.size() >= ZAN_PATH_SIZE)
        return "a path has at most " + std::to_string(ZAN_PATH_SIZE - 1) + " characters";
    return {};
}

void add_text(CLI::App &app, const char *name, std::string &text, const char *description) {
    app.add_option(name, text, description)->option_text(" ")->required()->check(check_length);
}

ExitCode print_match(Output &output, const Options &options, Json json, bool match) {
    json["match"] = match;
    print(output, options, match ? "match" : "no match", json);
    return match ? ExitCode::done : no_match;
}

// ---- match, part, object

struct CompareOptions : PathOptions {
    std::string other;
    bool nocase = false;
    bool reverse = false;
};

void define_match(CLI::App &app, CompareOptions &options) {
    add_text(app, "PATH", options.path, "A path, where # stands for any instance number");
    add_text(app, "OTHER", options.other, "The path to compare it with");
    app.add_flag("--nocase", options.nocase, "Ignore case");
}

void define_part(CLI::App &app, CompareOptions &options) {
    define_match(app, options);
    app.add_flag("--reverse", options.reverse, "Compare OTHER with the beginning of PATH");
}

void define_object(CLI::App &app, CompareOptions &options) {
    add_text(app, "PATTERN", options.other, "An object, where # stands for digits");
    add_text(app, "PATH", options.path, "A path");
}

Json compared(const CompareOptions &options) {
    return {{"path", options.path}, {"other", options.other}};
}

ExitCode run_match(const CompareOptions &options, Output &output) {
    return print_match(output, options, compared(options),
                       pathcmp(options.path.c_str(), options.other.c_str(), options.nocase) == 0);
}

ExitCode run_part(const CompareOptions &options, Output &output) {
    return print_match(output, options, compared(options),
                       pathpartcmp(options.path.c_str(), options.other.c_str(), options.reverse,
                                   options.nocase) == 0);
}

ExitCode run_object(const CompareOptions &options, Output &output) {
    return print_match(output, options, {{"pattern", options.other}, {"path", options.path}},
                       pathobjectcmp(options.other.c_str(), options.path.c_str()) == 0);
}

// ---- extract

struct ExtractOptions : PathOptions {
    int start = 0;
    std::optional<int> end;
};

void define_extract(CLI::App &app, ExtractOptions &options) {
    add_text(app, "PATH", options.path, "A path, such as /sys/user:1/name");
    app.add_option("START", options.start, "First element: 0 is the first of the path, -1 the last")
        ->option_text(" ")
        ->required();
    app.add_option("END", options.end, "End of the range, exclusive (default: one element)")
        ->option_text(" ");
}

ExitCode run_extract(const ExtractOptions &options, Output &output) {
    const int start = options.start;
    const int next = start < std::numeric_limits<int>::max() ? start + 1 : start;
    const int end = options.end.value_or(next);
    return attempt(output, options, options.path, [&] {
        std::array<char, ZAN_PATH_SIZE> elements{};
        const char *const found = extract_tr098_path(options.path.c_str(), elements.data(),
                                                     static_cast<int>(elements.size()), start, end);
        if (found != elements.data())
            throw Refusal("no elements " + std::to_string(start) + " to " + std::to_string(end));
        print(output, options, found,
              {{"path", options.path}, {"start", start}, {"end", end}, {"elements", found}});
    });
}

constexpr Command commands[] = {
    command_group("path", "Compare paths and extract elements, as the library does"),
    command<define_match, run_match>("path match", "Check whether two paths are equal"),
    command<define_part, run_part>("path part", "Check whether a path is the beginning of another"),
    command<define_object, run_object>("path object",
                                       "Check whether a path is an object or directly below it"),
    command<define_extract, run_extract>("path extract", "Print elements of a path"),
};

const FamilyRegistration registration({"Paths, without a daemon", 50, commands});

} // namespace
} // namespace zan::ctl::path_commands
