// Images from the builders are read back here with small readers of their
// own, written from the byte layouts, so a builder fault is not mirrored.
#include "imagebuild.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <stdexcept>

#include "testutil.h"

using namespace vtsdm::image;
using Bytes = std::vector<uint8_t>;

namespace {

unsigned Le16(const Bytes &b, size_t at) { return b.at(at) | b.at(at + 1) << 8; }
uint32_t Le32(const Bytes &b, size_t at) { return Le16(b, at) | static_cast<uint32_t>(Le16(b, at + 2)) << 16; }
uint32_t Be32(const Bytes &b, size_t at) {
    return static_cast<uint32_t>(b.at(at)) << 24 | b.at(at + 1) << 16 | b.at(at + 2) << 8 | b.at(at + 3);
}
std::string Text(const Bytes &b, size_t at, size_t n) { return std::string(b.begin() + at, b.begin() + at + n); }

struct RomImage {
    size_t start, length;
    unsigned vendor, device, revision, codeType;
    bool last;
};

// Walks a chain the way a reader does: stop at the image flagged last, or
// fail (empty result) when a signature breaks.
std::vector<RomImage> WalkChain(const Bytes &b) {
    std::vector<RomImage> out;
    size_t pos = 0;
    while (pos + 0x1A <= b.size()) {
        if (b[pos] != 0x55 || b[pos + 1] != 0xAA) return {};
        const size_t pcir = pos + Le16(b, pos + 0x18);
        if (Text(b, pcir, 4) != "PCIR") return {};
        RomImage img{pos,
                     Le16(b, pcir + 0x10) * 512u,
                     Le16(b, pcir + 4),
                     Le16(b, pcir + 6),
                     Le16(b, pcir + 0x12),
                     b[pcir + 0x14],
                     (b[pcir + 0x15] & 0x80) != 0};
        out.push_back(img);
        if (img.last) return out;
        pos += img.length;
    }
    return {};
}

// The reader's option-ROM checksum: signed size byte, the byte before the
// last is left out, the last byte holds the two's complement.
bool RomChecksumOk(const Bytes &b, size_t start) {
    const int size = static_cast<int8_t>(b.at(start + 2)) * 512;
    if (size < 2) return false;
    uint8_t sum = 0;
    for (int i = 0; i < size - 2; ++i) sum = static_cast<uint8_t>(sum + b.at(start + i));
    return b.at(start + size - 1) == static_cast<uint8_t>(-sum);
}

uint16_t WordSum(const Bytes &b, size_t from, size_t bytes) {
    uint16_t s = 0;
    for (size_t i = 0; i < bytes; i += 2) s = static_cast<uint16_t>(s + Le16(b, from + i));
    return s;
}

uint32_t DwordSum(const Bytes &b, size_t from, size_t bytes) {
    uint32_t s = 0;
    for (size_t i = 0; i < bytes; i += 4) s += Le32(b, from + i);
    return s;
}

struct ParsedVpd {
    std::string id;
    std::vector<std::pair<std::string, std::string>> ro, rw;
    size_t rvDataAt = 0;
    bool ended = false;
};

ParsedVpd ParseVpdBlock(const Bytes &b) {
    ParsedVpd v;
    size_t pos = 0;
    while (pos < b.size()) {
        const uint8_t tag = b[pos];
        if (tag == 0x78) {
            v.ended = pos + 1 == b.size();
            break;
        }
        const size_t len = Le16(b, pos + 1), body = pos + 3;
        if (tag == 0x82) {
            v.id = Text(b, body, len);
        } else if (tag == 0x90 || tag == 0x91) {
            for (size_t k = body; k < body + len; k += 3 + b[k + 2]) {
                std::string key = Text(b, k, 2);
                if (tag == 0x90 && key == "RV") v.rvDataAt = k + 3;
                (tag == 0x90 ? v.ro : v.rw).emplace_back(key, Text(b, k + 3, b[k + 2]));
            }
        } else {
            ADD_FAILURE() << "unexpected VPD tag " << int(tag);
            break;
        }
        pos = body + len;
    }
    return v;
}

class ImageBuild : public ::testing::Test {
    vttest::SysrootScope root_;
};

}  // namespace

