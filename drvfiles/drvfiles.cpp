// The driver configuration file and the module option files on disk, and
// the failover data entry points over them.  Every system path goes through
// the sysroot mapping; rewrites go through a new file renamed into place.
#include "drvfiles.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "drvtext.h"
#include "oss/oss_file.h"
#include "sysroot.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

using vt::drv::Bindings;
using vt::drv::Wwn;

constexpr uint32_t kFailure = 0xFFFFFFFFu;
constexpr const char *kOptionFiles[] = {"/etc/conf.modules", "/etc/modprobe.conf.local", "/etc/modprobe.conf",
                                        "/etc/modules.conf"};
constexpr const char *kScratchFile = "/tmp/vttmp.txt";
// Option files are small; this only bounds what a damaged one costs.
constexpr size_t kOptionFileLimit = 64u << 20;

// A module name is a plain file-name word: it becomes part of "/etc/%s.conf".
bool ValidModule(const char *module) {
    if (module == nullptr || *module == '\0' || std::strlen(module) > 31) return false;
    return std::all_of(module, module + std::strlen(module), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    });
}

std::string DriverFilePath(const char *module) { return vt::MapSystemPath(std::string("/etc/") + module + ".conf"); }

// The first module option file that opens, or "".
std::string OptionFilePath() {
    for (const char *name : kOptionFiles) {
        const std::string path = vt::MapSystemPath(name);
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            ::close(fd);
            return path;
        }
    }
    return {};
}

uint32_t CopyOut(const std::string &text, char *out, uint32_t size) {
    if (text.size() >= size) return SDERR_BUFFER_TOO_SMALL;
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 0;
}

Wwn ToWwn(const uint8_t *bytes) {
    Wwn w{};
    std::memcpy(w.data(), bytes, w.size());
    return w;
}

Bindings FromC(const VtlapiAdapterBindings *adapter) {
    if (adapter->Targets == nullptr) return {};
    return Bindings(adapter->Targets, adapter->Targets + adapter->TargetCount);
}

uint32_t ToC(const Bindings &records, VtlapiAdapterBindings *adapter) {
    void *mem = nullptr;
    if (!records.empty()) {
        mem = std::realloc(adapter->Targets, records.size() * sizeof(VtlapiTargetBinding));
        if (mem == nullptr) return kFailure;
        std::memcpy(mem, records.data(), records.size() * sizeof(VtlapiTargetBinding));
    } else {
        std::free(adapter->Targets);
    }
    adapter->Targets = static_cast<VtlapiTargetBinding *>(mem);
    adapter->TargetCount = uint32_t(records.size());
    return 0;
}

// Reads the first option file that opens: its path and text.
uint32_t ReadOptionFile(std::string &path, std::string &text) {
    path = OptionFilePath();
    if (path.empty()) return VTAPI_FILE_NOT_FOUND;
    if (int rc = vt::oss::ReadWholeFile(path, text, kOptionFileLimit)) {
        LogDebug(__FILE__, __LINE__, "ReadOptionFile: cannot read %s (%s)", path.c_str(), std::strerror(rc));
        return kFailure;
    }
    return 0;
}

// The option line of the module, "" when there is none.
uint32_t CurrentOptionLine(const char *module, std::string &line) {
    std::string path, text;
    if (uint32_t rc = ReadOptionFile(path, text)) return rc;
    const auto lines = vt::drv::SplitLines(text);
    const auto at = vt::drv::FindOptionLine(lines, module);
    line = at ? std::string(vt::drv::LineBody(lines[*at])) : std::string();
    return 0;
}

// ------------------------------------------------- failover entry points

struct Port {
    std::string module;
    Wwn wwpn{};
    uint32_t instance = 0;
    bool lunMasks = false;  // the driver takes LUN masks
};

