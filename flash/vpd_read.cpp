// The VPD of a listed port, read through libvtsdm and parsed: the table the
// reports show.
#include <algorithm>
#include <vector>

#include "core/core.h"
#include "flash/vpd.h"
#include "oss/oss.h"

namespace {

constexpr uint32_t kFirstRead = 1024;
constexpr uint32_t kMaxVpdSize = 65536;  // a larger size from the device is not believed

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t GetHBAVPDData2(const SDMDevice *device, VPDInfo *info) {
    if (!device || !info) return VTAPI_INVALID_ARGUMENT;
    *info = VPDInfo{};
    // VPD is PCI data of the physical function.
    if (isVirtualPortHBA(device)) return VTAPI_NOT_SUPPORTED_ON_VPORT;
    std::vector<uint8_t> buffer(kFirstRead);
    uint32_t size = uint32_t(buffer.size());
    uint32_t rc = SDGetVpd(device->DeviceHandle, buffer.data(), &size);
    if (rc == SDERR_BUFFER_TOO_SMALL && size > buffer.size() && size <= kMaxVpdSize) {
        buffer.resize(size);
        rc = SDGetVpd(device->DeviceHandle, buffer.data(), &size);
    }
    if (rc != SDERR_NONE) {
        LogDebug(__FILE__, __LINE__, "GetHBAVPDData2: reading the VPD of instance %u failed (0x%x)", device->Instance,
                 rc);
        return rc;
    }
    return vtfuGetVPDInfoFromBuf(buffer.data(), std::min<uint32_t>(size, uint32_t(buffer.size())), info);
}

}  // extern "C"
