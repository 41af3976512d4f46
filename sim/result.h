// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace zan::sim {

// Why something was not done.  The text goes to the module, or at start-up to
// the person who started zansim, for whom the code is of no interest.
struct Error {
    int code = 0;
    std::string text;
};

// A value, or the reason why there is none.
template<typename T> class Result {
public:
    Result(T value) : state_(std::move(value)) {}
    Result(Error error) : state_(std::move(error)) {}

    explicit operator bool() const { return std::holds_alternative<T>(state_); }
    const T &operator*() const { return std::get<T>(state_); }
    T &operator*() { return std::get<T>(state_); }
    const T *operator->() const { return &std::get<T>(state_); }
    T *operator->() { return &std::get<T>(state_); }
    const Error &error() const { return std::get<Error>(state_); }

private:
    std::variant<T, Error> state_;
};

struct Done {};

// The negative results zansim answers with.  The list is part of its interface
// (docs/zansim.md): a code keeps its meaning, new ones are appended.
enum Code : int {
    kNoNode = -101,
    kNoInstance = -102,
    kReadOnly = -103,
    kTooLong = -104,
    kBadValue = -105,
    kMalformed = -106,
    kUnknownCommand = -107,
    kUnknownModule = -108,
    kNotAValue = -109,
    kNotATable = -110,
    kCannotAdd = -111,
    kInstanceExists = -112,
    kNotSubscribed = -113,
    kNotRegistered = -114,
    kAnswerTooLong = -115,
    kBadPath = -116,
    kNoQueue = -117,
    kWriteOnly = -118,
    kTooManySubscriptions = -119,
    kUnreachable = -120,
};

} // namespace zan::sim
