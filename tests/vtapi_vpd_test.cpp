// Vital product data: tag checks, blank blocks, the parsed keyword table and
// its labels, the multiboot version kept by PrintVPD, keyword edits with the
// RV checksum kept valid, hostile blocks, and the VPD of the simulated cards.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "testutil.h"
#include "oss/oss.h"
#include "flash/vpd.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Fields = std::vector<std::pair<std::string, std::string>>;

void Append16(Bytes &b, size_t n) {
    b.push_back(uint8_t(n & 0xFF));
    b.push_back(uint8_t(n >> 8));
}

void AppendFields(Bytes &b, const Fields &fields) {
    for (const auto &[k, v] : fields) {
        b.insert(b.end(), k.begin(), k.end());
        b.push_back(uint8_t(v.size()));
        b.insert(b.end(), v.begin(), v.end());
    }
}

// A well-formed block: identifier, read-only keywords closed by "RV" with a
// valid checksum and one reserved byte, optional read-write keywords, end tag.
Bytes Block(const std::string &id, const Fields &ro, const Fields &rw = {}) {
    Bytes b{0x82};
    Append16(b, id.size());
    b.insert(b.end(), id.begin(), id.end());
    Bytes body;
    AppendFields(body, ro);
    body.insert(body.end(), {'R', 'V', 2, 0, 0});
    b.push_back(0x90);
    Append16(b, body.size());
    b.insert(b.end(), body.begin(), body.end());
    uint8_t sum = 0;
    for (size_t i = 0; i + 1 < b.size(); ++i) sum = uint8_t(sum + b[i]);
    b[b.size() - 2] = uint8_t(-sum);
    if (!rw.empty()) {
        Bytes w;
        AppendFields(w, rw);
        b.push_back(0x91);
        Append16(b, w.size());
        b.insert(b.end(), w.begin(), w.end());
    }
    b.push_back(0x78);
    return b;
}

// Independent walk: the sum of the bytes from the 0x82 tag through the RV
// checksum byte, and whether the resource lengths add up to the end tag.
struct Check {
    bool wellFormed = false;
    bool rvFound = false;
    uint8_t sum = 0xAA;
};

Check Inspect(const Bytes &b, size_t size) {
    Check c;
    size_t pos = 0;
    while (pos + 3 <= size && b[pos] != 0x78) {
        const size_t end = pos + 3 + (b[pos + 1] | (b[pos + 2] << 8));
        if (end > size) return c;
        if (b[pos] == 0x90)
            for (size_t k = pos + 3; k + 3 <= end; k += 3 + b[k + 2])
                if (b[k] == 'R' && b[k + 1] == 'V' && !c.rvFound) {
                    c.rvFound = true;
                    c.sum = 0;
                    for (size_t i = 0; i <= k + 3; ++i) c.sum = uint8_t(c.sum + b[i]);
                }
        pos = end;
    }
    c.wellFormed = pos < size && b[pos] == 0x78;
    return c;
}

VPDInfo Parse(const Bytes &b, uint32_t *rc = nullptr) {
    VPDInfo info;
    std::memset(&info, 0x5A, sizeof info);
    const uint32_t r = vtfuGetVPDInfoFromBuf(b.data(), uint32_t(b.size()), &info);
    if (rc) *rc = r;
    return info;
}

// The value of the first entry with that tag, or "<none>".
std::string Field(const VPDInfo &info, const char *tag) {
    for (uint32_t i = 0; i < info.count && i < VTFU_VPD_MAX_ENTRIES; ++i)
        if (std::strcmp(info.entries[i].tag, tag) == 0) return info.entries[i].field;
    return "<none>";
}

// The RV value as the table shows it: the checksum byte as a character.
std::string RvField(const Bytes &b) {
    for (size_t i = 0; i + 3 < b.size(); ++i)
        if (b[i] == 'R' && b[i + 1] == 'V' && b[i + 2] == 2)
            return b[i + 3] ? std::string(1, char(b[i + 3])) : std::string();
    return "<none>";
}

uint32_t Update(Bytes &b, const char *keyword, const std::string &value, size_t size = 0) {
    return vtfuUpdateVpdField(b.data(), uint32_t(size ? size : b.size()), keyword,
                              reinterpret_cast<const uint8_t *>(value.data()), uint32_t(value.size()));
}

