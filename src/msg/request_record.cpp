// SPDX-License-Identifier: MIT
#include "msg/request_record.h"

constinit std::atomic<bool> zan::StaticRecord::taken_ = false;
constinit zan::ReceiveRecord zan::StaticRecord::record_ = {};
