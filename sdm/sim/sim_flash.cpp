// Flash regions of simulated cards: built once per card by the image
// builder from the host file's versions and VPD; written regions are kept
// in the state by card serial number.
#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &Simulator::baseFlash(const Card &c) {
    uint32_t index = uint32_t(&c - host_.cards.data());
    auto it = flash_.find(index);
    if (it != flash_.end()) return it->second;
    image::FlashSetSpec flash;
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
    addNvramRegions(c, regions);
    return flash_.emplace(index, std::move(regions)).first->second;
}

uint32_t Simulator::readRegion(PortKey key, uint32_t region, std::vector<uint8_t> &bytes) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (region == image::kRegionGlobalNvram) return readGlobalNvram(v, bytes);
    const State &s = store_.current();
    auto cs = s.flash.find(v.card->serial);
    if (cs != s.flash.end()) {
        auto r = cs->second.find(region);
        if (r != cs->second.end()) {
            bytes = r->second;
            return SDERR_NONE;
        }
    }
    for (const auto &[code, data] : baseFlash(*v.card))
        if (code == region) {
            bytes = data;
            return SDERR_NONE;
        }
    return SDERR_NOT_FOUND;
}

uint32_t Simulator::writeRegion(PortKey key, uint32_t region, uint32_t offset, const std::vector<uint8_t> &data) {
    View port;
    if (uint32_t rc = resolve(key, port)) return rc;
    if (uint32_t rc = flashWriteAllowed(port)) return rc;
    if (region == image::kRegionGlobalNvram) return writeGlobalNvram(port, offset, data);
    std::vector<uint8_t> current;
    if (uint32_t rc = readRegion(key, region, current)) return rc;
    if (uint64_t(offset) + data.size() > current.size()) return SDERR_INVALID_PARAMETER;
    View v;
    resolve(key, v);
    return store_.modify([&](State &s) {
        auto &regions = s.flash[v.card->serial];
        auto it = regions.find(region);
        std::vector<uint8_t> &bytes = it != regions.end() ? it->second : (regions[region] = current);
        std::copy(data.begin(), data.end(), bytes.begin() + offset);
        return SDERR_NONE;
    });
}

uint32_t Simulator::vpd(PortKey key, std::vector<uint8_t> &out) { return readRegion(key, image::kRegionVpd, out); }

uint32_t Simulator::flashLayout(PortKey key, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    regions.clear();
    flashSize = 0;
    for (const auto &[code, data] : baseFlash(*v.card)) {
        regions.push_back({code, uint32_t(data.size())});
        flashSize += uint32_t(data.size());
    }
    // Round the part up to a power of two, as flash parts come.
    uint32_t part = 1u << 20;
    while (part < flashSize) part <<= 1;
    flashSize = part;
    return SDERR_NONE;
}

}  // namespace vtsdm
