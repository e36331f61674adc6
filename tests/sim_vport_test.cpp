// Virtual ports of the simulated host: instance numbers that survive the
// deletion of another vPort, refusal on a port whose link is down, injected
// creation failures (host file and vtsdm-sim), a vPort's own counters, and
// the per-port limit; each checked again by another process.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator.h"
#include "sim_testutil.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

// Two FC ports (instances 0 and 1), the first with one vPort from the file.
std::string Host(const std::string &driver, const std::string &port0Faults = "{}") {
    return R"({"cards":[{"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
  "driver":)" +
           driver + R"(,
  "ports":[
   {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:0a:00","speed":32,
    "targets":[{"wwpn":"50:00:00:00:00:00:00:01","luns":[{"lun":0,"blocks":64}]}],
    "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01"}],
    "faults":)" +
           port0Faults + R"(},
   {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02","port_id":"01:0b:00","speed":32}]}]})";
}

const std::string kDriver = R"({"version":"10.02.09.100-k","max_vports":8,"max_vports_qos":2})";

// The WWPN of port 0 with byte 1 replaced.
std::vector<uint8_t> OnPort0(uint8_t byte) { return {0x21, byte, 0x00, 0x24, 0xff, 0x00, 0x00, 0x01}; }

uint64_t Key(const std::vector<uint8_t> &w) { return vtsdm::WwnFromBytes(w.data()); }

class SimVports : public vttest::SimHostTest {
protected:
    void TearDown() override {
        for (uint32_t h : handles_) SDCloseDevice(h);
        SimHostTest::TearDown();
    }
    // Forgets everything this process holds, as a new process would start.
    void Reload() {
        for (uint32_t h : handles_) SDCloseDevice(h);
        handles_.clear();
        vtsdm::UnloadBackend();
    }
    uint32_t Open(uint32_t instance) {
        uint32_t h = 0;
        EXPECT_EQ(SDOpenDevice(instance, &h), SDERR_NONE) << "instance " << instance;
        handles_.push_back(h);
        return h;
    }
    // The WWPN an instance answers with, or the status of opening it.
    std::string At(uint32_t instance) {
        uint32_t h = 0;
        const uint32_t rc = SDOpenDevice(instance, &h);
        if (rc != SDERR_NONE) return SDGetErrorString(rc);
        SDPortProperty p{};
        SDGetHbaDevicePortProperty(h, &p);
        SDCloseDevice(h);
        return vtsdm::FormatWwn(vtsdm::WwnFromBytes(p.WWPN));
    }
    uint32_t Create(uint32_t h, uint8_t byte, uint16_t *id = nullptr) {
        const auto w = OnPort0(byte);
        uint16_t vid = 0;
        const uint32_t rc = SDCreateVport(h, w.data(), w.data(), &vid);
        if (id) *id = vid;
        return rc;
    }
    uint32_t VportCount(uint32_t h) {
        SDPortProperty p{};
        EXPECT_EQ(SDGetHbaDevicePortProperty(h, &p), SDERR_NONE);
        return p.NumberOfVports;
    }
    vttest::RunResult Tool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args, {"VTSDM_HOST=" + hostFile_, "VTSDM_BACKEND=sim"});
    }
    template <typename F>
    uint32_t WithSim(F f) {
        auto access = vtsdm::AcquireBackend();
        vtsdm::Simulator *sim = vtsdm::ActiveSimulator(access);
        EXPECT_NE(sim, nullptr);
        return sim ? f(*sim) : SDERR_IO_FAILED;
    }

    std::vector<uint32_t> handles_;
};

