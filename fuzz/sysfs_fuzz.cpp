// libFuzzer target: the text forms of sysfs attributes and the PCI VPD the
// Linux backend of libvtsdm reads.  The first byte picks the parser; every
// parser must take any bytes without crashing.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "linux/nvme_fc.h"
#include "linux/pci_vpd.h"
#include "linux/sysfs.h"

using namespace vtsdm::linuxfc;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);
    switch (data[0] % 8) {
    case 0:
        (void)ParseHex(text);
        (void)ParsePortId(text);
        (void)ParseCounter(text);
        (void)ParseDecimal(text);
        break;
    case 1:
        (void)ParseSpeedGbps(text);
        (void)ParseSpeedList(text);
        (void)ParseHostPortState(text);
        (void)RemotePortLoggedIn(text);
        (void)ParseRoles(text);
        break;
    case 2:
        (void)ParseScsiName(text);
        (void)ParseHostName(text);
        (void)ParsePortName("rport-", text);
        (void)ParsePciAddress(text);
        break;
    case 3: (void)ParseWwnPair(text); break;
    case 4: {
        const std::vector<uint8_t> vpd(data + 1, data + size);
        const size_t n = VpdLength(vpd);
        if (n > vpd.size()) __builtin_trap();
        (void)ParseVpd(vpd);
        break;
    }
    case 5: (void)ParseNvmeFcAddress(text); break;
    case 6: (void)NamespaceDevice(text, "nvme1"); break;
    default: {
        uint64_t lun = 0;
        memcpy(&lun, data + 1, std::min<size_t>(size - 1, sizeof lun));
        (void)LunNumberOf(lun);
    }
        (void)Trim(text);
        break;
    }
    return 0;
}
