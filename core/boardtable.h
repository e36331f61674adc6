/*
 * core/boardtable.h - the board table of libvtapifconly: one record per
 * adapter board, keyed by PCI subsystem ID and subsystem vendor ID, read
 * from <install>/data/adapters_adapter_provider.properties.
 */
#ifndef VT_CORE_BOARDTABLE_H
#define VT_CORE_BOARDTABLE_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SubSystemRecord {
    char SSDID[16];     /* subsystem ID, text ("0x0A16") */
    char SSVID[16];     /* subsystem vendor ID, text */
    char ISP[32];       /* chip part number */
    char Desc[128];     /* board description */
    char Supported[16]; /* the board is enabled when it holds "TRUE" */
    struct SubSystemRecord *next;
} SubSystemRecord;

typedef struct SubSystemList {
    uint32_t Count;
    SubSystemRecord *First;
    SubSystemRecord *Last;
} SubSystemList;

/* Loads the board table file; null when it is missing, unreadable, damaged
 * or of a foreign format (the reason is logged).  Free with
 * FreeSubSystemList. */
VTAPI_EXPORT SubSystemList *BuildSubSystemListFromFile(const char *path);
/* The first record whose SSDID and SSVID have these numeric values, or null. */
VTAPI_EXPORT SubSystemRecord *FindSubSystemInSubSystemList(SubSystemList *list, uint16_t ssdid, uint16_t ssvid);
void FreeSubSystemList(SubSystemList *list);

#ifdef __cplusplus
}
#endif

#endif /* VT_CORE_BOARDTABLE_H */
