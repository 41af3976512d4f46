// SPDX-License-Identifier: MIT
#include "zanctl.h"

#include "support/patience.h"

#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace zan::test {

std::vector<std::string> zanctl_command(const std::vector<std::string> &arguments) {
    std::vector<std::string> command = {ZAN_TEST_ZANCTL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

std::vector<std::string> target_command(const std::vector<std::string> &command) {
    std::vector<std::string> full;
    std::istringstream words(ZAN_TEST_EMULATOR);
    for (std::string word; std::getline(words, word, ';');)
        full.push_back(word);
    full.insert(full.end(), command.begin(), command.end());
    return full;
}

std::vector<std::string> script(const std::string &text,
                                const std::vector<std::string> &arguments) {
    std::vector<std::string> command = {"/bin/bash", "-c", text, "bash"};
    for (const std::string &word : target_command(zanctl_command(arguments)))
        command.push_back(word);
    return command;
}

std::vector<std::string> zanctl_key_files() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator("/tmp")) {
        const std::string name = entry.path().filename();
        if (name.starts_with("zanctl") && name.ends_with(".msq"))
            names.push_back(name);
    }
    return names;
}

Ended run_zanctl(const std::vector<std::string> &arguments) {
    Program program(zanctl_command(arguments));
    const int status = program.wait();
    return {status, program.output(), program.error()};
}

Ended ZanctlTest::run(const std::vector<std::string> &arguments) {
    Program program(zanctl_command(arguments));
    return finish(program);
}

Ended ZanctlTest::finish(Program &program) {
    pid = program.pid();
    const int status = program.wait();
    records = daemon.records();
    return {status, program.output(), program.error()};
}

Ended ZanctlTest::expire(Program &program) {
    // Again and again: one may arrive before the wait begins.
    EXPECT_TRUE(eventually([&] {
        program.signal(SIGALRM);
        return !program.running();
    }));
    return finish(program);
}

Ended ZanctlTest::run_until_expired(const std::vector<std::string> &arguments, std::size_t count) {
    Program program(zanctl_command(arguments));
    daemon.wait_for_records(count);
    return expire(program);
}

SizedRecord ZanctlTest::only_request() const {
    if (records.size() != 3)
        throw std::runtime_error(std::to_string(records.size()) + " records arrived, not 3");
    return records[1];
}

Fields ZanctlTest::request(int type, int cmd, const std::string &dst,
                           const std::string &payload) const {
    return {.mtype = records.at(0).record.mtype,
            .type = type,
            .cmd = cmd,
            .dst = dst,
            .src = "zanctl-" + std::to_string(pid),
            .pid = pid,
            .payload = payload};
}

void ZanctlTest::expect_left_nothing() const {
    EXPECT_THAT(zanctl_key_files(), testing::IsEmpty());
    for (const SizedRecord &sized : daemon.records())
        EXPECT_FALSE(queue_exists(static_cast<int>(sized.record.mtype))) << sized.record.mtype;
}

} // namespace zan::test
