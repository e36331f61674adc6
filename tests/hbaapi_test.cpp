// libvtsdm as a vendor library of the system's libHBAAPI: the probe program
// runs in a private mount namespace whose /etc/hba.conf names the library
// of this build tree, against a small host file written here.
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testutil.h"

extern char **environ;

namespace {

using vttest::BuildPath;
using vttest::ReadFile;
using vttest::WriteFile;

// Two cards: the first with two ports (one online on a fabric with two
// targets and a virtual port, one with its link down), the second with one
// port whose driver does not report supported speeds.
const char kHost[] = R"({"cards":[
 {"serial":"TEST0001","model":"VT2692","manufacturer":"Vantor Corporation","description":"VT2692 dual-port adapter",
  "device_id":"0x2261","subsystem_vendor_id":"0x1077","subsystem_id":"0x0281","chip_revision":2,"pci_bus":5,"pci_device":0,
  "driver":{"version":"10.02.08.200-k","luns_per_target":256},"firmware":"9.10.01",
  "option_rom":{"bios":"3.64","fcode":"4.20","efi":"7.30","multiboot":"01.04.00"},
  "ports":[
   {"wwnn":"20:00:00:24:ff:00:00:01","wwpn":"21:00:00:24:ff:00:00:01","port_id":"01:0a:00","state":"online",
    "speed":16,"supported_speeds":[4,8,16],"fabric":{"name":"10:00:00:05:1e:00:00:09"},
    "statistics":{"tx_frames":1000,"rx_frames":2000,"link_failure":3,"loss_of_sync":4,"loss_of_signal":5,
                  "primitive_seq_errors":6,"invalid_tx_words":7,"invalid_crc":8},
    "targets":[
     {"wwnn":"50:06:01:60:00:00:00:01","wwpn":"50:06:01:61:00:00:00:01","port_id":"01:0b:00","type":"fcp",
      "link_errors":{"link_failure":11,"loss_of_sync":12,"loss_of_signal":13,"primitive_seq_errors":14,
                     "invalid_tx_words":15,"invalid_crc":16},
      "luns":[{"lun":0,"type":"disk","blocks":2097152,"block_size":512}]},
     {"wwnn":"50:06:01:60:00:00:00:02","wwpn":"50:06:01:61:00:00:00:02","port_id":"01:0c:00","type":"fcp",
      "logged_in":false}],
    "virtual_ports":[{"wwnn":"28:00:00:24:ff:00:00:01","wwpn":"29:00:00:24:ff:00:00:01"}]},
   {"wwnn":"20:00:00:24:ff:00:00:02","wwpn":"21:00:00:24:ff:00:00:02","port_id":"00:00:00","state":"linkdown",
    "speed":8,"supported_speeds":[4,8,16]}]},
 {"serial":"TEST0002","model":"VT2772","manufacturer":"Vantor Corporation","device_id":"0x2261",
  "driver":{"version":"10.02.09.100-k","reports_supported_speed":false},"firmware":"9.12.00",
  "ports":[
   {"wwnn":"20:00:00:24:ff:00:01:01","wwpn":"21:00:00:24:ff:00:01:01","port_id":"02:0b:00","state":"online",
    "speed":32,"supported_speeds":[8,16,32],
    "statistics":{"tx_frames":77,"rx_frames":88},
    "targets":[{"wwnn":"50:06:01:60:00:00:01:01","wwpn":"50:06:01:61:00:00:01:01","port_id":"02:0c:00"}]}]}]})";

enum ProbeExit { kNoNamespace = 120, kSetupFailed = 121 };

struct ProbeRun {
    int status = -1;
    std::string out, err;
    std::map<std::string, std::string> keys;
};

