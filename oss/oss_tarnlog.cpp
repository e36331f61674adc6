// Command-line log: debug text of the command-line core into the messages
// file, user-facing text into the command-line log file or the console, the
// display switches and the name of the application trace file.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "oss/oss.h"
#include "oss/oss_file.h"
#include "oss/oss_handle.h"

extern "C" {
VTAPI_EXPORT char g_LogFileName[256];
VTAPI_EXPORT FILE *g_fp;
VTAPI_EXPORT int32_t bSilent;
VTAPI_EXPORT int32_t bSysLog;
VTAPI_EXPORT int32_t bXmlOutPut;
int32_t bJsonOutPut;
}

namespace {

int32_t gCoreDebugMessages;
char gAppTraceFileName[256];

// Word in front of a console or command-line log line.
const char *ConsoleWord(int32_t type) {
    return type == VT_MSG_PROFILE ? "Unknown" : TranslateMessageTypeToString(type);
}

// fopen-like open of a log file that never follows a symbolic link in the
// last component (the default log lives in a shared directory).
FILE *OpenLogStream(const std::string &path, const char *mode) {
    vt::oss::SharedMode shared;
    switch (mode[0]) {
    case 'r': shared = vt::oss::SharedMode::Read; break;
    case 'w': shared = vt::oss::SharedMode::Truncate; break;
    case 'a': shared = vt::oss::SharedMode::Append; break;
    default: return nullptr;
    }
    const vt::oss::SharedOpenResult opened = vt::oss::OpenSharedFile(path, shared, std::strchr(mode, '+') != nullptr);
    vt::oss::Fd fd(opened.fd);
    if (!fd) return nullptr;
    if (opened.replaced)
        LogWarning(nullptr, 0, "Replaced a log file that another user owned or linked (%s)", path.c_str());
    FILE *stream = fdopen(fd.get(), mode);
    if (stream != nullptr) fd.release();  // the stream owns it now
    return stream;
}

// vsnprintf of a format that may be null, which gives an empty text.
void FormatText(char *text, size_t size, const char *format, va_list args) {
    if (format == nullptr) text[0] = '\0';
    else std::vsnprintf(text, size, format, args);
}

}  // namespace

extern "C" {

// Debug text of the command-line core: to the messages file, with the type
// word but without time stamp or source position, while debug is on.
VTAPI_EXPORT void TarnLogMessage(int32_t type, const char *format, ...) {
    if (GetCoreEnableDebugMessage() == 0) return;
    char text[256];
    va_list args;
    va_start(args, format);
    FormatText(text, sizeof text, format, args);
    va_end(args);
    TarnOSSLogMessage(type, text);
}

VTAPI_EXPORT uint32_t TarnOSSLogMessage(int32_t type, const char *text) { return OSSLogMessage2(type, text); }

VTAPI_EXPORT void PrintMessage(int32_t type, const char *text) {
    if (text == nullptr) return;
    FILE *stream = g_fp != nullptr ? g_fp : (type == VT_MSG_ERROR ? stderr : stdout);
    if (bSilent != 0 && bSysLog == 0) return;
    if (type == VT_MSG_PLAIN) {
        std::fputs(text, stream);
    } else {
        // Messages would break an XML or JSON document on the same output.
        if ((bXmlOutPut != 0 || bJsonOutPut != 0) && type != VT_MSG_ERROR) return;
        std::fprintf(stream, "%s: %s", ConsoleWord(type), text);
    }
    std::fflush(stream);
}

VTAPI_EXPORT void TarnPrint(int32_t type, const char *format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    FormatText(text, sizeof text, format, args);
    va_end(args);
    PrintMessage(type, text);
}

VTAPI_EXPORT void TarnMenuLogMessage(int32_t type, const char *format, ...) {
    if (type == VT_MSG_DEBUG && GetCoreEnableDebugMessage() == 0) return;
    char text[512];
    va_list args;
    va_start(args, format);
    FormatText(text, sizeof text, format, args);
    va_end(args);
    if (type == VT_MSG_PLAIN) std::fputs(text, stdout);
    else std::fprintf(stdout, "%s: %s", ConsoleWord(type), text);
    std::fflush(stdout);
}

VTAPI_EXPORT void SetLogFileName(const char *name) {
    std::snprintf(g_LogFileName, sizeof g_LogFileName, "%s", name != nullptr ? name : "");
}

VTAPI_EXPORT const char *GetLogFileName(void) { return g_LogFileName; }

// Returns 1 when there is no mode or the file cannot be opened; the output
// then goes to the console.  The name is opened as it is: a name the user
// gave (-o FILE) is the user's path, and callers that name one of the
// system's own files map it first.
VTAPI_EXPORT int32_t TarnInitializeLogFile(const char *mode) {
    TarnUnInitializeLogFile();
    if (mode == nullptr || g_LogFileName[0] == '\0') return 1;
    g_fp = OpenLogStream(g_LogFileName, mode);
    return g_fp == nullptr ? 1 : 0;
}

VTAPI_EXPORT void TarnUnInitializeLogFile(void) {
    if (g_fp != nullptr) std::fclose(g_fp);
    g_fp = nullptr;
}

VTAPI_EXPORT void SetCoreEnableDebugMessage(int32_t enable) { gCoreDebugMessages = enable; }

VTAPI_EXPORT int32_t GetCoreEnableDebugMessage(void) { return gCoreDebugMessages; }

VTAPI_EXPORT void SetDisplayMode(int32_t mode) { bSilent = mode == 1 ? 1 : 0; }

// Trace file name from the reference file's "node.app.messages.trace.file",
// with the local time put before the extension: trace.log becomes
// trace.MMDDYYYYHHMMSS.log, a name without extension gets ".MMDDYYYYHHMMSS.log".
VTAPI_EXPORT int32_t SetAppTraceFileName(void) {
    const char *reference = TarnGetConfigFileName();
    FILE *stream = TarnOpenPreferenceFile(reference, 0);
    if (stream == nullptr) {
        LogWarning(__FILE__, __LINE__, "Unable to open preference file (%s).", reference != nullptr ? reference : "");
        return -1;
    }
    char value[512] = "";
    const uint32_t found = TarnPrefGetProperty(stream, "node.app.messages.trace.file", value);
    std::fclose(stream);
    if (found != 0) return -1;
    value[sizeof value - 1] = '\0';

    const time_t now = time(nullptr);
    tm local{};
    char stamp[32] = "";
    if (localtime_r(&now, &local) != nullptr) std::strftime(stamp, sizeof stamp, "%m%d%Y%H%M%S", &local);

    const std::string name = value;
    const size_t slash = name.rfind('/');
    const size_t dot = name.rfind('.');
    std::string result;
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        result = name.substr(0, dot) + "." + stamp + "." + name.substr(dot + 1);
    else result = name + "." + stamp + ".log";
    std::snprintf(gAppTraceFileName, sizeof gAppTraceFileName, "%s", result.c_str());
    LogDebug(__FILE__, __LINE__, "SetAppTraceFileName: Log File=%s", gAppTraceFileName);
    return 0;
}

const char *GetAppTraceFileName(void) { return gAppTraceFileName; }

}  // extern "C"
