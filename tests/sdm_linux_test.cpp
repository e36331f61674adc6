// The Linux backend on its own: the text forms of sysfs attributes, SCSI
// outcomes and events it decodes; trees the simulator cannot make (remote
// ports blocked or gone, unknown speeds, missing attributes, unreadable
// VPD); which backend answers; and a live run on a machine with adapters.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "backend.h"
#include "fcnames.h"
#include "linux/fc_events.h"
#include "linux/linux_backend.h"
#include "linux/nvme_fc.h"
#include "linux/pci_vpd.h"
#include "linux/sysfs.h"
#include "sim_transport.h"
#include "simulator.h"
#include "sysfs_export.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using namespace vtsdm::linuxfc;
using vttest::SysrootScope;

TEST(SysfsText, AttributesParseAsTheKernelWritesThem) {
    EXPECT_EQ(ParseHex("0x21000024ff7c5010\n"), 0x21000024ff7c5010ull);
    EXPECT_EQ(ParseHex("0x"), std::nullopt);
    EXPECT_EQ(ParseHex("0x1ffffffffffffffff"), std::nullopt);
    EXPECT_EQ(ParsePortId("0x0a0100"), 0x0a0100u);
    EXPECT_EQ(ParsePortId("0x1000000"), std::nullopt);
    EXPECT_EQ(ParseCounter("0xffffffffffffffff"), 0u);  // the driver keeps no such counter
    EXPECT_EQ(ParseCounter("0x2a"), 42u);
    EXPECT_EQ(ParseDecimal("2048 bytes"), 2048);
    EXPECT_EQ(ParseDecimal("-1\n"), -1);
    EXPECT_EQ(ParseDecimal("bytes"), std::nullopt);

    EXPECT_EQ(ParseSpeedGbps("16 Gbit\n"), 16u);
    EXPECT_EQ(ParseSpeedGbps("unknown"), std::nullopt);
    EXPECT_EQ(ParseSpeedGbps("Not Negotiated"), std::nullopt);
    EXPECT_EQ(ParseSpeedList("4 Gbit, 8 Gbit, 16 Gbit"), (std::vector<uint32_t>{4, 8, 16}));
    EXPECT_TRUE(ParseSpeedList("unknown").empty());

    EXPECT_EQ(ParseHostPortState("Online"), SD_PORTSTATE_ONLINE);
    EXPECT_EQ(ParseHostPortState("Linkdown"), SD_PORTSTATE_LINKDOWN);
    EXPECT_EQ(ParseHostPortState("Blocked"), SD_PORTSTATE_LINKDOWN);
    EXPECT_EQ(ParseHostPortState("garbage"), SD_PORTSTATE_OFFLINE);
    EXPECT_TRUE(RemotePortLoggedIn("Online\n"));
    EXPECT_TRUE(RemotePortLoggedIn("Marginal"));
    EXPECT_FALSE(RemotePortLoggedIn("Not Present"));
    EXPECT_EQ(ParseRoles("FCP Target, NVMe Discovery"), uint32_t(kRoleFcpTarget | kRoleNvmeDiscovery));
    EXPECT_EQ(ParseRoles("Unknown"), 0u);

    auto n = ParseScsiName("3:0:1:16684");
    ASSERT_TRUE(n);
    EXPECT_EQ(n->host, 3u);
    EXPECT_EQ(n->id, 1u);
    EXPECT_EQ(n->lun, 16684u);
    EXPECT_FALSE(ParseScsiName("3:0:1"));
    EXPECT_FALSE(ParseScsiName("3:0:1:2:5"));
    EXPECT_EQ(ParseHostName("host12"), 12u);
    EXPECT_FALSE(ParseHostName("hostx"));
    auto r = ParsePortName("rport-", "rport-3:0-15");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->host, 3u);
    EXPECT_EQ(r->number, 15u);
    EXPECT_FALSE(ParsePortName("vport-", "rport-3:0-15"));
    auto pci = ParsePciAddress("0000:af:00.2");
    ASSERT_TRUE(pci);
    EXPECT_EQ(pci->bus, 0xaf);
    EXPECT_EQ(pci->function, 2);
    EXPECT_FALSE(ParsePciAddress("0000:af:00.9"));
    auto pair = ParseWwnPair(FormatWwnPair(0x2101001b32a90002ull, 0x2001001b32a90002ull));
    ASSERT_TRUE(pair);
    EXPECT_EQ(pair->first, 0x2101001b32a90002ull);
    EXPECT_EQ(pair->second, 0x2001001b32a90002ull);
    EXPECT_FALSE(ParseWwnPair("2101001b32a90002"));
    // The kernel's number of a flat-space LUN is 0x4000 | n.
    EXPECT_EQ(LunNumberOf(0x4000 | 300), 300);
    EXPECT_EQ(LunNumberOf(7), 7);
}

