// tarncli -b: an image file written into the default host's 64 Gb card in a
// new process, with the plan shown in every output form, the confirmation
// asked for and honoured, the VPD kept byte for byte, reboot-required shown
// by -i afterwards; and the refusals that leave the flash as it was.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "imagebuild.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using nlohmann::json;
using vttest::RunResult;
namespace img = vtsdm::image;

constexpr const char *kKiteSerial = "VTK24110A7";
constexpr img::CardEntry kKiteCard{0x1077, 0x7C50, 0x1077, 0x0C60};
constexpr img::CardEntry kWrenCard{0x1077, 0x6A10, 0x1077, 0x0A16};

// The Kite sample image with firmware 9.20.05 and boot code BIOS 3.80,
// FCode 4.30, EFI 7.50 (the default host's card holds 9.12.01 and 3.67,
// 4.21, 7.34).
std::vector<uint8_t> NewerKiteImage() {
    img::MultiImageRecipe recipe = img::SampleImage(img::ImageFamily::kKite, kKiteCard);
    img::Component &fw = recipe.components.at(img::ComponentIndex(recipe, 0x01));
    fw.version = {9, 20, 5};
    fw.payload = img::BuildRiscFirmware(fw.version, 32, fw.payload.size());
    img::Component &boot = recipe.components.at(img::ComponentIndex(recipe, 0x07));
    img::BootImages b;
    b.bios = img::BootImage{{3, 80, 0}, 0};
    b.fcode = img::BootImage{{4, 30, 0}, 0};
    b.efi = img::BootImage{{7, 50, 0}, 0};
    boot.payload = img::BuildExpansionRomChain(b, img::kVendorId, kKiteCard.deviceId);
    return img::BuildMultiImage(recipe);
}

std::string Field(const std::string &text, const std::string &label) {
    for (const std::string &line : vttest::Lines(text)) {
        const size_t colon = line.find(" : ");
        if (colon == std::string::npos) continue;
        std::string l = line.substr(0, colon);
        while (!l.empty() && l.back() == ' ') l.pop_back();
        if (l == label) return line.substr(colon + 3);
    }
    return "<no " + label + ">";
}

class TarncliFlash : public ::testing::Test {
protected:
    void SetUp() override {
        vttest::WriteFile(sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"),
                          "node.hba.utility.flash.enable=1\n");
        const std::vector<uint8_t> image = NewerKiteImage();
        image_ = sysroot_.path("/tmp/kite.bin");
        vttest::WriteFile(image_, std::string(image.begin(), image.end()));
        // The ports of the default host, from -g.
        const RunResult g = Tarn({"-j", "-g"});
        ASSERT_EQ(g.status, 0) << g.err;
        const json ports = json::parse(g.out).at("ports");
        for (const json &p : ports) {
            const int instance = p.at("instance").get<int>();
            if (p.contains("virtual_port_id")) vport_ = instance;
            else if (p.at("serial") == kKiteSerial && kite_ < 0) kite_ = instance;
            else if (p.at("serial") != kKiteSerial && other_ < 0) other_ = instance;
        }
        ASSERT_GE(kite_, 0);
        ASSERT_GE(other_, 0);
        ASSERT_GE(vport_, 0);
    }

    RunResult Tarn(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        return vttest::Run(args);
    }

