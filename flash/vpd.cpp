// Vital product data: tag checks, the parsed keyword table with its labels,
// the multiboot version kept from a block, and the editing of one keyword.
// The bytes come from adapters and files, so every read is bounded by the
// size the caller gives and no length inside the block is trusted.
#include "flash/vpd.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "oss/oss.h"

namespace {

constexpr uint8_t kIdentifierTag = 0x82;
constexpr uint8_t kReadOnlyTag = 0x90;
constexpr uint8_t kReadWriteTag = 0x91;
constexpr uint8_t kEndTag = 0x78;
constexpr size_t kNone = static_cast<size_t>(-1);
constexpr size_t kIdentifierLimit = 255;

// Scratch area that every label lookup fills with '0'.
char gDescriptionScratch[80];

struct Label {
    const char *keyword;
    const char *text;
};

constexpr Label kLabels[] = {
    {"PN", "Part Number"},
    {"00", "Description"},
    {"CC", "Custom Card Identification"},
    {"EC", "Engineering Date Code"},
    {"SN", "Serial Number"},
    {"V0", "Misc. Information"},
    {"V2", "Manufacturing Date Code"},
    {"MN", "Manufacturing Id"},
    {"RV", "Checksum & Reserved"},
    {"V1", "EFI Driver Version"},
    {"V3", "Firmware Version"},
    {"V4", "BIOS Version"},
    {"V5", "FCode Version"},
    {"YA", "Asset Tag"},
    {"RW", "Remaining RW Data"},
    {"RM", "Flash Image Version"},
    {"FF", "Flash Image Version"},
    {"V9", "Flash Image Version"},
    {"FN", "FRU Number"},
    {"FC", "FC Code"},
};

// The 2-byte little-endian length after a large-resource tag at pos; bytes
// beyond size count as 0.
size_t Length16(const uint8_t *b, size_t size, size_t pos) {
    size_t lo = pos + 1 < size ? b[pos + 1] : 0;
    size_t hi = pos + 2 < size ? b[pos + 2] : 0;
    return lo | (hi << 8);
}

// Copies up to `count` bytes (stopping at a NUL) into dst[0..cap-1] and
// terminates it.
void CopyText(char *dst, size_t cap, const uint8_t *src, size_t count) {
    size_t n = std::min(count, cap - 1);
    if (src != nullptr) n = strnlen(reinterpret_cast<const char *>(src), n);
    else n = 0;
    if (n > 0) std::memcpy(dst, src, n);
    dst[n] = '\0';
}

void FillEntry(VPDEntry &e, char k0, char k1, const uint8_t *data, size_t count) {
    e.tag[0] = k0;
    e.tag[1] = k1;
    e.tag[2] = '\0';
    CopyText(e.field, sizeof e.field, data, count);
    std::snprintf(e.description, sizeof e.description, "%s", vtfuGetVPDFieldDescripton(e.tag));
}

bool IsKeyword(const VPDEntry &e, const char *k) { return e.tag[0] == k[0] && e.tag[1] == k[1]; }

// Appends "RM" built from the 2-character pieces at 3, 6 and 9 of the first
// "V" value that starts "FFV", for boards that keep the flash image version
// in a vendor keyword.
void AddSyntheticRm(VPDInfo &info, uint32_t &count) {
    for (uint32_t i = 0; i < count; ++i)
        if (IsKeyword(info.entries[i], "RM") || IsKeyword(info.entries[i], "V9")) return;
    for (uint32_t i = 0; i < count; ++i) {
        const VPDEntry &e = info.entries[i];
        if (e.tag[0] != 'V' || std::strncmp(e.field, "FFV", 3) != 0) continue;
        if (count >= VTFU_VPD_MAX_ENTRIES) return;
        const size_t len = strnlen(e.field, sizeof e.field);
        auto piece = [&](size_t at) { return at < len ? static_cast<int>(std::min<size_t>(2, len - at)) : 0; };
        char version[16];
        std::snprintf(version, sizeof version, "%.*s.%.*s.%.*s", piece(3), e.field + std::min<size_t>(3, len), piece(6),
                      e.field + std::min<size_t>(6, len), piece(9), e.field + std::min<size_t>(9, len));
        FillEntry(info.entries[count], 'R', 'M', reinterpret_cast<const uint8_t *>(version), sizeof version);
        ++count;
        return;
    }
}

// Keeps a version value: the bytes up to length or a NUL, cut to the size of
// the global, optionally without surrounding blanks.
void KeepMultiBootVersion(const uint8_t *data, uint32_t length, bool trim) {
    const char *text = reinterpret_cast<const char *>(data);
    size_t n = data ? strnlen(text, std::min<size_t>(length, sizeof gVpdMultiBootVersion - 1)) : 0;
    size_t from = 0;
    if (trim) {
        while (from < n && std::isspace(static_cast<unsigned char>(text[from]))) ++from;
        while (n > from && std::isspace(static_cast<unsigned char>(text[n - 1]))) --n;
    }
    if (n > from) std::memcpy(gVpdMultiBootVersion, text + from, n - from);
    gVpdMultiBootVersion[n - from] = '\0';
}

// Where the structure walk of a block found things, all indexes into it.
struct VpdLayout {
    size_t start = kNone;    // the 0x82 tag
    size_t endTag = kNone;   // the 0x78 tag
    size_t entry = kNone;    // the keyword entry to edit
    size_t section = kNone;  // the section header holding it
    size_t rvByte = kNone;   // the RV checksum byte
};

// Walks the resources from the first 0x82 tag.  False when a resource or an
// entry runs past size or past its section, or no end tag is met.
bool WalkVpd(const uint8_t *b, size_t size, const char *keyword, VpdLayout &out) {
    const void *first = std::memchr(b, kIdentifierTag, size);
    out.start = static_cast<const uint8_t *>(first) - b;
    for (size_t pos = out.start; pos < size;) {
        const uint8_t tag = b[pos];
        if (tag == kEndTag) {
            out.endTag = pos;
            return true;
        }
        if ((tag & 0x80) == 0 || pos + 3 > size) return false;
        const size_t end = pos + 3 + Length16(b, size, pos);
        if (end > size) return false;
        if (tag == kReadOnlyTag || tag == kReadWriteTag) {
            for (size_t k = pos + 3; k < end; k += 3 + b[k + 2]) {
                if (k + 3 > end || k + 3 + b[k + 2] > end) return false;
                if (out.entry == kNone && b[k] == uint8_t(keyword[0]) && b[k + 1] == uint8_t(keyword[1])) {
                    out.entry = k;
                    out.section = pos;
                }
                if (tag == kReadOnlyTag && out.rvByte == kNone && b[k] == 'R' && b[k + 1] == 'V' && b[k + 2] > 0)
                    out.rvByte = k + 3;
            }
        }
        pos = end;
    }
    return false;
}

}  // namespace

