// SPDX-License-Identifier: MIT
// Values of the configuration tree to a file and back.
#include "file.h"
#include "instance.h"
#include "listing.h"
#include "printable.h"
#include "run.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <set>

namespace zan::ctl::transfer_commands {
namespace {

struct Setting {
    std::string path;
    std::string value;
};

struct FileOptions : Options {
    std::string file;
};

void add_input_file(CLI::App &app, std::string &file) {
    app.add_option("FILE", file, "The file, written by export; - for standard input")
        ->option_text(" ")
        ->required();
}

// ---- the file: lines PATH=VALUE, with values as printable() writes them

std::string format_setting(const Setting &setting) {
    return setting.path + "=" + printable(setting.value);
}

// Undoes printable().  Nothing for an incomplete or unknown escape.
std::optional<std::string> parse_printable(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        unsigned char byte = 0;
        const std::string_view escape = text.substr(i, 4); // \xHH
        const char *const end = escape.data() + escape.size();
        if (escape.size() != 4 || escape[1] != 'x')
            return std::nullopt;
        const auto [stop, error] = std::from_chars(escape.data() + 2, end, byte, 16);
        if (error != std::errc() || stop != end)
            return std::nullopt;
        result += static_cast<char>(byte);
        i += 3;
    }
    return result;
}

std::optional<Setting> parse_setting(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        return std::nullopt;
    const std::string path(line.substr(0, equals));
    const std::optional<std::string> value = parse_printable(line.substr(equals + 1));
    if (!value || !check_path(path).empty())
        return std::nullopt;
    return Setting{path, *value};
}

// Checks the whole file before anything is changed.
std::vector<Setting> read_settings(const std::string &file) {
    const std::optional<std::string> text = read_file(file);
    if (!text)
        throw Refusal(std::string("cannot read it: ") + std::strerror(errno));
    std::vector<Setting> settings;
    std::string_view rest = *text;
    for (std::size_t number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (line.empty() || line.front() == '#')
            continue;
        const std::optional<Setting> setting = parse_setting(line);
        if (!setting)
            throw Refusal("line " + std::to_string(number) +
                          " is not PATH=VALUE: " + printable(line.substr(0, 60)));
        settings.push_back(*setting);
    }
    return settings;
}

// ---- export

struct ExportOptions : ListingOptions {
    bool all = false;
};

void define_export(CLI::App &app, ExportOptions &options) {
    add_listing_options(app, options);
    app.add_flag("--all", options.all, "Include read-only values");
}

ExitCode run_export(Session &session, const ExportOptions &options, Output &output) {
    const auto visit = [&](const std::string &path, const ConfigNode &node, std::size_t) {
        if (node.value && (node.writable || options.all))
            print(output, options, format_setting({path, *node.value}),
                  {{"path", path}, {"value", *node.value}});
    };
    return attempt(output, options, options.path, [&] {
        const ConfigNode root = load_listing(session, options);
        if (!visit_tree(root, options.path, SIZE_MAX, visit))
            throw Refusal("no such node");
    });
}

// ---- import

void define_import(CLI::App &app, FileOptions &options) {
    add_input_file(app, options.file);
}

class Importer {
public:
    explicit Importer(Session &session) : session_(session) {}

    // Returns whether the value had to be written.
    bool write(const Setting &setting);
    std::size_t added() const { return added_; }

private:
    void add_missing_instances(const std::string &path);
    void add_missing_instance(const std::string &path);

    Session &session_;
    std::set<std::string> checked_; // paths of instances
    std::size_t added_ = 0;
};

bool Importer::write(const Setting &setting) {
    try {
        if (ask(session_, ZAN_CFG_GET, setting.path) == setting.value)
            return false;
    } catch (const Refusal &) {
        add_missing_instances(setting.path);
    }
    ask(session_, ZAN_CFG_SET, "0" + setting.path + " " + setting.value);
    return true;
}

void Importer::add_missing_instances(const std::string &path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (instance_number(part) && checked_.insert(part).second)
            add_missing_instance(part);
    }
}

void Importer::add_missing_instance(const std::string &path) {
    const auto number = instance_number(path);
    const auto present =
        parse_instances(ask(session_, ZAN_CFG_GET_ARRAY, path.substr(0, path.rfind(':'))));
    const auto is_it = [&](const Instance &instance) { return instance.number == number; };
    if (present && std::any_of(present->begin(), present->end(), is_it))
        return;
    ask(session_, ZAN_CFG_ANCHOR, path);
    ++added_;
}

ExitCode run_import(Session &session, const FileOptions &options, Output &output) {
    std::vector<Setting> settings;
    ExitCode exit_code =
        attempt(output, options, options.file, [&] { settings = read_settings(options.file); });
    if (exit_code != ExitCode::done)
        return exit_code;
    Importer importer(session);
    std::size_t written = 0;
    std::size_t unchanged = 0;
    std::size_t refused = 0;
    for (const Setting &setting : settings) {
        const ExitCode result = attempt(output, options, setting.path, [&] {
            if (importer.write(setting))
                ++written;
            else
                ++unchanged;
        });
        refused += result == ExitCode::done ? 0 : 1;
        exit_code = std::max(exit_code, result);
    }
    print(output, options,
          std::to_string(written) + " written, " + std::to_string(unchanged) + " unchanged, " +
              std::to_string(refused) + " refused, " + std::to_string(importer.added()) +
              (importer.added() == 1 ? " instance added" : " instances added"),
          {{"written", written},
           {"unchanged", unchanged},
           {"not_written", refused},
           {"instances_added", importer.added()}});
    return exit_code;
}

// ---- diff

void define_diff(CLI::App &app, FileOptions &options) {
    add_input_file(app, options.file);
}

void print_difference(Output &output, const Options &options, const Setting &setting,
                      const std::string &live) {
    if (options.json()) {
        output.line(to_line({{"path", setting.path}, {"file", setting.value}, {"live", live}}));
        return;
    }
    const bool colors = output.has_colors();
    output.line(colored(colors, Color::red, "-" + format_setting(setting)));
    output.line(colored(colors, Color::green, "+" + format_setting({setting.path, live})));
}

ExitCode run_diff(Session &session, const FileOptions &options, Output &output) {
    std::vector<Setting> settings;
    ExitCode exit_code =
        attempt(output, options, options.file, [&] { settings = read_settings(options.file); });
    for (const Setting &setting : settings) {
        const ExitCode result = attempt(output, options, setting.path, [&] {
            const std::string live = ask(session, ZAN_CFG_GET, setting.path);
            if (live == setting.value)
                return;
            print_difference(output, options, setting, live);
            exit_code = ExitCode::refused;
        });
        exit_code = std::max(exit_code, result);
    }
    return exit_code;
}

constexpr Command commands[] = {
    command<define_export, run_export>("export", "Print the values below a path, for import"),
    command<define_import, run_import>("import", "Write the values of a file"),
    command<define_diff, run_diff>("diff", "Compare the values of a file with the daemon's"),
};

const FamilyRegistration registration({"Backup", 12, commands});

} // namespace
} // namespace zan::ctl::transfer_commands
