// Link status: the six link error counters of the adapter port and of every
// target seen through it, kept in a list by port name; the monitor's current
// view (counted from the last reset) and totals; the CSV exports.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

const char kFile[] = __FILE__;

// The monitor's lists: what was read (saved, the totals), the totals at the
// last reset (baseline), and their difference (current).  Used by the
// calling thread only.
VTAPI_LinkStatusResultList g_current;
VTAPI_LinkStatusResultList g_saved;
VTAPI_LinkStatusResultList g_baseline;

void Append(VTAPI_LinkStatusResultList &list, LinkStatusEntry *e) {
    e->next = nullptr;
    if (list.Last) list.Last->next = e;
    else list.First = e;
    list.Last = e;
    ++list.Count;
}

// The list's entry for this port name, made when there is none; null
// without memory.
LinkStatusEntry *Upsert(VTAPI_LinkStatusResultList &list, const uint8_t *wwpn) {
    if (LinkStatusEntry *e = FindDeviceInLinkStatusList(&list, wwpn)) return e;
    auto *e = static_cast<LinkStatusEntry *>(calloc(1, sizeof(LinkStatusEntry)));
    if (!e) {
        LogDebug(kFile, __LINE__, "GetLinkStat: Unable to allocate memory for result statistical information");
        return nullptr;
    }
    memcpy(e->PortName, wwpn, 8);
    Append(list, e);
    return e;
}

// Stores everything of `from` but the link into `to`.
void Assign(LinkStatusEntry &to, const LinkStatusEntry &from) {
    LinkStatusEntry *next = to.next;
    to = from;
    to.next = next;
}

void SetCounters(LinkStatusEntry &e, const SDLinkErrorStatus &c) {
    e.LinkFailureCount = c.LinkFailureCount;
    e.LossOfSyncCount = c.LossOfSyncCount;
    e.LossOfSignalCount = c.LossOfSignalCount;
    e.PrimitiveSeqProtocolErrorCount = c.PrimitiveSeqProtocolErrorCount;
    e.InvalidTransmissionWordCount = c.InvalidTransmissionWordCount;
    e.InvalidCRCCount = c.InvalidCRCCount;
}

void SetType(LinkStatusEntry &e, const char *type) { snprintf(e.PortType, sizeof e.PortType, "%s", type); }

uint32_t Minus(uint32_t a, uint32_t b) { return a >= b ? a - b : a; }  // a counter that was cleared counts anew

// `a` with the counters of `base` taken off.
LinkStatusEntry Difference(const LinkStatusEntry &a, const LinkStatusEntry *base) {
    LinkStatusEntry d = a;
    d.next = nullptr;
    if (!base) return d;
    d.LinkFailureCount = Minus(a.LinkFailureCount, base->LinkFailureCount);
    d.LossOfSyncCount = Minus(a.LossOfSyncCount, base->LossOfSyncCount);
    d.LossOfSignalCount = Minus(a.LossOfSignalCount, base->LossOfSignalCount);
    d.PrimitiveSeqProtocolErrorCount = Minus(a.PrimitiveSeqProtocolErrorCount, base->PrimitiveSeqProtocolErrorCount);
    d.InvalidTransmissionWordCount = Minus(a.InvalidTransmissionWordCount, base->InvalidTransmissionWordCount);
    d.InvalidCRCCount = Minus(a.InvalidCRCCount, base->InvalidCRCCount);
    return d;
}

bool IsPort(const LinkStatusEntry &e) { return strcmp(e.PortType, "Port") == 0; }

// One CSV line: time stamp, port name, then the counters in the screen's
// order (invalid CRC before the protocol and transmission word errors).
void WriteLine(FILE *f, const char *stamp, const LinkStatusEntry &e, bool fourCounters) {
    const uint8_t *w = e.PortName;
    fprintf(f, "%s,%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x,%u,%u,%u,%u", stamp, w[0], w[1], w[2], w[3], w[4], w[5],
            w[6], w[7], e.LinkFailureCount, e.LossOfSyncCount, e.LossOfSignalCount, e.InvalidCRCCount);
    if (fourCounters) fputc('\n', f);
    else fprintf(f, ",%u,%u\n", e.PrimitiveSeqProtocolErrorCount, e.InvalidTransmissionWordCount);
}

