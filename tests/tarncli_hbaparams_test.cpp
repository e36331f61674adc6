// tarncli's NVRAM commands on the default simulated host: -c shows the HBA
// parameters in text, XML 1, XML 2 and JSON with the same values; -n
// changes them in one process and -c shows the change in the next; refusals
// keep their statuses and messages and write nothing; save and restore give
// the image back; -e shows and sets boot drives; and a tarncli -n killed at
// any moment never leaves an NVRAM image with a wrong checksum.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "testutil.h"
#include "vtsdm.h"

namespace {

using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort[] = "21:00:00:24:ff:7c:50:10";  // instance 0 of the default host

// "Label : value" lines of a text report.
std::map<std::string, std::string> TextFields(const std::string &out) {
    std::map<std::string, std::string> fields;
    for (const std::string &line : vttest::Lines(out)) {
        const size_t colon = line.find(" : ");
        if (colon == std::string::npos) continue;
        std::string label = line.substr(0, colon);
        while (!label.empty() && label.back() == ' ') label.pop_back();
        fields.emplace(label, line.substr(colon + 3));
    }
    return fields;
}

// "\t<Name>value</Name>" elements of an XML report.
std::map<std::string, std::string> XmlElements(const std::string &out) {
    std::map<std::string, std::string> elements;
    static const std::regex element(R"(^\t<(\w+)>([^<]*)</\1>$)");
    std::smatch m;
    for (const std::string &line : vttest::Lines(out))
        if (std::regex_match(line, m, element)) elements.emplace(m[1].str(), m[2].str());
    return elements;
}

class TarncliParamsTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("VTSDM_HOST", vttest::BuildPath("data/default_host.json").c_str(), 1); }
    void TearDown() override { unsetenv("VTSDM_HOST"); }

    RunResult Tarn(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        return vttest::Run(args);
    }
    json Json(std::vector<std::string> args, int status = 0) {
        args.insert(args.begin(), "-j");
        const RunResult r = Tarn(args);
        EXPECT_EQ(r.status, status) << r.out << r.err;
        try {
            return json::parse(r.out);
        } catch (const json::exception &e) {
            ADD_FAILURE() << e.what() << "\n" << r.out;
            return json();
        }
    }
    // The parameters of the port in all four forms, checked against each
    // other; the JSON object is returned.
    json ParamsInAllForms() {
        const RunResult text = Tarn({"-c", kPort});
        EXPECT_EQ(text.status, 0) << text.err;
        const json doc = Json({"-c", kPort});
        const RunResult xml1 = Tarn({"-x", "-c", kPort}), xml2 = Tarn({"-x2", "-c", kPort});
        EXPECT_EQ(xml1.status, 0);
        EXPECT_EQ(xml2.status, 0);
        EXPECT_NE(xml1.out.find("WWPN=\"21:00:00:24:ff:7c:50:10\""), std::string::npos) << xml1.out;
        EXPECT_NE(xml2.out.find("<AppXmlVersion>2.0</AppXmlVersion>"), std::string::npos);
        EXPECT_NE(xml2.out.find("<HBA Instance=\"0\""), std::string::npos) << xml2.out;
        EXPECT_NE(xml1.out.find("    <Status> 0 </Status>\n    <Reboot> 0 </Reboot>\n</Vantor>"), std::string::npos);

        const json &params = doc.at("ports").at(0).at("parameters");
        const auto fields = TextFields(text.out);
        const auto x1 = XmlElements(xml1.out), x2 = XmlElements(xml2.out);
        EXPECT_EQ(x1, x2);
        EXPECT_EQ(x1.size(), params.size());
        for (const auto &[name, value] : params.items()) {
            EXPECT_TRUE(value.is_number()) << name;
            const auto it = x1.find(name);
            EXPECT_NE(it, x1.end()) << name;
            if (it != x1.end() && value.is_number()) {
                EXPECT_EQ(it->second, std::to_string(value.get<int64_t>())) << name;
            }
        }
        // Text: the same number of rows, and each value the number stands for.
        EXPECT_GE(fields.size(), params.size());
        const std::map<std::string, std::string> labels = {{"Login Retry Count", "LoginRetryCount"},
                                                           {"Execution Throttle", "ExecutionThrottle"},
                                                           {"Port Down Retry Count", "PortDownRetryCount"},
                                                           {"Frame Size", "FrameSize"}};
        for (const auto &[label, key] : labels) {
            EXPECT_EQ(fields.at(label), std::to_string(params.at(key).get<int>())) << label;
        }
        EXPECT_EQ(fields.at("Data Rate").substr(0, fields.at("Data Rate").find(' ')),
                  std::to_string(params.at("DataRate").get<int>()));
        EXPECT_EQ(fields.at("Enable Host HBA BIOS"), params.at("EnableBIOS").get<int>() ? "Enabled" : "Disabled");
        return params;
    }
    std::vector<uint8_t> Nvram() {
        uint32_t h = 0;
        std::vector<uint8_t> image(512);
        EXPECT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
        EXPECT_EQ(SDGetNVRam(h, 0, 1, image.data(), 512), SDERR_NONE);
        SDCloseDevice(h);
        return image;
    }
    static bool ChecksumOk(const std::vector<uint8_t> &img) {
        uint32_t sum = 0;
        for (size_t i = 0; i < 512; i += 4)
            sum +=
                uint32_t(img[i]) | uint32_t(img[i + 1]) << 8 | uint32_t(img[i + 2]) << 16 | uint32_t(img[i + 3]) << 24;
        return sum == 0;
    }

    vttest::SysrootScope sysroot_;
};

