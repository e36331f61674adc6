// Adapter and port aliases in the alias files.
#include "cli/alias.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "cli/alias_prefs.h"
#include "oss/oss_file.h"
#include "sysroot.h"
#include "vtapi_cli.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

constexpr uint32_t kFailure = 0xFFFFFFFFu;
constexpr const char *kGlobalAliasFile = "/etc/vtapi/globalaliases.properties";
constexpr const char *kLocalAliasFile = "aliases.properties";
constexpr size_t kPathSize = sizeof g_AliasFileName;
constexpr const char *kXmlIndent = "        ";

uint32_t g_aliasPathVar = 0;
bool g_aliasPathsSet = false;

std::string Serial(const SDMDevice *d) {
    const char *s = GetAdapterSerialNo(d);
    return std::string(s, strnlen(s, 31));
}

std::string Model(const SDMDevice *d) {
    const auto &model = d->DeviceNodeProperty.Model;
    return std::string(model, strnlen(model, sizeof model));
}

// A file holds properties when one of its lines has a "=".
bool HoldsProperties(FILE *stream) {
    char line[512];
    bool found = false;
    std::rewind(stream);
    while (!found && std::fgets(line, sizeof line, stream) != nullptr) found = std::strchr(line, '=') != nullptr;
    std::rewind(stream);
    return found;
}

// The alias file to read, opened: the global one when it holds properties,
// else the local one.  Null when neither opens.
FILE *OpenAliasFile(const char *caller, std::string &name) {
    TarnSetAliasFilePaths();
    FILE *stream = nullptr;
    name = TarnGetGlobalAliasFileName();
    uint32_t rc = TarnOpenSharedFile(name.c_str(), &stream);
    if (rc == 0 && HoldsProperties(stream)) return stream;
    if (rc == 0) TarnCloseSharedFile(stream);
    else if (rc != TARN_FILE_MISSING)
        TarnLogMessage(VT_MSG_DEBUG, "%s: TarnOpenSharedFile failed. | pAliasFileName[%s].", caller, name.c_str());
    stream = nullptr;
    name = TarnGetAliasFileName();
    rc = TarnOpenSharedFile(name.c_str(), &stream);
    if (rc != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: TarnOpenSharedFile failed. | pAliasFileName[%s].", caller, name.c_str());
        return nullptr;
    }
    return stream;
}

std::string Directory(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

bool UsableAlias(const char *alias) {
    return std::strlen(alias) <= VTAPI_ALIAS_MAX && std::strpbrk(alias, "=\r\n") == nullptr;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t SetAliasPathVar(uint32_t enable) {
    g_aliasPathVar = enable ? 1 : 0;
    g_aliasPathsSet = false;  // set again on the next use
    return 0;
}

VTAPI_EXPORT uint32_t TarnSetAliasFilePaths(void) {
    if (g_aliasPathVar == 0 || g_aliasPathsSet) return 0;
    const std::string dir = TarnGetInstallationDir();
    const char *sep = !dir.empty() && dir.back() == '/' ? "" : "/";
    std::snprintf(g_AliasFileName, kPathSize, "%s%s%s", dir.c_str(), sep, kLocalAliasFile);
    std::snprintf(g_GlobalAliasFileName, kPathSize, "%s", vt::MapSystemPath(kGlobalAliasFile).c_str());
    g_aliasPathsSet = true;
    TarnLogMessage(VT_MSG_DEBUG, "TarnSetAliasFilePaths: global [%s] local [%s]", g_GlobalAliasFileName,
                   g_AliasFileName);
    return 0;
}

VTAPI_EXPORT uint32_t TarnOpenSharedFile(const char *path, FILE **stream) {
    if (path == nullptr || stream == nullptr) return kFailure;
    *stream = std::fopen(path, "re");
    if (*stream != nullptr) return 0;
    return errno == ENOENT ? TARN_FILE_MISSING : kFailure;
}

uint32_t TarnCloseSharedFile(FILE *stream) { return stream == nullptr || std::fclose(stream) == 0 ? 0 : kFailure; }

VTAPI_EXPORT uint32_t TarnPrefSetProperty(const char *path, const char *key, const char *value, uint32_t create) {
    if (path == nullptr || key == nullptr || value == nullptr) return kFailure;
    vt::oss::FileReplacement file;
    int err = file.Begin(path, create == 0);
    if (err == ENOENT && create != 0 && mkdir(Directory(path).c_str(), 0755) == 0) err = file.Begin(path);
    std::string old;
    if (err == 0) err = file.ReadOld(old);
    if (err == 0) err = vt::cli::WritePropertyFile(file.Fd(), old, key, value);
    if (err == 0) err = file.Commit();
    if (err != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "TarnPrefSetProperty: cannot write %s (%s)", path, std::strerror(err));
        return kFailure;
    }
    return 0;
}

uint32_t TarnCopyFilePreserving(const char *from, const char *to) {
    if (from == nullptr || to == nullptr) return kFailure;
    const int source = open(from, O_RDONLY | O_CLOEXEC);
    struct stat st {};
    vt::oss::FileReplacement file;
    int err = source < 0 ? errno : fstat(source, &st) != 0 ? errno : 0;
    if (err == 0) err = file.Begin(to);
    if (err == 0) err = vt::oss::CopyFd(source, file.Fd());
    if (err == 0) {
        file.CopyAttributesFrom(st);
        err = file.Commit();
    }
    if (source >= 0) close(source);
    if (err != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "TarnCopyFilePreserving: cannot copy %s to %s (%s)", from, to, std::strerror(err));
        return kFailure;
    }
    return 0;
}