TEST_F(ImageBuild, VersionsAndRiscHeader) {
    EXPECT_EQ(ParseVersion("3.67"), (Version{3, 67, 0}));
    EXPECT_EQ(ParseVersion("9.12.01"), (Version{9, 12, 1}));
    EXPECT_EQ(ParseVersion(" 01.02.03 "), (Version{1, 2, 3}));
    for (const char *bad : {"", "1.2.3.4", "1..2", "256.1", "a.b", "1.2x", "-1.0"})
        EXPECT_FALSE(ParseVersion(bad).has_value()) << bad;
    EXPECT_EQ(ParseFfvVersion("10.02.03.04"), (FfvVersion{10, 2, 3, 4}));
    EXPECT_FALSE(ParseFfvVersion("1.2.3.4.5").has_value());

    Bytes fw = BuildRiscFirmware({9, 12, 1}, 64, 4096);
    ASSERT_EQ(fw.size(), 4096u);
    EXPECT_EQ((std::array<uint32_t, 4>{Be32(fw, 16), Be32(fw, 20), Be32(fw, 24), Be32(fw, 32)}),
              (std::array<uint32_t, 4>{9, 12, 1, 64}));
    EXPECT_THROW(BuildRiscFirmware({1, 0, 0}, 8, 64), std::invalid_argument);
}

TEST_F(ImageBuild, ExpansionRomChainWalksBack) {
    BootImages b;
    b.bios = BootImage{{3, 67, 0}, 0};
    b.fcode = BootImage{{4, 12, 0}, 1000};  // rounded up to 1024
    b.efi = BootImage{{7, 1, 9}, 0};
    b.chipId = "2532";
    Bytes chain = BuildExpansionRomChain(b, 0x1077, 0x2532);
    auto imgs = WalkChain(chain);
    ASSERT_EQ(imgs.size(), 3u);
    const unsigned types[] = {0, 1, 3};
    const unsigned revs[] = {0x0343, 0x040C, 0x0701};  // major high byte, minor low byte
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(imgs[i].codeType, types[i]);
        EXPECT_EQ(imgs[i].revision, revs[i]);
        EXPECT_EQ(imgs[i].vendor, 0x1077u);
        EXPECT_EQ(imgs[i].device, 0x2532u);
        EXPECT_EQ(imgs[i].last, i == 2);
        EXPECT_EQ(chain[imgs[i].start + 2] * 512u, imgs[i].length);
        EXPECT_TRUE(RomChecksumOk(chain, imgs[i].start));
    }
    EXPECT_EQ(imgs[1].length, 1024u);
    EXPECT_EQ(imgs[2].start + imgs[2].length, chain.size());
    EXPECT_EQ(Text(chain, 9, 4), "2532");
    chain[imgs[0].start + 300] ^= 0x5A;
    EXPECT_FALSE(RomChecksumOk(chain, imgs[0].start));

    b.bios.reset();
    b.fcode.reset();  // a lone EFI image is also the last one
    imgs = WalkChain(BuildExpansionRomChain(b, 0x1077, 0x2261));
    ASSERT_EQ(imgs.size(), 1u);
    EXPECT_TRUE(imgs[0].codeType == 3 && imgs[0].last);
    EXPECT_TRUE(BuildExpansionRomChain(BootImages{}, 0x1077, 0x2261).empty());
    b.efi->size = 64 * 1024;  // the size byte would turn negative
    EXPECT_THROW(BuildExpansionRomChain(b, 0x1077, 0x2261), std::invalid_argument);
}

