/*
 * cli/xml.h - the two XML report formats.  Every XML_Emit<Name> hands its
 * arguments to XML_2_Emit<Name> when bXmlOutPut2 is set, so callers always
 * call the format-1 name.  Each line goes to scfxPrint with its line end;
 * values are printed as they stand, without escaping.
 */
#ifndef VT_CLI_XML_H
#define VT_CLI_XML_H

#include <stdint.h>

#include "flash/vpd.h"
#include "vtapi.h"
#include "vtapi_cli.h"

#ifdef __cplusplus
extern "C" {
#endif

VTAPI_EXPORT void XML_EmitHBAHeader(const SDMDevice *device);
VTAPI_EXPORT void XML_2_EmitHBAHeader(const SDMDevice *device);
VTAPI_EXPORT void XML_EmitHBAFooter(void);
VTAPI_EXPORT void XML_2_EmitHBAFooter(void);
VTAPI_EXPORT void XML_2_EmitHBAHeaderFooter(const SDMDevice *device, int32_t open, int32_t close);

VTAPI_EXPORT void XML_EmitTargetHeader(const TargetEntry *target);
VTAPI_EXPORT void XML_2_EmitTargetHeader(const TargetEntry *target);
VTAPI_EXPORT void XML_EmitTargetFooter(void);
VTAPI_EXPORT void XML_2_EmitTargetFooter(void);

/* Long emitters. */
VTAPI_EXPORT void XML_EmitSystemInfo(void);
VTAPI_EXPORT void XML_2_EmitSystemInfo(void);
VTAPI_EXPORT void XML_EmitHBAGeneralInfo(const SDMDevice *device);
VTAPI_EXPORT void XML_2_EmitHBAGeneralInfo(const SDMDevice *device);
VTAPI_EXPORT void XML_EmitTarget(const TargetEntry *target);
VTAPI_EXPORT void XML_2_EmitTarget(const TargetEntry *target);
VTAPI_EXPORT void XML_EmitLunInfo(const LunEntry *lun);
VTAPI_EXPORT void XML_2_EmitLunInfo(const LunEntry *lun);

#ifdef __cplusplus
}

namespace vt::cli {

// One line through scfxPrint, with its line end.
void XmlLine(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The VPD table of a port (the same in both formats).
void XmlVpdInfo(const VPDInfo *vpd);
// The summary of a port (the same in both formats).
void XmlHbaSummary(const SDMDevice *device);

}  // namespace vt::cli
#endif

#endif /* VT_CLI_XML_H */
