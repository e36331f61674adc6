// The bandwidth model of a port's vPorts: line rates, speed and percentage
// conversion, the available percentage, and raising one vPort's share at
// the others' expense.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "config/vport.h"
#include "oss/oss.h"

namespace {

template <typename F>
void ForEach(const VPortQoSList *list, F f) {
    for (VPortQoSEntry *e = list->First; e; e = e->next) f(*e);
}

bool Takeable(const VPortQoSEntry &e, const VPortQoSEntry *self) {
    return &e != self && e.QoSType == SD_QOS_PERCENTAGE && !e.Locked;
}

// The fraction of the others' bandwidth to take, kept within [0, 1]: a
// list whose values already exceed the maximum gives a negative or
// undefined fraction, and the single-percent pass then does the work.
double UsableFraction(double f) {
    if (std::isnan(f) || f < 0) return 0;
    return f > 1 ? 1 : f;
}

}  // namespace

extern "C" {

VTAPI_EXPORT double GetQoSMaxLineRate(uint32_t speed) {
    switch (speed) {
    case 1: return 1.0625;
    case 2: return 2.125;
    case 4: return 4.25;
    case 8: return 8.5;
    case 10: return 10.52;
    case 16: return 14.025;
    case 32: return 28.05;
    case 64: return 57.8;
    case 128: return 112.2;
    case 256: return 231.2;
    default: return 21.04;
    }
}

VTAPI_EXPORT uint32_t SpeedToPercentage(uint32_t speed, double value) {
    const double percent = value / GetQoSMaxLineRate(speed) * 100;
    return percent > 0 && percent < 4294967295.0 ? uint32_t(percent) : 0;
}

VTAPI_EXPORT double PercentageToSpeed(uint32_t percent, uint32_t speed) {
    const double gb = percent * GetQoSMaxLineRate(speed) / 100;
    // Small values are shown in the finer unit.
    return gb < 1.0 ? gb * 1024 / 1000 : gb;
}

VTAPI_EXPORT uint32_t CalculateRemainingPercentageBW(VPortQoSList *list) {
    if (!list) return VTAPI_QOS_INVALID_LIST;
    int64_t locked = 0, reserved = 0;
    ForEach(list, [&](const VPortQoSEntry &e) {
        if (e.Locked && e.QoSType == SD_QOS_PERCENTAGE) locked += e.QoSVal;
        if (e.QoSType == SD_QOS_RESERVED) reserved += e.QoSVal;
    });
    if (locked > list->MaxPercentageBW)
        LogDebug(__FILE__, __LINE__, "CalculateRemainingPercentageBW: Percentage overflow: %d", int(locked));
    const int64_t available = int64_t(list->MaxPercentageBW) - (locked + reserved);
    list->MaxRemainingPercentageBW = uint16_t(available < 0 ? 0 : available);
    return available < 0 ? VTAPI_QOS_PERCENT_OVERFLOW : 0;
}

VTAPI_EXPORT uint32_t GetTotalPercentageBW(const VPortQoSList *list, uint32_t included) {
    uint32_t total = included;
    if (list)
        ForEach(list, [&](const VPortQoSEntry &e) {
            if (e.QoSType == SD_QOS_RESERVED || e.QoSType == SD_QOS_PERCENTAGE) total += e.QoSVal;
        });
    return total;
}

VTAPI_EXPORT uint32_t GetUnlockedPercentBw(const VPortQoSList *list) {
    uint32_t total = 0;
    if (list)
        ForEach(list, [&](const VPortQoSEntry &e) {
            if (e.QoSType == SD_QOS_PERCENTAGE && !e.Locked) total += e.QoSVal;
        });
    return total;
}

VTAPI_EXPORT uint32_t SetQoSValType(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t value) {
    if (!list || !vPort) return VTAPI_QOS_INVALID_LIST;
    if (!vPort->QoSEnabled) return VTAPI_QOS_DISABLED;
    if (value > 100) return VTAPI_QOS_OUT_OF_RANGE;
    const uint16_t old = vPort->QoSVal;
    vPort->QoSVal = uint16_t(value);
    if (uint32_t rc = CalculateRemainingPercentageBW(list)) {
        vPort->QoSVal = old;
        CalculateRemainingPercentageBW(list);
        return rc;
    }
    return 0;
}

VTAPI_EXPORT uint32_t SetPercentBwFor(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t percent) {
    if (!list || !vPort) return VTAPI_QOS_INVALID_LIST;
    // Refused values must not cost the others anything.
    if (!vPort->QoSEnabled) return VTAPI_QOS_DISABLED;
    if (percent > 100) return VTAPI_QOS_OUT_OF_RANGE;
    if (percent >= vPort->QoSVal)
        if (uint32_t rc = StealPercentBwFor(vPort, list, percent)) return rc;
    return SetQoSValType(vPort, list, percent);
}

VTAPI_EXPORT uint32_t StealPercentBwFor(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t newValue) {
    if (!list || !vPort) return VTAPI_QOS_INVALID_LIST;
    CalculateRemainingPercentageBW(list);
    const int64_t available = list->MaxRemainingPercentageBW;
    if (int64_t(newValue) > available) {
        LogDebug(__FILE__, __LINE__,
                 "StealPercentBwFor: Overflow error, NewQoSVal=%d, vPortList->MaxRemainingPercentageBW=%d, "
                 "vPort->QoSVal=%d",
                 int(newValue), int(available), int(vPort->QoSVal));
        return VTAPI_QOS_PERCENT_OVERFLOW;
    }
    const int64_t unlocked = GetUnlockedPercentBw(list);
    const int64_t reserved = std::llabs(available - unlocked);
    if (int64_t(newValue) > available - unlocked) {
        const int64_t steal = int64_t(newValue) + unlocked - available;
        const double fraction = double(steal) / double(available - vPort->QoSVal - reserved);
        return StealPercentFromOthers(vPort, list, newValue, fraction);
    }
    return SetQoSValType(vPort, list, newValue);
}

VTAPI_EXPORT uint32_t StealPercentFromOthers(VPortQoSEntry *vPort, VPortQoSList *list, uint32_t newValue,
                                             double fraction) {
    if (!list || !vPort) return VTAPI_QOS_INVALID_LIST;
    std::vector<uint16_t> before;
    ForEach(list, [&](const VPortQoSEntry &e) { before.push_back(e.QoSVal); });
    auto restore = [&] {
        size_t i = 0;
        ForEach(list, [&](VPortQoSEntry &e) { e.QoSVal = before[i++]; });
    };

    // 1. Every other unlocked percentage keeps (1 - f) of its value.
    const double keep = 1 - UsableFraction(fraction);
    ForEach(list, [&](VPortQoSEntry &e) {
        if (!Takeable(e, vPort) || e.QoSVal == 0) return;
        const long scaled = std::lround(e.QoSVal * keep);  // halves away from zero
        e.QoSVal = uint16_t(std::clamp(scaled, 0L, long(e.QoSVal)));
    });

    // 2.-4. While the total is over the maximum, one percent at a time from
    // the largest (equal values: the larger ID first), round after round.
    int64_t total = int64_t(GetTotalPercentageBW(list, newValue)) - vPort->QoSVal;
    if (total > list->MaxPercentageBW) {
        std::vector<VPortQoSEntry *> entries;
        std::vector<VPortBwPair> pairs;
        ForEach(list, [&](VPortQoSEntry &e) {
            if (!Takeable(e, vPort)) return;
            pairs.push_back({e.VPortId, e.QoSVal, uint32_t(entries.size())});
            entries.push_back(&e);
        });
        std::qsort(pairs.data(), pairs.size(), sizeof(VPortBwPair), CompareBw);
        bool took = true;
        while (total > list->MaxPercentageBW && took) {
            took = false;
            for (const VPortBwPair &p : pairs) {
                if (total <= list->MaxPercentageBW) break;
                VPortQoSEntry &e = *entries[p.Index];
                if (e.QoSVal >= 1) {
                    --e.QoSVal;
                    --total;
                    took = true;
                }
            }
        }
    }
    if (total > list->MaxPercentageBW) {
        restore();
        return VTAPI_QOS_PERCENT_OVERFLOW;
    }
    if (uint32_t rc = SetQoSValType(vPort, list, newValue)) {
        restore();
        CalculateRemainingPercentageBW(list);
        return rc;
    }
    return 0;
}

VTAPI_EXPORT int CompareBw(const void *a, const void *b) {
    const auto *x = static_cast<const VPortBwPair *>(a);
    const auto *y = static_cast<const VPortBwPair *>(b);
    const uint32_t kx = uint32_t(x->Value) * 256 + x->VPortId, ky = uint32_t(y->Value) * 256 + y->VPortId;
    return kx > ky ? -1 : kx < ky ? 1 : 0;
}

}  // extern "C"
