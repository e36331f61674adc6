// libvtsdm against hostile input and bad luck: host files that multiply or
// wrap, what other users plant at the state path, damaged state, bounded
// event queues, and allocation failures at the C boundary.
#include <gtest/gtest.h>

#include <hbaapi.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vendorhbaapi.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "backend.h"
#include "host.h"
#include "imagebuild.h"
#include "simulator.h"
#include "sim_testutil.h"
#include "testutil.h"
#include "vtsdm.h"

// Allocation failure on demand: while g_failIn is not negative, it counts
// down with every allocation, and the one that finds it at 0 throws.
namespace {
std::atomic<long> g_failIn{-1};
std::atomic<long> g_failures{0};
}  // namespace

// Kept out of line: inlined, the compiler would pair malloc with delete.
__attribute__((noinline)) void *operator new(size_t size) {
    if (g_failIn.load() >= 0 && g_failIn.fetch_sub(1) == 0) {
        ++g_failures;
        throw std::bad_alloc();
    }
    if (void *p = malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void *operator new[](size_t size) { return operator new(size); }
// The library's temporary buffers (stable_sort) ask without exceptions; the
// same heap must serve them, or the deletes below would free foreign blocks.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
void *operator new[](size_t size, const std::nothrow_t &tag) noexcept { return operator new(size, tag); }
void operator delete(void *p, const std::nothrow_t &) noexcept { free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { free(p); }
__attribute__((noinline)) void operator delete(void *p) noexcept { free(p); }
__attribute__((noinline)) void operator delete[](void *p) noexcept { free(p); }
__attribute__((noinline)) void operator delete(void *p, size_t) noexcept { free(p); }
__attribute__((noinline)) void operator delete[](void *p, size_t) noexcept { free(p); }

namespace {

namespace fs = std::filesystem;

const std::string kHost = R"({"cards":[{"serial":"S1","model":"VT2912","device_id":"0x7C50","subsystem_id":"0x0C60",
  "firmware":"9.12.01","ports":[{"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01",
  "port_id":"01:0a:00","speed":32,
  "targets":[{"wwpn":"50:00:00:00:00:00:00:01","luns":[{"lun":0,"blocks":2048},{"lun":1,"blocks":4096}]}]}]}]})";

// A card with one port whose fields are given, for the validation tables.
std::string OnePort(const std::string &portFields, const std::string &cardFields = "") {
    return R"({"cards":[{"serial":"S1","model":"VT2912","device_id":"0x7C50",)" + cardFields + R"("ports":[{)" +
           portFields + "}]}]}";
}
const std::string kNames = R"("wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01")";

// The message ParseHost refuses a text with, or "" when it takes it.
std::string Refusal(const std::string &json) {
    try {
        vtsdm::ParseHost(json, "/x/h.json");
        return "";
    } catch (const vtsdm::HostError &e) {
        return e.what();
    }
}

uid_t Nobody() {
    const passwd *pw = getpwnam("nobody");
    return pw ? pw->pw_uid : 65534;
}

