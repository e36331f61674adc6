// Memo block of a card's flash (flash_memo.h).
#include "flash/flash_memo.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <numeric>

namespace vtflash {
namespace {

constexpr char kSignature[4] = {'V', 'T', 'M', 'B'};

uint32_t Sum(const uint8_t *p, size_t n) { return std::accumulate(p, p + n, uint32_t(0)); }

}  // namespace

Memo ParseMemoBlock(const uint8_t *data, size_t size) {
    Memo m;
    if (data == nullptr || size < 4 || std::all_of(data, data + 4, [](uint8_t b) { return b == 0xFF; })) return m;
    m.state = MemoState::kDamaged;
    if (size < kMemoHeader || std::memcmp(data, kSignature, sizeof kSignature) != 0 || (data[4] | data[5] << 8) != 1)
        return m;
    const size_t length = size_t(data[6] | data[7] << 8);
    if (length > size - kMemoHeader) return m;
    const uint32_t sum =
        uint32_t(data[8]) | uint32_t(data[9]) << 8 | uint32_t(data[10]) << 16 | uint32_t(data[11]) << 24;
    if (Sum(data + kMemoHeader, length) != sum) return m;
    m.state = MemoState::kText;
    m.text.assign(reinterpret_cast<const char *>(data + kMemoHeader), length);
    return m;
}

std::vector<uint8_t> BuildMemoBlock(const std::string &text) {
    const size_t length = std::min<size_t>(text.size(), 0xFFFF);
    std::vector<uint8_t> b(kMemoHeader + length);
    std::memcpy(b.data(), kSignature, sizeof kSignature);
    b[4] = 1;
    b[6] = uint8_t(length);
    b[7] = uint8_t(length >> 8);
    std::memcpy(b.data() + kMemoHeader, text.data(), length);
    const uint32_t sum = Sum(b.data() + kMemoHeader, length);
    for (int i = 0; i < 4; ++i) b[8 + i] = uint8_t(sum >> (8 * i));
    return b;
}

std::string UpdateMemoText(const std::string &fileName, const std::string &imageVersion, int64_t when) {
    const size_t slash = fileName.rfind('/');
    std::string text = "file=" + (slash == std::string::npos ? fileName : fileName.substr(slash + 1)) + "\n";
    if (!imageVersion.empty()) text += "image=" + imageVersion + "\n";
    const time_t t = time_t(when);
    struct tm utc {};
    char stamp[32] = "";
    if (gmtime_r(&t, &utc) != nullptr) std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S UTC", &utc);
    return text + "written=" + stamp + "\n";
}

}  // namespace vtflash
