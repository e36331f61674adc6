#include "sim_transport.h"

#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "linux/sysfs.h"
#include "simulator.h"
#include "sysroot.h"

namespace vtsdm {

namespace {

uint32_t Be(const std::vector<uint8_t> &c, size_t at, int bytes) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v = (v << 8) | c[at + size_t(i)];
    return v;
}

class SimTransport : public linuxfc::ScsiTransport {
public:
    explicit SimTransport(Simulator &sim) : sim_(&sim) {}
    explicit SimTransport(std::unique_ptr<Simulator> owned) : owned_(std::move(owned)), sim_(owned_.get()) {}

    std::string name() const override { return "the simulated host " + sim_->host().path; }

    linuxfc::ScsiOutcome execute(const linuxfc::ScsiAddress &address, const std::vector<uint8_t> &cdb,
                                 linuxfc::DataDirection direction, std::vector<uint8_t> &data) override {
        auto rq = DecodeCdb(cdb);
        if (!rq) {
            data.clear();
            // ILLEGAL REQUEST, invalid command operation code.
            return OutcomeOfStatus(SDERR_SCSI_CHECK_CONDITION, {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0});
        }
        rq->target = address.target;
        rq->lun = linuxfc::LunNumberOf(address.lun);
        if (direction == linuxfc::DataDirection::Out) rq->dataOut = data;
        ScsiReply reply;
        const uint32_t rc = sim_->scsi(address.initiator, *rq, reply);
        if (direction == linuxfc::DataDirection::In) {
            const size_t room = data.size();
            data = std::move(reply.data);
            if (data.size() > room) data.resize(room);
        }
        return OutcomeOfStatus(rc, std::move(reply.sense));
    }

private:
    std::unique_ptr<Simulator> owned_;
    Simulator *sim_;
};

}  // namespace

std::optional<ScsiRequest> DecodeCdb(const std::vector<uint8_t> &c) {
    if (c.empty()) return std::nullopt;
    ScsiRequest rq;
    switch (c[0]) {
    case 0x00:
        if (c.size() < 6) return std::nullopt;
        rq.op = ScsiOp::TestUnitReady;
        return rq;
    case 0x12:
        if (c.size() < 6) return std::nullopt;
        rq.op = ScsiOp::Inquiry;
        rq.evpd = c[1] & 1;
        rq.page = c[2];
        rq.allocation = Be(c, 3, 2);
        return rq;
    case 0x25:
        if (c.size() < 10) return std::nullopt;
        rq.op = ScsiOp::ReadCapacity10;
        rq.allocation = 8;
        return rq;
    case 0x9E:
        if (c.size() < 16 || (c[1] & 0x1F) != 0x10) return std::nullopt;
        rq.op = ScsiOp::ReadCapacity16;
        rq.allocation = Be(c, 10, 4);
        return rq;
    case 0xA0:
        if (c.size() < 12) return std::nullopt;
        rq.op = ScsiOp::ReportLuns;
        rq.allocation = Be(c, 6, 4);
        return rq;
    case 0x3B:
    case 0x3C:
        if (c.size() < 10 || (c[1] & 0x1F) != 0x02) return std::nullopt;
        rq.op = c[0] == 0x3B ? ScsiOp::WriteBuffer : ScsiOp::ReadBuffer;
        rq.allocation = Be(c, 6, 3);
        return rq;
    default: return std::nullopt;
    }
}

linuxfc::ScsiOutcome OutcomeOfStatus(uint32_t status, std::vector<uint8_t> sense) {
    linuxfc::ScsiOutcome o;
    switch (status) {
    case SDERR_NONE:
    case SDERR_DATA_UNDERRUN: break;
    case SDERR_SCSI_CHECK_CONDITION:
        o.status = linuxfc::kStatusCheckCondition;
        o.sense = std::move(sense);
        break;
    case SDERR_DEVICE_BUSY: o.status = linuxfc::kStatusBusy; break;
    case SDERR_DEVICE_REMOVED: o.hostStatus = linuxfc::kDidNoConnect; break;
    case SDERR_LOOP_DOWN: o.hostStatus = linuxfc::kDidTransportDisrupted; break;
    case SDERR_NOT_FOUND: o.hostStatus = linuxfc::kDidBadTarget; break;
    default: o.hostStatus = 0x07; break;  // DID_ERROR
    }
    return o;
}

std::unique_ptr<linuxfc::ScsiTransport> MakeSimTransport(Simulator &sim) { return std::make_unique<SimTransport>(sim); }

std::unique_ptr<linuxfc::ScsiTransport> MakeExportTransport() {
    const std::string marker = vt::MapSystemPath(kExportMarker);
    std::ifstream in(marker);
    if (!in) return nullptr;
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json j = nlohmann::json::parse(text.str(), nullptr, false);
    if (!j.is_object() || !j.contains("host") || !j["host"].is_string())
        throw HostError(marker + ": not a sysfs export marker (no \"host\")");
    const std::string host = j["host"].get<std::string>();
    const std::string state =
        j.contains("state_dir") && j["state_dir"].is_string() ? j["state_dir"].get<std::string>() : DefaultStateDir();
    return std::make_unique<SimTransport>(std::make_unique<Simulator>(host, state));
}

}  // namespace vtsdm
