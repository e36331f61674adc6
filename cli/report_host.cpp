// The host reports: general information (-g), the summary (-z) and the
// version (-v), and the port selection every report shares.
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"

namespace vt::cli {
namespace {

constexpr const char kToolVersion[] = VT_TOOL_VERSION;

std::string Plural(uint32_t n, const char *word) { return std::to_string(n) + " " + word + (n == 1 ? "" : "s"); }

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
                if (counted.emplace(WwnText(g->WWNN), l->LunNumber).second) t.bytes += LunCapacity(*l);
        }
    }
    t.cards = static_cast<uint32_t>(serials.size());
    return t;
}

std::string DeviceLibrary() {
    char version[64] = "";
    SDGetVersion(version, sizeof version);
    return std::string("libvtsdm ") + version;
}

// The host: its names, the device library and backend, and the cards and
// ports of the whole host.
void Host(Sink &sink) {
    char host[256] = "", systemType[128] = "", osVersion[256] = "", agent[64] = "";
    OSSGetHostInformation(host, systemType, osVersion, agent);
    const Totals t = Count(AllPorts());
    const core::DeviceBackend backend = core::GetDeviceBackend();
    const std::string backendText =
        backend.description.empty() ? backend.name : backend.name + " (" + backend.description + ")";

    ObjectScope object(sink, "host");
    sink.Field("host_name", "Host Name", Value::Text(host));
    sink.Field("os_type", "OS Type", Value::Text(systemType));
    sink.Field("os_version", "OS Version", Value::Text(osVersion));
    const std::string distribution = OSSGetDistributionType();
    if (!distribution.empty()) sink.Field("distribution", "Distribution", Value::Text(distribution));
    sink.Field("device_library", "Device Library", Value::Text(DeviceLibrary()));
    sink.Field("device_backend", "Device Backend",
               Value::Text(backendText.empty() ? std::string("-") : backendText)
                   .WithParts({{"device_backend", backend.name.empty() ? Value::None() : Value::Text(backend.name)},
                               {"device_backend_description",
                                backend.description.empty() ? Value::None() : Value::Text(backend.description)}}));
    sink.Field("hbas", "HBAs",
               Value::Text(std::to_string(t.cards) + " (" + Plural(t.ports, "FC port") + ", " +
                           Plural(t.vports, "virtual port") + ")")
                   .WithParts({{"hbas", Value::Number(t.cards)},
                               {"fc_ports", Value::Number(t.ports)},
                               {"virtual_ports", Value::Number(t.vports)}}));
    sink.Xml([] { XML_EmitSystemInfo(); });
}

}  // namespace

std::vector<const SDMDevice *> AllPorts() {
    std::vector<const SDMDevice *> all;
    const SDMDeviceList *list = GetMyDeviceList();
    for (const SDMDevice *d = list != nullptr ? list->First : nullptr; d; d = d->next) all.push_back(d);
    return all;
}

std::vector<const SDMDevice *> SelectPorts(const TarnCommand &cmd, Result &result) {
    std::vector<const SDMDevice *> ports;
    const std::vector<const SDMDevice *> all = AllPorts();
    if (all.empty()) {
        result = {TARN_STATUS_NO_ADAPTER, "Error: No Fibre Channel adapter port found in this host!"};
        return ports;
    }
    if (cmd.Selection == TARN_SELECT_ALIAS) return SelectPortsByAlias(cmd, all, result);
    for (const SDMDevice *d : all) {
        if (cmd.Selection == TARN_SELECT_INSTANCE && d->Instance != cmd.Instance) continue;
        if (cmd.Selection == TARN_SELECT_WWPN && std::memcmp(d->DevicePortProperty.WWPN, cmd.WWPN, 8) != 0) continue;
        ports.push_back(d);
    }
    if (ports.empty())
        result = {TARN_STATUS_NO_ADAPTER,
                  cmd.Selection == TARN_SELECT_INSTANCE
                      ? "Error: No HBA port with instance " + std::to_string(cmd.Instance) + " found!"
                      : "Error: No HBA port with WWPN " + WwnText(cmd.WWPN) + " found!"};
    return ports;
}

