// The board table file "adapters_adapter_provider.properties": its text body
// and the authenticated container it is stored in.  Shared by the build-time
// generator (tools/boardtable_gen) and the reader in libvtapifconly, so the
// key, the container and the record syntax are defined once.  Users of this
// file link libcrypto.
//
// Container: an 8-byte header ("VTBT", version u16 big-endian, u16 zero),
// which is authenticated as additional data, a 12-byte nonce, the
// ciphertext and a 16-byte tag; AES-256-GCM with a key derived by SHA-256
// from a secret compiled into both sides.  The nonce is derived from the
// plaintext, so the same body always gives the same file.
//
// Body: one record a line, fields "key=value" separated by ';', e.g.
//   SSDID=0x0A16;SSVID=0x1077;ISP=VT2700;Desc=VT2516 ...;Supported=TRUE
// A backslash escapes '\', ';' and '=' in a value; "\n" stands for a line
// break.  Empty lines are ignored.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vt::boardtable {

inline constexpr char kFileName[] = "adapters_adapter_provider.properties";
inline constexpr std::array<uint8_t, 4> kMagic = {'V', 'T', 'B', 'T'};
inline constexpr uint16_t kVersion = 1;
inline constexpr size_t kHeaderSize = 8;
inline constexpr size_t kNonceSize = 12;
inline constexpr size_t kTagSize = 16;
inline constexpr size_t kOverhead = kHeaderSize + kNonceSize + kTagSize;

// The AES-256 key, SHA-256 of the compiled-in secret.
std::array<uint8_t, 32> DeriveKey();

// Enciphers `body` into a complete file image.  Throws std::runtime_error
// when libcrypto fails.
std::vector<uint8_t> Seal(std::string_view body);

enum class OpenStatus { kOk, kTruncated, kForeign, kDamaged };
// Why Open refused an image, as a short phrase for log lines.
const char *Describe(OpenStatus status);

// Deciphers a file image.  On success stores the body in `body` and returns
// kOk; a short image is kTruncated, a wrong magic or version kForeign, and a
// failed authentication kDamaged.
OpenStatus Open(std::span<const uint8_t> image, std::string &body);

// --- record syntax ---

using Record = std::vector<std::pair<std::string, std::string>>;

// One line for the record, fields in the given order, values escaped.
std::string FormatRecord(const Record &record);
// Parses one line into its fields, or nullopt when a field has no '=' or
// the line ends in a lone backslash.
std::optional<std::map<std::string, std::string>> ParseRecord(std::string_view line);

}  // namespace vt::boardtable
