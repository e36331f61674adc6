// The table of commands, the usage page and the help of each command made
// from it, and the processing of a parsed command.
#include "cli/commands.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>

#include "cli/reports.h"
#include "cli/xml.h"
#include "oss/oss.h"

namespace vt::cli {
namespace {

constexpr const char kStatuses[] =
    "Exit status:\n"
    "  0    success              48   bad parameter value\n"
    "  8    no adapter port      60   unknown or unexpected parameter\n"
    "       found or selected    66   command not available or disabled\n"
    "  136  output switch error (-o, -f, -x or -j with help)\n";

constexpr const char kHbaHelp[] =
    "\nhba: an instance number (see tarncli -g), a WWPN written\n"
    "xx:xx:xx:xx:xx:xx:xx:xx, or \"all\" (the default).\n"
    "Add -x or -x2 for XML output, -j for JSON, -o FILE to append the report\n"
    "to a file.\n";

constexpr uint32_t kAny = TARN_MAX_SUBARGS;  // a command not yet available takes any arguments

// The commands of the usage list, in usage order.
const std::vector<CommandSpec> kCommands = {
    {TARN_CMD_GENERAL, {"g"}, "[hba]", "General host information",
     "Shows the host (name, operating system, device library and the backend\n"
     "that answers it) and one line per selected adapter port: instance, model,\n"
     "serial number, port, WWPN, state and speed.  Virtual ports show their port\n"
     "as v<id>.\n",
     0, true, nullptr, nullptr, GeneralReport},
    {TARN_CMD_INFO, {"i"}, "[hba] [vpd]", "General or VPD information of HBAs",
     "Shows the adapter information of each selected port (model, serial number,\n"
     "WWNN, WWPN, port ID, state, speeds, driver, firmware and boot code versions,\n"
     "PCI location and IDs, fabric name) followed by the vital product data of\n"
     "the card.  With \"vpd\", only the vital product data.\n",
     1, true, "vpd", nullptr, InfoReport},
    {TARN_CMD_PARAMS, {"c"}, "[hba]", "HBA parameter settings",
     "Shows the HBA parameters held in the NVRAM of each selected port, one line a\n"
     "parameter: its display name and value, coded values with their meaning\n"
     "(\"2 - Auto\").  Parameters the port's chip does not have are left out.\n"
     "Virtual ports share their physical port's NVRAM and are passed over.\n",
     0, true, nullptr, nullptr, HBAParamsReport},
    {TARN_CMD_TARGETS, {"t"}, "[hba] [target-wwpn]", "Attached devices (disks or tapes)",
     "Lists the targets each selected port sees: target number, WWPN, WWNN, port\n"
     "ID, type (Disk, Tape, NVMe, Array, ...), login status and LUN count, with\n"
     "vendor and product on the next line.  A target WWPN shows that target only;\n"
     "given without an HBA, it shows that target on every port that sees it.\n",
     1, true, nullptr, nullptr, TargetsReport},
    {TARN_CMD_LUNS, {"l"}, "[hba] [target-wwpn [lun]]", "LUN information",
     "Lists the LUNs behind the targets of each selected port: LUN number, device\n"
     "type, product, revision, size, path (Active or Passive) and OS device name.\n"
     "A target WWPN limits the list to that target, and a LUN number to that LUN;\n"
     "the HBA may be left out before a target WWPN.\n",
     2, true, nullptr, nullptr, LunsReport},
    {TARN_CMD_SUMMARY, {"z"}, "[hba]", "Summary report",
     "Summary report: the host, then one line per selected port with its model,\n"
     "WWPN, state, speed, number of targets and LUNs and their total capacity,\n"
     "and a total line.  Targets and LUNs count their paths; the total capacity\n"
     "counts a LUN seen through several paths once.\n",
     0, true, nullptr, nullptr, SummaryReport},
    {TARN_CMD_MODIFY_PARAMS, {"n"}, "hba NAME VALUE [NAME VALUE ...] | hba ACTION",
     "Modify HBA parameters",
     "Changes the HBA parameters in the NVRAM of the selected ports.  NAME is a\n"
     "parameter name or its two-letter alias (DataRate or DR, ConnectionOption or\n"
     "CO, ...; see tarncli -c for the names); a switch may be given as Enable or\n"
     "Disable.  Every name and value is checked before anything is written.\n"
     "Actions:\n"
     "  template [OEM]        load the port's NVRAM template (the board's OEM by\n"
     "                        default)\n"
     "  template-file FILE    load a template file\n"
     "  restore-defaults      restore the default settings, keeping the port's\n"
     "                        names and boot settings\n"
     "  reset-defaults        reset to the defaults, keeping only the port's names\n"
     "  save FILE             save the NVRAM image of one port to FILE\n"
     "  restore FILE          write an NVRAM image saved before to one port\n"
     "  global FILE           write the port's global NVRAM from FILE\n"
     "A change that takes effect only after a reboot says so (XML: Reboot 1,\n"
     "JSON: \"reboot_required\": true).  The exit status is 0 when the change was\n"
     "written, else the status of the refusal (nothing written).\n",
     TARN_MAX_SUBARGS, true, nullptr, nullptr, ModifyParamsReport},
    {TARN_CMD_PERSIST_BIND, {"p"}, "[hba]", "Persistent binding", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_FLASH, {"b"}, "[hba]", "Boot code/firmware update from an image file", nullptr, kAny, true, nullptr,
     "node.hba.utility.flash.enable", nullptr},
    {TARN_CMD_DRIVER_UPDATE, {"d"}, "", "Driver update", nullptr, kAny, false, nullptr, nullptr, nullptr},
    {TARN_CMD_SELECT_LUNS, {"m"}, "[hba]", "Selective LUNs", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_BOOT_DEVICES, {"e"}, "[hba] [target lun [drive]]", "Boot devices",
     "Shows the boot settings of each selected port (BIOS, selectable boot,\n"
     "selective login, ...) and its FCP boot drives: drive number, target WWPN\n"
     "and LUN.  With a target (its WWPN or its number in tarncli -t) and a LUN,\n"
     "sets boot drive DRIVE (0-7, default 0, the primary) of one port.\n",
     3, true, nullptr, nullptr, BootDevicesReport},
    {TARN_CMD_LED, {"a"}, "[hba]", "Port LED state and locate", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_LOOPBACK, {"kl"}, "[hba]", "Loopback test", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_RWBUFFER, {"kr"}, "[hba]", "Read/write buffer test", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_DRV_SETTINGS_GET, {"fg"}, "[hba]", "Driver settings (display)", nullptr, kAny, true, nullptr, nullptr,
     nullptr},
    {TARN_CMD_DRV_SETTINGS_SET, {"fs"}, "[hba]", "Driver settings (change)", nullptr, kAny, true, nullptr, nullptr,
     nullptr},
    {TARN_CMD_STATISTICS, {"gs"}, "[hba]", "Statistics", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_LINK_STATUS, {"ls"}, "[hba]", "Link status", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TARGET_BEACON, {"tb"}, "[hba]", "Target beacon", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TRANSCEIVER, {"dm"}, "[hba]", "Transceiver diagnostics", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TOPOLOGY, {"tp", "topology"}, "[hba]", "SAN topology", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_HBA_ALIAS, {"ha"}, "[hba]", "HBA alias", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_PORT_ALIAS, {"pa"}, "[hba]", "Port alias", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_IIDMA, {"q"}, "[hba]", "iiDMA settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_PL, {"pl"}, "[hba]", "Port link settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TM, {"tm"}, "[hba]", "Target mode settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_VPORTS, {"vp"}, "[hba]", "Virtual ports", nullptr, kAny, true, nullptr, "node.hba.virtual.vport.enable",
     nullptr},
    {TARN_CMD_U, {"u"}, "[hba]", "Utilities", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_SP, {"sp"}, "[hba]", "Security settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_PC, {"pc"}, "[hba]", "Port congestion settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_FWDUMP, {"fwdump"}, "[hba]", "Firmware dump", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_EI, {"ei"}, "[hba]", "Event information", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_VERSION, {"v"}, "", "Version", "Shows the version of tarncli and of its libraries.\n", 0, false, nullptr,
     nullptr, VersionReport},
    {TARN_CMD_HELP, {"h", "?"}, "[command]", "This page, or help on one command (-h -t)",
     "Shows the usage page, or the help of one command.\n", 0, false, nullptr, nullptr, nullptr},
};

void Print(const std::string &text) { scfxPrint(text.c_str()); }

// Shown in the usage's list of commands: what this version runs, and help.
bool Listed(const CommandSpec &c) { return c.walk != nullptr || c.id == TARN_CMD_HELP; }

std::string Words(const CommandSpec &c, const char *separator) {
    std::string words;
    for (const char *w : c.words) words += (words.empty() ? "-" : std::string(separator) + "-") + w;
    return words;
}

}  // namespace

const std::vector<CommandSpec> &Commands() { return kCommands; }

const CommandSpec *FindCommand(const std::string &arg) {
    if (arg.size() < 2 || (arg[0] != '-' && arg[0] != '/')) return nullptr;
    for (const CommandSpec &c : kCommands)
        for (const char *w : c.words)
            if (strcasecmp(arg.c_str() + 1, w) == 0) return &c;
    return nullptr;
}

const CommandSpec *FindCommandById(int32_t id) {
    for (const CommandSpec &c : kCommands)
        if (c.id == id) return &c;
    return nullptr;
}

std::string OptionWords(const CommandSpec &c) { return Words(c, "/"); }

std::string UsageText() {
    std::string text = "Usage: tarncli [switches] <command> [hba] [arguments]\n\nCommands:\n";
    for (const CommandSpec &c : kCommands) {
        if (!Listed(c)) continue;
        std::string synopsis = "  " + Words(c, ", ") + (c.grammar[0] != '\0' ? " " : "") + c.grammar;
        synopsis.resize(std::max<size_t>(synopsis.size() + 2, 32), ' ');
        text += synopsis + c.summary + "\n";
    }
    text +=
        "  hba: an instance number (see -g), a WWPN, or \"all\" (the default).\n"
        "\n"
        "Switches (at the beginning or the end of the command line):\n"
        "  -x, -x2     XML output, format 1 or format 2\n"
        "  -j          JSON output\n"
        "  -s          Silent: print nothing, only set the exit status\n"
        "  -o FILE     Append the output to FILE (-o system: the system log)\n"
        "  -f FILE     Read the command from FILE (one command per file; alone)\n"
        "Options may also be written with \"/\" in place of \"-\".\n"
        "\n";
    std::string line = "Not available in this version:";
    for (const CommandSpec &c : kCommands) {
        if (Listed(c)) continue;
        const std::string word = " " + OptionWords(c);
        if (line.size() + word.size() > Sink::kWidth) {
            text += line + "\n";
            line = " ";
        }
        line += word;
    }
    text += line + ",\n  and the interactive menu (int).\n\n";
    return text + kStatuses;
}

std::string CommandHelpText(int32_t id) {
    const CommandSpec *c = FindCommandById(id);
    if (c == nullptr) return "";
    if (c->help == nullptr || (c->walk == nullptr && c->id != TARN_CMD_HELP))
        return OptionWords(*c) + "  " + c->summary + "\n\nThis command is not available in this version of tarncli.\n";
    std::string text = "Usage: tarncli " + Words(*c, ", ") + (c->grammar[0] != '\0' ? " " : "") + c->grammar +
                       "\n\n" + c->help;
    if (c->selectsPorts) text += kHbaHelp;
    return text + "\n" + kStatuses;
}

void ReportFailure(int32_t output, int32_t status, const std::string &message) {
    MakeSink(output)->Fail(status, message);
}

int32_t ProcessCommand(const TarnCommand *command) {
    const TarnCommand &cmd = *command;
    if (bParseErr) {
        std::string message = cmd.ErrorText;
        if (cmd.Output == TARN_OUTPUT_TEXT) message += "\nRun 'tarncli -h' for the usage.";
        const int32_t status = cmd.ParseStatus != 0 ? cmd.ParseStatus : TARN_STATUS_UNKNOWN_PARAM;
        ReportFailure(cmd.Output, status, message);
        return status;
    }
    if (bMenu) {
        // The interactive menu is not part of this version: show the usage.
        Print(UsageText());
        return 0;
    }
    if (cmd.Command == TARN_CMD_NONE) {
        ReportFailure(cmd.Output, TARN_STATUS_UNKNOWN_PARAM, "Error: No command given! Run 'tarncli -h' for the usage.");
        return TARN_STATUS_UNKNOWN_PARAM;
    }
    const CommandSpec *spec = FindCommandById(cmd.Command);
    if (spec == nullptr || spec->walk == nullptr) {
        ReportFailure(cmd.Output, TARN_STATUS_NOT_PERMITTED,
                      std::string(cmd.Option) + " (" + (spec != nullptr ? spec->summary : "") +
                          "): not available in this version of tarncli.");
        return TARN_STATUS_NOT_PERMITTED;
    }
    const std::unique_ptr<Sink> sink = MakeSink(cmd.Output);
    const Result result = spec->walk(cmd, *sink);
    if (result.status != 0) sink->Fail(result.status, result.message);
    else sink->Close();
    return result.status;
}

void ShowHelp(const TarnCommand *command) {
    if (command->Command == TARN_CMD_NONE || command->Command == TARN_CMD_HELP) Print(UsageText());
    else Print(CommandHelpText(command->Command));
}

}  // namespace vt::cli
