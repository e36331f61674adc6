// Counters that move on the simulated host: traffic at a set rate on ports
// and virtual ports, the seconds since the last reset, the simulated clock
// and its controls, run-time target logins, logouts and removal with their
// events, target link errors, and event payloads.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backend.h"
#include "simulator.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

const std::string kHost = R"({"cards":[{"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
 "ports":[
  {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:01:00","speed":32,
   "statistics":{"io_count":100,"megabytes":10,"seconds_since_reset":50},
   "traffic":{"io_per_second":300,"mb_per_second":4},
   "targets":[{"wwpn":"50:00:00:00:00:00:00:01","port_id":"01:0a:00","luns":[{"lun":0}],
               "link_errors":{"invalid_crc":2}}],
   "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01","traffic":{"io_per_second":7}}]}]}]})";

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kStart = 1700000000 * kSecond;

class SimMonitor : public ::testing::Test {
protected:
    void SetUp() override {
        host_ = root_.path("/host.json");
        vttest::WriteFile(host_, kHost);
        setenv("VTSDM_HOST", host_.c_str(), 1);
        vtsdm::UnloadBackend();
        ASSERT_EQ(Sim({"clock", "set", "1700000000"}), "1700000000.000000000 (frozen)\n");
        ASSERT_EQ(SDOpenDevice(0, &port_), SDERR_NONE);
        ASSERT_EQ(SDOpenDevice(1, &vport_), SDERR_NONE);
    }
    void TearDown() override {
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
    }
    // vtsdm-sim's output, or "status N" when it failed.
    std::string Sim(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        const auto r = vttest::Run(args);
        return r.status == 0 ? r.out : "status " + std::to_string(r.status) + ": " + r.err;
    }
    SDStatistics Stats(uint32_t h) {
        SDStatistics s{};
        EXPECT_EQ(SDGetStatistics(h, &s), SDERR_NONE);
        return s;
    }
    std::vector<SDAenRecord> Events() {
        SDAenRecord buf[16];
        uint32_t count = 0;
        EXPECT_EQ(SDGetAen(port_, buf, sizeof buf, &count), SDERR_NONE);
        return std::vector<SDAenRecord>(buf, buf + std::min<uint32_t>(count, 16));
    }

    vttest::SysrootScope root_;
    std::string host_;
    uint32_t port_ = 0, vport_ = 0;
    const uint8_t target_[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x01};
};

TEST_F(SimMonitor, CountersGrowWithSimulatedTime) {
    // The first reading starts a port's counters moving.
    SDStatistics s = Stats(port_);
    EXPECT_EQ(s.TotalIoCount, 100u);
    EXPECT_EQ(s.SecondsSinceLastReset, 50u);
    EXPECT_EQ(Stats(vport_).TotalIoCount, 0u);
    ASSERT_EQ(Sim({"clock", "advance", "10"}), "1700000010.000000000 (frozen)\n");
    s = Stats(port_);
    EXPECT_EQ(s.TotalIoCount, 3100u);
    EXPECT_EQ(s.TotalMBytes, 50u);
    EXPECT_EQ(s.InputRequests + s.OutputRequests, 3000u);
    EXPECT_EQ(s.SecondsSinceLastReset, 60u);
    EXPECT_EQ(s.TxFrames, 3000u + 40u * 256);
    // Part of a second counts its share.
    ASSERT_EQ(Sim({"clock", "advance", "0.5"}), "1700000010.500000000 (frozen)\n");
    EXPECT_EQ(Stats(port_).TotalIoCount, 3250u);
    // The virtual port has traffic of its own.
    EXPECT_EQ(Stats(vport_).TotalIoCount, 73u);

    // A reset clears them; they grow again from there.
    ASSERT_EQ(SDResetStatistics(port_), SDERR_NONE);
    ASSERT_EQ(Sim({"clock", "advance", "2"}), "1700000012.500000000 (frozen)\n");
    s = Stats(port_);
    EXPECT_EQ(s.TotalIoCount, 600u);
    EXPECT_EQ(s.SecondsSinceLastReset, 2u);

    // New rates apply from now; what was counted stays.
    ASSERT_EQ(Sim({"traffic", "0", "io_per_second=10", "mb_per_second=0"}), "");
    ASSERT_EQ(Sim({"clock", "advance", "10"}), "1700000022.500000000 (frozen)\n");
    EXPECT_EQ(Stats(port_).TotalIoCount, 700u);
    ASSERT_EQ(Sim({"counters", "0", "io_count=5"}), "");
    EXPECT_EQ(Stats(port_).TotalIoCount, 705u);
    EXPECT_NE(Sim({"traffic", "0", "speed=3"}).rfind("status 2", 0), std::string::npos);
}

