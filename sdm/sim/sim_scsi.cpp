// SCSI commands to simulated targets, with the target faults a host file
// sets (busy, unit attention, check condition on REPORT LUNS and READ
// CAPACITY, removed targets).
#include "scsi.h"
#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

uint32_t Simulator::scsi(PortKey key, const ScsiRequest &rq, ScsiReply &reply) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    reply.data.clear();
    reply.sense.clear();
    const Target *t = findTarget(v, rq.target);
    if (!t) return SDERR_NOT_FOUND;
    // Commands that change nothing do not look at the state file, so a scan
    // of many LUNs stays cheap; REPORT LUNS picks up link changes.
    // So do the run-time target changes (login, logout, removal), which
    // REPORT LUNS and the buffer commands see.
    if (rq.op == ScsiOp::ReportLuns && !PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    const bool looks = rq.op == ScsiOp::ReportLuns || rq.op == ScsiOp::WriteBuffer || rq.op == ScsiOp::ReadBuffer;
    const Presence presence = looks ? targetPresence(v, *t) : Presence{t->loggedIn, t->faults.removed};
    if (presence.removed) return SDERR_DEVICE_REMOVED;
    if (!presence.loggedIn) return SDERR_NOT_FOUND;
    auto check = [&](uint8_t senseKey, uint8_t asc, uint8_t ascq) {
        reply.sense = scsi::Sense(senseKey, asc, ascq);
        return SDERR_SCSI_CHECK_CONDITION;
    };

    if (rq.op == ScsiOp::ReportLuns) {
        if (!t->faultKey.empty()) {
            if (consumeFault(t->faultKey + "/rl-busy", t->faults.reportLunsBusy)) return SDERR_DEVICE_BUSY;
            if (consumeFault(t->faultKey + "/rl-ua", t->faults.reportLunsUnitAttention))
                return check(scsi::kKeyUnitAttention, 0x29, 0x00);
            if (consumeFault(t->faultKey + "/rl-check", t->faults.reportLunsCheck))
                return check(scsi::kKeyIllegalRequest, 0x20, 0x00);
        }
        reply.data = scsi::ReportLuns(*t);
        return SDERR_NONE;
    }

    std::optional<Lun> lun = t->findLun(rq.lun);
    if (rq.op == ScsiOp::Inquiry) {
        if (!lun) {
            if (rq.evpd) return check(scsi::kKeyIllegalRequest, 0x25, 0x00);
            reply.data = (rq.lun == 0 && t->inquiry) ? scsi::StandardInquiry(*t->inquiry, false) : scsi::NoLunInquiry();
            return SDERR_NONE;
        }
        if (lun->inquiryFails) return check(scsi::kKeyHardwareError, 0x44, 0x00);
        if (rq.evpd) {
            if (!scsi::VpdPage(rq.page, *t, *lun, reply.data)) return check(scsi::kKeyIllegalRequest, 0x24, 0x00);
            return SDERR_NONE;
        }
        reply.data = scsi::StandardInquiry(lun->inquiry, lun->inquiry.type == 0x01);
        return SDERR_NONE;
    }
    if (!lun) return check(scsi::kKeyIllegalRequest, 0x25, 0x00);  // LUN not supported
    switch (rq.op) {
    case ScsiOp::TestUnitReady:
        if (lun->passive) return check(scsi::kKeyNotReady, 0x04, 0x0B);  // standby port
        return SDERR_NONE;
    case ScsiOp::ReadCapacity10:
    case ScsiOp::ReadCapacity16:
        if (lun->inquiry.type != 0x00) return check(scsi::kKeyIllegalRequest, 0x20, 0x00);
        if (!t->faultKey.empty() && consumeFault(t->faultKey + "/rc-ua", t->faults.readCapacityUnitAttention))
            return check(scsi::kKeyUnitAttention, 0x29, 0x00);
        reply.data = rq.op == ScsiOp::ReadCapacity10 ? scsi::ReadCapacity10(*lun) : scsi::ReadCapacity16(*lun);
        return SDERR_NONE;
    case ScsiOp::WriteBuffer:
        if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
        buffers_[{v.wwpn(), t->wwpn, rq.lun}] = rq.dataOut;
        return SDERR_NONE;
    case ScsiOp::ReadBuffer: {
        if (!PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
        auto it = buffers_.find({v.wwpn(), t->wwpn, rq.lun});
        if (it != buffers_.end()) reply.data = it->second;
        readBufferFault(v, reply.data);
        return SDERR_NONE;
    }
    default: return SDERR_INVALID_PARAMETER;
    }
}

uint32_t Simulator::lunOsName(PortKey key, uint64_t target, uint16_t lunNumber, std::string &name) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    const Target *t = findTarget(v, target);
    if (!t) return SDERR_NOT_FOUND;
    auto lun = t->findLun(lunNumber);
    if (!lun || lun->osName.empty()) return SDERR_NOT_FOUND;
    name = lun->osName;
    return SDERR_NONE;
}

}  // namespace vtsdm
