// OpenSharedFile (oss_file.h): opens that a local user cannot turn against
// root by planting a link, a FIFO or a file of their own.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "oss/oss_file.h"
#include "oss/oss_handle.h"

namespace vt::oss {
namespace {

// A file that root may write into: regular, ours, and not linked elsewhere.
bool Ours(const struct stat &st) { return st.st_uid == geteuid() && st.st_nlink <= 1; }

int Blocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags < 0 ? -1 : fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
}

}  // namespace

SharedOpenResult OpenSharedFile(const std::string &path, SharedMode mode, bool readWrite, mode_t createMode) {
    SharedOpenResult result;
    const int access = mode == SharedMode::Read ? (readWrite ? O_RDWR : O_RDONLY) : (readWrite ? O_RDWR : O_WRONLY);
    const int base = access | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (mode == SharedMode::Append ? O_APPEND : 0);
    const int create = mode == SharedMode::Read ? 0 : O_CREAT;

    Fd fd(open(path.c_str(), base | create, createMode));
    if (!fd) {
        result.error = errno;
        return result;
    }
    struct stat st {};
    if (fstat(fd.get(), &st) != 0) {
        result.error = errno;
        return result;
    }
    if (!S_ISREG(st.st_mode)) {
        result.error = EINVAL;
        return result;
    }
    if (mode != SharedMode::Read && !Ours(st)) {
        // Another user's file (or one linked elsewhere): put a new one of
        // ours in its place rather than write into theirs.
        fd.reset();
        if (unlink(path.c_str()) != 0 && errno != ENOENT) {
            result.error = errno;
            return result;
        }
        fd.reset(open(path.c_str(), base | O_CREAT | O_EXCL, createMode));
        if (!fd) {
            result.error = errno;
            return result;
        }
        result.replaced = true;
    } else if (mode == SharedMode::Truncate && ftruncate(fd.get(), 0) != 0) {
        result.error = errno;
        return result;
    }
    if (Blocking(fd.get()) != 0) {
        result.error = errno;
        return result;
    }
    result.fd = fd.release();
    return result;
}

}  // namespace vt::oss
