// Boot devices: the boot-from-SAN configuration mode, FCP boot switches and
// drives in NVRAM (EFI hosts, 256-byte images), the command-line checks of a
// boot target, and the FC-NVMe boot parameters block in flash.
#include <filesystem>
#include <string>
#include <vector>

#include "config/nvram_config.h"
#include "config_fixture.h"

namespace {

using vttest::ConfigTest;
using vttest::kIsp8GbPort;
using vttest::kKitePort0;
using vttest::kKitePort1;
using vttest::kWrenPort;
using vttest::Wwn;

const char kFcpTarget[] = "50:0a:09:81:00:00:a1:00";   // target 0 of the default host's port 0
const char kNvmeTarget[] = "20:01:00:25:b5:00:0e:00";  // target 2, FC-NVMe
const char k1240[] = "21:00:00:e0:8b:19:00:00";        // nvram_templates.json: 256-byte NVRAM

TEST(BfsConfigMode, OneReplacesTwoAndFourAccumulate) {
    SetBfsConfigMode(1);
    EXPECT_EQ(GetBfsConfigMode(), 1u);
    SetBfsConfigMode(2);
    EXPECT_EQ(GetBfsConfigMode(), 2u);
    SetBfsConfigMode(4);
    EXPECT_EQ(GetBfsConfigMode(), 6u);
    SetBfsConfigMode(3);
    SetBfsConfigMode(0);
    EXPECT_EQ(GetBfsConfigMode(), 6u);
    SetBfsConfigMode(1);
    SetBfsConfigMode(4);
    EXPECT_EQ(GetBfsConfigMode(), 4u);

    VTAPI_BootDeviceInfo info{};
    info.EnableBIOS = 1;
    EXPECT_EQ(vt::config::BootSettingsLines(info), std::vector<std::string>{"Selective Login         : Disabled"});
    SetBfsConfigMode(1);
    EXPECT_EQ(vt::config::BootSettingsLines(info),
              (std::vector<std::string>{"Adapter BIOS            : Enabled", "Selectable Boot         : Disabled"}));
}

TEST(NvmeBootBlock, SearchAddClearAndCheck) {
    VTAPI_NVMeBootDeviceEntries block{};
    VTAPI_NVMeBootDrive drive{};
    memcpy(drive.TargetWWPN, Wwn(kNvmeTarget).data(), 8);
    drive.NamespaceID = 1;
    EXPECT_EQ(SearchNVMeBootDeviceEntryList(&block, drive.TargetWWPN, 1), -1);
    EXPECT_EQ(AddNVMeBootDriveMapping(&block, &drive), 0);
    EXPECT_EQ(block.Drives[0].Flags, VTAPI_NVME_DRIVE_VALID);
    drive.ControllerID = 7;
    EXPECT_EQ(AddNVMeBootDriveMapping(&block, &drive), 0);  // same target and namespace: replaced
    EXPECT_EQ(block.Drives[0].ControllerID, 7);
    for (uint32_t ns = 2; ns <= 8; ++ns) {
        drive.NamespaceID = ns;
        EXPECT_EQ(AddNVMeBootDriveMapping(&block, &drive), int32_t(ns - 1));
    }
    drive.NamespaceID = 9;
    EXPECT_EQ(AddNVMeBootDriveMapping(&block, &drive), -1);
    EXPECT_EQ(SearchNVMeBootDeviceEntryList(&block, drive.TargetWWPN, 5), 4);
    ClearNVMeBootDevices(&block);
    EXPECT_EQ(SearchNVMeBootDeviceEntryList(&block, drive.TargetWWPN, 5), -1);

    // Signature, then the words of the first Length bytes sum to 0.
    EXPECT_EQ(CheckNVMeBootParametersAndDriveMapping(&block), 88u);
    block.Signature = VTAPI_NVME_BOOT_SIGNATURE;
    block.Length = 2560;
    EXPECT_EQ(CheckNVMeBootParametersAndDriveMapping(&block), 88u);
    block.Checksum = 0u - (VTAPI_NVME_BOOT_SIGNATURE + 2560);
    EXPECT_EQ(CheckNVMeBootParametersAndDriveMapping(&block), 0u);
    block.Length = 2561;
    EXPECT_EQ(CheckNVMeBootParametersAndDriveMapping(&block), 88u);
    block.Length = 2560;
    block.HostID[3] = 1;
    EXPECT_EQ(CheckNVMeBootParametersAndDriveMapping(&block), 88u);
}

class Boot : public ConfigTest {};

TEST_F(Boot, FcpSwitchesAndDrivesRoundTrip) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    VTAPI_BootDeviceInfo info{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &info, 1), VTAPI_SUCCESS);
    EXPECT_EQ(info.EnableBIOS, 0u);  // the NVRAM's "disable BIOS" is set
    EXPECT_EQ(info.DriveCount, 8u);
    EXPECT_TRUE(Logged("GetBootDeviceInfo: Retrieving current BIOS and UEFI Boot settings of HBA 0..."));
    uint32_t configured = 9;
    ASSERT_EQ(VTAPI_FCIsConfigureToBootFromSAN(port, &configured), VTAPI_SUCCESS);
    EXPECT_EQ(configured, 0u);

    info.EnableBIOS = 1;
    info.EnableSelectableBoot = 1;
    info.SelectiveLogin = 1;
    info.EnableAlternateBoot = 1;
    info.ForceWorldLogin = 1;
    info.FabricAssignedBootLun = 1;
    memcpy(info.Drives[0].WWPN, Wwn(kFcpTarget).data(), 8);
    info.Drives[0].LUN = 2;
    memcpy(info.Drives[5].WWPN, Wwn(kFcpTarget).data(), 8);
    info.Drives[5].LUN = 300;
    memcpy(info.BootNodeName, Wwn("50:0a:09:80:00:00:a1:00").data(), 8);
    ASSERT_EQ(VTAPI_SetBootDeviceInfo(port, &info), VTAPI_SUCCESS);

    VTAPI_BootDeviceInfo back{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 1), VTAPI_SUCCESS);
    EXPECT_EQ(memcmp(&back, &info, sizeof info), 0);
    SDMDevice *d = Device(kKitePort0);
    const std::vector<uint8_t> img = Nvram(d);
    EXPECT_EQ(Var(d, img, 58), 0u);
    EXPECT_EQ(Var(d, img, 18), 0u);  // not an EFI host
    EXPECT_EQ(CoreIsValidNvram(img.data(), 512), 1u);
    // The HBA-parameters record reads the same drives.
    const VTAPI_HBAParams p = Params(kKitePort0);
    EXPECT_EQ(p.BootDrives[5].LUN, 300);
    EXPECT_EQ(memcmp(p.BootDrives[0].WWPN, info.Drives[0].WWPN, 8), 0);
    // The alternate NVRAM area is another image.
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 2), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[5].LUN, 0);
    ASSERT_EQ(VTAPI_FCIsConfigureToBootFromSAN(port, &configured), VTAPI_SUCCESS);
    EXPECT_EQ(configured, 1u);

    // What the displays show.
    std::vector<std::string> lines;
    ASSERT_EQ(vt::config::BootDriveLines(d, info, lines), 0u);
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[0], "Drive # WWPN                 LUN");
    EXPECT_EQ(lines[6], "5       50:0a:09:81:00:00:a1:00  300");
    bool sawDrive5 = false;
    for (const vt::config::ReportRow &r : vt::config::BootDeviceReport(d, info))
        if (r.element == "BootDrive5LUN") {
            sawDrive5 = true;
            EXPECT_EQ(r.label, "Boot Drive 5 (Drive 5) LUN");
            EXPECT_EQ(r.value, "300");
        }
    EXPECT_TRUE(sawDrive5);

    // Locked: refused, nothing written.
    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    info.Drives[0].LUN = 9;
    EXPECT_EQ(VTAPI_SetBootDeviceInfo(port, &info), VTAPI_MAINTENANCE_MODE);
    EXPECT_EQ(Nvram(d), img);
}

