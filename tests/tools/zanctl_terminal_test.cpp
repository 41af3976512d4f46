// SPDX-License-Identifier: MIT
//
// zanctl with a terminal for its standard input.
#include "zanctl.h"

#include "support/patience.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace zan::test {
namespace {

class Terminal {
public:
    Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0)
            throw std::runtime_error("no terminal to be had");
        // Kept open, so that the terminal outlives each program on it.
        slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal() {
        close(slave_);
        close(master_);
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    std::string path() const { return ptsname(master_); }
    void type(const std::string &text) const {
        if (write(master_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("cannot type");
    }
    bool echoes() const {
        termios state{};
        tcgetattr(slave_, &state);
        return (state.c_lflag & ECHO) != 0;
    }
    // What it shows of what was typed.
    std::string shown() const {
        std::string text;
        pollfd ready{master_, POLLIN, 0};
        char bytes[256];
        while (poll(&ready, 1, 0) == 1) {
            const ssize_t got = read(master_, bytes, sizeof bytes);
            if (got <= 0)
                break;
            text.append(bytes, static_cast<std::size_t>(got));
        }
        return text;
    }

private:
    int master_;
    int slave_ = -1;
};

class ZanctlAtATerminal : public ZanctlTest {
protected:
    std::vector<std::string> at_terminal(const std::vector<std::string> &arguments) const {
        return script("exec \"$@\" <" + terminal.path(), arguments);
    }
    Ended run_at_terminal(const std::vector<std::string> &arguments) {
        daemon.forget_records();
        Program program(at_terminal(arguments), {.host = true});
        return finish(program);
    }

    Terminal terminal;
};

TEST_F(ZanctlAtATerminal, RequiresYesForChangesOfTheDevice) {
    const std::vector<std::vector<std::string>> commands = {
        {"apply", "--firewall"},     {"action", "upgrade", "firmware", "f"},
        {"action", "shell", "true"}, {"firewall", "-f", "up"},
        {"control", "ls"},           {"cwmp", "1", "a"},
    };
    for (std::vector<std::string> words : commands) {
        SCOPED_TRACE(words.front() + " " + words.back());
        const Ended refused = run_at_terminal(words);
        EXPECT_EQ(refused.status, exit_usage);
        EXPECT_EQ(refused.error, "zanctl: --yes: required at a terminal: this changes the device\n"
                                 "Run with --help for more information.\n");
        EXPECT_TRUE(records.empty());
        words.emplace_back("--yes");
        EXPECT_EQ(run_at_terminal(words).status, exit_done);
        EXPECT_EQ(records.size(), 3U);
    }
}

// Without a terminal too.
TEST_F(ZanctlAtATerminal, RequiresYesForDestructiveCommandsInScriptsToo) {
    const std::vector<std::vector<std::string>> commands = {
        {"reset", "/a"}, {"action", "reset"}, {"action", "reboot"}, {"fad", "reboot"}};
    for (const std::vector<std::string> &words : commands) {
        SCOPED_TRACE(words.front() + " " + words.back());
        for (const Ended &refused : {run_at_terminal(words), run(words)}) {
            EXPECT_EQ(refused.status, exit_usage);
            EXPECT_EQ(refused.error,
                      "zanctl: --yes: required to confirm: this resets or restarts the device\n"
                      "Run with --help for more information.\n");
            EXPECT_TRUE(records.empty());
        }
    }
    EXPECT_EQ(run_at_terminal({"reset", "/a", "--yes"}).status, exit_done);
}

TEST_F(ZanctlAtATerminal, RequiresYesForNothingElse) {
    for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
             {"action", "save"}, {"action", "backup"}, {"dump", "f"}, {"attr", "set", "/a", "b"}})
        EXPECT_EQ(run_at_terminal(words).status, exit_done) << words.front();
    // Help is not an action.
    EXPECT_EQ(run_at_terminal({"action", "reboot", "--help"}).status, exit_done);
}

TEST_F(ZanctlAtATerminal, PromptsForALoginWithoutEcho) {
    daemon.on(class_cfg, 19, answer("1"));
    Program program(at_terminal({"login", "web", "-", "x", "-"}), {.host = true});
    ASSERT_TRUE(program.read_error_until("item 2: "));
    EXPECT_TRUE(eventually([&] { return !terminal.echoes(); }));
    terminal.type("secret\n");
    ASSERT_TRUE(program.read_error_until("item 4: "));
    EXPECT_TRUE(eventually([&] { return !terminal.echoes(); }));
    terminal.type("more\n");
    const Ended ended = finish(program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.error, "item 2: \nitem 4: \n");
    EXPECT_EQ(only_request().payload(), "web\nsecret\nx\nmore");
    EXPECT_TRUE(terminal.echoes());
    EXPECT_EQ(terminal.shown().find("secret"), std::string::npos);
}

TEST_F(ZanctlAtATerminal, RestoresTheEchoAfterAnInterruption) {
    Program program(at_terminal({"login", "web", "-", "x", "y"}), {.host = true});
    ASSERT_TRUE(program.read_error_until("item 2: "));
    EXPECT_TRUE(eventually([&] { return !terminal.echoes(); }));
    program.signal(SIGINT);
    EXPECT_EQ(finish(program).status, 128 + SIGINT);
    EXPECT_TRUE(terminal.echoes());
    expect_left_nothing();
}

// ---- what a person sees

class ZanctlOnATerminal : public ZanctlAtATerminal {
protected:
    // With standard output and error on the terminal; returns what it shows.
    std::string show(const std::vector<std::string> &arguments, const std::string &setting = "") {
        Program program(script("export TERM=xterm; unset NO_COLOR; " + setting + " exec \"$@\" >" +
                                   terminal.path() + " 2>&1",
                               arguments),
                        {.host = true});
        finish(program);
        return terminal.shown();
    }
};

TEST_F(ZanctlOnATerminal, ColorsErrors) {
    daemon.on(class_cfg, 1, negative(-101, "no such node: /x"));
    EXPECT_EQ(show({"get", "/x"}), "\x1b[1;31mzanctl:\x1b[0m /x: no such node (-101)\r\n");
    EXPECT_EQ(show({"get", "/x"}, "export NO_COLOR=1;"), "zanctl: /x: no such node (-101)\r\n");
    EXPECT_EQ(show({"get", "/x"}, "export TERM=dumb;"), "zanctl: /x: no such node (-101)\r\n");
}

TEST_F(ZanctlOnATerminal, ShowsHowLongAnActionTakes) {
    daemon.on(class_action, 6, answer(""));
    const std::string shown = show({"action", "backup"});
    EXPECT_THAT(shown, testing::StartsWith(
                           "\rzanctl: action backup: waiting for the daemon, up to 10 minutes (0 "
                           "s)"));
    EXPECT_THAT(shown, testing::EndsWith(" s)\r\n"));
}

} // namespace
} // namespace zan::test
