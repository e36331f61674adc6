// tarncli: runs one command through the library's command-line entry and
// supplies the front-end hooks the library calls.  The commands themselves
// are the library's: the parsed command carries their processing.
#include <cstdio>

#include "vtapi_cli.h"

extern "C" {

// Replaces the library's empty hooks (the executable exports them).
VTAPI_EXPORT void scfxPrint(const char *text) {
    if (text == nullptr || (bSilent && !bSysLog)) return;
    std::fputs(text, g_fp != nullptr ? g_fp : stdout);
}

// The running screen of the diagnostics and monitors.  With XML or JSON
// output it goes to standard error, so that standard output holds only the
// document.
VTAPI_EXPORT void scfxDiagnosticsPrint(const char *text) {
    if (bXmlOutPut || TarnGetCommand()->Output == TARN_OUTPUT_JSON) {
        if (text != nullptr && !bSilent) std::fputs(text, stderr);
        return;
    }
    scfxPrint(text);
    std::fflush(g_fp != nullptr ? g_fp : stdout);
}

VTAPI_EXPORT void DisplayVersion(void) {
    const TarnCommand *cmd = TarnGetCommand();
    cmd->Process(cmd);
}

VTAPI_EXPORT int32_t ProcessHelpArg(int32_t, char **) {
    const TarnCommand *cmd = TarnGetCommand();
    cmd->Help(cmd);
    return 0;
}

VTAPI_EXPORT int32_t ProcessArg(int32_t, char **) {
    const TarnCommand *cmd = TarnGetCommand();
    return cmd->Process(cmd);
}

}  // extern "C"

int main(int argc, char **argv) {
    const uint32_t status = RunFCCommandLine(argc, argv);
    cleanup();
    std::fflush(stdout);
    return status <= 255 ? static_cast<int>(status) : 1;
}
