// Exported frames of the adapter and port queries: description, VPD, port
// property and its refresh, port index, mezzanine test, port conditions,
// versions, aliases, and the operating-system name.
#include <sys/utsname.h>

#include <cstdio>

#include "frame.h"
#include "core/core.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_GetFCAdapterDecription(const AdapterEntry *adapter, char *text, uint32_t size) {
    VTAPI_FRAME(VTAPI_GetFCAdapterDecription, FC_GetAdapterDecription, adapter, text, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetVpd(uint32_t device, uint32_t index, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetVpd, FC_GetVpd, device, uint16_t(index), buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetUUIDFromI2CVPD(uint32_t device, uint32_t index, uint8_t *uuid, uint32_t size) {
    VTAPI_FRAME(VTAPI_GetUUIDFromI2CVPD, FC_GetUUIDFromI2CVPD, device, uint16_t(index), uuid, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetHbaDevicePortProperty(uint32_t device, uint32_t index, SDPortProperty *property) {
    VTAPI_FRAME(VTAPI_GetHbaDevicePortProperty, FC_GetHbaDevicePortProperty, device, uint16_t(index), property);
}

VTAPI_EXPORT uint32_t VTAPI_UpdatePortProperty(uint32_t device, uint32_t index) {
    VTAPI_FRAME(VTAPI_UpdatePortProperty, FC_UpdatePortProperty, device, uint16_t(index));
}

VTAPI_EXPORT uint32_t VTAPI_UpdateDiscTargetProperty(uint32_t device, uint32_t index, const uint8_t *targetWWPN) {
    VTAPI_FRAME(VTAPI_UpdateDiscTargetProperty, FC_UpdateDiscTargetProperty, device, uint16_t(index), targetWWPN);
}

VTAPI_EXPORT uint32_t VTAPI_GetPortIndex(uint32_t device, uint32_t index, uint32_t *portIndex) {
    VTAPI_FRAME(VTAPI_GetPortIndex, FC_GetPortIndex, device, uint16_t(index), portIndex);
}

VTAPI_EXPORT uint32_t VTAPI_IsMezzAdapter(uint32_t device, uint32_t index, uint32_t *isMezz) {
    VTAPI_FRAME(VTAPI_IsMezzAdapter, FC_IsMezzAdapter, device, uint16_t(index), isMezz);
}

VTAPI_EXPORT uint32_t VTAPI_IsPortInMaintenanceMode(uint32_t device, uint32_t index, uint32_t *state) {
    VTAPI_FRAME(VTAPI_IsPortInMaintenanceMode, FC_IsPortInMaintenanceMode, device, uint16_t(index), state);
}

VTAPI_EXPORT uint32_t VTAPI_IsRebootRequired(uint32_t device, uint32_t index, uint32_t *state) {
    VTAPI_FRAME(VTAPI_IsRebootRequired, FC_IsRebootRequired, device, uint16_t(index), state);
}

VTAPI_EXPORT uint32_t VTAPI_GetLockdownStatus(uint32_t device, uint32_t index, uint32_t *state) {
    VTAPI_FRAME(VTAPI_GetLockdownStatus, FC_GetLockdownStatus, device, uint16_t(index), state);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetAdapterVersions(const AdapterEntry *adapter, VTAPI_AdapterVersions *versions) {
    VTAPI_FRAME(VTAPI_FCGetAdapterVersions, FC_GetAdapterVersions, adapter, versions);
}

VTAPI_EXPORT uint32_t VTAPI_GetFlashComponentVersion(const AdapterEntry *adapter, uint32_t component, char *version,
                                                     uint32_t size) {
    VTAPI_FRAME(VTAPI_GetFlashComponentVersion, FC_GetFlashComponentVersion, adapter, component, version, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetMBIVersionString(const AdapterEntry *adapter, char *text, uint32_t size) {
    VTAPI_FRAME(VTAPI_GetMBIVersionString, FC_GetMBIVersionString, adapter, text, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetFwPreloadTablesVersion(const AdapterEntry *adapter, char *version, uint32_t size) {
    VTAPI_FRAME(VTAPI_GetFwPreloadTablesVersion, FC_GetFwPreloadTablesVersion, adapter, version, size);
}

VTAPI_EXPORT uint32_t VTAPI_IsBiosAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available) {
    VTAPI_FRAME(VTAPI_IsBiosAvailableWithAdapter, FC_IsBiosAvailableWithAdapter, adapter, available);
}

VTAPI_EXPORT uint32_t VTAPI_IsEfiAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available) {
    VTAPI_FRAME(VTAPI_IsEfiAvailableWithAdapter, FC_IsEfiAvailableWithAdapter, adapter, available);
}

VTAPI_EXPORT uint32_t VTAPI_GetFCAdapterAlias(const ProtocolEntry *port, char *alias, uint32_t aliasType) {
    VTAPI_FRAME(VTAPI_GetFCAdapterAlias, FC_GetAdapterAlias, port, alias, aliasType);
}

VTAPI_EXPORT uint32_t VTAPI_SetFCAdapterAlias(const ProtocolEntry *port, const char *alias, uint32_t aliasType) {
    VTAPI_FRAME(VTAPI_SetFCAdapterAlias, FC_SetAdapterAlias, port, alias, aliasType);
}

VTAPI_EXPORT uint32_t VTAPI_GetOSName(char *name, uint32_t size) {
    ProfilerEnterFunction("VTAPI_GetOSName");
    uint32_t status = VTAPI_SUCCESS;
    struct utsname host;
    if (name == nullptr || size == 0) {
        status = VTAPI_INVALID_ARGUMENT;
    } else if (uname(&host) != 0) {
        status = VTAPI_GENERAL_FAILURE;
    } else {
        const char *distribution = OSSGetDistributionType();
        if (distribution != nullptr && *distribution != '\0')
            snprintf(name, size, "%s %s %s", host.sysname, distribution, host.release);
        else snprintf(name, size, "%s %s", host.sysname, host.release);
    }
    VTAPI_RETURN_FRAMED(VTAPI_GetOSName, status);
}

}  // extern "C"
