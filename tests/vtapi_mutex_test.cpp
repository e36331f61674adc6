// Access mutex (System V semaphore set), CRC-32 key, OSS critical section and
// the waits of libvtapifconly.  Every semaphore test works on a private set
// made with a random key and removes it afterwards.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "testutil.h"
#include "oss/oss.h"

namespace {
std::atomic<int> g_sleepMsCalls{0};
std::atomic<uint32_t> g_lastSleepMs{0};
std::vector<std::string> g_messages;  // "<type>:<text>" and profiler frames
}  // namespace

// Replacements the library binds to through the dynamic symbol table.  The
// waits of the lock's poll (100 ms each) are seen where they reach the C
// library: they are counted and not slept; any other sleep goes on.
extern "C" {
int nanosleep(const struct timespec *request, struct timespec *remaining) {
    if (request != nullptr && request->tv_sec == 0 && request->tv_nsec == 100000000) {
        ++g_sleepMsCalls;
        g_lastSleepMs = static_cast<uint32_t>(request->tv_nsec / 1000000);
        return 0;
    }
    using Real = int (*)(const struct timespec *, struct timespec *);
    static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "nanosleep"));
    return real(request, remaining);
}
void CoreLogMessage(int32_t type, const char *format, ...) {
    char text[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    g_messages.push_back(std::to_string(type) + ":" + text);
}
void ProfilerEnterFunction(const char *name) { g_messages.push_back(std::string("enter:") + name); }
void ProfilerExitFunction(const char *name) { g_messages.push_back(std::string("exit:") + name); }
}

namespace {

uint32_t ReferenceCrc(const std::string &s) {
    uint32_t c = 0xFFFFFFFFu;
    for (unsigned char b : s) {
        c ^= b;
        for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return ~c;
}

uint32_t UnusedKey() {
    std::random_device rd;
    for (;;) {
        const uint32_t key = (rd() ^ static_cast<uint32_t>(getpid())) | 0x10000000u;
        if (semget(static_cast<key_t>(key), 0, 0) == -1 && errno == ENOENT) return key;
    }
}

// A child process that holds the lock until released or killed.  A holder
// still running when the test leaves is killed.
class Holder {
public:
    explicit Holder(int32_t id) {
        int ready[2], release[2];
        if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(release, O_CLOEXEC) != 0) std::abort();
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            close(ready[0]);
            close(release[1]);
            char c = vtapi_LockAccessMutex(id, 0xFFFFFFFFu) == 0 ? 'L' : 'F';
            if (write(ready[1], &c, 1) != 1) _exit(3);
            if (read(release[0], &c, 1) < 0) _exit(4);
            vtapi_UnlockAccessMutex(id);
            _exit(0);
        }
        child_ = vttest::ChildGuard(pid);
        close(ready[1]);
        close(release[0]);
        releaseFd_ = release[1];
        char c = 0;
        locked_ = read(ready[0], &c, 1) == 1 && c == 'L';
        close(ready[0]);
    }
    ~Holder() {
        if (releaseFd_ >= 0) close(releaseFd_);
    }
    bool locked() const { return locked_; }
    // Lets the holder unlock and end; returns its wait status.
    int Release() {
        if (releaseFd_ >= 0) close(releaseFd_);
        releaseFd_ = -1;
        if (child_.pid() > 0) status_ = child_.Wait();
        return status_;
    }
    int Kill() {
        if (child_.pid() > 0) status_ = child_.Kill();
        return Release();
    }

private:
    vttest::ChildGuard child_;
    int releaseFd_ = -1;
    int status_ = -1;
    bool locked_ = false;
};

