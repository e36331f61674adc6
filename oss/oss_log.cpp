// API messages file, profiler, time stamps and the core's console log.
//
// Every line of the messages file is written by its own open, write and
// close, so the file is complete after a crash and may be removed or rotated
// between two calls.  The file names are kept unmapped; they go through
// vt::MapSystemPath each time they are used.
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "sysroot.h"
#include "oss/oss.h"
#include "oss/oss_file.h"
#include "oss/oss_handle.h"

extern "C" {
VTAPI_EXPORT char messagesfile[512];
VTAPI_EXPORT char oldmessagesfile[512];
VTAPI_EXPORT int32_t g_coreQuietModeEnable;
int32_t g_bOperateInQuietMode;
}

namespace {

constexpr size_t kLineLimit = 511;  // LogMessage formats into 512 bytes

// One entry of the profiler stack (newest first).
struct ProfilerFrame {
    char name[128];
    time_t seconds;
    long nanoseconds;  // rounded down to whole milliseconds
    ProfilerFrame *next;
};

ProfilerFrame *gProfilerStack;
// Frames dropped by a mismatched exit stay allocated on purpose; they are
// parked here so that they remain reachable for the life of the process.
ProfilerFrame *gDroppedFrames;

std::string EscapePercent(const char *text) {
    std::string out;
    for (; *text != '\0'; ++text) {
        out.push_back(*text);
        if (*text == '%') out.push_back('%');
    }
    return out;
}

// Reads a decimal field, clamped to `cap` so that hostile text cannot ask
// for an enormous width or overflow the parser.
int ReadNumber(const char *&p, int cap) {
    long value = 0;
    while (*p >= '0' && *p <= '9') {
        if (value <= cap) value = value * 10 + (*p - '0');
        ++p;
    }
    return value > cap ? cap : static_cast<int>(value);
}

// Skips a positional "N$" if one follows; returns true when it did.
bool SkipPosition(const char *&p) {
    const char *q = p;
    while (*q >= '0' && *q <= '9') ++q;
    if (q != p && *q == '$') {
        p = q + 1;
        return true;
    }
    return false;
}

// Formats `format` as a printf format that was given no arguments: every
// conversion prints as if its argument were 0 (numbers, characters and
// pointers as 0, strings as ""), "%%" as "%", and "%n" prints and stores
// nothing.  Flags, widths and precisions are honoured but capped, so any
// text is safe to pass.  Stops once `limit` characters are produced.
std::string FormatWithoutArguments(const char *format, size_t limit) {
    const int cap = static_cast<int>(limit);
    std::string out;
    const char *p = format;
    while (*p != '\0' && out.size() < limit) {
        if (*p != '%') {
            out.push_back(*p++);
            continue;
        }
        const char *start = p++;
        SkipPosition(p);
        std::string conv = "%";
        while (*p != '\0' && std::strchr("-+ #0'I", *p) != nullptr) conv.push_back(*p++);
        if (*p == '*') {  // the width argument is missing too: width 0
            ++p;
            SkipPosition(p);
        } else if (*p >= '0' && *p <= '9') {
            conv += std::to_string(ReadNumber(p, cap));
        }
        if (*p == '.') {
            ++p;
            int precision = 0;
            if (*p == '*') {
                ++p;
                SkipPosition(p);
            } else {
                precision = ReadNumber(p, cap);
            }
            // Not "." + std::to_string(): GCC 12 at -O3 warns falsely about
            // that (-Wrestrict).
            conv.append(".").append(std::to_string(precision));
        }
        while (*p != '\0' && std::strchr("hlLqjzZt", *p) != nullptr) ++p;
        char piece[1200];
        int n = -1;
        switch (*p) {
        case 'd':
        case 'i': n = std::snprintf(piece, sizeof piece, (conv + "lld").c_str(), 0LL); break;
        case 'u':
        case 'o':
        case 'x':
        case 'X': n = std::snprintf(piece, sizeof piece, (conv + "ll" + *p).c_str(), 0ULL); break;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
        case 'a':
        case 'A': n = std::snprintf(piece, sizeof piece, (conv + *p).c_str(), 0.0); break;
        case 'c': n = std::snprintf(piece, sizeof piece, (conv + "c").c_str(), 0); break;
        case 's':
        case 'S': n = std::snprintf(piece, sizeof piece, (conv + "s").c_str(), ""); break;
        case 'p': n = std::snprintf(piece, sizeof piece, (conv + "p").c_str(), static_cast<void *>(nullptr)); break;
        case '%': out.push_back('%'); break;
        case 'n': break;
        case '\0':  // dangling directive at the end: keep it as text
            out.append(start, p);
            continue;
        default:  // unknown conversion: keep it as text
            out.append(start, p + 1);
            break;
        }
        if (n > 0) out.append(piece, std::min(static_cast<size_t>(n), sizeof piece - 1));
        ++p;
    }
    if (out.size() > limit) out.resize(limit);
    return out;
}

// vsnprintf of a format that may be null, which gives an empty text.
void FormatText(char *text, size_t size, const char *format, va_list args) {
    if (format == nullptr) text[0] = '\0';
    else std::vsnprintf(text, size, format, args);
}

// Builds "stamp:base(line):format" (or "stamp:format" without a source
// path), formats it with the caller's arguments, then formats the text once
// more as a format given no arguments (so a "%" that came in through an
// argument is interpreted again) and hands the result to LogMessage.  The
// second pass is done here, where it can be made safe, rather than by
// passing the text to LogMessage as a format with nothing behind it.
void WriteApiLine(int32_t type, const char *file, uint32_t line, const char *format, va_list args) {
    // Without a messages file the line would be dropped: skip the formatting,
    // which discovery of many LUNs would otherwise pay for every line.
    if (messagesfile[0] == '\0') return;
    char stamp[13] = "";
    vtapiGetTimeStamp(stamp, sizeof stamp);
    stamp[sizeof stamp - 1] = '\0';
    char text[1024];
    try {
        std::string full = EscapePercent(stamp) + ":";
        if (file != nullptr) {
            const char *slash = std::strrchr(file, '/');
            char number[16];
            std::snprintf(number, sizeof number, "(%04d):", static_cast<int>(line));
            full += EscapePercent(slash != nullptr ? slash + 1 : file) + number;
        }
        full += format != nullptr ? format : "";
        std::vsnprintf(text, sizeof text, full.c_str(), args);
    } catch (const std::bad_alloc &) {
        std::snprintf(text, sizeof text, "%s", "vtapiReFormat Failed");
    }
    try {
        LogMessage(type, "%s", FormatWithoutArguments(text, kLineLimit).c_str());
    } catch (const std::bad_alloc &) {
    }
}

void ApiLine(int32_t type, const char *format, ...) __attribute__((format(printf, 2, 3)));
void ApiLine(int32_t type, const char *format, ...) {
    va_list args;
    va_start(args, format);
    WriteApiLine(type, nullptr, 0, format, args);
    va_end(args);
}

void ProfilerLine(const char *format, ...) __attribute__((format(printf, 1, 2)));
void ProfilerLine(const char *format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    ApiLine(VT_MSG_PROFILE, "%s", text);
}

void Now(time_t &seconds, long &nanoseconds) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    seconds = ts.tv_sec;
    nanoseconds = ts.tv_nsec / 1000000 * 1000000;
}

