// Targets and LUNs: discovery of every port's targets and LUNs on the
// default host, the REPORT LUNS and READ CAPACITY retries against injected
// faults, the driver's LUNs-per-target limit, skipped and removed devices,
// and the list operations.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "testutil.h"
#include "vtapi.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {
uint32_t g_sleeps = 0;
}

// Replaces the library's wait: retries are counted, no time passes.
extern "C" void OSSSleep(uint32_t seconds) {
    EXPECT_EQ(seconds, 1u);
    ++g_sleeps;
}

namespace {

using nlohmann::json;
using vttest::SysrootScope;

uint64_t WwnValue(const std::string &text) {
    uint64_t v = 0;
    for (char c : text)
        if (c != ':') v = v << 4 | uint64_t(std::stoi(std::string(1, c), nullptr, 16));
    return v;
}

uint64_t WwnValue(const uint8_t *b) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = v << 8 | b[i];
    return v;
}

std::string Trim(const char *p, size_t n) {
    std::string s(p, n);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

SDMDevice *DeviceByWwpn(uint64_t wwpn) {
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (WwnValue(d->DevicePortProperty.WWPN) == wwpn) return d;
    return nullptr;
}

TargetEntry *TargetByWwpn(SDMDevice *d, uint64_t wwpn) {
    for (TargetEntry *t = d->Targets.First; t; t = t->next)
        if (WwnValue(t->WWPN) == wwpn) return t;
    return nullptr;
}

class Targets : public ::testing::Test {
protected:
    SysrootScope root_;
    void SetUp() override { g_sleeps = 0; }
    void TearDown() override {
        VTAPI_Uninitialize();
        messagesfile[0] = oldmessagesfile[0] = '\0';  // the log lived under this sysroot
    }

    void Init(const std::string &hostPath, int32_t traceLevel = 0) {
        setenv("VTSDM_HOST", hostPath.c_str(), 1);
        ASSERT_EQ(VTAPI_Initialize(traceLevel, nullptr), 0u);
    }
    // One card with one port whose targets are given; the driver reports
    // `lunsPerTarget`.
    std::string WriteHost(const std::string &targets, int lunsPerTarget = 256) {
        std::string s = R"({"cards":[{"serial":"VTT0001","model":"VT2912","device_id":"0x7C50",
          "subsystem_id":"0x0C60","pci_bus":7,"driver":{"luns_per_target":)" +
                        std::to_string(lunsPerTarget) + R"(},
          "ports":[{"wwnn":"20:00:00:24:ff:00:77:01","wwpn":"21:00:00:24:ff:00:77:01","port_id":"01:02:00",
                    "speed":16,"supported_speeds":[4,8,16],"targets":[)" +
                        targets + "]}]}]}";
        std::string path = root_.path("/host.json");
        vttest::WriteFile(path, s);
        return path;
    }
    static std::string Target(int n, const std::string &extra) {
        char buf[256];
        snprintf(buf, sizeof buf, R"({"wwnn":"50:0a:09:80:00:00:77:%02x","wwpn":"50:0a:09:81:00:00:77:%02x",
               "port_id":"01:03:%02x")",
                 n, n, n);
        return buf + extra + "}";
    }
    SDMDevice *Port() { return GetDeviceList()->First; }
    std::string Log() { return vttest::ReadFile(root_.path("/var/tmp/vtapi.log")); }
};

// ------------------------------------------------------------ default host

// Every port of the default host lists exactly the targets and LUNs the host
// file describes, with INQUIRY data, capacity, passive paths and OS names.
TEST_F(Targets, DefaultHostListsEveryTargetAndLunAsDescribed) {
    const std::string hostPath = vttest::SourcePath("data/default_host.json");
    Init(hostPath);
    const json host = json::parse(vttest::ReadFile(hostPath));
    const std::map<std::string, uint8_t> types = {{"disk", 0}, {"tape", 1}, {"changer", 8}, {"controller", 0x0C}};

    size_t portsChecked = 0, lunsChecked = 0;
    for (const json &card : host["cards"])
        for (const json &port : card["ports"]) {
            std::vector<uint64_t> names = {WwnValue(port["wwpn"].get<std::string>())};
            for (const json &vp : port.value("virtual_ports", json::array()))
                names.push_back(WwnValue(vp["wwpn"].get<std::string>()));  // a vPort sees its parent's targets
            for (uint64_t wwpn : names) {
                SCOPED_TRACE(wwpn);
                SDMDevice *d = DeviceByWwpn(wwpn);
                ASSERT_NE(d, nullptr);
                ++portsChecked;
                const json targets = port.value("targets", json::array());
                ASSERT_EQ(d->Targets.Count, targets.size());
                for (const json &tj : targets) {
                    TargetEntry *t = TargetByWwpn(d, WwnValue(tj["wwpn"].get<std::string>()));
                    ASSERT_NE(t, nullptr);
                    EXPECT_EQ(WwnValue(t->WWNN), WwnValue(tj["wwnn"].get<std::string>()));
                    EXPECT_EQ(t->PortTypeWord, tj.value("type", "fcp") == "nvme" ? 1u : 0u);
                    if (!tj.value("logged_in", true)) {  // kept, never asked
                        EXPECT_EQ(t->TargetFlags & SD_TGTFLAG_LOGGED_IN, 0u);
                        EXPECT_EQ(t->Luns.Count, 0u);
                        EXPECT_EQ(t->Luns.First, nullptr);
                        continue;
                    }
                    std::vector<json> luns;
                    for (const json &l : tj.value("luns", json::array())) luns.push_back(l);
                    if (tj.contains("lun_range")) {
                        const json &r = tj["lun_range"];
                        for (int i = 0; i < r["count"].get<int>(); ++i) {
                            json l = r;
                            l["lun"] = r.value("start", 0) + i;
                            luns.push_back(l);
                        }
                    }
                    ASSERT_EQ(t->Luns.Count, luns.size());
                    const LunEntry *l = t->Luns.First;
                    for (const json &lj : luns) {
                        ASSERT_NE(l, nullptr);
                        SCOPED_TRACE(lj.dump());
                        EXPECT_EQ(l->LunNumber, lj["lun"].get<int>());
                        EXPECT_EQ(l->PeripheralType, types.at(lj.value("type", "disk")));
                        EXPECT_EQ(Trim(l->VendorProduct, 8), lj.value("vendor", "VANTOR"));
                        EXPECT_EQ(Trim(l->VendorProduct + 8, 16), lj.value("product", "SIM DISK"));
                        EXPECT_EQ(Trim(l->Revision, 4), lj.value("revision", "0001"));
                        EXPECT_EQ(l->PassivePath, lj.value("passive", false) ? 1u : 0u);
                        EXPECT_STREQ(l->OSDeviceName, lj.value("os_name", "").c_str());
                        if (lj.value("type", "disk") == "disk") {
                            const uint64_t last = lj["blocks"].get<uint64_t>() - 1;
                            EXPECT_EQ(l->BlockSize, lj.value("block_size", 512u));
                            EXPECT_EQ(l->LastBlock64, last);
                            EXPECT_EQ(l->LastBlock32, last >= 0xFFFFFFFFull ? 0xFFFFFFFFu : uint32_t(last));
                        } else {
                            EXPECT_EQ(l->BlockSize, 0xFEFEFEFEu);
                            EXPECT_EQ(l->LastBlock32, 0xFEFEFEFEu);
                            EXPECT_EQ(l->LastBlock64, 0xFEFEFEFEFEFEFEFEull);
                        }
                        // NAA 6 name of the LUN, as the target reports it.
                        EXPECT_EQ(l->WWULN[0] >> 4, 6);
                        EXPECT_EQ(WwnValue(l->WWULN + 8), (WwnValue(t->WWPN) << 16) | l->LunNumber);
                        ++lunsChecked;
                        l = l->next;
                    }
                }
            }
        }
    EXPECT_EQ(portsChecked, GetDeviceList()->Count);
    EXPECT_EQ(lunsChecked, 32u);

    // The notable cases, spelled out.
    SDMDevice *p1 = DeviceByWwpn(0x21000024ff7c5010ull);
    TargetEntry *array = TargetByWwpn(p1, 0x500a09810000a100ull);
    ASSERT_NE(array, nullptr);
    const LunEntry *big = FindLunInLunList(&array->Luns, 2);  // 4.4 TB: READ CAPACITY(16)
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(big->LastBlock32, 0xFFFFFFFFu);
    EXPECT_EQ(big->LastBlock64, 8589934591ull);
    EXPECT_NE(FindLunInLunList(&array->Luns, 300), nullptr);                // flat-space addressing
    EXPECT_EQ(TargetByWwpn(p1, 0x500110a000017001ull)->PeripheralType, 1);  // tape drive at LUN 0
    TargetEntry *nvme = TargetByWwpn(p1, 0x20010025b5000e00ull);
    EXPECT_EQ(nvme->PortTypeWord, 1u);
    EXPECT_EQ(nvme->PeripheralType, 0x1F);  // nothing at LUN 0
    EXPECT_EQ(Trim(TargetByWwpn(p1, 0x500110a000017001ull)->VendorId, 8), "VANTOR");

    // The sorted list's copies carry the same targets and LUNs.
    for (SDMDevice *m = GetMyDeviceList()->First; m; m = m->next) {
        SDMDevice *d = DeviceByWwpn(WwnValue(m->DevicePortProperty.WWPN));
        ASSERT_NE(d, nullptr);
        ASSERT_EQ(m->Targets.Count, d->Targets.Count);
        for (TargetEntry *a = m->Targets.First, *b = d->Targets.First; a && b; a = a->next, b = b->next) {
            EXPECT_NE(a, b);
            EXPECT_EQ(a->Luns.Count, b->Luns.Count);
            EXPECT_EQ(WwnValue(a->WWPN), WwnValue(b->WWPN));
        }
    }
    EXPECT_EQ(g_sleeps, 0u);
}

// The per-target refresh steps against the default host.
TEST_F(Targets, RefreshStepsReadPathsNamesSerialsAndReadiness) {
    Init(vttest::SourcePath("data/default_host.json"));
    SDMDevice *p2 = DeviceByWwpn(0x21000024ff7c5011ull);
    ASSERT_NE(p2, nullptr);
    TargetEntry *t = p2->Targets.First;
    ASSERT_EQ(t->Luns.Count, 2u);
    for (LunEntry *l = t->Luns.First; l; l = l->next) {
        l->PassivePath = 0;
        l->OSDeviceName[0] = '\0';
    }
    EXPECT_EQ(RetrievePathInfoForTargets(p2), 0u);
    EXPECT_EQ(CoreUpdateLunOSDeviceName(p2), 0u);
    EXPECT_EQ(t->Luns.First->PassivePath, 1u);
    EXPECT_STREQ(t->Luns.First->OSDeviceName, "/dev/sdf");
    EXPECT_STREQ(t->Luns.Last->OSDeviceName, "/dev/sdg");

    uint32_t passive = 7;
    EXPECT_EQ(CheckLunReady(p2, t, 0, &passive), 0u);
    EXPECT_EQ(passive, 1u);
    EXPECT_NE(CheckLunReady(p2, t, 9, &passive), 0u);  // no such LUN
    EXPECT_EQ(passive, 0u);

    char serial[64];
    ASSERT_EQ(RetrieveSerialNumberForTarget(p2, t, serial, sizeof serial), 0u);
    EXPECT_STREQ(serial, "500A09820000A1000000");
    ASSERT_EQ(RetrieveSerialNumberForTarget(p2, t, serial, 5), 0u);  // cut to the buffer
    EXPECT_STREQ(serial, "500A");

    SDMDevice *p1 = DeviceByWwpn(0x21000024ff7c5010ull);
    EXPECT_EQ(CheckTargetReady(p1, p1->Targets.First), 0u);
    EXPECT_NE(CheckTargetReady(p1, p1->Targets.Last), 0u);  // not logged in

    // The remote-port refresh follows the discovered records.
    p1->Targets.First->PortId[0] = 0x77;
    p1->Targets.First->TargetFlags = 0;
    EXPECT_EQ(RetrieveRemotePortInfoForTargets(p1), 0u);
    EXPECT_EQ(p1->Targets.First->PortId[0], 0x0a);
    EXPECT_NE(p1->Targets.First->TargetFlags & SD_TGTFLAG_LOGGED_IN, 0u);

    // A repeated target refresh keeps the same records and their LUNs.
    TargetEntry *first = p1->Targets.First;
    const uint32_t luns = first->Luns.Count;
    EXPECT_EQ(RetrieveTargetDataForTargets(p1), 0u);
    EXPECT_EQ(p1->Targets.First, first);
    EXPECT_EQ(first->Luns.Count, luns);
    EXPECT_EQ(p1->Targets.Count, 4u);
}

// ------------------------------------------------------- retries and faults

// REPORT LUNS: busy and unit attention are retried after a one-second wait,
// three tries in all, both kinds counting together.
TEST_F(Targets, ReportLunsRetriesBusyAndUnitAttentionThreeTriesInAll) {
    struct Case {
        const char *faults;
        bool listed;
        uint32_t sleeps;
    } cases[] = {
        {R"("report_luns_busy":2)", true, 2},
        {R"("report_luns_unit_attention":2)", true, 2},
        {R"("report_luns_busy":1,"report_luns_unit_attention":1)", true, 2},
        {R"("report_luns_busy":3)", false, 2},
        {R"("report_luns_unit_attention":3)", false, 2},
        {R"("report_luns_busy":2,"report_luns_unit_attention":1)", false, 2},
        {R"("report_luns_check":1)", false, 0},  // other check conditions fail at once
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.faults);
        SysrootScope scope;  // fresh fault counters
        g_sleeps = 0;
        Init(
            WriteHost(Target(1, std::string(R"(,"lun_range":{"count":3,"blocks":2048},"faults":{)") + c.faults + "}")));
        TargetEntry *t = Port()->Targets.First;
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(t->Luns.Count, c.listed ? 3u : 0u);
        EXPECT_EQ(g_sleeps, c.sleeps);
        VTAPI_Uninitialize();
    }
}

// The return value of one target's walk: -1 after three busy answers, the
// list once the target answers again.
TEST_F(Targets, RetrieveLunsForTargetReturnsMinusOneAfterTheThirdBusy) {
    Init(WriteHost(Target(1, R"(,"lun_range":{"count":2,"blocks":2048},"faults":{"report_luns_busy":6})")), 9);
    SDMDevice *d = Port();
    TargetEntry *t = d->Targets.First;
    EXPECT_EQ(t->Luns.Count, 0u);  // discovery used three of the six
    g_sleeps = 0;
    EXPECT_EQ(RetrieveLunsForTarget(d, t), -1);
    EXPECT_EQ(g_sleeps, 2u);
    EXPECT_EQ(t->Luns.Count, 0u);
    EXPECT_EQ(RetrieveLunsForTarget(d, t), 0);
    EXPECT_EQ(t->Luns.Count, 2u);
    const std::string log = Log();
    EXPECT_NE(log.find("RetrieveLunsForTarget: Target returns SCSI status [Device Busy]: Retrying RLC (Zzz)..."),
              std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: Unable to send SCSI Report Luns Command (0x20000067) (Device busy)"),
              std::string::npos);
}

// READ CAPACITY: a unit attention is retried, three tries in all; when the
// size stays unknown the LUN is still listed with the fill values.
TEST_F(Targets, ReadCapacityUnitAttentionIsRetriedAndTheLunKept) {
    struct Case {
        int attentions;
        bool sized;
        uint32_t sleeps;
    } cases[] = {{2, true, 2}, {3, false, 2}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.attentions);
        SysrootScope scope;
        g_sleeps = 0;
        Init(WriteHost(Target(1, R"(,"luns":[{"lun":0,"blocks":4096,"block_size":4096}],"faults":{)"
                                 R"("read_capacity_unit_attention":)" +
                                     std::to_string(c.attentions) + "}")));
        TargetEntry *t = Port()->Targets.First;
        ASSERT_EQ(t->Luns.Count, 1u);
        const LunEntry *l = t->Luns.First;
        EXPECT_EQ(l->LastBlock64, c.sized ? 4095ull : 0xFEFEFEFEFEFEFEFEull);
        EXPECT_EQ(l->LastBlock32, c.sized ? 4095u : 0xFEFEFEFEu);
        EXPECT_EQ(l->BlockSize, c.sized ? 4096u : 0xFEFEFEFEu);
        EXPECT_EQ(g_sleeps, c.sleeps);
        VTAPI_Uninitialize();
    }
}

