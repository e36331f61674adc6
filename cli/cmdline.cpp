// Command-line entry: the parse passes that turn the arguments into one
// TarnCommand, the core start-up for a command, the termination handler that
// stops a running diagnostic and releases the core once, and the empty
// front-end hooks that the command-line tool replaces.
#include <signal.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <ctime>

#include <algorithm>

#include <cctype>
#include <cstdarg>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/cli.h"
#include "cli/commands.h"
#include "cli/sinks.h"
#include "cli/xml.h"
#include "core/core.h"
#include "diag/diag.h"
#include "oss/oss.h"
#include "oss/oss_signal.h"
#include "sysroot.h"

extern "C" {
VTAPI_EXPORT int32_t bHelp;
VTAPI_EXPORT int32_t bGetAppVersion;
VTAPI_EXPORT int32_t bParseErr;
VTAPI_EXPORT int32_t bOptionEnable;
VTAPI_EXPORT int32_t bCmdFile;
VTAPI_EXPORT int32_t bMenu;
VTAPI_EXPORT int32_t argumentCount;
VTAPI_EXPORT int32_t bXmlOutPut2;
VTAPI_EXPORT volatile int32_t g_signalHandlerInProgress;
VTAPI_EXPORT volatile int32_t g_DiagState;
char g_CmdFileName[256];
int32_t g_bIA64Host;
}

namespace {

using vt::cli::CommandEntry;
using vt::cli::FindCommand;

// "-t" or "/t" (any case) names the command word "t".
bool IsWord(const std::string &arg, const char *word) {
    return arg.size() >= 2 && (arg[0] == '-' || arg[0] == '/') && strcasecmp(arg.c_str() + 1, word) == 0;
}

// A word the command takes as its first argument that is never a port
// selector: "-i vpd" is "-i all vpd", and a NAME=VALUE parameter
// ("-kl TC=5" is "-kl all TC=5").  `keyword` lists them separated by '|'.
bool IsKeywordArgument(const CommandEntry &c, const std::string &arg) {
    if (arg.find('=') != std::string::npos) return true;  // a NAME=VALUE parameter
    if (c.keyword == nullptr) return false;
    const std::string_view words = c.keyword;
    for (size_t at = 0; at <= words.size();) {
        const size_t end = std::min(words.find('|', at), words.size());
        const std::string_view word = words.substr(at, end - at);
        if (word.size() == arg.size() && strncasecmp(arg.c_str(), word.data(), word.size()) == 0) return true;
        at = end + 1;
    }
    return false;
}

// Any word of the usage list, switches included.
bool IsOptionWord(const std::string &arg) {
    if (FindCommand(arg) != nullptr) return true;
    for (const char *w : {"x", "x2", "j", "s", "o", "f"})
        if (IsWord(arg, w)) return true;
    return strcasecmp(arg.c_str(), "int") == 0;
}

std::vector<std::string> g_args;  // gathered arguments; consumed ones are blanked
TarnCommand g_command;
struct termios g_savedTerminal;
bool g_terminalSaved = false;

void SetParseError(int32_t status, const char *format, ...) __attribute__((format(printf, 2, 3)));
void SetParseError(int32_t status, const char *format, ...) {
    if (bParseErr) return;  // the first error is the one reported
    bParseErr = 1;
    g_command.ParseStatus = status;
    va_list args;
    va_start(args, format);
    std::vsnprintf(g_command.ErrorText, sizeof g_command.ErrorText, format, args);
    va_end(args);
    TarnLogMessage(VT_MSG_DEBUG, "Parse error %d: %s", status, g_command.ErrorText);
}

void CountArguments() {
    argumentCount = 0;
    for (const auto &a : g_args)
        if (!a.empty()) ++argumentCount;
}

bool IsDecimal(const std::string &s) {
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    return true;
}

// Splits the command file into words: blanks separate them, double quotes
// keep blanks inside a word, and a line whose first non-blank character is
// '#' or '!' is a comment.
std::vector<std::string> SplitCommandFile(std::istream &in) {
    std::vector<std::string> words;
    std::string line;
    while (std::getline(in, line)) {
        size_t i = line.find_first_not_of(" \t\r");
        if (i == std::string::npos || CoreIsCommentChar(line[i])) continue;
        while (i < line.size()) {
            while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
            if (i >= line.size()) break;
            std::string word;
            if (line[i] == '"') {
                const size_t end = line.find('"', i + 1);
                word = line.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1);
                i = end == std::string::npos ? line.size() : end + 1;
            } else {
                while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i]))) word += line[i++];
            }
            words.push_back(word);
        }
    }
    return words;
}