// Pops frames until one named `name` is on top.  A mismatch is reported
// once; the frames skipped over are dropped from the stack but not freed.
void ProfilerExit(const char *name, bool withStatus, int32_t status) {
    if (name == nullptr) name = "";
    bool reported = false;
    while (ProfilerFrame *top = gProfilerStack) {
        if (std::strncmp(top->name, name, sizeof top->name - 1) == 0) {
            time_t seconds;
            long nanoseconds;
            Now(seconds, nanoseconds);
            const int elapsed =
                static_cast<int>((seconds - top->seconds) * 1000 + (nanoseconds - top->nanoseconds) / 1000000);
            if (withStatus) ProfilerLine("PROFILER EXIT FUNCTION %s %d ms  status=%d", name, elapsed, status);
            else ProfilerLine("PROFILER EXIT FUNCTION %s %d ms", name, elapsed);
            gProfilerStack = top->next;
            delete top;
            return;
        }
        if (!reported) {
            ProfilerLine("PROFILER ERROR - %s expected at top of stack, %s found instead", name, top->name);
            reported = true;
        }
        gProfilerStack = top->next;
        top->next = gDroppedFrames;
        gDroppedFrames = top;
    }
    ProfilerLine("PROFILER ERROR - %s not found in stack", name);
}

}  // namespace

