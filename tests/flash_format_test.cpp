// The flash image formats as the flash layer reads them: checksums, the
// image layout table and its card-type lists, the layout table locator,
// component headers and trailers, expansion-ROM chains and PLDM packages.
// Inputs come from the image builder; reads outside a buffer are caught by
// the exactly sized copies (and AddressSanitizer in the sanitizer build).
#include <array>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <random>

#include "flash_testutil.h"

using namespace flashtest;

namespace {

// Reference sums written from the definitions, byte by byte.
uint16_t NaiveSum16(const Bytes &b, size_t words) {
    uint32_t s = 0;
    for (size_t i = 0; i < words; ++i) s += b[2 * i] | (b[2 * i + 1] << 8);
    return uint16_t(-uint16_t(s));
}

uint32_t NaiveSum32(const Bytes &b, size_t words) {
    uint32_t s = 0;
    for (size_t i = 0; i < words; ++i)
        s += uint32_t(b[4 * i]) | uint32_t(b[4 * i + 1]) << 8 | uint32_t(b[4 * i + 2]) << 16 |
             uint32_t(b[4 * i + 3]) << 24;
    return 0u - s;
}

Bytes Random(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    for (auto &x : b) x = uint8_t(rng());
    return b;
}

// The region entry `i` of a built image.
const ILT_Region_t *Entry(const Bytes &b, uint32_t i) { return vtfuILT_Region_GetRegionByIndex(b.data(), Size(b), i); }

// Checks a boot-code chain the way a component check does: as the boot code
// region of a Kite image.  0 or the complement of 7.
uint32_t CheckChain(const Bytes &chain, VTAPI_FlashImageVersion *v = nullptr) {
    img::MultiImageRecipe m;
    m.components = {{0x07, {}, 0, 0, chain}};
    const Bytes b = img::BuildMultiImage(m);
    return ValidateGenericImages(b.data(), Size(b), vtfuILT_Region_GetRegionByIndex(b.data(), Size(b), 0), v);
}

img::MultiImageRecipe TwoListRecipe() {
    img::MultiImageRecipe m;
    m.components = {{0x07, {3, 67, 0}, 0, 0, Bytes(64, 1)},
                    {0x01, {9, 1, 2}, 2, 0, Bytes(64, 2)},
                    {0x01, {9, 1, 3}, 4, 7, Bytes(64, 3)},
                    {0x9E, {1, 0, 0}, 0x8002, 0, Bytes(64, 4)}};
    m.cardLists = {{0, {kOrlaCard}}, {2, {kTernCard, kOrlaCard}}};
    return m;
}

class FlashFormat : public ::testing::Test {
protected:
    vttest::SysrootScope root_;
    CaptureScope capture_;
};

}  // namespace

TEST_F(FlashFormat, WordSumsMatchTheirDefinitionAtEveryLength) {
    // Lengths around the folding points of the wide adders and odd tails.
    for (size_t words : {0u, 1u, 3u, 4u, 5u, 131071u, 131072u, 131075u, 300000u}) {
        const Bytes b = Random(words * 4 + 3, uint32_t(words));
        SCOPED_TRACE(words);
        EXPECT_EQ(vtfuHLPR_Sum16(b.data(), uint32_t(words)), NaiveSum16(b, words));
        EXPECT_EQ(vtfuCalculateChksum(b.data(), uint32_t(words)), uint16_t(-NaiveSum16(b, words)));
        EXPECT_EQ(vtfuHLPR_Sum32(b.data(), uint32_t(words)), NaiveSum32(b, words));
    }
    // All-ones words make every lane as large as it gets.
    const Bytes ones(8 * 70000, 0xFF);
    EXPECT_EQ(vtfuHLPR_Sum16(ones.data(), 4 * 70000), NaiveSum16(ones, 4 * 70000));
    EXPECT_EQ(vtfuHLPR_Sum32(ones.data(), 2 * 70000), NaiveSum32(ones, 2 * 70000));
    EXPECT_EQ(vtfuHLPR_Sum16(nullptr, 4), 0);
    EXPECT_TRUE(Logged("HLPR_Sum16: result = two's complement of sum="));

    EXPECT_EQ(vtfuHLPR_GetDoubleWord(0x5678, 0x1234), 0x12345678u);
    const uint8_t be[4] = {0x20, 0x00, 0x00, 0x08};
    EXPECT_EQ(vtfuHLPR_BEndian4(be), 0x20000008u);
}

