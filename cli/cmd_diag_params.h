// The NAME=VALUE arguments of the diagnostic and monitor commands (-kl, -kr,
// -gs, -ls): each is checked by the library's validation of its table and
// stored in that table, so the command line and the menu share one set of
// rules and messages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace vt::cli {

struct NamedArgument {
    std::string name;
    std::string value;
};

// Splits the command's arguments at their first '='; a word without one is
// refused (60) with a message that names the accepted parameters.
Result SplitNamedArguments(const TarnCommand &cmd, const char *accepted, std::vector<NamedArgument> &out);

// Fills the diagnostic parameter table for a test mode (DIAG_TEST_*) with
// its defaults and the given values; a refused value gives 48 and the
// library's message, an unknown name 60.
Result SetDiagnosticParameters(const TarnCommand &cmd, uint32_t mode);

// The same for a polling table (POLL_STATISTICS, POLL_LINK_STATUS).  Names
// the command line adds itself (a Prometheus file) are taken out first and
// returned in `extra` when they match one of `extraNames` (any case).
Result SetPollingParameters(const TarnCommand &cmd, uint32_t kind, const std::vector<std::string> &extraNames,
                            std::vector<NamedArgument> &extra);

// The ports in the form the library's tests and monitors take them (they
// copy each port for their workers and change nothing).
std::vector<SDMDevice *> WorkerPorts(const std::vector<const SDMDevice *> &ports);

}  // namespace vt::cli
