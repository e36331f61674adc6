// libFuzzer target: the NVRAM template reader, on text of any shape.  The
// first byte picks the image size (256 or 512 bytes); what the reader
// accepts must lie inside the image, and a refusal must say why.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "../config/nvram_template.h"

namespace {

void Check(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const size_t imageSize = (data[0] & 1) ? 512 : 256;
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    vt::config::NvramTemplate t;
    std::string why;
    const uint32_t rc = vt::config::ParseNvramTemplate(text, imageSize, t, why);
    Check(t.image.size() == imageSize);
    if (rc != vt::config::kTemplateOk) {
        Check(rc == vt::config::kTemplateUnknownLine || rc == vt::config::kTemplateCorrupted);
        Check(why.rfind("line ", 0) == 0);
        return 0;
    }
    Check(t.bitsUsed <= imageSize * 8);
    for (const vt::config::TemplateField &f : t.special) {
        Check(f.flags != 0);
        Check(f.bitOffset + f.bitWidth <= t.bitsUsed);
        if (f.isString) {
            Check(f.text.size() * 8 == f.bitWidth);
        } else {
            Check(vt::config::TemplateBits(t.image, f.bitOffset, f.bitWidth) == f.value);
        }
    }
    return 0;
}
