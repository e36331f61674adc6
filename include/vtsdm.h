/*
 * vtsdm.h - device-management interface for Vantor Fibre Channel adapters.
 *
 * libvtsdm opens adapter port functions by instance number and gives access
 * to their properties, discovered remote ports, SCSI pass-through, NVRAM,
 * VPD, flash regions, events, statistics, diagnostics, virtual ports and QoS.
 *
 * Conventions
 *  - Every call returns a 32-bit status; SDERR_NONE (0) is success.  The
 *    exceptions are SDGetErrorString and SDGetVariableValue, which return
 *    their result directly.  No call lets a C++ exception out; one that runs
 *    out of memory returns SDERR_OUT_OF_MEMORY.
 *  - A handle comes from SDOpenDevice and stays valid until SDCloseDevice.
 *  - World-wide names are 8 bytes, most significant byte first.
 *  - Where a caller passes a buffer with its size, a buffer that is too
 *    small gives SDERR_BUFFER_TOO_SMALL and the needed size or count is
 *    stored through the size/count argument.
 *  - All records are plain C structs with natural alignment.
 *
 * Backends
 *  One of two backends answers every call:
 *  - "linux": the adapters of this machine as the kernel's FC transport
 *    class shows them in sysfs (/sys/class/fc_host, fc_remote_ports,
 *    fc_vports, the SCSI devices of each remote port, the PCI function),
 *    SCSI commands through the SCSI generic devices (SG_IO), statistics,
 *    link events and virtual ports.  The kernel offers no NVRAM, flash,
 *    option-ROM, loopback or QoS interface: those calls return
 *    SDERR_NOT_SUPPORTED.
 *  - "sim": a simulated host, a JSON file that describes cards, ports,
 *    targets and LUNs (environment VTSDM_HOST, default
 *    <install>/data/default_host.json), whose changes persist in a state
 *    directory (environment VTSDM_STATE_DIR, default
 *    $VTAPI_SYSROOT/var/lib/vtsdm).
 *  The choice: VTSDM_BACKEND=sim or linux; else a line "backend = sim"
 *  (or linux, or auto) in <install>/data/vtsdm.conf; else linux when the
 *  system has FC host adapters and sim otherwise.  Every system path goes
 *  under $VTAPI_SYSROOT when it is set.  SDGetBackendName tells which
 *  backend answers.
 */
#ifndef VTSDM_H
#define VTSDM_H

#include <stdint.h>

#include "vtsdm_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define SDM_EXPORT __attribute__((visibility("default")))

/* ------------------------------------------------------------ functions */
/* Library. */
SDM_EXPORT uint32_t SDGetVersion(char *buffer, uint32_t size);
SDM_EXPORT const char *SDGetErrorString(uint32_t status);
/* The backend that answers: "linux" or "sim"; and one line that says where
 * its data comes from ("Linux FC transport at /sys, SCSI through SG_IO",
 * "simulated host /opt/.../default_host.json").  SDERR_IO_FAILED when no
 * backend could be made (the reason went to standard error). */
SDM_EXPORT uint32_t SDGetBackendName(char *buffer, uint32_t size);
SDM_EXPORT uint32_t SDGetBackendDescription(char *buffer, uint32_t size);
/* The oldest notice the library has for the caller's log (a damaged state
 * file kept aside under a new name, a state file refused, ...), one line of
 * text.  It is removed once it has been handed out; SDERR_NOT_FOUND when
 * there is none, SDERR_BUFFER_TOO_SMALL (and it stays) when it does not
 * fit.  Each notice also went to standard error when it arose. */
SDM_EXPORT uint32_t SDGetBackendNotice(char *buffer, uint32_t size);

/* Devices. SDOpenDevice returns SDERR_NO_SUCH_DEVICE past the last one. */
SDM_EXPORT uint32_t SDOpenDevice(uint32_t instance, uint32_t *handle);
SDM_EXPORT uint32_t SDCloseDevice(uint32_t handle);
SDM_EXPORT uint32_t SDGetHbaDeviceChipProperty(uint32_t handle, SDChipProperty *prop);
SDM_EXPORT uint32_t SDGetHbaDeviceDriverProperty(uint32_t handle, SDDriverProperty *prop);
SDM_EXPORT uint32_t SDGetHbaDeviceNodeProperty(uint32_t handle, SDNodeProperty *prop);
SDM_EXPORT uint32_t SDGetHbaDevicePortProperty(uint32_t handle, SDPortProperty *prop);

