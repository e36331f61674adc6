// The loopback test: one run (a request of TestIncrement iterations to the
// port, retried up to 30 times a second apart while the port answers busy
// or with frame errors), the whole test made of runs, and the list of every
// run's result record.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <deque>
#include <mutex>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

const char kFile[] = __FILE__;

constexpr uint32_t kAttempts = 30;
constexpr uint32_t kMaxIoSize = 65536;
constexpr uint32_t kMaxIoCount = 10;
constexpr uint32_t kResultParamError = 40;
constexpr uint32_t kResultLoopDown = 41;
constexpr uint32_t kResultErrors = 42;

// The list keeps the newest records; a test that runs for days would
// otherwise fill the memory.  A record handed out stays valid until this
// many runs later or until the list is freed.
constexpr size_t kKeptRuns = 4096;

struct RunEntry {
    uint32_t instance;
    DiagLoopbackResult *record;  // malloc'd; handed out, freed with the list
};

std::mutex g_runsMutex;
std::deque<RunEntry> g_runs;
thread_local uint32_t t_diagResult = 0;

void SetStatus(DiagLoopbackResult &r, const char *status, uint32_t code) {
    snprintf(r.TestStatus, sizeof r.TestStatus, "%s", status);
    r.ResultCode = code;
}

void SetText(DiagLoopbackResult &r, const char *format, ...) __attribute__((format(printf, 2, 3)));
void SetText(DiagLoopbackResult &r, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(r.Text, sizeof r.Text, format, args);
    va_end(args);
}

// Which text names a transmit buffer that could not be had.
const char *PatternErrorText(const DiagRequest &rq) {
    if (rq.Echo) return "Echo ELS pattern error.";
    switch (rq.PatternKind) {
    case VTAPI_DIAG_PATTERN_CRPAT: return "CRPAT pattern error.";
    case VTAPI_DIAG_PATTERN_CJTPAT: return "CJTPAT pattern error.";
    case VTAPI_DIAG_PATTERN_CSPAT: return "CSPAT error.";
    default: return "Customized pattern error.";
    }
}

void MemoryError(DiagLoopbackResult &r, const char *text) {
    SetStatus(r, "Memory error", vt::diag::kNoMemory);
    SetText(r, "%s", text);
    t_diagResult = vt::diag::kNoMemory;
}

struct Buffer {
    std::unique_ptr<uint8_t, decltype(&free)> bytes{nullptr, &free};
    bool make(uint32_t size) {
        bytes.reset(static_cast<uint8_t *>(malloc(size)));
        return bytes != nullptr;
    }
    uint8_t *get() const { return bytes.get(); }
};

