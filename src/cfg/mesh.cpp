// SPDX-License-Identifier: MIT
// The mesh gate: whether the configuration says that the device is a settled mesh agent.
#include "zan.h"

#include <cstdio>
#include <cstring>

#define ZAN_EASYMESH "/InternetGatewayDevice/X_ORVANE_EasyMesh"

int zan_mesh_status(void) {
    const int optimizing = cfg_getint(ZAN_EASYMESH "/Status/TopologyOptimize");
    const int initializing = cfg_getint(ZAN_EASYMESH "/ReInitWifiFlag");
    const int enabled = cfg_getint(ZAN_EASYMESH "/Enable");
    char role[16] = {};
    cfg_getstr(role, sizeof role, ZAN_EASYMESH "/DeviceRole");
    if (enabled == 0 || std::strcmp(role, "Agent") != 0) {
        std::printf("%s:mesh_enable=%d role=%s\n", "zan_mesh_status", enabled, role);
        return 0;
    }
    if (optimizing == 0 && initializing == 0)
        return 1;
    if (optimizing != 0)
        std::printf("%s:Topology is optimizing..\n", "zan_mesh_status");
    else
        std::printf("%s:Mapd is initializing...\n", "zan_mesh_status");
    return 0;
}
