// Renders a simulated host as the sysfs tree the kernel's FC and SCSI
// transport classes would show for it, so the Linux backend and other
// sysfs readers can be run against a known host.
#pragma once

#include <cstdint>
#include <string>

namespace vtsdm {

class Simulator;

// Writes ROOT/sys (replacing any sys/ already there) in the kernel's layout
// (device directories under sys/devices, class and bus entries as relative
// links to them) and the marker ROOT/etc/vtsdm/sysfs-export.json that lets
// the Linux backend send its SCSI commands to the simulator.  Throws
// std::runtime_error when the tree cannot be written.
void ExportSysfs(Simulator &sim, const std::string &root);

// Does the kernel's part for the control attributes written in the tree
// (vport_create, vport_delete, statistics/reset_statistics): applies them
// to the simulator, then renders the tree again.  Returns how many writes
// it found.
uint32_t ApplySysfsWrites(Simulator &sim, const std::string &root);

}  // namespace vtsdm
