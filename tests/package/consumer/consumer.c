/* SPDX-License-Identifier: MIT */
#include <stdio.h>
#include <zan.h>

int main(void) {
    char text[] = " trimmed\n";
    char copy[16];
    int32_t number = -1;
    char event[32];
    zan_strcpy(copy, zan_trim(text), sizeof copy);
    zan_strtol("7", NULL, 10, &number);
    /* Needs cJSON, which a static library does not bring along. */
    encode_wifi_sniffer_event_msg("scan", event, sizeof event);
    printf("zan %d.%d.%d: [%s] %d %d %s\n", ZAN_VERSION_MAJOR, ZAN_VERSION_MINOR, ZAN_VERSION_PATCH,
           copy, (int)number, g_msq_qid, event);
    return 0;
}
