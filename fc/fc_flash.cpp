// FC_ functions of the flash image queries and updates: the versions an
// image file holds for a port's card (after validating it against that
// card), the cards a file is meant for, the version of one component in a
// card's flash, writing an image file into the card's flash, and saving and
// replacing single regions.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "flash/flash_image.h"
#include "flash/flash_memo.h"
#include "flash/flash_update.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

using namespace vtflash;

namespace {

const char kFile[] = __FILE__;

bool SameNames(const ProtocolEntry &e, const ProtocolEntry &port) {
    return memcmp(e.WWNN, port.WWNN, 8) == 0 && memcmp(e.WWPN, port.WWPN, 8) == 0;
}

// The card of the tree that holds the port.
const AdapterEntry *CardOf(const ProtocolEntry *port) {
    for (const AdapterEntryList *tree : {gpAdapterList, gpBackupAdapterList})
        for (const AdapterEntry *a = tree ? tree->First : nullptr; a; a = a->next)
            for (const PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (const ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (e == port || SameNames(*e, *port)) return a;
    return nullptr;
}

bool InTree(const AdapterEntry *adapter) {
    for (const AdapterEntryList *tree : {gpAdapterList, gpBackupAdapterList})
        for (const AdapterEntry *a = tree ? tree->First : nullptr; a; a = a->next)
            if (a == adapter) return true;
    return false;
}

// Versions of a single boot-code file validated for the card.
uint32_t BootFileVersions(const AdapterFacts &facts, const std::vector<uint8_t> &file, VTAPI_FlashImageVersion *v) {
    const std::string hw = HardwareType(facts.deviceId);
    const uint32_t status = Validate(file.data(), uint32_t(file.size()), hw.c_str(), 0);
    if (status == FLASH_ST_WRONG_ADAPTER) return VTAPI_OPTION_NOT_SUPPORTED;
    if (status != 0) return VTAPI_FILE_CORRUPTED;
    BootVersions b;
    if (!CheckBootChain(file, &b, false)) return VTAPI_FILE_CORRUPTED;
    struct Slot {
        int codeType;
        uint8_t *dst;
        uint32_t bit;
    };
    for (const Slot &s : {Slot{VTFU_CODE_TYPE_X86, v->Bios, VTAPI_FLASH_HAS_BIOS},
                          Slot{VTFU_CODE_TYPE_OPENFW, v->FCode, VTAPI_FLASH_HAS_FCODE},
                          Slot{VTFU_CODE_TYPE_EFI, v->Efi, VTAPI_FLASH_HAS_EFI}})
        if (const auto &r = b.byCodeType[s.codeType]) {
            s.dst[0] = r->first;
            s.dst[1] = r->second;
            v->Present |= s.bit;
        }
    return VTAPI_SUCCESS;
}

// Bytes of one region of the card's flash; nothing when the flash has no
// such region.
std::optional<std::vector<uint8_t>> ReadRegion(uint32_t handle, uint32_t region, uint32_t *status) {
    uint8_t *layout = nullptr;
    uint32_t layoutSize = 0;
    *status = VTAPI_SUCCESS;
    if (fcVTFUGetFlashLayoutTable(handle, &layout, &layoutSize) != 0) {
        *status = VTAPI_GENERAL_FAILURE;
        return std::nullopt;
    }
    std::unique_ptr<uint8_t, decltype(&std::free)> owned(layout, &std::free);
    const uint32_t count = std::min<uint32_t>(Le32(layout + 4), (layoutSize - 8) / 8);
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t *d = layout + 8 + size_t(i) * 8;
        if (Le32(d) != region) continue;
        std::vector<uint8_t> bytes(Le32(d + 4));
        if (uint32_t rc = SDGetOptionRomEx(handle, bytes.data(), uint32_t(bytes.size()), region, 0)) {
            LogDebug(kFile, __LINE__, "ReadRegion: SDGetOptionRomEx(0x%x) failed (0x%x)", region, rc);
            *status = rc;
            return std::nullopt;
        }
        return bytes;
    }
    return std::nullopt;
}

// The card of a port that a flash update may write: 0, or the status that
// refuses it.
uint32_t UpdatableCard(const ProtocolEntry *port, const AdapterEntry **card) {
    if (port == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (port->Device.DeviceNodeProperty.VPortId != 0 || port->Device.DeviceNodeProperty.Interface == SD_INTERFACE_VPORT)
        return VTAPI_NOT_SUPPORTED_ON_VPORT;
    *card = CardOf(port);
    if (*card == nullptr) {
        LogDebug(kFile, __LINE__, "flash update: the port's card is not in the adapter list");
        return VTAPI_OPTION_ROM_UPDATE_FAILED;
    }
    return VTAPI_SUCCESS;
}

// A region saved to or replaced from a file, for a port's card.
uint32_t SaveRegion(const ProtocolEntry *port, const char *fileName, uint32_t region) {
    const AdapterEntry *card = nullptr;
    if (fileName == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = UpdatableCard(port, &card)) return rc;
    return SaveFlashRegionToFile(card, region, fileName);
}

uint32_t UpdateRegion(const ProtocolEntry *port, const char *fileName, uint32_t region) {
    const AdapterEntry *card = nullptr;
    if (fileName == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = UpdatableCard(port, &card)) return rc;
    const uint32_t rc = UpdateFlashRegionFromFile(card, region, fileName);
    LogDebug(kFile, __LINE__, "flash update: region 0x%x of %s from %s: %u", region, card->SerialNumber, fileName, rc);
    if (rc == VTAPI_REBOOT_REQUIRED) guConfigChanged = 1;
    return rc;
}

// Regions of the save and update families.
constexpr uint32_t kFirmwareTableRegion = VTFU_REGION_FW_PRELOAD;
constexpr uint32_t kMpiConfigRegion = VTFU_REGION_MPI_CONFIG;
constexpr uint32_t kPepConfigRegion = VTFU_REGION_PEP_BOARD_CONFIG;
constexpr uint32_t kSerdesRegion = VTFU_REGION_PCIE_SERDES;

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t FC_GetFlashImageVersion(const ProtocolEntry *port, const char *fileName,
                                              VTAPI_FlashImageVersion *version) {
    if (port == nullptr || fileName == nullptr || version == nullptr) return VTAPI_INVALID_ARGUMENT;
    const AdapterEntry *card = CardOf(port);
    const std::optional<AdapterFacts> facts = FactsOf(card);
    if (!facts) {
        LogDebug(kFile, __LINE__, "FC_GetFlashImageVersion: the port's card is not in the adapter list");
        return VTAPI_OPTION_ROM_UPDATE_FAILED;
    }
    const std::optional<std::vector<uint8_t>> file = ReadWholeFile(fileName);
    if (!file) {
        LogDebug(kFile, __LINE__, "FC_GetFlashImageVersion: cannot read %s", fileName);
        return VTAPI_FILE_CORRUPTED;
    }
    *version = VTAPI_FlashImageVersion{};
    if (file->size() >= 2 && (*file)[0] == 0x55 && (*file)[1] == 0xAA) return BootFileVersions(*facts, *file, version);

    const ImageCheck check = CheckImageForAdapter(*facts, card, MultiImageOf(*file), version);
    LogDebug(kFile, __LINE__, "FC_GetFlashImageVersion: %s stage %d status 0x%x card type 0x%x", fileName,
             static_cast<int>(check.stage), check.status, check.cardType);
    return ApiStatusOfCheck(check, file->size());
}

VTAPI_EXPORT uint32_t FC_GetFlashImageSupportedAdapters(const char *fileName, VTAPI_FlashImageAdapters *adapters) {
    if (fileName == nullptr || adapters == nullptr) return VTAPI_INVALID_ARGUMENT;
    const std::optional<std::vector<uint8_t>> file = ReadWholeFile(fileName);
    if (!file) return VTAPI_FILE_CORRUPTED;
    const Bytes mbi = MultiImageOf(*file);
    const uint32_t size = uint32_t(mbi.size());
    if (!vtfuILT_ValidateILTHeader(mbi.data(), size) ||
        !vtfuILT_Header_CompareSignature(reinterpret_cast<const ILT_Header_t *>(mbi.data())))
        return VTAPI_INVALID_ILT_HEADER;
    std::vector<VTAPI_FlashImageAdapter> cards;
    for (const ILT_CardTypeList_t *list : CardLists(mbi)) {
        for (uint32_t j = 0; const ILT_CardTypeList_Entry_t *e = CardEntry(mbi, list, j); ++j)
            cards.push_back({Le16(list->CardType), Le16(e->VendorId), Le16(e->DeviceId), Le16(e->SubVendorId),
                             Le16(e->SubDeviceId), 0});
    }
    *adapters = VTAPI_FlashImageAdapters{};
    vtfuILT_Header_GetImageVersion(reinterpret_cast<const ILT_Header_t *>(mbi.data()), adapters->MBIVersion,
                                   sizeof adapters->MBIVersion);
    if (!cards.empty()) {
        auto *out = static_cast<VTAPI_FlashImageAdapter *>(std::malloc(cards.size() * sizeof(VTAPI_FlashImageAdapter)));
        if (out == nullptr) return VTAPI_GENERAL_FAILURE;
        std::memcpy(out, cards.data(), cards.size() * sizeof(VTAPI_FlashImageAdapter));
        adapters->Adapters = out;
        adapters->Count = uint32_t(cards.size());
    }
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_GetFlashComponentVersion(const AdapterEntry *adapter, uint32_t component, char *version,
                                                  uint32_t size) {
    if (adapter == nullptr || version == nullptr || size == 0) return VTAPI_INVALID_ARGUMENT;
    if (!InTree(adapter)) return VTAPI_DEVICE_NUMBER_NOT_FOUND;
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts) return VTAPI_PORT_NOT_FOUND;
    uint32_t status = VTAPI_SUCCESS;
    const std::optional<std::vector<uint8_t>> region = ReadRegion(facts->handle, component, &status);
    if (status != VTAPI_SUCCESS) return status;
    if (!region) {
        LogDebug(kFile, __LINE__, "FC_GetFlashComponentVersion: no region 0x%x in the flash of %s", component,
                 adapter->SerialNumber);
        return VTAPI_FUNCTION_NOT_APPLICABLE;
    }
    const std::optional<std::vector<uint8_t>> ilt = ReadRegion(facts->handle, VTFU_REGION_FLASH_ILT, &status);
    const std::optional<std::string> text = VersionInFlash(component, *region, ilt ? Bytes(*ilt) : Bytes());
    if (!text) return VTAPI_FUNCTION_NOT_APPLICABLE;
    std::snprintf(version, size, "%s", text->c_str());
    return VTAPI_SUCCESS;
}

// options are reserved (0).
VTAPI_EXPORT uint32_t FC_doOptionROMUpdate(const ProtocolEntry *port, const char *fileName, uint32_t options) {
    const AdapterEntry *card = nullptr;
    if (fileName == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = UpdatableCard(port, &card)) return rc;
    const std::optional<std::vector<uint8_t>> file = ReadWholeFile(fileName);
    if (!file) {
        LogDebug(kFile, __LINE__, "FC_doOptionROMUpdate: cannot read %s", fileName);
        return VTAPI_FILE_CORRUPTED;
    }
    const FlashUpdatePlan plan = PlanFlashUpdate(card, *file, fileName);
    if (plan.status != VTAPI_SUCCESS) {
        LogDebug(kFile, __LINE__, "FC_doOptionROMUpdate: %s (validation 0x%x, options 0x%x)", plan.message.c_str(),
                 plan.validation, options);
        return plan.status;
    }
    for (const ComponentPlan &c : plan.components)
        LogDebug(kFile, __LINE__, "FC_doOptionROMUpdate: %s (0x%x): %s -> %s, %u bytes", c.name.c_str(), c.region,
                 c.current.c_str(), c.next.c_str(), c.size);
    const uint32_t rc = WriteFlashUpdate(plan);
    if (rc == VTAPI_REBOOT_REQUIRED) guConfigChanged = 1;
    return rc;
}

VTAPI_EXPORT uint32_t FC_UpdateSpecificFlashRegionFromFile(const ProtocolEntry *port, const char *fileName,
                                                           uint32_t region) {
    return UpdateRegion(port, fileName, region);
}

VTAPI_EXPORT uint32_t FC_UpdateAdapterFirmwareTableFromFile(const ProtocolEntry *port, const char *fileName) {
    return UpdateRegion(port, fileName, kFirmwareTableRegion);
}

VTAPI_EXPORT uint32_t FC_UpdateAdapterMpiCfgFromDatFile(const ProtocolEntry *port, const char *fileName) {
    return UpdateRegion(port, fileName, kMpiConfigRegion);
}

VTAPI_EXPORT uint32_t FC_UpdateAdapterPEPCfgFromFile(const ProtocolEntry *port, const char *fileName) {
    return UpdateRegion(port, fileName, kPepConfigRegion);
}

VTAPI_EXPORT uint32_t FC_SaveAdapterSerdesRegionToFile(const ProtocolEntry *port, const char *fileName) {
    return SaveRegion(port, fileName, kSerdesRegion);
}

VTAPI_EXPORT uint32_t FC_SaveAdapterFirmwareTableToFile(const ProtocolEntry *port, const char *fileName) {
    return SaveRegion(port, fileName, kFirmwareTableRegion);
}

VTAPI_EXPORT uint32_t FC_SaveAdapterMpiCfgToDatFile(const ProtocolEntry *port, const char *fileName) {
    return SaveRegion(port, fileName, kMpiConfigRegion);
}

// The memo text of the port's card, NUL-terminated; an erased block gives
// "".  A null buffer asks for the size; a buffer smaller than *size needs
// is refused with the size in *size.
VTAPI_EXPORT uint32_t FC_GetAdapterFlashMemoBlock(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    const AdapterEntry *card = nullptr;
    if (size == nullptr) return VTAPI_INVALID_ARGUMENT;
    // A read: a port whose card is not in the adapter list is not found.
    if (uint32_t rc = UpdatableCard(port, &card))
        return rc == VTAPI_OPTION_ROM_UPDATE_FAILED ? VTAPI_PORT_NOT_FOUND : rc;
    const std::optional<AdapterFacts> facts = FactsOf(card);
    if (!facts) return VTAPI_PORT_NOT_FOUND;
    uint32_t status = VTAPI_SUCCESS;
    const std::optional<std::vector<uint8_t>> block = ReadRegion(facts->handle, VTFU_REGION_FLASH_MEMO, &status);
    if (status == SDERR_NOT_SUPPORTED) return VTAPI_OPTION_NOT_SUPPORTED;
    if (status != VTAPI_SUCCESS) {
        LogDebug(kFile, __LINE__, "FC_GetAdapterFlashMemoBlock: the memo block of %s cannot be read (0x%x)",
                 card->SerialNumber, status);
        return VTAPI_GENERAL_FAILURE;
    }
    if (!block) return VTAPI_FUNCTION_NOT_APPLICABLE;
    const Memo memo = ParseMemoBlock(block->data(), block->size());
    if (memo.state == MemoState::kDamaged) {
        LogDebug(kFile, __LINE__, "FC_GetAdapterFlashMemoBlock: the memo block of %s is damaged", card->SerialNumber);
        return VTAPI_FILE_CORRUPTED;
    }
    const uint32_t needed = uint32_t(memo.text.size() + 1);
    if (buffer == nullptr) {
        *size = needed;
        return VTAPI_SUCCESS;
    }
    if (*size < needed) {
        *size = needed;
        return VTAPI_INVALID_ARGUMENT;
    }
    std::memcpy(buffer, memo.text.c_str(), needed);
    *size = needed;
    return VTAPI_SUCCESS;
}

// Writes a firmware image file into the SFP module of a physical FC port;
// the module checks the file and keeps its firmware on any failure.
VTAPI_EXPORT uint32_t FC_SfpModuleFirmwareUpdate(const ProtocolEntry *port, const char *fileName) {
    const AdapterEntry *card = nullptr;
    if (fileName == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (uint32_t rc = UpdatableCard(port, &card)) return rc;
    const std::optional<std::vector<uint8_t>> file = ReadWholeFile(fileName);
    if (!file || file->empty() || file->size() > UINT32_MAX) {
        LogDebug(kFile, __LINE__, "FC_SfpModuleFirmwareUpdate: cannot read %s", fileName);
        return VTAPI_FILE_CORRUPTED;
    }
    const uint32_t instance = port->Device.Instance;
    uint32_t handle = 0;
    uint32_t rc = SDOpenDevice(instance, &handle);
    if (rc == SDERR_NONE) {
        rc = SDUpdateSfpFirmware(handle, file->data(), uint32_t(file->size()), 0);
        SDCloseDevice(handle);
    }
    LogDebug(kFile, __LINE__, "FC_SfpModuleFirmwareUpdate: %s into the SFP of HBA instance %u: 0x%x (%s)", fileName,
             instance, rc, SDGetErrorString(rc));
    switch (rc) {
    case SDERR_NONE: return VTAPI_SUCCESS;
    case SDERR_INVALID_PARAMETER: return VTAPI_FILE_CORRUPTED;
    case SDERR_NOT_SUPPORTED: return VTAPI_OPTION_NOT_SUPPORTED;
    case SDERR_LOCKDOWN: return VTAPI_FLASH_LOCKDOWN;
    case SDERR_NO_SUCH_DEVICE:
    case SDERR_DEVICE_REMOVED: return VTAPI_PORT_NOT_FOUND;
    default: return VTAPI_OPTION_ROM_UPDATE_FAILED;
    }
}

}  // extern "C"
