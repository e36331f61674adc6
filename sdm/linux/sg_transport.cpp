// SCSI commands through the SCSI generic driver (SG_IO), by libsgutils2.
#include <fcntl.h>
#include <scsi/sg_pt.h>

#include <cerrno>
#include <map>

#include "scsi_transport.h"
#include "vtsdm.h"

namespace vtsdm::linuxfc {

uint8_t SenseKey(const std::vector<uint8_t> &sense) {
    if (sense.empty()) return 0;
    const uint8_t code = sense[0] & 0x7F;
    if (code == 0x72 || code == 0x73) return sense.size() > 1 ? (sense[1] & 0x0F) : 0;
    if (code == 0x70 || code == 0x71) return sense.size() > 2 ? (sense[2] & 0x0F) : 0;
    return 0;
}

uint32_t StatusOfOutcome(const ScsiOutcome &o) {
    if (o.osError) {
        switch (o.osError) {
        case ENOENT: return SDERR_NOT_FOUND;
        case ENODEV:
        case ENXIO: return SDERR_DEVICE_REMOVED;
        case EBUSY:
        case EAGAIN: return SDERR_DEVICE_BUSY;
        default: return SDERR_IO_FAILED;
        }
    }
    switch (o.hostStatus) {
    case kDidOk: break;
    case kDidNoConnect: return SDERR_DEVICE_REMOVED;
    case kDidBadTarget: return SDERR_NOT_FOUND;
    case kDidBusBusy:
    case kDidSoftError:
    case kDidImmRetry:
    case kDidRequeue: return SDERR_DEVICE_BUSY;
    case kDidTransportDisrupted:
    case kDidTransportFailfast: return SDERR_LOOP_DOWN;
    default: return SDERR_IO_FAILED;  // time-out, abort, reset, parity and the rest
    }
    switch (o.status & 0xFE) {
    case kStatusGood:
    case kStatusConditionMet: return SDERR_NONE;
    case kStatusCheckCondition:
        // A recovered error is a success that says so.
        return SenseKey(o.sense) == 0x01 ? SDERR_NONE : SDERR_SCSI_CHECK_CONDITION;
    case kStatusBusy:
    case kStatusTaskSetFull: return SDERR_DEVICE_BUSY;
    default: return SDERR_IO_FAILED;  // reservation conflict, ACA active, task aborted
    }
}

namespace {

constexpr int kTimeoutSeconds = 20;
constexpr size_t kSenseBytes = 64;

class SgTransport : public ScsiTransport {
public:
    ~SgTransport() override {
        for (auto &[path, fd] : fds_) scsi_pt_close_device(fd);
    }
    std::string name() const override { return "SG_IO"; }

    ScsiOutcome execute(const ScsiAddress &address, const std::vector<uint8_t> &cdb, DataDirection direction,
                        std::vector<uint8_t> &data) override {
        ScsiOutcome out;
        int fd = device(address.genericDevice);
        if (fd < 0) {
            out.osError = -fd;
            data.clear();
            return out;
        }
        sg_pt_base *pt = construct_scsi_pt_obj_with_fd(fd, 0);
        if (!pt) {
            out.osError = ENOMEM;
            data.clear();
            return out;
        }
        uint8_t sense[kSenseBytes] = {};
        set_scsi_pt_cdb(pt, cdb.data(), int(cdb.size()));
        set_scsi_pt_sense(pt, sense, sizeof sense);
        if (direction == DataDirection::In && !data.empty()) set_scsi_pt_data_in(pt, data.data(), int(data.size()));
        if (direction == DataDirection::Out && !data.empty()) set_scsi_pt_data_out(pt, data.data(), int(data.size()));
        const int res = do_scsi_pt(pt, -1, kTimeoutSeconds, 0);
        if (res < 0) out.osError = -res;
        else if (res == SCSI_PT_DO_BAD_PARAMS) out.osError = EINVAL;
        else if (res == SCSI_PT_DO_TIMEOUT) out.hostStatus = kDidTimeOut;
        else {
            if (int os = get_scsi_pt_os_err(pt)) out.osError = os;
            out.status = uint8_t(get_scsi_pt_status_response(pt));
            out.hostStatus = uint16_t(get_scsi_pt_transport_err(pt) & 0xFF);
            const int senseLen = get_scsi_pt_sense_len(pt);
            if (senseLen > 0) out.sense.assign(sense, sense + std::min<size_t>(size_t(senseLen), sizeof sense));
        }
        if (direction == DataDirection::In) {
            const int resid = get_scsi_pt_resid(pt);
            size_t got = data.size();
            if (resid > 0 && size_t(resid) <= got) got -= size_t(resid);
            data.resize(out.osError ? 0 : got);
        }
        destruct_scsi_pt_obj(pt);
        if (out.osError == ENODEV || out.osError == ENXIO) forget(address.genericDevice);
        return out;
    }

private:
    // An open descriptor for a generic device, kept for later commands.
    int device(const std::string &path) {
        auto it = fds_.find(path);
        if (it != fds_.end()) return it->second;
        int fd = scsi_pt_open_flags(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC, 0);
        if (fd >= 0) fds_[path] = fd;
        return fd;
    }
    void forget(const std::string &path) {
        auto it = fds_.find(path);
        if (it == fds_.end()) return;
        scsi_pt_close_device(it->second);
        fds_.erase(it);
    }
    std::map<std::string, int> fds_;
};

}  // namespace

std::unique_ptr<ScsiTransport> MakeSgTransport() { return std::make_unique<SgTransport>(); }

}  // namespace vtsdm::linuxfc
