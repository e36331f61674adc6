#include "sim.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "imagebuild.h"
#include "nvram_map.h"
#include "scsi.h"
#include "sysroot.h"

namespace vtsdm {

namespace {

void CopyText(char *dst, size_t size, const std::string &src) {
    size_t n = std::min(size - 1, src.size());
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

void PortIdBytes(uint32_t id, uint8_t out[3]) {
    out[0] = uint8_t(id >> 16);
    out[1] = uint8_t(id >> 8);
    out[2] = uint8_t(id);
}

bool PortUp(uint16_t state) { return state == SD_PORTSTATE_ONLINE; }

image::Version VersionOf(const std::string &text) {
    return image::ParseVersion(text).value_or(image::Version{});
}

}  // namespace

std::string InstallationDir() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(&InstallationDir), &info) == 0 || info.dli_fname == nullptr)
        return ".";
    std::string self = info.dli_fname;
    auto pos = self.rfind("/lib64/");
    if (pos == std::string::npos) {
        // Linked into a program rather than loaded as a library.
        char exe[4096];
        ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
        if (n <= 0) return ".";
        self.assign(exe, size_t(n));
        pos = self.rfind("/lib64/");
    }
    if (pos != std::string::npos) return pos == 0 ? "/" : self.substr(0, pos);
    // Linked into a program: <dir>/bin/program -> <dir>.
    std::filesystem::path p(self);
    return p.parent_path().parent_path().string();
}

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
    for (const VPortRecord &r : currentVports()) {
        const Port *parent = findPort(r.parentWwpn);
        if (!parent) continue;
        View v;
        v.instance = uint32_t(out.size());
        v.port = parent;
        v.card = &host_.cards[parent->card];
        v.vport = r;
        out.push_back(v);
    }
    return out;
}

