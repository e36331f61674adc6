// Flash parts of the simulated cards through the SD... interface: the
// regions and capacities of each chip family, a host file's own layout,
// read and write faults from the host file and from vtsdm-sim, updates of
// several regions that land whole or not at all (also when the writer is
// killed), and reboot-required after an update.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "host.h"
#include "imagebuild.h"
#include "simulator.h"
#include "testutil.h"
#include "vtsdm.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Layout = std::map<uint32_t, uint32_t>;  // region -> capacity

constexpr uint32_t kFw = 256 * 1024, kBoot = 128 * 1024, kSmall = 32 * 1024;

// Instances of data/hosts/flash_families.json (the Kite card has two ports).
enum : uint32_t { kKite = 0, kWren = 2, kTern = 3, kOrla = 4, kTove = 5, kOlder = 6, kSmallPart = 7, kFaulty = 8 };

class SimFlash : public ::testing::Test {
protected:
    void SetUp() override {
        hostFile_ = vttest::SourcePath("data/hosts/flash_families.json");
        setenv("VTSDM_HOST", hostFile_.c_str(), 1);
        vtsdm::UnloadBackend();
    }
    void TearDown() override {
        vtsdm::UnloadBackend();
        unsetenv("VTSDM_HOST");
    }
    uint32_t Open(uint32_t instance) {
        uint32_t h = 0;
        EXPECT_EQ(SDOpenDevice(instance, &h), SDERR_NONE) << instance;
        return h;
    }
    static Layout LayoutOf(uint32_t h, uint32_t *flashSize = nullptr) {
        std::vector<uint32_t> buf(2 + 2 * 64, 0);
        auto *l = reinterpret_cast<SDOptionRomLayout *>(buf.data());
        l->Count = 64;
        EXPECT_EQ(SDGetOptionRomLayout(h, 0, l, uint32_t(buf.size() * 4)), SDERR_NONE);
        Layout out;
        for (uint32_t i = 0; i < l->Count; ++i) out[l->Region[i].Region] = l->Region[i].Size;
        if (flashSize) *flashSize = l->FlashSize;
        return out;
    }
    static Bytes Read(uint32_t h, uint32_t region, uint32_t size, uint32_t *rc = nullptr) {
        Bytes b(size);
        const uint32_t status = SDGetOptionRomEx(h, b.data(), size, region, 0);
        if (rc) *rc = status;
        else EXPECT_EQ(status, SDERR_NONE) << std::hex << region;
        return b;
    }
    static uint32_t Write(uint32_t h, const std::vector<std::pair<uint32_t, Bytes>> &regions) {
        std::vector<SDRegionImage> images;
        for (const auto &[region, bytes] : regions) images.push_back({region, uint32_t(bytes.size()), bytes.data()});
        return SDUpdateOptionRomRegions(h, images.data(), uint32_t(images.size()), 0);
    }
    static bool RebootRequired(uint32_t h) {
        SDPortProperty p{};
        EXPECT_EQ(SDGetHbaDevicePortProperty(h, &p), SDERR_NONE);
        return p.StateFlags & SD_PORTFLAG_REBOOT_REQUIRED;
    }
    vttest::RunResult SimTool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args, {"VTSDM_HOST=" + hostFile_});
    }

    vttest::SysrootScope root_;
    std::string hostFile_;
};

Layout With(std::initializer_list<uint32_t> codes, uint32_t capacity, Layout into = {}) {
    for (uint32_t c : codes) into[c] = capacity;
    return into;
}

