// A flash image file checked against an adapter of the host: the file is
// taken whole, a PLDM package header is skipped, the family's checks run on
// the multi-image container, and the regions meant for the card are compared
// with the adapter's flash layout.  Messages for the user go to scfxPrint,
// or as an XML status message in XML mode.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <new>

#include "flash_image.h"
#include "idtable.h"
#include "vtapi_cli.h"
#include "core/core.h"
#include "oss/oss.h"

using namespace vtflash;

namespace {

constexpr uint32_t kFirstAnalyzedIspType = 21;
constexpr uint32_t kIspWren = 25;
constexpr uint32_t kIspKite = 27;
constexpr uint32_t kLayoutUnreadable = 1;
constexpr uint32_t kMaxLayoutRegions = 1u << 16;

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char *format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

void Print(const std::string &line) { scfxPrint((line + "\n").c_str()); }

// Progress and results: text mode only.
void Inform(const std::string &line) {
    if (!bXmlOutPut) Print(line);
}

// A failure: the line in text mode, a whole status document in XML mode.
void Report(uint32_t status, const std::string &line) {
    if (bXmlOutPut) XML_EmitStatusMessage(static_cast<int32_t>(status), line.c_str(), 0, 1, 1);
    else Print(line);
}

// Component validators answer a count or the complement of a small code
// (or -1 when an entry could not be read).
bool IsFailure(uint32_t result) { return result > 0xFFFF; }

// The first `size` bytes of a file.  A regular file is mapped (read-only,
// its pages populated at once), anything else is read into memory.
class FileBytes {
public:
    enum Status { kLoaded, kShort, kNoMemory };

    FileBytes() = default;
    FileBytes(const FileBytes &) = delete;
    FileBytes &operator=(const FileBytes &) = delete;
    ~FileBytes() {
        if (map_ != nullptr) munmap(map_, size_);
    }

    Status Load(const char *path, uint32_t size) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) return kShort;
        const Status status = LoadFrom(fd, size);
        close(fd);
        return status;
    }
    Bytes bytes() const { return Bytes(data_, size_); }

private:
    Status LoadFrom(int fd, uint32_t size) {
        struct stat st {};
        if (fstat(fd, &st) != 0) return kShort;
        if (S_ISREG(st.st_mode)) {
            if (uint64_t(st.st_size) < size) return kShort;
            if (size == 0) return kLoaded;
            void *map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
            if (map != MAP_FAILED) {
                map_ = map;
                data_ = static_cast<const uint8_t *>(map);
                size_ = size;
                return kLoaded;
            }
            if (errno == ENOMEM) return kNoMemory;
        }
        owned_.reset(new (std::nothrow) uint8_t[size ? size : 1]);
        if (!owned_) return kNoMemory;
        size_t got = 0;
        while (got < size) {
            const ssize_t n = read(fd, owned_.get() + got, size - got);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return kShort;
            got += size_t(n);
        }
        data_ = owned_.get();
        size_ = size;
        return kLoaded;
    }

    void *map_ = nullptr;
    std::unique_ptr<uint8_t[]> owned_;
    const uint8_t *data_ = nullptr;
    uint32_t size_ = 0;
};

// The outcome once the component check has answered.
ImageCheck AfterComponents(ImageCheck r, uint32_t result) {
    r.stage = IsFailure(result) ? ImageCheck::kComponents : ImageCheck::kPassed;
    r.status = IsFailure(result) ? result : 0;
    return r;
}

bool IsNicFamily(uint16_t did) { return vt::ids::IsTern(did) || vt::ids::IsOrla(did) || vt::ids::IsTove(did); }

