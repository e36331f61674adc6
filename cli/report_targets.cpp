// The target and LUN reports (-t, -l).
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cli/cli.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"

namespace vt::cli {
namespace {

// "-t <target-wwpn>" and "-l <target-wwpn> [lun]" name no adapter: a WWPN
// in the adapter's place that is not a port of this host but a target behind
// one selects that target on every port.  `room` is the number of
// arguments the command takes after the adapter.
TarnCommand TargetInPlaceOfAdapter(const TarnCommand &cmd, uint32_t room) {
    if (cmd.Selection != TARN_SELECT_WWPN || cmd.SubArgCount >= room) return cmd;
    bool isTarget = false;
    for (const SDMDevice *d : AllPorts()) {
        if (std::memcmp(d->DevicePortProperty.WWPN, cmd.WWPN, 8) == 0) return cmd;
        for (const TargetEntry *t = d->Targets.First; t && !isTarget; t = t->next)
            isTarget = std::memcmp(t->WWPN, cmd.WWPN, 8) == 0;
    }
    if (!isTarget) return cmd;
    TarnCommand out = cmd;
    out.Selection = TARN_SELECT_ALL;
    for (uint32_t i = out.SubArgCount; i > 0; --i) std::memcpy(out.SubArgs[i], out.SubArgs[i - 1], TARN_SUBARG_SIZE);
    std::snprintf(out.SubArgs[0], TARN_SUBARG_SIZE, "%s", WwnText(cmd.WWPN).c_str());
    ++out.SubArgCount;
    return out;
}

// The target filter of a command: the target WWPN among its arguments, if
// one is given.
struct TargetFilter {
    bool set = false;
    uint8_t wwpn[8] = {};

    bool Matches(const TargetEntry &t) const { return !set || std::memcmp(t.WWPN, wwpn, 8) == 0; }
    // True when the port has a target the filter selects.
    bool AnyOn(const SDMDevice &d) const {
        for (const TargetEntry *t = d.Targets.First; t; t = t->next)
            if (Matches(*t)) return true;
        return false;
    }
    bool AnyOn(const std::vector<const SDMDevice *> &ports) const {
        for (const SDMDevice *d : ports)
            if (AnyOn(*d)) return true;
        return false;
    }
};

bool ReadTargetFilter(const TarnCommand &cmd, uint32_t index, TargetFilter &filter, Result &result) {
    if (cmd.SubArgCount <= index || strcasecmp(cmd.SubArgs[index], "all") == 0) return true;
    if (TarnParseWWN(cmd.SubArgs[index], filter.wwpn) != 0) {
        result = {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid target WWPN '") + cmd.SubArgs[index] +
                                             "' for option " + cmd.Option + "!"};
        return false;
    }
    filter.set = true;
    return true;
}

Result TargetNotFound(const TargetFilter &filter) {
    return {TARN_STATUS_BAD_VALUE, "Error: Target " + WwnText(filter.wwpn) + " not found on the selected HBA port(s)!"};
}

// With a target filter, a port without that target is shown in XML only
// (an empty HBA block), and nothing is written inside it.
PortStyle StyleOf(const SDMDevice &d, const TargetFilter &filter) {
    return filter.set && !filter.AnyOn(d) ? PortStyle::XmlOnly : PortStyle::Heading;
}

std::string TargetType(const TargetEntry &t) {
    if (IsNVMeTarget(t)) return "NVMe";
    if (t.TargetFlags & SD_TGTFLAG_TAPE) return "Tape";
    switch (t.PeripheralType & 0x1F) {
    case 0x00: return "Disk";
    case 0x01: return "Tape";
    case 0x08: return "Changer";
    case 0x0C: return "Array";
    case 0x1F: return "-";
    default: return PeripheralTypeText(t.PeripheralType);
    }
}

std::string TargetProduct(const TargetEntry &t) {
    const std::string vendor = Trim(FieldText(t.VendorId));
    const std::string product = Trim(FieldText(t.ProductId));
    return vendor.empty() ? product : product.empty() ? vendor : vendor + " " + product;
}

}  // namespace

/* ------------------------------------------------------------------ -t */

Result TargetsReport(const TarnCommand &command, Sink &sink) {
    const TarnCommand cmd = TargetInPlaceOfAdapter(command, 1);
    Result result;
    TargetFilter filter;
    if (!ReadTargetFilter(cmd, 0, filter, result)) return result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (filter.set && !filter.AnyOn(ports)) return TargetNotFound(filter);
    static const Table kTargets = {
        {"target_id", "Tgt", 3, 0, true},
        {"wwpn", "WWPN / WWNN", 23},
        {"port_id", "Port ID", 8},
        {"type", "Type", 7, 2, false, 7},
        {"status", "Status", 7},
        {"luns", "LUNs", 4, 1, true},
        {"wwnn", nullptr, 0, 5, false, 0, true},
        {"product", nullptr, 0, 2, false, 48, false, true},
    };
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) {
        const PortStyle style = StyleOf(*d, filter);
        PortScope port(sink, *d, style);
        if (style == PortStyle::XmlOnly) continue;
        ListScope targets(sink, "targets");
        if (d->Targets.First == nullptr) {
            sink.Note("No targets.");
            continue;
        }
        sink.Columns(kTargets);
        for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
            if (!filter.Matches(*t)) continue;
            TargetScope target(sink, *t, TargetStyle::Row);
            sink.Xml([t] { XML_EmitTarget(t); });
            sink.Row(kTargets,
                     {Value::Number(t->DiscTargetProperty.TargetId), Value::Text(WwnText(t->WWPN)),
                      Value::Text(PortIdText(t->PortId)), Value::Text(TargetType(*t)),
                      Value::Text((t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ? "Online" : "Offline"),
                      Value::Number(t->Luns.Count), Value::Text(WwnText(t->WWNN)), Value::Text(TargetProduct(*t))});
        }
    }
    return result;
}

