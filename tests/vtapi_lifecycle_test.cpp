// libvtapifconly from load to a complete adapter tree: initialize, refresh,
// backup lists, discovery order and quirks, the hba.conf registration, the
// installation path, interposition, and cross-process serialization.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>
#include <sys/wait.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "testutil.h"
#include "vtapi.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

using vttest::FindLine;
using vttest::Lines;

using vttest::SysrootScope;

std::string Prog(const std::string &name) { return vttest::BuildPath("tests/" + name); }

const char kCardStart[] =
    R"({"serial":"%s","model":"%s","device_id":"%s","subsystem_vendor_id":"%s","subsystem_id":"%s",
  "pci_bus":%d,"driver":{"reports_supported_speed":%s},"ports":[)";

std::string Card(const char *serial, const char *model, const char *did, const char *ssvid, const char *ssdid, int bus,
                 bool reportsSpeed, const std::vector<std::string> &ports) {
    char head[512];
    snprintf(head, sizeof head, kCardStart, serial, model, did, ssvid, ssdid, bus, reportsSpeed ? "true" : "false");
    std::string s = head;
    for (size_t i = 0; i < ports.size(); ++i) s += (i ? "," : "") + ports[i];
    return s + "]}";
}

std::string Port(const std::string &wwpn, int port, const std::string &extra = "") {
    return R"({"port":)" + std::to_string(port) + R"(,"function":)" + std::to_string(port) + R"(,"wwnn":"20)" +
           wwpn.substr(2) + R"(","wwpn":")" + wwpn + R"(","speed":16,"supported_speeds":[4,8,16])" + extra + "}";
}

class Lifecycle : public ::testing::Test {
protected:
    SysrootScope root_;
    std::string WriteHost(const std::vector<std::string> &cards) {
        std::string s = R"({"cards":[)";
        for (size_t i = 0; i < cards.size(); ++i) s += (i ? "," : "") + cards[i];
        s += "]}";
        std::string path = root_.path("/host.json");
        vttest::WriteFile(path, s);
        return path;
    }
    vttest::RunResult Walk(const std::vector<std::string> &env = {}) {
        return vttest::Run({Prog("vtapi_walk"), "9"}, env);
    }
};

