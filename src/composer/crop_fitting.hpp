/// Crops of rendered panoramas.
#pragma once

#include <orvo_core/crop_description.hpp>
#include <orvo_extensions/preview.hpp>

#include <opencv2/core/types.hpp>

namespace orvo {

/// The result after a failure: gray, 100 x 100.
[[nodiscard]] RenderedData blankPreview();
/// The result for a request that no longer fits: gray, of `size`, with a mask of 1.
[[nodiscard]] RenderedData placeholderPreview(const _Size<int>& size);

/// Converts a crop for a picture of `contextSize` to one for a picture of `targetSize`, inside of it. The default value
/// stays as it is. Without a context size the crop is not scaled, and a line on standard error reports it.
[[nodiscard]] CropDescription processCropInfo(CropDescription crop, const _Size<int>& contextSize,
                                              const _Size<int>& targetSize);
/// Applies the factors of the crop to its rectangle, and fits the rectangle into a canvas of `target`, with at least
/// one pixel.
[[nodiscard]] CropDescription fitCropToCanvas(CropDescription crop, const _Size<int>& target);

/// The part of a canvas that a crop needs: the bounds of its turned rectangle; empty if that lies outside.
[[nodiscard]] cv::Rect boundsOfCrop(const CropDescription& crop, const _Size<int>& canvas);

/// Cuts a part out of a picture and turns it upright. Without a picture, returns the default value. The reported
/// profile is always melissaRGB(); the pixels are in the profile that the picture itself carries. Peak: the picture
/// with its mask twice.
[[nodiscard]] RenderedData applyCrop(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image,
                                     const std::shared_ptr<const _ImageData<float>>& mask, CropDescription crop);

} // namespace orvo
