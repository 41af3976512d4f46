// SPDX-License-Identifier: MIT
//
// A module on an event loop of plain epoll: prints each new name of the Wi-Fi network,
// answers messages, and reads values without blocking the loop, until SIGINT or SIGTERM.
// It stays registered over restarts of the daemon.
#include <zan.hpp>

#include <cstdio>
#include <string>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

constexpr const char *module_name = "epoll_watcher";
const zan::Path lan = zan::Path("/InternetGatewayDevice/LANDevice")[1];
const zan::Path ssid = (lan / "WLANConfiguration")[1] / "SSID";

void say(const std::string &line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout); // also when the output is a pipe
}

// SIGINT and SIGTERM as a descriptor.
int open_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

void add(int loop, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(loop, EPOLL_CTL_ADD, fd, &event);
}

// Asks on a thread of the module's; the completion runs on the loop.
void print_name(zan::Module &module, const std::string &changed_by) {
    const auto started =
        module.async([](zan::Module &asked) { return asked.get(ssid); },
                     [changed_by](const zan::Result<std::string> &name) {
                         say(changed_by + " changed the Wi-Fi network's name to: " +
                             (name ? *name : name.error().message()));
                     });
    if (!started)
        say(started.error().message());
}

void run(zan::Module &module, int signals) {
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    add(loop, module.fd());
    add(loop, signals);
    for (;;) {
        epoll_event event{};
        if (epoll_wait(loop, &event, 1, -1) != 1)
            continue;
        if (event.data.fd == signals)
            break;
        module.dispatch();
    }
    close(loop);
}

} // namespace

int main() {
    const int signals = open_signals();
    zan::Module module(module_name);
    if (!module) {
        std::fprintf(stderr, "%s: %s\n", module_name,
                     module.registration().error().message().c_str());
        return 1;
    }

    const auto changes = module.on_change(
        ssid, [&](const zan::Change &change) { print_name(module, change.source); });
    const auto messages = module.on_message([&](const zan::Message &message) {
        say(message.source + " says: " + message.data);
        // Returns at once unless the daemon's queue is full.
        if (const auto sent = module.send(message.source, "heard"); !sent)
            say("not answered: " + sent.error().message());
    });
    if (!changes || !messages) {
        std::fprintf(stderr, "%s: %s\n", module_name,
                     (changes ? messages : changes).error().message().c_str());
        return 1;
    }
    say("watching " + ssid.text());
    run(module, signals);
    close(signals);
}
