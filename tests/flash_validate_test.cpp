// Validation of flash image files against adapters: single boot-code files,
// the Kite and Wren header and component checks, the chip-revision rule,
// the NIC-family checks and the analysis of a whole file.  Every status is
// produced on an image from the image builder, most of them through one of
// its deliberate faults.  The adapter's flash layout is supplied by the test
// (fcVTFUGetFlashLayoutTable is replaced), so layout mismatches can be tried
// without a simulated adapter.
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <optional>

#include "flash_testutil.h"
#include "vtapi_cli.h"

using namespace flashtest;
using img::ImageFamily;

namespace {

// The layout the adapter reports: region type and size; nothing makes the
// read fail.
std::optional<std::vector<std::pair<uint32_t, uint32_t>>> gLayout;
// Makes every nothrow array allocation fail.
bool gFailAllocations = false;

}  // namespace

extern "C" uint32_t fcVTFUGetFlashLayoutTable(uint32_t, uint8_t **layout, uint32_t *size) {
    if (!gLayout) return 1;
    const uint32_t bytes = uint32_t(8 + 8 * gLayout->size());
    auto *out = static_cast<uint32_t *>(std::malloc(bytes));
    out[0] = 16u << 20;
    out[1] = uint32_t(gLayout->size());
    for (size_t i = 0; i < gLayout->size(); ++i) {
        out[2 + 2 * i] = (*gLayout)[i].first;
        out[3 + 2 * i] = (*gLayout)[i].second;
    }
    *layout = reinterpret_cast<uint8_t *>(out);
    *size = bytes;
    return 0;
}

void *operator new[](std::size_t n, const std::nothrow_t &) noexcept {
    if (gFailAllocations) return nullptr;
    try {
        return ::operator new[](n);
    } catch (...) {
        return nullptr;
    }
}

namespace {

uint32_t Not(uint32_t code) { return ~code; }

std::vector<std::pair<uint32_t, uint32_t>> LayoutOf(const img::MultiImageRecipe &m) {
    std::vector<std::pair<uint32_t, uint32_t>> regions;
    for (const img::Component &c : m.components) regions.emplace_back(c.regionType, uint32_t(c.payload.size()));
    return regions;
}

ILT_Region_t Region(uint16_t type, uint16_t revision, uint16_t cardType = 0) {
    ILT_Region_t r{};
    r.RegionType[0] = uint8_t(type);
    r.RegionType[1] = uint8_t(type >> 8);
    r.ChipRevision[0] = uint8_t(revision);
    r.ChipRevision[1] = uint8_t(revision >> 8);
    r.CardType[0] = uint8_t(cardType);
    r.CardType[1] = uint8_t(cardType >> 8);
    return r;
}

size_t IndexOf(const img::MultiImageRecipe &m, uint16_t type) {
    const size_t i = img::ComponentIndex(m, type);
    EXPECT_NE(i, std::string::npos) << type;
    return i;
}

class FlashValidate : public ::testing::Test {
protected:
    vttest::SysrootScope root_;
    CaptureScope capture_;

    void TearDown() override {
        gLayout.reset();
        gFailAllocations = false;
        bXmlOutPut = 0;
    }
    std::string Write(const std::string &name, const Bytes &b) {
        const std::string path = root_.path("/" + name);
        vttest::WriteFile(path, std::string(b.begin(), b.end()));
        return path;
    }
};

}  // namespace

TEST_F(FlashValidate, StandardBootFileMatchesByChipIdentifierOnly) {
    Bytes rom =
        img::BuildRomChain({{0, {3, 67, 0}, 0, 0x1077, 0x7C50, "2910", {}}, {3, {7, 34, 0}, 0, 0x1077, 0, "", {}}});
    EXPECT_EQ(Validate(rom.data(), Size(rom), "2910", 0), 0u);
    EXPECT_TRUE(Logged("Validate: Adapter HW Type: 2910"));
    EXPECT_TRUE(Logged("Validate: BIOS: ISP[0]- 32, ISP[1]- 39, ISP[2]- 31, ISP[3]- 30"));
    EXPECT_TRUE(Logged("Validate: HBA : ISP[0]- 32, ISP[1]- 39, ISP[2]- 31, ISP[3]- 30"));
    EXPECT_TRUE(Logged("Validate: Standard BIOS file detected."));
    EXPECT_EQ(Validate(rom.data(), Size(rom), "2900", 0), FLASH_ST_WRONG_ADAPTER);
    EXPECT_EQ(Validate(rom.data(), Size(rom), "29", 0), FLASH_ST_WRONG_ADAPTER);
    // Deliberately not checksummed: a damaged standard file still passes.
    img::mutate::BreakRomChain(rom, img::mutate::RomBreak::kChecksum);
    EXPECT_EQ(Validate(rom.data(), Size(rom), "2910", 0), 0u);
    // The boot code may start later in the file.
    Bytes later(512 + rom.size(), 0xFF);
    std::copy(rom.begin(), rom.end(), later.begin() + 512);
    EXPECT_EQ(Validate(later.data(), Size(later), "2910", 512), 0u);
    EXPECT_EQ(Validate(later.data(), 520, "2910", 512), FLASH_ST_WRONG_ADAPTER);
}

