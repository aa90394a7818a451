#include "restoration/noise_reduction.hpp"

#include "restoration/cosine_blocks.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::details {
namespace {

using Pixel = PixelRGB<float>;
using Picture = _ImageData<Pixel>;

constexpr int kScales = 3;    // full, half and quarter size
constexpr int kSmallest = 64; // pixels per side; smaller pictures have no coarse grain worth a scale
// Share of the time; each scale has a quarter of the pixels of the previous one.
constexpr double kCoarseShare = 0.25;

// One sum and two differences, orthonormal, so that noise equal in all channels stays equal.
const float kSum = 1.0f / std::sqrt(3.0f);
const float kAcross = 1.0f / std::sqrt(2.0f);
const float kBetween = 1.0f / std::sqrt(6.0f);

Pixel toOpponent(const Pixel& p)
{
    return {(p.r + p.g + p.b) * kSum, (p.r - p.b) * kAcross, (p.r - 2.0f * p.g + p.b) * kBetween};
}

Pixel fromOpponent(const Pixel& p)
{
    const float mean = p.r * kSum;
    const float across = p.g * kAcross;
    const float between = p.b * kBetween;
    return {mean + across + between, mean - 2.0f * between, mean - across + between};
}

/// Means of 2 x 2 pixels; an odd last row or column is repeated.
std::shared_ptr<Picture> halved(const Picture& picture)
{
    const int width = picture.width();
    const int height = picture.height();
    auto half = std::make_shared<Picture>(_Size<int>((width + 1) / 2, (height + 1) / 2), picture.colorProfile());
    forEachRow(half->height(), [&](int y) {
        const Pixel* const upper = picture.row(2 * y);
        const Pixel* const lower = picture.row(std::min(2 * y + 1, height - 1));
        Pixel* const out = half->row(y);
        for (int x = 0; x < half->width(); ++x) {
            const int right = std::min(2 * x + 1, width - 1);
            const auto mean = [&](float Pixel::*c) {
                return 0.25f * (upper[2 * x].*c + upper[right].*c + lower[2 * x].*c + lower[right].*c);
            };
            out[x] = {mean(&Pixel::r), mean(&Pixel::g), mean(&Pixel::b)};
        }
    });
    return half;
}

/// Adds `after` - `before`, both of half the size, to `picture`, interpolated bilinearly between their pixel centres.
void addDifference(Picture& picture, const Picture& before, const Picture& after)
{
    const auto neighbours = [](int position, int count, int& near, int& far) {
        near = position / 2;
        far = std::clamp(position % 2 == 0 ? near - 1 : near + 1, 0, count - 1);
    };
    constexpr float kNear = 0.75f; // a pixel centre is a quarter of the coarse step from the nearer coarse centre
    forEachRow(picture.height(), [&](int y) {
        int nearY = 0, farY = 0;
        neighbours(y, before.height(), nearY, farY);
        Pixel* const out = picture.row(y);
        for (int x = 0; x < picture.width(); ++x) {
            int nearX = 0, farX = 0;
            neighbours(x, before.width(), nearX, farX);
            const auto change = [&](float Pixel::*c) {
                const auto at = [&](int row, int column) {
                    return after.row(row)[column].*c - before.row(row)[column].*c;
                };
                const float nearRow = kNear * at(nearY, nearX) + (1.0f - kNear) * at(nearY, farX);
                const float farRow = kNear * at(farY, nearX) + (1.0f - kNear) * at(farY, farX);
                return kNear * nearRow + (1.0f - kNear) * farRow;
            };
            out[x] = {out[x].r + change(&Pixel::r), out[x].g + change(&Pixel::g), out[x].b + change(&Pixel::b)};
        }
    });
}

/// `picture` with its noise reduced, coarse grain first; `finer` is the spectrum at twice the size.
std::shared_ptr<Picture> reduced(Picture& picture, int scales, const NoiseSpectrum* finer, const Step& step)
{
    const NoiseSpectrum noise(picture, finer);
    const bool coarser = scales > 1 && std::min(picture.width(), picture.height()) >= kSmallest;
    if (coarser) {
        const std::shared_ptr<Picture> before = halved(picture);
        const std::shared_ptr<Picture> half = before->copy({});
        const std::shared_ptr<Picture> after = reduced(*half, scales - 1, &noise, step.part(0.0, kCoarseShare));
        addDifference(picture, *before, *after);
    }
    return withoutNoise(picture, noise, step.part(coarser ? kCoarseShare : 0.0, 1.0));
}

} // namespace

void reduceNoise(Picture& picture, float amount, const Step& step)
{
    const std::shared_ptr<Picture> opponent = std::make_shared<Picture>(picture.size(), picture.colorProfile());
    forEachRow(picture.height(), [&](int y) {
        std::transform(picture.row(y), picture.row(y) + picture.width(), opponent->row(y), toOpponent);
    });
    const std::shared_ptr<Picture> quiet = reduced(*opponent, kScales, nullptr, step);
    forEachRow(picture.height(), [&](int y) {
        Pixel* const out = picture.row(y);
        for (int x = 0; x < picture.width(); ++x) {
            const Pixel before = toOpponent(out[x]);
            const Pixel& after = quiet->row(y)[x];
            out[x] = fromOpponent({before.r + amount * (after.r - before.r), before.g + amount * (after.g - before.g),
                                   before.b + amount * (after.b - before.b)});
        }
    });
}

} // namespace orvo::details
