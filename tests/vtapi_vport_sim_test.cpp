// What the library makes of the simulated host's virtual-port behaviour:
// instance numbers that stay when another vPort is deleted (in the tree
// after a refresh and in a new process), creation refused on a port whose
// link is down, injected creation failures, and the per-port limit.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "../config/vport.h"
#include "testutil.h"
#include "treeutil.h"
#include "vtapi.h"
#include "vtapi_api.h"
#include "core/core.h"

namespace {

using vttest::SysrootScope;

// Port 0 of the default host and its vPort from the host file.
const uint8_t kPort0[8] = {0x21, 0x00, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};
const uint8_t kVport1[8] = {0x21, 0x04, 0x00, 0x24, 0xff, 0x7c, 0x50, 0x10};

std::vector<uint8_t> OnPort0(uint8_t byte) {
    std::vector<uint8_t> w(kPort0, kPort0 + 8);
    w[1] = byte;
    return w;
}

class VPortSim : public ::testing::Test {
protected:
    void SetUp() override {
        vttest::WriteFile(root_.path("/etc/os-release"), "ID=testdistro\n");
        initVPortWWNArray();
        ASSERT_EQ(VTAPI_Initialize(0, nullptr), VTAPI_SUCCESS);
        started_ = true;
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
    }
    static ProtocolEntry *Port0() { return vttest::TreeEntry(kPort0); }
    static uint32_t Create(uint8_t byte) {
        uint16_t id = 0;
        return VTAPI_CreateVirtualPort(Port0(), nullptr, OnPort0(byte).data(), &id);
    }
    // Instance number of a tree entry, or -1 when the tree does not have it.
    static int64_t InstanceOf(uint8_t byte) {
        const ProtocolEntry *e = vttest::TreeEntry(OnPort0(byte).data());
        return e ? int64_t(e->Device.Instance) : -1;
    }
    static int Tool(const std::vector<std::string> &args) {
        std::vector<std::string> argv{vttest::BuildPath("bin/vtsdm-sim")};
        argv.insert(argv.end(), args.begin(), args.end());
        return vttest::Run(argv, {"VTSDM_BACKEND=sim"}).status;
    }
    // The message CreateVPortForHBA gives for the user's byte on port 0.
    static std::string CreateMessage(uint8_t byte, uint32_t expected) {
        char message[256] = "";
        uint8_t wwpn[8];
        uint16_t id = 0;
        EXPECT_EQ(CreateVPortForHBA(vttest::ListedPort(kPort0), byte, wwpn, &id, message, sizeof message), expected);
        return message;
    }

