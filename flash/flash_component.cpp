// Version texts: of one component as it stands in an adapter's flash (read
// from the component's own header where the format has one, else taken from
// the component's entry in the image layout table kept in the flash), and
// the labelled lines of a version record.
#include <cstdio>

#include "flash_image.h"

namespace vtflash {
namespace {

std::string Text(const char *format, int a, int b, int c, int d = 0) {
    char text[64];
    std::snprintf(text, sizeof text, format, a, b, c, d);
    return text;
}

bool Has(Bytes b, size_t end) { return b.size() >= end; }

std::optional<std::string> FromLayoutTable(uint32_t type, Bytes ilt) {
    const uint32_t size = uint32_t(ilt.size());
    const ILT_Header_t *h = size >= sizeof(ILT_Header_t) ? reinterpret_cast<const ILT_Header_t *>(ilt.data()) : nullptr;
    if (h == nullptr || !vtfuILT_Header_CompareSignature(h)) return std::nullopt;
    const int64_t last = int64_t(vtfuILT_Header_GetNumOfRegionEntries(h)) - 2;
    for (int64_t i = 0; i <= last; ++i) {
        const ILT_Region_t *e = vtfuILT_Region_GetRegionByIndex(ilt.data(), size, uint32_t(i));
        if (e == nullptr) break;
        if (RegionType(*e) == type) return Text("%02d.%02d.%02d", e->Version[0], e->Version[1], e->Version[2]);
    }
    return std::nullopt;
}

}  // namespace

std::vector<std::string> VersionLines(const VTAPI_FlashImageVersion &v) {
    std::vector<std::string> lines;
    auto has = [&](uint32_t bit) { return (v.Present & bit) != 0; };
    auto three = [&](uint32_t bit, const char *format, const uint8_t *f) {
        if (has(bit)) lines.push_back(Text(format, f[0], f[1], f[2]));
    };
    auto four = [&](uint32_t bit, const char *format, const uint8_t *f) {
        if (has(bit)) lines.push_back(Text(format, f[0], f[1], f[2], f[3]));
    };
    // Boot code carries major and minor; the third field is printed as 0.
    auto boot = [&](uint32_t bit, const char *format, const uint8_t *f) {
        if (has(bit)) lines.push_back(Text(format, f[0], f[1], 0));
    };
    three(VTAPI_FLASH_HAS_FIRMWARE, "Firmware version: %d.%d.%d", v.Firmware);
    three(VTAPI_FLASH_HAS_FCOE_FIRMWARE, "FCoE Firmware version: %d.%d.%d", v.FcoeFirmware);
    boot(VTAPI_FLASH_HAS_BIOS, "BIOS version: %d.%d.%d", v.Bios);
    boot(VTAPI_FLASH_HAS_FCODE, "FCode version: %d.%d.%d", v.FCode);
    boot(VTAPI_FLASH_HAS_EFI, "EFI version: %d.%d.%d", v.Efi);
    boot(VTAPI_FLASH_HAS_BIOS_EXP, "BIOS Exp. version: %d.%d.%d", v.BiosExp);
    boot(VTAPI_FLASH_HAS_FCODE_EXP, "FCode Exp. version: %d.%d.%d", v.FCodeExp);
    boot(VTAPI_FLASH_HAS_EFI_EXP, "EFI Exp. version: %d.%d.%d", v.EfiExp);
    boot(VTAPI_FLASH_HAS_PXE, "PXE version: %d.%d.%d", v.Pxe);
    four(VTAPI_FLASH_HAS_MPI_FW, "MPI Fw version: %02d.%02d.%02d.%02d", v.MpiFirmware);
    four(VTAPI_FLASH_HAS_MPI_SOFTROM, "MPI SoftROM version: %02d.%02d.%02d.%02d", v.MpiSoftROM);
    four(VTAPI_FLASH_HAS_PEP_FW, "PEP Firmware version: %02d.%02d.%02d.%02d", v.PepFirmware);
    four(VTAPI_FLASH_HAS_PEP_SOFTROM, "PEP SoftROM version: %02d.%02d.%02d.%02d", v.PepSoftROM);
    three(VTAPI_FLASH_HAS_PEP_BOARD_CFG, "FEP Board Config version: %02d.%02d.%02d", v.PepBoardConfig);
    three(VTAPI_FLASH_HAS_FC_BOARD_CFG, "FC Board Config version: %02x.%02x.%02x", v.FcBoardConfig);
    three(VTAPI_FLASH_HAS_FW_PRELOAD, "Fw Preload Area version: %02x.%02x.%02x", v.FwPreload);
    three(VTAPI_FLASH_HAS_PCIE_SERDES, "PCIe Serdes version: %02d.%02d.%02d", v.PcieSerdes);
    three(VTAPI_FLASH_HAS_FC_SOFTROM, "FC SoftROM version: %02d.%02d.%02d", v.FcSoftROM);
    three(VTAPI_FLASH_HAS_SIGNATURE, "Signature Region version: %d.%d.%d", v.SignatureRegion);
    three(VTAPI_FLASH_HAS_NIC_FW, "NIC Firmware version: %d.%d.%d", v.NicFirmware);
    three(VTAPI_FLASH_HAS_CRBINIT, "CRBinit version: %d.%d.%d", v.CRBinit);
    three(VTAPI_FLASH_HAS_PEGTUNE, "Pegtune version: %d.%d.%d", v.Pegtune);
    three(VTAPI_FLASH_HAS_BOOTLOADER, "Bootloader version: %d.%d.%d", v.Bootloader);
    three(VTAPI_FLASH_HAS_EDC_FW, "EDC Fw version: %d.%d.%d", v.EdcFirmware);
    return lines;
}

std::optional<std::string> ComponentVersionText(uint32_t type, Bytes r, Bytes flashIlt) {
    switch (type) {
    case VTFU_REGION_FW:
    case VTFU_REGION_FCOE_FW:
        if (Has(r, 28)) return Text("%d.%02d.%02d", int(Be32(&r[16])), int(Be32(&r[20])), int(Be32(&r[24]) & 0xFF));
        break;
    case VTFU_REGION_BOOT_CODE:
    case VTFU_REGION_BOOT_CODE_EXP:
    case VTFU_REGION_NIC_BOOT_CODE:
    case VTFU_REGION_ISCSI_BOOT_CODE:
    case VTFU_REGION_FCOE_BOOT_CODE: {
        PCI_DATA_STRUCTURE data;
        if (vtfuGetHeaderAndData(r.data(), uint32_t(r.size()), nullptr, &data))
            return Text("%d.%02d", data.CodeRevision[1], data.CodeRevision[0], 0);
        break;
    }
    case VTFU_REGION_SIGNATURE:
        if (Has(r, 392) && Le32(r.data()) == VTFU_KITE_SIGNATURE && Le32(&r[388]) == VTFU_KITE_SIGNATURE)
            return Text("%d.%d.%d", r[7], r[6], r[5]);
        break;
    case VTFU_REGION_PEP_FW:
    case VTFU_REGION_PEP_SOFTROM:
        if (Has(r, 80)) return Text("%02d.%02d.%02d.%02d", r[79], r[78], r[77], r[76]);
        break;
    case VTFU_REGION_PEP_BOARD_CONFIG:
        if (Has(r, 8)) return Text("%02d.%02d.%02d.%02d", r[7], r[6], r[5], r[4]);
        break;
    case VTFU_REGION_MPI_FW:
    case VTFU_REGION_MPI_FW_2:
    case VTFU_REGION_MPI_SOFTROM:
        if (Has(r, 28)) return Text("%02d.%02d.%02d", r[19], r[23], r[27]);
        break;
    case VTFU_REGION_EDC_FW:
    case VTFU_REGION_MPI_FW_FCOE:
        if (Has(r, 36)) return Text("%d.%d.%d", r[17], r[18], r[19]);
        break;
    case VTFU_REGION_CRBINIT:
    case VTFU_REGION_BOOTLOADER:
    case VTFU_REGION_PEGTUNE:
        if (Has(r, sizeof(VTFU_ComponentTrailer))) {
            const uint8_t *t = r.data() + r.size() - sizeof(VTFU_ComponentTrailer);
            return Text("%d.%d.%d", t[4], t[5], t[6]);
        }
        break;
    case VTFU_REGION_TERN_FW:
    case VTFU_REGION_NIC_FW:
        if (Has(r, 16) && Le32(r.data()) == VTFU_NIC_FW_SIGNATURE) return Text("%d.%d.%d", r[4], r[5], r[6]);
        break;
    case VTFU_REGION_FLASH_ILT:
        if (Has(r, sizeof(ILT_Header_t)) &&
            vtfuILT_Header_CompareSignature(reinterpret_cast<const ILT_Header_t *>(r.data())))
            return Text("%d.%02d.%02d", r[13], r[14], r[15]);
        break;
    default: break;
    }
    return FromLayoutTable(type, flashIlt);
}

}  // namespace vtflash
