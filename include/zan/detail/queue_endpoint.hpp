// SPDX-License-Identifier: MIT
// A module's connection over the queues.
//
// A thread that makes a configuration request receives the answer itself; the receiver
// thread takes every other class.  The kernel cannot limit a wait for a record: at the
// deadline the housekeeper sends the module's own queue a record that ends the wait.
//
// Answers carry no number by which to tell them apart.  After an answer that did not come
// in time the module therefore registers a new queue and leaves the old one: a late answer
// finds the queue that was named in its request, or none.
#ifndef ZAN_DETAIL_QUEUE_ENDPOINT_HPP
#define ZAN_DETAIL_QUEUE_ENDPOINT_HPP

#include "queue.hpp"

namespace zan {
namespace detail {

class QueueEndpoint final : public Endpoint {
public:
    QueueEndpoint(std::string name, Options options)
        : Endpoint(std::move(name), std::move(options)),
          key_file_(Endpoint::name(), this->options().instance) {}

    int queue() {
        const std::lock_guard lock(mutex_);
        return queue_;
    }

private:
    // Of the records that end a wait: not a class, so the daemon sends none of that type.
    static constexpr long wake_type = 0x7a616e;
    static constexpr int no_cmd = -1;

    struct Previous {
        int queue;
        int daemon;
    };

    // ---- registration ----

    Result<void> open(const Deadline &deadline) override {
        const int daemon = read_queue_id(ZAN_QUEUE_FILE);
        const int registration = read_queue_id(ZAN_REGISTRATION_QUEUE_FILE);
        if (daemon < 0 || registration < 0)
            return not_registered(std::string("no daemon: no queue id in ") +
                                  (daemon < 0 ? ZAN_QUEUE_FILE : ZAN_REGISTRATION_QUEUE_FILE));
        if (!queue_exists(daemon))
            return not_registered("no daemon: queue " + std::to_string(daemon) + " of " +
                                  ZAN_QUEUE_FILE + " does not exist");
        if (!key_file_.open())
            return not_registered("cannot open " + key_file_.path() + ": " + std::strerror(errno));
        if (!looked_for_stale_queues_)
            remove_stale_queues(daemon, deadline);
        looked_for_stale_queues_ = true;

        const int fresh = key_file_.create_queue();
        if (fresh < 0)
            return not_registered(std::string("cannot create a queue: ") + std::strerror(errno));
        sign(fresh);
        if (Result<void> accepted = announce(fresh, daemon, registration, deadline); !accepted) {
            remove_queue(fresh);
            return accepted;
        }
        move_to(fresh, daemon, registration, deadline);
        return {};
    }

    // Leaves this process's id in the kernel's data of the queue, as its last receiver.
    static void sign(int qid) {
        zan_msg msg;
        std::memset(&msg, 0, offsetof(zan_msg, body) + ZAN_HEADER_SIZE);
        msg.mtype = wake_type;
        if (msgsnd(qid, &msg, ZAN_HEADER_SIZE, IPC_NOWAIT) == 0)
            msgrcv(qid, &msg, ZAN_HEADER_SIZE, wake_type, IPC_NOWAIT);
    }

    void fill_registration(int cmd, int qid) {
        fill_record(record_.body, {ZAN_CLASS_REGISTRATION, cmd, "", {}}, name_, options().instance);
        record_.mtype = qid;
    }

    Result<void> announce(int qid, int daemon, int registration, const Deadline &deadline) {
        collect_abandoned(registration);
        fill_registration(ZAN_REGISTER, qid);
        const Sent sent = send_record(daemon, record_, ZAN_HEADER_SIZE, deadline);
        if (sent != Sent::yes)
            return not_registered(sent == Sent::full ? "the daemon's queue is full"
                                                     : "the daemon's queue takes no record");
        if (poll_record(registration, record_, qid, deadline) < 0) {
            abandoned_.push_back(qid);
            return no_registration_answer();
        }
        if (record_.body.result < 0)
            return Error{Failure::not_registered, record_.body.result, registration_refusal()};
        return {};
    }

    Error no_registration_answer() const {
        return {Failure::not_registered, ZAN_ERR_TIMEOUT,
                "the daemon did not answer the registration in time"};
    }
    std::string registration_refusal() const {
        const zan_body &body = record_.body;
        const auto len = static_cast<std::size_t>(std::clamp<int>(body.len, 0, 1023));
        return "the daemon refused to register " + name_ + ": " +
               std::string(body.data, strnlen(body.data, len));
    }

    // Answers to registrations that were given up lie on the daemon's queue for good
    // unless they are taken away.
    void collect_abandoned(int registration) {
        for (auto qid = abandoned_.begin(); qid != abandoned_.end();) {
            if (msgrcv(registration, &record_, ZAN_BODY_SIZE, *qid, IPC_NOWAIT) >= 0)
                qid = abandoned_.erase(qid);
            else
                ++qid;
        }
        if (abandoned_.size() > max_abandoned)
            abandoned_.erase(abandoned_.begin());
    }

