// Persisted state of the simulated host: whatever programs change (NVRAM,
// flash regions, virtual ports, QoS, counters, events, link state, used-up
// fault counts).  One JSON file per host file, replaced atomically under an
// exclusive file lock, so concurrent processes never lose or tear an update.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backend.h"
#include "sim_model.h"
#include "vtsdm.h"

namespace vtsdm {

struct PortChanges {
    std::optional<std::vector<uint8_t>> nvram[2];  // areas 1 and 2
    std::optional<uint16_t> portState;
    std::optional<uint16_t> portSubState;
    std::optional<SDStatistics> statistics;  // replaces the host file's
    std::vector<SDAenRecord> events;         // queued, oldest first
    uint64_t eventsDropped = 0;              // oldest dropped from a full queue
    uint32_t openFailuresUsed = 0;
    // NVRAM controls (sim_nvram.cpp).
    std::optional<uint32_t> stateFlags;       // SD_PORTFLAG_* bits set at run time
    std::optional<uint32_t> nvramReadFaults;  // failures still to come; absent: the host file's
    std::optional<uint32_t> nvramWriteFaults;
    std::optional<std::vector<uint8_t>> appliedNvram;  // the image the last simulated reset applied
    std::optional<std::vector<uint8_t>> globalNvram;   // the port's global NVRAM region
    // Counters that move (sim_monitor.cpp): `statistics` holds the counters
    // as they were at statsAtNs of the simulated clock; traffic since then
    // is added when they are read.
    int64_t statsAtNs = 0;                            // 0: not taken yet
    std::optional<TrafficRates> traffic;              // replaces the host file's
    std::optional<std::vector<DiagStep>> diagScript;  // replaces the host file's
    std::optional<uint32_t> readBufferMiscompare;     // replaces the host file's
};

// Events a port queues, kEventQueueDepth of them as its firmware would; a
// new event on a full queue drops the oldest and counts it.
void QueueEvent(PortChanges &p, const SDAenRecord &event);
// Takes up to `room` of the oldest events off the queue.
std::vector<SDAenRecord> TakeEvents(PortChanges &p, size_t room);

struct VPortRecord {
    uint64_t parentWwpn = 0;
    uint64_t wwnn = 0;
    uint64_t wwpn = 0;
    uint16_t vportId = 0;
    SDQoS qos{};
    uint32_t instance = 0;  // libvtsdm instance number; 0 until one is given
};

// A card's flash beyond its region bytes (sim_flash.cpp).
struct CardFlashChanges {
    bool rebootRequired = false;  // an update was written since the last reset
    uint32_t readFaults = 0;      // failures still to come, armed by vtsdm-sim
    uint32_t writeFaults = 0;
    bool operator==(const CardFlashChanges &) const = default;
};

// Firmware written into a port's SFP module (sim_flash.cpp).
struct SfpFirmware {
    std::array<uint8_t, 3> version{};
    uint32_t codeSum = 0;
    bool operator==(const SfpFirmware &) const = default;
};

struct State {
    std::string hostHash;                                                   // content hash of the host file
    std::map<uint64_t, PortChanges> ports;                                  // by WWPN
    std::optional<std::vector<VPortRecord>> vports;                         // absent: as the host file defines
    std::map<std::string, std::map<uint32_t, std::vector<uint8_t>>> flash;  // serial -> region
    std::map<std::string, uint32_t> faultsUsed;                             // fault key -> count used
    std::map<std::string, CardFlashChanges> flashCards;                     // by card serial
    std::map<uint64_t, uint32_t> vportCreateFaults;                         // physical WWPN -> creations still to fail
    std::map<uint64_t, SfpFirmware> sfp;  // physical WWPN -> firmware written into its SFP
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
    // A damaged file is kept aside (reported through Notice) and a state
    // path that holds what is not this user's regular file is not used
    // (reported once): both give the host file's state.
    const State &current();

    // Locks, re-reads, applies `change` and writes the result atomically.
    // `change` returns an SD status; on a non-zero status nothing is written.
    // A state path that is not used gives SDERR_IO_FAILED.
    uint32_t modify(const std::function<uint32_t(State &)> &change);

    // Removes the persisted state (under the lock).
    uint32_t reset();

    const std::string &path() const { return path_; }

private:
    bool fileChanged();
    void forget();
    bool load(bool locked);
    void keepDamaged(const std::string &error, bool locked);
    bool directoryUsable();
    void refuse(const std::string &why);
    uint32_t write(const State &s);
    int lockFd(bool create);

    std::string dir_, path_, lockPath_, hostHash_;
    State state_;
    std::string refused_;  // why the state path is not used, as last reported
    // Identity of the file last read: (inode, mtime ns, size); all zero = none.
    ino_t ino_ = 0;
    int64_t mtimeNs_ = -1;
    off_t size_ = -1;
};

std::string StateToJson(const State &s);
// False for a damaged text, with the reason in *error when given.
bool StateFromJson(const std::string &text, State &s, std::string *error = nullptr);

}  // namespace vtsdm