TEST_F(Boot, EfiHostAndSmallImages) {
    std::filesystem::create_directories(root_.path("/sys/firmware/efi"));
    Start("", "nvram_templates.json");
    ProtocolEntry *port = Entry(k1240);
    SDMDevice *d = Device(k1240);
    VTAPI_BootDeviceInfo info{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &info, 1), VTAPI_SUCCESS);
    EXPECT_TRUE(Logged("GetBootDeviceInfo (EFI): Retrieving current EFI Boot settings of HBA 3..."));
    EXPECT_EQ(info.DriveCount, 4u);
    EXPECT_EQ(info.EfiHost, 1u);
    info.ForceWorldLogin = 1;
    info.Drives[1].LUN = 4;
    info.Drives[6].LUN = 6;  // no such drive in 256 bytes
    info.BootNodeName[0] = 0x50;
    ASSERT_EQ(VTAPI_SetBootDeviceInfo(port, &info), VTAPI_SUCCESS);
    const std::vector<uint8_t> img = Nvram(d);
    ASSERT_EQ(img.size(), 256u);
    EXPECT_EQ(Var(d, img, 96), 0u);  // world login is written only in 512-byte images
    EXPECT_EQ(Var(d, img, 18), 1u);  // EFI boot
    EXPECT_EQ(Var(d, img, 84), 0x50u);
    EXPECT_EQ(Var(d, img, 106), 4u);
    EXPECT_EQ(CoreIsValidNvram(img.data(), 256), 1u);
    VTAPI_BootDeviceInfo back{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 1), VTAPI_SUCCESS);
    EXPECT_EQ(back.ForceWorldLogin, 0u);
    EXPECT_EQ(back.Drives[6].LUN, 0);
    EXPECT_EQ(back.BootNodeName[0], 0x50);
}

