// SPDX-License-Identifier: MIT
#include "msg/link_test.h"
#include "support/capture.h"
#include "support/patience.h"
#include "support/worker.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ostream>
#include <string>

namespace zan::test {
namespace {

using testing::AllOf;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

constexpr char untouched = '#';
// Held by the buffer that the first record is received into, behind a header.
constexpr std::size_t first_room = 1024;
constexpr std::int32_t longest_len = 2 * 1024 * 1024 - 100 - 1;

std::string text_of(std::size_t size) {
    std::string text;
    for (int part = 0; text.size() < size; ++part)
        text += std::to_string(part) + ",";
    text.resize(size);
    return text;
}

class Reassembly : public LinkTest {
protected:
    static int read() { return zan_api_recv_data(g_ipc_handle); }

    // Leaves the length of a complete record behind, as a caller does that looks at
    // records only: the next header may then come in pieces.
    void leave_length(std::int32_t len) {
        arrives(
            {.type = class_control, .payload = std::string(static_cast<std::size_t>(len), 'x')});
        ASSERT_EQ(read(), 0);
        ASSERT_EQ(read(), 1);
    }
};

// ---- whole records -----------------------------------------------------------

TEST_F(Reassembly, AHeaderIsReadByItselfAndThenItsPayload) {
    arrives({.type = message, .cmd = 4, .payload = "hello"});
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(bytes_waiting(g_ipc_handle), 5U);
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(bytes_waiting(g_ipc_handle), 0U);
}

TEST_F(Reassembly, AHeaderWithoutPayloadIsCompleteAtOnce) {
    arrives({.type = message, .cmd = 4});
    EXPECT_EQ(read(), 1);
}

TEST_F(Reassembly, SevenWordsAreConvertedAndTimeAndSpareAreNot) {
    const Fields fields = {.type = message,
                           .cmd = 0x01020304,
                           .dst = "probe",
                           .src = "sender",
                           .pid = 0x05060708,
                           .time = 0x090a0b0c,
                           .spare = 0x0d0e0f10,
                           .result = 0x11121314,
                           .aux = 0x15161718,
                           .arg = 0x191a1b1c,
                           .payload = "hello"};
    arrives(fields);
    EXPECT_EQ(receive_record(), 1);
    ASSERT_EQ(delivered().size(), 1U);
    EXPECT_TRUE(was_delivered(0, fields));
}

TEST_F(Reassembly, RecordsOfOneWriteAreReceivedOneByOne) {
    const Fields first = {.type = message, .cmd = 4, .payload = "first"};
    const Fields second = {.type = class_broadcast, .cmd = cmd_send_all};
    const Fields third = {.type = message, .cmd = 1, .payload = text_of(3000)};
    bytes_arrive(from_daemon(first) + from_daemon(second) + from_daemon(third));
    EXPECT_EQ(receive_record(), 1);
    EXPECT_EQ(delivered().size(), 1U);
    EXPECT_EQ(receive_record(), 1);
    EXPECT_EQ(delivered().size(), 2U);
    EXPECT_EQ(receive_record(), 1);
    EXPECT_TRUE(was_delivered(0, first));
    EXPECT_TRUE(was_delivered(1, second));
    EXPECT_TRUE(was_delivered(2, third));
}

TEST_F(Reassembly, APayloadMayComeByteByByte) {
    const Fields fields = {.type = message, .cmd = 4, .payload = "hello"};
    const std::string bytes = from_daemon(fields);
    bytes_arrive(bytes.substr(0, 100));
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 0);
    for (std::size_t at = 100; at < bytes.size(); ++at) {
        EXPECT_THAT(delivered(), IsEmpty());
        bytes_arrive(bytes.substr(at, 1));
        EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), at + 1 == bytes.size() ? 1 : 0);
    }
    EXPECT_TRUE(was_delivered(0, fields));
}

// ---- headers in pieces ---------------------------------------------------------

