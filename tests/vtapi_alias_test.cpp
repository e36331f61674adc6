// Adapter and port aliases: the keys and files they live in, which file is
// read, their length limit and the single blank, rewrites that keep the
// rest of the file, and rewrites killed half-way.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "../cli/alias.h"
#include "crashloop.h"
#include "testutil.h"
#include "treeutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"
#include "oss/oss.h"

// The print hook of a command-line front end: collects the XML lines.
namespace {
std::string gPrinted;
}  // namespace
extern "C" void scfxPrint(const char *text) { gPrinted += text; }

namespace {

using vttest::ReadFile;
using vttest::SysrootScope;
using vttest::WriteFile;

const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kPort1[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x11};
const char kAdapterKey[] = "host.VTK24110A7.hba.alias";
const char kPortKey[] = "adapter.wwnn.20-00-00-24-FF-7C-50-10.wwpn.21-00-00-24-FF-7C-50-10.name";

// Alias files in the test's own tree, chosen before each test.
class Aliases : public ::testing::Test {
protected:
    SysrootScope root_;
    std::string global_ = root_.path("/opt/shared/globalaliases.properties");
    std::string local_ = root_.path("/opt/cli/aliases.properties");

    void SetUp() override {
        std::filesystem::create_directories(root_.path("/opt/shared"));
        std::filesystem::create_directories(root_.path("/opt/cli"));
        SetAliasPathVar(0);
        std::snprintf(g_GlobalAliasFileName, sizeof g_GlobalAliasFileName, "%s", global_.c_str());
        std::snprintf(g_AliasFileName, sizeof g_AliasFileName, "%s", local_.c_str());
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
        g_GlobalAliasFileName[0] = g_AliasFileName[0] = '\0';
    }
    void Start() {
        WriteFile(root_.path("/etc/os-release"), "ID=testdistro\n");
        ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
        started_ = true;
        // The library's start-up may not pick other alias files.
        ASSERT_EQ(std::string(TarnGetGlobalAliasFileName()), global_);
    }
    // A port record with the names of the default host's port 0.
    static SDMDevice Port0() {
        SDMDevice d;
        std::memset(&d, 0, sizeof d);
        std::memcpy(d.DeviceNodeProperty.WWNN, "\x20\x00\x00\x24\xff\x7c\x50\x10", 8);
        std::memcpy(d.DevicePortProperty.WWPN, kPort0, 8);
        std::strcpy(d.DeviceNodeProperty.SerialNumber, "VTK24110A7");
        std::strcpy(d.DeviceNodeProperty.Model, "VT2912");
        return d;
    }
    // What DisplayAdapterAlias prints; its status in displayStatus_.
    static inline uint32_t displayStatus_ = 0;
    static std::string Display(const SDMDevice *d, uint32_t type) {
        FILE *out = std::tmpfile();
        FILE *saved = g_fp;
        const int32_t silent = bSilent;  // the library's start-up silences the console
        g_fp = out;
        bSilent = 0;
        displayStatus_ = DisplayAdapterAlias(d, type);
        g_fp = saved;
        bSilent = silent;
        std::rewind(out);
        char text[1024] = "";
        const size_t n = std::fread(text, 1, sizeof text - 1, out);
        text[n] = '\0';
        std::fclose(out);
        return text;
    }

private:
    bool started_ = false;
};

TEST_F(Aliases, SetAndReadThroughTheApiUnderTheirKeys) {
    Start();
    ProtocolEntry *port = vttest::TreeEntry(kPort0);
    ASSERT_NE(port, nullptr);
    ASSERT_EQ(VTAPI_SetFCAdapterAlias(port, "rack 4 top", 0), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_SetFCAdapterAlias(port, "boot-path-a", 1), VTAPI_SUCCESS);
    EXPECT_EQ(ReadFile(global_), std::string(kAdapterKey) + "=rack 4 top\n" + kPortKey + "=boot-path-a\n");

    char alias[VTAPI_ALIAS_SIZE];
    ASSERT_EQ(VTAPI_GetFCAdapterAlias(port, alias, 0), VTAPI_SUCCESS);
    EXPECT_STREQ(alias, "rack 4 top");
    ASSERT_EQ(VTAPI_GetFCAdapterAlias(port, alias, 1), VTAPI_SUCCESS);
    EXPECT_STREQ(alias, "boot-path-a");
    // The other port of the card shares the adapter alias, not the port alias.
    ProtocolEntry *other = vttest::TreeEntry(kPort1);
    ASSERT_EQ(VTAPI_GetFCAdapterAlias(other, alias, 0), VTAPI_SUCCESS);
    EXPECT_STREQ(alias, "rack 4 top");
    ASSERT_EQ(VTAPI_GetFCAdapterAlias(other, alias, 1), VTAPI_SUCCESS);
    EXPECT_STREQ(alias, "");

    EXPECT_EQ(VTAPI_SetFCAdapterAlias(port, nullptr, 0), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_SetFCAdapterAlias(port, "a=b", 0), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_SetFCAdapterAlias(port, "two\nlines", 0), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetFCAdapterAlias(nullptr, alias, 0), VTAPI_INVALID_ARGUMENT);

    // Found by either alias wherever a port is chosen.
    EXPECT_EQ(TarnFindDeviceByAlias("boot-path-a"), GetSDMDevice(&port->Device));
    SDMDevice *byAdapter = TarnFindDeviceByAlias("rack 4 top");
    ASSERT_NE(byAdapter, nullptr);
    EXPECT_STREQ(GetAdapterSerialNo(byAdapter), "VTK24110A7");
    EXPECT_EQ(TarnFindDeviceByAlias("no such alias"), nullptr);
}

TEST_F(Aliases, ALocalCopyFollowsTheGlobalFileAndIsReadWithoutIt) {
    const SDMDevice port = Port0();
    ASSERT_EQ(SetAdapterAlias(&port, "first", 1), 0u);
    ASSERT_EQ(chmod(global_.c_str(), 0640), 0);
    ASSERT_EQ(chown(global_.c_str(), 1234, 5678), 0);
    ASSERT_EQ(SetAdapterAlias(&port, "second", 0), 0u);
    EXPECT_EQ(ReadFile(local_), ReadFile(global_));
    struct stat g {
    }, l{};
    ASSERT_EQ(stat(global_.c_str(), &g), 0);
    ASSERT_EQ(stat(local_.c_str(), &l), 0);
    EXPECT_EQ(l.st_mode & 07777, 0640u);
    EXPECT_EQ(l.st_uid, 1234u);
    EXPECT_EQ(l.st_gid, 5678u);
    EXPECT_EQ(l.st_mtim.tv_sec, g.st_mtim.tv_sec);
    EXPECT_EQ(l.st_mtim.tv_nsec, g.st_mtim.tv_nsec);

    char alias[VTAPI_ALIAS_SIZE];
    // Without a global file, or with one that holds no property, the local
    // file is read.
    WriteFile(local_, std::string(kPortKey) + "=from local\n");
    ASSERT_EQ(unlink(global_.c_str()), 0);
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 10);
    EXPECT_STREQ(alias, "from local");
    WriteFile(global_, "# nothing yet\n");
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 10);
    WriteFile(global_, std::string(kPortKey) + "=from global\n");
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 11);
    EXPECT_STREQ(alias, "from global");
}

