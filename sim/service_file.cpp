// SPDX-License-Identifier: MIT
#include "daemon.h"
#include "tree_file.h"

namespace zan::sim {

namespace {

std::string_view name_or(std::string_view name, std::string_view usual) {
    return name.empty() ? usual : name;
}

} // namespace

Result<std::string> load_configuration(Daemon &daemon, std::string_view source,
                                       std::string_view name) {
    const auto text = daemon.files.read(name);
    if (!text)
        return text.error();
    auto tree = parse_tree(*text, std::string(name));
    if (!tree)
        return Error{file_failed, tree.error().text};
    daemon.replace_tree(source, std::move(*tree));
    return std::string();
}

Result<std::string> store_configuration(Daemon &daemon, const Tree &tree, std::string_view name) {
    const auto done = daemon.files.write(name, format_tree(tree));
    if (!done)
        return done.error();
    return std::string();
}

Result<std::string> reload(Daemon &daemon, const Request &request) {
    return load_configuration(daemon, request.record.src,
                              name_or(request.text(), daemon.configuration_file));
}

// The argument chooses the form: 0 the tree file, anything else a line for each
// parameter.
Result<std::string> dump(Daemon &daemon, const Request &request) {
    if (request.record.arg == 0)
        return store_configuration(daemon, daemon.tree, request.text());
    const auto done = daemon.files.write(request.text(), parameter_lines(*daemon.tree.list("/")));
    if (!done)
        return done.error();
    return std::string();
}

Result<std::string> use_file(Daemon &daemon, const Request &request) {
    if (const auto allowed = daemon.files.check(request.text()); !allowed)
        return allowed.error();
    daemon.configuration_file = request.text();
    return std::string();
}

} // namespace zan::sim
