// The device model's list operations and classification, called directly:
// the AdapterList and its ordering quirks, the adapter entry tree, and the
// classification predicates.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/tarn_lists.h"
#include "idtable.h"
#include "testutil.h"
#include "vtapi.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

AdapterNode *Node(uint8_t last, uint16_t did = 0x5380, uint16_t itf = SD_INTERFACE_FC) {
    AdapterNode *n = CreateNewAdapter();
    n->WWNN[0] = 0x20;
    n->WWPN[0] = 0x21;
    n->WWNN[7] = n->WWPN[7] = last;
    n->DeviceID = did;
    n->Interface = itf;
    GetStringWWN(n->WWPN, n->WWPNText);
    GetStringWWN(n->WWNN, n->WWNNText);
    return n;
}

SDMDevice Device(uint16_t did, uint16_t ssvid = 0x1077, uint16_t ssdid = 0) {
    SDMDevice d{};
    d.DeviceChipProperty.DeviceID = did;
    d.DeviceChipProperty.SubVendorID = ssvid;
    d.DeviceChipProperty.SubSystemID = ssdid;
    d.DeviceNodeProperty.Interface = SD_INTERFACE_FC;
    return d;
}

std::vector<uint8_t> Order() {
    std::vector<uint8_t> out;
    for (AdapterNode *n = GetAdapterList(); n; n = n->next) out.push_back(n->WWPN[7]);
    return out;
}

class AdapterListTest : public ::testing::Test {
protected:
    void SetUp() override { InitAdapterList(); }
    void TearDown() override { RemoveAllAdaptersFromAdapterList(); }
    vttest::SysrootScope root_;
};

TEST_F(AdapterListTest, AddStoresCopiesAndRefusesDuplicates) {
    AdapterNode *a = Node(1);
    ASSERT_EQ(AddNewAdapterToAdapterList(a), 0);
    EXPECT_NE(GetAdapterList(), a);  // a copy is stored
    EXPECT_EQ(AddNewAdapterToAdapterList(a), -1);
    EXPECT_EQ(GetCountOfEntryInAdapterList(), 1u);
    EXPECT_EQ(AddNewAdapterToAdapterList(nullptr), -1);
    // The search answers with its argument, not the listed node.
    EXPECT_EQ(FindAdapterInAdapterList(a), a);
    AdapterNode *other = Node(2);
    EXPECT_EQ(FindAdapterInAdapterList(other), nullptr);
    EXPECT_EQ(DeleteAdapterNodeFromAdapterList(other), -1);
    EXPECT_EQ(DeleteAdapterNodeFromAdapterList(a), 0);
    EXPECT_EQ(GetCountOfEntryInAdapterList(), 0u);
    EXPECT_EQ(DeleteAdapter(a), 0u);
    EXPECT_EQ(DeleteAdapter(other), 0u);
    EXPECT_EQ(DeleteAdapter(nullptr), 8u);
}

TEST_F(AdapterListTest, SortedInsertKeepsItsQuirks) {
    // Ascending WWPN for ordinary ports.
    for (uint8_t w : {5, 2, 9, 7}) ASSERT_EQ(AddAdapterToAdapterList(Node(w)), 0);
    EXPECT_EQ(Order(), (std::vector<uint8_t>{2, 5, 7, 9}));
    // The head points back at itself.
    EXPECT_EQ(GetAdapterList()->prev, GetAdapterList());
    // Readers walk from the head by the next links.
    AdapterNode *last = GetAdapterList();
    while (last->next) last = last->next;
    EXPECT_EQ(last->WWPN[7], 9);
    AdapterNode *dup = Node(7);
    EXPECT_EQ(AddAdapterToAdapterList(dup), -1);
    DeleteAdapter(dup);
    RemoveAllAdaptersFromAdapterList();

    // Two converged families list in descending WWPN order, on purpose.
    const uint16_t tern = *vt::ids::DeviceIdForIspType(16);
    for (uint8_t w : {3, 8, 5}) ASSERT_EQ(AddAdapterToAdapterList(Node(w, tern)), 0);
    EXPECT_EQ(Order(), (std::vector<uint8_t>{8, 5, 3}));
    AdapterNode *a = Node(1, tern), *b = Node(2, tern);
    EXPECT_GT(FindLocationInAdapterEntryList(a, b), 0);  // b goes before a
    a->Interface = SD_INTERFACE_VPORT;                   // not for virtual ports
    EXPECT_LT(FindLocationInAdapterEntryList(a, b), 0);
    DeleteAdapter(a);
    DeleteAdapter(b);
}

