// Cross-process access mutex (System V semaphore set), the in-process OSS
// critical section, and the replaceable waits.
//
// The semaphore set has two semaphores: 0 is the lock (1 free, 0 held) and
// 1 counts the nesting depth downwards from 1000.  Every operation carries
// SEM_UNDO so that the kernel releases what a dying process held.  Waits on
// semaphore 0 poll with IPC_NOWAIT and sleep through OSSSleepMs between
// attempts.
#include <errno.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <time.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>
#include <vector>

#include "oss/oss.h"

namespace {

constexpr int kLockSem = 0;
constexpr int kDepthSem = 1;
constexpr int kDepthFree = 1000;
constexpr uint64_t kNoOwner = ~uint64_t{0};
constexpr uint32_t kPollIntervalMs = 100;

// glibc leaves the definition of the semctl argument to the caller.
union SemArg {
    int val;
    struct semid_ds *buf;
    unsigned short *array;
};

uint32_t g_crcTable[256];
std::once_flag g_crcOnce;

// Lock records of this process.  A deque keeps the addresses handed out by
// vtapi_getLockInfo valid while the table grows.
std::mutex g_tableMutex;
std::deque<AccessLockRecord> g_lockTable;

std::mutex g_mutexIdGuard;
int32_t g_vtapiMutexId = 0;

int SemOp(int32_t id, unsigned short num, short delta, short flags) {
    struct sembuf op {};
    op.sem_num = num;
    op.sem_op = delta;
    op.sem_flg = static_cast<short>(flags | SEM_UNDO);
    return semop(id, &op, 1);
}

int SemSet(int32_t id, int num, int value) {
    SemArg arg{};
    arg.val = value;
    return semctl(id, num, SETVAL, arg);
}

uint64_t Self() { return static_cast<uint64_t>(pthread_self()); }

pthread_mutex_t *CriticalSection() { return static_cast<pthread_mutex_t *>(g_ossCriticalSection); }

// Whether the current critical section is held, so that deleting it never
// has to try pthread_mutex_destroy on a locked mutex.  Written only by the
// holder, between its lock and unlock.
std::atomic<bool> g_sectionHeld{false};

// Mutexes replaced by a later OSSInitCriticalSection stay allocated (a thread
// may still be inside one); they are kept reachable here.
std::vector<void *> *g_retiredSections = nullptr;

void SleepFor(struct timespec ts) {
    while (nanosleep(&ts, &ts) == -1 && errno == EINTR) {
    }
}

}  // namespace

