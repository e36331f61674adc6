// libFuzzer target: what the Linux backend of libvtsdm decodes from the
// kernel and from devices: FC event netlink datagrams, SCSI outcomes with
// their sense data, and the CDBs the simulated transport answers.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "linux/fc_events.h"
#include "linux/scsi_transport.h"
#include "sim_transport.h"

using namespace vtsdm::linuxfc;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const uint8_t *body = data + 1;
    const size_t n = size - 1;
    switch (data[0] % 3) {
    case 0:
        for (const FcHostEvent &e : DecodeFcEvents(body, n)) (void)AenCodeOf(e.code);
        break;
    case 1: {
        ScsiOutcome o;
        if (n >= 4) {
            o.status = body[0];
            o.hostStatus = body[1];
            o.osError = body[2] % 4 == 0 ? body[3] : 0;
            o.sense.assign(body + 4, body + n);
        }
        (void)StatusOfOutcome(o);
        (void)SenseKey(o.sense);
        break;
    }
    default: {
        const std::vector<uint8_t> cdb(body, body + n);
        if (auto rq = vtsdm::DecodeCdb(cdb)) (void)rq->allocation;
        break;
    }
    }
    return 0;
}
