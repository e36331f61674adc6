// NVRAM variable map, checksum and template text.  See nvram_map.h for the
// packing rule shared by the layouts and the template reader.
#include "nvram_map.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <deque>
#include <stdexcept>

namespace vtsdm::nvram {
namespace {

constexpr uint32_t kShortBufferStatus = 0x20000072u;
constexpr size_t kMaxTemplateString = 80;

// ------------------------------------------------------------ packing rule

// Bits a field of highest value `max` occupies: the bits the value needs, at
// least 1; above 8 bits rounded up to whole bytes.
unsigned WidthFor(uint32_t max) {
    unsigned bits = std::max(1u, static_cast<unsigned>(std::bit_width(max)));
    return bits > 8 ? (bits + 7) / 8 * 8 : bits;
}

uint32_t Mask(unsigned width) { return width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1; }

uint32_t ReadBits(const uint8_t *image, size_t bitPos, unsigned width) {
    uint32_t v = 0;
    for (unsigned i = 0; i < width; ++i, ++bitPos)
        if ((image[bitPos / 8] >> (bitPos % 8)) & 1u) v |= 1u << i;
    return v;
}

void WriteBits(uint8_t *image, size_t bitPos, unsigned width, uint32_t v) {
    for (unsigned i = 0; i < width; ++i, ++bitPos) {
        const uint8_t bit = static_cast<uint8_t>(1u << (bitPos % 8));
        if ((v >> i) & 1u) image[bitPos / 8] |= bit;
        else image[bitPos / 8] &= static_cast<uint8_t>(~bit);
    }
}

size_t BitPos(const Field &f) { return size_t{f.byteOffset} * 8 + f.bitOffset; }

// ------------------------------------------------------------ layout data

enum class Kind : uint8_t { Value, String, ReservedBits, ReservedBytes, Wwn, Boot, Checksum };

struct FieldDef {
    Kind kind;
    int id;
    const char *name;
    uint32_t max;
    uint32_t def;
    uint8_t flags;
    uint8_t count;  // string bytes, reserved bits/bytes, or boot drive
};

constexpr FieldDef Val(uint32_t id, const char *name, uint32_t max, uint32_t def = 0, uint8_t flags = 0) {
    return {Kind::Value, static_cast<int>(id), name, max, def, flags, 0};
}
constexpr FieldDef Bit(uint32_t id, const char *name, uint32_t def = 0) { return Val(id, name, 1, def); }
constexpr FieldDef Word16(const char *name, uint32_t def) { return {Kind::Value, -1, name, 0xFFFF, def, 0, 0}; }
constexpr FieldDef ResBits(uint8_t n) { return {Kind::ReservedBits, -1, "Reserved", 0, 0, 0, n}; }
constexpr FieldDef ResBytes(uint8_t n) { return {Kind::ReservedBytes, -1, "Reserved", 0, 0, 0, n}; }
constexpr FieldDef Str(const char *name, uint8_t len, uint8_t flags) {
    return {Kind::String, -1, name, 0, 0, flags, len};
}
// Eight byte fields "<name> byte 0".."byte 7", most significant byte first.
constexpr FieldDef Wwn(uint32_t id0, const char *name) {
    return {Kind::Wwn, static_cast<int>(id0), name, 0xFF, 0, 0, 8};
}
// Boot drive n: target port name bytes and 16-bit LUN.
constexpr FieldDef Boot(uint8_t drive) { return {Kind::Boot, -1, "Boot Drive", 0, 0, 0, drive}; }
constexpr FieldDef Checksum(uint32_t max) { return {Kind::Checksum, -1, "NVRAM checksum", max, 0, kFlagChecksum, 0}; }

// PCI identity and serial number, the same in both generations.
#define VT_NVRAM_IDENTITY                                                                      \
    Val(kVendorId, "PCI Vendor ID", 0xFFFF), Val(kDeviceId, "PCI Device ID", 0xFFFF),          \
        Val(kSubsystemVendorId, "PCI subsystem vendor ID", 0xFFFF, 0, kFlagSubsystemVendorId), \
        Val(kSubsystemDeviceId, "PCI subsystem device ID", 0xFFFF, 0, kFlagSubsystemDeviceId), \
        Str("Adapter serial number", 16, kFlagSerialNumber)

// clang-format off
const FieldDef kLayout512[] = {
    Word16("Parameter Block Version", 2),
    ResBytes(2),
    Val(kFrameSize, "Frame Size", 0xFFFF, 2048),
    Val(kExecutionThrottle, "Execution Throttle", 0xFFFF, 65535),
    Val(kLoginRetryCount, "Login Retry Count", 0xFF, 8),
    Val(kInterruptDelayTimer, "Interrupt Delay Timer", 0xFF, 0),
    Val(kHardLoopId, "Hard Loop ID", 0xFF, 0),
    Val(kLoopResetDelay, "Loop Reset Delay", 0xFF, 5),
    Wwn(kPortNameByte0, "Port Name"),
    Wwn(kNodeNameByte0, "Node Name"),
    Val(kPortDownRetryCount, "Port Down Retry Count", 0xFF, 30),
    ResBytes(1),
    Val(kLinkDownTimeout, "Link Down Timeout", 0xFFFF, 30),
    Val(kMaxLunsPerTarget, "Maximum LUNs per Target", 0xFFFF, 128),
    Val(kExtendedFirmwareOptions, "Extended Firmware Options", 0xFFFF, 0),
    Bit(kEnableHardLoopId, "Enable Hard Loop ID"),
    Bit(kEnable64BitAddressing, "Enable 64-bit Addressing", 1),
    Bit(kEnableNodeName, "Enable Node Name", 1),
    Bit(kEfiBootEnable, "EFI Boot Enable"),
    Bit(kEnableFcTape, "Enable FC Tape", 1),
    Bit(kEnableFcConfirm, "Enable FC Confirm", 1),
    Bit(kReceiveOutOfOrderFrame, "Enable Receive Out Of Order Frame"),
    Bit(kEnableExtendedLogging, "Enable Extended Logging"),
    Bit(kEnableFastCommandPosting, "Enable Fast Command Posting", 1),
    Bit(kEnableLipReset, "Enable LIP Reset"),
    Bit(kEnableLipFullLogin, "Enable LIP Full Login", 1),
    Bit(kEnableTargetReset, "Enable Target Reset", 1),
    Bit(kEnableLr, "Enable LR"),
    Bit(kDistanceSupport, "Enable Distance Support"),
    Bit(kMinimumSpeed, "Enable Minimum Speed"),
    Bit(kPreferFcp, "Prefer FCP"),
    Bit(kDisableScm, "Disable SCM"),
    Bit(kNvmeEnable, "FC-NVMe Enable"),
    Bit(kPortDisable, "Port Disable"),
    Bit(kFabricPriority, "Fabric Priority"),
    Bit(kVirtualLane, "Virtual Lane"),
    Bit(kFabricAssignWwn, "Enable Fabric Assigned WWN"),
    Bit(kFabricAssignBootLun, "Enable Fabric Assigned Boot LUN"),
    Bit(kEnableDPort, "Enable D-Port"),
    Val(kConnectionOption, "Connection Option", 7, 2),
    Val(kDataRate, "Data Rate", 7, 2),
    ResBits(2),
    Val(kOperationMode, "Operation Mode", 15, 0),
    Bit(kForceWorldLogin, "Force World Login"),
    Bit(kDescendingLoopIdSearch, "Descending Loop ID Search"),
    ResBits(2),
    Bit(kDisableBios, "Disable BIOS", 1),
    Bit(kBiosBootSetting, "BIOS Boot Setting"),
    Bit(kEnableSelectableBoot, "Enable Selectable Boot"),
    Bit(kBootOptions, "Boot Options"),
    Bit(kSelectiveLogin, "Selective Login"),
    Bit(kEnableAlternateBoot, "Enable Alternate Boot Device"),
    Bit(kEnableBootOrderList, "Enable Boot Order List"),
    Bit(kSelectiveLun, "Selective LUN Login"),
    ResBytes(2),
    VT_NVRAM_IDENTITY,
    Boot(0),
    Wwn(kBootNodeNameByte0, "Boot Drive 0 Node Name"),
    Boot(1), Boot(2), Boot(3), Boot(4), Boot(5), Boot(6), Boot(7),
    Checksum(0xFFFFFFFF),
};
// clang-format on

// Older chips: no receive-out-of-order, distance, FCP preference, SCM or
// drives 4-7; a smaller default execution throttle.
// clang-format off
const FieldDef kLayout256[] = {
    {Kind::Value, -1, "Parameter Block Version", 0xFF, 1, 0, 0},
    ResBytes(1),
    Val(kFrameSize, "Frame Size", 0xFFFF, 2048),
    Val(kExecutionThrottle, "Execution Throttle", 0xFFFF, 16),
    Val(kLoginRetryCount, "Login Retry Count", 0xFF, 8),
    Val(kInterruptDelayTimer, "Interrupt Delay Timer", 0xFF, 0),
    Val(kHardLoopId, "Hard Loop ID", 0xFF, 0),
    Val(kLoopResetDelay, "Loop Reset Delay", 0xFF, 5),
    Val(kPortDownRetryCount, "Port Down Retry Count", 0xFF, 30),
    ResBytes(1),
    Wwn(kPortNameByte0, "Port Name"),
    Wwn(kNodeNameByte0, "Node Name"),
    Val(kLinkDownTimeout, "Link Down Timeout", 0xFFFF, 30),
    Val(kMaxLunsPerTarget, "Maximum LUNs per Target", 0xFFFF, 128),
    Val(kExtendedFirmwareOptions, "Extended Firmware Options", 0xFFFF, 0),
    Bit(kEnableHardLoopId, "Enable Hard Loop ID"),
    Bit(kEnable64BitAddressing, "Enable 64-bit Addressing", 1),
    Bit(kEnableNodeName, "Enable Node Name", 1),
    Bit(kEfiBootEnable, "EFI Boot Enable"),
    Bit(kEnableFcTape, "Enable FC Tape"),
    Bit(kEnableFcConfirm, "Enable FC Confirm"),
    Bit(kEnableExtendedLogging, "Enable Extended Logging"),
    Bit(kEnableFastCommandPosting, "Enable Fast Command Posting", 1),
    Bit(kEnableLipReset, "Enable LIP Reset"),
    Bit(kEnableLipFullLogin, "Enable LIP Full Login", 1),
    Bit(kEnableTargetReset, "Enable Target Reset", 1),
    Bit(kEnableLr, "Enable LR"),
    Bit(kMinimumSpeed, "Enable Minimum Speed"),
    Bit(kNvmeEnable, "FC-NVMe Enable"),
    Bit(kPortDisable, "Port Disable"),
    Bit(kFabricPriority, "Fabric Priority"),
    Bit(kVirtualLane, "Virtual Lane"),
    Bit(kFabricAssignWwn, "Enable Fabric Assigned WWN"),
    Bit(kFabricAssignBootLun, "Enable Fabric Assigned Boot LUN"),
    Bit(kEnableDPort, "Enable D-Port"),
    ResBits(4),
    Val(kConnectionOption, "Connection Option", 7, 2),
    Val(kDataRate, "Data Rate", 7, 2),
    ResBits(2),
    Val(kOperationMode, "Operation Mode", 15, 0),
    Bit(kForceWorldLogin, "Force World Login"),
    Bit(kDescendingLoopIdSearch, "Descending Loop ID Search"),
    ResBits(2),
    Bit(kDisableBios, "Disable BIOS", 1),
    Bit(kBiosBootSetting, "BIOS Boot Setting"),
    Bit(kEnableSelectableBoot, "Enable Selectable Boot"),
    Bit(kBootOptions, "Boot Options"),
    Bit(kSelectiveLogin, "Selective Login"),
    Bit(kEnableAlternateBoot, "Enable Alternate Boot Device"),
    Bit(kEnableBootOrderList, "Enable Boot Order List"),
    Bit(kSelectiveLun, "Selective LUN Login"),
    ResBytes(1),
    VT_NVRAM_IDENTITY,
    Boot(0),
    Wwn(kBootNodeNameByte0, "Boot Drive 0 Node Name"),
    Boot(1), Boot(2), Boot(3),
    Checksum(0xFF),
};
// clang-format on

#undef VT_NVRAM_IDENTITY

// A built layout: the fields with their computed offsets, the generated
// names they point to, and an index by identifier.
struct Map {
    size_t size = 0;
    std::deque<std::string> names;  // stable storage for generated names
    std::vector<Field> fields;
    std::vector<int> byId;  // identifier -> index in fields, -1 when absent
    size_t bitPos = 0;

