// PCI expansion-ROM images of boot code (BIOS, FCode, EFI, PXE): the ROM
// header and the PCI data structure, the tests on their fields, the walk of
// a chain of images and the reading of the two records from a file.
#include <algorithm>
#include <cstring>

#include "flash_image.h"

namespace {

constexpr uint8_t kLastImage = 0x80;
constexpr size_t kDataFieldsUsed = 0x16;  // the PCIR fields read, through the indicator

const char *DeviceLabel(uint16_t deviceId) {
    switch (deviceId) {
    case 1: return "(VPD data)";
    case 2: return "(2200 firmware)";
    case 3: return "(2300 firmware)";
    default: return "";
    }
}

const char *CodeTypeLabel(uint8_t codeType) {
    switch (codeType) {
    case VTFU_CODE_TYPE_X86: return "(Intel X86 PC compatible)";
    case VTFU_CODE_TYPE_OPENFW: return "(PCI Open firmware)";
    case VTFU_CODE_TYPE_PARISC: return "(PA-RISC)";
    case VTFU_CODE_TYPE_EFI: return "(EFI driver)";
    default: return "(Unknown)";
    }
}

// Copies up to sizeof(T) bytes from src (of `available` bytes) into out,
// zero-filling the rest.
template <typename T>
void CopyRecord(T *out, const uint8_t *src, size_t available) {
    std::memset(out, 0, sizeof(T));
    std::memcpy(out, src, std::min(sizeof(T), available));
}

bool IsBootCodeType(const PCI_DATA_STRUCTURE *d) {
    return vtfuIsBIOSImage(d) || vtfuIsFcodeImage(d) || vtfuIsEfiImage(d) || vtfuIsPXEImage(d);
}

}  // namespace

namespace vtflash {

bool CheckBootChain(Bytes chain, BootVersions *versions, bool verifyChecksums) {
    size_t pos = 0;
    uint32_t index = 0;
    while (pos < chain.size()) {
        PCI_ROM_HEADER header;
        PCI_DATA_STRUCTURE data;
        const uint32_t left = uint32_t(std::min<size_t>(chain.size() - pos, UINT32_MAX));
        if (!vtfuGetHeaderAndData(chain.data() + pos, left, &header, &data)) return false;
        const uint32_t length = vtfuGetImageLength(&data);
        if (length == 0 || length > left) return false;
        vtfuPrintDataStructure(index++, &data);
        // The checksum is only read when update is 0.
        if (verifyChecksums &&
            !vtfuComputeChecksum(0, const_cast<uint8_t *>(chain.data()), uint32_t(chain.size()), uint32_t(pos)))
            return false;
        if (versions != nullptr && data.CodeType < 4 && !versions->byCodeType[data.CodeType])
            versions->byCodeType[data.CodeType] = std::make_pair(data.CodeRevision[1], data.CodeRevision[0]);
        if (vtfuIsLastImage(&data)) return true;
        pos += length;
    }
    return false;
}

}  // namespace vtflash

using vtflash::Le16;

