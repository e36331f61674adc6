// The driver's parameter files: persistent-binding tokens read and written,
// the driver configuration file and its size limit, the option line of the
// module option files rewritten through the scratch file, the failover data
// entry points on the default host, and rewrites killed half-way.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "../drvfiles/drvfiles.h"
#include "crashloop.h"
#include "testutil.h"
#include "treeutil.h"
#include "vtapi.h"
#include "core/core.h"

namespace {
// Set in a child that is to die just before its new file is renamed into
// place, as a crash at the worst moment would.
bool gDieBeforeRename = false;
}  // namespace

extern "C" int renameat(int olddirfd, const char *oldpath, int newdirfd, const char *newpath) {
    if (gDieBeforeRename) raise(SIGKILL);
    using Fn = int (*)(int, const char *, int, const char *);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "renameat"));
    return real(olddirfd, oldpath, newdirfd, newpath);
}

namespace {

using vttest::Lines;
using vttest::ReadFile;
using vttest::SysrootScope;
using vttest::WriteFile;

const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kOtherPort[8] = {0x21, 0x00, 0x00, 0x0e, 0x1e, 0x6a, 0x10, 0x20};
const uint8_t kTargetNN[8] = {0x50, 0x0a, 0x09, 0x80, 0x00, 0x00, 0xa1, 0x00};
const uint8_t kTargetPN[8] = {0x50, 0x0a, 0x09, 0x81, 0x00, 0x00, 0xa1, 0x00};
const uint8_t kTapePN[8] = {0x50, 0x01, 0x10, 0xa0, 0x00, 0x01, 0x70, 0x01};

FoTargetData Target(uint8_t target, uint8_t di, const uint8_t *wwnn, const uint8_t *wwpn, uint32_t pid,
                    uint8_t control = 0) {
    FoTargetData d{};
    d.TargetNumber = target;
    d.DeviceInstance = di;
    std::memcpy(d.WWNN, wwnn, 8);
    std::memcpy(d.WWPN, wwpn, 8);
    d.PortId[0] = uint8_t(pid >> 16);
    d.PortId[1] = uint8_t(pid >> 8);
    d.PortId[2] = uint8_t(pid);
    d.Control = control;
    return d;
}

VtlapiTargetBinding Record(uint8_t target, uint8_t di, const uint8_t *wwnn, const uint8_t *wwpn, uint32_t pid,
                           uint8_t control) {
    VtlapiTargetBinding r;
    std::memset(&r, 0, sizeof r);
    r.Target = Target(target, di, wwnn, wwpn, pid, control);
    return r;
}

void SetLun(uint8_t *mask, uint32_t lun) { mask[lun / 8] = uint8_t(mask[lun / 8] | 1u << (lun % 8)); }
bool HasLun(const uint8_t *mask, uint32_t lun) { return (mask[lun / 8] >> (lun % 8)) & 1u; }

// An adapter's records in library-owned form.
VtlapiAdapterBindings Adapter(const uint8_t *wwpn, uint32_t instance, const std::vector<VtlapiTargetBinding> &records) {
    VtlapiAdapterBindings a{};
    std::memcpy(a.AdapterWWPN, wwpn, 8);
    a.AdapterInstance = instance;
    a.TargetCount = uint32_t(records.size());
    a.Targets = static_cast<VtlapiTargetBinding *>(std::malloc(records.size() * sizeof(VtlapiTargetBinding)));
    std::memcpy(a.Targets, records.data(), records.size() * sizeof(VtlapiTargetBinding));
    return a;
}

std::string Tokens(const VtlapiAdapterBindings &a, uint32_t flags) {
    uint32_t size = 0;
    EXPECT_EQ(vtlapi_set_data_to_line(&a, flags, nullptr, &size), SDERR_BUFFER_TOO_SMALL);
    std::string line(size, '\0');
    EXPECT_EQ(vtlapi_set_data_to_line(&a, flags, line.data(), &size), 0u);
    line.resize(size - 1);
    return line;
}

// ------------------------------------------------------------ binding tokens

TEST(BindingTokens, TargetsWithLunsAbove255ReadBackIntoIdenticalRecords) {
    std::vector<VtlapiTargetBinding> records;
    records.push_back(Record(0, 0, kTargetNN, kTargetPN, 0x0a0200, 0x01));
    for (uint32_t lun : {0u, 1u, 255u, 256u, 300u, 511u, 512u, 4095u, 16383u}) SetLun(records[0].PreferredLuns, lun);
    for (uint32_t lun : {2u, 257u, 8191u}) SetLun(records[0].DisabledLuns, lun);
    records.push_back(Record(5, 1, kTargetNN, kTapePN, 0, 0x00));  // no port ID, no LUNs
    records.push_back(Record(255, 255, kTapePN, kTargetPN, 0x010203, 0xff));
    SetLun(records[2].DisabledLuns, 16128);
    VtlapiAdapterBindings written = Adapter(kPort0, 3, records);
    const std::string line = Tokens(written, VTLAPI_WRITE_LUN_MASKS);

    // Numbered tokens for exactly the blocks that hold a LUN.
    for (const char *t : {"scsi-vta3-tgt-0-di-0-lun_preferred-256=", "scsi-vta3-tgt-0-di-0-lun_preferred-512=",
                          "scsi-vta3-tgt-0-di-0-lun_preferred-3840=", "scsi-vta3-tgt-0-di-0-lun_preferred-16128=",
                          "scsi-vta3-tgt-0-di-0-lun_disabled-256=", "scsi-vta3-tgt-0-di-0-lun_disabled-7936=",
                          "scsi-vta3-tgt-255-di-255-lun_disabled-16128="})
        EXPECT_NE(line.find(t), std::string::npos) << t;
    EXPECT_EQ(line.find("lun_preferred-768="), std::string::npos);
    EXPECT_EQ(line.find("scsi-vta3-tgt-5-di-1-pid="), std::string::npos);

    // Among a comment and another adapter's tokens, over several lines.
    const std::string text =
        "# persistent bindings\nscsi-vta1-adapter-port=2100000e1e6a1020\\;"
        "scsi-vta1-tgt-0-di-0-node=500a098000000a11\\;\n" +
        line + "\nscsi-vta1-adapter-port=2100000e1e6a1020\\;\n";
    VtlapiAdapterBindings read{};
    ASSERT_EQ(vtlapi_get_data_from_text(text.c_str(), kPort0, &read), 0u);
    ASSERT_EQ(read.TargetCount, 3u);
    for (uint32_t i = 0; i < 3; ++i)
        EXPECT_EQ(std::memcmp(&read.Targets[i], &records[i], sizeof(VtlapiTargetBinding)), 0) << "record " << i;
    read.AdapterInstance = 3;  // the instance is the writer's, not read back
    EXPECT_EQ(Tokens(read, VTLAPI_WRITE_LUN_MASKS), line) << "writing the records read gives the same tokens";

    VtlapiAdapterBindings other{};
    ASSERT_EQ(vtlapi_get_data_from_text(text.c_str(), kOtherPort, &other), 0u);
    EXPECT_EQ(other.TargetCount, 1u);
    vtlapi_free_bindings(&written);
    vtlapi_free_bindings(&read);
    vtlapi_free_bindings(&other);
}

TEST(BindingTokens, WrittenInTheirOrderWithTheirValueForms) {
    VtlapiTargetBinding r = Record(1, 0, kTargetNN, kTargetPN, 0x0a0200, 0x80);
    SetLun(r.PreferredLuns, 0);
    SetLun(r.PreferredLuns, 9);
    SetLun(r.DisabledLuns, 256);
    VtlapiAdapterBindings a = Adapter(kPort0, 0, {r});
    EXPECT_EQ(Tokens(a, VTLAPI_WRITE_LUN_MASKS),
              "scsi-vta0-adapter-port=21000024ff7c5010\\;"
              "scsi-vta0-tgt-1-di-0-node=500a09800000a100\\;"
              "scsi-vta0-tgt-1-di-0-port=500a09810000a100\\;"
              "scsi-vta0-tgt-1-di-0-pid=0a0200\\;"
              "scsi-vta0-tgt-1-di-0-preferred=0102\\;"
              "scsi-vta0-tgt-1-di-0-lun-disabled=00\\;"
              "scsi-vta0-tgt-1-di-0-lun_disabled-256=01\\;"
              "scsi-vta0-tgt-1-di-0-control=80\\;");
    // Without the driver's LUN masks no LUN token is written.
    EXPECT_EQ(Tokens(a, 0),
              "scsi-vta0-adapter-port=21000024ff7c5010\\;"
              "scsi-vta0-tgt-1-di-0-node=500a09800000a100\\;"
              "scsi-vta0-tgt-1-di-0-port=500a09810000a100\\;"
              "scsi-vta0-tgt-1-di-0-pid=0a0200\\;"
              "scsi-vta0-tgt-1-di-0-control=80\\;");
    char small[16];
    uint32_t size = sizeof small;
    EXPECT_EQ(vtlapi_set_data_to_line(&a, 0, small, &size), SDERR_BUFFER_TOO_SMALL);
    EXPECT_GT(size, sizeof small);
    vtlapi_free_bindings(&a);
}

TEST(BindingTokens, TokensThatAreIgnoredAndBlocksOf256) {
    VtlapiAdapterBindings a{};
    const std::string full(64, 'f');
    // A numbered block must start at a non-zero multiple of 256 within the masks.
    const std::vector<std::string> ignored = {"scsi-vta0-tgt-1-di-0-lun_disabled-0=" + full,
                                              "scsi-vta0-tgt-1-di-0-lun_disabled-300=ff",
                                              "scsi-vta0-tgt-1-di-0-lun_preferred-16384=ff",
                                              "scsi-vta0-tgt-1-di-0-node",
                                              "scsi-vta0-tgt-1-node=500a09800000a100",
                                              "scsi-vta0-di-0-node=500a09800000a100",
                                              "scsi-vta0-tgt-256-di-0-node=500a09800000a100",
                                              "scsi-vta0-tgt-1-di-0-node=500a0980",
                                              "scsi-vta0-tgt-1-di-0-pid=0a02zz",
                                              "scsi-vta0-tgt-1-di-0-colour=01",
                                              "vta0-tgt-1-di-0-node=500a09800000a100"};
    for (const std::string &bad : ignored)
        EXPECT_EQ(vtlapi_get_dev_data_from_token(bad.c_str(), &a), SDERR_NOT_FOUND) << bad;
    EXPECT_EQ(a.TargetCount, 0u) << "an ignored token adds no record";

    ASSERT_EQ(vtlapi_get_dev_data_from_token(("scsi-vta0-tgt-1-di-0-lun_disabled-256=" + full).c_str(), &a), 0u);
    ASSERT_EQ(a.TargetCount, 1u);
    const uint8_t *disabled = a.Targets[0].DisabledLuns;
    EXPECT_FALSE(HasLun(disabled, 255));
    EXPECT_TRUE(HasLun(disabled, 256));
    EXPECT_TRUE(HasLun(disabled, 511));
    EXPECT_FALSE(HasLun(disabled, 512));

    // Each new (target, device instance) is one more record.
    ASSERT_EQ(vtlapi_get_dev_data_from_token("scsi-vta0-tgt-1-di-0-node=500A09800000A100", &a), 0u);
    ASSERT_EQ(vtlapi_get_dev_data_from_token("scsi-vta0-tgt-1-di-1-port=500a09810000a100", &a), 0u);
    ASSERT_EQ(a.TargetCount, 2u);
    EXPECT_EQ(std::memcmp(a.Targets[0].Target.WWNN, kTargetNN, 8), 0);
    EXPECT_EQ(std::memcmp(a.Targets[1].Target.WWPN, kTargetPN, 8), 0);
    ASSERT_EQ(vtlapi_get_dev_data_from_token("scsi-vta9-adapter-port=21000024ff7c5010", &a), 0u);
    EXPECT_EQ(std::memcmp(a.AdapterWWPN, kPort0, 8), 0);
    vtlapi_free_bindings(&a);

    // Tokens before any adapter-port token and commented-out ones belong to
    // no adapter; blanks, tabs and line ends separate tokens too.
    const std::string text =
        "scsi-vta0-tgt-7-di-0-node=500a09800000a100\\;\n"
        "scsi-vta0-adapter-port=21000024ff7c5010\\;\n"
        "  # scsi-vta0-tgt-8-di-0-node=500a09800000a100\\;\n"
        "\tscsi-vta0-tgt-2-di-0-node=500a09800000a100 scsi-vta0-tgt-2-di-0-control=03\\;\n";
    VtlapiAdapterBindings read{};
    ASSERT_EQ(vtlapi_get_data_from_text(text.c_str(), kPort0, &read), 0u);
    ASSERT_EQ(read.TargetCount, 1u);
    EXPECT_EQ(read.Targets[0].Target.TargetNumber, 2);
    EXPECT_EQ(read.Targets[0].Target.Control, 3);
    vtlapi_free_bindings(&read);
}

// ------------------------------------------------------------ files on disk

class DriverFiles : public ::testing::Test {
protected:
    SysrootScope root_;
    std::string OptionFile() const { return root_.path("/etc/modprobe.conf"); }
    std::string Scratch() const { return root_.path("/tmp/vttmp.txt"); }
    // Temporary files left beside the option file.
    int Leftovers() const {
        int n = 0;
        for (const auto &e : std::filesystem::directory_iterator(root_.path("/etc")))
            n += e.path().filename().string().rfind(".modprobe.conf.vtnew-", 0) == 0;
        return n;
    }
};

TEST_F(DriverFiles, ADriverFileOf300000BytesIsReadAndOneOf300001IsNot) {
    std::vector<char> buffer(VTLAPI_DRVFILE_MAX + 1);
    uint32_t size = uint32_t(buffer.size());
    EXPECT_EQ(vtlapi_get_opt_from_file("vtfc", buffer.data(), &size), VTAPI_FILE_NOT_FOUND);

    WriteFile(root_.path("/etc/vtfc.conf"), std::string(VTLAPI_DRVFILE_MAX, 'x'));
    size = uint32_t(buffer.size());
    ASSERT_EQ(vtlapi_get_opt_from_file("vtfc", buffer.data(), &size), 0u);
    EXPECT_EQ(size, VTLAPI_DRVFILE_MAX);
    EXPECT_EQ(buffer[VTLAPI_DRVFILE_MAX], '\0');

    size = 1000;
    EXPECT_EQ(vtlapi_get_opt_from_file("vtfc", buffer.data(), &size), SDERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, VTLAPI_DRVFILE_MAX + 1);

    WriteFile(root_.path("/etc/vtfc.conf"), std::string(VTLAPI_DRVFILE_MAX + 1, 'x'));
    size = uint32_t(buffer.size());
    EXPECT_EQ(vtlapi_get_opt_from_file("vtfc", buffer.data(), &size), 0xFFFFFFFFu);
    // The module name is a file-name word, never a path.
    EXPECT_EQ(vtlapi_get_opt_from_file("../vtfc", buffer.data(), &size), SDERR_INVALID_PARAMETER);
}

TEST_F(DriverFiles, ACommentedOutOptionsLineIsKeptAndANewOneAppended) {
    const std::string before =
        "# module options\n#options vtfc old=1\n   # options vtfc old=2\nalias scsi_hostadapter vtfc";
    WriteFile(OptionFile(), before);
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc ConfigRequired=1"), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), before + "\noptions vtfc ConfigRequired=1\n");
    char line[128];
    ASSERT_EQ(vtlapi_get_drv_param_optline("vtfc", line, sizeof line), 0u);
    EXPECT_STREQ(line, "options vtfc ConfigRequired=1");

    // The line found now is the appended one, and it is replaced in place.
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc ConfigRequired=0"), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), before + "\noptions vtfc ConfigRequired=0\n");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(Scratch()))) << "the scratch file is removed";
    EXPECT_EQ(Leftovers(), 0);
}

TEST_F(DriverFiles, ARewriteKeepsEveryOtherLineTheOwnerAndTheMode) {
    const std::string head = "# generated\r\noptions other_mod a=1\r\n";
    const std::string tail = "\r\ninstall vtfc /sbin/modprobe --ignore-install vtfc\r\n\r\n# end";
    WriteFile(OptionFile(), head + "options vtfc ql=1 # keep me" + tail);
    ASSERT_EQ(chown(OptionFile().c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(OptionFile().c_str(), 0640), 0);
    ASSERT_EQ(vtlapi_set_drv_param("vtfc", "ql", "2"), 0u);
    ASSERT_EQ(vtlapi_set_drv_param("vtfc", "extra", "7"), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), head + "options vtfc ql=2 extra=7 # keep me" + tail);
    struct stat now {};
    ASSERT_EQ(stat(OptionFile().c_str(), &now), 0);
    EXPECT_EQ(now.st_uid, 1234u);
    EXPECT_EQ(now.st_gid, 5678u);
    EXPECT_EQ(now.st_mode & 07777, 0640u);

    char value[32];
    ASSERT_EQ(vtlapi_get_drv_param("vtfc", "ql", value, sizeof value), 0u);
    EXPECT_STREQ(value, "2");
    EXPECT_EQ(vtlapi_get_drv_param("vtfc", "missing", value, sizeof value), SDERR_NOT_FOUND);
    ASSERT_EQ(vtlapi_set_drv_param("vtfc", "ql", nullptr), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), head + "options vtfc extra=7 # keep me" + tail);
    EXPECT_EQ(vtlapi_set_drv_param("vtfc", "bad name", "1"), SDERR_INVALID_PARAMETER);
}

