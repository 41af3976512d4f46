// SPDX-License-Identifier: MIT
#include "fields.h"

#include <zan.h>

#include "support/capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <vector>

namespace zan::test {
namespace {

constexpr char guard = '\x7e';

// A buffer with a cursor at its start and one byte behind its room.
class Writer {
public:
    explicit Writer(int room) : bytes_(static_cast<std::size_t>(room) + 1, guard), room_(room) {}

    int string(const char *text) { return fill_string(&pos_, &room_, text); }
    int number(int value) { return fill_int(&pos_, &room_, value); }
    int room() const { return room_; }
    std::string written() const { return {bytes_.data(), static_cast<const char *>(pos_)}; }
    std::string all() const { return {bytes_.begin(), bytes_.end()}; }

private:
    std::vector<char> bytes_;
    char *pos_ = bytes_.data();
    int room_;
};

// A block with a cursor, and behind its room as many bytes as a reader may read.
class Reader {
public:
    explicit Reader(const std::string &bytes) : Reader(bytes, static_cast<int>(bytes.size())) {}
    Reader(const std::string &bytes, int room)
        : bytes_(bytes + std::string(FieldModel::spare, guard)), room_(room) {}

    std::string string() { return get_string(&pos_, &room_); }
    std::string string2() { return get_string2(&pos_, &room_, nullptr, 0); }
    char *string2(char *dst, int size) { return get_string2(&pos_, &room_, dst, size); }
    int number() { return get_int(&pos_, &room_); }
    int room() const { return room_; }
    std::ptrdiff_t at() const { return pos_ - bytes_.data(); }

private:
    std::string bytes_;
    char *pos_ = bytes_.data();
    int room_;
};

// ---- writing ---------------------------------------------------------------

TEST(FillString, WritesLengthAndCharacters) {
    Writer writer(16);
    EXPECT_EQ(writer.string("abc"), 5);
    EXPECT_EQ(writer.room(), 11);
    EXPECT_EQ(writer.written(), text_field("abc"));
    // The NUL is there, but no part of the field.
    EXPECT_EQ(writer.all(), text_field("abc") + '\0' + std::string(11, guard));
    EXPECT_EQ(writer.string(""), 2);
    EXPECT_EQ(writer.string("de"), 4);
    EXPECT_EQ(writer.written(), text_field("abc") + text_field("") + text_field("de"));
}

TEST(FillString, WritesAnEmptyFieldForNull) {
    Writer writer(2);
    EXPECT_EQ(writer.string(nullptr), 2);
    EXPECT_EQ(writer.room(), 0);
    EXPECT_EQ(writer.all(), text_field("") + guard); // and no NUL
}

TEST(FillString, FillsItsRoomToTheLastByte) {
    StdoutCapture output;
    Writer exact(10);
    EXPECT_EQ(exact.string("abcdefgh"), 10);
    EXPECT_EQ(exact.room(), 0);
    EXPECT_EQ(exact.all(), text_field("abcdefgh") + '\0'); // one byte behind the room
    EXPECT_EQ(output.so_far(), "");

    Writer short_of_one(10);
    EXPECT_EQ(short_of_one.string("abcdefghi"), 0);
    EXPECT_EQ(short_of_one.room(), 10);
    EXPECT_EQ(short_of_one.written(), "");
    EXPECT_EQ(short_of_one.all(), std::string(11, guard));
    EXPECT_EQ(output.stop(), "fill string = abcdefghi failed\n");
}

TEST(FillString, SaysWhichTextDidNotFit) {
    StdoutCapture output;
    Writer writer(1);
    EXPECT_EQ(writer.string(""), 0);
    EXPECT_EQ(writer.string(nullptr), 0);
    EXPECT_EQ(writer.string("%s%n"), 0);
    EXPECT_EQ(output.stop(), "fill string =  failed\n"
                             "fill string = (null) failed\n"
                             "fill string = %s%n failed\n");
}

TEST(FillString, TakesTheLongestTextThatALengthCanTell) {
    StdoutCapture output;
    Writer writer(200'000);
    const std::string longest(65535, 'l');
    EXPECT_EQ(writer.string(longest.c_str()), 65537);
    EXPECT_EQ(writer.written(), text_field(longest));
    const std::string longer = longest + 'l';
    EXPECT_EQ(writer.string(longer.c_str()), 0);
    EXPECT_EQ(writer.room(), 200'000 - 65537);
    EXPECT_EQ(output.stop(), "fill string = " + longer + " failed\n");
}

TEST(FillInt, WritesLengthAndValue) {
    Writer writer(18);
    EXPECT_EQ(writer.number(-2), 6);
    EXPECT_EQ(writer.number(INT_MAX), 6);
    EXPECT_EQ(writer.room(), 6);
    EXPECT_EQ(writer.number(INT_MIN), 6);
    EXPECT_EQ(writer.room(), 0);
    EXPECT_EQ(writer.all(), int_field(-2) + int_field(INT_MAX) + int_field(INT_MIN) + guard);
}

TEST(FillInt, NeedsSixBytes) {
    StdoutCapture output;
    Writer writer(5);
    EXPECT_EQ(writer.number(-17), 0);
    EXPECT_EQ(writer.room(), 5);
    EXPECT_EQ(writer.all(), std::string(6, guard));
    EXPECT_EQ(output.stop(), "fill int = -17 failed\n");
}

TEST(Writers, FindNoRoomInNegativeRoomOrWithoutACursor) {
    StdoutCapture output;
    char buffer[16] = "old";
    char *pos = buffer;
    char *nowhere = nullptr;
    int room = -1;
    int lowest = INT_MIN;
    int enough = 16;
    EXPECT_EQ(fill_string(&pos, &room, ""), 0);
    EXPECT_EQ(fill_int(&pos, &room, 1), 0);
    EXPECT_EQ(fill_string(&pos, &lowest, ""), 0);
    EXPECT_EQ(fill_string(&nowhere, &enough, ""), 0);
    EXPECT_EQ(fill_string(nullptr, &enough, ""), 0);
    EXPECT_EQ(fill_int(&pos, nullptr, 1), 0);
    EXPECT_EQ(room, -1);
    EXPECT_EQ(lowest, INT_MIN);
    EXPECT_EQ(enough, 16);
    EXPECT_EQ(pos, buffer);
    EXPECT_STREQ(buffer, "old");
    EXPECT_EQ(output.stop(), "fill string =  failed\nfill int = 1 failed\n"
                             "fill string =  failed\nfill string =  failed\n"
                             "fill string =  failed\nfill int = 1 failed\n");
}

// ---- reading: a table of a buffer and what each reader makes of it ------------

enum class Read { string, string2, number };

struct Case {
    const char *what;
    std::string bytes;
    int room;
    Read reader;
    std::string text; // of a number: its digits
    std::ptrdiff_t at;
    int room_after;
    std::string printed;
};

std::string text_failure(int length) {
    return "get string failed data len = " + std::to_string(length) + ", buf len = 0\n";
}

std::string int_failure(int length, int room) {
    return "get int failed data len = " + std::to_string(length) +
           ", buf len = " + std::to_string(room) + "\n";
}

constexpr const char *warning = "### warning: get_string data len > 1024\n";

void check(const Case &row, Read reader) {
    SCOPED_TRACE(row.what);
    StdoutCapture output;
    Reader cursor(row.bytes, row.room);
    const std::string text = reader == Read::string    ? cursor.string()
                             : reader == Read::string2 ? cursor.string2()
                                                       : std::to_string(cursor.number());
    EXPECT_EQ(text, row.text);
    EXPECT_EQ(cursor.at(), row.at);
    EXPECT_EQ(cursor.room(), row.room_after);
    EXPECT_EQ(output.stop(), row.printed);
}

const std::string long_text = std::string(1024, 'a') + std::string(476, 'b');

TEST(Readers, ReadTexts) {
    const std::string abc = text_field("abc");
    const Case rows[] = {
        {"a field", abc, 5, Read::string, "abc", 5, 0, ""},
        {"a field with more behind it", abc + "rest", 9, Read::string, "abc", 5, 4, ""},
        {"an empty field", text_field(""), 2, Read::string, "", 2, 0, ""},
        {"no room", abc, 0, Read::string, "", 0, 0, ""},
        {"room for half a length", abc, 1, Read::string, "", 0, 0, ""},
        {"negative room", abc, -1, Read::string, "", 0, 0, ""},
        {"room for the length alone", abc, 2, Read::string, "", 0, 0, text_failure(3)},
        {"room for all but the length: the field overhangs by one", abc, 4, Read::string, "abc", 5,
         -1, ""},
        {"room for all but the length: the field overhangs by two", abc, 3, Read::string, "abc", 5,
         -2, ""},
        {"the longest length", "\xff\xff", 2, Read::string, "", 0, 0, text_failure(65535)},
        {"a text with a NUL inside ends there for C", text_field(std::string("a\0b", 3)), 5,
         Read::string, "a", 5, 0, ""},
        {"1024 characters", text_field(long_text.substr(0, 1024)), 1026, Read::string,
         long_text.substr(0, 1024), 1026, 0, ""},
        {"1025 characters", text_field(long_text.substr(0, 1025)), 1027, Read::string,
         long_text.substr(0, 1024), 1027, 0, warning},
        {"1500 characters", text_field(long_text), 1502, Read::string, long_text.substr(0, 1024),
         1502, 0, warning},
    };
    for (const Case &row : rows) {
        check(row, Read::string);
        check(row, Read::string2);
    }
}

TEST(Readers, ReadNumbers) {
    const std::string minus = int_field(-5);
    const Case rows[] = {
        {"a number", minus, 6, Read::number, "-5", 6, 0, ""},
        {"the least", int_field(INT_MIN), 6, Read::number, std::to_string(INT_MIN), 6, 0, ""},
        {"a number with more behind it", minus + "rest", 10, Read::number, "-5", 6, 4, ""},
        {"a zero", int_field(0), 6, Read::number, "0", 6, 0, ""},
        {"no room", minus, 0, Read::number, "0", 0, 0, ""},
        {"room for half a length", minus, 1, Read::number, "0", 0, 0, ""},
        {"negative room", minus, -7, Read::number, "0", 0, 0, ""},
        {"room for the length alone: the value overhangs", minus, 2, Read::number, "-5", 6, -4, ""},
        {"a text of length 3", text_field("abc"), 5, Read::number, "0", 0, 0, int_failure(3, 5)},
        {"an empty text", text_field(""), 2, Read::number, "0", 0, 0, int_failure(0, 2)},
        {"the longest length", "\xff\xff", 2, Read::number, "0", 0, 0, int_failure(65535, 2)},
        {"a text of length 4 is a number", text_field(bytes_of(77)), 6, Read::number, "77", 6, 0,
         ""},
    };
    for (const Case &row : rows)
        check(row, row.reader);
}

TEST(Readers, FailSilentlyOnceOneHasFailed) {
    StdoutCapture output;
    Reader reader(text_field("abc") + int_field(5));
    EXPECT_EQ(reader.number(), 0);
    EXPECT_EQ(output.so_far(), int_failure(3, 11));
    EXPECT_EQ(reader.number(), 0);
    EXPECT_EQ(reader.string(), "");
    EXPECT_EQ(reader.string2(), "");
    EXPECT_EQ(reader.room(), 0);
    EXPECT_EQ(reader.at(), 0);
    EXPECT_EQ(output.stop(), int_failure(3, 11));
}

TEST(Readers, EmptyWhatTheyReturnedBeforeAlsoWithoutACursor) {
    StdoutCapture output;
    Reader reader(text_field("abc"));
    char *pos = nullptr;
    int room = 9;
    EXPECT_EQ(reader.string(), "abc");
    EXPECT_STREQ(get_string(&pos, &room), "");
    EXPECT_EQ(room, 0);
    room = 9;
    EXPECT_STREQ(get_string2(nullptr, &room, nullptr, 0), "");
    EXPECT_EQ(room, 0);
    EXPECT_STREQ(get_string(&pos, nullptr), "");
    EXPECT_EQ(get_int(nullptr, nullptr), 0);
    EXPECT_EQ(output.stop(), "");
}

TEST(Readers, KeepTheTextsOfBothApart) {
    std::string bytes = text_field("first") + text_field("second") + text_field("third");
    char *pos = bytes.data();
    int room = static_cast<int>(bytes.size());
    const char *first = get_string(&pos, &room);
    const char *second = get_string2(&pos, &room, nullptr, 0);
    EXPECT_STREQ(first, "first");
    EXPECT_STREQ(second, "second");
    EXPECT_EQ(get_string(&pos, &room), first);
    EXPECT_STREQ(first, "third");
    EXPECT_STREQ(second, "second");
}

// ---- into a destination ----------------------------------------------------

TEST(GetString2, CutsToItsDestination) {
    struct {
        int size;
        const char *text;
        bool warned;
    } const rows[] = {
        {1, "", true},        {2, "a", true},      {4, "abc", true},
        {5, "abcd", true},    {6, "abcde", false}, // cut for the NUL, and nothing said
        {7, "abcdef", false}, {8, "abcdef", false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.size);
        StdoutCapture output;
        Reader reader(text_field("abcdef"));
        std::vector<char> dst(static_cast<std::size_t>(row.size), guard);
        EXPECT_EQ(reader.string2(dst.data(), row.size), dst.data());
        EXPECT_STREQ(dst.data(), row.text);
        EXPECT_EQ(reader.at(), 8);
        EXPECT_EQ(reader.room(), 0);
        EXPECT_EQ(output.stop(), row.warned ? warning : "");
    }
}

TEST(GetString2, TakesALongTextWhole) {
    StdoutCapture output;
    Reader reader(text_field(long_text));
    std::vector<char> dst(1501);
    EXPECT_EQ(reader.string2(dst.data(), 1501), long_text);
    EXPECT_EQ(output.stop(), "");
}

TEST(GetString2, UsesItsOwnBufferWithoutASize) {
    for (const int size : {0, -1, INT_MIN}) {
        Reader reader(text_field("abc"));
        char dst[8] = "old";
        const char *text = reader.string2(dst, size);
        EXPECT_NE(text, dst);
        EXPECT_STREQ(text, "abc");
        EXPECT_STREQ(dst, "old");
    }
    Reader reader(text_field("abc"));
    EXPECT_STREQ(reader.string2(nullptr, 8), "abc");
}

TEST(GetString2, LeavesItsDestinationAloneWhenThereIsNoField) {
    StdoutCapture output;
    char dst[8] = "old";
    Reader empty("");
    const char *text = empty.string2(dst, sizeof dst);
    EXPECT_NE(text, dst);
    EXPECT_STREQ(text, "");
    Reader cut(text_field("abc"), 2);
    EXPECT_STREQ(cut.string2(dst, sizeof dst), "");
    EXPECT_STREQ(dst, "old");
    EXPECT_EQ(output.stop(), text_failure(3));
}

// ---- properties ------------------------------------------------------------

std::mt19937 generator(4711); // NOLINT: the same fields in every run

int random_below(int bound) {
    return std::uniform_int_distribution<int>(0, bound - 1)(generator);
}

std::string random_text() {
    std::string text(static_cast<std::size_t>(random_below(40)), '\0');
    for (char &c : text)
        c = static_cast<char>(1 + random_below(255));
    return text;
}

TEST(Fields, ComeBackAsTheyWereWritten) {
    StdoutCapture output;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        Writer writer(random_below(400));
        std::vector<std::string> texts;
        std::vector<int> numbers;
        std::string kinds;
        std::string expected;
        for (;;) {
            const bool number = random_below(2) == 0;
            numbers.push_back(static_cast<int>(generator()));
            texts.push_back(random_text());
            const std::string field = number ? int_field(numbers.back()) : text_field(texts.back());
            const int room = writer.room();
            const int used =
                number ? writer.number(numbers.back()) : writer.string(texts.back().c_str());
            const bool fits = static_cast<int>(field.size()) <= room;
            ASSERT_EQ(used, fits ? static_cast<int>(field.size()) : 0);
            ASSERT_EQ(writer.room(), room - used);
            if (!fits)
                break;
            expected += field;
            kinds += number ? 'n' : 't';
        }
        ASSERT_EQ(writer.written(), expected);
        Reader reader(writer.written());
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            if (kinds[i] == 'n')
                ASSERT_EQ(reader.number(), numbers[i]);
            else
                ASSERT_EQ(reader.string(), texts[i]);
        }
        EXPECT_EQ(reader.room(), 0);
    }
}

// Reads on with every kind of reader in turn, and compares each step with the model.
void compare_with_model(const std::string &bytes, int room, int first_reader) {
    // One block of its own, so that the sanitizer knows its end.
    std::vector<char> block(bytes.begin(), bytes.end());
    char *pos = block.data();
    FieldModel model(bytes, room);
    StdoutCapture output;
    for (int step = first_reader; step < first_reader + 6; ++step) {
        char dst[12];
        switch (step % 4) {
        case 0:
            ASSERT_STREQ(get_string(&pos, &room), model.get_string().c_str());
            break;
        case 1:
            ASSERT_EQ(get_int(&pos, &room), model.get_int());
            break;
        case 2: {
            const std::string expected = model.get_string2(sizeof dst);
            const char *text = get_string2(&pos, &room, dst, sizeof dst);
            ASSERT_EQ(text == dst, !model.failed());
            ASSERT_STREQ(text, expected.c_str());
            break;
        }
        default:
            ASSERT_STREQ(get_string2(&pos, &room, nullptr, 0), model.get_string().c_str());
        }
        ASSERT_EQ(room, model.room());
        ASSERT_EQ(pos - block.data(), static_cast<std::ptrdiff_t>(model.at()));
    }
    EXPECT_EQ(output.stop(), model.printed());
}

TEST(Fields, EveryPrefixIsReadAsFarAsItGoes) {
    const std::string whole = text_field("abcdefghijk") + int_field(-1) + text_field("") +
                              text_field("abcdefghijklm") + int_field(4);
    for (int room = -1; room <= static_cast<int>(whole.size()); ++room) {
        SCOPED_TRACE(room);
        const std::size_t size = static_cast<std::size_t>(std::max(room, 0)) + FieldModel::spare;
        std::string bytes = whole + std::string(FieldModel::spare, guard);
        bytes.resize(size);
        for (int reader = 0; reader < 4; ++reader)
            compare_with_model(bytes, room, reader);
    }
}

TEST(Fields, RandomBytesAreReadAsFarAsTheyMakeFields) {
    for (int round = 0; round < 2000; ++round) {
        SCOPED_TRACE(round);
        const int room = random_below(64);
        std::string bytes(static_cast<std::size_t>(room) + FieldModel::spare, '\0');
        // Mostly small numbers, so that lengths are often within the room.
        for (char &byte : bytes)
            byte = static_cast<char>(random_below(3) != 0 ? 0 : random_below(9));
        for (std::size_t i = 0; i < bytes.size(); i += 7)
            bytes[i] = static_cast<char>(1 + random_below(9));
        compare_with_model(bytes, room, round);
    }
}

} // namespace
} // namespace zan::test
