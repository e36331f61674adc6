// tarncli as a separate process: the display commands in text and both XML
// formats, the output switches, the command file, the error statuses and
// the interrupt handling.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libxml/parser.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "testutil.h"

namespace {

using vttest::RunResult;

using vttest::Lines;

bool WellFormed(const std::string &doc) {
    xmlDocPtr parsed = xmlReadMemory(doc.data(), static_cast<int>(doc.size()), "report.xml", nullptr,
                                     XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (parsed == nullptr) return false;
    xmlFreeDoc(parsed);
    return true;
}

size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

const std::vector<std::string> kFrame1 = {
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>",
    "<Vantor>",
    "    <AppName>Pallwick FCAPI</AppName>",
    "    <AppVersion>v3.0.0 Build 3 </AppVersion>",
};

class TarncliTest : public ::testing::Test {
protected:
    RunResult Tarn(std::vector<std::string> args, std::vector<std::string> env = {}) {
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        return vttest::Run(args, env);
    }
    // A host file derived from the default host with one text replaced.
    std::string HostWith(const std::string &from, const std::string &to) {
        std::string host = vttest::ReadFile(vttest::BuildPath("data/default_host.json"));
        const size_t at = host.find(from);
        EXPECT_NE(at, std::string::npos);
        if (at != std::string::npos) host.replace(at, from.size(), to);
        const std::string path = sysroot_.path("/host.json");
        vttest::WriteFile(path, host);
        return "VTSDM_HOST=" + path;
    }
    // Starts tarncli with the test library preloaded, waits until it holds
    // inside its command (the hold file appears), interrupts it and returns
    // its wait status.
    int Interrupted(std::vector<std::string> args, std::vector<std::string> env) {
        const std::string hold = env.front().substr(env.front().find('=') + 1);
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        env.push_back("LD_PRELOAD=" + vttest::BuildPath("tests/tarncli_preload.so"));
        // In the sanitizer build the preloaded library comes before the
        // sanitizer's runtime, which is harmless here.
        const char *asan = std::getenv("ASAN_OPTIONS");
        env.push_back(std::string("ASAN_OPTIONS=") + (asan ? std::string(asan) + ":" : "") +
                      "verify_asan_link_order=0");
        const int devnull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        vttest::ChildGuard tool = vttest::Spawn(args, env, devnull);
        close(devnull);
        // The tool signals readiness through the file; wait for it as long
        // as the test may run.
        while (!std::filesystem::exists(hold) && waitpid(tool.pid(), nullptr, WNOHANG) == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(std::filesystem::exists(hold)) << "the tool ended before it held";
        kill(tool.pid(), SIGINT);
        return tool.Wait();
    }
    void ReferenceFile(const std::string &content) {
        vttest::WriteFile(sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"), content);
    }

    vttest::SysrootScope sysroot_;
};

/* ---------------------------------------------------------- text reports */

TEST_F(TarncliTest, TextReportsFitTheTerminalAndShowTheHost) {
    const std::vector<std::vector<std::string>> commands = {{"-g"}, {"-i"}, {"-t"}, {"-l"}, {"-z"}, {"-v"}, {"-h"}};
    for (const auto &cmd : commands) {
        const RunResult r = Tarn(cmd);
        SCOPED_TRACE(cmd[0]);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(r.err.empty()) << r.err;
        for (const auto &line : Lines(r.out)) EXPECT_LE(line.size(), 79u) << line;
    }
    const std::string g = Tarn({"-g"}).out;
    EXPECT_NE(g.find("4 (6 FC ports, 1 virtual port)"), std::string::npos) << g;
    EXPECT_TRUE(
        std::regex_search(g, std::regex(R"(\n +0  VT2912 +VTK24110A7 +0  21:00:00:24:ff:7c:50:10  Online +64 Gb/s\n)")))
        << g;
    EXPECT_TRUE(std::regex_search(g, std::regex(R"(v1  21:04:00:24:ff:7c:50:10)"))) << g;
    EXPECT_TRUE(std::regex_search(g, std::regex(R"(21:00:00:1b:32:53:80:31  Link Down -)"))) << g;

    const std::string i = Tarn({"-i", "0"}).out;
    EXPECT_NE(i.find("Supported Speeds     : 16, 32, 64 Gb/s"), std::string::npos) << i;
    EXPECT_NE(i.find("BIOS / FCode / EFI   : 3.67 / 4.21 / 7.34"), std::string::npos) << i;
    EXPECT_NE(i.find("Engineering Date Code (EC)   : B"), std::string::npos) << i;
    EXPECT_TRUE(std::regex_search(i, std::regex(R"(\(RV\) +: 0x[0-9a-f]{2}\n)"))) << i;  // checksum in hex
    const std::string vpdOnly = Tarn({"-i", "0", "vpd"}).out;
    EXPECT_EQ(vpdOnly.find("Port Speed"), std::string::npos);
    EXPECT_NE(vpdOnly.find("Vital Product Data"), std::string::npos);

    const std::string t = Tarn({"-t", "21:00:00:24:ff:7c:50:10"}).out;
    EXPECT_TRUE(std::regex_search(t, std::regex(R"(\n +2  20:01:00:25:b5:00:0e:00  0a:04:00  NVMe +Online +2\n)")))
        << t;
    EXPECT_TRUE(std::regex_search(t, std::regex(R"(0a:05:00  - +Offline +0\n)"))) << t;
    EXPECT_NE(t.find("50:01:10:a0:00:01:70:00  VANTOR ULTRIUM-9 SIM"), std::string::npos) << t;
    EXPECT_EQ(t.find("instance 1:"), std::string::npos) << "WWPN selection shows one port";

    const std::string l = Tarn({"-l", "all"}).out;
    EXPECT_TRUE(std::regex_search(l, std::regex(R"(\n +2  Disk +ARRAY 8200 +8201 +4\.4 TB  Active   /dev/sdd\n)")))
        << l;
    EXPECT_TRUE(std::regex_search(l, std::regex(R"(\n +300  Disk .* 85\.9 GB  Active   /dev/sde\n)"))) << l;
    EXPECT_TRUE(std::regex_search(l, std::regex(R"(\n +0  Tape +ULTRIUM-9 SIM +Q3B1 +-  Active   /dev/st0\n)"))) << l;
    EXPECT_TRUE(std::regex_search(l, std::regex(R"(214\.7 GB  Passive  /dev/sdg\n)"))) << l;
    const std::string oneLun = Tarn({"-l", "0", "50:0a:09:81:00:00:a1:00", "300"}).out;
    EXPECT_EQ(Count(oneLun, "/dev/"), 1u) << oneLun;

    const std::string z = Tarn({"-z"}).out;
    EXPECT_TRUE(
        std::regex_search(z, std::regex(R"(\n +2  VT2516 +21:00:00:0e:1e:6a:10:20  Online +16 +1 +8  16\.0 TB\n)")))
        << z;
    // Targets and LUNs count paths; the capacity counts each LUN once.
    EXPECT_TRUE(std::regex_search(z, std::regex(R"(Total +12 +32  22\.6 TB\n)"))) << z;

    // "/" is accepted in place of "-".
    EXPECT_EQ(Tarn({"/t", "0"}).out, Tarn({"-t", "0"}).out);
}

/* ----------------------------------------------------------- XML reports */

TEST_F(TarncliTest, XmlFormat1OfEveryCommand) {
    const std::regex hbaLine(
        R"(^        <HBA Port="\d+" WWNN="([0-9a-f]{2}:){7}[0-9a-f]{2}"         WWPN="([0-9a-f]{2}:){7}[0-9a-f]{2}" />$)");
    for (const char *cmd : {"-g", "-i", "-t", "-l", "-z", "-v"}) {
        SCOPED_TRACE(cmd);
        const RunResult r = Tarn({"-x", cmd});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(WellFormed(r.out)) << r.out;
        const auto lines = Lines(r.out);
        ASSERT_GE(lines.size(), 7u);
        EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4), kFrame1);
        EXPECT_EQ(std::vector<std::string>(lines.end() - 3, lines.end()),
                  (std::vector<std::string>{"    <Status> 0 </Status>", "    <Reboot> 0 </Reboot>", "</Vantor>"}));
        EXPECT_EQ(r.out.find("AppXmlVersion"), std::string::npos);
        EXPECT_EQ(r.out.find("HBAModel="), std::string::npos);
        size_t opens = 0, heads = 0, closes = 0;
        for (const auto &line : lines) {
            opens += line == "     <HBA> ";
            closes += line == "     </HBA> ";
            heads += std::regex_match(line, hbaLine);
        }
        EXPECT_EQ(opens, closes);
        EXPECT_EQ(opens, heads);
        EXPECT_EQ(opens, std::string(cmd) == "-v" ? 0u : 7u);
    }
    const std::string t = Tarn({"-x", "-t", "0"}).out;
    EXPECT_NE(t.find("\t<Target>\n\t\t<WWNN>50:0a:09:80:00:00:a1:00</WWNN>\n\t\t<WWPN>50:0a:09:81:00:00:a1:00</WWPN>\n"
                     "\t\t<TargetID>"),
              std::string::npos)
        << t;
    EXPECT_EQ(t.find("<StorageType>"), std::string::npos);
    EXPECT_NE(
        t.find("        <HBA Port=\"0\" WWNN=\"20:00:00:24:ff:7c:50:10\"         WWPN=\"21:00:00:24:ff:7c:50:10\" />"),
        std::string::npos);
    const std::string l = Tarn({"-x", "-l", "0", "50:0a:09:81:00:00:a1:00", "2"}).out;
    EXPECT_NE(l.find("\t\t<LUN>\n\t\t\t<Number>2</Number>\n\t\t\t<Type>Disk</Type>\n\t\t\t<Vendor>VANTOR</Vendor>\n"),
              std::string::npos)
        << l;
    EXPECT_NE(l.find("\t\t\t<Capacity>4398046511104</Capacity>\n\t\t\t<Size>4.4 TB</Size>\n"), std::string::npos) << l;
    const std::string i = Tarn({"-x", "-i", "0"}).out;
    EXPECT_NE(i.find("\t<SupportedSpeeds>16, 32, 64 Gb/s</SupportedSpeeds>\n"), std::string::npos);
    EXPECT_NE(i.find("\t<VPD>\n\t\t<VPDField Keyword=\"00\">VT2912 dual-port 64Gb Fibre Channel adapter</VPDField>\n"),
              std::string::npos)
        << i;
}

TEST_F(TarncliTest, XmlFormat2OfEveryCommand) {
    const std::regex portLine(R"(^        <HBA Instance="\d+" HBAModel="VT\d+" (HBAPort|VirtualPort)="\d+" )"
                              R"(WWNN="([0-9a-f]{2}:){7}[0-9a-f]{2}" WWPN="([0-9a-f]{2}:){7}[0-9a-f]{2}" />$)");
    for (const char *cmd : {"-g", "-i", "-t", "-l", "-z", "-v"}) {
        SCOPED_TRACE(cmd);
        const RunResult r = Tarn({cmd, "-x2"});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(WellFormed(r.out)) << r.out;
        const auto lines = Lines(r.out);
        ASSERT_GE(lines.size(), 8u);
        EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4), kFrame1);
        EXPECT_EQ(lines[4], "    <AppXmlVersion>2.0</AppXmlVersion>");
        EXPECT_EQ(lines.back(), "</Vantor>");
        EXPECT_EQ(r.out.find("<HBA Port="), std::string::npos) << "no format-1 port line";
        size_t heads = 0;
        for (const auto &line : lines) heads += std::regex_match(line, portLine);
        EXPECT_EQ(heads, std::string(cmd) == "-v" ? 0u : 7u);
    }
    const std::string t = Tarn({"-x2", "-t"}).out;
    EXPECT_NE(
        t.find("        <HBA Instance=\"6\" HBAModel=\"VT2912\" VirtualPort=\"1\" WWNN=\"20:04:00:24:ff:7c:50:10\" "
               "WWPN=\"21:04:00:24:ff:7c:50:10\" />"),
        std::string::npos)
        << t;
    EXPECT_NE(t.find("        <HBA Instance=\"1\" HBAModel=\"VT2912\" HBAPort=\"1\" "), std::string::npos);
    EXPECT_NE(t.find("\t\t<WWPN>20:01:00:25:b5:00:0e:00</WWPN>\n\t\t<PortID>0a:04:00</PortID>\n"
                     "\t\t<StorageType>NVMe Disk</StorageType>\n"),
              std::string::npos)
        << t;
    EXPECT_NE(t.find("\t\t<WWPN>50:0a:09:81:00:00:a1:00</WWPN>\n\t\t<PortID>0a:02:00</PortID>\n"
                     "\t\t<StorageType>FCP Disk</StorageType>\n"),
              std::string::npos);
}

