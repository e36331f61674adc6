// The simulator's instances, handles-by-name and properties.
#include "simulator.h"

#include <cstdio>
#include <filesystem>

#include "sim_internal.h"
#include "sysroot.h"

namespace vtsdm {

using namespace simdetail;

std::string DefaultHostPath() {
    if (const char *h = getenv("VTSDM_HOST"); h && *h) return h;
    static const std::string installed = InstallationDir() + "/data/default_host.json";
    return installed;
}

std::string DefaultStateDir() {
    if (const char *d = getenv("VTSDM_STATE_DIR"); d && *d) return d;
    return vt::MapSystemPath("/var/lib/vtsdm");
}

namespace {

// State file name: the host file's base name and a hash of its absolute
// path, so two host files never share state.
std::string StateName(const std::string &hostPath) {
    std::error_code ec;
    std::string abs = std::filesystem::absolute(hostPath, ec).lexically_normal().string();
    uint64_t h = 1469598103934665603ull;
    for (unsigned char c : abs) {
        h ^= c;
        h *= 1099511628211ull;
    }
    std::string base = std::filesystem::path(hostPath).stem().string();
    std::erase_if(base, [](char c) { return !(isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'); });
    char buf[24];
    snprintf(buf, sizeof buf, "%08x", uint32_t(h ^ (h >> 32)));
    return base + "-" + buf + ".json";
}

}  // namespace

Simulator::Simulator(const std::string &hostPath, const std::string &stateDir)
    : host_(LoadHost(hostPath)), store_(stateDir, StateName(hostPath), host_.contentHash) {
    targetByWwpn_.resize(host_.ports.size());
    for (uint32_t i = 0; i < host_.ports.size(); ++i) {
        portByWwpn_[host_.ports[i].wwpn] = i;
        for (uint32_t t = 0; t < host_.ports[i].targets.size(); ++t)
            targetByWwpn_[i][host_.ports[i].targets[t].wwpn] = t;
    }
}

std::string Simulator::description() const { return "simulated host " + host_.path; }

const Port *Simulator::findPort(uint64_t wwpn) const {
    auto it = portByWwpn_.find(wwpn);
    return it == portByWwpn_.end() ? nullptr : &host_.ports[it->second];
}

std::vector<VPortRecord> Simulator::currentVports() {
    const State &s = store_.current();
    if (s.vports) return *s.vports;
    std::vector<VPortRecord> out;
    for (const Port &p : host_.ports)
        for (const VPortDef &d : p.vports) {
            VPortRecord r;
            r.parentWwpn = p.wwpn;
            r.wwnn = d.wwnn;
            r.wwpn = d.wwpn;
            r.vportId = d.vportId;
            r.qos = d.qos;
            r.qos.QoSEnabled = d.vportId <= host_.cards[p.card].maxVportsWithQoS ? 1 : 0;
            out.push_back(r);
        }
    NumberVports(out, uint32_t(host_.ports.size()));
    return out;
}

std::vector<Simulator::View> Simulator::instances() {
    std::vector<View> out;
    for (const Port &p : host_.ports) {
        View v;
        v.instance = uint32_t(out.size());
        v.port = &p;
        v.card = &host_.cards[p.card];
        out.push_back(v);
    }
    // Virtual ports keep the instance numbers they were given, so a deleted
    // one leaves a gap rather than renumbering the others.
    for (const VPortRecord &r : currentVports()) {
        const Port *parent = findPort(r.parentWwpn);
        if (!parent) continue;
        View v;
        v.instance = r.instance;
        v.port = parent;
        v.card = &host_.cards[parent->card];
        v.vport = r;
        out.push_back(v);
    }
    std::stable_sort(out.begin(), out.end(), [](const View &a, const View &b) { return a.instance < b.instance; });
    return out;
}

uint32_t Simulator::instancePort(uint32_t instance, View &v) {
    auto all = instances();
    for (const View &x : all)
        if (x.instance == instance) {
            v = x;
            return SDERR_NONE;
        }
    // A gap left by a deleted virtual port is not the end of the list.
    return !all.empty() && instance < all.back().instance ? SDERR_DEVICE_REMOVED : SDERR_NO_SUCH_DEVICE;
}

uint32_t Simulator::consumeFault(const std::string &key, uint32_t limit) {
    if (limit == 0) return 0;
    auto used = store_.current().faultsUsed;
    auto it = used.find(key);
    if (it != used.end() && it->second >= limit) return 0;
    uint32_t fired = 0;
    store_.modify([&](State &s) {
        uint32_t &n = s.faultsUsed[key];
        if (n < limit) {
            ++n;
            fired = 1;
        }
        return SDERR_NONE;
    });
    return fired;
}

uint32_t Simulator::open(uint32_t instance, PortKey &key) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (!v.vport) {
        if (v.port->unsupported) return SDERR_NOT_SUPPORTED;
        if (v.port->openUnavailable && consumeFault("open/" + FormatWwn(v.port->wwpn), v.port->openUnavailable))
            return SDERR_DEVICE_UNAVAILABLE;
    }
    key = v.wwpn();
    return SDERR_NONE;
}

uint32_t Simulator::resolve(PortKey key, View &v) {
    auto pit = portByWwpn_.find(key);
    if (pit != portByWwpn_.end()) {
        v = View{};
        v.instance = pit->second;
        v.port = &host_.ports[pit->second];
        v.card = &host_.cards[v.port->card];
        return SDERR_NONE;
    }
    for (const View &x : instances())
        if (x.vport && x.vport->wwpn == key) {
            v = x;
            return SDERR_NONE;
        }
    return SDERR_DEVICE_REMOVED;
}

uint16_t Simulator::currentPortState(const View &v) {
    if (disabledByNvram(v)) return SD_PORTSTATE_OFFLINE;
    const State &s = store_.current();
    auto it = s.ports.find(v.port->wwpn);
    if (it != s.ports.end() && it->second.portState) return *it->second.portState;
    return v.port->portState;
}

uint32_t Simulator::chipProperty(PortKey key, SDChipProperty &p) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    p = SDChipProperty{};
    p.VendorID = v.card->vendorId;
    p.DeviceID = v.card->deviceId;
    p.SubVendorID = v.card->subVendorId;
    p.SubSystemID = v.card->subSystemId;
    p.PciBusNumber = v.card->pciBus;
    p.PciDevFunc = uint16_t((v.card->pciDevice << 3) | (v.port->function & 7));
    p.ChipRevision = v.card->chipRevision;
    p.PhysPortNumber = v.port->physPort;
    p.NumberOfPorts = uint8_t(v.card->ports.size());
    p.IspType = v.card->ispType;
    p.NvramSize = v.card->nvramSize;
    return SDERR_NONE;
}

uint32_t Simulator::driverProperty(PortKey key, SDDriverProperty &p) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    p = SDDriverProperty{};
    CopyText(p.DriverName, sizeof p.DriverName, v.card->driverName);
    CopyText(p.DriverVersion, sizeof p.DriverVersion, v.card->driverVersion);
    p.LunsPerTarget = v.card->lunsPerTarget;
    p.MaxVports = v.card->maxVports;
    p.MaxVportsWithQoS = v.card->maxVportsWithQoS;
    p.Capabilities = v.card->driverCaps;
    return SDERR_NONE;
}

uint32_t Simulator::nodeProperty(PortKey key, SDNodeProperty &p) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    p = SDNodeProperty{};
    WwnToBytes(v.vport ? v.vport->wwnn : v.port->wwnn, p.WWNN);
    CopyText(p.Manufacturer, sizeof p.Manufacturer, v.card->manufacturer);
    CopyText(p.Model, sizeof p.Model, v.card->model);
    CopyText(p.ModelDescription, sizeof p.ModelDescription, v.card->description);
    CopyText(p.SerialNumber, sizeof p.SerialNumber, v.card->serial);
    CopyText(p.DriverVersion, sizeof p.DriverVersion, v.card->driverVersion);
    CopyText(p.FirmwareVersion, sizeof p.FirmwareVersion, v.port->firmware);
    CopyText(p.OptionRomVersion, sizeof p.OptionRomVersion, v.port->optionRom);
    image::Version fw = VersionOf(v.card->versions.firmware);
    p.FlashFwVersion[0] = fw.major;
    p.FlashFwVersion[1] = fw.minor;
    p.FlashFwVersion[2] = fw.subminor;
    if (v.vport) {
        p.VPortId = v.vport->vportId;
        p.Interface = SD_INTERFACE_VPORT;
        p.VPortIndex = uint8_t(v.vport->vportId);
        p.ParentInstance = uint32_t(v.port - host_.ports.data());
        WwnToBytes(v.port->wwpn, p.ParentWWPN);
    } else {
        p.Interface = v.port->interface;
        p.ParentInstance = v.instance;
    }
    return SDERR_NONE;
}

