// Installation directory, reference file and preference-file access of
// libvtapifconly.
#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

#include "testutil.h"
#include "oss/oss.h"

namespace {
struct LogLine {
    int type;
    std::string text;
};
std::vector<LogLine> g_log;
}  // namespace

// The library's command-line log calls land here.
extern "C" void TarnLogMessage(int32_t type, const char *format, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    g_log.push_back({type, text});
}

namespace {

using vttest::ReadFile;
using vttest::WriteFile;

bool Logged(int type, const std::string &text) {
    for (const auto &l : g_log)
        if (l.type == type && l.text == text) return true;
    return false;
}

class Prefs : public ::testing::Test {
protected:
    void SetUp() override { g_log.clear(); }
    // Points the reference file at <dir>/tgcli.properties.
    void UseDir(const std::string &dir) {
        const std::string withSlash = dir + "/";
        ASSERT_EQ(TarnSetInstallationDir(withSlash.c_str(), static_cast<int32_t>(withSlash.size() + 1)), 0u);
        TarnSetReferenceFile();
        ASSERT_EQ(std::string(TarnGetConfigFileName()), dir + "/tgcli.properties");
    }
    vttest::SysrootScope root_;
    vttest::TempDir dir_;
};

TEST_F(Prefs, DirectoriesKeepLengthMinusOneAndReferenceFileHasNoSeparator) {
    EXPECT_EQ(TarnSetInstallationDir("/opt/x/", 7), 0u);
    EXPECT_STREQ(TarnGetInstallationDir(), "/opt/x");
    TarnSetReferenceFile();
    EXPECT_STREQ(TarnGetConfigFileName(), "/opt/xtgcli.properties");
    EXPECT_STREQ(g_TarnConfigFileName, "/opt/xtgcli.properties");

    EXPECT_EQ(TarnSetInstallationDir(nullptr, 7), 0xFFFFFFFFu);
    EXPECT_STREQ(TarnGetInstallationDir(), "/opt/x");
    EXPECT_EQ(TarnSetInstallationDir("/opt/x/", 3), 0u);
    EXPECT_STREQ(TarnGetInstallationDir(), "/o");
    EXPECT_EQ(TarnSetInstallationDir("/opt/x/", 0), 0u);
    EXPECT_STREQ(TarnGetInstallationDir(), "");
    const std::string longDir(400, 'd');
    EXPECT_EQ(TarnSetInstallationDir(longDir.c_str(), 400), 0u);
    EXPECT_EQ(std::string(g_InstallationDir), longDir.substr(0, 259));

    EXPECT_EQ(TarnSetCurrentDir("/home/user", 11), 0u);
    EXPECT_STREQ(TarnGetCurrentDir(), "/home/user");
    EXPECT_EQ(TarnSetCurrentDir("/home/user", 10), 0u);
    EXPECT_STREQ(g_CurrentDir, "/home/use");
    EXPECT_EQ(TarnSetCurrentDir(nullptr, 10), 0xFFFFFFFFu);
    EXPECT_STREQ(TarnGetCurrentDir(), "/home/use");
}

TEST_F(Prefs, AliasAndExitCodeFilesDefaultToTheInstallationDirectory) {
    g_AliasFileName[0] = g_GlobalAliasFileName[0] = g_TarnExitCodesFileName[0] = '\0';
    TarnSetInstallationDir("/opt/x/", 7);
    EXPECT_STREQ(TarnGetAliasFileName(), "/opt/x/aliases.properties");
    EXPECT_STREQ(TarnGetGlobalAliasFileName(), "/opt/x/globalaliases.properties");
    EXPECT_STREQ(TarnGetExitCodesFileName(), "/opt/x/exitcodes.properties");
    // Once named, a file keeps its name.
    TarnSetInstallationDir("/srv/y/", 8);
    EXPECT_STREQ(TarnGetAliasFileName(), "/opt/x/aliases.properties");
    g_AliasFileName[0] = '\0';
    EXPECT_STREQ(TarnGetAliasFileName(), "/srv/y/aliases.properties");
}

TEST_F(Prefs, OpenPreferenceFileModes) {
    const std::string file = dir_.file("p.properties");
    struct Case {
        int mode;
        std::string after;
    };
    const Case cases[] = {{0, "abc\n"}, {1, "Xbc\n"}, {2, "X"}, {3, "X"}, {4, "abc\nX"}, {5, "abc\nX"}, {9, "Xbc\n"}};
    for (const auto &c : cases) {
        WriteFile(file, "abc\n");
        FILE *f = TarnOpenPreferenceFile(file.c_str(), c.mode);
        ASSERT_NE(f, nullptr) << c.mode;
        std::fputs("X", f);
        std::fclose(f);
        EXPECT_EQ(ReadFile(file), c.after) << c.mode;
    }
    EXPECT_TRUE(g_log.empty());

    const std::string missing = dir_.file("none/p.properties");
    EXPECT_EQ(TarnOpenPreferenceFile(missing.c_str(), 1), nullptr);
    ASSERT_EQ(g_log.size(), 1u);
    EXPECT_EQ(g_log[0].type, 100);
    const std::regex failed(
        "\\[vtapi/src/common/src/utils\\]\\[[0-9]+\\]\\[TarnOpenPreferenceFile\\]: "
        "Failed to open preference file\\[" +
        missing + "\\] \\| mode\\[r\\+\\] \\| errno\\[2\\]\\[No such file or directory\\]\\.");
    EXPECT_TRUE(std::regex_match(g_log[0].text, failed)) << g_log[0].text;

    EXPECT_EQ(TarnOpenPreferenceFile(nullptr, 0), nullptr);
    ASSERT_EQ(g_log.size(), 2u);
    EXPECT_TRUE(std::regex_match(
        g_log[1].text,
        std::regex("\\[vtapi/src/common/src/utils\\]\\[[0-9]+\\]\\[TarnOpenPreferenceFile\\]: Invalid arguments\\.")))
        << g_log[1].text;
}

TEST_F(Prefs, PrefGetPropertySplitsAtEqualsAndLineEnds) {
    const std::string file = dir_.file("p.properties");
    WriteFile(file, "node.a=1\r\nnode.b = 2\nx=node.c\nnode.c=3\nnode.e=node.e\nx=node.f=6\n");
    EXPECT_EQ(PrefOpenPreferenceFile(file.c_str()), nullptr);
    FILE *f = std::fopen(file.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char *a = PrefGetProperty(f, "node.a");
    ASSERT_NE(a, nullptr);
    EXPECT_STREQ(a, "1");
    EXPECT_EQ(PrefGetProperty(f, "node.b"), nullptr);   // blanks are part of the key
    EXPECT_STREQ(PrefGetProperty(f, "node.b "), " 2");  // and of the value
    EXPECT_STREQ(PrefGetProperty(f, "node.c"), "3");    // x=node.c has nothing after the key
    EXPECT_STREQ(PrefGetProperty(f, "node.e"), "node.e");
    char *v = PrefGetProperty(f, "node.f");  // a value equal to the key matches too
    EXPECT_STREQ(v, "6");
    EXPECT_LT(v - a, 512);  // one static buffer, overwritten by each read
    EXPECT_STRNE(a, "1");
    EXPECT_EQ(PrefGetProperty(f, "node.missing"), nullptr);
    std::fclose(f);
    EXPECT_TRUE(g_log.empty());

    EXPECT_EQ(PrefGetProperty(nullptr, "node.a"), nullptr);
    EXPECT_TRUE(Logged(3, "PrefGetProperty: Failed to open preference file (agent.properties)."));

    FILE *writeOnly = std::fopen(file.c_str(), "a");
    EXPECT_EQ(PrefGetProperty(writeOnly, "node.a"), nullptr);
    EXPECT_TRUE(Logged(3, "PrefGetProperty: Failed to read preference file."));
    std::fclose(writeOnly);
}

TEST_F(Prefs, TarnPrefGetPropertyCopiesTheValue) {
    const std::string file = dir_.file("p.properties");
    WriteFile(file, "node.a=alpha beta\nnode.empty=\nnode.b = 2\n");
    FILE *f = std::fopen(file.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char value[512];
    EXPECT_EQ(TarnPrefGetProperty(f, "node.a", value), 0u);
    EXPECT_STREQ(value, "alpha beta");
    std::strcpy(value, "old");
    EXPECT_EQ(TarnPrefGetProperty(f, "node.empty", value), 0u);
    EXPECT_STREQ(value, "");
    std::strcpy(value, "old");
    EXPECT_EQ(TarnPrefGetProperty(f, "node.b", value), 0xFFFFFFFFu);
    EXPECT_STREQ(value, "old");
    std::fclose(f);

    EXPECT_EQ(TarnPrefGetProperty(nullptr, "node.a", value), 1u);
    EXPECT_TRUE(Logged(3, "TarnPrefGetProperty: preferenceFile == NULL"));
    FILE *writeOnly = std::fopen(file.c_str(), "a");
    EXPECT_EQ(TarnPrefGetProperty(writeOnly, "node.a", value), 0xFFFFFFFFu);
    EXPECT_TRUE(Logged(3, "PrefGetProperty: Failed to read preference file."));
    std::fclose(writeOnly);
}

TEST_F(Prefs, ReferenceFileKeysAreDecimalNumbers) {
    UseDir(dir_.path());
    const std::string ref = dir_.file("tgcli.properties");
    WriteFile(ref,
              "node.hba.virtual.vport.enable=1\nnode.hba.virtual.qos.enable = 1\nnode.neg=-12abc\nnode.hex=0x10\n");
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 1);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.qos.enable", 0), 0);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.neg", 0), -12);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hex", 0), 0);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.absent", 0), 0);
    EXPECT_TRUE(Logged(100, "Config file=" + ref + " Key=node.hba.virtual.vport.enable Value=1"));

    // The installation-time name lacks the separator: <dir>/subtgcli.properties.
    const std::string sub = dir_.path() + "/sub/";
    TarnSetInstallationDir(sub.c_str(), static_cast<int32_t>(sub.size()));
    TarnSetReferenceFile();
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 0);
    EXPECT_TRUE(Logged(2, "Unable to open preference file (" + dir_.path() + "/subtgcli.properties)."));
    WriteFile(dir_.path() + "/subtgcli.properties", "node.hba.virtual.vport.enable=7\n");
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 7);
}

