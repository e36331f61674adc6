// tarncli's monitor commands (-gs statistics, -ls link status) as separate
// processes against the default simulated host, with a clock that moves only
// when the library waits: the rates over two polls, the CSV files byte for
// byte, the Prometheus file, the parameters, ENTER, and the four output
// forms.
#include <time.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tarncli_diagutil.h"
#include "testutil.h"

namespace {

using diagtest::Count;
using diagtest::Sim;
using diagtest::Tarn;
using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort0[] = "21:00:00:24:ff:7c:50:10";
constexpr time_t kStart = 1700000000;

std::string Stamp(time_t t) {
    tm local{};
    localtime_r(&t, &local);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

json Parse(const RunResult &r) {
    json doc = json::parse(r.out, nullptr, false);
    EXPECT_FALSE(doc.is_discarded()) << r.out;
    return doc;
}

class TarncliMonitor : public ::testing::Test {
protected:
    void SetUp() override {
        // The simulated host's clock stands still at the start; the tool's
        // waits move it and the library's together.
        ASSERT_EQ(Sim({"clock", "set", std::to_string(kStart)}).status, 0);
    }
    RunResult Run(const std::vector<std::string> &args) { return Tarn(args, Clock()); }
    std::vector<std::string> Clock() { return {"VTTEST_CLOCK=" + std::to_string(kStart), diagtest::SimClock()}; }
    std::string Path(const std::string &name) { return root_.path("/tmp/" + name); }
    // Files a replacement left beside the metrics file.
    size_t Leftovers() {
        size_t n = 0;
        for (const auto &e : std::filesystem::directory_iterator(root_.path("/tmp")))
            if (e.path().filename().string().find(".vtnew-") != std::string::npos) ++n;
        return n;
    }

    vttest::SysrootScope root_;
};

/* ------------------------------------------------------------ statistics */

TEST_F(TarncliMonitor, StatisticsOverTwoPollsShowTheTrafficRate) {
    ASSERT_EQ(Sim({"traffic", "0", "io_per_second=1000", "mb_per_second=10"}).status, 0);
    const std::string csv = Path("stats.csv"), prom = Path("stats.prom");
    const RunResult r = Run({"-j", "-gs", "0", "AP=2", "SR=5", "LF=" + csv, "PF=" + prom});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const json doc = Parse(r);
    ASSERT_EQ(doc["ports"].size(), 1u) << "a chosen port restricts the monitor";
    const json &p = doc["ports"][0];
    EXPECT_EQ(p["wwpn"], kPort0);
    EXPECT_EQ(p["io_per_second"], 1000);
    EXPECT_EQ(p["bytes_per_second"], 10 * 1048576);
    EXPECT_EQ(p["time"], Stamp(kStart + 5));
    const uint64_t io = p["io_count"];
    const std::string counts = std::to_string(p["errors"].get<uint64_t>()) + "," +
                               std::to_string(p["device_errors"].get<uint64_t>()) + "," +
                               std::to_string(p["resets"].get<uint64_t>()) + ",";

    // One line a poll: time stamp, errors, device errors, resets, I/O count,
    // IOPS and BPS.
    EXPECT_EQ(vttest::ReadFile(csv), Stamp(kStart) + "," + counts + std::to_string(io - 5000) + ",0,0\n" +
                                         Stamp(kStart + 5) + "," + counts + std::to_string(io) + ",1000,10485760\n");
    // The file is appended to.
    ASSERT_EQ(Run({"-gs", "0", "AP=1", "LF=" + csv}).status, 0);
    EXPECT_EQ(vttest::Lines(vttest::ReadFile(csv)).size(), 3u);

    // The metrics file holds the last poll, replaced whole.
    const std::string metrics = vttest::ReadFile(prom);
    const std::string labels = "{hba=\"0\",wwpn=\"" + std::string(kPort0) + "\"}";
    EXPECT_NE(metrics.find("# HELP vt_fc_port_io_per_second I/O requests per second since the previous poll.\n"
                           "# TYPE vt_fc_port_io_per_second gauge\n"
                           "vt_fc_port_io_per_second" +
                           labels + " 1000\n"),
              std::string::npos)
        << metrics;
    EXPECT_NE(metrics.find("# TYPE vt_fc_port_io_total counter\nvt_fc_port_io_total" + labels + " " +
                           std::to_string(io) + "\n"),
              std::string::npos)
        << metrics;
    EXPECT_NE(metrics.find("vt_fc_port_poll_ok" + labels + " 1\n"), std::string::npos);
    EXPECT_EQ(Leftovers(), 0u);
}

TEST_F(TarncliMonitor, StatisticsInEveryFormAndTheDeviceFilter) {
    const RunResult text = Run({"-gs", "0", "AP=1"});
    ASSERT_EQ(text.status, 0) << text.err;
    ASSERT_NE(text.out.find("Port Statistics"), std::string::npos) << text.out;
    const RunResult j = Run({"-j", "-gs", "0", "AP=1"});
    const json doc = Parse(j);
    const json &p = doc["ports"][0];
    // The text row of the report shows the JSON values.
    const std::regex row("\n +0 +" + std::to_string(p["errors"].get<uint64_t>()) + " +" +
                         std::to_string(p["device_errors"].get<uint64_t>()) + " +" +
                         std::to_string(p["resets"].get<uint64_t>()) + " +" +
                         std::to_string(p["io_count"].get<uint64_t>()) + " +0 +0 +" + Stamp(kStart) + "\n");
    EXPECT_TRUE(std::regex_search(text.out.substr(text.out.find("Port Statistics")), row)) << text.out;
    EXPECT_NE(text.out.find("Monitoring"), std::string::npos) << "the monitor's screen";
    for (const auto &line : vttest::Lines(text.out.substr(text.out.find("Port Statistics"))))
        EXPECT_LE(line.size(), 79u) << line;
    EXPECT_NE(j.err.find("Monitoring"), std::string::npos) << "the screen on standard error with JSON";

    for (const char *form : {"-x", "-x2"}) {
        const RunResult x = Run({form, "-gs", "0", "AP=1"});
        EXPECT_EQ(x.status, 0);
        EXPECT_TRUE(diagtest::WellFormedXml(root_, x.out)) << x.out;
        EXPECT_NE(
            x.out.find("\t<Statistics>\n\t\t<Errors>" + std::to_string(p["errors"].get<uint64_t>()) + "</Errors>\n"),
            std::string::npos)
            << x.out;
        EXPECT_NE(x.out.find("\t\t<TimeStamp>" + Stamp(kStart) + "</TimeStamp>\n\t</Statistics>\n"), std::string::npos);
    }

    // "all" and DF=0 poll every listed port; a chosen port alone otherwise.
    const size_t everyPort = Parse(Run({"-j", "-g"}))["ports"].size();
    EXPECT_EQ(Parse(Run({"-j", "-gs", "AP=1"}))["ports"].size(), everyPort);
    EXPECT_EQ(Parse(Run({"-j", "-gs", "0", "AP=1", "DF=0"}))["ports"].size(), everyPort);
    EXPECT_EQ(Parse(Run({"-j", "-gs", "0", "AP=1", "DF=1"}))["ports"].size(), 1u);
}

TEST_F(TarncliMonitor, ParametersAndEnter) {
    const struct {
        const char *option;
        const char *arg;
        int status;
        const char *message;
    } refused[] = {
        {"-gs", "AP=257", 48, "Polling iteration value must be from 0 to 256. (0 = non-stop polling)!"},
        {"-gs", "SR=4", 48, "Polling time interval must be 0 or between 5 and 300 seconds"},
        {"-gs", "DF=2", 48, "Device filter option must be 0 or 1!"},
        {"-gs", "ZZ=1", 60, "Invalid polling option (ZZ)!"},
        {"-ls", "DF=1", 60, "Invalid polling option (DF)!"},
        {"-ls", "PF=", 48, "Error: PromFile needs a file name!"},
        {"-ls", "AP", 60,
         "Error: Invalid argument 'AP' for option -ls! Write NAME=VALUE with NAME one of AP, SR, LF "
         "or PF."},
    };
    for (const auto &c : refused) {
        SCOPED_TRACE(std::string(c.option) + " " + c.arg);
        const RunResult r = Run({"-j", c.option, "0", c.arg});
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(Parse(r), json({{"status", c.status}, {"error", c.message}})) << r.out;
    }
    // A CSV file that cannot be opened is said on the screen; the monitor
    // goes on.
    const RunResult r = Run({"-gs", "0", "AP=1", "LF=" + Path("missing/dir/s.csv")});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Unable to open log file (" + Path("missing/dir/s.csv") + ")!"), std::string::npos) << r.out;

    // AutoPoll 0 polls until ENTER; the metrics file is there after the
    // polls while the monitor still runs.
    const std::string year = Stamp(kStart).substr(0, 8);
    const std::string live = Path("live.prom");
    const RunResult held = diagtest::TarnWithKeys(
        {"-gs", "0", "AutoPoll=0", "PF=" + live}, Clock(),
        [&](const std::string &screen) { return Count(screen, year) >= 4 && std::filesystem::exists(live); }, "\n");
    EXPECT_EQ(held.status, 0) << held.err;
    EXPECT_NE(held.out.find("Port Statistics (last poll)"), std::string::npos);
    EXPECT_NE(vttest::ReadFile(live).find("vt_fc_port_poll_ok{hba=\"0\""), std::string::npos);
}

/* ----------------------------------------------------------- link status */

TEST_F(TarncliMonitor, LinkStatusCsvHoldsOnlyThePortAndShowsTheTotals) {
    ASSERT_EQ(Sim({"counters", "0", "link_failure=3", "loss_of_sync=4", "loss_of_signal=5", "invalid_crc=7",
                   "primitive_seq_errors=8", "invalid_tx_words=9"})
                  .status,
              0);
    const std::string csv = Path("link.csv"), prom = Path("link.prom");
    const RunResult r = Run({"-j", "-ls", "0", "AP=1", "LF=" + csv, "PF=" + prom});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const json doc = Parse(r);
    const json &entries = doc["ports"][0]["entries"];
    ASSERT_GE(entries.size(), 2u) << r.out;
    const json &own = entries[0];
    EXPECT_EQ(own["port_type"], "Port");
    EXPECT_EQ(own["port_name"], kPort0);
    auto n = [&own](const char *key) { return std::to_string(own[key].get<uint64_t>()); };
    EXPECT_GE(own["invalid_crc"].get<uint64_t>(), 7u);

    // The port's line only, its counters in the screen's order: invalid
    // CRC before the protocol and transmission word errors.
    EXPECT_EQ(vttest::ReadFile(csv), Stamp(kStart) + "," + kPort0 + "," + n("link_failures") + "," + n("loss_of_sync") +
                                         "," + n("loss_of_signal") + "," + n("invalid_crc") + "," +
                                         n("primitive_seq_protocol_errors") + "," + n("invalid_transmission_words") +
                                         "\n");
    const std::string targets = vttest::ReadFile(Path("link_targets.csv"));
    EXPECT_EQ(targets.find(kPort0), std::string::npos);
    EXPECT_FALSE(targets.empty());

    // A target that is not logged in is not asked.
    bool skipped = false;
    for (const json &e : entries)
        if (e.contains("text") && e["text"].get<std::string>().find("not present. Skipping...") != std::string::npos)
            skipped = true;
    EXPECT_TRUE(skipped) << r.out;

    const std::string metrics = vttest::ReadFile(prom);
    EXPECT_NE(metrics.find("vt_fc_link_invalid_crc_total{hba=\"0\",wwpn=\"" + std::string(kPort0) + "\",port_name=\"" +
                           kPort0 + "\",port_type=\"Port\"} " + n("invalid_crc") + "\n"),
              std::string::npos)
        << metrics;
    EXPECT_NE(metrics.find("# TYPE vt_fc_link_status_ok gauge\n"), std::string::npos);
    EXPECT_EQ(Leftovers(), 0u);

    // Text and XML show the same entry.
    const RunResult text = Run({"-ls", "0", "AP=1"});
    ASSERT_NE(text.out.find("Link Status (totals)"), std::string::npos) << text.out;
    const std::string report = text.out.substr(text.out.find("Link Status (totals)"));
    EXPECT_TRUE(std::regex_search(
        report, std::regex(std::string("\n") + kPort0 + " +" + n("link_failures") + " +" + n("loss_of_sync") + " +" +
                           n("loss_of_signal") + " +" + n("invalid_crc") + " +" + n("primitive_seq_protocol_errors") +
                           " +" + n("invalid_transmission_words") + "\n")))
        << text.out;
    for (const auto &line : vttest::Lines(report)) EXPECT_LE(line.size(), 79u) << line;
    for (const char *form : {"-x", "-x2"}) {
        const RunResult x = Run({form, "-ls", "0", "AP=1"});
        EXPECT_EQ(x.status, 0);
        EXPECT_TRUE(diagtest::WellFormedXml(root_, x.out)) << x.out;
        EXPECT_NE(x.out.find("\t<LinkStatus>\n\t\t<PortType>Port</PortType>\n\t\t<PortName>" + std::string(kPort0) +
                             "</PortName>\n\t\t<LinkFailure>" + n("link_failures") + "</LinkFailure>\n"),
                  std::string::npos)
            << x.out;
    }
}

}  // namespace
