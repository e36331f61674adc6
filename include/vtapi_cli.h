/*
 * vtapi_cli.h - command-line core of libvtapifconly: the entry
 * RunFCCommandLine, the parsed command it hands to the front end, the parse
 * and output flags, and the front-end hooks.
 *
 * A command-line front end calls RunFCCommandLine(argc, argv), then
 * cleanup(), and defines its own ProcessArg, ProcessHelpArg, DisplayVersion,
 * scfxPrint and scfxDiagnosticsPrint; exported from the executable, they
 * replace the empty hooks of this library.  The parsed command carries the
 * library's own processing of it (Process, Help), which writes the report
 * in the output form the switches chose (text, XML format 1 or 2, JSON)
 * through scfxPrint.
 */
#ifndef VTAPI_CLI_H
#define VTAPI_CLI_H

#include <stdint.h>
#include <stdio.h>

#include "vtapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------- statuses */
#define TARN_STATUS_OK               0
#define TARN_STATUS_NO_ADAPTER       8  /* no adapter port, or none selected */
#define TARN_STATUS_BAD_VALUE        48 /* bad parameter value */
#define TARN_STATUS_UNKNOWN_PARAM    60 /* unknown or unexpected parameter */
#define TARN_STATUS_NOT_SUPPORTED    61 /* not supported on this HBA */
#define TARN_STATUS_NOT_PERMITTED    66 /* not permitted / not available */
#define TARN_STATUS_TEMPLATE_MISSING 84 /* NVRAM template missing */
#define TARN_STATUS_NO_MEMORY        115
#define TARN_STATUS_OUTPUT_SWITCH    136 /* output switch (-o, -x, -j, -f) error */

/* ------------------------------------------------------- parsed command */
/* Commands of the usage list.  The display commands shipped by tarncli come
 * first; the others are recognised so that they can be refused by name. */
typedef enum TarnCommandId {
    TARN_CMD_NONE = 0,
    TARN_CMD_GENERAL,          /* -g   general host information */
    TARN_CMD_INFO,             /* -i   adapter information and VPD */
    TARN_CMD_TARGETS,          /* -t   attached targets */
    TARN_CMD_LUNS,             /* -l   LUN information */
    TARN_CMD_SUMMARY,          /* -z   summary report */
    TARN_CMD_VERSION,          /* -v */
    TARN_CMD_HELP,             /* -h, -? */
    TARN_CMD_PARAMS,           /* -c */
    TARN_CMD_MODIFY_PARAMS,    /* -n */
    TARN_CMD_PERSIST_BIND,     /* -p */
    TARN_CMD_FLASH,            /* -b */
    TARN_CMD_DRIVER_UPDATE,    /* -d */
    TARN_CMD_SELECT_LUNS,      /* -m */
    TARN_CMD_BOOT_DEVICES,     /* -e */
    TARN_CMD_LED,              /* -a */
    TARN_CMD_LOOPBACK,         /* -kl */
    TARN_CMD_RWBUFFER,         /* -kr */
    TARN_CMD_DRV_SETTINGS_GET, /* -fg */
    TARN_CMD_DRV_SETTINGS_SET, /* -fs */
    TARN_CMD_STATISTICS,       /* -gs */
    TARN_CMD_LINK_STATUS,      /* -ls */
    TARN_CMD_TARGET_BEACON,    /* -tb */
    TARN_CMD_TRANSCEIVER,      /* -dm */
    TARN_CMD_TOPOLOGY,         /* -tp, -topology */
    TARN_CMD_HBA_ALIAS,        /* -ha */
    TARN_CMD_PORT_ALIAS,       /* -pa */
    TARN_CMD_IIDMA,            /* -q */
    TARN_CMD_PL,               /* -pl */
    TARN_CMD_TM,               /* -tm */
    TARN_CMD_VPORTS,           /* -vp */
    TARN_CMD_U,                /* -u */
    TARN_CMD_SP,               /* -sp */
    TARN_CMD_PC,               /* -pc */
    TARN_CMD_FWDUMP,           /* -fwdump */
    TARN_CMD_EI,               /* -ei */
    TARN_CMD_COUNT
} TarnCommandId;

/* How a command selects adapter ports. */
#define TARN_SELECT_ALL      0
#define TARN_SELECT_INSTANCE 1
#define TARN_SELECT_WWPN     2
#define TARN_SELECT_ALIAS    3 /* a port alias, else an adapter alias (Alias) */

/* The output form the switches chose. */
#define TARN_OUTPUT_TEXT 0
#define TARN_OUTPUT_XML  1 /* -x */
#define TARN_OUTPUT_XML2 2 /* -x2 */
#define TARN_OUTPUT_JSON 3 /* -j */

#define TARN_MAX_SUBARGS 16
#define TARN_SUBARG_SIZE 512 /* holds an alias of 256 characters and more */
#define TARN_MAX_ARGS    255

