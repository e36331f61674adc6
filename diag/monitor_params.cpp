// The polling parameters of the statistics and link status monitors, with
// their defaults and the validation messages the user sees.
#include <strings.h>

#include <cstdio>
#include <cstring>

#include "diag.h"
#include "diag_internal.h"

extern "C" {
PollParam g_UserPollingTable[2][POLL_PARAM_COUNT];
}

namespace {

struct RowName {
    const char *alias;
    const char *name;
    const char *value;
};
constexpr RowName kRows[POLL_PARAM_COUNT] = {
    {"AP", "AutoPoll", "0"}, {"SR", "SetRate", "5"}, {"LF", "LogToFile", ""}, {"DF", "DeviceFilter", "0"}};

bool KnownKind(uint32_t kind) { return kind == POLL_STATISTICS || kind == POLL_LINK_STATUS; }
// The device filter belongs to the statistics monitor only.
uint32_t Rows(uint32_t kind) { return kind == POLL_STATISTICS ? POLL_PARAM_COUNT : POLL_ROW_DEVICE_FILTER; }

uint32_t Refuse(char *message, const char *text) {
    if (message) snprintf(message, vt::diag::kMessageSize, "%s", text);
    return vt::diag::kBadValue;
}

}  // namespace

namespace vt::diag {

uint32_t PollingValue(uint32_t kind, uint32_t row) {
    uint32_t v = 0;
    if (KnownKind(kind) && row < POLL_PARAM_COUNT) ParseUnsigned(g_UserPollingTable[kind][row].Value, v);
    return v;
}

const char *PollingText(uint32_t kind, uint32_t row) {
    return KnownKind(kind) && row < POLL_PARAM_COUNT ? g_UserPollingTable[kind][row].Value : "";
}

MonitorSettings ReadMonitorSettings(uint32_t kind) {
    return MonitorSettings{PollingValue(kind, POLL_ROW_AUTO_POLL), PollingValue(kind, POLL_ROW_SET_RATE),
                           PollingText(kind, POLL_ROW_LOG_TO_FILE)};
}

}  // namespace vt::diag

extern "C" {

VTAPI_EXPORT void InitializeUserPollingTable(uint32_t kind) {
    if (!KnownKind(kind)) return;
    for (uint32_t i = 0; i < POLL_PARAM_COUNT; ++i) {
        PollParam &p = g_UserPollingTable[kind][i];
        p = PollParam{};
        snprintf(p.Alias, sizeof p.Alias, "%s", kRows[i].alias);
        snprintf(p.Name, sizeof p.Name, "%s", kRows[i].name);
        snprintf(p.Value, sizeof p.Value, "%s", kRows[i].value);
    }
}

VTAPI_EXPORT uint32_t ValidatePollingParamName(uint32_t kind, const char *name) {
    if (!name || !KnownKind(kind)) return 0xFFFFFFFFu;
    for (uint32_t i = 0; i < Rows(kind); ++i)
        if (strcasecmp(name, kRows[i].name) == 0 || strcasecmp(name, kRows[i].alias) == 0) return i;
    return 0xFFFFFFFFu;
}

VTAPI_EXPORT uint32_t ValidatePollingParamValue(uint32_t kind, uint32_t row, const char *value, char *message) {
    if (!value) value = "";
    uint32_t n = 0;
    // Numbers are stored as text: one too long for the table would be cut.
    const bool number = strlen(value) < sizeof(PollParam{}.Value) && vt::diag::ParseUnsigned(value, n);
    if (!KnownKind(kind) || row >= Rows(kind)) {
        char text[vt::diag::kMessageSize];
        snprintf(text, sizeof text, "Invalid polling option (%s)!", value);
        Refuse(message, text);
        return 60;
    }
    switch (row) {
    case POLL_ROW_AUTO_POLL:
        if (!number || n > 256)
            return Refuse(message, "Polling iteration value must be from 0 to 256. (0 = non-stop polling)!");
        return 0;
    case POLL_ROW_SET_RATE:
        if (!number || (n != 0 && (n < 5 || n > 300)))
            return Refuse(message, "Polling time interval must be 0 or between 5 and 300 seconds");
        return 0;
    case POLL_ROW_DEVICE_FILTER:
        if (!number || n > 1) return Refuse(message, "Device filter option must be 0 or 1!");
        return 0;
    default:  // the log file: any name the user gives
        return 0;
    }
}

VTAPI_EXPORT uint32_t AddUserPollingData(uint32_t kind, uint32_t row, const char *value) {
    if (!KnownKind(kind) || row >= Rows(kind)) return 60;
    snprintf(g_UserPollingTable[kind][row].Value, sizeof g_UserPollingTable[kind][row].Value, "%s", value ? value : "");
    return 0;
}

}  // extern "C"

namespace {
// Both tables hold their defaults from the start.
const bool g_defaults =
    (InitializeUserPollingTable(POLL_STATISTICS), InitializeUserPollingTable(POLL_LINK_STATUS), true);
}  // namespace
