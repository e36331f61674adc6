// The table of commands: its words are unique and found in either
// spelling, and the man page describes exactly the commands the table
// runs, with the table's argument grammar.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "cli/commands.h"
#include "testutil.h"

namespace {

using vt::cli::CommandEntry;
using vt::cli::Commands;

// A line of the man page without its font changes, quotes and "\-".
std::string Plain(std::string line) {
    line = std::regex_replace(line, std::regex(R"(\\f[BIR])"), "");
    line = std::regex_replace(line, std::regex(R"(\\-)"), "-");
    line = std::regex_replace(line, std::regex(R"(")"), "");
    line = std::regex_replace(line, std::regex(R"(\s+,)"), ",");
    line = std::regex_replace(line, std::regex(R"(\s+)"), " ");
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

std::string Synopsis(const CommandEntry &c) {
    std::string text;
    for (const char *w : c.words) text += (text.empty() ? "-" : ", -") + std::string(w);
    return c.grammar[0] != '\0' ? text + " " + c.grammar : text;
}

bool Runs(const CommandEntry &c) { return c.walk != nullptr || c.id == TARN_CMD_HELP; }

TEST(CommandTable, WordsAreUniqueAndFoundInEitherSpelling) {
    std::set<std::string> words;
    std::set<int32_t> ids;
    for (const CommandEntry &c : Commands()) {
        EXPECT_TRUE(ids.insert(c.id).second) << "command id " << c.id << " twice";
        ASSERT_FALSE(c.words.empty());
        EXPECT_NE(c.summary, nullptr);
        EXPECT_EQ(c.walk != nullptr && c.help == nullptr, false) << c.words[0] << " runs but has no help";
        for (const char *w : c.words) {
            EXPECT_TRUE(words.insert(w).second) << "-" << w << " names two commands";
            std::string upper = std::string("/") + w;
            for (char &ch : upper) ch = char(std::toupper(static_cast<unsigned char>(ch)));
            EXPECT_EQ(vt::cli::FindCommand(std::string("-") + w), &c) << w;
            EXPECT_EQ(vt::cli::FindCommand(upper), &c) << upper;
        }
    }
    // Switches are not commands.
    for (const char *s : {"-x", "-x2", "-j", "-s", "-o", "-f", "-", "x"})
        EXPECT_EQ(vt::cli::FindCommand(s), nullptr) << s;
}

TEST(CommandTable, ManPageDescribesTheTable) {
    std::istringstream page(vttest::ReadFile(vttest::SourcePath("tarncli/tarncli.1")));
    std::vector<std::string> lines;
    for (std::string line; std::getline(page, line);) lines.push_back(line);

    // The tagged paragraphs of the COMMANDS section: ".TP" then the synopsis.
    std::set<std::string> described;
    std::string others;
    bool inCommands = false, inOthers = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].rfind(".SH", 0) == 0) {
            inCommands = lines[i] == ".SH COMMANDS";
            inOthers = false;
            continue;
        }
        if (!inCommands) continue;
        if (lines[i] == ".TP" && i + 1 < lines.size()) {
            std::string synopsis = lines[i + 1];
            synopsis = synopsis.substr(synopsis.find(' ') + 1);  // without .B/.BR
            described.insert(Plain(synopsis));
        } else if (lines[i] == ".PP") {
            inOthers = true;
        } else if (inOthers) {
            others += " " + lines[i];
        }
    }
    std::set<std::string> expected;
    for (const CommandEntry &c : Commands())
        if (Runs(c)) expected.insert(Synopsis(c));
    EXPECT_EQ(described, expected);

    // The paragraph after them names every other command of the table.
    std::set<std::string> named;
    std::smatch m;
    const std::string plain = Plain(others);
    for (auto it = plain.cbegin(); std::regex_search(it, plain.cend(), m, std::regex(R"((^|\s|\()-(\w+))"));
         it = m[0].second)
        named.insert(m[2].str());
    std::set<std::string> notRun;
    for (const CommandEntry &c : Commands())
        if (!Runs(c))
            for (const char *w : c.words) notRun.insert(w);
    EXPECT_EQ(named, notRun) << plain;
}

}  // namespace
