// SPDX-License-Identifier: MIT
// System actions: what the daemon's file-and-action module carries out.
#include "run.h"

#include <climits>
#include <cstddef>
#include <cstring>

namespace zan::ctl {
namespace {

// What an action can be about, and its code.
struct Choice {
    const char *what;
    zan_action action;
};
constexpr Choice upgrades[] = {{"firmware", ZAN_ACTION_UPGRADE_FIRMWARE},
                               {"config", ZAN_ACTION_UPGRADE_CONFIG}};
constexpr Choice saves[] = {{"config", ZAN_ACTION_SAVE_CONFIG},
                            {"config2", ZAN_ACTION_SAVE_CONFIG2},
                            {"log", ZAN_ACTION_SAVE_LOG}};
constexpr Choice backups[] = {{"config", ZAN_ACTION_BACKUP_CONFIG},
                              {"old", ZAN_ACTION_BACKUP_OLD_CONFIG}};
constexpr Choice resets[] = {{"all", ZAN_ACTION_FACTORY_RESET},
                             {"but-wifi", ZAN_ACTION_FACTORY_RESET_WO_WIFI}};

template<std::size_t Size> std::vector<std::string> names_of(const Choice (&choices)[Size]) {
    std::vector<std::string> names;
    for (const Choice &choice : choices)
        names.emplace_back(choice.what);
    return names;
}

template<std::size_t Size>
zan_action chosen(const Choice (&choices)[Size], const Arguments &arguments) {
    for (const Choice &choice : choices)
        if (arguments.action.what == choice.what)
            return choice.action;
    return choices[0].action;
}

template<std::size_t Size>
CLI::Option *add_choice(CLI::App &app, Arguments &arguments, const Choice (&choices)[Size],
                        std::string description) {
    // The completion reads the words from the help.
    description += ", one of: ";
    for (const Choice &choice : choices)
        description += (&choice == choices ? "" : ", ") + std::string(choice.what);
    return app.add_option("WHAT", arguments.action.what, description)
        ->option_text("[]")
        ->check(CLI::IsMember(names_of(choices)).description(""));
}

// ---- arguments

std::string check_shell_command(const std::string &command) {
    if (command.empty() || command.size() > ZAN_LONGEST_SHELL_COMMAND)
        return "it has 1 to " + std::to_string(ZAN_LONGEST_SHELL_COMMAND) + " characters";
    return {};
}

CLI::Option *add_file(CLI::App &app, Arguments &arguments) {
    return app.add_option("FILE", arguments.action.name, "The file, by the daemon's name for it")
        ->option_text(" ")
        ->check(check_file_name);
}

void add_action_options(CLI::App &app, Arguments &arguments) {
    app.add_option("--param", arguments.action.parameter, "A number for the daemon (default: 0)")
        ->option_text("N")
        ->check(CLI::Range(0, INT_MAX));
    app.add_flag_callback(
        "--no-wait", [&arguments] { arguments.action.waits = false; },
        "Do not wait for the outcome");
}

void define_upgrade(CLI::App &app, Arguments &arguments) {
    add_choice(app, arguments, upgrades, "What to upgrade")->option_text(" ")->required();
    add_file(app, arguments)->required();
    add_action_options(app, arguments);
    add_confirmation(app, arguments);
}

void define_save(CLI::App &app, Arguments &arguments) {
    add_choice(app, arguments, saves, std::string("What to save (default: ") + saves[0].what + ")");
    add_action_options(app, arguments);
}

void define_backup(CLI::App &app, Arguments &arguments) {
    add_file(app, arguments)->option_text("[]");
    app.add_flag_callback(
        "--old", [&arguments] { arguments.action.what = "old"; },
        "The configuration before this one");
    add_action_options(app, arguments);
}

void define_factory_reset(CLI::App &app, Arguments &arguments) {
    app.add_option("NAME", arguments.action.name, "A name that the request carries")
        ->option_text("[]")
        ->check(check_file_name);
    app.add_flag_callback(
        "--keep-wifi", [&arguments] { arguments.action.what = "but-wifi"; },
        "Keep the Wi-Fi settings");
    add_action_options(app, arguments);
    add_confirmation(app, arguments);
}

void define_reboot(CLI::App &app, Arguments &arguments) {
    add_confirmation(app, arguments);
}

void define_shell(CLI::App &app, Arguments &arguments) {
    app.add_option("COMMAND", arguments.action.name,
                   "A command line for the daemon's shell, as one word")
        ->option_text(" ")
        ->required()
        ->check(check_shell_command);
    add_action_options(app, arguments);
    add_confirmation(app, arguments);
}

// ---- running

// Sent here when an answer is awaited: the library's wait keeps the daemon's text to
// itself.
std::string payload_of(zan_action action, const ActionLine &line) {
    zan_action_data payload = {};
    payload.code = action;
    payload.wait = 1;
    payload.param = line.parameter;
    line.name.copy(payload.name, sizeof payload.name - 1);
    std::string bytes(sizeof payload, '\0');
    std::memcpy(bytes.data(), &payload, sizeof payload);
    return bytes;
}

void act(Session &session, zan_action action, const ActionLine &line) {
    const char *const name = line.name.empty() ? nullptr : line.name.c_str();
    if (line.waits)
        session.request({ZAN_CLASS_ACTION, action, ZAN_MODULE_ACTION, payload_of(action, line)});
    else
        session.post([&] { return zan_fad_send(action, 0, line.parameter, action, name); });
}

int run_action(zan_action action, Session &session, const Arguments &arguments, Output &output) {
    const ActionLine &line = arguments.action;
    return attempt(arguments.command->name, [&] {
        act(session, action, line);
        Json json = {{"action", int{action}}, {"done", line.waits}};
        if (!line.name.empty())
            json["name"] = line.name;
        print_json(output, arguments, json);
    });
}

int run_upgrade(Session &session, const Arguments &arguments, Output &output) {
    return run_action(chosen(upgrades, arguments), session, arguments, output);
}

int run_save(Session &session, const Arguments &arguments, Output &output) {
    return run_action(chosen(saves, arguments), session, arguments, output);
}

int run_backup(Session &session, const Arguments &arguments, Output &output) {
    return run_action(chosen(backups, arguments), session, arguments, output);
}

int run_factory_reset(Session &session, const Arguments &arguments, Output &output) {
    return run_action(chosen(resets, arguments), session, arguments, output);
}

int run_shell(Session &session, const Arguments &arguments, Output &output) {
    return run_action(ZAN_ACTION_RUN_SHELL, session, arguments, output);
}

// Nobody may be left to tell the outcome.
int run_reboot(Session &session, const Arguments &arguments, Output &output) {
    session.post([] { return zan_reboot(0); });
    print_json(output, arguments, {{"action", int{ZAN_ACTION_REBOOT}}, {"done", false}});
    return exit_done;
}

constexpr Command action_commands[] = {
    {"fad", "Files and actions: upgrade, save, reset, reboot"},
    {"fad upgrade", "Upgrade the firmware or the configuration", define_upgrade, run_upgrade},
    {"fad save", "Save the configuration or the log", define_save, run_save},
    {"fad backup", "Back the configuration up", define_backup, run_backup},
    {"fad reset", "Reset the device to the factory's settings", define_factory_reset,
     run_factory_reset},
    {"fad reboot", "Restart the device", define_reboot, run_reboot},
    {"fad shell", "Run a command line in the daemon's shell", define_shell, run_shell},
};

} // namespace

const Family action_family = {"Actions", action_commands};

} // namespace zan::ctl