class Hardening : public vttest::SimHostTest {
protected:
    void SetUp() override {
        UseHost(kHost);
        Notices();  // earlier tests' notices
    }
    void TearDown() override {
        g_failIn = -1;
        SimHostTest::TearDown();
    }
    uint32_t Open(uint32_t instance) {
        uint32_t h = 0;
        EXPECT_EQ(SDOpenDevice(instance, &h), SDERR_NONE);
        return h;
    }
    // Runs fn with the simulator, which must be up.
    uint32_t WithSim(const std::function<uint32_t(vtsdm::Simulator &)> &fn) {
        auto access = vtsdm::AcquireBackend();
        vtsdm::Simulator *sim = vtsdm::ActiveSimulator(access);
        if (!sim) {
            ADD_FAILURE() << vtsdm::BackendError();
            return SDERR_IO_FAILED;
        }
        return fn(*sim);
    }
    std::string StateFile() {
        std::string path;
        WithSim([&](vtsdm::Simulator &s) {
            path = s.store().path();
            return SDERR_NONE;
        });
        return path;
    }
    uint32_t Queue(uint32_t code) {
        return WithSim([&](vtsdm::Simulator &s) { return s.queueEvent(0, code); });
    }
    uint32_t Queued(uint32_t h) {
        uint32_t count = 0;
        EXPECT_EQ(SDGetAen(h, nullptr, 0, &count), SDERR_NONE);
        return count;
    }
    std::vector<std::string> Notices() {
        std::vector<std::string> out;
        char text[1024];
        while (SDGetBackendNotice(text, sizeof text) == SDERR_NONE) out.emplace_back(text);
        return out;
    }
    static bool Mentions(const std::vector<std::string> &lines, const std::string &needle) {
        for (const auto &l : lines)
            if (l.find(needle) != std::string::npos) return true;
        return false;
    }
    vttest::RunResult Tool(std::vector<std::string> args) {
        args.insert(args.begin(), vttest::BuildPath("bin/vtsdm-sim"));
        return vttest::Run(args, {"VTSDM_HOST=" + hostFile_});
    }
};

// ------------------------------------------------------------ host budget

TEST_F(Hardening, AMultiplyingHostFileIsRefusedWithItsTotal) {
    // 31 ports x 4096 targets x 256 LUNs in 352 bytes.
    std::string json =
        R"({"description":"D","cards":[{"serial":"VTX","model":"VT2912","device_id":"0x7C50","copies":31,)"
        R"("ports":[{"wwnn":"20:00:00:24:ff:00:00:00","wwpn":"21:00:00:24:ff:00:00:00","port_id":"01:00:00",)"
        R"("targets":[{"generate":{"count":4096},"wwpn":"50:0a:09:81:00:00:00:00","port_id":"02:00:00",)"
        R"("lun_range":{"count":256,"blocks":209715200}}]}]}]})";
    json.insert(json.find("\"D\"") + 1, std::string(352 - json.size(), 'x'));
    ASSERT_EQ(json.size(), 352u);
    const std::string why = Refusal(json);
    EXPECT_NE(why.find("host file /x/h.json: "), std::string::npos) << why;
    EXPECT_NE(why.find("expands to 32,632,863 ports, targets and LUNs"), std::string::npos) << why;
    EXPECT_NE(why.find("at most 3,000,000"), std::string::npos) << why;

    // Through the library: every call fails, the reason names the file.
    UseHost(json);
    uint32_t h;
    EXPECT_EQ(SDOpenDevice(0, &h), SDERR_IO_FAILED);
    EXPECT_NE(vtsdm::BackendError().find(hostFile_), std::string::npos);
    EXPECT_NE(vtsdm::BackendError().find("32,632,863"), std::string::npos);
    EXPECT_FALSE(fs::exists(root_.path("/var/lib/vtsdm")));
}

TEST_F(Hardening, TheBudgetCountsPortsTargetsLunsAndVirtualPorts) {
    // 1 port + 4095 targets x (1 + 731 LUNs) + 1 target x (1 + L LUNs):
    // exactly the budget with L = 2458.
    auto host = [](int lastLuns, const std::string &extra) {
        return OnePort(kNames + R"(,"targets":[
            {"generate":{"count":4095},"wwpn":"50:00:00:00:00:00:00:00","lun_range":{"count":731}},
            {"wwpn":"51:00:00:00:00:00:00:00","lun_range":{"count":)" +
                       std::to_string(lastLuns) + "}}]" + extra);
    };
    EXPECT_EQ(Refusal(host(2458, "")), "");
    // The stock large host (31 x 256 x 256) is well within it.
    EXPECT_EQ(Refusal(vttest::ReadFile(std::string(VT_SOURCE_DIR) + "/data/hosts/large_31x256x256.json")), "");
    EXPECT_NE(Refusal(host(2459, "")).find("expands to 3,000,001 ports"), std::string::npos);

    // A virtual port sees its physical port's targets and LUNs again.
    const std::string half = OnePort(kNames + R"(,"targets":[
        {"generate":{"count":1000},"wwpn":"50:00:00:00:00:00:00:00","lun_range":{"count":1499}}])");
    EXPECT_EQ(Refusal(half), "");
    std::string withVport = half;
    withVport.insert(withVport.rfind("}]}]}"), R"(,"virtual_ports":[{"wwpn":"21:01:00:24:ff:00:00:01"}])");
    EXPECT_NE(Refusal(withVport).find("expands to 3,000,002 ports, targets and LUNs (2 ports"), std::string::npos)
        << Refusal(withVport);

    // Targets per port are bounded on their own as well.
    const std::string many = OnePort(kNames + R"(,"targets":[
        {"generate":{"count":4096},"wwpn":"50:00:00:00:00:00:00:00"},{"wwpn":"51:00:00:00:00:00:00:00"}])");
    EXPECT_NE(Refusal(many).find("ports[0].targets: 4,097 targets; a port sees at most 4,096"), std::string::npos)
        << Refusal(many);
}

