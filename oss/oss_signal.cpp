// The signal thread and the command gate (oss_signal.h).
#include "oss/oss_signal.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

namespace vt::oss {
namespace {

std::mutex g_gateMutex;
std::condition_variable g_gateChanged;
bool g_busy = false;      // a command runs on g_owner
bool g_inInput = false;   // ... and waits for input
bool g_stopping = false;  // the signal thread has asked it to stop
pthread_t g_owner{};
pid_t g_ownerTid = 0;

std::mutex g_threadMutex;
bool g_threadStarted = false;
pthread_t g_signalThread{};
sigset_t g_waitSet;
SignalHandler g_handler = nullptr;

// The scheduler's view of a thread of this process: its state letter and
// the CPU time it has used (clock ticks).  False when it cannot be read.
bool ThreadActivity(pid_t tid, char &state, unsigned long long &ticks) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    FILE *f = std::fopen(path.c_str(), "re");
    if (f == nullptr) return false;
    char line[1024];
    const bool read = std::fgets(line, sizeof line, f) != nullptr;
    std::fclose(f);
    if (!read) return false;
    // The name in parentheses may hold blanks: the fields follow its last ')'.
    const char *rest = std::strrchr(line, ')');
    unsigned long long utime = 0, stime = 0;
    if (rest == nullptr ||
        std::sscanf(rest + 1, " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu", &state, &utime, &stime) != 3)
        return false;
    ticks = utime + stime;
    return true;
}

bool IsOwner() { return g_busy && pthread_equal(g_owner, pthread_self()) != 0; }

// The command thread stops here for good: the signal thread frees the core
// and ends the process.
[[noreturn]] void Park(std::unique_lock<std::mutex> &lock) {
    g_busy = false;
    g_inInput = false;
    g_gateChanged.notify_all();
    for (;;) g_gateChanged.wait(lock);
}

void *SignalLoop(void *) {
    for (;;) {
        int signum = 0;
        if (sigwait(&g_waitSet, &signum) == 0 && g_handler != nullptr) g_handler(signum);
    }
    return nullptr;
}

}  // namespace

bool StartSignalThread(std::initializer_list<int> signals, SignalHandler handler) {
    sigset_t set;
    sigemptyset(&set);
    for (int signum : signals) {
        struct sigaction old {};
        if (sigaction(signum, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;  // stays ignored
        sigaddset(&set, signum);
    }
    std::lock_guard<std::mutex> lock(g_threadMutex);
    if (g_threadStarted) {
        pthread_sigmask(SIG_BLOCK, &g_waitSet, nullptr);
        return true;
    }
    g_waitSet = set;
    g_handler = handler;
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &set, &previous);
    // The new thread inherits the blocked set, so no signal can reach a
    // thread other than through sigwait.
    if (pthread_create(&g_signalThread, nullptr, SignalLoop, nullptr) != 0) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        return false;
    }
    pthread_detach(g_signalThread);
    g_threadStarted = true;
    return true;
}

bool OnSignalThread() {
    std::lock_guard<std::mutex> lock(g_threadMutex);
    return g_threadStarted && pthread_equal(g_signalThread, pthread_self()) != 0;
}

void CommandBegin() {
    std::unique_lock<std::mutex> lock(g_gateMutex);
    if (g_stopping) Park(lock);
    g_busy = true;
    g_inInput = false;
    g_owner = pthread_self();
    g_ownerTid = static_cast<pid_t>(syscall(SYS_gettid));
}

void CommandEnd() {
    std::unique_lock<std::mutex> lock(g_gateMutex);
    if (!IsOwner()) return;
    if (g_stopping) Park(lock);
    g_busy = false;
}

void SafePoint() {
    std::unique_lock<std::mutex> lock(g_gateMutex);
    if (g_stopping && IsOwner()) Park(lock);
}

void RequestCommandStop() {
    if (!OnSignalThread()) return;
    std::lock_guard<std::mutex> lock(g_gateMutex);
    g_stopping = true;
}

void StopCommandThread() {
    if (!OnSignalThread()) return;  // a direct call on the command thread stops nothing
    std::unique_lock<std::mutex> lock(g_gateMutex);
    g_stopping = true;
    // The command thread may also be stuck in a wait that no safe point
    // marks (a device that does not answer).  One that has slept in the
    // kernel without using the processor for kIdle is taken as stopped: it
    // builds nothing, and the process ends right after the cleanup.
    constexpr auto kPoll = std::chrono::milliseconds(100);
    constexpr int kIdlePolls = 15;
    int idlePolls = 0;
    unsigned long long lastTicks = ~0ull;
    while (g_busy && !g_inInput) {
        if (g_gateChanged.wait_for(lock, kPoll, [] { return !g_busy || g_inInput; })) break;
        // A further signal while waiting ends the process at once (the
        // handler's "already raised" path).
        const struct timespec now {};
        const int again = sigtimedwait(&g_waitSet, nullptr, &now);
        if (again > 0 && g_handler != nullptr) {
            lock.unlock();
            g_handler(again);
            lock.lock();
        }
        char state = '?';
        unsigned long long ticks = 0;
        if (ThreadActivity(g_ownerTid, state, ticks) && state == 'S' && ticks == lastTicks) {
            if (++idlePolls >= kIdlePolls) break;
        } else {
            idlePolls = 0;
        }
        lastTicks = ticks;
    }
}

InputWait::InputWait() {
    std::lock_guard<std::mutex> lock(g_gateMutex);
    if (!IsOwner()) return;
    g_inInput = true;
    g_gateChanged.notify_all();
}

InputWait::~InputWait() {
    std::unique_lock<std::mutex> lock(g_gateMutex);
    if (!IsOwner()) return;
    g_inInput = false;
    if (g_stopping) Park(lock);
}

}  // namespace vt::oss
