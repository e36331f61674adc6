// Feeds arbitrary text as an alias file.  The first line of the input is an
// alias, the rest the file.  Setting the alias under its key through the
// preference-file editor must read back as that alias; the reader alone
// must never fail on any file.
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "../cli/alias_prefs.h"
#include "oss/oss.h"

// The preference code logs through TarnLogMessage; formatted and dropped.
extern "C" void TarnLogMessage(int32_t, const char *format, ...) {
    char line[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
}

// Warnings about untrusted files: dropped as well.
extern "C" int32_t GetCoreEnableDebugMessage(void) { return 1; }
extern "C" void LogWarning(const char *, uint32_t, const char *, ...) {}

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

constexpr char kKey[] = "adapter.wwnn.20-00-00-24-FF-7C-50-10.wwpn.21-00-00-24-FF-7C-50-10.name";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16) return 0;
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t nl = input.find('\n');
    std::string alias = input.substr(0, nl == std::string::npos ? input.size() : nl);
    const std::string file = nl == std::string::npos ? std::string() : input.substr(nl + 1);
    // An alias the file can hold: no "=", no line end, not empty.
    std::string usable;
    for (char c : alias)
        if (c != '=' && c != '\r' && c != '\n' && c != '\0') usable += c;
    if (usable.empty() || usable.size() > 256) usable = "alias";

    FILE *stream = std::tmpfile();
    if (!stream) return 0;
    std::fwrite(file.data(), 1, file.size(), stream);
    std::fflush(stream);
    PrefGetProperty(stream, kKey);  // any file reads without failing

    FILE *edited = std::tmpfile();
    if (edited) {
        const int rc = vt::cli::WritePropertyFile(fileno(edited), file, kKey, usable.c_str());
        if (file.find('\0') != std::string::npos) {
            Check(rc != 0);  // not text: refused
        } else {
            Check(rc == 0);
            const char *value = PrefGetProperty(edited, kKey);
            Check(value != nullptr && usable == value);
        }
        std::fclose(edited);
    }
    std::fclose(stream);
    return 0;
}