// A run whose transmit and receive buffers are ready.
void Run(const SDMDevice &adapter, const DiagRequest &rq, uint32_t size, const uint8_t *tx, uint8_t *rx,
         DiagLoopbackResult &r) {
    const bool maxIo = rq.LoopbackType == 5;
    uint32_t option = SD_LOOPBACK_EXTERNAL;
    switch (rq.LoopbackType) {
    case 0: option = SD_LOOPBACK_INTERNAL_10BIT; break;
    case 1:
    case 4: option = SD_LOOPBACK_INTERNAL_1BIT; break;
    case 2: option = rq.Echo ? SD_LOOPBACK_ECHO : SD_LOOPBACK_EXTERNAL; break;
    default: break;
    }
    const uint32_t iterations = uint32_t(rq.TestIncrement) % 65536;
    std::atomic<bool> &abort = vt::diag::AbortFlag(rq.AdapterInstance);
    uint32_t crc = 0, disparity = 0, frameLength = 0;

    for (uint32_t attempt = 1; attempt <= kAttempts; ++attempt) {
        if (attempt > 1) {
            if (abort.load()) return;
            LogDebug(kFile, __LINE__, "DiagLoopbackTest: Retrying request:  %d.", int(attempt - 1));
            OSSSleep(1);
            if (abort.load()) return;
        }
        SDDiagResult d{};
        uint32_t rc;
        if (maxIo) {
            LogDebug(kFile, __LINE__, "DiagLoopbackTest: Running Max I/O LB test.");
            rc = SDDiagIO(adapter.DeviceHandle, tx, rx, size, kMaxIoCount, uint32_t(rq.TestIncrement), &d);
            // The maximum-I/O path reports its outcome as the call's status.
            if (rc == SDERR_NONE) d.TestStatus = SD_DIAG_STATUS_PASSED;
            else if (rc == SDERR_DIAG_PARAMETER) d.TestStatus = SD_DIAG_STATUS_PARAM_ERROR;
            else if (rc == SDERR_LOOP_DOWN) d.TestStatus = SD_DIAG_STATUS_LOOP_DOWN;
            else if (rc != SDERR_NOT_SUPPORTED) d.TestStatus = SD_DIAG_STATUS_ERRORS;
            if (rc != SDERR_NOT_SUPPORTED) rc = SDERR_NONE;
        } else {
            rc = SDRunDiagLoopbackEx(adapter.DeviceHandle, option, tx, rx, size, iterations, &d);
        }
        if (rc == SDERR_NOT_SUPPORTED) {
            // Retrying cannot help: the port's driver has no loopback.
            LogDebug(kFile, __LINE__, "\nDiagLoopbackTest: SDRunDiagLoopback failed (0x%x) (%s)", rc,
                     SDGetErrorString(rc));
            SetStatus(r, "Not Supported", vt::diag::kNotSupported);
            SetText(r, "Loopback test is not supported: %s (0x%x)", SDGetErrorString(rc), rc);
            t_diagResult = vt::diag::kNotSupported;
            return;
        }
        if (rc != SDERR_NONE) {
            LogDebug(kFile, __LINE__, "\nDiagLoopbackTest: SDRunDiagLoopback failed (0x%x) (%s)", rc,
                     SDGetErrorString(rc));
            SetStatus(r, rc == SDERR_NO_SUCH_DEVICE ? "DevNotFound" : "Failure", 0);
            SetText(r, "SDRunDiagLoopback failed (0x%x) (%s)", rc, SDGetErrorString(rc));
            t_diagResult = 0;
            continue;
        }
        switch (d.TestStatus) {
        case SD_DIAG_STATUS_PASSED:
            SetStatus(r, "Success", 0);
            r.CrcErrors = r.DisparityErrors = r.FrameLengthErrors = 0;
            r.Text[0] = '\0';
            t_diagResult = 0;
            if (maxIo && rq.DataIntegrityCheck && memcmp(tx, rx, size) != 0) {
                // The data came back changed although the port saw no error.
                const auto at = uint32_t(std::mismatch(tx, tx + size, rx).first - tx);
                SetStatus(r, "Data Miscompare", kResultErrors);
                SetText(r, "Data miscompare at byte %u: sent 0x%02x, received 0x%02x", at, tx[at], rx[at]);
            }
            return;
        case SD_DIAG_STATUS_LOOP_DOWN: SetStatus(r, "Loop Down", kResultLoopDown); return;
        case SD_DIAG_STATUS_PARAM_ERROR:
            SetStatus(r, "Param Error", kResultParamError);
            t_diagResult = kResultParamError;
            return;
        case SD_DIAG_STATUS_ERRORS:
            SetStatus(r, "Error", kResultErrors);
            crc += d.CrcErrors;
            disparity += d.DisparityErrors;
            frameLength += d.FrameLengthErrors;
            r.CrcErrors = crc;
            r.DisparityErrors = disparity;
            r.FrameLengthErrors = frameLength;
            if (crc || disparity || frameLength)
                SetText(r, "CRCError=0x%04x DisparityError==0x%04x FrameLengthError=0x%04x\n", crc, disparity,
                        frameLength);
            continue;
        default:
            SetStatus(r, "Failure", 0);
            SetText(r, "The port reported test status %u", d.TestStatus);
            return;
        }
    }
}

}  // namespace

