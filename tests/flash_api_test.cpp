// The flash image queries of the exported API against the default simulated
// host: the versions a file holds for a port's card, the cards a file is
// for, the version of one component in a card's flash, and the analysis of a
// file against the adapter's own flash layout.
#include <cstdlib>
#include <cstring>

#include "flash_testutil.h"
#include "core/core.h"

using namespace flashtest;
using img::ImageFamily;

namespace {

class FlashApi : public LibraryTest {
protected:
    uint32_t ImageVersion(const char *serial, const Bytes &file, VTAPI_FlashImageVersion *v) {
        return VTAPI_FCGetFlashImageVersion(Port(serial), Write("image.bin", file).c_str(), v);
    }

    // The default host's cards.
    static constexpr const char *kKite = "VTK24110A7";
    static constexpr const char *kWren = "VTW23080B2";
    static constexpr const char *kEight = "VTS18050C3";
    static constexpr const char *kOrla = "VTO21030D4";
};

// A Kite image whose regions fit the simulated card's flash: its boot code
// and firmware in the sizes the simulator gives them.
img::MultiImageRecipe FittingKiteImage() {
    img::MultiImageRecipe m;
    m.imageVersion = {1, 13, 0};
    m.cardLists = {{1, {kKiteCard}}, {0, {kKiteCard}}};
    img::BootImages boot;
    boot.bios = img::BootImage{{3, 70, 0}, 0};
    boot.fcode = img::BootImage{{4, 22, 0}, 0};
    boot.efi = img::BootImage{{7, 40, 0}, 0};
    m.components = {{0x07, {3, 70, 0}, 0, 0, img::BuildExpansionRomChain(boot, 0x1077, 0x7C50)},
                    {0x01, {9, 14, 2}, 0, 0, img::BuildRiscFirmware({9, 14, 2}, 64, 16 * 1024)}};
    return m;
}

}  // namespace

