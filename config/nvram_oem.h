// NVRAM templates by chip and OEM: the OEM table, which chip types load
// templates with which OEM codes, the NVRAM size a template fills, and where
// a template lies under the installation directory.  The build-time
// template generator (tools/nvram_templates_gen) places the templates it
// writes with the same rules the library finds them by.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vt::config {

inline constexpr uint32_t kOemCount = 7;
// The maker's own template set; the default.
inline constexpr uint32_t kMakerOem = 3;
// OEM names by code; code 3 is the maker's.
inline constexpr const char *kOemNames[kOemCount] = {"SABLE", "BRYCE", "CALDER", "VNTR", "DARROW", "ELSTON", "FARRIS"};
// The preference that lets OEM code 0 be chosen.
inline constexpr const char kOemZeroPreference[] = "node.config.oem69.template.enable";

// OEM code of the boards of a PCI subsystem vendor; kOemCount for a vendor
// that has no template set.
constexpr uint32_t OemForSubsystemVendor(uint16_t ssvid) {
    switch (ssvid) {
    case 0x1077: return kMakerOem;
    case 0x1D27: return 1;
    case 0x1E5A: return 2;
    case 0x1F3C: return 4;
    default: return kOemCount;
    }
}

// OEM codes a chip type may load templates with (code 0 also needs the
// preference); false for every code on chip types that load none.
constexpr bool OemAllowedForChip(uint32_t chipType, uint32_t oem) {
    if (oem == 0) return OemAllowedForChip(chipType, kMakerOem);  // any template-capable type
    switch (chipType) {
    case 2:
    case 3: return oem >= 2 && oem <= 4;
    case 4: return oem >= 1 && oem <= 5;
    case 10:
    case 11:
    case 12:
    case 15: return oem >= 1 && oem <= 4;
    case 5: return oem == 3;
    default: return false;
    }
}

constexpr bool ChipLoadsTemplates(uint32_t chipType) { return OemAllowedForChip(chipType, kMakerOem); }

// Bytes of the image a template fills: 256 for types 2-5, else 512.
constexpr uint32_t TemplateImageSize(uint32_t chipType) { return chipType >= 2 && chipType <= 5 ? 256 : 512; }

// "ISP<did>/<OEM><did>.dat" (device ID in lower-case hexadecimal); an OEM
// code outside the table uses the maker's name.
inline std::string TemplateFilePart(uint16_t deviceId, uint32_t oem, const char *extension = ".dat") {
    char hex[8];
    std::snprintf(hex, sizeof hex, "%x", deviceId);
    const char *name = kOemNames[oem < kOemCount ? oem : kMakerOem];
    return std::string("ISP") + hex + "/" + name + hex + extension;
}

// "<install>/data/templates_<file part>".
inline std::string TemplatePath(const std::string &installDir, uint16_t deviceId, uint32_t oem,
                                const char *extension = ".dat") {
    std::string dir = installDir;
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    return dir + "/data/templates_" + TemplateFilePart(deviceId, oem, extension);
}

}  // namespace vt::config