// cleanup runs once, whichever thread comes first (the command thread at its
// end, or the signal thread).
std::mutex g_cleanupMutex;

}  // namespace

extern "C" {

/* ------------------------------------------------------------ accessors */

VTAPI_EXPORT const TarnCommand *TarnGetCommand(void) { return &g_command; }

uint32_t TarnParseWWN(const char *text, uint8_t *wwn) {
    if (text == nullptr || wwn == nullptr) return TARN_STATUS_BAD_VALUE;
    std::string hex;
    const size_t len = std::strlen(text);
    if (len == 16) {
        hex = text;
    } else if (len == 23) {
        const char sep = text[2];
        if (sep != ':' && sep != '-') return TARN_STATUS_BAD_VALUE;
        for (size_t i = 0; i < len; ++i) {
            if (i % 3 == 2) {
                if (text[i] != sep) return TARN_STATUS_BAD_VALUE;
            } else {
                hex += text[i];
            }
        }
    } else {
        return TARN_STATUS_BAD_VALUE;
    }
    uint8_t out[8];
    for (size_t i = 0; i < 8; ++i) {
        const char pair[3] = {hex[2 * i], hex[2 * i + 1], '\0'};
        if (!std::isxdigit(static_cast<unsigned char>(pair[0])) || !std::isxdigit(static_cast<unsigned char>(pair[1])))
            return TARN_STATUS_BAD_VALUE;
        out[i] = static_cast<uint8_t>(std::strtoul(pair, nullptr, 16));
    }
    std::memcpy(wwn, out, 8);
    return 0;
}

/* ------------------------------------------------------------ the entry */

VTAPI_EXPORT void InitializeParameters(void) {
    bHelp = bGetAppVersion = bParseErr = bCmdFile = bMenu = 0;
    bOptionEnable = 1;
    argumentCount = 0;
    bXmlOutPut = bXmlOutPut2 = 0;
    bSilent = bSysLog = 0;
    g_CmdFileName[0] = '\0';
    g_signalHandlerInProgress = 0;
    DiagStateStore(TARN_DIAG_IDLE);
    bJsonOutPut = 0;
    g_command = TarnCommand{};
    g_command.Process = vt::cli::ProcessCommand;
    g_command.Help = vt::cli::ShowHelp;
    g_args.clear();

    // The installation directory holds the reference file.  When the
    // directory chosen by the preference rules does not exist, the directory
    // of the loaded library is used (a build tree, or an installation moved
    // elsewhere).
    char dir[260] = "";
    GetAppInstallationDirectory(dir, sizeof dir);
    std::string install = dir;
    if (install.empty() || access(install.c_str(), F_OK) != 0) {
        GetInstallationPath();
        install = gpInstallationPath;
    }
    if (install.empty() || install.back() != '/') install += '/';
    TarnSetInstallationDir(install.c_str(), static_cast<int32_t>(install.size() + 1));
    TarnSetReferenceFile();
}

// The whole command line; RunFCCommandLine keeps its exceptions inside.
uint32_t RunCommandLine(int32_t argc, char **argv) {
    std::setlocale(LC_ALL, "");
    InitializeParameters();

    const int32_t quiet = TarnPreferenceGetKeyValue("node.app.core.messages.disable", 0);
    TarnLogMessage(VT_MSG_DEBUG, "QuietModeDisable=%d", quiet);
    CoreSetQuietMode(quiet);

    const int32_t trace = TarnPreferenceGetKeyValue("node.app.messages.trace.enable", 0);
    TarnLogMessage(VT_MSG_DEBUG, "iDebugTraceEnable=%d", trace);
    if (trace != 0) {
        SetCoreEnableDebugMessage(trace);
        // The trace lines go to the application trace file when the
        // reference file names one, else to the default messages file.
        if (SetAppTraceFileName() == 0) {
            std::string name = GetAppTraceFileName();
            if (!name.empty() && name[0] != '/') name = std::string(TarnGetInstallationDir()) + name;
            std::snprintf(messagesfile, sizeof messagesfile, "%s", name.c_str());
        } else {
            InitializeLogMessageFile();
        }
    }

    uint32_t status = ParseArg(argc, argv);

    g_command.Output = bJsonOutPut   ? TARN_OUTPUT_JSON
                       : bXmlOutPut2 ? TARN_OUTPUT_XML2
                       : bXmlOutPut  ? TARN_OUTPUT_XML
                                     : TARN_OUTPUT_TEXT;
    if (bHelp) {
        if (!bXmlOutPut) ProcessHelpArg(argc, argv);
        status = vt::cli::FinishOutput(0);
        TarnUnInitializeLogFile();
        return status;
    }
    if (bGetAppVersion) {
        if (bXmlOutPut) XML_EmitAppBuildInfo(1);
        else DisplayVersion();
        status = vt::cli::FinishOutput(0);
        TarnUnInitializeLogFile();
        return status;
    }
    if (bParseErr) {
        status = static_cast<uint32_t>(ProcessArg(argc, argv));
    } else if (bOptionEnable) {
        vt::oss::CommandBegin();
        CmdInit(argc, argv);
        status = static_cast<uint32_t>(ProcessArg(argc, argv));
        vt::oss::CommandEnd();
    } else {
        static const char kDisabled[] = "This feature is not available or disabled!";
        if (g_command.Output != TARN_OUTPUT_TEXT)
            vt::cli::ReportFailure(g_command.Output, TARN_STATUS_NOT_PERMITTED, kDisabled);
        else TarnPrint(VT_MSG_PLAIN, "%s\n", kDisabled);
        status = TARN_STATUS_NOT_PERMITTED;
    }
    status = vt::cli::FinishOutput(status);
    TarnUnInitializeLogFile();
    return status;
}

VTAPI_EXPORT uint32_t RunFCCommandLine(int32_t argc, char **argv) {
    try {
        return RunCommandLine(argc, argv);
    } catch (const std::bad_alloc &) {
        vt::cli::ReportFailure(g_command.Output, TARN_STATUS_NO_MEMORY, "Error: Out of memory!");
        vt::oss::CommandEnd();
        TarnUnInitializeLogFile();
        return TARN_STATUS_NO_MEMORY;
    } catch (...) {
        vt::cli::ReportFailure(g_command.Output, 1, "Error: Internal failure!");
        vt::oss::CommandEnd();
        TarnUnInitializeLogFile();
        return 1;  // the status of a command that could not run
    }
}

/* -------------------------------------------------------------- parsing */

VTAPI_EXPORT uint32_t ParseArg(int32_t argc, char **argv) {
    TarnLogMessage(VT_MSG_DEBUG, "ParseArg: enter...");
    if (argc <= 1 || argv == nullptr || (argv[1] != nullptr && strcasecmp(argv[1], "int") == 0)) {
        bMenu = 1;
        TarnLogMessage(VT_MSG_DEBUG, "ParseArg: exit %d", 0);
        return 0;
    }
    uint32_t status = FirstPassParseArg(argc, argv, 0);
    if (status == 0 && bCmdFile) {
        CleanUpArgumentList();
        status = ParseArgumentsFromFile();
    }
    if (!bParseErr && argumentCount > 0) status = SecondPassParseArg(argc, argv);
    CleanUpArgumentList();
    TarnLogMessage(VT_MSG_DEBUG, "ParseArg: exit %d", status);
    return status;
}

// Gathers the arguments (from argv, or those already read from the command
// file when fromFile is set) and handles the output switches.
VTAPI_EXPORT uint32_t FirstPassParseArg(int32_t argc, char **argv, int32_t fromFile) {
    TarnLogMessage(VT_MSG_DEBUG, "FirstPassParseArg: Enter...");
    if (!fromFile) {
        g_args.clear();
        if (argc - 1 > TARN_MAX_ARGS) {
            SetParseError(TARN_STATUS_BAD_VALUE, "Maximum number of command line options exceeded!");
            TarnLogMessage(VT_MSG_DEBUG, "FirstPassParseArg: Exit %d", TARN_STATUS_BAD_VALUE);
            return TARN_STATUS_BAD_VALUE;
        }
        for (int32_t i = 1; i < argc && argv != nullptr; ++i) g_args.emplace_back(argv[i] != nullptr ? argv[i] : "");
    }

    int outputAt = -1;  // index of "-o"
    for (size_t i = 0; i < g_args.size(); ++i) {
        std::string &a = g_args[i];
        if (IsWord(a, "x") || IsWord(a, "x2")) {
            bXmlOutPut = 1;
            if (IsWord(a, "x2")) bXmlOutPut2 = 1;
            TarnLogMessage(VT_MSG_DEBUG, "FirstPassParseArg: Output in XML format");
            a.clear();
        } else if (IsWord(a, "j")) {
            bJsonOutPut = 1;
            TarnLogMessage(VT_MSG_DEBUG, "FirstPassParseArg: Output in JSON format");
            a.clear();
        } else if (IsWord(a, "s")) {
            SetDisplayMode(1);
            a.clear();
        } else if (IsWord(a, "f")) {
            a.clear();
            if (fromFile) {
                SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Error: A command file cannot name another command file!");
            } else if (i + 1 >= g_args.size() || IsOptionWord(g_args[i + 1])) {
                SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Error: Option -f must be followed by a command file name!");
            } else {
                bCmdFile = 1;
                std::snprintf(g_CmdFileName, sizeof g_CmdFileName, "%s", g_args[i + 1].c_str());
                g_args[++i].clear();
            }
        } else if (IsWord(a, "o")) {
            if (outputAt < 0) outputAt = static_cast<int>(i);
        } else if (IsWord(a, "h") || IsWord(a, "?")) {
            bHelp = 1;
        }
    }

    if (outputAt >= 0) {
        const size_t i = static_cast<size_t>(outputAt);
        g_args[i].clear();
        const bool hasName = i + 1 < g_args.size() && !g_args[i + 1].empty() && !IsOptionWord(g_args[i + 1]);
        if (!hasName) {
            SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Error: This option must be combined with other command!");
        } else {
            const std::string name = g_args[i + 1];
            g_args[i + 1].clear();
            if (strcasecmp(name.c_str(), "system") == 0) {
                if (bXmlOutPut) {
                    SetParseError(TARN_STATUS_OUTPUT_SWITCH,
                                  "Error: Cannot generate xml output format to the system log file");
                } else if (bJsonOutPut) {
                    SetParseError(TARN_STATUS_OUTPUT_SWITCH,
                                  "Error: Cannot generate JSON output format to the system log file");
                } else {
                    SetLogFileName(vt::MapSystemPath("/var/adm/messages").c_str());
                    if (TarnInitializeLogFile("a+") != 0)
                        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Unable to open file '%s' for writing!",
                                      GetLogFileName());
                    else bSysLog = 1;
                }
            } else {
                SetLogFileName(name.c_str());
                if (TarnInitializeLogFile("a+") != 0)
                    SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Unable to open file '%s' for writing!", name.c_str());
            }
        }
    }

    if (bXmlOutPut && bJsonOutPut)
        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Error: Choose one output format: -x, -x2 or -j!");
    if (bHelp && bXmlOutPut) {
        bHelp = 0;  // reported as an error instead of printing nothing
        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Online help is not available with XML output!");
    }
    if (bHelp && bJsonOutPut) {
        bHelp = 0;
        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Online help is not available with JSON output!");
    }
    CountArguments();
    if (!fromFile && bCmdFile && argumentCount > 0 && !bParseErr)
        SetParseError(TARN_STATUS_OUTPUT_SWITCH,
                      "Error: Option -f cannot be combined with other options (one command per input file)!");

    const uint32_t status = bParseErr ? static_cast<uint32_t>(g_command.ParseStatus) : 0;
    TarnLogMessage(VT_MSG_DEBUG, "FirstPassParseArg: Exit %d", status);
    return status;
}