TEST_F(Reassembly, APieceOfAHeaderIsTakenForARecordWhenNoLengthIsKnown) {
    const std::string bytes = from_daemon({.type = message, .cmd = 4});
    bytes_arrive(bytes.substr(0, 60));
    EXPECT_EQ(read(), 1);
    bytes_arrive(bytes.substr(60));
    EXPECT_EQ(read(), 1);
}

TEST_F(Reassembly, SuchAPieceIsDispatchedAsItCame) {
    bytes_arrive(from_daemon({.type = message, .cmd = 4}).substr(0, 99));
    StdoutCapture out;
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), 1);
    EXPECT_EQ(out.stop(), "receive unknown module message[67108864]\n"); // 4, bytes reversed
    EXPECT_THAT(delivered(), IsEmpty());
}

TEST_F(Reassembly, AHeaderInPiecesWaitsForItsRestWhenALengthIsKnown) {
    leave_length(5);
    const std::string bytes = from_daemon({.type = message, .cmd = 4});
    bytes_arrive(bytes.substr(0, 99));
    EXPECT_EQ(read(), 0);
    bytes_arrive(bytes.substr(99));
    EXPECT_EQ(read(), 1);
}

TEST_F(Reassembly, AHeaderInPiecesStaysAsItCame) {
    leave_length(5);
    const Fields fields = {
        .type = message, .cmd = 4, .src = "sender", .pid = 77, .payload = "hello"};
    const std::string bytes = stream_bytes(fields, ByteOrder::host);
    bytes_arrive(bytes.substr(0, 60));
    EXPECT_EQ(read(), 0);
    bytes_arrive(bytes.substr(60));
    EXPECT_EQ(receive_record(), 1);
    EXPECT_TRUE(was_delivered(0, fields));
}

TEST_F(Reassembly, TheLengthOfAHeaderInPiecesIsWhatItsBytesSay) {
    leave_length(5);
    const std::string bytes = from_daemon({.type = message, .cmd = 4, .payload = "hello"});
    bytes_arrive(bytes.substr(0, 60));
    EXPECT_EQ(read(), 0);
    bytes_arrive(bytes.substr(60));
    EXPECT_EQ(read(), -1); // 5 reversed is more than 2 MiB
}

TEST_F(Reassembly, OneByteAtATimeIsAHeaderToo) {
    leave_length(1);
    const Fields fields = {.type = message, .cmd = 4, .payload = "x"};
    for (const char byte : stream_bytes(fields, ByteOrder::host)) {
        EXPECT_THAT(delivered(), IsEmpty());
        bytes_arrive(std::string(1, byte));
        // Only the last one completes a record: what is left of a length counts.
        zan_client_recv(g_ipc_handle, nullptr, 0);
    }
    EXPECT_TRUE(was_delivered(0, fields));
}

// ---- hostile lengths -------------------------------------------------------------

TEST_F(Reassembly, TheLongestRecordIsReceivedWhole) {
    const Fields header = {.type = message, .cmd = 4, .len = longest_len};
    const std::string payload = text_of(static_cast<std::size_t>(longest_len));
    Worker daemon([&] { peer.send(from_daemon(header) + payload); });
    while (zan_client_recv(g_ipc_handle, nullptr, 0) == 0)
        ;
    ASSERT_EQ(delivered().size(), 1U);
    EXPECT_TRUE(same_bytes(delivered()[0].substr(0, 100), stream_bytes(header, ByteOrder::host)));
    EXPECT_TRUE(delivered()[0].substr(100) == payload);
}

TEST_F(Reassembly, ARecordOfTwoMebibytesIsRefused) {
    arrives({.type = message, .cmd = 4, .len = longest_len + 1});
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), -1);
    EXPECT_THAT(delivered(), IsEmpty());
}

// What follows fills the buffer behind the header and is never taken for a record,
// nor written behind the buffer.
TEST_F(Reassembly, ThePositionStaysBehindARefusedHeader) {
    arrives({.type = message, .cmd = 4, .len = longest_len + 1});
    EXPECT_EQ(read(), -1);
    const std::string more = text_of(5000);
    bytes_arrive(more);
    for (int again = 0; again < 5; ++again) {
        errno = 0;
        EXPECT_EQ(read(), -1);
    }
    EXPECT_EQ(bytes_waiting(g_ipc_handle), more.size() - first_room);
}

