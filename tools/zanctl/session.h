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

struct Answer {
    std::string text; // empty for the commands that answer without
    int result;       // what the library's wait returned, 0 or more
};

// Registered with the daemon as a module from construction to destruction, which
// leaves no queue, no key file and no link behind, whatever happened in between.
class Session {
public:
    // Throws Failure when no daemon answers or it refuses the module.
    Session(std::string name, double timeout);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Sends a request and waits for its answer.  Throws Refused with the daemon's
    // text, Failure when it does not answer, Interrupted.
    Answer exchange(const Request &request);
    std::string request(const Request &request) { return exchange(request).text; }

    // Runs a send of the library's that nobody answers.  Throws Failure when it
    // fails, Interrupted.
    void post(const std::function<int()> &send);

    // Runs a request of the library's and returns its result.  Throws as exchange,
    // but knows no text of the daemon's.
    int call(const std::function<int()> &make);

    // Makes the module a mesh agent too, under the same name, with a link to the
    // daemon.  Throws Refused when the device is no agent or the daemon says no,
    // Failure when there is no link to be had, Interrupted.
    void register_agent();

    // A value, read over the link.  Throws as request() does.
    std::string get_over_link(const std::string &path);

    // Runs a call of the library's that waits for its answer on the link.  Throws
    // as request() does, but the daemon's text stays with the library.
    void call_over_link(const std::function<int()> &make);

    // Whether the daemon still has its queue and leaves this module its own.
    bool connected() const;
    void require_connection() const; // throws Failure
    bool has_link() const { return agent_; }
    [[noreturn]] void lose_link() const; // throws Failure

private:
    struct Exchange;

    void register_module();
    void fill(const Request &request);
    double clean_up_seconds() const;
    void leave_link() const;
    [[noreturn]] void fail_over_link(int result, bool expired);
    [[noreturn]] void fail(int result, bool expired);
    [[noreturn]] void lose_daemon(int reason, bool expired);

    std::string name_;
    double timeout_;
    bool daemon_silent_ = false;
    int queue_ = -1;
    bool agent_ = false;
    std::unique_ptr<Exchange> exchange_;
};

} // namespace zan::ctl
