// The simulated host through the public SD... interface: host loading, SCSI
// emulation, NVRAM, flash, events, faults, virtual ports and persistence.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host.h"
#include "nvram_map.h"
#include "simulator.h"
#include "sim_testutil.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using vttest::SysrootScope;

const std::string kCard = R"({"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
  "firmware":"9.12.01","option_rom":{"bios":"3.67","fcode":"4.21","efi":"7.34","multiboot":"01.12.03"},
  "ports":[PORTS]})";

// A host with one card whose ports are given.
std::string HostWithPorts(const std::string &ports) {
    std::string card = kCard;
    card.replace(card.find("PORTS"), 5, ports);
    return R"({"cards":[)" + card + "]}";
}

const std::string kPort = R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:0a:00",
  "speed":32,"supported_speeds":[8,16,32],
  "targets":[
   {"wwpn":"50:00:00:00:00:00:00:01","port_id":"01:0b:00",
    "luns":[{"lun":0,"type":"disk","blocks":2048,"product":"SMALL"},
            {"lun":1,"type":"disk","blocks":8589934592,"block_size":512},
            {"lun":2,"type":"tape"},
            {"lun":5,"type":"disk","blocks":100,"passive":true},
            {"lun":6,"type":"disk","blocks":100,"inquiry_fails":true},
            {"lun":300,"addressing":"flat","blocks":64}],
    "faults":{"report_luns_busy":2,"read_capacity_unit_attention":1}},
   {"wwpn":"50:00:00:00:00:00:00:02","logged_in":false,"luns":[{"lun":0}]},
   {"wwpn":"50:00:00:00:00:00:00:03","type":"nvme","lun_range":{"start":1,"count":3,"blocks":1000}},
   {"wwpn":"50:00:00:00:00:00:00:04","luns":[{"lun":0}],"faults":{"report_luns_unit_attention":3,"removed":false}}],
  "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01","qos_value":30}],
  "faults":{"open_unavailable":2}})";

class SimTest : public vttest::SimHostTest {
protected:
    void SetUp() override { UseHost(HostWithPorts(kPort)); }
    // Opens an instance, riding out injected "retry" answers.
    uint32_t Open(uint32_t instance) {
        uint32_t h = 0, rc;
        for (int i = 0; i < 5 && (rc = SDOpenDevice(instance, &h)) == SDERR_DEVICE_UNAVAILABLE; ++i) {
        }
        EXPECT_EQ(rc, SDERR_NONE);
        return h;
    }
    std::vector<std::string> SimTool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        auto r = vttest::Run(args, {"VTSDM_HOST=" + hostFile_});
        return {std::to_string(r.status), r.out, r.err};
    }

    uint8_t target1_[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x01};
    uint8_t sense_[SD_SENSE_BUFFER_SIZE] = {};
    uint32_t senseSize_ = sizeof sense_;
};

TEST_F(SimTest, HostFileErrorsNameTheFileAndField) {
    struct Case {
        std::string json, expect;
    } cases[] = {
        {"{\"cards\": [", "not valid JSON"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01"})"), "cards[0].ports[0].wwpn: missing"},
        {HostWithPorts(R"({"wwnn":"20:00","wwpn":"21:00:00:24:ff:00:00:01"})"),
         "cards[0].ports[0].wwnn: expected a WWN"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","sped":8})"),
         "cards[0].ports[0].sped: unknown field"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","speed":12})"),
         "cards[0].ports[0].speed: unknown speed 12"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01"},
                          {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:01"})"),
         "is already used by"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01",
                           "targets":[{"wwpn":"50:00:00:00:00:00:00:01","luns":[{"lun":1},{"lun":1}]}]})"),
         "LUN 1 is listed twice"},
        {HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01",
                           "targets":[{"wwpn":"50:00:00:00:00:00:00:01","luns":[{"lun":0,"type":"floppy"}]}]})"),
         "targets[0].luns[0].type: unknown device type \"floppy\""},
        {R"({"cards":[{"serial":"S","model":"M","device_id":"0x7C50","copies":16,"ports":[
             {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01"},
             {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02"}]}]})",
         "at most 31 instances"},
    };
    for (const auto &c : cases) {
        try {
            vtsdm::ParseHost(c.json, "/x/host.json");
            ADD_FAILURE() << "accepted: " << c.json;
        } catch (const vtsdm::HostError &e) {
            EXPECT_NE(std::string(e.what()).find("host file /x/host.json: "), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find(c.expect), std::string::npos) << e.what();
        }
    }
    // Through the library: the call fails and nothing is written.
    UseHost(HostWithPorts(R"({"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"bad"})"));
    uint32_t h;
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_IO_FAILED);
    EXPECT_NE(vtsdm::BackendError().find("ports[0].wwpn"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(root_.path("/var/lib/vtsdm")));
}

