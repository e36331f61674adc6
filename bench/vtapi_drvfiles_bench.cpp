// Costs of the driver parameter and alias files:
//   BM_ReadAdapterBindings  the records of one adapter out of a driver
//                           configuration file of three adapters with 255
//                           bound targets each (LUN masks in two blocks)
//   BM_WriteAdapterBindings the tokens of one such adapter
//   BM_RewriteOptionLine    replacing the driver's option line of a 4 KB
//                           module option file: scratch file, new file
//                           beside the old one, fsync, rename
//   BM_SetAdapterAlias      setting an alias in a global alias file of 2000
//                           aliases and copying it over the local one
// under a temporary VTAPI_SYSROOT.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../cli/alias.h"
#include "../drvfiles/drvfiles.h"
#include "oss/oss.h"

namespace {

class Root {
public:
    Root() {
        std::string tmpl = std::filesystem::temp_directory_path().string() + "/vtbench.XXXXXX";
        if (!mkdtemp(tmpl.data())) std::abort();
        root_ = tmpl;
        for (const char *d : {"/etc", "/tmp", "/opt"}) std::filesystem::create_directories(root_ + d);
        setenv("VTAPI_SYSROOT", root_.c_str(), 1);
    }
    ~Root() {
        std::error_code ec;
        std::filesystem::remove_all(root_, ec);
    }
    std::string path(const std::string &abs) const { return root_ + abs; }

private:
    std::string root_;
};

void Write(const std::string &path, const std::string &text) { std::ofstream(path, std::ios::binary) << text; }

VtlapiAdapterBindings Adapter(uint8_t serial) {
    VtlapiAdapterBindings a{};
    const uint8_t wwpn[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, serial};
    std::memcpy(a.AdapterWWPN, wwpn, 8);
    a.AdapterInstance = serial;
    a.TargetCount = 255;
    a.Targets = static_cast<VtlapiTargetBinding *>(std::calloc(a.TargetCount, sizeof(VtlapiTargetBinding)));
    for (uint32_t t = 0; t < a.TargetCount; ++t) {
        FoTargetData &d = a.Targets[t].Target;
        d.TargetNumber = uint8_t(t);
        const uint8_t nn[8] = {0x50, 0x0a, 0x09, 0x80, 0x00, serial, 0x00, uint8_t(t)};
        std::memcpy(d.WWNN, nn, 8);
        std::memcpy(d.WWPN, nn, 8);
        d.WWPN[3] = 0x81;
        d.PortId[0] = 0x0a;
        d.PortId[2] = uint8_t(t);
        for (uint32_t lun : {0u, 1u, 2u, 300u}) a.Targets[t].PreferredLuns[lun / 8] |= uint8_t(1u << (lun % 8));
    }
    return a;
}

std::string Tokens(const VtlapiAdapterBindings &a) {
    uint32_t size = 0;
    vtlapi_set_data_to_line(&a, VTLAPI_WRITE_LUN_MASKS, nullptr, &size);
    std::string line(size, '\0');
    vtlapi_set_data_to_line(&a, VTLAPI_WRITE_LUN_MASKS, line.data(), &size);
    line.resize(size - 1);
    return line;
}

void BM_ReadAdapterBindings(benchmark::State &state) {
    std::string text = "# bindings\n";
    std::vector<VtlapiAdapterBindings> adapters;
    for (uint8_t s = 0x10; s < 0x13; ++s) {
        adapters.push_back(Adapter(s));
        text += Tokens(adapters.back()) + "\n";
    }
    const uint8_t *wwpn = adapters[2].AdapterWWPN;
    for (auto _ : state) {
        VtlapiAdapterBindings read{};
        vtlapi_get_data_from_text(text.c_str(), wwpn, &read);
        benchmark::DoNotOptimize(read.TargetCount);
        vtlapi_free_bindings(&read);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    state.counters["file_bytes"] = double(text.size());
    for (auto &a : adapters) vtlapi_free_bindings(&a);
}
BENCHMARK(BM_ReadAdapterBindings);

void BM_WriteAdapterBindings(benchmark::State &state) {
    VtlapiAdapterBindings a = Adapter(0x10);
    for (auto _ : state) benchmark::DoNotOptimize(Tokens(a));
    vtlapi_free_bindings(&a);
}
BENCHMARK(BM_WriteAdapterBindings);

void BM_RewriteOptionLine(benchmark::State &state) {
    Root root;
    std::string text;
    for (int i = 0; text.size() < 4000; ++i) text += "alias scsi_hostadapter" + std::to_string(i) + " mod\n";
    Write(root.path("/etc/modprobe.conf"), text + "options vtfc ql=1\n");
    unsigned i = 0;
    for (auto _ : state)
        if (vtlapi_set_drv_param_optline("vtfc", ++i % 2 ? "options vtfc ql=2" : "options vtfc ql=3") != 0)
            state.SkipWithError("rewrite failed");
}
BENCHMARK(BM_RewriteOptionLine)->Unit(benchmark::kMicrosecond);

void BM_SetAdapterAlias(benchmark::State &state) {
    Root root;
    std::string text;
    for (int i = 0; i < 2000; ++i)
        text += "host.SERIAL" + std::to_string(i) + ".hba.alias=alias " + std::to_string(i) + "\n";
    Write(root.path("/opt/globalaliases.properties"), text);
    std::snprintf(g_GlobalAliasFileName, sizeof g_GlobalAliasFileName, "%s",
                  root.path("/opt/globalaliases.properties").c_str());
    std::snprintf(g_AliasFileName, sizeof g_AliasFileName, "%s", root.path("/opt/aliases.properties").c_str());
    SDMDevice port;
    std::memset(&port, 0, sizeof port);
    std::strcpy(port.DeviceNodeProperty.SerialNumber, "VTK24110A7");
    unsigned i = 0;
    for (auto _ : state)
        if (SetAdapterAlias(&port, ++i % 2 ? "rack 4" : "rack 5", 0) != 0) state.SkipWithError("alias not set");
}
BENCHMARK(BM_SetAdapterAlias)->Unit(benchmark::kMicrosecond);

}  // namespace
