// The exported SD... calls: argument checks, the handle table, copies in
// and out of the caller's buffers and the error texts, around whichever
// backend answers (backend.h).
#include <algorithm>
#include <cstring>
#include <exception>
#include <map>
#include <new>
#include <string>

#include "backend.h"
#include "fcnames.h"
#include "nvram_map.h"
#include "vtsdm.h"

using vtsdm::AcquireBackend;
using vtsdm::Backend;
using vtsdm::PortKey;

namespace {

constexpr char kVersion[] = "vtsdm 1.0.0";

// An open handle: the backend generation it was opened under and the port.
struct OpenPort {
    uint64_t generation;
    PortKey key;
};
std::map<uint32_t, OpenPort> g_handles;  // guarded by the backend lock
uint32_t g_nextHandle = 0x100;

// The status of the exception being handled.  Every exported call ends in
// a handler that returns it, so no exception crosses the C boundary.
uint32_t ExceptionStatus() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc &) {
        return SDERR_OUT_OF_MEMORY;
    } catch (...) {
        return SDERR_IO_FAILED;
    }
}

// memcpy that takes an empty source, whose data() may be null.
void CopyBytes(void *to, const void *from, size_t n) {
    if (n) memcpy(to, from, n);
}

// Runs `fn` against the backend under its lock; a backend that cannot be
// made answers SDERR_IO_FAILED.
template <typename Fn>
uint32_t WithBackend(Fn fn) {
    auto access = AcquireBackend();
    if (!access.backend) return SDERR_IO_FAILED;
    return fn(*access.backend, access.generation);
}

// Runs `fn` with the port behind an open handle.
template <typename Fn>
uint32_t WithPort(uint32_t handle, Fn fn) {
    return WithBackend([&](Backend &b, uint64_t generation) {
        auto it = g_handles.find(handle);
        if (it == g_handles.end() || it->second.generation != generation) return SDERR_INVALID_HANDLE;
        return fn(b, it->second.key);
    });
}

// Copies a reply into the caller's buffer; *size is in: room, out: bytes.
void CopyOut(const std::vector<uint8_t> &data, void *buf, uint32_t *size) {
    if (!size) return;
    uint32_t n = buf ? std::min<uint32_t>(*size, uint32_t(data.size())) : 0;
    if (n) memcpy(buf, data.data(), n);
    *size = n;
}

uint32_t CopyText(const std::string &text, char *buffer, uint32_t size) {
    if (!buffer || size == 0) return SDERR_INVALID_PARAMETER;
    if (text.size() + 1 > size) return SDERR_BUFFER_TOO_SMALL;
    memcpy(buffer, text.c_str(), text.size() + 1);
    return SDERR_NONE;
}

// A text the backend gives, into the caller's buffer.
template <typename Fn>
uint32_t CopyBackendText(Fn text, char *buffer, uint32_t size) {
    std::string out;
    if (uint32_t rc = WithBackend([&](Backend &b, uint64_t) {
            out = text(b);
            return SDERR_NONE;
        }))
        return rc;
    return CopyText(out, buffer, size);
}

uint32_t Scsi(uint32_t h, const uint8_t *wwpn, uint16_t lun, vtsdm::ScsiOp op, uint8_t evpd, uint8_t page, void *resp,
              uint32_t *respSize, void *sense, uint32_t *senseSize) {
    if (!wwpn || (op != vtsdm::ScsiOp::TestUnitReady && (!resp || !respSize))) return SDERR_INVALID_PARAMETER;
    vtsdm::ScsiRequest rq;
    rq.op = op;
    rq.target = vtsdm::WwnFromBytes(wwpn);
    rq.lun = lun;
    rq.evpd = evpd;
    rq.page = page;
    rq.allocation = respSize ? *respSize : 0;
    vtsdm::ScsiReply reply;
    uint32_t rc = WithPort(h, [&](Backend &b, PortKey k) { return b.scsi(k, rq, reply); });
    if (respSize) CopyOut(reply.data, resp, respSize);
    if (senseSize) CopyOut(reply.sense, sense, senseSize);
    return rc;
}

}  // namespace

