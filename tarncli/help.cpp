// Usage page and per-command help of tarncli.
#include "tarncli.h"

namespace tarn {
namespace {

constexpr const char kStatuses[] =
    "Exit status:\n"
    "  0    success              48   bad parameter value\n"
    "  8    no adapter port      60   unknown or unexpected parameter\n"
    "       found or selected    66   command not available or disabled\n"
    "  136  output switch error (-o, -f, -x with help)\n";

struct CommandHelp {
    int32_t command;
    const char *synopsis;
    const char *text;
};

const CommandHelp kHelp[] = {
    {TARN_CMD_GENERAL, "tarncli -g [hba]",
     "Shows the host (name, operating system, device library) and one line per\n"
     "selected adapter port: instance, model, serial number, port, WWPN, state\n"
     "and speed.  Virtual ports show their port as v<id>.\n"},
    {TARN_CMD_INFO, "tarncli -i [hba] [vpd]",
     "Shows the adapter information of each selected port (model, serial number,\n"
     "WWNN, WWPN, port ID, state, speeds, driver, firmware and boot code versions,\n"
     "PCI location and IDs, fabric name) followed by the vital product data of\n"
     "the card.  With \"vpd\", only the vital product data.\n"},
    {TARN_CMD_TARGETS, "tarncli -t [hba] [target-wwpn]",
     "Lists the targets each selected port sees: target number, WWPN, WWNN, port\n"
     "ID, type (Disk, Tape, NVMe, Array, ...), login status and LUN count, with\n"
     "vendor and product on the next line.  A target WWPN shows that target only;\n"
     "given without an HBA, it shows that target on every port that sees it.\n"},
    {TARN_CMD_LUNS, "tarncli -l [hba] [target-wwpn [lun]]",
     "Lists the LUNs behind the targets of each selected port: LUN number, device\n"
     "type, product, revision, size, path (Active or Passive) and OS device name.\n"
     "A target WWPN limits the list to that target, and a LUN number to that LUN;\n"
     "the HBA may be left out before a target WWPN.\n"},
    {TARN_CMD_SUMMARY, "tarncli -z [hba]",
     "Summary report: the host, then one line per selected port with its model,\n"
     "WWPN, state, speed, number of targets and LUNs and their total capacity,\n"
     "and a total line.  Targets and LUNs count their paths; the total capacity\n"
     "counts a LUN seen through several paths once.\n"},
    {TARN_CMD_VERSION, "tarncli -v", "Shows the version of tarncli and of its libraries.\n"},
};

}  // namespace

void PrintUsage() {
    Out("Usage: tarncli [switches] <command> [hba] [arguments]\n"
        "\n"
        "Commands:\n"
        "  -g [hba]                      General host information\n"
        "  -i [hba] [vpd]                Adapter information and vital product data\n"
        "  -t [hba] [target-wwpn]        Attached targets (disks, tapes, NVMe)\n"
        "  -l [hba] [target-wwpn [lun]]  LUN information\n"
        "  -z [hba]                      Summary report\n"
        "  -v                            Version\n"
        "  -h, -? [command]              This page, or help on one command (-h -t)\n"
        "  hba: an instance number (see -g), a WWPN, or \"all\" (the default).\n"
        "\n"
        "Switches (at the beginning or the end of the command line):\n"
        "  -x, -x2     XML output, format 1 or format 2\n"
        "  -s          Silent: print nothing, only set the exit status\n"
        "  -o FILE     Append the output to FILE (-o system: the system log)\n"
        "  -f FILE     Read the command from FILE (one command per file; alone)\n"
        "Options may also be written with \"/\" in place of \"-\".\n"
        "\n"
        "Not available in this version: -c -n -p -b -d -m -e -a -kl -kr -fg -fs -gs\n"
        "  -ls -tb -dm -tp/-topology -ha -pa -q -pl -tm -vp -u -sp -pc -fwdump -ei,\n"
        "  and the interactive menu (int).\n"
        "\n");
    Out("%s", kStatuses);
}

void PrintCommandHelp(int32_t command) {
    for (const auto &h : kHelp) {
        if (h.command != command) continue;
        Out("Usage: %s\n\n%s", h.synopsis, h.text);
        if (command != TARN_CMD_VERSION)
            Out("\nhba: an instance number (see tarncli -g), a WWPN written\n"
                "xx:xx:xx:xx:xx:xx:xx:xx, or \"all\" (the default).\n"
                "Add -x or -x2 for XML output, -o FILE to append the report to a file.\n");
        Out("\n%s", kStatuses);
        return;
    }
    Out("%s  %s\n\nThis command is not available in this version of tarncli.\n", TarnCommandOption(command),
        TarnCommandDescription(command));
}

}  // namespace tarn
