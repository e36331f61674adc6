// The display commands of tarncli, each as a text report for a person on an
// 80-column terminal or as an XML document through the library's emitters.
#include <strings.h>

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tarncli.h"
#include "vtapi_core.h"
#include "vtapi_oss.h"
#include "vtapi_vpd.h"

namespace tarn {
namespace {

constexpr int kWidth = 79;
constexpr int kLabelWidth = 20;
constexpr int kVpdLabelWidth = 30;

std::string Wwn(const uint8_t *w) {
    char text[32];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5],
                  w[6], w[7]);
    return text;
}

std::string PortId(const uint8_t *p) {
    char text[16];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x", p[0], p[1], p[2]);
    return text;
}

template <size_t N> std::string Field(const char (&f)[N]) { return std::string(f, strnlen(f, N)); }

std::string Trim(std::string s) {
    while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
    size_t i = 0;
    while (i < s.size() && s[i] == ' ') ++i;
    return s.substr(i);
}

std::string Model(const SDMDevice *d) {
    std::string m = Field(d->DeviceNodeProperty.Model);
    if (isOEMModelSuffixHBA(d) && m.find("-S") == std::string::npos) m += "-S";
    return m;
}

std::string Speed(const SDMDevice *d) {
    const uint32_t gb = ConvertPortSpeedToDecimal(d->DevicePortProperty.PortSpeed);
    return gb == 0 ? std::string("-") : std::to_string(gb) + " Gb/s";
}

std::string SupportedSpeeds(const SDMDevice *d) {
    static const struct { uint8_t bit; const char *text; } kBits[] = {
        {SD_SUPPORTED_1G, "1"},   {SD_SUPPORTED_2G, "2"},   {SD_SUPPORTED_4G, "4"},   {SD_SUPPORTED_8G, "8"},
        {SD_SUPPORTED_16G, "16"}, {SD_SUPPORTED_32G, "32"}, {SD_SUPPORTED_64G, "64"},
    };
    std::string out;
    for (const auto &b : kBits)
        if (d->DevicePortProperty.SupportedSpeed & b.bit) out += (out.empty() ? "" : ", ") + std::string(b.text);
    return out.empty() ? std::string("Unknown") : out + " Gb/s";
}

std::string State(const SDMDevice *d) {
    char text[32] = "";
    return GetAdapterStatus(d, text);
}

std::string Size(uint64_t bytes) {
    char text[32];
    return TarnFormatSize(bytes, text, sizeof text);
}

// Port number column: the physical port, or "v<id>" for a virtual port.
std::string PortLabel(const SDMDevice *d) {
    // std::string("v") rather than "v": a literal + std::to_string() makes
    // GCC 12 at -O3 warn falsely (-Wrestrict).
    if (isVirtualPortHBA(d)) return std::string("v") + std::to_string(d->DeviceNodeProperty.VPortId);
    return std::to_string(GetPhyPortNumber(d));
}

std::string TargetType(const TargetEntry *t) {
    if (TarnIsNVMeTarget(t)) return "NVMe";
    if (t->TargetFlags & SD_TGTFLAG_TAPE) return "Tape";
    switch (t->PeripheralType & 0x1F) {
    case 0x00: return "Disk";
    case 0x01: return "Tape";
    case 0x08: return "Changer";
    case 0x0C: return "Array";
    case 0x1F: return "-";
    default: return TarnPeripheralTypeText(t->PeripheralType);
    }
}

std::string TargetProduct(const TargetEntry *t) {
    const std::string vendor = Trim(Field(t->VendorId));
    const std::string product = Trim(Field(t->ProductId));
    return vendor.empty() ? product : product.empty() ? vendor : vendor + " " + product;
}

void Rule(char c) { Out("%s\n", std::string(kWidth, c).c_str()); }

void Title(const std::string &text) {
    Out("%s\n", text.c_str());
    Rule('=');
}

// "label : value" with the label in a column of `width`, a long value
// wrapped (at blanks where it has them) under the value column.
void Wrapped(const std::string &label, int width, const std::string &value) {
    const size_t room = static_cast<size_t>(kWidth - width - 3);
    std::string rest = value.empty() ? std::string("-") : value;
    bool first = true;
    while (!rest.empty()) {
        size_t cut = rest.size();
        if (cut > room) {
            cut = rest.rfind(' ', room);
            if (cut == std::string::npos || cut == 0) cut = room;
        }
        Out("%-*.*s %s %s\n", width, width, first ? label.c_str() : "", first ? ":" : " ",
            rest.substr(0, cut).c_str());
        rest = rest.substr(cut);
        while (!rest.empty() && rest[0] == ' ') rest.erase(0, 1);
        first = false;
    }
}

