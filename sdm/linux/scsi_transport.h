// How the Linux backend sends SCSI commands: through a transport, so tests
// can answer the commands that real hosts send to SCSI generic devices.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vtsdm::linuxfc {

// Where a command goes: the generic device of one logical unit, and the
// names that identify that unit on the fabric.
struct ScsiAddress {
    std::string genericDevice;  // "/dev/sg3", mapped into the system root
    uint64_t initiator = 0;     // WWPN of the local port
    uint64_t target = 0;        // WWPN of the remote port
    uint64_t lun = 0;           // Linux LUN number
};

enum class DataDirection { None, In, Out };

// What came back from one command.
struct ScsiOutcome {
    int osError = 0;          // errno of the pass-through itself (0: it ran)
    uint8_t status = 0;       // SCSI status byte
    uint16_t hostStatus = 0;  // the initiator's DID_* code
    uint16_t driverStatus = 0;
    std::vector<uint8_t> sense;
};

class ScsiTransport {
public:
    virtual ~ScsiTransport() = default;
    virtual std::string name() const = 0;
    // Sends `cdb`.  Data-in arrives in `data` (resized by the caller to the
    // allocation length and cut to what arrived); data-out is taken from it.
    virtual ScsiOutcome execute(const ScsiAddress &address, const std::vector<uint8_t> &cdb, DataDirection direction,
                                std::vector<uint8_t> &data) = 0;
};

// SG_IO through libsgutils2's pass-through interface.
std::unique_ptr<ScsiTransport> MakeSgTransport();

// SCSI status bytes and initiator codes the outcome uses.
constexpr uint8_t kStatusGood = 0x00;
constexpr uint8_t kStatusCheckCondition = 0x02;
constexpr uint8_t kStatusConditionMet = 0x04;
constexpr uint8_t kStatusBusy = 0x08;
constexpr uint8_t kStatusReservationConflict = 0x18;
constexpr uint8_t kStatusTaskSetFull = 0x28;
constexpr uint16_t kDidOk = 0x00;
constexpr uint16_t kDidNoConnect = 0x01;
constexpr uint16_t kDidBusBusy = 0x02;
constexpr uint16_t kDidTimeOut = 0x03;
constexpr uint16_t kDidBadTarget = 0x04;
constexpr uint16_t kDidSoftError = 0x0B;
constexpr uint16_t kDidImmRetry = 0x0C;
constexpr uint16_t kDidRequeue = 0x0D;
constexpr uint16_t kDidTransportDisrupted = 0x0E;
constexpr uint16_t kDidTransportFailfast = 0x0F;

// The SD status of an outcome: SDERR_NONE, SDERR_SCSI_CHECK_CONDITION (the
// sense data says why), busy, removed, loop down, not found or I/O error.
uint32_t StatusOfOutcome(const ScsiOutcome &outcome);

// Sense key of fixed-format or descriptor-format sense data (0 when none).
uint8_t SenseKey(const std::vector<uint8_t> &sense);

}  // namespace vtsdm::linuxfc
