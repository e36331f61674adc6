// vPorts of a physical port: creation and deletion through libvtsdm with
// the device lists and the AdapterList kept in step, the port's QoS list,
// and QoS changes written back to every vPort they touch.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "config/vport.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

struct VPortRef {
    uint32_t index;  // slot in the physical node's vPort table
    uint8_t wwpn[8];
};

bool TakesVports(const SDMDevice *d) {
    return d->DeviceNodeProperty.Interface == SD_INTERFACE_FC && CoreGetISPType(d) > 9 &&
           d->DeviceDriverProperty.MaxVports > 0;
}

// Why the port cannot carry vPorts, or 0.
uint32_t CheckPhysical(const SDMDevice *d) {
    if (!d) return VTAPI_INVALID_ARGUMENT;
    if (isVirtualPortHBA(d)) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    return TakesVports(d) ? 0 : VTAPI_OPTION_NOT_SUPPORTED;
}

// The port's vPorts from its node's vPort table, in table order.
std::vector<VPortRef> VirtualPortsOf(const SDMDevice *physical) {
    std::vector<VPortRef> out;
    const AdapterNode *node = FindAdapterInAdapterListBySDMDevice(physical);
    if (!node) return out;
    for (uint32_t i = 0; i < VTAPI_MAX_VPORTS; ++i)
        if (node->VPortWWPN[i] && IsWwpnValid(node->VPortWWPN[i])) {
            VPortRef r{i, {}};
            std::memcpy(r.wwpn, node->VPortWWPN[i], 8);
            out.push_back(r);
        }
    return out;
}

std::string WwnText(const uint8_t *w) {
    char text[24];
    return GetStringWWN(w, text);
}

std::string Model(const SDMDevice *d) {
    const auto &model = d->DeviceNodeProperty.Model;
    return std::string(model, strnlen(model, sizeof model));
}

void Unlink(SDMDeviceList *list, SDMDevice *d) {
    SDMDevice *prev = d->prev == d ? nullptr : d->prev;  // a head may point back at itself
    if (prev) prev->next = d->next;
    else list->First = d->next;
    if (d->next) d->next->prev = prev;
    if (list->Last == d) list->Last = prev;
    --list->Count;
    d->next = d->prev = nullptr;
}

void Append(SDMDeviceList *list, SDMDevice *d) {
    d->next = nullptr;
    d->prev = list->Last;
    if (list->Last) list->Last->next = d;
    else list->First = d;
    list->Last = d;
    ++list->Count;
}

SDMDevice *FindVirtual(SDMDeviceList *list, const uint8_t *wwpn) {
    for (SDMDevice *d = list->First; d; d = d->next)
        if (isVirtualPortHBA(d) && std::memcmp(d->DevicePortProperty.WWPN, wwpn, 8) == 0) return d;
    return nullptr;
}

// Drops the records of a deleted vPort from both device lists.
void ForgetVirtualPort(const uint8_t *wwpn) {
    if (SDMDevice *d = FindVirtual(GetMyDeviceList(), wwpn)) {
        Unlink(GetMyDeviceList(), d);
        FreeSDMDevice(d);
    }
    if (SDMDevice *d = FindVirtual(GetDeviceList(), wwpn)) {
        Unlink(GetDeviceList(), d);
        if (d->DeviceHandle) SDCloseDevice(d->DeviceHandle);
        FreeSDMDevice(d);
    }
}

// Opens the libvtsdm instance of the port with this WWPN.  Instances of the
// listed physical ports are not opened again.
bool OpenByWwpn(const uint8_t *wwpn, uint32_t &instance, uint32_t &handle) {
    std::vector<uint32_t> physical;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (!isVirtualPortHBA(d)) physical.push_back(d->Instance);
    for (uint32_t i = 0; i < 4 * SD_MAX_INSTANCES; ++i) {
        if (std::find(physical.begin(), physical.end(), i) != physical.end()) continue;
        uint32_t h = 0;
        const uint32_t rc = SDOpenDevice(i, &h);
        if (rc == SDERR_NO_SUCH_DEVICE) break;
        if (rc != SDERR_NONE) continue;
        SDPortProperty port;
        if (SDGetHbaDevicePortProperty(h, &port) == SDERR_NONE && std::memcmp(port.WWPN, wwpn, 8) == 0) {
            instance = i;
            handle = h;
            return true;
        }
        SDCloseDevice(h);
    }
    return false;
}

VPortQoSEntry *FindEntry(VPortQoSList *list, const uint8_t *wwpn) {
    for (VPortQoSEntry *e = list->First; e; e = e->next)
        if (std::memcmp(e->WWPN, wwpn, 8) == 0) return e;
    return nullptr;
}

