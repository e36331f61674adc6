#include "testutil.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

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
    if (mkdtemp(tmpl.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

SysrootScope::SysrootScope() {
    for (const char *name : {"VTAPI_SYSROOT", "VTSDM_STATE_DIR"}) {
        if (const char *v = std::getenv(name))
            saved_.emplace_back(name, v);
        else
            unset_.emplace_back(name);
    }
    // The directories every Linux host has.
    for (const char *d : {"/etc", "/tmp", "/var/tmp", "/var/lib"})
        std::filesystem::create_directories(dir_.path() + d);
    setenv("VTAPI_SYSROOT", dir_.path().c_str(), 1);
    unsetenv("VTSDM_STATE_DIR");
}

SysrootScope::~SysrootScope() {
    for (const auto &[name, value] : saved_)
        setenv(name.c_str(), value.c_str(), 1);
    for (const auto &name : unset_)
        unsetenv(name.c_str());
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

RunResult Run(const std::vector<std::string> &argv, const std::vector<std::string> &extraEnv) {
    RunResult r;
    int outp[2], errp[2];
    if (pipe2(outp, O_CLOEXEC) != 0 || pipe2(errp, O_CLOEXEC) != 0)
        return r;
    std::vector<std::string> env;
    for (char **e = environ; *e; ++e)
        env.emplace_back(*e);
    for (const auto &x : extraEnv) {
        auto key = x.substr(0, x.find('=') + 1);
        std::erase_if(env, [&](const std::string &s) { return s.rfind(key, 0) == 0; });
        env.push_back(x);
    }
    std::vector<char *> cargv, cenv;
    for (const auto &a : argv) cargv.push_back(const_cast<char *>(a.c_str()));
    cargv.push_back(nullptr);
    for (const auto &a : env) cenv.push_back(const_cast<char *>(a.c_str()));
    cenv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outp[1], 1);
        dup2(errp[1], 2);
        int devnull = open("/dev/null", O_RDONLY);
        if (devnull >= 0) dup2(devnull, 0);
        execve(cargv[0], cargv.data(), cenv.data());
        _exit(127);
    }
    close(outp[1]);
    close(errp[1]);
    pollfd fds[2] = {{outp[0], POLLIN, 0}, {errp[0], POLLIN, 0}};
    int open_fds = 2;
    char buf[65536];
    while (open_fds > 0) {
        if (poll(fds, 2, -1) < 0) break;
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
    int st = 0;
    waitpid(pid, &st, 0);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

}  // namespace vttest
