// The NVRAM template reader (see nvram_template.h for the text form).  Pure:
// no logging, no files, so the fuzz target can run it on its own.
#include "config/nvram_template.h"

#include <algorithm>
#include <bit>
#include <charconv>

namespace vt::config {
namespace {

constexpr size_t kLineBuffer = 512;  // a line is read into this many bytes, NUL included
constexpr size_t kCommentLength = 10;

struct Special {
    const char *phrase;
    uint8_t flag;
};
constexpr Special kSpecials[] = {
    {"checksum", kTemplateChecksum},
    {"serial number", kTemplateSerialNumber},
    {"subsystem vendor ID", kTemplateSubsystemVendorId},
    {"subsystem device ID", kTemplateSubsystemDeviceId},
};

void SkipBlanks(std::string_view s, size_t &pos) {
    while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t')) ++pos;
}

bool Decimal(std::string_view s, size_t &pos, uint64_t &value) {
    const char *begin = s.data() + pos, *end = s.data() + s.size();
    auto [ptr, ec] = std::from_chars(begin, end, value);
    if (ec != std::errc() || ptr == begin) return false;
    pos += static_cast<size_t>(ptr - begin);
    return true;
}

// The next line as a 512-byte line buffer gets it: up to and including the
// line end, at most 511 characters.
std::string_view NextLine(std::string_view text, size_t &pos) {
    const size_t room = kLineBuffer - 1;
    size_t end = text.find('\n', pos);
    end = end == std::string_view::npos ? text.size() : end + 1;
    end = std::min(end, pos + room);
    std::string_view line = text.substr(pos, end - pos);
    pos = end;
    return line;
}

}  // namespace

uint32_t TemplateBits(const std::vector<uint8_t> &image, size_t bitOffset, size_t width) {
    uint32_t v = 0;
    for (size_t i = 0; i < width && i < 32; ++i, ++bitOffset)
        if (bitOffset / 8 < image.size() && ((image[bitOffset / 8] >> (bitOffset % 8)) & 1u)) v |= 1u << i;
    return v;
}

void SetTemplateBits(std::vector<uint8_t> &image, size_t bitOffset, size_t width, uint32_t value) {
    for (size_t i = 0; i < width; ++i, ++bitOffset) {
        if (bitOffset / 8 >= image.size()) return;
        const auto bit = static_cast<uint8_t>(1u << (bitOffset % 8));
        if (i < 32 && ((value >> i) & 1u)) image[bitOffset / 8] |= bit;
        else image[bitOffset / 8] &= static_cast<uint8_t>(~bit);
    }
}

uint32_t ParseNvramTemplate(std::string_view text, size_t size, NvramTemplate &out, std::string &error) {
    out = NvramTemplate{};
    out.image.assign(size, 0);
    size_t bit = 0;
    uint32_t lineNo = 0;
    bool lineEnded = true;  // the previous piece ended its line
    auto fail = [&](uint32_t result, const char *why) {
        error = "line " + std::to_string(lineNo) + ": " + why;
        return result;
    };

    for (size_t pos = 0; pos < text.size();) {
        std::string_view line = NextLine(text, pos);
        if (lineEnded) ++lineNo;
        lineEnded = !line.empty() && line.back() == '\n';
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
        size_t lead = 0;
        SkipBlanks(line, lead);
        line.remove_prefix(lead);
        if (line.empty() || line.front() == ';' || line.size() <= kCommentLength) continue;

        TemplateField field;
        field.line = lineNo;
        for (const Special &s : kSpecials)
            if (line.find(s.phrase) != std::string_view::npos) field.flags |= s.flag;

        size_t p = line.find('[');
        if (p == std::string_view::npos) return fail(kTemplateUnknownLine, "no '[' before the data");
        ++p;
        SkipBlanks(line, p);
        if (p < line.size() && line[p] == '"') {
            // ["<length>" = "<text>"]
            const size_t q2 = line.find('"', p + 1);
            const size_t q3 = q2 == std::string_view::npos ? q2 : line.find('"', q2 + 1);
            const size_t q4 = q3 == std::string_view::npos ? q3 : line.find('"', q3 + 1);
            if (q4 == std::string_view::npos) return fail(kTemplateUnknownLine, "a string needs four quotes");
            size_t lp = p + 1;
            uint64_t length = 0;
            if (!Decimal(line, lp, length) || lp != q2) return fail(kTemplateUnknownLine, "bad string length");
            const std::string_view str = line.substr(q3 + 1, q4 - q3 - 1);
            if (str.size() != length) return fail(kTemplateUnknownLine, "the string is not of its stated length");
            const size_t used = std::min(str.size(), kTemplateMaxString);
            bit = (bit + 7) / 8 * 8;
            if (bit / 8 + used > size) return fail(kTemplateCorrupted, "data runs past the end of the image");
            std::copy_n(str.begin(), used, out.image.begin() + static_cast<std::ptrdiff_t>(bit / 8));
            field.isString = true;
            field.text.assign(str.substr(0, used));
            field.bitOffset = bit;
            field.bitWidth = used * 8;
            bit += used * 8;
        } else {
            // [<low>-<high>] = <value>
            uint64_t low = 0, high = 0, value = 0;
            if (!Decimal(line, p, low)) return fail(kTemplateUnknownLine, "bad range");
            SkipBlanks(line, p);
            if (p >= line.size() || line[p] != '-') return fail(kTemplateUnknownLine, "bad range");
            ++p;
            SkipBlanks(line, p);
            if (!Decimal(line, p, high) || high > 0xFFFFFFFFu || low > high)
                return fail(kTemplateUnknownLine, "bad range");
            p = line.find('=', p);
            if (p == std::string_view::npos) return fail(kTemplateUnknownLine, "no '=' before the value");
            ++p;
            SkipBlanks(line, p);
            if (!Decimal(line, p, value)) return fail(kTemplateUnknownLine, "bad value");
            if (value < low || value > high) return fail(kTemplateUnknownLine, "value outside its range");
            const size_t width = std::max<size_t>(1, static_cast<size_t>(std::bit_width(high)));
            if (bit + width > size * 8) return fail(kTemplateCorrupted, "data runs past the end of the image");
            SetTemplateBits(out.image, bit, width, static_cast<uint32_t>(value));
            field.value = static_cast<uint32_t>(value);
            field.bitOffset = bit;
            field.bitWidth = width;
            bit += width;
        }
        if (field.flags) out.special.push_back(std::move(field));
    }
    out.bitsUsed = bit;
    error.clear();
    return kTemplateOk;
}

}  // namespace vt::config
