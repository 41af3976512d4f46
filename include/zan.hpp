// SPDX-License-Identifier: MIT
//
// The C++ interface to the zan daemon: everything that a module needs, with deadlines, and
// without the hazards of the C interface that lies below it.
//
//     #include <zan.hpp>
//
//     zan::Module module("wlan");
//     if (!module)
//         std::fprintf(stderr, "wlan: %s\n", module.registration().error().message().c_str());
//
//     const zan::Path radio = zan::Path("/InternetGatewayDevice/LANDevice")[1];
//     int channel = module.get<int>(radio / "channel").value_or(6);
//
//     auto changes = module.on_change(radio, [&](const zan::Change &change) { ... });
//     for (;;)
//         module.dispatch_for(std::chrono::seconds(60)); // or poll module.fd()
//
// Header-only, C++17 and Linux; needs <zan.h>, its library and threads.  Works without
// exceptions and RTTI and throws nothing itself.
//
// A mesh agent is a zan::Agent, with the same calls over TCP.
//
// A module may be used from all threads.  It has helper threads of its own, in which all
// signals are blocked: one from the first request on, which keeps deadlines, one from the
// first subscription, message with acknowledgement or action on, which receives, and one from
// the first async() on.
//
// The C interface beside it, in one process:
//   - allowed at any time: everything that makes no request, that is the event codecs, the
//     socket links between modules (ipc_...), and all of strings, addresses, interfaces,
//     paths, fields, time, hashing, processes and files, and zan_log(); zan_log_init() cannot read
//     the tree and takes the level and destination that it is given;
//   - requests, sends and receives of the C interface (cfg_..., ctl_..., zan_send..., actions,
//     firewall, subscriptions, zan_recv...) fail at once, with ZAN_ERR_SEND or ZAN_ERR and a
//     line on standard output that names the call: they know of no queue, because a zan::Module
//     keeps its own to itself, and can take none of its records;
//   - zan_register() makes the process a second module with a queue of its own.  It should have
//     another name or instance.
#ifndef ZAN_HPP
#define ZAN_HPP

#include <zan/agent.hpp>
#include <zan/module.hpp>
#include <zan/result.hpp>
#include <zan/text.hpp>

#endif
