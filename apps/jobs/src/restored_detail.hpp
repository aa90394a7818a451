/// Brings the answer of a restoration to the size of its picture.
#pragma once

#include <orvo/restoration.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo::jobs {

using RestoredPicture = std::shared_ptr<_ImageData<PixelRGB<float>>>;

/// What `answer` has over `sent`, added to `picture` at the answer's size: the answer in the colours of the picture,
/// those that sRGB does not have included. An answer larger than the picture is brought to its size. In the picture's
/// profile. Where answer and `sent` are the same it is the picture. Peak: four pictures of the answer's size.
[[nodiscard]] RestoredPicture answerInColours(const _ImageData<PixelRGB<float>>& answer,
                                              const _ImageData<PixelRGB<float>>& sent,
                                              const _ImageData<PixelRGB<float>>& picture);

/// The answer at the size of the picture: enlarged by the upscaler, with the detail of `quiet`, the picture without its
/// noise, that the smaller size does not show. `quiet` becomes the result. If the answer is `quiet` at its size, the
/// result is `quiet`. Peak: one picture more than the upscaler's.
[[nodiscard]] RestoredPicture withFineDetail(RestoredPicture answer, RestoredPicture quiet);

} // namespace orvo::jobs