TEST_F(ImageBuild, VpdParsesAndChecksums) {
    Bytes vpd = BuildVpd("FC Adapter, 2 ports",
                         {{"PN", "PX2810403"}, {"SN", "RFD1234X5678"}, {"RV", "ignored"}, {"V9", "01.02.03"}},
                         {{"YA", "asset"}});
    ParsedVpd p = ParseVpdBlock(vpd);
    EXPECT_TRUE(p.ended);
    EXPECT_EQ(p.id, "FC Adapter, 2 ports");
    const std::vector<std::pair<std::string, std::string>> ro{
        {"PN", "PX2810403"}, {"SN", "RFD1234X5678"}, {"V9", "01.02.03"}};
    ASSERT_EQ(p.ro.size(), 4u);
    EXPECT_TRUE(std::equal(ro.begin(), ro.end(), p.ro.begin()));
    EXPECT_EQ(p.ro[3].first, "RV");  // closes the read-only section, once
    ASSERT_EQ(p.rw.size(), 1u);
    EXPECT_EQ(p.rw[0].second, "asset");

    ASSERT_GT(p.rvDataAt, 0u);
    uint8_t sum = 0;
    for (size_t i = 0; i <= p.rvDataAt; ++i) sum = static_cast<uint8_t>(sum + vpd[i]);
    EXPECT_EQ(sum, 0);
    EXPECT_TRUE(VpdChecksumOk(vpd));
    Bytes bad = vpd;
    bad[5] ^= 1;
    EXPECT_FALSE(VpdChecksumOk(bad));
    bad = vpd;
    bad[p.rvDataAt + 4] ^= 1;  // read-write data is outside the sum
    EXPECT_TRUE(VpdChecksumOk(bad));
    EXPECT_FALSE(VpdChecksumOk(Bytes{0x82, 1, 0, 'x', 0x78}));
    EXPECT_THROW(BuildVpd("x", {{"P", "1"}}, {}), std::invalid_argument);
    EXPECT_THROW(BuildVpd("x", {{"PN", std::string(256, 'a')}}, {}), std::invalid_argument);
}

TEST_F(ImageBuild, MultiImageTableReadsBack) {
    MultiImageRecipe s;
    s.signature = "VILT";
    s.tableVersion = 5;
    s.imageVersion = {3, 45, 6};
    s.buildDate = {2023, 11, 28};
    s.ffv = {10, 2, 3, 4};
    s.activationLevel = 7;
    s.components.push_back({0x07, {3, 67, 0}, 0, 0, Bytes(1001, 0xA5)});
    s.components.push_back({0x01, {9, 12, 1}, 0x0003, 0x0002, BuildRiscFirmware({9, 12, 1}, 64, 600)});
    s.components.push_back({0x9E, {1, 2, 3}, 0, 0, BuildSignatureRegion({1, 2, 3})});
    s.cardLists.push_back({0, {{0x1077, 0x2261, 0xFFFF, 0xFFFF}}});
    s.cardLists.push_back({2, {{0x1077, 0x2261, 0x1590, 0x00F9}, {0x1077, 0x2281, 0x1077, 0x02A1}}});
    Bytes img = BuildMultiImage(s);

    EXPECT_EQ(Text(img, 0, 4), "VILT");
    EXPECT_EQ(Le16(img, 4), 5u);
    const size_t tableLength = Le16(img, 6), n = Le16(img, 10);
    EXPECT_EQ(n, 4u);
    EXPECT_EQ(tableLength, (n + 1) * 32 + 8 + (8 + 8) + (8 + 16));
    EXPECT_EQ(WordSum(img, 0, tableLength), 0);
    EXPECT_EQ(Bytes(img.begin() + 13, img.begin() + 18), (Bytes{3, 45, 6, 11, 28}));
    EXPECT_EQ(Le16(img, 18), 2023u);
    EXPECT_EQ(Bytes(img.begin() + 21, img.begin() + 26), (Bytes{10, 2, 3, 4, 7}));

    for (size_t i = 0; i + 1 < n; ++i) {
        SCOPED_TRACE(i);
        const size_t e = (i + 1) * 32;
        const Component &c = s.components[i];
        EXPECT_EQ(Le16(img, e), c.regionType);
        EXPECT_EQ(Bytes(img.begin() + e + 3, img.begin() + e + 6),
                  (Bytes{c.version.major, c.version.minor, c.version.subminor}));
        const size_t off = Le16(img, e + 6) + (Le16(img, e + 8) << 16);
        const size_t len = Le16(img, e + 10) + (Le16(img, e + 12) << 16);
        EXPECT_GE(off, tableLength);
        ASSERT_EQ(len, c.payload.size());
        ASSERT_LE(off + len, img.size());
        EXPECT_TRUE(std::equal(c.payload.begin(), c.payload.end(), img.begin() + off));
        EXPECT_EQ(Le16(img, e + 14), c.cardType);
        EXPECT_EQ(Le16(img, e + 16), c.chipRevision);
    }
    const size_t ts = n * 32;
    EXPECT_EQ(Le16(img, ts + 6), 2023u);
    EXPECT_EQ(img[ts + 8], 11);
    EXPECT_EQ(img[ts + 9], 28);
    EXPECT_EQ(Le16(img, ts + 12), 0x1400u);

    using Entry = std::array<unsigned, 4>;
    size_t at = ts + 32;
    ASSERT_EQ(Le16(img, at), 2u);
    at += 8;
    std::vector<std::pair<unsigned, std::vector<Entry>>> lists;
    for (int k = 0; k < 2; ++k) {
        auto &l = lists.emplace_back(Le16(img, at), std::vector<Entry>{});
        const size_t count = Le16(img, at + 2);
        at += 8;
        for (size_t j = 0; j < count; ++j, at += 8)
            l.second.push_back({Le16(img, at), Le16(img, at + 2), Le16(img, at + 4), Le16(img, at + 6)});
    }
    EXPECT_EQ(at, tableLength);
    EXPECT_EQ(lists, (std::vector<std::pair<unsigned, std::vector<Entry>>>{
                         {0, {{0x1077, 0x2261, 0xFFFF, 0xFFFF}}},
                         {2, {{0x1077, 0x2261, 0x1590, 0x00F9}, {0x1077, 0x2281, 0x1077, 0x02A1}}}}));

    Bytes empty = BuildMultiImage(MultiImageRecipe{});  // header, time stamp, zero card lists
    EXPECT_EQ(Le16(empty, 10), 1u);
    EXPECT_EQ(Le16(empty, 6), 72u);
    EXPECT_EQ(WordSum(empty, 0, 72), 0);
    MultiImageRecipe tooMany;
    tooMany.components.resize(256);
    EXPECT_THROW(BuildMultiImage(tooMany), std::invalid_argument);
}

