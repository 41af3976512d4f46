// SPDX-License-Identifier: MIT
// Facts of the device, and the services that the daemon passes requests to.
#include "run.h"
#include "secret.h"

#include <climits>
#include <cstdlib>
#include <map>
#include <numeric>

namespace zan::ctl::device_commands {
namespace {

// ---- login

constexpr std::size_t max_login = ZAN_LONGEST_LOGIN;

struct LoginOptions : Options {
    std::vector<std::string> items;
};

std::string check_item(const std::string &item) {
    return item.find('\n') != std::string::npos ? "an item has no newline" : "";
}

void define_login(CLI::App &app, LoginOptions &options) {
    app.add_option("ITEM", options.items, "Four or five items; - reads one")
        ->option_text("...")
        ->required()
        ->check(check_item);
    app.parse_complete_callback([&options] {
        if (options.items.size() < 4 || options.items.size() > 5)
            throw CLI::ValidationError("ITEM", "a login has 4 or 5 items");
    });
    add_note(app,
             "An ITEM of - is read from standard input, one line each. A terminal prompts for\n"
             "it and does not echo it, as for a password.");
}

std::vector<std::string> read_items(const std::vector<std::string> &given) {
    std::vector<std::string> items = given;
    for (std::size_t i = 0; i < items.size(); ++i)
        if (items[i] == "-")
            items[i] = read_secret("item " + std::to_string(i + 1));
    return items;
}

std::string join_lines(const std::vector<std::string> &items) {
    std::string text;
    for (const std::string &item : items)
        text += (&item == &items.front() ? "" : "\n") + item;
    return text;
}

ExitCode run_login(Session &session, const LoginOptions &options, Output &output) {
    const std::string text = join_lines(read_items(options.items));
    if (text.size() > max_login)
        throw Error(ExitCode::usage,
                    "a login has at most " + std::to_string(max_login) + " characters");
    return attempt(output, options, "login", [&] {
        const long number = to_number(ask(session, ZAN_CFG_LOGIN, text));
        print(output, options, std::to_string(number), {{"login", number}});
    });
}

// ---- forms of paths

struct ConvertOptions : PathsOptions {
    int kind = 0;
};

void define_convert(CLI::App &app, ConvertOptions &options) {
    app.add_option("KIND", options.kind, "The kind of conversion, 0 to 9")
        ->option_text(" ")
        ->required()
        ->check(CLI::Range(0, 9));
    app.add_option("PATH", options.paths, "Paths or names to convert")
        ->option_text("...")
        ->required()
        ->check([](const std::string &path) {
            return path.size() == ZAN_PATH_SIZE - 1
                       ? "a path to convert has 1 to " + std::to_string(ZAN_PATH_SIZE - 2) +
                             " characters"
                       : check_path(path);
        });
}

// The request has the kind as a digit before the path.
ExitCode run_convert(Session &session, const ConvertOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        const std::string text =
            ask(session, ZAN_CFG_CONVERT_PATH, std::to_string(options.kind) + path);
        print(output, options, text, {{"path", path}, {"kind", options.kind}, {"converted", text}});
    });
}

void define_ifname(CLI::App &app, PathsOptions &options) {
    add_paths(app, options.paths)->required();
}

ExitCode run_ifname(Session &session, const PathsOptions &options, Output &output) {
    return for_each_path(output, options, [&](const std::string &path) {
        const std::string name = ask(session, ZAN_CFG_IFNAME, path);
        print(output, options, name, {{"path", path}, {"interface", name}});
    });
}

// ---- firewall

struct FirewallOptions : Options {
    std::map<char, std::string> texts; // by the letter of the option
    bool bridge = false;
};

// Letters of options that may be given together.
struct FirewallForm {
    const char *needed;
    const char *allowed;
};
constexpr FirewallForm firewall_forms[] = {{"f", "fpa"}, {"f", "fk"}, {"C", "C"}};
constexpr FirewallForm bridge_form = {"pim", "pim"};

bool has_form(const FirewallOptions &line, const FirewallForm &form) {
    const std::string_view needed = form.needed;
    const std::string_view allowed = form.allowed;
    return std::all_of(needed.begin(), needed.end(),
                       [&](char letter) { return line.texts.contains(letter); }) &&
           std::all_of(line.texts.begin(), line.texts.end(), [&](const auto &option) {
               return allowed.find(option.first) != std::string_view::npos;
           });
}

