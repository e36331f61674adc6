// Validation of a multi-image file's layout table and components against an
// adapter: the Kite and Wren header check with its online-update region list,
// the chip-revision rule per region, the component checks of the Kite, Wren
// and other FC chips, and the header, chip and component checks of the NIC
// families (Tern, Orla, Tove).  Everything works on the bytes of the file in
// memory; nothing here reads files or talks to the adapter.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>

#include "flash_image.h"
#include "idtable.h"
#include "oss/oss.h"

using namespace vtflash;

namespace {

constexpr uint32_t kMaxIltTableVersion = 5;
constexpr size_t kOnlineUpdateSlots = 20;
// Region types that the Kite and Wren families can update online; the
// remaining slots stay 0.
constexpr std::array<uint32_t, kOnlineUpdateSlots> kOnlineUpdateRegions = {0x9E, 0x07, 0xD3, 0xD1, 0x67, 0x01,
                                                                           0x95, 0x96, 0x14, 0x16, 0xD4, 0xD6};
// Region codes the chip-revision rule accepts on every revision.
constexpr uint32_t kAnyRevisionRegions[] = {0x00, 0x01, 0x07, 0x11, 0x13,  0x14,  0x16,  0x2E,  0x4F,  0x66,  0x72,
                                            0x73, 0x95, 0x96, 0x9E, 0xA2,  0xA4,  0xBA,  0xCF,  0xD1,  0xD2,  0xD3,
                                            0xD4, 0xD6, 0xE1, 0xE5, 0x101, 0x102, 0x103, 0x10C, 0x10E, 0x110, 0x112};
// Region codes the FC validators know but do not check.
constexpr uint32_t kUncheckedFcRegions[] = {0x14, 0x16, 0x67, 0x95, 0x96, 0xD4, 0xD6};
constexpr uint32_t kRevisionTernB0 = 0x54;
constexpr uint32_t kRevisionFirstNicFw = 0x58;
constexpr size_t kSignatureBlock = 392;
constexpr size_t kSignatureTail = 388;
constexpr size_t kPepVersionEnd = 80;      // version at bytes 79, 78, 77, 76
constexpr size_t kPepBoardVersionEnd = 8;  // version at bytes 7, 6, 5, 4
constexpr size_t kMpiVersionEnd = 28;      // big-endian words at 16, 20, 24

template <typename T, size_t N>
bool Contains(const T (&list)[N], uint32_t v) {
    return std::find(std::begin(list), std::end(list), v) != std::end(list);
}

uint32_t Fail(uint32_t code) { return ~code; }

const ILT_Header_t *Header(const uint8_t *table, uint32_t size) {
    return table != nullptr && size >= sizeof(ILT_Header_t) ? reinterpret_cast<const ILT_Header_t *>(table) : nullptr;
}

void Set(uint8_t *dst, uint8_t a, uint8_t b, uint8_t c, uint8_t d = 0) {
    dst[0] = a;
    dst[1] = b;
    dst[2] = c;
    dst[3] = d;
}

void SetFromEntry(VTAPI_FlashImageVersion *v, uint8_t *dst, uint32_t bit, const ILT_Region_t &e) {
    if (v == nullptr || dst == nullptr) return;
    Set(dst, e.Version[0], e.Version[1], e.Version[2]);
    v->Present |= bit;
}

void SetBoot(VTAPI_FlashImageVersion *v, const BootVersions &b, bool expansion) {
    if (v == nullptr) return;
    struct Slot {
        int codeType;
        uint8_t *dst;
        uint32_t bit;
    };
    const Slot slots[] = {
        {VTFU_CODE_TYPE_X86, expansion ? v->BiosExp : v->Bios,
         expansion ? VTAPI_FLASH_HAS_BIOS_EXP : VTAPI_FLASH_HAS_BIOS},
        {VTFU_CODE_TYPE_OPENFW, expansion ? v->FCodeExp : v->FCode,
         expansion ? VTAPI_FLASH_HAS_FCODE_EXP : VTAPI_FLASH_HAS_FCODE},
        {VTFU_CODE_TYPE_EFI, expansion ? v->EfiExp : v->Efi, expansion ? VTAPI_FLASH_HAS_EFI_EXP : VTAPI_FLASH_HAS_EFI},
    };
    for (const Slot &s : slots)
        if (const auto &r = b.byCodeType[s.codeType]) {
            s.dst[0] = r->first;
            s.dst[1] = r->second;
            v->Present |= s.bit;
        }
}

void SetPxe(VTAPI_FlashImageVersion *v, const BootVersions &b) {
    const auto &r =
        b.byCodeType[VTFU_CODE_TYPE_X86] ? b.byCodeType[VTFU_CODE_TYPE_X86] : b.byCodeType[VTFU_CODE_TYPE_PARISC];
    if (v == nullptr || !r) return;
    v->Pxe[0] = r->first;
    v->Pxe[1] = r->second;
    v->Present |= VTAPI_FLASH_HAS_PXE;
}

// Header fields of the version record.
void SetHeaderVersions(VTAPI_FlashImageVersion *v, const ILT_Header_t &h) {
    if (v == nullptr) return;
    const uint32_t tableVersion = vtfuILT_Header_GetTableVersion(&h);
    std::memcpy(v->MBIVersion, h.ImageVersion, 3);
    std::memcpy(v->FFVVersion, h.FFVVersion, 4);
    v->BuildYear = Le16(h.BuildYear);
    v->BuildMonth = h.BuildMonth;
    v->BuildDay = h.BuildDay;
    v->TableVersion = tableVersion;
    v->ActivationLevel = tableVersion > 4 ? h.ActivationLevel : -1;
    vtfuILT_Header_GetImageVersion(&h, v->MBIVersionText, sizeof v->MBIVersionText);
}

bool Present(const std::optional<Bytes> &c) { return c && !c->empty(); }

// RISC firmware whose attribute word is one of `allowed`.
uint32_t CheckFirmware(const char *name, const uint8_t *image, uint32_t size, const ILT_Region_t &e,
                       std::span<const uint32_t> allowed, uint8_t *dst, VTAPI_FlashImageVersion *v, uint32_t bit) {
    VTFU_RiscFirmwareHeader h;
    if (vtfuGetFirmwareHeader(image, size, &e, &h) != VTFU_OK) return Fail(8);
    vtfuPrintFirmwareHeader(&h);
    const uint32_t attribute = Be32(h.Attributes);
    if (attribute == 0 || std::find(allowed.begin(), allowed.end(), attribute) == allowed.end()) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: Unknown firmware supported value!", name);
        return Fail(8);
    }
    if (!vtfuValidateFirmware(&h, &e, attribute)) return Fail(8);
    if (v != nullptr) {
        uint32_t major = 0, minor = 0, sub = 0;
        vtfuGetRiscVersion(&h, &major, &minor, &sub);
        Set(dst, uint8_t(major), uint8_t(minor), uint8_t(sub));
        v->Present |= bit;
    }
    return VTFU_OK;
}

