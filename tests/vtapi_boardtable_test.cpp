// The enciphered board table file and its reader in libvtapifconly.
#include "idtable.h"
#include "testutil.h"
#include "core/boardtable.h"
#include "oss/oss.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

std::vector<std::string> gErrors;
std::vector<std::string> gDebug;

void Capture(std::vector<std::string> &to, const char *format, va_list ap) {
    char buf[1024];
    std::vsnprintf(buf, sizeof buf, format, ap);
    to.emplace_back(buf);
}

}  // namespace

// The library logs through these; the test's copies take precedence.
extern "C" void LogError(const char *, uint32_t, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    Capture(gErrors, format, ap);
    va_end(ap);
}
extern "C" void LogDebug(const char *, uint32_t, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    Capture(gDebug, format, ap);
    va_end(ap);
}

namespace {

using ListPtr = std::unique_ptr<SubSystemList, decltype(&FreeSubSystemList)>;

ListPtr Load(const std::string &path) { return ListPtr(BuildSubSystemListFromFile(path.c_str()), &FreeSubSystemList); }

std::string GeneratedPath() { return vttest::BuildPath("data/adapters_adapter_provider.properties"); }

std::string Hex4(uint16_t v) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "0x%04X", v);
    return buf;
}

bool ErrorMentions(const std::string &path, const std::string &what) {
    for (const auto &e : gErrors)
        if (e.find(path) != std::string::npos && e.find(what) != std::string::npos) return true;
    return false;
}

class BoardTable : public ::testing::Test {
protected:
    void SetUp() override {
        gErrors.clear();
        gDebug.clear();
        image_ = vttest::ReadFile(GeneratedPath());
        ASSERT_GT(image_.size(), 36u) << "the build did not generate " << GeneratedPath();
    }

    // Enciphers `body` with the generator into `name` under the temporary tree.
    std::string Seal(const std::string &name, const std::string &body) {
        const std::string bodyPath = dir_.file(name + ".txt");
        const std::string out = dir_.file(name);
        vttest::WriteFile(bodyPath, body);
        auto r = vttest::Run({vttest::BuildPath("tools/boardtable_gen"), out, bodyPath});
        EXPECT_EQ(r.status, 0) << r.err;
        return out;
    }

    std::string Write(const std::string &name, const std::string &data) {
        const std::string path = dir_.file(name);
        vttest::WriteFile(path, data);
        return path;
    }

    vttest::SysrootScope sysroot_;
    vttest::TempDir dir_;
    std::string image_;
};

TEST_F(BoardTable, GeneratedFileHoldsExactlyTheIdTableRows) {
    ListPtr list = Load(GeneratedPath());
    ASSERT_NE(list, nullptr);
    const auto &rows = vt::ids::BoardRows();
    ASSERT_EQ(list->Count, rows.size());
    const SubSystemRecord *rec = list->First;
    for (const auto &row : rows) {
        ASSERT_NE(rec, nullptr);
        EXPECT_EQ(std::string(rec->SSDID), Hex4(row.ssdid));
        EXPECT_EQ(std::string(rec->SSVID), Hex4(row.ssvid));
        EXPECT_STREQ(rec->ISP, row.isp);
        EXPECT_STREQ(rec->Desc, row.desc);
        EXPECT_STREQ(rec->Supported, row.supported);
        if (rec->next == nullptr) {
            EXPECT_EQ(list->Last, rec);
        }
        rec = rec->next;
    }
    EXPECT_EQ(rec, nullptr);
    EXPECT_TRUE(gErrors.empty());
}

