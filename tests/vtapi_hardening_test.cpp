// What a local user or a hostile host can do to the library and the tool
// running as root: files planted at the shared paths, untrusted property
// files, allocation failures under exported functions, control characters in
// device text, and an output that cannot be written.
#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "oss/oss.h"
#include "testutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "vtapi_cli.h"

namespace {
std::atomic<bool> g_failAllocation{false};
}  // namespace

// Replaces the device-management call under VTAPI_GetHbaDevicePortProperty
// (and discovery): while g_failAllocation is set it runs out of memory.
extern "C" uint32_t SDGetHbaDevicePortProperty(uint32_t handle, SDPortProperty *property) {
    if (g_failAllocation) throw std::bad_alloc();
    using Real = uint32_t (*)(uint32_t, SDPortProperty *);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "SDGetHbaDevicePortProperty"));
    return real(handle, property);
}

namespace {

constexpr int32_t kTraceInfo = 1;
constexpr int32_t kTraceAll = 0xF;

uid_t Nobody() {
    const passwd *pw = getpwnam("nobody");
    return pw != nullptr ? pw->pw_uid : 65534;
}

// Bytes waiting in a FIFO (read without blocking).
std::string Drain(int fd) {
    std::string data;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) data.append(buffer, static_cast<size_t>(n));
    return data;
}

class HardeningTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("VTSDM_HOST", vttest::BuildPath("data/default_host.json").c_str(), 1);
        messages_ = sysroot_.path("/var/tmp/vtapi.log");
        previous_ = sysroot_.path("/var/tmp/vtapi_prev.log");
        hbaConf_ = sysroot_.path("/etc/hba.conf");
        outside_ = sysroot_.path("/tmp/outside");
        vttest::WriteFile(outside_, "outside\n");
    }
    void TearDown() override { VTAPI_Uninitialize(); }

    // A FIFO at `path` with a reader held open, so that a non-blocking
    // writer's open would succeed; returns the reader.
    int PlantFifo(const std::string &path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0666), 0) << path;
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        EXPECT_GE(reader, 0);
        return reader;
    }
    // A file that user nobody owns; returns a descriptor that still reads it
    // after the library has replaced it.
    int PlantForeign(const std::string &path) {
        vttest::WriteFile(path, "planted\n");
        EXPECT_EQ(chown(path.c_str(), Nobody(), Nobody()), 0);
        return open(path.c_str(), O_RDONLY);
    }

    vttest::SysrootScope sysroot_;
    std::string messages_, previous_, hbaConf_, outside_;
};

