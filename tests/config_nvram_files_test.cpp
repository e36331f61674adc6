// Whole NVRAM images: the template reader, the shipped templates, loading a
// template by chip and OEM, restoring the defaults, saving an image and
// writing it back, and the global NVRAM of every port.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "config/hbaparam_table.h"
#include "config/nvram_oem.h"
#include "config/nvram_template.h"
#include "config_fixture.h"
#include "idtable.h"
#include "oss/oss.h"

namespace {

using vttest::ConfigTest;
using vttest::kKitePort0;
using vttest::kKitePort1;
namespace cfg = vt::config;

// Ports of data/hosts/nvram_templates.json.
const char k1600[] = "21:00:00:1b:32:16:00:00";  // 0x5380, maker board 0x0201, instance 0
const char k1611[] = "21:00:00:1b:32:17:00:00";  // 0x5380, OEM board 0x1F3C/0x0611, instance 1
const char k1810[] = "21:00:00:0e:1e:18:00:01";  // 0x6201, chip type 15, instance 2
const char k1240[] = "21:00:00:e0:8b:19:00:00";  // 0x5142, 256-byte NVRAM, instance 3
const char k1605[] = "21:00:00:1b:32:20:00:00";  // 0x5380, subsystem 0x02A5 of no template, instance 4

std::vector<uint8_t> Bytes(const std::string &s) { return {s.begin(), s.end()}; }
std::string Text(const std::vector<uint8_t> &b) { return {b.begin(), b.end()}; }

cfg::NvramTemplate Parse(const std::string &text, size_t size, uint32_t expect = cfg::kTemplateOk) {
    cfg::NvramTemplate t;
    std::string why;
    EXPECT_EQ(cfg::ParseNvramTemplate(text, size, t, why), expect) << why;
    return t;
}

// ------------------------------------------------------------ the reader

TEST(TemplateReader, CommentsPackingAndStrings) {
    const std::string text =
        "; a comment [0-1] = 1\n"
        "short [1]\n"                  // ten characters or fewer: a comment
        "\t  Flag A [0-1] = 1\n"       // leading blanks and tabs dropped
        "Mode B  [0 - 7] = 5 tail\n"   // three bits, right after the first
        "Nibble C [0-15] = 9\n"        // four bits: crosses into the next byte
        "Wide D [0-1023] = 1023\n"     // ten bits, packed on without a skip
        "Text E [ \"3\" = \"xyz\"]\n"  // a string starts on the next whole byte
        "Word F [0-65535] = 4660\r\n";
    const cfg::NvramTemplate t = Parse(text, 12);
    // bits: A=1 (0), B=5 (1-3), C=9 (4-7), D=1023 (8-17), pad to 24, "xyz", F.
    const std::vector<uint8_t> want = {0x9B, 0xFF, 0x03, 'x', 'y', 'z', 0x34, 0x12, 0, 0, 0, 0};
    EXPECT_EQ(t.image, want);
    EXPECT_EQ(t.bitsUsed, 64u);
    EXPECT_TRUE(t.special.empty());

    // At most 80 bytes of a string are used.
    const std::string longText(100, 'q');
    const cfg::NvramTemplate s = Parse("Long text [\"100\" = \"" + longText + "\"]\n", 90);
    EXPECT_EQ(s.bitsUsed, 80u * 8);
    EXPECT_EQ(s.image[79], 'q');
    EXPECT_EQ(s.image[80], 0);
}

TEST(TemplateReader, SpecialLinesAreMarked) {
    const cfg::NvramTemplate t = Parse(
        "PCI subsystem vendor ID [0-65535] = 4215\n"
        "PCI subsystem device ID [0-65535] = 513\n"
        "Adapter serial number [\"4\" = \"AB12\"]\n"
        "Some Checksum [0-255] = 7\n"  // the phrases are matched as written
        "NVRAM checksum [0-255] = 9\n",
        16);
    ASSERT_EQ(t.special.size(), 4u);
    EXPECT_EQ(t.special[0].flags, cfg::kTemplateSubsystemVendorId);
    EXPECT_EQ(t.special[0].value, 4215u);
    EXPECT_EQ(t.special[1].flags, cfg::kTemplateSubsystemDeviceId);
    EXPECT_EQ(t.special[1].bitOffset, 16u);
    EXPECT_EQ(t.special[2].flags, cfg::kTemplateSerialNumber);
    EXPECT_TRUE(t.special[2].isString);
    EXPECT_EQ(t.special[2].text, "AB12");
    EXPECT_EQ(t.special[3].flags, cfg::kTemplateChecksum);
    EXPECT_EQ(t.special[3].line, 5u);
}

TEST(TemplateReader, LinesOfUnknownTypeAndOverruns) {
    const std::pair<std::string, uint32_t> bad[] = {
        {"no bracket in this line\n", cfg::kTemplateUnknownLine},
        {"Field name [0-1] = 2\n", cfg::kTemplateUnknownLine},  // outside its range
        {"Field name [0-1] 1\n", cfg::kTemplateUnknownLine},    // no '='
        {"Field name [x-1] = 1\n", cfg::kTemplateUnknownLine},
        {"Field name [\"4\" = \"abc\"]\n", cfg::kTemplateUnknownLine},  // not its length
        {"Field name [\"3\" = \"abc]\n", cfg::kTemplateUnknownLine},
        {"Field name [0-4294967296] = 1\n", cfg::kTemplateUnknownLine},
        {"Field name [0-65535] = 1\nField two [0-255] = 1\n", cfg::kTemplateCorrupted},  // past 2 bytes
    };
    for (const auto &[text, result] : bad) {
        cfg::NvramTemplate t;
        std::string why;
        EXPECT_EQ(cfg::ParseNvramTemplate(text, 2, t, why), result) << text;
        EXPECT_EQ(why.rfind("line ", 0), 0u) << why;
    }
    // A line longer than the 511 characters a line is read in continues as
    // another line: here a comment of its own.
    std::string longLine = "Field [0-255] = 7 " + std::string(600, ' ') + "x\n";
    const cfg::NvramTemplate t = Parse(longLine + "Next [0-255] = 8\n", 4);
    EXPECT_EQ(t.image[0], 7);
    EXPECT_EQ(t.image[1], 8);
    Parse(std::string(520, 'a') + " [0-1] = 1\n", 4, cfg::kTemplateUnknownLine);
}

// ------------------------------------------------------------ shipped templates

struct Shipped {
    std::string file;
    uint16_t ssvid, ssdid;
};

std::vector<Shipped> ShippedTemplates() {
    std::vector<Shipped> out;
    std::istringstream list(vttest::ReadFile(vttest::BuildPath("data/nvram_templates.list")));
    std::string file, ssvid, ssdid, rest;
    while (list >> file >> ssvid >> ssdid && std::getline(list, rest))
        out.push_back({file, uint16_t(std::stoul(ssvid, nullptr, 16)), uint16_t(std::stoul(ssdid, nullptr, 16))});
    return out;
}

TEST(ShippedTemplates, OnePerChipAndOemOfTheBoardsThatLoadThem) {
    const std::vector<Shipped> shipped = ShippedTemplates();
    ASSERT_FALSE(shipped.empty());
    std::set<std::string> files;
    for (const Shipped &s : shipped) {
        SCOPED_TRACE(s.file);
        files.insert(s.file);
        const uint16_t did = uint16_t(std::stoul(s.file.substr(s.file.find("_ISP") + 4, 4), nullptr, 16));
        const uint32_t chip = vt::ids::IspTypeForDeviceId(did);
        ASSERT_TRUE(cfg::ChipLoadsTemplates(chip));
        // Read as the library reads any template: its board's IDs, a valid image.
        const cfg::NvramTemplate t =
            Parse(vttest::ReadFile(vttest::BuildPath("data/" + s.file)), cfg::TemplateImageSize(chip));
        uint32_t flags = 0;
        for (const cfg::TemplateField &f : t.special) {
            flags |= f.flags;
            if (f.flags == cfg::kTemplateSubsystemVendorId) {
                EXPECT_EQ(f.value, s.ssvid);
            }
            if (f.flags == cfg::kTemplateSubsystemDeviceId) {
                EXPECT_EQ(f.value, s.ssdid);
            }
        }
        EXPECT_EQ(flags, 0xF0u);
        EXPECT_EQ(CoreIsValidNvram(t.image.data(), uint32_t(t.image.size())), 1u);
        EXPECT_EQ(t.bitsUsed, t.image.size() * 8);
    }
    // Every board of the ID table whose chip loads templates has the file of
    // its chip and OEM (the first such board owns it).
    for (const vt::ids::BoardRow &b : vt::ids::BoardRows()) {
        const uint32_t oem = cfg::OemForSubsystemVendor(b.ssvid);
        for (const vt::ids::ChipRow &c : vt::ids::ChipRows()) {
            const std::string label = c.label;
            if (c.ispType == vt::ids::kNoIsp || label.rfind(std::string(b.isp) + " ", 0) != 0) continue;
            if (oem >= cfg::kOemCount || !cfg::OemAllowedForChip(c.ispType, oem)) continue;
            EXPECT_TRUE(files.count("templates_" + cfg::TemplateFilePart(c.deviceId, oem))) << b.desc;
        }
    }
    EXPECT_TRUE(files.count("templates_ISP5380/VNTR5380.dat"));
    EXPECT_TRUE(files.count("templates_ISP6201/VNTR6201.dat"));
}

TEST(OemTable, NamesAndPlaces) {
    EXPECT_EQ(FindOEMType("VNTR"), 3u);
    EXPECT_EQ(FindOEMType("vntr"), 3u);
    EXPECT_EQ(FindOEMType("bryce"), 1u);
    EXPECT_EQ(FindOEMType("SABLE"), 0u);
    // A name that matches none of the first six is the last OEM, deliberately.
    EXPECT_EQ(FindOEMType("NOBODY"), 6u);
    EXPECT_EQ(FindOEMType(""), 6u);
    EXPECT_EQ(FindOEMType(nullptr), 6u);
    EXPECT_EQ(cfg::TemplatePath("/opt/x/", 0x5380, 3), "/opt/x/data/templates_ISP5380/VNTR5380.dat");
    EXPECT_EQ(cfg::TemplatePath("/opt/x", 0x6A20, 9, ".DAT"), "/opt/x/data/templates_ISP6a20/VNTR6a20.DAT");
    // OEM codes by chip type.
    EXPECT_TRUE(cfg::OemAllowedForChip(2, 4));
    EXPECT_FALSE(cfg::OemAllowedForChip(3, 1));
    EXPECT_TRUE(cfg::OemAllowedForChip(4, 5));
    EXPECT_TRUE(cfg::OemAllowedForChip(5, 3));
    EXPECT_FALSE(cfg::OemAllowedForChip(5, 2));
    EXPECT_TRUE(cfg::OemAllowedForChip(15, 1));
    EXPECT_FALSE(cfg::OemAllowedForChip(12, 5));
    EXPECT_FALSE(cfg::OemAllowedForChip(27, 3));
    EXPECT_EQ(cfg::TemplateImageSize(5), 256u);
    EXPECT_EQ(cfg::TemplateImageSize(6), 512u);
}

// ------------------------------------------------------------ loading templates

class NvramFiles : public ConfigTest {};

// Identifiers that every load keeps from the adapter: the names and the
// boot settings.
std::set<uint32_t> Preserved() {
    std::set<uint32_t> ids = {17, 58, 59, 60, 63, 92, 93, 94, 95, 96, 130, 131};
    for (uint32_t i = 24; i <= 31; ++i) ids.insert(i);
    for (uint32_t i = 35; i <= 42; ++i) ids.insert(i);
    for (uint32_t i = 72; i <= 80; ++i) ids.insert(i);
    for (uint32_t i = 98; i <= 124; ++i) ids.insert(i);
    return ids;
}

TEST_F(NvramFiles, ShippedTemplateGivesItsValuesAndKeepsTheBootSettings) {
    Start("", "nvram_templates.json");
    ProtocolEntry *port = Entry(k1600);
    SDMDevice *d = Device(k1600);
    VTAPI_HBAParams p = Params(k1600);
    p.FrameSize = 1024;
    p.LoginRetryCount = 33;
    p.DataRate = 4;
    p.ExecutionThrottle = 100;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);
    VTAPI_BootDeviceInfo boot{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &boot, 1), VTAPI_SUCCESS);
    boot.EnableBIOS = 1;
    boot.EnableSelectableBoot = 1;
    const std::vector<uint8_t> target = vttest::Wwn("50:06:0e:80:00:16:00:01");
    memcpy(boot.Drives[0].WWPN, target.data(), 8);
    boot.Drives[0].LUN = 1;
    ASSERT_EQ(VTAPI_SetBootDeviceInfo(port, &boot), VTAPI_SUCCESS);
    const std::vector<uint8_t> before = Nvram(d);

    ASSERT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(port, 3), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Error(), "HBA Parameters update complete. Changes have been saved to HBA 0 and a reboot is required.");
    const std::vector<uint8_t> after = Nvram(d);
    EXPECT_EQ(CoreIsValidNvram(after.data(), 512), 1u);
    const cfg::NvramTemplate t = Parse(vttest::ReadFile(vttest::BuildPath("data/templates_ISP5380/VNTR5380.dat")), 512);
    const std::set<uint32_t> kept = Preserved();
    for (const cfg::RecordRow &r : cfg::kRecordRows)
        EXPECT_EQ(Var(d, after, r.variable), Var(d, kept.count(r.variable) ? before : t.image, r.variable))
            << r.logName;
    for (uint32_t id : kept) EXPECT_EQ(Var(d, after, id), Var(d, before, id)) << id;
    EXPECT_EQ(Params(k1600).FrameSize, 2048u);
    // The serial number is the adapter's own.
    EXPECT_NE(Text(after).find("VTS1912345      "), std::string::npos);
    VTAPI_BootDeviceInfo back{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 1), VTAPI_SUCCESS);
    EXPECT_EQ(memcmp(back.Drives[0].WWPN, target.data(), 8), 0);
    EXPECT_EQ(back.EnableBIOS, 1u);
    EXPECT_TRUE(
        Logged("GetNVRamTemplatesDir: Template file=" + vttest::BuildPath("data/templates_ISP5380/VNTR5380.dat")));

    // The OEM board loads its own OEM's template; the maker's is another
    // board's and is refused, the NVRAM untouched.
    ProtocolEntry *oemPort = Entry(k1611);
    const std::vector<uint8_t> oemBefore = Nvram(Device(k1611));
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(oemPort, 3), 5u);
    EXPECT_EQ(Error(), "Update aborted (Invalid file). Please select a different file for this HBA 1 (VT1611)!");
    EXPECT_TRUE(
        Logged("updateRawNvramTemplateBufferFor4GbHBA: HBA subsystem vendor id does not match the nvram file!"));
    EXPECT_EQ(Nvram(Device(k1611)), oemBefore);
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(oemPort, FindOEMType("Darrow")), VTAPI_SUCCESS) << Error();

    // A subsystem ID that matches no template.
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1605), 3), 5u);
    EXPECT_TRUE(
        Logged("updateRawNvramTemplateBufferFor4GbHBA: HBA subsystem device id does not match the nvram file!"));
    EXPECT_EQ(VTAPI_RestoreDefaultNVRAM(Entry(k1605)), 5u);
    EXPECT_EQ(Error(), "HBA 4 (VT1605) subsystem vendor/device id mismatched!");
    // The converged chip of type 15 has its template too.
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1810), 3), VTAPI_SUCCESS) << Error();
}

