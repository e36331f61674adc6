// Flash image files and the adapter's flash layout: the records of the
// multi-image container (image layout table, ILT), the flash layout table
// locator, the component headers and trailers, the PCI expansion-ROM chain of
// boot code and the checksums over them; and the validation of an image
// against an adapter.
//
// Every record below is made of byte fields only, so it can be read at any
// address of a file buffer; multi-byte fields are little-endian unless their
// comment says otherwise.  Every function that reads a buffer takes its
// length and reads nothing outside it; a function handed a record pointer
// (ILT_Region_t, PCI_DATA_STRUCTURE, ...) reads exactly that record, which
// the caller got from a bounded accessor.  No function frees what it is
// given.
//
// The functions are exported under their own names (a program that loads the
// library may replace any of them) and call each other through the dynamic
// symbol table.  Log lines of the flash-update layer go through
// vtfuLogMessage; those of the Kite and Wren validators through
// TarnLogMessage at the debug level.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "vtapi_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------ statuses */
#define VTFU_OK                      0u
#define VTFU_MEMORY_ALLOC_FAILURE    4u
#define VTFU_BUFFER_TOO_SMALL        5u /* also: no matching card type */
#define VTFU_ILT_SIGNATURE_MISMATCH  6u
#define VTFU_ILT_UNSUPPORTED_VERSION 25u
#define VTFU_CHIP_REVISION_NOT_FOUND 26u
#define VTFU_NONE                    0xFFFFFFFFu

/* Statuses of the validation paths. */
#define FLASH_ST_NO_ADAPTER     7u
#define FLASH_ST_CORRUPTED      6u
#define FLASH_ST_INCOMPATIBLE   5u
#define FLASH_ST_WRONG_ADAPTER  10u
#define FLASH_ST_BAD_CHECKSUM   12u
#define FLASH_ST_NO_MEMORY      115u
#define FLASH_ST_NOT_SUPPORTED  121u
#define FLASH_ST_ILT_SIGNATURE  450u
#define FLASH_ST_ILT_TOO_SMALL  451u /* also: no matching card type */
#define FLASH_ST_REGION_MISSING 505u
#define FLASH_ST_ILT_VERSION    506u
#define FLASH_ST_ILT_UNREADABLE 507u
/* ReadFlashImageILT: the file's regions do not fit the adapter's flash. */
#define FLASH_LAYOUT_MISMATCH 0x208u

/* Region type codes that the validators name. */
#define VTFU_REGION_FW               0x01u
#define VTFU_REGION_BOOT_CODE        0x07u
#define VTFU_REGION_BOOT_CODE_EXP    0x11u
#define VTFU_REGION_FW_PRELOAD       0x13u
#define VTFU_REGION_NIC_BOOT_CODE    0x2Eu
#define VTFU_REGION_MPI_FW_FCOE      0x40u
#define VTFU_REGION_MPI_CONFIG       0x41u
#define VTFU_REGION_EDC_FW           0x45u
#define VTFU_REGION_ISCSI_BOOT_CODE  0x4Fu
#define VTFU_REGION_TRUNK_PEP_FW     0x66u
#define VTFU_REGION_CRBINIT          0x70u
#define VTFU_REGION_BOARD_CONFIG     0x71u
#define VTFU_REGION_BOOTLOADER       0x72u
#define VTFU_REGION_PEGTUNE          0x73u
#define VTFU_REGION_TERN_FW          0x74u
#define VTFU_REGION_NIC_FW           0x97u
#define VTFU_REGION_SIGNATURE        0x9Eu
#define VTFU_REGION_FCOE_BOOT_CODE   0xA2u
#define VTFU_REGION_FCOE_FW          0xA4u
#define VTFU_REGION_FC_BOARD_CONFIG  0xBAu
#define VTFU_REGION_PEP_BOARD_CONFIG 0xCFu
#define VTFU_REGION_PEP_FW           0xD1u
#define VTFU_REGION_PEP_SOFTROM      0xD2u
#define VTFU_REGION_MPI_FW           0xD3u
#define VTFU_REGION_MPI_FW_2         0xE1u
#define VTFU_REGION_MPI_SOFTROM      0x101u
#define VTFU_REGION_PCIE_SERDES      0x102u
#define VTFU_REGION_FC_SOFTROM       0x103u
/* The region of the adapter's flash that holds its image layout table. */
#define VTFU_REGION_FLASH_ILT  0x8Eu
#define VTFU_REGION_FLASH_MEMO 0x9Au /* memo block: what the last update wrote */

