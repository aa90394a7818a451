/// The noise of a small block of a picture.
#pragma once

#include <orvo_core/image_data.hpp>

#include <array>
#include <cmath>
#include <cstddef>

namespace orvo::details {

inline constexpr int kNoiseBlock =
    16; ///< pixels: enough for a deviation within a tenth, small enough for smooth places

struct BlockNoise
{
    double noise = 0.0;    ///< variance of the noise; 0 of a flat block
    double variance = 0.0; ///< of everything in the block except a slope; equal to the noise if that is all there is
};

/// The variance of a square of `values` x `values` values about the plane that fits them best.
/// `value(x, y)`: finite.
template <typename Value>
double varianceAboutPlane(int values, const Value& value)
{
    double sum = 0.0;
    double acrossSum = 0.0;
    double downSum = 0.0;
    double squares = 0.0;
    const double middle = (values - 1) / 2.0;
    const float base = value(0, 0); // subtracted, so that squares of differences keep their digits
    for (int y = 0; y < values; ++y)
        for (int x = 0; x < values; ++x) {
            const float v = value(x, y) - base;
            sum += v;
            acrossSum += v * (x - middle);
            downSum += v * (y - middle);
            squares += static_cast<double>(v) * v;
        }
    const double count = static_cast<double>(values) * values;
    const double slopeSquares = count * (count - 1.0) / 12.0; // sum of squared positions along one axis
    return (squares - sum * sum / count - (acrossSum * acrossSum + downSum * downSum) / slopeSquares) / (count - 3.0);
}

/// Noise of the kNoiseBlock x kNoiseBlock pixels from (left, top) on, as documented at noiseLevel(). `value(pixel)`:
/// the measured quantity; a non-finite value counts as 0.
template <typename Value>
BlockNoise blockNoise(const _ImageData<PixelRGB<float>>& picture, int left, int top, const Value& value)
{
    // A fifth of the rounding error of 8 bits: a block below it is clipped or synthetic, and useless for measuring
    // noise.
    constexpr float kNothing = 2e-4f;
    std::array<std::array<float, kNoiseBlock>, kNoiseBlock> values;
    for (std::size_t y = 0; y < kNoiseBlock; ++y)
        for (std::size_t x = 0; x < kNoiseBlock; ++x) {
            const float v = value(picture.row(top + static_cast<int>(y))[left + static_cast<int>(x)]);
            values[y][x] = std::isfinite(v) ? v : 0.0f;
        }
    double bends = 0.0;
    for (std::size_t y = 1; y + 1 < kNoiseBlock; ++y)
        for (std::size_t x = 1; x + 1 < kNoiseBlock; ++x) {
            const auto row = [&](std::size_t r) { return values[r][x - 1] - 2.0f * values[r][x] + values[r][x + 1]; };
            const float bend = row(y - 1) - 2.0f * row(y) + row(y + 1);
            bends += static_cast<double>(bend) * bend;
        }
    // The squares of the operator's nine weights add up to 36.
    const double estimate = bends / (36.0 * (kNoiseBlock - 2) * (kNoiseBlock - 2));
    if (estimate < static_cast<double>(kNothing) * kNothing)
        return {};
    return {estimate, varianceAboutPlane(kNoiseBlock, [&](int x, int y) {
                return values[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
            })};
}

} // namespace orvo::details
