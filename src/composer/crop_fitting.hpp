/// Crops of rendered panoramas.
#pragma once

#include <orvo_core/crop_description.hpp>
#include <orvo_extensions/preview.hpp>

namespace orvo {

/// The answer for a failure: gray, 100 by 100.
[[nodiscard]] RenderedData blankPreview();
/// The answer to a request that no longer fits: gray, of `size`, with a full mask.
[[nodiscard]] RenderedData placeholderPreview(const _Size<int>& size);

/// `crop`, made for a picture of `contextSize`, for one of `targetSize`, and inside of it. The default value stays. A
/// crop for a context of no size is fitted as it stands, which is reported on standard error.
[[nodiscard]] CropDescription processCropInfo(CropDescription crop, const _Size<int>& contextSize,
                                              const _Size<int>& targetSize);
/// Puts the factors of the crop into its rectangle, and the rectangle into a canvas of `target`, one pixel at least.
[[nodiscard]] CropDescription fitCropToCanvas(CropDescription crop, const _Size<int>& target);

/// The part of a picture, upright. Without a picture the default value. The reported profile is melissaRGB() in any
/// case; the picture's own is what its pixels are in. Peak: the picture with its mask twice.
[[nodiscard]] RenderedData applyCrop(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image,
                                     const std::shared_ptr<const _ImageData<float>>& mask, CropDescription crop);

} // namespace orvo
