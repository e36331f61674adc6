#include "linux_backend.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fcnames.h"
#include "idtable.h"
#include "nvme_fc.h"
#include "pci_vpd.h"
#include "sysroot.h"
#include "wire.h"

namespace vtsdm::linuxfc {

namespace {

constexpr uint32_t kPciClassFibreChannel = 0x0C04;  // base class and subclass
constexpr size_t kMaxReportLuns = 8 + 8 * 16384;

using wire::CopyText;
using wire::PortIdBytes;
using wire::PutBe;

uint64_t Hex(const std::optional<std::string> &text) { return text ? ParseHex(*text).value_or(0) : 0; }

std::string Text(const std::optional<std::string> &text) { return text.value_or(""); }

// The directory of the PCI function a SCSI host hangs under: the nearest
// ancestor whose name is a PCI address.
std::string PciFunctionOf(std::string dir, std::optional<PciAddress> &pci) {
    while (!dir.empty() && dir != "/") {
        const auto slash = dir.rfind('/');
        if (slash == std::string::npos) break;
        if ((pci = ParsePciAddress(dir.substr(slash + 1)))) return dir;
        dir.erase(slash);
    }
    pci.reset();
    return "";
}

// CDBs of the commands the SD calls send.
std::vector<uint8_t> Cdb(const ScsiRequest &rq, uint32_t allocation) {
    std::vector<uint8_t> c;
    switch (rq.op) {
    case ScsiOp::ReportLuns:
        c.assign(12, 0);
        c[0] = 0xA0;
        PutBe(c, 6, allocation, 4);
        break;
    case ScsiOp::Inquiry:
        c.assign(6, 0);
        c[0] = 0x12;
        c[1] = rq.evpd ? 1 : 0;
        c[2] = rq.evpd ? rq.page : 0;
        PutBe(c, 3, std::min<uint32_t>(allocation, 0xFFFF), 2);
        break;
    case ScsiOp::ReadCapacity10:
        c.assign(10, 0);
        c[0] = 0x25;
        break;
    case ScsiOp::ReadCapacity16:
        c.assign(16, 0);
        c[0] = 0x9E;
        c[1] = 0x10;  // service action READ CAPACITY(16)
        PutBe(c, 10, allocation, 4);
        break;
    case ScsiOp::TestUnitReady: c.assign(6, 0); break;
    case ScsiOp::WriteBuffer:
    case ScsiOp::ReadBuffer:
        c.assign(10, 0);
        c[0] = rq.op == ScsiOp::WriteBuffer ? 0x3B : 0x3C;
        c[1] = 0x02;  // data mode, buffer 0, offset 0
        PutBe(c, 6, std::min<uint32_t>(allocation, 0xFFFFFF), 3);
        break;
    }
    return c;
}

uint32_t AllocationFor(const ScsiRequest &rq) {
    switch (rq.op) {
    case ScsiOp::ReportLuns: return std::min<uint32_t>(rq.allocation, kMaxReportLuns);
    case ScsiOp::Inquiry: return std::min<uint32_t>(rq.allocation, 0xFFFF);
    case ScsiOp::ReadCapacity10: return 8;
    case ScsiOp::ReadCapacity16: return std::min<uint32_t>(rq.allocation, 32);
    case ScsiOp::TestUnitReady: return 0;
    case ScsiOp::WriteBuffer: return uint32_t(rq.dataOut.size());
    case ScsiOp::ReadBuffer: return std::min<uint32_t>(rq.allocation, 0xFFFFFF);
    }
    return 0;
}

bool IsNvmeTarget(const RemotePort &r) { return (r.roles & kRoleNvmeTarget) && !(r.roles & kRoleFcpTarget); }

uint32_t StatusOfWrite(int err) {
    switch (err) {
    case EINVAL:
    case EEXIST: return SDERR_INVALID_PARAMETER;
    case ENOSPC:
    case EOPNOTSUPP:
    case ENOENT: return SDERR_NOT_SUPPORTED;
    case EBUSY: return SDERR_DEVICE_BUSY;
    default: return SDERR_IO_FAILED;
    }
}

}  // namespace

LinuxBackend::LinuxBackend(std::unique_ptr<ScsiTransport> transport)
    : transport_(std::move(transport)), sysfs_(vt::MapSystemPath("/sys")) {}

std::string LinuxBackend::description() const {
    return "Linux FC transport at " + sysfs_ + ", SCSI through " + transport_->name();
}

// ---------------------------------------------------------------- hosts

void LinuxBackend::scanHosts() {
    std::vector<FcHostPort> found;
    const std::string cls = sysfs_ + "/class/fc_host";
    for (const std::string &entry : ListDir(cls)) {
        auto hostNo = ParseHostName(entry);
        if (!hostNo) continue;
        FcHostPort h;
        h.hostNo = *hostNo;
        h.name = entry;
        h.attr = RealPath(cls + "/" + entry);
        if (h.attr.empty()) continue;
        // .../hostN/fc_host/hostN -> .../hostN
        h.dir = h.attr.substr(0, h.attr.rfind("/fc_host/"));
        h.wwnn = Hex(ReadAttr(h.attr + "/node_name"));
        h.wwpn = Hex(ReadAttr(h.attr + "/port_name"));
        const std::string parent = h.dir.substr(0, h.dir.rfind('/'));
        const std::string parentName = parent.substr(parent.rfind('/') + 1);
        if (auto v = ParsePortName("vport-", parentName)) {
            h.vport = true;
            h.vportNumber = v->number;
            h.parentHostNo = v->host;
            h.vportAttr = parent + "/fc_vports/" + parentName;
        }
        h.pciDir = PciFunctionOf(h.dir, h.pci);
        found.push_back(std::move(h));
    }
    // Physical ports by host number, then virtual ports by host number.
    std::stable_sort(found.begin(), found.end(), [](const FcHostPort &a, const FcHostPort &b) {
        return std::make_pair(a.vport, a.hostNo) < std::make_pair(b.vport, b.hostNo);
    });
    hosts_ = std::move(found);
    byWwpn_.clear();
    for (size_t i = 0; i < hosts_.size(); ++i) byWwpn_.emplace(hosts_[i].wwpn, i);
}

FcHostPort *LinuxBackend::find(PortKey key) {
    auto it = byWwpn_.find(key);
    if (it == byWwpn_.end()) {
        scanHosts();
        it = byWwpn_.find(key);
        if (it == byWwpn_.end()) return nullptr;
    }
    return &hosts_[it->second];
}

const FcHostPort *LinuxBackend::parentOf(const FcHostPort &h) const {
    if (!h.vport) return &h;
    for (const FcHostPort &p : hosts_)
        if (!p.vport && p.hostNo == h.parentHostNo) return &p;
    return nullptr;
}

std::string LinuxBackend::attr(const FcHostPort &h, const char *name) const {
    return Text(ReadAttr(h.attr + "/" + name));
}

std::string LinuxBackend::hostOrParentAttr(const FcHostPort &h, const char *name) const {
    std::string v = attr(h, name);
    if (v.empty() && h.vport)
        if (const FcHostPort *p = parentOf(h)) v = attr(*p, name);
    return v;
}

std::string LinuxBackend::driverName(const FcHostPort &h) const {
    if (!h.pciDir.empty()) {
        std::string d = LinkBaseName(h.pciDir + "/driver");
        if (!d.empty()) return d;
    }
    return Text(ReadAttr(h.dir + "/scsi_host/" + h.name + "/proc_name"));
}

uint16_t LinuxBackend::currentState(const FcHostPort &h) const {
    auto s = ReadAttr(h.attr + "/port_state");
    return s ? ParseHostPortState(*s) : SD_PORTSTATE_OFFLINE;
}

uint32_t LinuxBackend::open(uint32_t instance, PortKey &key) {
    if (instance == 0 || instance >= hosts_.size()) scanHosts();
    if (instance >= hosts_.size()) return SDERR_NO_SUCH_DEVICE;
    key = hosts_[instance].wwpn;
    return SDERR_NONE;
}

// ------------------------------------------------------------ properties

uint32_t LinuxBackend::chipProperty(PortKey key, SDChipProperty &p) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    p = SDChipProperty{};
    if (!h->pciDir.empty()) {
        p.VendorID = uint16_t(Hex(ReadAttr(h->pciDir + "/vendor")));
        p.DeviceID = uint16_t(Hex(ReadAttr(h->pciDir + "/device")));
        p.SubVendorID = uint16_t(Hex(ReadAttr(h->pciDir + "/subsystem_vendor")));
        p.SubSystemID = uint16_t(Hex(ReadAttr(h->pciDir + "/subsystem_device")));
        p.ChipRevision = uint16_t(Hex(ReadAttr(h->pciDir + "/revision")));
    }
    if (h->pci) {
        p.PciBusNumber = h->pci->bus;
        p.PciDevFunc = uint16_t((h->pci->device << 3) | h->pci->function);
        // The card's ports: the physical FC hosts on functions of the same slot.
        std::vector<std::pair<uint8_t, uint32_t>> siblings;
        for (const FcHostPort &o : hosts_)
            if (!o.vport && o.pci && o.pci->domain == h->pci->domain && o.pci->bus == h->pci->bus &&
                o.pci->device == h->pci->device)
                siblings.emplace_back(o.pci->function, o.hostNo);
        std::sort(siblings.begin(), siblings.end());
        const FcHostPort *phys = parentOf(*h);
        for (size_t i = 0; i < siblings.size(); ++i)
            if (phys && siblings[i].second == phys->hostNo) p.PhysPortNumber = uint8_t(i);
        p.NumberOfPorts = uint8_t(siblings.size());
    }
    p.IspType = vt::ids::IspTypeForDeviceId(p.DeviceID);
    p.NvramSize = vt::ids::NvramSizeForIspType(p.IspType);
    return SDERR_NONE;
}