/* Expected firmware attribute words and header constants. */
#define VTFU_FW_ATTR_GENERIC      8u
#define VTFU_FW_ATTR_ORLA_FC      32u
#define VTFU_FW_ATTR_ORLA_FCOE    16u
#define VTFU_FW_ATTR_WREN         64u
#define VTFU_EDC_SIGNATURE        0x5555BBBBu
#define VTFU_EDC_TYPE             0x20000008u
#define VTFU_MPI_TYPE             0x10000008u
#define VTFU_MPI_CONFIG_SIGNATURE 0x4D504346u /* the bytes "FCPM" */
#define VTFU_MPI_CONFIG_BUFFER    (64u * 1024u)
#define VTFU_MPI_CONFIG_SUMMED    1280u
#define VTFU_CRBINIT_SIGNATURE    0x40400000u
#define VTFU_PEGTUNE_SIGNATURE    0x40400001u
#define VTFU_BOOTLOADER_SIGNATURE 0x40400002u
#define VTFU_NIC_FW_SIGNATURE     0x40400003u
#define VTFU_KITE_SIGNATURE       0x534B3830u /* the bytes "08KS" */
#define VTFU_TERN_BAD_FLT_OFFSET  0x3F1000u
#define VTFU_MAKER_VENDOR_ID      0x1077u

/* --------------------------------------------------- image layout table */
#define VTFU_ILT_SLOT        32u
#define VTFU_ILT_MAX_REGIONS 256u
#define VTFU_ILT_MAX_CARDS   1024u

typedef struct ILT_Header_t {
    char Signature[4]; /* "VFIM" or "VILT" */
    uint8_t TableVersion[2];
    uint8_t TableLength[2]; /* bytes of the whole table */
    uint8_t TableCheckSum[2];
    uint8_t NumOfRegionEntries[2]; /* N: region entries plus the time stamp */
    uint8_t Reserved12;
    uint8_t ImageVersion[3]; /* major, minor, sub-minor */
    uint8_t BuildMonth;
    uint8_t BuildDay;
    uint8_t BuildYear[2];
    uint8_t Reserved20;
    uint8_t FFVVersion[4];
    uint8_t ActivationLevel; /* read from table version 5 on */
    uint8_t Reserved26[6];
} ILT_Header_t;

typedef struct ILT_Region_t {
    uint8_t RegionType[2];
    uint8_t Reserved2;
    uint8_t Version[3];      /* major, minor, sub-minor */
    uint8_t Offset[4];       /* two 16-bit halves, low half first */
    uint8_t Length[4];       /* likewise */
    uint8_t CardType[2];     /* card-type bit mask, 0: every card */
    uint8_t ChipRevision[2]; /* 0: any revision */
    uint8_t Reserved18[14];
} ILT_Region_t;

typedef struct ILT_Timestamp_t {
    uint8_t Reserved0[6];
    uint8_t Year[2];
    uint8_t Month;
    uint8_t Day;
    uint8_t Hour;
    uint8_t Minute;
    uint8_t Marker[2]; /* 0x1400 after an update */
    uint8_t Reserved14[18];
} ILT_Timestamp_t;

typedef struct ILT_CardTypeHeader_t {
    uint8_t NumOfCardTypeLists[2];
    uint8_t Reserved2[6];
} ILT_CardTypeHeader_t;

typedef struct ILT_CardTypeList_t {
    uint8_t CardType[2]; /* 0: the default list */
    uint8_t NoEntriesInList[2];
    uint8_t Reserved4[4];
} ILT_CardTypeList_t;