TEST_F(ImageBuild, LocatorAndSignatureRegionChecksums) {
    Bytes flt = BuildFltLocator(0x3F1000);
    ASSERT_EQ(flt.size(), 16u);
    EXPECT_EQ(Text(flt, 0, 4), "VFLT");
    EXPECT_EQ(Le16(flt, 4) + (Le16(flt, 6) << 16), 0x3F1000u);
    EXPECT_EQ(WordSum(flt, 0, 16), 0);

    Bytes sig = BuildSignatureRegion({4, 5, 6});
    EXPECT_EQ(Text(sig, 0, 4), "08KS");
    EXPECT_EQ(Le32(sig, 388), 0x534B3830u);
    EXPECT_EQ(Bytes(sig.begin() + 5, sig.begin() + 8), (Bytes{6, 5, 4}));
    const size_t covered = Le32(sig, 12);
    ASSERT_TRUE(covered >= 392 && covered <= sig.size());
    EXPECT_EQ(DwordSum(sig, 0, covered), 0u);
    EXPECT_THROW(BuildSignatureRegion({1, 0, 0}, 390), std::invalid_argument);
}

TEST_F(ImageBuild, FlashSetOfSimulatedAdapter) {
    FlashSetRecipe s;
    s.bios = Version{3, 67, 0};
    s.fcode = Version{4, 12, 0};
    s.efi = Version{7, 41, 0};
    s.firmware = {9, 12, 1};
    s.multiboot = {1, 2, 3};
    s.ffv = {10, 2, 3, 4};
    s.deviceId = 0x2261;
    s.subVendorId = 0x1077;
    s.subSystemId = 0x02A1;
    s.vpdIdentifier = "Dual port 32Gb FC adapter";
    s.vpdReadOnly = {{"PN", "PX2810403"}, {"V9", "01.02.03"}};
    s.nvmeBootRegions = {334, 377};
    std::map<uint32_t, Bytes> byType;
    for (auto &r : BuildFlashSet(s)) {
        EXPECT_LE(r.bytes.size(), 64u * 1024) << r.type;
        EXPECT_TRUE(byType.emplace(r.type, r.bytes).second) << "duplicate region " << r.type;
    }
    ASSERT_EQ(byType.size(), 7u);
    for (uint32_t t : {0x07u, 0x01u, 0x8Cu, 0x8Du, 334u, 377u, 0x8Eu}) ASSERT_TRUE(byType.count(t)) << t;

    auto imgs = WalkChain(byType[0x07]);
    ASSERT_EQ(imgs.size(), 3u);
    EXPECT_EQ(imgs[2].revision, 0x0729u);
    EXPECT_EQ(imgs[0].device, 0x2261u);
    const Bytes &fw = byType[0x01];
    EXPECT_EQ(Be32(fw, 16), 9u);
    EXPECT_EQ(Be32(fw, 32), 64u);
    EXPECT_EQ(ParseVpdBlock(byType[0x8C]).ro.at(1).second, "01.02.03");
    EXPECT_TRUE(VpdChecksumOk(byType[0x8C]));
    EXPECT_EQ(byType[0x8D], Bytes(512, 0));

    const Bytes &nvme = byType[334];
    EXPECT_EQ(nvme, byType[377]);
    for (size_t at : {0u, 4096u, 8192u, 12288u}) {
        EXPECT_EQ(Text(nvme, at, 4), "VNVM");
        EXPECT_EQ(Le32(nvme, at + 8), 2560u);
        EXPECT_EQ(DwordSum(nvme, at, 2560), 0u);
    }

    // The layout table names both components with their versions and sizes,
    // and the adapter's exact IDs in the default list and in list 1.
    const Bytes &ilt = byType[0x8E];
    ASSERT_GE(ilt.size(), 4u * 32 + 8 + 2 * 16);
    EXPECT_EQ(Text(ilt, 0, 4), "VFIM");
    EXPECT_EQ(Le16(ilt, 6), ilt.size());
    EXPECT_EQ(WordSum(ilt, 0, ilt.size()), 0);
    EXPECT_EQ(Bytes(ilt.begin() + 13, ilt.begin() + 16), (Bytes{1, 2, 3}));
    ASSERT_EQ(Le16(ilt, 10), 3u);
    EXPECT_EQ((std::array<unsigned, 3>{Le16(ilt, 32), ilt[35], Le16(ilt, 42)}),
              (std::array<unsigned, 3>{0x07, 3, static_cast<unsigned>(byType[0x07].size())}));
    EXPECT_EQ((std::array<unsigned, 3>{Le16(ilt, 64), ilt[67], Le16(ilt, 74)}),
              (std::array<unsigned, 3>{0x01, 9, static_cast<unsigned>(fw.size())}));
    EXPECT_EQ(Le16(ilt, 128), 2u);
    for (size_t at : {136u, 152u}) {
        EXPECT_EQ(Le16(ilt, at), at == 136 ? 0u : 1u);
        EXPECT_EQ((std::array<unsigned, 5>{Le16(ilt, at + 2), Le16(ilt, at + 8), Le16(ilt, at + 10), Le16(ilt, at + 12),
                                           Le16(ilt, at + 14)}),
                  (std::array<unsigned, 5>{1, 0x1077, 0x2261, 0x1077, 0x02A1}));
    }

    s.bios.reset();
    s.fcode.reset();
    s.efi.reset();
    s.nvmeBootRegions.clear();
    auto noBoot = BuildFlashSet(s);
    ASSERT_EQ(noBoot.size(), 4u);
    EXPECT_EQ(noBoot.front().type, 0x01u);
    EXPECT_EQ(Le16(noBoot.back().bytes, 10), 2u);
}