uint32_t LinuxBackend::driverProperty(PortKey key, SDDriverProperty &p) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    p = SDDriverProperty{};
    const std::string drv = driverName(*h);
    CopyText(p.DriverName, sizeof p.DriverName, drv);
    std::string version = hostOrParentAttr(*h, "driver_version");
    if (version.empty() && !drv.empty()) version = Text(ReadAttr(sysfs_ + "/module/" + drv + "/version"));
    CopyText(p.DriverVersion, sizeof p.DriverVersion, version);
    // The highest LUN the SCSI midlayer scans stands for the driver's limit.
    if (auto max = ParseDecimal(Text(ReadAttr(sysfs_ + "/module/scsi_mod/parameters/max_luns"))); max && *max > 0)
        p.LunsPerTarget = uint32_t(std::min<int64_t>(*max, 0xFFFFFFFF));
    const FcHostPort *phys = parentOf(*h);
    const std::string maxVports = phys ? attr(*phys, "max_npiv_vports") : "";
    p.MaxVports = uint32_t(std::max<int64_t>(0, ParseDecimal(maxVports).value_or(0)));
    p.Capabilities = SD_DRVCAP_REMOTE_PORT_INFO | SD_DRVCAP_AEN;
    if (!ParseSpeedList(attr(*h, "supported_speeds")).empty()) p.Capabilities |= SD_DRVCAP_SUPPORTED_SPEED;
    if (p.MaxVports && phys && ReadFile(phys->attr + "/vport_create")) p.Capabilities |= SD_DRVCAP_NPIV;
    return SDERR_NONE;
}

