// Default answers of the backend interface: "not supported".
#include "backend.h"

#include <chrono>
#include <thread>

namespace vtsdm {

void WaitWhilePortBusy(uint64_t ns) {
    if (ns) std::this_thread::sleep_for(std::chrono::nanoseconds(ns));
}

uint32_t Backend::open(uint32_t, PortKey &) { return SDERR_NO_SUCH_DEVICE; }
void Backend::close(PortKey) {}
uint32_t Backend::chipProperty(PortKey, SDChipProperty &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::driverProperty(PortKey, SDDriverProperty &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::nodeProperty(PortKey, SDNodeProperty &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::portProperty(PortKey, SDPortProperty &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::discTargets(PortKey, std::vector<SDDiscTargetProperty> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::scsi(PortKey, const ScsiRequest &, ScsiReply &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::lunOsName(PortKey, uint64_t, uint16_t, std::string &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::nvramSize(PortKey, uint32_t &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::readNvram(PortKey, uint32_t, std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::writeNvram(PortKey, uint32_t, const std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::vpd(PortKey, std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::flashLayout(PortKey, std::vector<SDOptionRomRegion> &, uint32_t &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::readRegion(PortKey, uint32_t, std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::writeRegion(PortKey, uint32_t, uint32_t, const std::vector<uint8_t> &) {
    return SDERR_NOT_SUPPORTED;
}
uint32_t Backend::takeEvents(PortKey, std::vector<SDAenRecord> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::statistics(PortKey, SDStatistics &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::resetStatistics(PortKey) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::remoteLinkStatus(PortKey, uint64_t, SDLinkErrorStatus &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::loopback(PortKey, const LoopbackRequest &, SDDiagResult &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::createVport(PortKey, uint64_t, uint64_t, uint16_t &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::deleteVport(PortKey, uint64_t) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::getQoS(PortKey, uint64_t, SDQoS &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::setQoS(PortKey, uint64_t, const SDQoS &) { return SDERR_NOT_SUPPORTED; }

}  // namespace vtsdm
