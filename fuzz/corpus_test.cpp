// SPDX-License-Identifier: MIT
#include "fuzz/target.h"
#include "support/raw.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zan::test {
namespace {

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(ZAN_CORPUS))
        files.push_back(entry.path());
    return files;
}

TEST(Corpus, RunsClean) {
    const std::vector<std::filesystem::path> files = corpus();
    ASSERT_FALSE(files.empty());
    for (const std::filesystem::path &file : files) {
        SCOPED_TRACE(file);
        // A block of its own size, so that reading behind the input shows.
        const std::string contents = read_file(file);
        const std::vector<unsigned char> bytes(contents.begin(), contents.end());
        EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
    }
}

} // namespace
} // namespace zan::test
