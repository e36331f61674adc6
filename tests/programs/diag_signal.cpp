// Runs the command line as the tool would, with a front end whose command
// is a loopback test without end on every physical port, and interrupts
// itself with SIGINT once the test has made a few runs.  The command line's
// signal handler must stop the test and end the process; reaching the end
// of the command is a failure (exit status 3).
//
//   diag_signal -kl all
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "diag/diag.h"
#include "vtapi_cli.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {
bool g_signalled = false;
}

extern "C" int32_t DiagGetKey(uint32_t) {
    usleep(1000);
    if (!g_signalled && GetLoopbackResultCount() >= 6) {
        g_signalled = true;
        kill(getpid(), SIGINT);
    }
    return -1;
}

extern "C" void scfxDiagnosticsPrint(const char *text) { fputs(text, stdout); }

extern "C" int32_t ProcessArg(int32_t, char **) {
    SetCoreEnableDebugMessage(1);
    InitializeLogMessageFile();
    InitializeUserDiagnosticsTable(DIAG_TEST_LOOPBACK);
    AddUserDiagnosticsData(DIAG_ROW_TEST_COUNT, "0");
    std::vector<SDMDevice *> ports;
    for (SDMDevice *d = GetMyDeviceList()->First; d; d = d->next)
        if (!isVirtualPortHBA(d)) ports.push_back(d);
    std::vector<VTAPI_DiagResult> results(ports.size());
    CreateLoopbackThreadTest(ports.data(), uint32_t(ports.size()), results.data());
    printf("the test ended without the signal\n");
    return 3;
}

int main(int argc, char **argv) { return int(RunFCCommandLine(argc, argv)); }