TEST_F(NvramFiles, OemCodesByChipAndMissingTemplates) {
    Start("", "nvram_templates.json");
    // Type 12 takes OEM codes 1-4 only; code 0 needs the preference.
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1600), 5), 61u);
    EXPECT_EQ(Error(), "Operation is not supported with current HBA 0 (VT1600)!");
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1600), 0), 61u);
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1600), 77), 61u);
    // Type 4 takes 1-5, but no template ships for this chip.
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1240), 6), 61u);
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1240), 5), 84u);
    EXPECT_EQ(Error(), "Unable to open NVRAM template file (" +
                           vttest::BuildPath("data/templates_ISP5142/ELSTON5142.DAT") + ")!");
    EXPECT_TRUE(Logged("UpdateHBAParametersFromTemplateFile: Template file missing (" +
                       vttest::BuildPath("data/templates_ISP5142/ELSTON5142.DAT") + ")"));
    Stop();
    Start();
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(kKitePort0), 3), 61u);
    EXPECT_EQ(VTAPI_RestoreDefaultNVRAM(Entry(kKitePort0)), 61u);
    EXPECT_EQ(Error(), "Operation is not supported with current HBA 0 (VT2912)!");
    EXPECT_EQ(VTAPI_RestoreDefaultNVRAM(Entry(vttest::kKiteVport)), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(Error(), "Option not supported with NPIV port (WWPN 21:04:00:24:ff:7c:50:10)!");
}

