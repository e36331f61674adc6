// Virtual ports (NPIV) and their QoS on simulated ports.  The list starts
// as the host file defines it and lives in the state once a program changes
// it.
#include <algorithm>

#include "simulator.h"

namespace vtsdm {

uint32_t Simulator::createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &id) {
    View v;
    if (wwpn == 0) return SDERR_INVALID_PARAMETER;
    if (uint32_t rc = resolve(key, v)) return rc;
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
        id = next;
        return SDERR_NONE;
    });
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
        s.ports.erase(wwpn);
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

}  // namespace vtsdm
