// SPDX-License-Identifier: MIT
// The calls that a module and an agent have in common.
//
// Every call that talks to the daemon takes a Timeout, blocks no longer, and may be made
// from any thread, in handlers too.  One request of a module is in flight at a time:
// another thread's waits for its turn, as part of its own time.  Signals interrupt nothing
// and are not held off: their handlers run while a call waits.
#ifndef ZAN_CLIENT_HPP
#define ZAN_CLIENT_HPP

#include "detail/endpoint.hpp"
#include "result.hpp"
#include "text.hpp"

#include <initializer_list>
#include <poll.h>

namespace zan {

// What a handler of on_change() is given: the fields of the notification by position.
struct Change {
    std::string source;     // field 1: who changed the value
    std::string path;       // field 2
    std::string value;      // field 3
    int kind = 1;           // field 4
    int option = 0;         // field 5, as given to on_change()
    std::string subscribed; // field 6: the path of the subscription
};

struct Message {
    std::string source; // the module that sent it
    int pid;            // its process
    std::string data;
};

struct TaskMessage {
    int cmd; // enum zan_action
    std::string data;
};

struct CwmpAnswer {
    std::string data;
    bool arg_is_one; // where zan_cwmp_recv() returns 0
};

// An option of a "firewall_cntl" command line.
struct FirewallOption {
    char letter;
    std::string_view value;
};

// A handler in use, until the object is destroyed or cancel() is called.  Either may be done
// in a handler, too, also in its own; the handler is not called any more once it returns,
// unless another thread is in it.  May outlive its module.
class [[nodiscard]] Subscription {
public:
    Subscription() = default;
    Subscription(std::weak_ptr<detail::Endpoint> endpoint, std::shared_ptr<detail::Handler> handler)
        : endpoint_(std::move(endpoint)), handler_(std::move(handler)) {}
    ~Subscription() { end(); }
    Subscription(Subscription &&other) noexcept
        : endpoint_(std::move(other.endpoint_)), handler_(std::move(other.handler_)) {
        other.handler_.reset();
    }
    Subscription &operator=(Subscription &&other) noexcept {
        if (this != &other) {
            end();
            endpoint_ = std::move(other.endpoint_);
            handler_ = std::move(other.handler_);
            other.handler_.reset();
        }
        return *this;
    }

    // Ends the subscription with the daemon as well, unless another handler shares it.  When
    // that fails, a later connection to the daemon comes without it.
    Result<void> cancel(Timeout timeout = {}) {
        const std::shared_ptr<detail::Handler> handler = std::move(handler_);
        handler_.reset();
        const std::shared_ptr<detail::Endpoint> endpoint = endpoint_.lock();
        if (!handler || !endpoint)
            return {};
        return endpoint->unsubscribe(handler, timeout);
    }

private:
    void end() {
        if (Result<void> ended = cancel(); !ended) {
            if (const auto endpoint = endpoint_.lock())
                endpoint->report("subscription not ended: " + ended.error().message());
        }
    }

    std::weak_ptr<detail::Endpoint> endpoint_;
    std::shared_ptr<detail::Handler> handler_;
};

class Client {
public:
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    const std::string &name() const { return endpoint_->name(); }

    // Whether the last attempt to register succeeded.  Every call tries again when not.
    bool registered() const { return endpoint_->connected(); }
    // Registers unless registered.
    Result<void> connect(Timeout timeout = {}) { return endpoint_->connect(timeout); }

    // ---- values ----

    // A value as std::string, bool or an integer type.  bad_value: it is not one.
    template<typename T = std::string> Result<T> get(std::string_view path, Timeout timeout = {}) {
        return as<T>(ask_path(ZAN_CFG_GET, path, timeout), path);
    }

    // Stores a text, a bool (as 0 or 1) or an integer.
    template<typename T>
    Result<void> set(std::string_view path, const T &value, Timeout timeout = {}) {
        const std::string text = detail::to_text(value);
        return tell_two(ZAN_CFG_SET, "0", path, text, ZAN_LONGEST_SET, 0, timeout);
    }

