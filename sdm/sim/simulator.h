// The simulated host: a host file, its persisted state, and the answers of
// the backend interface computed from both.  The operations are spread over
// files by area (simulator.cpp: instances and properties; sim_scsi.cpp;
// sim_nvram.cpp; sim_flash.cpp; sim_monitor.cpp: events, statistics and the
// link controls; sim_diag.cpp; sim_vport.cpp), so each area grows in its own
// file.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "backend.h"
#include "host.h"
#include "state.h"

namespace vtsdm {

// Where the host file and the state come from.
std::string DefaultHostPath();  // $VTSDM_HOST or <install>/data/default_host.json
std::string DefaultStateDir();  // $VTSDM_STATE_DIR or $VTAPI_SYSROOT/var/lib/vtsdm

class Simulator : public Backend {
public:
    // Loads the host file; throws HostError.
    Simulator(const std::string &hostPath, const std::string &stateDir);

    const char *name() const override { return "sim"; }
    std::string description() const override;

    const Host &host() const { return host_; }
    StateStore &store() { return store_; }

    // One port function as an instance sees it.
    struct View {
        uint32_t instance = 0;
        const Port *port = nullptr;  // the physical port (the parent of a vPort)
        const Card *card = nullptr;
        std::optional<VPortRecord> vport;
        uint64_t wwpn() const { return vport ? vport->wwpn : port->wwpn; }
    };

    // Instance list: physical ports in file order, then virtual ports.
    std::vector<View> instances();
    // The port function with this WWPN; SDERR_DEVICE_REMOVED when there is none.
    uint32_t resolve(PortKey key, View &v);

    uint32_t open(uint32_t instance, PortKey &key) override;
    uint32_t chipProperty(PortKey key, SDChipProperty &p) override;
    uint32_t driverProperty(PortKey key, SDDriverProperty &p) override;
    uint32_t nodeProperty(PortKey key, SDNodeProperty &p) override;
    uint32_t portProperty(PortKey key, SDPortProperty &p) override;
    uint32_t discTargets(PortKey key, std::vector<SDDiscTargetProperty> &out) override;

    uint32_t scsi(PortKey key, const ScsiRequest &request, ScsiReply &reply) override;
    uint32_t lunOsName(PortKey key, uint64_t target, uint16_t lun, std::string &name) override;

    uint32_t nvramSize(PortKey key, uint32_t &size) override;
    uint32_t readNvram(PortKey key, uint32_t area, std::vector<uint8_t> &image) override;
    uint32_t writeNvram(PortKey key, uint32_t area, const std::vector<uint8_t> &image) override;

    uint32_t vpd(PortKey key, std::vector<uint8_t> &out) override;
    uint32_t flashLayout(PortKey key, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize) override;
    uint32_t readRegion(PortKey key, uint32_t region, std::vector<uint8_t> &bytes) override;
    uint32_t writeRegion(PortKey key, uint32_t region, uint32_t offset, const std::vector<uint8_t> &data) override;
    uint32_t writeRegions(PortKey key, const std::vector<RegionImage> &regions) override;
    uint32_t sfpFirmware(PortKey key, SDSfpFirmwareInfo &out) override;
    uint32_t updateSfpFirmware(PortKey key, const std::vector<uint8_t> &image) override;

    uint32_t takeEvents(PortKey key, uint32_t room, std::vector<SDAenRecord> &events, uint32_t &queued) override;
    uint32_t eventQueue(PortKey key, SDAenQueueStatus &out) override;
    uint32_t statistics(PortKey key, SDStatistics &out) override;
    uint32_t resetStatistics(PortKey key) override;
    uint32_t remoteLinkStatus(PortKey key, uint64_t target, SDLinkErrorStatus &out) override;

    uint32_t loopback(PortKey key, const LoopbackRequest &request, SDDiagResult &result) override;

    uint32_t createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &vportId) override;
    uint32_t deleteVport(PortKey key, uint64_t wwpn) override;
    uint32_t getQoS(PortKey key, uint64_t vportWwpn, SDQoS &out) override;
    uint32_t setQoS(PortKey key, uint64_t vportWwpn, const SDQoS &qos) override;

    // Controls of vtsdm-sim, by instance; not part of the backend interface.
    uint32_t queueEvent(uint32_t instance, uint32_t code);
    uint32_t setLinkState(uint32_t instance, uint16_t state, bool dport);
    uint32_t addCounters(uint32_t instance, const SDStatistics &delta);
    // Flash controls (sim_flash.cpp): the next N region reads or writes of the
    // instance's card fail; a restart of the card clears reboot-required.
    uint32_t setFlashFaults(uint32_t instance, std::optional<uint32_t> reads, std::optional<uint32_t> writes);
    uint32_t restartCard(uint32_t instance);
    // SD_PORTFLAG_REBOOT_REQUIRED when the card's flash was updated.
    uint32_t flashStateFlags(const Card &c);

