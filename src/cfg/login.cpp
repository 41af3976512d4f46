// SPDX-License-Identifier: MIT
// Login checks, and the user accounts.
#include "msg/lock.h"
#include "msg/request.h"
#include "util/number.h"
#include "wire/text_request.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace zan {
namespace {

constexpr Command login = {"zan_loginauth", ZAN_CFG_LOGIN};

} // namespace
} // namespace zan

using namespace zan;

int zan_loginauth(zan_login_req *req) {
    if (req == nullptr)
        return ZAN_ERR;
    wire::FixedText<ZAN_LONGEST_LOGIN + 1> text;
    bool is_first = true;
    for (const char *item : {req->item1, req->item2, req->item3, req->item4}) {
        if (item == nullptr)
            return ZAN_ERR;
        wire::format_login_item(text, item, is_first);
        is_first = false;
    }
    if (req->item5 != nullptr)
        wire::format_login_item(text, req->item5, false);
    // Items that do not fit are left out, but counted.
    const auto len = static_cast<int>(std::min<std::size_t>(text.counted(), INT_MAX / 2));
    const ApiLock lock;
    req->result = 0;
    return exchange({.command = login, .payload = text.view(), .len = len},
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
