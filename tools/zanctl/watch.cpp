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

// The handlers have no argument for the caller's data.
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
    const std::string settings(2, '\0'); // flag and option: their meaning is the daemon's
    return {path, notify_request(ZAN_NOTIFY_REGISTER_VALUE, settings + path),
            notify_request(ZAN_NOTIFY_UNREGISTER_VALUE, path)};
}

Subscription event_subscription(int event) {
    std::string payload(sizeof(int32_t), '\0');
    std::memcpy(payload.data(), &event, payload.size());
    return {"event " + std::to_string(event), notify_request(ZAN_NOTIFY_REGISTER_EVENT, payload),
            notify_request(ZAN_NOTIFY_UNREGISTER_EVENT, payload)};
}

// Removes its subscriptions on destruction.
class Subscriptions {
public:
    Subscriptions(Session &session, const Options &options, Output &output)
        : session_(session), options_(options), output_(output) {}
    ~Subscriptions();
    Subscriptions(const Subscriptions &) = delete;
    Subscriptions &operator=(const Subscriptions &) = delete;

    bool add(const Subscription &subscription);

private:
    Session &session_;
    const Options &options_;
    Output &output_;
    std::deque<Subscription> active_;
};

bool Subscriptions::add(const Subscription &subscription) {
    try {
        session_.request(subscription.subscribe);
    } catch (const Refusal &refusal) {
        print_refusal(output_, options_, subscription.subject, refusal);
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
        } catch (const Refusal &refusal) {
            report(format_refusal(subscription.subject, refusal));
        } catch (const Error &) {
            return; // no answer: do not wait for those of the other subscriptions
        }
    }
}

bool subscribe_all(Subscriptions &subscriptions, const ArrivalOptions &options) {
    bool all = true;
    for (const std::string &path : options.paths)
        all = subscriptions.add(value_subscription(path)) && all;
    for (const int event : options.events)
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

void print(Output &output, const ArrivalOptions &options, Json json) {
    const std::string time = options.time ? time_text() : "";
    if (options.json()) {
        if (options.time)
            json["time"] = time;
        output.line(to_line(json));
    } else {
        output.line(options.time ? time + " " + plain_line(json) : plain_line(json));
    }
}

// Takes one record of each class that arrives unsolicited.
bool dispatch_queued() {
    static zan_msg record;
    bool dispatched = false;
    for (const int type : {ZAN_CLASS_NOTIFY, ZAN_CLASS_MESSAGE, ZAN_CLASS_BROADCAST})
        dispatched = zan_client_recv_msq_no_wait(&record, type, ZAN_BODY_SIZE) > 0 || dispatched;
    return dispatched;
}

// Also takes one from the agent's link.
bool dispatch_arrivals(const Session &session) {
    bool dispatched = dispatch_queued();
    if (session.has_link()) {
        const int result = zan_client_recv(g_ipc_handle, nullptr, 0);
        if (result < 0)
            session.report_lost_link();
        dispatched = result > 0 || dispatched;
    }
    return dispatched;
}

// Polls instead of starting a receive thread, which would take the answer to an
// unsubscription: it has the same queue type as a notification.
void print_arrivals(Session &session, const ArrivalOptions &options, Output &output) {
    unsigned printed = 0;
    while (interrupted() == 0) {
        const bool dispatched = dispatch_arrivals(session);
        for (; !arrived.empty(); arrived.pop_front()) {
            print(output, options, std::move(arrived.front()));
            if (++printed == options.count)
                return;
        }
        if (!dispatched) {
            session.require_connection();
            std::this_thread::sleep_for(poll_interval);
        }
    }
}

ExitCode run(const char *ready, Session &session, const ArrivalOptions &options, Output &output) {
    zan_set_value_changed_handler2(on_value_changed);
    zan_set_event_handler(on_event);
    Subscriptions subscriptions(session, options, output);
    if (!subscribe_all(subscriptions, options))
        return ExitCode::refused;
    // A script waits for this line before it changes or sends something.
    report(ready);
    print_arrivals(session, options, output);
    return ExitCode::done;
}

} // namespace

ExitCode run_watch(Session &session, const ArrivalOptions &options, Output &output) {
    return run("watching", session, options, output);
}

ExitCode run_listen(Session &session, const ArrivalOptions &options, Output &output) {
    if (options.agent)
        session.register_agent();
    zan_set_message_handler(on_message);
    return run("listening", session, options, output);
}

} // namespace zan::ctl
