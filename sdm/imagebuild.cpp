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
    if (at + text.size() > buf.size()) throw std::invalid_argument("text does not fit its field");
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
               (static_cast<uint32_t>(buf[from + i + 2]) << 16) | (static_cast<uint32_t>(buf[from + i + 3]) << 24);
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
    return (static_cast<uint32_t>(v.major) << 16 | static_cast<uint32_t>(v.minor) << 8 | v.subminor) ^ (salt << 24) ^
           salt;
}

std::optional<std::vector<uint8_t>> ParseFields(std::string_view text, size_t maxFields) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n')) text.remove_suffix(1);
    std::vector<uint8_t> fields;
    while (true) {
        size_t dot = text.find('.');
        std::string_view part = text.substr(0, dot);
        unsigned value = 0;
        auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), value);
        if (part.empty() || ec != std::errc() || end != part.data() + part.size() || value > 255) return std::nullopt;
        fields.push_back(static_cast<uint8_t>(value));
        if (fields.size() > maxFields) return std::nullopt;
        if (dot == std::string_view::npos) break;
        text.remove_prefix(dot + 1);
    }
    fields.resize(maxFields, 0);
    return fields;
}

size_t RoundUp(size_t v, size_t unit) { return (v + unit - 1) / unit * unit; }

// ROM header of 0x1C bytes, PCI data structure right behind it.
constexpr size_t kPcirOffset = 0x1C;
constexpr size_t kPcirLength = 0x1C;
// A common BIOS image: its adapter-type code and its "MODL" mark.
constexpr size_t kCommonCodeAt = 20;
constexpr size_t kCommonMarkAt = 64;

// The option-ROM checksum of the image at `start`: the bytes before the
// last two sum, with the last byte, to zero; the byte before the last is 0.
void SetRomChecksum(std::span<uint8_t> rom, size_t start) {
    const size_t size = static_cast<size_t>(rom[start + 2]) * 512;
    if (size < 2 || start + size > rom.size()) throw std::invalid_argument("expansion-ROM image outside its buffer");
    uint8_t sum = 0;
    for (size_t i = start; i < start + size - 2; ++i) sum = static_cast<uint8_t>(sum + rom[i]);
    rom[start + size - 2] = 0;
    rom[start + size - 1] = static_cast<uint8_t>(-sum);
}

void BuildRomImage(std::vector<uint8_t> &out, const RomImageRecipe &img, bool last) {
    const bool efi = img.codeType == static_cast<uint8_t>(CodeType::Efi);
    size_t size = img.size != 0 ? RoundUp(img.size, 512) : (efi ? 8192 : 4096);
    // The size byte at offset 2 is read as a signed count of 512-byte units.
    if (size > 127 * 512) throw std::invalid_argument("expansion-ROM image larger than 63.5 KiB");
    const size_t units = size / 512;
    std::vector<uint8_t> rom(size, 0);
    rom[0] = 0x55;
    rom[1] = 0xAA;
    rom[2] = static_cast<uint8_t>(units);
    if (efi) {
        PutLe32(rom, 4, 0x0EF1);  // EFI image signature
        PutLe16(rom, 8, 0x0B);    // boot service driver
        PutLe16(rom, 0x0A, 0x8664);
        PutLe16(rom, 0x16, kPcirOffset + kPcirLength);  // EFI image header offset
        PutText(rom, kPcirOffset + kPcirLength, "MZ");
    } else if (!img.chipId.empty()) {
        PutText(rom, 9, std::string_view(img.chipId).substr(0, 4));
    }
    if (img.commonAdapterCode) {
        rom[kCommonCodeAt] = *img.commonAdapterCode;
        PutText(rom, kCommonMarkAt, "MODL");
    }
    PutLe16(rom, 0x18, kPcirOffset);
    const size_t p = kPcirOffset;
    PutText(rom, p, "PCIR");
    PutLe16(rom, p + 4, img.vendorId);
    PutLe16(rom, p + 6, img.deviceId);
    PutLe16(rom, p + 0x0A, kPcirLength);
    rom[p + 0x0C] = 3;     // data structure revision
    rom[p + 0x0E] = 0x04;  // class: serial bus, Fibre Channel
    rom[p + 0x0F] = 0x0C;
    PutLe16(rom, p + 0x10, static_cast<uint16_t>(units));
    PutLe16(rom, p + 0x12, static_cast<uint16_t>(img.version.major << 8 | img.version.minor));
    rom[p + 0x14] = img.codeType;
    rom[p + 0x15] = last ? 0x80 : 0x00;
    PutLe16(rom, p + 0x16, static_cast<uint16_t>(units));
    Fill(rom, 0x80, size - 2, PatternStart(img.version, static_cast<uint32_t>(img.codeType) + 1));
    SetRomChecksum(rom, 0);
    out.insert(out.end(), rom.begin(), rom.end());
}

