/* Preloaded into tarncli by the diagnostics and monitor tests (LD_PRELOAD):
 * the library's waits and clock (OSSSleep, DiagGetTime, which it calls
 * through the dynamic symbol table) are replaced, so that retries a second
 * apart and polls every few seconds take no time.  A wait moves the clock.
 *
 *   VTTEST_CLOCK=SECONDS    the time the clock starts at (default: now)
 *   VTTEST_SIM_TOOL=PATH    vtsdm-sim: each wait also sets the simulated
 *                           host's clock to the new time, so that counters
 *                           with traffic grow with the waits
 *   VTTEST_SLEEP_LOG=PATH   each wait appends its seconds as a line
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char **environ;

static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static time_t g_now;
static int g_started;

static void Start(void) {
    if (g_started) return;
    const char *start = getenv("VTTEST_CLOCK");
    g_now = start != NULL && *start != '\0' ? (time_t)strtoll(start, NULL, 10) : time(NULL);
    g_started = 1;
}

static void SetSimulatorClock(time_t now) {
    const char *tool = getenv("VTTEST_SIM_TOOL");
    if (tool == NULL || *tool == '\0') return;
    char seconds[32];
    snprintf(seconds, sizeof seconds, "%lld", (long long)now);
    char *argv[] = {(char *)tool, (char *)"clock", (char *)"set", seconds, NULL};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    if (posix_spawn(&pid, tool, &actions, NULL, argv, environ) == 0) {
        int status;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}

time_t DiagGetTime(void) {
    pthread_mutex_lock(&g_mutex);
    Start();
    const time_t now = g_now;
    pthread_mutex_unlock(&g_mutex);
    return now;
}

void OSSSleep(uint32_t seconds) {
    pthread_mutex_lock(&g_mutex);
    Start();
    g_now += (time_t)seconds;
    SetSimulatorClock(g_now);
    const char *log = getenv("VTTEST_SLEEP_LOG");
    if (log != NULL && *log != '\0') {
        FILE *f = fopen(log, "a");
        if (f != NULL) {
            fprintf(f, "%u\n", seconds);
            fclose(f);
        }
    }
    pthread_mutex_unlock(&g_mutex);
}
