// Port statistics: the rates over two polls of a port whose simulated
// traffic grows at a set rate, the wait of a second poll within the same
// second, resets, the statistics calls of the API, the polling parameters,
// and the monitor with its screen, keys and CSV file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "diag/diag.h"
#include "diag_screen.h"
#include "monitor_clock.h"
#include "testutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"

MONITOR_TEST_CLOCK_HOOKS

DIAG_TEST_TERMINAL_HOOKS

namespace {

using diagtest::Screen;
std::string &g_screen = diagtest::TheTerminal().screen;
std::function<int32_t()> &g_keys = diagtest::TheTerminal().keys;

}  // namespace

namespace {

using monitortest::TheClock;
using vttest::Lines;

// Port 0 carries 1000 I/Os and 20 MB a second; port 1 carries nothing.
const char *kHost = R"({"cards":[{"serial":"STAT1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
 "ports":[
  {"wwnn":"20:00:00:24:ff:00:00:00","wwpn":"21:00:00:24:ff:00:00:00","port_id":"01:01:00","speed":32,
   "statistics":{"io_count":5000,"megabytes":100,"controller_errors":3,"device_errors":2,"lip_resets":1},
   "traffic":{"io_per_second":1000,"mb_per_second":20}},
  {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:02:00","speed":32}]}]})";

constexpr int64_t kBps = 20 * (int64_t(1) << 20);

class Statistics : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        monitortest::Reset();
        g_screen.clear();
        g_keys = nullptr;
        vttest::WriteFile(root_.path("/host.json"), kHost);
        setenv("VTSDM_HOST", root_.path("/host.json").c_str(), 1);
        // The simulated clock stands at the test's time before anything reads a counter.
        TheClock().SyncSimulator();
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        FreeHBAStatisticsList();
        InitializeUserPollingTable(POLL_STATISTICS);
        entry_ = gpAdapterList->First->PhyPorts.First->Protocols.First;
        port_ = GetSDMDevice(&entry_->Device);
        ASSERT_NE(port_, nullptr);
    }
    void TearDown() override {
        TheClock().Ungate();
        g_keys = nullptr;
        VTAPI_Uninitialize();
        unsetenv("VTSDM_HOST");
    }
    // Moves both clocks: the library's and the simulated host's.
    static void Advance(time_t seconds) {
        {
            std::lock_guard<std::mutex> lock(TheClock().mutex);
            TheClock().now += seconds;
        }
        TheClock().SyncSimulator();
    }
    VTAPI_PortStatistics Poll() {
        VTAPI_PortStatistics s{};
        EXPECT_EQ(VTAPI_GetPortStatisticsFC(entry_, &s), VTAPI_SUCCESS);
        return s;
    }

    vttest::SysrootScope root_;
    const ProtocolEntry *entry_ = nullptr;
    SDMDevice *port_ = nullptr;
};

TEST_F(Statistics, TwoPollsShowTheConfiguredRates) {
    VTAPI_PortStatistics s = Poll();
    EXPECT_EQ(s.Sample.IoCount, 5000);
    EXPECT_EQ(s.Sample.IoPerSecond, 0);  // no previous poll
    EXPECT_EQ(s.Sample.BytesPerSecond, 0);
    EXPECT_EQ(s.Sample.Errors, 3);
    EXPECT_EQ(s.Sample.DeviceErrors, 2);
    EXPECT_EQ(s.Sample.Resets, 1);
    EXPECT_STREQ(s.Sample.TimeStamp, "2023-11-14 22:13:20");
    const uint64_t seconds = s.Counters.SecondsSinceLastReset;

    Advance(5);
    s = Poll();
    EXPECT_EQ(s.Sample.IoCount, 10000);
    EXPECT_EQ(s.Sample.IoPerSecond, 1000);
    EXPECT_EQ(s.Sample.BytesPerSecond, kBps);
    EXPECT_EQ(s.Counters.TotalMBytes, 200u);
    EXPECT_EQ(s.Counters.SecondsSinceLastReset, seconds + 5);
    EXPECT_STREQ(s.Sample.TimeStamp, "2023-11-14 22:13:25");

    // A reset clears the counters and the rates start from it.
    ASSERT_EQ(VTAPI_ResetDeviceStats(entry_), VTAPI_SUCCESS);
    EXPECT_EQ(entry_->Device.DeviceStatistics.TotalIoCount, 0u);
    s = Poll();
    EXPECT_EQ(s.Sample.IoCount, 0);
    EXPECT_EQ(s.Sample.Errors, 0);
    EXPECT_EQ(s.Sample.IoPerSecond, 0);
    Advance(2);
    s = Poll();
    EXPECT_EQ(s.Sample.IoCount, 2000);
    EXPECT_EQ(s.Sample.IoPerSecond, 1000);
    EXPECT_EQ(s.Counters.SecondsSinceLastReset, 2u);

    // The refresh puts the port's counters into every copy of the port.
    Advance(3);
    ASSERT_EQ(VTAPI_RefreshDeviceStats(entry_), VTAPI_SUCCESS);
    EXPECT_EQ(entry_->Device.DeviceStatistics.TotalIoCount, 5000u);
    EXPECT_EQ(port_->DeviceStatistics.TotalIoCount, 5000u);
    EXPECT_TRUE(TheClock().sleeps.empty());  // the API never waits

    ProtocolEntry stranger{};
    EXPECT_EQ(VTAPI_GetPortStatisticsFC(&stranger, &s), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetPortStatisticsFC(entry_, nullptr), VTAPI_INVALID_ARGUMENT);
}

TEST_F(Statistics, ASecondPollInTheSameSecondWaitsTheRate) {
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_SET_RATE, "5");
    EXPECT_EQ(GetHBAStatistics(port_)->IoCount, 5000);
    const HBAStatisticsSample s = *GetHBAStatistics(port_);
    EXPECT_EQ(TheClock().sleeps, (std::vector<uint32_t>{5}));
    EXPECT_EQ(s.IoCount, 10000);
    EXPECT_EQ(s.IoPerSecond, 1000);
    EXPECT_STREQ(s.TimeStamp, "2023-11-14 22:13:25");

