/* A program that replaces internal functions of libvtapifconly with its own
 * and drives the library: the library's calls go through the dynamic symbol
 * table, so these definitions win.
 *
 *   vtapi_interpose hbaconf   replaces checkAndInstallHBAConfFile
 *   vtapi_interpose sleep     replaces OSSSleep (counts the requested waits)
 *   vtapi_interpose refresh N LOCKFILE   N refreshes; each rebuild checks
 *                             that no other process is rebuilding at the
 *                             same time (O_EXCL marker file)
 *   vtapi_interpose hold      blocks forever inside the locked rebuild
 *   vtapi_interpose path      prints the installation path found
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "vtapi.h"

static const char *g_mode = "";
static const char *g_marker = NULL;
static int g_overlaps = 0;
static unsigned g_sleepCalls = 0, g_sleepSeconds = 0;

uint32_t checkAndInstallHBAConfFile(void) {
    printf("replacement checkAndInstallHBAConfFile called\n");
    return 0;
}

void OSSSleep(uint32_t seconds) {
    ++g_sleepCalls;
    g_sleepSeconds += seconds;
}

uint32_t TarnReinitializeDevices(void) {
    static uint32_t (*real)(void) = NULL;
    if (!real) real = (uint32_t(*)(void))dlsym(RTLD_NEXT, "TarnReinitializeDevices");
    if (strcmp(g_mode, "hold") == 0) {
        printf("holding\n");
        fflush(stdout);
        for (;;) pause();
    }
    if (g_marker) {
        int fd = open(g_marker, O_CREAT | O_EXCL | O_WRONLY, 0600);
        if (fd < 0) {
            if (errno == EEXIST) ++g_overlaps;
        } else {
            close(fd);
        }
        struct timespec ts = {0, 2 * 1000 * 1000};
        nanosleep(&ts, NULL);
        uint32_t rc = real();
        if (fd >= 0) unlink(g_marker);
        return rc;
    }
    return real();
}

int main(int argc, char **argv) {
    g_mode = argc > 1 ? argv[1] : "";
    if (strcmp(g_mode, "refresh") == 0 && argc > 3) g_marker = argv[3];
    VTAPI_Initialize(9, NULL);
    if (strcmp(g_mode, "path") == 0) printf("installation path %s\n", gpInstallationPath);
    if (strcmp(g_mode, "refresh") == 0) {
        int n = argc > 2 ? atoi(argv[2]) : 10;
        for (int i = 0; i < n; ++i) VTAPI_RefreshData();
        printf("overlaps %d\n", g_overlaps);
    }
    printf("adapters %u sleeps %u seconds %u\n", VTAPI_GetAdapterCount(), g_sleepCalls, g_sleepSeconds);
    VTAPI_Uninitialize();
    return 0;
}