TEST_F(FlashFormat, OptionRomChecksumLeavesOutTheByteBeforeTheLast) {
    Bytes rom = img::BuildRomChain({{0, {3, 67, 0}, 4096, 0x1077, 0, "", {}}});
    EXPECT_EQ(vtfuComputeChecksum(0, rom.data(), Size(rom), 0), 1u);
    rom[4094] ^= 0x33;  // deliberately outside the sum
    EXPECT_EQ(vtfuComputeChecksum(0, rom.data(), Size(rom), 0), 1u);
    rom[100] ^= 0x01;
    EXPECT_EQ(vtfuComputeChecksum(0, rom.data(), Size(rom), 0), 0u);
    EXPECT_EQ(vtfuComputeChecksum(1, rom.data(), Size(rom), 0), 1u);  // rewrites the last byte
    EXPECT_EQ(vtfuComputeChecksum(0, rom.data(), Size(rom), 0), 1u);
    EXPECT_TRUE(Logged("vtfuComputeChecksum: Updating check sum 0x"));

    // The largest image (127 units) of random bytes, its checksum set here.
    Bytes big = Random(127 * 512, 7);
    big[2] = 127;
    uint8_t sum = 0;
    for (size_t i = 0; i + 2 < big.size(); ++i) sum = uint8_t(sum + big[i]);
    big.back() = uint8_t(-sum);
    EXPECT_EQ(vtfuComputeChecksum(0, big.data(), Size(big), 0), 1u);
    big.back() ^= 0x80;
    EXPECT_EQ(vtfuComputeChecksum(0, big.data(), Size(big), 0), 0u);

    // An image at a later start, and a size byte read as signed: 0x80 units
    // is -64 KiB, whose checksum byte lies before the buffer.
    Bytes two(8192, 0);
    std::copy(rom.begin(), rom.end(), two.begin() + 4096);
    EXPECT_EQ(vtfuComputeChecksum(0, two.data(), Size(two), 4096), 1u);
    auto exact = std::make_unique<uint8_t[]>(4096);
    std::memcpy(exact.get(), rom.data(), 4096);
    exact[2] = 0x80;
    EXPECT_EQ(vtfuComputeChecksum(1, exact.get(), 4096, 0), 0u);
    exact[2] = 0x09;  // 4.5 KiB: runs past the end
    EXPECT_EQ(vtfuComputeChecksum(0, exact.get(), 4096, 0), 0u);
    EXPECT_EQ(vtfuComputeChecksum(0, exact.get(), 4096, 4095), 0u);
}

TEST_F(FlashFormat, LayoutTableHeaderRegionsAndTimeStamp) {
    img::MultiImageRecipe recipe = TwoListRecipe();
    recipe.signature = "VILT";
    recipe.imageVersion = {1, 2, 3};
    const Bytes b = img::BuildMultiImage(recipe);
    const auto *h = reinterpret_cast<const ILT_Header_t *>(b.data());
    EXPECT_EQ(vtfuILT_Header_CompareSignature(h), 1u);
    EXPECT_EQ(vtfuILT_Header_GetImageHeaderSize(), 32u);
    EXPECT_EQ(vtfuILT_Header_GetTableVersion(h), 2);
    EXPECT_EQ(vtfuILT_Header_GetTableLength(h), img::MultiImageTableLength(recipe));
    EXPECT_EQ(vtfuILT_Header_GetNumOfRegionEntries(h), 5);
    EXPECT_EQ(vtfuHLPR_Sum16(b.data(), vtfuILT_Header_GetTableLength(h) / 2), 0);
    char text[16];
    vtfuILT_Header_GetImageVersion(h, text, sizeof text);
    EXPECT_STREQ(text, "01.02.03");
    vtfuILT_Header_GetImageVersionNoSeparator(h, text, sizeof text);
    EXPECT_STREQ(text, "010203");

    // Entries 0 to N-2; the time-stamp slot N-1 is not a region.
    ASSERT_NE(Entry(b, 3), nullptr);
    EXPECT_EQ(vtflash::RegionType(*Entry(b, 3)), 0x9Eu);
    EXPECT_EQ(vtflash::RegionCardType(*Entry(b, 2)), 4u);
    EXPECT_EQ(vtflash::RegionChipRevision(*Entry(b, 2)), 7u);
    EXPECT_EQ(Entry(b, 4), nullptr);
    EXPECT_TRUE(Logged("vtfuILT_Region_GetRegionByIndex: invalid index 4"));
    const ILT_Timestamp_t *ts = vtfuILT_Region_GetTimeStampEntry(b.data(), Size(b));
    ASSERT_NE(ts, nullptr);
    EXPECT_EQ(vtflash::Le16(ts->Marker), 0x1400);
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(ts) - b.data(), 5 * 32);

    // A table cut before entry 3 has no entry 3, although N says so.
    EXPECT_EQ(vtfuILT_Region_GetRegionByIndex(b.data(), 4 * 32 + 31, 3), nullptr);
    Bytes none = b;
    img::mutate::RegionCount(none, 0);
    EXPECT_EQ(Entry(none, 0), nullptr);
    EXPECT_EQ(vtfuILT_Region_GetTimeStampEntry(none.data(), Size(none)), nullptr);

    Bytes signature = b;
    img::mutate::Signature(signature, "VFLT");
    EXPECT_EQ(vtfuILT_Header_CompareSignature(reinterpret_cast<const ILT_Header_t *>(signature.data())), 0u);

    // The stamp: local time, the marker, and a table that sums to zero again.
    Bytes stamped(b.size(), 0);
    const time_t before = time(nullptr);
    ASSERT_EQ(vtfuUdpateTimeStamp(stamped.data(), Size(stamped), b.data(), Size(b)), 0u);
    const time_t after = time(nullptr);
    const uint32_t length = vtfuILT_Header_GetTableLength(h);
    EXPECT_EQ(vtfuHLPR_Sum16(stamped.data(), length / 2), 0);
    const uint8_t *s = stamped.data() + 5 * 32;
    bool matches = false;
    for (time_t t : {before, after}) {
        struct tm lt {};
        localtime_r(&t, &lt);
        matches = matches || (vtflash::Le16(s + 6) == lt.tm_year + 1900 && s[8] == lt.tm_mon + 1 &&
                              s[9] == lt.tm_mday && s[10] == lt.tm_hour && s[11] == lt.tm_min);
    }
    EXPECT_TRUE(matches);
    EXPECT_EQ(vtflash::Le16(s + 12), 0x1400);
    EXPECT_TRUE(std::equal(b.begin() + 32, b.begin() + 5 * 32, stamped.begin() + 32));
    EXPECT_TRUE(Logged("UdpateTimeStamp: "));
    EXPECT_NE(vtfuUdpateTimeStamp(stamped.data(), length - 1, b.data(), Size(b)), 0u);
    EXPECT_NE(vtfuUdpateTimeStamp(stamped.data(), Size(stamped), b.data(), 40), 0u);
}

