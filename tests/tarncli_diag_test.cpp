// tarncli's diagnostic commands as separate processes against the default
// simulated host: every loopback outcome produced by a fault script, the
// keys that stop a test, Ctrl-C during a test without end on a terminal,
// the parameter checks, the read/write buffer test, and the four output
// forms of the results.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
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
using diagtest::TarnWithKeys;
using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort0[] = "21:00:00:24:ff:7c:50:10";

struct Outcome;

class TarncliDiag : public ::testing::Test {
protected:
    void Check(const Outcome &o);
    // A fault script for instance 0's next loopback answers.
    void Script(const std::vector<std::string> &steps) {
        std::vector<std::string> args = {"diag", "0"};
        if (steps.empty()) args.push_back("clear");
        args.insert(args.end(), steps.begin(), steps.end());
        const RunResult r = Sim(args);
        ASSERT_EQ(r.status, 0) << r.err;
    }
    RunResult Kl(std::vector<std::string> args, std::vector<std::string> env = {}) {
        args.insert(args.begin(), "-kl");
        env.push_back("VTTEST_SLEEP_LOG=" + sleepLog_);
        return Tarn(args, env);
    }
    // The waits the last runs made (each a line of seconds), forgotten after.
    std::vector<std::string> TakeSleeps() {
        std::vector<std::string> lines;
        if (std::filesystem::exists(sleepLog_)) {
            lines = vttest::Lines(vttest::ReadFile(sleepLog_));
            std::filesystem::remove(sleepLog_);
        }
        return lines;
    }
    void ReferenceFile(const std::string &content) {
        vttest::WriteFile(root_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"), content);
    }
    std::string Traces() {
        std::string all;
        for (const auto &e : std::filesystem::directory_iterator(root_.path("/var/tmp")))
            if (e.is_regular_file()) all += vttest::ReadFile(e.path());
        return all;
    }

    vttest::SysrootScope root_;
    std::string sleepLog_ = root_.path("/tmp/sleeps");
};

json Parse(const RunResult &r) {
    json doc = json::parse(r.out, nullptr, false);
    EXPECT_FALSE(doc.is_discarded()) << r.out;
    return doc;
}

/* ---------------------------------------------------------- loopback outcomes */

struct Outcome {
    const char *what;
    std::vector<std::string> steps;
    std::vector<std::string> args;
    int exit;
    const char *testStatus;
    uint64_t runs, failed, iterations, crc, disparity, frameLength;
    const char *text;  // of the first failed run, "" for none
    size_t sleeps;     // one-second waits before retries
};

// Runs the loopback test on instance 0 after the script, in JSON and in
// text, and checks the outcome in both.
void TarncliDiag::Check(const Outcome &o) {
    SCOPED_TRACE(o.what);
    // JSON: the numbers.
    Script(o.steps);
    std::vector<std::string> args = {"0"};
    args.insert(args.end(), o.args.begin(), o.args.end());
    std::vector<std::string> jsonArgs = args;
    jsonArgs.insert(jsonArgs.begin(), "-j");
    const RunResult j = Kl(jsonArgs);
    EXPECT_EQ(j.status, o.exit) << j.out << j.err;
    EXPECT_EQ(TakeSleeps().size(), o.sleeps);
    const json doc = Parse(j);
    ASSERT_TRUE(doc.contains("ports") && doc["ports"].size() == 1) << j.out;
    const json &p = doc["ports"][0];
    EXPECT_EQ(p["wwpn"], kPort0);
    EXPECT_EQ(p["test_status"], o.testStatus);
    EXPECT_EQ(p["runs"], o.runs);
    EXPECT_EQ(p["failed_runs"], o.failed);
    EXPECT_EQ(p["iterations"], o.iterations);
    EXPECT_EQ(p["stopped"], "no");
    EXPECT_EQ(p["crc_errors"], o.crc);
    EXPECT_EQ(p["disparity_errors"], o.disparity);
    EXPECT_EQ(p["frame_length_errors"], o.frameLength);
    if (o.text[0] != '\0') {
        ASSERT_TRUE(p.contains("text"));
        EXPECT_EQ(p["text"].get<std::string>().rfind(o.text, 0), 0u) << p["text"];
    }
    EXPECT_EQ(doc["status"], o.exit);
    if (o.exit != 0) {
        EXPECT_EQ(doc["error"], "Error: Loopback test failed on 1 of 1 port(s)!");
    }

    // Text: the same row, after the screen of the runs.
    Script(o.steps);
    const RunResult t = Kl(args);
    EXPECT_EQ(t.status, o.exit);
    TakeSleeps();
    const std::regex row("\n +0  " + std::string(kPort0) + "  " + o.testStatus + " +" + std::to_string(o.runs) + " +" +
                         std::to_string(o.failed) + " +" + std::to_string(o.iterations) + " +no\n");
    EXPECT_TRUE(std::regex_search(t.out, row)) << t.out;
    EXPECT_NE(t.out.find("      Errors: CRC " + std::to_string(o.crc) + ", disparity " + std::to_string(o.disparity) +
                         ", frame length " + std::to_string(o.frameLength) + "\n"),
              std::string::npos)
        << t.out;
    if (o.text[0] != '\0') {
        EXPECT_NE(t.out.find(std::string("      ") + o.text), std::string::npos) << t.out;
    }
    // The screen shows each run before the results.
    EXPECT_LT(t.out.find("Diagnostics - Loopback Test"), t.out.find("Loopback Test Results"));
    EXPECT_EQ(Count(t.out, kPort0 + std::string(" ")), o.runs + 1) << t.out;  // runs, result row
    if (o.exit != 0) {
        EXPECT_NE(t.err.find("Error: Loopback test failed on 1 of 1 port(s)!"), std::string::npos);
    }
}

TEST_F(TarncliDiag, LoopbackOutcomesThatEndARun) {
    const std::vector<Outcome> outcomes = {
        {"pass", {}, {"TC=4", "TI=2"}, 0, "Success", 2, 0, 4, 0, 0, 0, "", 0},
        {"parameter error", {"status=2"}, {"TC=3"}, 40, "Param Error", 3, 1, 3, 0, 0, 0, "", 0},
        {"loop down", {"status=3"}, {"TC=3"}, 41, "Loop Down", 3, 1, 3, 0, 0, 0, "", 0},
        // Frame errors are retried; a later pass makes the run pass.
        {"errors, then a pass on retry",
         {"status=4,crc=2,disparity=1"},
         {"TC=3"},
         0,
         "Success",
         3,
         0,
         3,
         0,
         0,
         0,
         "",
         1},
        {"stop on error", {"pass*2", "status=3"}, {"TC=5", "OE=1"}, 41, "Loop Down", 3, 1, 3, 0, 0, 0, "", 0},
        {"ignore errors", {"pass*2", "status=3"}, {"TC=5", "OE=0"}, 41, "Loop Down", 5, 1, 5, 0, 0, 0, "", 0},
    };
    for (const Outcome &o : outcomes) Check(o);
}

// 30 attempts, 29 waits of a second, then the run fails.
TEST_F(TarncliDiag, LoopbackRetriesExhausted) {
    const std::vector<Outcome> outcomes = {
        // The counts add up over the attempts, and the text keeps its
        // doubled '='.
        {"frame errors",
         {"status=4,crc=1,frame=2*30"},
         {"TC=2"},
         42,
         "Error",
         2,
         1,
         2,
         30,
         0,
         60,
         "CRCError=0x001e DisparityError==0x0000 FrameLengthError=0x003c",
         29},
        {"busy", {"busy*30"}, {"TC=2"}, 1, "Failure", 2, 1, 2, 0, 0, 0, "SDRunDiagLoopback failed", 29},
        {"device gone", {"nodevice*30"}, {"TC=2"}, 1, "DevNotFound", 2, 1, 2, 0, 0, 0, "SDRunDiagLoopback failed", 29},
    };
    for (const Outcome &o : outcomes) Check(o);
}

// ENTER stops a test: a test without end, and a test that loops after its
// first error past its count.
TEST_F(TarncliDiag, EnterStopsATestWithoutEndAndALoopOnError) {
    auto runsShown = [](size_t n) {
        return [n](const std::string &screen) { return Count(screen, " Success ") >= n; };
    };
    Script({});
    RunResult r = TarnWithKeys({"-kl", "0", "TC=0"}, {}, runsShown(3), "\n");
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\n +0  21:00:00:24:ff:7c:50:10  Success +\d+ +0 +\d+ +yes\n)")))
        << r.out;

