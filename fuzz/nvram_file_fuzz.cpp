// libFuzzer target: the checks of NVRAM images handed in by users (saved
// NVRAM files, global NVRAM files) and adapters (the FC-NVMe boot block).
// The first byte picks the image the port holds (256 or 512 bytes); the rest
// is the file.  An accepted file must be one the port can take.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "../config/nvram_image_check.h"
#include "../sdm/nvram_map.h"

namespace {

namespace cfg = vt::config;
namespace nvram = vtsdm::nvram;

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

const std::vector<uint8_t> &PortImage(size_t size) {
    static const std::vector<uint8_t> images[2] = {
        nvram::DefaultImage(
            256,
            {{0x20, 0, 0, 0xe0, 0x8b, 0x19, 0, 0}, {0x21, 0, 0, 0xe0, 0x8b, 0x19, 0, 0}, 0x1077, 0x0142, "VTB0700088"}),
        nvram::DefaultImage(512, {{0x20, 0, 0, 0x24, 0xff, 0x7c, 0x50, 0x10},
                                  {0x21, 0, 0, 0x24, 0xff, 0x7c, 0x50, 0x10},
                                  0x1077,
                                  0x0C60,
                                  "VTK24110A7"}),
    };
    return images[size == 512];
}

uint32_t Read(const std::vector<uint8_t> &image, uint32_t id) {
    uint32_t v = 0xFFFFFFFFu;
    return nvram::GetValue(image.data(), image.size(), id, v) ? v : 0xFFFFFFFFu;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::vector<uint8_t> &current = PortImage((data[0] & 1) ? 512 : 256);
    const std::vector<uint8_t> file(data + 1, data + size);

    if (cfg::CheckSavedImage(file, current, Read) == cfg::SavedImage::Ok) {
        Check(file.size() == current.size());
        Check(cfg::NvramChecksumOk(file.data(), file.size()));
        Check(Read(file, nvram::kSubsystemDeviceId) == Read(current, nvram::kSubsystemDeviceId));
    }
    const uint8_t wwpn[8] = {0x21, 0, 0, 0x24, 0xff, 0x7c, 0x50, 0x10};
    if (cfg::CheckGlobalImage(file, wwpn) == cfg::GlobalImage::Ok) {
        Check(file.size() == cfg::kGlobalNvramSize);
        Check(nvram::IsValid(file.data(), file.size()));
    }
    // A heap copy of exactly the bytes, so a read past them is caught.
    const std::vector<uint8_t> block(file);
    cfg::CheckNvmeBlock(block.empty() ? nullptr : block.data(), block.size());
    Check(cfg::NvramChecksumOk(file.data(), file.size()) == nvram::IsValid(file.data(), file.size()));
    return 0;
}