TEST_F(FlashApi, ImageVersionsForThePortsCard) {
    const Bytes kite = Sample(ImageFamily::kKite, kKiteCard);
    VTAPI_FlashImageVersion v{};
    ASSERT_EQ(ImageVersion(kKite, kite, &v), VTAPI_SUCCESS);
    EXPECT_STREQ(v.MBIVersionText, "03.04.05");
    EXPECT_EQ(v.CardType, 1u);
    EXPECT_EQ(v.ComponentCount, 15u);
    EXPECT_EQ((std::array<uint8_t, 3>{v.Firmware[0], v.Firmware[1], v.Firmware[2]}),
              (std::array<uint8_t, 3>{9, 12, 1}));
    EXPECT_EQ(v.Bios[1], 67);
    EXPECT_TRUE(v.Present & VTAPI_FLASH_HAS_PEP_FW);

    // The same file in a PLDM package gives the same record.
    VTAPI_FlashImageVersion wrapped{};
    ASSERT_EQ(ImageVersion(kKite, img::BuildPldmPackage(kite), &wrapped), VTAPI_SUCCESS);
    EXPECT_EQ(std::memcmp(&v, &wrapped, sizeof v), 0);

    // Each family's own path: the Wren card, and the converged Orla card
    // through the NIC-family checks.
    EXPECT_EQ(ImageVersion(kWren, Sample(ImageFamily::kWren, kWrenCard), &v), VTAPI_SUCCESS);
    EXPECT_EQ(v.ComponentCount, 9u);
    EXPECT_EQ(ImageVersion(kOrla, Sample(ImageFamily::kOrla, kOrlaCard), &v), VTAPI_SUCCESS);
    EXPECT_EQ(v.Pegtune[2], 3);

    // Refusals: another card's file, a broken component, a broken table, a
    // card without a flash image family.
    EXPECT_EQ(ImageVersion(kKite, Sample(ImageFamily::kWren, kWrenCard), &v), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_EQ(ImageVersion(kOrla, Sample(ImageFamily::kTern, kTernCard), &v), VTAPI_OPTION_NOT_SUPPORTED);
    Bytes b = kite;
    img::mutate::CorruptComponent(b, 4, 100);  // the signature region
    EXPECT_EQ(ImageVersion(kKite, b, &v), VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS);
    b = kite;
    img::mutate::Signature(b, "VXXX");
    EXPECT_EQ(ImageVersion(kKite, b, &v), VTAPI_INVALID_ILT_HEADER);
    EXPECT_EQ(ImageVersion(kEight, kite, &v), VTAPI_FUNCTION_NOT_APPLICABLE);

    // A single boot-code file, matched by the chip identifier it carries.
    const Bytes boot = img::BuildRomChain(
        {{0, {3, 71, 0}, 0, 0x1077, 0x7C50, "2910", {}}, {3, {7, 41, 0}, 0, 0x1077, 0x7C50, "", {}}});
    v = {};
    ASSERT_EQ(ImageVersion(kKite, boot, &v), VTAPI_SUCCESS);
    EXPECT_EQ(v.Present, uint32_t(VTAPI_FLASH_HAS_BIOS | VTAPI_FLASH_HAS_EFI));
    EXPECT_EQ(v.Efi[1], 41);
    EXPECT_EQ(ImageVersion(kWren, boot, &v), VTAPI_OPTION_NOT_SUPPORTED);

    // Arguments, a missing file (the frame), a port not in the tree.
    const std::string path = Write("image.bin", kite);
    EXPECT_EQ(VTAPI_FCGetFlashImageVersion(Port(kKite), path.c_str(), nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_FCGetFlashImageVersion(Port(kKite), root_.path("/none").c_str(), &v), VTAPI_FILE_NOT_FOUND);
    ProtocolEntry stranger{};
    stranger.WWPN[0] = 0x99;
    EXPECT_EQ(VTAPI_FCGetFlashImageVersion(&stranger, path.c_str(), &v), VTAPI_OPTION_ROM_UPDATE_FAILED);
    const std::string log = vttest::ReadFile(root_.path("/var/tmp/vtapi.log"));
    EXPECT_NE(log.find("VTAPI_FCGetFlashImageVersion(): returning with 6"), std::string::npos);
}

TEST_F(FlashApi, SupportedAdaptersListEveryCardEntry) {
    img::MultiImageRecipe m;
    m.imageVersion = {2, 0, 1};
    m.cardLists = {{4, {kKiteCard, {0x1077, 0x7C40, 0x1077, 0xFFFF}}}, {0, {kWrenCard}}};
    const std::string path = Write("cards.bin", img::BuildMultiImage(m));
    VTAPI_FlashImageAdapters a{};
    ASSERT_EQ(VTAPI_FCGetFlashImageSupportedAdapters(path.c_str(), &a), VTAPI_SUCCESS);
    ASSERT_EQ(a.Count, 3u);
    ASSERT_NE(a.Adapters, nullptr);
    EXPECT_STREQ(a.MBIVersion, "02.00.01");
    EXPECT_EQ(a.Adapters[0].CardType, 4);
    EXPECT_EQ(a.Adapters[0].SubSystemID, 0x0C60);
    EXPECT_EQ(a.Adapters[1].DeviceID, 0x7C40);
    EXPECT_EQ(a.Adapters[1].SubSystemID, 0xFFFF);
    EXPECT_EQ(a.Adapters[2].CardType, 0);
    EXPECT_EQ(a.Adapters[2].DeviceID, 0x6A10);
    VTAPI_FreeMem(a.Adapters);

    m.cardLists.clear();
    ASSERT_EQ(VTAPI_FCGetFlashImageSupportedAdapters(Write("none.bin", img::BuildMultiImage(m)).c_str(), &a), 0u);
    EXPECT_EQ(a.Count, 0u);
    EXPECT_EQ(a.Adapters, nullptr);
    Bytes cut = Sample(ImageFamily::kKite, kKiteCard);
    img::mutate::CardListEntries(cut, 0, 1025);
    EXPECT_EQ(VTAPI_FCGetFlashImageSupportedAdapters(Write("cut.bin", cut).c_str(), &a), VTAPI_INVALID_ILT_HEADER);
    EXPECT_EQ(VTAPI_FCGetFlashImageSupportedAdapters(root_.root().c_str(), &a), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(VTAPI_FCGetFlashImageSupportedAdapters(path.c_str(), nullptr), VTAPI_INVALID_ARGUMENT);
}

TEST_F(FlashApi, ComponentVersionsFromTheCardsFlash) {
    AdapterEntry *card = Card(kKite);
    ASSERT_NE(card, nullptr);
    char text[32];
    ASSERT_EQ(VTAPI_GetFlashComponentVersion(card, 0x01, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "9.12.01");
    ASSERT_EQ(VTAPI_GetFlashComponentVersion(card, 0x07, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "3.67");
    ASSERT_EQ(VTAPI_GetFlashComponentVersion(card, VTFU_REGION_FLASH_ILT, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "1.12.03");
    ASSERT_EQ(VTAPI_GetFlashComponentVersion(card, 0x01, text, 3), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "9.");
    // Not in this card's flash; in it, but with no version to give.
    EXPECT_EQ(VTAPI_GetFlashComponentVersion(card, 0xE1, text, sizeof text), VTAPI_FUNCTION_NOT_APPLICABLE);
    EXPECT_EQ(VTAPI_GetFlashComponentVersion(card, 334, text, sizeof text), VTAPI_FUNCTION_NOT_APPLICABLE);

    // A region without a header of its own takes the version of its entry in
    // the flash's layout table: rewrite that table (same length) with one.
    img::MultiImageRecipe table;
    table.components = {{334, {4, 5, 6}, 0, 0, {}}, {0x01, {9, 12, 1}, 0, 0, {}}};
    table.cardLists = {{0, {kKiteCard}}, {1, {kKiteCard}}};
    Bytes ilt = img::BuildMultiImage(table);
    ilt.resize(img::MultiImageTableLength(table));
    const uint32_t handle = Port(kKite)->Device.DeviceHandle;
    ASSERT_EQ(SDUpdateOptionRomEx2(handle, ilt.data(), Size(ilt), VTFU_REGION_FLASH_ILT, 0, 0), SDERR_NONE);
    ASSERT_EQ(VTAPI_GetFlashComponentVersion(card, 334, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "04.05.06");

    AdapterEntry copy = *card;
    EXPECT_EQ(VTAPI_GetFlashComponentVersion(&copy, 0x01, text, sizeof text), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetFlashComponentVersion(card, 0x01, nullptr, 8), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetFlashComponentVersion(card, 0x01, text, 0), VTAPI_INVALID_ARGUMENT);
}

TEST_F(FlashApi, AnalysisAgainstTheSimulatedFlashLayout) {
    AdapterEntry *card = Card(kKite);
    ASSERT_NE(card, nullptr);
    uint8_t *layout = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(fcVTFUGetFlashLayoutTable(Port(kKite)->Device.DeviceHandle, &layout, &size), 0u);
    const uint32_t count = vtflash::Le32(layout + 4);
    EXPECT_EQ(size, 8 + 8 * count);
    bool hasFirmware = false;
    for (uint32_t i = 0; i < count; ++i) hasFirmware = hasFirmware || vtflash::Le32(layout + 8 + 8 * i) == 0x01;
    EXPECT_TRUE(hasFirmware);
    std::free(layout);
    EXPECT_EQ(fcVTFUGetFlashLayoutTable(0xBAD, &layout, &size), 1u);
    EXPECT_TRUE(Logged("fcVTFUGetFlashLayoutTable: SDGetOptionRomLayout( ) failed with error "));

    img::MultiImageRecipe fitting = FittingKiteImage();
    const Bytes image = img::BuildMultiImage(fitting);
    const std::string path = Write("fit.bin", image);
    EXPECT_EQ(AnalyzeFlashImageFile(card, path.c_str(), Size(image)), 0u);
    EXPECT_TRUE(Printed("Flash image file " + path + " is compatible with HBA "));

    // Firmware larger than the card's firmware region, and a region the
    // card's flash does not have.
    fitting.components[1].payload = img::BuildRiscFirmware({9, 14, 2}, 64, 256 * 1024 + 512);
    Bytes larger = img::BuildMultiImage(fitting);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(card, Write("big.bin", larger).c_str(), Size(larger)), FLASH_ST_INCOMPATIBLE);
    EXPECT_TRUE(Logged("ReadFlashImageILT: region 0x1 holds 262144 bytes, the image has 262656"));
    img::MultiImageRecipe foreign = img::SampleImage(ImageFamily::kWren, kKiteCard);
    const Bytes full = img::BuildMultiImage(foreign);
    ClearCapture();
    EXPECT_EQ(AnalyzeFlashImageFile(card, Write("full.bin", full).c_str(), Size(full)), FLASH_ST_INCOMPATIBLE);
    EXPECT_TRUE(Logged("ReadFlashImageILT: region 0xe1 is not in the adapter's flash"));
    EXPECT_TRUE(Printed("is incompatible with HBA "));
}
