// Shared by the tests of tarncli's configuration commands (driver files,
// virtual ports, aliases): tarncli in new processes against the default
// simulated host in a private system root, its JSON parsed, its XML checked.
#pragma once

#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "testutil.h"

namespace vttest {

inline bool WellFormedXml(const std::string &doc) {
    xmlDocPtr parsed = xmlReadMemory(doc.data(), static_cast<int>(doc.size()), "report.xml", nullptr,
                                     XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (parsed == nullptr) return false;
    xmlFreeDoc(parsed);
    return true;
}

// The blank-separated words of a line.
inline std::vector<std::string> WordsOf(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

class TarncliConfigTest : public ::testing::Test {
protected:
    RunResult Tarn(std::vector<std::string> args, const std::vector<std::string> &env = {}) {
        args.insert(args.begin(), BuildPath("bin/tarncli"));
        std::vector<std::string> all = env_;
        all.insert(all.end(), env.begin(), env.end());
        return vttest::Run(args, all);
    }
    // The JSON document of a command; its exit status must be `status`.
    nlohmann::json Json(std::vector<std::string> args, int status = 0) {
        args.insert(args.begin(), "-j");
        const RunResult r = Tarn(args);
        EXPECT_EQ(r.status, status) << r.out << r.err;
        try {
            return nlohmann::json::parse(r.out);
        } catch (const nlohmann::json::exception &e) {
            ADD_FAILURE() << e.what() << "\n" << r.out;
            return nlohmann::json::object();
        }
    }
    // The listed instance of the port with this WWPN.
    int Instance(const std::string &wwpn) {
        for (const nlohmann::json listed = Json({"-g"}); const auto &p : listed.at("ports"))
            if (p.at("wwpn") == wwpn) return p.at("instance").get<int>();
        ADD_FAILURE() << "no port " << wwpn;
        return -1;
    }
    void ReferenceFile(const std::string &content) {
        WriteFile(sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/tgcli.properties"), content);
    }
    // Runs the default host from a copy of its file with one text replaced.
    void HostWith(const std::string &from, const std::string &to) {
        std::string host = ReadFile(BuildPath("data/default_host.json"));
        const size_t at = host.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        host.replace(at, from.size(), to);
        const std::string path = sysroot_.path("/host.json");
        WriteFile(path, host);
        env_.push_back("VTSDM_HOST=" + path);
    }
    int Sim(std::vector<std::string> args) {
        args.insert(args.begin(), BuildPath("bin/vtsdm-sim"));
        const RunResult r = vttest::Run(args, env_);
        EXPECT_EQ(r.status, 0) << r.err;
        return r.status;
    }

    SysrootScope sysroot_;
    std::vector<std::string> env_;
};

// LoopRuns(runs) times: starts tarncli with the arguments of the run, kills it with
// SIGKILL after a varied delay (from at once to a little longer than a whole
// run takes), and calls check(run) on what it left.
inline void KillTarncliWhileWriting(int runs, const std::function<std::vector<std::string>(int)> &args,
                                    const std::function<void(int)> &check) {
    // A whole run, measured once, spreads the kills over every phase of it.
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> first = args(-1);
    first.insert(first.begin(), BuildPath("bin/tarncli"));
    ASSERT_EQ(Run(first).status, 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> delayUs(0, long(whole.count() * 5 / 4) + 1);
    const int devnull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    runs = LoopRuns(runs);
    for (int run = 0; run < runs && !::testing::Test::HasFatalFailure(); ++run) {
        std::vector<std::string> argv = args(run);
        argv.insert(argv.begin(), BuildPath("bin/tarncli"));
        ChildGuard tool = Spawn(argv, {}, devnull);
        std::this_thread::sleep_for(std::chrono::microseconds(delayUs(random)));
        tool.Kill();
        check(run);
    }
    ::close(devnull);
}

}  // namespace vttest
