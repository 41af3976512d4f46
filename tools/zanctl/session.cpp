// SPDX-License-Identifier: MIT
#include "session.h"

#include "failure.h"
#include "interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sstream>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>
#include <utility>

namespace zan::ctl {
namespace {

constexpr int instance = 0;

bool queue_exists(int queue) {
    msqid_ds status;
    return queue >= 0 && (msgctl(queue, IPC_STAT, &status) == 0 || errno == EACCES);
}

Failure no_daemon(const std::string &why) {
    return {exit_no_daemon, "no daemon: " + why};
}

Failure no_answer(double seconds) {
    std::ostringstream text;
    text << "no answer within " << seconds << (seconds == 1 ? " second" : " seconds");
    return no_daemon(text.str());
}

// Asked before registering, because the library would try four times.
void require_daemon() {
    for (int (*const queue_id)() : {zan_get_msq_qid, zan_get_reg_msq_qid}) {
        const int queue = queue_id();
        if (queue < 0)
            throw no_daemon("it has not left its queue ids in /tmp");
        if (!queue_exists(queue))
            throw no_daemon("its queue " + std::to_string(queue) + " has gone");
    }
}

// The library's answer to a peek is 0 at the end of the stream.
bool link_is_open() {
    char byte = 0;
    return zan_ipc_try_recv(g_ipc_handle, &byte, 1) > 0 || errno == EAGAIN;
}

// Where the daemon's files say that it serves agents.
std::string link_place() {
    char address[ZAN_NAME_SIZE] = {};
    zan_get_socket_ip(address);
    const std::string port = "port " + std::to_string(zan_get_socket_port());
    const std::string host(address, strcspn(address, "\n"));
    return host.empty() ? port : port + " of " + host;
}

// Messages are acknowledged by a command of its own, all else by the same.
int answer_command(const zan_body &request) {
    const bool message = request.type == ZAN_CLASS_MESSAGE || request.type == ZAN_CLASS_BROADCAST;
    return message ? int{ZAN_MESSAGE_ACK} : request.cmd;
}

// The others leave the time of sending zero.
bool is_timed(int type) {
    return type == ZAN_CLASS_MESSAGE || type == ZAN_CLASS_BROADCAST || type == ZAN_CLASS_NOTIFY;
}

} // namespace

struct Session::Exchange {
    zan_msg request;
    zan_resp answer;
    char error[1024]; // the daemon's text
    int reason;       // the system's, when the request or its answer got lost

    int size() const { return ZAN_HEADER_SIZE + request.body.len; }
    int run();
    std::string text() const;
};

int Session::Exchange::run() {
    answer = {};
    error[0] = '\0';
    errno = 0;
    int result = ZAN_ERR_SEND;
    if (zan_msg_send(g_zan_qid, &request, size()) == 0)
        result = zan_client_recv_msq_response(request.body.type, answer_command(request.body),
                                              error, &answer);
    reason = errno;
    return result;
}

// Configuration answers by reference, remote management in the area itself.
std::string Session::Exchange::text() const {
    if (request.body.type == ZAN_CLASS_CWMP)
        return {answer.data, static_cast<std::size_t>(answer.len)};
    return answer.ptr != nullptr ? answer.ptr : "";
}

Session::Session(std::string name, double timeout)
    : name_(std::move(name)), timeout_(timeout), exchange_(std::make_unique<Exchange>()) {
    require_daemon();
    register_module();
}

void Session::register_module() {
    const Deadline deadline(timeout_);
    const int result = zan_register(name_.c_str(), instance);
    queue_ = result;
    if (result >= 0)
        return;
    // Each failed attempt has removed its queue, but not the key file.
    zan_del_msq_file(name_.c_str(), instance);
    throw_if_interrupted();
    if (deadline.expired())
        throw no_answer(timeout_);
    require_daemon();
    const std::string registration = "registration as " + name_ + ": ";
    if (result == ZAN_ERR_QUEUE_IDS)
        throw Refused(registration + "cannot create a queue");
    throw Refused(registration + "refused with " + std::to_string(result));
}

void Session::register_agent() {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    const int result = zan_register_agent(name_.c_str(), getpid());
    agent_ = result >= 0;
    if (agent_)
        return;
    throw_if_interrupted();
    const std::string registration = "registration as agent " + name_ + ": ";
    if (result == ZAN_ERR_MESH)
        throw Refused(registration + "the mesh is not ready, for the reason above");
    if (result == ZAN_ERR_CREATE)
        throw no_daemon("it serves no agents at " + link_place());
    if (deadline.expired())
        throw no_answer(timeout_);
    if (result == ZAN_ERR || result == ZAN_ERR_SEND)
        throw no_daemon("it has closed the link");
    throw Refused(registration + "refused with " + std::to_string(result));
}

Session::~Session() {
    ignore_signals();
    leave_link();
    if (queue_exists(g_zan_qid)) {
        const Deadline deadline(clean_up_seconds());
        zan_unregister(name_.c_str(), instance);
    }
    // A daemon that answers "no" or not at all leaves both in place.
    if (queue_exists(queue_))
        zan_msg_del(queue_);
    zan_del_msq_file(name_.c_str(), instance);
}

void Session::leave_link() const {
    if (!agent_)
        return;
    const Deadline deadline(clean_up_seconds());
    // Without word to a daemon that could not hear it; and the mesh may not be
    // ready any more, when the library sends nothing.
    if (!link_is_open() || !queue_exists(g_zan_qid) ||
        zan_unregister_agent(name_.c_str(), getpid()) != 0)
        zan_ipc_delete(g_ipc_handle);
}

double Session::clean_up_seconds() const {
    // Enough to leave word with a daemon that has not answered before.
    if (daemon_silent_)
        return 0.1;
    return interrupted() != 0 ? std::min(timeout_, 1.0) : timeout_;
}

void Session::fill(const Request &request) {
    zan_msg &record = exchange_->request;
    record = {};
    record.mtype = queue_;
    record.body.type = request.type;
    record.body.cmd = request.cmd;
    zan_strcpy(record.body.dst, request.dst, sizeof record.body.dst);
    zan_strcpy(record.body.src, g_module_name, sizeof record.body.src);
    record.body.pid = getpid();
    record.body.arg = request.arg;
    if (is_timed(request.type))
        record.body.time = static_cast<int32_t>(std::time(nullptr));
    const std::size_t length = std::min(request.payload.size(), sizeof record.body.data - 1);
    std::memcpy(record.body.data, request.payload.data(), length);
    record.body.len = static_cast<int32_t>(length);
}

Answer Session::exchange(const Request &request) {
    throw_if_interrupted();
    fill(request);
    const Deadline deadline(timeout_);
    zan_api_lock();
    const int result = exchange_->run();
    // The text lives until the next request: copied before the lock goes.
    std::string text = result >= 0 ? exchange_->text() : "";
    zan_api_unlock();
    if (result < 0)
        fail(result, deadline.expired());
    return {std::move(text), result};
}

void Session::post(const std::function<int()> &send) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    if (send() < 0)
        lose_daemon(errno, deadline.expired());
}

