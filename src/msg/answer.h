// SPDX-License-Identifier: MIT
// Waiting for the answer to a request.
#pragma once

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

// Takes and dispatches one waiting record of the own queue; -1, when there is no
// own queue, is printed under the name of `function`: always, or unless errno
// happens to say ENOMSG.
enum class Enomsg { silent, printed };
int poll_own_queue(const char *function, int msgtyp, Enomsg enomsg = Enomsg::silent);

// The same of any type, but waits for the record; an interruption gives 0.
int await_own_queue();

} // namespace zan
