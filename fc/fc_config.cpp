// FC_ functions of the port configuration: virtual ports and their QoS, and
// adapter and port aliases.  A port is given as an entry of the adapter
// tree and found in the sorted device list by its names.
#include <cstring>

#include "cli/alias.h"
#include "config/vport.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

// The listed physical port of a tree entry.
uint32_t PhysicalPort(const ProtocolEntry *port, SDMDevice **device) {
    if (!port) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = GetSDMDevice(&port->Device);
    if (!d) {
        LogDebug(__FILE__, __LINE__, "PhysicalPort: the port of this entry is not listed");
        return VTAPI_PORT_NOT_FOUND;
    }
    if (isVirtualPortHBA(d)) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    *device = d;
    return VTAPI_SUCCESS;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t FC_GetNumberofVirtualPortsSupported(const ProtocolEntry *port, uint32_t *count) {
    if (!count) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = PhysicalPort(port, &d)) return rc;
    const bool takesVports = d->DeviceNodeProperty.Interface == SD_INTERFACE_FC && CoreGetISPType(d) > 9;
    *count = takesVports ? d->DeviceDriverProperty.MaxVports : 0;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_CreateVirtualPort(const ProtocolEntry *port, const uint8_t *wwnn, const uint8_t *wwpn,
                                           uint16_t *vportId) {
    if (!vportId) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = PhysicalPort(port, &d)) return rc;
    return CreateVirtualPortOnDevice(d, wwnn, wwpn, nullptr, vportId);
}

VTAPI_EXPORT uint32_t FC_DeleteVirtualPort(const ProtocolEntry *port, const uint8_t *vportWWPN) {
    if (!vportWWPN) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = PhysicalPort(port, &d)) return rc;
    return DeleteVirtualPortOnDevice(d, vportWWPN);
}

VTAPI_EXPORT uint32_t FC_SDGetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, SDQoS *qos) {
    if (!vportWWPN || !qos) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = PhysicalPort(port, &d)) return rc;
    const uint32_t rc = SDGetQoS(d->DeviceHandle, vportWWPN, qos);
    return rc == SDERR_NOT_FOUND ? VTAPI_PORT_NOT_FOUND : rc;
}

VTAPI_EXPORT uint32_t FC_SDSetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, const SDQoS *qos) {
    if (!vportWWPN || !qos) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = PhysicalPort(port, &d)) return rc;
    return SetVirtualPortQoS(d, vportWWPN, qos, nullptr, 0);
}

VTAPI_EXPORT uint32_t FC_GetAdapterAlias(const ProtocolEntry *port, char *alias, uint32_t aliasType) {
    if (!port || !alias) return VTAPI_INVALID_ARGUMENT;
    GetAdapterAliasEx(&port->Device, port->WWNN, port->WWPN, alias, aliasType);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_SetAdapterAlias(const ProtocolEntry *port, const char *alias, uint32_t aliasType) {
    if (!alias) {
        LogDebug(__FILE__, __LINE__, "%s : Invalid arguments. pAliasName is NULL", __func__);
        return VTAPI_INVALID_ARGUMENT;
    }
    if (!port) return VTAPI_INVALID_ARGUMENT;
    const uint32_t rc = SetAdapterAlias(&port->Device, alias, aliasType);
    if (rc != 0)
        LogDebug(__FILE__, __LINE__, "%s: SetAdapterAlias failed. retVal[%d], uAliasType[%u], pAliasName[%s].",
                 __func__, int(rc), aliasType, alias);
    return rc;
}

}  // extern "C"
