// The virtual-port command (-vp): the vPorts of each selected port with
// their bandwidth share, and creation, deletion, QoS changes and an even
// rebalance of the shares on one physical port.
#include <strings.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "config/vport.h"
#include "core/core.h"
#include "vtsdm.h"

namespace vt::cli {
namespace {

constexpr size_t kMessageSize = 256;

// The command-line status of a library or device-library result.
int32_t CliStatus(uint32_t rc) {
    switch (rc) {
    case VTAPI_SUCCESS: return 0;
    case VTAPI_NOT_SUPPORTED_ON_VPORT:
    case VTAPI_OPTION_NOT_SUPPORTED:
    case VTAPI_QOS_DISABLED:
    case SDERR_NOT_SUPPORTED: return TARN_STATUS_NOT_SUPPORTED;
    case VTAPI_INVALID_ARGUMENT:
    case VTAPI_VPORT_WWN_UNUSABLE:
    case VTAPI_QOS_OUT_OF_RANGE:
    case VTAPI_QOS_PERCENT_OVERFLOW:
    case SDERR_INVALID_PARAMETER: return TARN_STATUS_BAD_VALUE;
    case VTAPI_PORT_NOT_FOUND:
    case SDERR_NOT_FOUND: return TARN_STATUS_NO_ADAPTER;
    default: return TARN_STATUS_NOT_PERMITTED;  // the adapter refused: link down, busy, ...
    }
}

const char *QoSTypeText(uint16_t type) {
    switch (type) {
    case SD_QOS_PERCENTAGE: return "Percentage";
    case SD_QOS_SPEED: return "Speed";
    default: return "Reserved";
    }
}

uint32_t PortGb(const SDMDevice &d) { return ConvertPortSpeedToDecimal(d.DevicePortProperty.PortSpeed); }

// The bandwidth of a share: a speed as it stands, a percentage through the
// line rate of the port.  PercentageToSpeed gives values below 1 Gb/s
// already scaled for the finer unit, so they are shown in Mb/s.
Value Bandwidth(const SDMDevice &d, const VPortQoSEntry &e) {
    const double gbps = e.QoSType == SD_QOS_SPEED ? double(e.QoSVal) : PercentageToSpeed(e.QoSVal, PortGb(d));
    const auto mbps = uint64_t(std::llround(gbps * 1000.0));
    char text[32];
    if (gbps < 1.0) std::snprintf(text, sizeof text, "%.0f Mb/s", gbps * 1000.0);
    else std::snprintf(text, sizeof text, "%.2f Gb/s", gbps);
    return Value::Number(mbps, text);
}

uint32_t VportInstance(const uint8_t *wwpn) {
    for (const SDMDevice *d : AllPorts())
        if (isVirtualPortHBA(d) && std::memcmp(d->DevicePortProperty.WWPN, wwpn, 8) == 0) return d->Instance;
    return 0xFFFFFFFFu;
}

void XmlVport(const VPortQoSEntry &e, const Value &bandwidth, uint32_t instance) {
    XmlLine("\t<vPort>");
    XML_PrintElement("\t\t", "vPortID", std::to_string(e.VPortId).c_str());
    XML_PrintElement("\t\t", "WWPN", WwnText(e.WWPN).c_str());
    XML_PrintElement("\t\t", "Instance", instance == 0xFFFFFFFFu ? "" : std::to_string(instance).c_str());
    XML_PrintElement("\t\t", "QoSType", QoSTypeText(e.QoSType));
    XML_PrintElement("\t\t", "QoSValue", std::to_string(e.QoSVal).c_str());
    XML_PrintElement("\t\t", "QoSEnabled", e.QoSEnabled ? "1" : "0");
    XML_PrintElement("\t\t", "Bandwidth", bandwidth.text().c_str());
    XmlLine("\t</vPort>");
}

// The vPorts of one physical port with their shares.
void ListVports(Sink &sink, const SDMDevice &d) {
    PortScope port(sink, d, PortStyle::Heading);
    VPortQoSList list;
    if (GetVirtualPortQoSList(&d, &list) != 0) {
        sink.Note("Virtual ports are not supported on this port.");
        sink.JsonField("virtual_ports", Value::None());
        return;
    }
    sink.Field("virtual_ports", "Virtual Ports", Value::Number(list.Count));
    sink.Field("max_virtual_ports", "Maximum", Value::Number(d.DeviceDriverProperty.MaxVports));
    sink.Field("max_qos_virtual_ports", "With QoS", Value::Number(GetMaxVportsSupportQOS(&d)));
    sink.Field("available_virtual_ports", "Available", Value::Number(GetNumberOfAvailableVports(&d)));
    sink.Field("available_percent", "Share Available",
               Value::Number(list.MaxRemainingPercentageBW, std::to_string(list.MaxRemainingPercentageBW) + " %"));
    static const Table kVports = {
        {"virtual_port_id", "ID", 4, 0, true},
        {"instance", "Inst", 4, 2, true},
        {"wwpn", "WWPN", 23},
        {"qos_type", "QoS", 10},
        {"qos_value", "Value", 6, 2, true},
        {"bandwidth_mbps", "Bandwidth", 0, 2},
    };
    ListScope vports(sink, "vports");
    if (list.Count == 0) sink.Note("No virtual ports.");
    else sink.Columns(kVports);
    for (const VPortQoSEntry *e = list.First; e; e = e->next) {
        const Value bandwidth = Bandwidth(d, *e);
        const uint32_t instance = VportInstance(e->WWPN);
        const std::string value = std::to_string(e->QoSVal) + (e->QoSType == SD_QOS_SPEED ? " G" : " %");
        ItemScope item(sink);
        sink.JsonField("qos_enabled", Value::Number(e->QoSEnabled));
        sink.Row(kVports, {Value::Number(e->VPortId), instance == 0xFFFFFFFFu ? Value::None() : Value::Number(instance),
                           Value::Text(WwnText(e->WWPN)), Value::Text(QoSTypeText(e->QoSType)),
                           Value::Number(e->QoSVal, e->QoSEnabled ? value : value + "*"), bandwidth});
        sink.Xml([e, &bandwidth, instance] { XmlVport(*e, bandwidth, instance); });
    }
    bool disabled = false;
    for (const VPortQoSEntry *e = list.First; e; e = e->next) disabled = disabled || !e->QoSEnabled;
    if (disabled) sink.Note("(* QoS cannot be set on this virtual port)");
    FreeVirtualPortQoSList(&list);
}

// The message of a change: a text line, a JSON field and an XML element.
void Message(Sink &sink, const std::string &message) {
    sink.Note(message);
    sink.JsonField("message", Value::Text(message));
    sink.Xml([message] { XML_PrintElement("    ", "Message", message.c_str()); });
}

// A vPort of the port named by its WWPN or its vPort ID.
bool FindVport(const SDMDevice &d, const char *text, uint8_t *wwpn) {
    if (TarnParseWWN(text, wwpn) == 0) return true;
    char *end = nullptr;
    const unsigned long id = std::strtoul(text, &end, 10);
    if (end == text || *end != '\0') return false;
    VPortQoSList list;
    if (GetVirtualPortQoSList(&d, &list) != 0) return false;
    bool found = false;
    for (const VPortQoSEntry *e = list.First; e && !found; e = e->next)
        if (e->VPortId == id) {
            std::memcpy(wwpn, e->WWPN, 8);
            found = true;
        }
    FreeVirtualPortQoSList(&list);
    return found;
}

std::string PortName(const SDMDevice &d) { return "HBA " + std::to_string(d.Instance); }

// Every QoS-enabled percentage share of the port made equal; what the
// reserved shares leave is divided, the remainder going one percent each
// to the first vPorts.  Lowered shares are written first so that the port
// is never over its bandwidth in between.
uint32_t Rebalance(const SDMDevice &d, uint32_t &count) {
    VPortQoSList list;
    if (uint32_t rc = GetVirtualPortQoSList(&d, &list)) return rc;
    uint32_t reserved = 0;
    std::vector<VPortQoSEntry *> shares;
    for (VPortQoSEntry *e = list.First; e; e = e->next) {
        if (e->QoSType == SD_QOS_RESERVED) reserved += e->QoSVal;
        else if (e->QoSType == SD_QOS_PERCENTAGE && e->QoSEnabled) shares.push_back(e);
    }
    count = uint32_t(shares.size());
    uint32_t rc = 0;
    if (!shares.empty() && reserved <= MAX_BW_PERCENTAGE) {
        const uint32_t pool = MAX_BW_PERCENTAGE - reserved;
        std::vector<uint16_t> value(shares.size());
        for (size_t i = 0; i < shares.size(); ++i) value[i] = uint16_t(pool / count + (i < pool % count ? 1 : 0));
        for (int pass = 0; pass < 2 && rc == 0; ++pass)
            for (size_t i = 0; i < shares.size() && rc == 0; ++i) {
                VPortQoSEntry *e = shares[i];
                if (value[i] == e->QoSVal || (value[i] < e->QoSVal) != (pass == 0)) continue;
                const SDQoS q{e->VPortId, SD_QOS_PERCENTAGE, value[i], e->QoSEnabled};
                rc = SDSetQoS(d.DeviceHandle, e->WWPN, &q);
            }
    } else if (reserved > MAX_BW_PERCENTAGE) {
        rc = VTAPI_QOS_PERCENT_OVERFLOW;
    }
    FreeVirtualPortQoSList(&list);
    return rc;
}

// "25", "25%" a percentage; "8G", "8g" a speed in Gb/s.
bool ParseQoS(const char *text, SDQoS &q) {
    char *end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (end == text || value > 0xFFFF) return false;
    if (*end == '\0' || std::strcmp(end, "%") == 0) q.QoSType = SD_QOS_PERCENTAGE;
    else if (strcasecmp(end, "g") == 0) q.QoSType = SD_QOS_SPEED;
    else return false;
    q.QoSValue = uint16_t(value);
    return true;
}

Result Refused(uint32_t rc, const std::string &message) { return {CliStatus(rc), message}; }

Result BadArguments(const TarnCommand &cmd) {
    return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid arguments for option ") + cmd.Option +
                                       "! Give list, create [byte], delete <vport|all>, qos <vport> <value>[%|G] "
                                       "[lock <id>...] or rebalance."};
}

}  // namespace

