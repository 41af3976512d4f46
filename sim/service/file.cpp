// SPDX-License-Identifier: MIT
#include "service/file_requests.h"
#include "tree/tree_file.h"

#include <array>

namespace zan::sim {

Result<std::string> work_with_files(Daemon &daemon, const Request &request, DiskPart part) {
    auto piece = [shared = daemon.shared(), requester = request.requester, part = std::move(part)] {
        const auto done = part();
        const auto guard = shared.lock();
        if (!done)
            return guard->finish(requester, done.error());
        (*done)(*guard);
        guard->finish(requester, std::string());
    };
    if (const auto added = daemon.file_work.add(std::move(piece)); !added)
        return added.error();
    return std::string();
}

Result<std::string> load_configuration(Daemon &daemon, const Request &request, std::string name) {
    return work_with_files(daemon, request,
                           [files = daemon.files, source = request.record.src,
                            name = std::move(name)]() -> Result<LockedPart> {
                               const auto text = files->read(name);
                               if (!text)
                                   return text.error();
                               auto tree = parse_tree(*text, name);
                               if (!tree)
                                   return Error{file_failed, tree.error().text};
                               return LockedPart(
                                   [source, tree = std::move(*tree)](Daemon &target) mutable {
                                       target.replace_tree(source, std::move(tree));
                                   });
                           });
}

Result<std::string> store_file(Daemon &daemon, const Request &request, std::string name,
                               std::function<std::string()> text, LockedPart stored) {
    return work_with_files(daemon, request,
                           [files = daemon.files, name = std::move(name), text = std::move(text),
                            stored = std::move(stored)]() -> Result<LockedPart> {
                               const auto done = files->write(name, text());
                               if (!done)
                                   return done.error();
                               return stored;
                           });
}

namespace {

std::string_view name_or(std::string_view name, std::string_view fallback) {
    return name.empty() ? fallback : name;
}

Result<std::string> reload(Daemon &daemon, const Request &request) {
    return load_configuration(daemon, request,
                              std::string(name_or(request.text(), daemon.configuration_file)));
}

// The argument selects the format: 0 is a tree file, anything else one line for each
// parameter.
Result<std::string> dump(Daemon &daemon, const Request &request) {
    const auto text = [tree = daemon.tree, as_tree = request.record.arg == 0] {
        return as_tree ? format_tree(tree) : parameter_lines(*tree.list("/"));
    };
    return store_file(daemon, request, std::string(request.text()), text);
}

Result<std::string> use_file(Daemon &daemon, const Request &request) {
    if (const auto allowed = daemon.files->check(request.text()); !allowed)
        return allowed.error();
    daemon.configuration_file = request.text();
    return std::string();
}

using enum PayloadForm;

constexpr std::array rows{
    Service{ZAN_CLASS_CFG, ZAN_CFG_RELOAD, "reload", path, none, reload, Reply::by_handler},
    Service{ZAN_CLASS_CFG, ZAN_CFG_DUMP, "dump", path, none, dump, Reply::by_handler},
    Service{ZAN_CLASS_CFG, ZAN_CFG_SET_FILE, "set-file", path, none, use_file},
};

const ServiceRows registered(rows);

} // namespace

} // namespace zan::sim