TEST_F(FlashFormat, StructuralCheckReportsTheFirstMissingPart) {
    const Bytes b = img::BuildMultiImage(TwoListRecipe());
    const uint32_t table = uint32_t(img::MultiImageTableLength(TwoListRecipe()));
    EXPECT_EQ(vtfuILT_ValidateILTHeader(b.data(), table), 1u);
    struct Case {
        uint32_t size;
        const char *message;
    };
    const Case cases[] = {
        {31, "buffer is too small - no ILT_Header_t"},
        {5 * 32 - 1, "buffer is too small - missing ILT_Region_t"},
        {6 * 32 - 1, "buffer is too small - no ILT_Timestamp_t"},
        {6 * 32 + 7, "buffer is too small - no ILT_CardTypeHeader_t"},
        {6 * 32 + 8 + 7, "buffer is too small - no ILT_CardTypeList_t header"},
        {6 * 32 + 8 + 8 + 7, "buffer is too small - missing ILT_CardTypeList_Entry_t"},
        {table - 1, "buffer is too small - missing ILT_CardTypeList_Entry_t"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.message);
        ClearCapture();
        auto copy = std::make_unique<uint8_t[]>(c.size);
        std::memcpy(copy.get(), b.data(), c.size);
        EXPECT_EQ(vtfuILT_ValidateILTHeader(copy.get(), c.size), 0u);
        ASSERT_EQ(gLog.size(), 1u);
        EXPECT_EQ(gLog[0], std::string("vtfuILT_ValidateILTHeader ") + c.message);
    }

    Bytes many = b;
    img::mutate::RegionCount(many, 257);
    EXPECT_EQ(vtfuILT_ValidateILTHeader(many.data(), Size(many)), 0u);
    EXPECT_TRUE(Logged("vtfuILT_ValidateILTHeader invalid ILT Region count"));
    Bytes cards = b;
    img::mutate::CardListEntries(cards, 1, 1025);
    EXPECT_EQ(vtfuILT_ValidateILTHeader(cards.data(), Size(cards)), 0u);

    // A bare 32-byte header: the region test passes only for N of 0 or 1.
    for (uint16_t n : {0, 1, 2}) {
        Bytes header(b.begin(), b.begin() + 32);
        img::mutate::RegionCount(header, n);
        ClearCapture();
        EXPECT_EQ(vtfuILT_ValidateILTHeader(header.data(), 32), 0u);
        EXPECT_EQ(Logged("missing ILT_Region_t"), n == 2) << n;
    }
    // No card-type lists at all is a valid structure.
    img::MultiImageRecipe empty;
    const Bytes e = img::BuildMultiImage(empty);
    EXPECT_EQ(vtfuILT_ValidateILTHeader(e.data(), Size(e)), 1u);
    EXPECT_EQ(vtfuILT_CardType_Header_GetNumOfCardTypeList(e.data(), Size(e)), 0u);
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(e.data(), Size(e), 0x6421, 0x0312, 0x1077), VTFU_NONE);
}

