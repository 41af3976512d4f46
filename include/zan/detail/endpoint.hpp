// SPDX-License-Identifier: MIT
// What a module on the queues and an agent on its link share: one request at a time, each
// with a deadline; a fresh connection after an answer that did not come; what arrives
// unasked, kept until dispatch(); subscriptions, renewed on every connection.
#ifndef ZAN_DETAIL_ENDPOINT_HPP
#define ZAN_DETAIL_ENDPOINT_HPP

#include "../result.hpp"
#include "system.hpp"

#include <condition_variable>
#include <cstring>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace zan {

// A request as the record carries it.
struct Request {
    int type; // enum zan_class
    int cmd;
    const char *dst;
    std::string_view payload;
    int arg = 0;
    bool timed = false; // the record carries the time of sending
};

struct Answer {
    std::string data;
    int result = 0;
    int arg = 0;
};

// A record that arrived without a request of this process.
struct Incoming {
    int type;
    int cmd;
    int pid;
    std::string source;
    std::string data;
};

struct Options {
    int instance = 0; // of the module; several processes of one name need different ones
    std::chrono::milliseconds timeout{5000}; // of calls that are given none
    // How often the daemon is checked for a restart while anything is subscribed.
    std::chrono::milliseconds check_interval{1000};
    // Records that wait for dispatch() take at most this much; later ones are dropped,
    // with a line of diagnostics.
    std::size_t max_pending_bytes = 1024 * 1024;
    // Takes each diagnostic line, without its end, on whatever thread it arises; standard
    // output when empty.  It must not call the module.
    std::function<void(std::string_view)> diagnostics = {};
};

namespace detail {

inline Error no_answer(std::string text) {
    return {Failure::no_answer, ZAN_ERR_TIMEOUT, std::move(text)};
}
inline Error not_sent(std::string text) {
    return {Failure::not_sent, ZAN_ERR_SEND, std::move(text)};
}
inline Error not_registered(std::string text) {
    return {Failure::not_registered, ZAN_ERR, std::move(text)};
}
inline Error bad_argument(std::string text) {
    return {Failure::bad_argument, ZAN_ERR, std::move(text)};
}

inline void copy_name(char (&field)[ZAN_NAME_SIZE], std::string_view name) {
    const std::size_t size = std::min<std::size_t>(name.size(), sizeof field - 1);
    std::memcpy(field, name.data(), size);
}

// Fills the record and returns the bytes to send.
inline int fill_record(zan_body &body, const Request &request, std::string_view source, int pid) {
    std::memset(&body, 0, ZAN_HEADER_SIZE);
    body.type = request.type;
    body.cmd = request.cmd;
    copy_name(body.dst, request.dst);
    copy_name(body.src, source);
    body.pid = pid;
    body.time = request.timed ? static_cast<int32_t>(std::time(nullptr)) : 0;
    body.arg = request.arg;
    body.len = static_cast<int32_t>(request.payload.size());
    if (!request.payload.empty())
        std::memcpy(body.data, request.payload.data(), request.payload.size());
    return ZAN_HEADER_SIZE + body.len;
}

// `size` counts from the header on.
inline std::string payload_of(const zan_body &body, std::size_t size) {
    const std::size_t header = ZAN_HEADER_SIZE;
    return std::string(body.data, size > header ? size - header : 0);
}

inline bool is_answer(const zan_body &body, const Request &request) {
    const bool message = request.type == ZAN_CLASS_MESSAGE || request.type == ZAN_CLASS_BROADCAST;
    const int cmd = message ? static_cast<int>(ZAN_MESSAGE_ACK) : request.cmd;
    return body.type == request.type && body.cmd == cmd;
}

struct Handler {
    // 0 where a handler takes all records of its kind.
    int type = 0;
    int cmd = -1;
    std::string path;    // of a value subscription
    int event = 0;       // of an event subscription
    std::string request; // the payload that subscribes
    bool active = true;
    std::function<bool(const Incoming &)> accepts;
    std::function<void(const Incoming &)> call;

    bool needs_daemon() const { return cmd >= 0; }
    bool same_subscription(const Handler &other) const {
        return needs_daemon() && other.needs_daemon() && cmd == other.cmd && path == other.path &&
               event == other.event;
    }
};

class Endpoint : public std::enable_shared_from_this<Endpoint> {
public:
    Endpoint(std::string name, Options options)
        : name_(std::move(name)), options_(std::move(options)) {}
    virtual ~Endpoint() = default;
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    const std::string &name() const { return name_; }
    const Options &options() const { return options_; }
    int fd() const { return pending_flag_.fd(); }
    bool in_forked_child() const { return fork_generation() != fork_generation_; }