TEST_F(ImageBuild, FirmwareComponentsCarryTheirFields) {
    Bytes edc = BuildEdcFirmware({3, 1, 4}, 64);
    EXPECT_EQ(Le32(edc, 0), 0x5555BBBBu);
    EXPECT_EQ(Bytes(edc.begin() + 17, edc.begin() + 20), (Bytes{3, 1, 4}));
    EXPECT_EQ(Be32(edc, 32), 0x20000008u);
    Bytes mpi = BuildNicMpiFirmware({1, 5, 2}, 64);
    EXPECT_EQ(Le32(mpi, 0), 0u);
    EXPECT_EQ(Be32(mpi, 32), 0x10000008u);
    EXPECT_THROW(BuildEdcFirmware({1, 0, 0}, 35), std::invalid_argument);

    Bytes cfg = BuildMpiConfig(2048);
    EXPECT_EQ(Le32(cfg, 0), kMpiConfigSignature);
    const uint32_t stored = Le32(cfg, 4);
    std::fill_n(cfg.begin() + 4, 4, 0);
    EXPECT_EQ(0u - DwordSum(cfg, 0, 1280), stored);
    EXPECT_THROW(BuildMpiConfig(1276), std::invalid_argument);

    for (uint32_t sig : {kCrbinitSignature, kPegtuneSignature, kBootloaderSignature}) {
        Bytes t = BuildTrailerComponent(sig, {7, 8, 9}, 256);
        EXPECT_EQ(Le32(t, 224), sig);
        EXPECT_EQ(Bytes(t.begin() + 228, t.begin() + 231), (Bytes{7, 8, 9}));
        EXPECT_EQ(DwordSum(t, 0, t.size()), 0u);
    }
    EXPECT_THROW(BuildTrailerComponent(kCrbinitSignature, {}, 66), std::invalid_argument);
    Bytes nic = BuildNicFirmware({5, 4, 3}, 512);
    EXPECT_EQ(Le32(nic, 0), kNicFirmwareSignature);
    EXPECT_EQ(Le32(nic, 12), 512u);
    EXPECT_EQ(DwordSum(nic, 0, 512), 0u);

    Bytes fcMpi = BuildFcMpiFirmware({2, 1, 9}, 64);
    EXPECT_EQ((std::array<uint32_t, 3>{Be32(fcMpi, 16), Be32(fcMpi, 20), Be32(fcMpi, 24)}),
              (std::array<uint32_t, 3>{2, 1, 9}));
    Bytes pep = BuildPepComponent({1, 2, 3, 4}, 128);
    EXPECT_EQ(Bytes(pep.begin() + 76, pep.begin() + 80), (Bytes{4, 3, 2, 1}));
    Bytes board = BuildPepBoardConfig({5, 6, 7, 8}, 16);
    EXPECT_EQ(Bytes(board.begin() + 4, board.begin() + 8), (Bytes{8, 7, 6, 5}));
}

