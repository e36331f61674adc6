// tarncli -vp: virtual ports listed, created, given QoS, rebalanced and
// deleted on the default simulated host, each step in a new process, with
// the limits and faults of the adapter giving their statuses.
#include <map>
#include <regex>
#include <string>

#include "tarncli_config_fixture.h"

namespace {

using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort0[] = "21:00:00:24:ff:7c:50:10";  // 64 Gb/s, one vPort at 40 %
constexpr const char kVport1[] = "21:04:00:24:ff:7c:50:10";
constexpr const char kFcoePort[] = "21:00:00:0e:1e:64:21:40";  // takes no vPorts

class TarncliVportTest : public vttest::TarncliConfigTest {
protected:
    void SetUp() override { ReferenceFile("node.hba.virtual.vport.enable=1\n"); }

    // vPort WWPN -> QoS value, from the JSON list of one port.
    std::map<std::string, int> Shares(const std::string &port) {
        std::map<std::string, int> shares;
        const json doc = Json({"-vp", port});
        for (const json &v : doc.at("ports").at(0).at("vports")) shares[v.at("wwpn")] = v.at("qos_value").get<int>();
        return shares;
    }
};

TEST_F(TarncliVportTest, NeedsTheReferenceSwitch) {
    ReferenceFile("");
    const RunResult r = Tarn({"-vp", kPort0});
    EXPECT_EQ(r.status, 66);
    EXPECT_NE(r.out.find("This feature is not available or disabled!"), std::string::npos) << r.out;
}

TEST_F(TarncliVportTest, ListMatchesInEveryForm) {
    const RunResult text = Tarn({"-vp", kPort0});
    ASSERT_EQ(text.status, 0) << text.err;
    const json doc = Json({"-vp", kPort0});
    const json &port = doc.at("ports").at(0);
    EXPECT_EQ(port.at("wwpn"), kPort0);
    EXPECT_EQ(port.at("virtual_ports"), 1);
    EXPECT_EQ(port.at("max_virtual_ports"), 126);
    EXPECT_EQ(port.at("max_qos_virtual_ports"), 8);
    EXPECT_EQ(port.at("available_virtual_ports"), 125);
    EXPECT_EQ(port.at("available_percent"), 100) << "no share is locked or reserved";
    const json &v = port.at("vports").at(0);
    EXPECT_EQ(v.at("wwpn"), kVport1);
    EXPECT_EQ(v.at("qos_type"), "Percentage");
    EXPECT_EQ(v.at("qos_value"), 40);
    // 40 % of the 57.8 Gb/s payload rate of a 64 Gb/s port.
    EXPECT_EQ(v.at("bandwidth_mbps"), 23120);
    const std::string row = std::to_string(v.at("virtual_port_id").get<int>()) + R"( +)" +
                            std::to_string(v.at("instance").get<int>()) + "  " + kVport1 +
                            R"(  Percentage +40 %  23\.12 Gb/s)";
    EXPECT_TRUE(std::regex_search(text.out, std::regex(row))) << row << "\n" << text.out;
    EXPECT_NE(text.out.find("Available            : 125"), std::string::npos) << text.out;

    for (const char *form : {"-x", "-x2"}) {
        const RunResult x = Tarn({form, "-vp", kPort0});
        EXPECT_EQ(x.status, 0);
        EXPECT_TRUE(vttest::WellFormedXml(x.out)) << x.out;
        EXPECT_NE(x.out.find("\t<vPort>\n\t\t<vPortID>"), std::string::npos) << x.out;
        EXPECT_NE(x.out.find("\t\t<WWPN>21:04:00:24:ff:7c:50:10</WWPN>"), std::string::npos);
        EXPECT_NE(x.out.find("\t\t<QoSValue>40</QoSValue>"), std::string::npos);
    }
    // A port without vPorts says so; "all" lists physical ports only.
    EXPECT_NE(Tarn({"-vp", kFcoePort}).out.find("Virtual ports are not supported on this port."), std::string::npos);
    for (const nlohmann::json listed = Json({"-vp"}); const json &p : listed.at("ports"))
        EXPECT_NE(p.at("wwpn"), kVport1);
}

TEST_F(TarncliVportTest, CreateSetQoSRebalanceAndDelete) {
    const int hba = Instance(kPort0);
    const std::string created = "21:0a:00:24:ff:7c:50:10";
    RunResult r = Tarn({"-vp", kPort0, "create", "0a"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("New vPort " + created + " of HBA " + std::to_string(hba) + " was created successfully"),
              std::string::npos)
        << r.out;
    // The vPort is an adapter port of its own in a new process.
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 40}, {created, 0}}));
    ASSERT_GE(Instance(created), 0);

    // The same byte again: the WWPN is in use (the missing parenthesis is the
    // message's own).
    r = Tarn({"-vp", kPort0, "create", "0a"});
    EXPECT_EQ(r.status, 48);
    EXPECT_EQ(r.err, "Duplicate vPort WWPN " + created + " (HBA " + std::to_string(hba) + " - VT2912!\n");
    EXPECT_EQ(Tarn({"-vp", kPort0, "create", "03"}).status, 48) << "bytes up to 03 are never used";

    // 80 % for the new vPort: the other one gives up half of its 40.
    const json set = Json({"-vp", kPort0, "qos", created, "80%"});
    EXPECT_EQ(set.at("message"), "QoS of vPort " + created + " of HBA " + std::to_string(hba) + " set to 80 %.");
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 20}, {created, 80}}));
    // Out of range, and more than the locked rest leaves: refused, unchanged.
    r = Tarn({"-vp", kPort0, "qos", created, "101"});
    EXPECT_EQ(r.status, 48);
    EXPECT_NE(r.err.find("(value out of range)"), std::string::npos) << r.err;
    r = Tarn({"-vp", kPort0, "qos", created, "90", "lock", "1"});
    EXPECT_EQ(r.status, 48) << r.err;
    EXPECT_NE(r.err.find("not enough bandwidth"), std::string::npos) << r.err;
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 20}, {created, 80}}));

    // Rebalance: equal shares.
    r = Tarn({"-vp", kPort0, "rebalance"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("QoS of 2 vPort(s) of HBA " + std::to_string(hba) + " rebalanced."), std::string::npos);
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 50}, {created, 50}}));

    // A speed, shown with its bandwidth.
    ASSERT_EQ(Tarn({"-vp", kPort0, "qos", created, "8G"}).status, 0);
    for (const nlohmann::json listed = Json({"-vp", kPort0}); const json &v : listed.at("ports").at(0).at("vports"))
        if (v.at("wwpn") == created) {
            EXPECT_EQ(v.at("qos_type"), "Speed");
            EXPECT_EQ(v.at("bandwidth_mbps"), 8000);
        }

    // Delete by WWPN, then again: it no longer exists.
    r = Tarn({"-vp", kPort0, "delete", created});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(
        r.out.find("Configuration changed, vPort " + created + " of HBA " + std::to_string(hba) + " has been deleted."),
        std::string::npos)
        << r.out;
    r = Tarn({"-vp", kPort0, "delete", created});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.err, "Specified vPort " + created + " does not exist (HBA " + std::to_string(hba) + ")!\n");
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 50}}));

    // A change in XML: its message, then the port's list.
    r = Tarn({"-x", "-vp", kPort0, "create", "0d"});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_TRUE(vttest::WellFormedXml(r.out)) << r.out;
    EXPECT_NE(r.out.find("    <Message>New vPort 21:0d:00:24:ff:7c:50:10 of HBA " + std::to_string(hba) +
                         " was created successfully</Message>\n     <HBA> \n"),
              std::string::npos)
        << r.out;
    ASSERT_EQ(Tarn({"-vp", kPort0, "delete", "21:0d:00:24:ff:7c:50:10"}).status, 0);

    // Delete all, in JSON: then the port has none.
    const json all = Json({"-vp", kPort0, "delete", "all"});
    EXPECT_EQ(all.at("message"),
              "Configuration changed, 1 vPort(s) of HBA " + std::to_string(hba) + " - VT2912 have been deleted.");
    r = Tarn({"-vp", kPort0, "delete", "all"});
    EXPECT_EQ(r.status, 8);
    EXPECT_EQ(r.err, "HBA " + std::to_string(hba) + " does not have any virtual port!\n");
}

