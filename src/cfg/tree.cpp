// SPDX-License-Identifier: MIT
// The configuration tree as a whole, and its nodes.
#include "cfg/formatted.h"
#include "msg/request.h"

#include <cstdarg>

using namespace zan;

namespace zan {
namespace {

constexpr Command anchor = {"cfg_anchor", ZAN_CFG_ANCHOR, "path"};
constexpr Command del = {"cfg_del", ZAN_CFG_DELETE, "path"};

} // namespace
} // namespace zan

using namespace zan;

int cfg_anchor(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return exchange_locked(text_request(anchor, path.text()));
}

int cfg_del(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return exchange_locked(text_request(del, path.text()));
}
