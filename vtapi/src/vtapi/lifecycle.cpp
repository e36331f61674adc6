// The library's global state and the calls that create, rebuild and drop
// it, with the host and system queries and the caller identification.
#include <sys/utsname.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/events.h"
#include "frame.h"
#include "fc/fc.h"
#include "oss/oss.h"
#include "oss/oss_status.h"
#include "sysroot.h"

namespace {

const char kFile[] = __FILE__;
constexpr uint32_t kWaitForever = 0xFFFFFFFFu;  // access mutex timeout

// Standard reflected CRC-32 (polynomial 0xEDB88320), register started at 0,
// result inverted: the host-name checksum of HostInfo.
uint32_t HostNameCrc(const char *text) {
    uint32_t crc = 0;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text); *p; ++p) {
        crc ^= *p;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

// The tree in the debug log.  The main and the backup list are dumped
// under the same heading.
void DumpTree(AdapterEntryList *list) {
    if (!list) return;
    LogDebug(kFile, __LINE__, "Iterating through gpAdapterList");
    DumpAdapterEntryList(list);
}

// Profiler frame of a lifecycle call that has one exit path or several.
class ProfilerScope {
public:
    explicit ProfilerScope(const char *name) : name_(name) { ProfilerEnterFunction(name_); }
    ~ProfilerScope() { ProfilerExitFunction(name_); }
    ProfilerScope(const ProfilerScope &) = delete;
    ProfilerScope &operator=(const ProfilerScope &) = delete;

private:
    const char *name_;
};

}  // namespace

// Runs the work of an exported call that holds the access mutex: no
// exception leaves the library, and one that ends the work early releases
// the mutex the work would have released.
template <class Work>
uint32_t UnderLock(int32_t mutex, Work &&work) {
    bool finished = false;
    const uint32_t rc = vt::frame::Guarded([&] {
        const uint32_t status = work();
        finished = true;
        return status;
    });
    if (!finished) vtapi_UnlockAccessMutex(mutex);
    return rc;
}