typedef struct ILT_CardTypeList_Entry_t {
    uint8_t VendorId[2];
    uint8_t DeviceId[2];
    uint8_t SubVendorId[2]; /* 0xFFFF: any */
    uint8_t SubDeviceId[2]; /* 0xFFFF: any */
} ILT_CardTypeList_Entry_t;

/* Flash layout table locator. */
typedef struct FLTDS_t {
    char Signature[4];    /* "VFLT" */
    uint8_t FltOffset[4]; /* two 16-bit halves, low half first */
    uint8_t Rest[8];
} FLTDS_t;

/* ------------------------------------------------ component headers */
typedef struct VTFU_RiscFirmwareHeader { /* first 120 bytes of the component */
    uint8_t Reserved0[16];
    uint8_t Major[4];    /* big-endian */
    uint8_t Minor[4];    /* big-endian */
    uint8_t SubMinor[4]; /* big-endian, low byte shown */
    uint8_t Reserved28[4];
    uint8_t Attributes[4]; /* big-endian */
    uint8_t Reserved36[84];
} VTFU_RiscFirmwareHeader;
#define VTFU_RISC_HEADER_SIZE 120u

typedef struct VTFU_EdcFirmwareHeader { /* EDC PHY and MPI firmware: 36 bytes */
    uint8_t Signature[4];               /* EDC only: 0x5555BBBB */
    uint8_t Reserved4[12];
    uint8_t Version[4]; /* bytes 1, 2, 3: major, minor, sub-minor */
    uint8_t Reserved20[12];
    uint8_t Type[4]; /* big-endian */
} VTFU_EdcFirmwareHeader;

typedef struct VTFU_ComponentTrailer { /* last 32 bytes of CRBinit, pegtune, bootloader */
    uint8_t Signature[4];
    uint8_t Version[3];
    uint8_t Reserved7[25];
} VTFU_ComponentTrailer;

/* ------------------------------------------- PCI expansion-ROM images */
typedef struct PCI_ROM_HEADER { /* 32 bytes read */
    uint8_t Signature[2];       /* 0x55 0xAA */
    uint8_t SizeUnits;          /* 512-byte units, a signed byte */
    uint8_t Reserved3[0x15];
    uint8_t DataOffset[2]; /* offset of the PCI data structure */
    uint8_t Reserved1A[6];
} PCI_ROM_HEADER;

typedef struct PCI_DATA_STRUCTURE { /* 32 bytes read */
    char Signature[4];              /* "PCIR" */
    uint8_t VendorId[2];
    uint8_t DeviceId[2];
    uint8_t Reserved8[2];
    uint8_t Length[2];
    uint8_t StructRevision;
    uint8_t ClassCode[3];
    uint8_t ImageLength[2];  /* 512-byte units */
    uint8_t CodeRevision[2]; /* high byte major, low byte minor */
    uint8_t CodeType;
    uint8_t Indicator; /* bit 7: last image */
    uint8_t Reserved16[10];
} PCI_DATA_STRUCTURE;

#define VTFU_CODE_TYPE_X86    0u
#define VTFU_CODE_TYPE_OPENFW 1u
#define VTFU_CODE_TYPE_PARISC 2u
#define VTFU_CODE_TYPE_EFI    3u

/* --------------------------------------------------------- logging */
/* level 0 trace (written while core debug messages are on), 1 structural
 * error, 2 unrecognised region. */
