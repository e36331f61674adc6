// Builders of flash images: RISC firmware, PCI expansion-ROM chains of boot
// code, VPD blocks, multi-image containers with their image layout table
// (ILT), the flash layout table locator, the signature region and the
// FC-NVMe boot parameter region.  The simulated host fills its adapters'
// flash with these images, and tests of the image readers use them as input.
//
// All builders produce complete byte images with every checksum set.  They
// throw std::invalid_argument when a field does not fit its format.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vtsdm::image {

// Flash region type codes.  0x01, 0x07 and 0x9E are the codes the image
// readers know; 33, 334 and 377 are the FC-NVMe boot parameter regions (33 on
// chip type codes 24-26, 334 and 377 the active and inactive copies on later
// chips).  The readers leave the VPD, global NVRAM and layout-table regions
// to the flash layout, so this module assigns them codes that no image
// component uses.
constexpr uint32_t kRegionRiscFirmware = 0x01;
constexpr uint32_t kRegionBootCode = 0x07;
constexpr uint32_t kRegionSignature = 0x9E;
constexpr uint32_t kRegionVpd = 0x8C;
constexpr uint32_t kRegionGlobalNvram = 0x8D;
constexpr uint32_t kRegionImageLayoutTable = 0x8E;
constexpr uint32_t kRegionFlashMemo = 0x9A;  // the card's memo block, written with each update
constexpr uint32_t kRegionNvmeBoot = 33;
constexpr uint32_t kRegionNvmeBootActive = 334;
constexpr uint32_t kRegionNvmeBootInactive = 377;

constexpr uint16_t kVendorId = 0x1077;

struct Version {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint8_t subminor = 0;
    bool operator==(const Version &) const = default;
};

// "3.67", "9.12.01", "01.02.03": one to three decimal fields of 0-255,
// missing fields are 0.  Surrounding blanks are ignored.
std::optional<Version> ParseVersion(std::string_view text);

// Family firmware (FFV) version: one to four fields, as "10.02.03.04".
using FfvVersion = std::array<uint8_t, 4>;
std::optional<FfvVersion> ParseFfvVersion(std::string_view text);

// ---- RISC firmware (regions 0x01 and 0xA4) ----
// Header words, big-endian: major at 16, minor at 20, sub-minor at 24,
// attribute word at 32.  totalSize is at least 128 bytes.
std::vector<uint8_t> BuildRiscFirmware(Version v, uint32_t attributeWord, size_t totalSize);

// ---- PCI expansion-ROM chain (boot code) ----
enum class CodeType : uint8_t { Bios = 0, FCode = 1, Efi = 3 };

struct BootImage {
    Version version;  // the revision field carries major (high byte) and minor (low byte)
    size_t size = 0;  // bytes, rounded up to 512; 0 chooses 4 KiB (8 KiB for EFI)
};

struct BootImages {
    std::optional<BootImage> bios;
    std::optional<BootImage> fcode;
    std::optional<BootImage> efi;
    // Up to four characters of chip identifier written at byte 9 of the
    // first image when it is a BIOS or FCode image (a standard boot file
    // carries the adapter's hardware type there).
    std::string chipId;
};

// Any expansion-ROM image: the code types of boot code (0 x86 for BIOS and
// PXE, 1 Open Firmware for FCode, 2 PA-RISC for PXE, 3 EFI) or any other
// value; device IDs 1 to 3 mark VPD and firmware images rather than drivers.
struct RomImageRecipe {
    uint8_t codeType = 0;
    Version version;  // the revision field carries major (high byte) and minor
    size_t size = 0;  // bytes, rounded up to 512; 0 chooses 4 KiB (8 KiB for EFI)
    uint16_t vendorId = kVendorId;
    uint16_t deviceId = 0;
    std::string chipId;  // up to four characters at byte 9 (not on EFI images)
    // A common BIOS image: "MODL" at byte 64 and this adapter-type code at 20.
    std::optional<uint8_t> commonAdapterCode;
};