int Session::call(const std::function<int()> &make) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    exchange_->error[0] = '\0';
    errno = 0;
    const int result = make();
    exchange_->reason = errno;
    if (result < 0)
        fail(result, deadline.expired());
    return result;
}

// The matcher reports a failed receive as -1, which a daemon may also answer;
// only the former leaves an error number and no text.
void Session::fail(int result, bool expired) {
    const std::string text = exchange_->error;
    const int reason = exchange_->reason;
    if (reason == 0 || !text.empty())
        throw Refused(text.empty() ? "refused with " + std::to_string(result) : text);
    throw_if_interrupted();
    if (result == ZAN_ERR_SEND && reason == EINVAL && connected())
        throw Refused("a request of " + std::to_string(exchange_->size()) +
                      " bytes is longer than kernel.msgmax allows");
    lose_daemon(reason, expired);
}

void Session::lose_daemon(int reason, bool expired) {
    throw_if_interrupted();
    daemon_silent_ = true;
    if (expired)
        throw no_answer(timeout_);
    require_connection();
    throw no_daemon(std::strerror(reason));
}

std::string Session::get_over_link(const std::string &path) {
    // A terminator more than the longest value.
    std::string value(ZAN_DATA_SIZE + 1, '\0');
    call_over_link([&] {
        return ctl_getstr(value.data(), static_cast<int>(value.size()), "%s", path.c_str());
    });
    return value.c_str();
}

void Session::call_over_link(const std::function<int()> &make) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    const int result = make();
    if (result <= 0)
        fail_over_link(result, deadline.expired());
}

// The daemon may answer any negative number, so what the library's own numbers
// would say is looked for first.
void Session::fail_over_link(int result, bool expired) {
    throw_if_interrupted();
    if (result == ZAN_ERR_MESH)
        throw Refused("the mesh is not ready, for the reason above");
    if (expired) {
        daemon_silent_ = true;
        throw no_answer(timeout_);
    }
    if (!link_is_open())
        lose_link();
    throw Refused("refused with " + std::to_string(result));
}

void Session::lose_link() const {
    throw no_daemon(link_is_open() ? "what it writes to the link is no record"
                                   : "it has closed the link");
}

bool Session::connected() const {
    return queue_exists(g_zan_qid) && queue_exists(queue_);
}

void Session::require_connection() const {
    if (!queue_exists(g_zan_qid))
        throw no_daemon("it has ended");
    if (!queue_exists(queue_))
        throw no_daemon("it has removed this module's queue");
}

} // namespace zan::ctl
