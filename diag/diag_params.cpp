// The diagnostic parameter table: its defaults per test mode, the
// validation of each value with the messages the user sees, the
// cross-check of increment against count, and the request record built from
// the table.
#include <strings.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "diag.h"
#include "diag_internal.h"
#include "core/core.h"
#include "oss/oss.h"

extern "C" {
VTAPI_EXPORT DiagParam g_UserDiagnosticsTable[DIAG_PARAM_COUNT];
}

namespace {

const char kFile[] = __FILE__;

constexpr uint32_t kBadValue = 48;
constexpr uint32_t kUnknownParam = 60;
constexpr uint32_t kMaxDataSize = 2097512;  // 0x200168, the largest any port takes
constexpr uint32_t kMaxSmallTestSize = 128;

constexpr uint32_t kLoopbackSizes[] = {8,    16,   32,   64,    128,   256,   512,  1024,
                                       2048, 4096, 8192, 16384, 32768, 65535, 65536};
// Sizes that only some ports run; the port answers a parameter error for
// the others.
constexpr uint32_t kLargeLoopbackSizes[] = {0x20000, 0x40000, 0x7FFFF, 0x100000, 0x200168};
constexpr uint32_t kSmallTestSizes[] = {8, 16, 32, 64, 128};
constexpr uint32_t kEchoSizes[] = {256, 512, 1024, 2048};

struct RowName {
    const char *alias;
    const char *name;
};
constexpr RowName kRows[DIAG_PARAM_COUNT] = {
    {"DP", "DataPattern"},   {"DS", "DataSize"}, {"TC", "TestCount"},
    {"TI", "TestIncrement"}, {"OE", "OnError"},  {"LT", "LoopbackType"},
};

template <size_t N>
bool OneOf(uint32_t v, const uint32_t (&list)[N]) {
    for (uint32_t x : list)
        if (x == v) return true;
    return false;
}

bool IsLoopbackMode(uint32_t mode) { return (mode & 0xFF) == DIAG_TEST_LOOPBACK; }
bool IsEchoMode(uint32_t mode) { return (mode & 0xFF) == DIAG_TEST_ELS_ECHO; }
bool IsMenuMode(uint32_t mode) { return (mode & DIAG_MENU_MODE) != 0; }

uint32_t Refuse(char *message, const char *text) {
    if (message) snprintf(message, vt::diag::kMessageSize, "%s", text);
    return kBadValue;
}

void CopyValue(char (&dst)[20], const char *value) { snprintf(dst, sizeof dst, "%s", value ? value : ""); }

}  // namespace

namespace vt::diag {

bool ParseUnsigned(const char *text, uint32_t &out) {
    if (!text || !*text) return false;
    int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
        if (!*text) return false;
    }
    uint64_t v = 0;
    for (const char *p = text; *p; ++p) {
        const int c = std::tolower(static_cast<unsigned char>(*p));
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else return false;
        v = v * uint64_t(base) + uint64_t(d);
        if (v > 0xFFFFFFFFull) return false;
    }
    out = uint32_t(v);
    return true;
}

std::optional<int> NamedPattern(const char *value) {
    if (!value) return std::nullopt;
    if (strcasecmp(value, "Random") == 0) return VTAPI_DIAG_PATTERN_RANDOM;
    if (strcasecmp(value, "CRPAT") == 0) return VTAPI_DIAG_PATTERN_CRPAT;
    if (strcasecmp(value, "CJTPAT") == 0) return VTAPI_DIAG_PATTERN_CJTPAT;
    if (strcasecmp(value, "CSPAT") == 0) return VTAPI_DIAG_PATTERN_CSPAT;
    return std::nullopt;
}

// Eight pattern bytes written as 16 hex digits (the table's values hold 19
// characters, no room for separators).
bool ParseUserPattern(const char *value, uint8_t out[8]) {
    if (!value || strlen(value) != 16) return false;
    for (size_t i = 0; i < 16; ++i)
        if (!std::isxdigit(static_cast<unsigned char>(value[i]))) return false;
    for (size_t i = 0; i < 8; ++i) {
        const char pair[3] = {value[2 * i], value[2 * i + 1], '\0'};
        out[i] = uint8_t(strtoul(pair, nullptr, 16));
    }
    return true;
}

}  // namespace vt::diag