TEST(SysfsText, VpdNvmeAddressesAndNamespaces) {
    const std::vector<uint8_t> vpd = {0x82, 3,   0,   'A', 'B', ' ', 0x90, 9,    0,    'S', 'N',
                                      2,    'X', '1', 'P', 'N', 1,   'Q',  0x78, 0xFF, 0xFF};
    EXPECT_EQ(VpdLength(vpd), 19u);  // up to the end tag, padding left out
    VpdFields f = ParseVpd(vpd);
    EXPECT_EQ(f.identifier, "AB");
    EXPECT_EQ(f.keywords["SN"], "X1");
    EXPECT_EQ(f.keywords["PN"], "Q");
    // A keyword that runs past its resource ends the list quietly.
    const std::vector<uint8_t> cut = {0x90, 4, 0, 'S', 'N', 9, 'X', 0x78};
    EXPECT_TRUE(ParseVpd(cut).keywords.empty());

    auto a = ParseNvmeFcAddress(
        "traddr=nn-0x200000109b5aa000:pn-0x100000109b5aa000,host_traddr=nn-0x20000024ff7c5010:pn-0x21000024ff7c5010");
    ASSERT_TRUE(a);
    EXPECT_EQ(a->targetWwpn, 0x100000109b5aa000ull);
    EXPECT_EQ(a->hostWwpn, 0x21000024ff7c5010ull);
    EXPECT_FALSE(ParseNvmeFcAddress("traddr=192.168.1.1,trsvcid=4420"));
    EXPECT_EQ(NamespaceDevice("nvme0n1", "nvme0"), "nvme0n1");
    EXPECT_EQ(NamespaceDevice("nvme2c1n3", "nvme1"), "nvme2n3");
    EXPECT_EQ(NamespaceDevice("nvme2c1n3", "nvme0"), std::nullopt);
    EXPECT_EQ(NamespaceDevice("nvme1n1", "nvme0"), std::nullopt);
    EXPECT_EQ(NamespaceDevice("model", "nvme0"), std::nullopt);
}

TEST(ScsiOutcomes, StatusesTheLibraryActsOn) {
    ScsiOutcome o;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_NONE);
    o.status = kStatusCheckCondition;
    o.sense = {0x70, 0, 0x06};
    EXPECT_EQ(StatusOfOutcome(o), SDERR_SCSI_CHECK_CONDITION);
    o.sense = {0x72, 0x01};  // recovered error, descriptor format
    EXPECT_EQ(StatusOfOutcome(o), SDERR_NONE);
    o = ScsiOutcome{};
    o.status = kStatusBusy;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_DEVICE_BUSY);
    o.status = kStatusTaskSetFull;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_DEVICE_BUSY);
    o = ScsiOutcome{};
    o.hostStatus = kDidTransportDisrupted;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_LOOP_DOWN);
    o.hostStatus = kDidNoConnect;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_DEVICE_REMOVED);
    o.hostStatus = kDidTimeOut;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_IO_FAILED);
    o = ScsiOutcome{};
    o.osError = ENOENT;
    EXPECT_EQ(StatusOfOutcome(o), SDERR_NOT_FOUND);
    // The simulator's answers come back to the same status through a SCSI outcome.
    for (uint32_t st : {SDERR_NONE, SDERR_SCSI_CHECK_CONDITION, SDERR_DEVICE_BUSY, SDERR_DEVICE_REMOVED,
                        SDERR_LOOP_DOWN, SDERR_NOT_FOUND})
        EXPECT_EQ(StatusOfOutcome(vtsdm::OutcomeOfStatus(st, {0x70, 0, 0x05})), st) << std::hex << st;
    auto rq = vtsdm::DecodeCdb({0x12, 0x01, 0x83, 0x00, 0xFF, 0x00});
    ASSERT_TRUE(rq);
    EXPECT_EQ(rq->op, vtsdm::ScsiOp::Inquiry);
    EXPECT_EQ(rq->page, 0x83);
    EXPECT_EQ(rq->allocation, 255u);
    EXPECT_FALSE(vtsdm::DecodeCdb({0x9E, 0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}));
    EXPECT_FALSE(vtsdm::DecodeCdb({0x28}));
}

