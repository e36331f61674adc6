// tarncli -ha and -pa: adapter and port aliases shown, set and deleted in
// every output form, aliases naming the HBA of any command, and the alias
// file never half-written when a rewriting tarncli is killed.
#include <cstdio>
#include <regex>
#include <set>
#include <string>

#include "tarncli_config_fixture.h"

namespace {

using nlohmann::json;
using vttest::RunResult;

constexpr const char kPort0[] = "21:00:00:24:ff:7c:50:10";
constexpr const char kPort1[] = "21:00:00:24:ff:7c:50:11";
constexpr const char kGlobalFile[] = "/etc/vtapi/globalaliases.properties";

class TarncliAliasTest : public vttest::TarncliConfigTest {
protected:
    // The installation directory exists in the system root, so the local
    // alias file is written there.
    void SetUp() override { ReferenceFile(""); }
    std::string GlobalFile() { return vttest::ReadFile(sysroot_.path(kGlobalFile)); }
};

TEST_F(TarncliAliasTest, PortAliasIsShownSetAndDeletedInEveryForm) {
    RunResult r = Tarn({"-pa", kPort0});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, std::string("HBA ") + kPort0 + " does not have a port alias.\n");

    r = Tarn({"-pa", kPort0, "set", "backup a<&>"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, std::string("HBA port alias ") + kPort0 + " is backup a<&>\n");
    // The key names the port by its WWNN and WWPN in upper case.
    EXPECT_TRUE(std::regex_search(
        GlobalFile(),
        std::regex(R"(adapter\.wwnn\.20-00-00-24-FF-7C-50-10\.wwpn\.21-00-00-24-FF-7C-50-10\.name=backup a<&>)")))
        << GlobalFile();

    const json doc = Json({"-pa", kPort0});
    ASSERT_EQ(doc.at("ports").size(), 1u);
    EXPECT_EQ(doc["ports"][0].at("alias"), "backup a<&>");
    EXPECT_EQ(doc["ports"][0].at("wwpn"), kPort0);
    EXPECT_EQ(doc["ports"][0].at("instance"), Instance(kPort0));

    // XML: the alias element unescaped inside the port block, in both formats.
    for (const char *form : {"-x", "-x2"}) {
        r = Tarn({form, "-pa", kPort0});
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.out.find("        <PortAlias>backup a<&></PortAlias>\n     </HBA> \n"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("    <Status> 0 </Status>"), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("AppXmlVersion") != std::string::npos, std::string(form) == "-x2");
    }

    // A single blank counts as no alias; delete writes exactly that.
    r = Tarn({"-pa", kPort0, "set", " "});
    EXPECT_EQ(r.out, std::string("HBA ") + kPort0 + " does not have a port alias.\n");
    ASSERT_EQ(Tarn({"-pa", kPort0, "set", "x"}).status, 0);
    r = Tarn({"-pa", kPort0, "delete"});
    EXPECT_EQ(r.out, std::string("HBA ") + kPort0 + " does not have a port alias.\n");
    EXPECT_NE(GlobalFile().find("-50-10.name= \n"), std::string::npos) << GlobalFile();
    EXPECT_TRUE(Json({"-pa", kPort0})["ports"][0].at("alias").is_null());
}

TEST_F(TarncliAliasTest, AdapterAliasBelongsToTheCard) {
    ASSERT_EQ(Tarn({"-ha", kPort1, "set", "cardA"}).status, 0);
    const RunResult r = Tarn({"-ha", kPort0});
    EXPECT_EQ(r.out, "HBA alias 20:00:00:24:ff:7c:50:10 is cardA\n");
    EXPECT_NE(GlobalFile().find("host.VTK24110A7.hba.alias=cardA"), std::string::npos) << GlobalFile();
    const json doc = Json({"-ha", kPort0});
    EXPECT_EQ(doc.at("ports").at(0).at("alias"), "cardA");
    EXPECT_EQ(doc.at("ports").at(0).at("serial"), "VTK24110A7");
    EXPECT_NE(Tarn({"-x2", "-ha", kPort0}).out.find("        <HBAAlias>cardA</HBAAlias>\n     </HBA> \n"),
              std::string::npos);
    // A change names one adapter; "all" names several.
    const RunResult many = Tarn({"-ha", "all", "set", "x"});
    EXPECT_EQ(many.status, 48);
    EXPECT_NE(many.err.find("Choose one HBA"), std::string::npos) << many.err;
}

TEST_F(TarncliAliasTest, AliasLengthLimits) {
    const std::string longest(256, 'a');
    ASSERT_EQ(Tarn({"-pa", kPort0, "set", longest}).status, 0);
    EXPECT_EQ(Json({"-pa", kPort0})["ports"][0].at("alias"), longest);
    for (const std::string &bad : {std::string(257, 'a'), std::string("a=b")}) {
        const RunResult r = Tarn({"-pa", kPort0, "set", bad});
        EXPECT_EQ(r.status, 48);
        EXPECT_NE(r.err.find("Error: Invalid alias"), std::string::npos) << r.err;
    }
    EXPECT_EQ(Json({"-pa", kPort0})["ports"][0].at("alias"), longest) << "a refused alias changes nothing";
    EXPECT_EQ(Tarn({"-pa", kPort0, "rename", "x"}).status, 48);
    // An argument the parser cannot hold is refused, never cut short.
    const RunResult huge = Tarn({"-pa", kPort0, "set", std::string(600, 'b')});
    EXPECT_EQ(huge.status, 48);
    EXPECT_NE(huge.err.find("Error: Argument 2 of option -pa is too long!"), std::string::npos) << huge.err;
}

TEST_F(TarncliAliasTest, AnAliasNamesTheHbaOfEveryCommand) {
    ASSERT_EQ(Tarn({"-pa", kPort1, "set", "backup"}).status, 0);
    ASSERT_EQ(Tarn({"-ha", kPort0, "set", "main-card"}).status, 0);

    json doc = Json({"-t", "backup"});
    ASSERT_EQ(doc.at("ports").size(), 1u);
    EXPECT_EQ(doc["ports"][0].at("wwpn"), kPort1);
    const RunResult text = Tarn({"-g", "backup"});
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find(kPort1), std::string::npos);
    EXPECT_EQ(text.out.find(kPort0), std::string::npos);