/* ------------------------------------------------------------------ -l */

Result LunsReport(const TarnCommand &command, Sink &sink) {
    const TarnCommand cmd = TargetInPlaceOfAdapter(command, 2);
    Result result;
    TargetFilter filter;
    if (!ReadTargetFilter(cmd, 0, filter, result)) return result;
    long lun = -1;
    if (cmd.SubArgCount > 1) {
        char *end = nullptr;
        lun = std::strtol(cmd.SubArgs[1], &end, 10);
        if (end == cmd.SubArgs[1] || *end != '\0' || lun < 0 || lun > 65535)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid LUN '") + cmd.SubArgs[1] + "' for option " +
                                               cmd.Option + "! Give a number from 0 to 65535."};
        if (!filter.set)
            return {TARN_STATUS_BAD_VALUE,
                    std::string("Error: A LUN number needs a target WWPN before it (option ") + cmd.Option + ")!"};
    }
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    auto lunMatches = [lun](const LunEntry &l) { return lun < 0 || l.LunNumber == lun; };
    if (filter.set) {
        if (!filter.AnyOn(ports)) return TargetNotFound(filter);
        bool found = lun < 0;
        for (const SDMDevice *d : ports)
            for (const TargetEntry *t = d->Targets.First; t && !found; t = t->next)
                for (const LunEntry *l = t->Luns.First; l && filter.Matches(*t) && !found; l = l->next)
                    found = lunMatches(*l);
        if (!found)
            return {TARN_STATUS_BAD_VALUE,
                    "Error: LUN " + std::to_string(lun) + " not found behind target " + WwnText(filter.wwpn) + "!"};
    }
    static const Table kLuns = {
        {"lun", "LUN", 5, 2, true},
        {"type", "Type", 7, 2, false, 7},
        {"product", "Product", 16, 2, false, 16},
        {"revision", "Rev", 4, 2, false, 4},
        {"capacity_bytes", "Size", 9, 2, true},
        {"path", "Path", 7},
        {"os_device_name", "OS Device", 0, 2, false, 18},
    };
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) {
        const PortStyle style = StyleOf(*d, filter);
        PortScope port(sink, *d, style);
        if (style == PortStyle::XmlOnly) continue;
        ListScope targets(sink, "targets");
        if (!filter.AnyOn(*d)) {
            sink.Note("No targets.");
            continue;
        }
        for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
            if (!filter.Matches(*t)) continue;
            TargetScope target(sink, *t, TargetStyle::Block);
            sink.Line({{"wwpn", "Target ", Value::Text(WwnText(t->WWPN))},
                       {"port_id", "  Port ID ", Value::Text(PortIdText(t->PortId))},
                       {"product", "  ", Value::Text(TargetProduct(*t)), 28, true}});
            if (t->Luns.First == nullptr) sink.Note("  No LUNs.");
            else sink.Columns(kLuns);
            ListScope luns(sink, "luns");
            for (const LunEntry *l = t->Luns.First; l; l = l->next) {
                if (!lunMatches(*l)) continue;
                const std::string vendorProduct = FieldText(l->VendorProduct);
                const std::string device = FieldText(l->OSDeviceName);
                ItemScope item(sink);
                sink.Row(kLuns, {Value::Number(l->LunNumber), Value::Text(PeripheralTypeText(l->PeripheralType)),
                                 Value::Text(Trim(vendorProduct.size() > 8 ? vendorProduct.substr(8) : std::string())),
                                 Value::Text(Trim(FieldText(l->Revision))), Size(LunCapacity(*l)),
                                 Value::Text(l->PassivePath ? "Passive" : "Active"),
                                 device.empty() ? Value::None() : Value::Text(device)});
                sink.Xml([l] { XML_EmitLunInfo(l); });
            }
        }
    }
    return result;
}

}  // namespace vt::cli
