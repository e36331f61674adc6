// Writing a whole multi-image file into a simulated 64 Gb card's flash:
// the plan (validation, layout check, the current version of every region
// read from the flash) and the write of all regions in one state update.
// Runs on a private system root with data/hosts/flash_families.json; run it
// as `unshare --ipc build/bench/flash_update_bench` (the library takes its
// cross-process mutex at start-up).
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "flash/flash_update.h"
#include "imagebuild.h"
#include "core/core.h"

namespace img = vtsdm::image;

namespace {

constexpr img::CardEntry kCard{0x1077, 0x7C50, 0x1077, 0x0C60};

std::string MakeRoot() {
    char dir[] = "/tmp/vtflashbench.XXXXXX";
    if (mkdtemp(dir) == nullptr) std::abort();
    const std::string root = dir;
    std::string etc = root + "/etc";
    mkdir(etc.c_str(), 0755);
    if (FILE *f = std::fopen((etc + "/os-release").c_str(), "w")) {
        std::fputs("NAME=\"Bench\"\nID=bench\n", f);
        std::fclose(f);
    }
    return root;
}

void BM_WriteMultiImageFile(benchmark::State &state) {
    const std::string root = MakeRoot();
    setenv("VTAPI_SYSROOT", root.c_str(), 1);
    setenv("VTSDM_BACKEND", "sim", 1);
    setenv("VTSDM_HOST", VT_SOURCE_DIR "/data/hosts/flash_families.json", 1);
    if (VTAPI_Initialize(0, nullptr) != VTAPI_SUCCESS) {
        state.SkipWithError("VTAPI_Initialize failed (run as root, in a private IPC namespace)");
        return;
    }
    const AdapterEntry *card = gpAdapterList ? gpAdapterList->First : nullptr;
    // Components of range(0) KiB each (the boot images stay at most 4 KiB).
    const std::vector<uint8_t> image =
        img::BuildMultiImage(img::SampleImage(img::ImageFamily::kKite, kCard, size_t(state.range(0)) * 1024));
    const std::string path = root + "/image.bin";
    if (FILE *f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(image.data(), 1, image.size(), f);
        std::fclose(f);
    }
    for (auto _ : state) {
        VTFU_UpdatePlan *plan = nullptr;
        if (vtfuPlanFlashUpdate(card, path.c_str(), &plan) != VTAPI_SUCCESS || plan->Status != VTAPI_SUCCESS ||
            vtfuWriteFlashUpdate(plan) != VTAPI_REBOOT_REQUIRED) {
            state.SkipWithError("the update failed");
            vtfuFreeFlashUpdatePlan(plan);
            break;
        }
        vtfuFreeFlashUpdatePlan(plan);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(image.size()));
    state.counters["file_bytes"] = double(image.size());
    VTAPI_Uninitialize();
}
BENCHMARK(BM_WriteMultiImageFile)->Arg(4)->Arg(64)->Arg(192)->Unit(benchmark::kMillisecond);

}  // namespace
