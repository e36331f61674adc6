// Flash parts of simulated cards.  Each chip family has its own regions
// (sim_flash.h), each region a fixed capacity; a host file may replace the
// layout and plant read and write faults.  A fresh card's regions hold what
// its host-file versions and VPD give (boot code, firmware, VPD, layout
// table) and, for the other regions of its family, the components of a
// sample image of that family.  Written regions are kept in the state by
// card serial number; the bytes past a region's content read as erased
// flash (0xFF).  An update (writeRegions) replaces several regions in one
// state write, so a failed or interrupted update leaves none of them
// changed, and marks the card reboot-required.
#include "sim_flash.h"

#include <cstring>
#include <set>

#include "idtable.h"
#include "nvram_map.h"
#include "sfp_image.h"
#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

namespace simflash {
namespace {

constexpr uint32_t kFirmware = 256 * 1024;
constexpr uint32_t kBoot = 128 * 1024;
constexpr uint32_t kSmall = 32 * 1024;
constexpr uint32_t kMpiConfig = 64 * 1024;
constexpr uint8_t kErased = 0xFF;

}  // namespace

Family FamilyOf(const Card &c) {
    if (c.ispType == 27) return Family::kKite;
    if (c.ispType == 25) return Family::kWren;
    if (vt::ids::IsTern(c.deviceId) || vt::ids::IsOrla(c.deviceId) || vt::ids::IsTove(c.deviceId))
        return Family::kConverged;
    return Family::kOtherFc;
}

const char *FamilyName(Family f) {
    switch (f) {
    case Family::kKite: return "Kite";
    case Family::kWren: return "Wren";
    case Family::kConverged: return "converged";
    case Family::kOtherFc: break;
    }
    return "FC";
}

const std::vector<SDOptionRomRegion> &FamilyRegions(Family f) {
    // The regions of the online update (layout-table check) are on both
    // Kite and Wren parts.
    static const std::vector<SDOptionRomRegion> kite = {
        {0x07, kBoot},  {0x11, kBoot},  {0x01, kFirmware},  {0x13, kSmall},    {0x14, kSmall},
        {0x16, kSmall}, {0x67, kSmall}, {0x95, kSmall},     {0x96, kSmall},    {0x9E, kSmall},
        {0xBA, kSmall}, {0xCF, kSmall}, {0xD1, kFirmware},  {0xD2, kFirmware}, {0xD3, kFirmware},
        {0xD4, kSmall}, {0xD6, kSmall}, {0x101, kFirmware}, {0x102, kSmall},   {0x103, kSmall}};
    static const std::vector<SDOptionRomRegion> wren = {
        {0x07, kBoot},     {0x01, kFirmware}, {0x9E, kSmall},    {0xD1, kFirmware}, {0xD2, kFirmware},
        {0xD3, kFirmware}, {0xE1, kFirmware}, {0x66, kFirmware}, {0x14, kSmall},    {0x16, kSmall},
        {0x67, kSmall},    {0x95, kSmall},    {0x96, kSmall},    {0xD4, kSmall},    {0xD6, kSmall}};
    static const std::vector<SDOptionRomRegion> converged = {
        {0x01, kFirmware}, {0x07, kBoot},      {0x14, kSmall},    {0x16, kSmall},    {0x2E, kBoot},
        {0x40, kFirmware}, {0x41, kMpiConfig}, {0x45, kFirmware}, {0x4F, kBoot},     {0x70, kSmall},
        {0x71, kSmall},    {0x72, kSmall},     {0x73, kSmall},    {0x74, kFirmware}, {0x81, kSmall},
        {0x97, kFirmware}, {0xA2, kBoot},      {0xA3, kSmall},    {0xA4, kFirmware}, {0xB1, kSmall}};
    static const std::vector<SDOptionRomRegion> other = {{0x07, kBoot}, {0x01, kFirmware}};
    switch (f) {
    case Family::kKite: return kite;
    case Family::kWren: return wren;
    case Family::kConverged: return converged;
    case Family::kOtherFc: break;
    }
    return other;
}

image::ImageFamily SampleFamilyOf(const Card &c) {
    switch (FamilyOf(c)) {
    case Family::kKite: return image::ImageFamily::kKite;
    case Family::kWren: return image::ImageFamily::kWren;
    case Family::kConverged:
        return vt::ids::IsTern(c.deviceId)   ? image::ImageFamily::kTern
               : vt::ids::IsTove(c.deviceId) ? image::ImageFamily::kTove
                                             : image::ImageFamily::kOrla;
    case Family::kOtherFc: break;
    }
    return image::ImageFamily::kOtherFc;
}

}  // namespace simflash