    // How many instances a multi-instance object has.
    Result<int> count(std::string_view object, Timeout timeout = {}) {
        return get<int>(std::string(object) + '#', timeout);
    }

    // The instances of an object, to iterate over: the number that begins each line of the
    // text that array() reads.
    Result<std::vector<Path>> instances(std::string_view object, Timeout timeout = {}) {
        Result<std::string> text = array(object, timeout);
        if (!text)
            return text.error();
        std::vector<Path> found;
        std::string_view rest = *text;
        while (!rest.empty()) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(std::min(line.size() + 1, rest.size()));
            const auto digits = std::min(line.find_first_not_of("0123456789"), line.size());
            if (const auto number = detail::from_text<unsigned>(line.substr(0, digits)))
                found.push_back(Path(object)[*number]);
            else if (!line.empty())
                return bad_value(object, line, "an instance");
        }
        return found;
    }

    // All instances as one text, rendered by the daemon.
    Result<std::string> array(std::string_view object, Timeout timeout = {}) {
        return ask_path(ZAN_CFG_GET_ARRAY, object, timeout);
    }

    // Creates an instance of a multi-instance object.
    Result<void> add(std::string_view object, Timeout timeout = {}) {
        return done(ask_path(ZAN_CFG_ANCHOR, object, timeout));
    }
    // Deletes a node or an instance.
    Result<void> remove(std::string_view path, Timeout timeout = {}) {
        return done(ask_path(ZAN_CFG_DELETE, path, timeout));
    }
    // Resets a subtree to its defaults.
    Result<void> reset(std::string_view path, Timeout timeout = {}) {
        return done(ask_path(ZAN_CFG_RESET, path, timeout));
    }

    Result<std::string> attributes(std::string_view path, Timeout timeout = {}) {
        return ask_path(ZAN_CFG_GET_ATTR, path, timeout);
    }
    Result<void> set_attributes(std::string_view path, std::string_view text,
                                Timeout timeout = {}) {
        return tell_two(ZAN_CFG_SET_ATTR, "", path, text, ZAN_LONGEST_ATTRIBUTES, 0, timeout);
    }

    // ---- the tree and its files; what a mode means is the daemon's affair ----

    Result<void> reload(std::string_view file, Timeout timeout = {}) {
        return tell(ZAN_CFG_RELOAD, file, ZAN_LONGEST_FILE_NAME, 0, timeout);
    }
    Result<void> set_file(std::string_view file, Timeout timeout = {}) {
        return tell(ZAN_CFG_SET_FILE, file, ZAN_LONGEST_FILE_NAME, 0, timeout);
    }
    Result<void> dump(int mode, std::string_view file, Timeout timeout = {}) {
        return tell(ZAN_CFG_DUMP, file, ZAN_LONGEST_FILE_NAME, mode, timeout);
    }
    // Has the daemon print a subtree on its own standard output.
    Result<void> print(int mode, std::string_view path, Timeout timeout = {}) {
        return tell(ZAN_CFG_PRINT, path, ZAN_LONGEST_PRINT, mode, timeout);
    }
    Result<void> print(int mode, std::string_view path, std::string_view heading,
                       Timeout timeout = {}) {
        return tell_two(ZAN_CFG_PRINT, "", path, heading, ZAN_LONGEST_PRINT, mode, timeout);
    }

    // Applies the stored configuration.  Refused here, with ZAN_ERR, while the TR-069 client
    // is writing configuration; it may begin right afterwards.
    Result<void> apply_all(Timeout timeout = {}) {
        if (get<int>("/runtime/app/tr069/config_state", timeout).value_or(0) == 1)
            return Error{Failure::refused, ZAN_ERR, "the TR-069 client is writing configuration"};
        return done(ask(ZAN_CFG_APPLY_ALL, {}, 0, timeout));
    }
    Result<void> apply_firewall(Timeout timeout = {}) {
        return done(ask(ZAN_CFG_APPLY_FIREWALL, {}, 0, timeout));
    }

