// SPDX-License-Identifier: MIT
#include "with_zansim.h"

#include <csignal>

namespace zan::test {

namespace {

std::unique_ptr<Program> start(const std::string &command, std::vector<std::string> arguments,
                               const std::string &ready) {
    arguments.insert(arguments.begin(), command);
    auto program = std::make_unique<Program>(zanctl_command(arguments));
    EXPECT_TRUE(program->read_error_until(ready)) << program->error();
    return program;
}

} // namespace

WithZansim::WithZansim() : zansim({ZAN_TEST_ZANSIM, ZAN_TEST_TREE}) {}

void WithZansim::SetUp() {
    ASSERT_TRUE(zansim.read_until("zansim: ready"));
}

void WithZansim::TearDown() {
    EXPECT_THAT(zanctl_key_files(), testing::IsEmpty());
    zansim.signal(SIGTERM);
    EXPECT_EQ(zansim.wait(), 0) << zansim.error();
}

std::string WithZansim::zanctl(const std::vector<std::string> &arguments) {
    const Ended ended = run_zanctl(arguments);
    EXPECT_EQ(ended.status, exit_done) << ended.error;
    EXPECT_EQ(ended.error, "");
    return ended.output;
}

std::unique_ptr<Program> WithZansim::watch(const std::vector<std::string> &arguments) {
    return start("watch", arguments, "zanctl: watching\n");
}

std::unique_ptr<Program> WithZansim::listen(const std::vector<std::string> &arguments) {
    return start("listen", arguments, "zanctl: listening\n");
}

void WithZansim::expect_heard(Program &listener, const std::string &output) {
    EXPECT_EQ(listener.wait(), exit_done);
    EXPECT_EQ(listener.output(), output);
    EXPECT_EQ(listener.error(), "zanctl: listening\n");
}

} // namespace zan::test
