#include "idtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>

namespace ids = vt::ids;

namespace {

std::vector<const ids::ChipRow *> RowsWhere(bool (*pred)(const ids::ChipRow &)) {
    std::vector<const ids::ChipRow *> out;
    for (const auto &row : ids::ChipRows())
        if (pred(row)) out.push_back(&row);
    return out;
}

std::vector<const ids::BoardRow *> BoardsWithFlag(uint32_t flag) {
    std::vector<const ids::BoardRow *> out;
    for (const auto &row : ids::BoardRows())
        if (row.flags & flag) out.push_back(&row);
    return out;
}

}  // namespace

TEST(IdTableChips, UnknownIdIsTreatedAsThe8GbChip) {
    for (uint16_t did : {0x0000, 0xFFFF, 0x5101, 0x2222})
        EXPECT_EQ(ids::IspTypeForDeviceId(did), 12u) << std::hex << did;
    // Non-FC chips are known rows but have no ISP code either.
    EXPECT_EQ(ids::IspTypeForDeviceId(0x5E00), 12u);
    // The 8 Gb chip itself is 12 and is the only thing IsIsp8Gb accepts.
    auto did8 = ids::DeviceIdForIspType(12);
    ASSERT_TRUE(did8);
    EXPECT_TRUE(ids::IsIsp8Gb(*did8));
    EXPECT_FALSE(ids::IsIsp8Gb(0x0000));
    EXPECT_FALSE(ids::IsIsp8Gb(0x5E00));
    EXPECT_EQ(ids::AdapterFunctionType(0x0000), 6u);
    EXPECT_TRUE(ids::ChipLabel(0x0000).empty());
    EXPECT_FALSE(ids::FindChipRow(0x0000));
}

TEST(IdTableChips, Bit3IgnoredRowsMatchBothIds) {
    std::set<uint32_t> codes;
    for (const auto &row : ids::ChipRows()) {
        const uint16_t other = row.deviceId ^ 0x08;
        if (row.ignoreMask == 0x08) {
            EXPECT_EQ(ids::FindChipRow(row.deviceId), &row);
            EXPECT_EQ(ids::FindChipRow(other), &row) << std::hex << other;
            EXPECT_EQ(ids::ChipLabel(other), row.label);
            codes.insert(row.ispType);
        } else {
            EXPECT_EQ(row.ignoreMask, 0) << row.label;
            EXPECT_NE(ids::FindChipRow(other), &row) << row.label;
        }
    }
    // Pre-4 Gb, 8 Gb, Wren/Skiff and Kite all carry such rows.
    EXPECT_EQ(codes, (std::set<uint32_t>{3, 7, 12, 25, 27}));
}

TEST(IdTableChips, FourGbPairsIgnoreBit4) {
    for (uint32_t code = 8; code <= 11; ++code) {
        auto did = ids::DeviceIdForIspType(code);
        ASSERT_TRUE(did);
        EXPECT_EQ(ids::Isp4GbType(*did), code <= 9 ? 1 : 2) << code;
    }
    // The two chips of a pair differ in bit 4 alone.
    EXPECT_EQ(*ids::DeviceIdForIspType(8) ^ *ids::DeviceIdForIspType(9), 0x10);
    EXPECT_EQ(*ids::DeviceIdForIspType(10) ^ *ids::DeviceIdForIspType(11), 0x10);
    // Nothing outside the four chips is a 4 Gb type.
    for (uint32_t did = 0; did <= 0xFFFF; ++did) {
        int type = ids::Isp4GbType(static_cast<uint16_t>(did));
        uint32_t code = ids::IspTypeForDeviceId(static_cast<uint16_t>(did));
        if (type != 0) EXPECT_TRUE(code >= 8 && code <= 11) << std::hex << did;
        else EXPECT_FALSE(code >= 8 && code <= 11) << std::hex << did;
    }
}

TEST(IdTableChips, EveryCodeHasARowAndRoundTrips) {
    for (uint32_t code = 0; code <= 27; ++code) {
        auto did = ids::DeviceIdForIspType(code);
        ASSERT_TRUE(did) << code;
        EXPECT_EQ(ids::IspTypeForDeviceId(*did), code);
        EXPECT_FALSE(ids::ChipLabel(*did).empty());
    }
    EXPECT_FALSE(ids::DeviceIdForIspType(28));
    EXPECT_FALSE(ids::DeviceIdForIspType(ids::kNoIsp));
}

