// The threaded tests of the command line: a loopback or read/write buffer
// test on several ports at once, each in a worker thread, with the screen
// and the keys on the calling thread; the hand-shake with g_DiagState; and
// Ctrl-C during a test without end, in a process of its own.
//
// The screen (scfxDiagnosticsPrint) and the keys (DiagGetKey) are replaced
// here; the library calls them through the dynamic symbol table.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "diag/diag.h"
#include "diag_screen.h"
#include "testutil.h"
#include "vtapi.h"
#include "vtapi_cli.h"
#include "core/core.h"
#include "oss/oss.h"

DIAG_TEST_TERMINAL_HOOKS

namespace {

using diagtest::Screen;
std::string &g_screen = diagtest::TheTerminal().screen;
std::function<int32_t()> &g_keys = diagtest::TheTerminal().keys;
// The diagnostic state each time the calling thread waits for a key.
std::vector<int32_t> g_statesSeen;

}  // namespace

extern "C" void OSSSleep(uint32_t) {}

namespace {

using vttest::Lines;

const char *kHost = R"({"cards":[{"serial":"SESS1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
 "ports":[
  {"wwnn":"20:00:00:24:ff:00:00:00","wwpn":"21:00:00:24:ff:00:00:00","port_id":"01:01:00","speed":32,
   "virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:00"}],
   "diag_faults":{"read_buffer_miscompare":1},
   "targets":[
    {"wwpn":"50:00:00:00:00:00:00:01","port_id":"01:0a:00","luns":[{"lun":0}],
     "link_errors":{"link_failure":1,"loss_of_sync":2,"loss_of_signal":3,"invalid_crc":4}},
    {"wwpn":"50:00:00:00:00:00:00:02","port_id":"01:0b:00","luns":[{"lun":0}]},
    {"wwpn":"50:00:00:00:00:00:00:03","port_id":"01:0c:00","logged_in":false,"luns":[{"lun":0}]},
    {"wwpn":"50:00:00:00:00:00:00:04","port_id":"01:0d:00","type":"nvme","luns":[{"lun":1}]},
    {"wwpn":"50:00:00:00:00:00:00:05","port_id":"01:0e:00","luns":[{"lun":0}]}]},
  {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:02:00","speed":32,
   "diag_faults":{"loopback":["status=2*100000"]}},
  {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02","port_id":"01:03:00","speed":32,
   "state":"linkdown"}]}]})";

class Session : public ::testing::Test {
protected:
    void SetUp() override {
        g_screen.clear();
        g_keys = nullptr;
        g_statesSeen.clear();
        diagtest::TheTerminal().beforeKey = [] { g_statesSeen.push_back(int32_t(g_DiagState)); };
        vttest::WriteFile(root_.path("/host.json"), kHost);
        setenv("VTSDM_HOST", root_.path("/host.json").c_str(), 1);
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        for (SDMDevice *d = GetMyDeviceList()->First; d; d = d->next) ports_.push_back(d);
        ASSERT_EQ(ports_.size(), 4u);  // three ports and the virtual port
        InitializeUserDiagnosticsTable(DIAG_TEST_LOOPBACK);
        AddUserDiagnosticsData(DIAG_ROW_LOOPBACK_TYPE, "2");  // external: the link matters
        AddUserDiagnosticsData(DIAG_ROW_DATA_PATTERN, "5A");
        DeleteAllDeviceFromDisableDiagList();
    }
    void TearDown() override {
        g_keys = nullptr;
        VTAPI_Uninitialize();
        unsetenv("VTSDM_HOST");
    }
    SDMDevice *Port(uint8_t last) {
        for (SDMDevice *d : ports_)
            if (d->DevicePortProperty.WWPN[1] == 0 && d->DevicePortProperty.WWPN[7] == last) return d;
        return nullptr;
    }

    vttest::SysrootScope root_;
    std::vector<SDMDevice *> ports_;
};