TEST_F(TarncliParamsTest, ChangeByNameAndAliasShowsInTheNextProcessInEveryForm) {
    const json before = ParamsInAllForms();
    ASSERT_NE(before.at("LoginRetryCount").get<int>(), 17);

    RunResult r = Tarn({"-n", kPort, "LR", "17", "ExecutionThrottle", "99", "enablebios", "Disable"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("HBA Parameters update complete. Changes have been saved to HBA 0."), std::string::npos)
        << r.out;
    const json after = ParamsInAllForms();
    EXPECT_EQ(after.at("LoginRetryCount"), 17);
    EXPECT_EQ(after.at("ExecutionThrottle"), 99);
    EXPECT_EQ(after.at("EnableBIOS"), 0);
    // Nothing else moved.
    json rest = after, old = before;
    for (const char *k : {"LoginRetryCount", "ExecutionThrottle", "EnableBIOS"}) {
        rest.erase(k);
        old.erase(k);
    }
    EXPECT_EQ(rest, old);
    EXPECT_TRUE(ChecksumOk(Nvram()));

    // The change in the JSON and XML forms of -n itself.
    const json doc = Json({"-n", kPort, "LoginRetryCount", "18"});
    EXPECT_EQ(doc.at("status"), 0);
    EXPECT_FALSE(doc.contains("reboot_required"));
    r = Tarn({"-x2", "-n", kPort, "LR", "19"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("    <Status> 0 </Status>\n    <Reboot> 0 </Reboot>\n</Vantor>\n"), std::string::npos)
        << r.out;
    EXPECT_EQ(Json({"-c", kPort}).at("ports").at(0).at("parameters").at("LoginRetryCount"), 19);
}

TEST_F(TarncliParamsTest, RebootNeedingChangeSaysSoAndStillSucceeds) {
    ASSERT_EQ(Json({"-c", kPort}).at("ports").at(0).at("parameters").at("DataRate"), 2);
    RunResult r = Tarn({"-n", kPort, "DR", "5"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("HBA Parameters update complete. Changes have been saved to HBA 0 and a reboot is required."),
              std::string::npos)
        << r.out;
    r = Tarn({"-x", "-n", kPort, "DataRate", "2"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("    <Status> 0 </Status>\n    <Reboot> 1 </Reboot>\n</Vantor>\n"), std::string::npos)
        << r.out;
    const json doc = Json({"-n", kPort, "DR", "5"});
    EXPECT_EQ(doc.at("reboot_required"), true);
    EXPECT_EQ(doc.at("ports").at(0).at("wwpn"), kPort);
    EXPECT_EQ(Json({"-c", kPort}).at("ports").at(0).at("parameters").at("DataRate"), 5);
    // Writing the value the port already holds needs no reboot.
    r = Tarn({"-n", kPort, "DR", "5"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Changes have been saved to HBA 0.\n"), std::string::npos) << r.out;
}

// Every refusal keeps its status and message in every form, and the NVRAM
// is not touched, even when a valid pair came first.
TEST_F(TarncliParamsTest, RefusalsKeepStatusAndMessageAndWriteNothing) {
    const std::vector<uint8_t> image = Nvram();
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"LR", "5", "Bogus", "1"}, 60, "Invalid option 'Bogus'!"},
        {{"LR", "5", "FE", "1"}, 60, "Unsupported HBA parameter 'Fast Error Reporting' (Driver/OS limitation)!"},
        {{"LinkDownError", "0"}, 60, "Unsupported HBA parameter 'Link Down Error' (Driver/OS limitation)!"},
        // The message says 0 to 5 although 6 and 7 pass the value check.
        {{"LR", "5", "DR", "8"}, 48, "Invalid input, data rate must be from 0 to 5!"},
        // A rate the port's speeds do not include passes the table but not the port.
        {{"DR", "4"}, 48, "Invalid HBA parameter setting for HBA 0 (DataRate=4)!"},
        {{"FrameSize", "4096"}, 48, "Invalid input, FC frame size value must be 512, 1024,2048 or 2112!"},
        {{"HardLoopID", "Enable"}, 48, "Invalid HBA parameter name/value!"},
        // Passes the name check, then every value is refused without a message of its own.
        {{"EO", "1"}, 48, "Invalid HBA parameter name/value!"},
        {{"LR"}, 60, "Error: Parameter 'LR' has no value!"},
        {{"save"}, 60, "Error: Wrong number of arguments for 'save'"},
    };
    for (const Case &c : cases) {
        std::vector<std::string> args = {"-n", kPort};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const RunResult text = Tarn(args);
        EXPECT_EQ(text.status, c.status) << c.args[0] << "\n" << text.out << text.err;
        EXPECT_NE((text.out + text.err).find(c.message), std::string::npos) << c.message << "\n"
                                                                            << text.out << text.err;
        const json doc = Json(args, c.status);
        EXPECT_EQ(doc.value("status", -1), c.status);
        EXPECT_NE(doc.value("error", std::string()).find(c.message), std::string::npos) << doc.dump();
        args.insert(args.begin(), "-x");
        const RunResult xml = Tarn(args);
        EXPECT_EQ(xml.status, c.status);
        EXPECT_NE(xml.out.find("    <Status> " + std::to_string(c.status) + " </Status>"), std::string::npos)
            << xml.out;
        EXPECT_NE(xml.out.find("    <ErrorMsg> "), std::string::npos);
    }
    EXPECT_EQ(Nvram(), image);

    // A virtual port shares its physical port's NVRAM: named, it is refused
    // (286, an exit status of 1); "all" passes over it.
    const json vport = Json({"-n", "21:04:00:24:ff:7c:50:10", "LR", "5"}, 1);
    EXPECT_EQ(vport.value("status", -1), 286);
    EXPECT_EQ(vport.value("error", std::string()), "Ignored virtual HBA (21:04:00:24:ff:7c:50:10)!");
    const json all = Json({"-c"}).at("ports");
    EXPECT_EQ(all.size(), 6u);
    for (const json &p : all) EXPECT_NE(p.at("wwpn"), "21:04:00:24:ff:7c:50:10");
}

// A locked port, a port in maintenance mode and a failing NVRAM write refuse
// the change with their statuses and leave the image as it was.
TEST_F(TarncliParamsTest, LockedOrFailingPortKeepsItsNvram) {
    const std::vector<uint8_t> image = Nvram();
    const auto sim = [](std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        const RunResult r = vttest::Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
    };
    sim({"flags", "0", "lockdown=on"});
    RunResult r = Tarn({"-n", kPort, "LR", "5"});
    EXPECT_EQ(r.status, 66);
    EXPECT_NE(r.err.find("Unable to apply new settings to HBA HBA 0 (VT2912). Change is not permitted!"),
              std::string::npos)
        << r.err;
    const json doc = Json({"-n", kPort, "restore-defaults"}, 66);
    EXPECT_EQ(doc.value("status", -1), 66);
    sim({"flags", "0", "lockdown=off", "maintenance=on"});
    r = Tarn({"-n", kPort, "LR", "5"});
    EXPECT_EQ(r.status, 66);
    EXPECT_NE(r.err.find("Command not supported when adapter port in maintenance mode (HBA 0 - VT2912)!"),
              std::string::npos)
        << r.err;
    sim({"flags", "0", "maintenance=off"});
    sim({"nvram", "0", "write-faults", "1"});
    r = Tarn({"-n", kPort, "LR", "5"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Failed to update HBA parameters of selected HBA 0!"), std::string::npos) << r.err;
    EXPECT_EQ(Nvram(), image);
    // The fault was used up: the same change now goes through.
    EXPECT_EQ(Tarn({"-n", kPort, "LR", "5"}).status, 0);
    EXPECT_NE(Nvram(), image);
}

// On the host whose boards load NVRAM templates: loading the board's
// template and restoring the defaults bring the template's values back; an
// OEM name that matches none is the last table entry and is refused for this
// chip; the progress line shows in text and stays out of XML and JSON.
TEST_F(TarncliParamsTest, TemplateAndDefaultsOnATemplateBoard) {
    setenv("VTSDM_HOST", vttest::BuildPath("data/hosts/nvram_templates.json").c_str(), 1);
    const std::string port = "21:00:00:1b:32:16:00:00";
    const auto value = [&](const char *key) {
        return Json({"-c", port}).at("ports").at(0).at("parameters").at(key).get<int>();
    };
    const int defaultRetries = value("LoginRetryCount");
    ASSERT_EQ(Tarn({"-n", port, "LR", std::to_string(defaultRetries + 1)}).status, 0);

    RunResult r = Tarn({"-n", port, "template"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("Info: Updating HBA Parameters on HBA 0 - "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("HBA Parameters update complete. Changes have been saved to HBA 0."), std::string::npos);
    EXPECT_EQ(value("LoginRetryCount"), defaultRetries);

    ASSERT_EQ(Tarn({"-n", port, "LR", std::to_string(defaultRetries + 2)}).status, 0);
    r = Tarn({"-x", "-n", port, "restore-defaults"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("Info:"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.rfind("<?xml", 0), 0u) << r.out;
    const json doc = Json({"-n", port, "LR", "3"});
    EXPECT_EQ(doc.at("ports").at(0).at("message"), "HBA Parameters update complete. Changes have been saved to HBA 0.");
    // The missing blank in "toHBA" is the message's own.
    EXPECT_EQ(Json({"-n", port, "restore-defaults"}).at("ports").at(0).at("message"),
              "HBA Parameters Restore Defaults Complete. Changes have been saved toHBA 0.");
    EXPECT_EQ(value("LoginRetryCount"), defaultRetries);

    r = Tarn({"-n", port, "template", "NoSuchOem"});
    EXPECT_EQ(r.status, 61);
    EXPECT_NE(r.err.find("Operation is not supported with current HBA 0 (VT1600)!"), std::string::npos) << r.err;

    // Files the user names: the board's own template, another board's, a
    // missing one, and a global NVRAM file of the wrong size.
    const std::vector<uint8_t> image = Nvram();
    r = Tarn({"-n", port, "template-file", vttest::BuildPath("data/templates_ISP5380/VNTR5380.dat")});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    r = Tarn({"-n", port, "template-file", vttest::BuildPath("data/templates_ISP5380/DARROW5380.dat")});
    EXPECT_EQ(r.status, 5);
    EXPECT_NE(r.err.find("Update aborted (Invalid file). Please select a different file for this HBA 0 (VT1600)!"),
              std::string::npos)
        << r.err;
    r = Tarn({"-n", port, "template-file", "/nonexistent.dat"});
    EXPECT_EQ(r.status, 84);
    EXPECT_NE(r.err.find("Unable to open NVRAM template file (/nonexistent.dat)!"), std::string::npos) << r.err;
    const std::string global = sysroot_.path("/tmp/global.bin");
    vttest::WriteFile(global, std::string(300, '\0'));
    r = Tarn({"-n", port, "global", global});
    EXPECT_EQ(r.status, 13);
    EXPECT_NE(r.err.find("Global NVRAM file must be 512 bytes (" + global + " has 300)!"), std::string::npos) << r.err;
    EXPECT_EQ(Nvram(), image);
    ASSERT_EQ(Tarn({"-n", port, "LR", "9"}).status, 0);
    EXPECT_NE(Nvram(), image);  // the image watched is this port's
}

// The alias "PD" names two rows of the table and sets both; the parser's
// own "PS" sets only PortDisable.
TEST_F(TarncliParamsTest, SharedAliasPDSetsBothRows) {
    const json before = Json({"-c", kPort}).at("ports").at(0).at("parameters");
    ASSERT_TRUE(before.contains("PortDisable"));
    ASSERT_EQ(before.at("PortDisable"), 0);
    RunResult r = Tarn({"-n", kPort, "PD", "1"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    json after = Json({"-c", kPort}).at("ports").at(0).at("parameters");
    EXPECT_EQ(after.at("PortDownRetryCount"), 1);
    EXPECT_EQ(after.at("PortDisable"), 1);

    r = Tarn({"-n", kPort, "PS", "0", "PortDownRetryCount", "30"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    after = Json({"-c", kPort}).at("ports").at(0).at("parameters");
    EXPECT_EQ(after.at("PortDownRetryCount"), 30);
    EXPECT_EQ(after.at("PortDisable"), 0);
}

TEST_F(TarncliParamsTest, SaveChangeRestoreGivesTheImageBack) {
    const std::string file = sysroot_.path("/tmp/port0.nvram");
    const std::vector<uint8_t> original = Nvram();
    RunResult r = Tarn({"-n", kPort, "save", file});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("HBA Parameters saved successfully (HBA 0 - "), std::string::npos) << r.out;
    const std::string saved = vttest::ReadFile(file);
    ASSERT_EQ(saved.size(), 512u);
    EXPECT_EQ(std::vector<uint8_t>(saved.begin(), saved.end()), original);

    ASSERT_EQ(Tarn({"-n", kPort, "LR", "3", "ET", "7"}).status, 0);
    EXPECT_NE(Nvram(), original);
    r = Tarn({"-n", kPort, "restore", file});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(Nvram(), original);

    // One file holds one port's image.
    r = Tarn({"-n", "all", "save", file});
    EXPECT_EQ(r.status, 48);
    EXPECT_NE(r.err.find("Error: Option -n save works on one port: name the HBA!"), std::string::npos) << r.err;
    // A file of the wrong size is refused and writes nothing.
    vttest::WriteFile(sysroot_.path("/tmp/short.nvram"), std::string(300, '\0'));
    r = Tarn({"-n", kPort, "restore", sysroot_.path("/tmp/short.nvram")});
    EXPECT_EQ(r.status, 13);
    EXPECT_NE(r.err.find("NVRAM file must be 256 or 512 bytes"), std::string::npos) << r.err;
    EXPECT_EQ(Nvram(), original);
}

TEST_F(TarncliParamsTest, BootDevicesShowAndSet) {
    const json targets = Json({"-t", kPort}).at("ports").at(0).at("targets");
    ASSERT_FALSE(targets.empty());
    const std::string target = targets.at(0).at("wwpn");

    RunResult r = Tarn({"-e", kPort, target, "3", "1"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    const json doc = Json({"-e", kPort});
    const json &drives = doc.at("ports").at(0).at("boot_drives");
    ASSERT_GE(drives.size(), 4u);
    EXPECT_EQ(drives.at(1).at("wwpn"), target);
    EXPECT_EQ(drives.at(1).at("lun"), 3);
    const RunResult xml = Tarn({"-x2", "-e", kPort});
    EXPECT_NE(xml.out.find("\t<BootDevice Drive=\"1\" WWPN=\"" + target + "\" LUN=\"3\" />"), std::string::npos)
        << xml.out;
    const RunResult text = Tarn({"-e", kPort});
    EXPECT_TRUE(std::regex_search(text.out, std::regex("\n +1  Alternate 1 +" + target + " +3\n"))) << text.out;

    // FC-NVMe boot drives: listed (none yet) where the adapter keeps the
    // block, left out on older chips.
    EXPECT_EQ(doc.at("ports").at(0).at("nvme_boot_drives"), json::array());
    EXPECT_NE(text.out.find("(no FC-NVMe boot drives)"), std::string::npos);
    EXPECT_FALSE(Json({"-e", "3"}).at("ports").at(0).contains("nvme_boot_drives"));

    r = Tarn({"-e", kPort, "22:00:00:00:00:00:00:99", "0"});
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(Json({"-e", kPort}).at("ports").at(0).at("boot_drives"), drives);
}

// On a host answered by the Linux backend (an exported tree), NVRAM, boot
// and flash commands say that the adapter's driver does not support them,
// with status 61, in text and JSON.
TEST_F(TarncliParamsTest, LinuxBackendRefusesNvramAndFlashCommandsClearly) {
    const RunResult exported = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "export-sysfs", sysroot_.root()});
    ASSERT_EQ(exported.status, 0) << exported.err;
    vttest::WriteFile(sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"),
                      "node.hba.utility.flash.enable=1\n");
    vttest::WriteFile(sysroot_.path("/tmp/image.bin"), std::string(4096, 'x'));
    const std::string tarncli = vttest::BuildPath("bin/tarncli");
    const std::vector<std::string> env = {"VTSDM_BACKEND=linux"};
    const std::vector<std::vector<std::string>> commands = {{"-c", "0"},
                                                            {"-n", "0", "DR", "2"},
                                                            {"-n", "0", "save", sysroot_.path("/tmp/p.nvram")},
                                                            {"-e", "0"},
                                                            {"-b", "0", sysroot_.path("/tmp/image.bin"), "-y"}};
    for (std::vector<std::string> args : commands) {
        args.insert(args.begin(), tarncli);
        RunResult r = vttest::Run(args, env);
        EXPECT_EQ(r.status, 61) << args[1] << "\n" << r.out << r.err;
        EXPECT_NE((r.out + r.err).find("Not supported on this adapter's driver."), std::string::npos) << args[1] << "\n"
                                                                                                      << r.out << r.err;
        args.insert(args.begin() + 1, "-j");
        r = vttest::Run(args, env);
        EXPECT_EQ(r.status, 61) << r.out;
        EXPECT_NE(r.out.find("Not supported on this adapter's driver."), std::string::npos) << r.out;
    }
}

// FC-NVMe boot drives: added in a new process and shown in every form;
// refused for an FCP target, a bad target or namespace and on "all"
// (nothing written); removed again.
TEST_F(TarncliParamsTest, NVMeBootDriveAddRefuseAndRemove) {
    const std::string nvmeTarget = "20:01:00:25:b5:00:0e:00";
    const std::string fcpTarget = "50:0a:09:81:00:00:a1:00";
    RunResult r = Tarn({"-e", kPort, "nvme", nvmeTarget, "1"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    r = Tarn({"-e", kPort, "nvme", nvmeTarget, "2"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    const json drives = Json({"-e", kPort}).at("ports").at(0).at("nvme_boot_drives");
    ASSERT_EQ(drives.size(), 2u) << drives.dump();
    EXPECT_EQ(drives.at(1).at("drive"), 1);
    EXPECT_EQ(drives.at(1).at("target_wwpn"), nvmeTarget);
    EXPECT_EQ(drives.at(1).at("namespace_id"), 2);
    const RunResult text = Tarn({"-e", kPort});
    EXPECT_TRUE(std::regex_search(text.out, std::regex("\n +1  " + nvmeTarget + " +2"))) << text.out;
    for (const char *form : {"-x", "-x2"}) {
        const RunResult xml = Tarn({form, "-e", kPort});
        EXPECT_NE(xml.out.find("\t<NVMeBootDevice Drive=\"1\" WWPN=\"" + nvmeTarget + "\" NamespaceID=\"2\""),
                  std::string::npos)
            << form << "\n"
            << xml.out;
    }

    struct Refusal {
        std::vector<std::string> args;
        int status;
        const char *message;
    };
    const Refusal refusals[] = {
        {{"-e", kPort, "nvme", fcpTarget, "1"}, 48, "Configuring NVMe BFS with FCP target is not supported."},
        {{"-e", kPort, "nvme", nvmeTarget, "0"}, 48, "Invalid namespace ID (0)!"},
        {{"-e", kPort, "nvme", "not-a-wwpn", "1"}, 48, "Invalid target (not-a-wwpn) for HBA 0!"},
        {{"-e", kPort, "nvme", "5", "clear"}, 48, "No FC-NVMe boot drive 5 on HBA 0!"},
        {{"-e", kPort, "nvme", nvmeTarget}, 60, "nvme needs a target and a namespace ID, or a drive and clear!"},
        {{"-e", "all", "nvme", nvmeTarget, "1"}, 48, "sets the boot drive of one port: name the HBA!"},
    };
    for (const Refusal &c : refusals) {
        r = Tarn(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[3] << " " << r.out << r.err;
        EXPECT_NE((r.out + r.err).find(c.message), std::string::npos) << r.out << r.err;
    }
    EXPECT_EQ(Json({"-e", kPort}).at("ports").at(0).at("nvme_boot_drives"), drives);

    r = Tarn({"-e", kPort, "nvme", "0", "clear"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    const json left = Json({"-e", kPort}).at("ports").at(0).at("nvme_boot_drives");
    ASSERT_EQ(left.size(), 1u) << left.dump();
    EXPECT_EQ(left.at(0).at("drive"), 0);
    EXPECT_EQ(left.at(0).at("namespace_id"), 2);
}

// tarncli -n killed with SIGKILL at random moments, 200 times: the port's
// image always has a valid checksum, and many of the runs changed it.
TEST_F(TarncliParamsTest, KilledModifyNeverLeavesABadChecksum) {
    // The kills fall anywhere in a run, and after it: the delays span one and
    // a half times what a whole run takes on this machine and build.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Tarn({"-s", "-n", kPort, "LR", "1"}).status, 0);
    const auto runUs = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> delayUs(0, long(runUs.count()) * 3 / 2);
    int changed = 0, killed = 0;
    std::vector<uint8_t> last = Nvram();
    ASSERT_TRUE(ChecksumOk(last));
    const int runs = vttest::LoopRuns(200);
    for (int run = 0; run < runs; ++run) {
        vttest::ChildGuard child = vttest::Spawn({vttest::BuildPath("bin/tarncli"), "-s", "-n", kPort, "LR",
                                                  std::to_string(run % 250), "ET", std::to_string(run + 1)});
        std::this_thread::sleep_for(std::chrono::microseconds(delayUs(random)));
        const int status = child.Kill();
        killed += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        const std::vector<uint8_t> image = Nvram();
        ASSERT_TRUE(ChecksumOk(image)) << "run " << run;
        changed += image != last;
        last = image;
    }
    // Both kinds of run happened: killed on the way, and finished.  (How
    // many of each depends on how the first run's length compares with the
    // others on a loaded machine.)
    EXPECT_GT(changed, runs / 40);
    EXPECT_GT(killed, runs / 40);
}

}  // namespace