TEST(IdTableChips, NoDeviceIdMatchesTwoRows) {
    const auto &rows = ids::ChipRows();
    for (uint32_t did = 0; did <= 0xFFFF; ++did) {
        int hits = static_cast<int>(std::count_if(
            rows.begin(), rows.end(), [&](const auto &r) { return r.Matches(static_cast<uint16_t>(did)); }));
        ASSERT_LE(hits, 1) << std::hex << did;
    }
    std::set<std::string> labels;
    for (const auto &row : rows) EXPECT_TRUE(labels.insert(row.label).second) << row.label;
}

TEST(IdTableChips, FamilyGroupsFollowTheCodes) {
    for (const auto &row : ids::ChipRows()) {
        const uint16_t d = row.deviceId;
        const uint32_t c = ids::IspTypeForDeviceId(d);
        SCOPED_TRACE(row.label);
        EXPECT_EQ(ids::IsTern(d), c >= 16 && c <= 19);
        EXPECT_EQ(ids::IsOrla(d), c >= 20 && c <= 24);
        EXPECT_EQ(ids::IsTove(d), c == 26);
        EXPECT_EQ(ids::IsKite(d), c == 27);
        EXPECT_EQ(ids::IsPallasChip(d), c == 13);
        EXPECT_EQ(ids::IsWrenChip(d) || ids::IsSkiffChip(d), c == 25);
        EXPECT_EQ(ids::IsFcoeCna(d), c == 14 || c == 15 || c == 17 || c == 21 || c == 26);
        EXPECT_TRUE(!ids::IsOrlaCna(d) || (c >= 20 && c <= 23));
        EXPECT_TRUE(!ids::MatchesWren32Pattern(d) || ids::IsWrenChip(d));
        EXPECT_TRUE(!ids::MatchesSkiff32Pattern(d) || ids::IsSkiffChip(d));
        EXPECT_EQ(ids::NvramSizeForIspType(c), c < 8 ? 256u : 512u);

        const uint32_t ft = ids::AdapterFunctionType(d);
        if (row.ispType == ids::kNoIsp) {
            EXPECT_TRUE(ft == 1 || ft == 3);
        } else if (ids::IsFcoeIspType(c)) {
            EXPECT_EQ(ft, 6u);
        } else if (c <= 12 || c == 24 || c == 25 || c == 27) {
            EXPECT_EQ(ft, 2u);
        } else if (c == 13) {
            EXPECT_EQ(ft, 4u);
        } else {
            // First, third and fourth functions of the converged families.
            const uint32_t first = c == 14 ? 14 : (c <= 19 ? 16 : 20);
            const std::array<uint32_t, 4> expected = {5, 6, 7, 8};
            EXPECT_EQ(ft, expected.at(c - first));
        }
    }
    auto count = [](bool (*pred)(uint16_t)) {
        return std::count_if(ids::ChipRows().begin(), ids::ChipRows().end(),
                             [pred](const ids::ChipRow &r) { return pred(r.deviceId); });
    };
    EXPECT_EQ(count(ids::IsTern), 4);
    EXPECT_EQ(count(ids::IsOrlaCna), 4);
    EXPECT_EQ(count(ids::IsTove), 2);
    // Exactly one further Orla ID of code 21, outside the converged four.
    auto extra = RowsWhere([](const ids::ChipRow &r) { return r.ispType == 21 && !ids::IsOrlaCna(r.deviceId); });
    ASSERT_EQ(extra.size(), 1u);
    EXPECT_TRUE(ids::IsOrla(extra[0]->deviceId));
    EXPECT_GE(RowsWhere([](const ids::ChipRow &r) { return r.ispType == 24; }).size(), 2u);
    EXPECT_FALSE(RowsWhere([](const ids::ChipRow &r) { return r.functionType == 1; }).empty());
    EXPECT_FALSE(RowsWhere([](const ids::ChipRow &r) { return r.functionType == 3; }).empty());
    // The 32 Gb patterns pick out known chips of their own family only.
    for (uint32_t v = 0; v <= 0xFFFF; ++v) {
        const auto did = static_cast<uint16_t>(v);
        ASSERT_TRUE(!ids::MatchesWren32Pattern(did) || ids::IsWrenChip(did)) << std::hex << v;
        ASSERT_TRUE(!ids::MatchesSkiff32Pattern(did) || ids::IsSkiffChip(did)) << std::hex << v;
    }
    EXPECT_FALSE(RowsWhere([](const ids::ChipRow &r) {
                     return ids::IsWrenChip(r.deviceId) && !ids::MatchesWren32Pattern(r.deviceId);
                 }).empty());
    EXPECT_FALSE(RowsWhere([](const ids::ChipRow &r) {
                     return ids::IsSkiffChip(r.deviceId) && !ids::MatchesSkiff32Pattern(r.deviceId);
                 }).empty());
}

