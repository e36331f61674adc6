// Status values of the library's internal functions (the exported statuses
// are VTAPI_* in vtapi.h and TARN_STATUS_* in vtapi_cli.h).
#pragma once

#include <cstdint>

namespace vt {

inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kFailure = 0xFFFFFFFFu;           // general failure
inline constexpr uint32_t kRebuildRequested = 0xFFFFFFFEu;  // the device model must be rebuilt
inline constexpr int32_t kFailed = -1;                      // failure of a function returning int
inline constexpr uint32_t kCannotOpen = 0xFFFFFFFEu;        // a file that cannot be opened (ReadKeyValue)

// List functions (targets, LUNs, adapter nodes).
inline constexpr uint32_t kListNullArgument = 8;
inline constexpr int32_t kListNoSuchItem = -1;  // the item is missing, or already listed

inline constexpr uint32_t kNoMemory = 115;

}  // namespace vt
