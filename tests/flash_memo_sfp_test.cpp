// The flash memo block (what the last image update wrote, recorded with it)
// and the firmware update of a port's SFP module, through the exported API
// against the default simulated host: statuses, bad arguments, what a new
// process sees, and failed writes that leave the old contents whole.
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "flash/flash_memo.h"
#include "flash_testutil.h"
#include "sfp_image.h"
#include "vtsdm.h"

using namespace flashtest;
namespace sfp = vtsdm::sfp;

namespace {

constexpr const char *kKite = "VTK24110A7";
constexpr const char *kOrla = "VTO21030D4";  // a converged card: its NIC owns the transceiver

class FlashMemoSfp : public ::testing::Test {
protected:
    vttest::SysrootScope root_;
    CaptureScope capture_;

    void SetUp() override {
        vttest::WriteFile(root_.path("/etc/os-release"), "NAME=\"Test\"\nID=testdistro\n");
        ASSERT_EQ(VTAPI_Initialize(9, nullptr), VTAPI_SUCCESS);
        started_ = true;
    }
    void TearDown() override {
        if (started_) VTAPI_Uninitialize();
    }
    // The card's index-th physical port function.
    static ProtocolEntry *Port(const char *serial, int index = 0) {
        AdapterEntry *a = CardBySerial(serial);
        for (PhyPortEntry *p = a ? a->PhyPorts.First : nullptr; p; p = p->next)
            for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                if (e->Device.DeviceNodeProperty.VPortId == 0 && index-- == 0) return e;
        return nullptr;
    }
    // The first virtual port of the host.
    static ProtocolEntry *VirtualPort() {
        for (AdapterEntry *a = gpAdapterList->First; a; a = a->next)
            for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
                for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                    if (e->Device.DeviceNodeProperty.VPortId != 0) return e;
        return nullptr;
    }
    std::string Write(const std::string &name, const Bytes &b) {
        const std::string path = root_.path("/" + name);
        vttest::WriteFile(path, std::string(b.begin(), b.end()));
        return path;
    }
    static void FailNextFlashWrite(const char *serial) {
        const vttest::RunResult r = vttest::Run({vttest::BuildPath("bin/vtsdm-sim"), "flash",
                                                 std::to_string(Port(serial)->Device.Instance), "fault", "write", "1"});
        ASSERT_EQ(r.status, 0) << r.err;
    }
    static std::string Memo(const ProtocolEntry *port, uint32_t *status = nullptr) {
        char text[512] = {};
        uint32_t size = sizeof text;
        const uint32_t rc = VTAPI_GetAdapterFlashMemoBlock(port, text, &size);
        if (status) *status = rc;
        return rc == VTAPI_SUCCESS ? std::string(text) : "status " + std::to_string(rc);
    }
    static std::string Firmware(const char *serial) {
        char text[48] = {};
        const uint32_t rc = VTAPI_GetFlashComponentVersion(CardBySerial(serial), 0x01, text, sizeof text);
        return rc == VTAPI_SUCCESS ? text : "status " + std::to_string(rc);
    }

    // What a new process reads through libvtsdm from the state the last
    // writer left: the SFP firmware version of an instance ("a.b.c") and the
    // memo block region's first bytes.
    static std::string InChild(uint32_t instance, bool sfpInfo) {
        int fds[2];
        if (pipe(fds) != 0) return "<pipe>";
        const pid_t pid = vttest::ForkChild();
        if (pid == 0) {
            close(fds[0]);
            uint32_t handle = 0;
            std::string out = "<open failed>";
            if (SDOpenDevice(instance, &handle) == SDERR_NONE) {
                if (sfpInfo) {
                    SDSfpFirmwareInfo info{};
                    const uint32_t rc = SDGetSfpFirmwareInfo(handle, &info);
                    out = rc != SDERR_NONE
                              ? "error " + std::to_string(rc)
                              : std::string(info.Vendor) + " " +
                                    sfp::SfpVersionText({info.Version[0], info.Version[1], info.Version[2]});
                } else {
                    uint8_t block[256] = {};
                    SDGetOptionRomEx(handle, block, sizeof block, VTFU_REGION_FLASH_MEMO, 0);
                    const vtflash::Memo m = vtflash::ParseMemoBlock(block, sizeof block);
                    out = m.state == vtflash::MemoState::kText ? m.text : "<no memo>";
                }
            }
            const ssize_t n = write(fds[1], out.data(), out.size());
            _exit(n == ssize_t(out.size()) ? 0 : 1);
        }
        close(fds[1]);
        vttest::ChildGuard child(pid);
        std::string got;
        char buf[256];
        for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) got.append(buf, size_t(n));
        close(fds[0]);
        const int st = child.Wait();
        EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
        return got;
    }

private:
    bool started_ = false;
};

// The Kite sample image with another firmware version.
Bytes KiteImage(uint8_t minor) {
    img::MultiImageRecipe recipe = img::SampleImage(img::ImageFamily::kKite, kKiteCard);
    img::Component &fw = recipe.components.at(img::ComponentIndex(recipe, 0x01));
    fw.version = {9, minor, 5};
    fw.payload = img::BuildRiscFirmware(fw.version, 32, fw.payload.size());
    return img::BuildMultiImage(recipe);
}

}  // namespace

