/// Pictures with their mask as a fourth channel. Nothing is premultiplied.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// Makes `mask` the alpha of `picture` and keeps the profile; `flag` is always false here. Throws std::invalid_argument
/// if one is empty or their sizes differ. Peak: the result.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGBA<float>>>
joinToRGBA(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
           const std::shared_ptr<const _ImageData<float>>& mask, bool flag);

struct SplittedRGBA
{
    std::shared_ptr<_ImageData<PixelRGB<float>>> image; ///< in the profile of the split picture
    std::shared_ptr<_ImageData<float>> mask;            ///< not clamped to 0..1
};

/// The inverse of the above. Throws std::invalid_argument if `joined` is empty. Peak: the result.
[[nodiscard]] ORVO_EXPORT SplittedRGBA splitRGBA(const std::shared_ptr<const _ImageData<PixelRGBA<float>>>& joined);

/// Takes the white out of a picture that lies over white, in encoded values, where `coverage` (0 to 1, of its size) is
/// below 1: partly covered pixels get the colour of what covers them, so that `coverage` can be their alpha. Uncovered
/// ones stay white. Throws std::invalid_argument if the sizes differ.
ORVO_EXPORT void removeWhite(_ImageData<PixelRGB<float>>& picture, const _ImageData<float>& coverage);

} // namespace orvo