    void report(std::string_view line) const {
        if (options_.diagnostics)
            options_.diagnostics(line);
        else
            std::printf("%s: %.*s\n", name_.c_str(), static_cast<int>(line.size()), line.data());
    }

    bool connected() {
        const std::lock_guard lock(mutex_);
        return connected_;
    }

    // Registers if need be.
    Result<void> connect(Timeout timeout) {
        const Deadline deadline(timeout.value_or(options_.timeout));
        if (in_forked_child())
            return forked();
        if (!take_turn(deadline))
            return busy();
        Result<void> done = require_connection(deadline);
        end_turn();
        return done;
    }

    // Sends the request and waits for its answer.
    Result<Answer> request(const Request &request, Timeout timeout) {
        const Deadline deadline(timeout.value_or(options_.timeout));
        if (request.payload.size() > ZAN_DATA_SIZE)
            return too_long(request);
        if (in_forked_child())
            return forked();
        if (!take_turn(deadline))
            return busy();
        Result<Answer> answer = request_in_turn(request, deadline);
        end_turn();
        return answer;
    }

    // Sends the request, which has no answer.
    Result<void> post(const Request &request, Timeout timeout) {
        const Deadline deadline(timeout.value_or(options_.timeout));
        if (request.payload.size() > ZAN_DATA_SIZE)
            return too_long(request);
        if (in_forked_child())
            return forked();
        if (!take_turn(deadline))
            return busy();
        Result<void> sent;
        for (int attempt = 0; attempt < 2; ++attempt) {
            sent = require_connection(deadline);
            if (sent)
                sent = send(request, deadline);
            if (sent || connected())
                break;
        }
        end_turn();
        return sent;
    }

    // ---- handlers ----

    Result<void> subscribe(const std::shared_ptr<Handler> &handler, Timeout timeout) {
        const Deadline deadline(timeout.value_or(options_.timeout));
        if (in_forked_child())
            return forked();
        if (Result<void> ready = require_receiver(); !ready)
            return ready;
        if (!take_turn(deadline))
            return busy();
        // Known before the turn ends, so that no reconnection misses it.
        Result<void> done =
            handler->needs_daemon() ? subscribe_in_turn(*handler, deadline) : Result<void>();
        if (done)
            done = add_handler(handler);
        end_turn();
        return done;
    }

    Result<void> unsubscribe(const std::shared_ptr<Handler> &handler, Timeout timeout) {
        bool last = handler->needs_daemon();
        {
            const std::lock_guard lock(mutex_);
            handler->active = false;
            const auto found = std::find(handlers_.begin(), handlers_.end(), handler);
            if (found == handlers_.end())
                return {};
            handlers_.erase(found);
            for (const auto &other : handlers_)
                last = last && !other->same_subscription(*handler);
            // A new connection starts without the subscription.
            last = last && connected_;
        }
        if (!last)
            return {};
        const bool value = handler->cmd == ZAN_NOTIFY_REGISTER_VALUE;
        const Result<Answer> answer = request(
            {ZAN_CLASS_NOTIFY, value ? ZAN_NOTIFY_UNREGISTER_VALUE : ZAN_NOTIFY_UNREGISTER_EVENT,
             ZAN_MODULE_CORE, value ? handler->path : handler->request, 0, true},
            timeout);
        if (!answer)
            return answer.error();
        return {};
    }

    // Calls the handlers for what waits now, in the order of arrival; returns how many
    // records and completions that were.
    int dispatch() {
        std::size_t waiting = 0;
        {
            const std::lock_guard lock(inbox_mutex_);
            waiting = inbox_.size();
        }
        int done = 0;
        for (; waiting > 0; --waiting, ++done) {
            std::function<void()> completion;
            Incoming record{};
            if (!take_pending(completion, record))
                break;
            if (completion)
                completion();
            else
                call_handlers(record);
        }
        return done;
    }

    // Runs `work` on the worker thread, then hands what it returns to dispatch().
    bool run_later(std::function<std::function<void()>()> work) {
        {
            const std::lock_guard lock(mutex_);
            jobs_.push_back(std::move(work));
            if (!worker_.start([this] { work_off_jobs(); })) {
                jobs_.pop_back();
                return false;
            }
        }
        jobs_changed_.notify_one();
        return true;
    }

