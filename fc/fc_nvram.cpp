// FC_ functions of the NVRAM configuration calls: HBA parameters, templates
// and NVRAM files, boot devices.  Each finds the adapter entry whose WWNN and
// WWPN are those of the caller's port record and hands the port to its
// worker in config/.  A record that matches no entry gives 0, deliberately
// (the front end's tree may be older than the device lists).
#include <cstring>

#include "config/hbaparam_table.h"
#include "config/nvram_config.h"
#include "config/nvram_internal.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

using namespace vt::config;

namespace {

const char kFile[] = __FILE__;

// The listed port of the caller's record; 12 when the record or the adapter
// list is missing, success with a null port when no entry matches.
uint32_t FindPortDevice(const ProtocolEntry *port, SDMDevice **device, const char *caller) {
    *device = nullptr;
    if (!port || !GetAdapterList()) return VTAPI_DEVICE_NUMBER_NOT_FOUND;
    if (AdapterNode *node = FindAdapterInAdapterListByWWN(port->WWNN, port->WWPN))
        *device = FindDeviceInDeviceListByAdapterEntry(node);
    if (!*device) LogDebug(kFile, __LINE__, "%s: no adapter entry with WWPN %s", caller, WwnText(port->WWPN).c_str());
    return VTAPI_SUCCESS;
}

// A configuration worker's result as the API returns it: not permitted
// (maintenance mode, lockdown) and virtual ports have their API statuses.
uint32_t ApiStatus(uint32_t worker) {
    if (worker == kNotPermitted) return VTAPI_MAINTENANCE_MODE;
    if (worker == kVirtualPort) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    return worker;
}

// Default supported-speed mask of a chip 25 or 27 port whose driver reports
// none (bit n: data-rate code n); a later match overrides an earlier one.
uint32_t DefaultSpeedMask(const SDMDevice *d) {
    uint32_t mask = 56;
    if (isWren32GHBA(d) || isSkiff32GHBA(d)) mask = 112;
    if (isMezz32GHBA(d)) mask = 64;
    if (isMezz16GHBA(d)) mask = 32;
    return mask;
}

// Runs `work` on the port of the record; 12 / 0 as FindPortDevice says.
template <typename Work>
uint32_t OnPort(const ProtocolEntry *port, const char *caller, Work work) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPortDevice(port, &d, caller)) return rc;
    if (!d) return VTAPI_SUCCESS;
    const uint32_t rc = work(d);
    if (rc != VTAPI_SUCCESS) LogDebug(kFile, __LINE__, "%s: %u (%s)", caller, rc, ConfigErrorText());
    return ApiStatus(rc);
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t FC_GetHBAParamsInfo(const ProtocolEntry *port, VTAPI_HBAParams *params) {
    if (!params) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPortDevice(port, &d, "FC_GetHBAParamsInfo")) return rc;
    if (!d) return VTAPI_SUCCESS;
    if (GetHBAParamsInfo(d, params, nullptr, 0) != kOk) return VTAPI_FILE_CORRUPTED;
    const uint32_t isp = CoreGetISPType(d);
    if ((isp == 25 || isp == 27) && !isDriverWithSupportedSpeed(d)) params->DataRate = DefaultSpeedMask(d);
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_UpdateHBAParameters(const ProtocolEntry *port, const VTAPI_HBAParams *params) {
    if (!params) return VTAPI_INVALID_ARGUMENT;
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPortDevice(port, &d, "FC_UpdateHBAParameters")) return rc;
    if (!d) return VTAPI_SUCCESS;
    // The request: every user parameter whose field differs from the port's.
    VTAPI_HBAParams current;
    if (FC_GetHBAParamsInfo(port, &current) != VTAPI_SUCCESS) return VTAPI_FILE_CORRUPTED;
    UserNVRamEntry request[kParamCount];
    bool any = false;
    for (int i = 0; i < kParamCount; ++i) {
        request[i] = User_NVRam_Entry[i];
        request[i].value = -1;
        const RecordField &f = kParamRows[i].field;
        if (f.size == 0) continue;
        const uint32_t wanted = GetField(*params, f);
        if (wanted == GetField(current, f)) continue;
        request[i].value = f.inverted ? (wanted ? 0 : 1) : static_cast<int32_t>(wanted);
        any = true;
    }
    if (!any) return VTAPI_SUCCESS;
    const uint32_t rc = UpdateUserNVRAMConfig(d, request, 0);
    if (rc == kNotPermitted) return VTAPI_MAINTENANCE_MODE;
    if (rc != kOk) {
        LogDebug(kFile, __LINE__, "FC_UpdateHBAParameters: %u (%s)", rc, ConfigErrorText());
        return VTAPI_FILE_CORRUPTED;
    }
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_PostVerifyHBAParameter(const ProtocolEntry *port) {
    SDMDevice *d = nullptr;
    if (uint32_t rc = FindPortDevice(port, &d, "FC_PostVerifyHBAParameter")) return rc;
    if (!d) return VTAPI_SUCCESS;
    if (PostVerifyHBAParameter(d) != SDERR_NONE) return VTAPI_FILE_CORRUPTED;
    // What the port holds now against what was last written (or read).
    if (std::memcmp(d->DeviceInitialNVRAM, d->DeviceCurrentNVRAM, NvramSizeOf(d)) != 0) {
        LogDebug(kFile, __LINE__, "FC_PostVerifyHBAParameter: NVRAM of HBA %u differs from the image written",
                 d->Instance);
        return VTAPI_FILE_CORRUPTED;
    }
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t FC_LoadHBAParametersFromTemplateFile(const ProtocolEntry *port, uint32_t oem) {
    return OnPort(port, "FC_LoadHBAParametersFromTemplateFile",
                  [&](SDMDevice *d) { return LoadHBAParametersFromTemplateFile(d, oem); });
}

VTAPI_EXPORT uint32_t FC_RestoreDefaultNVRAM(const ProtocolEntry *port) {
    return OnPort(port, "FC_RestoreDefaultNVRAM", [](SDMDevice *d) { return RestoreDefaultNVRAM(d); });
}

VTAPI_EXPORT uint32_t FC_ResetToDefaultSettings(const ProtocolEntry *port) {
    return OnPort(port, "FC_ResetToDefaultSettings", [](SDMDevice *d) { return ResetToDefaultSettings(d); });
}

VTAPI_EXPORT uint32_t FC_SaveSingleAdapterNVRAMToFile(const ProtocolEntry *port, const char *fileName) {
    if (!fileName) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_SaveSingleAdapterNVRAMToFile",
                  [&](SDMDevice *d) { return SaveSingleAdapterNVRAMToBinaryFile(d, fileName); });
}