extern "C" {

VTAPI_EXPORT uint32_t vtfuGetHeaderAndData(const uint8_t *image, uint32_t size, PCI_ROM_HEADER *header,
                                           PCI_DATA_STRUCTURE *data) {
    PCI_ROM_HEADER h;
    PCI_DATA_STRUCTURE d;
    if (header == nullptr) header = &h;
    if (data == nullptr) data = &d;
    std::memset(header, 0, sizeof *header);
    std::memset(data, 0, sizeof *data);
    if (image == nullptr || size < offsetof(PCI_ROM_HEADER, Reserved1A) || image[0] != 0x55 || image[1] != 0xAA)
        return 0;
    CopyRecord(header, image, size);
    const uint32_t at = vtfuGetDataOffset(header);
    if (uint64_t(at) + kDataFieldsUsed > size) return 0;
    CopyRecord(data, image + at, size - at);
    if (std::memcmp(data->Signature, "PCIR", 4) != 0) return 0;
    return vtfuIsDriverImage(data) && IsBootCodeType(data) ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtfuGetFileImageHeader(FILE *file, PCI_ROM_HEADER *header, PCI_DATA_STRUCTURE *data,
                                             long offset) {
    if (file == nullptr || header == nullptr || data == nullptr || std::fseek(file, offset, SEEK_SET) != 0) {
        vtfuLogMessage(1, "Failed to wind file to header!");
        return 0;
    }
    if (std::fread(header, sizeof *header, 1, file) != 1) {
        vtfuLogMessage(1, "Failed to read header from file!");
        return 0;
    }
    if (header->Signature[0] != 0x55 || header->Signature[1] != 0xAA) {
        vtfuLogMessage(1, "Failed to recognize header signature!");
        return 0;
    }
    if (std::fseek(file, offset + long(vtfuGetDataOffset(header)), SEEK_SET) != 0) {
        vtfuLogMessage(1, "Failed to wind file to data!");
        return 0;
    }
    if (std::fread(data, sizeof *data, 1, file) != 1) {
        vtfuLogMessage(1, "Failed to read data from file!");
        return 0;
    }
    if (std::memcmp(data->Signature, "PCIR", 4) != 0) {
        vtfuLogMessage(1, "Failed to recognize data signature!");
        return 0;
    }
    return 1;
}

VTAPI_EXPORT const uint8_t *vtfuGetBootCodeEnd(const uint8_t *image, uint32_t size) {
    if (image == nullptr) return nullptr;
    uint64_t pos = 0;
    while (pos < size) {
        PCI_DATA_STRUCTURE data;
        if (!vtfuGetHeaderAndData(image + pos, uint32_t(size - pos), nullptr, &data)) return nullptr;
        const uint32_t length = vtfuGetImageLength(&data);
        if (vtfuIsLastImage(&data)) return pos + length <= size ? image + pos + length : nullptr;
        if (length == 0) return nullptr;
        pos += length;
    }
    return nullptr;
}

VTAPI_EXPORT uint32_t vtfuIsBIOSImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && data->CodeType == VTFU_CODE_TYPE_X86;
}

VTAPI_EXPORT uint32_t vtfuIsFcodeImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && data->CodeType == VTFU_CODE_TYPE_OPENFW;
}

VTAPI_EXPORT uint32_t vtfuIsEfiImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && data->CodeType == VTFU_CODE_TYPE_EFI;
}

VTAPI_EXPORT uint32_t vtfuIsPXEImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && (data->CodeType == VTFU_CODE_TYPE_X86 || data->CodeType == VTFU_CODE_TYPE_PARISC);
}

VTAPI_EXPORT uint32_t vtfuIsLastImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && (data->Indicator & kLastImage) != 0;
}

VTAPI_EXPORT uint32_t vtfuIsVendorImage(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr && Le16(data->VendorId) == VTFU_MAKER_VENDOR_ID;
}

// Device IDs 1 to 3 mark VPD and firmware images, not drivers.
VTAPI_EXPORT uint32_t vtfuIsDriverImage(const PCI_DATA_STRUCTURE *data) {
    if (data == nullptr) return 0;
    const uint16_t id = Le16(data->DeviceId);
    return id == 0 || id >= 4;
}

VTAPI_EXPORT uint32_t vtfuGetDataOffset(const PCI_ROM_HEADER *header) {
    return header != nullptr ? Le16(header->DataOffset) : 0;
}

VTAPI_EXPORT uint32_t vtfuGetDataLength(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr ? Le16(data->Length) : 0;
}

VTAPI_EXPORT uint32_t vtfuGetImageLength(const PCI_DATA_STRUCTURE *data) {
    return data != nullptr ? uint32_t(Le16(data->ImageLength)) << 9 : 0;
}

VTAPI_EXPORT void vtfuPrintDataStructure(uint32_t index, const PCI_DATA_STRUCTURE *data) {
    if (data == nullptr) return;
    const uint16_t device = Le16(data->DeviceId);
    vtfuLogMessage(0, "Image %d  %s", static_cast<int>(index), vtfuIsLastImage(data) ? "(Last)" : "(More)");
    vtfuLogMessage(0, "Signature %.4s", data->Signature);
    vtfuLogMessage(0, "Vendor Id %04X", Le16(data->VendorId));
    vtfuLogMessage(0, "Device Id %04X %s", device, DeviceLabel(device));
    vtfuLogMessage(0, "Revision  %02d.%02d", data->CodeRevision[1], data->CodeRevision[0]);
    vtfuLogMessage(0, "Length    %ld bytes", static_cast<long>(vtfuGetImageLength(data)));
    vtfuLogMessage(0, "Code Type %02X  %s", data->CodeType, CodeTypeLabel(data->CodeType));
}

}  // extern "C"
