// SPDX-License-Identifier: MIT
#include "support/worker.h"

#include "support/patience.h"
#include "support/threads.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace zan::test {

namespace {

void install_interrupt_handler() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);
}

} // namespace

struct Worker::State {
    std::atomic<pid_t> thread{0};
    std::atomic<bool> done{false};
};

Worker::Worker(std::function<void()> work) : state_(std::make_shared<State>()) {
    install_interrupt_handler();
    thread_ = std::thread([state = state_, work = std::move(work)] {
        state->thread = gettid();
        work();
        state->done = true;
    });
}

Worker::~Worker() {
    if (!thread_.joinable())
        return;
    if (!wait_until_done()) {
        std::fprintf(stderr, "a worker thread of the test does not end\n");
        std::abort();
    }
    thread_.join();
}

bool Worker::done() const {
    return state_->done;
}

bool Worker::wait_until_done() const {
    return eventually([this] { return done(); });
}

bool Worker::wait_until_blocked() const {
    return eventually([this] { return done() || is_blocked(state_->thread); }) && !done();
}

void Worker::interrupt() {
    send(SIGUSR1);
}

bool Worker::interrupt_until_done() {
    return eventually([this] {
        if (!done())
            interrupt();
        return done();
    });
}

void Worker::send(int signal) {
    if (thread_.joinable())
        pthread_kill(thread_.native_handle(), signal);
}

void Worker::abandon() {
    if (thread_.joinable())
        thread_.detach();
}

LockProbe::LockProbe(void (*lock)(), void (*unlock)())
    : worker_([=] {
          lock();
          unlock();
      }) {}

bool LockProbe::is_free() const {
    worker_.wait_until_blocked();
    return worker_.done();
}

} // namespace zan::test
