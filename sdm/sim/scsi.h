// SCSI responses of simulated targets and LUNs, byte for byte.
#pragma once

#include <cstdint>
#include <vector>

#include "host.h"

namespace vtsdm::scsi {

// Fixed-format sense data (18 bytes used) for a check condition.
std::vector<uint8_t> Sense(uint8_t key, uint8_t asc, uint8_t ascq);

constexpr uint8_t kKeyNotReady = 0x02;
constexpr uint8_t kKeyHardwareError = 0x04;
constexpr uint8_t kKeyIllegalRequest = 0x05;
constexpr uint8_t kKeyUnitAttention = 0x06;

// REPORT LUNS parameter data: 8-byte header (list length in bytes,
// big-endian) and one 8-byte entry per LUN; flat-space LUNs carry 0x40 in
// the first byte's address-method bits.
std::vector<uint8_t> ReportLuns(const Target &t);

// Standard INQUIRY data (36 bytes).  A LUN that does not exist answers with
// peripheral qualifier 3, type 0x1F.
std::vector<uint8_t> StandardInquiry(const InquiryData &d, bool removable);
std::vector<uint8_t> NoLunInquiry();

// Vital product data pages 0x00, 0x80 (unit serial number) and 0x83 (device
// identification, NAA 6 designator derived from the target and LUN).
bool VpdPage(uint8_t page, const Target &t, const Lun &l, std::vector<uint8_t> &out);

// READ CAPACITY(10): last LBA (0xFFFFFFFF when it does not fit) and block
// length; READ CAPACITY(16): 64-bit last LBA and block length in 32 bytes.
std::vector<uint8_t> ReadCapacity10(const Lun &l);
std::vector<uint8_t> ReadCapacity16(const Lun &l);

}  // namespace vtsdm::scsi
