// Helpers shared by the test programs.
#pragma once

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
RunResult Run(const std::vector<std::string> &argv,
              const std::vector<std::string> &extraEnv = {});

}  // namespace vttest