// "Label               : value".
void Line(const char *label, const std::string &value) { Wrapped(label, kLabelWidth, value); }

void PortHeading(const SDMDevice *d) {
    std::string text = "HBA instance " + std::to_string(d->Instance) + ": " + Model(d);
    text += isVirtualPortHBA(d) ? ", virtual port " + std::to_string(d->DeviceNodeProperty.VPortId)
                                : ", port " + std::to_string(GetPhyPortNumber(d));
    text += ", WWPN " + Wwn(d->DevicePortProperty.WWPN);
    Out("%s\n", text.c_str());
    Rule('-');
}

// The ports a command selects, in the order of the sorted device list.
std::vector<const SDMDevice *> SelectPorts(const TarnCommand &cmd, Result &result) {
    std::vector<const SDMDevice *> ports;
    const SDMDeviceList *list = GetMyDeviceList();
    if (list == nullptr || list->First == nullptr) {
        result = {TARN_STATUS_NO_ADAPTER, "Error: No Fibre Channel adapter port found in this host!"};
        return ports;
    }
    for (const SDMDevice *d = list->First; d; d = d->next) {
        if (cmd.Selection == TARN_SELECT_INSTANCE && d->Instance != cmd.Instance) continue;
        if (cmd.Selection == TARN_SELECT_WWPN && std::memcmp(d->DevicePortProperty.WWPN, cmd.WWPN, 8) != 0) continue;
        ports.push_back(d);
    }
    if (ports.empty())
        result = {TARN_STATUS_NO_ADAPTER,
                  cmd.Selection == TARN_SELECT_INSTANCE
                      ? "Error: No HBA port with instance " + std::to_string(cmd.Instance) + " found!"
                      : "Error: No HBA port with WWPN " + Wwn(cmd.WWPN) + " found!"};
    return ports;
}

// "-t <target-wwpn>" and "-l <target-wwpn> [lun]" name no adapter: a WWPN
// in the adapter's place that is not a port of this host but a target behind
// one selects that target on every port.  `room` is the number of
// arguments the command takes after the adapter.
TarnCommand TargetInPlaceOfAdapter(const TarnCommand &cmd, uint32_t room) {
    if (cmd.Selection != TARN_SELECT_WWPN || cmd.SubArgCount >= room) return cmd;
    bool isTarget = false;
    const SDMDeviceList *list = GetMyDeviceList();
    for (const SDMDevice *d = list != nullptr ? list->First : nullptr; d; d = d->next) {
        if (std::memcmp(d->DevicePortProperty.WWPN, cmd.WWPN, 8) == 0) return cmd;
        for (const TargetEntry *t = d->Targets.First; t && !isTarget; t = t->next)
            isTarget = std::memcmp(t->WWPN, cmd.WWPN, 8) == 0;
    }
    if (!isTarget) return cmd;
    TarnCommand out = cmd;
    out.Selection = TARN_SELECT_ALL;
    for (uint32_t i = out.SubArgCount; i > 0; --i)
        std::memcpy(out.SubArgs[i], out.SubArgs[i - 1], TARN_SUBARG_SIZE);
    std::snprintf(out.SubArgs[0], TARN_SUBARG_SIZE, "%s", Wwn(cmd.WWPN).c_str());
    ++out.SubArgCount;
    return out;
}

// Optional target filter (a target WWPN) among the command's arguments.
bool TargetFilter(const TarnCommand &cmd, uint32_t index, uint8_t *wwpn, bool &set, Result &result) {
    set = false;
    if (cmd.SubArgCount <= index) return true;
    if (strcasecmp(cmd.SubArgs[index], "all") == 0) return true;
    if (TarnParseWWN(cmd.SubArgs[index], wwpn) != 0) {
        result = {TARN_STATUS_BAD_VALUE,
                  std::string("Error: Invalid target WWPN '") + cmd.SubArgs[index] + "' for option " + cmd.Option + "!"};
        return false;
    }
    set = true;
    return true;
}

