// The exported surface of libvtapifconly, read from the dynamic symbol table
// of the built library: every listed VTAPI_ function and every FC_ function
// of the public header is a defined, default-visibility function symbol, and
// no VTAPI_ symbol is exported beyond the list.
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
        if (sh.sh_offset + sh.sh_size > image.size() || strtab.sh_offset + strtab.sh_size > image.size())
            return out;
        for (size_t k = 0; k < sh.sh_size / sizeof(Elf64_Sym); ++k) {
            Elf64_Sym sym;
            memcpy(&sym, base + sh.sh_offset + k * sizeof sym, sizeof sym);
            if (sym.st_shndx == SHN_UNDEF || sym.st_name >= strtab.sh_size) continue;
            const char *name = base + strtab.sh_offset + sym.st_name;
            out[name] = {ELF64_ST_TYPE(sym.st_info), ELF64_ST_BIND(sym.st_info), ELF64_ST_VISIBILITY(sym.st_other)};
        }
    }
    return out;
}

std::set<std::string> ListedNames() {
    std::set<std::string> names;
    std::istringstream in(vttest::ReadFile(vttest::SourcePath("tests/data/vtapi_exports.txt")));
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) names.insert(line);
    return names;
}

std::string Check(const std::map<std::string, Symbol> &symbols, const std::string &name) {
    auto it = symbols.find(name);
    if (it == symbols.end()) return name + " is not exported";
    if (it->second.type != STT_FUNC) return name + " is not a function";
    if (it->second.binding != STB_GLOBAL && it->second.binding != STB_WEAK) return name + " is not global";
    if (it->second.visibility != STV_DEFAULT) return name + " has no default visibility";
    return "";
}

TEST(Exports, EveryListedFunctionIsExportedAndNoOther) {
    const auto symbols = DynamicSymbols(vttest::BuildPath("lib64/libvtapifconly.so"));
    ASSERT_GT(symbols.size(), 500u) << "could not read the dynamic symbols";
    const auto listed = ListedNames();
    ASSERT_EQ(listed.size(), 126u);
    for (const std::string &name : listed) {
        const std::string problem = Check(symbols, name);
        EXPECT_EQ(problem, "");
    }
    std::string extras;
    for (const auto &[name, symbol] : symbols)
        if (name.rfind("VTAPI_", 0) == 0 && !listed.count(name)) extras += " " + name;
    EXPECT_EQ(extras, "") << "exported but not listed:" << extras;
}

// The FC_ functions behind the frames are exported too, so a program can
// replace them.
TEST(Exports, EveryDeclaredFcFunctionIsExported) {
    const auto symbols = DynamicSymbols(vttest::BuildPath("lib64/libvtapifconly.so"));
    const std::string header = vttest::ReadFile(vttest::SourcePath("include/vtapi_api.h"));
    std::regex declaration(R"(VTAPI_EXPORT uint32_t (FC_\w+)\()");
    int count = 0;
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration); it != std::sregex_iterator();
         ++it, ++count)
        EXPECT_EQ(Check(symbols, (*it)[1].str()), "");
    EXPECT_EQ(count, 107);
}

}  // namespace