extern "C" {

VTAPI_EXPORT void InitializeUserDiagnosticsTable(uint32_t mode) {
    for (uint32_t i = 0; i < DIAG_PARAM_COUNT; ++i) {
        DiagParam &p = g_UserDiagnosticsTable[i];
        p = DiagParam{};
        snprintf(p.Alias, sizeof p.Alias, "%s", kRows[i].alias);
        snprintf(p.Name, sizeof p.Name, "%s", kRows[i].name);
    }
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_DATA_PATTERN].Value, "Random");
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_DATA_SIZE].Value, mode == 0 ? "512" : "8");
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_TEST_COUNT].Value, "10");
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_TEST_INCREMENT].Value, "1");
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_ON_ERROR].Value, "0");
    // The loopback type starts as the mode's own digit for the modes that
    // have one, else as external loopback.
    const char *type = "2";
    switch (mode) {
    case 0: type = "0"; break;
    case 1: type = "1"; break;
    case 3: type = "3"; break;
    case 4: type = "4"; break;
    case 5: type = "5"; break;
    default: break;
    }
    CopyValue(g_UserDiagnosticsTable[DIAG_ROW_LOOPBACK_TYPE].Value, type);
}

VTAPI_EXPORT uint32_t ValidateDiagnosticsParamName(const char *name) {
    if (!name) return 0xFFFFFFFFu;
    for (uint32_t i = 0; i < DIAG_PARAM_COUNT; ++i)
        if (strcasecmp(name, kRows[i].name) == 0 || strcasecmp(name, kRows[i].alias) == 0) return i;
    return 0xFFFFFFFFu;
}

VTAPI_EXPORT uint32_t ValidateDiagnosticsParamValue(uint32_t row, const char *value, char *message, uint32_t mode) {
    using vt::diag::ParseUnsigned;
    if (!value) value = "";
    uint32_t n = 0;
    // A number is stored as its text, which holds at most 19 characters: a
    // longer one (leading zeros) would be cut when stored and mean another value.
    const bool number = strlen(value) < sizeof(DiagParam{}.Value) && ParseUnsigned(value, n);
    const bool loopback = IsLoopbackMode(mode);
    switch (row) {
    case DIAG_ROW_DATA_PATTERN: {
        const auto named = vt::diag::NamedPattern(value);
        if (named) {
            // The FC compliance patterns exist only for the loopback test.
            if (!loopback && *named != VTAPI_DIAG_PATTERN_RANDOM)
                return Refuse(message, "Data Pattern value must be in hex!");
            return 0;
        }
        if (!std::isxdigit(static_cast<unsigned char>(value[0])))
            return Refuse(message, "Data Pattern value must be in hex!");
        return 0;
    }
    case DIAG_ROW_DATA_SIZE:
        if (IsEchoMode(mode)) {
            if (!number || !OneOf(n, kEchoSizes))
                return Refuse(message, "Data Size value must be 256,512,1024 or 2048 bytes!");
        } else if (loopback) {
            if (!number || !(OneOf(n, kLoopbackSizes) || OneOf(n, kLargeLoopbackSizes)))
                return Refuse(message,
                              "Data Size value must be 8,16,32,64,128,256,512,1024,2048,4096,8192,16384,"
                              "32768 or 65535 bytes!");
        } else if (!number || !OneOf(n, kSmallTestSizes)) {
            return Refuse(message, "Data Size value must be 8,16,32,64 or 128 bytes!");
        }
        return 0;
    case DIAG_ROW_TEST_COUNT:
        if (loopback) {
            if (IsMenuMode(mode) && (!number || n < 1 || n > 65535))
                return Refuse(message, "Test count value must be from 1 to 65535!");
            if (!number || n > 65535) return Refuse(message, "Test Count value must be 0-65535!");
        } else {
            if (IsMenuMode(mode) && (!number || n < 1 || n > 10000))
                return Refuse(message, "Test count value must be from 1 to 10000!");
            if (!number || n > 10000) return Refuse(message, "Test count value must be from 0 to 10000!");
        }
        return 0;
    case DIAG_ROW_TEST_INCREMENT:
        if (loopback) {
            if (!number || n < 1 || n > 65535) return Refuse(message, "Test Increment value must be 1-65535!");
        } else if (!number || n < 1 || n > 10000) {
            return Refuse(message, "Test increment value must be from 1 to 10000!");
        }
        return 0;
    case DIAG_ROW_ON_ERROR:
        if (!number || n > 2) return Refuse(message, "Error value must be 0 (Ignore), 1 (Stop) or 2 (Loop)!");
        return 0;
    case DIAG_ROW_LOOPBACK_TYPE: {
        const bool maxIo = n == 5 && TarnPreferenceGetKeyValue("node.hba.diagnostics.maxio.enable", 0) != 0;
        if (!number || !(n <= 4 || maxIo)) {
            char text[vt::diag::kMessageSize];
            snprintf(text, sizeof text, "Invalid diagnostics loopback type (%d)!", number ? int(n) : -1);
            return Refuse(message, text);
        }
        return 0;
    }
    default: {
        char text[vt::diag::kMessageSize];
        snprintf(text, sizeof text, "Invalid diagnostics option (%s)!", value);
        Refuse(message, text);
        return kUnknownParam;
    }
    }
}