TEST_F(TarncliTest, FailingCommandDocumentIsExact) {
    RunResult r = Tarn({"-x", "-t", "9"});
    EXPECT_EQ(r.status, 8);
    std::vector<std::string> expected = kFrame1;
    expected.insert(expected.end(),
                    {"    <Status> 8 </Status>", "    <ErrorMsg> Error: No HBA port with instance 9 found! </ErrorMsg>",
                     "    <Reboot> 0 </Reboot>", "</Vantor>"});
    EXPECT_EQ(Lines(r.out), expected);
    EXPECT_TRUE(r.err.empty());

    r = Tarn({"-x2", "-t", "9"});
    expected.insert(expected.begin() + 4, "    <AppXmlVersion>2.0</AppXmlVersion>");
    EXPECT_EQ(Lines(r.out), expected);

    // A parse error is reported the same way.
    r = Tarn({"-x", "-o", "system", "-g"});
    EXPECT_EQ(r.status, 136);
    EXPECT_NE(r.out.find("    <Status> 136 </Status>\n    <ErrorMsg> Error: Cannot generate xml output format to the "
                         "system log file </ErrorMsg>\n"),
              std::string::npos)
        << r.out;
    r = Tarn({"-x", "-h"});
    EXPECT_EQ(r.status, 136);
    EXPECT_NE(r.out.find("    <ErrorMsg> Online help is not available with XML output! </ErrorMsg>\n"),
              std::string::npos);
}