void check_firewall_line(const FirewallOptions &line) {
    const bool known = line.bridge
                           ? has_form(line, bridge_form)
                           : std::any_of(std::begin(firewall_forms), std::end(firewall_forms),
                                         [&](const auto &form) { return has_form(line, form); });
    if (!known)
        throw CLI::ValidationError("firewall", "the options are -f [-p] [-a], -f -k, -C, or "
                                               "-b -p -i -m");
    // "firewall_cntl", and for each text a space, the option and another space.
    const std::size_t size = std::accumulate(
        line.texts.begin(), line.texts.end(), std::size_t{13 + 3 * (line.bridge ? 1U : 0U)},
        [](std::size_t sum, const auto &option) { return sum + 4 + option.second.size(); });
    if (size > ZAN_LONGEST_COMMAND_LINE)
        throw CLI::ValidationError("firewall", "the line would have more than " +
                                                   std::to_string(ZAN_LONGEST_COMMAND_LINE) +
                                                   " characters");
}

void define_firewall(CLI::App &app, FirewallOptions &options) {
    const auto add = [&](char letter, const char *description) {
        return app
            .add_option_function<std::string>(
                std::string("-") + letter,
                [&options, letter](const std::string &text) { options.texts[letter] = text; },
                description)
            ->option_text("TEXT");
    };
    add('f', "The request");
    add('p', "With -f or -b");
    add('a', "With -f");
    add('k', "With -f");
    add('C', "A rule, without other options");
    app.add_flag("-b", options.bridge, "A notification of the bridge, with -p, -i and -m");
    add('i', "With -b");
    add('m', "With -b: a number")->check(CLI::Range(INT_MIN, INT_MAX))->option_text("N");
    add_confirmation(app, Confirmation::at_terminal, [&options] { check_firewall_line(options); });
}

int send_firewall_request(const FirewallOptions &options) {
    const auto text = [&](char letter) {
        const auto option = options.texts.find(letter);
        return option != options.texts.end() ? option->second.c_str() : nullptr;
    };
    if (options.bridge)
        return zan_firewall_l2b_notify(text('p'), text('i'), std::atoi(text('m')));
    if (text('C') != nullptr)
        return zan_firewall_request3("%s", text('C'));
    if (text('k') != nullptr)
        return zan_firewall_request4(text('f'), text('k'));
    return zan_firewall_request2(text('f'), text('p'), text('a'));
}

ExitCode run_firewall(Session &session, const FirewallOptions &options, Output &output) {
    session.post([&] { return send_firewall_request(options); });
    Json json = Json::object();
    for (const auto &[letter, text] : options.texts)
        json[std::string(1, letter)] = text;
    print_json(output, options, {{"firewall", json}});
    return ExitCode::done;
}

// ---- remote management

struct CwmpOptions : Options {
    int code = 0;
    std::string text;
};

void define_cwmp(CLI::App &app, CwmpOptions &options) {
    app.add_option("CODE", options.code, "The code of the request")->option_text(" ")->required();
    app.add_option("TEXT", options.text, "Its payload (default: none)")->option_text("[]");
    add_confirmation(app, Confirmation::at_terminal);
}

ExitCode run_cwmp(Session &session, const CwmpOptions &options, Output &output) {
    return attempt(output, options, "cwmp " + std::to_string(options.code), [&] {
        const Answer answer =
            session.exchange({ZAN_CLASS_CWMP, options.code, ZAN_MODULE_CWMP, options.text});
        if (options.json() || !answer.text.empty())
            print(output, options, answer.text,
                  {{"code", options.code}, {"result", answer.result}, {"answer", answer.text}});
    });
}

constexpr Command commands[] = {
    command<define_login, run_login>("login", "Check a login and print the daemon's number for it"),
    command<define_convert, run_convert>("convert", "Convert paths between the daemon's forms"),
    command<define_ifname, run_ifname>("ifname", "Print the interface names of paths"),
    command<define_firewall, run_firewall>("firewall", "Request a firewall change"),
    command<define_cwmp, run_cwmp>("cwmp", "Make a request to the remote-management client"),
};

const FamilyRegistration registration({"Device", 30, commands});

} // namespace
} // namespace zan::ctl::device_commands
