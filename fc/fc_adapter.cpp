// FC_ functions of the adapter and port queries.  They answer from the
// device model: ports are found in the sorted device list by instance number
// (and vPort id), cards through the adapter entry tree, and whatever can
// change on the adapter (port conditions, flash versions, VPD, discovered
// targets) is read afresh through libvtsdm.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "fc/fc.h"
#include "core/core.h"
#include "oss/oss.h"
#include "flash/vpd.h"

namespace {

const char kFile[] = __FILE__;

bool SameNames(const SDMDevice *a, const uint8_t *wwnn, const uint8_t *wwpn) {
    return memcmp(a->DeviceNodeProperty.WWNN, wwnn, 8) == 0 && memcmp(a->DevicePortProperty.WWPN, wwpn, 8) == 0;
}

// The port `device` (sub-index 0) or its virtual port with vPort id `index`.
uint32_t FindPort(uint32_t device, uint16_t index, SDMDevice **port) {
    SDMDeviceList *list = GetMyDeviceList();
    SDMDevice *found = nullptr;
    for (SDMDevice *d = list ? list->First : nullptr; d && !found; d = d->next)
        if (d->Instance == device) found = d;
    if (!found) {
        LogDebug(kFile, __LINE__, "FindPort: device %u not found", device);
        return VTAPI_DEVICE_NUMBER_NOT_FOUND;
    }
    if (index != 0) {
        SDMDevice *vport = nullptr;
        for (SDMDevice *d = list->First; d && !vport; d = d->next)
            if (isVirtualPortHBA(d) && d->DeviceNodeProperty.ParentInstance == device &&
                d->DeviceNodeProperty.VPortId == index)
                vport = d;
        if (!vport) {
            LogDebug(kFile, __LINE__, "FindPort: device %u has no virtual port %u", device, index);
            return VTAPI_PORT_NOT_FOUND;
        }
        found = vport;
    }
    *port = found;
    return VTAPI_SUCCESS;
}

bool InTree(const AdapterEntryList *tree, const AdapterEntry *adapter) {
    for (const AdapterEntry *a = tree ? tree->First : nullptr; a; a = a->next)
        if (a == adapter) return true;
    return false;
}

// A listed port of the card `adapter`, which must be an entry of the main or
// the backup tree.
uint32_t FindAdapterPort(const AdapterEntry *adapter, SDMDevice **port) {
    if (!adapter) return VTAPI_INVALID_ARGUMENT;
    if (!InTree(gpAdapterList, adapter) && !InTree(gpBackupAdapterList, adapter)) {
        LogDebug(kFile, __LINE__, "FindAdapterPort: adapter entry not in the adapter list");
        return VTAPI_DEVICE_NUMBER_NOT_FOUND;
    }
    for (const PhyPortEntry *p = adapter->PhyPorts.First; p; p = p->next)
        for (const ProtocolEntry *e = p->Protocols.First; e; e = e->next)
            if (SDMDevice *d = GetSDMDevice(&e->Device)) {
                *port = d;
                return VTAPI_SUCCESS;
            }
    LogDebug(kFile, __LINE__, "FindAdapterPort: no port of adapter %s is listed", adapter->SerialNumber);
    return VTAPI_PORT_NOT_FOUND;
}

// The card's flash versions, read now from its option-ROM.
uint32_t ReadFlashVersions(const AdapterEntry *adapter, AdapterEntry &versions, SDMDevice **port = nullptr) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindAdapterPort(adapter, &d)) return rc;
    versions = AdapterEntry{};
    if (uint32_t rc = GetHBAOptionROMVersions(d, &versions)) return rc;
    if (port) *port = d;
    return VTAPI_SUCCESS;
}

