// The fixture of the NVRAM configuration tests: a private system root, the
// library started on a simulated host, the ports of its tree and device
// list, the simulator's control tool and the raw NVRAM of a port.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "config/nvram_config.h"
#include "testutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"

namespace vttest {

// WWPNs of the default host's ports.
inline const char kKitePort0[] = "21:00:00:24:ff:7c:50:10";   // VT2912, instance 0, chip type 27
inline const char kKitePort1[] = "21:00:00:24:ff:7c:50:11";   // instance 1
inline const char kWrenPort[] = "21:00:00:0e:1e:6a:10:20";    // VT2516, instance 2, chip type 25
inline const char kIsp8GbPort[] = "21:00:00:1b:32:53:80:30";  // VT1602, instance 3, chip type 12
inline const char kFcoePort[] = "21:00:00:0e:1e:64:21:40";    // VT1812, instance 5
inline const char kKiteVport[] = "21:04:00:24:ff:7c:50:10";   // virtual port of instance 0

inline std::vector<uint8_t> Wwn(const std::string &text) {
    std::vector<uint8_t> w(8);
    unsigned b[8];
    EXPECT_EQ(
        sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x:%2x:%2x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]),
        8);
    for (int i = 0; i < 8; ++i) w[i] = uint8_t(b[i]);
    return w;
}

class ConfigTest : public ::testing::Test {
protected:
    // hostJson: a host description instead of the default host; hostFile: a
    // shipped host file under data/hosts; installDir: instead of the
    // library's own directory.
    void Start(const std::string &hostJson = "", const std::string &hostFile = "", const char *installDir = nullptr) {
        WriteFile(root_.path("/etc/os-release"), "NAME=\"Test\"\nID=testdistro\n");
        host_ = BuildPath("data/default_host.json");
        if (!hostJson.empty()) {
            host_ = root_.path("/host.json");
            WriteFile(host_, hostJson);
        } else if (!hostFile.empty()) {
            host_ = BuildPath("data/hosts/" + hostFile);
        }
        setenv("VTSDM_HOST", host_.c_str(), 1);
        ASSERT_EQ(VTAPI_Initialize(9, installDir), VTAPI_SUCCESS);
        started_ = true;
    }
    void Stop() {
        if (started_) VTAPI_Uninitialize();
        started_ = false;
    }
    void TearDown() override {
        Stop();
        unsetenv("VTSDM_HOST");
        unsetenv("VTSDM_BACKEND");
    }

    static ProtocolEntry *Entry(const std::string &wwpn) {
        const std::vector<uint8_t> w = Wwn(wwpn);
        for (AdapterEntry *a = gpAdapterList ? gpAdapterList->First : nullptr; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (memcmp(e->WWPN, w.data(), 8) == 0) return e;
        ADD_FAILURE() << "no tree entry " << wwpn;
        return nullptr;
    }
    // The port in the core's device list, as the FC_ functions hand it on.
    static SDMDevice *Device(const std::string &wwpn) {
        const std::vector<uint8_t> w = Wwn(wwpn);
        for (SDMDevice *d = GetDeviceList()->First; d; d = d->next)
            if (memcmp(d->DevicePortProperty.WWPN, w.data(), 8) == 0) return d;
        ADD_FAILURE() << "no device " << wwpn;
        return nullptr;
    }
    // The port's NVRAM as libvtsdm holds it now.
    static std::vector<uint8_t> Nvram(const SDMDevice *d, uint32_t area = 1) {
        std::vector<uint8_t> img(d->DeviceChipProperty.NvramSize);
        EXPECT_EQ(SDGetNVRam(d->DeviceHandle, 0, area, img.data(), uint32_t(img.size())), SDERR_NONE);
        return img;
    }
    static uint32_t Var(const SDMDevice *d, const std::vector<uint8_t> &img, uint32_t id) {
        return SDGetVariableValue(d->DeviceHandle, img.data(), id);
    }
    static VTAPI_HBAParams Params(const std::string &wwpn) {
        VTAPI_HBAParams p{};
        EXPECT_EQ(VTAPI_GetHBAParamsInfo(Entry(wwpn), &p), VTAPI_SUCCESS);
        return p;
    }
    // vtsdm-sim on the host in use; its exit status.
    int Sim(std::vector<std::string> args) {
        args.insert(args.begin(), BuildPath("bin/vtsdm-sim"));
        auto r = vttest::Run(args, {"VTSDM_HOST=" + host_});
        EXPECT_EQ(r.err, "");
        return r.status;
    }
    static std::string Error() { return vt::config::ConfigErrorText(); }
    std::vector<std::string> Log() { return Lines(ReadFile(root_.path("/var/tmp/vtapi.log"))); }
    bool Logged(const std::string &text) { return FindLine(Log(), text) >= 0; }

    SysrootScope root_;
    std::string host_;
    bool started_ = false;
};

}  // namespace vttest
