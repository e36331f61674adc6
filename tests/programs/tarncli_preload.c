/* Preloaded into tarncli by tests (LD_PRELOAD): replaces functions of
 * libvtapifconly, which the tool and the library reach through the dynamic
 * symbol table, so that a test can stop the tool inside a command.
 *
 *   VTTEST_HOLD_FILE=PATH      TarnGetCommand (which the tool calls when it
 *                              starts its command) creates PATH, then waits
 *                              for a signal without returning.
 *   VTTEST_RESTORE_STATUS=N    restore (the terminal restore of the
 *                              termination handler) returns N.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include "vtapi_cli.h"

const TarnCommand *TarnGetCommand(void) {
    const char *hold = getenv("VTTEST_HOLD_FILE");
    if (hold != NULL && *hold != '\0') {
        const int fd = open(hold, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0) close(fd);
        for (;;) pause();
    }
    const TarnCommand *(*real)(void) = (const TarnCommand *(*)(void))dlsym(RTLD_NEXT, "TarnGetCommand");
    return real();
}

int32_t restore(void) {
    const char *status = getenv("VTTEST_RESTORE_STATUS");
    if (status != NULL && *status != '\0') return (int32_t)atoi(status);
    int32_t (*real)(void) = (int32_t(*)(void))dlsym(RTLD_NEXT, "restore");
    return real();
}