uint32_t GetAliasKey(const SDMDevice *adapter, const uint8_t *wwnn, const uint8_t *wwpn, uint32_t type, char *key,
                     uint32_t size) {
    if (key == nullptr || size == 0 || (type == TARN_ALIAS_ADAPTER ? adapter == nullptr : !wwnn || !wwpn))
        return VTAPI_INVALID_ARGUMENT;
    if (type == TARN_ALIAS_ADAPTER) {
        std::snprintf(key, size, "host.%s.hba.alias", Serial(adapter).c_str());
    } else {
        const uint8_t *n = wwnn, *p = wwpn;
        std::snprintf(key, size,
                      "adapter.wwnn.%02X-%02X-%02X-%02X-%02X-%02X-%02X-%02X.wwpn.%02X-%02X-%02X-%02X-%02X-%02X-%02X-"
                      "%02X.name",
                      n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7], p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]);
    }
    return 0;
}

VTAPI_EXPORT int32_t GetAdapterAliasEx(const SDMDevice *adapter, const uint8_t *wwnn, const uint8_t *wwpn, char *out,
                                       uint32_t type) {
    static const char kName[] = "GetAdapterAlias";
    char key[160];
    if (out == nullptr || adapter == nullptr || GetAliasKey(adapter, wwnn, wwpn, type, key, sizeof key) != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: Invalid arguments.", kName);
        return 0;
    }
    out[0] = '\0';
    std::string file;
    FILE *stream = OpenAliasFile(kName, file);
    if (stream == nullptr) return 0;
    TarnLogMessage(VT_MSG_DEBUG, "%s: Using preference file[%s].", kName, file.c_str());
    TarnLogMessage(VT_MSG_DEBUG, "%s: Alias key[%s].", kName, key);
    const char *value = PrefGetProperty(stream, key);
    size_t length = value == nullptr ? 0 : std::strlen(value);
    if (length > VTAPI_ALIAS_MAX) length = 0;  // too long: no alias
    std::memcpy(out, value == nullptr ? "" : value, length);
    out[length] = '\0';
    TarnCloseSharedFile(stream);
    TarnLogMessage(VT_MSG_DEBUG, "%s: Alias len[%d].", kName, int(length));
    return int32_t(length);
}

VTAPI_EXPORT int32_t GetAdapterAlias(const SDMDevice *adapter, char *out, uint32_t type) {
    if (adapter == nullptr) return GetAdapterAliasEx(nullptr, nullptr, nullptr, out, type);
    return GetAdapterAliasEx(adapter, adapter->DeviceNodeProperty.WWNN, adapter->DevicePortProperty.WWPN, out, type);
}

