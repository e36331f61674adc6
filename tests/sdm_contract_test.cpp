// One set of checks run against both backends of libvtsdm through the
// public SD... calls: the simulator directly, and the Linux backend over the
// sysfs tree "vtsdm-sim export-sysfs" makes of the same host, with the
// simulator answering its SCSI commands and acting the kernel's part for
// control writes.  Each check compares with the host file, not with the
// other backend.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend.h"
#include "fcnames.h"
#include "linux/linux_backend.h"
#include "simulator.h"
#include "sysfs_export.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using vttest::SysrootScope;

const char kHost[] = R"({"cards":[
 {"serial":"VTC0001","model":"VT2912","description":"VT2912 dual-port 64Gb Fibre Channel adapter",
  "device_id":"0x7C50","subsystem_vendor_id":"0x1077","subsystem_id":"0x0C60","chip_revision":2,"pci_bus":59,
  "driver":{"version":"10.02.09.100-k","luns_per_target":256,"max_vports":126,"max_vports_qos":8,"events":true},
  "firmware":"9.12.01","option_rom":{"bios":"3.67","fcode":"4.21","efi":"7.34","multiboot":"01.12.03"},
  "ports":[
   {"wwnn":"20:00:00:24:ff:7c:50:10","wwpn":"21:00:00:24:ff:7c:50:10","port_id":"0a:01:00","speed":64,
    "supported_speeds":[16,32,64],"fabric":{"name":"10:00:00:05:1e:aa:00:00"},
    "statistics":{"tx_frames":1000,"rx_frames":2000,"link_failure":3,"invalid_crc":4,"loss_of_sync":5,
                  "input_requests":50,"output_requests":60,"control_requests":7},
    "targets":[
     {"wwnn":"50:0a:09:80:00:00:a1:00","wwpn":"50:0a:09:81:00:00:a1:00","port_id":"0a:02:00",
      "luns":[{"lun":0,"type":"disk","product":"ARRAY 8200","revision":"8201","blocks":2097152,"os_name":"/dev/sdb"},
              {"lun":1,"type":"disk","product":"ARRAY 8200","revision":"8201","blocks":8589934592,"os_name":"/dev/sdc"},
              {"lun":2,"type":"disk","product":"ARRAY 8200","blocks":1000,"passive":true,"os_name":"/dev/sdd"},
              {"lun":300,"addressing":"flat","type":"disk","blocks":64,"block_size":4096,"os_name":"/dev/sde"}]},
     {"wwnn":"50:01:10:a0:00:01:70:00","wwpn":"50:01:10:a0:00:01:70:01","port_id":"0a:03:00","tape":true,
      "luns":[{"lun":0,"type":"tape","product":"ULTRIUM-9 SIM","os_name":"/dev/st0"}]},
     {"wwnn":"20:00:00:25:b5:00:0e:00","wwpn":"20:01:00:25:b5:00:0e:00","port_id":"0a:04:00","type":"nvme",
      "luns":[{"lun":1,"type":"disk","vendor":"NVMe","product":"VANTOR NS","revision":"1.0","blocks":1000000,
               "os_name":"/dev/nvme0n1"}]},
     {"wwnn":"50:0a:09:80:00:00:b2:00","wwpn":"50:0a:09:81:00:00:b2:00","port_id":"0a:05:00","logged_in":false,
      "luns":[{"lun":0}]}],
    "virtual_ports":[{"wwnn":"20:04:00:24:ff:7c:50:10","wwpn":"21:04:00:24:ff:7c:50:10","vport_id":1}]},
   {"wwnn":"20:00:00:24:ff:7c:50:11","wwpn":"21:00:00:24:ff:7c:50:11","port_id":"0b:01:00","state":"linkdown",
    "speed":32,"supported_speeds":[16,32,64],
    "targets":[{"wwpn":"50:0a:09:82:00:00:a1:00","port_id":"0b:02:00","luns":[{"lun":0,"blocks":10}]}]}]},
 {"serial":"VTC0002","model":"VT1812","description":"VT1812 converged network adapter","device_id":"0x6421",
  "subsystem_id":"0x0312","pci_bus":175,"driver":{"version":"10.02.09.101-k","max_vports":0,"events":true},
  "firmware":"8.55.10",
  "ports":[{"function":2,"port":0,"interface":"fcoe","enode_mac":"00:0e:1e:64:21:40","wwnn":"20:00:00:0e:1e:64:21:40",
            "wwpn":"21:00:00:0e:1e:64:21:40","port_id":"0c:01:00","speed":10,"supported_speeds":[]}]}]})";

