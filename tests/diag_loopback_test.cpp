// The loopback test through VTAPI_DiagnosticsLoopBackTest on a simulated
// host whose ports carry diagnostic fault scripts: every outcome of a run
// (pass, parameter error, loop down, frame errors, retries used up, busy,
// no device), the on-error modes, continuous tests and their abort, the
// transmitted patterns, and the Linux backend's "not supported".
//
// The program replaces some library and libvtsdm functions (they are
// called through the dynamic symbol table): OSSSleep, so that the retries a
// second apart take no time and are counted; DiagnosticsLoopBackTest, to
// see each run and abort a test after a number of runs; and the two
// libvtsdm diagnostic calls, to see what goes to the port.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "diag/diag.h"
#include "testutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

int g_sleeps = 0;
std::vector<int32_t> g_runIncrements;
int g_abortAfterRuns = 0;
const ProtocolEntry *g_abortPort = nullptr;

struct SentFrame {
    uint32_t option;
    uint32_t size;
    uint32_t iterations;
    std::vector<uint8_t> tx;
};
std::vector<SentFrame> g_sent;

template <typename Fn>
Fn Next(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" void OSSSleep(uint32_t seconds) { g_sleeps += int(seconds); }

extern "C" DiagLoopbackResult *DiagnosticsLoopBackTest(const SDMDevice *adapter, const DiagRequest *request) {
    static auto real = Next<DiagLoopbackResult *(*)(const SDMDevice *, const DiagRequest *)>("DiagnosticsLoopBackTest");
    g_runIncrements.push_back(request->TestIncrement);
    DiagLoopbackResult *r = real(adapter, request);
    if (g_abortAfterRuns && int(g_runIncrements.size()) == g_abortAfterRuns) VTAPI_AbortDiagTest(g_abortPort);
    return r;
}

extern "C" uint32_t SDRunDiagLoopbackEx(uint32_t handle, uint32_t option, const void *tx, void *rx, uint32_t size,
                                        uint32_t iterations, SDDiagResult *result) {
    static auto real = Next<uint32_t (*)(uint32_t, uint32_t, const void *, void *, uint32_t, uint32_t, SDDiagResult *)>(
        "SDRunDiagLoopbackEx");
    const auto *b = static_cast<const uint8_t *>(tx);
    g_sent.push_back({option, size, iterations, std::vector<uint8_t>(b, b + size)});
    return real(handle, option, tx, rx, size, iterations, result);
}

extern "C" uint32_t SDDiagIO(uint32_t handle, const void *tx, void *rx, uint32_t size, uint32_t count,
                             uint32_t increment, SDDiagResult *result) {
    static auto real =
        Next<uint32_t (*)(uint32_t, const void *, void *, uint32_t, uint32_t, uint32_t, SDDiagResult *)>("SDDiagIO");
    const auto *b = static_cast<const uint8_t *>(tx);
    g_sent.push_back({0x5u << 16 | increment, size, count, std::vector<uint8_t>(b, b + size)});
    return real(handle, tx, rx, size, count, increment, result);
}

namespace {

using vttest::SysrootScope;

// One card, a port per scenario: instance i has the WWPN 21:00:00:24:ff:00:00:i.
std::string Port(int i, const std::string &extra = "") {
    char text[512];
    snprintf(text, sizeof text,
             R"({"wwnn":"20:00:00:24:ff:00:00:%02x","wwpn":"21:00:00:24:ff:00:00:%02x","port_id":"01:%02x:00",)"
             R"("speed":32%s})",
             i, i, i + 1, extra.c_str());
    return text;
}

enum Scenario {
    kPass,
    kParamError,
    kLinkDown,
    kErrorsThenPass,
    kErrorsEveryTime,
    kBusy,
    kNoDevice,
    kPassThenLoopDown,
    kAlwaysParamError,
    kCorrupt,
    kVirtual,  // the virtual port of kPass: the last instance
};

std::string DiagHost() {
    const std::vector<std::string> ports = {
        Port(kPass, R"(,"virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:00"}])"),
        Port(kParamError, R"(,"diag_faults":{"loopback":[2]})"),
        Port(kLinkDown, R"(,"state":"linkdown")"),
        Port(kErrorsThenPass, R"(,"diag_faults":{"loopback":["status=4,crc=2,disparity=1*2","pass"]})"),
        Port(kErrorsEveryTime, R"(,"diag_faults":{"loopback":["crc=1,frame=2*30"]})"),
        Port(kBusy, R"(,"diag_faults":{"loopback":["busy*30"]})"),
        Port(kNoDevice, R"(,"diag_faults":{"loopback":["nodevice*30"]})"),
        Port(kPassThenLoopDown, R"(,"diag_faults":{"loopback":["pass","status=3"]})"),
        Port(kAlwaysParamError, R"(,"diag_faults":{"loopback":["status=2*1000"]})"),
        Port(kCorrupt, R"(,"diag_faults":{"loopback":["corrupt"]})"),
    };
    std::string list;
    for (const std::string &p : ports) list += (list.empty() ? "" : ",") + p;
    return R"({"cards":[{"serial":"DIAG1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60","ports":[)" +
           list + "]}]}";
}

class Loopback : public ::testing::Test {
protected:
    void SetUp() override {
        g_sleeps = 0;
        g_runIncrements.clear();
        g_abortAfterRuns = 0;
        g_sent.clear();
        vttest::WriteFile(root_.path("/host.json"), DiagHost());
        setenv("VTSDM_HOST", root_.path("/host.json").c_str(), 1);
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        // The preference file, with the maximum-I/O switch, in a private directory.
        vttest::WriteFile(dir_.file("tgcli.properties"), "node.hba.diagnostics.maxio.enable=1\n");
        const std::string withSlash = dir_.path() + "/";
        TarnSetInstallationDir(withSlash.c_str(), int32_t(withSlash.size() + 1));
        TarnSetReferenceFile();
    }
    void TearDown() override {
        VTAPI_Uninitialize();
        unsetenv("VTSDM_HOST");
        unsetenv("VTSDM_BACKEND");
    }

    static const ProtocolEntry *Entry(int scenario) {
        uint8_t wwpn[8] = {0x21, 0, 0, 0x24, 0xff, 0, 0, uint8_t(scenario)};
        if (scenario == kVirtual) wwpn[1] = 0x01, wwpn[7] = 0;
        for (AdapterEntry *a = gpAdapterList->First; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (memcmp(e->WWPN, wwpn, 8) == 0) return e;
        ADD_FAILURE() << "no port for scenario " << scenario;
        return nullptr;
    }
    static DiagRequest Request(int32_t count = 1, int32_t onError = 0, int32_t type = 2) {
        DiagRequest rq{};
        rq.TestCount = count;
        rq.Continuous = count == 0;
        rq.TestIncrement = 1;
        rq.OnError = onError;
        rq.LoopbackType = type;
        rq.DataSize = 512;
        rq.PatternKind = VTAPI_DIAG_PATTERN_BYTE;
        memset(rq.Pattern, 0xA5, 8);
        return rq;
    }
    // Runs the test; the abort, when asked for, comes after `abortAfter` runs.
    VTAPI_DiagResult Run(int scenario, const DiagRequest &rq, uint32_t expectStatus = VTAPI_SUCCESS,
                         int abortAfter = 0) {
        g_abortPort = Entry(scenario);
        g_abortAfterRuns = abortAfter;
        g_runIncrements.clear();
        VTAPI_DiagResult r{};
        EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(g_abortPort, &rq, &r), expectStatus);
        return r;
    }
    std::string Log() { return vttest::ReadFile(root_.path("/var/tmp/vtapi.log")); }

    SysrootScope root_;
    vttest::TempDir dir_;
};

TEST_F(Loopback, PassingRunsAndTheirIterations) {
    DiagRequest rq = Request(10);
    rq.TestIncrement = 4;
    const VTAPI_DiagResult r = Run(kPass, rq);
    EXPECT_EQ(r.RunsDone, 3u);
    EXPECT_EQ(r.RunsFailed, 0u);
    EXPECT_EQ(r.IterationsDone, 10u);
    EXPECT_EQ(r.Aborted, 0u);
    EXPECT_STREQ(r.LastRun.TestStatus, "Success");
    EXPECT_EQ(r.DiagResult, 0u);
    EXPECT_EQ(g_runIncrements, (std::vector<int32_t>{4, 4, 2}));  // the last run takes what is left
    ASSERT_EQ(g_sent.size(), 3u);
    EXPECT_EQ(g_sent[0].iterations, 4u);
    EXPECT_EQ(g_sleeps, 0);
    EXPECT_GE(GetLoopbackResultCount(), 3u);
}

TEST_F(Loopback, EachTestStatusEndsTheRunItsWay) {
    VTAPI_DiagResult r = Run(kParamError, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "Param Error");
    EXPECT_EQ(r.LastRun.ResultCode, 40u);
    EXPECT_EQ(r.DiagResult, 40u);
    EXPECT_EQ(r.RunsFailed, 1u);

    r = Run(kLinkDown, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "Loop Down");
    EXPECT_EQ(r.LastRun.ResultCode, 41u);
    // An internal loopback does not need the link.
    r = Run(kLinkDown, Request(1, 0, 0));
    EXPECT_STREQ(r.LastRun.TestStatus, "Success");
    EXPECT_EQ(g_sleeps, 0);  // none of these is retried

    // Frame errors are retried; a later pass clears their counts.
    r = Run(kErrorsThenPass, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "Success");
    EXPECT_EQ(r.LastRun.CrcErrors, 0u);
    EXPECT_EQ(r.RunsFailed, 0u);
    EXPECT_EQ(g_sleeps, 2);
    const std::string log = Log();
    EXPECT_NE(log.find("DiagLoopbackTest: Retrying request:  1."), std::string::npos);
    EXPECT_NE(log.find("DiagLoopbackTest: Retrying request:  2."), std::string::npos);
    EXPECT_EQ(log.find("DiagLoopbackTest: Retrying request:  3."), std::string::npos);
}

TEST_F(Loopback, RetriesUsedUp) {
    // Thirty attempts a second apart, the error counts added up.
    VTAPI_DiagResult r = Run(kErrorsEveryTime, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "Error");
    EXPECT_EQ(r.LastRun.ResultCode, 42u);
    EXPECT_EQ(r.LastRun.CrcErrors, 30u);
    EXPECT_EQ(r.LastRun.FrameLengthErrors, 60u);
    EXPECT_STREQ(r.LastRun.Text, "CRCError=0x001e DisparityError==0x0000 FrameLengthError=0x003c\n");
    EXPECT_EQ(r.CrcErrors, 30u);
    EXPECT_EQ(g_sleeps, 29);
    EXPECT_NE(Log().find("DiagLoopbackTest: Retrying request:  29."), std::string::npos);

    g_sleeps = 0;
    r = Run(kBusy, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "Failure");
    EXPECT_STREQ(r.LastRun.Text, "SDRunDiagLoopback failed (0x20000067) (Device busy)");
    EXPECT_EQ(r.DiagResult, 0u);
    EXPECT_EQ(g_sleeps, 29);
    EXPECT_NE(Log().find("DiagLoopbackTest: SDRunDiagLoopback failed (0x20000067) (Device busy)"), std::string::npos);

    r = Run(kNoDevice, Request());
    EXPECT_STREQ(r.LastRun.TestStatus, "DevNotFound");
    EXPECT_EQ(r.RunsFailed, 1u);
}

TEST_F(Loopback, OnErrorModes) {
    // Stop: the test ends at the first failed run.
    VTAPI_DiagResult r = Run(kPassThenLoopDown, Request(5, VTAPI_DIAG_ONERROR_STOP));
    EXPECT_EQ(r.RunsDone, 2u);
    EXPECT_EQ(r.RunsFailed, 1u);
    EXPECT_STREQ(r.LastRun.TestStatus, "Loop Down");
    EXPECT_EQ(r.Aborted, 0u);

    // Ignore: the count is run to its end.
    r = Run(kAlwaysParamError, Request(3, VTAPI_DIAG_ONERROR_IGNORE));
    EXPECT_EQ(r.RunsDone, 3u);
    EXPECT_EQ(r.RunsFailed, 3u);

    // Loop: after a failure the test goes on past its count until stopped.
    r = Run(kAlwaysParamError, Request(3, VTAPI_DIAG_ONERROR_LOOP), VTAPI_SUCCESS, 7);
    EXPECT_EQ(r.RunsDone, 7u);
    EXPECT_EQ(r.RunsFailed, 7u);
    EXPECT_EQ(r.Aborted, 1u);
}

TEST_F(Loopback, ContinuousTestRunsUntilAborted) {
    DiagRequest rq = Request(0);
    rq.TestIncrement = 3;
    const VTAPI_DiagResult r = Run(kPass, rq, VTAPI_SUCCESS, 5);
    EXPECT_EQ(r.RunsDone, 5u);
    EXPECT_EQ(r.IterationsDone, 15u);
    EXPECT_EQ(r.Aborted, 1u);
    EXPECT_STREQ(r.LastRun.TestStatus, "Success");
    // The abort was for that test only: the next one runs its count.
    EXPECT_EQ(Run(kPass, Request(2)).RunsDone, 2u);
}

TEST_F(Loopback, WhatGoesToThePort) {
    struct Case {
        int32_t type;
        uint32_t echo;
        uint32_t option;
    };
    for (const Case &c : {Case{0, 0, 0xF0}, Case{1, 0, 0xF1}, Case{4, 0, 0xF1}, Case{2, 0, 0xF2}, Case{2, 1, 0x80F2},
                          Case{3, 0, 0xF2}}) {
        g_sent.clear();
        DiagRequest rq = Request(1, 0, c.type);
        rq.Echo = c.echo;
        Run(kPass, rq);
        ASSERT_EQ(g_sent.size(), 1u);
        EXPECT_EQ(g_sent[0].option, c.option) << "type " << c.type;
    }

    auto sent = [&](int kind, uint32_t size, const uint8_t *pattern = nullptr) {
        g_sent.clear();
        DiagRequest rq = Request();
        rq.PatternKind = kind;
        rq.DataSize = size;
        if (pattern) memcpy(rq.Pattern, pattern, 8);
        Run(kPass, rq);
        return g_sent.empty() ? std::vector<uint8_t>() : g_sent[0].tx;
    };
    std::vector<uint8_t> tx = sent(VTAPI_DIAG_PATTERN_CRPAT, 64);
    ASSERT_EQ(tx.size(), 64u);
    const uint8_t crpat[] = {0xBE, 0xD7, 0x23, 0x47, 0x6B, 0x8F, 0xB3, 0x14, 0x5E, 0xFB, 0x35, 0x59};
    EXPECT_EQ(memcmp(tx.data(), crpat, sizeof crpat), 0);
    EXPECT_EQ(memcmp(tx.data() + 12, crpat, sizeof crpat), 0);
    tx = sent(VTAPI_DIAG_PATTERN_CJTPAT, 64);
    const uint8_t cjtpat[] = {0x7E, 0x7E, 0x7E, 0x7E, 0x74, 0x7E, 0xAB, 0xB5, 0xB5, 0xB5};
    EXPECT_EQ(memcmp(tx.data(), cjtpat, sizeof cjtpat), 0);
    tx = sent(VTAPI_DIAG_PATTERN_CSPAT, 16);
    EXPECT_EQ(tx, std::vector<uint8_t>(16, 0x7F));
    const uint8_t user[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    tx = sent(VTAPI_DIAG_PATTERN_USER, 20, user);
    ASSERT_EQ(tx.size(), 20u);
    EXPECT_EQ(memcmp(tx.data() + 8, user, 8), 0);
    EXPECT_EQ(memcmp(tx.data() + 16, user, 4), 0);
    // Fewer than 8 bytes are raised to 8.
    EXPECT_EQ(sent(VTAPI_DIAG_PATTERN_BYTE, 3).size(), 8u);
}

TEST_F(Loopback, MaximumIoChecksTheDataItGetsBack) {
    DiagRequest rq = Request(3, 0, 5);  // one run of three
    rq.DataIntegrityCheck = 1;
    rq.DataSize = 100000;  // capped at 65536
    rq.TestIncrement = 3;
    VTAPI_DiagResult r = Run(kPass, rq);
    EXPECT_STREQ(r.LastRun.TestStatus, "Success");
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(g_sent[0].size, 65536u);
    EXPECT_EQ(g_sent[0].iterations, 10u);          // the count argument
    EXPECT_EQ(g_sent[0].option, 0x5u << 16 | 3u);  // and the increment
    EXPECT_NE(Log().find("DiagLoopbackTest: Running Max I/O LB test."), std::string::npos);

    rq.DataSize = 512;
    rq.TestCount = 1;
    r = Run(kCorrupt, rq);
    EXPECT_STREQ(r.LastRun.TestStatus, "Data Miscompare");
    EXPECT_EQ(std::string(r.LastRun.Text).rfind("Data miscompare at byte 256", 0), 0u) << r.LastRun.Text;

    // Without the preference a program cannot ask for it either.
    vttest::WriteFile(dir_.file("tgcli.properties"), "");
    Run(kPass, rq, VTAPI_INVALID_ARGUMENT);
}

TEST_F(Loopback, RefusedRequests) {
    VTAPI_DiagResult r{};
    DiagRequest rq = Request();
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(Entry(kPass), nullptr, &r), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(nullptr, &rq, &r), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(Entry(kVirtual), &rq, &r), VTAPI_NOT_SUPPORTED_ON_VPORT);
    rq.OnError = 3;
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(Entry(kPass), &rq, &r), VTAPI_INVALID_ARGUMENT);
    ProtocolEntry stranger{};
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(&stranger, &rq, &r), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(VTAPI_AbortDiagTest(&stranger), VTAPI_PORT_NOT_FOUND);
}

TEST(LoopbackOnLinux, TheDriverHasNoLoopback) {
    // The Linux backend on a tree exported from the simulated host.
    SysrootScope root;
    const auto r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "export-sysfs", root.root()});
    ASSERT_EQ(r.status, 0) << r.err;
    setenv("VTSDM_BACKEND", "linux", 1);
    ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
    const ProtocolEntry *port = gpAdapterList->First->PhyPorts.First->Protocols.First;
    DiagRequest rq{};
    rq.TestCount = 5;
    rq.TestIncrement = 1;
    rq.LoopbackType = 2;
    rq.DataSize = 64;
    g_sleeps = 0;
    VTAPI_DiagResult result{};
    EXPECT_EQ(VTAPI_DiagnosticsLoopBackTest(port, &rq, &result), SDERR_NOT_SUPPORTED);
    EXPECT_STREQ(result.LastRun.TestStatus, "Not Supported");
    EXPECT_STREQ(result.LastRun.Text,
                 "Loopback test is not supported: Not supported on this adapter's driver (0x20000066)");
    EXPECT_EQ(result.RunsDone, 1u);  // neither retried nor run again
    EXPECT_EQ(g_sleeps, 0);
    VTAPI_Uninitialize();
    unsetenv("VTSDM_BACKEND");
}

}  // namespace