extern "C" {

VTAPI_EXPORT int32_t gTraceLevel = 8;
VTAPI_EXPORT uint32_t guInRefreshData = 0;
VTAPI_EXPORT uint32_t guConfigChanged = 0;
VTAPI_EXPORT uint32_t gFlashUpdateInProgress = 0;
VTAPI_EXPORT AdapterEntryList *gpAdapterList = nullptr;
VTAPI_EXPORT AdapterEntryList *gpBackupAdapterList = nullptr;
VTAPI_EXPORT char gpInstallationPath[256];

// 0 when the exchange records of the layers have the sizes they were built
// with.
VTAPI_EXPORT uint32_t CheckStructureSizes(void) {
    const uint32_t rc = CheckFCStructureSizes();
    if (rc != 0) LogDebug(kFile, __LINE__, "CheckStructureSizes(): CheckFCStructureSizes() failed");
    return rc;
}

VTAPI_EXPORT uint32_t VTAPI_Initialize(int32_t traceLevel, const char *installDir) {
    ProfilerEnterFunction("VTAPI_Initialize");
    const int32_t mutex = getVTAPIMutexID();
    vtapi_LockAccessMutex(mutex, kWaitForever);
    return UnderLock(mutex, [&]() -> uint32_t {
        if (traceLevel != 0) {
            gTraceLevel = traceLevel;
            if (!guInRefreshData && (traceLevel & VT_TRACE_INFO)) {
                InitializeLogMessageFile();
                RenameLogFile(messagesfile, oldmessagesfile);
                OpenCoreMessagesFile();
            }
            if (traceLevel & VT_TRACE_CLILOG) {
                // The command-line log opens its file name as it is.
                SetLogFileName(messagesfile[0] != '\0' ? vt::MapSystemPath(messagesfile).c_str() : "");
                TarnInitializeLogFile("a+");
                SetCoreEnableDebugMessage(1);
            }
        } else {
            // Quiet; gTraceLevel deliberately keeps its previous value.
            SetCoreEnableDebugMessage(0);
            CoreSetQuietMode(1);
            SetDisplayMode(1);
        }
        GetInstallationPath();
        TarnSetInstallationDir(gpInstallationPath, int32_t(strlen(gpInstallationPath)));
        TarnSetReferenceFile();
        LogDebug(kFile, __LINE__, "Before checkAndInstallHBAConfFile()");
        checkAndInstallHBAConfFile();
        LogDebug(kFile, __LINE__, "After checkAndInstallHBAConfFile()");
        OSSInitialize(0, nullptr);
        if (installDir) {
            TarnSetInstallationDir(installDir, int32_t(strlen(installDir)));
            if (installDir != gpInstallationPath) {
                strncpy(gpInstallationPath, installDir, sizeof gpInstallationPath);
                gpInstallationPath[sizeof gpInstallationPath - 1] = '\0';
            }
            TarnSetReferenceFile();
        }
        uint32_t rc = CheckStructureSizes();
        if (rc != 0) {
            LogDebug(kFile, __LINE__, "VTAPI_Initialize(): CheckStructureSizes() failed");
            vtapi_UnlockAccessMutex(mutex);
            return rc;  // the profiler frame is deliberately left open
        }
        LogDebug(kFile, __LINE__, "Before core_FreeAdapterList() call");
        core_FreeAdapterList(gpAdapterList);
        LogDebug(kFile, __LINE__, "After core_FreeAdapterList() call");
        LogDebug(kFile, __LINE__, "Before TarnReinitializeDevices()");
        TarnReinitializeDevices();
        LogDebug(kFile, __LINE__, "After TarnReinitializeDevices()");
        CoreHandlePortStateChange();
        OSSInitCriticalSection();
        LogDebug(kFile, __LINE__, "Before core_CreateAdapterEntryList() call");
        gpAdapterList = core_CreateAdapterEntryList();
        LogDebug(kFile, __LINE__, "After core_CreateAdapterEntryList() call");
        BuildAdapterInfoForFC(gpAdapterList);
        LogDebug(kFile, __LINE__, "After BuildAdapterInfoForFC()");
        guConfigChanged = 0;
        DumpTree(gpAdapterList);
        vtapi_UnlockAccessMutex(mutex);
        LogDebug(kFile, __LINE__, "returning VTAPI_SUCCESS");
        ProfilerExitFunction("VTAPI_Initialize");
        return 0;
    });
}

VTAPI_EXPORT uint32_t VTAPI_Uninitialize(void) {
    ProfilerEnterFunction("VTAPI_Uninitialize");
    const int32_t mutex = getVTAPIMutexID();
    vtapi_LockAccessMutex(mutex, kWaitForever);
    return UnderLock(mutex, [&]() -> uint32_t {
        ProfilerEnterFunction("OSSDeleteCriticalSection()");
        OSSDeleteCriticalSection();
        ProfilerExitFunction("OSSDeleteCriticalSection()");
        LogDebug(kFile, __LINE__, "Before RemoveAllDevicesFromDeviceList() call");
        RemoveAllDevicesFromDeviceList();
        FreeMyDeviceList(0);
        LogDebug(kFile, __LINE__, "After RemoveAllDevicesFromDeviceList() call");
        LogDebug(kFile, __LINE__, "Before core_FreeAdapterList() call");
        core_FreeAdapterList(gpAdapterList);
        gpAdapterList = nullptr;
        LogDebug(kFile, __LINE__, "After core_FreeAdapterList() call");
        vtapi_UnlockAccessMutex(mutex);
        ProfilerExitFunction("VTAPI_Uninitialize");
        return 0;
    });
}

VTAPI_EXPORT uint32_t VTAPI_RefreshData(void) {
    ProfilerEnterFunction("VTAPI_RefreshData");
    const int32_t mutex = getVTAPIMutexID();
    vtapi_LockAccessMutex(mutex, kWaitForever);
    return UnderLock(mutex, [&]() -> uint32_t {
        guInRefreshData = 1;
        VTAPI_Uninitialize();
        // Initialize clears gpInstallationPath before it reads the directory it
        // is given, so it gets a copy.
        char installDir[sizeof gpInstallationPath];
        memcpy(installDir, gpInstallationPath, sizeof installDir);
        installDir[sizeof installDir - 1] = '\0';
        VTAPI_Initialize(gTraceLevel, installDir);
        guInRefreshData = 0;
        guConfigChanged = 0;
        vtapi_UnlockAccessMutex(mutex);
        ProfilerExitFunction("VTAPI_RefreshData");
        return 0;
    });
}

VTAPI_EXPORT uint32_t VTAPI_UpdateBackupAdapterList(void) {
    ProfilerEnterFunction("VTAPI_UpdateBackupAdapterList");
    const int32_t mutex = getVTAPIMutexID();
    vtapi_LockAccessMutex(mutex, kWaitForever);
    return UnderLock(mutex, [&]() -> uint32_t {
        core_FreeAdapterList(gpBackupAdapterList);
        gpBackupAdapterList = nullptr;
        TarnReinitializeDevices();
        CoreHandlePortStateChange();
        gpBackupAdapterList = core_CreateAdapterEntryList();
        BuildAdapterInfoForFC(gpBackupAdapterList);
        DumpTree(gpBackupAdapterList);
        vtapi_UnlockAccessMutex(mutex);
        ProfilerExitFunction("VTAPI_UpdateBackupAdapterList");
        return 0;
    });
}

VTAPI_EXPORT uint32_t VTAPI_SwapBackupToMainAdapterList(void) {
    ProfilerScope frame("VTAPI_SwapBackupToMainAdapterList");
    core_FreeAdapterList(gpAdapterList);
    gpAdapterList = gpBackupAdapterList;
    gpBackupAdapterList = nullptr;
    return 0;
}

VTAPI_EXPORT uint32_t VTAPI_DidConfigChange(void) {
    if (guInRefreshData || gFlashUpdateInProgress) return 0;
    FC_CorePollForAEN();
    return guConfigChanged;
}

VTAPI_EXPORT uint32_t VTAPI_ResetConfigChange(void) {
    guConfigChanged = 0;
    ProfilerExitFunction("VTAPI_ResetConfigChange");  // no matching enter, deliberately
    return 0;
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterCount(void) {
    ProfilerScope frame("VTAPI_GetAdapterCount");
    return gpAdapterList ? gpAdapterList->Count : 0;
}

VTAPI_EXPORT AdapterEntryList *VTAPI_GetAdapterList(void) {
    ProfilerScope frame("VTAPI_GetAdapterList");
    return gpAdapterList;
}

VTAPI_EXPORT void VTAPI_FreeMem(void *memory) {
    ProfilerScope frame("VTAPI_FreeMem");
    free(memory);
}

VTAPI_EXPORT uint32_t VTAPI_GetHostInfo(HostInfo *info) {
    ProfilerScope frame("VTAPI_GetHostInfo");
    if (!info) return VTAPI_GENERAL_FAILURE;
    char agentVersion[64];
    if (OSSGetHostInformation(info->HostName, info->SystemType, info->OSVersion, agentVersion) != 0)
        return VTAPI_GENERAL_FAILURE;
    snprintf(info->AgentVersion, sizeof info->AgentVersion, "%s", agentVersion);
    info->HostNameCrc = HostNameCrc(info->HostName);
    info->Valid = 1;
    return 0;
}

VTAPI_EXPORT uint32_t VTAPI_GetSystemInfo(SystemInfo *info) {
    ProfilerScope frame("VTAPI_GetSystemInfo");
    struct utsname u;
    if (!info || uname(&u) != 0) {
        LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): Line = %d", 567);
        return VTAPI_GENERAL_FAILURE;
    }
    info->OperatingSystem = 3;
    if (strstr(u.machine, "x86_64")) info->Architecture = 1;
    else if (strstr(u.machine, "x86")) info->Architecture = 0;
    info->Linux.ProductType = 3;
    uint32_t numbers[4] = {0, 0, 0, 0};
    int found = 0;
    for (const char *p = u.release; *p && found < 4;) {
        if (!isdigit(static_cast<unsigned char>(*p))) {
            ++p;
            continue;
        }
        char *end = nullptr;
        numbers[found++] = uint32_t(strtoul(p, &end, 10));
        p = end;
    }
    info->Linux.MajorVersion = numbers[0];
    info->Linux.MinorVersion = numbers[1];
    LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): systemInfo->Linux.ProductType = %u", info->Linux.ProductType);
    LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): systemInfo->OperatingSystem = %u", info->OperatingSystem);
    LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): systemInfo->Architecture = %u", info->Architecture);
    LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): systemInfo->Linux.MajorVersion = %u", info->Linux.MajorVersion);
    LogDebug(kFile, __LINE__, "VTAPI_GetSystemInfo(): systemInfo->Linux.MinorVersion = %u", info->Linux.MinorVersion);
    return 0;
}

VTAPI_EXPORT uint32_t VTAPI_SetToolID(uint32_t toolId) {
    ProfilerScope frame("VTAPI_SetToolID");
    CoreSetToolId(toolId & 255);
    LogDebug(kFile, __LINE__, "Got ToolID=0x%X, set g_AuxToolId=0x%X", toolId, g_AuxToolId);
    LogDebug(kFile, __LINE__, "returning VTAPI_SUCCESS");
    return 0;
}

VTAPI_EXPORT uint32_t VTAPI_SetToolVersion(uint32_t v1, uint32_t v2, uint32_t v3, uint32_t v4) {
    ProfilerScope frame("VTAPI_SetToolVersion");
    CoreSetToolVersion(v1, v2, v3, v4);
    return 0;
}

// An empty entry kept for callers that expect it.
VTAPI_EXPORT void VTAPI_COMInitByAnotherModule(void) { ProfilerScope frame("VTAPI_COMInitByAnotherModule"); }

}  // extern "C"
