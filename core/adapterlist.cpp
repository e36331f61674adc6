// The AdapterList: one AdapterNode per port, with its names for display and
// the table of its virtual ports.
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/core.h"
#include "oss/oss.h"

namespace {

uint32_t g_count = 0;
AdapterNode *g_first = nullptr;
AdapterNode *g_last = nullptr;

bool SameNames(const AdapterNode *a, const uint8_t *wwnn, const uint8_t *wwpn) {
    return memcmp(a->WWNN, wwnn, 8) == 0 && memcmp(a->WWPN, wwpn, 8) == 0;
}

void FreeSlots(AdapterNode *node) {
    for (auto &slot : node->VPortWWPN) {
        free(slot);
        slot = nullptr;
    }
}

// A copy of a node with its own vPort slots; null when memory runs out.
AdapterNode *CopyNode(const AdapterNode *node) {
    auto *copy = static_cast<AdapterNode *>(malloc(sizeof(AdapterNode)));
    if (!copy) return nullptr;
    *copy = *node;
    copy->next = copy->prev = nullptr;
    for (int i = 0; i < VTAPI_MAX_VPORTS; ++i) {
        if (!node->VPortWWPN[i]) continue;
        copy->VPortWWPN[i] = static_cast<uint8_t *>(malloc(8));
        if (!copy->VPortWWPN[i]) {
            for (int k = i; k < VTAPI_MAX_VPORTS; ++k) copy->VPortWWPN[k] = nullptr;
            FreeSlots(copy);
            free(copy);
            return nullptr;
        }
        memcpy(copy->VPortWWPN[i], node->VPortWWPN[i], 8);
    }
    return copy;
}

const char *PortStateText(uint16_t state) {
    switch (state) {
    case SD_PORTSTATE_ONLINE: return "Online";
    case SD_PORTSTATE_LINKDOWN: return "Link Down";
    case SD_PORTSTATE_OFFLINE: return "Offline";
    case SD_PORTSTATE_BYPASSED: return "Bypassed";
    case SD_PORTSTATE_DIAGNOSTICS: return "Diagnostics";
    case SD_PORTSTATE_ERROR: return "Error";
    default: return "Unknown";
    }
}

}  // namespace

