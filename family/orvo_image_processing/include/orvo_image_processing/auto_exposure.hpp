/// Matches the exposure of one picture to that of another.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/pixel.hpp>

#include <array>
#include <memory>
#include <optional>

namespace orvo {

/// A tone curve from one frame to another, found by autoExposureEstimateRGB: a gain of 2^ev in linear light, then a
/// smooth rising spline through a few knots for the camera's own curve, then a shoulder at white.
struct ToneCurveMap
{
    static constexpr int kMostKnots = 32;
    float ev = 0.0f;
    int knots = 0;                        ///< 0: identity
    std::array<float, kMostKnots> from{}; ///< encoded, after the plain gain; rising, first above 0
    std::array<float, kMostKnots> to{};   ///< encoded, rising
    float black = 0.0f;                   ///< darkest encoded value of the target frame if it is brighter; else 0
    float white = 1.0f;                   ///< encoded value that the map approaches where the target frame is clipped
};

/// The result of autoExposureEstimateRGB. The first four fields express it as parameters of apply_exposure(v, expV,
/// expR, expM); autoExposureApplyRGB uses `curves`. The default is neutral.
struct auto_exposure_data_t
{
    float expV = 1.0f;  ///< 1 + EV / 10: exposure over all channels
    float expR = 0.9f;  ///< encoded tone where highlights begin to roll off
    float expM = 0.5f;  ///< encoded middle tone of the adjusted frame, which gets its exact exposure; 0.2..0.6
    float contr = 1.0f; ///< slope of log light against log light; informative, already part of the curves
    std::array<ToneCurveMap, 3> curves; ///< in channel order
    std::optional<float> clippedTone;   ///< encoded tone in the first frame where the second is clipped
};

/// Estimates the map from the exposure of `b` to that of `a`. Both are `width` x `height`, encoded with the sRGB
/// transfer curve or the camera's, 1.0 full scale. `mode` has a bit per channel (1, 2, 4): a channel whose bit is set
/// gets its own curve, the others share one fitted to all channels.
///
/// Method: the means of at most about 16000 small patches on a grid are matched by quantiles, which are robust to noise
/// and to a shift between the frames. If the frames are aligned, patches that disagree with the map (moving subjects)
/// are then dropped from both sides and the rest is matched again; so are patches that are far from the common gain in
/// two channels and from their tone in one. Only quantiles that are neither clipped nor black
/// in both frames count; outside them the plain exposure applies. Fewer than 32 usable patches, or equal frames, return
/// the neutral record. Patches with non-finite values do not count.
///
/// Time does not depend on the content; scratch is a few MB. Any thread; parallel; the result does not depend on the
/// number of threads. Throws std::bad_alloc.
ORVO_EXPORT void autoExposureEstimateRGB(const PixelRGB<float>* a, const PixelRGB<float>* b, int width, int height,
                                         auto_exposure_data_t& data, int mode);

/// Applies the map to `b`, in place, in parallel. Towards white the channels converge, so that clipped pixels stay
/// neutral. A neutral record changes nothing. Otherwise negative values and NaN become 0; finite values stay finite.
///
/// `a` is the frame whose exposure `b` gets, pixel by pixel; it may be empty. Where both show the same scene, the
/// result is `a` itself, since re-exposure cannot restore detail that `b` lost to noise, 8-bit steps or clipping;
/// elsewhere it is not below the black of a brighter `a`, below which raised noise would go (ToneCurveMap::black). The
/// two are compared per tone on blocks of 4 to 16 pixels (1 / 400 of the longer side). Scratch with `a`: 1.4 planes of
/// one channel at blocks of 4 pixels, a tenth of a plane at 16, and some rows per thread.
ORVO_EXPORT void autoExposureApplyRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height,
                                      const auto_exposure_data_t& data);

/// The result of autoExposureApplyRGB() by rows, so that nobody has to keep it as a plane. Keeps the map and the
/// agreement of the blocks, not the pictures. Calls of the const functions may run in parallel.
class ORVO_EXPORT ReexposedFrame
{
public:
    /// As autoExposureApplyRGB() would be called; reads all pixels once, in parallel.
    ReexposedFrame(const PixelRGB<float>* a, const PixelRGB<float>* b, int width, int height,
                   const auto_exposure_data_t& data);
    ~ReexposedFrame();
    ReexposedFrame(ReexposedFrame&&) noexcept;
    ReexposedFrame& operator=(ReexposedFrame&&) noexcept;

    /// Pixels first..end-1 of row `y`. The three pointers are at the first of them; `result` may be `b`. `a` may be
    /// empty if it was.
    ///
    /// `hues`: the same pixels as `b` with the hue of clipped highlights recovered (highlight_hue.hpp), or empty. In a
    /// darker frame they determine the colour, since the curves of the channels end at different heights; then `result`
    /// is not `b`.
    void row(int y, int first, int end, const PixelRGB<float>* a, const PixelRGB<float>* b, PixelRGB<float>* result,
             const PixelRGB<float>* hues = nullptr) const;

    /// Whether row() reads `hues`: the frame is the darker one.
    [[nodiscard]] bool usesHues() const;

    /// Whether the result in this area, which is not empty, is `a` itself.
    [[nodiscard]] bool isFrameItself(const _Rect<int>& area) const;

private:
    struct State;
    std::unique_ptr<State> state; // empty: `b` stays as it is
};

/// Estimates with mode 7 and applies only the map: `b` gets the exposure of `a`. The frames need not be aligned.
ORVO_EXPORT void autoExposureAdjustRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height);

/// The same for interleaved samples, three per pixel, in any channel order.
ORVO_EXPORT void autoExposureEstimateRGB(const float* a, const float* b, int width, int height,
                                         auto_exposure_data_t& data, int mode);
ORVO_EXPORT void autoExposureApplyRGB(const float* a, float* b, int width, int height,
                                      const auto_exposure_data_t& data);
ORVO_EXPORT void autoExposureAdjustRGB(const float* a, float* b, int width, int height);

} // namespace orvo
