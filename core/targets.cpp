// Targets of each port: the remote ports the device-management library
// reports, kept in the device records of the core list and of the sorted list.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vtapi_core.h"
#include "vtapi_oss.h"

namespace {

const char kFile[] = __FILE__;

// Rebuilds the target list of one device from the discovered remote ports.
uint32_t ReadTargets(SDMDevice *d) {
    FreeTargetList(&d->Targets);
    uint32_t count = 0;
    uint32_t rc = SDGetDiscTargetProperties(d->DeviceHandle, nullptr, &count);
    if (rc != SDERR_NONE && rc != SDERR_BUFFER_TOO_SMALL) {
        LogDebug(kFile, __LINE__, "CoreInitializeTargets: SDGetDiscTargetProperties(%d) failed (0x%x) (%s)",
                 d->Instance, rc, SDGetErrorString(rc));
        return rc;
    }
    std::vector<SDDiscTargetProperty> props(count);
    if (count && (rc = SDGetDiscTargetProperties(d->DeviceHandle, props.data(), &count)) != SDERR_NONE) return rc;
    for (uint32_t i = 0; i < count && i < props.size(); ++i) {
        auto *t = static_cast<TargetEntry *>(calloc(1, sizeof(TargetEntry)));
        if (!t) return 115;
        const SDDiscTargetProperty &p = props[i];
        memcpy(t->WWNN, p.WWNN, 8);
        memcpy(t->WWPN, p.WWPN, 8);
        memcpy(t->PortId, p.PortId, 3);
        t->DiscTargetProperty = p;
        t->TargetFlags = p.TargetFlags;
        t->PeripheralType = 0x1F;
        t->PortTypeWord = p.TargetType == SD_TARGETTYPE_NVME ? 1 : 0;
        InitLunList(&t->Luns);
        if (d->Targets.Last) d->Targets.Last->next = t;
        else d->Targets.First = t;
        d->Targets.Last = t;
        ++d->Targets.Count;
    }
    return 0;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t CoreInitializeTargets(void) {
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next) ReadTargets(d);
    // The sorted list holds copies: give them the same targets.
    for (SDMDevice *m = GetMyDeviceList()->First; m; m = m->next)
        for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
            if (memcmp(d->DevicePortProperty.WWPN, m->DevicePortProperty.WWPN, 8) == 0 &&
                memcmp(d->DeviceNodeProperty.WWNN, m->DeviceNodeProperty.WWNN, 8) == 0) {
                FreeTargetList(&m->Targets);
                CopyTargetList(&m->Targets, &d->Targets);
                break;
            }
    return 0;
}

// The driver's remote-port records carry the port IDs and names already
// taken from the discovered-target properties.
VTAPI_EXPORT uint32_t RetrieveRemotePortInfoForTargets(SDMDevice *device) { return device ? 0 : 8; }

// Security (encryption in flight) information is not kept by this build.
VTAPI_EXPORT uint32_t RetrieveSecureInfoForTargets(SDMDevice *device) { return device ? 0 : 8; }

VTAPI_EXPORT uint32_t CoreUpdateLunOSDeviceName(SDMDevice *device) {
    if (!device) return 8;
    for (TargetEntry *t = device->Targets.First; t; t = t->next)
        for (LunEntry *l = t->Luns.First; l; l = l->next)
            if (SDGetLunOSDeviceName(device->DeviceHandle, t->WWPN, l->LunNumber, l->OSDeviceName,
                                     sizeof l->OSDeviceName) != SDERR_NONE)
                l->OSDeviceName[0] = '\0';
    return 0;
}

}  // extern "C"