uint32_t Export(const char *fileName, const VTAPI_LinkStatusResultList *list, const char *stamp, bool ports,
                bool append, bool fourCounters) {
    FILE *f = vt::diag::OpenCsvFile(fileName, append);
    if (!f) return 1;
    for (const LinkStatusEntry *e = list ? list->First : nullptr; e; e = e->next)
        if (IsPort(*e) == ports) WriteLine(f, stamp ? stamp : "", *e, fourCounters);
    return fclose(f) == 0 ? 0 : 1;
}

}  // namespace

namespace vt::diag {

// "<name>_<what>.<ext>" beside the CSV file the user named.
std::string CompanionCsvName(const std::string &name, const char *what) {
    const size_t slash = name.rfind('/');
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot == slash + 1)
        return name + "_" + what;
    return name.substr(0, dot) + "_" + what + name.substr(dot);
}

void PrintLinkStatusRow(const LinkStatusEntry &e) {
    const uint8_t *w = e.PortName;
    if (e.Status != 0) {
        Print("%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x %s\n", w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], e.Text);
        return;
    }
    Print("%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x %8u %8u %8u %8u %9u %13u\n", w[0], w[1], w[2], w[3], w[4], w[5],
          w[6], w[7], e.LinkFailureCount, e.LossOfSyncCount, e.LossOfSignalCount, e.InvalidCRCCount,
          e.PrimitiveSeqProtocolErrorCount, e.InvalidTransmissionWordCount);
}

// Takes the entries one poll read into the totals and the current view;
// returns the current entries of that poll.
std::vector<LinkStatusEntry> MergeLinkStatus(const std::vector<LinkStatusEntry> &read) {
    std::vector<LinkStatusEntry> current;
    for (const LinkStatusEntry &e : read) {
        LinkStatusEntry *total = Upsert(g_saved, e.PortName);
        LinkStatusEntry *now = Upsert(g_current, e.PortName);
        if (!total || !now) continue;
        Assign(*total, e);
        Assign(*now, Difference(e, FindDeviceInLinkStatusList(&g_baseline, e.PortName)));
        current.push_back(*now);
    }
    return current;
}

}  // namespace vt::diag