TEST_F(FlashFormat, CardTypeListsAndTheFamilyCardMatch) {
    const Bytes b = img::BuildMultiImage(TwoListRecipe());
    EXPECT_EQ(vtfuILT_CardType_Header_GetNumOfCardTypeList(b.data(), Size(b)), 2u);
    const ILT_CardTypeList_t *second = vtfuILT_CardTypeList_GetCardTypeListByIndex(b.data(), Size(b), 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(vtflash::Le16(second->CardType), 2);
    EXPECT_EQ(vtflash::Le16(second->NoEntriesInList), 2);
    EXPECT_EQ(vtfuILT_CardTypeList_GetCardTypeListByIndex(b.data(), Size(b), 2), nullptr);

    // Same family, vendor 0x1077, subsystem IDs equal or 0xFFFF on either side.
    img::CardEntry c = kOrlaCard;
    auto match = [&](uint16_t did, uint16_t ssdid, uint16_t ssvid) {
        const uint8_t raw[8] = {uint8_t(c.vendorId),      uint8_t(c.vendorId >> 8),   uint8_t(c.deviceId),
                                uint8_t(c.deviceId >> 8), uint8_t(c.subVendorId),     uint8_t(c.subVendorId >> 8),
                                uint8_t(c.subSystemId),   uint8_t(c.subSystemId >> 8)};
        return vtfuILT_CardTypeList_CompareSignature(reinterpret_cast<const ILT_CardTypeList_Entry_t *>(raw), did,
                                                     ssdid, ssvid);
    };
    EXPECT_EQ(match(0x6420, 0x0312, 0x1077), 1u);  // the Orla NIC function: same family
    EXPECT_TRUE(Logged("ILT_CardTypeList_CompareSignature: Matched Orla card type"));
    EXPECT_EQ(match(0x6421, 0x0313, 0x1077), 0u);
    EXPECT_EQ(match(0x6421, 0xFFFF, 0x1077), 1u);
    EXPECT_EQ(match(0x6311, 0x0312, 0x1077), 0u);  // Tern adapter, Orla entry
    c.subVendorId = 0xFFFF;
    EXPECT_EQ(match(0x6421, 0x0312, 0x1E5A), 1u);  // any subsystem vendor
    c.vendorId = 0x8086;
    EXPECT_EQ(match(0x6421, 0x0312, 0x1077), 0u);
    c = {0x1077, 0x6201, 0x1077, 0x0310};
    EXPECT_EQ(match(0x6200, 0x0310, 0x1077), 1u);
    EXPECT_TRUE(Logged("Matched Sorrel card type"));
    c = {0x1077, 0x7181, 0x1077, 0x0330};
    EXPECT_EQ(match(0x7180, 0x0330, 0x1077), 1u);
    EXPECT_TRUE(Logged("Matched Tove card type"));
    c = kKiteCard;  // the FC families have no family rule
    EXPECT_EQ(match(0x7C50, 0x0C60, 0x1077), 0u);

    // The default list is skipped unless it is the only one; the Tern form
    // takes it.
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(b.data(), Size(b), 0x6421, 0x0312, 0x1077), 2u);
    EXPECT_EQ(vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(b.data(), Size(b), 0x6421, 0x0312, 0x1077), 0u);
    EXPECT_EQ(vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(b.data(), Size(b), 0x6421, 0x0312, 0x1077), 1u);
    EXPECT_EQ(vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(b.data(), Size(b), 0x6311, 0x0320, 0x1077), 0u);
    img::MultiImageRecipe only;
    only.cardLists = {{0, {kOrlaCard}}};
    const Bytes o = img::BuildMultiImage(only);
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(o.data(), Size(o), 0x6421, 0x0312, 0x1077), 0u);

    // Entries are counted in 8 bits: the 300th entry of a list is not seen.
    img::MultiImageRecipe big;
    big.cardLists = {{0, {kTernCard}}, {5, std::vector<img::CardEntry>(300, kTernCard)}};
    big.cardLists[1].entries[299] = kOrlaCard;
    const Bytes g = img::BuildMultiImage(big);
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(g.data(), Size(g), 0x6421, 0x0312, 0x1077), VTFU_NONE);
    big.cardLists[1].entries[255] = kOrlaCard;
    const Bytes g2 = img::BuildMultiImage(big);
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(g2.data(), Size(g2), 0x6421, 0x0312, 0x1077), 5u);

    // A list count larger than the table: the walk stops at the end.
    Bytes over = b;
    img::mutate::CardListCount(over, 40);
    EXPECT_EQ(vtfuILT_CardTypeList_GetCardTypeListByIndex(over.data(), Size(over), 39), nullptr);
    EXPECT_EQ(vtfuILT_CardTypeList_GetMyCardTypeFromCardList(over.data(), Size(over), 0x6311, 0x0320, 0x1077), 2u);
}

TEST_F(FlashFormat, CardTypeMaskAndImagesPerCard) {
    EXPECT_EQ(vtfuCardTypeCompare(0, 7), 1u);
    EXPECT_EQ(vtfuCardTypeCompare(0x8000, 0), 1u);  // only the byte-swap marker: every card
    EXPECT_EQ(vtfuCardTypeCompare(0x8004, 4), 1u);
    EXPECT_EQ(vtfuCardTypeCompare(4, 3), 0u);
    EXPECT_TRUE(Logged("CardTypeCompare: 4 vs 3 failed"));
    EXPECT_EQ(vtfuCardTypeCompare(0x8000 | 0x4000, 0x4000), 1u);

    const Bytes b = img::BuildMultiImage(TwoListRecipe());
    // Types: 0 for every card, 2, 4 at revision 7, and 2 with the marker.
    EXPECT_EQ(vtfuHowManyImagesForCardType(b.data(), Size(b), 2, 0), 3u);
    EXPECT_EQ(vtfuHowManyImagesForCardType(b.data(), Size(b), 4, 7), 2u);
    EXPECT_EQ(vtfuHowManyImagesForCardType(b.data(), Size(b), 4, 6), 1u);
    EXPECT_EQ(vtfuHowManyImagesForCardType(b.data(), Size(b), -1, 0), 1u);  // counts as 0
    EXPECT_EQ(vtfuHowManyImagesForCardType(b.data(), 3 * 32, 2, 0), VTFU_NONE);

    Bytes out(64);
    EXPECT_EQ(vtfuGetSpecificImageComponentInBuffer(out.data(), Size(out), b.data(), Size(b), Entry(b, 1)), 0u);
    EXPECT_EQ(out, Bytes(64, 2));
    EXPECT_EQ(vtfuGetSpecificImageComponentInBuffer(out.data(), 63, b.data(), Size(b), Entry(b, 1)), VTFU_NONE);
    EXPECT_EQ(vtfuGetSpecificImageComponentInBuffer(out.data(), Size(out), b.data(), Size(b), nullptr), VTFU_NONE);
    Bytes outside = b;
    img::mutate::RegionExtent(outside, 1, uint32_t(b.size() - 32), 64);
    EXPECT_EQ(
        vtfuGetSpecificImageComponentInBuffer(out.data(), Size(out), outside.data(), Size(outside), Entry(outside, 1)),
        VTFU_NONE);
}

