/// Requests to a generative service and its answers: which part of a picture to send, and how to blend the answer in.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

using AnswerPicture = std::shared_ptr<_ImageData<PixelRGB<float>>>;

// Geometry.

/// Returns the rectangle to process for a hole within `roi`: extended by half its size on every side (at least 32
/// pixels), with its shorter side grown to at least half of the longer one and to `minimum`, as far as the picture
/// allows. An empty `roi`, or one outside of the picture, gives the whole picture.
[[nodiscard]] ORVO_EXPORT _Rect<int> adjustProcessingRect(const _Rect<int>& roi, const _Size<int>& imageSize,
                                                          _Size<int> minimum);

/// The bounding box of the samples above 0; (0, 0, 0, 0) if there are none.
[[nodiscard]] ORVO_EXPORT _Rect<int> calculateMaskRoi(const std::shared_ptr<const _ImageData<float>>& mask);

/// The largest size with the aspect of `rectSize` that fits into both sizes; at least 1 x 1, or (0, 0) if either is
/// empty.
[[nodiscard]] ORVO_EXPORT _Size<int> calculateDownsampledSize(const _Size<int>& requestSize,
                                                              const _Size<int>& rectSize);

/// Resizes an answer to exactly `size`: with upscaleX() to grow by an eighth or more, with resize() otherwise. `mask`
/// (may be empty) selects where the upscaler applies. An enlarged picture records its factor for
/// applyDetailsToResult(). Throws std::invalid_argument if there is no picture or `size` is empty. Peak: as upscaleX().
ORVO_EXPORT void upscaleToInitialSize(AnswerPicture& result, const _Size<int>& size,
                                      const std::shared_ptr<const _ImageData<float>>& mask);

// Blending. Pictures are converted to the profile of their target.

/// Turns a painted mask into a blend mask, in place: it fades outward over three hundredths of the hole's extent (the
/// square root of its area), 3 to 48 pixels. Samples of 0.5 or more become 1; softer rims never decrease. The fade
/// follows the exact Euclidean distance (Felzenszwalb, Huttenlocher: Distance Transforms of Sampled Functions, Theory
/// of Computing 8, 2012). Peak: one float plane.
ORVO_EXPORT void prepareBlendMask(const std::shared_ptr<_ImageData<float>>& mask);

/// Restores some of the fine contrast that enlarging an answer loses: moves each sample away from its local mean,
/// within the range of its neighbours. A picture that was not enlarged stays unchanged. Peak: one picture.
ORVO_EXPORT void applyDetailsToResult(AnswerPicture& result);

/// Matches an answer to its surroundings, where the mask is 0 or small: spreads the colour difference measured there
/// smoothly into the hole and subtracts it (a membrane by push and pull over a pyramid: Gortler et al., The Lumigraph,
/// SIGGRAPH 1996), and adds grain where the source is grainier (the same grain in every run). The sizes must be equal,
/// otherwise std::invalid_argument. Equal pictures stay unchanged. Peak: a tenth of a picture.
ORVO_EXPORT void blendWithSource(AnswerPicture& result,
                                 const std::shared_ptr<const _ImageData<PixelRGB<float>>>& source,
                                 const std::shared_ptr<const _ImageData<float>>& mask);

/// Blends `result` into `target` at `rect` through `mask`. The target stays bit-exact where the mask is 0; parts of
/// `rect` outside of the target are skipped. All sizes must equal that of `rect`, otherwise std::invalid_argument.
ORVO_EXPORT void blendRoi(AnswerPicture& target, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& result,
                          const std::shared_ptr<const _ImageData<float>>& mask, const _Rect<int>& rect);

} // namespace orvo
