// Ownership of an open file: a descriptor or a stream is closed once, when
// its owner goes, on every path out of the function that opened it.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace vt::oss {

// Owns a descriptor (-1: none) or a stream (null: none).
template <typename Handle, Handle kNone, int (*kClose)(Handle)>
class Owned {
public:
    Owned() = default;
    explicit Owned(Handle handle) : handle_(handle) {}
    ~Owned() { reset(); }
    Owned(Owned &&other) noexcept : handle_(other.release()) {}
    Owned &operator=(Owned &&other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;

    Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != kNone; }
    // Gives the handle up without closing it.
    Handle release() { return std::exchange(handle_, kNone); }
    // Closes the handle now; the result of the close (0 without one).
    int reset(Handle handle = kNone) {
        const Handle old = std::exchange(handle_, handle);
        return old != kNone ? kClose(old) : 0;
    }

private:
    Handle handle_ = kNone;
};

inline int CloseStream(std::FILE *stream) { return std::fclose(stream); }

using Fd = Owned<int, -1, ::close>;
using File = Owned<std::FILE *, nullptr, CloseStream>;

}  // namespace vt::oss
