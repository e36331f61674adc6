/*
 * vtapi_cli.h - command-line core of libvtapifconly: the entry
 * RunFCCommandLine, the argument parser and the parsed command it hands to
 * the front end, the termination handling, and the two XML report formats.
 *
 * A command-line front end calls RunFCCommandLine(argc, argv) and defines
 * its own ProcessArg, ProcessHelpArg, DisplayVersion, scfxPrint and
 * scfxDiagnosticsPrint; exported from the executable, they replace the empty
 * hooks of this library.  Every function is exported so that a program may
 * replace any of them.
 */
#ifndef VTAPI_CLI_H
#define VTAPI_CLI_H

#include <stdint.h>

#include "vtapi.h"
#include "vtapi_vpd.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------- statuses */
#define TARN_STATUS_OK              0
#define TARN_STATUS_NO_ADAPTER      8    /* no adapter port, or none selected */
#define TARN_STATUS_BAD_VALUE       48   /* bad parameter value */
#define TARN_STATUS_UNKNOWN_PARAM   60   /* unknown or unexpected parameter */
#define TARN_STATUS_NOT_SUPPORTED   61   /* not supported on this HBA */
#define TARN_STATUS_NOT_PERMITTED   66   /* not permitted / not available */
#define TARN_STATUS_NO_MEMORY       115
#define TARN_STATUS_OUTPUT_SWITCH   136  /* output switch (-o, -x, -f) error */

/* ------------------------------------------------------- parsed command */
/* Commands of the usage list.  The display commands shipped by tarncli come
 * first; the others are recognised so that they can be refused by name. */
typedef enum TarnCommandId {
    TARN_CMD_NONE = 0,
    TARN_CMD_GENERAL,       /* -g   general host information */
    TARN_CMD_INFO,          /* -i   adapter information and VPD */
    TARN_CMD_TARGETS,       /* -t   attached targets */
    TARN_CMD_LUNS,          /* -l   LUN information */
    TARN_CMD_SUMMARY,       /* -z   summary report */
    TARN_CMD_VERSION,       /* -v */
    TARN_CMD_HELP,          /* -h, -? */
    TARN_CMD_PARAMS,        /* -c */
    TARN_CMD_MODIFY_PARAMS, /* -n */
    TARN_CMD_PERSIST_BIND,  /* -p */
    TARN_CMD_FLASH,         /* -b */
    TARN_CMD_DRIVER_UPDATE, /* -d */
    TARN_CMD_SELECT_LUNS,   /* -m */
    TARN_CMD_BOOT_DEVICES,  /* -e */
    TARN_CMD_LED,           /* -a */
    TARN_CMD_LOOPBACK,      /* -kl */
    TARN_CMD_RWBUFFER,      /* -kr */
    TARN_CMD_DRV_SETTINGS_GET, /* -fg */
    TARN_CMD_DRV_SETTINGS_SET, /* -fs */
    TARN_CMD_STATISTICS,    /* -gs */
    TARN_CMD_LINK_STATUS,   /* -ls */
    TARN_CMD_TARGET_BEACON, /* -tb */
    TARN_CMD_TRANSCEIVER,   /* -dm */
    TARN_CMD_TOPOLOGY,      /* -tp, -topology */
    TARN_CMD_HBA_ALIAS,     /* -ha */
    TARN_CMD_PORT_ALIAS,    /* -pa */
    TARN_CMD_IIDMA,         /* -q */
    TARN_CMD_PL,            /* -pl */
    TARN_CMD_TM,            /* -tm */
    TARN_CMD_VPORTS,        /* -vp */
    TARN_CMD_U,             /* -u */
    TARN_CMD_SP,            /* -sp */
    TARN_CMD_PC,            /* -pc */
    TARN_CMD_FWDUMP,        /* -fwdump */
    TARN_CMD_EI,            /* -ei */
    TARN_CMD_COUNT
} TarnCommandId;

/* How a command selects adapter ports. */
#define TARN_SELECT_ALL      0
#define TARN_SELECT_INSTANCE 1
#define TARN_SELECT_WWPN     2