VTAPI_EXPORT uint32_t ParseArgumentsFromFile(void) {
    TarnLogMessage(VT_MSG_DEBUG, "ParseArgumentsFromFile: file=%s", g_CmdFileName);
    std::ifstream in(g_CmdFileName);  // the user's path, used as given
    if (!in) {
        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Unable to open file '%s' for reading!", g_CmdFileName);
        return TARN_STATUS_OUTPUT_SWITCH;
    }
    g_args = SplitCommandFile(in);
    if (g_args.size() > TARN_MAX_ARGS) {
        SetParseError(TARN_STATUS_BAD_VALUE, "Maximum number of command line options exceeded!");
        return TARN_STATUS_BAD_VALUE;
    }
    const uint32_t status = FirstPassParseArg(0, nullptr, 1);
    if (status == 0 && argumentCount == 0) {
        SetParseError(TARN_STATUS_OUTPUT_SWITCH, "Error: Command file '%s' holds no command!", g_CmdFileName);
        return TARN_STATUS_OUTPUT_SWITCH;
    }
    return status;
}

// Maps the gathered words to one command: the command word, the port
// selector (instance number, WWPN or "all"; "all" when absent) and the
// command's further arguments.  With help requested, the command is only
// the help topic.
VTAPI_EXPORT uint32_t SecondPassParseArg(int32_t argc, char **argv) {
    (void)argc;
    (void)argv;
    TarnLogMessage(VT_MSG_DEBUG, "SecondPassParseArg: Enter...");
    std::vector<std::string> words;
    for (const auto &a : g_args)
        if (!a.empty() && !(bHelp && (IsWord(a, "h") || IsWord(a, "?")))) words.push_back(a);

    g_command.Command = TARN_CMD_NONE;
    g_command.Selection = TARN_SELECT_ALL;
    if (bHelp) {
        if (!words.empty()) {
            const CommandEntry *c = FindCommand(words[0]);
            if (c == nullptr) {
                bHelp = 0;
                SetParseError(TARN_STATUS_UNKNOWN_PARAM, "Error: Unknown option '%s'!", words[0].c_str());
            } else {
                g_command.Command = c->id;
                std::snprintf(g_command.Option, sizeof g_command.Option, "%s", words[0].c_str());
            }
        }
        TarnLogMessage(VT_MSG_DEBUG, "SecondPassParseArg: Exit %d (help)", g_command.ParseStatus);
        return static_cast<uint32_t>(g_command.ParseStatus);
    }
    if (words.empty()) return 0;

    const CommandEntry *c = FindCommand(words[0]);
    if (c == nullptr) {
        SetParseError(TARN_STATUS_UNKNOWN_PARAM, "Error: Unknown option '%s'!", words[0].c_str());
        return TARN_STATUS_UNKNOWN_PARAM;
    }
    g_command.Command = c->id;
    std::snprintf(g_command.Option, sizeof g_command.Option, "%s", words[0].c_str());
    if (c->id == TARN_CMD_VERSION) bGetAppVersion = 1;

    size_t next = 1;
    if (c->selectsPorts && next < words.size() && !IsOptionWord(words[next]) && !IsKeywordArgument(*c, words[next])) {
        const std::string &sel = words[next++];
        if (strcasecmp(sel.c_str(), "all") == 0) {
            g_command.Selection = TARN_SELECT_ALL;
        } else if (IsDecimal(sel)) {
            g_command.Selection = TARN_SELECT_INSTANCE;
            g_command.Instance = static_cast<uint32_t>(std::strtoul(sel.c_str(), nullptr, 10));
        } else if (TarnParseWWN(sel.c_str(), g_command.WWPN) == 0) {
            g_command.Selection = TARN_SELECT_WWPN;
        } else if (sel.empty() || sel.size() >= sizeof g_command.Alias) {
            SetParseError(TARN_STATUS_BAD_VALUE,
                          "Error: Invalid HBA '%s' for option %s! Give an instance number, a WWPN, an alias or "
                          "\"all\".",
                          sel.c_str(), words[0].c_str());
            return TARN_STATUS_BAD_VALUE;
        } else {
            // Any other word may be an alias; the aliases are read once the
            // ports are known, when the command chooses its ports.
            g_command.Selection = TARN_SELECT_ALIAS;
            std::snprintf(g_command.Alias, sizeof g_command.Alias, "%s", sel.c_str());
        }
    }
    for (; next < words.size(); ++next) {
        const std::string &w = words[next];
        if (IsOptionWord(w)) {
            SetParseError(TARN_STATUS_UNKNOWN_PARAM, "Error: Option '%s' cannot follow '%s' (one command at a time)!",
                          w.c_str(), words[0].c_str());
            return TARN_STATUS_UNKNOWN_PARAM;
        }
        if (g_command.SubArgCount >= c->maxSubArgs) {
            SetParseError(TARN_STATUS_UNKNOWN_PARAM, "Error: Unexpected argument '%s' for option %s!", w.c_str(),
                          words[0].c_str());
            return TARN_STATUS_UNKNOWN_PARAM;
        }
        if (w.size() >= TARN_SUBARG_SIZE) {
            SetParseError(TARN_STATUS_BAD_VALUE, "Error: Argument %u of option %s is too long!",
                          g_command.SubArgCount + 1, words[0].c_str());
            return TARN_STATUS_BAD_VALUE;
        }
        std::snprintf(g_command.SubArgs[g_command.SubArgCount++], TARN_SUBARG_SIZE, "%s", w.c_str());
    }
    bOptionEnable = c->enableKey == nullptr || TarnPreferenceGetKeyValue(c->enableKey, 0) != 0 ? 1 : 0;
    TarnLogMessage(VT_MSG_DEBUG, "SecondPassParseArg: command=%s selection=%d subargs=%u enabled=%d", g_command.Option,
                   g_command.Selection, g_command.SubArgCount, bOptionEnable);
    return 0;
}