TEST(FcEvents, NetlinkMessagesDecodeToLinkEvents) {
    // One FC asynchronous event (link down on host 3) after a message of another kind.
    std::vector<uint8_t> buf(16 + 16 + 16 + 48, 0);
    auto put16 = [&](size_t at, uint16_t v) { memcpy(&buf[at], &v, 2); };
    auto put32 = [&](size_t at, uint32_t v) { memcpy(&buf[at], &v, 4); };
    put32(0, 32);  // a 32-byte message that is not an event
    put32(32, 16 + 48);
    buf[48 + 0] = 1;  // version
    buf[48 + 1] = 1;  // FC transport
    put16(48 + 2, 0xA1B2);
    put16(48 + 4, 0x0100);  // asynchronous event
    put16(48 + 24, 3);      // host 3
    put32(48 + 32, 0x3);    // link down
    auto events = DecodeFcEvents(buf.data(), buf.size());
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].hostNo, 3u);
    EXPECT_EQ(AenCodeOf(events[0].code), SD_AEN_LINK_DOWN);
    EXPECT_EQ(AenCodeOf(0x5), SD_AEN_DEVICE_UPDATE);
    EXPECT_EQ(AenCodeOf(0xFFFF), 0u);
    EXPECT_TRUE(DecodeFcEvents(buf.data(), 40).size() <= 1);  // cut short: nothing past the cut
}

// A tree exported from a small host, then changed where the simulator
// cannot: the Linux backend reads it through the public calls.
class NegativeTree : public ::testing::Test {
protected:
    void SetUp() override {
        host_ = root_.path("/h.json");
        vttest::WriteFile(host_, R"({"cards":[{"serial":"VTN1","model":"VT2912","device_id":"0x7C50",
          "subsystem_id":"0x0C60","pci_bus":59,"driver":{"version":"1.0-k","max_vports":8},"firmware":"9.12.01",
          "ports":[{"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:01:00","speed":32,
           "supported_speeds":[8,16,32],
           "targets":[{"wwpn":"50:00:00:00:00:00:00:01","port_id":"01:02:00","luns":[{"lun":0,"blocks":100}]},
                      {"wwpn":"50:00:00:00:00:00:00:02","port_id":"01:03:00","luns":[{"lun":0,"blocks":100}]}]}]}]})");
        setenv("VTSDM_HOST", host_.c_str(), 1);
        setenv("VTSDM_BACKEND", "linux", 1);
        vtsdm::Simulator sim(host_, vtsdm::DefaultStateDir());
        vtsdm::ExportSysfs(sim, root_.root());
        hostAttr_ = root_.path("/sys/class/fc_host/host1");
        rport_ = root_.path("/sys/class/fc_remote_ports/rport-1:0-0");
        pci_ = root_.path("/sys/bus/pci/devices/0000:3b:00.0");
        vtsdm::UnloadBackend();
    }
    void TearDown() override {
        if (h_) SDCloseDevice(h_);
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
        unsetenv("VTSDM_BACKEND");
    }
    uint32_t Open() {
        vtsdm::UnloadBackend();
        EXPECT_EQ(SDOpenDevice(0, &h_), SDERR_NONE);
        return h_;
    }
    void Set(const std::string &path, const std::string &text) { vttest::WriteFile(path, text + "\n"); }
    uint32_t ReportLuns(uint64_t target) {
        uint8_t buf[64], sense[SD_SENSE_BUFFER_SIZE], wwpn[8];
        uint32_t size = sizeof buf, senseSize = sizeof sense;
        vtsdm::WwnToBytes(target, wwpn);
        return SDSendScsiReportLunsCmdFC(h_, wwpn, buf, &size, sense, &senseSize);
    }
    SDDiscTargetProperty Target(size_t i) {
        SDDiscTargetProperty t[4];
        uint32_t count = 4;
        EXPECT_EQ(SDGetDiscTargetProperties(h_, t, &count), SDERR_NONE);
        EXPECT_GT(count, i);
        return t[i];
    }

    SysrootScope root_;
    std::string host_, hostAttr_, rport_, pci_;
    uint32_t h_ = 0;
};

