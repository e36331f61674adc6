// Which libvtsdm backend answers, for the reports that name it.
#include "core/core.h"

namespace vt::core {

DeviceBackend GetDeviceBackend() {
    DeviceBackend backend;
    char text[512] = "";
    if (SDGetBackendName(text, sizeof text) == SDERR_NONE) backend.name = text;
    text[0] = '\0';
    if (SDGetBackendDescription(text, sizeof text) == SDERR_NONE) backend.description = text;
    return backend;
}

}  // namespace vt::core