TEST_F(SimVports, InstanceNumbersStayWhenAnotherVPortIsDeleted) {
    UseHost(Host(kDriver));
    const uint32_t port0 = Open(0);
    // The host file's vPort is instance 2; new ones follow it.
    EXPECT_EQ(At(2), "21:01:00:24:ff:00:00:01");
    for (uint8_t b : {0x10, 0x11, 0x12}) ASSERT_EQ(Create(port0, b), SDERR_NONE);
    EXPECT_EQ(At(3), "21:10:00:24:ff:00:00:01");
    EXPECT_EQ(At(5), "21:12:00:24:ff:00:00:01");

    // Deleting the vPort at 3 leaves a gap; 4 and 5 keep their numbers.
    ASSERT_EQ(SDDeleteVport(port0, OnPort0(0x10).data()), SDERR_NONE);
    EXPECT_EQ(At(3), "Device removed");
    EXPECT_EQ(At(4), "21:11:00:24:ff:00:00:01");
    EXPECT_EQ(At(5), "21:12:00:24:ff:00:00:01");
    EXPECT_EQ(At(6), SDGetErrorString(SDERR_NO_SUCH_DEVICE));

    // The same in a new process, and the gap is taken by the next vPort.
    const auto shown = Tool({"show", "--luns", "0"});
    ASSERT_EQ(shown.status, 0) << shown.err;
    EXPECT_NE(shown.out.find("Instance 3: cannot open: Device removed"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("Instance 5: vPort 4  WWPN 21:12:00:24:ff:00:00:01"), std::string::npos) << shown.out;
    Reload();
    uint16_t id = 0;
    ASSERT_EQ(Create(Open(0), 0x13, &id), SDERR_NONE);
    EXPECT_EQ(id, 2) << "the lowest free vPort id";
    EXPECT_EQ(At(3), "21:13:00:24:ff:00:00:01");
    EXPECT_EQ(At(4), "21:11:00:24:ff:00:00:01");

    // Deleting the last one ends the list there.
    ASSERT_EQ(SDDeleteVport(handles_.back(), OnPort0(0x12).data()), SDERR_NONE);
    EXPECT_EQ(At(5), SDGetErrorString(SDERR_NO_SUCH_DEVICE));
}

TEST_F(SimVports, CreationRefusedWhileTheLinkIsDown) {
    UseHost(Host(kDriver));
    const uint32_t port1 = Open(1);
    // Another process takes the link down.
    ASSERT_EQ(Tool({"link", "1", "linkdown"}).status, 0);
    const std::vector<uint8_t> w = {0x21, 0x20, 0x00, 0x24, 0xff, 0x00, 0x00, 0x02};
    uint16_t id = 0;
    EXPECT_EQ(SDCreateVport(port1, w.data(), w.data(), &id), SDERR_LOOP_DOWN);
    EXPECT_EQ(VportCount(port1), 0u);
    ASSERT_EQ(Tool({"link", "1", "offline"}).status, 0);
    EXPECT_EQ(SDCreateVport(port1, w.data(), w.data(), &id), SDERR_LOOP_DOWN);
    ASSERT_EQ(Tool({"link", "1", "online"}).status, 0);
    ASSERT_EQ(SDCreateVport(port1, w.data(), w.data(), &id), SDERR_NONE);
    EXPECT_EQ(VportCount(port1), 1u);
}

TEST_F(SimVports, InjectedCreationFailures) {
    UseHost(Host(kDriver, R"({"vport_create":2})"));
    uint32_t port0 = Open(0);
    EXPECT_EQ(Create(port0, 0x10), SDERR_DEVICE_BUSY);
    // A refusal for another reason does not use a fault up.
    EXPECT_EQ(Create(port0, 0x01), SDERR_INVALID_PARAMETER) << "the host file's vPort has this WWPN";
    ASSERT_EQ(Tool({"link", "0", "linkdown"}).status, 0);
    EXPECT_EQ(Create(port0, 0x10), SDERR_LOOP_DOWN);
    ASSERT_EQ(Tool({"link", "0", "online"}).status, 0);
    // The count used is kept across processes.
    Reload();
    port0 = Open(0);
    EXPECT_EQ(Create(port0, 0x10), SDERR_DEVICE_BUSY);
    EXPECT_EQ(VportCount(port0), 1u) << "failed creations make nothing";
    EXPECT_EQ(Create(port0, 0x10), SDERR_NONE);

    // vtsdm-sim arms more, for this port only.
    auto r = Tool({"vport-fault", "0", "2"});
    ASSERT_EQ(r.status, 0) << r.err;
    const uint32_t port1 = Open(1);
    const std::vector<uint8_t> other = {0x21, 0x20, 0x00, 0x24, 0xff, 0x00, 0x00, 0x02};
    uint16_t id = 0;
    EXPECT_EQ(SDCreateVport(port1, other.data(), other.data(), &id), SDERR_NONE);
    EXPECT_EQ(Create(port0, 0x11), SDERR_DEVICE_BUSY);
    ASSERT_EQ(Tool({"vport-fault", "0", "0"}).status, 0) << "0 clears what is left";
    EXPECT_EQ(Create(port0, 0x11), SDERR_NONE);
    EXPECT_EQ(Tool({"vport-fault", "2", "1"}).status, 1) << "not on a vPort";
    EXPECT_EQ(Tool({"vport-fault", "0", "x"}).status, 2);
    EXPECT_EQ(VportCount(port0), 3u);
}

TEST_F(SimVports, AVPortHasCountersOfItsOwn) {
    UseHost(Host(kDriver));
    ASSERT_EQ(Tool({"counters", "0", "io_count=4"}).status, 0);
    const uint32_t port0 = Open(0);
    const auto io = [](uint64_t n) { return [n](SDStatistics &s) { s.TotalIoCount += n; }; };
    const auto fileVport = OnPort0(0x01);
    // The host file's vPort has a block too.
    ASSERT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(fileVport), io(5)); }), SDERR_NONE);
    ASSERT_EQ(Create(port0, 0x10), SDERR_NONE);
    const auto w = OnPort0(0x10);
    ASSERT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(w), io(7)); }), SDERR_NONE);
    ASSERT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(w), io(3)); }), SDERR_NONE);
    EXPECT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(OnPort0(0x55)), io(1)); }),
              SDERR_NOT_FOUND);
    EXPECT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(0x2100002400000001ull, io(1)); }),
              SDERR_NOT_FOUND)
        << "a physical port is not a vPort";

    SDStatistics st{};
    Reload();
    const uint32_t vport = Open(3);
    ASSERT_EQ(SDGetStatistics(vport, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 10u);
    // Resetting the vPort clears its block only.
    ASSERT_EQ(SDResetStatistics(vport), SDERR_NONE);
    ASSERT_EQ(SDGetStatistics(vport, &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 0u);
    const uint32_t port0again = Open(0);
    SDStatistics parent{};
    ASSERT_EQ(SDGetStatistics(port0again, &parent), SDERR_NONE);
    EXPECT_EQ(parent.TotalIoCount, 4u);
    ASSERT_EQ(SDGetStatistics(Open(2), &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 5u);

    // Deleted, its counters go; made again under the same name, it starts at zero.
    ASSERT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(w), io(9)); }), SDERR_NONE);
    ASSERT_EQ(SDDeleteVport(port0again, w.data()), SDERR_NONE);
    EXPECT_EQ(WithSim([&](vtsdm::Simulator &s) { return s.updateVportCounters(Key(w), io(1)); }), SDERR_NOT_FOUND);
    ASSERT_EQ(Create(port0again, 0x10), SDERR_NONE);
    ASSERT_EQ(SDGetStatistics(Open(3), &st), SDERR_NONE);
    EXPECT_EQ(st.TotalIoCount, 0u);
}

