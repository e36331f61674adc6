// Loopback and maximum-size I/O diagnostics of simulated ports: the data
// comes back as sent, with the CRC errors a host file sets.
#include "sim_internal.h"
#include "simulator.h"

namespace vtsdm {

using namespace simdetail;

uint32_t Simulator::loopback(PortKey key, const LoopbackRequest &rq, SDDiagResult &r) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (!rq.tx || !rq.rx) return SDERR_INVALID_PARAMETER;
    const uint32_t limit = rq.maxIo ? 65536u : 0x200168u;
    if (rq.size == 0 || rq.size > limit) return SDERR_DIAG_PARAMETER;
    const bool internal =
        !rq.maxIo && (rq.option == SD_LOOPBACK_INTERNAL_10BIT || rq.option == SD_LOOPBACK_INTERNAL_1BIT);
    if (!rq.maxIo && !internal && rq.option != SD_LOOPBACK_EXTERNAL && rq.option != SD_LOOPBACK_ECHO)
        return SDERR_DIAG_PARAMETER;
    if (!internal && !PortUp(currentPortState(v))) return SDERR_LOOP_DOWN;
    memcpy(rq.rx, rq.tx, rq.size);
    r = SDDiagResult{};
    r.CrcErrors = v.port->diag.crcErrors;
    r.IterationsDone = rq.iterations;
    return SDERR_NONE;
}

}  // namespace vtsdm
