// Diagnostics of the simulated host: the test status a run reports, the
// fault scripts of the host file and of vtsdm-sim, the maximum-I/O call,
// the read buffer miscompare, and the time a run keeps the port busy.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backend.h"
#include "simulator.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using vtsdm::DiagStep;

const std::string kHost = R"({"cards":[{"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
 "ports":[
  {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","speed":32,
   "diag_faults":{"loopback":[4,"busy*2","status=4,crc=3,disparity=2,frame=1","nodevice","corrupt"],
                  "read_buffer_miscompare":1},
   "targets":[{"wwpn":"50:00:00:00:00:00:00:01","luns":[{"lun":0}]}],
   "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01"}]},
  {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02","speed":8,"state":"linkdown",
   "faults":{"loopback_crc_errors":6}}]}]})";

class SimDiag : public ::testing::Test {
protected:
    void SetUp() override {
        host_ = root_.path("/host.json");
        vttest::WriteFile(host_, kHost);
        setenv("VTSDM_HOST", host_.c_str(), 1);
        vtsdm::UnloadBackend();
        ASSERT_EQ(SDOpenDevice(0, &port0_), SDERR_NONE);
        ASSERT_EQ(SDOpenDevice(1, &port1_), SDERR_NONE);
        for (size_t i = 0; i < tx_.size(); ++i) tx_[i] = uint8_t(i * 7 + 1);
    }
    void TearDown() override {
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
    }
    uint32_t Loopback(uint32_t h, SDDiagResult &r, uint32_t option = SD_LOOPBACK_EXTERNAL, uint32_t size = 256) {
        rx_.assign(tx_.size(), 0);
        return SDRunDiagLoopbackEx(h, option, tx_.data(), rx_.data(), size, 5, &r);
    }
    int Sim(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args).status;
    }

    vttest::SysrootScope root_;
    std::string host_;
    uint32_t port0_ = 0, port1_ = 0;
    std::vector<uint8_t> tx_ = std::vector<uint8_t>(1024), rx_;
    std::string last_;
};

TEST(SimDiagSteps, TextFormAndErrors) {
    std::string error;
    auto parse = [&](const char *text) { return vtsdm::ParseDiagStep(text, error); };
    EXPECT_EQ(parse("pass")->status, SD_DIAG_STATUS_PASSED);
    auto s = parse("status=4,crc=3,disparity=2,frame=1*7");
    ASSERT_TRUE(s);
    EXPECT_EQ(s->kind, DiagStep::Kind::Status);
    EXPECT_EQ(s->status, 4u);
    EXPECT_EQ(s->crc, 3u);
    EXPECT_EQ(s->disparity, 2u);
    EXPECT_EQ(s->frameLength, 1u);
    EXPECT_EQ(s->repeat, 7u);
    EXPECT_EQ(vtsdm::FormatDiagStep(*s), "status=4,crc=3,disparity=2,frame=1*7");
    EXPECT_EQ(parse("crc=2")->status, SD_DIAG_STATUS_ERRORS);  // counts alone: a run with errors
    EXPECT_EQ(parse("busy*30")->kind, DiagStep::Kind::Busy);
    EXPECT_EQ(parse("nodevice")->kind, DiagStep::Kind::NoDevice);
    EXPECT_EQ(vtsdm::FormatDiagStep(*parse("corrupt*2")), "corrupt*2");
    for (const char *bad : {"", "busy*0", "busy*", "status=0", "status=x", "speed=3", "pass,crc=1", "crc=-1"})
        EXPECT_FALSE(parse(bad)) << bad;
    parse("speed=3");
    EXPECT_NE(error.find("unknown item \"speed\""), std::string::npos) << error;
}

TEST(SimDiagHost, BadScriptsNameTheField) {
    auto load = [](const std::string &faults) {
        try {
            vtsdm::ParseHost(R"({"cards":[{"serial":"S","model":"M","device_id":"0x7C50","ports":[
              {"wwnn":"20:00:00:00:00:00:00:01","wwpn":"21:00:00:00:00:00:00:01","diag_faults":)" +
                                 faults + "}]}]}",
                             "h.json");
            return std::string();
        } catch (const vtsdm::HostError &e) {
            return std::string(e.what());
        }
    };
    EXPECT_EQ(load(R"({"loopback":[1,"busy*3"],"read_buffer_miscompare":2})"), "");
    EXPECT_NE(load(R"({"loopback":["flaky"]})").find("host.cards[0].ports[0].diag_faults.loopback[0]: bad step"),
              std::string::npos);
    EXPECT_NE(load(R"({"loopback":[0]})").find("a test status is 1 or more"), std::string::npos);
    EXPECT_NE(load(R"({"loop":[]})").find("diag_faults.loop: unknown field"), std::string::npos);
}

