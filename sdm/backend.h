// The backend interface of libvtsdm: one operation per SD... call.
//
// The C entry points (sdapi.cpp) check arguments, keep the handle table,
// copy into the caller's buffers and give the error texts; a backend only
// answers.  Every operation has a default that answers SDERR_NOT_SUPPORTED,
// so a backend implements what its platform offers and nothing more.
// Operations that only one backend has (the simulator's event, link and
// counter controls) are that backend's own and not part of this interface.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "vtsdm.h"

namespace vtsdm {

// How a backend finds an opened port function again: its WWPN.  Instance
// numbers may move between calls (a virtual port deleted), names do not.
using PortKey = uint64_t;

enum class ScsiOp { ReportLuns, Inquiry, ReadCapacity10, ReadCapacity16, TestUnitReady, WriteBuffer, ReadBuffer };

struct ScsiRequest {
    ScsiOp op = ScsiOp::TestUnitReady;
    uint64_t target = 0;  // WWPN of the remote port
    uint16_t lun = 0;     // LUN number as REPORT LUNS gives it, address-method bits cleared
    uint8_t evpd = 0;     // INQUIRY: vital product data page wanted
    uint8_t page = 0;
    uint32_t allocation = 0;       // data-in bytes the caller has room for
    std::vector<uint8_t> dataOut;  // WRITE BUFFER data
};

struct ScsiReply {
    std::vector<uint8_t> data;   // data-in
    std::vector<uint8_t> sense;  // sense data of a check condition
};

struct LoopbackRequest {
    uint32_t option = 0;  // SD_LOOPBACK_*
    const void *tx = nullptr;
    void *rx = nullptr;
    uint32_t size = 0;
    uint32_t iterations = 0;
    bool maxIo = false;      // SDDiagIO: external loopback of maximum-size I/O
    uint32_t increment = 1;  // SDDiagIO: I/Os per count
    // Out: how long the port is busy with the frames.  The caller waits that
    // long after it has let go of the backend, so that tests on several
    // ports run side by side as they do on real adapters.
    uint64_t *busyNs = nullptr;
};

// Events a port's queue holds, as adapter firmware does; past it the oldest
// are dropped and counted.
constexpr size_t kEventQueueDepth = 256;

// Waits out the time a port was busy with a diagnostic (LoopbackRequest).
void WaitWhilePortBusy(uint64_t ns);

class Backend {
public:
    virtual ~Backend() = default;

    // Short name ("sim", "linux") and one line saying what answers.
    virtual const char *name() const = 0;
    virtual std::string description() const = 0;

    // Opening gives the key later operations take; SDERR_NO_SUCH_DEVICE past
    // the last instance.
    virtual uint32_t open(uint32_t instance, PortKey &key);
    virtual void close(PortKey key);

    virtual uint32_t chipProperty(PortKey key, SDChipProperty &out);
    virtual uint32_t driverProperty(PortKey key, SDDriverProperty &out);
    virtual uint32_t nodeProperty(PortKey key, SDNodeProperty &out);
    virtual uint32_t portProperty(PortKey key, SDPortProperty &out);
    virtual uint32_t discTargets(PortKey key, std::vector<SDDiscTargetProperty> &out);

    virtual uint32_t scsi(PortKey key, const ScsiRequest &request, ScsiReply &reply);
    virtual uint32_t lunOsName(PortKey key, uint64_t target, uint16_t lun, std::string &name);

    virtual uint32_t nvramSize(PortKey key, uint32_t &size);
    virtual uint32_t readNvram(PortKey key, uint32_t area, std::vector<uint8_t> &image);
    virtual uint32_t writeNvram(PortKey key, uint32_t area, const std::vector<uint8_t> &image);

