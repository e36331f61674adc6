// Diagnostics and monitors of libvtapifconly: the diagnostic parameter
// table, loopback and read/write buffer tests, the statistics and link
// status polls, their CSV exports, and the sessions that run them on every
// selected port in worker threads while the calling thread takes the user's
// keys.  Every function here is exported so that a program may replace it;
// the screen goes through scfxDiagnosticsPrint, keys come from DiagGetKey
// and the time from DiagGetTime, and long waits go through OSSSleep, so
// that tests and front ends can stand in for the terminal and the clock.
#pragma once

#include <stdint.h>
#include <time.h>

#include "vtapi.h"
#include "vtapi_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Functions the library uses only itself. */
#define DIAG_INTERNAL __attribute__((visibility("hidden")))

/* ============================================ diagnostic parameter table */

/* Test modes (InitializeUserDiagnosticsTable, ValidateDiagnosticsParamValue,
 * CopyUserDiagnosticsDataToDiagTable). */
#define DIAG_TEST_LOOPBACK          0
#define DIAG_TEST_READ_WRITE_BUFFER 1
#define DIAG_TEST_ELS_ECHO          6
/* OR'ed into the validation mode when the values come from the menu. */
#define DIAG_MENU_MODE 0x100

/* Rows of the table. */
#define DIAG_ROW_DATA_PATTERN   0
#define DIAG_ROW_DATA_SIZE      1
#define DIAG_ROW_TEST_COUNT     2
#define DIAG_ROW_TEST_INCREMENT 3
#define DIAG_ROW_ON_ERROR       4
#define DIAG_ROW_LOOPBACK_TYPE  5
#define DIAG_PARAM_COUNT        6

typedef struct DiagParam {
    char Alias[3];
    char Name[20];
    char Value[20];
} DiagParam;

/* The table, six rows. */
VTAPI_EXPORT extern DiagParam g_UserDiagnosticsTable[DIAG_PARAM_COUNT];

VTAPI_EXPORT void InitializeUserDiagnosticsTable(uint32_t mode);
/* Row whose name or alias matches (any case), or 0xFFFFFFFF. */
VTAPI_EXPORT uint32_t ValidateDiagnosticsParamName(const char *name);
/* 0 when the value is allowed; 48 with the message in `message` (256
 * bytes) when it is not; 60 for an unknown row. */
VTAPI_EXPORT uint32_t ValidateDiagnosticsParamValue(uint32_t row, const char *value, char *message, uint32_t mode);
/* Stores a value (cut to 19 characters) in a row; 60 for an unknown row. */
VTAPI_EXPORT uint32_t AddUserDiagnosticsData(uint32_t row, const char *value);
/* The increment must be less than the count (a count of 0 runs without
 * end and takes any increment): 0, or 48 with the message. */
VTAPI_EXPORT uint32_t CompareUserDiagParamValue(char *message);
/* Builds the request record from the table for a test mode. */
VTAPI_EXPORT uint32_t CopyUserDiagnosticsDataToDiagTable(const SDMDevice *adapter, DiagRequest *request,
                                                         uint32_t testMode);
/* 8 random bytes: rand() seeded with the process ID plus the time. */
VTAPI_EXPORT void GenerateRandomPattern(uint8_t *bytes);
/* Fills `size` bytes with the request's pattern; 0, or 115 without memory. */
DIAG_INTERNAL uint32_t FillDiagnosticsPattern(const DiagRequest *request, uint8_t *buffer, uint32_t size);

/* ====================================================== loopback test */

/* One run on the adapter: the request's TestIncrement iterations, with up
 * to 30 attempts a second apart.  The record is kept in the loopback
 * result list and returned; null (diagnostic result 115) without memory. */
VTAPI_EXPORT DiagLoopbackResult *DiagnosticsLoopBackTest(const SDMDevice *adapter, const DiagRequest *request);
/* The diagnostic result of the calling thread's last run. */
DIAG_INTERNAL uint32_t GetDiagnosticsResult(void);
/* The whole test: runs until the count is done, OnError stops it, or it is
 * aborted; the outcome in *result.  0, or a status when it cannot start. */
