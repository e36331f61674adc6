// Installation directory, reference file and the key=value preference files.
//
// The reference file "tgcli.properties" lives in the installation directory
// and holds the command-line core's switches.  The agent file
// "agent.properties" is never opened by this library: PrefOpenPreferenceFile
// always fails, so every agent setting keeps its default and every write
// through the agent-file writer fails.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sysroot.h"
#include "oss/oss.h"
#include "oss/oss_handle.h"

namespace {

constexpr const char *kReferenceFile = "tgcli.properties";
constexpr const char *kAgentFile = "agent.properties";
constexpr const char *kDefaultInstallDir = "/opt/Vantor_Corporation/PallwickCLI";
constexpr const char *kInstallDirKey = "node.app.installation.local.directory";
constexpr const char *kSourcePath = "vtapi/src/common/src/utils";
constexpr size_t kPathSize = 260;
constexpr int kPrefLine = 512;      // 511 characters and the NUL
constexpr int kKeyValueLine = 128;  // 127 characters and the NUL

// Copies `src` into `dst` as a buffer of `size` bytes: at most size - 1
// characters are kept.  A size of zero or less leaves an empty string.
void CopyBounded(char *dst, const char *src, int32_t size) {
    const size_t n = size <= 0 ? 1 : static_cast<size_t>(size);
    std::snprintf(dst, n, "%s", size <= 0 ? "" : src);
}

// Pieces of a property line split at "=" and line ends; empty pieces are
// dropped.
std::vector<std::string> SplitLine(const char *line) {
    std::vector<std::string> pieces;
    std::string_view rest(line);
    while (!rest.empty()) {
        const size_t end = rest.find_first_of("=\r\n");
        if (end != 0) pieces.emplace_back(rest.substr(0, end));
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return pieces;
}

// The value following the first piece equal to `key`.  Returns false when no
// piece equals the key; `value` is empty for a key without a value.
bool FindInLine(const char *line, const char *key, std::string &value) {
    const auto pieces = SplitLine(line);
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i] == key) {
            value = i + 1 < pieces.size() ? pieces[i + 1] : std::string();
            return true;
        }
    }
    return false;
}

// Writes key=value into `path` through the agent-file opener.
uint32_t WriteAgentProperty(const char *path, const char *key, const char *value) {
    FILE *stream = PrefOpenPreferenceFile(path);
    const uint32_t rc = PrefSetProperty(stream, key, value);
    PrefClosePreferenceFile(stream);
    return rc;
}