VTAPI_EXPORT void vtfuLogMessage(int32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* -------------------------------------------------------- checksums */
/* Two's complement of the sum of `words` little-endian 16-bit words. */
VTAPI_EXPORT uint16_t vtfuHLPR_Sum16(const uint8_t *data, uint32_t words);
/* The negation of vtfuHLPR_Sum16: zero exactly when that is zero. */
VTAPI_EXPORT uint16_t vtfuCalculateChksum(const uint8_t *data, uint32_t words);
/* Two's complement of the sum of `words` little-endian 32-bit words. */
VTAPI_EXPORT uint32_t vtfuHLPR_Sum32(const uint8_t *data, uint32_t words);
/* Option-ROM byte checksum of the image at `start` of a buffer of `size`
 * bytes (the size byte at start+2 is signed; the byte at start+size-2 is left
 * out of the sum).  With update set, the checksum is written to the last
 * byte.  1 when the last byte holds the checksum; 0 also when the image does
 * not lie within the buffer. */
VTAPI_EXPORT uint32_t vtfuComputeChecksum(uint32_t update, uint8_t *image, uint32_t size, uint32_t start);
VTAPI_EXPORT uint32_t vtfuHLPR_GetDoubleWord(uint16_t low, uint16_t high);
VTAPI_EXPORT uint32_t vtfuHLPR_BEndian4(const uint8_t *bytes);

/* --------------------------------------------- image layout table */
VTAPI_EXPORT uint32_t vtfuILT_Header_CompareSignature(const ILT_Header_t *header);
VTAPI_EXPORT uint32_t vtfuILT_Header_GetImageHeaderSize(void);
VTAPI_EXPORT uint16_t vtfuILT_Header_GetTableVersion(const ILT_Header_t *header);
VTAPI_EXPORT uint16_t vtfuILT_Header_GetTableLength(const ILT_Header_t *header);
uint16_t vtfuILT_Header_GetTableCheckSum(const ILT_Header_t *header);
VTAPI_EXPORT uint16_t vtfuILT_Header_GetNumOfRegionEntries(const ILT_Header_t *header);
/* "%02d.%02d.%02d" / "%02d%02d%02d" into text of size bytes. */
VTAPI_EXPORT void vtfuILT_Header_GetImageVersion(const ILT_Header_t *header, char *text, uint32_t size);
VTAPI_EXPORT void vtfuILT_Header_GetImageVersionNoSeparator(const ILT_Header_t *header, char *text, uint32_t size);

/* Region entry `index` (0 to N-2), or null when the index is out of range
 * or the entry does not lie within the table's size bytes. */
VTAPI_EXPORT const ILT_Region_t *vtfuILT_Region_GetRegionByIndex(const uint8_t *table, uint32_t size, uint32_t index);
VTAPI_EXPORT const ILT_Timestamp_t *vtfuILT_Region_GetTimeStampEntry(const uint8_t *table, uint32_t size);
VTAPI_EXPORT const ILT_CardTypeHeader_t *vtfuILT_CardType_Header_GetCardListHeader(const uint8_t *table, uint32_t size);
/* Number of card-type lists; 0 when the section does not lie within size. */
VTAPI_EXPORT uint32_t vtfuILT_CardType_Header_GetNumOfCardTypeList(const uint8_t *table, uint32_t size);
/* List `index` (whose entries follow it), or null when index is not below
 * the list count (list 0 is returned even for a count of 0) or the list
 * header does not lie within size. */
VTAPI_EXPORT const ILT_CardTypeList_t *vtfuILT_CardTypeList_GetCardTypeListByIndex(const uint8_t *table, uint32_t size,
                                                                                   uint32_t index);
VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_CompareSignature(const ILT_CardTypeList_Entry_t *entry, uint16_t did,
                                                            uint16_t ssdid, uint16_t ssvid);
VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_SearchSignatureInDefaultCardList(const uint8_t *table, uint32_t size,
                                                                            uint16_t did, uint16_t ssdid,
                                                                            uint16_t ssvid);
VTAPI_EXPORT uint32_t vtfuILT_CardTypeList_GetMyCardTypeFromCardList(const uint8_t *table, uint32_t size, uint16_t did,
                                                                     uint16_t ssdid, uint16_t ssvid);
VTAPI_EXPORT uint32_t vtfuILT_TernCardTypeList_GetMyCardTypeFromCardList(const uint8_t *table, uint32_t size,
                                                                         uint16_t did, uint16_t ssdid, uint16_t ssvid);
/* 1 when the table's structure fits in size bytes. */
VTAPI_EXPORT uint32_t vtfuILT_ValidateILTHeader(const uint8_t *table, uint32_t size);
VTAPI_EXPORT uint32_t vtfuCardTypeCompare(uint32_t a, uint32_t b);
VTAPI_EXPORT uint32_t vtfuHowManyImagesForCardType(const uint8_t *table, uint32_t size, int32_t cardType,
                                                   uint32_t chipRevision);
/* Copies the component of entry (Length bytes from Offset of the image) into
 * dst of dstSize bytes: 0, or 0xFFFFFFFF when there is no entry or the
 * component does not lie within the image or dst. */
VTAPI_EXPORT uint32_t vtfuGetSpecificImageComponentInBuffer(uint8_t *dst, uint32_t dstSize, const uint8_t *image,
                                                            uint32_t imageSize, const ILT_Region_t *entry);
/* Copies TableLength bytes of table into dst and stamps the copy with the
 * local time: 0, or 0xFFFFFFFF when the table or dst is too small. */
VTAPI_EXPORT uint32_t vtfuUdpateTimeStamp(uint8_t *dst, uint32_t dstSize, const uint8_t *table, uint32_t size);

/* ------------------------------------------------ flash layout table */
VTAPI_EXPORT uint32_t vtfuValidateFLTLocator(const uint8_t *locator, uint32_t size);
VTAPI_EXPORT uint32_t vtfuValidateTernFLTLocator(const uint8_t *locator, uint32_t size);
/* The adapter's flash layout as libvtsdm reports it (FlashSize, Count, Count
 * descriptors of region type and size) in a buffer the caller releases with
 * free(): 0, or 1 on failure. */
VTAPI_EXPORT uint32_t fcVTFUGetFlashLayoutTable(uint32_t handle, uint8_t **layout, uint32_t *size);

/* ------------------------------------------------ component headers */
/* Copies the first 120 bytes of the firmware component (zero-filled when it
 * is shorter, but at least 36 bytes): 0, or 0xFFFFFFFF. */
VTAPI_EXPORT uint32_t vtfuGetFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                            VTFU_RiscFirmwareHeader *header);
VTAPI_EXPORT void vtfuGetRiscVersion(const VTFU_RiscFirmwareHeader *header, uint32_t *major, uint32_t *minor,
                                     uint32_t *subMinor);