TEST_F(SimTest, InstancesPropertiesAndOpenFaults) {
    uint32_t h;
    // Two injected "temporarily unavailable" answers, then success.
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_DEVICE_UNAVAILABLE);
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_DEVICE_UNAVAILABLE);
    ASSERT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
    uint32_t vh;
    ASSERT_EQ(SDOpenDevice(1, &vh), SDERR_NONE);  // the virtual port follows the physical ones
    uint32_t none;
    EXPECT_EQ(SDOpenDevice(2, &none), SDERR_NO_SUCH_DEVICE);

    SDChipProperty chip;
    SDNodeProperty node;
    SDPortProperty port;
    ASSERT_EQ(SDGetHbaDeviceChipProperty(h, &chip), SDERR_NONE);
    EXPECT_EQ(chip.VendorID, 0x1077);
    EXPECT_EQ(chip.DeviceID, 0x7C50);
    EXPECT_EQ(chip.IspType, 27u);
    EXPECT_EQ(chip.NvramSize, 512u);
    ASSERT_EQ(SDGetHbaDeviceNodeProperty(h, &node), SDERR_NONE);
    EXPECT_STREQ(node.SerialNumber, "S1");
    EXPECT_EQ(node.Interface, SD_INTERFACE_FC);
    EXPECT_EQ(node.FlashFwVersion[0], 9);
    EXPECT_EQ(node.FlashFwVersion[1], 12);
    ASSERT_EQ(SDGetHbaDevicePortProperty(h, &port), SDERR_NONE);
    EXPECT_EQ(port.PortSpeed, SD_SPEED_32G);
    EXPECT_EQ(port.SupportedSpeed, SD_SUPPORTED_8G | SD_SUPPORTED_16G | SD_SUPPORTED_32G);
    EXPECT_EQ(port.PortId[0], 0x01);
    EXPECT_EQ(port.PortId[1], 0x0a);
    EXPECT_EQ(port.NumberOfVports, 1u);

    ASSERT_EQ(SDGetHbaDeviceNodeProperty(vh, &node), SDERR_NONE);
    EXPECT_EQ(node.Interface, SD_INTERFACE_VPORT);
    EXPECT_EQ(node.VPortId, 1);
    EXPECT_EQ(node.ParentInstance, 0u);

    uint32_t count = 0;
    EXPECT_EQ(SDGetDiscTargetProperties(h, nullptr, &count), SDERR_BUFFER_TOO_SMALL);
    ASSERT_EQ(count, 4u);
    std::vector<SDDiscTargetProperty> t(count);
    ASSERT_EQ(SDGetDiscTargetProperties(h, t.data(), &count), SDERR_NONE);
    EXPECT_TRUE(t[0].TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_FALSE(t[1].TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_EQ(t[2].TargetType, SD_TARGETTYPE_NVME);
    EXPECT_EQ(t[0].TargetType, SD_TARGETTYPE_FCP);
    EXPECT_EQ(SDCloseDevice(h), SDERR_NONE);
    EXPECT_EQ(SDGetHbaDevicePortProperty(h, &port), SDERR_INVALID_HANDLE);
}

TEST_F(SimTest, ReportLunsLayoutWithFlatSpaceAndBusyRetries) {
    uint32_t h = Open(0);
    std::vector<uint8_t> buf(4096);
    uint32_t size = uint32_t(buf.size());
    // Injected: busy twice, then the list.
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, target1_, buf.data(), &size, sense_, &senseSize_), SDERR_DEVICE_BUSY);
    size = uint32_t(buf.size());
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, target1_, buf.data(), &size, sense_, &senseSize_), SDERR_DEVICE_BUSY);
    size = uint32_t(buf.size());
    ASSERT_EQ(SDSendScsiReportLunsCmdFC(h, target1_, buf.data(), &size, sense_, &senseSize_), SDERR_NONE);
    ASSERT_EQ(size, 8u + 6 * 8);
    EXPECT_EQ(buf[3], 6 * 8);  // list length in bytes, big-endian
    EXPECT_EQ(buf[8 + 1], 0);
    EXPECT_EQ(buf[16 + 1], 1);
    // LUN 300 in flat space: 0x40 | 1, 300 - 256.
    EXPECT_EQ(buf[8 + 5 * 8], 0x41);
    EXPECT_EQ(buf[8 + 5 * 8 + 1], 300 - 256);
    // A short buffer keeps the full list length in the header.
    uint8_t small[16];
    size = sizeof small;
    ASSERT_EQ(SDSendScsiReportLunsCmdFC(h, target1_, small, &size, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(small[3], 6 * 8);

    // Unit attention three times on another target, with sense key 6.
    uint8_t target4[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x04};
    for (int i = 0; i < 3; ++i) {
        size = uint32_t(buf.size());
        senseSize_ = sizeof sense_;
        ASSERT_EQ(SDSendScsiReportLunsCmdFC(h, target4, buf.data(), &size, sense_, &senseSize_),
                  SDERR_SCSI_CHECK_CONDITION);
        EXPECT_EQ(sense_[0], 0x70);
        EXPECT_EQ(sense_[2] & 0x0F, 0x06);
        EXPECT_EQ(sense_[12], 0x29);
    }
    size = uint32_t(buf.size());
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, target4, buf.data(), &size, sense_, &senseSize_), SDERR_NONE);

    uint8_t notLoggedIn[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x02};
    size = uint32_t(buf.size());
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, notLoggedIn, buf.data(), &size, sense_, &senseSize_), SDERR_NOT_FOUND);
}

