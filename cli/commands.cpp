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
    "  136  output switch error  66   command not available or disabled\n";

constexpr const char kHbaHelp[] =
    "\nhba: an instance number (see tarncli -g), a WWPN written\n"
    "xx:xx:xx:xx:xx:xx:xx:xx, an alias (-ha, -pa), or \"all\" (the default).\n"
    "Add -x or -x2 for XML output, -j for JSON, -o FILE to append the report\n"
    "to a file.\n";

constexpr uint32_t kAny = TARN_MAX_SUBARGS;  // a command not yet available takes any arguments

// The commands of the usage list, in usage order.
// clang-format off
const std::vector<CommandEntry> kCommands = {
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
    {TARN_CMD_PERSIST_BIND, {"p"}, "[hba] [bind|unbind target-wwpn|all [target]]", "Persistent binding",
     "Lists the persistent target bindings of each selected port in the driver's\n"
     "configuration file: target number, device instance, WWPN, WWNN, port ID and\n"
     "whether the port sees the target now.  \"bind\" binds a target the port sees\n"
     "(or all of them) to the lowest free target number or to the one given;\n"
     "\"unbind\" removes the binding of a target (or all).  A change names one\n"
     "port and takes effect when the driver is loaded again.\n",
     3, true, "bind|unbind", nullptr, PersistentBindingReport},
    {TARN_CMD_FLASH, {"b"}, "hba file [-y]", "Boot code/firmware update from an image file",
     "Checks an image file (a multi-image file, bare or in a PLDM package, or a\n"
     "boot code file) against the card of each selected port and lists, per\n"
     "component, the version in the card's flash and the one the file brings.\n"
     "Then it asks for confirmation on standard error (answer y; -y does not ask)\n"
     "and writes each card's components in one step; the vital product data and\n"
     "NVRAM are kept.  The card runs the new image after a reboot.  Nothing is\n"
     "written when the file does not fit every selected card, or when the answer\n"
     "is not y (exit status 66).  The hba must be given (\"all\": every card).\n"
     "Enabled by node.hba.utility.flash.enable=1 in tgcli.properties.\n",
     2, true, nullptr, "node.hba.utility.flash.enable", FlashUpdateReport},
    {TARN_CMD_DRIVER_UPDATE, {"d"}, "", "Driver update", nullptr, kAny, false, nullptr, nullptr, nullptr},
    {TARN_CMD_SELECT_LUNS, {"m"}, "[hba] [target-wwpn [enable|disable luns]]", "Selective LUNs",
     "Shows, for the targets of each selected port, which LUNs the driver presents\n"
     "to the host (selected) and which it masks.  \"enable\" or \"disable\" with LUN\n"
     "numbers (0,2,5-7) or \"all\" changes the selection of one target of one port;\n"
     "a target that is not bound yet is bound first (see -p).\n",
     3, true, nullptr, nullptr, SelectiveLunsReport},
    {TARN_CMD_BOOT_DEVICES, {"e"}, "[hba] [target lun [drive]|nvme target nsid|nvme drive clear]",
     "Boot devices",
     "Shows the boot settings of each selected port (BIOS, selectable boot,\n"
     "selective login, ...), its FCP boot drives (drive number, target WWPN and\n"
     "LUN) and its FC-NVMe boot drives.  With a target (its WWPN or its number\n"
     "in tarncli -t) and a LUN, sets boot drive DRIVE (0-7, default 0, the\n"
     "primary) of one port.  \"nvme\" with an FC-NVMe target and a namespace ID\n"
     "adds an FC-NVMe boot drive; \"nvme DRIVE clear\" removes one (the later\n"
     "drives move up).\n",
     3, true, nullptr, nullptr, BootDevicesReport},
    {TARN_CMD_LED, {"a"}, "[hba]", "Port LED state and locate", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_LOOPBACK, {"kl"}, "[hba] [NAME=VALUE ...]", "Loopback test",
     "Runs the loopback test on each selected physical port at once (\"all\"\n"
     "leaves the virtual ports out) and reports each port's outcome: test\n"
     "status, runs, failed runs, iterations, whether it was stopped, and the CRC,\n"
     "disparity and frame length errors.  ENTER or Ctrl-C stops the test.\n"
     "Parameters (name or alias, any case):\n"
     "  DataPattern   DP  Random (default), CRPAT, CSPAT, CJTPAT, 16 hex digits,\n"
     "                    or a hex byte (only the first two hex digits count)\n"
     "  DataSize      DS  8, 16, ... 32768, 65535 or 65536 bytes (512)\n"
     "  TestCount     TC  0-65535; 0 runs until stopped (10)\n"
     "  TestIncrement TI  iterations per run, less than TestCount (1)\n"
     "  OnError       OE  0 ignore, 1 stop, 2 loop on error (0)\n"
     "  LoopbackType  LT  0 internal 10 bit, 1 or 4 internal 1 bit, 2 external\n"
     "                    or echo, 3 FCoE echo (0)\n"
     "A failed test ends with the result code of its first failed run: 40\n"
     "parameter error, 41 loop down, 42 frame errors, 61 not supported, 1 other.\n",
     6, true, nullptr, nullptr, LoopbackReport},
    {TARN_CMD_RWBUFFER, {"kr"}, "[hba] [NAME=VALUE ...]", "Read/write buffer test",
     "Runs WRITE BUFFER / READ BUFFER pairs to LUN 0 of every logged-in FCP\n"
     "target of each selected port, compares the data, and reports per target\n"
     "the status, runs, data miscompares and the target's link error counters.\n"
     "ENTER or Ctrl-C stops the test.  Parameters (name or alias, any case):\n"
     "  DataPattern   DP  Random (default) or a hex pattern\n"
     "  DataSize      DS  8, 16, 32, 64 or 128 bytes (8)\n"
     "  TestCount     TC  0-10000; 0 runs until stopped (10)\n"
     "  TestIncrement TI  1-10000, less than TestCount (1)\n"
     "  OnError       OE  0 ignore, 1 stop, 2 loop on error (0)\n"
     "A miscompare or a failed target ends with status 1.\n",
     5, true, nullptr, nullptr, ReadWriteBufferReport},
    {TARN_CMD_DRV_SETTINGS_GET, {"fg"}, "[hba]", "Driver settings (display)",
     "Shows the driver module of each selected port, its \"options\" line in the\n"
     "module option file and the parameters set on it.\n",
     0, true, nullptr, nullptr, DriverSettingsReport},
    {TARN_CMD_DRV_SETTINGS_SET, {"fs"}, "[hba] name=value...", "Driver settings (change)",
     "Sets parameters on the \"options\" line of the driver module of the selected\n"
     "ports (the line is added when there is none; a commented-out line stays as\n"
     "it is); \"name=\" removes a parameter.  Then shows the settings as -fg does.\n"
     "They take effect when the driver is loaded again.\n",
     TARN_MAX_SUBARGS, true, nullptr, nullptr, SetDriverSettingsReport},
    {TARN_CMD_STATISTICS, {"gs"}, "[hba] [NAME=VALUE ...]", "Statistics",
     "Polls the statistics of the selected ports (one table a poll: errors,\n"
     "device errors, resets, I/O count, I/O per second, bytes per second) and\n"
     "reports the last poll of each port.  R clears the counters at the next\n"
     "poll; ENTER stops.  Parameters (name or alias, any case):\n"
     "  AutoPoll      AP  number of polls, 1-256; 0 polls until ENTER (0)\n"
     "  SetRate       SR  seconds between polls, 0 or 5-300 (5)\n"
     "  LogToFile     LF  CSV file each poll is appended to\n"
     "  DeviceFilter  DF  1 only the selected ports, 0 every port (1 when a\n"
     "                    port is selected, else 0)\n"
     "  PromFile      PF  file rewritten after each poll in the Prometheus text\n"
     "                    format (for a textfile collector)\n",
     5, true, nullptr, nullptr, StatisticsReport},
    {TARN_CMD_LINK_STATUS, {"ls"}, "[hba] [NAME=VALUE ...]", "Link status",
     "Polls the link error counters of each selected port and of the targets it\n"
     "sees (link failure, loss of sync, loss of signal, invalid CRC, primitive\n"
     "sequence protocol errors, invalid transmission words) and reports the\n"
     "totals.  R resets the current counters, C shows them, T shows the totals,\n"
     "ENTER stops.  Parameters (name or alias, any case):\n"
     "  AutoPoll      AP  number of polls, 1-256; 0 polls until ENTER (0)\n"
     "  SetRate       SR  seconds between polls, 0 or 5-300 (5)\n"
     "  LogToFile     LF  CSV file of the ports' lines; the targets' lines go to\n"
     "                    FILE with \"_targets\" before its extension\n"
     "  PromFile      PF  file rewritten after each poll in the Prometheus text\n"
     "                    format (for a textfile collector)\n",
     4, true, nullptr, nullptr, LinkStatusReport},
    {TARN_CMD_TARGET_BEACON, {"tb"}, "[hba]", "Target beacon", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TRANSCEIVER, {"dm"}, "[hba]", "Transceiver diagnostics", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TOPOLOGY, {"tp", "topology"}, "[hba]", "SAN topology", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_HBA_ALIAS, {"ha"}, "[hba] [set alias|delete]", "HBA alias",
     "Shows the alias of the adapter of each selected port, or sets (\"set\") or\n"
     "deletes (\"delete\") the alias of one adapter.  An alias has at most 256\n"
     "characters; setting a single blank clears it.  An alias may name the HBA of\n"
     "any command: a port alias its port, an adapter alias all ports of its card.\n",
     2, true, "set|delete", nullptr, HbaAliasReport},
    {TARN_CMD_PORT_ALIAS, {"pa"}, "[hba] [set alias|delete]", "Port alias",
     "Shows the alias of each selected port, or sets (\"set\") or deletes\n"
     "(\"delete\") the alias of one port.  An alias has at most 256 characters;\n"
     "setting a single blank clears it.\n",
     2, true, "set|delete", nullptr, PortAliasReport},
    {TARN_CMD_IIDMA, {"q"}, "[hba]", "iiDMA settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_PL, {"pl"}, "[hba]", "Port link settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_TM, {"tm"}, "[hba]", "Target mode settings", nullptr, kAny, true, nullptr, nullptr, nullptr},
    {TARN_CMD_VPORTS, {"vp"}, "[hba] [list|create|delete|qos|rebalance ...]", "Virtual ports",
     "Lists the virtual ports of each selected physical port with their QoS share\n"
     "(a percentage of the port, or a speed) and the bandwidth it gives.  On one\n"
     "port:\n"
     "  create [byte]          a new vPort; its WWPN is the port's with the second\n"
     "                         byte replaced (the hexadecimal byte given, above 03)\n"
     "  delete vport|all       delete a vPort (WWPN or vPort ID) or all of them\n"
     "  qos vport N[%]|NG [lock id...]\n"
     "                         set a percentage (taken from the other unlocked\n"
     "                         vPorts) or a speed in Gb/s\n"
     "  rebalance              share the port equally among its QoS vPorts\n"
     "Needs node.hba.virtual.vport.enable=1 in tgcli.properties.  Statuses: 61 the\n"
     "port takes no (more) vPorts or no QoS; 8 no such vPort; 48 a bad value; 66\n"
     "the adapter refused (link down, busy).\n",
     TARN_MAX_SUBARGS, true, "list|create|delete|qos|rebalance", "node.hba.virtual.vport.enable",
     VirtualPortsReport},
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
// clang-format on

void Print(const std::string &text) { scfxPrint(text.c_str()); }

// Shown in the usage's list of commands: what this version runs, and help.
bool Listed(const CommandEntry &c) { return c.walk != nullptr || c.id == TARN_CMD_HELP; }

std::string Words(const CommandEntry &c, const char *separator) {
    std::string words;
    for (const char *w : c.words) words += (words.empty() ? "-" : std::string(separator) + "-") + w;
    return words;
}

}  // namespace

