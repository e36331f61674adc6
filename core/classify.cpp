// Adapter classification: chip generation, family, port kind and board, as
// small pure tests on the IDs a device record holds.  The ID values come
// from the shared ID table.
#include <strings.h>

#include "idtable.h"
#include "core/core.h"
#include "oss/oss.h"

namespace ids = vt::ids;

namespace {

uint16_t Did(const SDMDevice *d) { return d->DeviceChipProperty.DeviceID; }
uint16_t Ssvid(const SDMDevice *d) { return d->DeviceChipProperty.SubVendorID; }
uint16_t Ssdid(const SDMDevice *d) { return d->DeviceChipProperty.SubSystemID; }

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t GetISPType(const SDMDevice *device) { return device ? ids::IspTypeForDeviceId(Did(device)) : 0; }

VTAPI_EXPORT uint32_t CoreGetISPType(const SDMDevice *device) { return GetISPType(device); }

VTAPI_EXPORT uint32_t GetAdapterFunctionType(uint16_t deviceId) {
    uint32_t type = ids::AdapterFunctionType(deviceId);
    LogDebug(__FILE__, __LINE__, "GetAdapterFunctionType() returned an adapter type = %u", type);
    return type;
}

VTAPI_EXPORT uint32_t GetISP4GbType(const SDMDevice *device) {
    return device ? uint32_t(ids::Isp4GbType(Did(device))) : 0;
}

VTAPI_EXPORT uint32_t GetISP8GbType(const SDMDevice *device) { return device && ids::IsIsp8Gb(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t GetISP4GbOrNewerType(const SDMDevice *device) {
    return device && CoreGetISPType(device) >= 8 ? 1 : 0;
}

VTAPI_EXPORT uint32_t isVirtualPortHBA(const SDMDevice *device) {
    return device && device->DeviceNodeProperty.Interface == SD_INTERFACE_VPORT ? 1 : 0;
}

VTAPI_EXPORT uint32_t isFCOeHBA(const SDMDevice *device) {
    return device && device->DeviceNodeProperty.Interface == SD_INTERFACE_FCOE ? 1 : 0;
}

VTAPI_EXPORT uint32_t isFCoECNA(const SDMDevice *device) { return device && ids::IsFcoeCna(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isTernHBA(const SDMDevice *device) { return device && ids::IsTern(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isTernAdapter(const AdapterNode *node) { return node && ids::IsTern(node->DeviceID) ? 1 : 0; }

VTAPI_EXPORT uint32_t isOrlaHBA(const SDMDevice *device) { return device && ids::IsOrla(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isOrlaAdapter(const AdapterNode *node) { return node && ids::IsOrla(node->DeviceID) ? 1 : 0; }

VTAPI_EXPORT uint32_t isOrlaCNA(const SDMDevice *device) { return device && ids::IsOrlaCna(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isToveHBA(const SDMDevice *device) { return device && ids::IsTove(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isPallasHBA(const SDMDevice *device) {
    return device && ids::IsPallasChip(Did(device)) && ids::IsPallasBoard(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

VTAPI_EXPORT uint32_t isKiteHBA(const SDMDevice *device) { return device && ids::IsKite(Did(device)) ? 1 : 0; }

VTAPI_EXPORT uint32_t isWren16GHBA(const SDMDevice *device) {
    return device && ids::IsWren16GBoard(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

VTAPI_EXPORT uint32_t isWren32GHBA(const SDMDevice *device) {
    return device && CoreGetISPType(device) == 25 && ids::MatchesWren32Pattern(Did(device)) && !isWren16GHBA(device)
               ? 1
               : 0;
}

VTAPI_EXPORT uint32_t isWrenHBA(const SDMDevice *device) {
    if (isWren16GHBA(device)) return 1;
    if (isWren32GHBA(device)) return 2;
    return 0;
}

VTAPI_EXPORT uint32_t isSkiff16GHBA(const SDMDevice *device) {
    return device && ids::IsSkiff16GBoard(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

VTAPI_EXPORT uint32_t isSkiff32GHBA(const SDMDevice *device) {
    return device && CoreGetISPType(device) == 25 && ids::MatchesSkiff32Pattern(Did(device)) && !isSkiff16GHBA(device)
               ? 1
               : 0;
}

VTAPI_EXPORT uint32_t isSkiffHBA(const SDMDevice *device) {
    if (isSkiff16GHBA(device)) return 1;
    if (isSkiff32GHBA(device)) return 2;
    return 0;
}

VTAPI_EXPORT uint32_t isMezz16GHBA(const SDMDevice *device) {
    if (!device || !ids::IsMezz16Board(Ssvid(device), Ssdid(device))) return 0;
    LogDebug(__FILE__, __LINE__, "isMezz16GHBA: Detected SSVID/SSDID=0x%04x/0x%04x)", Ssvid(device), Ssdid(device));
    return 1;
}

VTAPI_EXPORT uint32_t isMezz32GHBA(const SDMDevice *device) {
    if (!device || !ids::IsMezz32Board(Ssvid(device), Ssdid(device))) return 0;
    LogDebug(__FILE__, __LINE__, "isMezz32GHBA: Detected SSVID/SSDID=0x%04x/0x%04x)", Ssvid(device), Ssdid(device));
    return 1;
}

VTAPI_EXPORT uint32_t is16GN4FCOnlyHBA(const SDMDevice *device) {
    if (!device || !ids::Is16GFcOnlyBoard(Ssvid(device), Ssdid(device))) return 0;
    LogDebug(__FILE__, __LINE__, "is16GN4FCOnlyHBA detected (SSVID/SSDID = 0x%04x/0x%04x)", Ssvid(device),
             Ssdid(device));
    return 1;
}

VTAPI_EXPORT uint32_t isJintoHBA(const SDMDevice *device) {
    return device && ids::IsJintoBoard(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

VTAPI_EXPORT uint32_t isTargetModeEP(const SDMDevice *device) {
    if (!device || !ids::IsTargetModeEpBoard(Ssvid(device), Ssdid(device))) return 0;
    LogDebug(__FILE__, __LINE__, "Target mode EP (SSVID=0x%04x SSDID=0x%04x)", Ssvid(device), Ssdid(device));
    return 1;
}

VTAPI_EXPORT uint32_t isAdapterLRType(const SDMDevice *device) {
    if (!device) return 0;
    uint32_t lr = CoreGetISPType(device) > 24 ? 1 : 0;
    LogDebug(__FILE__, __LINE__, "isAdapterLRType: LR Type=%d", lr);
    return lr;
}

VTAPI_EXPORT uint32_t isDriverWithSupportedSpeed(const SDMDevice *device) {
    return device && (device->DeviceDriverProperty.Capabilities & SD_DRVCAP_SUPPORTED_SPEED) ? 1 : 0;
}

// The driver of an ESX host reports the mask the same way as the Linux one.
VTAPI_EXPORT uint32_t isEsxDriverWithSupportedSpeed(const SDMDevice *device) {
    return isDriverWithSupportedSpeed(device);
}

VTAPI_EXPORT uint32_t is64GbAdapter(const SDMDevice *device) {
    if (!device || CoreGetISPType(device) != 27 || !isDriverWithSupportedSpeed(device)) return 0;
    uint8_t speed = device->DevicePortProperty.SupportedSpeed;
    LogDebug(__FILE__, __LINE__, "is64GbAdapter: Supported Speed=0x%x", speed);
    return (speed & 0x80) ? 1 : 0;
}

VTAPI_EXPORT uint32_t isEDCUpdateSupported(const SDMDevice *device) {
    if (!device) return 0;
    uint32_t code = CoreGetISPType(device);
    if (!ids::IsEdcBoard(Ssvid(device), Ssdid(device)) || (code != 14 && code != 15)) return 0;
    LogDebug(__FILE__, __LINE__, "isEDCUpdateSupported: ssdid=0x%04x ssvid=0x%04x", Ssdid(device), Ssvid(device));
    return 1;
}

VTAPI_EXPORT uint32_t isCNAWithLROptionEnable(const SDMDevice *device) {
    if (!device) return 0;
    uint32_t code = CoreGetISPType(device);
    uint32_t on = (code == 12 || code == 15 || code == 21 || code > 23) ? 1 : 0;
    LogDebug(__FILE__, __LINE__,
             "isCNAWithLROptionEnable:  Extended BB credit option = %d (SSVID/SSDID = 0x%04x/0x%04x)", on,
             Ssvid(device), Ssdid(device));
    return on;
}

uint32_t isOEMModelSuffixHBA(const SDMDevice *device) {
    return device && ids::HasModelSuffixS(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

uint32_t isSingleBIOSHBA(const SDMDevice *device) {
    return device && ids::IsSingleBiosBoard(Ssvid(device), Ssdid(device)) ? 1 : 0;
}

VTAPI_EXPORT uint32_t GetNumberOfPortsOnThisHBA(const SDMDevice *device) {
    if (!device) return 0;
    uint32_t n = 0;
    for (const SDMDevice *d = GetMyDeviceList()->First; d; d = d->next)
        if (!isVirtualPortHBA(d) &&
            strcasecmp(d->DeviceNodeProperty.SerialNumber, device->DeviceNodeProperty.SerialNumber) == 0)
            ++n;
    return n;
}

VTAPI_EXPORT uint32_t GetPortIndex(const SDMDevice *device) {
    if (!device) return 1;
    LogDebug(__FILE__, __LINE__, "GetPortIndex: PhysPortNumber=%d", device->DeviceChipProperty.PhysPortNumber);
    return device->DeviceChipProperty.PhysPortNumber;
}

VTAPI_EXPORT uint32_t GetAdapterPciPhysicalPortNumber(SDMDevice *device) {
    if (!device) return 0;
    SDChipProperty chip;
    uint32_t rc = SDGetHbaDeviceChipProperty(device->DeviceHandle, &chip);
    if (rc != SDERR_NONE)
        LogDebug(__FILE__, __LINE__, "GetAdapterPciPhysicalPortNumber: SDGetHbaDeviceChipProperty failed (0x%x) (%s)",
                 rc, SDGetErrorString(rc));
    else device->DeviceChipProperty = chip;
    return device->DeviceChipProperty.PhysPortNumber;
}

VTAPI_EXPORT uint32_t ConvertPortSpeedToDecimal(uint32_t code) {
    uint32_t gbps;
    switch (code) {
    case 16: gbps = 10; break;
    case 22: gbps = 16; break;
    case 32: gbps = 20; break;
    case 50: gbps = 32; break;
    case 100: gbps = 64; break;
    case 296: gbps = 128; break;
    default: gbps = code; break;
    }
    LogDebug(__FILE__, __LINE__, "ConvertPortSpeedToDecimal: PortSpeedInDecimal = %d", gbps);
    return gbps;
}

}  // extern "C"
