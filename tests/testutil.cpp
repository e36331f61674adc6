#include "testutil.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace vttest {

TempDir::TempDir() {
    std::string tmpl = std::filesystem::temp_directory_path().string() + "/vttest.XXXXXX";
    if (mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

SysrootScope::SysrootScope() {
    for (const char *name : {"VTAPI_SYSROOT", "VTSDM_STATE_DIR"}) {
        if (const char *v = std::getenv(name)) saved_.emplace_back(name, v);
        else unset_.emplace_back(name);
    }
    // The directories every Linux host has.
    for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"}) std::filesystem::create_directories(dir_.path() + d);
    setenv("VTAPI_SYSROOT", dir_.path().c_str(), 1);
    unsetenv("VTSDM_STATE_DIR");
}

SysrootScope::~SysrootScope() {
    for (const auto &[name, value] : saved_) setenv(name.c_str(), value.c_str(), 1);
    for (const auto &name : unset_) unsetenv(name.c_str());
}

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFile(const std::string &path, const std::string &data) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << data;
}

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

int FindLine(const std::vector<std::string> &lines, const std::string &needle, int from) {
    for (size_t i = size_t(from < 0 ? 0 : from); i < lines.size(); ++i)
        if (lines[i].find(needle) != std::string::npos) return int(i);
    return -1;
}

std::string SourcePath(const std::string &rel) { return std::string(VT_SOURCE_DIR) + "/" + rel; }
std::string BuildPath(const std::string &rel) { return std::string(VT_BUILD_DIR) + "/" + rel; }

namespace {

// The process environment with `extra` entries ("NAME=value") replacing or
// adding to it.
std::vector<std::string> Environment(const std::vector<std::string> &extra) {
    std::vector<std::string> env;
    for (char **e = environ; *e; ++e) env.emplace_back(*e);
    for (const auto &x : extra) {
        auto key = x.substr(0, x.find('=') + 1);
        std::erase_if(env, [&](const std::string &s) { return s.rfind(key, 0) == 0; });
        env.push_back(x);
    }
    return env;
}

std::vector<char *> CStrings(const std::vector<std::string> &strings) {
    std::vector<char *> out;
    for (const auto &s : strings) out.push_back(const_cast<char *>(s.c_str()));
    out.push_back(nullptr);
    return out;
}

// In a forked child: stdin from /dev/null, stdout and stderr as given
// (-1 leaves them), then the program.  Never returns.
[[noreturn]] void ExecChild(const std::vector<char *> &argv, const std::vector<char *> &env, int out, int err) {
    if (out >= 0) dup2(out, 1);
    if (err >= 0) dup2(err, 2);
    const int devnull = open("/dev/null", O_RDONLY);
    if (devnull >= 0) dup2(devnull, 0);
    execve(argv[0], argv.data(), env.data());
    _exit(127);
}

}  // namespace

ChildGuard &ChildGuard::operator=(ChildGuard &&other) noexcept {
    if (this != &other) {
        Kill();
        pid_ = other.pid_;
        other.pid_ = -1;
    }
    return *this;
}

int ChildGuard::Wait() {
    if (pid_ <= 0) return -1;
    int status = -1;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
}

int ChildGuard::Kill() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGKILL);
    return Wait();
}

int LoopRuns(int full) {
    const char *share = std::getenv("VTTEST_LOOP_SHARE");
    if (share == nullptr) return full;
    const int percent = std::atoi(share);
    if (percent <= 0 || percent >= 100) return full;
    return std::max(std::min(full, 10), full * percent / 100);
}

pid_t ForkChild() {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(126);  // the parent is already gone
    }
    return pid;
}

ChildGuard Spawn(const std::vector<std::string> &argv, const std::vector<std::string> &extraEnv, int stdoutFd) {
    const std::vector<std::string> env = Environment(extraEnv);
    const std::vector<char *> cargv = CStrings(argv), cenv = CStrings(env);
    const pid_t pid = ForkChild();
    if (pid == 0) ExecChild(cargv, cenv, stdoutFd, -1);
    return ChildGuard(pid);
}

RunResult Run(const std::vector<std::string> &argv, const std::vector<std::string> &extraEnv) {
    RunResult r;
    int outp[2], errp[2];
    if (pipe2(outp, O_CLOEXEC) != 0 || pipe2(errp, O_CLOEXEC) != 0) return r;
    const std::vector<std::string> env = Environment(extraEnv);
    const std::vector<char *> cargv = CStrings(argv), cenv = CStrings(env);
    const pid_t pid = ForkChild();
    if (pid == 0) ExecChild(cargv, cenv, outp[1], errp[1]);
    ChildGuard child(pid);
    close(outp[1]);
    close(errp[1]);
    pollfd fds[2] = {{outp[0], POLLIN, 0}, {errp[0], POLLIN, 0}};
    int open_fds = 2;
    char buf[65536];
    while (open_fds > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_fds;
            } else {
                (i == 0 ? r.out : r.err).append(buf, static_cast<size_t>(n));
            }
        }
    }
    for (const pollfd &f : fds)
        if (f.fd >= 0) close(f.fd);
    const int st = child.Wait();
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

namespace {

// Parent of process `pid` (field 4 of /proc/<pid>/stat), or -1.
pid_t ParentOf(pid_t pid) {
    const std::string stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t end = stat.rfind(')');  // the command name may hold anything
    if (end == std::string::npos) return -1;
    std::istringstream fields(stat.substr(end + 1));
    std::string state;
    pid_t parent = -1;
    fields >> state >> parent;
    return fields ? parent : -1;
}

}  // namespace

// The namespace is private when an ancestor of this process (up to process
// 1) is in another one: some process above this one made it for its own
// descendants, as "unshare --ipc" does.  Namespaces that cannot be read are
// passed over; when none differs, the namespace counts as shared.
bool InPrivateIpcNamespace() {
    struct stat self {};
    if (stat("/proc/self/ns/ipc", &self) != 0) return false;
    for (pid_t pid = getppid(); pid > 0;) {
        struct stat other {};
        if (stat(("/proc/" + std::to_string(pid) + "/ns/ipc").c_str(), &other) == 0 &&
            (other.st_dev != self.st_dev || other.st_ino != self.st_ino))
            return true;
        if (pid == 1) break;
        pid = ParentOf(pid);
    }
    return false;
}

}  // namespace vttest