// Runs `fn` in a child process and returns its exit code.
template <typename Fn>
int InChild(Fn fn) {
    const pid_t pid = vttest::ForkChild();
    if (pid == 0) _exit(fn());
    const int status = vttest::ChildGuard(pid).Wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class AccessMutex : public ::testing::Test {
protected:
    void SetUp() override {
        key_ = UnusedKey();
        errno = 0;
        id_ = vtapi_CreateAccessMutex2(key_);
        ASSERT_GE(id_, 0);
        g_sleepMsCalls = 0;
        g_messages.clear();
    }
    void TearDown() override { EXPECT_EQ(vtapi_DestroyAccessMutex(id_), 0u); }
    int Val(int num) const { return semctl(id_, num, GETVAL); }

    vttest::SysrootScope root_;
    uint32_t key_ = 0;
    int32_t id_ = -1;
};

TEST_F(AccessMutex, NestedLockAndUnlockInOneThread) {
    EXPECT_EQ(Val(0), 1);
    EXPECT_EQ(Val(1), 1000);
    ASSERT_EQ(vtapi_LockAccessMutex(id_, 0xFFFFFFFFu), 0u);
    EXPECT_EQ(Val(0), 0);
    EXPECT_EQ(Val(1), 999);
    AccessLockRecord *rec = vtapi_getLockInfo(id_);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->Locked, 1);
    EXPECT_EQ(rec->Owner, static_cast<uint64_t>(pthread_self()));

    ASSERT_EQ(vtapi_LockAccessMutex(id_, 0xFFFFFFFFu), 0u);
    EXPECT_EQ(Val(0), 0);
    EXPECT_EQ(Val(1), 998);

    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 0);
    EXPECT_EQ(Val(1), 999);
    // Still held as far as another process is concerned: 2 attempts, then 1.
    // The child inherits this thread's record, so it asks from a new thread.
    const int child = InChild([&] {
        int out = 0;
        std::thread([&] {
            g_sleepMsCalls = 0;
            const uint32_t rc = vtapi_LockAccessMutex(id_, 20);
            out = static_cast<int>(rc * 16 + static_cast<uint32_t>(g_sleepMsCalls.load()));
        }).join();
        return out;
    });
    EXPECT_EQ(child, 1 * 16 + 2);

    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 1);
    EXPECT_EQ(Val(1), 1000);
    EXPECT_EQ(rec->Locked, 0);
    EXPECT_EQ(rec->Owner, ~uint64_t{0});
    EXPECT_EQ(g_sleepMsCalls, 0);
}

TEST_F(AccessMutex, OtherProcessOrThreadPollsAndGivesUp) {
    Holder holder(id_);
    ASSERT_TRUE(holder.locked());
    EXPECT_EQ(Val(0), 0);

    EXPECT_EQ(vtapi_LockAccessMutex(id_, 50), 1u);
    EXPECT_EQ(g_sleepMsCalls, 5);
    EXPECT_EQ(g_lastSleepMs, 100u);
    EXPECT_EQ(vtapi_getLockInfo(id_)->Locked, 0);

    g_sleepMsCalls = 0;
    EXPECT_EQ(vtapi_LockAccessMutex(id_, 39), 1u);  // integer division: 3 attempts
    EXPECT_EQ(g_sleepMsCalls, 3);
    EXPECT_EQ(Val(0), 0);

    EXPECT_EQ(holder.Release(), 0);
    EXPECT_EQ(Val(0), 1);
    EXPECT_EQ(Val(1), 1000);

    // A second thread of the holding process waits like another process.
    ASSERT_EQ(vtapi_LockAccessMutex(id_, 0xFFFFFFFFu), 0u);
    g_sleepMsCalls = 0;
    uint32_t threadRc = 0;
    std::thread([&] { threadRc = vtapi_LockAccessMutex(id_, 30); }).join();
    EXPECT_EQ(threadRc, 1u);
    EXPECT_EQ(g_sleepMsCalls, 3);
    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 1);
}

TEST_F(AccessMutex, TimeoutBelowTenSkipsTheLock) {
    Holder holder(id_);
    ASSERT_TRUE(holder.locked());
    for (uint32_t timeout : {0u, 5u, 9u}) {
        EXPECT_EQ(vtapi_LockAccessMutex(id_, timeout), 0u) << timeout;
        EXPECT_EQ(g_sleepMsCalls, 0) << timeout;
        EXPECT_EQ(Val(0), 0) << timeout;  // the holder still has it
        EXPECT_EQ(Val(1), 999) << timeout;
        AccessLockRecord *rec = vtapi_getLockInfo(id_);
        ASSERT_NE(rec, nullptr);
        EXPECT_EQ(rec->Locked, 1);
        rec->Locked = 0;  // forget the pretend hold before the next round
    }
}

