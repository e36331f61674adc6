// Feeds arbitrary components to the firmware header and trailer checks.  The
// input is a region type (2 bytes), the version its region entry carries
// (3 bytes), an attribute selector (1 byte) and the component; the harness
// wraps the component in a one-entry layout table so that the checks that
// locate their component through the entry run as well.
#include "flash_fuzz_stubs.h"

#include <vector>

using namespace fuzzflash;

namespace {

constexpr uint32_t kAttributes[] = {8, 16, 32, 64, 128, 0x20000008};
constexpr uint16_t kDevices[] = {0x6311, 0x6421, 0x7180};
constexpr size_t kPrefix = 6;
constexpr size_t kTable = 104;  // header, one entry, time stamp, empty card section

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < kPrefix || size > (1u << 20)) return 0;
    const uint16_t type = uint16_t(data[0] | data[1] << 8);
    const uint32_t attribute = kAttributes[data[5] % std::size(kAttributes)];
    const size_t length = size - kPrefix;

    std::vector<uint8_t> mbi(kTable + length, 0);
    std::memcpy(mbi.data(), "VFIM", 4);
    mbi[4] = 2;                // table version
    mbi[6] = uint8_t(kTable);  // table length
    mbi[10] = 2;               // one entry and the time stamp
    uint8_t *e = mbi.data() + 32;
    e[0] = uint8_t(type);
    e[1] = uint8_t(type >> 8);
    std::memcpy(e + 3, data + 2, 3);
    e[6] = uint8_t(kTable);
    e[10] = uint8_t(length);
    e[11] = uint8_t(length >> 8);
    e[12] = uint8_t(length >> 16);
    e[13] = uint8_t(length >> 24);
    std::memcpy(mbi.data() + kTable, data + kPrefix, length);
    const Exact image(mbi.data(), mbi.size());
    const Exact component(data + kPrefix, length);
    const uint8_t *c = length ? component.data() : nullptr;
    const uint32_t n = component.size();

    const ILT_Region_t *entry = vtfuILT_Region_GetRegionByIndex(image.data(), image.size(), 0);
    Check(entry != nullptr);
    VTFU_RiscFirmwareHeader risc;
    if (vtfuGetFirmwareHeader(image.data(), image.size(), entry, &risc) == 0) {
        vtfuPrintFirmwareHeader(&risc);
        vtfuValidateFirmware(&risc, entry, attribute);
    }
    vtfuValidateRiscFirmwareImage(image.data(), image.size(), entry, attribute);
    VTFU_EdcFirmwareHeader edc;
    if (vtfuGetEdcFirmwareHeader(image.data(), image.size(), entry, &edc) == 0) vtfuValidateEdcFirmware(&edc, entry);
    if (vtfuGetMpiFirmwareHeader(image.data(), image.size(), entry, &edc) == 0) vtfuValidateMpiFirmware(&edc, entry);
    const uint32_t config = vtfuValidateMpiConfigParamImage(image.data(), image.size(), entry);
    Check(config == 0 || config == VTFU_BUFFER_TOO_SMALL);
    if (n >= VTFU_MPI_CONFIG_SUMMED) {
        std::vector<uint8_t> copy(c, c + n);
        vtfuVerifyMpiCfgParamsHeaderChkSum(copy.data(), uint32_t(copy.size()));
    }

    uint8_t version[3];
    vtfuValidateCRBinit(c, n, version);
    vtfuValidatePegtune(c, n, version);
    vtfuValidateBootloader(c, n, version);
    vtfuValidateCRBinitImage(image.data(), image.size(), entry, version);
    vtfuValidatePegtuneImage(image.data(), image.size(), entry, version);
    vtfuValidateBootloaderImage(image.data(), image.size(), entry, version);
    vtfuValidateNicFirmware(c, n, version);
    ValidateKiteSignatureRegion(c, n, version);

    VTAPI_FlashImageVersion v{};
    ValidateGenericImages(image.data(), image.size(), entry, &v);
    ValidateWrenImages(image.data(), image.size(), entry, &v);
    ValidateImages(image.data(), image.size(), entry, &v);
    vtfuValidateImageComponents(image.data(), image.size(), kDevices[data[5] % std::size(kDevices)], 0, 0, &v);
    vtflash::ComponentVersionText(type, component.span(), image.span());

    uint8_t out[64];
    vtfuGetSpecificImageComponentInBuffer(out, sizeof out, image.data(), image.size(), entry);
    return 0;
}
