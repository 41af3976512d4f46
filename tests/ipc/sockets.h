// SPDX-License-Identifier: MIT
//
// The other end of a link, by plain system calls.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace zan::test {

// A descriptor of the test, closed with the object.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return fd_; }
    int release();
    void reset(int fd = -1);

private:
    int fd_;
};

// ---- addresses and options -------------------------------------------------

sockaddr_in ipv4(const char *host, int port);
sockaddr_un local(const std::string &path);
// "HOST:PORT" of the socket itself and of its peer.
std::string own_address(int fd);
std::string peer_address(int fd);
std::string text_of(const sockaddr_in &address);
int port_of(int fd);

int option(int fd, int name);
// A SO_SNDTIMEO or SO_RCVTIMEO.
std::chrono::microseconds timeout_option(int fd, int name);

bool is_open(int fd);
int open_descriptors();

// ---- peers -----------------------------------------------------------------

// Throw when they cannot be had.  Port 0 is any free one.
Descriptor tcp_listener(int port, const char *host = "127.0.0.1", int receive_buffer = 0);
Descriptor tcp_connection(int port);
Descriptor udp_socket(int port = 0);
Descriptor local_listener(const std::string &path);
// Waits for the next connection.
Descriptor accept_one(const Descriptor &listener);
// Two connected local stream sockets.
struct Pair {
    Descriptor near;
    Descriptor far;
};
Pair stream_pair();

// Bytes of which no stretch repeats soon, so that none can be lost or exchanged.
std::string some_bytes(std::size_t size, unsigned int seed = 1);

// Reads until `size` bytes have come or the stream ends.
std::string read_bytes(int fd, std::size_t size);
// What is there now.
std::string read_available(int fd);
bool wait_readable(int fd);
bool wait_writable(int fd);
// Sends without waiting until nothing more is taken, then returns how much was.
std::size_t fill(int fd);

// ---- surroundings ----------------------------------------------------------

// Runs the check in a second process: whether it held there.
bool holds_in_child(const std::function<bool()> &check);

// The time since construction.
class Stopwatch {
public:
    std::chrono::steady_clock::duration elapsed() const {
        return std::chrono::steady_clock::now() - start_;
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Kernel time-outs count ticks, the first of which is not a whole one.
inline constexpr std::chrono::milliseconds one_tick{10};

} // namespace zan::test
