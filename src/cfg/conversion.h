// SPDX-License-Identifier: MIT
#ifndef ZAN_CFG_CONVERSION_H
#define ZAN_CFG_CONVERSION_H

namespace zan {

// zan_convert_path of a path that is a text.
int convert_path(char *value, int size, int kind, const char *path);

} // namespace zan

#endif
