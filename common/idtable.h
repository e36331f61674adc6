// Queries over the adapter maker's PCI ID tables (common/idtable.def): ISP
// type codes, adapter function types and chip families by PCI device ID, and
// board predicates by PCI subsystem pair.  Internal to both libraries.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vt::ids {

inline constexpr uint16_t kMakerVendorId = 0x1077;
// ISP type code of the 8 Gb chip, also given for every unknown device ID.
inline constexpr uint32_t kUnknownIspType = 12;
// ISP type field of chip rows that have no code (the non-FC families).
inline constexpr uint32_t kNoIsp = 0xFFFFFFFFu;
// Adapter function type of the FCoE functions and of unknown IDs.
inline constexpr uint32_t kOtherFunctionType = 6;

enum class Family : uint8_t {
    kLegacyFc,  // before 4 Gb (codes 0-7)
    kFc4G,      // codes 8-11
    kFc8G,      // code 12
    kPallas,    // code 13
    kCna1,      // first converged generation (14, 15)
    kTern,      // 16-19
    kOrla,      // the four Orla converged functions (20-23)
    kOrlaAlt,   // the further Orla FCoE ID (21)
    kOrlaFc16,  // Orla 16 Gb FC functions (24)
    kWren,      // 25
    kSkiff,     // 25
    kTove,      // 26
    kKite,      // 27
    kFinch,     // non-FC, function type 1
    kHeron,     // non-FC, function type 3
};

struct ChipRow {
    uint16_t deviceId;
    uint16_t ignoreMask;  // bits of the device ID that the row ignores
    uint32_t ispType;     // 0-27, or kNoIsp
    uint32_t functionType;
    Family family;
    const char *label;

    bool Matches(uint16_t did) const { return ((did ^ deviceId) & ~ignoreMask & 0xFFFFu) == 0; }
};

// Board predicate bits of a BoardRow.
enum BoardFlag : uint32_t {
    kBoardPallas = 1u << 0,
    kBoardMezz16 = 1u << 1,
    kBoardMezz32 = 1u << 2,
    kBoard16GFcOnly = 1u << 3,
    kBoardJinto = 1u << 4,
    kBoardTargetEp = 1u << 5,
    kBoardWren16 = 1u << 6,
    kBoardSkiff16 = 1u << 7,
    kBoardNoLowSpeeds = 1u << 8,  // data rates below 4 Gb/s refused
    kBoardModelSuffixS = 1u << 9,
    kBoardSingleBios = 1u << 10,
    kBoardOemMezz = 1u << 11,
    kBoardOemBlade = 1u << 12,
};

// One record of the board table file.
struct BoardRow {
    uint16_t ssvid;
    uint16_t ssdid;
    uint32_t flags;         // BoardFlag bits
    const char *isp;        // chip part number
    const char *desc;       // board description
    const char *supported;  // "TRUE" or "FALSE"
};

// --- chips, by PCI device ID ---

const std::vector<ChipRow> &ChipRows();
// The row that matches `did`, or null.
const ChipRow *FindChipRow(uint16_t did);

// ISP type code; 12 (the 8 Gb chip's) for an ID in no row, deliberately.
uint32_t IspTypeForDeviceId(uint16_t did);
// 1..8; 6 for FCoE functions and unknown IDs.
uint32_t AdapterFunctionType(uint16_t did);
// The canonical device ID of a code (its first row), if any.
std::optional<uint16_t> DeviceIdForIspType(uint32_t code);
// The chip label, or empty for an unknown ID.
std::string_view ChipLabel(uint16_t did);

// 1 or 2 for the two 4 Gb pairs (bit 4 ignored), else 0.
int Isp4GbType(uint16_t did);
bool IsIsp8Gb(uint16_t did);
// NVRAM image size: 256 below code 8, else 512.
uint32_t NvramSizeForIspType(uint32_t code);
// Codes 15, 17, 21 and 26: the FCoE functions of the converged chips.
bool IsFcoeIspType(uint32_t code);

bool IsPallasChip(uint16_t did);
bool IsFcoeCna(uint16_t did);  // codes 14, 15 and the FCoE functions
bool IsTern(uint16_t did);
bool IsOrla(uint16_t did);     // converged, further FCoE ID and 16 Gb FC
bool IsOrlaCna(uint16_t did);  // the four converged functions only
bool IsTove(uint16_t did);
bool IsKite(uint16_t did);
bool IsWrenChip(uint16_t did);
bool IsSkiffChip(uint16_t did);
bool MatchesWren32Pattern(uint16_t did);
bool MatchesSkiff32Pattern(uint16_t did);

// --- boards, by PCI subsystem vendor ID and subsystem ID ---

const std::vector<BoardRow> &BoardRows();
const BoardRow *FindBoard(uint16_t ssvid, uint16_t ssdid);

bool IsPallasBoard(uint16_t ssvid, uint16_t ssdid);
bool IsMezz16Board(uint16_t ssvid, uint16_t ssdid);
bool IsMezz32Board(uint16_t ssvid, uint16_t ssdid);
bool Is16GFcOnlyBoard(uint16_t ssvid, uint16_t ssdid);
bool IsJintoBoard(uint16_t ssvid, uint16_t ssdid);
bool IsTargetModeEpBoard(uint16_t ssvid, uint16_t ssdid);
bool IsEdcBoard(uint16_t ssvid, uint16_t ssdid);  // SSDID in an EDC range
bool IsWren16GBoard(uint16_t ssvid, uint16_t ssdid);
bool IsSkiff16GBoard(uint16_t ssvid, uint16_t ssdid);
bool HasModelSuffixS(uint16_t ssvid, uint16_t ssdid);
bool IsSingleBiosBoard(uint16_t ssvid, uint16_t ssdid);
bool IsOemMezzBoard(uint16_t ssvid, uint16_t ssdid);
bool IsOemBladeBoard(uint16_t ssvid, uint16_t ssdid);
// The board (by SSDID alone) that refuses data rates below 4 Gb/s.
bool IsNoLowSpeedsBoard(uint16_t ssdid);

// 1 for a 16 Gb board, 2 for a 32 Gb chip of the family, else 0.  The 16 Gb
// board test comes first, so a board is never both.
int WrenGeneration(uint16_t did, uint16_t ssvid, uint16_t ssdid);
int SkiffGeneration(uint16_t did, uint16_t ssvid, uint16_t ssdid);

}  // namespace vt::ids
