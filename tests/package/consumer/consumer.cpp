// SPDX-License-Identifier: MIT
#include <zan.h>

#include <array>
#include <cstdio>
#include <string>

int main() {
    std::string text = " trimmed\n";
    std::array<char, 16> copy{};
    std::int32_t number = -1;
    zan_strcpy(copy.data(), zan_trim(text.data()), copy.size());
    zan_strtol("7", nullptr, 10, &number);
    std::printf("zan %d.%d.%d: [%s] %d %d\n", ZAN_VERSION_MAJOR, ZAN_VERSION_MINOR,
                ZAN_VERSION_PATCH, copy.data(), number, g_msq_qid);
}
