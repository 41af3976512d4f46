// SPDX-License-Identifier: MIT
// The configuration tree as a whole, and its nodes.
#include "cfg/formatted.h"
#include "msg/request.h"
#include "wire/text_request.h"

namespace zan {
namespace {

constexpr Command anchor = {"cfg_anchor", ZAN_CFG_ANCHOR, "path"};
constexpr Command del = {"cfg_del", ZAN_CFG_DELETE, "path"};
constexpr Command reload = {"cfg_reload", ZAN_CFG_RELOAD, "loadfile"};
constexpr Command set_file = {"cfg_setfile", ZAN_CFG_SET_FILE, "loadfile"};
constexpr Command dump = {"cfg_dump", ZAN_CFG_DUMP, "dumpfile"};
constexpr Command print = {"cfg_print", ZAN_CFG_PRINT, "tmp_path"};

// The report names the file as the caller passed it; the record holds what fits.
int request_with_file(const Command &command, const char *file, int arg = 0) {
    if (file == nullptr)
        return ZAN_ERR;
    char payload[ZAN_LONGEST_FILE_NAME + 1];
    zan_strcpy(payload, file, sizeof payload);
    return exchange_locked({.command = command, .payload = payload, .subject = file, .arg = arg});
}

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

int cfg_reload(char *file) {
    return request_with_file(reload, file);
}

int cfg_setfile(char *file) {
    return request_with_file(set_file, file);
}

int cfg_dump(int mode, char *file) {
    return request_with_file(dump, file, mode);
}

int cfg_print(int mode, const char *extra, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    wire::PathText request = {.path = path.text()};
    if (extra != nullptr)
        request.text = extra;
    wire::FixedText<ZAN_LONGEST_PRINT + 1> payload;
    wire::format_path_text(payload, request);
    return exchange_locked(
        {.command = print, .payload = payload.view(), .subject = path.text(), .arg = mode});
}