std::vector<uint8_t> LinuxBackend::readVpd(const FcHostPort &h, uint32_t &rc) const {
    rc = SDERR_NOT_SUPPORTED;
    if (h.pciDir.empty()) return {};
    const std::string path = h.pciDir + "/vpd";
    auto bytes = ReadFile(path);
    if (!bytes) {
        rc = errno == ENOENT ? SDERR_NOT_SUPPORTED : SDERR_IO_FAILED;
        return {};
    }
    std::vector<uint8_t> v(bytes->begin(), bytes->end());
    v.resize(VpdLength(v));
    rc = v.empty() ? SDERR_NOT_SUPPORTED : SDERR_NONE;
    return v;
}

uint32_t LinuxBackend::nodeProperty(PortKey key, SDNodeProperty &p) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    p = SDNodeProperty{};
    WwnToBytes(h->wwnn, p.WWNN);
    std::string manufacturer = hostOrParentAttr(*h, "manufacturer");
    std::string model = hostOrParentAttr(*h, "model");
    std::string description = hostOrParentAttr(*h, "model_description");
    std::string serial = hostOrParentAttr(*h, "serial_number");
    if (model.empty() || serial.empty() || description.empty()) {
        // Drivers that leave the FDMI attributes empty: the card's VPD has them.
        uint32_t rc = 0;
        const VpdFields vpd = ParseVpd(readVpd(*h, rc));
        auto kw = [&](const char *k) {
            auto it = vpd.keywords.find(k);
            return it == vpd.keywords.end() ? std::string() : it->second;
        };
        if (model.empty()) model = kw("PN");
        if (serial.empty()) serial = kw("SN");
        if (description.empty()) description = vpd.identifier;
    }
    if (manufacturer.empty() && !h->pciDir.empty() && Hex(ReadAttr(h->pciDir + "/vendor")) == vt::ids::kMakerVendorId)
        manufacturer = "Vantor Corporation";
    CopyText(p.Manufacturer, sizeof p.Manufacturer, manufacturer);
    CopyText(p.Model, sizeof p.Model, model);
    CopyText(p.ModelDescription, sizeof p.ModelDescription, description);
    CopyText(p.SerialNumber, sizeof p.SerialNumber, serial);
    SDDriverProperty drv;
    driverProperty(key, drv);
    CopyText(p.DriverVersion, sizeof p.DriverVersion, drv.DriverVersion);
    const std::string firmware = hostOrParentAttr(*h, "firmware_version");
    CopyText(p.FirmwareVersion, sizeof p.FirmwareVersion, firmware);
    CopyText(p.OptionRomVersion, sizeof p.OptionRomVersion, hostOrParentAttr(*h, "optionrom_version"));
    unsigned major = 0, minor = 0, sub = 0;
    if (sscanf(firmware.c_str(), "%u.%u.%u", &major, &minor, &sub) >= 1) {
        p.FlashFwVersion[0] = uint8_t(major);
        p.FlashFwVersion[1] = uint8_t(minor);
        p.FlashFwVersion[2] = uint8_t(sub);
    }
    const size_t self = size_t(h - hosts_.data());
    if (h->vport) {
        p.VPortId = uint16_t(h->vportNumber + 1);
        p.VPortIndex = uint8_t(p.VPortId);
        p.Interface = SD_INTERFACE_VPORT;
        if (const FcHostPort *parent = parentOf(*h)) {
            p.ParentInstance = uint32_t(parent - hosts_.data());
            WwnToBytes(parent->wwpn, p.ParentWWPN);
        }
    } else {
        // An FC port on a function that is not an FC controller is the FCoE
        // function of a converged card.
        const uint64_t cls = Hex(ReadAttr(h->pciDir + "/class"));
        p.Interface = h->pciDir.empty() || (cls >> 8) != kPciClassFibreChannel ? SD_INTERFACE_FCOE : SD_INTERFACE_FC;
        p.ParentInstance = uint32_t(self);
    }
    return SDERR_NONE;
}

