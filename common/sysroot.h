// Mapping of absolute system paths under an optional alternate root.
#pragma once

#include <string>
#include <string_view>

namespace vt {

// Returns `path` prefixed with $VTAPI_SYSROOT when that variable is set and
// non-empty and `path` is absolute; otherwise `path` unchanged.  Every
// absolute system path the libraries open goes through this function, so
// tests can run against a private tree.
std::string MapSystemPath(std::string_view path);

}  // namespace vt