TEST_F(NegativeTree, BlockedAndVanishedRemotePorts) {
    Set(rport_ + "/port_state", "Blocked");
    Set(root_.path("/sys/class/fc_remote_ports/rport-1:0-1/port_state"), "Not Present");
    Open();
    EXPECT_FALSE(Target(0).TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_FALSE(Target(1).TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_EQ(ReportLuns(0x5000000000000001ull), SDERR_LOOP_DOWN);  // comes back when the link does
    EXPECT_EQ(ReportLuns(0x5000000000000002ull), SDERR_NOT_FOUND);
    // A remote port whose directory went away between two calls.
    std::filesystem::remove_all(
        std::filesystem::canonical(root_.path("/sys/class/fc_remote_ports/rport-1:0-1")).parent_path().parent_path());
    uint32_t count = 0;
    EXPECT_EQ(SDGetDiscTargetProperties(h_, nullptr, &count), SDERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 1u);
}

TEST_F(NegativeTree, UnknownSpeedsAndMissingAttributes) {
    Set(hostAttr_ + "/speed", "unknown");
    Set(hostAttr_ + "/supported_speeds", "unknown");
    // Drivers that do not fill the FDMI attributes: the VPD gives model and serial.
    std::filesystem::remove(hostAttr_ + "/serial_number");
    std::filesystem::remove(hostAttr_ + "/model");
    std::filesystem::remove(hostAttr_ + "/port_id");
    std::filesystem::remove(hostAttr_ + "/driver_version");
    Open();
    SDPortProperty port;
    ASSERT_EQ(SDGetHbaDevicePortProperty(h_, &port), SDERR_NONE);
    EXPECT_EQ(port.PortState, SD_PORTSTATE_ONLINE);
    EXPECT_EQ(port.PortSpeed, 0u);
    EXPECT_EQ(port.SupportedSpeed, 0);
    EXPECT_EQ(port.PortId[0] | port.PortId[1] | port.PortId[2], 0);
    SDDriverProperty drv;
    ASSERT_EQ(SDGetHbaDeviceDriverProperty(h_, &drv), SDERR_NONE);
    EXPECT_FALSE(drv.Capabilities & SD_DRVCAP_SUPPORTED_SPEED);
    EXPECT_STREQ(drv.DriverVersion, "1.0-k");  // the module's version
    SDNodeProperty node;
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(h_, &node), SDERR_NONE);
    EXPECT_STREQ(node.SerialNumber, "VTN1");
    EXPECT_STREQ(node.Model, "VT2912");
}

TEST_F(NegativeTree, UnreadableOrMissingVpd) {
    std::filesystem::remove(pci_ + "/vpd");
    std::filesystem::create_directory(pci_ + "/vpd");  // reading it fails
    Open();
    uint8_t buf[512];
    uint32_t size = sizeof buf;
    EXPECT_EQ(SDGetVpd(h_, buf, &size), SDERR_IO_FAILED);
    std::filesystem::remove(pci_ + "/vpd");
    size = sizeof buf;
    EXPECT_EQ(SDGetVpd(h_, buf, &size), SDERR_NOT_SUPPORTED);
    // The serial number then stays as the FC transport gives it.
    SDNodeProperty node;
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(h_, &node), SDERR_NONE);
    EXPECT_STREQ(node.SerialNumber, "VTN1");
}