TEST_F(Boot, CommandLineChecksOfABootTarget) {
    Start();
    SDMDevice *d = Device(kKitePort0);
    VTAPI_BootDeviceInfo info{};
    ASSERT_EQ(ParseBootDeviceParameters(d, kFcpTarget, "2", nullptr, &info), 0u) << Error();
    EXPECT_EQ(memcmp(info.Drives[0].WWPN, Wwn(kFcpTarget).data(), 8), 0);
    EXPECT_EQ(info.Drives[0].LUN, 2);
    EXPECT_EQ(memcmp(info.BootNodeName, Wwn("50:0a:09:80:00:00:a1:00").data(), 8), 0);
    // By the target's number on the port, in another drive.
    info = VTAPI_BootDeviceInfo{};
    ASSERT_EQ(ParseBootDeviceParameters(d, "0", "1", "7", &info), 0u) << Error();
    EXPECT_EQ(info.Drives[7].LUN, 1);
    EXPECT_EQ(memcmp(info.Drives[7].WWPN, Wwn(kFcpTarget).data(), 8), 0);

    const struct {
        const char *target, *lun, *drive;
        uint32_t status;
        const char *message;
    } bad[] = {
        {kNvmeTarget, "1", nullptr, 48, "Target 20:01:00:25:b5:00:0e:00 is not a FCP target of HBA 0 (VT2912)!"},
        {"50:00:00:00:00:00:00:99", "1", nullptr, 48,
         "Target 50:00:00:00:00:00:00:99 is not a FCP target of HBA 0 (VT2912)!"},
        {"12", "1", nullptr, 48, "Invalid target ID (12) for HBA 0!"},
        {"50:0a:09:81", "1", nullptr, 48, "Invalid target WWPN (50:0a:09:81)!"},
        {kFcpTarget, "70000", nullptr, 48, "Invalid LUN (70000)!"},
        {kFcpTarget, "x", nullptr, 48, "Invalid LUN (x)!"},
        {kFcpTarget, "1", "8", 48, "Invalid boot drive (8); HBA 0 has drives 0 to 7!"},
        {kFcpTarget, "", nullptr, 60, "Invalid HBA parameter name/value!"},
    };
    for (const auto &b : bad) {
        EXPECT_EQ(ParseBootDeviceParameters(d, b.target, b.lun, b.drive, &info), b.status) << b.message;
        EXPECT_EQ(Error(), b.message);
    }
    EXPECT_EQ(CheckBootTargetID(d, Wwn(kFcpTarget).data()), 0u);
}