class HbaApiTest : public ::testing::Test {
protected:
    // Runs the probe with confText bound over /etc/hba.conf, visible to the
    // probe only.  Exit status kNoNamespace: namespaces are not available.
    ProbeRun RunProbe(const std::string &confText) {
        std::string conf = dir_.file("hba.conf"), out = dir_.file("probe.out"), err = dir_.file("probe.err");
        WriteFile(conf, confText);
        std::string probe = BuildPath("tests/hbaapi_probe");
        std::vector<std::string> env = {"VTSDM_HOST=" + dir_.file("host.json")};
        for (char **e = environ; *e; ++e)
            if (strncmp(*e, "VTSDM_HOST=", 11) != 0) env.emplace_back(*e);
        std::vector<char *> cenv;
        for (auto &s : env) cenv.push_back(s.data());
        cenv.push_back(nullptr);
        char *argv[] = {probe.data(), nullptr};

        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (o < 0 || e < 0 || dup2(o, 1) < 0 || dup2(e, 2) < 0) _exit(kSetupFailed);
            if (unshare(CLONE_NEWNS) != 0) {
                dprintf(2, "unshare(CLONE_NEWNS): %s\n", strerror(errno));
                _exit(errno == EPERM || errno == EINVAL ? kNoNamespace : kSetupFailed);
            }
            if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
                dprintf(2, "making / private: %s\n", strerror(errno));
                _exit(errno == EPERM ? kNoNamespace : kSetupFailed);
            }
            if (mount(conf.c_str(), "/etc/hba.conf", nullptr, MS_BIND, nullptr) != 0) {
                dprintf(2, "binding over /etc/hba.conf: %s\n", strerror(errno));
                _exit(errno == EPERM ? kNoNamespace : kSetupFailed);
            }
            execve(argv[0], argv, cenv.data());
            dprintf(2, "exec %s: %s\n", argv[0], strerror(errno));
            _exit(kSetupFailed);
        }
        ProbeRun r;
        const int st = vttest::ChildGuard(pid).Wait();
        if (st != -1) r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        r.out = ReadFile(out);
        r.err = ReadFile(err);
        std::istringstream lines(r.out);
        for (std::string line; std::getline(lines, line);) {
            auto eq = line.find('=');
            if (eq != std::string::npos) r.keys[line.substr(0, eq)] = line.substr(eq + 1);
        }
        return r;
    }

    std::string VendorLine() const { return "com.vantor.fchba32   " + BuildPath("lib64/libvtsdm.so") + "\n"; }

    void SetUp() override { WriteFile(dir_.file("host.json"), kHost); }

    vttest::SysrootScope sysroot_;
    vttest::TempDir dir_;
};

#define RUN_PROBE_OR_SKIP(run, conf)                                                           \
    ProbeRun run = RunProbe(conf);                                                             \
    if (run.status == kNoNamespace) GTEST_SKIP() << "no private mount namespace: " << run.err; \
    ASSERT_EQ(run.status, 0) << run.err << run.out

TEST_F(HbaApiTest, AdaptersAndTheirAttributesComeFromTheHostFile) {
    RUN_PROBE_OR_SKIP(r, VendorLine());
    auto &k = r.keys;
    EXPECT_EQ(k["load"], "0");
    // One adapter per card; the virtual port adds neither an adapter nor a port.
    ASSERT_EQ(k["adapters"], "2") << r.out;
    EXPECT_EQ(k["adapter.0.name"], "com.vantor.fchba32-0");
    EXPECT_EQ(k["adapter.1.name"], "com.vantor.fchba32-1");

    EXPECT_EQ(k["adapter.0.serial"], "TEST0001");
    EXPECT_EQ(k["adapter.0.model"], "VT2692");
    EXPECT_EQ(k["adapter.0.description"], "VT2692 dual-port adapter");
    EXPECT_EQ(k["adapter.0.manufacturer"], "Vantor Corporation");
    EXPECT_EQ(k["adapter.0.nodewwn"], "20:00:00:24:ff:00:00:01");
    EXPECT_EQ(k["adapter.0.driver_version"], "10.02.08.200-k");
    EXPECT_EQ(k["adapter.0.firmware"], "9.10.01");
    EXPECT_EQ(k["adapter.0.option_rom"], "3.64");
    EXPECT_EQ(k["adapter.0.vendor_id"], "22611077");
    EXPECT_EQ(k["adapter.0.ports"], "2");
    EXPECT_EQ(k["adapter.1.serial"], "TEST0002");
    EXPECT_EQ(k["adapter.1.model"], "VT2772");
    EXPECT_EQ(k["adapter.1.firmware"], "9.12.00");
    EXPECT_EQ(k["adapter.1.nodewwn"], "20:00:00:24:ff:00:01:01");
    EXPECT_EQ(k["adapter.1.ports"], "1");

    // Any port WWN of a card opens that card; a closed handle is refused.
    EXPECT_EQ(k["adapter.0.bywwn_serial"], "TEST0001");
    EXPECT_EQ(k["adapter.1.bywwn_serial"], "TEST0002");
    EXPECT_EQ(k["adapter.0.closed_status"], "3");  // invalid handle
    EXPECT_EQ(k["adapter.0.port_past_end"], "6");  // illegal index
    EXPECT_EQ(k["free"], "0");
}

