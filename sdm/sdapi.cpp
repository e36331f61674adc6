// The exported SD... calls: argument checks and copying in and out of the
// caller's buffers around the simulator.
#include <algorithm>
#include <cstring>
#include <exception>

#include "host.h"
#include "nvram_map.h"
#include "sim.h"
#include "vtsdm.h"

using vtsdm::AcquireSimulator;
using vtsdm::Simulator;

namespace {

// Runs `fn` against the simulator under its lock; a host file that cannot
// be loaded answers SDERR_IO_FAILED, and no exception crosses the C boundary.
template <typename Fn>
uint32_t WithSim(Fn fn) {
    try {
        auto access = AcquireSimulator();
        if (!access.sim) return SDERR_IO_FAILED;
        return fn(*access.sim);
    } catch (const std::bad_alloc &) {
        return SDERR_IO_FAILED;
    } catch (const std::exception &) {
        return SDERR_IO_FAILED;
    }
}

// Copies a reply into the caller's buffer; *size is in: room, out: bytes.
void CopyOut(const std::vector<uint8_t> &data, void *buf, uint32_t *size) {
    if (!size) return;
    uint32_t n = buf ? std::min<uint32_t>(*size, uint32_t(data.size())) : 0;
    if (n) memcpy(buf, data.data(), n);
    *size = n;
}

uint32_t Scsi(uint32_t h, const uint8_t *wwpn, uint16_t lun, Simulator::Cdb cdb, uint8_t evpd, uint8_t page,
              void *resp, uint32_t *respSize, void *sense, uint32_t *senseSize) {
    if (!wwpn || (cdb != Simulator::Cdb::TestUnitReady && (!resp || !respSize))) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> out, sns;
    uint32_t rc = WithSim([&](Simulator &s) { return s.scsi(h, wwpn, lun, cdb, evpd, page, {}, out, sns); });
    if (respSize) CopyOut(out, resp, respSize);
    if (senseSize) CopyOut(sns, sense, senseSize);
    return rc;
}

}  // namespace

extern "C" {

SDM_EXPORT uint32_t SDGetVersion(char *buffer, uint32_t size) {
    static const char version[] = "vtsdm 1.0.0 (simulated host)";
    if (!buffer || size == 0) return SDERR_INVALID_PARAMETER;
    if (size < sizeof version) return SDERR_BUFFER_TOO_SMALL;
    memcpy(buffer, version, sizeof version);
    return SDERR_NONE;
}

SDM_EXPORT const char *SDGetErrorString(uint32_t status) {
    switch (status) {
    case SDERR_NONE: return "Success";
    case SDERR_SCSI_CHECK_CONDITION: return "SCSI check condition";
    case SDERR_DIAG_PARAMETER: return "Invalid diagnostic parameter";
    case SDERR_INVALID_PARAMETER: return "Invalid parameter";
    case SDERR_NOT_SUPPORTED: return "Not supported";
    case SDERR_DEVICE_BUSY: return "Device busy";
    case SDERR_INVALID_HANDLE: return "Invalid device handle";
    case SDERR_NOT_FOUND: return "Object not found";
    case SDERR_IO_FAILED: return "Input/output error in the device-management library";
    case SDERR_NO_SUCH_DEVICE: return "No such device";
    case SDERR_DEVICE_REMOVED: return "Device removed";
    case SDERR_DEVICE_UNAVAILABLE: return "Device temporarily unavailable";
    case SDERR_BUFFER_TOO_SMALL: return "Buffer too small";
    case SDERR_LOOP_DOWN: return "Loop down";
    case SDERR_DATA_UNDERRUN: return "Data underrun";
    case SDERR_SHORT_READ: return "Short read";
    default: return "Unknown error";
    }
}

SDM_EXPORT uint32_t SDOpenDevice(uint32_t instance, uint32_t *handle) {
    return WithSim([&](Simulator &s) { return s.open(instance, handle); });
}

SDM_EXPORT uint32_t SDCloseDevice(uint32_t handle) {
    return WithSim([&](Simulator &s) { return s.close(handle); });
}

SDM_EXPORT uint32_t SDGetHbaDeviceChipProperty(uint32_t handle, SDChipProperty *prop) {
    return WithSim([&](Simulator &s) { return s.chipProperty(handle, prop); });
}

SDM_EXPORT uint32_t SDGetHbaDeviceDriverProperty(uint32_t handle, SDDriverProperty *prop) {
    return WithSim([&](Simulator &s) { return s.driverProperty(handle, prop); });
}

SDM_EXPORT uint32_t SDGetHbaDeviceNodeProperty(uint32_t handle, SDNodeProperty *prop) {
    return WithSim([&](Simulator &s) { return s.nodeProperty(handle, prop); });
}

SDM_EXPORT uint32_t SDGetHbaDevicePortProperty(uint32_t handle, SDPortProperty *prop) {
    return WithSim([&](Simulator &s) { return s.portProperty(handle, prop); });
}

SDM_EXPORT uint32_t SDGetDiscTargetProperties(uint32_t handle, SDDiscTargetProperty *buffer, uint32_t *count) {
    return WithSim([&](Simulator &s) { return s.discTargets(handle, buffer, count); });
}

SDM_EXPORT uint32_t SDSendScsiReportLunsCmdFC(uint32_t handle, const uint8_t *targetWWPN, void *resp,
                                              uint32_t *respSize, void *sense, uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, 0, Simulator::Cdb::ReportLuns, 0, 0, resp, respSize, sense, senseSize);
}

