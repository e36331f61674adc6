#include "sysfs_export.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "linux/sysfs.h"
#include "sim_transport.h"
#include "simulator.h"

namespace fs = std::filesystem;

namespace vtsdm {

namespace {

std::string Hex16(uint64_t v) {
    char b[24];
    snprintf(b, sizeof b, "0x%016llx", static_cast<unsigned long long>(v));
    return b;
}

std::string HexN(uint64_t v, int digits) {
    char b[24];
    snprintf(b, sizeof b, "0x%0*llx", digits, static_cast<unsigned long long>(v));
    return b;
}

std::string Padded(const std::string &s, size_t width) {
    std::string out = s.substr(0, width);
    out.resize(width, ' ');
    return out;
}

const char *StateText(uint16_t s) {
    switch (s) {
    case SD_PORTSTATE_ONLINE: return "Online";
    case SD_PORTSTATE_LINKDOWN: return "Linkdown";
    case SD_PORTSTATE_BYPASSED: return "Bypassed";
    case SD_PORTSTATE_DIAGNOSTICS: return "Diagnostics";
    case SD_PORTSTATE_ERROR: return "Error";
    default: return "Offline";
    }
}

std::string SpeedText(uint32_t code) {
    const uint32_t g = GbpsForSpeedCode(code);
    return g ? std::to_string(g) + " Gbit" : "unknown";
}

std::string SpeedListText(uint8_t mask) {
    std::string out;
    for (uint32_t g : {1u, 2u, 4u, 8u, 16u, 32u, 64u})
        if (mask & SupportedBitForGbps(g)) out += (out.empty() ? "" : ", ") + std::to_string(g) + " Gbit";
    return out.empty() ? "unknown" : out;
}

class TreeWriter {
public:
    explicit TreeWriter(std::string root) : root_(std::move(root)), sys_(root_ + "/sys") {}

    const std::string &sys() const { return sys_; }

    void dir(const std::string &path) { fs::create_directories(path); }

    void file(const std::string &path, const std::string &text, bool newline = true) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << text;
        if (newline) out << '\n';
        if (!out) throw std::runtime_error("cannot write " + path);
    }

    // A relative link at `link` to `target`, as sysfs has them.
    void link(const std::string &link, const std::string &target) {
        fs::create_directories(fs::path(link).parent_path());
        std::error_code ec;
        if (fs::is_symlink(link, ec)) return;  // the first one wins (shared block names)
        fs::create_symlink(fs::relative(target, fs::path(link).parent_path()), link);
    }

private:
    std::string root_, sys_;
};

struct HostDirs {
    uint32_t hostNo = 0;
    std::string dir;  // device directory of the SCSI host
};

class Exporter {
public:
    Exporter(Simulator &sim, const std::string &root) : sim_(sim), w_(root), root_(root) {}

    void run() {
        std::error_code ec;
        fs::remove_all(w_.sys(), ec);
        w_.dir(w_.sys() + "/devices");
        writeMarker();
        auto views = sim_.instances();
        assignHostNumbers(views);
        uint32_t maxLuns = 0;
        for (const Card &c : sim_.host().cards) maxLuns = std::max(maxLuns, c.lunsPerTarget);
        w_.file(w_.sys() + "/module/scsi_mod/parameters/max_luns", std::to_string(maxLuns ? maxLuns : 512));
        for (const auto &v : views)
            if (!v.vport) physical(v);
        for (const auto &v : views)
            if (v.vport) virtualPort(v);
    }

private:
    void writeMarker() {
        nlohmann::json j;
        j["host"] = fs::absolute(sim_.host().path).lexically_normal().string();
        j["state_dir"] = fs::path(sim_.store().path()).parent_path().string();
        w_.file(root_ + kExportMarker, j.dump(2));
    }

