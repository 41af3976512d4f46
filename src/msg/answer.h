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

// zan_client_recv_msq_response on the given storage.  `answer`, when not null, is
// filled for the commands that answer with text.
int await_answer(ReceiveRecord &record, int type, int cmd, char *err, Answer *answer);

// Copies an answer's text to where it stays until the next call, from any thread.
char *keep_text(const Answer &answer);

// Takes and dispatches one waiting record of the own queue; -1, when there is no
// own queue, is printed under the name of `function`: always, or unless errno
// happens to say ENOMSG.
enum class Enomsg { silent, printed };
int dispatch_pending(const char *function, int msgtyp, Enomsg enomsg = Enomsg::silent);

// The same of any type, but waits for the record; an interruption gives 0.
int dispatch_next();

} // namespace zan