TEST_F(Reassembly, ThePositionStaysInALargerBufferToo) {
    arrives({.type = message, .cmd = 4, .payload = text_of(3000)});
    EXPECT_EQ(receive_record(), 1);
    arrives({.type = message, .cmd = 4, .len = INT_MAX});
    EXPECT_EQ(read(), -1);
    const std::string more = text_of(5000);
    bytes_arrive(more);
    for (int again = 0; again < 5; ++again) {
        errno = 0;
        EXPECT_EQ(read(), -1);
    }
    EXPECT_EQ(bytes_waiting(g_ipc_handle), more.size() - 3000);
}

struct HostileLength {
    std::int32_t len;
    int result; // of the read that completes the header
};

void PrintTo(const HostileLength &hostile, std::ostream *out) {
    *out << hostile.len;
}

class HostileLengths : public Reassembly, public testing::WithParamInterface<HostileLength> {
protected:
    // Reads on, whatever comes: nothing may be read or written outside a buffer.
    void read_on() {
        bytes_arrive(text_of(20000));
        for (int again = 0; again < 40; ++again) {
            errno = 0;
            EXPECT_THAT(zan_client_recv(g_ipc_handle, nullptr, 0), AllOf(Ge(-1), Le(1)));
        }
    }
};

TEST_P(HostileLengths, InAWholeHeader) {
    arrives({.type = message, .cmd = 4, .len = GetParam().len});
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), GetParam().result);
    EXPECT_EQ(delivered().size(), GetParam().result == 1 ? 1U : 0U);
    StdoutCapture out; // about classes that were never sent
    read_on();
}

TEST_P(HostileLengths, InAHeaderInPieces) {
    leave_length(5);
    const std::string bytes =
        stream_bytes({.type = message, .cmd = 4, .len = GetParam().len}, ByteOrder::host);
    bytes_arrive(bytes.substr(0, 97));
    EXPECT_EQ(read(), 0);
    bytes_arrive(bytes.substr(97));
    EXPECT_EQ(zan_client_recv(g_ipc_handle, nullptr, 0), GetParam().result);
    EXPECT_EQ(delivered().size(), GetParam().result == 1 ? 1U : 0U);
    StdoutCapture out;
    read_on();
}

TEST_P(HostileLengths, DuringAnAnswerWait) {
    arrives({.type = message, .cmd = 4, .len = GetParam().len});
    arrives({.type = message, .cmd = 2});
    // Longer than what arrives: the end of the link ends the wait.
    if (GetParam().result == 0)
        peer.hang_up();
    EXPECT_EQ(zan_client_recv_response(message, 2, nullptr, nullptr),
              GetParam().result == 1 ? 1 : -1);
}

// A negative length has no payload; a refused one ends the wait.
INSTANTIATE_TEST_SUITE_P(
    Edges, HostileLengths,
    testing::Values(HostileLength{-1, 1}, HostileLength{-99, 1}, HostileLength{-100, 1},
                    HostileLength{-101, 1}, HostileLength{-1124, 1}, HostileLength{INT_MIN, 1},
                    HostileLength{INT_MIN + 100, 1}, HostileLength{1023, 0}, HostileLength{1024, 0},
                    HostileLength{1025, 0}, HostileLength{35000, 0}, HostileLength{35001, 0},
                    HostileLength{longest_len, 0}, HostileLength{longest_len + 1, -1},
                    HostileLength{INT_MAX - 100, -1}, HostileLength{INT_MAX - 99, -1},
                    HostileLength{INT_MAX, -1}));

// ---- nothing to read ---------------------------------------------------------------

TEST_F(Reassembly, NothingToReadIsNoErrorAndClearsErrno) {
    errno = ENOENT;
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(errno, 0);
}

