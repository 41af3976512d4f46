// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace zan::sim {

// Works with files of modules on a thread of its own, so that only the requester waits
// for the disk.  Requests are done one after the other in their order: the file saved
// last remains, and is what is read next.
class FileWork {
public:
    using Piece = std::function<void()>;

    FileWork() = default;
    ~FileWork() { finish(); }
    FileWork(const FileWork &) = delete;
    FileWork &operator=(const FileWork &) = delete;

    // Fails if too many are waiting, or after finish().
    Result<Done> add(Piece piece);

    // Waits until everything is done; accepts nothing from then on.
    void finish();

private:
    void run();

    std::mutex mutex_; // guards the following
    std::condition_variable changed_;
    std::deque<Piece> waiting_;
    bool finishing_ = false;
    std::thread thread_; // started with the first piece
};

} // namespace zan::sim
