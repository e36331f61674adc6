// The walks of the display commands (see commands.h for adding one) and
// the selection helpers they share.
#pragma once

#include <vector>

#include "cli/commands.h"

namespace vt::cli {

Result GeneralReport(const TarnCommand &command, Sink &sink);   // -g
Result InfoReport(const TarnCommand &command, Sink &sink);      // -i
Result TargetsReport(const TarnCommand &command, Sink &sink);   // -t
Result LunsReport(const TarnCommand &command, Sink &sink);      // -l
Result SummaryReport(const TarnCommand &command, Sink &sink);   // -z
Result VersionReport(const TarnCommand &command, Sink &sink);   // -v
// NVRAM settings and boot devices.
Result HBAParamsReport(const TarnCommand &command, Sink &sink);     // -c
Result ModifyParamsReport(const TarnCommand &command, Sink &sink);  // -n
Result BootDevicesReport(const TarnCommand &command, Sink &sink);   // -e

// The ports a command selects, in the order of the sorted device list; a
// failure (no port, or none selected) in `result`.
std::vector<const SDMDevice *> SelectPorts(const TarnCommand &command, Result &result);
// Every listed port.
std::vector<const SDMDevice *> AllPorts();

}  // namespace vt::cli
