// Reading a port's NVRAM into the HBA-parameters record, applying requested
// parameters with the cross-parameter rules, verifying what was written, and
// the NVRAM checksum.  Fields are reached by NVRAM variable identifier
// through libvtsdm, so the same code serves every chip generation.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "config/hbaparam_table.h"
#include "idtable.h"
#include "config/nvram_image_check.h"
#include "config/nvram_config.h"
#include "config/nvram_internal.h"
#include "sysroot.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {
const char kFile[] = __FILE__;
}  // namespace

namespace vt::config {
namespace {

bool g_noRebootRequired = true;

void PutField(VTAPI_HBAParams &record, const RecordField &f, uint32_t value) {
    auto *p = reinterpret_cast<uint8_t *>(&record) + f.offset;
    if (f.size == 1) *p = static_cast<uint8_t>(value);
    else if (f.size == 2) {
        const auto v = static_cast<uint16_t>(value);
        std::memcpy(p, &v, 2);
    } else if (f.size == 4) std::memcpy(p, &value, 4);
}

}  // namespace

uint32_t GetField(const VTAPI_HBAParams &record, const RecordField &f) {
    const auto *p = reinterpret_cast<const uint8_t *>(&record) + f.offset;
    if (f.size == 1) return *p;
    if (f.size == 2) {
        uint16_t v;
        std::memcpy(&v, p, 2);
        return v;
    }
    uint32_t v = 0;
    if (f.size == 4) std::memcpy(&v, p, 4);
    return v;
}

bool RebootRequired() { return !g_noRebootRequired; }

uint32_t NvramSizeOf(const SDMDevice *device) { return NvramSizeForChip(CoreGetISPType(device)); }

std::string ModelOf(const SDMDevice *device) {
    std::string model(device->DeviceNodeProperty.Model, strnlen(device->DeviceNodeProperty.Model, 32));
    while (!model.empty() && model.back() == ' ') model.pop_back();
    return model.empty() ? std::string("Unknown") : model;
}

std::string PortModel(const SDMDevice *device) {
    return "HBA " + std::to_string(device->Instance) + " (" + ModelOf(device) + ")";
}

std::string WwnText(const uint8_t *w) {
    char text[24];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5],
                  w[6], w[7]);
    return text;
}

uint32_t PortFlagsOf(const SDMDevice *device) {
    SDPortProperty property;
    if (SDGetHbaDevicePortProperty(device->DeviceHandle, &property) == SDERR_NONE) return property.StateFlags;
    return device->DevicePortProperty.StateFlags;
}

uint32_t NoAdapter() {
    SetConfigErrorText("No compatible HBA(s) found in current system !");
    return kNoAdapter;
}

uint32_t CheckWritable(const SDMDevice *device) {
    if (isVirtualPortHBA(device)) {
        const uint8_t *w = device->DevicePortProperty.WWPN;
        SetConfigErrorText("Ignored virtual HBA (%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x)!", w[0], w[1], w[2], w[3],
                           w[4], w[5], w[6], w[7]);
        return kVirtualPort;
    }
    const uint32_t flags = PortFlagsOf(device);
    if (flags & SD_PORTFLAG_MAINTENANCE) {
        SetConfigErrorText("Command not supported when adapter port in maintenance mode (HBA %d - %s)!",
                           static_cast<int>(device->Instance), ModelOf(device).c_str());
        return kNotPermitted;
    }
    if (flags & SD_PORTFLAG_LOCKDOWN) {
        SetConfigErrorText("Unable to apply new settings to HBA HBA %u (%s). Change is not permitted!",
                           device->Instance, ModelOf(device).c_str());
        return kNotPermitted;
    }
    return kOk;
}

uint32_t WriteRefusal(const SDMDevice *device, uint32_t sdStatus) {
    if (sdStatus == SDERR_LOCKDOWN ||
        (sdStatus == SDERR_NOT_SUPPORTED && (PortFlagsOf(device) & SD_PORTFLAG_MAINTENANCE))) {
        const uint32_t rc = CheckWritable(device);
        if (rc != kOk) return rc;
        SetConfigErrorText("Unable to apply new settings to HBA HBA %u (%s). Change is not permitted!",
                           device->Instance, ModelOf(device).c_str());
        return kNotPermitted;
    }
    return sdStatus;
}

uint32_t ReadNvramImage(const SDMDevice *device, uint32_t area, std::vector<uint8_t> &image) {
    image.assign(NvramSizeOf(device), 0);
    return SDGetNVRam(device->DeviceHandle, 0, area, image.data(), static_cast<uint32_t>(image.size()));
}