    void move_to(int fresh, int daemon, int registration, const Deadline &deadline) {
        int before = no_queue;
        bool receiving = false;
        {
            const std::lock_guard lock(mutex_);
            receiving = receiver_.running();
            before = queue_;
            if (before >= 0)
                previous_.push_back({before, daemon_});
            queue_ = fresh;
            daemon_ = daemon;
            registration_ = registration;
        }
        receiver_moves_.notify_all();
        if (before < 0 || !receiving)
            return;
        // Behind everything that has arrived there.
        zan_msg wake;
        fill_wake(wake, wake_type);
        if (send_record(before, wake, ZAN_HEADER_SIZE, deadline) != Sent::yes)
            remove_queue(before);
    }

    static void fill_wake(zan_msg &msg, long mtype) {
        std::memset(&msg.body, 0, ZAN_HEADER_SIZE);
        msg.mtype = mtype;
        msg.body.cmd = no_cmd;
    }

    void wait_until_receiver_has_moved() {
        std::unique_lock lock(mutex_);
        receiver_moves_.wait(lock, [this] {
            return stopping_ || !receiver_.running() || receiver_queue_ == queue_;
        });
    }

    void retire_previous(const Deadline &deadline) override {
        wait_until_receiver_has_moved();
        for (const Previous &previous : previous_) {
            if (previous.daemon == daemon_)
                unregister(previous.queue, deadline);
            drain(previous.queue);
            remove_queue(previous.queue);
        }
        previous_.clear();
    }

    void settle() override {
        wait_until_receiver_has_moved();
        release_held();
    }

    void unregister(int qid, const Deadline &deadline) {
        fill_registration(ZAN_UNREGISTER, qid);
        if (send_record(daemon_, record_, ZAN_HEADER_SIZE, deadline) != Sent::yes)
            return;
        if (poll_record(registration_, record_, qid, deadline) < 0)
            abandoned_.push_back(qid);
    }

    void drain(int qid) {
        for (;;) {
            const ssize_t size = msgrcv(qid, &record_, ZAN_BODY_SIZE, ZAN_CLASS_CFG,
                                        MSG_EXCEPT | IPC_NOWAIT | MSG_NOERROR);
            if (size < 0 && errno != EINTR)
                return;
            if (size >= ZAN_HEADER_SIZE && record_.mtype != wake_type)
                take_record(record_.body, static_cast<std::size_t>(size), Origin::previous);
        }
    }

    // ---- queues of dead processes ----

    // Only what has certainly been left is removed: its last receiver is dead, no other
    // zan::Module lives with the key file, and the daemon knows no living process of the
    // name.  What remains does no harm, for there are keys enough.
    void remove_stale_queues(int daemon, const Deadline &deadline) {
        if (!key_file_.lock_alone())
            return;
        std::vector<int> stale = key_file_.queues();
        stale.erase(std::remove_if(stale.begin(), stale.end(),
                                   [](int qid) { return !receiver_is_gone(qid); }),
                    stale.end());
        if (!stale.empty() && no_process_registered(daemon, deadline)) {
            for (const int qid : stale)
                remove_queue(qid);
            report("removed " + std::to_string(stale.size()) +
                   " queue(s) left by earlier processes of this name");
        }
        key_file_.share();
    }

    // Asks on a queue that is used for nothing else: a late answer goes with it.
    bool no_process_registered(int daemon, const Deadline &deadline) {
        const int qid = msgget(IPC_PRIVATE, 0777);
        if (qid < 0)
            return false;
        const int size = fill_record(
            record_.body, {ZAN_CLASS_CFG, ZAN_CFG_MODULE_PID, ZAN_MODULE_CFG, name_}, name_, pid());
        record_.mtype = qid;
        const Deadline limit(
            std::min(options().timeout, std::chrono::milliseconds(max_question_ms)));
        const Deadline &sooner = limit.at() < deadline.at() ? limit : deadline;
        bool none = false;
        if (send_record(daemon, record_, size, sooner) == Sent::yes) {
            const int received = poll_record(qid, record_, ZAN_CLASS_CFG, sooner);
            none =
                received >= ZAN_HEADER_SIZE && names_no_process(static_cast<std::size_t>(received));
        }
        remove_queue(qid);
        return none;
    }

    bool names_no_process(std::size_t size) const {
        if (record_.body.result < 0)
            return true;
        const std::string text = payload_of(record_.body, size);
        const long pid = std::strtol(text.c_str(), nullptr, 10);
        return pid > 0 && process_is_gone(static_cast<pid_t>(pid));
    }

    // ---- requests ----

    Result<void> send(const Request &request, const Deadline &deadline) override {
        const int size = fill_record(record_.body, request, name_, pid());
        record_.mtype = queue_;
        switch (send_record(daemon_, record_, size, deadline)) {
        case Sent::yes:
            return {};
        case Sent::full:
            return not_sent("the daemon's queue is full");
        case Sent::gone:
            lose_connection();
            return not_sent("the daemon's queue has gone");
        default:
            return not_sent("record of " + std::to_string(size) +
                            " bytes: " + std::strerror(errno) + " (see kernel.msgmax)");
        }
    }