const std::vector<CommandEntry> &Commands() { return kCommands; }

const CommandEntry *FindCommand(const std::string &arg) {
    if (arg.size() < 2 || (arg[0] != '-' && arg[0] != '/')) return nullptr;
    for (const CommandEntry &c : kCommands)
        for (const char *w : c.words)
            if (strcasecmp(arg.c_str() + 1, w) == 0) return &c;
    return nullptr;
}

const CommandEntry *FindCommandById(int32_t id) {
    for (const CommandEntry &c : kCommands)
        if (c.id == id) return &c;
    return nullptr;
}

std::string OptionWords(const CommandEntry &c) { return Words(c, "/"); }

std::string UsageText() {
    std::string text = "Usage: tarncli [switches] <command> [hba] [arguments]\nCommands:\n";
    for (const CommandEntry &c : kCommands) {
        if (!Listed(c)) continue;
        std::string synopsis = "  " + Words(c, ", ") + (c.grammar[0] != '\0' ? " " : "") + c.grammar;
        synopsis.resize(std::max<size_t>(synopsis.size() + 2, 32), ' ');
        text += synopsis + c.summary + "\n";
    }
    text +=
        "  hba: an instance number (see -g), a WWPN, an alias, or \"all\" (the default).\n"
        "\n"
        "Switches (first or last; \"/\" may replace \"-\" in every option):\n"
        "  -x, -x2     XML output, format 1 or format 2\n"
        "  -j          JSON output\n"
        "  -s          Silent: print nothing, only set the exit status\n"
        "  -o FILE     Append the output to FILE (-o system: the system log)\n"
        "  -f FILE     Read the command from FILE (one command per file; alone)\n"
        "\n";
    std::string line = "Not available in this version:";
    for (const CommandEntry &c : kCommands) {
        if (Listed(c)) continue;
        const std::string word = " " + OptionWords(c);
        if (line.size() + word.size() > Sink::kWidth) {
            text += line + "\n";
            line = " ";
        }
        line += word;
    }
    // The menu goes on the last line when it fits there.
    const std::string menu = ", and the interactive menu (int).";
    if (line.size() + menu.size() > Sink::kWidth) {
        text += line + "\n";
        line = " ";
    }
    text += line + menu + "\n\n";
    return text + kStatuses;
}