    // Host numbers from the ports' OS names ("host3"), else the next free one.
    void assignHostNumbers(const std::vector<Simulator::View> &views) {
        std::set<uint32_t> used;
        std::vector<std::pair<uint64_t, std::optional<uint32_t>>> wanted;
        for (const auto &v : views) {
            SDPortProperty p;
            sim_.portProperty(v.wwpn(), p);
            auto n = linuxfc::ParseHostName(p.DeviceName);
            if (n && used.insert(*n).second) hostNo_[v.wwpn()] = *n;
            else wanted.emplace_back(v.wwpn(), std::nullopt);
        }
        uint32_t next = 0;
        for (auto &[wwpn, _] : wanted) {
            while (used.count(next)) ++next;
            used.insert(next);
            hostNo_[wwpn] = next;
        }
    }

    std::string pciDir(const Simulator::View &v) {
        char name[32];
        snprintf(name, sizeof name, "0000:%02x:%02x.%x", v.card->pciBus & 0xFF, v.card->pciDevice & 0x1F,
                 v.port->function & 7);
        return w_.sys() + "/devices/pci0000:00/" + name;
    }

    void pciFunction(const Simulator::View &v, const std::string &dir, bool fcoe) {
        const Card &c = *v.card;
        w_.file(dir + "/vendor", HexN(c.vendorId, 4));
        w_.file(dir + "/device", HexN(c.deviceId, 4));
        w_.file(dir + "/subsystem_vendor", HexN(c.subVendorId, 4));
        w_.file(dir + "/subsystem_device", HexN(c.subSystemId, 4));
        w_.file(dir + "/revision", HexN(c.chipRevision, 2));
        w_.file(dir + "/class", fcoe ? "0x020000" : "0x0c0400");
        std::vector<uint8_t> vpd;
        if (sim_.vpd(v.wwpn(), vpd) == SDERR_NONE) w_.file(dir + "/vpd", std::string(vpd.begin(), vpd.end()), false);
        const std::string driverDir = w_.sys() + "/bus/pci/drivers/" + c.driverName;
        w_.dir(driverDir);
        w_.link(dir + "/driver", driverDir);
        w_.link(w_.sys() + "/bus/pci/devices/" + fs::path(dir).filename().string(), dir);
        const std::string module = w_.sys() + "/module/" + c.driverName + "/version";
        if (!fs::exists(module)) w_.file(module, c.driverVersion);
        if (fcoe) {
            char mac[24];
            const uint8_t *m = v.port->enodeMac;
            snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
            w_.file(dir + "/net/eth" + std::to_string(hostNo_[v.wwpn()]) + "/address", mac);
        }
    }