extern "C" {

char gVpdMultiBootVersion[VTFU_MULTIBOOT_VERSION_SIZE];

VTAPI_EXPORT uint32_t vtfuVerifyVpdStartTag(const uint8_t *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) return VTFU_VPD_TAG_NOT_FOUND;
    return std::memchr(buffer, kIdentifierTag, size) ? 0 : VTFU_VPD_TAG_NOT_FOUND;
}

VTAPI_EXPORT uint32_t vtfuVerifyVpdEndTag(const uint8_t *buffer, uint32_t *index, uint32_t size) {
    if (buffer == nullptr || size == 0) return VTFU_VPD_TAG_NOT_FOUND;
    const void *found = std::memchr(buffer, kEndTag, size);
    if (found == nullptr) return VTFU_VPD_TAG_NOT_FOUND;
    if (index != nullptr) *index = static_cast<uint32_t>(static_cast<const uint8_t *>(found) - buffer);
    return 0;
}

VTAPI_EXPORT uint32_t vtfuIsBlankVpd(const uint8_t *buffer, uint32_t size) {
    LogDebug(__FILE__, __LINE__, "IsBlankVpd: Enter");
    uint32_t blank = 0;
    if (buffer != nullptr) {
        // The first byte decides, and is read even when size is 0.
        const uint8_t first = buffer[0];
        if (first == 0x00 || first == 0xFF) {
            blank = 1;
            for (uint32_t i = 1; i < size; ++i)
                if (buffer[i] != first) {
                    blank = 0;
                    break;
                }
        }
    }
    LogDebug(__FILE__, __LINE__, "IsBlankVpd: Exit, bVpdIsBlank=%d", static_cast<int>(blank));
    return blank;
}

