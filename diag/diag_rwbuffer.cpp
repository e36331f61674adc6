// The read/write buffer test: the test pattern written to each target's
// buffer with WRITE BUFFER, read back with READ BUFFER and compared, for
// every logged-in FCP target of the port that is not on the disable list;
// then the target's link error counters.  Iterations go round the targets,
// so a test without end still reaches every one of them.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "diag.h"
#include "diag_internal.h"
#include "oss/oss.h"

namespace {

const char kFile[] = __FILE__;

constexpr uint32_t kMaxBufferSize = 128;
constexpr uint16_t kBufferLun = 0;

std::mutex g_disabledMutex;
std::vector<std::array<uint8_t, 8>> g_disabled;

std::array<uint8_t, 8> Key(const uint8_t *wwpn) {
    std::array<uint8_t, 8> k{};
    memcpy(k.data(), wwpn, 8);
    return k;
}

void SetStatus(VTAPI_RWBufferTestResult &e, const char *status) { snprintf(e.Status, sizeof e.Status, "%s", status); }

struct TargetRun {
    const TargetEntry *target;
    VTAPI_RWBufferTestResult *entry;
    uint32_t failures = 0;
};

// One write/read/compare of the pattern; false when it failed or the data
// came back different.
bool OnePass(const SDMDevice &adapter, TargetRun &t, const std::vector<uint8_t> &tx) {
    uint8_t sense[SD_SENSE_BUFFER_SIZE];
    uint32_t senseSize = sizeof sense;
    uint32_t rc = SDSendScsiWriteBufferCmdFC(adapter.DeviceHandle, t.target->WWPN, kBufferLun, tx.data(),
                                             uint32_t(tx.size()), sense, &senseSize);
    const char *what = "WRITE BUFFER";
    std::vector<uint8_t> rx(tx.size());
    uint32_t got = uint32_t(rx.size());
    if (rc == SDERR_NONE) {
        what = "READ BUFFER";
        senseSize = sizeof sense;
        rc = SDSendScsiReadBufferCmdFC(adapter.DeviceHandle, t.target->WWPN, kBufferLun, rx.data(), &got, sense,
                                       &senseSize);
    }
    ++t.entry->RunsDone;
    if (rc != SDERR_NONE) {
        ++t.failures;
        snprintf(t.entry->Text, sizeof t.entry->Text, "%s failed (0x%x) (%s)", what, rc, SDGetErrorString(rc));
        LogDebug(kFile, __LINE__, "DiagnosticsReadWriteBufferTest: %s", t.entry->Text);
        return false;
    }
    if (got != tx.size() || memcmp(rx.data(), tx.data(), tx.size()) != 0) {
        ++t.entry->DataMiscompares;
        const auto at = uint32_t(std::mismatch(tx.begin(), tx.end(), rx.begin()).first - tx.begin());
        snprintf(t.entry->Text, sizeof t.entry->Text, "Data miscompare at byte %u (%u of %zu bytes read)", at, got,
                 tx.size());
        return false;
    }
    return true;
}

}  // namespace

namespace {
uint32_t ReadWriteBufferOnTargets(const SDMDevice &adapter, const DiagRequest &request,
                                  VTAPI_RWBufferTestResultList &results,
                                  const std::function<void(const VTAPI_RWBufferTestResult &)> &onProgress,
                                  const std::atomic<bool> &abort);
}  // namespace

namespace vt::diag {

uint32_t RunReadWriteBuffer(const SDMDevice &adapter, const DiagRequest &request, VTAPI_RWBufferTestResultList &results,
                            const std::function<void(const VTAPI_RWBufferTestResult &)> &onProgress) {
    if (!ClaimPort(adapter.Instance)) return SDERR_DEVICE_BUSY;
    const std::atomic<bool> &abort = AbortFlag(adapter.Instance);
    const uint32_t rc = ReadWriteBufferOnTargets(adapter, request, results, onProgress, abort);
    ReleasePort(adapter.Instance);
    return rc;
}

}  // namespace vt::diag

