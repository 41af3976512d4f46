// SPDX-License-Identifier: MIT
#include "sim/raw_link.h"
#include "sim/zansim.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace zan::test {

namespace {

using Json = nlohmann::json;

constexpr char json_file[] = "/tmp/zan_trace.json";

class Trace : public ZansimTest {
protected:
    Trace() { autostart_ = false; }

    // What --trace printed since the start, without the time of each line.
    std::string lines() {
        zansim().stop();
        std::istringstream output(zansim().program().output());
        std::string rest;
        std::string line;
        std::getline(output, line); // that it is ready
        while (std::getline(output, line)) {
            EXPECT_EQ(shape(line.substr(0, 13)), "00:00:00.000 ") << line;
            rest += line.substr(std::min<std::size_t>(line.size(), 13)) + '\n';
        }
        return rest;
    }

    // The text with a 0 in the place of each digit.
    static std::string shape(std::string text) {
        std::replace_if(
            text.begin(), text.end(), [](unsigned char byte) { return std::isdigit(byte); }, '0');
        return text;
    }

    std::vector<Json> json_lines() {
        zansim().stop();
        std::istringstream text(read_file(json_file));
        std::vector<Json> parsed;
        for (std::string line; std::getline(text, line);)
            parsed.push_back(Json::parse(line));
        return parsed;
    }

