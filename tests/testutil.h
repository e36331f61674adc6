// Helpers shared by the test programs.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vttest {

// A private directory tree, removed (recursively) on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    std::string file(const std::string &rel) const { return path_ + "/" + rel; }

private:
    std::string path_;
};

// Sets VTAPI_SYSROOT to a fresh temporary tree holding /etc, /tmp, /var/tmp
// and /var/lib for the lifetime of the object (the simulator's state then
// lives under it), restoring the old values.
class SysrootScope {
public:
    SysrootScope();
    ~SysrootScope();
    const std::string &root() const { return dir_.path(); }
    std::string path(const std::string &abs) const { return dir_.path() + abs; }

private:
    TempDir dir_;
    std::vector<std::pair<std::string, std::string>> saved_;
    std::vector<std::string> unset_;
};

std::string ReadFile(const std::string &path);
// The lines of a text, without their line ends.
std::vector<std::string> Lines(const std::string &text);
// Index of the first line at or after `from` that contains `needle`, or -1.
int FindLine(const std::vector<std::string> &lines, const std::string &needle, int from = 0);
void WriteFile(const std::string &path, const std::string &data);
std::string SourcePath(const std::string &rel);  // under the source tree
std::string BuildPath(const std::string &rel);   // under the build tree

// Runs a program with arguments and extra environment entries; returns the
// exit status (or 128+signal) and captures stdout and stderr.
struct RunResult {
    int status = -1;
    std::string out;
    std::string err;
};
RunResult Run(const std::vector<std::string> &argv, const std::vector<std::string> &extraEnv = {});

// A child process of the test.  When the guard goes out of scope, however
// the test leaves (a failed ASSERT returns early), the child is killed with
// SIGKILL and reaped, so no process outlives the test.
class ChildGuard {
public:
    ChildGuard() = default;
    explicit ChildGuard(pid_t pid) : pid_(pid) {}
    ~ChildGuard() { Kill(); }
    ChildGuard(ChildGuard &&other) noexcept : pid_(other.pid_) { other.pid_ = -1; }
    ChildGuard &operator=(ChildGuard &&other) noexcept;
    ChildGuard(const ChildGuard &) = delete;
    ChildGuard &operator=(const ChildGuard &) = delete;

    pid_t pid() const { return pid_; }
    // Waits for the child to end; its wait status, or -1 without a child.
    int Wait();
    // Kills the child and waits for it; its wait status, or -1.
    int Kill();

private:
    pid_t pid_ = -1;
};

// fork() for tests: the child is killed when the test process dies (a
// timeout, a crash), so it cannot survive its parent.  Returns what fork()
// returns; in the child, 0.
pid_t ForkChild();

// Starts a program (stdin from /dev/null, stdout to `stdoutFd` when it is
// not -1) with extra environment entries, guarded.
ChildGuard Spawn(const std::vector<std::string> &argv, const std::vector<std::string> &extraEnv = {},
                 int stdoutFd = -1);

// How many times a loop that starts and kills processes runs: `full`, or the
// percentage of it that VTTEST_LOOP_SHARE names (at least 10 runs).  The
// sanitizer build sets 25: a process start there takes about a second, and
// the full count runs in the release build.
int LoopRuns(int full);

// True when this process runs in an IPC namespace that was made below it,
// for it and its descendants, rather than in the machine's (or the
// container's) shared one.  The tests of the library take its cross-process
// access mutex, a System V semaphore set that every process of the
// namespace shares; they run only in a private namespace.
bool InPrivateIpcNamespace();

}  // namespace vttest
