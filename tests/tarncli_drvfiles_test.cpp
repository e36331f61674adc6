// tarncli -fg, -fs, -p and -m: the driver's option line, persistent
// bindings and LUN selection in the driver files of a private system root,
// in every output form, and the option file never half-written when a
// rewriting tarncli is killed.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <set>
#include <string>

#include "cli/xml_binding.h"
#include "tarncli_config_fixture.h"
#include "vtapi_cli.h"

// The emitters' lines, caught in this process.
namespace {
std::string gPrinted;
}  // namespace
extern "C" void scfxPrint(const char *text) { gPrinted += text; }

namespace {

using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort0[] = "21:00:00:24:ff:7c:50:10";
constexpr const char kDisks[] = "50:0a:09:81:00:00:a1:00";    // behind port 0, LUNs up to 300
constexpr const char kOldPort[] = "21:00:00:1b:32:53:80:30";  // its driver takes no LUN masks
constexpr const char kOptionFile[] = "/etc/modprobe.conf";
constexpr const char kDriverFile[] = "/etc/vtfc.conf";

class TarncliDrvfilesTest : public vttest::TarncliConfigTest {
protected:
    std::string Path(const char *file) { return sysroot_.path(file); }
    std::string Read(const char *file) { return vttest::ReadFile(Path(file)); }
};

TEST_F(TarncliDrvfilesTest, OptionLineShownAndChanged) {
    RunResult r = Tarn({"-fg", kPort0});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Option Line          : (no module option file)"), std::string::npos) << r.out;
    r = Tarn({"-fs", kPort0, "queue_depth=64"});
    EXPECT_EQ(r.status, 66);
    EXPECT_NE(r.err.find("No module option file found"), std::string::npos) << r.err;

    const std::string before = "# module options\n#options vtfc old=1\nalias scsi_hostadapter vtfc\n";
    vttest::WriteFile(Path(kOptionFile), before);
    ASSERT_EQ(::chmod(Path(kOptionFile).c_str(), 0640), 0);
    r = Tarn({"-fs", kPort0, "queue_depth=64", "login_retry=8"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The commented-out line stays; a new line is appended.
    EXPECT_EQ(Read(kOptionFile), before + "options vtfc queue_depth=64 login_retry=8\n");
    struct stat st {};
    ASSERT_EQ(::stat(Path(kOptionFile).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    r = Tarn({"-fg", kPort0});
    EXPECT_NE(r.out.find("Driver Module        : vtfc"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Option Line          : options vtfc queue_depth=64 login_retry=8"), std::string::npos);
    EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\n +queue_depth +64\n +login_retry +8\n)"))) << r.out;
    const json doc = Json({"-fg", kPort0});
    const json &port = doc.at("ports").at(0);
    EXPECT_EQ(port.at("driver_module"), "vtfc");
    EXPECT_EQ(port.at("option_line"), "options vtfc queue_depth=64 login_retry=8");
    ASSERT_EQ(port.at("parameters").size(), 2u);
    EXPECT_EQ(port["parameters"][1], (json{{"name", "login_retry"}, {"value", "8"}}));
    for (const char *form : {"-x", "-x2"}) {
        r = Tarn({form, "-fg", kPort0});
        EXPECT_TRUE(vttest::WellFormedXml(r.out)) << r.out;
        EXPECT_NE(r.out.find("\t<DriverParameter Name=\"queue_depth\">64</DriverParameter>\n"), std::string::npos);
    }

    // "name=" removes a parameter; bad words change nothing.
    ASSERT_EQ(Tarn({"-fs", kPort0, "queue_depth="}).status, 0);
    EXPECT_EQ(Read(kOptionFile), before + "options vtfc login_retry=8\n");
    for (const char *bad : {"queue_depth", "a b=1", "x=1#2", "=3"})
        EXPECT_EQ(Tarn({"-fs", kPort0, bad}).status, 48) << bad;
    EXPECT_EQ(Tarn({"-fs", kPort0}).status, 48);
    EXPECT_EQ(Read(kOptionFile), before + "options vtfc login_retry=8\n");
}

TEST_F(TarncliDrvfilesTest, PersistentBindingsInEveryForm) {
    RunResult r = Tarn({"-p", kPort0});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("No persistent bindings."), std::string::npos) << r.out;

    r = Tarn({"-p", kPort0, "bind", "all"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string file = Read(kDriverFile);
    EXPECT_NE(file.find("scsi-vta" + std::to_string(Instance(kPort0)) + "-adapter-port=21000024ff7c5010\\;"),
              std::string::npos)
        << file;
    EXPECT_NE(file.find("-tgt-0-di-0-port="), std::string::npos) << file;

    const json doc = Json({"-p", kPort0});
    const json &bindings = doc.at("ports").at(0).at("bindings");
    ASSERT_EQ(bindings.size(), 4u);
    std::set<int> numbers;
    for (const json &b : bindings) numbers.insert(b.at("target_id").get<int>());
    EXPECT_EQ(numbers, (std::set<int>{0, 1, 2, 3}));
    // The text rows hold the same bindings.
    const RunResult text = Tarn({"-p", kPort0});
    for (const json &b : bindings) {
        const std::string row = std::to_string(b.at("target_id").get<int>()) + R"( +0  )" +
                                b.at("wwpn").get<std::string>() + "  " + b.at("wwnn").get<std::string>() + "  " +
                                b.at("port_id").get<std::string>() + " +" + b.at("status").get<std::string>();
        EXPECT_TRUE(std::regex_search(text.out, std::regex(row))) << row << "\n" << text.out;
    }

    r = Tarn({"-x", "-p", kPort0});
    EXPECT_TRUE(vttest::WellFormedXml(r.out)) << r.out;
    EXPECT_NE(r.out.find("\t<PersistentBinding>\n\t\t<TargetID>0</TargetID>\n\t\t<WWNN>"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("\t\t<Status>"), std::string::npos) << "format 1 has no state";
    r = Tarn({"-x2", "-p", kPort0});
    EXPECT_TRUE(vttest::WellFormedXml(r.out)) << r.out;
    EXPECT_NE(r.out.find("\t\t<DeviceInstance>0</DeviceInstance>\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\t\t<Status>Online</Status>\n"), std::string::npos) << r.out;

    // Rebind one target to a chosen number; a number in use is refused.
    ASSERT_EQ(Tarn({"-p", kPort0, "bind", kDisks, "9"}).status, 0);
    EXPECT_EQ(Tarn({"-p", kPort0, "bind", kDisks, "1"}).status, 48) << "1 is another target's";
    for (const nlohmann::json listed = Json({"-p", kPort0}); const json &b : listed.at("ports").at(0).at("bindings")) {
        if (b.at("wwpn") == kDisks) {
            EXPECT_EQ(b.at("target_id"), 9);
        }
    }
    ASSERT_EQ(Tarn({"-p", kPort0, "unbind", kDisks}).status, 0);
    EXPECT_EQ(Json({"-p", kPort0}).at("ports").at(0).at("bindings").size(), 3u);
    EXPECT_EQ(Tarn({"-p", kPort0, "unbind", kDisks}).status, 48);
    ASSERT_EQ(Tarn({"-p", kPort0, "unbind", "all"}).status, 0);
    EXPECT_TRUE(Json({"-p", kPort0}).at("ports").at(0).at("bindings").empty());
    EXPECT_EQ(Tarn({"-p", "all", "bind", "all"}).status, 48) << "a change names one port";
}

TEST_F(TarncliDrvfilesTest, LunSelectionAboveLun255) {
    RunResult r = Tarn({"-m", kPort0, kDisks, "disable", "1,300"});
    ASSERT_EQ(r.status, 0) << r.err;
    // The target was bound first; LUN 300 lies in the numbered block of 256.
    const std::string file = Read(kDriverFile);
    EXPECT_NE(file.find("-lun-disabled=02\\;"), std::string::npos) << file;
    EXPECT_NE(file.find("-lun_disabled-256="), std::string::npos) << file;

    const json doc = Json({"-m", kPort0, kDisks});
    std::set<int> unselected, selected;
    for (const json &l : doc.at("ports").at(0).at("targets").at(0).at("luns"))
        (l.at("selected") == "No" ? unselected : selected).insert(l.at("lun").get<int>());
    EXPECT_EQ(unselected, (std::set<int>{1, 300}));
    EXPECT_TRUE(selected.count(0) && selected.count(2));
    r = Tarn({"-m", kPort0, kDisks});
    EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\n +300  No  )"))) << r.out;
    EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\n +0  Yes  )"))) << r.out;
    for (const char *form : {"-x", "-x2"}) {
        r = Tarn({form, "-m", kPort0, kDisks});
        EXPECT_TRUE(vttest::WellFormedXml(r.out)) << r.out;
        EXPECT_NE(r.out.find("\t\t<UnselectedLUN>\n\t\t\t<LUN>300</LUN>\n"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("\t\t<SelectedLUN>\n\t\t\t<LUN>0</LUN>\n"), std::string::npos) << r.out;
    }

    ASSERT_EQ(Tarn({"-m", kPort0, kDisks, "enable", "all"}).status, 0);
    for (const nlohmann::json listed = Json({"-m", kPort0, kDisks});
         const json &l : listed.at("ports").at(0).at("targets").at(0).at("luns"))
        EXPECT_EQ(l.at("selected"), "Yes") << l;

    // A driver without LUN masks; bad arguments.
    r = Tarn({"-m", kOldPort});
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string oldTarget = Json({"-t", kOldPort}).at("ports").at(0).at("targets").at(0).at("wwpn");
    EXPECT_EQ(Tarn({"-m", kOldPort, oldTarget, "disable", "0"}).status, 61);
    EXPECT_EQ(Tarn({"-m", kPort0, kDisks, "disable", "5-2"}).status, 48);
    EXPECT_EQ(Tarn({"-m", kPort0, kDisks, "hide", "1"}).status, 48);
    EXPECT_EQ(Tarn({"-m", kPort0, "50:00:00:00:00:00:00:99"}).status, 48);
}

// The format-1 binding emitter hands over to format 2, and the one-binding
// variant writes a whole tab-indented port block.
TEST(BindingEmitters, FormatTwoAndTheOneBindingBlock) {
    FoTargetData b{};
    b.TargetNumber = 7;
    b.DeviceInstance = 1;
    b.Control = 0x2a;
    for (uint8_t i = 0; i < 8; ++i) b.WWNN[i] = b.WWPN[i] = uint8_t(0x50 + i);
    b.WWPN[7] = 0xff;
    b.PortId[0] = 0x0a;
    const std::string body =
        "\t<PersistentBinding>\n\t\t<TargetID>7</TargetID>\n\t\t<DeviceInstance>1</DeviceInstance>\n"
        "\t\t<WWNN>50:51:52:53:54:55:56:57</WWNN>\n\t\t<WWPN>50:51:52:53:54:55:56:ff</WWPN>\n"
        "\t\t<PortID>0a:00:00</PortID>\n\t\t<Control>2a</Control>\n\t\t<Status>Offline</Status>\n"
        "\t</PersistentBinding>\n";
    bXmlOutPut2 = 1;
    gPrinted.clear();
    XML_EmitHBATargetPersistBinding(&b, TARN_BINDING_OFFLINE);
    EXPECT_EQ(gPrinted, body);
    gPrinted.clear();
    XML_EmitUnselectedLun(300, nullptr);
    EXPECT_EQ(gPrinted, "\t\t<UnselectedLUN>\n\t\t\t<LUN>300</LUN>\n\t\t</UnselectedLUN>\n");
    bXmlOutPut2 = 0;

    SDMDevice device{};
    device.Instance = 3;
    std::memcpy(device.DeviceNodeProperty.Model, "VT2912", 6);
    gPrinted.clear();
    XML_3_EmitJustOneHBATargetPersistBinding(&device, &b, TARN_BINDING_OFFLINE);
    EXPECT_TRUE(
        std::regex_match(gPrinted, std::regex("\t<HBA>\n\t<HBA Instance=\"3\" HBAModel=\"VT2912\" HBAPort=\"-?\\d+\" "
                                              "WWNN=\"00(:00){7}\" WWPN=\"00(:00){7}\" />\n"
                                              "(.|\n)*\t</HBA>\n")))
        << gPrinted;
    EXPECT_NE(gPrinted.find(body), std::string::npos) << gPrinted;
}

// A tarncli killed at any point while it rewrites the option file leaves it
// wholly old or wholly new: never missing, never cut.
TEST_F(TarncliDrvfilesTest, KilledWhileRewritingLeavesAWholeOptionFile) {
    std::string base = "# module options\n";
    for (int i = 0; i < 2000; ++i) base += "alias eth" + std::to_string(i) + " netdrv\n";
    vttest::WriteFile(Path(kOptionFile), base + "options vtfc p=start\n");
    std::set<std::string> allowed = {base + "options vtfc p=start\n"};
    int finished = 0;
    vttest::KillTarncliWhileWriting(
        200,
        [&](int run) {
            const std::string value = "v" + std::to_string(run + 1);
            allowed.insert(base + "options vtfc p=" + value + "\n");
            return std::vector<std::string>{"-fs", kPort0, "p=" + value};
        },
        [&](int run) {
            const std::string now = Read(kOptionFile);
            ASSERT_EQ(allowed.count(now), 1u) << "run " << run << ": " << now.size() << " bytes, ends "
                                              << now.substr(now.size() > 80 ? now.size() - 80 : 0);
            if (now.find("p=v" + std::to_string(run + 1) + "\n") != std::string::npos) ++finished;
        });
    // How the kills fell (for the record; the delays vary with the machine).
    std::printf("%d of %d killed runs had written their line\n", finished, vttest::LoopRuns(200));
}

}  // namespace
