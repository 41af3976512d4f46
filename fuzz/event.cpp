// SPDX-License-Identifier: MIT
//
// The decoders of event messages, on arbitrary texts.  The parser itself is a library
// of the system's, built without the fuzzer's marks: seeds and a dictionary lead to
// texts that are almost JSON.
//
// An input is two bytes, the event and the size of the members' buffers, then the text.
#include "event/codecs.h"
#include "fuzz/input.h"
#include "fuzz/target.h"

#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace {

using namespace zan::fuzz;
using zan::test::Codec;
using zan::test::MemberBuffer;

constexpr char untouched = '\x7e';

// Blocks of one size, one for each member.
class Members {
public:
    Members(const Codec &codec, std::size_t size) : size_(size), blocks_(codec.keys.size()) {
        for (std::size_t i = 0; i < codec.keys.size(); ++i) {
            blocks_[i].reset(new char[size]);
            std::memset(blocks_[i].get(), untouched, size);
            buffers_.push_back({blocks_[i].get(), static_cast<unsigned int>(size)});
        }
    }

    const std::vector<MemberBuffer> &buffers() const { return buffers_; }
    bool is_untouched(std::size_t i) const {
        const std::string_view block(blocks_[i].get(), size_);
        return block.find_first_not_of(untouched) == std::string_view::npos;
    }
    // Null for a member that the text did not have.
    const char *value(std::size_t i) const { return is_untouched(i) ? nullptr : blocks_[i].get(); }

private:
    std::size_t size_;
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::vector<MemberBuffer> buffers_;
};

// What was decoded is an event like any other: encoded and decoded it is the same.
void send_on(const Codec &codec, const Members &members) {
    std::vector<const char *> values;
    std::size_t length = 3;
    for (std::size_t i = 0; i < codec.keys.size(); ++i) {
        values.push_back(members.value(i));
        length += codec.keys[i].size() + 6;
        length += values.back() != nullptr ? 6 * std::strlen(values.back()) : 0;
    }
    const std::unique_ptr<char[]> text(new char[length]);
    require(codec.encode(values, text.get(), static_cast<unsigned int>(length)) == 0,
            "an encoder gives 0");
    const Members again(codec, 512);
    require(codec.decode(again.buffers(), text.get()) == 0, "an encoded text parses");
    for (std::size_t i = 0; i < codec.keys.size(); ++i) {
        require((again.value(i) == nullptr) == (values[i] == nullptr), "the same members");
        require(values[i] == nullptr || std::strcmp(values[i], again.value(i)) == 0,
                "the same values");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const std::vector<Codec> codecs = zan::test::all_codecs();
    Input input(data, size);
    const Codec &codec = codecs[static_cast<std::size_t>(input.byte()) % codecs.size()];
    const auto buffer_size = static_cast<std::size_t>(input.byte());
    const Block text(input.text());

    const Members members(codec, buffer_size);
    const int result = codec.decode(members.buffers(), text.get());
    require(result == 0 || result == -1, "a decoder gives 0 or -1");
    for (std::size_t i = 0; i < codec.keys.size(); ++i) {
        if (result == -1)
            require(members.is_untouched(i), "what does not parse touches nothing");
        else if (members.value(i) != nullptr)
            require(std::memchr(members.value(i), '\0', buffer_size) != nullptr,
                    "a value ends with a NUL");
    }
    if (result == 0)
        send_on(codec, members);
    return 0;
}
