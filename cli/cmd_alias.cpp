// The alias commands (-ha adapter alias, -pa port alias: show, set, delete)
// and the choice of ports by an alias name.
#include <strings.h>

#include <cstring>
#include <set>
#include <string>

#include "cli/alias.h"
#include "cli/reports.h"
#include "core/core.h"

namespace vt::cli {
namespace {

// The alias of the port or its adapter, "" when there is none (a single
// blank is how an alias is cleared).
std::string AliasOf(const SDMDevice &d, uint32_t type) {
    char alias[VTAPI_ALIAS_SIZE] = "";
    const int32_t length = GetAdapterAlias(&d, alias, type);
    if (length <= 0 || std::strcmp(alias, " ") == 0) return {};
    return alias;
}

// One line per port: "HBA alias <WWNN> is <alias>" or the "does not have"
// sentence; the XML alias element comes from DisplayAdapterAlias.
void ShowAlias(Sink &sink, const SDMDevice &d, uint32_t type) {
    const bool adapter = type == TARN_ALIAS_ADAPTER;
    const std::string wwn = WwnText(adapter ? d.DeviceNodeProperty.WWNN : d.DevicePortProperty.WWPN);
    const std::string alias = AliasOf(d, type);
    PortScope port(sink, d, PortStyle::Row);
    for (const Piece &p : PortPieces(d)) sink.JsonField(p.key, p.value);
    if (adapter) {
        sink.JsonField("serial", Value::Text(GetAdapterSerialNo(&d)));
        sink.JsonField("wwnn", Value::Text(wwn));
    }
    if (alias.empty()) {
        sink.Line({{nullptr, "HBA ", Value::Text(wwn)},
                   {nullptr, adapter ? " does not have an alias." : " does not have a port alias.", Value::Blank()}});
        sink.JsonField("alias", Value::None());
    } else {
        sink.Line({{nullptr, adapter ? "HBA alias " : "HBA port alias ", Value::Text(wwn)},
                   {"alias", " is ", Value::Text(alias)}});
    }
    sink.Xml([&d, type] { DisplayAdapterAlias(&d, type); });
}

// The command line keeps aliases in the host's global alias file, copied to
// the local one of the installation directory.
void UseHostAliasFiles() { SetAliasPathVar(1); }

Result AliasReport(const TarnCommand &cmd, Sink &sink, uint32_t type) {
    UseHostAliasFiles();
    const bool adapter = type == TARN_ALIAS_ADAPTER;
    enum class Action { Show, Set, Delete } action = Action::Show;
    std::string alias;
    if (cmd.SubArgCount > 0) {
        const char *word = cmd.SubArgs[0];
        if (strcasecmp(word, "set") == 0 && cmd.SubArgCount == 2) {
            action = Action::Set;
            alias = cmd.SubArgs[1];
        } else if (strcasecmp(word, "delete") == 0 && cmd.SubArgCount == 1) {
            action = Action::Delete;
        } else {
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid arguments for option ") + cmd.Option +
                                               "! Give nothing, \"set <alias>\" or \"delete\"."};
        }
    }
    if (action == Action::Set &&
        (alias.empty() || alias.size() > VTAPI_ALIAS_MAX || alias.find_first_of("=\r\n") != std::string::npos))
        return {TARN_STATUS_BAD_VALUE, "Error: Invalid alias '" + alias + "' for option " + cmd.Option +
                                           "! An alias has 1 to 256 characters, without \"=\" or line ends."};
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    if (action != Action::Show) {
        // A change names one adapter (-ha) or one port (-pa).
        std::set<std::string> cards;
        for (const SDMDevice *d : ports) cards.insert(GetAdapterSerialNo(d));
        if (adapter ? cards.size() != 1 : ports.size() != 1)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Choose one ") + (adapter ? "HBA" : "HBA port") +
                                               " to change its alias (option " + cmd.Option + ")!"};
        const SDMDevice *d = ports.front();
        const uint32_t rc =
            action == Action::Set ? SetAdapterAlias(d, alias.c_str(), type) : DeleteAdapterAlias(d, type);
        if (rc != 0)
            return {TARN_STATUS_NOT_PERMITTED,
                    std::string(adapter ? "Failed to update HBA Alias" : "Failed to update HBA Port alias") +
                        " (HBA ID " + std::to_string(d->Instance) + "-" + ModelName(*d) + ")!"};
    }
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) ShowAlias(sink, *d, type);
    return result;
}

}  // namespace

Result HbaAliasReport(const TarnCommand &command, Sink &sink) { return AliasReport(command, sink, TARN_ALIAS_ADAPTER); }
Result PortAliasReport(const TarnCommand &command, Sink &sink) { return AliasReport(command, sink, 1); }

std::vector<const SDMDevice *> SelectPortsByAlias(const TarnCommand &cmd, const std::vector<const SDMDevice *> &all,
                                                  Result &result) {
    // A port alias names its port; else an adapter alias names every port
    // of its card.
    UseHostAliasFiles();
    std::vector<const SDMDevice *> ports;
    for (const SDMDevice *d : all)
        if (AliasOf(*d, 1) == cmd.Alias) ports.push_back(d);
    if (ports.empty()) {
        std::set<std::string> cards;
        for (const SDMDevice *d : all)
            if (AliasOf(*d, TARN_ALIAS_ADAPTER) == cmd.Alias) cards.insert(GetAdapterSerialNo(d));
        for (const SDMDevice *d : all)
            if (cards.count(GetAdapterSerialNo(d)) != 0) ports.push_back(d);
    }
    if (ports.empty())
        result = {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid HBA '") + cmd.Alias + "' for option " +
                                             cmd.Option + "! Give an instance number, a WWPN, an alias or \"all\"."};
    return ports;
}

}  // namespace vt::cli
