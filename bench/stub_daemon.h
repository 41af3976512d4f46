// SPDX-License-Identifier: MIT
// A daemon that does nothing but answer, for the benchmarks of round trips.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace zan::bench {

// Ends the program with the system's error text.
void check(bool done, const char *what);

// A value of this many bytes is what the stub answers a request for this path of 20
// bytes with.
std::string path_for(std::size_t size);

bool read_whole(int fd, void *into, std::size_t size);
int open_connection(int port);
// Listens on 127.0.0.1 at a port of its own.
int open_listener(int *port);

// Starts one process for the queues and, if wanted, one for connections, which starts
// one for each connection.  Publishes the daemon's files, and removes them and the
// queues at the end.
class StubDaemon {
public:
    enum class Serves { queues, queues_and_connections };

    explicit StubDaemon(Serves serves);
    ~StubDaemon();
    StubDaemon(const StubDaemon &) = delete;
    StubDaemon &operator=(const StubDaemon &) = delete;

    int request_queue() const { return request_queue_; }
    int port() const { return port_; } // 0 if it serves queues only

private:
    int request_queue_ = -1;
    int registration_queue_ = -1;
    int port_ = 0;
    pid_t queue_server_ = 0;
    pid_t connection_server_ = 0;
};

} // namespace zan::bench
