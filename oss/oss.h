/*
 * oss/oss.h - operating-system services of libvtapifconly, the lowest layer:
 * logging and tracing (the messages file, the profiler, the console and the
 * command-line log), the access mutex and the OSS critical section, the
 * installation path and the preference files, and the OS layer's start-up.
 * Functions marked VTAPI_EXPORT are exported so that a program may replace
 * them; the others are internal to the library.
 */
#ifndef VT_OSS_OSS_H
#define VT_OSS_OSS_H

#include <stdint.h>
#include <stdio.h>

#include "vtapi.h"
#include "vtapi_cli.h"
#include "vtsdm.h"

#ifdef __cplusplus
#include "oss/oss_status.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------ logging: types */
#define VT_MSG_PLAIN   0
#define VT_MSG_INFO    1
#define VT_MSG_WARNING 2
#define VT_MSG_ERROR   3
#define VT_MSG_DEBUG   100
#define VT_MSG_PROFILE 200

/* Trace-level bits of VTAPI_Initialize. */
#define VT_TRACE_INFO    1
#define VT_TRACE_WARNING 2
#define VT_TRACE_ERROR   4
#define VT_TRACE_CLILOG  8

/* ---------------------------------------------------- logging: globals */
VTAPI_EXPORT extern char messagesfile[512];
VTAPI_EXPORT extern char oldmessagesfile[512];
VTAPI_EXPORT extern int32_t g_coreQuietModeEnable;
/* The OS layer's own quiet flag: OSSInitialize copies g_coreQuietModeEnable
 * into it; OSSLogMessage prints nothing while it is set. */
extern int32_t g_bOperateInQuietMode;
/* g_fp, g_LogFileName, bSilent, bSysLog and bXmlOutPut: vtapi_cli.h. */
extern int32_t bJsonOutPut; /* JSON output (-j) */