    const std::string simple = tree_file(R"({"a": "x y"})");
};

TEST_F(Trace, PrintsALineForEachRecord) {
    start(simple, {"--trace"});
    module().get("/a");
    module().get("/b");
    module().call(class_notify, cmd_watch, watch_payload(2, 3, "/a"));
    module().set("/a", "z\n");
    const std::string queue = "queue=" + std::to_string(module().queue());
    const std::string pid = "pid=" + std::to_string(zansim().pid());
    EXPECT_EQ(
        lines(),
        "in  REGISTRATION register TESTER -> - " + queue + " instance=0 len=0\n" +
            "out REGISTRATION register ZAN -> TESTER " + queue + " " + pid + " result=1 len=0\n" +
            "in  CFG get TESTER -> ZAN_CFG " + queue + " pid=4242 len=2 \"/a\"\n" +
            "out CFG get ZAN_CFG -> TESTER " + queue + " " + pid + " result=1 len=3 \"x y\"\n" +
            "in  CFG get TESTER -> ZAN_CFG " + queue + " pid=4242 len=2 \"/b\"\n" +
            "out CFG get ZAN_CFG -> TESTER " + queue + " " + pid +
            " result=-101 len=16 \"no such node: /b\"\n" + "in  NOTIFY watch TESTER -> ZAN " +
            queue + " pid=4242 len=4 flag=2 option=3 \"/a\"\n" + "out NOTIFY watch ZAN -> TESTER " +
            queue + " " + pid + " result=1 len=0\n" + "in  CFG set TESTER -> ZAN_CFG " + queue +
            " pid=4242 len=6 \"0/a z\\n\"\n" + "out NOTIFY value-changed ZAN -> TESTER " + queue +
            " " + pid + " result=0 len=21 \"TESTER /a z%0A 1 3 /a\"\n" +
            "out CFG set ZAN_CFG -> TESTER " + queue + " " + pid + " result=1 len=0\n");
}

TEST_F(Trace, MarksWhatIsMalformedAndWhatIsPassedOver) {
    start(simple, {"--trace"});
    Fields lying = module().request(6, 1, std::string("\x01\xff", 2));
    lying.len = 9;
    lying.arg = 5;
    module().call(make_record(lying));
    Fields astray = module().request(6, 1, "");
    astray.mtype = zansim().answer_queue();
    module().send(astray);
    module().send(module().request(7, 1, "x"));
    module().send(module().request(4, 4, "x"));
    module().get("/a");
    const std::string all = lines();
    EXPECT_NE(all.find("in  class-6 1 TESTER -> ZAN queue=" + std::to_string(module().queue()) +
                       " pid=4242 arg=5 len=2 hex 01FF malformed: len is 9, but 2 payload bytes "
                       "arrived\n"),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("--  dropped a record of 100 bytes: its mtype " +
                       std::to_string(zansim().answer_queue()) + " is not the queue of a module\n"),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("--  no answer to TESTER: malformed record: an action has 1036 bytes\n"),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("--  no answer to TESTER: unknown module: ZAN\n"), std::string::npos) << all;
}

TEST_F(Trace, ShowsMessagesAndCommandLines) {
    start(simple, {"--trace"});
    const auto other = another_module("OTHER");
    Fields message = module().request(4, 1, "hello");
    message.dst = "OTHER";
    module().call(make_record(message));
    module().send(module().request(8, 0, std::string("reboot\0\0", 8)));
    module().get("/a");
    const std::string all = lines();
    const std::string queue = "queue=" + std::to_string(module().queue());
    EXPECT_NE(all.find("in  MESSAGE send TESTER -> OTHER " + queue + " pid=4242 len=5 \"hello\"\n" +
                       "out MESSAGE send TESTER -> OTHER queue=" + std::to_string(other->queue()) +
                       " pid=4242 result=0 len=5 \"hello\"\n" +
                       "out MESSAGE acknowledge ZAN -> TESTER " + queue +
                       " pid=" + std::to_string(zansim().pid()) + " result=1 len=0\n" +
                       "in  CONTROL command-line TESTER -> ZAN " + queue +
                       " pid=4242 len=8 \"reboot\"\n"),
              std::string::npos)
        << all;
}

TEST_F(Trace, ShowsTheRecordsOfLinksLikeThoseOfQueues) {
    start(simple, {"--trace", "--trace-json", json_file});
    const auto link = std::make_unique<RawLink>("AGENT");
    link->announce(cmd_register);
    link->call(class_cfg, cmd_get, "/a");
    Fields lying = link->request(4, 1, "");
    lying.dst = "OTHER";
    lying.len = -1;
    link->send(lying, ByteOrder::host);
    link->receive();
    EXPECT_TRUE(link->ended());
    const RawLink half("HALF");
    EXPECT_TRUE(half.send("x"));
    RawLink gone("GONE");
    EXPECT_TRUE(gone.send(std::string(99, 'x')));
    gone.hang_up();
    EXPECT_TRUE(zansim().program().read_until("ended within"));
    const std::string pid = " pid=" + std::to_string(zansim().pid());
    const std::string all = lines();
    const std::string registered =
        "out REGISTRATION register ZAN -> TESTER queue=" + std::to_string(module().queue()) + pid +
        " result=1 len=0\n";
    const std::size_t start = all.find(registered);
    ASSERT_NE(start, std::string::npos) << all;
    EXPECT_EQ(all.substr(start + registered.size()),
              "in  REGISTRATION register AGENT -> - link=1 pid=16909060 len=4 hex 00000000\n"
              "out REGISTRATION register ZAN -> AGENT link=1" +
                  pid + " result=1 len=0\n" +
                  "in  CFG get AGENT -> ZAN_CFG link=1 pid=16909060 len=2 \"/a\"\n"
                  "out CFG get ZAN_CFG -> AGENT link=1" +
                  pid + " result=1 len=3 \"x y\"\n" +
                  "in  MESSAGE send AGENT -> OTHER link=1 pid=16909060 len=0 malformed: len is -1, "
                  "not 0 to 35000\n"
                  "out MESSAGE acknowledge ZAN -> AGENT link=1" +
                  pid +
                  " result=-106 len=43 \"malformed record: len is -1, not 0 to 35000\"\n"
                  "--  link 1 cannot be understood any more\n"
                  "--  link 1 is gone: forgot AGENT\n"
                  "--  link 3 ended within a record, of which 99 bytes had come\n");
    const std::vector<Json> json = json_lines();
    EXPECT_EQ(json[2]["link"], 1);
    EXPECT_FALSE(json[2].contains("queue"));
}

TEST_F(Trace, ShowsEventMessagesDecoded) {
    start(simple, {"--trace", "--trace-json", json_file});
    const auto other = another_module("OTHER");
    Fields message = module().request(4, 4, R"({"IP":"10.0.0.2","DNS":"a\nb"})");
    message.dst = "OTHER";
    module().send(message);
    module().send(module().request(9, 3, std::string("{\"Action\":\"scan\"}\0", 18)));
    module().set("/zansim/message", R"(OTHER {"Action":"a","CFGPath":"/p"})");
    const std::string all = lines();
    const std::vector<Json> json = json_lines();
    const std::string queue = "queue=" + std::to_string(module().queue());
    const std::string other_queue = "queue=" + std::to_string(other->queue());
    for (const std::string &line :
         {"in  MESSAGE send-unconfirmed TESTER -> OTHER " + queue +
              " pid=4242 len=30 event wan? IP=\"10.0.0.2\" DNS=\"a\\nb\"\n",
          "out MESSAGE send-unconfirmed TESTER -> OTHER " + other_queue +
              " pid=4242 result=0 len=30 event wan? IP=\"10.0.0.2\" DNS=\"a\\nb\"\n",
          "in  BROADCAST send-all TESTER -> ZAN " + queue +
              " pid=4242 len=18 event wifi_sniffer Action=\"scan\"\n",
          "out MESSAGE send-unconfirmed ZAN -> OTHER " + other_queue +
              " pid=" + std::to_string(zansim().pid()) +
              " result=0 len=29 event ser2net Action=\"a\" CFGPath=\"/p\"\n"})
        EXPECT_NE(all.find(line), std::string::npos) << line << "in\n" << all;
    std::vector<Json> events;
    for (const Json &line : json)
        if (line.contains("event"))
            events.push_back(line["event"]);
    ASSERT_EQ(events.size(), 5U);
    EXPECT_EQ(events[0], Json::parse(R"({"kind":"wan","has_all":false,
                                         "members":{"IP":"10.0.0.2","DNS":"a\nb"}})"));
    EXPECT_EQ(events[1], events[0]);
    EXPECT_EQ(events[4], Json::parse(R"({"kind":"ser2net","has_all":true,
                                         "members":{"Action":"a","CFGPath":"/p"}})"));
}

// A request's value is no message, whatever it looks like.
TEST_F(Trace, ShowsOtherTextsAsTheyAre) {
    start(tree_file("{\"a\": \"{\\\"Action\\\":\\\"scan\\\"}\"}"), {"--trace"});
    module().get("/a");
    EXPECT_NE(lines().find("len=17 \"{\\\"Action\\\":\\\"scan\\\"}\"\n"), std::string::npos);
}

TEST_F(Trace, WritesTheSameAsJsonLines) {
    start(simple, {"--trace-json", json_file});
    module().get("/a");
    const std::vector<Json> all = json_lines();
    ASSERT_EQ(all.size(), 4U);
    Json answer = all[3];
    EXPECT_EQ(shape(answer["time"]), "0000-00-00T00:00:00.000");
    answer.erase("time");
    EXPECT_EQ(answer, Json({{"direction", "out"},
                            {"queue", module().queue()},
                            {"class", 1},
                            {"class_name", "CFG"},
                            {"command", 1},
                            {"command_name", "get"},
                            {"source", "ZAN_CFG"},
                            {"destination", "TESTER"},
                            {"pid", zansim().pid()},
                            {"result", 1},
                            {"arg", 0},
                            {"len", 3},
                            {"text", "x y"}}));
    EXPECT_EQ(all[2]["text"], "/a");
    EXPECT_EQ(all[2]["direction"], "in");
    EXPECT_EQ(zansim().program().output().find('\n'), zansim().program().output().size() - 1);
}

TEST_F(Trace, WritesBytesThatAreNoTextAsHex) {
    start(simple, {"--trace-json", json_file});
    RawModule odd(zansim(), "\xff\x01");
    odd.call(class_cfg, cmd_get, "/\xff");
    odd.call(class_notify, cmd_await_event, number_bytes(1));
    const std::vector<Json> all = json_lines();
    ASSERT_EQ(all.size(), 6U);
    EXPECT_EQ(all[2]["source"], "\xef\xbf\xbd\x01");
    EXPECT_EQ(all[2]["hex"], "2FFF");
    EXPECT_FALSE(all[2].contains("text"));
    EXPECT_EQ(all[4]["hex"], "01000000");
}

TEST_F(Trace, SaysWhenAModuleIsForgotten) {
    start(simple, {"--trace-json", json_file});
    const auto going = another_module("GOING");
    const std::string queue = std::to_string(going->queue());
    going->call(class_notify, cmd_watch, watch_payload(0, 0, "/a"));
    going->remove_queue();
    module().set("/a", "other");
    std::vector<std::string> notes;
    for (const Json &line : json_lines())
        if (line.contains("note"))
            notes.push_back(line["note"]);
    EXPECT_THAT(notes, testing::ElementsAre("queue " + queue + " is gone: forgot GOING"));
}

TEST_F(Trace, ServesOnWhenNobodyReadsTheTrace) {
    start(simple, {"--trace-json", "/dev/full"});
    expect_value("/a", "x y");
    EXPECT_EQ(zansim().stop(), 0);
}

} // namespace

} // namespace zan::test
