// The driver-file commands: the driver's option line (-fg shows it, -fs
// changes its parameters), persistent target bindings (-p) and the LUNs
// each bound target shows the host (-m).
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "cli/cli.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "cli/xml_binding.h"
#include "core/core.h"
#include "drvfiles/drvfiles.h"
#include "drvfiles/drvtext.h"
#include "vtsdm.h"

namespace vt::cli {
namespace {

constexpr uint32_t kMaxBindings = 1024;

std::string ModuleOf(const SDMDevice &d) { return FieldText(d.DeviceDriverProperty.DriverName); }

std::vector<const SDMDevice *> PhysicalOnly(const std::vector<const SDMDevice *> &ports) {
    std::vector<const SDMDevice *> out;
    for (const SDMDevice *d : ports)
        if (!isVirtualPortHBA(d)) out.push_back(d);
    return out;
}

Result NoPhysicalPort(const TarnCommand &cmd) {
    return {TARN_STATUS_NOT_SUPPORTED, std::string("Error: Option ") + cmd.Option +
                                           " is not supported on a virtual port; choose its physical port!"};
}

// The command-line status of a driver-file result.
int32_t CliStatus(uint32_t rc) {
    switch (rc) {
    case 0: return 0;
    case SDERR_NOT_SUPPORTED: return TARN_STATUS_NOT_SUPPORTED;
    case SDERR_INVALID_PARAMETER: return TARN_STATUS_BAD_VALUE;
    case SDERR_NOT_FOUND: return TARN_STATUS_NO_ADAPTER;
    default: return TARN_STATUS_NOT_PERMITTED;
    }
}

/* ------------------------------------------------------------ -fg, -fs */

// "options <module> a=1 b" as (name, value) pairs after the module name.
std::vector<std::pair<std::string, std::string>> Parameters(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::pair<std::string, std::string>> out;
    std::string word;
    in >> word >> word;  // "options", the module
    while (in >> word) {
        const size_t eq = word.find('=');
        out.emplace_back(word.substr(0, eq), eq == std::string::npos ? std::string() : word.substr(eq + 1));
    }
    return out;
}

void ShowDriverSettings(Sink &sink, const SDMDevice &d) {
    const std::string module = ModuleOf(d);
    PortScope port(sink, d, PortStyle::Heading);
    sink.Field("driver_module", "Driver Module", Value::Text(module));
    std::vector<char> line(VTLAPI_OPTLINE_MAX + 1);
    const uint32_t rc = vtlapi_get_drv_param_optline(module.c_str(), line.data(), uint32_t(line.size()));
    const std::string text = rc == 0 ? line.data() : std::string();
    const char *none = rc == VTAPI_FILE_NOT_FOUND ? "(no module option file)" : "(none)";
    sink.Field("option_line", "Option Line", rc == 0 ? Value::Text(text) : Value::Label(none));
    if (rc != 0) sink.JsonField("option_line", Value::None());
    sink.Xml([&module, &text] {
        XML_PrintElement("\t", "DriverModule", module.c_str());
        XML_PrintElement("\t", "OptionLine", text.c_str());
    });
    static const Table kParams = {{"name", "Parameter", 24, 2}, {"value", "Value", 0, 2}};
    const auto params = Parameters(text);
    ListScope list(sink, "parameters");
    if (params.empty()) {
        sink.Note("  No driver parameters set.");
        return;
    }
    sink.Columns(kParams);
    for (const auto &param : params) {
        const std::string &name = param.first, &value = param.second;
        ItemScope item(sink);
        sink.Row(kParams, {Value::Text(name), Value::Text(value)});
        sink.Xml([&name, &value] {
            XmlLine("\t<DriverParameter Name=\"%s\">%s</DriverParameter>", name.c_str(), value.c_str());
        });
    }
}

bool ValidParameterName(const std::string &name) {
    return !name.empty() && name.size() <= 64 &&
           std::all_of(name.begin(), name.end(), [](char c) { return std::isalnum((unsigned char)c) || c == '_'; });
}

bool ValidParameterValue(const std::string &value) {
    return value.size() <= 256 && std::none_of(value.begin(), value.end(), [](char c) {
               return std::isspace((unsigned char)c) || c == '#' || !std::isprint((unsigned char)c);
           });
}

}  // namespace

Result DriverSettingsReport(const TarnCommand &cmd, Sink &sink) {
    Result result;
    const auto ports = PhysicalOnly(SelectPorts(cmd, result));
    if (result.status != 0) return result;
    if (ports.empty()) return NoPhysicalPort(cmd);
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) ShowDriverSettings(sink, *d);
    return result;
}

