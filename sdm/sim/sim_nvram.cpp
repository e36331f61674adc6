// NVRAM images of simulated ports: built from the host file's values until
// a program writes one, then kept in the state.  The port enforces what its
// firmware would: a locked port refuses NVRAM and flash writes, a port in
// maintenance mode refuses NVRAM writes, injected faults fail reads and
// writes without touching the image, and the settings a reset applies (data
// rate, port disable) change the port only after a simulated reset, with the
// reboot-required flag raised until then.  Each port also has a global NVRAM
// region carrying its WWPN, and cards after type 26 an active-region record
// that says which FC-NVMe boot region is in use.
#include <algorithm>

#include "nvram_map.h"
#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

namespace {

// NVRAM settings that take effect at the port's next reset.
constexpr uint32_t kResetApplied[] = {nvram::kDataRate, nvram::kPortDisable};
constexpr uint32_t kDataRateAuto = 2;

// Port speed code of a fixed data-rate code (bit n of the supported-speed
// mask is data-rate code n); 0 for auto and unknown codes.
uint32_t SpeedForDataRate(uint32_t code) {
    static const uint32_t kSpeeds[] = {SD_SPEED_1G,  SD_SPEED_2G,  0,           SD_SPEED_4G, SD_SPEED_8G,
                                       SD_SPEED_16G, SD_SPEED_32G, SD_SPEED_64G};
    return code < std::size(kSpeeds) ? kSpeeds[code] : 0;
}

const PortChanges *ChangesOf(const State &s, uint64_t wwpn) {
    auto it = s.ports.find(wwpn);
    return it == s.ports.end() ? nullptr : &it->second;
}

// Value of an NVRAM variable in a fresh image of the port: the host file's,
// else the layout's default.
uint32_t InitialValue(const Port &port, const Card &card, uint32_t id) {
    if (auto it = port.nvram.find(id); it != port.nvram.end()) return it->second;
    const nvram::Field *f = nvram::FindField(card.nvramSize, id);
    return f ? f->defaultValue : 0;
}

uint32_t Value(const std::vector<uint8_t> &image, uint32_t id) {
    uint32_t v = 0;
    nvram::GetValue(image.data(), image.size(), id, v);
    return v;
}

}  // namespace

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
    if (v.port->nvramControl.badChecksum && !img.empty()) img.back() ^= 0x01;
    return img;
}

// The image the port's last reset applied: as the host file made it until
// the first simulated reset.
std::vector<uint8_t> Simulator::appliedNvram(const View &v) {
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    return p && p->appliedNvram ? *p->appliedNvram : initialNvram(v);
}

uint32_t Simulator::nvramSize(PortKey key, uint32_t &size) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    size = v.card->nvramSize;
    return SDERR_NONE;
}

uint32_t Simulator::readNvram(PortKey key, uint32_t area, std::vector<uint8_t> &image) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (area != 1 && area != 2) return SDERR_INVALID_PARAMETER;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const uint32_t faults = p && p->nvramReadFaults ? *p->nvramReadFaults : v.port->nvramControl.readFaults;
    if (faults > 0) {
        store_.modify([&](State &s) {
            s.ports[v.port->wwpn].nvramReadFaults = faults - 1;
            return SDERR_NONE;
        });
        return SDERR_IO_FAILED;
    }
    if (p && p->nvram[area - 1]) {
        image = *p->nvram[area - 1];
        return SDERR_NONE;
    }
    image = initialNvram(v);
    return SDERR_NONE;
}

uint32_t Simulator::writeNvram(PortKey key, uint32_t area, const std::vector<uint8_t> &img) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (area != 1 && area != 2) return SDERR_INVALID_PARAMETER;
    if (img.size() < v.card->nvramSize) return SDERR_BUFFER_TOO_SMALL;
    if (img.size() != v.card->nvramSize || !nvram::IsValid(img.data(), uint32_t(img.size())))
        return SDERR_INVALID_PARAMETER;
    const uint32_t flags = currentStateFlags(v);
    if (flags & SD_PORTFLAG_LOCKDOWN) return SDERR_LOCKDOWN;
    if (flags & SD_PORTFLAG_MAINTENANCE) return SDERR_NOT_SUPPORTED;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const uint32_t faults = p && p->nvramWriteFaults ? *p->nvramWriteFaults : v.port->nvramControl.writeFaults;
    if (faults > 0) {
        store_.modify([&](State &s) {
            s.ports[v.port->wwpn].nvramWriteFaults = faults - 1;
            return SDERR_NONE;
        });
        return SDERR_IO_FAILED;
    }
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].nvram[area - 1] = img;
        return SDERR_NONE;
    });
}

// ------------------------------------------------------------ port effects

uint32_t Simulator::currentStateFlags(const View &v) {
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    uint32_t flags = p && p->stateFlags ? *p->stateFlags : v.port->stateFlags;
    // A written setting that only a reset applies keeps the flag raised.
    if (p && p->nvram[0] && !(flags & SD_PORTFLAG_REBOOT_REQUIRED)) {
        const std::vector<uint8_t> applied = appliedNvram(v);
        for (uint32_t id : kResetApplied)
            if (Value(*p->nvram[0], id) != Value(applied, id)) flags |= SD_PORTFLAG_REBOOT_REQUIRED;
    }
    return flags;
}

