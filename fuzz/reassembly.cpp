// SPDX-License-Identifier: MIT
//
// The reassembly of records on the daemon link, fed with arbitrary bytes in
// arbitrary pieces.  The file is compiled in: its state must start afresh with
// every input, and is checked after every call.
//
// An input is a row of calls and of pieces of the stream that the calls read:
//
//   call    one byte: its kind in the low bits, the rest are its arguments
//   piece   one byte N: 0 nothing to read, 1 interrupted, 2 the peer hangs up,
//           3 a run: three bytes of length (little-endian) and the byte to repeat,
//           otherwise N - 3 bytes that follow
//
// A call takes pieces as it reads; what a read leaves of a piece is for the next.
#include "fuzz/target.h"

// NOLINTNEXTLINE(bugprone-suspicious-include)
#include "msg/stream.cpp"
#include "util/text.h"

#include <sys/eventfd.h>

namespace {

using zan::fuzz::require;

class Input {
public:
    Input() = default;
    Input(const std::uint8_t *data, std::size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    std::uint8_t byte() { return empty() ? std::uint8_t{0} : *at_++; }

    // Reads into the buffer as recv() does.
    int receive(char *buffer, std::size_t size) {
        if (left_ == 0 && !begin_piece())
            return errno == 0 ? 0 : -1;
        const std::size_t received = std::min(size, left_);
        if (run_)
            std::memset(buffer, repeated_, received);
        else
            std::memcpy(buffer, piece_, received);
        piece_ += run_ ? 0 : received;
        left_ -= received;
        return static_cast<int>(received);
    }

private:
    // False when there is nothing to receive, and errno says why: 0 for a hang-up.
    bool begin_piece() {
        errno = ECONNRESET;
        if (empty())
            return false;
        const std::uint8_t kind = byte();
        if (kind <= 2) {
            constexpr int errors[] = {EAGAIN, EINTR, 0};
            errno = errors[kind];
            return false;
        }
        run_ = kind == 3;
        if (run_) {
            left_ = byte();
            left_ |= static_cast<std::size_t>(byte()) << 8;
            left_ |= static_cast<std::size_t>(byte()) << 16;
            left_ = std::min(left_, run_budget_);
            run_budget_ -= left_;
            repeated_ = byte();
        } else {
            left_ = std::min<std::size_t>(kind - 3U, static_cast<std::size_t>(end_ - at_));
            piece_ = at_;
            at_ += left_;
        }
        return left_ > 0;
    }

    const std::uint8_t *at_ = nullptr;
    const std::uint8_t *end_ = nullptr;
    const std::uint8_t *piece_ = nullptr;
    std::size_t left_ = 0; // of the piece
    // Enough for a buffer that grows, twice; more would only be slow.
    std::size_t run_budget_ = 8192;
    bool run_ = false;
    std::uint8_t repeated_ = 0;
};

Input input;
// Reads a block as a whole: the sanitizer knows its bounds.
void see(const void *block, std::size_t size) {
    static unsigned char copy[refused_total];
    require(size <= sizeof copy, "a block is shorter than 2 MiB");
    std::memcpy(copy, block, size);
    asm volatile("" : : "r"(copy) : "memory");
}

// Handlers read everything that they are handed.
int see_message(char *data, int len, zan_body *body) {
    see(body, ZAN_HEADER_SIZE);
    see(data, static_cast<std::size_t>(len) + 1);
    require(data[len] == '\0', "a message ends with a NUL");
    return 0;
}

int see_change(char *f1, char *f2, char *f3, char *f6, int) {
    for (const char *text : {f1, f2, f3, f6})
        see(text, std::strlen(text));
    return 0;
}

int see_task(char *data, int) {
    see(data, std::strlen(data));
    return 0;
}

void start_afresh() {
    std::free(g_recv_buffer);
    g_recv_buffer = nullptr;
    g_recv_buffer_size = 0;
    g_recv_pos = 0;
    g_data_len = 0;
}

void require_sound_state() {
    require(g_recv_pos >= 0 && g_recv_pos <= g_recv_buffer_size, "the position is in the buffer");
    require(g_recv_buffer_size < refused_total, "the buffer stays below 2 MiB");
    require(g_recv_buffer != nullptr || g_recv_buffer_size == 0, "a size means a buffer");
}

void read_record() {
    const int result = zan_api_recv_data(g_ipc_handle);
    require(result >= -1 && result <= 1, "a read gives -1, 0 or 1");
    if (result != 1)
        return;
    require(g_recv_pos == 0, "a complete record leaves the position at the start");
    see(g_recv_buffer, static_cast<std::size_t>(ZAN_HEADER_SIZE + payload_held()) + 1);
}

void poll_link(int argument) {
    // On the heap, where the sanitizer knows its end.
    const int size = argument * 16;
    const HeapText buffer(static_cast<char *>(std::malloc(static_cast<std::size_t>(size) + 1)));
    const int result = zan_client_recv(g_ipc_handle, argument == 31 ? nullptr : buffer.get(), size);
    require(result >= -1 && result <= std::max(size, 1), "a poll gives at most the size");
}

void await_answer(int argument) {
    constexpr struct {
        int type;
        int cmd;
    } awaited[] = {{1, 1}, {1, 2}, {1, 5}, {3, 0}, {3, 1}, {4, 2}, {9, 2}, {0, 0}};
    const auto [type, cmd] = awaited[argument % 8];
    // Kept: clearing 35 KB for every wait would cost more than the wait.
    static char *const err = static_cast<char *>(std::malloc(default_bound));
    static auto *const resp = static_cast<zan_resp *>(std::malloc(sizeof(zan_resp)));
    err[0] = '\0';
    resp->ptr = nullptr;
    const int result = zan_client_recv_response(type, cmd, (argument & 8) != 0 ? err : nullptr,
                                                (argument & 16) != 0 ? resp : nullptr);
    require(result <= 1 && result != 0, "a wait gives 1 or less than 0");
    if (resp->ptr != nullptr) {
        require(result == 1 && type == 1 && cmd == 1, "only a value comes by reference");
        see(resp->ptr, static_cast<std::size_t>(resp->len) + 1);
        require(resp->ptr[resp->len] == '\0', "a value ends with a NUL");
    }
    see(err, std::strlen(err));
}

void set_up() {
    g_ipc_handle = eventfd(1, EFD_CLOEXEC); // always ready to read
    zan_set_message_handler(see_message);
    zan_set_value_changed_handler(see_change);
    zan_set_taskmgr_msg_handler(see_task);
    zan_set_event_handler([](int, int) { return 0; });
}

} // namespace

// The facade's place is taken: reads come from the input.

int zan_ipc_recv(int, void *buffer, int size) {
    require(size >= 0, "a read is not negative");
    require(buffer == g_recv_buffer + g_recv_pos && size <= g_recv_buffer_size - g_recv_pos,
            "a read stays in the buffer");
    return input.receive(static_cast<char *>(buffer), static_cast<std::size_t>(size));
}

int zan_ipc_send(int, const void *data, int size) {
    see(data, static_cast<std::size_t>(size));
    require(size == ZAN_HEADER_SIZE, "only the empty message is sent");
    return input.empty() ? -1 : size;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (g_ipc_handle < 0)
        set_up();
    input = Input(data, size);
    while (!input.empty()) {
        const int call = input.byte();
        const int argument = call >> 3;
        switch (call & 3) {
        case 0:
            read_record();
            break;
        case 1:
            await_answer(argument);
            break;
        default:
            poll_link(argument);
            break;
        }
        require_sound_state();
    }
    deliver_set_aside();
    start_afresh();
    return 0;
}
