/*
 * cli/xml_binding.h - the XML elements of persistent target bindings and of
 * selected and unselected LUNs.  As with every emitter pair, XML_Emit<Name>
 * hands its arguments to XML_2_Emit<Name> when bXmlOutPut2 is set.
 */
#ifndef VT_CLI_XML_BINDING_H
#define VT_CLI_XML_BINDING_H

#include <stdint.h>

#include "drvfiles/drvfiles.h"
#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* State of a bound target on its port. */
#define TARN_BINDING_NOT_PRESENT 0 /* the port does not see the target */
#define TARN_BINDING_ONLINE      1
#define TARN_BINDING_OFFLINE     2

/* One bound target.  Format 2 adds the device instance, the control byte
 * and the state. */
VTAPI_EXPORT void XML_EmitHBATargetPersistBinding(const FoTargetData *binding, int32_t state);
VTAPI_EXPORT void XML_2_EmitHBATargetPersistBinding(const FoTargetData *binding, int32_t state);
/* A complete port block holding one binding, in the tab-indented form of
 * XML_2_EmitHBAHeaderFooter. */
VTAPI_EXPORT void XML_3_EmitJustOneHBATargetPersistBinding(const SDMDevice *device, const FoTargetData *binding,
                                                           int32_t state);

/* One LUN of a target, selected (visible to the host) or unselected
 * (masked).  Format 2 adds the LUN's product when it is known (lun may be
 * null). */
VTAPI_EXPORT void XML_EmitSelectedLun(uint32_t lunNumber, const LunEntry *lun);
VTAPI_EXPORT void XML_2_EmitSelectedLun(uint32_t lunNumber, const LunEntry *lun);
VTAPI_EXPORT void XML_EmitUnselectedLun(uint32_t lunNumber, const LunEntry *lun);
VTAPI_EXPORT void XML_2_EmitUnselectedLun(uint32_t lunNumber, const LunEntry *lun);

#ifdef __cplusplus
}
#endif

#endif /* VT_CLI_XML_BINDING_H */