TEST_F(ImageBuild, RomChainsOfAnyKind) {
    RomImageRecipe common{0, {3, 70, 0}, 1024, 0x1077, 0, "2910", 5};
    RomImageRecipe pxe{2, {2, 11, 0}, 0, 0x8086, 4, "", {}};
    Bytes chain = BuildRomChain({common, pxe});
    auto imgs = WalkChain(chain);
    ASSERT_EQ(imgs.size(), 2u);
    EXPECT_EQ(Text(chain, 64, 4), "MODL");
    EXPECT_EQ(chain[20], 5);
    EXPECT_EQ(Text(chain, 9, 4), "2910");
    EXPECT_EQ(imgs[1].codeType, 2u);
    EXPECT_EQ(imgs[1].vendor, 0x8086u);
    EXPECT_EQ(imgs[1].device, 4u);
    EXPECT_TRUE(RomChecksumOk(chain, 0) && RomChecksumOk(chain, 1024));

    // Each break changes what it says, keeping the checksum unless that is
    // the break.
    using mutate::RomBreak;
    const std::pair<RomBreak, size_t> changed[] = {{RomBreak::kNoLastImage, 1024 + 0x1C + 0x15},
                                                   {RomBreak::kRomSignature, 1024 + 1},
                                                   {RomBreak::kDataSignature, 1024 + 0x1C},
                                                   {RomBreak::kNotADriver, 1024 + 0x1C + 6},
                                                   {RomBreak::kCodeType, 1024 + 0x1C + 0x14}};
    for (const auto &[how, at] : changed) {
        Bytes b = chain;
        mutate::BreakRomChain(b, how, 1);
        EXPECT_NE(b[at], chain[at]) << int(how);
        EXPECT_TRUE(RomChecksumOk(b, 1024)) << int(how);
        EXPECT_TRUE(RomChecksumOk(b, 0)) << int(how);
    }
    mutate::BreakRomChain(chain, RomBreak::kChecksum, 0);
    EXPECT_FALSE(RomChecksumOk(chain, 0));
    EXPECT_THROW(mutate::BreakRomChain(chain, RomBreak::kChecksum, 2), std::out_of_range);
}