VTAPI_EXPORT uint32_t SetAdapterAlias(const SDMDevice *adapter, const char *alias, uint32_t type) {
    char key[160];
    if (adapter == nullptr || alias == nullptr || !UsableAlias(alias) ||
        GetAliasKey(adapter, adapter->DeviceNodeProperty.WWNN, adapter->DevicePortProperty.WWPN, type, key,
                    sizeof key) != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "%s: Invalid arguments.", "SetAdapterAlias");
        return VTAPI_INVALID_ARGUMENT;
    }
    TarnSetAliasFilePaths();
    const std::string global = TarnGetGlobalAliasFileName(), local = TarnGetAliasFileName();
    const bool adapterAlias = type == TARN_ALIAS_ADAPTER;
    const unsigned instance = adapter->Instance;
    if (TarnPrefSetProperty(global.c_str(), key, alias, 1) != 0) {
        TarnLogMessage(VT_MSG_ERROR,
                       adapterAlias ? "Failed to update HBA Alias (HBA ID %d-%s)!"
                                    : "Failed to update HBA Port alias (HBA ID %d-%s)!",
                       instance, Model(adapter).c_str());
        return kFailure;
    }
    TarnLogMessage(VT_MSG_INFO,
                   adapterAlias ? "HBA Alias successfully updated (HBA ID %d-%s)"
                                : "HBA Port Alias successfully updated (HBA ID %d-%s)",
                   instance, Model(adapter).c_str());
    if (local == global) return 0;
    return TarnCopyFilePreserving(global.c_str(), local.c_str());
}

VTAPI_EXPORT uint32_t DeleteAdapterAlias(const SDMDevice *adapter, uint32_t type) {
    return SetAdapterAlias(adapter, " ", type);
}

VTAPI_EXPORT uint32_t DisplayAdapterAlias(const SDMDevice *adapter, uint32_t type) {
    if (adapter == nullptr) {
        PrintMessage(VT_MSG_ERROR, "Adapter not found!\n");
        return TARN_STATUS_NO_ADAPTER;
    }
    char alias[VTAPI_ALIAS_SIZE];
    const int32_t length = GetAdapterAlias(adapter, alias, type);
    // A single blank is how an alias is cleared.
    const bool none = length == 0 || std::strcmp(alias, " ") == 0;
    const bool adapterAlias = type == TARN_ALIAS_ADAPTER;
    if (bXmlOutPut) {
        XML_PrintElement(kXmlIndent, adapterAlias ? "HBAAlias" : "PortAlias", none ? "" : alias);
        return 0;
    }
    const uint8_t *w = adapterAlias ? adapter->DeviceNodeProperty.WWNN : adapter->DevicePortProperty.WWPN;
    char wwn[24];
    std::snprintf(wwn, sizeof wwn, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5], w[6],
                  w[7]);
    std::string text;
    if (none)
        text = std::string("HBA ") + wwn + (adapterAlias ? " does not have an alias." : " does not have a port alias.");
    else text = std::string(adapterAlias ? "HBA alias " : "HBA port alias ") + wwn + " is " + alias;
    PrintMessage(VT_MSG_PLAIN, (text + "\n").c_str());
    return 0;
}

VTAPI_EXPORT SDMDevice *TarnFindDeviceByAlias(const char *alias) {
    if (alias == nullptr || *alias == '\0' || std::strcmp(alias, " ") == 0) return nullptr;
    SDMDevice *byAdapter = nullptr;
    char value[VTAPI_ALIAS_SIZE];
    for (SDMDevice *d = GetMyDeviceList()->First; d; d = d->next) {
        if (GetAdapterAlias(d, value, 1) > 0 && std::strcmp(value, alias) == 0) return d;
        if (!byAdapter && GetAdapterAlias(d, value, TARN_ALIAS_ADAPTER) > 0 && std::strcmp(value, alias) == 0)
            byAdapter = d;
    }
    return byAdapter;
}

}  // extern "C"
