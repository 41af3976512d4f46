// SPDX-License-Identifier: MIT
//
// Receiving into a caller's storage that is smaller than a whole record: whatever the
// sender wrote, nothing after `max` bytes of the body is read or written.
#include "support/commands.h"
#include "support/raw.h"
#include "support/sandbox.h"

#include <zan.h>

#include <gmock/gmock.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {
namespace {

using testing::ElementsAre;

constexpr unsigned char untouched = 0xa5;

std::size_t page_size() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// A zan_msg of which only the queue type and `max` bytes of the body exist: the page
// that follows cannot be accessed, and the bytes that alignment leaves before it are
// checked.
class ShortStorage {
public:
    explicit ShortStorage(int max) : size_(sizeof(long) + static_cast<std::size_t>(max)) {
        const std::size_t rounded =
            (size_ + alignof(zan_msg) - 1) / alignof(zan_msg) * alignof(zan_msg);
        const std::size_t pages = (rounded + page_size() - 1) / page_size() * page_size();
        mapped_ = pages + page_size();
        void *const memory =
            mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(memory, MAP_FAILED);
        mapping_ = static_cast<unsigned char *>(memory);
        EXPECT_EQ(mprotect(mapping_ + pages, page_size(), PROT_NONE), 0);
        std::memset(mapping_, untouched, pages);
        start_ = mapping_ + pages - rounded;
        end_ = mapping_ + pages;
    }
    ~ShortStorage() { munmap(mapping_, mapped_); }
    ShortStorage(const ShortStorage &) = delete;
    ShortStorage &operator=(const ShortStorage &) = delete;

    zan_msg *msg() { return reinterpret_cast<zan_msg *>(start_); }
    const unsigned char *body() const { return start_ + sizeof(long); }

    bool rest_is_untouched() const {
        return std::all_of(start_ + size_, end_,
                           [](unsigned char byte) { return byte == untouched; });
    }

private:
    std::size_t size_;
    std::size_t mapped_;
    unsigned char *mapping_;
    unsigned char *start_;
    unsigned char *end_;
};

std::vector<std::string> calls;

// Reads everything that its arguments allow.
int on_message(char *data, int len, zan_body *body) {
    calls.push_back(std::string(body->src, strnlen(body->src, sizeof body->src)) + ":" +
                    std::string(data, static_cast<std::size_t>(len)));
    return 0;
}

int on_event(int event, int type) {
    calls.push_back("event " + std::to_string(event) + " " + std::to_string(type));
    return 0;
}

int on_value(char *f1, char *f2, char *f3, char *f6, int f4) {
    calls.push_back(std::string("value ") + f1 + "," + f2 + "," + f3 + "," + f6 + "," +
                    std::to_string(f4));
    return 0;
}

// Is told no length: reads the structure that actions travel in.
int on_action(char *data, int) {
    zan_action_data action;
    std::memcpy(&action, data, sizeof action);
    calls.push_back("action " + std::string(action.name, strnlen(action.name, sizeof action.name)));
    return 0;
}

struct Receiver {
    const char *name;
    int (*receive)(zan_msg *msg, int msgtyp, int max);
};
void PrintTo(const Receiver &receiver, std::ostream *out) {
    *out << receiver.name;
}

class ShortReceive : public testing::TestWithParam<Receiver> {
protected:
    ShortReceive() {
        g_msq_qid = queue.id();
        calls.clear();
        zan_set_message_handler(on_message);
        zan_set_event_handler(on_event);
        zan_set_value_changed_handler(on_value);
        zan_set_taskmgr_msg_handler(on_action);
    }
    ~ShortReceive() override {
        g_msq_qid = -1;
        zan_set_message_handler(nullptr);
        zan_set_event_handler(nullptr);
        zan_set_value_changed_handler(nullptr);
        zan_set_taskmgr_msg_handler(nullptr);
    }

    // The handler's call for a record received with this `max`.
    std::string dispatched(Fields fields, int max) {
        fields.mtype = fields.type;
        EXPECT_TRUE(raw_send(queue.id(), fields));
        ShortStorage storage(max);
        calls.clear();
        EXPECT_EQ(GetParam().receive(storage.msg(), 0, max), 1);
        EXPECT_TRUE(storage.rest_is_untouched());
        const SizedRecord record = make_record(fields);
        EXPECT_EQ(std::memcmp(storage.body(), record.record.bytes, record.msgsz), 0);
        EXPECT_EQ(calls.size(), 1U);
        return calls.empty() ? "" : calls.front();
    }

