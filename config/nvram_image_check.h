// Checks of the NVRAM images users and adapters hand in: a saved NVRAM file
// before it is written to a port, a global NVRAM file, and the FC-NVMe boot
// parameters block read from flash.  Pure: the library's workers call them,
// and the fuzz targets run them on their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace vt::config {

// True when a 256-byte image's bytes, or a 512-byte image's little-endian
// words, sum to 0; false for every other size.
bool NvramChecksumOk(const uint8_t *image, size_t size);

// Reads an NVRAM variable of an image (0xFFFFFFFF when it has none).
using VariableReader = std::function<uint32_t(const std::vector<uint8_t> &image, uint32_t id)>;

enum class SavedImage { Ok, WrongSize, BadChecksum, OtherPort };
// A saved NVRAM file against the image the port holds: 256 or 512 bytes,
// a valid checksum, the port's size and the port's subsystem IDs.
SavedImage CheckSavedImage(const std::vector<uint8_t> &file, const std::vector<uint8_t> &current,
                           const VariableReader &variable);

// A global NVRAM file: 512 bytes with a valid checksum, carrying `wwpn`.
enum class GlobalImage { Ok, WrongSize, BadChecksum, OtherPort };
GlobalImage CheckGlobalImage(const std::vector<uint8_t> &file, const uint8_t *wwpn);
inline constexpr size_t kGlobalNvramSize = 512;
inline constexpr size_t kGlobalNvramWwpnOffset = 8;

// The FC-NVMe boot parameters block: signature "VNVM", then the words of
// the first `length` bytes (at most the block) sum to 0.
enum class NvmeBlock { Ok, BadSignature, BadChecksum };
NvmeBlock CheckNvmeBlock(const uint8_t *block, size_t size);

}  // namespace vt::config
