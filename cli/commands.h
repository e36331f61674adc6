// The table of commands: what the parser accepts, what the usage page and
// the help of each command say (the man page tarncli.1 is checked against
// it), and the walk that writes each command's report.
//
// Adding a command (say "-gs", statistics):
//   1. Write its walk in a file of this layer (cli/report_statistics.cpp):
//        Result StatisticsReport(const TarnCommand &command, Sink &sink);
//      Check the arguments first and return {status, message} on a bad one
//      before writing anything; then sink.Open(), walk the data once,
//      calling the sink (report.h) for every datum with its JSON key, text
//      label and value, and Xml() with the datum's XML_Emit... emitter, and
//      return {}.  The runner closes the document, or writes the failure in
//      the chosen form.  SelectPorts gives the ports the command selects.
//   2. Declare the walk in cli/reports.h.
//   3. In the command's row in commands.cpp, set the walk, the argument
//      grammar, the help text, the number of arguments after the port
//      selector and any keyword that may stand in the selector's place.
//   4. Describe it in tarncli/tarncli.1 (a test compares the page with the
//      table) and add a test that compares its JSON with its text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/report.h"
#include "vtapi_cli.h"

namespace vt::cli {

// Outcome of a walk: 0, or a status and its message.
struct Result {
    int32_t status = 0;
    std::string message;
};

using Walk = Result (*)(const TarnCommand &command, Sink &sink);

struct CommandEntry {
    int32_t id;                       // TarnCommandId
    std::vector<const char *> words;  // option words without '-' ("tp", "topology")
    const char *grammar;              // arguments, e.g. "[hba] [target-wwpn]"
    const char *summary;              // one line of the usage page
    const char *help;                 // the help of the command; null while it has no walk
    uint32_t maxSubArgs;              // arguments after the port selector
    bool selectsPorts;                // the first argument may be a port selector
    const char *keyword;              // first arguments that are never a selector ("vpd", "set|delete")
    const char *enableKey;            // reference-file switch that enables it, or null
    Walk walk;                        // null: not available in this version
};

const std::vector<CommandEntry> &Commands();
// The command named by "-t" or "/t" (any case), or null.
const CommandEntry *FindCommand(const std::string &argument);
const CommandEntry *FindCommandById(int32_t id);
// "-t", or "-tp/-topology" for a command with two words.
std::string OptionWords(const CommandEntry &command);

std::string UsageText();
std::string CommandHelpText(int32_t id);

// The library's processing of a parsed command (TarnCommand::Process and
// TarnCommand::Help).
int32_t ProcessCommand(const TarnCommand *command);
void ShowHelp(const TarnCommand *command);
// Writes a failure in the output form of the command line (a complete
// document in XML and JSON, standard error in text).
void ReportFailure(int32_t output, int32_t status, const std::string &message);

}  // namespace vt::cli
