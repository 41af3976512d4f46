// SPDX-License-Identifier: MIT
#pragma once

#include <zan.h>

#include <functional>
#include <memory>
#include <string>

namespace zan::ctl {

struct Request {
    int type; // enum zan_class
    int cmd;
    const char *dst;
    std::string payload;
    int arg = 0;
};

// Registered with the daemon as a module from construction to destruction, which
// leaves no queue and no key file behind, whatever happened in between.
class Session {
public:
    // Throws Failure when no daemon answers or it refuses the module.
    Session(std::string name, double timeout);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Sends a request and returns the answer's text, empty for the commands that
    // answer without.  Throws Refused with the daemon's text, Failure when it
    // does not answer, Interrupted.
    std::string request(const Request &request);

    // Runs a send of the library's that nobody answers.  Throws Failure when it
    // fails, Interrupted.
    void post(const std::function<int()> &send);

    // Whether the daemon still has its queue and leaves this module its own.
    bool connected() const;
    void require_connection() const; // throws Failure

private:
    struct Exchange;

    void register_module();
    void fill(const Request &request);
    double clean_up_seconds() const;
    [[noreturn]] void fail(int result, bool expired);
    [[noreturn]] void lose_daemon(int reason, bool expired);

    std::string name_;
    double timeout_;
    bool daemon_silent_ = false;
    int queue_ = -1;
    std::unique_ptr<Exchange> exchange_;
};

} // namespace zan::ctl