std::string CommandHelpText(int32_t id) {
    const CommandEntry *c = FindCommandById(id);
    if (c == nullptr) return "";
    if (c->help == nullptr || (c->walk == nullptr && c->id != TARN_CMD_HELP))
        return OptionWords(*c) + "  " + c->summary + "\n\nThis command is not available in this version of tarncli.\n";
    std::string text =
        "Usage: tarncli " + Words(*c, ", ") + (c->grammar[0] != '\0' ? " " : "") + c->grammar + "\n\n" + c->help;
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
        ReportFailure(cmd.Output, TARN_STATUS_UNKNOWN_PARAM,
                      "Error: No command given! Run 'tarncli -h' for the usage.");
        return TARN_STATUS_UNKNOWN_PARAM;
    }
    const CommandEntry *entry = FindCommandById(cmd.Command);
    if (entry == nullptr || entry->walk == nullptr) {
        ReportFailure(cmd.Output, TARN_STATUS_NOT_PERMITTED,
                      std::string(cmd.Option) + " (" + (entry != nullptr ? entry->summary : "") +
                          "): not available in this version of tarncli.");
        return TARN_STATUS_NOT_PERMITTED;
    }
    const std::unique_ptr<Sink> sink = MakeSink(cmd.Output);
    const Result result = entry->walk(cmd, *sink);
    if (result.status != 0) sink->Fail(result.status, result.message);
    else sink->Close();
    return result.status;
}

void ShowHelp(const TarnCommand *command) {
    if (command->Command == TARN_CMD_NONE || command->Command == TARN_CMD_HELP) Print(UsageText());
    else Print(CommandHelpText(command->Command));
}

}  // namespace vt::cli