TEST_F(FlashValidate, CommonBiosFileFollowsTheChipModelTable) {
    auto common = [](uint8_t code) {
        return img::BuildRomChain({{0, {3, 70, 0}, 0, 0x1077, 0, "", code}, {3, {7, 40, 0}, 0, 0x1077, 0, "", {}}});
    };
    struct Case {
        const char *hw;
        uint8_t code;
        uint32_t status;
        bool ssidLogged;
    };
    const Case cases[] = {
        {"2910", 5, 0, false}, {"2910", 4, 0, false}, {"2910", 3, 10, false},  {"2900", 0, 0, false},
        {"2920", 5, 0, false}, {"2920", 4, 10, true},  // exact row before the "29" substring
        {"2064", 3, 0, false}, {"2064", 5, 10, true}, {"2060", 6, 0, false},   {"2060", 3, 10, false},
        {"2516", 3, 0, false}, {"2770", 4, 0, false}, {"1600", 99, 10, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.hw) + " code " + std::to_string(c.code));
        ClearCapture();
        const Bytes rom = common(c.code);
        EXPECT_EQ(Validate(rom.data(), Size(rom), c.hw, 0), c.status);
        EXPECT_TRUE(Logged("Validate: Common BIOS file detected (hw=" + std::string(c.hw) + " hba_code="));
        EXPECT_EQ(Logged("Validate: ERROR_INVALID_SSID " + std::string(c.hw) + " ADAPTER_TYPE_CODE_OFFSET 0X"),
                  c.ssidLogged);
    }
    const Bytes rom = common(5);
    EXPECT_EQ(Validate(rom.data(), Size(rom), "9999", 0), FLASH_ST_WRONG_ADAPTER);
    EXPECT_TRUE(Logged("Validate: Unknown ISP 9999"));
    Bytes damaged = rom;
    img::mutate::BreakRomChain(damaged, img::mutate::RomBreak::kChecksum);
    EXPECT_EQ(Validate(damaged.data(), Size(damaged), "2910", 0), FLASH_ST_BAD_CHECKSUM);
}

TEST_F(FlashValidate, ChipRevisionRulePerRegion) {
    struct Case {
        uint16_t type, entryRev;
        uint32_t adapterRev, result;
    };
    // clang-format off
    const Case cases[] = {
        {0x01, 5, 9, 0},          {0xD4, 1, 2, 0},          {0x112, 3, 0, 0},         {0x67, 0, 0, Not(2)},
        {0x113, 0, 0, Not(2)},    {0x08, 0, 0, Not(2)},     {0x70, 0, 0, 0},          {0x70, 3, 0, Not(11)},
        {0x70, 3, 3, 0},          {0x70, 3, 4, Not(2)},     {0x74, 0, 0x54, 0},       {0x74, 0, 0x55, Not(12)},
        {0x74, 0x54, 0x55, Not(2)}, {0x74, 0x54, 0x54, 0},  {0x74, 0x55, 0x54, Not(12)}, {0x97, 0, 1, 0},
        {0x97, 0x58, 0x57, Not(12)}, {0x97, 0x58, 0x58, 0}, {0x97, 0x58, 0x59, Not(2)}, {0xA3, 0, 7, 0},
        {0xA3, 1, 1, Not(15)},    {0xB1, 0, 7, 0},          {0xB1, 2, 2, Not(14)},
    };
    // clang-format on
    for (const Case &c : cases) {
        const ILT_Region_t r = Region(c.type, c.entryRev);
        EXPECT_EQ(ValidateImageChipRevision(&r, c.adapterRev), c.result)
            << std::hex << c.type << " " << c.entryRev << " " << c.adapterRev;
    }
    EXPECT_EQ(ValidateImageChipRevision(nullptr, 0), Not(2));
    EXPECT_TRUE(Logged("ValidateImageChipRevision: Region No=0x74 Ret=-13"));
    for (uint16_t cardType : {1, 2, 3}) {
        const ILT_Region_t pep = Region(0xD1, 0, cardType);
        EXPECT_EQ(ValidateImageChipRevision(&pep, 0), 0u);
    }
    EXPECT_TRUE(Logged("ValidateImageChipRevision: Wren PEP OP Firmware"));
    EXPECT_TRUE(Logged("ValidateImageChipRevision: Skiff PEP OP Firmware"));
    EXPECT_TRUE(Logged("ValidateImageChipRevision: Unknown OP Firmware"));
}