TEST(FlashMemoFormat, ReadsOnlyWellFormedBlocks) {
    const Bytes block = vtflash::BuildMemoBlock("file=a.bin\n");
    vtflash::Memo m = vtflash::ParseMemoBlock(block.data(), block.size());
    EXPECT_EQ(m.state, vtflash::MemoState::kText);
    EXPECT_EQ(m.text, "file=a.bin\n");
    const Bytes erased(64, 0xFF);
    EXPECT_EQ(vtflash::ParseMemoBlock(erased.data(), erased.size()).state, vtflash::MemoState::kEmpty);
    // A changed text byte, a length past the block, another signature.
    for (auto [at, value] : {std::pair<size_t, uint8_t>{13, 'X'}, {6, 0xF0}, {0, 'X'}}) {
        Bytes b = block;
        b[at] = value;
        EXPECT_EQ(vtflash::ParseMemoBlock(b.data(), b.size()).state, vtflash::MemoState::kDamaged) << at;
    }
    EXPECT_EQ(vtflash::ParseMemoBlock(block.data(), block.size() - 1).state, vtflash::MemoState::kDamaged);
    EXPECT_EQ(vtflash::UpdateMemoText("/tmp/x/kite.bin", "03.04.05", 86400),
              "file=kite.bin\nimage=03.04.05\nwritten=1970-01-02 00:00:00 UTC\n");
    EXPECT_EQ(vtflash::UpdateMemoText("boot.bin", "", 0), "file=boot.bin\nwritten=1970-01-01 00:00:00 UTC\n");
}

TEST_F(FlashMemoSfp, MemoBlockRecordsEachUpdate) {
    const ProtocolEntry *kite = Port(kKite);
    ASSERT_NE(kite, nullptr);
    // Arguments and ports that have no memo of their own.
    uint32_t size = 0;
    EXPECT_EQ(VTAPI_GetAdapterFlashMemoBlock(kite, nullptr, nullptr), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_GetAdapterFlashMemoBlock(nullptr, nullptr, &size), VTAPI_INVALID_ARGUMENT);
    ASSERT_NE(VirtualPort(), nullptr);
    EXPECT_EQ(VTAPI_GetAdapterFlashMemoBlock(VirtualPort(), nullptr, &size), VTAPI_NOT_SUPPORTED_ON_VPORT);
    ProtocolEntry stranger = *kite;
    stranger.WWPN[7] ^= 0x5A;
    EXPECT_EQ(VTAPI_GetAdapterFlashMemoBlock(&stranger, nullptr, &size), VTAPI_PORT_NOT_FOUND);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(&stranger, "/"), VTAPI_OPTION_ROM_UPDATE_FAILED);

    // A card never updated has an erased block: an empty memo.
    ASSERT_EQ(VTAPI_GetAdapterFlashMemoBlock(kite, nullptr, &size), VTAPI_SUCCESS);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(Memo(kite), "");

    ASSERT_EQ(
        VTAPI_doOptionROMUpdate(const_cast<ProtocolEntry *>(kite), Write("kite-20.bin", KiteImage(20)).c_str(), 0),
        VTAPI_REBOOT_REQUIRED);
    const std::string memo = Memo(kite);
    EXPECT_EQ(memo.rfind("file=kite-20.bin\nimage=03.04.05\nwritten=20", 0), 0u) << memo;
    EXPECT_EQ(memo.back(), '\n');
    // Both ports of the card share its flash; a new process reads the same.
    EXPECT_EQ(Memo(Port(kKite, 1)), memo);
    EXPECT_EQ(InChild(kite->Device.Instance, false), memo);

    // The size query, and a buffer one byte short: refused, left alone.
    ASSERT_EQ(VTAPI_GetAdapterFlashMemoBlock(kite, nullptr, &size), VTAPI_SUCCESS);
    EXPECT_EQ(size, memo.size() + 1);
    std::string small(memo.size(), '#');
    uint32_t smallSize = uint32_t(small.size());
    EXPECT_EQ(VTAPI_GetAdapterFlashMemoBlock(kite, small.data(), &smallSize), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(smallSize, memo.size() + 1);
    EXPECT_EQ(small, std::string(memo.size(), '#'));

    // A write the flash fails leaves the image and the memo of the first
    // update, all of it.
    FailNextFlashWrite(kKite);
    EXPECT_EQ(
        VTAPI_doOptionROMUpdate(const_cast<ProtocolEntry *>(kite), Write("kite-30.bin", KiteImage(30)).c_str(), 0),
        uint32_t(SDERR_FLASH_WRITE_FAILED));
    EXPECT_EQ(Memo(kite), memo);
    EXPECT_EQ(Firmware(kKite), "9.20.05");

    // A damaged block is reported, not handed out.
    uint8_t junk[16] = {'V', 'T', 'M', 'B', 1, 0, 200, 0};
    ASSERT_EQ(SDUpdateOptionRomEx2(kite->Device.DeviceHandle, junk, sizeof junk, VTFU_REGION_FLASH_MEMO, 0, 0),
              SDERR_NONE);
    uint32_t status = 0;
    Memo(kite, &status);
    EXPECT_EQ(status, VTAPI_FILE_CORRUPTED);
}