TEST_F(Boot, PortWithoutBiosHasNoDriveTable) {
    // A flash part with firmware only: no boot code region, so no BIOS.
    Start(R"({"cards":[{"serial":"NB1","model":"VT2516","device_id":"0x6A10","subsystem_id":"0x0A16",
        "flash":{"layout":[{"region":"0x01","size":262144}]},
        "ports":[{"wwnn":"20:00:00:00:00:00:00:01","wwpn":"21:00:00:00:00:00:00:01"}]}]})");
    SDMDevice *d = Device("21:00:00:00:00:00:00:01");
    VTAPI_BootDeviceInfo info{};
    ASSERT_EQ(GetBootDeviceInfo(d, &info, 1), 0u);
    std::vector<std::string> lines;
    EXPECT_EQ(vt::config::BootDriveLines(d, info, lines), 66u);
    EXPECT_EQ(Error(), "Command aborted. Current HBA 0 (VT2516) does not have ROM BIOS");
    EXPECT_TRUE(lines.empty());
}

// The block read back through the flash calls, for a check of where it lies.
VTAPI_NVMeBootDeviceEntries FlashBlock(const SDMDevice *d, uint32_t region, uint32_t offset) {
    VTAPI_NVMeBootDeviceEntries b{};
    EXPECT_EQ(SDGetOptionRomEx(d->DeviceHandle, &b, sizeof b, region, offset), SDERR_NONE);
    return b;
}

TEST_F(Boot, NvmeBootDrivesInTheActiveRegion) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    SDMDevice *d = Device(kKitePort0);
    VTAPI_NVMeBootDeviceEntries block{};
    ASSERT_EQ(VTAPI_GetNVMeBootDeviceEntries(port, &block), VTAPI_SUCCESS);
    EXPECT_EQ(block.Signature, VTAPI_NVME_BOOT_SIGNATURE);
    for (const VTAPI_NVMeBootDrive &drive : block.Drives) EXPECT_EQ(drive.Flags, 0u);

    VTAPI_NVMeBootDrive drive{};
    memcpy(drive.TargetWWPN, Wwn(kNvmeTarget).data(), 8);
    memcpy(drive.TargetWWNN, Wwn("20:00:00:25:b5:00:0e:00").data(), 8);
    drive.NamespaceID = 2;
    drive.Flags = VTAPI_NVME_DRIVE_VALID;
    snprintf(drive.NQN, sizeof drive.NQN, "nqn.2014-08.com.vantor:ns-2");
    block.Drives[3] = drive;
    snprintf(block.HostNQN, sizeof block.HostNQN, "nqn.2014-08.org.host:test");
    ASSERT_EQ(VTAPI_SetNVMeBootDeviceEntries(port, &block), VTAPI_SUCCESS) << Error();
    VTAPI_NVMeBootDeviceEntries back{};
    ASSERT_EQ(VTAPI_GetNVMeBootDeviceEntries(port, &back), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[0].NamespaceID, 2u);  // kept in the first free slot
    EXPECT_STREQ(back.Drives[0].NQN, "nqn.2014-08.com.vantor:ns-2");
    EXPECT_STREQ(back.HostNQN, "nqn.2014-08.org.host:test");
    // Port index 1 of the card, in region 334 as the active-region record says.
    EXPECT_EQ(FlashBlock(d, 334, 0).Drives[0].NamespaceID, 2u);
    EXPECT_EQ(FlashBlock(d, 377, 0).Drives[0].Flags, 0u);
    uint32_t configured = 0;
    ASSERT_EQ(VTAPI_FCIsConfigureToBootFromSAN(port, &configured), VTAPI_SUCCESS);
    EXPECT_EQ(configured, 1u);
    // The second port's block is 4 KiB further.
    ASSERT_EQ(VTAPI_SetNVMeBootDeviceEntries(Entry(kKitePort1), &block), VTAPI_SUCCESS);
    EXPECT_EQ(FlashBlock(d, 334, 4096).Drives[0].NamespaceID, 2u);

    // The card's record names the other region now.
    ASSERT_EQ(Sim({"nvme-boot", "0", "377"}), 0);
    ASSERT_EQ(VTAPI_GetNVMeBootDeviceEntries(port, &back), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[0].Flags, 0u);
    ASSERT_EQ(Sim({"nvme-boot", "0", "334"}), 0);
    ASSERT_EQ(VTAPI_GetNVMeBootDeviceEntries(port, &back), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[0].NamespaceID, 2u);

    // FC-NVMe boot from an FCP target is refused.
    memcpy(block.Drives[3].TargetWWPN, Wwn(kFcpTarget).data(), 8);
    EXPECT_EQ(VTAPI_SetNVMeBootDeviceEntries(port, &block), 48u);
    EXPECT_EQ(Error(), "Configuring NVMe BFS with FCP target is not supported.");
}