TEST_F(ImageBuild, MutationsKeepTheTableChecksumAndChangeOneField) {
    MultiImageRecipe s = SampleImage(ImageFamily::kKite, {kVendorId, 0x7C50, kVendorId, 0x0C60}, 256);
    const Bytes good = BuildMultiImage(s);
    const size_t table = Le16(good, 6);
    EXPECT_EQ(WordSum(good, 0, table), 0);
    EXPECT_EQ(Le16(good, 10), s.components.size() + 1);
    EXPECT_NE(ComponentIndex(s, 0x9E), std::string::npos);
    EXPECT_EQ(ComponentIndex(s, 0x4242), std::string::npos);

    Bytes b = good;
    mutate::RegionChipRevision(b, 2, 0x77);
    EXPECT_EQ(Le16(b, 3 * 32 + 16), 0x77u);
    EXPECT_EQ(WordSum(b, 0, table), 0);
    b = good;
    mutate::Card(b, 1, 0, {kVendorId, 0x2261, 0x1590, 0x00F9});
    const size_t list1 = (Le16(b, 10) + 1) * 32 + 8 + 8 + 8;  // list 0 holds one card
    EXPECT_EQ(Le16(b, list1 + 8 + 2), 0x2261u);
    EXPECT_EQ(WordSum(b, 0, table), 0);
    b = good;
    mutate::CardListEntries(b, 0, 1025);
    EXPECT_EQ(Le16(b, (Le16(b, 10) + 1) * 32 + 8 + 2), 1025u);
    b = good;
    mutate::TableChecksum(b);
    EXPECT_NE(WordSum(b, 0, table), 0);
    b = good;
    std::span<uint8_t> fw = mutate::ComponentBytes(b, 0);
    EXPECT_TRUE(std::equal(fw.begin(), fw.end(), s.components[0].payload.begin(), s.components[0].payload.end()));
    mutate::CorruptComponent(b, 0, 40);
    EXPECT_NE(b, good);
    EXPECT_THROW(mutate::CorruptComponent(b, 0, fw.size()), std::out_of_range);
    mutate::Truncate(b, 100);
    EXPECT_EQ(b.size(), 100u);
}

TEST_F(ImageBuild, PldmPackageHeaderReadsBack) {
    EXPECT_EQ(Crc32(reinterpret_cast<const uint8_t *>("123456789"), 9), 0xCBF43926u);
    const Bytes payload(300, 0x5A);
    PldmRecipe recipe;
    recipe.formatRevision = 3;
    recipe.version = "pkg-7";
    recipe.components = 2;
    const Bytes pkg = BuildPldmPackage(payload, recipe);
    EXPECT_EQ(Bytes(pkg.begin(), pkg.begin() + 4), (Bytes{0x31, 0x19, 0xCE, 0x2F}));
    EXPECT_EQ(pkg[16], 3);
    const size_t header = Le16(pkg, 17);
    ASSERT_EQ(pkg.size(), header + payload.size());
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), pkg.begin() + header));
    EXPECT_EQ(Text(pkg, 36, pkg[35]), "pkg-7");
    EXPECT_EQ(Le32(pkg, header - 4), Crc32(pkg.data(), header - 4));
    // Both component entries name the payload: offset then size, just before
    // the version string of each.
    const size_t lastEntry = header - 4 - 5 - 10;
    EXPECT_EQ(Le32(pkg, lastEntry), header);
    EXPECT_EQ(Le32(pkg, lastEntry + 4), payload.size());
    recipe.formatRevision = 5;
    EXPECT_THROW(BuildPldmPackage(payload, recipe), std::invalid_argument);
}
