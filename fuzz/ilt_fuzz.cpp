// Feeds arbitrary bytes to the image layout table readers and to every check
// built on them: the structural check, entries, time stamp and card-type
// lists, the card matches, the Kite, Wren and NIC-family header, chip and
// component checks, the time stamp writer and the layout table locators.
// The adapter facts come from the last bytes of the input.
#include "flash_fuzz_stubs.h"

#include <vector>

using namespace fuzzflash;

namespace {

constexpr uint16_t kDevices[] = {0x7C50, 0x6A10, 0x6421, 0x6311, 0x7180, 0x6201, 0x5380, 0x6440};

bool Inside(const void *p, size_t bytes, const uint8_t *base, uint32_t size) {
    const auto *b = static_cast<const uint8_t *>(p);
    return b >= base && b + bytes <= base + size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 20)) return 0;
    const Exact in(data, size);
    const uint8_t *t = size ? in.data() : nullptr;
    const uint32_t n = in.size();
    const uint8_t tail = size ? data[size - 1] : 0;
    const uint8_t tail2 = size > 1 ? data[size - 2] : 0;
    const uint16_t did = kDevices[tail % std::size(kDevices)];
    const uint16_t ssdid = size > 3 ? uint16_t(data[size - 3] | data[size - 4] << 8) : 0x0C60;
    const uint16_t ssvid = (tail & 0x80) ? 0xFFFF : 0x1077;
    const uint32_t revision = tail2;
    const uint32_t cardType = tail2 >> 4;

    const bool structure = vtfuILT_ValidateILTHeader(t, n) != 0;
    if (n < sizeof(ILT_Header_t)) {
        Check(!structure);
        return 0;
    }
    const auto *h = reinterpret_cast<const ILT_Header_t *>(t);
    const uint32_t entries = vtfuILT_Header_GetNumOfRegionEntries(h);
    if (structure) Check(entries <= VTFU_ILT_MAX_REGIONS && uint64_t(entries) * 32 + 40 <= n);
    char text[16];
    vtfuILT_Header_GetImageVersion(h, text, sizeof text);
    vtfuILT_Header_GetImageVersionNoSeparator(h, text, sizeof text);
    Check(strnlen(text, sizeof text) < sizeof text);

    for (uint32_t i = 0; i < entries + 2 && i < 300; ++i)
        if (const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(t, n, i))
            Check(int64_t(i) <= int64_t(entries) - 2 && Inside(e, sizeof *e, t, n));
    if (const ILT_Timestamp_t *ts = vtfuILT_Region_GetTimeStampEntry(t, n)) Check(Inside(ts, sizeof *ts, t, n));
    const uint32_t lists = vtfuILT_CardType_Header_GetNumOfCardTypeList(t, n);
    for (uint32_t k = 0; k < lists + 1 && k < 300; ++k) {
        const ILT_CardTypeList_t *list = vtfuILT_CardTypeList_GetCardTypeListByIndex(t, n, k);
        if (list == nullptr) continue;
        Check(Inside(list, sizeof *list, t, n));
        for (uint32_t j = 0; j < 1100; ++j) {
            const ILT_CardTypeList_Entry_t *e = vtflash::CardEntry(in.span(), list, j);
            if (e == nullptr) break;
            Check(Inside(e, sizeof *e, t, n));
            vtfuILT_CardTypeList_CompareSignature(e, did, ssdid, ssvid);
        }
    }

    vtfuILT_CardTypeList_GetMyCardTypeFromCardList(t, n, did, ssdid, ssvid);
    vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(t, n, did, ssdid, ssvid);
    vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(t, n, did, ssdid, ssvid);
    vtfuHowManyImagesForCardType(t, n, int32_t(cardType) - 1, revision);
    HowManyImagesForCardTypeGeneric(t, n, cardType, revision);

    AdapterEntry adapter{};
    adapter.ChipRevision = revision;
    VTAPI_FlashImageVersion v{};
    ValidateKiteILTImageHeader(ssdid, ssvid, t, n, revision);
    ValidateWrenILTImageHeader(ssdid, ssvid, t, n, revision);
    ValidateKiteImageComponents(t, n, &v, cardType, &adapter);
    ValidateWrenImageComponents(t, n, &v, cardType, &adapter);
    ValidateGenericImageComponents(t, n, &v, cardType, &adapter);
    Check(strnlen(v.MBIVersionText, sizeof v.MBIVersionText) < sizeof v.MBIVersionText);
    vtfuValidateILTImageHeader(did, ssdid, ssvid, t, n);
    vtfuValidateILTChipVersion(revision, t, n);
    vtfuValidateImageComponents(t, n, did, cardType, revision, &v);
    for (const auto &line : vtflash::VersionLines(v)) Check(!line.empty());

    std::vector<uint8_t> stamped(n);
    if (vtfuUdpateTimeStamp(stamped.data(), n, t, n) == 0) {
        const uint32_t length = vtfuILT_Header_GetTableLength(h);
        Check(length <= n && vtfuHLPR_Sum16(stamped.data(), length / 2) == 0);
    }
    vtfuValidateFLTLocator(t, n);
    vtfuValidateTernFLTLocator(t, n);
    return 0;
}
