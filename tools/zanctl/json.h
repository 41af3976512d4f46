// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace zan::ctl {

using Json = nlohmann::ordered_json;

// A value may hold any bytes; JSON is UTF-8, so what is not becomes U+FFFD.
inline std::string to_line(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace zan::ctl
