// The adapter entry tree: one AdapterEntry per card, its physical ports, and
// their protocol entries, each holding a private copy of the port's device.
#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/core.h"
#include "oss/oss.h"

namespace {

// Target lists that core_FreeProtocolList leaves alone (entries of a
// non-zero protocol type).  They stay reachable here for the life of the
// process instead of being lost.
std::vector<TargetList> &RetainedTargetLists() {
    static auto *lists = new std::vector<TargetList>();
    return *lists;
}

template <typename List, typename Item>
void Append(List *list, Item *item) {
    if (list->Last) list->Last->next = item;
    else list->First = item;
    list->Last = item;
    ++list->Count;
}

void CopyTrimmed(char *dst, size_t size, const char *src) {
    while (*src == ' ' || *src == '\t') ++src;
    size_t n = strnlen(src, size - 1);
    while (n > 0 && (src[n - 1] == ' ' || src[n - 1] == '\t')) --n;
    memcpy(dst, src, n);
    dst[n] = '\0';
}

uint32_t Be32(const uint8_t *p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

// Reads a whole flash region through the device-management library.
bool ReadRegion(uint32_t handle, uint32_t region, std::vector<uint8_t> &out) {
    std::vector<uint8_t> head(16, 0);
    auto *layout = reinterpret_cast<SDOptionRomLayout *>(head.data());
    layout->Count = 1;
    uint32_t rc = SDGetOptionRomLayout(handle, 0, layout, 16);
    if (rc != SDERR_NONE && rc != SDERR_BUFFER_TOO_SMALL) return false;
    uint32_t count = layout->Count;
    std::vector<uint8_t> buf(8 + 8 * size_t(count), 0);
    layout = reinterpret_cast<SDOptionRomLayout *>(buf.data());
    layout->Count = count;
    if (SDGetOptionRomLayout(handle, 0, layout, uint32_t(buf.size())) != SDERR_NONE) return false;
    for (uint32_t i = 0; i < layout->Count; ++i) {
        if (layout->Region[i].Region != region) continue;
        out.assign(layout->Region[i].Size, 0);
        return !out.empty() && SDGetOptionRomEx(handle, out.data(), uint32_t(out.size()), region, 0) == SDERR_NONE;
    }
    return false;
}

// Empties a protocol list and clears its header.  The target list of an
// entry is freed only for protocol type 0; other types give up only the
// entry itself (deliberately).
void EmptyProtocolList(ProtocolList *list) {
    for (ProtocolEntry *p = list->First; p;) {
        ProtocolEntry *next = p->next;
        if (p->ProtocolType == 0) FreeTargetList(&p->Device.Targets);
        else if (p->Device.Targets.First) RetainedTargetLists().push_back(p->Device.Targets);
        free(p);
        p = next;
    }
    core_ZeroProtocolListMem(list);
}

void EmptyPhyPortList(PhyPortList *list) {
    for (PhyPortEntry *p = list->First; p;) {
        PhyPortEntry *next = p->next;
        EmptyProtocolList(&p->Protocols);
        free(p);
        p = next;
    }
    core_ZeroPhyPortListMem(list);
}

}  // namespace

extern "C" {

VTAPI_EXPORT AdapterEntryList *core_CreateAdapterEntryList(void) {
    return static_cast<AdapterEntryList *>(calloc(1, sizeof(AdapterEntryList)));
}
VTAPI_EXPORT AdapterEntry *core_CreateAdapterEntry(void) {
    return static_cast<AdapterEntry *>(calloc(1, sizeof(AdapterEntry)));
}
VTAPI_EXPORT PhyPortList *core_CreatePhyPortList(void) {
    return static_cast<PhyPortList *>(calloc(1, sizeof(PhyPortList)));
}
VTAPI_EXPORT PhyPortEntry *core_CreatePhyPortEntry(void) {
    return static_cast<PhyPortEntry *>(calloc(1, sizeof(PhyPortEntry)));
}
VTAPI_EXPORT ProtocolList *core_CreateProtocolList(void) {
    return static_cast<ProtocolList *>(calloc(1, sizeof(ProtocolList)));
}
VTAPI_EXPORT ProtocolEntry *core_CreateProtocolEntry(void) {
    return static_cast<ProtocolEntry *>(calloc(1, sizeof(ProtocolEntry)));
}

void core_ZeroAdapterEntryListMem(AdapterEntryList *list) {
    if (list) *list = AdapterEntryList{};
}
void core_ZeroPhyPortListMem(PhyPortList *list) {
    if (list) *list = PhyPortList{};
}
void core_ZeroProtocolListMem(ProtocolList *list) {
    if (list) *list = ProtocolList{};
}

// The free functions take a list header that a caller made on its own
// (core_Create...List) and release it with everything below it.  Inside the
// tree the protocol and port lists are embedded in their parent record, so
// the tree is emptied through EmptyPhyPortList and EmptyProtocolList, which
// leave the header to the parent.
VTAPI_EXPORT void core_FreeProtocolList(ProtocolList *list) {
    if (!list) return;
    EmptyProtocolList(list);
    free(list);
}

VTAPI_EXPORT void core_FreePhyPortList(PhyPortList *list) {
    if (!list) return;
    EmptyPhyPortList(list);
    free(list);
}

VTAPI_EXPORT void core_FreeAdapterList(AdapterEntryList *list) {
    if (!list) return;
    for (AdapterEntry *a = list->First; a;) {
        AdapterEntry *next = a->next;
        EmptyPhyPortList(&a->PhyPorts);
        free(a);
        a = next;
    }
    free(list);
}

VTAPI_EXPORT AdapterEntry *FindAdapterEntryUsingSerialNo(AdapterEntryList *list, const char *serial) {
    if (list && serial)
        for (AdapterEntry *a = list->First; a; a = a->next)
            if (strcasecmp(a->SerialNumber, serial) == 0) {
                LogDebug(__FILE__, __LINE__, "FindAdapterEntryUsingSerialNo() found a matching adapter = %s", serial);
                return a;
            }
    LogDebug(__FILE__, __LINE__,
             "FindAdapterEntryUsingSerialNo() did not find an adapter with matching serial number = %s",
             serial ? serial : "");
    return nullptr;
}

// Versions of the boot code, firmware and multi-image of the card, read
// from its flash: the expansion-ROM chain of the boot-code region, the RISC
// firmware header, and the image layout table.
VTAPI_EXPORT uint32_t GetHBAOptionROMVersions(const SDMDevice *device, AdapterEntry *entry) {
    if (!device || !entry) return vt::kListNullArgument;
    entry->FlashBIOSVersion[0] = entry->FCodeVersion[0] = entry->EFIVersion[0] = '\0';
    entry->FlashFirmwareVersion[0] = entry->FlashMultiBootVersion[0] = '\0';
    std::vector<uint8_t> rom;
    if (ReadRegion(device->DeviceHandle, 0x07, rom)) {
        size_t at = 0;
        while (at + 0x1A <= rom.size() && rom[at] == 0x55 && rom[at + 1] == 0xAA) {
            size_t pcir = at + (rom[at + 0x18] | (size_t(rom[at + 0x19]) << 8));
            if (pcir + 0x18 > rom.size() || memcmp(&rom[pcir], "PCIR", 4) != 0) break;
            uint16_t rev = uint16_t(rom[pcir + 0x12] | (rom[pcir + 0x13] << 8));
            uint8_t type = rom[pcir + 0x14];
            char *dst = type == 0   ? entry->FlashBIOSVersion
                        : type == 1 ? entry->FCodeVersion
                        : type == 3 ? entry->EFIVersion
                                    : nullptr;
            if (dst) snprintf(dst, 32, "%d.%02d", rev >> 8, rev & 0xFF);
            size_t len = size_t(rom[pcir + 0x10] | (rom[pcir + 0x11] << 8)) * 512;
            if ((rom[pcir + 0x15] & 0x80) || len == 0) break;
            at += len;
        }
    }
    std::vector<uint8_t> fw;
    if (ReadRegion(device->DeviceHandle, 0x01, fw) && fw.size() >= 36)
        snprintf(entry->FlashFirmwareVersion, 32, "%u.%02u.%02u", Be32(&fw[16]), Be32(&fw[20]), Be32(&fw[24]) & 0xFF);
    std::vector<uint8_t> ilt;
    if (ReadRegion(device->DeviceHandle, 0x8E, ilt) && ilt.size() >= 32 &&
        (memcmp(ilt.data(), "VFIM", 4) == 0 || memcmp(ilt.data(), "VILT", 4) == 0))
        snprintf(entry->FlashMultiBootVersion, 32, "%d.%02d.%02d", ilt[13], ilt[14], ilt[15]);
    LogDebug(__FILE__, __LINE__, "FC GetHBAOptionROMVersions() FlashBIOSVersion = %s", entry->FlashBIOSVersion);
    LogDebug(__FILE__, __LINE__, "FC GetHBAOptionROMVersions() FCodeVersion = %s", entry->FCodeVersion);
    LogDebug(__FILE__, __LINE__, "FC GetHBAOptionROMVersions() EFIVersion = %s", entry->EFIVersion);
    LogDebug(__FILE__, __LINE__, "FC GetHBAOptionROMVersions() FlashFirmwareVersion = %s", entry->FlashFirmwareVersion);
    LogDebug(__FILE__, __LINE__, "FC GetHBAOptionROMVersions() FlashMultiBootVersion = %s, pAdapterEntry = %u",
             entry->FlashMultiBootVersion, static_cast<unsigned>(reinterpret_cast<uintptr_t>(entry)));
    return 0;
}

VTAPI_EXPORT uint32_t BuildAdapterInfoForFC(AdapterEntryList *list) {
    if (!list) return vt::kListNullArgument;
    CoreUpdateFabricWWN();
    SDMDeviceList *mine = GetMyDeviceList();
    if (!mine || mine->Count == 0) return 0;
    for (SDMDevice *d = mine->First; d; d = d->next) {
        const char *serial = GetAdapterSerialNo(d);
        for (const SDMDevice *c = GetDeviceList()->First; c; c = c->next)
            if (memcmp(c->DeviceNodeProperty.WWNN, d->DeviceNodeProperty.WWNN, 8) == 0 &&
                memcmp(c->DevicePortProperty.WWPN, d->DevicePortProperty.WWPN, 8) == 0) {
                memcpy(d->DevicePortProperty.PrincipalFabricWWPN, c->DevicePortProperty.PrincipalFabricWWPN, 8);
                memcpy(d->DevicePortProperty.AdjacentFabricWWN, c->DevicePortProperty.AdjacentFabricWWN, 8);
                break;
            }
        // Supported speeds by rule when the driver reports no mask.
        uint32_t isp = CoreGetISPType(d);
        if ((isp == 25 || isp == 27) && !isEsxDriverWithSupportedSpeed(d)) {
            uint8_t speed = 0x38;
            if (isWren32GHBA(d) || isSkiff32GHBA(d)) speed = 0x70;
            if (isMezz32GHBA(d)) speed = 0x40;
            if (isMezz16GHBA(d)) speed = 0x20;
            d->DevicePortProperty.SupportedSpeed = speed;
        }

        AdapterEntry *entry = FindAdapterEntryUsingSerialNo(list, serial);
        if (!entry) {
            entry = core_CreateAdapterEntry();
            if (!entry) return vt::kNoMemory;
            snprintf(entry->SerialNumber, sizeof entry->SerialNumber, "%s", serial);
            entry->AdapterType = GetAdapterFunctionType(d->DeviceChipProperty.DeviceID);
            snprintf(entry->Manufacturer, sizeof entry->Manufacturer, "%s", d->DeviceNodeProperty.Manufacturer);
            entry->VendorID = d->DeviceChipProperty.VendorID;
            entry->SubVendorID = d->DeviceChipProperty.SubVendorID;
            entry->SubSystemID = d->DeviceChipProperty.SubSystemID;
            entry->PciBusNumber = d->DeviceChipProperty.PciBusNumber;
            entry->ChipRevision = d->DeviceChipProperty.ChipRevision;
            CopyTrimmed(entry->FirmwareVersion, sizeof entry->FirmwareVersion, d->DeviceNodeProperty.FirmwareVersion);
            snprintf(entry->AdapterModel, sizeof entry->AdapterModel, "%s", d->DeviceNodeProperty.Model);
            GetHBAOptionROMVersions(d, entry);
            Append(list, entry);
            LogDebug(__FILE__, __LINE__, "CreateAdapterEntry() created an adapter with serial number = %s",
                     entry->SerialNumber);
        }

        const uint8_t bus = uint8_t(d->DeviceChipProperty.PciBusNumber & 0xFF);
        const uint8_t dev = uint8_t((d->DeviceChipProperty.PciDevFunc >> 3) & 0x1F);
        const uint8_t fn = uint8_t(d->DeviceChipProperty.PciDevFunc & 7);
        const uint32_t portNumber = GetPhyPortNumber(d);
        PhyPortEntry *port = nullptr;
        for (PhyPortEntry *p = entry->PhyPorts.First; p; p = p->next)
            if (p->PciBusNumber == bus && p->PciDeviceNumber == dev && p->PhysicalPortNumber == portNumber) {
                port = p;
                break;
            }
        if (!port) {
            port = core_CreatePhyPortEntry();
            if (!port) return vt::kNoMemory;
            port->PhysicalPortNumber = uint8_t(portNumber);
            port->PciBusNumber = bus;
            port->PciDeviceNumber = dev;
            Append(&entry->PhyPorts, port);
            LogDebug(__FILE__, __LINE__, "CreatePhyPortEntry() Physical Port number = %u", portNumber);
        }

        ProtocolEntry *proto = nullptr;
        for (ProtocolEntry *p = port->Protocols.First; p; p = p->next)
            if (memcmp(p->WWNN, d->DeviceNodeProperty.WWNN, 8) == 0 &&
                memcmp(p->WWPN, d->DevicePortProperty.WWPN, 8) == 0) {
                proto = p;
                break;
            }
        if (!proto) {
            proto = core_CreateProtocolEntry();
            if (!proto) return vt::kNoMemory;
            memcpy(proto->WWNN, d->DeviceNodeProperty.WWNN, 8);
            memcpy(proto->WWPN, d->DevicePortProperty.WWPN, 8);
            Append(&port->Protocols, proto);
        }
        CopyToVTAPISDMDevice(&proto->Device, d);
        proto->PciBusNumber = bus;
        proto->PciDeviceNumber = dev;
        proto->PciFunctionNumber = fn;
        proto->ProtocolType =
            (isp == 15 || isp == 17 || isp == 21 || isp == 26) ? VTAPI_PROTOCOL_FCOE : VTAPI_PROTOCOL_FC;
    }
    return 0;
}

void DumpAdapterEntryList(const AdapterEntryList *list) {
    if (!list) return;
    for (const AdapterEntry *a = list->First; a; a = a->next) {
        LogDebug(__FILE__, __LINE__, "Begin Adapter = %s", a->SerialNumber);
        LogDebug(__FILE__, __LINE__, "FlashBIOSVersion = %s", a->FlashBIOSVersion);
        LogDebug(__FILE__, __LINE__, "FCodeVersion = %s", a->FCodeVersion);
        LogDebug(__FILE__, __LINE__, "EFIVersion = %s", a->EFIVersion);
        LogDebug(__FILE__, __LINE__, "FlashFirmwareVersion = %s", a->FlashFirmwareVersion);
        LogDebug(__FILE__, __LINE__, "FlashMultiBootVersion = %s, pAdapterEntry = %u", a->FlashMultiBootVersion,
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(a)));
        for (const PhyPortEntry *p = a->PhyPorts.First; p; p = p->next) {
            LogDebug(__FILE__, __LINE__, "Begin PhysicalPort Entry = %d", p->PhysicalPortNumber);
            for (const ProtocolEntry *e = p->Protocols.First; e; e = e->next) {
                if (e->ProtocolType >= 2) continue;
                char wwpn[24], wwnn[24];
                const uint8_t *x = e->WWPN, *y = e->WWNN;
                snprintf(wwpn, sizeof wwpn, "%02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", x[0], x[1], x[2], x[3], x[4],
                         x[5], x[6], x[7]);
                snprintf(wwnn, sizeof wwnn, "%02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X", y[0], y[1], y[2], y[3], y[4],
                         y[5], y[6], y[7]);
                LogDebug(__FILE__, __LINE__, "FC Protocol Entry Type WWPN = %s, WWNN = %s", wwpn, wwnn);
            }
            LogDebug(__FILE__, __LINE__, "End PhysicalPort Entry = %d", p->PhysicalPortNumber);
        }
        LogDebug(__FILE__, __LINE__, "End Adapter = %s", a->SerialNumber);
    }
}

}  // extern "C"