uint32_t Simulator::instancePort(uint32_t instance, View &v) {
    auto all = instances();
    if (instance >= all.size()) return SDERR_NO_SUCH_DEVICE;
    v = all[instance];
    return SDERR_NONE;
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

uint32_t Simulator::open(uint32_t instance, uint32_t *handle) {
    if (!handle) return SDERR_INVALID_PARAMETER;
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (!v.vport) {
        if (v.port->unsupported) return SDERR_NOT_SUPPORTED;
        if (v.port->openUnavailable &&
            consumeFault("open/" + FormatWwn(v.port->wwpn), v.port->openUnavailable))
            return SDERR_DEVICE_UNAVAILABLE;
    }
    uint32_t h = nextHandle_++;
    handles_[h] = v.wwpn();
    *handle = h;
    return SDERR_NONE;
}

uint32_t Simulator::close(uint32_t handle) {
    return handles_.erase(handle) ? SDERR_NONE : SDERR_INVALID_HANDLE;
}

uint32_t Simulator::resolve(uint32_t handle, View &v) {
    auto it = handles_.find(handle);
    if (it == handles_.end()) return SDERR_INVALID_HANDLE;
    auto pit = portByWwpn_.find(it->second);
    if (pit != portByWwpn_.end()) {
        v = View{};
        v.instance = pit->second;
        v.port = &host_.ports[pit->second];
        v.card = &host_.cards[v.port->card];
        return SDERR_NONE;
    }
    for (const View &x : instances())
        if (x.vport && x.vport->wwpn == it->second) {
            v = x;
            return SDERR_NONE;
        }
    return SDERR_DEVICE_REMOVED;
}

uint16_t Simulator::currentPortState(const View &v) {
    const State &s = store_.current();
    auto it = s.ports.find(v.port->wwpn);
    if (it != s.ports.end() && it->second.portState) return *it->second.portState;
    return v.port->portState;
}

uint32_t Simulator::chipProperty(uint32_t h, SDChipProperty *p) {
    View v;
    if (!p) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    *p = SDChipProperty{};
    p->VendorID = v.card->vendorId;
    p->DeviceID = v.card->deviceId;
    p->SubVendorID = v.card->subVendorId;
    p->SubSystemID = v.card->subSystemId;
    p->PciBusNumber = v.card->pciBus;
    p->PciDevFunc = uint16_t((v.card->pciDevice << 3) | (v.port->function & 7));
    p->ChipRevision = v.card->chipRevision;
    p->PhysPortNumber = v.port->physPort;
    p->NumberOfPorts = uint8_t(v.card->ports.size());
    p->IspType = v.card->ispType;
    p->NvramSize = v.card->nvramSize;
    return SDERR_NONE;
}

uint32_t Simulator::driverProperty(uint32_t h, SDDriverProperty *p) {
    View v;
    if (!p) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    *p = SDDriverProperty{};
    CopyText(p->DriverName, sizeof p->DriverName, v.card->driverName);
    CopyText(p->DriverVersion, sizeof p->DriverVersion, v.card->driverVersion);
    p->LunsPerTarget = v.card->lunsPerTarget;
    p->MaxVports = v.card->maxVports;
    p->MaxVportsWithQoS = v.card->maxVportsWithQoS;
    p->Capabilities = v.card->driverCaps;
    return SDERR_NONE;
}

uint32_t Simulator::nodeProperty(uint32_t h, SDNodeProperty *p) {
    View v;
    if (!p) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    *p = SDNodeProperty{};
    WwnToBytes(v.vport ? v.vport->wwnn : v.port->wwnn, p->WWNN);
    CopyText(p->Manufacturer, sizeof p->Manufacturer, v.card->manufacturer);
    CopyText(p->Model, sizeof p->Model, v.card->model);
    CopyText(p->ModelDescription, sizeof p->ModelDescription, v.card->description);
    CopyText(p->SerialNumber, sizeof p->SerialNumber, v.card->serial);
    CopyText(p->DriverVersion, sizeof p->DriverVersion, v.card->driverVersion);
    CopyText(p->FirmwareVersion, sizeof p->FirmwareVersion, v.port->firmware);
    CopyText(p->OptionRomVersion, sizeof p->OptionRomVersion, v.port->optionRom);
    image::Version fw = VersionOf(v.card->versions.firmware);
    p->FlashFwVersion[0] = fw.major;
    p->FlashFwVersion[1] = fw.minor;
    p->FlashFwVersion[2] = fw.subminor;
    if (v.vport) {
        p->VPortId = v.vport->vportId;
        p->Interface = SD_INTERFACE_VPORT;
        p->VPortIndex = uint8_t(v.vport->vportId);
        p->ParentInstance = uint32_t(v.port - host_.ports.data());
        WwnToBytes(v.port->wwpn, p->ParentWWPN);
    } else {
        p->Interface = v.port->interface;
        p->ParentInstance = v.instance;
    }
    return SDERR_NONE;
}

uint32_t Simulator::portProperty(uint32_t h, SDPortProperty *p) {
    View v;
    if (!p) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    *p = SDPortProperty{};
    const Port &port = *v.port;
    WwnToBytes(v.wwpn(), p->WWPN);
    PortIdBytes(v.vport ? (port.portId & 0xFFFF00u) | ((port.portId + v.vport->vportId) & 0xFF) : port.portId,
                p->PortId);
    p->PortState = currentPortState(v);
    const State &s = store_.current();
    auto it = s.ports.find(port.wwpn);
    p->PortSubState = (it != s.ports.end() && it->second.portSubState) ? *it->second.portSubState
                                                                       : port.portSubState;
    p->PortSpeed = PortUp(p->PortState) ? port.speedCode : 0;
    p->SupportedSpeed = (v.card->driverCaps & SD_DRVCAP_SUPPORTED_SPEED) ? port.supportedMask : 0;
    p->StateFlags = port.stateFlags;
    p->MaxFrameSize = port.maxFrameSize;
    p->DiscoveredTargets = uint32_t(port.targets.size());
    if (!v.vport) {
        uint32_t n = 0;
        for (const VPortRecord &r : currentVports()) n += r.parentWwpn == port.wwpn;
        p->NumberOfVports = n;
    }
    WwnToBytes(port.principalFabric, p->PrincipalFabricWWPN);
    WwnToBytes(port.adjacentFabric, p->AdjacentFabricWWN);
    WwnToBytes(port.fabricName, p->FabricName);
    memcpy(p->EnodeMAC, port.enodeMac, 6);
    std::string name = port.deviceName;
    if (name.empty()) name = "host" + std::to_string(v.instance + 1);
    CopyText(p->DeviceName, sizeof p->DeviceName, name);
    return SDERR_NONE;
}

uint32_t Simulator::discTargets(uint32_t h, SDDiscTargetProperty *buf, uint32_t *count) {
    View v;
    if (!count) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    const auto &targets = v.port->targets;
    uint32_t room = buf ? *count : 0;
    *count = uint32_t(targets.size());
    if (room < targets.size()) return SDERR_BUFFER_TOO_SMALL;
    const bool up = PortUp(currentPortState(v));
    for (size_t i = 0; i < targets.size(); ++i) {
        const Target &t = targets[i];
        SDDiscTargetProperty &d = buf[i];
        d = SDDiscTargetProperty{};
        WwnToBytes(t.wwnn, d.WWNN);
        WwnToBytes(t.wwpn, d.WWPN);
        PortIdBytes(t.portId, d.PortId);
        d.TargetType = t.targetType;
        d.PortType = t.portType;
        d.TargetFlags = SD_TGTFLAG_TARGET | SD_TGTFLAG_FABRIC | (t.tape ? SD_TGTFLAG_TAPE : 0) |
                        (t.loggedIn && up && !t.faults.removed ? SD_TGTFLAG_LOGGED_IN : 0);
        d.TargetId = uint16_t(i);
    }
    return SDERR_NONE;
}

const Target *Simulator::findTarget(const View &v, const uint8_t *wwpn) const {
    if (!wwpn) return nullptr;
    const auto &index = targetByWwpn_[size_t(v.port - host_.ports.data())];
    auto it = index.find(WwnFromBytes(wwpn));
    return it == index.end() ? nullptr : &v.port->targets[it->second];
}

uint32_t Simulator::scsi(uint32_t h, const uint8_t *targetWwpn, uint16_t lunNumber, Cdb cdb, uint8_t evpd,
                         uint8_t page, const std::vector<uint8_t> &dataOut, std::vector<uint8_t> &resp,
                         std::vector<uint8_t> &sense) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    resp.clear();
    sense.clear();
    const Target *t = findTarget(v, targetWwpn);
    if (!t) return SDERR_NOT_FOUND;
    // Commands that change nothing do not look at the state file, so a scan
    // of many LUNs stays cheap; REPORT LUNS picks up link changes.
    if (cdb == Cdb::ReportLuns && !PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    if (t->faults.removed) return SDERR_DEVICE_REMOVED;
    if (!t->loggedIn) return SDERR_NOT_FOUND;
    auto check = [&](uint8_t key, uint8_t asc, uint8_t ascq) {
        sense = scsi::Sense(key, asc, ascq);
        return SDERR_SCSI_CHECK_CONDITION;
    };

    if (cdb == Cdb::ReportLuns) {
        if (!t->faultKey.empty()) {
            if (consumeFault(t->faultKey + "/rl-busy", t->faults.reportLunsBusy)) return SDERR_DEVICE_BUSY;
            if (consumeFault(t->faultKey + "/rl-ua", t->faults.reportLunsUnitAttention))
                return check(scsi::kKeyUnitAttention, 0x29, 0x00);
            if (consumeFault(t->faultKey + "/rl-check", t->faults.reportLunsCheck))
                return check(scsi::kKeyIllegalRequest, 0x20, 0x00);
        }
        resp = scsi::ReportLuns(*t);
        return SDERR_NONE;
    }

    std::optional<Lun> lun = t->findLun(lunNumber);
    if (cdb == Cdb::Inquiry) {
        if (!lun) {
            if (evpd) return check(scsi::kKeyIllegalRequest, 0x25, 0x00);
            resp = (lunNumber == 0 && t->inquiry) ? scsi::StandardInquiry(*t->inquiry, false)
                                                  : scsi::NoLunInquiry();
            return SDERR_NONE;
        }
        if (lun->inquiryFails) return check(scsi::kKeyHardwareError, 0x44, 0x00);
        if (evpd) {
            if (!scsi::VpdPage(page, *t, *lun, resp)) return check(scsi::kKeyIllegalRequest, 0x24, 0x00);
            return SDERR_NONE;
        }
        resp = scsi::StandardInquiry(lun->inquiry, lun->inquiry.type == 0x01);
        return SDERR_NONE;
    }
    if (!lun) return check(scsi::kKeyIllegalRequest, 0x25, 0x00);  // LUN not supported
    switch (cdb) {
    case Cdb::TestUnitReady:
        if (lun->passive) return check(scsi::kKeyNotReady, 0x04, 0x0B);  // standby port
        return SDERR_NONE;
    case Cdb::ReadCapacity10:
    case Cdb::ReadCapacity16:
        if (lun->inquiry.type != 0x00) return check(scsi::kKeyIllegalRequest, 0x20, 0x00);
        if (!t->faultKey.empty() &&
            consumeFault(t->faultKey + "/rc-ua", t->faults.readCapacityUnitAttention))
            return check(scsi::kKeyUnitAttention, 0x29, 0x00);
        resp = cdb == Cdb::ReadCapacity10 ? scsi::ReadCapacity10(*lun) : scsi::ReadCapacity16(*lun);
        return SDERR_NONE;
    case Cdb::WriteBuffer:
        if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
        buffers_[{v.wwpn(), t->wwpn, lunNumber}] = dataOut;
        return SDERR_NONE;
    case Cdb::ReadBuffer: {
        if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
        auto it = buffers_.find({v.wwpn(), t->wwpn, lunNumber});
        if (it != buffers_.end()) resp = it->second;
        return SDERR_NONE;
    }
    default:
        return SDERR_INVALID_PARAMETER;
    }
}

uint32_t Simulator::lunOsName(uint32_t h, const uint8_t *targetWwpn, uint16_t lunNumber, std::string &name) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    const Target *t = findTarget(v, targetWwpn);
    if (!t) return SDERR_NOT_FOUND;
    auto lun = t->findLun(lunNumber);
    if (!lun || lun->osName.empty()) return SDERR_NOT_FOUND;
    name = lun->osName;
    return SDERR_NONE;
}

