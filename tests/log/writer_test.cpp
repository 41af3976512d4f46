// SPDX-License-Identifier: MIT
//
// Every output is the real one: terminals, a syslog socket and files, in a /dev and
// /var/log of the test's own.
#include "log_test.h"

#include "log/outputs.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int to_console = 1;
constexpr int to_terminals = 2;
constexpr int to_syslog = 3;
constexpr int to_all = 4;
constexpr int to_file = 5;

class Log : public LogTest {
protected:
    void SetUp() override {
        ZAN_SKIP_WITHOUT_PRIVATE_SANDBOX();
        set_test_time_zone();
        LogTest::SetUp();
        if (IsSkipped())
            return;
        outputs_ = std::make_unique<LogOutputs>();
    }

    LogOutputs &outputs() { return *outputs_; }

    // Nothing was written anywhere since the last look.
    void expect_silence() {
        EXPECT_EQ(outputs().console(), "");
        for (int n = 0; n < LogOutputs::terminals; ++n)
            EXPECT_EQ(outputs().terminal(n), "");
        EXPECT_THAT(outputs().syslog(), IsEmpty());
        EXPECT_EQ(read_files(), "");
    }

    // All log files since the last look, each as "NAME: CONTENTS".
    static std::string read_files();

    // "@" in the pattern stands for the time.
    void expect_logged(const std::string &text, const std::string &pattern) const {
        EXPECT_TRUE(is_logged_since(start_, text, pattern))
            << "got      " << testing::PrintToString(text) << "\nexpected "
            << testing::PrintToString(pattern);
    }

private:
    const std::time_t start_ = std::time(nullptr);
    std::unique_ptr<LogOutputs> outputs_;
};

std::string Log::read_files() {
    namespace fs = std::filesystem;
    std::string all;
    for (const auto &entry : fs::directory_iterator("/var/log")) {
        all += entry.path().filename().string() + ": " + read_file(entry.path());
        fs::remove(entry.path());
    }
    return all;
}

struct Form {
    int level;
    std::string name;
    std::string console;
    std::string terminal;
};

std::vector<Form> forms() {
    const std::string red = "\033[1;31m@:wlan\tscan 7\033[m\n";
    const std::string green = "\033[1;32m@:wlan\tscan 7\033[m\n";
    const std::string blue = "\033[1;34m@:wlan\tscan 7\033[m\n";
    const std::string plain = "@:wlan\tscan 7 \n";
    return {
        {-2147483647 - 1, "Unknown", red, red},
        {-1, "Unknown", red, red},
        {0, "Emergency", red, red},
        {1, "Alert", red, red},
        {2, "Critical", red, red},
        {3, "Error", red, red},
        {4, "Warning", plain, plain},
        {5, "Notice", green, green},
        {6, "Infomation", blue, plain},
        {7, "Verbose", plain, plain},
        {8, "Unknown", plain, plain},
        {2147483647, "Unknown", plain, plain},
    };
}

TEST_F(Log, HasAFormForEachLevelAndOutput) {
    ASSERT_EQ(zan_log_init("wlan", 2147483647, to_all), 1);
    for (const Form &form : forms()) {
        SCOPED_TRACE(form.level);
        EXPECT_EQ(zan_log("wlan", form.level, "scan %d", 7), 1);
        expect_logged(outputs().console(), form.console);
        for (int n = 0; n < LogOutputs::terminals; ++n)
            expect_logged(outputs().terminal(n), form.terminal);
        EXPECT_THAT(outputs().syslog(), ElementsAre("scan 7", "scan 7"));
        expect_logged(read_files(), "wlan: (" + std::to_string(form.level) + ")[" + form.name +
                                        "]@:wlan\tscan 7 \n");
    }
}

TEST_F(Log, GoesToTheConsoleAlone) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_console), 1);
    EXPECT_EQ(zan_log("wlan", 6, "%s", "hello"), 1);
    expect_logged(outputs().console(), "\033[1;34m@:wlan\thello\033[m\n");
    expect_silence();
}

TEST_F(Log, GoesToTheTerminalsAlone) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_terminals), 1);
    EXPECT_EQ(zan_log("wlan", 5, "%s", "hello"), 1);
    for (int n = 0; n < LogOutputs::terminals; ++n)
        expect_logged(outputs().terminal(n), "\033[1;32m@:wlan\thello\033[m\n");
    expect_silence();
}

TEST_F(Log, GoesToSyslogAloneBehindAnEmptyLine) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_syslog), 1);
    EXPECT_EQ(zan_log("wlan", 5, "%s", "hello"), 1);
    EXPECT_THAT(outputs().syslog(), ElementsAre("", "hello"));
    EXPECT_EQ(zan_log("wlan", 5, "%s", "again"), 1);
    EXPECT_THAT(outputs().syslog(), ElementsAre("", "again"));
    expect_silence();
}

