// A SCSI transport for the Linux backend answered by the simulator: a tree
// that "vtsdm-sim export-sysfs" wrote has no devices to send commands to,
// so the simulated host the tree was made from answers them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend.h"
#include "linux/scsi_transport.h"

namespace vtsdm {

class Simulator;

// The marker an exported tree carries: the host file and state directory
// of the simulator it was made from ("/etc/vtsdm/sysfs-export.json" under
// the tree's root).
constexpr const char *kExportMarker = "/etc/vtsdm/sysfs-export.json";

// The transport of an exported tree under the current system root, or null
// when the root holds no marker.  Throws HostError when the host file named
// there cannot be loaded.
std::unique_ptr<linuxfc::ScsiTransport> MakeExportTransport();

// A transport over a given simulator (not owned).
std::unique_ptr<linuxfc::ScsiTransport> MakeSimTransport(Simulator &sim);

// What a CDB asks for, in the terms of the backend interface; none for a
// command the simulator does not know.
std::optional<ScsiRequest> DecodeCdb(const std::vector<uint8_t> &cdb);

// The outcome a SCSI generic device would give for an SD status.
linuxfc::ScsiOutcome OutcomeOfStatus(uint32_t status, std::vector<uint8_t> sense);

}  // namespace vtsdm