    // ---- logins, conversions, modules ----

    // Has the daemon check a login: four items, or five.  The daemon's number.
    Result<int> login(std::initializer_list<std::string_view> items, Timeout timeout = {}) {
        if (items.size() < 4 || items.size() > 5)
            return detail::bad_argument("a login has four or five items");
        std::string lines;
        for (const std::string_view item : items) {
            if (item.find('\n') != std::string_view::npos)
                return detail::bad_argument("a login item contains a line end");
            lines += item;
            lines += '\n';
        }
        lines.pop_back();
        if (Result<void> fits = check(lines, ZAN_LONGEST_LOGIN, "login"); !fits)
            return fits.error();
        return as<int>(ask(ZAN_CFG_LOGIN, lines, 0, timeout), "login");
    }

    Result<void> convert(int mode, std::string_view text, Timeout timeout = {}) {
        return tell(ZAN_CFG_CONVERT, text, ZAN_PATH_SIZE - 1, mode, timeout);
    }
    // kind is 0 to 9.
    Result<std::string> convert_path(int kind, std::string_view path, Timeout timeout = {}) {
        if (kind < 0 || kind > 9)
            return detail::bad_argument("kind of conversion " + std::to_string(kind) +
                                        " is not 0 to 9");
        if (Result<void> fits = check(path, ZAN_PATH_SIZE - 2, "path"); !fits)
            return fits.error();
        return text_of(
            ask(ZAN_CFG_CONVERT_PATH, std::to_string(kind) + std::string(path), 0, timeout));
    }
    Result<std::string> interface_name(std::string_view path, Timeout timeout = {}) {
        return ask_path(ZAN_CFG_IFNAME, path, timeout);
    }
    // The process id of a registered module.
    Result<int> module_pid(std::string_view module, Timeout timeout = {}) {
        return as<int>(ask_path(ZAN_CFG_MODULE_PID, module, timeout), module);
    }

    // Whether the device is an enabled and settled mesh agent.
    Result<bool> mesh_ready(Timeout timeout = {}) {
        const Path mesh("/InternetGatewayDevice/X_ORVANE_EasyMesh");
        const Result<std::string> role = get(mesh / "DeviceRole", timeout);
        if (!role)
            return role.error();
        const Result<int> enabled = get<int>(mesh / "Enable", timeout);
        if (!enabled)
            return enabled.error();
        const Result<int> optimizing = get<int>(mesh / "Status/TopologyOptimize", timeout);
        if (!optimizing)
            return optimizing.error();
        const Result<int> initializing = get<int>(mesh / "ReInitWifiFlag", timeout);
        if (!initializing)
            return initializing.error();
        return *enabled != 0 && *role == "Agent" && *optimizing == 0 && *initializing == 0;
    }

    // ---- files and actions ----

    // Has the daemon carry out an action and waits until it has.  param is the daemon's, 0 or
    // more.
    Result<void> action(zan_action code, int param = 0, std::string_view name = {},
                        Timeout timeout = {}) {
        Result<zan_action_data> data = action_data(code, 1, param, name);
        if (!data)
            return data.error();
        return done(endpoint_->request(action_request(code, *data), timeout));
    }
    // The same without waiting: whether it succeeds is not reported.
    Result<void> start_action(zan_action code, int param = 0, std::string_view name = {},
                              Timeout timeout = {}) {
        Result<zan_action_data> data = action_data(code, 0, param, name);
        if (!data)
            return data.error();
        return endpoint_->post(action_request(code, *data), timeout);
    }