uint32_t Variable(const SDMDevice *device, const std::vector<uint8_t> &image, uint32_t id) {
    return SDGetVariableValue(device->DeviceHandle, image.data(), id);
}

void Progress(const char *format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    CoreLogMessage(VT_MSG_INFO, "%s", text);
    LogDebug(kFile, __LINE__, "%s", text);
}

bool EfiHost() { return access(MapSystemPath("/sys/firmware/efi").c_str(), F_OK) == 0; }

}  // namespace vt::config

using namespace vt::config;

namespace {

uint32_t NvramValueOfParam(const SDMDevice *d, const std::vector<uint8_t> &image, int row) {
    const ParamRow &p = kParamRows[row];
    const uint32_t v = Variable(d, image, static_cast<uint32_t>(p.variable));
    return p.field.inverted ? (v ? 0u : 1u) : v;
}

// Values that fit the adapter beyond the table's ranges.
bool FitsAdapter(int row, int32_t value, uint32_t chipType) {
    if (row == kFrameSizeRow && value == 2112) return chipType >= 8;  // the 2112-byte frame came with 4 Gb
    if (row == kExecutionThrottleRow) return chipType >= 8 || value <= 256;
    return true;
}

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t ComputeNVRAMDataChecksum(uint8_t *buffer, uint32_t size) {
    if (!buffer) return 0;
    if (size < 256) return 0x20000072u;
    uint32_t result = 0;
    if (size == 256) {
        uint8_t sum = 0;
        for (uint32_t i = 0; i < 255; ++i) sum = static_cast<uint8_t>(sum + buffer[i]);
        buffer[255] = static_cast<uint8_t>(-sum);
        result = 0u - uint32_t{sum};
    } else if (size == 512) {
        uint32_t sum = 0;
        for (uint32_t i = 0; i < 508; i += 4)
            sum += uint32_t{buffer[i]} | uint32_t{buffer[i + 1]} << 8 | uint32_t{buffer[i + 2]} << 16 |
                   uint32_t{buffer[i + 3]} << 24;
        result = 0u - sum;
        for (int i = 0; i < 4; ++i) buffer[508 + i] = static_cast<uint8_t>(result >> (8 * i));
    } else {
        return 0;
    }
    LogDebug(kFile, __LINE__, "ComputeNVRAMDataChecksum: Checksum = 0x%x", result);
    return result;
}

// 1 when a 256-byte image's bytes, or a 512-byte image's words, sum to 0.
VTAPI_EXPORT uint32_t CoreIsValidNvram(const uint8_t *buffer, uint32_t size) {
    return NvramChecksumOk(buffer, size) ? 1 : 0;
}

VTAPI_EXPORT void SetNoRebootRequired(uint32_t noReboot) { g_noRebootRequired = noReboot != 0; }

VTAPI_EXPORT uint32_t isAdapterSupported(const SDMDevice *adapter) {
    if (!adapter || isVirtualPortHBA(adapter)) return 0;
    const auto *board =
        vt::ids::FindBoard(adapter->DeviceChipProperty.SubVendorID, adapter->DeviceChipProperty.SubSystemID);
    return board && std::strcmp(board->supported, "FALSE") == 0 ? 0 : 1;
}

VTAPI_EXPORT uint32_t GetSupportedDataRateSetting(const SDMDevice *adapter, uint32_t code) {
    if (!adapter || code > 7) return 0;
    if (code < 4 && vt::ids::IsNoLowSpeedsBoard(adapter->DeviceChipProperty.SubSystemID)) {
        LogDebug(kFile, __LINE__, "GetSupportedDataRate: Override min speed");
        return 0;
    }
    const uint8_t mask = adapter->DevicePortProperty.SupportedSpeed;
    if (mask == 0) return 0;
    return (mask >> code) & 1u;
}

VTAPI_EXPORT uint32_t GetHBAParamsInfo(SDMDevice *adapter, VTAPI_HBAParams *record, uint8_t *buffer, uint32_t which) {
    if (!adapter) return NoAdapter();
    if (!record) return VTAPI_INVALID_ARGUMENT;
    if (isVirtualPortHBA(adapter)) return CheckWritable(adapter);
    if (isPallasHBA(adapter)) {
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return kNotSupported;
    }
    const uint32_t chip = CoreGetISPType(adapter);
    const uint32_t size = NvramSizeForChip(chip);
    std::vector<uint8_t> image(size);
    if (which == 0) {
        const uint32_t rc = SDGetNVRam(adapter->DeviceHandle, 0, 1, image.data(), size);
        if (rc != SDERR_NONE) {
            LogDebug(kFile, __LINE__, "GetHBAParamsInfo: Error=0x%x (%s)", rc, SDGetErrorString(rc));
            if (rc == SDERR_NOT_SUPPORTED)
                SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", adapter->Instance,
                                   ModelOf(adapter).c_str());
            else
                SetConfigErrorText("Unable to retrieve HBA parameters of HBA %u (%s)!", adapter->Instance,
                                   ModelOf(adapter).c_str());
            return rc;
        }
        std::memcpy(adapter->DeviceInitialNVRAM, image.data(), size);
    } else {
        std::memcpy(image.data(), adapter->DeviceCurrentNVRAM, size);
    }
    if (buffer) std::memcpy(buffer, image.data(), size);
    if (!CoreIsValidNvram(image.data(), size)) {
        LogDebug(kFile, __LINE__, "GetHBAParamsInfo: invalid NVRAM checksum on HBA %u", adapter->Instance);
        SetConfigErrorText("Unable to retrieve HBA parameters of HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return kRetrieveFailed;
    }

    *record = VTAPI_HBAParams{};
    for (const RecordRow &row : kRecordRows) {
        if (!ReadApplies(row.when, chip)) continue;
        uint32_t value = SDGetVariableValue(adapter->DeviceHandle, image.data(), row.variable);
        if (row.variable == 97 && value > 255) value = 0;  // link down timeout
        PutField(*record, row.field, value);
        LogDebug(kFile, __LINE__, "GetHBAParamsInfo: %s=%d", row.logName, static_cast<int>(value));
    }
    if (isFCoECNA(adapter) || isOrlaHBA(adapter)) record->DataRate = kDataRate16G;
    if (chip == 15) {
        LogDebug(kFile, __LINE__, "GetHBAParamsInfo: Overriding current Connection Option (%d) to 1",
                 static_cast<int>(record->ConnectionOption));
        record->ConnectionOption = 1;
    }
    for (uint32_t drive = 0; drive < BootDriveCount(chip); ++drive) {
        VTAPI_BootDrive &b = record->BootDrives[drive];
        for (uint32_t i = 0; i < 8; ++i)
            b.WWPN[i] = static_cast<uint8_t>(
                SDGetVariableValue(adapter->DeviceHandle, image.data(), kBootDrives[drive].portNameByte0 + i));
        b.LUN = static_cast<uint16_t>(SDGetVariableValue(adapter->DeviceHandle, image.data(), kBootDrives[drive].lun));
    }
    return kOk;
}

VTAPI_EXPORT uint32_t UpdateUserNVRAMConfig(SDMDevice *adapter, UserNVRamEntry *params, uint32_t validateOnly) {
    ClearConfigErrorText();
    if (!adapter) return NoAdapter();
    if (!params) return kNoAdapter;
    SetNoRebootRequired(1);
    uint32_t rc = CheckWritable(adapter);
    std::vector<uint8_t> image;
    if (rc == kOk) {
        rc = ReadNvramImage(adapter, 1, image);
        if (rc != SDERR_NONE) {
            LogDebug(kFile, __LINE__, "UpdateUserNVRAMConfig: SDGetNVRam failed: 0x%x (%s)", rc, SDGetErrorString(rc));
            SetConfigErrorText(rc == SDERR_NOT_SUPPORTED ? "Operation is not supported with current HBA %u (%s)!"
                                                         : "Unable to retrieve HBA parameters of HBA %u (%s)!",
                               adapter->Instance, ModelOf(adapter).c_str());
        } else if (!CoreIsValidNvram(image.data(), static_cast<uint32_t>(image.size()))) {
            SetConfigErrorText("Unable to retrieve HBA parameters of HBA %u (%s)!", adapter->Instance,
                               ModelOf(adapter).c_str());
            rc = kRetrieveFailed;
        }
    }
    const uint32_t chip = CoreGetISPType(adapter);
    const std::string model = ModelOf(adapter);
    const uint32_t hba = adapter->Instance;
    auto requested = [&](int row) { return params[row].value != -1; };
    auto effective = [&](int row) {
        return requested(row) ? static_cast<uint32_t>(params[row].value) : NvramValueOfParam(adapter, image, row);
    };

    for (int row = 0; rc == kOk && row < kParamCount; ++row) {
        if (!requested(row)) continue;
        const ParamRow &p = kParamRows[row];
        const int32_t value = params[row].value;
        LogDebug(kFile, __LINE__, "UpdateUserNVRAMConfig: User Param Name=%s Value=%d", p.name, value);
        if (p.support == Support::Only2Gb && !ChipHasParam(p.support, chip)) {
            SetConfigErrorText("Selected HBA parameter %s is only available with 2G HBAs!", p.name);
            rc = kNotSupported;
        } else if (p.support == Support::VirtualLane && !ChipHasParam(p.support, chip)) {
            SetConfigErrorText("Virtual lane feature is unsupported with HBA %u (%s)!", hba, model.c_str());
            rc = kNotSupported;
        } else if (p.support == Support::VirtualLane &&
                   !(adapter->DeviceDriverProperty.Capabilities & SD_DRVCAP_VIRTUAL_LANE)) {
            SetConfigErrorText("Virtual lane feature is unsupported with current driver!");
            rc = kNotSupported;
        } else if (p.variable == kNoVariable || !ChipHasParam(p.support, chip) ||
                   (p.readOnlyOnConverged && isFCoECNA(adapter))) {
            SetConfigErrorText("HBA parameter %s is not supported with HBA %u (%s)!", p.name, hba, model.c_str());
            rc = kNotSupported;
        } else if (ValidateParamValue(row, value) != 0) {
            rc = kBadValue;
        } else if ((row == kConnectionOptionRow || row == kDataRateRow) && effective(kConnectionOptionRow) == 0 &&
                   (effective(kDataRateRow) == kDataRate16G || effective(kDataRateRow) == kDataRate32G)) {
            SetConfigErrorText("Connection Option of Loop Only and Data Rate of %s is not supported!",
                               effective(kDataRateRow) == kDataRate16G ? "16Gbit/s" : "32Gbit/s");
            rc = kBadValue;
        } else if (row == kHardLoopIdRow && effective(kEnableHardLoopIdRow) == 0) {
            SetConfigErrorText(
                "Invalid input, hard loop ID setting is not allowed when hard loop ID option is disabled)!");
            rc = kBadValue;
        } else if (row == kInterruptDelayRow && effective(kOperationModeRow) == 0) {
            SetConfigErrorText("Unable to change Interrupt Delay setting to %d with current Operation Mode set to 0",
                               value);
            rc = kBadValue;
        } else if ((row == kDataRateRow && static_cast<uint32_t>(value) != kDataRateAuto &&
                    !GetSupportedDataRateSetting(adapter, static_cast<uint32_t>(value))) ||
                   !FitsAdapter(row, value, chip)) {
            SetConfigErrorText("Invalid HBA parameter setting for HBA %u (%s=%d)!", hba, p.name, value);
            rc = kBadValue;
        }
        if (rc != kOk) break;
        const uint32_t before = Variable(adapter, image, static_cast<uint32_t>(p.variable));
        const uint32_t stored = p.field.inverted ? (value ? 0u : 1u) : static_cast<uint32_t>(value);
        if (SDSetVariableValue(adapter->DeviceHandle, image.data(), static_cast<uint32_t>(p.variable), stored) !=
            SDERR_NONE) {
            SetConfigErrorText("Invalid HBA parameter setting for HBA %u (%s=%d)!", hba, p.name, value);
            rc = kBadValue;
            break;
        }
        if (p.needsReboot && before != stored) SetNoRebootRequired(0);
    }
    if (rc == kOk && !validateOnly) {
        rc = updateNVRam(adapter, image.data(), static_cast<uint32_t>(image.size()), 1, 1);
        if (rc != SDERR_NONE) {
            rc = WriteRefusal(adapter, rc);
            if (rc != kNotPermitted) SetConfigErrorText("Failed to update HBA parameters of selected HBA %u!", hba);
        }
    }
    LogDebug(kFile, __LINE__, "UpdateUserNVRAMConfig: Return %d", static_cast<int>(rc));
    return rc;
}

VTAPI_EXPORT uint32_t PostVerifyHBAParameter(SDMDevice *adapter) {
    if (!adapter) return kNoAdapter;
    return SDGetNVRam(adapter->DeviceHandle, 0, 1, adapter->DeviceCurrentNVRAM, NvramSizeOf(adapter));
}

VTAPI_EXPORT uint32_t updateNVRam(SDMDevice *adapter, uint8_t *image, uint32_t size, uint32_t area,
                                  uint32_t fixChecksum) {
    if (!adapter || !image) return kNoAdapter;
    if (fixChecksum) ComputeNVRAMDataChecksum(image, size);
    const uint32_t rc = SDUpdateNVRam(adapter->DeviceHandle, 0, area, image, size);
    LogDebug(kFile, __LINE__, "updateNVRam: HBA %u area %u size %u: 0x%x (%s)", adapter->Instance, area, size, rc,
             SDGetErrorString(rc));
    if (rc == SDERR_NONE && area == 1 && size <= sizeof adapter->DeviceInitialNVRAM)
        std::memcpy(adapter->DeviceInitialNVRAM, image, size);
    return rc;
}

}  // extern "C"
