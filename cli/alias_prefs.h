// Writing one property into a property file's new content, for the alias
// files: the property editor of the preference files does the edit.
#pragma once

#include <string_view>

#pragma GCC visibility push(hidden)

namespace vt::cli {

// Writes `old` with key=value set into `fd`, an empty file open for reading
// and writing, and cuts the file to the result.  A property appended after a
// last line without a line end goes on a line of its own.  0 or an errno
// value (EILSEQ for a file holding a NUL byte, which is not text).
int WritePropertyFile(int fd, std::string_view old, const char *key, const char *value);

}  // namespace vt::cli

#pragma GCC visibility pop