uint32_t OpenPort(uint32_t handle, Port &port) {
    SDDriverProperty driver;
    SDNodeProperty node;
    SDPortProperty prop;
    if (uint32_t rc = SDGetHbaDeviceDriverProperty(handle, &driver)) return rc;
    if (uint32_t rc = SDGetHbaDeviceNodeProperty(handle, &node)) return rc;
    if (uint32_t rc = SDGetHbaDevicePortProperty(handle, &prop)) return rc;
    if (node.Interface == SD_INTERFACE_VPORT) return SDERR_NOT_SUPPORTED;
    char module[sizeof driver.DriverName + 1] = {};
    std::memcpy(module, driver.DriverName, sizeof driver.DriverName);
    if (!ValidModule(module)) {
        LogDebug(__FILE__, __LINE__, "OpenPort: unusable driver module name [%s]", module);
        return SDERR_NOT_SUPPORTED;
    }
    port.module = module;
    port.wwpn = ToWwn(prop.WWPN);
    port.lunMasks = driver.LunsPerTarget != 0;
    port.instance = node.ParentInstance;
    for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
        if (d->DeviceHandle == handle) port.instance = d->Instance;
    return 0;
}

uint32_t LoadBindings(const Port &port, Bindings &records) {
    std::vector<char> buffer(VTLAPI_DRVFILE_MAX + 1);
    uint32_t size = uint32_t(buffer.size());
    const uint32_t rc = vtlapi_get_opt_from_file(port.module.c_str(), buffer.data(), &size);
    records.clear();
    if (rc == VTAPI_FILE_NOT_FOUND) return 0;
    if (rc != 0) return SDERR_IO_FAILED;
    records = vt::drv::ReadAdapter(std::string_view(buffer.data(), size), port.wwpn);
    return 0;
}

// Puts the extended-options hand-over on the module's option line, when
// there is an option file and the line does not carry it yet.
uint32_t HandOverExtendedOptions(const std::string &module) {
    std::string line;
    const uint32_t rc = CurrentOptionLine(module.c_str(), line);
    if (rc == VTAPI_FILE_NOT_FOUND) return 0;
    if (rc != 0) return rc;
    const std::string wanted = vt::drv::SetOptionParams(line, module, vt::drv::kExtOptsHandover);
    return wanted == line ? 0 : vtlapi_set_drv_param_optline(module.c_str(), wanted.c_str());
}

// Reads the port's records under the directory lock, lets `edit` change
// them, and saves the file.  `edit` returns 0 to save, else a status.
uint32_t ModifyBindings(const Port &port, const std::function<uint32_t(Bindings &)> &edit) {
    const std::string path = DriverFilePath(port.module.c_str());
    vt::oss::FileReplacement file;
    std::string text;
    int err = file.Begin(path);
    if (err == 0) err = file.ReadOld(text, VTLAPI_DRVFILE_MAX);
    if (err != 0) {
        LogDebug(__FILE__, __LINE__, "ModifyBindings: cannot rewrite %s (%s)", path.c_str(), std::strerror(err));
        return SDERR_IO_FAILED;
    }
    Bindings records = vt::drv::ReadAdapter(text, port.wwpn);
    if (uint32_t rc = edit(records)) return rc;
    std::sort(records.begin(), records.end(), [](const VtlapiTargetBinding &a, const VtlapiTargetBinding &b) {
        return a.Target.TargetNumber != b.Target.TargetNumber ? a.Target.TargetNumber < b.Target.TargetNumber
                                                              : a.Target.DeviceInstance < b.Target.DeviceInstance;
    });
    const std::string tokens =
        records.empty() ? std::string() : vt::drv::FormatAdapter(port.instance, port.wwpn, records, port.lunMasks);
    const std::string updated = vt::drv::ReplaceAdapter(text, port.wwpn, tokens);
    if (updated.size() > VTLAPI_DRVFILE_MAX) {
        LogDebug(__FILE__, __LINE__, "ModifyBindings: %s would hold %zu bytes, more than %u", path.c_str(),
                 updated.size(), VTLAPI_DRVFILE_MAX);
        return SDERR_BUFFER_TOO_SMALL;
    }
    if ((err = file.Write(updated)) != 0 || (err = file.Commit()) != 0) {
        LogDebug(__FILE__, __LINE__, "ModifyBindings: cannot write %s (%s)", path.c_str(), std::strerror(err));
        return SDERR_IO_FAILED;
    }
    return HandOverExtendedOptions(port.module) == 0 ? 0 : SDERR_IO_FAILED;
}

