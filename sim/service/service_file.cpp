// SPDX-License-Identifier: MIT
#include "state/daemon.h"
#include "tree/tree_file.h"

namespace zan::sim {

namespace {

std::string_view name_or(std::string_view name, std::string_view usual) {
    return name.empty() ? usual : name;
}

} // namespace

Result<std::string> work_with_files(Daemon &daemon, const Request &request, DiskPart part) {
    auto piece = [&daemon, asker = request.asker, part = std::move(part)] {
        const auto done = part();
        const auto guard = daemon.lock();
        if (!done)
            return daemon.conclude(asker, done.error());
        (*done)();
        daemon.conclude(asker, std::string());
    };
    if (const auto added = daemon.file_work.add(std::move(piece)); !added)
        return added.error();
    return std::string();
}

Result<std::string> load_configuration(Daemon &daemon, const Request &request, std::string name) {
    using Rest = std::function<void()>;
    return work_with_files(
        daemon, request,
        [&daemon, source = request.record.src, name = std::move(name)]() -> Result<Rest> {
            const auto text = daemon.files.read(name);
            if (!text)
                return text.error();
            auto tree = parse_tree(*text, name);
            if (!tree)
                return Error{file_failed, tree.error().text};
            return Rest([&daemon, source, tree = std::move(*tree)]() mutable {
                daemon.replace_tree(source, std::move(tree));
            });
        });
}

Result<std::string> store_file(Daemon &daemon, const Request &request, std::string name,
                               std::function<std::string()> text, std::function<void()> stored) {
    using Rest = std::function<void()>;
    return work_with_files(daemon, request,
                           [&daemon, name = std::move(name), text = std::move(text),
                            stored = std::move(stored)]() -> Result<Rest> {
                               const auto done = daemon.files.write(name, text());
                               if (!done)
                                   return done.error();
                               return stored;
                           });
}

Result<std::string> reload(Daemon &daemon, const Request &request) {
    return load_configuration(daemon, request,
                              std::string(name_or(request.text(), daemon.configuration_file)));
}

// The argument chooses the form: 0 the tree file, anything else a line for each
// parameter.
Result<std::string> dump(Daemon &daemon, const Request &request) {
    const auto text = [tree = daemon.tree, as_tree = request.record.arg == 0] {
        return as_tree ? format_tree(tree) : parameter_lines(*tree.list("/"));
    };
    return store_file(daemon, request, std::string(request.text()), text);
}

Result<std::string> use_file(Daemon &daemon, const Request &request) {
    if (const auto allowed = daemon.files.check(request.text()); !allowed)
        return allowed.error();
    daemon.configuration_file = request.text();
    return std::string();
}

} // namespace zan::sim