extern "C" {

// ------------------------------------------------------------ messages file

VTAPI_EXPORT void LogDebug(const char *file, uint32_t line, const char *format, ...) {
    va_list args;
    va_start(args, format);
    WriteApiLine(VT_MSG_DEBUG, file, line, format, args);
    va_end(args);
}

VTAPI_EXPORT void LogInfo(const char *file, uint32_t line, const char *format, ...) {
    if ((gTraceLevel & VT_TRACE_INFO) == 0) return;
    va_list args;
    va_start(args, format);
    WriteApiLine(VT_MSG_INFO, file, line, format, args);
    va_end(args);
}

VTAPI_EXPORT void LogWarning(const char *file, uint32_t line, const char *format, ...) {
    if ((gTraceLevel & VT_TRACE_WARNING) == 0) return;
    va_list args;
    va_start(args, format);
    WriteApiLine(VT_MSG_WARNING, file, line, format, args);
    va_end(args);
}

VTAPI_EXPORT void LogError(const char *file, uint32_t line, const char *format, ...) {
    if ((gTraceLevel & VT_TRACE_ERROR) == 0) return;
    va_list args;
    va_start(args, format);
    WriteApiLine(VT_MSG_ERROR, file, line, format, args);
    va_end(args);
}

VTAPI_EXPORT void LogMessage(int32_t type, const char *format, ...) {
    char text[kLineLimit + 1];
    va_list args;
    va_start(args, format);
    FormatText(text, sizeof text, format, args);
    va_end(args);
    OSSLogMessage2(type, text);
}

VTAPI_EXPORT uint32_t OSSLogMessage2(int32_t type, const char *text) {
    if (messagesfile[0] == '\0') return 1;
    try {
        std::string line = TranslateMessageTypeToString(type);
        line += ": ";
        line += text != nullptr ? text : "";
        line += '\n';
        const std::string path = vt::MapSystemPath(messagesfile);
        const vt::oss::SharedOpenResult opened = vt::oss::OpenSharedFile(path, vt::oss::SharedMode::Append);
        const vt::oss::Fd fd(opened.fd);
        if (!fd) return 1;
        if (opened.replaced) {
            const std::string warning = std::string(TranslateMessageTypeToString(VT_MSG_WARNING)) +
                                        ": Replaced a messages file that another user owned or linked: " + path + "\n";
            const ssize_t noted = write(fd.get(), warning.data(), warning.size());
            (void)noted;
        }
        const ssize_t written = write(fd.get(), line.data(), line.size());
        (void)written;
    } catch (const std::bad_alloc &) {
    }
    return 1;
}

VTAPI_EXPORT const char *TranslateMessageTypeToString(int32_t type) {
    switch (type) {
    case VT_MSG_PLAIN: return "";
    case VT_MSG_INFO: return "Info";
    case VT_MSG_WARNING: return "Warning";
    case VT_MSG_ERROR: return "Error";
    case VT_MSG_DEBUG: return "Debug";
    case VT_MSG_PROFILE: return "Profile";
    default: return "Unknown";
    }
}

VTAPI_EXPORT void InitializeLogMessageFile(void) {
    std::snprintf(messagesfile, sizeof messagesfile, "%s", "/var/tmp/vtapi.log");
    std::snprintf(oldmessagesfile, sizeof oldmessagesfile, "%s", "/var/tmp/vtapi_prev.log");
}

VTAPI_EXPORT int32_t RenameLogFile(const char *oldName, const char *newName) {
    if (oldName == nullptr || newName == nullptr) return -1;
    const std::string from = vt::MapSystemPath(oldName);
    const std::string to = vt::MapSystemPath(newName);
    unlink(to.c_str());
    struct stat st {};
    if (lstat(from.c_str(), &st) != 0 && errno == ENOENT) return 0;
    return rename(from.c_str(), to.c_str());
}

VTAPI_EXPORT void OpenCoreMessagesFile(void) {
    if (messagesfile[0] == '\0') return;
    const std::string path = vt::MapSystemPath(messagesfile);
    const vt::oss::SharedOpenResult opened = vt::oss::OpenSharedFile(path, vt::oss::SharedMode::Truncate);
    const vt::oss::Fd emptied(opened.fd);
    if (opened.replaced)
        LogWarning(nullptr, 0, "OpenCoreMessagesFile: replaced a file that another user owned or linked (%s)",
                   path.c_str());
}

VTAPI_EXPORT int32_t IsFileSizeWithinLimit(const char *path, uint64_t limit) {
    if (path == nullptr) return 1;
    struct stat st {};
    if (stat(vt::MapSystemPath(path).c_str(), &st) != 0) st.st_size = 0;  // a missing file counts as empty
    return static_cast<uint64_t>(st.st_size) < limit ? 1 : 0;
}

// "hh:mm:ss.mmm" of the local time, the clock part as ctime writes it.
VTAPI_EXPORT char *vtapiGetTimeStamp(char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) return nullptr;
    buffer[0] = '\0';
    if (size < 13) return buffer;
    timespec ts{};
    tm local{};
    char clock[16];
    if (clock_gettime(CLOCK_REALTIME, &ts) != 0 || localtime_r(&ts.tv_sec, &local) == nullptr ||
        std::strftime(clock, sizeof clock, "%H:%M:%S", &local) == 0)
        return buffer;
    std::snprintf(buffer, size, "%8.8s.%3.3lu", clock, static_cast<unsigned long>(ts.tv_nsec / 1000000));
    return buffer;
}