// A fresh messages file under a private root for tests that read the log.
class VpdLog : public ::testing::Test {
protected:
    void SetUp() override {
        InitializeLogMessageFile();
        OpenCoreMessagesFile();
    }
    void TearDown() override { messagesfile[0] = oldmessagesfile[0] = '\0'; }
    std::string Log() const { return vttest::ReadFile(root_.path("/var/tmp/vtapi.log")); }
    vttest::SysrootScope root_;
};

const Fields kCardFields = {{"PN", "VT2912"}, {"SN", "VTK24110A7"}, {"MN", "1077"}, {"EC", "B"},
                            {"V1", "7.34"},   {"V3", "9.12.01"},    {"ZZ", "odd"}};

TEST(VpdTags, StartAndEndTags) {
    const Bytes b = Block("HBA", {{"PN", "x"}});  // 'x' is 0x78 inside a value
    EXPECT_EQ(vtfuVerifyVpdStartTag(b.data(), uint32_t(b.size())), 0u);
    uint32_t index = 999;
    EXPECT_EQ(vtfuVerifyVpdEndTag(b.data(), &index, uint32_t(b.size())), 0u);
    EXPECT_EQ(index, 12u);  // the first 0x78, the value byte
    EXPECT_EQ(vtfuVerifyVpdEndTag(b.data(), nullptr, uint32_t(b.size())), 0u);

    const uint8_t none[] = {0x90, 0x00, 0x00, 0x81};
    index = 7;
    EXPECT_EQ(vtfuVerifyVpdStartTag(none, sizeof none), 13u);
    EXPECT_EQ(vtfuVerifyVpdEndTag(none, &index, sizeof none), 13u);
    EXPECT_EQ(index, 7u);
    EXPECT_EQ(vtfuVerifyVpdStartTag(nullptr, 10), 13u);
    EXPECT_EQ(vtfuVerifyVpdEndTag(nullptr, &index, 10), 13u);
    // The tag just past the size does not count.
    EXPECT_EQ(vtfuVerifyVpdStartTag(b.data(), 0), 13u);
    const uint8_t late[] = {0x00, 0x82, 0x78};
    EXPECT_EQ(vtfuVerifyVpdStartTag(late, 1), 13u);
    EXPECT_EQ(vtfuVerifyVpdEndTag(late, &index, 2), 13u);
    EXPECT_EQ(vtfuVerifyVpdEndTag(late, &index, 3), 0u);
    EXPECT_EQ(index, 2u);
}

TEST_F(VpdLog, BlankBlocks) {
    const Bytes ff(64, 0xFF), zero(64, 0x00);
    EXPECT_EQ(vtfuIsBlankVpd(ff.data(), 64), 1u);
    EXPECT_EQ(vtfuIsBlankVpd(zero.data(), 64), 1u);
    Bytes mixed = ff;
    mixed[40] = 0x00;
    EXPECT_EQ(vtfuIsBlankVpd(mixed.data(), 64), 0u);
    EXPECT_EQ(vtfuIsBlankVpd(mixed.data(), 40), 1u);  // the odd byte lies beyond size
    Bytes zeroThenFf = zero;
    zeroThenFf[63] = 0xFF;
    EXPECT_EQ(vtfuIsBlankVpd(zeroThenFf.data(), 64), 0u);
    const Bytes block = Block("HBA", {});
    EXPECT_EQ(vtfuIsBlankVpd(block.data(), uint32_t(block.size())), 0u);
    // With size 0 only the first byte decides.
    const uint8_t ffByte = 0xFF, zeroByte = 0x00, other = 0x82;
    EXPECT_EQ(vtfuIsBlankVpd(&ffByte, 0), 1u);
    EXPECT_EQ(vtfuIsBlankVpd(&zeroByte, 0), 1u);
    EXPECT_EQ(vtfuIsBlankVpd(&other, 0), 0u);
    EXPECT_EQ(vtfuIsBlankVpd(nullptr, 0), 0u);
    const std::string log = Log();
    EXPECT_NE(log.find("IsBlankVpd: Enter"), std::string::npos);
    EXPECT_NE(log.find("IsBlankVpd: Exit, bVpdIsBlank=1"), std::string::npos);
    EXPECT_NE(log.find("IsBlankVpd: Exit, bVpdIsBlank=0"), std::string::npos);
}

