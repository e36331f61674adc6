/*
 * flash/vpd.h - vital product data (VPD) of an adapter: tag checks, parsing
 * into a keyword table with labels, the multiboot version kept from a block,
 * and the editing of one keyword with the "RV" checksum kept valid.
 *
 * A VPD block is in the PCI resource format: 0x82 identifier string (2-byte
 * little-endian length), 0x90 read-only section and 0x91 read-write section
 * (2-byte length, then keyword entries of 2 characters, a 1-byte length and
 * the data), 0x78 end tag.  Every function reads only within the size it is
 * given and trusts no length inside the block.  Those marked VTAPI_EXPORT
 * are exported so that a program may replace them.
 */
#ifndef VT_FLASH_VPD_H
#define VT_FLASH_VPD_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VTFU_VPD_MAX_ENTRIES        30
#define VTFU_VPD_TAG_SIZE           4
#define VTFU_VPD_FIELD_SIZE         128 /* values are cut to 127 characters */
#define VTFU_VPD_DESCRIPTION_SIZE   80
#define VTFU_MULTIBOOT_VERSION_SIZE 2048

/* Status of the tag checks and the parser when a tag is missing. */
#define VTFU_VPD_TAG_NOT_FOUND 13u

typedef struct VPDEntry {
    char tag[VTFU_VPD_TAG_SIZE];                 /* keyword, NUL-terminated */
    char field[VTFU_VPD_FIELD_SIZE];             /* value, NUL-terminated */
    char description[VTFU_VPD_DESCRIPTION_SIZE]; /* label of the keyword */
} VPDEntry;

/* Entry 0 is the identifier string (tag "00"); a block with more entries
 * than the table holds keeps the first VTFU_VPD_MAX_ENTRIES. */
typedef struct VPDInfo {
    uint32_t count;
    VPDEntry entries[VTFU_VPD_MAX_ENTRIES];
} VPDInfo;

/* Multiboot image version last kept by PrintVPDField ("RM" and "V9" trimmed,
 * "VV" as it stands); never cleared by the walk itself. */
extern char gVpdMultiBootVersion[VTFU_MULTIBOOT_VERSION_SIZE];

/* 0 when a byte 0x82 occurs in the buffer, else 13 (also for a null buffer
 * or a size of 0). */
VTAPI_EXPORT uint32_t vtfuVerifyVpdStartTag(const uint8_t *buffer, uint32_t size);

/* 0 when a byte 0x78 occurs, its first index stored through index when not
 * null; else 13 (also for a null buffer or a size of 0). */
VTAPI_EXPORT uint32_t vtfuVerifyVpdEndTag(const uint8_t *buffer, uint32_t *index, uint32_t size);

/* 1 when every byte is 0x00 or every byte is 0xFF, else 0.  The first byte
 * is read even with a size of 0 (which then counts as blank when that byte
 * is 0x00 or 0xFF); a null buffer is not blank. */
VTAPI_EXPORT uint32_t vtfuIsBlankVpd(const uint8_t *buffer, uint32_t size);

/* Parses the identifier string and the keyword entries of the first section
 * into result.  The block starts at the first 0x82 byte.  When neither "RM"
 * nor "V9" is present, a "V" keyword whose value starts "FFV" (as in
 * "FFV10.02.03") gives an extra "RM" entry "10.02.03".  Returns 0, 13 when a
 * tag is missing (result then empty) or 2 when result is null. */
VTAPI_EXPORT uint32_t vtfuGetVPDInfoFromBuf(const uint8_t *buffer, uint32_t size, VPDInfo *result);

/* The VPD of a listed port, read through libvtsdm (SDGetVpd) and parsed into
 * info as vtfuGetVPDInfoFromBuf does: the table that reports show.  Returns 0, 2
 * for a null argument, or the failure of the read (29 on a virtual port,
 * whose card's VPD belongs to its physical port) or of the parse. */
VTAPI_EXPORT uint32_t GetHBAVPDData2(const SDMDevice *device, VPDInfo *info);

/* Label of a keyword (first two characters compared), "UNKNOWN" if none. */
VTAPI_EXPORT const char *vtfuGetVPDFieldDescripton(const char *keyword);

/* Replaces the value of the first keyword entry named keyword (exactly two
 * characters; not "RV") in the read-only or read-write section of the block
 * in buffer, whose capacity is size bytes.  A value of another length moves
 * the rest of the block up to its end tag and fixes the entry and section
 * lengths; bytes freed at the end become 0x00.  The "RV" checksum byte is
 * then set so that all bytes from the 0x82 tag through it sum to 0 mod 256.
 * Returns 0; 2 for a bad argument (null pointer, keyword not of two
 * characters or "RV", value longer than 255 bytes); 13 for a block without
 * start tag, with a resource running past size, without end tag or without
 * an "RV" entry; 0xFFFFFFFF when the keyword is absent or the new value
 * does not fit in size.  On any failure the buffer is left unchanged. */
VTAPI_EXPORT uint32_t vtfuUpdateVpdField(uint8_t *buffer, uint32_t size, const char *keyword, const uint8_t *value,
                                         uint32_t valueLength);

/* Walks a block, reporting each tag and keyword entry to PrintVPDField. */
VTAPI_EXPORT void PrintVPD(const uint8_t *buffer, uint32_t size);

/* Logs one entry and keeps the multiboot version from "RM", "V9" and "VV".
 * data holds length bytes (a NUL among them ends the value). */
VTAPI_EXPORT void PrintVPDField(const char *keyword, const uint8_t *data, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif /* VT_FLASH_VPD_H */