TEST_F(Prefs, AgentFileWritesAlwaysFail) {
    UseDir(dir_.path());
    const std::string ref = dir_.file("tgcli.properties");
    WriteFile(ref, "node.hba.virtual.vport.enable=1\n");
    EXPECT_EQ(TarnPreferenceSetKeyValue("node.hba.virtual.vport.enable", 0), 0xFFFFFFFFu);
    EXPECT_EQ(SetAppPathInPropertyFile("/opt/elsewhere"), 0xFFFFFFFFu);
    EXPECT_EQ(ReadFile(ref), "node.hba.virtual.vport.enable=1\n");
    EXPECT_TRUE(Logged(3, "Failed to open preference file (agent.properties)"));
    EXPECT_EQ(PrefSetProperty(nullptr, "node.x", "1"), 0xFFFFFFFFu);
}

TEST_F(Prefs, PrefSetPropertyRewritesInPlaceWithoutTruncating) {
    const std::string file = dir_.file("p.properties");
    WriteFile(file, "a=1\nnode.x=12345\nb=2\n");
    FILE *f = std::fopen(file.c_str(), "r+");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(PrefSetProperty(f, "node.x", "7"), 0u);
    std::fclose(f);
    EXPECT_EQ(ReadFile(file), "a=1\nnode.x=7\nb=2\nb=2\n");  // old tail stays

    WriteFile(file, "a=1\nnode.x=1\nc=node.x\n");
    f = std::fopen(file.c_str(), "r+");
    EXPECT_EQ(PrefSetProperty(f, "node.x", "long value"), 0u);
    EXPECT_EQ(PrefSetProperty(f, "node.new", "5"), 0u);
    std::fclose(f);
    EXPECT_EQ(ReadFile(file), "a=1\nnode.x=long value\nnode.x=long value\nnode.new=5\n");

    f = PrefOpenPreferenceFileWriteMode(file.c_str());  // truncates
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(PrefSetProperty(f, "node.k", "v"), 0u);
    EXPECT_EQ(PrefClosePreferenceFile(f), 0u);
    EXPECT_EQ(ReadFile(file), "node.k=v\n");
    EXPECT_EQ(PrefClosePreferenceFile(nullptr), 0u);
    EXPECT_TRUE(g_log.empty());

    f = std::fopen(file.c_str(), "r");
    EXPECT_EQ(PrefSetProperty(f, "node.k", "w"), 0xFFFFFFFFu);
    std::fclose(f);
    EXPECT_TRUE(Logged(3, "Failed to write to preference file!"));
    EXPECT_EQ(ReadFile(file), "node.k=v\n");

    const std::string bad = dir_.file("none/p.properties");
    EXPECT_EQ(PrefOpenPreferenceFileWriteMode(bad.c_str()), nullptr);
    EXPECT_TRUE(Logged(2, "PrefOpenPreferenceFile: Failed to open preference file for writing (" + bad + ")."));
}