    const char *Name(std::string s) { return names.emplace_back(std::move(s)).c_str(); }

    void Pad() {
        if (bitPos % 8) Push(-1, "Reserved", Mask(8 - bitPos % 8), 0, 0, 0);
    }

    void Push(int id, const char *name, uint32_t max, uint32_t def, uint8_t flags, uint8_t strLen) {
        unsigned width = strLen ? 0 : WidthFor(max);
        if (strLen || width >= 8) Pad();
        if (!strLen && max != Mask(width))
            throw std::logic_error(std::string("NVRAM field range is not a full bit width: ") + name);
        Field f{id,
                name,
                max,
                def,
                flags,
                strLen,
                static_cast<uint16_t>(bitPos / 8),
                static_cast<uint8_t>(bitPos % 8),
                static_cast<uint8_t>(width)};
        bitPos += strLen ? size_t{strLen} * 8 : width;
        if (bitPos > size * 8) throw std::logic_error(std::string("NVRAM layout overflows at ") + name);
        if (id >= 0) {
            if (static_cast<size_t>(id) >= byId.size()) byId.resize(id + 1, -1);
            if (byId[id] >= 0) throw std::logic_error(std::string("duplicate NVRAM identifier at ") + name);
            byId[id] = static_cast<int>(fields.size());
        }
        fields.push_back(f);
    }

