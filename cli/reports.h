// The walks of the display commands (see commands.h for adding one) and
// the selection helpers they share.
#pragma once

#include <vector>

#include "cli/commands.h"

namespace vt::cli {

Result GeneralReport(const TarnCommand &command, Sink &sink);  // -g
Result InfoReport(const TarnCommand &command, Sink &sink);     // -i
Result TargetsReport(const TarnCommand &command, Sink &sink);  // -t
Result LunsReport(const TarnCommand &command, Sink &sink);     // -l
Result SummaryReport(const TarnCommand &command, Sink &sink);  // -z
Result VersionReport(const TarnCommand &command, Sink &sink);  // -v
// NVRAM settings and boot devices.
Result HBAParamsReport(const TarnCommand &command, Sink &sink);     // -c
Result ModifyParamsReport(const TarnCommand &command, Sink &sink);  // -n
Result BootDevicesReport(const TarnCommand &command, Sink &sink);   // -e
Result FlashUpdateReport(const TarnCommand &command, Sink &sink);   // -b
// Diagnostics and monitors (cmd_diag.cpp, cmd_monitor.cpp).
Result LoopbackReport(const TarnCommand &command, Sink &sink);         // -kl
Result ReadWriteBufferReport(const TarnCommand &command, Sink &sink);  // -kr
Result StatisticsReport(const TarnCommand &command, Sink &sink);       // -gs
Result LinkStatusReport(const TarnCommand &command, Sink &sink);       // -ls

// Driver files, virtual ports and aliases.
Result DriverSettingsReport(const TarnCommand &command, Sink &sink);     // -fg
Result SetDriverSettingsReport(const TarnCommand &command, Sink &sink);  // -fs
Result PersistentBindingReport(const TarnCommand &command, Sink &sink);  // -p
Result SelectiveLunsReport(const TarnCommand &command, Sink &sink);      // -m
Result VirtualPortsReport(const TarnCommand &command, Sink &sink);       // -vp
Result HbaAliasReport(const TarnCommand &command, Sink &sink);           // -ha
Result PortAliasReport(const TarnCommand &command, Sink &sink);          // -pa

// The ports a command selects, in the order of the sorted device list; a
// failure (no port, or none selected) in `result`.
std::vector<const SDMDevice *> SelectPorts(const TarnCommand &command, Result &result);
// The ports an alias names (TARN_SELECT_ALIAS): the port with that port
// alias, else every port of the adapter with that adapter alias.
std::vector<const SDMDevice *> SelectPortsByAlias(const TarnCommand &command, const std::vector<const SDMDevice *> &all,
                                                  Result &result);
// Every listed port.
std::vector<const SDMDevice *> AllPorts();

}  // namespace vt::cli