TEST_F(HbaApiTest, PortsMapStateSpeedAndTopology) {
    RUN_PROBE_OR_SKIP(r, VendorLine());
    auto &k = r.keys;
    // Online fabric port at 16 Gb/s, supporting 4, 8 and 16 Gb/s.
    EXPECT_EQ(k["adapter.0.port.0.wwpn"], "21:00:00:24:ff:00:00:01");
    EXPECT_EQ(k["adapter.0.port.0.nodewwn"], "20:00:00:24:ff:00:00:01");
    EXPECT_EQ(k["adapter.0.port.0.fcid"], "010a00");
    EXPECT_EQ(k["adapter.0.port.0.state"], "2");  // online
    EXPECT_EQ(k["adapter.0.port.0.type"], "5");   // N_Port on a fabric
    EXPECT_EQ(k["adapter.0.port.0.speed"], "32");
    EXPECT_EQ(k["adapter.0.port.0.supported"], std::to_string(0x08 | 0x10 | 0x20));
    EXPECT_EQ(k["adapter.0.port.0.fcp"], "1");
    EXPECT_EQ(k["adapter.0.port.0.discovered"], "2");
    // Link down: no negotiated speed, no topology, nothing discovered.
    EXPECT_EQ(k["adapter.0.port.1.wwpn"], "21:00:00:24:ff:00:00:02");
    EXPECT_EQ(k["adapter.0.port.1.state"], "6");
    EXPECT_EQ(k["adapter.0.port.1.type"], "1");
    EXPECT_EQ(k["adapter.0.port.1.speed"], std::to_string(0x8000));
    EXPECT_EQ(k["adapter.0.port.1.discovered"], "0");
    // No fabric name: point-to-point at 32 Gb/s; the driver does not report
    // supported speeds, so they are unknown.
    EXPECT_EQ(k["adapter.1.port.0.type"], "21");
    EXPECT_EQ(k["adapter.1.port.0.speed"], "64");
    EXPECT_EQ(k["adapter.1.port.0.supported"], "0");
    EXPECT_EQ(k["adapter.1.port.0.discovered"], "1");
}

TEST_F(HbaApiTest, DiscoveredPortsAndLinkErrorStatus) {
    RUN_PROBE_OR_SKIP(r, VendorLine());
    auto &k = r.keys;
    EXPECT_EQ(k["adapter.0.port.0.disc.0.wwpn"], "50:06:01:61:00:00:00:01");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.nodewwn"], "50:06:01:60:00:00:00:01");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.fcid"], "010b00");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.type"], "5");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.state"], "2");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.fcp"], "1");
    EXPECT_EQ(k["adapter.0.port.0.disc.0.bywwn"], "1");
    EXPECT_EQ(k["adapter.0.port.0.disc.1.wwpn"], "50:06:01:61:00:00:00:02");
    EXPECT_EQ(k["adapter.0.port.0.disc.1.state"], "3");  // not logged in
    EXPECT_EQ(k["adapter.0.port.0.disc.1.bywwn"], "1");
    EXPECT_EQ(k["adapter.0.port.0.disc.1.rls"], "5");  // not logged in: unknown WWN
    EXPECT_EQ(k["adapter.0.port.0.disc_past_end"], "6");
    EXPECT_EQ(k["adapter.0.port.1.disc_past_end"], "6");
    EXPECT_EQ(k["adapter.1.port.0.disc.0.wwpn"], "50:06:01:61:00:00:01:01");
    EXPECT_EQ(k["adapter.1.port.0.disc.0.fcid"], "020c00");
    // RLS answer: LS_ACC, then the target's six link error counters.
    EXPECT_EQ(k["adapter.0.port.0.disc.0.rls"], "0 33554432 11 12 13 14 15 16");
}

TEST_F(HbaApiTest, PortStatisticsComeFromTheHostFile) {
    RUN_PROBE_OR_SKIP(r, VendorLine());
    auto &k = r.keys;
    const std::map<std::string, std::string> want = {
        {"tx_frames", "1000"},   {"rx_frames", "2000"},         {"link_failure", "3"},     {"loss_of_sync", "4"},
        {"loss_of_signal", "5"}, {"primitive_seq_errors", "6"}, {"invalid_tx_words", "7"}, {"invalid_crc", "8"}};
    for (const auto &[name, value] : want) EXPECT_EQ(k["adapter.0.port.0.stat." + name], value) << name;
    EXPECT_EQ(k["adapter.1.port.0.stat.tx_frames"], "77");
    EXPECT_EQ(k["adapter.1.port.0.stat.rx_frames"], "88");
    EXPECT_EQ(k["adapter.1.port.0.stat.invalid_crc"], "0");
}

TEST_F(HbaApiTest, UnusableHostFileGivesNoAdapters) {
    WriteFile(dir_.file("host.json"), R"({"cards":[{"serial":"X"}]})");
    RUN_PROBE_OR_SKIP(r, VendorLine());
    EXPECT_EQ(r.keys["load"], "0");
    EXPECT_EQ(r.keys["adapters"], "0") << r.out;
}

}  // namespace
