// NVMe over FC remote ports: their namespaces answer the SD SCSI calls as
// the kernel's SCSI-to-NVMe translation would, so a management program
// sees them as LUNs (namespace ID = LUN number).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend.h"

namespace vtsdm::linuxfc {

// "traddr=nn-0x...:pn-0x...,host_traddr=nn-0x...:pn-0x..." of an FC
// controller's "address" attribute.
struct NvmeFcAddress {
    uint64_t targetWwnn = 0, targetWwpn = 0, hostWwnn = 0, hostWwpn = 0;
};
std::optional<NvmeFcAddress> ParseNvmeFcAddress(std::string_view text);

// The block device of a namespace entry of controller `controller`:
// "nvme0n1" (no multipathing) is itself; "nvme2c0n1" (a path of subsystem 2
// through controller nvme0) is the head "nvme2n1"; anything else is none.
std::optional<std::string> NamespaceDevice(std::string_view entry, std::string_view controller);

struct NvmeNamespace {
    uint32_t nsid = 0;
    std::string name;      // block device name, "nvme0n1"
    uint64_t sectors = 0;  // 512-byte sectors
    uint32_t blockSize = 512;
};

struct NvmeController {
    std::string name;  // "nvme0"
    std::string model, firmware;
    std::vector<NvmeNamespace> namespaces;  // by namespace ID
};

// The controller that connects the local port `hostWwpn` to the remote port
// `targetWwpn` (sysfs: <sysfs>/class/nvme), or none.
std::optional<NvmeController> FindNvmeController(const std::string &sysfs, uint64_t hostWwpn, uint64_t targetWwpn);

// The SCSI answer for a request to a namespace: REPORT LUNS lists the
// namespaces, INQUIRY gives vendor "NVMe" and the controller's model and
// firmware, READ CAPACITY the namespace size.  Returns the SD status.
uint32_t AnswerNvme(const NvmeController &c, const ScsiRequest &rq, ScsiReply &reply);

}  // namespace vtsdm::linuxfc