    // tarncli with `input` on its standard input.
    RunResult TarnWithInput(const std::vector<std::string> &args, const std::string &input) {
        const std::string in = sysroot_.path("/tmp/stdin"), out = sysroot_.path("/tmp/stdout"),
                          err = sysroot_.path("/tmp/stderr");
        vttest::WriteFile(in, input);
        std::vector<std::string> argv = {vttest::BuildPath("bin/tarncli")};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char *> cargv;
        for (std::string &a : argv) cargv.push_back(a.data());
        cargv.push_back(nullptr);
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            const int fds[3] = {open(in.c_str(), O_RDONLY), open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                                open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)};
            for (int i = 0; i < 3; ++i)
                if (fds[i] < 0 || dup2(fds[i], i) < 0) _exit(126);
            execv(cargv[0], cargv.data());
            _exit(127);
        }
        vttest::ChildGuard child(pid);
        const int st = child.Wait();
        RunResult r;
        r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        r.out = vttest::ReadFile(out);
        r.err = vttest::ReadFile(err);
        return r;
    }

    // The card's raw VPD and its port's reboot-required flag, read by a new
    // process through libvtsdm (the simulator's state as the last writer
    // left it).
    struct CardState {
        std::string vpd;
        bool rebootRequired = false;
    };
    CardState ReadCard(int instance) {
        const std::string file = sysroot_.path("/tmp/card.bin");
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            uint32_t handle = 0;
            std::vector<uint8_t> vpd(8192);
            uint32_t size = uint32_t(vpd.size());
            SDPortProperty port{};
            if (SDOpenDevice(uint32_t(instance), &handle) != SDERR_NONE ||
                SDGetVpd(handle, vpd.data(), &size) != SDERR_NONE ||
                SDGetHbaDevicePortProperty(handle, &port) != SDERR_NONE)
                _exit(1);
            const char flag = (port.StateFlags & SD_PORTFLAG_REBOOT_REQUIRED) ? 'R' : '-';
            vttest::WriteFile(file, flag + std::string(vpd.begin(), vpd.begin() + size));
            _exit(0);
        }
        vttest::ChildGuard child(pid);
        const int st = child.Wait();
        EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
        const std::string bytes = vttest::ReadFile(file);
        if (bytes.empty()) return {};
        return {bytes.substr(1), bytes[0] == 'R'};
    }

    // Every region of the card's flash, read by a new process, one after the
    // other with its code.
    std::string WholeFlash(int instance) {
        const std::string file = sysroot_.path("/tmp/flash.bin");
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            uint32_t handle = 0;
            std::vector<uint8_t> room(8 + 64 * sizeof(SDOptionRomRegion));
            auto *layout = reinterpret_cast<SDOptionRomLayout *>(room.data());
            layout->Count = 64;
            if (SDOpenDevice(uint32_t(instance), &handle) != SDERR_NONE ||
                SDGetOptionRomLayout(handle, 0, layout, uint32_t(room.size())) != SDERR_NONE)
                _exit(1);
            std::vector<SDOptionRomRegion> regions(layout->Count);
            std::memcpy(regions.data(), room.data() + 8, regions.size() * sizeof(SDOptionRomRegion));
            std::string all;
            for (const SDOptionRomRegion &r : regions) {
                std::vector<char> bytes(r.Size);
                if (SDGetOptionRomEx(handle, bytes.data(), uint32_t(bytes.size()), r.Region, 0) != SDERR_NONE) _exit(2);
                all += std::to_string(r.Region) + ":" + std::string(bytes.begin(), bytes.end());
            }
            vttest::WriteFile(file, all);
            _exit(0);
        }
        vttest::ChildGuard child(pid);
        const int st = child.Wait();
        EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
        return vttest::ReadFile(file);
    }

    json Info(int instance) {
        const RunResult r = Tarn({"-j", "-i", std::to_string(instance)});
        EXPECT_EQ(r.status, 0) << r.err;
        return json::parse(r.out).at("ports").at(0).at("general");
    }

    vttest::SysrootScope sysroot_;
    std::string image_;
    int kite_ = -1, other_ = -1, vport_ = -1;
};

TEST_F(TarncliFlash, UpdatesThe64GbCardKeepingItsVpd) {
    const CardState card = ReadCard(kite_);
    ASSERT_GT(card.vpd.size(), 16u);
    EXPECT_FALSE(card.rebootRequired);
    json before = Info(kite_);
    EXPECT_EQ(before.at("reboot_required"), "No");
    EXPECT_EQ(before.at("flash_firmware_version"), "9.12.01");
    EXPECT_EQ(before.at("bios_version"), "3.67");

    const RunResult r = Tarn({"-b", std::to_string(kite_), image_, "-y"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(Field(r.out, "Image File"), image_);
    EXPECT_EQ(Field(r.out, "Serial Number"), kKiteSerial);
    EXPECT_EQ(Field(r.out, "Image Version"), "03.04.05");
    EXPECT_NE(r.out.find(std::string("serial ") + kKiteSerial + ": flash updated; reboot required."), std::string::npos)
        << r.out;
    EXPECT_EQ(r.err, "") << "no question with -y";

    // A new process sees the new versions and the reboot-required state.
    const json after = Info(kite_);
    EXPECT_EQ(after.at("flash_firmware_version"), "9.20.05");
    EXPECT_EQ(after.at("bios_version"), "3.80");
    EXPECT_EQ(after.at("fcode_version"), "4.30");
    EXPECT_EQ(after.at("efi_version"), "7.50");
    EXPECT_EQ(after.at("multiboot_version"), "3.04.05");
    EXPECT_EQ(after.at("reboot_required"), "Yes");
    const RunResult text = Tarn({"-i", std::to_string(kite_)});
    EXPECT_EQ(Field(text.out, "Reboot Required"), "Yes");
    EXPECT_EQ(Field(text.out, "Flash Firmware"), "9.20.05");
    EXPECT_EQ(Field(text.out, "BIOS / FCode / EFI"), "3.80 / 4.30 / 7.50");
    // The card's other port too (one flash), but not another card.
    EXPECT_EQ(Info(other_).at("reboot_required"), "No");
    const CardState updated = ReadCard(kite_);
    EXPECT_TRUE(updated.rebootRequired);
    EXPECT_EQ(updated.vpd, card.vpd);

    // The card no longer shows reboot-required once it restarted.
    const RunResult restart =
        vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "flash", std::to_string(kite_), "restart"});
    ASSERT_EQ(restart.status, 0) << restart.err;
    EXPECT_EQ(Info(kite_).at("reboot_required"), "No");
}