std::vector<uint8_t> Simulator::initialNvram(const View &v) {
    nvram::Identity id{};
    WwnToBytes(v.port->wwnn, id.wwnn);
    WwnToBytes(v.port->wwpn, id.wwpn);
    id.ssvid = v.card->subVendorId;
    id.ssdid = v.card->subSystemId;
    id.serial = v.card->serial;
    std::vector<uint8_t> img = nvram::DefaultImage(v.card->nvramSize, id);
    nvram::SetValue(img.data(), img.size(), nvram::kVendorId, v.card->vendorId);
    nvram::SetValue(img.data(), img.size(), nvram::kDeviceId, v.card->deviceId);
    for (const auto &[key, value] : v.port->nvram) nvram::SetValue(img.data(), img.size(), key, value);
    nvram::ComputeChecksum(img.data(), img.size());
    return img;
}

uint32_t Simulator::nvramSize(uint32_t h, uint32_t &size) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    size = v.card->nvramSize;
    return SDERR_NONE;
}

uint32_t Simulator::nvramImage(uint32_t h, uint32_t area, std::vector<uint8_t> &image) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (area != 1 && area != 2) return SDERR_INVALID_PARAMETER;
    const State &s = store_.current();
    auto it = s.ports.find(v.port->wwpn);
    if (it != s.ports.end() && it->second.nvram[area - 1]) {
        image = *it->second.nvram[area - 1];
        return SDERR_NONE;
    }
    image = initialNvram(v);
    return SDERR_NONE;
}