TEST_F(FlashFormat, LayoutTableLocatorAndTheRefusedTernOffset) {
    const Bytes ok = img::BuildFltLocator(0x40000);
    EXPECT_EQ(vtfuValidateFLTLocator(ok.data(), Size(ok)), 1u);
    EXPECT_TRUE(Logged("ValidateFLTLocator: FLTDS OK!"));
    EXPECT_EQ(vtfuValidateTernFLTLocator(ok.data(), Size(ok)), 1u);
    EXPECT_EQ(vtfuValidateFLTLocator(ok.data(), 15), 0u);

    Bytes lower = ok;
    std::memcpy(lower.data(), "vflt", 4);
    lower[10] = lower[11] = 0;
    // Re-balance the words so only the case differs.
    uint32_t sum = 0;
    for (size_t i = 0; i < 16; i += 2) sum += lower[i] | (lower[i + 1] << 8);
    const uint16_t fix = uint16_t(-uint16_t(sum));
    lower[10] = uint8_t(fix);
    lower[11] = uint8_t(fix >> 8);
    ClearCapture();
    EXPECT_EQ(vtfuValidateFLTLocator(lower.data(), Size(lower)), 0u);
    EXPECT_TRUE(Logged("ValidateFLTLocator: Signature Match Failed!"));
    EXPECT_EQ(vtfuValidateTernFLTLocator(lower.data(), Size(lower)), 1u);

    Bytes sum1 = ok;
    sum1[12] ^= 1;
    EXPECT_EQ(vtfuValidateFLTLocator(sum1.data(), Size(sum1)), 0u);
    EXPECT_TRUE(Logged("ValidateFLTLocator: Checksum Failed!"));

    // Exactly 0x3F1000 is refused, deliberately, and on Tern only.
    const Bytes odd = img::BuildFltLocator(0x3F1000);
    EXPECT_EQ(vtfuValidateFLTLocator(odd.data(), Size(odd)), 1u);
    EXPECT_EQ(vtfuValidateTernFLTLocator(odd.data(), Size(odd)), 0u);
    EXPECT_TRUE(Logged("ValidateTernFLTLocator: Invalid FLT offset!"));
    const Bytes near = img::BuildFltLocator(0x3F1001);
    EXPECT_EQ(vtfuValidateTernFLTLocator(near.data(), Size(near)), 1u);
}

TEST_F(FlashFormat, FirmwareHeadersMatchTheirEntries) {
    img::MultiImageRecipe m;
    m.components = {{0x01, {9, 12, 1}, 0, 0, img::BuildRiscFirmware({9, 12, 1}, 32, 256)},
                    {0x45, {3, 1, 4}, 0, 0, img::BuildEdcFirmware({3, 1, 4}, 64)},
                    {0x40, {1, 5, 2}, 0, 0, img::BuildNicMpiFirmware({1, 5, 2}, 64)},
                    {0x01, {9, 12, 2}, 0, 0, img::BuildRiscFirmware({9, 12, 1}, 32, 256)},
                    {0x01, {9, 12, 1}, 0, 0, Bytes(35, 0)}};
    const Bytes b = img::BuildMultiImage(m);

    VTFU_RiscFirmwareHeader risc;
    ASSERT_EQ(vtfuGetFirmwareHeader(b.data(), Size(b), Entry(b, 0), &risc), 0u);
    uint32_t major = 0, minor = 0, sub = 0;
    vtfuGetRiscVersion(&risc, &major, &minor, &sub);
    EXPECT_EQ((std::array<uint32_t, 3>{major, minor, sub}), (std::array<uint32_t, 3>{9, 12, 1}));
    vtfuPrintFirmwareHeader(&risc);
    EXPECT_TRUE(Logged("PrintFirmwareHeader: Fw Version : 9.12.1"));
    EXPECT_EQ(vtfuValidateFirmware(&risc, Entry(b, 0), 32), 1u);
    EXPECT_EQ(vtfuValidateFirmware(&risc, Entry(b, 0), 8), 0u);
    EXPECT_EQ(vtfuValidateRiscFirmwareImage(b.data(), Size(b), Entry(b, 0), 32), 1u);
    EXPECT_EQ(vtfuValidateRiscFirmwareImage(b.data(), Size(b), Entry(b, 3), 32), 0u);    // entry says 9.12.2
    EXPECT_EQ(vtfuGetFirmwareHeader(b.data(), Size(b), Entry(b, 4), &risc), VTFU_NONE);  // too short

    VTFU_EdcFirmwareHeader edc;
    ASSERT_EQ(vtfuGetEdcFirmwareHeader(b.data(), Size(b), Entry(b, 1), &edc), 0u);
    EXPECT_EQ(vtfuValidateEdcFirmware(&edc, Entry(b, 1)), 1u);
    EXPECT_EQ(vtfuValidateEdcFirmware(&edc, Entry(b, 0)), 0u);  // another version
    VTFU_EdcFirmwareHeader mpi;
    ASSERT_EQ(vtfuGetMpiFirmwareHeader(b.data(), Size(b), Entry(b, 2), &mpi), 0u);
    EXPECT_EQ(vtfuValidateMpiFirmware(&mpi, Entry(b, 2)), 1u);
    EXPECT_EQ(vtfuValidateEdcFirmware(&mpi, Entry(b, 2)), 0u);  // no EDC signature
    EXPECT_TRUE(Logged("vtfuValidateEdcFirmware: Signature mismatch"));
    EXPECT_EQ(vtfuValidateMpiFirmware(&edc, Entry(b, 1)), 0u);  // EDC type word
}