TEST_F(Prefs, ReadKeyValueRules) {
    const std::string file = dir_.file("k.conf");
    WriteFile(file,
              "# comment\n"
              "\n"
              "   \n"
              "  Key1 = value1 # trailing\n"
              "key2:v2\n"
              "KEY3=alpha beta\n"
              "key4=\n"
              "   #key5=hidden\n"
              "key6   =    spaced#c\n"
              "key7 v7\n");
    char out[64];
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key1", out, sizeof out, '='), 1u);
    EXPECT_STREQ(out, "value1");
    EXPECT_TRUE(Logged(100, "ReadKeyValue(): pKey = Key1, key = key1"));
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key3", out, sizeof out, '='), 1u);
    EXPECT_STREQ(out, "alpha");
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key4", out, sizeof out, '='), 1u);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key5", out, sizeof out, '='), 0u);
    EXPECT_EQ(ReadKeyValue(file.c_str(), "#key5", out, sizeof out, '='), 0u);  // comments are skipped whole
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key6", out, sizeof out, '='), 1u);
    EXPECT_STREQ(out, "spaced");
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key2", out, sizeof out, '='), 0u);
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key2", out, sizeof out, ':'), 1u);
    EXPECT_STREQ(out, "v2");
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key7", out, sizeof out, ' '), 1u);
    EXPECT_STREQ(out, "v7");

    std::memset(out, 'Z', sizeof out);
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key1", out, 3, '='), 1u);
    EXPECT_EQ(std::string(out, 4), "valZ");  // at most `size` characters

    EXPECT_EQ(ReadKeyValue(dir_.file("missing").c_str(), "key1", out, sizeof out, '='), 0xFFFFFFFEu);
    EXPECT_EQ(ReadKeyValue(nullptr, "key1", out, sizeof out, '='), 0xFFFFFFFFu);
    EXPECT_EQ(ReadKeyValue(file.c_str(), nullptr, out, sizeof out, '='), 0xFFFFFFFFu);
    EXPECT_EQ(ReadKeyValue(file.c_str(), "key1", nullptr, sizeof out, '='), 0xFFFFFFFFu);
}

