// SPDX-License-Identifier: MIT
#include "session.h"

#include "error.h"
#include "interrupt.h"
#include "progress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>
#include <utility>

namespace zan::ctl {
namespace {

constexpr int queue_instance = 0;

constexpr const char *mesh_not_ready =
    "this device is not a mesh agent, or the mesh is not ready (--verbose shows which)";
constexpr const char *link_closed = "it closed the link";

bool queue_exists(int queue) {
    msqid_ds status;
    return queue >= 0 && (msgctl(queue, IPC_STAT, &status) == 0 || errno == EACCES);
}

Error no_daemon(const std::string &why) {
    return {ExitCode::no_daemon, "no daemon: " + why};
}

Error no_answer(double timeout) {
    return {ExitCode::no_answer, "no answer from the daemon within " + duration_text(timeout) +
                                     " (is it busy? --timeout SECONDS waits longer)"};
}

struct IdFile {
    const char *path;
    int (*read)();
};
constexpr IdFile id_files[] = {{"/tmp/zan_qid", zan_get_msq_qid},
                               {"/tmp/zan_req_qid", zan_get_reg_msq_qid}};

// Checked first, because the library would try to register four times.
void require_daemon() {
    for (const IdFile &file : id_files) {
        const int queue = file.read();
        if (queue < 0 && access(file.path, F_OK) != 0)
            throw no_daemon(std::string(file.path) + " not found (is zansim running?)");
        if (queue < 0)
            throw no_daemon(std::string(file.path) + " has no queue id (is zansim running?)");
        if (!queue_exists(queue))
            throw no_daemon("queue " + std::to_string(queue) + " of " + file.path +
                            " does not exist (has zansim ended?)");
    }
}

// The library returns 0 at the end of the stream.
bool link_is_open() {
    char byte = 0;
    return zan_ipc_try_recv(g_ipc_handle, &byte, 1) > 0 || errno == EAGAIN;
}

// The port and address for agents, from the daemon's files.
std::string link_place() {
    char address[ZAN_NAME_SIZE] = {};
    zan_get_socket_ip(address);
    const std::string port = "port " + std::to_string(zan_get_socket_port());
    const std::string host(address, strcspn(address, "\n"));
    return host.empty() ? port : port + " of " + host;
}

// The answer has the command of the request, except that of a message.
int answer_command(const zan_body &request) {
    const bool message = request.type == ZAN_CLASS_MESSAGE || request.type == ZAN_CLASS_BROADCAST;
    return message ? int{ZAN_MESSAGE_ACK} : request.cmd;
}

// Requests of the other classes have no time.
bool is_timed(int type) {
    return type == ZAN_CLASS_MESSAGE || type == ZAN_CLASS_BROADCAST || type == ZAN_CLASS_NOTIFY;
}

} // namespace

struct Session::Exchange {
    zan_msg request;
    zan_resp answer;
    char error[1024]; // the daemon's text
    int reason;       // errno, if sending or receiving failed

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

// A configuration answer is returned by reference, that of remote management as a copy.
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
    const int result = zan_register(name_.c_str(), queue_instance);
    queue_ = result;
    if (result >= 0)
        return;
    // The library removes the queue of each failed attempt, but not the key file.
    zan_del_msq_file(name_.c_str(), queue_instance);
    throw_if_interrupted();
    require_daemon();
    if (deadline.expired())
        throw no_answer(timeout_);
    const std::string subject = "registration as " + name_;
    if (result == ZAN_ERR_QUEUE_IDS)
        throw Refusal("cannot create a queue (is kernel.msgmni reached?)", result, subject);
    throw Refusal("refused", result, subject);
}

void Session::register_agent() {
    if (agent_)
        return;
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    const int result = zan_register_agent(name_.c_str(), getpid());
    agent_ = result >= 0;
    if (agent_)
        return;
    throw_if_interrupted();
    const std::string subject = "registration as agent " + name_;
    if (result == ZAN_ERR_MESH)
        throw Refusal(mesh_not_ready, result, subject);
    if (result == ZAN_ERR_CREATE)
        throw no_daemon("cannot connect to " + link_place() + " (does it serve mesh agents?)");
    if (deadline.expired())
        throw no_answer(timeout_);
    if (result == ZAN_ERR || result == ZAN_ERR_SEND)
        throw no_daemon(link_closed);
    throw Refusal("refused", result, subject);
}

Session::~Session() {
    ignore_signals();
    leave_link();
    if (queue_exists(g_zan_qid)) {
        const Deadline deadline(clean_up_seconds());
        zan_unregister(name_.c_str(), queue_instance);
    }
    // They remain if the daemon refused or did not answer.
    if (queue_exists(queue_))
        zan_msg_del(queue_);
    zan_del_msq_file(name_.c_str(), queue_instance);
}

void Session::leave_link() const {
    if (!agent_)
        return;
    const Deadline deadline(clean_up_seconds());
    // The library unregisters only while the mesh is ready, and it needs the daemon.
    if (!link_is_open() || !queue_exists(g_zan_qid) ||
        zan_unregister_agent(name_.c_str(), getpid()) != 0)
        zan_ipc_delete(g_ipc_handle);
}

double Session::clean_up_seconds() const {
    // Enough to send; a daemon that did not answer before is not waited for.
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
    const double timeout = request.timeout > 0 ? request.timeout : timeout_;
    const Deadline deadline(timeout);
    zan_api_lock();
    const int result = exchange_->run();
    // The next request overwrites the text, so it is copied under the lock.
    std::string text = result >= 0 ? exchange_->text() : "";
    zan_api_unlock();
    if (result < 0)
        fail(result, deadline.expired(), timeout);
    return {std::move(text), result};
}

void Session::post(const std::function<int()> &send) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    if (send() < 0)
        report_lost_daemon(errno, deadline.expired(), timeout_);
}