// A template under an installation directory of the test's own: the upper
// case extension, OEM code 0 with its preference, the 2 Gb image with its
// switches and a numeric serial number.
TEST_F(NvramFiles, TwoGbTemplateFromAnotherInstallation) {
    const std::string install = root_.path("/install");
    const std::string dir = install + "/data/templates_ISP5142";
    std::filesystem::create_directories(dir);
    Start("", "nvram_templates.json", (install + "/").c_str());
    EXPECT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(Entry(k1240), 0), 61u);  // OEM 0 needs the preference
    vttest::WriteFile(TarnGetConfigFileName(), "node.config.oem69.template.enable=1\n");
    ProtocolEntry *port = Entry(k1240);
    SDMDevice *d = Device(k1240);
    const std::vector<uint8_t> before = Nvram(d);
    ASSERT_EQ(before.size(), 256u);
    // One line a byte, as the port holds its image now, except bytes 2-4: a
    // 24-bit serial-number field.
    std::string text = "; 2 Gb test template\n";
    for (size_t i = 0; i < 256; ++i) {
        if (i == 2) text += "Adapter serial number [0-16777215] = 0\n";
        if (i >= 2 && i <= 4) continue;
        text += "Byte " + std::to_string(i) + " [0-255] = " + std::to_string(before[i]) + "\n";
    }
    vttest::WriteFile(dir + "/SABLE5142.DAT", text);

    InitializeParamTable();
    AddUserNVRAMConfig("HL", 1);
    AddUserNVRAMConfig("DS", 1);
    ASSERT_EQ(VTAPI_LoadHBAParametersFromTemplateFile(port, 0), VTAPI_SUCCESS) << Error();
    EXPECT_TRUE(Logged("GetNVRamTemplatesDir: Template file=" + dir + "/SABLE5142.dat"));
    const std::vector<uint8_t> after = Nvram(d);
    EXPECT_EQ(CoreIsValidNvram(after.data(), 256), 1u);
    // 700088, the number at the end of the serial VTB0700088, little-endian.
    EXPECT_EQ(after[2] | after[3] << 8 | after[4] << 16, 700088);
    EXPECT_EQ(Var(d, after, 3), 1u);  // hard loop ID enabled
    EXPECT_EQ(Var(d, after, 4), 1u);  // descending loop ID search
    InitializeParamTable();

    // A serial number whose number does not fit, or that does not end in
    // five digits, is refused.
    std::vector<uint8_t> image(256);
    SDMDevice other = *d;
    for (const char *serial : {"VTB9999999", "VTB07X0088"}) {
        snprintf(other.DeviceNodeProperty.SerialNumber, sizeof other.DeviceNodeProperty.SerialNumber, "%s", serial);
        EXPECT_EQ(updateRawNvramTemplateBufferFor2GbHBA(&other, (dir + "/SABLE5142.DAT").c_str(), image.data(), 256),
                  5u)
            << serial;
    }
    // A file the user names: a line of unknown type, an empty file.
    vttest::WriteFile(root_.path("/bad.dat"), "; user template\nthis line has no data at all\n");
    EXPECT_EQ(UpdateHBAParametersFromTemplateFile(d, root_.path("/bad.dat").c_str(), 3), 15u);
    EXPECT_EQ(Error(), "Failed to program HBA parameters (HBA 3)!");
    vttest::WriteFile(root_.path("/empty.dat"), "");
    EXPECT_EQ(UpdateHBAParametersFromTemplateFile(d, root_.path("/empty.dat").c_str(), 3), 13u);
    EXPECT_EQ(Error(), "Selected file (" + root_.path("/empty.dat") + ") appears to be corrupted!");
    EXPECT_EQ(UpdateHBAParametersFromTemplateFile(d, root_.path("/none.dat").c_str(), 3), 84u);
    EXPECT_EQ(Nvram(d), after);
}