extern "C" {

VTAPI_EXPORT void InitAdapterList(void) {
    LogDebug(__FILE__, __LINE__, "InitAdapterList: Enter...");
    g_count = 0;
    g_first = g_last = nullptr;
    LogDebug(__FILE__, __LINE__, "InitAdapterList: Exit...");
}

VTAPI_EXPORT AdapterNode *GetAdapterList(void) { return g_first; }
VTAPI_EXPORT uint32_t GetCountOfEntryInAdapterList(void) { return g_count; }

VTAPI_EXPORT AdapterNode *CreateNewAdapter(void) { return static_cast<AdapterNode *>(calloc(1, sizeof(AdapterNode))); }

VTAPI_EXPORT AdapterNode *FindAdapterInAdapterList(AdapterNode *node) {
    if (!node) return nullptr;
    for (AdapterNode *n = g_first; n; n = n->next)
        if (SameNames(n, node->WWNN, node->WWPN)) return node;  // the argument, as designed
    return nullptr;
}

VTAPI_EXPORT int32_t AddNewAdapterToAdapterList(AdapterNode *node) {
    int32_t rc = -1;
    if (node) {
        LogDebug(__FILE__, __LINE__, "AddNewAdapterToAdapterList: instance=%d model=%s interface=%d", node->Instance,
                 node->Model, node->Interface);
        if (!FindAdapterInAdapterList(node)) {
            AdapterNode *copy = CopyNode(node);
            if (copy) {
                copy->prev = g_last;
                if (g_last) g_last->next = copy;
                else g_first = copy;
                g_last = copy;
                ++g_count;
                rc = 0;
            }
        }
    }
    LogDebug(__FILE__, __LINE__, "AddNewAdapterToAdapterList: Exit %d", rc);
    return rc;
}

VTAPI_EXPORT AdapterNode *FindAdapterInAdapterListBySDMDevice(const SDMDevice *device) {
    if (!device) return nullptr;
    for (AdapterNode *n = g_first; n; n = n->next)
        if (SameNames(n, device->DeviceNodeProperty.WWNN, device->DevicePortProperty.WWPN)) {
            LogDebug(__FILE__, __LINE__, "FindAdapterInAdapterListBySDMDevice: Found WWPN %s", n->WWPNText);
            return n;
        }
    return nullptr;
}

VTAPI_EXPORT AdapterNode *FindAdapterInAdapterListByWWN(const uint8_t *wwnn, const uint8_t *wwpn) {
    for (AdapterNode *n = g_first; n; n = n->next)
        if ((!wwnn || memcmp(n->WWNN, wwnn, 8) == 0) && (!wwpn || memcmp(n->WWPN, wwpn, 8) == 0)) return n;
    return nullptr;
}

VTAPI_EXPORT AdapterNode *FindVirtualPortInAdapterListByVPortID(uint32_t instance, uint32_t vportId) {
    const SDMDevice *phys = nullptr;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (d->Instance == instance) phys = d;
    for (AdapterNode *n = g_first; n; n = n->next) {
        if (n->Interface != SD_INTERFACE_VPORT || n->VPortId != vportId) continue;
        const SDMDevice *d = FindDeviceInDeviceListByAdapterEntry(n);
        if (d && phys && memcmp(d->DeviceNodeProperty.ParentWWPN, phys->DevicePortProperty.WWPN, 8) == 0) return n;
    }
    return nullptr;
}

VTAPI_EXPORT AdapterNode *FindPhysicalPortByVirtualPortInAdapterList(const AdapterNode *vport) {
    if (!vport) return nullptr;
    const SDMDevice *d = FindDeviceInDeviceListByAdapterEntry(vport);
    if (!d || !isVirtualPortHBA(d)) return nullptr;
    for (AdapterNode *n = g_first; n; n = n->next)
        if (n->Interface != SD_INTERFACE_VPORT && memcmp(n->WWPN, d->DeviceNodeProperty.ParentWWPN, 8) == 0) return n;
    return nullptr;
}

VTAPI_EXPORT AdapterNode *FindPhysicalAdapterEntryByVirtualPortInAdapterList(const AdapterNode *vport) {
    return FindPhysicalPortByVirtualPortInAdapterList(vport);
}

VTAPI_EXPORT SDMDevice *FindDeviceInDeviceListByAdapterEntry(const AdapterNode *node) {
    if (!node) return nullptr;
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (memcmp(d->DeviceNodeProperty.WWNN, node->WWNN, 8) == 0 &&
            memcmp(d->DevicePortProperty.WWPN, node->WWPN, 8) == 0)
            return d;
    return nullptr;
}

VTAPI_EXPORT uint32_t DeleteAdapter(AdapterNode *node) {
    if (!node) return vt::kListNullArgument;
    FreeSlots(node);
    free(node);
    return 0;
}

VTAPI_EXPORT int32_t DeleteAdapterNodeFromAdapterList(AdapterNode *node) {
    if (!node) return -1;
    for (AdapterNode *n = g_first; n; n = n->next) {
        if (!SameNames(n, node->WWNN, node->WWPN)) continue;
        const uint8_t *w = n->WWPN;
        LogDebug(__FILE__, __LINE__,
                 "DeleteAdapterNodeFromAdapterList: Found %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x instance %d vid %d",
                 w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], n->Instance, n->VPortId);
        // The list is walked from the head; a head node may point back at itself.
        AdapterNode *prev = nullptr;
        for (AdapterNode *p = g_first; p && p != n; p = p->next) prev = p;
        if (prev) prev->next = n->next;
        else g_first = n->next;
        if (n->next) n->next->prev = prev;
        if (g_last == n) g_last = prev;
        --g_count;
        DeleteAdapter(n);
        return 0;
    }
    return -1;
}

VTAPI_EXPORT void RemoveAllAdaptersFromAdapterList(void) {
    for (AdapterNode *n = g_first; n;) {
        AdapterNode *next = n->next;
        LogDebug(__FILE__, __LINE__, "RemoveAllAdaptersFromAdapterList: Freeing HBA %d", n->Instance);
        DeleteAdapter(n);
        n = next;
    }
    InitAdapterList();
}

// 28-byte vPort summary records: instance, vPort id, WWPN, port id, pad.
struct VPortSummary {
    uint32_t Instance;
    uint32_t VPortId;
    uint8_t WWPN[8];
    uint8_t PortId[4];
    uint32_t Reserved[2];
};
static_assert(sizeof(VPortSummary) == 28, "vPort summary records are 28 bytes");

VTAPI_EXPORT int ComparePortName(const void *a, const void *b) {
    return memcmp(static_cast<const VPortSummary *>(a)->WWPN, static_cast<const VPortSummary *>(b)->WWPN, 8);
}

