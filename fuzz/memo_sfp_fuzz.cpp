// libFuzzer target: the memo block read from a card's flash and the SFP
// module firmware files a user hands in.  The first byte picks the reader;
// both must take any bytes, never read past them, and agree with their own
// writers on what they accept.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "flash/flash_memo.h"
#include "sdm/sfp_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // An exact copy, so the sanitizer sees any read past the input.
    const std::vector<uint8_t> in(data + 1, data + size);
    if (data[0] & 1) {
        const vtflash::Memo m = vtflash::ParseMemoBlock(in.data(), in.size());
        if (m.state == vtflash::MemoState::kText) {
            const std::vector<uint8_t> again = vtflash::BuildMemoBlock(m.text);
            const vtflash::Memo back = vtflash::ParseMemoBlock(again.data(), again.size());
            if (back.state != vtflash::MemoState::kText || back.text != m.text) std::abort();
        }
    } else {
        vtsdm::sfp::SfpImage image;
        if (vtsdm::sfp::ParseSfpImage(in.data(), in.size(), image) == vtsdm::sfp::SfpCheck::kOk &&
            (image.codeLength != in.size() - vtsdm::sfp::kSfpHeader || image.vendor.size() > 16))
            std::abort();
    }
    return 0;
}
