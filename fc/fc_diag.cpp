// FC_ functions of the diagnostics, link status and statistics calls.  Each
// finds the listed port of the caller's tree entry and runs the work of the
// diagnostics layer on it, on the caller's thread.
#include <cstdlib>
#include <cstring>

#include "diag/diag.h"
#include "diag/diag_internal.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

const char kFile[] = __FILE__;

uint32_t ListedPort(const ProtocolEntry *port, SDMDevice **device) {
    if (!port) return VTAPI_INVALID_ARGUMENT;
    *device = GetSDMDevice(&port->Device);
    if (!*device) {
        LogDebug(kFile, __LINE__, "ListedPort: the port is not in the device list");
        return VTAPI_PORT_NOT_FOUND;
    }
    return VTAPI_SUCCESS;
}

// Checks a caller's request; the parameter table's own checks apply to what
// a user types, these to what a program passes.
bool RequestUsable(const DiagRequest &rq) {
    if (rq.TestCount < 0 || rq.TestIncrement < 0 || rq.OnError < 0 || rq.OnError > 2) return false;
    if (rq.LoopbackType < 0 || rq.LoopbackType > 5) return false;
    return rq.LoopbackType != 5 || TarnPreferenceGetKeyValue("node.hba.diagnostics.maxio.enable", 0) != 0;
}

// The caller's request, with a fresh random pattern when it asks for one.
DiagRequest WithPattern(const DiagRequest &rq) {
    DiagRequest out = rq;
    if (out.PatternKind == VTAPI_DIAG_PATTERN_RANDOM) GenerateRandomPattern(out.Pattern);
    return out;
}

// The port's counters into every copy of it: both device lists and the
// adapter trees.
void StoreCounters(const SDMDevice &port, const SDStatistics &st) {
    auto same = [&](const SDMDevice &d) {
        return memcmp(d.DevicePortProperty.WWPN, port.DevicePortProperty.WWPN, 8) == 0 &&
               memcmp(d.DeviceNodeProperty.WWNN, port.DeviceNodeProperty.WWNN, 8) == 0;
    };
    for (SDMDeviceList *list : {GetDeviceList(), GetMyDeviceList()})
        for (SDMDevice *d = list ? list->First : nullptr; d; d = d->next)
            if (same(*d)) d->DeviceStatistics = st;
    for (AdapterEntryList *tree : {gpAdapterList, gpBackupAdapterList})
        for (AdapterEntry *a = tree ? tree->First : nullptr; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (same(e->Device)) e->Device.DeviceStatistics = st;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t FC_DiagnosticsLoopBackTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                 VTAPI_DiagResult *result) {
    if (!params || !result) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    if (isVirtualPortHBA(d)) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    if (!RequestUsable(*params)) return VTAPI_INVALID_ARGUMENT;
    const DiagRequest rq = WithPattern(*params);
    return RunLoopbackTest(d, &rq, result);
}

VTAPI_EXPORT uint32_t FC_DiagnosticsReadWriteBufferTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                        VTAPI_RWBufferTestResultList **results) {
    if (!params || !results) return VTAPI_INVALID_ARGUMENT;
    *results = nullptr;
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    if (!RequestUsable(*params)) return VTAPI_INVALID_ARGUMENT;
    auto *list = static_cast<VTAPI_RWBufferTestResultList *>(calloc(1, sizeof(VTAPI_RWBufferTestResultList)));
    if (!list) return vt::diag::kNoMemory;
    const DiagRequest rq = WithPattern(*params);
    const uint32_t rc = DiagnosticsReadWriteBufferTest(d, &rq, list);
    if (rc != VTAPI_SUCCESS) {
        FreeRWBufferTestResults(list);
        free(list);
        return rc;
    }
    *results = list;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_FreeRWBufferTestResultList(VTAPI_RWBufferTestResultList *results) {
    if (!results) return VTAPI_INVALID_ARGUMENT;
    FreeRWBufferTestResults(results);
    free(results);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_AbortDiagTest(const ProtocolEntry *port) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    return AbortDiagTest(d->Instance);
}

VTAPI_EXPORT uint32_t FC_GetLinkStatus(const ProtocolEntry *port, VTAPI_LinkStatusResultList **results) {
    if (!results) return VTAPI_INVALID_ARGUMENT;
    *results = nullptr;
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    auto *list = static_cast<VTAPI_LinkStatusResultList *>(calloc(1, sizeof(VTAPI_LinkStatusResultList)));
    if (!list) return vt::diag::kNoMemory;
    const uint32_t rc = GetLinkStatus(d, list);
    if (rc != VTAPI_SUCCESS) {
        FreeLinkStatusResultList(list);
        free(list);
        return rc;
    }
    *results = list;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_FreeLinkStatusResultList(VTAPI_LinkStatusResultList *results) {
    if (!results) return VTAPI_INVALID_ARGUMENT;
    FreeLinkStatusResultList(results);
    free(results);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_GetPortStatisticsFC(const ProtocolEntry *port, VTAPI_PortStatistics *statistics) {
    if (!statistics) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    SDStatistics counters{};
    const HBAStatisticsSample *s = vt::diag::PollStatistics(d, false, &counters);
    if (s->Status != 0) return s->Status;
    statistics->Sample = *s;
    statistics->Counters = counters;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_RefreshDeviceStats(const ProtocolEntry *port) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    SDStatistics st{};
    if (uint32_t rc = SDGetStatistics(d->DeviceHandle, &st)) {
        LogDebug(kFile, __LINE__, "FC_RefreshDeviceStats: SDGetStatistics failed (0x%x) (%s)", rc,
                 SDGetErrorString(rc));
        return rc;
    }
    StoreCounters(*d, st);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_ResetDeviceStats(const ProtocolEntry *port) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = ListedPort(port, &d)) return rc;
    if (uint32_t rc = ResetHBAStatisticsCounter(d)) return rc;
    return FC_RefreshDeviceStats(port);
}

}  // extern "C"