bool TargetMatches(const TargetEntry *t, const uint8_t *wwpn, bool set) {
    return !set || std::memcmp(t->WWPN, wwpn, 8) == 0;
}

// True when the port has a target the command selects (any target without
// a WWPN filter).
bool AnyTargetMatches(const SDMDevice *d, const uint8_t *wwpn, bool set) {
    for (const TargetEntry *t = d->Targets.First; t; t = t->next)
        if (TargetMatches(t, wwpn, set)) return true;
    return false;
}

void XmlEnd() { XML_EmitStatusMessage(0, nullptr, 0, 0, 1); }

struct Totals {
    uint32_t cards = 0, ports = 0, vports = 0, targets = 0, luns = 0;
    uint64_t bytes = 0;
};

// Targets and LUNs count their paths (a LUN seen through two ports counts
// twice); the capacity counts each LUN once.  A LUN is the unit of its
// target node: its target's WWNN and its number, whichever target port and
// local port reach it.
Totals Count(const std::vector<const SDMDevice *> &ports) {
    Totals t;
    std::set<std::string> serials;
    std::set<std::pair<std::string, uint16_t>> counted;
    for (const SDMDevice *d : ports) {
        if (isVirtualPortHBA(d)) ++t.vports;
        else ++t.ports;
        serials.insert(GetAdapterSerialNo(d));
        t.targets += d->Targets.Count;
        for (const TargetEntry *g = d->Targets.First; g; g = g->next) {
            t.luns += g->Luns.Count;
            for (const LunEntry *l = g->Luns.First; l; l = l->next)
                if (counted.emplace(Wwn(g->WWNN), l->LunNumber).second) t.bytes += TarnLunCapacity(l);
        }
    }
    t.cards = static_cast<uint32_t>(serials.size());
    return t;
}

void HostLines(const std::vector<const SDMDevice *> &all) {
    char host[256] = "", systemType[128] = "", osVersion[256] = "", agent[64] = "", sdm[64] = "";
    OSSGetHostInformation(host, systemType, osVersion, agent);
    SDGetVersion(sdm, sizeof sdm);
    const Totals t = Count(all);
    Line("Host Name", host);
    Line("OS Type", systemType);
    Line("OS Version", osVersion);
    const std::string distribution = OSSGetDistributionType();
    if (!distribution.empty()) Line("Distribution", distribution);
    Line("Device Library", std::string("libvtsdm ") + sdm);
    Line("HBAs", std::to_string(t.cards) + " (" + std::to_string(t.ports) + " FC port" + (t.ports == 1 ? "" : "s") +
                     ", " + std::to_string(t.vports) + " virtual port" + (t.vports == 1 ? "" : "s") + ")");
}

std::vector<const SDMDevice *> AllPorts() {
    std::vector<const SDMDevice *> all;
    for (const SDMDevice *d = GetMyDeviceList()->First; d; d = d->next) all.push_back(d);
    return all;
}

std::string VpdLabel(const VPDEntry &e) {
    std::string label = Field(e.description);
    return label.empty() || label == "UNKNOWN" ? std::string("Keyword ") + Field(e.tag) : label;
}

// The parsed VPD of a physical port; false when it has none.
bool ReadVpd(const SDMDevice *d, VPDInfo &info) { return GetHBAVPDData2(d, &info) == 0 && info.count > 0; }

