// Headers and trailers of the firmware components: RISC firmware, EDC PHY
// and MPI firmware, MPI configuration parameters, the NIC-family components
// closed by a trailer (CRBinit, pegtune, bootloader) and the NIC firmware.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "flash_image.h"

using namespace vtflash;

namespace {

constexpr uint32_t kEdcHeaderSize = sizeof(VTFU_EdcFirmwareHeader);
constexpr uint32_t kRiscFieldsUsed = offsetof(VTFU_RiscFirmwareHeader, Reserved36);
constexpr uint32_t kNicHeaderSize = 16;

bool VersionMatches(const uint8_t *found, const ILT_Region_t *entry) {
    return entry != nullptr && std::memcmp(found, entry->Version, 3) == 0;
}

uint32_t CopyEdcHeader(const char *name, const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                       VTFU_EdcFirmwareHeader *header) {
    const std::optional<Bytes> c = image != nullptr ? Component(Bytes(image, size), entry) : std::nullopt;
    if (header == nullptr || !c || c->size() < kEdcHeaderSize) {
        vtfuLogMessage(1, "%s: firmware component missing or shorter than its header", name);
        return VTFU_NONE;
    }
    std::memcpy(header, c->data(), kEdcHeaderSize);
    return VTFU_OK;
}

// EDC and MPI firmware headers: the EDC signature where asked, the type
// word, and the version of the region entry.
uint32_t ValidateEdcLike(const char *name, const VTFU_EdcFirmwareHeader *header, const ILT_Region_t *entry,
                         bool signature, uint32_t type) {
    if (header == nullptr) return 0;
    if (signature && Le32(header->Signature) != VTFU_EDC_SIGNATURE) {
        vtfuLogMessage(1, "%s: Signature mismatch (0x%08x)", name, Le32(header->Signature));
        return 0;
    }
    if (Be32(header->Type) != type || !VersionMatches(header->Version + 1, entry)) {
        vtfuLogMessage(1, "%s: header does not match its region entry", name);
        return 0;
    }
    return 1;
}

// The trailer of a component: signature, version, and a zero 32-bit sum
// over the whole component.
uint32_t ValidateTrailer(const char *name, uint32_t signature, const uint8_t *component, uint32_t length,
                         uint8_t *version) {
    if (component == nullptr || length < sizeof(VTFU_ComponentTrailer)) {
        vtfuLogMessage(1, "%s: component too short for its trailer (%u bytes)", name, length);
        return 0;
    }
    const auto *trailer =
        reinterpret_cast<const VTFU_ComponentTrailer *>(component + length - sizeof(VTFU_ComponentTrailer));
    if (Le32(trailer->Signature) != signature) {
        vtfuLogMessage(1, "%s: Signature mismatch (0x%08x)", name, Le32(trailer->Signature));
        return 0;
    }
    if (version != nullptr) std::memcpy(version, trailer->Version, 3);
    if (vtfuHLPR_Sum32(component, length / 4) != 0) {
        vtfuLogMessage(1, "%s: Checksum failed", name);
        return 0;
    }
    vtfuLogMessage(0, "%s: Version %d.%d.%d OK", name, trailer->Version[0], trailer->Version[1], trailer->Version[2]);
    return 1;
}

using TrailerCheck = uint32_t (*)(const uint8_t *, uint32_t, uint8_t *);

uint32_t ValidateTrailerImage(TrailerCheck check, const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                              uint8_t *version) {
    const std::optional<Bytes> c = image != nullptr ? Component(Bytes(image, size), entry) : std::nullopt;
    if (!c) return 0;
    return check(c->data(), uint32_t(c->size()), version);
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t vtfuGetFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                            VTFU_RiscFirmwareHeader *header) {
    const std::optional<Bytes> c = image != nullptr ? Component(Bytes(image, size), entry) : std::nullopt;
    if (header == nullptr || !c || c->size() < kRiscFieldsUsed) {
        vtfuLogMessage(1, "vtfuGetFirmwareHeader: firmware component missing or shorter than its header");
        return VTFU_NONE;
    }
    std::memset(header, 0, sizeof *header);
    std::memcpy(header, c->data(), std::min<size_t>(c->size(), VTFU_RISC_HEADER_SIZE));
    return VTFU_OK;
}

VTAPI_EXPORT void vtfuGetRiscVersion(const VTFU_RiscFirmwareHeader *header, uint32_t *major, uint32_t *minor,
                                     uint32_t *subMinor) {
    if (header == nullptr) return;
    if (major != nullptr) *major = Be32(header->Major);
    if (minor != nullptr) *minor = Be32(header->Minor);
    if (subMinor != nullptr) *subMinor = Be32(header->SubMinor);
}

VTAPI_EXPORT void vtfuPrintFirmwareHeader(const VTFU_RiscFirmwareHeader *header) {
    uint32_t major = 0, minor = 0, subMinor = 0;
    vtfuGetRiscVersion(header, &major, &minor, &subMinor);
    vtfuLogMessage(0, "PrintFirmwareHeader: Fw Version : %d.%d.%d", static_cast<int>(major), static_cast<int>(minor),
                   static_cast<int>(subMinor & 0xFF));
}

VTAPI_EXPORT uint32_t vtfuValidateFirmware(const VTFU_RiscFirmwareHeader *header, const ILT_Region_t *entry,
                                           uint32_t attribute) {
    if (header == nullptr || entry == nullptr) return 0;
    uint32_t major = 0, minor = 0, subMinor = 0;
    vtfuGetRiscVersion(header, &major, &minor, &subMinor);
    if (major != entry->Version[0] || minor != entry->Version[1] || (subMinor & 0xFF) != entry->Version[2]) {
        vtfuLogMessage(1, "vtfuValidateFirmware: version %u.%u.%u differs from the layout table's %d.%d.%d", major,
                       minor, subMinor & 0xFF, entry->Version[0], entry->Version[1], entry->Version[2]);
        return 0;
    }
    if (Be32(header->Attributes) != attribute) {
        vtfuLogMessage(1, "vtfuValidateFirmware: attribute word 0x%x, expected 0x%x", Be32(header->Attributes),
                       attribute);
        return 0;
    }
    return 1;
}

VTAPI_EXPORT uint32_t vtfuValidateRiscFirmwareImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                                    uint32_t attribute) {
    VTFU_RiscFirmwareHeader header;
    if (vtfuGetFirmwareHeader(image, size, entry, &header) != VTFU_OK) return 0;
    vtfuPrintFirmwareHeader(&header);
    return vtfuValidateFirmware(&header, entry, attribute);
}