VTAPI_EXPORT void CleanUpArgumentList(void) {
    g_args.clear();
    g_args.shrink_to_fit();
}

/* --------------------------------------------------- core initialization */

VTAPI_EXPORT void CmdInit(int32_t argc, char **argv) {
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: Starting initialization...");
    // The handler runs on a thread of its own (never in signal context), so
    // it may log, free the core and restore the terminal safely.
    if (!vt::oss::StartSignalThread({SIGINT, SIGHUP, SIGTERM}, termination_handler))
        TarnLogMessage(VT_MSG_WARNING, "CmdInit: Unable to start the signal thread!");
    signal(SIGPIPE, SIG_IGN);
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: Signal handlers installed.");
    if (get_terminfo() != 0) TarnLogMessage(VT_MSG_WARNING, "CmdInit: Unable to get terminal attribute!");
    else TarnLogMessage(VT_MSG_DEBUG, "CmdInit: Terminal attributes saved.");

    OSSInitialize(argc, argv);
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: OSSInitialize completed.");
    CorePreInitialize();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: CorePreInitialize completed.");
    CoreInitialize();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: CoreInitialize completed.");
    CoreInitializeDevices();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: CoreInitializeDevices completed.");
    OSSPostInitializeDevices();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: OSSPostInitializeDevices completed.");
    OSSUpdateCoreDevices();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: OSSUpdateCoreDevices completed.");

    const uint32_t hostType = getHostSystemType();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: getHostSystemType completed.");
    TarnGetFabricScanningOption();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: TarnGetFabricScanningOption completed.");
    BuildTarnDevices();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: BuildTarnDevices completed.");
    CoreInitializeTargets();
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: CoreInitializeTargets completed.");

    char systemType[128] = "";
    OSSGetHostInformation(nullptr, systemType, nullptr, nullptr);
    g_bIA64Host = std::strstr(systemType, "ia64") != nullptr ? 1 : 0;
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit: host system type %u, ia64=%d", hostType, g_bIA64Host);
    TarnLogMessage(VT_MSG_DEBUG, "CmdInit completed.");
}