// ------------------------------------------------------ limits and skips

// A driver that reports no LUNs-per-target value gets 4095 LUNs, while the
// log says 256; a driver value is the limit otherwise.
TEST_F(Targets, DriverWithoutLunsPerTargetGets4095WhileTheLogSays256) {
    Init(WriteHost(Target(1, R"(,"lun_range":{"count":4100,"blocks":2048})"), 0), 9);
    TargetEntry *t = Port()->Targets.First;
    ASSERT_EQ(t->Luns.Count, 4095u);
    EXPECT_EQ(t->Luns.First->LunNumber, 0);
    EXPECT_EQ(t->Luns.Last->LunNumber, 4094);  // flat-space numbers above 255
    EXPECT_NE(FindLunInLunList(&t->Luns, 300), nullptr);
    const std::string log = Log();
    EXPECT_NE(log.find("RetrieveLunsForTarget: driverLunsPerTarget=0 (0x0)"), std::string::npos);
    EXPECT_NE(log.find("Unimplemented IOCTL - LunsPerTarget is zero, setting to 256"), std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: lunListLength = 4100 (0x1004)"), std::string::npos);
    VTAPI_Uninitialize();

    SysrootScope scope;
    Init(WriteHost(Target(1, R"(,"lun_range":{"count":20,"blocks":2048})"), 5));
    EXPECT_EQ(Port()->Targets.First->Luns.Count, 5u);
}

// A LUN whose INQUIRY fails is skipped, the others stay; a target that has
// been removed is kept without LUNs and its walk fails; an empty LUN list
// gives -1.
TEST_F(Targets, FailingLunsAndRemovedTargetsAreLeftOut) {
    Init(WriteHost(Target(1, R"(,"luns":[{"lun":0,"blocks":100},{"lun":1,"blocks":100,"inquiry_fails":true},
                                          {"lun":2,"type":"tape"}])") +
                   "," + Target(2, R"(,"luns":[{"lun":0,"blocks":100}],"faults":{"removed":true})") + "," +
                   Target(3, "")),
         9);
    SDMDevice *d = Port();
    ASSERT_EQ(d->Targets.Count, 3u);
    TargetEntry *t1 = d->Targets.First, *removed = t1->next, *empty = removed->next;
    ASSERT_EQ(t1->Luns.Count, 2u);
    EXPECT_EQ(t1->Luns.First->LunNumber, 0);
    EXPECT_EQ(t1->Luns.Last->LunNumber, 2);
    EXPECT_EQ(t1->Luns.Last->PeripheralType, 1);
    EXPECT_EQ(FindLunInLunList(&t1->Luns, 1), nullptr);

    EXPECT_EQ(removed->TargetFlags & SD_TGTFLAG_LOGGED_IN, 0u);
    EXPECT_EQ(removed->Luns.Count, 0u);
    EXPECT_EQ(RetrieveLunsForTarget(d, removed), -1);
    EXPECT_EQ(removed->Luns.Count, 0u);
    EXPECT_EQ(RetrieveLunsForTarget(d, empty), -1);
    EXPECT_EQ(empty->Luns.Count, 0u);

    // A walk that finds LUNs replaces the old list.
    EXPECT_EQ(RetrieveLunsForTarget(d, t1), 0);
    EXPECT_EQ(t1->Luns.Count, 2u);

    const std::string log = Log();
    EXPECT_NE(log.find("RetrieveLunsForTarget: Lun (1) - Unable to issue Inquiry Command (0x20000040) "
                       "(SCSI check condition)"),
              std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: Sense key:  0x4, asc:  0x44, ascq:  0x0"), std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: Unable to send SCSI Report Luns Command (0x2000006f) (Device removed)"),
              std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: lunListLength = 0 (0x0)"), std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: Coming inside validation for non-disk lun..."), std::string::npos);
    EXPECT_NE(log.find("RetrieveLunsForTarget: FCP Target Type (0x1)"), std::string::npos);
    EXPECT_EQ(g_sleeps, 0u);
}

