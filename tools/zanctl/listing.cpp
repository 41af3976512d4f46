// SPDX-License-Identifier: MIT
#include "listing.h"

#include "file.h"
#include "instance.h"
#include "run.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace zan::ctl {
namespace {

constexpr const char *advice =
    " (zanctl lists nodes from a dump of the daemon's; give a schema with --tree FILE)";

// ---- from a dump

// Where the daemon may write a dump.  zansim writes only below its own directory, which it
// names in its tree; another daemon gets a new directory of this user's.
class DumpFile {
public:
    explicit DumpFile(Session &session);
    ~DumpFile();
    DumpFile(const DumpFile &) = delete;
    DumpFile &operator=(const DumpFile &) = delete;

    const std::string &path() const { return path_; }

private:
    std::string path_;
    std::string directory_; // made here
};

DumpFile::DumpFile(Session &session) {
    std::string directory;
    try {
        directory = ask(session, ZAN_CFG_GET, "/zansim/directory");
    } catch (const Refusal &) {
        char name[] = "/tmp/zanctl-XXXXXX";
        if (mkdtemp(name) == nullptr)
            throw std::system_error(errno, std::generic_category(), "cannot create a directory");
        directory = directory_ = name;
    }
    path_ = directory + "/zanctl-" + std::to_string(getpid()) + ".tree";
}

DumpFile::~DumpFile() {
    unlink(path_.c_str());
    if (!directory_.empty())
        rmdir(directory_.c_str());
}

// A tree file is JSON, so bytes that are not UTF-8 are "?" in it: such values are read
// again.
void read_inexact_values(Session &session, ConfigNode &node, const std::string &path) {
    if (node.kind == ConfigNode::Kind::value && node.value &&
        node.value->find('?') != std::string::npos)
        node.value = ask(session, ZAN_CFG_GET, path);
    for (ConfigNode &child : node.children)
        read_inexact_values(session, child, path + "/" + child.name);
    for (auto &[number, instance] : node.instances)
        read_inexact_values(session, instance, path + ":" + std::to_string(number));
}

ConfigNode dump_tree(Session &session) {
    const DumpFile file(session);
    try {
        ask(session, ZAN_CFG_DUMP, file.path());
    } catch (const Refusal &refusal) {
        throw Refusal(std::string("cannot list: ") + refusal.what() + advice, refusal.code());
    }
    const std::optional<std::string> text = read_file(file.path());
    if (!text)
        throw Refusal("cannot list: the daemon's dump " + file.path() + " cannot be read" + advice);
    try {
        ConfigNode root = parse_tree(*text);
        read_inexact_values(session, root, "");
        return root;
    } catch (const Refusal &refusal) {
        throw Refusal(std::string("cannot list: the daemon's dump has an unknown form: ") +
                      refusal.what() + advice);
    }
}

// ---- from a schema

// Instances as the daemon lists them; those of the schema if it lists them differently.
void update_instances(Session &session, ConfigNode &table, const std::string &path) {
    std::optional<std::vector<Instance>> live;
    try {
        live = parse_instances(ask(session, ZAN_CFG_GET_ARRAY, path));
    } catch (const Refusal &) {
    }
    if (!live)
        return;
    std::vector<ConfigNode> children = table.instance_template;
    if (children.empty() && !table.instances.empty())
        children = table.instances.begin()->second.children;
    std::map<unsigned, ConfigNode> instances;
    for (const Instance &instance : *live) {
        const auto known = table.instances.find(instance.number);
        instances[instance.number] = known != table.instances.end()
                                         ? known->second
                                         : ConfigNode{.name = table.name, .children = children};
    }
    table.instances = std::move(instances);
}

void read_live(Session &session, ConfigNode &node, const std::string &path) {
    if (node.kind == ConfigNode::Kind::value) {
        node.value.reset();
        try {
            node.value = ask(session, ZAN_CFG_GET, path);
        } catch (const Refusal &) { // listed without a value
        }
    }
    if (node.kind == ConfigNode::Kind::table)
        update_instances(session, node, path);
    for (ConfigNode &child : node.children)
        read_live(session, child, path + "/" + child.name);
    for (auto &[number, instance] : node.instances)
        read_live(session, instance, path + ":" + std::to_string(number));
}

// The part of the schema at the path only: each value is a request.
void read_live_at(Session &session, ConfigNode &root, std::string_view path) {
    const std::string_view first =
        path.substr(0, path.find('/', 1)).substr(std::min<std::size_t>(path.size(), 1));
    const std::string_view name = first.substr(0, first.find(':'));
    for (ConfigNode &child : root.children)
        if (name.empty() || child.name == name)
            read_live(session, child, "/" + child.name);
}

} // namespace

void add_listing_options(CLI::App &app, ListingOptions &options) {
    app.add_option("PATH", options.path, "A path, such as /sys/user:1 (default: /)")
        ->option_text("[]")
        ->check(check_path);
    app.add_option("--tree", options.tree_file,
                   "File that says which nodes exist: a tree file of zansim,\n"
                   "or lines PATH=VALUE (default: a dump by the daemon)")
        ->option_text("FILE");
}

ConfigNode load_listing(Session &session, const ListingOptions &options) {
    if (options.tree_file.empty())
        return dump_tree(session);
    const std::optional<std::string> text = read_file(options.tree_file);
    if (!text)
        throw Refusal("cannot read it: " + std::string(std::strerror(errno)), {},
                      options.tree_file);
    try {
        ConfigNode root = parse_tree(*text);
        read_live_at(session, root, options.path);
        return root;
    } catch (const Refusal &refusal) {
        throw Refusal(refusal.what(), refusal.code(), options.tree_file);
    }
}

} // namespace zan::ctl