extern "C" {

VTAPI_EXPORT void *g_ossCriticalSection = nullptr;

/* ------------------------------------------------------------- CRC-32 */

VTAPI_EXPORT void vtapi_make_crc_table(void) {
    for (uint32_t n = 0; n < 256; ++n) {
        uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        g_crcTable[n] = c;
    }
}

VTAPI_EXPORT uint32_t vtapi_update_crc(uint32_t crc, const unsigned char *data, uint32_t length) {
    std::call_once(g_crcOnce, [] { vtapi_make_crc_table(); });
    for (uint32_t i = 0; data != nullptr && i < length; ++i) crc = g_crcTable[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

VTAPI_EXPORT uint32_t vtapi_crc(const unsigned char *data, uint32_t length) {
    return vtapi_update_crc(0xFFFFFFFFu, data, length) ^ 0xFFFFFFFFu;
}

/* ------------------------------------------------------- access mutex */

VTAPI_EXPORT int32_t vtapi_InitccessMutex(int32_t id) {
    int rc = SemSet(id, kLockSem, 1);
    if (rc < 0) return rc;
    rc = SemSet(id, kDepthSem, kDepthFree);
    if (rc < 0) return rc;
    return id;
}

VTAPI_EXPORT int32_t vtapi_CreateAccessMutex2(uint32_t key) {
    const key_t k = static_cast<key_t>(key);
    int32_t id = semget(k, 2, IPC_CREAT | IPC_EXCL | 0666);
    if (id == -1) {
        if (errno != EEXIST) return id;
        id = semget(k, 1, IPC_CREAT | 0666);
    } else if (errno == EEXIST) {
        // A stale EEXIST left by an earlier call makes the new set look like
        // an existing one: it is reopened and not initialized.
        id = semget(k, 1, IPC_CREAT | 0666);
    } else {
        const int32_t rc = vtapi_InitccessMutex(id);
        if (rc < 0) return rc;
    }
    try {
        std::lock_guard<std::mutex> lock(g_tableMutex);
        g_lockTable.push_back(AccessLockRecord{id, 0, 0});
    } catch (const std::bad_alloc &) {
        // The table stays as it was; the caller still gets the id.
    }
    return id;
}

VTAPI_EXPORT int32_t vtapi_CreateAccessMutex(const char *name, uint32_t length) {
    const uint32_t key = vtapi_crc(reinterpret_cast<const unsigned char *>(name), length);
    const int32_t id = vtapi_CreateAccessMutex2(key);
    return id < 0 ? 0 : id;
}

VTAPI_EXPORT int32_t getVTAPIMutexID(void) {
    std::lock_guard<std::mutex> lock(g_mutexIdGuard);
    if (g_vtapiMutexId == 0) g_vtapiMutexId = vtapi_CreateAccessMutex("VTAPIMutexKey", 13);
    return g_vtapiMutexId;
}

VTAPI_EXPORT AccessLockRecord *vtapi_getLockInfo(int32_t id) {
    std::lock_guard<std::mutex> lock(g_tableMutex);
    for (auto &rec : g_lockTable)
        if (rec.SemaphoreId == id) return &rec;
    return nullptr;
}

VTAPI_EXPORT void vtapi_freeAccessMutexMemory(void) {
    std::lock_guard<std::mutex> lock(g_tableMutex);
    std::deque<AccessLockRecord>().swap(g_lockTable);
}

VTAPI_EXPORT uint32_t vtapi_LockAccessMutex(int32_t id, uint32_t timeout) {
    AccessLockRecord *rec = vtapi_getLockInfo(id);
    const uint64_t self = Self();
    bool recursive = false;
    if (rec != nullptr) {
        std::lock_guard<std::mutex> lock(g_tableMutex);
        recursive = rec->Locked == 1 && rec->Owner == self;
    }
    if (recursive) {
        (void)SemOp(id, kDepthSem, -1, 0);
        return 0;
    }
    // A timeout below 10 makes no attempt and carries on as if locked.
    if (timeout >= 10) {
        const uint32_t attempts = timeout / 10;
        bool taken = false;
        for (uint32_t i = 0; i < attempts && !taken; ++i) {
            taken = SemOp(id, kLockSem, -1, IPC_NOWAIT) == 0;
            if (!taken) OSSSleepMs(kPollIntervalMs);
        }
        if (!taken) return 1;
    }
    if (rec != nullptr) {
        std::lock_guard<std::mutex> lock(g_tableMutex);
        rec->Locked = 1;
        rec->Owner = self;
    }
    if (SemSet(id, kDepthSem, kDepthFree) == -1) return 1;
    return SemOp(id, kDepthSem, -1, 0) == -1 ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtapi_UnlockAccessMutex(int32_t id) {
    const int depth = semctl(id, kDepthSem, GETVAL);
    if (depth != kDepthFree) {
        (void)SemOp(id, kDepthSem, 1, 0);
        if (depth != kDepthFree - 1) return 0;  // nested release
    }
    // Outermost release.  With nothing held this raises semaphore 0 above 1.
    const int rc = SemOp(id, kLockSem, 1, 0);
    if (AccessLockRecord *rec = vtapi_getLockInfo(id)) {
        std::lock_guard<std::mutex> lock(g_tableMutex);
        rec->Locked = 0;
        rec->Owner = kNoOwner;
    }
    return rc == -1 ? 1 : 0;
}

VTAPI_EXPORT uint32_t vtapi_DestroyAccessMutex(int32_t id) { return semctl(id, 0, IPC_RMID) == -1 ? 1 : 0; }

VTAPI_EXPORT uint32_t vtapi_cnaLockAccessMutex(int32_t id, uint32_t timeout) {
    ProfilerEnterFunction("vtapi_cnaLockAccessMutex");
    const uint32_t rc = vtapi_LockAccessMutex(id, timeout);
    ProfilerExitFunction("vtapi_cnaLockAccessMutex");
    return rc;
}

VTAPI_EXPORT uint32_t vtapi_cnaUnlockAccessMutex(int32_t id) {
    ProfilerEnterFunction("vtapi_cnaUnlockAccessMutex");
    const uint32_t rc = vtapi_UnlockAccessMutex(id);
    ProfilerExitFunction("vtapi_cnaUnlockAccessMutex");
    return rc;
}

VTAPI_EXPORT uint32_t vtapi_cnaDestroyAccessMutex(int32_t id) {
    ProfilerEnterFunction("vtapi_cnaDestroyAccessMutex");
    const uint32_t rc = vtapi_DestroyAccessMutex(id);
    ProfilerExitFunction("vtapi_cnaDestroyAccessMutex");
    return rc;
}

/* ------------------------------------------------ OSS critical section */

VTAPI_EXPORT uint32_t OSSInitCriticalSection(void) {
    void *mem = std::calloc(1, sizeof(pthread_mutex_t));
    if (mem == nullptr) {
        CoreLogMessage(VT_MSG_ERROR, "OSSInitCriticalSection: Unable to allocate memory for mutex");
        return vt::kFailure;
    }
    pthread_mutex_init(static_cast<pthread_mutex_t *>(mem), nullptr);
    if (g_ossCriticalSection != nullptr) {
        if (g_retiredSections == nullptr) g_retiredSections = new std::vector<void *>;
        g_retiredSections->push_back(g_ossCriticalSection);
    }
    g_ossCriticalSection = mem;
    g_sectionHeld.store(false);
    return 0;
}

VTAPI_EXPORT int32_t OSSEnterCriticalSection(void) {
    pthread_mutex_t *m = CriticalSection();
    const int rc = m == nullptr ? EINVAL : pthread_mutex_lock(m);
    if (rc == 0) {
        g_sectionHeld.store(true);
        return 0;
    }
    if (rc == EINVAL)
        CoreLogMessage(VT_MSG_ERROR, "OSSEnterCriticalSection: The mutex has not been properly initialized!");
    else if (rc == EDEADLK)
        CoreLogMessage(VT_MSG_ERROR, "OSSEnterCriticalSection: The mutex is already locked by the caller!");
    return -1;
}

VTAPI_EXPORT int32_t OSSLeaveCriticalSection(void) {
    pthread_mutex_t *m = CriticalSection();
    // Cleared before the unlock: after it another thread may take the
    // section and set the flag again.  A caller that does not hold the
    // section gets EPERM below only for error-checking mutexes, so the flag
    // is restored when the unlock fails.
    const bool wasHeld = g_sectionHeld.exchange(false);
    const int rc = m == nullptr ? EINVAL : pthread_mutex_unlock(m);
    if (rc != 0) g_sectionHeld.store(wasHeld);
    if (rc == 0) return 0;
    if (rc == EINVAL)
        CoreLogMessage(VT_MSG_ERROR, "OSSLeaveCriticalSection: The mutex has not been properly initialized!");
    else if (rc == EPERM) CoreLogMessage(VT_MSG_ERROR, "OSSLeaveCriticalSection: The caller does not own the mutex!");
    return -1;
}

VTAPI_EXPORT uint32_t OSSDeleteCriticalSection(void) {
    pthread_mutex_t *m = CriticalSection();
    if (m == nullptr) return 0;
    if (g_sectionHeld.load()) {
        CoreLogMessage(VT_MSG_ERROR, "OSSDeleteCriticalSection: The mutex is currently locked!");
        return vt::kFailure;
    }
    const int rc = pthread_mutex_destroy(m);
    if (rc != 0) return vt::kFailure;
    std::free(m);
    g_ossCriticalSection = nullptr;
    return 0;
}

/* --------------------------------------------------------------- waits */

VTAPI_EXPORT void OSSSleep(uint32_t seconds) { SleepFor(timespec{static_cast<time_t>(seconds), 0}); }

void OSSSleepMs(uint32_t milliseconds) {
    SleepFor(timespec{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L});
}

}  // extern "C"
