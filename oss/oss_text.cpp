#include "oss/oss_text.h"

#include <cstdio>

namespace vt::oss {

std::string FormatV(const char *format, va_list args) {
    if (format == nullptr) return {};
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n <= 0) return {};
    std::string text(static_cast<size_t>(n), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

std::string Format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = FormatV(format, args);
    va_end(args);
    return text;
}

}  // namespace vt::oss
