// The frames of the exported calls.  Each writes a profiler enter line with
// the call's own name, calls its FC_ function (through the dynamic symbol
// table, so a replaced FC_ function is the one called), logs the status and
// writes the profiler exit line.  They take no lock and check nothing beyond
// what is written here: the FC_ function checks its arguments.  Keep them
// this small: the frame's cost is its log lines.
#pragma once

#include <unistd.h>

#include <new>

#include "fc/fc.h"
#include "oss/oss.h"

namespace vt::frame {

// Status of an exported call that ran out of memory.
constexpr uint32_t kNoMemory = 115;

// Runs the work of an exported call: no C++ exception leaves the library.
// An allocation failure becomes kNoMemory, anything else `failure`.
template <class Work>
uint32_t Guarded(Work &&work, uint32_t failure = VTAPI_GENERAL_FAILURE) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc &) {
        return kNoMemory;
    } catch (...) {
        return failure;
    }
}

}  // namespace vt::frame

#define VTAPI_RETURN_FRAMED(name, status)                                                  \
    LogDebug(__FILE__, __LINE__, #name "(): returning with %d", static_cast<int>(status)); \
    ProfilerExitFunction(#name);                                                           \
    return status

// Query frame: the FC_ function with the same arguments.
#define VTAPI_FRAME(name, fc, ...)                                                    \
    ProfilerEnterFunction(#name);                                                     \
    const uint32_t frameStatus = vt::frame::Guarded([&] { return fc(__VA_ARGS__); }); \
    VTAPI_RETURN_FRAMED(name, frameStatus)

// Query frame with a line before and after the call.
#define VTAPI_FRAME_LOGGED(name, fc, ...)                                             \
    ProfilerEnterFunction(#name);                                                     \
    LogDebug(__FILE__, __LINE__, #name "(): Before calling " #fc "()");               \
    const uint32_t frameStatus = vt::frame::Guarded([&] { return fc(__VA_ARGS__); }); \
    LogDebug(__FILE__, __LINE__, #name "(): After calling " #fc "()");                \
    VTAPI_RETURN_FRAMED(name, frameStatus)

// File-update frame: a named input file that does not exist gives
// VTAPI_FILE_NOT_FOUND and the FC_ function is not called; a null name is an
// invalid argument.
#define VTAPI_FILE_CALL(file, call) \
    ((file) == nullptr ? VTAPI_INVALID_ARGUMENT : access((file), F_OK) != 0 ? VTAPI_FILE_NOT_FOUND : (call))

#define VTAPI_FILE_FRAME(name, file, fc, ...)                                                                \
    ProfilerEnterFunction(#name);                                                                            \
    const uint32_t frameStatus = vt::frame::Guarded([&] { return VTAPI_FILE_CALL(file, fc(__VA_ARGS__)); }); \
    VTAPI_RETURN_FRAMED(name, frameStatus)
