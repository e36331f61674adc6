// Tests of the NVRAM variable map, checksum and template text.
#include "nvram_map.h"

#include <gtest/gtest.h>

#include "../config/hbaparam_table.h"
#include "idtable.h"

#include <algorithm>
#include <cctype>
#include <random>
#include <set>

using namespace vtsdm::nvram;

namespace {

// Every identifier the HBA-parameter, template and boot code refers to.
std::set<uint32_t> AllReferencedIds() {
    std::set<uint32_t> ids = {3,   6,   13,  17,  18,  19,  21,  22,  32,  43,  44,  48,  49,  53,  56,
                              57,  58,  59,  60,  63,  64,  65,  66,  67,  68,  81,  82,  83,  97,  125,
                              126, 127, 128, 130, 131, 132, 133, 134, 135, 136, 137, 148, 185, 186, 187};
    auto range = [&](uint32_t a, uint32_t b) {
        for (uint32_t i = a; i <= b; ++i) ids.insert(i);
    };
    range(24, 31);
    range(35, 42);
    range(72, 80);
    range(84, 96);
    range(98, 124);
    range(149, 184);
    return ids;
}

// Identifiers the reader uses on every chip, plus identity and boot ones.
std::set<uint32_t> OldChipIds() {
    std::set<uint32_t> ids = {3,   6,   13,  17,  19,  21,  22,  32,  43,  44,  48,  49,  53, 57,
                              58,  60,  64,  65,  66,  67,  68,  81,  82,  83,  92,  95,  96, 97,
                              125, 126, 127, 128, 130, 131, 132, 133, 135, 148, 185, 186, 187};
    auto range = [&](uint32_t a, uint32_t b) {
        for (uint32_t i = a; i <= b; ++i) ids.insert(i);
    };
    range(24, 31);
    range(35, 42);
    range(72, 80);
    range(98, 124);
    return ids;
}

std::vector<uint8_t> RandomImage(size_t size, uint32_t salt) {
    std::mt19937 rng(salt);
    std::vector<uint8_t> v(size);
    for (auto &b : v) b = static_cast<uint8_t>(rng());
    return v;
}

size_t FieldBits(const Field &f) { return f.stringLength ? f.stringLength * 8u : f.bitWidth; }

bool BitSet(const std::vector<uint8_t> &v, size_t bit) { return (v[bit / 8] >> (bit % 8)) & 1; }

std::string Lower(std::string s) {
    for (auto &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

Identity SampleIdentity() {
    Identity id{{0x20, 0x00, 0x00, 0x1B, 0x32, 0x0A, 0x0B, 0x0C},
                {0x21, 0x00, 0x00, 0x1B, 0x32, 0x0A, 0x0B, 0x0C},
                0x1077,
                0x0149,
                "RFC0912X34567"};
    return id;
}

const size_t kSizes[] = {256, 512};

}  // namespace

// ---------------------------------------------------------------- layout

TEST(NvramLayout, ReferencedIdentifiersExist) {
    for (uint32_t id : AllReferencedIds()) EXPECT_NE(FindField(512, id), nullptr) << "id " << id;
    for (uint32_t id : OldChipIds()) EXPECT_NE(FindField(256, id), nullptr) << "id " << id;
    // Older chips have four boot drives and no receive-out-of-order switch.
    EXPECT_EQ(FindField(256, 149), nullptr);
    EXPECT_EQ(FindField(256, kReceiveOutOfOrderFrame), nullptr);
    EXPECT_EQ(FindField(512, 999), nullptr);
    EXPECT_EQ(FindField(300, kFrameSize), nullptr);
    EXPECT_TRUE(Layout(300).empty());
    EXPECT_STREQ(FindField(512, kFrameSize)->name, "Frame Size");
}

// The HBA-parameter table and the record reader reach the NVRAM by variable
// identifier: whatever they use on a port must exist in the layout of that
// port's image size, for every chip type a port can have.
TEST(NvramLayout, ParameterTableAndRecordVariablesExistOnEveryChip) {
    namespace cfg = vt::config;
    std::set<uint32_t> chips = {vt::ids::kUnknownIspType};
    for (const auto &row : vt::ids::ChipRows())
        if (row.ispType != vt::ids::kNoIsp) chips.insert(row.ispType);
    for (uint32_t code = 0; code <= 27; ++code) chips.insert(code);
    for (uint32_t chip : chips) {
        SCOPED_TRACE("chip type " + std::to_string(chip));
        const size_t size = vt::ids::NvramSizeForIspType(chip);
        ASSERT_EQ(size, cfg::NvramSizeForChip(chip));
        for (const cfg::ParamRow &p : cfg::kParamRows) {
            if (p.variable != cfg::kNoVariable && cfg::ChipHasParam(p.support, chip)) {
                EXPECT_NE(FindField(size, uint32_t(p.variable)), nullptr) << p.name;
            }
        }
        for (const cfg::RecordRow &r : cfg::kRecordRows) {
            if (cfg::ReadApplies(r.when, chip)) {
                EXPECT_NE(FindField(size, r.variable), nullptr) << r.logName;
            }
        }
        for (uint32_t drive = 0; drive < cfg::BootDriveCount(chip); ++drive) {
            for (uint32_t i = 0; i < 8; ++i)
                EXPECT_NE(FindField(size, cfg::kBootDrives[drive].portNameByte0 + i), nullptr) << "drive " << drive;
            EXPECT_NE(FindField(size, cfg::kBootDrives[drive].lun), nullptr) << "drive " << drive;
        }
        for (uint32_t i = 0; i < 8; ++i) EXPECT_NE(FindField(size, cfg::kBootNodeNameByte0 + i), nullptr);
    }
    // The conditions matter: the older image lacks what newer chips have.
    EXPECT_EQ(FindField(256, 136), nullptr);
    EXPECT_EQ(FindField(256, cfg::kBootDrives[4].lun), nullptr);
}

// A parameter with a record field writes the variable that field is read
// from, and the boot drives agree with the layout's own list.
TEST(NvramLayout, ParameterTableAgreesWithTheRecordReader) {
    namespace cfg = vt::config;
    int withField = 0;
    for (const cfg::ParamRow &p : cfg::kParamRows) {
        if (p.field.size == 0) continue;
        ++withField;
        int readers = 0;
        for (const cfg::RecordRow &r : cfg::kRecordRows)
            if (r.field.offset == p.field.offset) {
                ++readers;
                EXPECT_EQ(int32_t(r.variable), p.variable) << p.name;
                EXPECT_EQ(r.field.size, p.field.size) << p.name;
            }
        EXPECT_EQ(readers, 1) << p.name;
    }
    EXPECT_EQ(withField, 36);  // all but LinkDownError, FastErrorReporting and DescendingLoopIDSearch
    for (int d = 0; d < 8; ++d) {
        EXPECT_EQ(cfg::kBootDrives[d].portNameByte0, kBootEntries[d].portNameByte0);
        EXPECT_EQ(cfg::kBootDrives[d].lun, kBootEntries[d].lun);
    }
    EXPECT_EQ(cfg::kBootNodeNameByte0, kBootNodeNameByte0);
}

TEST(NvramLayout, SequenceCoversImageOnceInOrder) {
    for (size_t size : kSizes) {
        SCOPED_TRACE(size);
        std::vector<int> owner(size * 8, 0);
        size_t expected = 0;
        for (const Field &f : Layout(size)) {
            const size_t start = f.byteOffset * 8u + f.bitOffset;
            EXPECT_EQ(start, expected) << f.name;  // packed one after the other
            for (size_t b = start; b < start + FieldBits(f) && b < owner.size(); ++b) ++owner[b];
            expected = start + FieldBits(f);
            if (f.stringLength == 0) {
                EXPECT_GE(f.bitWidth, 1);
                EXPECT_EQ(f.maxValue, f.bitWidth == 32 ? 0xFFFFFFFFu : (1u << f.bitWidth) - 1) << f.name;
                EXPECT_LE(f.defaultValue, f.maxValue) << f.name;
            }
            if (f.bitWidth >= 8 || f.stringLength) {
                EXPECT_EQ(f.bitOffset, 0) << f.name;
            }
        }
        EXPECT_EQ(expected, size * 8);
        EXPECT_TRUE(std::all_of(owner.begin(), owner.end(), [](int n) { return n == 1; }));
    }
}

TEST(NvramLayout, SpecialFieldsAndNames) {
    const Field *c256 = FindSpecialField(256, kFlagChecksum);
    const Field *c512 = FindSpecialField(512, kFlagChecksum);
    ASSERT_TRUE(c256 && c512);
    EXPECT_EQ(c256->byteOffset, 255);
    EXPECT_EQ(c256->bitWidth, 8);
    EXPECT_EQ(c512->byteOffset, 508);
    EXPECT_EQ(c512->bitWidth, 32);
    EXPECT_EQ(FindSpecialField(512, kFlagSubsystemVendorId), FindField(512, kSubsystemVendorId));
    EXPECT_EQ(FindSpecialField(256, kFlagSubsystemDeviceId), FindField(256, kSubsystemDeviceId));

    const std::pair<uint8_t, const char *> words[] = {{kFlagChecksum, "checksum"},
                                                      {kFlagSerialNumber, "serial number"},
                                                      {kFlagSubsystemVendorId, "subsystem vendor ID"},
                                                      {kFlagSubsystemDeviceId, "subsystem device ID"}};
    for (size_t size : kSizes) {
        ASSERT_GT(FindSpecialField(size, kFlagSerialNumber)->stringLength, 0);
        for (const Field &f : Layout(size)) {
            const std::string name = f.name;
            EXPECT_EQ(name.find_first_of("[\""), std::string::npos) << name;
            EXPECT_NE(name[0], ';');
            for (auto [flag, word] : words) {
                // The special words mark exactly the special fields.
                const bool has = name.find(word) != std::string::npos;
                EXPECT_EQ(has, (f.flags & flag) != 0) << name;
                if (!(f.flags & flag)) {
                    EXPECT_EQ(Lower(name).find(Lower(word)), std::string::npos) << name;
                }
            }
        }
    }
}

TEST(NvramLayout, WorldWideNamesAreOneByteEachMostSignificantFirst) {
    for (size_t size : kSizes) {
        for (uint32_t base : {kPortNameByte0, kNodeNameByte0, kBootNodeNameByte0}) {
            const Field *first = FindField(size, base);
            ASSERT_NE(first, nullptr);
            for (uint32_t i = 0; i < 8; ++i) {
                const Field *f = FindField(size, base + i);
                ASSERT_NE(f, nullptr);
                EXPECT_EQ(f->bitWidth, 8);
                EXPECT_EQ(f->byteOffset, first->byteOffset + i);
            }
        }
        EXPECT_STREQ(FindField(size, kPortNameByte0 + 3)->name, "Port Name byte 3");
        for (const BootEntryIds &e : kBootEntries) {
            if (size == 256 && e.portNameByte0 > 124) continue;
            EXPECT_EQ(FindField(size, e.lun)->bitWidth, 16);
            EXPECT_EQ(FindField(size, e.portNameByte0 + 7)->byteOffset,
                      FindField(size, e.portNameByte0)->byteOffset + 7);
        }
    }
}

// ---------------------------------------------------------------- checksum

TEST(NvramChecksum, SizeRules) {
    std::vector<uint8_t> img(256, 0);
    img[0] = 0x10;
    EXPECT_EQ(ComputeChecksum(img.data(), 256), 0xFFFFFFF0u);
    EXPECT_EQ(img[255], 0xF0);
    EXPECT_TRUE(IsValid(img.data(), 256));

    std::vector<uint8_t> zero(256, 0);
    zero[255] = 0x55;
    EXPECT_EQ(ComputeChecksum(zero.data(), 256), 0u);
    EXPECT_EQ(zero[255], 0);

    std::vector<uint8_t> shortBuf(100, 0xAB);
    EXPECT_EQ(ComputeChecksum(shortBuf.data(), 100), 0x20000072u);
    EXPECT_EQ(shortBuf, std::vector<uint8_t>(100, 0xAB));

    std::vector<uint8_t> odd(300, 0xAB);
    EXPECT_EQ(ComputeChecksum(odd.data(), 300), 0u);
    EXPECT_EQ(odd, std::vector<uint8_t>(300, 0xAB));
    EXPECT_FALSE(IsValid(odd.data(), 300));

    EXPECT_EQ(ComputeChecksum(nullptr, 512), 0u);
    EXPECT_EQ(ComputeChecksum(nullptr, 10), 0u);
    EXPECT_FALSE(IsValid(nullptr, 512));
}

TEST(NvramChecksum, WordSumOf512ByteImage) {
    std::vector<uint8_t> img(512, 0);
    img[0] = 0x01;    // word 0 = 0x00000001
    img[7] = 0x80;    // word 1 = 0x80000000
    img[509] = 0x77;  // old checksum, not part of the sum
    EXPECT_EQ(ComputeChecksum(img.data(), 512), 0x7FFFFFFFu);
    EXPECT_EQ(img[508], 0xFF);
    EXPECT_EQ(img[509], 0xFF);
    EXPECT_EQ(img[510], 0xFF);
    EXPECT_EQ(img[511], 0x7F);
    EXPECT_TRUE(IsValid(img.data(), 512));

    auto valid = RandomImage(512, 7);
    ComputeChecksum(valid.data(), 512);
    const auto before = valid;
    ComputeChecksum(valid.data(), 512);
    EXPECT_EQ(valid, before);
    valid[100] ^= 1;
    EXPECT_FALSE(IsValid(valid.data(), 512));
}

// ---------------------------------------------------------------- values

TEST(NvramValues, SetOnlyTouchesItsOwnBits) {
    for (size_t size : kSizes) {
        for (const Field &f : Layout(size)) {
            if (f.id < 0 || f.stringLength) continue;
            SCOPED_TRACE(std::to_string(size) + " " + f.name);
            auto img = RandomImage(size, static_cast<uint32_t>(f.id));
            const auto before = img;
            uint32_t got = 0;
            ASSERT_TRUE(GetValue(img.data(), size, static_cast<uint32_t>(f.id), got));
            const uint32_t v = got ^ f.maxValue;  // every bit of the field flips
            ASSERT_TRUE(SetValue(img.data(), size, static_cast<uint32_t>(f.id), v));
            ASSERT_TRUE(GetValue(img.data(), size, static_cast<uint32_t>(f.id), got));
            EXPECT_EQ(got, v);
            const size_t start = f.byteOffset * 8u + f.bitOffset;
            for (size_t b = 0; b < size * 8; ++b)
                if (b < start || b >= start + f.bitWidth) {
                    ASSERT_EQ(BitSet(img, b), BitSet(before, b)) << b;
                }
        }
    }
}

TEST(NvramValues, ByteOrderAndRejections) {
    std::vector<uint8_t> img(512, 0);
    ASSERT_TRUE(SetValue(img.data(), 512, kFrameSize, 2112));
    const Field *fs = FindField(512, kFrameSize);
    EXPECT_EQ(img[fs->byteOffset], 0x40);
    EXPECT_EQ(img[fs->byteOffset + 1], 0x08);

    ASSERT_TRUE(SetValue(img.data(), 512, kDataRate, 5));
    uint32_t v = 0;
    EXPECT_TRUE(GetValue(img.data(), 512, kDataRate, v));
    EXPECT_EQ(v, 5u);

    const auto before = img;
    EXPECT_FALSE(SetValue(img.data(), 512, kDataRate, 8));  // above the field
    EXPECT_FALSE(SetValue(img.data(), 512, kEnableFcTape, 2));
    EXPECT_FALSE(SetValue(img.data(), 512, kLoginRetryCount, 256));
    EXPECT_FALSE(SetValue(img.data(), 512, 999, 0));
    EXPECT_FALSE(SetValue(nullptr, 512, kFrameSize, 0));
    EXPECT_FALSE(SetValue(img.data(), 300, kFrameSize, 0));
    EXPECT_EQ(img, before);
    EXPECT_FALSE(GetValue(img.data(), 512, 999, v));
    EXPECT_FALSE(GetValue(img.data(), 256, 150, v));
}

TEST(NvramValues, DefaultImageIsValidAndCarriesIdentity) {
    const Identity id = SampleIdentity();
    for (size_t size : kSizes) {
        SCOPED_TRACE(size);
        auto img = DefaultImage(size, id);
        ASSERT_EQ(img.size(), size);
        EXPECT_TRUE(IsValid(img.data(), size));
        uint32_t v = 0;
        for (uint32_t i = 0; i < 8; ++i) {
            ASSERT_TRUE(GetValue(img.data(), size, kPortNameByte0 + i, v));
            EXPECT_EQ(v, id.wwpn[i]);
            ASSERT_TRUE(GetValue(img.data(), size, kNodeNameByte0 + i, v));
            EXPECT_EQ(v, id.wwnn[i]);
        }
        const std::pair<uint32_t, uint32_t> expect[] = {{kSubsystemVendorId, 0x1077},
                                                        {kSubsystemDeviceId, 0x0149},
                                                        {kFrameSize, 2048},
                                                        {kLoginRetryCount, 8},
                                                        {kPortDownRetryCount, 30},
                                                        {kLinkDownTimeout, 30},
                                                        {kDataRate, 2},
                                                        {kConnectionOption, 2},
                                                        {kMaxLunsPerTarget, 128},
                                                        {kExecutionThrottle, size == 512 ? 65535u : 16u},
                                                        {kEnableNodeName, 1}};
        for (auto [vid, want] : expect) {
            ASSERT_TRUE(GetValue(img.data(), size, vid, v)) << vid;
            EXPECT_EQ(v, want) << vid;
        }
        const Field *sn = FindSpecialField(size, kFlagSerialNumber);
        const std::string serial(reinterpret_cast<const char *>(img.data()) + sn->byteOffset, sn->stringLength);
        EXPECT_EQ(serial, id.serial + std::string(sn->stringLength - id.serial.size(), ' '));
    }
    Identity longSerial = id;
    longSerial.serial = std::string(40, 'S');
    auto img = DefaultImage(512, longSerial);
    const Field *sn = FindSpecialField(512, kFlagSerialNumber);
    EXPECT_EQ(img[sn->byteOffset + sn->stringLength - 1], 'S');
    EXPECT_NE(img[sn->byteOffset + sn->stringLength], 'S');
    EXPECT_TRUE(DefaultImage(300, id).empty());
}

// ---------------------------------------------------------------- template

TEST(NvramTemplate, RoundTripReproducesImage) {
    for (size_t size : kSizes) {
        SCOPED_TRACE(size);
        const auto def = DefaultImage(size, SampleIdentity());
        const auto rnd = RandomImage(size, 42);  // serial bytes not writable as text
        auto quoted = def;                       // a quote cannot appear inside a string line
        quoted[FindSpecialField(size, kFlagSerialNumber)->byteOffset + 2] = '"';
        ComputeChecksum(quoted.data(), size);
        for (const auto &img : {def, rnd, quoted}) {
            const std::string text = WriteTemplate(size, img.data());
            std::vector<uint8_t> back;
            std::string err;
            ASSERT_TRUE(ParseTemplate(text, size, back, err)) << err;
            EXPECT_EQ(back, img);
        }
        const std::string text = WriteTemplate(size, def.data());
        for (const char *w : {"checksum", "serial number", "subsystem vendor ID", "subsystem device ID"})
            EXPECT_NE(text.find(w), std::string::npos) << w;
        EXPECT_NE(text.find("Frame Size [0-65535] = 2048\n"), std::string::npos);
        EXPECT_NE(text.find("[\"16\" = \"RFC0912X34567   \"]"), std::string::npos);
    }
    EXPECT_TRUE(WriteTemplate(300, RandomImage(300, 1).data()).empty());
}

TEST(NvramTemplate, ParserFollowsTheGrammar) {
    const std::string text =
        "; comment line with [0-255] = 9\n"
        "x [0-1]=1\n"             // ten characters or fewer: a comment
        "  \tFlag A [0-1] = 1\n"  // leading blanks dropped
        "Mode   [0 - 7] = 5 trailing text\n"
        "Wide field [0-255] = 171\n"  // starts on the next byte
        "Word field [0-65535] = 4660\r\n"
        "Text field [ \"3\" = \"xyz\"]\n"
        "Long field [0-4294967295] = 305419896\n";
    std::vector<uint8_t> img;
    std::string err;
    ASSERT_TRUE(ParseTemplate(text, 16, img, err)) << err;
    const std::vector<uint8_t> want = {0x0B, 0xAB, 0x34, 0x12, 'x', 'y', 'z', 0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0, 0};
    EXPECT_EQ(img, want);

    const std::pair<const char *, size_t> bad[] = {
        {"no bracket on this line\n", 16},
        {"Field name [0-1] = 2\n", 16},  // above its range
        {"Field name [5-9] = 2\n", 16},  // below its range
        {"Field name [0-1] 1\n", 16},    // no '='
        {"Field name [x-1] = 1\n", 16},
        {"Field name [\"4\" = \"abc\"]\n", 16},  // length does not match
        {"Field name [\"3\" = \"abc]\n", 16},
        {"Field name [0-4294967296] = 1\n", 16},
        {"Field name [0-65535] = 1\nField two [0-255] = 1\n", 2},  // past the image
    };
    for (auto [t, size] : bad) {
        std::vector<uint8_t> out;
        EXPECT_FALSE(ParseTemplate(t, size, out, err)) << t;
        EXPECT_EQ(err.rfind("line ", 0), 0u) << err;
    }
}