TEST_F(Lifecycle, WalksTheDefaultHostAndRebuildsIdenticalLists) {
    auto r = Walk();
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    auto out = Lines(r.out);
    EXPECT_EQ(out[0], "adapters 4");
    // Cards in serial-number order, with the versions their flash carries.
    int k = FindLine(out,
                     "adapter VTK24110A7 model VT2912 type 2 mfr Vantor Corporation fw 9.12.01 bios 3.67 fcode 4.21 "
                     "efi 7.34 flashfw 9.12.01 mbi 1.12.03");
    int o = FindLine(out, "adapter VTO21030D4 model VT1812");
    int s = FindLine(out, "adapter VTS18050C3 model VT1602");
    int w = FindLine(out, "adapter VTW23080B2 model VT2516");
    ASSERT_GE(k, 0) << r.out;
    EXPECT_LT(k, o);
    EXPECT_LT(o, s);
    EXPECT_LT(s, w);
    // The dual-port card: ports 0 and 1.  The virtual port of port 0 follows
    // it in the sorted list; its port number is its vPort index (1), so it
    // opens the entry of bus 59, device 0, port 1, which physical port 1
    // then joins.
    EXPECT_EQ(out[k + 1], " port 0 bus 59 dev 0");
    EXPECT_NE(out[k + 2].find("protocol 0 wwpn 21:00:00:24:ff:7c:50:10 wwnn 20:00:00:24:ff:7c:50:10 instance 0 "
                              "interface 1 speed 100 supported 0xe0 targets 4"),
              std::string::npos)
        << out[k + 2];
    EXPECT_EQ(out[k + 3], " port 1 bus 59 dev 0");
    EXPECT_NE(out[k + 4].find("wwpn 21:04:00:24:ff:7c:50:10"), std::string::npos) << out[k + 4];
    EXPECT_NE(out[k + 4].find("interface 3"), std::string::npos);
    EXPECT_NE(out[k + 5].find("wwpn 21:00:00:24:ff:7c:50:11"), std::string::npos) << out[k + 5];
    // The converged card's FCoE function is a protocol entry of type 1.
    EXPECT_NE(out[o + 2].find("protocol 1 wwpn 21:00:00:0e:1e:64:21:40"), std::string::npos) << out[o + 2];
    // The 8 Gb card has two ports, one with its link down (speed 0).
    EXPECT_NE(out[s + 4].find("wwpn 21:00:00:1b:32:53:80:31"), std::string::npos);
    EXPECT_NE(out[s + 4].find("speed 0"), std::string::npos);
    EXPECT_NE(r.out.find("refresh identical"), std::string::npos);
    EXPECT_NE(r.out.find("backup identical"), std::string::npos);
    EXPECT_NE(r.out.find("swapped yes"), std::string::npos);
    EXPECT_NE(r.out.find("after uninitialize empty"), std::string::npos);

    // The messages file: profiler and debug lines in order.
    auto log = Lines(vttest::ReadFile(root_.path("/var/tmp/vtapi.log")));
    ASSERT_FALSE(log.empty());
    std::regex debugLine(R"(^Debug: \d\d:\d\d:\d\d\.\d\d\d:[a-z_]+\.cpp\(\d{4}\):.*)");
    EXPECT_TRUE(std::regex_match(log[0], debugLine)) << log[0];
    EXPECT_NE(log[0].find("module "), std::string::npos);
    int steps[] = {
        FindLine(log, "Before checkAndInstallHBAConfFile()"),
        FindLine(log, "After checkAndInstallHBAConfFile()"),
        FindLine(log, "Before core_FreeAdapterList() call"),
        FindLine(log, "Before TarnReinitializeDevices()"),
        FindLine(log, "Found Vantor HBA - instance (0)"),
        FindLine(log, "After TarnReinitializeDevices()"),
        FindLine(log, "After BuildAdapterInfoForFC()"),
        FindLine(log, "Iterating through gpAdapterList"),
        FindLine(log, "Begin Adapter = VTK24110A7"),
        FindLine(log, "FC Protocol Entry Type WWPN = 21-00-00-24-FF-7C-50-10, WWNN = 20-00-00-24-FF-7C-50-10"),
        FindLine(log, "returning VTAPI_SUCCESS"),
        FindLine(log, "Profile: "),
        FindLine(log, "PROFILER EXIT FUNCTION VTAPI_Initialize"),
        FindLine(log, "PROFILER ENTER FUNCTION VTAPI_RefreshData"),
        FindLine(log, "PROFILER EXIT FUNCTION VTAPI_Uninitialize")};
    for (size_t i = 0; i < std::size(steps); ++i) EXPECT_GE(steps[i], 0) << "step " << i;
    for (size_t i = 1; i + 4 < std::size(steps); ++i) EXPECT_LT(steps[i - 1], steps[i]) << "step " << i;
}

TEST_F(Lifecycle, HbaConfIsCreatedAppendedOrLeftAlone) {
    const std::string conf = root_.path("/etc/hba.conf");
    const std::string lib = vttest::BuildPath("lib64/libvtsdm.so.1");
    // Absent: created with the entry.
    ASSERT_EQ(Walk().status, 0);
    std::string text = vttest::ReadFile(conf);
    EXPECT_EQ(text.rfind("com.vantor.fchba32          ", 0), 0u) << text;
    EXPECT_NE(text.find("libvtsdm.so"), std::string::npos) << text;
    // Present with the entry (after blanks): unchanged.
    vttest::WriteFile(conf, "# vendors\n   com.vantor.fchba32   /opt/x/libvtsdm.so\n");
    ASSERT_EQ(Walk().status, 0);
    EXPECT_EQ(vttest::ReadFile(conf), "# vendors\n   com.vantor.fchba32   /opt/x/libvtsdm.so\n");
    // Present without it (a near miss does not count): appended after an empty line.
    vttest::WriteFile(conf, "com.other.hba /usr/lib/libother.so\ncom.vantor.fchba3 x\n");
    ASSERT_EQ(Walk().status, 0);
    text = vttest::ReadFile(conf);
    EXPECT_EQ(text.rfind("com.other.hba /usr/lib/libother.so\ncom.vantor.fchba32 x\n", 0), std::string::npos);
    EXPECT_EQ(text.find("com.other.hba /usr/lib/libother.so\ncom.vantor.fchba3 x\n\ncom.vantor.fchba32          "), 0u)
        << text;
}