TEST_F(NvramFiles, RestoreDefaultsKeepsBootSettingsResetDoesNot) {
    Start("", "nvram_templates.json");
    ProtocolEntry *port = Entry(k1600);
    SDMDevice *d = Device(k1600);
    VTAPI_BootDeviceInfo boot{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &boot, 1), VTAPI_SUCCESS);
    boot.EnableBIOS = 1;
    boot.Drives[1].LUN = 5;
    boot.Drives[1].WWPN[0] = 0x50;
    ASSERT_EQ(VTAPI_SetBootDeviceInfo(port, &boot), VTAPI_SUCCESS);
    VTAPI_HBAParams p = Params(k1600);
    p.LoginRetryCount = 44;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);

    ASSERT_EQ(VTAPI_RestoreDefaultNVRAM(port), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Error(), "HBA Parameters Restore Defaults Complete. Changes have been saved toHBA 0.");
    EXPECT_EQ(Params(k1600).LoginRetryCount, 8u);
    VTAPI_BootDeviceInfo back{};
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 1), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[1].LUN, 5);
    EXPECT_EQ(back.EnableBIOS, 1u);

    p = Params(k1600);
    p.DataRate = 3;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_ResetToDefaultSettings(port), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Error(),
              "HBA Parameters Restore Defaults Complete. Changes have been saved toHBA 0 and a reboot is required.");
    ASSERT_EQ(VTAPI_GetBootDeviceInfo(port, &back, 1), VTAPI_SUCCESS);
    EXPECT_EQ(back.Drives[1].LUN, 0);
    EXPECT_EQ(back.EnableBIOS, 0u);
    const std::vector<uint8_t> img = Nvram(d);
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(Var(d, img, 24 + i), port->WWPN[i]);  // the name stays

    // Locked: refused, nothing written.
    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    EXPECT_EQ(VTAPI_RestoreDefaultNVRAM(port), VTAPI_MAINTENANCE_MODE);
    EXPECT_EQ(Nvram(d), img);
}

