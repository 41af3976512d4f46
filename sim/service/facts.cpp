// SPDX-License-Identifier: MIT
#include "base/text.h"
#include "request/services.h"
#include "state/daemon.h"

#include <algorithm>
#include <array>
#include <vector>

namespace zan::sim {

namespace {

constexpr char users[] = "/sys/user";

std::vector<std::string_view> lines_of(std::string_view text) {
    std::vector<std::string_view> lines;
    for (;;) {
        const std::size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return lines;
        text.remove_prefix(end + 1);
    }
}

bool has_value(const Tree &tree, const std::string &path, std::string_view value) {
    const auto found = tree.get(path);
    return found && *found == value;
}

bool is_element(std::string_view text) {
    return !text.empty() && text.find_first_of(" /.") == std::string_view::npos;
}

// "A.B.1.C" or "/A/B:1/C" as elements.  In the dotted form a number is an instance
// of the element before it.
Result<Path> path_elements(std::string_view text) {
    if (text.starts_with('/'))
        return parse_pattern(text);
    std::string path;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view element = rest.substr(0, rest.find('.'));
        rest.remove_prefix(std::min(element.size() + 1, rest.size()));
        const bool instance = !path.empty() && (element == "#" || to_number(element));
        if (!is_element(element))
            return Error{bad_path, "bad path (empty element): " + escape(text)};
        path += instance ? ':' : '/';
        path += element;
    }
    return parse_pattern(path);
}

enum class PathForm { dotted, any_instance, tree };

std::string join(const Path &elements, PathForm form) {
    std::string text;
    for (const Element &element : elements) {
        if (form != PathForm::dotted)
            text += '/';
        else if (!text.empty())
            text += '.';
        text += element.name;
        if (element.instance == 0 && !element.any_instance)
            continue;
        text += form == PathForm::dotted ? '.' : ':';
        const bool any = element.any_instance || form == PathForm::any_instance;
        text += any ? "#" : std::to_string(element.instance);
    }
    return text;
}

// Lines: a name, a password and two or three items whose meaning only the real daemon
// knows.  Answers with the number of the account; 0 if there is none.
Result<std::string> check_login(Daemon &daemon, const Request &request) {
    const std::vector<std::string_view> items = lines_of(request.text());
    if (items.size() < 4)
        return Error{malformed, "malformed record: a login has 4 or 5 lines"};
    const auto accounts = daemon.tree.instances(users);
    if (!accounts)
        return accounts.error();
    for (const std::uint32_t number : *accounts) {
        const std::string count_delivery = users + (':' + std::to_string(number));
        if (has_value(daemon.tree, count_delivery + "/name", items[0]) &&
            has_value(daemon.tree, count_delivery + "/password", items[1]) &&
            !has_value(daemon.tree, count_delivery + "/enabled", "0"))
            return std::to_string(number);
    }
    return std::string("0");
}

// The kind as a digit, and the path in any form.
Result<std::string> convert_path(Daemon &, const Request &request) {
    const std::string_view text = request.text();
    if (text.empty())
        return Error{malformed, "malformed record: no kind of conversion"};
    constexpr std::string_view kinds = "012";
    const std::size_t kind = kinds.find(text[0]);
    if (kind == std::string_view::npos)
        return Error{bad_value, "no conversion of the kind " + escape(text.substr(0, 1))};
    const auto elements = path_elements(text.substr(1));
    if (!elements)
        return elements.error();
    return join(*elements, static_cast<PathForm>(kind));
}

// The path leads to the name itself, or to an object that has one.
Result<std::string> interface_name(Daemon &daemon, const Request &request) {
    constexpr std::array<std::string_view, 2> parameters{"X_ORVANE_Interface", "Name"};
    const std::string path(request.text());
    auto value = daemon.tree.get(path);
    if (value || value.error().code != not_a_value)
        return value;
    for (const std::string_view parameter : parameters) {
        if (auto name = daemon.tree.get(path + '/' + std::string(parameter)))
            return name;
    }
    return Error{no_node, "no interface name: " + escape(path)};
}

Result<std::string> note_conversion(Daemon &daemon, const Request &request) {
    if (request.text().empty())
        return Error{malformed, "malformed record: nothing to convert"};
    daemon.statistics.conversions.note(std::to_string(request.record.arg) + ' ' +
                                       std::string(request.text()));
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CFG, ZAN_CFG_LOGIN, "login", text, text, check_login},
    Service{ZAN_CLASS_CFG, ZAN_CFG_CONVERT_PATH, "convert-path", conversion, text, convert_path},
    Service{ZAN_CLASS_CFG, ZAN_CFG_IFNAME, "interface-name", path, text, interface_name},
    Service{ZAN_CLASS_CFG, ZAN_CFG_CONVERT, "convert", text, none, note_conversion},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
