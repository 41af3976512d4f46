// SPDX-License-Identifier: MIT
//
// A module on a libevent loop: prints the number of user accounts whenever one of them
// changes, and once at the start, without blocking the loop, until SIGINT or SIGTERM.
#include <zan.hpp>

#include <csignal>
#include <cstdio>
#include <event2/event.h>
#include <memory>

namespace {

constexpr const char *module_name = "libevent_watcher";
constexpr const char *users = "/sys/user";

template<auto release> struct Release {
    template<typename T> void operator()(T *object) const { release(object); }
};
using Loop = std::unique_ptr<event_base, Release<event_base_free>>;
using Event = std::unique_ptr<event, Release<event_free>>;

void print_count(zan::Module &module) {
    const auto started =
        module.async([](zan::Module &asked) { return asked.count(users); },
                     [](const zan::Result<int> &count) {
                         if (count)
                             std::printf("%d user accounts\n", *count);
                         else
                             std::printf("not counted: %s\n", count.error().message().c_str());
                         std::fflush(stdout); // also when the output is a pipe
                     });
    if (!started)
        std::fprintf(stderr, "%s: %s\n", module_name, started.error().message().c_str());
}

void on_readable(evutil_socket_t /*fd*/, short /*what*/, void *module) {
    static_cast<zan::Module *>(module)->dispatch();
}

void on_signal(evutil_socket_t /*number*/, short /*what*/, void *loop) {
    event_base_loopbreak(static_cast<event_base *>(loop));
}

} // namespace

int main() {
    const Loop loop(event_base_new());
    zan::Module module(module_name);
    if (!module) {
        std::fprintf(stderr, "%s: %s\n", module_name,
                     module.registration().error().message().c_str());
        return 1;
    }
    const auto changes = module.on_change(users, [&](const zan::Change &) { print_count(module); });
    if (!changes) {
        std::fprintf(stderr, "%s: %s\n", module_name, changes.error().message().c_str());
        return 1;
    }

    const Event readable(
        event_new(loop.get(), module.fd(), EV_READ | EV_PERSIST, on_readable, &module));
    const Event interrupt(evsignal_new(loop.get(), SIGINT, on_signal, loop.get()));
    const Event terminate(evsignal_new(loop.get(), SIGTERM, on_signal, loop.get()));
    for (const Event *event : {&readable, &interrupt, &terminate})
        event_add(event->get(), nullptr);
    print_count(module);
    event_base_dispatch(loop.get());
}