void TextGeneralInfo(const SDMDevice *d) {
    const SDNodeProperty &node = d->DeviceNodeProperty;
    const SDChipProperty &chip = d->DeviceChipProperty;
    AdapterEntry versions{};
    GetHBAOptionROMVersions(d, &versions);
    char text[128];
    Line("Model", Model(d));
    Line("Description", Trim(Field(node.ModelDescription)));
    Line("Serial Number", GetAdapterSerialNo(d));
    Line("WWNN", Wwn(node.WWNN));
    Line("WWPN", Wwn(d->DevicePortProperty.WWPN));
    if (isVirtualPortHBA(d)) {
        Line("Virtual Port ID", std::to_string(node.VPortId));
        Line("Parent WWPN", Wwn(node.ParentWWPN));
    }
    Line("Port ID", PortId(d->DevicePortProperty.PortId));
    Line("Port State", State(d));
    Line("Port Speed", Speed(d));
    Line("Supported Speeds", SupportedSpeeds(d));
    Line("Driver Version", Trim(Field(d->DeviceDriverProperty.DriverName) + " " + Field(node.DriverVersion)));
    Line("Firmware Version", Field(node.FirmwareVersion));
    if (versions.FlashFirmwareVersion[0]) Line("Flash Firmware", versions.FlashFirmwareVersion);
    std::snprintf(text, sizeof text, "%s / %s / %s", versions.FlashBIOSVersion[0] ? versions.FlashBIOSVersion : "-",
                  versions.FCodeVersion[0] ? versions.FCodeVersion : "-",
                  versions.EFIVersion[0] ? versions.EFIVersion : "-");
    Line("BIOS / FCode / EFI", text);
    if (versions.FlashMultiBootVersion[0]) Line("Multiboot Version", versions.FlashMultiBootVersion);
    std::snprintf(text, sizeof text, "%02x:%02x.%x", chip.PciBusNumber, (chip.PciDevFunc >> 3) & 0x1F,
                  chip.PciDevFunc & 7);
    Line("PCI Location", text);
    std::snprintf(text, sizeof text, "%04x:%04x, subsystem %04x:%04x, revision %u", chip.VendorID, chip.DeviceID,
                  chip.SubVendorID, chip.SubSystemID, chip.ChipRevision);
    Line("PCI IDs", text);
    Line("Fabric Name", Wwn(d->DevicePortProperty.FabricName));
    Line("OS Device Name", Field(d->DevicePortProperty.DeviceName));
    Line("Targets", std::to_string(d->Targets.Count));
    if (!isVirtualPortHBA(d)) Line("Virtual Ports", std::to_string(d->DevicePortProperty.NumberOfVports));
}

void TextVpd(const SDMDevice *d) {
    VPDInfo info;
    Out("Vital Product Data\n");
    if (isVirtualPortHBA(d)) {
        Out("  (kept by the physical port)\n");
        return;
    }
    if (!ReadVpd(d, info)) {
        Out("  (not available)\n");
        return;
    }
    for (uint32_t i = 0; i < info.count && i < VTFU_VPD_MAX_ENTRIES; ++i) {
        const VPDEntry &e = info.entries[i];
        const std::string label = "  " + VpdLabel(e) + " (" + Field(e.tag) + ")";
        char value[2 * VTFU_VPD_FIELD_SIZE + 8];
        Wrapped(label, kVpdLabelWidth, TarnVPDValueText(&e, value, sizeof value));
    }
}

}  // namespace

/* ------------------------------------------------------------------ -g */

Result General(const TarnCommand &cmd) {
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (bXmlOutPut) {
        XML_EmitMainHeader();
        XML_EmitSystemInfo();
        for (const SDMDevice *d : ports) {
            XML_EmitHBAHeader(d);
            XML_EmitHBAFooter();
        }
        XmlEnd();
        return result;
    }
    Title("Host Information");
    HostLines(AllPorts());
    Out("\n");
    Out("%4s  %-10s  %-11s %4s  %-23s  %-9s %s\n", "Inst", "Model", "Serial", "Port", "WWPN", "State", "Speed");
    Rule('-');
    for (const SDMDevice *d : ports)
        Out("%4u  %-10.10s  %-11.11s %4s  %-23s  %-9.9s %s\n", d->Instance, Model(d).c_str(), GetAdapterSerialNo(d),
            PortLabel(d).c_str(), Wwn(d->DevicePortProperty.WWPN).c_str(), State(d).c_str(), Speed(d).c_str());
    return result;
}

/* ------------------------------------------------------------------ -i */

