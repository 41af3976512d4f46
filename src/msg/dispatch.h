// SPDX-License-Identifier: MIT
#pragma once

#include "zan.h"

namespace zan {

// zan_process_data for a record with `room` bytes of storage after its header.
int dispatch(zan_body &body, int room);

// The record's `len`, which its sender chose, limited to `room` bytes of storage.
int payload_length(const zan_body &body, int room);

} // namespace zan
