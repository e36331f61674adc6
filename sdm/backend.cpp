// Default answers of the backend interface: "not supported"; and the
// notices for the calling program's log.
#include "backend.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <deque>
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
uint32_t Backend::writeRegion(PortKey, uint32_t, uint32_t, const std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::writeRegions(PortKey, const std::vector<RegionImage> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::sfpFirmware(PortKey, SDSfpFirmwareInfo &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::updateSfpFirmware(PortKey, const std::vector<uint8_t> &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::takeEvents(PortKey, uint32_t, std::vector<SDAenRecord> &, uint32_t &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::eventQueue(PortKey, SDAenQueueStatus &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::statistics(PortKey, SDStatistics &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::resetStatistics(PortKey) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::remoteLinkStatus(PortKey, uint64_t, SDLinkErrorStatus &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::loopback(PortKey, const LoopbackRequest &, SDDiagResult &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::createVport(PortKey, uint64_t, uint64_t, uint16_t &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::deleteVport(PortKey, uint64_t) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::getQoS(PortKey, uint64_t, SDQoS &) { return SDERR_NOT_SUPPORTED; }
uint32_t Backend::setQoS(PortKey, uint64_t, const SDQoS &) { return SDERR_NOT_SUPPORTED; }

}  // namespace vtsdm

namespace vtsdm {

namespace {
std::mutex g_noticeLock;
std::deque<std::string> g_notices;
}  // namespace

bool ReadTextFile(const std::string &path, std::string &text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    text.clear();
    char buf[65536];
    ssize_t n;
    try {
        while ((n = read(fd, buf, sizeof buf)) != 0) {
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) break;
            text.append(buf, size_t(n));
        }
    } catch (...) {
        close(fd);
        throw;
    }
    close(fd);
    return n == 0;
}

void Notice(const std::string &text) {
    fprintf(stderr, "vtsdm: %s\n", text.c_str());
    std::lock_guard<std::mutex> lock(g_noticeLock);
    if (g_notices.size() == kMaxNotices) g_notices.pop_front();
    g_notices.push_back(text);
}

bool OldestNotice(std::string &text) {
    std::lock_guard<std::mutex> lock(g_noticeLock);
    if (g_notices.empty()) return false;
    text = g_notices.front();
    return true;
}

void DropNotice(const std::string &text) {
    std::lock_guard<std::mutex> lock(g_noticeLock);
    if (!g_notices.empty() && g_notices.front() == text) g_notices.pop_front();
}

}  // namespace vtsdm
