// Discovery: probing the device-management library's instances, and
// building the sorted device list, the AdapterList and their order.
#include <strings.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "core/tarn_lists.h"
#include "core/boardtable.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

uint32_t g_openRetries = 0;         // reset only by a successful open
uint32_t g_targetLunDiscovery = 1;  // core option: refresh LUN OS names
uint32_t g_fabricScanning = 0;
uint32_t g_hostSystemType = 0;

const char kFile[] = __FILE__;

// Release functions of the command-line layer's lists, by vt::core::TarnList.
std::array<vt::core::TarnListRelease, size_t(vt::core::TarnList::QoSLuns) + 1> g_tarnListRelease{};

void ReleaseTarnList(vt::core::TarnList list) {
    if (vt::core::TarnListRelease release = g_tarnListRelease[size_t(list)]) release();
}

// Copy of a device record with cleared links, targets included.
SDMDevice *CopyDevice(const SDMDevice *d) {
    auto *copy = static_cast<SDMDevice *>(calloc(1, sizeof(SDMDevice)));
    if (!copy) return nullptr;
    if (CopyToVTAPISDMDevice(copy, d) != 0) {
        FreeSDMDevice(copy);
        return nullptr;
    }
    return copy;
}

}  // namespace

void vt::core::SetTarnListRelease(TarnList list, TarnListRelease release) { g_tarnListRelease[size_t(list)] = release; }

extern "C" {

VTAPI_EXPORT uint32_t g_ResourcesDeallocated = 0;

VTAPI_EXPORT uint32_t CoreInitializeDevices(void) {
    for (uint32_t instance = 0; instance < SD_MAX_INSTANCES; ++instance) {
        uint32_t handle = 0;
        uint32_t rc = SDOpenDevice(instance, &handle);
        if (rc == SDERR_NONE) {
            LogDebug(kFile, __LINE__, "Found Vantor HBA - instance (%d)", instance);
            SDMDevice *d = CreateNewSDMDevice(handle, instance);
            if (d) AddDeviceToDeviceList(d);
            else SDCloseDevice(handle);
            g_openRetries = 0;
            continue;
        }
        if (rc == SDERR_DEVICE_UNAVAILABLE) {
            if (g_openRetries <= 5) {
                ++g_openRetries;
                LogDebug(kFile, __LINE__, "SDOpenDevice(%d, xx) failed (0x%x) (%s), Retrying after a sleep...",
                         instance, rc, SDGetErrorString(rc));
                OSSSleep(5);
                --instance;  // the same instance again
            } else {
                // The counter is reset only by a success, so a later instance
                // failing the same way is declared unsupported at once.
                LogInfo(kFile, __LINE__,
                        "Found *UNSUPPORTED* Vantor HBA - instance (%d) -- Please check the README file for "
                        "supported adapters and driver versions.",
                        instance);
            }
            continue;
        }
        if (rc == SDERR_NO_SUCH_DEVICE) break;
        LogError(kFile, __LINE__, "SDOpenDevice(%d, xx) failed (0x%x) (%s) skipping", instance, rc,
                 SDGetErrorString(rc));
    }
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        if (CoreIsDriverWithRemotePortInfoSupport(d)) RetrieveRemotePortInfoForTargets(d);
        else RetrieveSecureInfoForTargets(d);
        if (CoreGetTargestLUNDiscoveryOption()) CoreUpdateLunOSDeviceName(d);
    }
    return 0;
}

VTAPI_EXPORT uint32_t CoreReinitializeDevices(uint32_t flag) {
    (void)flag;
    SDMDeviceList *clone = CloneCopySDMDeviceList();
    RemoveAllDevicesFromDeviceList();
    CoreInitializeDevices();
    OSSUpdateCoreDevices();
    if (clone) {
        CloneFreeTarnDeviceList(clone->First);
        free(clone);
    }
    return 0;
}

