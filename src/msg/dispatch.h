// SPDX-License-Identifier: MIT
#ifndef ZAN_MSG_DISPATCH_H
#define ZAN_MSG_DISPATCH_H

#include "zan.h"

namespace zan {

// The record's `len`, kept within the `room` bytes of storage behind `data`:
// it is what a sender wrote.
int payload_length(const zan_body &body, int room);

} // namespace zan

#endif