/* ------------------------------------------------------------------ -g */

Result GeneralReport(const TarnCommand &cmd, Sink &sink) {
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    static const Table kPorts = {
        {"instance", "Inst", 4, 0, true},
        {"model", "Model", 10, 2, false, 10},
        {"serial", "Serial", 11, 2, false, 11},
        {"port", "Port", 4, 1, true},
        {"wwpn", "WWPN", 23, 2},
        {"state", "State", 9, 2, false, 9},
        {"speed_gbps", "Speed", 0, 1},
    };
    sink.Open();
    sink.Title("Host Information");
    Host(sink);
    sink.Blank();
    sink.Columns(kPorts);
    sink.Rule('-');
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) {
        PortScope port(sink, *d, PortStyle::Row);
        // A virtual port's number column reads "v<id>".
        const Value number = isVirtualPortHBA(d)
                                 ? Value::Text("v" + std::to_string(d->DeviceNodeProperty.VPortId))
                                       .WithParts({{"virtual_port_id", Value::Number(d->DeviceNodeProperty.VPortId)}})
                                 : Value::Number(GetPhyPortNumber(d));
        sink.Row(kPorts,
                 {Value::Number(d->Instance), Value::Text(ModelName(*d)), Value::Text(GetAdapterSerialNo(d)), number,
                  Value::Text(WwnText(d->DevicePortProperty.WWPN)), Value::Text(PortState(*d)), PortSpeed(*d)});
    }
    return result;
}

/* ------------------------------------------------------------------ -z */

Result SummaryReport(const TarnCommand &cmd, Sink &sink) {
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    static const Table kPorts = {
        {"instance", "Inst", 4, 0, true},   {"model", "Model", 8, 2, false, 8},   {"wwpn", "WWPN", 23, 2},
        {"state", "State", 9, 2, false, 9}, {"speed_gbps", "Gb/s", 4, 2, true},   {"targets", "Tgts", 4, 2, true},
        {"luns", "LUNs", 5, 2, true},       {"capacity_bytes", "Capacity", 0, 2},
    };
    sink.Open();
    sink.Title("Summary Report");
    Host(sink);
    sink.Blank();
    sink.Columns(kPorts);
    sink.Rule('-');
    {
        ListScope list(sink, "ports");
        for (const SDMDevice *d : ports) {
            PortScope port(sink, *d, PortStyle::Row);
            const Totals t = Count({d});
            const uint32_t gb = ConvertPortSpeedToDecimal(d->DevicePortProperty.PortSpeed);
            sink.Row(kPorts, {Value::Number(d->Instance), Value::Text(ModelName(*d)),
                              Value::Text(WwnText(d->DevicePortProperty.WWPN)), Value::Text(PortState(*d)),
                              gb != 0 ? Value::Number(gb) : Value::None(), Value::Number(t.targets),
                              Value::Number(t.luns), Size(t.bytes)});
            sink.Xml([d] { XmlHbaSummary(d); });
        }
    }
    sink.Rule('-');
    const Totals all = Count(ports);
    ObjectScope total(sink, "total");
    sink.Row(kPorts, {Value::Blank(), Value::Label("Total"), Value::Blank(), Value::Blank(), Value::Blank(),
                      Value::Number(all.targets), Value::Number(all.luns), Size(all.bytes)});
    return result;
}

/* ------------------------------------------------------------------ -v */

Result VersionReport(const TarnCommand &, Sink &sink) {
    constexpr int kWidth = 17;
    sink.Open();
    sink.Line({{"tool", "", Value::Text("tarncli")},
               {"version", " ", Value::Text(kToolVersion)},
               {nullptr, " - command-line tool for Vantor Fibre Channel adapters", Value::Blank()}});
    sink.Field("command_line_core", "Command-line core", Value::Text("Pallwick FCAPI v3.0.0 Build 3"), kWidth);
    sink.Field("device_library", "Device library", Value::Text(DeviceLibrary()), kWidth);
    return {};
}

}  // namespace vt::cli
