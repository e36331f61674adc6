// Checks of NVRAM images handed in by users and adapters (see
// nvram_image_check.h).
#include "config/nvram_image_check.h"

#include <cstring>

namespace vt::config {
namespace {

constexpr uint32_t kSubsystemVendorVar = 127;
constexpr uint32_t kSubsystemDeviceVar = 128;
constexpr uint32_t kNvmeSignature = 0x4D564E56;  // "VNVM"

uint32_t Word(const uint8_t *p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

}  // namespace

bool NvramChecksumOk(const uint8_t *image, size_t size) {
    if (!image) return false;
    uint32_t sum = 0;
    if (size == 256) {
        for (size_t i = 0; i < 256; ++i) sum += image[i];
        return (sum & 0xFF) == 0;
    }
    if (size == 512) {
        for (size_t i = 0; i < 512; i += 4) sum += Word(image + i);
        return sum == 0;
    }
    return false;
}

SavedImage CheckSavedImage(const std::vector<uint8_t> &file, const std::vector<uint8_t> &current,
                           const VariableReader &variable) {
    if (file.size() != 256 && file.size() != 512) return SavedImage::WrongSize;
    if (!NvramChecksumOk(file.data(), file.size())) return SavedImage::BadChecksum;
    if (file.size() != current.size()) return SavedImage::OtherPort;
    for (uint32_t id : {kSubsystemVendorVar, kSubsystemDeviceVar})
        if (variable(file, id) != variable(current, id)) return SavedImage::OtherPort;
    return SavedImage::Ok;
}

GlobalImage CheckGlobalImage(const std::vector<uint8_t> &file, const uint8_t *wwpn) {
    if (file.size() != kGlobalNvramSize) return GlobalImage::WrongSize;
    if (!NvramChecksumOk(file.data(), file.size())) return GlobalImage::BadChecksum;
    if (!wwpn || std::memcmp(file.data() + kGlobalNvramWwpnOffset, wwpn, 8) != 0) return GlobalImage::OtherPort;
    return GlobalImage::Ok;
}

NvmeBlock CheckNvmeBlock(const uint8_t *block, size_t size) {
    if (!block || size < 16 || Word(block) != kNvmeSignature) return NvmeBlock::BadSignature;
    const uint32_t length = Word(block + 8);
    if (length < 16 || length > size || length % 4 != 0) return NvmeBlock::BadChecksum;
    uint32_t sum = 0;
    for (uint32_t i = 0; i < length; i += 4) sum += Word(block + i);
    return sum == 0 ? NvmeBlock::Ok : NvmeBlock::BadChecksum;
}

}  // namespace vt::config