TEST_F(SimFlash, EveryFamilyHasItsRegionsAndCapacities) {
    // VPD, NVRAM and the layout table are on every card; the VPD and NVRAM as
    // large as their contents.
    auto fixed = [&](uint32_t h, Layout l, std::initializer_list<uint32_t> nvmeBoot) {
        const Layout got = LayoutOf(h);
        for (uint32_t c : {0x8Cu, 0x8Du}) {
            EXPECT_TRUE(got.count(c)) << std::hex << c;
            if (got.count(c)) l[c] = got.at(c);
        }
        l[0x8E] = 8192;
        for (uint32_t c : nvmeBoot) l[c] = 16384;
        // Cards with two FC-NVMe boot regions also record which one is active.
        if (nvmeBoot.size() == 2) l[0x8F] = 16;
        l[0x9A] = 4096;  // the memo block
        return l;
    };
    Layout kite = With({0x07, 0x11}, kBoot);
    kite = With({0x01, 0xD1, 0xD2, 0xD3, 0x101}, kFw, kite);
    kite = With({0x13, 0x14, 0x16, 0x67, 0x95, 0x96, 0x9E, 0xBA, 0xCF, 0xD4, 0xD6, 0x102, 0x103}, kSmall, kite);
    Layout wren = With({0x07}, kBoot);
    wren = With({0x01, 0xD1, 0xD2, 0xD3, 0xE1, 0x66}, kFw, wren);
    wren = With({0x9E, 0x14, 0x16, 0x67, 0x95, 0x96, 0xD4, 0xD6}, kSmall, wren);
    Layout converged = With({0x07, 0x2E, 0x4F, 0xA2}, kBoot);
    converged = With({0x01, 0x40, 0x45, 0x74, 0x97, 0xA4}, kFw, converged);
    converged = With({0x14, 0x16, 0x70, 0x71, 0x72, 0x73, 0x81, 0xA3, 0xB1}, kSmall, converged);
    converged[0x41] = 64 * 1024;
    const Layout older = With({0x01}, kFw, With({0x07}, kBoot));

    const struct {
        uint32_t instance;
        Layout expected;
        std::initializer_list<uint32_t> nvmeBoot;
    } cases[] = {{kKite, kite, {334, 377}}, {kWren, wren, {33}},      {kTern, converged, {}},
                 {kOrla, converged, {}},    {kTove, converged, {33}}, {kOlder, older, {}}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.instance);
        const uint32_t h = Open(c.instance);
        uint32_t flashSize = 0;
        const Layout got = LayoutOf(h, &flashSize);
        EXPECT_EQ(got, fixed(h, c.expected, c.nvmeBoot));
        uint64_t total = 0;
        for (const auto &[region, size] : got) total += size;
        EXPECT_GE(flashSize, total);
        EXPECT_EQ(flashSize & (flashSize - 1), 0u);
        // Every region reads whole; past its end the read is short.
        for (const auto &[region, size] : got) {
            uint32_t rc = 0;
            Read(h, region, size, &rc);
            EXPECT_EQ(rc, SDERR_NONE) << std::hex << region;
            Read(h, region, size + 1, &rc);
            EXPECT_EQ(rc, SDERR_SHORT_READ) << std::hex << region;
        }
        SDCloseDevice(h);
    }

    // A fresh Kite card holds components with versions in its other regions,
    // and its layout table lists them.
    const uint32_t h = Open(kKite);
    const Bytes mpi = Read(h, 0xD3, kFw);
    EXPECT_EQ((std::vector<uint8_t>{mpi[19], mpi[23], mpi[27]}), (std::vector<uint8_t>{2, 1, 9}));
    EXPECT_EQ(mpi.back(), 0xFF);  // erased past the component
    const Bytes ilt = Read(h, 0x8E, 8192);
    ASSERT_EQ(std::string(ilt.begin(), ilt.begin() + 4), "VFIM");
    std::set<uint32_t> listed;
    const uint32_t n = ilt[10] | ilt[11] << 8;
    for (uint32_t i = 0; i + 1 < n; ++i) listed.insert(ilt[(i + 1) * 32] | ilt[(i + 1) * 32 + 1] << 8);
    for (uint32_t c : {0x01u, 0x07u, 0x11u, 0x9Eu, 0xD1u, 0xD3u, 0x103u}) EXPECT_TRUE(listed.count(c)) << std::hex << c;
    EXPECT_FALSE(listed.count(0xE1));
    EXPECT_EQ(ilt[13], 1);  // the host file's multiboot version 01.12.03
    EXPECT_EQ(ilt[14], 12);
}