SDM_EXPORT uint32_t SDSendScsiInquiryCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, uint8_t evpd,
                                           uint8_t page, void *resp, uint32_t *respSize, void *sense,
                                           uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, lun, Simulator::Cdb::Inquiry, evpd, page, resp, respSize, sense, senseSize);
}

SDM_EXPORT uint32_t SDSendScsiReadCapacityCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                                void *resp, uint32_t *respSize, void *sense, uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, lun, Simulator::Cdb::ReadCapacity10, 0, 0, resp, respSize, sense, senseSize);
}

SDM_EXPORT uint32_t SDSendScsiReadCapacityLargeCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                                     void *resp, uint32_t *respSize, void *sense,
                                                     uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, lun, Simulator::Cdb::ReadCapacity16, 0, 0, resp, respSize, sense, senseSize);
}

SDM_EXPORT uint32_t SDSendScsiTestUnitReadyCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                                 void *sense, uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, lun, Simulator::Cdb::TestUnitReady, 0, 0, nullptr, nullptr, sense, senseSize);
}

SDM_EXPORT uint32_t SDSendScsiWriteBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                               const void *data, uint32_t size, void *sense, uint32_t *senseSize) {
    if (!targetWWPN || (!data && size)) return SDERR_INVALID_PARAMETER;
    if (size > 65536) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> in(static_cast<const uint8_t *>(data), static_cast<const uint8_t *>(data) + size);
    std::vector<uint8_t> out, sns;
    uint32_t rc = WithSim([&](Simulator &s) {
        return s.scsi(handle, targetWWPN, lun, Simulator::Cdb::WriteBuffer, 0, 0, in, out, sns);
    });
    if (senseSize) CopyOut(sns, sense, senseSize);
    return rc;
}

SDM_EXPORT uint32_t SDSendScsiReadBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *data,
                                              uint32_t *size, void *sense, uint32_t *senseSize) {
    return Scsi(handle, targetWWPN, lun, Simulator::Cdb::ReadBuffer, 0, 0, data, size, sense, senseSize);
}

SDM_EXPORT uint32_t SDGetLunOSDeviceName(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, char *name,
                                         uint32_t size) {
    if (!targetWWPN || !name || size == 0) return SDERR_INVALID_PARAMETER;
    std::string n;
    uint32_t rc = WithSim([&](Simulator &s) { return s.lunOsName(handle, targetWWPN, lun, n); });
    if (rc) return rc;
    if (n.size() + 1 > size) return SDERR_BUFFER_TOO_SMALL;
    memcpy(name, n.c_str(), n.size() + 1);
    return SDERR_NONE;
}