TEST_F(Aliases, LengthLimitAndTheSingleBlank) {
    const SDMDevice port = Port0();
    char alias[VTAPI_ALIAS_SIZE];
    const std::string longest(256, 'x');
    ASSERT_EQ(SetAdapterAlias(&port, longest.c_str(), 1), 0u);
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 256);
    EXPECT_EQ(alias, longest);
    EXPECT_EQ(SetAdapterAlias(&port, (longest + "x").c_str(), 1), VTAPI_INVALID_ARGUMENT);
    WriteFile(global_, std::string(kPortKey) + "=" + longest + "y\n");
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 0) << "a stored alias of 257 characters is none";
    EXPECT_STREQ(alias, "");

    ASSERT_EQ(SetAdapterAlias(&port, "fabric A", 0), 0u);
    ASSERT_EQ(SetAdapterAlias(&port, "port one", 1), 0u);
    EXPECT_EQ(Display(&port, 0), "HBA alias 20:00:00:24:ff:7c:50:10 is fabric A\n");
    EXPECT_EQ(Display(&port, 1), "HBA port alias 21:00:00:24:ff:7c:50:10 is port one\n");
    // One blank is stored and read back, but shown as no alias: that is how
    // an alias is cleared.
    ASSERT_EQ(DeleteAdapterAlias(&port, 0), 0u);
    ASSERT_EQ(SetAdapterAlias(&port, " ", 1), 0u);
    EXPECT_EQ(GetAdapterAlias(&port, alias, 1), 1);
    EXPECT_EQ(Display(&port, 0), "HBA 20:00:00:24:ff:7c:50:10 does not have an alias.\n");
    EXPECT_EQ(Display(&port, 1), "HBA 21:00:00:24:ff:7c:50:10 does not have a port alias.\n");
    // With XML output the alias element, empty for none.
    gPrinted.clear();
    bXmlOutPut = 1;
    ASSERT_EQ(SetAdapterAlias(&port, "<a&b>", 1), 0u);
    EXPECT_EQ(Display(&port, 1), "");
    EXPECT_EQ(Display(&port, 0), "");
    bXmlOutPut = 0;
    EXPECT_EQ(gPrinted, "        <PortAlias><a&b></PortAlias>\n        <HBAAlias></HBAAlias>\n");
    EXPECT_EQ(Display(nullptr, 0), "Error: Adapter not found!\n");
    EXPECT_EQ(displayStatus_, 8u);
}

