// Real brackets: they merge, no new clipping appears, and tones stay in order. Users, and scripts/bench_merge.sh, judge
// the look.
#include "support/pictures.hpp"

#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

using namespace orvo;
using namespace orvo::test;

namespace {

std::vector<std::filesystem::path> filesBelow(const std::string& set)
{
    const char* const data = std::getenv("ORVO_TEST_DATA");
    if (data == nullptr)
        return {};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(data) / set))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

double shareAtWhite(const Picture& picture)
{
    std::size_t white = 0;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i)
        white += picture.data()[i].g >= 0.999f ? 1 : 0;
    return static_cast<double>(white) / static_cast<double>(picture.pixelCount());
}

} // namespace

class RealBrackets : public testing::TestWithParam<const char*>
{
protected:
    std::vector<std::filesystem::path> files;
    void SetUp() override
    {
        files = filesBelow(GetParam());
        if (files.empty())
            GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
    }
};

TEST_P(RealBrackets, MergeWithKeptHighlights)
{
    const auto [merged, middle] = make_HDR(files, {}, {}, nullptr);
    ASSERT_TRUE(merged);
    const auto pixels = merged->developedOriginalImageData({});
    EXPECT_EQ(pixels->size(), middle->size());
    EXPECT_LE(shareAtWhite(*pixels), std::max(0.002, shareAtWhite(*middle)));
    for (std::size_t i = 0; i < pixels->pixelCount(); ++i) {
        const auto& p = pixels->data()[i];
        ASSERT_TRUE(std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b)) << i;
        ASSERT_LE(std::max({p.r, p.g, p.b}), 1.1f) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Sets, RealBrackets,
                         testing::Values("brackets/canal_boat", "brackets/church_film", "brackets/living_room",
                                         "brackets/street_tree", "brackets/sunset_rocks", "brackets/window_player",
                                         "raw/building_ev"),
                         [](const auto& tested) {
                             const std::string set = tested.param;
                             return set.substr(set.find('/') + 1);
                         });

TEST(RealBracketOrder, ExifPutsFilesInOrder)
{
    const auto files = filesBelow("brackets/church_film");
    if (files.empty())
        GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
    auto shuffled = files;
    std::rotate(shuffled.begin(), shuffled.begin() + 7, shuffled.end());
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(shuffled);
    ASSERT_EQ(sorted.size(), 16u);
    EXPECT_TRUE(std::is_sorted(evs.begin(), evs.end()));
    for (std::size_t i = 1; i < evs.size(); ++i)
        EXPECT_NEAR(evs[i] - evs[i - 1], 1.0f, 0.1f) << "the film was exposed in whole stops";
    EXPECT_EQ(evs[8], 0.0f);
}

TEST(RealBracketOrder, BrightnessPutsFilesWithoutExifInOrder)
{
    const auto files = filesBelow("brackets/canal_boat");
    if (files.empty())
        GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
    const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(files);
    ASSERT_EQ(sorted.size(), 3u);
    EXPECT_EQ(sorted[0].filename(), "grandcanal_under.jpg");
    EXPECT_EQ(sorted[1].filename(), "grandcanal_mean.jpg");
    EXPECT_EQ(sorted[2].filename(), "grandcanal_over.jpg");
}