uint32_t LinuxBackend::portProperty(PortKey key, SDPortProperty &p) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    p = SDPortProperty{};
    WwnToBytes(h->wwpn, p.WWPN);
    PortIdBytes(ParsePortId(attr(*h, "port_id")).value_or(0), p.PortId);
    p.PortState = currentState(*h);
    if (p.PortState == SD_PORTSTATE_ONLINE)
        if (auto g = ParseSpeedGbps(attr(*h, "speed"))) p.PortSpeed = SpeedCodeForGbps(*g).value_or(0);
    for (uint32_t g : ParseSpeedList(attr(*h, "supported_speeds"))) p.SupportedSpeed |= SupportedBitForGbps(g);
    p.MaxFrameSize = uint32_t(std::max<int64_t>(0, ParseDecimal(attr(*h, "maxframe_size")).value_or(0)));
    uint32_t rports = 0, vports = 0;
    for (const std::string &e : ListDir(h->dir)) {
        rports += ParsePortName("rport-", e).has_value();
        vports += ParsePortName("vport-", e).has_value();
    }
    p.DiscoveredTargets = rports;
    p.NumberOfVports = h->vport ? 0 : vports;
    WwnToBytes(Hex(ReadAttr(h->attr + "/fabric_name")), p.FabricName);
    if (!h->pciDir.empty())
        for (const std::string &netdev : ListDir(h->pciDir + "/net")) {
            const std::string mac = Text(ReadAttr(h->pciDir + "/net/" + netdev + "/address"));
            unsigned b[6];
            if (sscanf(mac.c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) == 6)
                for (int i = 0; i < 6; ++i) p.EnodeMAC[i] = uint8_t(b[i]);
            break;
        }
    CopyText(p.DeviceName, sizeof p.DeviceName, h->name);
    return SDERR_NONE;
}

