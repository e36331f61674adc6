// The memo block of a card's flash: a short text that each image update
// writes together with the regions, saying which file and image version
// went in and when.
//
//   0  4  "VTMB"
//   4  2  format version (1), little-endian
//   6  2  text length n, little-endian
//   8  4  32-bit sum of the text bytes, little-endian
//  12  n  the text (lines "key=value\n", no NUL)
// A block whose first bytes are erased flash (0xFF) holds no memo.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vtflash {

constexpr size_t kMemoHeader = 12;

enum class MemoState { kText, kEmpty, kDamaged };

struct Memo {
    MemoState state = MemoState::kEmpty;
    std::string text;
};

// Reads the block from the region's bytes; never reads past size.
Memo ParseMemoBlock(const uint8_t *data, size_t size);

std::vector<uint8_t> BuildMemoBlock(const std::string &text);

// The memo an update of fileName (its image version, "" for none) writes at
// the time given (seconds since the epoch, UTC).
std::string UpdateMemoText(const std::string &fileName, const std::string &imageVersion, int64_t when);

}  // namespace vtflash