TEST_F(BoardTable, GeneratedFileIsEncipheredAndReproducible) {
    EXPECT_EQ(image_.compare(0, 4, "VTBT"), 0);
    for (const auto &row : vt::ids::BoardRows()) EXPECT_EQ(image_.find(row.desc), std::string::npos) << row.desc;
    for (const char *word : {"SSDID", "SSVID", "Desc=", "Supported", "TRUE", "FALSE"})
        EXPECT_EQ(image_.find(word), std::string::npos) << word;

    // A second run of the generator writes the same bytes.
    auto r = vttest::Run({vttest::BuildPath("tools/boardtable_gen"), dir_.file("again")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(vttest::ReadFile(dir_.file("again")), image_);
}

TEST_F(BoardTable, FindMatchesBothIdsNumerically) {
    ListPtr list = Load(GeneratedPath());
    ASSERT_NE(list, nullptr);
    for (const auto &row : vt::ids::BoardRows()) {
        SubSystemRecord *rec = FindSubSystemInSubSystemList(list.get(), row.ssdid, row.ssvid);
        ASSERT_NE(rec, nullptr) << Hex4(row.ssvid) << "/" << Hex4(row.ssdid);
        EXPECT_STREQ(rec->Desc, row.desc);
    }
    // Known IDs in the wrong places, and unknown pairs.
    EXPECT_EQ(FindSubSystemInSubSystemList(list.get(), 0x1077, 0x0A16), nullptr);
    EXPECT_EQ(FindSubSystemInSubSystemList(list.get(), 0x0A16, 0x1E5A), nullptr);
    EXPECT_EQ(FindSubSystemInSubSystemList(list.get(), 0xFFFF, 0xFFFF), nullptr);
    EXPECT_EQ(FindSubSystemInSubSystemList(nullptr, 0x0A16, 0x1077), nullptr);
    FreeSubSystemList(nullptr);
}

TEST_F(BoardTable, SupportedTextEnablesAllButOneBoard) {
    ListPtr list = Load(GeneratedPath());
    ASSERT_NE(list, nullptr);
    std::vector<std::string> disabled;
    for (const SubSystemRecord *rec = list->First; rec; rec = rec->next)
        if (std::strstr(rec->Supported, "TRUE") == nullptr) disabled.push_back(rec->Desc);
    ASSERT_EQ(disabled.size(), 1u);
    const SubSystemRecord *old = FindSubSystemInSubSystemList(list.get(), 0x0050, 0x1077);
    ASSERT_NE(old, nullptr);
    EXPECT_STREQ(old->Supported, "FALSE");
    EXPECT_EQ(disabled[0], old->Desc);
    EXPECT_STREQ(FindSubSystemInSubSystemList(list.get(), 0x0A16, 0x1077)->Supported, "TRUE");
}

TEST_F(BoardTable, AnyFlippedBitMakesTheFileUnusable) {
    const std::string path = dir_.file("flipped");
    for (size_t i = 0; i < image_.size(); ++i) {
        std::string bad = image_;
        bad[i] = static_cast<char>(bad[i] ^ (1 << (i % 8)));
        vttest::WriteFile(path, bad);
        gErrors.clear();
        ASSERT_EQ(Load(path), nullptr) << "byte " << i;
        ASSERT_EQ(gErrors.size(), 1u) << "byte " << i;
        EXPECT_NE(gErrors[0].find(path), std::string::npos);
    }
    // The payload and tag bytes fail authentication.
    std::string bad = image_;
    bad[bad.size() - 1] ^= 0x80;
    gErrors.clear();
    EXPECT_EQ(Load(Write("tag", bad)), nullptr);
    EXPECT_TRUE(ErrorMentions(dir_.file("tag"), "damaged"));
}

TEST_F(BoardTable, TruncatedEmptyForeignAndMissingFilesGiveNull) {
    for (size_t len :
         {size_t{3}, size_t{7}, size_t{8}, size_t{20}, size_t{35}, size_t{36}, image_.size() / 2, image_.size() - 1}) {
        const std::string path = Write("cut" + std::to_string(len), image_.substr(0, len));
        EXPECT_EQ(Load(path), nullptr) << len;
        EXPECT_TRUE(ErrorMentions(path, len < 36 ? "truncated" : "damaged")) << len;
    }
    EXPECT_EQ(Load(Write("empty", "")), nullptr);
    EXPECT_TRUE(ErrorMentions(dir_.file("empty"), "empty"));

    std::string other = image_;
    other[0] = 'X';
    EXPECT_EQ(Load(Write("magic", other)), nullptr);
    EXPECT_TRUE(ErrorMentions(dir_.file("magic"), "not a board table"));
    other = image_;
    other[5] = 2;  // a later version
    EXPECT_EQ(Load(Write("version", other)), nullptr);
    EXPECT_TRUE(ErrorMentions(dir_.file("version"), "not a board table"));
    // A hand-written plain table is refused as well.
    EXPECT_EQ(Load(Write("plain", "SSDID=0x0A16;SSVID=0x1077;ISP=X;Desc=Y;Supported=TRUE\n")), nullptr);
    EXPECT_TRUE(ErrorMentions(dir_.file("plain"), "not a board table"));

    gErrors.clear();
    EXPECT_EQ(Load(dir_.file("absent")), nullptr);
    EXPECT_EQ(Load(dir_.path()), nullptr);  // a directory
    EXPECT_EQ(BuildSubSystemListFromFile(nullptr), nullptr);
    ASSERT_FALSE(gDebug.empty());
    EXPECT_NE(gDebug[0].find(dir_.file("absent")), std::string::npos);
}

TEST_F(BoardTable, BodySyntaxEscapesLimitsAndIdForms) {
    const std::string longDesc(200, 'd');
    const std::string path = Seal("custom",
                                  "\n"
                                  "Supported=TRUE;SSVID=4215;SSDID=0x0a16;ISP=A\\;B;Desc=x\\=1\\\\y\\nz;Extra=1\n"
                                  "\n"
                                  "SSDID=0X0001;SSVID=0x1077;Desc=" +
                                      longDesc +
                                      ";Supported=NOT TRUE\n"
                                      "SSDID=2;SSVID=0x1077\n");
    ListPtr list = Load(path);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->Count, 3u);
    SubSystemRecord *a = FindSubSystemInSubSystemList(list.get(), 0x0A16, 0x1077);
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a->ISP, "A;B");
    EXPECT_STREQ(a->Desc, "x=1\\y\nz");
    SubSystemRecord *b = FindSubSystemInSubSystemList(list.get(), 1, 0x1077);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(std::string(b->Desc), longDesc.substr(0, 127));
    EXPECT_NE(std::strstr(b->Supported, "TRUE"), nullptr);
    SubSystemRecord *c = FindSubSystemInSubSystemList(list.get(), 2, 0x1077);
    ASSERT_NE(c, nullptr);
    EXPECT_STREQ(c->Desc, "");
    EXPECT_STREQ(c->Supported, "");
    EXPECT_EQ(list->Last, c);

    ListPtr none = Load(Seal("nothing", ""));
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->Count, 0u);
    EXPECT_EQ(none->First, nullptr);
}

TEST_F(BoardTable, AuthenticBodyWithABadRecordIsRefused) {
    const std::string good = "SSDID=0x0A16;SSVID=0x1077;Supported=TRUE\n";
    for (const std::string bad :
         {"SSVID=0x1077;Desc=no id", "SSDID=0x1G;SSVID=0x1077", "SSDID=0x10000;SSVID=0x1077",
          "SSDID=1;SSVID=0x1077;Desc", "SSDID=1;SSVID=0x1077;Desc=a=b", "SSDID=1;SSVID=0x1077;Desc=x\\"}) {
        gErrors.clear();
        const std::string path = Seal("bad", good + bad + "\n");
        EXPECT_EQ(Load(path), nullptr) << bad;
        EXPECT_TRUE(ErrorMentions(path, "malformed record at line 2")) << bad;
    }
}

}  // namespace