    RawQueue queue;
};
INSTANTIATE_TEST_SUITE_P(, ShortReceive,
                         testing::Values(Receiver{"no_wait", zan_client_recv_msq_no_wait},
                                         Receiver{"waiting", zan_client_recv_msq2}),
                         [](const auto &receiver) { return receiver.param.name; });

constexpr int32_t hostile_lengths[] = {
    INT32_MIN, -1,   0,     1,     3,     4,     5,          1023,
    1024,      1025, 34999, 35000, 35001, 65536, 0x01000000, INT32_MAX - 100,
    INT32_MAX};

TEST_P(ShortReceive, KeepsAMessageWithinTheStorage) {
    for (const int max : {104, 105, 107, 200, 1123, 1124, 1125, 4096, 35099, 35100}) {
        const int room = max - 100;
        for (const int32_t len : hostile_lengths) {
            SCOPED_TRACE("max " + std::to_string(max) + " len " + std::to_string(len));
            std::string seen = "text";
            seen.resize(static_cast<std::size_t>(std::clamp(len, 0, room)), '\0');
            EXPECT_EQ(dispatched({.type = class_message,
                                  .cmd = cmd_send,
                                  .src = "peer",
                                  .payload = "text",
                                  .len = len},
                                 max),
                      "peer:" + seen);
        }
    }
}

TEST_P(ShortReceive, TakesAPayloadThatFillsTheStorage) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{4}, std::size_t{1024}}) {
        const std::string payload(size, 'p');
        for (const int32_t len : {static_cast<int32_t>(size), 35000, INT32_MAX}) {
            SCOPED_TRACE("size " + std::to_string(size) + " len " + std::to_string(len));
            EXPECT_EQ(dispatched({.type = class_message,
                                  .cmd = cmd_send,
                                  .src = "peer",
                                  .payload = payload,
                                  .len = len},
                                 static_cast<int>(raw_header_size + size)),
                      "peer:" + payload);
        }
    }
}

TEST_P(ShortReceive, TakesAHeaderAlone) {
    for (const int32_t len : hostile_lengths) {
        SCOPED_TRACE(len);
        EXPECT_EQ(
            dispatched({.type = class_message, .cmd = cmd_send, .src = "peer", .len = len}, 100),
            "peer:");
        EXPECT_EQ(dispatched({.type = class_notify, .cmd = cmd_event, .len = len}, 100),
                  "event 0 5");
        EXPECT_EQ(dispatched({.type = class_notify, .cmd = cmd_value_changed, .len = len}, 100),
                  "value ,,,,1");
        EXPECT_EQ(dispatched({.type = class_action, .cmd = 2, .len = len}, 100), "action ");
    }
}

TEST_P(ShortReceive, ReadsNotificationsWithinTheStorage) {
    for (const int32_t len : hostile_lengths) {
        SCOPED_TRACE(len);
        const auto event = [&](const std::string &code, int max) {
            return dispatched({.type = class_notify, .cmd = cmd_event, .payload = code, .len = len},
                              max);
        };
        EXPECT_EQ(event("\x07", 101), "event 7 5");
        EXPECT_EQ(event("\x07\x01", 103), "event 263 5");
        EXPECT_EQ(event("\x01\x01\x01\x01", 104), "event 16843009 5");
        EXPECT_EQ(dispatched({.type = class_notify,
                              .cmd = cmd_value_changed,
                              .payload = "a b c 1 2 d",
                              .len = len},
                             111),
                  "value a,b,c,d,1");
    }
}

TEST_P(ShortReceive, HandsTheTaskManagerAWholeRecord) {
    for (const int32_t len : hostile_lengths) {
        SCOPED_TRACE(len);
        for (const int max : {112, 120, 1124, 35099, 35100})
            EXPECT_EQ(
                dispatched(
                    {.type = class_action, .cmd = 2, .payload = std::string(12, '\0'), .len = len},
                    max),
                "action ");
        EXPECT_EQ(dispatched({.type = class_action,
                              .cmd = 2,
                              .payload = std::string(12, '\0') + "name",
                              .len = len},
                             116),
                  "action name");
    }
}

TEST_P(ShortReceive, ReadsZerosWhereTheStorageEndsInsideTheHeader) {
    for (const int max : {8, 12, 39, 40, 44, 72, 96, 99}) {
        SCOPED_TRACE(max);
        const Fields fields{.type = class_message,
                            .cmd = cmd_send,
                            .dst = "to",
                            .src = "peer",
                            .len = 7,
                            .msgsz = static_cast<std::size_t>(max)};
        const std::string source = max < 44 ? ":" : "peer:";
        // Three of four bytes of `len` are enough for a small one.
        EXPECT_EQ(dispatched(fields, max), source + std::string(max < 99 ? 0 : 7, '\0'));
    }
}

TEST_P(ShortReceive, TakesAnEmptyRecord) {
    raw_send(queue.id(), {.mtype = 1, .msgsz = 0});
    // The emulator of the target demands a byte of text that it does not write to.
    ShortStorage storage(1);
    EXPECT_EQ(GetParam().receive(storage.msg(), 0, 0), 0);
    EXPECT_EQ(storage.body()[0], untouched);
    EXPECT_TRUE(storage.rest_is_untouched());
    EXPECT_EQ(storage.msg()->mtype, 1);
    EXPECT_THAT(calls, ElementsAre());
}

} // namespace
} // namespace zan::test