VTAPI_EXPORT int ComparePortID(const void *a, const void *b) {
    return memcmp(static_cast<const VPortSummary *>(a)->PortId, static_cast<const VPortSummary *>(b)->PortId, 3);
}

VTAPI_EXPORT int CompareVportId(const void *a, const void *b) {
    uint32_t x = static_cast<const VPortSummary *>(a)->VPortId, y = static_cast<const VPortSummary *>(b)->VPortId;
    return x < y ? -1 : x > y;
}

VTAPI_EXPORT int CompareInstanceNumber(const void *a, const void *b) {
    uint32_t x = static_cast<const VPortSummary *>(a)->Instance, y = static_cast<const VPortSummary *>(b)->Instance;
    return x < y ? -1 : x > y;
}

VTAPI_EXPORT void SortVirtualPortArray(void *array, uint32_t count, uint32_t key) {
    if (!array || count < 2) return;
    int (*cmp)(const void *, const void *) = key == 1   ? ComparePortName
                                             : key == 2 ? ComparePortID
                                             : key == 3 ? CompareVportId
                                                        : CompareInstanceNumber;
    qsort(array, count, sizeof(VPortSummary), cmp);
}

VTAPI_EXPORT uint32_t GetDeviceMaxVportsSupportQOS(const SDMDevice *device) {
    return device ? device->DeviceDriverProperty.MaxVportsWithQoS : 0;
}

VTAPI_EXPORT uint32_t SetMaxSupportedVPortsByDriver(const SDMDevice *device) {
    return device ? device->DeviceDriverProperty.MaxVports : 0;
}

VTAPI_EXPORT const char *GetAdapterStatus(const SDMDevice *device, char *text) {
    if (!text) return "";
    const char *s = !device ? "Unknown"
                    : (device->DevicePortProperty.StateFlags & SD_PORTFLAG_MAINTENANCE)
                        ? "Maintenance Mode"
                        : PortStateText(device->DevicePortProperty.PortState);
    strncpy(text, s, 31);
    text[31] = '\0';
    return text;
}

// The library's record of a virtual port of `instance` with this index: a
// copy the caller frees, or null.
VTAPI_EXPORT SDMDevice *FindVPortByVPortID(uint32_t instance, uint32_t index) {
    const SDMDevice *phys = nullptr;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (d->Instance == instance && !isVirtualPortHBA(d)) phys = d;
    if (!phys) return nullptr;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        if (!isVirtualPortHBA(d) || d->DeviceNodeProperty.VPortIndex != index) continue;
        if (memcmp(d->DeviceNodeProperty.ParentWWPN, phys->DevicePortProperty.WWPN, 8) != 0) continue;
        auto *copy = static_cast<SDMDevice *>(calloc(1, sizeof(SDMDevice)));
        if (copy) CopyToVTAPISDMDevice(copy, d);
        return copy;
    }
    return nullptr;
}

// The VMware driver reports virtual ports in the same records.
VTAPI_EXPORT SDMDevice *FindVMwareVirtualPort(uint32_t instance, uint32_t index) {
    return FindVPortByVPortID(instance, index);
}

VTAPI_EXPORT SDMDevice *FindSDMAPIAdapterByWWPN(const uint8_t *wwpn) {
    if (!wwpn) return nullptr;
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (memcmp(d->DevicePortProperty.WWPN, wwpn, 8) == 0) return d;
    return nullptr;
}