uint32_t CheckBoot(const std::optional<Bytes> &c, uint32_t code, bool expansion, VTAPI_FlashImageVersion *v) {
    BootVersions b;
    if (!c || !CheckBootChain(*c, &b)) return Fail(code);
    SetBoot(v, b, expansion);
    return VTFU_OK;
}

// A component whose version stands at fixed bytes of its header.
uint32_t CheckVersionAt(const std::optional<Bytes> &c, size_t end, uint32_t code, const size_t (&at)[4], size_t fields,
                        uint8_t *dst, VTAPI_FlashImageVersion *v, uint32_t bit) {
    if (!c || c->size() < end) return Fail(code);
    if (v != nullptr && dst != nullptr) {
        Set(dst, (*c)[at[0]], (*c)[at[1]], (*c)[at[2]], fields > 3 ? (*c)[at[3]] : 0);
        v->Present |= bit;
    }
    return VTFU_OK;
}

constexpr size_t kPepAt[4] = {79, 78, 77, 76};
constexpr size_t kPepBoardAt[4] = {7, 6, 5, 4};
constexpr size_t kMpiAt[4] = {19, 23, 27, 27};  // low bytes of the big-endian words

uint32_t CheckPresent(const std::optional<Bytes> &c, const ILT_Region_t &e, uint32_t code, uint8_t *dst,
                      VTAPI_FlashImageVersion *v, uint32_t bit) {
    if (!Present(c)) return Fail(code);
    SetFromEntry(v, dst, bit, e);
    return VTFU_OK;
}

uint32_t CheckSignature(const std::optional<Bytes> &c, uint32_t code, VTAPI_FlashImageVersion *v) {
    uint8_t version[3] = {};
    if (!c || !ValidateKiteSignatureRegion(c->data(), uint32_t(c->size()), version)) return Fail(code);
    if (v != nullptr && c->size() >= kSignatureBlock && Le32(c->data()) == VTFU_KITE_SIGNATURE &&
        Le32(c->data() + kSignatureTail) == VTFU_KITE_SIGNATURE) {
        Set(v->SignatureRegion, version[0], version[1], version[2]);
        v->Present |= VTAPI_FLASH_HAS_SIGNATURE;
    }
    return VTFU_OK;
}

// ------------------------------------------- component checks of FC chips

enum class FcCheck { kFirmware, kBoot, kBootExpansion, kPresent, kPepBoard, kPep, kMpi, kSignature, kNone };
using V = VTAPI_FlashImageVersion;
using VersionField = uint8_t (V::*)[4];

// How a validator checks one region code: the check, the code whose
// complement a failure returns, where the version goes, and for firmware
// the attribute words it accepts (0 ends the list).
struct FcRule {
    uint32_t code;
    FcCheck check;
    uint32_t failure;
    VersionField field;
    uint32_t bit;
    std::array<uint32_t, 4> attributes;
};

// The Kite family (ValidateGenericImages).
const FcRule kKiteRules[] = {
    {0x01, FcCheck::kFirmware, 8, &V::Firmware, VTAPI_FLASH_HAS_FIRMWARE, {32, 16, 64, 128}},
    {0x07, FcCheck::kBoot, 7, nullptr, 0, {}},
    {0x11, FcCheck::kBootExpansion, 7, nullptr, 0, {}},
    {0x13, FcCheck::kPresent, 37, &V::FwPreload, VTAPI_FLASH_HAS_FW_PRELOAD, {}},
    {0x9E, FcCheck::kSignature, 35, nullptr, 0, {}},
    {0xBA, FcCheck::kPresent, 38, &V::FcBoardConfig, VTAPI_FLASH_HAS_FC_BOARD_CFG, {}},
    {0xCF, FcCheck::kPepBoard, 39, &V::PepBoardConfig, VTAPI_FLASH_HAS_PEP_BOARD_CFG, {}},
    {0xD1, FcCheck::kPep, 32, &V::PepFirmware, VTAPI_FLASH_HAS_PEP_FW, {}},
    {0xD2, FcCheck::kPep, 30, &V::PepSoftROM, VTAPI_FLASH_HAS_PEP_SOFTROM, {}},
    {0xD3, FcCheck::kMpi, 36, &V::MpiFirmware, VTAPI_FLASH_HAS_MPI_FW, {}},
    {0x101, FcCheck::kMpi, 40, &V::MpiSoftROM, VTAPI_FLASH_HAS_MPI_SOFTROM, {}},
    {0x102, FcCheck::kPresent, 41, &V::PcieSerdes, VTAPI_FLASH_HAS_PCIE_SERDES, {}},
    {0x103, FcCheck::kPresent, 42, &V::FcSoftROM, VTAPI_FLASH_HAS_FC_SOFTROM, {}},
};

