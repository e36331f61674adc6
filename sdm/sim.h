// The simulated host behind the SD... calls: host file + persisted state +
// open handles.  One per process, created on first use.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host.h"
#include "state.h"

namespace vtsdm {

// Where the host file and the state come from.
std::string DefaultHostPath();   // $VTSDM_HOST or <install>/data/default_host.json
std::string DefaultStateDir();   // $VTSDM_STATE_DIR or $VTAPI_SYSROOT/var/lib/vtsdm
std::string InstallationDir();   // the directory above lib64 (or bin) of this code

class Simulator {
public:
    // Loads the host file; throws HostError.
    Simulator(const std::string &hostPath, const std::string &stateDir);

    const Host &host() const { return host_; }
    StateStore &store() { return store_; }

    // One port function as an instance sees it.
    struct View {
        uint32_t instance = 0;
        const Port *port = nullptr;   // the physical port (the parent of a vPort)
        const Card *card = nullptr;
        std::optional<VPortRecord> vport;
        uint64_t wwpn() const { return vport ? vport->wwpn : port->wwpn; }
    };

    // Instance list: physical ports in file order, then virtual ports.
    std::vector<View> instances();

    uint32_t open(uint32_t instance, uint32_t *handle);
    uint32_t close(uint32_t handle);
    uint32_t resolve(uint32_t handle, View &v);

    uint32_t chipProperty(uint32_t h, SDChipProperty *p);
    uint32_t driverProperty(uint32_t h, SDDriverProperty *p);
    uint32_t nodeProperty(uint32_t h, SDNodeProperty *p);
    uint32_t portProperty(uint32_t h, SDPortProperty *p);
    uint32_t discTargets(uint32_t h, SDDiscTargetProperty *buf, uint32_t *count);

    // SCSI: fills resp/sense vectors; returns the SD status.
    enum class Cdb { ReportLuns, Inquiry, ReadCapacity10, ReadCapacity16, TestUnitReady, WriteBuffer, ReadBuffer };
    uint32_t scsi(uint32_t h, const uint8_t *targetWwpn, uint16_t lun, Cdb cdb, uint8_t evpd, uint8_t page,
                  const std::vector<uint8_t> &dataOut, std::vector<uint8_t> &resp, std::vector<uint8_t> &sense);
    uint32_t lunOsName(uint32_t h, const uint8_t *targetWwpn, uint16_t lun, std::string &name);

    uint32_t nvramImage(uint32_t h, uint32_t area, std::vector<uint8_t> &image);
    uint32_t updateNvram(uint32_t h, uint32_t area, const uint8_t *data, uint32_t size);
    uint32_t nvramSize(uint32_t h, uint32_t &size);

    uint32_t vpd(uint32_t h, std::vector<uint8_t> &out);
    uint32_t flashLayout(uint32_t h, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize);
    uint32_t readRegion(uint32_t h, uint32_t region, std::vector<uint8_t> &bytes);
    uint32_t writeRegion(uint32_t h, uint32_t region, uint32_t offset, const uint8_t *data, uint32_t size);

    uint32_t takeEvents(uint32_t h, std::vector<SDAenRecord> &events);
    uint32_t statistics(uint32_t h, SDStatistics *s);
    uint32_t resetStatistics(uint32_t h);
    uint32_t remoteLinkStatus(uint32_t h, const uint8_t *targetWwpn, SDLinkErrorStatus *s);
    uint32_t loopback(uint32_t h, uint32_t option, const void *tx, void *rx, uint32_t size,
                      uint32_t iterations, SDDiagResult *r, bool maxIo);

    uint32_t createVport(uint32_t h, uint64_t wwnn, uint64_t wwpn, uint16_t *id);
    uint32_t deleteVport(uint32_t h, uint64_t wwpn);
    uint32_t getQoS(uint32_t h, uint64_t vportWwpn, SDQoS *q);
    uint32_t setQoS(uint32_t h, uint64_t vportWwpn, const SDQoS &q);

    // Control operations of vtsdm-sim, by instance.
    uint32_t queueEvent(uint32_t instance, uint32_t code);
    uint32_t setLinkState(uint32_t instance, uint16_t state, bool dport);
    uint32_t addCounters(uint32_t instance, const SDStatistics &delta);

    // Physical-port lookup by WWPN (host file order index).
    const Port *findPort(uint64_t wwpn) const;

private:
    const Target *findTarget(const View &v, const uint8_t *wwpn) const;
    uint16_t currentPortState(const View &v);
    std::vector<VPortRecord> currentVports();
    const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> &baseFlash(const Card &c);
    std::vector<uint8_t> initialNvram(const View &v);
    uint32_t consumeFault(const std::string &key, uint32_t limit);
    uint32_t instancePort(uint32_t instance, View &v);

    Host host_;
    StateStore store_;
    std::unordered_map<uint64_t, uint32_t> portByWwpn_;
    std::vector<std::unordered_map<uint64_t, uint32_t>> targetByWwpn_;  // per physical port
    std::unordered_map<uint32_t, uint64_t> handles_;                    // handle -> WWPN
    uint32_t nextHandle_ = 0x100;
    std::map<uint32_t, std::vector<std::pair<uint32_t, std::vector<uint8_t>>>> flash_;  // by card
    std::map<std::tuple<uint64_t, uint64_t, uint16_t>, std::vector<uint8_t>> buffers_;  // write buffer
};

// The process-wide simulator and its lock.  Get() returns null when the
// host file cannot be loaded; the reason is in LoadError() and is printed
// once on standard error.
struct SimAccess {
    std::unique_lock<std::recursive_mutex> lock;
    Simulator *sim;
};
SimAccess AcquireSimulator();
std::string LoadError();
// Drops the simulator so the next call loads the host again (tests, tool).
void UnloadSimulator();

}  // namespace vtsdm
