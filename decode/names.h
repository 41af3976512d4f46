// SPDX-License-Identifier: MIT
// Names of classes, commands, change kinds and results, in both directions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zan::decode {

// "CFG" for 1; empty for a class that does not exist.
std::string_view class_name(std::int32_t type);
std::optional<std::int32_t> class_by_name(std::string_view name);

// "CFG", or "class-6" for a class that does not exist.
std::string class_text(std::int32_t type);

// "get" for command 1 of class 1; empty for a command without a name.
std::string_view command_name(std::int32_t type, std::int32_t cmd);

// "get", or the number of a command without a name.
std::string command_text(std::int32_t type, std::int32_t cmd);

// Whether a command of the class, or of any class, has the name.
bool is_command_name(std::string_view name, std::optional<std::int32_t> type = std::nullopt);

// The command of the class with the name; nothing if there is none, or if the name
// stands for every command of the class.
std::optional<std::int32_t> command_by_name(std::int32_t type, std::string_view name);

// "changed", "added", "deleted"; empty for any other kind.
std::string_view change_name(std::int32_t kind);
std::optional<std::int32_t> change_by_name(std::string_view name);

// "no-node" for -101: negative results of the library and of zansim; empty for others.
std::string_view result_name(std::int32_t result);
std::optional<std::int32_t> result_by_name(std::string_view name);

} // namespace zan::decode