/* API messages file. */
VTAPI_EXPORT void LogDebug(const char *file, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
VTAPI_EXPORT void LogInfo(const char *file, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
VTAPI_EXPORT void LogWarning(const char *file, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
VTAPI_EXPORT void LogError(const char *file, uint32_t line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/* Formats `format` once more (see the implementation) and writes the line. */
VTAPI_EXPORT void LogMessage(int32_t type, const char *format, ...);
VTAPI_EXPORT uint32_t OSSLogMessage2(int32_t type, const char *text);
VTAPI_EXPORT uint32_t TarnOSSLogMessage(int32_t type, const char *text);
VTAPI_EXPORT const char *TranslateMessageTypeToString(int32_t type);
VTAPI_EXPORT void InitializeLogMessageFile(void);
VTAPI_EXPORT int32_t RenameLogFile(const char *oldName, const char *newName);
VTAPI_EXPORT void OpenCoreMessagesFile(void);
VTAPI_EXPORT int32_t IsFileSizeWithinLimit(const char *path, uint64_t limit);
VTAPI_EXPORT char *vtapiGetTimeStamp(char *buffer, uint32_t size);

/* Profiler. */
VTAPI_EXPORT void ProfilerEnterFunction(const char *name);
VTAPI_EXPORT void ProfilerExitFunction(const char *name);
VTAPI_EXPORT void ProfilerExitFunction2(const char *name, int32_t status);

/* Core message log (console). */
VTAPI_EXPORT void CoreLogMessage(int32_t type, const char *format, ...) __attribute__((format(printf, 2, 3)));
VTAPI_EXPORT uint32_t OSSLogMessage(int32_t type, const char *text);

/* Command-line log. */
VTAPI_EXPORT void TarnLogMessage(int32_t type, const char *format, ...) __attribute__((format(printf, 2, 3)));
VTAPI_EXPORT void PrintMessage(int32_t type, const char *text);
VTAPI_EXPORT void TarnPrint(int32_t type, const char *format, ...) __attribute__((format(printf, 2, 3)));
VTAPI_EXPORT void TarnMenuLogMessage(int32_t type, const char *format, ...) __attribute__((format(printf, 2, 3)));
VTAPI_EXPORT void SetLogFileName(const char *name);
VTAPI_EXPORT const char *GetLogFileName(void);
VTAPI_EXPORT int32_t TarnInitializeLogFile(const char *mode);
VTAPI_EXPORT void TarnUnInitializeLogFile(void);
VTAPI_EXPORT void SetCoreEnableDebugMessage(int32_t enable);
VTAPI_EXPORT int32_t GetCoreEnableDebugMessage(void);
VTAPI_EXPORT void CoreSetQuietMode(int32_t quiet);
VTAPI_EXPORT int32_t CoreGetQuietMode(void);
VTAPI_EXPORT void SetDisplayMode(int32_t mode);
VTAPI_EXPORT int32_t SetAppTraceFileName(void);
const char *GetAppTraceFileName(void);

/* ---------------------------------------------------------- access mutex */
typedef struct AccessLockRecord {
    int32_t SemaphoreId;
    int32_t Locked;
    uint64_t Owner; /* pthread_self of the holder; all ones when free */
} AccessLockRecord;

VTAPI_EXPORT uint32_t vtapi_crc(const unsigned char *data, uint32_t length);
VTAPI_EXPORT void vtapi_make_crc_table(void);
VTAPI_EXPORT uint32_t vtapi_update_crc(uint32_t crc, const unsigned char *data, uint32_t length);
VTAPI_EXPORT int32_t getVTAPIMutexID(void);
VTAPI_EXPORT int32_t vtapi_CreateAccessMutex(const char *name, uint32_t length);
VTAPI_EXPORT int32_t vtapi_CreateAccessMutex2(uint32_t key);
VTAPI_EXPORT int32_t vtapi_InitccessMutex(int32_t id);
VTAPI_EXPORT uint32_t vtapi_LockAccessMutex(int32_t id, uint32_t timeout);
VTAPI_EXPORT uint32_t vtapi_UnlockAccessMutex(int32_t id);
VTAPI_EXPORT uint32_t vtapi_DestroyAccessMutex(int32_t id);
VTAPI_EXPORT AccessLockRecord *vtapi_getLockInfo(int32_t id);
VTAPI_EXPORT void vtapi_freeAccessMutexMemory(void);
VTAPI_EXPORT uint32_t vtapi_cnaLockAccessMutex(int32_t id, uint32_t timeout);
VTAPI_EXPORT uint32_t vtapi_cnaUnlockAccessMutex(int32_t id);
VTAPI_EXPORT uint32_t vtapi_cnaDestroyAccessMutex(int32_t id);

/* OSS critical section. */
VTAPI_EXPORT extern void *g_ossCriticalSection; /* pthread_mutex_t * */
VTAPI_EXPORT uint32_t OSSInitCriticalSection(void);
VTAPI_EXPORT int32_t OSSEnterCriticalSection(void);
VTAPI_EXPORT int32_t OSSLeaveCriticalSection(void);
VTAPI_EXPORT uint32_t OSSDeleteCriticalSection(void);

/* Waits.  OSSSleep is exported, so a program (or a test) may replace it. */
VTAPI_EXPORT void OSSSleep(uint32_t seconds);
void OSSSleepMs(uint32_t milliseconds);

/* ------------------------------------- installation path and preferences */
VTAPI_EXPORT extern char g_InstallationDir[260];
VTAPI_EXPORT extern char g_CurrentDir[260];
VTAPI_EXPORT extern char g_TarnConfigFileName[260];
/* Alias and exit-codes file names; filled from the installation directory
 * on first use when empty ("aliases.properties", "globalaliases.properties",
 * "exitcodes.properties") unless the alias code has set them. */
VTAPI_EXPORT extern char g_AliasFileName[260];
VTAPI_EXPORT extern char g_GlobalAliasFileName[260];
VTAPI_EXPORT extern char g_TarnExitCodesFileName[260];

VTAPI_EXPORT uint32_t TarnSetInstallationDir(const char *dir, int32_t length);
VTAPI_EXPORT const char *TarnGetInstallationDir(void);
VTAPI_EXPORT uint32_t TarnSetCurrentDir(const char *dir, int32_t length);
VTAPI_EXPORT const char *TarnGetCurrentDir(void);
VTAPI_EXPORT void TarnSetReferenceFile(void);
VTAPI_EXPORT const char *TarnGetConfigFileName(void);
VTAPI_EXPORT const char *TarnGetAliasFileName(void);
VTAPI_EXPORT const char *TarnGetGlobalAliasFileName(void);
VTAPI_EXPORT const char *TarnGetExitCodesFileName(void);
VTAPI_EXPORT FILE *TarnOpenPreferenceFile(const char *path, int32_t mode);
VTAPI_EXPORT int32_t TarnPreferenceGetKeyValue(const char *key, int32_t mode);
VTAPI_EXPORT uint32_t TarnPreferenceSetKeyValue(const char *key, int32_t value);
VTAPI_EXPORT FILE *PrefOpenPreferenceFile(const char *path);
VTAPI_EXPORT FILE *PrefOpenPreferenceFileWriteMode(const char *path);
VTAPI_EXPORT uint32_t PrefClosePreferenceFile(FILE *stream);
VTAPI_EXPORT char *PrefGetProperty(FILE *stream, const char *key);
VTAPI_EXPORT uint32_t PrefSetProperty(FILE *stream, const char *key, const char *value);
VTAPI_EXPORT uint32_t TarnPrefGetProperty(FILE *stream, const char *key, char *destination);
VTAPI_EXPORT uint32_t ReadKeyValue(const char *path, const char *key, char *destination, uint32_t size, char separator);
VTAPI_EXPORT uint32_t GetAppInstallationDirectory(char *destination, uint32_t length);
VTAPI_EXPORT uint32_t SetAppPathInPropertyFile(const char *path);
VTAPI_EXPORT int32_t CoreIsCommentChar(int32_t c);

/* ------------------------------------------------------------ start-up */
extern char g_ModulePath[256]; /* the loaded libvtsdm, found by dladdr */
VTAPI_EXPORT uint32_t GetInstallationPath(void);
VTAPI_EXPORT const char *findlibvtsdm_adapter_provider(void);
VTAPI_EXPORT uint32_t haslibvtsdmEntry(void *stream);
VTAPI_EXPORT uint32_t createHBAConfFile(const char *mode, const char *provider);
VTAPI_EXPORT uint32_t checkAndInstallHBAConfFile(void);
VTAPI_EXPORT uint32_t OSSInitialize(int32_t argc, char **argv);
VTAPI_EXPORT uint32_t OSSUninitialize(void);
VTAPI_EXPORT uint32_t OSSPostInitializeDevices(void);
VTAPI_EXPORT uint32_t OSSUpdateCoreDevices(void);
VTAPI_EXPORT uint32_t OSSStopCorePollingLoop(void);
VTAPI_EXPORT uint32_t OSSGetHostInformation(char *hostName, char *systemType, char *osVersion, char *agentVersion);
/* The distribution's identifier from os-release ("debian"), or "". */
const char *OSSGetDistributionType(void);
/* The directory of the agent's configuration ("/etc/"). */
const char *OSSGetConfigurationPath(void);
/* The core's start-up step, which OSSInitialize runs once it has set the
 * configuration path (the core registers CorePreInitialize here). */
typedef uint32_t (*OSSStartupStep)(void);
void OSSSetCoreStartup(OSSStartupStep step);

#ifdef __cplusplus
}
#endif

#endif /* VT_OSS_OSS_H */
