// Start-up of the OS layer: the installation path, the SNIA HBA API
// registration in /etc/hba.conf, host identification, and the OS layer's
// share of the shut-down.
#include <dlfcn.h>
#include <fcntl.h>
#include <ctime>
#include <hbaapi.h>
#include <strings.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "oss/oss.h"
#include "sysroot.h"
#include "oss/oss_file.h"
#include "oss/oss_handle.h"

namespace {

const char kFile[] = __FILE__;
const char kHbaConf[] = "/etc/hba.conf";
const char kProviderKey[] = "com.vantor.fchba32";

char g_hostName[256];
char g_systemType[128];
char g_osVersion[256];
char g_agentDescription[64];
char g_agentVersion[64];
char g_configurationPath[256];
char g_edifConfigurationPath[256];
char g_distribution[64];
pid_t g_pid = 0;
uint32_t g_fabricScanningEnable = 1;
OSSStartupStep g_coreStartup = nullptr;

void CopyText(char *dst, size_t size, const char *src) {
    size_t n = strnlen(src, size - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}

bool Readable(const char *path) { return bool(vt::oss::File(fopen(vt::MapSystemPath(path).c_str(), "r"))); }

// The distribution's identifier from os-release ("debian"), or empty.
void ReadDistribution() {
    g_distribution[0] = '\0';
    const vt::oss::File f(fopen(vt::MapSystemPath("/etc/os-release").c_str(), "r"));
    if (!f) return;
    char line[256];
    while (fgets(line, sizeof line, f.get())) {
        if (strncmp(line, "ID=", 3) != 0) continue;
        const char *v = line + 3;
        if (*v == '"') ++v;
        size_t n = strcspn(v, "\"\n");
        snprintf(g_distribution, sizeof g_distribution, "%.*s", int(n), v);
        break;
    }
}

}  // namespace

extern "C" {

char g_ModulePath[256];

VTAPI_EXPORT uint32_t GetInstallationPath(void) {
    Dl_info info{};
    const char *file = "";
    if (dladdr(reinterpret_cast<void *>(&SDGetVersion), &info) != 0 && info.dli_fname) file = info.dli_fname;
    LogDebug(kFile, __LINE__, "module %s is loaded", file);
    memset(gpInstallationPath, 0, sizeof gpInstallationPath);
    memset(g_ModulePath, 0, sizeof g_ModulePath);
    snprintf(g_ModulePath, sizeof g_ModulePath, "%s", file);
    if (strchr(g_ModulePath, '/')) {
        const char *lib64 = strstr(g_ModulePath, "/lib64");
        size_t n = lib64 ? size_t(lib64 - g_ModulePath) : size_t(strrchr(g_ModulePath, '/') - g_ModulePath);
        memcpy(gpInstallationPath, g_ModulePath, n);
        LogDebug(kFile, __LINE__, "module is located at %s", gpInstallationPath);
    } else if (char *cwd = get_current_dir_name()) {
        snprintf(gpInstallationPath, sizeof gpInstallationPath - 1, "%s", cwd);
        free(cwd);
    }
    strncat(gpInstallationPath, "/", sizeof gpInstallationPath - strlen(gpInstallationPath) - 1);
    return 0;
}

VTAPI_EXPORT const char *findlibvtsdm_adapter_provider(void) {
    if (g_ModulePath[0]) {
        // The loaded library's own path is a real path, not a system path.
        if (vt::oss::File(fopen(g_ModulePath, "r"))) return g_ModulePath;
    }
    if (Readable("/usr/lib/cim/libvtsdm_adapter_provider.so")) return "/usr/lib/cim/libvtsdm_adapter_provider.so";
    return "/lib/cim/libvtsdm_adapter_provider.so";
}

// True when a line of the stream begins (after blanks) with the provider key.
VTAPI_EXPORT uint32_t haslibvtsdmEntry(void *stream) {
    FILE *f = static_cast<FILE *>(stream);
    if (!f) return 0;
    const size_t keyLen = strlen(kProviderKey);
    int c = getc(f);
    while (c != EOF) {
        while (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') c = getc(f);
        if (c == kProviderKey[0]) {
            size_t matched = 1;
            while (matched < keyLen && (c = getc(f)) == kProviderKey[matched]) ++matched;
            if (matched == keyLen) return 1;
        }
        while (c != EOF && c != '\n') c = getc(f);
        if (c == '\n') c = getc(f);
    }
    return 0;
}

VTAPI_EXPORT uint32_t createHBAConfFile(const char *mode, const char *provider) {
    if (!mode || !provider) return 1;
    const bool append = mode[0] == 'a';
    const std::string path = vt::MapSystemPath(kHbaConf);
    const vt::oss::SharedOpenResult opened =
        vt::oss::OpenSharedFile(path, append ? vt::oss::SharedMode::Append : vt::oss::SharedMode::Truncate);
    vt::oss::Fd fd(opened.fd);
    if (!fd) return 1;
    if (opened.replaced)
        LogWarning(nullptr, 0, "createHBAConfFile: replaced a file that another user owned or linked (%s)",
                   path.c_str());
    const vt::oss::File f(fdopen(fd.get(), mode));
    if (!f) return 1;
    fd.release();  // the stream owns it now
    fprintf(f.get(), append ? "\n%s          %s\n" : "%s          %s\n", kProviderKey, provider);
    fflush(f.get());
    return 0;
}

VTAPI_EXPORT uint32_t checkAndInstallHBAConfFile(void) {
    const char *provider = findlibvtsdm_adapter_provider();
    vt::oss::SharedOpenResult opened = vt::oss::OpenSharedFile(vt::MapSystemPath(kHbaConf), vt::oss::SharedMode::Read);
    vt::oss::Fd fd(opened.fd);
    if (fd) {
        const vt::oss::File f(fdopen(fd.get(), "r"));
        if (!f) return 1;
        fd.release();  // the stream owns it now
        if (haslibvtsdmEntry(f.get())) return 0;
        return createHBAConfFile("a", provider);
    }
    // Something that is not a regular file (a FIFO, a link) is left alone.
    if (opened.error != ENOENT) return 1;
    return createHBAConfFile("w", provider);
}

VTAPI_EXPORT uint32_t OSSPostInitializeDevices(void) { return 0; }
VTAPI_EXPORT uint32_t OSSUpdateCoreDevices(void) { return 0; }
VTAPI_EXPORT uint32_t OSSStopCorePollingLoop(void) { return 0; }

VTAPI_EXPORT uint32_t OSSInitialize(int32_t argc, char **argv) {
    g_hostName[0] = g_systemType[0] = g_osVersion[0] = '\0';
    g_bOperateInQuietMode = CoreGetQuietMode();
    LogDebug(kFile, __LINE__, "g_bOperateInQuietMode=%d", g_bOperateInQuietMode);
    snprintf(g_configurationPath, sizeof g_configurationPath, "%s", "/etc/");
    snprintf(g_agentDescription, sizeof g_agentDescription, "Remote Agent for %s", "Linux");
    snprintf(g_agentVersion, sizeof g_agentVersion, "%d.%02d.%04d%s", 1, 0, 1280, "-22");
    if (g_coreStartup != nullptr) g_coreStartup();

    bool loadHbaApi = true;
    for (int32_t i = 1; i < argc && argv; ++i) {
        LogDebug(kFile, __LINE__, "OSSInitialize: Cmd line option: %s\n", argv[i]);
        if (argv[i] && (strcasecmp(argv[i], "-z") == 0 || strcasecmp(argv[i], "/z") == 0)) {
            loadHbaApi = false;
            g_fabricScanningEnable = 0;
            LogDebug(kFile, __LINE__, "OSSInitialize: Not loading HBA library...");
        }
    }
    LogDebug(kFile, __LINE__, "OSSInitialize: fabricScanningEnable = %d\n", g_fabricScanningEnable);
    if (loadHbaApi) {
        if (HBA_FreeLibrary() == HBA_STATUS_OK) LogDebug(kFile, __LINE__, "HBAAPI library was sucessfully unloaded.");
        if (HBA_LoadLibrary() != HBA_STATUS_OK)
            LogDebug(kFile, __LINE__, "Unable to load the HBAAPI library, may already be loaded.");
    }
    snprintf(g_edifConfigurationPath, sizeof g_edifConfigurationPath, "%s", g_configurationPath);
    LogDebug(kFile, __LINE__, "Configuration Path (%s)...", g_configurationPath);
    LogDebug(kFile, __LINE__, "EDif Configuration Path (%s)...", g_edifConfigurationPath);

    snprintf(g_hostName, sizeof g_hostName, "%s", "<unknown>");
    snprintf(g_systemType, sizeof g_systemType, "Unknown %s OS", "Linux");
    snprintf(g_osVersion, sizeof g_osVersion, "%s", "Unknown Version");
    struct utsname u;
    if (uname(&u) == 0) {
        snprintf(g_hostName, sizeof g_hostName, "%s", u.nodename);
        snprintf(g_osVersion, sizeof g_osVersion, "%s", u.release);
        ReadDistribution();
        CopyText(g_systemType, sizeof g_systemType, (std::string(u.sysname) + " " + u.machine).c_str());
        LogDebug(kFile, __LINE__, "OSSInitialize: g_hostSystemType %s \n\n", g_systemType);
    }
    if (getuid() != 0) {
        fputs("Error: You must be root to use this program.\n", stderr);
        exit(1);
    }
    if (OSSInitCriticalSection() != 0) {
        fputs("*** UNABLE TO INITIALIZE...TERMINATING...\n\n", stderr);
        exit(1);
    }
    g_pid = getpid();
    return 0;
}

VTAPI_EXPORT uint32_t OSSGetHostInformation(char *hostName, char *systemType, char *osVersion, char *agentVersion) {
    if (!g_hostName[0]) return vt::kFailure;
    if (hostName) CopyText(hostName, 256, g_hostName);
    if (systemType) CopyText(systemType, 128, g_systemType);
    if (osVersion) CopyText(osVersion, 256, g_osVersion);
    if (agentVersion) CopyText(agentVersion, 64, g_agentVersion);
    return 0;
}

const char *OSSGetDistributionType(void) { return g_distribution; }

const char *OSSGetConfigurationPath(void) { return g_configurationPath; }

void OSSSetCoreStartup(OSSStartupStep step) { g_coreStartup = step; }

// Destroys the in-process mutex and unloads the HBA API library.
VTAPI_EXPORT uint32_t OSSUninitialize(void) {
    OSSDeleteCriticalSection();
    HBA_FreeLibrary();
    return 0;
}

}  // extern "C"
