// Events, port statistics and remote link status of simulated ports, and
// the controls vtsdm-sim uses to change them: events with their payloads,
// link state, counters, traffic, target logins and removal, target link
// errors and the simulated clock.
//
// Counters move with simulated time: the state keeps the counters of a port
// as they were at one moment (statsAtNs) and the traffic since then is added
// when they are read, so no process has to run for them to grow.
#include <ctime>

#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

namespace {

constexpr int64_t kNsPerSecond = 1000000000;

// amount * ns / 1e9 without overflow, rounded down.
uint64_t PerSecond(uint64_t amount, int64_t ns) {
    if (ns <= 0 || amount == 0) return 0;
    return uint64_t((unsigned __int128)amount * uint64_t(ns) / kNsPerSecond);
}

// The counters `s` grown by `rates` over `ns` nanoseconds: every I/O is a
// command frame and a response frame; data moves in 2 KB frames, half each
// way.
void Advance(SDStatistics &s, const TrafficRates &rates, int64_t ns) {
    if (ns <= 0) return;
    const uint64_t io = PerSecond(rates.ioPerSecond, ns);
    const uint64_t mb = PerSecond(rates.mbPerSecond, ns);
    s.TotalIoCount += io;
    s.InputRequests += io - io / 2;
    s.OutputRequests += io / 2;
    s.InterruptCount += io;
    s.TotalMBytes += mb;
    s.InputMBytes += mb - mb / 2;
    s.OutputMBytes += mb / 2;
    const uint64_t dataFrames = mb * 256;  // 1 MB each way = 512 frames of 2 KB
    s.TxFrames += io + dataFrames;
    s.RxFrames += io + dataFrames;
    s.TxWords += io * 9 + mb * (1u << 17);
    s.RxWords += io * 9 + mb * (1u << 17);
    s.SecondsSinceLastReset += uint64_t(ns / kNsPerSecond);
}

std::string TargetKey(uint64_t port, uint64_t target) { return FormatWwn(port) + "/" + FormatWwn(target); }

void AddErrors(SDLinkErrorStatus &to, const SDLinkErrorStatus &d) {
    to.LinkFailureCount += d.LinkFailureCount;
    to.LossOfSyncCount += d.LossOfSyncCount;
    to.LossOfSignalCount += d.LossOfSignalCount;
    to.PrimitiveSeqProtocolErrorCount += d.PrimitiveSeqProtocolErrorCount;
    to.InvalidTransmissionWordCount += d.InvalidTransmissionWordCount;
    to.InvalidCRCCount += d.InvalidCRCCount;
}

}  // namespace

// ------------------------------------------------------------------ clock

int64_t RealTimeNs() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return int64_t(ts.tv_sec) * kNsPerSecond + ts.tv_nsec;
}

int64_t Simulator::now() { return ClockNow(store_.current().clock); }

uint32_t Simulator::clockSet(int64_t epochNs) {
    return store_.modify([&](State &s) {
        s.clock = ClockSetting{true, epochNs, 0};
        return SDERR_NONE;
    });
}

uint32_t Simulator::clockAdvance(int64_t ns) {
    return store_.modify([&](State &s) {
        (s.clock.frozen ? s.clock.valueNs : s.clock.offsetNs) += ns;
        return SDERR_NONE;
    });
}

uint32_t Simulator::clockRun() {
    return store_.modify([&](State &s) {
        if (s.clock.frozen) s.clock = ClockSetting{false, 0, s.clock.valueNs - RealTimeNs()};
        return SDERR_NONE;
    });
}

// ------------------------------------------------------------- counters

TrafficRates Simulator::trafficOf(const View &v, const PortChanges *changes) {
    if (changes && changes->traffic) return *changes->traffic;
    if (!v.vport) return v.port->traffic;
    for (const VPortDef &d : v.port->vports)
        if (d.wwpn == v.vport->wwpn) return d.traffic;
    return {};
}

SDStatistics Simulator::countersAt(const View &v, const PortChanges *changes, int64_t t) {
    SDStatistics st = v.vport ? SDStatistics{} : v.port->statistics;
    if (changes && changes->statistics) st = *changes->statistics;
    if (changes && changes->statsAtNs) Advance(st, trafficOf(v, changes), t - changes->statsAtNs);
    return st;
}

uint32_t Simulator::statistics(PortKey key, SDStatistics &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const State &s = store_.current();
    const int64_t t = ClockNow(s.clock);
    auto it = s.ports.find(v.wwpn());
    if (it != s.ports.end() && it->second.statsAtNs) {
        out = countersAt(v, &it->second, t);
        return SDERR_NONE;
    }
    // The first reading starts the port's clock: from now on its counters
    // move with the traffic and the seconds since the last reset.
    return store_.modify([&](State &st) {
        PortChanges &p = st.ports[v.wwpn()];
        if (!p.statsAtNs) {
            p.statistics = countersAt(v, &p, t);
            p.statsAtNs = t;
        }
        out = countersAt(v, &p, ClockNow(st.clock));
        return SDERR_NONE;
    });
}

