// Device records: the core device list in probe order, the command-line
// layer's sorted list, copies of records with their targets and LUNs, and
// the text forms of names.
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "core/core.h"
#include "oss/oss.h"

namespace {

SDMDeviceList g_deviceList;    // core list, probe order
SDMDeviceList g_myDeviceList;  // sorted copies (GetMyDeviceList)

bool SameNames(const SDMDevice *a, const SDMDevice *b) {
    return memcmp(a->DeviceNodeProperty.WWNN, b->DeviceNodeProperty.WWNN, 8) == 0 &&
           memcmp(a->DevicePortProperty.WWPN, b->DevicePortProperty.WWPN, 8) == 0;
}

}  // namespace

extern "C" {

VTAPI_EXPORT SDMDeviceList *GetDeviceList(void) { return &g_deviceList; }
VTAPI_EXPORT SDMDeviceList *GetMyDeviceList(void) { return &g_myDeviceList; }

VTAPI_EXPORT char *GetStringWWN(const uint8_t *wwn, char *text) {
    if (!wwn || !text) return text;
    snprintf(text, 24, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", wwn[0], wwn[1], wwn[2], wwn[3], wwn[4], wwn[5],
             wwn[6], wwn[7]);
    return text;
}

VTAPI_EXPORT char *GetStringPortID(const uint8_t *portId, char *text) {
    if (!portId || !text) return text;
    snprintf(text, 9, "%02x:%02x:%02x", portId[0], portId[1], portId[2]);
    return text;
}

VTAPI_EXPORT uint32_t IsWwpnValid(const uint8_t *wwpn) {
    if (!wwpn) return 0;
    for (int i = 0; i < 8; ++i)
        if (wwpn[i] != 0) return 1;
    return 0;
}

VTAPI_EXPORT const char *GetAdapterSerialNo(const SDMDevice *device) {
    return device ? device->DeviceNodeProperty.SerialNumber : "";
}

VTAPI_EXPORT uint32_t GetPhyPortNumber(const SDMDevice *device) {
    if (!device) return 0;
    return isVirtualPortHBA(device) ? device->DeviceNodeProperty.VPortIndex : device->DeviceChipProperty.PhysPortNumber;
}

VTAPI_EXPORT uint32_t CoreIsDriverWithRemotePortInfoSupport(const SDMDevice *device) {
    return device && (device->DeviceDriverProperty.Capabilities & SD_DRVCAP_REMOTE_PORT_INFO) ? 1 : 0;
}

uint32_t CoreIsAenSupported(const SDMDevice *device) {
    return device && (device->DeviceDriverProperty.Capabilities & SD_DRVCAP_AEN) ? 1 : 0;
}

// ----------------------------------------------------------------- devices

// Reads every property group of an opened port into a new record.
VTAPI_EXPORT SDMDevice *CreateNewSDMDevice(uint32_t handle, uint32_t instance) {
    // Owned here until returned, so that an exception out of a device call
    // (memory running out) does not lose it.
    std::unique_ptr<SDMDevice, decltype(&free)> owner(static_cast<SDMDevice *>(calloc(1, sizeof(SDMDevice))), &free);
    SDMDevice *d = owner.get();
    if (!d) return nullptr;
    d->DeviceHandle = handle;
    d->Instance = instance;
    uint32_t rc;
    if ((rc = SDGetHbaDeviceChipProperty(handle, &d->DeviceChipProperty)) != SDERR_NONE)
        LogDebug(__FILE__, __LINE__, "CreateNewSDMDevice: SDGetHbaDeviceChipProperty(%d) failed (0x%x) (%s)", instance,
                 rc, SDGetErrorString(rc));
    if ((rc = SDGetHbaDeviceDriverProperty(handle, &d->DeviceDriverProperty)) != SDERR_NONE)
        LogDebug(__FILE__, __LINE__, "CreateNewSDMDevice: SDGetHbaDeviceDriverProperty(%d) failed (0x%x) (%s)",
                 instance, rc, SDGetErrorString(rc));
    if ((rc = SDGetHbaDeviceNodeProperty(handle, &d->DeviceNodeProperty)) != SDERR_NONE)
        LogDebug(__FILE__, __LINE__, "CreateNewSDMDevice: SDGetHbaDeviceNodeProperty(%d) failed (0x%x) (%s)", instance,
                 rc, SDGetErrorString(rc));
    if ((rc = SDGetHbaDevicePortProperty(handle, &d->DevicePortProperty)) != SDERR_NONE)
        LogDebug(__FILE__, __LINE__, "CreateNewSDMDevice: SDGetHbaDevicePortProperty(%d) failed (0x%x) (%s)", instance,
                 rc, SDGetErrorString(rc));
    SDGetStatistics(handle, &d->DeviceStatistics);
    if (!isVirtualPortHBA(d)) {
        uint32_t size =
            d->DeviceChipProperty.NvramSize ? d->DeviceChipProperty.NvramSize : (CoreGetISPType(d) < 8 ? 256 : 512);
        if (size > sizeof d->DeviceInitialNVRAM) size = sizeof d->DeviceInitialNVRAM;
        if (SDGetNVRam(handle, 0, 1, d->DeviceInitialNVRAM, size) == SDERR_NONE)
            memcpy(d->DeviceCurrentNVRAM, d->DeviceInitialNVRAM, size);
    }
    if (isVirtualPortHBA(d)) {
        d->VPortQoSValue = 0;
        d->VPortQoSType = SD_QOS_PERCENTAGE;
        SDQoS qos;
        uint32_t parent = 0;
        if (SDOpenDevice(d->DeviceNodeProperty.ParentInstance, &parent) == SDERR_NONE) {
            if (SDGetQoS(parent, d->DevicePortProperty.WWPN, &qos) == SDERR_NONE) {
                d->VPortQoSValue = qos.QoSValue;
                d->VPortQoSType = qos.QoSType;
            }
            SDCloseDevice(parent);
        }
    }
    InitTargetList(&d->Targets);
    return owner.release();
}

void FreeSDMDevice(SDMDevice *device) {
    if (!device) return;
    FreeTargetList(&device->Targets);
    free(device);
}

uint32_t AddDeviceToDeviceList(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    device->next = nullptr;
    device->prev = g_deviceList.Last;
    if (g_deviceList.Last) g_deviceList.Last->next = device;
    else g_deviceList.First = device;
    g_deviceList.Last = device;
    ++g_deviceList.Count;
    return 0;
}

VTAPI_EXPORT uint32_t RemoveAllDevicesFromDeviceList(void) {
    for (SDMDevice *d = g_deviceList.First; d;) {
        SDMDevice *next = d->next;
        if (d->DeviceHandle) SDCloseDevice(d->DeviceHandle);
        FreeSDMDevice(d);
        d = next;
    }
    g_deviceList = SDMDeviceList{};
    return 0;
}

// Copies the property groups in their order, then the target and LUN lists;
// the copy has no links.  The destination must be zeroed or an earlier copy,
// whose target list is released first.
VTAPI_EXPORT uint32_t CopyToVTAPISDMDevice(SDMDevice *destination, const SDMDevice *source) {
    if (!destination || !source) return vt::kListNullArgument;
    if (destination == source) return 0;
    FreeTargetList(&destination->Targets);
    *destination = *source;
    destination->next = destination->prev = nullptr;
    return CopyTargetList(&destination->Targets, &source->Targets);
}

VTAPI_EXPORT SDMDeviceList *CloneCopySDMDeviceList(void) {
    auto *list = static_cast<SDMDeviceList *>(calloc(1, sizeof(SDMDeviceList)));
    if (!list) return nullptr;
    for (const SDMDevice *d = g_deviceList.First; d; d = d->next) {
        auto *copy = static_cast<SDMDevice *>(calloc(1, sizeof(SDMDevice)));
        if (!copy || CopyToVTAPISDMDevice(copy, d) != 0) {
            free(copy);
            break;
        }
        copy->prev = list->Last;
        if (list->Last) list->Last->next = copy;
        else list->First = copy;
        list->Last = copy;
        ++list->Count;
    }
    return list;
}

VTAPI_EXPORT void CloneFreeTarnDeviceList(SDMDevice *chain) {
    while (chain) {
        SDMDevice *next = chain->next;
        FreeSDMDevice(chain);
        chain = next;
    }
}

VTAPI_EXPORT SDMDevice *GetSDMDevice(const void *record) {
    if (!record) return nullptr;
    auto *x = static_cast<const SDMDevice *>(record);
    for (SDMDevice *d = g_myDeviceList.First; d; d = d->next)
        if (SameNames(d, x)) return d;
    return nullptr;
}

VTAPI_EXPORT uint32_t CoreUpdateFabricWWN(void) {
    for (SDMDevice *d = g_deviceList.First; d; d = d->next) {
        SDPortProperty port;
        if (SDGetHbaDevicePortProperty(d->DeviceHandle, &port) != SDERR_NONE) continue;
        memcpy(d->DevicePortProperty.PrincipalFabricWWPN, port.PrincipalFabricWWPN, 8);
        memcpy(d->DevicePortProperty.AdjacentFabricWWN, port.AdjacentFabricWWN, 8);
    }
    return 0;
}

}  // extern "C"
