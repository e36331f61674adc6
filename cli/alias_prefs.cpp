#include "alias_prefs.h"

#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "oss/oss.h"

namespace vt::cli {
namespace {

int ReadBack(int fd, size_t size, std::string &text) {
    text.assign(size, '\0');
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd, text.data() + done, size - done, off_t(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return EIO;
        done += size_t(n);
    }
    return 0;
}

int Rewrite(int fd, const std::string &text) {
    if (ftruncate(fd, 0) != 0) return errno;
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = pwrite(fd, text.data() + done, text.size() - done, off_t(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return EIO;
        done += size_t(n);
    }
    return 0;
}

}  // namespace

int WritePropertyFile(int fd, std::string_view old, const char *key, const char *value) {
    // The line editor works on C strings: a NUL byte would cut a line.
    if (old.find('\0') != std::string_view::npos) return EILSEQ;
    const int own = dup(fd);
    FILE *stream = own < 0 ? nullptr : fdopen(own, "w+");
    if (stream == nullptr) {
        if (own >= 0) close(own);
        return EIO;
    }
    int err = std::fwrite(old.data(), 1, old.size(), stream) == old.size() ? 0 : EIO;
    // PrefSetProperty edits the stream in place and does not cut it.
    if (err == 0 && PrefSetProperty(stream, key, value) != 0) err = EIO;
    const long end = std::ftell(stream);
    if (std::fclose(stream) != 0 && err == 0) err = EIO;
    if (err == 0 && (end < 0 || ftruncate(fd, end) != 0)) err = EIO;
    // A property appended to a last line without a line end would join
    // that line: it gets a line of its own.
    const std::string appended = std::string(key) + "=" + value + "\n";
    if (err == 0 && !old.empty() && old.back() != '\n' && size_t(end) == old.size() + appended.size()) {
        std::string text;
        if ((err = ReadBack(fd, size_t(end), text)) == 0 && text == std::string(old) + appended)
            err = Rewrite(fd, std::string(old) + "\n" + appended);
    }
    return err;
}

}  // namespace vt::cli
