// Events, port statistics and remote link status of simulated ports, and
// the controls vtsdm-sim uses to change them (events, link, counters).
#include <ctime>

#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

uint32_t Simulator::takeEvents(PortKey key, uint32_t room, std::vector<SDAenRecord> &events, uint32_t &queued) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (!(v.card->driverCaps & SD_DRVCAP_AEN)) return SDERR_NOT_SUPPORTED;
    events.clear();
    queued = 0;
    const State &s = store_.current();
    auto it = s.ports.find(key);
    if (it == s.ports.end() || it->second.events.empty()) return SDERR_NONE;
    queued = uint32_t(it->second.events.size());
    if (room == 0) return SDERR_NONE;
    return store_.modify([&](State &st) {
        auto &p = st.ports[key];
        queued = uint32_t(p.events.size());
        events = TakeEvents(p, room);
        return SDERR_NONE;
    });
}

uint32_t Simulator::statistics(PortKey key, SDStatistics &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const State &s = store_.current();
    auto it = s.ports.find(v.wwpn());
    SDStatistics st = v.vport ? SDStatistics{} : v.port->statistics;
    if (it != s.ports.end()) {
        if (it->second.statistics) st = *it->second.statistics;
        if (it->second.statisticsResetAt)
            st.SecondsSinceLastReset = uint64_t(std::max<int64_t>(0, time(nullptr) - it->second.statisticsResetAt));
    }
    out = st;
    return SDERR_NONE;
}

uint32_t Simulator::resetStatistics(PortKey key) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        p.statistics = SDStatistics{};
        p.statisticsResetAt = time(nullptr);
        return SDERR_NONE;
    });
}

uint32_t Simulator::remoteLinkStatus(PortKey key, uint64_t target, SDLinkErrorStatus &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const Target *t = findTarget(v, target);
    if (!t) return SDERR_NOT_FOUND;
    if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    if (t->faults.removed) return SDERR_DEVICE_REMOVED;
    if (!t->loggedIn) return SDERR_NOT_FOUND;
    out = t->linkErrors;
    return SDERR_NONE;
}

uint32_t Simulator::queueEvent(uint32_t instance, uint32_t code) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        QueueEvent(s.ports[v.wwpn()], {code, {0, 0, 0}});
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
        if (PortUp(before) && !PortUp(state)) QueueEvent(p, {SD_AEN_LINK_DOWN, {0, 0, 0}});
        if (!PortUp(before) && PortUp(state)) QueueEvent(p, {SD_AEN_LINK_UP, {0, 0, 0}});
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

}  // namespace vtsdm