VTAPI_EXPORT const char *vtfuGetVPDFieldDescripton(const char *keyword) {
    std::memset(gDescriptionScratch, '0', sizeof gDescriptionScratch);
    if (keyword != nullptr)
        for (const Label &l : kLabels)
            if (std::strncmp(keyword, l.keyword, 2) == 0) return l.text;
    return "UNKNOWN";
}

VTAPI_EXPORT uint32_t vtfuGetVPDInfoFromBuf(const uint8_t *buffer, uint32_t size, VPDInfo *result) {
    if (result == nullptr) return VTAPI_INVALID_ARGUMENT;
    std::memset(result, 0, sizeof *result);
    if (uint32_t rc = vtfuVerifyVpdStartTag(buffer, size)) {
        LogDebug(__FILE__, __LINE__, "vtfuGetVPDInfoFromBuf() : No start tag found");
        return rc;
    }
    if (uint32_t rc = vtfuVerifyVpdEndTag(buffer, nullptr, size)) {
        LogDebug(__FILE__, __LINE__, "vtfuGetVPDInfoFromBuf() : No end tag found");
        return rc;
    }
    const size_t n = size;
    const size_t start = static_cast<const uint8_t *>(std::memchr(buffer, kIdentifierTag, n)) - buffer;

    // Entry 0: the identifier string, cut to 255 and then to the field.
    const size_t idLength = Length16(buffer, n, start);
    const size_t idFrom = std::min(start + 3, n);
    char identifier[kIdentifierLimit + 1];
    CopyText(identifier, sizeof identifier, buffer + idFrom, std::min(idLength, n - idFrom));
    FillEntry(result->entries[0], '0', '0', reinterpret_cast<const uint8_t *>(identifier), sizeof identifier);
    LogDebug(__FILE__, __LINE__, "vtfuGetVPDInfoFromBuf: Tag:00, Field:%s", identifier);
    uint32_t count = 1;

    // The section that follows: keyword entries up to its end or a 0x78.
    const size_t section = start + 3 + idLength;
    if (section + 3 <= n && buffer[section] != kEndTag) {
        const size_t end = std::min(section + 3 + Length16(buffer, n, section), n);
        for (size_t k = section + 3; k + 3 <= end && buffer[k] != kEndTag && count < VTFU_VPD_MAX_ENTRIES;
             k += 3 + buffer[k + 2]) {
            const uint8_t len = buffer[k + 2];
            VPDEntry &e = result->entries[count];
            FillEntry(e, char(buffer[k]), char(buffer[k + 1]), buffer + k + 3, std::min<size_t>(len, n - (k + 3)));
            LogDebug(__FILE__, __LINE__, "vtfuGetVPDInfoFromBuf: i=%d len=%d Tag:%s, Field:%s", static_cast<int>(count),
                     static_cast<int>(len), e.tag, e.field);
            ++count;
        }
    }
    AddSyntheticRm(*result, count);
    result->count = count;
    LogDebug(__FILE__, __LINE__, "vtfuGetVPDInfoFromBuf: Num VPD Entries Total=%d", static_cast<int>(count));
    return 0;
}

