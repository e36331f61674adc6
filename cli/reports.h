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
Result FlashUpdateReport(const TarnCommand &command, Sink &sink);  // -b
// Diagnostics and monitors (cmd_diag.cpp, cmd_monitor.cpp).
Result LoopbackReport(const TarnCommand &command, Sink &sink);         // -kl
Result ReadWriteBufferReport(const TarnCommand &command, Sink &sink);  // -kr
Result StatisticsReport(const TarnCommand &command, Sink &sink);       // -gs
Result LinkStatusReport(const TarnCommand &command, Sink &sink);       // -ls

// The ports a command selects, in the order of the sorted device list; a
// failure (no port, or none selected) in `result`.
std::vector<const SDMDevice *> SelectPorts(const TarnCommand &command, Result &result);
// Every listed port.
std::vector<const SDMDevice *> AllPorts();

}  // namespace vt::cli
