// The terminal of the diagnostics and monitor tests: the library's screen
// output (scfxDiagnosticsPrint) and key input (DiagGetKey) are replaced (the
// library calls them through the dynamic symbol table).  What is printed is
// collected; each key comes from `keys`, asked every millisecond or so.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace diagtest {

struct Terminal {
    std::mutex mutex;
    std::string screen;
    std::function<int32_t()> keys;    // null: no key
    std::function<void()> beforeKey;  // sees each wait for a key
};

inline Terminal &TheTerminal() {
    static Terminal t;
    return t;
}

inline std::string Screen() {
    std::lock_guard<std::mutex> lock(TheTerminal().mutex);
    return TheTerminal().screen;
}

}  // namespace diagtest

// The replacements; used by exactly one file of a test program.
#define DIAG_TEST_TERMINAL_HOOKS                                         \
    extern "C" void scfxDiagnosticsPrint(const char *text) {             \
        std::lock_guard<std::mutex> lock(diagtest::TheTerminal().mutex); \
        diagtest::TheTerminal().screen += text;                          \
    }                                                                    \
    extern "C" int32_t DiagGetKey(uint32_t) {                            \
        std::this_thread::sleep_for(std::chrono::milliseconds(1));       \
        diagtest::Terminal &t = diagtest::TheTerminal();                 \
        if (t.beforeKey) t.beforeKey();                                  \
        return t.keys ? t.keys() : -1;                                   \
    }