// ------------------------------------------------------------ saved images

TEST_F(NvramFiles, SaveChangeRestoreGivesBackTheSameBytes) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    SDMDevice *d = Device(kKitePort0);
    const std::string file = root_.path("/saved.bin");
    const std::vector<uint8_t> saved = Nvram(d);
    ASSERT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(port, file.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(Error(), "HBA Parameters saved successfully (HBA 0 - VT2912).");
    EXPECT_EQ(Bytes(vttest::ReadFile(file)), saved);

    VTAPI_HBAParams p = Params(kKitePort0);
    p.FrameSize = 512;
    p.ExecutionThrottle = 3;
    p.NVMeEnable = 1;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS);
    ASSERT_NE(Nvram(d), saved);
    ASSERT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, file.c_str()), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Nvram(d), saved);

    // Another port's image keeps this port's name.
    const std::string other = root_.path("/port1.bin");
    ASSERT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(Entry(kKitePort1), other.c_str()), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, other.c_str()), VTAPI_SUCCESS);
    const std::vector<uint8_t> img = Nvram(d);
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(Var(d, img, 24 + i), port->WWPN[i]);

    // Files that are not an image for this port.
    vttest::WriteFile(root_.path("/300.bin"), std::string(300, '\0'));
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, root_.path("/300.bin").c_str()), 13u);
    EXPECT_EQ(Error(), "NVRAM file must be 256 or 512 bytes");
    std::vector<uint8_t> small(256, 0);
    ComputeNVRAMDataChecksum(small.data(), 256);
    vttest::WriteFile(root_.path("/256.bin"), Text(small));
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, root_.path("/256.bin").c_str()), 5u);
    std::vector<uint8_t> damaged = saved;
    damaged[40] ^= 1;
    vttest::WriteFile(root_.path("/damaged.bin"), Text(damaged));
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, root_.path("/damaged.bin").c_str()), 13u);
    EXPECT_EQ(Error(), "Selected file (" + root_.path("/damaged.bin") + ") appears to be corrupted!");
    ASSERT_EQ(Sim({"nvram", "0", "write-faults", "1"}), 0);
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, file.c_str()), SDERR_IO_FAILED);
    EXPECT_EQ(Error(), "Failed to program HBA parameters (HBA 0)!");
    EXPECT_EQ(Nvram(d), img);
}