TEST_F(FlashValidate, KiteHeaderCheckStatuses) {
    const img::MultiImageRecipe recipe = img::SampleImage(ImageFamily::kKite, kKiteCard);
    const Bytes good = img::BuildMultiImage(recipe);
    const uint16_t ssdid = kKiteCard.subSystemId, ssvid = kKiteCard.subVendorId;
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, good.data(), Size(good), 2), 0u);
    EXPECT_TRUE(Logged("Current card type=0x1"));
    EXPECT_EQ(ValidateWrenILTImageHeader(ssdid, ssvid, good.data(), Size(good), 2), 0u);

    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, good.data(), 31, 2), FLASH_ST_ILT_TOO_SMALL);
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: Image buffer too small"));
    Bytes b = good;
    img::mutate::Signature(b, "VFIX");
    EXPECT_EQ(ValidateWrenILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_ILT_SIGNATURE);
    EXPECT_TRUE(Logged("ValidateWrenILTImageHeader: ILT signature not match!"));
    b = good;
    img::mutate::TableVersion(b, 6);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_ILT_VERSION);
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: ILT table version not match!"));
    // The limit is a maximum: every version up to 5 passes, 0 included.
    for (uint16_t v : {0, 5}) {
        b = good;
        img::mutate::TableVersion(b, v);
        EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), 0u) << v;
    }
    // Region entries cut off by the end of the buffer.
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, good.data(), 5 * 32, 2), FLASH_ST_ILT_UNREADABLE);
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: Unable to read ILT from MBI image file!"));
    b = good;
    img::mutate::RegionCount(b, 250);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), 600, 2), FLASH_ST_ILT_UNREADABLE);

    // A listed region whose every entry fails the chip-revision rule.
    img::MultiImageRecipe withOdd = recipe;
    withOdd.components.push_back({0x67, {1, 0, 0}, 0, 0, Bytes(64, 7)});
    b = img::BuildMultiImage(withOdd);
    ClearCapture();
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_REGION_MISSING);
    EXPECT_TRUE(Logged("Skipping region 0x67 with status=-3"));
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: Failed with status=505"));

    // The last type seen carries over from slot to slot: an image with one
    // listed region passes the empty slots, one with none fails at the first.
    img::MultiImageRecipe one;
    one.cardLists = recipe.cardLists;
    one.components = {{0x01, {9, 12, 1}, 0, 0, img::BuildRiscFirmware({9, 12, 1}, 32, 256)}};
    b = img::BuildMultiImage(one);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), 0u);
    one.components[0].regionType = 0x13;
    b = img::BuildMultiImage(one);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_REGION_MISSING);

    // The default list must hold the card; FC cards match exactly, no wildcard.
    img::MultiImageRecipe cards = recipe;
    cards.cardLists = {{1, {kKiteCard}}, {0, {kWrenCard}}};
    b = img::BuildMultiImage(cards);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_ILT_TOO_SMALL);
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: No matching card type (Signature not OK)"));
    cards.cardLists = {{0, {{0x1077, 0x7C50, 0xFFFF, 0xFFFF}}}};
    b = img::BuildMultiImage(cards);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_ILT_TOO_SMALL);
    // ... while the first converged generation takes the wildcard.
    cards.cardLists = {{0, {{0x1077, 0x6201, 0xFFFF, 0xFFFF}}}};
    b = img::BuildMultiImage(cards);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), 0u);
    EXPECT_TRUE(Logged("Current card type=0x0"));
    cards.cardLists = {{0xFFFF, {kKiteCard}}, {0, {kKiteCard}}};
    b = img::BuildMultiImage(cards);
    EXPECT_EQ(ValidateKiteILTImageHeader(ssdid, ssvid, b.data(), Size(b), 2), FLASH_ST_ILT_TOO_SMALL);
    EXPECT_TRUE(Logged("ValidateKiteILTImageHeader: No matching card type!"));
}