// The Wren family (ValidateWrenImages).
const FcRule kWrenRules[] = {
    {0x01, FcCheck::kFirmware, 8, &V::Firmware, VTAPI_FLASH_HAS_FIRMWARE, {VTFU_FW_ATTR_WREN}},
    {0x07, FcCheck::kBoot, 7, nullptr, 0, {}},
    {0x9E, FcCheck::kSignature, 4, nullptr, 0, {}},
    {0xD1, FcCheck::kPep, 32, &V::PepFirmware, VTAPI_FLASH_HAS_PEP_FW, {}},
    {0xD2, FcCheck::kPep, 32, &V::PepSoftROM, VTAPI_FLASH_HAS_PEP_SOFTROM, {}},
    {0xD3, FcCheck::kMpi, 7, &V::MpiFirmware, VTAPI_FLASH_HAS_MPI_FW, {}},
    {0xE1, FcCheck::kMpi, 7, &V::MpiFirmware, VTAPI_FLASH_HAS_MPI_FW, {}},
    {0x66, FcCheck::kPresent, 33, nullptr, 0, {}},
};

// The other FC chips (ValidateImages), which refuse any code not listed.
const FcRule kOtherFcRules[] = {
    {0x01, FcCheck::kFirmware, 8, &V::Firmware, VTAPI_FLASH_HAS_FIRMWARE, {VTFU_FW_ATTR_GENERIC}},
    {0x07, FcCheck::kBoot, 7, nullptr, 0, {}},
    {0x11, FcCheck::kBootExpansion, 7, nullptr, 0, {}},
    {0x9E, FcCheck::kSignature, 5, nullptr, 0, {}},
    {0x13, FcCheck::kPresent, 5, &V::FwPreload, VTAPI_FLASH_HAS_FW_PRELOAD, {}},
    {0xBA, FcCheck::kPresent, 5, &V::FcBoardConfig, VTAPI_FLASH_HAS_FC_BOARD_CFG, {}},
    {0x102, FcCheck::kPresent, 5, &V::PcieSerdes, VTAPI_FLASH_HAS_PCIE_SERDES, {}},
    {0x14, FcCheck::kNone, 0, nullptr, 0, {}},
    {0x16, FcCheck::kNone, 0, nullptr, 0, {}},
};

uint32_t ValidateFcRegion(const char *name, std::span<const FcRule> rules, bool refuseUnknown, const uint8_t *image,
                          uint32_t size, const ILT_Region_t *entry, VTAPI_FlashImageVersion *v) {
    if (entry == nullptr) return Fail(5);
    const ILT_Region_t &e = *entry;
    const uint32_t code = RegionType(e);
    const auto rule = std::find_if(rules.begin(), rules.end(), [code](const FcRule &r) { return r.code == code; });
    if (rule == rules.end()) {
        if (refuseUnknown || !Contains(kUncheckedFcRegions, code))
            TarnLogMessage(VT_MSG_DEBUG, "%s: Unrecognized Image Type... 0x%x", name, code);
        return refuseUnknown ? Fail(1) : VTFU_OK;
    }
    const std::optional<Bytes> c = image != nullptr ? Component(Bytes(image, size), entry) : std::nullopt;
    uint8_t *dst = v != nullptr && rule->field != nullptr ? v->*(rule->field) : nullptr;
    switch (rule->check) {
    case FcCheck::kFirmware: {
        const auto end = std::find(rule->attributes.begin(), rule->attributes.end(), 0u);
        return CheckFirmware(name, image, size, e, {rule->attributes.begin(), end}, dst, v, rule->bit);
    }
    case FcCheck::kBoot: return CheckBoot(c, rule->failure, false, v);
    case FcCheck::kBootExpansion: return CheckBoot(c, rule->failure, true, v);
    case FcCheck::kPresent: return CheckPresent(c, e, rule->failure, dst, v, rule->bit);
    case FcCheck::kPepBoard:
        return CheckVersionAt(c, kPepBoardVersionEnd, rule->failure, kPepBoardAt, 4, dst, v, rule->bit);
    case FcCheck::kPep: return CheckVersionAt(c, kPepVersionEnd, rule->failure, kPepAt, 4, dst, v, rule->bit);
    case FcCheck::kMpi: return CheckVersionAt(c, kMpiVersionEnd, rule->failure, kMpiAt, 3, dst, v, rule->bit);
    case FcCheck::kSignature: return CheckSignature(c, rule->failure, v);
    case FcCheck::kNone: return VTFU_OK;
    }
    return VTFU_OK;
}

// ------------------------------------------------ Kite and Wren header check

bool IsSorrelId(uint16_t did) {
    const vt::ids::ChipRow *row = vt::ids::FindChipRow(did);
    return row != nullptr && row->family == vt::ids::Family::kCna1;
}

// The Tern NIC and FCoE functions.
bool IsTernPairId(uint16_t did) {
    const vt::ids::ChipRow *row = vt::ids::FindChipRow(did);
    return row != nullptr && row->family == vt::ids::Family::kTern && (row->ispType == 16 || row->ispType == 17);
}

