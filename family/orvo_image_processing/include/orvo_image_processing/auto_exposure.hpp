/// The exposure of one picture brought to that of another.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <array>
#include <optional>

namespace orvo {

/// A tone curve from one frame to another, found by autoExposureEstimateRGB: the plain gain of 2^ev in linear light,
/// then a smooth rising spline through a few knots that takes up what the camera's own curve does on top, then a
/// shoulder at white.
struct ToneCurveMap
{
    static constexpr int kMostKnots = 32;
    float ev = 0.0f;
    int knots = 0;                        ///< 0: identity
    std::array<float, kMostKnots> from{}; ///< encoded, after the plain gain; rising, first above 0
    std::array<float, kMostKnots> to{};   ///< encoded, rising
    float white = 1.0f;                   ///< encoded value which the map approaches where the target frame is clipped
};

/// What autoExposureEstimateRGB found. The first four fields tell it in the terms of apply_exposure(v, expV, expR,
/// expM); autoExposureApplyRGB uses `curves`. The default is neutral.
struct auto_exposure_data_t
{
    float expV = 1.0f;  ///< 1 + EV / 10: exposure over all channels
    float expR = 0.9f;  ///< encoded tone where highlights begin to roll off
    float expM = 0.5f;  ///< encoded middle tone of the changed frame, which gets its exact exposure; 0.2..0.6
    float contr = 1.0f; ///< slope of log light against log light; told only, the curves hold it already
    std::array<ToneCurveMap, 3> curves; ///< in channel order
    std::optional<float> clippedTone;   ///< encoded tone in the first frame of what is clipped in the second
};

/// Estimates the map that takes `b` to the exposure of `a`. Both are `width` x `height`, encoded with the sRGB
/// transfer curve or a camera's own, 1.0 full scale. `mode` has a bit per channel (1, 2, 4): a set bit gives the
/// channel a curve by itself, the others share one made of all channels.
///
/// How: means of at most some 16000 small patches on a grid are matched by their quantiles, which neither noise nor a
/// shift between the frames disturbs; where the frames lie on each other, patches that disagree with the map (subjects
/// that moved) are then dropped from both sides and the rest is matched again. Only quantiles that are neither
/// clipped nor black in both frames count; outside them the plain exposure goes on. Fewer than 32 usable patches,
/// or equal frames, give the neutral record. Patches with values that are not finite do not count.
///
/// Time does not depend on the content; scratch is a few MB. Any thread; parallel; the same result for any
/// number of threads. Throws std::bad_alloc.
ORVO_EXPORT void autoExposureEstimateRGB(const PixelRGB<float>* a, const PixelRGB<float>* b, int width, int height,
                                         auto_exposure_data_t& data, int mode);

/// Applies the map to `b`, in place, in parallel: `a` is not read. Towards white the channels run together, so that
/// what is clipped stays neutral. A neutral record changes no bit. Otherwise
/// negative values and what is not a number become 0; finite values stay finite.
ORVO_EXPORT void autoExposureApplyRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height,
                                      const auto_exposure_data_t& data);

/// Estimates with mode 7 and applies: `b` takes the exposure of `a`.
ORVO_EXPORT void autoExposureAdjustRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height);

/// The same for interleaved samples, three for each pixel in any channel order.
ORVO_EXPORT void autoExposureEstimateRGB(const float* a, const float* b, int width, int height,
                                         auto_exposure_data_t& data, int mode);
ORVO_EXPORT void autoExposureApplyRGB(const float* a, float* b, int width, int height,
                                      const auto_exposure_data_t& data);
ORVO_EXPORT void autoExposureAdjustRGB(const float* a, float* b, int width, int height);

} // namespace orvo
