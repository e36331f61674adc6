// Feeds arbitrary bytes to the PLDM package header parser and, through the
// container it finds, to the layout table's structural check.
#include "flash_fuzz_stubs.h"

using namespace fuzzflash;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 20)) return 0;
    const Exact in(data, size);
    const vtflash::Bytes file = in.span();
    if (const auto p = vtflash::ParsePldmPackage(file)) {
        Check(p->headerSize <= size && p->formatRevision >= 1 && p->formatRevision <= 4);
        Check(p->componentCount >= 1 && p->componentOffset >= p->headerSize);
        Check(uint64_t(p->componentOffset) + p->componentSize <= size);
        Check(p->version.size() <= 255);
    }
    const vtflash::Bytes mbi = vtflash::MultiImageOf(file);
    Check(mbi.data() + mbi.size() == file.data() + file.size());
    vtfuILT_ValidateILTHeader(mbi.empty() ? nullptr : mbi.data(), uint32_t(mbi.size()));
    return 0;
}