Result SetDriverSettingsReport(const TarnCommand &cmd, Sink &sink) {
    if (cmd.SubArgCount == 0)
        return {TARN_STATUS_BAD_VALUE,
                std::string("Error: Option ") + cmd.Option + " needs one or more NAME=VALUE (NAME= removes it)!"};
    std::vector<std::pair<std::string, std::string>> changes;
    for (uint32_t i = 0; i < cmd.SubArgCount; ++i) {
        const std::string arg = cmd.SubArgs[i];
        const size_t eq = arg.find('=');
        const std::string name = arg.substr(0, eq), value = eq == std::string::npos ? "" : arg.substr(eq + 1);
        if (eq == std::string::npos || !ValidParameterName(name) || !ValidParameterValue(value))
            return {TARN_STATUS_BAD_VALUE, "Error: Invalid driver parameter '" + arg + "' for option " + cmd.Option +
                                               "! Give NAME=VALUE, or NAME= to remove it."};
        changes.emplace_back(name, value);
    }
    Result result;
    const auto ports = PhysicalOnly(SelectPorts(cmd, result));
    if (result.status != 0) return result;
    if (ports.empty()) return NoPhysicalPort(cmd);
    std::set<std::string> modules;
    for (const SDMDevice *d : ports) modules.insert(ModuleOf(*d));
    // Every change of a module goes into one rewrite of its line, so that
    // the file holds all of them or none.
    for (const std::string &module : modules) {
        std::vector<char> buffer(VTLAPI_OPTLINE_MAX + 1);
        uint32_t rc = vtlapi_get_drv_param_optline(module.c_str(), buffer.data(), uint32_t(buffer.size()));
        if (rc != 0 && rc != SDERR_NOT_FOUND && rc != VTAPI_FILE_NOT_FOUND)
            return {TARN_STATUS_NOT_PERMITTED, "Error: Unable to read the option line of module " + module + "!"};
        const std::string line = rc == 0 ? buffer.data() : std::string();
        std::string updated = line;
        for (const auto &[name, value] : changes)
            updated = vt::drv::SetOptionParam(updated, module, name, value.empty() ? nullptr : &value);
        rc = updated == line ? 0 : vtlapi_set_drv_param_optline(module.c_str(), updated.c_str());
        if (rc == VTAPI_FILE_NOT_FOUND)
            return {TARN_STATUS_NOT_PERMITTED,
                    "Error: No module option file found (/etc/conf.modules, /etc/modprobe.conf.local, "
                    "/etc/modprobe.conf, /etc/modules.conf)!"};
        if (rc != 0)
            return {TARN_STATUS_NOT_PERMITTED, "Error: Unable to rewrite the option line of module " + module + "!"};
    }
    sink.Open();
    sink.Note("Driver settings changed; they take effect when the driver is loaded again.");
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) ShowDriverSettings(sink, *d);
    return result;
}

/* ----------------------------------------------------------------- -p */

