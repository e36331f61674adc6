/*
 * drvfiles.h - the Linux FC driver's parameter files: the driver
 * configuration file "/etc/<module>.conf" with the persistent-binding and
 * LUN-mask tokens of every adapter, and the driver's "options" line in the
 * module option files.  <module> is the driver module name libvtsdm reports
 * for an open adapter (SDDriverProperty.DriverName).
 *
 * Persistent-binding tokens, each ended by a backslash and a semicolon, the
 * adapter instance a, target number t and device-instance number d in
 * decimal and the values in lower-case hexadecimal:
 *
 *   scsi-vta<a>-adapter-port=<WWPN>\;         the following tokens are this adapter's
 *   scsi-vta<a>-tgt-<t>-di-<d>-node=<WWNN>\;
 *   scsi-vta<a>-tgt-<t>-di-<d>-port=<WWPN>\;
 *   scsi-vta<a>-tgt-<t>-di-<d>-pid=<port ID>\;     only for a target with a port ID
 *   scsi-vta<a>-tgt-<t>-di-<d>-preferred=<mask>\;  LUNs 0-255
 *   scsi-vta<a>-tgt-<t>-di-<d>-lun_preferred-<N>=<mask>\;  LUNs N to N+255
 *   scsi-vta<a>-tgt-<t>-di-<d>-lun-disabled=<mask>\;
 *   scsi-vta<a>-tgt-<t>-di-<d>-lun_disabled-<N>=<mask>\;
 *   scsi-vta<a>-tgt-<t>-di-<d>-control=<byte>\;
 *
 * A LUN mask is written as hexadecimal byte pairs: pair k holds LUNs
 * base+8k (bit 0) to base+8k+7 (bit 7); pairs missing at the end are zero.
 * Tokens are separated by blanks, tabs, backslashes, semicolons and line
 * ends; lines whose first non-blank character is "#" are comments.
 *
 * Statuses: 0 success; VTAPI_FILE_NOT_FOUND (3) when the file does not
 * exist; SDERR_* values for the failover entry points and for a missing
 * entry (SDERR_NOT_FOUND), a short buffer (SDERR_BUFFER_TOO_SMALL) and a
 * short read (SDERR_SHORT_READ); 0xFFFFFFFF for other failures.
 */
#ifndef VT_DRVFILES_H
#define VT_DRVFILES_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A driver configuration file of VTLAPI_DRVFILE_MAX + 1 bytes or more is
 * neither read nor written. */
#define VTLAPI_DRVFILE_MAX 300000u
/* LUNs a mask covers (14-bit flat-space LUN numbers): 64 blocks of 256. */
#define VTLAPI_MAX_LUNS       16384u
#define VTLAPI_LUN_MASK_BYTES (VTLAPI_MAX_LUNS / 8u)
#define VTLAPI_LUN_BLOCK      256u
/* Lines of the module option files are examined up to this length. */
#define VTLAPI_OPTLINE_MAX 65536u

/* Flags of vtlapi_set_data_to_line. */
#define VTLAPI_WRITE_LUN_MASKS 0x1u

/* One bound target: its target number and device-instance number, the
 * remote port's names, port ID and the binding's control byte. */
typedef struct FoTargetData {
    uint8_t TargetNumber;
    uint8_t DeviceInstance;
    uint8_t Control;
    uint8_t Reserved0;
    uint8_t WWNN[8];
    uint8_t WWPN[8];
    uint8_t PortId[3]; /* 00:00:00 when the binding has no port ID */
    uint8_t Reserved1;
} FoTargetData;

/* The LUN masks of a bound target: bit (lun % 8) of byte lun / 8. */
typedef struct FoLunData {
    uint8_t TargetNumber;
    uint8_t DeviceInstance;
    uint16_t Reserved;
    uint8_t PreferredLuns[VTLAPI_LUN_MASK_BYTES];
    uint8_t DisabledLuns[VTLAPI_LUN_MASK_BYTES];
} FoLunData;

/* The binding of one target of an adapter. */
typedef struct VtlapiTargetBinding {
    FoTargetData Target;
    uint8_t PreferredLuns[VTLAPI_LUN_MASK_BYTES];
    uint8_t DisabledLuns[VTLAPI_LUN_MASK_BYTES];
} VtlapiTargetBinding;

/* The bindings of one adapter port.  Targets is allocated by the library
 * and released with vtlapi_free_bindings. */
typedef struct VtlapiAdapterBindings {
    uint8_t AdapterWWPN[8];
    uint32_t AdapterInstance; /* the a of the tokens written */
    uint32_t TargetCount;     /* one per parsed (target, device instance) */
    VtlapiTargetBinding *Targets;
} VtlapiAdapterBindings;

VTAPI_EXPORT void vtlapi_free_bindings(VtlapiAdapterBindings *adapter);

/* Reads "/etc/<module>.conf" whole, in one read, into buffer and ends it
 * with a NUL.  *size is in: bytes of buffer; out: bytes read.  A buffer that
 * cannot hold the file and the NUL gives SDERR_BUFFER_TOO_SMALL with the
 * bytes needed in *size; a file of more than VTLAPI_DRVFILE_MAX bytes is not
 * read (0xFFFFFFFF); a read that returns fewer bytes than the file holds
 * gives SDERR_SHORT_READ. */