/* ------------------------------------------------------------ termination */

VTAPI_EXPORT int32_t get_terminfo(void) {
    if (tcgetattr(STDIN_FILENO, &g_savedTerminal) != 0) return -1;
    g_terminalSaved = true;
    return 0;
}

// 0 when the saved attributes were put back, or when none were saved.
int32_t restore(void) {
    if (!g_terminalSaved) return 0;
    return tcsetattr(STDIN_FILENO, TCSANOW, &g_savedTerminal) == 0 ? 0 : -1;
}

VTAPI_EXPORT void termination_handler(int32_t signum) {
    vt::oss::RequestCommandStop();
    TarnLogMessage(VT_MSG_INFO, "Signal (%d) caught...", signum);
    TarnLogMessage(VT_MSG_DEBUG, "g_signalHandlerInProgress=%d", g_signalHandlerInProgress);
    if (g_signalHandlerInProgress) {
        TarnLogMessage(VT_MSG_DEBUG, "Already raised signal (%d)...", signum);
    } else {
        g_signalHandlerInProgress = 1;
        TarnLogMessage(VT_MSG_DEBUG, "Setting SignalHandlerInProcess to (%d).", g_signalHandlerInProgress);
        if (DiagStateLoad() == TARN_DIAG_RUNNING) {
            TarnLogMessage(VT_MSG_DEBUG, "Diagnostics test is running (status=%d)", DiagStateLoad());
            DiagStateStore(TARN_DIAG_STOPPED);
            TarnLogMessage(VT_MSG_DEBUG, "Diagnostics test stopped (status=%d)", DiagStateLoad());
        }
        if (DiagStateLoad() == TARN_DIAG_STOPPED) {
            DiagStateStore(TARN_DIAG_HANDLER);
            TarnLogMessage(VT_MSG_DEBUG, "termination_handler: g_DiagState=%d", DiagStateLoad());
        }
        TarnLogMessage(VT_MSG_DEBUG, "Calling cleanup routine");
        // cleanup() may be running on the command thread at this moment.
        if (__atomic_load_n(&g_ResourcesDeallocated, __ATOMIC_SEQ_CST)) {
            TarnLogMessage(VT_MSG_DEBUG, "termination_handler: already called cleanup()!");
        } else {
            TarnLogMessage(VT_MSG_DEBUG, "\nCTRL-C triggered - Cleanup() ...");
            cleanup();
        }
    }
    for (int s : {SIGINT, SIGHUP, SIGTERM, SIGPIPE}) signal(s, SIG_DFL);
    // The signal is blocked in every thread (the signal thread takes it with
    // sigwait), so the raised one stays pending, and the process ends by the
    // exit below with the status of the terminal restore.
    raise(signum);
    const int32_t status = restore();
    TarnLogMessage(VT_MSG_DEBUG, "termination_handler: exit %d.", status);
    if (vt::oss::OnSignalThread()) {
        // The command thread is parked or ending on its own: the process
        // ends here without running exit handlers beside it.
        std::fflush(nullptr);
        _exit(status);
    }
    std::exit(status);
}

