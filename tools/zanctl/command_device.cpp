// SPDX-License-Identifier: MIT
// What the daemon knows about the device, and the services beside it.
#include "run.h"
#include "secret.h"

#include <climits>
#include <cstdlib>
#include <numeric>

namespace zan::ctl {
namespace {

// ---- login

std::string check_item(const std::string &item) {
    return item.find('\n') != std::string::npos ? "an item has no line end" : "";
}

void define_login(CLI::App &app, Arguments &arguments) {
    app.add_option("ITEM", arguments.items, "Four items of a login, or five; - for one to read")
        ->option_text("...")
        ->required()
        ->check(check_item);
    app.parse_complete_callback([&arguments] {
        if (arguments.items.size() < 4 || arguments.items.size() > 5)
            throw CLI::ValidationError("ITEM", "a login has 4 or 5 of them");
    });
    add_note(app, "An ITEM of - is read from standard input, a line each; at a terminal it is\n"
                  "prompted for and not shown, as a password should be.");
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

int run_login(Session &session, const Arguments &arguments, Output &output) {
    const std::string text = join_lines(read_items(arguments.items));
    if (text.size() > ZAN_LONGEST_LOGIN)
        throw Failure(exit_usage,
                      "a login has at most " + std::to_string(ZAN_LONGEST_LOGIN) + " characters");
    return attempt("login", [&] {
        const long number = to_number(ask(session, ZAN_CFG_LOGIN, text));
        print(output, arguments, std::to_string(number), {{"login", number}});
    });
}

// ---- forms of paths

// The kind travels as a digit in front of the path.
void define_convert(CLI::App &app, Arguments &arguments) {
    app.add_option("KIND", arguments.conversion, "Which conversion, 0 to 9")
        ->option_text(" ")
        ->required()
        ->check(CLI::Range(0, 9));
    app.add_option("PATH", arguments.paths, "Paths or names, in the form they are known in")
        ->option_text("...")
        ->required()
        ->check([](const std::string &path) {
            return path.size() == ZAN_PATH_SIZE - 1
                       ? "a path to convert has 1 to " + std::to_string(ZAN_PATH_SIZE - 2) +
                             " characters"
                       : check_path(path);
        });
}

void define_ifname(CLI::App &app, Arguments &arguments) {
    add_paths(app, arguments)->required();
}

int run_convert(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string text =
            ask(session, ZAN_CFG_CONVERT_PATH, std::to_string(arguments.conversion) + path);
        print(output, arguments, text,
              {{"path", path}, {"kind", arguments.conversion}, {"converted", text}});
    });
}

int run_ifname(Session &session, const Arguments &arguments, Output &output) {
    return for_each_path(arguments, [&](const std::string &path) {
        const std::string name = ask(session, ZAN_CFG_IFNAME, path);
        print(output, arguments, name, {{"path", path}, {"interface", name}});
    });
}

// ---- firewall

// The options that may stand together.
struct FirewallForm {
    const char *needed;
    const char *allowed;
};
constexpr FirewallForm firewall_forms[] = {{"f", "fpa"}, {"f", "fk"}, {"C", "C"}};
constexpr FirewallForm bridge_form = {"pim", "pim"};

bool has_form(const FirewallLine &line, const FirewallForm &form) {
    const std::string_view needed = form.needed;
    const std::string_view allowed = form.allowed;
    return std::all_of(needed.begin(), needed.end(),
                       [&](char letter) { return line.options.contains(letter); }) &&
           std::all_of(line.options.begin(), line.options.end(), [&](const auto &option) {
               return allowed.find(option.first) != std::string_view::npos;
           });
}

void check_firewall_line(const FirewallLine &line) {
    const bool known = line.bridge
                           ? has_form(line, bridge_form)
                           : std::any_of(std::begin(firewall_forms), std::end(firewall_forms),
                                         [&](const auto &form) { return has_form(line, form); });
    if (!known)
        throw CLI::ValidationError("firewall", "the options are -f [-p] [-a], -f -k, -C, or "
                                               "-b -p -i -m");
    // "firewall_cntl", and a blank, the option, and another blank before each text.
    const std::size_t size = std::accumulate(
        line.options.begin(), line.options.end(), std::size_t{13 + 3 * (line.bridge ? 1U : 0U)},
        [](std::size_t sum, const auto &option) { return sum + 4 + option.second.size(); });
    if (size > ZAN_LONGEST_COMMAND_LINE)
        throw CLI::ValidationError("firewall", "the line would have more than " +
                                                   std::to_string(ZAN_LONGEST_COMMAND_LINE) +
                                                   " characters");
}

void define_firewall(CLI::App &app, Arguments &arguments) {
    FirewallLine &line = arguments.firewall;
    const auto add = [&](char letter, const char *description) {
        return app
            .add_option_function<std::string>(
                std::string("-") + letter,
                [&line, letter](const std::string &text) { line.options[letter] = text; },
                description)
            ->option_text("TEXT");
    };
    add('f', "The request");
    add('p', "With -f or -b");
    add('a', "With -f");
    add('k', "With -f alone");
    add('C', "A rule of its own");
    app.add_flag("-b", line.bridge, "A notification of the bridge, with -p, -i and -m");
    add('i', "With -b");
    add('m', "With -b: a number")->check(CLI::Range(INT_MIN, INT_MAX))->option_text("N");
    add_confirmation(app, arguments, [&line] { check_firewall_line(line); });
}

int send_firewall_line(const FirewallLine &line) {
    const auto text = [&](char letter) {
        const auto option = line.options.find(letter);
        return option != line.options.end() ? option->second.c_str() : nullptr;
    };
    if (line.bridge)
        return zan_firewall_l2b_notify(text('p'), text('i'), std::atoi(text('m')));
    if (text('C') != nullptr)
        return zan_firewall_request3("%s", text('C'));
    if (text('k') != nullptr)
        return zan_firewall_request4(text('f'), text('k'));
    return zan_firewall_request2(text('f'), text('p'), text('a'));
}

int run_firewall(Session &session, const Arguments &arguments, Output &output) {
    session.post([&] { return send_firewall_line(arguments.firewall); });
    Json json = Json::object();
    for (const auto &[letter, text] : arguments.firewall.options)
        json[std::string(1, letter)] = text;
    print_json(output, arguments, {{"firewall", json}});
    return exit_done;
}

// ---- remote management

void define_cwmp(CLI::App &app, Arguments &arguments) {
    app.add_option("CODE", arguments.code, "The code of the request")->option_text(" ")->required();
    app.add_option("TEXT", arguments.text, "What it carries (default: nothing)")->option_text("[]");
    add_confirmation(app, arguments);
}

int run_cwmp(Session &session, const Arguments &arguments, Output &output) {
    return attempt("cwmp " + std::to_string(arguments.code), [&] {
        const Answer answer =
            session.exchange({ZAN_CLASS_CWMP, arguments.code, ZAN_MODULE_CWMP, arguments.text});
        if (arguments.json || !answer.text.empty())
            print(output, arguments, answer.text,
                  {{"code", arguments.code}, {"result", answer.result}, {"answer", answer.text}});
    });
}

constexpr Command device_commands[] = {
    {"login", "Check a login, and print the daemon's number for it", define_login, run_login},
    {"convert", "Convert paths between the daemon's forms", define_convert, run_convert},
    {"ifname", "Print the names of interfaces", define_ifname, run_ifname},
    {"firewall", "Have the daemon change the firewall", define_firewall, run_firewall},
    {"cwmp", "Make a request to the remote-management client", define_cwmp, run_cwmp},
};

} // namespace

const Family device_family = {"Device", device_commands};

} // namespace zan::ctl