    SysrootScope root_;

private:
    bool started_ = false;
};

TEST_F(VPortSim, InstanceNumbersInTheTreeStayWhenAnotherVPortIsDeleted) {
    // The default host has six physical ports; its vPort is instance 6.
    ASSERT_EQ(vttest::TreeEntry(kVport1)->Device.Instance, 6u);
    for (uint8_t b : {0x30, 0x31, 0x32}) ASSERT_EQ(Create(b), VTAPI_SUCCESS) << int(b);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    EXPECT_EQ(InstanceOf(0x30), 7);
    EXPECT_EQ(InstanceOf(0x32), 9);

    ASSERT_EQ(VTAPI_DeleteVirtualPort(Port0(), OnPort0(0x30).data()), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    EXPECT_EQ(InstanceOf(0x30), -1);
    EXPECT_EQ(InstanceOf(0x31), 8);
    EXPECT_EQ(InstanceOf(0x32), 9);
    EXPECT_EQ(vttest::TreeEntry(kVport1)->Device.Instance, 6u);

    // The next vPort takes the free number, with the port's targets and LUNs.
    ASSERT_EQ(Create(0x33), VTAPI_SUCCESS);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    const ProtocolEntry *e = vttest::TreeEntry(OnPort0(0x33).data());
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->Device.Instance, 7u);
    EXPECT_EQ(e->Device.Targets.Count, Port0()->Device.Targets.Count);
    ASSERT_NE(e->Device.Targets.First, nullptr);
    EXPECT_EQ(e->Device.Targets.First->Luns.Count, 4u);

    // A new process sees the same numbers.
    const std::string walk = vttest::Run({vttest::BuildPath("tests/vtapi_walk"), "0"}).out;
    for (const char *line : {"wwpn 21:33:00:24:ff:7c:50:10 wwnn 21:33:00:24:ff:7c:50:10 instance 7 ",
                             "wwpn 21:31:00:24:ff:7c:50:10 wwnn 21:31:00:24:ff:7c:50:10 instance 8 ",
                             "wwpn 21:32:00:24:ff:7c:50:10 wwnn 21:32:00:24:ff:7c:50:10 instance 9 "})
        EXPECT_NE(walk.find(line), std::string::npos) << line << "\n" << walk;
    EXPECT_EQ(walk.find("21:30:00:24:ff:7c:50:10"), std::string::npos);
}

TEST_F(VPortSim, LinkDownAndInjectedFailures) {
    const unsigned hba = vttest::ListedPort(kPort0)->Instance;
    char text[256];

    ASSERT_EQ(Tool({"link", "0", "linkdown"}), 0);
    EXPECT_EQ(Create(0x30), SDERR_LOOP_DOWN);
    std::snprintf(text, sizeof text, "Unable to create vPort 21:40:00:24:ff:7c:50:10 of HBA %u (Loop down)!", hba);
    EXPECT_EQ(CreateMessage(0x40, SDERR_LOOP_DOWN), text);
    EXPECT_EQ(FindAdapterInAdapterListByWWN(OnPort0(0x30).data(), OnPort0(0x30).data()), nullptr);
    ASSERT_EQ(Tool({"link", "0", "online"}), 0);

    ASSERT_EQ(Tool({"vport-fault", "0", "2"}), 0);
    EXPECT_EQ(Create(0x30), SDERR_DEVICE_BUSY);
    std::snprintf(text, sizeof text, "Unable to create vPort 21:41:00:24:ff:7c:50:10 of HBA %u (Device busy)!", hba);
    EXPECT_EQ(CreateMessage(0x41, SDERR_DEVICE_BUSY), text);
    EXPECT_EQ(vttest::ListedPort(OnPort0(0x30).data()), nullptr) << "a failed creation lists nothing";
    ASSERT_EQ(Create(0x30), VTAPI_SUCCESS);
    EXPECT_NE(vttest::ListedPort(OnPort0(0x30).data()), nullptr);
}

TEST_F(VPortSim, OneMoreThanThePortCarriesIsRefused) {
    // Fill port 0 to 126 vPorts straight through libvtsdm (the host file's
    // vPort is one of them).
    uint32_t h = 0;
    ASSERT_EQ(SDOpenDevice(0, &h), SDERR_NONE);
    for (int b = 0x10; b < 0x10 + 125; ++b) {
        const auto w = OnPort0(uint8_t(b));
        uint16_t id = 0;
        ASSERT_EQ(SDCreateVport(h, w.data(), w.data(), &id), SDERR_NONE) << b;
    }
    SDCloseDevice(h);
    ASSERT_EQ(VTAPI_RefreshData(), VTAPI_SUCCESS);
    EXPECT_EQ(GetNumberOfAvailableVports(vttest::ListedPort(kPort0)), 0u);
    const unsigned hba = vttest::ListedPort(kPort0)->Instance;
    char text[256];
    std::snprintf(text, sizeof text,
                  "Unable to create vPort 21:f0:00:24:ff:7c:50:10 of HBA %u (Not supported on this adapter's driver)!",
                  hba);
    EXPECT_EQ(CreateMessage(0xF0, SDERR_NOT_SUPPORTED), text);
    // Discovery probes instances 0 to 30 only: the six physical ports and
    // the first 25 vPorts are in the tree.
    EXPECT_EQ(InstanceOf(0x10 + 23), 30);
    EXPECT_EQ(InstanceOf(0x10 + 24), -1);

    // Deleting one makes room for one more.
    ASSERT_EQ(VTAPI_DeleteVirtualPort(Port0(), OnPort0(0x10).data()), VTAPI_SUCCESS);
    EXPECT_EQ(Create(0xF0), VTAPI_SUCCESS);
    EXPECT_EQ(Create(0xF1), SDERR_NOT_SUPPORTED);
}

}  // namespace
