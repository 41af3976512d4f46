// SPDX-License-Identifier: MIT
#pragma once

#include "sim/zansim.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace zan::test {

inline constexpr char request_file[] = "/tmp/zan_qid";
inline constexpr char answer_file[] = "/tmp/zan_req_qid";
inline constexpr char port_file[] = "/tmp/zan.socket";
inline constexpr char address_file[] = "/tmp/zan.socketip";
inline constexpr char lock_file[] = "/tmp/zan_sim.lock";

class Start : public ZansimTest {
protected:
    Start() { autostart_ = false; }

    // Runs a zansim that must fail to start.
    void expect_failure(const std::vector<std::string> &arguments, int status,
                        const std::string &error) {
        std::vector<std::string> command{zansim_path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Program program(command);
        EXPECT_EQ(program.wait(), status);
        EXPECT_EQ(program.error(), error);
    }

    void expect_nothing_left() {
        for (const char *const file :
             {request_file, answer_file, port_file, address_file, lock_file})
            EXPECT_FALSE(file_exists(file)) << file;
        EXPECT_FALSE(queue_exists(zansim().request_queue()));
        EXPECT_FALSE(queue_exists(zansim().answer_queue()));
    }

    const std::string simple = tree_file(R"({"a": {"b": 1, "c": 2}})");
};

// The queues of a daemon that is not zansim, with their files.
class OtherDaemon {
public:
    OtherDaemon() {
        write_file(request_file, std::to_string(requests.id()));
        write_file(answer_file, std::to_string(answers.id()));
    }
    ~OtherDaemon() {
        unlink(request_file);
        unlink(answer_file);
    }

    // Serves a record, as the process that calls it.
    void serve() const {
        raw_send(requests.id(), Fields{.mtype = 1});
        raw_receive(requests.id());
        raw_send(answers.id(), Fields{.mtype = 1});
    }

    // Serves a record in a process that then ends.
    void serve_and_die() const {
        const pid_t pid = fork();
        if (pid == 0) {
            serve();
            _exit(0);
        }
        waitpid(pid, nullptr, 0);
    }

    RawQueue requests;
    RawQueue answers;
};

} // namespace zan::test
