/// Decides where two aligned frames of one exposure show the same scene.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <array>
#include <cstddef>

namespace orvo::detail {

/// Tones of a re-exposed frame, in even steps of its encoded values.
constexpr int kToneBins = 64;
[[nodiscard]] int toneBin(float value);

// Samples above this share of white count as clipped: 8-bit compression makes it ring by some steps. Above the second,
// cameras lead colours towards white.
constexpr float kClippedShare = 0.97f;
constexpr float kShoulderShare = 0.88f;

/// What re-exposure does to the certainty of one channel.
struct ToneLimits
{
    /// By tone after re-exposure: how far one step of 8 bits of the original moves it.
    std::array<float, kToneBins> step{};
    float shoulder = kShoulderShare; ///< tones from here up are led towards white
    float ceiling = kClippedShare; ///< tones from here up were clipped before re-exposure: only a lower limit is known
};

/// For each block of pixels, how far `frame` can stand in for `mapped`, another frame re-exposed to it.
///
/// A block counts as moved where mean or texture of the two differ by more than noise, 8-bit steps, clipping and a
/// misregistration of half a block explain. Noise and the error of the map are measured in the pictures themselves, by
/// tone, as the usual difference between them, within what noise of some 8-bit steps can cause, so that a moving
/// subject that dominates a tone does not pass for noise. A difference that the surroundings share is an error of the
/// map. A moved core needs strong and coherent differences; it extends through connected weaker ones (hysteresis:
/// Canny, IEEE PAMI 8(6), 1986) and by a margin.
///
/// Both pictures are interleaved samples, three for each pixel. The result does not depend on the number of threads.
class SceneAgreement
{
public:
    SceneAgreement(const float* frame, const float* mapped, int width, int height,
                   const std::array<ToneLimits, 3>& limits);

    /// Share of `frame` in row `y`, 0..1, for each of the width pixels.
    void rowShares(int y, float* shares) const;

    [[nodiscard]] bool isNowhere() const { return nowhere; } ///< all blocks moved

private:
    int width, height;
    int side = 1;
    int columns = 0, rows = 0;
    bool nowhere = false;
    ManagedPlane<float> agreement; ///< by block
};

} // namespace orvo::detail
