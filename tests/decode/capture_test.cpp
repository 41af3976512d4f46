// SPDX-License-Identifier: MIT
#include "decode/capture.h"
#include "wire/action.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

namespace zan::decode {
namespace {

constexpr auto to_daemon = Direction::to_daemon;
constexpr auto from_daemon = Direction::from_daemon;

Record record_of(std::int32_t type, std::int32_t cmd, std::string payload = {},
                 std::int32_t result = 0) {
    Record record;
    record.type = type;
    record.cmd = cmd;
    record.result = result;
    record.payload = std::move(payload);
    return record;
}

std::string payload_of(std::int32_t type, std::int32_t cmd, std::string payload,
                       Direction direction = to_daemon, std::int32_t result = 0) {
    return format_payload(record_of(type, cmd, std::move(payload), result), direction);
}

std::string word(std::int32_t value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string action(std::int32_t code, std::int32_t wait, std::int32_t param,
                   std::string_view name) {
    std::string bytes;
    wire::format_action(bytes, {.code = code, .wait = wait, .param = param, .name = name});
    return bytes;
}

// ---- payloads --------------------------------------------------------------

TEST(FormatPayload, QuotesTexts) {
    EXPECT_EQ(payload_of(1, 1, "/sys/name"), "\"/sys/name\"");
    EXPECT_EQ(payload_of(1, 1, "a\nb\x01"), "\"a\\nb\\x01\"");
    EXPECT_EQ(payload_of(1, 1, std::string("ab\0cd", 5)), "\"ab\"");
    EXPECT_EQ(payload_of(5, 7, "m /a v 1 0 /a", from_daemon), "\"m /a v 1 0 /a\"");
}

TEST(FormatPayload, CutsLongTexts) {
    EXPECT_EQ(payload_of(1, 1, std::string(256, 'x')), '"' + std::string(256, 'x') + '"');
    EXPECT_EQ(payload_of(1, 1, std::string(257, 'x')), '"' + std::string(256, 'x') + "\"...");
}

TEST(FormatPayload, ShowsTheSettingsOfASubscription) {
    EXPECT_EQ(payload_of(5, 0, "\x02\xff/sys"), "flag=2 option=255 \"/sys\"");
    EXPECT_EQ(payload_of(5, 0, "\x02"), "hex 02");
    EXPECT_EQ(payload_of(5, 0, ""), "hex ");
}

TEST(FormatPayload, ShowsEventsAsNumbers) {
    EXPECT_EQ(payload_of(5, 8, word(-2), from_daemon), "event=-2");
    EXPECT_EQ(payload_of(5, 1, "abc"), "hex 616263");
}

TEST(FormatPayload, ShowsTheFieldsOfAnAction) {
    EXPECT_EQ(payload_of(7, 7, action(7, 1, -3, "uptime")), "code=7 wait=1 param=-3 \"uptime\"");
    EXPECT_EQ(payload_of(7, 7, "abc"), "hex 616263");
}

TEST(FormatPayload, ShowsUnknownBytesAsTextOrHex) {
    EXPECT_EQ(payload_of(6, 1, "text"), "\"text\"");
    EXPECT_EQ(payload_of(6, 1, std::string("\x00\xff", 2)), "hex 00FF");
    EXPECT_EQ(payload_of(6, 1, std::string(65, '\xff')).size(), 4 + 2 * 64 + 3);
}

TEST(FormatPayload, ShowsEventMessages) {
    EXPECT_EQ(payload_of(4, 4, R"({"Action":"scan"})"), "event wifi_sniffer Action=\"scan\"");
    EXPECT_EQ(payload_of(9, 3, R"({"IP":"1"})"), "event wan? IP=\"1\"");
    EXPECT_EQ(payload_of(4, 4, "scan"), "\"scan\"");
    EXPECT_EQ(payload_of(2, 4, R"({"Action":"scan"})"), "\"{\\\"Action\\\":\\\"scan\\\"}\"");
}

TEST(FormatPayload, ShowsTheTextOfARefusal) {
    EXPECT_EQ(payload_of(5, 1, "not subscribed", from_daemon, -113), "\"not subscribed\"");
}

// ---- subjects --------------------------------------------------------------

std::string subject_in(const Record &record, Direction direction) {
    return std::string(subject_of(record, direction));
}

TEST(Subject, IsThePathOfARequest) {
    const auto request = [](std::int32_t type, std::int32_t cmd, std::string payload) {
        return subject_in(record_of(type, cmd, std::move(payload)), to_daemon);
    };
    EXPECT_EQ(request(1, 1, "/sys/user"), "/sys/user");
    EXPECT_EQ(request(1, 1, "/sys/user#"), "/sys/user");
    EXPECT_EQ(request(1, 1, std::string("/a\0/b", 5)), "/a");
    EXPECT_EQ(request(1, 2, "0/sys/name my router"), "/sys/name");
    EXPECT_EQ(request(1, 2, "0/sys/name"), "/sys/name");
    EXPECT_EQ(request(1, 12, "/sys heading of two"), "/sys");
    EXPECT_EQ(request(1, 16, "/sys ro"), "/sys");
    EXPECT_EQ(request(1, 22, "2A.B.1"), "A.B.1");
    EXPECT_EQ(request(5, 0, "\x01\x02/sys"), "/sys");
    EXPECT_EQ(request(5, 2, "/sys"), "/sys");
    EXPECT_EQ(request(7, 7, action(7, 1, 0, "uptime")), "uptime");
}

TEST(Subject, IsThePathOfANotification) {
    const Record change = record_of(5, 7, "wlan /sys/name v 1 0 /sys");
    EXPECT_EQ(subject_in(change, from_daemon), "/sys/name");
    EXPECT_EQ(subject_in(change, to_daemon), "");
}

TEST(Subject, IsEmptyWithoutAPath) {
    for (const auto &[type, cmd] : {std::pair(1, 19),
                                    {1, 32},
                                    {2, 5},
                                    {3, 0},
                                    {4, 4},
                                    {5, 1},
                                    {6, 1},
                                    {8, 0},
                                    {9, 3},
                                    {1, 0}})
        EXPECT_EQ(subject_in(record_of(type, cmd, "/a /b"), to_daemon), "") << type << ' ' << cmd;
    EXPECT_EQ(subject_in(record_of(1, 1, "value"), from_daemon), "");
    EXPECT_EQ(subject_in(record_of(1, 1, "no such node: /a", -101), from_daemon), "");
}

TEST(Subject, NeverLeavesAShortPayload) {
    for (const auto &[type, cmd] : {std::pair(1, 1), {1, 2}, {1, 12}, {1, 22}, {5, 0}, {7, 7}})
        for (std::size_t size = 0; size < 4; ++size) {
            const Record record = record_of(type, cmd, std::string(size, 'x'));
            EXPECT_LE(subject_of(record, to_daemon).size(), size);
        }
}

// ---- lines -----------------------------------------------------------------

class CaptureForms : public testing::Test {
protected:
    CaptureForms() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // 2026-01-05 00:47:05.625 UTC.
    static constexpr auto seen =
        Capture::Clock::time_point(std::chrono::milliseconds(1767574025625));

    static Capture request() {
        Capture capture{.time = seen,
                        .direction = to_daemon,
                        .transport = Transport::queue,
                        .endpoint = 6,
                        .record = record_of(1, 2, "0/sys/hostname my router")};
        capture.record.src = "wlan";
        capture.record.dst = "ZAN_CFG";
        capture.record.pid = 812;
        return capture;
    }
    static Capture answer() {
        Capture capture{.time = seen,
                        .direction = from_daemon,
                        .transport = Transport::tcp,
                        .endpoint = 3,
                        .record = record_of(1, 2, "no such node: /a", -101)};
        capture.record.src = "ZAN_CFG";
        capture.record.dst = "wlan";
        capture.record.pid = 4711;
        return capture;
    }
};

TEST_F(CaptureForms, FitOnOneLine) {
    EXPECT_EQ(format_line(request()),
              "00:47:05.625 in  CFG set wlan -> ZAN_CFG queue=6 pid=812 len=24 "
              "\"0/sys/hostname my router\"");
    EXPECT_EQ(format_line(answer()),
              "00:47:05.625 out CFG set ZAN_CFG -> wlan link=3 pid=4711 result=-101 len=16 "
              "\"no such node: /a\"");
}

TEST_F(CaptureForms, ShowArgumentsAndErrors) {
    Capture capture = request();
    capture.record = record_of(6, 1, std::string("\x01\xff", 2));
    capture.record.arg = 5;
    capture.error = "len is 9, but 2 payload bytes arrived";
    EXPECT_EQ(format_line(capture),
              "00:47:05.625 in  class-6 1 - -> - queue=6 pid=0 arg=5 len=2 hex 01FF "
              "malformed: len is 9, but 2 payload bytes arrived");
}

TEST_F(CaptureForms, ShowTheInstanceOfARegistrationOverAQueue) {
    Capture capture = request();
    capture.record = record_of(3, 0);
    capture.record.pid = 7;
    EXPECT_EQ(format_line(capture),
              "00:47:05.625 in  REGISTRATION register - -> - queue=6 instance=7 len=0");
    capture.transport = Transport::tcp;
    EXPECT_EQ(format_line(capture),
              "00:47:05.625 in  REGISTRATION register - -> - link=6 pid=7 len=0");
    capture.transport = Transport::queue;
    capture.direction = from_daemon;
    EXPECT_EQ(format_line(capture),
              "00:47:05.625 out REGISTRATION register - -> - queue=6 pid=7 result=0 len=0");
}

TEST_F(CaptureForms, EscapeHostileNames) {
    Capture capture = request();
    capture.record.src = "a\n\x1b";
    EXPECT_NE(format_line(capture).find(" a\\n\\x1B -> "), std::string::npos);
}

TEST_F(CaptureForms, AreJsonObjects) {
    EXPECT_EQ(format_json(to_json(request())),
              R"({"time":"2026-01-05T00:47:05.625","direction":"in","queue":6,"class":1,)"
              R"("class_name":"CFG","command":2,"command_name":"set","source":"wlan",)"
              R"("destination":"ZAN_CFG","pid":812,"result":0,"arg":0,"len":24,)"
              R"("text":"0/sys/hostname my router"})");
    EXPECT_EQ(format_json(to_json(answer())),
              R"({"time":"2026-01-05T00:47:05.625","direction":"out","link":3,"class":1,)"
              R"("class_name":"CFG","command":2,"command_name":"set","source":"ZAN_CFG",)"
              R"("destination":"wlan","pid":4711,"result":-101,"arg":0,"len":16,)"
              R"("text":"no such node: /a"})");
}

TEST_F(CaptureForms, HaveEventsBytesAndErrorsInJson) {
    Capture capture = request();
    capture.record = record_of(4, 4, R"({"Action":"scan"})");
    auto json = to_json(capture);
    EXPECT_EQ(json["hex"], "7B22416374696F6E223A227363616E227D");
    EXPECT_EQ(json["event"].dump(),
              R"({"kind":"wifi_sniffer","has_all":true,"members":{"Action":"scan"}})");
    EXPECT_FALSE(json.contains("malformed"));
    capture.record = record_of(6, 1);
    capture.record.src = "\xff";
    capture.error = "broken";
    json = to_json(capture);
    EXPECT_FALSE(json.contains("hex"));
    EXPECT_FALSE(json.contains("text"));
    EXPECT_EQ(json["class_name"], "");
    EXPECT_EQ(json["malformed"], "broken");
    EXPECT_NE(format_json(json).find("\"source\":\"\xef\xbf\xbd\""), std::string::npos);
}

TEST_F(CaptureForms, HaveTimesBefore1970) {
    EXPECT_EQ(format_timestamp(Capture::Clock::time_point(std::chrono::milliseconds(-1))),
              "1969-12-31T23:59:59.999");
}

} // namespace
} // namespace zan::decode