namespace vt::diag {

bool RunPassed(const DiagLoopbackResult &r) { return strcmp(r.TestStatus, "Success") == 0; }

uint32_t RunLoopback(const SDMDevice &adapter, const DiagRequest &request, VTAPI_DiagResult &result,
                     const std::function<void(const DiagLoopbackResult &)> &onRun) {
    const uint32_t instance = adapter.Instance;
    if (!ClaimPort(instance)) return SDERR_DEVICE_BUSY;
    std::atomic<bool> &abort = AbortFlag(instance);
    result = VTAPI_DiagResult{};
    DiagRequest run = request;
    run.AdapterInstance = instance;
    const uint64_t count = request.Continuous ? 0 : uint64_t(std::max(0, request.TestCount));
    const uint32_t increment = uint32_t(std::max(1, request.TestIncrement));
    bool forever = request.Continuous || request.TestCount == 0;
    bool failed = false;
    uint64_t done = 0;
    uint32_t status = VTAPI_SUCCESS;
    while (forever || done < count) {
        if (abort.load()) break;
        run.TestIncrement = int32_t(forever ? increment : std::min<uint64_t>(increment, count - done));
        const DiagLoopbackResult *r = DiagnosticsLoopBackTest(&adapter, &run);
        result.DiagResult = GetDiagnosticsResult();
        ++result.RunsDone;
        if (!r) {
            ++result.RunsFailed;
            status = kNoMemory;
            break;
        }
        done += uint32_t(run.TestIncrement);
        result.IterationsDone += uint32_t(run.TestIncrement);
        if (onRun) onRun(*r);
        if (RunPassed(*r)) {
            if (!failed) result.LastRun = *r;
            continue;
        }
        ++result.RunsFailed;
        result.CrcErrors += r->CrcErrors;
        result.DisparityErrors += r->DisparityErrors;
        result.FrameLengthErrors += r->FrameLengthErrors;
        if (!failed) result.LastRun = *r;
        failed = true;
        if (r->ResultCode == kNotSupported) {
            status = SDERR_NOT_SUPPORTED;
            break;
        }
        if (request.OnError == VTAPI_DIAG_ONERROR_STOP) break;
        if (request.OnError == VTAPI_DIAG_ONERROR_LOOP) forever = true;
    }
    result.Aborted = abort.load() && (forever || done < count) ? 1 : 0;
    LogDebug(kFile, __LINE__, "RunLoopbackTest: instance %u, %u runs, %u failed%s", instance, result.RunsDone,
             result.RunsFailed, result.Aborted ? ", stopped" : "");
    ReleasePort(instance);
    return status;
}

}  // namespace vt::diag

extern "C" {

VTAPI_EXPORT DiagLoopbackResult *DiagnosticsLoopBackTest(const SDMDevice *adapter, const DiagRequest *request) {
    auto *r = static_cast<DiagLoopbackResult *>(calloc(1, sizeof(DiagLoopbackResult)));
    if (!r) {
        LogDebug(kFile, __LINE__, "DiagnosticsLoopBackTest: Unable to allocate memory!");
        t_diagResult = vt::diag::kNoMemory;
        return nullptr;
    }
    t_diagResult = 0;
    if (!adapter || !request) {
        LogDebug(kFile, __LINE__, "DiagLoopbackTest: Unable to locate specified adapter");
        SetStatus(*r, "DevNotFound", vt::diag::kNoAdapter);
        SetText(*r, "Unable to locate specified adapter");
    } else {
        DiagRequest rq = *request;
        uint32_t size = std::max<uint32_t>(rq.DataSize, 8);
        if (rq.LoopbackType == 5) size = std::min(size, kMaxIoSize);
        Buffer tx, rx;
        if (!tx.make(size)) {
            MemoryError(*r, PatternErrorText(rq));
        } else if (!rx.make(size)) {
            MemoryError(*r, "Rx pattern error!");
        } else {
            FillDiagnosticsPattern(&rq, tx.get(), size);
            memset(rx.get(), 0, size);
            Run(*adapter, rq, size, tx.get(), rx.get(), *r);
        }
    }
    std::lock_guard<std::mutex> lock(g_runsMutex);
    try {
        g_runs.push_back({request ? request->AdapterInstance : 0, r});
    } catch (const std::bad_alloc &) {
        LogDebug(kFile, __LINE__, "DiagnosticsLoopBackTest: Unable to allocate memory!");
        t_diagResult = vt::diag::kNoMemory;
        free(r);
        return nullptr;
    }
    if (g_runs.size() > kKeptRuns) {
        free(g_runs.front().record);
        g_runs.pop_front();
    }
    return r;
}

DIAG_INTERNAL uint32_t GetDiagnosticsResult(void) { return t_diagResult; }

DIAG_INTERNAL uint32_t RunLoopbackTest(const SDMDevice *adapter, const DiagRequest *request, VTAPI_DiagResult *result) {
    if (!adapter || !request || !result) return VTAPI_INVALID_ARGUMENT;
    vt::diag::AbortFlag(adapter->Instance).store(false);
    return vt::diag::RunLoopback(*adapter, *request, *result, nullptr);
}

VTAPI_EXPORT uint32_t GetLoopbackResultCount(void) {
    std::lock_guard<std::mutex> lock(g_runsMutex);
    return uint32_t(g_runs.size());
}

VTAPI_EXPORT const DiagLoopbackResult *GetLoopbackResult(uint32_t index, uint32_t *instance) {
    std::lock_guard<std::mutex> lock(g_runsMutex);
    if (index >= g_runs.size()) return nullptr;
    if (instance) *instance = g_runs[index].instance;
    return g_runs[index].record;
}

VTAPI_EXPORT void FreeLoopbackResultList(void) {
    std::lock_guard<std::mutex> lock(g_runsMutex);
    for (RunEntry &e : g_runs) free(e.record);
    g_runs.clear();
}

}  // extern "C"