TEST_F(Boot, NvmeBootRegionsByChipAndDamagedBlocks) {
    Start();
    // Chips 24-26 keep one region, 33.
    ProtocolEntry *wren = Entry(kWrenPort);
    VTAPI_NVMeBootDeviceEntries block{};
    ASSERT_EQ(VTAPI_GetNVMeBootDeviceEntries(wren, &block), VTAPI_SUCCESS);
    block.Drives[0].Flags = VTAPI_NVME_DRIVE_VALID;
    block.Drives[0].NamespaceID = 5;
    ASSERT_EQ(VTAPI_SetNVMeBootDeviceEntries(wren, &block), VTAPI_SUCCESS);
    EXPECT_EQ(FlashBlock(Device(kWrenPort), 33, 0).Drives[0].NamespaceID, 5u);
    // Older chips have no FC-NVMe boot.
    EXPECT_EQ(VTAPI_GetNVMeBootDeviceEntries(Entry(kIsp8GbPort), &block), 121u);
    EXPECT_TRUE(Logged("GetNVMeBootDeviceEntries: NVMe boot configuration is not supported with current adapter."));
    EXPECT_EQ(VTAPI_SetNVMeBootDeviceEntries(Entry(kIsp8GbPort), &block), 121u);

    // A right signature over words that do not sum to 0, then a wrong one.
    SDMDevice *d = Device(kKitePort0);
    VTAPI_NVMeBootDeviceEntries damaged = FlashBlock(d, 334, 0);
    damaged.Drives[2].NamespaceID = 77;
    ASSERT_EQ(SDUpdateOptionRomEx2(d->DeviceHandle, &damaged, sizeof damaged, 334, 0, 0), SDERR_NONE);
    EXPECT_EQ(VTAPI_GetNVMeBootDeviceEntries(Entry(kKitePort0), &block), 88u);
    EXPECT_TRUE(Logged("CheckNVMeBootParametersAndDriveMapping: Invalid checksum!"));
    damaged.Signature = 0x12345678;
    ASSERT_EQ(SDUpdateOptionRomEx2(d->DeviceHandle, &damaged, sizeof damaged, 334, 0, 0), SDERR_NONE);
    EXPECT_EQ(VTAPI_GetNVMeBootDeviceEntries(Entry(kKitePort0), &block), 88u);
    EXPECT_TRUE(Logged("CheckNVMeBootParametersAndDriveMapping: Invalid signature!"));
    // Writing a fresh block repairs it.
    block = VTAPI_NVMeBootDeviceEntries{};
    ASSERT_EQ(VTAPI_SetNVMeBootDeviceEntries(Entry(kKitePort0), &block), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_GetNVMeBootDeviceEntries(Entry(kKitePort0), &block), VTAPI_SUCCESS);
    // Locked: refused.
    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    EXPECT_EQ(VTAPI_SetNVMeBootDeviceEntries(Entry(kKitePort0), &block), VTAPI_MAINTENANCE_MODE);
}

TEST_F(Boot, PortLookupAndModeThroughTheApi) {
    Start();
    uint32_t mode = 0;
    EXPECT_EQ(VTAPI_GetBfsConfigMode(nullptr, &mode), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetBfsConfigMode(Entry(kKitePort0), nullptr), VTAPI_INVALID_ARGUMENT);
    ASSERT_EQ(VTAPI_SetBfsConfigMode(Entry(kKitePort0), 1), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_SetBfsConfigMode(Entry(kKitePort0), 2), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_GetBfsConfigMode(Entry(kKitePort0), &mode), VTAPI_SUCCESS);
    EXPECT_EQ(mode, 2u);
    VTAPI_BootDeviceInfo info{};
    EXPECT_EQ(VTAPI_GetBootDeviceInfo(nullptr, &info, 1), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetBootDeviceInfo(Entry(kKitePort0), nullptr, 1), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetBootDeviceInfo(Entry(vttest::kKiteVport), &info, 1), VTAPI_NOT_SUPPORTED_ON_VPORT);
}

}  // namespace
