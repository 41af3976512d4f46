// SPDX-License-Identifier: MIT
// What the library makes of paths: by hand, and in scripts as with grep.
#include "run.h"

#include <array>
#include <cstdio>
#include <limits>

namespace zan::ctl {
namespace {

constexpr ExitCode exit_no_match = exit_refused;

// Any text may be compared, the empty one too.
std::string check_length(const std::string &path) {
    if (path.size() >= ZAN_PATH_SIZE)
        return "a path has at most " + std::to_string(ZAN_PATH_SIZE - 1) + " characters";
    return {};
}

void add_text(CLI::App &app, const char *name, std::string &text, const char *what) {
    app.add_option(name, text, what)->option_text(" ")->required()->check(check_length);
}

void add_nocase(CLI::App &app, Arguments &arguments) {
    app.add_flag("--nocase", arguments.compared.nocase, "Take upper and lower case for the same");
}

void define_match(CLI::App &app, Arguments &arguments) {
    add_text(app, "PATH", arguments.compared.path, "A path, in which # may stand for an instance");
    add_text(app, "OTHER", arguments.compared.other, "The other");
    add_nocase(app, arguments);
}

void define_part(CLI::App &app, Arguments &arguments) {
    define_match(app, arguments);
    app.add_flag("--reverse", arguments.compared.reverse,
                 "Look for OTHER at the beginning of PATH");
}

void define_object(CLI::App &app, Arguments &arguments) {
    add_text(app, "PATTERN", arguments.compared.other, "An object, in which # stands for digits");
    add_text(app, "PATH", arguments.compared.path, "The path of it, or of something in it");
}

void define_extract(CLI::App &app, Arguments &arguments) {
    add_text(app, "PATH", arguments.compared.path, "A path, such as /sys/user:1/name");
    app.add_option("START", arguments.compared.start, "First element, from 0 or, at the right, -1")
        ->option_text(" ")
        ->required();
    app.add_option("END", arguments.compared.end, "The one behind the last (default: one element)")
        ->option_text(" ");
}

int tell(Output &output, const Arguments &arguments, Json json, bool match) {
    json["match"] = match;
    print(output, arguments, match ? "match" : "no match", json);
    return match ? exit_done : exit_no_match;
}

Json compared(const PathLine &line) {
    return {{"path", line.path}, {"other", line.other}};
}

int run_match(const Arguments &arguments, Output &output) {
    const PathLine &line = arguments.compared;
    return tell(output, arguments, compared(line),
                pathcmp(line.path.c_str(), line.other.c_str(), line.nocase) == 0);
}

int run_part(const Arguments &arguments, Output &output) {
    const PathLine &line = arguments.compared;
    return tell(output, arguments, compared(line),
                pathpartcmp(line.path.c_str(), line.other.c_str(), line.reverse, line.nocase) == 0);
}

int run_object(const Arguments &arguments, Output &output) {
    const PathLine &line = arguments.compared;
    return tell(output, arguments, {{"pattern", line.other}, {"path", line.path}},
                pathobjectcmp(line.other.c_str(), line.path.c_str()) == 0);
}

int run_extract(const Arguments &arguments, Output &output) {
    const PathLine &line = arguments.compared;
    const int start = line.start;
    const int next = start < std::numeric_limits<int>::max() ? start + 1 : start;
    const int end = line.end.value_or(next);
    std::array<char, ZAN_PATH_SIZE> elements{};
    const char *const found = extract_tr098_path(line.path.c_str(), elements.data(),
                                                 static_cast<int>(elements.size()), start, end);
    if (found != elements.data()) {
        std::fprintf(stderr, "zanctl: %s: no elements %d to %d\n", line.path.c_str(), start, end);
        return exit_no_match;
    }
    print(output, arguments, found,
          {{"path", line.path}, {"start", start}, {"end", end}, {"elements", found}});
    return exit_done;
}

constexpr Command path_commands[] = {
    {"path", "Compare paths and take them apart, as the library does"},
    {"path match", "Tell whether two paths are equal", define_match, run_match},
    {"path part", "Tell whether a path is the beginning of another", define_part, run_part},
    {"path object", "Tell whether a path is an object, or right below it", define_object,
     run_object},
    {"path extract", "Print elements of a path", define_extract, run_extract},
};

} // namespace

const Family path_family = {"Paths, without a daemon", path_commands};

} // namespace zan::ctl
