// SPDX-License-Identifier: MIT
#include "cfg/request.h"
#include "util/number.h"
#include "util/text.h"

#include <cstdarg>
#include <cstdio>

namespace zan {
namespace {

constexpr std::size_t number_size = 256;
constexpr std::size_t count_path_size = 256;
constexpr std::size_t set_payload_bound = 2047;

int get_text(const char *function, int cmd, const char *path, char *value, int size) {
    return exchange_for_text(configuration_request(function, cmd, path, {"path", path}), value,
                             size);
}

int set_text(const char *path, const char *value) {
    char payload[set_payload_bound];
    // The digit in front is a flag that is always 0; the daemon splits path and
    // value at the first blank.
    std::snprintf(payload, sizeof payload, "%d%s %s", 0, path, value);
    return exchange_locked(
        configuration_request("cfg_setstr", ZAN_CFG_SET, payload, {"path", path}));
}

} // namespace
} // namespace zan

using namespace zan;

int cfg_getstr(char *value, int size, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return get_text("cfg_getstr", ZAN_CFG_GET, path.text(), value, size);
}

int cfg_getarray(char *value, int size, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return get_text("cfg_getarray", ZAN_CFG_GET_ARRAY, path.text(), value, size);
}

int cfg_setstr(const char *value, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    return set_text(path.text(), value);
}

int cfg_getint(const char *fmt, ...) {
    if (fmt == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    char number[number_size] = {};
    const Path asked = path.formatted_again();
    if (get_text("cfg_getstr", ZAN_CFG_GET, asked.text(), number, sizeof number) != 1)
        std::printf("cfg_getint failed for %s\n", path.text());
    return to_int(number);
}

int cfg_setint(int value, const char *fmt, ...) {
    if (fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path path(fmt, arguments);
    va_end(arguments);
    char number[16];
    zan_sprintf(number, sizeof number, "%d", value);
    return set_text(path.formatted_again().text(), number);
}

int cfg_getcount(const char *fmt, ...) {
    if (fmt == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, fmt);
    Path path(fmt, arguments, count_path_size);
    va_end(arguments);
    // Behind an object it asks for the number of its instances.
    path.append('#');
    char number[number_size] = {};
    get_text("cfg_getstr", ZAN_CFG_GET, path.formatted_again().text(), number, sizeof number);
    return to_int(number);
}

int cfg_get_module_pid(const char *module) {
    if (module == nullptr)
        return ZAN_ERR;
    char name[default_bound];
    zan_strcpy(name, module, sizeof name);
    const Request request =
        configuration_request("cfg_get_module_pid", ZAN_CFG_MODULE_PID, name, {"module", module});
    const ApiLock lock;
    Answer answer;
    const int result = exchange(request, &answer);
    return result == 1 && answer.text != nullptr ? to_int(answer.text) : result;
}
