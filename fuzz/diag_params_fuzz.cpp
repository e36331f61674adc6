// Feeds arbitrary parameter texts to the diagnostic and polling parameter
// checks and builds the request and its test data from whatever they
// accept.  The first bytes choose the table row, the test mode and whether
// the maximum-I/O preference is set; the rest is the value.  An accepted
// value must build a request whose data size and pattern are usable.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "../diag/diag.h"

namespace {
int32_t g_maxIoPreference = 0;

void Check(bool ok) {
    if (!ok) __builtin_trap();
}
}  // namespace

// What the parameter code calls in the library, here without the library.
extern "C" void LogDebug(const char *, uint32_t, const char *format, ...) {
    char line[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
}
extern "C" int32_t TarnPreferenceGetKeyValue(const char *, int32_t) { return g_maxIoPreference; }
extern "C" uint32_t CoreGetISPType(const SDMDevice *d) { return d ? d->DeviceChipProperty.DeviceID : 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3) return 0;
    const uint32_t row = data[0] % 8;  // past the last row too
    const uint32_t mode = (data[1] & 7) | ((data[1] & 8) ? DIAG_MENU_MODE : 0);
    g_maxIoPreference = data[2] & 1;
    const std::string value(reinterpret_cast<const char *>(data + 3), size - 3);

    char message[256];
    memset(message, 0x7F, sizeof message);
    const uint32_t rc = ValidateDiagnosticsParamValue(row, value.c_str(), message, mode);
    Check(rc == 0 || rc == 48 || rc == 60);
    if (rc != 0) Check(memchr(message, '\0', sizeof message) != nullptr);

    InitializeUserDiagnosticsTable(mode & 0xFF);
    if (rc == 0) Check(AddUserDiagnosticsData(row, value.c_str()) == 0);
    CompareUserDiagParamValue(message);
    SDMDevice adapter{};
    adapter.DeviceChipProperty.DeviceID = uint16_t(data[2] >> 1);  // chip type for the size rules
    DiagRequest rq{};
    Check(CopyUserDiagnosticsDataToDiagTable(&adapter, &rq, mode & 0xFF) == 0);
    if (rc == 0 && row == DIAG_ROW_DATA_SIZE) Check(rq.DataSize >= 8);
    Check(rq.DataSize <= 2097512);
    Check(rq.PatternKind >= 0 && rq.PatternKind <= 5);
    std::vector<uint8_t> buffer(std::max<uint32_t>(rq.DataSize, 8));
    Check(FillDiagnosticsPattern(&rq, buffer.data(), uint32_t(buffer.size())) == 0);

    // The polling parameters of both monitors.
    const uint32_t kind = data[1] >> 7;
    const uint32_t pollRow = data[0] % 5;
    const uint32_t prc = ValidatePollingParamValue(kind, pollRow, value.c_str(), message);
    Check(prc == 0 || prc == 48 || prc == 60);
    if (prc == 0) Check(AddUserPollingData(kind, pollRow, value.c_str()) == 0);
    return 0;
}
