// What the HBA-parameter (-c) and boot-device (-e) displays show, as rows a
// report walks once and writes to its sink (text, XML, JSON), and the text
// views of the boot settings.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "config/hbaparam_table.h"
#include "config/nvram_config.h"
#include "config/nvram_internal.h"
#include "core/core.h"

using namespace vt::config;

namespace {

// Display labels of the 39 rows ("" for the rows never shown).
// clang-format off
constexpr const char *kLabels[kParamCount] = {
    "Data Rate", "Connection Options", "Enable FC Tape Support", "Maximum LUNs per Target", "Enable Hard Loop ID",
    "Hard Loop ID", "Frame Size", "Enable LIP Full Login", "Enable LIP Reset", "Enable Target Reset",
    "Enable Extended Logging", "Loop Reset Delay (seconds)", "Login Retry Count", "Link Down Timeout (seconds)", "",
    "Port Down Retry Count", "Execution Throttle", "", "Operation Mode", "Interrupt Delay Timer (100 microseconds)",
    "Enable Host HBA BIOS", "Enable Receive Out Of Order Frame", "Descending Loop ID Search", "Enable LR",
    "Enable Selectable Boot", "Enable Fabric Assigned WWN", "Enable Fabric Assigned Boot LUN", "Enable D-Port",
    "Enable Distance Support", "Enable Minimum Speed", "Prefer FCP", "Enable USCM", "Enable Selective Login",
    "Enable Selective LUN Login", "Force World Login", "FC-NVMe Enable", "Port Disable", "Fabric Priority",
    "Virtual Lane",
};
// clang-format on

const char *DataRateText(uint32_t code) {
    static const char *kText[] = {"1 Gb/s", "2 Gb/s", "Auto", "4 Gb/s", "8 Gb/s", "16 Gb/s", "32 Gb/s", "64 Gb/s"};
    return code < 8 ? kText[code] : "Unknown";
}

const char *ConnectionOptionText(uint32_t code) {
    static const char *kText[] = {"Loop Only", "Point-to-Point Only", "Loop Preferred, Otherwise Point-to-Point",
                                  "Point-to-Point, Otherwise Loop"};
    return code < 4 ? kText[code] : "Unknown";
}

const char *OperationModeText(uint32_t code) {
    switch (code) {
    case 0: return "Interrupt for every I/O completion";
    case 5: return "Interrupt when Interrupt Delay Timer expires";
    case 6: return "Interrupt when Interrupt Delay Timer expires or no active I/O";
    default: return "Unknown";
    }
}

const char *Switch(uint32_t v) { return v ? "Enabled" : "Disabled"; }

std::string Coded(uint32_t code, const char *meaning) { return std::to_string(code) + " - " + meaning; }

const char *DriveName(uint32_t drive) {
    static const char *kNames[] = {"Primary", "Alternate 1", "Alternate 2", "Alternate 3",
                                   "Drive 4", "Drive 5",     "Drive 6",     "Drive 7"};
    return kNames[drive & 7];
}

}  // namespace

namespace vt::config {

std::vector<ReportRow> HBAParamsReport(const SDMDevice *device, const VTAPI_HBAParams &record) {
    std::vector<ReportRow> rows;
    const uint32_t chip = CoreGetISPType(device);
    for (int i = 0; i < kParamCount; ++i) {
        const ParamRow &p = kParamRows[i];
        if (p.field.size == 0 || !ChipHasParam(p.support, chip)) continue;
        uint32_t value = GetField(record, p.field);
        if (p.field.inverted) value = value ? 0 : 1;
        std::string text;
        if (i == kDataRateRow) text = Coded(value, DataRateText(value));
        else if (i == kConnectionOptionRow) text = Coded(value, ConnectionOptionText(value));
        else if (i == kOperationModeRow) text = Coded(value, OperationModeText(value));
        else if (p.rule == ValueRule::Range && p.low == 0 && p.high == 1) text = Switch(value);
        else if (p.rule == ValueRule::AlwaysRefused) text = Switch(value);
        else text = std::to_string(value);
        rows.push_back({kLabels[i], p.name, text});
    }
    return rows;
}

std::vector<ReportRow> BootDeviceReport(const SDMDevice *device, const VTAPI_BootDeviceInfo &info) {
    std::vector<ReportRow> rows = {
        {"Adapter BIOS", "EnableBIOS", Switch(info.EnableBIOS)},
        {"Selectable Boot", "EnableSelectableBoot", Switch(info.EnableSelectableBoot)},
        {"Selective Login", "SelectiveLogin", Switch(info.SelectiveLogin)},
        {"Selective LUN Login", "SelectiveLun", Switch(info.SelectiveLun)},
        {"Alternate Boot Device", "EnableAlternateBoot", Switch(info.EnableAlternateBoot)},
        {"Boot Order List", "EnableBootOrderList", Switch(info.EnableBootOrderList)},
    };
    const uint32_t chip = CoreGetISPType(device);
    if (NvramSizeForChip(chip) == 512)
        rows.push_back({"Force World Login", "ForceWorldLogin", Switch(info.ForceWorldLogin)});
    if (ChipHasParam(Support::Chip24Up, chip)) {
        rows.push_back({"Fabric Assigned Boot LUN", "FabricAssignedBootLun", Switch(info.FabricAssignedBootLun)});
        rows.push_back({"FC-NVMe Enable", "NVMeEnable", Switch(info.NVMeEnable)});
    }
    for (uint32_t drive = 0; drive < info.DriveCount && drive < 8; ++drive) {
        const std::string n = std::to_string(drive);
        rows.push_back({std::string("Boot Drive ") + n + " (" + DriveName(drive) + ") WWPN", "BootDrive" + n + "WWPN",
                        WwnText(info.Drives[drive].WWPN)});
        rows.push_back({std::string("Boot Drive ") + n + " (" + DriveName(drive) + ") LUN", "BootDrive" + n + "LUN",
                        std::to_string(info.Drives[drive].LUN)});
    }
    return rows;
}

std::vector<std::string> BootSettingsLines(const VTAPI_BootDeviceInfo &info) {
    char line[128];
    std::vector<std::string> lines;
    if (GetBfsConfigMode() == 1) {
        std::snprintf(line, sizeof line, "Adapter BIOS            : %s", Switch(info.EnableBIOS));
        lines.emplace_back(line);
        std::snprintf(line, sizeof line, "Selectable Boot         : %s", Switch(info.EnableSelectableBoot));
        lines.emplace_back(line);
    } else {
        std::snprintf(line, sizeof line, "Selective Login         : %s", Switch(info.SelectiveLogin));
        lines.emplace_back(line);
    }
    return lines;
}

uint32_t BootDriveLines(const SDMDevice *device, const VTAPI_BootDeviceInfo &info, std::vector<std::string> &lines) {
    lines.clear();
    AdapterEntry versions{};
    if (GetHBAOptionROMVersions(device, &versions) != 0 || versions.FlashBIOSVersion[0] == '\0') {
        SetConfigErrorText("Command aborted. Current HBA %u (%s) does not have ROM BIOS", device->Instance,
                           ModelOf(device).c_str());
        return kNotPermitted;
    }
    char line[128];
    std::snprintf(line, sizeof line, "Drive %s WWPN                 LUN", "#");
    lines.emplace_back(line);
    for (uint32_t drive = 0; drive < info.DriveCount && drive < 8; ++drive) {
        std::snprintf(line, sizeof line, "%-7u %s  %u", drive, WwnText(info.Drives[drive].WWPN).c_str(),
                      info.Drives[drive].LUN);
        lines.emplace_back(line);
    }
    return kOk;
}

}  // namespace vt::config
