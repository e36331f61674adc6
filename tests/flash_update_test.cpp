// Flash updates through the exported API on simulated cards of every chip
// family: an image file planned and written, the VPD kept, reboot-required
// reported; refusals (layout, card, components, faults, arguments) that
// leave the flash as it was; single regions saved and replaced; and the
// choice of the regions an image writes.
#include <sys/stat.h>

#include <cstring>

#include "flash/flash_update.h"
#include "flash_testutil.h"
#include "core/core.h"

using namespace flashtest;
using img::ImageFamily;

namespace {

class FlashUpdate : public LibraryTest {
protected:
    FlashUpdate() : LibraryTest(vttest::SourcePath("data/hosts/flash_families.json")) {}
    static std::string Version(const char *serial, uint32_t region) {
        char text[48] = {};
        const uint32_t rc = VTAPI_GetFlashComponentVersion(Card(serial), region, text, sizeof text);
        return rc == VTAPI_SUCCESS ? text : "status " + std::to_string(rc);
    }
    static Bytes Vpd(const char *serial) {
        Bytes vpd(4096);
        uint32_t size = Size(vpd);
        EXPECT_EQ(SDGetVpd(Port(serial)->Device.DeviceHandle, vpd.data(), &size), SDERR_NONE);
        vpd.resize(size);
        return vpd;
    }
    static bool RebootRequired(const char *serial) {
        uint32_t state = 0;
        EXPECT_EQ(VTAPI_IsRebootRequired(Port(serial)->Device.Instance, 0, &state), VTAPI_SUCCESS);
        return state != 0;
    }
    vttest::RunResult SimTool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args, {"VTSDM_HOST=" + hostFile_});
    }

    static constexpr const char *kKite = "VTK24200F1";
    static constexpr const char *kWren = "VTW23200F2";
    static constexpr const char *kTern = "VTT19200F3";
    static constexpr const char *kOrla = "VTO21200F4";
    static constexpr const char *kTove = "VTV22200F5";
    static constexpr const char *kOlder = "VTS18200F6";
    static constexpr const char *kSmallPart = "VTK24200F7";
};

// The family's sample image with firmware 9.20.05 (the cards hold older).
Bytes NewerImage(ImageFamily family, const img::CardEntry &card) {
    img::MultiImageRecipe recipe = img::SampleImage(family, card);
    img::Component &fw = recipe.components.at(img::ComponentIndex(recipe, 0x01));
    const uint32_t attribute = vtflash::Be32(fw.payload.data() + 32);
    fw.version = {9, 20, 5};
    fw.payload = img::BuildRiscFirmware(fw.version, attribute, fw.payload.size());
    return img::BuildMultiImage(recipe);
}

// A plan of the exported planner, released when it goes.
struct Plan {
    Plan(const AdapterEntry *card, const std::string &path) {
        EXPECT_EQ(vtfuPlanFlashUpdate(card, path.c_str(), &plan), VTAPI_SUCCESS);
    }
    ~Plan() { vtfuFreeFlashUpdatePlan(plan); }
    Plan(const Plan &) = delete;
    Plan &operator=(const Plan &) = delete;
    const VTFU_UpdateComponent *component(uint32_t region) const {
        for (uint32_t i = 0; plan && i < plan->Count; ++i)
            if (plan->Components[i].Region == region) return &plan->Components[i];
        return nullptr;
    }
    VTFU_UpdatePlan *operator->() const { return plan; }
    VTFU_UpdatePlan *plan = nullptr;
};

