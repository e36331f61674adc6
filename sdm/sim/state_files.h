// Files of the simulator's state in a directory other users may reach: what
// is planted there (a symbolic link, a FIFO, a device, another user's file)
// is refused rather than followed, blocked on or written into.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace vtsdm::statefiles {

// Why the state directory may not be used, or "" when it may (or does not
// exist yet): it must be a directory owned by this user or root, not a
// symbolic link of another user, and neither it nor its parent writable by
// others unless sticky.
std::string UnsafeDirectory(const std::string &dir);

// Opens a file without following a symbolic link, blocking on a FIFO or
// opening a device: the entry must be a regular file owned by this user or
// root, or missing (then it is created when `flags` has O_CREAT, else -1
// with errno ENOENT and `why` empty).  Anything else gives -1 with `why`
// naming the path and what it is.
int OpenOwnFile(const std::string &path, int flags, mode_t mode, std::string &why);

// What a directory entry is when it may not be used ("a FIFO", "owned by
// another user (uid 65534)"), or "" for a regular file of this user or root.
std::string Unusable(const struct stat &st);

// Removes "<name>.tmp.<digits>" entries of `dir`: temporary files of
// writers killed before their rename.  Call it holding the state lock.
void RemoveStaleTemporaries(const std::string &dir, const std::string &name);

// Renames `path` to "<path>.damaged" (".damaged.1", ... when taken) without
// replacing anything; the new path, or "" when it could not be moved.
std::string KeepAside(const std::string &path);

}  // namespace vtsdm::statefiles