constexpr uint64_t kPort0 = 0x21000024ff7c5010ull, kPort1 = 0x21000024ff7c5011ull, kFcoe = 0x2100000e1e642140ull;
constexpr uint64_t kVport = 0x21040024ff7c5010ull, kNewVport = 0x21050024ff7c5010ull;
constexpr uint64_t kArray = 0x500a09810000a100ull, kTape = 0x500110a000017001ull, kNvme = 0x20010025b5000e00ull;
constexpr uint64_t kAbsent = 0x500a09810000b200ull;

uint64_t Wwn(const uint8_t b[8]) { return vtsdm::WwnFromBytes(b); }

std::vector<uint8_t> Bytes(uint64_t wwn) {
    std::vector<uint8_t> b(8);
    vtsdm::WwnToBytes(wwn, b.data());
    return b;
}

uint32_t Be32(const uint8_t *p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

// A backend under test: the simulator, or the Linux backend over an
// exported tree of the same host.
class Contract : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        host_ = root_.path("/contract_host.json");
        vttest::WriteFile(host_, kHost);
        setenv("VTSDM_HOST", host_.c_str(), 1);
        setenv("VTSDM_BACKEND", GetParam().c_str(), 1);
        vtsdm::UnloadBackend();
        if (GetParam() == "linux") {
            kernel_ = std::make_unique<vtsdm::Simulator>(host_, vtsdm::DefaultStateDir());
            vtsdm::ExportSysfs(*kernel_, root_.root());
            auto access = vtsdm::AcquireBackend();
            auto *linux = dynamic_cast<vtsdm::linuxfc::LinuxBackend *>(access.backend);
            ASSERT_NE(linux, nullptr) << vtsdm::BackendError();
            linux->setControlWriteHook(
                [this](const std::string &) { vtsdm::ApplySysfsWrites(*kernel_, root_.root()); });
        }
    }
    void TearDown() override {
        for (uint32_t h : open_) SDCloseDevice(h);
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
        unsetenv("VTSDM_BACKEND");
    }

    // Changes the link of a physical port as the fabric would: in the
    // simulator's state, and for the Linux backend in the tree as well.
    void SetLink(uint32_t instance, uint16_t state) {
        vtsdm::Simulator sim(host_, vtsdm::DefaultStateDir());
        ASSERT_EQ(sim.setLinkState(instance, state, false), SDERR_NONE);
        if (kernel_) vtsdm::ExportSysfs(*kernel_, root_.root());
    }

    // Every instance, opened: WWPN -> handle.
    std::map<uint64_t, uint32_t> OpenAll() {
        std::map<uint64_t, uint32_t> out;
        for (uint32_t i = 0; i < SD_MAX_INSTANCES; ++i) {
            uint32_t h = 0;
            const uint32_t rc = SDOpenDevice(i, &h);
            if (rc == SDERR_NO_SUCH_DEVICE) break;
            EXPECT_EQ(rc, SDERR_NONE) << "instance " << i;
            if (rc) continue;
            open_.push_back(h);
            SDPortProperty p;
            EXPECT_EQ(SDGetHbaDevicePortProperty(h, &p), SDERR_NONE);
            out[Wwn(p.WWPN)] = h;
        }
        return out;
    }

    uint32_t Handle(uint64_t wwpn) {
        auto all = OpenAll();
        auto it = all.find(wwpn);
        EXPECT_NE(it, all.end());
        return it == all.end() ? 0 : it->second;
    }

    struct Scsi {
        uint32_t rc = 0;
        std::vector<uint8_t> data, sense;
    };
    Scsi Inquiry(uint32_t h, uint64_t target, uint16_t lun) {
        Scsi r;
        r.data.resize(36);
        r.sense.resize(SD_SENSE_BUFFER_SIZE);
        uint32_t size = 36, senseSize = uint32_t(r.sense.size());
        const auto t = Bytes(target);
        r.rc = SDSendScsiInquiryCmdFC(h, t.data(), lun, 0, 0, r.data.data(), &size, r.sense.data(), &senseSize);
        r.data.resize(size);
        r.sense.resize(senseSize);
        return r;
    }
    Scsi ReportLuns(uint32_t h, uint64_t target) {
        Scsi r;
        r.data.resize(8 + 8 * 64);
        r.sense.resize(SD_SENSE_BUFFER_SIZE);
        uint32_t size = uint32_t(r.data.size()), senseSize = uint32_t(r.sense.size());
        const auto t = Bytes(target);
        r.rc = SDSendScsiReportLunsCmdFC(h, t.data(), r.data.data(), &size, r.sense.data(), &senseSize);
        r.data.resize(size);
        r.sense.resize(senseSize);
        return r;
    }
    // LUN numbers of a REPORT LUNS answer, address-method bits cleared.
    static std::vector<uint16_t> Luns(const Scsi &r) {
        std::vector<uint16_t> out;
        if (r.data.size() < 8) return out;
        const uint32_t n = Be32(r.data.data()) / 8;
        for (uint32_t i = 0; i < n && 8 + 8 * i + 2 <= r.data.size(); ++i)
            out.push_back(uint16_t(((r.data[8 + 8 * i] & 0x3F) << 8) | r.data[9 + 8 * i]));
        return out;
    }

    SysrootScope root_;
    std::string host_;
    std::unique_ptr<vtsdm::Simulator> kernel_;  // the Linux backend's "kernel"
    std::vector<uint32_t> open_;
};