extern "C" {

SDM_EXPORT uint32_t SDGetVersion(char *buffer, uint32_t size) try {
    std::string version = kVersion;
    WithBackend([&](Backend &b, uint64_t) {
        version += std::string(b.name()) == "sim" ? " (simulated host)" : " (Linux FC transport)";
        return SDERR_NONE;
    });
    return CopyText(version, buffer, size);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetBackendName(char *buffer, uint32_t size) try {
    return CopyBackendText([](Backend &b) { return std::string(b.name()); }, buffer, size);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetBackendDescription(char *buffer, uint32_t size) try {
    return CopyBackendText([](Backend &b) { return b.description(); }, buffer, size);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetBackendNotice(char *buffer, uint32_t size) try {
    std::string text;
    if (!vtsdm::OldestNotice(text)) return SDERR_NOT_FOUND;
    if (uint32_t rc = CopyText(text, buffer, size)) return rc;
    vtsdm::DropNotice(text);
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT const char *SDGetErrorString(uint32_t status) {
    switch (status) {
    case SDERR_NONE: return "Success";
    case SDERR_SCSI_CHECK_CONDITION: return "SCSI check condition";
    case SDERR_DIAG_PARAMETER: return "Invalid diagnostic parameter";
    case SDERR_INVALID_PARAMETER: return "Invalid parameter";
    case SDERR_NOT_SUPPORTED: return "Not supported on this adapter's driver";
    case SDERR_DEVICE_BUSY: return "Device busy";
    case SDERR_INVALID_HANDLE: return "Invalid device handle";
    case SDERR_NOT_FOUND: return "Object not found";
    case SDERR_IO_FAILED: return "Input/output error in the device-management library";
    case SDERR_OUT_OF_MEMORY: return "Out of memory in the device-management library";
    case SDERR_NO_SUCH_DEVICE: return "No such device";
    case SDERR_FLASH_READ_FAILED: return "Flash read failed";
    case SDERR_FLASH_WRITE_FAILED: return "Flash write failed; the flash is unchanged";
    case SDERR_DEVICE_REMOVED: return "Device removed";
    case SDERR_DEVICE_UNAVAILABLE: return "Device temporarily unavailable";
    case SDERR_BUFFER_TOO_SMALL: return "Buffer too small";
    case SDERR_LOOP_DOWN: return "Loop down";
    case SDERR_DATA_UNDERRUN: return "Data underrun";
    case SDERR_SHORT_READ: return "Short read";
    case SDERR_LOCKDOWN: return "Refused: the adapter's firmware is in lockdown";
    default: return "Unknown error";
    }
}

SDM_EXPORT uint32_t SDOpenDevice(uint32_t instance, uint32_t *handle) try {
    if (!handle) return SDERR_INVALID_PARAMETER;
    return WithBackend([&](Backend &b, uint64_t generation) {
        PortKey key = 0;
        if (uint32_t rc = b.open(instance, key)) return rc;
        const uint32_t h = g_nextHandle++;
        g_handles[h] = OpenPort{generation, key};
        *handle = h;
        return SDERR_NONE;
    });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDCloseDevice(uint32_t handle) try {
    return WithBackend([&](Backend &b, uint64_t generation) {
        auto it = g_handles.find(handle);
        if (it == g_handles.end()) return SDERR_INVALID_HANDLE;
        const OpenPort port = it->second;
        g_handles.erase(it);
        if (port.generation != generation) return SDERR_INVALID_HANDLE;
        b.close(port.key);
        return SDERR_NONE;
    });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetHbaDeviceChipProperty(uint32_t handle, SDChipProperty *prop) try {
    if (!prop) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.chipProperty(k, *prop); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetHbaDeviceDriverProperty(uint32_t handle, SDDriverProperty *prop) try {
    if (!prop) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.driverProperty(k, *prop); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetHbaDeviceNodeProperty(uint32_t handle, SDNodeProperty *prop) try {
    if (!prop) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.nodeProperty(k, *prop); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetHbaDevicePortProperty(uint32_t handle, SDPortProperty *prop) try {
    if (!prop) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.portProperty(k, *prop); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetDiscTargetProperties(uint32_t handle, SDDiscTargetProperty *buffer, uint32_t *count) try {
    if (!count) return SDERR_INVALID_PARAMETER;
    std::vector<SDDiscTargetProperty> targets;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.discTargets(k, targets); })) return rc;
    const uint32_t room = buffer ? *count : 0;
    *count = uint32_t(targets.size());
    if (room < targets.size()) return SDERR_BUFFER_TOO_SMALL;
    if (!targets.empty()) memcpy(buffer, targets.data(), targets.size() * sizeof(SDDiscTargetProperty));
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiReportLunsCmdFC(uint32_t handle, const uint8_t *targetWWPN, void *resp,
                                              uint32_t *respSize, void *sense, uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, 0, vtsdm::ScsiOp::ReportLuns, 0, 0, resp, respSize, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiInquiryCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, uint8_t evpd,
                                           uint8_t page, void *resp, uint32_t *respSize, void *sense,
                                           uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, lun, vtsdm::ScsiOp::Inquiry, evpd, page, resp, respSize, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiReadCapacityCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *resp,
                                                uint32_t *respSize, void *sense, uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, lun, vtsdm::ScsiOp::ReadCapacity10, 0, 0, resp, respSize, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiReadCapacityLargeCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                                     void *resp, uint32_t *respSize, void *sense,
                                                     uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, lun, vtsdm::ScsiOp::ReadCapacity16, 0, 0, resp, respSize, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiTestUnitReadyCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *sense,
                                                 uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, lun, vtsdm::ScsiOp::TestUnitReady, 0, 0, nullptr, nullptr, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiWriteBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun,
                                               const void *data, uint32_t size, void *sense, uint32_t *senseSize) try {
    if (!targetWWPN || (!data && size)) return SDERR_INVALID_PARAMETER;
    if (size > 65536) return SDERR_INVALID_PARAMETER;
    vtsdm::ScsiRequest rq;
    rq.op = vtsdm::ScsiOp::WriteBuffer;
    rq.target = vtsdm::WwnFromBytes(targetWWPN);
    rq.lun = lun;
    if (size) rq.dataOut.assign(static_cast<const uint8_t *>(data), static_cast<const uint8_t *>(data) + size);
    vtsdm::ScsiReply reply;
    uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.scsi(k, rq, reply); });
    if (senseSize) CopyOut(reply.sense, sense, senseSize);
    return rc;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSendScsiReadBufferCmdFC(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, void *data,
                                              uint32_t *size, void *sense, uint32_t *senseSize) try {
    return Scsi(handle, targetWWPN, lun, vtsdm::ScsiOp::ReadBuffer, 0, 0, data, size, sense, senseSize);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetLunOSDeviceName(uint32_t handle, const uint8_t *targetWWPN, uint16_t lun, char *name,
                                         uint32_t size) try {
    if (!targetWWPN || !name || size == 0) return SDERR_INVALID_PARAMETER;
    std::string n;
    const uint64_t target = vtsdm::WwnFromBytes(targetWWPN);
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.lunOsName(k, target, lun, n); }))
        return rc;
    return CopyText(n, name, size);
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetNVRam(uint32_t handle, uint32_t offset, uint32_t area, void *buffer, uint32_t size) try {
    if (!buffer) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> img;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.readNvram(k, area, img); })) return rc;
    if (offset > img.size()) return SDERR_INVALID_PARAMETER;
    uint32_t n = std::min<uint32_t>(size, uint32_t(img.size()) - offset);
    CopyBytes(buffer, img.data() + offset, n);
    return n < size ? SDERR_SHORT_READ : SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDUpdateNVRam(uint32_t handle, uint32_t offset, uint32_t area, const void *buffer,
                                  uint32_t size) try {
    if (offset != 0 || !buffer) return SDERR_INVALID_PARAMETER;
    const std::vector<uint8_t> img(static_cast<const uint8_t *>(buffer), static_cast<const uint8_t *>(buffer) + size);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.writeNvram(k, area, img); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetVariableValue(uint32_t handle, const void *nvram, uint32_t id) try {
    if (!nvram) return 0xFFFFFFFFu;
    uint32_t size = 0;
    if (WithPort(handle, [&](Backend &b, PortKey k) { return b.nvramSize(k, size); }) != SDERR_NONE) return 0xFFFFFFFFu;
    uint32_t value = 0;
    if (!vtsdm::nvram::GetValue(static_cast<const uint8_t *>(nvram), size, id, value)) return 0xFFFFFFFFu;
    return value;
} catch (...) {
    return 0xFFFFFFFFu;
}

SDM_EXPORT uint32_t SDSetVariableValue(uint32_t handle, void *nvram, uint32_t id, uint32_t value) try {
    if (!nvram) return SDERR_INVALID_PARAMETER;
    uint32_t size = 0;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.nvramSize(k, size); })) return rc;
    if (!vtsdm::nvram::FindField(size, id)) return SDERR_NOT_FOUND;
    return vtsdm::nvram::SetValue(static_cast<uint8_t *>(nvram), size, id, value) ? SDERR_NONE
                                                                                  : SDERR_INVALID_PARAMETER;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetVpd(uint32_t handle, void *buffer, uint32_t *size) try {
    if (!size) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> vpd;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.vpd(k, vpd); })) return rc;
    if (!buffer || *size < vpd.size()) {
        *size = uint32_t(vpd.size());
        return SDERR_BUFFER_TOO_SMALL;
    }
    CopyBytes(buffer, vpd.data(), vpd.size());
    *size = uint32_t(vpd.size());
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetOptionRomLayout(uint32_t handle, uint32_t reserved, SDOptionRomLayout *layout,
                                         uint32_t size) try {
    (void)reserved;
    if (!layout || size < 8) return SDERR_INVALID_PARAMETER;
    std::vector<SDOptionRomRegion> regions;
    uint32_t flashSize = 0;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.flashLayout(k, regions, flashSize); }))
        return rc;
    const uint32_t room = std::min<uint32_t>(layout->Count, (size - 8) / sizeof(SDOptionRomRegion));
    layout->FlashSize = flashSize;
    layout->Count = uint32_t(regions.size());
    if (room < regions.size()) return SDERR_BUFFER_TOO_SMALL;
    if (!regions.empty()) memcpy(layout->Region, regions.data(), regions.size() * sizeof(SDOptionRomRegion));
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetOptionRomEx(uint32_t handle, void *buffer, uint32_t size, uint32_t region,
                                     uint32_t offset) try {
    if (!buffer) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> bytes;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.readRegion(k, region, bytes); }))
        return rc;
    if (offset >= bytes.size()) return size ? SDERR_SHORT_READ : SDERR_NONE;
    uint32_t n = std::min<uint32_t>(size, uint32_t(bytes.size()) - offset);
    CopyBytes(buffer, bytes.data() + offset, n);
    return n < size ? SDERR_SHORT_READ : SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDUpdateOptionRomEx2(uint32_t handle, const void *buffer, uint32_t size, uint32_t region,
                                         uint32_t offset, uint32_t flags) try {
    (void)flags;
    if (!buffer && size) return SDERR_INVALID_PARAMETER;
    std::vector<uint8_t> data;
    if (size) data.assign(static_cast<const uint8_t *>(buffer), static_cast<const uint8_t *>(buffer) + size);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.writeRegion(k, region, offset, data); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDUpdateOptionRomRegions(uint32_t handle, const SDRegionImage *regions, uint32_t count,
                                             uint32_t flags) try {
    (void)flags;
    if (!regions || count == 0) return SDERR_INVALID_PARAMETER;
    std::vector<Backend::RegionImage> images(count);
    for (uint32_t i = 0; i < count; ++i) {
        if (!regions[i].Data && regions[i].Size) return SDERR_INVALID_PARAMETER;
        const auto *data = static_cast<const uint8_t *>(regions[i].Data);
        images[i].region = regions[i].Region;
        if (regions[i].Size) images[i].bytes.assign(data, data + regions[i].Size);
    }
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.writeRegions(k, images); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetSfpFirmwareInfo(uint32_t handle, SDSfpFirmwareInfo *info) try {
    if (!info) return SDERR_INVALID_PARAMETER;
    SDSfpFirmwareInfo got{};
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.sfpFirmware(k, got); })) return rc;
    *info = got;
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDUpdateSfpFirmware(uint32_t handle, const void *image, uint32_t size, uint32_t flags) try {
    (void)flags;
    if (!image || size == 0) return SDERR_INVALID_PARAMETER;
    const auto *bytes = static_cast<const uint8_t *>(image);
    const std::vector<uint8_t> data(bytes, bytes + size);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.updateSfpFirmware(k, data); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetAen(uint32_t handle, void *buffer, uint32_t bufferSize, uint32_t *count) try {
    if (!count || (!buffer && bufferSize)) return SDERR_INVALID_PARAMETER;
    const uint32_t room = buffer ? bufferSize / uint32_t(sizeof(SDAenRecord)) : 0;
    std::vector<SDAenRecord> events;
    uint32_t queued = 0;
    if (uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.takeEvents(k, room, events, queued); }))
        return rc;
    CopyBytes(buffer, events.data(), std::min<size_t>(events.size(), room) * sizeof(SDAenRecord));
    *count = std::max<uint32_t>(queued, uint32_t(events.size()));
    return SDERR_NONE;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetAenQueueStatus(uint32_t handle, SDAenQueueStatus *status) try {
    if (!status) return SDERR_INVALID_PARAMETER;
    *status = SDAenQueueStatus{};
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.eventQueue(k, *status); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetStatistics(uint32_t handle, SDStatistics *stats) try {
    if (!stats) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.statistics(k, *stats); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDResetStatistics(uint32_t handle) try {
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.resetStatistics(k); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetPortStatisticsFC(uint32_t handle, const uint8_t *targetWWPN, SDLinkErrorStatus *status) try {
    if (!status) return SDERR_INVALID_PARAMETER;
    return WithPort(handle, [&](Backend &b, PortKey k) {
        if (!targetWWPN) return SDERR_NOT_FOUND;
        return b.remoteLinkStatus(k, vtsdm::WwnFromBytes(targetWWPN), *status);
    });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDRunDiagLoopbackEx(uint32_t handle, uint32_t option, const void *tx, void *rx, uint32_t dataSize,
                                        uint32_t iterations, SDDiagResult *result) try {
    if (!result) return SDERR_INVALID_PARAMETER;
    uint64_t busyNs = 0;
    const vtsdm::LoopbackRequest rq{option, tx, rx, dataSize, iterations, false, 1, &busyNs};
    const uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.loopback(k, rq, *result); });
    vtsdm::WaitWhilePortBusy(busyNs);
    return rc;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDDiagIO(uint32_t handle, const void *tx, void *rx, uint32_t dataSize, uint32_t count,
                             uint32_t increment, SDDiagResult *result) try {
    if (!result) return SDERR_INVALID_PARAMETER;
    uint64_t busyNs = 0;
    const vtsdm::LoopbackRequest rq{SD_LOOPBACK_EXTERNAL, tx, rx, dataSize, count, true, increment, &busyNs};
    const uint32_t rc = WithPort(handle, [&](Backend &b, PortKey k) { return b.loopback(k, rq, *result); });
    vtsdm::WaitWhilePortBusy(busyNs);
    return rc;
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDCreateVport(uint32_t handle, const uint8_t *wwnn, const uint8_t *wwpn, uint16_t *vportId) try {
    if (!wwpn || !vportId) return SDERR_INVALID_PARAMETER;
    const uint64_t n = wwnn ? vtsdm::WwnFromBytes(wwnn) : 0, p = vtsdm::WwnFromBytes(wwpn);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.createVport(k, n, p, *vportId); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDDeleteVport(uint32_t handle, const uint8_t *wwpn) try {
    if (!wwpn) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(wwpn);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.deleteVport(k, p); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDGetQoS(uint32_t handle, const uint8_t *vportWWPN, SDQoS *qos) try {
    if (!vportWWPN || !qos) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(vportWWPN);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.getQoS(k, p, *qos); });
} catch (...) {
    return ExceptionStatus();
}

SDM_EXPORT uint32_t SDSetQoS(uint32_t handle, const uint8_t *vportWWPN, const SDQoS *qos) try {
    if (!vportWWPN || !qos) return SDERR_INVALID_PARAMETER;
    const uint64_t p = vtsdm::WwnFromBytes(vportWWPN);
    return WithPort(handle, [&](Backend &b, PortKey k) { return b.setQoS(k, p, *qos); });
} catch (...) {
    return ExceptionStatus();
}

}  // extern "C"