VTAPI_EXPORT uint32_t vtfuGetEdcFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               VTFU_EdcFirmwareHeader *header) {
    return CopyEdcHeader("vtfuGetEdcFirmwareHeader", image, size, entry, header);
}

VTAPI_EXPORT uint32_t vtfuValidateEdcFirmware(const VTFU_EdcFirmwareHeader *header, const ILT_Region_t *entry) {
    return ValidateEdcLike("vtfuValidateEdcFirmware", header, entry, true, VTFU_EDC_TYPE);
}

VTAPI_EXPORT uint32_t vtfuGetMpiFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               VTFU_EdcFirmwareHeader *header) {
    return CopyEdcHeader("vtfuGetMpiFirmwareHeader", image, size, entry, header);
}

VTAPI_EXPORT uint32_t vtfuValidateMpiFirmware(const VTFU_EdcFirmwareHeader *header, const ILT_Region_t *entry) {
    return ValidateEdcLike("vtfuValidateMpiFirmware", header, entry, false, VTFU_MPI_TYPE);
}

VTAPI_EXPORT uint32_t vtfuValidateMpiConfigParamImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry) {
    const std::optional<Bytes> c = image != nullptr ? Component(Bytes(image, size), entry) : std::nullopt;
    if (!c || c->size() > VTFU_MPI_CONFIG_BUFFER) {
        vtfuLogMessage(1, "Unable to validate Mpi config param image (Invalid size)");
        return VTFU_BUFFER_TOO_SMALL;
    }
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[VTFU_MPI_CONFIG_BUFFER]());
    if (!buffer) {
        vtfuLogMessage(1, "vtfuValidateMpiConfigParamImage: ERROR_MEMORY_ALLOC_FAILURE");
        return VTFU_MEMORY_ALLOC_FAILURE;
    }
    if (!c->empty()) std::memcpy(buffer.get(), c->data(), c->size());
    if (Le32(buffer.get()) != VTFU_MPI_CONFIG_SIGNATURE) {
        vtfuLogMessage(1, "Unable to validate Mpi config param image (Signature mismatched)");
        return VTFU_BUFFER_TOO_SMALL;
    }
    if (!vtfuVerifyMpiCfgParamsHeaderChkSum(buffer.get(), VTFU_MPI_CONFIG_BUFFER)) {
        vtfuLogMessage(1, "Unable to validate Mpi config param image (Invalid checksum)");
        return VTFU_BUFFER_TOO_SMALL;
    }
    return VTFU_OK;
}

