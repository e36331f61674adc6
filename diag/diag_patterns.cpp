// Test data: the Fibre Channel compliance patterns and the 8-byte patterns,
// repeated over a transmit buffer of the test's data size.
#include <cstring>
#include <vector>

#include "diag.h"
#include "diag_internal.h"

namespace {

// Compliant random pattern: a 12-byte sequence of random-looking
// characters with a broad frequency content.
const std::vector<uint8_t> &Crpat() {
    static const std::vector<uint8_t> unit = {0xBE, 0xD7, 0x23, 0x47, 0x6B, 0x8F, 0xB3, 0x14, 0x5E, 0xFB, 0x35, 0x59};
    return unit;
}

// Compliant jitter tolerance pattern: a phase shift, a long run of the
// high-transition-density character B5, the phase shift back and a long
// run of the low-transition-density character 7E.
const std::vector<uint8_t> &Cjtpat() {
    static const std::vector<uint8_t> unit = [] {
        std::vector<uint8_t> u = {0x7E, 0x7E, 0x7E, 0x7E, 0x74, 0x7E, 0xAB, 0xB5};
        u.insert(u.end(), 44, 0xB5);
        const uint8_t back[] = {0xB5, 0xB5, 0xB5, 0xB5, 0xAB, 0xB5, 0x74, 0x7E};
        u.insert(u.end(), back, back + sizeof back);
        u.insert(u.end(), 44, 0x7E);
        return u;
    }();
    return unit;
}

// Compliant supply noise pattern: long runs of the characters that load
// the transmitter's supply most (7F) and least (80).
const std::vector<uint8_t> &Cspat() {
    static const std::vector<uint8_t> unit = [] {
        std::vector<uint8_t> u(112, 0x7F);
        u.insert(u.end(), 112, 0x80);
        return u;
    }();
    return unit;
}

void Repeat(const uint8_t *unit, size_t unitSize, uint8_t *buffer, uint32_t size) {
    for (uint32_t at = 0; at < size; at += uint32_t(unitSize))
        memcpy(buffer + at, unit, std::min<size_t>(unitSize, size - at));
}

}  // namespace

namespace vt::diag {

const std::vector<uint8_t> *CompliancePattern(int kind) {
    switch (kind) {
    case VTAPI_DIAG_PATTERN_CRPAT: return &Crpat();
    case VTAPI_DIAG_PATTERN_CJTPAT: return &Cjtpat();
    case VTAPI_DIAG_PATTERN_CSPAT: return &Cspat();
    default: return nullptr;
    }
}

}  // namespace vt::diag

extern "C" {

DIAG_INTERNAL uint32_t FillDiagnosticsPattern(const DiagRequest *request, uint8_t *buffer, uint32_t size) {
    if (!request || !buffer) return 8;
    if (const auto *unit = vt::diag::CompliancePattern(request->PatternKind))
        Repeat(unit->data(), unit->size(), buffer, size);
    else Repeat(request->Pattern, sizeof request->Pattern, buffer, size);
    return 0;
}

}  // extern "C"