VTAPI_EXPORT void vtfuPrintFirmwareHeader(const VTFU_RiscFirmwareHeader *header);
/* 1 when the header's version equals the entry's and its attribute word is
 * the expected one. */
VTAPI_EXPORT uint32_t vtfuValidateFirmware(const VTFU_RiscFirmwareHeader *header, const ILT_Region_t *entry,
                                           uint32_t attribute);
VTAPI_EXPORT uint32_t vtfuValidateRiscFirmwareImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                                    uint32_t attribute);
VTAPI_EXPORT uint32_t vtfuGetEdcFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               VTFU_EdcFirmwareHeader *header);
VTAPI_EXPORT uint32_t vtfuValidateEdcFirmware(const VTFU_EdcFirmwareHeader *header, const ILT_Region_t *entry);
VTAPI_EXPORT uint32_t vtfuGetMpiFirmwareHeader(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               VTFU_EdcFirmwareHeader *header);
VTAPI_EXPORT uint32_t vtfuValidateMpiFirmware(const VTFU_EdcFirmwareHeader *header, const ILT_Region_t *entry);
/* 0 valid, 4 allocation failure, 5 invalid (too large, signature, checksum). */
VTAPI_EXPORT uint32_t vtfuValidateMpiConfigParamImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry);
/* Zeroes the stored checksum of the configuration in buffer (at least 1280
 * bytes) and checks it: 1 when it matches. */
VTAPI_EXPORT uint32_t vtfuVerifyMpiCfgParamsHeaderChkSum(uint8_t *buffer, uint32_t size);
/* Trailer checks of a component of length bytes: 1 valid.  The trailer's
 * version bytes are stored in version[0..2] when it is not null. */