// The plan in text and JSON: a row per component with the version in the
// flash and the one the file brings, the same values in both.
TEST_F(TarncliFlash, PlanTextMatchesJson) {
    const std::string hba = std::to_string(kite_);
    const RunResult text = TarnWithInput({"-b", hba, image_}, "n\n");
    const RunResult doc = TarnWithInput({"-j", "-b", hba, image_}, "n\n");
    ASSERT_EQ(text.status, 66) << text.err;
    ASSERT_EQ(doc.status, 66) << doc.err;
    const json j = json::parse(doc.out);
    EXPECT_EQ(j.at("status"), 66);
    EXPECT_EQ(j.at("error"), "Flash update cancelled; nothing was written.");
    EXPECT_FALSE(j.contains("reboot_required"));
    EXPECT_EQ(j.at("image_file"), image_);
    ASSERT_EQ(j.at("hbas").size(), 1u);
    const json &card = j.at("hbas")[0];
    EXPECT_EQ(card.at("serial"), kKiteSerial);
    EXPECT_EQ(card.at("image_version"), "03.04.05");
    EXPECT_EQ(Field(text.out, "Image Version"), "03.04.05");

    const std::vector<std::string> lines = vttest::Lines(text.out);
    const int heading = vttest::FindLine(lines, "Region  Component");
    ASSERT_GE(heading, 0) << text.out;
    const json &components = card.at("components");
    ASSERT_GT(components.size(), 5u);
    bool firmware = false;
    for (size_t i = 0; i < components.size(); ++i) {
        const json &c = components[i];
        const std::string &row = lines.at(size_t(heading) + 2 + i);
        char region[16];
        std::snprintf(region, sizeof region, "0x%02X", c.at("region").get<unsigned>());
        SCOPED_TRACE(row);
        EXPECT_EQ(row.rfind(region, 0), 0u);
        EXPECT_NE(row.find(c.at("name").get<std::string>()), std::string::npos);
        for (const char *key : {"current_version", "new_version"}) {
            const std::string shown = c.at(key).is_null() ? "-" : c.at(key).get<std::string>();
            EXPECT_NE(row.find(" " + shown + " "), std::string::npos) << key;
        }
        EXPECT_EQ(row.substr(row.rfind(' ') + 1), std::to_string(c.at("size_bytes").get<uint64_t>()));
        if (c.at("region") == 1) {
            firmware = true;
            EXPECT_EQ(c.at("name"), "Firmware");
            EXPECT_EQ(c.at("current_version"), "9.12.01");
            EXPECT_EQ(c.at("new_version"), "9.20.05");
        }
    }
    EXPECT_TRUE(firmware);
    // The layout table goes last.
    EXPECT_EQ(components.back().at("region"), 0x8E);
    // The question is on standard error; the answer was no.
    EXPECT_NE(text.err.find("Update the flash of HBA " + hba + " (VT"), std::string::npos) << text.err;
    EXPECT_NE(text.err.find("Flash update cancelled; nothing was written.\n"), std::string::npos);
    EXPECT_EQ(Info(kite_).at("flash_firmware_version"), "9.12.01");

    // "yes" in any case writes; the document ends with the result.
    const RunResult yes = TarnWithInput({"-j", "-b", hba, image_}, "YES\n");
    ASSERT_EQ(yes.status, 0) << yes.err;
    const json done = json::parse(yes.out);
    EXPECT_EQ(done.at("status"), 0);
    EXPECT_EQ(done.at("reboot_required"), true);
    ASSERT_EQ(done.at("results").size(), 1u);
    EXPECT_EQ(done.at("results")[0].at("instance"), kite_);
    EXPECT_EQ(done.at("results")[0].at("serial"), kKiteSerial);
    EXPECT_EQ(Info(kite_).at("flash_firmware_version"), "9.20.05");
}