DIAG_INTERNAL uint32_t RunLoopbackTest(const SDMDevice *adapter, const DiagRequest *request, VTAPI_DiagResult *result);
/* Asks the test running on the port with this instance number to stop. */
DIAG_INTERNAL uint32_t AbortDiagTest(uint32_t instance);
/* The records of every run since the list was last freed, oldest first
 * (the list is the library's). */
VTAPI_EXPORT uint32_t GetLoopbackResultCount(void);
VTAPI_EXPORT const DiagLoopbackResult *GetLoopbackResult(uint32_t index, uint32_t *instance);
VTAPI_EXPORT void FreeLoopbackResultList(void);

/* ============================================== read/write buffer test */

/* Targets left out of the read/write buffer test, by WWPN.  Add: 0, -1 when
 * already listed; Delete: 0, -1 when not listed; 8 for a null argument. */
VTAPI_EXPORT int32_t AddDeviceToDisableList(const uint8_t *wwpn);
VTAPI_EXPORT int32_t FindDeviceInDisableDiagList(const uint8_t *wwpn);
VTAPI_EXPORT int32_t DeleteDeviceFromDisableDiagList(const uint8_t *wwpn);
VTAPI_EXPORT void DeleteAllDeviceFromDisableDiagList(void);
VTAPI_EXPORT uint32_t CountDisableDiagDeviceList(void);

/* The buffer test on every logged-in FCP target of the adapter that is not
 * disabled: the request's count of WRITE BUFFER / READ BUFFER pairs to LUN
 * 0, compared, then the target's link error status.  One entry per target
 * is appended to `results`.  0, or a status when it cannot start. */
VTAPI_EXPORT uint32_t DiagnosticsReadWriteBufferTest(const SDMDevice *adapter, const DiagRequest *request,
                                                     VTAPI_RWBufferTestResultList *results);
VTAPI_EXPORT void FreeRWBufferTestResults(VTAPI_RWBufferTestResultList *results);

/* ================================================= threaded test runs */

/* Each runs its test (built from the parameter table for each port) on
 * every given port in a worker thread of its own, shows the progress
 * through scfxDiagnosticsPrint and waits for the workers on the calling
 * thread, where ENTER stops the test.  While it runs g_DiagState is 2; a
 * signal that the command line's handler takes stops the workers.  The
 * outcome per port goes to results[i]; the buffer test's lists are the
 * caller's, freed with FreeRWBufferTestResults.  0, or the status of the
 * first problem. */
VTAPI_EXPORT uint32_t CreateLoopbackThreadTest(SDMDevice *const *ports, uint32_t count, VTAPI_DiagResult *results);
VTAPI_EXPORT uint32_t CreateReadWriteBufferThreadTest(SDMDevice *const *ports, uint32_t count,
                                                      VTAPI_RWBufferTestResultList *results);

/* ======================================================== polling table */

/* Polling parameters of the statistics (kind 0) and link status (kind 1)
 * monitors: AutoPoll (AP), SetRate (SR), LogToFile (LF) and, for
 * statistics, DeviceFilter (DF). */
#define POLL_STATISTICS        0
#define POLL_LINK_STATUS       1
#define POLL_ROW_AUTO_POLL     0
#define POLL_ROW_SET_RATE      1
#define POLL_ROW_LOG_TO_FILE   2
#define POLL_ROW_DEVICE_FILTER 3
#define POLL_PARAM_COUNT       4

typedef struct PollParam {
    char Alias[3];
    char Name[20];
    char Value[256];
} PollParam;
extern PollParam g_UserPollingTable[2][POLL_PARAM_COUNT];

/* Defaults: AutoPoll 0 (until ENTER), SetRate 5, no log file, no filter. */
VTAPI_EXPORT void InitializeUserPollingTable(uint32_t kind);
VTAPI_EXPORT uint32_t ValidatePollingParamName(uint32_t kind, const char *name);
VTAPI_EXPORT uint32_t ValidatePollingParamValue(uint32_t kind, uint32_t row, const char *value, char *message);
VTAPI_EXPORT uint32_t AddUserPollingData(uint32_t kind, uint32_t row, const char *value);

/* ============================================================ statistics */

/* One poll of the adapter's counters with the rates since its previous
 * poll.  The sample is kept with the adapter until FreeHBAStatisticsList. */
