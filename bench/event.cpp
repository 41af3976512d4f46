// SPDX-License-Identifier: MIT
// The event codecs against cJSON called directly for the same object: what the table, the
// bounds and the care for memory cost beside it.
#include "ratio_report.h"

#include "zan.h"

#include <cjson/cJSON.h>

#include <cstring>
#include <string>

namespace {

constexpr int repetitions = 200;
constexpr double seconds_each = 0.01;

constexpr const char *function = "port_forward";
constexpr const char *action = "add";
constexpr const char *cfg_path = "/InternetGatewayDevice/X_ORVANE_Firewall/Forward:3";
constexpr const char *value = "192.168.1.20:8080";

struct Members {
    char function[64];
    char action[64];
    char cfg_path[128];
    char value[64];
};

void encode_by_hand(char *out) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "Function", function);
    cJSON_AddStringToObject(object, "Action", action);
    cJSON_AddStringToObject(object, "CFGPath", cfg_path);
    cJSON_AddStringToObject(object, "Value", value);
    char *const text = cJSON_PrintUnformatted(object);
    std::memcpy(out, text, std::strlen(text) + 1);
    cJSON_free(text);
    cJSON_Delete(object);
}

void encode_by_library(char *out) {
    encode_firewall_event_msg(function, action, cfg_path, value, out, 512);
}

void copy_member(const cJSON *object, const char *key, char *to) {
    const char *const text = cJSON_GetObjectItem(object, key)->valuestring;
    std::memcpy(to, text, std::strlen(text) + 1);
}

void decode_by_hand(const char *text, Members &to) {
    cJSON *const object = cJSON_Parse(text);
    copy_member(object, "Function", to.function);
    copy_member(object, "Action", to.action);
    copy_member(object, "CFGPath", to.cfg_path);
    copy_member(object, "Value", to.value);
    cJSON_Delete(object);
}

void decode_by_library(const char *text, Members &to) {
    decode_firewall_event_msg(to.function, sizeof to.function, to.action, sizeof to.action,
                              to.cfg_path, sizeof to.cfg_path, to.value, sizeof to.value, text);
}

void add(const std::string &name, const std::string &group, void (*encode)(char *),
         void (*decode)(const char *, Members &)) {
    benchmark::RegisterBenchmark((name + "/" + group).c_str(),
                                 [encode, decode](benchmark::State &state) {
                                     char text[512];
                                     Members members{};
                                     encode_by_hand(text);
                                     for (auto _ : state) {
                                         if (encode != nullptr)
                                             encode(text);
                                         if (decode != nullptr)
                                             decode(text, members);
                                         benchmark::ClobberMemory();
                                     }
                                 })
        ->MinTime(seconds_each)
        ->Repetitions(repetitions);
}

} // namespace

int main(int argc, char **argv) {
    zan::bench::stay_on_one_cpu();
    char text[512];
    encode_by_library(text);
    const std::string size = " " + std::to_string(std::strlen(text));
    add("cJSON", "encode" + size, encode_by_hand, nullptr);
    add("library", "encode" + size, encode_by_library, nullptr);
    add("cJSON", "decode" + size, nullptr, decode_by_hand);
    add("library", "decode" + size, nullptr, decode_by_library);
    add("cJSON", "both" + size, encode_by_hand, decode_by_hand);
    add("library", "both" + size, encode_by_library, decode_by_library);
    return zan::bench::run_interleaved(argc, argv, "cJSON");
}
