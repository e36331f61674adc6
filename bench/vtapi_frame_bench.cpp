// Cost of the frame of an exported call against the messages-file lines it
// writes.  The frame writes a profiler enter line, "VTAPI_X(): returning with
// %d" and a profiler exit line; everything else it does should be noise next
// to them.  Compare:
//   BM_FrameOnly        VTAPI_SDGetMPIFwDump: the frame with no work inside
//   BM_PortIndexQuery   VTAPI_GetPortIndex: frame, port lookup and the core's
//                       own log line
//   BM_TwoLogLines      two LogDebug lines of similar text (the baseline)
//   BM_ThreeLogLines    three such lines (what the frame writes)
// with the messages file enabled (VTAPI_Initialize with trace level 9 under a
// temporary VTAPI_SYSROOT).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "vtapi.h"
#include "vtapi_api.h"
#include "oss/oss.h"

namespace {

// A private sysroot with the library initialized in it, for the whole run.
class Host {
public:
    Host() {
        std::string tmpl = std::filesystem::temp_directory_path().string() + "/vtbench.XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        root_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(root_ + d);
        setenv("VTAPI_SYSROOT", root_.c_str(), 1);
        unsetenv("VTSDM_STATE_DIR");
        if (VTAPI_Initialize(9, nullptr) != VTAPI_SUCCESS) std::abort();
    }
    ~Host() {
        VTAPI_Uninitialize();
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }
    // Empties the messages file so that each benchmark starts small.
    void Truncate() const {
        const int fd = open((root_ + "/var/tmp/vtapi.log").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd >= 0) close(fd);
    }

private:
    std::string root_;
};

const Host &TheHost() {
    static Host host;
    return host;
}

void BM_FrameOnly(benchmark::State &state) {
    TheHost().Truncate();
    for (auto _ : state) benchmark::DoNotOptimize(VTAPI_SDGetMPIFwDump());
}
BENCHMARK(BM_FrameOnly);

void BM_PortIndexQuery(benchmark::State &state) {
    TheHost().Truncate();
    uint32_t index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VTAPI_GetPortIndex(1, 0, &index));
        benchmark::DoNotOptimize(index);
    }
    if (index != 1) state.SkipWithError("VTAPI_GetPortIndex did not answer");
}
BENCHMARK(BM_PortIndexQuery);

void BM_TwoLogLines(benchmark::State &state) {
    TheHost().Truncate();
    for (auto _ : state) {
        LogDebug(__FILE__, __LINE__, "PROFILER ENTER FUNCTION %s", "VTAPI_GetPortIndex");
        LogDebug(__FILE__, __LINE__, "VTAPI_GetPortIndex(): returning with %d", 0);
    }
}
BENCHMARK(BM_TwoLogLines);

void BM_ThreeLogLines(benchmark::State &state) {
    TheHost().Truncate();
    for (auto _ : state) {
        LogDebug(__FILE__, __LINE__, "PROFILER ENTER FUNCTION %s", "VTAPI_GetPortIndex");
        LogDebug(__FILE__, __LINE__, "VTAPI_GetPortIndex(): returning with %d", 0);
        LogDebug(__FILE__, __LINE__, "PROFILER EXIT FUNCTION %s %d ms", "VTAPI_GetPortIndex", 0);
    }
}
BENCHMARK(BM_ThreeLogLines);

}  // namespace
