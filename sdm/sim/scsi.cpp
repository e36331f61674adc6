#include "scsi.h"

#include <cstring>

#include "wire.h"

namespace vtsdm::scsi {

using wire::PutBe;
using wire::PutText;

std::vector<uint8_t> Sense(uint8_t key, uint8_t asc, uint8_t ascq) { return wire::FixedSense(key, asc, ascq); }

std::vector<uint8_t> ReportLuns(const Target &t) {
    const uint32_t n = t.lunCount();
    std::vector<uint8_t> b(8 + size_t(n) * 8, 0);
    PutBe(b, 0, uint64_t(n) * 8, 4);
    size_t at = 8;
    auto put = [&](uint16_t number, bool flat) {
        if (flat) {
            b[at] = uint8_t(0x40 | ((number >> 8) & 0x3F));
            b[at + 1] = uint8_t(number & 0xFF);
        } else {
            b[at + 1] = uint8_t(number & 0xFF);
        }
        at += 8;
    };
    for (const Lun &l : t.luns) put(l.number, l.flat);
    if (t.range)
        for (uint32_t i = 0; i < t.range->count; ++i) {
            uint16_t num = uint16_t(t.range->start + i);
            put(num, t.range->model.flat || num > 255);
        }
    return b;
}

std::vector<uint8_t> StandardInquiry(const InquiryData &d, bool removable) {
    std::vector<uint8_t> b(36, 0);
    b[0] = uint8_t((d.qualifier << 5) | (d.type & 0x1F));
    b[1] = removable ? 0x80 : 0x00;
    b[2] = 0x06;  // SPC-4
    b[3] = 0x02;  // response data format
    b[4] = 31;    // additional length
    b[7] = 0x02;  // command queueing
    PutText(b, 8, d.vendor, 8);
    PutText(b, 16, d.product, 16);
    PutText(b, 32, d.revision, 4);
    return b;
}

std::vector<uint8_t> NoLunInquiry() {
    InquiryData d;
    d.qualifier = 3;
    d.type = 0x1F;
    return StandardInquiry(d, false);
}

bool VpdPage(uint8_t page, const Target &t, const Lun &l, std::vector<uint8_t> &out) {
    const uint8_t head = uint8_t((l.inquiry.qualifier << 5) | (l.inquiry.type & 0x1F));
    switch (page) {
    case 0x00: out = {head, 0x00, 0x00, 3, 0x00, 0x80, 0x83}; return true;
    case 0x80: {
        char serial[32];
        snprintf(serial, sizeof serial, "%016llX%04X", static_cast<unsigned long long>(t.wwpn), l.number);
        out.assign(4, 0);
        out[0] = head;
        out[1] = 0x80;
        out[3] = uint8_t(strlen(serial));
        out.insert(out.end(), serial, serial + strlen(serial));
        return true;
    }
    case 0x83: {
        // One NAA 6 (registered extended) designator: 16 bytes.
        out.assign(4 + 4 + 16, 0);
        out[0] = head;
        out[1] = 0x83;
        out[3] = 4 + 16;
        out[4] = 0x01;  // binary code set
        out[5] = 0x03;  // association LUN, designator type NAA
        out[7] = 16;
        std::vector<uint8_t> id(16, 0);
        PutBe(id, 0, 0x6000000000000000ull | (t.wwnn & 0x0FFFFFFFFFFFFFFFull), 8);
        PutBe(id, 8, (t.wwpn << 16) | l.number, 8);
        std::copy(id.begin(), id.end(), out.begin() + 8);
        return true;
    }
    default: return false;
    }
}

std::vector<uint8_t> ReadCapacity10(const Lun &l) {
    std::vector<uint8_t> b(8, 0);
    uint64_t last = l.blocks ? l.blocks - 1 : 0;
    PutBe(b, 0, last >= 0xFFFFFFFFull ? 0xFFFFFFFFull : last, 4);
    PutBe(b, 4, l.blockSize, 4);
    return b;
}

std::vector<uint8_t> ReadCapacity16(const Lun &l) {
    std::vector<uint8_t> b(32, 0);
    PutBe(b, 0, l.blocks ? l.blocks - 1 : 0, 8);
    PutBe(b, 8, l.blockSize, 4);
    return b;
}

}  // namespace vtsdm::scsi