VTAPI_EXPORT uint32_t AddUserDiagnosticsData(uint32_t row, const char *value) {
    if (row >= DIAG_PARAM_COUNT) return kUnknownParam;
    CopyValue(g_UserDiagnosticsTable[row].Value, value);
    return 0;
}

VTAPI_EXPORT uint32_t CompareUserDiagParamValue(char *message) {
    uint32_t count = 0, increment = 0;
    if (!vt::diag::ParseUnsigned(g_UserDiagnosticsTable[DIAG_ROW_TEST_COUNT].Value, count) ||
        !vt::diag::ParseUnsigned(g_UserDiagnosticsTable[DIAG_ROW_TEST_INCREMENT].Value, increment))
        return Refuse(message, "Test Increment value must be less than Test Count value!");
    if (count != 0 && increment >= count)
        return Refuse(message, "Test Increment value must be less than Test Count value!");
    return 0;
}

VTAPI_EXPORT uint32_t CopyUserDiagnosticsDataToDiagTable(const SDMDevice *adapter, DiagRequest *request,
                                                         uint32_t testMode) {
    if (!request) return 8;
    using vt::diag::ParseUnsigned;
    const DiagParam *t = g_UserDiagnosticsTable;
    DiagRequest r{};
    r.AdapterInstance = adapter ? adapter->Instance : 0;

    const bool loopback = IsLoopbackMode(testMode);
    uint32_t size = 8;
    if (uint32_t v = 0; ParseUnsigned(t[DIAG_ROW_DATA_SIZE].Value, v)) size = v < kMaxDataSize ? v : kMaxDataSize;
    if (!loopback && !IsEchoMode(testMode) && size > kMaxSmallTestSize) size = kMaxSmallTestSize;
    if (loopback && adapter) {
        const uint32_t chip = CoreGetISPType(adapter);
        const bool large = chip == 17 || chip == 26;
        if (size == 65536 && !large) {
            size = 65535;
            LogDebug(kFile, __LINE__, "CopyUserDiagnosticsDataToDiagTable: Adjusted data size (FCoE) = %d", int(size));
        } else if (size == 65535 && large) {
            size = 65536;
            LogDebug(kFile, __LINE__, "CopyUserDiagnosticsDataToDiagTable: Adjusted data size (Tern)= %d", int(size));
        }
    }
    r.DataSize = size;

    const char *pattern = t[DIAG_ROW_DATA_PATTERN].Value;
    if (const auto named = vt::diag::NamedPattern(pattern)) {
        r.PatternKind = *named;
        if (r.PatternKind == VTAPI_DIAG_PATTERN_RANDOM) GenerateRandomPattern(r.Pattern);
    } else if (vt::diag::ParseUserPattern(pattern, r.Pattern)) {
        r.PatternKind = VTAPI_DIAG_PATTERN_USER;
        const uint8_t *b = r.Pattern;
        LogDebug(kFile, __LINE__, "Customized Data Pattern:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2],
                 b[3], b[4], b[5], b[6], b[7]);
    } else {
        // Only the first two hex digits count: "5A77" is the byte 5A.
        unsigned byte = 0;
        sscanf(pattern, "%2x", &byte);
        r.PatternKind = VTAPI_DIAG_PATTERN_BYTE;
        memset(r.Pattern, int(byte & 0xFF), sizeof r.Pattern);
        const uint8_t *b = r.Pattern;
        LogDebug(kFile, __LINE__, "Data Pattern:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
                 b[5], b[6], b[7]);
    }

    uint32_t v = 0;
    r.TestCount = ParseUnsigned(t[DIAG_ROW_TEST_COUNT].Value, v) ? int32_t(v) : 10;
    r.Continuous = r.TestCount == 0 ? 1 : 0;
    r.TestIncrement = ParseUnsigned(t[DIAG_ROW_TEST_INCREMENT].Value, v) && v > 0 ? int32_t(v) : 1;
    r.OnError = ParseUnsigned(t[DIAG_ROW_ON_ERROR].Value, v) ? int32_t(v) : 0;
    r.LoopbackType = ParseUnsigned(t[DIAG_ROW_LOOPBACK_TYPE].Value, v) ? int32_t(v) : 2;
    r.DataIntegrityCheck = r.LoopbackType == 5 ? 1 : 0;
    *request = r;
    return 0;
}

VTAPI_EXPORT void GenerateRandomPattern(uint8_t *bytes) {
    if (!bytes) return;
    srand(unsigned(getpid()) + unsigned(time(nullptr)));
    for (int i = 0; i < 8; ++i) bytes[i] = uint8_t(rand() & 0xFF);
}

}  // extern "C"

namespace {
// The table holds the loopback defaults from the start.
const bool g_defaults = (InitializeUserDiagnosticsTable(DIAG_TEST_LOOPBACK), true);
}  // namespace
