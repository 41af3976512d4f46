// SPDX-License-Identifier: MIT
// A mesh agent on a TCP link to the daemon.
#ifndef ZAN_AGENT_HPP
#define ZAN_AGENT_HPP

#include "client.hpp"
#include "detail/link_endpoint.hpp"

namespace zan {

// This process as an agent of the daemon, with the calls of a Module, over a link of its own.
// A process may have both, under the same name or not.  Agents register without asking
// whether the device is a settled mesh agent: a Module tells, by mesh_ready().
//
// Other than a Module's queue, a link that is lost takes with it what happens until there is
// another one: changes and messages of that time are not delivered.
class Agent : public Client {
public:
    // The name has 1 to 31 characters and no "/".
    explicit Agent(std::string_view name, Options options = {})
        : Client(std::make_shared<detail::LinkEndpoint>(std::string(name), std::move(options))),
          registration_(connect()) {}
    ~Agent() { shut_down(); }

    // What became of the registration in the constructor.
    const Result<void> &registration() const { return registration_; }
    explicit operator bool() const { return registration_.ok(); }

    // As Module::async().
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
