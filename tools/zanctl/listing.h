// SPDX-License-Identifier: MIT
#pragma once

#include "command.h"
#include "config_tree.h"

#include <string>

namespace zan::ctl {

struct ListingOptions : Options {
    std::string path = "/";
    std::string tree_file; // empty for a dump of the daemon's
};

void add_listing_options(CLI::App &app, ListingOptions &options);

// The daemon offers no request that lists nodes.  Without --tree it is asked to dump its
// tree to a file, which is read and removed; with it, the file says which nodes exist, the
// daemon which instances, and values are read one by one.  Throws Refusal if neither works.
ConfigNode load_listing(Session &session, const ListingOptions &options);

} // namespace zan::ctl
