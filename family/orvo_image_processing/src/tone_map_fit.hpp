/// From two frames to the tone curve between them: patches, quantiles, curve.
#pragma once

#include <orvo_image_processing/auto_exposure.hpp>

#include <array>
#include <vector>

namespace orvo::detail {

/// Means of the same small patches of both frames, one value for each patch and channel.
struct PatchPairs
{
    std::array<std::vector<float>, 3> a;
    std::array<std::vector<float>, 3> b;
    bool equal = false; ///< no patch differs in any bit of its mean
};

/// `a`, `b`: interleaved samples. Patches with a value that is not finite are left out.
[[nodiscard]] PatchPairs collectPatches(const float* a, const float* b, int width, int height);

/// The curve from `b` to `a` over the given pairs, with the slope of log light against log light and the middle tone.
struct FittedCurve
{
    ToneCurveMap map;
    float contrast = 1.0f;
    float middle = 0.5f;
};
[[nodiscard]] FittedCurve fitCurve(const std::vector<float>& a, const std::vector<float>& b);

/// One value through the map, for v >= 0.
class ToneCurve
{
public:
    explicit ToneCurve(const ToneCurveMap& map);
    [[nodiscard]] float operator()(float v) const;

private:
    static constexpr int kMostPoints = ToneCurveMap::kMostKnots + 1;
    [[nodiscard]] float plain(float v) const;
    [[nodiscard]] float spline(float z) const;

    float gain = 1.0f;
    float encodedGain = 1.0f;
    int points = 1; // the knots and (0, 0) before them
    std::array<float, kMostPoints> x{}, y{}, slope{};
    float knee, bend;
};

} // namespace orvo::detail