TEST_F(NegativeTree, WhatTheKernelHasNoInterfaceForIsNotSupported) {
    Open();
    uint8_t buf[512] = {};
    EXPECT_EQ(SDGetNVRam(h_, 0, 1, buf, sizeof buf), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDUpdateNVRam(h_, 0, 1, buf, sizeof buf), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDGetVariableValue(h_, buf, 1), 0xFFFFFFFFu);
    SDOptionRomLayout layout{};
    layout.Count = 1;
    EXPECT_EQ(SDGetOptionRomLayout(h_, 0, &layout, sizeof layout), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDGetOptionRomEx(h_, buf, 16, 1, 0), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDUpdateOptionRomEx2(h_, buf, 16, 1, 0, 0), SDERR_NOT_SUPPORTED);
    SDSfpFirmwareInfo sfp{};
    EXPECT_EQ(SDGetSfpFirmwareInfo(h_, &sfp), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDUpdateSfpFirmware(h_, buf, 16, 0), SDERR_NOT_SUPPORTED);
    SDDiagResult r;
    uint8_t rx[64];
    EXPECT_EQ(SDRunDiagLoopbackEx(h_, SD_LOOPBACK_INTERNAL_10BIT, buf, rx, 64, 1, &r), SDERR_NOT_SUPPORTED);
    SDQoS q{};
    uint8_t vp[8] = {0x21, 1, 0, 0x24, 0xff, 0, 0, 1};
    EXPECT_EQ(SDGetQoS(h_, vp, &q), SDERR_NOT_SUPPORTED);
    SDLinkErrorStatus les;
    uint8_t t[8] = {0x50, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(SDGetPortStatisticsFC(h_, t, &les), SDERR_NOT_SUPPORTED);
    EXPECT_STREQ(SDGetErrorString(SDERR_NOT_SUPPORTED), "Not supported on this adapter's driver");
}

TEST_F(NegativeTree, NoAdaptersAndBrokenClassLinks) {
    // A class entry whose device is gone is passed over.
    std::filesystem::remove(hostAttr_);
    std::filesystem::create_directory_symlink("../../devices/nowhere/host7/fc_host/host7",
                                              root_.path("/sys/class/fc_host/host7"));
    uint32_t h = 0;
    vtsdm::UnloadBackend();
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_NO_SUCH_DEVICE);
    std::filesystem::remove_all(root_.path("/sys/class/fc_host"));
    vtsdm::UnloadBackend();
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_NO_SUCH_DEVICE);
}

TEST(BackendChoice, EnvironmentThenConfigurationThenTheMachine) {
    SysrootScope root;
    unsetenv("VTSDM_BACKEND");
    // The build tree's vtsdm.conf says "auto": the tree decides.
    EXPECT_EQ(vtsdm::ChooseBackend().kind, vtsdm::BackendKind::Sim);
    std::filesystem::create_directories(root.path("/sys/class/fc_host/host3"));
    auto c = vtsdm::ChooseBackend();
    EXPECT_EQ(c.kind, vtsdm::BackendKind::Linux);
    EXPECT_EQ(c.reason, "detected");
    setenv("VTSDM_BACKEND", "sim", 1);
    EXPECT_EQ(vtsdm::ChooseBackend().kind, vtsdm::BackendKind::Sim);
    setenv("VTSDM_BACKEND", "lnux", 1);
    c = vtsdm::ChooseBackend();
    EXPECT_EQ(c.kind, vtsdm::BackendKind::Linux);
    EXPECT_NE(c.warning.find("lnux"), std::string::npos);
    unsetenv("VTSDM_BACKEND");

    EXPECT_EQ(vtsdm::ConfiguredBackend("# backend = linux\nbackend = sim\n"), "sim");
    EXPECT_EQ(vtsdm::ConfiguredBackend("  backend=linux   # here\n"), "linux");
    EXPECT_EQ(vtsdm::ConfiguredBackend("backends = linux\n"), "");
    EXPECT_EQ(vtsdm::ConfiguredBackend("backend = sim\nbackend = linux\n"), "linux");
}

