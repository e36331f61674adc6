// Virtual ports and QoS: the bandwidth arithmetic, the choice of new WWPNs
// (with the random bytes scripted), and creation, QoS changes and deletion
// through the exported calls on simulated hosts, checked afresh after a
// refresh and in a new process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "../config/vport.h"
#include "testutil.h"
#include "treeutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"

// The random bytes of new WWPNs, scripted by the tests.
namespace {
std::deque<uint32_t> gRandomBytes;
unsigned gRandomDraws = 0;
}  // namespace

extern "C" uint32_t GetVPortRandomByte(void) {
    ++gRandomDraws;
    if (gRandomBytes.empty()) {
        ADD_FAILURE() << "more random bytes drawn than scripted";
        return 0;
    }
    const uint32_t b = gRandomBytes.front();
    gRandomBytes.pop_front();
    return b;
}

namespace {

using vttest::SysrootScope;

// ------------------------------------------------------------- arithmetic

struct Share {
    uint16_t id, value, type = SD_QOS_PERCENTAGE, enabled = 1, locked = 0;
};

// A QoS list over entries the test owns.
class QoS {
public:
    explicit QoS(std::vector<Share> shares) : entries_(shares.size()) {
        list_.MaxPercentageBW = MAX_BW_PERCENTAGE;
        for (size_t i = 0; i < shares.size(); ++i) {
            VPortQoSEntry &e = entries_[i];
            e.VPortId = shares[i].id;
            e.QoSVal = shares[i].value;
            e.QoSType = shares[i].type;
            e.QoSEnabled = shares[i].enabled;
            e.Locked = shares[i].locked;
            e.next = i + 1 < shares.size() ? &entries_[i + 1] : nullptr;
        }
        list_.Count = uint32_t(entries_.size());
        list_.First = entries_.empty() ? nullptr : &entries_.front();
        list_.Last = entries_.empty() ? nullptr : &entries_.back();
    }
    VPortQoSList *list() { return &list_; }
    VPortQoSEntry *id(uint16_t vportId) {
        for (auto &e : entries_)
            if (e.VPortId == vportId) return &e;
        return nullptr;
    }
    std::vector<uint16_t> values() const {
        std::vector<uint16_t> v;
        for (const auto &e : entries_) v.push_back(e.QoSVal);
        return v;
    }

private:
    std::vector<VPortQoSEntry> entries_;
    VPortQoSList list_{};
};

using Values = std::vector<uint16_t>;

TEST(QoSArithmetic, RaisingAShareScalesTheOthersThenTakesSinglePercentsFromTheLargest) {
    QoS three({{1, 60}, {2, 40}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(three.id(3), three.list(), 20), 0u);
    EXPECT_EQ(three.values(), (Values{48, 32, 20}));
    EXPECT_EQ(three.list()->MaxRemainingPercentageBW, 100u);

    // 50 and 50 scaled by 0.99 round back to 50: one percent more is taken,
    // from the larger ID, wherever it stands in the list.
    QoS equal({{1, 50}, {2, 50}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(equal.id(3), equal.list(), 1), 0u);
    EXPECT_EQ(equal.values(), (Values{50, 49, 1}));
    QoS reversed({{2, 50}, {1, 50}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(reversed.id(3), reversed.list(), 1), 0u);
    EXPECT_EQ(reversed.values(), (Values{49, 50, 1}));

    // Lowering a share takes nothing and gives nothing back.
    QoS lower({{1, 60}, {2, 40}});
    ASSERT_EQ(SetPercentBwFor(lower.id(1), lower.list(), 10), 0u);
    EXPECT_EQ(lower.values(), (Values{10, 40}));
}

TEST(QoSArithmetic, LockedSpeedAndReservedSharesInTheSums) {
    // A locked share is never taken from and is not available.
    QoS locked({{1, 30, SD_QOS_PERCENTAGE, 1, 1}, {2, 50}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(locked.id(3), locked.list(), 40), 0u);
    EXPECT_EQ(locked.values(), (Values{30, 30, 40}));
    EXPECT_EQ(SetPercentBwFor(locked.id(3), locked.list(), 71), VTAPI_QOS_PERCENT_OVERFLOW);
    EXPECT_EQ(locked.values(), (Values{30, 30, 40})) << "a refused share costs nobody anything";

    // Speeds do not count toward percentages; reserved shares do.
    QoS speed({{1, 50, SD_QOS_SPEED}, {2, 60}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(speed.id(3), speed.list(), 40), 0u);
    EXPECT_EQ(speed.values(), (Values{50, 60, 40}));
    EXPECT_EQ(GetTotalPercentageBW(speed.list(), 5), 105u);
    QoS reserved({{1, 30, SD_QOS_RESERVED}, {2, 70}, {3, 0}});
    ASSERT_EQ(SetPercentBwFor(reserved.id(3), reserved.list(), 10), 0u);
    EXPECT_EQ(reserved.values(), (Values{30, 60, 10}));
    EXPECT_EQ(GetUnlockedPercentBw(reserved.list()), 70u);

    // Locked values above the maximum: logged, the change undone.
    QoS over({{1, 60, SD_QOS_PERCENTAGE, 1, 1}, {2, 30, SD_QOS_PERCENTAGE, 1, 1}});
    EXPECT_EQ(SetQoSValType(over.id(1), over.list(), 80), VTAPI_QOS_PERCENT_OVERFLOW);
    EXPECT_EQ(over.values(), (Values{60, 30}));
    EXPECT_EQ(over.list()->MaxRemainingPercentageBW, 10u);
}

TEST(QoSArithmetic, RefusedValuesAndLists) {
    QoS q({{1, 60}, {2, 40}, {3, 0, SD_QOS_PERCENTAGE, 0}});
    EXPECT_EQ(SetPercentBwFor(q.id(1), q.list(), 101), VTAPI_QOS_OUT_OF_RANGE);
    EXPECT_EQ(SetQoSValType(q.id(1), q.list(), 101), VTAPI_QOS_OUT_OF_RANGE);
    EXPECT_EQ(SetPercentBwFor(q.id(3), q.list(), 10), VTAPI_QOS_DISABLED);
    EXPECT_EQ(q.values(), (Values{60, 40, 0}));
    EXPECT_EQ(CalculateRemainingPercentageBW(nullptr), VTAPI_QOS_INVALID_LIST);
    EXPECT_EQ(SetPercentBwFor(q.id(1), nullptr, 10), VTAPI_QOS_INVALID_LIST);
    EXPECT_EQ(StealPercentBwFor(nullptr, q.list(), 10), VTAPI_QOS_INVALID_LIST);
}

TEST(QoSArithmetic, LineRatesAndConversions) {
    EXPECT_NEAR(PercentageToSpeed(1, 8), 0.08704, 1e-12);  // 0.085 shown in the finer unit
    EXPECT_NEAR(PercentageToSpeed(50, 16), 7.0125, 1e-12);
    EXPECT_EQ(SpeedToPercentage(8, 4.25), 50u);
    EXPECT_EQ(SpeedToPercentage(16, 14.0), 99u);  // truncated
    EXPECT_DOUBLE_EQ(GetQoSMaxLineRate(16), 14.025);
    EXPECT_DOUBLE_EQ(GetQoSMaxLineRate(64), 57.8);
    EXPECT_DOUBLE_EQ(GetQoSMaxLineRate(3), 21.04);

    VPortBwPair pairs[] = {{1, 50, 0}, {2, 50, 1}, {3, 60, 2}, {4, 10, 3}};
    std::qsort(pairs, 4, sizeof pairs[0], CompareBw);
    EXPECT_EQ(pairs[0].VPortId, 3);
    EXPECT_EQ(pairs[1].VPortId, 2);
    EXPECT_EQ(pairs[2].VPortId, 1);
    EXPECT_EQ(pairs[3].VPortId, 4);
}

// ----------------------------------------------------- simulated hosts

const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kVport1[8] = {0x21, 0x04, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kFcoe[8] = {0x21, 0x00, 0x00, 0x0e, 0x1e, 0x64, 0x21, 0x40};

std::vector<uint8_t> OnPort0(uint8_t byte) {
    std::vector<uint8_t> w(kPort0, kPort0 + 8);
    w[1] = byte;
    return w;
}

class VPorts : public ::testing::Test {
protected:
    SysrootScope root_;

    void Start(const std::string &hostJson = "") {
        vttest::WriteFile(root_.path("/etc/os-release"), "ID=testdistro\n");
        if (!hostJson.empty()) {
            vttest::WriteFile(root_.path("/host.json"), hostJson);
            setenv("VTSDM_HOST", root_.path("/host.json").c_str(), 1);
        }
        gRandomBytes.clear();
        gRandomDraws = 0;
        g_UserVPortWWNByte = -1;
        initVPortWWNArray();
        ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
        started_ = true;
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
        unsetenv("VTSDM_HOST");
        g_UserVPortWWNByte = -1;
    }
    static SDQoS Get(ProtocolEntry *port, const uint8_t *vport) {
        SDQoS q{};
        EXPECT_EQ(VTAPI_SDGetQoS(port, vport, &q), VTAPI_SUCCESS);
        return q;
    }
    // The adapter tree as a new process sees it.
    static std::string Walk() { return vttest::Run({vttest::BuildPath("tests/vtapi_walk"), "0"}).out; }

private:
    bool started_ = false;
};

TEST_F(VPorts, NewWWPNsReplaceTheSecondByteWithAnUnusedValueAbove3) {
    Start();
    // 4 is the default host's vPort on port 0.
    ASSERT_EQ(populateVPortWWNArray(kPort0, 3, 0, VPORT_WWN_SEQUENTIAL), 0);
    EXPECT_EQ(std::vector<int32_t>(g_VPortWWNs, g_VPortWWNs + 4), (std::vector<int32_t>{5, 6, 7, -1}));
    ASSERT_EQ(populateVPortWWNArray(kPort0, 1, 0, VPORT_WWN_SEQUENTIAL), 0);
    EXPECT_EQ(g_VPortWWNs[3], 8) << "values already handed out are not given again";

    initVPortWWNArray();
    gRandomBytes = {3, 4, 0x20, 0x20, 0x21};
    ASSERT_EQ(populateVPortWWNArray(kPort0, 2, 0, 1), 0);
    EXPECT_EQ(std::vector<int32_t>(g_VPortWWNs, g_VPortWWNs + 3), (std::vector<int32_t>{0x20, 0x21, -1}));
    EXPECT_EQ(gRandomDraws, 5u);

    g_UserVPortWWNByte = 3;
    EXPECT_EQ(populateVPortWWNArray(kPort0, 1, 0, VPORT_WWN_USER), -1);
    g_UserVPortWWNByte = 0x40;
    EXPECT_EQ(populateVPortWWNArray(kPort0, 1, 0, VPORT_WWN_USER), 0);
    EXPECT_EQ(populateVPortWWNArray(kPort0, 1, 0, VPORT_WWN_USER), -1) << "the user's byte is already taken";
    EXPECT_EQ(populateVPortWWNArray(kPort0, 0, 0, VPORT_WWN_SEQUENTIAL), -1);

    const AdapterNode *node = FindAdapterInAdapterListByWWN(nullptr, kPort0);
    ASSERT_NE(node, nullptr);
    uint8_t wwn[8];
    for (int bad : {3, 4}) {
        g_UserVPortWWNByte = bad;
        EXPECT_EQ(GenerateVPortWWN(node, wwn, 1), VTAPI_VPORT_WWN_UNUSABLE) << bad;
    }
    g_UserVPortWWNByte = 0x30;
    ASSERT_EQ(GenerateVPortWWN(node, wwn, 1), 0u);
    EXPECT_EQ(std::vector<uint8_t>(wwn, wwn + 8), OnPort0(0x30));
    g_UserVPortWWNByte = -1;
    gRandomBytes = {2, 4, 0x31};
    ASSERT_EQ(GenerateVPortWWN(node, wwn, 0), 0u);
    EXPECT_EQ(std::vector<uint8_t>(wwn, wwn + 8), OnPort0(0x31));
}

TEST_F(VPorts, CreatedSharedAndDeletedThroughTheApi) {
    Start();
    ProtocolEntry *port = vttest::TreeEntry(kPort0);
    ASSERT_NE(port, nullptr);
    uint32_t count = 0;
    ASSERT_EQ(VTAPI_GetNumberofVirtualPortsSupported(port, &count), VTAPI_SUCCESS);
    EXPECT_EQ(count, 126u);

    gRandomBytes = {0x21};
    uint16_t id = 0;
    ASSERT_EQ(VTAPI_CreateVirtualPort(port, nullptr, nullptr, &id), VTAPI_SUCCESS);
    EXPECT_EQ(id, 2);
    EXPECT_EQ(guConfigChanged, 1u);
    const std::vector<uint8_t> created = OnPort0(0x21);
    // Listed at once; in the tree after a refresh, with its targets and LUNs.
    const AdapterNode *node = FindAdapterInAdapterListByWWN(created.data(), created.data());
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->Interface, SD_INTERFACE_VPORT);
    EXPECT_EQ(node->VPortId, 2);
    ASSERT_NE(vttest::ListedPort(created.data()), nullptr);
    EXPECT_EQ(vttest::TreeEntry(created.data()), nullptr);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    port = vttest::TreeEntry(kPort0);
    ProtocolEntry *vport = vttest::TreeEntry(created.data());
    ASSERT_NE(vport, nullptr);
    EXPECT_EQ(vport->Device.DeviceNodeProperty.VPortId, 2);
    EXPECT_EQ(vport->Device.Targets.Count, 4u);
    ASSERT_NE(vport->Device.Targets.First, nullptr);
    EXPECT_EQ(vport->Device.Targets.First->Luns.Count, 4u);
    EXPECT_NE(Walk().find("wwpn 21:21:00:24:ff:7c:50:10 wwnn 21:21:00:24:ff:7c:50:10 instance"), std::string::npos);

    // The new vPort's share is taken from the existing one (40 %).
    SDQoS q = Get(port, created.data());
    EXPECT_EQ(q.QoSType, SD_QOS_PERCENTAGE);
    EXPECT_EQ(q.QoSValue, 0);
    EXPECT_EQ(q.QoSEnabled, 1);
    const SDQoS seventy{2, SD_QOS_PERCENTAGE, 70, 1};
    ASSERT_EQ(VTAPI_SDSetQoS(port, created.data(), &seventy), VTAPI_SUCCESS);
    EXPECT_EQ(Get(port, created.data()).QoSValue, 70);
    EXPECT_EQ(Get(port, kVport1).QoSValue, 30);
    const SDQoS tooMuch{2, SD_QOS_PERCENTAGE, 101, 1};
    EXPECT_EQ(VTAPI_SDSetQoS(port, created.data(), &tooMuch), VTAPI_QOS_OUT_OF_RANGE);
    EXPECT_EQ(Get(port, created.data()).QoSValue, 70);

    // WWPNs in use are refused.
    EXPECT_EQ(VTAPI_CreateVirtualPort(port, nullptr, kVport1, &id), VTAPI_VPORT_WWN_UNUSABLE);
    EXPECT_EQ(VTAPI_CreateVirtualPort(port, nullptr, kPort0, &id), VTAPI_VPORT_WWN_UNUSABLE);

    ASSERT_EQ(VTAPI_DeleteVirtualPort(port, created.data()), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_DeleteVirtualPort(port, created.data()), VTAPI_PORT_NOT_FOUND);
    SDQoS gone{};
    EXPECT_EQ(VTAPI_SDGetQoS(port, created.data(), &gone), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(FindAdapterInAdapterListByWWN(created.data(), created.data()), nullptr);
    EXPECT_EQ(vttest::ListedPort(created.data()), nullptr);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::TreeEntry(created.data()), nullptr);
    EXPECT_EQ(Walk().find("21:21:00:24:ff:7c:50:10"), std::string::npos);
    EXPECT_EQ(Get(vttest::TreeEntry(kPort0), kVport1).QoSValue, 30) << "kept by the device";
}

TEST_F(VPorts, PortsThatTakeNoVPortsAndVirtualPortEntries) {
    Start();
    uint32_t count = 99;
    uint16_t id = 0;
    // The converged card's FCoE function takes none.
    ProtocolEntry *fcoe = vttest::TreeEntry(kFcoe);
    ASSERT_NE(fcoe, nullptr);
    ASSERT_EQ(VTAPI_GetNumberofVirtualPortsSupported(fcoe, &count), VTAPI_SUCCESS);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(VTAPI_CreateVirtualPort(fcoe, nullptr, nullptr, &id), VTAPI_OPTION_NOT_SUPPORTED);
    ProtocolEntry *vport = vttest::TreeEntry(kVport1);
    ASSERT_NE(vport, nullptr);
    EXPECT_EQ(VTAPI_GetNumberofVirtualPortsSupported(vport, &count), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(VTAPI_CreateVirtualPort(vport, nullptr, nullptr, &id), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(VTAPI_DeleteVirtualPort(vport, kVport1), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(VTAPI_GetNumberofVirtualPortsSupported(nullptr, &count), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_CreateVirtualPort(vttest::TreeEntry(kPort0), nullptr, nullptr, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(gRandomDraws, 0u);
}

TEST_F(VPorts, LimitsOfThePortAndSharesThatDoNotFit) {
    Start(R"({ "cards": [ { "serial": "VTLIMIT01", "model": "VT2912", "device_id": "0x7C50",
      "subsystem_id": "0x0C60", "driver": { "version": "10.02.09.100-k", "max_vports": 3, "max_vports_qos": 2 },
      "ports": [ { "wwnn": "20:00:00:24:ff:00:00:01", "wwpn": "21:00:00:24:ff:00:00:01", "port_id": "01:01:00",
        "state": "online", "speed": 32,
        "targets": [ { "wwnn": "50:00:00:00:00:00:01:00", "wwpn": "50:00:00:00:00:00:01:01", "port_id": "01:02:00",
                       "luns": [ { "lun": 0, "type": "disk", "blocks": 2048 } ] } ] } ] } ] })");
    const uint8_t phys[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x00, 0x00, 0x01};
    ProtocolEntry *port = vttest::TreeEntry(phys);
    ASSERT_NE(port, nullptr);
    uint32_t count = 0;
    ASSERT_EQ(VTAPI_GetNumberofVirtualPortsSupported(port, &count), VTAPI_SUCCESS);
    EXPECT_EQ(count, 3u);
    std::vector<std::vector<uint8_t>> vports;
    for (uint8_t b : {0x10, 0x11, 0x12}) {
        std::vector<uint8_t> w(phys, phys + 8);
        w[1] = b;
        uint16_t id = 0;
        ASSERT_EQ(VTAPI_CreateVirtualPort(port, nullptr, w.data(), &id), VTAPI_SUCCESS);
        vports.push_back(w);
    }
    EXPECT_EQ(GetNumberOfAvailableVports(vttest::ListedPort(phys)), 0u);
    std::vector<uint8_t> fourth(phys, phys + 8);
    fourth[1] = 0x13;
    uint16_t id = 0;
    EXPECT_EQ(VTAPI_CreateVirtualPort(port, nullptr, fourth.data(), &id), SDERR_NOT_SUPPORTED);

    // The third vPort is beyond the two that take QoS.
    EXPECT_EQ(Get(port, vports[2].data()).QoSEnabled, 0);
    const SDQoS ten{3, SD_QOS_PERCENTAGE, 10, 1};
    EXPECT_EQ(VTAPI_SDSetQoS(port, vports[2].data(), &ten), VTAPI_QOS_DISABLED);

    // A reserved 60 % leaves 40 % for the others; nothing is written for a
    // share that does not fit.
    const SDQoS reserve{1, SD_QOS_RESERVED, 60, 1};
    ASSERT_EQ(VTAPI_SDSetQoS(port, vports[0].data(), &reserve), VTAPI_SUCCESS);
    const SDQoS fifty{2, SD_QOS_PERCENTAGE, 50, 1};
    EXPECT_EQ(VTAPI_SDSetQoS(port, vports[1].data(), &fifty), VTAPI_QOS_PERCENT_OVERFLOW);
    EXPECT_EQ(Get(port, vports[1].data()).QoSValue, 0);
    const SDQoS forty{2, SD_QOS_PERCENTAGE, 40, 1};
    ASSERT_EQ(VTAPI_SDSetQoS(port, vports[1].data(), &forty), VTAPI_SUCCESS);
    SDQoS q = Get(port, vports[0].data());
    EXPECT_EQ(q.QoSType, SD_QOS_RESERVED);
    EXPECT_EQ(q.QoSValue, 60);
    EXPECT_EQ(Get(port, vports[1].data()).QoSValue, 40);
}

TEST_F(VPorts, CommandLineMessages) {
    Start();
    SDMDevice *port = vttest::ListedPort(kPort0);
    ASSERT_NE(port, nullptr);
    const unsigned hba = port->Instance;
    char message[256];
    uint8_t wwpn[8];
    uint16_t id = 0;
    auto expect = [&](const std::string &format) {
        char text[256];
        std::snprintf(text, sizeof text, format.c_str(), hba);
        EXPECT_STREQ(message, text);
    };

    EXPECT_EQ(CreateVPortForHBA(port, 4, wwpn, &id, message, sizeof message), VTAPI_VPORT_WWN_UNUSABLE);
    expect("Duplicate vPort WWPN 21:04:00:24:ff:7c:50:10 (HBA %u - VT2912!");
    ASSERT_EQ(CreateVPortForHBA(port, 0x30, wwpn, &id, message, sizeof message), VTAPI_SUCCESS);
    expect("New vPort 21:30:00:24:ff:7c:50:10 of HBA %u was created successfully");
    EXPECT_EQ(std::vector<uint8_t>(wwpn, wwpn + 8), OnPort0(0x30));
    EXPECT_EQ(g_UserVPortWWNByte, -1) << "the user's byte is for that one creation";

    const std::vector<uint8_t> unknown = OnPort0(0x77);
    EXPECT_EQ(DeleteVPortForHBA(port, unknown.data(), message, sizeof message), VTAPI_PORT_NOT_FOUND);
    expect("Specified vPort 21:77:00:24:ff:7c:50:10 does not exist (HBA %u)!");
    ASSERT_EQ(DeleteVPortForHBA(port, wwpn, message, sizeof message), VTAPI_SUCCESS);
    expect("Configuration changed, vPort 21:30:00:24:ff:7c:50:10 of HBA %u has been deleted.");

    gRandomBytes = {0x31};
    ASSERT_EQ(CreateVPortForHBA(port, -1, wwpn, &id, message, sizeof message), VTAPI_SUCCESS);
    ASSERT_EQ(DeleteAllVPortsForHBA(port, message, sizeof message), VTAPI_SUCCESS);
    expect("Configuration changed, 2 vPort(s) of HBA %u - VT2912 have been deleted.");
    EXPECT_EQ(DeleteAllVPortsForHBA(port, message, sizeof message), VTAPI_PORT_NOT_FOUND);
    expect("HBA %u does not have any virtual port!");
    EXPECT_EQ(DeleteVPortForHBA(port, kVport1, message, sizeof message), VTAPI_PORT_NOT_FOUND);
    expect("HBA %u does not have any virtual port!");
}

}  // namespace
