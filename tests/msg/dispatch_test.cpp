// SPDX-License-Identifier: MIT
#include "support/capture.h"
#include "support/commands.h"
#include "support/raw.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What the handlers were called with, in order.
std::vector<std::string> calls;

std::string value_call(const char *name, const char *f1, const char *f2, const char *f3,
                       const char *f6, int f4) {
    return std::string(name) + " [" + f1 + "] [" + f2 + "] [" + f3 + "] [" + f6 + "] " +
           std::to_string(f4);
}

int on_value(char *f1, char *f2, char *f3, char *f6, int f4) {
    calls.push_back(value_call("value", f1, f2, f3, f6, f4));
    return -1; // whatever a handler returns is ignored
}

int on_value2(char *f1, char *f2, char *f3, char *f6, int f4, int f5) {
    calls.push_back(value_call("value2", f1, f2, f3, f6, f4) + " " + std::to_string(f5));
    return -1;
}

int on_event(int event, int type) {
    calls.push_back("event " + std::to_string(event) + " " + std::to_string(type));
    return 0;
}

zan_body *dispatched_body = nullptr;

int on_message(char *data, int len, zan_body *body) {
    EXPECT_EQ(body, dispatched_body);
    EXPECT_EQ(data, body->data);
    calls.push_back("message " + std::to_string(len) + " [" + data + "] cmd " +
                    std::to_string(body->cmd) + " len " + std::to_string(body->len));
    return 0;
}

int on_taskmgr(char *data, int type) {
    EXPECT_EQ(data, dispatched_body->data);
    calls.push_back(std::string("taskmgr [") + data + "] " + std::to_string(type));
    return 0;
}

class Dispatch : public testing::Test {
protected:
    Dispatch() { calls.clear(); }
    ~Dispatch() override {
        zan_set_value_changed_handler(nullptr);
        zan_set_value_changed_handler2(nullptr);
        zan_set_event_handler(nullptr);
        zan_set_message_handler(nullptr);
        zan_set_taskmgr_msg_handler(nullptr);
    }

    void set_all_handlers() {
        zan_set_value_changed_handler(on_value);
        zan_set_value_changed_handler2(on_value2);
        zan_set_event_handler(on_event);
        zan_set_message_handler(on_message);
        zan_set_taskmgr_msg_handler(on_taskmgr);
    }

    int dispatch(const Fields &fields) {
        std::memcpy(body.get(), make_record(fields).record.bytes, sizeof *body);
        dispatched_body = body.get();
        return zan_process_data(body.get());
    }

    int dispatch_change(const std::string &line) {
        return dispatch({.type = class_notify, .cmd = cmd_value_changed, .payload = line});
    }

    // A block of its own, so that the address sanitizer sees a step past it.
    std::unique_ptr<zan_body> body = std::make_unique<zan_body>();
};

// ---- classes ------------------------------------------------------------------

TEST_F(Dispatch, IgnoresConfigurationAndControlRecords) {
    set_all_handlers();
    StdoutCapture out;
    for (const int type : {1, 8})
        for (int cmd = 0; cmd < 40; ++cmd)
            EXPECT_EQ(dispatch({.type = type, .cmd = cmd}), 0);
    EXPECT_EQ(out.stop(), "");
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Dispatch, ReportsUnknownClasses) {
    set_all_handlers();
    for (const int type : {2, 3, 6, 0, -1, 10, 11, INT32_MAX, INT32_MIN}) {
        StdoutCapture out;
        EXPECT_EQ(dispatch({.type = type, .cmd = 7}), 0);
        EXPECT_EQ(out.stop(), "receive unknown module message[" + std::to_string(type) + "]\n");
    }
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Dispatch, HandlesNothingWithoutHandlers) {
    StdoutCapture out;
    EXPECT_EQ(dispatch({.type = class_message, .cmd = cmd_send, .payload = "x"}), 0);
    EXPECT_EQ(dispatch({.type = class_broadcast, .cmd = cmd_send_all, .payload = "x"}), 0);
    EXPECT_EQ(dispatch_change("a b c 1 2 d"), 0);
    EXPECT_EQ(dispatch({.type = class_notify, .cmd = cmd_event, .payload = "1234"}), 0);
    EXPECT_EQ(dispatch({.type = class_action, .cmd = 2, .payload = "x"}), 0);
    EXPECT_EQ(out.stop(), "");
}

