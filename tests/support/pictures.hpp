/// Small pictures for tests, and their comparison.
#pragma once

#include "support/compare.hpp"

#include <orvo_core/image_data.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <functional>
#include <memory>

namespace orvo::test {

using Picture = _ImageData<PixelRGB<float>>;

/// A picture drawn by a function of the pixel's position.
inline std::shared_ptr<Picture> drawn(int width, int height, const std::function<PixelRGB<float>(int, int)>& colour)
{
    auto picture = std::make_shared<Picture>(_Size<int>(width, height), ColorProfileType::melissaRGB());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture->row(y)[x] = colour(x, y);
    return picture;
}

inline std::shared_ptr<Picture> plain(int width, int height, float value)
{
    return drawn(width, height, [value](int, int) { return PixelRGB<float>{value, value, value}; });
}

/// Smooth blobs of all sizes around mid gray, different everywhere, with enough detail to register. Defined at any
/// position.
inline PixelRGB<float> texture(double x, double y)
{
    const auto wave = [&](double u, double v, double phase) { return std::sin(u * x + v * y + phase); };
    const double value = 0.5 + 0.09 * (wave(0.061, 0.083, 0) + wave(-0.137, 0.041, 1.3) + wave(0.233, 0.171, 2.1) +
                                       wave(0.019, -0.271, 0.4) + wave(0.39, -0.31, 4.0) * wave(0.011, 0.017, 0.2));
    const auto v = static_cast<float>(value);
    return {v, v * 0.9f + 0.03f, v * 0.8f + 0.08f};
}

inline std::shared_ptr<Picture> textured(int width, int height, double shiftX = 0, double shiftY = 0)
{
    return drawn(width, height, [=](int x, int y) { return texture(x + shiftX, y + shiftY); });
}

/// The largest difference of any channel of any pixel; NaN on one side only counts as infinite.
inline float largestDifference(const Picture& a, const Picture& b)
{
    return static_cast<float>(differencesOf(a, b, 0.0).largest);
}

} // namespace orvo::test