bool DefaultListMatches(Bytes table, uint16_t ssdid, uint16_t ssvid) {
    for (const ILT_CardTypeList_t *list : CardLists(table)) {
        if (Le16(list->CardType) != 0) continue;
        for (uint32_t j = 0; const ILT_CardTypeList_Entry_t *e = CardEntry(table, list, j); ++j)
            if (KiteCardMatches(*e, ssdid, ssvid)) return true;
    }
    return false;
}

uint32_t ValidateFcHeader(const char *name, uint16_t ssdid, uint16_t ssvid, const uint8_t *table, uint32_t size,
                          uint32_t chipRevision) {
    const ILT_Header_t *h = Header(table, size);
    if (h == nullptr) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: Image buffer too small", name);
        return FLASH_ST_ILT_TOO_SMALL;
    }
    if (!vtfuILT_Header_CompareSignature(h)) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: ILT signature not match!", name);
        return FLASH_ST_ILT_SIGNATURE;
    }
    const uint32_t tableVersion = vtfuILT_Header_GetTableVersion(h);
    char version[16];
    vtfuILT_Header_GetImageVersion(h, version, sizeof version);
    TarnLogMessage(VT_MSG_DEBUG, "%s: ILT header size=%u table version=%u table length=%u checksum=0x%x", name,
                   vtfuILT_Header_GetImageHeaderSize(), tableVersion, vtfuILT_Header_GetTableLength(h),
                   vtfuILT_Header_GetTableCheckSum(h));
    TarnLogMessage(VT_MSG_DEBUG, "%s: Image version=%s", name, version);
    // The limit is compared as a maximum although the check is named for a
    // minimum: every table version up to 5 passes, 0 included.
    if (kMaxIltTableVersion < tableVersion) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: ILT table version not match!", name);
        return FLASH_ST_ILT_VERSION;
    }

    std::array<bool, kOnlineUpdateSlots> matched{};
    std::vector<uint32_t> toUpdate;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    // The last type seen carries over from slot to slot and starts at 0, so
    // an empty slot fails unless an entry of a listed type came before it.
    uint32_t lastType = 0;
    for (size_t slot = 0; slot < kOnlineUpdateSlots; ++slot) {
        const uint32_t wanted = kOnlineUpdateRegions[slot];
        for (int64_t i = 0; i <= last; ++i) {
            const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(table, size, uint32_t(i));
            if (e == nullptr) {
                TarnLogMessage(VT_MSG_DEBUG, "%s: Unable to read ILT from MBI image file!", name);
                return FLASH_ST_ILT_UNREADABLE;
            }
            const uint32_t type = RegionType(*e);
            if (type != wanted || matched[slot]) continue;
            const uint32_t status = ValidateImageChipRevision(e, chipRevision);
            if (status == 0) {
                toUpdate.push_back(type);
                matched[slot] = true;
                TarnLogMessage(VT_MSG_DEBUG, "%s: region 0x%x chip revision 0x%x, adapter chip revision 0x%x", name,
                               type, RegionChipRevision(*e), chipRevision);
            } else {
                TarnLogMessage(VT_MSG_DEBUG, "Skipping region 0x%x with status=%d", type, static_cast<int>(status));
            }
            lastType = type;
        }
        if (lastType == wanted && !matched[slot]) {
            TarnLogMessage(VT_MSG_DEBUG, "%s: Failed with status=%d", name, static_cast<int>(FLASH_ST_REGION_MISSING));
            return FLASH_ST_REGION_MISSING;
        }
    }
    for (uint32_t type : toUpdate) TarnLogMessage(VT_MSG_DEBUG, "%s: region to be updated 0x%x", name, type);
    const Bytes t(table, size);
    const std::vector<const ILT_CardTypeList_t *> lists = CardLists(t);
    for (size_t k = 0; k < lists.size(); ++k)
        TarnLogMessage(VT_MSG_DEBUG, "%s: card type list %u (card type 0x%x): %u entries", name, unsigned(k),
                       Le16(lists[k]->CardType), Le16(lists[k]->NoEntriesInList));
    if (!DefaultListMatches(t, ssdid, ssvid)) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: No matching card type (Signature not OK)", name);
        return FLASH_ST_ILT_TOO_SMALL;
    }
    const uint32_t cardType = KiteCardType(t, ssdid, ssvid);
    if (cardType >= 0xFFFF) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: No matching card type!", name);
        return FLASH_ST_ILT_TOO_SMALL;
    }
    TarnLogMessage(VT_MSG_DEBUG, "Current card type=0x%x", cardType);
    return 0;
}

// ------------------------------------------------------- component walk

using ComponentCheck = uint32_t (*)(const uint8_t *, uint32_t, const ILT_Region_t *, VTAPI_FlashImageVersion *);

uint32_t WalkComponents(const char *name, ComponentCheck check, const uint8_t *image, uint32_t size,
                        VTAPI_FlashImageVersion *versions, uint32_t cardType, const AdapterEntry *adapter) {
    const ILT_Header_t *h = Header(image, size);
    if (h == nullptr || adapter == nullptr) return VTFU_NONE;
    const uint32_t chipRevision = adapter->ChipRevision;
    TarnLogMessage(VT_MSG_DEBUG, "%s: ILT table version=%u", name, vtfuILT_Header_GetTableVersion(h));
    SetHeaderVersions(versions, *h);
    int32_t count = 0;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    // Entry indexes are counted in 8 bits.
    for (int64_t i = 0; i <= last && i < 256; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(image, size, uint32_t(i));
        if (e == nullptr) {
            count = -1;
            continue;
        }
        if (!EntryIsForCard(*e, cardType, chipRevision)) continue;
        const uint32_t status = check(image, size, e, versions);
        if (status != 0) {
            TarnLogMessage(VT_MSG_DEBUG, "%s: Validated failed!", name);
            return status;
        }
        ++count;
    }
    TarnLogMessage(VT_MSG_DEBUG, "Validated %d images for cardtype %d", count, static_cast<int>(cardType));
    if (versions != nullptr) {
        versions->CardType = cardType;
        versions->ComponentCount = uint32_t(count);
    }
    return uint32_t(count);
}