uint32_t Simulator::updateNvram(uint32_t h, uint32_t area, const uint8_t *data, uint32_t size) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (!data || (area != 1 && area != 2)) return SDERR_INVALID_PARAMETER;
    if (size < v.card->nvramSize) return SDERR_BUFFER_TOO_SMALL;
    if (size != v.card->nvramSize || !nvram::IsValid(data, size)) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> img(data, data + size);
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].nvram[area - 1] = img;
        return SDERR_NONE;
    });
}

const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &Simulator::baseFlash(const Card &c) {
    uint32_t index = uint32_t(&c - host_.cards.data());
    auto it = flash_.find(index);
    if (it != flash_.end()) return it->second;
    image::FlashSetSpec flash;
    if (!c.versions.bios.empty()) flash.bios = VersionOf(c.versions.bios);
    if (!c.versions.fcode.empty()) flash.fcode = VersionOf(c.versions.fcode);
    if (!c.versions.efi.empty()) flash.efi = VersionOf(c.versions.efi);
    flash.firmware = VersionOf(c.versions.firmware);
    flash.multiboot = VersionOf(c.versions.multiboot);
    flash.deviceId = c.deviceId;
    flash.subVendorId = c.subVendorId;
    flash.subSystemId = c.subSystemId;
    flash.vpdIdentifier = c.description;
    std::vector<std::pair<std::string, std::string>> ro;
    auto has = [&](const char *k) {
        return std::any_of(c.vpd.begin(), c.vpd.end(), [&](const auto &e) { return e.first == k; });
    };
    if (!has("PN")) ro.emplace_back("PN", c.model);
    if (!has("SN")) ro.emplace_back("SN", c.serial);
    if (!has("MN")) ro.emplace_back("MN", "1077");
    if (!has("V1") && !c.versions.efi.empty()) ro.emplace_back("V1", c.versions.efi);
    if (!has("V3")) ro.emplace_back("V3", c.versions.firmware);
    if (!has("V4") && !c.versions.bios.empty()) ro.emplace_back("V4", c.versions.bios);
    if (!has("V5") && !c.versions.fcode.empty()) ro.emplace_back("V5", c.versions.fcode);
    if (!has("RM") && !has("V9") && !c.versions.multiboot.empty()) ro.emplace_back("RM", c.versions.multiboot);
    for (const auto &e : c.vpd) ro.push_back(e);
    flash.vpdReadOnly = ro;
    if (c.ispType >= 24 && c.ispType <= 26) flash.nvmeBootRegions = {image::kRegionNvmeBoot};
    else if (c.ispType > 26) flash.nvmeBootRegions = {image::kRegionNvmeBootActive, image::kRegionNvmeBootInactive};
    else flash.nvmeBootRegions.clear();
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> regions;
    for (auto &r : image::BuildFlashSet(flash)) regions.emplace_back(r.type, std::move(r.bytes));
    return flash_.emplace(index, std::move(regions)).first->second;
}