// ------------------------------------------------------------ remote ports

void LinuxBackend::loadRemotePorts(FcHostPort &h) {
    std::vector<std::pair<uint32_t, RemotePort>> found;
    for (const std::string &entry : ListDir(h.dir)) {
        auto pn = ParsePortName("rport-", entry);
        if (!pn) continue;
        RemotePort r;
        r.name = entry;
        r.dir = h.dir + "/" + entry;
        const std::string a = r.dir + "/fc_remote_ports/" + entry;
        r.wwnn = Hex(ReadAttr(a + "/node_name"));
        r.wwpn = Hex(ReadAttr(a + "/port_name"));
        r.portId = ParsePortId(Text(ReadAttr(a + "/port_id"))).value_or(0);
        r.roles = ParseRoles(Text(ReadAttr(a + "/roles")));
        const std::string state = Text(ReadAttr(a + "/port_state"));
        r.loggedIn = RemotePortLoggedIn(state);
        r.blocked = state == "Blocked";
        r.targetId = ParseDecimal(Text(ReadAttr(a + "/scsi_target_id"))).value_or(-1);
        // The units of a remote port seen before in this scan stay as read.
        for (RemotePort &old : h.rports)
            if (old.unitsLoaded && old.name == r.name && old.wwpn == r.wwpn && r.loggedIn) {
                r.luns = std::move(old.luns);
                r.unitsLoaded = true;
            }
        found.emplace_back(pn->number, std::move(r));
    }
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    h.rports.clear();
    for (auto &[n, r] : found) h.rports.push_back(std::move(r));
    h.rportsLoaded = true;
}

// The SCSI target of a remote port and its logical units, each with its
// generic device and OS device name, read in one pass.
void LinuxBackend::loadUnits(RemotePort &r) {
    r.luns.clear();
    r.unitsLoaded = true;
    for (const std::string &t : ListDir(r.dir)) {
        if (t.rfind("target", 0) != 0) continue;
        const std::string tdir = r.dir + "/" + t;
        for (const std::string &u : ListDir(tdir)) {
            auto sn = ParseScsiName(u);
            if (!sn) continue;
            LogicalUnit lu;
            lu.lun = sn->lun;
            lu.dir = tdir + "/" + u;
            lu.type = int(ParseDecimal(Text(ReadAttr(lu.dir + "/type"))).value_or(-1));
            const std::vector<std::string> entries = ListDir(lu.dir);
            auto has = [&](const char *e) { return std::binary_search(entries.begin(), entries.end(), e); };
            lu.generic = LinkBaseName(lu.dir + "/generic");
            if (lu.generic.empty() && has("scsi_generic"))
                for (const std::string &g : ListDir(lu.dir + "/scsi_generic")) lu.generic = g;
            // A disk's block device, else a tape's or a changer's character device.
            std::string os;
            if (has("block"))
                for (const std::string &d : ListDir(lu.dir + "/block")) os = d;
            if (os.empty() && has("tape")) os = LinkBaseName(lu.dir + "/tape");
            if (os.empty() && has("scsi_changer"))
                for (const std::string &d : ListDir(lu.dir + "/scsi_changer")) os = d;
            if (!os.empty()) lu.osName = "/dev/" + os;
            r.luns.push_back(std::move(lu));
        }
    }
    std::sort(r.luns.begin(), r.luns.end(), [](const LogicalUnit &a, const LogicalUnit &b) { return a.lun < b.lun; });
}

RemotePort *LinuxBackend::findRemotePort(FcHostPort &h, uint64_t wwpn) {
    for (int pass = 0; pass < 2; ++pass) {
        if (!h.rportsLoaded || pass == 1) loadRemotePorts(h);
        for (RemotePort &r : h.rports)
            if (r.wwpn == wwpn) return &r;
    }
    return nullptr;
}