VtlapiTargetBinding *Find(Bindings &records, uint8_t target, uint8_t di) {
    for (auto &r : records)
        if (r.Target.TargetNumber == target && r.Target.DeviceInstance == di) return &r;
    return nullptr;
}

// The record of one bound target of the port.
uint32_t LoadBinding(uint32_t handle, uint8_t target, uint8_t di, VtlapiTargetBinding &record) {
    Port port;
    Bindings records;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    if (uint32_t rc = LoadBindings(port, records)) return rc;
    const VtlapiTargetBinding *r = Find(records, target, di);
    if (r == nullptr) return SDERR_NOT_FOUND;
    record = *r;
    return 0;
}

}  // namespace

extern "C" {

VTAPI_EXPORT void vtlapi_free_bindings(VtlapiAdapterBindings *adapter) {
    if (adapter == nullptr) return;
    std::free(adapter->Targets);
    adapter->Targets = nullptr;
    adapter->TargetCount = 0;
}

VTAPI_EXPORT uint32_t vtlapi_get_opt_from_file(const char *module, char *buffer, uint32_t *size) {
    if (!ValidModule(module) || buffer == nullptr || size == nullptr) return SDERR_INVALID_PARAMETER;
    const std::string path = DriverFilePath(module);
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? VTAPI_FILE_NOT_FOUND : kFailure;
    struct stat st {};
    uint32_t rc = 0;
    if (fstat(fd, &st) != 0) {
        rc = kFailure;
    } else if (uint64_t(st.st_size) > VTLAPI_DRVFILE_MAX) {
        LogDebug(__FILE__, __LINE__, "vtlapi_get_opt_from_file: %s has %lld bytes, more than %u; not read",
                 path.c_str(), static_cast<long long>(st.st_size), VTLAPI_DRVFILE_MAX);
        rc = kFailure;
    } else if (uint64_t(st.st_size) + 1 > *size) {
        *size = uint32_t(st.st_size) + 1;
        rc = SDERR_BUFFER_TOO_SMALL;
    } else {
        // One read for the whole file.
        const ssize_t n = ::read(fd, buffer, size_t(st.st_size));
        const size_t got = n < 0 ? 0 : size_t(n);
        buffer[got] = '\0';
        *size = uint32_t(got);
        if (got != size_t(st.st_size)) rc = SDERR_SHORT_READ;
    }
    ::close(fd);
    return rc;
}

VTAPI_EXPORT uint32_t vtlapi_get_dev_data_from_token(const char *token, VtlapiAdapterBindings *adapter) {
    if (token == nullptr || adapter == nullptr) return SDERR_INVALID_PARAMETER;
    Bindings records = FromC(adapter);
    Wwn port{};
    switch (vt::drv::ParseToken(token, records, port)) {
    case vt::drv::TokenKind::AdapterPort: std::memcpy(adapter->AdapterWWPN, port.data(), 8); return 0;
    case vt::drv::TokenKind::Target: return ToC(records, adapter);
    case vt::drv::TokenKind::Ignored: break;
    }
    return SDERR_NOT_FOUND;
}

VTAPI_EXPORT uint32_t vtlapi_get_data_from_text(const char *text, const uint8_t *adapterWWPN,
                                                VtlapiAdapterBindings *adapter) {
    if (text == nullptr || adapterWWPN == nullptr || adapter == nullptr) return SDERR_INVALID_PARAMETER;
    std::memcpy(adapter->AdapterWWPN, adapterWWPN, 8);
    return ToC(vt::drv::ReadAdapter(text, ToWwn(adapterWWPN)), adapter);
}

VTAPI_EXPORT uint32_t vtlapi_set_data_to_line(const VtlapiAdapterBindings *adapter, uint32_t flags, char *line,
                                              uint32_t *size) {
    if (adapter == nullptr || size == nullptr) return SDERR_INVALID_PARAMETER;
    const std::string text = vt::drv::FormatAdapter(adapter->AdapterInstance, ToWwn(adapter->AdapterWWPN),
                                                    FromC(adapter), (flags & VTLAPI_WRITE_LUN_MASKS) != 0);
    const uint32_t room = *size;
    *size = uint32_t(text.size() + 1);
    return line == nullptr ? SDERR_BUFFER_TOO_SMALL : CopyOut(text, line, room);
}

VTAPI_EXPORT uint32_t vtlapi_get_drv_param_optline(const char *module, char *line, uint32_t size) {
    if (!ValidModule(module) || line == nullptr) return SDERR_INVALID_PARAMETER;
    std::string current;
    if (uint32_t rc = CurrentOptionLine(module, current)) return rc;
    if (current.empty()) return SDERR_NOT_FOUND;
    return CopyOut(current, line, size);
}

VTAPI_EXPORT uint32_t vtlapi_set_drv_param_optline(const char *module, const char *line) {
    if (!ValidModule(module) || line == nullptr || std::strpbrk(line, "\r\n") != nullptr)
        return SDERR_INVALID_PARAMETER;
    const std::string path = OptionFilePath();
    if (path.empty()) {
        LogDebug(__FILE__, __LINE__, "vtlapi_set_drv_param_optline: no module option file");
        return VTAPI_FILE_NOT_FOUND;
    }
    vt::oss::FileReplacement file;
    std::string text;
    int err = file.Begin(path, true);
    if (err == 0) err = file.ReadOld(text, kOptionFileLimit);
    if (err != 0) {
        LogDebug(__FILE__, __LINE__, "vtlapi_set_drv_param_optline: cannot rewrite %s (%s)", path.c_str(),
                 std::strerror(err));
        return kFailure;
    }
    // The new text is staged in the scratch file, which is then copied over
    // the option file (through the new file beside it) and removed.
    const std::string scratchPath = vt::MapSystemPath(kScratchFile);
    vt::oss::ScratchFile scratch;
    if ((err = scratch.Create(scratchPath, vt::drv::ReplaceOptionLine(text, module, line))) != 0) {
        LogDebug(__FILE__, __LINE__, "vtlapi_set_drv_param_optline: cannot write %s (%s)", scratchPath.c_str(),
                 std::strerror(err));
        return kFailure;
    }
    if ((err = vt::oss::CopyFd(scratch.Fd(), file.Fd())) != 0 || (err = file.Commit()) != 0) {
        LogDebug(__FILE__, __LINE__, "vtlapi_set_drv_param_optline: cannot replace %s (%s)", path.c_str(),
                 std::strerror(err));
        return kFailure;
    }
    return 0;
}

VTAPI_EXPORT uint32_t vtlapi_get_drv_param(const char *module, const char *name, char *value, uint32_t size) {
    if (!ValidModule(module) || name == nullptr || value == nullptr) return SDERR_INVALID_PARAMETER;
    std::string line;
    if (uint32_t rc = CurrentOptionLine(module, line)) return rc;
    const auto v = vt::drv::GetOptionParam(line, module, name);
    return v ? CopyOut(*v, value, size) : SDERR_NOT_FOUND;
}

VTAPI_EXPORT uint32_t vtlapi_set_drv_param(const char *module, const char *name, const char *value) {
    if (!ValidModule(module) || name == nullptr || *name == '\0' || std::strpbrk(name, " \t=#\r\n") != nullptr ||
        (value != nullptr && std::strpbrk(value, " \t#\r\n") != nullptr))
        return SDERR_INVALID_PARAMETER;
    std::string line;
    if (uint32_t rc = CurrentOptionLine(module, line)) return rc;
    const std::string v = value ? value : "";
    const std::string updated = vt::drv::SetOptionParam(line, module, name, value ? &v : nullptr);
    return updated == line ? 0 : vtlapi_set_drv_param_optline(module, updated.c_str());
}

uint32_t vtlapi_get_module_name(uint32_t handle, char *module, uint32_t size) {
    if (module == nullptr) return SDERR_INVALID_PARAMETER;
    SDDriverProperty driver;
    if (uint32_t rc = SDGetHbaDeviceDriverProperty(handle, &driver)) return rc;
    return CopyOut(std::string(driver.DriverName, strnlen(driver.DriverName, sizeof driver.DriverName)), module, size);
}

VTAPI_EXPORT uint32_t ISDFoGetPersistentTargetEntryList(uint32_t handle, FoTargetData *entries, uint32_t *count) {
    if (count == nullptr) return SDERR_INVALID_PARAMETER;
    Port port;
    Bindings records;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    if (uint32_t rc = LoadBindings(port, records)) return rc;
    const uint32_t room = entries == nullptr ? 0 : *count;
    *count = uint32_t(records.size());
    if (records.size() > room) return SDERR_BUFFER_TOO_SMALL;
    for (size_t i = 0; i < records.size(); ++i) entries[i] = records[i].Target;
    return 0;
}

VTAPI_EXPORT uint32_t ISDFoGetTargetData(uint32_t handle, uint8_t target, uint8_t deviceInstance, FoTargetData *data) {
    if (data == nullptr) return SDERR_INVALID_PARAMETER;
    VtlapiTargetBinding r;
    if (uint32_t rc = LoadBinding(handle, target, deviceInstance, r)) return rc;
    *data = r.Target;
    return 0;
}

VTAPI_EXPORT uint32_t ISDFoSetTargetData(uint32_t handle, const FoTargetData *data) {
    if (data == nullptr || !IsWwpnValid(data->WWPN)) return SDERR_INVALID_PARAMETER;
    Port port;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    return ModifyBindings(port, [&](Bindings &records) {
        VtlapiTargetBinding *r = Find(records, data->TargetNumber, data->DeviceInstance);
        if (r == nullptr) {
            records.emplace_back();
            r = &records.back();
            std::memset(r, 0, sizeof *r);
        }
        r->Target = *data;
        r->Target.Reserved0 = r->Target.Reserved1 = 0;
        return 0u;
    });
}

VTAPI_EXPORT uint32_t ISDFoGetLunData(uint32_t handle, uint8_t target, uint8_t deviceInstance, FoLunData *data) {
    if (data == nullptr) return SDERR_INVALID_PARAMETER;
    VtlapiTargetBinding r;
    if (uint32_t rc = LoadBinding(handle, target, deviceInstance, r)) return rc;
    std::memset(data, 0, sizeof *data);
    data->TargetNumber = target;
    data->DeviceInstance = deviceInstance;
    std::memcpy(data->PreferredLuns, r.PreferredLuns, VTLAPI_LUN_MASK_BYTES);
    std::memcpy(data->DisabledLuns, r.DisabledLuns, VTLAPI_LUN_MASK_BYTES);
    return 0;
}

VTAPI_EXPORT uint32_t ISDFoSetLunData(uint32_t handle, const FoLunData *data) {
    if (data == nullptr) return SDERR_INVALID_PARAMETER;
    Port port;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    if (!port.lunMasks) return SDERR_NOT_SUPPORTED;
    return ModifyBindings(port, [&](Bindings &records) {
        VtlapiTargetBinding *r = Find(records, data->TargetNumber, data->DeviceInstance);
        if (r == nullptr) return SDERR_NOT_FOUND;
        std::memcpy(r->PreferredLuns, data->PreferredLuns, VTLAPI_LUN_MASK_BYTES);
        std::memcpy(r->DisabledLuns, data->DisabledLuns, VTLAPI_LUN_MASK_BYTES);
        return 0u;
    });
}

VTAPI_EXPORT uint32_t ISDFoDeletePersistentTargetEntry(uint32_t handle, uint8_t target, uint8_t deviceInstance) {
    Port port;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    return ModifyBindings(port, [&](Bindings &records) {
        const size_t before = records.size();
        std::erase_if(records, [&](const VtlapiTargetBinding &r) {
            return r.Target.TargetNumber == target && r.Target.DeviceInstance == deviceInstance;
        });
        return records.size() == before ? SDERR_NOT_FOUND : 0u;
    });
}

VTAPI_EXPORT uint32_t ISDFoDeletePersistentDeviceEntry(uint32_t handle, const uint8_t *targetWWPN) {
    if (targetWWPN == nullptr) return SDERR_INVALID_PARAMETER;
    Port port;
    if (uint32_t rc = OpenPort(handle, port)) return rc;
    return ModifyBindings(port, [&](Bindings &records) {
        const size_t before = records.size();
        std::erase_if(records,
                      [&](const VtlapiTargetBinding &r) { return std::memcmp(r.Target.WWPN, targetWWPN, 8) == 0; });
        return records.size() == before ? SDERR_NOT_FOUND : 0u;
    });
}

}  // extern "C"
