// Feeds arbitrary text to the simulated host's diagnostic step parser (host
// files and vtsdm-sim take it).  A step that parses must come back the same
// from its own text form.
#include <cstdint>
#include <string>

#include "sim_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::string error;
    const auto step = vtsdm::ParseDiagStep(text, error);
    if (!step) {
        if (error.empty()) __builtin_trap();
        return 0;
    }
    const auto again = vtsdm::ParseDiagStep(vtsdm::FormatDiagStep(*step), error);
    if (!again || !(*again == *step)) __builtin_trap();
    return 0;
}