uint32_t Simulator::readRegion(uint32_t h, uint32_t region, std::vector<uint8_t> &bytes) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    const State &s = store_.current();
    auto cs = s.flash.find(v.card->serial);
    if (cs != s.flash.end()) {
        auto r = cs->second.find(region);
        if (r != cs->second.end()) {
            bytes = r->second;
            return SDERR_NONE;
        }
    }
    for (const auto &[code, data] : baseFlash(*v.card))
        if (code == region) {
            bytes = data;
            return SDERR_NONE;
        }
    return SDERR_NOT_FOUND;
}

uint32_t Simulator::writeRegion(uint32_t h, uint32_t region, uint32_t offset, const uint8_t *data,
                                uint32_t size) {
    std::vector<uint8_t> current;
    if (uint32_t rc = readRegion(h, region, current)) return rc;
    if (!data || uint64_t(offset) + size > current.size()) return SDERR_INVALID_PARAMETER;
    View v;
    resolve(h, v);
    return store_.modify([&](State &s) {
        auto &regions = s.flash[v.card->serial];
        auto it = regions.find(region);
        std::vector<uint8_t> &bytes = it != regions.end() ? it->second : (regions[region] = current);
        std::copy(data, data + size, bytes.begin() + offset);
        return SDERR_NONE;
    });
}