TEST_F(FlashFormat, MpiConfigurationTrailersAndNicFirmwareSum) {
    img::MultiImageRecipe m;
    m.components = {{0x41, {}, 0, 0, img::BuildMpiConfig(2048)},
                    {0x41, {}, 0, 0, img::BuildMpiConfig(2048)},
                    {0x41, {}, 0, 0, img::BuildMpiConfig(2048)},
                    {0x41, {}, 0, 0, Bytes(65537, 0)}};
    Bytes b = img::BuildMultiImage(m);
    img::mutate::CorruptComponent(b, 1, 0);     // signature
    img::mutate::CorruptComponent(b, 2, 1000);  // inside the summed part
    EXPECT_EQ(vtfuValidateMpiConfigParamImage(b.data(), Size(b), Entry(b, 0)), 0u);
    EXPECT_EQ(vtfuValidateMpiConfigParamImage(b.data(), Size(b), Entry(b, 1)), 5u);
    EXPECT_TRUE(Logged("Unable to validate Mpi config param image (Signature mismatched)"));
    EXPECT_EQ(vtfuValidateMpiConfigParamImage(b.data(), Size(b), Entry(b, 2)), 5u);
    EXPECT_TRUE(Logged("Unable to validate Mpi config param image (Invalid checksum)"));
    EXPECT_EQ(vtfuValidateMpiConfigParamImage(b.data(), Size(b), Entry(b, 3)), 5u);  // over 64 KiB
    Bytes cfg = img::BuildMpiConfig(1280);
    EXPECT_EQ(vtfuVerifyMpiCfgParamsHeaderChkSum(cfg.data(), Size(cfg)), 1u);
    EXPECT_EQ(vtflash::Le32(cfg.data() + 4), 0u);  // the stored word is zeroed by the check
    EXPECT_EQ(vtfuVerifyMpiCfgParamsHeaderChkSum(cfg.data(), 1279), 0u);

    using Check = uint32_t (*)(const uint8_t *, uint32_t, uint8_t *);
    const struct {
        Check check;
        uint32_t signature;
    } trailers[] = {{vtfuValidateCRBinit, img::kCrbinitSignature},
                    {vtfuValidatePegtune, img::kPegtuneSignature},
                    {vtfuValidateBootloader, img::kBootloaderSignature}};
    for (const auto &t : trailers) {
        SCOPED_TRACE(t.signature);
        Bytes c = img::BuildTrailerComponent(t.signature, {4, 5, 6}, 512);
        uint8_t version[3] = {};
        EXPECT_EQ(t.check(c.data(), Size(c), version), 1u);
        EXPECT_EQ((std::array<uint8_t, 3>{version[0], version[1], version[2]}), (std::array<uint8_t, 3>{4, 5, 6}));
        for (const auto &other : trailers) {
            if (other.signature != t.signature) {
                EXPECT_EQ(other.check(c.data(), Size(c), nullptr), 0u);
            }
        }
        EXPECT_EQ(t.check(c.data(), 31, nullptr), 0u);
        c[7] ^= 0x40;
        EXPECT_EQ(t.check(c.data(), Size(c), nullptr), 0u);
    }
    EXPECT_TRUE(Logged("vtfuValidateBootloader: Checksum failed"));

    // The trailer forms locate their component through the entry.
    img::MultiImageRecipe t;
    t.components = {{0x72, {}, 0, 0, img::BuildTrailerComponent(img::kBootloaderSignature, {7, 8, 9}, 256)}};
    const Bytes tb = img::BuildMultiImage(t);
    uint8_t version[3] = {};
    EXPECT_EQ(vtfuValidateBootloaderImage(tb.data(), Size(tb), Entry(tb, 0), version), 1u);
    EXPECT_EQ(version[0], 7);
    EXPECT_EQ(vtfuValidateCRBinitImage(tb.data(), Size(tb), Entry(tb, 0), version), 0u);
    EXPECT_EQ(vtfuValidatePegtuneImage(tb.data(), Size(tb) - 16, Entry(tb, 0), version), 0u);

    Bytes nic = img::BuildNicFirmware({5, 4, 3}, 1024);
    EXPECT_EQ(vtfuValidateNicFirmware(nic.data(), Size(nic), version), 1u);
    EXPECT_EQ(version[2], 3);
    EXPECT_EQ(vtfuValidateNicFirmware(nic.data(), 1020, nullptr), 0u);  // the stated length runs past
    nic[600] ^= 1;
    EXPECT_EQ(vtfuValidateNicFirmware(nic.data(), Size(nic), nullptr), 0u);
}

