/// Upscaling by learned filters or by a network.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

class RunControl;

/// Limit for one upscaling: 16 times each side with the built-in filters; more leaves nothing to estimate from.
inline constexpr int kMostUpscalePasses = 4;
/// Limit for the scale of one pass of a network.
inline constexpr int kMostUpscaleScale = 8;
/// Limit for a result: the limit of the reader.
inline constexpr std::int64_t kMostUpscaledPixels = 1'000'000'000;

/// What an upscaling does. A plain record. Read: all by upscaleAI(), all but `faces` by upscaleX().
struct ORVO_EXPORT UpscaleAISettings
{
    UpscaleAISettings();
    UpscaleAISettings(const UpscaleAISettings&) = default;
    UpscaleAISettings(UpscaleAISettings&&) noexcept = default;
    UpscaleAISettings& operator=(const UpscaleAISettings&) = default;
    UpscaleAISettings& operator=(UpscaleAISettings&&) noexcept = default;

    /// How often the picture is enlarged, 1 to kMostUpscalePasses, each time by the scale of the method (2 for the
    /// built-in filters).
    std::int32_t passes = 1;
    /// How much of the noise is smoothed before enlarging: 0 nothing, 1 half, 2 four fifths, 3 nine tenths of its
    /// deviation.
    std::int32_t denoise = 0;
    bool faces = true;    ///< sharpen faces afterwards; ignored by upscaleX()
    bool crisp = false;   ///< steepen soft edges after enlarging, without overshoot
    bool builtIn = false; ///< use the built-in filters even where a network is configured
};

/// Identifies the result of an upscaling, so that it can be cached. `key` stands for the pixels: the same key and size
/// must never mean other pixels. `size` is the size of the picture; any other size disables caching, and so does an
/// empty key (the default).
struct ORVO_EXPORT mlCacheInfo
{
    std::string key;
    _Size<int> size;
};

/// Returns the enlarged picture, in the colour profile of `image`; empty on cancel, and on failure after one log line
/// of level Error that names what was expected and what was found.
///
/// Example, with the result kept for the next call on the same pixels, and a mask:
///
///     std::atomic<bool> cancel = false; // any thread may set it
///     const auto enlarged = upscaleX(picture, settings, mask, &cancel, {"holiday/1.jpg", picture->size()});
///
/// Uses encoded values, in melissaRGB() with the curve of sRGB, which may be outside 0..1: under this curve edges look
/// alike, and networks are trained with it, while the wide primaries keep all colours. Sample centres keep their
/// positions.
///
/// The built-in filters are learned from photographs and double the picture (scripts/train_upscaler/train.py describes
/// the method). Filters learned with the measured noise of the picture are used, so noise with a deviation of 0.01 to
/// 0.05 becomes weaker than with cubic interpolation, and other noise about equal. Two kinds of filters are mixed by
/// how sharp the pixels of `image` are: those for pictures reduced by averaging also sharpen, which would make the
/// stairs ring that reducing by interpolation leaves. `crisp` steepens edges, not noise.
///
/// A network replaces them if the settings store (orvosettings()) names one:
///   "Upscale.model"    text; path of a super-resolution network in ONNX with 3 channels (red, green, blue) or 1 (luma,
///                      with colours enlarged by cubic interpolation): 1 x C x H x W values, 1.0 full scale, become
///                      1 x C x sH x sW, s from 1 to 8. Declared sides are used, free ones are chosen. A model that
///                      cannot be used is a failure.
///   "Upscale.scale"    integer; the s that the network must have. Without it: the result of a trial run.
///   "Upscale.overlap"  integer, 0..256, default 16; samples of the picture that a tile sees beyond its part.
///                      Tiles leave no seam if it is at least the reach of the network.
///
/// `mask`: where the method applies; has the size of `image`. 0: plain cubic interpolation (Catmull-Rom), 1: the
/// method, in between: a mix. Empty: the method everywhere. `cancel`: polled between tiles; empty: the call cannot be
/// cancelled. `cacheInfo`: results are cached by its key, the size, the settings and the method (a network: its file's
/// path, size and time), and a second call returns a copy. Results with a mask are not cached, nor those above 256 MB;
/// the cache is limited to that size and evicts the oldest first.
///
/// Before any work it refuses passes outside 1..kMostUpscalePasses, a denoise outside 0..3, a mask of another size, an
/// empty picture, and results of more than kMostUpscaledPixels.
///
/// Blocks; any thread, parallel inside; bit-identical for any number of threads. Peak: the picture and the result, plus
/// less than a megabyte per thread; `denoise` needs up to four pictures of the size of `image`, before the result
/// exists; `crisp` keeps another eighth of the result, and the enlarged picture; every pass after the first keeps the
/// result of the previous one. A network needs its own memory for a tile of about 160 x 160. Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
upscaleX(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, const UpscaleAISettings& settings,
         const std::shared_ptr<const _ImageData<float>>& mask, const std::atomic<bool>* cancel,
         const mlCacheInfo& cacheInfo);

/// The same, with any source of cancel. Reports progress on the calling thread.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
upscaleX(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, const UpscaleAISettings& settings,
         const std::shared_ptr<const _ImageData<float>>& mask, const RunControl& run, const mlCacheInfo& cacheInfo);

/// Size of the result of upscaleX() for a picture of `size`, for callers that need it beforehand; 0 x 0 after the same
/// log line if that would refuse. A network whose scale is not in the settings store is loaded and tried, which takes
/// as long as one tile. Any thread. Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT _Size<int> upscaledSize(_Size<int> size, const UpscaleAISettings& settings);

/// Drops all cached results of upscaleX().
ORVO_EXPORT void clearUpscaleCache();

} // namespace orvo