VTAPI_EXPORT uint32_t vtfuValidateCRBinit(const uint8_t *component, uint32_t length, uint8_t *version);
VTAPI_EXPORT uint32_t vtfuValidatePegtune(const uint8_t *component, uint32_t length, uint8_t *version);
VTAPI_EXPORT uint32_t vtfuValidateBootloader(const uint8_t *component, uint32_t length, uint8_t *version);
VTAPI_EXPORT uint32_t vtfuValidateCRBinitImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               uint8_t *version);
VTAPI_EXPORT uint32_t vtfuValidatePegtuneImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                               uint8_t *version);
VTAPI_EXPORT uint32_t vtfuValidateBootloaderImage(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                                  uint8_t *version);
/* NIC firmware header (0x40400003, version, length at 12): 1 valid. */
VTAPI_EXPORT uint32_t vtfuValidateNicFirmware(const uint8_t *component, uint32_t length, uint8_t *version);

/* ---------------------------------------------- expansion-ROM images */
/* 1 when the bytes start a boot-code image; the ROM header and the PCI data
 * structure are copied out (zero-filled past the buffer's end). */
VTAPI_EXPORT uint32_t vtfuGetHeaderAndData(const uint8_t *image, uint32_t size, PCI_ROM_HEADER *header,
                                           PCI_DATA_STRUCTURE *data);
/* Reads the ROM header at offset of the file and the PCI data structure it
 * points to: 1, or 0 with a message. */
VTAPI_EXPORT uint32_t vtfuGetFileImageHeader(FILE *file, PCI_ROM_HEADER *header, PCI_DATA_STRUCTURE *data, long offset);
/* The byte after the last image of the chain at image, or null when the
 * chain breaks before a last image or leaves the buffer. */
VTAPI_EXPORT const uint8_t *vtfuGetBootCodeEnd(const uint8_t *image, uint32_t size);
VTAPI_EXPORT uint32_t vtfuIsBIOSImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsFcodeImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsEfiImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsPXEImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsLastImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsVendorImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuIsDriverImage(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuGetDataOffset(const PCI_ROM_HEADER *header);
VTAPI_EXPORT uint32_t vtfuGetDataLength(const PCI_DATA_STRUCTURE *data);
VTAPI_EXPORT uint32_t vtfuGetImageLength(const PCI_DATA_STRUCTURE *data);
/* Logs the fields of image `index` of a chain. */
VTAPI_EXPORT void vtfuPrintDataStructure(uint32_t index, const PCI_DATA_STRUCTURE *data);

/* ------------------------------------------------- image validation */
/* Single boot-code file: 0 valid, 10 another adapter's, 12 bad checksum. */
VTAPI_EXPORT uint32_t Validate(const uint8_t *image, uint32_t size, const char *hwType, uint32_t offset);
/* Multi-image file against the adapter: 0 or a FLASH_ST_ status. */
VTAPI_EXPORT uint32_t AnalyzeFlashImageFile(const AdapterEntry *adapter, const char *path, uint32_t size);
VTAPI_EXPORT uint32_t ValidateKiteILTImageHeader(uint16_t ssdid, uint16_t ssvid, const uint8_t *table, uint32_t size,
                                                 uint32_t chipRevision);
VTAPI_EXPORT uint32_t ValidateWrenILTImageHeader(uint16_t ssdid, uint16_t ssvid, const uint8_t *table, uint32_t size,
                                                 uint32_t chipRevision);
/* 0, or the complement of a small code. */
VTAPI_EXPORT uint32_t ValidateImageChipRevision(const ILT_Region_t *entry, uint32_t adapterRevision);
/* Component validators of one region entry: 0 valid, else the complement of
 * the failing component's code.  ValidateGenericImages serves the Kite
 * family, ValidateWrenImages the Wren family, ValidateImages the other FC
 * chips. */
VTAPI_EXPORT uint32_t ValidateGenericImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                            VTAPI_FlashImageVersion *versions);
VTAPI_EXPORT uint32_t ValidateWrenImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                         VTAPI_FlashImageVersion *versions);
VTAPI_EXPORT uint32_t ValidateImages(const uint8_t *image, uint32_t size, const ILT_Region_t *entry,
                                     VTAPI_FlashImageVersion *versions);