const LogicalUnit *LinuxBackend::findUnit(RemotePort &r, uint16_t lun, bool anyForTarget) {
    for (int pass = 0; pass < 2; ++pass) {
        if (!r.unitsLoaded || pass == 1) loadUnits(r);
        for (const LogicalUnit &u : r.luns)
            if (LunNumberOf(u.lun) == lun && !u.generic.empty()) return &u;
        if (anyForTarget)
            for (const LogicalUnit &u : r.luns)
                if (!u.generic.empty()) return &u;
    }
    return nullptr;
}

uint32_t LinuxBackend::discTargets(PortKey key, std::vector<SDDiscTargetProperty> &out) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    loadRemotePorts(*h);
    out.assign(h->rports.size(), SDDiscTargetProperty{});
    for (size_t i = 0; i < h->rports.size(); ++i) {
        RemotePort &r = h->rports[i];
        SDDiscTargetProperty &d = out[i];
        WwnToBytes(r.wwnn, d.WWNN);
        WwnToBytes(r.wwpn, d.WWPN);
        PortIdBytes(r.portId, d.PortId);
        d.TargetType = IsNvmeTarget(r) ? SD_TARGETTYPE_NVME : SD_TARGETTYPE_FCP;
        d.PortType = 1;  // N_Port
        if (r.loggedIn && !r.unitsLoaded) loadUnits(r);
        d.TargetFlags = (r.loggedIn ? SD_TGTFLAG_LOGGED_IN : 0) |
                        ((r.roles & (kRoleFcpTarget | kRoleNvmeTarget)) ? SD_TGTFLAG_TARGET : 0) |
                        ((r.roles & (kRoleFcpInitiator | kRoleNvmeInitiator)) ? SD_TGTFLAG_INITIATOR : 0) |
                        ((r.portId & 0xFFFF00u) ? SD_TGTFLAG_FABRIC : 0);
        for (const LogicalUnit &u : r.luns)
            if (u.type == 0x01 || u.type == 0x08) d.TargetFlags |= SD_TGTFLAG_TAPE;
        d.TargetId = uint16_t(r.targetId >= 0 ? r.targetId : int64_t(i));
    }
    return SDERR_NONE;
}

// ---------------------------------------------------------------- SCSI

uint32_t LinuxBackend::scsi(PortKey key, const ScsiRequest &rq, ScsiReply &reply) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    reply.data.clear();
    reply.sense.clear();
    RemotePort *r = findRemotePort(*h, rq.target);
    if (!r) return SDERR_NOT_FOUND;
    if (rq.op == ScsiOp::ReportLuns && currentState(*h) != SD_PORTSTATE_ONLINE) return SDERR_LOOP_DOWN;
    if (!r->loggedIn) return r->blocked ? SDERR_LOOP_DOWN : SDERR_NOT_FOUND;
    if (IsNvmeTarget(*r)) {
        auto c = FindNvmeController(sysfs_, h->wwpn, r->wwpn);
        return c ? AnswerNvme(*c, rq, reply) : SDERR_NOT_FOUND;
    }
    // REPORT LUNS goes to any unit of the target; the others to their own.
    const LogicalUnit *u = findUnit(*r, rq.lun, rq.op == ScsiOp::ReportLuns);
    if (!u) return SDERR_NOT_FOUND;
    ScsiAddress address;
    address.genericDevice = vt::MapSystemPath("/dev/" + u->generic);
    address.initiator = h->wwpn;
    address.target = r->wwpn;
    address.lun = u->lun;
    const uint32_t allocation = AllocationFor(rq);
    std::vector<uint8_t> data;
    DataDirection dir = DataDirection::In;
    if (rq.op == ScsiOp::TestUnitReady) dir = DataDirection::None;
    else if (rq.op == ScsiOp::WriteBuffer) {
        dir = DataDirection::Out;
        data = rq.dataOut;
    } else data.assign(allocation, 0);
    ScsiOutcome o = transport_->execute(address, Cdb(rq, allocation), dir, data);
    const uint32_t rc = StatusOfOutcome(o);
    if (rc == SDERR_SCSI_CHECK_CONDITION) reply.sense = std::move(o.sense);
    if (rc == SDERR_NONE && dir == DataDirection::In) reply.data = std::move(data);
    return rc;
}

