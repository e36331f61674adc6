// Flash parts of simulated cards by chip family: which image regions each
// family's flash has and how large they are.
#pragma once

#include <cstdint>
#include <vector>

#include "host.h"
#include "imagebuild.h"

namespace vtsdm::simflash {

enum class Family { kOtherFc, kKite, kWren, kConverged };

Family FamilyOf(const Card &c);
const char *FamilyName(Family f);

// The image regions of the family's flash with their capacities, in flash
// order.  The VPD, global NVRAM, FC-NVMe boot and layout-table regions come
// on top of these on every card.
const std::vector<SDOptionRomRegion> &FamilyRegions(Family f);

// Capacity of the image layout table region.
constexpr uint32_t kLayoutTableCapacity = 8 * 1024;
// Capacity of the memo block region every card has; it starts erased.
constexpr uint32_t kMemoCapacity = 4 * 1024;

// Vendor and firmware version of the SFP module of every FC port until a
// new firmware is written into it.
constexpr char kSfpVendor[] = "VNTR OPTICS";
constexpr uint8_t kSfpFirmware[3] = {1, 0, 0};

// The image family whose sample components fill a fresh card's regions.
image::ImageFamily SampleFamilyOf(const Card &c);

}  // namespace vtsdm::simflash
