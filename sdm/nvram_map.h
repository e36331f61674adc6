// NVRAM variable map: where each numeric NVRAM variable lives in the
// 256-byte (older chips) and the 512-byte NVRAM image, the image checksum,
// and the NVRAM template text form of an image.
//
// Each image layout is one ordered list of fields; offsets are computed from
// that list with the same packing rule the template text uses, so the map
// and a template written from it always agree:
//  - fields are laid one after the other from byte 0, least significant bit
//    first;
//  - a field is as many bits wide as its highest value needs; a field of
//    more than 8 bits is rounded up to whole bytes (16, 24 or 32 bits) and
//    stored little-endian;
//  - a field narrower than a byte shares its byte with the following
//    narrow fields;
//  - a field of 8 bits or more, and every string field, starts on a byte
//    boundary: when the previous field left a byte partly used, the rest of
//    that byte is skipped.  The built-in layouts never rely on this skip: the
//    builder inserts an explicit reserved bit field instead, so every bit of
//    the image belongs to exactly one field and a written template keeps it.
// Unused space is covered by reserved fields (id -1).  The 256-byte image
// ends with an 8-bit checksum at byte 255, the 512-byte one with a 32-bit
// checksum at byte 508.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vtsdm::nvram {

// Special fields, as marked in a template.
constexpr uint8_t kFlagSerialNumber = 16;
constexpr uint8_t kFlagChecksum = 32;
constexpr uint8_t kFlagSubsystemVendorId = 64;
constexpr uint8_t kFlagSubsystemDeviceId = 128;

struct Field {
    int id;                 // variable identifier; -1 for a field without one
    const char *name;       // e.g. "Frame Size", "Port Name byte 0"
    uint32_t maxValue;      // highest value the field holds (decides its width)
    uint32_t defaultValue;  // value in a fresh image
    uint8_t flags;          // kFlag* of a special field, else 0
    uint8_t stringLength;   // bytes of a string field, else 0
    uint16_t byteOffset;
    uint8_t bitOffset;  // 0-7, least significant bit first
    uint8_t bitWidth;   // 0 for string fields
};

// Variable identifiers.
constexpr uint32_t kEnableHardLoopId = 3;
constexpr uint32_t kDescendingLoopIdSearch = 4;  // 2 Gb chips: search loop IDs downwards
constexpr uint32_t kEnable64BitAddressing = 6;
constexpr uint32_t kExtendedFirmwareOptions = 13;
constexpr uint32_t kEnableNodeName = 17;
constexpr uint32_t kEfiBootEnable = 18;
constexpr uint32_t kFrameSize = 19;
constexpr uint32_t kExecutionThrottle = 21;
constexpr uint32_t kLoginRetryCount = 22;
constexpr uint32_t kPortNameByte0 = 24;  // 24-31, most significant byte first
constexpr uint32_t kHardLoopId = 32;
constexpr uint32_t kNodeNameByte0 = 35;  // 35-42
constexpr uint32_t kOperationMode = 43;
constexpr uint32_t kConnectionOption = 44;
constexpr uint32_t kEnableFcTape = 48;
constexpr uint32_t kEnableFcConfirm = 49;
constexpr uint32_t kInterruptDelayTimer = 53;
constexpr uint32_t kReceiveOutOfOrderFrame = 56;
constexpr uint32_t kDataRate = 57;
constexpr uint32_t kDisableBios = 58;
constexpr uint32_t kBiosBootSetting = 59;
constexpr uint32_t kEnableSelectableBoot = 60;
constexpr uint32_t kBootOptions = 63;
constexpr uint32_t kEnableExtendedLogging = 64;
constexpr uint32_t kEnableFastCommandPosting = 65;
constexpr uint32_t kEnableLipReset = 66;
constexpr uint32_t kEnableLipFullLogin = 67;
constexpr uint32_t kEnableTargetReset = 68;
constexpr uint32_t kBootPortNameByte0 = 72;  // drive 0: 72-79, LUN 80
constexpr uint32_t kBootLun = 80;
constexpr uint32_t kLoopResetDelay = 81;
constexpr uint32_t kPortDownRetryCount = 82;
constexpr uint32_t kMaxLunsPerTarget = 83;
constexpr uint32_t kBootNodeNameByte0 = 84;  // 84-91
constexpr uint32_t kSelectiveLogin = 92;
constexpr uint32_t kEnableAlternateBoot = 93;
constexpr uint32_t kEnableBootOrderList = 94;
constexpr uint32_t kSelectiveLun = 95;
constexpr uint32_t kForceWorldLogin = 96;
constexpr uint32_t kLinkDownTimeout = 97;
constexpr uint32_t kVendorId = 125;
constexpr uint32_t kDeviceId = 126;
constexpr uint32_t kSubsystemVendorId = 127;
constexpr uint32_t kSubsystemDeviceId = 128;
constexpr uint32_t kFabricAssignWwn = 130;
constexpr uint32_t kFabricAssignBootLun = 131;
constexpr uint32_t kEnableDPort = 132;
constexpr uint32_t kEnableLr = 133;
constexpr uint32_t kDistanceSupport = 134;
constexpr uint32_t kMinimumSpeed = 135;
constexpr uint32_t kPreferFcp = 136;
constexpr uint32_t kDisableScm = 137;
constexpr uint32_t kNvmeEnable = 148;
constexpr uint32_t kPortDisable = 185;
constexpr uint32_t kFabricPriority = 186;
constexpr uint32_t kVirtualLane = 187;