TEST_F(TarncliTest, ValuesAreNotEscaped) {
    const std::string env = HostWith("VT2912 dual-port 64Gb Fibre Channel adapter", "VT2912 <dual> R&D adapter");
    const RunResult r = Tarn({"-x", "-i", "0"}, {env});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\t<Description>VT2912 <dual> R&D adapter</Description>\n"), std::string::npos) << r.out;
    EXPECT_FALSE(WellFormed(r.out));
    EXPECT_TRUE(WellFormed(Tarn({"-x", "-i", "2"}, {env}).out)) << "other cards keep ordinary values";
}

/* ------------------------------------------------------ output switches */

TEST_F(TarncliTest, OutputFileReceivesTheReport) {
    // The file names are the user's own: used as given, never moved under
    // the system root ($VTAPI_SYSROOT) as the system's own paths are.
    const std::string text = sysroot_.path("/var/tmp/report.txt");
    RunResult r = Tarn({"-z", "-o", text});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
    const std::string report = vttest::ReadFile(text);
    EXPECT_EQ(report, Tarn({"-z"}).out);
    Tarn({"-o", text, "-z"});
    EXPECT_EQ(Count(vttest::ReadFile(text), "Summary Report"), 2u) << "appended";

    const std::string xml = sysroot_.path("/var/tmp/report.xml");
    r = Tarn({"-x2", "-t", "-o", xml});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(WellFormed(vttest::ReadFile(xml)));

    // A relative name is relative to the working directory.
    std::filesystem::create_directories(sysroot_.path("/work"));
    const auto cwd = std::filesystem::current_path();
    std::filesystem::current_path(sysroot_.path("/work"));
    r = Tarn({"-g", "-o", "out.txt"});
    std::filesystem::current_path(cwd);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(vttest::ReadFile(sysroot_.path("/work/out.txt")).find("Host Information"), std::string::npos);

    // "-o system" is the system's log file, which is mapped.
    std::filesystem::create_directories(sysroot_.path("/var/adm"));
    r = Tarn({"-g", "-o", "system"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(vttest::ReadFile(sysroot_.path("/var/adm/messages")).find("Host Information"), std::string::npos);

    const std::string missing = sysroot_.path("/no/such/dir/report.txt");
    r = Tarn({"-z", "-o", missing});
    EXPECT_EQ(r.status, 136);
    EXPECT_NE(r.err.find("Unable to open file '" + missing + "' for writing!"), std::string::npos) << r.err;
    r = Tarn({"-z", "-o"});
    EXPECT_EQ(r.status, 136);
    EXPECT_NE(r.err.find("Error: This option must be combined with other command!"), std::string::npos);
    r = Tarn({"-o", "-z"});
    EXPECT_EQ(r.status, 136) << "an option word is not a file name";

    r = Tarn({"-s", "-z"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.empty() && r.err.empty());
    r = Tarn({"-s", "-t", "9"});
    EXPECT_EQ(r.status, 8);
    EXPECT_TRUE(r.out.empty() && r.err.empty());
}

TEST_F(TarncliTest, CommandFileHoldsOneCommand) {
    const std::string cmd = sysroot_.path("/cmd.txt");
    vttest::WriteFile(cmd, "# targets of the first port\n-t   0\n");
    RunResult r = Tarn({"-f", cmd});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, Tarn({"-t", "0"}).out);
    r = Tarn({"-x2", "-f", cmd});
    EXPECT_EQ(r.out, Tarn({"-x2", "-t", "0"}).out);

    vttest::WriteFile(sysroot_.path("/xml.txt"), "-x -l 0 \"50:0a:09:81:00:00:a1:00\" 1\n");
    r = Tarn({"-f", sysroot_.path("/xml.txt")});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(WellFormed(r.out));
    EXPECT_EQ(Count(r.out, "<LUN>"), 1u);

    const std::string missing = sysroot_.path("/missing.txt");
    r = Tarn({"-f", missing});
    EXPECT_EQ(r.status, 136);
    EXPECT_NE(r.err.find("Unable to open file '" + missing + "' for reading!"), std::string::npos) << r.err;
    EXPECT_EQ(Tarn({"-f", cmd, "-g"}).status, 136);
    EXPECT_EQ(Tarn({"-f"}).status, 136);
    vttest::WriteFile(sysroot_.path("/empty.txt"), "# nothing\n");
    EXPECT_EQ(Tarn({"-f", sysroot_.path("/empty.txt")}).status, 136);
    vttest::WriteFile(sysroot_.path("/two.txt"), "-t\n-l\n");
    r = Tarn({"-f", sysroot_.path("/two.txt")});
    EXPECT_EQ(r.status, 60);
    EXPECT_NE(r.err.find("Option '-l' cannot follow '-t'"), std::string::npos);
}

/* ---------------------------------------------- optional adapter argument */

TEST_F(TarncliTest, AdapterMayBeLeftOutBeforeVpdOrATarget) {
    // "-i vpd": the VPD of every port, as "-i all vpd".
    RunResult r = Tarn({"-i", "vpd"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, Tarn({"-i", "all", "vpd"}).out);
    EXPECT_EQ(r.out.find("Port Speed"), std::string::npos);
    EXPECT_EQ(Count(r.out, "Vital Product Data\n"), 7u);
    EXPECT_EQ(Tarn({"-x2", "/i", "VPD"}).out, Tarn({"-x2", "-i", "all", "vpd"}).out);

    // "-t <target WWPN>": that target on every port that sees it (port 0 and
    // its virtual port).
    const std::string target = "50:0a:09:81:00:00:a1:00";
    r = Tarn({"-t", target});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, Tarn({"-t", "all", target}).out);
    EXPECT_EQ(Count(r.out, "HBA instance "), 2u) << r.out;
    EXPECT_EQ(Count(r.out, target), 2u) << r.out;
    // "-l <target WWPN> [lun]" likewise.
    r = Tarn({"-l", target, "300"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, Tarn({"-l", "all", target, "300"}).out);
    EXPECT_EQ(Count(r.out, "/dev/sde"), 2u) << r.out;
    EXPECT_EQ(Tarn({"-x", "-l", target}).out, Tarn({"-x", "-l", "all", target}).out);

    // A WWPN that is a local port still selects that port; one that is
    // neither a port nor a target is still no adapter port.
    EXPECT_EQ(Tarn({"-t", "21:00:00:24:ff:7c:50:10"}).out, Tarn({"-t", "0"}).out);
    r = Tarn({"-t", "50:0a:09:81:00:00:ff:ff"});
    EXPECT_EQ(r.status, 8);
    EXPECT_NE(r.err.find("No HBA port with WWPN 50:0a:09:81:00:00:ff:ff found!"), std::string::npos) << r.err;
    // A further argument after the target is more than -t takes: it is
    // read as the target after an adapter.
    r = Tarn({"-t", target, "extra"});
    EXPECT_EQ(r.status, 48);
    EXPECT_NE(r.err.find("Invalid target WWPN 'extra'"), std::string::npos) << r.err;
}

TEST_F(TarncliTest, LongVpdValuesAreShownWhole) {
    // A 120-character value (the VPD keeps up to 127) in the dual-port card.
    std::string longValue;
    for (int i = 0; longValue.size() < 120; ++i) longValue += "word" + std::to_string(i) + " ";
    longValue.resize(120);
    if (longValue.back() == ' ') longValue.back() = 'x';
    const std::string env = HostWith(R"("vpd": { "EC": "B",)", R"("vpd": { "EC": "B", "V0": ")" + longValue + R"(",)");
    const RunResult r = Tarn({"-i", "0", "vpd"}, {env});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto lines = Lines(r.out);
    const int at = vttest::FindLine(lines, "Misc. Information (V0)");
    ASSERT_GE(at, 0) << r.out;
    // The value column starts at 33; continuation lines leave the label
    // column blank.
    std::string shown = lines[at].substr(33);
    for (size_t i = at + 1; i < lines.size() && lines[i].rfind(std::string(33, ' '), 0) == 0; ++i)
        shown.append(" ").append(lines[i].substr(33));
    EXPECT_EQ(shown, longValue) << r.out;
    for (const auto &line : lines) EXPECT_LE(line.size(), 79u) << line;
}

/* ------------------------------------------------------ errors and help */

TEST_F(TarncliTest, BadArgumentsAndMissingAdaptersGiveStatuses) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {{"-y"}, 60, "Error: Unknown option '-y'!"},
        {{"-t", "0", "50:0a:09:81:00:00:a1:00", "extra"}, 60, "Unexpected argument 'extra' for option -t"},
        {{"-t", "zz"}, 48, "Error: Invalid HBA 'zz' for option -t!"},
        {{"-t", "0", "xyz"}, 48, "Invalid target WWPN 'xyz'"},
        {{"-t", "0", "50:0a:09:81:00:00:ff:ff"}, 48, "Target 50:0a:09:81:00:00:ff:ff not found"},
        {{"-l", "0", "50:0a:09:81:00:00:a1:00", "70000"}, 48, "Invalid LUN '70000'"},
        {{"-l", "0", "50:0a:09:81:00:00:a1:00", "7"}, 48, "LUN 7 not found"},
        {{"-i", "0", "nvram"}, 48, "Only \"vpd\" is accepted"},
        {{"-t", "9"}, 8, "Error: No HBA port with instance 9 found!"},
        {{"-z", "21:00:00:00:00:00:00:01"}, 8, "No HBA port with WWPN 21:00:00:00:00:00:00:01 found!"},
        {{"-tb", "0"}, 66, "-tb (Target beacon): not available in this version"},
        {{"-dm"}, 66, "-dm (Transceiver diagnostics): not available in this version"},
        {{"-x"}, 60, "No command given"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : ""));
        const RunResult r = Tarn(c.args);
        EXPECT_EQ(r.status, c.status) << r.out << r.err;
        EXPECT_NE((r.err + r.out).find(c.message), std::string::npos) << r.err << r.out;
    }
    const std::string empty = sysroot_.path("/empty_host.json");
    vttest::WriteFile(empty, "{ \"cards\": [] }\n");
    const RunResult r = Tarn({"-g"}, {"VTSDM_HOST=" + empty});
    EXPECT_EQ(r.status, 8);
    EXPECT_NE(r.err.find("Error: No Fibre Channel adapter port found in this host!"), std::string::npos) << r.err;
}

