#include "imagebuild.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace vtsdm::image {

namespace {

void PutLe16(std::vector<uint8_t> &buf, size_t at, uint16_t v) {
    buf.at(at + 1) = static_cast<uint8_t>(v >> 8);
    buf[at] = static_cast<uint8_t>(v);
}

void PutLe32(std::vector<uint8_t> &buf, size_t at, uint32_t v) {
    PutLe16(buf, at, static_cast<uint16_t>(v));
    PutLe16(buf, at + 2, static_cast<uint16_t>(v >> 16));
}

void PutBe32(std::vector<uint8_t> &buf, size_t at, uint32_t v) {
    buf.at(at + 3) = static_cast<uint8_t>(v);
    buf[at + 2] = static_cast<uint8_t>(v >> 8);
    buf[at + 1] = static_cast<uint8_t>(v >> 16);
    buf[at] = static_cast<uint8_t>(v >> 24);
}

// Offsets and lengths in the layout table are two 16-bit halves, low first.
void PutSplit32(std::vector<uint8_t> &buf, size_t at, uint32_t v) {
    PutLe16(buf, at, static_cast<uint16_t>(v & 0xFFFF));
    PutLe16(buf, at + 2, static_cast<uint16_t>(v >> 16));
}

void PutText(std::vector<uint8_t> &buf, size_t at, std::string_view text) {
    if (at + text.size() > buf.size())
        throw std::invalid_argument("text does not fit its field");
    std::copy(text.begin(), text.end(), buf.begin() + static_cast<std::ptrdiff_t>(at));
}

uint16_t Sum16(const std::vector<uint8_t> &buf, size_t from, size_t bytes) {
    uint16_t sum = 0;
    for (size_t i = 0; i + 1 < bytes; i += 2)
        sum = static_cast<uint16_t>(sum + (buf[from + i] | (buf[from + i + 1] << 8)));
    return sum;
}

uint32_t Sum32(const std::vector<uint8_t> &buf, size_t from, size_t bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 3 < bytes; i += 4)
        sum += static_cast<uint32_t>(buf[from + i]) | (static_cast<uint32_t>(buf[from + i + 1]) << 8) |
               (static_cast<uint32_t>(buf[from + i + 2]) << 16) |
               (static_cast<uint32_t>(buf[from + i + 3]) << 24);
    return sum;
}

// Deterministic, non-uniform filler so that payloads differ from each other
// and from blank flash.
void Fill(std::vector<uint8_t> &buf, size_t from, size_t to, uint32_t start) {
    uint32_t x = start * 2654435761u + 0x9E3779B9u;
    for (size_t i = from; i < to && i < buf.size(); ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        buf[i] = static_cast<uint8_t>(x);
    }
}

uint32_t PatternStart(Version v, uint32_t salt) {
    return (static_cast<uint32_t>(v.major) << 16 | static_cast<uint32_t>(v.minor) << 8 | v.subminor) ^
           (salt << 24) ^ salt;
}

std::optional<std::vector<uint8_t>> ParseFields(std::string_view text, size_t maxFields) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n'))
        text.remove_suffix(1);
    std::vector<uint8_t> fields;
    while (true) {
        size_t dot = text.find('.');
        std::string_view part = text.substr(0, dot);
        unsigned value = 0;
        auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (part.empty() || ec != std::errc() || end != part.data() + part.size() || value > 255)
            return std::nullopt;
        fields.push_back(static_cast<uint8_t>(value));
        if (fields.size() > maxFields)
            return std::nullopt;
        if (dot == std::string_view::npos)
            break;
        text.remove_prefix(dot + 1);
    }
    fields.resize(maxFields, 0);
    return fields;
}

size_t RoundUp(size_t v, size_t unit) { return (v + unit - 1) / unit * unit; }

// ROM header of 0x1C bytes, PCI data structure right behind it.
constexpr size_t kPcirOffset = 0x1C;
constexpr size_t kPcirLength = 0x1C;