VTAPI_EXPORT uint32_t TarnReinitializeDevices(void) {
    scfxPrint("Refreshing...\n");
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: Enter...");
    // The thread that takes termination signals reads the flag.
    if (!__atomic_load_n(&g_ResourcesDeallocated, __ATOMIC_SEQ_CST)) {
        LogDebug(kFile, __LINE__, "TarnReinitializeDevices: Shutting Down...");
        OSSStopCorePollingLoop();
        CoreUninitialize();
        FreeMyDeviceList(1);
        TarnUnInitializeLogFile();
        __atomic_store_n(&g_ResourcesDeallocated, 1u, __ATOMIC_SEQ_CST);
    }
    CorePreInitialize();
    CoreInitialize();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: CoreInitialize completed.");
    CoreInitializeDevices();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: CoreInitializeDevices completed.");
    OSSPostInitializeDevices();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: OSSPostInitializeDevices completed.");
    getHostSystemType();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: checking fabric scanning option...");
    TarnGetFabricScanningOption();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: BuildTarnDevices started...");
    BuildTarnDevices();
    LogDebug(kFile, __LINE__, "TarnReinitializeDevices: BuildTarnDevices completed.");
    CoreInitializeTargets();
    __atomic_store_n(&g_ResourcesDeallocated, 0u, __ATOMIC_SEQ_CST);
    scfxPrint("Done.");
    return 0;
}

VTAPI_EXPORT uint32_t FreeMyDeviceList(uint32_t all) {
    using vt::core::TarnList;
    for (TarnList list : {TarnList::DisabledDiagnostics, TarnList::PersistentDevices, TarnList::SetFeatureResults,
                          TarnList::GetFeatureResults, TarnList::BeaconTargets, TarnList::HbaStatistics,
                          TarnList::LoopbackResults, TarnList::ReadWriteBufferResults, TarnList::BoardTemperatures})
        ReleaseTarnList(list);
    SDMDeviceList *mine = GetMyDeviceList();
    CloneFreeTarnDeviceList(mine->First);
    *mine = SDMDeviceList{};
    RemoveAllAdaptersFromAdapterList();
    if (all) ReleaseTarnList(TarnList::UserVPortOptions);
    for (TarnList list : {TarnList::UserVSANs, TarnList::UserOptionRomRequests, TarnList::QoSLuns})
        ReleaseTarnList(list);
    return 0;
}

VTAPI_EXPORT uint32_t UpdatePhysicalPortNumbers(void) {
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (!isVirtualPortHBA(d)) GetAdapterPciPhysicalPortNumber(d);
    return 0;
}

VTAPI_EXPORT uint32_t DetectLinuxVmWareDriver(void) {
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        const char *v = d->DeviceNodeProperty.DriverVersion;
        if (strstr(v, "-vm") || strstr(v, "vmw")) return 1;
    }
    return 0;
}

VTAPI_EXPORT int FindLocationInList(const SDMDevice *listed, const SDMDevice *candidate, uint32_t byPortId) {
    char a[24], b[24];
    if ((isVirtualPortHBA(listed) || isVirtualPortHBA(candidate)) && byPortId)
        return strcmp(GetStringPortID(listed->DevicePortProperty.PortId, a),
                      GetStringPortID(candidate->DevicePortProperty.PortId, b));
    return strcmp(GetStringWWN(listed->DevicePortProperty.WWPN, a),
                  GetStringWWN(candidate->DevicePortProperty.WWPN, b));
}

