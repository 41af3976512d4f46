// SPDX-License-Identifier: MIT
#include "zanctl.h"

#include "support/patience.h"

#include <csignal>
#include <memory>
#include <system_error>

namespace zan::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string event_payload(std::int32_t code) {
    return {reinterpret_cast<const char *>(&code), sizeof code};
}

class ZanctlWatch : public ZanctlTest {
protected:
    // Starts it and waits until it watches.
    std::unique_ptr<Program> start(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "watch");
        auto program = std::make_unique<Program>(zanctl_command(arguments));
        EXPECT_TRUE(program->read_error_until("zanctl: watching\n"));
        queue = static_cast<int>(daemon.records().at(0).record.mtype);
        return program;
    }

    void notify(int cmd, const std::string &payload) const {
        EXPECT_TRUE(raw_send(queue, {.mtype = class_notify,
                                     .type = class_notify,
                                     .cmd = cmd,
                                     .dst = "zanctl",
                                     .src = "ZAN",
                                     .payload = payload}));
    }
    void notify_change(const std::string &line) const { notify(cmd_value_changed, line); }
    // Whether the queue was there, which zanctl may remove at any moment.
    bool queue_takes(const std::string &line) const {
        try {
            raw_send(queue, {.mtype = class_notify,
                             .type = class_notify,
                             .cmd = cmd_value_changed,
                             .payload = line});
        } catch (const std::system_error &) {
            return false;
        }
        return true;
    }
    void notify_event(std::int32_t code) const { notify(cmd_event, event_payload(code)); }

    Ended interrupt(Program &program, int number = SIGINT) {
        program.signal(number);
        return finish(program);
    }

    // The line that one change is shown as.
    std::string shown(const std::vector<std::string> &options, const std::string &change) {
        std::vector<std::string> arguments = {"--count", "1", "/a"};
        arguments.insert(arguments.begin(), options.begin(), options.end());
        daemon.forget_records();
        const auto program = start(arguments);
        notify_change(change);
        const Ended ended = finish(*program);
        EXPECT_EQ(ended.status, exit_done) << ended.error;
        return ended.output;
    }

    int queue = -1;
};

TEST_F(ZanctlWatch, SubscribesPrintsUnsubscribesAndUnregisters) {
    const auto program = start({"/a", "/b%s", "--event", "7"});
    notify_change("wifid /a/Name Attic 1 0 /a");
    notify_change("cfgd /b%s/x:3 %00 2 0 /b%s");
    notify_change("cfgd /b%s/x:2 %00 3 0 /b%s");
    notify_event(7);
    EXPECT_TRUE(program->read_until("event 7\n"));
    const Ended ended = interrupt(*program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "changed /a/Name Attic\n"
                            "added /b%s/x:3\n"
                            "deleted /b%s/x:2\n"
                            "event 7\n");
    EXPECT_EQ(ended.error, "zanctl: watching\n");

    ASSERT_EQ(records.size(), 8U);
    const std::vector<std::pair<int, std::string>> expected = {
        {cmd_watch, std::string(2, '\0') + "/a"},
        {cmd_watch, std::string(2, '\0') + "/b%s"},
        {cmd_await_event, event_payload(7)},
        {cmd_unwatch, "/a"},
        {cmd_unwatch, "/b%s"},
        {cmd_ignore_event, event_payload(7)},
    };
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const SizedRecord &actual = records[i + 1];
        Fields fields = request(class_notify, expected[i].first, "ZAN", expected[i].second);
        fields.time = actual.record.word(at::time);
        EXPECT_GT(fields.time, 0);
        EXPECT_TRUE(same_record(actual, fields)) << i;
    }
    expect_left_nothing();
}

TEST_F(ZanctlWatch, EndsAtTermination) {
    const auto program = start({"/a"});
    EXPECT_EQ(interrupt(*program, SIGTERM).status, exit_done);
    EXPECT_EQ(records.size(), 4U);
    expect_left_nothing();
}

TEST_F(ZanctlWatch, EndsAfterTheGivenCount) {
    const auto program = start({"--count", "2", "/a"});
    for (const std::string value : {"1", "2"})
        notify_change("m /a " + value + " 1 0 /a");
    queue_takes("m /a 3 1 0 /a"); // unless zanctl has already ended
    const Ended ended = finish(*program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.output, "changed /a 1\nchanged /a 2\n");
    expect_left_nothing();
}

TEST_F(ZanctlWatch, PrintsEachLineImmediately) {
    const auto program = start({"/a"});
    for (const std::string value : {"1", "2", "3"}) {
        notify_change("m /a " + value + " 1 0 /a");
        EXPECT_TRUE(program->read_until("changed /a " + value + "\n"));
    }
    EXPECT_EQ(interrupt(*program).status, exit_done);
}

TEST_F(ZanctlWatch, PrintsJsonObjects) {
    const auto program = start({"--json", "/a", "--event", "-2"});
    notify_change("wifid /a/Name Living%20Room%0A 1 9 /a");
    notify_event(-2);
    EXPECT_TRUE(program->read_until("{\"event\":-2}\n"));
    EXPECT_EQ(interrupt(*program).output,
              "{\"change\":\"changed\",\"path\":\"/a/Name\",\"value\":\"Living Room\\n\","
              "\"source\":\"wifid\",\"option\":9,\"subscribed\":\"/a\"}\n"
              "{\"event\":-2}\n");
}

TEST_F(ZanctlWatch, DecodesValues) {
    EXPECT_EQ(shown({}, "m /a 100%25%20sure 1 0 /a"), "changed /a 100% sure\n");
    EXPECT_EQ(shown({}, "m /a two%0alines%5c 1 0 /a"), "changed /a two\\x0Alines\\x5C\n");
    EXPECT_EQ(shown({}, "m /a %00 1 0 /a"), "changed /a\n");
}

