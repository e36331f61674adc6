// Feeds arbitrary bytes to the VPD checks, parser, walker and editor.  Every
// call gets an exactly sized heap copy so that any read past the given size
// is caught; the editor's results are checked for their own invariants.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "oss/oss.h"
#include "flash/vpd.h"

// The VPD code logs through LogDebug; here the line is formatted (so that a
// bad argument still shows) and dropped.
extern "C" void LogDebug(const char *, uint32_t, const char *format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
}

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// Sum of the bytes from the first 0x82 through the RV checksum byte, found
// by walking the resources as the PCI format lays them out.
bool ChecksumOk(const std::vector<uint8_t> &b) {
    size_t pos = 0;
    while (pos < b.size() && b[pos] != 0x82) ++pos;
    const size_t start = pos;
    while (pos + 3 <= b.size() && b[pos] != 0x78) {
        const size_t end = pos + 3 + (b[pos + 1] | (b[pos + 2] << 8));
        if (b[pos] == 0x90)
            for (size_t k = pos + 3; k + 3 <= end && k + 3 < b.size(); k += 3 + b[k + 2])
                if (b[k] == 'R' && b[k + 1] == 'V' && b[k + 2] > 0) {
                    uint8_t sum = 0;
                    for (size_t i = start; i <= k + 3; ++i) sum = uint8_t(sum + b[i]);
                    return sum == 0;
                }
        pos = end;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    const uint32_t n = uint32_t(size);
    std::unique_ptr<uint8_t[]> copy(new uint8_t[size ? size : 1]);
    if (size) std::memcpy(copy.get(), data, size);
    const uint8_t *b = size ? copy.get() : nullptr;

    vtfuVerifyVpdStartTag(b, n);
    uint32_t index = 0;
    if (vtfuVerifyVpdEndTag(b, &index, n) == 0) Check(index < n && b[index] == 0x78);
    if (size) vtfuIsBlankVpd(b, n);
    const uint8_t one = size ? data[0] : 0;
    vtfuIsBlankVpd(&one, 0);

    VPDInfo info;
    if (vtfuGetVPDInfoFromBuf(b, n, &info) == 0) {
        Check(info.count >= 1 && info.count <= VTFU_VPD_MAX_ENTRIES);
        for (uint32_t i = 0; i < info.count; ++i) {
            const VPDEntry &e = info.entries[i];
            Check(strnlen(e.tag, sizeof e.tag) <= 2 && strnlen(e.field, sizeof e.field) < sizeof e.field &&
                  strnlen(e.description, sizeof e.description) < sizeof e.description);
        }
    } else {
        Check(info.count == 0);
    }
    PrintVPD(b, n);
    Check(strnlen(gVpdMultiBootVersion, sizeof gVpdMultiBootVersion) < sizeof gVpdMultiBootVersion);

    // Edit the first parsed keyword (or "SN") with a value whose length and
    // contents come from the input, in a buffer with some room to grow.
    const char *keyword = info.count > 1 ? info.entries[1].tag : "SN";
    const uint32_t valueLength = size ? data[size - 1] % 48 : 0;
    const uint32_t room = uint32_t(size * 7 % 64);
    std::vector<uint8_t> value(valueLength + 1, uint8_t('A' + size % 26));
    std::vector<uint8_t> block(size + room, 0);
    if (size) std::memcpy(block.data(), data, size);
    const std::vector<uint8_t> before = block;
    std::unique_ptr<uint8_t[]> exact(new uint8_t[block.size() ? block.size() : 1]);
    if (!block.empty()) std::memcpy(exact.get(), block.data(), block.size());
    const uint32_t rc = vtfuUpdateVpdField(block.empty() ? nullptr : exact.get(), uint32_t(block.size()), keyword,
                                           value.data(), valueLength);
    std::vector<uint8_t> after(exact.get(), exact.get() + block.size());
    if (rc != 0) {
        Check(after == before);
    } else {
        Check(ChecksumOk(after));
        // Writing the same value again changes nothing.
        std::vector<uint8_t> again = after;
        Check(vtfuUpdateVpdField(again.data(), uint32_t(again.size()), keyword, value.data(), valueLength) == 0);
        Check(again == after);
    }
    return 0;
}
