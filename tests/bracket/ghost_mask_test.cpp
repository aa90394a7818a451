#include "bracket/ghost_mask.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/fast_blur.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

using namespace orvo;

namespace {

float inSteps(float v) { return std::trunc(v * 255.0f) / 255.0f; }

// The definition on planes of floats, over all pixels.
std::vector<float> grownPlainly(const std::vector<float>& marks, int width, int height)
{
    std::vector<float> soft = marks;
    std::vector<float> blurred(marks.size());
    grfx_fast_blur_gray(blurred.data(), soft.data(), width, height, 10);
    for (int pass = 0; pass < 25; ++pass) {
        for (std::size_t p = 0; p < marks.size(); ++p)
            soft[p] = inSteps(std::max(marks[p], inSteps(blurred[p])));
        grfx_fast_blur_gray(blurred.data(), soft.data(), width, height, 10);
    }
    std::transform(blurred.begin(), blurred.end(), soft.begin(), inSteps);
    return soft;
}

std::vector<float> marksOf(int width, int height, int share)
{
    std::vector<float> marks(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    std::minstd_rand random(static_cast<unsigned>(width + height + share));
    for (float& mark : marks)
        mark = static_cast<int>(random() % 100000) < share ? 1.0f : 0.0f;
    return marks;
}

void markIn(GhostMask& mask, const std::vector<float>& marks, int width, int height)
{
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            mask.marks(y)[x] =
                marks[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] >
                0.0f;
}

} // namespace

TEST(GhostMask, GrowsAsItsDefinitionOverAllPixels)
{
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 40}, {2, 3}, {9, 200}, {128, 128}, {129, 257}, {700, 600}})
        for (const int share : {0, 4, 300, 100000}) {
            const auto marks = marksOf(width, height, share);
            const auto expected = grownPlainly(marks, width, height);
            GhostMask mask(width, height);
            markIn(mask, marks, width, height);
            mask.grow();
            int wrong = 0;
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    wrong += static_cast<float>(mask.levels(y)[x]) / 255.0f !=
                             expected[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                      static_cast<std::size_t>(x)];
            EXPECT_EQ(wrong, 0) << width << " x " << height << ", " << share;
        }
}

TEST(GhostMask, IsClearOnlyWhereNothingIsReplaced)
{
    constexpr int kSide = 1000;
    GhostMask mask(kSide, kSide);
    mask.marks(500)[500] = 1;
    mask.grow();
    int clear = 0;
    for (int y = 0; y < kSide; ++y)
        for (int first = 0, end = 0; first < kSide; first = end)
            if (mask.isClear(y, first, end)) {
                clear += end - first;
                EXPECT_TRUE(std::all_of(mask.levels(y) + first, mask.levels(y) + end,
                                        [](std::uint8_t level) { return level == 0; }));
            }
    EXPECT_GT(clear, kSide * kSide / 2);
}

TEST(GhostMask, IsTheSameForAnyNumberOfThreads)
{
    constexpr int kWidth = 700;
    constexpr int kHeight = 500;
    const auto marks = marksOf(kWidth, kHeight, 20);
    const auto grown = [&](int threads) {
        const WorkerLimit limit(threads);
        GhostMask mask(kWidth, kHeight);
        markIn(mask, marks, kWidth, kHeight);
        mask.grow();
        return std::vector<std::uint8_t>(mask.levels(0), mask.levels(0) + kWidth * kHeight);
    };
    const auto one = grown(1);
    EXPECT_EQ(grown(2), one);
    EXPECT_EQ(grown(5), one);
}