    // With a rate of 0 the wait is none, the elapsed time 0, and so the rates.
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_SET_RATE, "0");
    const HBAStatisticsSample same = *GetHBAStatistics(port_);
    EXPECT_EQ(same.IoPerSecond, 0);
    EXPECT_EQ(same.BytesPerSecond, 0);
    EXPECT_EQ(same.IoCount, 10000);
    // A clock that went back: no rates either.
    Advance(-3);
    EXPECT_EQ(GetHBAStatistics(port_)->IoPerSecond, 0);

    EXPECT_EQ(GetHBAStatistics(nullptr)->Status, 8u);
    EXPECT_EQ(ResetHBAStatisticsCounter(nullptr), 8u);
}

TEST_F(Statistics, PollingParameters) {
    char message[256] = "";
    auto refused = [&](uint32_t kind, uint32_t row, const char *value) {
        message[0] = '\0';
        return ValidatePollingParamValue(kind, row, value, message) == 48 ? std::string(message) : std::string();
    };
    const std::string autoPoll = "Polling iteration value must be from 0 to 256. (0 = non-stop polling)!";
    EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "257"), autoPoll);
    EXPECT_EQ(refused(POLL_LINK_STATUS, POLL_ROW_AUTO_POLL, "x"), autoPoll);
    EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "0"), "");
    EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "256"), "");
    const std::string rate = "Polling time interval must be 0 or between 5 and 300 seconds";
    for (const char *bad : {"4", "301", "1", "-5"}) EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_SET_RATE, bad), rate);
    for (const char *good : {"0", "5", "300"}) EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_SET_RATE, good), "");
    EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER, "2"), "Device filter option must be 0 or 1!");
    EXPECT_EQ(refused(POLL_STATISTICS, POLL_ROW_LOG_TO_FILE, "stats.csv"), "");

    EXPECT_EQ(ValidatePollingParamName(POLL_STATISTICS, "ap"), uint32_t(POLL_ROW_AUTO_POLL));
    EXPECT_EQ(ValidatePollingParamName(POLL_STATISTICS, "SETRATE"), uint32_t(POLL_ROW_SET_RATE));
    EXPECT_EQ(ValidatePollingParamName(POLL_STATISTICS, "LogToFile"), uint32_t(POLL_ROW_LOG_TO_FILE));
    EXPECT_EQ(ValidatePollingParamName(POLL_STATISTICS, "df"), uint32_t(POLL_ROW_DEVICE_FILTER));
    EXPECT_EQ(ValidatePollingParamName(POLL_LINK_STATUS, "df"), 0xFFFFFFFFu);  // statistics only
    EXPECT_EQ(ValidatePollingParamValue(POLL_LINK_STATUS, POLL_ROW_DEVICE_FILTER, "1", message), 60u);
    EXPECT_STREQ(message, "Invalid polling option (1)!");
}