    // Ends the helper threads and leaves the daemon.
    void close(std::chrono::milliseconds limit) {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
            jobs_.clear();
            wake_waiting();
        }
        jobs_changed_.notify_all();
        answered_.notify_all();
        worker_.join();
        leave(Deadline(limit));
        wake_housekeeper();
        housekeeper_.join();
    }

protected:
    // All of these are called by the owner of the turn.

    // Connects afresh and registers; what was the connection until then goes on receiving.
    virtual Result<void> open(const Deadline &deadline) = 0;
    // Unregisters earlier connections and keeps what they still brought.
    virtual void retire_previous(const Deadline &deadline) = 0;
    // Ends what open() began, whether or not the connection is of use.
    virtual void settle() = 0;
    virtual Result<Answer> exchange(const Request &request, const Deadline &deadline) = 0;
    virtual Result<void> send(const Request &request, const Deadline &deadline) = 0;
    // Ends the thread that receives; unregisters.
    virtual void leave(const Deadline &deadline) = 0;

    virtual bool daemon_present() = 0;

    virtual Result<void> require_receiver() = 0;
    // Wakes the thread that waits for an answer in the kernel.  With the mutex locked.
    virtual void wake_waiting() {}

    // ---- order of what arrives ----

    // What arrives from now on waits until release_held(): a new connection must not
    // overtake the one before it.
    void hold() {
        const std::lock_guard lock(inbox_mutex_);
        holding_ = true;
    }
    void release_held() {
        const std::lock_guard lock(inbox_mutex_);
        holding_ = false;
        for (Pending &pending : held_)
            push(std::move(pending));
        held_.clear();
    }
    enum class Origin { current, previous };

    // ---- answers that another thread receives ----

    void expect(const Request &request) {
        const std::lock_guard lock(mutex_);
        expected_ = &request;
        answer_.reset();
    }

    Result<Answer> await_answer(const Deadline &deadline) {
        std::unique_lock lock(mutex_);
        answered_.wait_until(lock, deadline.at(),
                             [this] { return answer_.has_value() || broken_ || stopping_; });
        expected_ = nullptr;
        if (!answer_)
            return no_answer(broken_ ? "the connection was lost before the answer came"
                                     : unanswered_text);
        return std::move(*answer_);
    }

    void expect_nothing() {
        const std::lock_guard lock(mutex_);
        expected_ = nullptr;
    }

    bool stopping() {
        const std::lock_guard lock(mutex_);
        return stopping_;
    }

    // Takes a record that has arrived: an answer that is expected, or one for dispatch().
    void take_record(const zan_body &body, std::size_t size, Origin origin = Origin::current) {
        {
            const std::lock_guard lock(mutex_);
            if (expected_ != nullptr && !answer_ && is_answer(body, *expected_)) {
                answer_ = to_result(body, size);
                answered_.notify_all();
                return;
            }
        }
        const bool message = body.type == ZAN_CLASS_MESSAGE || body.type == ZAN_CLASS_BROADCAST;
        const bool notification =
            body.type == ZAN_CLASS_NOTIFY &&
            (body.cmd == ZAN_NOTIFY_VALUE_CHANGED || body.cmd == ZAN_NOTIFY_EVENT);
        // Anything else is an answer that nobody waits for any more.
        if ((message && body.cmd != ZAN_MESSAGE_ACK) || notification ||
            body.type == ZAN_CLASS_ACTION)
            keep(body, size, origin);
    }

    static Result<Answer> to_result(const zan_body &body, std::size_t size) {
        std::string data = payload_of(body, size);
        if (body.result < 0) {
            if (const std::size_t end = data.find('\0'); end != std::string::npos)
                data.resize(end);
            return Error{Failure::refused, body.result, std::move(data)};
        }
        return Answer{std::move(data), body.result, body.arg};
    }

    static constexpr const char *unanswered_text = "the daemon did not answer in time";

    static Error no_thread() { return not_sent("the system has no thread for the module"); }

    // The connection is of no use any more: the next request makes another.
    void lose_connection() {
        {
            const std::lock_guard lock(mutex_);
            connected_ = false;
            broken_ = true;
        }
        answered_.notify_all();
        wake_housekeeper();
    }

    // ---- the deadline of a thread that waits in the kernel ----

    bool arm(const Deadline &deadline) {
        const std::lock_guard lock(mutex_);
        // A thread that does not wait yet when close() wakes it must not begin to.
        if (stopping_ || !start_housekeeper())
            return false;
        armed_ = deadline.at();
        if (deadline.at() < housekeeper_sleeps_until_)
            housekeeping_.notify_one();
        return true;
    }
    void disarm() {
        const std::lock_guard lock(mutex_);
        armed_ = Clock::time_point::max();
    }