bool Simulator::disabledByNvram(const View &v) {
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const uint32_t value = p && p->appliedNvram ? Value(*p->appliedNvram, nvram::kPortDisable)
                                                : InitialValue(*v.port, *v.card, nvram::kPortDisable);
    return value == 1;
}

uint32_t Simulator::currentSpeed(const View &v) {
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const uint32_t rate = p && p->appliedNvram ? Value(*p->appliedNvram, nvram::kDataRate)
                                               : InitialValue(*v.port, *v.card, nvram::kDataRate);
    // A fixed rate the port supports is the one its link runs at; auto, or
    // a rate it cannot run, leaves the speed the fabric gives.
    if (rate == kDataRateAuto || !(v.port->supportedMask & (1u << rate))) return v.port->speedCode;
    return SpeedForDataRate(rate);
}

// ------------------------------------------------------------ flash regions

uint32_t Simulator::flashWriteAllowed(const View &v) {
    return (currentStateFlags(v) & SD_PORTFLAG_LOCKDOWN) ? SDERR_LOCKDOWN : SDERR_NONE;
}

void Simulator::addNvramRegions(const Card &c, std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &regions) {
    if (c.ispType > 26) regions.emplace_back(nvram::kRegionActiveRecord, nvram::ActiveRecord(c.nvmeBootRegion == 334));
}

uint32_t Simulator::readGlobalNvram(const View &v, std::vector<uint8_t> &bytes) {
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    if (p && p->globalNvram) {
        bytes = *p->globalNvram;
        return SDERR_NONE;
    }
    uint8_t wwpn[8];
    WwnToBytes(v.port->wwpn, wwpn);
    bytes = nvram::GlobalNvramImage(wwpn);
    return SDERR_NONE;
}

uint32_t Simulator::writeGlobalNvram(const View &v, uint32_t offset, const std::vector<uint8_t> &data) {
    std::vector<uint8_t> image;
    if (uint32_t rc = readGlobalNvram(v, image)) return rc;
    if (uint64_t(offset) + data.size() > image.size()) return SDERR_INVALID_PARAMETER;
    std::copy(data.begin(), data.end(), image.begin() + offset);
    // The firmware keeps only a whole, consistent image.
    if (!nvram::IsValid(image.data(), image.size())) return SDERR_INVALID_PARAMETER;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].globalNvram = image;
        return SDERR_NONE;
    });
}

// ------------------------------------------------------------ vtsdm-sim controls

uint32_t Simulator::setPortFlags(uint32_t instance, uint32_t set, uint32_t clear) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const uint32_t flags = p && p->stateFlags ? *p->stateFlags : v.port->stateFlags;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].stateFlags = (flags | set) & ~clear;
        return SDERR_NONE;
    });
}

uint32_t Simulator::setNvramFaults(uint32_t instance, std::optional<uint32_t> reads, std::optional<uint32_t> writes) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    return store_.modify([&](State &s) {
        PortChanges &p = s.ports[v.port->wwpn];
        if (reads) p.nvramReadFaults = *reads;
        if (writes) p.nvramWriteFaults = *writes;
        return SDERR_NONE;
    });
}

uint32_t Simulator::corruptNvram(uint32_t instance) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    std::vector<uint8_t> image = p && p->nvram[0] ? *p->nvram[0] : initialNvram(v);
    nvram::ComputeChecksum(image.data(), image.size());
    image.back() ^= 0x01;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].nvram[0] = image;
        return SDERR_NONE;
    });
}

uint32_t Simulator::resetPort(uint32_t instance) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const PortChanges *p = ChangesOf(store_.current(), v.port->wwpn);
    const std::vector<uint8_t> image = p && p->nvram[0] ? *p->nvram[0] : initialNvram(v);
    const uint32_t flags = p && p->stateFlags ? *p->stateFlags : v.port->stateFlags;
    const uint16_t before = currentPortState(v);
    return store_.modify([&](State &s) {
        PortChanges &c = s.ports[v.port->wwpn];
        c.appliedNvram = image;
        c.stateFlags = flags & ~SD_PORTFLAG_REBOOT_REQUIRED;
        // The reset takes the link down; it comes back unless the port is
        // now disabled or held down.
        const bool disabled = Value(image, nvram::kPortDisable) == 1;
        const uint16_t held = c.portState ? *c.portState : v.port->portState;
        if (PortUp(before)) c.events.push_back({SD_AEN_LINK_DOWN, {0, 0, 0}});
        if (!disabled && PortUp(held)) c.events.push_back({SD_AEN_LINK_UP, {0, 0, 0}});
        return SDERR_NONE;
    });
}

uint32_t Simulator::setNvmeBootRegion(uint32_t instance, uint32_t region) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.card->ispType <= 26) return SDERR_NOT_SUPPORTED;
    if (region != 334 && region != 377) return SDERR_INVALID_PARAMETER;
    return store_.modify([&](State &s) {
        s.flash[v.card->serial][nvram::kRegionActiveRecord] = nvram::ActiveRecord(region == 334);
        return SDERR_NONE;
    });
}

}  // namespace vtsdm