uint32_t Simulator::vpd(uint32_t h, std::vector<uint8_t> &out) {
    return readRegion(h, image::kRegionVpd, out);
}

uint32_t Simulator::flashLayout(uint32_t h, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    regions.clear();
    flashSize = 0;
    for (const auto &[code, data] : baseFlash(*v.card)) {
        regions.push_back({code, uint32_t(data.size())});
        flashSize += uint32_t(data.size());
    }
    // Round the part up to a power of two, as flash parts come.
    uint32_t part = 1u << 20;
    while (part < flashSize) part <<= 1;
    flashSize = part;
    return SDERR_NONE;
}

uint32_t Simulator::takeEvents(uint32_t h, std::vector<SDAenRecord> &events) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (!(v.card->driverCaps & SD_DRVCAP_AEN)) return SDERR_NOT_SUPPORTED;
    events.clear();
    const uint64_t key = v.wwpn();
    const State &s = store_.current();
    auto it = s.ports.find(key);
    if (it == s.ports.end() || it->second.events.empty()) return SDERR_NONE;
    return store_.modify([&](State &st) {
        auto &q = st.ports[key].events;
        events.swap(q);
        q.clear();
        return SDERR_NONE;
    });
}

uint32_t Simulator::statistics(uint32_t h, SDStatistics *out) {
    View v;
    if (!out) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    const State &s = store_.current();
    auto it = s.ports.find(v.wwpn());
    SDStatistics st = v.vport ? SDStatistics{} : v.port->statistics;
    if (it != s.ports.end()) {
        if (it->second.statistics) st = *it->second.statistics;
        if (it->second.statisticsResetAt)
            st.SecondsSinceLastReset = uint64_t(std::max<int64_t>(0, time(nullptr) - it->second.statisticsResetAt));
    }
    *out = st;
    return SDERR_NONE;
}

uint32_t Simulator::resetStatistics(uint32_t h) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        p.statistics = SDStatistics{};
        p.statisticsResetAt = time(nullptr);
        return SDERR_NONE;
    });
}

uint32_t Simulator::remoteLinkStatus(uint32_t h, const uint8_t *targetWwpn, SDLinkErrorStatus *out) {
    View v;
    if (!out) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    const Target *t = findTarget(v, targetWwpn);
    if (!t) return SDERR_NOT_FOUND;
    if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    if (t->faults.removed) return SDERR_DEVICE_REMOVED;
    if (!t->loggedIn) return SDERR_NOT_FOUND;
    *out = t->linkErrors;
    return SDERR_NONE;
}

uint32_t Simulator::loopback(uint32_t h, uint32_t option, const void *tx, void *rx, uint32_t size,
                             uint32_t iterations, SDDiagResult *r, bool maxIo) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (!tx || !rx || !r) return SDERR_INVALID_PARAMETER;
    const uint32_t limit = maxIo ? 65536u : 0x200168u;
    if (size == 0 || size > limit) return SDERR_DIAG_PARAMETER;
    const bool internal = !maxIo && (option == SD_LOOPBACK_INTERNAL_10BIT || option == SD_LOOPBACK_INTERNAL_1BIT);
    if (!maxIo && !internal && option != SD_LOOPBACK_EXTERNAL && option != SD_LOOPBACK_ECHO)
        return SDERR_DIAG_PARAMETER;
    if (!internal && !PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    memcpy(rx, tx, size);
    *r = SDDiagResult{};
    r->CrcErrors = v.port->diag.crcErrors;
    r->IterationsDone = iterations;
    return SDERR_NONE;
}

