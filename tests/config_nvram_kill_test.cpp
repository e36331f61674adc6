// A program that keeps changing HBA parameters, killed with SIGKILL at
// random moments 200 times, never leaves the port's NVRAM with a wrong
// checksum: an image is written whole or not at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <vector>

#include "testutil.h"
#include "vtsdm.h"

namespace {

TEST(NvramKill, KilledUpdatesNeverLeaveABadChecksum) {
    vttest::SysrootScope root;
    setenv("VTSDM_HOST", vttest::BuildPath("data/default_host.json").c_str(), 1);
    uint32_t h = 0;
    ASSERT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
    auto checksumOk = [&](std::vector<uint8_t> &img) {
        EXPECT_EQ(SDGetNVRam(h, 0, 1, img.data(), 512), SDERR_NONE);
        uint32_t sum = 0;
        for (size_t i = 0; i < 512; i += 4)
            sum +=
                uint32_t(img[i]) | uint32_t(img[i + 1]) << 8 | uint32_t(img[i + 2]) << 16 | uint32_t(img[i + 3]) << 24;
        return sum == 0;
    };

    std::mt19937 rng(20240611);
    std::uniform_int_distribution<int> delayMs(0, 40);
    int changed = 0;  // runs whose writes landed before the kill
    std::vector<uint8_t> img(512), last(512);
    ASSERT_TRUE(checksumOk(last));
    const int runs = vttest::LoopRuns(200);
    for (int run = 0; run < runs; ++run) {
        int out[2];
        ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
        vttest::ChildGuard child =
            vttest::Spawn({vttest::BuildPath("tests/nvram_params"), "loop", "21:00:00:24:ff:7c:50:10"}, {}, out[1]);
        close(out[1]);
        // Once the library is up, the kill falls somewhere in the updates.
        char ready[6] = {};
        const ssize_t n = read(out[0], ready, sizeof ready);
        close(out[0]);
        ASSERT_EQ(n, 6) << "run " << run;
        const struct timespec pause = {0, long(delayMs(rng)) * 1000000L};
        nanosleep(&pause, nullptr);
        child.Kill();
        ASSERT_TRUE(checksumOk(img)) << "run " << run;
        changed += img != last;
        last = img;
    }
    EXPECT_GT(changed, runs / 10);
    SDCloseDevice(h);
    unsetenv("VTSDM_HOST");
}

}  // namespace