/* Discovered remote ports.  *count is in: entries of buffer, out: targets. */
SDM_EXPORT uint32_t SDGetDiscTargetProperties(uint32_t handle, SDDiscTargetProperty *buffer, uint32_t *count);

/* SCSI pass-through to a target (by WWPN) and LUN.  *respSize is in: buffer
 * size, out: bytes returned.  *senseSize likewise for the sense buffer
 * (fixed-format sense data, SD_SENSE_BUFFER_SIZE bytes suffice).
 * A check condition gives SDERR_SCSI_CHECK_CONDITION with the sense data. */
SDM_EXPORT uint32_t SDSendScsiReportLunsCmdFC(uint32_t handle, const uint8_t *targetWWPN, void *resp,
                                              uint32_t *respSize, void *sense, uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiInquiryCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, uint8_t evpd,
                                           uint8_t page, void *resp, uint32_t *respSize, void *sense,
                                           uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiReadCapacityCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *resp,
                                                uint32_t *respSize, void *sense, uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiReadCapacityLargeCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                                     void *resp, uint32_t *respSize, void *sense, uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiTestUnitReadyCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *sense,
                                                 uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiWriteBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                               const void *data, uint32_t size, void *sense, uint32_t *senseSize);
SDM_EXPORT uint32_t SDSendScsiReadBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *data,
                                              uint32_t *size, void *sense, uint32_t *senseSize);
/* OS device name of a LUN ("/dev/sdc"); SDERR_NOT_FOUND when it has none. */
SDM_EXPORT uint32_t SDGetLunOSDeviceName(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, char *name,
                                         uint32_t size);

/* NVRAM.  area 1 is the active image, area 2 the alternate copy. */
SDM_EXPORT uint32_t SDGetNVRam(uint32_t handle, uint32_t offset, uint32_t area, void *buffer, uint32_t size);
/* Writes a whole image (offset 0, the port's NVRAM size); the image must
 * carry a valid checksum, else SDERR_INVALID_PARAMETER and nothing changes.
 * A port whose firmware is in lockdown refuses NVRAM and flash writes with
 * SDERR_LOCKDOWN; one in maintenance mode refuses NVRAM writes with
 * SDERR_NOT_SUPPORTED.  Settings a reset applies (data rate, port disable)
 * take effect at the port's next reset; until then the port reports
 * SD_PORTFLAG_REBOOT_REQUIRED. */
SDM_EXPORT uint32_t SDUpdateNVRam(uint32_t handle, uint32_t offset, uint32_t area, const void *buffer, uint32_t size);
/* Field access on an image held by the caller, by variable identifier.
 * SDGetVariableValue returns the value, or 0xFFFFFFFF for an unknown
 * identifier or handle.  SDSetVariableValue does not fix the checksum. */
SDM_EXPORT uint32_t SDGetVariableValue(uint32_t handle, const void *nvram, uint32_t id);
SDM_EXPORT uint32_t SDSetVariableValue(uint32_t handle, void *nvram, uint32_t id, uint32_t value);

/* Vital product data.  *size is in: buffer size, out: VPD bytes. */
SDM_EXPORT uint32_t SDGetVpd(uint32_t handle, void *buffer, uint32_t *size);

/* Flash regions.  Layout: layout->Count holds the descriptors the buffer
 * has room for; a smaller count gives SDERR_BUFFER_TOO_SMALL with the real
 * count stored there. */
SDM_EXPORT uint32_t SDGetOptionRomLayout(uint32_t handle, uint32_t reserved, SDOptionRomLayout *layout, uint32_t size);
/* Reads size bytes of a region from offset; past its end SDERR_SHORT_READ
 * (the bytes that exist are copied). */
SDM_EXPORT uint32_t SDGetOptionRomEx(uint32_t handle, void *buffer, uint32_t size, uint32_t region, uint32_t offset);
/* Writes size bytes at offset of a region; flags are reserved (0). */
SDM_EXPORT uint32_t SDUpdateOptionRomEx2(uint32_t handle, const void *buffer, uint32_t size, uint32_t region,
                                         uint32_t offset, uint32_t flags);