int Session::call(const std::function<int()> &make_request) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    exchange_->error[0] = '\0';
    errno = 0;
    const int result = make_request();
    exchange_->reason = errno;
    if (result < 0)
        fail(result, deadline.expired(), timeout_);
    return result;
}

// A failed receive gives -1, and so may the daemon; only the former sets errno and has no
// text.
void Session::fail(int result, bool expired, double timeout) {
    const std::string text = exchange_->error;
    const int reason = exchange_->reason;
    if (reason == 0 || !text.empty())
        throw Refusal(text.empty() ? "refused" : text, result);
    throw_if_interrupted();
    if (result == ZAN_ERR_SEND && reason == EINVAL && connected())
        throw Refusal("a request of " + std::to_string(exchange_->size()) +
                          " bytes exceeds kernel.msgmax",
                      result);
    report_lost_daemon(reason, expired, timeout);
}

void Session::report_lost_daemon(int reason, bool expired, double timeout) {
    throw_if_interrupted();
    daemon_silent_ = true;
    require_connection();
    if (expired)
        throw no_answer(timeout);
    throw no_daemon(std::strerror(reason));
}

std::string Session::get_over_link(const std::string &path) {
    // The longest value and its terminator.
    std::string value(ZAN_DATA_SIZE + 1, '\0');
    call_over_link([&] {
        return ctl_getstr(value.data(), static_cast<int>(value.size()), "%s", path.c_str());
    });
    return value.c_str();
}

void Session::call_over_link(const std::function<int()> &make_request) {
    throw_if_interrupted();
    const Deadline deadline(timeout_);
    const int result = make_request();
    if (result <= 0)
        fail_over_link(result, deadline.expired());
}

// The daemon may answer with any negative number, also with one of the library's own, so
// other causes are ruled out first.
void Session::fail_over_link(int result, bool expired) {
    throw_if_interrupted();
    if (result == ZAN_ERR_MESH)
        throw Refusal(mesh_not_ready, result);
    if (expired) {
        daemon_silent_ = true;
        throw no_answer(timeout_);
    }
    if (!link_is_open())
        report_lost_link();
    throw Refusal("refused", result);
}

void Session::report_lost_link() const {
    throw no_daemon(link_is_open() ? "it sent an invalid record on the link" : link_closed);
}

bool Session::connected() const {
    return queue_exists(g_zan_qid) && queue_exists(queue_);
}

void Session::require_connection() const {
    if (!queue_exists(g_zan_qid))
        throw no_daemon("its queue was removed (has zansim ended?)");
    if (!queue_exists(queue_))
        throw no_daemon("the queue of this module was removed");
}

} // namespace zan::ctl
