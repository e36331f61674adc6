// printf into a std::string, for the code that builds text with printf
// formats (log lines, XML elements, messages).
#pragma once

#include <cstdarg>
#include <string>

namespace vt::oss {

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string FormatV(const char *format, va_list args) __attribute__((format(printf, 1, 0)));

}  // namespace vt::oss
