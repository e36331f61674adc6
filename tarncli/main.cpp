// tarncli: runs one command through the library's command-line entry and
// supplies the front-end hooks the library calls: the command processor,
// help, version and the print hooks.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tarncli.h"
#include "vtapi_core.h"
#include "vtapi_oss.h"

namespace tarn {

void Out(const char *format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    scfxPrint(text.c_str());
}

namespace {

// Reports a failed command: an XML document with the status and message in
// XML mode, else the message on standard error.
int32_t Fail(int32_t status, const std::string &message) {
    if (bXmlOutPut) {
        XML_EmitStatusMessage(status, message.c_str(), 0, 1, 1);
    } else if (!bSilent) {
        std::fprintf(stderr, "%s\n", message.c_str());
        std::fflush(stderr);
    }
    return status;
}

}  // namespace
}  // namespace tarn

extern "C" {

// Replaces the library's empty hooks (the executable exports them).
VTAPI_EXPORT void scfxPrint(const char *text) {
    if (text == nullptr || (bSilent && !bSysLog)) return;
    std::fputs(text, g_fp != nullptr ? g_fp : stdout);
}

VTAPI_EXPORT void scfxDiagnosticsPrint(const char *text) {
    scfxPrint(text);
    std::fflush(g_fp != nullptr ? g_fp : stdout);
}

VTAPI_EXPORT void DisplayVersion(void) {
    char sdm[64] = "";
    SDGetVersion(sdm, sizeof sdm);
    tarn::Out("tarncli %s - command-line tool for Vantor Fibre Channel adapters\n", TARNCLI_VERSION);
    tarn::Out("Command-line core : Pallwick FCAPI v3.0.0 Build 3\n");
    tarn::Out("Device library    : libvtsdm %s\n", sdm);
}

VTAPI_EXPORT int32_t ProcessHelpArg(int32_t, char **) {
    const TarnCommand *cmd = TarnGetCommand();
    if (cmd->Command == TARN_CMD_NONE || cmd->Command == TARN_CMD_HELP) tarn::PrintUsage();
    else tarn::PrintCommandHelp(cmd->Command);
    return 0;
}

VTAPI_EXPORT int32_t ProcessArg(int32_t, char **) {
    const TarnCommand &cmd = *TarnGetCommand();
    if (bParseErr) {
        std::string message = cmd.ErrorText;
        if (!bXmlOutPut) message += "\nRun 'tarncli -h' for the usage.";
        return tarn::Fail(cmd.ParseStatus != 0 ? cmd.ParseStatus : TARN_STATUS_UNKNOWN_PARAM, message);
    }
    if (bMenu) {
        // The interactive menu is not part of this version: show the usage.
        tarn::PrintUsage();
        return 0;
    }
    if (cmd.Command == TARN_CMD_NONE)
        return tarn::Fail(TARN_STATUS_UNKNOWN_PARAM, "Error: No command given! Run 'tarncli -h' for the usage.");

    tarn::Result result;
    switch (cmd.Command) {
    case TARN_CMD_GENERAL: result = tarn::General(cmd); break;
    case TARN_CMD_INFO: result = tarn::Info(cmd); break;
    case TARN_CMD_TARGETS: result = tarn::Targets(cmd); break;
    case TARN_CMD_LUNS: result = tarn::Luns(cmd); break;
    case TARN_CMD_SUMMARY: result = tarn::Summary(cmd); break;
    default:
        result.status = TARN_STATUS_NOT_PERMITTED;
        result.error = std::string(cmd.Option) + " (" + TarnCommandDescription(cmd.Command) +
                       "): not available in this version of tarncli.";
        break;
    }
    if (result.status != 0) return tarn::Fail(result.status, result.error);
    return 0;
}

}  // extern "C"

int main(int argc, char **argv) {
    const uint32_t status = RunFCCommandLine(argc, argv);
    cleanup();
    std::fflush(stdout);
    return status <= 255 ? static_cast<int>(status) : 1;
}