// Calls f on every copy of the port: both device lists and the trees.
template <typename F>
void ForEachCopy(const SDMDevice *port, F f) {
    uint8_t wwnn[8], wwpn[8];
    memcpy(wwnn, port->DeviceNodeProperty.WWNN, 8);
    memcpy(wwpn, port->DevicePortProperty.WWPN, 8);
    for (SDMDeviceList *list : {GetDeviceList(), GetMyDeviceList()})
        for (SDMDevice *d = list ? list->First : nullptr; d; d = d->next)
            if (SameNames(d, wwnn, wwpn)) f(d);
    for (AdapterEntryList *tree : {gpAdapterList, gpBackupAdapterList})
        for (AdapterEntry *a = tree ? tree->First : nullptr; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (SameNames(&e->Device, wwnn, wwpn)) f(&e->Device);
}

// One condition bit of the port, from a fresh property record.
uint32_t PortCondition(uint32_t device, uint16_t index, uint32_t *state, uint32_t flag) {
    if (!state) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    SDPortProperty property;
    if (uint32_t rc = SDGetHbaDevicePortProperty(d->DeviceHandle, &property)) {
        LogDebug(kFile, __LINE__, "PortCondition: SDGetHbaDevicePortProperty(%u) failed (0x%x)", device, rc);
        return rc;
    }
    *state = (property.StateFlags & flag) ? 1 : 0;
    return VTAPI_SUCCESS;
}

uint32_t CopyText(char *text, uint32_t size, const char *value) {
    if (!text || size == 0) return VTAPI_INVALID_ARGUMENT;
    snprintf(text, size, "%s", value);
    return VTAPI_SUCCESS;
}

// Copies a version string, leading and trailing blanks dropped.
void CopyTrimmed(char (&out)[32], const char *value) {
    while (*value == ' ') ++value;
    size_t n = strnlen(value, sizeof out - 1);
    while (n > 0 && value[n - 1] == ' ') --n;
    memcpy(out, value, n);
    out[n] = '\0';
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t FC_GetAdapterDecription(const AdapterEntry *adapter, char *text, uint32_t size) {
    if (!text || size == 0) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindAdapterPort(adapter, &d)) return rc;
    const AdapterNode *node = FindAdapterInAdapterListBySDMDevice(d);
    return CopyText(text, size,
                    node && node->Description[0] ? node->Description : d->DeviceNodeProperty.ModelDescription);
}

VTAPI_EXPORT uint32_t FC_GetVpd(uint32_t device, uint16_t index, void *buffer, uint32_t *size) {
    if (!size) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    // VPD is PCI data of the physical function.
    if (isVirtualPortHBA(d)) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    const uint32_t rc = SDGetVpd(d->DeviceHandle, buffer, size);
    if (rc != SDERR_NONE)
        LogDebug(kFile, __LINE__, "FC_GetVpd: SDGetVpd(%u) returned 0x%x, size %u", device, rc, *size);
    return rc;
}

VTAPI_EXPORT uint32_t FC_GetHbaDevicePortProperty(uint32_t device, uint16_t index, SDPortProperty *property) {
    if (!property) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    return SDGetHbaDevicePortProperty(d->DeviceHandle, property);
}

VTAPI_EXPORT uint32_t FC_UpdatePortProperty(uint32_t device, uint16_t index) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    SDPortProperty fresh;
    if (uint32_t rc = SDGetHbaDevicePortProperty(d->DeviceHandle, &fresh)) {
        LogDebug(kFile, __LINE__, "FC_UpdatePortProperty: SDGetHbaDevicePortProperty(%u) failed (0x%x)", device, rc);
        return rc;
    }
    ForEachCopy(d, [&](SDMDevice *copy) {
        const uint8_t ruled = copy->DevicePortProperty.SupportedSpeed;
        copy->DevicePortProperty = fresh;
        if (fresh.SupportedSpeed == 0) copy->DevicePortProperty.SupportedSpeed = ruled;
    });
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_UpdateDiscTargetProperty(uint32_t device, uint16_t index, const uint8_t *targetWWPN) {
    if (!targetWWPN) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    uint32_t count = 0;
    std::vector<SDDiscTargetProperty> targets;
    uint32_t rc = SDGetDiscTargetProperties(d->DeviceHandle, nullptr, &count);
    if (rc == SDERR_BUFFER_TOO_SMALL) {
        targets.resize(count);
        rc = SDGetDiscTargetProperties(d->DeviceHandle, targets.data(), &count);
        targets.resize(std::min<size_t>(count, targets.size()));
    }
    if (rc != SDERR_NONE) {
        LogDebug(kFile, __LINE__, "FC_UpdateDiscTargetProperty: SDGetDiscTargetProperties(%u) failed (0x%x)", device,
                 rc);
        return rc;
    }
    const SDDiscTargetProperty *fresh = nullptr;
    for (const SDDiscTargetProperty &t : targets)
        if (memcmp(t.WWPN, targetWWPN, 8) == 0) fresh = &t;
    if (!fresh) return VTAPI_TARGET_NOT_FOUND;
    ForEachCopy(d, [&](SDMDevice *copy) {
        for (TargetEntry *t = copy->Targets.First; t; t = t->next)
            if (memcmp(t->WWPN, targetWWPN, 8) == 0) {
                t->DiscTargetProperty = *fresh;
                t->TargetFlags = fresh->TargetFlags;
                memcpy(t->PortId, fresh->PortId, 3);
            }
    });
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_GetPortIndex(uint32_t device, uint16_t index, uint32_t *portIndex) {
    if (!portIndex) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    *portIndex = GetPortIndex(d);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_IsMezzAdapter(uint32_t device, uint16_t index, uint32_t *isMezz) {
    if (!isMezz) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPort(device, index, &d)) return rc;
    *isMezz = isMezz16GHBA(d) || isMezz32GHBA(d) ? 1 : 0;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_IsPortInMaintenanceMode(uint32_t device, uint16_t index, uint32_t *state) {
    return PortCondition(device, index, state, SD_PORTFLAG_MAINTENANCE);
}

VTAPI_EXPORT uint32_t FC_IsRebootRequired(uint32_t device, uint16_t index, uint32_t *state) {
    return PortCondition(device, index, state, SD_PORTFLAG_REBOOT_REQUIRED);
}

VTAPI_EXPORT uint32_t FC_GetLockdownStatus(uint32_t device, uint16_t index, uint32_t *state) {
    return PortCondition(device, index, state, SD_PORTFLAG_LOCKDOWN);
}

VTAPI_EXPORT uint32_t FC_GetAdapterVersions(const AdapterEntry *adapter, VTAPI_AdapterVersions *versions) {
    if (!versions) return VTAPI_INVALID_ARGUMENT;
    AdapterEntry flash;
    SDMDevice *d = nullptr;
    if (uint32_t rc = ReadFlashVersions(adapter, flash, &d)) return rc;
    *versions = VTAPI_AdapterVersions{};
    CopyTrimmed(versions->FirmwareVersion, d->DeviceNodeProperty.FirmwareVersion);
    CopyTrimmed(versions->FlashFirmwareVersion, flash.FlashFirmwareVersion);
    CopyTrimmed(versions->BIOSVersion, flash.FlashBIOSVersion);
    CopyTrimmed(versions->FCodeVersion, flash.FCodeVersion);
    CopyTrimmed(versions->EFIVersion, flash.EFIVersion);
    CopyTrimmed(versions->MultiBootVersion, flash.FlashMultiBootVersion);
    CopyTrimmed(versions->DriverVersion, d->DeviceNodeProperty.DriverVersion);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_GetMBIVersionString(const AdapterEntry *adapter, char *text, uint32_t size) {
    if (!text || size == 0) return VTAPI_INVALID_ARGUMENT;
    AdapterEntry flash;
    if (uint32_t rc = ReadFlashVersions(adapter, flash)) return rc;
    return CopyText(text, size, flash.FlashMultiBootVersion);
}

VTAPI_EXPORT uint32_t FC_IsBiosAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available) {
    if (!available) return VTAPI_INVALID_ARGUMENT;
    AdapterEntry flash;
    if (uint32_t rc = ReadFlashVersions(adapter, flash)) return rc;
    *available = flash.FlashBIOSVersion[0] != '\0' ? 1 : 0;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_IsEfiAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available) {
    if (!available) return VTAPI_INVALID_ARGUMENT;
    AdapterEntry flash;
    if (uint32_t rc = ReadFlashVersions(adapter, flash)) return rc;
    *available = flash.EFIVersion[0] != '\0' ? 1 : 0;
    return VTAPI_SUCCESS;
}

}  // extern "C"