uint32_t LinuxBackend::lunOsName(PortKey key, uint64_t target, uint16_t lun, std::string &name) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    RemotePort *r = findRemotePort(*h, target);
    if (!r) return SDERR_NOT_FOUND;
    if (IsNvmeTarget(*r)) {
        if (auto c = FindNvmeController(sysfs_, h->wwpn, r->wwpn))
            for (const NvmeNamespace &n : c->namespaces)
                if (n.nsid == lun) {
                    name = "/dev/" + n.name;
                    return SDERR_NONE;
                }
        return SDERR_NOT_FOUND;
    }
    for (int pass = 0; pass < 2; ++pass) {
        if (!r->unitsLoaded || pass == 1) loadUnits(*r);
        for (const LogicalUnit &u : r->luns)
            if (LunNumberOf(u.lun) == lun) {
                if (u.osName.empty()) return SDERR_NOT_FOUND;
                name = u.osName;
                return SDERR_NONE;
            }
    }
    return SDERR_NOT_FOUND;
}

// ------------------------------------------------------------ VPD, stats

uint32_t LinuxBackend::vpd(PortKey key, std::vector<uint8_t> &out) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    uint32_t rc = 0;
    out = readVpd(*h, rc);
    return rc;
}

uint32_t LinuxBackend::statistics(PortKey key, SDStatistics &s) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    const std::string dir = h->attr + "/statistics";
    if (!IsDir(dir)) return SDERR_NOT_SUPPORTED;
    auto c = [&](const char *name) { return ParseCounter(Text(ReadFile(dir + "/" + name))); };
    s = SDStatistics{};
    s.SecondsSinceLastReset = c("seconds_since_last_reset");
    s.TxFrames = c("tx_frames");
    s.RxFrames = c("rx_frames");
    s.TxWords = c("tx_words");
    s.RxWords = c("rx_words");
    s.LipCount = c("lip_count");
    s.NosCount = c("nos_count");
    s.ErrorFrames = c("error_frames");
    s.DumpedFrames = c("dumped_frames");
    s.InputRequests = c("fcp_input_requests");
    s.OutputRequests = c("fcp_output_requests");
    s.ControlRequests = c("fcp_control_requests");
    s.InputMBytes = c("fcp_input_megabytes");
    s.OutputMBytes = c("fcp_output_megabytes");
    s.TotalIoCount = s.InputRequests + s.OutputRequests + s.ControlRequests;
    s.TotalMBytes = s.InputMBytes + s.OutputMBytes;
    s.LinkFailureCount = uint32_t(c("link_failure_count"));
    s.LossOfSyncCount = uint32_t(c("loss_of_sync_count"));
    s.LossOfSignalCount = uint32_t(c("loss_of_signal_count"));
    s.PrimitiveSeqProtocolErrorCount = uint32_t(c("prim_seq_protocol_err_count"));
    s.InvalidTransmissionWordCount = uint32_t(c("invalid_tx_word_count"));
    s.InvalidCRCCount = uint32_t(c("invalid_crc_count"));
    return SDERR_NONE;
}

uint32_t LinuxBackend::writeControl(const std::string &path, const std::string &text) {
    if (!WriteAttr(path, text)) return StatusOfWrite(errno);
    if (hook_) hook_(path);
    return SDERR_NONE;
}

uint32_t LinuxBackend::resetStatistics(PortKey key) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    return writeControl(h->attr + "/statistics/reset_statistics", "1");
}

// ---------------------------------------------------------------- events

