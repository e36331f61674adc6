// The system's own lsscsi and tarncli (Linux backend) read the same
// exported tree: the SCSI targets and LUNs they list must agree.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>

#include "testutil.h"

namespace {

using vttest::SysrootScope;

// "21:00:00:24:ff:7c:50:10" or "0x21000024ff7c5010" -> "21000024ff7c5010".
std::string Plain(std::string wwn) {
    if (wwn.rfind("0x", 0) == 0) wwn.erase(0, 2);
    std::erase(wwn, ':');
    return wwn;
}

// (port WWPN, target WWPN, LUN, type, OS device)
using Row = std::tuple<std::string, std::string, unsigned, std::string, std::string>;

TEST(Lsscsi, SeesTheTargetsAndLunsTarncliReports) {
    const std::string lsscsi = "/usr/bin/lsscsi";
    if (!std::filesystem::exists(lsscsi)) GTEST_SKIP() << "lsscsi is not installed (scripts/setup.sh installs it)";
    SysrootScope root;
    const std::string host = vttest::SourcePath("data/default_host.json");
    auto r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "--host", host, "export-sysfs", root.root()});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string sysfs = "--sysfsroot=" + root.root() + "/sys";

    // lsscsi: hosts, then SCSI devices (NVMe namespaces left out).
    std::map<std::string, std::string> hostPort;  // "1" -> port WWPN
    r = vttest::Run({lsscsi, sysfs, "-H", "-t"});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const std::string &line : vttest::Lines(r.out)) {
        std::istringstream in(line);
        std::string h, driver, fc;
        in >> h >> driver >> fc;
        if (fc.rfind("fc:", 0) == 0) hostPort[h.substr(1, h.size() - 2)] = Plain(fc.substr(3, fc.find(',') - 3));
    }
    ASSERT_EQ(hostPort.size(), 7u);
    std::set<Row> fromLsscsi;
    r = vttest::Run({lsscsi, sysfs, "-t", "-k", "-N"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::map<std::string, std::string> types = {{"disk", "Disk"}, {"tape", "Tape"}, {"mediumx", "Changer"}};
    for (const std::string &line : vttest::Lines(r.out)) {
        std::istringstream in(line);
        std::string hctl, type, fc, dev;
        in >> hctl >> type >> fc >> dev;
        if (hctl.size() < 2) continue;
        std::vector<std::string> part;
        std::stringstream ss(hctl.substr(1, hctl.size() - 2));
        for (std::string p; std::getline(ss, p, ':');) part.push_back(p);
        ASSERT_EQ(part.size(), 4u) << line;
        const unsigned lun = unsigned(std::stoul(part[3])) & 0xBFFF;  // flat-space bit
        ASSERT_TRUE(types.count(type)) << line;
        fromLsscsi.insert({hostPort[part[0]], Plain(fc.substr(3, fc.find(',') - 3)), lun, types.at(type), dev});
    }

    // tarncli -l with the Linux backend on the same tree.
    const std::vector<std::string> env = {"VTSDM_BACKEND=linux", "VTAPI_SYSROOT=" + root.root()};
    r = vttest::Run({vttest::BuildPath("bin/tarncli"), "-l", "all"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    std::set<Row> fromTarncli;
    std::string port, target;
    for (const std::string &line : vttest::Lines(r.out)) {
        std::istringstream in(line);
        std::string first;
        in >> first;
        if (line.rfind("HBA instance", 0) == 0) port = Plain(line.substr(line.rfind(' ') + 1));
        else if (first == "Target") in >> target, target = Plain(target);
        else if (!first.empty() && isdigit(static_cast<unsigned char>(first[0]))) {
            std::string type, last;
            in >> type;
            for (std::string w; in >> w;) last = w;
            if (last.rfind("/dev/nvme", 0) == 0) continue;  // NVMe namespaces: not SCSI devices
            fromTarncli.insert({port, target, unsigned(std::stoul(first)), type, last});
        }
    }
    EXPECT_EQ(fromTarncli.size(), 28u);
    EXPECT_EQ(fromTarncli, fromLsscsi);

    // tarncli -t: every target lsscsi lists, with as many LUNs.
    std::map<std::pair<std::string, std::string>, unsigned> lunsPerTarget;
    for (const Row &row : fromLsscsi) ++lunsPerTarget[{std::get<0>(row), std::get<1>(row)}];
    r = vttest::Run({vttest::BuildPath("bin/tarncli"), "-t", "all"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    unsigned matched = 0;
    for (const std::string &line : vttest::Lines(r.out)) {
        std::istringstream in(line);
        std::string first, wwpn, portId, type, status, luns;
        in >> first;
        if (line.rfind("HBA instance", 0) == 0) port = Plain(line.substr(line.rfind(' ') + 1));
        if (first.empty() || !isdigit(static_cast<unsigned char>(first[0])) ||
            !(in >> wwpn >> portId >> type >> status >> luns))
            continue;
        auto it = lunsPerTarget.find({port, Plain(wwpn)});
        if (it == lunsPerTarget.end()) continue;
        EXPECT_EQ(std::to_string(it->second), luns) << line;
        ++matched;
    }
    EXPECT_EQ(matched, lunsPerTarget.size());
}

}  // namespace