TEST_F(HardeningTest, PlantedFifosLinksAndForeignFilesAreNeverWrittenThrough) {
    // FIFOs with readers at the messages file and /etc/hba.conf, a foreign
    // file at the previous messages file.
    const int messagesFifo = PlantFifo(messages_);
    const int hbaFifo = PlantFifo(hbaConf_);
    const int foreignPrevious = PlantForeign(previous_);
    ASSERT_EQ(VTAPI_Initialize(kTraceAll, nullptr), VTAPI_SUCCESS);
    EXPECT_EQ(Drain(messagesFifo), "");
    EXPECT_EQ(Drain(hbaFifo), "");
    EXPECT_EQ(Drain(foreignPrevious), "planted\n");
    struct stat st {};
    ASSERT_EQ(lstat(hbaConf_.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "a FIFO at /etc/hba.conf is left alone";
    // The messages file moved aside was the FIFO; a new regular one is ours.
    ASSERT_EQ(lstat(previous_.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    ASSERT_EQ(lstat(messages_.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_uid, geteuid());
    for (int fd : {messagesFifo, hbaFifo, foreignPrevious}) close(fd);
    VTAPI_Uninitialize();

    // Links at every path, pointing at a file of the test.
    for (const std::string &path : {messages_, previous_, hbaConf_}) {
        std::filesystem::remove(path);
        std::filesystem::create_symlink(outside_, path);
    }
    ASSERT_EQ(VTAPI_Initialize(kTraceAll, nullptr), VTAPI_SUCCESS);
    EXPECT_EQ(vttest::ReadFile(outside_), "outside\n");
    VTAPI_Uninitialize();

    // Foreign files at the messages file and /etc/hba.conf: replaced by
    // files of ours, theirs untouched, and the replacement noted.
    for (const std::string &path : {messages_, previous_, hbaConf_}) std::filesystem::remove(path);
    const int foreignHba = PlantForeign(hbaConf_);
    ASSERT_EQ(VTAPI_Initialize(kTraceAll, nullptr), VTAPI_SUCCESS);
    const int foreignMessages = PlantForeign(messages_);
    VTAPI_GetAdapterCount();  // logs a line into the messages file
    EXPECT_EQ(Drain(foreignHba), "planted\n");
    EXPECT_EQ(Drain(foreignMessages), "planted\n");
    for (const std::string &path : {messages_, hbaConf_}) {
        ASSERT_EQ(lstat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_uid, geteuid()) << path;
    }
    EXPECT_NE(vttest::ReadFile(hbaConf_).find("libvtsdm"), std::string::npos) << vttest::ReadFile(hbaConf_);
    EXPECT_NE(vttest::ReadFile(messages_).find("Warning: Replaced a messages file"), std::string::npos);
    close(foreignHba);
    close(foreignMessages);
}

TEST_F(HardeningTest, AFifoRacingTheMessagesFileRenameNeverBlocksInitialization) {
    // A thread replaces whatever is at the messages path by a FIFO (with a
    // reader each) as fast as it can while the library moves the file aside,
    // starts a new one and logs into it, again and again.
    std::atomic<bool> stop{false};
    std::vector<int> readers;
    std::thread planter([&] {
        while (!stop && readers.size() < 400) {
            unlink(messages_.c_str());
            if (mkfifo(messages_.c_str(), 0666) == 0) {
                // The library may have moved the FIFO aside and started a
                // new messages file before this open: only FIFOs are kept.
                const int fd = open(messages_.c_str(), O_RDONLY | O_NONBLOCK);
                struct stat st {};
                if (fd >= 0 && fstat(fd, &st) == 0 && S_ISFIFO(st.st_mode)) readers.push_back(fd);
                else if (fd >= 0) close(fd);
            }
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(VTAPI_Initialize(kTraceInfo, nullptr), VTAPI_SUCCESS);
        VTAPI_Uninitialize();
    }
    stop = true;
    planter.join();
    EXPECT_FALSE(readers.empty());
    for (int fd : readers) {
        EXPECT_EQ(Drain(fd), "");
        close(fd);
    }
}

TEST_F(HardeningTest, OnlyARootOrOwnPropertyFileUnwritableByOthersCounts) {
    const std::string dir = sysroot_.path("/opt/install/");
    std::filesystem::create_directories(dir);
    const std::string file = dir + "tgcli.properties";
    vttest::WriteFile(file, "node.hba.virtual.vport.enable=1\n");
    TarnSetInstallationDir(dir.c_str(), static_cast<int32_t>(dir.size() + 1));
    TarnSetReferenceFile();

    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 1);
    ASSERT_EQ(chmod(file.c_str(), 0664), 0);  // group-writable
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 0);
    ASSERT_EQ(chmod(file.c_str(), 0646), 0);  // world-writable
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 0);
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    ASSERT_EQ(chown(file.c_str(), Nobody(), Nobody()), 0);  // another user's
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 0);

    // A FIFO under the name is skipped without blocking.
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0644), 0);
    EXPECT_EQ(TarnPreferenceGetKeyValue("node.hba.virtual.vport.enable", 0), 0);
}

TEST_F(HardeningTest, CriticalSectionKnowsWhenItIsHeld) {
    ASSERT_EQ(OSSInitCriticalSection(), 0u);
    ASSERT_EQ(OSSEnterCriticalSection(), 0);
    EXPECT_NE(OSSDeleteCriticalSection(), 0u) << "deleting a held section fails";
    EXPECT_NE(g_ossCriticalSection, nullptr);
    // Held by another thread: the same.
    ASSERT_EQ(OSSLeaveCriticalSection(), 0);
    std::atomic<bool> entered{false}, release{false};
    std::thread holder([&] {
        OSSEnterCriticalSection();
        entered = true;
        while (!release) std::this_thread::yield();
        OSSLeaveCriticalSection();
    });
    while (!entered) std::this_thread::yield();
    EXPECT_NE(OSSDeleteCriticalSection(), 0u);
    release = true;
    holder.join();
    EXPECT_EQ(OSSDeleteCriticalSection(), 0u);
    EXPECT_EQ(g_ossCriticalSection, nullptr);
}

TEST_F(HardeningTest, AllocationFailureUnderAnExportedCallIsStatus115) {
    ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
    SDPortProperty property{};
    ASSERT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &property), VTAPI_SUCCESS);
    g_failAllocation = true;
    EXPECT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &property), 115u);
    // Discovery under VTAPI_Initialize, which holds the access mutex: the
    // failure releases it (another thread can take it at once).
    VTAPI_Uninitialize();
    EXPECT_EQ(VTAPI_Initialize(0, nullptr), 115u);
    g_failAllocation = false;
    uint32_t locked = 1;
    std::thread([&] {
        const int32_t id = getVTAPIMutexID();
        locked = vtapi_LockAccessMutex(id, 100);
        if (locked == 0) vtapi_UnlockAccessMutex(id);
    }).join();
    EXPECT_EQ(locked, 0u);
    ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
    EXPECT_EQ(VTAPI_GetHbaDevicePortProperty(0, 0, &property), VTAPI_SUCCESS);

    // The command line: a failure in the core's start-up is the command's
    // status.  In a child, which ends without the leak check: the device
    // being built when the allocation failed is lost.
    const pid_t pid = vttest::ForkChild();
    if (pid == 0) {
        g_failAllocation = true;
        char program[] = "tarncli", option[] = "-g";
        char *argv[] = {program, option, nullptr};
        _exit(static_cast<int>(RunFCCommandLine(2, argv) & 0xFF));
    }
    vttest::ChildGuard child(pid);
    const int st = child.Wait();
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 115) << st;
}