Result VirtualPortsReport(const TarnCommand &cmd, Sink &sink) {
    const std::string action = cmd.SubArgCount > 0 ? cmd.SubArgs[0] : "list";
    const uint32_t n = cmd.SubArgCount;
    auto is = [&action](const char *word) { return strcasecmp(action.c_str(), word) == 0; };
    if (!(is("list") && n <= 1) && !(is("create") && n <= 2) && !(is("delete") && n == 2) &&
        !(is("qos") && (n == 3 || n >= 5) && (n == 3 || strcasecmp(cmd.SubArgs[3], "lock") == 0)) &&
        !(is("rebalance") && n == 1))
        return BadArguments(cmd);
    int32_t userByte = -1;
    if (is("create") && n == 2) {
        char *end = nullptr;
        const long byte = std::strtol(cmd.SubArgs[1], &end, 16);
        if (end == cmd.SubArgs[1] || *end != '\0' || byte < 0 || byte > 255)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid vPort WWPN byte '") + cmd.SubArgs[1] +
                                               "' for option " + cmd.Option + "! Give a hexadecimal byte above 03."};
        userByte = int32_t(byte);
    }
    SDQoS qos{};
    std::vector<uint16_t> locked;
    if (is("qos")) {
        if (!ParseQoS(cmd.SubArgs[2], qos))
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid QoS value '") + cmd.SubArgs[2] +
                                               "' for option " + cmd.Option +
                                               "! Give a percentage (25 or 25%) or a speed (8G)."};
        for (uint32_t i = 4; i < n; ++i) {
            char *end = nullptr;
            const unsigned long id = std::strtoul(cmd.SubArgs[i], &end, 10);
            if (end == cmd.SubArgs[i] || *end != '\0' || id > 0xFFFF)
                return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid vPort ID '") + cmd.SubArgs[i] +
                                                   "' to lock for option " + cmd.Option + "!"};
            locked.push_back(uint16_t(id));
        }
    }

    Result result;
    auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (is("list")) {
        std::vector<const SDMDevice *> physical;
        for (const SDMDevice *d : ports)
            if (!isVirtualPortHBA(d)) physical.push_back(d);
        if (physical.empty())
            return {TARN_STATUS_NOT_SUPPORTED, std::string("Error: Option ") + cmd.Option +
                                                   " lists the virtual ports of a physical port; choose that port!"};
        sink.Open();
        ListScope list(sink, "ports");
        for (const SDMDevice *d : physical) ListVports(sink, *d);
        return result;
    }

    if (ports.size() != 1)
        return {TARN_STATUS_BAD_VALUE,
                std::string("Error: Choose one HBA port for option ") + cmd.Option + " " + action + "!"};
    auto *d = const_cast<SDMDevice *>(ports.front());
    char message[kMessageSize] = "";
    std::string done;
    if (is("create")) {
        uint8_t wwpn[8] = {};
        uint16_t id = 0;
        const uint32_t rc = CreateVPortForHBA(d, userByte, wwpn, &id, message, sizeof message);
        if (rc != 0) return Refused(rc, message);
        done = message;
    } else if (is("delete")) {
        uint8_t wwpn[8] = {};
        uint32_t rc = 0;
        if (strcasecmp(cmd.SubArgs[1], "all") == 0) rc = DeleteAllVPortsForHBA(d, message, sizeof message);
        else if (TarnParseWWN(cmd.SubArgs[1], wwpn) == 0 || FindVport(*d, cmd.SubArgs[1], wwpn))
            rc = DeleteVPortForHBA(d, wwpn, message, sizeof message);
        else
            return {TARN_STATUS_NO_ADAPTER,
                    std::string("Error: vPort '") + cmd.SubArgs[1] + "' not found on " + PortName(*d) + "!"};
        if (rc != 0) return Refused(rc, message);
        done = message;
    } else if (is("qos")) {
        uint8_t wwpn[8] = {};
        if (!FindVport(*d, cmd.SubArgs[1], wwpn))
            return {TARN_STATUS_NO_ADAPTER,
                    std::string("Error: vPort '") + cmd.SubArgs[1] + "' not found on " + PortName(*d) + "!"};
        const uint32_t rc = SetVirtualPortQoS(d, wwpn, &qos, locked.data(), uint32_t(locked.size()));
        const std::string what = "QoS of vPort " + WwnText(wwpn) + " of " + PortName(*d);
        switch (rc) {
        case 0: break;
        case VTAPI_QOS_OUT_OF_RANGE: return Refused(rc, "Unable to set " + what + " (value out of range)!");
        case VTAPI_QOS_PERCENT_OVERFLOW:
            return Refused(rc, "Unable to set " + what + " (not enough bandwidth left for it)!");
        case VTAPI_QOS_DISABLED: return Refused(rc, "Unable to set " + what + " (QoS is disabled on this vPort)!");
        case VTAPI_PORT_NOT_FOUND:
            return Refused(
                rc, "Specified vPort " + WwnText(wwpn) + " does not exist (HBA " + std::to_string(d->Instance) + ")!");
        default: return Refused(rc, "Unable to set " + what + " (" + SDGetErrorString(rc) + ")!");
        }
        done = what + " set to " + std::to_string(qos.QoSValue) + (qos.QoSType == SD_QOS_SPEED ? " Gb/s." : " %.");
    } else {
        uint32_t count = 0;
        const uint32_t rc = isVirtualPortHBA(d) ? VTAPI_NOT_SUPPORTED_ON_VPORT : Rebalance(*d, count);
        if (rc != 0)
            return Refused(rc, "Unable to rebalance the QoS of " + PortName(*d) + " (" +
                                   (rc == VTAPI_QOS_PERCENT_OVERFLOW ? std::string("reserved shares exceed 100 %")
                                    : rc < 0x20000000u               ? std::string("not supported on this port")
                                                                     : std::string(SDGetErrorString(rc))) +
                                   ")!");
        done = "QoS of " + std::to_string(count) + " vPort(s) of " + PortName(*d) + " rebalanced.";
    }
    sink.Open();
    Message(sink, done);
    ListScope list(sink, "ports");
    ListVports(sink, *d);
    return result;
}

}  // namespace vt::cli