VTAPI_EXPORT SDMDevice *SortAdapterList(SDMDeviceList *deviceList) {
    const int32_t oldChips = TarnPreferenceGetKeyValue("node.hba.vta22xx.support.disable", 0);
    const int32_t targetMode = TarnPreferenceGetKeyValue("node.hba.subsystem.targetmode.enable", 0);
    (void)TarnPreferenceGetKeyValue("node.driver.vtc.support.disable", 0);  // read, not used
    const uint32_t vmware = DetectLinuxVmWareDriver();
    LogDebug(kFile, __LINE__, "SortAdapterList: bIsVMwareDriver=%d", vmware);
    SDMDevice *chain = nullptr;
    if (!deviceList) return nullptr;
    for (SDMDevice *d = deviceList->First; d; d = d->next) {
        const uint8_t *n = d->DeviceNodeProperty.WWNN, *p = d->DevicePortProperty.WWPN;
        if (!IsWwpnValid(p) && !IsWwpnValid(n)) {
            LogDebug(kFile, __LINE__,
                     "SortAdapterList: Skipping HBA=%d WWNN=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x "
                     "WWPN=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
                     d->Instance, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], p[0], p[1], p[2], p[3], p[4], p[5],
                     p[6], p[7]);
            continue;
        }
        const uint32_t isp = CoreGetISPType(d);
        if ((isp == 0 || isp == 1) && oldChips) continue;
        if (isp == 27 && isTargetModeEP(d) && targetMode == 0) continue;

        SDMDevice *copy = CopyDevice(d);
        if (!copy) {
            LogDebug(kFile, __LINE__, "SortAdapterList: Unable to allocate memory!");
            break;
        }
        // Targets of that storage family are shown as array controllers,
        // without passive-path marks; a deliberate special case.
        for (TargetEntry *t = copy->Targets.First; t; t = t->next)
            if (memcmp(t->ProductId, "MSA2", 4) == 0) {
                t->PeripheralType = 12;
                for (LunEntry *l = t->Luns.First; l; l = l->next) l->PassivePath = 0;
            }

        if (copy->DeviceNodeProperty.Interface != SD_INTERFACE_FC) {
            FreeSDMDevice(copy);
            continue;
        }
        AdapterNode *node = CreateNewAdapter();
        if (!node) {
            FreeSDMDevice(copy);
            LogDebug(kFile, __LINE__, "SortAdapterList: Unable to allocate memory!");
            break;
        }
        CreateAdapterEntryFromSDMDevice(node, copy);
        node->Enable = 1;
        node->PhysicalPort = GetAdapterPciPhysicalPortNumber(copy);
        SetMaxSupportedVPortsByDriver(copy);
        if (vmware && node->VPortWWPN[0]) {
            for (uint32_t i = 0; i < VTAPI_MAX_VPORTS; ++i) {
                memset(node->VPortWWPN[i], 0, 8);
                SDMDevice *v = FindVMwareVirtualPort(copy->Instance, i);
                if (!v) continue;
                if (IsWwpnValid(v->DevicePortProperty.WWPN)) memcpy(node->VPortWWPN[i], v->DevicePortProperty.WWPN, 8);
                FreeSDMDevice(v);
            }
        }
        LogDebug(kFile, __LINE__, "SortAdapterList:Adding HBA %d %s (interface=%d) to adapter entry list...",
                 node->Instance, node->Model, node->Interface);
        if (AddAdapterToAdapterList(node) != 0) DeleteAdapter(node);
        else
            for (uint32_t i = 0; i < VTAPI_MAX_VPORTS; ++i) {
                if (!node->VPortWWPN[i] || !IsWwpnValid(node->VPortWWPN[i])) continue;
                SDMDevice *v = FindSDMAPIAdapterByWWPN(node->VPortWWPN[i]);
                if (!v) continue;
                AdapterNode *vn = CreateNewAdapter();
                if (!vn) break;
                memcpy(vn->Description, node->Description, sizeof vn->Description);
                CreateAdapterEntryFromSDMDevice(vn, v);
                LogDebug(kFile, __LINE__, "SortAdapterList:: Adding vPort %d %s vid=%d...\n", vn->Instance,
                         vn->WWPNText, vn->VPortId);
                if (AddAdapterToAdapterList(vn) != 0) DeleteAdapter(vn);
            }

        // Ascending WWPN; equal ones go after those already chained.
        SDMDevice *prev = nullptr, *at = chain;
        while (at && FindLocationInList(at, copy, vmware) <= 0) {
            prev = at;
            at = at->next;
        }
        copy->next = at;
        copy->prev = prev;
        if (prev) prev->next = copy;
        else chain = copy;
        if (at) at->prev = copy;
    }
    return chain;
}

// Puts each virtual port of the core list into the chain right after its
// physical port.
VTAPI_EXPORT SDMDevice *AddVirtualPortsToAdapterList(SDMDevice *chain) {
    for (const SDMDevice *v = GetDeviceList()->First; v; v = v->next) {
        if (!isVirtualPortHBA(v)) continue;
        SDMDevice *parent = chain;
        while (parent && memcmp(parent->DevicePortProperty.WWPN, v->DeviceNodeProperty.ParentWWPN, 8) != 0)
            parent = parent->next;
        if (!parent) continue;
        SDMDevice *copy = CopyDevice(v);
        if (!copy) break;
        SDMDevice *after = parent;
        while (after->next && isVirtualPortHBA(after->next)) after = after->next;
        copy->next = after->next;
        copy->prev = after;
        if (after->next) after->next->prev = copy;
        after->next = copy;
    }
    return chain;
}

