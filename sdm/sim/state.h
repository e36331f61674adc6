// Persisted state of the simulated host: whatever programs change (NVRAM,
// flash regions, virtual ports, QoS, counters, events, link state, used-up
// fault counts).  One JSON file per host file, replaced atomically under an
// exclusive file lock, so concurrent processes never lose or tear an update.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim_model.h"
#include "vtsdm.h"

namespace vtsdm {

struct PortChanges {
    std::optional<std::vector<uint8_t>> nvram[2];  // areas 1 and 2
    std::optional<uint16_t> portState;
    std::optional<uint16_t> portSubState;
    std::optional<SDStatistics> statistics;         // replaces the host file's
    std::vector<SDAenRecord> events;                // queued, oldest first
    uint32_t openFailuresUsed = 0;
    // Counters that move (sim_monitor.cpp): `statistics` holds the counters
    // as they were at statsAtNs of the simulated clock; traffic since then
    // is added when they are read.
    int64_t statsAtNs = 0;                          // 0: not taken yet
    std::optional<TrafficRates> traffic;            // replaces the host file's
    std::optional<std::vector<DiagStep>> diagScript;  // replaces the host file's
    std::optional<uint32_t> readBufferMiscompare;     // replaces the host file's
};

struct VPortRecord {
    uint64_t parentWwpn = 0;
    uint64_t wwnn = 0;
    uint64_t wwpn = 0;
    uint16_t vportId = 0;
    SDQoS qos{};
};

struct State {
    std::string hostHash;                            // content hash of the host file
    std::map<uint64_t, PortChanges> ports;           // by WWPN
    std::optional<std::vector<VPortRecord>> vports;  // absent: as the host file defines
    std::map<std::string, std::map<uint32_t, std::vector<uint8_t>>> flash;  // serial -> region
    std::map<std::string, uint32_t> faultsUsed;      // fault key -> count used
    // Run-time target changes, by "<port WWPN>/<target WWPN>", and the clock.
    std::map<std::string, TargetChanges> targets;
    ClockSetting clock;
};

class StateStore {
public:
    // dir: state directory; name: file name inside it; hostHash: the state is
    // only taken over when it was written for the same host content.
    StateStore(std::string dir, std::string name, std::string hostHash);

    // The latest state, re-read when another process has replaced the file.
    const State &current();

    // Locks, re-reads, applies `change` and writes the result atomically.
    // `change` returns an SD status; on a non-zero status nothing is written.
    uint32_t modify(const std::function<uint32_t(State &)> &change);

    // Removes the persisted state (under the lock).
    uint32_t reset();

    const std::string &path() const { return path_; }

private:
    bool fileChanged();
    void load();
    uint32_t write(const State &s);
    int lockFd(bool create);

    std::string dir_, path_, lockPath_, hostHash_;
    State state_;
    // Identity of the file last read: (inode, mtime ns, size); all zero = none.
    ino_t ino_ = 0;
    int64_t mtimeNs_ = -1;
    off_t size_ = -1;
};

std::string StateToJson(const State &s);
bool StateFromJson(const std::string &text, State &s);

}  // namespace vtsdm
