// SPDX-License-Identifier: MIT
// Waiting for the answer to a request.
#ifndef ZAN_MSG_ANSWER_H
#define ZAN_MSG_ANSWER_H

#include "msg/record.h"

namespace zan {

// What an answer brought: its payload, ended by a NUL, inside the record it was
// received into.
struct Answer {
    char *text = nullptr;
    int len = 0;
};

// The record of the request that is in flight: the request is built in it and
// the answer received into it.  It belongs to the holder of the API lock, and
// the answer in it stays readable until the next request.  Being static it
// costs no stack, and only the pages that requests and answers reach.
ReceiveRecord &api_record();

// zan_client_recv_msq_response on the given storage.  `answer`, when not null, is
// filled for the commands that answer with text.
int match_answer(ReceiveRecord &record, int type, int cmd, char *err, Answer *answer);

// Takes and dispatches one waiting record of the own queue; a failure is printed
// under the name of `function`.
int poll_own_queue(const char *function, int msgtyp);

} // namespace zan

#endif
