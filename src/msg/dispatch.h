// SPDX-License-Identifier: MIT
#pragma once

#include "zan.h"

namespace zan {

// zan_process_data for a record with `room` bytes of payload behind its header,
// followed by a NUL or the end of a whole record.
int dispatch(zan_body &body, int room);

// The record's `len`, kept within the `room` bytes of storage behind `data`:
// it is what a sender wrote.
int payload_length(const zan_body &body, int room);

} // namespace zan