    void fcHost(const Simulator::View &v, const std::string &hostDir, uint32_t n) {
        const uint64_t key = v.wwpn();
        const std::string name = "host" + std::to_string(n);
        const std::string a = hostDir + "/fc_host/" + name;
        SDPortProperty port;
        SDNodeProperty node;
        SDDriverProperty drv;
        sim_.portProperty(key, port);
        sim_.nodeProperty(key, node);
        sim_.driverProperty(key, drv);
        w_.file(a + "/node_name", Hex16(WwnFromBytes(node.WWNN)));
        w_.file(a + "/port_name", Hex16(WwnFromBytes(port.WWPN)));
        w_.file(a + "/port_id",
                HexN(uint32_t(port.PortId[0]) << 16 | uint32_t(port.PortId[1]) << 8 | port.PortId[2], 6));
        w_.file(a + "/port_state", StateText(port.PortState));
        w_.file(a + "/port_type",
                port.PortState == SD_PORTSTATE_ONLINE ? "NPort (fabric via point-to-point)" : "Unknown");
        w_.file(a + "/speed", SpeedText(port.PortSpeed));
        w_.file(a + "/supported_speeds", SpeedListText(port.SupportedSpeed));
        w_.file(a + "/fabric_name", Hex16(WwnFromBytes(port.FabricName)));
        w_.file(a + "/maxframe_size", std::to_string(port.MaxFrameSize) + " bytes");
        w_.file(a + "/manufacturer", node.Manufacturer);
        w_.file(a + "/model", node.Model);
        w_.file(a + "/model_description", node.ModelDescription);
        w_.file(a + "/serial_number", node.SerialNumber);
        w_.file(a + "/driver_version", node.DriverVersion);
        w_.file(a + "/firmware_version", node.FirmwareVersion);
        w_.file(a + "/optionrom_version", node.OptionRomVersion);
        w_.file(a + "/symbolic_name",
                std::string(node.Model) + " FW:v" + node.FirmwareVersion + " DVR:v" + node.DriverVersion);
        w_.file(a + "/tgtid_bind_type", "wwpn (World Wide Port Name)");
        if (!v.vport) {
            w_.file(a + "/max_npiv_vports", std::to_string(drv.MaxVports));
            w_.file(a + "/npiv_vports_inuse", std::to_string(port.NumberOfVports));
            w_.file(a + "/vport_create", "", false);
            w_.file(a + "/vport_delete", "", false);
        }
        statistics(key, a + "/statistics");
        w_.file(hostDir + "/scsi_host/" + name + "/proc_name", drv.DriverName);
        w_.link(w_.sys() + "/class/fc_host/" + name, a);
        w_.link(w_.sys() + "/class/scsi_host/" + name, hostDir + "/scsi_host/" + name);
        w_.link(w_.sys() + "/bus/scsi/devices/" + name, hostDir);
        remotePorts(v, hostDir, n, port.PortState == SD_PORTSTATE_ONLINE);
    }

    void statistics(uint64_t key, const std::string &dir) {
        SDStatistics s;
        if (sim_.statistics(key, s) != SDERR_NONE) return;
        const std::pair<const char *, uint64_t> counters[] = {
            {"seconds_since_last_reset", s.SecondsSinceLastReset},
            {"tx_frames", s.TxFrames},
            {"rx_frames", s.RxFrames},
            {"tx_words", s.TxWords},
            {"rx_words", s.RxWords},
            {"lip_count", s.LipCount},
            {"nos_count", s.NosCount},
            {"error_frames", s.ErrorFrames},
            {"dumped_frames", s.DumpedFrames},
            {"link_failure_count", s.LinkFailureCount},
            {"loss_of_sync_count", s.LossOfSyncCount},
            {"loss_of_signal_count", s.LossOfSignalCount},
            {"prim_seq_protocol_err_count", s.PrimitiveSeqProtocolErrorCount},
            {"invalid_tx_word_count", s.InvalidTransmissionWordCount},
            {"invalid_crc_count", s.InvalidCRCCount},
            {"fcp_input_requests", s.InputRequests},
            {"fcp_output_requests", s.OutputRequests},
            {"fcp_control_requests", s.ControlRequests},
            {"fcp_input_megabytes", s.InputMBytes},
            {"fcp_output_megabytes", s.OutputMBytes}};
        for (const auto &[name, value] : counters) w_.file(dir + "/" + name, HexN(value, 1));
        w_.file(dir + "/reset_statistics", "", false);
    }

