// SPDX-License-Identifier: MIT
//
// The codecs when memory runs out: cJSON's allocator fails at one place after the
// other, and every block it gave must have come back.
#include "codecs.h"

#include "support/capture.h"

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace zan::test {
namespace {

int until_failure = -1; // allocations that succeed; negative: all
int allocations = 0;
int blocks_in_use = 0;

void *allocate(std::size_t size) {
    ++allocations;
    if (until_failure >= 0 && until_failure-- == 0)
        return nullptr;
    ++blocks_in_use;
    return std::malloc(size);
}

void release(void *block) {
    if (block != nullptr)
        --blocks_in_use;
    std::free(block);
}

// Long enough that printing has to ask for a larger buffer.
const std::string long_value(300, 'v');

void fail_after(int count) {
    until_failure = count;
    allocations = 0;
}

class CodecMemory : public testing::Test {
protected:
    void SetUp() override {
        cJSON_Hooks hooks{allocate, release};
        cJSON_InitHooks(&hooks);
    }
    void TearDown() override { cJSON_InitHooks(nullptr); }
};

template<typename Check> void for_each_codec(Check check) {
    for (const Codec &codec : all_codecs()) {
        SCOPED_TRACE(codec.name);
        fail_after(-1);
        check(codec);
    }
}

std::string encode(const Codec &codec) {
    char out[4096] = "old";
    const std::vector<const char *> values(codec.keys.size(), long_value.c_str());
    EXPECT_EQ(codec.encode(values, out, sizeof out), 0);
    return out;
}

TEST_F(CodecMemory, AnEncoderWithoutMemoryGivesAnEmptyText) {
    for_each_codec([](const Codec &codec) {
        const std::string full = encode(codec);
        const int needed = allocations;
        EXPECT_EQ(blocks_in_use, 0);
        EXPECT_GE(needed, 1 + 3 * static_cast<int>(codec.keys.size()));
        for (int failing = 0; failing < needed; ++failing) {
            SCOPED_TRACE(failing);
            fail_after(failing);
            EXPECT_EQ(encode(codec), "");
            EXPECT_EQ(blocks_in_use, 0);
        }
        fail_after(needed);
        EXPECT_EQ(encode(codec), full);
    });
}

TEST_F(CodecMemory, AnEncoderGivesBackWhatNullArgumentsTook) {
    for_each_codec([](const Codec &codec) {
        char out[64];
        EXPECT_EQ(
            codec.encode(std::vector<const char *>(codec.keys.size(), nullptr), out, sizeof out),
            0);
        EXPECT_STREQ(out, "{}");
        EXPECT_EQ(blocks_in_use, 0);
    });
}

TEST_F(CodecMemory, ADecoderWithoutMemoryTouchesNothing) {
    for_each_codec([](const Codec &codec) {
        const std::string text = encode(codec);
        fail_after(-1);
        EXPECT_EQ(codec.decode(Buffers(codec).members(), text.c_str()), 0);
        const int needed = allocations;
        EXPECT_EQ(blocks_in_use, 0);
        EXPECT_GE(needed, 1 + 3 * static_cast<int>(codec.keys.size()));
        for (int failing = 0; failing < needed; ++failing) {
            SCOPED_TRACE(failing);
            fail_after(failing);
            StdoutCapture output;
            Buffers buffers(codec);
            EXPECT_EQ(codec.decode(buffers.members(), text.c_str()), -1);
            EXPECT_THAT(buffers.texts(), testing::Each(Buffers::untouched));
            EXPECT_EQ(output.stop(), format_error(codec));
            EXPECT_EQ(blocks_in_use, 0);
        }
    });
}

TEST_F(CodecMemory, ADecoderGivesBackWhatABrokenTextTook) {
    for_each_codec([](const Codec &codec) {
        const std::string text = encode(codec);
        StdoutCapture output;
        for (std::size_t length = 0; length < text.size(); length += 7) {
            EXPECT_EQ(codec.decode(Buffers(codec).members(), text.substr(0, length).c_str()), -1);
            EXPECT_EQ(blocks_in_use, 0) << length;
        }
    });
}

} // namespace
} // namespace zan::test