// ------------------------------------------------------------- NIC families

enum NicFamily { kTern, kOrla, kTove, kNicFamilies };

enum class NicCheck {
    kFirmware,
    kFcoeFirmware,
    kBoot,
    kNicBoot,
    kMpi,
    kMpiConfig,
    kEdc,
    kCrbinit,
    kBootloader,
    kPegtune,
    kNicFw,
    kNone,
    kOrlaOnly,
    kToveOnly
};

struct NicRegion {
    uint32_t code;
    NicCheck check;
    uint32_t failure;
    const char *names[kNicFamilies];  // Tern, Orla, Tove
};

constexpr NicRegion kNicRegions[] = {
    {0x01, NicCheck::kFirmware, 8, {"UNCPMPRESSED_FW_FCOE", "OPT_ROM_REGION_ORLA_FW_IMAGE_FC", "UNCPMPRESSED_FW_FCOE"}},
    {0x07, NicCheck::kBoot, 7, {"TERN_BOOT_CODE_FCOE", "OPT_ROM_REGION_ORLA_BOOT_CODE_FC", "BOOT_CODE_FCOE"}},
    {0x14, NicCheck::kOrlaOnly, 0, {"", "0x14", ""}},
    {0x16, NicCheck::kOrlaOnly, 0, {"", "0x16", ""}},
    {0x2E,
     NicCheck::kNicBoot,
     4,
     {"NIC_BOOT_CODE_FCOE", "OPT_ROM_REGION_ORLA_BOOT_CODE_NIC", "OPT_ROM_REGION_TOVE_BOOT_CODE_NIC"}},
    {0x40, NicCheck::kMpi, 5, {"MPI_RISC_FW_FCOE", "MPI_RISC_FW_FCOE", "MPI_RISC_FW_FCOE"}},
    {0x41, NicCheck::kMpiConfig, 5, {"MPI_CONFIG_PARAMS", "MPI_CONFIG_PARAMS", "MPI_CONFIG_PARAMS"}},
    {0x45, NicCheck::kEdc, 6, {"EDC_PHY_FW_FCOE", "EDC_PHY_FW_FCOE", "EDC_PHY_FW_FCOE"}},
    {0x4F,
     NicCheck::kBoot,
     7,
     {"OPT_ROM_REGION_TOVE_BOOT_CODE_ISCSI", "OPT_ROM_REGION_ORLA_BOOT_CODE_ISCSI",
      "OPT_ROM_REGION_TOVE_BOOT_CODE_ISCSI"}},
    {0x70,
     NicCheck::kCrbinit,
     11,
     {"REGION_TERN_CRBINIT", "OPT_ROM_REGION_ORLA_CRBINIT", "OPT_ROM_REGION_TOVE_CRBINIT"}},
    {0x71,
     NicCheck::kNone,
     0,
     {"TERN_BOARD_CONFIG", "OPT_ROM_REGION_TOVE_BOARD_CONFIG", "OPT_ROM_REGION_TOVE_BOARD_CONFIG"}},
    {0x72,
     NicCheck::kBootloader,
     9,
     {"OPT_ROM_REGION_TOVE_BOOTLOADER", "OPT_ROM_REGION_ORLA_BOOTLOADER", "OPT_ROM_REGION_TOVE_BOOTLOADER"}},
    {0x73,
     NicCheck::kPegtune,
     10,
     {"OPT_ROM_REGION_TOVE_PEGTUNE", "OPT_ROM_REGION_ORLA_PEGTUNE", "OPT_ROM_REGION_TOVE_PEGTUNE"}},
    {0x74, NicCheck::kNicFw, 12, {"TERN_FW_IMAGE", "TERN_FW_IMAGE", "TERN_FW_IMAGE"}},
    {0x81, NicCheck::kNone, 0, {"0x81", "0x81", "0x81"}},
    {0x97, NicCheck::kNicFw, 12, {"TERN B1 FW image", "OPT_ROM_REGION_ORLA_FW_IMAGE", "OPT_ROM_REGION_TOVE_FW_IMAGE"}},
    {0xA2,
     NicCheck::kBoot,
     7,
     {"OPT_ROM_REGION_ORLA_BOOT_CODE_FCOE", "OPT_ROM_REGION_ORLA_BOOT_CODE_FCOE",
      "OPT_ROM_REGION_ORLA_BOOT_CODE_FCOE"}},
    {0xA3, NicCheck::kToveOnly, 0, {"", "", "0xA3"}},
    {0xA4,
     NicCheck::kFcoeFirmware,
     8,
     {"OPT_ROM_REGION_ORLA_FW_IMAGE_FCOE", "OPT_ROM_REGION_ORLA_FW_IMAGE_FCOE", "OPT_ROM_REGION_ORLA_FW_IMAGE_FCOE"}},
    {0xB1, NicCheck::kToveOnly, 0, {"", "", "0xB1"}},
};

const NicRegion *FindNicRegion(uint32_t code, NicFamily family) {
    for (const NicRegion &r : kNicRegions)
        if (r.code == code) {
            if ((r.check == NicCheck::kOrlaOnly && family != kOrla) ||
                (r.check == NicCheck::kToveOnly && family != kTove))
                return nullptr;
            return &r;
        }
    return nullptr;
}

