// SPDX-License-Identifier: MIT
// Records on the daemon link, where answers and unsolicited records share one
// stream of bytes.
#pragma once

#include "msg/answer.h"

namespace zan {

// A new link begins with a new record: what an earlier one left half received is
// dropped.  What was set aside stays for the next poll.
void restart_stream();

// zan_client_recv_response; `answer` is filled for a value that was read.
int await_stream_answer(int type, int cmd, char *err, Answer *answer);

} // namespace zan
