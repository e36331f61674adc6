// Link status: the adapter port's and its targets' link error counters
// through VTAPI_GetLinkStatus on the default simulated host, targets that
// are not logged in, removed or unreachable, counters that change while the
// monitor runs, its keys and views, and the CSV files.
#include <gtest/gtest.h>

#include <unistd.h>

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

const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kArray[8] = {0x50, 0x0a, 0x09, 0x81, 0x00, 0x00, 0xa1, 0x00};
const uint8_t kNvme[8] = {0x20, 0x01, 0x00, 0x25, 0xb5, 0x00, 0x0e, 0x00};
const uint8_t kAbsent[8] = {0x50, 0x0a, 0x09, 0x81, 0x00, 0x00, 0xb2, 0x00};
const char *kArrayText = "50:0a:09:81:00:00:a1:00";

class LinkStatus : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        monitortest::Reset();
        g_screen.clear();
        g_keys = nullptr;
        // The simulated clock stands at the test's time before anything reads a counter.
        TheClock().SyncSimulator();
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);  // the default host
        InitializeUserPollingTable(POLL_LINK_STATUS);
        FreeLinkStatusResultList(GetLinkStatusResultList());
        FreeLinkStatusResultSavedList();
        for (AdapterEntry *a = gpAdapterList->First; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (memcmp(e->WWPN, kPort0, 8) == 0) entry_ = e;
        ASSERT_NE(entry_, nullptr);
        // Counters of the adapter port that tell the six apart.
        ASSERT_EQ(Sim({"counters", "0", "invalid_crc=5", "primitive_seq_errors=7", "invalid_tx_words=9"}), 0);
    }
    void TearDown() override {
        TheClock().Ungate();
        g_keys = nullptr;
        VTAPI_Uninitialize();
    }
    static int Sim(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args).status;
    }
    VTAPI_LinkStatusResultList *Read() {
        VTAPI_LinkStatusResultList *list = nullptr;
        EXPECT_EQ(VTAPI_GetLinkStatus(entry_, &list), VTAPI_SUCCESS);
        lists_.push_back(list);
        return list;
    }
    void TearDownLists() {
        for (auto *l : lists_) VTAPI_FreeLinkStatusResultList(l);
        lists_.clear();
    }
    ~LinkStatus() override { TearDownLists(); }

    vttest::SysrootScope root_;
    const ProtocolEntry *entry_ = nullptr;
    std::vector<VTAPI_LinkStatusResultList *> lists_;
};