    virtual uint32_t vpd(PortKey key, std::vector<uint8_t> &out);
    virtual uint32_t flashLayout(PortKey key, std::vector<SDOptionRomRegion> &regions, uint32_t &flashSize);
    virtual uint32_t readRegion(PortKey key, uint32_t region, std::vector<uint8_t> &bytes);
    virtual uint32_t writeRegion(PortKey key, uint32_t region, uint32_t offset, const std::vector<uint8_t> &data);
    // Replaces the contents of several regions, all or none (SDUpdateOptionRomRegions).
    struct RegionImage {
        uint32_t region = 0;
        std::vector<uint8_t> bytes;
    };
    virtual uint32_t writeRegions(PortKey key, const std::vector<RegionImage> &regions);
    // The port's SFP module: its firmware, and a new firmware image for it
    // (SDUpdateSfpFirmware).  Backends without access answer SDERR_NOT_SUPPORTED.
    virtual uint32_t sfpFirmware(PortKey key, SDSfpFirmwareInfo &out);
    virtual uint32_t updateSfpFirmware(PortKey key, const std::vector<uint8_t> &image);

    // Hands out at most `room` of the oldest queued events and leaves the
    // rest queued; `queued` is how many were waiting before the call.
    virtual uint32_t takeEvents(PortKey key, uint32_t room, std::vector<SDAenRecord> &events, uint32_t &queued);
    virtual uint32_t eventQueue(PortKey key, SDAenQueueStatus &out);
    virtual uint32_t statistics(PortKey key, SDStatistics &out);
    virtual uint32_t resetStatistics(PortKey key);
    virtual uint32_t remoteLinkStatus(PortKey key, uint64_t target, SDLinkErrorStatus &out);

    virtual uint32_t loopback(PortKey key, const LoopbackRequest &request, SDDiagResult &result);

    virtual uint32_t createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &vportId);
    virtual uint32_t deleteVport(PortKey key, uint64_t wwpn);
    virtual uint32_t getQoS(PortKey key, uint64_t vportWwpn, SDQoS &out);
    virtual uint32_t setQoS(PortKey key, uint64_t vportWwpn, const SDQoS &qos);
};

// ------------------------------------------------------------- selection

enum class BackendKind { Sim, Linux };

// Which backend answers and why ("VTSDM_BACKEND", "vtsdm.conf", "detected",
// "default").  The order: $VTSDM_BACKEND (sim or linux), else a "backend ="
// line of <install>/data/vtsdm.conf, else linux when the system has FC host
// adapters (entries in /sys/class/fc_host) and sim otherwise.
struct BackendChoice {
    BackendKind kind = BackendKind::Sim;
    std::string reason;
    std::string warning;  // an unusable setting that was passed over
};
BackendChoice ChooseBackend();

// The value of a "backend = NAME" line of a configuration text, or "" when
// it has none ("#" starts a comment; the last such line counts).
std::string ConfiguredBackend(const std::string &text);

// The process-wide backend and the lock every call holds.  The backend is
// made on first use and made again when its environment changes (tests
// switch hosts and private roots); `generation` tells handles of an older
// one apart.  `backend` is null when it cannot be made: the reason is in
// BackendError() and is printed once on standard error.
struct BackendAccess {
    std::unique_lock<std::recursive_mutex> lock;
    Backend *backend = nullptr;
    uint64_t generation = 0;
};
BackendAccess AcquireBackend();
std::string BackendError();
void UnloadBackend();

// Something the calling program's log should hear of (a state file kept
// aside, a file refused): printed on standard error at once and kept, the
// last kMaxNotices of them, until SDGetBackendNotice hands it out: the
// oldest is looked at, then dropped once the caller has it.
constexpr size_t kMaxNotices = 32;
void Notice(const std::string &text);
bool OldestNotice(std::string &text);
void DropNotice(const std::string &text);

// Reads a whole file; false when it cannot be opened or read.  Unlike a
// stream it lets an allocation failure through.
bool ReadTextFile(const std::string &path, std::string &text);

// The directory above the lib64/ (or bin/) that holds this code.
std::string InstallationDir();

}  // namespace vtsdm