SDM_EXPORT uint32_t SDGetNVRam(uint32_t handle, uint32_t offset, uint32_t area, void *buffer, uint32_t size) {
    if (!buffer) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> img;
    uint32_t rc = WithSim([&](Simulator &s) { return s.nvramImage(handle, area, img); });
    if (rc) return rc;
    if (offset > img.size()) return SDERR_INVALID_PARAMETER;
    uint32_t n = std::min<uint32_t>(size, uint32_t(img.size()) - offset);
    memcpy(buffer, img.data() + offset, n);
    return n < size ? SDERR_SHORT_READ : SDERR_NONE;
}

SDM_EXPORT uint32_t SDUpdateNVRam(uint32_t handle, uint32_t offset, uint32_t area, const void *buffer,
                                  uint32_t size) {
    if (offset != 0) return SDERR_INVALID_PARAMETER;
    return WithSim([&](Simulator &s) {
        return s.updateNvram(handle, area, static_cast<const uint8_t *>(buffer), size);
    });
}

SDM_EXPORT uint32_t SDGetVariableValue(uint32_t handle, const void *nvram, uint32_t id) {
    if (!nvram) return 0xFFFFFFFFu;
    uint32_t size = 0;
    if (WithSim([&](Simulator &s) { return s.nvramSize(handle, size); }) != SDERR_NONE) return 0xFFFFFFFFu;
    uint32_t value = 0;
    if (!vtsdm::nvram::GetValue(static_cast<const uint8_t *>(nvram), size, id, value)) return 0xFFFFFFFFu;
    return value;
}

SDM_EXPORT uint32_t SDSetVariableValue(uint32_t handle, void *nvram, uint32_t id, uint32_t value) {
    if (!nvram) return SDERR_INVALID_PARAMETER;
    uint32_t size = 0;
    if (uint32_t rc = WithSim([&](Simulator &s) { return s.nvramSize(handle, size); })) return rc;
    if (!vtsdm::nvram::FindField(size, id)) return SDERR_NOT_FOUND;
    return vtsdm::nvram::SetValue(static_cast<uint8_t *>(nvram), size, id, value) ? SDERR_NONE
                                                                                 : SDERR_INVALID_PARAMETER;
}

SDM_EXPORT uint32_t SDGetVpd(uint32_t handle, void *buffer, uint32_t *size) {
    if (!size) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> vpd;
    uint32_t rc = WithSim([&](Simulator &s) { return s.vpd(handle, vpd); });
    if (rc) return rc;
    if (!buffer || *size < vpd.size()) {
        *size = uint32_t(vpd.size());
        return SDERR_BUFFER_TOO_SMALL;
    }
    memcpy(buffer, vpd.data(), vpd.size());
    *size = uint32_t(vpd.size());
    return SDERR_NONE;
}

SDM_EXPORT uint32_t SDGetOptionRomLayout(uint32_t handle, uint32_t reserved, SDOptionRomLayout *layout,
                                         uint32_t size) {
    (void)reserved;
    if (!layout || size < 8) return SDERR_INVALID_PARAMETER;
    std::vector<SDOptionRomRegion> regions;
    uint32_t flashSize = 0;
    uint32_t rc = WithSim([&](Simulator &s) { return s.flashLayout(handle, regions, flashSize); });
    if (rc) return rc;
    const uint32_t room = std::min<uint32_t>(layout->Count, (size - 8) / sizeof(SDOptionRomRegion));
    layout->FlashSize = flashSize;
    layout->Count = uint32_t(regions.size());
    if (room < regions.size()) return SDERR_BUFFER_TOO_SMALL;
    memcpy(layout->Region, regions.data(), regions.size() * sizeof(SDOptionRomRegion));
    return SDERR_NONE;
}

SDM_EXPORT uint32_t SDGetOptionRomEx(uint32_t handle, void *buffer, uint32_t size, uint32_t region,
                                     uint32_t offset) {
    if (!buffer) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> bytes;
    uint32_t rc = WithSim([&](Simulator &s) { return s.readRegion(handle, region, bytes); });
    if (rc) return rc;
    if (offset >= bytes.size()) return size ? SDERR_SHORT_READ : SDERR_NONE;
    uint32_t n = std::min<uint32_t>(size, uint32_t(bytes.size()) - offset);
    memcpy(buffer, bytes.data() + offset, n);
    return n < size ? SDERR_SHORT_READ : SDERR_NONE;
}

