// SPDX-License-Identifier: MIT
//
// All requests of the library, for the tests of what they have in common: one row for
// each function.  tests/package/CMakeLists.txt reads the names as well, so a row begins
// with its name on the line of its brace.
#pragma once

#include "support/commands.h"

#include <zan.h>

#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace zan::test {

// A function that makes one request.
struct RequestFunction {
    const char *name;
    int type;
    int cmd;
    int (*make)();
    // With texts that are longer than a record takes.
    void (*make_longest)();
    // What a failed send prints after the function's name; PID stands for the process id.
    std::vector<std::string> report;
    // The result of a failed wait and of a refusal, where it is not their own.
    std::optional<int> refusal = {};
};

inline std::ostream &operator<<(std::ostream &out, const RequestFunction &request) {
    return out << request.name;
}

// A function that makes its requests by another one.
struct IndirectRequest {
    const char *name;
    void (*make_longest)();
};

inline std::ostream &operator<<(std::ostream &out, const IndirectRequest &request) {
    return out << request.name;
}

namespace requests {

// ---- arguments -------------------------------------------------------------

inline char value[1024]; // where the calls that read put what they get
inline char file[] = "/tmp/a";
inline char text[] = "text";

inline const std::string long_text(3000, 't');
inline std::string long_storage = long_text;
inline char *const long_name = long_storage.data();
inline std::string long_path_storage = "/" + long_text;
inline char *const long_path = long_path_storage.data();

inline std::vector<std::string> about(const std::string &subject) {
    return {":zan_msg_send fail!", ": " + subject, ": pid=PID"};
}
inline const std::vector<std::string> about_nothing = {":zan_msg_send fail!", ": pid=PID"};
inline const std::vector<std::string> in_one_line = {":zan_msg_send fail!"};
inline std::vector<std::string> with_line(const std::string &line) {
    return {": cmd_line=firewall_cntl " + line, ":zan_msg_send fail!"};
}

// 1 for the text of an answer, as all others have it.
inline int attributes_of(const char *path) {
    const intptr_t attributes = cfg_getattr("%s", path);
    if (attributes == 0 || attributes == ZAN_ERR_SEND)
        return static_cast<int>(attributes);
    return std::strcmp(reinterpret_cast<const char *>(attributes), "1") == 0 ? 1 : -99;
}

inline int check_login(const char *item) {
    zan_login_req login = {"a", "b", "c", item, nullptr, -1};
    return zan_loginauth(&login);
}

} // namespace requests

// ---- requests that hold the API lock ---------------------------------------

