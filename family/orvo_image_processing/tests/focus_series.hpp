/// Focus series with a known all-sharp picture, and measures of a stacker's result.
#pragma once

#include "test_planes.hpp"

#include <algorithm>
#include <functional>

namespace focus {

using orvo::PixelRGB;

struct Picture
{
    Picture(int width_, int height_, PixelRGB<float> fill = {})
        : width(width_), height(height_), pixels(planes::area(width_, height_), fill)
    {}
    PixelRGB<float>& at(int x, int y) { return pixels[index(x, y)]; }
    const PixelRGB<float>& at(int x, int y) const { return pixels[index(x, y)]; }
    /// The edge pixels repeated beyond the picture.
    const PixelRGB<float>& near(int x, int y) const
    {
        return at(std::clamp(x, 0, width - 1), std::clamp(y, 0, height - 1));
    }

    int width, height;
    std::vector<PixelRGB<float>> pixels;

private:
    std::size_t index(int x, int y) const { return planes::area(width, y) + static_cast<std::size_t>(x); }
};

/// Pixels `from` to `to` outside the rim of the occluder.
struct Ring
{
    int from, to;
};

struct Series
{
    Picture sharp;
    std::vector<Picture> frames;
    std::vector<Ring> rings{};
};

// ---- measures ----

inline float difference(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

/// Infinite if a value is NaN.
inline float worstDifference(const Picture& a, const Picture& b)
{
    float worst = 0.0f;
    for (std::size_t i = 0; i < a.pixels.size(); ++i) {
        const float d = difference(a.pixels[i], b.pixels[i]);
        const float sum = a.pixels[i].r + a.pixels[i].g + a.pixels[i].b;
        worst = std::isfinite(sum) ? std::max(worst, d) : std::numeric_limits<float>::infinity();
    }
    return worst;
}

/// Decibels below full scale.
inline double psnr(const Picture& a, const Picture& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.pixels.size(); ++i)
        for (int c = 0; c < 3; ++c) {
            const double d = static_cast<double>((&a.pixels[i].r)[c]) - static_cast<double>((&b.pixels[i].r)[c]);
            sum += d * d;
        }
    return -10.0 * std::log10(sum / (3.0 * static_cast<double>(a.pixels.size())) + 1e-20);
}

/// Sum-modified Laplacian (Nayar, Nakagawa, "Shape from focus", 1994) of green, over 9x9 pixels.
inline std::vector<float> sharpness(const Picture& picture)
{
    constexpr int kRadius = 4;
    std::vector<float> modified(picture.pixels.size());
    std::vector<float> sums(picture.pixels.size(), 0.0f);
    const auto index = [&](int x, int y) {
        return planes::area(picture.width, std::clamp(y, 0, picture.height - 1)) +
               static_cast<std::size_t>(std::clamp(x, 0, picture.width - 1));
    };
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const float twice = 2.0f * picture.at(x, y).g;
            modified[index(x, y)] = std::abs(twice - picture.near(x - 1, y).g - picture.near(x + 1, y).g) +
                                    std::abs(twice - picture.near(x, y - 1).g - picture.near(x, y + 1).g);
        }
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x)
            for (int v = -kRadius; v <= kRadius; ++v)
                for (int u = -kRadius; u <= kRadius; ++u)
                    sums[index(x, y)] += modified[index(x + u, y + v)];
    return sums;
}

// ---- pictures ----

inline Picture noisy(Picture picture, float deviation, std::uint32_t seed)
{
    planes::Random random(seed);
    for (auto& p : picture.pixels)
        p = {p.r + deviation * random.normal(), p.g + deviation * random.normal(), p.b + deviation * random.normal()};
    return picture;
}

/// Gaussian blur with a deviation per pixel, like a lens on a surface of small slope.
inline Picture blurred(const Picture& picture, const std::function<float(int, int)>& deviation)
{
    Picture result = picture;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const float sigma = deviation(x, y);
            if (sigma < 0.05f)
                continue;
            const int reach = static_cast<int>(3.0f * sigma) + 1;
            std::vector<float> taps;
            for (int i = -reach; i <= reach; ++i)
                taps.push_back(std::exp(-0.5f * static_cast<float>(i * i) / (sigma * sigma)));
            PixelRGB<float> sum{};
            float weights = 0.0f;
            for (int v = -reach; v <= reach; ++v)
                for (int u = -reach; u <= reach; ++u) {
                    const float w =
                        taps[static_cast<std::size_t>(u + reach)] * taps[static_cast<std::size_t>(v + reach)];
                    const PixelRGB<float>& p = picture.near(x + u, y + v);
                    sum = {sum.r + w * p.r, sum.g + w * p.g, sum.b + w * p.b};
                    weights += w;
                }
            result.at(x, y) = {sum.r / weights, sum.g / weights, sum.b / weights};
        }
    return result;
}

