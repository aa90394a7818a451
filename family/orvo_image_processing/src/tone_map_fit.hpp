/// Fits the tone curve between two frames: patches, quantiles, curve.
#pragma once

#include <orvo_image_processing/auto_exposure.hpp>

#include <array>
#include <vector>

namespace orvo::detail {

/// Means of the same small patch in both frames, in one channel.
struct PatchPair
{
    float a, b;
    bool torn; ///< partly clipped in one of the frames, so that its mean there is too dark
};

struct PatchPairs
{
    std::array<std::vector<PatchPair>, 3> channels;
    bool equal = false; ///< no patch differs in any bit of its mean
};

/// `a`, `b`: interleaved samples. Patches with a non-finite value are left out.
[[nodiscard]] PatchPairs collectPatches(const float* a, const float* b, int width, int height);

/// Drops the patches that show a moving subject in at least two channels, if the frames are aligned.
void dropMovedPatches(PatchPairs& pairs);

/// The curve from b to a over the given pairs, with the slope of log light against log light and the middle tone of b.
struct FittedCurve
{
    ToneCurveMap map;
    float contrast = 1.0f;
    float middle = 0.5f;
};
[[nodiscard]] FittedCurve fitCurve(const std::vector<PatchPair>& pairs);

/// Maps one value, for v >= 0.
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