TEST_F(DriverFiles, TheFirstOptionFileThatOpensIsTheOneUsed) {
    char line[128];
    EXPECT_EQ(vtlapi_get_drv_param_optline("vtfc", line, sizeof line), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=1"), VTAPI_FILE_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(OptionFile())) << "no option file is created";

    WriteFile(OptionFile(), "options vtfc a=1\n");
    WriteFile(root_.path("/etc/modules.conf"), "options vtfc a=3\n");
    WriteFile(root_.path("/etc/modprobe.conf.local"), "alias x y\n");
    EXPECT_EQ(vtlapi_get_drv_param_optline("vtfc", line, sizeof line), SDERR_NOT_FOUND);
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=2"), 0u);
    EXPECT_EQ(ReadFile(root_.path("/etc/modprobe.conf.local")), "alias x y\noptions vtfc a=2\n");
    EXPECT_EQ(ReadFile(OptionFile()), "options vtfc a=1\n");
    EXPECT_EQ(ReadFile(root_.path("/etc/modules.conf")), "options vtfc a=3\n");
}

TEST_F(DriverFiles, TheScratchFileNeverFollowsALinkAndOneThatCannotBeWrittenLeavesTheOptionFile) {
    const std::string before = "options vtfc a=1\n";
    WriteFile(OptionFile(), before);
    WriteFile(root_.path("/victim"), "victim\n");
    ASSERT_EQ(symlink(root_.path("/victim").c_str(), Scratch().c_str()), 0);
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=2"), 0u);
    EXPECT_EQ(ReadFile(root_.path("/victim")), "victim\n");
    EXPECT_EQ(ReadFile(OptionFile()), "options vtfc a=2\n");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(Scratch())));

    // A directory where the scratch file goes cannot be replaced.
    std::filesystem::create_directories(Scratch() + "/inside");
    struct stat old {};
    ASSERT_EQ(stat(OptionFile().c_str(), &old), 0);
    EXPECT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=3"), 0xFFFFFFFFu);
    struct stat now {};
    ASSERT_EQ(stat(OptionFile().c_str(), &now), 0);
    EXPECT_EQ(ReadFile(OptionFile()), "options vtfc a=2\n");
    EXPECT_EQ(now.st_ino, old.st_ino);
    EXPECT_EQ(Leftovers(), 0);
}

