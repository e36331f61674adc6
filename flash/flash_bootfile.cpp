// A single boot-code file (one expansion-ROM chain) checked against the
// adapter it is meant for.  A standard file carries the chip identifier of
// its adapter; a common BIOS file serves several chips and carries an
// adapter-type code that each chip model accepts or refuses.
#include <algorithm>
#include <bitset>
#include <cstring>
#include <string>
#include <string_view>

#include "flash_image.h"
#include "oss/oss.h"

namespace {

constexpr uint32_t kChipIdAt = 9;
constexpr uint32_t kAdapterTypeCodeAt = 20;
constexpr uint32_t kCommonMarkAt = 64;
constexpr char kCommonMark[4] = {'M', 'O', 'D', 'L'};

// Adapter-type codes of common BIOS images.
enum AdapterTypeCode : uint8_t {
    kAnyAdapter = 0,
    kCode4Gb = 1,
    kCode8Gb = 2,
    kCode16Gb = 3,
    kCode32Gb = 4,
    kCode64Gb = 5,
    kCodeConverged = 6,
};

struct ModelRule {
    const char *model;
    bool exact;    // matched exactly, else as a substring of the hardware type
    bool accepts;  // the codes are the ones accepted, else the ones refused
    std::bitset<64> codes;
    bool logSsid;  // a refusal is logged as an invalid subsystem
};

constexpr unsigned long long Codes(std::initializer_list<int> list) {
    unsigned long long bits = 0;
    for (int c : list) bits |= 1ull << c;
    return bits;
}

// Tried in order.  The three exact models come first: the two 16 Gb FC-only
// members of the Orla family (which the "206" substring of their converged
// siblings would otherwise catch) and the 64 Gb Kite variant that has no
// 32 Gb member.
const ModelRule kModelRules[] = {
    {"2064", true, false, Codes({kCode4Gb, kCode8Gb, kCode32Gb, kCode64Gb, kCodeConverged}), true},
    {"2066", true, false, Codes({kCode4Gb, kCode8Gb, kCode32Gb, kCode64Gb, kCodeConverged}), true},
    {"2920", true, true, Codes({kAnyAdapter, kCode64Gb}), true},
    {"29", false, true, Codes({kAnyAdapter, kCode32Gb, kCode64Gb}), false},
    {"27", false, true, Codes({kAnyAdapter, kCode32Gb}), false},
    {"25", false, true, Codes({kAnyAdapter, kCode16Gb}), false},
    {"16", false, true, Codes({kAnyAdapter, kCode8Gb}), false},
    {"14", false, true, Codes({kAnyAdapter, kCode4Gb}), false},
    {"1800", false, true, Codes({kAnyAdapter, kCodeConverged}), false},
    {"1960", false, true, Codes({kAnyAdapter, kCodeConverged}), false},
    {"206", false, true, Codes({kAnyAdapter, kCodeConverged}), false},
    {"2860", false, true, Codes({kAnyAdapter, kCodeConverged}), false},
};

const ModelRule *FindRule(std::string_view hwType) {
    for (const ModelRule &r : kModelRules)
        if (r.exact ? hwType == r.model : hwType.find(r.model) != std::string_view::npos) return &r;
    return nullptr;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t Validate(const uint8_t *image, uint32_t size, const char *hwType, uint32_t offset) {
    if (image == nullptr || hwType == nullptr) return FLASH_ST_WRONG_ADAPTER;
    const std::string_view hw(hwType, strnlen(hwType, 6));
    uint8_t adapterIsp[4] = {};
    std::memcpy(adapterIsp, hw.data(), std::min<size_t>(hw.size(), 4));
    TarnLogMessage(VT_MSG_DEBUG, "Validate: Adapter HW Type: %s", std::string(hw).c_str());
    if (uint64_t(offset) + kChipIdAt + 4 > size) {
        TarnLogMessage(VT_MSG_DEBUG, "Validate: boot code at 0x%x lies beyond the file (%u bytes)", offset, size);
        return FLASH_ST_WRONG_ADAPTER;
    }
    const uint8_t *isp = image + offset + kChipIdAt;
    TarnLogMessage(VT_MSG_DEBUG, "Validate: BIOS: ISP[0]- %x, ISP[1]- %x, ISP[2]- %x, ISP[3]- %x", isp[0], isp[1],
                   isp[2], isp[3]);
    TarnLogMessage(VT_MSG_DEBUG, "Validate: HBA : ISP[0]- %x, ISP[1]- %x, ISP[2]- %x, ISP[3]- %x", adapterIsp[0],
                   adapterIsp[1], adapterIsp[2], adapterIsp[3]);

    const bool common = uint64_t(offset) + kCommonMarkAt + 4 <= size &&
                        std::memcmp(image + offset + kCommonMarkAt, kCommonMark, 4) == 0;
    if (!common) {
        // A standard file is matched by its chip identifier only; it is
        // deliberately not checksummed on this path.
        TarnLogMessage(VT_MSG_DEBUG, "Validate: Standard BIOS file detected.");
        return std::memcmp(isp, adapterIsp, 4) == 0 ? 0 : FLASH_ST_WRONG_ADAPTER;
    }
    const uint8_t code = image[offset + kAdapterTypeCodeAt];
    TarnLogMessage(VT_MSG_DEBUG, "Validate: Common BIOS file detected (hw=%s hba_code=%X)", std::string(hw).c_str(),
                   code);
    const ModelRule *rule = FindRule(hw);
    if (rule == nullptr) {
        TarnLogMessage(VT_MSG_DEBUG, "Validate: Unknown ISP %s", std::string(hw).c_str());
        return FLASH_ST_WRONG_ADAPTER;
    }
    const bool listed = code < 64 && rule->codes.test(code);
    if (listed != rule->accepts) {
        if (rule->logSsid)
            TarnLogMessage(VT_MSG_DEBUG, "Validate: ERROR_INVALID_SSID %s ADAPTER_TYPE_CODE_OFFSET 0X%X",
                           std::string(hw).c_str(), code);
        return FLASH_ST_WRONG_ADAPTER;
    }
    // The checksum is only read: update is 0.
    return vtfuComputeChecksum(0, const_cast<uint8_t *>(image), size, offset) ? 0 : FLASH_ST_BAD_CHECKSUM;
}

}  // extern "C"