TEST_P(Contract, DiscoversPortsWithTheirProperties) {
    auto all = OpenAll();
    // Three port functions and the virtual port, physical ones first.
    ASSERT_EQ(all.size(), 4u);
    uint32_t h = 0;
    ASSERT_EQ(SDOpenDevice(3, &h), SDERR_NONE);
    open_.push_back(h);
    SDNodeProperty node;
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(h, &node), SDERR_NONE);
    EXPECT_EQ(node.Interface, SD_INTERFACE_VPORT);
    EXPECT_EQ(node.VPortId, 1);
    EXPECT_EQ(Wwn(node.ParentWWPN), kPort0);
    EXPECT_EQ(node.ParentInstance, 0u);
    EXPECT_EQ(Wwn(node.WWNN), 0x20040024ff7c5010ull);

    SDChipProperty chip;
    SDPortProperty port;
    SDDriverProperty drv;
    ASSERT_EQ(SDGetHbaDeviceChipProperty(all[kPort1], &chip), SDERR_NONE);
    EXPECT_EQ(chip.VendorID, 0x1077);
    EXPECT_EQ(chip.DeviceID, 0x7C50);
    EXPECT_EQ(chip.SubSystemID, 0x0C60);
    EXPECT_EQ(chip.ChipRevision, 2);
    EXPECT_EQ(chip.PciBusNumber, 59);
    EXPECT_EQ(chip.PciDevFunc, 1);
    EXPECT_EQ(chip.PhysPortNumber, 1);
    EXPECT_EQ(chip.NumberOfPorts, 2);
    EXPECT_EQ(chip.IspType, 27u);

    ASSERT_EQ(SDGetHbaDeviceNodeProperty(all[kPort0], &node), SDERR_NONE);
    EXPECT_EQ(node.Interface, SD_INTERFACE_FC);
    EXPECT_STREQ(node.SerialNumber, "VTC0001");
    EXPECT_STREQ(node.Model, "VT2912");
    EXPECT_STREQ(node.ModelDescription, "VT2912 dual-port 64Gb Fibre Channel adapter");
    EXPECT_STREQ(node.FirmwareVersion, "9.12.01");
    EXPECT_EQ(node.FlashFwVersion[1], 12);
    ASSERT_EQ(SDGetHbaDeviceDriverProperty(all[kPort0], &drv), SDERR_NONE);
    EXPECT_STREQ(drv.DriverName, "vtfc");
    EXPECT_STREQ(drv.DriverVersion, "10.02.09.100-k");
    EXPECT_EQ(drv.MaxVports, 126u);
    EXPECT_TRUE(drv.Capabilities & SD_DRVCAP_AEN);
    ASSERT_EQ(SDGetHbaDevicePortProperty(all[kPort0], &port), SDERR_NONE);
    EXPECT_EQ(port.PortState, SD_PORTSTATE_ONLINE);
    EXPECT_EQ(port.PortSpeed, SD_SPEED_64G);
    EXPECT_EQ(port.SupportedSpeed, SD_SUPPORTED_16G | SD_SUPPORTED_32G | SD_SUPPORTED_64G);
    EXPECT_EQ(port.PortId[0], 0x0a);
    EXPECT_EQ(port.PortId[1], 0x01);
    EXPECT_EQ(port.DiscoveredTargets, 4u);
    EXPECT_EQ(port.NumberOfVports, 1u);
    EXPECT_EQ(Wwn(port.FabricName), 0x100000051eaa0000ull);
    EXPECT_STREQ(port.DeviceName, "host1");

    // A port whose link is down has no speed.
    ASSERT_EQ(SDGetHbaDevicePortProperty(all[kPort1], &port), SDERR_NONE);
    EXPECT_EQ(port.PortState, SD_PORTSTATE_LINKDOWN);
    EXPECT_EQ(port.PortSpeed, 0u);

    // The converged card's FCoE function, its own card of one port.
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(all[kFcoe], &node), SDERR_NONE);
    EXPECT_EQ(node.Interface, SD_INTERFACE_FCOE);
    EXPECT_STREQ(node.SerialNumber, "VTC0002");
    ASSERT_EQ(SDGetHbaDeviceDriverProperty(all[kFcoe], &drv), SDERR_NONE);
    EXPECT_STREQ(drv.DriverVersion, "10.02.09.101-k");
    ASSERT_EQ(SDGetHbaDeviceChipProperty(all[kFcoe], &chip), SDERR_NONE);
    EXPECT_EQ(chip.PciDevFunc, 2);
    EXPECT_EQ(chip.NumberOfPorts, 1);
    ASSERT_EQ(SDGetHbaDevicePortProperty(all[kFcoe], &port), SDERR_NONE);
    EXPECT_EQ(port.EnodeMAC[5], 0x40);
    EXPECT_EQ(port.SupportedSpeed, 0);

    // VPD: the card's serial number and part number.
    std::vector<uint8_t> vpd(4096);
    uint32_t size = uint32_t(vpd.size());
    ASSERT_EQ(SDGetVpd(all[kPort0], vpd.data(), &size), SDERR_NONE);
    const std::string text(vpd.begin(), vpd.begin() + size);
    EXPECT_NE(text.find("VTC0001"), std::string::npos);
    EXPECT_NE(text.find("VT2912"), std::string::npos);
}

