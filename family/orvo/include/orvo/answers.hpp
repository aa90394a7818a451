/// Requests to a generative service and its answers: which part of a picture is sent, and how what comes back is put
/// in.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

using AnswerPicture = std::shared_ptr<_ImageData<PixelRGB<float>>>;

// Geometry.

/// The rectangle to be processed for a hole within `roi`: half of its size more on every side (at least 32 pixels), its
/// shorter side brought to at least half of the longer one and to `minimum`, as far as the picture goes. An empty `roi`
/// gives the whole picture, and so does one that lies outside.
[[nodiscard]] ORVO_EXPORT _Rect<int> adjustProcessingRect(const _Rect<int>& roi, const _Size<int>& imageSize,
                                                          _Size<int> minimum);

/// The bounds of what is above 0; (0, 0, 0, 0) if nothing is.
[[nodiscard]] ORVO_EXPORT _Rect<int> calculateMaskRoi(const std::shared_ptr<const _ImageData<float>>& mask);

/// The largest size with the aspect of `rectSize` that exceeds neither of the two; at least 1 x 1, (0, 0) if one of
/// them is empty.
[[nodiscard]] ORVO_EXPORT _Size<int> calculateDownsampledSize(const _Size<int>& requestSize,
                                                              const _Size<int>& rectSize);

/// Brings an answer to exactly `size`: through upscaleX() if it has to grow by an eighth or more, by resize() else.
/// `mask` (may be empty) says where the upscaler's method counts. What has grown remembers by how much, for
/// applyDetailsToResult(). Throws std::invalid_argument if there is no picture or `size` is empty. Peak: as upscaleX().
ORVO_EXPORT void upscaleToInitialSize(AnswerPicture& result, const _Size<int>& size,
                                      const std::shared_ptr<const _ImageData<float>>& mask);

// Blending. Pictures are brought into the profile of the one that they go into.

/// Turns a painted mask into one to blend by, in place: it fades outward over a width of three hundredths of the hole's
/// extent (the root of its area), 3 to 48 pixels. What is painted at half or more becomes 1, softer rims stay at least
/// as they are. The fade follows the exact Euclidean distance (Felzenszwalb, Huttenlocher: Distance Transforms of
/// Sampled Functions, Theory of Computing 8, 2012). Peak: one plane of floats.
ORVO_EXPORT void prepareBlendMask(const std::shared_ptr<_ImageData<float>>& mask);

/// Gives an enlarged answer back some of the contrast of fine structure that enlarging takes: each sample moves away
/// from the mean around it, but not beyond what is around it. A picture that has not grown stays as it is. Peak: one
/// picture.
ORVO_EXPORT void applyDetailsToResult(AnswerPicture& result);

/// Makes an answer fit its surroundings, where the mask is 0 or small: the difference of colour there is spread
/// smoothly into the hole and taken out (a membrane by push and pull over a pyramid: Gortler et al., The Lumigraph,
/// SIGGRAPH 1996), and where the source is grainier than the answer, so much grain is added (the same grain in every
/// run). All three have one size, otherwise std::invalid_argument. Where result and source are the same nothing
/// changes. Peak: a tenth of a picture.
ORVO_EXPORT void blendWithSource(AnswerPicture& result,
                                 const std::shared_ptr<const _ImageData<PixelRGB<float>>>& source,
                                 const std::shared_ptr<const _ImageData<float>>& mask);

/// Puts `result` into `target` at `rect`, through `mask`: where the mask is 0 the target stays as it is, bit by bit;
/// what lies outside of the target is left out. All have the size of `rect`, otherwise std::invalid_argument.
ORVO_EXPORT void blendRoi(AnswerPicture& target, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& result,
                          const std::shared_ptr<const _ImageData<float>>& mask, const _Rect<int>& rect);

} // namespace orvo
