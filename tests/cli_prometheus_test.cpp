// The Prometheus text writer of the monitors: names, escaping, the order of
// families and samples, and the whole-file replacement of its file.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "cli/prometheus.h"
#include "testutil.h"

namespace {

using vt::cli::PrometheusText;

TEST(PrometheusText, FamiliesInOrderWithEscapedValues) {
    PrometheusText p;
    ASSERT_TRUE(p.Family("vt_b_total", "counter", "Second family,\nwith a \\ in its help."));
    ASSERT_TRUE(p.Family("vt_a", "gauge", "First declared after b."));
    ASSERT_TRUE(p.Family("vt_empty", "gauge", "Never sampled."));
    EXPECT_FALSE(p.Family("vt_a", "gauge", "twice")) << "a family is declared once";
    EXPECT_TRUE(p.Sample("vt_a", {{"wwpn", "21:00"}, {"path", "a\"b\\c\nd"}}, -3));
    EXPECT_TRUE(p.Sample("vt_b_total", {}, 7));
    EXPECT_TRUE(p.Sample("vt_a", {{"wwpn", "21:01"}}, 4));
    EXPECT_FALSE(p.Sample("vt_unknown", {}, 1));
    EXPECT_FALSE(p.Sample("vt_a", {{"bad-label", "x"}}, 1));
    EXPECT_EQ(p.Text(),
              "# HELP vt_b_total Second family,\\nwith a \\\\ in its help.\n"
              "# TYPE vt_b_total counter\n"
              "vt_b_total 7\n"
              "# HELP vt_a First declared after b.\n"
              "# TYPE vt_a gauge\n"
              "vt_a{wwpn=\"21:00\",path=\"a\\\"b\\\\c\\nd\"} -3\n"
              "vt_a{wwpn=\"21:01\"} 4\n");
}

TEST(PrometheusText, Names) {
    for (const char *good : {"a", "_x", "vt:fc_port_1", "A9"}) EXPECT_TRUE(vt::cli::ValidMetricName(good)) << good;
    for (const char *bad : {"", "9a", "a-b", "a b", "\xc3\xa9"}) EXPECT_FALSE(vt::cli::ValidMetricName(bad)) << bad;
    EXPECT_TRUE(vt::cli::ValidLabelName("port_name"));
    EXPECT_FALSE(vt::cli::ValidLabelName("a:b")) << "no colon in label names";
    EXPECT_FALSE(vt::cli::ValidLabelName("__name__")) << "reserved";
    PrometheusText p;
    EXPECT_FALSE(p.Family("1bad", "gauge", "x"));
}

TEST(PrometheusText, FileIsReplacedWholeKeepingItsModeAndNeverThroughALink) {
    vttest::TempDir dir;
    const std::string path = dir.file("m.prom");
    ASSERT_EQ(vt::cli::ReplaceMetricsFile(path, "a 1\n"), 0);
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u) << "readable by an exporter that is not root";
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const ino_t first = st.st_ino;
    ASSERT_EQ(vt::cli::ReplaceMetricsFile(path, "a 2\n"), 0);
    EXPECT_EQ(vttest::ReadFile(path), "a 2\n");
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_NE(st.st_ino, first) << "a new file renamed into place, not rewritten";
    size_t entries = 0;
    for ([[maybe_unused]] const auto &e : std::filesystem::directory_iterator(dir.path())) ++entries;
    EXPECT_EQ(entries, 1u) << "no temporary file left";

    // A link planted at the name is refused and what it points at is kept.
    const std::string victim = dir.file("victim");
    vttest::WriteFile(victim, "keep\n");
    const std::string link = dir.file("l.prom");
    ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
    EXPECT_EQ(vt::cli::ReplaceMetricsFile(link, "x 1\n"), ELOOP);
    EXPECT_EQ(vttest::ReadFile(victim), "keep\n");
    EXPECT_NE(vt::cli::ReplaceMetricsFile(dir.file("no/such/dir/m.prom"), "x\n"), 0);
}

}  // namespace