    void remotePorts(const Simulator::View &v, const std::string &hostDir, uint32_t n, bool portUp) {
        std::vector<SDDiscTargetProperty> targets;
        sim_.discTargets(v.wwpn(), targets);
        for (size_t i = 0; i < targets.size(); ++i) {
            const SDDiscTargetProperty &d = targets[i];
            const Target *t = sim_.findTarget(v, WwnFromBytes(d.WWPN));
            if (!t) continue;
            const std::string rname = "rport-" + std::to_string(n) + ":0-" + std::to_string(i);
            const std::string rdir = hostDir + "/" + rname;
            const std::string a = rdir + "/fc_remote_ports/" + rname;
            const bool online = d.TargetFlags & SD_TGTFLAG_LOGGED_IN;
            const Simulator::Presence presence = sim_.targetPresence(v, *t);
            const bool blocked = !online && !portUp && presence.loggedIn && !presence.removed;
            w_.file(a + "/node_name", Hex16(t->wwnn));
            w_.file(a + "/port_name", Hex16(t->wwpn));
            w_.file(a + "/port_id", HexN(t->portId, 6));
            w_.file(a + "/port_state", online ? "Online" : blocked ? "Blocked" : "Not Present");
            w_.file(a + "/roles", d.TargetType == SD_TARGETTYPE_NVME ? "NVMe Target" : "FCP Target");
            w_.file(a + "/scsi_target_id", online || blocked ? std::to_string(i) : "-1");
            w_.file(a + "/supported_classes", "Class 3");
            w_.file(a + "/maxframe_size", "2048 bytes");
            w_.file(a + "/dev_loss_tmo", "30");
            w_.file(a + "/fast_io_fail_tmo", "5");
            w_.link(w_.sys() + "/class/fc_remote_ports/" + rname, a);
            if (!online) continue;
            if (d.TargetType == SD_TARGETTYPE_NVME) nvmeController(*t, WwnFromBytes(nodeWwnn(v)), v.wwpn());
            else scsiTarget(*t, rdir, n, uint32_t(i));
        }
    }

    const uint8_t *nodeWwnn(const Simulator::View &v) {
        sim_.nodeProperty(v.wwpn(), node_);
        return node_.WWNN;
    }

    // An NVMe over FC controller for the remote port, one namespace per LUN,
    // in the layout of native multipathing: the controller holds the path
    // "nvme<S>c<C>n<N>" and the block device is the head "nvme<S>n<N>", so
    // a target reached through several ports keeps one device name.  The
    // controller's model and firmware are those of its first LUN.
    void nvmeController(const Target &t, uint64_t hostWwnn, uint64_t hostWwpn) {
        std::vector<Lun> luns = t.luns;
        if (t.range)
            for (uint32_t k = 0; k < t.range->count; ++k)
                if (auto l = t.findLun(uint16_t(t.range->start + k))) luns.push_back(*l);
        if (luns.empty()) return;
        auto subsystem = subsystems_.find(t.wwpn);
        if (subsystem == subsystems_.end()) {
            uint32_t sub = uint32_t(subsystems_.size());
            if (auto os = fs::path(luns[0].osName).filename().string(); os.rfind("nvme", 0) == 0)
                sub = uint32_t(strtoul(os.c_str() + 4, nullptr, 10));
            subsystem = subsystems_.emplace(t.wwpn, sub).first;
        }
        const uint32_t ctl = nextNvme_++;
        const std::string name = "nvme" + std::to_string(ctl);
        const std::string dir = w_.sys() + "/devices/virtual/nvme-fabrics/ctl/" + name;
        char address[160];
        snprintf(address, sizeof address, "traddr=nn-0x%016llx:pn-0x%016llx,host_traddr=nn-0x%016llx:pn-0x%016llx",
                 static_cast<unsigned long long>(t.wwnn), static_cast<unsigned long long>(t.wwpn),
                 static_cast<unsigned long long>(hostWwnn), static_cast<unsigned long long>(hostWwpn));
        w_.file(dir + "/transport", "fc");
        w_.file(dir + "/address", address);
        w_.file(dir + "/model", luns[0].inquiry.product);
        w_.file(dir + "/firmware_rev", luns[0].inquiry.revision);
        w_.file(dir + "/serial", FormatWwn(t.wwpn));
        w_.file(dir + "/state", "live");
        w_.link(w_.sys() + "/class/nvme/" + name, dir);
        const std::string sub = std::to_string(subsystem->second);
        for (const Lun &l : luns) {
            const std::string ns = "nvme" + sub + "c" + std::to_string(ctl) + "n" + std::to_string(l.number);
            w_.file(dir + "/" + ns + "/nsid", std::to_string(l.number));
            w_.file(dir + "/" + ns + "/size", std::to_string(l.blocks * l.blockSize / 512));
            w_.file(dir + "/" + ns + "/queue/logical_block_size", std::to_string(l.blockSize));
            w_.link(w_.sys() + "/block/nvme" + sub + "n" + std::to_string(l.number), dir + "/" + ns);
        }
    }

