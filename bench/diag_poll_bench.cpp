// Polling the statistics of 31 ports (the large host) once a second: the
// CPU time of one round of polls, as a share of a second of one core.  Two
// forms: the polls themselves (GetHBAStatistics on every port), and the
// whole monitor with its 31 worker threads, the calling thread's table and
// the board between them, with the one-second sleeps replaced by a clock
// that moves a second per sleep.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "diag/diag.h"
#include "vtapi.h"
#include "core/core.h"

namespace {
std::atomic<time_t> g_now{1700000000};
}  // namespace

extern "C" time_t DiagGetTime(void) { return g_now.load(); }
extern "C" void OSSSleep(uint32_t seconds) { g_now += seconds; }

namespace {

double CpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

class Library {
public:
    Library() {
        char tmpl[] = "/tmp/pollbench.XXXXXX";
        if (mkdtemp(tmpl)) root_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(root_ + d);
        setenv("VTAPI_SYSROOT", root_.c_str(), 1);
        setenv("VTSDM_HOST", (std::string(VT_SOURCE_DIR) + "/data/hosts/large_31x256x256.json").c_str(), 1);
        // Targets and LUNs play no part in the statistics.
        CoreSetTargetLUNDiscoveryOption(0);
        ok_ = VTAPI_Initialize(0, nullptr) == VTAPI_SUCCESS;
        for (SDMDevice *d = ok_ ? GetMyDeviceList()->First : nullptr; d; d = d->next) ports_.push_back(d);
        InitializeUserPollingTable(POLL_STATISTICS);
        AddUserPollingData(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER, "1");
    }
    ~Library() {
        if (ok_) VTAPI_Uninitialize();
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }
    bool ok() const { return ok_ && ports_.size() == 31; }
    std::vector<SDMDevice *> &ports() { return ports_; }

private:
    std::string root_;
    bool ok_ = false;
    std::vector<SDMDevice *> ports_;
};

Library &Lib() {
    static Library lib;
    return lib;
}

void BM_PollRoundOf31Ports(benchmark::State &state) {
    Library &lib = Lib();
    if (!lib.ok()) {
        state.SkipWithError("the large host did not start");
        return;
    }
    for (SDMDevice *d : lib.ports()) GetHBAStatistics(d);  // first polls write the counters' start
    const double cpu0 = CpuSeconds();
    for (auto _ : state) {
        g_now += 1;
        for (SDMDevice *d : lib.ports()) benchmark::DoNotOptimize(GetHBAStatistics(d)->IoCount);
    }
    const double perRound = (CpuSeconds() - cpu0) / double(state.iterations());
    state.counters["cpu_ms_per_round"] = perRound * 1e3;
    state.counters["core_percent_at_1s"] = perRound * 100.0;  // one round a second
}

void BM_MonitorOf31Ports(benchmark::State &state) {
    Library &lib = Lib();
    if (!lib.ok()) {
        state.SkipWithError("the large host did not start");
        return;
    }
    const uint32_t rounds = 20;
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_AUTO_POLL, std::to_string(rounds).c_str());
    AddUserPollingData(POLL_STATISTICS, POLL_ROW_SET_RATE, "0");
    const double cpu0 = CpuSeconds();
    for (auto _ : state) CreateThreadForHBAStatistics(lib.ports().data(), uint32_t(lib.ports().size()), nullptr);
    const double perRound = (CpuSeconds() - cpu0) / double(state.iterations() * rounds);
    state.counters["cpu_ms_per_round"] = perRound * 1e3;
    state.counters["core_percent_at_1s"] = perRound * 100.0;
}

BENCHMARK(BM_PollRoundOf31Ports)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MonitorOf31Ports)->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace
