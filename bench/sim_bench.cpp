// Simulated host costs: loading the large host file, and opening every port
// and listing every target and LUN of it through the SD... calls.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host.h"
#include "vtsdm.h"

namespace {

const std::string kLargeHost = std::string(VT_SOURCE_DIR) + "/data/hosts/large_31x256x256.json";

void UseLargeHost() {
    static std::string stateDir;
    if (stateDir.empty()) {
        char tmpl[] = "/tmp/vtbench.XXXXXX";
        stateDir = mkdtemp(tmpl);
    }
    setenv("VTSDM_HOST", kLargeHost.c_str(), 1);
    setenv("VTSDM_STATE_DIR", stateDir.c_str(), 1);
}

void BM_LoadLargeHost(benchmark::State &state) {
    size_t bytes = 0, luns = 0;
    for (auto _ : state) {
        size_t before = mallinfo2().uordblks;
        vtsdm::Host host = vtsdm::LoadHost(kLargeHost);
        bytes = mallinfo2().uordblks - before;
        luns = 0;
        for (const auto &p : host.ports)
            for (const auto &t : p.targets) luns += t.lunCount();
        benchmark::DoNotOptimize(host);
    }
    state.counters["luns"] = double(luns);
    state.counters["heap_bytes_per_lun"] = double(bytes) / double(luns);
}
BENCHMARK(BM_LoadLargeHost)->Unit(benchmark::kMillisecond);

// What discovery does: open each port, read its properties and targets,
// REPORT LUNS per target, INQUIRY per LUN and READ CAPACITY per disk.
void BM_ListEveryTargetAndLun(benchmark::State &state) {
    UseLargeHost();
    std::vector<uint8_t> report(8 + 8 * 4096);
    uint64_t lunsSeen = 0;
    for (auto _ : state) {
        lunsSeen = 0;
        for (uint32_t inst = 0;; ++inst) {
            uint32_t h;
            if (SDOpenDevice(inst, &h) != SDERR_NONE) break;
            SDPortProperty port;
            SDGetHbaDevicePortProperty(h, &port);
            uint32_t count = 0;
            SDGetDiscTargetProperties(h, nullptr, &count);
            std::vector<SDDiscTargetProperty> targets(count);
            SDGetDiscTargetProperties(h, targets.data(), &count);
            for (const auto &t : targets) {
                uint8_t sense[80];
                uint32_t senseSize = sizeof sense, size = uint32_t(report.size());
                if (SDSendScsiReportLunsCmdFC(h, t.WWPN, report.data(), &size, sense, &senseSize)) continue;
                uint32_t n = ((uint32_t(report[2]) << 8) | report[3]) / 8;
                for (uint32_t i = 0; i < n; ++i) {
                    uint16_t lun = uint16_t(((report[8 + 8 * i] & 0x3F) << 8) | report[9 + 8 * i]);
                    uint8_t inq[36], cap[8];
                    uint32_t inqSize = sizeof inq, capSize = sizeof cap;
                    SDSendScsiInquiryCmdFC(h, t.WWPN, lun, 0, 0, inq, &inqSize, sense, &senseSize);
                    if ((inq[0] & 0x1F) == 0)
                        SDSendScsiReadCapacityCmdFC(h, t.WWPN, lun, cap, &capSize, sense, &senseSize);
                    ++lunsSeen;
                }
            }
            SDCloseDevice(h);
        }
    }
    state.counters["luns"] = double(lunsSeen);
    state.counters["ns_per_lun"] = benchmark::Counter(double(lunsSeen), benchmark::Counter::kIsIterationInvariantRate |
                                                                           benchmark::Counter::kInvert);
}
BENCHMARK(BM_ListEveryTargetAndLun)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
