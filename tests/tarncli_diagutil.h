// Running tarncli's diagnostic and monitor commands in tests: the tool with
// the clock preload (waits take no time and move the library's clock and
// the simulated host's), the simulator tool, and a run that presses keys
// once the screen shows what the test waits for.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testutil.h"

extern char **environ;

namespace diagtest {

// The environment of a tool run: this process's, with the preload and the
// extra entries.  SimClock() among them makes each wait also move the
// simulated host's clock (a run of vtsdm-sim a wait).
inline std::vector<std::string> ToolEnvironment(const std::vector<std::string> &extra) {
    std::vector<std::string> added = {"LD_PRELOAD=" + vttest::BuildPath("tests/tarncli_clock_preload.so")};
    // In the sanitizer build the preloaded library comes before the
    // sanitizer's runtime, which is harmless here.
    const char *asan = std::getenv("ASAN_OPTIONS");
    added.push_back(std::string("ASAN_OPTIONS=") + (asan ? std::string(asan) + ":" : "") + "verify_asan_link_order=0");
    added.insert(added.end(), extra.begin(), extra.end());
    auto name = [](const std::string &entry) { return entry.substr(0, entry.find('=') + 1); };
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e) {
        bool replaced = false;
        for (const std::string &a : added) replaced = replaced || name(a) == name(*e);
        if (!replaced) env.emplace_back(*e);
    }
    env.insert(env.end(), added.begin(), added.end());
    return env;
}

inline std::string SimClock() { return "VTTEST_SIM_TOOL=" + vttest::BuildPath("bin/vtsdm-sim"); }

inline vttest::RunResult Sim(std::vector<std::string> args) {
    args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
    return vttest::Run(args);
}

// tarncli with the clock preload, input from nothing.
inline vttest::RunResult Tarn(std::vector<std::string> args, const std::vector<std::string> &extraEnv = {});

// Starts tarncli with its standard input and output on pipes, reads its
// output until `ready` holds for it, then writes `keys` and closes the
// input, and reads on until the tool ends.  `keys` are not written when the
// tool ends first.
inline vttest::RunResult TarnWithKeys(const std::vector<std::string> &args, const std::vector<std::string> &extraEnv,
                                      const std::function<bool(const std::string &)> &ready, const std::string &keys) {
    vttest::RunResult r;
    signal(SIGPIPE, SIG_IGN);  // keys written after the tool ended fail, nothing more
    int in[2], out[2], err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return r;
    std::vector<std::string> argv = args;
    argv.insert(argv.begin(), vttest::BuildPath("bin/tarncli"));
    const std::vector<std::string> env = ToolEnvironment(extraEnv);
    std::vector<char *> cargv, cenv;
    for (const auto &a : argv) cargv.push_back(const_cast<char *>(a.c_str()));
    cargv.push_back(nullptr);
    for (const auto &e : env) cenv.push_back(const_cast<char *>(e.c_str()));
    cenv.push_back(nullptr);
    const pid_t pid = vttest::ForkChild();
    if (pid == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execve(cargv[0], cargv.data(), cenv.data());
        _exit(127);
    }
    vttest::ChildGuard child(pid);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    int input = in[1];
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    char buf[65536];
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            const ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            } else {
                (i == 0 ? r.out : r.err).append(buf, static_cast<size_t>(n));
            }
        }
        if (input >= 0 && ready(r.out + r.err)) {
            if (!keys.empty() && write(input, keys.data(), keys.size()) < 0) ADD_FAILURE() << "keys not written";
            close(input);
            input = -1;
        }
    }
    if (input >= 0) close(input);
    const int st = child.Wait();
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

inline vttest::RunResult Tarn(std::vector<std::string> args, const std::vector<std::string> &extraEnv) {
    return TarnWithKeys(
        args, extraEnv, [](const std::string &) { return true; }, "");
}

inline size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// True when xmllint finds the document well-formed.
inline bool WellFormedXml(const vttest::SysrootScope &root, const std::string &doc) {
    const std::string path = root.path("/tmp/doc.xml");
    vttest::WriteFile(path, doc);
    return vttest::Run({"/usr/bin/xmllint", "--noout", path}).status == 0;  // libxml2-utils
}

}  // namespace diagtest