TEST_F(ZanctlWatch, PrintsValuesThatAreNotEncodedUnchanged) {
    EXPECT_EQ(shown({}, "m /a 100% 1 0 /a"), "changed /a 100%\n");
    EXPECT_EQ(shown({}, "m /a %zz%20 1 0 /a"), "changed /a %zz%20\n");
    EXPECT_EQ(shown({}, "m /a %2 1 0 /a"), "changed /a %2\n");
    EXPECT_EQ(shown({}, "m /a v 9 0 /a"), "9 /a v\n");
}

TEST_F(ZanctlWatch, MarksALongValue) {
    const std::string encoded = std::string(1022, 'v') + "%20tail";
    EXPECT_EQ(shown({}, "m /a " + encoded + " 1 0 /a"),
              "changed /a " + std::string(1022, 'v') + "...\n");
    EXPECT_THAT(shown({"--json"}, "m /a " + encoded + " 1 0 /a"), HasSubstr(",\"cut\":true}\n"));
}

TEST_F(ZanctlWatch, SurvivesNotificationsWithFieldsMissing) {
    EXPECT_EQ(shown({}, ""), "changed \n");
    EXPECT_EQ(shown({}, "m"), "changed \n");
    EXPECT_EQ(shown({}, "m /a"), "changed /a\n");
}

TEST_F(ZanctlWatch, PrintsTheTimeOfANotification) {
    const std::string time =
        "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}[+-][0-9]{4}";
    EXPECT_THAT(shown({"--time"}, "m /a v 1 0 /a"), MatchesRegex(time + " changed /a v\n"));
    EXPECT_THAT(shown({"--time", "--json"}, "m /a v 1 0 /a"),
                MatchesRegex(".*,\"time\":\"" + time + "\"\\}\n"));
}

TEST_F(ZanctlWatch, KeepsDiagnosticsOutOfTheOutput) {
    const auto program = start({"--verbose", "--count", "1", "/a"});
    // A class that no handler exists for: the library prints a line about it.
    EXPECT_TRUE(raw_send(queue, {.mtype = class_notify, .type = 6}));
    notify_change("m /a v 1 0 /a");
    const Ended ended = finish(*program);
    EXPECT_EQ(ended.output, "changed /a v\n");
    EXPECT_EQ(ended.error, "zanctl: watching\nreceive unknown module message[6]\n");
}

TEST_F(ZanctlWatch, ARefusedSubscriptionRemovesTheOthers) {
    daemon.once(class_notify, cmd_watch, answer(""));
    daemon.once(class_notify, cmd_watch, negative(-3, "no such node: /b"));
    const Ended ended = run({"watch", "/a", "/b"});
    EXPECT_EQ(ended.status, exit_refused);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zanctl: /b: no such node (-3)\n");
    ASSERT_EQ(records.size(), 5U);
    EXPECT_EQ(records[3].record.cmd(), cmd_unwatch);
    EXPECT_EQ(records[3].payload(), "/a");
    expect_left_nothing();
}

TEST_F(ZanctlWatch, ARefusedUnsubscriptionDoesNotStopTheOthers) {
    const auto program = start({"/a", "/b"});
    daemon.once(class_notify, cmd_unwatch, negative(-3, "busy"));
    const Ended ended = interrupt(*program);
    EXPECT_EQ(ended.status, exit_done);
    EXPECT_EQ(ended.error, "zanctl: watching\nzanctl: /a: busy (-3)\n");
    ASSERT_EQ(records.size(), 6U);
    EXPECT_EQ(records[4].payload(), "/b");
    expect_left_nothing();
}

TEST_F(ZanctlWatch, UnsubscribesOnlyOnceFromASilentDaemon) {
    const auto program = start({"--timeout", "600", "/a", "/b"});
    daemon.on(class_notify, cmd_unwatch, never());
    program->signal(SIGINT);
    daemon.wait_for_records(4); // the last one unsubscribes
    EXPECT_EQ(expire(*program).status, exit_done);
    ASSERT_EQ(records.size(), 5U);
    EXPECT_EQ(records[4].record.type(), class_registration);
    expect_left_nothing();
}

TEST_F(ZanctlWatch, EndsWhenTheDaemonDies) {
    const auto program = start({"/a"});
    daemon.die();
    const Ended ended = finish(*program);
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.error,
              "zanctl: watching\nzanctl: no daemon: its queue was removed (has zansim ended?)\n");
    expect_left_nothing();
}

TEST_F(ZanctlWatch, EndsWhenItsQueueIsRemoved) {
    const auto program = start({"/a"});
    remove_queue(queue);
    const Ended ended = finish(*program);
    EXPECT_EQ(ended.status, exit_no_daemon);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, EndsWith("zanctl: no daemon: the queue of this module was removed\n"));
    expect_left_nothing();
}

TEST_F(ZanctlWatch, EndsWhenItsOutputIsClosed) {
    Program program(script("\"$@\" > >(read -r line); echo status $?", {"watch", "/a"}),
                    {.host = true});
    EXPECT_TRUE(program.read_error_until("zanctl: watching\n"));
    queue = static_cast<int>(daemon.records().at(0).record.mtype);
    // The first is read; a later one finds the pipe closed.
    EXPECT_TRUE(eventually([&] { return !queue_takes("m /a v 1 0 /a"); }));
    EXPECT_EQ(finish(program).output, "status " + std::to_string(128 + SIGPIPE) + "\n");
    expect_left_nothing();
}

} // namespace
} // namespace zan::test