TEST_F(FlashValidate, KiteComponentsEachFailureCode) {
    const img::MultiImageRecipe recipe = img::SampleImage(ImageFamily::kKite, kKiteCard);
    const Bytes good = img::BuildMultiImage(recipe);
    const FakeAdapter kite(0x7C50, 0x1077, 0x0C60, 2);
    VTAPI_FlashImageVersion v{};
    EXPECT_EQ(ValidateKiteImageComponents(good.data(), Size(good), &v, 1, kite.get()), recipe.components.size());
    EXPECT_TRUE(Logged("Validated 15 images for cardtype 1"));
    EXPECT_EQ(v.ComponentCount, 15u);
    EXPECT_EQ(std::string(v.MBIVersionText), "03.04.05");
    EXPECT_EQ(v.BuildYear, 2024);
    EXPECT_EQ(v.ActivationLevel, -1);
    EXPECT_EQ(v.FFVVersion[3], 4);
    EXPECT_EQ((std::array<uint8_t, 3>{v.Firmware[0], v.Firmware[1], v.Firmware[2]}),
              (std::array<uint8_t, 3>{9, 12, 1}));
    EXPECT_EQ(v.EfiExp[1], 35);
    EXPECT_EQ(v.PepFirmware[3], 4);
    EXPECT_EQ(v.SignatureRegion[2], 7);
    // Card type 0 takes only the components for every card: 0xD1 is for type 1.
    EXPECT_EQ(ValidateKiteImageComponents(good.data(), Size(good), nullptr, 0, kite.get()), 14u);

    using Mutation = std::function<void(Bytes &, size_t)>;
    const Mutation outside = [](Bytes &b, size_t i) { img::mutate::RegionExtent(b, i, uint32_t(b.size()), 16); };
    const Mutation empty = [](Bytes &b, size_t i) { img::mutate::RegionExtent(b, i, 64, 0); };
    auto shortBy = [](uint32_t length) {
        return Mutation([length](Bytes &b, size_t i) { img::mutate::RegionExtent(b, i, 256, length); });
    };
    const Mutation version = [](Bytes &b, size_t i) { img::mutate::RegionVersion(b, i, {9, 12, 2}); };
    const Mutation chain = [](Bytes &b, size_t i) {
        img::mutate::BreakRomChain(img::mutate::ComponentBytes(b, i), img::mutate::RomBreak::kNoLastImage, 2);
    };
    const Mutation covered = [](Bytes &b, size_t i) { img::mutate::CorruptComponent(b, i, 200); };
    struct Case {
        uint16_t type;
        Mutation fault;
        uint32_t code;
    };
    const Case cases[] = {
        {0x01, version, 8},      {0x07, chain, 7},        {0x11, covered, 7},       {0x13, empty, 37},
        {0x9E, covered, 35},     {0xBA, outside, 38},     {0xCF, shortBy(7), 39},   {0xD1, shortBy(79), 32},
        {0xD2, shortBy(79), 30}, {0xD3, shortBy(27), 36}, {0x101, shortBy(27), 40}, {0x102, empty, 41},
        {0x103, outside, 42},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.type);
        Bytes b = good;
        c.fault(b, IndexOf(recipe, c.type));
        ClearCapture();
        EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, kite.get()), Not(c.code));
        EXPECT_TRUE(Logged("ValidateKiteImageComponents: Validated failed!"));
    }
    // Firmware whose attribute word is none of the four Kite accepts.
    img::MultiImageRecipe attr = recipe;
    attr.components[0].payload = img::BuildRiscFirmware({9, 12, 1}, 8, 4096);
    Bytes b = img::BuildMultiImage(attr);
    EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, kite.get()), Not(8));
    EXPECT_TRUE(Logged("ValidateGenericImages: Unknown firmware supported value!"));
    for (uint32_t word : {16u, 64u, 128u}) {
        attr.components[0].payload = img::BuildRiscFirmware({9, 12, 1}, word, 4096);
        b = img::BuildMultiImage(attr);
        EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, kite.get()), 15u) << word;
    }
    // A signature block whose signatures do not match is not tested further;
    // an unknown region is accepted with a log line.
    b = good;
    img::mutate::CorruptComponent(b, IndexOf(recipe, 0x9E), 388);
    img::mutate::CorruptComponent(b, IndexOf(recipe, 0x9E), 200);
    img::mutate::RegionType(b, IndexOf(recipe, 0x95), 0x55);
    ClearCapture();
    EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, kite.get()), 15u);
    EXPECT_TRUE(Logged("ValidateKiteSignatureRegion: return OK"));
    EXPECT_TRUE(Logged("ValidateGenericImages: Unrecognized Image Type..."));
    // Entries of another chip revision are left out.
    b = good;
    img::mutate::RegionChipRevision(b, IndexOf(recipe, 0x13), 3);
    EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, kite.get()), 14u);
    const FakeAdapter rev3(0x7C50, 0x1077, 0x0C60, 3);
    EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 1, rev3.get()), 15u);

    // An entry that cannot be read sets the count to -1 and the walk goes on.
    img::MultiImageRecipe tiny;
    tiny.components = {{0x14, {}, 0, 0, {}}};
    b = img::BuildMultiImage(tiny);
    img::mutate::RegionCount(b, 10);
    EXPECT_EQ(ValidateKiteImageComponents(b.data(), Size(b), nullptr, 0, kite.get()), uint32_t(-1));
    EXPECT_EQ(HowManyImagesForCardTypeGeneric(good.data(), Size(good), 1, 2), 15u);
    EXPECT_EQ(HowManyImagesForCardTypeGeneric(good.data(), Size(good), 0, 2), 14u);
}