uint32_t Simulator::portProperty(PortKey key, SDPortProperty &p) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    p = SDPortProperty{};
    const Port &port = *v.port;
    WwnToBytes(v.wwpn(), p.WWPN);
    PortIdBytes(v.vport ? (port.portId & 0xFFFF00u) | ((port.portId + v.vport->vportId) & 0xFF) : port.portId,
                p.PortId);
    p.PortState = currentPortState(v);
    const State &s = store_.current();
    auto it = s.ports.find(port.wwpn);
    p.PortSubState = (it != s.ports.end() && it->second.portSubState) ? *it->second.portSubState : port.portSubState;
    p.PortSpeed = PortUp(p.PortState) ? currentSpeed(v) : 0;
    p.SupportedSpeed = (v.card->driverCaps & SD_DRVCAP_SUPPORTED_SPEED) ? port.supportedMask : 0;
    p.StateFlags = currentStateFlags(v) | flashStateFlags(*v.card);
    p.MaxFrameSize = port.maxFrameSize;
    p.DiscoveredTargets = uint32_t(port.targets.size());
    if (!v.vport) {
        uint32_t n = 0;
        for (const VPortRecord &r : currentVports()) n += r.parentWwpn == port.wwpn;
        p.NumberOfVports = n;
    }
    WwnToBytes(port.principalFabric, p.PrincipalFabricWWPN);
    WwnToBytes(port.adjacentFabric, p.AdjacentFabricWWN);
    WwnToBytes(port.fabricName, p.FabricName);
    memcpy(p.EnodeMAC, port.enodeMac, 6);
    std::string name = port.deviceName;
    if (name.empty()) name = "host" + std::to_string(v.instance + 1);
    CopyText(p.DeviceName, sizeof p.DeviceName, name);
    return SDERR_NONE;
}