TEST_F(SimFlash, HostFileLayoutReplacesTheFamilys) {
    const uint32_t h = Open(kSmallPart);
    const Layout got = LayoutOf(h);
    EXPECT_EQ(got.at(0x01), 16384u);
    EXPECT_EQ(got.at(0x07), 65536u);
    EXPECT_FALSE(got.count(0x9E));
    EXPECT_FALSE(got.count(0xD3));
    EXPECT_TRUE(got.count(0x8C) && got.count(0x8E));
    uint32_t rc = 0;
    Read(h, 0xD3, 16, &rc);
    EXPECT_EQ(rc, SDERR_NOT_FOUND);
    // The firmware still fits its smaller region and is read as it came.
    const Bytes fw = Read(h, 0x01, 16384);
    EXPECT_EQ(fw[19], 9);
    EXPECT_EQ(Write(h, {{0x01, Bytes(16385, 1)}}), SDERR_INVALID_PARAMETER);

    // Bad layouts are refused with the field named.
    const std::string card = R"({"cards":[{"serial":"S","model":"M","device_id":"0x7C50",
        "flash":{"layout":[{"region":1,"size":4096},{"region":"0x01","size":8192}]},
        "ports":[{"wwpn":"21:00:00:00:00:00:00:01","wwnn":"20:00:00:00:00:00:00:01"}]}]})";
    try {
        vtsdm::ParseHost(card, "h.json");
        ADD_FAILURE() << "a region listed twice was taken";
    } catch (const vtsdm::HostError &e) {
        EXPECT_NE(std::string(e.what()).find("host.cards[0].flash.layout[1].region: listed twice"), std::string::npos)
            << e.what();
    }
    std::string zero = card;
    zero.replace(zero.find("\"size\":8192"), 11, "\"size\":0");
    zero.replace(zero.find("\"region\":\"0x01\""), 15, "\"region\":7");
    EXPECT_THROW(vtsdm::ParseHost(zero, "h.json"), vtsdm::HostError);
}

