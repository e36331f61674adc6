// The simulated host's NVRAM controls through the public SD... interface and
// vtsdm-sim: injected read and write faults, a damaged image, condition
// flags the port enforces, settings a reset applies, the global NVRAM region
// and the active FC-NVMe boot region record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host.h"
#include "nvram_map.h"
#include "simulator.h"
#include "sim_testutil.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

namespace nvram = vtsdm::nvram;

// One dual-port 32 Gb card (chip type 27) and one 16 Gb card (type 25).
std::string Host(const std::string &port0Extra = "", const std::string &cardExtra = "") {
    return R"({"cards":[
      {"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60","firmware":"9.12.01",
       "option_rom":{"bios":"3.67","multiboot":"01.12.03"})" +
           cardExtra + R"(,
       "ports":[
        {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:0a:00","speed":32,
         "supported_speeds":[8,16,32],
         "targets":[{"wwpn":"50:00:00:00:00:00:00:01","port_id":"01:0b:00","luns":[{"lun":0,"blocks":64}]}],
         "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01"}])" +
           port0Extra + R"(},
        {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02","port_id":"01:0c:00","speed":32,
         "supported_speeds":[8,16,32]}]},
      {"serial":"S2","model":"VT2516","device_id":"0x6A10","subsystem_id":"0x0A16","firmware":"9.10.02",
       "ports":[{"wwnn":"20:00:00:0e:1e:00:00:03","wwpn":"21:00:00:0e:1e:00:00:03","port_id":"01:0d:00",
                 "speed":16,"supported_speeds":[4,8,16]}]}]})";
}

class NvramSim : public vttest::SimHostTest {
protected:
    void SetUp() override { UseHost(Host()); }
    uint32_t Open(uint32_t instance) {
        uint32_t h = 0;
        EXPECT_EQ(SDOpenDevice(instance, &h), SDERR_NONE);
        return h;
    }
    int Tool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        auto r = vttest::Run(args, {"VTSDM_HOST=" + hostFile_});
        lastErr_ = r.err;
        return r.status;
    }
    std::vector<uint8_t> Read(uint32_t h, uint32_t size = 512) {
        std::vector<uint8_t> img(size);
        EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), size), SDERR_NONE);
        return img;
    }
    // The image with one variable changed and the checksum fixed.
    static std::vector<uint8_t> With(std::vector<uint8_t> img, uint32_t id, uint32_t value) {
        EXPECT_TRUE(nvram::SetValue(img.data(), img.size(), id, value));
        nvram::ComputeChecksum(img.data(), img.size());
        return img;
    }
    SDPortProperty Port(uint32_t h) {
        SDPortProperty p{};
        EXPECT_EQ(SDGetHbaDevicePortProperty(h, &p), SDERR_NONE);
        return p;
    }
    std::vector<uint32_t> Events(uint32_t h) {
        SDAenRecord rec[16];
        uint32_t count = 0;
        EXPECT_EQ(SDGetAen(h, rec, sizeof rec, &count), SDERR_NONE);
        std::vector<uint32_t> codes;
        for (uint32_t i = 0; i < count && i < 16; ++i) codes.push_back(rec[i].Code);
        return codes;
    }

    std::string lastErr_;
};

