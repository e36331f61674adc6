// Firmware image files of SFP transceiver modules: a 36-byte header and the
// module's code.
//
//   0  4  "VSFP"
//   4  2  header version (1), little-endian
//   6  2  header length (36)
//   8 16  vendor name the module reports, space-padded ASCII
//  24  3  version major, minor, sub; byte 27 reserved (0)
//  28  4  code length in bytes (1 .. kSfpMaxCode), little-endian
//  32  4  32-bit sum of the code bytes, little-endian
//  36     the code; the file ends with it
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vtsdm::sfp {

constexpr size_t kSfpHeader = 36;
constexpr uint32_t kSfpMaxCode = 256 * 1024;

enum class SfpCheck { kOk, kTruncated, kBadSignature, kBadHeader, kBadLength, kBadSum };

struct SfpImage {
    std::string vendor;  // trailing spaces removed
    std::array<uint8_t, 3> version{};
    uint32_t codeLength = 0;
    uint32_t codeSum = 0;
};

// Checks the whole file; out is filled only on kOk.
SfpCheck ParseSfpImage(const uint8_t *data, size_t size, SfpImage &out);

// A well-formed image for the vendor, version and code.
std::vector<uint8_t> BuildSfpImage(const std::string &vendor, std::array<uint8_t, 3> version,
                                   const std::vector<uint8_t> &code);

// "major.minor.sub"
std::string SfpVersionText(const std::array<uint8_t, 3> &version);

}  // namespace vtsdm::sfp
