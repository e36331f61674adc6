// The few library services the flash-layer sources call, for the fuzz
// targets that compile those sources in: log lines are formatted (so that a
// bad argument still shows) and dropped, and the CRC-32 is computed here.
//
// Defines the functions: include it in exactly one source of a program.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "../flash/flash_image.h"
#include "oss/oss.h"

extern "C" uint32_t TarnOSSLogMessage(int32_t, const char *text) {
    volatile size_t n = std::strlen(text);
    (void)n;
    return 1;
}

extern "C" void TarnLogMessage(int32_t type, const char *format, ...) {
    char line[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    TarnOSSLogMessage(type, line);
}

// Debug lines are on, so every log call formats its arguments.
extern "C" int32_t GetCoreEnableDebugMessage(void) { return 1; }

extern "C" uint32_t vtapi_crc(const unsigned char *data, uint32_t length) {
    uint32_t crc = 0xFFFFFFFFu;
    for (uint32_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    return crc ^ 0xFFFFFFFFu;
}

namespace fuzzflash {

inline void Check(bool ok) {
    if (!ok) __builtin_trap();
}

// An exactly sized heap copy, so that any read past the end is caught.
class Exact {
public:
    Exact(const uint8_t *data, size_t size) : bytes_(new uint8_t[size ? size : 1]), size_(uint32_t(size)) {
        if (size) std::memcpy(bytes_.get(), data, size);
    }
    uint8_t *data() const { return bytes_.get(); }
    uint32_t size() const { return size_; }
    vtflash::Bytes span() const { return vtflash::Bytes(bytes_.get(), size_); }

private:
    std::unique_ptr<uint8_t[]> bytes_;
    uint32_t size_;
};

}  // namespace fuzzflash
