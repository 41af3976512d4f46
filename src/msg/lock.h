// SPDX-License-Identifier: MIT
#pragma once

#include "zan.h"

namespace zan {

class ApiLock {
public:
    ApiLock() { zan_api_lock(); }
    ~ApiLock() { zan_api_unlock(); }
    ApiLock(const ApiLock &) = delete;
    ApiLock &operator=(const ApiLock &) = delete;
};

class QueueLock {
public:
    QueueLock() { zan_msq_lock(); }
    ~QueueLock() { zan_msq_unlock(); }
    QueueLock(const QueueLock &) = delete;
    QueueLock &operator=(const QueueLock &) = delete;
};

} // namespace zan