void BuildRomImage(std::vector<uint8_t> &out, CodeType type, const BootImage &img, bool last,
                   uint16_t vendorId, uint16_t deviceId, std::string_view chipId) {
    size_t size = img.size != 0 ? RoundUp(img.size, 512) : (type == CodeType::Efi ? 8192 : 4096);
    // The size byte at offset 2 is read as a signed count of 512-byte units.
    if (size > 127 * 512)
        throw std::invalid_argument("expansion-ROM image larger than 63.5 KiB");
    const size_t units = size / 512;
    std::vector<uint8_t> rom(size, 0);
    rom[0] = 0x55;
    rom[1] = 0xAA;
    rom[2] = static_cast<uint8_t>(units);
    if (type == CodeType::Efi) {
        PutLe32(rom, 4, 0x0EF1);   // EFI image signature
        PutLe16(rom, 8, 0x0B);     // boot service driver
        PutLe16(rom, 0x0A, 0x8664);
        PutLe16(rom, 0x16, kPcirOffset + kPcirLength);  // EFI image header offset
        PutText(rom, kPcirOffset + kPcirLength, "MZ");
    } else if (!chipId.empty()) {
        PutText(rom, 9, chipId.substr(0, 4));
    }
    PutLe16(rom, 0x18, kPcirOffset);
    const size_t p = kPcirOffset;
    PutText(rom, p, "PCIR");
    PutLe16(rom, p + 4, vendorId);
    PutLe16(rom, p + 6, deviceId);
    PutLe16(rom, p + 0x0A, kPcirLength);
    rom[p + 0x0C] = 3;                  // data structure revision
    rom[p + 0x0E] = 0x04;               // class: serial bus, Fibre Channel
    rom[p + 0x0F] = 0x0C;
    PutLe16(rom, p + 0x10, static_cast<uint16_t>(units));
    PutLe16(rom, p + 0x12, static_cast<uint16_t>(img.version.major << 8 | img.version.minor));
    rom[p + 0x14] = static_cast<uint8_t>(type);
    rom[p + 0x15] = last ? 0x80 : 0x00;
    PutLe16(rom, p + 0x16, static_cast<uint16_t>(units));
    Fill(rom, 0x80, size - 2, PatternStart(img.version, static_cast<uint32_t>(type) + 1));
    uint8_t sum = 0;
    for (size_t i = 0; i < size - 2; ++i)
        sum = static_cast<uint8_t>(sum + rom[i]);
    rom[size - 2] = 0;
    rom[size - 1] = static_cast<uint8_t>(-sum);
    out.insert(out.end(), rom.begin(), rom.end());
}

void AppendVpdFields(std::vector<uint8_t> &out, const VpdFields &fields) {
    for (const auto &[key, value] : fields) {
        if (key == "RV")
            continue;
        if (key.size() != 2)
            throw std::invalid_argument("VPD keyword must have two characters: " + key);
        if (value.size() > 255)
            throw std::invalid_argument("VPD value longer than 255 bytes: " + key);
        out.push_back(static_cast<uint8_t>(key[0]));
        out.push_back(static_cast<uint8_t>(key[1]));
        out.push_back(static_cast<uint8_t>(value.size()));
        out.insert(out.end(), value.begin(), value.end());
    }
}

void SetVpdLength(std::vector<uint8_t> &out, size_t tagAt) {
    const size_t len = out.size() - tagAt - 3;
    if (len > 0xFFFF)
        throw std::invalid_argument("VPD section longer than 65535 bytes");
    PutLe16(out, tagAt + 1, static_cast<uint16_t>(len));
}

constexpr size_t kIltSlot = 32;
constexpr size_t kPayloadAlign = 16;

}  // namespace

std::optional<Version> ParseVersion(std::string_view text) {
    auto f = ParseFields(text, 3);
    if (!f)
        return std::nullopt;
    return Version{(*f)[0], (*f)[1], (*f)[2]};
}

