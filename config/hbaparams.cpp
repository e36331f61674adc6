// The user's HBA-parameter table and its name and value checks, as the
// command line uses them to parse "NAME VALUE" requests, and the shared
// error-text buffer the configuration workers leave their messages in.
#include <strings.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/hbaparam_table.h"
#include "config/nvram_config.h"
#include "vtapi_cli.h"
#include "oss/oss.h"

namespace vt::config {
namespace {

char g_errorText[256];

UserNVRamEntry MakeEntry(const ParamRow &row) {
    UserNVRamEntry e{};
    std::snprintf(e.alias, sizeof e.alias, "%s", row.alias);
    std::snprintf(e.name, sizeof e.name, "%s", row.name);
    e.value = -1;
    return e;
}

bool Matches(const char *name, const UserNVRamEntry &e) {
    return striscmp(name, e.name) == 0 || striscmp(name, e.alias) == 0;
}

}  // namespace

const char *ConfigErrorText() { return g_errorText; }

void SetConfigErrorText(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(g_errorText, sizeof g_errorText, format, args);
    va_end(args);
}

void ClearConfigErrorText() { g_errorText[0] = '\0'; }

}  // namespace vt::config

using namespace vt::config;

extern "C" {

VTAPI_EXPORT UserNVRamEntry User_NVRam_Entry[39] = {
#define VT_ENTRY(i) MakeEntry(kParamRows[i])
    VT_ENTRY(0),  VT_ENTRY(1),  VT_ENTRY(2),  VT_ENTRY(3),  VT_ENTRY(4),  VT_ENTRY(5),  VT_ENTRY(6),  VT_ENTRY(7),
    VT_ENTRY(8),  VT_ENTRY(9),  VT_ENTRY(10), VT_ENTRY(11), VT_ENTRY(12), VT_ENTRY(13), VT_ENTRY(14), VT_ENTRY(15),
    VT_ENTRY(16), VT_ENTRY(17), VT_ENTRY(18), VT_ENTRY(19), VT_ENTRY(20), VT_ENTRY(21), VT_ENTRY(22), VT_ENTRY(23),
    VT_ENTRY(24), VT_ENTRY(25), VT_ENTRY(26), VT_ENTRY(27), VT_ENTRY(28), VT_ENTRY(29), VT_ENTRY(30), VT_ENTRY(31),
    VT_ENTRY(32), VT_ENTRY(33), VT_ENTRY(34), VT_ENTRY(35), VT_ENTRY(36), VT_ENTRY(37), VT_ENTRY(38),
#undef VT_ENTRY
};
static_assert(sizeof User_NVRam_Entry / sizeof User_NVRam_Entry[0] == kParamCount);

// Case-insensitive comparison of two texts; a null text sorts first.
VTAPI_EXPORT int32_t striscmp(const char *a, const char *b) {
    if (!a || !b) return a == b ? 0 : (a ? 1 : -1);
    return strcasecmp(a, b);
}

VTAPI_EXPORT void InitializeParamTable(void) {
    for (UserNVRamEntry &e : User_NVRam_Entry) e.value = -1;
}

VTAPI_EXPORT int32_t ValidateParamName(const char *name) {
    static const struct {
        const char *name, *alias, *text;
    } kRefused[] = {{"FastErrorReporting", "FE", "Fast Error Reporting"}, {"LinkDownError", "LD", "Link Down Error"}};
    for (const auto &r : kRefused)
        if (striscmp(name, r.name) == 0 || striscmp(name, r.alias) == 0) {
            SetConfigErrorText("Unsupported HBA parameter '%s' (Driver/OS limitation)!", r.text);
            return -1;
        }
    for (int i = 0; i < kParamCount; ++i)
        if (striscmp(name, kParamRows[i].name) == 0) return i;
    for (int i = 0; i < kParamCount; ++i)
        if (striscmp(name, kParamRows[i].parseAlias) == 0) return i;
    SetConfigErrorText("Invalid option '%s'!", name ? name : "");
    return -1;
}

VTAPI_EXPORT int32_t ValidateParamValue(int32_t index, int32_t value) {
    if (index < 0 || index >= kParamCount) {
        SetConfigErrorText("%s", kNameValueMessage);
        return -1;
    }
    const ParamRow &row = kParamRows[index];
    bool ok = false;
    switch (row.rule) {
    case ValueRule::Range: ok = value >= row.low && value <= row.high; break;
    case ValueRule::OneOf:
        for (uint8_t i = 0; i < row.count; ++i) ok = ok || row.values[i] == value;
        break;
    case ValueRule::RefusedByName: break;
    case ValueRule::AlwaysRefused: return -1;  // deliberately without a message of its own
    }
    if (ok) return 0;
    SetConfigErrorText("%s", row.message);
    return -1;
}

VTAPI_EXPORT int32_t CheckNumber(const char *text) {
    if (!text || !*text) return 0;
    for (const char *p = text; *p; ++p)
        if (*p < '0' || *p > '9') return 0;
    return 1;
}

VTAPI_EXPORT int32_t ParseNVRAMParameter(char *name, char *value) {
    if (!name || !*name || !value || !*value) {
        bParseErr = 1;
        return -1;
    }
    const int32_t index = ValidateParamName(name);
    TarnLogMessage(VT_MSG_DEBUG, "ParseNVRAMParameter: param=%s value=%s paramIndex=%d", name, value, index);
    int32_t status = -1;
    if (index >= 0) {
        if (kParamRows[index].words) {
            if (striscmp(value, "Enable") == 0) std::strcpy(value, "1");
            else if (striscmp(value, "Disable") == 0) std::strcpy(value, "0");
        }
        if (!CheckNumber(value)) {
            SetConfigErrorText("%s", kNameValueMessage);
        } else {
            errno = 0;
            const long number = std::strtol(value, nullptr, 10);
            const int32_t v = errno == ERANGE || number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
            status = ValidateParamValue(index, v);
            // The row by its name: the stored aliases would also hit row 36
            // for "PD", and know nothing of "PS".
            if (status == 0) AddUserNVRAMConfig(kParamRows[index].name, v);
        }
    }
    if (status != 0) bParseErr = 1;
    TarnLogMessage(VT_MSG_DEBUG, "ParseNVRAMParameter: status=%d", status);
    return status;
}

// Every row whose name or stored alias matches: "PD" sets both
// PortDownRetryCount and PortDisable, deliberately.
VTAPI_EXPORT void AddUserNVRAMConfig(const char *name, int32_t value) {
    for (UserNVRamEntry &e : User_NVRam_Entry)
        if (Matches(name, e)) {
            e.value = value;
            TarnLogMessage(VT_MSG_DEBUG, "AddUserNVRAMConfig: Added %s=%d", e.name, value);
        }
}

VTAPI_EXPORT int32_t SearchUserNVRAMConfig(const char *name) {
    for (const UserNVRamEntry &e : User_NVRam_Entry)
        if (Matches(name, e)) return e.value;
    return -1;
}

}  // extern "C"
