// Loopback and maximum-size I/O diagnostics of simulated ports.  The data
// comes back as sent and the run passes, unless the port's link is down (an
// external loopback then ends with the loop-down status), the host file sets
// CRC errors for every run, or the port's fault script (host file, or
// vtsdm-sim) says otherwise for the next calls.  Each call keeps the port
// busy for the time its frames need on the link.
#include <charconv>

#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

namespace {

constexpr uint32_t kMaxLoopbackSize = 0x200168;
constexpr uint32_t kMaxIoSize = 65536;
// Time of one call on the port: the firmware's turnaround, and per frame the
// time on the wire plus the frame's own turnaround.
constexpr uint64_t kCallNs = 500000;
constexpr uint64_t kFrameTurnaroundNs = 2000;

std::string ScriptKey(uint64_t wwpn) { return "diag/" + FormatWwn(wwpn); }
std::string MiscompareKey(uint64_t wwpn) { return "rwbuf/" + FormatWwn(wwpn); }

bool ParseNumber(const std::string &text, uint32_t &out) {
    const char *end = text.data() + text.size();
    auto [p, ec] = std::from_chars(text.data(), end, out);
    return ec == std::errc() && p == end && !text.empty();
}

uint64_t BusyNs(uint32_t size, uint64_t frames, uint32_t gbps) {
    // 10 line bits per byte; bits / (Gb/s) = nanoseconds.
    const uint64_t wire = uint64_t(size) * 10 / (gbps ? gbps : 8);
    return kCallNs + frames * (wire + kFrameTurnaroundNs);
}

}  // namespace

std::optional<DiagStep> ParseDiagStep(const std::string &text, std::string &error) {
    DiagStep step;
    std::string body = text;
    if (auto star = body.rfind('*'); star != std::string::npos) {
        if (!ParseNumber(body.substr(star + 1), step.repeat) || step.repeat == 0) {
            error = "bad repeat count in \"" + text + "\" (expected *N with N of 1 or more)";
            return std::nullopt;
        }
        body.resize(star);
    }
    if (body == "pass") return step;
    if (body == "busy" || body == "nodevice" || body == "corrupt") {
        step.kind = body == "busy"       ? DiagStep::Kind::Busy
                    : body == "nodevice" ? DiagStep::Kind::NoDevice
                                         : DiagStep::Kind::Corrupt;
        return step;
    }
    bool haveStatus = false;
    size_t at = 0;
    while (at <= body.size()) {
        size_t comma = body.find(',', at);
        if (comma == std::string::npos) comma = body.size();
        const std::string item = body.substr(at, comma - at);
        const size_t eq = item.find('=');
        uint32_t value = 0;
        if (eq == std::string::npos || !ParseNumber(item.substr(eq + 1), value)) {
            error = "bad step \"" + text +
                    "\" (expected pass, busy, nodevice, corrupt or status=N,crc=N,disparity=N,frame=N, "
                    "each optionally *N)";
            return std::nullopt;
        }
        const std::string name = item.substr(0, eq);
        if (name == "status") {
            if (value == 0) {
                error = "test status 0 in \"" + text + "\" (1 passed, 2 parameter error, 3 loop down, 4 errors)";
                return std::nullopt;
            }
            step.status = value;
            haveStatus = true;
        } else if (name == "crc") {
            step.crc = value;
        } else if (name == "disparity") {
            step.disparity = value;
        } else if (name == "frame") {
            step.frameLength = value;
        } else {
            error = "unknown item \"" + name + "\" in \"" + text + "\" (status, crc, disparity, frame)";
            return std::nullopt;
        }
        at = comma + 1;
    }
    // Error counts alone mean a run with errors.
    if (!haveStatus && (step.crc || step.disparity || step.frameLength)) step.status = SD_DIAG_STATUS_ERRORS;
    return step;
}

std::string FormatDiagStep(const DiagStep &d) {
    std::string s;
    switch (d.kind) {
    case DiagStep::Kind::Busy: s = "busy"; break;
    case DiagStep::Kind::NoDevice: s = "nodevice"; break;
    case DiagStep::Kind::Corrupt: s = "corrupt"; break;
    case DiagStep::Kind::Status:
        s = "status=" + std::to_string(d.status);
        if (d.crc) s += ",crc=" + std::to_string(d.crc);
        if (d.disparity) s += ",disparity=" + std::to_string(d.disparity);
        if (d.frameLength) s += ",frame=" + std::to_string(d.frameLength);
        break;
    }
    if (d.repeat != 1) s += "*" + std::to_string(d.repeat);
    return s;
}

