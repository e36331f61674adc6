// FC host events the kernel broadcasts on the SCSI transport netlink
// socket (group "FC events"), read without blocking.
#pragma once

#include <cstdint>
#include <cstddef>
#include <vector>

namespace vtsdm::linuxfc {

struct FcHostEvent {
    uint32_t hostNo = 0;
    uint32_t code = 0;  // the kernel's FC host event code
};

// Decodes one datagram of netlink messages; messages that are not FC
// asynchronous events, or are cut short, are skipped.
std::vector<FcHostEvent> DecodeFcEvents(const uint8_t *data, size_t size);

// SD_AEN_* code of a kernel FC host event, 0 for events the library has no
// code for.
uint32_t AenCodeOf(uint32_t fcEventCode);

// A subscription to the FC event group.  valid() is false where the kernel
// or the process's rights do not allow it; then nothing is ever read.
class FcEventSocket {
public:
    FcEventSocket();
    ~FcEventSocket();
    FcEventSocket(const FcEventSocket &) = delete;
    FcEventSocket &operator=(const FcEventSocket &) = delete;
    bool valid() const { return fd_ >= 0; }
    // Everything queued now, oldest first.
    std::vector<FcHostEvent> drain();

private:
    int fd_ = -1;
};

}  // namespace vtsdm::linuxfc