// ----------------------------------------------------------------- profiler

VTAPI_EXPORT void ProfilerEnterFunction(const char *name) {
    if (name == nullptr) name = "";
    ProfilerLine("PROFILER ENTER FUNCTION %s", name);
    auto *frame = new (std::nothrow) ProfilerFrame{};
    if (frame == nullptr) return;
    std::snprintf(frame->name, sizeof frame->name, "%s", name);
    Now(frame->seconds, frame->nanoseconds);
    frame->next = gProfilerStack;
    gProfilerStack = frame;
}

VTAPI_EXPORT void ProfilerExitFunction(const char *name) { ProfilerExit(name, false, 0); }

VTAPI_EXPORT void ProfilerExitFunction2(const char *name, int32_t status) { ProfilerExit(name, true, status); }

// --------------------------------------------------------- core message log

VTAPI_EXPORT void CoreLogMessage(int32_t type, const char *format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    FormatText(text, sizeof text, format, args);
    va_end(args);
    OSSLogMessage(type, text);
}

VTAPI_EXPORT uint32_t OSSLogMessage(int32_t type, const char *text) {
    if (g_bOperateInQuietMode != 0) return 0;
    const char *word = type == VT_MSG_PROFILE ? "Unknown" : TranslateMessageTypeToString(type);
    std::fprintf(type == VT_MSG_ERROR ? stderr : stdout, "%s: %s\n", word, text != nullptr ? text : "");
    return 0;
}

VTAPI_EXPORT void CoreSetQuietMode(int32_t quiet) { g_coreQuietModeEnable = quiet; }

VTAPI_EXPORT int32_t CoreGetQuietMode(void) { return g_coreQuietModeEnable; }

}  // extern "C"
