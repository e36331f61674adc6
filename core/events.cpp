// Adapter events: polling the event queues and port states of every device,
// the per-device notification status word, and the alarm callbacks.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/core.h"
#include "core/events.h"
#include "oss/oss.h"
#include "oss/oss_status.h"

namespace {

const char kFile[] = __FILE__;

const char *EventText(uint32_t code) {
    switch (code) {
    case 1: return "Lip Occurred";
    case 2: return "Link Up";
    case 3: return "Link Down";
    case 4: return "Lip Reset Occurred";
    case 5: return "SCR Update";
    case 6: return "Device Update";
    case 8: return "Dport Diagnosis";
    case 9: return "FEC Active";
    default: return "**Unknown**";
    }
}

}  // namespace

extern "C" {

VTAPI_EXPORT VTAPI_AlarmCallback gAlarmCallbacks[VTAPI_MAX_ALARM_CALLBACKS];
uint32_t g_LastEvent = 0;
uint32_t g_CoreSingleUserMode = 0;
uint32_t g_CoreAenDisabled = 0;
uint32_t g_CoreConfigChanged = 0;
uint32_t g_CorePollingInterval = 30;

VTAPI_EXPORT uint32_t CoreGenerateHostNotificationAlarm(uint32_t device, uint32_t reserved1, uint32_t status,
                                                        uint32_t reserved2) {
    for (VTAPI_AlarmCallback cb : gAlarmCallbacks)
        if (cb) cb(device, reserved1, status, reserved2);
    return 0;
}

VTAPI_EXPORT uint32_t CoreHandleAEN(void) {
    bool rebuild = false;
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        if (!CoreIsAenSupported(d)) {
            LogDebug(kFile, __LINE__, "CoreHandleAEN: Skipping Device [%d] (AEN Unsupported)", d->Instance);
            continue;
        }
        SDAenRecord events[64];
        uint32_t count = 0;
        uint32_t rc = SDGetAen(d->DeviceHandle, events, sizeof events, &count);
        if (rc != SDERR_NONE) {
            LogInfo(kFile, __LINE__, "SDGetAen: Unable to complete query on device[%d]: (0x%x) (%s)", d->Instance, rc,
                    SDGetErrorString(rc));
            continue;
        }
        if (count > 64) {
            count = 64;
            LogDebug(kFile, __LINE__, "CoreHandleAEN: Device [%d] ajusted count to 64", d->Instance);
        }
        if (count) LogDebug(kFile, __LINE__, "CoreHandleAEN: Device [%d] has (%d) events", d->Instance, count);
        uint32_t summary = 0;
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t code = events[i].Code;
            switch (code) {
            case 1: summary |= 0x0004; break;
            case 2: summary = (summary | 0x0008) & ~0x0001u; break;
            case 3:
                summary |= 0x0001;
                rebuild = true;
                break;
            case 5:
            case 6:
                summary |= 0x0010;
                rebuild = true;
                break;
            case 8: summary |= 0x0200; break;
            case 9: summary |= 0x10000; break;
            default: break;
            }
            g_LastEvent = (code >= 1 && code <= 9 && code != 7) ? code : 0;
            LogInfo(kFile, __LINE__, "CoreHandleAEN: Device[%d].Event[%d]: (%s)", d->Instance, i, EventText(code));
        }
        if (summary != 0 && summary != d->NotificationStatus) {
            uint32_t status = summary | ((summary & 0x0001) ? 0x1000 : 0x8000);
            LogDebug(kFile, __LINE__, "CoreHandleAEN: Notification status Device[%d] = [%04x]", d->Instance, status);
            CoreGenerateHostNotificationAlarm(d->Instance, 0, status, 0);
            if (!(status & 0x0001)) status &= ~0x8000u;
            d->NotificationStatus = status;
        }
    }
    if (!rebuild) return 0;
    if (!g_CoreSingleUserMode) {
        LogDebug(kFile, __LINE__, "CoreHandleAEN: Flagging rebuilding of CoreDB...");
        return vt::kRebuildRequested;
    }
    g_CoreConfigChanged = 1;
    return 0;
}

VTAPI_EXPORT uint32_t CoreHandlePortStateChange(void) {
    bool rebuild = false;
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        SDPortProperty port;
        if (SDGetHbaDevicePortProperty(d->DeviceHandle, &port) != SDERR_NONE) {
            LogError(kFile, __LINE__, "CoreHandlePortStateChange: Cannot retrieve port status for device (%d)",
                     d->Instance);
            continue;
        }
        d->DevicePortProperty = port;
        const uint16_t state = port.PortState;
        uint32_t &status = d->NotificationStatus;
        if (state < 1 || state > 6) continue;
        if (state == 1) {
            if (status & 0x0001) {
                if (status & 0x1000) {
                    status &= ~(0x0001u | 0x1000u);
                    LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Device (%d) - Notification status [%04x]",
                             d->Instance, status);
                    CoreGenerateHostNotificationAlarm(d->Instance, 0, status, 0);
                } else {
                    status &= ~0x0001u;
                }
                if (g_CoreAenDisabled)
                    LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Skipping Rebuild due to disabled AEN");
                else rebuild = true;
            }
        } else if (state == 2 || state == 3) {
            status |= 0x0001;
            LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Device (%d) - Notification status [%04x]",
                     d->Instance, status);
            if (!(status & 0x1000)) {
                status |= 0x1000;
                if (g_CoreAenDisabled)
                    LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Skipping Rebuild due to disabled AEN");
                else rebuild = true;
            }
        }
        LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Device (%d) - Link State [%04x]", d->Instance, state);
        status &= ~(0x0020u | 0x0040u | 0x0080u | 0x0100u | 0x0200u);
        if (state == 1) status |= 0x0020;
        if (state == 4) status |= 0x0040;
        if (state == 5) status |= 0x0080;
        if (state == 6) status |= 0x0100;
        if (port.PortSubState == SD_PORTSUBSTATE_DPORT) status |= 0x0200;
    }
    if (!rebuild) return 0;
    if (!g_CoreSingleUserMode) {
        LogDebug(kFile, __LINE__, "CoreHandlePortStateChange: Rebuilding CoreDB...");
        return vt::kRebuildRequested;
    }
    g_CoreConfigChanged = 1;
    return 0;
}

VTAPI_EXPORT uint32_t CoreLoadPollingInterval(void) {
    // The agent file is never opened in this library, so the key keeps its
    // default unless a replacement opener supplies the file.
    uint32_t interval = 30;
    FILE *f = PrefOpenPreferenceFile(g_configurationFileName);
    if (f) {
        const char *v = PrefGetProperty(f, "node.agent.polling.interval");
        if (v) {
            char *end = nullptr;
            long n = strtol(v, &end, 10);
            if (end != v && n > 0) interval = uint32_t(n);
        }
        PrefClosePreferenceFile(f);
    }
    g_CorePollingInterval = interval;
    return interval;
}

uint32_t CoreGetPollingInterval(void) { return g_CorePollingInterval; }

VTAPI_EXPORT uint32_t CoreSetPollingInterval(uint32_t seconds) {
    char value[16];
    snprintf(value, sizeof value, "%u", seconds);
    FILE *f = PrefOpenPreferenceFile(g_configurationFileName);
    uint32_t rc = PrefSetProperty(f, "node.agent.polling.interval", value);
    if (f) PrefClosePreferenceFile(f);
    if (rc == 0) g_CorePollingInterval = seconds;
    return rc;
}

}  // extern "C"
