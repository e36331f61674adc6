// Termination signals of the command line, taken on a thread of their own.
//
// SIGINT, SIGTERM and SIGHUP are blocked in the thread that starts the
// signal thread (and so in every thread started after it); the signal thread
// takes them with sigwait and runs the termination handler in ordinary
// thread context, where it may log, allocate and free.
//
// The command gate keeps that handler from freeing the core's lists while the
// command thread still builds or walks them: the command thread marks its
// command with CommandBegin/CommandEnd, passes safe points (every line a
// report writes, every wait for input), and once the signal thread has asked
// it to stop it parks for good at the next of them.  StopCommandThread, on
// the signal thread, waits for that.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace vt::oss {

using SignalHandler = void (*)(int32_t);

// Blocks the signals that are not ignored in the calling thread and starts the
// thread that hands them to `handler` (once per process; later calls only
// block).  A signal ignored on entry stays ignored.  False when the thread
// could not be started (the signals then keep their default action).
bool StartSignalThread(std::initializer_list<int> signals, SignalHandler handler);
bool OnSignalThread();

void CommandBegin();
void CommandEnd();
void SafePoint();
// On the signal thread: from now on the command thread parks at its next
// safe point (the handler calls this first, before it tells a running
// diagnostic to stop).  StopCommandThread also waits for it.
void RequestCommandStop();
void StopCommandThread();

// While alive, the command thread waits for input and touches no list: it
// counts as stopped, and parks when the wait ends after a stop request.
class InputWait {
public:
    InputWait();
    ~InputWait();
    InputWait(const InputWait &) = delete;
    InputWait &operator=(const InputWait &) = delete;
};

}  // namespace vt::oss
