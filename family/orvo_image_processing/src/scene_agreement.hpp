/// Decides where two aligned frames of one exposure show the same scene.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <array>
#include <cstddef>
#include <functional>
#include <vector>

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

/// Row `y` of a picture, interleaved samples, or made in `scratch`, which has room for one row.
using MappedRows = std::function<const float*(int y, float* scratch)>;

/// Measures per block how well `frame` can replace `mapped`, another frame re-exposed to it.
///
/// A block counts as moved if mean or texture of the two differ by more than noise, 8-bit steps, clipping and a
/// misregistration of half a block explain. Noise and the error of the map are measured per tone as the usual
/// difference of the two pictures, limited to the effect of a few 8-bit steps of noise, so that a moving subject that
/// dominates a tone does not count as noise. A difference shared by the surroundings is an error of the map. A moved
/// core needs strong and coherent differences; it extends through connected weaker ones (hysteresis: Canny, IEEE PAMI
/// 8(6), 1986) and by a margin.
///
/// The frame, too, is interleaved samples, three per pixel. The result does not depend on the number of threads.
class SceneAgreement
{
public:
    /// Requests every row of `mapped` once, in parallel.
    SceneAgreement(const float* frame, const MappedRows& mapped, int width, int height,
                   const std::array<ToneLimits, 3>& limits);

    /// Weight of `frame`, 0..1, for the pixels first..end-1 of row `y`.
    void rowShares(int y, int first, int end, float* shares) const;

    /// Whether that weight is 1 for all pixels of a rectangle that is not empty.
    [[nodiscard]] bool isEverywhere(int left, int top, int right, int bottom) const;

    [[nodiscard]] bool isNowhere() const { return nowhere; } ///< all blocks moved

    /// The blocks left and right of a pixel column, and the share of the right one.
    struct ColumnPlace
    {
        int left, right;
        float share;
    };

private:
    [[nodiscard]] float placeOf(int pixel, int blocks) const;

    int width, height;
    int side = 1;
    int columns = 0, rows = 0;
    bool nowhere = false;
    ManagedPlane<float> agreement;   ///< per block
    std::vector<ColumnPlace> places; ///< per pixel column
};

} // namespace orvo::detail