// ------------------------------------------------------------ list calls

TEST(TargetLists, AddFindDeleteAndCopy) {
    TargetList list;
    InitTargetList(&list);
    TargetEntry *a = CreateNewTarget(), *b = CreateNewTarget(), *dup = CreateNewTarget();
    ASSERT_TRUE(a && b && dup);
    const uint8_t nn[8] = {0x50, 0, 0, 0, 0, 0, 0, 1}, pa[8] = {0x51, 0, 0, 0, 0, 0, 0, 1},
                  pb[8] = {0x51, 0, 0, 0, 0, 0, 0, 2}, idB[3] = {1, 2, 3};
    memcpy(a->WWNN, nn, 8), memcpy(a->WWPN, pa, 8);
    memcpy(b->WWNN, nn, 8), memcpy(b->WWPN, pb, 8), memcpy(b->PortId, idB, 3);
    memcpy(dup->WWNN, nn, 8), memcpy(dup->WWPN, pa, 8);
    EXPECT_EQ(AddTargetToTargetList(&list, a), 0);
    EXPECT_EQ(AddTargetToTargetList(&list, b), 0);
    EXPECT_EQ(AddTargetToTargetList(&list, dup), -1);  // same pair
    EXPECT_EQ(AddTargetToTargetList(nullptr, dup), 8);
    EXPECT_EQ(list.Count, 2u);
    EXPECT_EQ(FindTargetInTargetList(&list, dup), a);
    EXPECT_EQ(FindTargetInTargetListPrim(&list, dup), nullptr);
    EXPECT_EQ(FindTargetInTargetListPrim(&list, b), b);
    EXPECT_EQ(FindTargetByWWNNInTargetList(&list, nn), a);
    EXPECT_EQ(FindTargetByWWNNAndWWPNInTargetList(&list, nn, pb), b);
    const uint8_t other[8] = {9};
    EXPECT_EQ(FindTargetByWWNNAndWWPNInTargetList(&list, other, pb), nullptr);
    EXPECT_EQ(FindTargetByWWNNAndWWPNOrPortIdInTargetList(&list, other, other, idB), b);
    EXPECT_EQ(CheckAndAddNewTargets(nullptr), 0u);

    LunEntry *l0 = CreateNewLun(), *l1 = CreateNewLun(), *l1b = CreateNewLun();
    EXPECT_EQ(l0->BlockSize, 0xFEFEFEFEu);
    EXPECT_EQ(l0->LastBlock64, 0xFEFEFEFEFEFEFEFEull);
    l1->LunNumber = l1b->LunNumber = 1;
    EXPECT_EQ(AddLunToLunList(&b->Luns, l0), 0);
    EXPECT_EQ(AddLunToLunList(&b->Luns, l1), 0);
    EXPECT_EQ(AddLunToLunList(&b->Luns, l1b), -1);
    EXPECT_EQ(FindLunInLunList(&b->Luns, 1), l1);

    // A copy of a device carries copies of its targets and their LUNs.
    SDMDevice source{}, copied{};
    source.Targets = list;
    ASSERT_EQ(CopyToVTAPISDMDevice(&copied, &source), 0u);
    const TargetList &copy = copied.Targets;
    ASSERT_EQ(copy.Count, 2u);
    EXPECT_NE(copy.First, a);
    EXPECT_NE(copy.Last->Luns.First, l0);
    EXPECT_EQ(copy.Last->Luns.Count, 2u);
    EXPECT_EQ(copy.Last->Luns.Last->LunNumber, 1);

    EXPECT_EQ(DeleteLun(&b->Luns, l1b), -1);  // never listed
    EXPECT_EQ(DeleteLun(&b->Luns, l1), 0);
    EXPECT_EQ(b->Luns.Last, l0);
    EXPECT_EQ(b->Luns.Count, 1u);
    EXPECT_EQ(DeleteTarget(&list, dup), -1);
    EXPECT_EQ(DeleteTarget(&list, b), 0);  // the last one: the tail moves back
    EXPECT_EQ(list.Last, a);
    EXPECT_EQ(list.Count, 1u);
    RemoveAllTargetsFromTargetList(&list);
    EXPECT_EQ(list.First, nullptr);
    EXPECT_EQ(list.Count, 0u);
    FreeTargetList(&copied.Targets);
    free(l1b);
    FreeLunList(&dup->Luns);
    free(dup);
}

}  // namespace
