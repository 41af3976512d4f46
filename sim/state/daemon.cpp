// SPDX-License-Identifier: MIT
#include "state/daemon.h"

#include "base/process.h"
#include "base/text.h"
#include "request/services.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace zan::sim {

namespace {

// The longest fields of a notification that the receiver keeps.
constexpr std::size_t source_field = ZAN_NAME_SIZE - 1;
constexpr std::size_t value_field = 1023;

// The size of all delayed requests; beyond it, requests are served at once.
constexpr std::size_t max_postponed_bytes = 32U << 20U;

std::string command_text(const Record &record) {
    const std::string_view name = class_name(record.type);
    if (name.empty())
        return "unknown class " + std::to_string(record.type);
    const Service *const service = find_service(record.type, record.cmd);
    if (service == nullptr)
        return "unknown command " + std::to_string(record.cmd) + " of class " + std::string(name);
    return std::string(name) + ' ' + std::string(service->name) + " is not served";
}

Result<std::string> outcome_of(Daemon &daemon, const Requester &requester,
                               const Received &received) {
    if (!received.error.empty())
        return Error{malformed, "malformed record: " + received.error};
    const Service *const service = find_service(received.record.type, received.record.cmd);
    if (service == nullptr || service->handler == nullptr)
        return Error{unknown_command, command_text(received.record)};
    return service->handler(daemon, {received.record, requester});
}

} // namespace

Daemon::Daemon(Shared self, Tree tree_to_serve, Trace &trace, FileWork &work_with_disk)
    : tree(std::move(tree_to_serve)), defaults(tree), saved(std::make_shared<const Tree>(tree)),
      file_work(work_with_disk), self_(self), trace_(trace) {}

Daemon::~Daemon() {
    shell.end();
    file_work.finish();
}

void Daemon::serve(const Peer &peer, const Received &received) {
    const Record &request = received.record;
    ++statistics.requests;
    trace_.received(peer, received);
    // The pid of a registration is its instance.
    if (request.type != ZAN_CLASS_REGISTRATION && received.error.empty()) {
        if (Module *const module = modules.find(peer))
            module->pid = request.pid;
    }
    const Effect effect = matching_effect(received);
    if (effect.delay.count() != 0)
        postpone(peer, received, effect);
    else
        execute(peer, received, effect);
}

Effect Daemon::matching_effect(const Received &received) {
    if (faults.empty() || !received.error.empty())
        return {};
    const Record &request = received.record;
    const std::string_view subject = subject_of(request);
    // Requests to zansim's own branch stay possible, or rules could not be removed.
    if (is_reserved(subject))
        return {};
    const Fault *const fault = faults.match({request.type, request.cmd, subject, request.src});
    if (fault == nullptr)
        return {};
    ++statistics.faults;
    trace_.note("fault injected: " + fault->text);
    return fault->effect;
}

void Daemon::postpone(const Peer &peer, const Received &received, const Effect &effect) {
    const std::size_t size = sizeof(Postponed) + received.record.payload.size();
    if (postponed_bytes_ + size > max_postponed_bytes) {
        trace_.note("not delayed: too many requests are delayed already");
        return execute(peer, received, effect);
    }
    postponed_bytes_ += size;
    postponed_.emplace(Clock::now() + effect.delay, Postponed{peer, received, effect});
    work.notify_one();
}

std::optional<Daemon::Clock::time_point> Daemon::next_postponed() const {
    if (postponed_.empty())
        return std::nullopt;
    return postponed_.begin()->first;
}

void Daemon::serve_postponed(Clock::time_point now) {
    while (!postponed_.empty() && postponed_.begin()->first <= now) {
        const auto node = postponed_.extract(postponed_.begin());
        const Postponed &due = node.mapped();
        postponed_bytes_ -= sizeof due + due.received.record.payload.size();
        execute(due.peer, due.received, due.effect);
    }
}

