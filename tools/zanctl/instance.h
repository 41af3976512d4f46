// SPDX-License-Identifier: MIT
// The instances of a multi-instance object, as zansim's answer lists them.
#pragma once

#include "session.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zan::ctl {

struct Instance {
    unsigned number;
    std::vector<std::pair<std::string, std::string>> values; // by name
};

// Parses lines of the form "1 name=admin level=3", whose values are percent-encoded.
// Nothing for any other form: the real daemon may render instances differently.
std::optional<std::vector<Instance>> parse_instances(std::string_view text);

// The number that ends the path of an instance, as in /sys/user:4.
std::optional<unsigned> instance_number(std::string_view path);

} // namespace zan::ctl