#define TARN_MAX_SUBARGS  16
#define TARN_SUBARG_SIZE  256
#define TARN_MAX_ARGS     255

typedef struct TarnCommand {
    int32_t  Command;          /* TarnCommandId */
    char     Option[16];       /* the option word as written, e.g. "-t" or "/t" */
    int32_t  Selection;        /* TARN_SELECT_* */
    uint32_t Instance;         /* with TARN_SELECT_INSTANCE */
    uint8_t  WWPN[8];          /* with TARN_SELECT_WWPN */
    uint32_t SubArgCount;      /* arguments after the port selector */
    char     SubArgs[TARN_MAX_SUBARGS][TARN_SUBARG_SIZE];
    int32_t  ParseStatus;      /* 0, or the status of the parse error */
    char     ErrorText[256];   /* text of the parse error (shared error buffer) */
} TarnCommand;

/* The command of the last parse; never null. */
VTAPI_EXPORT const TarnCommand *TarnGetCommand(void);
/* Option word ("-t") and one-line description of a command id; "" if none. */
VTAPI_EXPORT const char *TarnCommandOption(int32_t command);
VTAPI_EXPORT const char *TarnCommandDescription(int32_t command);
/* Parses a WWN written as 8 hex pairs separated by ':' or '-', or as 16 hex
 * digits; 0 on success, 48 otherwise. */
VTAPI_EXPORT uint32_t TarnParseWWN(const char *text, uint8_t *wwn);

/* ----------------------------------------------------------- parse flags */
VTAPI_EXPORT extern int32_t bHelp;
VTAPI_EXPORT extern int32_t bGetAppVersion;
VTAPI_EXPORT extern int32_t bParseErr;
VTAPI_EXPORT extern int32_t bOptionEnable;
VTAPI_EXPORT extern int32_t bCmdFile;
VTAPI_EXPORT extern int32_t bMenu;
VTAPI_EXPORT extern int32_t argumentCount;
VTAPI_EXPORT extern int32_t bXmlOutPut2;     /* XML format 2 (-x2) */
VTAPI_EXPORT extern char g_CmdFileName[256]; /* the -f file */

/* Termination state. */
#define TARN_DIAG_IDLE     0
#define TARN_DIAG_STOPPED  1
#define TARN_DIAG_RUNNING  2
#define TARN_DIAG_HANDLER  3
VTAPI_EXPORT extern volatile int32_t g_signalHandlerInProgress;
VTAPI_EXPORT extern volatile int32_t g_DiagState;
VTAPI_EXPORT extern int32_t g_bIA64Host;

/* ----------------------------------------------------------------- entry */
VTAPI_EXPORT uint32_t RunFCCommandLine(int32_t argc, char **argv);
VTAPI_EXPORT void InitializeParameters(void);
VTAPI_EXPORT uint32_t ParseArg(int32_t argc, char **argv);
VTAPI_EXPORT uint32_t FirstPassParseArg(int32_t argc, char **argv, int32_t fromFile);
VTAPI_EXPORT uint32_t ParseArgumentsFromFile(void);
VTAPI_EXPORT uint32_t SecondPassParseArg(int32_t argc, char **argv);
VTAPI_EXPORT void CleanUpArgumentList(void);
VTAPI_EXPORT void CmdInit(int32_t argc, char **argv);
VTAPI_EXPORT void termination_handler(int32_t signum);
VTAPI_EXPORT void cleanup(void);
VTAPI_EXPORT int32_t get_terminfo(void);
VTAPI_EXPORT int32_t restore(void);
VTAPI_EXPORT uint32_t OSSUninitialize(void);

/* Front-end hooks: empty in this library (ProcessArg and ProcessHelpArg
 * return 0), replaced by the command-line tool. */
VTAPI_EXPORT int32_t ProcessArg(int32_t argc, char **argv);
VTAPI_EXPORT int32_t ProcessHelpArg(int32_t argc, char **argv);
VTAPI_EXPORT void DisplayVersion(void);
VTAPI_EXPORT void scfxDiagnosticsPrint(const char *text);
/* scfxPrint is declared in vtapi_core.h. */

