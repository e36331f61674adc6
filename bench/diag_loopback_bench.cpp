// A loopback test on every physical port of the default host at once
// against the same test on one port: with a worker thread per port the two
// take about the same time (the ports are busy side by side), so the ratio
// all/one stays near 1.  The test is the default one (10 runs of one
// iteration of 512 bytes), as internal loopback so that the port whose link
// is down runs it too.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "diag/diag.h"
#include "vtapi.h"
#include "core/core.h"

// The calling thread looks for keys every 100 us instead of reading the
// terminal; the workers' pace is the ports'.
extern "C" int32_t DiagGetKey(uint32_t) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    return -1;
}

namespace {

class Library {
public:
    Library() {
        char tmpl[] = "/tmp/diagbench.XXXXXX";
        if (mkdtemp(tmpl)) root_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(root_ + d);
        setenv("VTAPI_SYSROOT", root_.c_str(), 1);
        setenv("VTSDM_HOST", (std::string(VT_SOURCE_DIR) + "/data/default_host.json").c_str(), 1);
        ok_ = VTAPI_Initialize(0, nullptr) == VTAPI_SUCCESS;
        for (SDMDevice *d = ok_ ? GetMyDeviceList()->First : nullptr; d; d = d->next)
            if (!isVirtualPortHBA(d)) ports_.push_back(d);
        InitializeUserDiagnosticsTable(DIAG_TEST_LOOPBACK);
        AddUserDiagnosticsData(DIAG_ROW_LOOPBACK_TYPE, "0");
    }
    ~Library() {
        if (ok_) VTAPI_Uninitialize();
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }
    bool ok() const { return ok_ && !ports_.empty(); }
    // Seconds of one test on the first n ports.
    double Run(size_t n) {
        std::vector<VTAPI_DiagResult> results(n);
        const auto start = std::chrono::steady_clock::now();
        CreateLoopbackThreadTest(ports_.data(), uint32_t(n), results.data());
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        for (const VTAPI_DiagResult &r : results)
            if (r.RunsDone != 10 || r.RunsFailed != 0) failed_ = true;
        FreeLoopbackResultList();
        return took.count();
    }
    size_t ports() const { return ports_.size(); }
    bool failed() const { return failed_; }

private:
    std::string root_;
    bool ok_ = false;
    bool failed_ = false;
    std::vector<SDMDevice *> ports_;
};

Library &Lib() {
    static Library lib;
    return lib;
}

void BM_LoopbackPorts(benchmark::State &state, bool all) {
    Library &lib = Lib();
    if (!lib.ok()) {
        state.SkipWithError("the library did not start");
        return;
    }
    const size_t n = all ? lib.ports() : 1;
    for (auto _ : state) state.SetIterationTime(lib.Run(n));
    state.counters["ports"] = double(n);
    if (lib.failed()) state.SkipWithError("a run failed");
}

// Both in one: the ratio of the two times, alternating so that a busy
// machine weighs on both alike.
void BM_EveryPortOverOnePort(benchmark::State &state) {
    Library &lib = Lib();
    if (!lib.ok()) {
        state.SkipWithError("the library did not start");
        return;
    }
    double one = 0, all = 0;
    for (auto _ : state) {
        one += lib.Run(1);
        all += lib.Run(lib.ports());
    }
    state.counters["all_over_one"] = all / one;
    state.counters["ports"] = double(lib.ports());
}

BENCHMARK_CAPTURE(BM_LoopbackPorts, one_port, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoopbackPorts, every_port, true)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EveryPortOverOnePort)->Iterations(20)->Unit(benchmark::kMillisecond);

}  // namespace
