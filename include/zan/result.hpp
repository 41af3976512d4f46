// SPDX-License-Identifier: MIT
// Results of requests: a value, or an error that says whose it is.
#ifndef ZAN_RESULT_HPP
#define ZAN_RESULT_HPP

#include <zan.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace zan {

enum class Failure {
    refused,        // the daemon answered with a negative result: `code`, and its text
    not_sent,       // the request did not leave this process
    no_answer,      // sent, but not answered by the deadline; it may have taken effect
    not_registered, // no daemon, or it does not accept this module; nothing was sent
    bad_argument,   // found before sending, e.g. a path longer than the record takes
    bad_value       // the daemon answered, but not with a value of the wanted type
};

struct Error {
    Failure failure;
    int code;         // refused: the daemon's; otherwise one of enum zan_error
    std::string text; // what failed and why, or the text that the daemon gave

    // One line for people, without a line end.
    std::string message() const {
        if (failure != Failure::refused)
            return text;
        return "refused with " + std::to_string(code) + (text.empty() ? "" : ": " + text);
    }
};

namespace detail {

[[noreturn]] inline void fail_access(const Error &error) {
    std::fprintf(stderr, "zan::Result: value of a failed request used: %s\n",
                 error.message().c_str());
    std::abort();
}

} // namespace detail

// A value or an Error.  Reading the value of an error, or the error of a value, ends the
// process: test the result first, or use value_or().
template<typename T> class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T &value() & {
        require_value();
        return *std::get_if<0>(&state_);
    }
    const T &value() const & {
        require_value();
        return *std::get_if<0>(&state_);
    }
    T &&value() && {
        require_value();
        return std::move(*std::get_if<0>(&state_));
    }
    T &operator*() & { return value(); }
    const T &operator*() const & { return value(); }
    T &&operator*() && { return std::move(*this).value(); }
    T *operator->() { return &value(); }
    const T *operator->() const { return &value(); }

    template<typename U> T value_or(U &&otherwise) const & {
        return ok() ? value() : static_cast<T>(std::forward<U>(otherwise));
    }
    template<typename U> T value_or(U &&otherwise) && {
        return ok() ? std::move(*this).value() : static_cast<T>(std::forward<U>(otherwise));
    }

    const Error &error() const {
        if (ok())
            std::abort();
        return *std::get_if<1>(&state_);
    }
    bool failed_with(Failure failure) const { return !ok() && error().failure == failure; }

private:
    void require_value() const {
        if (!ok())
            detail::fail_access(error());
    }

    std::variant<T, Error> state_;
};

template<> class [[nodiscard]] Result<void> {
public:
    Result() : state_(std::in_place_index<0>) {}
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }
    const Error &error() const {
        if (ok())
            std::abort();
        return *std::get_if<1>(&state_);
    }
    bool failed_with(Failure failure) const { return !ok() && error().failure == failure; }

private:
    std::variant<std::monostate, Error> state_;
};

} // namespace zan

#endif
