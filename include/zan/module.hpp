// SPDX-License-Identifier: MIT
// A module on the daemon's queues.
#ifndef ZAN_MODULE_HPP
#define ZAN_MODULE_HPP

#include "client.hpp"
#include "detail/queue_endpoint.hpp"

namespace zan {

// This process as a module of the daemon, from construction to destruction.
//
// The constructor registers once and removes queues that dead processes of the same name and
// instance have left.  When that fails, because there is no daemon yet for instance, every
// later call tries again: registration() has the error.  After a restart of the daemon the module
// registers again by itself and renews its subscriptions: at the next call, or, when it has
// any, within Options::check_interval.
//
// The destructor unregisters and removes the queue, also while the daemon is away; it takes
// up to a second when the daemon does not answer.  No other thread may use the module then.
// In a forked child every call fails with not_registered, and the destructor does nothing.
class Module : public Client {
public:
    // The name has 1 to 31 characters and no "/".
    explicit Module(std::string_view name, Options options = {})
        : Client(std::make_shared<detail::QueueEndpoint>(std::string(name), std::move(options))),
          registration_(connect()) {}
    ~Module() { shut_down(); }

    // What became of the registration in the constructor.
    const Result<void> &registration() const { return registration_; }
    explicit operator bool() const { return registration_.ok(); }

    // The queue that the daemon knows the module by now; it changes when the module registers
    // again.  -1: none yet.
    int queue() const { return static_cast<detail::QueueEndpoint &>(*endpoint_).queue(); }

    // Makes a call without blocking this thread: call(module) runs on a thread of the
    // module's, one such call after the other; dispatch() then hands its result to completion.
    // Fails only when the system has no thread.
    //
    //     module.async([](zan::Module &m) { return m.get<int>("/runtime/hw/type"); },
    //                  [](const zan::Result<int> &type) { ... });
    //
    // Both must be copyable.  Those that have not begun when the module is destroyed are
    // dropped, and so are completions that dispatch() has not reached.
    template<typename Call, typename Completion>
    Result<void> async(Call call, Completion completion) {
        return run_async([this, call = std::move(call)]() mutable { return call(*this); },
                         std::move(completion));
    }

private:
    Result<void> registration_;
};

} // namespace zan

#endif
