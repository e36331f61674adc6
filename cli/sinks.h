// The three sinks of the reports (report.h).
#pragma once

#include <memory>

#include "cli/report.h"

namespace vt::cli {

// Text for a person at an 80-column terminal, through scfxPrint; a failure
// goes to standard error (not with -s).
std::unique_ptr<Sink> MakeTextSink();
// XML through the XML_Emit... emitters, which choose format 1 or 2.
std::unique_ptr<Sink> MakeXmlSink();
// One JSON document, a line at a time through scfxPrint.
std::unique_ptr<Sink> MakeJsonSink();

// Text for a terminal: control characters other than line end and tab
// become "\xNN".
std::string VisibleText(const std::string &text);

// Flushes the command's output (standard output, or the -o file) at the end
// of a command.  A failed write anywhere in it is reported on standard error
// and in the log, and turns a successful status into kStatusOutputFailed.
constexpr uint32_t kStatusOutputFailed = 74;  // an I/O error, as sysexits.h counts
uint32_t FinishOutput(uint32_t status);

// A string as a JSON string literal, quotes included.  Bytes that do not
// form UTF-8 are taken as ISO-8859-1 characters.
std::string JsonString(const std::string &text);

}  // namespace vt::cli
