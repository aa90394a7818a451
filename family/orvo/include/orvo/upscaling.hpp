/// Upscaling by learned filters or by a network.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// Of one upscaling: 16 times each side as built in; beyond it nothing is left to be guessed from.
inline constexpr int kMostUpscalePasses = 4;
/// Of one pass: what a network may do.
inline constexpr int kMostUpscaleScale = 8;
/// Of a result: what the reader takes in return.
inline constexpr std::int64_t kMostUpscaledPixels = 1'000'000'000;

/// What an upscaling is to do. A plain record.
struct ORVO_EXPORT UpscaleAISettings
{
    UpscaleAISettings();
    UpscaleAISettings(const UpscaleAISettings&) = default;
    UpscaleAISettings(UpscaleAISettings&&) noexcept = default;
    UpscaleAISettings& operator=(const UpscaleAISettings&) = default;
    UpscaleAISettings& operator=(UpscaleAISettings&&) noexcept = default;

    /// How often the picture is enlarged, 1 to kMostUpscalePasses, each time by the scale of the method (2 as built
    /// in).
    std::int32_t passes = 1;
    /// How much of the noise is smoothed before enlarging: 0 nothing, 1 half, 2 four fifths, 3 nine tenths of its
    /// deviation.
    std::int32_t denoise = 0;
    bool faces = true;    ///< sharpen faces afterwards; not read by upscaleX()
    bool crisp = false;   ///< steepen soft edges after enlarging, without overshoot
    bool builtIn = false; ///< use the built-in filters even where a network is configured
};

/// Names what an upscaling computes, so that its result can be kept. `key` names the pixels: the same key and size must
/// never stand for other pixels. `size` is the size of the picture; another one keeps nothing. An empty key (the
/// default) keeps nothing either.
struct ORVO_EXPORT mlCacheInfo
{
    std::string key;
    _Size<int> size;
};

/// The enlarged picture, in the colour profile of `image`; empty on cancel, and on failure after one log line of level
/// Error that names what was expected and what was found.
///
/// Values are used as they are encoded, in melissaRGB() with the curve of sRGB, and may lie outside 0..1: it is
/// the curve that edges look alike under, and networks are trained on, while the wide primaries lose no colour. Sample
/// centres stay where they are.
///
/// Built in are filters learned from photographs, which double the picture (scripts/train_upscaler/train.py tells the
/// method). The noise of the picture is measured and filters are taken that were learned with as much, so noise of a
/// deviation of 0.01 to 0.05 comes out weaker than from cubic interpolation, weaker and stronger noise about as it went
/// in, which is up to a third more than cubic interpolation leaves. `crisp` is for edges: places that show nothing but
/// noise come out of it no noisier than from cubic interpolation (within half a percent, for white noise), and what
/// differs from its surroundings by no more than noise is not steepened.
///
/// A network takes their place where the settings store (orvosettings()) names one:
///   "Upscale.model"    text; path of a super-resolution network in ONNX of 3 channels (red, green, blue) or 1 (luma,
///                      colours are then enlarged by cubic interpolation): 1 x C x H x W values, 1.0 full scale, become
///                      1 x C x sH x sW, s from 1 to 8. Declared sides are kept to, free ones are chosen. A model that
///                      cannot be used is a failure.
///   "Upscale.scale"    whole number; the s that the network must have. Without it: what a trial run shows.
///   "Upscale.overlap"  whole number, 0..256, 16 by itself; samples of the picture that a tile sees beyond its part.
///                      Tiles leave no seam if it is at least the reach of the network.
///
/// `mask`: where the method counts; has the size of `image`. 0: plain cubic interpolation (Catmull-Rom), 1: the method,
/// between: a mixture. Empty: the method everywhere. `cancel`: read between tiles; empty: the call cannot be cancelled.
/// `cacheInfo`: results are kept under its key, the size, the settings and the method (a network: its file's path, size
/// and time), and a second call gives a copy. Results with a mask are not kept, nor those above 256 MB; together they
/// take at most that much, the oldest go first.
///
/// Refused are passes outside 1..kMostUpscalePasses, a denoise outside 0..3, a mask of another size, an empty picture,
/// and results of more than kMostUpscaledPixels, before any of the work.
///
/// Blocks its caller; any thread, parallel inside; the same bits for any number of threads. Peak: the picture and the
/// result, plus less than a megabyte for each thread; `denoise` has four pictures of the size of `image` at its height,
/// before the result is made; `crisp` keeps another eighth of the result, and what was enlarged; every pass after the
/// first holds the result of the one before. A network needs its own memory for a tile of about 160 x 160. Throws
/// std::bad_alloc.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
upscaleX(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, const UpscaleAISettings& settings,
         const std::shared_ptr<const _ImageData<float>>& mask, const std::atomic<bool>* cancel,
         const mlCacheInfo& cacheInfo);

/// Size of what upscaleX() would make of a picture of `size`, for those who would know before they wait; 0 x 0 after
/// the same log line where that would refuse. A network whose scale the settings store does not tell is loaded and
/// tried for it, which takes as long as a tile does. Any thread. Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT _Size<int> upscaledSize(_Size<int> size, const UpscaleAISettings& settings);

/// Drops all results that upscaleX() keeps.
ORVO_EXPORT void clearUpscaleCache();

} // namespace orvo
