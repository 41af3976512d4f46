// SPDX-License-Identifier: MIT
#include "codecs.h"

#include "support/capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace zan::test {
namespace {

using testing::Each;

constexpr char guard = '\x7e';

std::vector<std::string> numbered(std::size_t count) {
    std::vector<std::string> values;
    for (std::size_t i = 1; i <= count; ++i)
        values.push_back("value " + std::to_string(i));
    return values;
}

// The text of an object; members without a value are left out.
std::string object_text(const Codec &codec, const std::vector<const char *> &values) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (values[i] != nullptr)
            text += (text.empty() ? "\"" : ",\"") + codec.keys[i] + "\":\"" + values[i] + '"';
    return '{' + text + '}';
}

std::vector<const char *> pointers(const std::vector<std::string> &texts) {
    std::vector<const char *> found;
    for (const std::string &text : texts)
        found.push_back(text.c_str());
    return found;
}

std::string encoded(const Codec &codec, const std::vector<const char *> &values) {
    char out[512];
    EXPECT_EQ(codec.encode(values, out, sizeof out), 0);
    return out;
}

// ---- each pair -------------------------------------------------------------

// A pair with a value for each member and the object of all of them.
struct Example {
    const Codec &codec;
    const std::vector<std::string> values = numbered(codec.keys.size());
    const std::string full = object_text(codec, pointers(values));
};

template<typename Check> void for_each_codec(Check check) {
    for (const Codec &codec : all_codecs()) {
        SCOPED_TRACE(codec.name);
        check(Example{codec});
    }
}

TEST(EventCodec, PrintsItsMembersInOrder) {
    for_each_codec([](const Example &event) {
        EXPECT_EQ(encoded(event.codec, pointers(event.values)), event.full);
    });
}

TEST(EventCodec, LeavesOutEachNullArgument) {
    for_each_codec([](const Example &event) {
        for (std::size_t missing = 0; missing < event.values.size(); ++missing) {
            std::vector<const char *> some = pointers(event.values);
            some[missing] = nullptr;
            EXPECT_EQ(encoded(event.codec, some), object_text(event.codec, some));
        }
        EXPECT_EQ(encoded(event.codec, std::vector<const char *>(event.values.size(), nullptr)),
                  "{}");
    });
}

TEST(EventCodec, CutsItsTextToEverySize) {
    for_each_codec([](const Example &event) {
        for (std::size_t size = 0; size <= event.full.size() + 2; ++size) {
            SCOPED_TRACE(size);
            std::vector<char> out(event.full.size() + 4, guard);
            EXPECT_EQ(event.codec.encode(pointers(event.values), out.data(),
                                         static_cast<unsigned int>(size)),
                      0);
            if (size == 0) {
                EXPECT_THAT(out, Each(guard));
                continue;
            }
            EXPECT_EQ(std::string(out.data()), event.full.substr(0, size - 1));
            EXPECT_EQ(out[std::min(size, event.full.size() + 1)], guard);
        }
        EXPECT_EQ(event.codec.encode(pointers(event.values), nullptr, 64), 0);
    });
}

TEST(EventCodec, ReadsBackWhatItPrinted) {
    for_each_codec([](const Example &event) {
        Buffers buffers(event.codec);
        EXPECT_EQ(event.codec.decode(buffers.members(), event.full.c_str()), 0);
        EXPECT_EQ(buffers.texts(), event.values);
    });
}

TEST(EventCodec, CutsEachMemberToEverySize) {
    for_each_codec([](const Example &event) {
        for (std::size_t size = 0; size <= event.values[0].size() + 2; ++size) {
            SCOPED_TRACE(size);
            std::vector<std::vector<char>> blocks(
                event.values.size(), std::vector<char>(event.values[0].size() + 4, guard));
            std::vector<MemberBuffer> members;
            for (std::vector<char> &block : blocks)
                members.push_back({block.data(), static_cast<unsigned int>(size)});
            EXPECT_EQ(event.codec.decode(members, event.full.c_str()), 0);
            for (std::size_t i = 0; i < blocks.size(); ++i) {
                if (size == 0) {
                    EXPECT_THAT(blocks[i], Each(guard));
                    continue;
                }
                EXPECT_EQ(std::string(blocks[i].data()), event.values[i].substr(0, size - 1));
                EXPECT_EQ(blocks[i][std::min(size, event.values[i].size() + 1)], guard);
            }
        }
        const std::vector<MemberBuffer> none(event.values.size(), {nullptr, 64});
        EXPECT_EQ(event.codec.decode(none, event.full.c_str()), 0);
    });
}