    // Loop on error: the count of 3 no longer ends the test once a run
    // failed; only ENTER does.  JSON on standard output, the screen on
    // standard error.
    Script({"status=3"});
    r = TarnWithKeys({"-j", "-kl", "0", "TC=3", "OE=2"}, {}, runsShown(6), "\n");
    EXPECT_EQ(r.status, 41);
    const json doc = Parse(r);
    const json &p = doc["ports"][0];
    EXPECT_GE(p["runs"].get<uint64_t>(), 7u);
    EXPECT_EQ(p["failed_runs"], 1);
    EXPECT_EQ(p["stopped"], "yes");
    EXPECT_EQ(p["test_status"], "Loop Down");
    EXPECT_NE(r.err.find("Diagnostics - Loopback Test"), std::string::npos);
}

/* ------------------------------------------------------------- Ctrl-C */

// Ctrl-C during a test without end on a terminal: the command line's
// handler stops the workers, releases everything once, logs its lines,
// and the terminal, switched to single keys for the test, is as it was.
TEST_F(TarncliDiag, CtrlCOnATerminalEndsATestWithoutEnd) {
    ReferenceFile("node.app.messages.trace.enable=1\n");
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string slaveName = ptsname(master);
    const int slave = open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(slave, 0);
    termios before{};
    ASSERT_EQ(tcgetattr(slave, &before), 0);
    ASSERT_NE(before.c_lflag & ICANON, 0u);

    const std::vector<std::string> env = diagtest::ToolEnvironment({});
    const std::string tool = vttest::BuildPath("bin/tarncli");
    std::vector<char *> argv = {const_cast<char *>(tool.c_str()), const_cast<char *>("-kl"), const_cast<char *>("all"),
                                const_cast<char *>("TC=0"), nullptr};
    std::vector<char *> cenv;
    for (const auto &e : env) cenv.push_back(const_cast<char *>(e.c_str()));
    cenv.push_back(nullptr);
    const pid_t pid = vttest::ForkChild();
    if (pid == 0) {
        setsid();
        const int tty = open(slaveName.c_str(), O_RDWR);  // becomes the controlling terminal
        if (tty < 0) _exit(126);
        dup2(tty, STDIN_FILENO);
        dup2(tty, STDOUT_FILENO);
        dup2(tty, STDERR_FILENO);
        execve(argv[0], argv.data(), cenv.data());
        _exit(127);
    }
    vttest::ChildGuard child(pid);

    // Wait until every port has made a few runs, then look at the terminal
    // and interrupt.
    std::string screen;
    char buf[4096];
    bool keyMode = false;
    while (Count(screen, " Success ") < 12) {
        const ssize_t n = read(master, buf, sizeof buf);
        if (n <= 0) break;
        screen.append(buf, size_t(n));
    }
    ASSERT_GE(Count(screen, " Success "), 12u) << screen;
    termios during{};
    ASSERT_EQ(tcgetattr(slave, &during), 0);
    keyMode = (during.c_lflag & ICANON) == 0;
    EXPECT_TRUE(keyMode) << "the test takes single keys";
    // The terminal's settings outlive its openers while the master is open;
    // with no opener left but the tool, reading the master ends with it.
    close(slave);
    kill(pid, SIGINT);
    // Drain the terminal until the tool is gone.
    for (;;) {
        const ssize_t n = read(master, buf, sizeof buf);
        if (n > 0) {
            screen.append(buf, size_t(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        break;
    }
    const int st = child.Wait();
    EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
    const int again = open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(again, 0);
    termios after{};
    ASSERT_EQ(tcgetattr(again, &after), 0);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    close(again);
    close(master);
    EXPECT_EQ(screen.find("Loopback Test Results"), std::string::npos) << "the handler ended the process";

    const std::vector<std::string> log = vttest::Lines(Traces());
    int at = 0;
    for (const char *line :
         {"Signal (2) caught...", "Diagnostics test is running (status=2)", "Diagnostics test stopped (status=1)",
          "termination_handler: g_DiagState=3", "Calling cleanup routine", "CTRL-C triggered - Cleanup() ...",
          "Diagnostics: stopping", "worker(s) stopped", "cleanup: g_ResourcesDeallocated = 1",
          "termination_handler: exit 0."}) {
        const int found = vttest::FindLine(log, line, at);
        EXPECT_GE(found, 0) << "no \"" << line << "\" after line " << at;
        if (found >= 0) at = found;
    }
    // Each worker of the six physical ports ended before the resources
    // were released.
    const int released = vttest::FindLine(log, "cleanup: g_ResourcesDeallocated = 1");
    int finished = 0;
    for (int i = vttest::FindLine(log, "worker of instance"); i >= 0 && i < released;
         i = vttest::FindLine(log, "worker of instance", i + 1))
        ++finished;
    EXPECT_EQ(finished, 6);
}

/* ------------------------------------------------------------ parameters */

// The library's table checks each value (its own tests cover every rule);
// here: its messages reach the user, the buffer test checks with its own
// rules, and the command line's own refusals.
TEST_F(TarncliDiag, ParametersAreCheckedByTheTable) {
    const struct {
        const char *option;
        std::vector<std::string> args;
        int status;
        const char *message;
    } refused[] = {
        {"-kl", {"TC=70000"}, 48, "Test Count value must be 0-65535!"},
        {"-kl", {"LT=5"}, 48, "Invalid diagnostics loopback type (5)!"},
        {"-kl", {"TC=5", "TI=5"}, 48, "Test Increment value must be less than Test Count value!"},
        {"-kl", {"XX=1"}, 60, "Invalid diagnostics option (XX)!"},
        {"-kl",
         {"TC"},
         60,
         "Error: Invalid argument 'TC' for option -kl! Write NAME=VALUE with NAME one of DP, DS, TC, "
         "TI, OE or LT."},
        {"-kr", {"DS=256"}, 48, "Data Size value must be 8,16,32,64 or 128 bytes!"},
        {"-kr", {"DP=CRPAT"}, 48, "Data Pattern value must be in hex!"},
        {"-kr", {"LT=0"}, 60, "Invalid diagnostics option (LT)!"},
    };
    for (const auto &c : refused) {
        SCOPED_TRACE(std::string(c.option) + " " + c.args[0]);
        std::vector<std::string> args = {"-j", c.option, "0"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const RunResult r = Tarn(args);
        EXPECT_EQ(r.status, c.status);
        const json doc = Parse(r);
        EXPECT_EQ(doc, json({{"status", c.status}, {"error", c.message}})) << r.out;
        EXPECT_EQ(r.err.find("Diagnostics -"), std::string::npos) << "no test started";
    }
    // Without a port the parameters still are no port selector.
    RunResult r = Tarn({"-kl", "TC=70000"});
    EXPECT_EQ(r.status, 48);
    EXPECT_EQ(r.err, "Test Count value must be 0-65535!\n");
    // A virtual port has no loopback.
    r = Tarn({"-kl", "21:04:00:24:ff:7c:50:10"});
    EXPECT_EQ(r.status, 61);
    EXPECT_EQ(r.err, "Error: The loopback test is not supported on a virtual port!\n");

    // Names and aliases in any case; only the first two hex digits of a
    // pattern count (5A77 sends 5A); the maximum-I/O loopback type with the
    // preference set.
    ReferenceFile("node.app.messages.trace.enable=1\nnode.hba.diagnostics.maxio.enable=1\n");
    r = Tarn({"-j", "-kl", "0", "datapattern=5A77", "tc=2", "LoopbackType=5", "ds=64"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    const json doc = Parse(r);
    EXPECT_EQ(doc["parameters"]["data_pattern"], "5A77");
    EXPECT_EQ(doc["parameters"]["test_count"], 2);
    EXPECT_EQ(doc["parameters"]["loopback_type"], 5);
    EXPECT_EQ(doc["ports"][0]["test_status"], "Success");
    EXPECT_NE(Traces().find("Data Pattern:5a:5a:5a:5a:5a:5a:5a:5a"), std::string::npos);
}

/* ---------------------------------------------------------- output forms */

TEST_F(TarncliDiag, LoopbackResultsInEveryForm) {
    const RunResult text = Kl({"0", "TC=2"});
    ASSERT_EQ(text.status, 0) << text.err;
    ASSERT_NE(text.out.find("Loopback Test Results"), std::string::npos) << text.out;
    for (const auto &line : vttest::Lines(text.out.substr(text.out.find("Loopback Test Results"))))
        EXPECT_LE(line.size(), 79u) << line;
    EXPECT_NE(text.out.find("Test Count           : 2\n"), std::string::npos) << text.out;

    const RunResult j = Kl({"-j", "0", "TC=2"});
    const json doc = Parse(j);
    EXPECT_EQ(doc["status"], 0);
    EXPECT_EQ(doc["parameters"]["data_pattern"], "Random");
    EXPECT_EQ(doc["parameters"]["data_size"], 512);
    EXPECT_EQ(doc["ports"][0]["instance"], 0);
    EXPECT_NE(text.out.find(std::string("0  ") + kPort0 + "  " + doc["ports"][0]["test_status"].get<std::string>()),
              std::string::npos);
    EXPECT_NE(j.err.find("Diagnostics - Loopback Test"), std::string::npos) << "the screen goes to standard error";

    const std::vector<std::string> block = {
        "\t<LoopbackTest>",
        "\t\t<TestStatus>Success</TestStatus>",
        "\t\t<Runs>2</Runs>",
        "\t\t<FailedRuns>0</FailedRuns>",
        "\t\t<Iterations>2</Iterations>",
        "\t\t<Stopped>0</Stopped>",
        "\t\t<CRCError>0</CRCError>",
        "\t\t<DisparityError>0</DisparityError>",
        "\t\t<FrameLengthError>0</FrameLengthError>",
        "\t</LoopbackTest>",
    };
    for (const char *form : {"-x", "-x2"}) {
        SCOPED_TRACE(form);
        const RunResult x = Kl({form, "0", "TC=2"});
        EXPECT_EQ(x.status, 0);
        EXPECT_TRUE(diagtest::WellFormedXml(root_, x.out)) << x.out;
        const auto lines = vttest::Lines(x.out);
        ASSERT_GE(lines.size(), 5u);
        EXPECT_EQ(lines[0], "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>");
        int at = vttest::FindLine(lines, "    <DiagnosticsParameters>");
        ASSERT_GE(at, 0) << x.out;
        EXPECT_EQ(lines[size_t(at) + 3], "        <TestCount>2</TestCount>");
        EXPECT_EQ(lines[size_t(at) + 6], "        <LoopbackType>0</LoopbackType>");
        at = vttest::FindLine(lines, "\t<LoopbackTest>");
        ASSERT_GE(at, 0);
        for (size_t i = 0; i < block.size(); ++i) EXPECT_EQ(lines[size_t(at) + i], block[i]);
        const bool two = std::string(form) == "-x2";
        EXPECT_EQ(vttest::FindLine(lines, "    <AppXmlVersion>2.0</AppXmlVersion>") >= 0, two);
        EXPECT_EQ(vttest::FindLine(lines, "HBAModel=\"VT2912\" HBAPort=\"0\"") >= 0, two);
        const std::vector<std::string> tail(lines.end() - 3, lines.end());
        EXPECT_EQ(tail,
                  (std::vector<std::string>{"    <Status> 0 </Status>", "    <Reboot> 0 </Reboot>", "</Vantor>"}));
    }
    // A failed test closes its document with its status and message.
    Script({"status=3"});
    const RunResult failed = Kl({"-x", "0", "TC=2"});
    EXPECT_EQ(failed.status, 41);
    EXPECT_TRUE(diagtest::WellFormedXml(root_, failed.out)) << failed.out;
    EXPECT_NE(failed.out.find("\t\t<TestStatus>Loop Down</TestStatus>\n"), std::string::npos);
    EXPECT_NE(failed.out.find("    <Status> 41 </Status>\n    <ErrorMsg> Error: Loopback test failed on 1 of 1 "
                              "port(s)! </ErrorMsg>\n"),
              std::string::npos)
        << failed.out;
}

/* -------------------------------------------------- read/write buffer test */

TEST_F(TarncliDiag, ReadWriteBufferTestPerTarget) {
    RunResult r = Tarn({"-j", "-kr", "0", "TC=2"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    json doc = Parse(r);
    ASSERT_EQ(doc["ports"].size(), 1u);
    const json &targets = doc["ports"][0]["targets"];
    ASSERT_FALSE(targets.empty());
    size_t passed = 0;
    for (const json &t : targets)
        if (t["status"] == "Success") {
            ++passed;
            EXPECT_EQ(t["runs"], 2);
            EXPECT_EQ(t["data_miscompares"], 0);
        }
    EXPECT_GE(passed, 1u) << r.out;
    const std::string firstTarget = targets[0]["target_wwpn"];

    const RunResult text = Tarn({"-kr", "0", "TC=2"});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("Read/Write Buffer Test Results"), std::string::npos);
    EXPECT_TRUE(std::regex_search(text.out, std::regex("\n  " + firstTarget + " +\\d+  Success +2 +0\n"))) << text.out;

    // A changed READ BUFFER answer is a miscompare and fails the test.
    ASSERT_EQ(Sim({"miscompare", "0", "1"}).status, 0);
    r = Tarn({"-j", "-kr", "0", "TC=2"});
    EXPECT_EQ(r.status, 1);
    doc = Parse(r);
    size_t miscompares = 0;
    for (const json &t : doc["ports"][0]["targets"]) miscompares += t["data_miscompares"].get<size_t>();
    EXPECT_EQ(miscompares, 1u) << r.out;
    EXPECT_EQ(doc["error"], "Error: Read/write buffer test failed on 1 of 1 port(s)!");

    for (const char *form : {"-x", "-x2"}) {
        const RunResult x = Tarn({form, "-kr", "0", "TC=2"});
        EXPECT_EQ(x.status, 0);
        EXPECT_TRUE(diagtest::WellFormedXml(root_, x.out)) << x.out;
        EXPECT_NE(x.out.find("\t<ReadWriteBufferTest>\n\t\t<TargetWWPN>" + firstTarget + "</TargetWWPN>\n"),
                  std::string::npos)
            << x.out;
        EXPECT_NE(x.out.find("        <DataSize>8</DataSize>\n"), std::string::npos);
    }
}

}  // namespace
