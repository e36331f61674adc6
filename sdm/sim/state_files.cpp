#include "state_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vtsdm::statefiles {

namespace {

bool OwnedByUs(uid_t uid) { return uid == geteuid() || uid == 0; }

std::string OtherUser(uid_t uid) { return "owned by another user (uid " + std::to_string(uid) + ")"; }

// Writable by group or others without the sticky bit that stops them from
// replacing what is not theirs.
bool OpenToOthers(const struct stat &st) { return (st.st_mode & (S_IWGRP | S_IWOTH)) && !(st.st_mode & S_ISVTX); }

}  // namespace

std::string Unusable(const struct stat &st) {
    if (S_ISLNK(st.st_mode)) return "a symbolic link";
    if (S_ISFIFO(st.st_mode)) return "a FIFO";
    if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return "a device";
    if (S_ISSOCK(st.st_mode)) return "a socket";
    if (S_ISDIR(st.st_mode)) return "a directory";
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    if (!OwnedByUs(st.st_uid)) return OtherUser(st.st_uid);
    return "";
}

std::string UnsafeDirectory(const std::string &dir) {
    struct stat link, st, parent;
    if (lstat(dir.c_str(), &link) != 0) return "";
    if (S_ISLNK(link.st_mode) && !OwnedByUs(link.st_uid)) return "a symbolic link " + OtherUser(link.st_uid);
    if (stat(dir.c_str(), &st) != 0) return std::string("unreadable: ") + strerror(errno);
    if (!S_ISDIR(st.st_mode)) return "not a directory";
    if (!OwnedByUs(st.st_uid)) return OtherUser(st.st_uid);
    if (OpenToOthers(st)) return "writable by other users";
    if (stat((dir + "/..").c_str(), &parent) == 0 && OpenToOthers(parent))
        return "in a directory writable by other users";
    return "";
}

int OpenOwnFile(const std::string &path, int flags, mode_t mode, std::string &why) {
    why.clear();
    // Look before opening: a FIFO or a device is never opened at all.
    struct stat st;
    if (lstat(path.c_str(), &st) == 0) {
        if (std::string what = Unusable(st); !what.empty()) {
            why = path + " is " + what;
            errno = EPERM;
            return -1;
        }
    } else if (errno != ENOENT) {
        why = path + ": " + strerror(errno);
        return -1;
    } else if (!(flags & O_CREAT)) {
        return -1;
    }
    // And check what was opened: the entry may have been swapped meanwhile.
    // Non-blocking only while opening, so that a FIFO cannot hold us.
    const int fd = open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    if (fd < 0) {
        const int e = errno;
        if (e == ENOENT && !(flags & O_CREAT)) return -1;
        why = path + (e == ELOOP ? std::string(" is a symbolic link") : ": " + std::string(strerror(e)));
        errno = e;
        return -1;
    }
    if (fstat(fd, &st) != 0 || !Unusable(st).empty()) {
        why = path + " is " + (fstat(fd, &st) != 0 ? std::string("unreadable") : Unusable(st));
        close(fd);
        errno = EPERM;
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

void RemoveStaleTemporaries(const std::string &dir, const std::string &name) {
    DIR *d = opendir(dir.c_str());
    if (!d) return;
    const std::string prefix = name + ".tmp.";
    while (dirent *e = readdir(d)) {
        const std::string entry = e->d_name;
        if (entry.size() <= prefix.size() || entry.compare(0, prefix.size(), prefix) != 0) continue;
        if (entry.find_first_not_of("0123456789", prefix.size()) != std::string::npos) continue;
        // unlinkat removes the entry itself, never what a link points to.
        unlinkat(dirfd(d), e->d_name, 0);
    }
    closedir(d);
}

std::string KeepAside(const std::string &path) {
    for (int i = 0; i < 100; ++i) {
        const std::string to = path + ".damaged" + (i ? "." + std::to_string(i) : std::string());
        if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return to;
        if (errno == EINVAL) {
            // A file system without RENAME_NOREPLACE: a hard link never replaces either.
            if (link(path.c_str(), to.c_str()) == 0) {
                unlink(path.c_str());
                return to;
            }
        }
        if (errno != EEXIST) return "";
    }
    return "";
}

}  // namespace vtsdm::statefiles