extern "C" {

VTAPI_EXPORT LinkStatusEntry *FindDeviceInLinkStatusList(const VTAPI_LinkStatusResultList *list, const uint8_t *wwpn) {
    if (!list || !wwpn) return nullptr;
    for (LinkStatusEntry *e = list->First; e; e = e->next)
        if (memcmp(e->PortName, wwpn, 8) == 0) return e;
    return nullptr;
}

VTAPI_EXPORT uint32_t GetLinkStatus(const SDMDevice *adapter, VTAPI_LinkStatusResultList *list) {
    using vt::diag::Print;
    if (!adapter) {
        Print("No compatible HBA(s) found in current system\n");
        return vt::diag::kNoAdapter;
    }
    if (!list) return VTAPI_INVALID_ARGUMENT;
    SDStatistics st{};
    if (uint32_t rc = SDGetStatistics(adapter->DeviceHandle, &st)) {
        LogDebug(kFile, __LINE__, "GetLinkStatus: SDGetStatistics failed with error %d (%s)!", int(rc),
                 SDGetErrorString(rc));
        Print("Error: Failed to retrieve adapter statistics!\n");
        return rc;
    }
    LogDebug(kFile, __LINE__,
             "\tGettLinkStat: LnkFailCnt=%lu, LossOfSyncCnt=%lu, LossOfSiglCnt=%lu, InvalidCRCCnt=%lu, "
             "PriSeqProtErrCnt=%lu, InvalidTranWordCnt=%lu",
             (unsigned long)st.LinkFailureCount, (unsigned long)st.LossOfSyncCount, (unsigned long)st.LossOfSignalCount,
             (unsigned long)st.InvalidCRCCount, (unsigned long)st.PrimitiveSeqProtocolErrorCount,
             (unsigned long)st.InvalidTransmissionWordCount);
    LogDebug(kFile, __LINE__, "GetLinkStatus: Adding initiator entry to link status list...");
    LinkStatusEntry *port = Upsert(*list, adapter->DevicePortProperty.WWPN);
    if (!port) return vt::diag::kNoMemory;
    SetType(*port, "Port");
    SetCounters(*port, {st.LinkFailureCount, st.LossOfSyncCount, st.LossOfSignalCount,
                        st.PrimitiveSeqProtocolErrorCount, st.InvalidTransmissionWordCount, st.InvalidCRCCount});
    port->Status = 0;
    port->StatusText[0] = port->Text[0] = '\0';

    for (const TargetEntry *t = adapter->Targets.First; t; t = t->next) {
        LinkStatusEntry *e = Upsert(*list, t->WWPN);
        if (!e) return vt::diag::kNoMemory;
        SetType(*e, t->DiscTargetProperty.TargetType == SD_TARGETTYPE_NVME ? "NVMe Disk" : "FCP Disk");
        e->StatusText[0] = e->Text[0] = '\0';
        e->Status = 0;
        const uint8_t *w = t->WWPN;
        if (!(t->TargetFlags & SD_TGTFLAG_LOGGED_IN)) {
            e->Status = VTAPI_LINKSTATUS_NOT_PRESENT;
            snprintf(e->Text, sizeof e->Text,
                     "Target (%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x) not present. Skipping...", w[0], w[1], w[2],
                     w[3], w[4], w[5], w[6], w[7]);
            LogDebug(kFile, __LINE__, "GetLinkStatus: %s", e->Text);
            continue;
        }
        SDLinkErrorStatus les{};
        const uint32_t rc = SDGetPortStatisticsFC(adapter->DeviceHandle, t->WWPN, &les);
        if (rc != SDERR_NONE) {
            e->Status = VTAPI_LINKSTATUS_QUERY_FAILED;
            SetCounters(*e, SDLinkErrorStatus{});
            const bool removed = rc == SDERR_DEVICE_REMOVED;
            snprintf(
                e->Text, sizeof e->Text,
                removed ? "Device has been removed (0x%x) (%s)" : "Unable to query target for link status (0x%x) (%s)",
                rc, SDGetErrorString(rc));
            snprintf(e->StatusText, sizeof e->StatusText, "%s",
                     removed ? "Device has been removed" : "Get link stats failed");
            LogDebug(kFile, __LINE__, "GetLinkStatus: %s", e->Text);
            continue;
        }
        SetCounters(*e, les);
    }
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT VTAPI_LinkStatusResultList *GetLinkStatusResultList(void) { return &g_current; }

VTAPI_LinkStatusResultList *GetLinkStatusResultSavedList(void) { return &g_saved; }

VTAPI_EXPORT void ResetCurrentLinkStatus(VTAPI_LinkStatusResultList *list) {
    for (LinkStatusEntry *e = list ? list->First : nullptr; e; e = e->next) SetCounters(*e, SDLinkErrorStatus{});
}

VTAPI_EXPORT void ResetLinkStatusCounters(void) {
    FreeLinkStatusResultList(&g_baseline);
    for (const LinkStatusEntry *e = g_saved.First; e; e = e->next)
        if (LinkStatusEntry *b = Upsert(g_baseline, e->PortName)) Assign(*b, *e);
}

VTAPI_EXPORT void FreeLinkStatusResultList(VTAPI_LinkStatusResultList *list) {
    if (!list) return;
    for (LinkStatusEntry *e = list->First; e;) {
        LinkStatusEntry *next = e->next;
        free(e);
        e = next;
    }
    *list = VTAPI_LinkStatusResultList{};
}

VTAPI_EXPORT void FreeLinkStatusResultSavedList(void) {
    FreeLinkStatusResultList(&g_saved);
    FreeLinkStatusResultList(&g_baseline);
}

VTAPI_EXPORT uint32_t ExportFcHBALinkStatusResultToCsvFile(const char *fileName, const VTAPI_LinkStatusResultList *list,
                                                           const char *timeStamp) {
    return Export(fileName, list, timeStamp, true, true, false);
}

VTAPI_EXPORT uint32_t ExportFcTargetLinkStatusResultToCsvFile(const char *fileName,
                                                              const VTAPI_LinkStatusResultList *list,
                                                              const char *timeStamp) {
    return Export(fileName, list, timeStamp, false, true, false);
}

// The FCoE form starts its file anew each time, as it always has.
VTAPI_EXPORT uint32_t ExportFCoEHBALinkStatusResultToCsvFile(const char *fileName,
                                                             const VTAPI_LinkStatusResultList *list,
                                                             const char *timeStamp) {
    return Export(fileName, list, timeStamp, true, false, true);
}

}  // extern "C"
