// SPDX-License-Identifier: MIT
#include "housekeeping.h"

#include "base/file.h"
#include "tree/tree_file.h"

#include <algorithm>

namespace zan::sim {

namespace {

using namespace std::chrono_literals;

constexpr auto save_period = 1s;
constexpr auto expiry_period = 500ms;
// The pause doubles while a queue stays full.
constexpr auto min_retry_pause = 5ms;
constexpr auto max_retry_pause = 100ms;

} // namespace

Housekeeping::Housekeeping(Locked<Daemon> &daemon, QueueTransport &queues, std::string save_file,
                           Log &log)
    : daemon_(daemon), queues_(queues), log_(log), save_file_(std::move(save_file)),
      saved_version_(daemon.lock()->tree_version()), retry_pause_(min_retry_pause),
      thread_([this] { run(); }) {}

Housekeeping::~Housekeeping() {
    {
        const auto daemon = daemon_.lock();
        stopping_ = true;
        daemon->work.notify_one();
    }
    thread_.join();
}

void Housekeeping::run() {
    Guard daemon = daemon_.lock();
    while (!stopping_) {
        // While a save is due anyway, further changes need not wake this thread.
        daemon->change_awaited = !save_file_.empty() && !unsaved(*daemon);
        // May be woken early because something has become due earlier.
        if (const auto next = next_task(*daemon))
            daemon->work.wait_until(daemon, *next);
        else
            daemon->work.wait(daemon);
        if (stopping_)
            break;
        daemon->serve_postponed(Clock::now());
        if (next_retry_ && Clock::now() >= *next_retry_)
            send_backlog(*daemon);
        if (next_expiry_check_ && Clock::now() >= *next_expiry_check_) {
            next_expiry_check_.reset();
            daemon->expire_pending(Clock::now());
        }
        if (unsaved(*daemon) && Clock::now() >= last_save_ + save_period)
            save(daemon);
    }
    if (unsaved(*daemon))
        save(daemon);
}

bool Housekeeping::unsaved(const Daemon &daemon) const {
    return !save_file_.empty() && saved_version_ != daemon.tree_version();
}

std::optional<Housekeeping::Clock::time_point> Housekeeping::next_task(const Daemon &daemon) {
    if (queues_.has_backlog() && !next_retry_)
        next_retry_ = Clock::now() + retry_pause_;
    if (daemon.management.is_awaited() && !next_expiry_check_)
        next_expiry_check_ = Clock::now() + expiry_period;
    auto next = daemon.next_postponed();
    const auto consider = [&](Clock::time_point time) {
        next = next ? std::min(*next, time) : time;
    };
    if (next_retry_)
        consider(*next_retry_);
    if (next_expiry_check_)
        consider(*next_expiry_check_);
    if (unsaved(daemon))
        consider(last_save_ + save_period);
    return next;
}

void Housekeeping::send_backlog(Daemon &daemon) {
    next_retry_.reset();
    for (const int queue : queues_.flush())
        daemon.forget({&queues_, queue});
    retry_pause_ = queues_.has_backlog()
                       ? std::min<Clock::duration>(retry_pause_ * 2, max_retry_pause)
                       : min_retry_pause;
}

void Housekeeping::save(Guard &daemon) {
    const std::uint64_t version = daemon->tree_version();
    const std::string text = format_tree(daemon->tree);
    // Modules must not wait for a slow disk.
    daemon.unlock();
    const auto done = write_atomically(save_file_, text);
    daemon.lock();
    last_save_ = Clock::now();
    if (done)
        saved_version_ = version;
    else if (!save_failed_)
        log_.warn(done.error().text);
    save_failed_ = !done;
}

} // namespace zan::sim
