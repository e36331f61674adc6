#include "pci_vpd.h"

namespace vtsdm::linuxfc {

namespace {

constexpr uint8_t kTagIdentifier = 0x82;
constexpr uint8_t kTagReadOnly = 0x90;
constexpr uint8_t kTagEnd = 0x78;

// One resource: its tag, where its data starts and how long it is; false
// when the header or the data runs past the end.
bool NextResource(const std::vector<uint8_t> &v, size_t at, uint8_t &tag, size_t &data, size_t &len) {
    if (at >= v.size()) return false;
    tag = v[at];
    if (tag & 0x80) {  // large resource: tag, 16-bit little-endian length
        if (at + 3 > v.size()) return false;
        len = size_t(v[at + 1]) | size_t(v[at + 2]) << 8;
        data = at + 3;
    } else {  // small resource: length in the low three bits
        len = tag & 0x07;
        tag &= 0x78;
        data = at + 1;
    }
    return data + len <= v.size();
}

}  // namespace

size_t VpdLength(const std::vector<uint8_t> &vpd) {
    size_t at = 0, data = 0, len = 0;
    uint8_t tag = 0;
    while (NextResource(vpd, at, tag, data, len)) {
        if (tag == kTagEnd) return data + len;
        at = data + len;
    }
    return vpd.size();
}

VpdFields ParseVpd(const std::vector<uint8_t> &vpd) {
    VpdFields out;
    size_t at = 0, data = 0, len = 0;
    uint8_t tag = 0;
    while (NextResource(vpd, at, tag, data, len) && tag != kTagEnd) {
        if (tag == kTagIdentifier) {
            out.identifier.assign(vpd.begin() + long(data), vpd.begin() + long(data + len));
            while (!out.identifier.empty() && (out.identifier.back() == ' ' || out.identifier.back() == '\0'))
                out.identifier.pop_back();
        } else if (tag == kTagReadOnly) {
            size_t k = data;
            while (k + 3 <= data + len) {
                const std::string key{char(vpd[k]), char(vpd[k + 1])};
                const size_t n = vpd[k + 2];
                if (k + 3 + n > data + len) break;
                if (key != "RV") {
                    std::string value(vpd.begin() + long(k + 3), vpd.begin() + long(k + 3 + n));
                    while (!value.empty() && (value.back() == ' ' || value.back() == '\0')) value.pop_back();
                    out.keywords.emplace(key, value);
                }
                k += 3 + n;
            }
        }
        at = data + len;
    }
    return out;
}

}  // namespace vtsdm::linuxfc