/// Detail at all scales, like in nature: white noise smoothed over 1, 2, 4 .. 32 pixels, of equal strength each, the
/// channels two thirds correlated.
inline Picture texture(int width, int height, std::uint32_t seed)
{
    Picture sum(width, height, {0.5f, 0.45f, 0.4f});
    planes::Random random(seed);
    for (int cell = 1; cell <= 32; cell *= 2) {
        const int columns = width / cell + 3;
        std::vector<PixelRGB<float>> grid(planes::area(columns, height / cell + 3));
        for (auto& p : grid) {
            const float common = 0.07f * random.normal();
            p = {common + 0.03f * random.normal(), common + 0.03f * random.normal(), common + 0.03f * random.normal()};
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int cx = x / cell;
                const int cy = y / cell;
                const float fx = static_cast<float>(x % cell) / static_cast<float>(cell);
                const float fy = static_cast<float>(y % cell) / static_cast<float>(cell);
                const auto add = [&](int i, int j, float w) {
                    const auto& p = grid[planes::area(columns, cy + j) + static_cast<std::size_t>(cx + i)];
                    auto& q = sum.at(x, y);
                    q = {q.r + w * p.r, q.g + w * p.g, q.b + w * p.b};
                };
                add(0, 0, (1 - fx) * (1 - fy));
                add(1, 0, fx * (1 - fy));
                add(0, 1, (1 - fx) * fy);
                add(1, 1, fx * fy);
            }
    }
    return sum;
}

// ---- series ----

constexpr float kBlurPerStep = 1.2f; // pixels of deviation for each step of focus

/// Slanted steps of depth; each frame has one of them sharp.
inline Series staircase(int width, int height, int count)
{
    Series series{texture(width, height, 21), {}};
    for (int k = 0; k < count; ++k)
        series.frames.push_back(blurred(series.sharp, [&](int x, int y) {
            const int step = std::clamp((x + y / 3) * count / (width + height / 3), 0, count - 1);
            return kBlurPerStep * static_cast<float>(std::abs(step - k));
        }));
    return series;
}

/// A plane seen at an angle: the frames are sharp along lines, and between two lines neither is fully sharp.
inline Series ramp(int width, int height, int count)
{
    Series series{texture(width, height, 22), {}};
    for (int k = 0; k < count; ++k)
        series.frames.push_back(blurred(series.sharp, [&](int x, int) {
            const float depth = static_cast<float>(x) / static_cast<float>(width - 1) * static_cast<float>(count - 1);
            return 0.5f * kBlurPerStep * std::abs(depth - static_cast<float>(k));
        }));
    return series;
}

/// The left half sharp in the first frame, the right one in the second.
inline Series halves(int width, int height)
{
    Series series{texture(width, height, 23), {}};
    for (const bool right : {false, true})
        series.frames.push_back(
            blurred(series.sharp, [&](int x, int) { return (2 * x >= width) == right ? 0.0f : 4.0f; }));
    return series;
}

/// Distance to the card of cardBeforeWall, which fills the middle half of the picture; 0 inside.
inline int outsideCard(const Picture& picture, int x, int y)
{
    const int dx = std::max({picture.width / 4 - x, x - (picture.width * 3 / 4 - 1), 0});
    const int dy = std::max({picture.height / 4 - y, y - (picture.height * 3 / 4 - 1), 0});
    return std::max(dx, dy);
}

/// A bright card that hides part of a dark wall, seen through a lens: defocused, the card is half transparent at its
/// rim.
inline Series cardBeforeWall(int width, int height)
{
    constexpr float kDefocus = 4.0f;
    Picture wall = texture(width, height, 31);
    Picture card = texture(width, height, 32);
    Picture cover(width, height);
    Picture sharp(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto& w = wall.at(x, y);
            auto& c = card.at(x, y);
            w = {0.5f * w.r, 0.5f * w.g, 0.5f * w.b};
            c = {0.4f + 0.5f * c.r, 0.4f + 0.5f * c.g, 0.4f + 0.5f * c.b};
            const float inside = outsideCard(cover, x, y) == 0 ? 1.0f : 0.0f;
            cover.at(x, y) = {inside, inside, inside};
            sharp.at(x, y) = inside > 0.0f ? c : w;
        }
    const auto composed = [&](float wallBlur, float cardBlur) {
        const Picture back = blurred(wall, [&](int, int) { return wallBlur; });
        const Picture front = blurred(card, [&](int, int) { return cardBlur; });
        const Picture veil = blurred(cover, [&](int, int) { return cardBlur; });
        Picture frame(width, height);
        for (std::size_t i = 0; i < frame.pixels.size(); ++i) {
            const float a = veil.pixels[i].r;
            const auto& f = front.pixels[i];
            const auto& b = back.pixels[i];
            frame.pixels[i] = {a * f.r + (1 - a) * b.r, a * f.g + (1 - a) * b.g, a * f.b + (1 - a) * b.b};
        }
        return frame;
    };
    return {sharp, {composed(0.0f, kDefocus), composed(kDefocus, 0.0f)}, {{1, 3}, {4, 8}, {9, 14}, {15, 40}}};
}

/// Mean absolute error of green in a ring around the card.
inline double meanError(const Picture& picture, const Picture& sharp, const Ring& ring)
{
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const int distance = outsideCard(picture, x, y);
            if (distance < ring.from || distance > ring.to)
                continue;
            sum += std::abs(static_cast<double>(picture.at(x, y).g) - static_cast<double>(sharp.at(x, y).g));
            ++count;
        }
    return sum / count;
}

} // namespace focus
