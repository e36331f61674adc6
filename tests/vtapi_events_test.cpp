// Adapter events: polling through VTAPI_DidConfigChange with the simulator
// changing links and queueing events from another process, the alarm
// callbacks and their slots.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "testutil.h"
#include "vtapi.h"
#include "core/core.h"
#include "core/events.h"
#include "oss/oss.h"

namespace {

struct Call {
    uint32_t device, reserved1, status, reserved2;
};
std::vector<Call> g_calls;

uint32_t Record(uint32_t device, uint32_t r1, uint32_t status, uint32_t r2) {
    g_calls.push_back({device, r1, status, r2});
    return 0;
}

template <int N>
uint32_t Distinct(uint32_t, uint32_t, uint32_t, uint32_t) {
    return N;
}

template <int... N>
std::array<VTAPI_AlarmCallback, sizeof...(N)> MakeCallbacks(std::integer_sequence<int, N...>) {
    return {&Distinct<N>...};
}

class Events : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), 0u);
        g_calls.clear();
        ASSERT_EQ(VTAPI_RegisterAlarmNotificationCallback(&Record), 0u);
    }
    void TearDown() override {
        VTAPI_UnRegisterAlarmNotificationCallback(&Record);
        g_CoreAenDisabled = 0;
        VTAPI_Uninitialize();
    }
    void Sim(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        auto r = vttest::Run(args);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    std::string Log() { return vttest::ReadFile(root_.path("/var/tmp/vtapi.log")); }

    vttest::SysrootScope root_;
};

TEST_F(Events, LinkDownThenUpNotifiesTwiceAndFlagsARebuild) {
    EXPECT_EQ(VTAPI_DidConfigChange(), 0u);
    EXPECT_TRUE(g_calls.empty());
    Sim({"link", "0", "linkdown"});
    EXPECT_EQ(VTAPI_DidConfigChange(), 1u);
    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].device, 0u);
    EXPECT_EQ(g_calls[0].reserved1, 0u);
    EXPECT_EQ(g_calls[0].reserved2, 0u);
    EXPECT_EQ(g_calls[0].status & 0x1001u, 0x1001u);

    Sim({"link", "0", "online"});
    VTAPI_DidConfigChange();
    // Port 0 is told of the return; its virtual port (instance 6), which
    // went down with it, is told by the port-state poll.
    ASSERT_EQ(g_calls.size(), 3u);
    EXPECT_EQ(g_calls[1].device, 0u);
    EXPECT_EQ(g_calls[1].status & 0x1001u, 0u);
    EXPECT_EQ(g_calls[2].device, 6u);
    EXPECT_EQ(g_calls[2].status & 0x1001u, 0u);
    EXPECT_NE(Log().find("FC_CorePollForAEN: Rebuilding CoreDB - Notifying clients of change"), std::string::npos);

    // The refresh clears the flag; a quiet poll leaves it clear.
    ASSERT_EQ(guConfigChanged, 1u);
    VTAPI_RefreshData();
    EXPECT_EQ(guConfigChanged, 0u);
    EXPECT_EQ(VTAPI_DidConfigChange(), 0u);
}

TEST_F(Events, AHundredEventsAreCutToSixtyFour) {
    std::vector<std::string> args = {"event", "0"};
    for (int i = 0; i < 100; ++i) args.push_back("lip");
    Sim(args);
    // A loop initialization alone asks for no rebuild.
    EXPECT_EQ(VTAPI_DidConfigChange(), 0u);
    const std::string log = Log();
    EXPECT_NE(log.find("CoreHandleAEN: Device [0] ajusted count to 64"), std::string::npos);
    EXPECT_NE(log.find("CoreHandleAEN: Device[0].Event[63]: (Lip Occurred)"), std::string::npos);
    EXPECT_EQ(log.find("CoreHandleAEN: Device[0].Event[64]"), std::string::npos);
    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].status, 0x0004u | 0x8000u);  // pending bit while notifying
    EXPECT_EQ(g_LastEvent, 1u);
}

