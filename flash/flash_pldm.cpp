// Firmware packages wrapped in a PLDM firmware-update package header: the
// header is recognised by its identifier, walked record by record within its
// stated size, and accepted only when its CRC-32 holds.  The multi-image
// container follows the header.
#include <array>
#include <cstring>
#include <iterator>

#include "flash_image.h"
#include "oss/oss.h"

namespace vtflash {
namespace {

using Uuid = std::array<uint8_t, 16>;

// Package header identifiers of format revisions 1 to 4 (1.0 to 1.3).
constexpr Uuid kPackageIds[] = {
    {0xF0, 0x18, 0x87, 0x8C, 0xCB, 0x7D, 0x49, 0x43, 0x98, 0x00, 0xA0, 0x2F, 0x05, 0x9A, 0xCA, 0x02},
    {0x12, 0x44, 0xD2, 0x64, 0x8D, 0x7D, 0x47, 0x18, 0xA0, 0x30, 0xFC, 0x8A, 0x56, 0x58, 0x7D, 0x5A},
    {0x31, 0x19, 0xCE, 0x2F, 0xE8, 0x0A, 0x4A, 0x99, 0xAF, 0x15, 0xCB, 0xEF, 0x37, 0xED, 0x5A, 0x59},
    {0x7B, 0x29, 0x1C, 0x99, 0x6D, 0xB6, 0x42, 0x08, 0x80, 0x1B, 0x02, 0x02, 0x6E, 0x46, 0x3C, 0x78},
};

constexpr size_t kFixedHeader = 36;    // identifier through the version string length
constexpr size_t kComponentInfo = 22;  // fixed part of a component image information entry

// A cursor over the header bytes that refuses to step outside them.
class Reader {
public:
    explicit Reader(Bytes bytes) : bytes_(bytes) {}
    size_t pos() const { return pos_; }
    bool Skip(uint64_t n) {
        if (n > bytes_.size() - pos_) return false;
        pos_ += size_t(n);
        return true;
    }
    bool U8(uint32_t &v) {
        if (bytes_.size() - pos_ < 1) return false;
        v = bytes_[pos_++];
        return true;
    }
    bool U16(uint32_t &v) {
        if (bytes_.size() - pos_ < 2) return false;
        v = Le16(bytes_.data() + pos_);
        pos_ += 2;
        return true;
    }
    bool U32(uint32_t &v) {
        if (bytes_.size() - pos_ < 4) return false;
        v = Le32(bytes_.data() + pos_);
        pos_ += 4;
        return true;
    }

private:
    Bytes bytes_;
    size_t pos_ = 0;
};

// A device identification record (firmware device or downstream device):
// its first field is its own length, which covers the whole record.
bool SkipDeviceRecords(Reader &r, uint32_t &count) {
    if (!r.U8(count)) return false;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t length = 0;
        if (!r.U16(length) || length < 2 || !r.Skip(length - 2)) return false;
    }
    return true;
}

}  // namespace

std::optional<PldmPackage> ParsePldmPackage(Bytes file) {
    if (file.size() < kFixedHeader) return std::nullopt;
    uint8_t revision = 0;
    for (size_t i = 0; i < std::size(kPackageIds); ++i)
        if (std::memcmp(file.data(), kPackageIds[i].data(), 16) == 0) revision = uint8_t(i + 1);
    if (revision == 0 || file[16] != revision) return std::nullopt;

    PldmPackage p;
    p.formatRevision = revision;
    p.headerSize = Le16(file.data() + 17);
    if (p.headerSize < kFixedHeader + 4 || p.headerSize > file.size()) return std::nullopt;
    const Bytes header = file.first(p.headerSize);
    Reader r(header);
    r.Skip(32);  // identifier, revision, size, release date and time
    uint32_t bitmapBits = 0, versionType = 0, versionLength = 0;
    if (!r.U16(bitmapBits) || bitmapBits % 8 != 0 || !r.U8(versionType) || !r.U8(versionLength)) return std::nullopt;
    const size_t versionAt = r.pos();
    if (!r.Skip(versionLength)) return std::nullopt;
    p.version.assign(reinterpret_cast<const char *>(header.data() + versionAt), versionLength);

    uint32_t downstream = 0;
    if (!SkipDeviceRecords(r, p.deviceRecords)) return std::nullopt;
    if (revision >= 2 && !SkipDeviceRecords(r, downstream)) return std::nullopt;

    uint32_t components = 0;
    if (!r.U16(components) || components == 0) return std::nullopt;
    p.componentCount = components;
    for (uint32_t i = 0; i < components; ++i) {
        uint32_t ignored = 0, offset = 0, size = 0, length = 0;
        if (!r.Skip(kComponentInfo - 10) || !r.U32(offset) || !r.U32(size) || !r.U8(ignored) || !r.U8(length) ||
            !r.Skip(length))
            return std::nullopt;
        if (revision >= 4) {
            uint32_t opaque = 0;
            if (!r.U32(opaque) || !r.Skip(opaque)) return std::nullopt;
        }
        if (uint64_t(offset) + size > file.size() || offset < p.headerSize) return std::nullopt;
        if (i == 0) {
            p.componentOffset = offset;
            p.componentSize = size;
        }
    }
    uint32_t checksum = 0;
    const size_t covered = r.pos();
    if (!r.U32(checksum) || vtapi_crc(header.data(), uint32_t(covered)) != checksum) return std::nullopt;
    return p;
}

Bytes MultiImageOf(Bytes file) {
    const std::optional<PldmPackage> p = ParsePldmPackage(file);
    return p ? file.subspan(p->headerSize) : file;
}

}  // namespace vtflash