TEST_F(TarncliTest, HelpIsOnePageAndPerCommand) {
    const RunResult usage = Tarn({"-h"});
    EXPECT_EQ(usage.status, 0);
    EXPECT_LE(Lines(usage.out).size(), 40u);
    for (const char *s : {"  8    no adapter port", "48   bad parameter value", "60   unknown or unexpected parameter",
                          "66   command not available", "136  output switch error"})
        EXPECT_NE(usage.out.find(s), std::string::npos) << s;
    EXPECT_EQ(Tarn({"/?"}).out, usage.out);
    EXPECT_EQ(Tarn({}).out, usage.out) << "menu mode shows the usage";

    RunResult r = Tarn({"-h", "-t"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("Usage: tarncli -t [hba] [target-wwpn]\n", 0), 0u) << r.out;
    EXPECT_EQ(Tarn({"-l", "-h"}).out.rfind("Usage: tarncli -l", 0), 0u);
    r = Tarn({"-h", "-fwdump"});
    EXPECT_NE(r.out.find("-fwdump  Firmware dump\n\nThis command is not available"), std::string::npos) << r.out;
    r = Tarn({"-h", "-nope"});
    EXPECT_EQ(r.status, 60);
}

/* ------------------------------------------------- reference-file switches */

TEST_F(TarncliTest, DisabledFeatureAndInterruptedCommand) {
    RunResult r = Tarn({"-b", "0"});
    EXPECT_EQ(r.status, 66);
    EXPECT_EQ(r.out, "This feature is not available or disabled!\n");
    r = Tarn({"-x", "-b", "0"});
    EXPECT_NE(r.out.find("    <ErrorMsg> This feature is not available or disabled! </ErrorMsg>\n"), std::string::npos);

    ReferenceFile(
        "node.hba.utility.flash.enable=1\nnode.app.messages.trace.enable=1\n"
        "node.app.messages.trace.file=/var/tmp/tarntrace.log\n");
    r = Tarn({"-b", "0"});
    EXPECT_EQ(r.status, 48);
    EXPECT_NE(r.err.find("Error: Option -b needs an image file name!"), std::string::npos) << r.err;

    // SIGINT while the command runs: the handler cleans up once, and the
    // process ends with the status of the terminal restore, the signal it
    // raised again still blocked.  A preloaded library stops the tool when
    // it starts its command.
    for (const auto &e : std::filesystem::directory_iterator(sysroot_.path("/var/tmp")))
        std::filesystem::remove(e.path());
    const std::string hold = sysroot_.path("/tmp/hold");
    int st = Interrupted({"-z"}, {"VTTEST_HOLD_FILE=" + hold});
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;

    std::string trace;
    for (const auto &e : std::filesystem::directory_iterator(sysroot_.path("/var/tmp")))
        if (e.path().filename().string().rfind("tarntrace.", 0) == 0) trace += vttest::ReadFile(e.path());
    EXPECT_EQ(Count(trace, "CTRL-C triggered - Cleanup() ..."), 1u) << trace;
    for (const char *line :
         {"Info: Signal (2) caught...", "Debug: g_signalHandlerInProgress=0",
          "Debug: Setting SignalHandlerInProcess to (1).", "Debug: Calling cleanup routine", "Debug: Shutting Down...",
          "Debug: CoreUnintialize done...", "Debug: OSSUninitialize done...", "Debug: FreeMyDeviceList done...",
          "Debug: cleanup: g_ResourcesDeallocated = 1", "Debug: termination_handler: exit 0.",
          "Debug: CmdInit completed."})
        EXPECT_EQ(Count(trace, std::string(line) + "\n"), 1u) << line;
    EXPECT_EQ(Count(trace, "Diagnostics test is running"), 0u);
    EXPECT_LT(trace.find("CmdInit completed."), trace.find("Signal (2) caught..."));

    // A failed restore gives its status (-1).
    std::filesystem::remove(hold);
    st = Interrupted({"-g"}, {"VTTEST_HOLD_FILE=" + hold, "VTTEST_TERMINAL_FAILS=1"});
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 255) << st;
}

}  // namespace