TEST_F(Events, EventsPastSixtyFourWaitForTheNextPoll) {
    // 100 loop initializations, then the link goes down: the first poll
    // handles 64, the second the other 36 and the link-down, which asks for
    // a rebuild.
    std::vector<std::string> args = {"event", "0"};
    for (int i = 0; i < 100; ++i) args.push_back("lip");
    args.push_back("linkdown");
    Sim(args);
    EXPECT_EQ(VTAPI_DidConfigChange(), 0u);
    EXPECT_EQ(VTAPI_DidConfigChange(), 1u);
    // The event's notification, then the port-state poll's: the port itself
    // is still online.
    ASSERT_EQ(g_calls.size(), 3u);
    EXPECT_EQ(g_calls[1].status & 0x1001u, 0x1001u);
    EXPECT_EQ(g_calls[2].status & 0x1001u, 0u);
    EXPECT_NE(Log().find("CoreHandleAEN: Device [0] has (37) events"), std::string::npos);
    EXPECT_EQ(g_LastEvent, 3u);
}

TEST_F(Events, EventTableAndUnknownCodes) {
    Sim({"event", "2", "scr", "fec", "7"});
    EXPECT_EQ(VTAPI_DidConfigChange(), 1u);  // SCR update asks for a rebuild
    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].device, 2u);
    EXPECT_EQ(g_calls[0].status, 0x0010u | 0x10000u | 0x8000u);
    EXPECT_NE(Log().find("CoreHandleAEN: Device[2].Event[2]: (**Unknown**)"), std::string::npos);
    EXPECT_EQ(g_LastEvent, 0u);
}

TEST_F(Events, DisabledEventsStillTrackTheStatusWord) {
    g_CoreAenDisabled = 1;
    Sim({"link", "1", "offline"});
    EXPECT_EQ(CoreHandlePortStateChange(), 0u);  // no rebuild requested
    const SDMDevice *d = GetDeviceList()->First->next;
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->Instance, 1u);
    EXPECT_EQ(d->NotificationStatus & 0x1001u, 0x1001u);
    EXPECT_NE(Log().find("CoreHandlePortStateChange: Skipping Rebuild due to disabled AEN"), std::string::npos);
    // Port state 4 is reflected in its bit.
    Sim({"link", "1", "bypassed"});
    CoreHandlePortStateChange();
    EXPECT_EQ(d->NotificationStatus & 0x0040u, 0x0040u);
}

TEST_F(Events, CallbackSlots) {
    EXPECT_EQ(VTAPI_RegisterAlarmNotificationCallback(&Record), 0u);  // already present
    int used = 0;
    for (auto cb : gAlarmCallbacks) used += cb == &Record;
    EXPECT_EQ(used, 1);
    EXPECT_EQ(VTAPI_RegisterAlarmNotificationCallback(nullptr), 2u);
    EXPECT_EQ(VTAPI_UnRegisterAlarmNotificationCallback(nullptr), 2u);
    auto many = MakeCallbacks(std::make_integer_sequence<int, 32>{});
    // One slot holds Record, so 31 more fit and the 32nd distinct one is refused.
    for (int i = 0; i < 31; ++i) EXPECT_EQ(VTAPI_RegisterAlarmNotificationCallback(many[i]), 0u);
    EXPECT_EQ(VTAPI_RegisterAlarmNotificationCallback(many[31]), 0xFFFFFFFFu);
    for (int i = 0; i < 31; ++i) EXPECT_EQ(VTAPI_UnRegisterAlarmNotificationCallback(many[i]), 0u);
    EXPECT_EQ(VTAPI_UnRegisterAlarmNotificationCallback(many[0]), 2u);
    EXPECT_NE(Log().find("VTAPI_RegisterAlarmNotificationCallback(): returning with -1"), std::string::npos);
}

}  // namespace
