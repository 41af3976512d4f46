// SPDX-License-Identifier: MIT
// Waiting for the answer to a request.
#pragma once

#include "msg/record.h"

namespace zan {

// An answer's payload, ended by a NUL, inside the record it was received into.
struct Answer {
    char *text = nullptr;
    int len = 0;
};

// zan_client_recv_msq_response on the given storage.  `answer`, if not null, is set for
// the commands that answer with text.
int await_answer(ReceiveRecord &record, int type, int cmd, char *err, Answer *answer);

// Copies an answer's text to static storage, where it stays until the next call from any
// thread.
char *keep_text(const Answer &answer);

// Receives and dispatches one waiting record of the own queue.  Without an own queue it
// returns -1 and prints that under the name of `function`: always, or unless errno is
// ENOMSG.
enum class Enomsg { silent, printed };
int dispatch_pending(const char *function, int msgtyp, Enomsg enomsg = Enomsg::silent);

// The same for any type, but waits for the record; returns 0 if interrupted.
int dispatch_next();

} // namespace zan
