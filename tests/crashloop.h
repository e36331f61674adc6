// Kills a process that rewrites a file, at varied points, again and again,
// and checks the file after each kill.
#pragma once

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "testutil.h"

namespace vttest {

// LoopRuns(runs) times: forks a child that calls rewrite(0), rewrite(1), ... without
// end, waits until its first rewrite is done, lets it run for a varied
// time (none to a few milliseconds) and kills it with SIGKILL; then calls
// check(run).  The child also dies with the test process.
inline void KillWhileRewriting(int runs, const std::function<void(unsigned)> &rewrite,
                               const std::function<void(int)> &check) {
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> delayUs(0, 3000);
    runs = LoopRuns(runs);
    for (int run = 0; run < runs; ++run) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t pid = ForkChild();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(ready[0]);
            for (unsigned i = 0;; ++i) {
                rewrite(i);
                if (i == 0) {
                    const char byte = 1;
                    (void)!::write(ready[1], &byte, 1);
                    ::close(ready[1]);
                }
            }
        }
        ChildGuard child(pid);
        ::close(ready[1]);
        char byte = 0;
        const ssize_t n = ::read(ready[0], &byte, 1);
        ::close(ready[0]);
        ASSERT_EQ(n, 1) << "the rewriting child died before its first rewrite";
        ::usleep(useconds_t(delayUs(random)));
        const int status = child.Kill();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "run " << run;
        check(run);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

}  // namespace vttest
