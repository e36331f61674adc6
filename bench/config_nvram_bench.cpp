// Cost of the HBA-parameter calls on the default simulated host, against the
// messages-file lines they write:
//   BM_ReadAllPorts      VTAPI_GetHBAParamsInfo on every physical port of the
//                        tree in turn, one port an iteration
//   BM_UpdateAndVerify   one parameter changed through
//                        VTAPI_UpdateHBAParameters, then
//                        VTAPI_PostVerifyHBAParameter
//   BM_LogLines/N        N LogDebug lines of similar length: what the lines
//                        alone cost
// with the messages file enabled (trace level 9) under a temporary
// VTAPI_SYSROOT.  "lines" counts the messages-file lines per call.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vtapi.h"
#include "vtapi_api.h"
#include "oss/oss.h"

namespace {

class Host {
public:
    Host() {
        std::string tmpl = std::filesystem::temp_directory_path().string() + "/vtbench.XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        root_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(root_ + d);
        setenv("VTAPI_SYSROOT", root_.c_str(), 1);
        unsetenv("VTSDM_STATE_DIR");
        unsetenv("VTSDM_HOST");
        if (VTAPI_Initialize(9, nullptr) != VTAPI_SUCCESS) std::abort();
        for (AdapterEntry *a = gpAdapterList->First; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (e->Device.DeviceNodeProperty.Interface != SD_INTERFACE_VPORT) ports_.push_back(e);
    }
    ~Host() {
        VTAPI_Uninitialize();
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }
    void Truncate() const {
        const int fd = open(Log().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd >= 0) close(fd);
    }
    size_t LogLines() const {
        std::ifstream in(Log());
        size_t n = 0;
        for (std::string line; std::getline(in, line);) ++n;
        return n;
    }
    const std::vector<ProtocolEntry *> &Ports() const { return ports_; }

private:
    std::string Log() const { return root_ + "/var/tmp/vtapi.log"; }
    std::string root_;
    std::vector<ProtocolEntry *> ports_;
};

const Host &TheHost() {
    static Host host;
    return host;
}

void BM_ReadAllPorts(benchmark::State &state) {
    const Host &host = TheHost();
    host.Truncate();
    VTAPI_HBAParams params;
    size_t calls = 0;
    // One port a call, round the ports of the host.
    for (auto _ : state)
        if (VTAPI_GetHBAParamsInfo(host.Ports()[calls++ % host.Ports().size()], &params) != VTAPI_SUCCESS)
            state.SkipWithError("read failed");
    state.counters["ports"] = double(host.Ports().size());
    state.counters["lines"] = double(host.LogLines()) / double(calls ? calls : 1);
}
BENCHMARK(BM_ReadAllPorts)->Unit(benchmark::kMicrosecond);

void BM_UpdateAndVerify(benchmark::State &state) {
    const Host &host = TheHost();
    ProtocolEntry *port = host.Ports().front();
    VTAPI_HBAParams params;
    if (VTAPI_GetHBAParamsInfo(port, &params) != VTAPI_SUCCESS) state.SkipWithError("read failed");
    host.Truncate();
    uint32_t i = 0;
    for (auto _ : state) {
        params.LoginRetryCount = 10 + (i++ & 1);
        if (VTAPI_UpdateHBAParameters(port, &params) != VTAPI_SUCCESS ||
            VTAPI_PostVerifyHBAParameter(port) != VTAPI_SUCCESS)
            state.SkipWithError("update failed");
    }
    state.counters["lines"] = double(host.LogLines()) / double(i ? i : 1);
}
BENCHMARK(BM_UpdateAndVerify)->Unit(benchmark::kMicrosecond);

void BM_LogLines(benchmark::State &state) {
    TheHost().Truncate();
    const int64_t n = state.range(0);
    for (auto _ : state)
        for (int64_t k = 0; k < n; ++k)
            LogDebug(__FILE__, __LINE__, "GetHBAParamsInfo: %s=%d", "Enable Target Reset", 1);
}
BENCHMARK(BM_LogLines)->Arg(10)->Arg(50)->Arg(100)->Unit(benchmark::kMicrosecond);

}  // namespace