TEST_F(SimDiag, TheScriptAnswersTheNextCallsInOrder) {
    SDDiagResult r{};
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_ERRORS);
    EXPECT_EQ(Loopback(port0_, r), SDERR_DEVICE_BUSY);
    EXPECT_EQ(Loopback(port0_, r), SDERR_DEVICE_BUSY);
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_ERRORS);
    EXPECT_EQ(r.CrcErrors, 3u);
    EXPECT_EQ(r.DisparityErrors, 2u);
    EXPECT_EQ(r.FrameLengthErrors, 1u);
    EXPECT_EQ(r.IterationsDone, 5u);
    // Another process takes the next step: the position is persisted.
    vtsdm::UnloadBackend();
    ASSERT_EQ(SDOpenDevice(0, &port0_), SDERR_NONE);
    EXPECT_EQ(Loopback(port0_, r), SDERR_NO_SUCH_DEVICE);
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PASSED);  // the port did not notice ...
    EXPECT_NE(rx_[128], tx_[128]);                   // ... the changed byte
    rx_[128] = tx_[128];
    EXPECT_EQ(std::vector<uint8_t>(rx_.begin(), rx_.begin() + 256),
              std::vector<uint8_t>(tx_.begin(), tx_.begin() + 256));
    // Used up: the port answers normally.
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PASSED);
    EXPECT_EQ(rx_[128], tx_[128]);

    // vtsdm-sim replaces the script and starts it from its beginning.
    ASSERT_EQ(Sim({"diag", "0", "status=3", "pass*2"}), 0);
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_LOOP_DOWN);
    EXPECT_EQ(r.IterationsDone, 0u);
    EXPECT_NE(Sim({"diag", "0", "bogus"}), 0);
    ASSERT_EQ(Sim({"diag", "0", "clear"}), 0);
    ASSERT_EQ(Loopback(port0_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PASSED);
}

TEST_F(SimDiag, StatusesWithoutAScript) {
    SDDiagResult r{};
    // A link that is down: external loopback reports it, internal runs.
    ASSERT_EQ(Loopback(port1_, r), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_LOOP_DOWN);
    ASSERT_EQ(Loopback(port1_, r, SD_LOOPBACK_INTERNAL_10BIT), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_ERRORS);  // the host file's CRC errors on every run
    EXPECT_EQ(r.CrcErrors, 6u);
    // What the port cannot run is a parameter error of the run.
    ASSERT_EQ(Sim({"diag", "0", "clear"}), 0);
    ASSERT_EQ(Loopback(port0_, r, 0x1234), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PARAM_ERROR);
    ASSERT_EQ(Loopback(port0_, r, SD_LOOPBACK_EXTERNAL, 0), SDERR_NONE);
    EXPECT_EQ(r.TestStatus, SD_DIAG_STATUS_PARAM_ERROR);
    // A virtual port has no loopback; buffers are needed.
    uint32_t vport = 0;
    ASSERT_EQ(SDOpenDevice(2, &vport), SDERR_NONE);
    EXPECT_EQ(Loopback(vport, r), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(SDRunDiagLoopbackEx(port0_, SD_LOOPBACK_EXTERNAL, nullptr, rx_.data(), 8, 1, &r),
              SDERR_INVALID_PARAMETER);
}

TEST_F(SimDiag, MaximumIoHonoursCountAndIncrement) {
    ASSERT_EQ(Sim({"diag", "0", "clear"}), 0);
    SDDiagResult r{};
    std::vector<uint8_t> rx(1024);
    ASSERT_EQ(SDDiagIO(port0_, tx_.data(), rx.data(), 1024, 10, 3, &r), SDERR_NONE);
    EXPECT_EQ(r.IterationsDone, 30u);
    EXPECT_EQ(rx, tx_);
    EXPECT_EQ(SDDiagIO(port0_, tx_.data(), rx.data(), 70000, 10, 1, &r), SDERR_DIAG_PARAMETER);
    EXPECT_EQ(SDDiagIO(port1_, tx_.data(), rx.data(), 1024, 10, 1, &r), SDERR_LOOP_DOWN);
}

TEST_F(SimDiag, PortIsBusyForItsFrames) {
    ASSERT_EQ(Sim({"diag", "0", "clear"}), 0);
    auto access = vtsdm::AcquireBackend();
    vtsdm::Simulator *sim = vtsdm::ActiveSimulator(access);
    ASSERT_NE(sim, nullptr);
    auto busyFor = [&](uint64_t port, uint32_t size, uint32_t iterations) {
        uint64_t busy = 0;
        std::vector<uint8_t> rx(size);
        vtsdm::LoopbackRequest rq{SD_LOOPBACK_EXTERNAL, tx_.data(), rx.data(), size, iterations, false, 1, &busy};
        SDDiagResult r{};
        EXPECT_EQ(sim->loopback(port, rq, r), SDERR_NONE);
        return busy;
    };
    // 500 us a call, and per frame 2 us plus 10 line bits a byte at the port's speed.
    EXPECT_EQ(busyFor(0x21000024ff000001ull, 1024, 10), 500000u + 10 * (1024 * 10 / 32 + 2000));
    EXPECT_EQ(busyFor(0x21000024ff000001ull, 1024, 1), 500000u + 1024 * 10 / 32 + 2000);
}

TEST_F(SimDiag, ReadBufferMiscompare) {
    const uint8_t target[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x01};
    uint8_t sense[SD_SENSE_BUFFER_SIZE];
    uint32_t senseSize = sizeof sense;
    const uint8_t data[16] = "sixteen bytes..";
    auto readBack = [&] {
        ASSERT_EQ(SDSendScsiWriteBufferCmdFC(port0_, target, 0, data, sizeof data, sense, &senseSize), SDERR_NONE);
        uint8_t back[16] = {};
        uint32_t n = sizeof back;
        ASSERT_EQ(SDSendScsiReadBufferCmdFC(port0_, target, 0, back, &n, sense, &senseSize), SDERR_NONE);
        ASSERT_EQ(n, 16u);
        last_ = std::string(reinterpret_cast<char *>(back), 16);
    };
    readBack();
    EXPECT_NE(last_, std::string(reinterpret_cast<const char *>(data), 16));
    readBack();
    EXPECT_EQ(last_, std::string(reinterpret_cast<const char *>(data), 16));
    ASSERT_EQ(Sim({"miscompare", "0", "1"}), 0);
    readBack();
    EXPECT_NE(last_, std::string(reinterpret_cast<const char *>(data), 16));
}

}  // namespace
