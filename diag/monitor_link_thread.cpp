// The link status monitor: every selected port polled by a worker of its
// own, one table per poll, the keys R (reset current), C (current view),
// T (totals) and ENTER, and the CSV files.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

using vt::diag::Print;

vt::diag::LinkStatusPollObserver g_pollObserver;

void PrintColumns(const char *view) {
    if (view) Print("\n%s\n", view);
    Print("%-23s %8s %8s %8s %8s %9s %13s\n", "", "Link", "Sync", "Signal", "Invalid", "Seq Proto", "Invalid Trans");
    Print("%-23s %8s %8s %8s %8s %9s %13s\n", "Port Name", "Failure", "Loss", "Loss", "CRC", "Error", "Word");
}

void PrintList(const VTAPI_LinkStatusResultList &list, const char *view) {
    PrintColumns(view);
    for (const LinkStatusEntry *e = list.First; e; e = e->next) vt::diag::PrintLinkStatusRow(*e);
}

// The entries of one poll as a list the CSV exports take; the entries are
// the caller's, only linked.
VTAPI_LinkStatusResultList Linked(std::vector<LinkStatusEntry> &entries) {
    VTAPI_LinkStatusResultList list{};
    for (LinkStatusEntry &e : entries) {
        e.next = nullptr;
        if (list.Last) list.Last->next = &e;
        else list.First = &e;
        list.Last = &e;
        ++list.Count;
    }
    return list;
}

VTAPI_LinkStatusResultList *CopyList(const VTAPI_LinkStatusResultList &from) {
    auto *out = static_cast<VTAPI_LinkStatusResultList *>(calloc(1, sizeof(VTAPI_LinkStatusResultList)));
    for (const LinkStatusEntry *e = from.First; out && e; e = e->next) {
        auto *c = static_cast<LinkStatusEntry *>(malloc(sizeof(LinkStatusEntry)));
        if (!c) break;
        *c = *e;
        c->next = nullptr;
        if (out->Last) out->Last->next = c;
        else out->First = c;
        out->Last = c;
        ++out->Count;
    }
    return out;
}

}  // namespace

namespace vt::diag {
void SetLinkStatusPollObserver(LinkStatusPollObserver observer) { g_pollObserver = std::move(observer); }
}  // namespace vt::diag

extern "C" {

VTAPI_EXPORT uint32_t CreateThreadForLinkStatus(SDMDevice *const *ports, uint32_t count,
                                                VTAPI_LinkStatusResultList **last) {
    using namespace vt::diag;
    std::vector<SDMDevice *> targets = MonitoredPorts(ports, count, false);
    if (targets.empty()) {
        Print("No compatible HBA(s) found in current system\n");
        return kNoAdapter;
    }
    const MonitorSettings settings = ReadMonitorSettings(POLL_LINK_STATUS);
    const size_t n = targets.size();

    std::vector<WorkerPort> workers;
    workers.reserve(n);
    for (SDMDevice *d : targets) workers.emplace_back(*d, true);
    PollBoard<std::vector<LinkStatusEntry>> board(n);

    Print("\nLink Status\n\n");
    Print(
        "General keyboard shortcuts:\n      R     - Reset current\n      C     - Refresh current\n"
        "      T     - Refresh total\n      ENTER - Cancel the current task\n\n");
    PrintColumns(nullptr);

    Session session(n, Instances(targets.data(), uint32_t(n)));
    const bool started = session.start([&](size_t i) {
        WorkerPort &port = workers[i];
        VTAPI_LinkStatusResultList mine{};
        if (port.open()) {
            for (uint32_t k = 1; settings.iterations == 0 || k <= settings.iterations; ++k) {
                std::vector<LinkStatusEntry> read;
                if (GetLinkStatus(&port.device(), &mine) == VTAPI_SUCCESS)
                    for (const LinkStatusEntry *e = mine.First; e; e = e->next) read.push_back(*e);
                board.deliver(k, i, std::move(read));
                if (k == settings.iterations ||
                    !SleepUnlessStopped(std::max<uint32_t>(settings.rate, 1), session.stopping()))
                    break;
            }
        }
        FreeLinkStatusResultList(&mine);
        board.finish(i);
    });
    if (!started) return VTAPI_GENERAL_FAILURE;

    bool totals = false;
    auto show = [&](uint32_t, std::vector<std::optional<std::vector<LinkStatusEntry>>> &polls) {
        char stamp[32];
        DiagFormatTime(DiagGetTime(), stamp, sizeof stamp);
        std::vector<const SDMDevice *> polled;
        std::vector<std::vector<LinkStatusEntry>> read;
        for (size_t i = 0; i < polls.size(); ++i) {
            if (!polls[i]) continue;
            std::vector<LinkStatusEntry> current = MergeLinkStatus(*polls[i]);
            if (g_pollObserver) {
                polled.push_back(targets[i]);
                read.push_back(*polls[i]);  // the counters as read, not since a reset
            }
            for (const LinkStatusEntry &e : current)
                PrintLinkStatusRow(totals ? *FindDeviceInLinkStatusList(GetLinkStatusResultSavedList(), e.PortName)
                                          : e);
            if (settings.logFile.empty() || current.empty()) continue;
            VTAPI_LinkStatusResultList list = Linked(current);
            if (isFCOeHBA(targets[i])) {
                ExportFCoEHBALinkStatusResultToCsvFile(CompanionCsvName(settings.logFile, "fcoe").c_str(), &list,
                                                       stamp);
                continue;
            }
            ExportFcHBALinkStatusResultToCsvFile(settings.logFile.c_str(), &list, stamp);
            if (list.Count > 1)  // targets besides the port
                ExportFcTargetLinkStatusResultToCsvFile(CompanionCsvName(settings.logFile, "targets").c_str(), &list,
                                                        stamp);
        }
        if (g_pollObserver && !polled.empty()) g_pollObserver(polled, read);
    };
    session.wait(
        [&](int32_t key) {
            switch (key) {
            case 'R':
            case 'r':
                ResetCurrentLinkStatus(GetLinkStatusResultList());
                ResetLinkStatusCounters();
                totals = false;
                PrintList(*GetLinkStatusResultList(), "Current (reset)");
                return false;
            case 'C':
            case 'c':
                totals = false;
                PrintList(*GetLinkStatusResultList(), "Current");
                return false;
            case 'T':
            case 't':
                totals = true;
                PrintList(*GetLinkStatusResultSavedList(), "Total");
                return false;
            default: return key == '\n';
            }
        },
        [&] { board.take(show); });
    board.take(show, true);
    if (last) *last = CopyList(*GetLinkStatusResultSavedList());
    return VTAPI_SUCCESS;
}

}  // extern "C"