// Regions of the image meant for the card against the adapter's layout
// (FlashSize, Count, Count descriptors of region type and size).
uint32_t CompareLayout(Bytes mbi, Bytes layout, uint32_t cardType, uint32_t chipRevision) {
    if (layout.size() < 8) return kLayoutUnreadable;
    const uint64_t count = std::min<uint64_t>(Le32(layout.data() + 4), (layout.size() - 8) / 8);
    std::map<uint32_t, uint32_t> regions;
    for (uint64_t i = 0; i < count; ++i) {
        const uint8_t *d = layout.data() + 8 + i * 8;
        regions.emplace(Le32(d), Le32(d + 4));
    }
    uint32_t status = 0;
    const int64_t last =
        int64_t(vtfuILT_Header_GetNumOfRegionEntries(reinterpret_cast<const ILT_Header_t *>(mbi.data()))) - 2;
    for (int64_t i = 0; i <= last; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(mbi.data(), uint32_t(mbi.size()), uint32_t(i));
        if (e == nullptr) return kLayoutUnreadable;
        if (!EntryIsForCard(*e, cardType, chipRevision)) continue;
        const auto found = regions.find(RegionType(*e));
        if (found == regions.end()) {
            TarnLogMessage(VT_MSG_DEBUG, "ReadFlashImageILT: region 0x%x is not in the adapter's flash",
                           RegionType(*e));
            status = FLASH_LAYOUT_MISMATCH;
        } else if (found->second < RegionLength(*e)) {
            TarnLogMessage(VT_MSG_DEBUG, "ReadFlashImageILT: region 0x%x holds %u bytes, the image has %u",
                           RegionType(*e), found->second, RegionLength(*e));
            status = FLASH_LAYOUT_MISMATCH;
        }
    }
    return status;
}

}  // namespace

namespace vtflash {

std::optional<AdapterFacts> FactsOf(const AdapterEntry *adapter) {
    if (adapter == nullptr) return std::nullopt;
    for (const PhyPortEntry *p = adapter->PhyPorts.First; p; p = p->next)
        for (const ProtocolEntry *e = p->Protocols.First; e; e = e->next) {
            AdapterFacts f;
            f.deviceId = e->Device.DeviceChipProperty.DeviceID;
            f.subVendorId = adapter->SubVendorID;
            f.subSystemId = adapter->SubSystemID;
            f.chipRevision = adapter->ChipRevision;
            f.ispType = CoreGetISPType(&e->Device);
            f.instance = e->Device.Instance;
            f.handle = e->Device.DeviceHandle;
            f.model.assign(adapter->AdapterModel, strnlen(adapter->AdapterModel, sizeof adapter->AdapterModel));
            return f;
        }
    return std::nullopt;
}

std::string HardwareType(uint16_t deviceId) {
    // Chip labels start with the part number, "VT2910 Kite 64Gb FC".
    std::string_view label = vt::ids::ChipLabel(deviceId);
    if (label.substr(0, 2) != "VT") return {};
    label.remove_prefix(2);
    return std::string(label.substr(0, std::min<size_t>(label.find(' '), 6)));
}

ImageCheck CheckFcImage(const AdapterFacts &facts, const AdapterEntry *adapter, Bytes mbi,
                        VTAPI_FlashImageVersion *versions) {
    ImageCheck r;
    const uint32_t size = uint32_t(mbi.size());
    const bool kiteOrWren = facts.ispType == kIspWren || facts.ispType == kIspKite;
    if (kiteOrWren) {
        r.status = (facts.ispType == kIspWren ? ValidateWrenILTImageHeader : ValidateKiteILTImageHeader)(
            facts.subSystemId, facts.subVendorId, mbi.data(), size, facts.chipRevision);
        if (r.status != 0) {
            TarnLogMessage(VT_MSG_DEBUG, "AnalyzeFlashImageFile: ValidateILTImageHeader() returns %d",
                           static_cast<int>(r.status));
            return r;
        }
    }
    r.cardType = kiteOrWren ? KiteCardType(mbi, facts.subSystemId, facts.subVendorId)
                            : vtfuILT_CardTypeList_GetMyCardTypeFromCardList(mbi.data(), size, facts.deviceId,
                                                                             facts.subSystemId, facts.subVendorId);
    if (r.cardType == VTFU_NONE) {
        r.stage = ImageCheck::kCardType;
        r.status = FLASH_ST_INCOMPATIBLE;
        return r;
    }
    auto *validate = facts.ispType == kIspWren   ? ValidateWrenImageComponents
                     : facts.ispType == kIspKite ? ValidateKiteImageComponents
                                                 : ValidateGenericImageComponents;
    return AfterComponents(r, validate(mbi.data(), size, versions, r.cardType, adapter));
}

ImageCheck CheckNicImage(const AdapterFacts &facts, Bytes mbi, VTAPI_FlashImageVersion *versions) {
    ImageCheck r;
    const uint32_t size = uint32_t(mbi.size());
    r.status = vtfuValidateILTImageHeader(facts.deviceId, facts.subSystemId, facts.subVendorId, mbi.data(), size);
    if (r.status != VTFU_OK) {
        // Past the size and signature tests a 5 means no matching card.
        if (r.status == VTFU_BUFFER_TOO_SMALL && size >= sizeof(ILT_Header_t)) r.stage = ImageCheck::kCardType;
        return r;
    }
    r.status = vtfuValidateILTChipVersion(facts.chipRevision, mbi.data(), size);
    if (r.status != VTFU_OK) {
        r.stage = ImageCheck::kCardType;
        return r;
    }
    r.cardType = vt::ids::IsTern(facts.deviceId)
                     ? vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(mbi.data(), size, facts.deviceId,
                                                                          facts.subSystemId, facts.subVendorId)
                     : vtfuILT_CardTypeList_GetMyCardTypeFromCardList(mbi.data(), size, facts.deviceId,
                                                                      facts.subSystemId, facts.subVendorId);
    return AfterComponents(
        r, vtfuValidateImageComponents(mbi.data(), size, facts.deviceId, r.cardType, facts.chipRevision, versions));
}

ImageCheck CheckImageForAdapter(const AdapterFacts &facts, const AdapterEntry *adapter, Bytes mbi,
                                VTAPI_FlashImageVersion *versions) {
    if (facts.ispType == kIspWren || facts.ispType == kIspKite) return CheckFcImage(facts, adapter, mbi, versions);
    if (IsNicFamily(facts.deviceId)) return CheckNicImage(facts, mbi, versions);
    ImageCheck r;
    r.status = FLASH_ST_NOT_SUPPORTED;
    return r;
}

}  // namespace vtflash

