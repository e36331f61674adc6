/*
 * vtapi_events.h - adapter events and alarm callbacks of libvtapifconly.
 * Events are polled on the caller's thread inside VTAPI_DidConfigChange;
 * registered callbacks are called from there with (device number, 0,
 * notification status, 0).
 */
#ifndef VTAPI_EVENTS_H
#define VTAPI_EVENTS_H

#include <stdint.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VTAPI_MAX_ALARM_CALLBACKS 32

/* Notification status bits. */
#define VTAPI_NOTIFY_LINK_DOWN      0x0001u
#define VTAPI_NOTIFY_LIP            0x0004u
#define VTAPI_NOTIFY_LINK_UP        0x0008u
#define VTAPI_NOTIFY_FABRIC_UPDATE  0x0010u
#define VTAPI_NOTIFY_STATE_ONLINE   0x0020u
#define VTAPI_NOTIFY_STATE_4        0x0040u
#define VTAPI_NOTIFY_STATE_5        0x0080u
#define VTAPI_NOTIFY_STATE_6        0x0100u
#define VTAPI_NOTIFY_DPORT          0x0200u
#define VTAPI_NOTIFY_LINK_DOWN_SENT 0x1000u
#define VTAPI_NOTIFY_PENDING        0x8000u
#define VTAPI_NOTIFY_FEC_ACTIVE     0x10000u

typedef uint32_t (*VTAPI_AlarmCallback)(uint32_t device, uint32_t reserved1, uint32_t status, uint32_t reserved2);

VTAPI_EXPORT uint32_t VTAPI_RegisterAlarmNotificationCallback(VTAPI_AlarmCallback callback);
VTAPI_EXPORT uint32_t VTAPI_UnRegisterAlarmNotificationCallback(VTAPI_AlarmCallback callback);

#ifdef __cplusplus
}
#endif

#endif /* VTAPI_EVENTS_H */
