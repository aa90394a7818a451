/// Pictures on their way to a screen.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// The picture in `profile`. One that has it already is given back as it is; another one is converted, in place if it
/// is not const. An empty picture stays empty, and an empty profile converts nothing. Throws as
/// _ImageData::colorTransform(). Peak: the result.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
prepareToDisplay(std::shared_ptr<_ImageData<PixelRGB<float>>> image, const std::shared_ptr<ColorProfile>& profile);
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
prepareToDisplay(std::shared_ptr<const _ImageData<PixelRGB<float>>> image,
                 const std::shared_ptr<ColorProfile>& profile);

} // namespace orvo