TEST(IdTableBoards, RowsAreWellFormedAndUnique) {
    std::set<std::pair<uint16_t, uint16_t>> pairs;
    for (const auto &row : ids::BoardRows()) {
        SCOPED_TRACE(row.desc);
        EXPECT_TRUE(pairs.insert({row.ssvid, row.ssdid}).second);
        EXPECT_TRUE(std::strcmp(row.supported, "TRUE") == 0 || std::strcmp(row.supported, "FALSE") == 0);
        EXPECT_GT(std::strlen(row.desc), 0u);
        EXPECT_LT(std::strlen(row.desc), 128u);
        EXPECT_GT(std::strlen(row.isp), 0u);
        EXPECT_EQ(ids::FindBoard(row.ssvid, row.ssdid), &row);
    }
    EXPECT_FALSE(ids::FindBoard(0x0000, 0x0000));
}

TEST(IdTableBoards, PredicateSetsHaveTheirShape) {
    auto maker = [](const std::vector<const ids::BoardRow *> &rows) {
        return std::all_of(rows.begin(), rows.end(),
                           [](const ids::BoardRow *r) { return r->ssvid == ids::kMakerVendorId; });
    };
    EXPECT_EQ(BoardsWithFlag(ids::kBoardPallas).size(), 1u);
    EXPECT_EQ(BoardsWithFlag(ids::kBoardJinto).size(), 1u);
    EXPECT_EQ(BoardsWithFlag(ids::kBoard16GFcOnly).size(), 2u);
    for (uint32_t flag : {ids::kBoardMezz16, ids::kBoardMezz32}) {
        auto rows = BoardsWithFlag(flag);
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_TRUE(maker(rows));
        // The same SSDID under another vendor is not the mezzanine board.
        EXPECT_FALSE(ids::IsMezz16Board(0x1E5A, rows[0]->ssdid));
        EXPECT_FALSE(ids::IsMezz32Board(0x1E5A, rows[0]->ssdid));
    }

    auto ep = BoardsWithFlag(ids::kBoardTargetEp);
    ASSERT_EQ(ep.size(), 7u);
    EXPECT_TRUE(maker(ep));
    auto [lo, hi] = std::minmax_element(ep.begin(), ep.end(), [](auto *a, auto *b) { return a->ssdid < b->ssdid; });
    EXPECT_LE((*hi)->ssdid - (*lo)->ssdid, 22);
    for (auto *r : ep) EXPECT_TRUE(ids::IsTargetModeEpBoard(r->ssvid, r->ssdid));
    EXPECT_FALSE(ids::IsTargetModeEpBoard(0x1D27, ep[0]->ssdid));

    // The low-speed override keys on SSDID 0x69E alone.
    auto slow = BoardsWithFlag(ids::kBoardNoLowSpeeds);
    ASSERT_EQ(slow.size(), 1u);
    EXPECT_EQ(slow[0]->ssdid, 0x069E);
    EXPECT_TRUE(ids::IsNoLowSpeedsBoard(0x069E));
    EXPECT_FALSE(ids::IsNoLowSpeedsBoard(0x069F));

    for (uint32_t flag : {ids::kBoardModelSuffixS, ids::kBoardSingleBios, ids::kBoardOemMezz, ids::kBoardOemBlade,
                          ids::kBoardWren16, ids::kBoardSkiff16})
        EXPECT_FALSE(BoardsWithFlag(flag).empty()) << flag;
    // Each query answers for its own rows only.
    struct Query {
        uint32_t flag;
        bool (*fn)(uint16_t, uint16_t);
    };
    const Query queries[] = {
        {ids::kBoardPallas, ids::IsPallasBoard},         {ids::kBoardMezz16, ids::IsMezz16Board},
        {ids::kBoardMezz32, ids::IsMezz32Board},         {ids::kBoard16GFcOnly, ids::Is16GFcOnlyBoard},
        {ids::kBoardJinto, ids::IsJintoBoard},           {ids::kBoardTargetEp, ids::IsTargetModeEpBoard},
        {ids::kBoardWren16, ids::IsWren16GBoard},        {ids::kBoardSkiff16, ids::IsSkiff16GBoard},
        {ids::kBoardModelSuffixS, ids::HasModelSuffixS}, {ids::kBoardSingleBios, ids::IsSingleBiosBoard},
        {ids::kBoardOemMezz, ids::IsOemMezzBoard},       {ids::kBoardOemBlade, ids::IsOemBladeBoard},
    };
    for (const auto &row : ids::BoardRows())
        for (const auto &q : queries) EXPECT_EQ(q.fn(row.ssvid, row.ssdid), (row.flags & q.flag) != 0) << row.desc;
}