TEST_F(NvramFiles, SavingReplacesTheFileWhole) {
    Start();
    ProtocolEntry *port = Entry(kKitePort0);
    // An existing file keeps its mode.
    const std::string file = root_.path("/keep.bin");
    vttest::WriteFile(file, "old contents");
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    ASSERT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(port, file.c_str()), VTAPI_SUCCESS);
    struct stat st {};
    ASSERT_EQ(stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(st.st_size, 512);
    // A link at the name is replaced, not followed.
    const std::string victim = root_.path("/victim.txt"), link = root_.path("/link.bin");
    vttest::WriteFile(victim, "untouched");
    ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
    ASSERT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(port, link.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::ReadFile(victim), "untouched");
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    // A directory that does not exist.
    const std::string nowhere = root_.path("/no/such/dir/n.bin");
    EXPECT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(port, nowhere.c_str()), 1u);
    EXPECT_EQ(Error(), "Unable to save current HBA Parameters of this HBA 0 to " + nowhere + "!");
}

TEST_F(NvramFiles, SmallImageOfATwoGbPort) {
    Start("", "nvram_templates.json");
    ProtocolEntry *port = Entry(k1240);
    SDMDevice *d = Device(k1240);
    const std::string file = root_.path("/2g.bin");
    ASSERT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(port, file.c_str()), VTAPI_SUCCESS);
    const std::vector<uint8_t> saved = Bytes(vttest::ReadFile(file));
    ASSERT_EQ(saved.size(), 256u);
    VTAPI_HBAParams p = Params(k1240);
    p.EnableExtendedLogging = 1;  // only chips before 4 Gb have it
    p.FrameSize = 1024;
    ASSERT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Params(k1240).EnableExtendedLogging, 1u);
    ASSERT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(port, file.c_str()), VTAPI_SUCCESS) << Error();
    EXPECT_EQ(Nvram(d), saved);
    p.FrameSize = 2112;  // not before 4 Gb
    EXPECT_EQ(VTAPI_UpdateHBAParameters(port, &p), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(Error(), "Invalid HBA parameter setting for HBA 3 (FrameSize=2112)!");
}