extern "C" {

VTAPI_EXPORT uint32_t fcVTFUGetFlashLayoutTable(uint32_t handle, uint8_t **layout, uint32_t *size) {
    if (layout == nullptr || size == nullptr) return 1;
    // First ask with room for one descriptor to learn the region count.
    uint32_t probe[4] = {0, 1, 0, 0};
    uint32_t rc = SDGetOptionRomLayout(handle, 0, reinterpret_cast<SDOptionRomLayout *>(probe), sizeof probe);
    if (rc != SDERR_NONE && rc != SDERR_BUFFER_TOO_SMALL) {
        TarnLogMessage(VT_MSG_DEBUG, "fcVTFUGetFlashLayoutTable: SDGetOptionRomLayout( ) failed with error %u", rc);
        return 1;
    }
    const uint32_t count = probe[1];
    if (count > kMaxLayoutRegions) {
        TarnLogMessage(VT_MSG_DEBUG, "fcVTFUGetFlashLayoutTable: implausible region count %u", count);
        return 1;
    }
    const uint32_t bytes = 8 + 8 * count;
    auto *buffer = static_cast<uint32_t *>(std::calloc(bytes / 4, 4));
    if (buffer == nullptr) return 1;
    buffer[1] = count;
    rc = SDGetOptionRomLayout(handle, 0, reinterpret_cast<SDOptionRomLayout *>(buffer), bytes);
    if (rc != SDERR_NONE) {
        TarnLogMessage(VT_MSG_DEBUG, "fcVTFUGetFlashLayoutTable: SDGetOptionRomLayout( ) -2- failed with error %u", rc);
        std::free(buffer);
        return 1;
    }
    *layout = reinterpret_cast<uint8_t *>(buffer);
    *size = bytes;
    return 0;
}

VTAPI_EXPORT uint32_t ReadFlashImageILT(const AdapterEntry *adapter, const uint8_t *image, uint32_t size,
                                        uint32_t cardType) {
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts || image == nullptr || size < sizeof(ILT_Header_t)) return kLayoutUnreadable;
    uint8_t *layout = nullptr;
    uint32_t layoutSize = 0;
    if (fcVTFUGetFlashLayoutTable(facts->handle, &layout, &layoutSize) != 0) return kLayoutUnreadable;
    std::unique_ptr<uint8_t, decltype(&std::free)> owned(layout, &std::free);
    return CompareLayout(Bytes(image, size), Bytes(layout, layoutSize), cardType, facts->chipRevision);
}