std::optional<FfvVersion> ParseFfvVersion(std::string_view text) {
    auto f = ParseFields(text, 4);
    if (!f)
        return std::nullopt;
    return FfvVersion{(*f)[0], (*f)[1], (*f)[2], (*f)[3]};
}

std::vector<uint8_t> BuildRiscFirmware(Version v, uint32_t attributeWord, size_t totalSize) {
    if (totalSize < 128)
        throw std::invalid_argument("RISC firmware smaller than its header");
    std::vector<uint8_t> fw(totalSize, 0);
    Fill(fw, 128, totalSize, PatternStart(v, attributeWord));
    PutBe32(fw, 16, v.major);
    PutBe32(fw, 20, v.minor);
    PutBe32(fw, 24, v.subminor);
    PutBe32(fw, 32, attributeWord);
    return fw;
}

std::vector<uint8_t> BuildExpansionRomChain(const BootImages &b, uint16_t vendorId,
                                            uint16_t deviceId) {
    struct Part {
        CodeType type;
        const BootImage *img;
    };
    std::vector<Part> parts;
    if (b.bios)
        parts.push_back({CodeType::Bios, &*b.bios});
    if (b.fcode)
        parts.push_back({CodeType::FCode, &*b.fcode});
    if (b.efi)
        parts.push_back({CodeType::Efi, &*b.efi});
    std::vector<uint8_t> out;
    for (size_t i = 0; i < parts.size(); ++i)
        BuildRomImage(out, parts[i].type, *parts[i].img, i + 1 == parts.size(), vendorId, deviceId,
                      i == 0 ? std::string_view(b.chipId) : std::string_view());
    return out;
}

std::vector<uint8_t> BuildVpd(const std::string &identifier, const VpdFields &readOnly,
                              const VpdFields &readWrite) {
    if (identifier.size() > 0xFFFF)
        throw std::invalid_argument("VPD identifier too long");
    // Sized first: growing a 3-byte vector here makes GCC 12 at -O3 warn
    // falsely (-Warray-bounds).
    std::vector<uint8_t> out(3 + identifier.size());
    out[0] = 0x82;
    std::copy(identifier.begin(), identifier.end(), out.begin() + 3);
    SetVpdLength(out, 0);

    const size_t ro = out.size();
    out.insert(out.end(), {0x90, 0, 0});
    AppendVpdFields(out, readOnly);
    out.insert(out.end(), {'R', 'V', 1, 0});
    SetVpdLength(out, ro);
    uint8_t sum = 0;
    for (uint8_t c : out)
        sum = static_cast<uint8_t>(sum + c);
    out.back() = static_cast<uint8_t>(-sum);

    if (!readWrite.empty()) {
        const size_t rw = out.size();
        out.insert(out.end(), {0x91, 0, 0});
        AppendVpdFields(out, readWrite);
        SetVpdLength(out, rw);
    }
    out.push_back(0x78);
    return out;
}

bool VpdChecksumOk(const std::vector<uint8_t> &vpd) {
    // Walk the resources: large ones carry a 2-byte length; the read-only
    // section is searched for the "RV" keyword.
    size_t pos = 0;
    while (pos + 3 <= vpd.size() && vpd[pos] != 0x78) {
        const uint8_t tag = vpd[pos];
        const size_t len = vpd[pos + 1] | (vpd[pos + 2] << 8);
        const size_t end = pos + 3 + len;
        if (end > vpd.size())
            return false;
        if (tag == 0x90) {
            for (size_t k = pos + 3; k + 3 <= end; k += 3 + vpd[k + 2]) {
                if (vpd[k] == 'R' && vpd[k + 1] == 'V') {
                    if (vpd[k + 2] == 0 || k + 3 >= end)
                        return false;
                    uint8_t sum = 0;
                    for (size_t i = 0; i <= k + 3; ++i)
                        sum = static_cast<uint8_t>(sum + vpd[i]);
                    return sum == 0;
                }
            }
            return false;
        }
        pos = end;
    }
    return false;
}

size_t MultiImageTableLength(const MultiImageSpec &in) {
    size_t len = (in.components.size() + 2) * kIltSlot + 8;
    for (const auto &list : in.cardLists)
        len += 8 + 8 * list.entries.size();
    return len;
}

std::vector<uint8_t> BuildMultiImage(const MultiImageSpec &in) {
    if (in.signature.size() != 4)
        throw std::invalid_argument("ILT signature must have four characters");
    const size_t n = in.components.size() + 1;  // region entries plus the time stamp
    if (n > 256)
        throw std::invalid_argument("too many ILT region entries");
    const size_t tableLength = MultiImageTableLength(in);
    if (tableLength > 0xFFFF)
        throw std::invalid_argument("ILT table longer than 65535 bytes");

    size_t total = RoundUp(tableLength, kPayloadAlign);
    std::vector<uint32_t> offsets;
    for (const auto &c : in.components) {
        offsets.push_back(static_cast<uint32_t>(total));
        total = RoundUp(total + c.payload.size(), kPayloadAlign);
    }
    if (total > 0xFFFFFFFFu)
        throw std::invalid_argument("multi-image container too large");
    std::vector<uint8_t> out(total, 0);

    PutText(out, 0, in.signature);
    PutLe16(out, 4, in.tableVersion);
    PutLe16(out, 6, static_cast<uint16_t>(tableLength));
    PutLe16(out, 10, static_cast<uint16_t>(n));
    out[13] = in.imageVersion.major;
    out[14] = in.imageVersion.minor;
    out[15] = in.imageVersion.subminor;
    out[16] = in.buildDate.month;
    out[17] = in.buildDate.day;
    PutLe16(out, 18, in.buildDate.year);
    std::copy(in.ffv.begin(), in.ffv.end(), out.begin() + 21);
    out[25] = in.activationLevel;

    for (size_t i = 0; i < in.components.size(); ++i) {
        const Component &c = in.components[i];
        const size_t e = (i + 1) * kIltSlot;
        PutLe16(out, e, c.regionType);
        out[e + 3] = c.version.major;
        out[e + 4] = c.version.minor;
        out[e + 5] = c.version.subminor;
        PutSplit32(out, e + 6, offsets[i]);
        PutSplit32(out, e + 10, static_cast<uint32_t>(c.payload.size()));
        PutLe16(out, e + 14, c.cardType);
        PutLe16(out, e + 16, c.chipRevision);
        std::copy(c.payload.begin(), c.payload.end(), out.begin() + offsets[i]);
    }

    const size_t ts = n * kIltSlot;
    PutLe16(out, ts + 6, in.buildDate.year);
    out[ts + 8] = in.buildDate.month;
    out[ts + 9] = in.buildDate.day;
    PutLe16(out, ts + 12, 0x1400);

    size_t at = ts + kIltSlot;
    PutLe16(out, at, static_cast<uint16_t>(in.cardLists.size()));
    at += 8;
    for (const auto &list : in.cardLists) {
        if (list.entries.size() > 1024)
            throw std::invalid_argument("card-type list with more than 1024 entries");
        PutLe16(out, at, list.cardType);
        PutLe16(out, at + 2, static_cast<uint16_t>(list.entries.size()));
        at += 8;
        for (const auto &card : list.entries) {
            PutLe16(out, at, card.vendorId);
            PutLe16(out, at + 2, card.deviceId);
            PutLe16(out, at + 4, card.subVendorId);
            PutLe16(out, at + 6, card.subSystemId);
            at += 8;
        }
    }
    PutLe16(out, 8, static_cast<uint16_t>(-Sum16(out, 0, tableLength)));
    return out;
}

