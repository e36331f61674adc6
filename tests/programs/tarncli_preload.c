/* Preloaded into tarncli by tests (LD_PRELOAD): replaces functions that the
 * tool and the library reach through the dynamic symbol table, so that a
 * test can stop the tool inside a command.
 *
 *   VTTEST_HOLD_FILE=PATH      TarnGetCommand (which the tool calls when it
 *                              starts its command) creates PATH, then waits
 *                              for a signal without returning.
 *   VTTEST_TERMINAL_FAILS=1    the terminal's attributes can be read (as if
 *                              standard input were a terminal) but not set
 *                              back, so the termination handler's restore
 *                              fails.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
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

static int TerminalFails(void) {
    const char *fails = getenv("VTTEST_TERMINAL_FAILS");
    return fails != NULL && strcmp(fails, "1") == 0;
}

int tcgetattr(int fd, struct termios *attributes) {
    if (TerminalFails()) {
        memset(attributes, 0, sizeof *attributes);
        return 0;
    }
    int (*real)(int, struct termios *) = (int (*)(int, struct termios *))dlsym(RTLD_NEXT, "tcgetattr");
    return real(fd, attributes);
}

int tcsetattr(int fd, int actions, const struct termios *attributes) {
    if (TerminalFails()) return -1;
    int (*real)(int, int, const struct termios *) =
        (int (*)(int, int, const struct termios *))dlsym(RTLD_NEXT, "tcsetattr");
    return real(fd, actions, attributes);
}