class CwdScope {
public:
    explicit CwdScope(const std::string &dir) : old_(getcwd(nullptr, 0)) { EXPECT_EQ(chdir(dir.c_str()), 0); }
    ~CwdScope() {
        EXPECT_EQ(chdir(old_), 0);
        std::free(old_);
    }

private:
    char *old_;
};

TEST_F(Prefs, InstallationDirectoryFromCurrentDirectoryOrDefault) {
    char real[PATH_MAX];
    ASSERT_NE(realpath(dir_.path().c_str(), real), nullptr);
    const std::string def = root_.path("/opt/Vantor_Corporation/PallwickCLI");
    CwdScope cwd(real);
    char out[260];
    EXPECT_EQ(GetAppInstallationDirectory(out, sizeof out), 0u);
    EXPECT_EQ(std::string(out), def);
    EXPECT_EQ(std::string(TarnGetConfigFileName()), def + "/tgcli.properties");
    EXPECT_TRUE(Logged(100, "GetAppInstallationDirectory: Default Config File=" + def + "/tgcli.properties"));
    EXPECT_TRUE(Logged(100, "GetAppInstallationDirectory: Installation Directory=" + def));

    WriteFile(std::string(real) + "/tgcli.properties", "node.a=1\n");
    g_log.clear();
    EXPECT_EQ(GetAppInstallationDirectory(out, sizeof out), 0u);
    EXPECT_STREQ(out, real);
    EXPECT_TRUE(Logged(100, std::string("GetAppInstallationDirectory: ptr=") + real));
    EXPECT_EQ(GetAppInstallationDirectory(out, 5), 0u);
    EXPECT_EQ(std::string(out), std::string(real).substr(0, 4));
}

TEST(PrefsChars, CommentCharacters) {
    EXPECT_TRUE(CoreIsCommentChar('!'));
    EXPECT_TRUE(CoreIsCommentChar('#'));
    for (int c : {int{';'}, int{' '}, int{'a'}, int{'='}, 0}) EXPECT_FALSE(CoreIsCommentChar(c)) << c;
}

}  // namespace
