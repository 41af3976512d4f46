// SPDX-License-Identifier: MIT
// Single values of the configuration tree.
#include "cfg/formatted.h"
#include "msg/request.h"
#include "util/number.h"
#include "util/text.h"
#include "wire/text_request.h"

#include <cstdio>

namespace zan {
namespace {

constexpr Command get = {"cfg_getstr", ZAN_CFG_GET, "path"};
constexpr Command get_array = {"cfg_getarray", ZAN_CFG_GET_ARRAY, "path"};
constexpr Command set = {"cfg_setstr", ZAN_CFG_SET, "path"};
constexpr Command get_module_pid = {"cfg_get_module_pid", ZAN_CFG_MODULE_PID, "module"};

constexpr std::size_t number_size = 256;
constexpr std::size_t count_path_size = 256;

int get_text(const Command &command, const Formatted &path, char *value, int size) {
    return exchange_for_text(text_request(command, path.text()), value, size);
}

int set_text(const Formatted &path, const char *value) {
    wire::FixedText<ZAN_LONGEST_SET + 1> payload;
    wire::format_assignment(payload, {.path = path.text(), .value = value});
    return exchange_locked({.command = set, .payload = payload.view(), .subject = path.text()});
}

} // namespace
} // namespace zan

using namespace zan;

int cfg_getstr(char *value, int size, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return get_text(get, path, value, size);
}

int cfg_getarray(char *value, int size, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return get_text(get_array, path, value, size);
}

int cfg_setstr(const char *value, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    return value != nullptr ? set_text(path, value) : ZAN_ERR;
}

int cfg_getint(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(0, path, fmt);
    char number[number_size] = {};
    if (get_text(get, path.formatted_again(), number, sizeof number) != 1)
        std::printf("cfg_getint failed for %s\n", path.text());
    return to_int(number);
}

int cfg_setint(int value, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    char number[16];
    zan_sprintf(number, sizeof number, "%d", value);
    return set_text(path.formatted_again(), number);
}

int cfg_getcount(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(0, path, fmt, count_path_size);
    path.append(wire::count_mark);
    char number[number_size] = {};
    get_text(get, path.formatted_again(), number, sizeof number);
    return to_int(number);
}

int cfg_get_module_pid(const char *module) {
    if (module == nullptr)
        return ZAN_ERR;
    char name[default_bound];
    zan_strcpy(name, module, sizeof name);
    int pid = 0;
    // The report names the module as the caller gave it, the record what fits.
    const int result =
        exchange_locked({.command = get_module_pid, .payload = name, .subject = module},
                        [&](const Answer &answer) { pid = to_int(answer.text); });
    return result == 1 ? pid : result;
}