// Applies the change asked for to the entry within the list.
uint32_t ApplyQoS(VPortQoSEntry *e, VPortQoSList *list, const SDQoS &q) {
    if (!e->QoSEnabled) return VTAPI_QOS_DISABLED;
    if (q.QoSValue > 100) return VTAPI_QOS_OUT_OF_RANGE;
    switch (q.QoSType) {
    case SD_QOS_PERCENTAGE:
        if (e->QoSType != SD_QOS_PERCENTAGE) {
            // A share of another kind counts from nothing as a percentage.
            e->QoSType = SD_QOS_PERCENTAGE;
            e->QoSVal = 0;
        }
        return SetPercentBwFor(e, list, q.QoSValue);
    case SD_QOS_SPEED: e->QoSType = SD_QOS_SPEED; return SetQoSValType(e, list, q.QoSValue);
    case SD_QOS_RESERVED: {
        e->QoSType = SD_QOS_RESERVED;
        if (uint32_t rc = SetQoSValType(e, list, q.QoSValue)) return rc;
        return GetTotalPercentageBW(list, 0) > list->MaxPercentageBW ? VTAPI_QOS_PERCENT_OVERFLOW : 0;
    }
    default: return VTAPI_INVALID_ARGUMENT;
    }
}

template <typename... Args>
void Message(char *message, uint32_t size, const char *format, Args... args) {
    if (message && size) std::snprintf(message, size, format, args...);
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t GetNumberOfAvailableVports(const SDMDevice *device) {
    if (CheckPhysical(device) != 0) return 0;
    SDPortProperty port;
    uint32_t used = uint32_t(VirtualPortsOf(device).size());
    if (SDGetHbaDevicePortProperty(device->DeviceHandle, &port) == SDERR_NONE) used = port.NumberOfVports;
    const uint32_t max = device->DeviceDriverProperty.MaxVports;
    return used >= max ? 0 : max - used;
}

VTAPI_EXPORT uint32_t GetMaxVportsSupportQOS(const SDMDevice *device) {
    if (CheckPhysical(device) != 0) return 0;
    const SDDriverProperty &drv = device->DeviceDriverProperty;
    return drv.MaxVportsWithQoS < drv.MaxVports ? drv.MaxVportsWithQoS : drv.MaxVports;
}

VTAPI_EXPORT uint32_t AddNewvPortToAdapterList(const SDMDevice *physical, const uint8_t *vportWWPN) {
    if (!physical || !vportWWPN) return 8;
    uint32_t instance = 0, handle = 0;
    if (!OpenByWwpn(vportWWPN, instance, handle)) {
        LogDebug(__FILE__, __LINE__, "AddNewvPortToAdapterList: vPort %s not found", WwnText(vportWWPN).c_str());
        return uint32_t(-1);
    }
    SDMDevice *device = CreateNewSDMDevice(handle, instance);
    auto *copy = static_cast<SDMDevice *>(std::calloc(1, sizeof(SDMDevice)));
    AdapterNode *node = CreateNewAdapter();
    if (!device || !copy || !node) {
        if (device) FreeSDMDevice(device);
        std::free(copy);
        std::free(node);
        SDCloseDevice(handle);
        return 115;
    }
    AddDeviceToDeviceList(device);
    CopyToVTAPISDMDevice(copy, device);
    Append(GetMyDeviceList(), copy);

    AdapterNode *parent = FindAdapterInAdapterListBySDMDevice(physical);
    CreateAdapterEntryFromSDMDevice(node, device);
    if (parent) {
        std::memcpy(node->Description, parent->Description, sizeof node->Description);
        node->Enable = parent->Enable;
        const uint32_t index = device->DeviceNodeProperty.VPortIndex;
        if (index < VTAPI_MAX_VPORTS && parent->VPortWWPN[index]) std::memcpy(parent->VPortWWPN[index], vportWWPN, 8);
    }
    if (AddAdapterToAdapterList(node) != 0) DeleteAdapter(node);
    LogDebug(__FILE__, __LINE__, "AddNewvPortToAdapterList: vPort %s instance %u vid %u", WwnText(vportWWPN).c_str(),
             instance, device->DeviceNodeProperty.VPortId);
    return 0;
}

uint32_t CreateVirtualPortOnDevice(SDMDevice *physical, const uint8_t *wwnn, const uint8_t *wwpn, uint8_t *createdWWPN,
                                   uint16_t *vportId) {
    if (!vportId) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = CheckPhysical(physical)) return rc;
    uint8_t portName[8];
    if (wwpn) {
        if (!IsWwpnValid(wwpn)) return VTAPI_INVALID_ARGUMENT;
        if (!isUniqueVirtualPortWWPN(wwpn)) return VTAPI_VPORT_WWN_UNUSABLE;
        std::memcpy(portName, wwpn, 8);
    } else {
        AdapterNode self{};
        const AdapterNode *node = FindAdapterInAdapterListBySDMDevice(physical);
        if (!node) {
            std::memcpy(self.WWPN, physical->DevicePortProperty.WWPN, 8);
            node = &self;
        }
        if (uint32_t rc = GenerateVPortWWN(node, portName, 1)) return rc;
    }
    // The caller learns the WWPN tried, so that a failure can name it.
    if (createdWWPN) std::memcpy(createdWWPN, portName, 8);
    uint16_t id = 0;
    const uint32_t rc = SDCreateVport(physical->DeviceHandle, wwnn ? wwnn : portName, portName, &id);
    if (rc != SDERR_NONE) {
        LogDebug(__FILE__, __LINE__, "CreateVirtualPortOnDevice: SDCreateVport %s on %u failed (0x%x)",
                 WwnText(portName).c_str(), physical->Instance, rc);
        return rc;
    }
    *vportId = id;
    AddNewvPortToAdapterList(physical, portName);
    guConfigChanged = 1;
    return VTAPI_SUCCESS;
}