TEST_P(Contract, ReportsRemotePortsWithLoginTypeAndTape) {
    const uint32_t h = Handle(kPort0);
    uint32_t count = 0;
    ASSERT_EQ(SDGetDiscTargetProperties(h, nullptr, &count), SDERR_BUFFER_TOO_SMALL);
    ASSERT_EQ(count, 4u);
    std::vector<SDDiscTargetProperty> t(count);
    ASSERT_EQ(SDGetDiscTargetProperties(h, t.data(), &count), SDERR_NONE);
    std::map<uint64_t, SDDiscTargetProperty> by;
    for (const auto &d : t) by[Wwn(d.WWPN)] = d;
    ASSERT_EQ(by.size(), 4u);
    EXPECT_EQ(Wwn(by[kArray].WWNN), 0x500a09800000a100ull);
    EXPECT_EQ(by[kArray].PortId[1], 0x02);
    EXPECT_EQ(by[kArray].TargetType, SD_TARGETTYPE_FCP);
    EXPECT_TRUE(by[kArray].TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_TRUE(by[kArray].TargetFlags & SD_TGTFLAG_TARGET);
    EXPECT_FALSE(by[kArray].TargetFlags & SD_TGTFLAG_TAPE);
    EXPECT_TRUE(by[kTape].TargetFlags & SD_TGTFLAG_TAPE);
    EXPECT_EQ(by[kNvme].TargetType, SD_TARGETTYPE_NVME);
    EXPECT_FALSE(by[kAbsent].TargetFlags & SD_TGTFLAG_LOGGED_IN);
    // Target numbers follow the remote ports' order.
    EXPECT_EQ(by[kArray].TargetId, 0);
    EXPECT_EQ(by[kAbsent].TargetId, 3);

    // Behind a port whose link is down, nobody is logged in.
    const uint32_t down = Handle(kPort1);
    count = 1;
    ASSERT_EQ(SDGetDiscTargetProperties(down, t.data(), &count), SDERR_NONE);
    ASSERT_EQ(count, 1u);
    EXPECT_FALSE(t[0].TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_EQ(ReportLuns(down, Wwn(t[0].WWPN)).rc, SDERR_LOOP_DOWN);
}

TEST_P(Contract, AnswersScsiCommandsForLuns) {
    const uint32_t h = Handle(kPort0);
    Scsi rl = ReportLuns(h, kArray);
    ASSERT_EQ(rl.rc, SDERR_NONE);
    EXPECT_EQ(Luns(rl), (std::vector<uint16_t>{0, 1, 2, 300}));
    EXPECT_EQ(rl.data[8 + 3 * 8] & 0xC0, 0x40);  // LUN 300 in flat-space addressing

    EXPECT_EQ(Inquiry(h, kArray, 300).data.at(0), 0x00);
    Scsi inq = Inquiry(h, kArray, 0);
    ASSERT_EQ(inq.rc, SDERR_NONE);
    ASSERT_EQ(inq.data.size(), 36u);
    EXPECT_EQ(std::string(inq.data.begin() + 16, inq.data.begin() + 26), "ARRAY 8200");
    Scsi tape = Inquiry(h, kTape, 0);
    ASSERT_EQ(tape.rc, SDERR_NONE);
    EXPECT_EQ(tape.data[0] & 0x1F, 0x01);
    // A LUN that is not there is not reported as a connected unit.
    Scsi none = Inquiry(h, kArray, 7);
    EXPECT_TRUE(none.rc != SDERR_NONE || (none.data.size() && none.data[0] >= 0x40));

    // 4.4 TB: READ CAPACITY(10) overflows, READ CAPACITY(16) tells.
    const auto arr = Bytes(kArray);
    uint8_t cap[32] = {}, sense[SD_SENSE_BUFFER_SIZE];
    uint32_t capSize = 8, senseSize = sizeof sense;
    ASSERT_EQ(SDSendScsiReadCapacityCmdFC(h, arr.data(), 1, cap, &capSize, sense, &senseSize), SDERR_NONE);
    EXPECT_EQ(Be32(cap), 0xFFFFFFFFu);
    capSize = 32;
    senseSize = sizeof sense;
    ASSERT_EQ(SDSendScsiReadCapacityLargeCmdFC(h, arr.data(), 1, cap, &capSize, sense, &senseSize), SDERR_NONE);
    EXPECT_EQ((uint64_t(Be32(cap)) << 32 | Be32(cap + 4)) + 1, 8589934592ull);
    capSize = 8;
    ASSERT_EQ(SDSendScsiReadCapacityCmdFC(h, arr.data(), 300, cap, &capSize, sense, &senseSize), SDERR_NONE);
    EXPECT_EQ(Be32(cap), 63u);
    EXPECT_EQ(Be32(cap + 4), 4096u);

    // The passive path is not ready; the active one is.
    senseSize = sizeof sense;
    EXPECT_EQ(SDSendScsiTestUnitReadyCmdFC(h, arr.data(), 2, sense, &senseSize), SDERR_SCSI_CHECK_CONDITION);
    EXPECT_EQ(sense[2] & 0x0F, 0x02);
    senseSize = sizeof sense;
    EXPECT_EQ(SDSendScsiTestUnitReadyCmdFC(h, arr.data(), 0, sense, &senseSize), SDERR_NONE);

    // Write buffer, read it back.
    const uint8_t pattern[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    senseSize = sizeof sense;
    ASSERT_EQ(SDSendScsiWriteBufferCmdFC(h, arr.data(), 0, pattern, sizeof pattern, sense, &senseSize), SDERR_NONE);
    uint8_t back[8] = {};
    uint32_t backSize = sizeof back;
    senseSize = sizeof sense;
    ASSERT_EQ(SDSendScsiReadBufferCmdFC(h, arr.data(), 0, back, &backSize, sense, &senseSize), SDERR_NONE);
    EXPECT_EQ(memcmp(back, pattern, sizeof back), 0);

    // OS device names: disks, tapes, NVMe namespaces; none for a LUN without one.
    char name[64];
    ASSERT_EQ(SDGetLunOSDeviceName(h, arr.data(), 300, name, sizeof name), SDERR_NONE);
    EXPECT_STREQ(name, "/dev/sde");
    const auto tp = Bytes(kTape), nv = Bytes(kNvme);
    ASSERT_EQ(SDGetLunOSDeviceName(h, tp.data(), 0, name, sizeof name), SDERR_NONE);
    EXPECT_STREQ(name, "/dev/st0");
    ASSERT_EQ(SDGetLunOSDeviceName(h, nv.data(), 1, name, sizeof name), SDERR_NONE);
    EXPECT_STREQ(name, "/dev/nvme0n1");
    EXPECT_EQ(SDGetLunOSDeviceName(h, arr.data(), 7, name, sizeof name), SDERR_NOT_FOUND);

    // The NVMe target's namespace as a LUN.
    Scsi nvl = ReportLuns(h, kNvme);
    ASSERT_EQ(nvl.rc, SDERR_NONE);
    EXPECT_EQ(Luns(nvl), (std::vector<uint16_t>{1}));
    Scsi nvi = Inquiry(h, kNvme, 1);
    ASSERT_EQ(nvi.rc, SDERR_NONE);
    EXPECT_EQ(std::string(nvi.data.begin() + 8, nvi.data.begin() + 12), "NVMe");

    // Nobody answers for a target that is not logged in.
    EXPECT_EQ(ReportLuns(h, kAbsent).rc, SDERR_NOT_FOUND);
    EXPECT_EQ(ReportLuns(h, 0x1122334455667788ull).rc, SDERR_NOT_FOUND);
    // The virtual port sees the same targets.
    EXPECT_EQ(Luns(ReportLuns(Handle(kVport), kArray)), (std::vector<uint16_t>{0, 1, 2, 300}));
}

TEST_P(Contract, StatisticsAndTheirReset) {
    const uint32_t h = Handle(kPort0);
    SDStatistics s;
    ASSERT_EQ(SDGetStatistics(h, &s), SDERR_NONE);
    EXPECT_EQ(s.TxFrames, 1000u);
    EXPECT_EQ(s.RxFrames, 2000u);
    EXPECT_EQ(s.InputRequests, 50u);
    EXPECT_EQ(s.OutputRequests, 60u);
    EXPECT_EQ(s.ControlRequests, 7u);
    EXPECT_EQ(s.LinkFailureCount, 3u);
    EXPECT_EQ(s.LossOfSyncCount, 5u);
    EXPECT_EQ(s.InvalidCRCCount, 4u);
    ASSERT_EQ(SDResetStatistics(h), SDERR_NONE);
    ASSERT_EQ(SDGetStatistics(h, &s), SDERR_NONE);
    EXPECT_EQ(s.TxFrames, 0u);
    EXPECT_EQ(s.LinkFailureCount, 0u);
    EXPECT_EQ(s.InputRequests, 0u);
}

TEST_P(Contract, LinkChangesArriveAsEvents) {
    const uint32_t h = Handle(kPort0);
    SDAenRecord ev[8];
    uint32_t count = 0;
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    EXPECT_EQ(count, 0u);
    SetLink(0, SD_PORTSTATE_LINKDOWN);
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(ev[0].Code, SD_AEN_LINK_DOWN);
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    EXPECT_EQ(count, 0u);
    SetLink(0, SD_PORTSTATE_ONLINE);
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(ev[0].Code, SD_AEN_LINK_UP);
}

TEST_P(Contract, VirtualPortsAreCreatedAndDeleted) {
    const uint32_t parent = Handle(kPort0);
    const auto wwpn = Bytes(kNewVport), wwnn = Bytes(0x20050024ff7c5010ull);
    uint16_t id = 0;
    ASSERT_EQ(SDCreateVport(parent, wwnn.data(), wwpn.data(), &id), SDERR_NONE);
    EXPECT_EQ(id, 2);
    auto all = OpenAll();
    ASSERT_EQ(all.size(), 5u);
    ASSERT_TRUE(all.count(kNewVport));
    const uint32_t v = all[kNewVport];
    SDNodeProperty node;
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(v, &node), SDERR_NONE);
    EXPECT_EQ(node.Interface, SD_INTERFACE_VPORT);
    EXPECT_EQ(node.VPortId, 2);
    EXPECT_EQ(Wwn(node.WWNN), 0x20050024ff7c5010ull);
    SDPortProperty port;
    ASSERT_EQ(SDGetHbaDevicePortProperty(parent, &port), SDERR_NONE);
    EXPECT_EQ(port.NumberOfVports, 2u);

    // A WWPN already in use, a virtual port as parent, a port without NPIV.
    uint16_t other = 0;
    EXPECT_EQ(SDCreateVport(parent, nullptr, Bytes(kVport).data(), &other), SDERR_INVALID_PARAMETER);
    EXPECT_EQ(SDCreateVport(v, nullptr, Bytes(0x21060024ff7c5010ull).data(), &other), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDCreateVport(all[kFcoe], nullptr, Bytes(0x21060024ff7c5010ull).data(), &other), SDERR_NOT_SUPPORTED);

    ASSERT_EQ(SDDeleteVport(parent, wwpn.data()), SDERR_NONE);
    EXPECT_EQ(SDGetHbaDeviceNodeProperty(v, &node), SDERR_DEVICE_REMOVED);
    EXPECT_EQ(SDDeleteVport(parent, wwpn.data()), SDERR_NOT_FOUND);
    open_.clear();
    EXPECT_EQ(OpenAll().size(), 4u);
}

TEST_P(Contract, HandlesAndArgumentsAreChecked) {
    uint32_t h = 0;
    EXPECT_EQ(SDOpenDevice(4, &h), SDERR_NO_SUCH_DEVICE);
    EXPECT_EQ(SDOpenDevice(0, nullptr), SDERR_INVALID_PARAMETER);
    SDPortProperty port;
    EXPECT_EQ(SDGetHbaDevicePortProperty(0xDEAD, &port), SDERR_INVALID_HANDLE);
    ASSERT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
    EXPECT_EQ(SDGetHbaDevicePortProperty(h, nullptr), SDERR_INVALID_PARAMETER);
    EXPECT_EQ(SDCloseDevice(h), SDERR_NONE);
    EXPECT_EQ(SDCloseDevice(h), SDERR_INVALID_HANDLE);
    char name[8];
    EXPECT_EQ(SDGetBackendName(name, sizeof name), SDERR_NONE);
    EXPECT_EQ(std::string(name), GetParam());
    EXPECT_EQ(SDGetBackendName(name, 2), SDERR_BUFFER_TOO_SMALL);
}

INSTANTIATE_TEST_SUITE_P(Backends, Contract, ::testing::Values("sim", "linux"),
                         [](const auto &info) { return info.param; });

}  // namespace