TEST(VpdLabels, KeywordTable) {
    // clang-format off
    const std::vector<std::pair<const char *, const char *>> table = {
        {"PN", "Part Number"},         {"00", "Description"},       {"CC", "Custom Card Identification"},
        {"EC", "Engineering Date Code"}, {"SN", "Serial Number"},   {"V0", "Misc. Information"},
        {"V2", "Manufacturing Date Code"}, {"MN", "Manufacturing Id"}, {"RV", "Checksum & Reserved"},
        {"V1", "EFI Driver Version"},  {"V3", "Firmware Version"},  {"V4", "BIOS Version"},
        {"V5", "FCode Version"},       {"YA", "Asset Tag"},         {"RW", "Remaining RW Data"},
        {"RM", "Flash Image Version"}, {"FF", "Flash Image Version"}, {"V9", "Flash Image Version"},
        {"FN", "FRU Number"},          {"FC", "FC Code"}};
    // clang-format on
    for (const auto &[k, label] : table) EXPECT_STREQ(vtfuGetVPDFieldDescripton(k), label) << k;
    EXPECT_STREQ(vtfuGetVPDFieldDescripton("SNX"), "Serial Number");  // two characters compared
    for (const char *k : {"V6", "ZZ", "sn", "S", "", "VV"}) EXPECT_STREQ(vtfuGetVPDFieldDescripton(k), "UNKNOWN") << k;
    EXPECT_STREQ(vtfuGetVPDFieldDescripton(nullptr), "UNKNOWN");
}

TEST(VpdParse, LabelledTableOfACard) {
    const Bytes b = Block("VT2912 dual-port 64Gb Fibre Channel adapter", kCardFields, {{"YA", "asset"}});
    uint32_t rc = 1;
    const VPDInfo info = Parse(b, &rc);
    ASSERT_EQ(rc, 0u);
    const std::vector<std::vector<std::string>> want = {
        {"00", "VT2912 dual-port 64Gb Fibre Channel adapter", "Description"},
        {"PN", "VT2912", "Part Number"},
        {"SN", "VTK24110A7", "Serial Number"},
        {"MN", "1077", "Manufacturing Id"},
        {"EC", "B", "Engineering Date Code"},
        {"V1", "7.34", "EFI Driver Version"},
        {"V3", "9.12.01", "Firmware Version"},
        {"ZZ", "odd", "UNKNOWN"},
        {"RV", RvField(b), "Checksum & Reserved"}};
    // The read-write section (YA) is not part of the table.
    ASSERT_EQ(info.count, want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(info.entries[i].tag, want[i][0]) << i;
        EXPECT_EQ(info.entries[i].field, want[i][1]) << i;
        EXPECT_EQ(info.entries[i].description, want[i][2]) << i;
    }
    EXPECT_EQ(Field(info, "YA"), "<none>");
}

TEST_F(VpdLog, MissingTagsGiveNoEntries) {
    Bytes noStart = Block("HBA", {{"PN", "A"}});
    noStart[0] = 0x83;
    uint32_t rc = 0;
    EXPECT_EQ(Parse(noStart, &rc).count, 0u);
    EXPECT_EQ(rc, 13u);
    Bytes noEnd = Block("HBA", {{"PN", "A"}});
    noEnd.back() = 0x79;
    EXPECT_EQ(Parse(noEnd, &rc).count, 0u);
    EXPECT_EQ(rc, 13u);
    EXPECT_EQ(vtfuGetVPDInfoFromBuf(noEnd.data(), uint32_t(noEnd.size()), nullptr), 2u);
    const std::string log = Log();
    EXPECT_NE(log.find("vtfuGetVPDInfoFromBuf() : No start tag found"), std::string::npos);
    EXPECT_NE(log.find("vtfuGetVPDInfoFromBuf() : No end tag found"), std::string::npos);

    const Bytes good = Block("HBA", {{"PN", "A"}});
    EXPECT_EQ(Parse(good).count, 3u);
    EXPECT_NE(Log().find("vtfuGetVPDInfoFromBuf: i=1 len=1 Tag:PN, Field:A"), std::string::npos);
    EXPECT_NE(Log().find("vtfuGetVPDInfoFromBuf: Num VPD Entries Total=3"), std::string::npos);
}