TEST_F(DriverFiles, AnOptionFileThatIsALinkIsNotRewritten) {
    WriteFile(root_.path("/etc/real.conf"), "options vtfc a=1\n");
    ASSERT_EQ(symlink("real.conf", OptionFile().c_str()), 0);
    char line[64];
    ASSERT_EQ(vtlapi_get_drv_param_optline("vtfc", line, sizeof line), 0u) << "reading follows the link";
    EXPECT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=2"), 0xFFFFFFFFu);
    EXPECT_EQ(ReadFile(root_.path("/etc/real.conf")), "options vtfc a=1\n");
    EXPECT_TRUE(std::filesystem::is_symlink(OptionFile()));
}

TEST_F(DriverFiles, ARewriteKilledAtAnyPointLeavesTheOptionFileWhollyOldOrNew) {
    // Long lines, so that a rewrite takes a while.
    const std::string head = "# options of the FC driver\n" + std::string(8000, '#') + "\n";
    const std::string tail = "alias scsi_hostadapter vtfc\n" + std::string(20000, '#') + "\n";
    const std::string lineA = "options vtfc a=" + std::string(4000, 'A');
    const std::string lineB = "options vtfc b=" + std::string(6000, 'B');
    const std::string textA = head + lineA + "\n" + tail, textB = head + lineB + "\n" + tail;
    WriteFile(OptionFile(), textA);
    ASSERT_EQ(chown(OptionFile().c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(OptionFile().c_str(), 0640), 0);
    int wholeA = 0, wholeB = 0, interrupted = 0;
    vttest::KillWhileRewriting(
        200, [&](unsigned i) { vtlapi_set_drv_param_optline("vtfc", (i % 2 ? lineA : lineB).c_str()); },
        [&](int run) {
            const std::string text = ReadFile(OptionFile());
            ASSERT_TRUE(text == textA || text == textB) << "run " << run << ": " << text.size() << " bytes";
            ++(text == textA ? wholeA : wholeB);
            interrupted += Leftovers() > 0;
            struct stat st {};
            ASSERT_EQ(stat(OptionFile().c_str(), &st), 0);
            ASSERT_EQ(st.st_uid, 1234u);
            ASSERT_EQ(st.st_mode & 07777, 0640u);
        });
    RecordProperty("old", wholeA);
    RecordProperty("new", wholeB);
    RecordProperty("killed_before_rename", interrupted);
    // What the killed writers left is cleared by the next rewrite.
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", lineA.c_str()), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), textA);
    EXPECT_EQ(Leftovers(), 0);
}

TEST_F(DriverFiles, ACrashJustBeforeTheRenameLeavesTheOldFile) {
    WriteFile(OptionFile(), "options vtfc a=1\n");
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        gDieBeforeRename = true;
        vtlapi_set_drv_param_optline("vtfc", "options vtfc a=2");
        _exit(0);
    }
    vttest::ChildGuard child(pid);
    // The child kills itself at the rename; reaping it is all that is left.
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    child.Kill();
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(ReadFile(OptionFile()), "options vtfc a=1\n");
    EXPECT_EQ(ReadFile(Scratch()), "options vtfc a=2\n") << "the dead process's scratch file stays";
    EXPECT_EQ(Leftovers(), 1);
    // The next rewrite is not disturbed by what the crash left, and removes
    // it; files of other names stay.
    WriteFile(root_.path("/etc/.modprobe.conf.backup"), "mine\n");
    WriteFile(root_.path("/etc/.modprobe.conf.vtnew-12345"), "mine\n");
    ASSERT_EQ(vtlapi_set_drv_param_optline("vtfc", "options vtfc a=3"), 0u);
    EXPECT_EQ(ReadFile(OptionFile()), "options vtfc a=3\n");
    EXPECT_EQ(Leftovers(), 1);
    EXPECT_EQ(ReadFile(root_.path("/etc/.modprobe.conf.backup")), "mine\n");
    EXPECT_EQ(ReadFile(root_.path("/etc/.modprobe.conf.vtnew-12345")), "mine\n");
}

