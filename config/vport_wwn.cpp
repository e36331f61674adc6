// The WWPNs of new vPorts: the physical port's WWPN with its second byte
// replaced by a value above 3 that no listed port uses.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <cstring>
#include <mutex>

#include "config/vport.h"
#include "core/core.h"
#include "oss/oss.h"

namespace {

// Byte values 0-3 are never used: 0 is the physical port's own WWPN.
constexpr int kLowestByte = 4;
// Random draws before giving up: far more than the 252 usable values need.
constexpr int kRandomDraws = 4096;

bool SameWwn(const uint8_t *a, const uint8_t *b) { return std::memcmp(a, b, 8) == 0; }

void Candidate(const uint8_t *physical, int value, uint8_t *out) {
    std::memcpy(out, physical, 8);
    out[1] = uint8_t(value);
}

bool InTable(int value) {
    for (int32_t v : g_VPortWWNs)
        if (v == value) return true;
    return false;
}

bool Record(int value) {
    for (int32_t &v : g_VPortWWNs)
        if (v == -1) {
            v = value;
            return true;
        }
    return false;
}

}  // namespace

extern "C" {

VTAPI_EXPORT int32_t g_VPortWWNs[VTAPI_MAX_VPORTS];
VTAPI_EXPORT int32_t g_UserVPortWWNByte = -1;

VTAPI_EXPORT void initVPortWWNArray(void) {
    for (int32_t &v : g_VPortWWNs) v = -1;
}

VTAPI_EXPORT uint32_t GetVPortRandomByte(void) {
    static std::once_flag seeded;
    std::call_once(seeded, [] { std::srand(unsigned(time(nullptr) + getpid())); });
    return uint32_t(std::rand()) & 255;
}

VTAPI_EXPORT uint32_t isUniqueVirtualPortWWPN(const uint8_t *wwpn) {
    if (!wwpn) return 0;
    for (const AdapterNode *n = GetAdapterList(); n; n = n->next) {
        if (SameWwn(n->WWPN, wwpn)) return 0;
        for (const uint8_t *slot : n->VPortWWPN)
            if (slot && SameWwn(slot, wwpn)) return 0;
    }
    return 1;
}

VTAPI_EXPORT int32_t populateVPortWWNArray(const uint8_t *physicalWWPN, int32_t count, uint32_t physicalPort,
                                           uint32_t option) {
    if (!physicalWWPN || count < 1) return -1;
    LogDebug(__FILE__, __LINE__, "populateVPortWWNArray: %d WWPN(s) for port %u, option %u", count, physicalPort,
             option);
    uint8_t wwpn[8];
    // Takes the value when it is usable; logs a rejected one.
    auto take = [&](int value) {
        Candidate(physicalWWPN, value, wwpn);
        if (value >= kLowestByte && value <= 255 && !InTable(value) && isUniqueVirtualPortWWPN(wwpn) && Record(value))
            return true;
        LogDebug(__FILE__, __LINE__, "populateVPortWWNArray: Found issues!");
        return false;
    };
    int32_t found = 0;
    if (option == VPORT_WWN_USER) {
        while (found < count)
            if (!take(g_UserVPortWWNByte)) return -1;
            else ++found;
    } else if (option == VPORT_WWN_SEQUENTIAL) {
        for (int value = kLowestByte; found < count; ++value) {
            if (value > 255) return -1;
            if (take(value)) ++found;
        }
    } else {
        for (int draws = 0; found < count; ++draws) {
            if (draws == kRandomDraws) return -1;
            if (take(int(GetVPortRandomByte() & 255))) ++found;
        }
    }
    return 0;
}

VTAPI_EXPORT uint32_t GenerateVPortWWN(const AdapterNode *adapter, uint8_t *out, uint32_t which) {
    if (!adapter || !out || which > 1) return VTAPI_INVALID_ARGUMENT;
    uint8_t wwpn[8];
    if (g_UserVPortWWNByte >= 0) {
        Candidate(adapter->WWPN, g_UserVPortWWNByte, wwpn);
        if (g_UserVPortWWNByte < kLowestByte || g_UserVPortWWNByte > 255 || !isUniqueVirtualPortWWPN(wwpn))
            return VTAPI_VPORT_WWN_UNUSABLE;
    } else {
        int draws = 0;
        for (;; ++draws) {
            if (draws == kRandomDraws) return VTAPI_VPORT_WWN_UNUSABLE;
            const int value = int(GetVPortRandomByte() & 255);
            Candidate(adapter->WWPN, value, wwpn);
            if (value >= kLowestByte && isUniqueVirtualPortWWPN(wwpn)) break;
        }
    }
    // The node name and the port name are the same eight bytes.
    std::memcpy(out, wwpn, 8);
    LogDebug(__FILE__, __LINE__, "GenerateVPortWWN: NPIV wwn ok");
    return VTAPI_SUCCESS;
}

}  // extern "C"

namespace {
// The table starts with every slot free.
[[maybe_unused]] const bool kTableFree = (std::fill(std::begin(g_VPortWWNs), std::end(g_VPortWWNs), -1), true);
}  // namespace