// ------------------------------------------------------------ global NVRAM

TEST_F(NvramFiles, GlobalNvramGoesToThePortItNames) {
    Start();
    SDMDevice *d0 = Device(kKitePort0), *d1 = Device(kKitePort1);
    std::vector<uint8_t> g0(512), g1(512);
    ASSERT_EQ(SDGetOptionRomEx(d0->DeviceHandle, g0.data(), 512, 0x8D, 0), SDERR_NONE);
    ASSERT_EQ(SDGetOptionRomEx(d1->DeviceHandle, g1.data(), 512, 0x8D, 0), SDERR_NONE);
    std::vector<uint8_t> next = g0;
    next[64] = 0x42;
    ComputeNVRAMDataChecksum(next.data(), 512);
    const std::string file = root_.path("/global.bin");
    vttest::WriteFile(file, Text(next));

    ASSERT_EQ(VTAPI_DoGlobalNVRAMUpdateAll(file.c_str()), VTAPI_SUCCESS) << Error();
    const std::string messages = Error();
    EXPECT_NE(messages.find("Global NVRAM update complete. Changes have been saved to HBA 0 and a reboot is required."),
              std::string::npos);
    EXPECT_NE(messages.find("Skipping Global NVRAM Update on HBA 1 - VT2912.\nIncorrect Global NVRAM file for this "
                            "HBA (WWPN 21:00:00:24:ff:7c:50:11)!"),
              std::string::npos);
    std::vector<uint8_t> back(512);
    ASSERT_EQ(SDGetOptionRomEx(d0->DeviceHandle, back.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(back, next);
    ASSERT_EQ(SDGetOptionRomEx(d1->DeviceHandle, back.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(back, g1);
    EXPECT_TRUE(Logged("Updating Global Nvram on HBA 0 -   VT2912. Please wait..."));

    // Any other size is refused and says so; a file for no port changes nothing.
    vttest::WriteFile(root_.path("/500.bin"), std::string(500, '\0'));
    EXPECT_EQ(VTAPI_DoGlobalNVRAMUpdateAll(root_.path("/500.bin").c_str()), 13u);
    EXPECT_EQ(Error(), "Global NVRAM file must be 512 bytes (" + root_.path("/500.bin") + " has 500)!");
    std::vector<uint8_t> stray = next;
    stray[8] = 0x99;
    ComputeNVRAMDataChecksum(stray.data(), 512);
    vttest::WriteFile(root_.path("/stray.bin"), Text(stray));
    EXPECT_EQ(VTAPI_DoGlobalNVRAMUpdateAll(root_.path("/stray.bin").c_str()), 5u);
    // A locked port keeps its region.
    ASSERT_EQ(Sim({"flags", "0", "lockdown=on"}), 0);
    vttest::WriteFile(file, Text(g0));
    EXPECT_EQ(VTAPI_DoGlobalNVRAMUpdateAll(file.c_str()), VTAPI_MAINTENANCE_MODE);
    ASSERT_EQ(SDGetOptionRomEx(d0->DeviceHandle, back.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(back, next);
}

}  // namespace