TEST(VpdParse, SyntheticFlashImageVersion) {
    VPDInfo info = Parse(Block("HBA", {{"PN", "A"}, {"V1", "FFV10.02.03"}, {"V5", "FFV99.99.99"}}));
    ASSERT_EQ(info.count, 6u);  // 00, PN, V1, V5, RV and the added RM
    EXPECT_STREQ(info.entries[5].tag, "RM");
    EXPECT_STREQ(info.entries[5].field, "10.02.03");
    EXPECT_STREQ(info.entries[5].description, "Flash Image Version");
    EXPECT_EQ(Field(info, "V1"), "FFV10.02.03");

    // A real RM or V9 entry wins; other keywords, and "V" values without
    // "FFV", give nothing.
    info = Parse(Block("HBA", {{"V1", "FFV10.02.03"}, {"RM", "01.02.03"}}));
    EXPECT_EQ(info.count, 4u);
    EXPECT_EQ(Field(info, "RM"), "01.02.03");
    EXPECT_EQ(Parse(Block("HBA", {{"V9", "4"}, {"V1", "FFV10.02.03"}})).count, 4u);
    EXPECT_EQ(Parse(Block("HBA", {{"PN", "FFV10.02.03"}, {"V2", "FV10.02.03"}})).count, 4u);
    // A short value gives short pieces, read no further than it goes.
    EXPECT_EQ(Field(Parse(Block("HBA", {{"V0", "FFV1"}})), "RM"), "1..");
}

TEST(VpdParse, LimitsOfTheRecord) {
    const std::string longId(300, 'D');
    VPDInfo info = Parse(Block(longId, {{"SN", std::string(200, 'S')}}));
    EXPECT_EQ(std::string(info.entries[0].field), std::string(127, 'D'));
    EXPECT_EQ(Field(info, "SN"), std::string(127, 'S'));

    Fields many;
    for (int i = 0; i < 40; ++i)
        many.emplace_back(std::string{char('A' + i / 10), char('0' + i % 10)}, std::to_string(i));
    info = Parse(Block("HBA", many));
    ASSERT_EQ(info.count, 30u);
    EXPECT_STREQ(info.entries[29].tag, "C8");  // the 29th keyword; the rest are dropped
    EXPECT_STREQ(info.entries[29].field, "28");

    // A full table has no room for the added RM.
    many.resize(29);
    many[3] = {"V1", "FFV10.02.03"};
    EXPECT_EQ(Field(Parse(Block("HBA", many)), "RM"), "<none>");
    many.resize(27);
    EXPECT_EQ(Field(Parse(Block("HBA", many)), "RM"), "10.02.03");
}

TEST_F(VpdLog, MultiBootVersionFromPrintVPD) {
    auto version = [](const Bytes &b) {
        std::strcpy(gVpdMultiBootVersion, "stale");
        PrintVPD(b.data(), uint32_t(b.size()));
        return std::string(gVpdMultiBootVersion);
    };
    EXPECT_EQ(version(Block("HBA", {{"PN", "A"}, {"RM", "  01.12.03 \t"}})), "01.12.03");
    EXPECT_EQ(version(Block("HBA", {{"V9", " 02.00.01  "}})), "02.00.01");
    EXPECT_EQ(version(Block("HBA", {{"RM", "1"}}, {{"VV", " 03.01.00 "}})), " 03.01.00 ");
    EXPECT_EQ(version(Block("HBA", {{"PN", "RM"}, {"V1", "FFV10.02.03"}})), "stale");
    // The walk stops at the end tag and at the size.
    Bytes after = Block("HBA", {});
    AppendFields(after, {{"RM", "9.9.9"}});
    EXPECT_EQ(version(after), "stale");
    Bytes cut = Block("HBA", {{"RM", "01.02.03"}});
    EXPECT_EQ(version(Bytes(cut.begin(), cut.begin() + 10)), "stale");
    // A zero byte skips three bytes.
    EXPECT_EQ(version(Bytes{0x00, 'V', 'V', 'R', 'M', 0x02, '9', '9', 0x78}), "99");
    // A value cut by the size is kept as far as it goes.
    EXPECT_EQ(version(Bytes(cut.begin(), cut.begin() + 17)), "01.02");

    std::string big(3000, 'B');
    PrintVPDField("VV", reinterpret_cast<const uint8_t *>(big.data()), uint32_t(big.size()));
    EXPECT_EQ(std::string(gVpdMultiBootVersion), std::string(2047, 'B'));
    PrintVPDField("RM", reinterpret_cast<const uint8_t *>("   "), 3);
    EXPECT_STREQ(gVpdMultiBootVersion, "");
    PrintVPDField("V9", reinterpret_cast<const uint8_t *>("1.2\0junk"), 8);
    EXPECT_STREQ(gVpdMultiBootVersion, "1.2");
    PrintVPDField("SN", reinterpret_cast<const uint8_t *>("X"), 1);
    EXPECT_STREQ(gVpdMultiBootVersion, "1.2");
}

