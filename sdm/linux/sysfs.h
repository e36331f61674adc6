// Reading sysfs attributes and the text forms the kernel's FC and SCSI
// transport classes write into them.  The parsers take the text as read
// (with or without its line end) and never throw.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vtsdm::linuxfc {

// ------------------------------------------------------------ parsers

// An attribute's text without surrounding blanks and line ends.
std::string_view Trim(std::string_view text);
// "0x21000024ff7c5010" (WWNs), "0x0a0100" (port IDs), "0x1f" (counters).
std::optional<uint64_t> ParseHex(std::string_view text);
// A 24-bit port ID.
std::optional<uint32_t> ParsePortId(std::string_view text);
// A counter of fc_host/statistics; "0xffffffffffffffff" means the driver
// does not keep it and reads as 0.
uint64_t ParseCounter(std::string_view text);
// A decimal integer ("-1", "12", "2048 bytes": the number at the start).
std::optional<int64_t> ParseDecimal(std::string_view text);
// "16 Gbit" -> 16; "unknown", "Not Negotiated" and anything else -> none.
std::optional<uint32_t> ParseSpeedGbps(std::string_view text);
// "4 Gbit, 8 Gbit, 16 Gbit" -> {4, 8, 16}; unknown entries are left out.
std::vector<uint32_t> ParseSpeedList(std::string_view text);
// fc_host port_state -> SD_PORTSTATE_*.
uint16_t ParseHostPortState(std::string_view text);
// fc_remote_ports port_state: true when the remote port is logged in.
bool RemotePortLoggedIn(std::string_view text);

// Roles of a remote port ("FCP Target, NVMe Target").
enum Role : uint32_t {
    kRoleFcpTarget = 1u << 0,
    kRoleFcpInitiator = 1u << 1,
    kRoleNvmeTarget = 1u << 2,
    kRoleNvmeInitiator = 1u << 3,
    kRoleNvmeDiscovery = 1u << 4,
};
uint32_t ParseRoles(std::string_view text);

// "3:0:1:16384" -> host, channel, id, lun.
struct ScsiName {
    uint32_t host = 0, channel = 0, id = 0;
    uint64_t lun = 0;
};
std::optional<ScsiName> ParseScsiName(std::string_view text);
// "host12" -> 12; "rport-3:0-5" -> {3, 0, 5}; "vport-3:0-1" -> {3, 0, 1}.
std::optional<uint32_t> ParseHostName(std::string_view text);
struct PortName {
    uint32_t host = 0, channel = 0, number = 0;
};
std::optional<PortName> ParsePortName(std::string_view prefix, std::string_view text);
// "0000:3b:00.1" -> domain, bus, device, function.
struct PciAddress {
    uint32_t domain = 0;
    uint8_t bus = 0, device = 0, function = 0;
};
std::optional<PciAddress> ParsePciAddress(std::string_view text);
// "wwpn:wwnn" as vport_create and vport_delete take it (16 hex digits each,
// an optional "0x" before each).
std::optional<std::pair<uint64_t, uint64_t>> ParseWwnPair(std::string_view text);
std::string FormatWwnPair(uint64_t wwpn, uint64_t wwnn);
// Linux LUN number (the kernel's int form of the 8-byte LUN) -> the LUN
// number REPORT LUNS users see, address-method bits cleared.
uint16_t LunNumberOf(uint64_t linuxLun);

// ------------------------------------------------------------ files

// Contents of a file; none when it cannot be read.
std::optional<std::string> ReadFile(const std::string &path);
// A text attribute, trimmed; none when it cannot be read.
std::optional<std::string> ReadAttr(const std::string &path);
// Writes `text` to an existing attribute file (no creation, no truncation
// beyond what the kernel does); false on failure with errno set.
bool WriteAttr(const std::string &path, const std::string &text);
// Names in a directory, "." and ".." left out, sorted; empty when missing.
std::vector<std::string> ListDir(const std::string &path);
// The target of a symbolic link's last component ("../../bus/pci/drivers/x" -> "x").
std::string LinkBaseName(const std::string &path);
// The path with every link resolved, or "" when it does not exist.
std::string RealPath(const std::string &path);
bool IsDir(const std::string &path);

}  // namespace vtsdm::linuxfc
