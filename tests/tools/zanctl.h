// SPDX-License-Identifier: MIT
#pragma once

#include "support/commands.h"
#include "support/daemon.h"
#include "support/program.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace zan::test {

inline constexpr int exit_done = 0;
inline constexpr int exit_refused = 1;
inline constexpr int exit_usage = 2;
inline constexpr int exit_no_daemon = 3;
inline constexpr int exit_no_answer = 4;

// Every command; zanctl_usage_test compares the list with the help.  The second word is
// that of a command in a group.
struct CommandName {
    std::vector<std::string> words;
    bool needs_daemon = true;
};
inline const std::vector<CommandName> zanctl_commands = {
    {{"get"}},
    {{"set"}},
    {{"count"}},
    {{"array"}},
    {{"add"}},
    {{"del"}},
    {{"watch"}},
    {{"pid"}},
    {{"send"}},
    {{"broadcast"}},
    {{"listen"}},
    {{"control"}},
    {{"path", "match"}, false},
    {{"path", "part"}, false},
    {{"path", "object"}, false},
    {{"path", "extract"}, false},
    {{"route", "get"}, false},
    {{"ifaddr"}, false},
    {{"mac-port"}, false},
    {{"log", "list"}, false},
    {{"log", "level"}},
    {{"log", "dest"}},
    {{"log", "tail"}, false},
    {{"attr", "get"}},
    {{"attr", "set"}},
    {{"dump"}},
    {{"print"}},
    {{"reset"}},
    {{"apply"}},
    {{"login"}},
    {{"convert"}},
    {{"ifname"}},
    {{"firewall"}},
    {{"cwmp"}},
    {{"ls"}},
    {{"tree"}},
    {{"export"}},
    {{"import"}},
    {{"diff"}},
    {{"batch"}},
    {{"help"}, false},
    {{"action", "upgrade"}},
    {{"action", "save"}},
    {{"action", "backup"}},
    {{"action", "reset"}},
    {{"action", "reboot"}},
    {{"action", "shell"}},
    {{"event", "encode"}, false},
    {{"event", "decode"}, false},
};

std::vector<std::string> zanctl_command(const std::vector<std::string> &arguments);

// The command as this machine starts it: through the emulator where one is needed.
std::vector<std::string> target_command(const std::vector<std::string> &command);

// A script for this machine's shell in which "$@" is zanctl with these arguments.
std::vector<std::string> script(const std::string &text, const std::vector<std::string> &arguments);

// What is left of modules in /tmp: "NAME_INSTANCE.msq" for each key file of zanctl.
std::vector<std::string> zanctl_key_files();

struct Ended {
    int status;
    std::string output;
    std::string error;
};

// Runs zanctl to its end, without a daemon of the fixture's.
Ended run_zanctl(const std::vector<std::string> &arguments);

// zanctl with a scripted daemon.
class ZanctlTest : public testing::Test {
protected:
    // Runs it to its end.  What arrived at the daemon is in `records`.
    Ended run(const std::vector<std::string> &arguments);
    Ended finish(Program &program);
    // Lets the timeout of the program's current wait expire now, by the signal of its
    // timer, and runs it to its end. Give the program a long --timeout: then it is the
    // test that decides when it is over, however slow the machine is.
    Ended expire(Program &program);
    // Runs it until so many records have arrived, then as expire() does.
    Ended run_until_expired(const std::vector<std::string> &arguments, std::size_t records);

    // The request between registration and unregistration, when there was one.
    SizedRecord only_request() const;

    // The fields of a request of the last program run.
    Fields request(int type, int cmd, const std::string &dst, const std::string &payload) const;

    void expect_left_nothing() const;

    ScriptedDaemon daemon;
    std::vector<SizedRecord> records;
    pid_t pid = -1;
};

} // namespace zan::test