    // The pid is asked for once: a forked child sends nothing.
    int pid() const { return pid_; }

    mutable std::mutex mutex_;
    bool stopping_ = false;
    bool connected_ = false;
    bool broken_ = false; // since the last attempt to connect
    std::string name_;

private:
    static bool is_name(std::string_view name) {
        return !name.empty() && name.size() < ZAN_NAME_SIZE &&
               name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
    }

    Result<void> subscribe_in_turn(const Handler &handler, const Deadline &deadline) {
        const Result<Answer> answer = request_in_turn(subscription_request(handler), deadline);
        if (!answer)
            return answer.error();
        return {};
    }

    Result<void> add_handler(const std::shared_ptr<Handler> &handler) {
        const std::lock_guard lock(mutex_);
        if (!start_housekeeper())
            return no_thread();
        handlers_.push_back(handler);
        housekeeper_checks_ = true;
        wake_housekeeper();
        return {};
    }

    static Request subscription_request(const Handler &handler) {
        return {ZAN_CLASS_NOTIFY, handler.cmd, ZAN_MODULE_CORE, handler.request, 0, true};
    }

    Error forked() const {
        return not_registered("module " + name_ + " belongs to the parent of this forked process");
    }
    Error busy() const { return not_sent("another request was waiting for its answer"); }
    static Error too_long(const Request &request) {
        return bad_argument("payload of " + std::to_string(request.payload.size()) +
                            " bytes, at most " + std::to_string(ZAN_DATA_SIZE) +
                            " fit into a record");
    }

    bool take_turn(const Deadline &deadline) {
        std::unique_lock lock(mutex_);
        if (busy_ && !turn_ended_.wait_until(lock, deadline.at(), [this] { return !busy_; }))
            return false;
        busy_ = true;
        return true;
    }
    bool try_turn() {
        const std::lock_guard lock(mutex_);
        if (busy_ || stopping_)
            return false;
        busy_ = true;
        return true;
    }
    void end_turn() {
        {
            const std::lock_guard lock(mutex_);
            busy_ = false;
        }
        turn_ended_.notify_one();
    }

    Result<Answer> request_in_turn(const Request &request, const Deadline &deadline) {
        // A second attempt is for a daemon that has gone unnoticed: nothing was sent.
        for (int attempt = 0;; ++attempt) {
            if (Result<void> ready = require_connection(deadline); !ready)
                return ready.error();
            Result<Answer> answer = exchange(request, deadline);
            if (answer.failed_with(Failure::no_answer)) {
                // The answer may still come: it must not find the next request.
                lose_connection();
            }
            if (attempt > 0 || !answer.failed_with(Failure::not_sent) || connected())
                return answer;
        }
    }

    Result<void> require_connection(const Deadline &deadline) {
        if (connected())
            return {};
        if (!is_name(name_))
            return bad_argument("not a module name: \"" + name_ + "\"");
        bool again = false;
        {
            const std::lock_guard lock(mutex_);
            again = connected_before_;
            broken_ = false;
        }
        if (Result<void> opened = open(deadline); !opened)
            return opened;
        {
            const std::lock_guard lock(mutex_);
            connected_ = true;
            connected_before_ = true;
        }
        Result<void> renewed = renew_subscriptions(deadline);
        if (renewed)
            retire_previous(deadline);
        else
            lose_connection();
        settle();
        if (renewed && again)
            report("registered again");
        return renewed;
    }

    Result<void> renew_subscriptions(const Deadline &deadline) {
        std::vector<std::shared_ptr<Handler>> handlers;
        {
            const std::lock_guard lock(mutex_);
            handlers = handlers_;
        }
        for (const auto &handler : handlers) {
            if (!handler->needs_daemon())
                continue;
            const Result<Answer> answer = exchange(subscription_request(*handler), deadline);
            if (answer)
                continue;
            // A daemon that has forgotten the path refuses it: that must not keep the
            // module from everything else.
            if (!answer.failed_with(Failure::refused))
                return answer.error();
            report("subscription not renewed: " + answer.error().message());
        }
        return {};
    }

    // ---- what waits for dispatch() ----

    struct Pending {
        std::function<void()> completion; // of a request; else a record
        Incoming record;
    };