    void scsiTarget(const Target &t, const std::string &rdir, uint32_t n, uint32_t id) {
        const std::string tname = "target" + std::to_string(n) + ":0:" + std::to_string(id);
        const std::string tdir = rdir + "/" + tname;
        const std::string ft = tdir + "/fc_transport/" + tname;
        w_.file(ft + "/node_name", Hex16(t.wwnn));
        w_.file(ft + "/port_name", Hex16(t.wwpn));
        w_.file(ft + "/port_id", HexN(t.portId, 6));
        w_.link(w_.sys() + "/class/fc_transport/" + tname, ft);
        w_.link(w_.sys() + "/bus/scsi/devices/" + tname, tdir);
        auto unit = [&](const Lun &l, bool flat) {
            if (l.inquiryFails) return;  // the kernel's scan could not have added it
            const uint64_t linuxLun = flat ? (0x4000u | l.number) : l.number;
            const std::string uname = std::to_string(n) + ":0:" + std::to_string(id) + ":" + std::to_string(linuxLun);
            const std::string u = tdir + "/" + uname;
            w_.file(u + "/type", std::to_string(l.inquiry.type));
            w_.file(u + "/vendor", Padded(l.inquiry.vendor, 8));
            w_.file(u + "/model", Padded(l.inquiry.product, 16));
            w_.file(u + "/rev", Padded(l.inquiry.revision, 4));
            w_.file(u + "/scsi_level", "7");
            w_.file(u + "/state", "running");
            w_.file(u + "/device_blocked", "0");
            w_.file(u + "/queue_depth", "32");
            w_.dir(u + "/scsi_device/" + uname);
            const std::string sg = "sg" + std::to_string(nextSg_++);
            w_.file(u + "/scsi_generic/" + sg + "/dev", "21:" + sg.substr(2));
            w_.link(u + "/generic", u + "/scsi_generic/" + sg);
            w_.link(w_.sys() + "/class/scsi_generic/" + sg, u + "/scsi_generic/" + sg);
            w_.link(w_.sys() + "/class/scsi_device/" + uname, u + "/scsi_device/" + uname);
            w_.link(w_.sys() + "/bus/scsi/devices/" + uname, u);
            const std::string os = fs::path(l.osName).filename().string();
            if (!os.empty() && os.rfind("nvme", 0) != 0) {
                const bool tape = os.rfind("st", 0) == 0 || os.rfind("nst", 0) == 0;
                const bool changer = os.rfind("sch", 0) == 0;
                const std::string cls = tape ? "scsi_tape" : changer ? "scsi_changer" : "block";
                const std::string dev = u + "/" + cls + "/" + os;
                // Device numbers as the sd, st and ch drivers give them.
                const uint32_t minor = nextMinor_[cls]++;
                if (cls == "block") {
                    const uint64_t sectors = l.blocks * l.blockSize / 512;
                    w_.file(dev + "/size", std::to_string(sectors));
                    w_.file(dev + "/dev", "8:" + std::to_string(minor * 16));
                    w_.link(w_.sys() + "/block/" + os, dev);
                } else {
                    w_.file(dev + "/dev", (tape ? "9:" : "86:") + std::to_string(minor));
                    w_.link(w_.sys() + "/class/" + cls + "/" + os, dev);
                    if (tape) w_.link(u + "/tape", dev);  // the st driver's link
                }
            }
        };
        for (const Lun &l : t.luns) unit(l, l.flat);
        if (t.range)
            for (uint32_t k = 0; k < t.range->count; ++k) {
                const uint16_t num = uint16_t(t.range->start + k);
                if (auto l = t.findLun(num)) unit(*l, l->flat);
            }
    }