namespace {

std::vector<FoTargetData> Bindings(const SDMDevice &d, uint32_t &rc) {
    std::vector<FoTargetData> out(kMaxBindings);
    uint32_t count = kMaxBindings;
    rc = ISDFoGetPersistentTargetEntryList(d.DeviceHandle, out.data(), &count);
    if (rc == VTAPI_FILE_NOT_FOUND) rc = 0, count = 0;
    out.resize(rc == 0 ? count : 0);
    return out;
}

// The bindings of every port, in the order of the ports.
Result AllBindings(const std::vector<const SDMDevice *> &ports, std::vector<std::vector<FoTargetData>> &all);

std::vector<FoTargetData>::iterator FindBinding(std::vector<FoTargetData> &bindings, const uint8_t *wwpn) {
    return std::find_if(bindings.begin(), bindings.end(),
                        [wwpn](const FoTargetData &b) { return std::memcmp(b.WWPN, wwpn, 8) == 0; });
}

const TargetEntry *FindTarget(const SDMDevice &d, const uint8_t *wwpn) {
    for (const TargetEntry *t = d.Targets.First; t; t = t->next)
        if (std::memcmp(t->WWPN, wwpn, 8) == 0) return t;
    return nullptr;
}

int32_t BindingState(const SDMDevice &d, const FoTargetData &b) {
    const TargetEntry *t = FindTarget(d, b.WWPN);
    if (t == nullptr) return TARN_BINDING_NOT_PRESENT;
    return (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ? TARN_BINDING_ONLINE : TARN_BINDING_OFFLINE;
}

const char *StateText(int32_t state) {
    return state == TARN_BINDING_ONLINE ? "Online" : state == TARN_BINDING_OFFLINE ? "Offline" : "Not Present";
}

Result ReadFailed(const SDMDevice &d, uint32_t rc) {
    return {CliStatus(rc), "Error: Unable to read the persistent bindings of HBA " + std::to_string(d.Instance) + " (" +
                               SDGetErrorString(rc) + ")!"};
}

Result AllBindings(const std::vector<const SDMDevice *> &ports, std::vector<std::vector<FoTargetData>> &all) {
    for (const SDMDevice *d : ports) {
        uint32_t rc = 0;
        all.push_back(Bindings(*d, rc));
        if (rc != 0) return ReadFailed(*d, rc);
    }
    return {};
}

void ShowBindings(Sink &sink, const SDMDevice &d, const std::vector<FoTargetData> &bindings) {
    PortScope port(sink, d, PortStyle::Heading);
    static const Table kBindings = {
        {"target_id", "Tgt", 3, 0, true},
        {"device_instance", "DI", 2, 1, true},
        {"wwpn", "WWPN", 23},
        {"wwnn", "WWNN", 23},
        {"port_id", "Port ID", 8},
        {"status", "Status", 0},
    };
    ListScope list(sink, "bindings");
    if (bindings.empty()) {
        sink.Note("No persistent bindings.");
        return;
    }
    sink.Columns(kBindings);
    for (const FoTargetData &b : bindings) {
        const int32_t state = BindingState(d, b);
        ItemScope item(sink);
        sink.Row(kBindings,
                 {Value::Number(b.TargetNumber), Value::Number(b.DeviceInstance), Value::Text(WwnText(b.WWPN)),
                  Value::Text(WwnText(b.WWNN)), Value::Text(PortIdText(b.PortId)), Value::Text(StateText(state))});
        sink.Xml([&b, state] { XML_EmitHBATargetPersistBinding(&b, state); });
    }
}

// The lowest target number the port has not bound yet.
int FreeTargetNumber(const std::vector<FoTargetData> &bindings) {
    for (int n = 0; n < 256; ++n)
        if (std::none_of(bindings.begin(), bindings.end(), [n](const FoTargetData &b) { return b.TargetNumber == n; }))
            return n;
    return -1;
}

Result OnePort(const TarnCommand &cmd, const std::vector<const SDMDevice *> &ports, const char *what) {
    if (ports.size() == 1) return {};
    return {TARN_STATUS_BAD_VALUE,
            std::string("Error: Choose one HBA port for option ") + cmd.Option + " " + what + "!"};
}

Result BindTargets(const TarnCommand &cmd, const SDMDevice &d, bool bind) {
    uint32_t rc = 0;
    std::vector<FoTargetData> bindings = Bindings(d, rc);
    if (rc != 0) return ReadFailed(d, rc);
    const std::string which = cmd.SubArgs[1];
    const bool all = strcasecmp(which.c_str(), "all") == 0;
    uint8_t wwpn[8] = {};
    if (!all && TarnParseWWN(which.c_str(), wwpn) != 0)
        return {TARN_STATUS_BAD_VALUE, "Error: Invalid target WWPN '" + which + "' for option " + cmd.Option + "!"};
    int number = -1;
    if (cmd.SubArgCount > 2) {
        char *end = nullptr;
        number = int(std::strtol(cmd.SubArgs[2], &end, 10));
        if (!bind || all || end == cmd.SubArgs[2] || *end != '\0' || number < 0 || number > 255)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid target number '") + cmd.SubArgs[2] +
                                               "' for option " + cmd.Option + "! Give 0 to 255 after one target."};
    }
    if (!bind) {
        rc = all ? 0 : ISDFoDeletePersistentDeviceEntry(d.DeviceHandle, wwpn);
        for (const FoTargetData &b : bindings)
            if (all && rc == 0) rc = ISDFoDeletePersistentTargetEntry(d.DeviceHandle, b.TargetNumber, b.DeviceInstance);
        if (rc == SDERR_NOT_FOUND)
            return {TARN_STATUS_BAD_VALUE,
                    "Error: Target " + which + " is not bound on HBA " + std::to_string(d.Instance) + "!"};
        if (rc != 0)
            return {CliStatus(rc), std::string("Error: Unable to remove the binding (") + SDGetErrorString(rc) + ")!"};
        return {};
    }
    std::vector<const TargetEntry *> targets;
    for (const TargetEntry *t = d.Targets.First; t; t = t->next)
        if (all || std::memcmp(t->WWPN, wwpn, 8) == 0) targets.push_back(t);
    if (targets.empty())
        return {TARN_STATUS_BAD_VALUE,
                all ? "Error: HBA " + std::to_string(d.Instance) + " sees no targets to bind!"
                    : "Error: Target " + which + " not found on HBA " + std::to_string(d.Instance) + "!"};
    for (const TargetEntry *t : targets) {
        FoTargetData data{};
        auto bound = FindBinding(bindings, t->WWPN);
        if (bound != bindings.end() && number < 0) continue;  // already bound
        if (number >= 0) {
            for (const FoTargetData &b : bindings)
                if (b.TargetNumber == number && std::memcmp(b.WWPN, t->WWPN, 8) != 0)
                    return {TARN_STATUS_BAD_VALUE, "Error: Target number " + std::to_string(number) +
                                                       " is already bound to " + WwnText(b.WWPN) + "!"};
            if (bound != bindings.end()) {
                ISDFoDeletePersistentTargetEntry(d.DeviceHandle, bound->TargetNumber, bound->DeviceInstance);
                bindings.erase(bound);
            }
        }
        data.TargetNumber = uint8_t(number >= 0 ? number : FreeTargetNumber(bindings));
        if (number < 0 && FreeTargetNumber(bindings) < 0)
            return {TARN_STATUS_BAD_VALUE,
                    "Error: No free target number left on HBA " + std::to_string(d.Instance) + "!"};
        std::memcpy(data.WWNN, t->WWNN, 8);
        std::memcpy(data.WWPN, t->WWPN, 8);
        std::memcpy(data.PortId, t->PortId, 3);
        rc = ISDFoSetTargetData(d.DeviceHandle, &data);
        if (rc != 0)
            return {CliStatus(rc), std::string("Error: Unable to bind target ") + WwnText(t->WWPN) + " (" +
                                       SDGetErrorString(rc) + ")!"};
        bindings.push_back(data);
    }
    return {};
}

}  // namespace