TEST_F(SimTest, InquiryAndReadCapacity) {
    uint32_t h = Open(0);
    uint8_t inq[36];
    uint32_t n = sizeof inq;
    ASSERT_EQ(SDSendScsiInquiryCmdFC(h, target1_, 0, 0, 0, inq, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(n, 36u);
    EXPECT_EQ(inq[0], 0x00);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(inq + 16), 16), "SMALL           ");
    n = sizeof inq;
    ASSERT_EQ(SDSendScsiInquiryCmdFC(h, target1_, 2, 0, 0, inq, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(inq[0] & 0x1F, 0x01);  // tape
    EXPECT_EQ(inq[1], 0x80);         // removable medium
    n = sizeof inq;
    ASSERT_EQ(SDSendScsiInquiryCmdFC(h, target1_, 9, 0, 0, inq, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(inq[0], 0x7F);  // qualifier 3: no such LUN
    n = sizeof inq;
    senseSize_ = sizeof sense_;
    EXPECT_EQ(SDSendScsiInquiryCmdFC(h, target1_, 6, 0, 0, inq, &n, sense_, &senseSize_), SDERR_SCSI_CHECK_CONDITION);
    EXPECT_EQ(sense_[2] & 0x0F, 0x04);
    uint8_t page[64];
    n = sizeof page;
    ASSERT_EQ(SDSendScsiInquiryCmdFC(h, target1_, 1, 1, 0x83, page, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(page[1], 0x83);
    EXPECT_EQ(page[8] >> 4, 0x6);  // NAA 6

    // READ CAPACITY(10) of a 4 TiB LUN saturates; (16) gives the real size.
    uint8_t cap[32];
    n = 8;
    senseSize_ = sizeof sense_;
    // The first READ CAPACITY meets the injected unit attention.
    EXPECT_EQ(SDSendScsiReadCapacityCmdFC(h, target1_, 1, cap, &n, sense_, &senseSize_), SDERR_SCSI_CHECK_CONDITION);
    EXPECT_EQ(sense_[2] & 0x0F, 0x06);
    n = 8;
    ASSERT_EQ(SDSendScsiReadCapacityCmdFC(h, target1_, 1, cap, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(cap[0] & cap[1] & cap[2] & cap[3], 0xFF);
    n = 32;
    ASSERT_EQ(SDSendScsiReadCapacityLargeCmdFC(h, target1_, 1, cap, &n, sense_, &senseSize_), SDERR_NONE);
    uint64_t last = 0;
    for (int i = 0; i < 8; ++i) last = (last << 8) | cap[i];
    EXPECT_EQ(last, 8589934592ull - 1);
    EXPECT_EQ(cap[10], 0x02);  // 512-byte blocks
    n = 8;
    ASSERT_EQ(SDSendScsiReadCapacityCmdFC(h, target1_, 0, cap, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(cap[2], 0x07);
    EXPECT_EQ(cap[3], 0xFF);  // 2048 blocks: last LBA 2047
    n = 8;
    EXPECT_EQ(SDSendScsiReadCapacityCmdFC(h, target1_, 2, cap, &n, sense_, &senseSize_), SDERR_SCSI_CHECK_CONDITION);

    // The passive path answers TEST UNIT READY with "standby".
    senseSize_ = sizeof sense_;
    ASSERT_EQ(SDSendScsiTestUnitReadyCmdFC(h, target1_, 5, sense_, &senseSize_), SDERR_SCSI_CHECK_CONDITION);
    EXPECT_EQ(sense_[2] & 0x0F, 0x02);
    EXPECT_EQ(sense_[13], 0x0B);
    EXPECT_EQ(SDSendScsiTestUnitReadyCmdFC(h, target1_, 0, sense_, &senseSize_), SDERR_NONE);
}

TEST_F(SimTest, NvramVariablesAndChecksum) {
    uint32_t h = Open(0);
    std::vector<uint8_t> img(512);
    ASSERT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);
    EXPECT_TRUE(vtsdm::nvram::IsValid(img.data(), 512));
    // The port name is one variable a byte, most significant first.
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 24), 0x21u);
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 31), 0x01u);
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 127), 0x1077u);
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 128), 0x0C60u);
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 60000), 0xFFFFFFFFu);

    ASSERT_EQ(SDSetVariableValue(h, img.data(), 19, 1024), SDERR_NONE);
    EXPECT_EQ(SDGetVariableValue(h, img.data(), 19), 1024u);
    // Without a fresh checksum the image is refused and nothing changes.
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, img.data(), 512), SDERR_INVALID_PARAMETER);
    vtsdm::nvram::ComputeChecksum(img.data(), 512);
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, img.data(), 256), SDERR_BUFFER_TOO_SMALL);

    // A new process sees the write; the alternate area is untouched.
    vtsdm::UnloadBackend();
    h = Open(0);
    std::vector<uint8_t> again(512), alt(512);
    ASSERT_EQ(SDGetNVRam(h, 0, 1, again.data(), 512), SDERR_NONE);
    EXPECT_EQ(again, img);
    ASSERT_EQ(SDGetNVRam(h, 0, 2, alt.data(), 512), SDERR_NONE);
    EXPECT_NE(SDGetVariableValue(h, alt.data(), 19), 1024u);
    // Virtual ports have no NVRAM.
    uint32_t vh = Open(1);
    EXPECT_EQ(SDGetNVRam(vh, 0, 1, alt.data(), 512), SDERR_NOT_SUPPORTED);
}