TEST_F(Session, LoopbackOnEveryPortAtOnce) {
    AddUserDiagnosticsData(DIAG_ROW_TEST_COUNT, "3");
    std::vector<VTAPI_DiagResult> results(ports_.size());
    EXPECT_EQ(CreateLoopbackThreadTest(ports_.data(), uint32_t(ports_.size()), results.data()),
              VTAPI_NOT_SUPPORTED_ON_VPORT);
    for (size_t i = 0; i < ports_.size(); ++i) {
        const VTAPI_DiagResult &r = results[i];
        const uint8_t *w = ports_[i]->DevicePortProperty.WWPN;
        if (isVirtualPortHBA(ports_[i])) {
            EXPECT_EQ(r.RunsDone, 0u);
            EXPECT_STREQ(r.LastRun.TestStatus, "Not Supported");
            continue;
        }
        EXPECT_EQ(r.RunsDone, 3u);
        EXPECT_STREQ(r.LastRun.TestStatus, w[7] == 0 ? "Success" : w[7] == 1 ? "Param Error" : "Loop Down");
        EXPECT_EQ(r.RunsFailed, w[7] == 0 ? 0u : 3u);
    }
    // The state is 2 while the test runs and 1 when it has stopped.
    ASSERT_FALSE(g_statesSeen.empty());
    EXPECT_EQ(g_statesSeen.front(), TARN_DIAG_RUNNING);
    EXPECT_EQ(g_DiagState, TARN_DIAG_STOPPED);

    const auto lines = Lines(Screen());
    EXPECT_GE(vttest::FindLine(lines, "Diagnostics - Loopback Test (press ENTER to stop)"), 0);
    EXPECT_GE(vttest::FindLine(lines,
                               "21:00:00:24:ff:00:00:00      3 Success                  0               0 "
                               "                 0"),
              0);
    const int paramError = vttest::FindLine(lines, "21:00:00:24:ff:00:00:01      1 Param Error");
    EXPECT_GE(paramError, 0);
    EXPECT_GE(vttest::FindLine(lines, "21:00:00:24:ff:00:00:02      2 Loop Down"), 0);
    EXPECT_GE(vttest::FindLine(lines, "21:01:00:24:ff:00:00:00: loopback test is not supported on a virtual port"), 0);
    EXPECT_GE(vttest::FindLine(lines, "Port 21:00:00:24:ff:00:00:00: 3 run(s), 0 failed, 3 iteration(s)"), 0);
}

TEST_F(Session, EnterStopsATestWithoutEnd) {
    AddUserDiagnosticsData(DIAG_ROW_TEST_COUNT, "0");
    SDMDevice *ports[] = {Port(0), Port(1)};
    // ENTER once both ports have run and ten runs are done in all (however
    // the workers happen to be scheduled).
    g_keys = [&ports] {
        const uint32_t count = GetLoopbackResultCount();
        bool seen[2] = {false, false};
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t instance = UINT32_MAX;
            GetLoopbackResult(i, &instance);
            for (int p = 0; p < 2; ++p) seen[p] |= instance == ports[p]->Instance;
        }
        return count >= 10 && seen[0] && seen[1] ? '\n' : -1;
    };
    VTAPI_DiagResult results[2];
    EXPECT_EQ(CreateLoopbackThreadTest(ports, 2, results), VTAPI_SUCCESS);
    for (const VTAPI_DiagResult &r : results) {
        EXPECT_EQ(r.Aborted, 1u);
        EXPECT_GE(r.RunsDone, 1u);
    }
    EXPECT_GE(results[0].RunsDone + results[1].RunsDone, 10u);
    EXPECT_EQ(g_DiagState, TARN_DIAG_STOPPED);
    EXPECT_GE(vttest::FindLine(Lines(Screen()), ", stopped"), 0);
}

TEST_F(Session, AChangedDiagnosticStateStopsTheTest) {
    // What the command line's handler does to a running test.
    AddUserDiagnosticsData(DIAG_ROW_TEST_COUNT, "0");
    g_keys = [] {
        if (GetLoopbackResultCount() >= 4 && g_DiagState == TARN_DIAG_RUNNING) g_DiagState = TARN_DIAG_STOPPED;
        return -1;
    };
    SDMDevice *ports[] = {Port(0)};
    VTAPI_DiagResult result{};
    EXPECT_EQ(CreateLoopbackThreadTest(ports, 1, &result), VTAPI_SUCCESS);
    EXPECT_EQ(result.Aborted, 1u);
}