TEST(EventCodec, LeavesTheBufferOfAMissingMemberAlone) {
    for_each_codec([](const Example &event) {
        Buffers all(event.codec);
        EXPECT_EQ(event.codec.decode(all.members(), "{}"), 0);
        EXPECT_THAT(all.texts(), Each(Buffers::untouched));
        for (std::size_t present = 0; present < event.values.size(); ++present) {
            std::vector<const char *> one(event.values.size(), nullptr);
            one[present] = event.values[present].c_str();
            std::vector<std::string> expected(event.values.size(), Buffers::untouched);
            expected[present] = event.values[present];
            Buffers buffers(event.codec);
            EXPECT_EQ(event.codec.decode(buffers.members(), object_text(event.codec, one).c_str()),
                      0);
            EXPECT_EQ(buffers.texts(), expected);
        }
    });
}

TEST(EventCodec, NamesItselfWhenATextDoesNotParse) {
    for_each_codec([](const Example &event) {
        for (const char *text : {"", " ", "x", "{", "{\"Action\"}", "{\"Action\":\"a\",}",
                                 "{'Action':1}", "{\"Action\":\"a", "\"\\x\"", "[1,2", "nul"}) {
            SCOPED_TRACE(text);
            StdoutCapture output;
            Buffers buffers(event.codec);
            EXPECT_EQ(event.codec.decode(buffers.members(), text), -1);
            EXPECT_THAT(buffers.texts(), Each(Buffers::untouched));
            EXPECT_EQ(output.stop(), format_error(event.codec));
        }
        StdoutCapture output;
        EXPECT_EQ(event.codec.decode(Buffers(event.codec).members(), nullptr), -1);
        EXPECT_EQ(output.stop(), format_error(event.codec));
    });
}

TEST(EventCodec, SaysNothingOtherwise) {
    for_each_codec([](const Example &event) {
        StdoutCapture output;
        char small[2];
        Buffers buffers(event.codec, 2);
        event.codec.encode(pointers(event.values), small, sizeof small);
        event.codec.decode(buffers.members(), event.full.c_str());
        event.codec.decode(buffers.members(), "[]");
        EXPECT_EQ(output.stop(), "");
    });
}

// ---- examples to the letter ------------------------------------------------

TEST(WanEvent, LeavesOutTheMaskItDoesNotHave) {
    char out[128];
    EXPECT_EQ(
        encode_wan_event_msg("10.0.0.2", nullptr, "10.0.0.1", "9.9.9.9", "eth0", out, sizeof out),
        0);
    EXPECT_STREQ(out,
                 R"({"IP":"10.0.0.2","Gateway":"10.0.0.1","DNS":"9.9.9.9","Interface":"eth0"})");
}

TEST(WifiSnifferEvent, WithoutActionIsAnEmptyObject) {
    char out[16];
    EXPECT_EQ(encode_wifi_sniffer_event_msg(nullptr, out, sizeof out), 0);
    EXPECT_STREQ(out, "{}");
}

// ---- what the decoders rely on cJSON for -----------------------------------

struct Reading {
    const char *what;
    const char *text;
    const char *type;
    const char *action;
};

constexpr const char *untouched = Buffers::untouched;

void check(const Reading &row) {
    SCOPED_TRACE(row.what);
    char type[64] = "untouched";
    char action[64] = "untouched";
    char value[64] = "untouched";
    EXPECT_EQ(decode_palumesh_event_msg(type, sizeof type, action, sizeof action, value,
                                        sizeof value, row.text),
              0);
    EXPECT_STREQ(type, row.type);
    EXPECT_STREQ(action, row.action);
    EXPECT_STREQ(value, untouched);
}