TEST_F(SimTest, FlashLayoutRegionsAndVpd) {
    uint32_t h = Open(0);
    std::vector<uint8_t> buf(16);
    auto *layout = reinterpret_cast<SDOptionRomLayout *>(buf.data());
    layout->Count = 1;
    // First call learns the count, second reads the descriptors.
    ASSERT_EQ(SDGetOptionRomLayout(h, 0, layout, 16), SDERR_BUFFER_TOO_SMALL);
    uint32_t count = layout->Count;
    ASSERT_GE(count, 4u);
    buf.assign(8 + 8 * count, 0);
    layout = reinterpret_cast<SDOptionRomLayout *>(buf.data());
    layout->Count = count;
    ASSERT_EQ(SDGetOptionRomLayout(h, 0, layout, uint32_t(buf.size())), SDERR_NONE);
    bool sawBoot = false;
    uint32_t bootSize = 0;
    for (uint32_t i = 0; i < count; ++i)
        if (layout->Region[i].Region == 0x07) {
            sawBoot = true;
            bootSize = layout->Region[i].Size;
        }
    ASSERT_TRUE(sawBoot);
    std::vector<uint8_t> boot(bootSize);
    ASSERT_EQ(SDGetOptionRomEx(h, boot.data(), bootSize, 0x07, 0), SDERR_NONE);
    EXPECT_EQ(boot[0], 0x55);
    EXPECT_EQ(boot[1], 0xAA);
    EXPECT_EQ(SDGetOptionRomEx(h, boot.data(), 16, 0x07, bootSize - 8), SDERR_SHORT_READ);
    EXPECT_EQ(SDGetOptionRomEx(h, boot.data(), 16, 0x4242, 0), SDERR_NOT_FOUND);

    uint8_t patch[4] = {1, 2, 3, 4};
    ASSERT_EQ(SDUpdateOptionRomEx2(h, patch, 4, 0x07, 100, 0), SDERR_NONE);
    EXPECT_EQ(SDUpdateOptionRomEx2(h, patch, 4, 0x07, bootSize - 2, 0), SDERR_INVALID_PARAMETER);
    vtsdm::UnloadBackend();
    h = Open(0);
    uint8_t back[4];
    ASSERT_EQ(SDGetOptionRomEx(h, back, 4, 0x07, 100), SDERR_NONE);
    EXPECT_EQ(memcmp(back, patch, 4), 0);

    uint32_t vpdSize = 0;
    ASSERT_EQ(SDGetVpd(h, nullptr, &vpdSize), SDERR_BUFFER_TOO_SMALL);
    std::vector<uint8_t> vpd(vpdSize);
    ASSERT_EQ(SDGetVpd(h, vpd.data(), &vpdSize), SDERR_NONE);
    EXPECT_EQ(vpd[0], 0x82);
    std::string text(vpd.begin(), vpd.end());
    EXPECT_NE(text.find("SN"), std::string::npos);
    EXPECT_NE(text.find("S1"), std::string::npos);
    EXPECT_NE(text.find("7.34"), std::string::npos);  // EFI version under V1
}