inline const RequestFunction locked_requests[] = {
    {"cfg_getstr", class_cfg, cmd_get, [] { return cfg_getstr(requests::value, 64, "/a:%d", 1); },
     [] { cfg_getstr(requests::value, 5, "%s:%d", requests::long_path, 1); },
     requests::about("path=/a:1")},
    {"cfg_getarray", class_cfg, cmd_array,
     [] { return cfg_getarray(requests::value, 64, "/a:%d", 2); },
     [] { cfg_getarray(requests::value, 5, "%s:%d", requests::long_path, 1); },
     requests::about("path=/a:2")},
    {"cfg_setstr", class_cfg, cmd_set, [] { return cfg_setstr("value", "/a:%d", 3); },
     [] { cfg_setstr(requests::long_name, "%s:%d", requests::long_path, 1); },
     requests::about("path=/a:3")},
    {"cfg_get_module_pid", class_cfg, cmd_pid, [] { return cfg_get_module_pid("wifi"); },
     [] { cfg_get_module_pid(requests::long_name); }, requests::about("module=wifi")},
    {"cfg_anchor", class_cfg, cmd_anchor, [] { return cfg_anchor("/a:%d", 4); },
     [] { cfg_anchor("%s:%d", requests::long_path, 1); }, requests::about("path=/a:4")},
    {"cfg_del", class_cfg, cmd_delete, [] { return cfg_del("/a:%d", 5); },
     [] { cfg_del("%s:%d", requests::long_path, 1); }, requests::about("path=/a:5")},
    {"cfg_reload", class_cfg, cmd_reload, [] { return cfg_reload(requests::file); },
     [] { cfg_reload(requests::long_name); }, requests::about("loadfile=/tmp/a")},
    {"cfg_setfile", class_cfg, cmd_set_file, [] { return cfg_setfile(requests::file); },
     [] { cfg_setfile(requests::long_name); }, requests::about("loadfile=/tmp/a")},
    {"cfg_dump", class_cfg, cmd_dump, [] { return cfg_dump(2, requests::file); },
     [] { cfg_dump(1, requests::long_name); }, requests::about("dumpfile=/tmp/a")},
    // The path alone, not the whole payload.
    {"cfg_print", class_cfg, cmd_print, [] { return cfg_print(2, "extra", "/a:%d", 6); },
     [] { cfg_print(1, requests::long_name, "%s:%d", requests::long_path, 1); },
     requests::about("tmp_path=/a:6")},
    {"cfg_getattr", class_cfg, cmd_get_attr, [] { return requests::attributes_of("/a:7"); },
     [] { cfg_getattr("%s:%d", requests::long_path, 1); }, requests::about("tmp_path=/a:7"), 0},
    {"cfg_setattr", class_cfg, cmd_set_attr, [] { return cfg_setattr("ro", "/a:%d", 8); },
     [] { cfg_setattr(requests::long_name, "%s:%d", requests::long_path, 1); },
     requests::about("tmp_path=/a:8")},
    {"cfg_reset", class_cfg, cmd_reset, [] { return cfg_reset("/a:%d", 9); },
     [] { cfg_reset("%s:%d", requests::long_path, 1); }, requests::about_nothing},
    {"cfg_apply_firewall_event", class_cfg, cmd_apply_firewall, cfg_apply_firewall_event,
     [] { cfg_apply_firewall_event(); }, requests::about_nothing},
    {"zan_loginauth", class_cfg, cmd_login, [] { return requests::check_login("d"); },
     [] { requests::check_login(requests::long_name); }, requests::about_nothing},
    {"zan_convert", class_cfg, cmd_convert, [] { return zan_convert(2, requests::text); },
     [] { zan_convert(1, requests::long_name); }, requests::about_nothing},
    {"zan_convert_path", class_cfg, cmd_convert_path,
     [] { return zan_convert_path(requests::value, 64, 2, "/a:%d", 10); },
     [] { zan_convert_path(requests::value, 5, 1, "%s:%d", requests::long_path, 1); },
     requests::about_nothing},
    {"zan_cfg_get_ifname", class_cfg, cmd_ifname,
     [] { return zan_cfg_get_ifname(requests::value, 64, "/a:%d", 11); },
     [] { zan_cfg_get_ifname(requests::value, 5, "%s:%d", requests::long_path, 1); },
     requests::about_nothing},
    {"zan_notify_register_value_changed", class_notify, cmd_watch,
     [] { return zan_notify_register_value_changed("/a", 1, 2); },
     [] { zan_notify_register_value_changed(requests::long_path, 1, 2); }, requests::about_nothing},
    {"zan_notify_register_event", class_notify, cmd_await_event,
     [] { return zan_notify_register_event(1); }, [] { zan_notify_register_event(1); },
     requests::about_nothing},
    {"zan_notify_unregister_value_changed", class_notify, cmd_unwatch,
     [] { return zan_notify_unregister_value_changed("/a"); },
     [] { zan_notify_unregister_value_changed(requests::long_path); }, requests::about_nothing},
    {"zan_notify_unregister_event", class_notify, cmd_ignore_event,
     [] { return zan_notify_unregister_event(1); }, [] { zan_notify_unregister_event(1); },
     requests::about_nothing},
};