VTAPI_EXPORT SDMDevice *BuildTarnDeviceList(SDMDevice *chain) {
    SDMDevice *head = nullptr;
    uint32_t total = 0;
    for (SDMDevice *d = chain; d; d = d->next) {
        SDMDevice *copy = CopyDevice(d);
        if (!copy) {
            LogDebug(kFile, __LINE__, "BuildTarnDeviceList: Unable to allocate memory!");
            CloneFreeTarnDeviceList(head);
            return nullptr;
        }
        const uint8_t *w = copy->DevicePortProperty.WWPN;
        LogDebug(kFile, __LINE__,
                 "BuildTarnDeviceList: HBA %d (%s) SN %s Port %d %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
                 copy->Instance, copy->DeviceNodeProperty.Model, GetAdapterSerialNo(copy), GetPhyPortNumber(copy), w[0],
                 w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        if (!head) {
            head = copy;
            head->prev = head;
            continue;
        }
        ++total;  // counts inserts into a non-empty chain only (logs one less)
        SDMDevice *prev = nullptr, *at = head;
        while (at && strcmp(GetAdapterSerialNo(at), GetAdapterSerialNo(copy)) <= 0) {
            prev = at;
            at = at->next;
        }
        copy->next = at;
        if (!prev) {
            copy->prev = copy;
            head = copy;
        } else {
            copy->prev = prev;
            prev->next = copy;
        }
        if (at) at->prev = copy;
    }
    for (SDMDevice *d = head; d; d = d->next) {
        const uint8_t *w = d->DevicePortProperty.WWPN;
        LogDebug(kFile, __LINE__,
                 "BuildTarnDeviceList: Adapter instance %d (%s) port %d %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
                 d->Instance, d->DeviceNodeProperty.Model, GetPhyPortNumber(d), w[0], w[1], w[2], w[3], w[4], w[5],
                 w[6], w[7]);
    }
    RemoveAllAdaptersFromAdapterList();
    InitAdapterList();
    BuildAdapterEntryList(head);
    LogDebug(kFile, __LINE__, "BuildTarnDeviceList: Total number of HBAs=%d", total);
    return head;
}

VTAPI_EXPORT uint32_t BuildAdapterEntryList(SDMDevice *chain) {
    char path[600];
    snprintf(path, sizeof path, "%s/data/%s", TarnGetInstallationDir(), "adapters_adapter_provider.properties");
    SubSystemList *table = BuildSubSystemListFromFile(path);
    LogDebug(kFile, __LINE__, "BuildAdapterEntryList: Found Adapter property file (%d)", table ? 1 : 0);
    for (SDMDevice *d = chain; d; d = d->next) {
        const uint8_t *w = d->DevicePortProperty.WWPN;
        LogDebug(kFile, __LINE__, "BuildAdapterEntryList: Instance=%d WWPN=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x",
                 d->Instance, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        LogDebug(kFile, __LINE__, "BuildAdapterEntryList: NVRAM subSystemVendorID=0x%x subSystemDeviceID=0x%x",
                 d->DeviceChipProperty.SubVendorID, d->DeviceChipProperty.SubSystemID);
        AdapterNode *node = CreateNewAdapter();
        if (!node) break;
        if (CreateAdapterEntryFromSDMDevice(node, d) == 0 && table) {
            SubSystemRecord *r = FindSubSystemInSubSystemList(table, d->DeviceChipProperty.SubSystemID,
                                                              d->DeviceChipProperty.SubVendorID);
            if (r) {
                node->Enable = strstr(r->Supported, "TRUE") ? 1 : 0;
                snprintf(node->Description, sizeof node->Description, "%s", r->Desc);
            }
        }
        AddNewAdapterToAdapterList(node);
        LogDebug(kFile, __LINE__,
                 "BuildAdapterEntryList: Adding Instance=%d WWPN=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x Enable=%d",
                 d->Instance, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], node->Enable);
        DeleteAdapter(node);
    }
    FreeSubSystemList(table);
    return 0;
}

VTAPI_EXPORT uint32_t BuildTarnDevices(void) {
    UpdatePhysicalPortNumbers();
    SDMDevice *sorted = SortAdapterList(GetDeviceList());
    sorted = AddVirtualPortsToAdapterList(sorted);
    SDMDevice *ordered = BuildTarnDeviceList(sorted);
    SDMDeviceList *mine = GetMyDeviceList();
    for (SDMDevice *d = ordered; d;) {
        SDMDevice *next = d->next;
        const uint8_t *w = d->DevicePortProperty.WWPN;
        LogDebug(kFile, __LINE__,
                 "BuildTarnDevices: Adding HBA %d (%s) Port %d %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x) ...",
                 d->Instance, d->DeviceNodeProperty.Model, GetPhyPortNumber(d), w[0], w[1], w[2], w[3], w[4], w[5],
                 w[6], w[7]);
        d->next = nullptr;
        d->prev = mine->Last;
        if (mine->Last) mine->Last->next = d;
        else mine->First = d;
        mine->Last = d;
        ++mine->Count;
        d = next;
    }
    LogDebug(kFile, __LINE__, "BuildTarnDevices: Running house keeping on local adapter list....");
    for (SDMDevice *d = mine->First; d; d = d->next) {
        const uint8_t *f = d->DeviceNodeProperty.FlashFwVersion;
        LogDebug(kFile, __LINE__, "BuildTarnDevices: Running FW version: %s Flash FW version: %d.%02d.%02d",
                 d->DeviceNodeProperty.FirmwareVersion, f[0], f[1], f[2]);
        if (!isVirtualPortHBA(d)) {
            updateModelStrForSingleBIOSHBA(d);
            UpdateAdapterEntryList(d);
        }
        if (isSingleBIOSHBA(d)) UpdateHBAVersionForOEM(d);
        LogDebug(kFile, __LINE__, "BuildTarnDevices: Adjusting QoS settings...");
        AddjustVirtualPortsQoS(d);
    }
    if (TarnPreferenceGetKeyValue("node.hba.virtual.vf.enable", 0) != 0) CreateUservSANs();
    CloneFreeTarnDeviceList(sorted);
    return 0;
}

VTAPI_EXPORT uint32_t updateModelStrForSingleBIOSHBA(SDMDevice *device) {
    if (!device || !isSingleBIOSHBA(device)) return 0;
    char *model = device->DeviceNodeProperty.Model;
    if (!strstr(model, "-SB")) strncat(model, "-SB", sizeof device->DeviceNodeProperty.Model - strlen(model) - 1);
    return 0;
}

VTAPI_EXPORT uint32_t UpdateAdapterEntryList(SDMDevice *device) { return UpdateAdapterEntryInAdapterList(device); }

// A board with a single BIOS chip reports its option-ROM version as the
// BIOS version alone.
VTAPI_EXPORT uint32_t UpdateHBAVersionForOEM(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    char *v = device->DeviceNodeProperty.OptionRomVersion;
    if (char *space = strchr(v, ' ')) *space = '\0';
    return 0;
}

// QoS values of virtual ports beyond the QoS-capable range are cleared.
VTAPI_EXPORT uint32_t AddjustVirtualPortsQoS(SDMDevice *device) {
    if (!device || !isVirtualPortHBA(device)) return 0;
    if (device->DeviceNodeProperty.VPortId >= GetDeviceMaxVportsSupportQOS(device)) device->VPortQoSValue = 0;
    return 0;
}

VTAPI_EXPORT uint32_t CreateUservSANs(void) { return 0; }

VTAPI_EXPORT uint32_t TarnGetFabricScanningOption(void) {
    g_fabricScanning = uint32_t(TarnPreferenceGetKeyValue("node.agent.fabric.scanning.enable", 0));
    return g_fabricScanning;
}

VTAPI_EXPORT uint32_t getHostSystemType(void) {
    g_hostSystemType = 3;  // Linux
    return g_hostSystemType;
}

VTAPI_EXPORT uint32_t CoreGetTargestLUNDiscoveryOption(void) { return g_targetLunDiscovery; }
VTAPI_EXPORT void CoreSetTargetLUNDiscoveryOption(uint32_t enable) { g_targetLunDiscovery = enable ? 1 : 0; }

}  // extern "C"