std::optional<DiagStep> Simulator::nextDiagStep(const View &v) {
    const uint64_t wwpn = v.port->wwpn;
    const std::string key = ScriptKey(wwpn);
    auto scriptOf = [&](const State &s) -> const std::vector<DiagStep> & {
        auto it = s.ports.find(wwpn);
        return it != s.ports.end() && it->second.diagScript ? *it->second.diagScript : v.port->diag.script;
    };
    auto total = [](const std::vector<DiagStep> &script) {
        uint64_t n = 0;
        for (const DiagStep &d : script) n += d.repeat;
        return n;
    };
    {
        const State &s = store_.current();
        auto used = s.faultsUsed.find(key);
        if (total(scriptOf(s)) <= (used == s.faultsUsed.end() ? 0 : used->second)) return std::nullopt;
    }
    std::optional<DiagStep> step;
    store_.modify([&](State &s) {
        const auto &script = scriptOf(s);
        uint32_t &used = s.faultsUsed[key];
        uint64_t position = used;
        for (const DiagStep &d : script) {
            if (position < d.repeat) {
                step = d;
                ++used;
                break;
            }
            position -= d.repeat;
        }
        return SDERR_NONE;
    });
    return step;
}

uint32_t Simulator::setDiagScript(uint32_t instance, const std::vector<DiagStep> &steps) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].diagScript = steps;
        s.faultsUsed.erase(ScriptKey(v.port->wwpn));
        return SDERR_NONE;
    });
}

uint32_t Simulator::setReadBufferMiscompare(uint32_t instance, uint32_t times) {
    View v;
    if (uint32_t rc = instancePort(instance, v)) return rc;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].readBufferMiscompare = times;
        s.faultsUsed.erase(MiscompareKey(v.port->wwpn));
        return SDERR_NONE;
    });
}

void Simulator::readBufferFault(const View &v, std::vector<uint8_t> &data) {
    uint32_t limit = v.port->diag.readBufferMiscompare;
    const State &s = store_.current();
    if (auto it = s.ports.find(v.port->wwpn); it != s.ports.end() && it->second.readBufferMiscompare)
        limit = *it->second.readBufferMiscompare;
    if (!data.empty() && consumeFault(MiscompareKey(v.port->wwpn), limit)) data[data.size() / 2] ^= 0x5A;
}

uint32_t Simulator::loopback(PortKey key, const LoopbackRequest &rq, SDDiagResult &r) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (!rq.tx || !rq.rx) return SDERR_INVALID_PARAMETER;
    r = SDDiagResult{};
    const uint64_t frames = rq.maxIo ? uint64_t(rq.iterations) * (rq.increment ? rq.increment : 1) : rq.iterations;
    const uint32_t gbps = GbpsForSpeedCode(v.port->speedCode);
    uint64_t busy = kCallNs;
    auto done = [&](uint32_t rc) {
        if (rq.busyNs) *rq.busyNs = busy;
        return rc;
    };

    const std::optional<DiagStep> step = nextDiagStep(v);
    if (step && step->kind == DiagStep::Kind::Busy) return done(SDERR_DEVICE_BUSY);
    if (step && step->kind == DiagStep::Kind::NoDevice) return done(SDERR_NO_SUCH_DEVICE);

    const bool internal =
        !rq.maxIo && (rq.option == SD_LOOPBACK_INTERNAL_10BIT || rq.option == SD_LOOPBACK_INTERNAL_1BIT);
    const bool knownOption = internal || rq.option == SD_LOOPBACK_EXTERNAL || rq.option == SD_LOOPBACK_ECHO;
    // The maximum-I/O call reports what the firmware refuses as call errors;
    // a loopback run reports it as its test status.
    if (rq.maxIo) {
        if (rq.size == 0 || rq.size > kMaxIoSize) return done(SDERR_DIAG_PARAMETER);
        if (!PortUp(currentPortState(v))) return done(SDERR_LOOP_DOWN);
    } else if (rq.size == 0 || rq.size > kMaxLoopbackSize || !knownOption) {
        r.TestStatus = SD_DIAG_STATUS_PARAM_ERROR;
        return done(SDERR_NONE);
    } else if (!internal && !PortUp(currentPortState(v))) {
        r.TestStatus = SD_DIAG_STATUS_LOOP_DOWN;
        return done(SDERR_NONE);
    }

    memcpy(rq.rx, rq.tx, rq.size);
    busy = BusyNs(rq.size, frames, gbps);
    r.IterationsDone = uint32_t(std::min<uint64_t>(frames, UINT32_MAX));
    r.TestStatus = SD_DIAG_STATUS_PASSED;
    if (step && step->kind == DiagStep::Kind::Corrupt) {
        static_cast<uint8_t *>(rq.rx)[rq.size / 2] ^= 0x5A;
    } else if (step) {
        r.TestStatus = step->status;
        r.CrcErrors = step->crc;
        r.DisparityErrors = step->disparity;
        r.FrameLengthErrors = step->frameLength;
    } else if (v.port->diag.crcErrors) {
        r.TestStatus = SD_DIAG_STATUS_ERRORS;
        r.CrcErrors = v.port->diag.crcErrors;
    }
    if (r.TestStatus != SD_DIAG_STATUS_PASSED && r.TestStatus != SD_DIAG_STATUS_ERRORS) r.IterationsDone = 0;
    return done(SDERR_NONE);
}

}  // namespace vtsdm