TEST_F(FlashFormat, ExpansionRomImagesAndChains) {
    const Bytes chain = img::BuildRomChain({{0, {3, 67, 0}, 0, 0x1077, 0x7C50, "", {}},
                                            {1, {4, 21, 0}, 1024, 0x1077, 0, "", {}},
                                            {2, {2, 11, 0}, 0, 0x8086, 4, "", {}},
                                            {3, {7, 34, 0}, 0, 0x1077, 0x7C50, "", {}}});
    PCI_ROM_HEADER h;
    PCI_DATA_STRUCTURE d;
    ASSERT_EQ(vtfuGetHeaderAndData(chain.data(), Size(chain), &h, &d), 1u);
    EXPECT_EQ(vtfuGetDataOffset(&h), 0x1Cu);
    EXPECT_EQ(vtfuGetDataLength(&d), 0x1Cu);
    EXPECT_EQ(vtfuGetImageLength(&d), 4096u);
    EXPECT_TRUE(vtfuIsBIOSImage(&d) && vtfuIsPXEImage(&d) && vtfuIsVendorImage(&d) && vtfuIsDriverImage(&d));
    EXPECT_FALSE(vtfuIsFcodeImage(&d) || vtfuIsEfiImage(&d) || vtfuIsLastImage(&d));
    ASSERT_EQ(vtfuGetHeaderAndData(chain.data() + 4096 + 1024, Size(chain) - 5120, &h, &d), 1u);
    EXPECT_TRUE(vtfuIsPXEImage(&d) && !vtfuIsBIOSImage(&d) && !vtfuIsVendorImage(&d));
    ASSERT_EQ(vtfuGetHeaderAndData(chain.data() + 9216, Size(chain) - 9216, &h, &d), 1u);
    EXPECT_TRUE(vtfuIsEfiImage(&d) && vtfuIsLastImage(&d));
    EXPECT_EQ(vtfuGetBootCodeEnd(chain.data(), Size(chain)), chain.data() + chain.size());

    vtfuPrintDataStructure(3, &d);
    const int at = LogIndex("Image 3  (Last)");
    ASSERT_GE(at, 0);
    const char *lines[] = {"Signature PCIR",  "Vendor Id 1077",       "Device Id 7C50 ",
                           "Revision  07.34", "Length    8192 bytes", "Code Type 03  (EFI driver)"};
    for (size_t i = 0; i < std::size(lines); ++i) EXPECT_EQ(gLog.at(at + 1 + i), lines[i]);

    // Device IDs 1 to 3 are VPD and firmware images, not boot code.
    for (uint16_t id : {1, 2, 3, 4}) {
        const Bytes one = img::BuildRomChain({{0, {1, 0, 0}, 0, 0x1077, id, "", {}}});
        EXPECT_EQ(vtfuGetHeaderAndData(one.data(), Size(one), &h, &d), id == 4 ? 1u : 0u) << id;
        vtfuPrintDataStructure(0, &d);
    }
    EXPECT_TRUE(Logged("Device Id 0002 (2200 firmware)"));
    EXPECT_TRUE(Logged("Device Id 0003 (2300 firmware)"));
    const Bytes unknown = img::BuildRomChain({{0x7F, {1, 0, 0}, 0, 0x1077, 0, "", {}}});
    EXPECT_EQ(vtfuGetHeaderAndData(unknown.data(), Size(unknown), &h, &d), 0u);

    // Broken chains end nowhere.
    using img::mutate::RomBreak;
    for (RomBreak how : {RomBreak::kNoLastImage, RomBreak::kRomSignature, RomBreak::kDataSignature,
                         RomBreak::kNotADriver, RomBreak::kCodeType}) {
        Bytes broken = chain;
        img::mutate::BreakRomChain(broken, how, how == RomBreak::kNoLastImage ? 3 : 1);
        EXPECT_EQ(vtfuGetBootCodeEnd(broken.data(), Size(broken)), nullptr) << int(how);
        EXPECT_EQ(CheckChain(broken), ~7u) << int(how);
    }
    Bytes badSum = chain;
    img::mutate::BreakRomChain(badSum, RomBreak::kChecksum, 2);
    EXPECT_NE(vtfuGetBootCodeEnd(badSum.data(), Size(badSum)), nullptr);  // the walk reads no checksum
    EXPECT_EQ(CheckChain(badSum), ~7u);                                   // the component check does
    VTAPI_FlashImageVersion v{};
    ASSERT_EQ(CheckChain(chain, &v), 0u);
    EXPECT_EQ(v.Present, uint32_t(VTAPI_FLASH_HAS_BIOS | VTAPI_FLASH_HAS_FCODE | VTAPI_FLASH_HAS_EFI));
    EXPECT_EQ((std::array<uint8_t, 2>{v.FCode[0], v.FCode[1]}), (std::array<uint8_t, 2>{4, 21}));
    EXPECT_TRUE(Logged("Image 2  (More)"));  // every image is dumped on the way
    // A chain cut inside its last image.
    EXPECT_EQ(vtfuGetBootCodeEnd(chain.data(), Size(chain) - 1), nullptr);
}

