#include "idtable.h"

#include <algorithm>

namespace vt::ids {
namespace {

struct Pattern {
    uint16_t base;
    uint16_t ignoreMask;
    bool Matches(uint16_t did) const { return ((did ^ base) & ~ignoreMask & 0xFFFFu) == 0; }
};

#define VT_PATTERN(name, base, ignore) constexpr Pattern k##name{base, ignore};
#include "idtable.def"

struct SsdidRange {
    uint16_t first;
    uint16_t last;
};

const std::vector<SsdidRange> &EdcRanges() {
    static const std::vector<SsdidRange> ranges = {
#define VT_EDC_RANGE(first, last) SsdidRange{first, last},
#include "idtable.def"
    };
    return ranges;
}

bool HasFlag(uint16_t ssvid, uint16_t ssdid, uint32_t flag) {
    const BoardRow *row = FindBoard(ssvid, ssdid);
    return row != nullptr && (row->flags & flag) != 0;
}

std::optional<Family> FamilyOf(uint16_t did) {
    const ChipRow *row = FindChipRow(did);
    if (row == nullptr) return std::nullopt;
    return row->family;
}

bool InFamily(uint16_t did, Family family) { return FamilyOf(did) == family; }

}  // namespace

const std::vector<ChipRow> &ChipRows() {
    static const std::vector<ChipRow> rows = {
#define VT_CHIP(did, ignore, isp, ftype, family, label) ChipRow{did, ignore, isp, ftype, Family::family, label},
#include "idtable.def"
    };
    return rows;
}

const ChipRow *FindChipRow(uint16_t did) {
    const auto &rows = ChipRows();
    auto it = std::find_if(rows.begin(), rows.end(), [did](const ChipRow &r) { return r.Matches(did); });
    return it == rows.end() ? nullptr : &*it;
}

uint32_t IspTypeForDeviceId(uint16_t did) {
    const ChipRow *row = FindChipRow(did);
    if (row == nullptr || row->ispType == kNoIsp) return kUnknownIspType;
    return row->ispType;
}

uint32_t AdapterFunctionType(uint16_t did) {
    const ChipRow *row = FindChipRow(did);
    return row == nullptr ? kOtherFunctionType : row->functionType;
}

std::optional<uint16_t> DeviceIdForIspType(uint32_t code) {
    if (code == kNoIsp) return std::nullopt;
    for (const ChipRow &row : ChipRows())
        if (row.ispType == code) return row.deviceId;
    return std::nullopt;
}

std::string_view ChipLabel(uint16_t did) {
    const ChipRow *row = FindChipRow(did);
    return row == nullptr ? std::string_view() : std::string_view(row->label);
}

int Isp4GbType(uint16_t did) {
    if (kIsp4GbPair1.Matches(did)) return 1;
    if (kIsp4GbPair2.Matches(did)) return 2;
    return 0;
}

bool IsIsp8Gb(uint16_t did) { return InFamily(did, Family::kFc8G); }

uint32_t NvramSizeForIspType(uint32_t code) { return code < 8 ? 256 : 512; }

bool IsFcoeIspType(uint32_t code) { return code == 15 || code == 17 || code == 21 || code == 26; }

bool IsPallasChip(uint16_t did) { return InFamily(did, Family::kPallas); }

bool IsFcoeCna(uint16_t did) {
    const ChipRow *row = FindChipRow(did);
    return row != nullptr && (row->ispType == 14 || IsFcoeIspType(row->ispType));
}

bool IsTern(uint16_t did) { return InFamily(did, Family::kTern); }

bool IsOrla(uint16_t did) {
    auto family = FamilyOf(did);
    return family == Family::kOrla || family == Family::kOrlaAlt || family == Family::kOrlaFc16;
}

bool IsOrlaCna(uint16_t did) { return InFamily(did, Family::kOrla); }
bool IsTove(uint16_t did) { return InFamily(did, Family::kTove); }
bool IsKite(uint16_t did) { return InFamily(did, Family::kKite); }
bool IsWrenChip(uint16_t did) { return InFamily(did, Family::kWren); }
bool IsSkiffChip(uint16_t did) { return InFamily(did, Family::kSkiff); }
bool MatchesWren32Pattern(uint16_t did) { return kWren32.Matches(did); }
bool MatchesSkiff32Pattern(uint16_t did) { return kSkiff32.Matches(did); }

const std::vector<BoardRow> &BoardRows() {
    static const std::vector<BoardRow> rows = {
#define VT_BOARD(ssvid, ssdid, flags, isp, desc, supported) \
    BoardRow{ssvid, ssdid, static_cast<uint32_t>(flags), isp, desc, supported},
#include "idtable.def"
    };
    return rows;
}

const BoardRow *FindBoard(uint16_t ssvid, uint16_t ssdid) {
    const auto &rows = BoardRows();
    auto it =
        std::find_if(rows.begin(), rows.end(), [&](const BoardRow &r) { return r.ssvid == ssvid && r.ssdid == ssdid; });
    return it == rows.end() ? nullptr : &*it;
}

bool IsPallasBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardPallas); }
bool IsMezz16Board(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardMezz16); }
bool IsMezz32Board(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardMezz32); }
bool Is16GFcOnlyBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoard16GFcOnly); }
bool IsJintoBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardJinto); }
bool IsTargetModeEpBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardTargetEp); }
bool IsWren16GBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardWren16); }
bool IsSkiff16GBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardSkiff16); }
bool HasModelSuffixS(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardModelSuffixS); }
bool IsSingleBiosBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardSingleBios); }
bool IsOemMezzBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardOemMezz); }
bool IsOemBladeBoard(uint16_t v, uint16_t d) { return HasFlag(v, d, kBoardOemBlade); }

bool IsEdcBoard(uint16_t ssvid, uint16_t ssdid) {
    if (ssvid != kMakerVendorId) return false;
    const auto &ranges = EdcRanges();
    return std::any_of(ranges.begin(), ranges.end(),
                       [ssdid](const SsdidRange &r) { return ssdid >= r.first && ssdid <= r.last; });
}

bool IsNoLowSpeedsBoard(uint16_t ssdid) {
    const auto &rows = BoardRows();
    return std::any_of(rows.begin(), rows.end(),
                       [ssdid](const BoardRow &r) { return r.ssdid == ssdid && (r.flags & kBoardNoLowSpeeds) != 0; });
}

int WrenGeneration(uint16_t did, uint16_t ssvid, uint16_t ssdid) {
    if (IsWren16GBoard(ssvid, ssdid)) return 1;
    if (IspTypeForDeviceId(did) == 25 && MatchesWren32Pattern(did)) return 2;
    return 0;
}

int SkiffGeneration(uint16_t did, uint16_t ssvid, uint16_t ssdid) {
    if (IsSkiff16GBoard(ssvid, ssdid)) return 1;
    if (IspTypeForDeviceId(did) == 25 && MatchesSkiff32Pattern(did)) return 2;
    return 0;
}

}  // namespace vt::ids