TEST_F(Reassembly, AnInterruptedReadIsNoErrorAndClearsErrno) {
    fcntl(g_ipc_handle, F_SETFL, 0); // a read that waits
    int result = -7;
    int error = -7;
    Worker reader([&] {
        errno = ENOENT;
        result = read();
        error = errno;
    });
    ASSERT_TRUE(reader.wait_until_blocked());
    reader.interrupt();
    ASSERT_TRUE(reader.wait_until_done());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(error, 0);
}

TEST_F(Reassembly, APeerThatHangsUpIsAnError) {
    peer.hang_up();
    int result = 0;
    // Until the hang-up has arrived there is nothing to read.
    EXPECT_TRUE(eventually([&] { return (result = read()) != 0; }));
    EXPECT_EQ(result, -1);
}

TEST_F(Reassembly, AnErrnoLeftBehindHidesAHangUpOnce) {
    peer.hang_up();
    ASSERT_TRUE(eventually([&] { return read() == -1; }));
    for (const int left : {EAGAIN, EINTR}) {
        errno = left;
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(read(), -1);
    }
}

TEST_F(Reassembly, NoSocketIsAnError) {
    EXPECT_EQ(zan_api_recv_data(-1), -1);
    EXPECT_EQ(zan_client_recv(-1, nullptr, 0), -1);
}

// ---- the copy for the caller ---------------------------------------------------------

class Copy : public LinkTest {
protected:
    Copy() { std::memset(buf, untouched, sizeof buf); }

    // The header comes first; as many bytes as the payload has, or as fit.
    void expect_copied(std::size_t size) {
        const std::string whole = stream_bytes(fields, ByteOrder::host);
        EXPECT_EQ(std::string(buf, size), whole.substr(0, size));
        EXPECT_EQ(std::string(buf + size, sizeof buf - size),
                  std::string(sizeof buf - size, untouched));
    }

    Fields fields = {
        .type = message, .cmd = 4, .src = "sender", .pid = 77, .payload = text_of(200)};
    char buf[512];
};

TEST_F(Copy, BeginsWithTheHeaderAndIsAsLongAsThePayload) {
    arrives(fields);
    EXPECT_EQ(receive_record(buf, sizeof buf), 200);
    expect_copied(200);
    EXPECT_TRUE(was_delivered(0, fields));
}

TEST_F(Copy, IsCutToTheBuffer) {
    arrives(fields);
    EXPECT_EQ(receive_record(buf, 150), 150);
    expect_copied(150);
    EXPECT_TRUE(was_delivered(0, fields));
}

TEST_F(Copy, OfAShortPayloadIsABitOfTheHeader) {
    fields.payload = "12345678";
    arrives(fields);
    EXPECT_EQ(receive_record(buf, sizeof buf), 8);
    expect_copied(8);
}

TEST_F(Copy, OfARecordWithoutPayloadIsEmpty) {
    fields.payload.clear();
    arrives(fields);
    EXPECT_EQ(zan_client_recv(g_ipc_handle, buf, sizeof buf), 0);
    expect_copied(0);
    EXPECT_TRUE(was_delivered(0, fields));
}

TEST_F(Copy, OfANegativeLengthIsEmpty) {
    fields.payload.clear();
    fields.len = -5;
    arrives(fields);
    EXPECT_EQ(zan_client_recv(g_ipc_handle, buf, sizeof buf), 0);
    expect_copied(0);
}

TEST_F(Copy, NeedsABufferAndASize) {
    for (const int size : {0, -1, INT_MIN}) {
        arrives(fields);
        EXPECT_EQ(receive_record(buf, size), 1);
        expect_copied(0);
    }
    arrives(fields);
    EXPECT_EQ(receive_record(nullptr, sizeof buf), 1);
    EXPECT_EQ(delivered().size(), 4U);
}

TEST_F(Copy, IsMadeForEveryClass) {
    fields.type = 6;
    arrives(fields);
    StdoutCapture out;
    EXPECT_EQ(receive_record(buf, sizeof buf), 200);
    EXPECT_EQ(out.stop(), "receive unknown module message[6]\n");
    expect_copied(200);
}

} // namespace
} // namespace zan::test