VTAPI_EXPORT uint32_t FC_UpdateAdapterNVRAMFromFile(const ProtocolEntry *port, const char *fileName) {
    if (!fileName) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_UpdateAdapterNVRAMFromFile",
                  [&](SDMDevice *d) { return UpdateAdapterNVRAMFromFile(d, fileName); });
}

VTAPI_EXPORT uint32_t FC_DoGlobalNVRAMUpdateAll(const char *fileName) {
    if (!fileName) return VTAPI_INVALID_ARGUMENT;
    if (!GetAdapterList()) return VTAPI_DEVICE_NUMBER_NOT_FOUND;
    return ApiStatus(DoGlobalNVRAMUpdateAll(fileName));
}

VTAPI_EXPORT uint32_t FC_GetBootDeviceInfo(const ProtocolEntry *port, VTAPI_BootDeviceInfo *info, uint32_t which) {
    if (!info) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_GetBootDeviceInfo", [&](SDMDevice *d) { return GetBootDeviceInfo(d, info, which); });
}

VTAPI_EXPORT uint32_t FC_SetBootDeviceInfo(const ProtocolEntry *port, const VTAPI_BootDeviceInfo *info) {
    if (!info) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_SetBootDeviceInfo", [&](SDMDevice *d) { return SetBootDeviceInfo(d, info); });
}

VTAPI_EXPORT uint32_t FC_GetNVMeBootDeviceEntries(const ProtocolEntry *port, VTAPI_NVMeBootDeviceEntries *entries) {
    if (!entries) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_GetNVMeBootDeviceEntries",
                  [&](SDMDevice *d) { return GetNVMeBootDeviceEntries(d, entries); });
}

VTAPI_EXPORT uint32_t FC_SetNVMeBootDeviceEntries(const ProtocolEntry *port,
                                                  const VTAPI_NVMeBootDeviceEntries *entries) {
    if (!entries) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_SetNVMeBootDeviceEntries",
                  [&](SDMDevice *d) { return SetNVMeBootDeviceEntries(d, entries); });
}

VTAPI_EXPORT uint32_t FC_IsBootFromSANConfigured(const ProtocolEntry *port, uint32_t *configured) {
    if (!configured) return VTAPI_INVALID_ARGUMENT;
    *configured = 0;
    return OnPort(port, "FC_IsBootFromSANConfigured",
                  [&](SDMDevice *d) { return IsBootFromSANConfigured(d, configured); });
}

VTAPI_EXPORT uint32_t FC_GetBfsConfigMode(const ProtocolEntry *port, uint32_t *mode) {
    if (!mode) return VTAPI_INVALID_ARGUMENT;
    return OnPort(port, "FC_GetBfsConfigMode", [&](SDMDevice *) {
        *mode = GetBfsConfigMode();
        return kOk;
    });
}

VTAPI_EXPORT uint32_t FC_SetBfsConfigMode(const ProtocolEntry *port, uint32_t mode) {
    return OnPort(port, "FC_SetBfsConfigMode", [&](SDMDevice *) {
        SetBfsConfigMode(mode);
        return kOk;
    });
}

}  // extern "C"