TEST(BackendChoice, HandlesDoNotOutliveTheirBackend) {
    SysrootScope root;
    setenv("VTSDM_BACKEND", "sim", 1);
    vtsdm::UnloadBackend();
    uint32_t h = 0;
    ASSERT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
    char name[16];
    ASSERT_EQ(SDGetBackendName(name, sizeof name), SDERR_NONE);
    EXPECT_STREQ(name, "sim");
    setenv("VTSDM_BACKEND", "linux", 1);  // an empty tree: no adapters
    SDPortProperty p;
    EXPECT_EQ(SDGetHbaDevicePortProperty(h, &p), SDERR_INVALID_HANDLE);
    ASSERT_EQ(SDGetBackendName(name, sizeof name), SDERR_NONE);
    EXPECT_STREQ(name, "linux");
    char version[64];
    ASSERT_EQ(SDGetVersion(version, sizeof version), SDERR_NONE);
    EXPECT_STREQ(version, "vtsdm 1.0.0 (Linux FC transport)");
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_NO_SUCH_DEVICE);
    unsetenv("VTSDM_BACKEND");
    vtsdm::UnloadBackend();
}

TEST(BackendChoice, ToolShowsWhichBackendAnswers) {
    SysrootScope root;
    const std::string host = vttest::SourcePath("data/default_host.json");
    auto r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "--host", host, "export-sysfs", root.root()});
    ASSERT_EQ(r.status, 0) << r.err;
    r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "--host", host, "show", "--luns", "1"},
                    {"VTSDM_BACKEND=linux"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("Backend: linux (Linux FC transport at " + root.root() + "/sys", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("Instance 0: Port 0  WWPN 21:00:00:24:ff:7c:50:10"), std::string::npos);
    r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "--host", host, "show", "--luns", "1"}, {"VTSDM_BACKEND=sim"});
    EXPECT_EQ(r.out.rfind("Backend: sim (simulated host " + host + ")", 0), 0u) << r.out;
}

// On a machine with FC adapters, and only when asked (VTSDM_LIVE_TEST=1):
// the real /sys and the SCSI generic devices, read only.
TEST(Live, RealAdaptersThroughTheLinuxBackend) {
    const char *want = getenv("VTSDM_LIVE_TEST");
    const bool adapters =
        std::filesystem::exists("/sys/class/fc_host") && !std::filesystem::is_empty("/sys/class/fc_host");
    if (!want || std::string(want) != "1" || !adapters)
        GTEST_SKIP() << "live test skipped: it needs FC host adapters in /sys/class/fc_host (found "
                     << (adapters ? "some" : "none") << ") and VTSDM_LIVE_TEST=1";
    unsetenv("VTAPI_SYSROOT");
    vtsdm::linuxfc::LinuxBackend b(vtsdm::linuxfc::MakeSgTransport());
    vtsdm::PortKey key = 0;
    uint32_t found = 0;
    for (uint32_t i = 0; b.open(i, key) == SDERR_NONE; ++i, ++found) {
        SDPortProperty p;
        ASSERT_EQ(b.portProperty(key, p), SDERR_NONE);
        const auto name = vtsdm::linuxfc::ReadAttr(std::string("/sys/class/fc_host/") + p.DeviceName + "/port_name");
        ASSERT_TRUE(name);
        EXPECT_EQ(vtsdm::linuxfc::ParseHex(*name), vtsdm::WwnFromBytes(p.WWPN));
        std::vector<SDDiscTargetProperty> targets;
        EXPECT_EQ(b.discTargets(key, targets), SDERR_NONE);
    }
    EXPECT_GT(found, 0u);
}

}  // namespace
