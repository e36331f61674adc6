// The image layout table (ILT) of a multi-image container: header fields,
// region entries, the time-stamp entry, the card-type lists and the card
// match, the structural check, and the flash layout table locator.  Every
// position is checked against the size the caller gives before it is read.
#include <cstring>
#include <ctime>
#include <iterator>
#include <strings.h>

#include "flash_image.h"
#include "idtable.h"

namespace vtflash {
namespace {

constexpr uint32_t kSwapMarker = 0x8000;
constexpr uint32_t kCardMaskBits = 0x7FFF;

const ILT_Header_t *HeaderOf(Bytes table) {
    return table.size() >= sizeof(ILT_Header_t) ? reinterpret_cast<const ILT_Header_t *>(table.data()) : nullptr;
}

// Start of the card-type section: slot N+1.
uint64_t CardSectionStart(const ILT_Header_t &h) {
    return (uint64_t(vtfuILT_Header_GetNumOfRegionEntries(&h)) + 1) * VTFU_ILT_SLOT;
}

// The chip families of the card match, tested in this order.
enum class CardFamily { kSorrel, kTern, kOrla, kTove };
constexpr CardFamily kCardFamilies[] = {CardFamily::kSorrel, CardFamily::kTern, CardFamily::kOrla, CardFamily::kTove};
constexpr const char *kCardFamilyNames[] = {"Sorrel", "Tern", "Orla", "Tove"};

bool InFamily(CardFamily family, uint16_t did) {
    switch (family) {
    case CardFamily::kSorrel: {
        // The first converged generation.
        const vt::ids::ChipRow *row = vt::ids::FindChipRow(did);
        return row != nullptr && row->family == vt::ids::Family::kCna1;
    }
    case CardFamily::kTern: return vt::ids::IsTern(did);
    case CardFamily::kOrla: return vt::ids::IsOrla(did);
    case CardFamily::kTove: return vt::ids::IsTove(did);
    }
    return false;
}

bool SubsystemMatches(uint16_t image, uint16_t adapter) {
    return image == 0xFFFF || adapter == 0xFFFF || image == adapter;
}

// Card type of the first list holding a matching entry.  Lists and entries
// are counted in 8 bits, so only the first 256 of each are looked at.
uint32_t FirstMatchingCardType(Bytes table, uint16_t did, uint16_t ssdid, uint16_t ssvid, bool skipDefault) {
    const uint32_t count = vtfuILT_CardType_Header_GetNumOfCardTypeList(table.data(), uint32_t(table.size()));
    const std::vector<const ILT_CardTypeList_t *> lists = CardLists(table);
    for (size_t k = 0; k < lists.size() && k < 256; ++k) {
        const ILT_CardTypeList_t *list = lists[k];
        if (skipDefault && Le16(list->CardType) == 0 && count != 1) continue;
        const uint32_t entries = Le16(list->NoEntriesInList);
        for (uint32_t j = 0; j < entries && j < 256; ++j) {
            const ILT_CardTypeList_Entry_t *e = CardEntry(table, list, j);
            if (e == nullptr) break;
            if (vtfuILT_CardTypeList_CompareSignature(e, did, ssdid, ssvid)) return Le16(list->CardType);
        }
    }
    return VTFU_NONE;
}

uint32_t ValidateLocator(const char *name, const uint8_t *locator, uint32_t size, bool tern) {
    if (locator == nullptr || size < sizeof(FLTDS_t)) {
        vtfuLogMessage(1, "%s: Signature Match Failed!", name);
        return 0;
    }
    const auto *fltds = reinterpret_cast<const FLTDS_t *>(locator);
    const bool signature =
        tern ? strncasecmp(fltds->Signature, "VFLT", 4) == 0 : std::memcmp(fltds->Signature, "VFLT", 4) == 0;
    if (!signature) {
        vtfuLogMessage(1, "%s: Signature Match Failed!", name);
        return 0;
    }
    if (vtfuHLPR_Sum16(locator, sizeof(FLTDS_t) / 2) != 0) {
        vtfuLogMessage(1, "%s: Checksum Failed!", name);
        return 0;
    }
    if (tern && (Le16(fltds->FltOffset) | uint32_t(Le16(fltds->FltOffset + 2)) << 16) == VTFU_TERN_BAD_FLT_OFFSET) {
        vtfuLogMessage(1, "%s: Invalid FLT offset!", name);
        return 0;
    }
    vtfuLogMessage(0, "%s: FLTDS OK!", name);
    return 1;
}

}  // namespace

std::optional<Bytes> Component(Bytes image, const ILT_Region_t *entry) {
    if (entry == nullptr) return std::nullopt;
    const uint64_t offset = RegionOffset(*entry);
    const uint64_t length = RegionLength(*entry);
    if (offset + length > image.size()) return std::nullopt;
    return image.subspan(size_t(offset), size_t(length));
}

std::vector<const ILT_CardTypeList_t *> CardLists(Bytes table) {
    std::vector<const ILT_CardTypeList_t *> lists;
    const ILT_CardTypeHeader_t *c = vtfuILT_CardType_Header_GetCardListHeader(table.data(), uint32_t(table.size()));
    if (c == nullptr) return lists;
    const uint32_t count = Le16(c->NumOfCardTypeLists);
    uint64_t at = uint64_t(reinterpret_cast<const uint8_t *>(c) - table.data()) + sizeof(ILT_CardTypeHeader_t);
    for (uint32_t k = 0; k < count && at + sizeof(ILT_CardTypeList_t) <= table.size(); ++k) {
        const auto *list = reinterpret_cast<const ILT_CardTypeList_t *>(table.data() + at);
        lists.push_back(list);
        at += sizeof(ILT_CardTypeList_t) + uint64_t(Le16(list->NoEntriesInList)) * sizeof(ILT_CardTypeList_Entry_t);
    }
    return lists;
}

const ILT_CardTypeList_Entry_t *CardEntry(Bytes table, const ILT_CardTypeList_t *list, uint32_t index) {
    if (list == nullptr || index >= Le16(list->NoEntriesInList)) return nullptr;
    const uint64_t at = uint64_t(reinterpret_cast<const uint8_t *>(list) - table.data()) + sizeof(ILT_CardTypeList_t) +
                        uint64_t(index) * sizeof(ILT_CardTypeList_Entry_t);
    if (at + sizeof(ILT_CardTypeList_Entry_t) > table.size()) return nullptr;
    return reinterpret_cast<const ILT_CardTypeList_Entry_t *>(table.data() + at);
}

bool EntryIsForCard(const ILT_Region_t &entry, uint32_t cardType, uint32_t chipRevision) {
    const uint32_t rev = RegionChipRevision(entry);
    return (rev == 0 || rev == chipRevision) && vtfuCardTypeCompare(RegionCardType(entry), cardType);
}

}  // namespace vtflash

