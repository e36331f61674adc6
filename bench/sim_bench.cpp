// Simulated host costs: loading the large host file, and opening every port
// and listing every target and LUN of it through the SD... calls.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host.h"
#include "simulator.h"
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
    state.counters["ns_per_lun"] = benchmark::Counter(
        double(lunsSeen), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ListEveryTargetAndLun)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// A host of 31 ports, each seeing `targets` generated targets with 8 listed
// LUNs and a range of 14 more: 31 x (1 + targets x 23) elements, just under
// the budget at 4096 targets.  Loading it (parsing, expanding, checking and
// indexing) must cost the same per element at every size.
void BM_LoadHostUpToTheBudget(benchmark::State &state) {
    const int64_t targets = state.range(0);
    char tmpl[] = "/tmp/vtbench.XXXXXX";
    const std::string dir = mkdtemp(tmpl);
    const std::string path = dir + "/budget.json";
    {
        std::string luns;
        for (int l = 0; l < 8; ++l) luns += std::string(l ? "," : "") + R"({"lun":)" + std::to_string(l) + "}";
        std::ofstream out(path);
        out << R"({"cards":[{"serial":"B","model":"VT2912","device_id":"0x7C50","copies":31,"ports":[{)"
            << R"("wwnn":"20:00:00:24:ff:00:00:00","wwpn":"21:00:00:24:ff:00:00:00","port_id":"01:00:00",)"
            << R"("targets":[{"generate":{"count":)" << targets
            << R"(},"wwpn":"50:0a:09:81:00:00:00:00","port_id":"02:00:00","luns":[)" << luns
            << R"(],"lun_range":{"start":8,"count":14}}]}]}]})";
    }
    const uint64_t elements = 31 * (1 + uint64_t(targets) * 23);
    for (auto _ : state) {
        vtsdm::Simulator sim(path, dir + "/state");
        benchmark::DoNotOptimize(sim);
    }
    std::filesystem::remove_all(dir);
    state.SetComplexityN(int64_t(elements));
    state.counters["elements"] = double(elements);
    state.counters["ns_per_element"] = benchmark::Counter(
        double(elements), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_LoadHostUpToTheBudget)
    ->RangeMultiplier(2)
    ->Range(512, 4096)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace
