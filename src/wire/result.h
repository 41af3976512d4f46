// SPDX-License-Identifier: MIT
// Negative results: those of the library, and those that the stand-in daemon answers
// with.
#pragma once

#include "zan.h"

#include <array>
#include <string_view>

namespace zan::wire {

// Part of the stand-in's interface (docs/zansim.md): a code keeps its meaning, new ones
// are appended.
enum Code : int {
    no_node = -101,
    no_instance = -102,
    read_only = -103,
    too_long = -104,
    bad_value = -105,
    malformed = -106,
    unknown_command = -107,
    unknown_module = -108,
    not_a_value = -109,
    not_a_table = -110,
    cannot_add = -111,
    instance_exists = -112,
    not_subscribed = -113,
    not_registered = -114,
    answer_too_long = -115,
    bad_path = -116,
    no_queue = -117,
    write_only = -118,
    too_many_subscriptions = -119,
    unreachable = -120,
    busy = -121,
    bad_file = -122,
    file_failed = -123,
    shell_failed = -124,
};

struct ResultName {
    int code;
    std::string_view name;
};

inline constexpr std::array results{
    ResultName{ZAN_ERR, "error"},
    ResultName{ZAN_ERR_TIMEOUT, "timeout"},
    ResultName{ZAN_ERR_SEND, "send-failed"},
    ResultName{ZAN_ERR_CREATE, "create-failed"},
    ResultName{ZAN_ERR_REMOVE, "remove-failed"},
    ResultName{ZAN_ERR_MESH, "mesh-not-ready"},
    ResultName{ZAN_ERR_QUEUE_IDS, "no-queue-ids"},
    ResultName{ZAN_ERR_REFUSED, "refused"},
    ResultName{no_node, "no-node"},
    ResultName{no_instance, "no-instance"},
    ResultName{read_only, "read-only"},
    ResultName{too_long, "too-long"},
    ResultName{bad_value, "bad-value"},
    ResultName{malformed, "malformed"},
    ResultName{unknown_command, "unknown-command"},
    ResultName{unknown_module, "unknown-module"},
    ResultName{not_a_value, "not-a-value"},
    ResultName{not_a_table, "not-a-table"},
    ResultName{cannot_add, "cannot-add"},
    ResultName{instance_exists, "instance-exists"},
    ResultName{not_subscribed, "not-subscribed"},
    ResultName{not_registered, "not-registered"},
    ResultName{answer_too_long, "answer-too-long"},
    ResultName{bad_path, "bad-path"},
    ResultName{no_queue, "no-queue"},
    ResultName{write_only, "write-only"},
    ResultName{too_many_subscriptions, "too-many-subscriptions"},
    ResultName{unreachable, "unreachable"},
    ResultName{busy, "busy"},
    ResultName{bad_file, "bad-file"},
    ResultName{file_failed, "file-failed"},
    ResultName{shell_failed, "shell-failed"},
};

} // namespace zan::wire
