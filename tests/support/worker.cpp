// SPDX-License-Identifier: MIT
#include "support/worker.h"

#include "support/patience.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace zan::test {

namespace {

bool asleep(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    const size_t name_end = line.rfind(')');
    return name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
}

// One sleeping moment may be a page fault or the allocator; a thread that waits
// for an event is found asleep every time.
class Sightings {
public:
    bool suffice_with(pid_t thread) {
        in_a_row_ = thread != 0 && asleep(thread) ? in_a_row_ + 1 : 0;
        return in_a_row_ >= needed;
    }

private:
    static constexpr int needed = 30;
    int in_a_row_ = 0;
};

void install_interrupt_handler() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);
}

} // namespace

bool wait_until_asleep(pid_t thread) {
    Sightings sightings;
    return eventually([&] { return sightings.suffice_with(thread); });
}

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
    Sightings sightings;
    return eventually([&] { return done() || sightings.suffice_with(state_->thread); }) && !done();
}

void Worker::interrupt() {
    send(SIGUSR1);
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
