// SPDX-License-Identifier: MIT
#pragma once

#include "zanctl.h"

#include <memory>
#include <string>
#include <vector>

namespace zan::test {

// zanctl with zansim, on the tree that is shipped.
class WithZansim : public testing::Test {
protected:
    WithZansim();
    void SetUp() override;
    // Ends zansim as a person would, so that a sanitizer's verdict counts.
    void TearDown() override;

    // Runs it to its end, which must be "done", and returns its output.
    static std::string zanctl(const std::vector<std::string> &arguments);

    // These run until something has come, or a signal.
    static std::unique_ptr<Program> watch(const std::vector<std::string> &arguments);
    static std::unique_ptr<Program> listen(const std::vector<std::string> &arguments);

    // It has ended by itself, with this output.
    static void expect_heard(Program &listener, const std::string &output);

    Program zansim;
};

} // namespace zan::test