VTAPI_EXPORT uint32_t vtfuVerifyMpiCfgParamsHeaderChkSum(uint8_t *buffer, uint32_t size) {
    if (buffer == nullptr || size < VTFU_MPI_CONFIG_SUMMED) return 0;
    const uint32_t stored = Le32(buffer + 4);
    std::memset(buffer + 4, 0, 4);
    return vtfuHLPR_Sum32(buffer, VTFU_MPI_CONFIG_SUMMED / 4) == stored ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtfuValidateCRBinit(const uint8_t *component, uint32_t length, uint8_t *version) {
    return ValidateTrailer("vtfuValidateCRBinit", VTFU_CRBINIT_SIGNATURE, component, length, version);
}

VTAPI_EXPORT uint32_t vtfuValidatePegtune(const uint8_t *component, uint32_t length, uint8_t *version) {
    return ValidateTrailer("vtfuValidatePegtune", VTFU_PEGTUNE_SIGNATURE, component, length, version);
}

VTAPI_EXPORT uint32_t vtfuValidateBootloader(const uint8_t *component, uint32_t length, uint8_t *version) {
    return ValidateTrailer("vtfuValidateBootloader", VTFU_BOOTLOADER_SIGNATURE, component, length, version);
}

VTAPI_EXPORT uint32_t vtfuValidateCRBinitImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               uint8_t *version) {
    return ValidateTrailerImage(vtfuValidateCRBinit, image, size, entry, version);
}

VTAPI_EXPORT uint32_t vtfuValidatePegtuneImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               uint8_t *version) {
    return ValidateTrailerImage(vtfuValidatePegtune, image, size, entry, version);
}

VTAPI_EXPORT uint32_t vtfuValidateBootloaderImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                                  uint8_t *version) {
    return ValidateTrailerImage(vtfuValidateBootloader, image, size, entry, version);
}

VTAPI_EXPORT uint32_t vtfuValidateNicFirmware(const uint8_t *component, uint32_t length, uint8_t *version) {
    if (component == nullptr || length < kNicHeaderSize) {
        vtfuLogMessage(1, "vtfuValidateNicFirmware: component too short for its header (%u bytes)", length);
        return 0;
    }
    if (Le32(component) != VTFU_NIC_FW_SIGNATURE) {
        vtfuLogMessage(1, "vtfuValidateNicFirmware: Signature mismatch (0x%08x)", Le32(component));
        return 0;
    }
    if (version != nullptr) std::memcpy(version, component + 4, 3);
    const uint32_t covered = Le32(component + 12);
    if (covered < kNicHeaderSize || covered > length) {
        vtfuLogMessage(1, "vtfuValidateNicFirmware: header length %u outside the component (%u bytes)", covered,
                       length);
        return 0;
    }
    if (vtfuHLPR_Sum32(component, covered / 4) != 0) {
        vtfuLogMessage(1, "vtfuValidateNicFirmware: Checksum failed");
        return 0;
    }
    return 1;
}

}  // extern "C"