TEST_F(AccessMutex, UnlockWithoutLockRaisesLockSemaphore) {
    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 2);
    EXPECT_EQ(Val(1), 1000);
}

TEST_F(AccessMutex, DeadHolderLeavesSetFree) {
    Holder holder(id_);
    ASSERT_TRUE(holder.locked());
    EXPECT_EQ(Val(0), 0);
    EXPECT_EQ(Val(1), 999);
    const int status = holder.Kill();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(Val(0), 1);
    EXPECT_EQ(Val(1), 1000);
    EXPECT_EQ(vtapi_LockAccessMutex(id_, 20), 0u);
    EXPECT_EQ(g_sleepMsCalls, 0);
    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 1);
}

TEST_F(AccessMutex, CreationOpensExistingSetsAndKeepsTheEexistQuirk) {
    ASSERT_EQ(vtapi_LockAccessMutex(id_, 10), 0u);
    errno = 0;
    EXPECT_EQ(vtapi_CreateAccessMutex2(key_), id_);
    EXPECT_EQ(Val(0), 0);  // opened, not reinitialized
    EXPECT_EQ(vtapi_UnlockAccessMutex(id_), 0u);

    // A new set made while errno still says EEXIST is not initialized.
    const uint32_t key = UnusedKey();
    errno = EEXIST;
    const int32_t stale = vtapi_CreateAccessMutex2(key);
    ASSERT_GE(stale, 0);
    EXPECT_EQ(semctl(stale, 0, GETVAL), 0);
    EXPECT_EQ(semctl(stale, 1, GETVAL), 0);
    ASSERT_NE(vtapi_getLockInfo(stale), nullptr);
    EXPECT_EQ(vtapi_getLockInfo(stale)->Locked, 0);
    EXPECT_EQ(vtapi_InitccessMutex(stale), stale);
    EXPECT_EQ(semctl(stale, 0, GETVAL), 1);
    EXPECT_EQ(semctl(stale, 1, GETVAL), 1000);
    EXPECT_EQ(vtapi_DestroyAccessMutex(stale), 0u);
    EXPECT_EQ(vtapi_DestroyAccessMutex(stale), 1u);
    EXPECT_LT(vtapi_InitccessMutex(stale), 0);
    EXPECT_EQ(vtapi_getLockInfo(-12345), nullptr);
}

TEST_F(AccessMutex, CnaWrappersRunInsideProfilerFrames) {
    EXPECT_EQ(vtapi_cnaLockAccessMutex(id_, 10), 0u);
    EXPECT_EQ(Val(0), 0);
    EXPECT_EQ(vtapi_cnaUnlockAccessMutex(id_), 0u);
    EXPECT_EQ(Val(0), 1);
    const std::vector<std::string> frames = {"enter:vtapi_cnaLockAccessMutex", "exit:vtapi_cnaLockAccessMutex",
                                             "enter:vtapi_cnaUnlockAccessMutex", "exit:vtapi_cnaUnlockAccessMutex"};
    EXPECT_EQ(g_messages, frames);

    const int32_t extra = vtapi_CreateAccessMutex2(UnusedKey());
    ASSERT_GE(extra, 0);
    g_messages.clear();
    EXPECT_EQ(vtapi_cnaDestroyAccessMutex(extra), 0u);
    EXPECT_EQ(vtapi_cnaDestroyAccessMutex(extra), 1u);
    EXPECT_EQ(g_messages.front(), "enter:vtapi_cnaDestroyAccessMutex");
    EXPECT_EQ(g_messages.size(), 4u);
}

