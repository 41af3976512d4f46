// SPDX-License-Identifier: MIT
#include "options.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <sstream>

namespace zan::sim {

namespace {

// Why zansim does not start.
struct StartError {
    Exit code;
    std::string text;
};

// Rules of fault injection on the command line.
struct FaultOptions {
    std::vector<std::string> rules;
    std::string file;
    std::uint32_t seed = 1;

    void add_to(CLI::App &app) {
        app.add_option("--fault", rules,
                       "Inject a fault, as in \"fail -5 command=set\"; repeatable")
            ->type_name("RULE")
            ->expected(1)
            ->take_all();
        app.add_option("--fault-file", file, "Read such rules from FILE, one per line")
            ->type_name("FILE");
        app.add_option("--seed", seed, "Seed of the probabilities in rules [1]")
            ->type_name("NUMBER");
    }

    Result<Faults, StartError> faults() const {
        Faults faults;
        faults.seed(seed);
        for (const std::string &rule : rules) {
            if (const auto added = faults.add(rule); !added)
                return StartError{exit_usage, "--fault \"" + rule + "\": " + added.error().text};
        }
        if (!file.empty()) {
            if (const auto loaded = faults.load(file); !loaded)
                return StartError{exit_failed, loaded.error().text};
        }
        return faults;
    }
};

} // namespace

bool read_options(int argc, char **argv, Options &options, int &exit_code) {
    CLI::App app("zansim: a stand-in for the zan daemon that serves a configuration tree\n"
                 "over message queues and, for mesh agents, TCP",
                 "zansim");
    app.footer("Exit codes: 0 ended by a signal, 1 could not start, or lost its queue,\n"
               "            2 invalid command line.");
    app.set_version_flag("--version", "zansim " ZAN_VERSION_TEXT);
    app.add_option("TREE", options.tree_file, "Tree to serve, a JSON file")
        ->option_text(" ")
        ->required();
    app.add_option("--save", options.save_file, "Write the tree to FILE when it changes")
        ->type_name("FILE");
    app.add_flag("--trace", options.trace, "Print a line for each record");
    app.add_option("--trace-json", options.trace_file, "Write a JSON line for each record to FILE")
        ->type_name("FILE");
    app.add_option("--directory", options.directory,
                   "Read and write files of modules in DIR [/tmp/zan_sim.files]")
        ->type_name("DIR");
    app.add_flag("--allow-shell", options.allow_shell, "Execute shell commands of modules");
    app.add_option("--cwmp-answers", options.answers_file,
                   "Answer management requests from FILE while no module serves them")
        ->type_name("FILE");
    app.add_option("--cwmp-timeout", options.answer_seconds,
                   "Timeout of requests to the module that serves them [300]")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86400));
    FaultOptions fault_options;
    fault_options.add_to(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        std::ostringstream complaint;
        exit_code = app.exit(error, std::cout, complaint) == 0 ? exit_ended : exit_usage;
        if (exit_code != exit_ended)
            std::fprintf(stderr, "zansim: %s", complaint.str().c_str());
        return false;
    }
    auto faults = fault_options.faults();
    if (!faults) {
        std::fprintf(stderr, "zansim: %s\n", faults.error().text.c_str());
        exit_code = faults.error().code;
        return false;
    }
    options.faults = std::move(*faults);
    return true;
}

} // namespace zan::sim
