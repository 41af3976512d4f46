// SPDX-License-Identifier: MIT
// Records on the daemon link, where answers and unsolicited records share one
// stream of bytes.
#pragma once

#include "msg/answer.h"

namespace zan {

// Starts a new link with a new record: a partly received one is dropped.  Records set
// aside stay for the next poll.
void restart_stream();

// zan_client_recv_response; `answer` is filled for a value that was read.
int await_stream_answer(int type, int cmd, char *err, Answer *answer);

} // namespace zan