Result Info(const TarnCommand &cmd) {
    Result result;
    bool vpdOnly = false;
    if (cmd.SubArgCount > 0) {
        if (strcasecmp(cmd.SubArgs[0], "vpd") != 0)
            return {TARN_STATUS_BAD_VALUE,
                    std::string("Error: Invalid argument '") + cmd.SubArgs[0] + "' for option " + cmd.Option +
                        "! Only \"vpd\" is accepted."};
        vpdOnly = true;
    }
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (bXmlOutPut) {
        XML_EmitMainHeader();
        for (const SDMDevice *d : ports) {
            XML_EmitHBAHeader(d);
            if (!vpdOnly) XML_EmitHBAGeneralInfo(d);
            VPDInfo info{};
            if (!isVirtualPortHBA(d)) {
                ReadVpd(d, info);
                XML_EmitHBAVPDInfo(&info);
            }
            XML_EmitHBAFooter();
        }
        XmlEnd();
        return result;
    }
    bool first = true;
    for (const SDMDevice *d : ports) {
        if (!first) Out("\n");
        first = false;
        PortHeading(d);
        if (!vpdOnly) {
            TextGeneralInfo(d);
            Out("\n");
        }
        TextVpd(d);
    }
    return result;
}

/* ------------------------------------------------------------------ -t */

Result Targets(const TarnCommand &command) {
    const TarnCommand cmd = TargetInPlaceOfAdapter(command, 1);
    Result result;
    uint8_t wwpn[8] = {};
    bool filtered = false;
    if (!TargetFilter(cmd, 0, wwpn, filtered, result)) return result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (filtered) {
        bool found = false;
        for (const SDMDevice *d : ports)
            for (const TargetEntry *t = d->Targets.First; t && !found; t = t->next) found = TargetMatches(t, wwpn, true);
        if (!found) return {TARN_STATUS_BAD_VALUE, "Error: Target " + Wwn(wwpn) + " not found on the selected HBA port(s)!"};
    }
    if (bXmlOutPut) {
        XML_EmitMainHeader();
        for (const SDMDevice *d : ports) {
            XML_EmitHBAHeader(d);
            for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
                if (!TargetMatches(t, wwpn, filtered)) continue;
                XML_EmitTargetHeader(t);
                XML_EmitTarget(t);
                XML_EmitTargetFooter();
            }
            XML_EmitHBAFooter();
        }
        XmlEnd();
        return result;
    }
    bool first = true;
    for (const SDMDevice *d : ports) {
        const bool any = AnyTargetMatches(d, wwpn, filtered);
        if (filtered && !any) continue;
        if (!first) Out("\n");
        first = false;
        PortHeading(d);
        if (d->Targets.First == nullptr) {
            Out("No targets.\n");
            continue;
        }
        Out("%3s  %-23s  %-8s  %-7s  %-7s %4s\n", "Tgt", "WWPN / WWNN", "Port ID", "Type", "Status", "LUNs");
        for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
            if (!TargetMatches(t, wwpn, filtered)) continue;
            const std::string product = TargetProduct(t);
            Out("%3u  %-23s  %-8s  %-7.7s  %-7s %4u\n", t->DiscTargetProperty.TargetId, Wwn(t->WWPN).c_str(),
                PortId(t->PortId).c_str(), TargetType(t).c_str(),
                (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ? "Online" : "Offline", t->Luns.Count);
            Out("     %s%s%.48s\n", Wwn(t->WWNN).c_str(), product.empty() ? "" : "  ", product.c_str());
        }
    }
    return result;
}

/* ------------------------------------------------------------------ -l */