    Result<void> upgrade_firmware(std::string_view file, Timeout timeout = {}) {
        return upgrade(ZAN_ACTION_UPGRADE_FIRMWARE, file, timeout);
    }
    Result<void> upgrade_config(std::string_view file, Timeout timeout = {}) {
        return upgrade(ZAN_ACTION_UPGRADE_CONFIG, file, timeout);
    }
    Result<void> save_config(Timeout timeout = {}) {
        return action(ZAN_ACTION_SAVE_CONFIG, 0, {}, timeout);
    }
    Result<void> save_log(Timeout timeout = {}) {
        return start_action(ZAN_ACTION_SAVE_LOG, 0, {}, timeout);
    }
    Result<void> factory_reset(Timeout timeout = {}) {
        return action(ZAN_ACTION_FACTORY_RESET, 0, {}, timeout);
    }
    Result<void> backup_config(std::string_view file, Timeout timeout = {}) {
        return action(ZAN_ACTION_BACKUP_CONFIG, 0, file, timeout);
    }
    Result<void> run_shell(std::string_view command, Timeout timeout = {}) {
        if (Result<void> fits = check(command, ZAN_LONGEST_SHELL_COMMAND, "command"); !fits)
            return fits;
        return action(ZAN_ACTION_RUN_SHELL, 0, command, timeout);
    }
    // Runs the shell command that zan_reboot() runs, too, in the calling thread and without
    // a deadline, then has the daemon reboot the device.
    Result<void> reboot(Timeout timeout = {}) {
        zan_system("appmgrcmd del sipapp");
        return action(ZAN_ACTION_REBOOT, 0, {}, timeout);
    }

    // Reports the result of an event that was handled.
    Result<void> report_event_result(int event, int result, Timeout timeout = {}) {
        zan_action_data data{};
        data.code = event;
        std::snprintf(data.name, sizeof data.name, "%d", result);
        Request request = action_request(ZAN_ACTION_EVENT_RESULT, data);
        request.dst = "";
        return endpoint_->post(request, timeout);
    }

    // ---- command lines; the daemon does not answer them ----

    Result<void> control(std::string_view command_line, Timeout timeout = {}) {
        if (Result<void> fits = check(command_line, ZAN_LONGEST_COMMAND_LINE, "command line");
            !fits)
            return fits;
        std::string payload(command_line);
        payload.resize(ZAN_LONGEST_COMMAND_LINE + 1);
        return endpoint_->post(
            {ZAN_CLASS_CONTROL, ZAN_CONTROL_COMMAND_LINE, ZAN_MODULE_CORE, payload, 0, true},
            timeout);
    }
    // "firewall_cntl" with options in the order given: firewall({{'f', "add"}, {'p', "80"}}).
    Result<void> firewall(std::initializer_list<FirewallOption> options, Timeout timeout = {}) {
        return firewall_line("firewall_cntl", options, timeout);
    }
    // "firewall_cntl -b -p P -i I -m M".
    Result<void> firewall_bridge(std::string_view p, std::string_view i, int m,
                                 Timeout timeout = {}) {
        const std::string number = std::to_string(m);
        return firewall_line("firewall_cntl -b", {{'p', p}, {'i', i}, {'m', number}}, timeout);
    }

    // ---- remote management ----

    // A request to the CWMP client and its answer.
    Result<CwmpAnswer> cwmp(int cmd, std::string_view data, Timeout timeout = {}) {
        Result<Answer> answer =
            endpoint_->request({ZAN_CLASS_CWMP, cmd, ZAN_MODULE_CWMP, data}, timeout);
        if (!answer)
            return answer.error();
        return CwmpAnswer{std::move(answer->data), answer->arg == 1};
    }

    // ---- messages of up to ZAN_LONGEST_MESSAGE bytes ----

