// vtsdm-sim: shows the simulated host and changes its state for tests and
// demonstrations.  "show" walks whichever backend answers through the SD...
// calls exactly as a management program would; the other commands work on
// the simulated host.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backend.h"
#include "host.h"
#include "simulator.h"
#include "sysfs_export.h"
#include "vtsdm.h"

namespace {

const char *kUsage =
    "usage: vtsdm-sim [--host FILE] COMMAND [ARGS]\n"
    "\n"
    "Commands:\n"
    "  show [--luns N]            the backend that answers, then adapters, ports,\n"
    "                             targets and LUNs (at most N LUNs per target,\n"
    "                             default 16; 0 shows all)\n"
    "  check                      load the host file and report the first problem\n"
    "  reset                      forget every persisted change of this host\n"
    "  event INSTANCE CODE...     queue events: lip, linkup, linkdown, lipreset, scr,\n"
    "                             device, dport, fec or a number, each optionally\n"
    "                             with payload words: CODE:P0[:P1[:P2]]\n"
    "  link INSTANCE STATE        online, linkdown, offline, bypassed, diagnostics,\n"
    "                             error or dport (queues the link event)\n"
    "  counters INSTANCE NAME=N.. add to counters: io_count, megabytes, errors,\n"
    "                             device_errors, link_failure, loss_of_sync,\n"
    "                             loss_of_signal, invalid_crc, invalid_tx_words,\n"
    "                             primitive_seq_errors, tx_frames, rx_frames\n"
    "  flags INSTANCE NAME=on|off.. port conditions: maintenance, lockdown (the port then\n"
    "                             refuses NVRAM and flash writes), reboot_required\n"
    "  nvram INSTANCE read-faults N | write-faults N | corrupt\n"
    "                             the next N NVRAM reads or writes fail; or store the\n"
    "                             port's NVRAM image with a wrong checksum\n"
    "  port-reset INSTANCE        reset the port: NVRAM settings a reset applies (data\n"
    "                             rate, port disable) take effect\n"
    "  nvme-boot INSTANCE 334|377 the FC-NVMe boot region the card's record names active\n"
    "  flash INSTANCE fault read|write N\n"
    "                             the next N flash region reads or writes of the\n"
    "                             instance's card fail\n"
    "  flash INSTANCE restart     restart the card: an updated flash no longer\n"
    "                             waits for a reboot\n"
    "  vport-fault INSTANCE N      fail the next N virtual-port creations on that\n"
    "                             physical port (0 clears)\n"
    "  diag INSTANCE STEP...      the port's next loopback answers, in order: pass,\n"
    "                             busy, nodevice, corrupt or status=N,crc=N,\n"
    "                             disparity=N,frame=N, each optionally *N (repeat);\n"
    "                             \"diag INSTANCE clear\" removes the script\n"
    "  miscompare INSTANCE N      the next N READ BUFFERs on the port return changed data\n"
    "  traffic INSTANCE io_per_second=N mb_per_second=N\n"
    "                             the rates at which the port's counters grow\n"
    "  target INSTANCE WWPN login|logout|remove|restore\n"
    "                             change a target now (queues the device event)\n"
    "  target-errors INSTANCE WWPN NAME=N...\n"
    "                             add to a target's link error counters (link_failure,\n"
    "                             loss_of_sync, loss_of_signal, primitive_seq_errors,\n"
    "                             invalid_tx_words, invalid_crc)\n"
    "  clock [set SECONDS | advance SECONDS | run]\n"
    "                             show the simulated clock (epoch seconds), freeze it\n"
    "                             at a time, move it, or let it run on from there\n"
    "  export-sysfs DIR           write DIR/sys as the kernel's FC transport would show\n"
    "                             this host (run it again after a program wrote to a\n"
    "                             control attribute there: it acts on the write)\n"
    "\n"
    "show uses the backend VTSDM_BACKEND (sim or linux), <install>/data/vtsdm.conf or\n"
    "the machine chooses; the other commands always work on the simulated host.\n"
    "The host file is $VTSDM_HOST or <install>/data/default_host.json; state is\n"
    "kept in $VTSDM_STATE_DIR or $VTAPI_SYSROOT/var/lib/vtsdm.\n";

std::string Wwn(const uint8_t b[8]) { return vtsdm::FormatWwn(vtsdm::WwnFromBytes(b)); }

const char *StateName(uint16_t s) {
    switch (s) {
    case SD_PORTSTATE_ONLINE: return "Online";
    case SD_PORTSTATE_LINKDOWN: return "Link down";
    case SD_PORTSTATE_OFFLINE: return "Offline";
    case SD_PORTSTATE_BYPASSED: return "Bypassed";
    case SD_PORTSTATE_DIAGNOSTICS: return "Diagnostics";
    case SD_PORTSTATE_ERROR: return "Error";
    default: return "Unknown";
    }
}

const char *SpeedName(uint32_t code) {
    switch (code) {
    case SD_SPEED_1G: return "1 Gb/s";
    case SD_SPEED_2G: return "2 Gb/s";
    case SD_SPEED_4G: return "4 Gb/s";
    case SD_SPEED_8G: return "8 Gb/s";
    case SD_SPEED_10G: return "10 Gb/s";
    case SD_SPEED_16G: return "16 Gb/s";
    case SD_SPEED_20G: return "20 Gb/s";
    case SD_SPEED_32G: return "32 Gb/s";
    case SD_SPEED_64G: return "64 Gb/s";
    case SD_SPEED_128G: return "128 Gb/s";
    default: return "-";
    }
}

const char *DeviceTypeName(uint8_t t) {
    switch (t) {
    case 0x00: return "Disk";
    case 0x01: return "Tape";
    case 0x05: return "CD/DVD";
    case 0x08: return "Changer";
    case 0x0C: return "Controller";
    case 0x0D: return "Enclosure";
    default: return "Other";
    }
}

std::string Trim(const uint8_t *p, size_t n) {
    std::string s(reinterpret_cast<const char *>(p), n);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

std::string Capacity(uint64_t bytes) {
    const char *units[] = {"B", "KB", "MB", "GB", "TB", "PB"};
    double v = double(bytes);
    int u = 0;
    while (v >= 1000.0 && u < 5) {
        v /= 1000.0;
        ++u;
    }
    char buf[32];
    snprintf(buf, sizeof buf, "%.2f %s", v, units[u]);
    return buf;
}

void ShowLuns(uint32_t h, const SDDiscTargetProperty &t, uint32_t maxLuns) {
    std::vector<uint8_t> buf(8 + 8 * 16384);
    uint32_t size = uint32_t(buf.size());
    uint8_t sense[SD_SENSE_BUFFER_SIZE];
    uint32_t senseSize = sizeof sense;
    uint32_t rc = SDSendScsiReportLunsCmdFC(h, t.WWPN, buf.data(), &size, sense, &senseSize);
    if (rc != SDERR_NONE) {
        printf("        REPORT LUNS failed: %s (0x%08x)\n", SDGetErrorString(rc), rc);
        return;
    }
    uint32_t n = ((uint32_t(buf[0]) << 24) | (uint32_t(buf[1]) << 16) | (uint32_t(buf[2]) << 8) | buf[3]) / 8;
    for (uint32_t i = 0; i < n; ++i) {
        if (maxLuns && i == maxLuns) {
            printf("        ... %u more LUNs\n", n - i);
            break;
        }
        const uint8_t *e = &buf[8 + 8 * i];
        uint16_t lun = uint16_t(((e[0] & 0x3F) << 8) | e[1]);
        uint8_t inq[36];
        uint32_t inqSize = sizeof inq;
        senseSize = sizeof sense;
        rc = SDSendScsiInquiryCmdFC(h, t.WWPN, lun, 0, 0, inq, &inqSize, sense, &senseSize);
        if (rc != SDERR_NONE) {
            printf("        LUN %-5u INQUIRY failed: %s\n", lun, SDGetErrorString(rc));
            continue;
        }
        std::string line = "        LUN " + std::to_string(lun);
        line.resize(20, ' ');
        printf("%s%-10s %-8s %-16s %-4s", line.c_str(), DeviceTypeName(inq[0] & 0x1F), Trim(inq + 8, 8).c_str(),
               Trim(inq + 16, 16).c_str(), Trim(inq + 32, 4).c_str());
        if ((inq[0] & 0x1F) == 0) {
            uint8_t cap[32];
            uint32_t capSize = 8;
            senseSize = sizeof sense;
            uint64_t blocks = 0;
            uint32_t blockLen = 0;
            if (SDSendScsiReadCapacityCmdFC(h, t.WWPN, lun, cap, &capSize, sense, &senseSize) == SDERR_NONE) {
                uint32_t last = (uint32_t(cap[0]) << 24) | (uint32_t(cap[1]) << 16) | (uint32_t(cap[2]) << 8) | cap[3];
                blockLen = (uint32_t(cap[4]) << 24) | (uint32_t(cap[5]) << 16) | (uint32_t(cap[6]) << 8) | cap[7];
                blocks = uint64_t(last) + 1;
                if (last == 0xFFFFFFFFu) {
                    capSize = 32;
                    senseSize = sizeof sense;
                    if (SDSendScsiReadCapacityLargeCmdFC(h, t.WWPN, lun, cap, &capSize, sense, &senseSize) ==
                        SDERR_NONE) {
                        uint64_t l = 0;
                        for (int k = 0; k < 8; ++k) l = (l << 8) | cap[k];
                        blocks = l + 1;
                        blockLen =
                            (uint32_t(cap[8]) << 24) | (uint32_t(cap[9]) << 16) | (uint32_t(cap[10]) << 8) | cap[11];
                    }
                }
            }
            printf(" %12s", Capacity(blocks * blockLen).c_str());
            senseSize = sizeof sense;
            if (SDSendScsiTestUnitReadyCmdFC(h, t.WWPN, lun, sense, &senseSize) == SDERR_SCSI_CHECK_CONDITION &&
                (sense[2] & 0x0F) == 0x02)
                printf("  (passive)");
        }
        printf("\n");
    }
}

int Show(uint32_t maxLuns) {
    char name[32] = "", description[512] = "";
    if (SDGetBackendName(name, sizeof name) != SDERR_NONE) return 2;  // the reason is on standard error
    SDGetBackendDescription(description, sizeof description);
    printf("Backend: %s (%s)\n", name, description);
    std::string lastSerial;
    uint32_t found = 0;
    // Created virtual ports may be numbered past the instances a management
    // program probes; the list ends where libvtsdm says so.
    for (uint32_t inst = 0; inst < SD_MAX_INSTANCES * (SD_MAX_VPORTS_PER_PORT + 1); ++inst) {
        uint32_t h = 0;
        uint32_t rc = SDOpenDevice(inst, &h);
        if (rc == SDERR_NO_SUCH_DEVICE) break;
        if (rc != SDERR_NONE) {
            if (rc == SDERR_IO_FAILED && !vtsdm::BackendError().empty()) return 2;
            printf("Instance %u: cannot open: %s (0x%08x)\n", inst, SDGetErrorString(rc), rc);
            continue;
        }
        ++found;
        SDChipProperty chip;
        SDNodeProperty node;
        SDPortProperty port;
        SDDriverProperty drv;
        SDGetHbaDeviceChipProperty(h, &chip);
        SDGetHbaDeviceNodeProperty(h, &node);
        SDGetHbaDevicePortProperty(h, &port);
        SDGetHbaDeviceDriverProperty(h, &drv);
        if (lastSerial != node.SerialNumber) {
            lastSerial = node.SerialNumber;
            printf("\nAdapter %s  S/N %s  (%s)\n", node.Model, node.SerialNumber, node.ModelDescription);
            printf("  PCI %04x:%04x subsystem %04x:%04x  bus %02x device %02x  ISP type %u\n", chip.VendorID,
                   chip.DeviceID, chip.SubVendorID, chip.SubSystemID, chip.PciBusNumber & 0xFF, chip.PciDevFunc >> 3,
                   chip.IspType);
            printf("  Driver %s %s  Firmware %s  Option ROM %s\n", drv.DriverName, drv.DriverVersion,
                   node.FirmwareVersion, node.OptionRomVersion);
        }
        const char *kind = node.Interface == SD_INTERFACE_VPORT  ? "vPort"
                           : node.Interface == SD_INTERFACE_FCOE ? "FCoE port"
                                                                 : "Port";
        printf("  Instance %u: %s %u  WWPN %s  WWNN %s\n", inst, kind,
               node.Interface == SD_INTERFACE_VPORT ? unsigned(node.VPortId) : unsigned(chip.PhysPortNumber),
               Wwn(port.WWPN).c_str(), Wwn(node.WWNN).c_str());
        printf("    %s, %s, port ID %02x:%02x:%02x, %s\n", StateName(port.PortState), SpeedName(port.PortSpeed),
               port.PortId[0], port.PortId[1], port.PortId[2], port.DeviceName);
        SDAenQueueStatus aen;
        if (SDGetAenQueueStatus(h, &aen) == SDERR_NONE && (aen.Queued || aen.Dropped))
            printf("    Events: %u queued (room for %u), %u dropped\n", aen.Queued, aen.Capacity, aen.Dropped);
        uint32_t count = 0;
        SDGetDiscTargetProperties(h, nullptr, &count);
        std::vector<SDDiscTargetProperty> targets(count);
        if (count && SDGetDiscTargetProperties(h, targets.data(), &count) != SDERR_NONE) count = 0;
        for (uint32_t i = 0; i < count; ++i) {
            const auto &t = targets[i];
            printf("    Target %u  WWPN %s  port ID %02x:%02x:%02x  %s%s\n", t.TargetId, Wwn(t.WWPN).c_str(),
                   t.PortId[0], t.PortId[1], t.PortId[2], t.TargetType == SD_TARGETTYPE_NVME ? "NVMe" : "FCP",
                   (t.TargetFlags & SD_TGTFLAG_LOGGED_IN) ? "" : "  (not logged in)");
            if (t.TargetFlags & SD_TGTFLAG_LOGGED_IN) ShowLuns(h, t, maxLuns);
        }
        SDCloseDevice(h);
    }
    if (found == 0) printf("\nNo adapter ports found.\n");
    return 0;
}

bool ParseInstance(const char *s, uint32_t &out) {
    char *end = nullptr;
    unsigned long v = strtoul(s, &end, 10);
    if (!*s || *end || v >= SD_MAX_INSTANCES) {
        fprintf(stderr, "vtsdm-sim: bad instance number '%s' (0-30)\n", s);
        return false;
    }
    out = uint32_t(v);
    return true;
}

int Report(uint32_t rc, const char *what) {
    if (rc == SDERR_NONE) return 0;
    fprintf(stderr, "vtsdm-sim: %s: %s (0x%08x)\n", what, SDGetErrorString(rc), rc);
    return 1;
}

// The NVRAM controls; -1 when `cmd` is none of them (or lacks arguments).
int NvramCommand(vtsdm::Simulator &sim, const std::string &cmd, int argc, char **argv) {
    uint32_t inst = 0;
    if (argc < 2 && cmd != "port-reset") return -1;
    if (argc < 1 || (cmd != "flags" && cmd != "nvram" && cmd != "port-reset" && cmd != "nvme-boot")) return -1;
    if (!ParseInstance(argv[0], inst)) return 2;
    if (cmd == "port-reset") return Report(sim.resetPort(inst), "port-reset");
    if (cmd == "nvme-boot") {
        const std::string region = argv[1];
        if (region != "334" && region != "377") {
            fprintf(stderr, "vtsdm-sim: expected 334 or 377, got '%s'\n", argv[1]);
            return 2;
        }
        return Report(sim.setNvmeBootRegion(inst, uint32_t(std::stoul(region))), "nvme-boot");
    }
    if (cmd == "flags") {
        static const std::map<std::string, uint32_t> names = {{"maintenance", SD_PORTFLAG_MAINTENANCE},
                                                              {"lockdown", SD_PORTFLAG_LOCKDOWN},
                                                              {"reboot_required", SD_PORTFLAG_REBOOT_REQUIRED}};
        uint32_t set = 0, clear = 0;
        for (int k = 1; k < argc; ++k) {
            const std::string a = argv[k];
            const auto eq = a.find('=');
            auto it = names.find(a.substr(0, eq));
            const std::string value = eq == std::string::npos ? "" : a.substr(eq + 1);
            if (it == names.end() || (value != "on" && value != "off")) {
                fprintf(stderr, "vtsdm-sim: expected maintenance, lockdown or reboot_required =on|off, got '%s'\n",
                        argv[k]);
                return 2;
            }
            (value == "on" ? set : clear) |= it->second;
        }
        return Report(sim.setPortFlags(inst, set, clear), "flags");
    }
    const std::string what = argv[1];
    if (what == "corrupt") return Report(sim.corruptNvram(inst), "nvram");
    char *end = nullptr;
    const unsigned long n = argc > 2 ? strtoul(argv[2], &end, 10) : 0;
    if ((what != "read-faults" && what != "write-faults") || argc < 3 || !*argv[2] || *end || n > 1000000) {
        fprintf(stderr, "vtsdm-sim: expected nvram INSTANCE read-faults N, write-faults N or corrupt\n");
        return 2;
    }
    std::optional<uint32_t> reads, writes;
    (what == "read-faults" ? reads : writes) = uint32_t(n);
    return Report(sim.setNvramFaults(inst, reads, writes), "nvram");
}

bool ParseU32(const std::string &s, uint32_t &out) {
    char *end = nullptr;
    unsigned long long v = strtoull(s.c_str(), &end, 0);
    if (s.empty() || *end || s[0] == '-' || v > UINT32_MAX) return false;
    out = uint32_t(v);
    return true;
}

// ---- diagnostics, traffic, targets and the clock

// NAME=N arguments into the named fields of `out`; false (with a message)
// on an unknown name or a bad number.
template <typename Record, typename Field>
bool ParseAssignments(int argc, char **argv, const std::map<std::string, Field Record::*> &fields, Record &out) {
    for (int k = 0; k < argc; ++k) {
        std::string a = argv[k];
        auto eq = a.find('=');
        char *end = nullptr;
        unsigned long long v = eq == std::string::npos ? 0 : strtoull(a.c_str() + eq + 1, &end, 10);
        auto f = fields.find(a.substr(0, eq));
        if (eq == std::string::npos || !end || *end || f == fields.end()) {
            fprintf(stderr, "vtsdm-sim: expected NAME=NUMBER with a known name, got '%s'\n", a.c_str());
            return false;
        }
        out.*(f->second) = Field(v);
    }
    return true;
}

bool ParseTargetWwn(const char *s, uint64_t &out) {
    auto w = vtsdm::ParseWwn(s);
    if (!w) fprintf(stderr, "vtsdm-sim: bad WWPN '%s'\n", s);
    else out = *w;
    return bool(w);
}

// The commands of the diagnostics and monitoring controls; -1 when `cmd`
// is none of them (or lacks its arguments).
int DiagAndMonitorCommand(vtsdm::Simulator &sim, const std::string &cmd, int argc, char **argv) {
    uint32_t inst = 0;
    if (cmd == "clock") {
        const std::string op = argc > 0 ? argv[0] : "";
        double seconds = 0;
        if ((op == "set" || op == "advance") && (argc != 2 || sscanf(argv[1], "%lf", &seconds) != 1)) return -1;
        const int64_t ns = int64_t(seconds * 1e9);
        uint32_t rc = SDERR_NONE;
        if (op == "set") rc = sim.clockSet(ns);
        else if (op == "advance") rc = sim.clockAdvance(ns);
        else if (op == "run") rc = sim.clockRun();
        else if (!op.empty()) return -1;
        if (int r = Report(rc, "clock")) return r;
        const int64_t now = sim.now();
        printf("%lld.%09lld%s\n", static_cast<long long>(now / 1000000000), static_cast<long long>(now % 1000000000),
               sim.store().current().clock.frozen ? " (frozen)" : "");
        return 0;
    }
    if (argc < 2) return -1;
    if (!ParseInstance(argv[0], inst)) return 2;
    if (cmd == "diag") {
        std::vector<vtsdm::DiagStep> steps;
        if (!(argc == 2 && strcmp(argv[1], "clear") == 0))
            for (int k = 1; k < argc; ++k) {
                std::string error;
                auto step = vtsdm::ParseDiagStep(argv[k], error);
                if (!step) {
                    fprintf(stderr, "vtsdm-sim: %s\n", error.c_str());
                    return 2;
                }
                steps.push_back(*step);
            }
        return Report(sim.setDiagScript(inst, steps), "diag");
    }
    if (cmd == "miscompare") {
        uint32_t times = 0;
        if (!ParseU32(argv[1], times)) return -1;
        return Report(sim.setReadBufferMiscompare(inst, times), "miscompare");
    }
    if (cmd == "traffic") {
        vtsdm::TrafficRates rates;
        static const std::map<std::string, uint64_t vtsdm::TrafficRates::*> fields = {
            {"io_per_second", &vtsdm::TrafficRates::ioPerSecond}, {"mb_per_second", &vtsdm::TrafficRates::mbPerSecond}};
        if (!ParseAssignments(argc - 1, argv + 1, fields, rates)) return 2;
        return Report(sim.setTraffic(inst, rates), "traffic");
    }
    if (cmd == "target" && argc == 3) {
        uint64_t wwpn = 0;
        if (!ParseTargetWwn(argv[1], wwpn)) return 2;
        const uint32_t rc = sim.changeTarget(inst, wwpn, argv[2]);
        if (rc == SDERR_INVALID_PARAMETER)
            fprintf(stderr, "vtsdm-sim: unknown change '%s' (login, logout, remove, restore)\n", argv[2]);
        return rc == SDERR_INVALID_PARAMETER ? 2 : Report(rc, "target");
    }
    if (cmd == "target-errors" && argc >= 3) {
        uint64_t wwpn = 0;
        if (!ParseTargetWwn(argv[1], wwpn)) return 2;
        SDLinkErrorStatus d{};
        static const std::map<std::string, uint32_t SDLinkErrorStatus::*> fields = {
            {"link_failure", &SDLinkErrorStatus::LinkFailureCount},
            {"loss_of_sync", &SDLinkErrorStatus::LossOfSyncCount},
            {"loss_of_signal", &SDLinkErrorStatus::LossOfSignalCount},
            {"primitive_seq_errors", &SDLinkErrorStatus::PrimitiveSeqProtocolErrorCount},
            {"invalid_tx_words", &SDLinkErrorStatus::InvalidTransmissionWordCount},
            {"invalid_crc", &SDLinkErrorStatus::InvalidCRCCount}};
        if (!ParseAssignments(argc - 2, argv + 2, fields, d)) return 2;
        return Report(sim.addTargetErrors(inst, wwpn, d), "target-errors");
    }
    return -1;
}

}  // namespace

int main(int argc, char **argv) try {
    int i = 1;
    if (i + 1 < argc && strcmp(argv[i], "--host") == 0) {
        setenv("VTSDM_HOST", argv[i + 1], 1);
        i += 2;
    }
    if (i >= argc || strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
        fputs(kUsage, i >= argc ? stderr : stdout);
        return i >= argc ? 2 : 0;
    }
    const std::string cmd = argv[i++];
    if (cmd == "show") {
        uint32_t maxLuns = 16;
        if (i + 1 < argc && strcmp(argv[i], "--luns") == 0) maxLuns = uint32_t(strtoul(argv[i + 1], nullptr, 10));
        return Show(maxLuns);
    }
    // Everything else works on the simulated host, whatever backend "show" would use.
    setenv("VTSDM_BACKEND", "sim", 1);
    auto access = vtsdm::AcquireBackend();
    vtsdm::Simulator *simulator = vtsdm::ActiveSimulator(access);
    if (!simulator) return 2;  // the reason is already on standard error
    vtsdm::Simulator &sim = *simulator;

    if (cmd == "export-sysfs" && i < argc) {
        try {
            // A tree that exists already may hold control writes to act on.
            if (vtsdm::ApplySysfsWrites(sim, argv[i]) == 0) vtsdm::ExportSysfs(sim, argv[i]);
        } catch (const std::exception &e) {
            fprintf(stderr, "vtsdm-sim: export-sysfs: %s\n", e.what());
            return 1;
        }
        return 0;
    }
    if (cmd == "check") {
        printf("%s: %zu cards, %zu ports\n", sim.host().path.c_str(), sim.host().cards.size(), sim.host().ports.size());
        return 0;
    }
    if (cmd == "reset") return Report(sim.store().reset(), "reset");
    if (cmd == "event" && i + 1 < argc) {
        static const std::map<std::string, uint32_t> names = {
            {"lip", SD_AEN_LIP_OCCURRED},   {"linkup", SD_AEN_LINK_UP}, {"linkdown", SD_AEN_LINK_DOWN},
            {"lipreset", SD_AEN_LIP_RESET}, {"scr", SD_AEN_SCR_UPDATE}, {"device", SD_AEN_DEVICE_UPDATE},
            {"dport", SD_AEN_DPORT_DIAG},   {"fec", SD_AEN_FEC_ACTIVE}};
        uint32_t inst;
        if (!ParseInstance(argv[i++], inst)) return 2;
        for (; i < argc; ++i) {
            // CODE[:P0[:P1[:P2]]]
            std::vector<std::string> words;
            for (std::string rest = argv[i];;) {
                auto colon = rest.find(':');
                words.push_back(rest.substr(0, colon));
                if (colon == std::string::npos) break;
                rest.erase(0, colon + 1);
            }
            SDAenRecord event{};
            auto it = names.find(words[0]);
            bool ok = words.size() <= 4 && (it != names.end() || ParseU32(words[0], event.Code));
            if (it != names.end()) event.Code = it->second;
            for (size_t w = 1; ok && w < words.size(); ++w) ok = ParseU32(words[w], event.Payload[w - 1]);
            if (!ok) {
                fprintf(stderr, "vtsdm-sim: unknown event '%s'\n", argv[i]);
                return 2;
            }
            if (int rc = Report(sim.queueEvent(inst, event), "event")) return rc;
        }
        return 0;
    }
    if (cmd == "link" && i + 1 < argc) {
        static const std::map<std::string, uint16_t> states = {{"online", SD_PORTSTATE_ONLINE},
                                                               {"linkdown", SD_PORTSTATE_LINKDOWN},
                                                               {"offline", SD_PORTSTATE_OFFLINE},
                                                               {"bypassed", SD_PORTSTATE_BYPASSED},
                                                               {"diagnostics", SD_PORTSTATE_DIAGNOSTICS},
                                                               {"error", SD_PORTSTATE_ERROR},
                                                               {"dport", SD_PORTSTATE_ONLINE}};
        uint32_t inst;
        if (!ParseInstance(argv[i++], inst)) return 2;
        auto it = states.find(argv[i]);
        if (it == states.end()) {
            fprintf(stderr, "vtsdm-sim: unknown link state '%s'\n", argv[i]);
            return 2;
        }
        return Report(sim.setLinkState(inst, it->second, strcmp(argv[i], "dport") == 0), "link");
    }
    if (cmd == "vport-fault" && i + 1 < argc) {
        uint32_t inst;
        if (!ParseInstance(argv[i++], inst)) return 2;
        char *end = nullptr;
        const unsigned long n = strtoul(argv[i], &end, 10);
        if (!*argv[i] || *end || n > 1000000) {
            fprintf(stderr, "vtsdm-sim: bad count '%s'\n", argv[i]);
            return 2;
        }
        return Report(sim.armVportCreateFault(inst, uint32_t(n)), "vport-fault");
    }
    if (cmd == "counters" && i + 1 < argc) {
        uint32_t inst;
        if (!ParseInstance(argv[i++], inst)) return 2;
        SDStatistics d{};
        static const std::map<std::string, uint64_t SDStatistics::*> wide = {
            {"io_count", &SDStatistics::TotalIoCount},       {"megabytes", &SDStatistics::TotalMBytes},
            {"errors", &SDStatistics::ControllerErrorCount}, {"device_errors", &SDStatistics::DeviceErrorCount},
            {"tx_frames", &SDStatistics::TxFrames},          {"rx_frames", &SDStatistics::RxFrames}};
        static const std::map<std::string, uint32_t SDStatistics::*> narrow = {
            {"link_failure", &SDStatistics::LinkFailureCount},
            {"loss_of_sync", &SDStatistics::LossOfSyncCount},
            {"loss_of_signal", &SDStatistics::LossOfSignalCount},
            {"invalid_crc", &SDStatistics::InvalidCRCCount},
            {"invalid_tx_words", &SDStatistics::InvalidTransmissionWordCount},
            {"primitive_seq_errors", &SDStatistics::PrimitiveSeqProtocolErrorCount}};
        for (; i < argc; ++i) {
            std::string a = argv[i];
            auto eq = a.find('=');
            std::string name = a.substr(0, eq);
            char *end = nullptr;
            unsigned long long v = eq == std::string::npos ? 0 : strtoull(a.c_str() + eq + 1, &end, 10);
            if (eq == std::string::npos || !end || *end) {
                fprintf(stderr, "vtsdm-sim: expected NAME=NUMBER, got '%s'\n", a.c_str());
                return 2;
            }
            if (auto w = wide.find(name); w != wide.end()) d.*(w->second) += v;
            else if (auto n = narrow.find(name); n != narrow.end()) d.*(n->second) += uint32_t(v);
            else {
                fprintf(stderr, "vtsdm-sim: unknown counter '%s'\n", name.c_str());
                return 2;
            }
        }
        return Report(sim.addCounters(inst, d), "counters");
    }
    if (int rc = NvramCommand(sim, cmd, argc - i, argv + i); rc >= 0) return rc;
    if (cmd == "flash" && i + 1 < argc) {
        uint32_t inst;
        if (!ParseInstance(argv[i++], inst)) return 2;
        const std::string what = argv[i++];
        if (what == "restart" && i == argc) return Report(sim.restartCard(inst), "flash restart");
        if (what == "fault" && i + 2 == argc) {
            const std::string kind = argv[i];
            char *end = nullptr;
            const unsigned long n = strtoul(argv[i + 1], &end, 10);
            if ((kind != "read" && kind != "write") || !*argv[i + 1] || *end || n > 1000000) {
                fprintf(stderr, "vtsdm-sim: expected 'fault read|write N', got '%s %s'\n", argv[i], argv[i + 1]);
                return 2;
            }
            std::optional<uint32_t> count = uint32_t(n);
            return Report(kind == "read" ? sim.setFlashFaults(inst, count, std::nullopt)
                                         : sim.setFlashFaults(inst, std::nullopt, count),
                          "flash fault");
        }
    }
    if (int rc = DiagAndMonitorCommand(sim, cmd, argc - i, argv + i); rc >= 0) return rc;
    fputs(kUsage, stderr);
    return 2;
} catch (const std::exception &e) {
    fprintf(stderr, "vtsdm-sim: %s\n", e.what());
    return 1;
}
