// SPDX-License-Identifier: MIT
// Operations on nodes of the configuration tree.
#include "cfg/request.h"

#include <cstdarg>

using namespace zan;

namespace {

int request_by_path(const char *function, int cmd, const char *path) {
    return exchange_locked(configuration_request(function, cmd, path, {"path", path}));
}

} // namespace

int cfg_anchor(const char *fmt, ...) {
    if (fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return request_by_path("cfg_anchor", ZAN_CFG_ANCHOR, path.text());
}

int cfg_del(const char *fmt, ...) {
    if (fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return request_by_path("cfg_del", ZAN_CFG_DELETE, path.text());
}