namespace {

uint32_t ReadWriteBufferOnTargets(const SDMDevice &adapter, const DiagRequest &request,
                                  VTAPI_RWBufferTestResultList &results,
                                  const std::function<void(const VTAPI_RWBufferTestResult &)> &onProgress,
                                  const std::atomic<bool> &abort) {
    std::vector<uint8_t> tx(std::clamp<uint32_t>(request.DataSize, 8, kMaxBufferSize));
    FillDiagnosticsPattern(&request, tx.data(), uint32_t(tx.size()));

    std::vector<TargetRun> runs;
    for (const TargetEntry *t = adapter.Targets.First; t; t = t->next) {
        if (FindDeviceInDisableDiagList(t->WWPN) == 0) continue;
        auto *e = static_cast<VTAPI_RWBufferTestResult *>(calloc(1, sizeof(VTAPI_RWBufferTestResult)));
        if (!e) {
            LogDebug(kFile, __LINE__, "DiagnosticsReadWriteBufferTest: Unable to allocate memory!");
            return vt::diag::kNoMemory;
        }
        memcpy(e->TargetWWPN, t->WWPN, 8);
        e->LoopId = t->DiscTargetProperty.TargetId;
        e->Lun = kBufferLun;
        if (results.Last) results.Last->next = e;
        else results.First = e;
        results.Last = e;
        ++results.Count;
        if (t->DiscTargetProperty.TargetType == SD_TARGETTYPE_NVME) {
            SetStatus(*e, "Not supported");
            snprintf(e->Text, sizeof e->Text, "NVMe target: no SCSI buffer commands");
        } else if (!(t->TargetFlags & SD_TGTFLAG_LOGGED_IN)) {
            SetStatus(*e, "Not present");
            snprintf(e->Text, sizeof e->Text, "Target not present. Skipping...");
        } else {
            SetStatus(*e, "Success");
            runs.push_back({t, e});
        }
    }

    const uint64_t count = request.Continuous ? 0 : uint64_t(std::max(0, request.TestCount));
    const uint32_t increment = uint32_t(std::max(1, request.TestIncrement));
    bool forever = request.Continuous || request.TestCount == 0;
    bool stop = runs.empty();
    for (uint64_t i = 0; !stop && (forever || i < count); ++i) {
        for (TargetRun &t : runs) {
            if (abort.load()) {
                stop = true;
                break;
            }
            if (OnePass(adapter, t, tx)) continue;
            if (request.OnError == VTAPI_DIAG_ONERROR_LOOP) forever = true;
            if (request.OnError == VTAPI_DIAG_ONERROR_STOP) {
                stop = true;
                break;
            }
        }
        if (onProgress && ((i + 1) % increment == 0 || stop))
            for (const TargetRun &t : runs) onProgress(*t.entry);
    }

    for (TargetRun &t : runs) {
        VTAPI_RWBufferTestResult &e = *t.entry;
        SDLinkErrorStatus les{};
        if (uint32_t rc = SDGetPortStatisticsFC(adapter.DeviceHandle, t.target->WWPN, &les)) {
            LogDebug(kFile, __LINE__, "DiagnosticsReadWriteBufferTest: link status of the target failed (0x%x) (%s)",
                     rc, SDGetErrorString(rc));
        } else {
            e.LinkFailureCount = les.LinkFailureCount;
            e.LossOfSyncCount = les.LossOfSyncCount;
            e.LossOfSignalCount = les.LossOfSignalCount;
            e.InvalidCRCCount = les.InvalidCRCCount;
        }
        SetStatus(e, t.failures ? "Failure" : e.DataMiscompares ? "Data Miscompare" : "Success");
    }
    return VTAPI_SUCCESS;
}

}  // namespace

extern "C" {

VTAPI_EXPORT int32_t AddDeviceToDisableList(const uint8_t *wwpn) {
    if (!wwpn) return 8;
    std::lock_guard<std::mutex> lock(g_disabledMutex);
    if (std::find(g_disabled.begin(), g_disabled.end(), Key(wwpn)) != g_disabled.end()) return -1;
    g_disabled.push_back(Key(wwpn));
    return 0;
}

VTAPI_EXPORT int32_t FindDeviceInDisableDiagList(const uint8_t *wwpn) {
    if (!wwpn) return 8;
    std::lock_guard<std::mutex> lock(g_disabledMutex);
    return std::find(g_disabled.begin(), g_disabled.end(), Key(wwpn)) != g_disabled.end() ? 0 : -1;
}

VTAPI_EXPORT int32_t DeleteDeviceFromDisableDiagList(const uint8_t *wwpn) {
    if (!wwpn) return 8;
    std::lock_guard<std::mutex> lock(g_disabledMutex);
    auto it = std::find(g_disabled.begin(), g_disabled.end(), Key(wwpn));
    if (it == g_disabled.end()) return -1;
    g_disabled.erase(it);
    return 0;
}

VTAPI_EXPORT void DeleteAllDeviceFromDisableDiagList(void) {
    std::lock_guard<std::mutex> lock(g_disabledMutex);
    g_disabled.clear();
}

VTAPI_EXPORT uint32_t CountDisableDiagDeviceList(void) {
    std::lock_guard<std::mutex> lock(g_disabledMutex);
    return uint32_t(g_disabled.size());
}

VTAPI_EXPORT uint32_t DiagnosticsReadWriteBufferTest(const SDMDevice *adapter, const DiagRequest *request,
                                                     VTAPI_RWBufferTestResultList *results) {
    if (!adapter || !request || !results) return VTAPI_INVALID_ARGUMENT;
    vt::diag::AbortFlag(adapter->Instance).store(false);
    return vt::diag::RunReadWriteBuffer(*adapter, *request, *results, nullptr);
}

VTAPI_EXPORT void FreeRWBufferTestResults(VTAPI_RWBufferTestResultList *results) {
    if (!results) return;
    for (VTAPI_RWBufferTestResult *e = results->First; e;) {
        VTAPI_RWBufferTestResult *next = e->next;
        free(e);
        e = next;
    }
    *results = VTAPI_RWBufferTestResultList{};
}

}  // extern "C"