TEST(Decoding, FindsKeys) {
    for (const Reading &row :
         {Reading{"any order", R"({"Action":"a","Type":"t"})", "t", "a"},
          Reading{"any case", R"({"type":"t","ACTION":"a"})", "t", "a"},
          Reading{"first of two", R"({"Type":"1","Type":"2","Action":"a"})", "1", "a"},
          Reading{"first of two in other case", R"({"tYPE":"1","Type":"2"})", "1", untouched},
          Reading{"others ignored", R"({"X":"x","Type":"t","":"y","Typ":"z"})", "t", untouched},
          Reading{"inner objects ignored", R"({"X":{"Type":"x"},"Action":"a"})", untouched, "a"},
          Reading{"escaped key", R"({"Ty\u0070e":"t"})", "t", untouched},
          Reading{"key cut by its NUL", R"({"Type\u0000x":"t"})", "t", untouched}})
        check(row);
}

TEST(Decoding, TakesAnEmptyTextForWhatIsNoString) {
    for (const Reading &row : {Reading{"number", R"({"Type":1,"Action":-2.5e3})", "", ""},
                               Reading{"true and false", R"({"Type":true,"Action":false})", "", ""},
                               Reading{"null", R"({"Type":null,"Action":"a"})", "", "a"},
                               Reading{"object", R"({"Type":{"Type":"t"},"Action":{}})", "", ""},
                               Reading{"array", R"({"Type":["t"],"Action":[]})", "", ""},
                               Reading{"first of two", R"({"Type":1,"Type":"t"})", "", untouched}})
        check(row);
}

TEST(Decoding, FindsNothingInWhatIsNoObject) {
    for (const Reading &row :
         {Reading{"array", "[]", untouched, untouched},
          Reading{"array of objects", R"([{"Type":"t"}])", untouched, untouched},
          Reading{"array of texts", R"(["Type","t"])", untouched, untouched},
          Reading{"text", R"("Type")", untouched, untouched},
          Reading{"number", "17", untouched, untouched},
          Reading{"true", "true", untouched, untouched},
          Reading{"null", "null", untouched, untouched}})
        check(row);
}

TEST(Decoding, PassesOverWhatStandsAround) {
    for (const Reading &row :
         {Reading{"blanks", " \t\r\n{ \"Type\" : \"t\" , \"Action\" : \"a\" } ", "t", "a"},
          Reading{"rest ignored", R"({"Type":"t"}{"Action":"a"} and more)", "t", untouched},
          Reading{"byte order mark", "\xef\xbb\xbf{\"Type\":\"t\"}", "t", untouched}})
        check(row);
}

TEST(Decoding, ReadsTexts) {
    for (const Reading &row :
         {Reading{"escapes", R"({"Type":"\"\\\/\b\f\n\r\t","Action":"\u0041\u00e9\u20AC"})",
                  "\"\\/\b\f\n\r\t", "A\xc3\xa9\xe2\x82\xac"},
          Reading{"surrogates", R"({"Type":"\ud834\udd1e"})", "\xf0\x9d\x84\x9e", untouched},
          Reading{"cut by its NUL", R"({"Type":"a\u0000b"})", "a", untouched},
          Reading{"invalid UTF-8 as it is", "{\"Type\":\"\xff\xc3\",\"Action\":\"\x80\"}",
                  "\xff\xc3", "\x80"},
          Reading{"bare control characters", "{\"Type\":\"\x01\n\x1f\x7f\"}", "\x01\n\x1f\x7f",
                  untouched},
          Reading{"empty", R"({"Type":"","Action":""})", "", ""}})
        check(row);
}

TEST(Decoding, RefusesHalfASurrogatePair) {
    StdoutCapture output;
    char action[8] = "old";
    for (const char *text : {R"({"Action":"\ud834"})", R"({"Action":"\udd1e"})",
                             R"({"Action":"\ud834\u0041"})", R"({"Action":"\u12"})"})
        EXPECT_EQ(decode_wifi_sniffer_event_msg(action, sizeof action, text), -1) << text;
    EXPECT_STREQ(action, "old");
}