    void keep(const zan_body &body, std::size_t size, Origin origin) {
        Pending pending{{},
                        {body.type, body.cmd, body.pid,
                         std::string(body.src, strnlen(body.src, sizeof body.src)),
                         payload_of(body, size)}};
        bool dropped = false;
        {
            const std::lock_guard lock(inbox_mutex_);
            const std::size_t bytes = pending.record.data.size() + sizeof(Pending);
            dropped = inbox_bytes_ + bytes > options_.max_pending_bytes;
            if (!dropped) {
                inbox_bytes_ += bytes;
                if (holding_ && origin == Origin::current)
                    held_.push_back(std::move(pending));
                else
                    push(std::move(pending));
            }
        }
        if (dropped)
            report("record dropped: too many wait for dispatch()");
    }

    // With the inbox locked.
    void push(Pending pending) {
        if (inbox_.empty())
            pending_flag_.raise();
        inbox_.push_back(std::move(pending));
    }

    bool take_pending(std::function<void()> &completion, Incoming &record) {
        const std::lock_guard lock(inbox_mutex_);
        if (inbox_.empty())
            return false;
        Pending &first = inbox_.front();
        if (!first.completion)
            inbox_bytes_ -= first.record.data.size() + sizeof(Pending);
        completion = std::move(first.completion);
        record = std::move(first.record);
        inbox_.pop_front();
        if (inbox_.empty())
            pending_flag_.clear();
        return true;
    }

    void call_handlers(const Incoming &record) {
        std::vector<std::shared_ptr<Handler>> handlers;
        {
            const std::lock_guard lock(mutex_);
            handlers = handlers_;
        }
        // One that an earlier handler has removed is not called any more.
        for (const auto &handler : handlers) {
            if (is_active(*handler) && handler->accepts(record))
                handler->call(record);
        }
    }

    bool is_active(const Handler &handler) {
        const std::lock_guard lock(mutex_);
        return handler.active;
    }

    void work_off_jobs() {
        for (;;) {
            std::function<std::function<void()>()> job;
            {
                std::unique_lock lock(mutex_);
                jobs_changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
                if (stopping_)
                    return;
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
            std::function<void()> completion = job();
            const std::lock_guard lock(inbox_mutex_);
            push({std::move(completion), {}});
        }
    }

    // ---- the housekeeper: deadlines, and a daemon that goes ----

    // With the mutex locked.
    bool start_housekeeper() {
        return housekeeper_.running() || housekeeper_.start([this] { keep_house(); });
    }

    void wake_housekeeper() { housekeeping_.notify_all(); }

    void keep_house() {
        std::unique_lock lock(mutex_);
        auto next_check = Clock::now() + options_.check_interval;
        while (!stopping_) {
            const auto now = Clock::now();
            if (now >= armed_) {
                // Again shortly, should the queue have had no room for it.
                wake_waiting();
                armed_ = now + std::chrono::milliseconds(10);
            }
            if (housekeeper_checks_ && now >= next_check) {
                lock.unlock();
                check_daemon();
                lock.lock();
                next_check = Clock::now() + options_.check_interval;
            }
            housekeeper_sleeps_until_ =
                std::min(armed_, housekeeper_checks_ ? next_check : Clock::time_point::max());
            if (housekeeper_sleeps_until_ == Clock::time_point::max())
                housekeeping_.wait(lock);
            else
                housekeeping_.wait_until(lock, housekeeper_sleeps_until_);
        }
    }

    void check_daemon() {
        // Who owns the turn finds out itself.
        if (!try_turn())
            return;
        if (!daemon_present())
            lose_connection();
        if (!connected())
            static_cast<void>(require_connection(Deadline(options_.timeout)));
        end_turn();
    }

    Options options_;
    int fork_generation_ = fork_generation();
    int pid_ = static_cast<int>(getpid());

    std::condition_variable turn_ended_;
    bool busy_ = false;
    bool connected_before_ = false;

    const Request *expected_ = nullptr;
    std::optional<Result<Answer>> answer_;
    std::condition_variable answered_;

    std::vector<std::shared_ptr<Handler>> handlers_;

    std::mutex inbox_mutex_; // never held together with mutex_
    std::deque<Pending> inbox_;
    std::deque<Pending> held_;
    bool holding_ = false;
    std::size_t inbox_bytes_ = 0;
    PendingFlag pending_flag_;

    HelperThread worker_;
    std::deque<std::function<std::function<void()>()>> jobs_;
    std::condition_variable jobs_changed_;

    HelperThread housekeeper_;
    std::condition_variable housekeeping_;
    Clock::time_point armed_ = Clock::time_point::max();
    Clock::time_point housekeeper_sleeps_until_ = Clock::time_point::max();
    bool housekeeper_checks_ = false;
};

} // namespace detail
} // namespace zan

#endif
