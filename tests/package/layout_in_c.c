/* SPDX-License-Identifier: MIT */
#include "package/layout.h"

#include <string.h>

void fill_in_c(zan_msg *msg);

/* Every field has a value of its own. */
void fill_in_c(zan_msg *msg) {
    msg->mtype = 1001;
    msg->body.type = 1002;
    msg->body.cmd = 1003;
    strcpy(msg->body.dst, "destination");
    strcpy(msg->body.src, "source");
    msg->body.pid = 1004;
    msg->body.time = 1005;
    msg->body.spare = 1006;
    msg->body.result = -1007;
    msg->body.aux = 1008;
    msg->body.arg = 1009;
    msg->body.len = 1010;
    strcpy(msg->body.data, "payload");
}