// What lies deeper than a thousand levels does not parse, rather than to exhaust
// the stack.
TEST(Decoding, BoundsItsDepth) {
    StdoutCapture output;
    const auto nested = [](std::size_t depth) {
        return R"({"Action":"a","Deep":)" + std::string(depth, '[') + std::string(depth, ']') + '}';
    };
    char action[8] = "";
    EXPECT_EQ(decode_wifi_sniffer_event_msg(action, sizeof action, nested(900).c_str()), 0);
    EXPECT_STREQ(action, "a");
    EXPECT_EQ(decode_wifi_sniffer_event_msg(action, sizeof action, nested(100'000).c_str()), -1);
    std::string open;
    for (int i = 0; i < 100'000; ++i)
        open += R"({"a":)";
    EXPECT_EQ(decode_wifi_sniffer_event_msg(action, sizeof action, open.c_str()), -1);
}

TEST(Decoding, TakesAMegabyte) {
    const std::string text = R"({"Action":")" + std::string(1 << 20, 'm') + R"("})";
    std::vector<char> action((1 << 20) + 1);
    EXPECT_EQ(decode_wifi_sniffer_event_msg(action.data(), static_cast<unsigned>(action.size()),
                                            text.c_str()),
              0);
    EXPECT_EQ(action.data(), std::string(1 << 20, 'm'));
    char small[5];
    EXPECT_EQ(decode_wifi_sniffer_event_msg(small, sizeof small, text.c_str()), 0);
    EXPECT_STREQ(small, "mmmm");
}

// The tree is a copy: a module may decode a message in place.
TEST(Decoding, MayWriteOverItsText) {
    char text[] = R"({"Action":"a","CFGPath":"/p"})";
    EXPECT_EQ(decode_ser2net_event_msg(text, 14, text + 14, 8, text), 0);
    EXPECT_STREQ(text, "a");
    EXPECT_STREQ(text + 14, "/p");
}

// ---- what the encoders rely on cJSON for -----------------------------------

std::string encoded_action(const char *action) {
    char out[64];
    EXPECT_EQ(encode_wifi_sniffer_event_msg(action, out, sizeof out), 0);
    const std::string text = out;
    const std::string front = R"({"Action":")";
    EXPECT_TRUE(text.starts_with(front) && text.ends_with("\"}")) << text;
    return text.substr(front.size(), text.size() - front.size() - 2);
}

TEST(Encoding, EscapesWhatJsonMust) {
    EXPECT_EQ(encoded_action("\"\\\b\f\n\r\t"), R"(\"\\\b\f\n\r\t)");
    EXPECT_EQ(encoded_action("\x01\x1b\x1f"), R"(\u0001\u001b\u001f)");
    EXPECT_EQ(encoded_action("/\x7f'%s%n"), "/\x7f'%s%n");
    EXPECT_EQ(encoded_action(""), "");
}

TEST(Encoding, PassesInvalidUtf8OnAsItIs) {
    EXPECT_EQ(encoded_action("\xc3\xa9 \xff\x80\xc3"), "\xc3\xa9 \xff\x80\xc3");
}

TEST(Encoding, EveryByteComesBackFromADecoder) {
    for (int value = 1; value < 256; ++value) {
        const char text[] = {'<', static_cast<char>(value), '>', '\0'};
        char out[64];
        char back[8];
        encode_wifi_sniffer_event_msg(text, out, sizeof out);
        EXPECT_EQ(decode_wifi_sniffer_event_msg(back, sizeof back, out), 0) << value;
        EXPECT_STREQ(back, text) << value;
    }
}

TEST(Encoding, TakesAMegabyte) {
    const std::string action(1 << 20, 'm');
    std::vector<char> out((1 << 20) + 64);
    EXPECT_EQ(encode_wifi_sniffer_event_msg(action.c_str(), out.data(),
                                            static_cast<unsigned>(out.size())),
              0);
    EXPECT_EQ(out.data(), R"({"Action":")" + action + "\"}");
}

TEST(Encoding, MayWriteOverItsArguments) {
    char text[64] = "scan";
    EXPECT_EQ(encode_wifi_sniffer_event_msg(text, text, sizeof text), 0);
    EXPECT_STREQ(text, R"({"Action":"scan"})");
}

} // namespace
} // namespace zan::test
