// SPDX-License-Identifier: MIT
#pragma once

#include "request/services.h"
#include "state/daemon.h"

#include <functional>

namespace zan::sim {

// What remains to be done under the lock.
using LockedPart = std::function<void(Daemon &)>;

// The part of a request that needs the disk.  It runs on the file thread, without the
// lock; the part that it returns then runs under the lock.
using DiskPart = std::function<Result<LockedPart>()>;

// Queues the disk part.  The requester is answered when it is done.
Result<std::string> work_with_files(Daemon &daemon, const Request &request, DiskPart part);

// Replaces the tree by the one in the named file.
Result<std::string> load_configuration(Daemon &daemon, const Request &request, std::string name);

// Writes a file.  The text is made on the file thread, too.
Result<std::string> store_file(
    Daemon &daemon, const Request &request, std::string name, std::function<std::string()> text,
    LockedPart stored = [](Daemon &) {});

} // namespace zan::sim