SDM_EXPORT uint32_t SDUpdateOptionRomEx2(uint32_t handle, const void *buffer, uint32_t size, uint32_t region,
                                         uint32_t offset, uint32_t flags) {
    (void)flags;
    return WithSim([&](Simulator &s) {
        return s.writeRegion(handle, region, offset, static_cast<const uint8_t *>(buffer), size);
    });
}

SDM_EXPORT uint32_t SDGetAen(uint32_t handle, void *buffer, uint32_t bufferSize, uint32_t *count) {
    if (!count || (!buffer && bufferSize)) return SDERR_INVALID_PARAMETER;
    std::vector<SDAenRecord> events;
    uint32_t rc = WithSim([&](Simulator &s) { return s.takeEvents(handle, events); });
    if (rc) return rc;
    const size_t fit = std::min<size_t>(events.size(), bufferSize / sizeof(SDAenRecord));
    if (fit) memcpy(buffer, events.data(), fit * sizeof(SDAenRecord));
    *count = uint32_t(events.size());
    return SDERR_NONE;
}

SDM_EXPORT uint32_t SDGetStatistics(uint32_t handle, SDStatistics *stats) {
    return WithSim([&](Simulator &s) { return s.statistics(handle, stats); });
}

SDM_EXPORT uint32_t SDResetStatistics(uint32_t handle) {
    return WithSim([&](Simulator &s) { return s.resetStatistics(handle); });
}

SDM_EXPORT uint32_t SDGetPortStatisticsFC(uint32_t handle, const uint8_t *targetWWPN, SDLinkErrorStatus *status) {
    return WithSim([&](Simulator &s) { return s.remoteLinkStatus(handle, targetWWPN, status); });
}

SDM_EXPORT uint32_t SDRunDiagLoopbackEx(uint32_t handle, uint32_t option, const void *tx, void *rx,
                                        uint32_t dataSize, uint32_t iterations, SDDiagResult *result) {
    return WithSim([&](Simulator &s) {
        return s.loopback(handle, option, tx, rx, dataSize, iterations, result, false);
    });
}

SDM_EXPORT uint32_t SDDiagIO(uint32_t handle, const void *tx, void *rx, uint32_t dataSize, uint32_t count,
                             uint32_t increment, SDDiagResult *result) {
    (void)increment;
    return WithSim([&](Simulator &s) {
        return s.loopback(handle, SD_LOOPBACK_EXTERNAL, tx, rx, dataSize, count, result, true);
    });
}

SDM_EXPORT uint32_t SDCreateVport(uint32_t handle, const uint8_t *wwnn, const uint8_t *wwpn, uint16_t *vportId) {
    if (!wwpn) return SDERR_INVALID_PARAMETER;
    const uint64_t n = wwnn ? vtsdm::WwnFromBytes(wwnn) : 0, p = vtsdm::WwnFromBytes(wwpn);
    return WithSim([&](Simulator &s) { return s.createVport(handle, n, p, vportId); });
}

SDM_EXPORT uint32_t SDDeleteVport(uint32_t handle, const uint8_t *wwpn) {
    if (!wwpn) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(wwpn);
    return WithSim([&](Simulator &s) { return s.deleteVport(handle, p); });
}

SDM_EXPORT uint32_t SDGetQoS(uint32_t handle, const uint8_t *vportWWPN, SDQoS *qos) {
    if (!vportWWPN) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(vportWWPN);
    return WithSim([&](Simulator &s) { return s.getQoS(handle, p, qos); });
}

SDM_EXPORT uint32_t SDSetQoS(uint32_t handle, const uint8_t *vportWWPN, const SDQoS *qos) {
    if (!vportWWPN || !qos) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(vportWWPN);
    return WithSim([&](Simulator &s) { return s.setQoS(handle, p, *qos); });
}

}  // extern "C"