TEST_F(SimVports, AtMost126VPortsOnAPort) {
    // A driver that allows more than a port can carry is refused.
    UseHost(Host(R"({"version":"1.0-k","max_vports":127})"));
    auto bad = Tool({"check"});
    EXPECT_NE(bad.status, 0);
    EXPECT_NE(bad.err.find("max_vports"), std::string::npos) << bad.err;

    UseHost(Host(R"({"version":"1.0-k","max_vports":126})"));
    const uint32_t port0 = Open(0);
    for (int b = 0x10; b < 0x10 + 125; ++b) ASSERT_EQ(Create(port0, uint8_t(b)), SDERR_NONE) << b;
    EXPECT_EQ(VportCount(port0), SD_MAX_VPORTS_PER_PORT);
    EXPECT_EQ(Create(port0, 0xF0), SDERR_NOT_SUPPORTED);
    // The other port is not affected, and the numbers run past 31.
    const std::vector<uint8_t> other = {0x21, 0x20, 0x00, 0x24, 0xff, 0x00, 0x00, 0x02};
    uint16_t id = 0;
    EXPECT_EQ(SDCreateVport(Open(1), other.data(), other.data(), &id), SDERR_NONE);
    EXPECT_EQ(At(2 + 126), "21:20:00:24:ff:00:00:02");
    // Deleting one makes room for exactly one.
    ASSERT_EQ(SDDeleteVport(port0, OnPort0(0x40).data()), SDERR_NONE);
    Reload();
    EXPECT_EQ(Create(Open(0), 0xF0), SDERR_NONE);
    EXPECT_EQ(Create(handles_.back(), 0xF1), SDERR_NOT_SUPPORTED);
}

}  // namespace