TEST_F(LinkStatus, ThePortAndEachTarget) {
    VTAPI_LinkStatusResultList *list = Read();
    ASSERT_EQ(list->Count, 5u);  // the port and its four targets, in order
    const LinkStatusEntry *port = list->First;
    EXPECT_STREQ(port->PortType, "Port");
    EXPECT_EQ(memcmp(port->PortName, kPort0, 8), 0);
    EXPECT_EQ(port->LinkFailureCount, 1u);
    EXPECT_EQ(port->LossOfSyncCount, 3u);
    EXPECT_EQ(port->LossOfSignalCount, 1u);
    EXPECT_EQ(port->PrimitiveSeqProtocolErrorCount, 7u);
    EXPECT_EQ(port->InvalidTransmissionWordCount, 9u);
    EXPECT_EQ(port->InvalidCRCCount, 5u);

    const LinkStatusEntry *array = FindDeviceInLinkStatusList(list, kArray);
    ASSERT_NE(array, nullptr);
    EXPECT_STREQ(array->PortType, "FCP Disk");
    EXPECT_EQ(array->Status, 0);
    EXPECT_EQ(array->LossOfSyncCount, 2u);
    EXPECT_EQ(array->InvalidCRCCount, 1u);
    EXPECT_STREQ(FindDeviceInLinkStatusList(list, kNvme)->PortType, "NVMe Disk");
    const LinkStatusEntry *absent = FindDeviceInLinkStatusList(list, kAbsent);
    EXPECT_EQ(absent->Status, VTAPI_LINKSTATUS_NOT_PRESENT);
    EXPECT_STREQ(absent->Text, "Target (50:0a:09:81:00:00:b2:00) not present. Skipping...");

    // Errors a target reports while the program runs.
    ASSERT_EQ(Sim({"target-errors", "0", kArrayText, "invalid_crc=4", "link_failure=2"}), 0);
    list = Read();
    array = FindDeviceInLinkStatusList(list, kArray);
    EXPECT_EQ(array->InvalidCRCCount, 5u);
    EXPECT_EQ(array->LinkFailureCount, 2u);

    VTAPI_LinkStatusResultList *none = nullptr;
    ProtocolEntry stranger{};
    EXPECT_EQ(VTAPI_GetLinkStatus(&stranger, &none), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(none, nullptr);
}

TEST_F(LinkStatus, RemovedAndUnreachableTargetsStayInTheList) {
    ASSERT_EQ(Sim({"target", "0", kArrayText, "remove"}), 0);
    const LinkStatusEntry *array = FindDeviceInLinkStatusList(Read(), kArray);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(array->Status, VTAPI_LINKSTATUS_QUERY_FAILED);
    EXPECT_STREQ(array->StatusText, "Device has been removed");
    EXPECT_STREQ(array->Text, "Device has been removed (0x2000006f) (Device removed)");
    EXPECT_EQ(array->LossOfSyncCount, 0u);

    ASSERT_EQ(Sim({"target", "0", kArrayText, "restore"}), 0);
    ASSERT_EQ(Sim({"link", "0", "linkdown"}), 0);
    array = FindDeviceInLinkStatusList(Read(), kArray);
    EXPECT_EQ(array->Status, VTAPI_LINKSTATUS_QUERY_FAILED);
    EXPECT_STREQ(array->StatusText, "Get link stats failed");
    EXPECT_STREQ(array->Text, "Unable to query target for link status (0x20000075) (Loop down)");
    ASSERT_EQ(Sim({"link", "0", "online"}), 0);
    EXPECT_EQ(FindDeviceInLinkStatusList(Read(), kArray)->Status, 0);
}

TEST_F(LinkStatus, CsvFilesLineByLine) {
    const VTAPI_LinkStatusResultList *list = Read();
    const std::string adapter = root_.path("/ls.csv"), targets = root_.path("/ls_targets.csv");
    ASSERT_EQ(ExportFcHBALinkStatusResultToCsvFile(adapter.c_str(), list, "2023-11-14 22:13:20"), 0u);
    ASSERT_EQ(ExportFcHBALinkStatusResultToCsvFile(adapter.c_str(), list, "2023-11-14 22:13:25"), 0u);
    // Only the "Port" entry, the invalid CRC count fourth.
    EXPECT_EQ(vttest::ReadFile(adapter),
              "2023-11-14 22:13:20,21:00:00:24:ff:7c:50:10,1,3,1,5,7,9\n"
              "2023-11-14 22:13:25,21:00:00:24:ff:7c:50:10,1,3,1,5,7,9\n");
    ASSERT_EQ(ExportFcTargetLinkStatusResultToCsvFile(targets.c_str(), list, "T"), 0u);
    EXPECT_EQ(vttest::ReadFile(targets),
              "T,50:0a:09:81:00:00:a1:00,0,2,0,1,0,0\n"
              "T,50:01:10:a0:00:01:70:01,0,0,0,0,0,0\n"
              "T,20:01:00:25:b5:00:0e:00,0,0,0,0,0,0\n"
              "T,50:0a:09:81:00:00:b2:00,0,0,0,0,0,0\n");
    // The FCoE form: four counters, and the file starts anew each time.
    const std::string fcoe = root_.path("/fcoe.csv");
    ASSERT_EQ(ExportFCoEHBALinkStatusResultToCsvFile(fcoe.c_str(), list, "A"), 0u);
    ASSERT_EQ(ExportFCoEHBALinkStatusResultToCsvFile(fcoe.c_str(), list, "B"), 0u);
    EXPECT_EQ(vttest::ReadFile(fcoe), "B,21:00:00:24:ff:7c:50:10,1,3,1,5\n");

    // Never through a symbolic link, and a name that cannot be opened is said so.
    const std::string link = root_.path("/link.csv");
    ASSERT_EQ(symlink(adapter.c_str(), link.c_str()), 0);
    EXPECT_EQ(ExportFcHBALinkStatusResultToCsvFile(link.c_str(), list, "X"), 1u);
    EXPECT_EQ(Lines(vttest::ReadFile(adapter)).size(), 2u);
    EXPECT_NE(Screen().find("Unable to open log file (" + link + ")!"), std::string::npos);
}

TEST_F(LinkStatus, MonitorViewsKeysAndFiles) {
    const std::string csv = root_.path("/ls.csv");
    AddUserPollingData(POLL_LINK_STATUS, POLL_ROW_AUTO_POLL, "0");
    AddUserPollingData(POLL_LINK_STATUS, POLL_ROW_SET_RATE, "5");
    AddUserPollingData(POLL_LINK_STATUS, POLL_ROW_LOG_TO_FILE, csv.c_str());
    {
        std::lock_guard<std::mutex> lock(TheClock().mutex);
        TheClock().gated = true;
    }
    // Poll 1; R; the array reports 4 more CRC errors; poll 2; T; ENTER.
    int step = 0;
    g_keys = [&]() -> int32_t {
        size_t arrayRows = 0;
        for (const std::string &l : Lines(Screen())) arrayRows += l.rfind(kArrayText, 0) == 0;
        switch (step) {
        case 0:
            if (arrayRows != 1) return -1;
            ++step;
            return 'R';
        case 1:
            Sim({"target-errors", "0", kArrayText, "invalid_crc=4"});
            TheClock().Allow(5);
            ++step;
            return -1;
        case 2:
            if (arrayRows != 3) return -1;  // poll 1, the reset view, poll 2
            ++step;
            return 'T';
        default: TheClock().Ungate(); return '\n';
        }
    };
    SDMDevice *ports[] = {GetSDMDevice(&entry_->Device)};
    VTAPI_LinkStatusResultList *last = nullptr;
    ASSERT_EQ(CreateThreadForLinkStatus(ports, 1, &last), VTAPI_SUCCESS);
    const std::string screen = Screen();
    EXPECT_EQ(screen.rfind("\nLink Status\n\nGeneral keyboard shortcuts:\n      R     - Reset current\n"
                           "      C     - Refresh current\n      T     - Refresh total\n"
                           "      ENTER - Cancel the current task\n",
                           0),
              0u);
    const auto lines = Lines(screen);
    // Poll 1 shows the counters so far, in the screen's order.
    const int first = vttest::FindLine(lines,
                                       "21:00:00:24:ff:7c:50:10        1        3        1        5         7"
                                       "             9");
    EXPECT_GE(first, 0);
    EXPECT_GE(vttest::FindLine(lines, "50:0a:09:81:00:00:b2:00 Target (50:0a:09:81:00:00:b2:00) not present."), 0);
    // After R the current view counts from zero: poll 2 shows only the new errors ...
    const int reset = vttest::FindLine(lines, "Current (reset)", first);
    EXPECT_GE(reset, 0);
    EXPECT_GE(vttest::FindLine(lines,
                               "50:0a:09:81:00:00:a1:00        0        0        0        4         0"
                               "             0",
                               reset),
              0);
    // ... and T the totals.
    const int total = vttest::FindLine(lines, "Total", reset);
    EXPECT_GE(total, 0);
    EXPECT_GE(vttest::FindLine(lines,
                               "50:0a:09:81:00:00:a1:00        0        2        0        5         0"
                               "             0",
                               total),
              0);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(FindDeviceInLinkStatusList(last, kArray)->InvalidCRCCount, 5u);
    VTAPI_FreeLinkStatusResultList(last);

    // One line per poll for the port, the targets beside it.
    const auto rows = Lines(vttest::ReadFile(csv));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], "2023-11-14 22:13:20,21:00:00:24:ff:7c:50:10,1,3,1,5,7,9");
    EXPECT_EQ(rows[1], "2023-11-14 22:13:25,21:00:00:24:ff:7c:50:10,0,0,0,0,0,0");
    EXPECT_EQ(Lines(vttest::ReadFile(root_.path("/ls_targets.csv"))).size(), 8u);
}

TEST_F(LinkStatus, NoAdapter) {
    VTAPI_LinkStatusResultList list{};
    EXPECT_EQ(GetLinkStatus(nullptr, &list), 8u);
    EXPECT_NE(Screen().find("No compatible HBA(s) found in current system"), std::string::npos);
    EXPECT_EQ(CreateThreadForLinkStatus(nullptr, 0, nullptr), 8u);
}

}  // namespace
