#include "oss_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <vector>

namespace vt::oss {
namespace {

int WriteAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = ::write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        data.remove_prefix(size_t(n));
    }
    return 0;
}

// Reads everything from the current position of `fd`.
int ReadAll(int fd, std::string &text, size_t limit) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return errno;
    if (uint64_t(st.st_size) > limit) return EFBIG;
    text.clear();
    text.reserve(size_t(st.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return 0;
        if (text.size() + size_t(n) > limit) return EFBIG;
        text.append(buffer, size_t(n));
    }
}

void SplitPath(const std::string &path, std::string &dir, std::string &base) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        dir = ".";
        base = path;
    } else {
        dir = slash == 0 ? "/" : path.substr(0, slash);
        base = path.substr(slash + 1);
    }
}

// New files are named ".<name>.vtnew-XXXXXX", a name no one else uses, so
// that the stale ones can be told apart from a user's files.
std::string TempPrefix(const std::string &base) { return "." + base + ".vtnew-"; }

bool IsTempName(const std::string &name, const std::string &base) {
    const std::string prefix = TempPrefix(base);
    if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0) return false;
    for (size_t i = prefix.size(); i < name.size(); ++i)
        if (!std::isalnum(static_cast<unsigned char>(name[i]))) return false;
    return true;
}

// Removes the new files of rewrites of `base` whose process died before
// renaming them.  Only called under the directory lock, which any live
// writer would hold.
void RemoveStaleTemporaries(int dirFd, const std::string &base) {
    const int fd = ::dup(dirFd);
    DIR *dir = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!dir) {
        if (fd >= 0) ::close(fd);
        return;
    }
    ::rewinddir(dir);
    std::vector<std::string> stale;
    while (const struct dirent *e = ::readdir(dir)) {
        struct stat st {};
        if (IsTempName(e->d_name, base) && ::fstatat(dirFd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(st.st_mode))
            stale.emplace_back(e->d_name);
    }
    ::closedir(dir);
    for (const auto &name : stale) ::unlinkat(dirFd, name.c_str(), 0);
}

}  // namespace

FileReplacement::~FileReplacement() { Abandon(); }

void FileReplacement::Abandon() {
    if (tempFd_ >= 0) ::close(tempFd_);
    tempFd_ = -1;
    if (!committed_ && !tempPath_.empty()) ::unlink(tempPath_.c_str());
    tempPath_.clear();
    if (dirFd_ >= 0) ::close(dirFd_);  // releases the directory lock
    dirFd_ = -1;
}

int FileReplacement::Begin(const std::string &path, bool mustExist) {
    Abandon();
    committed_ = exists_ = copyTimes_ = false;
    path_ = path;
    std::string dir, base;
    SplitPath(path, dir, base);
    if (base.empty()) return EINVAL;
    dirFd_ = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd_ < 0) return errno;
    while (::flock(dirFd_, LOCK_EX) != 0)
        if (errno != EINTR) return errno;
    RemoveStaleTemporaries(dirFd_, base);
    if (::fstatat(dirFd_, base.c_str(), &old_, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(old_.st_mode)) return ELOOP;
        if (!S_ISREG(old_.st_mode)) return EINVAL;
        exists_ = true;
    } else if (errno != ENOENT || mustExist) {
        return errno;
    }
    // mkostemp creates exclusively, so a link planted under the name fails.
    std::string temp = dir + "/" + TempPrefix(base) + "XXXXXX";
    std::vector<char> name(temp.begin(), temp.end());
    name.push_back('\0');
    tempFd_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (tempFd_ < 0) return errno;
    tempPath_ = name.data();
    return 0;
}

int FileReplacement::ReadOld(std::string &text, size_t limit) const {
    text.clear();
    if (!exists_) return 0;
    std::string dir, base;
    SplitPath(path_, dir, base);
    const int fd = ::openat(dirFd_, base.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    const int rc = ReadAll(fd, text, limit);
    ::close(fd);
    return rc;
}

int FileReplacement::Write(std::string_view data) { return tempFd_ < 0 ? EBADF : WriteAll(tempFd_, data); }

void FileReplacement::CopyAttributesFrom(const struct stat &source) {
    attributes_ = source;
    copyTimes_ = true;
}

int FileReplacement::Commit() {
    if (tempFd_ < 0 || committed_) return EBADF;
    struct stat temp {};
    if (fstat(tempFd_, &temp) != 0) return errno;
    uid_t uid = temp.st_uid;
    gid_t gid = temp.st_gid;
    mode_t mode = newMode_;
    if (copyTimes_) {
        uid = attributes_.st_uid;
        gid = attributes_.st_gid;
        mode = attributes_.st_mode;
    } else if (exists_) {
        uid = old_.st_uid;
        gid = old_.st_gid;
        mode = old_.st_mode;
    }
    if ((uid != temp.st_uid || gid != temp.st_gid) && fchown(tempFd_, uid, gid) != 0) return errno;
    // After the owner: a change of owner clears the set-id bits.
    if (fchmod(tempFd_, mode & 07777) != 0) return errno;
    if (copyTimes_) {
        const struct timespec times[2] = {attributes_.st_atim, attributes_.st_mtim};
        if (futimens(tempFd_, times) != 0) return errno;
    }
    if (fsync(tempFd_) != 0) return errno;
    std::string dir, base, tempDir, tempBase;
    SplitPath(path_, dir, base);
    SplitPath(tempPath_, tempDir, tempBase);
    if (renameat(dirFd_, tempBase.c_str(), dirFd_, base.c_str()) != 0) return errno;
    committed_ = true;
    fsync(dirFd_);  // the rename itself; a failure here leaves a complete file
    Abandon();
    return 0;
}

ScratchFile::~ScratchFile() {
    if (fd_ < 0) return;
    struct stat mine {
    }, named{};
    // Remove the name only while it is still this file.
    if (fstat(fd_, &mine) == 0 && lstat(path_.c_str(), &named) == 0 && mine.st_dev == named.st_dev &&
        mine.st_ino == named.st_ino)
        ::unlink(path_.c_str());
    ::close(fd_);
}

int ScratchFile::Create(const std::string &path, std::string_view data) {
    if (fd_ >= 0) return EBUSY;
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) return errno;
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    fd_ = fd;
    path_ = path;
    return WriteAll(fd_, data);
}

int ReadWholeFile(const std::string &path, std::string &text, size_t limit) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int rc = ReadAll(fd, text, limit);
    ::close(fd);
    return rc;
}

int CopyFd(int from, int to) {
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        const ssize_t n = ::pread(from, buffer, sizeof buffer, offset);
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        if (n == 0) return 0;
        if (int rc = WriteAll(to, std::string_view(buffer, size_t(n)))) return rc;
        offset += n;
    }
}

}  // namespace vt::oss