VTAPI_EXPORT uint32_t CreateAdapterEntryFromSDMDevice(AdapterNode *node, SDMDevice *device) {
    uint32_t rc = 8;
    if (node && device) {
        const SDChipProperty &chip = device->DeviceChipProperty;
        node->Instance = device->Instance;
        node->PhysicalPort = chip.PhysPortNumber;
        node->DeviceHandle = device->DeviceHandle;
        node->Reserved0 = 0;
        node->PciDeviceNumber = uint8_t((chip.PciDevFunc >> 3) & 0x1F);
        node->PciBusNumber = uint8_t(chip.PciBusNumber & 0xFF);
        node->PciFunctionNumber = uint8_t(chip.PciDevFunc & 7);
        node->PortAttribute = device->PortAttribute;
        node->ChipClass = CoreGetISPType(device) < 8 ? 1 : 2;
        node->VPortId = device->DeviceNodeProperty.VPortId;
        node->SubVendorID = chip.SubVendorID;
        node->SubSystemID = chip.SubSystemID;
        node->DeviceID = chip.DeviceID;
        node->ChipRevision = chip.ChipRevision;
        memcpy(node->WWNN, device->DeviceNodeProperty.WWNN, 8);
        memcpy(node->WWPN, device->DevicePortProperty.WWPN, 8);
        const char *model = device->DeviceNodeProperty.Model;
        std::string shown(model, strnlen(model, sizeof device->DeviceNodeProperty.Model));
        if (isOEMModelSuffixHBA(device) && shown.find("-S") == std::string::npos) shown += "-S";
        snprintf(node->Model, sizeof node->Model, "%.*s", int(sizeof node->Model - 1), shown.c_str());
        snprintf(node->SerialNumber, sizeof node->SerialNumber, "%s", device->DeviceNodeProperty.SerialNumber);
        GetStringWWN(node->WWPN, node->WWPNText);
        GetStringWWN(node->WWNN, node->WWNNText);
        memcpy(node->PortId, device->DevicePortProperty.PortId, 3);
        node->Interface = device->DeviceNodeProperty.Interface;
        node->Reserved2 = 0xFFFF;
        node->QoSState[0] = node->QoSState[1] = 0;
        GetAdapterStatus(device, node->Status);
        node->VendorID = chip.VendorID;
        node->ListFlag = 2;

        if (isVirtualPortHBA(device)) {
            node->PortSpeed = ConvertPortSpeedToDecimal(device->DevicePortProperty.PortSpeed);
            node->QoSType = int16_t(device->VPortQoSType);
            node->QoSValue = uint16_t(device->VPortQoSValue);
            if (node->VPortId >= GetDeviceMaxVportsSupportQOS(device)) {
                node->QoSValue = 0;
                // A virtual port has the vPort interface type; the FCoE
                // function it belongs to shows in the converged-adapter chip.
                if (isFCoECNA(device)) node->QoSState[1] = 2;
            }
        }
        if (isFCoECNA(device)) memcpy(node->EnodeMAC, device->DevicePortProperty.EnodeMAC, 6);

        rc = 0;
        if (CoreGetISPType(device) > 9) {
            // A node filled again keeps its slots, cleared.
            for (auto &slot : node->VPortWWPN) {
                if (slot) memset(slot, 0, 8);
                else slot = static_cast<uint8_t *>(calloc(1, 8));
                if (!slot) rc = 115;
            }
            if (!isVirtualPortHBA(device)) {
                const char *drv = device->DeviceNodeProperty.DriverVersion;
                const bool vmware = strstr(drv, "-vm") || strstr(drv, "vmw");
                for (uint32_t i = 0; i < VTAPI_MAX_VPORTS; ++i) {
                    SDMDevice *v =
                        vmware ? FindVMwareVirtualPort(device->Instance, i) : FindVPortByVPortID(device->Instance, i);
                    if (!v) continue;
                    const uint8_t *w = v->DevicePortProperty.WWPN;
                    if (IsWwpnValid(w) && node->VPortWWPN[i]) {
                        memcpy(node->VPortWWPN[i], w, 8);
                        LogDebug(__FILE__, __LINE__,
                                 "CreateAdapterEntryFromSDMDevice: Updating adapter entry VPort Array[%d] with WWPN "
                                 "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
                                 i, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
                        if (!vmware) node->VPortId = v->DeviceNodeProperty.VPortId;
                    }
                    FreeSDMDevice(v);
                }
            }
        }
    }
    LogDebug(__FILE__, __LINE__, "CreateAdapterEntryFromSDMDevice: return %d", rc);
    return rc;
}

// Refreshes a listed node from the device after a change made through the
// library (vPort created or deleted, status changed).
VTAPI_EXPORT uint32_t UpdateAdapterEntryInAdapterList(const SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    for (AdapterNode *n = g_first; n; n = n->next) {
        if (!SameNames(n, device->DeviceNodeProperty.WWNN, device->DevicePortProperty.WWPN)) continue;
        GetAdapterStatus(device, n->Status);
        memcpy(n->PortId, device->DevicePortProperty.PortId, 3);
        if (isVirtualPortHBA(device)) {
            n->PortSpeed = ConvertPortSpeedToDecimal(device->DevicePortProperty.PortSpeed);
            n->QoSType = int16_t(device->VPortQoSType);
            n->QoSValue = n->VPortId >= GetDeviceMaxVportsSupportQOS(device) ? 0 : uint16_t(device->VPortQoSValue);
        }
        return 0;
    }
    return uint32_t(-1);
}

VTAPI_EXPORT uint32_t UpdateAdapterEntryNodeInAdapterList(AdapterNode *node) {
    const SDMDevice *d = FindDeviceInDeviceListByAdapterEntry(node);
    return d ? UpdateAdapterEntryInAdapterList(d) : uint32_t(-1);
}

VTAPI_EXPORT uint32_t UpdateAllAdapterEntryNodesInAdapterList(void) {
    for (AdapterNode *n = g_first; n; n = n->next) UpdateAdapterEntryNodeInAdapterList(n);
    return 0;
}

VTAPI_EXPORT uint32_t UpdatePhysicalAdapterEntryVportArray(AdapterNode *physical) {
    SDMDevice *d = FindDeviceInDeviceListByAdapterEntry(physical);
    if (!d || !physical->VPortWWPN[0]) return uint32_t(-1);
    for (uint32_t i = 0; i < VTAPI_MAX_VPORTS; ++i) {
        memset(physical->VPortWWPN[i], 0, 8);
        SDMDevice *v = FindVPortByVPortID(d->Instance, i);
        if (!v) continue;
        if (IsWwpnValid(v->DevicePortProperty.WWPN)) memcpy(physical->VPortWWPN[i], v->DevicePortProperty.WWPN, 8);
        FreeSDMDevice(v);
    }
    return 0;
}

VTAPI_EXPORT uint32_t UpdatePhysicalAdapterEntryByVirtualPortInAdapterList(const AdapterNode *vport) {
    AdapterNode *phys = FindPhysicalPortByVirtualPortInAdapterList(vport);
    return phys ? UpdatePhysicalAdapterEntryVportArray(phys) : uint32_t(-1);
}

VTAPI_EXPORT uint32_t DeletevPortInAdapterList(const uint8_t *vportWwpn) {
    if (!vportWwpn) return vt::kListNullArgument;
    for (AdapterNode *n = g_first; n; n = n->next) {
        for (auto *slot : n->VPortWWPN)
            if (slot && memcmp(slot, vportWwpn, 8) == 0) memset(slot, 0, 8);
    }
    for (AdapterNode *n = g_first; n; n = n->next)
        if (n->Interface == SD_INTERFACE_VPORT && memcmp(n->WWPN, vportWwpn, 8) == 0)
            return uint32_t(DeleteAdapterNodeFromAdapterList(n));
    return uint32_t(-1);
}

VTAPI_EXPORT uint32_t UpdateAdapterEntryVportList(void) { return 0; }

// Sorted insert; the list takes the node itself.  The head keeps a previous
// link to itself, and an insert at the end of a list of more than one node
// leaves the last-node pointer where it was: readers walk from the head.
VTAPI_EXPORT int32_t AddAdapterToAdapterList(AdapterNode *node) {
    LogDebug(__FILE__, __LINE__, "AddAdapterToAdapterList: Enter...");
    int32_t rc = -1;
    if (node) {
        bool listed = false;
        for (AdapterNode *n = g_first; n; n = n->next)
            if (SameNames(n, node->WWNN, node->WWPN)) listed = true;
        if (!listed) {
            rc = 0;
            AdapterNode *prev = nullptr, *at = g_first;
            while (at && FindLocationInAdapterEntryList(at, node) <= 0) {
                prev = at;
                at = at->next;
            }
            node->next = at;
            if (!prev) {
                node->prev = node;
                g_first = node;
                if (!g_last) g_last = node;
            } else {
                node->prev = prev;
                prev->next = node;
                if (!at && g_count <= 1) g_last = node;
            }
            if (at) at->prev = node;
            ++g_count;
        }
    }
    LogDebug(__FILE__, __LINE__, "AddAdapterToAdapterList:  exit %d", rc);
    return rc;
}

VTAPI_EXPORT int FindLocationInAdapterEntryList(const AdapterNode *listed, const AdapterNode *candidate) {
    int r;
    const bool neitherVirtual = listed->Interface != SD_INTERFACE_VPORT && candidate->Interface != SD_INTERFACE_VPORT;
    if (neitherVirtual &&
        ((isTernAdapter(listed) && isTernAdapter(candidate)) || (isOrlaAdapter(listed) && isOrlaAdapter(candidate))))
        r = strcmp(candidate->WWPNText, listed->WWPNText);
    else r = strcmp(listed->WWPNText, candidate->WWPNText);
    LogDebug(__FILE__, __LINE__, "FindLocationInAdapterEntryList: returns %d", r);
    return r;
}

}  // extern "C"