void Daemon::execute(const Peer &peer, const Received &received, const Effect &effect) {
    using Kind = Effect::Kind;
    const Record &request = received.record;
    if (effect.kind == Kind::die)
        die();
    if (effect.kind == Kind::drop)
        return;
    const Requester requester{.peer = peer,
                              .name = request.src,
                              .type = request.type,
                              .cmd = request.cmd,
                              .awaited = is_awaited(request),
                              .answer_fault = {.lost = effect.kind == Kind::mute,
                                               .header_only = effect.kind == Kind::header_only,
                                               .wrong_first = effect.kind == Kind::wrong_first}};
    const Result<std::string> outcome = effect.kind == Kind::fail
                                            ? Error{effect.code, effect.text}
                                            : outcome_of(*this, requester, received);
    if (outcome && find_service(request.type, request.cmd)->reply == Reply::by_handler)
        return;
    finish(requester, outcome);
}

void Daemon::finish(const Requester &requester, const Result<std::string> &outcome) {
    if (requester.awaited)
        answer(requester, outcome);
    else if (!outcome)
        trace_.note("no answer to " + requester.name + ": " + outcome.error().text);
}

// As if killed: saves nothing and cleans up nothing.
void Daemon::die() {
    trace_.warn("an injected fault ends zansim");
    kill(getpid(), SIGKILL);
    std::abort();
}

void Daemon::answer(const Requester &requester, const Result<std::string> &outcome) {
    Record answer = answer_to(requester);
    answer.result = outcome ? 1 : outcome.error().code;
    answer.payload = outcome ? *outcome : outcome.error().text.substr(0, ZAN_PATH_SIZE - 1);
    const std::size_t size = answer.payload.size();
    const Service *const service = find_service(requester.type, requester.cmd);
    // Without payload the receiver would keep the text of the record before.
    if (outcome && answer.payload.empty() && service->answer == PayloadForm::text)
        answer.payload.assign(1, '\0');
    if (pass_answer(requester, std::move(answer)) == Delivery::too_long && outcome)
        this->answer(requester, Error{answer_too_long,
                                      "answer of " + std::to_string(size) + " bytes is too long"});
}

Delivery Daemon::pass_answer(const Requester &requester, Record record) {
    if (requester.answer_fault.lost) {
        trace_.note("the answer to " + requester.name + " is suppressed");
        return Delivery::dropped;
    }
    if (requester.answer_fault.wrong_first) {
        Record wrong = record;
        ++wrong.cmd;
        wrong.payload = "answer to another command";
        send_answer(requester.peer, wrong);
    }
    if (requester.answer_fault.header_only)
        record.payload.clear();
    return send_answer(requester.peer, record);
}

Delivery Daemon::send_answer(const Peer &peer, const Record &record) {
    trace_.sent(peer, record);
    if (record.payload.size() > ZAN_DATA_SIZE)
        return Delivery::too_long;
    if (record.type == ZAN_CLASS_REGISTRATION)
        note_collector(*peer.transport); // of the answer before this one
    const Delivery delivery = count_delivery(peer, peer.transport->answer(peer.endpoint, record));
    if (record.type == ZAN_CLASS_REGISTRATION)
        note_collector(*peer.transport);
    return delivery;
}

void Daemon::touch() {
    ++tree_version_;
    if (!change_awaited)
        return;
    change_awaited = false;
    work.notify_one();
}

void Daemon::replace_tree(std::string_view source, Tree next) {
    const std::vector<TreeChange> changes = changes_between(tree, next);
    tree = std::move(next);
    touch();
    for (const TreeChange &change : changes)
        announce(source, change.path, change.kind, change.value);
}

void Daemon::announce(std::string_view source, std::string_view path, ChangeKind change,
                      std::string_view value) {
    touch();
    const auto elements = parse_path(path);
    if (!elements)
        return;
    const std::string head = encode_field(source, source_field) + ' ' + std::string(path) + ' ' +
                             encode_field(value, value_field) + ' ' +
                             std::to_string(static_cast<int>(change)) + ' ';
    for (const Watch &watch : subscriptions.watching(*elements, change == ChangeKind::deleted))
        notify(watch.peer, ZAN_NOTIFY_VALUE_CHANGED,
               head + std::to_string(watch.option) + ' ' + watch.path);
}

