// Helpers of the flash tests: the lines the flash layer logs and prints
// (its TarnOSSLogMessage and scfxPrint are replaced here, which the library
// reaches through the dynamic symbol table), an adapter entry made from
// given facts, and multi-image files from the image builder.
//
// Defines the replacements: include it in exactly one source of a program.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "flash/flash_image.h"
#include "imagebuild.h"
#include "testutil.h"
#include "oss/oss.h"

namespace flashtest {

using Bytes = std::vector<uint8_t>;
namespace img = vtsdm::image;

inline std::vector<std::string> gLog;  // every line of TarnLogMessage and vtfuLogMessage
inline std::string gPrinted;           // everything handed to scfxPrint

inline void ClearCapture() {
    gLog.clear();
    gPrinted.clear();
}

// Index of the first logged line containing needle, or -1.
inline int LogIndex(const std::string &needle, int from = 0) {
    for (size_t i = size_t(from); i < gLog.size(); ++i)
        if (gLog[i].find(needle) != std::string::npos) return int(i);
    return -1;
}
inline bool Logged(const std::string &needle) { return LogIndex(needle) >= 0; }
inline bool Printed(const std::string &needle) { return gPrinted.find(needle) != std::string::npos; }

// Debug lines are written only while core debug messages are on.
class CaptureScope {
public:
    CaptureScope() {
        SetCoreEnableDebugMessage(1);
        ClearCapture();
    }
    ~CaptureScope() { SetCoreEnableDebugMessage(0); }
};

// An adapter entry with one port, as the tree holds it.
class FakeAdapter {
public:
    FakeAdapter(uint16_t deviceId, uint16_t ssvid, uint16_t ssdid, uint32_t chipRevision, uint32_t handle = 0) {
        entry_.SubVendorID = ssvid;
        entry_.SubSystemID = ssdid;
        entry_.ChipRevision = chipRevision;
        std::snprintf(entry_.AdapterModel, sizeof entry_.AdapterModel, "VT%04X", deviceId);
        proto_.Device.DeviceChipProperty.DeviceID = deviceId;
        proto_.Device.DeviceHandle = handle;
        proto_.Device.Instance = 3;
        port_.Protocols = {1, &proto_, &proto_};
        entry_.PhyPorts = {1, &port_, &port_};
    }
    FakeAdapter(const FakeAdapter &) = delete;
    FakeAdapter &operator=(const FakeAdapter &) = delete;
    const AdapterEntry *get() const { return &entry_; }

private:
    AdapterEntry entry_{};
    PhyPortEntry port_{};
    ProtocolEntry proto_{};
};

// Cards of the default simulated host and of the families the tests use.
// The card of the library's adapter tree with this serial number.
inline AdapterEntry *CardBySerial(const char *serial) {
    for (AdapterEntry *a = gpAdapterList ? gpAdapterList->First : nullptr; a; a = a->next)
        if (std::string(a->SerialNumber) == serial) return a;
    return nullptr;
}

// The first port of that card.
inline ProtocolEntry *PortBySerial(const char *serial) {
    AdapterEntry *a = CardBySerial(serial);
    return a && a->PhyPorts.First ? a->PhyPorts.First->Protocols.First : nullptr;
}

// A test over the library, initialized on a host file (the default host
// when none is given) in a private system root.
class LibraryTest : public ::testing::Test {
protected:
    explicit LibraryTest(std::string hostFile = "") : hostFile_(std::move(hostFile)) {}
    void SetUp() override {
        if (!hostFile_.empty()) setenv("VTSDM_HOST", hostFile_.c_str(), 1);
        vttest::WriteFile(root_.path("/etc/os-release"), "NAME=\"Test\"\nID=testdistro\n");
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        started_ = true;
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
        if (!hostFile_.empty()) unsetenv("VTSDM_HOST");
    }
    static AdapterEntry *Card(const char *serial) { return CardBySerial(serial); }
    static ProtocolEntry *Port(const char *serial) { return PortBySerial(serial); }
    // Writes the bytes to a file of the system root; its path.
    std::string Write(const std::string &name, const Bytes &b) {
        const std::string path = root_.path("/" + name);
        vttest::WriteFile(path, std::string(b.begin(), b.end()));
        return path;
    }

    vttest::SysrootScope root_;
    CaptureScope capture_;
    std::string hostFile_;

private:
    bool started_ = false;
};

inline constexpr img::CardEntry kKiteCard{0x1077, 0x7C50, 0x1077, 0x0C60};
inline constexpr img::CardEntry kWrenCard{0x1077, 0x6A10, 0x1077, 0x0A16};
inline constexpr img::CardEntry kTernCard{0x1077, 0x6311, 0x1077, 0x0320};
inline constexpr img::CardEntry kOrlaCard{0x1077, 0x6421, 0x1077, 0x0312};
inline constexpr img::CardEntry kToveCard{0x1077, 0x7180, 0x1077, 0x0330};

inline Bytes Sample(img::ImageFamily family, const img::CardEntry &card) {
    return img::BuildMultiImage(img::SampleImage(family, card));
}

inline uint32_t Size(const Bytes &b) { return uint32_t(b.size()); }

}  // namespace flashtest

extern "C" uint32_t TarnOSSLogMessage(int32_t, const char *text) {
    flashtest::gLog.emplace_back(text != nullptr ? text : "");
    return 1;
}

extern "C" void scfxPrint(const char *text) {
    if (text != nullptr) flashtest::gPrinted += text;
}
