// The exported alarm callback calls: up to VTAPI_MAX_ALARM_CALLBACKS
// callbacks, which the event poll of VTAPI_DidConfigChange calls.
#include "core/events.h"
#include "oss/oss.h"
#include "oss/oss_status.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_RegisterAlarmNotificationCallback(VTAPI_AlarmCallback callback) {
    ProfilerEnterFunction("VTAPI_RegisterAlarmNotificationCallback");
    uint32_t rc = VTAPI_INVALID_ARGUMENT;
    if (callback) {
        rc = VTAPI_GENERAL_FAILURE;  // every slot taken
        for (VTAPI_AlarmCallback &slot : gAlarmCallbacks) {
            if (slot == callback || !slot) {
                slot = callback;
                rc = VTAPI_SUCCESS;
                break;
            }
        }
    }
    LogDebug(__FILE__, __LINE__, "VTAPI_RegisterAlarmNotificationCallback(): returning with %d", rc);
    ProfilerExitFunction("VTAPI_RegisterAlarmNotificationCallback");
    return rc;
}

VTAPI_EXPORT uint32_t VTAPI_UnRegisterAlarmNotificationCallback(VTAPI_AlarmCallback callback) {
    ProfilerEnterFunction("VTAPI_UnRegisterAlarmNotificationCallback");
    uint32_t rc = VTAPI_INVALID_ARGUMENT;  // also when it is not registered
    if (callback)
        for (VTAPI_AlarmCallback &slot : gAlarmCallbacks)
            if (slot == callback) {
                slot = nullptr;
                rc = VTAPI_SUCCESS;
                break;
            }
    LogDebug(__FILE__, __LINE__, "VTAPI_UnRegisterAlarmNotificationCallback(): returning with %d", rc);
    ProfilerExitFunction("VTAPI_UnRegisterAlarmNotificationCallback");
    return rc;
}

}  // extern "C"
