// Full discovery through the library: VTAPI_Initialize (ports, targets and
// every LUN, the sorted list and the adapter tree) and VTAPI_Uninitialize,
// at trace level 0 on the large host and on the default host, and at trace
// level 9 (every messages-file line written) on the default host.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <time.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "vtapi.h"
#include "core/core.h"

namespace {

// A private system root (etc, var/tmp, var/lib) removed at exit.
class Sysroot {
public:
    Sysroot() {
        char tmpl[] = "/tmp/vtapibench.XXXXXX";
        if (mkdtemp(tmpl)) path_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(path_ + d);
        setenv("VTAPI_SYSROOT", path_.c_str(), 1);
        unsetenv("VTSDM_STATE_DIR");
    }
    ~Sysroot() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }

private:
    std::string path_;
};

void UseHost(const char *rel) {
    static Sysroot root;
    setenv("VTSDM_HOST", (std::string(VT_SOURCE_DIR) + "/" + rel).c_str(), 1);
}

double CpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

uint64_t CountLuns() {
    uint64_t n = 0;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        for (const TargetEntry *t = d->Targets.First; t; t = t->next) n += t->Luns.Count;
    return n;
}

void RunDiscovery(benchmark::State &state, const char *host, int32_t level = 0) {
    UseHost(host);
    // Load the host file once outside the measurement.
    VTAPI_Initialize(level, nullptr);
    VTAPI_Uninitialize();
    uint64_t luns = 0;
    double cpu = 0;
    size_t heap = 0;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        const double start = CpuSeconds();
        VTAPI_Initialize(level, nullptr);
        const double mid = CpuSeconds();
        state.PauseTiming();
        luns = CountLuns();
        heap = mallinfo2().uordblks - before;
        state.ResumeTiming();
        const double resume = CpuSeconds();
        VTAPI_Uninitialize();
        cpu += (mid - start) + (CpuSeconds() - resume);
    }
    if (luns == 0) {
        state.SkipWithError("no LUNs discovered");
        return;
    }
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    state.counters["luns"] = double(luns);
    state.counters["cpu_us_per_lun"] = cpu * 1e6 / double(state.iterations()) / double(luns);
    state.counters["heap_bytes_per_lun"] = double(heap) / double(luns);
    state.counters["max_rss_MB"] = double(ru.ru_maxrss) / 1024.0;
}

void BM_DiscoveryLargeHost(benchmark::State &state) { RunDiscovery(state, "data/hosts/large_31x256x256.json"); }
BENCHMARK(BM_DiscoveryLargeHost)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_DiscoveryDefaultHost(benchmark::State &state) { RunDiscovery(state, "data/default_host.json"); }
BENCHMARK(BM_DiscoveryDefaultHost)->Unit(benchmark::kMicrosecond);

// Wall time with the messages file: each line is one open, write and close.
void BM_DiscoveryDefaultHostTrace9(benchmark::State &state) { RunDiscovery(state, "data/default_host.json", 9); }
BENCHMARK(BM_DiscoveryDefaultHostTrace9)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