void AppendVpdFields(std::vector<uint8_t> &out, const VpdFields &fields) {
    for (const auto &[key, value] : fields) {
        if (key == "RV") continue;
        if (key.size() != 2) throw std::invalid_argument("VPD keyword must have two characters: " + key);
        if (value.size() > 255) throw std::invalid_argument("VPD value longer than 255 bytes: " + key);
        out.push_back(static_cast<uint8_t>(key[0]));
        out.push_back(static_cast<uint8_t>(key[1]));
        out.push_back(static_cast<uint8_t>(value.size()));
        out.insert(out.end(), value.begin(), value.end());
    }
}

void SetVpdLength(std::vector<uint8_t> &out, size_t tagAt) {
    const size_t len = out.size() - tagAt - 3;
    if (len > 0xFFFF) throw std::invalid_argument("VPD section longer than 65535 bytes");
    PutLe16(out, tagAt + 1, static_cast<uint16_t>(len));
}

constexpr size_t kIltSlot = 32;
constexpr size_t kPayloadAlign = 16;

}  // namespace

std::optional<Version> ParseVersion(std::string_view text) {
    auto f = ParseFields(text, 3);
    if (!f) return std::nullopt;
    return Version{(*f)[0], (*f)[1], (*f)[2]};
}

std::optional<FfvVersion> ParseFfvVersion(std::string_view text) {
    auto f = ParseFields(text, 4);
    if (!f) return std::nullopt;
    return FfvVersion{(*f)[0], (*f)[1], (*f)[2], (*f)[3]};
}

std::vector<uint8_t> BuildRiscFirmware(Version v, uint32_t attributeWord, size_t totalSize) {
    if (totalSize < 128) throw std::invalid_argument("RISC firmware smaller than its header");
    std::vector<uint8_t> fw(totalSize, 0);
    Fill(fw, 128, totalSize, PatternStart(v, attributeWord));
    PutBe32(fw, 16, v.major);
    PutBe32(fw, 20, v.minor);
    PutBe32(fw, 24, v.subminor);
    PutBe32(fw, 32, attributeWord);
    return fw;
}

std::vector<uint8_t> BuildRomChain(const std::vector<RomImageRecipe> &images) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i < images.size(); ++i) BuildRomImage(out, images[i], i + 1 == images.size());
    return out;
}

std::vector<uint8_t> BuildExpansionRomChain(const BootImages &b, uint16_t vendorId, uint16_t deviceId) {
    std::vector<RomImageRecipe> images;
    auto add = [&](CodeType type, const std::optional<BootImage> &img) {
        if (!img) return;
        RomImageRecipe r;
        r.codeType = static_cast<uint8_t>(type);
        r.version = img->version;
        r.size = img->size;
        r.vendorId = vendorId;
        r.deviceId = deviceId;
        if (images.empty()) r.chipId = b.chipId;
        images.push_back(r);
    };
    add(CodeType::Bios, b.bios);
    add(CodeType::FCode, b.fcode);
    add(CodeType::Efi, b.efi);
    return BuildRomChain(images);
}

