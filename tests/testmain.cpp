// main() of the test programs.  A program built with VT_TEST_PRIVATE_IPC
// takes the library's cross-process access mutex, a System V semaphore set
// shared by every process of an IPC namespace: started outside a private
// namespace it says how to run it and runs nothing, so that it can neither
// wait on nor disturb the rest of the machine.  Listing the tests (as CTest
// does when it builds them) is always allowed.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "testutil.h"

#ifdef VT_TEST_PRIVATE_IPC
namespace {

// The argument quoted for a POSIX shell when it needs it.
std::string Quoted(const std::string &arg) {
    if (!arg.empty() && arg.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                              "-_./=:,+@%") == std::string::npos)
        return arg;
    std::string out = "'";
    for (char c : arg) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace
#endif

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv, argv + argc);
    ::testing::InitGoogleTest(&argc, argv);
#ifdef VT_TEST_PRIVATE_IPC
    if (!::testing::GTEST_FLAG(list_tests) && !vttest::InPrivateIpcNamespace()) {
        std::string command = "unshare --ipc";
        for (const std::string &a : args) command.append(" ").append(Quoted(a));
        std::fprintf(stderr,
                     "%s: these tests take the library's cross-process access mutex, which every process\n"
                     "of an IPC namespace shares.  Run them in a private IPC namespace (as root):\n"
                     "    %s\n"
                     "or run the whole suite with ./scripts/test.sh.\n",
                     args[0].c_str(), command.c_str());
        return 2;
    }
#endif
    return RUN_ALL_TESTS();
}