TEST_F(Dispatch, DoesNotCallARemovedHandler) {
    set_all_handlers();
    zan_set_message_handler(nullptr);
    EXPECT_EQ(dispatch({.type = class_message, .cmd = cmd_send, .payload = "x"}), 0);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Dispatch, IgnoresANullRecord) {
    EXPECT_EQ(zan_process_data(nullptr), 0);
}

// ---- direct messages ----------------------------------------------------------

TEST_F(Dispatch, PassesMessagesOfAnyCommandToTheHandler) {
    set_all_handlers();
    for (const int type : {4, 9})
        for (const int cmd : {0, 1, 2, 3, 4, -1, 99}) {
            calls.clear();
            EXPECT_EQ(dispatch({.type = type, .cmd = cmd, .payload = "hello"}), 1);
            EXPECT_THAT(calls,
                        ElementsAre("message 5 [hello] cmd " + std::to_string(cmd) + " len 5"));
        }
}

TEST_F(Dispatch, PassesTheWholeRecordToTheMessageHandler) {
    static zan_body seen;
    zan_set_message_handler([](char *, int, zan_body *record) {
        seen = *record;
        return 0;
    });
    const Fields fields{.type = class_message,
                        .cmd = cmd_send,
                        .dst = "to",
                        .src = "from",
                        .pid = 1,
                        .time = 2,
                        .spare = 3,
                        .result = 4,
                        .aux = 5,
                        .arg = 6,
                        .payload = "payload"};
    EXPECT_EQ(dispatch(fields), 1);
    EXPECT_EQ(std::memcmp(&seen, make_record(fields).record.bytes, sizeof seen), 0);
}

// The header's len is what a sender wrote.  A handler that copies as much as it is
// told must not leave the record.
TEST_F(Dispatch, LimitsAHostileLengthToTheRecord) {
    set_all_handlers();
    const auto told = [this](int32_t len) {
        calls.clear();
        EXPECT_EQ(dispatch({.type = class_message, .cmd = cmd_send, .payload = "x", .len = len}),
                  1);
        return calls.at(0);
    };
    EXPECT_EQ(told(35000), "message 35000 [x] cmd 4 len 35000");
    EXPECT_EQ(told(35001), "message 35000 [x] cmd 4 len 35001");
    EXPECT_EQ(told(INT32_MAX), "message 35000 [x] cmd 4 len 2147483647");
    EXPECT_EQ(told(-1), "message 0 [x] cmd 4 len -1");
    EXPECT_EQ(told(INT32_MIN), "message 0 [x] cmd 4 len -2147483648");
}

// ---- task manager -------------------------------------------------------------

TEST_F(Dispatch, TaskManagerCommandsAreTwoToEightAndTenToSeventeen) {
    set_all_handlers();
    for (int cmd = -2; cmd < 40; ++cmd) {
        const bool handled = (cmd >= 2 && cmd <= 8) || (cmd >= 10 && cmd <= 17);
        calls.clear();
        EXPECT_EQ(dispatch({.type = class_action, .cmd = cmd, .payload = "job"}), handled ? 1 : 0)
            << cmd;
        EXPECT_EQ(calls, handled ? std::vector<std::string>{"taskmgr [job] 7"}
                                 : std::vector<std::string>{})
            << cmd;
    }
}

// ---- notifications ------------------------------------------------------------