std::vector<uint8_t> BuildVpd(const std::string &identifier, const VpdFields &readOnly, const VpdFields &readWrite) {
    if (identifier.size() > 0xFFFF) throw std::invalid_argument("VPD identifier too long");
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
    for (uint8_t c : out) sum = static_cast<uint8_t>(sum + c);
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
        if (end > vpd.size()) return false;
        if (tag == 0x90) {
            for (size_t k = pos + 3; k + 3 <= end; k += 3 + vpd[k + 2]) {
                if (vpd[k] == 'R' && vpd[k + 1] == 'V') {
                    if (vpd[k + 2] == 0 || k + 3 >= end) return false;
                    uint8_t sum = 0;
                    for (size_t i = 0; i <= k + 3; ++i) sum = static_cast<uint8_t>(sum + vpd[i]);
                    return sum == 0;
                }
            }
            return false;
        }
        pos = end;
    }
    return false;
}

size_t MultiImageTableLength(const MultiImageRecipe &in) {
    size_t len = (in.components.size() + 2) * kIltSlot + 8;
    for (const auto &list : in.cardLists) len += 8 + 8 * list.entries.size();
    return len;
}

std::vector<uint8_t> BuildMultiImage(const MultiImageRecipe &in) {
    if (in.signature.size() != 4) throw std::invalid_argument("ILT signature must have four characters");
    const size_t n = in.components.size() + 1;  // region entries plus the time stamp
    if (n > 256) throw std::invalid_argument("too many ILT region entries");
    const size_t tableLength = MultiImageTableLength(in);
    if (tableLength > 0xFFFF) throw std::invalid_argument("ILT table longer than 65535 bytes");

    size_t total = RoundUp(tableLength, kPayloadAlign);
    std::vector<uint32_t> offsets;
    for (const auto &c : in.components) {
        offsets.push_back(static_cast<uint32_t>(total));
        total = RoundUp(total + c.payload.size(), kPayloadAlign);
    }
    if (total > 0xFFFFFFFFu) throw std::invalid_argument("multi-image container too large");
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
        if (list.entries.size() > 1024) throw std::invalid_argument("card-type list with more than 1024 entries");
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

std::vector<FlashRegion> BuildFlashSet(const FlashSetRecipe &in) {
    BootImages boot;
    if (in.bios) boot.bios = BootImage{*in.bios, 0};
    if (in.fcode) boot.fcode = BootImage{*in.fcode, 0};
    if (in.efi) boot.efi = BootImage{*in.efi, 0};
    boot.chipId = in.chipId;

    std::vector<FlashRegion> regions;
    MultiImageRecipe mbi;
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
    regions.push_back({kRegionGlobalNvram, in.globalNvram.empty() ? std::vector<uint8_t>(512, 0) : in.globalNvram});
    for (uint32_t code : in.nvmeBootRegions) regions.push_back({code, BuildNvmeBootRegion()});

    const CardEntry card{kVendorId, in.deviceId, in.subVendorId, in.subSystemId};
    mbi.cardLists = {{0, {card}}, {1, {card}}};
    std::vector<uint8_t> table = BuildMultiImage(mbi);
    table.resize(MultiImageTableLength(mbi));
    regions.push_back({kRegionImageLayoutTable, std::move(table)});
    return regions;
}

// ---- Firmware components ----

namespace {

void RequireSize(size_t size, size_t minimum, const char *what) {
    if (size < minimum) throw std::invalid_argument(std::string(what) + " smaller than its header");
}

// Makes the 32-bit words of the whole buffer sum to zero through the word at
// `at`.
void ZeroWordSum(std::vector<uint8_t> &buf, size_t at) {
    if (buf.size() % 4 != 0) throw std::invalid_argument("component size must be a multiple of 4");
    PutLe32(buf, at, 0);
    PutLe32(buf, at, 0u - Sum32(buf, 0, buf.size()));
}

std::vector<uint8_t> EdcLike(Version v, size_t size, uint32_t signature, uint32_t type) {
    RequireSize(size, 36, "EDC or MPI firmware");
    std::vector<uint8_t> fw(size, 0);
    Fill(fw, 36, size, PatternStart(v, type >> 24));
    PutLe32(fw, 0, signature);
    fw[17] = v.major;
    fw[18] = v.minor;
    fw[19] = v.subminor;
    PutBe32(fw, 32, type);
    return fw;
}

std::vector<uint8_t> VersionAtEnd(Version4 v, size_t size, size_t end, uint32_t salt) {
    RequireSize(size, end, "PEP component");
    std::vector<uint8_t> out(size, 0);
    Fill(out, end, size, salt + v[0] + (uint32_t(v[1]) << 8));
    for (size_t i = 0; i < 4; ++i) out[end - 1 - i] = v[i];
    return out;
}

}  // namespace

std::vector<uint8_t> BuildEdcFirmware(Version v, size_t size) { return EdcLike(v, size, 0x5555BBBB, 0x20000008); }

std::vector<uint8_t> BuildNicMpiFirmware(Version v, size_t size) { return EdcLike(v, size, 0, 0x10000008); }

std::vector<uint8_t> BuildMpiConfig(size_t size) {
    constexpr size_t kSummed = 1280;
    if (size < kSummed || size > 64 * 1024)
        throw std::invalid_argument("MPI configuration must hold 1280 bytes to 64 KiB");
    std::vector<uint8_t> out(size, 0);
    Fill(out, 8, size, 0x41);
    PutLe32(out, 0, kMpiConfigSignature);
    PutLe32(out, 4, 0u - Sum32(out, 0, kSummed));
    return out;
}

std::vector<uint8_t> BuildTrailerComponent(uint32_t signature, Version v, size_t size) {
    RequireSize(size, 64, "trailer component");
    std::vector<uint8_t> out(size, 0);
    Fill(out, 0, size - 32, PatternStart(v, signature & 0xFF));
    PutLe32(out, size - 32, signature);
    out[size - 28] = v.major;
    out[size - 27] = v.minor;
    out[size - 26] = v.subminor;
    ZeroWordSum(out, size - 4);
    return out;
}

std::vector<uint8_t> BuildNicFirmware(Version v, size_t size) {
    RequireSize(size, 64, "NIC firmware");
    std::vector<uint8_t> out(size, 0);
    Fill(out, 16, size, PatternStart(v, 0x97));
    PutLe32(out, 0, kNicFirmwareSignature);
    out[4] = v.major;
    out[5] = v.minor;
    out[6] = v.subminor;
    PutLe32(out, 12, static_cast<uint32_t>(size));
    ZeroWordSum(out, 8);
    return out;
}

std::vector<uint8_t> BuildFcMpiFirmware(Version v, size_t size) {
    RequireSize(size, 28, "MPI firmware");
    std::vector<uint8_t> out(size, 0);
    Fill(out, 28, size, PatternStart(v, 0xD3));
    PutBe32(out, 16, v.major);
    PutBe32(out, 20, v.minor);
    PutBe32(out, 24, v.subminor);
    return out;
}

std::vector<uint8_t> BuildPepComponent(Version4 v, size_t size) { return VersionAtEnd(v, size, 80, 0xD1); }

std::vector<uint8_t> BuildPepBoardConfig(Version4 v, size_t size) { return VersionAtEnd(v, size, 8, 0xCF); }

std::vector<uint8_t> BuildOpaqueComponent(size_t size, uint32_t seed) {
    std::vector<uint8_t> out(size, 0);
    Fill(out, 0, size, seed);
    return out;
}

// ---- PLDM firmware-update package ----

uint32_t Crc32(const uint8_t *data, size_t size) {
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    return crc ^ 0xFFFFFFFFu;
}

std::vector<uint8_t> BuildPldmPackage(const std::vector<uint8_t> &payload, const PldmRecipe &recipe) {
    static const uint8_t kIds[4][16] = {
        {0xF0, 0x18, 0x87, 0x8C, 0xCB, 0x7D, 0x49, 0x43, 0x98, 0x00, 0xA0, 0x2F, 0x05, 0x9A, 0xCA, 0x02},
        {0x12, 0x44, 0xD2, 0x64, 0x8D, 0x7D, 0x47, 0x18, 0xA0, 0x30, 0xFC, 0x8A, 0x56, 0x58, 0x7D, 0x5A},
        {0x31, 0x19, 0xCE, 0x2F, 0xE8, 0x0A, 0x4A, 0x99, 0xAF, 0x15, 0xCB, 0xEF, 0x37, 0xED, 0x5A, 0x59},
        {0x7B, 0x29, 0x1C, 0x99, 0x6D, 0xB6, 0x42, 0x08, 0x80, 0x1B, 0x02, 0x02, 0x6E, 0x46, 0x3C, 0x78},
    };
    if (recipe.formatRevision < 1 || recipe.formatRevision > 4 || recipe.version.size() > 255 ||
        recipe.components == 0 || recipe.deviceRecords > 255 || recipe.components > 0xFFFF)
        throw std::invalid_argument("PLDM package outside its format");
    std::vector<uint8_t> h(kIds[recipe.formatRevision - 1], kIds[recipe.formatRevision - 1] + 16);
    auto u8 = [&](uint32_t v) { h.push_back(static_cast<uint8_t>(v)); };
    auto u16 = [&](uint32_t v) {
        u8(v);
        u8(v >> 8);
    };
    auto u32 = [&](uint32_t v) {
        u16(v);
        u16(v >> 16);
    };
    auto text = [&](const std::string &t) { h.insert(h.end(), t.begin(), t.end()); };
    u8(recipe.formatRevision);
    u16(0);                      // header size, set below
    h.resize(h.size() + 13, 0);  // release date and time
    u16(8);                      // component bitmap: one byte
    u8(1);                       // ASCII version string
    u8(static_cast<uint32_t>(recipe.version.size()));
    text(recipe.version);
    u8(static_cast<uint32_t>(recipe.deviceRecords));
    for (size_t i = 0; i < recipe.deviceRecords; ++i) {
        u16(static_cast<uint32_t>(18 + recipe.version.size()));
        u8(1);   // one descriptor
        u32(0);  // update option flags
        u8(1);
        u8(static_cast<uint32_t>(recipe.version.size()));
        u16(0);  // no package data
        u8(1);   // applies to component 0
        text(recipe.version);
        u16(0);  // descriptor: PCI vendor ID
        u16(2);
        u16(kVendorId);
    }
    if (recipe.formatRevision >= 2) u8(0);  // no downstream devices
    u16(static_cast<uint32_t>(recipe.components));
    std::vector<size_t> offsetFields;
    for (size_t i = 0; i < recipe.components; ++i) {
        u16(0x000A);  // firmware
        u16(static_cast<uint32_t>(i));
        u32(0);
        u16(0);
        u16(0);
        offsetFields.push_back(h.size());
        u32(0);  // offset, set below
        u32(static_cast<uint32_t>(payload.size()));
        u8(1);
        u8(static_cast<uint32_t>(recipe.version.size()));
        text(recipe.version);
        if (recipe.formatRevision >= 4) u32(0);  // no opaque data
    }
    const size_t headerSize = h.size() + 4;
    if (headerSize > 0xFFFF) throw std::invalid_argument("PLDM header longer than 65535 bytes");
    PutLe16(h, 17, static_cast<uint16_t>(headerSize));
    for (size_t at : offsetFields) PutLe32(h, at, static_cast<uint32_t>(headerSize));
    u32(Crc32(h.data(), h.size()));
    h.insert(h.end(), payload.begin(), payload.end());
    return h;
}

// ---- Sample multi-image files ----

size_t ComponentIndex(const MultiImageRecipe &recipe, uint16_t regionType) {
    for (size_t i = 0; i < recipe.components.size(); ++i)
        if (recipe.components[i].regionType == regionType) return i;
    return std::string::npos;
}

MultiImageRecipe SampleImage(ImageFamily family, const CardEntry &card, size_t componentSize) {
    const size_t n = RoundUp(std::max<size_t>(componentSize, 128), 4);
    MultiImageRecipe m;
    m.imageVersion = {3, 4, 5};
    m.buildDate = {2024, 6, 18};
    m.ffv = {10, 2, 3, 4};
    m.cardLists = {{1, {card}}, {0, {card}}};
    const Version fw{9, 12, 1};
    const Version boot{3, 67, 0};
    auto add = [&](uint16_t type, Version v, std::vector<uint8_t> payload, uint16_t cardType = 0,
                   uint16_t chipRevision = 0) {
        m.components.push_back({type, v, cardType, chipRevision, std::move(payload)});
    };
    // Boot images and headerless components no larger than the firmware.
    const size_t rom = RoundUp(std::clamp<size_t>(n, 512, 4096), 512);
    const size_t small = std::min<size_t>(n, 1024);
    auto chain = [&](std::vector<RomImageRecipe> images) {
        for (RomImageRecipe &r : images) {
            r.deviceId = card.deviceId;
            r.size = rom;
        }
        return BuildRomChain(images);
    };
    const std::vector<uint8_t> fcBoot = chain({{0, {3, 67, 0}, 0, kVendorId, 0, "", {}},
                                               {1, {4, 21, 0}, 0, kVendorId, 0, "", {}},
                                               {3, {7, 34, 0}, 0, kVendorId, 0, "", {}}});
    const std::vector<uint8_t> pxeBoot =
        chain({{0, {2, 10, 0}, 0, kVendorId, 0, "", {}}, {2, {2, 11, 0}, 0, kVendorId, 0, "", {}}});
    switch (family) {
    case ImageFamily::kKite:
        add(0x01, fw, BuildRiscFirmware(fw, 32, n));
        add(0x07, boot, fcBoot);
        add(0x11, boot, chain({{0, {3, 68, 0}, 0, kVendorId, 0, "", {}}, {3, {7, 35, 0}, 0, kVendorId, 0, "", {}}}));
        add(0x13, {1, 2, 3}, BuildOpaqueComponent(small, 0x13));
        add(0x9E, {1, 0, 7}, BuildSignatureRegion({1, 0, 7}, std::max<size_t>(small, 392)));
        add(0xBA, {2, 3, 4}, BuildOpaqueComponent(small, 0xBA));
        add(0xCF, {5, 6, 7}, BuildPepBoardConfig({5, 6, 7, 8}, small));
        add(0xD1, {1, 2, 3}, BuildPepComponent({1, 2, 3, 4}, n), 1);
        add(0xD2, {1, 2, 4}, BuildPepComponent({1, 2, 4, 5}, n));
        add(0xD3, {2, 1, 9}, BuildFcMpiFirmware({2, 1, 9}, n));
        add(0x101, {2, 1, 8}, BuildFcMpiFirmware({2, 1, 8}, n));
        add(0x102, {0, 4, 2}, BuildOpaqueComponent(small, 0x102));
        add(0x103, {1, 1, 1}, BuildOpaqueComponent(small, 0x103));
        add(0x14, {}, BuildOpaqueComponent(small, 0x14));
        add(0x95, {}, BuildOpaqueComponent(small, 0x95));
        break;
    case ImageFamily::kWren:
        add(0x01, fw, BuildRiscFirmware(fw, 64, n));
        add(0x07, boot, fcBoot);
        add(0x9E, {1, 0, 7}, BuildSignatureRegion({1, 0, 7}, std::max<size_t>(small, 392)));
        add(0xD1, {1, 2, 3}, BuildPepComponent({1, 2, 3, 4}, n), 1);
        add(0xD2, {1, 2, 4}, BuildPepComponent({1, 2, 4, 5}, n));
        add(0xD3, {2, 1, 9}, BuildFcMpiFirmware({2, 1, 9}, n));
        add(0xE1, {2, 1, 9}, BuildFcMpiFirmware({2, 1, 9}, n));
        add(0x66, {1, 0, 0}, BuildOpaqueComponent(small, 0x66));
        add(0x16, {}, BuildOpaqueComponent(small, 0x16));
        break;
    case ImageFamily::kOtherFc:
        add(0x01, fw, BuildRiscFirmware(fw, 8, n));
        add(0x07, boot, fcBoot);
        add(0x11, boot, chain({{0, {3, 68, 0}, 0, kVendorId, 0, "", {}}}));
        add(0x9E, {1, 0, 7}, BuildSignatureRegion({1, 0, 7}, std::max<size_t>(small, 392)));
        add(0x13, {1, 2, 3}, BuildOpaqueComponent(small, 0x13));
        add(0xBA, {2, 3, 4}, BuildOpaqueComponent(small, 0xBA));
        add(0x102, {0, 4, 2}, BuildOpaqueComponent(small, 0x102));
        add(0x14, {}, BuildOpaqueComponent(small, 0x14));
        break;
    case ImageFamily::kTern:
    case ImageFamily::kOrla:
    case ImageFamily::kTove: {
        const bool orla = family == ImageFamily::kOrla;
        const bool tove = family == ImageFamily::kTove;
        add(0x01, fw, BuildRiscFirmware(fw, orla ? 32 : 8, n));
        add(0x07, boot, fcBoot);
        add(0x2E, {2, 10, 0}, pxeBoot);
        add(0x40, {1, 5, 2}, BuildNicMpiFirmware({1, 5, 2}, n));
        add(0x41, {1, 0, 0}, BuildMpiConfig(std::clamp<size_t>(n, 1280, 2048)));
        add(0x45, {3, 1, 4}, BuildEdcFirmware({3, 1, 4}, n));
        add(0x4F, {4, 2, 0}, chain({{0, {4, 2, 0}, 0, kVendorId, 0, "", {}}}));
        add(0x70, {1, 1, 1}, BuildTrailerComponent(kCrbinitSignature, {1, 1, 1}, small));
        add(0x71, {1, 0, 0}, BuildOpaqueComponent(small, 0x71));
        add(0x72, {1, 1, 2}, BuildTrailerComponent(kBootloaderSignature, {1, 1, 2}, small));
        add(0x73, {1, 1, 3}, BuildTrailerComponent(kPegtuneSignature, {1, 1, 3}, small));
        if (family == ImageFamily::kTern) add(0x74, {5, 4, 3}, BuildNicFirmware({5, 4, 3}, n), 0, 0x54);
        else add(0x97, {5, 4, 3}, BuildNicFirmware({5, 4, 3}, n));
        add(0x81, {}, BuildOpaqueComponent(small, 0x81));
        add(0xA2, boot, fcBoot);
        add(0xA4, fw, BuildRiscFirmware(fw, 16, n));
        if (orla) {
            add(0x14, {}, BuildOpaqueComponent(small, 0x14));
            add(0x16, {}, BuildOpaqueComponent(small, 0x16));
        }
        if (tove) {
            add(0xA3, {}, BuildOpaqueComponent(small, 0xA3));
            add(0xB1, {}, BuildOpaqueComponent(small, 0xB1));
        }
        break;
    }
    }
    return m;
}

// ---- Deliberate faults ----

namespace mutate {
namespace {

size_t RegionEntries(const std::vector<uint8_t> &mbi) { return mbi.at(10) | (mbi.at(11) << 8); }

void FixChecksum(std::vector<uint8_t> &mbi) {
    const size_t length = std::min<size_t>(mbi.at(6) | (mbi.at(7) << 8), mbi.size());
    PutLe16(mbi, 8, 0);
    PutLe16(mbi, 8, static_cast<uint16_t>(-Sum16(mbi, 0, length)));
}

size_t RegionAt(const std::vector<uint8_t> &mbi, size_t region) {
    const size_t at = (region + 1) * kIltSlot;
    if (at + kIltSlot > mbi.size()) throw std::out_of_range("no such region entry");
    return at;
}

// Byte position of card-type list `list`.
size_t ListAt(const std::vector<uint8_t> &mbi, size_t list) {
    size_t at = (RegionEntries(mbi) + 1) * kIltSlot + 8;
    for (size_t k = 0; k < list; ++k) at += 8 + 8 * size_t(mbi.at(at + 2) | (mbi.at(at + 3) << 8));
    if (at + 8 > mbi.size()) throw std::out_of_range("no such card-type list");
    return at;
}

}  // namespace

void Signature(std::vector<uint8_t> &mbi, std::string_view four) {
    PutText(mbi, 0, four.substr(0, 4));
    FixChecksum(mbi);
}

void TableVersion(std::vector<uint8_t> &mbi, uint16_t version) {
    PutLe16(mbi, 4, version);
    FixChecksum(mbi);
}

void TableChecksum(std::vector<uint8_t> &mbi) { mbi.at(8) ^= 0x5A; }

void RegionCount(std::vector<uint8_t> &mbi, uint16_t n) {
    PutLe16(mbi, 10, n);
    FixChecksum(mbi);
}

void CardListCount(std::vector<uint8_t> &mbi, uint16_t lists) {
    PutLe16(mbi, (RegionEntries(mbi) + 1) * kIltSlot, lists);
    FixChecksum(mbi);
}

void CardListEntries(std::vector<uint8_t> &mbi, size_t list, uint16_t entries) {
    PutLe16(mbi, ListAt(mbi, list) + 2, entries);
    FixChecksum(mbi);
}

void Card(std::vector<uint8_t> &mbi, size_t list, size_t entry, const CardEntry &card) {
    const size_t at = ListAt(mbi, list) + 8 + 8 * entry;
    PutLe16(mbi, at, card.vendorId);
    PutLe16(mbi, at + 2, card.deviceId);
    PutLe16(mbi, at + 4, card.subVendorId);
    PutLe16(mbi, at + 6, card.subSystemId);
    FixChecksum(mbi);
}

void RegionType(std::vector<uint8_t> &mbi, size_t region, uint16_t type) {
    PutLe16(mbi, RegionAt(mbi, region), type);
    FixChecksum(mbi);
}

void RegionChipRevision(std::vector<uint8_t> &mbi, size_t region, uint16_t revision) {
    PutLe16(mbi, RegionAt(mbi, region) + 16, revision);
    FixChecksum(mbi);
}

void RegionCardType(std::vector<uint8_t> &mbi, size_t region, uint16_t cardType) {
    PutLe16(mbi, RegionAt(mbi, region) + 14, cardType);
    FixChecksum(mbi);
}

void RegionVersion(std::vector<uint8_t> &mbi, size_t region, Version v) {
    const size_t at = RegionAt(mbi, region);
    mbi[at + 3] = v.major;
    mbi[at + 4] = v.minor;
    mbi[at + 5] = v.subminor;
    FixChecksum(mbi);
}

void RegionExtent(std::vector<uint8_t> &mbi, size_t region, uint32_t offset, uint32_t length) {
    const size_t at = RegionAt(mbi, region);
    PutSplit32(mbi, at + 6, offset);
    PutSplit32(mbi, at + 10, length);
    FixChecksum(mbi);
}

std::span<uint8_t> ComponentBytes(std::vector<uint8_t> &mbi, size_t region) {
    const size_t at = RegionAt(mbi, region);
    const size_t offset = (mbi[at + 6] | mbi[at + 7] << 8) | size_t(mbi[at + 8] | mbi[at + 9] << 8) << 16;
    const size_t length = (mbi[at + 10] | mbi[at + 11] << 8) | size_t(mbi[at + 12] | mbi[at + 13] << 8) << 16;
    if (offset + length > mbi.size()) throw std::out_of_range("component outside the image");
    return std::span<uint8_t>(mbi).subspan(offset, length);
}

void CorruptComponent(std::vector<uint8_t> &mbi, size_t region, size_t at) {
    std::span<uint8_t> c = ComponentBytes(mbi, region);
    if (at >= c.size()) throw std::out_of_range("byte outside the component");
    c[at] ^= 0xA5;
}

void BreakRomChain(std::span<uint8_t> chain, RomBreak how, size_t image) {
    size_t start = 0;
    for (size_t k = 0; k < image; ++k) {
        const size_t pcir = start + (chain[start + 0x18] | (chain[start + 0x19] << 8));
        start += size_t(chain[pcir + 0x10] | (chain[pcir + 0x11] << 8)) * 512;
        if (start >= chain.size()) throw std::out_of_range("no such image in the chain");
    }
    const size_t pcir = start + (chain[start + 0x18] | (chain[start + 0x19] << 8));
    switch (how) {
    case RomBreak::kNoLastImage: chain[pcir + 0x15] &= 0x7F; break;
    case RomBreak::kRomSignature: chain[start + 1] = 0x00; break;
    case RomBreak::kDataSignature: chain[pcir] = 'X'; break;
    case RomBreak::kChecksum: chain[start + 0x100] ^= 0x01; return;
    case RomBreak::kNotADriver:
        chain[pcir + 6] = 1;
        chain[pcir + 7] = 0;
        break;
    case RomBreak::kCodeType: chain[pcir + 0x14] = 0x7F; break;
    }
    SetRomChecksum(chain, start);
}

void Truncate(std::vector<uint8_t> &bytes, size_t size) {
    if (size < bytes.size()) bytes.resize(size);
}

}  // namespace mutate

}  // namespace vtsdm::image