TEST_F(FlashUpdate, EveryFamilyTakesItsImageAndKeepsItsVpd) {
    const struct {
        const char *serial;
        ImageFamily family;
        img::CardEntry card;
    } cases[] = {{kKite, ImageFamily::kKite, {0x1077, 0x7C50, 0x1077, 0x0C60}},
                 {kWren, ImageFamily::kWren, kWrenCard},
                 {kTern, ImageFamily::kTern, kTernCard},
                 {kOrla, ImageFamily::kOrla, kOrlaCard},
                 {kTove, ImageFamily::kTove, kToveCard}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.serial);
        ASSERT_NE(Port(c.serial), nullptr);
        const Bytes image = NewerImage(c.family, c.card);
        const std::string path = Write(std::string(c.serial) + ".bin", image);
        const Bytes vpd = Vpd(c.serial);
        const std::string before = Version(c.serial, 0x01);
        ASSERT_EQ(before.rfind("status", 0), std::string::npos) << before;
        EXPECT_FALSE(RebootRequired(c.serial));

        // The plan names each component with the version now and the new one.
        {
            const Plan plan(Card(c.serial), path);
            ASSERT_NE(plan.plan, nullptr);
            ASSERT_EQ(plan->Status, VTAPI_SUCCESS) << plan->Message;
            EXPECT_STREQ(plan->ImageVersion, "03.04.05");
            const VTFU_UpdateComponent *fw = plan.component(0x01);
            ASSERT_NE(fw, nullptr);
            EXPECT_EQ(fw->Current, before);
            EXPECT_STREQ(fw->New, "9.20.05");
            EXPECT_STREQ(fw->Name, "Firmware");
            EXPECT_EQ(fw->Changes, 1u);
            EXPECT_GE(fw->Capacity, fw->Size);
            ASSERT_GT(plan->Count, 1u);
            EXPECT_EQ(plan->Components[plan->Count - 1].Region, VTFU_REGION_FLASH_ILT);
        }

        guConfigChanged = 0;
        EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(c.serial), path.c_str(), 0), VTAPI_REBOOT_REQUIRED);
        EXPECT_EQ(Version(c.serial, 0x01), "9.20.05");
        EXPECT_EQ(Version(c.serial, VTFU_REGION_FLASH_ILT), "3.04.05");
        EXPECT_EQ(Vpd(c.serial), vpd);
        EXPECT_TRUE(RebootRequired(c.serial));
        EXPECT_EQ(guConfigChanged, 1u);
        EXPECT_EQ(gFlashUpdateInProgress, 0u);
    }
    EXPECT_FALSE(RebootRequired(kOlder));

    // Other components read back as the file brings them; the layout table is
    // stamped by the update.
    EXPECT_EQ(Version(kKite, 0xD3), "02.01.09");
    EXPECT_EQ(Version(kOrla, 0x73), "1.1.3");
    Bytes ilt(8192);
    ASSERT_EQ(SDGetOptionRomEx(Port(kKite)->Device.DeviceHandle, ilt.data(), Size(ilt), 0x8E, 0), SDERR_NONE);
    const uint32_t entries = vtflash::Le16(ilt.data() + 10);
    EXPECT_EQ(vtflash::Le16(ilt.data() + entries * 32 + 12), 0x1400);
    EXPECT_EQ(vtfuHLPR_Sum16(ilt.data(), vtflash::Le16(ilt.data() + 6) / 2), 0);

    // A new tree shows the new firmware in the card's entry.
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    EXPECT_STREQ(Card(kKite)->FlashFirmwareVersion, "9.20.05");
}