/* Signature region 0x9E of length bytes: 1 valid; its version goes to
 * version[0..2] (first, second, third field) when it is not null. */
VTAPI_EXPORT uint32_t ValidateKiteSignatureRegion(const uint8_t *region, uint32_t length, uint8_t *version);
/* The components meant for the card: their number, or the failing
 * component's code (the complement of a small number). */
VTAPI_EXPORT uint32_t ValidateKiteImageComponents(const uint8_t *image, uint32_t size,
                                                  VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                  const AdapterEntry *adapter);
VTAPI_EXPORT uint32_t ValidateWrenImageComponents(const uint8_t *image, uint32_t size,
                                                  VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                  const AdapterEntry *adapter);
VTAPI_EXPORT uint32_t ValidateGenericImageComponents(const uint8_t *image, uint32_t size,
                                                     VTAPI_FlashImageVersion *versions, uint32_t cardType,
                                                     const AdapterEntry *adapter);
VTAPI_EXPORT uint32_t HowManyImagesForCardTypeGeneric(const uint8_t *table, uint32_t size, uint32_t cardType,
                                                      uint32_t chipRevision);
/* Prints (scfxPrint) the versions of the components meant for the card:
 * 0, or the status of the failed validation. */
VTAPI_EXPORT uint32_t GetFlashImageComponentVersion(const uint8_t *image, uint32_t size, const AdapterEntry *adapter);
/* Compares the regions of the image meant for the card with the adapter's
 * flash layout: 0, FLASH_LAYOUT_MISMATCH, or 1 when the layout cannot be
 * read. */
VTAPI_EXPORT uint32_t ReadFlashImageILT(const AdapterEntry *adapter, const uint8_t *image, uint32_t size,
                                        uint32_t cardType);

/* NIC families (Tern, Orla, Tove). */
VTAPI_EXPORT uint32_t vtfuValidateILTImageHeader(uint16_t did, uint16_t ssdid, uint16_t ssvid, const uint8_t *table,
                                                 uint32_t size);
VTAPI_EXPORT uint32_t vtfuValidateILTChipVersion(uint32_t chipRevision, const uint8_t *table, uint32_t size);
/* Components meant for the card of a NIC-family adapter (device ID did):
 * their number, or the failing component's code (complement). */
VTAPI_EXPORT uint32_t vtfuValidateImageComponents(const uint8_t *image, uint32_t size, uint16_t did, uint32_t cardType,
                                                  uint32_t chipRevision, VTAPI_FlashImageVersion *versions);

#ifdef __cplusplus
}  // extern "C"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#pragma GCC visibility push(hidden)
namespace vtflash {

using Bytes = std::span<const uint8_t>;

inline uint16_t Le16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
inline uint32_t Le32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}
inline uint32_t Be32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           static_cast<uint32_t>(p[3]);
}

// Fields of a region entry.
inline uint32_t RegionType(const ILT_Region_t &r) { return Le16(r.RegionType); }
inline uint32_t RegionOffset(const ILT_Region_t &r) { return Le16(r.Offset) | uint32_t(Le16(r.Offset + 2)) << 16; }
inline uint32_t RegionLength(const ILT_Region_t &r) { return Le16(r.Length) | uint32_t(Le16(r.Length + 2)) << 16; }
inline uint32_t RegionCardType(const ILT_Region_t &r) { return Le16(r.CardType); }
inline uint32_t RegionChipRevision(const ILT_Region_t &r) { return Le16(r.ChipRevision); }

// The component an entry names, or nothing when it does not lie within the
// image.
std::optional<Bytes> Component(Bytes image, const ILT_Region_t *entry);

// The card-type lists the header counts, in order, as far as they lie
// within the table.
std::vector<const ILT_CardTypeList_t *> CardLists(Bytes table);
// Entry `index` of a card-type list (which lies within table), or null.
const ILT_CardTypeList_Entry_t *CardEntry(Bytes table, const ILT_CardTypeList_t *list, uint32_t index);