TEST_F(Session, ReadWriteBufferOnTheTargets) {
    AddUserDiagnosticsData(DIAG_ROW_TEST_COUNT, "4");
    AddUserDiagnosticsData(DIAG_ROW_DATA_SIZE, "8");
    const uint8_t disabled[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x05};
    EXPECT_EQ(AddDeviceToDisableList(disabled), 0);
    EXPECT_EQ(AddDeviceToDisableList(disabled), -1);
    EXPECT_EQ(CountDisableDiagDeviceList(), 1u);
    SDMDevice *ports[] = {Port(0)};
    VTAPI_RWBufferTestResultList results{};
    EXPECT_EQ(CreateReadWriteBufferThreadTest(ports, 1, &results), VTAPI_SUCCESS);
    ASSERT_EQ(results.Count, 4u);  // the disabled target is left out
    const VTAPI_RWBufferTestResult *e = results.First;
    EXPECT_STREQ(e->Status, "Data Miscompare");  // the port changes the first READ BUFFER
    EXPECT_EQ(e->DataMiscompares, 1u);
    EXPECT_EQ(e->RunsDone, 4u);
    EXPECT_EQ(e->LinkFailureCount, 1u);
    EXPECT_EQ(e->LossOfSyncCount, 2u);
    EXPECT_EQ(e->LossOfSignalCount, 3u);
    EXPECT_EQ(e->InvalidCRCCount, 4u);
    e = e->next;
    EXPECT_STREQ(e->Status, "Success");
    EXPECT_EQ(e->RunsDone, 4u);
    EXPECT_EQ(e->LoopId, 1u);
    e = e->next;
    EXPECT_STREQ(e->Status, "Not present");
    e = e->next;
    EXPECT_STREQ(e->Status, "Not supported");
    const auto lines = Lines(Screen());
    EXPECT_GE(vttest::FindLine(lines,
                               "21:00:00:24:ff:00:00:00 50:00:00:00:00:00:00:01    0/Data Miscompare "
                               "              1            1            2              3           4"),
              0);
    EXPECT_GE(vttest::FindLine(lines, "Data miscompare at byte 4 (8 of 8 bytes read)"), 0);
    FreeRWBufferTestResults(&results);

    // Stop on error ends the test at the miscompare.
    ASSERT_EQ(vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "miscompare", "0", "1"}).status, 0);
    AddUserDiagnosticsData(DIAG_ROW_ON_ERROR, "1");
    EXPECT_EQ(CreateReadWriteBufferThreadTest(ports, 1, &results), VTAPI_SUCCESS);
    ASSERT_NE(results.First, nullptr);
    EXPECT_EQ(results.First->RunsDone, 1u);
    EXPECT_EQ(results.First->next->RunsDone, 0u);
    FreeRWBufferTestResults(&results);
    EXPECT_EQ(DeleteDeviceFromDisableDiagList(disabled), 0);
    EXPECT_EQ(DeleteDeviceFromDisableDiagList(disabled), -1);
    EXPECT_EQ(FindDeviceInDisableDiagList(nullptr), 8);
}

TEST_F(Session, ReadWriteBufferThroughTheApi) {
    const ProtocolEntry *entry = gpAdapterList->First->PhyPorts.First->Protocols.First;
    DiagRequest rq{};
    rq.TestCount = 2;
    rq.TestIncrement = 1;
    rq.DataSize = 64;
    rq.PatternKind = VTAPI_DIAG_PATTERN_BYTE;
    VTAPI_RWBufferTestResultList *list = nullptr;
    ASSERT_EQ(VTAPI_DiagnosticsReadWriteBufferTest(entry, &rq, &list), VTAPI_SUCCESS);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->Count, 5u);
    EXPECT_EQ(list->First->DataMiscompares, 1u);
    EXPECT_EQ(VTAPI_FreeRWBufferTestResultList(list), VTAPI_SUCCESS);
}

TEST(SessionSignal, CtrlCEndsATestWithoutEndAndFreesTheWorkers) {
    vttest::SysrootScope root;
    vttest::WriteFile(root.path("/host.json"), kHost);
    const auto r =
        vttest::Run({vttest::BuildPath("tests/diag_signal"), "-kl", "all"}, {"VTSDM_HOST=" + root.path("/host.json")});
    // The handler ends the process with the status of the terminal restore.
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.out.find("the test ended without the signal"), std::string::npos);
    const auto log = Lines(vttest::ReadFile(root.path("/var/tmp/vtapi.log")));
    int at = 0;
    for (const char *line :
         {"Signal (2) caught...", "Diagnostics test is running (status=2)", "Diagnostics test stopped (status=1)",
          "termination_handler: g_DiagState=3", "Calling cleanup routine", "CTRL-C triggered - Cleanup() ...",
          "Diagnostics: stopping 3 worker(s)...", "Diagnostics: 3 worker(s) stopped",
          "cleanup: g_ResourcesDeallocated = 1", "termination_handler: exit 0."}) {
        const int found = vttest::FindLine(log, line, at);
        EXPECT_GE(found, 0) << "no \"" << line << "\" after line " << at;
        if (found >= 0) at = found;
    }
    // Each worker ended before the resources were released.
    const int released = vttest::FindLine(log, "cleanup: g_ResourcesDeallocated = 1");
    int finished = 0;
    for (int i = vttest::FindLine(log, "worker of instance"); i >= 0 && i < released;
         i = vttest::FindLine(log, "worker of instance", i + 1))
        ++finished;
    EXPECT_EQ(finished, 3);
}

}  // namespace