TEST_F(FlashUpdate, RefusalsLeaveTheFlashAsItWas) {
    const Bytes kite = NewerImage(ImageFamily::kKite, {0x1077, 0x7C50, 0x1077, 0x0C60});
    const std::string path = Write("kite.bin", kite);

    // The host file gives this card a flash without most of the image's
    // regions: the layout check refuses the file.
    {
        const Plan small(Card(kSmallPart), path);
        ASSERT_NE(small.plan, nullptr);
        EXPECT_EQ(small->Status, VTAPI_OPTION_NOT_SUPPORTED);
        EXPECT_EQ(small->Validation, FLASH_LAYOUT_MISMATCH);
        EXPECT_EQ(std::string(small->Message), "Flash image file " + path + " is incompatible with HBA 7 (VT2912)!");
        EXPECT_EQ(small->Count, 0u);
        EXPECT_EQ(vtfuWriteFlashUpdate(small.plan), VTAPI_OPTION_NOT_SUPPORTED);
    }
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kSmallPart), path.c_str(), 0), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_EQ(AnalyzeFlashImageFile(Card(kSmallPart), path.c_str(), Size(kite)), FLASH_ST_INCOMPATIBLE);
    EXPECT_FALSE(RebootRequired(kSmallPart));

    // Another family's file, a broken component, a card without an image
    // family, a broken table.
    const std::string wren = Write("wren.bin", Sample(ImageFamily::kWren, kWrenCard));
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), wren.c_str(), 0), VTAPI_OPTION_NOT_SUPPORTED);
    Bytes broken = kite;
    img::mutate::CorruptComponent(broken, 4, 100);  // the signature region
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), Write("broken.bin", broken).c_str(), 0),
              VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS);
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kOlder), path.c_str(), 0), VTAPI_FUNCTION_NOT_APPLICABLE);
    broken = kite;
    img::mutate::Signature(broken, "VXXX");
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), Write("sig.bin", broken).c_str(), 0), VTAPI_INVALID_ILT_HEADER);

    // Arguments and the file frame.
    EXPECT_EQ(VTAPI_doOptionROMUpdate(nullptr, path.c_str(), 0), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), root_.path("/none").c_str(), 0), VTAPI_FILE_NOT_FOUND);
    ProtocolEntry stranger{};
    stranger.WWPN[0] = 0x99;
    EXPECT_EQ(VTAPI_doOptionROMUpdate(&stranger, path.c_str(), 0), VTAPI_OPTION_ROM_UPDATE_FAILED);
    ProtocolEntry vport = *Port(kKite);
    vport.Device.DeviceNodeProperty.VPortId = 1;
    EXPECT_EQ(VTAPI_doOptionROMUpdate(&vport, path.c_str(), 0), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(Version(kKite, 0x01), "9.12.01");
    EXPECT_FALSE(RebootRequired(kKite));

    // Flash faults: a failed read while planning, a failed write; each passes
    // libvtsdm's status through and changes nothing.
    const uint32_t instance = Port(kKite)->Device.Instance;
    ASSERT_EQ(SimTool({"flash", std::to_string(instance), "fault", "read", "1"}).status, 0);
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), path.c_str(), 0), SDERR_FLASH_READ_FAILED);
    ASSERT_EQ(SimTool({"flash", std::to_string(instance), "fault", "write", "1"}).status, 0);
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), path.c_str(), 0), SDERR_FLASH_WRITE_FAILED);
    EXPECT_EQ(Version(kKite, 0x01), "9.12.01");
    EXPECT_EQ(Version(kKite, 0xD3), "02.01.09");
    EXPECT_FALSE(RebootRequired(kKite));
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kKite), path.c_str(), 0), VTAPI_REBOOT_REQUIRED);
    const std::string log = vttest::ReadFile(root_.path("/var/tmp/vtapi.log"));
    EXPECT_NE(log.find("VTAPI_doOptionROMUpdate(): returning with 201"), std::string::npos);
}