TEST_F(VpdLog, UpdateKeepsTheChecksum) {
    const Bytes original = Block("VT2912 adapter", kCardFields, {{"YA", "asset"}});
    struct Case {
        const char *keyword;
        std::string value;
    };
    for (const Case &c : {Case{"SN", "ABCDEFGHIJ"}, Case{"SN", "LONGER-SERIAL-0001"}, Case{"PN", ""}, Case{"V3", "1"},
                          Case{"ZZ", std::string(255, 'z')}, Case{"YA", "new asset tag"}}) {
        Bytes b = original;
        b.resize(original.size() + 300, 0xEE);
        ASSERT_EQ(Update(b, c.keyword, c.value), 0u) << c.keyword;
        const size_t end = original.size() + c.value.size() -
                           (std::string(c.keyword) == "YA" ? 5 : size_t(Field(Parse(original), c.keyword).size()));
        const Check k = Inspect(b, b.size());
        EXPECT_TRUE(k.wellFormed && k.rvFound) << c.keyword;
        EXPECT_EQ(k.sum, 0) << c.keyword;
        EXPECT_EQ(b[end - 1], 0x78) << c.keyword;
        const VPDInfo info = Parse(b);
        if (std::string(c.keyword) != "YA") {
            EXPECT_EQ(Field(info, c.keyword), c.value.substr(0, 127)) << c.keyword;
        }
        // Every other keyword keeps its value.
        for (const auto &[k2, v2] : kCardFields)
            if (k2 != c.keyword) {
                EXPECT_EQ(Field(info, k2.c_str()), v2) << c.keyword << " " << k2;
            }
        // Bytes beyond the block: 0x00 where it shrank, untouched further on.
        if (end < original.size()) {
            EXPECT_EQ(Bytes(b.begin() + long(end), b.begin() + long(original.size())), Bytes(original.size() - end, 0));
        }
        EXPECT_EQ(b.back(), 0xEE);
    }
    // Read-write values are outside the table; find the new one in the bytes.
    Bytes rw = original;
    rw.resize(original.size() + 20);
    ASSERT_EQ(Update(rw, "YA", "new asset tag"), 0u);
    EXPECT_NE(std::string(rw.begin(), rw.end()).find("YA\x0Dnew asset tag\x78"), std::string::npos);
    EXPECT_NE(Log().find("UpdateVpdField: Enter opcode=YA, Field data=new asset tag"), std::string::npos);
}