using namespace vtflash;

extern "C" {

VTAPI_EXPORT uint32_t vtfuILT_Header_CompareSignature(const ILT_Header_t *header) {
    if (header == nullptr) return 0;
    return std::memcmp(header->Signature, "VFIM", 4) == 0 || std::memcmp(header->Signature, "VILT", 4) == 0 ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtfuILT_Header_GetImageHeaderSize(void) { return sizeof(ILT_Header_t); }

VTAPI_EXPORT uint16_t vtfuILT_Header_GetTableVersion(const ILT_Header_t *header) {
    return header != nullptr ? Le16(header->TableVersion) : 0;
}

VTAPI_EXPORT uint16_t vtfuILT_Header_GetTableLength(const ILT_Header_t *header) {
    return header != nullptr ? Le16(header->TableLength) : 0;
}

uint16_t vtfuILT_Header_GetTableCheckSum(const ILT_Header_t *header) {
    return header != nullptr ? Le16(header->TableCheckSum) : 0;
}

VTAPI_EXPORT uint16_t vtfuILT_Header_GetNumOfRegionEntries(const ILT_Header_t *header) {
    return header != nullptr ? Le16(header->NumOfRegionEntries) : 0;
}

VTAPI_EXPORT void vtfuILT_Header_GetImageVersion(const ILT_Header_t *header, char *text, uint32_t size) {
    if (header == nullptr || text == nullptr || size == 0) return;
    std::snprintf(text, size, "%02d.%02d.%02d", header->ImageVersion[0], header->ImageVersion[1],
                  header->ImageVersion[2]);
}

VTAPI_EXPORT void vtfuILT_Header_GetImageVersionNoSeparator(const ILT_Header_t *header, char *text, uint32_t size) {
    if (header == nullptr || text == nullptr || size == 0) return;
    std::snprintf(text, size, "%02d%02d%02d", header->ImageVersion[0], header->ImageVersion[1],
                  header->ImageVersion[2]);
}

VTAPI_EXPORT const ILT_Region_t *vtfuILT_Region_GetRegionByIndex(const uint8_t *table, uint32_t size, uint32_t index) {
    const ILT_Header_t *h = table != nullptr ? HeaderOf(Bytes(table, size)) : nullptr;
    if (h == nullptr) return nullptr;
    const int64_t n = vtfuILT_Header_GetNumOfRegionEntries(h);
    if (int64_t(index) > n - 2) {
        vtfuLogMessage(1, "vtfuILT_Region_GetRegionByIndex: invalid index %d", static_cast<int>(index));
        return nullptr;
    }
    const uint64_t at = (uint64_t(index) + 1) * VTFU_ILT_SLOT;
    if (at + sizeof(ILT_Region_t) > size) {
        vtfuLogMessage(1, "vtfuILT_Region_GetRegionByIndex: entry %d lies beyond the buffer", static_cast<int>(index));
        return nullptr;
    }
    return reinterpret_cast<const ILT_Region_t *>(table + at);
}

VTAPI_EXPORT const ILT_Timestamp_t *vtfuILT_Region_GetTimeStampEntry(const uint8_t *table, uint32_t size) {
    const ILT_Header_t *h = table != nullptr ? HeaderOf(Bytes(table, size)) : nullptr;
    if (h == nullptr || vtfuILT_Header_GetNumOfRegionEntries(h) == 0) return nullptr;
    const uint64_t at = uint64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) * VTFU_ILT_SLOT;
    if (at + sizeof(ILT_Timestamp_t) > size) return nullptr;
    return reinterpret_cast<const ILT_Timestamp_t *>(table + at);
}

VTAPI_EXPORT const ILT_CardTypeHeader_t *vtfuILT_CardType_Header_GetCardListHeader(const uint8_t *table,
                                                                                   uint32_t size) {
    const ILT_Header_t *h = table != nullptr ? HeaderOf(Bytes(table, size)) : nullptr;
    if (h == nullptr) return nullptr;
    const uint64_t at = CardSectionStart(*h);
    if (at + sizeof(ILT_CardTypeHeader_t) > size) return nullptr;
    return reinterpret_cast<const ILT_CardTypeHeader_t *>(table + at);
}

VTAPI_EXPORT uint32_t vtfuILT_CardType_Header_GetNumOfCardTypeList(const uint8_t *table, uint32_t size) {
    const ILT_CardTypeHeader_t *c = vtfuILT_CardType_Header_GetCardListHeader(table, size);
    return c != nullptr ? Le16(c->NumOfCardTypeLists) : 0;
}

VTAPI_EXPORT const ILT_CardTypeList_t *vtfuILT_CardTypeList_GetCardTypeListByIndex(const uint8_t *table, uint32_t size,
                                                                                   uint32_t index) {
    const ILT_CardTypeHeader_t *c = vtfuILT_CardType_Header_GetCardListHeader(table, size);
    if (c == nullptr) return nullptr;
    if (index != 0 && index >= Le16(c->NumOfCardTypeLists)) return nullptr;
    uint64_t at = uint64_t(reinterpret_cast<const uint8_t *>(c) - table) + sizeof(ILT_CardTypeHeader_t);
    for (uint32_t k = 0;; ++k) {
        if (at + sizeof(ILT_CardTypeList_t) > size) return nullptr;
        const auto *list = reinterpret_cast<const ILT_CardTypeList_t *>(table + at);
        if (k == index) return list;
        at += sizeof(ILT_CardTypeList_t) + uint64_t(Le16(list->NoEntriesInList)) * sizeof(ILT_CardTypeList_Entry_t);
    }
}

VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_CompareSignature(const ILT_CardTypeList_Entry_t *entry, uint16_t did,
                                                            uint16_t ssdid, uint16_t ssvid) {
    if (entry == nullptr || Le16(entry->VendorId) != VTFU_MAKER_VENDOR_ID) return 0;
    const uint16_t entryDid = Le16(entry->DeviceId);
    if (!SubsystemMatches(Le16(entry->SubDeviceId), ssdid) || !SubsystemMatches(Le16(entry->SubVendorId), ssvid))
        return 0;
    for (size_t f = 0; f < std::size(kCardFamilies); ++f)
        if (InFamily(kCardFamilies[f], did) && InFamily(kCardFamilies[f], entryDid)) {
            vtfuLogMessage(0, "ILT_CardTypeList_CompareSignature: Matched %s card type", kCardFamilyNames[f]);
            return 1;
        }
    return 0;
}

VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(const uint8_t *table, uint32_t size,
                                                                            uint16_t did, uint16_t ssdid,
                                                                            uint16_t ssvid) {
    const Bytes t(table, table != nullptr ? size : 0);
    const std::vector<const ILT_CardTypeList_t *> lists = CardLists(t);
    for (size_t k = 0; k < lists.size() && k < 256; ++k) {
        const ILT_CardTypeList_t *list = lists[k];
        if (Le16(list->CardType) != 0) continue;
        for (uint32_t j = 0; j < Le16(list->NoEntriesInList) && j < 256; ++j) {
            const ILT_CardTypeList_Entry_t *e = CardEntry(t, list, j);
            if (e == nullptr) break;
            if (vtfuILT_CardTypeList_CompareSignature(e, did, ssdid, ssvid)) return 1;
        }
    }
    return 0;
}

VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_GetMyCardTypeFromCardList(const uint8_t *table, uint32_t size, uint16_t did,
                                                                     uint16_t ssdid, uint16_t ssvid) {
    if (table == nullptr) return VTFU_NONE;
    return FirstMatchingCardType(Bytes(table, size), did, ssdid, ssvid, true);
}

VTAPI_EXPORT uint32_t vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(const uint8_t *table, uint32_t size,
                                                                         uint16_t did, uint16_t ssdid, uint16_t ssvid) {
    if (table == nullptr) return VTFU_NONE;
    return FirstMatchingCardType(Bytes(table, size), did, ssdid, ssvid, false);
}

VTAPI_EXPORT uint32_t vtfuILT_ValidateILTHeader(const uint8_t *table, uint32_t size) {
    if (table == nullptr || size < sizeof(ILT_Header_t)) {
        vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - no ILT_Header_t");
        return 0;
    }
    const auto *h = reinterpret_cast<const ILT_Header_t *>(table);
    const uint64_t n = vtfuILT_Header_GetNumOfRegionEntries(h);
    if (n > VTFU_ILT_MAX_REGIONS) {
        vtfuLogMessage(1, "vtfuILT_ValidateILTHeader invalid ILT Region count");
        return 0;
    }
    if (size < VTFU_ILT_SLOT * n) {
        vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - missing ILT_Region_t");
        return 0;
    }
    if (size < VTFU_ILT_SLOT * n + sizeof(ILT_Timestamp_t)) {
        vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - no ILT_Timestamp_t");
        return 0;
    }
    uint64_t at = VTFU_ILT_SLOT * n + sizeof(ILT_Timestamp_t);
    if (size < at + sizeof(ILT_CardTypeHeader_t)) {
        vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - no ILT_CardTypeHeader_t");
        return 0;
    }
    const uint32_t lists = Le16(table + at);
    at += sizeof(ILT_CardTypeHeader_t);
    for (uint32_t k = 0; k < lists; ++k) {
        if (size < at + sizeof(ILT_CardTypeList_t)) {
            vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - no ILT_CardTypeList_t header");
            return 0;
        }
        const uint32_t entries = Le16(table + at + 2);
        if (entries > VTFU_ILT_MAX_CARDS) {
            vtfuLogMessage(1, "vtfuILT_ValidateILTHeader invalid ILT Region count");
            return 0;
        }
        at += sizeof(ILT_CardTypeList_t) + uint64_t(entries) * sizeof(ILT_CardTypeList_Entry_t);
        if (size < at) {
            vtfuLogMessage(1, "vtfuILT_ValidateILTHeader buffer is too small - missing ILT_CardTypeList_Entry_t");
            return 0;
        }
    }
    return 1;
}

VTAPI_EXPORT uint32_t vtfuCardTypeCompare(uint32_t a, uint32_t b) {
    a &= ~kSwapMarker;
    b &= ~kSwapMarker;
    if (a == 0 || (a & b & kCardMaskBits) != 0) return 1;
    vtfuLogMessage(0, "CardTypeCompare: %d vs %d failed", static_cast<int>(a), static_cast<int>(b));
    return 0;
}

VTAPI_EXPORT uint32_t vtfuHowManyImagesForCardType(const uint8_t *table, uint32_t size, int32_t cardType,
                                                   uint32_t chipRevision) {
    const ILT_Header_t *h = table != nullptr ? HeaderOf(Bytes(table, size)) : nullptr;
    if (h == nullptr) return VTFU_NONE;
    const uint32_t card = cardType < 0 ? 0 : uint32_t(cardType);
    const int64_t n = vtfuILT_Header_GetNumOfRegionEntries(h);
    uint8_t count = 0;
    for (int64_t i = 0; i <= n - 2; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(table, size, uint32_t(i));
        if (e == nullptr) return VTFU_NONE;
        if (EntryIsForCard(*e, card, chipRevision)) ++count;
    }
    return count;
}

VTAPI_EXPORT uint32_t vtfuGetSpecificImageComponentInBuffer(uint8_t *dst, uint32_t dstSize, const uint8_t *image,
                                                            uint32_t imageSize, const ILT_Region_t *entry) {
    if (dst == nullptr || image == nullptr) return VTFU_NONE;
    const std::optional<Bytes> c = Component(Bytes(image, imageSize), entry);
    if (!c || c->size() > dstSize) return VTFU_NONE;
    if (!c->empty()) std::memcpy(dst, c->data(), c->size());
    return VTFU_OK;
}

VTAPI_EXPORT uint32_t vtfuUdpateTimeStamp(uint8_t *dst, uint32_t dstSize, const uint8_t *table, uint32_t size) {
    const ILT_Header_t *h = table != nullptr ? HeaderOf(Bytes(table, size)) : nullptr;
    if (h == nullptr || dst == nullptr) return VTFU_NONE;
    const uint32_t length = vtfuILT_Header_GetTableLength(h);
    const uint64_t stamp = uint64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) * VTFU_ILT_SLOT;
    if (length > size || length > dstSize || stamp == 0 || stamp + sizeof(ILT_Timestamp_t) > length) return VTFU_NONE;
    std::memmove(dst, table, length);
    const time_t now = std::time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    const int year = local.tm_year + 1900;
    uint8_t *ts = dst + stamp;
    ts[6] = static_cast<uint8_t>(year);
    ts[7] = static_cast<uint8_t>(year >> 8);
    ts[8] = static_cast<uint8_t>(local.tm_mon + 1);
    ts[9] = static_cast<uint8_t>(local.tm_mday);
    ts[10] = static_cast<uint8_t>(local.tm_hour);
    ts[11] = static_cast<uint8_t>(local.tm_min);
    ts[12] = 0x00;
    ts[13] = 0x14;
    dst[8] = dst[9] = 0;
    const uint16_t checksum = vtfuHLPR_Sum16(dst, length / 2);
    dst[8] = static_cast<uint8_t>(checksum);
    dst[9] = static_cast<uint8_t>(checksum >> 8);
    vtfuLogMessage(0, "UdpateTimeStamp: %02d/%02d/%04d %02d:%02d", local.tm_mon + 1, local.tm_mday, year, local.tm_hour,
                   local.tm_min);
    return VTFU_OK;
}

VTAPI_EXPORT uint32_t vtfuValidateFLTLocator(const uint8_t *locator, uint32_t size) {
    return ValidateLocator("ValidateFLTLocator", locator, size, false);
}

VTAPI_EXPORT uint32_t vtfuValidateTernFLTLocator(const uint8_t *locator, uint32_t size) {
    return ValidateLocator("ValidateTernFLTLocator", locator, size, true);
}

}  // extern "C"
