// Reader and writer of SFP module firmware images (sfp_image.h).  The reader
// takes bytes a user handed in and never reads past them.
#include "sfp_image.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace vtsdm::sfp {
namespace {

constexpr char kSignature[4] = {'V', 'S', 'F', 'P'};
constexpr size_t kVendorBytes = 16;

uint32_t Le32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint16_t Le16(const uint8_t *p) { return uint16_t(p[0] | p[1] << 8); }

void Put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
}

uint32_t Sum(const uint8_t *p, size_t n) { return std::accumulate(p, p + n, uint32_t(0)); }

}  // namespace

SfpCheck ParseSfpImage(const uint8_t *data, size_t size, SfpImage &out) {
    if (data == nullptr || size < kSfpHeader) return SfpCheck::kTruncated;
    if (std::memcmp(data, kSignature, sizeof kSignature) != 0) return SfpCheck::kBadSignature;
    if (Le16(data + 4) != 1 || Le16(data + 6) != kSfpHeader || data[27] != 0) return SfpCheck::kBadHeader;
    const uint32_t length = Le32(data + 28);
    if (length == 0 || length > kSfpMaxCode || size - kSfpHeader != length) return SfpCheck::kBadLength;
    const uint32_t sum = Le32(data + 32);
    if (Sum(data + kSfpHeader, length) != sum) return SfpCheck::kBadSum;
    const char *vendor = reinterpret_cast<const char *>(data + 8);
    size_t n = kVendorBytes;
    while (n > 0 && (vendor[n - 1] == ' ' || vendor[n - 1] == '\0')) --n;
    out.vendor.assign(vendor, n);
    std::copy(data + 24, data + 27, out.version.begin());
    out.codeLength = length;
    out.codeSum = sum;
    return SfpCheck::kOk;
}

std::vector<uint8_t> BuildSfpImage(const std::string &vendor, std::array<uint8_t, 3> version,
                                   const std::vector<uint8_t> &code) {
    std::vector<uint8_t> b(kSfpHeader, 0);
    std::memcpy(b.data(), kSignature, sizeof kSignature);
    b[4] = 1;
    b[6] = uint8_t(kSfpHeader);
    for (size_t i = 0; i < kVendorBytes; ++i) b[8 + i] = i < vendor.size() ? uint8_t(vendor[i]) : ' ';
    std::copy(version.begin(), version.end(), b.begin() + 24);
    Put32(b, 28, uint32_t(code.size()));
    Put32(b, 32, Sum(code.data(), code.size()));
    b.insert(b.end(), code.begin(), code.end());
    return b;
}

std::string SfpVersionText(const std::array<uint8_t, 3> &version) {
    return std::to_string(version[0]) + "." + std::to_string(version[1]) + "." + std::to_string(version[2]);
}

}  // namespace vtsdm::sfp
