// The boot-device command -e: shows the boot switches and FCP boot drives
// of the selected ports, or sets one boot drive of one port.
#include <strings.h>

#include <cstring>
#include <string>
#include <vector>

#include "cli/cmd_hbaparams.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "config/nvram_config.h"
#include "core/core.h"

namespace vt::cli {

namespace {

constexpr int kBootLabelWidth = 24;

bool IsDriveRow(const config::ReportRow &row) { return row.element.rfind("BootDrive", 0) == 0; }

// Sets drive `drive` (0 when null) of the one selected port to target and LUN.
Result SetBootDrive(const TarnCommand &cmd, const SDMDevice *port) {
    auto *d = const_cast<SDMDevice *>(port);
    VTAPI_BootDeviceInfo info{};
    config::ClearConfigErrorText();
    uint32_t rc = GetBootDeviceInfo(d, &info, 1);
    if (rc == 0)
        rc = ParseBootDeviceParameters(d, cmd.SubArgs[0], cmd.SubArgs[1],
                                       cmd.SubArgCount > 2 ? cmd.SubArgs[2] : nullptr, &info);
    if (rc == 0) rc = SetBootDeviceInfo(d, &info);
    if (rc != 0) return ConfigFailure(rc);
    return {};
}

// A target of the port by its number (as tarncli -t shows it) or WWPN
// ("21:00:00:24:ff:00:00:01" or 16 hex digits); the WWPN of one the port
// has not discovered is taken as given (a boot target may be offline).
bool ResolveTarget(const SDMDevice &port, const std::string &text, uint8_t wwpn[8], const TargetEntry *&found) {
    found = nullptr;
    const bool number = !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos;
    if (number) {
        const unsigned long id = std::stoul(text);
        for (const TargetEntry *t = port.Targets.First; t && !found; t = t->next)
            if (t->DiscTargetProperty.TargetId == id) found = t;
        if (found) std::memcpy(wwpn, found->WWPN, 8);
        return found != nullptr;
    }
    std::string hex;
    for (char c : text)
        if (c != ':') hex += c;
    if (hex.size() != 16 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
    for (int i = 0; i < 8; ++i) wwpn[i] = uint8_t(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
    for (const TargetEntry *t = port.Targets.First; t && !found; t = t->next)
        if (std::memcmp(t->WWPN, wwpn, 8) == 0) found = t;
    return true;
}

// "nvme TARGET NAMESPACE" adds an FC-NVMe boot drive to the one selected
// port (the library keeps the drives in use first, in the order they were
// added, so a drive already there keeps its place); "nvme DRIVE clear"
// removes drive DRIVE (0-7) and the later ones move up.  A port whose block
// was never written (or is damaged) starts from an empty one.
Result SetNVMeBootDrive(const TarnCommand &cmd, const SDMDevice *port) {
    auto *d = const_cast<SDMDevice *>(port);
    const bool clear = strcasecmp(cmd.SubArgs[2], "clear") == 0;
    if (cmd.SubArgCount != 3)
        return {TARN_STATUS_UNKNOWN_PARAM, std::string("Error: Option ") + cmd.Option +
                                               " nvme needs a target and a namespace ID, or a drive and clear!"};

    config::ClearConfigErrorText();
    VTAPI_NVMeBootDeviceEntries block{};
    uint32_t rc = GetNVMeBootDeviceEntries(d, &block);
    if (rc == config::kInvalidNvmeBlock) {
        block = VTAPI_NVMeBootDeviceEntries{};
        rc = 0;
    }
    if (rc != 0) return ConfigFailure(rc);
    if (clear) {
        const std::string drive = cmd.SubArgs[1];
        if (drive.size() != 1 || drive[0] < '0' || drive[0] > '7' ||
            (block.Drives[drive[0] - '0'].Flags & VTAPI_NVME_DRIVE_VALID) == 0)
            return {TARN_STATUS_BAD_VALUE,
                    "No FC-NVMe boot drive " + drive + " on HBA " + std::to_string(port->Instance) + "!"};
        block.Drives[drive[0] - '0'] = VTAPI_NVMeBootDrive{};
    } else {
        VTAPI_NVMeBootDrive entry{};
        const TargetEntry *target = nullptr;
        if (!ResolveTarget(*port, cmd.SubArgs[1], entry.TargetWWPN, target))
            return {TARN_STATUS_BAD_VALUE, std::string("Invalid target (") + cmd.SubArgs[1] + ") for HBA " +
                                               std::to_string(port->Instance) + "!"};
        const std::string nsid = cmd.SubArgs[2];
        if (nsid.empty() || nsid.size() > 10 || nsid.find_first_not_of("0123456789") != std::string::npos ||
            std::stoull(nsid) == 0 || std::stoull(nsid) > 0xFFFFFFFFull)
            return {TARN_STATUS_BAD_VALUE, "Invalid namespace ID (" + nsid + ")!"};
        entry.NamespaceID = uint32_t(std::stoull(nsid));
        entry.Flags = VTAPI_NVME_DRIVE_VALID;
        if (target) std::memcpy(entry.TargetWWNN, target->WWNN, 8);
        if (AddNVMeBootDriveMapping(&block, &entry) < 0)
            return {TARN_STATUS_BAD_VALUE,
                    "All 8 FC-NVMe boot drives of HBA " + std::to_string(port->Instance) + " are in use!"};
    }
    rc = SetNVMeBootDeviceEntries(d, &block);
    if (rc != 0) return ConfigFailure(rc);
    return {};
}

// The FC-NVMe boot drives in use, on ports whose adapter keeps a valid
// FC-NVMe boot block (others show nothing of it).
void NVMeBootDrives(Sink &sink, const SDMDevice &d) {
    static const Table kNvme = {
        {"drive", "NVMe Drive", 10, 0, true},
        {"target_wwpn", "Target WWPN", 23, 2},
        {"namespace_id", "Namespace", 9, 2, true},
        {"nqn", "Subsystem NQN", 0, 2},
    };
    VTAPI_NVMeBootDeviceEntries block{};
    if (GetNVMeBootDeviceEntries(const_cast<SDMDevice *>(&d), &block) != 0) return;
    sink.Blank();
    sink.Columns(kNvme);
    sink.Rule('-');
    uint32_t used = 0;
    {
        ListScope drives(sink, "nvme_boot_drives");
        for (uint32_t n = 0; n < 8; ++n) {
            const VTAPI_NVMeBootDrive &drive = block.Drives[n];
            if ((drive.Flags & VTAPI_NVME_DRIVE_VALID) == 0) continue;
            ++used;
            ItemScope item(sink);
            sink.Row(kNvme, {Value::Number(n), Value::Text(WwnText(drive.TargetWWPN)), Value::Number(drive.NamespaceID),
                             Value::Text(FieldText(drive.NQN))});
        }
    }
    if (used == 0) sink.Note("  (no FC-NVMe boot drives)");
    sink.Xml([&d, &block] { XML_EmitNVMeBootDevices(&d, &block); });
}

}  // namespace

Result BootDevicesReport(const TarnCommand &cmd, Sink &sink) {
    const bool nvme = cmd.SubArgCount >= 1 && strcasecmp(cmd.SubArgs[0], "nvme") == 0;
    if (cmd.SubArgCount == 1 || (nvme && cmd.SubArgCount == 2))
        return {TARN_STATUS_UNKNOWN_PARAM, std::string("Error: Option ") + cmd.Option +
                                               (nvme ? " nvme needs a target and a namespace ID, or a drive and clear!"
                                                     : " needs a LUN after the target!")};
    const DocumentQuiet quiet(cmd);
    Result result;
    const auto ports = NvramPorts(cmd, result);
    if (result.status != 0) return result;
    const bool setting = cmd.SubArgCount >= 2;
    if (setting) {
        if (cmd.Selection == TARN_SELECT_ALL)
            return {TARN_STATUS_BAD_VALUE,
                    std::string("Error: Option ") + cmd.Option + " sets the boot drive of one port: name the HBA!"};
        result = nvme ? SetNVMeBootDrive(cmd, ports[0]) : SetBootDrive(cmd, ports[0]);
        if (result.status != 0) return result;
    } else if (!nvme && cmd.SubArgCount == 4) {
        return {TARN_STATUS_UNKNOWN_PARAM,
                std::string("Error: Option ") + cmd.Option + " takes a target, a LUN and a drive!"};
    }

    std::vector<VTAPI_BootDeviceInfo> infos(ports.size());
    for (size_t i = 0; i < ports.size(); ++i) {
        auto *d = const_cast<SDMDevice *>(ports[i]);
        config::ClearConfigErrorText();
        uint32_t rc = GetBootDeviceInfo(d, &infos[i], 1);
        std::vector<std::string> lines;
        if (rc == 0) rc = config::BootDriveLines(d, infos[i], lines);  // refuses a port without ROM BIOS
        if (rc != 0) return ConfigFailure(rc);
    }

    static const Table kDrives = {
        {"drive", "Drive", 5, 0, true},
        {"name", "Use", 11, 2},
        {"wwpn", "WWPN", 23, 2},
        {"lun", "LUN", 5, 2, true},
    };
    static const char *kUse[] = {"Primary", "Alternate 1", "Alternate 2", "Alternate 3",
                                 "Drive 4", "Drive 5",     "Drive 6",     "Drive 7"};
    sink.Open();
    if (setting) sink.Note("Boot device settings saved to HBA " + std::to_string(ports[0]->Instance) + ".");
    ListScope list(sink, "ports");
    for (size_t i = 0; i < ports.size(); ++i) {
        const SDMDevice &d = *ports[i];
        const VTAPI_BootDeviceInfo &info = infos[i];
        PortScope port(sink, d, PortStyle::Heading);
        {
            ObjectScope settings(sink, "settings");
            for (const config::ReportRow &row : config::BootDeviceReport(&d, info))
                if (!IsDriveRow(row))
                    sink.Field(row.element.c_str(), row.label.c_str(), Value::Number(RowNumber(row), row.value),
                               kBootLabelWidth);
        }
        sink.Blank();
        sink.Columns(kDrives);
        sink.Rule('-');
        {
            ListScope drives(sink, "boot_drives");
            for (uint32_t n = 0; n < info.DriveCount && n < 8; ++n) {
                ItemScope item(sink);
                sink.Row(kDrives, {Value::Number(n), Value::Text(kUse[n]), Value::Text(WwnText(info.Drives[n].WWPN)),
                                   Value::Number(info.Drives[n].LUN)});
            }
        }
        sink.Xml([&d, &info] { XML_EmitBootDeviceInfo(&d, &info); });
        NVMeBootDrives(sink, d);
    }
    return result;
}

}  // namespace vt::cli

/* ------------------------------------------------------------- XML emitters */

namespace {

void BootDeviceBody(const SDMDevice *device, const VTAPI_BootDeviceInfo *info) {
    for (const vt::config::ReportRow &row : vt::config::BootDeviceReport(device, *info))
        if (!vt::cli::IsDriveRow(row))
            XML_PrintElement("\t", row.element.c_str(), std::to_string(vt::cli::RowNumber(row)).c_str());
    for (uint32_t n = 0; n < info->DriveCount && n < 8; ++n)
        vt::cli::XmlLine("\t<BootDevice Drive=\"%u\" WWPN=\"%s\" LUN=\"%u\" />", n,
                         vt::cli::WwnText(info->Drives[n].WWPN).c_str(), info->Drives[n].LUN);
}

void NVMeBootBody(const VTAPI_NVMeBootDeviceEntries *block) {
    for (uint32_t n = 0; n < 8; ++n) {
        const VTAPI_NVMeBootDrive &drive = block->Drives[n];
        if ((drive.Flags & VTAPI_NVME_DRIVE_VALID) == 0) continue;
        vt::cli::XmlLine("\t<NVMeBootDevice Drive=\"%u\" WWPN=\"%s\" NamespaceID=\"%u\" NQN=\"%s\" />", n,
                         vt::cli::WwnText(drive.TargetWWPN).c_str(), drive.NamespaceID,
                         vt::cli::FieldText(drive.NQN).c_str());
    }
}

}  // namespace

extern "C" {

VTAPI_EXPORT void XML_EmitBootDeviceInfo(const SDMDevice *device, const VTAPI_BootDeviceInfo *info) {
    if (bXmlOutPut2) {
        XML_2_EmitBootDeviceInfo(device, info);
        return;
    }
    if (device != nullptr && info != nullptr) BootDeviceBody(device, info);
}

VTAPI_EXPORT void XML_2_EmitBootDeviceInfo(const SDMDevice *device, const VTAPI_BootDeviceInfo *info) {
    if (device != nullptr && info != nullptr) BootDeviceBody(device, info);
}

VTAPI_EXPORT void XML_EmitNVMeBootDevices(const SDMDevice *device, const VTAPI_NVMeBootDeviceEntries *block) {
    if (bXmlOutPut2) {
        XML_2_EmitNVMeBootDevices(device, block);
        return;
    }
    if (block != nullptr) NVMeBootBody(block);
}

VTAPI_EXPORT void XML_2_EmitNVMeBootDevices(const SDMDevice *, const VTAPI_NVMeBootDeviceEntries *block) {
    if (block != nullptr) NVMeBootBody(block);
}

}  // extern "C"
