// The core's start-up: its configuration file and polling interval, the
// core device list, and the identity of the calling tool.
#include <cstdio>
#include <string>

#include "core/core.h"
#include "core/events.h"
#include "oss/oss.h"

extern "C" {

VTAPI_EXPORT uint32_t g_AuxToolId = 0;
VTAPI_EXPORT char g_ToolVersion[32];
char g_configurationFileName[260];

VTAPI_EXPORT uint32_t CorePreInitialize(void) {
    const char *path = OSSGetConfigurationPath();
    std::snprintf(g_configurationFileName, sizeof g_configurationFileName, "%sagent.properties",
                  path[0] != '\0' ? path : "/etc/");
    CoreLoadPollingInterval();
    return 0;
}

VTAPI_EXPORT uint32_t CoreInitialize(void) {
    CorePreInitialize();
    LogDebug(__FILE__, __LINE__, "CoreInitialize: g_configurationFileName is '%s' \n", g_configurationFileName);
    SDMDeviceList *list = GetDeviceList();
    if (list->Count == 0) *list = SDMDeviceList{};
    return 0;
}

VTAPI_EXPORT uint32_t CoreUninitialize(void) { return RemoveAllDevicesFromDeviceList(); }

VTAPI_EXPORT uint32_t CoreSetToolId(uint32_t id) {
    g_AuxToolId = id & 255;
    return 0;
}

VTAPI_EXPORT uint32_t CoreSetToolVersion(uint32_t v1, uint32_t v2, uint32_t v3, uint32_t v4) {
    std::snprintf(g_ToolVersion, sizeof g_ToolVersion, "%02hhu:%02hhu:%02hhu:%02hhu", static_cast<unsigned char>(v1),
                  static_cast<unsigned char>(v2), static_cast<unsigned char>(v3), static_cast<unsigned char>(v4));
    return 0;
}

}  // extern "C"

namespace {

// OSSInitialize runs the core's pre-initialization once it has set the
// configuration path; the OS layer below the core learns of it here.
const bool kStartupRegistered = (OSSSetCoreStartup(&CorePreInitialize), true);

}  // namespace
