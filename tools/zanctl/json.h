// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace zan::ctl {

using Json = nlohmann::ordered_json;

// A value may have any bytes; those that are not UTF-8 become U+FFFD.
inline std::string to_line(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace zan::ctl