TEST_F(Dispatch, IgnoresOtherNotifications) {
    set_all_handlers();
    StdoutCapture out;
    for (const int cmd : {-1, 0, 1, 2, 3, 4, 5, 6, 9, 10})
        EXPECT_EQ(dispatch({.type = class_notify, .cmd = cmd, .payload = "a b c 1 2 d"}), 0) << cmd;
    EXPECT_EQ(out.stop(), "");
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(Dispatch, PassesTheCodeAndClassOfAnEvent) {
    set_all_handlers();
    EXPECT_EQ(dispatch({.type = class_notify,
                        .cmd = cmd_event,
                        .payload = std::string("\x78\x56\x34\x12\xff", 5)}),
              1);
    EXPECT_EQ(dispatch({.type = class_notify, .cmd = cmd_event, .payload = "\xff\xff\xff\xff"}), 1);
    EXPECT_EQ(dispatch({.type = class_notify, .cmd = cmd_event}), 1);
    EXPECT_THAT(calls, ElementsAre("event 305419896 5", "event -1 5", "event 0 5"));
}

TEST_F(Dispatch, CallsBothValueChangedHandlersInOrder) {
    set_all_handlers();
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("value [one] [two] [three] [six] 4",
                                   "value2 [one] [two] [three] [six] 4 5"));
}

TEST_F(Dispatch, OneValueChangedHandlerIsEnough) {
    zan_set_value_changed_handler(on_value);
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("value [one] [two] [three] [six] 4"));
    zan_set_value_changed_handler(nullptr);
    zan_set_value_changed_handler2(on_value2);
    calls.clear();
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("value2 [one] [two] [three] [six] 4 5"));
}

TEST_F(Dispatch, FirstValueChangedHandlerMayInstallTheSecond) {
    zan_set_value_changed_handler([](char *, char *, char *, char *, int) {
        calls.emplace_back("first");
        zan_set_value_changed_handler2(on_value2);
        return 0;
    });
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("first", "value2 [one] [two] [three] [six] 4 5"));
}

TEST_F(Dispatch, FirstValueChangedHandlerMayRemoveBoth) {
    zan_set_value_changed_handler([](char *, char *, char *, char *, int) {
        calls.emplace_back("first");
        zan_set_value_changed_handler(nullptr);
        zan_set_value_changed_handler2(nullptr);
        return 0;
    });
    zan_set_value_changed_handler2(on_value2);
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("first"));
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 0);
}

TEST_F(Dispatch, PassesEachValueChangedHandlerItsOwnTexts) {
    zan_set_value_changed_handler([](char *f1, char *f2, char *f3, char *f6, int) {
        for (char *text : {f1, f2, f3, f6})
            std::memset(text, '#', std::strlen(text));
        return 0;
    });
    zan_set_value_changed_handler2(on_value2);
    EXPECT_EQ(dispatch_change("one two three 4 5 six"), 1);
    EXPECT_THAT(calls, ElementsAre("value2 [one] [two] [three] [six] 4 5"));
}

// Each handler may fill its texts to their documented sizes.
TEST_F(Dispatch, PassesTextsWithRoomForTheirBounds) {
    const auto fill = [](char *f1, char *f2, char *f3, char *f6) {
        std::memset(f1, 'x', 31);
        std::memset(f2, 'x', 1023);
        std::memset(f3, 'x', 1023);
        std::memset(f6, 'x', 511);
        EXPECT_EQ(std::string(f1), std::string(31, 'x'));
        EXPECT_EQ(std::string(f2), std::string(1023, 'x'));
        EXPECT_EQ(std::string(f3), std::string(1023, 'x'));
        EXPECT_EQ(std::string(f6), std::string(511, 'x'));
    };
    static constexpr auto fill_all = +fill;
    zan_set_value_changed_handler([](char *f1, char *f2, char *f3, char *f6, int f4) {
        fill_all(f1, f2, f3, f6);
        EXPECT_EQ(f4, 4);
        return 0;
    });
    const std::string full = std::string(31, 'a') + " " + std::string(1023, 'b') + " " +
                             std::string(1023, 'c') + " 4 5 " + std::string(511, 'd');
    EXPECT_EQ(dispatch_change(full), 1);
}

struct Line {
    const char *name;
    std::string text;
    std::string call;
};

void PrintTo(const Line &line, std::ostream *out) {
    *out << line.name;
}

class ValueChangeLine : public Dispatch, public testing::WithParamInterface<Line> {};

