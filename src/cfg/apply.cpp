// SPDX-License-Identifier: MIT
// Resets to the defaults, and applies the stored configuration to the running system.
#include "cfg/formatted.h"
#include "msg/identity.h"
#include "msg/request.h"

#include <cstdio>

namespace zan {
namespace {

constexpr Command reset = {"cfg_reset", ZAN_CFG_RESET};
constexpr Command apply_all = {"cfg_apply_all", ZAN_CFG_APPLY_ALL};
constexpr Command apply_firewall_event = {"cfg_apply_firewall_event", ZAN_CFG_APPLY_FIREWALL};

constexpr int being_written = 1;

// Read before the lock is taken: writing may begin right after the answer.  If the state
// cannot be read, no writer is assumed.
bool is_being_written_remotely() {
    return cfg_getint("/runtime/app/tr069/config_state") == being_written;
}

} // namespace
} // namespace zan

using namespace zan;

int cfg_reset(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return exchange_locked(text_request(reset, path.text()));
}

int cfg_apply_all(void) {
    if (is_being_written_remotely()) {
        const std::string_view module = module_name();
        std::printf("%s[%.*s]:TR069 doing configuration setting!\n", apply_all.function,
                    static_cast<int>(module.size()), module.data());
        return ZAN_ERR;
    }
    return exchange_locked({.command = apply_all});
}

int cfg_apply_firewall_event(void) {
    return exchange_locked({.command = apply_firewall_event});
}