uint32_t ValidateNicComponent(NicFamily family, const uint8_t *image, uint32_t size, const ILT_Region_t &e,
                              VTAPI_FlashImageVersion *v) {
    const uint32_t code = RegionType(e);
    const NicRegion *r = FindNicRegion(code, family);
    if (r == nullptr) {
        vtfuLogMessage(2, "Unrecognized Image Region Type... 0x%x", code);
        return VTFU_OK;
    }
    vtfuLogMessage(0, "vtfuValidateImageComponents: %s", r->names[family]);
    const std::optional<Bytes> c = Component(Bytes(image, size), &e);
    const uint32_t failure = Fail(r->failure);
    uint8_t version[3] = {};
    auto keep = [&](uint8_t *dst, uint32_t bit) {
        if (v == nullptr) return;
        Set(dst, version[0], version[1], version[2]);
        v->Present |= bit;
    };
    switch (r->check) {
    case NicCheck::kFirmware: {
        const uint32_t attribute = family == kOrla ? VTFU_FW_ATTR_ORLA_FC : VTFU_FW_ATTR_GENERIC;
        return CheckFirmware("vtfuValidateImageComponents", image, size, e, {&attribute, 1}, v ? v->Firmware : nullptr,
                             v, VTAPI_FLASH_HAS_FIRMWARE);
    }
    case NicCheck::kFcoeFirmware: {
        const uint32_t attribute = VTFU_FW_ATTR_ORLA_FCOE;
        return CheckFirmware("vtfuValidateImageComponents", image, size, e, {&attribute, 1},
                             v ? v->FcoeFirmware : nullptr, v, VTAPI_FLASH_HAS_FCOE_FIRMWARE);
    }
    case NicCheck::kBoot: return CheckBoot(c, r->failure, false, v);
    case NicCheck::kNicBoot: {
        BootVersions b;
        if (!c || !CheckBootChain(*c, &b)) return failure;
        SetPxe(v, b);
        return VTFU_OK;
    }
    case NicCheck::kMpi:
    case NicCheck::kEdc: {
        VTFU_EdcFirmwareHeader h;
        const bool edc = r->check == NicCheck::kEdc;
        if ((edc ? vtfuGetEdcFirmwareHeader : vtfuGetMpiFirmwareHeader)(image, size, &e, &h) != VTFU_OK ||
            !(edc ? vtfuValidateEdcFirmware(&h, &e) : vtfuValidateMpiFirmware(&h, &e)))
            return failure;
        std::memcpy(version, h.Version + 1, 3);
        keep(v ? (edc ? v->EdcFirmware : v->MpiFirmware) : nullptr,
             edc ? VTAPI_FLASH_HAS_EDC_FW : VTAPI_FLASH_HAS_MPI_FW);
        return VTFU_OK;
    }
    case NicCheck::kMpiConfig: return vtfuValidateMpiConfigParamImage(image, size, &e) == VTFU_OK ? VTFU_OK : failure;
    case NicCheck::kCrbinit:
        if (!vtfuValidateCRBinitImage(image, size, &e, version)) return failure;
        keep(v ? v->CRBinit : nullptr, VTAPI_FLASH_HAS_CRBINIT);
        return VTFU_OK;
    case NicCheck::kBootloader:
        if (!vtfuValidateBootloaderImage(image, size, &e, version)) return failure;
        keep(v ? v->Bootloader : nullptr, VTAPI_FLASH_HAS_BOOTLOADER);
        return VTFU_OK;
    case NicCheck::kPegtune:
        if (!vtfuValidatePegtuneImage(image, size, &e, version)) return failure;
        keep(v ? v->Pegtune : nullptr, VTAPI_FLASH_HAS_PEGTUNE);
        return VTFU_OK;
    case NicCheck::kNicFw:
        if (!c || !vtfuValidateNicFirmware(c->data(), uint32_t(c->size()), version)) return failure;
        keep(v ? v->NicFirmware : nullptr, VTAPI_FLASH_HAS_NIC_FW);
        return VTFU_OK;
    case NicCheck::kNone:
    case NicCheck::kOrlaOnly:
    case NicCheck::kToveOnly: return VTFU_OK;
    }
    return VTFU_OK;
}

}  // namespace

namespace vtflash {

bool KiteCardMatches(const ILT_CardTypeList_Entry_t &entry, uint16_t ssdid, uint16_t ssvid) {
    const uint16_t did = Le16(entry.DeviceId);
    const uint16_t entrySsdid = Le16(entry.SubDeviceId);
    const uint16_t entrySsvid = Le16(entry.SubVendorId);
    if (Le16(entry.VendorId) == VTFU_MAKER_VENDOR_ID && (IsSorrelId(did) || IsTernPairId(did)))
        return (entrySsdid == ssdid || entrySsdid == 0xFFFF) && (entrySsvid == ssvid || entrySsvid == 0xFFFF);
    return entrySsdid == ssdid && entrySsvid == ssvid;
}

uint32_t KiteCardType(Bytes table, uint16_t ssdid, uint16_t ssvid) {
    for (const ILT_CardTypeList_t *list : CardLists(table)) {
        for (uint32_t j = 0; const ILT_CardTypeList_Entry_t *e = CardEntry(table, list, j); ++j)
            if (KiteCardMatches(*e, ssdid, ssvid)) return Le16(list->CardType);
    }
    return VTFU_NONE;
}

}  // namespace vtflash

