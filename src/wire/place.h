// SPDX-License-Identifier: MIT
// Where modules and the daemon find each other: files, ports and addresses.
#pragma once

#include "zan.h"

namespace zan::wire {

// ---- the daemon's files ----------------------------------------------------

// The id of the queue that takes requests, and of the one that answers registrations.
inline constexpr char request_queue_file[] = ZAN_QUEUE_FILE;
inline constexpr char registration_queue_file[] = ZAN_REGISTRATION_QUEUE_FILE;

// Where the daemon accepts agents over TCP.
inline constexpr char port_file[] = "/tmp/zan.socket";
inline constexpr char address_file[] = "/tmp/zan.socketip";

// ---- files of modules, as formats ------------------------------------------

// Name and instance of a local socket; ZAN_KEY_FILE is that of a queue's key file.
inline constexpr char local_socket_format[] = "/tmp/%s_%d.ls";
// Name: the port of a module's datagram socket.
inline constexpr char module_port_format[] = "/tmp/%s.info";

// The key of the log table, for people who look for the segment.
inline constexpr char log_key_file[] = "/tmp/ipc_used";

// ---- ports and addresses ---------------------------------------------------

// The first is where the daemon listens unless it is taken, and where modules connect
// without a file.
inline constexpr int first_daemon_port = 2679;
inline constexpr int first_module_port = 12000;
inline constexpr int last_port = 65535;
inline constexpr char default_daemon_address[] = "192.168.0.1";

} // namespace zan::wire