TEST_F(Log, IsAppendedToTheFileAlone) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_file), 1);
    EXPECT_EQ(zan_log("wlan", 3, "%s", "one"), 1);
    EXPECT_EQ(zan_log("wlan", 6, "%s", "two"), 1);
    expect_logged(read_files(), "wlan: (3)[Error]@:wlan\tone \n(6)[Infomation]@:wlan\ttwo \n");
    expect_silence();
}

TEST_F(Log, IsSwitchedOffByAnyOtherDestination) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    for (const int dest : {0, 6, 7, 255}) {
        zan_get_log_level("wlan")->dest = static_cast<std::uint8_t>(dest);
        EXPECT_EQ(zan_log("wlan", 0, "lost"), 1) << dest;
    }
    expect_silence();
}

TEST_F(Log, LeavesOutWhatIsAboveTheLevel) {
    ASSERT_EQ(zan_log_init("wlan", 4, to_all), 1);
    EXPECT_EQ(zan_log("wlan", 5, "lost"), 1);
    EXPECT_EQ(zan_log("wlan", 2147483647, "lost"), 1);
    expect_silence();
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(outputs().console(), "@:wlan\tshown \n");
    // Changed by anybody, at any time.
    RawTable().set_level(0, -1);
    EXPECT_EQ(zan_log("wlan", 0, "lost"), 1);
    EXPECT_EQ(outputs().console(), "");
    RawTable().set_level(0, 7);
    RawTable().set_dest(0, to_console);
    EXPECT_EQ(zan_log("wlan", 7, "shown"), 1);
    expect_logged(outputs().console(), "@:wlan\tshown \n");
}

TEST_F(Log, NeedsATableAndAnEntry) {
    EXPECT_EQ(zan_log("wlan", 0, "lost"), 0);
    EXPECT_EQ(zan_log(nullptr, 0, "lost"), 0);
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    EXPECT_EQ(zan_log("wlan0", 0, "lost"), 0);
    EXPECT_EQ(zan_log("wla", 0, "lost"), 0);
    const char *const no_format = nullptr;
    EXPECT_EQ(zan_log("wlan", 0, no_format), 0);
    // The empty name is that of a free entry, which is switched off.
    EXPECT_EQ(zan_log("", 0, "lost"), 1);
    expect_silence();
}

TEST_F(Log, WithoutANameIsThatOfTheLastRegistration) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    ASSERT_EQ(zan_log_init("dhcpd", 7, to_all), 1);
    EXPECT_EQ(zan_log(nullptr, 3, "hello"), 1);
    expect_logged(outputs().console(), "\033[1;31m@:dhcpd\thello\033[m\n");
    expect_logged(outputs().terminal(2), "\033[1;31m@:dhcpd\thello\033[m\n");
    // The file has the name that was passed.
    expect_logged(read_files(), "(null): (3)[Error]@:dhcpd\thello \n");
    ASSERT_EQ(zan_log_init("wlan", 7, to_console), 1);
    EXPECT_EQ(zan_log(nullptr, 4, "hello"), 1);
    expect_logged(outputs().console(), "@:wlan\thello \n");
}

TEST_F(Log, WithoutANameFindsTheFirstEntryOfThatName) {
    ASSERT_EQ(zan_log_init("first", 7, to_console), 1);
    ASSERT_EQ(zan_log_init("wlan", 7, to_file), 1);
    RawTable table;
    table.set(0, {.name = "wlan", .level = 7, .dest = to_console});
    EXPECT_EQ(zan_log(nullptr, 4, "hello"), 1);
    expect_logged(outputs().console(), "@:wlan\thello \n");
    // A name without an end is none.
    table.set_name(1, std::string(32, 'x'));
    EXPECT_EQ(zan_log(nullptr, 4, "lost"), 0);
    expect_silence();
}

// ---- outputs that are not there

TEST_F(Log, NeedsTheConsoleForEveryDestination) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    outputs().set_console("/tmp"); // a directory
    EXPECT_EQ(zan_log("wlan", 0, "lost"), 0);
    EXPECT_EQ(zan_log("nobody", 0, "lost"), 0);
    expect_silence();
    Terminal console;
    outputs().set_console(console.path());
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(console.take(), "@:wlan\tshown \n");
}

