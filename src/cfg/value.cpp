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

// cfg_getint, cfg_setint and cfg_getcount hand their formatted path on as a
// format.  There are no arguments for it, so "%%" is all that it can say; any
// other "%" stays as it is.
class FormattedAgain {
public:
    explicit FormattedAgain(const char *path) {
        char *out = text_;
        for (const char *in = path; *in != '\0'; ++in) {
            if (in[0] == '%' && in[1] == '%')
                ++in;
            *out++ = *in;
        }
        *out = '\0';
    }
    const char *text() const { return text_; }

private:
    char text_[ZAN_PATH_SIZE];
};

} // namespace
} // namespace zan

using namespace zan;

int cfg_getstr(char *value, int size, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<> path(fmt, arguments);
    va_end(arguments);
    return get_text("cfg_getstr", ZAN_CFG_GET, path.text(), value, size);
}

int cfg_getarray(char *value, int size, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<> path(fmt, arguments);
    va_end(arguments);
    return get_text("cfg_getarray", ZAN_CFG_GET_ARRAY, path.text(), value, size);
}

int cfg_setstr(const char *value, const char *fmt, ...) {
    if (value == nullptr || fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<> path(fmt, arguments);
    va_end(arguments);
    return set_text(path.text(), value);
}

int cfg_getint(const char *fmt, ...) {
    if (fmt == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<> path(fmt, arguments);
    va_end(arguments);
    char number[number_size] = {};
    const FormattedAgain asked(path.text());
    if (get_text("cfg_getstr", ZAN_CFG_GET, asked.text(), number, sizeof number) != 1)
        std::printf("cfg_getint failed for %s\n", path.text());
    return to_int(number);
}

int cfg_setint(int value, const char *fmt, ...) {
    if (fmt == nullptr)
        return ZAN_ERR;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<> path(fmt, arguments);
    va_end(arguments);
    char number[16];
    zan_sprintf(number, sizeof number, "%d", value);
    return set_text(FormattedAgain(path.text()).text(), number);
}

int cfg_getcount(const char *fmt, ...) {
    if (fmt == nullptr)
        return 0;
    va_list arguments;
    va_start(arguments, fmt);
    const Path<count_path_size> path(fmt, arguments);
    va_end(arguments);
    // "#" behind an object asks for the number of its instances.
    char counted[count_path_size + 1];
    std::snprintf(counted, sizeof counted, "%s#", path.text());
    char number[number_size] = {};
    get_text("cfg_getstr", ZAN_CFG_GET, FormattedAgain(counted).text(), number, sizeof number);
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
