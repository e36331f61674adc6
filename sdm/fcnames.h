// World-wide names and port speeds in the forms both backends use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vtsdm.h"

namespace vtsdm {

// WWN text "21:00:00:24:ff:00:00:01" (or 16 hex digits) <-> value.
std::optional<uint64_t> ParseWwn(const std::string &text);
std::string FormatWwn(uint64_t wwn);
void WwnToBytes(uint64_t wwn, uint8_t out[8]);
uint64_t WwnFromBytes(const uint8_t in[8]);

// Port speed in Gb/s -> SD_SPEED_* code and supported-mask bit (0 if none).
std::optional<uint32_t> SpeedCodeForGbps(uint32_t gbps);
uint8_t SupportedBitForGbps(uint32_t gbps);
// The other way: Gb/s of an SD_SPEED_* code, 0 for none.
uint32_t GbpsForSpeedCode(uint32_t code);

}  // namespace vtsdm