VTAPI_EXPORT void cleanup(void) {
    if (bHelp || bParseErr || bGetAppVersion) return;
    // On the signal thread: wait until the command thread stands at a safe
    // point, so that no list is freed while it is built or walked.
    vt::oss::StopCommandThread();
    std::lock_guard<std::mutex> once(g_cleanupMutex);
    if (__atomic_load_n(&g_ResourcesDeallocated, __ATOMIC_SEQ_CST)) return;
    TarnLogMessage(VT_MSG_DEBUG, "Shutting Down...");
    OSSStopCorePollingLoop();
    TarnLogMessage(VT_MSG_DEBUG, "Deallocating Core resources...");
    CoreUninitialize();
    TarnLogMessage(VT_MSG_DEBUG, "CoreUnintialize done...");
    OSSUninitialize();
    TarnLogMessage(VT_MSG_DEBUG, "OSSUninitialize done...");
    FreeMyDeviceList(1);
    TarnLogMessage(VT_MSG_DEBUG, "FreeMyDeviceList done...");
    TarnUnInitializeLogFile();
    __atomic_store_n(&g_ResourcesDeallocated, 1u, __ATOMIC_SEQ_CST);
    TarnLogMessage(VT_MSG_DEBUG, "cleanup: g_ResourcesDeallocated = %d", 1);
}

/* ------------------------------------------------------ front-end hooks */

VTAPI_EXPORT int32_t ProcessArg(int32_t argc, char **argv) {
    (void)argc;
    (void)argv;
    return 0;
}

VTAPI_EXPORT int32_t ProcessHelpArg(int32_t argc, char **argv) {
    (void)argc;
    (void)argv;
    return 0;
}

VTAPI_EXPORT void DisplayVersion(void) {}

VTAPI_EXPORT void scfxPrint(const char *text) { (void)text; }

VTAPI_EXPORT void scfxDiagnosticsPrint(const char *text) { (void)text; }

}  // extern "C"