VTAPI_EXPORT HBAStatisticsSample *GetHBAStatistics(const SDMDevice *adapter);
/* Clears the adapter's counters and the values its rates start from. */
VTAPI_EXPORT uint32_t ResetHBAStatisticsCounter(const SDMDevice *adapter);
/* Appends one line per sample; 0, or 1 with "Unable to open log file (%s)!". */
VTAPI_EXPORT uint32_t ExportHBAStatisticsToCsvFile(const char *fileName, const HBAStatisticsSample *samples,
                                                   uint32_t count);
/* Forgets every adapter's previous poll. */
VTAPI_EXPORT void FreeHBAStatisticsList(void);

/* Polls the statistics of every given port (AutoPoll times, or until
 * ENTER, every SetRate seconds); R clears the counters at the next poll.
 * The last sample of each port goes to last[i] when `last` is not null. */
VTAPI_EXPORT uint32_t CreateThreadForHBAStatistics(SDMDevice *const *ports, uint32_t count, HBAStatisticsSample *last);

/* =========================================================== link status */

/* Reads the adapter port's and each target's link error counters into
 * `list`: entries found by port name are updated, new ones appended.  8
 * when the adapter is not an FC port. */
VTAPI_EXPORT uint32_t GetLinkStatus(const SDMDevice *adapter, VTAPI_LinkStatusResultList *list);
VTAPI_EXPORT LinkStatusEntry *FindDeviceInLinkStatusList(const VTAPI_LinkStatusResultList *list, const uint8_t *wwpn);
/* The session's lists: current (counted from the last reset) and saved
 * (the totals). */
VTAPI_EXPORT VTAPI_LinkStatusResultList *GetLinkStatusResultList(void);
VTAPI_LinkStatusResultList *GetLinkStatusResultSavedList(void);
VTAPI_EXPORT void ResetCurrentLinkStatus(VTAPI_LinkStatusResultList *list);
/* The current view counts from now on. */
VTAPI_EXPORT void ResetLinkStatusCounters(void);
VTAPI_EXPORT void FreeLinkStatusResultList(VTAPI_LinkStatusResultList *list);
VTAPI_EXPORT void FreeLinkStatusResultSavedList(void);
/* CSV exports: the "Port" entries of the list / every other entry, one line
 * each, appended; the FCoE form writes four counters and starts the file
 * anew.  0, or 1 with "Unable to open log file (%s)!". */
VTAPI_EXPORT uint32_t ExportFcHBALinkStatusResultToCsvFile(const char *fileName, const VTAPI_LinkStatusResultList *list,
                                                           const char *timeStamp);
VTAPI_EXPORT uint32_t ExportFcTargetLinkStatusResultToCsvFile(const char *fileName,
                                                              const VTAPI_LinkStatusResultList *list,
                                                              const char *timeStamp);
VTAPI_EXPORT uint32_t ExportFCoEHBALinkStatusResultToCsvFile(const char *fileName,
                                                             const VTAPI_LinkStatusResultList *list,
                                                             const char *timeStamp);

/* Polls link status of every given port; R resets the current counters,
 * C shows the current view, T the totals, ENTER ends.  The final totals
 * go to *last (freed with FreeLinkStatusResultList and VTAPI_FreeMem) when
 * `last` is not null. */
VTAPI_EXPORT uint32_t CreateThreadForLinkStatus(SDMDevice *const *ports, uint32_t count,
                                                VTAPI_LinkStatusResultList **last);

/* ========================================== terminal, clock, screen text */

/* A key the user pressed within timeoutMs, or -1.  ENTER is '\n'. */
VTAPI_EXPORT int32_t DiagGetKey(uint32_t timeoutMs);
/* The time of the polls and time stamps (seconds since the epoch). */
VTAPI_EXPORT time_t DiagGetTime(void);
/* "YYYY-MM-DD hh:mm:ss" of a time, local. */
DIAG_INTERNAL char *DiagFormatTime(time_t t, char *text, uint32_t size);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include "vtapi_cli.h"

// g_DiagState is written by the thread that takes termination signals and
// read by the command thread: its loads and stores are atomic.
inline int32_t DiagStateLoad() { return __atomic_load_n(&g_DiagState, __ATOMIC_SEQ_CST); }
inline void DiagStateStore(int32_t state) { __atomic_store_n(&g_DiagState, state, __ATOMIC_SEQ_CST); }
#endif
