// Running a test or monitor on several ports at once: a worker thread per
// port, the calling thread taking keys and redrawing the screen, the
// hand-shake with the command line's signal handler through g_DiagState,
// the per-port abort requests, and the replaceable terminal, clock and
// screen functions.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>

#include "core/tarn_lists.h"
#include "diag.h"
#include "diag_internal.h"
#include "vtapi_cli.h"
#include "oss/oss.h"
#include "oss/oss_signal.h"

namespace vt::diag {

namespace {

constexpr uint32_t kKeyPollMs = 50;
constexpr size_t kSessionSlots = 8;

std::array<std::atomic<bool>, SD_MAX_INSTANCES + 1> g_abort{};
std::array<std::atomic<bool>, SD_MAX_INSTANCES + 1> g_busy{};
// Running sessions, for the signal path: plain atomics, so that a handler
// that interrupts the session's own thread never waits on a lock.
std::array<std::atomic<Session *>, kSessionSlots> g_sessions{};

size_t Index(uint32_t instance) { return instance < SD_MAX_INSTANCES ? instance : SD_MAX_INSTANCES; }

void NapMs(long ms) {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

// Puts the terminal into single-key mode without echo for the session and
// back as it was; nothing when standard input is no terminal.
class KeyMode {
public:
    KeyMode() {
        if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &saved_) != 0) return;
        termios raw = saved_;
        raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        active_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
    }
    ~KeyMode() {
        if (active_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
    }
    KeyMode(const KeyMode &) = delete;
    KeyMode &operator=(const KeyMode &) = delete;

private:
    termios saved_{};
    bool active_ = false;
};

}  // namespace

void Print(const char *format, ...) {
    char small[512];
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0) return;
    if (size_t(n) < sizeof small) {
        scfxDiagnosticsPrint(small);
        return;
    }
    std::string text(size_t(n) + 1, '\0');
    va_start(args, format);
    vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    scfxDiagnosticsPrint(text.c_str());
}

bool SleepUnlessStopped(uint32_t seconds, const std::atomic<bool> &stop) {
    for (uint32_t i = 0; i < seconds; ++i) {
        if (stop.load()) return false;
        OSSSleep(1);
    }
    return !stop.load();
}

std::atomic<bool> &AbortFlag(uint32_t instance) { return g_abort[Index(instance)]; }

bool ClaimPort(uint32_t instance) {
    bool expected = false;
    return g_busy[Index(instance)].compare_exchange_strong(expected, true);
}

void ReleasePort(uint32_t instance) { g_busy[Index(instance)].store(false); }

Session::Session(size_t workers, std::vector<uint32_t> instances)
    : workers_(workers), instances_(std::move(instances)) {
    threads_.reserve(workers);
}

Session::~Session() {
    for (std::thread &t : threads_)
        if (t.joinable()) t.join();
    if (slot_ != SIZE_MAX) g_sessions[slot_].store(nullptr);
}

bool Session::start(const std::function<void(size_t)> &work) {
    work_ = work;
    for (size_t i = 0; i < kSessionSlots && slot_ == SIZE_MAX; ++i) {
        Session *none = nullptr;
        if (g_sessions[i].compare_exchange_strong(none, this)) slot_ = i;
    }
    for (uint32_t instance : instances_) AbortFlag(instance).store(false);
    DiagStateStore(TARN_DIAG_RUNNING);
    // Workers block the signals, so that the command line's handler runs on
    // this thread and never on a worker it would then wait for.
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &old);
    bool ok = true;
    for (size_t i = 0; i < workers_ && ok; ++i) {
        active_.fetch_add(1);
        try {
            threads_.emplace_back([this, i] {
                work_(i);
                active_.fetch_sub(1);
            });
        } catch (const std::system_error &) {
            active_.fetch_sub(1);
            ok = false;
        }
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (!ok) {
        Print("Error: Unable to start a worker thread for the test!\n");
        LogDebug(__FILE__, __LINE__, "Session: thread start failed after %zu workers", threads_.size());
        requestStop();
        finish();
    }
    return ok;
}