// XML: the frame, the port block of each format, the plan's elements, and
// a status message with the reboot flag once written.
TEST_F(TarncliFlash, XmlFormatsCarryThePlanAndTheReboot) {
    const std::string hba = std::to_string(kite_);
    const RunResult declined = Tarn({"-x", "-b", hba, image_});  // no input: cancelled
    EXPECT_EQ(declined.status, 66);
    const std::vector<std::string> x1 = vttest::Lines(declined.out);
    ASSERT_GE(x1.size(), 8u) << declined.out;
    EXPECT_EQ(x1[0], "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>");
    EXPECT_EQ(x1[1], "<Vantor>");
    EXPECT_EQ(x1[4], "     <HBA> ");
    EXPECT_EQ(x1[5].rfind("        <HBA Port=\"" + hba + "\" WWNN=\"", 0), 0u) << x1[5];
    EXPECT_GE(vttest::FindLine(x1, "\t<FlashUpdate>"), 0);
    EXPECT_GE(vttest::FindLine(x1, "\t\t<ImageVersion>03.04.05</ImageVersion>"), 0);
    const int fw = vttest::FindLine(x1, "\t\t\t<Region>0x01</Region>");
    ASSERT_GE(fw, 0) << declined.out;
    EXPECT_EQ(x1[size_t(fw) + 1], "\t\t\t<Name>Firmware</Name>");
    EXPECT_EQ(x1[size_t(fw) + 2], "\t\t\t<CurrentVersion>9.12.01</CurrentVersion>");
    EXPECT_EQ(x1[size_t(fw) + 3], "\t\t\t<NewVersion>9.20.05</NewVersion>");
    const std::vector<std::string> tail1(x1.end() - 5, x1.end());
    EXPECT_EQ(tail1,
              (std::vector<std::string>{"     </HBA> ", "    <Status> 66 </Status>",
                                        "    <ErrorMsg> Flash update cancelled; nothing was written. </ErrorMsg>",
                                        "    <Reboot> 0 </Reboot>", "</Vantor>"}));

    const RunResult written = Tarn({"-x2", "-b", hba, image_, "-y"});
    ASSERT_EQ(written.status, 0) << written.out << written.err;
    const std::vector<std::string> x2 = vttest::Lines(written.out);
    EXPECT_EQ(x2[4], "    <AppXmlVersion>2.0</AppXmlVersion>");
    EXPECT_EQ(x2[6].rfind("        <HBA Instance=\"" + hba + "\" HBAModel=\"VT", 0), 0u) << x2[6];
    EXPECT_GE(vttest::FindLine(x2, "\t\t\t<CurrentVersion>9.12.01</CurrentVersion>"), 0);
    const std::vector<std::string> tail2(x2.end() - 3, x2.end());
    EXPECT_EQ(tail2, (std::vector<std::string>{"    <Status> 0 </Status>", "    <Reboot> 1 </Reboot>", "</Vantor>"}));
    EXPECT_EQ(Info(kite_).at("reboot_required"), "Yes");
}