// ------------------------------------------------- failover entry points

class FailoverData : public ::testing::Test {
protected:
    SysrootScope root_;
    void SetUp() override {
        WriteFile(root_.path("/etc/os-release"), "ID=testdistro\n");
        ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
    }
    void TearDown() override { VTAPI_Uninitialize(); }
};

TEST_F(FailoverData, BindingsAreSavedAmongTheOtherAdaptersAndLines) {
    SDMDevice *port = vttest::ListedPort(kPort0);
    ASSERT_NE(port, nullptr);
    const uint32_t h = port->DeviceHandle;
    const std::string comment = "# bindings of the FC driver\n";
    const std::string otherAdapter =
        "scsi-vta1-adapter-port=2100000e1e6a1020\\;scsi-vta1-tgt-0-di-0-node="
        "20000011c6004000\\;scsi-vta1-tgt-0-di-0-control=00\\;\n";
    const std::string conf = root_.path("/etc/vtfc.conf");
    WriteFile(conf, comment + otherAdapter);
    WriteFile(root_.path("/etc/modprobe.conf"), "options vtfc ql=1\n");
    ASSERT_EQ(chmod(conf.c_str(), 0600), 0);

    FoTargetData disk = Target(0, 0, kTargetNN, kTargetPN, 0x0a0200);
    FoTargetData tape = Target(1, 0, kTargetNN, kTapePN, 0x0a0300);
    ASSERT_EQ(ISDFoSetTargetData(h, &disk), 0u);
    ASSERT_EQ(ISDFoSetTargetData(h, &tape), 0u);
    FoLunData luns{};
    luns.TargetNumber = 0;
    SetLun(luns.PreferredLuns, 300);
    SetLun(luns.DisabledLuns, 2);
    ASSERT_EQ(ISDFoSetLunData(h, &luns), 0u);
    luns.TargetNumber = 9;
    EXPECT_EQ(ISDFoSetLunData(h, &luns), SDERR_NOT_FOUND) << "LUN masks need a bound target";

    auto lines = Lines(ReadFile(conf));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0] + "\n", comment);
    EXPECT_EQ(lines[1] + "\n", otherAdapter);
    EXPECT_EQ(lines[2].rfind("scsi-vta0-adapter-port=21000024ff7c5010\\;scsi-vta0-tgt-0-di-0-node=", 0), 0u);
    EXPECT_NE(lines[2].find("scsi-vta0-tgt-0-di-0-lun_preferred-256=000000000010\\;"), std::string::npos);
    struct stat st {};
    ASSERT_EQ(stat(conf.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(ReadFile(root_.path("/etc/modprobe.conf")),
              "options vtfc ql=1 ConfigRequired=1 vt2xuseextopts=/tmp/vttmp.txt\n");

    FoTargetData list[2];
    uint32_t count = 1;
    EXPECT_EQ(ISDFoGetPersistentTargetEntryList(h, list, &count), SDERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(ISDFoGetPersistentTargetEntryList(h, list, &count), 0u);
    EXPECT_EQ(std::memcmp(&list[0], &disk, sizeof disk), 0);
    EXPECT_EQ(std::memcmp(&list[1], &tape, sizeof tape), 0);
    FoLunData back{};
    ASSERT_EQ(ISDFoGetLunData(h, 0, 0, &back), 0u);
    EXPECT_TRUE(HasLun(back.PreferredLuns, 300));
    EXPECT_TRUE(HasLun(back.DisabledLuns, 2));
    EXPECT_FALSE(HasLun(back.PreferredLuns, 2));

    // Rebinding a target keeps its LUN masks.
    disk.Control = 0x40;
    ASSERT_EQ(ISDFoSetTargetData(h, &disk), 0u);
    FoTargetData one{};
    ASSERT_EQ(ISDFoGetTargetData(h, 0, 0, &one), 0u);
    EXPECT_EQ(one.Control, 0x40);
    ASSERT_EQ(ISDFoGetLunData(h, 0, 0, &back), 0u);
    EXPECT_TRUE(HasLun(back.PreferredLuns, 300));

    ASSERT_EQ(ISDFoDeletePersistentTargetEntry(h, 1, 0), 0u);
    EXPECT_EQ(ISDFoDeletePersistentTargetEntry(h, 1, 0), SDERR_NOT_FOUND);
    EXPECT_EQ(ISDFoGetTargetData(h, 1, 0, &one), SDERR_NOT_FOUND);
    ASSERT_EQ(ISDFoDeletePersistentDeviceEntry(h, kTargetPN), 0u);
    EXPECT_EQ(ReadFile(conf), comment + otherAdapter) << "with no binding left the adapter's tokens go";
    count = 2;
    ASSERT_EQ(ISDFoGetPersistentTargetEntryList(h, list, &count), 0u);
    EXPECT_EQ(count, 0u);
}

TEST_F(FailoverData, VirtualPortsAndDriversWithoutLunMasks) {
    const uint8_t vport[8] = {0x21, 0x04, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
    const uint8_t oldPort[8] = {0x21, 0x00, 0x00, 0x1b, 0x32, 0x53, 0x80, 0x30};
    SDMDevice *v = vttest::ListedPort(vport);
    SDMDevice *old = vttest::ListedPort(oldPort);
    ASSERT_NE(v, nullptr);
    ASSERT_NE(old, nullptr);
    FoTargetData t = Target(0, 0, kTargetNN, kTargetPN, 0);
    uint32_t count = 0;
    EXPECT_EQ(ISDFoGetPersistentTargetEntryList(v->DeviceHandle, nullptr, &count), SDERR_NOT_SUPPORTED);
    EXPECT_EQ(ISDFoSetTargetData(v->DeviceHandle, &t), SDERR_NOT_SUPPORTED);

    // The 8 Gb card's driver takes no LUN masks: no LUN token is written.
    ASSERT_EQ(ISDFoSetTargetData(old->DeviceHandle, &t), 0u);
    FoLunData luns{};
    EXPECT_EQ(ISDFoSetLunData(old->DeviceHandle, &luns), SDERR_NOT_SUPPORTED);
    const std::string text = ReadFile(root_.path("/etc/vtfc.conf"));
    EXPECT_NE(text.find("adapter-port=2100001b32538030\\;"), std::string::npos);
    EXPECT_EQ(text.find("preferred"), std::string::npos);
    EXPECT_EQ(text.find("disabled"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(root_.path("/etc/modprobe.conf"))) << "no option file is created";
}

}  // namespace