TEST_F(AdapterListTest, VirtualPortSlotsOnlyAboveIspType9) {
    SDMDevice old = Device(*vt::ids::DeviceIdForIspType(9));
    SDMDevice fresh = Device(*vt::ids::DeviceIdForIspType(12));
    AdapterNode *n = CreateNewAdapter();
    ASSERT_EQ(CreateAdapterEntryFromSDMDevice(n, &old), 0u);
    for (auto *slot : n->VPortWWPN) EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(n->ChipClass, 2);
    EXPECT_EQ(n->Reserved2, 0xFFFF);
    EXPECT_EQ(n->ListFlag, 2);
    DeleteAdapter(n);
    n = CreateNewAdapter();
    ASSERT_EQ(CreateAdapterEntryFromSDMDevice(n, &fresh), 0u);
    for (auto *slot : n->VPortWWPN) {
        ASSERT_NE(slot, nullptr);
        EXPECT_EQ(slot[0] | slot[7], 0);
    }
    EXPECT_EQ(DeleteAdapter(n), 0u);
    EXPECT_EQ(CreateAdapterEntryFromSDMDevice(nullptr, &fresh), 8u);
    // The boards of one OEM family show "-S" after the model, once.
    SDMDevice oem = Device(0x5380, 0x1F3C, 0x0611);
    strcpy(oem.DeviceNodeProperty.Model, "VT1611");
    n = CreateNewAdapter();
    CreateAdapterEntryFromSDMDevice(n, &oem);
    EXPECT_STREQ(n->Model, "VT1611-S");
    strcpy(oem.DeviceNodeProperty.Model, "VT1611-S");
    CreateAdapterEntryFromSDMDevice(n, &oem);
    EXPECT_STREQ(n->Model, "VT1611-S");
    DeleteAdapter(n);
}

TEST_F(AdapterListTest, QosStateMarksVirtualPortsOfConvergedAdaptersBeyondTheQosRange) {
    // Virtual ports 3 and 1 of an FCoE function whose driver gives QoS to
    // two virtual ports, and virtual port 3 of a plain FC port.
    const uint16_t fcoe = *vt::ids::DeviceIdForIspType(15);
    ASSERT_TRUE(vt::ids::IsFcoeCna(fcoe));
    struct Case {
        uint16_t did;
        uint16_t vportId;
        uint16_t qosState;
        uint16_t qosValue;
    };
    for (const Case &c : {Case{fcoe, 3, 2, 0}, Case{fcoe, 1, 0, 40}, Case{0x5380, 3, 0, 0}}) {
        SCOPED_TRACE(std::to_string(c.did) + " vport " + std::to_string(c.vportId));
        SDMDevice v = Device(c.did);
        v.DeviceNodeProperty.Interface = SD_INTERFACE_VPORT;
        v.DeviceNodeProperty.VPortId = c.vportId;
        v.DeviceDriverProperty.MaxVportsWithQoS = 2;
        v.VPortQoSValue = 40;
        AdapterNode *n = CreateNewAdapter();
        ASSERT_EQ(CreateAdapterEntryFromSDMDevice(n, &v), 0u);
        EXPECT_EQ(n->QoSState[0], 0);
        EXPECT_EQ(n->QoSState[1], c.qosState);
        EXPECT_EQ(n->QoSValue, c.qosValue);
        DeleteAdapter(n);
    }
}

// Bytes the C heap has handed out and not taken back.  The sanitizer
// build's allocator does not keep these counts (it reports 0); there its
// leak check at exit catches what this count would.
size_t HeapInUse() { return mallinfo2().uordblks; }

TEST(AdapterTree, FreeingAListMadeOnItsOwnReleasesItsHeader) {
    vttest::SysrootScope root;
    const size_t before = HeapInUse();
    for (int i = 0; i < 1000; ++i) {
        ProtocolList *protocols = core_CreateProtocolList();
        ProtocolEntry *e = core_CreateProtocolEntry();
        protocols->First = protocols->Last = e;
        protocols->Count = 1;
        core_FreeProtocolList(protocols);
        PhyPortList *ports = core_CreatePhyPortList();
        PhyPortEntry *p = core_CreatePhyPortEntry();
        p->Protocols.First = p->Protocols.Last = core_CreateProtocolEntry();
        p->Protocols.Count = 1;
        ports->First = ports->Last = p;
        ports->Count = 1;
        core_FreePhyPortList(ports);
    }
    // Two 24-byte headers a round would stay behind if they were not freed.
    EXPECT_LT(HeapInUse(), before + 1000 * 24);
}

TEST(AdapterTree, SerialLookupIgnoresCaseAndFreeingAcceptsNull) {
    vttest::SysrootScope root;
    AdapterEntryList *list = core_CreateAdapterEntryList();
    AdapterEntry *e = core_CreateAdapterEntry();
    strcpy(e->SerialNumber, "VTK24110A7");
    list->First = list->Last = e;
    list->Count = 1;
    EXPECT_EQ(FindAdapterEntryUsingSerialNo(list, "vtk24110a7"), e);
    EXPECT_EQ(FindAdapterEntryUsingSerialNo(list, "VTK24110A8"), nullptr);
    // A protocol entry of type 0 gives its targets back with it.
    PhyPortEntry *p = core_CreatePhyPortEntry();
    ProtocolEntry *fc = core_CreateProtocolEntry();
    auto *t = static_cast<TargetEntry *>(calloc(1, sizeof(TargetEntry)));
    fc->Device.Targets.First = fc->Device.Targets.Last = t;
    fc->Device.Targets.Count = 1;
    p->Protocols.First = p->Protocols.Last = fc;
    p->Protocols.Count = 1;
    e->PhyPorts.First = e->PhyPorts.Last = p;
    e->PhyPorts.Count = 1;
    core_FreeAdapterList(list);  // the sanitizer build reports anything left behind
    core_FreeAdapterList(nullptr);
    core_FreePhyPortList(nullptr);
    core_FreeProtocolList(nullptr);
}

