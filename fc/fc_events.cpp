// FC_ functions of the adapter events: the poll behind VTAPI_DidConfigChange
// and the host notification alarm.
#include "core/events.h"
#include "fc/fc.h"
#include "oss/oss.h"
#include "oss/oss_status.h"

extern "C" {

VTAPI_EXPORT uint32_t FC_GenerateHostNotificationAlarm(uint32_t device, uint32_t reserved1, uint32_t status,
                                                       uint32_t reserved2) {
    return CoreGenerateHostNotificationAlarm(device, reserved1, status, reserved2);
}

VTAPI_EXPORT void FC_CorePollForAEN(void) {
    const uint32_t aen = CoreHandleAEN();
    if (aen == vt::kRebuildRequested)
        LogDebug(__FILE__, __LINE__, "FC_CorePollForAEN: CoreHandleAEN() requests a DB rebuild");
    const uint32_t ports = CoreHandlePortStateChange();
    if (ports == vt::kRebuildRequested)
        LogDebug(__FILE__, __LINE__, "FC_CorePollForAEN: CoreHandlePortStateChange() requests a DB rebuild");
    if (aen != vt::kRebuildRequested && ports != vt::kRebuildRequested) return;
    LogDebug(__FILE__, __LINE__, "FC_CorePollForAEN: Rebuilding CoreDB - Notifying clients of change");
    guConfigChanged = 1;
}

VTAPI_EXPORT uint32_t CheckFCStructureSizes(void) { return vt::kOk; }

}  // extern "C"
