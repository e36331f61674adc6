// Checksums of the flash-update layer and its log.  The sums run over whole
// firmware components, so they read eight bytes at a time and add lanes that
// cannot overflow before they are folded.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "flash_image.h"
#include "oss/oss.h"

namespace {

uint64_t Load64(const uint8_t *p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;  // the host is little-endian, as the formats are
}

// Sum of the Lane-bit values in `words` 64-bit words, taken as lanes of
// twice that width (the values at even and at odd positions apart), folded
// before any lane can overflow.
template <unsigned Lane>
uint64_t LaneSum(const uint8_t *data, size_t words) {
    constexpr unsigned kWide = 2 * Lane;
    constexpr uint64_t kWideMask = (uint64_t(1) << kWide) - 1;
    constexpr uint64_t kValueMask = (uint64_t(1) << Lane) - 1;
    uint64_t mask = 0;
    for (unsigned at = 0; at < 64; at += kWide) mask |= kValueMask << at;
    // A wide lane takes at most 2^Lane - 1 a step.
    constexpr size_t kFoldEvery = size_t(1) << Lane;
    uint64_t total = 0;
    size_t i = 0;
    while (i < words) {
        const size_t stop = words - i > kFoldEvery ? i + kFoldEvery : words;
        uint64_t even = 0, odd = 0;
        for (; i < stop; ++i) {
            const uint64_t w = Load64(data + i * 8);
            even += w & mask;
            odd += (w >> Lane) & mask;
        }
        for (const uint64_t lanes : {even, odd})
            for (unsigned at = 0; at < 64; at += kWide) total += (lanes >> at) & kWideMask;
    }
    return total;
}

// Sum of `words` little-endian 16-bit words, modulo 2^16.
uint16_t WordSum16(const uint8_t *data, uint32_t words) {
    uint64_t total = LaneSum<16>(data, words / 4);
    for (uint32_t w = words / 4 * 4; w < words; ++w) total += vtflash::Le16(data + size_t(w) * 2);
    return static_cast<uint16_t>(total);
}

// Sum of `count` bytes, modulo 256.
uint8_t ByteSum(const uint8_t *data, size_t count) {
    uint64_t total = LaneSum<8>(data, count / 8);
    for (size_t b = count / 8 * 8; b < count; ++b) total += data[b];
    return static_cast<uint8_t>(total);
}

}  // namespace

extern "C" {

VTAPI_EXPORT void vtfuLogMessage(int32_t level, const char *format, ...) {
    if (format == nullptr || (level == 0 && !GetCoreEnableDebugMessage())) return;
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    TarnOSSLogMessage(level == 0 ? VT_MSG_DEBUG : level == 1 ? VT_MSG_ERROR : VT_MSG_WARNING, text);
}

VTAPI_EXPORT uint16_t vtfuHLPR_Sum16(const uint8_t *data, uint32_t words) {
    const uint16_t raw = data != nullptr ? WordSum16(data, words) : 0;
    const uint16_t result = static_cast<uint16_t>(-raw);
    vtfuLogMessage(0, "HLPR_Sum16: size=%u (short) words", words);
    vtfuLogMessage(0, "HLPR_Sum16: raw sum=%x", raw);
    vtfuLogMessage(0, "HLPR_Sum16: result = two's complement of sum=%x", result);
    return result;
}

VTAPI_EXPORT uint16_t vtfuCalculateChksum(const uint8_t *data, uint32_t words) {
    return static_cast<uint16_t>(-vtfuHLPR_Sum16(data, words));
}

VTAPI_EXPORT uint32_t vtfuHLPR_Sum32(const uint8_t *data, uint32_t words) {
    if (data == nullptr) return 0;
    uint32_t lo = 0, hi = 0;
    const uint32_t pairs = words / 2;
    for (uint32_t i = 0; i < pairs; ++i) {
        const uint64_t w = Load64(data + size_t(i) * 8);
        lo += static_cast<uint32_t>(w);
        hi += static_cast<uint32_t>(w >> 32);
    }
    uint32_t sum = lo + hi;
    if (words % 2) sum += vtflash::Le32(data + size_t(words - 1) * 4);
    return 0u - sum;
}

VTAPI_EXPORT uint32_t vtfuComputeChecksum(uint32_t update, uint8_t *image, uint32_t size, uint32_t start) {
    if (image == nullptr || start >= size || size - start < 3) return 0;
    // The size byte is a signed count of 512-byte units.
    const int64_t length = int64_t(static_cast<int8_t>(image[start + 2])) * 512;
    const int64_t last = int64_t(start) + length - 1;
    if (last < 0 || last >= int64_t(size)) return 0;
    // The byte before the last one stays out of the sum.
    const int64_t summed = length - 2;
    const uint8_t sum = summed > 0 ? ByteSum(image + start, size_t(summed)) : 0;
    const uint8_t checksum = static_cast<uint8_t>(-sum);
    if (update) {
        vtfuLogMessage(0, "vtfuComputeChecksum: Updating check sum 0x%x at offset 0x%x", checksum,
                       static_cast<unsigned>(last));
        image[last] = checksum;
    }
    return image[last] == checksum ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtfuHLPR_GetDoubleWord(uint16_t low, uint16_t high) {
    return low + (static_cast<uint32_t>(high) << 16);
}

VTAPI_EXPORT uint32_t vtfuHLPR_BEndian4(const uint8_t *bytes) { return bytes != nullptr ? vtflash::Be32(bytes) : 0; }

}  // extern "C"
