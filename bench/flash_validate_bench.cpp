// Validation of a 32 MiB multi-image file against a 64 Gb card, next to a
// memcpy of the same bytes in the same run: the checks are memory-bound, so
// memcpy is the yardstick.  BM_ValidateImage runs the checks on the file in
// memory (header and online-update regions, card type, every component with
// its checksums, and the layout comparison); BM_AnalyzeFile is the whole
// AnalyzeFlashImageFile, which also reads the file (from the page cache) and
// copies the container.  The adapter's flash layout is supplied here.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "flash/flash_image.h"
#include "imagebuild.h"

namespace img = vtsdm::image;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr size_t kMiB = 1024 * 1024;
constexpr img::CardEntry kCard{0x1077, 0x7C50, 0x1077, 0x0C60};

std::vector<std::pair<uint32_t, uint32_t>> gLayout;

// A chain of the largest boot images (127 units each) filling `bytes`.
Bytes BootChain(size_t bytes, uint8_t majorBase) {
    std::vector<img::RomImageRecipe> images;
    const size_t image = 127 * 512;
    for (size_t at = 0; at + image <= bytes; at += image)
        images.push_back({uint8_t(images.size() % 2 == 0 ? 0 : 3),
                          {majorBase, uint8_t(images.size()), 0},
                          image,
                          0x1077,
                          0x7C50,
                          "",
                          {}});
    return img::BuildRomChain(images);
}

struct Image {
    img::MultiImageRecipe recipe;
    Bytes bytes;
};

const Image &File() {
    static const Image file = [] {
        Image f;
        img::MultiImageRecipe &m = f.recipe;
        m.imageVersion = {4, 1, 0};
        m.cardLists = {{1, {kCard}}, {0, {kCard}}};
        const img::Version fw{9, 20, 1};
        auto add = [&](uint16_t type, img::Version v, Bytes payload) {
            m.components.push_back({type, v, 0, 0, std::move(payload)});
        };
        add(0x01, fw, img::BuildRiscFirmware(fw, 64, 8 * kMiB));
        add(0x07, {3, 0, 0}, BootChain(4 * kMiB, 3));
        add(0x11, {3, 0, 0}, BootChain(2 * kMiB, 3));
        add(0x9E, {1, 2, 3}, img::BuildSignatureRegion({1, 2, 3}, 6 * kMiB));
        add(0xD3, {2, 1, 0}, img::BuildFcMpiFirmware({2, 1, 0}, 2 * kMiB));
        add(0x101, {2, 1, 1}, img::BuildFcMpiFirmware({2, 1, 1}, kMiB));
        add(0xD1, {1, 2, 3}, img::BuildPepComponent({1, 2, 3, 4}, 2 * kMiB));
        add(0xD2, {1, 2, 4}, img::BuildPepComponent({1, 2, 4, 5}, 2 * kMiB));
        add(0xCF, {1, 0, 0}, img::BuildPepBoardConfig({1, 0, 0, 0}, 64 * 1024));
        add(0x13, {1, 0, 0}, img::BuildOpaqueComponent(kMiB, 0x13));
        add(0xBA, {1, 0, 0}, img::BuildOpaqueComponent(512 * 1024, 0xBA));
        add(0x102, {1, 0, 0}, img::BuildOpaqueComponent(512 * 1024, 0x102));
        add(0x103, {1, 0, 0}, img::BuildOpaqueComponent(kMiB, 0x103));
        size_t total = 0;
        for (const auto &c : m.components) total += c.payload.size();
        add(0x14, {}, img::BuildOpaqueComponent(32 * kMiB - total - 4096, 0x14));
        f.bytes = img::BuildMultiImage(m);
        for (const auto &c : m.components) gLayout.emplace_back(c.regionType, uint32_t(c.payload.size()));
        return f;
    }();
    return file;
}

// A card entry with one port, as the adapter tree holds it.
struct Card {
    AdapterEntry entry{};
    PhyPortEntry port{};
    ProtocolEntry proto{};
    Card() {
        entry.SubVendorID = kCard.subVendorId;
        entry.SubSystemID = kCard.subSystemId;
        entry.ChipRevision = 2;
        std::snprintf(entry.AdapterModel, sizeof entry.AdapterModel, "VT2912");
        proto.Device.DeviceChipProperty.DeviceID = kCard.deviceId;
        port.Protocols = {1, &proto, &proto};
        entry.PhyPorts = {1, &port, &port};
    }
};

void BM_Memcpy(benchmark::State &state) {
    const Bytes &src = File().bytes;
    Bytes dst(src.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size()));
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ValidateImage(benchmark::State &state) {
    const Bytes &file = File().bytes;
    const Card card;
    const uint32_t size = uint32_t(file.size());
    constexpr uint32_t kCardType = 1;  // the card's list in the file
    for (auto _ : state) {
        VTAPI_FlashImageVersion versions{};
        const uint32_t header = ValidateKiteILTImageHeader(kCard.subSystemId, kCard.subVendorId, file.data(), size,
                                                           card.entry.ChipRevision);
        const uint32_t count = ValidateKiteImageComponents(file.data(), size, &versions, kCardType, &card.entry);
        const uint32_t layout = ReadFlashImageILT(&card.entry, file.data(), size, kCardType);
        if (header != 0 || count != 14 || layout != 0) {
            state.SkipWithError("the image did not validate");
            break;
        }
        benchmark::DoNotOptimize(versions);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}
BENCHMARK(BM_ValidateImage)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AnalyzeFile(benchmark::State &state) {
    const Bytes &file = File().bytes;
    char path[] = "/tmp/flash_bench_XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0 || write(fd, file.data(), file.size()) != ssize_t(file.size())) {
        state.SkipWithError("cannot write the image file");
        return;
    }
    close(fd);
    const Card card;
    for (auto _ : state) {
        if (AnalyzeFlashImageFile(&card.entry, path, uint32_t(file.size())) != 0) {
            state.SkipWithError("the image did not validate");
            break;
        }
    }
    unlink(path);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}
BENCHMARK(BM_AnalyzeFile)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

extern "C" uint32_t fcVTFUGetFlashLayoutTable(uint32_t, uint8_t **layout, uint32_t *size) {
    const uint32_t bytes = uint32_t(8 + 8 * gLayout.size());
    auto *out = static_cast<uint32_t *>(std::malloc(bytes));
    out[0] = 64u << 20;
    out[1] = uint32_t(gLayout.size());
    for (size_t i = 0; i < gLayout.size(); ++i) {
        out[2 + 2 * i] = gLayout[i].first;
        out[3 + 2 * i] = gLayout[i].second;
    }
    *layout = reinterpret_cast<uint8_t *>(out);
    *size = bytes;
    return 0;
}
