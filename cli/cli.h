/*
 * cli/cli.h - the command-line core inside the library: the parse passes,
 * the core start-up for a command and the termination handling.  The entry,
 * the parsed command and the hooks are in vtapi_cli.h.
 */
#ifndef VT_CLI_CLI_H
#define VT_CLI_CLI_H

#include <stdint.h>

#include "vtapi_cli.h"

#ifdef __cplusplus
extern "C" {
#endif

extern char g_CmdFileName[256]; /* the -f file */
extern int32_t g_bIA64Host;     /* the host system type is "ia64" */

VTAPI_EXPORT void InitializeParameters(void);
VTAPI_EXPORT uint32_t ParseArg(int32_t argc, char **argv);
/* Gathers the arguments (from argv, or those already read from the command
 * file when fromFile is set) and handles the output switches. */
VTAPI_EXPORT uint32_t FirstPassParseArg(int32_t argc, char **argv, int32_t fromFile);
VTAPI_EXPORT uint32_t ParseArgumentsFromFile(void);
VTAPI_EXPORT uint32_t SecondPassParseArg(int32_t argc, char **argv);
VTAPI_EXPORT void CleanUpArgumentList(void);
VTAPI_EXPORT void CmdInit(int32_t argc, char **argv);
VTAPI_EXPORT void termination_handler(int32_t signum);
VTAPI_EXPORT int32_t get_terminfo(void);
/* Puts the saved terminal attributes back: 0, also when none were saved. */
int32_t restore(void);
/* Parses a WWN written as 8 hex pairs separated by ':' or '-', or as 16 hex
 * digits; 0 on success, 48 otherwise. */
uint32_t TarnParseWWN(const char *text, uint8_t *wwn);

#ifdef __cplusplus
}
#endif

#endif /* VT_CLI_CLI_H */
