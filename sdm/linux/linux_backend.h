// The Linux backend: adapters, ports, remote ports and LUNs as the kernel's
// FC and SCSI transport classes show them in sysfs, SCSI commands through a
// transport (SG_IO on a real host), statistics, events and virtual ports.
// NVRAM, flash, option ROM, loopback and QoS have no kernel interface and
// answer SDERR_NOT_SUPPORTED.  Every path goes through the system-path
// mapping, so the backend reads a tree under $VTAPI_SYSROOT as it reads /sys.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend.h"
#include "fc_events.h"
#include "scsi_transport.h"
#include "sysfs.h"

namespace vtsdm::linuxfc {

// One logical unit of a remote port.
struct LogicalUnit {
    uint64_t lun = 0;     // Linux LUN number
    std::string dir;      // sysfs device directory (".../3:0:1:2")
    std::string generic;  // "sg4", or "" without a generic device
    int type = -1;        // SCSI peripheral device type from sysfs
    std::string osName;   // "/dev/sdc", "/dev/st0", "/dev/sch1", or ""
};

struct RemotePort {
    std::string name;  // "rport-3:0-1"
    std::string dir;   // device directory
    uint64_t wwnn = 0, wwpn = 0;
    uint32_t portId = 0;
    uint32_t roles = 0;  // Role bits
    bool loggedIn = false;
    bool blocked = false;  // "Blocked": the link to it is down for now
    int64_t targetId = -1;
    bool unitsLoaded = false;       // read once per scan of the hosts
    std::vector<LogicalUnit> luns;  // by LUN number
};

// One FC host: a physical port function or a virtual port.
struct FcHostPort {
    uint32_t hostNo = 0;
    std::string name;  // "host3"
    std::string dir;   // device directory of the SCSI host
    std::string attr;  // its fc_host attribute directory
    uint64_t wwnn = 0, wwpn = 0;
    bool vport = false;
    uint32_t vportNumber = 0;
    std::string vportAttr;  // fc_vports attribute directory of a virtual port
    uint32_t parentHostNo = 0;
    std::string pciDir;  // the PCI function, "" when there is none
    std::optional<PciAddress> pci;
    bool rportsLoaded = false;
    std::vector<RemotePort> rports;  // by remote port number
};

class LinuxBackend : public Backend {
public:
    explicit LinuxBackend(std::unique_ptr<ScsiTransport> transport);

    const char *name() const override { return "linux"; }
    std::string description() const override;

    uint32_t open(uint32_t instance, PortKey &key) override;
    uint32_t chipProperty(PortKey key, SDChipProperty &p) override;
    uint32_t driverProperty(PortKey key, SDDriverProperty &p) override;
    uint32_t nodeProperty(PortKey key, SDNodeProperty &p) override;
    uint32_t portProperty(PortKey key, SDPortProperty &p) override;
    uint32_t discTargets(PortKey key, std::vector<SDDiscTargetProperty> &out) override;
    uint32_t scsi(PortKey key, const ScsiRequest &request, ScsiReply &reply) override;
    uint32_t lunOsName(PortKey key, uint64_t target, uint16_t lun, std::string &name) override;
    uint32_t vpd(PortKey key, std::vector<uint8_t> &out) override;
    uint32_t takeEvents(PortKey key, uint32_t room, std::vector<SDAenRecord> &events, uint32_t &queued) override;
    uint32_t eventQueue(PortKey key, SDAenQueueStatus &out) override;
    uint32_t statistics(PortKey key, SDStatistics &out) override;
    uint32_t resetStatistics(PortKey key) override;
    uint32_t createVport(PortKey key, uint64_t wwnn, uint64_t wwpn, uint16_t &vportId) override;
    uint32_t deleteVport(PortKey key, uint64_t wwpn) override;

    // Called with the attribute's path after every write to a control
    // attribute (vport_create, vport_delete, reset_statistics), before the
    // backend looks at the result.  Tests act the kernel's part here.
    void setControlWriteHook(std::function<void(const std::string &)> hook) { hook_ = std::move(hook); }

private:
    void scanHosts();
    FcHostPort *find(PortKey key);
    const FcHostPort *parentOf(const FcHostPort &h) const;
    void loadRemotePorts(FcHostPort &h);
    void loadUnits(RemotePort &r);
    RemotePort *findRemotePort(FcHostPort &h, uint64_t wwpn);
    const LogicalUnit *findUnit(RemotePort &r, uint16_t lun, bool anyForTarget);
    uint32_t writeControl(const std::string &path, const std::string &text);
    std::string attr(const FcHostPort &h, const char *name) const;
    std::string hostOrParentAttr(const FcHostPort &h, const char *name) const;
    std::string driverName(const FcHostPort &h) const;
    uint16_t currentState(const FcHostPort &h) const;
    std::vector<uint8_t> readVpd(const FcHostPort &h, uint32_t &rc) const;

    std::unique_ptr<ScsiTransport> transport_;
    std::string sysfs_;              // the mapped "/sys"
    std::vector<FcHostPort> hosts_;  // instance order
    std::map<uint64_t, size_t> byWwpn_;
    std::map<uint64_t, uint16_t> lastState_;  // port state last seen by the event poll
    std::unique_ptr<FcEventSocket> events_;
    bool eventsTried_ = false;
    std::map<uint32_t, std::vector<uint32_t>> pendingEvents_;  // by host number: AEN codes
    std::map<uint32_t, uint64_t> droppedEvents_;               // by host number
    std::function<void(const std::string &)> hook_;
};

}  // namespace vtsdm::linuxfc