TEST_F(NvramSim, HostFileFaultsAndDamagedImage) {
    UseHost(Host(R"(,"nvram_control":{"read_faults":2,"write_faults":1,"bad_checksum":true})"));
    uint32_t h = Open(0);
    std::vector<uint8_t> img(512);
    EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_IO_FAILED);
    EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_IO_FAILED);
    ASSERT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);
    EXPECT_FALSE(nvram::IsValid(img.data(), 512));
    // The fault count is used up across processes.
    vtsdm::UnloadBackend();
    h = Open(0);
    EXPECT_EQ(Read(h).size(), 512u);

    const std::vector<uint8_t> before = Read(h);
    const std::vector<uint8_t> changed = With(before, nvram::kFrameSize, 1024);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_IO_FAILED);
    EXPECT_EQ(Read(h), before);
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_NONE);
    EXPECT_EQ(Read(h), changed);
    EXPECT_TRUE(nvram::IsValid(Read(h).data(), 512));

    // Mistakes in the block name the field.
    const std::pair<std::string, std::string> bad[] = {
        {Host(R"(,"nvram_control":{"reads":1})"), "nvram_control.reads: unknown field"},
        {Host(R"(,"nvram_control":{"bad_checksum":1})"), "nvram_control.bad_checksum: expected true or false"},
        {Host("", R"(,"nvme_boot_region":400)"), "nvme_boot_region: expected 334 or 377"},
    };
    for (const auto &[json, message] : bad) {
        try {
            vtsdm::ParseHost(json, "h.json");
            ADD_FAILURE() << "accepted: " << message;
        } catch (const vtsdm::HostError &e) {
            EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        }
    }
    const std::string wren = R"({"cards":[{"serial":"S","model":"M","device_id":"0x6A10","nvme_boot_region":377,
        "ports":[{"wwnn":"20:00:00:00:00:00:00:01","wwpn":"21:00:00:00:00:00:00:01"}]}]})";
    EXPECT_THROW(vtsdm::ParseHost(wren, "h.json"), vtsdm::HostError);
}

TEST_F(NvramSim, ToolFaultsAndDamage) {
    uint32_t h = Open(0);
    ASSERT_EQ(Tool({"nvram", "0", "read-faults", "1"}), 0) << lastErr_;
    std::vector<uint8_t> img(512);
    EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_IO_FAILED);
    EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);

    ASSERT_EQ(Tool({"nvram", "0", "write-faults", "2"}), 0);
    const std::vector<uint8_t> changed = With(img, nvram::kLoginRetryCount, 20);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_IO_FAILED);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_IO_FAILED);
    EXPECT_EQ(Read(h), img);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_NONE);

    ASSERT_EQ(Tool({"nvram", "0", "corrupt"}), 0);
    const std::vector<uint8_t> damaged = Read(h);
    EXPECT_FALSE(nvram::IsValid(damaged.data(), 512));
    EXPECT_EQ(SDGetVariableValue(h, damaged.data(), nvram::kLoginRetryCount), 20u);  // only the checksum is off

    EXPECT_EQ(Tool({"nvram", "0", "write-faults", "x"}), 2);
    EXPECT_EQ(Tool({"nvram", "0", "sideways"}), 2);
    EXPECT_EQ(Tool({"flags", "0", "lockdown=maybe"}), 2);
    EXPECT_EQ(Tool({"nvram", "3", "corrupt"}), 1);  // instance 3 is the virtual port
}

TEST_F(NvramSim, FlagsChangeAtRunTimeAndAreEnforced) {
    uint32_t h = Open(0);
    const std::vector<uint8_t> img = Read(h);
    const std::vector<uint8_t> changed = With(img, nvram::kFrameSize, 1024);
    uint8_t patch[4] = {1, 2, 3, 4};

    ASSERT_EQ(Tool({"flags", "0", "lockdown=on"}), 0);
    EXPECT_EQ(Port(h).StateFlags, SD_PORTFLAG_LOCKDOWN);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_LOCKDOWN);
    EXPECT_EQ(SDUpdateOptionRomEx2(h, patch, 4, 0x07, 100, 0), SDERR_LOCKDOWN);
    SDRegionImage whole{};
    whole.Region = 0x07;
    whole.Data = patch;
    whole.Size = sizeof patch;
    EXPECT_EQ(SDUpdateOptionRomRegions(h, &whole, 1, 0), SDERR_LOCKDOWN);
    EXPECT_EQ(Read(h), img);
    EXPECT_STREQ(SDGetErrorString(SDERR_LOCKDOWN), "Refused: the adapter's firmware is in lockdown");
    // The other port of the card is not locked.
    EXPECT_EQ(Port(Open(1)).StateFlags, 0u);

    ASSERT_EQ(Tool({"flags", "0", "lockdown=off", "maintenance=on"}), 0);
    EXPECT_EQ(Port(h).StateFlags, SD_PORTFLAG_MAINTENANCE);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDUpdateOptionRomEx2(h, patch, 4, 0x07, 100, 0), SDERR_NONE);  // flash stays writable
    ASSERT_EQ(Tool({"flags", "0", "maintenance=off", "reboot_required=on"}), 0);
    EXPECT_EQ(Port(h).StateFlags, SD_PORTFLAG_REBOOT_REQUIRED);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_NONE);

    // Flags of the host file are the start; the tool changes them and the
    // change persists.
    UseHost(Host(R"(,"lockdown":true)"));
    h = Open(0);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_LOCKDOWN);
    ASSERT_EQ(Tool({"flags", "0", "lockdown=off"}), 0);
    vtsdm::UnloadBackend();
    h = Open(0);
    EXPECT_EQ(Port(h).StateFlags, 0u);
    EXPECT_EQ(SDUpdateNVRam(h, 0, 1, changed.data(), 512), SDERR_NONE);
}