typedef struct TarnCommand {
    int32_t Command;      /* TarnCommandId */
    char Option[16];      /* the option word as written, e.g. "-t" or "/t" */
    int32_t Selection;    /* TARN_SELECT_* */
    uint32_t Instance;    /* with TARN_SELECT_INSTANCE */
    uint8_t WWPN[8];      /* with TARN_SELECT_WWPN */
    uint32_t SubArgCount; /* arguments after the port selector */
    char SubArgs[TARN_MAX_SUBARGS][TARN_SUBARG_SIZE];
    int32_t ParseStatus; /* 0, or the status of the parse error */
    char ErrorText[256]; /* text of the parse error (shared error buffer) */
    int32_t Output;      /* TARN_OUTPUT_* */
    /* The library's processing of this command, for the front end's
     * ProcessArg and DisplayVersion: the command's report, the version, the
     * parse error or the usage, written through scfxPrint (a failure in text
     * form goes to standard error).  Returns the command's status. */
    int32_t (*Process)(const struct TarnCommand *command);
    /* For ProcessHelpArg: the usage page, or the help of Command. */
    void (*Help)(const struct TarnCommand *command);
    char Alias[TARN_SUBARG_SIZE]; /* with TARN_SELECT_ALIAS */
} TarnCommand;

/* The command of the last parse; never null. */
VTAPI_EXPORT const TarnCommand *TarnGetCommand(void);

/* ------------------------------------------------ parse and output flags */
VTAPI_EXPORT extern int32_t bHelp;
VTAPI_EXPORT extern int32_t bGetAppVersion;
VTAPI_EXPORT extern int32_t bParseErr;
VTAPI_EXPORT extern int32_t bOptionEnable;
VTAPI_EXPORT extern int32_t bCmdFile;
VTAPI_EXPORT extern int32_t bMenu;
VTAPI_EXPORT extern int32_t argumentCount;
VTAPI_EXPORT extern int32_t bXmlOutPut;      /* XML output (-x, -x2) */
VTAPI_EXPORT extern int32_t bXmlOutPut2;     /* XML format 2 (-x2) */
VTAPI_EXPORT extern int32_t bSilent;         /* -s */
VTAPI_EXPORT extern int32_t bSysLog;         /* -o system */
VTAPI_EXPORT extern FILE *g_fp;              /* the -o file, or null */
VTAPI_EXPORT extern char g_LogFileName[256]; /* its name */

/* Termination state. */
#define TARN_DIAG_IDLE    0
#define TARN_DIAG_STOPPED 1
#define TARN_DIAG_RUNNING 2
#define TARN_DIAG_HANDLER 3
VTAPI_EXPORT extern volatile int32_t g_signalHandlerInProgress;
VTAPI_EXPORT extern volatile int32_t g_DiagState;
VTAPI_EXPORT extern uint32_t g_ResourcesDeallocated;

/* ----------------------------------------------------------------- entry */
VTAPI_EXPORT uint32_t RunFCCommandLine(int32_t argc, char **argv);
/* Releases the core's resources once (not after help, a parse error or the
 * version). */
VTAPI_EXPORT void cleanup(void);

/* Front-end hooks: empty in this library (ProcessArg and ProcessHelpArg
 * return 0), replaced by the command-line tool. */
VTAPI_EXPORT int32_t ProcessArg(int32_t argc, char **argv);
VTAPI_EXPORT int32_t ProcessHelpArg(int32_t argc, char **argv);
VTAPI_EXPORT void DisplayVersion(void);
VTAPI_EXPORT void scfxPrint(const char *text);
VTAPI_EXPORT void scfxDiagnosticsPrint(const char *text);

/* ------------------------------------------------------ XML documents */
/* The frame and status message of the XML reports, for any part of the
 * library or a front end that reports an outcome in XML mode.  Each
 * XML_Emit<Name> hands its arguments to XML_2_Emit<Name> when bXmlOutPut2 is
 * set.  XML_PrintElement writes one element line with its indentation. */
VTAPI_EXPORT void XML_PrintElement(const char *indent, const char *name, const char *value);

VTAPI_EXPORT void XML_EmitMainHeader(void);
VTAPI_EXPORT void XML_2_EmitMainHeader(void);
VTAPI_EXPORT void XML_EmitMainFooter(void);
VTAPI_EXPORT void XML_2_EmitMainFooter(void);
VTAPI_EXPORT void XML_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                        int32_t footer);
VTAPI_EXPORT void XML_2_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                          int32_t footer);
VTAPI_EXPORT void XML_EmitErrorMessage(const char *errorText);
VTAPI_EXPORT void XML_2_EmitErrorMessage(const char *errorText);
VTAPI_EXPORT void XML_EmitAppBuildInfo(int32_t complete);
VTAPI_EXPORT void XML_2_EmitAppBuildInfo(int32_t complete);

#ifdef __cplusplus
}
#endif

#endif /* VTAPI_CLI_H */
