#include "test_planes.hpp"

#include <orvo_image_processing/guided_filter.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>

using orvo::PixelRGB;
using planes::area;
using Picture = std::vector<PixelRGB<float>>;

namespace {

Picture filtered(const Picture& picture, int width, int height, float radius, float eps)
{
    Picture result(picture.size());
    orvo::grfx_guided_filter_rgb_fast(picture.data(), result.data(), width, height, radius, eps);
    return result;
}

struct Coefficients
{
    std::array<std::array<double, 3>, 3> a{};
    std::array<double, 3> o{};
};

/// (S + eps)^-1 S by elimination, from the pixels of one window.
Coefficients directWindow(const Picture& p, int width, int x0, int x1, int y0, int y1, double eps)
{
    std::array<double, 3> mean{};
    std::array<std::array<double, 6>, 3> m{};
    double n = 0;
    const auto at = [&](int x, int y) {
        const auto& v = p[area(width, y) + static_cast<std::size_t>(x)];
        return std::array<double, 3>{static_cast<double>(v.r), static_cast<double>(v.g), static_cast<double>(v.b)};
    };
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x, ++n)
            for (std::size_t c = 0; c < 3; ++c)
                mean[c] += at(x, y)[c];
    for (double& v : mean)
        v /= n;
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x)
            for (std::size_t i = 0; i < 3; ++i)
                for (std::size_t j = 0; j < 3; ++j)
                    m[i][j] += (at(x, y)[i] - mean[i]) * (at(x, y)[j] - mean[j]) / n;
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j)
            m[i][j + 3] = m[i][j];
        m[i][i] += eps;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        const double pivot = m[i][i];
        for (double& v : m[i])
            v /= pivot;
        for (std::size_t k = 0; k < 3; ++k)
            if (k != i) {
                const double factor = m[k][i];
                for (std::size_t j = 0; j < 6; ++j)
                    m[k][j] -= factor * m[i][j];
            }
    }
    Coefficients c;
    for (std::size_t i = 0; i < 3; ++i) {
        c.o[i] = mean[i];
        for (std::size_t j = 0; j < 3; ++j) {
            c.a[i][j] = m[i][j + 3];
            c.o[i] -= c.a[i][j] * mean[j];
        }
    }
    return c;
}

Picture directFilter(const Picture& p, int width, int height, int radius, double eps)
{
    std::vector<Coefficients> windows(p.size());
    const auto low = [radius](int v) { return std::max(0, v - radius); };
    const auto high = [radius](int v, int size) { return std::min(size - 1, v + radius); };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            windows[area(width, y) + static_cast<std::size_t>(x)] =
                directWindow(p, width, low(x), high(x, width), low(y), high(y, height), eps);
    Picture result(p.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::array<double, 3> sum{};
            double n = 0;
            const auto& v = p[area(width, y) + static_cast<std::size_t>(x)];
            for (int wy = low(y); wy <= high(y, height); ++wy)
                for (int wx = low(x); wx <= high(x, width); ++wx, ++n) {
                    const Coefficients& c = windows[area(width, wy) + static_cast<std::size_t>(wx)];
                    for (std::size_t i = 0; i < 3; ++i)
                        sum[i] += c.a[i][0] * static_cast<double>(v.r) + c.a[i][1] * static_cast<double>(v.g) +
                                  c.a[i][2] * static_cast<double>(v.b) + c.o[i];
                }
            result[area(width, y) + static_cast<std::size_t>(x)] = {
                static_cast<float>(sum[0] / n), static_cast<float>(sum[1] / n), static_cast<float>(sum[2] / n)};
        }
    return result;
}

float largestDifference(const Picture& a, const Picture& b)
{
    float largest = 0.0f;
    for (std::size_t i = 0; i < a.size(); ++i)
        for (const float d : {a[i].r - b[i].r, a[i].g - b[i].g, a[i].b - b[i].b})
            largest = std::isnan(d) ? 1e9f : std::max(largest, std::abs(d));
    return largest;
}

/// Coloured plateaus with grain.
Picture plateaus(int width, int height)
{
    Picture picture = planes::noisePicture(width, height, 8);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto& p = picture[area(width, y) + static_cast<std::size_t>(x)];
            const bool right = x > width / 2;
            const bool low = y > height / 3;
            p = {0.1f * p.r + (right ? 0.8f : 0.1f), 0.1f * p.g + (low ? 0.6f : 0.2f),
                 0.1f * p.b + (right != low ? 0.1f : 0.7f)};
        }
    return picture;
}

} // namespace

TEST(GuidedFilter, EqualsTheDirectOneWhereBlocksArePixels)
{
    for (const auto& [width, height] : {std::pair{31, 23}, {1, 40}, {40, 1}, {2, 2}, {9, 7}})
        for (const int radius : {1, 3, 7})
            for (const float eps : {0.0005f, 0.2f}) {
                const Picture picture = plateaus(width, height);
                EXPECT_LT(largestDifference(filtered(picture, width, height, static_cast<float>(radius), eps),
                                            directFilter(picture, width, height, radius, static_cast<double>(eps))),
                          3e-5f)
                    << width << 'x' << height << " r " << radius << " eps " << eps;
            }
}

