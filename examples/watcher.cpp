// SPDX-License-Identifier: MIT
//
// A module that waits for a change: registers, subscribes to the name of the
// Wi-Fi network, prints the new name when it changes, and unregisters.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <zan.h>

namespace {

constexpr const char *module_name = "watcher";
constexpr const char *ssid_path = "/InternetGatewayDevice/LANDevice:1/WLANConfiguration:1/SSID";

volatile std::sig_atomic_t interrupted = 0;
std::string changed_by;

extern "C" void on_signal(int /*number*/) {
    interrupted = 1;
}

// A handler notes what happened and leaves the work to the main thread.  Under the
// receive thread of zan_thread_create() it runs with the queue lock held, so that
// zan_send() would deadlock here; configuration requests would not.
int on_value_changed(char *source, char * /*path*/, char * /*value*/, char * /*subscribed*/,
                     int /*kind*/) {
    changed_by = source;
    return 0;
}

// Unregisters when the program ends, because queues outlive their process.
class Registration {
public:
    Registration() : result_(zan_register(module_name, 0)) {}
    ~Registration() {
        if (result_ >= 0)
            zan_unregister(module_name, 0);
    }
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;

    int result() const { return result_; }

private:
    int result_;
};

// Polls for notifications.  A module could start the receive thread instead, with
// zan_thread_create().  It must then subscribe before the thread starts and
// unsubscribe after the thread is cancelled, because the thread would consume the
// answers to these requests.
void wait_for_change() {
    while (changed_by.empty() && interrupted == 0) {
        if (zan_recv_notify_msq() == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

void print_change() {
    char name[64];
    if (cfg_getstr(name, sizeof name, "%s", ssid_path) == 1)
        std::printf("%s changed the Wi-Fi network's name to: %s\n", changed_by.c_str(), name);
}

} // namespace

int main() {
    std::signal(SIGINT, on_signal);
    std::signal(SIGTERM, on_signal);

    const Registration registration;
    if (registration.result() < 0) {
        std::fprintf(stderr, "%s: registering failed with %d\n", module_name,
                     registration.result());
        return 1;
    }

    // Install the handler before subscribing, so that no notification is lost.
    zan_set_value_changed_handler(on_value_changed);
    const int subscribed = zan_notify_register_value_changed(ssid_path, 0, 0);
    if (subscribed < 0) {
        std::fprintf(stderr, "%s: subscribing failed with %d\n", module_name, subscribed);
        return 1;
    }
    std::printf("watching %s\n", ssid_path);
    std::fflush(stdout); // a reader of a pipe may wait for this line

    wait_for_change();
    if (!changed_by.empty())
        print_change();

    return zan_notify_unregister_value_changed(ssid_path) < 0 ? 1 : 0;
}
