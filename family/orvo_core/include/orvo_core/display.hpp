/// Conversion of pictures for display.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// Converts the picture to `profile`, in place unless it is const. Returns `image` itself if it already has the
/// profile, if `profile` is empty or if there is no image. Throws as _ImageData::colorTransform(). Peak: the result.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
prepareToDisplay(std::shared_ptr<_ImageData<PixelRGB<float>>> image, const std::shared_ptr<ColorProfile>& profile);
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
prepareToDisplay(std::shared_ptr<const _ImageData<PixelRGB<float>>> image,
                 const std::shared_ptr<ColorProfile>& profile);

} // namespace orvo
