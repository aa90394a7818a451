/// Decides where two aligned frames of one exposure show the same scene.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <array>
#include <cstddef>

namespace orvo::detail {

/// Tone bins of a re-exposed frame, in even steps of its encoded values.
constexpr int kToneBins = 64;
[[nodiscard]] int toneBin(float value);

// Samples above this share of white count as clipped: 8-bit compression varies white by some steps. Above the second,
// cameras desaturate colours towards white.
constexpr float kClippedShare = 0.97f;
constexpr float kShoulderShare = 0.88f;

/// The effect of re-exposure on the accuracy of one channel.
struct ToneLimits
{
    /// Per tone after re-exposure: the change caused by one 8-bit step of the original.
    std::array<float, kToneBins> step{};
    float shoulder = kShoulderShare; ///< tones from here up are desaturated towards white
    float ceiling = kClippedShare;   ///< tones from here up were clipped before re-exposure: their true value may be
                                     ///< higher
};

/// Measures per block how well `frame` can replace `mapped`, another frame re-exposed to it.
///
/// A block counts as moved if mean or texture of the two differ by more than noise, 8-bit steps, clipping and a
/// misregistration of half a block explain. Noise and the error of the map are measured per tone as the usual
/// difference of the two pictures, limited to the effect of a few 8-bit steps of noise, so that a moving subject that
/// dominates a tone does not count as noise. A difference shared by the surroundings is an error of the map. A moved
/// core needs strong and coherent differences; it extends through connected weaker ones (hysteresis: Canny, IEEE PAMI
/// 8(6), 1986) and by a margin.
///
/// Both pictures are interleaved samples, three per pixel. The result does not depend on the number of threads.
class SceneAgreement
{
public:
    SceneAgreement(const float* frame, const float* mapped, int width, int height,
                   const std::array<ToneLimits, 3>& limits);

    /// Weight of `frame` in row `y`, 0..1, for each pixel of the row.
    void rowShares(int y, float* shares) const;

    [[nodiscard]] bool isNowhere() const { return nowhere; } ///< all blocks moved

private:
    int width, height;
    int side = 1;
    int columns = 0, rows = 0;
    bool nowhere = false;
    ManagedPlane<float> agreement; ///< per block
};

} // namespace orvo::detail