TEST_F(Log, KeepsTheConsoleOpen) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_console), 1);
    EXPECT_EQ(zan_log("nobody", 4, "opens it all the same"), 0);
    outputs().set_console("/tmp/other");
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(outputs().console(), "@:wlan\tshown \n");
    EXPECT_FALSE(file_exists("/tmp/other"));
}

// A terminal flushes itself at the end of a line; a file does not.
TEST_F(Log, DoesNotFlushTheConsole) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_console), 1);
    outputs().set_console("/tmp/console");
    write_file("/tmp/console", "what was there before");
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    EXPECT_EQ(read_file("/tmp/console"), "");
    std::fflush(nullptr);
    expect_logged(read_file("/tmp/console"), "@:wlan\tshown \n");
}

TEST_F(Log, LeavesOutTerminalsThatCannotBeOpened) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_terminals), 1);
    outputs().remove_terminal(0);
    outputs().lock_terminal(1);
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(outputs().terminal(2), "@:wlan\tshown \n");
    EXPECT_FALSE(file_exists("/dev/pts/0"));
}

TEST_F(Log, WritesToNoTerminalThatItWouldHaveToCreate) {
    namespace fs = std::filesystem;
    ASSERT_EQ(zan_log_init("wlan", 7, to_terminals), 1);
    EXPECT_EQ(zan_log("wlan", 8, "opens the console"), 1);
    LogOutputs::hide_terminals();
    EXPECT_EQ(zan_log("wlan", 4, "lost"), 1);
    EXPECT_TRUE(fs::is_empty("/dev/pts"));
    // One that is there is opened like a new file.
    write_file("/dev/pts/1", std::string(100, 'x'));
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(read_file("/dev/pts/1"), "@:wlan\tshown \n");
    fs::remove("/dev/pts/1");
    EXPECT_TRUE(fs::is_empty("/dev/pts"));
}

TEST_F(Log, LeavesOutASyslogThatIsNotThere) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    outputs().remove_syslog();
    EXPECT_EQ(zan_log("wlan", 4, "shown"), 1);
    expect_logged(read_files(), "wlan: (4)[Warning]@:wlan\tshown \n");
}

TEST_F(Log, LeavesOutAFileThatCannotBeOpened) {
    ASSERT_EQ(zan_log_init("no/such", 7, to_file), 1);
    StdoutCapture out;
    EXPECT_EQ(zan_log("no/such", 4, "lost"), 1);
    EXPECT_EQ(out.stop(), "");
    expect_silence();
}

// Documented as a hazard.
TEST_F(Log, FollowsANameOutOfItsDirectory) {
    ASSERT_EQ(zan_log_init("../../tmp/escaped", 7, to_file), 1);
    EXPECT_EQ(zan_log("../../tmp/escaped", 4, "shown"), 1);
    expect_logged(read_file("/tmp/escaped"), "(4)[Warning]@:../../tmp/escaped\tshown \n");
}

// ---- texts

TEST_F(Log, CutsLongMessages) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    for (const std::size_t size : {2047U, 2048U, 4095U, 4096U, 5000U}) {
        SCOPED_TRACE(size);
        std::string text;
        while (text.size() < size)
            text += std::to_string(text.size()) + ",";
        text.resize(size);
        EXPECT_EQ(zan_log("wlan", 4, "%s", text.c_str()), 1);
        const std::string cut = text.substr(0, 4095);
        expect_logged(outputs().console(), "@:wlan\t" + cut + " \n");
        expect_logged(outputs().terminal(1), "@:wlan\t" + cut + " \n");
        EXPECT_THAT(outputs().syslog(), ElementsAre(cut, text.substr(0, 2047)));
        expect_logged(read_files(), "wlan: (4)[Warning]@:wlan\t" + cut + " \n");
    }
}

// The message is syslog's format text: it must not act as one, but for what a format
// without arguments can say.
TEST_F(Log, SurvivesPercentSignsInAMessage) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    const std::string many(2000, '%');
    struct {
        std::string text;
        std::string as_format;
    } const rows[] = {
        {"%n", "%n"},
        {"%s%s%s%s%s%s%s%s%n", "%s%s%s%s%s%s%s%s%n"},
        {"%1$n %99$s %*d %.*s", "%1$n %99$s %*d %.*s"},
        {"%m", "%m"},
        {"50% done", "50% done"},
        {"100%", "100%"},
        {"%", "%"},
        {"50%% done", "50% done"},
        {"%%n and %%%n", "%n and %%n"},
        {many, many.substr(0, many.size() / 2)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(zan_log("wlan", 4, "%s", row.text.c_str()), 1);
        expect_logged(outputs().console(), "@:wlan\t" + row.text + " \n");
        expect_logged(outputs().terminal(0), "@:wlan\t" + row.text + " \n");
        EXPECT_THAT(outputs().syslog(), ElementsAre(row.as_format, row.text));
        expect_logged(read_files(), "wlan: (4)[Warning]@:wlan\t" + row.text + " \n");
    }
    RawTable().set_dest(0, to_syslog);
    EXPECT_EQ(zan_log("wlan", 4, "%s", "%n%s"), 1);
    EXPECT_THAT(outputs().syslog(), ElementsAre("", "%n%s"));
}

