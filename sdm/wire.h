// Byte-level helpers both backends use to fill SD records and SCSI data.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vtsdm::wire {

// A text into a fixed char field, cut to fit and always terminated.
inline void CopyText(char *dst, size_t size, const std::string &src) {
    size_t n = std::min(size - 1, src.size());
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

// A 24-bit FC port ID as domain, area, port.
inline void PortIdBytes(uint32_t id, uint8_t out[3]) {
    out[0] = uint8_t(id >> 16);
    out[1] = uint8_t(id >> 8);
    out[2] = uint8_t(id);
}

// Big-endian `bytes` bytes of v at b[at].
inline void PutBe(std::vector<uint8_t> &b, size_t at, uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i, v >>= 8) b[at + size_t(i)] = uint8_t(v & 0xFF);
}

// A text blank-padded to `width` bytes at b[at] (SCSI ASCII fields).
inline void PutText(std::vector<uint8_t> &b, size_t at, const std::string &s, size_t width) {
    for (size_t i = 0; i < width; ++i) b[at + i] = i < s.size() ? uint8_t(s[i]) : ' ';
}

// Fixed-format sense data (18 bytes) of a check condition.
inline std::vector<uint8_t> FixedSense(uint8_t key, uint8_t asc, uint8_t ascq) {
    std::vector<uint8_t> s(18, 0);
    s[0] = 0x70;  // current error, fixed format
    s[2] = key & 0x0F;
    s[7] = 10;  // additional sense length
    s[12] = asc;
    s[13] = ascq;
    return s;
}

}  // namespace vtsdm::wire
