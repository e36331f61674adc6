// The end of a command's output: what was written must have reached its
// file, or the command fails.
#include <errno.h>

#include <cstdio>
#include <cstring>

#include "cli/sinks.h"
#include "oss/oss.h"
#include "vtapi_cli.h"

namespace vt::cli {

uint32_t FinishOutput(uint32_t status) {
    FILE *stream = g_fp != nullptr ? g_fp : stdout;
    errno = 0;
    const bool failed = std::fflush(stream) != 0 || std::ferror(stream) != 0;
    if (!failed) return status;
    const int error = errno != 0 ? errno : EIO;
    const char *where = g_fp != nullptr ? GetLogFileName() : "standard output";
    std::fprintf(stderr, "Error: Unable to write the output to %s: %s\n", where, std::strerror(error));
    std::fflush(stderr);
    TarnLogMessage(VT_MSG_ERROR, "Unable to write the output to %s: %s", where, std::strerror(error));
    std::clearerr(stream);
    return status == 0 ? kStatusOutputFailed : status;
}

}  // namespace vt::cli