    // To the module of that name.  Whether it arrives is not reported.
    Result<void> send(std::string_view module, std::string_view data, Timeout timeout = {}) {
        const std::string name(module);
        if (Result<void> fits = check_message(name, data); !fits)
            return fits;
        return endpoint_->post({ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND, name.c_str(), data, 0, true},
                               timeout);
    }
    // Waits until the daemon acknowledges that it has handed the message over.
    Result<void> send_acknowledged(std::string_view module, std::string_view data,
                                   Timeout timeout = {}) {
        const std::string name(module);
        if (Result<void> fits = check_message(name, data); !fits)
            return fits;
        return done(endpoint_->request(
            {ZAN_CLASS_MESSAGE, ZAN_MESSAGE_SEND_WITH_ACK, name.c_str(), data, 0, true}, timeout));
    }
    // To every other module, acknowledged.
    Result<void> broadcast(std::string_view data, Timeout timeout = {}) {
        if (Result<void> fits = check_message("", data); !fits)
            return fits;
        return done(endpoint_->request(
            {ZAN_CLASS_BROADCAST, ZAN_MESSAGE_SEND_ALL, "", data, 0, true}, timeout));
    }

    // ---- what arrives unasked ----
    //
    // Handlers are called by dispatch(), on its thread and nowhere else, and may make every
    // call of the module, dispatch() too.  Subscriptions survive a restart of the daemon.
    // Around one, or after an answer that did not come, a change may be reported twice;
    // none is left out that happens while the daemon knows the module.

    // Changes of the value at the path, or below it.  option and flag are the daemon's.
    Result<Subscription> on_change(std::string_view path, std::function<void(const Change &)> call,
                                   std::uint8_t option = 0, std::uint8_t flag = 0,
                                   Timeout timeout = {}) {
        if (Result<void> fits = check(path, ZAN_PATH_SIZE - 1, "path"); !fits)
            return fits.error();
        auto handler = make_handler(ZAN_CLASS_NOTIFY);
        handler->cmd = ZAN_NOTIFY_REGISTER_VALUE;
        handler->path = path;
        handler->request = {static_cast<char>(flag), static_cast<char>(option)};
        handler->request += path;
        handler->accepts = [subscribed = handler->path](const Incoming &record) {
            if (record.type != ZAN_CLASS_NOTIFY || record.cmd != ZAN_NOTIFY_VALUE_CHANGED)
                return false;
            // A daemon that does not name the subscription leaves the choice to the handler.
            const Change change = parse_change(record.data);
            return change.subscribed.empty() || change.subscribed == subscribed;
        };
        handler->call = [call = std::move(call)](const Incoming &record) {
            call(parse_change(record.data));
        };
        return subscribe(std::move(handler), timeout);
    }

    // Events of the code.
    Result<Subscription> on_event(int event, std::function<void(int event)> call,
                                  Timeout timeout = {}) {
        auto handler = make_handler(ZAN_CLASS_NOTIFY);
        handler->cmd = ZAN_NOTIFY_REGISTER_EVENT;
        handler->event = event;
        const std::int32_t code = event;
        handler->request.assign(reinterpret_cast<const char *>(&code), sizeof code);
        handler->accepts = [request = handler->request](const Incoming &record) {
            return record.type == ZAN_CLASS_NOTIFY && record.cmd == ZAN_NOTIFY_EVENT &&
                   record.data.compare(0, request.size(), request) == 0;
        };
        handler->call = [call = std::move(call), event](const Incoming &) { call(event); };
        return subscribe(std::move(handler), timeout);
    }

    // Direct messages to this module.
    Result<Subscription> on_message(std::function<void(const Message &)> call) {
        return on_messages(ZAN_CLASS_MESSAGE, std::move(call));
    }
    // Messages to all modules.
    Result<Subscription> on_broadcast(std::function<void(const Message &)> call) {
        return on_messages(ZAN_CLASS_BROADCAST, std::move(call));
    }
    // Messages of the task manager.
    Result<Subscription> on_task(std::function<void(const TaskMessage &)> call) {
        auto handler = make_handler(ZAN_CLASS_ACTION);
        handler->accepts = [](const Incoming &record) { return record.type == ZAN_CLASS_ACTION; };
        handler->call = [call = std::move(call)](const Incoming &record) {
            call({record.cmd, record.data});
        };
        return subscribe(std::move(handler), {});
    }

    // ---- event loops ----

    // Readable, for poll(), epoll or select(), while anything waits for dispatch().  It stays
    // the same and open for as long as the module lives; do not read from it.
    int fd() const { return endpoint_->fd(); }