TEST_F(TarncliVportTest, FaultsAndLimitsGiveTheirStatuses) {
    const int hba = Instance(kPort0);
    // The adapter is busy once, then creates.
    ASSERT_EQ(Sim({"vport-fault", std::to_string(hba), "1"}), 0);
    RunResult r = Tarn({"-vp", kPort0, "create"});
    EXPECT_EQ(r.status, 66);
    EXPECT_TRUE(
        std::regex_search(r.err, std::regex(R"(^Unable to create vPort 21:[0-9a-f]{2}:00:24:ff:7c:50:10 of HBA )" +
                                            std::to_string(hba) + R"( \(Device busy\)!)")))
        << r.err;
    const json created = Json({"-vp", kPort0, "create"});
    EXPECT_EQ(created.at("ports").at(0).at("virtual_ports"), 2);

    // No link: the firmware refuses.
    ASSERT_EQ(Sim({"link", std::to_string(hba), "linkdown"}), 0);
    r = Tarn({"-vp", kPort0, "create"});
    EXPECT_EQ(r.status, 66);
    EXPECT_NE(r.err.find("Loop down"), std::string::npos) << r.err;

    // Ports that take no vPorts, and a virtual port itself.
    EXPECT_EQ(Tarn({"-vp", kFcoePort, "create"}).status, 61);
    EXPECT_EQ(Tarn({"-vp", kVport1, "create"}).status, 61);
    EXPECT_EQ(Tarn({"-vp", kVport1}).status, 61) << "a virtual port has no virtual ports";
    EXPECT_EQ(Tarn({"-vp", kFcoePort, "rebalance"}).status, 61);
    // One port per change, and arguments checked before anything runs.
    EXPECT_EQ(Tarn({"-vp", "all", "create"}).status, 48);
    EXPECT_EQ(Tarn({"-vp", kPort0, "create", "zz"}).status, 48);
    EXPECT_EQ(Tarn({"-vp", kPort0, "qos", kVport1, "ten"}).status, 48);
    EXPECT_EQ(Tarn({"-vp", kPort0, "explode"}).status, 48);
    const json failed = Json({"-vp", kPort0, "qos", "99", "10"}, 8);
    EXPECT_EQ(failed.at("status"), 8);
    EXPECT_NE(failed.at("error").get<std::string>().find("vPort '99' not found"), std::string::npos);
}

