// NVRAM images of simulated ports: built from the host file's values until
// a program writes one, then kept in the state.
#include "nvram_map.h"
#include "simulator.h"

namespace vtsdm {

std::vector<uint8_t> Simulator::initialNvram(const View &v) {
    nvram::Identity id{};
    WwnToBytes(v.port->wwnn, id.wwnn);
    WwnToBytes(v.port->wwpn, id.wwpn);
    id.ssvid = v.card->subVendorId;
    id.ssdid = v.card->subSystemId;
    id.serial = v.card->serial;
    std::vector<uint8_t> img = nvram::DefaultImage(v.card->nvramSize, id);
    nvram::SetValue(img.data(), img.size(), nvram::kVendorId, v.card->vendorId);
    nvram::SetValue(img.data(), img.size(), nvram::kDeviceId, v.card->deviceId);
    for (const auto &[key, value] : v.port->nvram) nvram::SetValue(img.data(), img.size(), key, value);
    nvram::ComputeChecksum(img.data(), img.size());
    return img;
}

uint32_t Simulator::nvramSize(PortKey key, uint32_t &size) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    size = v.card->nvramSize;
    return SDERR_NONE;
}

uint32_t Simulator::readNvram(PortKey key, uint32_t area, std::vector<uint8_t> &image) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (area != 1 && area != 2) return SDERR_INVALID_PARAMETER;
    const State &s = store_.current();
    auto it = s.ports.find(v.port->wwpn);
    if (it != s.ports.end() && it->second.nvram[area - 1]) {
        image = *it->second.nvram[area - 1];
        return SDERR_NONE;
    }
    image = initialNvram(v);
    return SDERR_NONE;
}

uint32_t Simulator::writeNvram(PortKey key, uint32_t area, const std::vector<uint8_t> &img) {
    View v;
    if (uint32_t rc = resolve(key, v)) return rc;
    if (v.vport) return SDERR_NOT_SUPPORTED;
    if (area != 1 && area != 2) return SDERR_INVALID_PARAMETER;
    if (img.size() < v.card->nvramSize) return SDERR_BUFFER_TOO_SMALL;
    if (img.size() != v.card->nvramSize || !nvram::IsValid(img.data(), uint32_t(img.size())))
        return SDERR_INVALID_PARAMETER;
    return store_.modify([&](State &s) {
        s.ports[v.port->wwpn].nvram[area - 1] = img;
        return SDERR_NONE;
    });
}

}  // namespace vtsdm