Result PersistentBindingReport(const TarnCommand &cmd, Sink &sink) {
    const uint32_t n = cmd.SubArgCount;
    const bool bind = n > 0 && strcasecmp(cmd.SubArgs[0], "bind") == 0;
    const bool unbind = n > 0 && strcasecmp(cmd.SubArgs[0], "unbind") == 0;
    if (n > 0 && !((bind && (n == 2 || n == 3)) || (unbind && n == 2)))
        return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid arguments for option ") + cmd.Option +
                                           "! Give nothing, \"bind <target-wwpn|all> [target-number]\" or "
                                           "\"unbind <target-wwpn|all>\"."};
    Result result;
    const auto ports = PhysicalOnly(SelectPorts(cmd, result));
    if (result.status != 0) return result;
    if (ports.empty()) return NoPhysicalPort(cmd);
    if (bind || unbind) {
        if (Result one = OnePort(cmd, ports, cmd.SubArgs[0]); one.status != 0) return one;
        if (Result changed = BindTargets(cmd, *ports.front(), bind); changed.status != 0) return changed;
    }
    std::vector<std::vector<FoTargetData>> all;
    if (Result read = AllBindings(ports, all); read.status != 0) return read;
    sink.Open();
    ListScope list(sink, "ports");
    for (size_t i = 0; i < ports.size(); ++i) ShowBindings(sink, *ports[i], all[i]);
    return result;
}

