// Feeds arbitrary text as a module option file.  Replacing the driver's
// option line must leave every other line byte for byte and make the new
// line the one found; setting and removing a parameter of the line must be
// read back.
#include <cstdint>
#include <string>
#include <string_view>

#include "../drvfiles/drvtext.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

constexpr std::string_view kModule = "vtfc";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 20) return 0;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const auto lines = vt::drv::SplitLines(text);
    std::string joined;
    for (auto l : lines) joined += l;
    Check(joined == text);

    const auto at = vt::drv::FindOptionLine(lines, kModule);
    const std::string current = at ? std::string(vt::drv::LineBody(lines[*at])) : std::string();
    const std::string wanted = vt::drv::SetOptionParams(current, kModule, "ConfigRequired=1 fz=v1");
    Check(vt::drv::GetOptionParam(wanted, kModule, "fz") == std::string("v1"));
    Check(vt::drv::GetOptionParam(wanted, kModule, "ConfigRequired") == std::string("1"));
    const std::string removed = vt::drv::SetOptionParam(wanted, kModule, "fz", nullptr);
    Check(!vt::drv::GetOptionParam(removed, kModule, "fz").has_value());

    const std::string out = vt::drv::ReplaceOptionLine(text, kModule, wanted);
    const auto outLines = vt::drv::SplitLines(out);
    const auto found = vt::drv::FindOptionLine(outLines, kModule);
    Check(found.has_value());
    Check(vt::drv::LineBody(outLines[*found]) == wanted);
    if (at) {
        Check(*found == *at && outLines.size() == lines.size());
        for (size_t i = 0; i < lines.size(); ++i)
            if (i != *at) Check(outLines[i] == lines[i]);
    } else {
        Check(*found + 1 == outLines.size());
        for (size_t i = 0; i + 1 < lines.size(); ++i) Check(outLines[i] == lines[i]);
        if (!lines.empty()) Check(vt::drv::LineBody(outLines[lines.size() - 1]) == vt::drv::LineBody(lines.back()));
    }
    return 0;
}
