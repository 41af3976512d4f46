// SPDX-License-Identifier: MIT
#include "watch.h"

#include "interrupt.h"
#include "json.h"
#include "notification.h"
#include "printable.h"
#include "run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <system_error>
#include <thread>

namespace zan::ctl {
namespace {

constexpr auto poll_interval = std::chrono::milliseconds(20);

// Filled by the handlers, which have no argument of the caller's.
std::deque<Json> arrived;

int on_value_changed(char *f1, char *f2, char *f3, char *f6, int f4, int f5) {
    const Change change = decode_change(f1, f2, f3, f6, f4, f5);
    Json json = {{"change", kind_text(change.kind)},
                 {"path", change.path},
                 {"value", change.value},
                 {"source", change.source},
                 {"option", change.option},
                 {"subscribed", change.subscribed}};
    if (change.cut)
        json["cut"] = true;
    arrived.push_back(std::move(json));
    return 0;
}

int on_event(int event, int /*type*/) {
    arrived.push_back({{"event", event}});
    return 0;
}

int on_message(char *data, int len, zan_body *body) {
    const char *const kind = body->type == ZAN_CLASS_BROADCAST ? "broadcast" : "message";
    const std::size_t length = static_cast<std::size_t>(std::clamp(len, 0, int{ZAN_DATA_SIZE}));
    arrived.push_back({{kind, std::string(data, length)},
                       {"source", std::string(body->src, strnlen(body->src, ZAN_NAME_SIZE))}});
    return 0;
}

// ---- subscriptions

struct Subscription {
    std::string subject;
    Request subscribe;
    Request unsubscribe;
};

Request notify_request(zan_notify_cmd cmd, std::string payload) {
    return {ZAN_CLASS_NOTIFY, cmd, ZAN_MODULE_CORE, std::move(payload)};
}

Subscription value_subscription(const std::string &path) {
    const std::string settings(2, '\0'); // flag and option, which only the daemon knows
    return {path, notify_request(ZAN_NOTIFY_REGISTER_VALUE, settings + path),
            notify_request(ZAN_NOTIFY_UNREGISTER_VALUE, path)};
}

Subscription event_subscription(int event) {
    std::string payload(sizeof(int32_t), '\0');
    std::memcpy(payload.data(), &event, payload.size());
    return {"event " + std::to_string(event), notify_request(ZAN_NOTIFY_REGISTER_EVENT, payload),
            notify_request(ZAN_NOTIFY_UNREGISTER_EVENT, payload)};
}

// Takes every subscription back when it goes.
class Subscriptions {
public:
    explicit Subscriptions(Session &session) : session_(session) {}
    ~Subscriptions();
    Subscriptions(const Subscriptions &) = delete;
    Subscriptions &operator=(const Subscriptions &) = delete;

    bool add(const Subscription &subscription);

private:
    Session &session_;
    std::deque<Subscription> active_;
};

bool Subscriptions::add(const Subscription &subscription) {
    try {
        session_.request(subscription.subscribe);
    } catch (const Refused &refusal) {
        print_refusal(subscription.subject, refusal);
        return false;
    }
    active_.push_back(subscription);
    return true;
}

Subscriptions::~Subscriptions() {
    ignore_signals();
    for (const Subscription &subscription : active_) {
        if (!session_.connected())
            return;
        try {
            session_.request(subscription.unsubscribe);
        } catch (const Refused &refusal) {
            print_refusal(subscription.subject, refusal);
        } catch (const Failure &) {
            return; // no answer: waiting for the next one would only take longer
        }
    }
}

bool subscribe_all(Subscriptions &subscriptions, const Arguments &arguments) {
    bool all = true;
    for (const std::string &path : arguments.paths)
        all = subscriptions.add(value_subscription(path)) && all;
    for (const int event : arguments.events)
        all = subscriptions.add(event_subscription(event)) && all;
    return all;
}

// ---- printing

// Local time to the millisecond, as in 2025-01-31T12:00:00.250+0100.
std::string time_text() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    char zone[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone, sizeof zone, "%z", &local);
    char text[64];
    std::snprintf(text, sizeof text, "%s.%03ld%s", date, now.tv_nsec / 1'000'000, zone);
    return text;
}

std::string followed_by(const std::string &head, const std::string &text) {
    return text.empty() ? head : head + " " + printable(text);
}

std::string plain_line(const Json &json) {
    if (json.contains("event"))
        return "event " + std::to_string(json["event"].get<int>());
    for (const std::string kind : {"message", "broadcast"})
        if (json.contains(kind))
            return followed_by(kind + " " + printable(json["source"].get<std::string>()),
                               json[kind]);
    const std::string line = followed_by(
        json["change"].get<std::string>() + " " + json["path"].get<std::string>(), json["value"]);
    return json.contains("cut") ? line + "..." : line;
}

void print(Output &output, const Arguments &arguments, Json json) {
    const std::string time = arguments.time ? time_text() : "";
    if (arguments.json) {
        if (arguments.time)
            json["time"] = time;
        output.line(to_line(json));
    } else {
        output.line(arguments.time ? time + " " + plain_line(json) : plain_line(json));
    }
}

// Of each class that comes unasked, one.
bool dispatch_queued() {
    static zan_msg record;
    bool dispatched = false;
    for (const int type : {ZAN_CLASS_NOTIFY, ZAN_CLASS_MESSAGE, ZAN_CLASS_BROADCAST})
        dispatched = zan_client_recv_msq_no_wait(&record, type, ZAN_BODY_SIZE) > 0 || dispatched;
    return dispatched;
}

// Also of those that the link has.
bool dispatch_arrivals(const Session &session) {
    bool dispatched = dispatch_queued();
    if (session.has_link()) {
        const int result = zan_client_recv(g_ipc_handle, nullptr, 0);
        if (result < 0)
            session.lose_link();
        dispatched = result > 0 || dispatched;
    }
    return dispatched;
}

// Polled, because the answer to an unsubscription arrives on the same type as
// the notifications: a receive thread would take it.
void print_arrivals(Session &session, const Arguments &arguments, Output &output) {
    unsigned printed = 0;
    while (interrupted() == 0) {
        const bool dispatched = dispatch_arrivals(session);
        for (; !arrived.empty(); arrived.pop_front()) {
            print(output, arguments, std::move(arrived.front()));
            if (++printed == arguments.count)
                return;
        }
        if (!dispatched) {
            session.require_connection();
            std::this_thread::sleep_for(poll_interval);
        }
    }
}

int run(const char *ready, Session &session, const Arguments &arguments, Output &output) {
    zan_set_value_changed_handler2(on_value_changed);
    zan_set_event_handler(on_event);
    Subscriptions subscriptions(session);
    if (!subscribe_all(subscriptions, arguments))
        return exit_refused;
    // For those who change or send something from here on.
    std::fprintf(stderr, "zanctl: %s\n", ready);
    print_arrivals(session, arguments, output);
    return exit_done;
}

} // namespace

int run_watch(Session &session, const Arguments &arguments, Output &output) {
    return run("watching", session, arguments, output);
}

int run_listen(Session &session, const Arguments &arguments, Output &output) {
    zan_set_message_handler(on_message);
    return run("listening", session, arguments, output);
}

} // namespace zan::ctl