TEST_F(VpdLog, UpdateRefusesWhatItCannotDo) {
    const Bytes original = Block("HBA", {{"SN", "12345"}, {"PN", "P"}});
    Bytes b = original;
    // Growing needs room after the end tag within the size; shrinking does not.
    EXPECT_EQ(Update(b, "SN", "123456"), 0xFFFFFFFFu);
    EXPECT_EQ(b, original);
    b.resize(original.size() + 2, 0);
    EXPECT_EQ(Update(b, "SN", "1234567", original.size() + 1), 0xFFFFFFFFu);
    EXPECT_EQ(Bytes(b.begin(), b.begin() + long(original.size())), original);
    EXPECT_EQ(Update(b, "SN", "1234567"), 0u);
    EXPECT_EQ(b.back(), 0x78);
    b = original;
    EXPECT_EQ(Update(b, "SN", "1"), 0u);
    EXPECT_EQ(Inspect(b, b.size()).sum, 0);

    b = original;
    EXPECT_EQ(Update(b, "MN", "x"), 0xFFFFFFFFu);  // absent
    for (const char *bad : {"RV", "S", "SNX", ""}) EXPECT_EQ(Update(b, bad, "x"), 2u) << bad;
    EXPECT_EQ(Update(b, nullptr, "x"), 2u);
    EXPECT_EQ(Update(b, "SN", std::string(256, 'v')), 2u);
    EXPECT_EQ(vtfuUpdateVpdField(b.data(), uint32_t(b.size()), "SN", nullptr, 1), 2u);
    EXPECT_EQ(vtfuUpdateVpdField(nullptr, 10, "SN", nullptr, 0), 2u);
    EXPECT_EQ(b, original);

    // The section length must stay within 16 bits.
    Fields full;
    for (size_t body = 5; body < 0xFFFF - 2;) {
        const size_t v = std::min<size_t>(255, 0xFFFF - 2 - body - 3);
        full.emplace_back("Y" + std::string(1, char('A' + full.size() % 26)), std::string(v, 'f'));
        body += 3 + v;
    }
    full.back().first = "SN";
    Bytes big = Block("HBA", full);
    ASSERT_EQ(big[7] | (big[8] << 8), 0xFFFD);
    big.resize(big.size() + 16);
    const Bytes bigBefore = big;
    EXPECT_EQ(Update(big, "SN", full.back().second + "123"), 0xFFFFFFFFu);
    EXPECT_EQ(big, bigBefore);
    EXPECT_EQ(Update(big, "SN", full.back().second + "12"), 0u);
    EXPECT_EQ(big[7] | (big[8] << 8), 0xFFFF);
    EXPECT_EQ(Inspect(big, big.size()).sum, 0);

    Bytes noStart = original;
    noStart[0] = 0x81;
    EXPECT_EQ(Update(noStart, "SN", "1"), 13u);
    EXPECT_NE(Log().find("UpdateVpdField: No start tag found"), std::string::npos);
    Bytes noRv = original;
    noRv[noRv.size() - 6] = 'X';  // "RV" becomes "XV"
    EXPECT_EQ(Update(noRv, "SN", "1"), 13u);
    Bytes longSection = original;
    longSection[7] = 0x40;  // read-only section runs past the end
    EXPECT_EQ(Update(longSection, "SN", "1"), 13u);
    Bytes noEnd = original;
    noEnd.back() = 0x00;
    EXPECT_EQ(Update(noEnd, "SN", "1"), 13u);
    EXPECT_EQ(noEnd.back(), 0x00);
}

// Hostile blocks, each in a heap buffer of exactly its size so that any read
// beyond it is caught by the address sanitizer.
TEST(VpdRobustness, HostileBlocks) {
    const Bytes good = Block("HBA", {{"SN", "1"}, {"RM", "01.02.03"}});
    std::vector<Bytes> inputs = {
        {},
        {0x82},
        {0x82, 0x05},
        {0x82, 0xFF, 0xFF, 'A', 0x78},
        {0x82, 0x00, 0x00, 0x90},
        {0x82, 0x00, 0x00, 0x90, 0x10},
        {0x82, 0x00, 0x00, 0x90, 0xFF, 0xFF, 'S', 'N', 0xFF, 'x'},
        {0x82, 0x00, 0x00, 0x90, 0x20, 0x00, 'S', 'N', 0x00, 'P', 'N', 0x00, 'V', '1', 0x00, 0x78, 'Y', 'A', 0x01, 'z'},
        {0x82, 0x01, 0x00, 'x', 0x90, 0x03, 0x00, 'V', '1', 0x03, 'F', 'F', 'V'},
        {0x78, 0x82, 0x02, 0x00, 'a', 'b', 0x90, 0x04, 0x00, 'V', '9'},
        {0x82, 0x03, 0x00, 'a', 'b', 'c', 0x90, 0x06, 0x00, 'R', 'V', 0x00, 'S', 'N', 0x00, 0x78},
    };
    for (size_t cut = 0; cut < good.size(); cut += 3) inputs.emplace_back(good.begin(), good.begin() + long(cut));
    for (const Bytes &in : inputs) {
        const size_t n = in.size();
        std::unique_ptr<uint8_t[]> buf(new uint8_t[n ? n : 1]);
        if (n) std::memcpy(buf.get(), in.data(), n);
        uint8_t *p = n ? buf.get() : nullptr;
        VPDInfo info;
        const uint32_t rc = vtfuGetVPDInfoFromBuf(p, uint32_t(n), &info);
        EXPECT_LE(info.count, uint32_t(VTFU_VPD_MAX_ENTRIES));
        EXPECT_EQ(rc == 0, info.count > 0);
        for (uint32_t i = 0; i < info.count; ++i)
            EXPECT_LT(strnlen(info.entries[i].field, sizeof info.entries[i].field), sizeof info.entries[i].field);
        PrintVPD(p, uint32_t(n));
        if (n) vtfuIsBlankVpd(p, uint32_t(n));
        const Bytes before(p, p + n);
        const uint32_t up = vtfuUpdateVpdField(p, uint32_t(n), "SN", reinterpret_cast<const uint8_t *>("12"), 2);
        if (up != 0) {
            EXPECT_EQ(Bytes(p, p + n), before);
        }
    }
    // Zero-length keywords are read one after another, and a 0x78 keyword
    // byte ends the section.
    VPDInfo info = Parse(inputs[7]);
    EXPECT_EQ(info.count, 4u);
    EXPECT_EQ(Field(info, "V1"), "");
    // The identifier length runs past the end: what is there is taken.
    EXPECT_STREQ(Parse(inputs[3]).entries[0].field, "Ax");
    // The value of a truncated entry is cut at the end of the buffer, and the
    // synthetic RM takes no piece beyond it.
    info = Parse(inputs[8]);
    EXPECT_EQ(Field(info, "V1"), "FFV");
    EXPECT_EQ(Field(info, "RM"), "..");
    // The block begins at the first 0x82, wherever it is.
    EXPECT_STREQ(Parse(inputs[9]).entries[0].field, "ab");
    // A zero-length RV cannot hold the checksum.
    Bytes zeroRv = inputs[10];
    EXPECT_EQ(Update(zeroRv, "SN", ""), 13u);
}