    Result<Answer> exchange(const Request &request, const Deadline &deadline) override {
        if (request.type == ZAN_CLASS_CFG)
            return exchange_directly(request, deadline);
        if (Result<void> ready = require_receiver(); !ready)
            return ready.error();
        expect(request);
        if (Result<void> sent = send(request, deadline); !sent) {
            expect_nothing();
            return sent.error();
        }
        return await_answer(deadline);
    }

    Result<Answer> exchange_directly(const Request &request, const Deadline &deadline) {
        // A daemon that answers twice leaves the second answer.
        while (msgrcv(queue_, &record_, ZAN_BODY_SIZE, ZAN_CLASS_CFG, IPC_NOWAIT) >= 0)
            continue;
        if (Result<void> sent = send(request, deadline); !sent)
            return sent.error();
        if (!arm(deadline))
            return no_answer("the module ends, or the system has no thread for it");
        Result<Answer> answer = await_directly(request, deadline);
        disarm();
        return answer;
    }

    Result<Answer> await_directly(const Request &request, const Deadline &deadline) {
        for (;;) {
            const ssize_t size = msgrcv(queue_, &record_, ZAN_BODY_SIZE, ZAN_CLASS_CFG, 0);
            if (size >= ZAN_HEADER_SIZE && is_answer(record_.body, request))
                return to_result(record_.body, static_cast<std::size_t>(size));
            if (size < 0 && errno != EINTR)
                return no_answer(std::string("the module's queue failed: ") + std::strerror(errno));
            if (deadline.passed())
                return no_answer(unanswered_text);
            if (stopping())
                return no_answer("the module ends");
        }
    }

    void wake_waiting() override {
        receiver_moves_.notify_all();
        if (queue_ < 0)
            return;
        zan_msg wake;
        fill_wake(wake, ZAN_CLASS_CFG);
        msgsnd(queue_, &wake, ZAN_HEADER_SIZE, IPC_NOWAIT);
    }

    bool daemon_present() override {
        return queue_exists(daemon_) && queue_exists(queue_) &&
               read_queue_id(ZAN_QUEUE_FILE) == daemon_;
    }

    // ---- the receiver thread ----

    Result<void> require_receiver() override {
        const std::lock_guard lock(mutex_);
        if (receiver_.running())
            return {};
        receiver_queue_ = queue_;
        if (!receiver_.start([this] { receive(); }))
            return no_thread();
        return {};
    }

    void receive() {
        const auto msg = std::make_unique<zan_msg>();
        int qid = follow(no_queue);
        while (!stopping()) {
            const ssize_t size =
                qid < 0 ? -1 : msgrcv(qid, msg.get(), ZAN_BODY_SIZE, ZAN_CLASS_CFG, MSG_EXCEPT);
            if (size < 0 && qid >= 0 && errno == EINTR)
                continue;
            if (size < 0)
                qid = follow_lost(qid);
            else if (msg->mtype == wake_type)
                qid = follow(qid);
            else if (size >= ZAN_HEADER_SIZE)
                take_record(msg->body, static_cast<std::size_t>(size));
        }
    }

    // The queue of the module now, which may be the one before.
    int follow(int before) {
        int now = no_queue;
        {
            const std::lock_guard lock(mutex_);
            now = queue_;
        }
        if (now == before)
            return now;
        if (before >= 0)
            hold();
        {
            const std::lock_guard lock(mutex_);
            receiver_queue_ = now;
        }
        receiver_moves_.notify_all();
        return now;
    }

    // After the loss of the queue, or before there is one: waits for another.
    int follow_lost(int lost) {
        bool noticed = false;
        {
            const std::lock_guard lock(mutex_);
            noticed = lost >= 0 && queue_ == lost && !stopping_;
        }
        if (noticed)
            lose_connection();
        {
            std::unique_lock lock(mutex_);
            receiver_moves_.wait(lock, [&] { return stopping_ || queue_ != lost; });
        }
        return follow(lost);
    }

    void leave(const Deadline &deadline) override {
        const bool registered = queue_ >= 0;
        if (registered && daemon_present())
            unregister(queue_, deadline);
        for (const Previous &previous : previous_)
            remove_queue(previous.queue);
        remove_queue(queue_);
        receiver_moves_.notify_all();
        receiver_.join();
        if (registered)
            key_file_.remove_unless_used();
    }

    static constexpr std::size_t max_abandoned = 64;
    static constexpr int max_question_ms = 1000;

    KeyFile key_file_;
    bool looked_for_stale_queues_ = false;
    zan_msg record_{}; // of the owner of the turn

    // Changed by the owner of the turn with the mutex locked.
    int queue_ = no_queue;
    int daemon_ = no_queue;
    int registration_ = no_queue;

    std::vector<Previous> previous_;
    std::vector<int> abandoned_;

    HelperThread receiver_;
    int receiver_queue_ = no_queue;
    std::condition_variable receiver_moves_;
};

} // namespace detail
} // namespace zan

#endif