/* --------------------------------------------------------- the tool */

class ToolOutputTest : public HardeningTest {
protected:
    struct ToolResult {
        int status = -1;
        std::string err;
    };
    // tarncli with standard output on /dev/full; standard error captured.
    ToolResult ToFull(const std::vector<std::string> &args, const std::string &host) {
        int pipeFds[2];
        EXPECT_EQ(pipe(pipeFds), 0);
        const std::string tool = vttest::BuildPath("bin/tarncli");
        const std::string hostEnv = "VTSDM_HOST=" + host;
        std::vector<char *> argv{const_cast<char *>(tool.c_str())};
        for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            const int full = open("/dev/full", O_WRONLY);
            dup2(full, 1);
            dup2(pipeFds[1], 2);
            close(pipeFds[0]);
            putenv(const_cast<char *>(hostEnv.c_str()));
            execv(tool.c_str(), argv.data());
            _exit(127);
        }
        vttest::ChildGuard child(pid);
        close(pipeFds[1]);
        ToolResult result;
        char buffer[4096];
        ssize_t n;
        while ((n = read(pipeFds[0], buffer, sizeof buffer)) > 0) result.err.append(buffer, static_cast<size_t>(n));
        close(pipeFds[0]);
        result.status = child.Wait();
        return result;
    }

    vttest::RunResult Tarn(std::vector<std::string> args, const std::string &host) {
        args.insert(args.begin(), vttest::BuildPath("bin/tarncli"));
        return vttest::Run(args, {"VTSDM_HOST=" + host});
    }
};

TEST_F(ToolOutputTest, AFailedWriteOfTheReportIsAnError) {
    const std::string host = vttest::BuildPath("data/default_host.json");
    const vttest::RunResult ok = Tarn({"-z"}, host);
    ASSERT_EQ(ok.status, 0) << ok.err;
    for (const char *format : {"-j", "-x"}) {
        SCOPED_TRACE(format);
        const ToolResult r = ToFull({"-z", format}, host);
        EXPECT_TRUE(WIFEXITED(r.status) && WEXITSTATUS(r.status) != 0) << r.status;
        EXPECT_NE(r.err.find("Error: Unable to write the output to standard output"), std::string::npos) << r.err;
    }
    const ToolResult text = ToFull({"-z"}, host);
    EXPECT_TRUE(WIFEXITED(text.status) && WEXITSTATUS(text.status) != 0) << text.status;
    EXPECT_NE(text.err.find("No space left on device"), std::string::npos) << text.err;
}

TEST_F(ToolOutputTest, ControlCharactersOfDeviceTextAreShownEscaped) {
    std::string json = vttest::ReadFile(vttest::BuildPath("data/default_host.json"));
    const auto replace = [&json](const std::string &from, const std::string &to) {
        const size_t at = json.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        json.replace(at, from.size(), to);
    };
    replace("\"serial\": \"VTK24110A7\"", "\"serial\": \"VTK\\u001b[2J\\r10A7\"");
    // The first target's inquiry and its LUN 0 (the product the reports show).
    for (int i = 0; i < 2; ++i) replace("\"product\": \"ARRAY 8200\"", "\"product\": \"ARR\\u001b]0;x\\rAY\"");
    const std::string host = sysroot_.path("/host.json");
    vttest::WriteFile(host, json);

    const vttest::RunResult g = Tarn({"-g"}, host);
    ASSERT_EQ(g.status, 0) << g.err;
    EXPECT_NE(g.out.find("VTK\\x1b[2J\\x0d10A"), std::string::npos) << g.out;
    const vttest::RunResult t = Tarn({"-t"}, host);
    ASSERT_EQ(t.status, 0) << t.err;
    EXPECT_NE(t.out.find("ARR\\x1b]0;x\\x0dAY"), std::string::npos) << t.out;
    for (const std::string &out : {g.out, t.out}) {
        EXPECT_EQ(out.find('\x1b'), std::string::npos);
        EXPECT_EQ(out.find('\r'), std::string::npos);
    }
    const vttest::RunResult j = Tarn({"-t", "-j"}, host);
    ASSERT_EQ(j.status, 0) << j.err;
    EXPECT_NE(j.out.find("ARR\\u001b]0;x\\u000dAY"), std::string::npos) << j.out;
    // XML carries the text as it is.
    const vttest::RunResult x = Tarn({"-t", "-x"}, host);
    ASSERT_EQ(x.status, 0) << x.err;
    EXPECT_NE(x.out.find("ARR\x1b]0;x\rAY"), std::string::npos) << x.out;
}

}  // namespace
