#include "composer/inscribed_mask_rect.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <random>
#include <tuple>
#include <vector>

using namespace orvo;

namespace {

MaskImage& filled(MaskImage& mask, _Rect<int> rect, float value = 1.0f)
{
    mask.fillRect(value, rect);
    return mask;
}

// Every rectangle without a zero, by sums over the matrix, in the order of the tie-breaks.
cv::Rect bruteForce(const cv::Mat& binary)
{
    cv::Mat ones;
    cv::threshold(binary, ones, 0, 1, cv::THRESH_BINARY);
    cv::Mat sums;
    cv::integral(ones, sums, CV_32S);
    const auto sumOf = [&](int x0, int y0, int x1, int y1) {
        return sums.at<int>(y1, x1) - sums.at<int>(y0, x1) - sums.at<int>(y1, x0) + sums.at<int>(y0, x0);
    };
    cv::Rect best;
    for (int y0 = 0; y0 < binary.rows; ++y0)
        for (int y1 = y0 + 1; y1 <= binary.rows; ++y1)
            for (int x0 = 0; x0 < binary.cols; ++x0)
                for (int x1 = x0 + 1; x1 <= binary.cols; ++x1) {
                    const int area = (x1 - x0) * (y1 - y0);
                    if (area < best.area() || sumOf(x0, y0, x1, y1) != area)
                        continue;
                    const cv::Rect found(x0, y0, x1 - x0, y1 - y0);
                    // Largest, then flattest, then topmost, then leftmost.
                    if (best.area() == 0 || std::make_tuple(-area, found.height, y0, x0) <
                                                std::make_tuple(-best.area(), best.height, best.y, best.x))
                        best = found;
                }
    return best;
}

// Blobs, ragged bands or noise, with a border of zeros.
cv::Mat randomMask(std::mt19937& random)
{
    const auto upTo = [&](int last) { return std::uniform_int_distribution<int>(0, last)(random); };
    const cv::Size size(4 + upTo(20), 4 + upTo(16));
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    const int kind = upTo(2);
    if (kind == 0) {
        for (int i = 0; i < 4; ++i)
            cv::rectangle(mask, cv::Rect(upTo(size.width), upTo(size.height), 1 + upTo(12), 1 + upTo(10)), 255,
                          cv::FILLED);
    } else if (kind == 1) {
        for (int x = 0; x < size.width; ++x)
            for (int y = upTo(4); y < size.height - upTo(4); ++y)
                mask.at<std::uint8_t>(y, x) = 255;
    } else {
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                mask.at<std::uint8_t>(y, x) = upTo(5) > 0 ? 255 : 0;
    }
    cv::copyMakeBorder(mask, mask, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    return mask;
}

} // namespace

TEST(InscribedRectOfMask, AFullMaskLosesTenPixelsAtTheLeftAndAbove)
{
    EXPECT_EQ(inscribedRectOfMask(MaskImage({100, 50}, 1.0f)), _Rect<int>(10, 10, 90, 40));
}

TEST(InscribedRectOfMask, NothingGivesANegativeSize)
{
    EXPECT_EQ(inscribedRectOfMask(MaskImage({100, 50}, 0.0f)), _Rect<int>(5, 5, -10, -10));
}

TEST(InscribedRectOfMask, OfEqualAreasTheFlattestWins)
{
    MaskImage mask({60, 60}, 0.0f);
    filled(mask, {5, 30, 10, 20});
    filled(mask, {30, 5, 20, 10});
    EXPECT_EQ(inscribedRectOfMask(mask), _Rect<int>(40, 15, 10, 0)) << "that is (30, 5, 20, 10)";
    MaskImage turned({60, 60}, 0.0f);
    filled(turned, {5, 5, 10, 20});
    filled(turned, {30, 30, 20, 10});
    EXPECT_EQ(inscribedRectOfMask(turned), _Rect<int>(40, 40, 10, 0)) << "that is (30, 30, 20, 10)";
}

TEST(InscribedRectOfMask, OfEqualShapesTheTopmostWins)
{
    MaskImage mask({60, 60}, 0.0f);
    filled(mask, {30, 40, 20, 15});
    filled(mask, {2, 3, 20, 15});
    EXPECT_EQ(inscribedRectOfMask(mask), _Rect<int>(12, 13, 10, 5));
}

TEST(InscribedRectOfMask, HolesOfTheLargestRegionCountAsFilled)
{
    MaskImage mask({100, 50}, 1.0f);
    filled(mask, {40, 20, 8, 8}, 0.0f);
    EXPECT_EQ(inscribedRectOfMask(mask), _Rect<int>(10, 10, 90, 40));
}

TEST(InscribedRectOfMask, HolesOfIslandsStay)
{
    MaskImage mask({100, 100}, 0.0f);
    filled(mask, {10, 20, 40, 40});
    filled(mask, {60, 20, 39, 39});
    filled(mask, {70, 30, 10, 10}, 0.0f);
    EXPECT_EQ(inscribedRectOfMask(mask), _Rect<int>(20, 30, 30, 30));
}

TEST(InscribedRectOfMask, AnythingAboveZeroIsContent)
{
    // 1 of 255, the weakest that a mask of a render holds.
    EXPECT_EQ(inscribedRectOfMask(MaskImage({100, 50}, 1.0f / 255.0f)), _Rect<int>(10, 10, 90, 40));
}

TEST(FullRectOfMask, HolesAreNotContent)
{
    MaskImage mask({100, 50}, 1.0f);
    EXPECT_EQ(fullRectOfMask(mask), _Rect<int>(0, 0, 100, 50));
    filled(mask, {40, 20, 8, 8}, 0.0f);
    EXPECT_EQ(fullRectOfMask(mask), _Rect<int>(48, 0, 52, 50));
    filled(mask, {90, 40, 1, 1}, 0.0f);
    EXPECT_EQ(fullRectOfMask(mask), _Rect<int>(48, 0, 42, 50)) << "nor a single pixel";
    EXPECT_EQ(fullRectOfMask(MaskImage({100, 50}, 0.0f)), _Rect<int>());
}

TEST(CalculateMaxInscribedRect, EqualsABruteForceSearchOnRandomMasks)
{
    std::mt19937 random(11);
    for (int i = 0; i < 500; ++i) {
        cv::Mat mask = randomMask(random);
        const cv::Rect found = calculateMaxInscribedRect(mask); // fills the holes
        const cv::Rect truth = bruteForce(mask);
        ASSERT_EQ(found, truth) << "mask " << i << ":\n" << mask;
    }
}

TEST(CalculateMaxInscribedRect, OneThreadAndManyAgree)
{
    std::mt19937 random(3);
    for (int i = 0; i < 20; ++i) {
        cv::Mat mask = randomMask(random);
        cv::Mat again = mask.clone();
        const cv::Rect many = calculateMaxInscribedRect(mask);
        const WorkerLimit limit(1);
        EXPECT_EQ(calculateMaxInscribedRect(again), many);
    }
}