TEST_F(Lifecycle, DiscoveryOrderSkipsAndSpeedRule) {
    const std::string host = WriteHost({
        // Listed first, but its serial sorts last; its ports are out of WWPN order.
        Card("ZZ900", "VT2770", "0x6B30", "0x1077", "0x0A21", 10, true,
             {Port("21:00:00:00:00:00:09:02", 0), Port("21:00:00:00:00:00:09:01", 1)}),
        // A 32 Gb Wren whose driver reports no mask: 0x70.
        Card("AA100", "VT2700", "0x6A20", "0x1077", "0x0A22", 11, false, {Port("21:00:00:00:00:00:01:01", 0)}),
        // A plain Kite without a mask: 0x38; a 32 Gb mezzanine: 0x40; a 16 Gb one: 0x20.
        Card("BB200", "VT2900", "0x7C40", "0x1077", "0x0C60", 12, false, {Port("21:00:00:00:00:00:02:01", 0)}),
        Card("CC300", "VT2730", "0x6A20", "0x1077", "0x0B6E", 13, false, {Port("21:00:00:00:00:00:03:01", 0)}),
        Card("DD400", "VT2530", "0x6A10", "0x1077", "0x0A6E", 14, false, {Port("21:00:00:00:00:00:04:01", 0)}),
        // A port with both names zero never reaches a list.
        Card("EE500", "VT1600", "0x5380", "0x1077", "0x0201", 15, true,
             {R"({"wwnn":"00:00:00:00:00:00:00:00","wwpn":"00:00:00:00:00:00:00:00"})"}),
    });
    auto r = Walk({"VTSDM_HOST=" + host});
    ASSERT_EQ(r.status, 0) << r.err;
    auto out = Lines(r.out);
    EXPECT_EQ(out[0], "adapters 5") << r.out;
    int a = FindLine(out, "adapter AA100"), b = FindLine(out, "adapter BB200"), z = FindLine(out, "adapter ZZ900");
    ASSERT_GE(a, 0);
    EXPECT_LT(a, b);
    EXPECT_LT(b, z);
    EXPECT_EQ(FindLine(out, "adapter EE500"), -1);
    EXPECT_NE(out[a + 2].find("supported 0x70"), std::string::npos) << out[a + 2];
    EXPECT_NE(out[b + 2].find("supported 0x38"), std::string::npos) << out[b + 2];
    EXPECT_NE(out[FindLine(out, "adapter CC300") + 2].find("supported 0x40"), std::string::npos);
    EXPECT_NE(out[FindLine(out, "adapter DD400") + 2].find("supported 0x20"), std::string::npos);
    // The driver that reports its mask keeps it (4, 8, 16 Gb/s).
    EXPECT_NE(out[z + 2].find("supported 0x38"), std::string::npos);
    // Ports of one card: ascending WWPN, whatever the file order.
    EXPECT_NE(out[z + 2].find("wwpn 21:00:00:00:00:00:09:01"), std::string::npos) << out[z + 2];
    EXPECT_NE(out[z + 4].find("wwpn 21:00:00:00:00:00:09:02"), std::string::npos) << out[z + 4];
    std::string log = vttest::ReadFile(root_.path("/var/tmp/vtapi.log"));
    EXPECT_NE(log.find("SortAdapterList: Skipping HBA=6 WWNN=00:00:00:00:00:00:00:00"), std::string::npos);
    // The total is counted one short, deliberately.
    EXPECT_NE(log.find("BuildTarnDeviceList: Total number of HBAs=5"), std::string::npos);
}