/* Flash update: replaces the contents of several regions at once, all or
 * none.  Each region gets Size bytes of Data from its start; the rest of the
 * region reads as erased flash (0xFF).  A region the flash does not have
 * gives SDERR_NOT_FOUND, data larger than the region SDERR_INVALID_PARAMETER,
 * a failing part SDERR_FLASH_WRITE_FAILED; in every such case nothing
 * changes.  Once written, the ports of the card report
 * SD_PORTFLAG_REBOOT_REQUIRED until the card restarts.  flags are reserved
 * (0). */
typedef struct SDRegionImage {
    uint32_t Region; /* region type code */
    uint32_t Size;   /* bytes of Data */
    const void *Data;
} SDRegionImage;
SDM_EXPORT uint32_t SDUpdateOptionRomRegions(uint32_t handle, const SDRegionImage *regions, uint32_t count,
                                             uint32_t flags);

/* SFP transceiver module of a physical FC port.  SDGetSfpFirmwareInfo
 * reports the module's vendor and firmware version.  SDUpdateSfpFirmware
 * hands the module a firmware image file (its bytes); the module checks it
 * whole before writing and keeps its old firmware on any failure: a damaged
 * file gives SDERR_INVALID_PARAMETER, a file for another vendor's module or
 * a port without a module SDERR_NOT_SUPPORTED, a firmware in lockdown
 * SDERR_LOCKDOWN, a failing part SDERR_FLASH_WRITE_FAILED.  The new firmware
 * runs at once.  flags are reserved (0). */
typedef struct SDSfpFirmwareInfo {
    char Vendor[17];    /* NUL-terminated */
    uint8_t Version[3]; /* major, minor, sub */
    uint32_t CodeSum;   /* 32-bit sum of the firmware code */
} SDSfpFirmwareInfo;
SDM_EXPORT uint32_t SDGetSfpFirmwareInfo(uint32_t handle, SDSfpFirmwareInfo *info);
SDM_EXPORT uint32_t SDUpdateSfpFirmware(uint32_t handle, const void *image, uint32_t size, uint32_t flags);

/* Events.  Fills as many 16-byte records as bufferSize holds, oldest first,
 * and takes them from the queue; the rest stay queued for the next call.
 * *count is how many were queued before the call, so a count above what
 * the buffer holds means more are waiting. */
SDM_EXPORT uint32_t SDGetAen(uint32_t handle, void *buffer, uint32_t bufferSize, uint32_t *count);
SDM_EXPORT uint32_t SDGetAenQueueStatus(uint32_t handle, SDAenQueueStatus *status);

/* Statistics. */
SDM_EXPORT uint32_t SDGetStatistics(uint32_t handle, SDStatistics *stats);
SDM_EXPORT uint32_t SDResetStatistics(uint32_t handle);
SDM_EXPORT uint32_t SDGetPortStatisticsFC(uint32_t handle, const uint8_t *targetWWPN, SDLinkErrorStatus *status);

/* Diagnostics.  A run that the port carries out returns SDERR_NONE with its
 * outcome in result->TestStatus; a call error means the run did not take
 * place (busy, no such device, not supported).  The calls return after the
 * time the port needs for the frames.  SDDiagIO sends `count` times
 * `increment` maximum-size I/Os through an external loopback; it answers a
 * size the port cannot send with SDERR_DIAG_PARAMETER and a link that is
 * down with SDERR_LOOP_DOWN. */
SDM_EXPORT uint32_t SDRunDiagLoopbackEx(uint32_t handle, uint32_t option, const void *tx, void *rx, uint32_t dataSize,
                                        uint32_t iterations, SDDiagResult *result);
SDM_EXPORT uint32_t SDDiagIO(uint32_t handle, const void *tx, void *rx, uint32_t dataSize, uint32_t count,
                             uint32_t increment, SDDiagResult *result);

/* Virtual ports (NPIV) and QoS.  A created vPort becomes a new instance. */
SDM_EXPORT uint32_t SDCreateVport(uint32_t handle, const uint8_t *wwnn, const uint8_t *wwpn, uint16_t *vportId);
SDM_EXPORT uint32_t SDDeleteVport(uint32_t handle, const uint8_t *wwpn);
SDM_EXPORT uint32_t SDGetQoS(uint32_t handle, const uint8_t *vportWWPN, SDQoS *qos);
SDM_EXPORT uint32_t SDSetQoS(uint32_t handle, const uint8_t *vportWWPN, const SDQoS *qos);

#ifdef __cplusplus
}
#endif

#endif /* VTSDM_H */
