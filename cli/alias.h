/*
 * alias.h - user aliases of adapters and ports, kept as properties of the
 * alias files: the global alias file shared on the host, and a local copy
 * in the installation directory.
 *
 *   adapter alias: host.<serial number>.hba.alias=<alias>
 *   port alias:    adapter.wwnn.<WWNN>.wwpn.<WWPN>.name=<alias>
 *                  (upper-case hexadecimal bytes joined by "-")
 *
 * An alias is at most VTAPI_ALIAS_MAX characters; a longer stored value
 * counts as none.  An alias of one blank is shown as no alias, so setting a
 * single blank clears one (DeleteAdapterAlias does exactly that).  Reads
 * take the global file when it holds properties, else the local one.
 * Writes replace the global file whole (a new file renamed into place) and
 * then copy it, owner, mode and times included, over the local one.
 */
#ifndef VT_CLI_ALIAS_H
#define VT_CLI_ALIAS_H

#include <stdint.h>
#include <stdio.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VTAPI_ALIAS_MAX    256u                   /* characters */
#define VTAPI_ALIAS_SIZE   (VTAPI_ALIAS_MAX + 1u) /* bytes of an alias buffer */
#define TARN_ALIAS_ADAPTER 0u                     /* any other type: port alias */
/* TarnOpenSharedFile: the file does not exist. */
#define TARN_FILE_MISSING 2014u

/* With 1, TarnSetAliasFilePaths sets the alias file names on first use: the
 * global file "/etc/vtapi/globalaliases.properties" and the local file
 * "aliases.properties" of the installation directory.  Without it both stay
 * in the installation directory. */
VTAPI_EXPORT uint32_t SetAliasPathVar(uint32_t enable);
VTAPI_EXPORT uint32_t TarnSetAliasFilePaths(void);

/* Opens a file other processes may replace at any time, for reading.
 * 0, TARN_FILE_MISSING, or 0xFFFFFFFF. */
VTAPI_EXPORT uint32_t TarnOpenSharedFile(const char *path, FILE **stream);
uint32_t TarnCloseSharedFile(FILE *stream);
/* Sets key=value in the property file `path` (PrefSetProperty on a copy of
 * it) and puts the result in place whole.  With `create` a missing file
 * (and its directory) is created.  0 or 0xFFFFFFFF. */
VTAPI_EXPORT uint32_t TarnPrefSetProperty(const char *path, const char *key, const char *value, uint32_t create);
/* Replaces `to` with a copy of `from` that keeps its owner, mode and times. */
uint32_t TarnCopyFilePreserving(const char *from, const char *to);

/* The alias key of the adapter (type 0, by its serial number) or of the port
 * with these names into key (size bytes).  0, or 2 for a missing argument. */
uint32_t GetAliasKey(const SDMDevice *adapter, const uint8_t *wwnn, const uint8_t *wwpn, uint32_t type, char *key,
                     uint32_t size);
/* The alias into out (VTAPI_ALIAS_SIZE bytes); returns its length, 0 when
 * there is none. */
VTAPI_EXPORT int32_t GetAdapterAlias(const SDMDevice *adapter, char *out, uint32_t type);
/* The same for a port the caller names: the adapter's serial number with
 * the names wwnn and wwpn. */
VTAPI_EXPORT int32_t GetAdapterAliasEx(const SDMDevice *adapter, const uint8_t *wwnn, const uint8_t *wwpn, char *out,
                                       uint32_t type);
/* 0; 2 for a missing argument or an alias the file cannot hold (longer than
 * VTAPI_ALIAS_MAX, or with "=" or a line end); 0xFFFFFFFF when a file
 * cannot be written. */
VTAPI_EXPORT uint32_t SetAdapterAlias(const SDMDevice *adapter, const char *alias, uint32_t type);
VTAPI_EXPORT uint32_t DeleteAdapterAlias(const SDMDevice *adapter, uint32_t type);
/* Prints the alias (text, or the alias element with XML output); 8 with
 * "Adapter not found!" for a null adapter. */
VTAPI_EXPORT uint32_t DisplayAdapterAlias(const SDMDevice *adapter, uint32_t type);
/* The listed port whose port alias, else the first port of the adapter
 * whose adapter alias, is `alias`; null when none. */
VTAPI_EXPORT SDMDevice *TarnFindDeviceByAlias(const char *alias);

#ifdef __cplusplus
}
#endif

#endif /* VT_CLI_ALIAS_H */