Result Luns(const TarnCommand &command) {
    const TarnCommand cmd = TargetInPlaceOfAdapter(command, 2);
    Result result;
    uint8_t wwpn[8] = {};
    bool filtered = false;
    if (!TargetFilter(cmd, 0, wwpn, filtered, result)) return result;
    long lun = -1;
    if (cmd.SubArgCount > 1) {
        char *end = nullptr;
        lun = std::strtol(cmd.SubArgs[1], &end, 10);
        if (end == cmd.SubArgs[1] || *end != '\0' || lun < 0 || lun > 65535)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid LUN '") + cmd.SubArgs[1] + "' for option " +
                                               cmd.Option + "! Give a number from 0 to 65535."};
        if (!filtered)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: A LUN number needs a target WWPN before it (option ") +
                                               cmd.Option + ")!"};
    }
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    auto lunMatches = [&](const LunEntry *l) { return lun < 0 || l->LunNumber == lun; };
    if (filtered) {
        bool targetFound = false, lunFound = false;
        for (const SDMDevice *d : ports)
            for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
                if (!TargetMatches(t, wwpn, true)) continue;
                targetFound = true;
                for (const LunEntry *l = t->Luns.First; l; l = l->next) lunFound = lunFound || lunMatches(l);
            }
        if (!targetFound)
            return {TARN_STATUS_BAD_VALUE, "Error: Target " + Wwn(wwpn) + " not found on the selected HBA port(s)!"};
        if (lun >= 0 && !lunFound)
            return {TARN_STATUS_BAD_VALUE,
                    "Error: LUN " + std::to_string(lun) + " not found behind target " + Wwn(wwpn) + "!"};
    }
    if (bXmlOutPut) {
        XML_EmitMainHeader();
        for (const SDMDevice *d : ports) {
            XML_EmitHBAHeader(d);
            for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
                if (!TargetMatches(t, wwpn, filtered)) continue;
                XML_EmitTargetHeader(t);
                for (const LunEntry *l = t->Luns.First; l; l = l->next)
                    if (lunMatches(l)) XML_EmitLunInfo(l);
                XML_EmitTargetFooter();
            }
            XML_EmitHBAFooter();
        }
        XmlEnd();
        return result;
    }
    bool first = true;
    for (const SDMDevice *d : ports) {
        const bool any = AnyTargetMatches(d, wwpn, filtered);
        if (filtered && !any) continue;
        if (!first) Out("\n");
        first = false;
        PortHeading(d);
        if (!any) {
            Out("No targets.\n");
            continue;
        }
        bool firstTarget = true;
        for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
            if (!TargetMatches(t, wwpn, filtered)) continue;
            if (!firstTarget) Out("\n");
            firstTarget = false;
            const std::string product = TargetProduct(t);
            Out("Target %s  Port ID %s%s%.28s\n", Wwn(t->WWPN).c_str(), PortId(t->PortId).c_str(),
                product.empty() ? "" : "  ", product.c_str());
            if (t->Luns.First == nullptr) {
                Out("  No LUNs.\n");
                continue;
            }
            Out("  %5s  %-7s  %-16s  %-4s  %9s  %-7s  %s\n", "LUN", "Type", "Product", "Rev", "Size", "Path",
                "OS Device");
            for (const LunEntry *l = t->Luns.First; l; l = l->next) {
                if (!lunMatches(l)) continue;
                const std::string vp = Field(l->VendorProduct);
                const std::string productId = Trim(vp.size() > 8 ? vp.substr(8) : std::string());
                const std::string device = Field(l->OSDeviceName);
                Out("  %5u  %-7.7s  %-16.16s  %-4.4s  %9s  %-7s  %.18s\n", l->LunNumber,
                    TarnPeripheralTypeText(l->PeripheralType), productId.c_str(), Field(l->Revision).c_str(),
                    Size(TarnLunCapacity(l)).c_str(), l->PassivePath ? "Passive" : "Active",
                    device.empty() ? "-" : device.c_str());
            }
        }
    }
    return result;
}

/* ------------------------------------------------------------------ -z */

Result Summary(const TarnCommand &cmd) {
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (bXmlOutPut) {
        XML_EmitMainHeader();
        XML_EmitSystemInfo();
        for (const SDMDevice *d : ports) {
            XML_EmitHBAHeader(d);
            XML_EmitHBASummary(d);
            XML_EmitHBAFooter();
        }
        XmlEnd();
        return result;
    }
    Title("Summary Report");
    HostLines(AllPorts());
    Out("\n");
    Out("%4s  %-8s  %-23s  %-9s  %4s  %4s  %5s  %s\n", "Inst", "Model", "WWPN", "State", "Gb/s", "Tgts", "LUNs",
        "Capacity");
    Rule('-');
    for (const SDMDevice *d : ports) {
        const Totals t = Count({d});
        const uint32_t gb = ConvertPortSpeedToDecimal(d->DevicePortProperty.PortSpeed);
        Out("%4u  %-8.8s  %-23s  %-9.9s  %4s  %4u  %5u  %s\n", d->Instance, Model(d).c_str(),
            Wwn(d->DevicePortProperty.WWPN).c_str(), State(d).c_str(), gb ? std::to_string(gb).c_str() : "-",
            t.targets, t.luns, Size(t.bytes).c_str());
    }
    Rule('-');
    const Totals all = Count(ports);
    Out("%4s  %-8s  %-23s  %-9s  %4s  %4u  %5u  %s\n", "", "Total", "", "", "", all.targets, all.luns,
        Size(all.bytes).c_str());
    return result;
}

}  // namespace tarn
