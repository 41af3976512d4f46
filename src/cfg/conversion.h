// SPDX-License-Identifier: MIT
#pragma once

namespace zan {

// zan_convert_path of a path that is a text.
int convert_path(char *value, int size, int kind, const char *path);

} // namespace zan