// The images in order, the last one carrying the last-image indicator, each
// ending with its option-ROM checksum byte (see BuildExpansionRomChain).
std::vector<uint8_t> BuildRomChain(const std::vector<RomImageRecipe> &images);

// Images in the order BIOS, FCode, EFI; the last one present carries the
// last-image indicator.  Each image ends with its option-ROM checksum byte:
// the bytes of the image except the one before the last sum to zero, and
// that byte is left 0 so the whole image sums to zero as well.
std::vector<uint8_t> BuildExpansionRomChain(const BootImages &b, uint16_t vendorId, uint16_t deviceId);

// ---- Vital product data ----
using VpdFields = std::vector<std::pair<std::string, std::string>>;

// 0x82 identifier, 0x90 read-only keywords closed by "RV", 0x91 read-write
// keywords (omitted when empty), 0x78 end tag.  The "RV" checksum byte makes
// every byte from the start through itself sum to zero.  An "RV" entry in
// readOnly is ignored.  Keywords are two characters, values at most 255 bytes.
std::vector<uint8_t> BuildVpd(const std::string &identifier, const VpdFields &readOnly, const VpdFields &readWrite);

// True when the block holds an "RV" keyword in its read-only section and the
// bytes from the start through the RV checksum byte sum to zero.
bool VpdChecksumOk(const std::vector<uint8_t> &vpd);

// ---- Multi-image container with image layout table ----
struct BuildDate {
    uint16_t year = 2024;
    uint8_t month = 1;
    uint8_t day = 1;
};

struct CardEntry {
    uint16_t vendorId = kVendorId;
    uint16_t deviceId = 0;
    uint16_t subVendorId = 0xFFFF;  // 0xFFFF is a wildcard
    uint16_t subSystemId = 0xFFFF;  // 0xFFFF is a wildcard
};

struct CardTypeList {
    uint16_t cardType = 0;  // 0 is the default list
    std::vector<CardEntry> entries;
};

struct Component {
    uint16_t regionType = 0;
    Version version;
    uint16_t cardType = 0;      // 0: every card type
    uint16_t chipRevision = 0;  // 0: any revision
    std::vector<uint8_t> payload;
};

struct MultiImageRecipe {
    std::string signature = "VFIM";  // "VFIM" or "VILT"
    uint16_t tableVersion = 2;
    Version imageVersion;
    BuildDate buildDate;
    FfvVersion ffv{};
    uint8_t activationLevel = 0;  // header byte 25
    std::vector<Component> components;
    std::vector<CardTypeList> cardLists;
    // Time-stamp entry; the builder writes the build date at hour and minute
    // 0 with the update marker 0x1400.
};

// The table (header, region entries, time stamp, card-type section) followed
// by the payloads, each at a 16-byte aligned offset named by its entry.
std::vector<uint8_t> BuildMultiImage(const MultiImageRecipe &in);

// Length of the table BuildMultiImage puts in front of the payloads.
size_t MultiImageTableLength(const MultiImageRecipe &in);

// ---- Other flash structures ----
// 16-byte flash layout table locator: "VFLT", the table offset as two 16-bit
// halves (low first), a structure version 1 and a checksum word making the
// eight 16-bit words sum to zero.
std::vector<uint8_t> BuildFltLocator(uint32_t fltOffset);

// Signature region 0x9E: "08KS" at 0 and 388, version bytes 7, 6, 5 (first,
// second, third field), a 32-bit checksum word at 8 making the 32-bit words
// of the covered length sum to zero, the covered length (= size) at 12.
// size is a multiple of 4 and at least 392.
std::vector<uint8_t> BuildSignatureRegion(Version v, size_t size = 512);

// FC-NVMe boot parameter region: four empty 2560-byte blocks ("VNVM",
// version 1, length 2560, checksum) at 0, 4096, 8192 and 12288 for port
// indexes 1 to 4, erased (0xFF) bytes between them; 16 KiB in all.
std::vector<uint8_t> BuildNvmeBootRegion();