TEST_F(SimFlash, UpdatesLandWholeOrNotAtAll) {
    const uint32_t h = Open(kKite);
    const uint32_t other = Open(kKite + 1);  // the card's second port
    const Bytes vpd = Read(h, 0x8C, LayoutOf(h).at(0x8C));
    const Bytes fw = Read(h, 0x01, kFw), boot = Read(h, 0x07, kBoot);
    EXPECT_FALSE(RebootRequired(h));

    // Any bad region refuses the whole update.
    EXPECT_EQ(Write(h, {{0x01, Bytes(100, 1)}, {0x07, Bytes(kBoot + 1, 2)}}), SDERR_INVALID_PARAMETER);
    EXPECT_EQ(Write(h, {{0x01, Bytes(100, 1)}, {0xE1, Bytes(10, 2)}}), SDERR_NOT_FOUND);
    EXPECT_EQ(Write(h, {{0x01, Bytes(100, 1)}, {0x01, Bytes(10, 2)}}), SDERR_INVALID_PARAMETER);
    EXPECT_EQ(SDUpdateOptionRomRegions(h, nullptr, 1, 0), SDERR_INVALID_PARAMETER);
    EXPECT_EQ(Read(h, 0x01, kFw), fw);
    EXPECT_FALSE(RebootRequired(h));

    // A good one replaces each region (the rest erased) and leaves the others.
    ASSERT_EQ(Write(h, {{0x01, Bytes(100, 1)}, {0x07, Bytes(kBoot, 2)}}), SDERR_NONE);
    Bytes want(kFw, 0xFF);
    std::fill(want.begin(), want.begin() + 100, 1);
    EXPECT_EQ(Read(h, 0x01, kFw), want);
    EXPECT_EQ(Read(h, 0x07, kBoot), Bytes(kBoot, 2));
    EXPECT_EQ(Read(h, 0x8C, uint32_t(vpd.size())), vpd);
    EXPECT_TRUE(RebootRequired(h));
    EXPECT_TRUE(RebootRequired(other));
    EXPECT_FALSE(RebootRequired(Open(kWren)));

    // The change persists; a restart of the card from vtsdm-sim clears the flag.
    vtsdm::UnloadBackend();
    const uint32_t again = Open(kKite);
    EXPECT_EQ(Read(again, 0x01, kFw), want);
    EXPECT_TRUE(RebootRequired(again));
    const vttest::RunResult r = SimTool({"flash", "1", "restart"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_FALSE(RebootRequired(again));
    EXPECT_EQ(Read(again, 0x01, kFw), want);
    (void)boot;
}

TEST_F(SimFlash, FaultsFailReadsAndWritesAndChangeNothing) {
    // From the host file: one read and two writes of this card fail.
    const uint32_t h = Open(kFaulty);
    uint32_t rc = 0;
    Read(h, 0x01, 64, &rc);
    EXPECT_EQ(rc, SDERR_FLASH_READ_FAILED);
    const Bytes fw = Read(h, 0x01, kFw);
    // The second failure comes from a write in place: both kinds of write count.
    EXPECT_EQ(Write(h, {{0x01, Bytes(64, 7)}, {0x07, Bytes(64, 8)}}), SDERR_FLASH_WRITE_FAILED);
    EXPECT_EQ(SDUpdateOptionRomEx2(h, "x", 1, 0x01, 0, 0), SDERR_FLASH_WRITE_FAILED);
    EXPECT_EQ(Read(h, 0x01, kFw), fw);
    EXPECT_FALSE(RebootRequired(h));
    EXPECT_EQ(Write(h, {{0x01, Bytes(64, 7)}}), SDERR_NONE);
    EXPECT_TRUE(RebootRequired(h));
    EXPECT_STREQ(SDGetErrorString(SDERR_FLASH_WRITE_FAILED), "Flash write failed; the flash is unchanged");

    // Armed by vtsdm-sim on another card, by instance.
    vttest::RunResult r = SimTool({"flash", "2", "fault", "write", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    r = SimTool({"flash", "2", "fault", "read", "2"});
    ASSERT_EQ(r.status, 0) << r.err;
    const uint32_t w = Open(kWren);
    for (int i = 0; i < 2; ++i) {
        Read(w, 0x07, 16, &rc);
        EXPECT_EQ(rc, SDERR_FLASH_READ_FAILED) << i;
    }
    const Bytes wrenFw = Read(w, 0x01, kFw);
    EXPECT_EQ(Write(w, {{0x01, Bytes(64, 7)}}), SDERR_FLASH_WRITE_FAILED);
    EXPECT_EQ(Read(w, 0x01, kFw), wrenFw);
    EXPECT_EQ(Write(w, {{0x01, Bytes(64, 7)}}), SDERR_NONE);
    EXPECT_NE(SimTool({"flash", "2", "fault", "erase", "1"}).status, 0);
    EXPECT_NE(SimTool({"flash", "2", "fault", "read", "many"}).status, 0);
}

// A process killed while it updates three regions again and again leaves
// them all from the same update.
TEST_F(SimFlash, KilledWriterLeavesNoRegionHalfWritten) {
    const uint32_t regions[] = {0x01, 0x07, 0xD3};
    std::mt19937 random(4711);
    std::uniform_int_distribution<int> delayUs(0, 4000);
    for (int run = 0; run < 12; ++run) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t pid = vttest::ForkChild();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(ready[0]);
            vtsdm::UnloadBackend();
            uint32_t h = 0;
            if (SDOpenDevice(kKite, &h) != SDERR_NONE) _exit(3);
            for (uint8_t gen = uint8_t(run * 16 + 1);; ++gen) {
                std::vector<std::pair<uint32_t, Bytes>> update;
                for (uint32_t r : regions) update.emplace_back(r, Bytes(20000, gen == 0xFF ? 1 : gen));
                if (Write(h, update) != SDERR_NONE) _exit(4);
                if (gen == uint8_t(run * 16 + 1)) {
                    (void)!write(ready[1], "x", 1);
                    close(ready[1]);
                }
            }
        }
        vttest::ChildGuard child(pid);
        close(ready[1]);
        char byte = 0;
        const ssize_t got = read(ready[0], &byte, 1);
        close(ready[0]);
        ASSERT_EQ(got, 1) << "the writer ended before its first update";
        usleep(useconds_t(delayUs(random)));
        const int status = child.Kill();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << run;

        vtsdm::UnloadBackend();
        const uint32_t h = Open(kKite);
        std::set<uint8_t> firstBytes;
        for (uint32_t r : regions) {
            const Bytes b = Read(h, r, 20000);
            EXPECT_EQ(b, Bytes(20000, b[0])) << "region 0x" << std::hex << r << " is mixed";
            firstBytes.insert(b[0]);
        }
        EXPECT_EQ(firstBytes.size(), 1u) << "run " << run << ": regions from different updates";
        SDCloseDevice(h);
    }
}

}  // namespace