TEST_F(FlashValidate, WrenAndOtherFcComponentChecks) {
    const img::MultiImageRecipe wren = img::SampleImage(ImageFamily::kWren, kWrenCard);
    const Bytes good = img::BuildMultiImage(wren);
    const FakeAdapter adapter(0x6A10, 0x1077, 0x0A16, 1);
    EXPECT_EQ(ValidateWrenImageComponents(good.data(), Size(good), nullptr, 1, adapter.get()), 9u);
    const struct {
        uint16_t type;
        uint32_t offset, length, code;
    } shortCases[] = {{0xD3, 256, 27, 7},  {0xE1, 256, 27, 7}, {0xD2, 256, 79, 32},
                      {0xD1, 256, 79, 32}, {0x66, 256, 0, 33}, {0x07, 256, 512, 7}};
    for (const auto &c : shortCases) {
        Bytes b = good;
        img::mutate::RegionExtent(b, IndexOf(wren, c.type), c.offset, c.length);
        EXPECT_EQ(ValidateWrenImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(c.code)) << c.type;
    }
    Bytes b = good;
    img::mutate::CorruptComponent(b, IndexOf(wren, 0x9E), 100);
    EXPECT_EQ(ValidateWrenImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(4));
    img::MultiImageRecipe attr = wren;
    attr.components[0].payload = img::BuildRiscFirmware({9, 12, 1}, 32, 4096);  // Kite's, not Wren's
    b = img::BuildMultiImage(attr);
    EXPECT_EQ(ValidateWrenImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(8));
    b = good;
    img::mutate::RegionType(b, IndexOf(wren, 0x16), 0x13);  // known to Kite, not to Wren
    EXPECT_EQ(ValidateWrenImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), 9u);
    EXPECT_TRUE(Logged("ValidateWrenImages: Unrecognized Image Type..."));

    // Other FC chips: an unknown region is refused.
    const img::MultiImageRecipe other = img::SampleImage(ImageFamily::kOtherFc, kOrlaCard);
    const Bytes o = img::BuildMultiImage(other);
    EXPECT_EQ(ValidateGenericImageComponents(o.data(), Size(o), nullptr, 1, adapter.get()), 8u);
    b = o;
    img::mutate::RegionType(b, IndexOf(other, 0x14), 0xD1);
    EXPECT_EQ(ValidateGenericImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(1));
    EXPECT_TRUE(Logged("ValidateImages: Unrecognized Image Type..."));
    b = o;
    img::mutate::CorruptComponent(b, IndexOf(other, 0x9E), 100);
    EXPECT_EQ(ValidateGenericImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(5));
    b = o;
    img::mutate::RegionExtent(b, IndexOf(other, 0xBA), 256, 0);
    EXPECT_EQ(ValidateGenericImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(5));
    attr = other;
    attr.components[0].payload = img::BuildRiscFirmware({9, 12, 1}, 64, 4096);
    b = img::BuildMultiImage(attr);
    EXPECT_EQ(ValidateGenericImageComponents(b.data(), Size(b), nullptr, 1, adapter.get()), Not(8));
    EXPECT_EQ(ValidateGenericImageComponents(o.data(), Size(o), nullptr, 1, nullptr), VTFU_NONE);
}