TEST_F(Lifecycle, OpenRetriesSixTimesThenUnsupportedAtOnce) {
    const std::string busy = R"(,"faults":{"open_unavailable":1000})";
    const std::string host = WriteHost({
        Card("AA1", "VT2700", "0x6A20", "0x1077", "0x0A22", 11, true, {Port("21:00:00:00:00:00:01:01", 0, busy)}),
        Card("BB1", "VT2700", "0x6A20", "0x1077", "0x0A22", 12, true, {Port("21:00:00:00:00:00:02:01", 0, busy)}),
        Card("CC1", "VT2700", "0x6A20", "0x1077", "0x0A22", 13, true, {Port("21:00:00:00:00:00:03:01", 0)}),
    });
    // OSSSleep is replaced, so the five-second waits are only counted.
    auto r = vttest::Run({Prog("vtapi_interpose"), "sleep"}, {"VTSDM_HOST=" + host});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("adapters 1 sleeps 6 seconds 30"), std::string::npos) << r.out;
    std::string log = vttest::ReadFile(root_.path("/var/tmp/vtapi.log"));
    size_t first = log.find("Found *UNSUPPORTED* Vantor HBA - instance (0) -- Please check the README file");
    size_t second = log.find("Found *UNSUPPORTED* Vantor HBA - instance (1)");
    ASSERT_NE(first, std::string::npos) << log;
    ASSERT_NE(second, std::string::npos);
    // Six retries of instance 0, none of instance 1.
    size_t retries = 0;
    for (size_t at = 0; (at = log.find("SDOpenDevice(0, xx) failed (0x20000071)", at)) != std::string::npos; ++at)
        ++retries;
    EXPECT_EQ(retries, 6u);
    EXPECT_EQ(log.find("SDOpenDevice(1, xx) failed (0x20000071)"), std::string::npos);
}