TEST_F(Statistics, MonitorScreenAndCsvFile) {
    const std::string csv = root_.path("/stats.csv");
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "3");
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_SET_RATE, "5");
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_LOG_TO_FILE, csv.c_str());
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER, "1");
    SDMDevice *ports[] = {port_};
    HBAStatisticsSample last{};
    ASSERT_EQ(CreateThreadForHBAStatistics(ports, 1, &last), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::ReadFile(csv),
              "2023-11-14 22:13:20,3,2,1,5000,0,0\n"
              "2023-11-14 22:13:25,3,2,1,10000,1000,20971520\n"
              "2023-11-14 22:13:30,3,2,1,15000,1000,20971520\n");
    EXPECT_EQ(last.IoCount, 15000);
    const std::string screen = Screen();
    EXPECT_EQ(screen.rfind("\nMonitoring\n\nGeneral keyboard shortcuts:\n"
                           "      R     - Clear all counters next iteration in this session \n"
                           "      ENTER - Stop\n",
                           0),
              0u);
    const auto lines = Lines(screen);
    EXPECT_GE(vttest::FindLine(lines, "Port     Errors        Errors Reset  I/O Count  IOPS        BPS        Time"),
              0);
    EXPECT_GE(vttest::FindLine(lines,
                               "  0           3             2     1      10000  1000   20971520 "
                               "2023-11-14 22:13:25"),
              0);
    // Appended to, never started anew.
    ASSERT_EQ(CreateThreadForHBAStatistics(ports, 1, nullptr), VTAPI_SUCCESS);
    EXPECT_EQ(Lines(vttest::ReadFile(csv)).size(), 6u);

    // A file that cannot be opened (a directory) is said so.
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_LOG_TO_FILE, root_.root().c_str());
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "1");
    ASSERT_EQ(CreateThreadForHBAStatistics(ports, 1, nullptr), VTAPI_SUCCESS);
    EXPECT_NE(Screen().find("Unable to open log file (" + root_.root() + ")!"), std::string::npos);
}

TEST_F(Statistics, WithoutTheDeviceFilterEveryPortIsWatched) {
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "1");
    SDMDevice *ports[] = {port_};
    ASSERT_EQ(CreateThreadForHBAStatistics(ports, 1, nullptr), VTAPI_SUCCESS);
    const auto lines = Lines(Screen());
    EXPECT_GE(vttest::FindLine(lines, "  0           3"), 0);
    EXPECT_GE(vttest::FindLine(lines, "  1           0"), 0);
}

TEST_F(Statistics, KeyRClearsTheCountersAtTheNextPollAndEnterStops) {
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_AUTO_POLL, "0");  // until ENTER
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_SET_RATE, "5");
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER, "1");
    {
        std::lock_guard<std::mutex> lock(TheClock().mutex);
        TheClock().gated = true;
    }
    // The rows shown so far decide the next step: poll 1, R, poll 2, poll 3,
    // ENTER.  The worker polls only when its sleeps are allowed.
    int step = 0;
    g_keys = [&]() -> int32_t {
        size_t rows = 0;
        for (const std::string &l : Lines(Screen())) rows += l.rfind("  0 ", 0) == 0;
        if (step == 0 && rows == 1) return ++step, 'r';
        if (step == 1) return TheClock().Allow(5), ++step, -1;
        if (step == 2 && rows == 2) return TheClock().Allow(5), ++step, -1;
        if (step == 3 && rows == 3) return TheClock().Ungate(), ++step, '\n';
        return -1;
    };
    SDMDevice *ports[] = {port_};
    HBAStatisticsSample last{};
    ASSERT_EQ(CreateThreadForHBAStatistics(ports, 1, &last), VTAPI_SUCCESS);
    const auto lines = Lines(Screen());
    // Poll 2 follows the reset: counters cleared, no rate yet; poll 3 counts
    // five seconds of traffic from it.
    EXPECT_GE(vttest::FindLine(lines,
                               "  0           0             0     0          0     0          0 "
                               "2023-11-14 22:13:25"),
              0);
    EXPECT_GE(vttest::FindLine(lines,
                               "  0           0             0     0       5000  1000   20971520 "
                               "2023-11-14 22:13:30"),
              0);
    EXPECT_EQ(last.IoCount, 5000);
}

}  // namespace