TEST_F(FlashUpdate, BootCodeFileReplacesTheBootRegion) {
    const Bytes boot = img::BuildRomChain(
        {{0, {3, 71, 0}, 0, 0x1077, 0x7C50, "2910", {}}, {3, {7, 41, 0}, 0, 0x1077, 0x7C50, "", {}}});
    const std::string path = Write("boot.bin", boot);
    {
        const Plan plan(Card(kKite), path);
        ASSERT_NE(plan.plan, nullptr);
        ASSERT_EQ(plan->Status, VTAPI_SUCCESS) << plan->Message;
        EXPECT_EQ(plan->BootFile, 1u);
        ASSERT_EQ(plan->Count, 1u);
        EXPECT_STREQ(plan->Components[0].Current, "3.67");
        EXPECT_STREQ(plan->Components[0].New, "3.71");
        // The plan is written as it stands: by the planner's own writer.
        EXPECT_EQ(vtfuWriteFlashUpdate(plan.plan), VTAPI_REBOOT_REQUIRED);
    }
    EXPECT_EQ(Version(kKite, 0x07), "3.71");
    EXPECT_EQ(Version(kKite, 0x01), "9.12.01");
    // Another chip's boot file.
    EXPECT_EQ(VTAPI_doOptionROMUpdate(Port(kWren), path.c_str(), 0), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_FALSE(RebootRequired(kWren));
}

TEST_F(FlashUpdate, SavedRegionsComeBackByteForByte) {
    ProtocolEntry *kite = Port(kKite);
    const std::string serdes = root_.path("/serdes.bin"), again = root_.path("/serdes2.bin");
    ASSERT_EQ(VTAPI_SaveAdapterSerdesRegionToFile(kite, serdes.c_str()), VTAPI_SUCCESS);
    const std::string saved = vttest::ReadFile(serdes);
    EXPECT_EQ(saved.size(), 32u * 1024);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, serdes.c_str(), 0x102), VTAPI_REBOOT_REQUIRED);
    ASSERT_EQ(VTAPI_SaveAdapterSerdesRegionToFile(kite, again.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::ReadFile(again), saved);

    // A changed table goes in and comes back; the file keeps its mode when
    // saved over.
    std::string changed = saved;
    changed[10] = char(changed[10] ^ 0x5A);
    vttest::WriteFile(serdes, changed);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, serdes.c_str(), 0x102), VTAPI_REBOOT_REQUIRED);
    ASSERT_EQ(chmod(again.c_str(), 0600), 0);
    ASSERT_EQ(VTAPI_SaveAdapterSerdesRegionToFile(kite, again.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::ReadFile(again), changed);
    struct stat st {};
    ASSERT_EQ(stat(again.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);

    // The firmware table and PEP configuration of the Kite card, the MPI
    // configuration of a converged card.
    const std::string table = root_.path("/table.bin"), mpi = root_.path("/mpi.dat");
    ASSERT_EQ(VTAPI_SaveAdapterFirmwareTableToFile(kite, table.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_UpdateAdapterFirmwareTableFromFile(kite, table.c_str()), VTAPI_REBOOT_REQUIRED);
    EXPECT_EQ(VTAPI_SaveAdapterMpiCfgToDatFile(kite, mpi.c_str()), VTAPI_OPTION_NOT_SUPPORTED);
    ASSERT_EQ(VTAPI_SaveAdapterMpiCfgToDatFile(Port(kOrla), mpi.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_UpdateAdapterMpiCfgFromDatFile(Port(kOrla), mpi.c_str()), VTAPI_REBOOT_REQUIRED);
    std::string bad = vttest::ReadFile(mpi);
    bad[100] = char(bad[100] ^ 1);  // breaks the configuration's checksum
    vttest::WriteFile(mpi, bad);
    EXPECT_EQ(VTAPI_UpdateAdapterMpiCfgFromDatFile(Port(kOrla), mpi.c_str()), VTAPI_FILE_CORRUPTED);
    const Bytes pep = img::BuildPepBoardConfig({5, 6, 7, 9}, 512);
    EXPECT_EQ(VTAPI_UpdateAdapterPEPCfgFromFile(kite, Write("pep.bin", pep).c_str()), VTAPI_REBOOT_REQUIRED);
    EXPECT_EQ(Version(kKite, 0xCF), "05.06.07.09");

    // Boot code must be a whole chain; the VPD is never replaced; too large
    // a file and a region the card lacks are refused.
    Bytes chain = img::BuildRomChain({{0, {3, 80, 0}, 0, 0x1077, 0x7C50, "", {}}});
    img::mutate::BreakRomChain(chain, img::mutate::RomBreak::kChecksum);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, Write("chain.bin", chain).c_str(), 0x07),
              VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, serdes.c_str(), 0x8C), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, Write("big.bin", Bytes(32 * 1024 + 1)).c_str(), 0x102),
              VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(kite, serdes.c_str(), 0xE1), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_EQ(VTAPI_SaveAdapterSerdesRegionToFile(kite, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(Version(kKite, 0x07), "3.67");
}

}  // namespace
