// The exported surface of libvtapifconly, read from the dynamic symbol table
// of the built library: every listed VTAPI_ function, every FC_ function of
// the FC layer and every other listed function and datum is a defined,
// default-visibility symbol, and nothing beyond the lists is exported.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "testutil.h"

namespace {

struct Symbol {
    unsigned type = 0;
    unsigned binding = 0;
    unsigned visibility = 0;
};

// Defined symbols of the ELF64 file's .dynsym, by name.
std::map<std::string, Symbol> DynamicSymbols(const std::string &path) {
    const std::string image = vttest::ReadFile(path);
    std::map<std::string, Symbol> out;
    if (image.size() < sizeof(Elf64_Ehdr)) return out;
    const char *base = image.data();
    Elf64_Ehdr eh;
    memcpy(&eh, base, sizeof eh);
    if (memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64) return out;
    auto section = [&](size_t i) {
        Elf64_Shdr sh;
        memcpy(&sh, base + eh.e_shoff + i * eh.e_shentsize, sizeof sh);
        return sh;
    };
    if (eh.e_shoff + size_t(eh.e_shnum) * eh.e_shentsize > image.size()) return out;
    for (size_t i = 0; i < eh.e_shnum; ++i) {
        const Elf64_Shdr sh = section(i);
        if (sh.sh_type != SHT_DYNSYM || sh.sh_link >= eh.e_shnum) continue;
        const Elf64_Shdr strtab = section(sh.sh_link);
        if (sh.sh_offset + sh.sh_size > image.size() || strtab.sh_offset + strtab.sh_size > image.size()) return out;
        for (size_t k = 0; k < sh.sh_size / sizeof(Elf64_Sym); ++k) {
            Elf64_Sym sym;
            memcpy(&sym, base + sh.sh_offset + k * sizeof sym, sizeof sym);
            if (sym.st_shndx == SHN_UNDEF || sym.st_name >= strtab.sh_size) continue;
            const char *name = base + strtab.sh_offset + sym.st_name;
            out[name] = {unsigned(ELF64_ST_TYPE(sym.st_info)), unsigned(ELF64_ST_BIND(sym.st_info)),
                         unsigned(ELF64_ST_VISIBILITY(sym.st_other))};
        }
    }
    return out;
}

// Names of a list file, one a line; "#" starts a comment line.
std::set<std::string> NamesIn(const std::string &file, const std::string &prefix = "") {
    std::set<std::string> names;
    std::istringstream in(vttest::ReadFile(vttest::SourcePath(file)));
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] != '#' && line.rfind(prefix, 0) == 0) names.insert(line.substr(prefix.size()));
    return names;
}

std::set<std::string> ListedNames() { return NamesIn("tests/data/vtapi_exports.txt"); }

// The FC_ functions the layer's header declares.
std::set<std::string> DeclaredFcFunctions() {
    const std::string header = vttest::ReadFile(vttest::SourcePath("fc/fc.h"));
    std::regex declaration(R"(VTAPI_EXPORT \w+ (FC_\w+)\()");
    std::set<std::string> names;
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration); it != std::sregex_iterator(); ++it)
        names.insert((*it)[1].str());
    return names;
}

std::string Check(const std::map<std::string, Symbol> &symbols, const std::string &name, unsigned type = STT_FUNC) {
    auto it = symbols.find(name);
    if (it == symbols.end()) return name + " is not exported";
    if (it->second.type != type) return name + (type == STT_FUNC ? " is not a function" : " is not data");
    if (it->second.binding != STB_GLOBAL && it->second.binding != STB_WEAK) return name + " is not global";
    if (it->second.visibility != STV_DEFAULT) return name + " has no default visibility";
    return "";
}

class Exports : public ::testing::Test {
protected:
    const std::map<std::string, Symbol> symbols_ = DynamicSymbols(vttest::BuildPath("lib64/libvtapifconly.so"));
};

TEST_F(Exports, EveryListedFunctionIsExported) {
    ASSERT_GT(symbols_.size(), 400u) << "could not read the dynamic symbols";
    const auto listed = ListedNames();
    ASSERT_EQ(listed.size(), 126u);
    for (const std::string &name : listed) EXPECT_EQ(Check(symbols_, name), "");
}

// The FC_ functions behind the frames are exported too, so a program can
// replace them.
TEST_F(Exports, EveryDeclaredFcFunctionIsExported) {
    const auto declared = DeclaredFcFunctions();
    EXPECT_GE(declared.size(), 107u);
    for (const std::string &name : declared) EXPECT_EQ(Check(symbols_, name), "");
}

// The dynamic symbol table holds the listed functions and data and nothing
// else: no C++ names, no helper of a layer.
TEST_F(Exports, NothingElseIsExported) {
    ASSERT_GT(symbols_.size(), 400u);
    std::set<std::string> expected = ListedNames();
    expected.merge(DeclaredFcFunctions());
    const auto data = NamesIn("tests/data/vtapi_named_exports.txt", "data ");
    for (const std::string &name : NamesIn("tests/data/vtapi_named_exports.txt"))
        if (name.rfind("data ", 0) != 0) {
            EXPECT_EQ(Check(symbols_, name), "");
            expected.insert(name);
        }
    for (const std::string &name : data) EXPECT_EQ(Check(symbols_, name, STT_OBJECT), "");
    expected.insert(data.begin(), data.end());
    std::string extras;
    // AddressSanitizer adds an "__odr_asan." twin for each exported datum.
    for (const auto &[name, symbol] : symbols_)
        if (!expected.count(name) && name.rfind("__odr_asan.", 0) != 0) extras += " " + name;
    EXPECT_EQ(extras, "") << "exported but not listed:" << extras;
}

}  // namespace