// --------------------------------------------------------- host validation

TEST_F(Hardening, NamesAndPortIdsAreCheckedStrictlyAndNeverWrap) {
    struct Case {
        std::string json, expect;
    } refused[] = {
        {OnePort(kNames + R"(,"port_id":"-1:-1:-1")"), "ports[0].port_id: expected a port ID"},
        {OnePort(kNames + R"(,"port_id":"0x1:02:03")"), "ports[0].port_id: expected a port ID"},
        {OnePort(kNames + R"(,"port_id":"01:02:003")"), "ports[0].port_id: expected a port ID"},
        {OnePort(R"("wwnn":"20:00:00:24:ff:00:00:01","wwpn":"2100::0024ff000001")"),
         "ports[0].wwpn: expected a WWN of 8 hex bytes"},
        {OnePort(R"("wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00-00:24:ff:00:00:01")"),
         "ports[0].wwpn: expected a WWN"},
        {OnePort(kNames + R"(,"enode_mac":"-1:0e:1e:00:00:01")"), "ports[0].enode_mac: expected a MAC"},
        // A number a double cannot hold is bad JSON like any other.
        {OnePort(kNames + R"(,"speed":482e11920)"), "not valid JSON"},
        // A remote port with the name of one of the host's own ports.
        {OnePort(kNames + R"(,"targets":[{"wwpn":"21:00:00:24:ff:00:00:01"}])"),
         "targets: WWPN 21:00:00:24:ff:00:00:01 is already used by cards[serial S1].ports[0].wwpn"},
        // Copies move names by k << 16 and port IDs by k << 8.
        {OnePort(R"("wwnn":"20:00:00:24:ff:00:00:01","wwpn":"ff:ff:ff:ff:ff:ff:00:00")", R"("copies":2,)"),
         "ports[0].wwpn: copy 1 would move it past ff:ff:ff:ff:ff:ff:ff:ff"},
        {OnePort(kNames + R"(,"port_id":"ff:ff:00")", R"("copies":2,)"),
         "ports[0].port_id: copy 1 would move it past ff:ff:ff"},
        // Generated targets move names and port IDs by 0..N-1.
        {OnePort(kNames + R"(,"targets":[{"wwpn":"50:ff:ff:ff:ff:ff:ff:fe","wwnn":"ff:ff:ff:ff:ff:ff:ff:fe",
                                          "generate":{"count":3}}])"),
         "targets[0].generate.count: 3 targets would run the names past ff:ff:ff:ff:ff:ff:ff:ff"},
        {OnePort(kNames + R"(,"targets":[{"wwpn":"50:00:00:00:00:00:00:00","port_id":"ff:ff:fe",
                                          "generate":{"count":3}}])"),
         "targets[0].generate.count: 3 targets would run the port IDs past ff:ff:ff"},
    };
    for (const auto &c : refused) {
        const std::string why = Refusal(c.json);
        EXPECT_NE(why.find("host file /x/h.json: "), std::string::npos) << c.json;
        EXPECT_NE(why.find(c.expect), std::string::npos) << why;
    }
    // Up to the last name and port ID is fine, and so are the other WWN forms.
    const std::string accepted[] = {
        OnePort(R"("wwnn":"20-00-00-24-ff-00-00-01","wwpn":"21000024FF000001","port_id":"1:a:0")"),
        OnePort(R"("wwnn":"20:00:00:24:ff:00:00:01","wwpn":"ff:ff:ff:ff:ff:fe:ff:ff","port_id":"ff:fe:00")",
                R"("copies":2,)"),
        OnePort(kNames + R"(,"targets":[{"wwpn":"ff:ff:ff:ff:ff:ff:ff:fd","port_id":"ff:ff:fd",
                                         "generate":{"count":3}}])"),
    };
    for (const auto &json : accepted) EXPECT_EQ(Refusal(json), "") << json;
}