uint32_t LinuxBackend::takeEvents(PortKey key, uint32_t room, std::vector<SDAenRecord> &events, uint32_t &queued) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    events.clear();
    queued = 0;
    // The kernel's own events where they can be had; a private tree is not
    // the running system, so there the state is compared instead.
    if (!eventsTried_) {
        eventsTried_ = true;
        const char *root = getenv("VTAPI_SYSROOT");
        if (!root || !*root) {
            events_ = std::make_unique<FcEventSocket>();
            if (!events_->valid()) events_.reset();
        }
    }
    if (events_) {
        for (const FcHostEvent &e : events_->drain())
            if (uint32_t code = AenCodeOf(e.code)) {
                auto &q = pendingEvents_[e.hostNo];
                if (q.size() >= kEventQueueDepth) {  // full, as firmware's would be: the oldest goes
                    q.erase(q.begin());
                    ++droppedEvents_[e.hostNo];
                }
                q.push_back(code);
            }
        auto it = pendingEvents_.find(h->hostNo);
        if (it != pendingEvents_.end()) {
            queued = uint32_t(it->second.size());
            const size_t n = std::min<size_t>(room, it->second.size());
            for (size_t i = 0; i < n; ++i) events.push_back({it->second[i], {0, 0, 0}});
            it->second.erase(it->second.begin(), it->second.begin() + ptrdiff_t(n));
            if (it->second.empty()) pendingEvents_.erase(it);
        }
        return SDERR_NONE;
    }
    if (room == 0) return SDERR_NONE;  // a change seen now would have nowhere to go
    const uint16_t now = currentState(*h);
    auto [it, first] = lastState_.emplace(h->wwpn, now);
    if (!first && it->second != now) {
        const bool wasUp = it->second == SD_PORTSTATE_ONLINE, isUp = now == SD_PORTSTATE_ONLINE;
        if (wasUp != isUp) events.push_back({isUp ? SD_AEN_LINK_UP : SD_AEN_LINK_DOWN, {0, 0, 0}});
        it->second = now;
    }
    queued = uint32_t(events.size());
    return SDERR_NONE;
}

uint32_t LinuxBackend::eventQueue(PortKey key, SDAenQueueStatus &out) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    out = SDAenQueueStatus{};
    out.Capacity = uint32_t(kEventQueueDepth);
    if (auto it = pendingEvents_.find(h->hostNo); it != pendingEvents_.end()) out.Queued = uint32_t(it->second.size());
    if (auto it = droppedEvents_.find(h->hostNo); it != droppedEvents_.end())
        out.Dropped = uint32_t(std::min<uint64_t>(it->second, UINT32_MAX));
    return SDERR_NONE;
}

// ------------------------------------------------------------ virtual ports

uint32_t LinuxBackend::createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &vportId) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    if (wwpn == 0) return SDERR_INVALID_PARAMETER;
    if (h->vport) return SDERR_NOT_SUPPORTED;
    SDNodeProperty node;
    nodeProperty(key, node);
    if (node.Interface != SD_INTERFACE_FC || ParseDecimal(attr(*h, "max_npiv_vports")).value_or(0) <= 0)
        return SDERR_NOT_SUPPORTED;
    scanHosts();
    if (byWwpn_.count(wwpn)) return SDERR_INVALID_PARAMETER;
    if (!(h = find(key))) return SDERR_DEVICE_REMOVED;
    const std::string control = h->attr + "/vport_create";
    if (uint32_t rc = writeControl(control, FormatWwnPair(wwpn, wwnn ? wwnn : wwpn))) return rc;
    scanHosts();
    auto it = byWwpn_.find(wwpn);
    // The kernel makes the port before the write returns; without it the
    // request went nowhere.
    if (it == byWwpn_.end() || !hosts_[it->second].vport) return SDERR_IO_FAILED;
    vportId = uint16_t(hosts_[it->second].vportNumber + 1);
    return SDERR_NONE;
}

uint32_t LinuxBackend::deleteVport(PortKey key, uint64_t wwpn) {
    FcHostPort *h = find(key);
    if (!h) return SDERR_DEVICE_REMOVED;
    if (h->vport) return SDERR_NOT_SUPPORTED;
    scanHosts();
    if (!(h = find(key))) return SDERR_DEVICE_REMOVED;
    const FcHostPort &parent = *h;
    for (const FcHostPort &v : hosts_) {
        if (!v.vport || v.parentHostNo != parent.hostNo || v.wwpn != wwpn) continue;
        const std::string control = parent.attr + "/vport_delete";
        const uint64_t vwwnn = v.wwnn;
        if (uint32_t rc = writeControl(control, FormatWwnPair(wwpn, vwwnn))) return rc;
        scanHosts();
        return SDERR_NONE;
    }
    return SDERR_NOT_FOUND;
}

}  // namespace vtsdm::linuxfc