TEST_F(Log, SurvivesPercentSignsInAName) {
    ASSERT_EQ(zan_log_init("%s%n", 7, to_all), 1);
    EXPECT_EQ(zan_log("%s%n", 4, "hello"), 1);
    expect_logged(outputs().console(), "@:%s%n\thello \n");
    expect_logged(outputs().terminal(0), "@:%s%n\thello \n");
    expect_logged(read_files(), "%s%n: (4)[Warning]@:%s%n\thello \n");
}

TEST_F(Log, KeepsTheCallersErrorForItsMessage) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_file), 1);
    const std::string format = "%s: %m"; // which is not of the standard
    errno = ENOTDIR;
    EXPECT_EQ(zan_log("wlan", 4, format.c_str(), "open"), 1);
    expect_logged(read_files(), "wlan: (4)[Warning]@:wlan\topen: Not a directory \n");
    // An output that is not there leaves an error of its own before the others.
    RawTable().set_dest(0, to_all);
    outputs().remove_terminal(1);
    errno = ENOTDIR;
    EXPECT_EQ(zan_log("wlan", 4, format.c_str(), "open"), 1);
    const std::string line = "@:wlan\topen: Not a directory \n";
    expect_logged(outputs().console(), line);
    expect_logged(outputs().terminal(0), line);
    expect_logged(outputs().terminal(2), line);
    EXPECT_THAT(outputs().syslog(), ElementsAre("open: Not a directory", "open: Not a directory"));
    expect_logged(read_files(), "wlan: (4)[Warning]" + line);
}

TEST_F(Log, ShowsAnEmptyMessageForOneThatCannotBeFormatted) {
    ASSERT_EQ(zan_log_init("wlan", 7, to_all), 1);
    const wchar_t not_in_the_locale[] = {L'a', static_cast<wchar_t>(0xd800), 0};
    EXPECT_EQ(zan_log("wlan", 4, "text %ls", not_in_the_locale), 1);
    expect_logged(outputs().console(), "@:wlan\t \n");
    EXPECT_THAT(outputs().syslog(), ElementsAre("", ""));
}

// ---- time

TEST_F(Log, TellsTheLocalTime) {
    const std::time_t before = std::time(nullptr);
    const char *const text = zan_log_get_current_time_str();
    EXPECT_TRUE(is_logged_since(before, text, "@"));
    // One buffer, which a message overwrites.
    ASSERT_EQ(zan_log_init("wlan", 7, to_file), 1);
    setenv("TZ", "ABC+05", 1); // as when the user changes it meanwhile
    const std::time_t moved = std::time(nullptr) - (5 * 60 + 3 * 60 + 25) * 60;
    EXPECT_EQ(zan_log("wlan", 4, "hello"), 1);
    EXPECT_EQ(zan_log_get_current_time_str(), text);
    EXPECT_EQ(std::string(text).size(), 8U);
    setenv("TZ", "XYZ-03:25", 1);
    const std::string file = read_files();
    bool found = false;
    for (std::time_t time = moved - 60; time <= moved + 60; ++time)
        found = found || file == "wlan: (4)[Warning]" + clock_text(time) + ":wlan\thello \n";
    EXPECT_TRUE(found) << file;
}

// ---- threads

TEST_F(Log, OfSeveralThreadsHasWholeLines) {
    constexpr int threads = 4;
    constexpr int lines_each = 50;
    ASSERT_EQ(zan_log_init("wlan", 7, to_file), 1);
    std::vector<std::thread> loggers;
    for (int n = 0; n < threads; ++n)
        loggers.emplace_back([] {
            for (int line = 0; line < lines_each; ++line) {
                zan_log("wlan", 7, "hello %d", 1);
                zan_log(nullptr, 8, "filtered out");
            }
        });
    for (std::thread &logger : loggers)
        logger.join();
    std::istringstream file(read_file("/var/log/wlan"));
    int count = 0;
    for (std::string line; std::getline(file, line); ++count)
        expect_logged(line, "(7)[Verbose]@:wlan\thello 1 ");
    EXPECT_EQ(count, threads * lines_each);
}

} // namespace
} // namespace zan::test