uint32_t Simulator::discTargets(PortKey key, std::vector<SDDiscTargetProperty> &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const auto &targets = v.port->targets;
    const bool up = PortUp(currentPortState(v));
    out.assign(targets.size(), SDDiscTargetProperty{});
    for (size_t i = 0; i < targets.size(); ++i) {
        const Target &t = targets[i];
        const Presence presence = targetPresence(v, t);
        SDDiscTargetProperty &d = out[i];
        WwnToBytes(t.wwnn, d.WWNN);
        WwnToBytes(t.wwpn, d.WWPN);
        PortIdBytes(t.portId, d.PortId);
        d.TargetType = t.targetType;
        d.PortType = t.portType;
        d.TargetFlags = SD_TGTFLAG_TARGET | SD_TGTFLAG_FABRIC | (t.tape ? SD_TGTFLAG_TAPE : 0) |
                        (presence.loggedIn && up && !presence.removed ? SD_TGTFLAG_LOGGED_IN : 0);
        d.TargetId = uint16_t(i);
    }
    return SDERR_NONE;
}

const Target *Simulator::findTarget(const View &v, uint64_t wwpn) const {
    const auto &index = targetByWwpn_[size_t(v.port - host_.ports.data())];
    auto it = index.find(wwpn);
    return it == index.end() ? nullptr : &v.port->targets[it->second];
}

uint32_t Simulator::eventQueue(PortKey key, SDAenQueueStatus &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (!(v.card->driverCaps & SD_DRVCAP_AEN)) return SDERR_NOT_SUPPORTED;
    out = SDAenQueueStatus{};
    out.Capacity = uint32_t(kEventQueueDepth);
    const State &s = store_.current();
    if (auto it = s.ports.find(key); it != s.ports.end()) {
        out.Queued = uint32_t(it->second.events.size());
        out.Dropped = uint32_t(std::min<uint64_t>(it->second.eventsDropped, UINT32_MAX));
    }
    return SDERR_NONE;
}

Simulator *ActiveSimulator(const BackendAccess &access) { return dynamic_cast<Simulator *>(access.backend); }

}  // namespace vtsdm
