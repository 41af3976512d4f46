// SPDX-License-Identifier: MIT
#include <zan.h>

#include <array>
#include <cstdio>
#include <string>

int main() {
    std::string text = " trimmed\n";
    std::array<char, 16> copy{};
    std::array<char, 32> event{};
    std::int32_t number = -1;
    zan_strcpy(copy.data(), zan_trim(text.data()), copy.size());
    zan_strtol("7", nullptr, 10, &number);
    // Needs cJSON, which a static library does not bring along.
    encode_wifi_sniffer_event_msg("scan", event.data(), event.size());
    std::printf("zan %d.%d.%d: [%s] %d %d %s\n", ZAN_VERSION_MAJOR, ZAN_VERSION_MINOR,
                ZAN_VERSION_PATCH, copy.data(), number, g_msq_qid, event.data());
}