TEST(GuidedFilter, CoarseCoefficientsStayNearTheDirectOne)
{
    const Picture picture = plateaus(90, 70);
    for (const int radius : {8, 13, 20})
        for (const float eps : {0.01f, 0.2f})
            EXPECT_LT(largestDifference(filtered(picture, 90, 70, static_cast<float>(radius), eps),
                                        directFilter(picture, 90, 70, radius, static_cast<double>(eps))),
                      0.03f)
                << radius << ' ' << eps;
}

TEST(GuidedFilter, ZeroEpsGivesThePictureAndHugeEpsTheMean)
{
    const Picture picture = planes::noisePicture(64, 50, 1);
    EXPECT_TRUE(planes::sameBytes(filtered(picture, 64, 50, 12.0f, 0.0f), picture));
    EXPECT_LT(largestDifference(filtered(picture, 64, 50, 12.0f, 1e-7f), picture), 1e-3f);
    PixelRGB<double> mean;
    for (const auto& p : picture) {
        mean.r += static_cast<double>(p.r) / 3200;
        mean.g += static_cast<double>(p.g) / 3200;
        mean.b += static_cast<double>(p.b) / 3200;
    }
    const Picture flat(picture.size(),
                       {static_cast<float>(mean.r), static_cast<float>(mean.g), static_cast<float>(mean.b)});
    for (const float eps : {1e6f, 1e30f, std::numeric_limits<float>::infinity()})
        EXPECT_LT(largestDifference(filtered(picture, 64, 50, 500.0f, eps), flat), 1e-4f) << eps;
}

TEST(GuidedFilter, KeepsConstantsEdgesAndTheMean)
{
    const Picture flat(area(100, 80), {0.3f, 0.6f, 1.7f});
    EXPECT_LT(largestDifference(filtered(flat, 100, 80, 20.0f, 0.2f), flat), 1e-5f);
    Picture step(area(200, 40), {0.1f, 0.1f, 0.1f});
    for (std::size_t i = 0; i < step.size(); ++i)
        if (i % 200 >= 100)
            step[i] = {0.9f, 0.9f, 0.9f};
    const Picture sharp = filtered(step, 200, 40, 16.0f, 0.001f);
    const std::size_t row = area(200, 20);
    EXPECT_GT(sharp[row + 100].g - sharp[row + 99].g, 0.75f);
    const Picture soft = filtered(step, 200, 40, 16.0f, 100.0f);
    EXPECT_LT(soft[row + 100].g - soft[row + 99].g, 0.05f);
}

TEST(GuidedFilter, FineTextureCountsWithItsFullVariance)
{
    // A checkerboard is flat in every reduced picture; its variance of 0.09 must still dominate a small eps.
    Picture board(area(256, 256));
    for (std::size_t i = 0; i < board.size(); ++i) {
        const float v = ((i % 256) + (i / 256)) % 2 == 0 ? 0.2f : 0.8f;
        board[i] = {v, v, v};
    }
    EXPECT_LT(largestDifference(filtered(board, 256, 256, 64.0f, 0.0001f), board), 0.01f);
}

TEST(GuidedFilter, HandlesAnySizeAndRadius)
{
    for (const auto& [width, height] : planes::awkwardSizes())
        for (const float radius : {-1.0f, 0.0f, 0.5f, 1.0f, 9.0f, 64.0f, 1e9f, std::nanf("")}) {
            const Picture picture(area(width, height), {0.25f, 0.5f, 0.75f});
            EXPECT_LT(largestDifference(filtered(picture, width, height, radius, 0.2f), picture), 1e-5f)
                << width << 'x' << height << " r " << radius;
        }
}

TEST(GuidedFilter, ABadSampleDoesNotSpread)
{
    for (const float bad : {std::nanf(""), std::numeric_limits<float>::infinity(), 1e30f}) {
        Picture picture(area(300, 100), {0.25f, 0.5f, 0.75f});
        picture[area(300, 50) + 20].g = bad;
        const Picture result = filtered(picture, 300, 100, 16.0f, 0.2f);
        EXPECT_NEAR(result[area(300, 50) + 200].g, 0.5f, 1e-5f) << bad;
        EXPECT_TRUE(std::isfinite(result[area(300, 50) + 26].r)) << bad;
    }
}

TEST(GuidedFilter, SameForAnyWorkersAndLeavesNoPlane)
{
    const Picture picture = planes::noisePicture(333, 222, 4);
    for (const float radius : {5.0f, 11.0f, 70.0f})
        planes::expectSameForAnyWorkers([&] { return filtered(picture, 333, 222, radius, 0.05f); });
}
