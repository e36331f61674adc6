// Boot devices: the FCP boot switches and drives held in NVRAM, the
// boot-from-SAN configuration mode, and the FC-NVMe boot parameters block
// each port keeps in an option-ROM flash region.
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "config/hbaparam_table.h"
#include "config/nvram_config.h"
#include "config/nvram_image_check.h"
#include "config/nvram_internal.h"
#include "core/core.h"
#include "oss/oss.h"

using namespace vt::config;

// The API record is the block as it lies in flash (little-endian).
static_assert(sizeof(VTAPI_NVMeBootDrive) == 284);
static_assert(sizeof(VTAPI_NVMeBootDeviceEntries) == 2560);
static_assert(offsetof(VTAPI_NVMeBootDeviceEntries, Drives) == 16);
static_assert(offsetof(VTAPI_NVMeBootDeviceEntries, HostNQN) == 2288);
static_assert(offsetof(VTAPI_NVMeBootDeviceEntries, HostID) == 2544);

namespace {

const char kFile[] = __FILE__;

// Boot switches by NVRAM variable.
constexpr uint32_t kEfiBootVar = 18, kDisableBiosVar = 58, kSelectableBootVar = 60, kSelectiveLoginVar = 92,
                   kAlternateBootVar = 93, kBootOrderListVar = 94, kSelectiveLunVar = 95, kWorldLoginVar = 96,
                   kFabricBootLunVar = 131, kNvmeEnableVar = 148;

// FC-NVMe boot parameters: region 33 on chip types 24-26; on later types
// the active-region record names region 334 or 377.
constexpr uint32_t kNvmeRegionOld = 33, kNvmeRegionActive = 334, kNvmeRegionInactive = 377;
constexpr uint32_t kActiveRecordRegion = 0x8F;  // "VACT", byte 4 bit 0: 334 active
constexpr uint32_t kActiveRecordSize = 16;
constexpr uint32_t kNvmeBlockStride = 4096;
constexpr uint32_t kNvmeBlockSize = sizeof(VTAPI_NVMeBootDeviceEntries);

uint8_t g_bfsConfigMode = 0;

bool IsNvmeTarget(const TargetEntry *t) {
    return t->DiscTargetProperty.TargetType == SD_TARGETTYPE_NVME || t->PortTypeWord == 1;
}

const TargetEntry *FindTarget(const SDMDevice *d, const uint8_t *wwpn) {
    for (const TargetEntry *t = d->Targets.First; t; t = t->next)
        if (std::memcmp(t->WWPN, wwpn, 8) == 0) return t;
    return nullptr;
}

// Eight hex bytes separated by ':' or '-', or sixteen hex digits.
bool ParseWwn(const char *text, uint8_t *wwn) {
    std::string hex;
    for (const char *p = text; *p; ++p) {
        if (std::isxdigit(static_cast<unsigned char>(*p))) hex += *p;
        else if ((*p != ':' && *p != '-') || (hex.size() % 2) != 0) return false;
    }
    if (hex.size() != 16) return false;
    for (int i = 0; i < 8; ++i) wwn[i] = static_cast<uint8_t>(std::strtoul(hex.substr(2 * i, 2).c_str(), nullptr, 16));
    return true;
}

uint32_t NvmeSum(const VTAPI_NVMeBootDeviceEntries *block, uint32_t length) {
    const auto *p = reinterpret_cast<const uint8_t *>(block);
    uint32_t sum = 0;
    for (uint32_t i = 0; i + 3 < length; i += 4)
        sum += uint32_t{p[i]} | uint32_t{p[i + 1]} << 8 | uint32_t{p[i + 2]} << 16 | uint32_t{p[i + 3]} << 24;
    return sum;
}

// Region and offset of the port's FC-NVMe block; 121 below chip type 24,
// 8 for a port index outside 1-4.
uint32_t NvmeBlockPlace(SDMDevice *d, uint32_t &region, uint32_t &offset) {
    const uint32_t chip = CoreGetISPType(d);
    if (chip < 24) {
        LogDebug(kFile, __LINE__,
                 "GetNVMeBootDeviceEntries: NVMe boot configuration is not supported with current adapter.");
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", d->Instance, ModelOf(d).c_str());
        return kNvmeBootNotSupported;
    }
    region = kNvmeRegionOld;
    if (chip > 26) {
        uint8_t record[kActiveRecordSize] = {};
        const uint32_t rc = SDGetOptionRomEx(d->DeviceHandle, record, kActiveRecordSize, kActiveRecordRegion, 0);
        if (rc != SDERR_NONE) {
            LogDebug(kFile, __LINE__, "NvmeBlockPlace: active-region record of HBA %u: 0x%x (%s)", d->Instance, rc,
                     SDGetErrorString(rc));
            return rc;
        }
        region = std::memcmp(record, "VACT", 4) == 0 && (record[4] & 1) ? kNvmeRegionActive : kNvmeRegionInactive;
    }
    const uint32_t index = GetPortIndex(d) + 1;
    if (index < 1 || index > 4) return kNoAdapter;
    offset = (index - 1) * kNvmeBlockStride;
    return kOk;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t SetBfsConfigMode(uint32_t mode) {
    if (mode == 1) g_bfsConfigMode = 1;
    else if (mode == 2 || mode == 4)
        g_bfsConfigMode = g_bfsConfigMode == 1 ? uint8_t(mode) : uint8_t(g_bfsConfigMode | mode);
    return g_bfsConfigMode;
}

VTAPI_EXPORT uint32_t GetBfsConfigMode(void) { return g_bfsConfigMode; }

VTAPI_EXPORT uint32_t GetBootDeviceInfo(SDMDevice *adapter, VTAPI_BootDeviceInfo *record, uint32_t which) {
    if (!adapter) return NoAdapter();
    if (!record) return VTAPI_INVALID_ARGUMENT;
    if (isVirtualPortHBA(adapter)) return CheckWritable(adapter);
    const bool efi = EfiHost();
    if (efi)
        LogDebug(kFile, __LINE__, "GetBootDeviceInfo (EFI): Retrieving current EFI Boot settings of HBA %d...",
                 static_cast<int>(adapter->Instance));
    else
        LogDebug(kFile, __LINE__, "GetBootDeviceInfo: Retrieving current BIOS and UEFI Boot settings of HBA %d...",
                 static_cast<int>(adapter->Instance));
    std::vector<uint8_t> image;
    if (uint32_t rc = ReadNvramImage(adapter, which == 2 ? 2 : 1, image)) {
        LogDebug(kFile, __LINE__, "GetBootDeviceInfo: SDGetNVRam: 0x%x (%s)", rc, SDGetErrorString(rc));
        SetConfigErrorText(rc == SDERR_NOT_SUPPORTED ? "Operation is not supported with current HBA %u (%s)!"
                                                     : "Unable to retrieve HBA parameters of HBA %u (%s)!",
                           adapter->Instance, ModelOf(adapter).c_str());
        return rc;
    }
    const uint32_t chip = CoreGetISPType(adapter);
    auto var = [&](uint32_t id) { return Variable(adapter, image, id); };
    *record = VTAPI_BootDeviceInfo{};
    record->EnableBIOS = var(kDisableBiosVar) ? 0 : 1;
    record->EnableSelectableBoot = var(kSelectableBootVar);
    record->SelectiveLogin = var(kSelectiveLoginVar);
    record->EnableAlternateBoot = var(kAlternateBootVar);
    record->EnableBootOrderList = var(kBootOrderListVar);
    record->SelectiveLun = var(kSelectiveLunVar);
    record->ForceWorldLogin = var(kWorldLoginVar);
    record->FabricAssignedBootLun = var(kFabricBootLunVar);
    record->NVMeEnable = var(kNvmeEnableVar);
    record->EfiHost = efi ? 1 : 0;
    record->DriveCount = BootDriveCount(chip);
    if (efi || chip > 7)
        for (uint32_t i = 0; i < 8; ++i) record->BootNodeName[i] = static_cast<uint8_t>(var(kBootNodeNameByte0 + i));
    for (uint32_t drive = 0; drive < record->DriveCount; ++drive) {
        for (uint32_t i = 0; i < 8; ++i)
            record->Drives[drive].WWPN[i] = static_cast<uint8_t>(var(kBootDrives[drive].portNameByte0 + i));
        record->Drives[drive].LUN = static_cast<uint16_t>(var(kBootDrives[drive].lun));
    }
    return kOk;
}

VTAPI_EXPORT uint32_t SetBootDeviceInfo(SDMDevice *adapter, const VTAPI_BootDeviceInfo *record) {
    ClearConfigErrorText();
    if (!adapter) return NoAdapter();
    if (!record) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = CheckWritable(adapter)) return rc;
    std::vector<uint8_t> image;
    if (uint32_t rc = ReadNvramImage(adapter, 1, image)) {
        SetConfigErrorText("Unable to retrieve HBA parameters of HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return rc;
    }
    const uint32_t chip = CoreGetISPType(adapter);
    const bool efi = EfiHost();
    auto set = [&](uint32_t id, uint32_t value) { SDSetVariableValue(adapter->DeviceHandle, image.data(), id, value); };
    auto flag = [](uint32_t v) { return v ? 1u : 0u; };
    set(kDisableBiosVar, record->EnableBIOS ? 0 : 1);
    set(kSelectableBootVar, flag(record->EnableSelectableBoot));
    set(kSelectiveLoginVar, flag(record->SelectiveLogin));
    set(kAlternateBootVar, flag(record->EnableAlternateBoot));
    set(kBootOrderListVar, flag(record->EnableBootOrderList));
    set(kSelectiveLunVar, flag(record->SelectiveLun));
    if (image.size() == 512) set(kWorldLoginVar, flag(record->ForceWorldLogin));
    if (ChipHasParam(Support::Chip24Up, chip)) {
        set(kFabricBootLunVar, flag(record->FabricAssignedBootLun));
        set(kNvmeEnableVar, flag(record->NVMeEnable));
    }
    if (efi) set(kEfiBootVar, 1);
    if (efi || chip > 7)
        for (uint32_t i = 0; i < 8; ++i) set(kBootNodeNameByte0 + i, record->BootNodeName[i]);
    for (uint32_t drive = 0; drive < BootDriveCount(chip); ++drive) {
        for (uint32_t i = 0; i < 8; ++i) set(kBootDrives[drive].portNameByte0 + i, record->Drives[drive].WWPN[i]);
        set(kBootDrives[drive].lun, record->Drives[drive].LUN);
    }
    const uint32_t rc = updateNVRam(adapter, image.data(), chip > 7 ? 512 : 256, 1, 1);
    if (rc != SDERR_NONE) {
        const uint32_t refused = WriteRefusal(adapter, rc);
        if (refused != kNotPermitted)
            SetConfigErrorText("Failed to update HBA parameters of selected HBA %u!", adapter->Instance);
        return refused;
    }
    return kOk;
}

VTAPI_EXPORT uint32_t IsBootFromSANConfigured(SDMDevice *adapter, uint32_t *configured) {
    if (!configured) return VTAPI_INVALID_ARGUMENT;
    *configured = 0;
    VTAPI_BootDeviceInfo info;
    if (uint32_t rc = GetBootDeviceInfo(adapter, &info, 1)) return rc;
    static const uint8_t kNone[8] = {};
    for (uint32_t drive = 0; drive < info.DriveCount; ++drive)
        if (info.EnableBIOS && info.EnableSelectableBoot && std::memcmp(info.Drives[drive].WWPN, kNone, 8) != 0)
            *configured = 1;
    VTAPI_NVMeBootDeviceEntries block;
    if (!*configured && CoreGetISPType(adapter) >= 24 && GetNVMeBootDeviceEntries(adapter, &block) == kOk)
        for (const VTAPI_NVMeBootDrive &drive : block.Drives)
            if (drive.Flags & VTAPI_NVME_DRIVE_VALID) *configured = 1;
    return kOk;
}

VTAPI_EXPORT uint32_t CheckBootTargetID(const SDMDevice *adapter, const uint8_t *targetWWPN) {
    if (!adapter || !targetWWPN) return kNoAdapter;
    const TargetEntry *t = FindTarget(adapter, targetWWPN);
    if (!t || IsNvmeTarget(t)) {
        SetConfigErrorText("Target %s is not a FCP target of HBA %u (%s)!", WwnText(targetWWPN).c_str(),
                           adapter->Instance, ModelOf(adapter).c_str());
        return kBadValue;
    }
    return kOk;
}

VTAPI_EXPORT uint32_t ParseBootDeviceParameters(const SDMDevice *adapter, const char *target, const char *lun,
                                                const char *drive, VTAPI_BootDeviceInfo *record) {
    ClearConfigErrorText();
    if (!adapter) return NoAdapter();
    if (!record || !target || !*target || !lun || !*lun) {
        SetConfigErrorText("%s", kNameValueMessage);
        return kUnknownParam;
    }
    uint8_t wwpn[8];
    const TargetEntry *t = nullptr;
    if (CheckNumber(target)) {
        // The target's number on the port.
        const unsigned long id = std::strtoul(target, nullptr, 10);
        for (const TargetEntry *e = adapter->Targets.First; e && !t; e = e->next)
            if (e->DiscTargetProperty.TargetId == id) t = e;
        if (!t) {
            SetConfigErrorText("Invalid target ID (%s) for HBA %u!", target, adapter->Instance);
            return kBadValue;
        }
        std::memcpy(wwpn, t->WWPN, 8);
    } else if (!ParseWwn(target, wwpn)) {
        SetConfigErrorText("Invalid target WWPN (%s)!", target);
        return kBadValue;
    }
    if (uint32_t rc = CheckBootTargetID(adapter, wwpn)) return rc;
    t = FindTarget(adapter, wwpn);
    if (!CheckNumber(lun) || std::strtoul(lun, nullptr, 10) > 0xFFFF) {
        SetConfigErrorText("Invalid LUN (%s)!", lun);
        return kBadValue;
    }
    const uint32_t count = BootDriveCount(CoreGetISPType(adapter));
    const unsigned long slot = drive && *drive ? std::strtoul(drive, nullptr, 10) : 0;
    if ((drive && *drive && !CheckNumber(drive)) || slot >= count) {
        SetConfigErrorText("Invalid boot drive (%s); HBA %u has drives 0 to %u!", drive, adapter->Instance, count - 1);
        return kBadValue;
    }
    std::memcpy(record->Drives[slot].WWPN, wwpn, 8);
    record->Drives[slot].LUN = static_cast<uint16_t>(std::strtoul(lun, nullptr, 10));
    if (slot == 0 && t) std::memcpy(record->BootNodeName, t->WWNN, 8);
    return kOk;
}

VTAPI_EXPORT uint32_t CheckNVMeBootParametersAndDriveMapping(const VTAPI_NVMeBootDeviceEntries *block) {
    switch (CheckNvmeBlock(reinterpret_cast<const uint8_t *>(block), block ? kNvmeBlockSize : 0)) {
    case NvmeBlock::Ok: return kOk;
    case NvmeBlock::BadSignature:
        LogDebug(kFile, __LINE__, "CheckNVMeBootParametersAndDriveMapping: Invalid signature!");
        return kInvalidNvmeBlock;
    case NvmeBlock::BadChecksum: break;
    }
    LogDebug(kFile, __LINE__, "CheckNVMeBootParametersAndDriveMapping: Invalid checksum!");
    return kInvalidNvmeBlock;
}

VTAPI_EXPORT uint32_t GetNVMeBootDeviceEntries(SDMDevice *adapter, VTAPI_NVMeBootDeviceEntries *block) {
    if (!adapter) return kNoAdapter;
    if (!block) return VTAPI_INVALID_ARGUMENT;
    uint32_t region = 0, offset = 0;
    if (uint32_t rc = NvmeBlockPlace(adapter, region, offset)) return rc;
    VTAPI_NVMeBootDeviceEntries read;
    const uint32_t rc = SDGetOptionRomEx(adapter->DeviceHandle, &read, kNvmeBlockSize, region, offset);
    if (rc != SDERR_NONE) {
        LogDebug(kFile, __LINE__, "GetNVMeBootDeviceEntries: region %u of HBA %u: 0x%x (%s)", region, adapter->Instance,
                 rc, SDGetErrorString(rc));
        return rc;
    }
    if (uint32_t check = CheckNVMeBootParametersAndDriveMapping(&read)) return check;
    *block = read;
    return kOk;
}

VTAPI_EXPORT int32_t SearchNVMeBootDeviceEntryList(const VTAPI_NVMeBootDeviceEntries *block, const uint8_t *targetWWPN,
                                                   uint32_t namespaceId) {
    if (!block || !targetWWPN) return -1;
    for (int32_t i = 0; i < 8; ++i) {
        const VTAPI_NVMeBootDrive &d = block->Drives[i];
        if ((d.Flags & VTAPI_NVME_DRIVE_VALID) && std::memcmp(d.TargetWWPN, targetWWPN, 8) == 0 &&
            d.NamespaceID == namespaceId)
            return i;
    }
    return -1;
}

VTAPI_EXPORT int32_t AddNVMeBootDriveMapping(VTAPI_NVMeBootDeviceEntries *block, const VTAPI_NVMeBootDrive *drive) {
    if (!block || !drive) return -1;
    int32_t slot = SearchNVMeBootDeviceEntryList(block, drive->TargetWWPN, drive->NamespaceID);
    for (int32_t i = 0; slot < 0 && i < 8; ++i)
        if (!(block->Drives[i].Flags & VTAPI_NVME_DRIVE_VALID)) slot = i;
    if (slot < 0) return -1;
    block->Drives[slot] = *drive;
    block->Drives[slot].Flags |= VTAPI_NVME_DRIVE_VALID;
    block->Drives[slot].NQN[sizeof block->Drives[slot].NQN - 1] = '\0';
    return slot;
}

VTAPI_EXPORT void ClearNVMeBootDevices(VTAPI_NVMeBootDeviceEntries *block) {
    if (block)
        for (VTAPI_NVMeBootDrive &d : block->Drives) d = VTAPI_NVMeBootDrive{};
}

VTAPI_EXPORT uint32_t UpdateNVMeBootDeviceEntryList(SDMDevice *adapter, VTAPI_NVMeBootDeviceEntries *block) {
    if (!adapter) return kNoAdapter;
    if (!block) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = CheckWritable(adapter)) return rc;
    uint32_t region = 0, offset = 0;
    if (uint32_t rc = NvmeBlockPlace(adapter, region, offset)) return rc;
    block->Signature = VTAPI_NVME_BOOT_SIGNATURE;
    if (block->Version == 0) block->Version = 1;
    block->Length = kNvmeBlockSize;
    block->HostNQN[sizeof block->HostNQN - 1] = '\0';
    block->Checksum = 0;
    block->Checksum = 0u - NvmeSum(block, kNvmeBlockSize);
    const uint32_t rc = SDUpdateOptionRomEx2(adapter->DeviceHandle, block, kNvmeBlockSize, region, offset, 0);
    LogDebug(kFile, __LINE__, "UpdateNVMeBootDeviceEntryList: region %u offset %u of HBA %u: 0x%x (%s)", region, offset,
             adapter->Instance, rc, SDGetErrorString(rc));
    return rc == SDERR_NONE ? kOk : WriteRefusal(adapter, rc);
}

VTAPI_EXPORT uint32_t SetNVMeBootDeviceEntries(SDMDevice *adapter, const VTAPI_NVMeBootDeviceEntries *block) {
    ClearConfigErrorText();
    if (!adapter) return kNoAdapter;
    if (!block) return VTAPI_INVALID_ARGUMENT;
    if (CoreGetISPType(adapter) < 24) {
        LogDebug(kFile, __LINE__,
                 "SetNVMeBootDeviceEntries: NVMe boot configuration is not supported with current adapter.");
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return kNvmeBootNotSupported;
    }
    VTAPI_NVMeBootDeviceEntries next = *block;
    ClearNVMeBootDevices(&next);
    for (const VTAPI_NVMeBootDrive &drive : block->Drives) {
        if (!(drive.Flags & VTAPI_NVME_DRIVE_VALID)) continue;
        const TargetEntry *t = FindTarget(adapter, drive.TargetWWPN);
        if (t && !IsNvmeTarget(t)) {
            SetConfigErrorText("Configuring NVMe BFS with FCP target is not supported.");
            return kBadValue;
        }
        if (AddNVMeBootDriveMapping(&next, &drive) < 0) return kBadValue;
    }
    return UpdateNVMeBootDeviceEntryList(adapter, &next);
}

}  // extern "C"