TEST_F(FlashMemoSfp, SfpFirmwareUpdate) {
    ProtocolEntry *kite = Port(kKite);
    ASSERT_NE(kite, nullptr);
    const uint32_t instance = kite->Device.Instance;
    const uint32_t otherPort = Port(kKite, 1)->Device.Instance;
    EXPECT_EQ(InChild(instance, true), "VNTR OPTICS 1.0.0");

    const Bytes code(3000, 0x5A);
    const std::string good = Write("sfp-2.bin", sfp::BuildSfpImage("VNTR OPTICS", {2, 1, 7}, code));
    Bytes damaged = sfp::BuildSfpImage("VNTR OPTICS", {2, 1, 7}, code);
    damaged[100] ^= 1;
    Bytes truncated = sfp::BuildSfpImage("VNTR OPTICS", {2, 1, 7}, code);
    truncated.pop_back();

    // Arguments, the file-update frame, and ports or files the module refuses.
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(nullptr, good.c_str()), VTAPI_INVALID_ARGUMENT);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, root_.path("/none.bin").c_str()), VTAPI_FILE_NOT_FOUND);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(VirtualPort(), good.c_str()), VTAPI_NOT_SUPPORTED_ON_VPORT);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(Port(kOrla), good.c_str()), VTAPI_OPTION_NOT_SUPPORTED);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, Write("d.bin", damaged).c_str()), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, Write("t.bin", truncated).c_str()), VTAPI_FILE_CORRUPTED);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, Write("e.bin", {}).c_str()), VTAPI_FILE_CORRUPTED);
    const std::string foreign = Write("f.bin", sfp::BuildSfpImage("OTHER", {2, 1, 7}, code));
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, foreign.c_str()), VTAPI_OPTION_NOT_SUPPORTED);
    // A failing write keeps the old firmware.
    FailNextFlashWrite(kKite);
    EXPECT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, good.c_str()), VTAPI_OPTION_ROM_UPDATE_FAILED);
    EXPECT_EQ(InChild(instance, true), "VNTR OPTICS 1.0.0");

    ASSERT_EQ(VTAPI_SfpModuleFirmwareUpdate(kite, good.c_str()), VTAPI_SUCCESS);
    EXPECT_EQ(InChild(instance, true), "VNTR OPTICS 2.1.7");
    // Each port has its own module, and the card's flash is not touched.
    EXPECT_EQ(InChild(otherPort, true), "VNTR OPTICS 1.0.0");
    EXPECT_EQ(Memo(kite), "");
    SDPortProperty prop{};
    ASSERT_EQ(SDGetHbaDevicePortProperty(kite->Device.DeviceHandle, &prop), SDERR_NONE);
    EXPECT_EQ(prop.StateFlags & SD_PORTFLAG_REBOOT_REQUIRED, 0u);
}

TEST(SfpImageFormat, ChecksTheWholeFile) {
    const Bytes code = {1, 2, 3, 4, 5};
    const Bytes image = sfp::BuildSfpImage("ACME", {3, 0, 1}, code);
    sfp::SfpImage out;
    ASSERT_EQ(sfp::ParseSfpImage(image.data(), image.size(), out), sfp::SfpCheck::kOk);
    EXPECT_EQ(out.vendor, "ACME");
    EXPECT_EQ(out.codeLength, 5u);
    EXPECT_EQ(out.codeSum, 15u);
    EXPECT_EQ(sfp::SfpVersionText(out.version), "3.0.1");
    struct Case {
        size_t at;
        uint8_t value;
        sfp::SfpCheck want;
    };
    for (const Case &c : {Case{0, 'X', sfp::SfpCheck::kBadSignature}, Case{4, 2, sfp::SfpCheck::kBadHeader},
                          Case{27, 1, sfp::SfpCheck::kBadHeader}, Case{28, 6, sfp::SfpCheck::kBadLength},
                          Case{32, 16, sfp::SfpCheck::kBadSum}, Case{40, 9, sfp::SfpCheck::kBadSum}}) {
        Bytes b = image;
        b[c.at] = c.value;
        EXPECT_EQ(sfp::ParseSfpImage(b.data(), b.size(), out), c.want) << c.at;
    }
    EXPECT_EQ(sfp::ParseSfpImage(image.data(), sfp::kSfpHeader - 1, out), sfp::SfpCheck::kTruncated);
    Bytes longer = image;
    longer.push_back(0);
    EXPECT_EQ(sfp::ParseSfpImage(longer.data(), longer.size(), out), sfp::SfpCheck::kBadLength);
    EXPECT_EQ(sfp::ParseSfpImage(image.data(), sfp::kSfpHeader, out), sfp::SfpCheck::kBadLength);
}