std::vector<uint8_t> BuildFltLocator(uint32_t fltOffset) {
    std::vector<uint8_t> out(16, 0);
    PutText(out, 0, "VFLT");
    PutSplit32(out, 4, fltOffset);
    PutLe16(out, 8, 1);
    PutLe16(out, 10, static_cast<uint16_t>(-Sum16(out, 0, 16)));
    return out;
}

std::vector<uint8_t> BuildSignatureRegion(Version v, size_t size) {
    if (size < 392 || size % 4 != 0 || size > 0xFFFFFFFFu)
        throw std::invalid_argument("signature region size must be a multiple of 4, at least 392");
    std::vector<uint8_t> out(size, 0);
    Fill(out, 16, 388, PatternStart(v, 0x9E));
    PutLe32(out, 0, 0x534B3830);
    out[5] = v.subminor;
    out[6] = v.minor;
    out[7] = v.major;
    PutLe32(out, 12, static_cast<uint32_t>(size));
    PutLe32(out, 388, 0x534B3830);
    PutLe32(out, 8, static_cast<uint32_t>(0u - Sum32(out, 0, size)));
    return out;
}

std::vector<uint8_t> BuildNvmeBootRegion() {
    constexpr size_t kBlock = 2560;
    std::vector<uint8_t> out(16 * 1024, 0xFF);
    for (size_t port = 0; port < 4; ++port) {
        const size_t at = port * 4096;
        std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(at), kBlock, 0);
        PutLe32(out, at, 0x4D564E56);
        PutLe32(out, at + 4, 1);
        PutLe32(out, at + 8, kBlock);
        PutLe32(out, at + 12, static_cast<uint32_t>(0u - Sum32(out, at, kBlock)));
    }
    return out;
}

std::vector<FlashRegion> BuildFlashSet(const FlashSetSpec &in) {
    BootImages boot;
    if (in.bios)
        boot.bios = BootImage{*in.bios, 0};
    if (in.fcode)
        boot.fcode = BootImage{*in.fcode, 0};
    if (in.efi)
        boot.efi = BootImage{*in.efi, 0};
    boot.chipId = in.chipId;

    std::vector<FlashRegion> regions;
    MultiImageSpec mbi;
    mbi.imageVersion = in.multiboot;
    mbi.buildDate = in.buildDate;
    mbi.ffv = in.ffv;

    std::vector<uint8_t> chain = BuildExpansionRomChain(boot, kVendorId, in.deviceId);
    if (!chain.empty()) {
        const Version bootVersion = in.bios ? *in.bios : in.fcode ? *in.fcode : *in.efi;
        mbi.components.push_back({static_cast<uint16_t>(kRegionBootCode), bootVersion, 0, 0, chain});
        regions.push_back({kRegionBootCode, std::move(chain)});
    }
    std::vector<uint8_t> fw = BuildRiscFirmware(in.firmware, in.riscAttribute, in.firmwareSize);
    mbi.components.push_back({static_cast<uint16_t>(kRegionRiscFirmware), in.firmware, 0, 0, fw});
    regions.push_back({kRegionRiscFirmware, std::move(fw)});

    regions.push_back({kRegionVpd, BuildVpd(in.vpdIdentifier, in.vpdReadOnly, in.vpdReadWrite)});
    regions.push_back({kRegionGlobalNvram,
                       in.globalNvram.empty() ? std::vector<uint8_t>(512, 0) : in.globalNvram});
    for (uint32_t code : in.nvmeBootRegions)
        regions.push_back({code, BuildNvmeBootRegion()});

    const CardEntry card{kVendorId, in.deviceId, in.subVendorId, in.subSystemId};
    mbi.cardLists = {{0, {card}}, {1, {card}}};
    std::vector<uint8_t> table = BuildMultiImage(mbi);
    table.resize(MultiImageTableLength(mbi));
    regions.push_back({kRegionImageLayoutTable, std::move(table)});
    return regions;
}

}  // namespace vtsdm::image