TEST_P(ValueChangeLine, IsParsed) {
    zan_set_value_changed_handler2(on_value2);
    EXPECT_EQ(dispatch_change(GetParam().text), 1);
    EXPECT_THAT(calls, ElementsAre("value2 " + GetParam().call));
}

INSTANTIATE_TEST_SUITE_P(
    , ValueChangeLine,
    testing::Values(
        Line{"empty", "", "[] [] [] [] 1 0"}, Line{"blanks", " \t\n ", "[] [] [] [] 1 0"},
        Line{"one_field", "one", "[one] [] [] [] 1 0"},
        Line{"two_fields", "one two", "[one] [two] [] [] 1 0"},
        Line{"three_fields", "one two three", "[one] [two] [three] [] 1 0"},
        Line{"four_fields", "one two three 4", "[one] [two] [three] [] 4 0"},
        Line{"five_fields", "one two three 4 5", "[one] [two] [three] [] 4 5"},
        Line{"more_fields", "one two three 4 5 six seven", "[one] [two] [three] [six] 4 5"},
        Line{"any_white_space", "\n one\ttwo \v\f\r three\n4\n\n5\tsix\n",
             "[one] [two] [three] [six] 4 5"},
        Line{"signs", "one two three -4 +5 six", "[one] [two] [three] [six] -4 5"},
        Line{"a_word_for_a_number", "one two three four 5 six", "[one] [two] [three] [] 1 0"},
        Line{"a_word_for_the_second_number", "one two three 4 five six",
             "[one] [two] [three] [] 4 0"},
        Line{"a_sign_alone", "one two three - 5 six", "[one] [two] [three] [] 1 0"},
        Line{"two_signs", "one two three --4 5 six", "[one] [two] [three] [] 1 0"},
        Line{"a_number_with_a_tail", "one two three 4x 5 six", "[one] [two] [three] [] 4 0"},
        Line{"text_right_behind_a_number", "one two three 4 5six", "[one] [two] [three] [six] 4 5"},
        Line{"the_largest_numbers", "one two three 2147483647 -2147483648 six",
             "[one] [two] [three] [six] 2147483647 -2147483648"},
        Line{"numbers_out_of_range", "one two three 2147483648 -2147483649 six",
             "[one] [two] [three] [six] 2147483647 -2147483648"},
        Line{"numbers_out_of_any_range",
             "one two three 99999999999999999999999 -99999999999999999999999 six",
             "[one] [two] [three] [six] 2147483647 -2147483648"},
        Line{"bytes_behind_a_terminator", std::string("one two\0three 4", 15),
             "[one] [two] [] [] 1 0"},
        Line{"bytes_beyond_ascii", "\xc3\xa9 \xff\xa0 x 4 5 \x80",
             "[\xc3\xa9] [\xff\xa0] [x] [\x80] 4 5"},
        Line{"fields_at_their_bounds",
             std::string(31, 'a') + " " + std::string(1023, 'b') + " " + std::string(1023, 'c') +
                 " 4 5 " + std::string(511, 'd'),
             "[" + std::string(31, 'a') + "] [" + std::string(1023, 'b') + "] [" +
                 std::string(1023, 'c') + "] [" + std::string(511, 'd') + "] 4 5"},
        Line{"fields_past_their_bounds",
             std::string(32, 'a') + " " + std::string(1024, 'b') + " " + std::string(5000, 'c') +
                 " 4 5 " + std::string(512, 'd'),
             "[" + std::string(31, 'a') + "] [" + std::string(1023, 'b') + "] [" +
                 std::string(1023, 'c') + "] [" + std::string(511, 'd') + "] 4 5"},
        Line{"no_terminator_in_the_payload", std::string(35000, 'a'),
             "[" + std::string(31, 'a') + "] [] [] [] 1 0"},
        Line{"a_number_at_the_end_of_the_payload", "a b c " + std::string(34994, '7'),
             "[a] [b] [c] [] 2147483647 0"},
        Line{"blanks_to_the_end_of_the_payload", "a b c 1" + std::string(34993, ' '),
             "[a] [b] [c] [] 1 0"}),
    [](const auto &param) { return std::string(param.param.name); });

} // namespace
} // namespace zan::test
