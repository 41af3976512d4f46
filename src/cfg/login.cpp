// SPDX-License-Identifier: MIT
// Login checks, and the user accounts.
#include "msg/lock.h"
#include "msg/request.h"
#include "util/number.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace zan {
namespace {

constexpr Command login = {"zan_loginauth", ZAN_CFG_LOGIN};

// The items, one per line.  Text that does not fit is left out, but counted.
class LoginText {
public:
    void append(const char *separator, const char *item) {
        const std::size_t end = std::min(counted_, sizeof text_ - 1);
        std::snprintf(text_ + end, sizeof text_ - end, "%s%s", separator, item);
        counted_ += std::strlen(separator) + std::strlen(item);
    }

    const char *text() const { return text_; }
    int counted() const { return static_cast<int>(std::min<std::size_t>(counted_, INT_MAX / 2)); }

private:
    char text_[ZAN_LONGEST_LOGIN + 1] = {};
    std::size_t counted_ = 0;
};

} // namespace
} // namespace zan

using namespace zan;

int zan_loginauth(zan_login_req *req) {
    if (req == nullptr)
        return ZAN_ERR;
    LoginText text;
    const char *separator = "";
    for (const char *item : {req->item1, req->item2, req->item3, req->item4}) {
        if (item == nullptr)
            return ZAN_ERR;
        text.append(separator, item);
        separator = "\n";
    }
    if (req->item5 != nullptr)
        text.append(separator, req->item5);
    const ApiLock lock;
    req->result = 0;
    return exchange({.command = login, .payload = text.text(), .len = text.counted()},
                    [&](const Answer &answer) { req->result = to_int(answer.text); });
}

int cfg_getcount_login_account(void) {
    return cfg_getcount("/sys/user");
}

int cfg_getstr_login_un(char *value, int size, int index) {
    return cfg_getstr(value, size, "/sys/user:%d/name", index);
}

int cfg_getstr_login_pw(char *value, int size, int index) {
    return cfg_getstr(value, size, "/sys/user:%d/password", index);
}
