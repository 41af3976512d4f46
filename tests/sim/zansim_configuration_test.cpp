// SPDX-License-Identifier: MIT
#include "sim/zansim.h"

#include "support/sandbox.h"

namespace zan::test {

namespace {

using Configuration = ZansimTest;

TEST_F(Configuration, AnswersAGetByteForByte) {
    EXPECT_TRUE(same_record(module().get("/sys/hostname"),
                            module().answer(class_cfg, cmd_get, 1, "router")));
}

TEST_F(Configuration, AnswersWithTheEmptyValueAsOneNul) {
    // A header alone would leave the receiver with the text of the record before.
    EXPECT_TRUE(same_record(module().get("/sys/note"),
                            module().answer(class_cfg, cmd_get, 1, std::string(1, '\0'))));
}

TEST_F(Configuration, AnswersASetWithAHeaderAlone) {
    EXPECT_TRUE(same_record(module().set("/sys/hostname", "modem"),
                            module().answer(class_cfg, cmd_set, 1)));
    expect_value("/sys/hostname", "modem");
}

TEST_F(Configuration, ServesAQueueThatHasNotRegistered) {
    const RawModule stranger(zansim(), "STRANGER");
    EXPECT_EQ(stranger.get("/sys/hostname").payload(), "router");
}

TEST_F(Configuration, TakesBlanksAndNothingAsValues) {
    EXPECT_EQ(module().set("/sys/note", " two  words ").record.result(), 1);
    expect_value("/sys/note", " two  words ");
    EXPECT_EQ(module().set("/sys/note", "").record.result(), 1);
    expect_value("/sys/note", std::string(1, '\0'));
}

TEST_F(Configuration, RefusesASetThatIsNotFlagPathAndValue) {
    for (const char *const payload : {"", "0", "0/sys/note", "1/sys/note x", "/sys/note x"})
        expect_refused(module().call(class_cfg, cmd_set, payload), class_cfg, cmd_set, -106,
                       "malformed record: not \"0PATH VALUE\"");
    expect_refused(module().call(class_cfg, cmd_set, "0 x"), class_cfg, cmd_set, -116,
                   "bad path (it does not start with a slash): ");
}

TEST_F(Configuration, RefusesToReadWhatIsNotThere) {
    expect_refused(module().get("/sys/nope"), class_cfg, cmd_get, -101, "no such node: /sys/nope");
    expect_refused(module().get("/sys/user:9/name"), class_cfg, cmd_get, -102,
                   "no such instance: /sys/user:9/name");
    expect_refused(module().get("/sys"), class_cfg, cmd_get, -109, "not a value: /sys");
    expect_refused(module().get(""), class_cfg, cmd_get, -116,
                   "bad path (it does not start with a slash): ");
}

TEST_F(Configuration, RefusesToWriteWhatMayNotBe) {
    expect_refused(module().set("/sys/serial", "1"), class_cfg, cmd_set, -103,
                   "read-only: /sys/serial");
    expect_refused(module().set("/sys/hostname", std::string(17, 'x')), class_cfg, cmd_set, -104,
                   "value of 17 bytes is longer than 16: /sys/hostname");
    expect_refused(module().set("/sys/level", "8"), class_cfg, cmd_set, -105,
                   "value is not int from 0 to 7: /sys/level");
    expect_refused(module().set("/sys/led", "yes"), class_cfg, cmd_set, -105,
                   "value is not bool from 0 to 1: /sys/led");
    expect_refused(module().set("/sys/mode", "maybe"), class_cfg, cmd_set, -105,
                   "value is none of auto, on, off: /sys/mode");
    expect_value("/sys/level", "4");
}

TEST_F(Configuration, KeepsTheTextOfARefusalOnOneLineAndBelow1024Bytes) {
    const std::string text = module().get("/" + std::string(900, '\n')).payload();
    EXPECT_EQ(text.size(), 1023U);
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST_F(Configuration, CountsInstances) {
    expect_value("/sys/user#", "2");
    expect_value("/sys/plain#", "1");
    expect_refused(module().get("/sys#"), class_cfg, cmd_get, -110,
                   "not a multi-instance object: /sys");
    expect_refused(module().get("/nope#"), class_cfg, cmd_get, -101, "no such node: /nope");
    expect_refused(module().get("#"), class_cfg, cmd_get, -116,
                   "bad path (it does not start with a slash): ");
}

TEST_F(Configuration, RendersAnArray) {
    module().set("/sys/user:2/name", "two words");
    EXPECT_TRUE(
        same_record(module().call(class_cfg, cmd_array, "/sys/user"),
                    module().answer(class_cfg, cmd_array, 1,
                                    "1 name=admin home=/\n2 name=two%20words home=/tmp\n")));
    expect_refused(module().call(class_cfg, cmd_array, "/sys/note"), class_cfg, cmd_array, -110,
                   "not a multi-instance object: /sys/note");
}

TEST_F(Configuration, AddsAnInstance) {
    EXPECT_TRUE(same_record(module().call(class_cfg, cmd_anchor, "/sys/user"),
                            module().answer(class_cfg, cmd_anchor, 1)));
    expect_value("/sys/user#", "3");
    expect_value("/sys/user:3/home", "/");
    EXPECT_EQ(module().call(class_cfg, cmd_anchor, "/sys/user:9").record.result(), 1);
    expect_refused(module().call(class_cfg, cmd_anchor, "/sys/user"), class_cfg, cmd_anchor, -111,
                   "already 4 instances: /sys/user");
    expect_refused(module().call(class_cfg, cmd_anchor, "/sys/port"), class_cfg, cmd_anchor, -103,
                   "read-only: /sys/port");
}

TEST_F(Configuration, DeletesAnInstanceAndLeavesTheNumbersOfTheOthers) {
    EXPECT_TRUE(same_record(module().call(class_cfg, cmd_delete, "/sys/user:1"),
                            module().answer(class_cfg, cmd_delete, 1)));
    expect_value("/sys/user#", "1");
    expect_value("/sys/user:2/name", "guest");
    expect_refused(module().call(class_cfg, cmd_delete, "/sys/user:1"), class_cfg, cmd_delete, -102,
                   "no such instance: /sys/user:1");
}

TEST_F(Configuration, DeletesANodeUnlessItHoldsSomethingReadOnly) {
    EXPECT_EQ(module().call(class_cfg, cmd_delete, "/sys/note").record.result(), 1);
    expect_refused(module().get("/sys/note"), class_cfg, cmd_get, -101, "no such node: /sys/note");
    expect_refused(module().call(class_cfg, cmd_delete, "/sys"), class_cfg, cmd_delete, -103,
                   "read-only: /sys");
}

TEST_F(Configuration, ReportsOnItselfInABranchOfItsOwn) {
    expect_refused(module().get("/zansim/nope"), class_cfg, cmd_get, -101,
                   "no such node: /zansim/nope");
    expect_refused(module().get("/zansim"), class_cfg, cmd_get, -101, "no such node: /zansim");
    expect_refused(module().get("/zansim/event"), class_cfg, cmd_get, -118,
                   "write-only: /zansim/event");
    expect_refused(module().set("/zansim/modules", "3"), class_cfg, cmd_set, -103,
                   "read-only: /zansim/modules");
    expect_refused(module().set("/zansim/event", "x"), class_cfg, cmd_set, -105,
                   "not an event code: x");
    expect_refused(module().set("/zansim/event", "2147483648"), class_cfg, cmd_set, -105,
                   "not an event code: 2147483648");
}

TEST_F(Configuration, CarriesTheLongestValueBothWays) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    const std::string path = "/sys/note";
    const std::string value(35000 - path.size() - 2, 'x');
    EXPECT_EQ(module().set(path, value).record.result(), 1);
    expect_value(path, value);
}

TEST_F(Configuration, CarriesAValueThatFillsTheRecord) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    start(tree_file("{\"a\": \"" + std::string(35000, 'y') + "\"}"));
    const SizedRecord answer = module().get("/a");
    EXPECT_EQ(answer.msgsz, 35100U);
    EXPECT_EQ(answer.payload(), std::string(35000, 'y'));
}

TEST_F(Configuration, RefusesAnAnswerThatDoesNotFitARecord) {
    start(tree_file("{\"a\": [{\"x\": \"" + std::string(20000, 'y') + "\"}, {\"x\": \"" +
                    std::string(20000, 'z') + "\"}]}"));
    expect_refused(module().call(class_cfg, cmd_array, "/a"), class_cfg, cmd_array, -115,
                   "answer of 40010 bytes is too long");
}

} // namespace

} // namespace zan::test