TEST_F(NvramSim, ResetAppliesDataRateAndPortDisable) {
    uint32_t h = Open(0);
    Events(h);
    const std::vector<uint8_t> img = Read(h);
    EXPECT_EQ(Port(h).PortSpeed, uint32_t(SD_SPEED_32G));

    // 16 Gb/s fixed: pending until the port is reset.
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, With(img, nvram::kDataRate, 5).data(), 512), SDERR_NONE);
    EXPECT_EQ(Port(h).StateFlags, SD_PORTFLAG_REBOOT_REQUIRED);
    EXPECT_EQ(Port(h).PortSpeed, uint32_t(SD_SPEED_32G));
    ASSERT_EQ(Tool({"port-reset", "0"}), 0) << lastErr_;
    EXPECT_EQ(Port(h).StateFlags, 0u);
    EXPECT_EQ(Port(h).PortSpeed, uint32_t(SD_SPEED_16G));
    EXPECT_EQ(Events(h), (std::vector<uint32_t>{SD_AEN_LINK_DOWN, SD_AEN_LINK_UP}));

    // A rate the port cannot run leaves the fabric's speed.
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, With(img, nvram::kDataRate, 0).data(), 512), SDERR_NONE);
    ASSERT_EQ(Tool({"port-reset", "0"}), 0);
    EXPECT_EQ(Port(h).PortSpeed, uint32_t(SD_SPEED_32G));

    // Port disable: the port goes offline at the reset, its targets with it.
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, With(img, nvram::kPortDisable, 1).data(), 512), SDERR_NONE);
    EXPECT_EQ(Port(h).PortState, SD_PORTSTATE_ONLINE);
    EXPECT_TRUE(Port(h).StateFlags & SD_PORTFLAG_REBOOT_REQUIRED);
    Events(h);
    ASSERT_EQ(Tool({"port-reset", "0"}), 0);
    EXPECT_EQ(Port(h).PortState, SD_PORTSTATE_OFFLINE);
    EXPECT_EQ(Events(h), (std::vector<uint32_t>{SD_AEN_LINK_DOWN}));
    SDDiscTargetProperty t[2];
    uint32_t count = 2;
    ASSERT_EQ(SDGetDiscTargetProperties(h, t, &count), SDERR_NONE);
    EXPECT_EQ(t[0].TargetFlags & SD_TGTFLAG_LOGGED_IN, 0u);
    uint8_t resp[64], sense[SD_SENSE_BUFFER_SIZE];
    uint32_t respSize = sizeof resp, senseSize = sizeof sense;
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(h, t[0].WWPN, resp, &respSize, sense, &senseSize), SDERR_LOOP_DOWN);

    // Enabled again: online after the next reset; the state outlives the process.
    ASSERT_EQ(SDUpdateNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);
    vtsdm::UnloadBackend();
    h = Open(0);
    EXPECT_EQ(Port(h).PortState, SD_PORTSTATE_OFFLINE);
    ASSERT_EQ(Tool({"port-reset", "0"}), 0);
    EXPECT_EQ(Port(h).PortState, SD_PORTSTATE_ONLINE);
    EXPECT_EQ(Port(h).PortSpeed, uint32_t(SD_SPEED_32G));

    // A host file that disables the port starts it offline.
    UseHost(Host(R"(,"nvram":{"185":1})"));
    EXPECT_EQ(Port(Open(0)).PortState, SD_PORTSTATE_OFFLINE);
    EXPECT_EQ(Port(Open(1)).PortState, SD_PORTSTATE_ONLINE);
}