// True when the entry is meant for the card type and chip revision (the
// card-type mask test and a revision of 0 or equal).
bool EntryIsForCard(const ILT_Region_t &entry, uint32_t cardType, uint32_t chipRevision);

// Revision (major, minor) of the first image of each code type (x86, Open
// Firmware, PA-RISC, EFI) met while walking an expansion-ROM chain.
struct BootVersions {
    std::optional<std::pair<uint8_t, uint8_t>> byCodeType[4];
};
// Walks a chain of boot-code images that must end with a last image inside
// the bytes, each image with its option-ROM checksum unless told otherwise;
// fills the versions.
bool CheckBootChain(Bytes chain, BootVersions *versions, bool verifyChecksums = true);

// A PLDM firmware-update package header at the start of a file.
struct PldmPackage {
    uint32_t headerSize = 0;
    uint8_t formatRevision = 0;
    uint32_t deviceRecords = 0;
    uint32_t componentCount = 0;
    uint32_t componentOffset = 0;  // the first component image
    uint32_t componentSize = 0;
    std::string version;  // package version string
};
// The package header when the file starts with one whose structure and
// header checksum hold, else nothing.
std::optional<PldmPackage> ParsePldmPackage(Bytes file);
// The multi-image container of a file: after a PLDM package header when the
// file starts with one, else the whole file.
Bytes MultiImageOf(Bytes file);

// The adapter facts validation needs.
struct AdapterFacts {
    uint16_t deviceId = 0;
    uint16_t subVendorId = 0;
    uint16_t subSystemId = 0;
    uint32_t chipRevision = 0;
    uint32_t ispType = 0;
    uint32_t instance = 0;
    uint32_t handle = 0;  // libvtsdm handle of the card's first listed port
    std::string model;
};
std::optional<AdapterFacts> FactsOf(const AdapterEntry *adapter);

// Card-entry rule of the Kite and Wren header check, and the card type of the
// first list holding a matching entry (0xFFFFFFFF when none).
bool KiteCardMatches(const ILT_CardTypeList_Entry_t &entry, uint16_t ssdid, uint16_t ssvid);
uint32_t KiteCardType(Bytes table, uint16_t ssdid, uint16_t ssvid);

// Hardware-type text of an adapter chip ("2910"), up to six characters.
std::string HardwareType(uint16_t deviceId);

// Outcome of checking a multi-image container against an adapter: the stage
// that failed (or kPassed), its status, and the card type found.
struct ImageCheck {
    enum Stage { kHeader, kCardType, kComponents, kPassed } stage = kHeader;
    uint32_t status = 0;
    uint32_t cardType = VTFU_NONE;
};
// The Kite and Wren header check (chip types 25 and 27; other chips skip
// it), the card type and the component check of the chip's FC validator.
ImageCheck CheckFcImage(const AdapterFacts &facts, const AdapterEntry *adapter, Bytes mbi,
                        VTAPI_FlashImageVersion *versions);
// The NIC-family header, chip-revision and component checks.
ImageCheck CheckNicImage(const AdapterFacts &facts, Bytes mbi, VTAPI_FlashImageVersion *versions);
// The checks of the adapter's family: NIC families, FC chips of type 21 and
// above; other chips fail at the header stage with FLASH_ST_NOT_SUPPORTED.
ImageCheck CheckImageForAdapter(const AdapterFacts &facts, const AdapterEntry *adapter, Bytes mbi,
                                VTAPI_FlashImageVersion *versions);
// The labelled version lines of the components present in the record.
std::vector<std::string> VersionLines(const VTAPI_FlashImageVersion &versions);

// Version text of a flash region of the given type read from an adapter:
// from the component's own header where it has one, else from the entry of
// that type in the flash's image layout table (flashIlt, may be empty).
// Nothing when neither gives a version.
std::optional<std::string> ComponentVersionText(uint32_t type, Bytes region, Bytes flashIlt);

}  // namespace vtflash
#pragma GCC visibility pop
#endif
