// SPDX-License-Identifier: MIT
#include "decode/names.h"

#include "wire/command.h"
#include "wire/result.h"
#include "wire/value_change.h"

#include <algorithm>
#include <array>

namespace zan::decode {

namespace {

struct ChangeName {
    wire::ChangeKind kind;
    std::string_view name;
};
constexpr std::array changes{
    ChangeName{wire::ChangeKind::changed, "changed"},
    ChangeName{wire::ChangeKind::added, "added"},
    ChangeName{wire::ChangeKind::deleted, "deleted"},
};

// The first row with this value in the member; null if there is none.
template<auto member, typename Rows, typename Value>
const typename Rows::value_type *find_row(const Rows &rows, const Value &value) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto &candidate) {
        return candidate.*member == value;
    });
    return row == rows.end() ? nullptr : &*row;
}

} // namespace

std::string_view class_name(std::int32_t type) {
    const wire::Class *const row = wire::find_class(type);
    return row == nullptr ? std::string_view() : row->name;
}

std::optional<std::int32_t> class_by_name(std::string_view name) {
    const wire::Class *const row = find_row<&wire::Class::name>(wire::classes, name);
    if (row == nullptr)
        return std::nullopt;
    return row->type;
}

std::string class_text(std::int32_t type) {
    const std::string_view name = class_name(type);
    return name.empty() ? "class-" + std::to_string(type) : std::string(name);
}

std::string_view command_name(std::int32_t type, std::int32_t cmd) {
    const wire::Command *const row = wire::find_command(type, cmd);
    return row == nullptr ? std::string_view() : row->name;
}

std::string command_text(std::int32_t type, std::int32_t cmd) {
    const wire::Command *const row = wire::find_command(type, cmd);
    const bool has_name = row != nullptr && row->cmd == cmd && !row->name.empty();
    return has_name ? std::string(row->name) : std::to_string(cmd);
}

bool is_command_name(std::string_view name, std::optional<std::int32_t> type) {
    return !name.empty() &&
           std::any_of(wire::commands.begin(), wire::commands.end(), [&](const auto &row) {
               return row.name == name && (!type || row.type == *type);
           });
}

std::optional<std::int32_t> command_by_name(std::int32_t type, std::string_view name) {
    for (const wire::Command &row : wire::commands)
        if (!name.empty() && row.type == type && row.name == name && row.cmd != wire::any_command)
            return row.cmd;
    return std::nullopt;
}

std::string_view change_name(std::int32_t kind) {
    const ChangeName *const row = find_row<&ChangeName::kind>(changes, wire::ChangeKind{kind});
    return row == nullptr ? std::string_view() : row->name;
}

std::optional<std::int32_t> change_by_name(std::string_view name) {
    const ChangeName *const row = find_row<&ChangeName::name>(changes, name);
    if (row == nullptr)
        return std::nullopt;
    return static_cast<std::int32_t>(row->kind);
}

std::string_view result_name(std::int32_t result) {
    const wire::ResultName *const row = find_row<&wire::ResultName::code>(wire::results, result);
    return row == nullptr ? std::string_view() : row->name;
}

std::optional<std::int32_t> result_by_name(std::string_view name) {
    const wire::ResultName *const row = find_row<&wire::ResultName::name>(wire::results, name);
    if (row == nullptr)
        return std::nullopt;
    return row->code;
}

} // namespace zan::decode
