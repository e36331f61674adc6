// Pieces of the tarncli tool shared between its source files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vtapi_cli.h"

namespace tarn {

// Outcome of a command: its status and, on failure, the message.
struct Result {
    int32_t status = 0;
    std::string error;
};

// Prints text through the front-end print hook (stdout, or the -o file).
void Out(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The display commands.
Result General(const TarnCommand &cmd);
Result Info(const TarnCommand &cmd);
Result Targets(const TarnCommand &cmd);
Result Luns(const TarnCommand &cmd);
Result Summary(const TarnCommand &cmd);

// Help.
void PrintUsage();
void PrintCommandHelp(int32_t command);

}  // namespace tarn