uint32_t Simulator::createVport(uint32_t h, uint64_t wwnn, uint64_t wwpn, uint16_t *id) {
    View v;
    if (!id || wwpn == 0) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (v.vport || v.port->interface != SD_INTERFACE_FC || v.card->maxVports == 0) return SDERR_NOT_SUPPORTED;
    const uint64_t parent = v.port->wwpn;
    const uint32_t maxVports = v.card->maxVports, withQos = v.card->maxVportsWithQoS;
    const size_t physical = host_.ports.size();
    auto known = [&](const std::vector<VPortRecord> &vports) {
        if (portByWwpn_.count(wwpn)) return true;
        for (const auto &r : vports)
            if (r.wwpn == wwpn) return true;
        for (const Port &p : host_.ports)
            for (const Target &t : p.targets)
                if (t.wwpn == wwpn) return true;
        return false;
    };
    auto initial = currentVports();
    return store_.modify([&](State &s) {
        if (!s.vports) s.vports = initial;
        auto &list = *s.vports;
        if (known(list)) return SDERR_INVALID_PARAMETER;
        uint32_t mine = 0;
        std::vector<bool> used(256, false);
        for (const auto &r : list)
            if (r.parentWwpn == parent) {
                ++mine;
                used[r.vportId] = true;
            }
        if (mine >= maxVports || physical + list.size() >= SD_MAX_INSTANCES) return SDERR_NOT_SUPPORTED;
        uint16_t next = 1;
        while (used[next]) ++next;
        VPortRecord r;
        r.parentWwpn = parent;
        r.wwnn = wwnn ? wwnn : wwpn;
        r.wwpn = wwpn;
        r.vportId = next;
        r.qos = SDQoS{next, SD_QOS_PERCENTAGE, 0, uint16_t(next <= withQos ? 1 : 0)};
        list.push_back(r);
        *id = next;
        return SDERR_NONE;
    });
}

uint32_t Simulator::deleteVport(uint32_t h, uint64_t wwpn) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const uint64_t parent = v.port->wwpn;
    auto initial = currentVports();
    return store_.modify([&](State &s) {
        if (!s.vports) s.vports = initial;
        auto &list = *s.vports;
        auto it = std::find_if(list.begin(), list.end(),
                               [&](const VPortRecord &r) { return r.wwpn == wwpn && r.parentWwpn == parent; });
        if (it == list.end()) return SDERR_NOT_FOUND;
        s.ports.erase(wwpn);
        list.erase(it);
        return SDERR_NONE;
    });
}

uint32_t Simulator::getQoS(uint32_t h, uint64_t vportWwpn, SDQoS *q) {
    View v;
    if (!q) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(h, v)) return rc;
    for (const auto &r : currentVports())
        if (r.wwpn == vportWwpn && r.parentWwpn == v.port->wwpn) {
            *q = r.qos;
            return SDERR_NONE;
        }
    return SDERR_NOT_FOUND;
}

uint32_t Simulator::setQoS(uint32_t h, uint64_t vportWwpn, const SDQoS &q) {
    View v;
    if (uint32_t rc = resolve(h, v)) return rc;
    if (q.QoSType > SD_QOS_SPEED || (q.QoSType == SD_QOS_PERCENTAGE && q.QoSValue > 100))
        return SDERR_INVALID_PARAMETER;
    const uint64_t parent = v.port->wwpn;
    auto initial = currentVports();
    return store_.modify([&](State &s) {
        if (!s.vports) s.vports = initial;
        for (auto &r : *s.vports)
            if (r.wwpn == vportWwpn && r.parentWwpn == parent) {
                if (!r.qos.QoSEnabled) return SDERR_NOT_SUPPORTED;
                r.qos.QoSType = q.QoSType;
                r.qos.QoSValue = q.QoSValue;
                return SDERR_NONE;
            }
        return SDERR_NOT_FOUND;
    });
}

