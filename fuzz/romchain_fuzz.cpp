// Feeds arbitrary bytes to the expansion-ROM readers: the boot-code chain
// walkers, the ROM header and PCI data structure tests, the option-ROM
// checksum (read and rewritten), the single boot-code file check and the
// version text of boot-code regions.
#include "flash_fuzz_stubs.h"

#include <vector>

using namespace fuzzflash;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 20)) return 0;
    const Exact in(data, size);
    const uint8_t *t = size ? in.data() : nullptr;
    const uint32_t n = in.size();

    const uint8_t *end = vtfuGetBootCodeEnd(t, n);
    if (end != nullptr) Check(end >= t && end <= t + n);  // a last image may claim no length
    vtflash::BootVersions versions;
    const bool strict = vtflash::CheckBootChain(in.span(), &versions, true);
    const bool loose = vtflash::CheckBootChain(in.span(), nullptr, false);
    Check(!strict || (loose && end != nullptr));

    // Every 512-byte boundary may start an image.
    for (uint32_t at = 0; at < n && at < 64 * 512; at += 512) {
        PCI_ROM_HEADER header;
        PCI_DATA_STRUCTURE pcir;
        if (vtfuGetHeaderAndData(t + at, n - at, &header, &pcir)) {
            Check(vtfuIsDriverImage(&pcir));
            Check(vtfuIsBIOSImage(&pcir) || vtfuIsFcodeImage(&pcir) || vtfuIsEfiImage(&pcir) || vtfuIsPXEImage(&pcir));
            Check(uint64_t(vtfuGetDataOffset(&header)) + 0x16 <= n - at);
        }
        vtfuIsVendorImage(&pcir);
        vtfuGetDataLength(&pcir);
        vtfuPrintDataStructure(at / 512, &pcir);
        std::vector<uint8_t> copy(t + at, t + n);
        const Exact rw(copy.data(), copy.size());
        vtfuComputeChecksum(0, rw.data(), rw.size(), 0);
        if (vtfuComputeChecksum(1, rw.data(), rw.size(), 0))
            Check(vtfuComputeChecksum(0, rw.data(), rw.size(), 0) == 1);
    }
    for (const char *hw : {"2910", "2064", "2920", "25", "9999", ""}) {
        const uint32_t status = Validate(t, n, hw, 0);
        Check(status == 0 || status == FLASH_ST_WRONG_ADAPTER || status == FLASH_ST_BAD_CHECKSUM);
        if (n > 512) Validate(t, n, hw, 512);
    }
    for (uint32_t type : {0x07u, 0x11u, 0x2Eu, 0x4Fu, 0xA2u}) vtflash::ComponentVersionText(type, in.span(), {});
    return 0;
}