// ---- Firmware components ----
constexpr uint32_t kCrbinitSignature = 0x40400000;
constexpr uint32_t kPegtuneSignature = 0x40400001;
constexpr uint32_t kBootloaderSignature = 0x40400002;
constexpr uint32_t kNicFirmwareSignature = 0x40400003;
constexpr uint32_t kMpiConfigSignature = 0x4D504346;  // the bytes "FCPM"
using Version4 = std::array<uint8_t, 4>;

// EDC PHY firmware (0x45): signature 0x5555BBBB at 0, the version in bytes
// 17, 18 and 19, the big-endian type word 0x20000008 at 32.  The MPI firmware
// of the converged families (0x40) is the same without the signature and
// with the type word 0x10000008.  size is at least 36.
std::vector<uint8_t> BuildEdcFirmware(Version v, size_t size);
std::vector<uint8_t> BuildNicMpiFirmware(Version v, size_t size);
// MPI configuration parameters (0x41): the signature word at 0 and at 4 the
// two's complement of the sum of the first 1280 bytes as 32-bit words taken
// with that word zeroed.  1280 <= size <= 64 KiB.
std::vector<uint8_t> BuildMpiConfig(size_t size = 4096);
// CRBinit, pegtune and bootloader: a 32-byte trailer at the end (signature,
// version bytes) and a 32-bit word sum of zero over the component.  size is a
// multiple of 4, at least 64.
std::vector<uint8_t> BuildTrailerComponent(uint32_t signature, Version v, size_t size);
// NIC firmware (0x74, 0x97): signature 0x40400003, version bytes 4 to 6, the
// length (= size) at 12, a 32-bit word sum of zero.  size as above.
std::vector<uint8_t> BuildNicFirmware(Version v, size_t size);
// FC MPI firmware and SoftROM (0xD3, 0xE1, 0x101): the version as big-endian
// words at 16, 20 and 24.  size is at least 28.
std::vector<uint8_t> BuildFcMpiFirmware(Version v, size_t size);
// PEP firmware and SoftROM (0xD1, 0xD2): version fields one to four at bytes
// 79, 78, 77, 76 (size at least 80).  PEP board configuration (0xCF): at 7,
// 6, 5, 4 (size at least 8).
std::vector<uint8_t> BuildPepComponent(Version4 v, size_t size);
std::vector<uint8_t> BuildPepBoardConfig(Version4 v, size_t size);
// A component without a header of its own (preload area, board
// configuration, SerDes table), filled from the seed.
std::vector<uint8_t> BuildOpaqueComponent(size_t size, uint32_t seed);

// ---- PLDM firmware-update package ----
struct PldmRecipe {
    uint8_t formatRevision = 1;   // 1 to 4 (1.0 to 1.3)
    std::string version = "1.0";  // package version string
    size_t deviceRecords = 1;
    size_t components = 1;  // component entries, each naming the payload
};
// The package header (identifier of the revision, firmware device records,
// component image information, CRC-32) followed by the payload.
std::vector<uint8_t> BuildPldmPackage(const std::vector<uint8_t> &payload, const PldmRecipe &recipe = {});
// CRC-32 of the PLDM header checksum (the ISO 3309 polynomial).
uint32_t Crc32(const uint8_t *data, size_t size);

// ---- Sample multi-image files ----
enum class ImageFamily { kKite, kWren, kOtherFc, kTern, kOrla, kTove };
// A valid image for the family with one component of each type its
// validator checks, all meant for every card type and chip revision except
// the Tern firmware (0x74), which is for chip revision 0x54 (the NIC
// families also need a non-zero adapter revision).  The card is listed for
// card type 1 and in the default list, in that order.  componentSize sizes
// the firmware-like components (at least 128 bytes), and bounds the boot
// images (512 bytes to 4 KiB) and the smaller components (1 KiB at most).
MultiImageRecipe SampleImage(ImageFamily family, const CardEntry &card, size_t componentSize = 4096);
// Index of the first component of the type in the recipe, or npos.
size_t ComponentIndex(const MultiImageRecipe &recipe, uint16_t regionType);