// A single boot-code file replaces the boot code only.
TEST_F(TarncliFlash, BootCodeFile) {
    const std::string hba = std::to_string(kite_);
    const std::vector<uint8_t> boot =
        img::BuildRomChain({{0, {3, 71, 0}, 0, img::kVendorId, kKiteCard.deviceId, "2910", {}},
                            {3, {7, 41, 0}, 0, img::kVendorId, kKiteCard.deviceId, "", {}}});
    const std::string bootFile = sysroot_.path("/tmp/boot.bin");
    vttest::WriteFile(bootFile, std::string(boot.begin(), boot.end()));
    const RunResult r = Tarn({"-j", "-b", hba, bootFile, "-y"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const json card = json::parse(r.out).at("hbas").at(0);
    EXPECT_EQ(card.at("image_type"), "Boot code");
    EXPECT_FALSE(card.contains("image_version"));
    ASSERT_EQ(card.at("components").size(), 1u);
    const json &c = card.at("components")[0];
    EXPECT_EQ(c.at("region"), 7);
    EXPECT_EQ(c.at("current_version"), "3.67");
    EXPECT_EQ(c.at("new_version"), "3.71");
    const json info = Info(kite_);
    EXPECT_EQ(info.at("bios_version"), "3.71");
    EXPECT_EQ(info.at("efi_version"), "7.41");
    EXPECT_TRUE(info.at("fcode_version").is_null());
    EXPECT_EQ(info.at("flash_firmware_version"), "9.12.01");
    EXPECT_EQ(info.at("reboot_required"), "Yes");
}

// Refusals write nothing and keep their statuses and messages.
TEST_F(TarncliFlash, RefusalsLeaveTheFlashAsItWas) {
    const std::string hba = std::to_string(kite_);
    const auto refused = [&](std::vector<std::string> args, int status, const std::string &message) {
        SCOPED_TRACE(args.back());
        const RunResult text = Tarn(args);
        EXPECT_EQ(text.status, status) << text.err;
        EXPECT_NE(text.err.find(message), std::string::npos) << text.err;
        EXPECT_EQ(text.out, "");
        args.insert(args.begin(), "-j");
        const RunResult doc = Tarn(args);
        const json j = json::parse(doc.out);
        EXPECT_EQ(j.at("status"), status);
        EXPECT_NE(j.at("error").get<std::string>().find(message), std::string::npos);
    };
    refused({"-b", hba}, 48, "Error: Option -b needs an image file name!");
    refused({"-b", hba, image_, image_}, 60, "Error: Unexpected argument '" + image_ + "' for option -b!");
    refused({"-b", hba, sysroot_.path("/tmp/none.bin"), "-y"}, 3,
            "Unable to open file '" + sysroot_.path("/tmp/none.bin") + "' for reading!");
    refused({"-b", std::to_string(vport_), image_, "-y"}, 61, "is a virtual port; select a physical port of its card.");

    // A file for another card.
    const std::vector<uint8_t> wren = img::BuildMultiImage(img::SampleImage(img::ImageFamily::kWren, kWrenCard));
    const std::string wrenFile = sysroot_.path("/tmp/wren.bin");
    vttest::WriteFile(wrenFile, std::string(wren.begin(), wren.end()));
    refused({"-b", hba, wrenFile, "-y"}, 113, "Invalid file " + wrenFile + ". Unable to validate signature!");
    // "all" plans every card first: the 64 Gb card's file does not fit the
    // others, so not even the 64 Gb card is written.
    {
        const RunResult r = Tarn({"-b", "all", image_, "-y"});
        EXPECT_NE(r.status, 0);
        EXPECT_EQ(r.out, "");
    }
    // The switch in the reference file.
    vttest::WriteFile(sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"), "");
    {
        const RunResult r = Tarn({"-b", hba, image_, "-y"});
        EXPECT_EQ(r.status, 66);
        EXPECT_EQ(r.out, "This feature is not available or disabled!\n");
    }
    const json info = Info(kite_);
    EXPECT_EQ(info.at("flash_firmware_version"), "9.12.01");
    EXPECT_EQ(info.at("reboot_required"), "No");
}

// A write the flash refuses: the card keeps its image and no reboot is due.
TEST_F(TarncliFlash, FailedWriteKeepsTheImage) {
    const RunResult fault =
        vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "flash", std::to_string(kite_), "fault", "write", "1"});
    ASSERT_EQ(fault.status, 0) << fault.err;
    const RunResult r = Tarn({"-b", std::to_string(kite_), image_, "-y"});
    EXPECT_EQ(r.status, 6);
    EXPECT_NE(r.err.find("failed: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(". Its flash is unchanged."), std::string::npos) << r.err;
    const json info = Info(kite_);
    EXPECT_EQ(info.at("flash_firmware_version"), "9.12.01");
    EXPECT_EQ(info.at("reboot_required"), "No");
}

// -i shows the reboot-required state of a physical port in both XML forms
// too, and not on a virtual port.
TEST_F(TarncliFlash, InfoXmlShowsRebootRequired) {
    const std::string hba = std::to_string(kite_);
    const auto element = [&](const char *format, const std::string &instance) {
        const RunResult r = Tarn({format, "-i", instance});
        EXPECT_EQ(r.status, 0) << r.err;
        const std::vector<std::string> lines = vttest::Lines(r.out);
        const int at = vttest::FindLine(lines, "<RebootRequired>");
        if (at < 0) return std::string("<none>");
        // Right after the port state, at the port's indentation.
        EXPECT_NE(lines.at(size_t(at) - 1).find("<PortState>"), std::string::npos) << r.out;
        return lines[size_t(at)];
    };
    EXPECT_EQ(element("-x", hba), "\t<RebootRequired>No</RebootRequired>");
    EXPECT_EQ(element("-x2", hba), "\t<RebootRequired>No</RebootRequired>");
    EXPECT_EQ(element("-x", std::to_string(vport_)), "<none>");
    ASSERT_EQ(Tarn({"-b", hba, image_, "-y"}).status, 0);
    EXPECT_EQ(element("-x", hba), "\t<RebootRequired>Yes</RebootRequired>");
    EXPECT_EQ(element("-x2", hba), "\t<RebootRequired>Yes</RebootRequired>");
    EXPECT_EQ(element("-x2", std::to_string(other_)), "\t<RebootRequired>No</RebootRequired>");
}

// Two 64 Gb cards updated by one command, the second card's write failing:
// the first is written and reported, the command fails with the second's
// message, and the second card's flash is wholly the old one.
TEST_F(TarncliFlash, OneCardOfSeveralFails) {
    const std::string host = sysroot_.path("/tmp/two_kites.json");
    json card = json::parse(vttest::ReadFile(vttest::SourcePath("data/hosts/flash_families.json"))).at("cards").at(0);
    card["copies"] = 2;
    vttest::WriteFile(host, json({{"cards", json::array({card})}}).dump());
    setenv("VTSDM_HOST", host.c_str(), 1);
    struct Unset {
        ~Unset() { unsetenv("VTSDM_HOST"); }
    } unset;

    const RunResult g = Tarn({"-j", "-g"});
    ASSERT_EQ(g.status, 0) << g.err;
    std::map<std::string, int> firstPort;  // by serial
    const json ports = json::parse(g.out).at("ports");
    for (const json &p : ports) firstPort.emplace(p.at("serial").get<std::string>(), p.at("instance").get<int>());
    ASSERT_EQ(firstPort.size(), 2u) << g.out;
    const auto [firstSerial, first] = *firstPort.begin();
    const auto [secondSerial, second] = *std::next(firstPort.begin());
    const std::string before = WholeFlash(second);
    ASSERT_GT(before.size(), 1000000u);

    ASSERT_EQ(vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "flash", std::to_string(second), "fault", "write", "1"})
                  .status,
              0);
    const RunResult r = Tarn({"-j", "-b", "all", image_, "-y"});
    EXPECT_EQ(r.status, 6) << r.out << r.err;
    const json doc = json::parse(r.out);
    EXPECT_EQ(doc.at("status"), 6);
    EXPECT_NE(doc.at("error").get<std::string>().find("failed: "), std::string::npos);
    EXPECT_NE(doc.at("error").get<std::string>().find(". Its flash is unchanged."), std::string::npos);
    EXPECT_EQ(doc.at("hbas").size(), 2u);
    ASSERT_EQ(doc.at("results").size(), 1u);
    EXPECT_EQ(doc.at("results")[0].at("serial"), firstSerial);
    EXPECT_EQ(doc.at("reboot_required"), true);

    const json written = Info(first);
    EXPECT_EQ(written.at("flash_firmware_version"), "9.20.05");
    EXPECT_EQ(written.at("reboot_required"), "Yes");
    const json kept = Info(second);
    EXPECT_EQ(kept.at("flash_firmware_version"), "9.12.01");
    EXPECT_EQ(kept.at("bios_version"), "3.67");
    EXPECT_EQ(kept.at("multiboot_version"), "1.12.03");
    EXPECT_EQ(kept.at("reboot_required"), "No");
    EXPECT_FALSE(ReadCard(second).rebootRequired);
    EXPECT_TRUE(WholeFlash(second) == before) << "the failed card's flash changed";
}

}  // namespace