TEST_F(Lifecycle, InterposedFunctionsAreCalledByTheLibrary) {
    auto r = vttest::Run({Prog("vtapi_interpose"), "hbaconf"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("replacement checkAndInstallHBAConfFile called"), std::string::npos);
    EXPECT_NE(r.out.find("adapters 4"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(root_.path("/etc/hba.conf")));
}

TEST_F(Lifecycle, ConcurrentRefreshesNeverOverlap) {
    const std::string marker = root_.path("/rebuilding");
    vttest::RunResult results[2];
    std::vector<std::thread> runners;
    for (auto &r : results)
        runners.emplace_back([&r, &marker] { r = vttest::Run({Prog("vtapi_interpose"), "refresh", "15", marker}); });
    for (auto &t : runners) t.join();
    for (const auto &r : results) {
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find("overlaps 0"), std::string::npos) << r.out;
    }
}

TEST_F(Lifecycle, KilledHolderLeavesTheAccessMutexFree) {
    int out[2];
    ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
    vttest::ChildGuard holder = vttest::Spawn({Prog("vtapi_interpose"), "hold"}, {}, out[1]);
    close(out[1]);
    // "holding": inside the locked rebuild.
    std::string said;
    char buf[256];
    for (ssize_t n; said.find("holding\n") == std::string::npos && (n = read(out[0], buf, sizeof buf)) > 0;)
        said.append(buf, static_cast<size_t>(n));
    close(out[0]);
    ASSERT_NE(said.find("holding\n"), std::string::npos) << said;
    const int32_t id = getVTAPIMutexID();
    const int st = holder.Kill();
    EXPECT_TRUE(WIFSIGNALED(st) && WTERMSIG(st) == SIGKILL) << st;
    // The kernel gave the lock back.  Other tests of the run may hold it for
    // a moment, hence the generous number of attempts (about 30 s).
    EXPECT_EQ(vtapi_LockAccessMutex(id, 3000), 0u);
    EXPECT_EQ(vtapi_UnlockAccessMutex(id), 0u);
}

TEST_F(Lifecycle, RefreshKeepsTheDirectoryOfTheFirstInitialization) {
    const std::string dir = root_.path("/opt/elsewhere/");
    ASSERT_EQ(VTAPI_Initialize(9, dir.c_str()), 0u);
    EXPECT_EQ(std::string(gpInstallationPath), dir);
    ASSERT_EQ(VTAPI_RefreshData(), 0u);
    EXPECT_EQ(std::string(gpInstallationPath), dir);
    // The reference file follows the directory without its last "/".
    EXPECT_EQ(std::string(TarnGetConfigFileName()), root_.path("/opt/elsewheretgcli.properties"));
    EXPECT_EQ(VTAPI_GetAdapterCount(), 4u);
    VTAPI_Uninitialize();
}

TEST_F(Lifecycle, BackupTreeIsDumpedUnderTheMainListHeading) {
    ASSERT_EQ(VTAPI_Initialize(9, nullptr), 0u);
    ASSERT_EQ(VTAPI_UpdateBackupAdapterList(), 0u);
    ASSERT_NE(gpBackupAdapterList, nullptr);
    const auto log = Lines(vttest::ReadFile(root_.path("/var/tmp/vtapi.log")));
    const int enter = FindLine(log, "PROFILER ENTER FUNCTION VTAPI_UpdateBackupAdapterList");
    const int heading = FindLine(log, "Iterating through gpAdapterList", enter);
    ASSERT_GE(enter, 0);
    EXPECT_GT(heading, enter);
    EXPECT_GT(FindLine(log, "Begin Adapter = VTK24110A7", heading), heading);
    EXPECT_EQ(FindLine(log, "gpBackupAdapterList"), -1);
    VTAPI_SwapBackupToMainAdapterList();
    VTAPI_Uninitialize();
}

TEST_F(Lifecycle, InstallationPathAndHostQueries) {
    ASSERT_EQ(VTAPI_Initialize(0, nullptr), 0u);
    // libvtsdm lives in <build>/lib64: the installation path is <build>/.
    EXPECT_EQ(std::string(gpInstallationPath), std::string(VT_BUILD_DIR) + "/");
    // The reference file: the trailing "/" is dropped, and the file name
    // follows the directory without a separator.
    EXPECT_EQ(std::string(TarnGetConfigFileName()), std::string(VT_BUILD_DIR) + "tgcli.properties");
    EXPECT_EQ(gTraceLevel, 8);  // level 0 keeps the previous level
    HostInfo host{};
    ASSERT_EQ(VTAPI_GetHostInfo(&host), 0u);
    EXPECT_EQ(host.Valid, 1u);
    EXPECT_GT(strlen(host.HostName), 0u);
    SystemInfo sys{};
    sys.Reserved = 0xBEEF;
    ASSERT_EQ(VTAPI_GetSystemInfo(&sys), 0u);
    EXPECT_EQ(sys.Reserved, 0xBEEF);
    EXPECT_EQ(sys.OperatingSystem, 3);
    EXPECT_EQ(sys.Linux.ProductType, 3u);
    EXPECT_GE(sys.Linux.MajorVersion, 3u);
    EXPECT_EQ(offsetof(HostInfo, HostName), 8u);
    EXPECT_EQ(offsetof(HostInfo, OSVersion), 264u);
    EXPECT_EQ(offsetof(HostInfo, HostNameCrc), 904u);
    EXPECT_EQ(offsetof(SystemInfo, Linux.MajorVersion), 12u);
    VTAPI_Uninitialize();
    EXPECT_EQ(VTAPI_GetAdapterCount(), 0u);
}

TEST_F(Lifecycle, InstallationPathWithoutLib64) {
    // The library loaded from a directory without "/lib64": the part before
    // its last "/".
    const std::string dir = root_.path("/opt/vt/lib");
    std::filesystem::create_directories(dir);
    std::filesystem::copy_file(vttest::BuildPath("lib64/libvtsdm.so.1"), dir + "/libvtsdm.so.1");
    auto r = vttest::Run({Prog("vtapi_interpose"), "path"},
                         {"LD_LIBRARY_PATH=" + dir, "VTSDM_HOST=" + vttest::BuildPath("data/default_host.json")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("installation path " + dir + "/\n"), std::string::npos) << r.out;
}

}  // namespace
