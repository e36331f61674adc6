// Pieces of the simulated host that both the host file and the persisted
// state hold: diagnostic fault scripts, traffic rates, the run-time changes
// of a target and the simulated clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vtsdm.h"

namespace vtsdm {

// One step of a port's diagnostic fault script.  Each loopback call (and
// each maximum-I/O call) takes the next step; a step with repeat N answers N
// calls.  Once the script is used up the port answers normally again.
struct DiagStep {
    enum class Kind : uint8_t {
        Status,    // the run takes place and ends with `status` and the counts
        Busy,      // the call fails: SDERR_DEVICE_BUSY
        NoDevice,  // the call fails: SDERR_NO_SUCH_DEVICE
        Corrupt,   // the run "passes" but one received byte is changed
    };
    Kind kind = Kind::Status;
    uint32_t status = SD_DIAG_STATUS_PASSED;
    uint32_t crc = 0;
    uint32_t disparity = 0;
    uint32_t frameLength = 0;
    uint32_t repeat = 1;

    bool operator==(const DiagStep &) const = default;
};

// Text form of a step, as vtsdm-sim takes and shows it: "pass",
// "status=4,crc=2,disparity=1,frame=3", "busy", "nodevice" or "corrupt",
// each optionally followed by "*N" (repeat N times).
std::optional<DiagStep> ParseDiagStep(const std::string &text, std::string &error);
std::string FormatDiagStep(const DiagStep &step);

// Traffic a port or virtual port carries: its I/O and megabyte counters grow
// by these amounts every second of simulated time.
struct TrafficRates {
    uint64_t ioPerSecond = 0;
    uint64_t mbPerSecond = 0;
    bool operator==(const TrafficRates &) const = default;
};

// Run-time changes of a target, made with vtsdm-sim: logins and logouts,
// removal, and link errors added to the host file's counters.
struct TargetChanges {
    std::optional<bool> loggedIn;
    std::optional<bool> removed;
    SDLinkErrorStatus addedErrors{};
};

// The simulated clock: the machine's real time moved by an offset, or, when
// frozen, a fixed time that only moves when a test or vtsdm-sim moves it.
struct ClockSetting {
    bool frozen = false;
    int64_t valueNs = 0;   // the time while frozen (epoch nanoseconds)
    int64_t offsetNs = 0;  // added to the real time while running
};

int64_t RealTimeNs();
inline int64_t ClockNow(const ClockSetting &c) { return c.frozen ? c.valueNs : RealTimeNs() + c.offsetNs; }

}  // namespace vtsdm
