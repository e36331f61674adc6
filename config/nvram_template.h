// The NVRAM template reader: one setting a line, packed into an image.  The
// library reads shipped templates and the files users hand in with it alike.
//
// The text form, a line at a time (lines are read 511 characters at most, as
// a 512-byte line buffer would; the rest of a longer line reads as the next):
//  - leading blanks and tabs are dropped;
//  - a line beginning with ';' or of at most 10 characters is a comment;
//  - a line containing "checksum", "serial number", "subsystem vendor ID" or
//    "subsystem device ID" is that special field;
//  - the data begins after the first '['.  `["<length>" = "<text>"]` is a
//    string of exactly that length (at most 80 bytes are used), laid from the
//    next whole byte; `[<low>-<high>] = <value>` is a number as many bits
//    wide as <high> needs, packed least significant bit first right after
//    the previous field, so narrow fields share bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vt::config {

// Flags of the special lines.
inline constexpr uint8_t kTemplateSerialNumber = 16;
inline constexpr uint8_t kTemplateChecksum = 32;
inline constexpr uint8_t kTemplateSubsystemVendorId = 64;
inline constexpr uint8_t kTemplateSubsystemDeviceId = 128;

// Results of the reader.
inline constexpr uint32_t kTemplateOk = 0;
inline constexpr uint32_t kTemplateCorrupted = 13;    // data runs past the image
inline constexpr uint32_t kTemplateUnknownLine = 15;  // a line whose type cannot be told
inline constexpr size_t kTemplateMaxString = 80;

struct TemplateField {
    uint8_t flags = 0;     // kTemplate* bits of a special line
    uint32_t line = 0;     // 1-based line number
    size_t bitOffset = 0;  // where the field lies in the image
    size_t bitWidth = 0;   // bits; 8 per byte for a string
    bool isString = false;
    uint32_t value = 0;  // a numeric field's value
    std::string text;    // a string field's bytes (at most 80)
};

struct NvramTemplate {
    std::vector<uint8_t> image;          // all lines packed, special ones included
    std::vector<TemplateField> special;  // the special lines, in file order
    size_t bitsUsed = 0;
};

// Reads `text` into an image of `size` bytes (zero where no line reaches).
// kTemplateOk, kTemplateUnknownLine or kTemplateCorrupted; `error` then says
// which line and why.
uint32_t ParseNvramTemplate(std::string_view text, size_t size, NvramTemplate &out, std::string &error);

// Bit access in the packing order of templates (least significant bit first).
uint32_t TemplateBits(const std::vector<uint8_t> &image, size_t bitOffset, size_t width);
void SetTemplateBits(std::vector<uint8_t> &image, size_t bitOffset, size_t width, uint32_t value);

}  // namespace vt::config