// ------------------------------------------------------------ event queue

TEST_F(Hardening, EventQueueKeepsTheNewestAndHandsOutWhatFits) {
    const uint32_t h = Open(0);
    ASSERT_EQ(WithSim([](vtsdm::Simulator &s) {
                  return s.store().modify([](vtsdm::State &st) {
                      auto &p = st.ports[0x21000024ff000001ull];
                      for (uint32_t i = 0; i < 300; ++i) vtsdm::QueueEvent(p, {1000 + i, {i, 0, 0}});
                      return SDERR_NONE;
                  });
              }),
              SDERR_NONE);
    SDAenQueueStatus st;
    ASSERT_EQ(SDGetAenQueueStatus(h, &st), SDERR_NONE);
    EXPECT_EQ(st.Queued, 256u);
    EXPECT_EQ(st.Capacity, 256u);
    EXPECT_EQ(st.Dropped, 44u);

    // No room: the count only.  Then 64 at a time, oldest first.
    EXPECT_EQ(Queued(h), 256u);
    SDAenRecord ev[64];
    uint32_t count = 0;
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    EXPECT_EQ(count, 256u);
    EXPECT_EQ(ev[0].Code, 1044u);
    EXPECT_EQ(ev[63].Code, 1107u);
    ASSERT_EQ(SDGetAen(h, ev, 15, &count), SDERR_NONE);  // less than one record
    EXPECT_EQ(count, 192u);
    ASSERT_EQ(SDGetAen(h, ev, sizeof ev, &count), SDERR_NONE);
    EXPECT_EQ(ev[0].Code, 1108u);
    EXPECT_EQ(ev[0].Payload[0], 108u);

    // Another process sees what is left and the dropped count.
    auto r = Tool({"show", "--luns", "1"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Events: 128 queued (room for 256), 44 dropped"), std::string::npos) << r.out;

    // The bound holds for events queued one by one, and "reset" forgets it.
    for (int i = 0; i < 3; ++i) ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    ASSERT_EQ(SDGetAenQueueStatus(h, &st), SDERR_NONE);
    EXPECT_EQ(st.Queued, 131u);
    ASSERT_EQ(Tool({"reset"}).status, 0);
    ASSERT_EQ(SDGetAenQueueStatus(h, &st), SDERR_NONE);
    EXPECT_EQ(st.Queued, 0u);
    EXPECT_EQ(st.Dropped, 0u);
}

// ------------------------------------------------------ the state path

class StatePath : public Hardening {
protected:
    void SetUp() override {
        Hardening::SetUp();
        if (geteuid() != 0) GTEST_SKIP() << "planting another user's files needs root";
        h_ = Open(0);
        path_ = StateFile();
        // A state with two events, to plant elsewhere.
        ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
        ASSERT_EQ(Queue(SD_AEN_LINK_DOWN), SDERR_NONE);
        saved_ = vttest::ReadFile(path_);
        ASSERT_FALSE(saved_.empty());
        ASSERT_EQ(unlink(path_.c_str()), 0);
        ASSERT_EQ(Queued(h_), 0u);
    }
    // What a refused path gives: the host file's state, changes refused
    // here and in another process, the reason told once.
    void ExpectRefused(const std::string &what) {
        EXPECT_EQ(Queued(h_), 0u);
        EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_IO_FAILED);
        EXPECT_TRUE(Mentions(Notices(), what)) << what;
        auto r = Tool({"event", "0", "lip"});
        EXPECT_NE(r.status, 0);
        EXPECT_NE(r.err.find(what), std::string::npos) << r.err;
    }

    uint32_t h_ = 0;
    std::string path_, saved_;
};

TEST_F(StatePath, AFifoIsNeitherOpenedNorBlockedOn) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0666), 0);
    ExpectRefused(path_ + " is a FIFO");
    struct stat st;
    ASSERT_EQ(lstat(path_.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    // "reset" takes it away, and changes are kept again.
    ASSERT_EQ(Tool({"reset"}).status, 0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    EXPECT_EQ(Queued(h_), 1u);
}

TEST_F(StatePath, AnotherUsersFileIsNotReadNorWrittenInto) {
    vttest::WriteFile(path_, saved_);
    ASSERT_EQ(chown(path_.c_str(), Nobody(), 0), 0);
    ExpectRefused("is owned by another user (uid " + std::to_string(Nobody()) + ")");
    struct stat st;
    ASSERT_EQ(lstat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, Nobody());
    EXPECT_EQ(vttest::ReadFile(path_), saved_);
}

TEST_F(StatePath, ASymbolicLinkIsNotFollowed) {
    const std::string victim = root_.path("/etc/victim");
    vttest::WriteFile(victim, saved_);
    ASSERT_EQ(symlink(victim.c_str(), path_.c_str()), 0);
    ExpectRefused(path_ + " is a symbolic link");
    EXPECT_EQ(vttest::ReadFile(victim), saved_);
    EXPECT_TRUE(fs::is_symlink(path_));
}

TEST_F(StatePath, PlantedLockFilesAndForeignDirectoriesAreRefused) {
    const std::string lock = path_ + ".lock";
    ASSERT_EQ(unlink(lock.c_str()), 0);
    ASSERT_EQ(mkfifo(lock.c_str(), 0666), 0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_IO_FAILED);
    EXPECT_TRUE(Mentions(Notices(), "state lock file " + lock + " is a FIFO"));

    // Another user's lock file would let that user hold every writer.
    ASSERT_EQ(unlink(lock.c_str()), 0);
    vttest::WriteFile(lock, "");
    ASSERT_EQ(chown(lock.c_str(), Nobody(), 0), 0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_IO_FAILED);
    EXPECT_TRUE(Mentions(Notices(), lock + " is owned by another user"));
    ASSERT_EQ(unlink(lock.c_str()), 0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);

    // A state directory of another user, or one anybody may write into.
    const std::string dir = root_.path("/var/lib/foreign");
    ASSERT_TRUE(fs::create_directory(dir));
    ASSERT_EQ(chown(dir.c_str(), Nobody(), 0), 0);
    setenv("VTSDM_STATE_DIR", dir.c_str(), 1);
    h_ = Open(0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_IO_FAILED);
    EXPECT_TRUE(Mentions(Notices(), "state directory " + dir + " is owned by another user"));
    ASSERT_EQ(chown(dir.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(dir.c_str(), 0777), 0);
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_IO_FAILED);
    EXPECT_TRUE(Mentions(Notices(), "state directory " + dir + " is writable by other users"));
    ASSERT_EQ(chmod(dir.c_str(), 01777), 0);  // sticky: others cannot replace our files
    EXPECT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    EXPECT_FALSE(fs::is_empty(dir));
}

// ------------------------------------------------------- damaged state

TEST_F(Hardening, ADamagedStateIsKeptAsideAndTold) {
    const uint32_t h = Open(0);
    const std::string path = StateFile();
    ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    ASSERT_EQ(Queue(SD_AEN_LINK_DOWN), SDERR_NONE);
    std::string text = vttest::ReadFile(path);
    text.resize(text.size() - 2);
    vttest::WriteFile(path, text);

    // The host starts from its file; the damaged bytes are kept.
    EXPECT_EQ(Queued(h), 0u);
    const auto notices = Notices();
    EXPECT_TRUE(Mentions(notices, "state file " + path + " is damaged (")) << ::testing::PrintToString(notices);
    EXPECT_TRUE(Mentions(notices, "kept as " + path + ".damaged; the simulated host starts from its host file"));
    EXPECT_EQ(vttest::ReadFile(path + ".damaged"), text);
    EXPECT_FALSE(fs::exists(path));
    ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    EXPECT_EQ(Queued(h), 1u);

    // Again, found by another process this time: it says so on stderr, and
    // the first copy stays.
    vttest::WriteFile(path, "");
    auto r = Tool({"event", "0", "lip"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("is damaged (it is empty); kept as " + path + ".damaged.1"), std::string::npos) << r.err;
    EXPECT_EQ(vttest::ReadFile(path + ".damaged"), text);
    EXPECT_EQ(Queued(h), 1u);
}

TEST_F(Hardening, AStateOfAnotherHostContentIsNotDamage) {
    const uint32_t h = Open(0);
    const std::string path = StateFile();
    ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    // The host file changes (a new description): its old state is set aside
    // quietly, as before.
    UseHost(kHost.substr(0, kHost.size() - 1) + R"(,"description":"changed"})");
    const uint32_t h2 = Open(0);
    EXPECT_EQ(StateFile(), path);
    EXPECT_EQ(Queued(h2), 0u);
    EXPECT_FALSE(fs::exists(path + ".damaged"));
    EXPECT_TRUE(Notices().empty());
    (void)h;
}

TEST_F(Hardening, KilledWritersTemporariesGoOnTheNextWrite) {
    Open(0);
    const std::string path = StateFile();
    ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    const std::string dir = fs::path(path).parent_path().string();
    for (const char *left : {".tmp.123", ".tmp.99999"}) vttest::WriteFile(path + left, "{");
    vttest::WriteFile(path + ".tmp.12x", "not ours");
    vttest::WriteFile(dir + "/other.json.tmp.5", "not ours");
    ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED), SDERR_NONE);
    EXPECT_FALSE(fs::exists(path + ".tmp.123"));
    EXPECT_FALSE(fs::exists(path + ".tmp.99999"));
    EXPECT_TRUE(fs::exists(path + ".tmp.12x"));
    EXPECT_TRUE(fs::exists(dir + "/other.json.tmp.5"));
}

TEST_F(Hardening, AnEmptyVpdRegionCopiesNothing) {
    const uint32_t h = Open(0);
    ASSERT_EQ(WithSim([](vtsdm::Simulator &s) {
                  return s.store().modify([](vtsdm::State &st) {
                      st.flash["S1"][vtsdm::image::kRegionVpd].clear();
                      return SDERR_NONE;
                  });
              }),
              SDERR_NONE);
    uint8_t buf[16];
    uint32_t size = sizeof buf;
    // An erased VPD region holds no VPD: nothing is copied.
    memset(buf, 0xA5, sizeof buf);
    EXPECT_EQ(SDGetVpd(h, buf, &size), SDERR_NOT_FOUND);
    for (uint8_t b : buf) EXPECT_EQ(b, 0xA5);
    // The region's capacity reads as erased flash past its (empty) contents.
    memset(buf, 0, sizeof buf);
    EXPECT_EQ(SDGetOptionRomEx(h, buf, sizeof buf, vtsdm::image::kRegionVpd, 0), SDERR_NONE);
    for (uint8_t b : buf) EXPECT_EQ(b, 0xFF);
}

// ------------------------------------------------- allocation failures

// Runs `call` with the n-th allocation failing, n = 0, 1, ... until it gets
// through: before that every attempt must answer `outOfMemory` (or, where
// the failure was ridden out, `ok`), never throw.  Returns the attempts
// that failed.
template <typename R>
long FailEachAllocation(const std::function<R()> &call, R ok, R outOfMemory, const std::function<void()> &before = {}) {
    long failed = 0;
    for (long n = 0; n < 200000; ++n) {
        if (before) before();
        const long failures = g_failures;
        g_failIn = n;
        const R rc = call();
        g_failIn = -1;
        if (g_failures == failures) {
            EXPECT_EQ(rc, ok) << "with no allocation failing";
            return failed;
        }
        if (rc != ok) {
            EXPECT_EQ(rc, outOfMemory) << "allocation " << n;
            ++failed;
        }
    }
    ADD_FAILURE() << "never got through";
    return failed;
}

TEST_F(Hardening, AllocationFailuresBecomeStatusesAndLoseNothing) {
    // Loading the host is part of the first call.
    uint32_t h = 0;
    EXPECT_GT(FailEachAllocation<uint32_t>([&] { return SDOpenDevice(0, &h); }, SDERR_NONE, SDERR_OUT_OF_MEMORY,
                                           [] { vtsdm::UnloadBackend(); }),
              10);
    h = Open(0);
    uint8_t target[8] = {0x50, 0, 0, 0, 0, 0, 0, 0x01};
    EXPECT_GT(FailEachAllocation<uint32_t>(
                  [&] {
                      uint8_t buf[256], sense[SD_SENSE_BUFFER_SIZE];
                      uint32_t size = sizeof buf, senseSize = sizeof sense;
                      return SDSendScsiReportLunsCmdFC(h, target, buf, &size, sense, &senseSize);
                  },
                  SDERR_NONE, SDERR_OUT_OF_MEMORY),
              0);

    // Taking events: a failed call leaves them queued.
    for (int i = 0; i < 5; ++i) ASSERT_EQ(Queue(SD_AEN_LIP_OCCURRED + (i % 2)), SDERR_NONE);
    uint32_t got = 0;
    EXPECT_GT(FailEachAllocation<uint32_t>(
                  [&] {
                      SDAenRecord ev[8];
                      uint32_t count = 0;
                      const uint32_t rc = SDGetAen(h, ev, sizeof ev, &count);
                      if (rc == SDERR_NONE) got = count;
                      return rc;
                  },
                  SDERR_NONE, SDERR_OUT_OF_MEMORY),
              0);
    EXPECT_EQ(got, 5u);
    EXPECT_EQ(Queued(h), 0u);

    char text[512];
    EXPECT_GT(FailEachAllocation<uint32_t>([&] { return SDGetBackendDescription(text, sizeof text); }, SDERR_NONE,
                                           SDERR_OUT_OF_MEMORY),
              0);
}

TEST_F(Hardening, HbaApiEntryPointsFailWithoutThrowing) {
    HBA_ENTRYPOINTSV2 t{};
    ASSERT_EQ(HBA_RegisterLibraryV2(&t), HBA_STATUS_OK);
    EXPECT_GT(FailEachAllocation<HBA_STATUS>([&] { return t.LoadLibraryHandler(); }, HBA_STATUS_OK, HBA_STATUS_ERROR,
                                             [] { vtsdm::UnloadBackend(); }),
              0);
    ASSERT_EQ(t.GetNumberOfAdaptersHandler(), 1u);
    char name[256];
    ASSERT_EQ(t.GetAdapterNameHandler(0, name), HBA_STATUS_OK);
    HBA_HANDLE handle = HBA_HANDLE_INVALID;
    EXPECT_GT(FailEachAllocation<HBA_HANDLE>(
                  [&] {
                      handle = t.OpenAdapterHandler(name);
                      return handle == HBA_HANDLE_INVALID ? HBA_HANDLE_INVALID : HBA_HANDLE(1);
                  },
                  HBA_HANDLE(1), HBA_HANDLE_INVALID,
                  [&] {
                      if (handle != HBA_HANDLE_INVALID) t.CloseAdapterHandler(handle);
                  }),
              0);
    HBA_ADAPTERATTRIBUTES attr;
    EXPECT_GT(FailEachAllocation<HBA_STATUS>([&] { return t.GetAdapterAttributesHandler(handle, &attr); },
                                             HBA_STATUS_OK, HBA_STATUS_ERROR),
              0);
    EXPECT_STREQ(attr.SerialNumber, "S1");
    t.CloseAdapterHandler(handle);
    t.FreeLibraryHandler();
}

}  // namespace