    // Calls handlers and completions for what waits, on this thread, and returns how many
    // records and completions that were.  Never blocks by itself.
    int dispatch() { return endpoint_->dispatch(); }

    // Waits until something arrives, and dispatches it.  0 at the end of the time, and when
    // a signal interrupts.
    int dispatch_for(std::chrono::milliseconds time) {
        pollfd ready{fd(), POLLIN, 0};
        const int poll_ms = detail::Deadline(time).poll_ms();
        return poll(&ready, 1, poll_ms) > 0 ? dispatch() : 0;
    }

    // A request that no call here makes.
    Result<Answer> request(const Request &request, Timeout timeout = {}) {
        return endpoint_->request(request, timeout);
    }
    Result<void> post(const Request &request, Timeout timeout = {}) {
        return endpoint_->post(request, timeout);
    }

protected:
    explicit Client(std::shared_ptr<detail::Endpoint> endpoint) : endpoint_(std::move(endpoint)) {}
    ~Client() = default;

    void shut_down() {
        if (endpoint_->in_forked_child())
            // Its threads and its registration are the parent's: nothing of it is touched.
            static_cast<void>(new std::shared_ptr<detail::Endpoint>(std::move(endpoint_)));
        else
            endpoint_->close(std::min(endpoint_->options().timeout, max_farewell));
    }

    template<typename Call, typename Completion>
    Result<void> run_async(Call call, Completion completion) {
        const bool queued = endpoint_->run_later(
            [call = std::move(call), completion = std::move(completion)]() mutable {
                return std::function<void()>(
                    [result = call(), completion = std::move(completion)]() mutable {
                        completion(result);
                    });
            });
        if (!queued)
            return detail::not_sent("the system has no thread for the module");
        return {};
    }

    std::shared_ptr<detail::Endpoint> endpoint_;

private:
    static constexpr std::chrono::milliseconds max_farewell{1000};

    static Result<void> check(std::string_view text, std::size_t limit, const char *what) {
        if (text.size() > limit)
            return detail::bad_argument(std::string(what) + " of " + std::to_string(text.size()) +
                                        " bytes, at most " + std::to_string(limit) +
                                        " are allowed");
        if (text.find('\0') != std::string_view::npos)
            return detail::bad_argument(std::string(what) + " contains a NUL");
        return {};
    }

    static Result<void> check_message(std::string_view module, std::string_view data) {
        if (Result<void> fits = check(module, ZAN_NAME_SIZE - 1, "module name"); !fits)
            return fits;
        if (data.size() > ZAN_LONGEST_MESSAGE)
            return detail::bad_argument("message of " + std::to_string(data.size()) +
                                        " bytes, at most " + std::to_string(ZAN_LONGEST_MESSAGE) +
                                        " are allowed");
        return {};
    }

    Result<Answer> ask(int cmd, std::string_view payload, int arg, Timeout timeout) {
        return endpoint_->request({ZAN_CLASS_CFG, cmd, ZAN_MODULE_CFG, payload, arg}, timeout);
    }

    Result<std::string> ask_path(int cmd, std::string_view path, Timeout timeout) {
        if (Result<void> fits = check(path, ZAN_PATH_SIZE - 1, "path"); !fits)
            return fits.error();
        return text_of(ask(cmd, path, 0, timeout));
    }

    Result<void> tell(int cmd, std::string_view text, std::size_t limit, int arg, Timeout timeout) {
        if (Result<void> fits = check(text, limit, "argument"); !fits)
            return fits;
        return done(ask(cmd, text, arg, timeout));
    }

    // Two texts separated by a space: the first must not contain one.
    Result<void> tell_two(int cmd, std::string_view flag, std::string_view path,
                          std::string_view text, std::size_t limit, int arg, Timeout timeout) {
        if (path.find(' ') != std::string_view::npos)
            return detail::bad_argument("path contains a space: " + std::string(path));
        std::string payload(flag);
        payload += path;
        payload += ' ';
        payload += text;
        return tell(cmd, payload, limit, arg, timeout);
    }

