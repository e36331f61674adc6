// Pieces the diagnostics and monitor files share inside the library.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "diag.h"

namespace vt::diag {

constexpr size_t kMessageSize = 256;  // the shared validation message buffer
constexpr uint32_t kNoAdapter = 8;
constexpr uint32_t kBadValue = 48;
constexpr uint32_t kNotSupported = 61;
constexpr uint32_t kNoMemory = 115;

// Parameter text helpers (diag_params.cpp).
bool ParseUnsigned(const char *text, uint32_t &out);       // decimal or 0x hex, whole text
std::optional<int> NamedPattern(const char *value);        // Random, CRPAT, CJTPAT, CSPAT
bool ParseUserPattern(const char *value, uint8_t out[8]);  // 16 hex digits
// The repeating unit of an FC compliance pattern, or null (diag_patterns.cpp).
const std::vector<uint8_t> *CompliancePattern(int kind);

// The loopback test on one port (diag_loopback.cpp): runs until the count
// is done, OnError stops it, or it is aborted; onRun sees each run's record.
uint32_t RunLoopback(const SDMDevice &adapter, const DiagRequest &request, VTAPI_DiagResult &result,
                     const std::function<void(const DiagLoopbackResult &)> &onRun);
bool RunPassed(const DiagLoopbackResult &r);
// The read/write buffer test on one port (diag_rwbuffer.cpp); onProgress
// sees each target's entry after every TestIncrement iterations.
uint32_t RunReadWriteBuffer(const SDMDevice &adapter, const DiagRequest &request, VTAPI_RWBufferTestResultList &results,
                            const std::function<void(const VTAPI_RWBufferTestResult &)> &onProgress);

// The polling table's values (monitor_params.cpp): a number (0 when it is
// none) or the text.
uint32_t PollingValue(uint32_t kind, uint32_t row);
const char *PollingText(uint32_t kind, uint32_t row);
// What every monitor takes from its table.
struct MonitorSettings {
    uint32_t iterations;  // AutoPoll: 0 until ENTER
    uint32_t rate;        // SetRate, seconds
    std::string logFile;  // LogToFile, empty for none
};
MonitorSettings ReadMonitorSettings(uint32_t kind);

// One statistics poll of a port (monitor_stats.cpp); with waitInSameSecond
// a second poll within the same second first waits SetRate seconds.  The
// port's counters go to *counters when it is not null.
HBAStatisticsSample *PollStatistics(const SDMDevice *adapter, bool waitInSameSecond, SDStatistics *counters);

// What a front end sees of each monitor poll besides the screen and the CSV
// files (e.g. to write the poll elsewhere): called on the calling thread of
// the monitor with the ports polled and what each one read (link status:
// the counters as the port and targets report them).  Empty: none.
using StatisticsPollObserver =
    std::function<void(const std::vector<const SDMDevice *> &, const std::vector<HBAStatisticsSample> &)>;
using LinkStatusPollObserver =
    std::function<void(const std::vector<const SDMDevice *> &, const std::vector<std::vector<LinkStatusEntry>> &)>;
void SetStatisticsPollObserver(StatisticsPollObserver observer);
void SetLinkStatusPollObserver(LinkStatusPollObserver observer);

// Link status monitor pieces (monitor_link.cpp).
std::vector<LinkStatusEntry> MergeLinkStatus(const std::vector<LinkStatusEntry> &read);
void PrintLinkStatusRow(const LinkStatusEntry &e);
std::string CompanionCsvName(const std::string &name, const char *what);

// A CSV file a monitor writes, appended to or started anew; never through a
// symbolic link, never a FIFO or device.  Null (with "Unable to open log
// file (%s)!" shown and logged) when it cannot be opened.
FILE *OpenCsvFile(const char *fileName, bool append);

// Screen output of the diagnostics and monitors, formatted, through
// scfxDiagnosticsPrint.
void Print(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Waits up to `seconds` through OSSSleep, one second at a time, ending early
// once `stop` is set.  Returns false when it was stopped.
bool SleepUnlessStopped(uint32_t seconds, const std::atomic<bool> &stop);

// Per-port stop requests of running tests, by instance number: set by
// AbortDiagTest and by a session that is stopped; a test clears its own
// when it starts.
std::atomic<bool> &AbortFlag(uint32_t instance);
// Marks a port busy with a test; false when one already runs on it.
bool ClaimPort(uint32_t instance);
void ReleasePort(uint32_t instance);

// A test or monitor on several ports: one worker thread per port, while the
// calling thread takes the keys, redraws the screen and watches the
// command line's diagnostic state.  A signal that the command line's
// handler takes ends up in StopAllSessions (through the release of the
// result lists), which stops the workers and waits until they are done.
class Session {
public:
    // One worker per port; stopping the session asks the tests on these
    // ports to stop.
    Session(size_t workers, std::vector<uint32_t> instances);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Starts worker i with work(i).  False (with the message shown and the
    // workers already started stopped) when a thread cannot be made.
    bool start(const std::function<void(size_t)> &work);
    // Until every worker is done: calls onKey for each key (true stops the
    // session) and onTick after each wait.  Leaves g_DiagState at 1.
    void wait(const std::function<bool(int32_t)> &onKey, const std::function<void()> &onTick);

    void requestStop();
    const std::atomic<bool> &stopping() const { return stop_; }
    bool stoppedEarly() const { return stop_.load(); }

private:
    friend void StopAllSessions();
    void finish();

    const size_t workers_;
    const std::vector<uint32_t> instances_;
    std::function<void(size_t)> work_;
    std::atomic<bool> stop_{false};
    std::atomic<size_t> active_{0};
    std::vector<std::thread> threads_;
    size_t slot_ = SIZE_MAX;
};

// "21:00:00:24:ff:7c:50:10"
std::string WwnText(const uint8_t *wwn);
std::vector<uint32_t> Instances(SDMDevice *const *ports, uint32_t count);

// A port as a worker uses it: a copy of the device record (with its targets
// when asked, never their LUNs) and a handle of its own, so that nothing the command line frees while the
// worker runs is used by it.  Made on the calling thread, opened by the
// worker.
class WorkerPort {
public:
    WorkerPort(const SDMDevice &device, bool withTargets);
    ~WorkerPort();
    WorkerPort(WorkerPort &&other) noexcept : device_(other.device_) {
        other.device_.Targets = TargetList{};
        other.device_.DeviceHandle = 0;
    }
    WorkerPort(const WorkerPort &) = delete;
    WorkerPort &operator=(const WorkerPort &) = delete;
    WorkerPort &operator=(WorkerPort &&) = delete;
    bool open();
    SDMDevice &device() { return device_; }

private:
    SDMDevice device_{};
};

// Screen lines from the workers, printed by the calling thread.
class ScreenQueue {
public:
    void push(std::string line);
    void flush();

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

// What the workers of a monitor deliver per poll, grouped by iteration so
// that the calling thread shows one table per poll with the ports in order.
// An iteration is complete once every worker has delivered it or ended.
template <typename Sample>
class PollBoard {
public:
    explicit PollBoard(size_t workers) : done_(workers, false) {}
    void deliver(uint32_t iteration, size_t worker, Sample sample) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto &row = polls_[iteration];
        row.resize(done_.size());
        row[worker] = std::move(sample);
    }
    void finish(size_t worker) {
        std::lock_guard<std::mutex> lock(mutex_);
        done_[worker] = true;
    }
    // Calls show(iteration, samples) for each complete iteration, oldest
    // first; with all set, for every iteration left.
    template <typename F>
    void take(F show, bool all = false) {
        std::vector<std::pair<uint32_t, std::vector<std::optional<Sample>>>> ready;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            while (!polls_.empty()) {
                auto it = polls_.begin();
                bool complete = true;
                for (size_t w = 0; w < done_.size() && !all; ++w)
                    if (!done_[w] && !(w < it->second.size() && it->second[w])) complete = false;
                if (!complete) break;
                ready.emplace_back(it->first, std::move(it->second));
                polls_.erase(it);
            }
        }
        for (auto &[iteration, samples] : ready) show(iteration, samples);
    }

private:
    std::mutex mutex_;
    std::map<uint32_t, std::vector<std::optional<Sample>>> polls_;
    std::vector<bool> done_;
};

// The ports a monitor covers: those given, or with the device filter off
// (statistics), every listed port.
std::vector<SDMDevice *> MonitoredPorts(SDMDevice *const *ports, uint32_t count, bool allPorts);

// Stops every running session and waits until its workers are done; safe in
// the command line's signal handler, which never returns to the session.
void StopAllSessions();

// Frees the session result lists when the command line releases its lists.
void RegisterListReleases();

}  // namespace vt::diag