std::vector<std::string> gReleased;  // the lists FreeMyDeviceList released, in order

std::string ListCounts() {
    return std::to_string(GetMyDeviceList()->Count) + "/" + std::to_string(GetCountOfEntryInAdapterList());
}

TEST(DeviceLists, FreeMyDeviceListEmptiesEveryListItKeeps) {
    vttest::SysrootScope root;
    using vt::core::TarnList;
    // Lists kept elsewhere: each release notes the device list and
    // AdapterList counts it finds.
    vt::core::SetTarnListRelease(TarnList::HbaStatistics, [] { gReleased.push_back("statistics " + ListCounts()); });
    vt::core::SetTarnListRelease(TarnList::UserVPortOptions, [] { gReleased.push_back("vport options"); });
    vt::core::SetTarnListRelease(TarnList::QoSLuns, [] { gReleased.push_back("qos luns " + ListCounts()); });
    ASSERT_EQ(VTAPI_Initialize(0, nullptr), 0u);  // its rebuild releases them all first
    EXPECT_EQ(gReleased, (std::vector<std::string>{"statistics 0/0", "vport options", "qos luns 0/0"}));
    gReleased.clear();
    ASSERT_EQ(ListCounts(), "7/7");

    EXPECT_EQ(FreeMyDeviceList(0), 0u);
    EXPECT_EQ(gReleased, (std::vector<std::string>{"statistics 7/7", "qos luns 0/0"}));
    EXPECT_EQ(GetMyDeviceList()->First, nullptr);
    EXPECT_EQ(GetMyDeviceList()->Last, nullptr);
    EXPECT_EQ(GetAdapterList(), nullptr);
    gReleased.clear();
    EXPECT_EQ(FreeMyDeviceList(1), 0u);
    EXPECT_EQ(gReleased, (std::vector<std::string>{"statistics 0/0", "vport options", "qos luns 0/0"}));

    for (TarnList list : {TarnList::HbaStatistics, TarnList::UserVPortOptions, TarnList::QoSLuns})
        vt::core::SetTarnListRelease(list, nullptr);
    VTAPI_Uninitialize();
}

TEST(Classification, PredicatesAndSpeeds) {
    vttest::SysrootScope root;
    EXPECT_EQ(GetPortIndex(nullptr), 1u);
    EXPECT_EQ(GetISPType(nullptr), 0u);
    EXPECT_EQ(isFCOeHBA(nullptr), 0u);
    EXPECT_EQ(isMezz32GHBA(nullptr), 0u);
    EXPECT_EQ(GetAdapterPciPhysicalPortNumber(nullptr), 0u);
    // An unknown chip is an 8 Gb chip, and so offers the extended BB credits.
    SDMDevice unknown = Device(0x0001);
    EXPECT_EQ(CoreGetISPType(&unknown), 12u);
    EXPECT_EQ(isCNAWithLROptionEnable(&unknown), 1u);
    EXPECT_EQ(GetISP4GbOrNewerType(&unknown), 1u);
    EXPECT_EQ(GetAdapterFunctionType(0x0001), 6u);
    EXPECT_EQ(ConvertPortSpeedToDecimal(8), 8u);
    EXPECT_EQ(ConvertPortSpeedToDecimal(296), 128u);
    EXPECT_EQ(ConvertPortSpeedToDecimal(22), 16u);
    EXPECT_EQ(ConvertPortSpeedToDecimal(50), 32u);
    // A 16 Gb Wren board is never also the 32 Gb Wren.
    SDMDevice wren16 = Device(0x6A20, 0x1077, 0x0A16);
    EXPECT_EQ(isWrenHBA(&wren16), 1u);
    EXPECT_EQ(isWren32GHBA(&wren16), 0u);
    SDMDevice wren32 = Device(0x6A28, 0x1077, 0x0A22);  // the pattern ignores bit 3
    EXPECT_EQ(isWrenHBA(&wren32), 2u);
    // 64 Gb: code 27, a driver that reports speeds, and bit 7 of the mask.
    SDMDevice kite = Device(0x7C50);
    kite.DevicePortProperty.SupportedSpeed = 0xE0;
    EXPECT_EQ(is64GbAdapter(&kite), 0u);
    kite.DeviceDriverProperty.Capabilities = SD_DRVCAP_SUPPORTED_SPEED;
    EXPECT_EQ(is64GbAdapter(&kite), 1u);
    EXPECT_EQ(isAdapterLRType(&kite), 1u);
    // Interface types.
    SDMDevice v = Device(0x7C50);
    v.DeviceNodeProperty.Interface = SD_INTERFACE_VPORT;
    EXPECT_EQ(isVirtualPortHBA(&v), 1u);
    EXPECT_EQ(isFCOeHBA(&v), 0u);
}

}  // namespace
