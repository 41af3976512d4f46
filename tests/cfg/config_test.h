// SPDX-License-Identifier: MIT
#pragma once

#include "support/capture.h"
#include "support/commands.h"
#include "support/module_test.h"

#include <unistd.h>

#include <string>
#include <vector>

namespace zan::test {

// A path of exactly this many characters whose every part differs from its
// neighbours, so that a cut in the wrong place shows.
inline std::string path_of(std::size_t length) {
    std::string path;
    for (int part = 0; path.size() < length; ++part)
        path += "/part" + std::to_string(part);
    path.resize(length);
    return path;
}

class ConfigTest : public ModuleTest {
protected:
    // What module "probe" sends to the configuration: every other word is zero.
    static Fields request(int command, const std::string &payload, int arg = 0) {
        return {.mtype = g_msq_qid,
                .type = class_cfg,
                .cmd = command,
                .dst = "ZAN_CFG",
                .src = "probe",
                .pid = static_cast<std::int32_t>(getpid()),
                .arg = arg,
                .payload = payload};
    }

    // Whether nothing has been sent: the next record to arrive is the one sent here.
    testing::AssertionResult sent_nothing() {
        cfg_del("/marker");
        const std::vector<SizedRecord> records = daemon.records();
        daemon.forget_records();
        if (records.size() == 1)
            return same_record(records.front(), request(cmd_delete, "/marker"));
        return testing::AssertionFailure() << records.size() - 1 << " records were sent";
    }

    // The only record that has arrived is this command line, which nothing answers:
    // however short it is, 1025 bytes travel.
    void expect_command_line_sent(const std::string &line) {
        const SizedRecord record = sent();
        std::string payload = line;
        payload.resize(1025);
        const std::int32_t time = record.record.word(at::time);
        EXPECT_TRUE(is_recent(time));
        EXPECT_TRUE(same_record(record, {.mtype = g_msq_qid,
                                         .type = class_control,
                                         .cmd = 0,
                                         .dst = "ZAN",
                                         .src = "probe",
                                         .pid = static_cast<std::int32_t>(getpid()),
                                         .time = time,
                                         .payload = payload}));
        EXPECT_EQ(record.msgsz, 1125U);
    }

    // Leaves long texts in whatever storage requests and answers are kept in.
    void leave_traces() {
        daemon.once(class_cfg, cmd_array, answer(std::string(4000, 'A')));
        char value[4001];
        EXPECT_EQ(cfg_getarray(value, sizeof value, "%s", std::string(1000, 'G').c_str()), 1);
        EXPECT_EQ(cfg_setstr(std::string(1000, 'V').c_str(), "%s", std::string(1000, 'P').c_str()),
                  1);
        daemon.forget_records();
    }
};

} // namespace zan::test
