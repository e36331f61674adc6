// Small helpers shared by the simulator's source files.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "imagebuild.h"
#include "vtsdm.h"
#include "wire.h"

namespace vtsdm::simdetail {

using wire::CopyText;
using wire::PortIdBytes;

inline bool PortUp(uint16_t state) { return state == SD_PORTSTATE_ONLINE; }

inline image::Version VersionOf(const std::string &text) {
    return image::ParseVersion(text).value_or(image::Version{});
}

}  // namespace vtsdm::simdetail