void Session::requestStop() {
    stop_.store(true);
    for (uint32_t instance : instances_) AbortFlag(instance).store(true);
}

void Session::finish() {
    for (std::thread &t : threads_)
        if (t.joinable()) t.join();
    if (DiagStateLoad() == TARN_DIAG_RUNNING) DiagStateStore(TARN_DIAG_STOPPED);
}

void Session::wait(const std::function<bool(int32_t)> &onKey, const std::function<void()> &onTick) {
    {
        KeyMode keys;
        while (active_.load() > 0) {
            // A termination stops the command thread here and stops the
            // workers in its cleanup.
            vt::oss::SafePoint();
            const int32_t key = DiagGetKey(kKeyPollMs);
            if (key >= 0 && onKey(key)) requestStop();
            // Someone else (the command line's handler) ended the test.
            if (DiagStateLoad() != TARN_DIAG_RUNNING) {
                vt::oss::SafePoint();
                requestStop();
            }
            onTick();
        }
    }
    finish();
    onTick();
}

void StopAllSessions() {
    size_t stopping = 0;
    for (auto &slot : g_sessions)
        if (Session *s = slot.load()) {
            s->requestStop();
            stopping += s->active_.load();
        }
    if (stopping == 0) return;
    TarnLogMessage(VT_MSG_DEBUG, "Diagnostics: stopping %zu worker(s)...", stopping);
    for (auto &slot : g_sessions)
        if (Session *s = slot.load())
            while (s->active_.load() > 0) NapMs(1);
    TarnLogMessage(VT_MSG_DEBUG, "Diagnostics: %zu worker(s) stopped", stopping);
}

void RegisterListReleases() {
    using core::TarnList;
    core::SetTarnListRelease(TarnList::DisabledDiagnostics, [] { DeleteAllDeviceFromDisableDiagList(); });
    core::SetTarnListRelease(TarnList::LoopbackResults, [] {
        StopAllSessions();
        FreeLoopbackResultList();
    });
    core::SetTarnListRelease(TarnList::ReadWriteBufferResults, [] { StopAllSessions(); });
    core::SetTarnListRelease(TarnList::HbaStatistics, [] {
        StopAllSessions();
        FreeHBAStatisticsList();
        FreeLinkStatusResultList(GetLinkStatusResultList());
        FreeLinkStatusResultSavedList();
    });
}

namespace {
const bool g_registered = (RegisterListReleases(), true);
}  // namespace

}  // namespace vt::diag

extern "C" {

DIAG_INTERNAL uint32_t AbortDiagTest(uint32_t instance) {
    vt::diag::AbortFlag(instance).store(true);
    LogDebug(__FILE__, __LINE__, "AbortDiagTest: stop requested for instance %u", instance);
    return 0;
}

VTAPI_EXPORT int32_t DiagGetKey(uint32_t timeoutMs) {
    // After the end of the input (no terminal, a closed pipe) there are no
    // more keys: only the wait.
    static std::atomic<bool> endOfInput{false};
    if (!endOfInput.load()) {
        pollfd p{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&p, 1, int(timeoutMs));
        if (ready <= 0) return -1;
        unsigned char c = 0;
        if ((p.revents & POLLIN) && read(STDIN_FILENO, &c, 1) == 1) return c == '\r' ? '\n' : c;
        endOfInput.store(true);
    }
    vt::diag::NapMs(long(timeoutMs));
    return -1;
}

VTAPI_EXPORT time_t DiagGetTime(void) { return time(nullptr); }

DIAG_INTERNAL char *DiagFormatTime(time_t t, char *text, uint32_t size) {
    if (!text || size == 0) return text;
    tm local{};
    if (!localtime_r(&t, &local) || strftime(text, size, "%Y-%m-%d %H:%M:%S", &local) == 0) text[0] = '\0';
    return text;
}

}  // extern "C"