uint32_t DeleteVirtualPortOnDevice(SDMDevice *physical, const uint8_t *vportWWPN) {
    if (!vportWWPN) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = CheckPhysical(physical)) return rc;
    const uint32_t rc = SDDeleteVport(physical->DeviceHandle, vportWWPN);
    if (rc == SDERR_NOT_FOUND) return VTAPI_PORT_NOT_FOUND;
    if (rc != SDERR_NONE) {
        LogDebug(__FILE__, __LINE__, "DeleteVirtualPortOnDevice: SDDeleteVport %s on %u failed (0x%x)",
                 WwnText(vportWWPN).c_str(), physical->Instance, rc);
        return rc;
    }
    DeletevPortInAdapterList(vportWWPN);
    ForgetVirtualPort(vportWWPN);
    guConfigChanged = 1;
    return VTAPI_SUCCESS;
}

uint32_t GetVirtualPortQoSList(const SDMDevice *physical, VPortQoSList *list) {
    if (!list) return VTAPI_QOS_INVALID_LIST;
    *list = VPortQoSList{};
    list->MaxPercentageBW = MAX_BW_PERCENTAGE;
    if (uint32_t rc = CheckPhysical(physical)) return rc;
    for (const VPortRef &v : VirtualPortsOf(physical)) {
        SDQoS q;
        const uint32_t rc = SDGetQoS(physical->DeviceHandle, v.wwpn, &q);
        if (rc == SDERR_NOT_FOUND) continue;  // deleted by someone else
        if (rc != SDERR_NONE) {
            FreeVirtualPortQoSList(list);
            return rc;
        }
        auto *e = static_cast<VPortQoSEntry *>(std::calloc(1, sizeof(VPortQoSEntry)));
        if (!e) {
            FreeVirtualPortQoSList(list);
            return 115;
        }
        e->VPortId = q.VPortId;
        e->QoSVal = q.QoSValue;
        e->QoSType = q.QoSType;
        e->QoSEnabled = q.QoSEnabled;
        std::memcpy(e->WWPN, v.wwpn, 8);
        if (list->Last) list->Last->next = e;
        else list->First = e;
        list->Last = e;
        ++list->Count;
    }
    CalculateRemainingPercentageBW(list);
    return VTAPI_SUCCESS;
}

void FreeVirtualPortQoSList(VPortQoSList *list) {
    if (!list) return;
    for (VPortQoSEntry *e = list->First; e;) {
        VPortQoSEntry *next = e->next;
        std::free(e);
        e = next;
    }
    list->First = list->Last = nullptr;
    list->Count = 0;
}

uint32_t SetVirtualPortQoS(SDMDevice *physical, const uint8_t *vportWWPN, const SDQoS *qos, const uint16_t *lockedIds,
                           uint32_t lockedCount) {
    if (!vportWWPN || !qos || (lockedCount && !lockedIds)) return VTAPI_INVALID_ARGUMENT;
    VPortQoSList list;
    if (uint32_t rc = GetVirtualPortQoSList(physical, &list)) return rc;
    struct Before {
        VPortQoSEntry *entry;
        uint16_t type, value;
    };
    std::vector<Before> before;
    for (VPortQoSEntry *e = list.First; e; e = e->next) {
        for (uint32_t i = 0; i < lockedCount; ++i)
            if (lockedIds[i] == e->VPortId) e->Locked = 1;
        before.push_back({e, e->QoSType, e->QoSVal});
    }
    VPortQoSEntry *target = FindEntry(&list, vportWWPN);
    uint32_t rc = target ? ApplyQoS(target, &list, *qos) : VTAPI_PORT_NOT_FOUND;
    // Lowered shares are written first, so that the port is never over its
    // bandwidth in between.
    for (int pass = 0; pass < 2 && rc == 0; ++pass)
        for (const Before &b : before) {
            VPortQoSEntry *e = b.entry;
            if (e->QoSType == b.type && e->QoSVal == b.value) continue;
            const bool lowered = e->QoSType == b.type && e->QoSVal < b.value;
            if (lowered != (pass == 0)) continue;
            const SDQoS q{e->VPortId, e->QoSType, e->QoSVal, e->QoSEnabled};
            if ((rc = SDSetQoS(physical->DeviceHandle, e->WWPN, &q)) != SDERR_NONE) {
                LogDebug(__FILE__, __LINE__, "SetVirtualPortQoS: SDSetQoS %s failed (0x%x)", WwnText(e->WWPN).c_str(),
                         rc);
                break;
            }
        }
    FreeVirtualPortQoSList(&list);
    return rc;
}

