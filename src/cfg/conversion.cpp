// SPDX-License-Identifier: MIT
// Converting names and paths between the daemon's forms.
#include "cfg/conversion.h"

#include "cfg/formatted.h"
#include "msg/request.h"
#include "util/text.h"
#include "wire/text_request.h"

#include <cstdio>
#include <cstring>

namespace zan {
namespace {

constexpr Command convert = {"zan_convert", ZAN_CFG_CONVERT};
constexpr Command converted_path = {"zan_convert_path", ZAN_CFG_CONVERT_PATH};
constexpr Command interface_name = {"zan_cfg_get_ifname", ZAN_CFG_IFNAME};

// A text that fits is also limited by the default bound; one that does not fit is cut
// without a warning.
void copy_converted(char *value, int size, const char *text) {
    if (value == nullptr || size < 1)
        return;
    const auto room = static_cast<std::size_t>(size);
    if (std::strlen(text) < room) {
        zan_strcpy(value, text, 0);
        return;
    }
    std::memcpy(value, text, room - 1);
    value[room - 1] = '\0';
}

} // namespace

int convert_path(char *value, int size, int kind, const char *path) {
    if (kind < 0 || kind >= wire::conversion_kinds)
        return ZAN_ERR;
    wire::FixedText<ZAN_PATH_SIZE> payload;
    wire::format_conversion(payload, {.kind = static_cast<char>('0' + kind), .path = path});
    return exchange_locked(text_request(converted_path, payload.c_str()),
                           [&](const Answer &answer) { copy_converted(value, size, answer.text); });
}

} // namespace zan

using namespace zan;

int zan_convert(int mode, char *text) {
    if (text == nullptr)
        return ZAN_ERR;
    char payload[default_bound];
    zan_strcpy(payload, text, sizeof payload);
    return exchange_locked({.command = convert, .payload = payload, .arg = mode});
}

int zan_convert_path(char *value, int size, int kind, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return convert_path(value, size, kind, path.text());
}

int zan_cfg_get_ifname(char *value, int size, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return exchange_for_text(text_request(interface_name, path.text()), value, size);
}