TEST_F(FlashValidate, NicFamilyHeaderAndChipChecks) {
    const Bytes orla = Sample(ImageFamily::kOrla, kOrlaCard);
    const Bytes tern = Sample(ImageFamily::kTern, kTernCard);
    const auto &o = kOrlaCard;
    EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, orla.data(), Size(orla)), 0u);
    EXPECT_TRUE(Logged("Image version=03.04.05"));
    EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, orla.data(), 31), 5u);
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: Image buffer too small"));
    Bytes b = orla;
    img::mutate::Signature(b, "XILT");
    EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, b.data(), Size(b)), 6u);
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: ILT signature not match!"));
    for (uint16_t v : {0, 3, 5}) {
        b = orla;
        img::mutate::TableVersion(b, v);
        EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, b.data(), Size(b)), 25u);
    }
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: Unsupported ILT tableVersion=0x5"));
    // A table checksum that does not hold is only logged.
    b = orla;
    img::mutate::TableChecksum(b);
    ClearCapture();
    EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, b.data(), Size(b)), 0u);
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: ILT Buffer Checksum is "));
    EXPECT_TRUE(Logged(", instead of zero"));
    // The Tern card is not in the Orla file.
    ClearCapture();
    EXPECT_EQ(vtfuValidateILTImageHeader(kTernCard.deviceId, kTernCard.subSystemId, kTernCard.subVendorId, orla.data(),
                                         Size(orla)),
              5u);
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: No matching card type (Signature not OK)"));
    EXPECT_TRUE(Logged("Image version=03.04.05"));
    // In the default list only: no card type can be had but from the default
    // list, which the Orla search skips when other lists exist.
    img::MultiImageRecipe defaultOnly = img::SampleImage(ImageFamily::kOrla, kOrlaCard);
    defaultOnly.cardLists = {{0, {kOrlaCard}}, {1, {kTernCard}}};
    b = img::BuildMultiImage(defaultOnly);
    EXPECT_EQ(vtfuValidateILTImageHeader(o.deviceId, o.subSystemId, o.subVendorId, b.data(), Size(b)), 5u);
    EXPECT_TRUE(Logged("vtfuValidateILTImageHeader: No matching card type!"));

    // The firmware region a revision needs: 0x74 for 0x54, 0x97 otherwise.
    EXPECT_EQ(vtfuValidateILTChipVersion(0x58, orla.data(), Size(orla)), 0u);
    EXPECT_EQ(vtfuValidateILTChipVersion(0x54, orla.data(), Size(orla)), 26u);
    EXPECT_EQ(vtfuValidateILTChipVersion(0, orla.data(), Size(orla)), 26u);
    EXPECT_TRUE(Logged("vtfuValidateILTChipVersion: chipRevision 0x00 not found in image"));
    EXPECT_EQ(vtfuValidateILTChipVersion(0x54, tern.data(), Size(tern)), 0u);
    EXPECT_EQ(vtfuValidateILTChipVersion(0x58, tern.data(), Size(tern)), 26u);
    b = orla;
    img::mutate::RegionChipRevision(b, 3, 0x59);  // some entry now names a revision
    EXPECT_EQ(vtfuValidateILTChipVersion(0x58, b.data(), Size(b)), 26u);
    EXPECT_EQ(vtfuValidateILTChipVersion(0x59, b.data(), Size(b)), 0u);
    EXPECT_EQ(vtfuValidateILTChipVersion(0x58, orla.data(), 31), 5u);
    b = orla;
    img::mutate::Signature(b, "VFLT");
    EXPECT_EQ(vtfuValidateILTChipVersion(0x58, b.data(), Size(b)), 6u);
}

TEST_F(FlashValidate, NicFamilyComponentsEachFailureCode) {
    struct Family {
        ImageFamily family;
        img::CardEntry card;
        uint32_t revision;
    };
    for (const Family &f : {Family{ImageFamily::kTern, kTernCard, 0x54}, Family{ImageFamily::kOrla, kOrlaCard, 0x58},
                            Family{ImageFamily::kTove, kToveCard, 0x58}}) {
        const img::MultiImageRecipe recipe = img::SampleImage(f.family, f.card);
        const Bytes good = img::BuildMultiImage(recipe);
        VTAPI_FlashImageVersion v{};
        EXPECT_EQ(vtfuValidateImageComponents(good.data(), Size(good), f.card.deviceId, 1, f.revision, &v),
                  recipe.components.size());
        EXPECT_TRUE(v.Present & VTAPI_FLASH_HAS_PXE);
        EXPECT_EQ(v.Pxe[1], 10);
        EXPECT_EQ(v.CRBinit[2], 1);
        EXPECT_EQ(v.NicFirmware[0], 5);
        EXPECT_EQ(v.EdcFirmware[2], 4);
    }
    const img::MultiImageRecipe recipe = img::SampleImage(ImageFamily::kOrla, kOrlaCard);
    const Bytes good = img::BuildMultiImage(recipe);
    auto check = [&](const Bytes &b) {
        return vtfuValidateImageComponents(b.data(), Size(b), kOrlaCard.deviceId, 1, 0x58, nullptr);
    };
    const struct {
        uint16_t type;
        size_t at;
        uint32_t code;
    } cases[] = {{0x2E, 0x1C, 4}, {0x40, 17, 5},  {0x41, 0, 5},  {0x45, 0, 6},  {0x07, 0x1C, 7},
                 {0x4F, 0x1C, 7}, {0xA2, 0, 7},   {0x01, 35, 8}, {0xA4, 35, 8}, {0x72, 40, 9},
                 {0x73, 40, 10},  {0x70, 40, 11}, {0x97, 40, 12}};
    for (const auto &c : cases) {
        Bytes b = good;
        img::mutate::CorruptComponent(b, IndexOf(recipe, c.type), c.at);
        EXPECT_EQ(check(b), Not(c.code)) << std::hex << c.type;
    }
    EXPECT_TRUE(Logged("vtfuValidateImageComponents: OPT_ROM_REGION_ORLA_CRBINIT"));
    // Tern firmware for revision 0x54 is left out on a later revision.
    const img::MultiImageRecipe ternRecipe = img::SampleImage(ImageFamily::kTern, kTernCard);
    const Bytes tern = img::BuildMultiImage(ternRecipe);
    EXPECT_EQ(vtfuValidateImageComponents(tern.data(), Size(tern), kTernCard.deviceId, 1, 0x58, nullptr),
              ternRecipe.components.size() - 1);
    // 0x14 is Orla's own; elsewhere it is an unrecognised region, accepted.
    Bytes b = tern;
    img::mutate::RegionType(b, IndexOf(ternRecipe, 0x81), 0x14);
    ClearCapture();
    EXPECT_EQ(vtfuValidateImageComponents(b.data(), Size(b), kTernCard.deviceId, 1, 0x54, nullptr),
              ternRecipe.components.size());
    EXPECT_TRUE(Logged("Unrecognized Image Region Type... 0x14"));
    // Orla's firmware carries attribute word 32, Tern's 8.
    img::MultiImageRecipe swapped = recipe;
    swapped.components[0].payload = img::BuildRiscFirmware({9, 12, 1}, 8, 4096);
    b = img::BuildMultiImage(swapped);
    EXPECT_EQ(check(b), Not(8));
    // The configuration check cannot get its buffer.
    gFailAllocations = true;
    EXPECT_EQ(vtfuValidateMpiConfigParamImage(
                  good.data(), Size(good),
                  vtfuILT_Region_GetRegionByIndex(good.data(), Size(good), uint32_t(IndexOf(recipe, 0x41)))),
              VTFU_MEMORY_ALLOC_FAILURE);
    gFailAllocations = false;
    EXPECT_TRUE(Logged("vtfuValidateMpiConfigParamImage: ERROR_MEMORY_ALLOC_FAILURE"));
}

