// SPDX-License-Identifier: MIT
// The attributes of a node of the configuration tree.
#include "cfg/formatted.h"
#include "msg/lock.h"
#include "msg/request.h"
#include "msg/request_record.h"
#include "wire/text_request.h"

#include <cstdint>

namespace zan {
namespace {

constexpr Command get_attr = {"cfg_getattr", ZAN_CFG_GET_ATTR, "tmp_path"};
constexpr Command set_attr = {"cfg_setattr", ZAN_CFG_SET_ATTR, "tmp_path"};

} // namespace
} // namespace zan

using namespace zan;

intptr_t cfg_getattr(const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(0, path, fmt);
    const ApiLock lock;
    return with_request_record([&](ReceiveRecord &record) -> intptr_t {
        if (send_request(record.msg, text_request(get_attr, path.text())) < 0)
            return ZAN_ERR_SEND;
        Answer answer;
        await_answer(record, get_attr.type, get_attr.cmd, nullptr, &answer);
        return reinterpret_cast<intptr_t>(answer.text != nullptr ? keep_text(answer) : nullptr);
    });
}

int cfg_setattr(const char *attr, const char *fmt, ...) {
    ZAN_FORMAT_OR_RETURN(ZAN_ERR, path, fmt);
    if (attr == nullptr)
        return ZAN_ERR;
    wire::FixedText<ZAN_LONGEST_ATTRIBUTES + 1> payload;
    wire::format_path_text(payload, {.path = path.text(), .text = attr});
    return exchange_locked(
        {.command = set_attr, .payload = payload.view(), .subject = path.text()});
}
