// SPDX-License-Identifier: MIT
#include "host/file_work.h"

namespace zan::sim {

namespace {

// Each may contain a whole tree.
constexpr std::size_t max_waiting = 64;

} // namespace

Result<Done> FileWork::add(Piece piece) {
    const std::lock_guard guard(mutex_);
    if (finishing_)
        return Error{file_failed, "zansim is ending"};
    if (waiting_.size() >= max_waiting)
        return Error{file_failed,
                     "already " + std::to_string(max_waiting) + " requests wait for the disk"};
    waiting_.push_back(std::move(piece));
    if (!thread_.joinable())
        thread_ = std::thread([this] { run(); });
    changed_.notify_one();
    return Done{};
}

void FileWork::run() {
    std::unique_lock guard(mutex_);
    for (;;) {
        changed_.wait(guard, [this] { return finishing_ || !waiting_.empty(); });
        if (waiting_.empty())
            return;
        {
            const Piece piece = std::move(waiting_.front());
            waiting_.pop_front();
            guard.unlock();
            piece();
        }
        guard.lock();
    }
}

void FileWork::finish() {
    {
        const std::lock_guard guard(mutex_);
        finishing_ = true;
        changed_.notify_one();
    }
    if (thread_.joinable())
        thread_.join();
}

} // namespace zan::sim