using simflash::kLayoutTableCapacity;

namespace {

// The image regions the card's flash has: the host file's layout or the
// family's.
const std::vector<SDOptionRomRegion> &ImageRegions(const Card &c) {
    return c.flash.layout ? *c.flash.layout : simflash::FamilyRegions(simflash::FamilyOf(c));
}

bool Listed(const std::vector<SDOptionRomRegion> &regions, uint32_t code) {
    return std::any_of(regions.begin(), regions.end(), [&](const SDOptionRomRegion &r) { return r.Region == code; });
}

}  // namespace

const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &Simulator::baseFlash(const Card &c) {
    uint32_t index = uint32_t(&c - host_.cards.data());
    auto it = flash_.find(index);
    if (it != flash_.end()) return it->second;
    image::FlashSetRecipe flash;
    if (!c.versions.bios.empty()) flash.bios = VersionOf(c.versions.bios);
    if (!c.versions.fcode.empty()) flash.fcode = VersionOf(c.versions.fcode);
    if (!c.versions.efi.empty()) flash.efi = VersionOf(c.versions.efi);
    flash.firmware = VersionOf(c.versions.firmware);
    flash.multiboot = VersionOf(c.versions.multiboot);
    flash.deviceId = c.deviceId;
    flash.subVendorId = c.subVendorId;
    flash.subSystemId = c.subSystemId;
    flash.vpdIdentifier = c.description;
    std::vector<std::pair<std::string, std::string>> ro;
    auto has = [&](const char *k) {
        return std::any_of(c.vpd.begin(), c.vpd.end(), [&](const auto &e) { return e.first == k; });
    };
    if (!has("PN")) ro.emplace_back("PN", c.model);
    if (!has("SN")) ro.emplace_back("SN", c.serial);
    if (!has("MN")) ro.emplace_back("MN", "1077");
    if (!has("V1") && !c.versions.efi.empty()) ro.emplace_back("V1", c.versions.efi);
    if (!has("V3")) ro.emplace_back("V3", c.versions.firmware);
    if (!has("V4") && !c.versions.bios.empty()) ro.emplace_back("V4", c.versions.bios);
    if (!has("V5") && !c.versions.fcode.empty()) ro.emplace_back("V5", c.versions.fcode);
    if (!has("RM") && !has("V9") && !c.versions.multiboot.empty()) ro.emplace_back("RM", c.versions.multiboot);
    for (const auto &e : c.vpd) ro.push_back(e);
    flash.vpdReadOnly = ro;
    if (c.ispType >= 24 && c.ispType <= 26) flash.nvmeBootRegions = {image::kRegionNvmeBoot};
    else if (c.ispType > 26) flash.nvmeBootRegions = {image::kRegionNvmeBootActive, image::kRegionNvmeBootInactive};
    else flash.nvmeBootRegions.clear();
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> regions;
    for (auto &r : image::BuildFlashSet(flash)) regions.emplace_back(r.type, std::move(r.bytes));

    // The family's other regions hold a sample image's components, and the
    // layout table lists them too.
    const image::CardEntry card{image::kVendorId, c.deviceId, c.subVendorId, c.subSystemId};
    const image::MultiImageRecipe sample = image::SampleImage(simflash::SampleFamilyOf(c), card);
    image::MultiImageRecipe table;
    table.imageVersion = flash.multiboot;
    table.cardLists = {{0, {card}}, {1, {card}}};
    std::set<uint32_t> present;
    for (const auto &[code, bytes] : regions) present.insert(code);
    if (!c.versions.bios.empty() || !c.versions.fcode.empty() || !c.versions.efi.empty())
        table.components.push_back({uint16_t(image::kRegionBootCode),
                                    flash.bios    ? *flash.bios
                                    : flash.fcode ? *flash.fcode
                                                  : *flash.efi,
                                    0,
                                    0,
                                    {}});
    table.components.push_back({uint16_t(image::kRegionRiscFirmware), flash.firmware, 0, 0, {}});
    const std::vector<SDOptionRomRegion> &layout = ImageRegions(c);
    for (const image::Component &comp : sample.components) {
        if (present.count(comp.regionType) || !Listed(layout, comp.regionType)) continue;
        present.insert(comp.regionType);
        regions.emplace_back(comp.regionType, comp.payload);
        table.components.push_back({comp.regionType, comp.version, comp.cardType, comp.chipRevision, {}});
    }
    for (auto &[code, bytes] : regions)
        if (code == image::kRegionImageLayoutTable) {
            bytes = image::BuildMultiImage(table);
            bytes.resize(image::MultiImageTableLength(table));
        }
    addNvramRegions(c, regions);
    return flash_.emplace(index, std::move(regions)).first->second;
}