uint32_t Simulator::resetStatistics(PortKey key) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        p.statistics = SDStatistics{};
        p.statsAtNs = ClockNow(s.clock);
        return SDERR_NONE;
    });
}

uint32_t Simulator::addCounters(uint32_t instance, const SDStatistics &delta) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        const int64_t t = ClockNow(s.clock);
        SDStatistics st = countersAt(v, &p, t);
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
        p.statsAtNs = t;
        return SDERR_NONE;
    });
}

uint32_t Simulator::setTraffic(uint32_t instance, const TrafficRates &rates) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.wwpn()];
        // The counters so far grew at the old rates.
        const int64_t t = ClockNow(s.clock);
        p.statistics = countersAt(v, &p, t);
        p.statsAtNs = t;
        p.traffic = rates;
        return SDERR_NONE;
    });
}

// ---------------------------------------------------------------- targets

Simulator::Presence Simulator::targetPresence(const View &v, const Target &t) {
    Presence p{t.loggedIn, t.faults.removed};
    const State &s = store_.current();
    if (s.targets.empty()) return p;
    auto it = s.targets.find(TargetKey(v.port->wwpn, t.wwpn));
    if (it == s.targets.end()) return p;
    if (it->second.loggedIn) p.loggedIn = *it->second.loggedIn;
    if (it->second.removed) p.removed = *it->second.removed;
    return p;
}

uint32_t Simulator::remoteLinkStatus(PortKey key, uint64_t target, SDLinkErrorStatus &out) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const Target *t = findTarget(v, target);
    if (!t) return SDERR_NOT_FOUND;
    if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    const Presence presence = targetPresence(v, *t);
    if (presence.removed) return SDERR_DEVICE_REMOVED;
    if (!presence.loggedIn) return SDERR_NOT_FOUND;
    out = t->linkErrors;
    const State &s = store_.current();
    if (auto it = s.targets.find(TargetKey(v.port->wwpn, t->wwpn)); it != s.targets.end())
        AddErrors(out, it->second.addedErrors);
    return SDERR_NONE;
}

uint32_t Simulator::changeTarget(uint32_t instance, uint64_t target, const std::string &change) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    const Target *t = findTarget(v, target);
    if (!t) return SDERR_NOT_FOUND;
    // Device update event: payload 0 is the target's port ID, payload 1
    // what happened (SD_AEN_DEVICE_* codes).
    uint32_t what;
    if (change == "login") what = SD_AEN_DEVICE_LOGGED_IN;
    else if (change == "logout") what = SD_AEN_DEVICE_LOGGED_OUT;
    else if (change == "remove") what = SD_AEN_DEVICE_REMOVED;
    else if (change == "restore") what = SD_AEN_DEVICE_LOGGED_IN;
    else return SDERR_INVALID_PARAMETER;
    return store_.modify([&](State &s) {
        TargetChanges &c = s.targets[TargetKey(v.port->wwpn, t->wwpn)];
        if (change == "login" || change == "logout") c.loggedIn = change == "login";
        if (change == "remove") c.removed = true;
        if (change == "restore") {
            c.removed = false;
            c.loggedIn = true;
        }
        QueueEvent(s.ports[v.wwpn()], {SD_AEN_DEVICE_UPDATE, {t->portId, what, 0}});
        return SDERR_NONE;
    });
}

uint32_t Simulator::addTargetErrors(uint32_t instance, uint64_t target, const SDLinkErrorStatus &delta) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    const Target *t = findTarget(v, target);
    if (!t) return SDERR_NOT_FOUND;
    return store_.modify([&](State &s) {
        AddErrors(s.targets[TargetKey(v.port->wwpn, t->wwpn)].addedErrors, delta);
        return SDERR_NONE;
    });
}

// ------------------------------------------------------------ events, link

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

uint32_t Simulator::queueEvent(uint32_t instance, const SDAenRecord &event) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        QueueEvent(s.ports[v.wwpn()], event);
        return SDERR_NONE;
    });
}

uint32_t Simulator::queueEvent(uint32_t instance, uint32_t code) { return queueEvent(instance, {code, {0, 0, 0}}); }

uint32_t Simulator::setLinkState(uint32_t instance, uint16_t state, bool dport) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    const uint16_t before = currentPortState(v);
    return store_.modify([&](State &s) {
        auto &p = s.ports[v.port->wwpn];
        p.portState = state;
        p.portSubState = dport ? SD_PORTSUBSTATE_DPORT : SD_PORTSUBSTATE_NONE;
        // A change of link brings its event, as the driver would queue it;
        // a link that comes up says at which speed.
        if (PortUp(before) && !PortUp(state)) QueueEvent(p, {SD_AEN_LINK_DOWN, {0, 0, 0}});
        if (!PortUp(before) && PortUp(state)) QueueEvent(p, {SD_AEN_LINK_UP, {v.port->speedCode, 0, 0}});
        return SDERR_NONE;
    });
}

}  // namespace vtsdm
