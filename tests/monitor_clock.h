// A clock for the monitor tests, shared by the library and the simulated
// host: the library's DiagGetTime and OSSSleep are replaced (the library
// calls them through the dynamic symbol table), sleeping moves the clock,
// and the simulated host's clock is set to the same time before the library
// reads it.  Sleeps can be gated, so that a test lets a monitor poll one
// step at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testutil.h"

namespace monitortest {

struct Clock {
    std::mutex mutex;
    std::condition_variable moved;
    time_t now = 1700000000;  // 2023-11-14 22:13:20 UTC
    time_t simulated = 0;     // what the simulated host was last set to
    bool gated = false;
    int tokens = 0;  // sleeps of a second allowed while gated
    std::vector<uint32_t> sleeps;

    // Sets the simulated host's clock to the library's (vtsdm-sim clock set).
    void SyncSimulator() {
        std::lock_guard<std::mutex> lock(mutex);
        if (simulated == now) return;
        const auto r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "clock", "set", std::to_string(now)});
        if (r.status == 0) simulated = now;
    }
    void Allow(int seconds) {
        std::lock_guard<std::mutex> lock(mutex);
        tokens += seconds;
        moved.notify_all();
    }
    void Ungate() {
        std::lock_guard<std::mutex> lock(mutex);
        gated = false;
        moved.notify_all();
    }
    // Time passes for the library and the simulated host alike.
    void Sleep(uint32_t seconds) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            sleeps.push_back(seconds);
            moved.wait(lock, [&] { return !gated || tokens >= int(seconds); });
            if (gated) tokens -= int(seconds);
            now += seconds;
        }
        SyncSimulator();
    }
};

inline Clock &TheClock() {
    static Clock c;
    return c;
}

inline void Reset(time_t now = 1700000000) {
    Clock &c = TheClock();
    std::lock_guard<std::mutex> lock(c.mutex);
    c.now = now;
    c.simulated = 0;
    c.gated = false;
    c.tokens = 0;
    c.sleeps.clear();
}

}  // namespace monitortest

// The replacements; included by exactly one file of a test program.
#define MONITOR_TEST_CLOCK_HOOKS                                         \
    extern "C" time_t DiagGetTime(void) {                                \
        monitortest::TheClock().SyncSimulator();                         \
        std::lock_guard<std::mutex> lock(monitortest::TheClock().mutex); \
        return monitortest::TheClock().now;                              \
    }                                                                    \
    extern "C" void OSSSleep(uint32_t seconds) { monitortest::TheClock().Sleep(seconds); }
