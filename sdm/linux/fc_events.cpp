#include "fc_events.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "vtsdm.h"

namespace vtsdm::linuxfc {

namespace {

// The kernel's SCSI transport netlink interface (include/uapi/scsi/
// scsi_netlink.h and scsi_netlink_fc.h), which the C library headers lack.
constexpr int kNetlinkScsiTransport = 18;
constexpr uint32_t kGroupFcEvents = 1u << 2;
constexpr uint16_t kScsiNlMagic = 0xA1B2;
constexpr uint8_t kScsiNlTransportFc = 1;
constexpr uint16_t kFcNlAsyncEvent = 0x0100;

struct ScsiNlHeader {
    uint8_t version;
    uint8_t transport;
    uint16_t magic;
    uint16_t msgtype;
    uint16_t msglen;
} __attribute__((aligned(8)));

struct FcNlEvent {
    ScsiNlHeader header;
    uint64_t seconds;
    uint64_t vendorId;
    uint16_t hostNo;
    uint16_t eventDataLen;
    uint32_t eventNum;
    uint32_t eventCode;
    uint32_t eventData;
} __attribute__((aligned(8)));

constexpr uint32_t kEvtLip = 0x1;
constexpr uint32_t kEvtLinkUp = 0x2;
constexpr uint32_t kEvtLinkDown = 0x3;
constexpr uint32_t kEvtLipReset = 0x4;
constexpr uint32_t kEvtRscn = 0x5;
constexpr uint32_t kEvtAdapterChange = 0x103;
constexpr uint32_t kEvtPortOffline = 0x201;
constexpr uint32_t kEvtPortOnline = 0x202;
constexpr uint32_t kEvtPortFabric = 0x204;

}  // namespace

std::vector<FcHostEvent> DecodeFcEvents(const uint8_t *data, size_t size) {
    std::vector<FcHostEvent> out;
    size_t at = 0;
    while (at + sizeof(nlmsghdr) <= size) {
        nlmsghdr nh;
        memcpy(&nh, data + at, sizeof nh);
        if (nh.nlmsg_len < sizeof nh || nh.nlmsg_len > size - at) break;
        const size_t payload = nh.nlmsg_len - NLMSG_HDRLEN;
        if (nh.nlmsg_len >= NLMSG_HDRLEN && payload >= sizeof(FcNlEvent)) {
            FcNlEvent ev;
            memcpy(&ev, data + at + NLMSG_HDRLEN, sizeof ev);
            if (ev.header.magic == kScsiNlMagic && ev.header.transport == kScsiNlTransportFc &&
                ev.header.msgtype == kFcNlAsyncEvent)
                out.push_back({ev.hostNo, ev.eventCode});
        }
        const size_t step = NLMSG_ALIGN(nh.nlmsg_len);
        if (step == 0 || step > size - at) break;
        at += step;
    }
    return out;
}

uint32_t AenCodeOf(uint32_t code) {
    switch (code) {
    case kEvtLip: return SD_AEN_LIP_OCCURRED;
    case kEvtLinkUp:
    case kEvtPortOnline: return SD_AEN_LINK_UP;
    case kEvtLinkDown:
    case kEvtPortOffline: return SD_AEN_LINK_DOWN;
    case kEvtLipReset: return SD_AEN_LIP_RESET;
    case kEvtRscn:
    case kEvtAdapterChange:
    case kEvtPortFabric: return SD_AEN_DEVICE_UPDATE;
    default: return 0;
    }
}

FcEventSocket::FcEventSocket() {
    fd_ = socket(AF_NETLINK, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, kNetlinkScsiTransport);
    if (fd_ < 0) return;
    sockaddr_nl addr{};
    addr.nl_family = AF_NETLINK;
    addr.nl_groups = kGroupFcEvents;
    if (bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

FcEventSocket::~FcEventSocket() {
    if (fd_ >= 0) close(fd_);
}

std::vector<FcHostEvent> FcEventSocket::drain() {
    std::vector<FcHostEvent> out;
    if (fd_ < 0) return out;
    uint8_t buf[8192];
    for (;;) {
        ssize_t n = recv(fd_, buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        auto got = DecodeFcEvents(buf, size_t(n));
        out.insert(out.end(), got.begin(), got.end());
    }
    return out;
}

}  // namespace vtsdm::linuxfc
