#include "sysroot.h"

#include <cstdlib>

namespace vt {

std::string MapSystemPath(std::string_view path) {
    const char *root = std::getenv("VTAPI_SYSROOT");
    if (root == nullptr || *root == '\0' || path.empty() || path.front() != '/') return std::string(path);
    std::string mapped(root);
    while (mapped.size() > 1 && mapped.back() == '/') mapped.pop_back();
    if (mapped == "/") return std::string(path);
    mapped.append(path);
    return mapped;
}

}  // namespace vt