    // An adapter alias names every port of the card.
    std::set<std::string> wwpns;
    for (const nlohmann::json listed = Json({"-i", "main-card"}); const json &p : listed.at("ports"))
        wwpns.insert(p.at("wwpn"));
    EXPECT_EQ(wwpns, (std::set<std::string>{kPort0, kPort1, "21:04:00:24:ff:7c:50:10"}));
    // A port alias wins over an adapter alias of the same name.
    ASSERT_EQ(Tarn({"-pa", kPort0, "set", "main-card"}).status, 0);
    doc = Json({"-z", "main-card"});
    ASSERT_EQ(doc.at("ports").size(), 1u);
    EXPECT_EQ(doc["ports"][0].at("wwpn"), kPort0);

    // A name that is no alias keeps the message of an unknown HBA.
    const RunResult unknown = Tarn({"-t", "nosuch"});
    EXPECT_EQ(unknown.status, 48);
    EXPECT_NE(unknown.err.find("Error: Invalid HBA 'nosuch' for option -t!"), std::string::npos) << unknown.err;
    doc = Json({"-g", "nosuch"}, 48);
    EXPECT_EQ(doc.value("status", 0), 48);
}

// A tarncli killed at any point while it rewrites the alias file leaves the
// global and the local file each wholly old or wholly new.
TEST_F(TarncliAliasTest, KilledWhileRewritingLeavesAWholeFile) {
    ASSERT_EQ(Tarn({"-ha", kPort0, "set", "card-kept"}).status, 0);
    const std::string local = sysroot_.path("/opt/Vantor_Corporation/PallwickCLI/aliases.properties");
    std::set<std::string> written = {"start"};
    int finished = 0;
    ASSERT_EQ(Tarn({"-pa", kPort0, "set", "start"}).status, 0);
    const std::regex line(R"(^adapter\.wwnn\.[0-9A-F-]+\.wwpn\.21-00-00-24-FF-7C-50-10\.name=(.*)$)");
    auto check = [&](const std::string &path, int run) {
        const std::string text = vttest::ReadFile(path);
        ASSERT_FALSE(text.empty()) << "run " << run << ": " << path << " missing or empty";
        ASSERT_EQ(text.back(), '\n') << "run " << run << ": " << path << " cut short";
        ASSERT_NE(text.find("host.VTK24110A7.hba.alias=card-kept\n"), std::string::npos) << "run " << run;
        int found = 0;
        for (const std::string &l : vttest::Lines(text)) {
            std::smatch m;
            if (!std::regex_match(l, m, line)) continue;
            ++found;
            EXPECT_EQ(written.count(m[1].str()), 1u) << "run " << run << ": " << l;
            if (path == local && m[1].str() == "alias-" + std::to_string(run)) ++finished;
        }
        ASSERT_EQ(found, 1) << "run " << run << ":\n" << text;
    };
    vttest::KillTarncliWhileWriting(
        200,
        [&](int run) {
            const std::string alias = "alias-" + std::to_string(run);
            written.insert(alias);
            return std::vector<std::string>{"-pa", kPort0, "set", alias};
        },
        [&](int run) {
            check(sysroot_.path(kGlobalFile), run);
            check(local, run);
        });
    // How the kills fell (for the record; the delays vary with the machine).
    std::printf("%d of %d killed runs had written both files\n", finished, vttest::LoopRuns(200));
}

}  // namespace