const std::vector<SDOptionRomRegion> &Simulator::cardLayout(const Card &c) {
    uint32_t index = uint32_t(&c - host_.cards.data());
    auto it = layouts_.find(index);
    if (it != layouts_.end()) return it->second;
    std::vector<SDOptionRomRegion> layout = ImageRegions(c);
    // The regions every card has, as large as their contents (the layout
    // table with room to grow), unless the host file's layout sizes them.
    for (const auto &[code, bytes] : baseFlash(c)) {
        if (Listed(layout, code)) continue;
        const bool fixed = code == image::kRegionVpd || code == image::kRegionGlobalNvram ||
                           code == image::kRegionImageLayoutTable || code == image::kRegionNvmeBoot ||
                           code == image::kRegionNvmeBootActive || code == image::kRegionNvmeBootInactive ||
                           code == nvram::kRegionActiveRecord;
        if (!fixed) continue;
        const uint32_t size = uint32_t(bytes.size());
        layout.push_back({code, code == image::kRegionImageLayoutTable ? std::max(size, kLayoutTableCapacity) : size});
    }
    if (!Listed(layout, image::kRegionFlashMemo)) layout.push_back({image::kRegionFlashMemo, simflash::kMemoCapacity});
    return layouts_.emplace(index, std::move(layout)).first->second;
}

std::optional<uint32_t> Simulator::regionCapacity(const Card &c, uint32_t region) {
    for (const SDOptionRomRegion &r : cardLayout(c))
        if (r.Region == region) return r.Size;
    return std::nullopt;
}

// What the region holds: as written, else as the card came; a region of
// the host file's layout whose first contents do not fit it starts erased.
std::vector<uint8_t> Simulator::regionContent(const Card &c, uint32_t region) {
    const State &s = store_.current();
    if (auto cs = s.flash.find(c.serial); cs != s.flash.end())
        if (auto r = cs->second.find(region); r != cs->second.end()) return r->second;
    const uint32_t capacity = regionCapacity(c, region).value_or(0);
    for (const auto &[code, data] : baseFlash(c))
        if (code == region && data.size() <= capacity) return data;
    return {};
}

bool Simulator::flashFault(const Card &c, bool write) {
    if (consumeFault((write ? "flash-write/" : "flash-read/") + c.serial,
                     write ? c.flash.writeFaults : c.flash.readFaults))
        return true;
    const auto &cards = store_.current().flashCards;
    auto it = cards.find(c.serial);
    if (it == cards.end() || (write ? it->second.writeFaults : it->second.readFaults) == 0) return false;
    bool fired = false;
    store_.modify([&](State &s) {
        CardFlashChanges &f = s.flashCards[c.serial];
        uint32_t &left = write ? f.writeFaults : f.readFaults;
        if (left) {
            --left;
            fired = true;
        }
        return SDERR_NONE;
    });
    return fired;
}

uint32_t Simulator::readRegion(PortKey key, uint32_t region, std::vector<uint8_t> &bytes) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const std::optional<uint32_t> capacity = regionCapacity(*v.card, region);
    if (!capacity) return SDERR_NOT_FOUND;
    if (flashFault(*v.card, false)) return SDERR_FLASH_READ_FAILED;
    // The global NVRAM region is each port's own.
    if (region == image::kRegionGlobalNvram) return readGlobalNvram(v, bytes);
    bytes = regionContent(*v.card, region);
    if (bytes.size() < *capacity) bytes.resize(*capacity, simflash::kErased);
    return SDERR_NONE;
}

uint32_t Simulator::writeRegion(PortKey key, uint32_t region, uint32_t offset, const std::vector<uint8_t> &data) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (uint32_t rc = flashWriteAllowed(v)) return rc;
    const std::optional<uint32_t> capacity = regionCapacity(*v.card, region);
    if (!capacity) return SDERR_NOT_FOUND;
    if (uint64_t(offset) + data.size() > *capacity) return SDERR_INVALID_PARAMETER;
    if (flashFault(*v.card, true)) return SDERR_FLASH_WRITE_FAILED;
    if (region == image::kRegionGlobalNvram) return writeGlobalNvram(v, offset, data);
    std::vector<uint8_t> bytes = regionContent(*v.card, region);
    if (bytes.size() < offset + data.size()) bytes.resize(offset + data.size(), simflash::kErased);
    std::copy(data.begin(), data.end(), bytes.begin() + offset);
    return store_.modify([&](State &s) {
        s.flash[v.card->serial][region] = std::move(bytes);
        return SDERR_NONE;
    });
}