uint32_t Simulator::queueEvent(uint32_t instance, uint32_t code) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        s.ports[v.wwpn()].events.push_back({code, {0, 0, 0}});
        return SDERR_NONE;
    });
}

uint32_t Simulator::setLinkState(uint32_t instance, uint16_t state, bool dport) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const uint16_t before = currentPortState(v);
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.port->wwpn];
        p.portState = state;
        p.portSubState = dport ? SD_PORTSUBSTATE_DPORT : SD_PORTSUBSTATE_NONE;
        // A change of link brings its event, as the driver would queue it.
        if (PortUp(before) && !PortUp(state)) p.events.push_back({SD_AEN_LINK_DOWN, {0, 0, 0}});
        if (!PortUp(before) && PortUp(state)) p.events.push_back({SD_AEN_LINK_UP, {0, 0, 0}});
        return SDERR_NONE;
    });
}

uint32_t Simulator::addCounters(uint32_t instance, const SDStatistics &delta) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    const SDStatistics base = v.vport ? SDStatistics{} : v.port->statistics;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        SDStatistics st = p.statistics.value_or(base);
        auto *dst = reinterpret_cast<uint64_t *>(&st);
        auto *src = reinterpret_cast<const uint64_t *>(&delta);
        for (size_t i = 0; i < offsetof(SDStatistics, LinkFailureCount) / 8; ++i) dst[i] += src[i];
        st.LinkFailureCount += delta.LinkFailureCount;
        st.LossOfSyncCount += delta.LossOfSyncCount;
        st.LossOfSignalCount += delta.LossOfSignalCount;
        st.PrimitiveSeqProtocolErrorCount += delta.PrimitiveSeqProtocolErrorCount;
        st.InvalidTransmissionWordCount += delta.InvalidTransmissionWordCount;
        st.InvalidCRCCount += delta.InvalidCRCCount;
        p.statistics = st;
        return SDERR_NONE;
    });
}

// ---------------------------------------------------------------- access

namespace {

std::recursive_mutex g_lock;
std::unique_ptr<Simulator> g_sim;
std::string g_error;
bool g_reported = false;

// The environment the simulator was loaded under; a change (tests switch
// hosts and private roots) loads it again.
struct EnvKey {
    std::string host, state, root;
    static std::string Get(const char *name) {
        const char *v = getenv(name);
        return v ? v : "";
    }
    bool changed() const {
        auto same = [](const std::string &cached, const char *name) {
            const char *v = getenv(name);
            return cached == (v ? v : "");
        };
        return !same(host, "VTSDM_HOST") || !same(state, "VTSDM_STATE_DIR") || !same(root, "VTAPI_SYSROOT");
    }
    void take() {
        host = Get("VTSDM_HOST");
        state = Get("VTSDM_STATE_DIR");
        root = Get("VTAPI_SYSROOT");
    }
};
EnvKey g_env;

}  // namespace

SimAccess AcquireSimulator() {
    std::unique_lock<std::recursive_mutex> lock(g_lock);
    if ((g_sim || !g_error.empty()) && g_env.changed()) {
        g_sim.reset();
        g_error.clear();
        g_reported = false;
    }
    if (!g_sim && g_error.empty()) {
        g_env.take();
        try {
            g_sim = std::make_unique<Simulator>(DefaultHostPath(), DefaultStateDir());
        } catch (const std::exception &e) {
            g_error = e.what();
        }
    }
    if (!g_sim && !g_reported) {
        g_reported = true;
        fprintf(stderr, "vtsdm: %s\n", g_error.c_str());
    }
    return SimAccess{std::move(lock), g_sim.get()};
}

std::string LoadError() {
    std::lock_guard<std::recursive_mutex> lock(g_lock);
    return g_error;
}

void UnloadSimulator() {
    std::lock_guard<std::recursive_mutex> lock(g_lock);
    g_sim.reset();
    g_error.clear();
    g_reported = false;
}

}  // namespace vtsdm
