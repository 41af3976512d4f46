// SPDX-License-Identifier: MIT
#pragma once

#include "request/services.h"
#include "state/daemon.h"

namespace zan::sim {

// Sends the record to the module of this name: "gone" if no module of that name can
// be reached.
Delivery deliver(Daemon &daemon, std::string_view name, const Record &record);

// Sends a message in zansim's own name.
Result<std::string> send_text(Daemon &daemon, std::string_view module, std::string_view text);

} // namespace zan::sim
