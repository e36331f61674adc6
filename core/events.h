/*
 * core/events.h - adapter events inside the core: polling the event queues
 * and the port states of every device, the notification status word of each
 * device, and the registered alarm callbacks.
 */
#ifndef VT_CORE_EVENTS_H
#define VT_CORE_EVENTS_H

#include <stdint.h>

#include "core/core.h"
#include "vtapi_events.h"

#ifdef __cplusplus
extern "C" {
#endif

VTAPI_EXPORT extern VTAPI_AlarmCallback gAlarmCallbacks[VTAPI_MAX_ALARM_CALLBACKS];
extern uint32_t g_LastEvent;          /* code of the last event polled */
extern uint32_t g_CoreSingleUserMode; /* set: a change is flagged, not rebuilt */
extern uint32_t g_CoreAenDisabled;
extern uint32_t g_CoreConfigChanged;
extern uint32_t g_CorePollingInterval;

/* Both return 0, or 0xFFFFFFFE when the device model must be rebuilt. */
VTAPI_EXPORT uint32_t CoreHandleAEN(void);
VTAPI_EXPORT uint32_t CoreHandlePortStateChange(void);
/* Calls every registered callback with these arguments. */
VTAPI_EXPORT uint32_t CoreGenerateHostNotificationAlarm(uint32_t device, uint32_t reserved1, uint32_t status,
                                                        uint32_t reserved2);
VTAPI_EXPORT uint32_t CoreLoadPollingInterval(void);
VTAPI_EXPORT uint32_t CoreSetPollingInterval(uint32_t seconds);
uint32_t CoreGetPollingInterval(void);

#ifdef __cplusplus
}
#endif

#endif /* VT_CORE_EVENTS_H */
