// SPDX-License-Identifier: MIT
// Facts about the device, read once and kept for the life of the process.
#include "cfg/conversion.h"
#include "cfg/formatted.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zan {
namespace {

enum Fact { model, type, customer_id };
constexpr const char *fact_paths[] = {"/runtime/hw/model", "/runtime/hw/type",
                                      "/runtime/hw/customer_id"};

// 0 is never kept, and so requested every time.  Threads that miss the same fact store
// the same value.
constinit std::atomic<int32_t> g_tmp_hw_id_info[3] = {};
constinit std::atomic<bool> g_tmp_hw_id_init = false;

int get_fact(Fact fact) {
    cfg_hw_id_info_init();
    int32_t value = g_tmp_hw_id_info[fact];
    if (value == 0) {
        value = cfg_getint("%s", fact_paths[fact]);
        g_tmp_hw_id_info[fact] = value;
    }
    return value;
}

struct Customisation {
    int customer_id;
    int customize;
};
constexpr Customisation customisations[] = {{3, 2}, {4, 2}, {48, 27}};

constexpr int model_q47 = 29;
constexpr int customize_q47 = 14;

struct WanType {
    const char *config_type;
    int type;
};
constexpr WanType wan_types[] = {{"Ethernet", 1}, {"xPON", 2}};

constexpr int interface_path_kind = 2;

// A path is converted to the interface's name; it is used as a format again.
void interface_name_of(char (&converted)[ZAN_PATH_SIZE], const char *name) {
    if (std::strchr(name, '/') == nullptr)
        std::snprintf(converted, sizeof converted, "%s", name);
    else
        convert_path(converted, sizeof converted, interface_path_kind,
                     Formatted::without_arguments(name).text());
}

} // namespace
} // namespace zan

using namespace zan;

void cfg_hw_id_info_init(void) {
    if (g_tmp_hw_id_init.exchange(true))
        return;
    for (auto &fact : g_tmp_hw_id_info)
        fact = 0;
}

int cfg_get_hw_model(void) {
    return get_fact(model);
}

int cfg_get_hw_type(void) {
    return get_fact(type);
}

int cfg_get_customer_id(void) {
    return get_fact(customer_id);
}

int cfg_get_customize(void) {
    const int id = cfg_get_customer_id();
    for (const Customisation &row : customisations)
        if (row.customer_id == id)
            return row.customize;
    return id;
}

int cfg_get_q47_wantype(void) {
    if (cfg_get_hw_model() != model_q47 || cfg_get_customize() != customize_q47)
        return 0;
    char config_type[32] = {};
    cfg_getstr(config_type, sizeof config_type, "/sys/config_type");
    for (const WanType &row : wan_types)
        if (std::strcmp(config_type, row.config_type) == 0)
            return row.type;
    return 0;
}

int cfg_is_iphost_conn(char *name) {
    if (name == nullptr)
        return 0;
    char converted[ZAN_PATH_SIZE] = {};
    interface_name_of(converted, name);
    char reference[ZAN_PATH_SIZE] = {};
    cfg_getstr(reference, sizeof reference,
               "/InternetGatewayDevice/X_ORVANE_OMCI/IPHost/InterfaceReference");
    return reference[0] != '\0' && std::strstr(converted, reference) != nullptr ? 1 : 0;
}
