// SPDX-License-Identifier: MIT
#include "housekeeping.h"

#include "base/file.h"
#include "tree/tree_file.h"

#include <algorithm>

namespace zan::sim {

namespace {

using namespace std::chrono_literals;

constexpr auto save_period = 1s;
constexpr auto look_period = 500ms;
// A queue that stays full is tried less and less often.
constexpr auto shortest_retry = 5ms;
constexpr auto longest_retry = 100ms;

} // namespace

Housekeeping::Housekeeping(Daemon &daemon, QueueLink &link, std::string save_file, Trace &trace)
    : daemon_(daemon), link_(link), trace_(trace), save_file_(std::move(save_file)),
      saved_version_(daemon.tree_version()), retry_pause_(shortest_retry),
      thread_([this] { run(); }) {}

Housekeeping::~Housekeeping() {
    {
        const auto guard = daemon_.lock();
        stopping_ = true;
        daemon_.work.notify_one();
    }
    thread_.join();
}

void Housekeeping::run() {
    auto guard = daemon_.lock();
    while (!stopping_) {
        // Many changes are one reason to save.
        daemon_.change_awaited = !save_file_.empty() && !unsaved();
        // Woken early only to look whether something is due earlier now.
        if (const auto next = next_task())
            daemon_.work.wait_until(guard, *next);
        else
            daemon_.work.wait(guard);
        if (stopping_)
            break;
        daemon_.serve_postponed(Clock::now());
        if (next_retry_ && Clock::now() >= *next_retry_)
            send_backlog();
        if (next_look_ && Clock::now() >= *next_look_) {
            next_look_.reset();
            daemon_.look_after_askers(Clock::now());
        }
        if (unsaved() && Clock::now() >= last_save_ + save_period)
            save(guard);
    }
    if (unsaved())
        save(guard);
}

bool Housekeeping::unsaved() const {
    return !save_file_.empty() && saved_version_ != daemon_.tree_version();
}

std::optional<Housekeeping::Clock::time_point> Housekeeping::next_task() {
    if (link_.has_backlog() && !next_retry_)
        next_retry_ = Clock::now() + retry_pause_;
    if (daemon_.management.is_awaited() && !next_look_)
        next_look_ = Clock::now() + look_period;
    auto next = daemon_.next_postponed();
    const auto consider = [&](Clock::time_point time) {
        next = next ? std::min(*next, time) : time;
    };
    if (next_retry_)
        consider(*next_retry_);
    if (next_look_)
        consider(*next_look_);
    if (unsaved())
        consider(last_save_ + save_period);
    return next;
}

void Housekeeping::send_backlog() {
    next_retry_.reset();
    for (const int queue : link_.flush())
        daemon_.forget({&link_, queue});
    retry_pause_ = link_.has_backlog() ? std::min<Clock::duration>(retry_pause_ * 2, longest_retry)
                                       : shortest_retry;
}

void Housekeeping::save(Daemon::Guard &guard) {
    const std::uint64_t version = daemon_.tree_version();
    const std::string text = format_tree(daemon_.tree);
    // The disk may be slow; modules do not wait for it.
    guard.unlock();
    const auto done = write_atomically(save_file_, text);
    guard.lock();
    last_save_ = Clock::now();
    if (done)
        saved_version_ = version;
    else if (!save_failed_)
        trace_.warn(done.error().text);
    save_failed_ = !done;
}

} // namespace zan::sim