TEST_F(NvramSim, GlobalNvramRegionCarriesThePortName) {
    const uint8_t wwpn0[8] = {0x21, 0, 0, 0x24, 0xff, 0, 0, 0x01}, wwpn1[8] = {0x21, 0, 0, 0x24, 0xff, 0, 0, 0x02};
    uint32_t h0 = Open(0), h1 = Open(1);
    std::vector<uint8_t> g0(512), g1(512);
    ASSERT_EQ(SDGetOptionRomEx(h0, g0.data(), 512, 0x8D, 0), SDERR_NONE);
    ASSERT_EQ(SDGetOptionRomEx(h1, g1.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(memcmp(g0.data(), "VGNV", 4), 0);
    EXPECT_EQ(memcmp(g0.data() + nvram::kGlobalNvramWwpnOffset, wwpn0, 8), 0);
    EXPECT_EQ(memcmp(g1.data() + nvram::kGlobalNvramWwpnOffset, wwpn1, 8), 0);
    EXPECT_TRUE(nvram::IsValid(g0.data(), 512));
    EXPECT_TRUE(nvram::IsValid(g1.data(), 512));

    // A whole, consistent image is kept; a torn one is refused.
    std::vector<uint8_t> next = g0;
    next[100] = 0x5A;
    EXPECT_EQ(SDUpdateOptionRomEx2(h0, next.data(), 512, 0x8D, 0, 0), SDERR_INVALID_PARAMETER);
    nvram::ComputeChecksum(next.data(), 512);
    ASSERT_EQ(SDUpdateOptionRomEx2(h0, next.data(), 512, 0x8D, 0, 0), SDERR_NONE);
    uint8_t one = 1;
    EXPECT_EQ(SDUpdateOptionRomEx2(h0, &one, 1, 0x8D, 200, 0), SDERR_INVALID_PARAMETER);
    vtsdm::UnloadBackend();
    h0 = Open(0);
    h1 = Open(1);
    std::vector<uint8_t> back(512);
    ASSERT_EQ(SDGetOptionRomEx(h0, back.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(back, next);
    ASSERT_EQ(SDGetOptionRomEx(h1, back.data(), 512, 0x8D, 0), SDERR_NONE);
    EXPECT_EQ(back, g1);                                                                   // per port
    EXPECT_EQ(SDGetOptionRomEx(Open(3), back.data(), 512, 0x8D, 0), SDERR_NOT_SUPPORTED);  // virtual port
}

TEST_F(NvramSim, ActiveRecordNamesTheNvmeBootRegion) {
    auto active = [&](uint32_t h) {
        std::vector<uint8_t> record(nvram::kActiveRecordSize);
        EXPECT_EQ(SDGetOptionRomEx(h, record.data(), uint32_t(record.size()), nvram::kRegionActiveRecord, 0),
                  SDERR_NONE);
        EXPECT_EQ(memcmp(record.data(), "VACT", 4), 0);
        return record[4] & 1;
    };
    uint32_t h = Open(0);
    EXPECT_EQ(active(h), 1);
    ASSERT_EQ(Tool({"nvme-boot", "0", "377"}), 0) << lastErr_;
    EXPECT_EQ(active(h), 0);
    EXPECT_EQ(active(Open(1)), 0);  // the record is the card's
    ASSERT_EQ(Tool({"nvme-boot", "1", "334"}), 0);
    EXPECT_EQ(active(h), 1);
    // The 16 Gb chip keeps one region and no record.
    std::vector<uint8_t> record(16);
    EXPECT_EQ(SDGetOptionRomEx(Open(2), record.data(), 16, nvram::kRegionActiveRecord, 0), SDERR_NOT_FOUND);
    EXPECT_EQ(Tool({"nvme-boot", "2", "377"}), 1);
    EXPECT_EQ(Tool({"nvme-boot", "0", "33"}), 2);

    UseHost(Host("", R"(,"nvme_boot_region":377)"));
    EXPECT_EQ(active(Open(0)), 0);
}

}  // namespace
