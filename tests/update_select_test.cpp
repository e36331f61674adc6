// The choice of the components an image update writes into a card's flash,
// over the flash readers alone: the entries meant for the card type and chip
// revision, the first of each type, never the VPD, and nothing at all from a
// container that cannot be read.
#include <gtest/gtest.h>

#include "flash/flash_update.h"
#include "fuzz/flash_fuzz_stubs.h"
#include "imagebuild.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace img = vtsdm::image;
constexpr img::CardEntry kKiteCard{0x1077, 0x7C50, 0x1077, 0x0C60};

TEST(UpdateSelection, OnlyTheCardsComponentsAreWritten) {
    img::MultiImageRecipe recipe;
    recipe.cardLists = {{0, {kKiteCard}}};
    recipe.components = {{0x01, {9, 1, 1}, 0, 0, Bytes(64, 1)},
                         {0x07, {3, 1, 0}, 2, 0, Bytes(32, 2)},  // another card type
                         {0x07, {3, 2, 0}, 1, 0, Bytes(32, 3)},  // this one
                         {0x07, {3, 3, 0}, 0, 0, Bytes(32, 4)},  // a second for the type: the first counts
                         {0xD3, {2, 0, 0}, 0, 5, Bytes(16, 5)},  // another chip revision
                         {0x8C, {}, 0, 0, Bytes(16, 6)},         // VPD: kept
                         {0x9E, {}, 0, 2, Bytes(16, 7)}};
    const Bytes mbi = img::BuildMultiImage(recipe);
    const auto regions = vtflash::SelectImageRegions(mbi, 1, 2);
    ASSERT_TRUE(regions);
    ASSERT_EQ(regions->size(), 3u);
    EXPECT_EQ((*regions)[0].region, 0x01u);
    EXPECT_EQ((*regions)[1].region, 0x07u);
    EXPECT_EQ((*regions)[1].bytes, Bytes(32, 3));
    EXPECT_EQ((*regions)[2].region, 0x9Eu);

    Bytes cut = mbi;
    img::mutate::RegionExtent(cut, 0, 0x10000, 64);  // the firmware lies outside the file
    EXPECT_FALSE(vtflash::SelectImageRegions(cut, 1, 2));
    Bytes bad = mbi;
    img::mutate::Signature(bad, "XXXX");
    EXPECT_FALSE(vtflash::SelectImageRegions(bad, 1, 2));
    EXPECT_FALSE(vtflash::SelectImageRegions(vtflash::Bytes(mbi.data(), 20), 1, 2));
}

}  // namespace