TEST_F(Aliases, ARewriteKeepsTheOtherLinesOwnerAndMode) {
    const std::string before = "# aliases of this host\nnode.some.other.key=1\nhost.OTHER.hba.alias=keep me\n" +
                               std::string(kPortKey) + "=old\nlast.line=without end";
    WriteFile(global_, before);
    ASSERT_EQ(chmod(global_.c_str(), 0600), 0);
    ASSERT_EQ(chown(global_.c_str(), 1234, 5678), 0);
    const SDMDevice port = Port0();
    ASSERT_EQ(SetAdapterAlias(&port, "new", 1), 0u);
    EXPECT_EQ(ReadFile(global_), "# aliases of this host\nnode.some.other.key=1\nhost.OTHER.hba.alias=keep me\n" +
                                     std::string(kPortKey) + "=new\nlast.line=without end");
    // A shorter value leaves no tail of the longer one behind.
    ASSERT_EQ(SetAdapterAlias(&port, "", 1), 0u);
    EXPECT_EQ(ReadFile(global_), "# aliases of this host\nnode.some.other.key=1\nhost.OTHER.hba.alias=keep me\n" +
                                     std::string(kPortKey) + "=\nlast.line=without end");
    // A new alias after a last line without a line end goes on a line of its own.
    ASSERT_EQ(SetAdapterAlias(&port, "card", 0), 0u);
    EXPECT_EQ(ReadFile(global_), "# aliases of this host\nnode.some.other.key=1\nhost.OTHER.hba.alias=keep me\n" +
                                     std::string(kPortKey) + "=\nlast.line=without end\n" + kAdapterKey + "=card\n");
    struct stat st {};
    ASSERT_EQ(stat(global_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, 1234u);
    EXPECT_EQ(st.st_gid, 5678u);

    // An alias file that is a link is not written through.
    ASSERT_EQ(unlink(global_.c_str()), 0);
    WriteFile(root_.path("/victim"), "victim\n");
    ASSERT_EQ(symlink(root_.path("/victim").c_str(), global_.c_str()), 0);
    EXPECT_EQ(SetAdapterAlias(&port, "x", 1), 0xFFFFFFFFu);
    EXPECT_EQ(ReadFile(root_.path("/victim")), "victim\n");
}

TEST_F(Aliases, TheGlobalFileOfTheHostWhenAsked) {
    const std::string host = root_.path("/etc/vtapi/globalaliases.properties");
    ASSERT_EQ(TarnSetInstallationDir(root_.path("/opt/cli/").c_str(), 260), 0u);
    SetAliasPathVar(1);
    const SDMDevice port = Port0();
    ASSERT_EQ(SetAdapterAlias(&port, "host wide", 0), 0u);
    EXPECT_EQ(std::string(TarnGetGlobalAliasFileName()), host);
    EXPECT_EQ(ReadFile(host), std::string(kAdapterKey) + "=host wide\n");
    EXPECT_EQ(ReadFile(local_), ReadFile(host));
    SetAliasPathVar(0);
}

TEST_F(Aliases, ARewriteKilledAtAnyPointLeavesEachFileWhollyOldOrNew) {
    // Many other aliases, so that a rewrite takes a while.
    std::string others;
    for (int i = 0; i < 2000; ++i)
        others += "host.SERIAL" + std::to_string(i) + ".hba.alias=alias number " + std::to_string(i) + "\n";
    const std::string aliasA(200, 'A'), aliasB(120, 'B');
    const std::string textA = others + kAdapterKey + "=" + aliasA + "\n";
    const std::string textB = others + kAdapterKey + "=" + aliasB + "\n";
    WriteFile(global_, textA);
    WriteFile(local_, textA);
    const SDMDevice port = Port0();
    int bothNew = 0, split = 0;
    vttest::KillWhileRewriting(
        200, [&](unsigned i) { SetAdapterAlias(&port, (i % 2 ? aliasA : aliasB).c_str(), 0); },
        [&](int run) {
            const std::string g = ReadFile(global_), l = ReadFile(local_);
            ASSERT_TRUE(g == textA || g == textB) << "run " << run << ": global file of " << g.size() << " bytes";
            ASSERT_TRUE(l == textA || l == textB) << "run " << run << ": local file of " << l.size() << " bytes";
            bothNew += g == l;
            split += g != l;
        });
    RecordProperty("files_equal", bothNew);
    RecordProperty("killed_between_the_files", split);
}

}  // namespace
