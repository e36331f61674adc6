// The simulated host: cards, ports, targets and LUNs as a host file
// describes them.  This model is immutable once loaded; what programs change
// lives in the persisted state (state.h).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fcnames.h"
#include "sim_model.h"
#include "vtsdm.h"

namespace vtsdm {

// A host file that cannot be used; the message names the file and the field.
class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct InquiryData {
    uint8_t qualifier = 0;
    uint8_t type = 0;  // SCSI peripheral device type
    std::string vendor = "VANTOR";
    std::string product = "SIM DISK";
    std::string revision = "0001";
};

struct Lun {
    uint16_t number = 0;
    bool flat = false;  // flat-space addressing in REPORT LUNS
    InquiryData inquiry;
    uint64_t blocks = 0;
    uint32_t blockSize = 512;
    bool passive = false;       // passive (standby) path
    bool inquiryFails = false;  // INQUIRY ends in a hardware-error check
    std::string osName;         // e.g. "/dev/sdb"; empty when none
};

// A run of LUNs generated from one template: numbers start..start+count-1.
struct LunRange {
    uint16_t start = 0;
    uint32_t count = 0;
    Lun model;
};

struct TargetFaults {
    uint32_t reportLunsBusy = 0;  // REPORT LUNS answers busy N times
    uint32_t reportLunsUnitAttention = 0;
    uint32_t reportLunsCheck = 0;  // check condition, illegal request
    uint32_t readCapacityUnitAttention = 0;
    bool removed = false;  // every command: device removed
    bool any() const {
        return reportLunsBusy || reportLunsUnitAttention || reportLunsCheck || readCapacityUnitAttention;
    }
};

struct Target {
    uint64_t wwnn = 0;
    uint64_t wwpn = 0;
    uint32_t portId = 0;
    uint16_t targetType = SD_TARGETTYPE_FCP;
    uint16_t portType = 1;  // N_Port
    bool loggedIn = true;
    bool tape = false;
    std::optional<InquiryData> inquiry;     // answer for LUN 0 when it has no LUN 0
    std::vector<Lun> luns;                  // explicit, in report order
    std::vector<uint32_t> lunOrder;         // indexes into luns, by LUN number
    std::shared_ptr<const LunRange> range;  // generated LUNs after the explicit ones
    SDLinkErrorStatus linkErrors{};
    TargetFaults faults;
    std::string faultKey;  // state key of the fault counters

    uint32_t lunCount() const { return uint32_t(luns.size()) + (range ? range->count : 0); }
    // The LUN with this number, materialised for generated ones.
    std::optional<Lun> findLun(uint16_t number) const;
};

struct VPortDef {
    uint64_t wwnn = 0;
    uint64_t wwpn = 0;
    uint16_t vportId = 0;
    SDQoS qos{};
    TrafficRates traffic;
};

struct DiagFaults {
    uint32_t crcErrors = 0;             // reported by every loopback run
    std::vector<DiagStep> script;       // loopback answers, one step per call
    uint32_t readBufferMiscompare = 0;  // READ BUFFER returns changed data N times
};

// The port's "nvram_control" block: NVRAM accesses that fail, and an image
// that starts with a wrong checksum.  vtsdm-sim changes them at run time.
struct NvramControl {
    uint32_t readFaults = 0;   // SDGetNVRam fails N times
    uint32_t writeFaults = 0;  // SDUpdateNVRam fails N times, NVRAM unchanged
    bool badChecksum = false;  // the initial image's checksum is off by one
};

struct Port {
    uint32_t card = 0;     // index of its card
    uint8_t function = 0;  // PCI function number
    uint8_t physPort = 0;  // port index on the card
    uint16_t interface = SD_INTERFACE_FC;
    uint64_t wwnn = 0;
    uint64_t wwpn = 0;
    uint32_t portId = 0;
    uint16_t portState = SD_PORTSTATE_ONLINE;
    uint16_t portSubState = SD_PORTSUBSTATE_NONE;
    uint32_t speedCode = SD_SPEED_8G;
    uint8_t supportedMask = 0;
    uint32_t stateFlags = 0;
    uint32_t maxFrameSize = 2048;
    uint64_t principalFabric = 0;
    uint64_t adjacentFabric = 0;
    uint64_t fabricName = 0;
    uint8_t enodeMac[6] = {};
    std::string deviceName;
    std::string firmware;                // running firmware version
    std::string optionRom;               // option-ROM version text
    std::map<uint32_t, uint32_t> nvram;  // initial NVRAM values by identifier
    std::vector<Target> targets;
    std::vector<VPortDef> vports;  // defined by the host file
    SDStatistics statistics{};
    uint32_t openUnavailable = 0;   // SDOpenDevice answers "retry" N times
    bool unsupported = false;       // SDOpenDevice always refused
    uint32_t vportCreateFails = 0;  // SDCreateVport fails N times
    DiagFaults diag;
    NvramControl nvramControl;
    TrafficRates traffic;
};

struct Versions {
    std::string bios, fcode, efi, firmware, multiboot;
};

// The flash part of a card as the host file may set it (sim_flash.cpp).
struct FlashDef {
    // Regions (type, capacity in bytes) that replace the family's layout;
    // the VPD, NVRAM, FC-NVMe boot and layout-table regions stay.
    std::optional<std::vector<SDOptionRomRegion>> layout;
    uint32_t readFaults = 0;   // region reads that fail before one succeeds
    uint32_t writeFaults = 0;  // likewise region writes
};

struct Card {
    std::string serial;
    std::string model;
    std::string description;
    std::string manufacturer = "Vantor Corporation";
    uint16_t vendorId = 0x1077;
    uint16_t deviceId = 0;
    uint16_t subVendorId = 0x1077;
    uint16_t subSystemId = 0;
    uint16_t chipRevision = 0;
    uint16_t pciBus = 0;
    uint8_t pciDevice = 0;
    uint32_t ispType = 12;
    uint32_t nvramSize = 512;
    std::string driverName = "vtfc";
    std::string driverVersion;
    uint32_t lunsPerTarget = 256;
    uint32_t maxVports = 0;
    uint32_t maxVportsWithQoS = 0;
    uint32_t driverCaps = 0;
    Versions versions;
    std::vector<std::pair<std::string, std::string>> vpd;  // read-only keywords
    std::vector<uint32_t> ports;                           // indexes into Host::ports
    FlashDef flash;
    // Chips after type 26: the flash region (334 or 377) whose FC-NVMe boot
    // parameters are active, as the card's active-region record says.
    uint32_t nvmeBootRegion = 334;
};

// What one host file may expand to, counted before anything is expanded:
// every port function (a virtual port sees the targets and LUNs of its
// physical port), every target each of them sees and every LUN behind those
// targets.  The 31 x 256 x 256 host is about 2.04 million; discovery in the
// library costs some hundreds of bytes per LUN.
constexpr uint64_t kMaxHostElements = 3000000;
// Targets one port may see; each is a full record here and in the library.
constexpr uint64_t kMaxTargetsPerPort = 4096;

struct Host {
    std::string path;         // file it was loaded from
    std::string contentHash;  // identifies the file's content
    std::vector<Card> cards;
    std::vector<Port> ports;  // physical port functions in file order
};

// Loads and checks a host file.  Throws HostError.
Host LoadHost(const std::string &path);
Host ParseHost(const std::string &text, const std::string &path);

}  // namespace vtsdm
