// The installed tree as a user of the library meets it: the build installed
// into a staging directory with `cmake --install --prefix`, the README's C
// example compiled against the installed headers with the flags pkg-config
// gives, and run on the default simulated host.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "testutil.h"

namespace {

using vttest::RunResult;

// The first ```c block of the README.
std::string ReadmeExample() {
    const std::string readme = vttest::ReadFile(vttest::SourcePath("README.md"));
    const std::string open = "```c\n";
    const size_t start = readme.find(open);
    if (start == std::string::npos) return {};
    const size_t end = readme.find("```", start + open.size());
    if (end == std::string::npos) return {};
    return readme.substr(start + open.size(), end - start - open.size());
}

std::vector<std::string> Words(const std::string &text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

TEST(Install, ReadmeExampleBuildsWithPkgConfigAndRuns) {
    vttest::SysrootScope root;
    vttest::TempDir stage;
    const std::string prefix = stage.file("prefix");
    RunResult r = vttest::Run({VT_CMAKE_COMMAND, "--install", VT_BUILD_DIR, "--prefix", prefix});
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    // pkg-config finds the installed files through the staged prefix, not
    // through the prefix the build was configured with.
    const std::string pcDir = prefix + "/lib64/pkgconfig";
    const std::vector<std::string> env = {"PKG_CONFIG_PATH=" + pcDir, "PKG_CONFIG_LIBDIR=" + pcDir};
    r = vttest::Run({VT_PKG_CONFIG, "--variable=libdir", "vtapifconly"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string libdir = Words(r.out).at(0);
    EXPECT_EQ(std::filesystem::weakly_canonical(libdir), std::filesystem::weakly_canonical(prefix + "/lib64"));
    r = vttest::Run({VT_PKG_CONFIG, "--variable=includedir", "vtsdm"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(std::filesystem::weakly_canonical(Words(r.out).at(0)),
              std::filesystem::weakly_canonical(prefix + "/include"));
    r = vttest::Run({VT_PKG_CONFIG, "--cflags", "--libs", "vtapifconly"}, env);
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> flags = Words(r.out);

    const std::string example = ReadmeExample();
    ASSERT_NE(example.find("int main"), std::string::npos) << "README.md has no complete C example";
    const std::string source = stage.file("example.c"), program = stage.file("example");
    vttest::WriteFile(source, example);
    std::vector<std::string> cc = {VT_C_COMPILER, "-std=c11", "-Wall", "-Wextra", "-Werror", source, "-o", program};
    cc.insert(cc.end(), flags.begin(), flags.end());
    cc.push_back("-Wl,-rpath," + libdir);
    for (const std::string &f : Words(VT_EXAMPLE_FLAGS)) cc.push_back(f);  // the sanitizer build's
    r = vttest::Run(cc);
    ASSERT_EQ(r.status, 0) << r.out << r.err;

    // The installed libvtsdm finds the default host under <prefix>/data.
    r = vttest::Run({program});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    const auto lines = vttest::Lines(r.out);
    EXPECT_EQ(lines.size(), 7u) << r.out;  // one line a port function, virtual port included
    EXPECT_NE(r.out.find("VTK24110A7 port 0: 4 targets\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("VTO21030D4 port 0: 1 targets\n"), std::string::npos) << r.out;
    EXPECT_TRUE(std::filesystem::exists(root.path("/var/tmp/vtapi.log")));
}

}  // namespace
