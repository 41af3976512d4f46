// SPDX-License-Identifier: MIT
#include "notification.h"

#include "percent.h"

#include <zan.h>

#include <optional>

namespace zan::ctl {
namespace {

// Without an escape that the end of the field cut off.
std::string_view without_cut_escape(std::string_view text) {
    const std::size_t percent = text.rfind('%');
    const bool incomplete = percent != std::string_view::npos && text.size() - percent < 3;
    return incomplete ? text.substr(0, percent) : text;
}

} // namespace

Change decode_change(std::string_view f1, std::string_view f2, std::string_view f3,
                     std::string_view f6, int f4, int f5) {
    // A value that fills its field may have been longer.
    const bool cut = f3.size() >= ZAN_LONGEST_CHANGED_VALUE;
    const std::optional<std::string> value = percent_decode(cut ? without_cut_escape(f3) : f3);
    return {std::string(f1), std::string(f2), value.value_or(std::string(f3)), cut, f4, f5,
            std::string(f6)};
}

std::string kind_text(int kind) {
    static constexpr const char *texts[] = {"changed", "added", "deleted"};
    if (kind < 1 || kind > 3)
        return std::to_string(kind);
    return texts[kind - 1];
}

} // namespace zan::ctl