// One request by one of those above.
inline const IndirectRequest indirect_requests[] = {
    {"cfg_getint", [] { cfg_getint("%s:%d", requests::long_path, 1); }},
    {"cfg_setint", [] { cfg_setint(1, "%s:%d", requests::long_path, 1); }},
    {"cfg_getcount", [] { cfg_getcount("%s:%d", requests::long_path, 1); }},
    {"cfg_getcount_login_account", [] { cfg_getcount_login_account(); }},
    {"cfg_getstr_login_un", [] { cfg_getstr_login_un(requests::value, 5, 1); }},
    {"cfg_getstr_login_pw", [] { cfg_getstr_login_pw(requests::value, 5, 1); }},
    {"cfg_get_hw_model", [] { cfg_get_hw_model(); }},
    {"cfg_get_hw_type", [] { cfg_get_hw_type(); }},
    {"cfg_get_customer_id", [] { cfg_get_customer_id(); }},
    {"cfg_get_customize", [] { cfg_get_customize(); }},
};

// Several requests by those above.
inline const IndirectRequest combined_requests[] = {
    {"cfg_apply_all", [] { cfg_apply_all(); }},
    {"cfg_get_q47_wantype", [] { cfg_get_q47_wantype(); }},
    {"cfg_is_iphost_conn", [] { cfg_is_iphost_conn(requests::long_path); }},
};

// ---- requests without a lock -----------------------------------------------

// They wait for an answer.
inline const RequestFunction unlocked_requests[] = {
    {"zan_fad_send", class_action, 42, [] { return zan_fad_send(42, 1, 0, 42, "name"); },
     [] { zan_fad_send(42, 1, 0, 42, requests::long_name); }, requests::in_one_line},
};

// They wait for no answer: the result is that of the send, 0, or 1.
struct PostFunction {
    const char *name;
    int (*make)();
    void (*make_longest)();
    int result;
    std::vector<std::string> report;
};

inline std::ostream &operator<<(std::ostream &out, const PostFunction &post) {
    return out << post.name;
}

inline const PostFunction posts[] = {
    {"zan_fad_send", [] { return zan_fad_send(42, 0, 0, 42, "name"); },
     [] { zan_fad_send(42, 0, 0, 42, requests::long_name); }, 1, requests::in_one_line},
    {"zan_report_event_result", [] { return zan_report_event_result(1, 2); },
     [] { zan_report_event_result(1, 2); }, 0, requests::in_one_line},
    {"zan_do_cwmp_request", [] { return zan_do_cwmp_request(1, "data", 4); },
     [] { zan_do_cwmp_request(1, requests::long_name, 3000); }, 1, requests::in_one_line},
    {"zan_ctl_request",
     [] { return zan_ctl_request("a b"); },
     [] { zan_ctl_request(requests::long_name); },
     0,
     {":zan_msg_send fail! cmdline=a b"}},
    {"zan_firewall_request", [] { return zan_firewall_request("F", "P"); },
     [] { zan_firewall_request(requests::long_name, "P"); }, 0, requests::with_line("-f F -p P")},
    {"zan_firewall_request2", [] { return zan_firewall_request2("F", "P", "A"); },
     [] { zan_firewall_request2(requests::long_name, "P", "A"); }, 0,
     requests::with_line("-f F -p P -a A")},
    {"zan_firewall_request3", [] { return zan_firewall_request3("%d", 3); },
     [] { zan_firewall_request3("%s", requests::long_name); }, 0, requests::with_line("-C 3")},
    {"zan_firewall_request4", [] { return zan_firewall_request4("F", "K"); },
     [] { zan_firewall_request4(requests::long_name, "K"); }, 0, requests::with_line("-f F -k K")},
    {"zan_firewall_l2b_notify", [] { return zan_firewall_l2b_notify("P", "I", 4); },
     [] { zan_firewall_l2b_notify(requests::long_name, "I", 4); }, 0,
     requests::with_line("-b -p P -i I -m 4")},
};

} // namespace zan::test