// FCP boot drives 0-7: first identifier of the 8 target port-name bytes
// (most significant byte first) and the identifier of the 16-bit LUN.
struct BootEntryIds {
    uint32_t portNameByte0;
    uint32_t lun;
};
constexpr BootEntryIds kBootEntries[8] = {
    {72, 80}, {98, 106}, {107, 115}, {116, 124}, {149, 157}, {158, 166}, {167, 175}, {176, 184},
};

// Fields of a 256- or 512-byte image in packing order; empty for other sizes.
const std::vector<Field> &Layout(size_t imageSize);
// Field of a variable identifier, or nullptr.
const Field *FindField(size_t imageSize, uint32_t id);
// First field carrying one of the kFlag* bits, or nullptr.
const Field *FindSpecialField(size_t imageSize, uint8_t flag);

// Numeric access by identifier; false for an unknown identifier, a string
// field, an image size without a layout, or (SetValue) a value above the
// field's maxValue.  SetValue leaves the checksum alone.
bool GetValue(const uint8_t *image, size_t size, uint32_t id, uint32_t &value);
bool SetValue(uint8_t *image, size_t size, uint32_t id, uint32_t value);

// Computes and stores the image checksum.  Fewer than 256 bytes: returns
// 0x20000072 and writes nothing.  256 bytes: byte 255 becomes the two's
// complement of the sum of bytes 0-254.  512 bytes: the little-endian word
// at byte 508 becomes the two's complement of the sum of words 0-126.  Other
// sizes and a null image: nothing written, result 0.  The result is the
// stored value widened to 32 bits as the negated sum (a 256-byte byte sum of
// 0x10 stores 0xF0 and returns 0xFFFFFFF0).
uint32_t ComputeChecksum(uint8_t *image, size_t size);
// True when a 256-byte image's bytes, or a 512-byte image's words, sum to 0.
bool IsValid(const uint8_t *image, size_t size);

// Global NVRAM: a 512-byte image in a flash region of each port ("VGNV",
// version 1, the port's WWPN at byte 8, the rest settings), whose 128
// little-endian words sum to 0 like a 512-byte NVRAM image's.
constexpr size_t kGlobalNvramSize = 512;
constexpr size_t kGlobalNvramWwpnOffset = 8;
std::vector<uint8_t> GlobalNvramImage(const uint8_t wwpn[8]);

// Active-region record of chips after type 26 (a small flash region): "VACT",
// then at byte 4 bit 0 set when region 334 holds the active FC-NVMe boot
// parameters, clear when region 377 does.
constexpr uint32_t kRegionActiveRecord = 0x8F;
constexpr size_t kActiveRecordSize = 16;
std::vector<uint8_t> ActiveRecord(bool nvmeBootIn334);

struct Identity {
    uint8_t wwnn[8];
    uint8_t wwpn[8];
    uint16_t ssvid;
    uint16_t ssdid;
    std::string serial;  // truncated to the field, padded with blanks
};
// Fresh image: every field at its default, the identity filled in, valid
// checksum.  Empty for sizes without a layout.
std::vector<uint8_t> DefaultImage(size_t size, const Identity &id);

// Template text of an image, one line per field in packing order:
//   "<name> [0-<max>] = <value>"          numeric field
//   "<name> [\"<length>\" = \"<text>\"]"  string field
// A string that cannot be written as text (a quote, a control character,
// non-ASCII) is written as one numeric byte line per byte instead, which
// packs identically.  Lines of the special fields contain "checksum",
// "serial number", "subsystem vendor ID" or "subsystem device ID".
// Empty for sizes without a layout or a null image.
std::string WriteTemplate(size_t size, const uint8_t *image);

// Reads template text into a `size`-byte image (zero-filled first):
// leading blanks and tabs dropped; lines beginning with ';' or of at most
// 10 characters are comments; data begins after the first '['; a quoted
// line is a string of the declared length (at most 80 bytes are used);
// otherwise "[low-high] = value" packs a numeric field by the rule above.
// Special-field lines are read like any other.  False, with a message naming
// the line, for a line of unknown type, a bad range or value, or data that
// runs past the image.
bool ParseTemplate(const std::string &text, size_t size, std::vector<uint8_t> &image, std::string &error);

}  // namespace vtsdm::nvram