VTAPI_EXPORT uint32_t AnalyzeFlashImageFile(const AdapterEntry *adapter, const char *path, uint32_t size) {
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts || path == nullptr) return FLASH_ST_NO_ADAPTER;
    TarnLogMessage(VT_MSG_DEBUG, "AnalyzeFlashImageFile: subsysVendorId=0x%X subsysDeviceId = 0x%X  Chip Rev= 0x%x",
                   facts->subVendorId, facts->subSystemId, facts->chipRevision);
    FileBytes file;
    const FileBytes::Status loaded = file.Load(path, size);
    if (loaded == FileBytes::kNoMemory) {
        Report(FLASH_ST_NO_MEMORY, "Unable to allocate memory for read buffer!");
        return FLASH_ST_NO_MEMORY;
    }
    if (loaded == FileBytes::kShort) {
        Report(FLASH_ST_CORRUPTED, Format("Selected file (%s) appears to be corrupted!", path));
        return FLASH_ST_CORRUPTED;
    }
    Bytes mbi = file.bytes();
    if (const std::optional<PldmPackage> pldm = ParsePldmPackage(mbi)) {
        TarnLogMessage(VT_MSG_DEBUG, "AnalyzeFlashImageFile: PLDM Header size=0x%x (%d)", pldm->headerSize,
                       static_cast<int>(pldm->headerSize));
        mbi = mbi.subspan(pldm->headerSize);
    }
    if (facts->ispType < kFirstAnalyzedIspType) {
        Report(FLASH_ST_NOT_SUPPORTED,
               Format("Unsupported option with current HBA %u (%s)", facts->instance, facts->model.c_str()));
        return FLASH_ST_NOT_SUPPORTED;
    }
    if (!bXmlOutPut) scfxPrint("Analyzing flash image file..., ");
    // The checks only read, so the file's bytes serve as they are.
    VTAPI_FlashImageVersion versions{};
    const ImageCheck check = CheckFcImage(*facts, adapter, mbi, &versions);
    if (check.stage == ImageCheck::kHeader) {
        Inform("");
        return check.status;
    }
    if (check.stage == ImageCheck::kCardType) {
        Inform("Done.");
        Report(FLASH_ST_INCOMPATIBLE, Format("Unable to find matching card type of flash image file %s!", path));
        return FLASH_ST_INCOMPATIBLE;
    }
    Inform("Done");
    if (check.stage == ImageCheck::kComponents) {
        Report(VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS,
               Format("Flash image file %s holds a component that failed validation (0x%x)!", path, check.status));
        return VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS;
    }
    HowManyImagesForCardTypeGeneric(mbi.data(), uint32_t(mbi.size()), check.cardType, facts->chipRevision);
    const uint32_t layout = ReadFlashImageILT(adapter, mbi.data(), uint32_t(mbi.size()), check.cardType);
    if (layout == 0) {
        Inform(
            Format("Flash image file %s is compatible with HBA %u (%s)", path, facts->instance, facts->model.c_str()));
        return 0;
    }
    if (layout == FLASH_LAYOUT_MISMATCH) {
        Report(FLASH_ST_INCOMPATIBLE, Format("Flash image file %s is incompatible with HBA %u (%s)!", path,
                                             facts->instance, facts->model.c_str()));
        return FLASH_ST_INCOMPATIBLE;
    }
    Report(layout, Format("Invalid file %s. Unable to validate signature!", path));
    return layout;
}

VTAPI_EXPORT uint32_t GetFlashImageComponentVersion(const uint8_t *image, uint32_t size, const AdapterEntry *adapter) {
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts) return FLASH_ST_NO_ADAPTER;
    if (image == nullptr) return FLASH_ST_ILT_TOO_SMALL;
    VTAPI_FlashImageVersion versions{};
    const ImageCheck check = CheckImageForAdapter(*facts, adapter, MultiImageOf(Bytes(image, size)), &versions);
    if (check.stage != ImageCheck::kPassed) return check.status;
    for (const std::string &line : VersionLines(versions)) Print(line);
    return 0;
}

}  // extern "C"
