// SIGINT, SIGTERM and SIGHUP at random moments of a long report: the
// termination handler runs on its own thread and stops the command thread at
// a safe point before it frees the core, so no signal may abort the tool,
// hang it, run the cleanup twice or leave the terminal changed.
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "testutil.h"

namespace {

size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

bool SameTerminal(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

class SignalTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(openpty(&master_, &slave_, nullptr, nullptr, nullptr), 0);
        // Attributes the tool would not choose itself, so a restore to
        // anything else shows.
        termios t{};
        ASSERT_EQ(tcgetattr(slave_, &t), 0);
        t.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        t.c_cc[VMIN] = 3;
        ASSERT_EQ(tcsetattr(slave_, TCSANOW, &t), 0);
        // VTTEST_SIGNAL_HOST (a path under the source tree) chooses the
        // host; where loops are cut short (vttest::LoopRuns, the sanitizer
        // build) the tool runs slowly and a smaller host is the default.
        const char *host = std::getenv("VTTEST_SIGNAL_HOST");
        const char *fallback =
            vttest::LoopRuns(100) < 100 ? "data/hosts/fc_4x64x16.json" : "data/hosts/large_31x256x256.json";
        host_ = "VTSDM_HOST=" + vttest::SourcePath(host != nullptr ? host : fallback);
    }
    void TearDown() override {
        close(master_);
        close(slave_);
    }

    // Writes the reference file; with `trace` every line of the command-line
    // core goes to a trace file under /var/tmp.
    void Reference(bool trace) {
        vttest::WriteFile(
            sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"),
            trace ? "node.app.messages.trace.enable=1\nnode.app.messages.trace.file=/var/tmp/sig.log\n" : "");
    }

    // Starts `tarncli -l all` on the large host with the pseudo-terminal as
    // its standard input (and controlling terminal), output discarded and
    // standard error in a file.
    vttest::ChildGuard Start() {
        const std::string tool = vttest::BuildPath("bin/tarncli");
        const std::string errPath = sysroot_.path("/tmp/stderr");
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            setsid();
            ioctl(slave_, TIOCSCTTY, 0);
            const int out = open("/dev/null", O_WRONLY);
            const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(slave_, 0);
            dup2(out, 1);
            dup2(err, 2);
            putenv(const_cast<char *>(host_.c_str()));
            execl(tool.c_str(), tool.c_str(), "-l", "all", static_cast<char *>(nullptr));
            _exit(127);
        }
        return vttest::ChildGuard(pid);
    }

    std::string Trace() {
        std::string trace;
        for (const auto &e : std::filesystem::directory_iterator(sysroot_.path("/var/tmp")))
            if (e.path().filename().string().rfind("sig.", 0) == 0) trace += vttest::ReadFile(e.path());
        return trace;
    }
    void ClearTraces() {
        for (const auto &e : std::filesystem::directory_iterator(sysroot_.path("/var/tmp")))
            std::filesystem::remove(e.path());
    }

    vttest::SysrootScope sysroot_;
    int master_ = -1;
    int slave_ = -1;
    std::string host_;
};

TEST_F(SignalTest, RandomSignalsDuringALargeReportEndTheToolCleanly) {
    termios before{};
    ASSERT_EQ(tcgetattr(slave_, &before), 0);

    // One uninterrupted run sets the range of the random moments.
    Reference(false);
    const auto start = std::chrono::steady_clock::now();
    {
        vttest::ChildGuard child = Start();
        const int st = child.Wait();
        ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st << vttest::ReadFile(sysroot_.path("/tmp/stderr"));
    }
    const auto span = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);

    // Most moments fall in the first second and a half (start-up, loading
    // the host, discovery), which keeps the runs short; every twentieth run is
    // signalled anywhere in the command, its report included.
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<long> anywhere(0, span.count());
    std::uniform_int_distribution<long> early(0, std::min<long>(span.count(), 1500000));
    const int signals[] = {SIGINT, SIGTERM, SIGHUP};
    int handled = 0;
    // VTTEST_SIGNAL_RUNS sets the count where the tool runs slowly (the
    // ThreadSanitizer build); the sanitizer build's loop share lowers it too.
    const char *runsText = std::getenv("VTTEST_SIGNAL_RUNS");
    const int runs = runsText != nullptr ? std::atoi(runsText) : vttest::LoopRuns(100);
    for (int run = 0; run < runs; ++run) {
        // Every tenth run traces, so that the handler's lines can be counted
        // (tracing slows discovery down, so those runs are signalled there).
        const bool traced = run % 10 == 0;
        Reference(traced);
        ClearTraces();
        const int signum = signals[run % 3];
        const long delay = run % 20 == 5 ? anywhere(random) : early(random);
        SCOPED_TRACE("run " + std::to_string(run) + ", signal " + std::to_string(signum) + " after " +
                     std::to_string(delay) + " us");
        vttest::ChildGuard child = Start();
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
        kill(child.pid(), signum);
        const int st = child.Wait();
        const std::string err = vttest::ReadFile(sysroot_.path("/tmp/stderr"));

        // The handler ends the process with the status of the terminal
        // restore (0); before the handler exists the signal's default action
        // ends it; the report may also have finished first.
        EXPECT_TRUE((WIFEXITED(st) && WEXITSTATUS(st) == 0) || (WIFSIGNALED(st) && WTERMSIG(st) == signum))
            << st << "\n"
            << err;
        EXPECT_EQ(err.find("Sanitizer"), std::string::npos) << err;
        EXPECT_EQ(err.find("runtime error"), std::string::npos) << err;
        EXPECT_EQ(err.find("corrupted"), std::string::npos) << err;

        termios after{};
        ASSERT_EQ(tcgetattr(slave_, &after), 0);
        EXPECT_TRUE(SameTerminal(before, after));

        if (traced) {
            const std::string trace = Trace();
            const size_t caught = Count(trace, "Signal (" + std::to_string(signum) + ") caught...");
            EXPECT_LE(caught, 1u) << trace.substr(trace.size() > 4000 ? trace.size() - 4000 : 0);
            if (caught == 1) {
                ++handled;
                for (const char *line : {"Debug: Calling cleanup routine\n", "Debug: Shutting Down...\n",
                                         "Debug: CoreUnintialize done...\n", "Debug: FreeMyDeviceList done...\n",
                                         "Debug: cleanup: g_ResourcesDeallocated = 1\n"})
                    EXPECT_EQ(Count(trace, line), 1u) << line;
                EXPECT_EQ(Count(trace, "Debug: termination_handler: exit 0.\n"), 1u);
                EXPECT_EQ(Count(trace, "Already raised signal"), 0u);
            }
        }
    }
    // The traced runs are slow enough that the signal meets the handler.
    EXPECT_GT(handled, 0);
}

}  // namespace