    void ReservedBytes(size_t n) {
        Pad();
        for (; n >= 4; n -= 4) Push(-1, "Reserved", 0xFFFFFFFF, 0, 0, 0);
        for (; n > 0; --n) Push(-1, "Reserved", 0xFF, 0, 0, 0);
    }

    void Add(const FieldDef &s) {
        switch (s.kind) {
        case Kind::Value: Push(s.id, s.name, s.max, s.def, s.flags, 0); break;
        case Kind::String: Push(-1, s.name, 0, 0, s.flags, s.count); break;
        case Kind::ReservedBits: Push(-1, "Reserved", Mask(s.count), 0, 0, 0); break;
        case Kind::ReservedBytes: ReservedBytes(s.count); break;
        case Kind::Wwn:
            for (int i = 0; i < 8; ++i)
                Push(s.id + i, Name(std::string(s.name) + " byte " + std::to_string(i)), 0xFF, 0, 0, 0);
            break;
        case Kind::Boot: {
            const BootEntryIds &e = kBootEntries[s.count];
            const std::string drive = "Boot Drive " + std::to_string(s.count);
            for (uint32_t i = 0; i < 8; ++i)
                Push(static_cast<int>(e.portNameByte0 + i), Name(drive + " Port Name byte " + std::to_string(i)), 0xFF,
                     0, 0, 0);
            Push(static_cast<int>(e.lun), Name(drive + " LUN"), 0xFFFF, 0, 0, 0);
            break;
        }
        case Kind::Checksum: {
            Pad();
            const size_t bytes = WidthFor(s.max) / 8;
            if (bitPos / 8 + bytes > size) throw std::logic_error("NVRAM layout leaves no room for the checksum");
            ReservedBytes(size - bytes - bitPos / 8);
            Push(-1, s.name, s.max, 0, s.flags, 0);
            break;
        }
        }
    }