uint32_t Simulator::writeRegions(PortKey key, const std::vector<RegionImage> &regions) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (uint32_t rc = flashWriteAllowed(v)) return rc;
    std::set<uint32_t> seen;
    for (const RegionImage &r : regions) {
        const std::optional<uint32_t> capacity = regionCapacity(*v.card, r.region);
        if (!capacity) return SDERR_NOT_FOUND;
        if (r.bytes.size() > *capacity || !seen.insert(r.region).second) return SDERR_INVALID_PARAMETER;
    }
    if (flashFault(*v.card, true)) return SDERR_FLASH_WRITE_FAILED;
    return store_.modify([&](State &s) {
        auto &stored = s.flash[v.card->serial];
        for (const RegionImage &r : regions) stored[r.region] = r.bytes;
        s.flashCards[v.card->serial].rebootRequired = true;
        return SDERR_NONE;
    });
}

uint32_t Simulator::vpd(PortKey key, std::vector<uint8_t> &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    out = regionContent(*v.card, image::kRegionVpd);
    return out.empty() ? SDERR_NOT_FOUND : SDERR_NONE;
}

uint32_t Simulator::flashLayout(PortKey key, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    regions = cardLayout(*v.card);
    uint64_t total = 0;
    for (const SDOptionRomRegion &r : regions) total += r.Size;
    // Round the part up to a power of two, as flash parts come.
    uint64_t part = 1u << 20;
    while (part < total) part <<= 1;
    flashSize = uint32_t(std::min<uint64_t>(part, 0x80000000u));
    return SDERR_NONE;
}

uint32_t Simulator::flashStateFlags(const Card &c) {
    const auto &cards = store_.current().flashCards;
    auto it = cards.find(c.serial);
    return it != cards.end() && it->second.rebootRequired ? SD_PORTFLAG_REBOOT_REQUIRED : 0;
}

uint32_t Simulator::setFlashFaults(uint32_t instance, std::optional<uint32_t> reads, std::optional<uint32_t> writes) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        CardFlashChanges &f = s.flashCards[v.card->serial];
        if (reads) f.readFaults = *reads;
        if (writes) f.writeFaults = *writes;
        return SDERR_NONE;
    });
}

uint32_t Simulator::restartCard(uint32_t instance) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        auto it = s.flashCards.find(v.card->serial);
        if (it != s.flashCards.end()) it->second.rebootRequired = false;
        return SDERR_NONE;
    });
}

namespace {

// Physical FC ports have an SFP module of their own; on converged cards the
// NIC manages the transceiver.
bool HasSfpModule(const Simulator::View &v) {
    return !v.vport && v.port->interface == SD_INTERFACE_FC &&
           simflash::FamilyOf(*v.card) != simflash::Family::kConverged;
}

}  // namespace

// The SFP module of an FC port: the vendor's stock firmware until an image
// is written; a write is checked whole and stored in one state write.
uint32_t Simulator::sfpFirmware(PortKey key, SDSfpFirmwareInfo &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (!HasSfpModule(v)) return SDERR_NOT_SUPPORTED;
    out = SDSfpFirmwareInfo{};
    std::snprintf(out.Vendor, sizeof out.Vendor, "%s", simflash::kSfpVendor);
    std::memcpy(out.Version, simflash::kSfpFirmware, sizeof out.Version);
    const auto &written = store_.current().sfp;
    if (auto it = written.find(v.port->wwpn); it != written.end()) {
        std::copy(it->second.version.begin(), it->second.version.end(), out.Version);
        out.CodeSum = it->second.codeSum;
    }
    return SDERR_NONE;
}

uint32_t Simulator::updateSfpFirmware(PortKey key, const std::vector<uint8_t> &image) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (!HasSfpModule(v)) return SDERR_NOT_SUPPORTED;
    if (uint32_t rc = flashWriteAllowed(v)) return rc;
    sfp::SfpImage parsed;
    if (sfp::ParseSfpImage(image.data(), image.size(), parsed) != sfp::SfpCheck::kOk) return SDERR_INVALID_PARAMETER;
    if (parsed.vendor != simflash::kSfpVendor) return SDERR_NOT_SUPPORTED;
    if (flashFault(*v.card, true)) return SDERR_FLASH_WRITE_FAILED;
    return store_.modify([&](State &s) {
        s.sfp[v.port->wwpn] = {parsed.version, parsed.codeSum};
        return SDERR_NONE;
    });
}

}  // namespace vtsdm