// ---- Deliberate faults in a built multi-image file ----
// Each changes one thing and refreshes the table checksum (except
// TableChecksum), so that only the intended fault is present.  Positions are
// taken from the header as it stands.
namespace mutate {
void Signature(std::vector<uint8_t> &mbi, std::string_view four);
void TableVersion(std::vector<uint8_t> &mbi, uint16_t version);
void TableChecksum(std::vector<uint8_t> &mbi);
void RegionCount(std::vector<uint8_t> &mbi, uint16_t n);  // N, oversized or short
void CardListCount(std::vector<uint8_t> &mbi, uint16_t lists);
void CardListEntries(std::vector<uint8_t> &mbi, size_t list, uint16_t entries);
void Card(std::vector<uint8_t> &mbi, size_t list, size_t entry, const CardEntry &card);
void RegionType(std::vector<uint8_t> &mbi, size_t region, uint16_t type);
void RegionChipRevision(std::vector<uint8_t> &mbi, size_t region, uint16_t revision);
void RegionCardType(std::vector<uint8_t> &mbi, size_t region, uint16_t cardType);
void RegionVersion(std::vector<uint8_t> &mbi, size_t region, Version v);
void RegionExtent(std::vector<uint8_t> &mbi, size_t region, uint32_t offset, uint32_t length);
// The bytes of a region entry's component.
std::span<uint8_t> ComponentBytes(std::vector<uint8_t> &mbi, size_t region);
// Flips a byte of a component (a broken checksum or signature, by position).
void CorruptComponent(std::vector<uint8_t> &mbi, size_t region, size_t at);
enum class RomBreak {
    kNoLastImage,    // the last image loses its indicator: the chain runs off
    kRomSignature,   // 0x55 0xAA of the image
    kDataSignature,  // "PCIR"
    kChecksum,       // a byte inside the image
    kNotADriver,     // device ID 1 (VPD data)
    kCodeType,       // code type 0x7F
};
// Breaks image `image` (counted from 0) of an expansion-ROM chain.
void BreakRomChain(std::span<uint8_t> chain, RomBreak how, size_t image = 0);
void Truncate(std::vector<uint8_t> &bytes, size_t size);
}  // namespace mutate

// ---- Flash contents of a simulated adapter ----
struct FlashSetRecipe {
    std::optional<Version> bios;
    std::optional<Version> fcode;
    std::optional<Version> efi;
    Version firmware;
    Version multiboot;  // image version of the layout table
    FfvVersion ffv{};
    BuildDate buildDate;
    uint16_t deviceId = 0;
    uint16_t subVendorId = 0;
    uint16_t subSystemId = 0;
    uint32_t riscAttribute = 64;
    size_t firmwareSize = 16 * 1024;
    std::string chipId;  // see BootImages::chipId
    std::string vpdIdentifier;
    VpdFields vpdReadOnly;
    VpdFields vpdReadWrite;
    std::vector<uint8_t> globalNvram;  // empty: 512 zero bytes
    std::vector<uint32_t> nvmeBootRegions{kRegionNvmeBoot};
};

struct FlashRegion {
    uint32_t type = 0;
    std::vector<uint8_t> bytes;
};

// Regions in this order: boot code 0x07, RISC firmware 0x01, VPD, global
// NVRAM, the FC-NVMe boot regions asked for, and the layout table.  The
// layout table is the table of the multi-image container that would carry
// the boot code and firmware (entries 0x07 with the BIOS version and 0x01
// with the firmware version, card lists: the default list and card type 1,
// both holding the adapter's exact IDs).
std::vector<FlashRegion> BuildFlashSet(const FlashSetRecipe &in);

}  // namespace vtsdm::image
