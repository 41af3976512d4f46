// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace zan::sim {

// Work with files of modules, on a thread of its own: nobody waits for the disk but who
// asked for it.  One piece is done after the other, in the order in which they came, so
// that the file that was saved last stays, and is what is read next.
class FileWork {
public:
    using Piece = std::function<void()>;

    FileWork() = default;
    ~FileWork() { finish(); }
    FileWork(const FileWork &) = delete;
    FileWork &operator=(const FileWork &) = delete;

    // Refused when too much waits, or after the end.
    Result<Done> add(Piece piece);

    // Returns when everything is done; nothing more is taken.
    void finish();

private:
    void run();

    std::mutex mutex_; // over all of this
    std::condition_variable changed_;
    std::deque<Piece> waiting_;
    bool finishing_ = false;
    std::thread thread_; // once there has been something to do
};

} // namespace zan::sim