TEST_F(FlashValidate, AnalyzeFlashImageFileVerdicts) {
    const img::MultiImageRecipe recipe = img::SampleImage(ImageFamily::kKite, kKiteCard);
    const Bytes good = img::BuildMultiImage(recipe);
    const FakeAdapter kite(0x7C50, 0x1077, 0x0C60, 2);
    const std::string path = Write("kite.bin", good);
    gLayout = LayoutOf(recipe);

    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), path.c_str(), Size(good)), 0u);
    EXPECT_EQ(gPrinted,
              "Analyzing flash image file..., Done\nFlash image file " + path + " is compatible with HBA 3 (VT7C50)\n");
    EXPECT_TRUE(Logged("AnalyzeFlashImageFile: subsysVendorId=0x1077 subsysDeviceId = 0xC60  Chip Rev= 0x2"));
    EXPECT_TRUE(Logged("HowManyImagesForCardTypeGeneric: 15 images"));

    // Wrapped in a PLDM package it validates exactly as the bare file.
    const Bytes pkg = img::BuildPldmPackage(good);
    const std::string wrapped = Write("kite.pldm", pkg);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), wrapped.c_str(), Size(pkg)), 0u);
    EXPECT_TRUE(Logged("AnalyzeFlashImageFile: PLDM Header size=0x"));
    EXPECT_TRUE(Printed("is compatible with HBA 3"));

    struct Case {
        const char *name;
        std::function<void()> setup;
        uint32_t status;
        const char *printed;
    };
    gLayout = LayoutOf(recipe);
    std::vector<std::pair<uint32_t, uint32_t>> missing = LayoutOf(recipe), small = LayoutOf(recipe);
    missing.erase(missing.begin() + 3);
    small[0].second -= 1;
    const Case layoutCases[] = {
        {"region missing", [&] { gLayout = missing; }, FLASH_ST_INCOMPATIBLE, " is incompatible with HBA 3 (VT7C50)!"},
        {"region too small", [&] { gLayout = small; }, FLASH_ST_INCOMPATIBLE, " is incompatible with HBA 3"},
        {"layout unreadable", [&] { gLayout.reset(); }, 1, "Invalid file "},
    };
    for (const Case &c : layoutCases) {
        SCOPED_TRACE(c.name);
        c.setup();
        ClearCapture();
        EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), path.c_str(), Size(good)), c.status);
        EXPECT_TRUE(Printed(c.printed)) << gPrinted;
    }
    EXPECT_TRUE(Printed("Invalid file " + path + ". Unable to validate signature!"));
    gLayout = LayoutOf(recipe);

    // Header statuses pass through.
    Bytes b = good;
    img::mutate::Signature(b, "ABCD");
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), Write("sig.bin", b).c_str(), Size(b)), FLASH_ST_ILT_SIGNATURE);
    b = good;
    img::mutate::TableVersion(b, 7);
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), Write("ver.bin", b).c_str(), Size(b)), FLASH_ST_ILT_VERSION);
    EXPECT_TRUE(Logged("AnalyzeFlashImageFile: ValidateILTImageHeader() returns 506"));
    // A component that fails its check.
    b = good;
    img::mutate::CorruptComponent(b, IndexOf(recipe, 0x9E), 100);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), Write("comp.bin", b).c_str(), Size(b)),
              VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS);
    EXPECT_TRUE(Printed("holds a component that failed validation"));

    // Reading the file.
    EXPECT_EQ(AnalyzeFlashImageFile(nullptr, path.c_str(), Size(good)), FLASH_ST_NO_ADAPTER);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), path.c_str(), Size(good) + 1), FLASH_ST_CORRUPTED);
    EXPECT_EQ(gPrinted, "Selected file (" + path + ") appears to be corrupted!\n");
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), root_.path("/none.bin").c_str(), 10), FLASH_ST_CORRUPTED);
    // A file that is not a regular one is read into memory, which fails here.
    gFailAllocations = true;
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), "/dev/zero", Size(good)), FLASH_ST_NO_MEMORY);
    gFailAllocations = false;
    EXPECT_EQ(gPrinted, "Unable to allocate memory for read buffer!\n");
    EXPECT_EQ(AnalyzeFlashImageFile(kite.get(), "/dev/zero", Size(good)), FLASH_ST_ILT_SIGNATURE);

    // Chips older than type 21 are not analysed.
    const FakeAdapter old(0x5380, 0x1077, 0x0202, 3);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(old.get(), path.c_str(), Size(good)), FLASH_ST_NOT_SUPPORTED);
    EXPECT_EQ(gPrinted, "Unsupported option with current HBA 3 (VT5380)\n");
}