extern "C" {

VTAPI_EXPORT uint32_t ValidateKiteILTImageHeader(uint16_t ssdid, uint16_t ssvid, const uint8_t *table, uint32_t size,
                                                 uint32_t chipRevision) {
    return ValidateFcHeader("ValidateKiteILTImageHeader", ssdid, ssvid, table, size, chipRevision);
}

VTAPI_EXPORT uint32_t ValidateWrenILTImageHeader(uint16_t ssdid, uint16_t ssvid, const uint8_t *table, uint32_t size,
                                                 uint32_t chipRevision) {
    return ValidateFcHeader("ValidateWrenILTImageHeader", ssdid, ssvid, table, size, chipRevision);
}

VTAPI_EXPORT uint32_t ValidateImageChipRevision(const ILT_Region_t *entry, uint32_t adapterRevision) {
    if (entry == nullptr) return Fail(2);
    const uint32_t code = RegionType(*entry);
    const uint32_t rev = RegionChipRevision(*entry);
    uint32_t result = Fail(2);
    if (Contains(kAnyRevisionRegions, code)) {
        result = 0;
    } else if (code == VTFU_REGION_CRBINIT) {
        result = rev == 0 ? 0 : adapterRevision == 0 ? Fail(11) : rev == adapterRevision ? 0 : Fail(2);
    } else if (code == VTFU_REGION_TERN_FW) {
        if (rev == 0) result = adapterRevision == kRevisionTernB0 ? 0 : Fail(12);
        else if (adapterRevision != kRevisionTernB0) result = Fail(2);
        else result = rev == kRevisionTernB0 ? 0 : Fail(12);
    } else if (code == VTFU_REGION_NIC_FW) {
        result = rev == 0 ? 0 : adapterRevision < kRevisionFirstNicFw ? Fail(12) : rev == adapterRevision ? 0 : Fail(2);
    } else if (code == 0xA3) {
        result = rev == 0 ? 0 : Fail(15);
    } else if (code == 0xB1) {
        result = rev == 0 ? 0 : Fail(14);
    }
    if (code == VTFU_REGION_PEP_FW) {
        const uint32_t which = RegionCardType(*entry);
        TarnLogMessage(VT_MSG_DEBUG, "%s",
                       which == 1   ? "ValidateImageChipRevision: Wren PEP OP Firmware"
                       : which == 2 ? "ValidateImageChipRevision: Skiff PEP OP Firmware"
                                    : "ValidateImageChipRevision: Unknown OP Firmware");
    }
    TarnLogMessage(VT_MSG_DEBUG, "ValidateImageChipRevision: Region No=0x%x Ret=%d", code, static_cast<int>(result));
    return result;
}

VTAPI_EXPORT uint32_t ValidateKiteSignatureRegion(const uint8_t *region, uint32_t length, uint8_t *version) {
    if (region == nullptr || length < kSignatureBlock || Le32(region) != VTFU_KITE_SIGNATURE ||
        Le32(region + kSignatureTail) != VTFU_KITE_SIGNATURE) {
        TarnLogMessage(VT_MSG_DEBUG, "ValidateKiteSignatureRegion: return OK");
        return 1;
    }
    if (version != nullptr) {
        version[0] = region[7];
        version[1] = region[6];
        version[2] = region[5];
    }
    const uint32_t covered = Le32(region + 12);
    if (covered > length || vtfuHLPR_Sum32(region, covered / 4) != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "ValidateKiteSignatureRegion: Invalid data!");
        return 0;
    }
    TarnLogMessage(VT_MSG_DEBUG, "ValidateKiteSignatureRegion: return OK");
    return 1;
}

VTAPI_EXPORT uint32_t ValidateGenericImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                            VTAPI_FlashImageVersion *v) {
    return ValidateFcRegion("ValidateGenericImages", kKiteRules, false, image, size, entry, v);
}

VTAPI_EXPORT uint32_t ValidateWrenImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                         VTAPI_FlashImageVersion *v) {
    return ValidateFcRegion("ValidateWrenImages", kWrenRules, false, image, size, entry, v);
}

VTAPI_EXPORT uint32_t ValidateImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                     VTAPI_FlashImageVersion *v) {
    return ValidateFcRegion("ValidateImages", kOtherFcRules, true, image, size, entry, v);
}

VTAPI_EXPORT uint32_t ValidateKiteImageComponents(const uint8_t *image, uint32_t size,
                                                  VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                  const AdapterEntry *adapter) {
    return WalkComponents("ValidateKiteImageComponents", ValidateGenericImages, image, size, versions, cardType,
                          adapter);
}

VTAPI_EXPORT uint32_t ValidateWrenImageComponents(const uint8_t *image, uint32_t size,
                                                  VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                  const AdapterEntry *adapter) {
    return WalkComponents("ValidateWrenImageComponents", ValidateWrenImages, image, size, versions, cardType, adapter);
}

VTAPI_EXPORT uint32_t ValidateGenericImageComponents(const uint8_t *image, uint32_t size,
                                                     VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                     const AdapterEntry *adapter) {
    return WalkComponents("ValidateGenericImageComponents", ValidateImages, image, size, versions, cardType, adapter);
}

VTAPI_EXPORT uint32_t HowManyImagesForCardTypeGeneric(const uint8_t *table, uint32_t size, uint32_t cardType,
                                                      uint32_t chipRevision) {
    const ILT_Header_t *h = Header(table, size);
    if (h == nullptr) return 0;
    uint32_t count = 0;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    for (int64_t i = 0; i <= last; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(table, size, uint32_t(i));
        if (e == nullptr) break;
        if (EntryIsForCard(*e, cardType, chipRevision)) ++count;
    }
    TarnLogMessage(VT_MSG_DEBUG, "HowManyImagesForCardTypeGeneric: %u images for card type 0x%x", count, cardType);
    return count;
}

