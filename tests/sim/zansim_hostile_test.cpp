// SPDX-License-Identifier: MIT
//
// Payloads that no module sends, to every command there is.
#include "sim/zansim.h"

#include "support/sandbox.h"

namespace zan::test {

namespace {

class Hostile : public ZansimTest {
protected:
    Hostile() { autostart_ = false; }

    // Sends the payload to every command; whoever answers, zansim serves on.
    void send_everywhere(const std::string &payload) {
        struct Family {
            int type;
            int last;
        };
        for (const Family &family : {Family{1, 36}, Family{2, 3}, Family{4, 5}, Family{5, 9},
                                     Family{7, 18}, Family{8, 1}, Family{9, 4}}) {
            for (int cmd = 0; cmd <= family.last; ++cmd) {
                Fields fields = module().request(family.type, cmd, payload);
                fields.dst = "TESTER";
                fields.arg = cmd % 2;
                module().send(fields);
                while (raw_receive(module().queue())) {
                }
            }
        }
        const auto other = another_module("OTHER");
        EXPECT_EQ(other->get("/zansim/version").record.result(), 1);
        other->announce(cmd_unregister);
        // It prints what it is asked to print, and waits for who reads that.
        const std::string mark = "mark " + std::to_string(++sent_);
        other->call(class_cfg, cmd_print, "/a " + mark);
        EXPECT_TRUE(zansim().program().read_until(mark + '\n'));
        ASSERT_TRUE(zansim().program().running());
    }

    int sent_ = 0;

    static std::string action(const std::string &name) { return action_payload(-1, 0, -1, name); }
};

TEST_F(Hostile, PayloadsOfEveryCommandNeverEndIt) {
    start(tree_file(R"({"sys": {"user": [{"name": "", "password": ""}]}, "a": "x"})"),
          {"--directory", "/tmp/zan_dir", "--trace-json", "/tmp/zan_trace.json", "--fault",
           "delay 1ms times=20"});
    const std::string control = "/\n\t\x01\x7f\xff\xc0\x80%n%s";
    for (const std::string &payload : {
             std::string(),
             std::string(1, '\0'),
             std::string(2, '\0'),
             std::string(" "),
             std::string("\n\n\n\n\n"),
             std::string("/"),
             std::string("//"),
             std::string("0/ "),
             std::string("0"),
             std::string("9/a"),
             std::string("/a:"),
             std::string("#"),
             std::string("/#"),
             std::string("0/a"),
             std::string("/a "),
             std::string(1100, '/'),
             std::string(2000, 'x'),
             '0' + std::string(2000, '/') + " x",
             control,
             std::string(64, '\xff'),
             std::string(1036, '\xff'),
             std::string(1036, '\0'),
             action(std::string(1023, '/')),
             action(std::string(300, '.')),
             action(control),
             action("../x"),
             action(std::string(1023, 'x')),
             std::string("[\"**", 4),
         })
        send_everywhere(payload);
}

TEST_F(Hostile, PayloadsOfTheGreatestLengthNeverEndIt) {
    ZAN_SKIP_WITHOUT_LONG_RECORDS();
    start(tree_file(R"({"sys": {"user": [{"name": "", "password": ""}]}, "a": "x"})"),
          {"--directory", "/tmp/zan_dir"});
    for (const std::string &payload :
         {std::string(35000, 'x'), '/' + std::string(34999, 'x'), std::string(35000, '/'),
          std::string(35000, '\n'), std::string(35000, '\0'), "/a " + std::string(34997, '\xff')})
        send_everywhere(payload);
}

} // namespace

} // namespace zan::test