VTAPI_EXPORT uint32_t vtfuUpdateVpdField(uint8_t *buffer, uint32_t size, const char *keyword, const uint8_t *value,
                                         uint32_t valueLength) {
    char key[3] = "";
    if (keyword != nullptr) CopyText(key, sizeof key, reinterpret_cast<const uint8_t *>(keyword), sizeof key);
    // The new value, kept aside: it may point into the block itself.
    uint8_t data[256];
    const uint32_t kept = value != nullptr ? std::min<uint32_t>(valueLength, sizeof data) : 0;
    if (kept > 0) std::memcpy(data, value, kept);
    char shown[sizeof data + 1];
    CopyText(shown, sizeof shown, data, kept);
    LogDebug(__FILE__, __LINE__, "UpdateVpdField: Enter opcode=%s, Field data=%s", key, shown);

    if (buffer == nullptr || keyword == nullptr || strnlen(keyword, 3) != 2 || std::strcmp(key, "RV") == 0 ||
        (value == nullptr && valueLength > 0) || valueLength > 255)
        return VTAPI_INVALID_ARGUMENT;
    if (vtfuVerifyVpdStartTag(buffer, size) != 0) {
        LogDebug(__FILE__, __LINE__, "UpdateVpdField: No start tag found");
        return VTFU_VPD_TAG_NOT_FOUND;
    }
    VpdLayout at;
    if (!WalkVpd(buffer, size, key, at) || at.rvByte == kNone) return VTFU_VPD_TAG_NOT_FOUND;
    if (at.entry == kNone) return VTAPI_GENERAL_FAILURE;

    // Room: the block through its end tag must stay within size, and the
    // section length within 16 bits.
    const size_t oldLength = buffer[at.entry + 2];
    const size_t blockEnd = at.endTag + 1;
    const size_t sectionLength = Length16(buffer, size, at.section);
    if (valueLength > oldLength &&
        (blockEnd + (valueLength - oldLength) > size || sectionLength + (valueLength - oldLength) > 0xFFFF))
        return VTAPI_GENERAL_FAILURE;

    const size_t dataPos = at.entry + 3;
    const size_t newSection = sectionLength + valueLength - oldLength;
    std::memmove(buffer + dataPos + valueLength, buffer + dataPos + oldLength, blockEnd - (dataPos + oldLength));
    if (valueLength < oldLength) std::memset(buffer + blockEnd - (oldLength - valueLength), 0, oldLength - valueLength);
    if (valueLength > 0) std::memcpy(buffer + dataPos, data, valueLength);
    buffer[at.entry + 2] = static_cast<uint8_t>(valueLength);
    buffer[at.section + 1] = static_cast<uint8_t>(newSection & 0xFF);
    buffer[at.section + 2] = static_cast<uint8_t>(newSection >> 8);
    if (at.rvByte > at.entry) at.rvByte = at.rvByte + valueLength - oldLength;

    // Every byte from the start of the block through the RV byte sums to 0.
    uint8_t sum = 0;
    for (size_t i = at.start; i < at.rvByte; ++i) sum = static_cast<uint8_t>(sum + buffer[i]);
    buffer[at.rvByte] = static_cast<uint8_t>(-sum);
    return 0;
}

VTAPI_EXPORT void PrintVPDField(const char *keyword, const uint8_t *data, uint32_t length) {
    if (keyword == nullptr) return;
    if (data == nullptr) length = 0;
    char shown[VTFU_VPD_FIELD_SIZE];
    CopyText(shown, sizeof shown, data, length);
    char key[3];
    CopyText(key, sizeof key, reinterpret_cast<const uint8_t *>(keyword), 2);
    LogDebug(__FILE__, __LINE__, "PrintVPDField: %s len=%u %s", key, length, shown);
    if (std::strncmp(keyword, "RM", 2) == 0 || std::strncmp(keyword, "V9", 2) == 0)
        KeepMultiBootVersion(data, length, true);
    else if (std::strncmp(keyword, "VV", 2) == 0) KeepMultiBootVersion(data, length, false);
}

VTAPI_EXPORT void PrintVPD(const uint8_t *buffer, uint32_t size) {
    if (buffer == nullptr) return;
    const size_t n = size;
    for (size_t pos = 0; pos < n;) {
        const uint8_t tag = buffer[pos];
        if (tag == kEndTag) {
            LogDebug(__FILE__, __LINE__, "PrintVPD: end tag at %zu", pos);
            break;
        }
        if (tag == 0) {
            pos += 3;
            continue;
        }
        size_t length = 0;
        if (tag == kIdentifierTag) length = Length16(buffer, n, pos);
        else if (tag != kReadOnlyTag && tag != kReadWriteTag) length = pos + 2 < n ? buffer[pos + 2] : 0;
        const char keyword[3] = {char(tag), pos + 1 < n ? char(buffer[pos + 1]) : '\0', '\0'};
        const size_t from = pos + 3;
        const size_t available = from < n ? std::min(length, n - from) : 0;
        PrintVPDField(keyword, available ? buffer + from : nullptr, static_cast<uint32_t>(available));
        pos = from + length;
    }
}

}  // extern "C"