VTAPI_EXPORT uint32_t vtlapi_get_opt_from_file(const char *module, char *buffer, uint32_t *size);

/* Parses one token into the adapter's records: a token of a new (target,
 * device instance) adds a record.  0, or SDERR_NOT_FOUND for a token that
 * is ignored (no "=", no target or instance number, a malformed value, a
 * numbered LUN block that is not a non-zero multiple of 256 within
 * VTLAPI_MAX_LUNS).  An adapter-port token sets AdapterWWPN. */
VTAPI_EXPORT uint32_t vtlapi_get_dev_data_from_token(const char *token, VtlapiAdapterBindings *adapter);

/* The records of the adapter port `adapterWWPN` in a driver configuration
 * text: the tokens after its adapter-port token up to the next adapter-port
 * token.  The adapter is set to the port's WWPN and its records (none when
 * the text has no tokens for it). */
VTAPI_EXPORT uint32_t vtlapi_get_data_from_text(const char *text, const uint8_t *adapterWWPN,
                                                VtlapiAdapterBindings *adapter);

/* Writes the adapter's tokens: the adapter-port token, then per target its
 * node, port and pid tokens, with VTLAPI_WRITE_LUN_MASKS its preferred and
 * disabled LUN tokens, and its control token.  *size is in: bytes of line;
 * out: bytes needed with the NUL (SDERR_BUFFER_TOO_SMALL when short). */
VTAPI_EXPORT uint32_t vtlapi_set_data_to_line(const VtlapiAdapterBindings *adapter, uint32_t flags, char *line,
                                              uint32_t *size);

/* The driver option line of the module ("options <module> ..."), without
 * its line end, from the first module option file that opens.
 * VTAPI_FILE_NOT_FOUND when no option file exists, SDERR_NOT_FOUND when it
 * has no such line, SDERR_BUFFER_TOO_SMALL when the line does not fit. */
VTAPI_EXPORT uint32_t vtlapi_get_drv_param_optline(const char *module, char *line, uint32_t size);

/* Replaces the module's driver option line with `line` (appended when there
 * is none) in the first module option file that opens.  The new text goes
 * through the scratch file "/tmp/vttmp.txt", is copied beside the option
 * file and renamed into place; the scratch file is then removed.  Owner,
 * mode and every other line of the option file are kept.  A scratch file
 * that cannot be created, or an option file that is a symbolic link, leaves
 * the option file untouched. */
VTAPI_EXPORT uint32_t vtlapi_set_drv_param_optline(const char *module, const char *line);

/* One parameter ("name=value") of the module's option line.
 * SDERR_NOT_FOUND when the line or the parameter is missing. */
VTAPI_EXPORT uint32_t vtlapi_get_drv_param(const char *module, const char *name, char *value, uint32_t size);
/* Sets a parameter of the module's option line (added at its end when
 * missing), or removes it when value is null.  A line is created when there
 * is none. */
VTAPI_EXPORT uint32_t vtlapi_set_drv_param(const char *module, const char *name, const char *value);

/* The driver module name of an open adapter (libvtsdm's driver name). */
uint32_t vtlapi_get_module_name(uint32_t handle, char *module, uint32_t size);

/* Failover data entry points, by libvtsdm handle of a physical port.  They
 * read and rewrite the port's tokens in the driver configuration file;
 * every other line and every other adapter's tokens stay as they are.  A
 * save also puts the extended-options hand-over
 * ("ConfigRequired=1 vt2xuseextopts=/tmp/vttmp.txt") on the module's option
 * line when there is a module option file.  SDERR_NOT_SUPPORTED on a virtual
 * port, SDERR_NOT_FOUND for a target that is not bound.
 *
 * ISDFoGetPersistentTargetEntryList: *count is in: entries of buffer; out:
 * bound targets (SDERR_BUFFER_TOO_SMALL when more than fit). */
VTAPI_EXPORT uint32_t ISDFoGetPersistentTargetEntryList(uint32_t handle, FoTargetData *entries, uint32_t *count);
VTAPI_EXPORT uint32_t ISDFoGetTargetData(uint32_t handle, uint8_t target, uint8_t deviceInstance, FoTargetData *data);
/* Binds a target: adds the record, or replaces the names, port ID and
 * control of a bound one (its LUN masks stay). */
VTAPI_EXPORT uint32_t ISDFoSetTargetData(uint32_t handle, const FoTargetData *data);
VTAPI_EXPORT uint32_t ISDFoGetLunData(uint32_t handle, uint8_t target, uint8_t deviceInstance, FoLunData *data);
/* Sets the LUN masks of a bound target.  SDERR_NOT_SUPPORTED when the
 * driver takes no LUN masks (it reports no LUNs-per-target limit). */
VTAPI_EXPORT uint32_t ISDFoSetLunData(uint32_t handle, const FoLunData *data);
VTAPI_EXPORT uint32_t ISDFoDeletePersistentTargetEntry(uint32_t handle, uint8_t target, uint8_t deviceInstance);
/* Removes every binding of the remote port with this WWPN. */
VTAPI_EXPORT uint32_t ISDFoDeletePersistentDeviceEntry(uint32_t handle, const uint8_t *targetWWPN);

#ifdef __cplusplus
}
#endif

#endif /* VT_DRVFILES_H */