TEST_F(SimMonitor, ClockControls) {
    auto access = vtsdm::AcquireBackend();
    vtsdm::Simulator *sim = vtsdm::ActiveSimulator(access);
    ASSERT_NE(sim, nullptr);
    EXPECT_EQ(sim->now(), kStart);
    ASSERT_EQ(sim->clockAdvance(3 * kSecond), SDERR_NONE);
    EXPECT_EQ(sim->now(), kStart + 3 * kSecond);
    // Running on, the clock keeps its distance to the real time.
    ASSERT_EQ(sim->clockRun(), SDERR_NONE);
    EXPECT_NEAR(double(sim->now()), double(kStart + 3 * kSecond), 60.0 * kSecond);
    EXPECT_FALSE(sim->store().current().clock.frozen);
    ASSERT_EQ(sim->clockSet(kStart), SDERR_NONE);
    EXPECT_EQ(sim->now(), kStart);
    access.lock.unlock();
    EXPECT_NE(Sim({"clock", "set"}).rfind("status 2", 0), std::string::npos);
}

TEST_F(SimMonitor, TargetsChangeAtRunTime) {
    SDLinkErrorStatus les{};
    ASSERT_EQ(SDGetPortStatisticsFC(port_, target_, &les), SDERR_NONE);
    EXPECT_EQ(les.InvalidCRCCount, 2u);
    ASSERT_EQ(Sim({"target-errors", "0", "50:00:00:00:00:00:00:01", "invalid_crc=3", "loss_of_sync=1"}), "");
    ASSERT_EQ(SDGetPortStatisticsFC(port_, target_, &les), SDERR_NONE);
    EXPECT_EQ(les.InvalidCRCCount, 5u);
    EXPECT_EQ(les.LossOfSyncCount, 1u);

    auto flags = [&] {
        SDDiscTargetProperty t[4];
        uint32_t count = 4;
        EXPECT_EQ(SDGetDiscTargetProperties(port_, t, &count), SDERR_NONE);
        return t[0].TargetFlags & SD_TGTFLAG_LOGGED_IN;
    };
    uint8_t buf[512];
    uint32_t size = sizeof buf;
    uint8_t sense[SD_SENSE_BUFFER_SIZE];
    uint32_t senseSize = sizeof sense;
    ASSERT_EQ(Sim({"target", "0", "50:00:00:00:00:00:00:01", "logout"}), "");
    EXPECT_EQ(flags(), 0u);
    EXPECT_EQ(SDGetPortStatisticsFC(port_, target_, &les), SDERR_NOT_FOUND);
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(port_, target_, buf, &size, sense, &senseSize), SDERR_NOT_FOUND);
    ASSERT_EQ(Sim({"target", "0", "50:00:00:00:00:00:00:01", "login"}), "");
    EXPECT_NE(flags(), 0u);
    ASSERT_EQ(Sim({"target", "0", "50:00:00:00:00:00:00:01", "remove"}), "");
    EXPECT_EQ(SDGetPortStatisticsFC(port_, target_, &les), SDERR_DEVICE_REMOVED);
    EXPECT_EQ(SDSendScsiReportLunsCmdFC(port_, target_, buf, &size, sense, &senseSize), SDERR_DEVICE_REMOVED);
    ASSERT_EQ(Sim({"target", "0", "50:00:00:00:00:00:00:01", "restore"}), "");
    EXPECT_EQ(SDGetPortStatisticsFC(port_, target_, &les), SDERR_NONE);

    // Each change brought a device update event with the target's port ID.
    const auto events = Events();
    ASSERT_EQ(events.size(), 4u);
    const uint32_t what[] = {SD_AEN_DEVICE_LOGGED_OUT, SD_AEN_DEVICE_LOGGED_IN, SD_AEN_DEVICE_REMOVED,
                             SD_AEN_DEVICE_LOGGED_IN};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(events[i].Code, SD_AEN_DEVICE_UPDATE);
        EXPECT_EQ(events[i].Payload[0], 0x010A00u);
        EXPECT_EQ(events[i].Payload[1], what[i]);
    }
    EXPECT_NE(Sim({"target", "0", "50:00:00:00:00:00:00:01", "vanish"}).rfind("status 2", 0), std::string::npos);
    EXPECT_NE(Sim({"target", "0", "50:00:00:00:00:00:00:09", "login"}).rfind("status 1", 0), std::string::npos);
}

TEST_F(SimMonitor, EventPayloads) {
    ASSERT_EQ(Sim({"event", "0", "scr:0x010a00:2", "lip"}), "");
    ASSERT_EQ(Sim({"link", "0", "linkdown"}), "");
    ASSERT_EQ(Sim({"link", "0", "online"}), "");
    const auto events = Events();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].Code, SD_AEN_SCR_UPDATE);
    EXPECT_EQ(events[0].Payload[0], 0x010a00u);
    EXPECT_EQ(events[0].Payload[1], 2u);
    EXPECT_EQ(events[1].Payload[0], 0u);
    EXPECT_EQ(events[2].Code, SD_AEN_LINK_DOWN);
    EXPECT_EQ(events[3].Code, SD_AEN_LINK_UP);
    EXPECT_EQ(events[3].Payload[0], SD_SPEED_32G);
    EXPECT_NE(Sim({"event", "0", "lip:1:2:3:4"}).rfind("status 2", 0), std::string::npos);
    EXPECT_NE(Sim({"event", "0", "lip:x"}).rfind("status 2", 0), std::string::npos);
}

}  // namespace
