// SPDX-License-Identifier: MIT
#include "support/new_process.h"

#include "support/program.h"

#include <filesystem>
#include <string>

namespace zan::test {

bool run_in_new_process() {
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    if (all.test_to_run_count() == 1)
        return false;
    const testing::TestInfo &test = *all.current_test_info();
    Program program({std::filesystem::read_symlink("/proc/self/exe"),
                     std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name()});
    EXPECT_EQ(program.wait(), 0) << program.output() << program.error();
    return true;
}

} // namespace zan::test