TEST_F(SimTest, StatisticsLinkStateAndEventsAcrossProcesses) {
    uint32_t h = Open(0);
    auto r = SimTool({"link", "0", "linkdown"});
    ASSERT_EQ(r[0], "0") << r[2];
    SDPortProperty port;
    ASSERT_EQ(SDGetHbaDevicePortProperty(h, &port), SDERR_NONE);
    EXPECT_EQ(port.PortState, SD_PORTSTATE_LINKDOWN);
    std::vector<uint8_t> buf(1024);
    uint32_t size = uint32_t(buf.size());
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, target1_, buf.data(), &size, sense_, &senseSize_), SDERR_LOOP_DOWN);
    ASSERT_EQ(SimTool({"link", "0", "online"})[0], "0");
    ASSERT_EQ(SimTool({"event", "0", "lip", "scr"})[0], "0");

    uint8_t events[1024];
    uint32_t count = 0;
    ASSERT_EQ(SDGetAen(h, events, sizeof events, &count), SDERR_NONE);
    ASSERT_EQ(count, 4u);
    uint32_t codes[4];
    for (int i = 0; i < 4; ++i) memcpy(&codes[i], events + 16 * i, 4);
    EXPECT_EQ(codes[0], SD_AEN_LINK_DOWN);
    EXPECT_EQ(codes[1], SD_AEN_LINK_UP);
    EXPECT_EQ(codes[2], SD_AEN_LIP_OCCURRED);
    EXPECT_EQ(codes[3], SD_AEN_SCR_UPDATE);
    ASSERT_EQ(SDGetAen(h, events, sizeof events, &count), SDERR_NONE);
    EXPECT_EQ(count, 0u);  // drained

    // 100 queued events: the count says 100, a 1024-byte buffer holds 64.
    std::vector<std::string> many = {"event", "0"};
    for (int i = 0; i < 100; ++i) many.push_back(i == 99 ? "fec" : "lip");
    ASSERT_EQ(SimTool(many)[0], "0");
    std::vector<uint8_t> big(16 * 100, 0xEE);
    ASSERT_EQ(SDGetAen(h, big.data(), 1024, &count), SDERR_NONE);
    EXPECT_EQ(count, 100u);
    EXPECT_EQ(big[1024], 0xEE);  // nothing written past the buffer

    SDStatistics st;
    ASSERT_EQ(SimTool({"counters", "0", "io_count=5", "invalid_crc=2"})[0], "0");
    ASSERT_EQ(SDGetStatistics(h, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 5u);
    EXPECT_EQ(st.InvalidCRCCount, 2u);
    ASSERT_EQ(SDResetStatistics(h), SDERR_NONE);
    ASSERT_EQ(SDGetStatistics(h, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 0u);
    EXPECT_LE(st.SecondsSinceLastReset, 5u);

    // "reset" forgets every change.
    ASSERT_EQ(SimTool({"counters", "0", "io_count=7"})[0], "0");
    ASSERT_EQ(SimTool({"reset"})[0], "0");
    ASSERT_EQ(SDGetStatistics(h, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 0u);
    EXPECT_NE(SimTool({"link", "0", "sideways"})[0], "0");
}

TEST_F(SimTest, ConcurrentWritersLoseNothing) {
    // Four processes add to one counter 25 times each, every add a
    // read-modify-write of the state file under its lock.
    std::vector<vttest::ChildGuard> kids;
    const std::string tool = vttest::BuildPath("bin/vtsdm-sim");
    for (int k = 0; k < 4; ++k) {
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            setenv("VTSDM_HOST", hostFile_.c_str(), 1);
            for (int i = 0; i < 25; ++i) {
                auto r = vttest::Run({tool, "counters", "0", "io_count=1"});
                if (r.status != 0) _exit(1);
            }
            _exit(0);
        }
        kids.emplace_back(pid);
    }
    for (auto &kid : kids) {
        const int st = kid.Wait();
        EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0);
    }
    uint32_t h = Open(0);
    SDStatistics st;
    ASSERT_EQ(SDGetStatistics(h, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 100u);
}

TEST_F(SimTest, VirtualPortsAndQoS) {
    uint32_t h = Open(0);
    uint8_t existing[8] = {0x21, 0x01, 0, 0x24, 0xff, 0, 0, 0x01};
    SDQoS q;
    ASSERT_EQ(SDGetQoS(h, existing, &q), SDERR_NONE);
    EXPECT_EQ(q.QoSValue, 30);
    EXPECT_EQ(q.QoSType, SD_QOS_PERCENTAGE);
    q.QoSValue = 101;
    EXPECT_EQ(SDSetQoS(h, existing, &q), SDERR_INVALID_PARAMETER);
    q.QoSValue = 55;
    ASSERT_EQ(SDSetQoS(h, existing, &q), SDERR_NONE);

    uint8_t wwpn[8] = {0x21, 0x05, 0, 0x24, 0xff, 0, 0, 0x01};
    uint16_t id = 0;
    ASSERT_EQ(SDCreateVport(h, wwpn, wwpn, &id), SDERR_NONE);
    EXPECT_EQ(id, 2);
    EXPECT_EQ(SDCreateVport(h, wwpn, wwpn, &id), SDERR_INVALID_PARAMETER);  // duplicate
    // The new vPort is instance 2, and another process sees it and the QoS.
    vtsdm::UnloadBackend();
    h = Open(0);
    uint32_t vh = Open(2);
    SDPortProperty port;
    ASSERT_EQ(SDGetHbaDevicePortProperty(vh, &port), SDERR_NONE);
    EXPECT_EQ(memcmp(port.WWPN, wwpn, 8), 0);
    ASSERT_EQ(SDGetQoS(h, existing, &q), SDERR_NONE);
    EXPECT_EQ(q.QoSValue, 55);
    ASSERT_EQ(SDDeleteVport(h, wwpn), SDERR_NONE);
    EXPECT_EQ(SDGetHbaDevicePortProperty(vh, &port), SDERR_DEVICE_REMOVED);
    EXPECT_EQ(SDDeleteVport(h, wwpn), SDERR_NOT_FOUND);
    uint32_t none;
    EXPECT_EQ(SDOpenDevice(2, &none), SDERR_NO_SUCH_DEVICE);
}

TEST_F(SimTest, DiagnosticsAndRemoteLinkStatus) {
    uint32_t h = Open(0);
    std::vector<uint8_t> tx(2048), rx(2048);
    for (size_t i = 0; i < tx.size(); ++i) tx[i] = uint8_t(i * 7);
    SDDiagResult r;
    ASSERT_EQ(SDRunDiagLoopbackEx(h, SD_LOOPBACK_EXTERNAL, tx.data(), rx.data(), 2048, 10, &r), SDERR_NONE);
    EXPECT_EQ(rx, tx);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PASSED);
    ASSERT_EQ(SDRunDiagLoopbackEx(h, 0x1234, tx.data(), rx.data(), 2048, 10, &r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PARAM_ERROR);
    EXPECT_EQ(SDDiagIO(h, tx.data(), rx.data(), 70000, 10, 1, &r), SDERR_DIAG_PARAMETER);
    ASSERT_EQ(SimTool({"link", "0", "linkdown"})[0], "0");
    ASSERT_EQ(SDRunDiagLoopbackEx(h, SD_LOOPBACK_EXTERNAL, tx.data(), rx.data(), 64, 1, &r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_LOOP_DOWN);
    EXPECT_EQ(SDRunDiagLoopbackEx(h, SD_LOOPBACK_INTERNAL_1BIT, tx.data(), rx.data(), 64, 1, &r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PASSED);
    SDLinkErrorStatus ls;
    EXPECT_EQ(SDGetPortStatisticsFC(h, target1_, &ls), SDERR_LOOP_DOWN);
    ASSERT_EQ(SimTool({"link", "0", "online"})[0], "0");
    EXPECT_EQ(SDGetPortStatisticsFC(h, target1_, &ls), SDERR_NONE);

    uint8_t data[64] = "buffer test pattern";
    ASSERT_EQ(SDSendScsiWriteBufferCmdFC(h, target1_, 0, data, sizeof data, sense_, &senseSize_), SDERR_NONE);
    uint8_t back[64] = {};
    uint32_t n = sizeof back;
    ASSERT_EQ(SDSendScsiReadBufferCmdFC(h, target1_, 0, back, &n, sense_, &senseSize_), SDERR_NONE);
    EXPECT_EQ(memcmp(back, data, sizeof data), 0);
}

TEST(SimLargeHost, CompactFormsExpandToTheFullHost) {
    SysrootScope root;
    setenv("VTSDM_HOST", vttest::SourcePath("data/hosts/large_31x256x256.json").c_str(), 1);
    vtsdm::UnloadBackend();
    auto access = vtsdm::AcquireBackend();
    vtsdm::Simulator *sim = vtsdm::ActiveSimulator(access);
    ASSERT_NE(sim, nullptr) << vtsdm::BackendError();
    const vtsdm::Host &host = sim->host();
    EXPECT_EQ(host.ports.size(), 31u);
    size_t targets = 0, luns = 0;
    for (const auto &p : host.ports)
        for (const auto &t : p.targets) {
            ++targets;
            luns += t.lunCount();
        }
    EXPECT_EQ(targets, 31u * 256);
    EXPECT_EQ(luns, 31u * 256 * 256);
    EXPECT_EQ(host.cards[3].serial, "VTLRG0-3");
    EXPECT_NE(host.ports[0].wwpn, host.ports[2].wwpn);
    access.lock.unlock();
    vtsdm::UnloadBackend();
    unsetenv("VTSDM_HOST");
}

}  // namespace