VTAPI_EXPORT uint32_t CreateVPortForHBA(SDMDevice *physical, int32_t userByte, uint8_t *createdWWPN, uint16_t *vportId,
                                        char *message, uint32_t size) {
    if (!physical || !vportId) return VTAPI_INVALID_ARGUMENT;
    const int32_t saved = g_UserVPortWWNByte;
    g_UserVPortWWNByte = userByte < 0 ? -1 : userByte;
    uint8_t wwpn[8] = {};
    uint32_t rc = CreateVirtualPortOnDevice(physical, nullptr, nullptr, wwpn, vportId);
    g_UserVPortWWNByte = saved;
    const uint8_t *w = wwpn;
    if (rc == VTAPI_SUCCESS) {
        if (createdWWPN) std::memcpy(createdWWPN, wwpn, 8);
        Message(message, size, "New vPort %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x of HBA %u was created successfully",
                w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance);
        return rc;
    }
    if (rc == VTAPI_VPORT_WWN_UNUSABLE && userByte > 3 && userByte <= 255) {
        // The WWPN the user's byte gives.
        std::memcpy(wwpn, physical->DevicePortProperty.WWPN, 8);
        wwpn[1] = uint8_t(userByte);
        Message(message, size, "Duplicate vPort WWPN %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x (HBA %u - %s!", w[0], w[1],
                w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance, Model(physical).c_str());
        return rc;
    }
    if (rc == VTAPI_VPORT_WWN_UNUSABLE || rc == VTAPI_NOT_SUPPORTED_ON_VPORT || rc == VTAPI_OPTION_NOT_SUPPORTED)
        std::memset(wwpn, 0, 8);
    Message(message, size, "Unable to create vPort %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x of HBA %u (%s)!", w[0], w[1],
            w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance, SDGetErrorString(rc));
    return rc;
}

VTAPI_EXPORT uint32_t DeleteVPortForHBA(SDMDevice *physical, const uint8_t *vportWWPN, char *message, uint32_t size) {
    if (!physical || !vportWWPN) return VTAPI_INVALID_ARGUMENT;
    const uint8_t *w = vportWWPN;
    if (CheckPhysical(physical) == 0 && VirtualPortsOf(physical).empty()) {
        Message(message, size, "HBA %u does not have any virtual port!", physical->Instance);
        return VTAPI_PORT_NOT_FOUND;
    }
    const uint32_t rc = DeleteVirtualPortOnDevice(physical, vportWWPN);
    if (rc == VTAPI_SUCCESS)
        Message(message, size,
                "Configuration changed, vPort %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x of HBA %u has been deleted.",
                w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance);
    else if (rc == VTAPI_PORT_NOT_FOUND)
        Message(message, size, "Specified vPort %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x does not exist (HBA %u)!", w[0],
                w[1], w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance);
    else
        Message(message, size, "Unable to delete vPort %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x of HBA %u (%s)!", w[0],
                w[1], w[2], w[3], w[4], w[5], w[6], w[7], physical->Instance, SDGetErrorString(rc));
    return rc;
}

VTAPI_EXPORT uint32_t DeleteAllVPortsForHBA(SDMDevice *physical, char *message, uint32_t size) {
    if (!physical) return VTAPI_INVALID_ARGUMENT;
    const auto vports = CheckPhysical(physical) == 0 ? VirtualPortsOf(physical) : std::vector<VPortRef>{};
    if (vports.empty()) {
        Message(message, size, "HBA %u does not have any virtual port!", physical->Instance);
        return VTAPI_PORT_NOT_FOUND;
    }
    int deleted = 0;
    for (const VPortRef &v : vports) {
        const uint32_t rc = DeleteVPortForHBA(physical, v.wwpn, message, size);
        if (rc != VTAPI_SUCCESS) return rc;  // the message names the vPort that failed
        ++deleted;
    }
    Message(message, size, "Configuration changed, %d vPort(s) of HBA %u - %s have been deleted.", deleted,
            physical->Instance, Model(physical).c_str());
    return VTAPI_SUCCESS;
}

}  // extern "C"
