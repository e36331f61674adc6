// Virtual ports (NPIV) and their QoS on simulated ports.  The list starts
// as the host file defines it and lives in the state once a program changes
// it.
#include <algorithm>
#include <ctime>
#include <set>

#include "simulator.h"

namespace vtsdm {

namespace {

// What a creation that an injected fault refuses answers: the firmware
// turned the fabric login of the new port down.
constexpr uint32_t kCreateFaultStatus = SDERR_DEVICE_BUSY;

}  // namespace

void NumberVports(std::vector<VPortRecord> &vports, uint32_t physicalPorts) {
    std::set<uint32_t> used;
    for (const auto &r : vports)
        if (r.instance) used.insert(r.instance);
    uint32_t next = physicalPorts;
    for (auto &r : vports) {
        if (r.instance) continue;
        while (used.count(next)) ++next;
        r.instance = next;
        used.insert(next);
    }
}

uint32_t Simulator::createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &id) {
    View v;
    if (wwpn == 0) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport || v.port->interface != SD_INTERFACE_FC || v.card->maxVports == 0) return SDERR_NOT_SUPPORTED;
    const uint64_t parent = v.port->wwpn;
    // The host file keeps maxVports within SD_MAX_VPORTS_PER_PORT.
    const uint32_t maxVports = v.card->maxVports, withQos = v.card->maxVportsWithQoS;
    const uint32_t physical = uint32_t(host_.ports.size());
    const uint16_t fileState = v.port->portState;
    const uint32_t fileFaults = v.port->vportCreateFails;
    const std::string faultKey = "vport_create/" + FormatWwn(parent);
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
    bool faulted = false;
    const uint32_t rc = store_.modify([&](State &s) {
        if (!s.vports) s.vports = initial;
        auto &list = *s.vports;
        NumberVports(list, physical);
        // The link is judged inside the lock, as another process may change it.
        auto pc = s.ports.find(parent);
        const uint16_t state = pc != s.ports.end() && pc->second.portState ? *pc->second.portState : fileState;
        if (state != SD_PORTSTATE_ONLINE) return SDERR_LOOP_DOWN;
        if (known(list)) return SDERR_INVALID_PARAMETER;
        uint32_t mine = 0;
        std::vector<bool> used(256, false);
        std::set<uint32_t> instances;
        for (const auto &r : list) {
            instances.insert(r.instance);
            if (r.parentWwpn == parent) {
                ++mine;
                used[r.vportId & 255] = true;
            }
        }
        if (mine >= maxVports) return SDERR_NOT_SUPPORTED;
        // A fault refuses a creation that would otherwise succeed; its use is
        // written, the vPort is not made.  The host file's count goes first.
        if (fileFaults && s.faultsUsed[faultKey] < fileFaults) {
            ++s.faultsUsed[faultKey];
            faulted = true;
            return SDERR_NONE;
        }
        if (auto armed = s.vportCreateFaults.find(parent); armed != s.vportCreateFaults.end()) {
            if (--armed->second == 0) s.vportCreateFaults.erase(armed);
            faulted = true;
            return SDERR_NONE;
        }
        uint16_t next = 1;
        while (used[next]) ++next;
        uint32_t instance = physical;
        while (instances.count(instance)) ++instance;
        VPortRecord r;
        r.parentWwpn = parent;
        r.wwnn = wwnn ? wwnn : wwpn;
        r.wwpn = wwpn;
        r.vportId = next;
        r.instance = instance;
        r.qos = SDQoS{next, SD_QOS_PERCENTAGE, 0, uint16_t(next <= withQos ? 1 : 0)};
        list.push_back(r);
        // Its own counters start at zero, whatever a port of that name had.
        PortChanges fresh;
        fresh.statistics = SDStatistics{};
        fresh.statsAtNs = ClockNow(s.clock);
        s.ports[wwpn] = std::move(fresh);
        id = next;
        return SDERR_NONE;
    });
    if (rc != SDERR_NONE) return rc;
    return faulted ? kCreateFaultStatus : SDERR_NONE;
}

uint32_t Simulator::deleteVport(PortKey key, uint64_t wwpn) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const uint64_t parent = v.port->wwpn;
    auto initial = currentVports();
    return store_.modify([&](State &s) {
        if (!s.vports) s.vports = initial;
        auto &list = *s.vports;
        auto it = std::find_if(list.begin(), list.end(),
                               [&](const VPortRecord &r) { return r.wwpn == wwpn && r.parentWwpn == parent; });
        if (it == list.end()) return SDERR_NOT_FOUND;
        NumberVports(list, uint32_t(host_.ports.size()));
        s.ports.erase(wwpn);  // its counters and queued events go with it
        list.erase(it);
        return SDERR_NONE;
    });
}

uint32_t Simulator::getQoS(PortKey key, uint64_t vportWwpn, SDQoS &q) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    for (const auto &r : currentVports())
        if (r.wwpn == vportWwpn && r.parentWwpn == v.port->wwpn) {
            q = r.qos;
            return SDERR_NONE;
        }
    return SDERR_NOT_FOUND;
}

uint32_t Simulator::setQoS(PortKey key, uint64_t vportWwpn, const SDQoS &q) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
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

uint32_t Simulator::armVportCreateFault(uint32_t instance, uint32_t count) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    return store_.modify([&](State &s) {
        if (count) s.vportCreateFaults[v.port->wwpn] = count;
        else s.vportCreateFaults.erase(v.port->wwpn);
        return SDERR_NONE;
    });
}

uint32_t Simulator::updateVportCounters(uint64_t vportWwpn, const std::function<void(SDStatistics &)> &change) {
    const auto initial = currentVports();
    return store_.modify([&](State &s) {
        const auto &list = s.vports ? *s.vports : initial;
        if (std::none_of(list.begin(), list.end(), [&](const VPortRecord &r) { return r.wwpn == vportWwpn; }))
            return SDERR_NOT_FOUND;
        auto &p = s.ports[vportWwpn];
        SDStatistics st = p.statistics.value_or(SDStatistics{});
        change(st);
        p.statistics = st;
        return SDERR_NONE;
    });
}

}  // namespace vtsdm