TEST_F(FlashValidate, ChipsWithoutHeaderCheckAndCardlessFiles) {
    // Chip type 21 (an Orla FCoE function) skips the header check: a table
    // version the Kite check refuses passes; the components go through the
    // validator of the other FC chips.
    const img::MultiImageRecipe recipe = img::SampleImage(ImageFamily::kOtherFc, kOrlaCard);
    Bytes b = img::BuildMultiImage(recipe);
    img::mutate::TableVersion(b, 9);
    const FakeAdapter orla(0x6421, 0x1077, 0x0312, 1);
    gLayout = LayoutOf(recipe);
    EXPECT_EQ(AnalyzeFlashImageFile(orla.get(), Write("orla.bin", b).c_str(), Size(b)), 0u);
    EXPECT_FALSE(Logged("ILT table version not match"));

    const std::string other = Write("tern.bin", Sample(ImageFamily::kOtherFc, kTernCard));
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(orla.get(), other.c_str(), Size(Sample(ImageFamily::kOtherFc, kTernCard))),
              FLASH_ST_INCOMPATIBLE);
    EXPECT_EQ(gPrinted, "Analyzing flash image file..., Done.\nUnable to find matching card type of flash image file " +
                            other + "!\n");

    // In XML mode a failure is a status document and there is no progress.
    bXmlOutPut = 1;
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(orla.get(), other.c_str(), Size(Sample(ImageFamily::kOtherFc, kTernCard))),
              FLASH_ST_INCOMPATIBLE);
    EXPECT_FALSE(Printed("Analyzing"));
    EXPECT_TRUE(Printed("    <Status> 5 </Status>\n"));
    EXPECT_TRUE(
        Printed("    <ErrorMsg> Unable to find matching card type of flash image file " + other + "! </ErrorMsg>"));
    EXPECT_TRUE(Printed("</Vantor>"));
}

TEST_F(FlashValidate, ComponentVersionsPrintedForTheCard) {
    const Bytes good = Sample(ImageFamily::kKite, kKiteCard);
    const FakeAdapter kite(0x7C50, 0x1077, 0x0C60, 2);
    EXPECT_EQ(GetFlashImageComponentVersion(good.data(), Size(good), kite.get()), 0u);
    const std::vector<std::string> lines = vttest::Lines(gPrinted);
    const std::vector<std::string> expected = {
        "Firmware version: 9.12.1",
        "BIOS version: 3.67.0",
        "FCode version: 4.21.0",
        "EFI version: 7.34.0",
        "BIOS Exp. version: 3.68.0",
        "EFI Exp. version: 7.35.0",
        "MPI Fw version: 02.01.09.00",
        "MPI SoftROM version: 02.01.08.00",
        "PEP Firmware version: 01.02.03.04",
        "PEP SoftROM version: 01.02.04.05",
        "FEP Board Config version: 05.06.07",
        "FC Board Config version: 02.03.04",
        "Fw Preload Area version: 01.02.03",
        "PCIe Serdes version: 00.04.02",
        "FC SoftROM version: 01.01.01",
        "Signature Region version: 1.0.7",
    };
    EXPECT_EQ(lines, expected);
    // Another card's file prints nothing.
    ClearCapture();
    const Bytes wren = Sample(ImageFamily::kWren, kWrenCard);
    EXPECT_EQ(GetFlashImageComponentVersion(wren.data(), Size(wren), kite.get()), FLASH_ST_ILT_TOO_SMALL);
    EXPECT_TRUE(gPrinted.empty());
}