TEST(AccessMutexKey, CrcOfNameSelectsTheSet) {
    EXPECT_EQ(vtapi_crc(reinterpret_cast<const unsigned char *>("123456789"), 9), 0xCBF43926u);
    const std::string production = "VTAPIMutexKey";
    EXPECT_EQ(vtapi_crc(reinterpret_cast<const unsigned char *>(production.data()), 13), ReferenceCrc(production));
    const auto *d = reinterpret_cast<const unsigned char *>(production.data());
    EXPECT_EQ(vtapi_update_crc(vtapi_update_crc(0xFFFFFFFFu, d, 5), d + 5, 8) ^ 0xFFFFFFFFu, ReferenceCrc(production));

    vttest::SysrootScope root;
    std::string name;
    do {
        name = "vtapi-test-" + std::to_string(getpid()) + "-" + std::to_string(std::random_device{}());
    } while (semget(static_cast<key_t>(ReferenceCrc(name)), 0, 0) != -1);
    errno = 0;
    // The first set of a fresh IPC namespace has the id 0, which is also
    // what a failed creation returns: the set itself tells them apart.
    const int32_t id = vtapi_CreateAccessMutex(name.c_str(), static_cast<uint32_t>(name.size()));
    ASSERT_EQ(semget(static_cast<key_t>(ReferenceCrc(name)), 0, 0), id);
    EXPECT_EQ(vtapi_DestroyAccessMutex(id), 0u);
}

// ------------------------------------------------------ critical section

TEST(OssCriticalSection, LifecycleAndMessages) {
    g_messages.clear();
    ASSERT_EQ(OSSDeleteCriticalSection(), 0u);  // none yet
    EXPECT_EQ(OSSEnterCriticalSection(), -1);
    EXPECT_EQ(OSSLeaveCriticalSection(), -1);
    const std::vector<std::string> uninit = {"3:OSSEnterCriticalSection: The mutex has not been properly initialized!",
                                             "3:OSSLeaveCriticalSection: The mutex has not been properly initialized!"};
    EXPECT_EQ(g_messages, uninit);

    g_messages.clear();
    ASSERT_EQ(OSSInitCriticalSection(), 0u);
    void *first = g_ossCriticalSection;
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(OSSInitCriticalSection(), 0u);  // replaces the pointer
    void *second = g_ossCriticalSection;
    EXPECT_NE(second, first);

    EXPECT_EQ(OSSEnterCriticalSection(), 0);
    EXPECT_EQ(OSSDeleteCriticalSection(), 0xFFFFFFFFu);
    EXPECT_EQ(g_ossCriticalSection, second);
    ASSERT_EQ(g_messages.size(), 1u);
    EXPECT_EQ(g_messages[0], "3:OSSDeleteCriticalSection: The mutex is currently locked!");

    // The mutex really excludes: another thread cannot take it meanwhile.
    int tryRc = 0;
    std::thread([&] { tryRc = pthread_mutex_trylock(static_cast<pthread_mutex_t *>(g_ossCriticalSection)); }).join();
    EXPECT_EQ(tryRc, EBUSY);

    EXPECT_EQ(OSSLeaveCriticalSection(), 0);
    EXPECT_EQ(OSSDeleteCriticalSection(), 0u);
    EXPECT_EQ(g_ossCriticalSection, nullptr);
    EXPECT_EQ(g_messages.size(), 1u);
}

// ------------------------------------------------------------------ waits

void OnAlarm(int) {}

template <typename Fn>
double MsWhileInterrupted(Fn fn) {
    struct sigaction sa {};
    sa.sa_handler = OnAlarm;  // no SA_RESTART: nanosleep returns EINTR
    struct sigaction old {};
    sigaction(SIGALRM, &sa, &old);
    itimerval tv{{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &tv, nullptr);
    const auto start = std::chrono::steady_clock::now();
    fn();
    const auto end = std::chrono::steady_clock::now();
    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    return std::chrono::duration<double, std::milli>(end - start).count();
}

TEST(OssWaits, SleepsLastTheirWholeTimeDespiteSignals) {
    EXPECT_GE(MsWhileInterrupted([&] { OSSSleep(1); }), 1000.0);
}

}  // namespace