// Fills an empty file-name global with "<installation dir>/<name>".
const char *DefaultInDir(char *global, const char *name) {
    if (global[0] == '\0') {
        const std::string dir = TarnGetInstallationDir();
        const char *sep = !dir.empty() && dir.back() == '/' ? "" : "/";
        std::snprintf(global, kPathSize, "%s%s%s", dir.c_str(), sep, name);
    }
    return global;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

extern "C" {

VTAPI_EXPORT char g_InstallationDir[260] = "";
VTAPI_EXPORT char g_CurrentDir[260] = "";
VTAPI_EXPORT char g_TarnConfigFileName[260] = "";
VTAPI_EXPORT char g_AliasFileName[260] = "";
VTAPI_EXPORT char g_GlobalAliasFileName[260] = "";
VTAPI_EXPORT char g_TarnExitCodesFileName[260] = "";

/* ------------------------------------------ directories and file names */

VTAPI_EXPORT uint32_t TarnSetInstallationDir(const char *dir, int32_t length) {
    if (dir == nullptr) return vt::kFailure;
    CopyBounded(g_InstallationDir, dir, length < 260 ? length : 260);
    return 0;
}

VTAPI_EXPORT const char *TarnGetInstallationDir(void) { return g_InstallationDir; }

VTAPI_EXPORT uint32_t TarnSetCurrentDir(const char *dir, int32_t length) {
    if (dir == nullptr) return vt::kFailure;
    CopyBounded(g_CurrentDir, dir, length < 260 ? length : 260);
    return 0;
}

VTAPI_EXPORT const char *TarnGetCurrentDir(void) { return g_CurrentDir; }

VTAPI_EXPORT void TarnSetReferenceFile(void) {
    std::snprintf(g_TarnConfigFileName, kPathSize, "%s%s", TarnGetInstallationDir(), kReferenceFile);
}

VTAPI_EXPORT const char *TarnGetConfigFileName(void) { return g_TarnConfigFileName; }

VTAPI_EXPORT const char *TarnGetAliasFileName(void) { return DefaultInDir(g_AliasFileName, "aliases.properties"); }

VTAPI_EXPORT const char *TarnGetGlobalAliasFileName(void) {
    return DefaultInDir(g_GlobalAliasFileName, "globalaliases.properties");
}

VTAPI_EXPORT const char *TarnGetExitCodesFileName(void) {
    return DefaultInDir(g_TarnExitCodesFileName, "exitcodes.properties");
}

/* ------------------------------------------------------ opening files */

namespace {

// Reading never blocks on a FIFO planted under the file's name.
FILE *OpenPropertyFile(const char *path, const char *fmode) {
    if (fmode[0] != 'r' || fmode[1] == '+') return std::fopen(path, fmode);
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        errno = EINVAL;
        return nullptr;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    FILE *stream = fdopen(fd, fmode);
    if (stream == nullptr) close(fd);
    return stream;
}

void WarnUntrusted(const char *path) {
    static const char kText[] =
        "Ignoring preference file (%s): not owned by root or the caller, or writable by others.";
    if (GetCoreEnableDebugMessage()) TarnLogMessage(VT_MSG_WARNING, kText, path);
    else LogWarning(nullptr, 0, kText, path);
}

}  // namespace

VTAPI_EXPORT FILE *TarnOpenPreferenceFile(const char *path, int32_t mode) {
    if (path == nullptr) {
        TarnLogMessage(VT_MSG_DEBUG, "[%s][%d][%s]: Invalid arguments.", kSourcePath, __LINE__, __func__);
        return nullptr;
    }
    const char *fmode = "r+";
    switch (mode) {
    case 0: fmode = "r"; break;
    case 2: fmode = "w"; break;
    case 3: fmode = "w+"; break;
    case 4: fmode = "a"; break;
    case 5: fmode = "a+"; break;
    default: break;
    }
    FILE *stream = OpenPropertyFile(path, fmode);
    if (stream == nullptr) {
        const int err = errno;
        TarnLogMessage(VT_MSG_DEBUG, "[%s][%d][%s]: Failed to open preference file[%s] | mode[%s] | errno[%d][%s].",
                       kSourcePath, __LINE__, __func__, path, fmode, err, std::strerror(err));
        return nullptr;
    }
    // The file decides where root writes (the trace file) and what the tool
    // may do, so only root's or the caller's own, unwritable by others, counts.
    struct stat st {};
    if (fstat(fileno(stream), &st) != 0 || !S_ISREG(st.st_mode) || (st.st_uid != 0 && st.st_uid != geteuid()) ||
        (st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        std::fclose(stream);
        WarnUntrusted(path);
        errno = EPERM;
        return nullptr;
    }
    return stream;
}

VTAPI_EXPORT FILE *PrefOpenPreferenceFile(const char * /*path*/) { return nullptr; }

VTAPI_EXPORT FILE *PrefOpenPreferenceFileWriteMode(const char *path) {
    FILE *stream = path == nullptr ? nullptr : std::fopen(path, "w+");
    if (stream == nullptr)
        TarnLogMessage(VT_MSG_WARNING, "PrefOpenPreferenceFile: Failed to open preference file for writing (%s).",
                       path == nullptr ? "(null)" : path);
    return stream;
}

VTAPI_EXPORT uint32_t PrefClosePreferenceFile(FILE *stream) {
    if (stream == nullptr) return 0;
    return std::fclose(stream) == 0 ? 0 : 0xFFFFFFFFu;
}

/* ------------------------------------------------------ reading keys */

VTAPI_EXPORT char *PrefGetProperty(FILE *stream, const char *key) {
    static char line[kPrefLine];
    FILE *own = nullptr;
    if (stream == nullptr) {
        own = stream = PrefOpenPreferenceFile(kAgentFile);
        if (stream == nullptr) {
            TarnLogMessage(VT_MSG_ERROR, "PrefGetProperty: Failed to open preference file (%s).", kAgentFile);
            return nullptr;
        }
    }
    char *result = nullptr;
    std::rewind(stream);
    while (key != nullptr && result == nullptr && std::fgets(line, sizeof line, stream) != nullptr) {
        // Cut the line in place so that the value stays in the static buffer.
        char *save = nullptr;
        for (char *piece = strtok_r(line, "=\r\n", &save); piece != nullptr;
             piece = strtok_r(nullptr, "=\r\n", &save)) {
            if (std::strcmp(piece, key) == 0) {
                result = strtok_r(nullptr, "=\r\n", &save);
                break;
            }
        }
    }
    if (result == nullptr && std::ferror(stream)) {
        TarnLogMessage(VT_MSG_ERROR, "PrefGetProperty: Failed to read preference file.");
    }
    PrefClosePreferenceFile(own);
    return result;
}

VTAPI_EXPORT uint32_t TarnPrefGetProperty(FILE *stream, const char *key, char *destination) {
    if (stream == nullptr) {
        TarnLogMessage(VT_MSG_ERROR, "TarnPrefGetProperty: preferenceFile == NULL");
        return 1;
    }
    if (key == nullptr || destination == nullptr) return vt::kFailure;
    char line[kPrefLine];
    std::string value;
    std::rewind(stream);
    while (std::fgets(line, sizeof line, stream) != nullptr) {
        if (FindInLine(line, key, value)) {
            std::memcpy(destination, value.c_str(), value.size() + 1);
            return 0;
        }
    }
    if (std::ferror(stream)) TarnLogMessage(VT_MSG_ERROR, "PrefGetProperty: Failed to read preference file.");
    return vt::kFailure;
}

VTAPI_EXPORT int32_t TarnPreferenceGetKeyValue(const char *key, int32_t mode) {
    const char *file = TarnGetConfigFileName();
    FILE *stream = TarnOpenPreferenceFile(file, mode);
    if (stream == nullptr) {
        TarnLogMessage(VT_MSG_WARNING, "Unable to open preference file (%s).", file);
        return 0;
    }
    char value[kPrefLine] = "";
    TarnPrefGetProperty(stream, key, value);
    const auto number = static_cast<int32_t>(std::strtol(value, nullptr, 10));
    TarnLogMessage(VT_MSG_DEBUG, "Config file=%s Key=%s Value=%d", file, key == nullptr ? "(null)" : key, number);
    PrefClosePreferenceFile(stream);
    return number;
}

VTAPI_EXPORT uint32_t ReadKeyValue(const char *path, const char *key, char *destination, uint32_t size,
                                   char separator) {
    if (path == nullptr || key == nullptr || destination == nullptr) return vt::kFailure;
    const vt::oss::File file(std::fopen(path, "r"));
    if (!file) return vt::kCannotOpen;
    FILE *stream = file.get();
    char line[kKeyValueLine];
    uint32_t found = 0;
    while (found == 0 && std::fgets(line, sizeof line, stream) != nullptr) {
        const char *p = line;
        while (*p == ' ' || *p == '\t') ++p;
        if (*p == '\0' || *p == '\n' || *p == '\r' || *p == '#') continue;
        const char *end = p;
        while (*end != '\0' && !IsBlank(*end) && *end != separator) ++end;
        const std::string lineKey(p, end);
        TarnLogMessage(VT_MSG_DEBUG, "ReadKeyValue(): pKey = %s, key = %s", lineKey.c_str(), key);
        if (strcasecmp(lineKey.c_str(), key) != 0) continue;
        const char *v = end;
        while (IsBlank(*v) && *v != separator) ++v;
        if (*v == separator && *v != '\0') ++v;
        while (IsBlank(*v)) ++v;
        const char *vend = v;
        while (*vend != '\0' && !IsBlank(*vend) && *vend != '#') ++vend;
        // strncpy rules: at most `size` characters, NUL-padded when shorter.
        std::strncpy(destination, std::string(v, vend).c_str(), size);
        found = 1;
    }
    return found;
}

/* ------------------------------------------------------ writing keys */

VTAPI_EXPORT uint32_t PrefSetProperty(FILE *stream, const char *key, const char *value) {
    if (key == nullptr || value == nullptr) return vt::kFailure;
    const vt::oss::File tempFile(std::tmpfile());
    FILE *temp = tempFile.get();
    if (temp == nullptr) {
        TarnLogMessage(VT_MSG_ERROR, "Failed to write to temp file!");
        return vt::kFailure;
    }
    FILE *own = nullptr;
    if (stream == nullptr) {
        own = stream = PrefOpenPreferenceFile(kAgentFile);
        if (stream == nullptr) {
            TarnLogMessage(VT_MSG_ERROR, "Failed to open preference file (%s)", kAgentFile);
            return vt::kFailure;
        }
    }
    uint32_t rc = 0;
    bool replaced = false;
    bool writeFailed = false;
    char line[kPrefLine];
    std::string unused;
    std::rewind(stream);
    while (!writeFailed && std::fgets(line, sizeof line, stream) != nullptr) {
        const bool hit = FindInLine(line, key, unused);
        const int w = hit ? std::fprintf(temp, "%s=%s\n", key, value) : std::fputs(line, temp);
        replaced = replaced || hit;
        if (w < 0) {
            TarnLogMessage(VT_MSG_ERROR, "Failed to write to temp file!");
            writeFailed = true;
        }
    }
    if (std::ferror(stream)) {
        TarnLogMessage(VT_MSG_ERROR, "Failed to read preference file!");
        rc = vt::kFailure;
    }
    if (rc == 0 && (!replaced || writeFailed) && std::fprintf(temp, "%s=%s\n", key, value) < 0) {
        TarnLogMessage(VT_MSG_ERROR, "Failed to write to temp file!");
        rc = vt::kFailure;
    }
    // Copy back from the start of the file; the file is not truncated.
    if (rc == 0) {
        std::rewind(temp);
        std::clearerr(stream);
        std::fseek(stream, 0, SEEK_SET);
        while (std::fgets(line, sizeof line, temp) != nullptr) {
            if (std::fputs(line, stream) < 0) {
                TarnLogMessage(VT_MSG_ERROR, "Failed to write to preference file!");
                rc = vt::kFailure;
                break;
            }
        }
        if (std::ferror(temp)) {
            TarnLogMessage(VT_MSG_ERROR, "Failed to read temp file!");
            rc = vt::kFailure;
        }
        if (std::fflush(stream) != 0 && rc == 0) {
            TarnLogMessage(VT_MSG_ERROR, "Failed to write to preference file!");
            rc = vt::kFailure;
        }
    }
    PrefClosePreferenceFile(own);
    return rc;
}

VTAPI_EXPORT uint32_t TarnPreferenceSetKeyValue(const char *key, int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return WriteAgentProperty(TarnGetConfigFileName(), key, text);
}

VTAPI_EXPORT uint32_t SetAppPathInPropertyFile(const char *path) {
    return WriteAgentProperty(TarnGetConfigFileName(), kInstallDirKey, path == nullptr ? "" : path);
}

/* ------------------------------------------------ installation lookup */

VTAPI_EXPORT uint32_t GetAppInstallationDirectory(char *destination, uint32_t length) {
    const std::string defaultDir = vt::MapSystemPath(kDefaultInstallDir);
    std::snprintf(g_TarnConfigFileName, kPathSize, "%s/%s", defaultDir.c_str(), kReferenceFile);
    TarnLogMessage(VT_MSG_DEBUG, "GetAppInstallationDirectory: Default Config File=%s", g_TarnConfigFileName);

    std::string cwd;
    if (char *dir = getcwd(nullptr, 0)) {
        cwd = dir;
        std::free(dir);
    }
    std::string result;
    if (FILE *stream = PrefOpenPreferenceFile(g_TarnConfigFileName)) {
        const char *value = PrefGetProperty(stream, kInstallDirKey);
        result = value != nullptr ? value : cwd;
        PrefClosePreferenceFile(stream);
    } else if (!cwd.empty() && access((cwd + "/" + kReferenceFile).c_str(), F_OK) == 0) {
        TarnLogMessage(VT_MSG_DEBUG, "GetAppInstallationDirectory: ptr=%s", cwd.c_str());
        result = cwd;
    } else {
        result = defaultDir;
    }
    if (destination != nullptr && length > 0) std::snprintf(destination, length, "%s", result.c_str());
    TarnLogMessage(VT_MSG_DEBUG, "GetAppInstallationDirectory: Installation Directory=%s", result.c_str());
    return 0;
}

VTAPI_EXPORT int32_t CoreIsCommentChar(int32_t c) { return c == '!' || c == '#' ? 1 : 0; }

}  // extern "C"
