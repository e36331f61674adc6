// Small helpers shared by the simulator's source files.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "imagebuild.h"
#include "vtsdm.h"

namespace vtsdm::simdetail {

inline void CopyText(char *dst, size_t size, const std::string &src) {
    size_t n = std::min(size - 1, src.size());
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

inline void PortIdBytes(uint32_t id, uint8_t out[3]) {
    out[0] = uint8_t(id >> 16);
    out[1] = uint8_t(id >> 8);
    out[2] = uint8_t(id);
}

inline bool PortUp(uint16_t state) { return state == SD_PORTSTATE_ONLINE; }

inline image::Version VersionOf(const std::string &text) {
    return image::ParseVersion(text).value_or(image::Version{});
}

}  // namespace vtsdm::simdetail
