// The exported query, configuration, flash, diagnostics and statistics calls:
// their frames in the messages file, the file-update frame, the flash-update
// flag, and the adapter and port queries against simulated hosts.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "testutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "vtapi_events.h"

// Replacements of FC_ functions: the library calls them through the dynamic
// symbol table, so these definitions are the ones its frames reach.
namespace {

using vttest::FindLine;
using vttest::Lines;
int gNvramFileCalls = 0;
std::vector<uint32_t> gFlagDuringUpdate;
}  // namespace

extern "C" uint32_t FC_UpdateAdapterNVRAMFromFile(const ProtocolEntry *, const char *) {
    ++gNvramFileCalls;
    return 55;
}

extern "C" uint32_t FC_doOptionROMUpdate(const ProtocolEntry *, const char *, uint32_t options) {
    gFlagDuringUpdate.push_back(gFlashUpdateInProgress);
    return options;
}

namespace {

using vttest::SysrootScope;

const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kTarget0[8] = {0x50, 0x0a, 0x09, 0x81, 0x00, 0x00, 0xa1, 0x00};

class Api : public ::testing::Test {
protected:
    SysrootScope root_;

    // hostJson: a host description to use instead of the default host.
    void Start(const std::string &hostJson = "") {
        vttest::WriteFile(root_.path("/etc/os-release"), "NAME=\"Test\"\nID=testdistro\n");
        if (!hostJson.empty()) {
            vttest::WriteFile(root_.path("/host.json"), hostJson);
            setenv("VTSDM_HOST", root_.path("/host.json").c_str(), 1);
        }
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        started_ = true;
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
        unsetenv("VTSDM_HOST");
    }
    std::vector<std::string> Log() { return Lines(vttest::ReadFile(root_.path("/var/tmp/vtapi.log"))); }