TEST_F(FlashFormat, RomHeadersReadFromAFileInOrderOfChecks) {
    const Bytes chain =
        img::BuildRomChain({{0, {3, 67, 0}, 0, 0x1077, 0, "", {}}, {3, {7, 1, 0}, 0, 0x1077, 0, "", {}}});
    const std::string path = root_.path("/boot.bin");
    vttest::WriteFile(path, std::string(chain.begin(), chain.end()));
    std::unique_ptr<FILE, decltype(&fclose)> f(fopen(path.c_str(), "rb"), &fclose);
    ASSERT_TRUE(f);
    PCI_ROM_HEADER h;
    PCI_DATA_STRUCTURE d;
    EXPECT_EQ(vtfuGetFileImageHeader(f.get(), &h, &d, 4096), 1u);
    EXPECT_TRUE(vtfuIsEfiImage(&d));
    const struct {
        long offset;
        const char *message;
    } cases[] = {{-1, "Failed to wind file to header!"},
                 {long(chain.size()) - 16, "Failed to read header from file!"},
                 {100, "Failed to recognize header signature!"}};
    for (const auto &c : cases) {
        ClearCapture();
        EXPECT_EQ(vtfuGetFileImageHeader(f.get(), &h, &d, c.offset), 0u);
        EXPECT_TRUE(Logged(c.message)) << c.message;
    }
    // A header pointing its data past the end, and at bytes that are no PCIR.
    Bytes bad = chain;
    bad[0x18] = 0xF0;
    bad[0x19] = 0x3F;
    bad[4096 + 0x18] = 0x02;  // second image: data at offset 2
    vttest::WriteFile(path, std::string(bad.begin(), bad.end()));
    f.reset(fopen(path.c_str(), "rb"));
    ClearCapture();
    EXPECT_EQ(vtfuGetFileImageHeader(f.get(), &h, &d, 0), 0u);
    EXPECT_TRUE(Logged("Failed to read data from file!"));
    ClearCapture();
    EXPECT_EQ(vtfuGetFileImageHeader(f.get(), &h, &d, 4096), 0u);
    EXPECT_TRUE(Logged("Failed to recognize data signature!"));
}

TEST_F(FlashFormat, PldmPackagesOfEveryRevisionAreRecognised) {
    // A file's card list is read from the multi-image container, which a
    // recognised package header is skipped to reach.
    const Bytes mbi = Sample(img::ImageFamily::kKite, kKiteCard);
    auto cards = [&](const Bytes &file, uint32_t *count) {
        const std::string path = root_.path("/image.bin");
        vttest::WriteFile(path, std::string(file.begin(), file.end()));
        VTAPI_FlashImageAdapters a{};
        const uint32_t status = VTAPI_FCGetFlashImageSupportedAdapters(path.c_str(), &a);
        *count = a.Count;
        VTAPI_FreeMem(a.Adapters);
        return status;
    };
    uint32_t count = 0;
    ASSERT_EQ(cards(mbi, &count), 0u);
    EXPECT_EQ(count, 2u);
    for (uint8_t rev = 1; rev <= 4; ++rev) {
        SCOPED_TRACE(int(rev));
        img::PldmRecipe recipe;
        recipe.formatRevision = rev;
        recipe.version = "FW-3.4.5";
        recipe.deviceRecords = 2;
        recipe.components = 2;
        const Bytes pkg = img::BuildPldmPackage(mbi, recipe);
        count = 0;
        EXPECT_EQ(cards(pkg, &count), 0u);
        EXPECT_EQ(count, 2u);
        const uint32_t header = vtflash::Le16(pkg.data() + 17);
        EXPECT_EQ(header + mbi.size(), pkg.size());
        EXPECT_TRUE(std::equal(mbi.begin(), mbi.end(), pkg.begin() + header));
    }
    // A damaged header (its CRC-32 no longer holds), a foreign identifier, a
    // revision byte that is not its identifier's: not a package, and the
    // bytes in front of the table make it an invalid table.
    const Bytes pkg = img::BuildPldmPackage(mbi);
    Bytes crc = pkg;
    crc[38] ^= 1;
    Bytes id = pkg;
    id[3] ^= 1;
    Bytes revision = pkg;
    revision[16] = 2;
    Bytes shortFile(pkg.begin(), pkg.begin() + vtflash::Le16(pkg.data() + 17) + 100);
    for (const Bytes *b : {&crc, &id, &revision, &shortFile}) EXPECT_EQ(cards(*b, &count), VTAPI_INVALID_ILT_HEADER);
}
