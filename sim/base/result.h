// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace zan::sim {

// Why something failed.  The text goes to the module or, at start-up, to standard
// error; then the code does not matter.
struct Error {
    int code = 0;
    std::string text;
};

// A value, or the reason of the failure.
template<typename T, typename Reason = Error> class Result {
public:
    Result(T value) : state_(std::move(value)) {}
    Result(Reason reason) : state_(std::move(reason)) {}

    explicit operator bool() const { return std::holds_alternative<T>(state_); }
    const T &operator*() const { return std::get<T>(state_); }
    T &operator*() { return std::get<T>(state_); }
    const T *operator->() const { return &std::get<T>(state_); }
    T *operator->() { return &std::get<T>(state_); }
    const Reason &error() const { return std::get<Reason>(state_); }

private:
    std::variant<T, Reason> state_;
};

struct Done {};

// The negative results of zansim.  They are part of its interface (docs/zansim.md): a
// code keeps its meaning, and new ones are appended.
enum Code : int {
    no_node = -101,
    no_instance = -102,
    read_only = -103,
    too_long = -104,
    bad_value = -105,
    malformed = -106,
    unknown_command = -107,
    unknown_module = -108,
    not_a_value = -109,
    not_a_table = -110,
    cannot_add = -111,
    instance_exists = -112,
    not_subscribed = -113,
    not_registered = -114,
    answer_too_long = -115,
    bad_path = -116,
    no_queue = -117,
    write_only = -118,
    too_many_subscriptions = -119,
    unreachable = -120,
    busy = -121,
    bad_file = -122,
    file_failed = -123,
    shell_failed = -124,
};

} // namespace zan::sim