    void physical(const Simulator::View &v) {
        const uint32_t n = hostNo_[v.wwpn()];
        const std::string pci = pciDir(v);
        pciFunction(v, pci, v.port->interface == SD_INTERFACE_FCOE);
        const std::string hostDir = pci + "/host" + std::to_string(n);
        hostDirs_[v.wwpn()] = HostDirs{n, hostDir};
        fcHost(v, hostDir, n);
    }

    void virtualPort(const Simulator::View &v) {
        auto parent = hostDirs_.find(v.port->wwpn);
        if (parent == hostDirs_.end()) return;
        const uint32_t p = parent->second.hostNo, n = hostNo_[v.wwpn()];
        const std::string vname = "vport-" + std::to_string(p) + ":0-" + std::to_string(v.vport->vportId - 1);
        const std::string vdir = parent->second.dir + "/" + vname;
        const std::string a = vdir + "/fc_vports/" + vname;
        w_.file(a + "/port_name", Hex16(v.vport->wwpn));
        w_.file(a + "/node_name", Hex16(v.vport->wwnn));
        w_.file(a + "/vport_state", "Active");
        w_.file(a + "/vport_last_state", "Active");
        w_.file(a + "/vport_type", "NPIV");
        w_.file(a + "/roles", "FCP Initiator");
        w_.file(a + "/vport_delete", "", false);
        w_.file(a + "/vport_disable", "", false);
        w_.link(w_.sys() + "/class/fc_vports/" + vname, a);
        fcHost(v, vdir + "/host" + std::to_string(n), n);
    }

    Simulator &sim_;
    TreeWriter w_;
    std::string root_;
    std::map<uint64_t, uint32_t> hostNo_;
    std::map<uint64_t, HostDirs> hostDirs_;
    uint32_t nextSg_ = 0;
    uint32_t nextNvme_ = 0;
    std::map<uint64_t, uint32_t> subsystems_;  // target WWPN -> NVMe subsystem number
    SDNodeProperty node_{};
    std::map<std::string, uint32_t> nextMinor_;
};

// Reads a control attribute and empties it; "" when nothing was written.
std::string TakeControl(const std::string &path) {
    auto text = linuxfc::ReadFile(path);
    if (!text || linuxfc::Trim(*text).empty()) return "";
    std::ofstream(path, std::ios::trunc);
    return std::string(linuxfc::Trim(*text));
}

}  // namespace

void ExportSysfs(Simulator &sim, const std::string &root) { Exporter(sim, root).run(); }

uint32_t ApplySysfsWrites(Simulator &sim, const std::string &root) {
    uint32_t applied = 0;
    const std::string cls = root + "/sys/class/fc_host";
    for (const std::string &name : linuxfc::ListDir(cls)) {
        const std::string a = cls + "/" + name;
        const uint64_t key = linuxfc::ParseHex(linuxfc::ReadAttr(a + "/port_name").value_or("")).value_or(0);
        if (const std::string w = TakeControl(a + "/vport_create"); !w.empty()) {
            ++applied;
            if (auto pair = linuxfc::ParseWwnPair(w)) {
                uint16_t id = 0;
                sim.createVport(key, pair->second, pair->first, id);
            }
        }
        if (const std::string w = TakeControl(a + "/vport_delete"); !w.empty()) {
            ++applied;
            if (auto pair = linuxfc::ParseWwnPair(w)) sim.deleteVport(key, pair->first);
        }
        if (!TakeControl(a + "/statistics/reset_statistics").empty()) {
            ++applied;
            sim.resetStatistics(key);
        }
    }
    if (applied) ExportSysfs(sim, root);
    return applied;
}

}  // namespace vtsdm
