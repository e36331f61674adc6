// The components of a multi-image container that an update writes into a
// card's flash.  Kept apart from the writing so that it can be fuzzed alone.
#include <set>

#include "flash_update.h"

namespace vtflash {

bool KeptByUpdates(uint32_t region) {
    // The card's identity and settings: VPD and global NVRAM.
    return region == 0x8C || region == 0x8D;
}

std::optional<std::vector<StagedRegion>> SelectImageRegions(Bytes mbi, uint32_t cardType, uint32_t chipRevision) {
    const uint32_t size = uint32_t(std::min<size_t>(mbi.size(), UINT32_MAX));
    if (!vtfuILT_ValidateILTHeader(mbi.data(), size)) return std::nullopt;
    const auto *header = reinterpret_cast<const ILT_Header_t *>(mbi.data());
    if (!vtfuILT_Header_CompareSignature(header)) return std::nullopt;
    const uint32_t entries = vtfuILT_Header_GetNumOfRegionEntries(header);
    std::vector<StagedRegion> out;
    std::set<uint32_t> seen;
    for (uint32_t i = 0; i + 1 < entries; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(mbi.data(), size, i);
        if (e == nullptr) return std::nullopt;
        const uint32_t type = RegionType(*e);
        if (!EntryIsForCard(*e, cardType, chipRevision) || KeptByUpdates(type) || type == VTFU_REGION_FLASH_ILT)
            continue;
        // A second entry of a type for the same card is another card type's
        // variant that the mask test let through: the first one counts.
        if (!seen.insert(type).second) continue;
        const std::optional<Bytes> component = Component(mbi, e);
        if (!component) return std::nullopt;
        out.push_back({type, std::vector<uint8_t>(component->begin(), component->end())});
    }
    return out;
}

}  // namespace vtflash