// Every card of the default simulated host: the VPD read through the
// device-management library parses, names the card, and can be edited.
TEST(VpdSimulatedHost, EveryCardParses) {
    vttest::SysrootScope root;
    std::ifstream hostFile(vttest::BuildPath("data/default_host.json"));
    const nlohmann::json host = nlohmann::json::parse(hostFile);
    std::set<std::string> serials;
    uint32_t instance = 0;
    for (;; ++instance) {
        uint32_t handle = 0;
        const uint32_t rc = SDOpenDevice(instance, &handle);
        if (rc == SDERR_NO_SUCH_DEVICE) break;
        ASSERT_EQ(rc, SDERR_NONE);
        uint32_t size = 0;
        EXPECT_EQ(SDGetVpd(handle, nullptr, &size), SDERR_BUFFER_TOO_SMALL);
        Bytes vpd(size);
        ASSERT_EQ(SDGetVpd(handle, vpd.data(), &size), SDERR_NONE);
        SDCloseDevice(handle);

        EXPECT_EQ(vtfuIsBlankVpd(vpd.data(), size), 0u);
        const Check k = Inspect(vpd, size);
        EXPECT_TRUE(k.wellFormed && k.rvFound && k.sum == 0) << instance;
        uint32_t prc = 1;
        const VPDInfo info = Parse(vpd, &prc);
        ASSERT_EQ(prc, 0u);
        const std::string serial = Field(info, "SN");
        const nlohmann::json *card = nullptr;
        for (const auto &c : host["cards"])
            if (c["serial"] == serial) card = &c;
        ASSERT_NE(card, nullptr) << serial;
        serials.insert(serial);
        EXPECT_EQ(info.entries[0].field, (*card)["description"].get<std::string>());
        EXPECT_EQ(Field(info, "PN"), (*card)["model"].get<std::string>());
        if (card->contains("vpd")) {
            for (const auto &[key, value] : (*card)["vpd"].items()) {
                EXPECT_EQ(Field(info, key.c_str()), value.get<std::string>()) << serial << " " << key;
            }
        }
        const std::string multiboot = (*card)["option_rom"]["multiboot"];
        EXPECT_EQ(Field(info, "RM"), multiboot);
        gVpdMultiBootVersion[0] = '\0';
        PrintVPD(vpd.data(), size);
        EXPECT_EQ(std::string(gVpdMultiBootVersion), multiboot);

        Bytes edited = vpd;
        edited.resize(size + 16);
        ASSERT_EQ(Update(edited, "SN", serial + "-R"), 0u);
        const Check e = Inspect(edited, edited.size());
        EXPECT_TRUE(e.wellFormed && e.rvFound && e.sum == 0);
        EXPECT_EQ(Field(Parse(edited), "SN"), serial + "-R");
    }
    EXPECT_GT(instance, 0u);
    EXPECT_EQ(serials.size(), host["cards"].size());
}

}  // namespace
