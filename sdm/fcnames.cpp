// World-wide names and port speeds in the forms both backends use.
#include "fcnames.h"

#include <cstdio>

namespace vtsdm {

std::optional<uint64_t> ParseWwn(const std::string &text) {
    // 16 hex digits, either plain or as 8 pairs with one separator (':' or
    // '-', the same throughout) between each pair and the next.
    const bool separated = text.size() == 23;
    if (!separated && text.size() != 16) return std::nullopt;
    uint64_t v = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (separated && i % 3 == 2) {
            if ((c != ':' && c != '-') || c != text[2]) return std::nullopt;
            continue;
        }
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;
        v = (v << 4) | uint64_t(d);
    }
    return v;
}

std::string FormatWwn(uint64_t wwn) {
    char buf[24];
    uint8_t b[8];
    WwnToBytes(wwn, b);
    snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6],
             b[7]);
    return buf;
}

void WwnToBytes(uint64_t wwn, uint8_t out[8]) {
    for (int i = 7; i >= 0; --i, wwn >>= 8) out[i] = uint8_t(wwn & 0xFF);
}

uint64_t WwnFromBytes(const uint8_t in[8]) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = (v << 8) | in[i];
    return v;
}

std::optional<uint32_t> SpeedCodeForGbps(uint32_t gbps) {
    switch (gbps) {
    case 1: return SD_SPEED_1G;
    case 2: return SD_SPEED_2G;
    case 4: return SD_SPEED_4G;
    case 8: return SD_SPEED_8G;
    case 10: return SD_SPEED_10G;
    case 16: return SD_SPEED_16G;
    case 20: return SD_SPEED_20G;
    case 32: return SD_SPEED_32G;
    case 64: return SD_SPEED_64G;
    case 128: return SD_SPEED_128G;
    default: return std::nullopt;
    }
}

uint8_t SupportedBitForGbps(uint32_t gbps) {
    switch (gbps) {
    case 1: return SD_SUPPORTED_1G;
    case 2: return SD_SUPPORTED_2G;
    case 4: return SD_SUPPORTED_4G;
    case 8: return SD_SUPPORTED_8G;
    case 16: return SD_SUPPORTED_16G;
    case 32: return SD_SUPPORTED_32G;
    case 64: return SD_SUPPORTED_64G;
    default: return 0;
    }
}

}  // namespace vtsdm

namespace vtsdm {

uint32_t GbpsForSpeedCode(uint32_t code) {
    for (uint32_t g : {1u, 2u, 4u, 8u, 10u, 16u, 20u, 32u, 64u, 128u})
        if (SpeedCodeForGbps(g) == code) return g;
    return 0;
}

}  // namespace vtsdm
