// SPDX-License-Identifier: MIT
#include "options.h"

#include "version.h"

#include <CLI/CLI.hpp>

namespace zan::sim {

bool read_options(int argc, char **argv, Options &options, int &exit_code) {
    CLI::App app("zansim: a stand-in for the zan daemon that serves a configuration tree");
    app.set_version_flag("--version", std::string("zansim ") + zansim_version);
    app.add_option("TREE", options.tree_file, "Tree to serve, a JSON file")->required();
    app.add_option("--save", options.save_file, "Write the tree back to FILE as it changes")
        ->type_name("FILE");
    app.add_flag("--trace", options.trace, "Print a line for each record");
    app.add_option("--trace-json", options.trace_file, "Write a JSON line for each record to FILE")
        ->type_name("FILE");
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError &error) {
        exit_code = app.exit(error) == 0 ? exit_ended : exit_usage;
        return false;
    }
}

} // namespace zan::sim
