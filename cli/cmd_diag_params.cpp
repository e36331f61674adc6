// NAME=VALUE arguments of the diagnostic and monitor commands, checked and
// stored through the library's parameter tables.
#include "cli/cmd_diag_params.h"

#include <strings.h>

#include "diag/diag.h"

namespace vt::cli {

namespace {
constexpr uint32_t kUnknownRow = 0xFFFFFFFFu;
}  // namespace

Result SplitNamedArguments(const TarnCommand &cmd, const char *accepted, std::vector<NamedArgument> &out) {
    out.clear();
    for (uint32_t i = 0; i < cmd.SubArgCount; ++i) {
        const std::string word = cmd.SubArgs[i];
        const size_t eq = word.find('=');
        if (eq == std::string::npos || eq == 0)
            return {TARN_STATUS_UNKNOWN_PARAM, "Error: Invalid argument '" + word + "' for option " + cmd.Option +
                                                   "! Write NAME=VALUE with NAME one of " + accepted + "."};
        out.push_back({word.substr(0, eq), word.substr(eq + 1)});
    }
    return {};
}

Result SetDiagnosticParameters(const TarnCommand &cmd, uint32_t mode) {
    std::vector<NamedArgument> args;
    Result result = SplitNamedArguments(
        cmd, mode == DIAG_TEST_LOOPBACK ? "DP, DS, TC, TI, OE or LT" : "DP, DS, TC, TI or OE", args);
    if (result.status != 0) return result;
    InitializeUserDiagnosticsTable(mode);
    char message[256] = "";
    for (const NamedArgument &a : args) {
        uint32_t row = ValidateDiagnosticsParamName(a.name.c_str());
        // The buffer test has no loopback type.
        if (row == DIAG_ROW_LOOPBACK_TYPE && mode != DIAG_TEST_LOOPBACK) row = kUnknownRow;
        if (row == kUnknownRow) {
            ValidateDiagnosticsParamValue(kUnknownRow, a.name.c_str(), message, mode);
            return {TARN_STATUS_UNKNOWN_PARAM, message};
        }
        const uint32_t status = ValidateDiagnosticsParamValue(row, a.value.c_str(), message, mode);
        if (status != 0) return {static_cast<int32_t>(status), message};
        AddUserDiagnosticsData(row, a.value.c_str());
    }
    if (CompareUserDiagParamValue(message) != 0) return {TARN_STATUS_BAD_VALUE, message};
    return {};
}

Result SetPollingParameters(const TarnCommand &cmd, uint32_t kind, const std::vector<std::string> &extraNames,
                            std::vector<NamedArgument> &extra) {
    std::vector<NamedArgument> args;
    Result result =
        SplitNamedArguments(cmd, kind == POLL_STATISTICS ? "AP, SR, LF, DF or PF" : "AP, SR, LF or PF", args);
    if (result.status != 0) return result;
    InitializeUserPollingTable(kind);
    extra.clear();
    char message[256] = "";
    for (const NamedArgument &a : args) {
        bool isExtra = false;
        for (const std::string &name : extraNames) isExtra = isExtra || strcasecmp(name.c_str(), a.name.c_str()) == 0;
        if (isExtra) {
            extra.push_back(a);
            continue;
        }
        const uint32_t row = ValidatePollingParamName(kind, a.name.c_str());
        if (row == kUnknownRow) {
            ValidatePollingParamValue(kind, kUnknownRow, a.name.c_str(), message);
            return {TARN_STATUS_UNKNOWN_PARAM, message};
        }
        const uint32_t status = ValidatePollingParamValue(kind, row, a.value.c_str(), message);
        if (status != 0) return {static_cast<int32_t>(status), message};
        AddUserPollingData(kind, row, a.value.c_str());
    }
    return {};
}

std::vector<SDMDevice *> WorkerPorts(const std::vector<const SDMDevice *> &ports) {
    std::vector<SDMDevice *> out;
    for (const SDMDevice *d : ports) out.push_back(const_cast<SDMDevice *>(d));
    return out;
}

}  // namespace vt::cli