/* ------------------------------------------------------------ XML output */
/* Every XML_Emit<Name> hands its arguments to XML_2_Emit<Name> when
 * bXmlOutPut2 is set.  Each line goes to scfxPrint with its line end. */
VTAPI_EXPORT void XML_PrintLine(const char *format, ...) __attribute__((format(printf, 1, 2)));
VTAPI_EXPORT void XML_PrintElement(const char *indent, const char *name, const char *value);

VTAPI_EXPORT void XML_EmitMainHeader(void);
VTAPI_EXPORT void XML_2_EmitMainHeader(void);
VTAPI_EXPORT void XML_EmitMainFooter(void);
VTAPI_EXPORT void XML_2_EmitMainFooter(void);
VTAPI_EXPORT void XML_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot,
                                        int32_t header, int32_t footer);
VTAPI_EXPORT void XML_2_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot,
                                          int32_t header, int32_t footer);
VTAPI_EXPORT void XML_EmitErrorMessage(const char *errorText);
VTAPI_EXPORT void XML_2_EmitErrorMessage(const char *errorText);
VTAPI_EXPORT void XML_EmitAppBuildInfo(int32_t complete);
VTAPI_EXPORT void XML_2_EmitAppBuildInfo(int32_t complete);

VTAPI_EXPORT void XML_EmitHBAHeader(const SDMDevice *device);
VTAPI_EXPORT void XML_2_EmitHBAHeader(const SDMDevice *device);
VTAPI_EXPORT void XML_EmitHBAFooter(void);
VTAPI_EXPORT void XML_2_EmitHBAFooter(void);
VTAPI_EXPORT void XML_2_EmitHBAHeaderFooter(const SDMDevice *device, int32_t open, int32_t close);

VTAPI_EXPORT void XML_EmitTargetHeader(const TargetEntry *target);
VTAPI_EXPORT void XML_2_EmitTargetHeader(const TargetEntry *target);
VTAPI_EXPORT void XML_EmitTargetFooter(void);
VTAPI_EXPORT void XML_2_EmitTargetFooter(void);

/* Long emitters. */
VTAPI_EXPORT void XML_EmitSystemInfo(void);
VTAPI_EXPORT void XML_2_EmitSystemInfo(void);
VTAPI_EXPORT void XML_EmitHBAGeneralInfo(const SDMDevice *device);
VTAPI_EXPORT void XML_2_EmitHBAGeneralInfo(const SDMDevice *device);
VTAPI_EXPORT void XML_EmitHBAVPDInfo(const VPDInfo *vpd);
VTAPI_EXPORT void XML_2_EmitHBAVPDInfo(const VPDInfo *vpd);
VTAPI_EXPORT void XML_EmitTarget(const TargetEntry *target);
VTAPI_EXPORT void XML_2_EmitTarget(const TargetEntry *target);
VTAPI_EXPORT void XML_EmitLunInfo(const LunEntry *lun);
VTAPI_EXPORT void XML_2_EmitLunInfo(const LunEntry *lun);
VTAPI_EXPORT void XML_EmitHBASummary(const SDMDevice *device);
VTAPI_EXPORT void XML_2_EmitHBASummary(const SDMDevice *device);

/* Helpers shared by the text and XML reports. */
VTAPI_EXPORT const char *TarnPeripheralTypeText(uint8_t type);
/* Capacity of a LUN in bytes; 0 when unknown. */
VTAPI_EXPORT uint64_t TarnLunCapacity(const LunEntry *lun);
/* "107.4 GB" (decimal units) into text of size bytes; "-" for 0. */
VTAPI_EXPORT char *TarnFormatSize(uint64_t bytes, char *text, uint32_t size);
/* The value of a VPD entry as text: as it stands, or in hexadecimal
 * ("0x8e") for the "RV" checksum or a value holding an unprintable byte. */
VTAPI_EXPORT char *TarnVPDValueText(const VPDEntry *entry, char *text, uint32_t size);
/* 1 for an NVMe target. */
VTAPI_EXPORT uint32_t TarnIsNVMeTarget(const TargetEntry *target);

#ifdef __cplusplus
}
#endif

#endif /* VTAPI_CLI_H */
