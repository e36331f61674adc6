// Port statistics: a poll of a port's counters with the I/O and byte rates
// since the port's previous poll, the CSV export, and the monitor that polls
// every selected port while the user watches.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

const char kFile[] = __FILE__;

// What a port keeps between polls.
struct StatEntry {
    std::mutex mutex;  // one poll of a port at a time
    HBAStatisticsSample sample{};
    int64_t prevIo = 0;
    int64_t prevMb = 0;
    time_t prevTime = 0;
    bool havePrev = false;
    bool fromReset = false;  // the previous values are a reset's, not a poll's
};

vt::diag::StatisticsPollObserver g_pollObserver;

std::mutex g_statsMutex;
std::map<uint64_t, std::unique_ptr<StatEntry>> g_stats;  // by WWPN

uint64_t Key(const SDMDevice &d) {
    uint64_t k = 0;
    for (uint8_t b : d.DevicePortProperty.WWPN) k = (k << 8) | b;
    return k;
}

StatEntry *EntryOf(const SDMDevice &d) {
    std::lock_guard<std::mutex> lock(g_statsMutex);
    try {
        auto &slot = g_stats[Key(d)];
        if (!slot) slot = std::make_unique<StatEntry>();
        return slot.get();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

HBAStatisticsSample *Failed(uint32_t status) {
    thread_local HBAStatisticsSample failed;
    failed = HBAStatisticsSample{};
    failed.Status = status;
    return &failed;
}

}  // namespace

namespace vt::diag {

HBAStatisticsSample *PollStatistics(const SDMDevice *adapter, bool waitInSameSecond, SDStatistics *counters) {
    if (!adapter) {
        LogDebug(kFile, __LINE__, "GetStatData: Unable to locate specified adapter");
        return Failed(kNoAdapter);
    }
    StatEntry *e = EntryOf(*adapter);
    if (!e) {
        LogDebug(kFile, __LINE__, "GetHBAStatistics: Unable to allocate memory for return result!");
        return Failed(kNoMemory);
    }
    std::lock_guard<std::mutex> lock(e->mutex);
    HBAStatisticsSample &s = e->sample;
    time_t now = DiagGetTime();
    // Only a poll right after a poll waits: a reset just before the poll
    // (key R) leaves the poll on time.
    if (waitInSameSecond && e->havePrev && !e->fromReset && now == e->prevTime) {
        OSSSleep(PollingValue(POLL_STATISTICS, POLL_ROW_SET_RATE));
        now = DiagGetTime();
    }
    DiagFormatTime(now, s.TimeStamp, sizeof s.TimeStamp);
    SDStatistics st{};
    if (uint32_t rc = SDGetStatistics(adapter->DeviceHandle, &st)) {
        LogDebug(kFile, __LINE__, "GetHBAStatistics: SDGetStatistics failed (0x%x) (%s)", rc, SDGetErrorString(rc));
        s.Status = rc;
        return &s;
    }
    if (counters) *counters = st;
    const auto io = int64_t(st.TotalIoCount);
    const auto mb = int64_t(st.TotalMBytes);
    const int64_t elapsed = e->havePrev ? int64_t(now - e->prevTime) : 0;
    if (elapsed > 0) {
        s.IoPerSecond = (io - e->prevIo) / elapsed;
        s.BytesPerSecond = ((mb - e->prevMb) * (int64_t(1) << 20)) / elapsed;
        LogDebug(kFile, __LINE__, "GetHBAStatistics: MBPS=%u", unsigned((mb - e->prevMb) / elapsed));
    } else {
        s.IoPerSecond = 0;
        s.BytesPerSecond = 0;
    }
    if (elapsed > 0 || !e->havePrev) {
        e->prevIo = io;
        e->prevMb = mb;
        e->prevTime = now;
        e->havePrev = true;
    }
    e->fromReset = false;
    s.Errors = int64_t(st.ControllerErrorCount);
    s.DeviceErrors = int64_t(st.DeviceErrorCount);
    s.Resets = int64_t(st.TotalLipResets);
    s.Interrupts = int64_t(st.InterruptCount);
    s.IoCount = io;
    s.Status = 0;
    return &s;
}

void SetStatisticsPollObserver(StatisticsPollObserver observer) { g_pollObserver = std::move(observer); }

FILE *OpenCsvFile(const char *fileName, bool append) {
    if (!fileName || !*fileName) return nullptr;
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (append ? O_APPEND : O_TRUNC);
    int fd = open(fileName, flags, 0644);
    struct stat st {};
    if (fd >= 0 && (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        close(fd);
        fd = -1;
    }
    FILE *f = fd >= 0 ? fdopen(fd, append ? "a+" : "w+") : nullptr;
    if (!f) {
        if (fd >= 0) close(fd);
        LogDebug(kFile, __LINE__, "Unable to open log file (%s)!", fileName);
        Print("Unable to open log file (%s)!\n", fileName);
    }
    return f;
}

std::vector<SDMDevice *> MonitoredPorts(SDMDevice *const *ports, uint32_t count, bool allPorts) {
    std::vector<SDMDevice *> out;
    if (allPorts)
        for (SDMDevice *d = GetMyDeviceList() ? GetMyDeviceList()->First : nullptr; d; d = d->next) out.push_back(d);
    if (out.empty() && ports)
        for (uint32_t i = 0; i < count; ++i)
            if (ports[i]) out.push_back(ports[i]);
    return out;
}

}  // namespace vt::diag

namespace {

using vt::diag::Print;

void PrintStatisticsHeader() {
    Print("\nMonitoring\n\n");
    Print(
        "General keyboard shortcuts:\n      R     - Clear all counters next iteration in this session \n"
        "      ENTER - Stop\n\n");
    Print("%-3s %11s %13s %5s %10s %5s %10s %11s\n", "HBA", "", "Device", "", "", "", "", "");
    Print("%-4s%11s %13s %5s %10s %5s %10s %11s\n", "Port", "Errors", "Errors", "Reset", "I/O Count", "IOPS", "BPS",
          "Time");
}

}  // namespace

extern "C" {

VTAPI_EXPORT HBAStatisticsSample *GetHBAStatistics(const SDMDevice *adapter) {
    return vt::diag::PollStatistics(adapter, true, nullptr);
}

VTAPI_EXPORT uint32_t ResetHBAStatisticsCounter(const SDMDevice *adapter) {
    if (!adapter) return vt::diag::kNoAdapter;
    const uint32_t rc = SDResetStatistics(adapter->DeviceHandle);
    if (rc != SDERR_NONE) {
        LogDebug(kFile, __LINE__, "ResetHBAStatisticsCounter: SDResetStatistics failed (0x%x) (%s)", rc,
                 SDGetErrorString(rc));
        return rc;
    }
    StatEntry *e = EntryOf(*adapter);
    if (!e) return vt::diag::kNoMemory;
    std::lock_guard<std::mutex> lock(e->mutex);
    // The next rates count from the cleared counters and from now.
    e->prevIo = e->prevMb = 0;
    e->prevTime = DiagGetTime();
    e->havePrev = true;
    e->fromReset = true;
    return 0;
}

VTAPI_EXPORT uint32_t ExportHBAStatisticsToCsvFile(const char *fileName, const HBAStatisticsSample *samples,
                                                   uint32_t count) {
    FILE *f = vt::diag::OpenCsvFile(fileName, true);
    if (!f) return 1;
    for (uint32_t i = 0; samples && i < count; ++i) {
        const HBAStatisticsSample &s = samples[i];
        fprintf(f, "%s,%ld,%ld,%ld,%ld,%ld,%ld\n", s.TimeStamp, long(s.Errors), long(s.DeviceErrors), long(s.Resets),
                long(s.IoCount), long(s.IoPerSecond), long(s.BytesPerSecond));
    }
    return fclose(f) == 0 ? 0 : 1;
}

VTAPI_EXPORT void FreeHBAStatisticsList(void) {
    std::lock_guard<std::mutex> lock(g_statsMutex);
    g_stats.clear();
}

VTAPI_EXPORT uint32_t CreateThreadForHBAStatistics(SDMDevice *const *ports, uint32_t count, HBAStatisticsSample *last) {
    using namespace vt::diag;
    const bool filter = PollingValue(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER) != 0;
    std::vector<SDMDevice *> targets = MonitoredPorts(ports, count, !filter);
    if (targets.empty()) {
        Print("No compatible HBA(s) found in current system\n");
        return kNoAdapter;
    }
    const MonitorSettings settings = ReadMonitorSettings(POLL_STATISTICS);
    const size_t n = targets.size();

    std::vector<WorkerPort> workers;
    workers.reserve(n);
    for (SDMDevice *d : targets) workers.emplace_back(*d, false);
    std::vector<std::atomic<bool>> resetNext(n);
    std::vector<HBAStatisticsSample> latest(n);
    PollBoard<HBAStatisticsSample> board(n);
    PrintStatisticsHeader();

    Session session(n, Instances(targets.data(), uint32_t(n)));
    const bool started = session.start([&](size_t i) {
        WorkerPort &port = workers[i];
        if (port.open()) {
            for (uint32_t k = 1; settings.iterations == 0 || k <= settings.iterations; ++k) {
                if (resetNext[i].exchange(false)) ResetHBAStatisticsCounter(&port.device());
                board.deliver(k, i, *GetHBAStatistics(&port.device()));
                // A rate of 0 polls once a second: the rates count whole seconds.
                if (k == settings.iterations ||
                    !SleepUnlessStopped(std::max<uint32_t>(settings.rate, 1), session.stopping()))
                    break;
            }
        }
        board.finish(i);
    });
    if (!started) return VTAPI_GENERAL_FAILURE;

    auto show = [&](uint32_t, const std::vector<std::optional<HBAStatisticsSample>> &samples) {
        std::vector<HBAStatisticsSample> logged;
        std::vector<const SDMDevice *> polled;
        for (size_t i = 0; i < samples.size(); ++i) {
            if (!samples[i]) continue;
            polled.push_back(targets[i]);
            const HBAStatisticsSample &s = *samples[i];
            latest[i] = s;
            Print("%3d %11ld %13ld %5ld %10ld %5ld %10ld %11s\n", int(targets[i]->Instance), long(s.Errors),
                  long(s.DeviceErrors), long(s.Resets), long(s.IoCount), long(s.IoPerSecond), long(s.BytesPerSecond),
                  s.TimeStamp);
            logged.push_back(s);
        }
        if (!settings.logFile.empty() && !logged.empty())
            ExportHBAStatisticsToCsvFile(settings.logFile.c_str(), logged.data(), uint32_t(logged.size()));
        if (g_pollObserver && !logged.empty()) g_pollObserver(polled, logged);
    };
    session.wait(
        [&](int32_t key) {
            if (key == 'R' || key == 'r') {
                for (auto &flag : resetNext) flag.store(true);
                return false;
            }
            return key == '\n';
        },
        [&] { board.take(show); });
    board.take(show, true);
    if (last)
        for (size_t i = 0; i < n && i < count; ++i) last[i] = latest[i];
    return VTAPI_SUCCESS;
}

}  // extern "C"