    static Result<std::string> text_of(Result<Answer> answer) {
        if (!answer)
            return answer.error();
        return detail::text_of(std::move(answer->data));
    }

    template<typename R> static Result<void> done(const R &result) {
        if (!result)
            return result.error();
        return {};
    }

    static Error bad_value(std::string_view path, std::string_view text, const char *what) {
        return {Failure::bad_value, ZAN_ERR,
                std::string(path) + " is not " + what + ": \"" + std::string(text) + "\""};
    }

    template<typename T> static Result<T> as(Result<Answer> answer, std::string_view path) {
        return as<T>(text_of(std::move(answer)), path);
    }
    template<typename T> static Result<T> as(Result<std::string> text, std::string_view path) {
        if constexpr (std::is_same_v<T, std::string>) {
            static_cast<void>(path);
            return text;
        } else {
            if (!text)
                return text.error();
            if (const std::optional<T> value = detail::from_text<T>(*text))
                return *value;
            return bad_value(path, *text,
                             std::is_same_v<T, bool> ? "a bool" : "a number of the wanted range");
        }
    }

    static Result<zan_action_data> action_data(int code, int wait, int param,
                                               std::string_view name) {
        if (Result<void> fits = check(name, ZAN_LONGEST_FILE_NAME, "name"); !fits)
            return fits.error();
        zan_action_data data{};
        data.code = code;
        data.wait = wait;
        data.param = std::max(param, 0);
        std::memcpy(data.name, name.data(), name.size());
        return data;
    }
    static Request action_request(int code, const zan_action_data &data) {
        return {ZAN_CLASS_ACTION, code, ZAN_MODULE_ACTION,
                std::string_view(reinterpret_cast<const char *>(&data), sizeof data)};
    }
    Result<void> upgrade(zan_action code, std::string_view file, Timeout timeout) {
        if (file.empty())
            return Error{Failure::bad_argument, ZAN_ERR_REFUSED, "file name is empty"};
        return action(code, 0, file, timeout);
    }

    Result<void> firewall_line(std::string line, std::initializer_list<FirewallOption> options,
                               Timeout timeout) {
        for (const FirewallOption &option : options) {
            line += {' ', '-', option.letter, ' '};
            line += option.value;
        }
        return control(line, timeout);
    }

    static std::shared_ptr<detail::Handler> make_handler(int type) {
        auto handler = std::make_shared<detail::Handler>();
        handler->type = type;
        return handler;
    }

    Result<Subscription> on_messages(int type, std::function<void(const Message &)> call) {
        auto handler = make_handler(type);
        handler->accepts = [type](const Incoming &record) { return record.type == type; };
        handler->call = [call = std::move(call)](const Incoming &record) {
            call({record.source, record.pid, record.data});
        };
        return subscribe(std::move(handler), {});
    }

    Result<Subscription> subscribe(std::shared_ptr<detail::Handler> handler, Timeout timeout) {
        if (Result<void> subscribed = endpoint_->subscribe(handler, timeout); !subscribed)
            return subscribed.error();
        return Subscription(endpoint_, std::move(handler));
    }

    // A line of three words, two numbers and a word; what is missing keeps its default.
    static Change parse_change(std::string_view line) {
        Change change;
        const auto next_word = [&line] {
            const char *const blanks = " \t\n\v\f\r";
            line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
            const std::string_view word = line.substr(0, line.find_first_of(blanks));
            line.remove_prefix(word.size());
            return word;
        };
        line = line.substr(0, line.find('\0'));
        change.source = next_word();
        change.path = next_word();
        change.value = next_word();
        change.kind = detail::from_text<int>(next_word()).value_or(change.kind);
        change.option = detail::from_text<int>(next_word()).value_or(change.option);
        change.subscribed = next_word();
        return change;
    }
};

} // namespace zan

#endif
