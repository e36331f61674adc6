// Whole-file replacement for the files the library rewrites (module option
// files, the driver configuration file, alias files).  A reader sees either
// the old or the new file, never a mixture: the new content goes into a
// temporary file beside the old one, which is renamed into place.  Writers
// that use this class serialize on a lock of the directory, so two processes
// changing the same file do not lose each other's change, and a new file
// left by a writer that died is removed by the next one.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#pragma GCC visibility push(hidden)

namespace vt::oss {

class FileReplacement {
public:
    FileReplacement() = default;
    ~FileReplacement();
    FileReplacement(const FileReplacement &) = delete;
    FileReplacement &operator=(const FileReplacement &) = delete;

    // Locks the directory of `path` and prepares the new file.  0, or an
    // errno value: ELOOP when `path` is a symbolic link, EINVAL when it is
    // not a regular file, ENOENT when it is missing and `mustExist`.
    int Begin(const std::string &path, bool mustExist = false);

    bool Exists() const { return exists_; }
    const struct stat &Old() const { return old_; }
    const std::string &Path() const { return path_; }

    // The old file's bytes (empty when there is none).  EFBIG when it holds
    // more than `limit` bytes.
    int ReadOld(std::string &text, size_t limit = SIZE_MAX) const;

    // The new file, open for reading and writing.
    int Fd() const { return tempFd_; }
    int Write(std::string_view data);

    // Owner and mode of the new file: by default those of the old file, or
    // for a new file the process's own and `mode`.
    void SetNewFileMode(mode_t mode) { newMode_ = mode; }
    // Owner, mode and times taken from `source` instead (a preserving copy).
    void CopyAttributesFrom(const struct stat &source);

    // Puts the new file in place.  0 or an errno value; on failure the old
    // file is untouched.
    int Commit();

private:
    void Abandon();

    std::string path_;
    std::string tempPath_;
    int dirFd_ = -1;
    int tempFd_ = -1;
    bool exists_ = false;
    bool committed_ = false;
    bool copyTimes_ = false;
    struct stat old_ {};
    struct stat attributes_ {};
    mode_t newMode_ = 0644;
};

// Writes a scratch file in a shared directory such as /tmp without following
// a link an attacker may have left under its name: any entry of that name is
// removed, and the file is created exclusively.  The file is removed again
// when the object goes away.
class ScratchFile {
public:
    ScratchFile() = default;
    ~ScratchFile();
    ScratchFile(const ScratchFile &) = delete;
    ScratchFile &operator=(const ScratchFile &) = delete;

    // 0 or an errno value.
    int Create(const std::string &path, std::string_view data);
    int Fd() const { return fd_; }

private:
    std::string path_;
    int fd_ = -1;
};

// Opening a file that root reads or writes in a shared or user-controlled
// place (the messages file, the command-line log and trace files,
// /etc/hba.conf).  The open never follows a symbolic link and never blocks
// on a FIFO or device: it is non-blocking, and anything but a regular file is
// refused (EINVAL).  For writing, a regular file that another user owns or
// that has further hard links is not written into: it is removed and a new
// file created exclusively in its place (`replaced` says so, for a warning in
// the log); a file planted in that moment makes the open fail (EEXIST).
enum class SharedMode { Read, Append, Truncate };
struct SharedOpenResult {
    int fd = -1;  // blocking again; -1 with `error` set on failure
    int error = 0;
    bool replaced = false;
};
SharedOpenResult OpenSharedFile(const std::string &path, SharedMode mode, bool readWrite = false,
                                mode_t createMode = 0644);

// Reads a whole file (following links: reading is harmless).  0, ENOENT,
// EFBIG when it holds more than `limit` bytes, or another errno value.
int ReadWholeFile(const std::string &path, std::string &text, size_t limit = SIZE_MAX);

// Copies every byte of `from` (read from its start) into `to`.
int CopyFd(int from, int to);

}  // namespace vt::oss

#pragma GCC visibility pop
