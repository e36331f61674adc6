// libFuzzer target: the JSON host-file loader of the simulated host.  Any
// bytes must end in a host or a HostError, within the element budget, and a
// host it takes must answer lookups for every target and LUN it lists.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    try {
        const vtsdm::Host host = vtsdm::ParseHost(text, "fuzz.json");
        uint64_t elements = host.ports.size();
        for (const auto &p : host.ports) {
            elements += p.targets.size();
            for (const auto &t : p.targets) {
                elements += t.lunCount();
                for (const auto &l : t.luns)
                    if (!t.findLun(l.number)) abort();  // a listed LUN that cannot be found
            }
        }
        if (elements > vtsdm::kMaxHostElements) abort();
    } catch (const vtsdm::HostError &) {
    }
    return 0;
}