    template <size_t N>
    Map(size_t imageSize, const FieldDef (&fields)[N]) : size(imageSize) {
        for (const FieldDef &s : fields) Add(s);
        if (bitPos != size * 8) throw std::logic_error("NVRAM layout does not cover the image");
    }
};

const Map *GetMap(size_t size) {
    static const Map m256(256, kLayout256);
    static const Map m512(512, kLayout512);
    if (size == 256) return &m256;
    if (size == 512) return &m512;
    return nullptr;
}

const Field *NumericField(size_t size, uint32_t id) {
    const Field *f = FindField(size, id);
    return f && f->stringLength == 0 ? f : nullptr;
}

uint32_t LoadWord(const uint8_t *p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

uint32_t WordSum(const uint8_t *image, size_t words) {
    uint32_t sum = 0;
    for (size_t i = 0; i < words; ++i) sum += LoadWord(image + 4 * i);
    return sum;
}

uint8_t ByteSum(const uint8_t *image, size_t n) {
    uint8_t sum = 0;
    for (size_t i = 0; i < n; ++i) sum = static_cast<uint8_t>(sum + image[i]);
    return sum;
}

// ------------------------------------------------------------ template text

bool Writable(const uint8_t *p, size_t n) {
    if (n > kMaxTemplateString) return false;
    return std::all_of(p, p + n, [](uint8_t c) { return c >= 0x20 && c < 0x7F && c != '"'; });
}

void NumericLine(std::string &out, const std::string &name, uint32_t max, uint32_t value) {
    out += name + " [0-" + std::to_string(max) + "] = " + std::to_string(value) + "\n";
}

// Parses decimal digits at text[pos]; advances pos past them.
bool Number(const std::string &text, size_t &pos, uint64_t &value) {
    const char *begin = text.data() + pos, *end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(begin, end, value);
    if (ec != std::errc() || ptr == begin) return false;
    pos += static_cast<size_t>(ptr - begin);
    return true;
}

void SkipBlanks(const std::string &s, size_t &pos) {
    while (pos < s.size() && (s[pos] == ' ' || s[pos] == '\t')) ++pos;
}

}  // namespace

// ------------------------------------------------------------ public

const std::vector<Field> &Layout(size_t imageSize) {
    static const std::vector<Field> empty;
    const Map *m = GetMap(imageSize);
    return m ? m->fields : empty;
}

const Field *FindField(size_t imageSize, uint32_t id) {
    const Map *m = GetMap(imageSize);
    if (!m || id >= m->byId.size() || m->byId[id] < 0) return nullptr;
    return &m->fields[static_cast<size_t>(m->byId[id])];
}

const Field *FindSpecialField(size_t imageSize, uint8_t flag) {
    for (const Field &f : Layout(imageSize))
        if (f.flags & flag) return &f;
    return nullptr;
}

bool GetValue(const uint8_t *image, size_t size, uint32_t id, uint32_t &value) {
    const Field *f = NumericField(size, id);
    if (!image || !f) return false;
    value = ReadBits(image, BitPos(*f), f->bitWidth);
    return true;
}

bool SetValue(uint8_t *image, size_t size, uint32_t id, uint32_t value) {
    const Field *f = NumericField(size, id);
    if (!image || !f || value > f->maxValue) return false;
    WriteBits(image, BitPos(*f), f->bitWidth, value);
    return true;
}

uint32_t ComputeChecksum(uint8_t *image, size_t size) {
    if (!image) return 0;
    if (size < 256) return kShortBufferStatus;
    if (size == 256) {
        const uint8_t sum = ByteSum(image, 255);
        image[255] = static_cast<uint8_t>(-sum);
        return 0u - uint32_t{sum};
    }
    if (size == 512) {
        const uint32_t neg = 0u - WordSum(image, 127);
        for (int i = 0; i < 4; ++i) image[508 + i] = static_cast<uint8_t>(neg >> (8 * i));
        return neg;
    }
    return 0;
}

bool IsValid(const uint8_t *image, size_t size) {
    if (!image) return false;
    if (size == 256) return ByteSum(image, 256) == 0;
    if (size == 512) return WordSum(image, 128) == 0;
    return false;
}

std::vector<uint8_t> DefaultImage(size_t size, const Identity &id) {
    if (!GetMap(size)) return {};
    std::vector<uint8_t> image(size, 0);
    for (const Field &f : Layout(size))
        if (f.stringLength == 0) WriteBits(image.data(), BitPos(f), f.bitWidth, f.defaultValue);
    for (uint32_t i = 0; i < 8; ++i) {
        SetValue(image.data(), size, kPortNameByte0 + i, id.wwpn[i]);
        SetValue(image.data(), size, kNodeNameByte0 + i, id.wwnn[i]);
    }
    SetValue(image.data(), size, kSubsystemVendorId, id.ssvid);
    SetValue(image.data(), size, kSubsystemDeviceId, id.ssdid);
    if (const Field *f = FindSpecialField(size, kFlagSerialNumber)) {
        const size_t n = std::min<size_t>(id.serial.size(), f->stringLength);
        std::fill_n(image.begin() + f->byteOffset, f->stringLength, ' ');
        std::copy_n(id.serial.begin(), n, image.begin() + f->byteOffset);
    }
    ComputeChecksum(image.data(), size);
    return image;
}

std::vector<uint8_t> GlobalNvramImage(const uint8_t wwpn[8]) {
    std::vector<uint8_t> image(kGlobalNvramSize, 0);
    std::copy_n("VGNV", 4, image.begin());
    image[4] = 1;
    std::copy_n(wwpn, 8, image.begin() + kGlobalNvramWwpnOffset);
    ComputeChecksum(image.data(), image.size());
    return image;
}

std::vector<uint8_t> ActiveRecord(bool nvmeBootIn334) {
    std::vector<uint8_t> record(kActiveRecordSize, 0);
    std::copy_n("VACT", 4, record.begin());
    record[4] = nvmeBootIn334 ? 1 : 0;
    return record;
}

std::string WriteTemplate(size_t size, const uint8_t *image) {
    if (!image || !GetMap(size)) return {};
    std::string out = "; NVRAM template, " + std::to_string(size) +
                      "-byte image\n"
                      "; numeric fields: name [lowest-highest] = value\n"
                      "; string fields:  name [\"length\" = \"text\"]\n";
    for (const Field &f : Layout(size)) {
        if (f.stringLength == 0) {
            NumericLine(out, f.name, f.maxValue, ReadBits(image, BitPos(f), f.bitWidth));
            continue;
        }
        const uint8_t *p = image + f.byteOffset;
        if (Writable(p, f.stringLength)) {
            out += std::string(f.name) + " [\"" + std::to_string(f.stringLength) + "\" = \"" +
                   std::string(reinterpret_cast<const char *>(p), f.stringLength) + "\"]\n";
        } else {
            for (size_t i = 0; i < f.stringLength; ++i)
                NumericLine(out, std::string(f.name) + " byte " + std::to_string(i), 0xFF, p[i]);
        }
    }
    return out;
}

bool ParseTemplate(const std::string &text, size_t size, std::vector<uint8_t> &image, std::string &error) {
    image.assign(size, 0);
    size_t bitPos = 0;
    size_t lineNo = 0;
    auto fail = [&](const std::string &why) {
        error = "line " + std::to_string(lineNo) + ": " + why;
        return false;
    };
    auto align = [&] { bitPos = (bitPos + 7) / 8 * 8; };

    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t lead = 0;
        SkipBlanks(line, lead);
        line.erase(0, lead);
        if (line.empty() || line[0] == ';' || line.size() <= 10) continue;

        size_t pos = line.find('[');
        if (pos == std::string::npos) return fail("no data");
        ++pos;
        SkipBlanks(line, pos);
        if (pos < line.size() && line[pos] == '"') {
            const size_t q2 = line.find('"', pos + 1);
            const size_t q3 = q2 == std::string::npos ? q2 : line.find('"', q2 + 1);
            const size_t q4 = q3 == std::string::npos ? q3 : line.find('"', q3 + 1);
            if (q4 == std::string::npos) return fail("incomplete string");
            size_t lp = pos + 1;
            uint64_t length = 0;
            if (!Number(line, lp, length) || lp != q2) return fail("bad string length");
            const std::string str = line.substr(q3 + 1, q4 - q3 - 1);
            if (str.size() != length) return fail("string length does not match its text");
            const size_t used = std::min(str.size(), kMaxTemplateString);
            align();
            if (bitPos / 8 + used > size) return fail("data runs past the image");
            std::copy_n(str.begin(), used, image.begin() + static_cast<std::ptrdiff_t>(bitPos / 8));
            bitPos += used * 8;
            continue;
        }

        uint64_t low = 0, high = 0, value = 0;
        if (!Number(line, pos, low)) return fail("bad range");
        SkipBlanks(line, pos);
        if (pos >= line.size() || line[pos] != '-') return fail("bad range");
        ++pos;
        SkipBlanks(line, pos);
        if (!Number(line, pos, high) || high > 0xFFFFFFFFu || low > high) return fail("bad range");
        pos = line.find('=', pos);
        if (pos == std::string::npos) return fail("no value");
        ++pos;
        SkipBlanks(line, pos);
        if (!Number(line, pos, value)) return fail("bad value");
        if (value < low || value > high) return fail("value outside its range");
        const unsigned width = WidthFor(static_cast<uint32_t>(high));
        if (width >= 8) align();
        if (bitPos + width > size * 8) return fail("data runs past the image");
        WriteBits(image.data(), bitPos, width, static_cast<uint32_t>(value));
        bitPos += width;
    }
    error.clear();
    return true;
}

}  // namespace vtsdm::nvram
