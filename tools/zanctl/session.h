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
    double timeout = 0; // seconds; 0 for the session's
};

struct Answer {
    std::string text; // empty for the commands whose answer has none
    int result;       // of the library's wait, 0 or 1
};

// Registered with the daemon as a module from construction to destruction, which removes
// the queue, the key file and the link in any case.
//
// Every call that waits throws Refusal if the request is refused, Error if there is no
// daemon or no answer in time, and Interrupted after a signal.
class Session {
public:
    Session(std::string name, double timeout);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void set_timeout(double seconds) { timeout_ = seconds; }

    // Sends a request and waits for its answer.
    Answer exchange(const Request &request);
    std::string request(const Request &request) { return exchange(request).text; }

    // Runs one of the library's functions that send without an answer.
    void post(const std::function<int()> &send);

    // Runs one of the library's requests and returns its result.  The library keeps the
    // text of a refusal to itself.
    int call(const std::function<int()> &make_request);

    // Registers as a mesh agent too, under the same name, with a link to the daemon.  Does
    // nothing the second time.
    void register_agent();

    // Reads a value over the link.
    std::string get_over_link(const std::string &path);

    // Runs one of the library's requests over the link.
    void call_over_link(const std::function<int()> &make_request);

    // Whether both queues still exist.
    bool connected() const;
    void require_connection() const; // throws Error
    bool has_link() const { return agent_; }
    [[noreturn]] void report_lost_link() const; // throws Error

private:
    struct Exchange;

    void register_module();
    void fill(const Request &request);
    double clean_up_seconds() const;
    void leave_link() const;
    [[noreturn]] void fail_over_link(int result, bool expired);
    [[noreturn]] void fail(int result, bool expired, double timeout);
    [[noreturn]] void report_lost_daemon(int reason, bool expired, double timeout);

    std::string name_;
    double timeout_;
    bool daemon_silent_ = false;
    int queue_ = -1;
    bool agent_ = false;
    std::unique_ptr<Exchange> exchange_;
};

} // namespace zan::ctl