/* ----------------------------------------------------------------- -m */

namespace {

bool MaskHas(const uint8_t *mask, uint32_t lun) { return lun < VTLAPI_MAX_LUNS && (mask[lun / 8] >> (lun % 8)) & 1; }

// "0,2,5-7" or "all" (every LUN the target shows) into LUN numbers.
bool ParseLuns(const std::string &text, const TargetEntry &t, std::vector<uint32_t> &luns) {
    if (strcasecmp(text.c_str(), "all") == 0) {
        for (const LunEntry *l = t.Luns.First; l; l = l->next) luns.push_back(l->LunNumber);
        return true;
    }
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, ',');) {
        char *end = nullptr;
        const unsigned long first = std::strtoul(part.c_str(), &end, 10);
        unsigned long last = first;
        if (end == part.c_str()) return false;
        if (*end == '-') {
            const char *from = end + 1;
            last = std::strtoul(from, &end, 10);
            if (end == from) return false;
        }
        if (*end != '\0' || last < first || last >= VTLAPI_MAX_LUNS) return false;
        for (unsigned long l = first; l <= last; ++l) luns.push_back(uint32_t(l));
    }
    return !luns.empty();
}

void ShowLunSelection(Sink &sink, const SDMDevice &d, std::vector<FoTargetData> &bindings, const uint8_t *only) {
    PortScope port(sink, d, PortStyle::Heading);
    ListScope targets(sink, "targets");
    bool any = false;
    for (const TargetEntry *t = d.Targets.First; t; t = t->next) {
        if (only != nullptr && std::memcmp(t->WWPN, only, 8) != 0) continue;
        any = true;
        FoLunData masks{};
        const auto bound = FindBinding(bindings, t->WWPN);
        if (bound != bindings.end())
            ISDFoGetLunData(d.DeviceHandle, bound->TargetNumber, bound->DeviceInstance, &masks);
        TargetScope target(sink, *t, TargetStyle::Block);
        sink.Line({{"wwpn", "Target ", Value::Text(WwnText(t->WWPN))},
                   {"target_id", "  bound as target ",
                    bound != bindings.end() ? Value::Number(bound->TargetNumber) : Value::None()}});
        static const Table kLuns = {
            {"lun", "LUN", 5, 2, true}, {"selected", "Selected", 8, 2}, {"product", "Product", 0, 2}};
        ListScope luns(sink, "luns");
        if (t->Luns.First == nullptr) sink.Note("  No LUNs.");
        else sink.Columns(kLuns);
        for (const LunEntry *l = t->Luns.First; l; l = l->next) {
            const bool selected = !MaskHas(masks.DisabledLuns, l->LunNumber);
            const std::string inquiry = FieldText(l->VendorProduct);
            const std::string product =
                Trim(Trim(inquiry.substr(0, 8)) + " " + (inquiry.size() > 8 ? Trim(inquiry.substr(8)) : ""));
            ItemScope item(sink);
            sink.Row(kLuns, {Value::Number(l->LunNumber), Value::Text(selected ? "Yes" : "No"), Value::Text(product)});
            sink.Xml([selected, l] {
                if (selected) XML_EmitSelectedLun(l->LunNumber, l);
                else XML_EmitUnselectedLun(l->LunNumber, l);
            });
        }
    }
    if (!any) sink.Note("No targets.");
}