    static AdapterEntry *Adapter(const char *serial) {
        for (AdapterEntry *a = gpAdapterList ? gpAdapterList->First : nullptr; a; a = a->next)
            if (strcmp(a->SerialNumber, serial) == 0) return a;
        return nullptr;
    }
    static SDMDevice *Listed(uint32_t instance) {
        for (SDMDevice *d = GetMyDeviceList()->First; d; d = d->next)
            if (d->Instance == instance) return d;
        return nullptr;
    }
    static ProtocolEntry *TreeEntry(const uint8_t *wwpn) {
        for (AdapterEntry *a = gpAdapterList->First; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (memcmp(e->WWPN, wwpn, 8) == 0) return e;
        return nullptr;
    }
    // Checks that the log holds enter, "returning with <status>" and exit
    // lines of `name` in this order after line `from`; returns the exit line.
    int ExpectFrame(const std::string &name, int status, int from = 0) {
        auto log = Log();
        int enter = FindLine(log, "PROFILER ENTER FUNCTION " + name, from);
        int ret = FindLine(log, name + "(): returning with " + std::to_string(status), enter + 1);
        int exit = FindLine(log, "PROFILER EXIT FUNCTION " + name + " ", ret + 1);
        EXPECT_GE(enter, 0) << name;
        EXPECT_GT(ret, enter) << name;
        EXPECT_GT(exit, ret) << name;
        return exit;
    }

private:
    bool started_ = false;
};

TEST_F(Api, FramesWriteEnterStatusAndExitLines) {
    Start();
    uint32_t index = 9;
    ASSERT_EQ(VTAPI_GetPortIndex(1, 0, &index), VTAPI_SUCCESS);
    EXPECT_EQ(index, 1u);
    int at = ExpectFrame("VTAPI_GetPortIndex", 0);
    // The core's own line comes between enter and the status line.
    auto log = Log();
    EXPECT_GT(FindLine(log, "GetPortIndex: PhysPortNumber=1"),
              FindLine(log, "PROFILER ENTER FUNCTION VTAPI_GetPortIndex"));

    // Some frames add lines before and after the call.
    EXPECT_EQ(VTAPI_GetHBAParamsInfo(nullptr, nullptr), VTAPI_INVALID_ARGUMENT);
    at = ExpectFrame("VTAPI_GetHBAParamsInfo", 2, at);
    log = Log();
    int before = FindLine(log, "VTAPI_GetHBAParamsInfo(): Before calling FC_GetHBAParamsInfo()");
    int after = FindLine(log, "VTAPI_GetHBAParamsInfo(): After calling FC_GetHBAParamsInfo()");
    EXPECT_GT(before, FindLine(log, "PROFILER ENTER FUNCTION VTAPI_GetHBAParamsInfo"));
    EXPECT_GT(after, before);
    EXPECT_LT(after, FindLine(log, "VTAPI_GetHBAParamsInfo(): returning with 2"));

    EXPECT_EQ(VTAPI_SDGetQoS(nullptr, nullptr, nullptr), VTAPI_INVALID_ARGUMENT);
    at = ExpectFrame("VTAPI_SDGetQoS", 2, at);
    EXPECT_EQ(VTAPI_DiagnosticDPortTestV2(nullptr, nullptr, nullptr), VTAPI_FUNCTION_NOT_APPLICABLE);
    at = ExpectFrame("VTAPI_DiagnosticDPortTestV2", 36, at);

    // Not applicable in this build, deliberately; framed all the same.
    EXPECT_EQ(VTAPI_SDGetMPIFwDump(), VTAPI_FUNCTION_NOT_APPLICABLE);
    at = ExpectFrame("VTAPI_SDGetMPIFwDump", 36, at);

    // An error status is logged as a signed number.
    EXPECT_EQ(VTAPI_GetPortIndex(99, 0, &index), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    ExpectFrame("VTAPI_GetPortIndex", 12, at);
    EXPECT_EQ(FindLine(Log(), "PROFILER ERROR"), -1);
}

// Every exported function writes its profiler enter and exit lines, with
// two deliberate exceptions.  Each is called so that it needs no adapter (no
// port, a null record, an instance that does not exist, a missing file).
TEST_F(Api, EveryExportedFunctionIsFramedByTheProfiler) {
    static constexpr uint32_t kNoDevice = 9999;
    static constexpr const char *kMissingFile = "/nonexistent/vtapi-test-file";
    const std::vector<std::pair<std::string, void (*)()>> calls = {
        {"VTAPI_Initialize", [] { VTAPI_Initialize(8, nullptr); }},  // bit 1 would start a new file
        {"VTAPI_RefreshData", [] { VTAPI_RefreshData(); }},
        {"VTAPI_UpdateBackupAdapterList", [] { VTAPI_UpdateBackupAdapterList(); }},
        {"VTAPI_SwapBackupToMainAdapterList", [] { VTAPI_SwapBackupToMainAdapterList(); }},
        {"VTAPI_GetAdapterCount", [] { VTAPI_GetAdapterCount(); }},
        {"VTAPI_GetAdapterList", [] { VTAPI_GetAdapterList(); }},
        {"VTAPI_FreeMem", [] { VTAPI_FreeMem(nullptr); }},
        {"VTAPI_GetHostInfo", [] { VTAPI_GetHostInfo(nullptr); }},
        {"VTAPI_GetSystemInfo", [] { VTAPI_GetSystemInfo(nullptr); }},
        {"VTAPI_SetToolID", [] { VTAPI_SetToolID(0); }},
        {"VTAPI_SetToolVersion", [] { VTAPI_SetToolVersion(0, 0, 0, 0); }},
        {"VTAPI_COMInitByAnotherModule", [] { VTAPI_COMInitByAnotherModule(); }},
        {"VTAPI_GetFCAdapterDecription", [] { VTAPI_GetFCAdapterDecription(nullptr, nullptr, 0); }},
        {"VTAPI_GetVpd", [] { VTAPI_GetVpd(kNoDevice, 0, nullptr, nullptr); }},
        {"VTAPI_GetUUIDFromI2CVPD", [] { VTAPI_GetUUIDFromI2CVPD(kNoDevice, 0, nullptr, 0); }},
        {"VTAPI_GetHbaDevicePortProperty", [] { VTAPI_GetHbaDevicePortProperty(kNoDevice, 0, nullptr); }},
        {"VTAPI_UpdatePortProperty", [] { VTAPI_UpdatePortProperty(kNoDevice, 0); }},
        {"VTAPI_UpdateDiscTargetProperty", [] { VTAPI_UpdateDiscTargetProperty(kNoDevice, 0, nullptr); }},
        {"VTAPI_GetPortIndex", [] { VTAPI_GetPortIndex(kNoDevice, 0, nullptr); }},
        {"VTAPI_IsMezzAdapter", [] { VTAPI_IsMezzAdapter(kNoDevice, 0, nullptr); }},
        {"VTAPI_IsPortInMaintenanceMode", [] { VTAPI_IsPortInMaintenanceMode(kNoDevice, 0, nullptr); }},
        {"VTAPI_IsRebootRequired", [] { VTAPI_IsRebootRequired(kNoDevice, 0, nullptr); }},
        {"VTAPI_GetLockdownStatus", [] { VTAPI_GetLockdownStatus(kNoDevice, 0, nullptr); }},
        {"VTAPI_FCGetAdapterVersions", [] { VTAPI_FCGetAdapterVersions(nullptr, nullptr); }},
        {"VTAPI_GetFlashComponentVersion", [] { VTAPI_GetFlashComponentVersion(nullptr, 0, nullptr, 0); }},
        {"VTAPI_GetMBIVersionString", [] { VTAPI_GetMBIVersionString(nullptr, nullptr, 0); }},
        {"VTAPI_GetFwPreloadTablesVersion", [] { VTAPI_GetFwPreloadTablesVersion(nullptr, nullptr, 0); }},
        {"VTAPI_IsBiosAvailableWithAdapter", [] { VTAPI_IsBiosAvailableWithAdapter(nullptr, nullptr); }},
        {"VTAPI_IsEfiAvailableWithAdapter", [] { VTAPI_IsEfiAvailableWithAdapter(nullptr, nullptr); }},
        {"VTAPI_GetFCAdapterAlias", [] { VTAPI_GetFCAdapterAlias(nullptr, nullptr, 0); }},
        {"VTAPI_SetFCAdapterAlias", [] { VTAPI_SetFCAdapterAlias(nullptr, nullptr, 0); }},
        {"VTAPI_GetOSName", [] { VTAPI_GetOSName(nullptr, 0); }},
        {"VTAPI_GetHBAParamsInfo", [] { VTAPI_GetHBAParamsInfo(nullptr, nullptr); }},
        {"VTAPI_UpdateHBAParameters", [] { VTAPI_UpdateHBAParameters(nullptr, nullptr); }},
        {"VTAPI_PostVerifyHBAParameter", [] { VTAPI_PostVerifyHBAParameter(nullptr); }},
        {"VTAPI_LoadHBAParametersFromTemplateFile", [] { VTAPI_LoadHBAParametersFromTemplateFile(nullptr, 0); }},
        {"VTAPI_RestoreDefaultNVRAM", [] { VTAPI_RestoreDefaultNVRAM(nullptr); }},
        {"VTAPI_SaveSingleAdapterNVRAMToFile", [] { VTAPI_SaveSingleAdapterNVRAMToFile(nullptr, kMissingFile); }},
        {"VTAPI_UpdateAdapterNVRAMFromFile", [] { VTAPI_UpdateAdapterNVRAMFromFile(nullptr, kMissingFile); }},
        {"VTAPI_DoGlobalNVRAMUpdateAll", [] { VTAPI_DoGlobalNVRAMUpdateAll(kMissingFile); }},
        {"VTAPI_ResetToDefaultSettings", [] { VTAPI_ResetToDefaultSettings(nullptr); }},
        {"VTAPI_GetBootDeviceInfo", [] { VTAPI_GetBootDeviceInfo(nullptr, nullptr, 0); }},
        {"VTAPI_SetBootDeviceInfo", [] { VTAPI_SetBootDeviceInfo(nullptr, nullptr); }},
        {"VTAPI_GetNVMeBootDeviceEntries", [] { VTAPI_GetNVMeBootDeviceEntries(nullptr, nullptr); }},
        {"VTAPI_SetNVMeBootDeviceEntries", [] { VTAPI_SetNVMeBootDeviceEntries(nullptr, nullptr); }},
        {"VTAPI_FCIsConfigureToBootFromSAN", [] { VTAPI_FCIsConfigureToBootFromSAN(nullptr, nullptr); }},
        {"VTAPI_GetBfsConfigMode", [] { VTAPI_GetBfsConfigMode(nullptr, nullptr); }},
        {"VTAPI_SetBfsConfigMode", [] { VTAPI_SetBfsConfigMode(nullptr, 0); }},
        {"VTAPI_GetNumberofVirtualPortsSupported", [] { VTAPI_GetNumberofVirtualPortsSupported(nullptr, nullptr); }},
        {"VTAPI_CreateVirtualPort", [] { VTAPI_CreateVirtualPort(nullptr, nullptr, nullptr, nullptr); }},
        {"VTAPI_DeleteVirtualPort", [] { VTAPI_DeleteVirtualPort(nullptr, nullptr); }},
        {"VTAPI_SDGetQoS", [] { VTAPI_SDGetQoS(nullptr, nullptr, nullptr); }},
        {"VTAPI_SDSetQoS", [] { VTAPI_SDSetQoS(nullptr, nullptr, nullptr); }},
        {"VTAPI_GetTargetLinkSpeed", [] { VTAPI_GetTargetLinkSpeed(nullptr, nullptr, nullptr); }},
        {"VTAPI_SetTargetLinkSpeed", [] { VTAPI_SetTargetLinkSpeed(nullptr, nullptr, 0); }},
        {"VTAPI_SetTargetLinkSpeedToAlltargets", [] { VTAPI_SetTargetLinkSpeedToAlltargets(nullptr, 0); }},
        {"VTAPI_doOptionROMUpdate", [] { VTAPI_doOptionROMUpdate(nullptr, kMissingFile, 0); }},
        {"VTAPI_UpdateAdapterFirmwareTableFromFile",
         [] { VTAPI_UpdateAdapterFirmwareTableFromFile(nullptr, kMissingFile); }},
        {"VTAPI_UpdateSpecificFlashRegionFromFile",
         [] { VTAPI_UpdateSpecificFlashRegionFromFile(nullptr, kMissingFile, 0); }},
        {"VTAPI_UpdateAdapterMpiCfgFromDatFile", [] { VTAPI_UpdateAdapterMpiCfgFromDatFile(nullptr, kMissingFile); }},
        {"VTAPI_UpdateAdapterPEPCfgFromFile", [] { VTAPI_UpdateAdapterPEPCfgFromFile(nullptr, kMissingFile); }},
        {"VTAPI_SaveAdapterSerdesRegionToFile", [] { VTAPI_SaveAdapterSerdesRegionToFile(nullptr, kMissingFile); }},
        {"VTAPI_SaveAdapterFirmwareTableToFile", [] { VTAPI_SaveAdapterFirmwareTableToFile(nullptr, kMissingFile); }},
        {"VTAPI_SaveAdapterMpiCfgToDatFile", [] { VTAPI_SaveAdapterMpiCfgToDatFile(nullptr, kMissingFile); }},
        {"VTAPI_FCGetFlashImageVersion", [] { VTAPI_FCGetFlashImageVersion(nullptr, kMissingFile, nullptr); }},
        {"VTAPI_FCGetFlashImageSupportedAdapters",
         [] { VTAPI_FCGetFlashImageSupportedAdapters(kMissingFile, nullptr); }},
        {"VTAPI_GetAdapterFlashMemoBlock", [] { VTAPI_GetAdapterFlashMemoBlock(nullptr, nullptr, nullptr); }},
        {"VTAPI_SfpModuleFirmwareUpdate", [] { VTAPI_SfpModuleFirmwareUpdate(nullptr, kMissingFile); }},
        {"VTAPI_DiagnosticsLoopBackTest", [] { VTAPI_DiagnosticsLoopBackTest(nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticsReadWriteBufferTest",
         [] { VTAPI_DiagnosticsReadWriteBufferTest(nullptr, nullptr, nullptr); }},
        {"VTAPI_FreeRWBufferTestResultList", [] { VTAPI_FreeRWBufferTestResultList(nullptr); }},
        {"VTAPI_AbortDiagTest", [] { VTAPI_AbortDiagTest(nullptr); }},
        {"VTAPI_DiagnosticsEchoElsTest", [] { VTAPI_DiagnosticsEchoElsTest(nullptr, nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticsRDPTest", [] { VTAPI_DiagnosticsRDPTest(nullptr, nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticsFCPingTest", [] { VTAPI_DiagnosticsFCPingTest(nullptr, nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticsCTCommand", [] { VTAPI_DiagnosticsCTCommand(nullptr, nullptr, 0, nullptr, nullptr); }},
        {"VTAPI_CheckAdapterDPortOption", [] { VTAPI_CheckAdapterDPortOption(nullptr, nullptr); }},
        {"VTAPI_ConfigureAdapterDPortSettings", [] { VTAPI_ConfigureAdapterDPortSettings(nullptr, 0); }},
        {"VTAPI_DiagnosticDPortTest", [] { VTAPI_DiagnosticDPortTest(nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticDPortTestEX", [] { VTAPI_DiagnosticDPortTestEX(nullptr, nullptr, nullptr); }},
        {"VTAPI_DiagnosticDPortTestV2", [] { VTAPI_DiagnosticDPortTestV2(nullptr, nullptr, nullptr); }},
        {"VTAPI_UpdateAdapterBeaconStatus", [] { VTAPI_UpdateAdapterBeaconStatus(nullptr, 0); }},
        {"VTAPI_GetAdapterBeaconStatus", [] { VTAPI_GetAdapterBeaconStatus(nullptr, nullptr); }},
        {"VTAPI_GetLinkStatus", [] { VTAPI_GetLinkStatus(nullptr, nullptr); }},
        {"VTAPI_FreeLinkStatusResultList", [] { VTAPI_FreeLinkStatusResultList(nullptr); }},
        {"VTAPI_GetPortStatisticsFC", [] { VTAPI_GetPortStatisticsFC(nullptr, nullptr); }},
        {"VTAPI_RefreshDeviceStats", [] { VTAPI_RefreshDeviceStats(nullptr); }},
        {"VTAPI_ResetDeviceStats", [] { VTAPI_ResetDeviceStats(nullptr); }},
        {"VTAPI_GetFWPrivateStats", [] { VTAPI_GetFWPrivateStats(nullptr, nullptr, nullptr); }},
        {"VTAPI_GetSCMRStatisticsList", [] { VTAPI_GetSCMRStatisticsList(nullptr, nullptr); }},
        {"VTAPI_FreeSCMRStatisticsList", [] { VTAPI_FreeSCMRStatisticsList(nullptr); }},
        {"VTAPI_SANCongMgmtResetStatistics", [] { VTAPI_SANCongMgmtResetStatistics(nullptr); }},
        {"VTAPI_GetSCMRProfile", [] { VTAPI_GetSCMRProfile(nullptr, nullptr); }},
        {"VTAPI_SetSCMRProfile", [] { VTAPI_SetSCMRProfile(nullptr, 0); }},
        {"VTAPI_IsUSCMFeatureEnabled", [] { VTAPI_IsUSCMFeatureEnabled(nullptr, nullptr); }},
        {"VTAPI_SDGetFwDump", [] { VTAPI_SDGetFwDump(nullptr, nullptr, nullptr); }},
        {"VTAPI_SDGetFwDump2", [] { VTAPI_SDGetFwDump2(nullptr, nullptr, nullptr); }},
        {"VTAPI_SDGetTraceBuffer", [] { VTAPI_SDGetTraceBuffer(nullptr, nullptr, nullptr); }},
        {"VTAPI_SDGetMPIFwDump", [] { VTAPI_SDGetMPIFwDump(); }},
        {"VTAPI_GetSFPData", [] { VTAPI_GetSFPData(nullptr, nullptr, nullptr); }},
        {"VTAPI_SaveSFPDataToFile", [] { VTAPI_SaveSFPDataToFile(nullptr, kMissingFile); }},
        {"VTAPI_SaveSFPDataToTextFile", [] { VTAPI_SaveSFPDataToTextFile(nullptr, kMissingFile); }},
        {"VTAPI_GetAdapterAsicBoardTemperature", [] { VTAPI_GetAdapterAsicBoardTemperature(nullptr, nullptr); }},
        {"VTAPI_GetEDCChipsetVersion", [] { VTAPI_GetEDCChipsetVersion(nullptr, nullptr, 0); }},
        {"VTAPI_GetAdapterEDCChipsetStatus", [] { VTAPI_GetAdapterEDCChipsetStatus(nullptr, nullptr); }},
        {"VTAPI_GetAdapterEDCSettings", [] { VTAPI_GetAdapterEDCSettings(nullptr, nullptr, nullptr); }},
        {"VTAPI_FCGetFECSupportInfo", [] { VTAPI_FCGetFECSupportInfo(nullptr, nullptr, nullptr); }},
        {"VTAPI_FCSetFECSupportInfo", [] { VTAPI_FCSetFECSupportInfo(nullptr, nullptr, 0); }},
        {"VTAPI_ResetFECCounters", [] { VTAPI_ResetFECCounters(nullptr); }},
        {"VTAPI_FCGetBBCSupportInfo", [] { VTAPI_FCGetBBCSupportInfo(nullptr, nullptr, nullptr); }},
        {"VTAPI_FCGetBBCSupportInfoEx", [] { VTAPI_FCGetBBCSupportInfoEx(nullptr, nullptr, nullptr); }},
        {"VTAPI_FCSetBBCSupportInfo", [] { VTAPI_FCSetBBCSupportInfo(nullptr, nullptr, 0); }},
        {"VTAPI_GetDCBXParams", [] { VTAPI_GetDCBXParams(nullptr, nullptr, nullptr); }},
        {"VTAPI_CheckOrlaPersonalityChangeOption", [] { VTAPI_CheckOrlaPersonalityChangeOption(nullptr, nullptr); }},
        {"VTAPI_GetPersonalityType", [] { VTAPI_GetPersonalityType(nullptr, nullptr); }},
        {"VTAPI_ChangePersonalityType", [] { VTAPI_ChangePersonalityType(nullptr, 0); }},
        {"VTAPI_GetMpiConfigTableParams", [] { VTAPI_GetMpiConfigTableParams(nullptr, nullptr, nullptr); }},
        {"VTAPI_GetDCEStatistics", [] { VTAPI_GetDCEStatistics(nullptr, nullptr, nullptr); }},
        {"VTAPI_GetFCFPrimVLANConfig", [] { VTAPI_GetFCFPrimVLANConfig(nullptr, nullptr, nullptr); }},
        {"VTAPI_SetFCFPrimVLANConfig", [] { VTAPI_SetFCFPrimVLANConfig(nullptr, nullptr, 0); }},
        {"VTAPI_GetFCoEGeneralInfo", [] { VTAPI_GetFCoEGeneralInfo(nullptr, nullptr, nullptr); }},
        {"VTAPI_RegisterAlarmNotificationCallback", [] { VTAPI_RegisterAlarmNotificationCallback(nullptr); }},
        {"VTAPI_UnRegisterAlarmNotificationCallback", [] { VTAPI_UnRegisterAlarmNotificationCallback(nullptr); }},
        {"VTAPI_Uninitialize", [] { VTAPI_Uninitialize(); }},
    };
    // VTAPI_DidConfigChange has no frame; VTAPI_ResetConfigChange writes
    // only an exit line (Lifecycle tests cover both).
    std::set<std::string> covered = {"VTAPI_DidConfigChange", "VTAPI_ResetConfigChange"};
    for (const auto &call : calls) covered.insert(call.first);
    std::set<std::string> exported;
    for (const auto &line : Lines(vttest::ReadFile(vttest::SourcePath("tests/data/vtapi_exports.txt"))))
        if (!line.empty()) exported.insert(line);
    EXPECT_EQ(covered, exported);

    Start();
    int at = static_cast<int>(Log().size());
    for (const auto &[name, call] : calls) {
        SCOPED_TRACE(name);
        call();
        const auto log = Log();
        const int enter = FindLine(log, "PROFILER ENTER FUNCTION " + name, at);
        EXPECT_GE(enter, 0);
        // A refresh logs the frames of the initialize and uninitialize it
        // runs; the call's own exit is its last exit line.
        int exit = -1;
        for (int i = FindLine(log, "PROFILER EXIT FUNCTION " + name + " ", enter + 1); i >= 0;
             i = FindLine(log, "PROFILER EXIT FUNCTION " + name + " ", i + 1))
            exit = i;
        EXPECT_GT(exit, enter);
        EXPECT_EQ(FindLine(log, "PROFILER ERROR", at), -1);
        at = static_cast<int>(log.size());
    }
}

TEST_F(Api, FileUpdateFrameChecksTheFileFirst) {
    Start();
    const std::string present = root_.path("/nvram.bin");
    vttest::WriteFile(present, std::string(512, '\0'));
    gNvramFileCalls = 0;
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(nullptr, root_.path("/missing.bin").c_str()), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(gNvramFileCalls, 0);
    int at = ExpectFrame("VTAPI_UpdateAdapterNVRAMFromFile", 3);
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(nullptr, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(gNvramFileCalls, 0);
    // With the file there the FC_ function is called and its status returned.
    EXPECT_EQ(VTAPI_UpdateAdapterNVRAMFromFile(nullptr, present.c_str()), 55u);
    EXPECT_EQ(gNvramFileCalls, 1);
    ExpectFrame("VTAPI_UpdateAdapterNVRAMFromFile", 55, at);

    // The other update calls of a file refuse a missing one the same way.
    const char *missing = "/nonexistent/vtapi/image.bin";
    EXPECT_EQ(VTAPI_DoGlobalNVRAMUpdateAll(missing), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(VTAPI_UpdateSpecificFlashRegionFromFile(nullptr, missing, 7), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(nullptr, missing), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(VTAPI_FCGetFlashImageVersion(nullptr, missing, nullptr), VTAPI_FILE_NOT_FOUND);
    // Saving writes a file: there is nothing to check first.
    EXPECT_EQ(VTAPI_SaveSingleAdapterNVRAMToFile(nullptr, missing), VTAPI_DEVICE_NUMBER_NOT_FOUND);
}

TEST_F(Api, OptionRomUpdateRaisesTheFlashFlagForItsDuration) {
    Start();
    const std::string image = root_.path("/image.bin");
    vttest::WriteFile(image, "image");
    gFlagDuringUpdate.clear();
    EXPECT_EQ(VTAPI_doOptionROMUpdate(nullptr, image.c_str(), 201), 201u);
    ASSERT_EQ(gFlagDuringUpdate.size(), 1u);
    EXPECT_EQ(gFlagDuringUpdate[0], 1u);
    EXPECT_EQ(gFlashUpdateInProgress, 0u);
    ExpectFrame("VTAPI_doOptionROMUpdate", 201);
    // A missing image: not called, flag cleared.
    EXPECT_EQ(VTAPI_doOptionROMUpdate(nullptr, root_.path("/none.bin").c_str(), 0), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(gFlagDuringUpdate.size(), 1u);
    EXPECT_EQ(gFlashUpdateInProgress, 0u);
}

TEST_F(Api, AdapterQueriesAnswerFromTheDefaultHost) {
    Start();
    AdapterEntry *card = Adapter("VTK24110A7");
    ASSERT_NE(card, nullptr);
    char text[128];
    ASSERT_EQ(VTAPI_GetFCAdapterDecription(card, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "VT2912 dual-port 64Gb FC adapter");  // the board table's text
    ASSERT_EQ(VTAPI_GetFCAdapterDecription(card, text, 7), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "VT2912");

    VTAPI_AdapterVersions v;
    ASSERT_EQ(VTAPI_FCGetAdapterVersions(card, &v), VTAPI_SUCCESS);
    EXPECT_STREQ(v.FirmwareVersion, "9.12.01");
    EXPECT_STREQ(v.FlashFirmwareVersion, "9.12.01");
    EXPECT_STREQ(v.BIOSVersion, "3.67");
    EXPECT_STREQ(v.FCodeVersion, "4.21");
    EXPECT_STREQ(v.EFIVersion, "7.34");
    EXPECT_STREQ(v.MultiBootVersion, "1.12.03");
    EXPECT_STREQ(v.DriverVersion, "10.02.09.100-k");
    ASSERT_EQ(VTAPI_FCGetAdapterVersions(Adapter("VTS18050C3"), &v), VTAPI_SUCCESS);
    EXPECT_STREQ(v.BIOSVersion, "3.28");
    EXPECT_STREQ(v.DriverVersion, "8.07.00.26-k");

    ASSERT_EQ(VTAPI_GetMBIVersionString(card, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "1.12.03");
    uint32_t yes = 9;
    EXPECT_EQ(VTAPI_IsBiosAvailableWithAdapter(card, &yes), VTAPI_SUCCESS);
    EXPECT_EQ(yes, 1u);
    yes = 9;
    EXPECT_EQ(VTAPI_IsEfiAvailableWithAdapter(card, &yes), VTAPI_SUCCESS);
    EXPECT_EQ(yes, 1u);

    // An entry that is not in the tree, and null arguments.
    AdapterEntry stray{};
    EXPECT_EQ(VTAPI_FCGetAdapterVersions(&stray, &v), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetMBIVersionString(&stray, text, sizeof text), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_FCGetAdapterVersions(nullptr, &v), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_FCGetAdapterVersions(card, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetFCAdapterDecription(card, nullptr, 10), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetFCAdapterDecription(card, text, 0), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_IsBiosAvailableWithAdapter(card, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_IsEfiAvailableWithAdapter(nullptr, &yes), VTAPI_INVALID_ARGUMENT);
}

TEST_F(Api, PortQueriesAnswerFromTheDefaultHost) {
    Start();
    uint32_t value = 9;
    EXPECT_EQ(VTAPI_GetPortIndex(0, 0, &value), VTAPI_SUCCESS);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(VTAPI_GetPortIndex(4, 0, &value), VTAPI_SUCCESS);
    EXPECT_EQ(value, 1u);
    // Only the low 16 bits of the sub-index are passed on.
    EXPECT_EQ(VTAPI_GetPortIndex(1, 0x10000, &value), VTAPI_SUCCESS);
    EXPECT_EQ(value, 1u);

    SDPortProperty property;
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &property), VTAPI_SUCCESS);
    EXPECT_EQ(memcmp(property.WWPN, kPort0, 8), 0);
    EXPECT_EQ(property.PortState, SD_PORTSTATE_ONLINE);
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(4, 0, &property), VTAPI_SUCCESS);
    EXPECT_EQ(property.PortState, SD_PORTSTATE_LINKDOWN);

    uint8_t vpd[1024];
    uint32_t size = sizeof vpd;
    ASSERT_EQ(VTAPI_GetVpd(0, 0, vpd, &size), VTAPI_SUCCESS);
    ASSERT_GT(size, 3u);
    EXPECT_EQ(vpd[0], 0x82);
    EXPECT_NE(memchr(vpd, 0x78, size), nullptr);
    // Asking for the size: a null buffer, or one too small, gives the
    // device-management library's "too small" with the size needed.
    uint32_t needed = 0;
    EXPECT_EQ(VTAPI_GetVpd(0, 0, nullptr, &needed), SDERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, size);
    needed = 2;
    EXPECT_EQ(VTAPI_GetVpd(0, 0, vpd, &needed), SDERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(needed, size);

    for (uint32_t device : {0u, 2u, 3u, 5u}) {
        value = 9;
        EXPECT_EQ(VTAPI_IsMezzAdapter(device, 0, &value), VTAPI_SUCCESS);
        EXPECT_EQ(value, 0u) << device;
        value = 9;
        EXPECT_EQ(VTAPI_IsPortInMaintenanceMode(device, 0, &value), VTAPI_SUCCESS);
        EXPECT_EQ(value, 0u) << device;
        value = 9;
        EXPECT_EQ(VTAPI_IsRebootRequired(device, 0, &value), VTAPI_SUCCESS);
        EXPECT_EQ(value, 0u) << device;
        value = 9;
        EXPECT_EQ(VTAPI_GetLockdownStatus(device, 0, &value), VTAPI_SUCCESS);
        EXPECT_EQ(value, 0u) << device;
    }
}

TEST_F(Api, UnknownPortsAndNullArguments) {
    Start();
    uint32_t value = 0;
    SDPortProperty property;
    uint8_t buffer[16];
    uint32_t size = sizeof buffer;
    EXPECT_EQ(VTAPI_GetPortIndex(99, 0, &value), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetVpd(99, 0, buffer, &size), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetHbaDevicePortProperty(99, 0, &property), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_UpdatePortProperty(99, 0), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_UpdateDiscTargetProperty(99, 0, kTarget0), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_IsMezzAdapter(99, 0, &value), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_IsPortInMaintenanceMode(99, 0, &value), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_IsRebootRequired(99, 0, &value), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    EXPECT_EQ(VTAPI_GetLockdownStatus(99, 0, &value), VTAPI_DEVICE_NUMBER_NOT_FOUND);
    // A known port without such a virtual port.
    EXPECT_EQ(VTAPI_GetPortIndex(2, 5, &value), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(VTAPI_IsRebootRequired(0, 77, &value), VTAPI_PORT_NOT_FOUND);

    EXPECT_EQ(VTAPI_GetPortIndex(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetVpd(0, 0, buffer, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_UpdateDiscTargetProperty(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_IsMezzAdapter(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_IsPortInMaintenanceMode(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_IsRebootRequired(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetLockdownStatus(0, 0, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetOSName(nullptr, 10), VTAPI_INVALID_ARGUMENT);
}

TEST_F(Api, VirtualPortsByParentAndVPortId) {
    Start();
    const SDMDevice *vport = nullptr;
    for (const SDMDevice *d = GetMyDeviceList()->First; d; d = d->next)
        if (d->DeviceNodeProperty.Interface == SD_INTERFACE_VPORT) vport = d;
    ASSERT_NE(vport, nullptr);
    ASSERT_EQ(vport->DeviceNodeProperty.ParentInstance, 0u);
    const uint32_t id = vport->DeviceNodeProperty.VPortId;
    ASSERT_NE(id, 0u);
    SDPortProperty property;
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(0, id, &property), VTAPI_SUCCESS);
    EXPECT_EQ(memcmp(property.WWPN, vport->DevicePortProperty.WWPN, 8), 0);
    EXPECT_NE(memcmp(property.WWPN, kPort0, 8), 0);
    // Its own instance number reaches it too.
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(vport->Instance, 0, &property), VTAPI_SUCCESS);
    EXPECT_EQ(memcmp(property.WWPN, vport->DevicePortProperty.WWPN, 8), 0);
    // VPD is data of the physical function.
    uint8_t vpd[1024];
    uint32_t size = sizeof vpd;
    EXPECT_EQ(VTAPI_GetVpd(0, id, vpd, &size), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(VTAPI_GetVpd(vport->Instance, 0, vpd, &size), VTAPI_NOT_SUPPORTED_ON_VPORT);
}

TEST_F(Api, UpdatesRereadIntoEveryCopyOfThePort) {
    Start();
    SDMDevice *listed = Listed(0);
    ASSERT_NE(listed, nullptr);
    ProtocolEntry *entry = TreeEntry(kPort0);
    ASSERT_NE(entry, nullptr);
    SDMDevice *core = nullptr;
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (memcmp(d->DevicePortProperty.WWPN, kPort0, 8) == 0) core = d;
    ASSERT_NE(core, nullptr);
    for (SDMDevice *d : {listed, &entry->Device, core}) {
        d->DevicePortProperty.PortState = 99;
        d->DevicePortProperty.MaxFrameSize = 1;
    }
    ASSERT_EQ(VTAPI_UpdatePortProperty(0, 0), VTAPI_SUCCESS);
    for (SDMDevice *d : {listed, &entry->Device, core}) {
        EXPECT_EQ(d->DevicePortProperty.PortState, SD_PORTSTATE_ONLINE);
        EXPECT_GT(d->DevicePortProperty.MaxFrameSize, 1u);
        EXPECT_EQ(memcmp(d->DevicePortProperty.WWPN, kPort0, 8), 0);
    }

    // Discovered target of port 0: the target lists hold it after discovery.
    TargetEntry *target = nullptr;
    for (TargetEntry *t = listed->Targets.First; t; t = t->next)
        if (memcmp(t->WWPN, kTarget0, 8) == 0) target = t;
    ASSERT_NE(target, nullptr) << "port 0 lists no target 50:0a:09:81:00:00:a1:00";
    target->DiscTargetProperty.PortType = 77;
    target->TargetFlags = 0;
    ASSERT_EQ(VTAPI_UpdateDiscTargetProperty(0, 0, kTarget0), VTAPI_SUCCESS);
    EXPECT_NE(target->DiscTargetProperty.PortType, 77);
    EXPECT_TRUE(target->TargetFlags & SD_TGTFLAG_LOGGED_IN);
    EXPECT_EQ(target->TargetFlags, target->DiscTargetProperty.TargetFlags);
    const uint8_t unknown[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x99};
    EXPECT_EQ(VTAPI_UpdateDiscTargetProperty(0, 0, unknown), VTAPI_TARGET_NOT_FOUND);
    // A port with a target only on another port.
    EXPECT_EQ(VTAPI_UpdateDiscTargetProperty(2, 0, kTarget0), VTAPI_TARGET_NOT_FOUND);
}

TEST_F(Api, PortConditionsMezzanineAndMissingBootCode) {
    auto port = [](int n, const std::string &flag) {
        return R"({"port":)" + std::to_string(n) + R"(,"function":)" + std::to_string(n) +
               R"(,"wwnn":"20:00:00:24:ff:00:00:1)" + std::to_string(n) + R"(","wwpn":"21:00:00:24:ff:00:00:1)" +
               std::to_string(n) + R"(","speed":16)" + flag + "}";
    };
    Start(R"({"cards":[{"serial":"VTM0000001","model":"VT2530","device_id":"0x6A10",
        "subsystem_vendor_id":"0x1077","subsystem_id":"0x0A6E","pci_bus":7,
        "option_rom":{"bios":"3.10","multiboot":"02.01.07"},"ports":[)" +
          port(0, R"(,"maintenance":true)") + "," + port(1, R"(,"reboot_required":true)") + "," +
          port(2, R"(,"lockdown":true)") + R"(]},
        {"serial":"VTX0000002","model":"VT9999","description":"Lab board","device_id":"0x6A10",
         "subsystem_vendor_id":"0x1077","subsystem_id":"0x7777","pci_bus":9,"ports":[)" +
          port(3, "") + "]}]}");
    auto state = [](uint32_t (*call)(uint32_t, uint32_t, uint32_t *), uint32_t device) {
        uint32_t value = 9;
        EXPECT_EQ(call(device, 0, &value), VTAPI_SUCCESS);
        return value;
    };
    EXPECT_EQ(state(VTAPI_IsPortInMaintenanceMode, 0), 1u);
    EXPECT_EQ(state(VTAPI_IsPortInMaintenanceMode, 1), 0u);
    EXPECT_EQ(state(VTAPI_IsRebootRequired, 1), 1u);
    EXPECT_EQ(state(VTAPI_IsRebootRequired, 2), 0u);
    EXPECT_EQ(state(VTAPI_GetLockdownStatus, 2), 1u);
    EXPECT_EQ(state(VTAPI_GetLockdownStatus, 0), 0u);
    EXPECT_EQ(state(VTAPI_IsMezzAdapter, 1), 1u);

    AdapterEntry *card = Adapter("VTM0000001");
    ASSERT_NE(card, nullptr);
    uint32_t available = 9;
    EXPECT_EQ(VTAPI_IsBiosAvailableWithAdapter(card, &available), VTAPI_SUCCESS);
    EXPECT_EQ(available, 1u);
    EXPECT_EQ(VTAPI_IsEfiAvailableWithAdapter(card, &available), VTAPI_SUCCESS);
    EXPECT_EQ(available, 0u);
    VTAPI_AdapterVersions v;
    ASSERT_EQ(VTAPI_FCGetAdapterVersions(card, &v), VTAPI_SUCCESS);
    EXPECT_STREQ(v.EFIVersion, "");
    EXPECT_STREQ(v.FCodeVersion, "");
    EXPECT_STREQ(v.MultiBootVersion, "2.01.07");
    // The board table names the mezzanine board.
    char text[128];
    ASSERT_EQ(VTAPI_GetFCAdapterDecription(card, text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "VT2530 dual-port 16Gb FC mezzanine adapter");
    // A board the table does not know: the description the port reports.
    ASSERT_EQ(VTAPI_GetFCAdapterDecription(Adapter("VTX0000002"), text, sizeof text), VTAPI_SUCCESS);
    EXPECT_STREQ(text, "Lab board");
    EXPECT_EQ(state(VTAPI_IsMezzAdapter, 3), 0u);
}

TEST_F(Api, OperatingSystemNameFromDistributionAndUname) {
    Start();
    struct utsname host;
    ASSERT_EQ(uname(&host), 0);
    char name[256];
    ASSERT_EQ(VTAPI_GetOSName(name, sizeof name), VTAPI_SUCCESS);
    EXPECT_EQ(std::string(name), std::string(host.sysname) + " testdistro " + host.release);
    ASSERT_EQ(VTAPI_GetOSName(name, 6), VTAPI_SUCCESS);
    EXPECT_EQ(std::string(name), std::string(host.sysname).substr(0, 5));
    ExpectFrame("VTAPI_GetOSName", 0);
}

}  // namespace