    // NVRAM controls of vtsdm-sim (sim_nvram.cpp), by instance of a physical
    // port: condition flags, faults to come, a damaged image, a simulated
    // reset that applies the NVRAM, and the card's active FC-NVMe boot region.
    uint32_t setPortFlags(uint32_t instance, uint32_t set, uint32_t clear);
    uint32_t setNvramFaults(uint32_t instance, std::optional<uint32_t> reads, std::optional<uint32_t> writes);
    uint32_t corruptNvram(uint32_t instance);
    uint32_t resetPort(uint32_t instance);
    uint32_t setNvmeBootRegion(uint32_t instance, uint32_t region);
    // SD_PORTFLAG_* bits of the port now, and the port's state and speed as
    // the NVRAM its last reset applied makes them.
    uint32_t currentStateFlags(const View &v);
    bool disabledByNvram(const View &v);
    uint32_t currentSpeed(const View &v);

    // Fails the next `count` virtual-port creations on the physical port of
    // `instance` (0 disarms); kept in the state until used.
    uint32_t armVportCreateFault(uint32_t instance, uint32_t count);

    // A virtual port's own counters, for whatever drives traffic through it:
    // `change` edits the block under the state lock.  The block is zero when
    // the vPort is created and goes away with it; SDERR_NOT_FOUND when there
    // is no vPort with this WWPN.
    uint32_t updateVportCounters(uint64_t vportWwpn, const std::function<void(SDStatistics &)> &change);

    // ---- moving counters, run-time targets, diagnostic scripts and the
    // clock (sim_monitor.cpp, sim_diag.cpp); controls of vtsdm-sim.
    int64_t now();                       // the simulated clock, epoch ns
    uint32_t clockSet(int64_t epochNs);  // freezes the clock there
    uint32_t clockAdvance(int64_t ns);   // moves it, frozen or running
    uint32_t clockRun();                 // lets a frozen clock run on from where it stands
    uint32_t setTraffic(uint32_t instance, const TrafficRates &rates);
    uint32_t setDiagScript(uint32_t instance, const std::vector<DiagStep> &steps);
    uint32_t setReadBufferMiscompare(uint32_t instance, uint32_t times);
    // change: "login", "logout", "remove" or "restore"; queues the event.
    uint32_t changeTarget(uint32_t instance, uint64_t target, const std::string &change);
    uint32_t addTargetErrors(uint32_t instance, uint64_t target, const SDLinkErrorStatus &delta);
    uint32_t queueEvent(uint32_t instance, const SDAenRecord &event);
    // Whether a target answers now: host file and run-time changes together.
    struct Presence {
        bool loggedIn = true;
        bool removed = false;
    };
    Presence targetPresence(const View &v, const Target &t);
    // Changes the data of a READ BUFFER when the port's script says so.
    void readBufferFault(const View &v, std::vector<uint8_t> &data);

    // Physical-port lookup by WWPN.
    const Port *findPort(uint64_t wwpn) const;
    // The target of a port function by WWPN, or null.
    const Target *findTarget(const View &v, uint64_t wwpn) const;
    // The link state the port has now (the host file's, or as changed).
    uint16_t currentPortState(const View &v);

private:
    std::vector<VPortRecord> currentVports();
    const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &baseFlash(const Card &c);
    std::vector<uint8_t> initialNvram(const View &v);
    std::vector<uint8_t> appliedNvram(const View &v);
    uint32_t readGlobalNvram(const View &v, std::vector<uint8_t> &bytes);
    uint32_t writeGlobalNvram(const View &v, uint32_t offset, const std::vector<uint8_t> &data);
    uint32_t flashWriteAllowed(const View &v);
    void addNvramRegions(const Card &c, std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &regions);
    const std::vector<SDOptionRomRegion> &cardLayout(const Card &c);
    std::optional<uint32_t> regionCapacity(const Card &c, uint32_t region);
    std::vector<uint8_t> regionContent(const Card &c, uint32_t region);
    bool flashFault(const Card &c, bool write);
    uint32_t consumeFault(const std::string &key, uint32_t limit);
    uint32_t instancePort(uint32_t instance, View &v);
    // Counters of a port function at the time `t`, and the rates that move them.
    SDStatistics countersAt(const View &v, const PortChanges *changes, int64_t t);
    TrafficRates trafficOf(const View &v, const PortChanges *changes);
    // Takes the next step of the port's loopback script, if any is left.
    std::optional<DiagStep> nextDiagStep(const View &v);

    Host host_;
    StateStore store_;
    std::unordered_map<uint64_t, uint32_t> portByWwpn_;
    std::vector<std::unordered_map<uint64_t, uint32_t>> targetByWwpn_;                  // per physical port
    std::map<uint32_t, std::vector<std::pair<uint32_t, std::vector<uint8_t>>>> flash_;  // by card
    std::map<uint32_t, std::vector<SDOptionRomRegion>> layouts_;                        // by card: region capacities
    std::map<std::tuple<uint64_t, uint64_t, uint16_t>, std::vector<uint8_t>> buffers_;  // write buffer
};

// Gives every virtual port without an instance number (0: the host file's,
// or a state written before they had one) the lowest free number at or above
// `physicalPorts`, in list order.
void NumberVports(std::vector<VPortRecord> &vports, uint32_t physicalPorts);

// The active backend when it is the simulator, else null; the caller holds
// `access` for as long as it uses the result.
Simulator *ActiveSimulator(const BackendAccess &access);

}  // namespace vtsdm