Result ChangeLunSelection(const TarnCommand &cmd, const SDMDevice &d, const uint8_t *wwpn, bool enable) {
    const TargetEntry *t = FindTarget(d, wwpn);
    if (t == nullptr)
        return {TARN_STATUS_BAD_VALUE,
                "Error: Target " + WwnText(wwpn) + " not found on HBA " + std::to_string(d.Instance) + "!"};
    std::vector<uint32_t> luns;
    if (!ParseLuns(cmd.SubArgs[2], *t, luns))
        return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid LUN list '") + cmd.SubArgs[2] + "' for option " +
                                           cmd.Option + "! Give LUN numbers such as 0,2,5-7, or \"all\"."};
    uint32_t rc = 0;
    auto bindings = Bindings(d, rc);
    if (rc != 0) return ReadFailed(d, rc);
    auto bound = FindBinding(bindings, t->WWPN);
    FoTargetData binding{};
    if (bound == bindings.end()) {
        // LUN masks belong to a binding: bind the target first.
        const int number = FreeTargetNumber(bindings);
        if (number < 0)
            return {TARN_STATUS_BAD_VALUE,
                    "Error: No free target number left on HBA " + std::to_string(d.Instance) + "!"};
        binding.TargetNumber = uint8_t(number);
        std::memcpy(binding.WWNN, t->WWNN, 8);
        std::memcpy(binding.WWPN, t->WWPN, 8);
        std::memcpy(binding.PortId, t->PortId, 3);
        if ((rc = ISDFoSetTargetData(d.DeviceHandle, &binding)) != 0)
            return {CliStatus(rc), std::string("Error: Unable to bind target ") + WwnText(t->WWPN) + " (" +
                                       SDGetErrorString(rc) + ")!"};
    } else {
        binding = *bound;
    }
    FoLunData masks{};
    if ((rc = ISDFoGetLunData(d.DeviceHandle, binding.TargetNumber, binding.DeviceInstance, &masks)) != 0)
        return {CliStatus(rc), std::string("Error: Unable to read the LUN selection (") + SDGetErrorString(rc) + ")!"};
    for (uint32_t lun : luns) {
        if (enable) masks.DisabledLuns[lun / 8] &= uint8_t(~(1u << (lun % 8)));
        else masks.DisabledLuns[lun / 8] |= uint8_t(1u << (lun % 8));
    }
    if ((rc = ISDFoSetLunData(d.DeviceHandle, &masks)) != 0)
        return {CliStatus(rc),
                rc == SDERR_NOT_SUPPORTED
                    ? "Error: The driver of HBA " + std::to_string(d.Instance) + " takes no LUN selection!"
                    : std::string("Error: Unable to write the LUN selection (") + SDGetErrorString(rc) + ")!"};
    return {};
}

}  // namespace

Result SelectiveLunsReport(const TarnCommand &cmd, Sink &sink) {
    const uint32_t n = cmd.SubArgCount;
    uint8_t wwpn[8] = {};
    const bool filtered = n > 0;
    if (filtered && TarnParseWWN(cmd.SubArgs[0], wwpn) != 0)
        return {TARN_STATUS_BAD_VALUE,
                std::string("Error: Invalid target WWPN '") + cmd.SubArgs[0] + "' for option " + cmd.Option + "!"};
    const bool enable = n == 3 && strcasecmp(cmd.SubArgs[1], "enable") == 0;
    const bool disable = n == 3 && strcasecmp(cmd.SubArgs[1], "disable") == 0;
    if (n == 2 || (n == 3 && !enable && !disable))
        return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid arguments for option ") + cmd.Option +
                                           "! Give [target-wwpn [enable|disable <luns|all>]]."};
    Result result;
    const auto ports = PhysicalOnly(SelectPorts(cmd, result));
    if (result.status != 0) return result;
    if (ports.empty()) return NoPhysicalPort(cmd);
    if (filtered &&
        std::none_of(ports.begin(), ports.end(), [&wwpn](const SDMDevice *d) { return FindTarget(*d, wwpn); }))
        return {TARN_STATUS_BAD_VALUE, "Error: Target " + WwnText(wwpn) + " not found on the selected HBA port(s)!"};
    if (enable || disable) {
        if (Result one = OnePort(cmd, ports, cmd.SubArgs[1]); one.status != 0) return one;
        if (Result changed = ChangeLunSelection(cmd, *ports.front(), wwpn, enable); changed.status != 0) return changed;
    }
    std::vector<std::vector<FoTargetData>> all;
    if (Result read = AllBindings(ports, all); read.status != 0) return read;
    sink.Open();
    ListScope list(sink, "ports");
    for (size_t i = 0; i < ports.size(); ++i) {
        if (filtered && FindTarget(*ports[i], wwpn) == nullptr) continue;
        ShowLunSelection(sink, *ports[i], all[i], filtered ? wwpn : nullptr);
    }
    return result;
}

}  // namespace vt::cli