VTAPI_EXPORT uint32_t vtfuValidateILTImageHeader(uint16_t did, uint16_t ssdid, uint16_t ssvid, const uint8_t *table,
                                                 uint32_t size) {
    const ILT_Header_t *h = Header(table, size);
    if (h == nullptr) {
        vtfuLogMessage(1, "vtfuValidateILTImageHeader: Image buffer too small");
        return VTFU_BUFFER_TOO_SMALL;
    }
    if (!vtfuILT_Header_CompareSignature(h)) {
        vtfuLogMessage(1, "vtfuValidateILTImageHeader: ILT signature not match!");
        return VTFU_ILT_SIGNATURE_MISMATCH;
    }
    const uint16_t tableVersion = vtfuILT_Header_GetTableVersion(h);
    if (tableVersion != 1 && tableVersion != 2) {
        vtfuLogMessage(1, "vtfuValidateILTImageHeader: Unsupported ILT tableVersion=0x%hx", tableVersion);
        return VTFU_ILT_UNSUPPORTED_VERSION;
    }
    const uint32_t length = vtfuILT_Header_GetTableLength(h);
    vtfuLogMessage(0, "vtfuValidateILTImageHeader: ILT table length=%u checksum=0x%x", length,
                   vtfuILT_Header_GetTableCheckSum(h));
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    for (int64_t i = 0; i <= last; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(table, size, uint32_t(i));
        if (e == nullptr) break;
        vtfuLogMessage(0, "vtfuValidateILTImageHeader: region %d type 0x%x", static_cast<int>(i), RegionType(*e));
    }
    const uint16_t sum = vtfuHLPR_Sum16(table, std::min(length, size) / 2);
    if (sum != 0) vtfuLogMessage(1, "vtfuValidateILTImageHeader: ILT Buffer Checksum is %u, instead of zero", sum);
    char version[16];
    vtfuILT_Header_GetImageVersion(h, version, sizeof version);
    uint32_t status = VTFU_OK;
    if (!vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(table, size, did, ssdid, ssvid)) {
        vtfuLogMessage(1, "vtfuValidateILTImageHeader: No matching card type (Signature not OK)");
        status = VTFU_BUFFER_TOO_SMALL;
    } else {
        const uint32_t cardType =
            vt::ids::IsTern(did) ? vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(table, size, did, ssdid, ssvid)
                                 : vtfuILT_CardTypeList_GetMyCardTypeFromCardList(table, size, did, ssdid, ssvid);
        if (cardType == VTFU_NONE) {
            vtfuLogMessage(1, "vtfuValidateILTImageHeader: No matching card type!");
            status = VTFU_BUFFER_TOO_SMALL;
        }
    }
    vtfuLogMessage(0, "Image version=%s", version);
    return status;
}

VTAPI_EXPORT uint32_t vtfuValidateILTChipVersion(uint32_t chipRevision, const uint8_t *table, uint32_t size) {
    const ILT_Header_t *h = Header(table, size);
    if (h == nullptr) {
        vtfuLogMessage(1, "vtfuValidateILTChipVersion: Image buffer too small");
        return VTFU_BUFFER_TOO_SMALL;
    }
    if (!vtfuILT_Header_CompareSignature(h)) {
        vtfuLogMessage(1, "vtfuValidateILTChipVersion: ILT signature not match!");
        return VTFU_ILT_SIGNATURE_MISMATCH;
    }
    // The firmware region a revision needs: 0x74 on revision 0x54, 0x97 on
    // any other non-zero revision, none on revision 0.
    const uint32_t firmware = chipRevision == 0                 ? 0
                              : chipRevision == kRevisionTernB0 ? VTFU_REGION_TERN_FW
                                                                : VTFU_REGION_NIC_FW;
    bool anyRevision = false, revisionFound = false, firmwareFound = false;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    for (int64_t i = 0; i <= last; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(table, size, uint32_t(i));
        if (e == nullptr) break;
        if (const uint32_t rev = RegionChipRevision(*e); rev != 0) {
            anyRevision = true;
            revisionFound = revisionFound || rev == chipRevision;
        }
        firmwareFound = firmwareFound || (firmware != 0 && RegionType(*e) == firmware);
    }
    if (firmwareFound && (!anyRevision || revisionFound)) return VTFU_OK;
    vtfuLogMessage(1, "vtfuValidateILTChipVersion: chipRevision 0x%02x not found in image", chipRevision);
    return VTFU_CHIP_REVISION_NOT_FOUND;
}

VTAPI_EXPORT uint32_t vtfuValidateImageComponents(const uint8_t *image, uint32_t size, uint16_t did, uint32_t cardType,
                                                  uint32_t chipRevision, VTAPI_FlashImageVersion *versions) {
    const ILT_Header_t *h = Header(image, size);
    if (h == nullptr) return Fail(5);
    const NicFamily family = vt::ids::IsTern(did) ? kTern : vt::ids::IsTove(did) ? kTove : kOrla;
    SetHeaderVersions(versions, *h);
    uint32_t count = 0;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    for (int64_t i = 0; i <= last && i < 256; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(image, size, uint32_t(i));
        if (e == nullptr) return Fail(5);
        if (!EntryIsForCard(*e, cardType, chipRevision)) continue;
        if (const uint32_t st = ValidateNicComponent(family, image, size, *e, versions); st != 0) {
            vtfuLogMessage(1, "vtfuValidateImageComponents: region 0x%x failed (%d)", RegionType(*e),
                           static_cast<int>(st));
            return st;
        }
        ++count;
    }
    if (versions != nullptr) {
        versions->CardType = cardType;
        versions->ComponentCount = count;
    }
    return count;
}

}  // extern "C"