void Daemon::raise_event(std::int32_t code) {
    const std::string payload(reinterpret_cast<const char *>(&code), sizeof code);
    for (const Peer &peer : subscriptions.awaiting(code))
        notify(peer, ZAN_NOTIFY_EVENT, payload);
}

void Daemon::notify(const Peer &peer, std::int32_t cmd, std::string payload) {
    const Module *const module = modules.find(peer);
    if (module == nullptr)
        return; // dropped while the others were being notified
    Record record;
    record.type = ZAN_CLASS_NOTIFY;
    record.cmd = cmd;
    record.dst = module->name;
    record.src = "ZAN";
    record.pid = getpid();
    record.time = static_cast<std::int32_t>(time(nullptr));
    record.payload = std::move(payload);
    ++statistics.notifications;
    forward(peer, record);
}

Delivery Daemon::forward(const Peer &peer, const Record &record) {
    trace_.sent(peer, record);
    return count_delivery(peer, peer.transport->notify(peer.endpoint, record));
}

Delivery Daemon::count_delivery(const Peer &peer, Delivery delivery) {
    switch (delivery) {
    case Delivery::sent:
        break;
    case Delivery::kept:
        work.notify_one();
        break;
    case Delivery::gone:
        forget(peer);
        break;
    case Delivery::dropped:
    case Delivery::too_long:
        ++statistics.dropped;
        break;
    }
    return delivery;
}

void Daemon::note_collector(Transport &transport) {
    const auto collector = transport.take_collector();
    if (!collector)
        return;
    if (Module *const module = modules.find(Peer{&transport, collector->endpoint}))
        module->collector = collector->pid;
}

int Daemon::process_of(const Modules::Entry &entry) {
    const auto &[peer, module] = entry;
    if (module.pid > 0)
        return module.pid;
    note_collector(*peer.transport);
    const int reader = peer.transport->last_reader(peer.endpoint);
    const int process = reader != 0 ? reader : module.collector;
    return process == 0 ? 0 : process_of_thread(process);
}

// The queue of a killed process remains.  A module may report any process id, so the
// kernel has to know one, too.  The module is dead if none of them is alive.
bool Daemon::has_died(const Peer &peer) {
    if (!peer.transport->exists(peer.endpoint))
        return true;
    note_collector(*peer.transport);
    const Module *const module = modules.find(peer);
    const int reader = peer.transport->last_reader(peer.endpoint);
    const int collector = module == nullptr ? 0 : module->collector;
    const int reported = module == nullptr ? 0 : module->pid;
    return (reader != 0 || collector != 0) && !is_alive(reader) && !is_alive(collector) &&
           !is_alive(reported);
}

void Daemon::expire_pending(Clock::time_point now) {
    for (const Peer &server : management.servers()) {
        if (has_died(server))
            forget(server);
    }
    for (const Peer &requester : management.requesters()) {
        if (!requester.transport->exists(requester.endpoint))
            forget(requester);
    }
    for (const Requester &requester : management.expire(now))
        answer(requester,
               Error{unreachable, "no answer from " + std::string(Management::module) + " within " +
                                      std::to_string(management.answer_timeout().count()) + " s"});
}

void Daemon::add_module(const Peer &peer, Module module) {
    if (modules.size() >= next_sweep_) {
        for (const Peer &dead : modules.dead_modules())
            forget(dead);
        next_sweep_ = std::max<std::size_t>(256, 2 * modules.size());
    }
    modules.add(peer, std::move(module));
}

void Daemon::disconnected(const Peer &peer) {
    if (modules.find(peer) != nullptr)
        forget(peer);
}

void Daemon::forget(const Peer &peer) {
    const Module *const module = modules.find(peer);
    trace_.note(name_of(peer) +
                (module == nullptr ? " is gone" : " is gone: forgot " + module->name));
    remove(peer);
}

bool Daemon::remove(const Peer &peer) {
    subscriptions.forget(peer);
    const bool registered = modules.remove(peer);
    for (const Requester &requester : management.forget(peer))
        answer(requester,
               Error{unreachable, "module cannot be reached: " + std::string(Management::module)});
    return registered;
}

} // namespace zan::sim
