// Feeds arbitrary bytes to the choice of the components an image update
// writes: every chosen component must lie within the container, no VPD or
// NVRAM region is chosen and no type twice.  The card type and chip revision
// come from the last two bytes of the input.
#include "flash_fuzz_stubs.h"

#include <set>

#include "../flash/flash_update.h"

using namespace fuzzflash;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 20)) return 0;
    const Exact in(data, size);
    const uint32_t cardType = size ? data[size - 1] : 0;
    const uint32_t revision = size > 1 ? data[size - 2] : 0;
    const auto regions = vtflash::SelectImageRegions(vtflash::Bytes(in.data(), size), cardType, revision);
    if (!regions) return 0;
    std::set<uint32_t> types;
    for (const vtflash::StagedRegion &r : *regions) {
        Check(!vtflash::KeptByUpdates(r.region) && r.region != VTFU_REGION_FLASH_ILT);
        Check(types.insert(r.region).second);
        Check(r.bytes.size() <= size);
    }
    Check(regions->size() <= VTFU_ILT_MAX_REGIONS);
    return 0;
}