TEST_F(TarncliVportTest, DriverLimitAndQoSLimit) {
    // Two vPorts at most, QoS on the first only.
    HostWith(R"("max_vports": 126, "max_vports_qos": 8)", R"("max_vports": 2, "max_vports_qos": 1)");
    ASSERT_EQ(Tarn({"-vp", kPort0, "create", "0b"}).status, 0);
    const RunResult full = Tarn({"-vp", kPort0, "create", "0c"});
    EXPECT_EQ(full.status, 61) << full.err;
    EXPECT_NE(full.err.find("Unable to create vPort 21:0c:00:24:ff:7c:50:10"), std::string::npos) << full.err;
    const RunResult disabled = Tarn({"-vp", kPort0, "qos", "21:0b:00:24:ff:7c:50:10", "10"});
    EXPECT_EQ(disabled.status, 61) << disabled.err;
    EXPECT_NE(disabled.err.find("QoS is disabled on this vPort"), std::string::npos) << disabled.err;
    // The list marks it, and a rebalance leaves it out.
    EXPECT_NE(Tarn({"-vp", kPort0}).out.find("0 %*"), std::string::npos);
    EXPECT_EQ(Tarn({"-vp", kPort0, "rebalance"}).status, 0);
    EXPECT_EQ(Shares(kPort0), (std::map<std::string, int>{{kVport1, 100}, {"21:0b:00:24:ff:7c:50:10", 0}}));
}

}  // namespace
