// SPDX-License-Identifier: MIT
#pragma once

#include "base/turn_lock.h"

#include <cassert>
#include <concepts>
#include <mutex>
#include <utility>

namespace zan::sim {

// Refers to a value that is reachable only while its lock is held.
template<typename T> class LockedRef {
public:
    LockedRef(TurnLock &lock, T &value) : lock_(&lock), value_(&value) {}
    template<std::derived_from<T> Derived>
    LockedRef(const LockedRef<Derived> &other) : lock_(other.lock_), value_(other.value_) {}

    // Holds the lock, and is the only way to the value.
    class Guard {
    public:
        T *operator->() const { return get(); }
        T &operator*() const { return *get(); }

        // The value is out of reach between the two.
        void unlock() { lock_.unlock(); }
        void lock() { lock_.lock(); }

        // Lets waiting threads go first.
        void yield_to_waiters() { lock_.mutex()->yield_to_waiters(); }

    private:
        friend class LockedRef;
        Guard(TurnLock &lock, T *value) : lock_(lock), value_(value) {}

        T *get() const {
            assert(lock_.owns_lock());
            return value_;
        }

        std::unique_lock<TurnLock> lock_;
        T *value_;
    };

    // Waits for the lock.
    Guard lock() const { return Guard(*lock_, value_); }

private:
    template<typename> friend class LockedRef;

    TurnLock *lock_;
    T *value_;
};

// A value with its lock.  The value is constructed with a reference to itself, for
// work that it leaves to other threads.
template<typename T> class Locked {
public:
    using Guard = typename LockedRef<T>::Guard;

    template<typename... Args>
    explicit Locked(Args &&...args) : value_(ref(), std::forward<Args>(args)...) {}
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

    LockedRef<T> ref() { return {lock_, value_}; }
    Guard lock() { return ref().lock(); }

private:
    TurnLock lock_; // outlives the value, whose end may wait for threads that lock
    T value_;
};

} // namespace zan::sim