TEST(IdTableBoards, EdcRangesAreThreeSmallRunsOfListedBoards) {
    std::vector<std::pair<uint16_t, uint16_t>> runs;
    for (uint32_t d = 0; d <= 0xFFFF; ++d) {
        const auto ssdid = static_cast<uint16_t>(d);
        if (!ids::IsEdcBoard(ids::kMakerVendorId, ssdid)) continue;
        EXPECT_TRUE(ids::FindBoard(ids::kMakerVendorId, ssdid)) << std::hex << d;
        EXPECT_FALSE(ids::IsEdcBoard(0x1E5A, ssdid));
        if (!runs.empty() && runs.back().second + 1u == d) runs.back().second = ssdid;
        else runs.push_back({ssdid, ssdid});
    }
    ASSERT_EQ(runs.size(), 3u);
    for (auto [first, last] : runs) EXPECT_LE(last - first, 7);
}

TEST(IdTableBoards, WrenAndSkiffGenerationsAreExclusive) {
    auto w32 = RowsWhere([](const ids::ChipRow &r) { return ids::MatchesWren32Pattern(r.deviceId); });
    auto s32 = RowsWhere([](const ids::ChipRow &r) { return ids::MatchesSkiff32Pattern(r.deviceId); });
    auto w16 = RowsWhere(
        [](const ids::ChipRow &r) { return ids::IsWrenChip(r.deviceId) && !ids::MatchesWren32Pattern(r.deviceId); });
    ASSERT_FALSE(w32.empty());
    ASSERT_FALSE(s32.empty());
    ASSERT_FALSE(w16.empty());
    const uint16_t wren32 = w32[0]->deviceId, skiff32 = s32[0]->deviceId;
    const auto &boards = ids::BoardRows();
    auto plainIt = std::find_if(boards.begin(), boards.end(), [](const ids::BoardRow &r) { return r.flags == 0; });
    ASSERT_NE(plainIt, boards.end());
    const ids::BoardRow &plain = *plainIt;
    for (const auto &row : ids::BoardRows()) {
        SCOPED_TRACE(row.desc);
        EXPECT_FALSE(ids::IsWren16GBoard(row.ssvid, row.ssdid) && ids::IsSkiff16GBoard(row.ssvid, row.ssdid));
        // A 16 Gb board wins over the 32 Gb chip pattern it is built on.
        const int wren = ids::WrenGeneration(wren32, row.ssvid, row.ssdid);
        EXPECT_EQ(wren, ids::IsWren16GBoard(row.ssvid, row.ssdid) ? 1 : 2);
        const int skiff = ids::SkiffGeneration(skiff32, row.ssvid, row.ssdid);
        EXPECT_EQ(skiff, ids::IsSkiff16GBoard(row.ssvid, row.ssdid) ? 1 : 2);
    }
    // A 32 Gb pattern of one family says nothing about the other.
    EXPECT_EQ(ids::WrenGeneration(skiff32, plain.ssvid, plain.ssdid), 0);
    EXPECT_EQ(ids::SkiffGeneration(wren32, plain.ssvid, plain.ssdid), 0);
    EXPECT_EQ(ids::WrenGeneration(wren32 ^ 0x08, plain.ssvid, plain.ssdid), 2);
    // The 16 Gb chip ID is not of the 32 Gb pattern: only its board says 16 Gb.
    EXPECT_EQ(ids::WrenGeneration(w16[0]->deviceId, plain.ssvid, plain.ssdid), 0);
}
