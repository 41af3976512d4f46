// SPDX-License-Identifier: MIT
// System actions, which the daemon's file-and-action module carries out.
#include "progress.h"
#include "run.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <optional>

namespace zan::ctl::action_commands {
namespace {

constexpr std::size_t max_shell_command = ZAN_LONGEST_SHELL_COMMAND;
// For upgrades and backups, which may write flash memory or move files over the network.
constexpr double long_timeout = 600;

struct ActionOptions : Options {
    std::string what; // one of the choices of the action
    std::string name; // a file, a name or a shell command, in the record's field `name`
    int parameter = 0;
    bool waits = true;
};

// The word for an action on the command line.
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

template<std::size_t size> std::vector<std::string> names_of(const Choice (&choices)[size]) {
    std::vector<std::string> names;
    for (const Choice &choice : choices)
        names.emplace_back(choice.what);
    return names;
}

// The first choice is the default.
template<std::size_t size>
zan_action find_action(const Choice (&choices)[size], const ActionOptions &options) {
    for (const Choice &choice : choices)
        if (options.what == choice.what)
            return choice.action;
    return choices[0].action;
}

template<std::size_t size>
CLI::Option *add_choice(CLI::App &app, ActionOptions &options, const Choice (&choices)[size],
                        std::string description) {
    // The completion takes the words from the help.
    description += ", one of: ";
    for (const Choice &choice : choices)
        description += (&choice == choices ? "" : ", ") + std::string(choice.what);
    return app.add_option("WHAT", options.what, description)
        ->option_text("[]")
        ->check(CLI::IsMember(names_of(choices)).description(""));
}

// ---- options

std::string check_shell_command(const std::string &command) {
    if (command.empty() || command.size() > max_shell_command)
        return "a command has 1 to " + std::to_string(max_shell_command) + " characters";
    return {};
}

CLI::Option *add_file(CLI::App &app, ActionOptions &options) {
    return app.add_option("FILE", options.name, "The file, which the daemon opens")
        ->option_text(" ")
        ->check(check_file_name);
}

void add_action_options(CLI::App &app, ActionOptions &options) {
    app.add_option("--param", options.parameter, "A number for the daemon (default: 0)")
        ->option_text("N")
        ->check(CLI::Range(0, INT_MAX));
    app.add_flag_callback(
        "--no-wait", [&options] { options.waits = false; }, "Do not wait for the result");
}

void note_long_timeout(CLI::App &app) {
    add_note(app,
             "This may take long: without --timeout it waits up to 10 minutes for the answer.");
}

void define_upgrade(CLI::App &app, ActionOptions &options) {
    add_choice(app, options, upgrades, "What to upgrade")->option_text(" ")->required();
    add_file(app, options)->required();
    add_action_options(app, options);
    add_confirmation(app, Confirmation::at_terminal);
    note_long_timeout(app);
}

void define_save(CLI::App &app, ActionOptions &options) {
    add_choice(app, options, saves, std::string("What to save (default: ") + saves[0].what + ")");
    add_action_options(app, options);
}

void define_backup(CLI::App &app, ActionOptions &options) {
    add_file(app, options)->option_text("[]");
    app.add_flag_callback(
        "--old", [&options] { options.what = "old"; }, "The previous configuration");
    add_action_options(app, options);
    note_long_timeout(app);
}

void define_reset(CLI::App &app, ActionOptions &options) {
    app.add_option("NAME", options.name, "A name for the daemon")
        ->option_text("[]")
        ->check(check_file_name);
    app.add_flag_callback(
        "--keep-wifi", [&options] { options.what = "but-wifi"; }, "Keep the Wi-Fi settings");
    add_action_options(app, options);
    add_confirmation(app, Confirmation::always);
}

void define_reboot(CLI::App &app, ActionOptions & /*options*/) {
    add_confirmation(app, Confirmation::always);
}

void define_shell(CLI::App &app, ActionOptions &options) {
    app.add_option("COMMAND", options.name, "A command line for the daemon's shell, as one word")
        ->option_text(" ")
        ->required()
        ->check(check_shell_command);
    add_action_options(app, options);
    add_confirmation(app, Confirmation::at_terminal);
}

// ---- running

std::string format_payload(zan_action action, const ActionOptions &options) {
    zan_action_data payload = {};
    payload.code = action;
    payload.wait = 1;
    payload.param = options.parameter;
    options.name.copy(payload.name, sizeof payload.name - 1);
    std::string bytes(sizeof payload, '\0');
    std::memcpy(bytes.data(), &payload, sizeof payload);
    return bytes;
}

// What to perform.  A timeout of 0 is the session's.
struct Action {
    const char *subject;
    zan_action code;
    double timeout = 0;
};

// Requests that wait are sent here: the library's own function does not return the text of
// a refusal.
void perform(const Action &action, Session &session, const ActionOptions &options) {
    const char *const name = options.name.empty() ? nullptr : options.name.c_str();
    if (!options.waits) {
        session.post(
            [&] { return zan_fad_send(action.code, 0, options.parameter, action.code, name); });
        return;
    }
    std::optional<Progress> progress;
    if (action.timeout > 0)
        progress.emplace(std::string(action.subject) + ": waiting for the daemon, up to " +
                         duration_text(action.timeout));
    session.request({ZAN_CLASS_ACTION, action.code, ZAN_MODULE_ACTION,
                     format_payload(action.code, options), 0, action.timeout});
}

ExitCode run_action(const Action &action, Session &session, const ActionOptions &options,
                    Output &output) {
    return attempt(output, options, action.subject, [&] {
        perform(action, session, options);
        Json json = {{"action", int{action.code}}, {"done", options.waits}};
        if (!options.name.empty())
            json["name"] = options.name;
        print_json(output, options, json);
    });
}

double timeout_of_long_action(const ActionOptions &options) {
    return options.global->timeout.value_or(long_timeout);
}

ExitCode run_upgrade(Session &session, const ActionOptions &options, Output &output) {
    return run_action(
        {"action upgrade", find_action(upgrades, options), timeout_of_long_action(options)},
        session, options, output);
}

ExitCode run_save(Session &session, const ActionOptions &options, Output &output) {
    return run_action({"action save", find_action(saves, options)}, session, options, output);
}

ExitCode run_backup(Session &session, const ActionOptions &options, Output &output) {
    return run_action(
        {"action backup", find_action(backups, options), timeout_of_long_action(options)}, session,
        options, output);
}

ExitCode run_reset(Session &session, const ActionOptions &options, Output &output) {
    return run_action({"action reset", find_action(resets, options)}, session, options, output);
}

ExitCode run_shell(Session &session, const ActionOptions &options, Output &output) {
    return run_action({"action shell", ZAN_ACTION_RUN_SHELL}, session, options, output);
}

// Does not wait, because the device may restart before it answers.
ExitCode run_reboot(Session &session, const ActionOptions &options, Output &output) {
    session.post([] { return zan_reboot(0); });
    print_json(output, options, {{"action", int{ZAN_ACTION_REBOOT}}, {"done", false}});
    return ExitCode::done;
}

constexpr Command commands[] = {
    command_group("action", "Upgrade, save, back up, reset or restart the device", "fad"),
    command<define_upgrade, run_upgrade>("action upgrade",
                                         "Upgrade the firmware or the configuration"),
    command<define_save, run_save>("action save", "Save the configuration or the log"),
    command<define_backup, run_backup>("action backup", "Back up the configuration"),
    command<define_reset, run_reset>("action reset", "Reset the device to its factory settings"),
    command<define_reboot, run_reboot>("action reboot", "Restart the device"),
    command<define_shell, run_shell>("action shell", "Run a command in the daemon's shell"),
};

const FamilyRegistration registration({"Actions", 40, commands});

} // namespace
} // namespace zan::ctl::action_commands
