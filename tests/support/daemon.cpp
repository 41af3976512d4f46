// SPDX-License-Identifier: MIT
#include "support/daemon.h"

#include "support/commands.h"
#include "support/patience.h"
#include "support/undisturbed.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace zan::test {

namespace {

constexpr const char *request_queue_file = "/tmp/zan_qid";
constexpr const char *registration_queue_file = "/tmp/zan_req_qid";

int create_queue() {
    const int id = msgget(IPC_PRIVATE, IPC_CREAT | 0666);
    if (id < 0)
        throw std::system_error(errno, std::generic_category(), "msgget");
    return id;
}

} // namespace

ScriptedDaemon::ScriptedDaemon()
    : request_queue_(create_queue()), registration_queue_(create_queue()) {
    write_file(request_queue_file, std::to_string(request_queue_));
    write_file(registration_queue_file, std::to_string(registration_queue_));
    thread_ = start_undisturbed([this] { run(); });
}

ScriptedDaemon::~ScriptedDaemon() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    die();
    thread_.join();
    unlink(request_queue_file);
    unlink(registration_queue_file);
}

void ScriptedDaemon::on(std::int32_t type, std::int32_t cmd, Replies replies) {
    const std::lock_guard lock(mutex_);
    rules_[{type, cmd}] = std::move(replies);
}

void ScriptedDaemon::once(std::int32_t type, std::int32_t cmd, Replies replies) {
    const std::lock_guard lock(mutex_);
    once_[{type, cmd}].push_back(std::move(replies));
}

void ScriptedDaemon::release() {
    {
        const std::lock_guard lock(mutex_);
        ++released_;
    }
    changed_.notify_all();
}

void ScriptedDaemon::die() {
    remove_queue(request_queue_);
    remove_queue(registration_queue_);
}

// A record of the daemon's own that follows all others through the queue.
constexpr long barrier_mtype = std::numeric_limits<long>::max();

void ScriptedDaemon::wait_until_all_read() const {
    std::unique_lock lock(mutex_);
    if (holding_ || !queue_exists(request_queue_))
        return;
    const RawRecord barrier = {.mtype = barrier_mtype};
    if (msgsnd(request_queue_, &barrier, 0, IPC_NOWAIT) < 0)
        return; // full or removed
    const int number = ++barriers_sent_;
    changed_.wait_for(lock, patience, [&] {
        return barriers_seen_ >= number || holding_ || !queue_exists(request_queue_);
    });
}

std::vector<SizedRecord> ScriptedDaemon::records() const {
    wait_until_all_read();
    const std::lock_guard lock(mutex_);
    return {records_.begin(), records_.end()};
}

std::vector<SizedRecord> ScriptedDaemon::wait_for_records(std::size_t count) const {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, patience, [&] { return records_.size() >= count; }))
        throw std::runtime_error("only " + std::to_string(records_.size()) + " of " +
                                 std::to_string(count) + " records arrived");
    return {records_.begin(), records_.end()};
}

void ScriptedDaemon::forget_records() {
    const std::lock_guard lock(mutex_);
    records_.clear();
}

std::vector<std::string> ScriptedDaemon::take_payloads() {
    wait_until_all_read();
    const std::lock_guard lock(mutex_);
    std::vector<std::string> payloads;
    for (const SizedRecord &record : records_)
        payloads.push_back(record.payload());
    records_.clear();
    return payloads;
}

void ScriptedDaemon::run() {
    const auto request = std::make_unique<SizedRecord>();
    while (true) {
        request->record = {};
        const ssize_t size = msgrcv(request_queue_, &request->record, raw_body_size, 0, 0);
        if (size < 0) {
            changed_.notify_all();
            return; // the queue is gone: the only way to end
        }
        if (request->record.mtype == barrier_mtype) {
            const std::lock_guard lock(mutex_);
            ++barriers_seen_;
            changed_.notify_all();
            continue;
        }
        request->msgsz = static_cast<std::size_t>(size);
        Replies replies;
        {
            const std::lock_guard lock(mutex_);
            records_.push_back(*request);
            replies = replies_for({request->record.type(), request->record.cmd()});
        }
        changed_.notify_all();
        for (const Reply &reply : replies) {
            if (!wait_before(reply))
                return;
            if (reply.die)
                die();
            else
                send(*request, reply);
        }
    }
}

Replies ScriptedDaemon::replies_for(const Key &key) {
    if (auto &queued = once_[key]; !queued.empty()) {
        Replies replies = std::move(queued.front());
        queued.pop_front();
        return replies;
    }
    const auto rule = rules_.find(key);
    return rule == rules_.end() ? Replies{Reply{}} : rule->second;
}

bool ScriptedDaemon::wait_before(const Reply &reply) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, reply.delay, [&] { return stopping_; });
    if (reply.held) {
        holding_ = true;
        changed_.notify_all();
        changed_.wait(lock, [&] { return stopping_ || released_ > 0; });
        holding_ = false;
        --released_;
    }
    return !stopping_;
}

void ScriptedDaemon::send(const SizedRecord &request, const Reply &reply) {
    const std::int32_t type = reply.type.value_or(request.record.type());
    const bool registration = request.record.type() == class_registration;
    const long module_queue = request.record.mtype;
    const SizedRecord record = make_record({
        .mtype = reply.mtype.value_or(registration ? module_queue : type),
        .type = type,
        .cmd = reply.cmd.value_or(request.record.cmd()),
        .dst = reply.dst,
        .src = reply.src,
        .result = reply.result,
        .aux = reply.aux,
        .arg = reply.arg,
        .payload = reply.payload,
        .len = reply.len,
        .msgsz = reply.msgsz,
    });
    const int queue =
        reply.queue.value_or(registration ? registration_queue_ : static_cast<int>(module_queue));
    // Not a blocking send: a module that reads nothing must not keep the test from ending.
    while (msgsnd(queue, &record.record, record.msgsz, IPC_NOWAIT) < 0 && errno == EAGAIN) {
        std::unique_lock lock(mutex_);
        if (changed_.wait_for(lock, std::chrono::milliseconds(1), [&] { return stopping_; }))
            return;
    }
}

} // namespace zan::test
