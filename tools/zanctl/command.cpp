// SPDX-License-Identifier: MIT
#include "command.h"

#include <algorithm>

namespace zan::ctl {
namespace {

std::vector<Family> &registered() {
    static std::vector<Family> all;
    return all;
}

} // namespace

FamilyRegistration::FamilyRegistration(const Family &family) {
    std::vector<Family> &all = registered();
    const auto next = std::find_if(all.begin(), all.end(), [&](const Family &other) {
        return other.position > family.position;
    });
    all.insert(next, family);
}

const std::vector<Family> &families() {
    return registered();
}

} // namespace zan::ctl
